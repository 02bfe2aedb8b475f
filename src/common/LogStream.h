#pragma once

#include <Orlavex/orlavex_export.h>

#include <QByteArray>
#include <QString>

#include <memory>

namespace Orlavex {

namespace detail {
struct OutputSink;
}

/// One writer's log on the shared file "info.txt" in the working directory.
///
/// The socket client and the link thread each keep one of these on the same
/// file. Each completed line is written in one piece, in the order lines were
/// completed, so lines of different writers never interleave within a line;
/// the caller never waits for the output (see `waitWritten`). A line may be
/// left open (`putOpen`); its text then waits in this writer until the next
/// completed line carries it out. When the file cannot be opened everything
/// written is silently dropped.
class ORLAVEX_EXPORT LogStream {
public:
    LogStream() = default;
    ~LogStream();
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;

    /// Opens "info.txt" for appending (created when missing). Does nothing when open.
    void open();
    void close();
    bool isOpen() const { return m_file != nullptr; }

    /// Writes the pieces one after the other, then a line end, and flushes.
    void line(const QByteArray& text);
    void line(const char* text) { line(QByteArray::fromRawData(text, int(qstrlen(text)))); }
    void line(const QString& text) { line(text.toLatin1()); }
    /// Writes text with no line end and no flush; the next line continues it.
    void putOpen(const char* text);

    /// The file name every writer appends to.
    static const char* fileName() { return "info.txt"; }
    /// Waits up to `msecs` until every line and every standard-output text
    /// the library has produced so far is written; for tests and for
    /// applications that want their log complete before they exit.
    static bool waitWritten(int msecs);
    /// Writes text to standard output before returning when the output takes
    /// it at once; otherwise it waits in a bounded queue (see `waitWritten`).
    /// The caller never blocks, also when nobody reads standard output.
    static void toStandardOutput(const QByteArray& text);
    /// The same for standard error.
    static void toStandardError(const QByteArray& text);

private:
    std::shared_ptr<detail::OutputSink> m_file;
    QByteArray m_open; // text of a line left open, not yet written
};

} // namespace Orlavex
