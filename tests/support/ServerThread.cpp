#include "ServerThread.h"

#include <chrono>

ServerThread::ServerThread(Script script, int readTimeoutMs)
    : m_script(std::move(script)), m_timeout(readTimeoutMs), m_port(m_portPromise.get_future()) {
    m_thread = std::thread([this] {
        SimulationServer server;
        server.setTimeout(m_timeout);
        const bool ok = server.listen();
        m_portPromise.set_value(ok ? server.port() : 0);
        if (ok && server.waitForClient(m_timeout))
            m_script(server);
        m_finished = true;
    });
}

ServerThread::~ServerThread() {
    if (m_thread.joinable())
        m_thread.join();
}

quint16 ServerThread::port() { return m_port.get(); }

bool ServerThread::wait(int ms) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (!m_finished.load()) {
        if (std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    if (m_thread.joinable())
        m_thread.join();
    return true;
}
