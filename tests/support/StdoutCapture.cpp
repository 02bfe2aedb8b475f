#include "StdoutCapture.h"

#include <QFile>

#include <cstdio>
#include <cstring>
#include <unistd.h>

StdoutCapture::StdoutCapture() {
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
