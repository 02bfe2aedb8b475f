#include "LogStream.h"

#include "detail/OutputQueue.h"

namespace Orlavex {

LogStream::~LogStream() { close(); }

void LogStream::open() {
    if (m_file)
        return;
    m_file = detail::OutputQueue::openAppend(fileName());
}

void LogStream::close() {
    if (!m_file)
        return;
    if (!m_open.isEmpty())
        detail::OutputQueue::write(m_file, m_open);
    m_open.clear();
    // The file closes once its last queued line is written.
    m_file.reset();
}

void LogStream::line(const QByteArray& text) {
    if (!m_file)
        return;
    QByteArray whole;
    whole.reserve(m_open.size() + text.size() + 1);
    whole.append(m_open).append(text).append('\n');
    m_open.clear();
    detail::OutputQueue::write(m_file, std::move(whole));
}

void LogStream::putOpen(const char* text) {
    if (m_file)
        m_open.append(text);
}

bool LogStream::waitWritten(int msecs) {
    return detail::OutputQueue::waitWritten(msecs);
}

void LogStream::toStandardOutput(const QByteArray& text) {
    detail::OutputQueue::write(detail::OutputQueue::standardOutput(), text);
}

void LogStream::toStandardError(const QByteArray& text) {
    detail::OutputQueue::write(detail::OutputQueue::standardError(), text);
}

} // namespace Orlavex
