// The C++ side of bench/bench_python.py.
//
//   bench_python_peer server --lab lab20|grid300k --cycles N [--warmup W]
//       serves the lab with SimulationServer (pipelined), prints
//       "listening on port P", then "cycle_ms T" (mean over the cycles after
//       the warm-up) once the front-end has run N cycles.
//   bench_python_peer client --port P --records R --cycles N
//       the raw front-end: per cycle reads the ack, sends "0#", reads and
//       acks the chalk string and R records; closes after N cycles.
//
// The labs are the ones bench_python.py builds in Python, number for number.
#include "RawClient.h"

#include <Orlavex/server/SimulationServer.h>

#include <QCoreApplication>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

const char* arg(int argc, char** argv, const char* name, const char* fallback) {
    for (int i = 2; i + 1 < argc; ++i)
        if (std::strcmp(argv[i], name) == 0)
            return argv[i + 1];
    return fallback;
}

// lab20: 12 solids (p = 1, c = 1), a 24 x 16 grid with vectors and cell
// colours (p = 0), 4 trails, 3 read-outs.
const int kSolidTails[12] = {1, 2, 3, 4, 1, 2, 2, 3, 1, 2, 3, 4};
const double kColour[11] = {0.8, 0.3, 0.2, 0.9, 0.3, 20, 1, 0, 0, 0, 0};
constexpr int kGridCells = 24 * 16;
constexpr int kBigCells = 300000;

void lab20(SimulationServer& s, int cycle, std::vector<double>& buf) {
    const double t = cycle * 0.01;
    for (int i = 0; i < 12; ++i) {
        buf.assign({std::sin(t + i), std::cos(t + i), 0.1 * i, 0, 0, 0, 0, 0, 1});
        for (int k = 0; k < kSolidTails[i]; ++k)
            buf.push_back(0.25 + 0.05 * k);
        buf.insert(buf.end(), kColour, kColour + 11);
        s.addRecord(1 + i, buf.data(), int(buf.size()));
    }
    const int n = kGridCells;
    buf.resize(5 * n + 1);
    for (int c = 0; c < n; ++c) {
        const double phase = t + 0.01 * c;
        buf[c] = 0.5 + 0.5 * std::sin(phase);           // magnitudes
        buf[n + 3 * c] = std::cos(phase);                // vectors
        buf[n + 3 * c + 1] = std::sin(phase);
        buf[n + 3 * c + 2] = 0.0;
        buf[4 * n + 1 + c] = 20.0 + 10.0 * std::sin(phase); // cell colours
    }
    buf[4 * n] = 0.1;
    s.addRecord(13, buf.data(), int(buf.size()));
    for (int k = 0; k < 4; ++k)
        s.addRecord(14 + k, {t, std::sin(t + k)});
    for (int k = 0; k < 3; ++k)
        s.addRecord(18 + k, {t * (k + 1)});
}

void grid300k(SimulationServer& s, int cycle, std::vector<double>& buf) {
    const double scale = 1.0 + 0.001 * cycle;
    buf.resize(kBigCells);
    for (int c = 0; c < kBigCells; ++c)
        buf[c] = (20.0 + 0.0001 * c) * scale;
    s.addRecord(1, buf.data(), int(buf.size()));
}

int serve(int argc, char** argv) {
    const std::string lab = arg(argc, argv, "--lab", "lab20");
    const int cycles = std::atoi(arg(argc, argv, "--cycles", "200"));
    const int warmup = std::atoi(arg(argc, argv, "--warmup", "20"));
    auto build = lab == "grid300k" ? grid300k : lab20;
    SimulationServer server;
    server.setTimeout(60000);
    if (!server.listen()) {
        std::fprintf(stderr, "cannot listen\n");
        return 1;
    }
    std::printf("listening on port %d\n", int(server.port()));
    std::fflush(stdout);
    if (!server.waitForClient(60000))
        return 1;
    std::vector<double> buf;
    QVector<SimulationServer::Entry> changes;
    auto start = std::chrono::steady_clock::now();
    for (int cycle = 0; cycle < cycles; ++cycle) {
        if (cycle == warmup)
            start = std::chrono::steady_clock::now();
        if (!server.nextCycle(&changes))
            return 1;
        build(server, cycle, buf);
        if (!server.finishCycle(cycle))
            return 1;
    }
    // The last cycle's acks, so that its strings count as delivered.
    if (!server.nextCycle(&changes))
        return 1;
    const double ms = std::chrono::duration<double, std::milli>(
                          std::chrono::steady_clock::now() - start)
                          .count() /
                      (cycles - warmup);
    std::printf("cycle_ms %.6f\n", ms);
    return 0;
}

int client(int argc, char** argv) {
    RawClient c;
    if (!c.connect(uint16_t(std::atoi(arg(argc, argv, "--port", "0")))))
        return 1;
    const int records = std::atoi(arg(argc, argv, "--records", "0"));
    const int cycles = std::atoi(arg(argc, argv, "--cycles", "200"));
    std::string text;
    // One more ack and data message than cycles: the server's closing
    // nextCycle reads the last acks and a data message.
    for (int cycle = 0; cycle <= cycles; ++cycle) {
        if (!c.readAck() || !c.send("0#", 2))
            return 1;
        if (cycle == cycles)
            break;
        for (int r = 0; r <= records; ++r)
            if (!c.readString(&text))
                return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc > 1 && std::strcmp(argv[1], "server") == 0)
        return serve(argc, argv);
    if (argc > 1 && std::strcmp(argv[1], "client") == 0)
        return client(argc, argv);
    std::fprintf(stderr, "usage: %s server|client ...\n", argv[0]);
    return 2;
}
