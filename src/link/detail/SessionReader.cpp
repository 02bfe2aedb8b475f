#include "SessionReader.h"

#include <QJsonDocument>

#include <zstd.h>

#include <array>
#include <cstring>

namespace Orlavex {
namespace detail {

namespace recording {
quint32 crc32(const void* data, std::size_t size, quint32 crc) {
    static const std::array<quint32, 256> table = [] {
        std::array<quint32, 256> t{};
        for (quint32 i = 0; i < 256; ++i) {
            quint32 c = i;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[i] = c;
        }
        return t;
    }();
    const auto* p = static_cast<const unsigned char*>(data);
    crc = ~crc;
    for (std::size_t i = 0; i < size; ++i)
        crc = table[(crc ^ p[i]) & 0xFF] ^ (crc >> 8);
    return ~crc;
}
} // namespace recording

using namespace recording;

bool SessionReader::fail(const QString& why) {
    m_error = why;
    return false;
}

bool SessionReader::open(const QString& path) {
    m_file.close();
    m_file.setFileName(path);
    m_error.clear();
    m_header = QJsonObject();
    if (!m_file.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("cannot open %1: %2").arg(path, m_file.errorString()));
    char fixed[16];
    if (m_file.read(fixed, 16) != 16 || std::memcmp(fixed, kMagic, 8) != 0)
        return fail(
            QStringLiteral("%1 is not an Orlavex recording (no recording header)").arg(path));
    m_version = getU32(fixed + 8);
    if (m_version == 0 || m_version > kVersion)
        return fail(QStringLiteral("%1 has format version %2; this reader knows versions 1 to %3")
                        .arg(path)
                        .arg(m_version)
                        .arg(kVersion));
    const quint32 length = getU32(fixed + 12);
    if (length > kMaxHeader)
        return fail(QStringLiteral("%1: the recording header is damaged (length %2)")
                        .arg(path)
                        .arg(length));
    QByteArray text = m_file.read(length);
    char crc[4];
    if (text.size() != int(length) || m_file.read(crc, 4) != 4)
        return fail(QStringLiteral("%1: the recording header is cut short").arg(path));
    if (crc32(text.constData(), size_t(text.size())) != getU32(crc))
        return fail(
            QStringLiteral("%1: the recording header is damaged (checksum mismatch)").arg(path));
    QJsonParseError parse;
    const QJsonDocument doc = QJsonDocument::fromJson(text, &parse);
    if (!doc.isObject())
        return fail(QStringLiteral("%1: the recording header is not valid JSON: %2")
                        .arg(path, parse.errorString()));
    m_header = doc.object();
    m_firstBlock = m_file.pos();
    return rewind();
}

QString SessionReader::libraryVersion() const {
    return m_header.value(QStringLiteral("library")).toString();
}

QDateTime SessionReader::started() const {
    return QDateTime::fromString(m_header.value(QStringLiteral("started")).toString(),
                                 Qt::ISODateWithMs);
}

QJsonObject SessionReader::registry() const {
    return m_header.value(QStringLiteral("registry")).toObject();
}

bool SessionReader::rewind() {
    if (!m_file.isOpen() || (hasError() && m_header.isEmpty()))
        return false;
    m_error.clear();
    m_ended = m_truncated = false;
    m_blockIndex = 0;
    m_framesLeft = 0;
    m_block.clear();
    m_pos = 0;
    return m_file.seek(m_firstBlock) ||
           fail(QStringLiteral("cannot seek: %1").arg(m_file.errorString()));
}

bool SessionReader::readBlock() {
    const qint64 at = m_file.pos();
    char head[4 + kBlockHeader];
    const qint64 got = m_file.read(head, 4);
    if (got == 4 && std::memcmp(head, kEndTag, 4) == 0) {
        m_ended = true;
        return false;
    }
    if (got < 4) { // the end mark never came: cut short
        m_truncated = got >= 0;
        return got < 0 ? fail(m_file.errorString()) : false;
    }
    if (std::memcmp(head, kBlockTag, 4) != 0)
        return fail(QStringLiteral("unexpected bytes at offset %1 where block %2 should start "
                                   "(damaged file)")
                        .arg(at)
                        .arg(m_blockIndex + 1));
    if (m_file.read(head + 4, kBlockHeader) != kBlockHeader) {
        m_truncated = true;
        return false;
    }
    const quint32 compressed = getU32(head + 4), raw = getU32(head + 8);
    const quint32 frames = getU32(head + 12), crc = getU32(head + 16);
    if (compressed > kMaxBlock || raw > kMaxBlock || frames == 0)
        return fail(QStringLiteral("block %1 at offset %2 has an impossible size (damaged file)")
                        .arg(m_blockIndex + 1)
                        .arg(at));
    m_compressed.resize(compressed);
    if (m_file.read(&m_compressed[0], compressed) != qint64(compressed)) {
        m_truncated = true; // the recorder stopped while writing this block
        return false;
    }
    ++m_blockIndex;
    if (crc32(m_compressed.data(), compressed) != crc)
        return fail(QStringLiteral("block %1 at offset %2: checksum mismatch (damaged file)")
                        .arg(m_blockIndex)
                        .arg(at));
    m_block.resize(raw);
    const size_t n = ZSTD_decompress(&m_block[0], raw, m_compressed.data(), compressed);
    if (ZSTD_isError(n) || n != raw)
        return fail(QStringLiteral("block %1 at offset %2 does not decompress (damaged file)")
                        .arg(m_blockIndex)
                        .arg(at));
    m_pos = 0;
    m_framesLeft = frames;
    m_frameInBlock = 0;
    return true;
}

bool SessionReader::parseFrame(SessionFrame* frame) {
    const char* base = m_block.data();
    const size_t size = m_block.size();
    size_t pos = m_pos;
    auto take = [&](size_t n) {
        if (size - pos < n)
            return false;
        pos += n;
        return true;
    };
    auto bytes = [&](QByteArray* out) {
        if (!take(4))
            return false;
        const quint32 n = getU32(base + pos - 4);
        if (!take(n))
            return false;
        *out = QByteArray(base + pos - n, int(n));
        return true;
    };
    ++m_frameInBlock;
    bool ok = take(16);
    if (ok) {
        frame->cycle = qint64(getU64(base + pos - 16));
        const quint64 bits = getU64(base + pos - 8);
        std::memcpy(&frame->timeMs, &bits, 8);
        ok = bytes(&frame->dataMessage) && take(4);
    }
    if (ok) {
        const quint32 count = getU32(base + pos - 4);
        ok = count <= (size - pos) / 4; // each string takes at least its length
        frame->strings.resize(ok ? int(count) : 0);
        for (quint32 i = 0; ok && i < count; ++i)
            ok = bytes(&frame->strings[int(i)]);
    }
    if (!ok)
        return fail(
            QStringLiteral("block %1, frame %2 is damaged").arg(m_blockIndex).arg(m_frameInBlock));
    m_pos = pos;
    if (--m_framesLeft == 0 && m_pos != size)
        return fail(
            QStringLiteral("block %1 holds more than its frames (damaged file)").arg(m_blockIndex));
    return true;
}

bool SessionReader::next(SessionFrame* frame) {
    if (hasError() || m_ended || m_truncated || !m_file.isOpen())
        return false;
    if (m_framesLeft == 0 && !readBlock())
        return false;
    return parseFrame(frame);
}

} // namespace detail
} // namespace Orlavex
