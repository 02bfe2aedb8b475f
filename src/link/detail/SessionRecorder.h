#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

namespace Orlavex {
namespace detail {

/// Writes a lab session to a file as it runs: the header (library version,
/// start time, the front-end's registry description), then one frame per
/// cycle with its time stamp, the data message the front-end sent and every
/// server string it received, compressed in blocks. The file is streamed:
/// memory stays bounded, and a recorder killed at any moment leaves a file
/// that reads back up to its last complete cycle. See docs/recording.md.
class SessionRecorder {
public:
    SessionRecorder();
    ~SessionRecorder();
    SessionRecorder(const SessionRecorder&) = delete;
    SessionRecorder& operator=(const SessionRecorder&) = delete;

    /// Creates (truncates) the file and writes the header; false when it cannot.
    bool open(const QString& path, const QByteArray& registryJson);
    bool isOpen() const;
    /// What went wrong last, in words.
    QString errorString() const;

    void beginCycle(qint64 cycle);
    void dataMessage(const QByteArray& bytes);
    /// A chalk or record string as it arrived, its terminal included.
    void serverString(const QByteArray& bytes);
    /// Ends the cycle's frame; whole blocks go to the disk as they fill.
    void endCycle();
    /// Writes what is buffered and closes the file.
    void close();

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace detail
} // namespace Orlavex
