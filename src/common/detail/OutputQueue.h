#pragma once

#include <QByteArray>

#include <memory>

namespace Orlavex {
namespace detail {

/// The one writer of the library's diagnostics: standard output, standard
/// error and the log file.
///
/// Text is written by the calling thread, before `write` returns, whenever
/// the sink takes it at once; so "Closing windows" is on standard output
/// when the call that printed it returns, in order with the application's
/// own output as far as the C library lets us see it (buffered application
/// text is flushed first when that cannot block). Nothing here ever waits
/// for a sink: descriptors are written without blocking and never through
/// the C library's FILE locks, so no library thread can hold stdout's lock
/// in a write to a pipe that nobody reads, and the process can always exit.
///
/// Only when a sink is full (a pipe that nobody reads) does text queue: at
/// most `kBudget` bytes per sink (a single larger piece only when nothing
/// else waits); further text for that sink is dropped and counted, and once
/// the sink takes text again one line says how many pieces were lost. A
/// thread of its own writes queued text as the sink drains. What is queued
/// when the process exits is written first, waiting at most half a second.
struct OutputSink;

class OutputQueue {
public:
    /// A descriptor the queue writes to; kept open until its last queued text is out.
    using Sink = std::shared_ptr<OutputSink>;

    static constexpr qsizetype kBudget = 64 * 1024;

    static void write(const Sink& sink, QByteArray text);
    /// Opens `path` for appending (created when missing); null when it cannot.
    static Sink openAppend(const char* path);
    /// Standard output and standard error as sinks (never closed by the queue).
    static const Sink& standardOutput();
    static const Sink& standardError();
    /// Waits up to `msecs` until everything queued so far has been written.
    static bool waitWritten(int msecs);
};

} // namespace detail
} // namespace Orlavex
