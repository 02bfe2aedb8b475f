#pragma once

#include <cstdint>
#include <string>

/// The protocol's lower bound: a minimal blocking client on a plain POSIX
/// socket that performs the same wire exchange as the library and nothing
/// else (no logging, no conversions, no Qt).
class RawClient {
public:
    bool connect(uint16_t port);
    ~RawClient();
    bool readAck();                        // swallows up to ten bytes
    bool send(const char* data, size_t n); // one write
    bool readString(std::string* out);     // up to and including '#', then the client ack

private:
    bool fill(); // refills the buffer when it is empty
    int m_fd = -1;
    char m_buf[65536];
    size_t m_begin = 0, m_end = 0;
};
