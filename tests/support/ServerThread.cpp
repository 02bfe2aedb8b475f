#include "ServerThread.h"

#include <chrono>

ServerThread::ServerThread(Script script, int readTimeoutMs)
    : m_script(std::move(script)), m_timeout(readTimeoutMs), m_port(m_portPromise.get_future()),
      m_done(m_donePromise.get_future()) {
    m_thread = std::thread([this] {
        SimulationServer server;
        server.setTimeout(m_timeout);
        const bool ok = server.listen();
        m_portPromise.set_value(ok ? server.port() : 0);
        if (ok && server.waitForClient(m_timeout))
            m_script(server);
        m_finished = true;
        m_donePromise.set_value();
    });
}

ServerThread::~ServerThread() {
    if (m_thread.joinable())
        m_thread.join();
}

quint16 ServerThread::port() { return m_port.get(); }

bool ServerThread::wait(int ms) {
    if (m_done.wait_for(std::chrono::milliseconds(ms)) != std::future_status::ready)
        return false;
    if (m_thread.joinable())
        m_thread.join();
    return true;
}
