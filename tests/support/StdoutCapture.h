#pragma once

#include <QByteArray>

/// Captures what the process writes to standard output (or, given 2,
/// standard error) between construction and `take()`.
class StdoutCapture {
public:
    explicit StdoutCapture(int fd = 1);
    ~StdoutCapture();
    QByteArray take();

private:
    int m_target;
    int m_saved = -1;
    int m_fd = -1;
    char m_path[64];
};
