#include "SessionRecorder.h"

#include "SessionReader.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <zstd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace Orlavex {
namespace detail {

using namespace recording;
using Clock = std::chrono::steady_clock;

namespace {
// A block is written once it holds this much, or once its first cycle is a
// second old: a recorder killed at any moment loses at most the last second.
constexpr std::size_t kDefaultBlockBytes = 256 * 1024;
constexpr auto kBlockAge = std::chrono::seconds(1);
// Cycles wait for the writer only when it has fallen this far behind, which
// bounds the memory whatever the disk's speed.
constexpr std::size_t kMaxPendingBytes = 32 * 1024 * 1024;
// Fast enough to keep up with the link on one core; the numbers compress
// well even so.
constexpr int kLevel = 1;
} // namespace

// The link thread only appends a cycle's bytes to `frame` and, at the cycle's
// end, moves them into `block`. Compressing and writing happen on a thread of
// their own, so a cycle never waits for the disk.
struct SessionRecorder::Impl {
    QFile file;
    bool recording = false; ///< open, as the link thread sees it
    QString error;          ///< under `lock` while the writer runs
    Clock::time_point start;
    std::size_t blockBytes = kDefaultBlockBytes;
    qint64 cycles = 0;

    // Link thread only.
    std::string frame;
    std::size_t countAt = 0; ///< where the frame's string count goes
    quint32 strings = 0;
    bool inCycle = false;

    // Shared with the writer, under `lock`.
    std::mutex lock;
    std::condition_variable wake;    ///< the writer has work or must stop
    std::condition_variable drained; ///< the writer has taken a block
    std::string block;
    quint32 blockFrames = 0;
    Clock::time_point blockStarted;
    bool stop = false;
    bool failed = false;
    std::thread writer;

    void writeLoop();
    QString writeBlock(const std::string& raw, quint32 frames, ZSTD_CCtx* cctx, std::string& out);
};

// Returns what went wrong, or nothing.
QString SessionRecorder::Impl::writeBlock(const std::string& raw, quint32 frames, ZSTD_CCtx* cctx,
                                          std::string& out) {
    out.resize(ZSTD_compressBound(raw.size()));
    const size_t n = ZSTD_compressCCtx(cctx, &out[0], out.size(), raw.data(), raw.size(), kLevel);
    if (ZSTD_isError(n))
        return QStringLiteral("compression failed: %1").arg(QLatin1String(ZSTD_getErrorName(n)));
    std::string head(kBlockTag, 4);
    putU32(head, quint32(n));
    putU32(head, quint32(raw.size()));
    putU32(head, frames);
    putU32(head, crc32(out.data(), n));
    // Flushed at once: what reached the system survives the process.
    if (file.write(head.data(), qint64(head.size())) != qint64(head.size()) ||
        file.write(out.data(), qint64(n)) != qint64(n) || !file.flush())
        return file.errorString();
    return QString();
}

void SessionRecorder::Impl::writeLoop() {
    ZSTD_CCtx* cctx = ZSTD_createCCtx();
    std::string raw, out;
    std::unique_lock<std::mutex> guard(lock);
    for (;;) {
        const bool due = !block.empty() && (stop || block.size() >= blockBytes ||
                                            Clock::now() >= blockStarted + kBlockAge);
        if (due) {
            raw.clear();
            raw.swap(block); // the link thread goes on in the buffer written last time
            const quint32 frames = std::exchange(blockFrames, 0);
            const bool skip = failed; // after a failed write the rest is dropped
            guard.unlock();
            drained.notify_all();
            const QString why = skip ? QString() : writeBlock(raw, frames, cctx, out);
            guard.lock();
            if (!why.isEmpty()) {
                failed = true;
                error = why;
                qWarning("SessionRecorder: cannot write the recording: %s", qPrintable(why));
            }
            continue;
        }
        if (stop)
            break;
        if (block.empty())
            wake.wait(guard);
        else
            wake.wait_until(guard, blockStarted + kBlockAge);
    }
    ZSTD_freeCCtx(cctx);
}

SessionRecorder::SessionRecorder() : d(new Impl) {}

SessionRecorder::~SessionRecorder() {
    close();
}

bool SessionRecorder::open(const QString& path, const QByteArray& registryJson) {
    close();
    d->error.clear();
    d->failed = d->stop = false;
    d->cycles = 0;
    // Smaller blocks, for tests of files cut short (see docs/recording.md).
    bool ok = false;
    const int bytes = qEnvironmentVariableIntValue("ORLAVEX_RECORD_BLOCK_BYTES", &ok);
    d->blockBytes = ok && bytes > 0 ? std::size_t(bytes) : kDefaultBlockBytes;

    d->file.setFileName(path);
    if (!d->file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        d->error = d->file.errorString();
        return false;
    }
    const QDateTime now = QDateTime::currentDateTimeUtc();
    d->start = Clock::now();
    const QJsonObject header{{"format", "orlavex-recording"},
                             {"version", int(kVersion)},
                             {"library", QStringLiteral(ORLAVEX_VERSION_TEXT)},
                             {"started", now.toString(Qt::ISODateWithMs)},
                             {"registry", QJsonDocument::fromJson(registryJson).object()}};
    const QByteArray text = QJsonDocument(header).toJson(QJsonDocument::Compact);
    std::string head(kMagic, 8);
    putU32(head, kVersion);
    putU32(head, quint32(text.size()));
    head.append(text.constData(), size_t(text.size()));
    putU32(head, crc32(text.constData(), size_t(text.size())));
    if (d->file.write(head.data(), qint64(head.size())) != qint64(head.size()) ||
        !d->file.flush()) {
        d->error = d->file.errorString();
        d->file.close();
        return false;
    }
    d->frame.reserve(64 * 1024);
    d->block.reserve(d->blockBytes + 64 * 1024);
    d->recording = true;
    d->writer = std::thread([this] { d->writeLoop(); });
    return true;
}

bool SessionRecorder::isOpen() const {
    return d->recording;
}

QString SessionRecorder::errorString() const {
    std::lock_guard<std::mutex> guard(d->lock);
    return d->error;
}

void SessionRecorder::beginCycle(qint64 cycle) {
    // A cycle that was cut short never reached endCycle: it is dropped here.
    d->frame.clear();
    d->inCycle = isOpen();
    if (!d->inCycle)
        return;
    const double ms = std::chrono::duration<double, std::milli>(Clock::now() - d->start).count();
    quint64 bits;
    std::memcpy(&bits, &ms, 8);
    putU64(d->frame, quint64(cycle));
    putU64(d->frame, bits);
    d->strings = 0;
    d->countAt = 0;
}

void SessionRecorder::dataMessage(const QByteArray& bytes) {
    if (!d->inCycle)
        return;
    putU32(d->frame, quint32(bytes.size()));
    d->frame.append(bytes.constData(), size_t(bytes.size()));
    d->countAt = d->frame.size();
    putU32(d->frame, 0); // the string count, known at the cycle's end
}

void SessionRecorder::serverString(const QByteArray& bytes) {
    if (!d->inCycle || d->countAt == 0)
        return;
    putU32(d->frame, quint32(bytes.size()));
    d->frame.append(bytes.constData(), size_t(bytes.size()));
    ++d->strings;
}

void SessionRecorder::endCycle() {
    if (!d->inCycle || d->countAt == 0)
        return;
    d->inCycle = false;
    const quint32 n = d->strings;
    const char count[4] = {char(n), char(n >> 8), char(n >> 16), char(n >> 24)};
    std::memcpy(&d->frame[d->countAt], count, 4);
    ++d->cycles;
    bool wakeWriter;
    {
        std::unique_lock<std::mutex> guard(d->lock);
        d->drained.wait(guard, [&] { return d->block.size() < kMaxPendingBytes || d->stop; });
        if (d->block.empty())
            d->blockStarted = Clock::now();
        wakeWriter = d->block.empty() || (d->block.size() < d->blockBytes &&
                                          d->block.size() + d->frame.size() >= d->blockBytes);
        d->block.append(d->frame);
        ++d->blockFrames;
    }
    // Only when the writer has something new to time or to take: a first
    // frame starts its one-second clock, a full block is due at once.
    if (wakeWriter)
        d->wake.notify_one();
}

void SessionRecorder::close() {
    if (!d->recording)
        return;
    d->recording = false;
    d->inCycle = false;
    {
        std::lock_guard<std::mutex> guard(d->lock);
        d->stop = true;
    }
    d->wake.notify_one();
    d->writer.join();
    std::string end(kEndTag, 4);
    putU64(end, quint64(d->cycles));
    if (!d->failed &&
        (d->file.write(end.data(), qint64(end.size())) != qint64(end.size()) || !d->file.flush()))
        d->error = d->file.errorString();
    d->file.close();
}

} // namespace detail
} // namespace Orlavex
