#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QFile>
#include <QJsonObject>
#include <QString>
#include <QVector>

#include <cstddef>
#include <string>

namespace Orlavex {
namespace detail {

/// The layout of a session recording, shared by the writer (SessionRecorder)
/// and the reader. docs/recording.md describes it for people; any change
/// here that an old reader cannot follow bumps kVersion.
namespace recording {
/// First bytes of every recording.
constexpr char kMagic[8] = {'O', 'R', 'L', 'V', 'X', 'R', 'E', 'C'};
constexpr quint32 kVersion = 1;
/// Tags of the two kinds of block after the header.
constexpr char kBlockTag[4] = {'O', 'B', 'L', 'K'};
constexpr char kEndTag[4] = {'O', 'E', 'N', 'D'};
/// Bytes of a block's fixed part after its tag: compressed length,
/// uncompressed length, frame count, CRC-32 of the compressed bytes.
constexpr int kBlockHeader = 16;
/// Limits that no writer exceeds; past them a block is taken as damaged
/// rather than allocated.
constexpr quint32 kMaxHeader = 64u * 1024 * 1024;
constexpr quint32 kMaxBlock = 1536u * 1024 * 1024;

/// CRC-32 (the polynomial of zip and PNG).
quint32 crc32(const void* data, std::size_t size, quint32 crc = 0);

inline void putU32(std::string& out, quint32 v) {
    char b[4] = {char(v), char(v >> 8), char(v >> 16), char(v >> 24)};
    out.append(b, 4);
}
inline void putU64(std::string& out, quint64 v) {
    putU32(out, quint32(v));
    putU32(out, quint32(v >> 32));
}
inline quint32 getU32(const char* p) {
    const auto* u = reinterpret_cast<const unsigned char*>(p);
    return quint32(u[0]) | quint32(u[1]) << 8 | quint32(u[2]) << 16 | quint32(u[3]) << 24;
}
inline quint64 getU64(const char* p) {
    return getU32(p) | quint64(getU32(p + 4)) << 32;
}
} // namespace recording

/// One cycle of a recording.
struct SessionFrame {
    qint64 cycle = 0;
    double timeMs = 0; ///< since the recording started
    QByteArray dataMessage;
    QVector<QByteArray> strings; ///< the chalk string, then the records, terminals included
};

/// Reads a session recording frame by frame, streaming: one block in memory
/// at a time. A file cut short (a recorder that was killed) reads up to its
/// last complete block and then reports `truncated()`; a damaged one stops
/// with `errorString()` saying what and where, never with a crash.
class SessionReader {
public:
    /// Opens the file and reads its header; false (see `errorString`) when
    /// it is not a readable recording.
    bool open(const QString& path);
    QString errorString() const { return m_error; }

    quint32 formatVersion() const { return m_version; }
    /// The header object: "library", "started", "registry", ...
    QJsonObject header() const { return m_header; }
    QString libraryVersion() const;
    QDateTime started() const;
    /// The front-end's registry description (CommThread::registryDescription).
    QJsonObject registry() const;

    /// The next frame; false at the end of the recording or on an error.
    bool next(SessionFrame* frame);
    /// Whether reading stopped on a damaged file (see `errorString`).
    bool hasError() const { return !m_error.isEmpty(); }
    /// Whether the file ended without its end mark: cut short while written.
    bool truncated() const { return m_truncated; }
    /// Back to the first frame.
    bool rewind();

private:
    bool fail(const QString& why);
    bool readBlock();
    bool parseFrame(SessionFrame* frame);

    QFile m_file;
    QString m_error;
    quint32 m_version = 0;
    QJsonObject m_header;
    qint64 m_firstBlock = 0;
    bool m_ended = false;
    bool m_truncated = false;
    int m_blockIndex = 0;
    std::string m_compressed;
    std::string m_block;
    std::size_t m_pos = 0;
    quint32 m_framesLeft = 0;
    int m_frameInBlock = 0;
};

} // namespace detail
} // namespace Orlavex
