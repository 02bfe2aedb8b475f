#include "ServerThread.h"

#include <chrono>

ServerThread::ServerThread(Script script, int readTimeoutMs, quint16 port)
    : m_script(std::move(script)), m_timeout(readTimeoutMs), m_port(m_portPromise.get_future()),
      m_done(m_donePromise.get_future()) {
    m_thread = std::thread([this, port] {
        SimulationServer server;
        server.setTimeout(m_timeout);
        const bool ok = server.listen(QHostAddress(QHostAddress::LocalHost), port);
        m_portPromise.set_value(ok ? server.port() : 0);
        // The accept deadline is independent of the read timeout: a script
        // with short reads must not give up on a front-end that connects late.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (ok && !m_abandoned.load() && std::chrono::steady_clock::now() < deadline)
            if (server.waitForClient(50)) {
                m_script(server);
                break;
            }
        m_finished = true;
        m_donePromise.set_value();
    });
}

ServerThread::~ServerThread() {
    m_abandoned = true;
    if (m_thread.joinable())
        m_thread.join();
}

quint16 ServerThread::port() {
    return m_port.get();
}

bool ServerThread::wait(int ms) {
    if (m_done.wait_for(std::chrono::milliseconds(ms)) != std::future_status::ready)
        return false;
    if (m_thread.joinable())
        m_thread.join();
    return true;
}
