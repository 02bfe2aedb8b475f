// Socket client benchmarks, each against a lower bound measured in the same run:
//  1. exchange rate: SocketClass versus a raw POSIX client, same server, same wire exchange;
//  2. parse throughput: processInput versus std::from_chars over the same bytes;
//  3. large strings: reading one record string of 5, 10 and 20 MB (time must grow linearly).
#include <Orlavex/Orlavex.h>
#include <Orlavex/server/SimulationServer.h>

#include "RawClient.h"

#include <QCoreApplication>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <random>
#include <thread>
#include <vector>

using Clock = std::chrono::steady_clock;

namespace {
double seconds(Clock::time_point a, Clock::time_point b) {
    return std::chrono::duration<double>(b - a).count();
}

// Serves `cycles` cycles of: ack, data message, chalk, k records of three numbers.
std::thread serve(std::promise<quint16>& port, int cycles, int k) {
    return std::thread([&port, cycles, k] {
        SimulationServer server;
        server.listen();
        port.set_value(server.port());
        server.waitForClient(10000);
        QVector<SimulationServer::Entry> entries;
        const double values[3] = {1.25, -0.5, 3.0};
        QVector<QByteArray> records;
        for (int r = 0; r < k; ++r)
            records << SimulationServer::record(r, values, 3);
        for (int c = 0; c < cycles; ++c) {
            server.sendAck();
            server.readData(&entries);
            server.sendChalk(c);
            for (const QByteArray& rec : records) {
                server.sendRaw(rec);
                server.readClientAck();
            }
        }
    });
}

double libraryRate(int cycles, int k) {
    std::promise<quint16> port;
    std::thread server = serve(port, cycles, k);
    SocketClass socket;
    socket.setServerAddress("local");
    socket.setServerPort(port.get_future().get());
    socket.connectToServer();
    int count = 1;
    QVector<int> indices{3};
    QVector<double> values{0.5};
    QString message;
    QVector<float> numbers;
    QVector<int> ints;
    const auto t0 = Clock::now();
    for (int c = 0; c < cycles; ++c) {
        socket.sendData(&count, &indices, &values);
        socket.getChalk();
        for (int r = 0; r < k; ++r) {
            socket.getNumValue(&message);
            socket.processInput(&message, &numbers, 3, &ints, 0);
        }
    }
    const auto t1 = Clock::now();
    server.join();
    return cycles / seconds(t0, t1);
}

double rawRate(int cycles, int k) {
    std::promise<quint16> port;
    std::thread server = serve(port, cycles, k);
    RawClient client;
    client.connect(port.get_future().get());
    std::string s;
    const char message[] = "1,3,0.500000#";
    const auto t0 = Clock::now();
    for (int c = 0; c < cycles; ++c) {
        client.readAck();
        client.send(message, sizeof message - 1);
        client.readString(&s);
        for (int r = 0; r < k; ++r)
            client.readString(&s);
    }
    const auto t1 = Clock::now();
    server.join();
    return cycles / seconds(t0, t1);
}

void exchangeRate() {
    std::printf("== exchange rate (cycles/s), best of 3 runs each\n");
    for (int k : {1, 10, 100}) {
        const int cycles = k == 100 ? 300 : 2000;
        double lib = 0, raw = 0;
        for (int run = 0; run < 3; ++run) {
            raw = std::max(raw, rawRate(cycles, k));
            lib = std::max(lib, libraryRate(cycles, k));
        }
        std::printf("k=%3d  SocketClass %9.0f  raw %9.0f  time ratio SocketClass/raw %.2f "
                    "(target <= 1.3)\n",
                    k, lib, raw, raw / lib);
    }
}

void parseThroughput() {
    const int n = 1500000;
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> dist(-1000.f, 1000.f);
    QByteArray bytes;
    bytes.reserve(n * 12);
    for (int i = 0; i < n; ++i) {
        if (i)
            bytes.append(',');
        SimulationServer::appendNumber(bytes, double(dist(rng)));
    }
    bytes.append('#');
    QString payload = QString::fromLatin1(bytes);
    SocketClass socket;
    QVector<float> values;
    QVector<int> ints;
    std::vector<float> plain(n);

    double best = 1e9, bound = 1e9;
    for (int run = 0; run < 5; ++run) {
        auto t0 = Clock::now();
        socket.processInput(&payload, &values, n, &ints, 0);
        auto t1 = Clock::now();
        best = std::min(best, seconds(t0, t1));

        // Lower bound: split the same bytes at commas and convert with from_chars.
        t0 = Clock::now();
        const char* p = bytes.constData();
        const char* end = p + bytes.size() - 1;
        for (int i = 0; i < n; ++i) {
            const char* comma = static_cast<const char*>(std::memchr(p, ',', size_t(end - p)));
            const char* stop = comma ? comma : end;
            double d;
            std::from_chars(p, stop, d);
            plain[size_t(i)] = float(d);
            p = stop + 1;
        }
        t1 = Clock::now();
        bound = std::min(bound, seconds(t0, t1));
    }
    if (values[n - 1] != plain[size_t(n - 1)])
        std::printf("mismatch!\n");
    std::printf("== parse throughput, %d numbers\n", n);
    std::printf("processInput %.1f M numbers/s  from_chars %.1f M numbers/s  time ratio %.2f "
                "(target <= 1.5)\n",
                n / best / 1e6, n / bound / 1e6, best / bound);
}

void largeStrings() {
    std::printf("== large record strings (one string each, best of 3)\n");
    for (int mb : {5, 10, 20}) {
        const int size = mb * 1000 * 1000;
        double best = 1e9;
        for (int run = 0; run < 3; ++run) {
            std::promise<quint16> port;
            std::atomic<bool> done{false};
            std::thread server([&] {
                SimulationServer s;
                s.listen();
                port.set_value(s.port());
                s.waitForClient(10000);
                QByteArray big = "1,";
                big.append(QByteArray(size - 3, '7'));
                big.append('#');
                s.sendRaw(big);
                s.readClientAck();
                done = true;
            });
            SocketClass socket;
            socket.setServerAddress("local");
            socket.setServerPort(port.get_future().get());
            socket.connectToServer();
            QString message;
            const auto t0 = Clock::now();
            socket.getNumValue(&message);
            const auto t1 = Clock::now();
            server.join();
            if (message.size() != size - 2)
                std::printf("short read: %d\n", message.size());
            best = std::min(best, seconds(t0, t1));
        }
        std::printf("%2d MB  %.3f s  %.0f MB/s\n", mb, best, mb / best);
    }
}
} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    exchangeRate();
    parseThroughput();
    largeStrings();
    return 0;
}
