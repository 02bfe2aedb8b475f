#include "CycleServer.h"

CycleServer::CycleServer(Records records, int maxCycles, int readTimeoutMs)
    : m_records(std::move(records)), m_maxCycles(maxCycles),
      m_thread(
          [this](SimulationServer& s) {
              QVector<SimulationServer::Entry> entries;
              // The record tests run once more with a pipelined server (and
              // overlapped cycles on the client, see CycleRun).
              if (qEnvironmentVariableIsSet("ORLAVEX_TEST_PIPELINED")) {
                  for (int c = 0; c < m_maxCycles; ++c) {
                      const bool ok = s.nextCycle(&entries);
                      {
                          std::lock_guard<std::mutex> guard(m_lock);
                          m_messages.append(s.lastDataMessage());
                      }
                      if (!ok)
                          return;
                      for (const QByteArray& r : m_records(c))
                          s.addRecordString(r);
                      if (!s.finishCycle(c))
                          return;
                      ++m_cycles;
                  }
                  return;
              }
              for (int c = 0; c < m_maxCycles; ++c) {
                  if (!s.sendAck())
                      return;
                  const bool ok = s.readData(&entries);
                  {
                      std::lock_guard<std::mutex> guard(m_lock);
                      m_messages.append(s.lastDataMessage());
                  }
                  if (s.lastDataMessage().contains(','))
                      ++m_withEntries;
                  if (!ok || !s.sendChalk(c))
                      return;
                  for (const QByteArray& r : m_records(c))
                      if (!s.sendRaw(r) || !s.readClientAck())
                          return;
                  ++m_cycles;
              }
          },
          readTimeoutMs) {}

QVector<QByteArray> CycleServer::dataMessages() const {
    // A deep copy: an implicitly shared one would leave the server thread and
    // the caller sharing one buffer.
    std::lock_guard<std::mutex> guard(m_lock);
    QVector<QByteArray> out;
    out.reserve(m_messages.size());
    for (const QByteArray& m : m_messages)
        out.append(QByteArray(m.constData(), m.size()));
    return out;
}
