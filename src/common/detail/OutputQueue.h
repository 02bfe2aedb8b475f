#pragma once

#include <QByteArray>

#include <cstdio>
#include <memory>

namespace Orlavex {
namespace detail {

/// The one writer of the library's diagnostics (standard output and the log
/// file). Callers hand it text and go on at once: a thread of its own writes
/// the text, in the order it was handed over, each piece in one write
/// followed by a flush. When a sink stops taking text (a pipe that nobody
/// reads), at most `kBudget` bytes wait for it (a single larger piece only
/// when nothing else waits); further text for that sink is dropped and counted, and once that sink takes text again one line says how many
/// pieces were lost. Nothing here ever waits for a sink, so the link thread
/// and its shutdown cannot be held up by output. What is queued when the
/// process exits is written first, waiting at most half a second. (Text the
/// application prints itself is not queued, so on a shared standard output
/// it may come before library text handed over just earlier.)
class OutputQueue {
public:
    /// A sink that the queue keeps open until its last queued text is out.
    using Sink = std::shared_ptr<std::FILE>;

    static constexpr qsizetype kBudget = 64 * 1024;

    static void write(const Sink& sink, QByteArray text);
    /// Standard output as a sink (never closed by the queue).
    static const Sink& standardOutput();
    /// Waits up to `msecs` until everything queued so far has been written.
    static bool waitWritten(int msecs);
};

} // namespace detail
} // namespace Orlavex
