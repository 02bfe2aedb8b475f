#include "RawClient.h"

#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

bool RawClient::connect(uint16_t port) {
    m_fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(m_fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0)
        return false;
    int one = 1; // the library's socket uses Qt's default, which is no delay as well
    ::setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    return true;
}

RawClient::~RawClient() {
    if (m_fd >= 0)
        ::close(m_fd);
}

bool RawClient::fill() {
    if (m_begin != m_end)
        return true;
    const ssize_t n = ::recv(m_fd, m_buf, sizeof m_buf, 0);
    if (n <= 0)
        return false;
    m_begin = 0;
    m_end = size_t(n);
    return true;
}

bool RawClient::readAck() {
    if (!fill())
        return false;
    m_begin += std::min<size_t>(10, m_end - m_begin);
    return true;
}

bool RawClient::send(const char* data, size_t n) {
    return ::send(m_fd, data, n, 0) == ssize_t(n);
}

bool RawClient::readString(std::string* out) {
    out->clear();
    for (;;) {
        if (!fill())
            return false;
        const char* start = m_buf + m_begin;
        const void* hit = std::memchr(start, '#', m_end - m_begin);
        if (hit) {
            const size_t len = size_t(static_cast<const char*>(hit) - start) + 1;
            out->append(start, len);
            m_begin += len;
            return send("\0", 1);
        }
        out->append(start, m_end - m_begin);
        m_begin = m_end;
    }
}
