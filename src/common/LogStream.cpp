#include "LogStream.h"

#include <mutex>

namespace {
// All writers of the process share this lock, so that one writer's line is
// always written whole before another's starts.
std::mutex& fileLock() {
    static std::mutex lock;
    return lock;
}
} // namespace

LogStream::~LogStream() { close(); }

void LogStream::open() {
    if (m_file)
        return;
    m_file = std::fopen(fileName(), "a");
}

void LogStream::close() {
    if (!m_file)
        return;
    std::lock_guard<std::mutex> guard(fileLock());
    if (!m_open.isEmpty())
        std::fwrite(m_open.constData(), 1, size_t(m_open.size()), m_file);
    m_open.clear();
    std::fclose(m_file);
    m_file = nullptr;
}

void LogStream::line(const QByteArray& text) {
    if (!m_file)
        return;
    QByteArray whole;
    whole.reserve(m_open.size() + text.size() + 1);
    whole.append(m_open).append(text).append('\n');
    m_open.clear();
    std::lock_guard<std::mutex> guard(fileLock());
    std::fwrite(whole.constData(), 1, size_t(whole.size()), m_file);
    std::fflush(m_file);
}

void LogStream::putOpen(const char* text) {
    if (m_file)
        m_open.append(text);
}
