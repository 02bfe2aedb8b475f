#include "RecordLayout.h"

#include <Orlavex/common/LogStream.h>
#include <Orlavex/common/SceneLock.h>
#include <Orlavex/controls/DisplayDouble.h>
#include <Orlavex/controls/NumberField.h>
#include <Orlavex/display/TrailQwt.h>
#include <Orlavex/link/SocketClass.h>
#include <Orlavex/scene/Arrow.h>
#include <Orlavex/scene/Cone.h>
#include <Orlavex/scene/Cube.h>
#include <Orlavex/scene/Cylinder.h>
#include <Orlavex/scene/DiskSource.h>
#include <Orlavex/scene/File3DSImporter.h>
#include <Orlavex/scene/HalfPipe.h>
#include <Orlavex/scene/PlanarGrid.h>
#include <Orlavex/scene/Plane.h>
#include <Orlavex/scene/PolygonC.h>
#include <Orlavex/scene/RegularPolygon.h>
#include <Orlavex/scene/Sphere.h>
#include <Orlavex/scene/VectorText.h>

#include <QJsonArray>

#include <algorithm>
#include <cstdlib>
#include <cxxabi.h>
#include <typeinfo>
#include <chrono>
#include <cmath>

namespace Orlavex {
namespace detail {

namespace {
qint64 nowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
// Number buffers this large are given back after their record, so that one
// huge record does not stay resident (the socket gives back its own).
constexpr int kLargeNumbers = 1024 * 1024;
} // namespace

const float* RecordContext::parseFloats(int count) {
    const qint64 t = nowNs();
    socket->processInput(payload, payloadLength, &floats, count, &ints, 0);
    parseNs += nowNs() - t;
    return floats.constData();
}

const double* RecordContext::parseDoubles(int count) {
    const qint64 t = nowNs();
    socket->processInput(payload, payloadLength, &doubles, count, &ints, 0);
    parseNs += nowNs() - t;
    return doubles.constData();
}

void RecordContext::apply(int num) {
    const auto target = targets.constFind(num);
    if (target == targets.cend() || !target->apply)
        return; // unknown num fields and ignored kinds: read and dropped
    const qint64 start = nowNs();
    const qint64 parsedBefore = parseNs;
    target->apply(*this, target->object);
    const qint64 parsed = parseNs - parsedBefore;
    stats.applyMs += double(nowNs() - start - parsed) * 1e-6;
    stats.parseMs += double(parsed) * 1e-6;
    ++stats.records;
    const int amiss = socket->takeParseAnomalies() + nonFinite;
    QString what = socket->takeAnomalyText();
    if (what.isEmpty() && nonFinite > 0)
        what = QStringLiteral("a value that is not finite was not applied");
    nonFinite = 0;
    if (amiss > 0) {
        stats.anomalies[num] += amiss;
        report(num, what);
    }
}

void RecordContext::report(int num, const QString& what) {
    // Standard output carries the bare "error process input" per field;
    // here the record and the cause are said once per record and cause, so
    // that a server sending the same fault every cycle does not flood
    // standard error (the per-cycle count stays in the statistics).
    QString& last = reported[num];
    if (last == what)
        return;
    last = what;
    LogStream::toStandardError(
        QStringLiteral("record %1: %2\n").arg(num).arg(what).toLocal8Bit());
}

void HandOver::apply() {
    for (const Widget& w : widgets) {
        if (w.field)
            w.field->setEnabled(w.value > 0.5);
        else if (w.readOut)
            w.readOut->setValue(w.value);
    }
    for (Trail& t : trails)
        t.trail->insertXY(&t.points); // the batch's own copy
}

void RecordContext::releaseLargeBuffers() {
    socket->releaseReceiveBuffer();
    if (floats.capacity() > kLargeNumbers)
        floats = QVector<float>();
    if (doubles.capacity() > kLargeNumbers)
        doubles = QVector<double>();
}

namespace {

// Numbers arrive in single precision; a setter that takes double receives the
// float widened, so a value reaches the scene with float precision.

/// Colour block, 11 numbers, the same for every kind that has one.
void applyColour(DrawableSource* o, const float* v) {
    o->setColor(v[0], v[1], v[2]);
    o->setDiffuse(v[3]);
    o->setSpecular(v[4]);
    o->setSpecularPower(v[5]);
    o->setOpacity(v[6]);
    o->setEdgeVisibility(v[7]);
    o->setEdgeColor(v[8], v[9], v[10]);
}

/// Turns are increments: one that is not finite would leave the orientation
/// NaN for good, so it is skipped and counted instead.
void turn(RecordContext& c, DrawableSource* o, void (DrawableSource::*rotate)(double), float a) {
    if (std::isfinite(a))
        (o->*rotate)(a);
    else
        ++c.nonFinite;
}

/// Common part of the positioned block, 9 numbers: absolute position and
/// origin, then turns by increments.
void applyPlacement(RecordContext& c, DrawableSource* o, const float* v) {
    o->setPosition(v[0], v[1], v[2]);
    o->setOrigin(v[3], v[4], v[5]);
    turn(c, o, &DrawableSource::rotateX, v[6]);
    turn(c, o, &DrawableSource::rotateY, v[7]);
    turn(c, o, &DrawableSource::rotateZ, v[8]);
}

// Tails of the positioned block (numbers 9 on), one per kind.
void sphereTail(Sphere* o, const float* t) {
    o->setRadius(t[0]);
}
void cylinderTail(Cylinder* o, const float* t) {
    o->setRadius(t[0]);
    o->setHeight(t[1]);
}
void cubeTail(Cube* o, const float* t) {
    o->setXLength(t[0]);
    o->setYLength(t[1]);
    o->setZLength(t[2]);
}
void regularPolygonTail(RegularPolygon* o, const float* t) {
    o->setNormal(t[0], t[1], t[2]);
    o->setRadius(t[3]);
}
void diskTail(DiskSource* o, const float* t) {
    o->setInnerRadius(t[0]);
    o->setOuterRadius(t[1]);
}
void arrowTail(Arrow* o, const float* t) {
    o->setScale(double(t[0]));
}
void coneTail(Cone* o, const float* t) {
    o->setRadius(t[0]);
    o->setHeight(t[1]);
}
void halfPipeTail(HalfPipe* o, const float* t) {
    o->setTube(t[0], t[1], t[2]); // radius min, radius max, length
}
template <class T> void noTail(T*, const float*) {}

int flag(int value) {
    return value == 1 ? 1 : 0;
}

/// The solid rule: positioned block of L numbers (common part, then the
/// kind's tail) when p is 1, then the colour block when c is 1.
template <class T, int L, void (*Tail)(T*, const float*)>
void applySolid(RecordContext& c, SendClass* object) {
    T* o = static_cast<T*>(object);
    const int p = flag(o->getInteractivelyPositioned());
    const int col = flag(o->getInteractivelyColored());
    if (p + col == 0)
        return;
    const float* v = c.parseFloats(L * p + 11 * col);
    SceneLock lock;
    if (p) {
        applyPlacement(c, o, v);
        Tail(o, v + 9);
        v += L;
    }
    if (col)
        applyColour(o, v);
}

/// Text: the shown number (t), the common positioned block (p), colours (c).
void applyText(RecordContext& c, SendClass* object) {
    auto* o = static_cast<VectorText*>(object);
    const int t = flag(o->getInteractiveValue());
    const int p = flag(o->getInteractivelyPositioned());
    const int col = flag(o->getInteractivelyColored());
    if (t + p + col == 0)
        return;
    const float* v = c.parseFloats(t + 9 * p + 11 * col);
    SceneLock lock;
    if (t) {
        o->setText(double(v[0]));
        v += 1;
    }
    if (p) {
        applyPlacement(c, o, v);
        v += 9;
    }
    if (col)
        applyColour(o, v);
}

/// Grid: positioned block (15), vector block (4n + 1), cell colours (n).
/// The blocks are taken from the front of the parsed numbers one after the
/// other and handed to the grid where they lie: no copy per record.
void applyGrid(RecordContext& c, SendClass* object) {
    auto* g = static_cast<PlanarGrid*>(object);
    const int n = g->getCellNumber();
    const int p = flag(g->getInteractivelyPositioned());
    const int v = flag(g->getDisplayVectors());
    const int col = flag(g->getInteractivelyColored());
    if (p + v + col == 0)
        return;
    const float* x = c.parseFloats(15 * p + (4 * n + 1) * v + n * col);
    SceneLock lock;
    if (p) {
        applyPlacement(c, g, x);
        g->setLengths(x[9], x[10], x[11]);
        g->setx0y0z0(x[12], x[13], x[14]); // shows from the next rebuild on
        x += 15;
    }
    if (v) {
        g->setVectorMagnitude(x);
        g->setVectors(x + n);
        g->setScaleVector(x[4 * n]);
        x += 4 * n + 1;
    }
    if (col)
        g->setCellColors(x, n);
}

/// Trail: k x values then k y values, in double precision, copied into the
/// cycle's hand-over whatever the flags (k = 0 hands over an empty batch). A
/// batch with a point that is not finite is not handed over: such a point
/// would fix the plot's range until it left the buffer.
void applyTrail(RecordContext& c, SendClass* object) {
    auto* t = static_cast<TrailQwt*>(object);
    const int count = 2 * std::max(0, t->getNReceivedPoints());
    const double* v = c.parseDoubles(count);
    const int bad = int(std::count_if(v, v + count, [](double d) { return !std::isfinite(d); }));
    if (bad > 0) {
        c.nonFinite += bad;
        return;
    }
    c.batch.trails.push_back({t, QVector<double>(v, v + count)});
}

/// Number field: its enabled state, when its enable flag is above 0.
void applyNumberField(RecordContext& c, SendClass* object) {
    auto* f = static_cast<NumberField*>(object);
    if (f->getEnableInt() <= 0)
        return;
    c.batch.widgets.push_back({f, nullptr, double(c.parseFloats(1)[0])});
}

/// Read-out: one number.
void applyReadOut(RecordContext& c, SendClass* object) {
    c.batch.widgets.push_back(
        {nullptr, static_cast<DisplayDouble*>(object), double(c.parseFloats(1)[0])});
}

// --- The registry description: each kind's flags and field names. ---

struct Fields {
    QJsonObject flags;
    QJsonArray list;
    int count = 0;
    const char* precision = "float";
    void add(const QString& name, int n = 1) {
        list.append(QJsonObject{{"name", name}, {"count", n}});
        count += n;
    }
    void addAll(std::initializer_list<const char*> names) {
        for (const char* name : names)
            add(QString::fromLatin1(name));
    }
    void placement() {
        addAll({"position.x", "position.y", "position.z", "origin.x", "origin.y", "origin.z",
                "turn.x", "turn.y", "turn.z"});
    }
    void colour() {
        addAll({"color.r", "color.g", "color.b", "diffuse", "specular", "specularPower", "opacity",
                "edgeVisibility", "edgeColor.r", "edgeColor.g", "edgeColor.b"});
    }
};

using Describe = void (*)(SendClass*, Fields&);

template <const char* const* Tail, int N> void describeSolid(SendClass* object, Fields& f) {
    auto* o = dynamic_cast<Drawable*>(object);
    const int p = flag(o->getInteractivelyPositioned());
    const int col = flag(o->getInteractivelyColored());
    f.flags = {{"positioned", p}, {"colored", col}};
    if (p) {
        f.placement();
        for (int i = 0; i < N; ++i)
            f.add(QString::fromLatin1(Tail[i]));
    }
    if (col)
        f.colour();
}

void describeText(SendClass* object, Fields& f) {
    auto* o = static_cast<VectorText*>(object);
    const int t = flag(o->getInteractiveValue());
    const int p = flag(o->getInteractivelyPositioned());
    const int col = flag(o->getInteractivelyColored());
    f.flags = {{"value", t}, {"positioned", p}, {"colored", col}};
    if (t)
        f.add("value");
    if (p)
        f.placement();
    if (col)
        f.colour();
}

void describeGrid(SendClass* object, Fields& f) {
    auto* g = static_cast<PlanarGrid*>(object);
    const int n = g->getCellNumber();
    const int p = flag(g->getInteractivelyPositioned());
    const int v = flag(g->getDisplayVectors());
    const int col = flag(g->getInteractivelyColored());
    f.flags = {{"positioned", p}, {"vectors", v}, {"colored", col}, {"cells", n}};
    if (p) {
        f.placement();
        f.addAll({"length.x", "length.y", "length.z", "corner.x", "corner.y", "corner.z"});
    }
    if (v) {
        f.add("magnitudes", n);
        f.add("vectors", 3 * n);
        f.add("vectorScale");
    }
    if (col)
        f.add("cells", n);
}

void describeTrail(SendClass* object, Fields& f) {
    const int k = std::max(0, static_cast<TrailQwt*>(object)->getNReceivedPoints());
    f.precision = "double";
    f.flags = {{"receivedPoints", static_cast<TrailQwt*>(object)->getNReceivedPoints()}};
    f.add("x", k);
    f.add("y", k);
}

void describeNumberField(SendClass* object, Fields& f) {
    const int enable = static_cast<NumberField*>(object)->getEnableInt();
    f.flags = {{"enable", enable}};
    if (enable > 0)
        f.add("enabled");
}

void describeReadOut(SendClass*, Fields& f) {
    f.add("value");
}

template <class T> bool is(SendClass* o) {
    return dynamic_cast<T*>(o) != nullptr;
}

constexpr const char* kNoTail[] = {nullptr};
constexpr const char* kRadius[] = {"radius"};
constexpr const char* kRadiusHeight[] = {"radius", "height"};
constexpr const char* kLengths[] = {"length.x", "length.y", "length.z"};
constexpr const char* kNormalRadius[] = {"normal.x", "normal.y", "normal.z", "radius"};
constexpr const char* kRadii[] = {"innerRadius", "outerRadius"};
constexpr const char* kScale[] = {"scale"};
constexpr const char* kTube[] = {"radiusMin", "radiusMax", "length"};

struct Kind {
    bool (*matches)(SendClass*);
    RecordContext::Apply apply;
    const char* name;
    Describe describe;
};

// The kinds, in the order in which they are tested. Kinds that are not here
// (Line, ScalarBar, RadioButton, ...) have their records read and ignored.
const Kind kKinds[] = {
    {is<PlanarGrid>, applyGrid, "PlanarGrid", describeGrid},
    {is<TrailQwt>, applyTrail, "TrailQwt", describeTrail},
    {is<Sphere>, applySolid<Sphere, 10, sphereTail>, "Sphere", describeSolid<kRadius, 1>},
    {is<Cylinder>, applySolid<Cylinder, 11, cylinderTail>, "Cylinder",
     describeSolid<kRadiusHeight, 2>},
    {is<Cube>, applySolid<Cube, 12, cubeTail>, "Cube", describeSolid<kLengths, 3>},
    {is<RegularPolygon>, applySolid<RegularPolygon, 13, regularPolygonTail>, "RegularPolygon",
     describeSolid<kNormalRadius, 4>},
    {is<PolygonC>, applySolid<PolygonC, 9, noTail<PolygonC>>, "PolygonC",
     describeSolid<kNoTail, 0>},
    {is<DiskSource>, applySolid<DiskSource, 11, diskTail>, "DiskSource", describeSolid<kRadii, 2>},
    {is<Arrow>, applySolid<Arrow, 10, arrowTail>, "Arrow", describeSolid<kScale, 1>},
    {is<Cone>, applySolid<Cone, 11, coneTail>, "Cone", describeSolid<kRadiusHeight, 2>},
    {is<HalfPipe>, applySolid<HalfPipe, 12, halfPipeTail>, "HalfPipe", describeSolid<kTube, 3>},
    {is<Plane>, applySolid<Plane, 9, noTail<Plane>>, "Plane", describeSolid<kNoTail, 0>},
    {is<VectorText>, applyText, "VectorText", describeText},
    {is<NumberField>, applyNumberField, "NumberField", describeNumberField},
    {is<DisplayDouble>, applyReadOut, "DisplayDouble", describeReadOut},
    {is<File3DSImporter>, applySolid<File3DSImporter, 9, noTail<File3DSImporter>>,
     "File3DSImporter", describeSolid<kNoTail, 0>},
};

const Kind* kindOf(SendClass* object) {
    if (!object)
        return nullptr;
    for (const Kind& kind : kKinds)
        if (kind.matches(object))
            return &kind;
    return nullptr;
}

} // namespace

RecordContext::Apply RecordLayout::find(SendClass* object) {
    const Kind* kind = kindOf(object);
    return kind ? kind->apply : nullptr;
}

QJsonObject RecordLayout::describe(int num, SendClass* object) {
    const Kind* kind = kindOf(object);
    QJsonObject out{{"num", num}};
    if (!kind) {
        // Its records are read and ignored, whatever they carry.
        QString name = QStringLiteral("none");
        if (object) {
            int status = 0;
            char* plain = abi::__cxa_demangle(typeid(*object).name(), nullptr, nullptr, &status);
            name = QString::fromLatin1(status == 0 ? plain : typeid(*object).name());
            std::free(plain);
            name.remove(QStringLiteral("Orlavex::"));
        }
        out.insert("kind", name);
        out.insert("precision", "none");
        out.insert("flags", QJsonObject());
        out.insert("fields", QJsonArray());
        out.insert("count", 0);
        out.insert("ignored", true);
        return out;
    }
    Fields f;
    kind->describe(object, f);
    out.insert("kind", QString::fromLatin1(kind->name));
    out.insert("precision", QString::fromLatin1(f.precision));
    out.insert("flags", f.flags);
    out.insert("fields", f.list);
    out.insert("count", f.count);
    return out;
}

} // namespace detail
} // namespace Orlavex
