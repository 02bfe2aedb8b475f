#pragma once

#include <QByteArray>

/// Captures what the process writes to standard output (file descriptor 1)
/// between construction and `take()`.
class StdoutCapture {
public:
    StdoutCapture();
    ~StdoutCapture();
    QByteArray take();

private:
    int m_saved = -1;
    int m_fd = -1;
    char m_path[64];
};
