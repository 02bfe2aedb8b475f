// The share frame codec: states survive a keyframe and every kind of delta bit
// for bit, and every kind of bad input is refused with its own error, leaving
// the state as it was.
#include <Orlavex/share/ShareFrame.h>

#include <QtEndian>
#include <QtTest>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>

using namespace Orlavex;
using Kind = ShareState::Kind;
using Object = ShareState::Object;
/// Changes the state a delta starts from (first) and the one it must reach.
using Mutation = std::function<void(ShareState& previous, ShareState& current)>;
using Error = ShareFrame::Error;

Q_DECLARE_METATYPE(Mutation)
Q_DECLARE_METATYPE(ShareFrame::Error)

namespace {

Object placed(int num, Kind kind, double seed) {
    Object o;
    o.num = num;
    o.kind = kind;
    for (int i = 0; i < 16; ++i)
        o.transform[std::size_t(i)] = seed + i * 0.125;
    for (int i = 0; i < 11; ++i)
        o.material[std::size_t(i)] = seed * 0.5 + i;
    o.mark(ShareState::Transform);
    o.mark(ShareState::Material);
    if (const int n = ShareState::geometryCount(kind)) {
        for (int i = 0; i < n; ++i)
            o.geometry.push_back(seed + i);
        o.mark(ShareState::Geometry);
    }
    return o;
}

/// One object of every kind, each section filled.
ShareState sample() {
    ShareState s;
    s.publisher = 0x5eed;
    s.sequence = 7;
    s.cycle = 41;
    int num = 1;
    for (int k = 1; k <= ShareState::kLastKind; ++k) {
        const Kind kind = Kind(k);
        Object o;
        if (kind == Kind::Trail) {
            o.num = num;
            o.kind = kind;
            o.trailFirst = 3;
            o.trailX = {0.5, 1.5, 2.5, 3.5};
            o.trailY = {-1, -2, -3, -4};
            o.mark(ShareState::Trail);
        } else if (kind == Kind::NumberField) {
            o.num = num;
            o.kind = kind;
            o.enabled = true;
            o.mark(ShareState::Enabled);
        } else if (kind == Kind::ReadOut) {
            o.num = num;
            o.kind = kind;
            o.value = 2.75;
            o.mark(ShareState::Value);
        } else {
            o = placed(num, kind, k);
        }
        if (kind == Kind::VectorText) {
            o.text = "t = 3.14 s";
            o.mark(ShareState::Text);
        }
        if (kind == Kind::PlanarGrid) {
            o.cells = {0.25f, 0.5f, 0.75f};
            o.vectors = {1, 2, 3, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0.2f};
            o.mark(ShareState::Cells);
            o.mark(ShareState::Vectors);
        }
        s.objects.push_back(o);
        num += 3;
    }
    return s;
}

Object& ofKind(ShareState& s, Kind kind) {
    for (Object& o : s.objects)
        if (o.kind == kind)
            return o;
    qFatal("no object of that kind");
}

ShareFrame::Type typeOf(const QByteArray& frame) {
    ShareFrame::Header h;
    return ShareFrame::readHeader(frame, &h).ok() ? h.type : ShareFrame::Type(0);
}

// --- Hand-made frames, laid out as docs/share.md says, for the bad inputs. ---

template <class T> QByteArray le(T v) {
    QByteArray b(int(sizeof(T)), '\0');
    qToLittleEndian(v, b.data());
    return b;
}
QByteArray f64s(std::initializer_list<double> values) {
    QByteArray b;
    for (double v : values) {
        quint64 bits;
        std::memcpy(&bits, &v, 8);
        b += le(bits);
    }
    return b;
}
QByteArray section(quint8 id, const QByteArray& body) {
    return le(id) + le(quint32(body.size())) + body;
}
QByteArray entry(qint32 num, Kind kind, quint8 sections, const QByteArray& content) {
    return le(num) + le(quint8(kind)) + le(sections) + le(quint16(0)) + content;
}
constexpr quint64 kPublisher = 77;
QByteArray frame(quint8 type, quint64 sequence, quint32 objects, const QByteArray& body,
                 quint8 version = 1, quint64 publisher = kPublisher) {
    return QByteArray("OLXF") + le(version) + le(type) + le(quint16(0)) + le(publisher) +
           le(sequence) + le(qint64(5)) + le(qint64(0)) + le(objects) + le(quint32(body.size())) +
           body;
}
const QByteArray kValue = section(ShareState::Value, f64s({1.5}));
QByteArray readOut(qint32 num = 1) {
    return entry(num, Kind::ReadOut, 1, kValue);
}
QByteArray trailWhole(quint64 first, quint32 count) {
    QByteArray b = le(quint8(0)) + le(first) + le(count);
    for (quint32 i = 0; i < 2 * count; ++i)
        b += f64s({double(i)});
    return section(ShareState::Trail, b);
}
QByteArray trailAppend(quint64 first, quint32 count, quint32 appended) {
    QByteArray b = le(quint8(1)) + le(first) + le(count) + le(appended);
    for (quint32 i = 0; i < 2 * appended; ++i)
        b += f64s({double(i)});
    return section(ShareState::Trail, b);
}

/// The state the delta rows of the bad-input table apply to: frame 4 with a
/// read-out under 1 and a trail under 2 holding points 10 to 12.
ShareState base() {
    ShareState s;
    s.publisher = kPublisher;
    s.sequence = 4;
    s.cycle = 4;
    Object r;
    r.num = 1;
    r.kind = Kind::ReadOut;
    r.value = 1;
    r.mark(ShareState::Value);
    Object t;
    t.num = 2;
    t.kind = Kind::Trail;
    t.trailFirst = 10;
    t.trailX = {1, 2, 3};
    t.trailY = {4, 5, 6};
    t.mark(ShareState::Trail);
    s.objects = {r, t};
    return s;
}

} // namespace

class TestShareFrame : public QObject {
    Q_OBJECT
private slots:
    void keyframeRoundTrip() {
        const ShareState s = sample();
        const QByteArray key = ShareFrame::encodeKey(s, 123456);
        ShareFrame::Header h;
        QVERIFY(ShareFrame::readHeader(key, &h).ok());
        QCOMPARE(h.type, ShareFrame::Type::Key);
        QCOMPARE(h.publisher, quint64(0x5eed));
        QCOMPARE(h.sequence, quint64(7));
        QCOMPARE(h.cycle, qint64(41));
        QCOMPARE(h.publishedUs, qint64(123456));
        QCOMPARE(int(h.objects), int(s.objects.size()));
        ShareState viewer;
        const auto r = ShareFrame::apply(key, &viewer);
        QVERIFY2(r.ok(), qPrintable(r.message));
        QVERIFY2(viewer == s, qPrintable(viewer.difference(s)));
        // A keyframe replaces whatever the viewer held.
        ShareState other = base();
        QVERIFY(ShareFrame::apply(key, &other).ok());
        QVERIFY2(other == s, qPrintable(other.difference(s)));
    }

    void deltaRoundTrip_data() {
        QTest::addColumn<Mutation>("change");
        QTest::addColumn<bool>("delta");      // false: the encoder must fall back to a keyframe
        QTest::addColumn<int>("objectsSent"); // objects in the frame (deltas only)
        auto move = [](ShareState&, ShareState& s) { ofKind(s, Kind::Sphere).transform[3] += 0.5; };
        QTest::newRow("nothing changed") << Mutation([](ShareState&, ShareState&) {}) << true << 0;
        QTest::newRow("transform") << Mutation(move) << true << 1;
        QTest::newRow("material") << Mutation([](ShareState&, ShareState& s) {
            ofKind(s, Kind::Cube).material[6] = 0.25;
        }) << true << 1;
        QTest::newRow("geometry") << Mutation([](ShareState&, ShareState& s) {
            ofKind(s, Kind::HalfPipe).geometry[2] = 9;
        }) << true << 1;
        QTest::newRow("negative zero") << Mutation([](ShareState&, ShareState& s) {
            ofKind(s, Kind::Cone).geometry[0] = 0.0;
            ofKind(s, Kind::Cylinder).geometry[0] = -0.0;
        }) << true << 2;
        QTest::newRow("nan bits") << Mutation([](ShareState&, ShareState& s) {
            ofKind(s, Kind::ReadOut).value = std::numeric_limits<double>::quiet_NaN();
        }) << true << 1;
        QTest::newRow("grid cells and vectors") << Mutation([](ShareState&, ShareState& s) {
            Object& g = ofKind(s, Kind::PlanarGrid);
            g.cells[1] = -4;
            g.vectors.back() = 0.5f;
        }) << true << 1;
        QTest::newRow("text") << Mutation([](ShareState&, ShareState& s) {
            ofKind(s, Kind::VectorText).text = "t = 3.15 s";
        }) << true << 1;
        QTest::newRow("enabled") << Mutation([](ShareState&, ShareState& s) {
            ofKind(s, Kind::NumberField).enabled = false;
        }) << true << 1;
        QTest::newRow("trail appends one") << Mutation([](ShareState&, ShareState& s) {
            Object& t = ofKind(s, Kind::Trail);
            t.trailX.push_back(4.5);
            t.trailY.push_back(-5);
        }) << true << 1;
        QTest::newRow("trail drops two, appends one") << Mutation([](ShareState&, ShareState& s) {
            Object& t = ofKind(s, Kind::Trail);
            t.trailFirst += 2;
            t.trailX = {2.5, 3.5, 4.5};
            t.trailY = {-3, -4, -5};
        }) << true << 1;
        QTest::newRow("trail replaced by a batch") << Mutation([](ShareState&, ShareState& s) {
            Object& t = ofKind(s, Kind::Trail);
            t.trailFirst += 4;
            t.trailX = {9, 8};
            t.trailY = {7, 6};
        }) << true << 1;
        QTest::newRow("trail passed by more than it holds")
            << Mutation([](ShareState&, ShareState& s) {
                   Object& t = ofKind(s, Kind::Trail);
                   t.trailFirst += 40;
                   t.trailX = {1};
                   t.trailY = {2};
               })
            << true << 1;
        QTest::newRow("trail rewritten in place")
            << Mutation([](ShareState&, ShareState& s) { ofKind(s, Kind::Trail).trailY[1] = 100; })
            << true << 1;
        QTest::newRow("trail emptied") << Mutation([](ShareState&, ShareState& s) {
            Object& t = ofKind(s, Kind::Trail);
            t.trailFirst += 4;
            t.trailX.clear();
            t.trailY.clear();
        }) << true << 1;
        QTest::newRow("section appears") << Mutation([](ShareState& before, ShareState&) {
            ofKind(before, Kind::ReadOut).sections = 0;
        }) << true << 1;
        QTest::newRow("section goes away")
            << Mutation([](ShareState&, ShareState& s) { ofKind(s, Kind::ReadOut).sections = 0; })
            << false << 0;
        QTest::newRow("object added") << Mutation([](ShareState&, ShareState& s) {
            Object o;
            o.num = 1000;
            o.kind = Kind::ReadOut;
            s.objects.push_back(o);
        }) << false << 0;
        QTest::newRow("kind changed") << Mutation([](ShareState&, ShareState& s) {
            Object& o = ofKind(s, Kind::Sphere);
            o.kind = Kind::Arrow;
            o.geometry.clear();
            o.sections &= ~(1u << ShareState::Geometry);
        }) << false << 0;
        QTest::newRow("frame skipped")
            << Mutation([](ShareState&, ShareState& s) { s.sequence += 1; }) << false << 0;
        QTest::newRow("another publisher")
            << Mutation([](ShareState&, ShareState& s) { s.publisher += 1; }) << false << 0;
    }
    void deltaRoundTrip() {
        QFETCH(Mutation, change);
        QFETCH(bool, delta);
        QFETCH(int, objectsSent);
        ShareState previous = sample();
        ShareState current = previous;
        current.sequence += 1;
        current.cycle += 3;
        change(previous, current);
        const QByteArray frame = ShareFrame::encodeDelta(previous, current, 9);
        QCOMPARE(typeOf(frame), delta ? ShareFrame::Type::Delta : ShareFrame::Type::Key);
        ShareState viewer = previous;
        const auto r = ShareFrame::apply(frame, &viewer);
        QVERIFY2(r.ok(), qPrintable(r.message));
        QVERIFY2(viewer == current, qPrintable(viewer.difference(current)));
        if (delta) {
            ShareFrame::Header h;
            QVERIFY(ShareFrame::readHeader(frame, &h).ok());
            QCOMPARE(int(h.objects), objectsSent);
            QVERIFY(frame.size() < ShareFrame::encodeKey(current).size());
        }
    }

    void trailDeltaCarriesOnlyNewPoints() {
        ShareState previous = sample();
        Object& t = ofKind(previous, Kind::Trail);
        t.trailX.assign(500, 1.0);
        t.trailY.assign(500, 2.0);
        ShareState current = previous;
        current.sequence += 1;
        Object& u = ofKind(current, Kind::Trail);
        u.trailFirst += 1;
        u.trailX.erase(u.trailX.begin());
        u.trailY.erase(u.trailY.begin());
        u.trailX.push_back(3);
        u.trailY.push_back(4);
        const QByteArray frame = ShareFrame::encodeDelta(previous, current);
        // Header, one object entry, one section: mode, first, count, appended, one point.
        QCOMPARE(frame.size(), ShareFrame::kHeaderBytes + 8 + 5 + 17 + 16);
    }

    void badInput_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<Error>("error");
        QTest::addColumn<qint64>("maxBytes");
        const qint64 big = ShareFrame::kDefaultMaxBytes;
        const QByteArray good = frame(1, 5, 1, readOut());
        auto row = [&](const char* name, const QByteArray& b, Error e, qint64 max = -1) {
            QTest::newRow(name) << b << e << (max < 0 ? big : max);
        };
        row("empty", QByteArray(), Error::Truncated);
        row("magic only", "OLX", Error::Truncated);
        row("not a frame", "{\"format\": \"orlavex-registry\"}", Error::BadMagic);
        row("header cut short", good.left(20), Error::Truncated);
        row("body cut short", good.left(good.size() - 1), Error::Truncated);
        row("bytes after the body", good + 'x', Error::Malformed);
        row("wrong version", frame(1, 5, 1, readOut(), 2), Error::WrongVersion);
        row("larger than accepted", good, Error::Oversized, good.size() - 1);
        const QByteArray huge = good.left(44) + le(quint32(0xfffffff0u));
        row("announces 4 GiB", huge, Error::Oversized);
        row("unknown type", frame(3, 5, 1, readOut()), Error::Malformed);
        QByteArray reserved = good;
        reserved[6] = 1;
        row("reserved header bits", reserved, Error::Malformed);
        row("frame number 0", frame(1, 0, 1, readOut()), Error::Malformed);
        row("publisher 0", frame(1, 5, 1, readOut(), 1, 0), Error::Malformed);
        row("more objects than bytes", frame(1, 5, 0xffffffffu, readOut()), Error::Malformed);
        row("object count too high", frame(1, 5, 2, readOut()), Error::Malformed);
        row("unknown kind", frame(1, 5, 1, entry(1, Kind(99), 1, kValue)), Error::Malformed);
        row("kind 0", frame(1, 5, 1, entry(1, Kind::None, 0, QByteArray())), Error::Malformed);
        row("section the kind lacks",
            frame(1, 5, 1, entry(1, Kind::Sphere, 1, section(ShareState::Text, "x"))),
            Error::Malformed);
        row("unknown section", frame(1, 5, 1, entry(1, Kind::ReadOut, 1, section(12, "x"))),
            Error::Malformed);
        row("section repeated", frame(1, 5, 1, entry(1, Kind::ReadOut, 2, kValue + kValue)),
            Error::Malformed);
        row("section longer than the body",
            frame(1, 5, 1, entry(1, Kind::ReadOut, 1, le(quint8(7)) + le(quint32(1000)))),
            Error::Malformed);
        row("transform too short",
            frame(1, 5, 1,
                  entry(1, Kind::Plane, 1, section(ShareState::Transform, f64s({1, 2, 3})))),
            Error::Malformed);
        row("geometry of the wrong length",
            frame(1, 5, 1, entry(1, Kind::Sphere, 1, section(ShareState::Geometry, f64s({1, 2})))),
            Error::Malformed);
        row("vectors not 4n + 1",
            frame(1, 5, 1,
                  entry(1, Kind::PlanarGrid, 1, section(ShareState::Vectors, QByteArray(8, 0)))),
            Error::Malformed);
        row("enabled neither 0 nor 1",
            frame(1, 5, 1,
                  entry(1, Kind::NumberField, 1, section(ShareState::Enabled, QByteArray(1, 2)))),
            Error::Malformed);
        row("objects out of order", frame(1, 5, 2, readOut(3) + readOut(2)), Error::Malformed);
        row("object repeated", frame(1, 5, 2, readOut(3) + readOut(3)), Error::Malformed);
        row("keyframe trail appends",
            frame(1, 5, 1, entry(2, Kind::Trail, 1, trailAppend(10, 3, 0))), Error::Malformed);
        row("unknown trail mode",
            frame(
                1, 5, 1,
                entry(2, Kind::Trail, 1,
                      section(ShareState::Trail, le(quint8(7)) + le(quint64(0)) + le(quint32(0))))),
            Error::Malformed);
        row("trail count and points disagree",
            frame(
                1, 5, 1,
                entry(2, Kind::Trail, 1,
                      section(ShareState::Trail, le(quint8(0)) + le(quint64(0)) + le(quint32(3))))),
            Error::Malformed);
        row("trail index overflows",
            frame(1, 5, 1, entry(2, Kind::Trail, 1, trailWhole(~quint64(0), 1))), Error::Malformed);
        // Deltas, applied to base(): frame 4.
        row("delta skips a frame", frame(2, 6, 1, readOut()), Error::SequenceGap);
        row("delta repeats a frame", frame(2, 4, 1, readOut()), Error::SequenceGap);
        row("delta of another publisher", frame(2, 5, 1, readOut(), 1, kPublisher + 1),
            Error::SequenceGap);
        row("delta for an unknown object", frame(2, 5, 1, readOut(9)), Error::Malformed);
        row("delta changes a kind",
            frame(2, 5, 1,
                  entry(1, Kind::NumberField, 1, section(ShareState::Enabled, QByteArray(1, 1)))),
            Error::Malformed);
        row("trail keeps too few", frame(2, 5, 1, entry(2, Kind::Trail, 1, trailAppend(11, 4, 1))),
            Error::Malformed);
        row("trail appends more than it holds",
            frame(2, 5, 1, entry(2, Kind::Trail, 1, trailAppend(11, 1, 2))), Error::Malformed);
        row("trail goes back", frame(2, 5, 1, entry(2, Kind::Trail, 1, trailAppend(9, 4, 0))),
            Error::Malformed);
        // Two good frames, each glued to a bad one: nothing of either applies.
        row("good object, then a bad one", frame(2, 5, 2, readOut(1) + readOut(9)),
            Error::Malformed);
    }
    void badInput() {
        QFETCH(QByteArray, bytes);
        QFETCH(Error, error);
        QFETCH(qint64, maxBytes);
        ShareState state = base();
        const ShareState before = state;
        const auto r = ShareFrame::apply(bytes, &state, maxBytes);
        QCOMPARE(ShareFrame::errorName(r.error), ShareFrame::errorName(error));
        QVERIFY(!r.message.isEmpty());
        QVERIFY2(state == before, qPrintable(state.difference(before)));
    }

    void deltaWithoutKeyframe() {
        ShareState empty;
        const auto r = ShareFrame::apply(frame(2, 1, 0, QByteArray()), &empty);
        QCOMPARE(r.error, Error::NoBase);
    }

    void handMadeFramesApply() {
        // The documented layout, written by hand, is what the decoder reads.
        ShareState state = base();
        const auto r = ShareFrame::apply(
            frame(2, 5, 2, readOut(1) + entry(2, Kind::Trail, 1, trailAppend(11, 3, 1))), &state);
        QVERIFY2(r.ok(), qPrintable(r.message));
        const Object* t = state.find(2);
        QCOMPARE(t->trailFirst, quint64(11));
        QCOMPARE(t->trailX, (std::vector<double>{2, 3, 0}));
        QCOMPARE(t->trailY, (std::vector<double>{5, 6, 1}));
        QCOMPARE(state.find(1)->value, 1.5);
        QCOMPARE(state.sequence, quint64(5));
        QCOMPARE(state.cycle, qint64(5));
    }

    void corruptedFramesNeverCrash() {
        // Every single-byte change and every cut of a keyframe and a delta is
        // either refused, leaving the state alone, or gives some valid state.
        ShareState previous = sample();
        ShareState current = previous;
        current.sequence += 1;
        ofKind(current, Kind::Trail).trailX.push_back(1);
        ofKind(current, Kind::Trail).trailY.push_back(1);
        ofKind(current, Kind::Sphere).transform[0] = 3;
        const QByteArray frames[] = {ShareFrame::encodeKey(previous),
                                     ShareFrame::encodeDelta(previous, current)};
        std::mt19937 random(12345);
        for (const QByteArray& good : frames) {
            for (int cut = 0; cut < good.size(); ++cut) {
                ShareState s = previous;
                QVERIFY(!ShareFrame::apply(good.left(cut), &s).ok());
                QVERIFY(s == previous);
            }
            for (int i = 0; i < 3000; ++i) {
                QByteArray bad = good;
                const int at = int(random() % unsigned(bad.size()));
                bad[at] = char(bad[at] ^ char(1 + random() % 255));
                ShareState s = previous;
                if (!ShareFrame::apply(bad, &s).ok())
                    QVERIFY(s == previous);
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestShareFrame)
#include "tst_shareframe.moc"
