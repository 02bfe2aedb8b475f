#include "StdoutCapture.h"

#include <Orlavex/Orlavex.h>

#include <QFile>

#include <cstdio>
#include <cstring>
#include <unistd.h>

StdoutCapture::StdoutCapture() {
    Orlavex::LogStream::waitWritten(5000); // earlier output stays out of the capture
    std::fflush(stdout);
    std::strcpy(m_path, "/tmp/orlavex-stdout-XXXXXX");
    m_fd = mkstemp(m_path);
    m_saved = dup(1);
    dup2(m_fd, 1);
}

StdoutCapture::~StdoutCapture() { take(); }

QByteArray StdoutCapture::take() {
    if (m_saved < 0)
        return QByteArray();
    // The library writes standard output from its output thread.
    Orlavex::LogStream::waitWritten(5000);
    std::fflush(stdout);
    dup2(m_saved, 1);
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
