#include "ShareFrame.h"

#include <QCryptographicHash>
#include <QtEndian>

#include <algorithm>
#include <cstring>
#include <limits>

namespace Orlavex {

namespace {

using Object = ShareState::Object;
using Section = ShareState::Section;
using Kind = ShareState::Kind;

constexpr char kMagic[4] = {'O', 'L', 'X', 'F'};
constexpr char kPartMagic[4] = {'O', 'L', 'X', 'P'};
constexpr quint8 kTrailWhole = 0;
constexpr quint8 kTrailAppend = 1;
constexpr int kEntryBytes = 8;       // num, kind, section count, reserved
constexpr int kSectionHeadBytes = 5; // id, length
constexpr int kTrailWholeHead = 13;  // mode, first, count
constexpr int kTrailAppendHead = 17; // mode, first, count, appended
constexpr int kTransformBytes = 16 * 8;
constexpr int kMaterialBytes = 11 * 8;

// --- Writing ---

template <class T> T toBits(T v) {
    return v;
}
quint32 toBits(float v) {
    quint32 b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}
quint64 toBits(double v) {
    quint64 b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

class Writer {
public:
    explicit Writer(QByteArray& out) : m_out(out) {}
    template <class T> void put(T v) {
        const auto bits = toBits(v);
        char buf[sizeof bits];
        qToLittleEndian(bits, buf);
        m_out.append(buf, int(sizeof buf));
    }
    template <class T> void array(const T* p, std::size_t n) {
#if Q_BYTE_ORDER == Q_LITTLE_ENDIAN
        if (n > 0)
            m_out.append(reinterpret_cast<const char*>(p), int(n * sizeof(T)));
#else
        for (std::size_t i = 0; i < n; ++i)
            put(p[i]);
#endif
    }
    /// A 32-bit field written later, once its value is known.
    int placeholder() {
        const int at = m_out.size();
        put(quint32(0));
        return at;
    }
    void patch(int at, quint32 v) {
        qToLittleEndian(v, m_out.data() + at);
    }
    int size() const {
        return m_out.size();
    }

private:
    QByteArray& m_out;
};

int headerPlaceholders(Writer& w, ShareFrame::Type type, const ShareState& s, qint64 publishedUs,
                       int* bodyAt) {
    for (char c : kMagic)
        w.put(quint8(c));
    w.put(ShareFrame::kVersion);
    w.put(quint8(type));
    w.put(quint16(0));
    w.put(quint64(s.publisher));
    w.put(quint64(s.sequence));
    w.put(qint64(s.cycle));
    w.put(qint64(publishedUs));
    const int objectsAt = w.placeholder();
    *bodyAt = w.placeholder();
    return objectsAt;
}

/// How many of `previous`'s points `current` keeps, or -1 when `current` is
/// not `previous` with points dropped from the front and appended at the back.
qint64 keptPoints(const Object& previous, const Object& current) {
    if (!previous.has(ShareState::Trail) || current.trailFirst < previous.trailFirst)
        return -1;
    const quint64 end = previous.trailFirst + previous.trailX.size();
    const quint64 keep = end > current.trailFirst ? end - current.trailFirst : 0;
    if (keep > current.trailX.size())
        return -1;
    const std::size_t drop = previous.trailX.size() - std::size_t(keep);
    const std::size_t bytes = std::size_t(keep) * sizeof(double);
    if (keep > 0 &&
        (std::memcmp(previous.trailX.data() + drop, current.trailX.data(), bytes) != 0 ||
         std::memcmp(previous.trailY.data() + drop, current.trailY.data(), bytes) != 0))
        return -1;
    return qint64(keep);
}

void writeTrail(Writer& w, const Object& o, const Object* previous) {
    const qint64 keep = previous ? keptPoints(*previous, o) : -1;
    const std::size_t count = o.trailX.size();
    w.put(keep < 0 ? kTrailWhole : kTrailAppend);
    w.put(quint64(o.trailFirst));
    w.put(quint32(count));
    std::size_t from = 0;
    if (keep >= 0) {
        from = std::size_t(keep);
        w.put(quint32(count - from));
    }
    w.array(o.trailX.data() + from, count - from);
    w.array(o.trailY.data() + from, count - from);
}

void writeSection(Writer& w, const Object& o, Section s, const Object* previous) {
    w.put(quint8(s));
    const int lengthAt = w.placeholder();
    const int start = w.size();
    switch (s) {
    case ShareState::Transform:
        w.array(o.transform.data(), o.transform.size());
        break;
    case ShareState::Material:
        w.array(o.material.data(), o.material.size());
        break;
    case ShareState::Geometry:
        w.array(o.geometry.data(), o.geometry.size());
        break;
    case ShareState::Cells:
        w.array(o.cells.data(), o.cells.size());
        break;
    case ShareState::Vectors:
        w.array(o.vectors.data(), o.vectors.size());
        break;
    case ShareState::Text:
        w.array(o.text.data(), o.text.size());
        break;
    case ShareState::Value:
        w.put(o.value);
        break;
    case ShareState::Enabled:
        w.put(quint8(o.enabled ? 1 : 0));
        break;
    case ShareState::Trail:
        writeTrail(w, o, previous);
        break;
    }
    w.patch(lengthAt, quint32(w.size() - start));
}

/// One object entry with the sections in `mask`; `previous` (deltas) lets a
/// trail send only its new points.
void writeObject(Writer& w, const Object& o, quint32 mask, const Object* previous) {
    w.put(qint32(o.num));
    w.put(quint8(o.kind));
    int count = 0;
    for (int s = 1; s <= ShareState::kLastSection; ++s)
        count += (mask >> s) & 1;
    w.put(quint8(count));
    w.put(quint16(0));
    for (int s = 1; s <= ShareState::kLastSection; ++s)
        if ((mask >> s) & 1)
            writeSection(w, o, Section(s), previous);
}

/// A section may appear, but never go away: a delta could not say that.
bool deltaCanExpress(const ShareState& previous, const ShareState& current) {
    if (previous.sequence == 0 || current.sequence != previous.sequence + 1 ||
        current.publisher != previous.publisher ||
        previous.objects.size() != current.objects.size())
        return false;
    for (std::size_t i = 0; i < current.objects.size(); ++i) {
        const Object& a = previous.objects[i];
        const Object& b = current.objects[i];
        if (a.num != b.num || a.kind != b.kind || (a.sections & ~b.sections) != 0)
            return false;
    }
    return true;
}

// --- Reading ---

template <class T> T fromBits(const uchar* p);
template <> quint8 fromBits<quint8>(const uchar* p) {
    return *p;
}
template <> quint16 fromBits<quint16>(const uchar* p) {
    return qFromLittleEndian<quint16>(p);
}
template <> quint32 fromBits<quint32>(const uchar* p) {
    return qFromLittleEndian<quint32>(p);
}
template <> quint64 fromBits<quint64>(const uchar* p) {
    return qFromLittleEndian<quint64>(p);
}
template <> qint32 fromBits<qint32>(const uchar* p) {
    return qFromLittleEndian<qint32>(p);
}
template <> qint64 fromBits<qint64>(const uchar* p) {
    return qFromLittleEndian<qint64>(p);
}
template <> float fromBits<float>(const uchar* p) {
    const quint32 b = qFromLittleEndian<quint32>(p);
    float v;
    std::memcpy(&v, &b, sizeof v);
    return v;
}
template <> double fromBits<double>(const uchar* p) {
    const quint64 b = qFromLittleEndian<quint64>(p);
    double v;
    std::memcpy(&v, &b, sizeof v);
    return v;
}

template <class T> void readArray(const uchar* p, std::size_t n, T* out) {
#if Q_BYTE_ORDER == Q_LITTLE_ENDIAN
    if (n > 0)
        std::memcpy(out, p, n * sizeof(T));
#else
    for (std::size_t i = 0; i < n; ++i)
        out[i] = fromBits<T>(p + i * sizeof(T));
#endif
}

template <class Vec> void assignArray(Vec& v, const uchar* p, std::size_t n) {
    v.resize(n);
    readArray(p, n, v.data());
}

/// Bytes of a frame body, consumed front to back; every read is checked.
class Reader {
public:
    Reader(const uchar* p, qint64 size) : m_p(p), m_left(size) {}
    template <class T> bool get(T* v) {
        if (m_left < qint64(sizeof(T)))
            return false;
        *v = fromBits<T>(m_p);
        m_p += sizeof(T);
        m_left -= qint64(sizeof(T));
        return true;
    }
    bool take(qint64 n, const uchar** at) {
        if (n < 0 || n > m_left)
            return false;
        *at = m_p;
        m_p += n;
        m_left -= n;
        return true;
    }
    qint64 left() const { return m_left; }

private:
    const uchar* m_p;
    qint64 m_left;
};

using Result = ShareFrame::Result;
using Error = ShareFrame::Error;

Result failure(Error e, const QString& message) {
    return Result{e, message};
}

/// Walks a frame's body twice: first only checking (`commit` false), then,
/// once everything has been found sound, writing into the state. The state
/// is therefore never left half-changed.
class Decoder {
public:
    Decoder(const ShareFrame::Header& h, const uchar* body, ShareState* state)
        : m_h(h), m_body(body), m_state(state) {}

    Result run(bool commit) {
        const bool key = m_h.type == ShareFrame::Type::Key;
        Reader r(m_body, m_h.bodyBytes);
        if (qint64(m_h.objects) > r.left() / kEntryBytes)
            return malformed(
                QStringLiteral("%1 objects cannot fit in %2 bytes").arg(m_h.objects).arg(r.left()));
        std::vector<Object> fresh;
        if (key && commit)
            fresh.resize(m_h.objects);
        qint64 lastNum = std::numeric_limits<qint64>::min();
        for (quint32 k = 0; k < m_h.objects; ++k) {
            qint32 num;
            quint8 kind, sections;
            quint16 reserved;
            if (!r.get(&num) || !r.get(&kind) || !r.get(&sections) || !r.get(&reserved))
                return malformed(QStringLiteral("object entry %1 is cut short").arg(k));
            if (qint64(num) <= lastNum)
                return malformed(QStringLiteral("object %1 out of order or repeated (after %2)")
                                     .arg(num)
                                     .arg(lastNum));
            lastNum = num;
            if (reserved != 0)
                return malformed(QStringLiteral("object %1: reserved bits set").arg(num));
            const quint32 allowed = ShareState::sectionsOf(Kind(kind));
            if (allowed == 0)
                return malformed(QStringLiteral("object %1: unknown kind %2").arg(num).arg(kind));
            Object* target = nullptr;
            const Object* existing = nullptr;
            if (key) {
                if (commit) {
                    target = &fresh[k];
                    target->num = num;
                    target->kind = Kind(kind);
                }
            } else {
                existing = m_state->find(num);
                if (!existing || existing->kind != Kind(kind))
                    return malformed(QStringLiteral("a delta for object %1 (%2), which the state "
                                                    "does not hold")
                                         .arg(num)
                                         .arg(ShareState::kindName(Kind(kind))));
                if (commit)
                    target = m_state->find(num);
            }
            int lastSection = 0;
            for (int j = 0; j < sections; ++j) {
                quint8 id;
                quint32 length;
                const uchar* data;
                if (!r.get(&id) || !r.get(&length))
                    return malformed(
                        QStringLiteral("object %1: section %2 is cut short").arg(num).arg(j));
                if (id <= lastSection || id > ShareState::kLastSection)
                    return malformed(
                        QStringLiteral("object %1: section id %2 out of order or unknown")
                            .arg(num)
                            .arg(id));
                lastSection = id;
                if (!((allowed >> id) & 1u))
                    return malformed(QStringLiteral("object %1: a %2 has no %3 section")
                                         .arg(num)
                                         .arg(ShareState::kindName(Kind(kind)))
                                         .arg(ShareState::sectionName(Section(id))));
                if (!r.take(length, &data))
                    return malformed(QStringLiteral("object %1: %2 section of %3 bytes, %4 left")
                                         .arg(num)
                                         .arg(ShareState::sectionName(Section(id)))
                                         .arg(length)
                                         .arg(r.left()));
                const Result ok =
                    section(Section(id), Kind(kind), data, length, key, existing, target, num);
                if (!ok.ok())
                    return ok;
            }
        }
        if (r.left() != 0)
            return malformed(QStringLiteral("%1 bytes after the last object").arg(r.left()));
        if (commit) {
            if (key)
                m_state->objects.swap(fresh);
            m_state->publisher = m_h.publisher;
            m_state->sequence = m_h.sequence;
            m_state->cycle = m_h.cycle;
        }
        return Result();
    }

private:
    static Result malformed(const QString& message) { return failure(Error::Malformed, message); }

    Result wrongLength(int num, Section s, quint32 length) {
        return malformed(QStringLiteral("object %1: %2 section of %3 bytes")
                             .arg(num)
                             .arg(ShareState::sectionName(s))
                             .arg(length));
    }

    Result section(Section s, Kind kind, const uchar* p, quint32 length, bool key,
                   const Object* existing, Object* target, int num) {
        switch (s) {
        case ShareState::Transform:
            if (length != kTransformBytes)
                return wrongLength(num, s, length);
            if (target)
                readArray(p, 16, target->transform.data());
            break;
        case ShareState::Material:
            if (length != kMaterialBytes)
                return wrongLength(num, s, length);
            if (target)
                readArray(p, 11, target->material.data());
            break;
        case ShareState::Geometry:
            if (length != quint32(8 * ShareState::geometryCount(kind)))
                return wrongLength(num, s, length);
            if (target)
                assignArray(target->geometry, p, length / 8);
            break;
        case ShareState::Cells:
            if (length % 4 != 0)
                return wrongLength(num, s, length);
            if (target)
                assignArray(target->cells, p, length / 4);
            break;
        case ShareState::Vectors:
            // n magnitudes, 3n components and the scale: 4n + 1 floats.
            if (length % 4 != 0 || (length / 4) % 4 != 1)
                return wrongLength(num, s, length);
            if (target)
                assignArray(target->vectors, p, length / 4);
            break;
        case ShareState::Text:
            if (target)
                target->text.assign(reinterpret_cast<const char*>(p), length);
            break;
        case ShareState::Value:
            if (length != 8)
                return wrongLength(num, s, length);
            if (target)
                target->value = fromBits<double>(p);
            break;
        case ShareState::Enabled:
            if (length != 1 || *p > 1)
                return malformed(QStringLiteral("object %1: enabled state is not 0 or 1").arg(num));
            if (target)
                target->enabled = *p == 1;
            break;
        case ShareState::Trail: {
            const Result ok = trail(p, length, key, existing, target, num);
            if (!ok.ok())
                return ok;
            break;
        }
        }
        if (target)
            target->mark(s);
        return Result();
    }

    Result trail(const uchar* p, quint32 length, bool key, const Object* existing, Object* target,
                 int num) {
        Reader r(p, length);
        quint8 mode;
        quint64 first;
        quint32 count;
        if (!r.get(&mode) || !r.get(&first) || !r.get(&count))
            return malformed(QStringLiteral("object %1: trail section cut short").arg(num));
        if (first > std::numeric_limits<quint64>::max() - count)
            return malformed(QStringLiteral("object %1: trail point index overflows").arg(num));
        quint32 appended = count;
        quint64 keep = 0;
        if (mode == kTrailAppend) {
            if (key)
                return malformed(
                    QStringLiteral("object %1: a keyframe trail must be whole").arg(num));
            if (!r.get(&appended) || appended > count)
                return malformed(QStringLiteral("object %1: trail append count amiss").arg(num));
            if (!existing->has(ShareState::Trail))
                return malformed(
                    QStringLiteral("object %1: points appended to a trail the state lacks")
                        .arg(num));
            if (first < existing->trailFirst)
                return malformed(QStringLiteral("object %1: trail goes back from point %2 to %3")
                                     .arg(num)
                                     .arg(existing->trailFirst)
                                     .arg(first));
            const quint64 end = existing->trailFirst + existing->trailX.size();
            keep = end > first ? end - first : 0;
            if (keep + appended != count)
                return malformed(QStringLiteral("object %1: trail keeps %2 points and appends %3, "
                                                "but should hold %4")
                                     .arg(num)
                                     .arg(keep)
                                     .arg(appended)
                                     .arg(count));
        } else if (mode != kTrailWhole) {
            return malformed(QStringLiteral("object %1: unknown trail mode %2").arg(num).arg(mode));
        }
        const uchar* xs;
        const uchar* ys;
        const qint64 bytes = qint64(appended) * 8;
        if (!r.take(bytes, &xs) || !r.take(bytes, &ys) || r.left() != 0)
            return wrongLength(num, ShareState::Trail, length);
        if (!target)
            return Result();
        if (mode == kTrailWhole) {
            assignArray(target->trailX, xs, appended);
            assignArray(target->trailY, ys, appended);
        } else {
            const std::size_t drop = target->trailX.size() - std::size_t(keep);
            for (std::vector<double>* v : {&target->trailX, &target->trailY})
                v->erase(v->begin(), v->begin() + std::ptrdiff_t(drop));
            const std::size_t at = target->trailX.size();
            target->trailX.resize(at + appended);
            target->trailY.resize(at + appended);
            readArray(xs, appended, target->trailX.data() + at);
            readArray(ys, appended, target->trailY.data() + at);
        }
        target->trailFirst = first;
        return Result();
    }

    const ShareFrame::Header& m_h;
    const uchar* m_body;
    ShareState* m_state;
};

} // namespace

QByteArray ShareFrame::digest(const ShareState& state) {
    return QCryptographicHash::hash(encodeKey(state, 0), QCryptographicHash::Sha1).toHex();
}

QByteArray ShareFrame::encodeKey(const ShareState& state, qint64 publishedUs) {
    QByteArray out;
    Writer w(out);
    int bodyAt;
    const int objectsAt = headerPlaceholders(w, Type::Key, state, publishedUs, &bodyAt);
    for (const Object& o : state.objects)
        writeObject(w, o, o.sections, nullptr);
    w.patch(objectsAt, quint32(state.objects.size()));
    w.patch(bodyAt, quint32(w.size() - kHeaderBytes));
    return out;
}

QByteArray ShareFrame::encodeDelta(const ShareState& previous, const ShareState& current,
                                   qint64 publishedUs) {
    if (!deltaCanExpress(previous, current))
        return encodeKey(current, publishedUs);
    QByteArray out;
    Writer w(out);
    int bodyAt;
    const int objectsAt = headerPlaceholders(w, Type::Delta, current, publishedUs, &bodyAt);
    quint32 written = 0;
    for (std::size_t i = 0; i < current.objects.size(); ++i) {
        const Object& a = previous.objects[i];
        const Object& b = current.objects[i];
        quint32 changed = 0;
        for (int s = 1; s <= ShareState::kLastSection; ++s)
            if (b.has(Section(s)) && !a.sameSection(b, Section(s)))
                changed |= 1u << s;
        if (changed == 0)
            continue;
        writeObject(w, b, changed, &a);
        ++written;
    }
    w.patch(objectsAt, written);
    w.patch(bodyAt, quint32(w.size() - kHeaderBytes));
    return out;
}

ShareFrame::Result ShareFrame::readHeader(const char* data, qint64 size, Header* header,
                                          qint64 maxBytes) {
    if (size > maxBytes)
        return failure(
            Error::Oversized,
            QStringLiteral("%1 bytes, more than the %2 accepted").arg(size).arg(maxBytes));
    // A few bytes that begin like a frame are a frame cut short; anything
    // else is no frame at all.
    const qint64 magicBytes = qMin<qint64>(qMax<qint64>(size, 0), 4);
    if (magicBytes > 0 && std::memcmp(data, kMagic, std::size_t(magicBytes)) != 0)
        return failure(Error::BadMagic, QStringLiteral("not an Orlavex share frame"));
    if (size < 5)
        return failure(Error::Truncated, QStringLiteral("%1 bytes, no header").arg(size));
    const auto* p = reinterpret_cast<const uchar*>(data);
    if (p[4] != kVersion)
        return failure(Error::WrongVersion, QStringLiteral("frame format version %1, this reader "
                                                           "knows %2")
                                                .arg(p[4])
                                                .arg(kVersion));
    if (size < kHeaderBytes)
        return failure(
            Error::Truncated,
            QStringLiteral("%1 bytes, the header alone has %2").arg(size).arg(kHeaderBytes));
    Header h;
    const quint8 type = p[5];
    if (type != quint8(Type::Key) && type != quint8(Type::Delta))
        return failure(Error::Malformed, QStringLiteral("unknown frame type %1").arg(type));
    h.type = Type(type);
    if (fromBits<quint16>(p + 6) != 0)
        return failure(Error::Malformed, QStringLiteral("reserved header bits set"));
    h.publisher = fromBits<quint64>(p + 8);
    h.sequence = fromBits<quint64>(p + 16);
    h.cycle = fromBits<qint64>(p + 24);
    h.publishedUs = fromBits<qint64>(p + 32);
    h.objects = fromBits<quint32>(p + 40);
    h.bodyBytes = fromBits<quint32>(p + 44);
    if (h.publisher == 0)
        return failure(Error::Malformed, QStringLiteral("publisher 0"));
    if (h.sequence == 0)
        return failure(Error::Malformed, QStringLiteral("frame number 0"));
    if (qint64(h.bodyBytes) + kHeaderBytes > maxBytes)
        return failure(Error::Oversized, QStringLiteral("announces %1 bytes, more than the %2 "
                                                        "accepted")
                                             .arg(qint64(h.bodyBytes) + kHeaderBytes)
                                             .arg(maxBytes));
    if (size - kHeaderBytes < qint64(h.bodyBytes))
        return failure(
            Error::Truncated,
            QStringLiteral("%1 of %2 body bytes").arg(size - kHeaderBytes).arg(h.bodyBytes));
    if (size - kHeaderBytes > qint64(h.bodyBytes))
        return failure(
            Error::Malformed,
            QStringLiteral("%1 bytes after the body").arg(size - kHeaderBytes - h.bodyBytes));
    if (header)
        *header = h;
    return Result();
}

ShareFrame::Result ShareFrame::apply(const char* data, qint64 size, ShareState* state,
                                     qint64 maxBytes) {
    Header h;
    Result ok = readHeader(data, size, &h, maxBytes);
    if (!ok.ok())
        return ok;
    if (h.type == Type::Delta) {
        if (state->sequence == 0)
            return failure(Error::NoBase,
                           QStringLiteral("delta %1 before any keyframe").arg(h.sequence));
        if (h.publisher != state->publisher)
            return failure(Error::SequenceGap,
                           QStringLiteral("delta %1 of another publisher").arg(h.sequence));
        if (h.sequence != state->sequence + 1)
            return failure(Error::SequenceGap, QStringLiteral("delta %1 does not follow frame %2")
                                                   .arg(h.sequence)
                                                   .arg(state->sequence));
    }
    Decoder decoder(h, reinterpret_cast<const uchar*>(data) + kHeaderBytes, state);
    ok = decoder.run(false);
    if (!ok.ok())
        return ok;
    return decoder.run(true);
}

QByteArray ShareFrame::subject(const QString& lab, const char* leaf) {
    return "orlavex." + lab.toUtf8() + '.' + leaf;
}

bool ShareFrame::isValidLab(const QString& lab) {
    // Dots, wildcards and blanks would make it several tokens, or a pattern
    // matching other labs' subjects; the broker's logins are named after it.
    if (lab.isEmpty() || lab.size() > 64)
        return false;
    for (QChar c : lab)
        if (!(c.unicode() < 128 && (c.isLetterOrNumber() || c == '_')))
            return false;
    return true;
}

std::vector<QByteArray> ShareFrame::split(const QByteArray& frame, qint64 maxMessage) {
    if (frame.size() <= maxMessage || maxMessage <= kPartHeaderBytes)
        return {frame};
    Header h;
    readHeader(frame, &h);
    const qint64 room = maxMessage - kPartHeaderBytes;
    const auto count = quint32((frame.size() + room - 1) / room);
    std::vector<QByteArray> parts;
    parts.reserve(count);
    for (quint32 i = 0; i < count; ++i) {
        QByteArray part;
        Writer w(part);
        for (char c : kPartMagic)
            w.put(quint8(c));
        w.put(kVersion);
        w.put(quint8(0));
        w.put(quint16(0));
        w.put(quint64(h.sequence));
        w.put(i);
        w.put(count);
        w.put(quint32(frame.size()));
        part.append(frame.constData() + qint64(i) * room,
                    int(qMin<qint64>(room, frame.size() - qint64(i) * room)));
        parts.push_back(part);
    }
    return parts;
}

void ShareFrame::Assembler::reset() {
    m_buffer.clear();
    m_next = 0;
    m_count = 0;
    m_total = 0;
}

ShareFrame::Result ShareFrame::Assembler::take(const char* data, qint64 size, const char** frame,
                                               qint64* frameSize) {
    *frame = nullptr;
    *frameSize = 0;
    if (size < 4 || std::memcmp(data, kPartMagic, 4) != 0) {
        // A whole frame (or no frame: apply says which); a frame under way
        // has lost the rest of its parts.
        const bool lost = m_count > 0;
        const quint64 sequence = m_sequence;
        reset();
        *frame = data;
        *frameSize = size;
        if (lost)
            return failure(Error::SequenceGap,
                           QStringLiteral("frame %1 lost its last parts").arg(sequence));
        return Result();
    }
    if (size < kPartHeaderBytes)
        return reset(), failure(Error::Truncated, QStringLiteral("a part of %1 bytes").arg(size));
    const auto* p = reinterpret_cast<const uchar*>(data);
    if (p[4] != kVersion)
        return reset(),
               failure(Error::WrongVersion, QStringLiteral("part of format version %1").arg(p[4]));
    if (p[5] != 0 || fromBits<quint16>(p + 6) != 0)
        return reset(), failure(Error::Malformed, QStringLiteral("reserved part bits set"));
    const quint64 sequence = fromBits<quint64>(p + 8);
    const quint32 index = fromBits<quint32>(p + 16);
    const quint32 count = fromBits<quint32>(p + 20);
    const quint32 total = fromBits<quint32>(p + 24);
    const qint64 bytes = size - kPartHeaderBytes;
    Result gap;
    if (index == 0) {
        if (m_count > 0)
            gap = failure(Error::SequenceGap,
                          QStringLiteral("frame %1 lost its last parts").arg(m_sequence));
        reset();
        if (qint64(total) > m_maxBytes)
            return failure(Error::Oversized, QStringLiteral("parts announce %1 bytes, more than "
                                                            "the %2 accepted")
                                                 .arg(total)
                                                 .arg(m_maxBytes));
        if (count < 2 || count > total)
            return failure(Error::Malformed,
                           QStringLiteral("%1 parts for %2 bytes").arg(count).arg(total));
        m_sequence = sequence;
        m_count = count;
        m_total = total;
    } else if (m_count == 0 || sequence != m_sequence || index != m_next || count != m_count ||
               total != m_total) {
        const bool under = m_count > 0;
        reset();
        return failure(under ? Error::SequenceGap : Error::Malformed,
                       QStringLiteral("part %1 of frame %2 out of place").arg(index).arg(sequence));
    }
    if (bytes <= 0 || qint64(m_buffer.size()) + bytes > qint64(m_total))
        return reset(),
               failure(Error::Malformed, QStringLiteral("parts of frame %1 exceed its %2 bytes")
                                             .arg(sequence)
                                             .arg(m_total));
    m_buffer.append(data + kPartHeaderBytes, int(bytes));
    m_next = index + 1;
    if (m_next < m_count)
        return gap;
    if (qint64(m_buffer.size()) != qint64(m_total)) {
        reset();
        return failure(Error::Truncated, QStringLiteral("parts of frame %1 fall short of its "
                                                        "%2 bytes")
                                             .arg(sequence)
                                             .arg(total));
    }
    *frame = m_buffer.constData();
    *frameSize = m_buffer.size();
    m_count = 0; // the buffer stays valid until the next call
    m_next = 0;
    return gap;
}

const char* ShareFrame::errorName(Error error) {
    switch (error) {
    case Error::None:
        return "none";
    case Error::Truncated:
        return "truncated";
    case Error::BadMagic:
        return "not a frame";
    case Error::WrongVersion:
        return "wrong version";
    case Error::Oversized:
        return "oversized";
    case Error::Malformed:
        return "malformed";
    case Error::SequenceGap:
        return "sequence gap";
    case Error::NoBase:
        return "no keyframe yet";
    }
    return "unknown";
}

} // namespace Orlavex
