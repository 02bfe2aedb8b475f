#include "StdoutCapture.h"

#include <Orlavex/Orlavex.h>

#include <QFile>

#include <cstdio>
#include <cstring>
#include <unistd.h>

StdoutCapture::StdoutCapture(int fd) : m_target(fd) {
    Orlavex::LogStream::waitWritten(5000); // earlier output stays out of the capture
    std::fflush(stdout);
    std::strcpy(m_path, "/tmp/orlavex-stdout-XXXXXX");
    m_fd = mkstemp(m_path);
    m_saved = dup(m_target);
    dup2(m_fd, m_target);
}

StdoutCapture::~StdoutCapture() { take(); }

QByteArray StdoutCapture::take() {
    if (m_saved < 0)
        return QByteArray();
    // No wait for the library: what it printed is out when its call returned.
    std::fflush(stdout);
    dup2(m_saved, m_target);
    close(m_saved);
    m_saved = -1;
    close(m_fd);
    QFile file(QString::fromLocal8Bit(m_path));
    QByteArray out;
    if (file.open(QIODevice::ReadOnly))
        out = file.readAll();
    file.remove();
    return out;
}
