// A client that keeps its own global MainWindow and Dialog, as Qt Creator's
// application template makes them, and uses the library by its namespace.
#define ORLAVEX_NO_GLOBAL_NAMES
#include <Orlavex/Orlavex.h>
#include <Orlavex/server/SimulationServer.h>

#include <QCoreApplication>
#include <cstdio>

class MainWindow {
public:
    int answer() const { return 42; }
};
class Dialog {};

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    Orlavex::SocketClass socket;
    socket.setServerPort(4848);
    Orlavex::SimulationServer server;
    const bool ok = MainWindow().answer() == 42 && socket.serverPort() == 4848 && server.listen();
    std::printf("%s\n", ok ? "consumer ok" : "consumer broken");
    return ok ? 0 : 1;
}
