#include <Orlavex/Orlavex.h>
#include <Orlavex/server/SimulationServer.h>

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    SocketClass socket;
    socket.setServerAddress("local");
    socket.setServerPort(70000);
    SimulationServer server;
    const bool ok = socket.serverPort() == 4464 && server.listen() && server.port() != 0;
    std::printf("%s\n", ok ? "consumer ok" : "consumer broken");
    return ok ? 0 : 1;
}
