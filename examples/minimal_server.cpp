// A minimal simulation server: a ball bouncing on the floor under gravity.
//
// It serves one front-end (minimal_client) and sends two records every cycle:
//   1: the ball, a Sphere with p = 1 (x, y, z, origin x, y, z, three turns, radius)
//   2: a DisplayDouble read-out (the height)
// and takes control 1, the gravity, from the front-end's number field.
//
//   minimal_server [--port P] [--keep-serving]
//     P = 0 picks a free port; the port is printed. --keep-serving waits for
//     the next front-end (or the same one reconnecting) when one leaves, and
//     the ball bounces on where it was.
#include <Orlavex/server/SimulationServer.h>

#include <QCoreApplication>
#include <QThread>

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    int port = 4848;
    bool keepServing = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--port") == 0 && i + 1 < argc)
            port = std::atoi(argv[i + 1]);
        keepServing = keepServing || std::strcmp(argv[i], "--keep-serving") == 0;
    }

    SimulationServer server;
    // A paused front-end keeps us waiting as long as the user likes.
    server.setTimeout(-1);
    server.setTakeBack(keepServing); // a reconnecting front-end replaces a silent one
    if (!server.listen(QHostAddress::LocalHost, quint16(port))) {
        std::fprintf(stderr, "cannot listen on port %d\n", port);
        return 1;
    }
    std::printf("listening on port %d\n", int(server.port()));
    std::fflush(stdout); // whoever started us reads the port from this line
    if (!server.waitForClient())
        return 1;

    const double dt = 0.02, radius = 0.25;
    double gravity = 9.81, height = 2.0, velocity = 0.0;
    int cycle = 0;
    for (;; ++cycle) {
        QVector<SimulationServer::Entry> changes;
        if (!server.nextCycle(&changes)) {
            if (keepServing && server.waitForClient()) { // the same simulation goes on
                --cycle;
                continue;
            }
            break; // the front-end has gone: the session is over
        }
        for (const SimulationServer::Entry& change : changes)
            if (change.first == 1)
                gravity = change.second;

        velocity -= gravity * dt;
        height += velocity * dt;
        if (height < radius) { // an elastic bounce off the floor at y = 0
            height = 2 * radius - height;
            velocity = -velocity;
        }

        // The chalk string, both records and the next ack go out in one write.
        server.addRecord(1, {0, height, 0, 0, 0, 0, 0, 0, 0, radius});
        server.addRecord(2, {height});
        if (!server.finishCycle(cycle) && !(keepServing && server.waitForClient()))
            break;
        QThread::msleep(20); // one cycle per time step: the ball moves in real time
    }
    std::printf("front-end closed after %d cycles\n", cycle);
    return 0;
}
