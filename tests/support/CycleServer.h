#pragma once

#include "ServerThread.h"

#include <QByteArray>
#include <QVector>

#include <atomic>
#include <functional>
#include <mutex>

/// A simulation server that runs exchange cycles against one front-end:
/// server ack, data message, chalk, then the records that `records(cycle)`
/// gives, each followed by the client ack. It stops after `maxCycles` or when
/// the link fails, and keeps every data message it read.
class CycleServer {
public:
    using Records = std::function<QVector<QByteArray>(int cycle)>;
    CycleServer(Records records, int maxCycles, int readTimeoutMs = 20000);

    quint16 port() { return m_thread.port(); }
    /// Completed cycles (records sent and acknowledged).
    int cycles() const { return m_cycles.load(); }
    bool finished() const { return m_thread.finished(); }
    bool wait(int ms) { return m_thread.wait(ms); }
    QVector<QByteArray> dataMessages() const;
    /// Data messages read so far that carried at least one change.
    int messagesWithEntries() const { return m_withEntries.load(); }

private:
    Records m_records;
    int m_maxCycles;
    std::atomic<int> m_cycles{0};
    std::atomic<int> m_withEntries{0};
    mutable std::mutex m_lock;
    QVector<QByteArray> m_messages;
    ServerThread m_thread;
};
