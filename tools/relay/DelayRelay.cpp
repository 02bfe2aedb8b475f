#include "DelayRelay.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Orlavex {

namespace {

int64_t nowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void closeFd(int& fd) {
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

bool setNonBlocking(int fd) {
    const int flags = ::fcntl(fd, F_GETFL, 0);
    return flags >= 0 && ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

void setNoDelay(int fd) {
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// A close after this sends a reset instead of a FIN, so that a reset seen on
// one side reaches the other side as a reset.
void setAbortiveClose(int fd) {
    const linger hard{1, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
}

sockaddr_in loopback(uint16_t port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return a;
}

// Bytes read from one socket, held until they are due on the other.
struct Chunk {
    int64_t due;
    std::vector<char> bytes;
};

// One direction of the session: reads `from`, writes `to` after the delay.
struct Direction {
    Direction(int* from_, int* to_, std::atomic<uint64_t>* counter_)
        : from(from_), to(to_), counter(counter_) {}

    int* from;
    int* to;
    std::atomic<uint64_t>* counter;
    std::deque<Chunk> held;
    size_t written = 0;    // of the first held chunk
    bool ended = false;    // `from` has closed its half
    bool closed = false;   // and `to`'s half is closed after the last held byte
    bool blocked = false;  // `to` would block: wait for it to drain

    // Writes what is due; false when `to` has gone.
    bool flush(int64_t now) {
        blocked = false;
        while (!held.empty() && held.front().due <= now) {
            Chunk& c = held.front();
            const ssize_t n = ::send(*to, c.bytes.data() + written, c.bytes.size() - written,
                                     MSG_NOSIGNAL);
            if (n < 0) {
                if (errno == EINTR)
                    continue;
                if (errno == EAGAIN || errno == EWOULDBLOCK) {
                    blocked = true;
                    return true;
                }
                return false;
            }
            written += size_t(n);
            *counter += uint64_t(n);
            if (written == c.bytes.size()) {
                held.pop_front();
                written = 0;
            }
        }
        if (ended && held.empty() && !closed) {
            ::shutdown(*to, SHUT_WR);
            closed = true;
        }
        return true;
    }

    // Reads what has arrived; false on a reset or another error.
    bool read(int64_t delayNs) {
        char buf[256 * 1024];
        for (;;) {
            const ssize_t n = ::recv(*from, buf, sizeof buf, 0);
            if (n > 0) {
                // Stamped when read: every byte waits the same delay, and
                // the order of the chunks is the order of the bytes.
                held.push_back({nowNs() + delayNs, std::vector<char>(buf, buf + n)});
                if (size_t(n) < sizeof buf)
                    return true;
                continue;
            }
            if (n == 0) {
                ended = true;
                return true;
            }
            if (errno == EINTR)
                continue;
            return errno == EAGAIN || errno == EWOULDBLOCK;
        }
    }
};

} // namespace

DelayRelay::DelayRelay(uint16_t serverPort, double delayMs, uint16_t listenPort)
    : m_serverPort(serverPort), m_listenPort(listenPort),
      m_delayNs(int64_t(std::max(0.0, delayMs) * 1e6)) {}

DelayRelay::~DelayRelay() {
    stop();
}

std::string DelayRelay::errorString() const {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_error;
}

void DelayRelay::fail(const std::string& why) {
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_error.empty())
        m_error = why + ": " + std::strerror(errno);
}

bool DelayRelay::start() {
    if (m_thread.joinable())
        return true;
    if (::pipe2(m_wakeFds, O_CLOEXEC | O_NONBLOCK) != 0) {
        fail("pipe");
        return false;
    }
    m_listenFd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(m_listenFd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in at = loopback(m_listenPort);
    sockaddr_in bound{};
    socklen_t size = sizeof bound;
    if (m_listenFd < 0 || ::bind(m_listenFd, reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0 ||
        ::listen(m_listenFd, 1) != 0 ||
        ::getsockname(m_listenFd, reinterpret_cast<sockaddr*>(&bound), &size) != 0) {
        fail("cannot listen on port " + std::to_string(m_listenPort));
        closeFd(m_listenFd);
        closeFd(m_wakeFds[0]);
        closeFd(m_wakeFds[1]);
        return false;
    }
    m_port = ntohs(bound.sin_port);
    m_finished = false;
    m_thread = std::thread([this] { run(); });
    return true;
}

void DelayRelay::stop() {
    if (m_thread.joinable()) {
        const char wake = 1;
        while (::write(m_wakeFds[1], &wake, 1) < 0 && errno == EINTR) {
        }
        m_thread.join();
    }
    closeFd(m_wakeFds[0]);
    closeFd(m_wakeFds[1]);
}

bool DelayRelay::wait(int msecs) {
    std::unique_lock<std::mutex> guard(m_lock);
    const auto done = [this] { return m_finished.load() || m_faulted.load(); };
    if (msecs < 0) {
        m_ended.wait(guard, done);
        return true;
    }
    return m_ended.wait_for(guard, std::chrono::milliseconds(msecs), done);
}

void DelayRelay::run() {
    int frontEnd = -1, server = -1;
    const auto finish = [&] {
        closeFd(frontEnd);
        closeFd(server);
        closeFd(m_listenFd);
        {
            std::lock_guard<std::mutex> guard(m_lock);
            m_finished = true;
        }
        m_ended.notify_all();
    };

    // One front-end; the relay then stops listening, so a second one is refused.
    pollfd waitAccept[2] = {{m_wakeFds[0], POLLIN, 0}, {m_listenFd, POLLIN, 0}};
    for (;;) {
        if (::poll(waitAccept, 2, -1) < 0 && errno != EINTR) {
            fail("poll");
            return finish();
        }
        if (waitAccept[0].revents)
            return finish();
        if (waitAccept[1].revents) {
            frontEnd = ::accept4(m_listenFd, nullptr, nullptr, SOCK_CLOEXEC);
            if (frontEnd >= 0)
                break;
            if (errno != EINTR && errno != EAGAIN && errno != ECONNABORTED) {
                fail("accept");
                return finish();
            }
        }
    }
    closeFd(m_listenFd);

    // A connect on the loopback interface is answered at once.
    server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in to = loopback(m_serverPort);
    if (server < 0 || ::connect(server, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
        fail("cannot connect to the server's port " + std::to_string(m_serverPort));
        return finish(); // the front-end sees its connection end
    }
    for (int fd : {frontEnd, server}) {
        setNoDelay(fd);
        setNonBlocking(fd);
    }

    Direction up{&frontEnd, &server, &m_toServer};
    Direction down{&server, &frontEnd, &m_toFrontEnd};
    Direction* both[2] = {&up, &down};
    for (;;) {
        const int64_t now = nowNs();
        for (Direction* d : both) {
            if (!d->flush(now)) {
                fail("write");
                setAbortiveClose(*d->from); // the peer that is still there sees a reset
                return finish();
            }
        }
        if (up.closed && down.closed)
            return finish();

        // Wait for bytes to read, for a blocked side to drain, or for the
        // next held chunk to fall due, whichever comes first.
        pollfd fds[3] = {{m_wakeFds[0], POLLIN, 0}, {frontEnd, 0, 0}, {server, 0, 0}};
        int64_t next = -1;
        for (Direction* d : both) {
            pollfd& in = *d->from == frontEnd ? fds[1] : fds[2];
            pollfd& out = *d->to == frontEnd ? fds[1] : fds[2];
            if (!d->ended)
                in.events |= POLLIN;
            if (d->blocked)
                out.events |= POLLOUT;
            else if (!d->held.empty() && (next < 0 || d->held.front().due < next))
                next = d->held.front().due;
        }
        for (int k = 1; k < 3; ++k)
            if (fds[k].events == 0)
                fds[k].fd = -1; // a closed half would report its hang-up for ever
        timespec timeout{};
        const timespec* limit = nullptr;
        if (next >= 0) {
            const int64_t left = std::max<int64_t>(0, next - nowNs());
            timeout.tv_sec = time_t(left / 1000000000);
            timeout.tv_nsec = long(left % 1000000000);
            limit = &timeout;
        }
        if (::ppoll(fds, 3, limit, nullptr) < 0) {
            if (errno == EINTR)
                continue;
            fail("poll");
            return finish();
        }
        if (fds[0].revents)
            return finish(); // stop()
        for (Direction* d : both) {
            const pollfd& in = *d->from == frontEnd ? fds[1] : fds[2];
            const size_t before = d->held.size();
            if (!d->ended && (in.revents & (POLLIN | POLLHUP | POLLERR)) && !d->read(m_delayNs)) {
                fail("read");
                setAbortiveClose(*d->to);
                return finish();
            }
            if (d == &up && m_fault != Fault::None && !m_faulted) {
                // Data messages end with '#'; the front-end's acks are 0x00.
                for (size_t k = before; k < d->held.size(); ++k)
                    for (char c : d->held[k].bytes)
                        m_cycles += c == '#';
                if (m_cycles > m_faultAfter) {
                    {
                        std::lock_guard<std::mutex> guard(m_lock);
                        m_faulted = true;
                    }
                    m_ended.notify_all();
                    break;
                }
            }
        }
        if (m_faulted) {
            // The network is gone: nothing held is delivered any more.
            if (m_fault == Fault::Reset) {
                setAbortiveClose(frontEnd);
                setAbortiveClose(server);
            } else if (m_fault == Fault::Silent) {
                // Both stay open and nothing passes, until the relay is stopped.
                pollfd wake{m_wakeFds[0], POLLIN, 0};
                while (::poll(&wake, 1, -1) < 0 && errno == EINTR) {
                }
            }
            return finish();
        }
    }
}

} // namespace Orlavex
