#include "OutputQueue.h"

#include <QtGlobal>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Orlavex {
namespace detail {

/// How a descriptor is written without ever blocking the writer.
enum class WriteMode {
    Plain,  ///< a regular file, or a descriptor of our own opened non-blocking
    Socket, ///< send() with MSG_DONTWAIT
    Polled, ///< poll first, then at most PIPE_BUF bytes (a write that cannot block)
};

struct OutputSink {
    int fd = -1;
    int owned = -1;      ///< a descriptor this sink opened and closes
    int standard = -1;   ///< 1 or 2: follows whatever that descriptor is now
    dev_t device = 0;    ///< identity of the standard descriptor when last looked at
    ino_t inode = 0;
    WriteMode mode = WriteMode::Plain;
    bool broken = false; ///< the descriptor failed for good: text is dropped

    // Under the writer's lock.
    std::deque<QByteArray> queued;
    qsizetype queuedBytes = 0;
    qsizetype offset = 0; ///< bytes of queued.front() already written
    quint64 dropped = 0;

    ~OutputSink() {
        if (owned >= 0)
            ::close(owned);
    }

    /// For standard output and error: a program (or a test) may point the
    /// descriptor elsewhere at any time, so its identity is checked before
    /// each write and the way of writing it chosen anew when it changed.
    void follow() {
        if (standard < 0)
            return;
        struct stat st;
        if (::fstat(standard, &st) != 0) {
            broken = true;
            return;
        }
        if (fd >= 0 && st.st_dev == device && st.st_ino == inode)
            return;
        device = st.st_dev;
        inode = st.st_ino;
        if (owned >= 0)
            ::close(owned);
        owned = -1;
        broken = false;
        fd = standard;
        if (S_ISREG(st.st_mode)) {
            mode = WriteMode::Plain;
        } else if (S_ISSOCK(st.st_mode)) {
            mode = WriteMode::Socket;
        } else {
            // A pipe or a terminal: a description of our own, opened
            // non-blocking, writes the same pipe without changing the flags
            // that the application and its other readers and writers share.
            char path[40];
            std::snprintf(path, sizeof path, "/proc/self/fd/%d", standard);
            owned = ::open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
            if (owned >= 0) {
                fd = owned;
                mode = WriteMode::Plain;
            } else {
                mode = WriteMode::Polled;
            }
        }
    }

    /// Writes what the descriptor takes now; returns the number of bytes taken.
    qsizetype tryWrite(const char* data, qsizetype size) {
        qsizetype done = 0;
        while (done < size && !broken) {
            size_t chunk = size_t(size - done);
            ssize_t n;
            if (mode == WriteMode::Socket) {
                n = ::send(fd, data + done, chunk, MSG_DONTWAIT | MSG_NOSIGNAL);
            } else {
                if (mode == WriteMode::Polled) {
                    pollfd p{fd, POLLOUT, 0};
                    if (::poll(&p, 1, 0) != 1 || !(p.revents & POLLOUT))
                        return done;
                    chunk = std::min<size_t>(chunk, PIPE_BUF);
                }
                n = ::write(fd, data + done, chunk);
            }
            if (n > 0)
                done += n;
            else if (n < 0 && errno == EINTR)
                continue;
            else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
                return done;
            else
                broken = true; // the reader is gone, or the disk is full
        }
        return done;
    }
};

namespace {

class Writer;
Writer& writer();

class Writer {
public:
    Writer() {
        // Detached on purpose: it only ever waits in poll(), never in a write,
        // but it must not keep the process from ending either. Its state is
        // never destroyed for the same reason.
        std::thread([this] { loop(); }).detach();
        // What is still queued when the process ends goes out first, within
        // a bound, so that the last lines are not lost to a prompt exit.
        std::atexit([] { writer().waitWritten(500); });
    }

    void push(const OutputQueue::Sink& sink, QByteArray&& text) {
        std::unique_lock<std::mutex> guard(m_lock);
        OutputSink& s = *sink;
        if (s.queued.empty()) {
            s.follow();
            if (s.standard == 1)
                flushApplicationOutput(s);
            const qsizetype n = s.tryWrite(text.constData(), text.size());
            if (n == text.size() || s.broken)
                return;
            // The sink is full: the rest of this piece waits, whole, for it.
            text.remove(0, int(n));
        } else if (s.queuedBytes + text.size() > OutputQueue::kBudget) {
            ++s.dropped;
            return;
        }
        s.queuedBytes += text.size();
        s.queued.push_back(std::move(text));
        if (std::find(m_waiting.begin(), m_waiting.end(), sink) == m_waiting.end())
            m_waiting.push_back(sink);
        guard.unlock();
        m_wake.notify_all();
    }

    bool waitWritten(int msecs) {
        std::unique_lock<std::mutex> guard(m_lock);
        return m_done.wait_for(guard, std::chrono::milliseconds(msecs),
                               [&] { return m_waiting.empty(); });
    }

private:
    /// Text the application printed through stdio and that still sits in its
    /// buffer goes out ahead of ours, but only when that cannot block: stdout's
    /// lock is only tried, and the buffer only flushed when the descriptor
    /// takes at least PIPE_BUF bytes at once.
    static void flushApplicationOutput(OutputSink& s) {
        if (ftrylockfile(stdout) != 0)
            return; // another thread is inside stdio: its text comes when it comes
        const size_t pending = __fpending(stdout);
        if (pending > 0 && pending <= PIPE_BUF) {
            pollfd p{s.standard, POLLOUT, 0};
            if (::poll(&p, 1, 0) == 1 && (p.revents & POLLOUT))
                fflush_unlocked(stdout);
        }
        funlockfile(stdout);
    }

    void loop() {
        std::unique_lock<std::mutex> guard(m_lock);
        std::vector<pollfd> fds;
        for (;;) {
            m_wake.wait(guard, [&] { return !m_waiting.empty(); });
            fds.clear();
            for (const OutputQueue::Sink& s : m_waiting)
                fds.push_back({s->fd, POLLOUT, 0});
            guard.unlock();
            // Bounded, so that a sink that starts waiting meanwhile is seen.
            ::poll(fds.data(), nfds_t(fds.size()), 100);
            guard.lock();
            for (auto it = m_waiting.begin(); it != m_waiting.end();) {
                if (drain(**it))
                    it = m_waiting.erase(it);
                else
                    ++it;
            }
            m_done.notify_all();
        }
    }

    /// Writes what the sink takes; true when nothing waits for it any more.
    static bool drain(OutputSink& s) {
        while (!s.queued.empty() && !s.broken) {
            const QByteArray& front = s.queued.front();
            const qsizetype left = front.size() - s.offset;
            const qsizetype n = s.tryWrite(front.constData() + s.offset, left);
            if (n < left) {
                s.offset += n;
                if (!s.broken)
                    return false;
                break;
            }
            s.queuedBytes -= front.size();
            s.offset = 0;
            s.queued.pop_front();
        }
        if (s.broken) {
            s.queued.clear();
            s.queuedBytes = 0;
            s.offset = 0;
            return true;
        }
        if (s.dropped > 0) {
            // The sink flows again: say once what it missed.
            const QByteArray note = "orlavex: " + QByteArray::number(s.dropped) +
                                    " pieces of output dropped while the output was blocked\n";
            s.dropped = 0;
            const qsizetype n = s.tryWrite(note.constData(), note.size());
            if (n < note.size() && !s.broken) {
                s.queued.push_back(note.mid(int(n)));
                s.queuedBytes += note.size() - n;
                return false;
            }
        }
        return true;
    }

    std::mutex m_lock;
    std::condition_variable m_wake;
    std::condition_variable m_done;
    std::vector<OutputQueue::Sink> m_waiting; ///< sinks with queued text, oldest first
};

Writer& writer() {
    static Writer* w = new Writer; // never destroyed, see Writer()
    return *w;
}

OutputQueue::Sink standardSink(int fd) {
    auto sink = std::make_shared<OutputSink>();
    sink->standard = fd;
    return sink;
}

} // namespace

void OutputQueue::write(const Sink& sink, QByteArray text) {
    if (sink && !text.isEmpty())
        writer().push(sink, std::move(text));
}

OutputQueue::Sink OutputQueue::openAppend(const char* path) {
    const int fd = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0)
        return nullptr;
    auto sink = std::make_shared<OutputSink>();
    sink->fd = sink->owned = fd;
    return sink;
}

const OutputQueue::Sink& OutputQueue::standardOutput() {
    static const Sink out = standardSink(1);
    return out;
}

const OutputQueue::Sink& OutputQueue::standardError() {
    static const Sink err = standardSink(2);
    return err;
}

bool OutputQueue::waitWritten(int msecs) {
    return writer().waitWritten(msecs);
}

} // namespace detail
} // namespace Orlavex
