#include "OutputQueue.h"

#include <chrono>
#include <cstdlib>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

namespace Orlavex {
namespace detail {

namespace {

struct Piece {
    OutputQueue::Sink sink;
    QByteArray text;
};

class Writer;
Writer& writer();

class Writer {
public:
    Writer() {
        // Detached on purpose: it may sit in a write to a pipe that nobody
        // reads for as long as the process lives, and the process must still
        // be able to end. Its state is never destroyed for the same reason.
        std::thread([this] { loop(); }).detach();
        // What is still queued when the process ends goes out first, within
        // a bound, so that the last lines are not lost to a prompt exit.
        std::atexit([] { writer().waitWritten(500); });
    }

    void push(const OutputQueue::Sink& sink, QByteArray&& text) {
        {
            std::lock_guard<std::mutex> guard(m_lock);
            // Each sink has its own budget: a pipe nobody reads must not cost
            // the log its lines.
            qsizetype& queued = m_queued[sink.get()];
            if (queued > 0 && queued + text.size() > OutputQueue::kBudget) {
                ++m_dropped[sink.get()];
                return;
            }
            queued += text.size();
            m_pieces.push_back({sink, std::move(text)});
            ++m_pushed;
        }
        m_wake.notify_all();
    }

    bool waitWritten(int msecs) {
        std::unique_lock<std::mutex> guard(m_lock);
        const quint64 target = m_pushed;
        return m_done.wait_for(guard, std::chrono::milliseconds(msecs),
                               [&] { return m_written >= target; });
    }

private:
    void loop() {
        std::unique_lock<std::mutex> guard(m_lock);
        for (;;) {
            m_wake.wait(guard, [&] { return !m_pieces.empty(); });
            Piece piece = std::move(m_pieces.front());
            m_pieces.pop_front();
            guard.unlock();
            std::fwrite(piece.text.constData(), 1, size_t(piece.text.size()), piece.sink.get());
            std::fflush(piece.sink.get());
            guard.lock();
            m_queued[piece.sink.get()] -= piece.text.size();
            auto lost = m_dropped.find(piece.sink.get());
            if (lost != m_dropped.end()) {
                // The sink flows again: say once what it missed.
                const QByteArray note = "orlavex: " + QByteArray::number(lost->second) +
                                        " pieces of output dropped while the output was blocked\n";
                m_dropped.erase(lost);
                guard.unlock();
                std::fwrite(note.constData(), 1, size_t(note.size()), piece.sink.get());
                std::fflush(piece.sink.get());
                guard.lock();
            }
            ++m_written;
            piece.sink.reset();
            m_done.notify_all();
        }
    }

    std::mutex m_lock;
    std::condition_variable m_wake;
    std::condition_variable m_done;
    std::deque<Piece> m_pieces;
    std::map<std::FILE*, quint64> m_dropped;
    std::map<std::FILE*, qsizetype> m_queued;
    quint64 m_pushed = 0;
    quint64 m_written = 0;
};

Writer& writer() {
    static Writer* w = new Writer; // never destroyed, see Writer()
    return *w;
}

} // namespace

void OutputQueue::write(const Sink& sink, QByteArray text) {
    if (sink && !text.isEmpty())
        writer().push(sink, std::move(text));
}

const OutputQueue::Sink& OutputQueue::standardOutput() {
    static const Sink out(stdout, [](std::FILE*) {});
    return out;
}

bool OutputQueue::waitWritten(int msecs) {
    return writer().waitWritten(msecs);
}

} // namespace detail
} // namespace Orlavex
