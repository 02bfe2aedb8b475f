#include "RecordLayout.h"

#include <Orlavex/common/SceneLock.h>
#include <Orlavex/controls/DisplayDouble.h>
#include <Orlavex/controls/NumberField.h>
#include <Orlavex/display/TrailQwt.h>
#include <Orlavex/link/CommThread.h>
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

#include <algorithm>
#include <mutex>

const float* RecordContext::parseFloats(int count) {
    socket->processInput(message, floats, count, ints, 0);
    return floats->constData();
}

void RecordContext::parseDoubles(int count) {
    std::lock_guard<std::mutex> guard(thread->handOverLock());
    doubles->resize(0); // keeps its room
    socket->processInput(message, doubles, count, ints, 0);
}

void RecordContext::emitTrail(TrailQwt* trail) {
    emit thread->trailUpdated(trail, doubles);
    // The blocking call reports its end through a futex that race checkers
    // cannot see. The receiver holds the hand-over lock while it takes the
    // points; taking it once here shows them that its reading of the call's
    // arguments (on this thread's stack) came before this thread goes on.
    std::lock_guard<std::mutex> seen(thread->handOverLock());
}

void RecordContext::queueWidgetUpdate(NumberField* field, DisplayDouble* readOut, double value) {
    thread->queueWidgetUpdate(field, readOut, value);
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

/// Common part of the positioned block, 9 numbers: absolute position and
/// origin, then turns by increments.
void applyPlacement(DrawableSource* o, const float* v) {
    o->setPosition(v[0], v[1], v[2]);
    o->setOrigin(v[3], v[4], v[5]);
    o->rotateX(v[6]);
    o->rotateY(v[7]);
    o->rotateZ(v[8]);
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

/// The solid rule: positioned block of L numbers (common part, then the
/// kind's tail) when p is 1, then the colour block when c is 1.
template <class T, int L, void (*Tail)(T*, const float*)>
void applySolid(RecordContext& c, SendClass* object) {
    T* o = static_cast<T*>(object);
    const int p = o->getInteractivelyPositioned() == 1 ? 1 : 0;
    const int col = o->getInteractivelyColored() == 1 ? 1 : 0;
    if (p + col == 0)
        return;
    const float* v = c.parseFloats(L * p + 11 * col);
    SceneLock lock;
    if (p) {
        applyPlacement(o, v);
        Tail(o, v + 9);
        v += L;
    }
    if (col)
        applyColour(o, v);
}

/// Text: the shown number (t), the common positioned block (p), colours (c).
void applyText(RecordContext& c, SendClass* object) {
    auto* o = static_cast<VectorText*>(object);
    const int t = o->getInteractiveValue() == 1 ? 1 : 0;
    const int p = o->getInteractivelyPositioned() == 1 ? 1 : 0;
    const int col = o->getInteractivelyColored() == 1 ? 1 : 0;
    if (t + p + col == 0)
        return;
    const float* v = c.parseFloats(t + 9 * p + 11 * col);
    SceneLock lock;
    if (t) {
        o->setText(double(v[0]));
        v += 1;
    }
    if (p) {
        applyPlacement(o, v);
        v += 9;
    }
    if (col)
        applyColour(o, v);
}

/// Grid: positioned block (15), vector block (4n + 1), cell colours (n).
/// The blocks are taken from the front of the parsed numbers one after the other.
void applyGrid(RecordContext& c, SendClass* object) {
    auto* g = static_cast<PlanarGrid*>(object);
    const int n = g->getCellNumber();
    const int p = g->getInteractivelyPositioned() == 1 ? 1 : 0;
    const int v = g->getDisplayVectors() == 1 ? 1 : 0;
    const int col = g->getInteractivelyColored() == 1 ? 1 : 0;
    if (p + v + col == 0)
        return;
    const float* x = c.parseFloats(15 * p + (4 * n + 1) * v + n * col);
    SceneLock lock;
    if (p) {
        applyPlacement(g, x);
        g->setLengths(x[9], x[10], x[11]);
        g->setx0y0z0(x[12], x[13], x[14]); // shows from the next rebuild on
        x += 15;
    }
    if (v) {
        // A grid of more than 300000 cells has more vector components than the
        // scratch buffer's first size: the buffer grows, once, and stays grown.
        if (c.scratch->size() < size_t(3) * size_t(n))
            c.scratch->resize(size_t(3) * size_t(n));
        float* scratch = c.scratch->data();
        std::copy(x, x + n, scratch);
        g->setVectorMagnitude(scratch);
        std::copy(x + n, x + 4 * n, scratch);
        g->setVectors(scratch);
        g->setScaleVector(x[4 * n]);
        x += 4 * n + 1;
    }
    if (col) {
        c.gridCopy->assign(x, x + n);
        g->setCellColors(*c.gridCopy);
    }
}

/// Trail: k x values then k y values, in double precision, handed to the GUI
/// thread whatever the flags (k = 0 hands over an empty vector).
void applyTrail(RecordContext& c, SendClass* object) {
    auto* t = static_cast<TrailQwt*>(object);
    c.parseDoubles(2 * std::max(0, t->getNReceivedPoints()));
    c.emitTrail(t);
}

/// Number field: its enabled state, when its enable flag is above 0.
void applyNumberField(RecordContext& c, SendClass* object) {
    auto* f = static_cast<NumberField*>(object);
    if (f->getEnableInt() <= 0)
        return;
    c.queueWidgetUpdate(f, nullptr, double(c.parseFloats(1)[0]));
}

/// Read-out: one number.
void applyReadOut(RecordContext& c, SendClass* object) {
    c.queueWidgetUpdate(nullptr, static_cast<DisplayDouble*>(object), double(c.parseFloats(1)[0]));
}

template <class T> bool is(SendClass* o) {
    return dynamic_cast<T*>(o) != nullptr;
}

struct Kind {
    bool (*matches)(SendClass*);
    RecordLayout::Apply apply;
};

// The kinds, in the order in which they are tested. Kinds that are not here
// (Line, ScalarBar, RadioButton, ...) have their records read and ignored.
const Kind kKinds[] = {
    {is<PlanarGrid>, applyGrid},
    {is<TrailQwt>, applyTrail},
    {is<Sphere>, applySolid<Sphere, 10, sphereTail>},
    {is<Cylinder>, applySolid<Cylinder, 11, cylinderTail>},
    {is<Cube>, applySolid<Cube, 12, cubeTail>},
    {is<RegularPolygon>, applySolid<RegularPolygon, 13, regularPolygonTail>},
    {is<PolygonC>, applySolid<PolygonC, 9, noTail<PolygonC>>},
    {is<DiskSource>, applySolid<DiskSource, 11, diskTail>},
    {is<Arrow>, applySolid<Arrow, 10, arrowTail>},
    {is<Cone>, applySolid<Cone, 11, coneTail>},
    {is<HalfPipe>, applySolid<HalfPipe, 12, halfPipeTail>},
    {is<Plane>, applySolid<Plane, 9, noTail<Plane>>},
    {is<VectorText>, applyText},
    {is<NumberField>, applyNumberField},
    {is<DisplayDouble>, applyReadOut},
    {is<File3DSImporter>, applySolid<File3DSImporter, 9, noTail<File3DSImporter>>},
};

} // namespace

RecordLayout::Apply RecordLayout::find(SendClass* object) {
    if (!object)
        return nullptr;
    for (const Kind& kind : kKinds)
        if (kind.matches(object))
            return kind.apply;
    return nullptr;
}
