#include "ShareCapture.h"

#include "RecordLayout.h"

#include <Orlavex/common/SceneLock.h>
#include <Orlavex/controls/DisplayDouble.h>
#include <Orlavex/controls/NumberField.h>
#include <Orlavex/display/TrailQwt.h>
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

#include <vtkActor.h>
#include <vtkDiskSource.h>
#include <vtkFloatArray.h>
#include <vtkProperty.h>
#include <vtkRegularPolygonSource.h>
#include <vtkVectorText.h>

#include <algorithm>

namespace Orlavex {
namespace detail {

namespace {

using Object = ShareState::Object;
using Kind = ShareState::Kind;

/// What every placed kind shares: the actor's matrix (turns are increments,
/// so only the orientation they reached is exact) and its material.
void placement(DrawableSource* o, Object& s) {
    o->getActor()->GetMatrix(s.transform.data());
    vtkProperty* p = o->getProperty();
    // The diffuse colour is what setColor set; GetColor would mix it with the
    // ambient and specular colours by their coefficients.
    p->GetDiffuseColor(s.material.data());
    s.material[3] = p->GetDiffuse();
    s.material[4] = p->GetSpecular();
    s.material[5] = p->GetSpecularPower();
    s.material[6] = p->GetOpacity();
    s.material[7] = p->GetEdgeVisibility() ? 1 : 0;
    p->GetEdgeColor(s.material.data() + 8);
    s.mark(ShareState::Transform);
    s.mark(ShareState::Material);
}

void geometry(Object& s, std::initializer_list<double> values) {
    s.geometry.assign(values);
    s.mark(ShareState::Geometry);
}

// One capture per kind; the kinds without shape parameters of their own
// have only the placement.
template <class T> void placed(SendClass* o, Object& s) {
    placement(static_cast<T*>(o), s);
}
void sphere(SendClass* object, Object& s) {
    auto* o = static_cast<Sphere*>(object);
    placement(o, s);
    geometry(s, {o->getRadius()});
}
void cube(SendClass* object, Object& s) {
    auto* o = static_cast<Cube*>(object);
    placement(o, s);
    geometry(s, {o->getXLength(), o->getYLength(), o->getZLength()});
}
void cylinder(SendClass* object, Object& s) {
    auto* o = static_cast<Cylinder*>(object);
    placement(o, s);
    geometry(s, {o->getRadius(), o->getHeight()});
}
void cone(SendClass* object, Object& s) {
    auto* o = static_cast<Cone*>(object);
    placement(o, s);
    geometry(s, {o->getRadius(), o->getHeight()});
}
void disk(SendClass* object, Object& s) {
    auto* o = static_cast<DiskSource*>(object);
    placement(o, s);
    geometry(s, {o->getSource()->GetInnerRadius(), o->getSource()->GetOuterRadius()});
}
void regularPolygon(SendClass* object, Object& s) {
    auto* o = static_cast<RegularPolygon*>(object);
    placement(o, s);
    const double* n = o->getSource()->GetNormal();
    geometry(s, {n[0], n[1], n[2], o->getSource()->GetRadius()});
}
void halfPipe(SendClass* object, Object& s) {
    auto* o = static_cast<HalfPipe*>(object);
    placement(o, s);
    geometry(s, {o->getRadiusMin(), o->getRadiusMax(), o->getLength()});
}
void text(SendClass* object, Object& s) {
    auto* o = static_cast<VectorText*>(object);
    placement(o, s);
    const char* shown = o->getSource()->GetText();
    s.text.assign(shown ? shown : "");
    s.mark(ShareState::Text);
}
/// The grid: its values straight from the arrays the records wrote, as floats.
void grid(SendClass* object, Object& s) {
    auto* g = static_cast<PlanarGrid*>(object);
    placement(g, s);
    geometry(s, {g->getLengthx(), g->getLengthy(), g->getLengthz(), g->getX0(), g->getY0(),
                 g->getZ0(), double(g->getNx()), double(g->getNy()), double(g->getNz())});
    const auto n = std::size_t(std::max(0, g->getCellNumber()));
    vtkFloatArray* cells = g->getScalars();
    const auto held = std::size_t(cells->GetNumberOfValues());
    s.cells.assign(cells->GetPointer(0), cells->GetPointer(0) + std::min(n, held));
    s.mark(ShareState::Cells);
    if (!g->getDisplayVectors())
        return;
    const std::vector<float>& magnitudes = g->getStoredVectorMagnitude();
    vtkFloatArray* vectors = g->getVectors();
    const auto components = std::size_t(vectors->GetNumberOfValues());
    s.vectors.resize(4 * n + 1);
    std::copy_n(magnitudes.begin(), std::min(n, magnitudes.size()), s.vectors.begin());
    std::copy_n(vectors->GetPointer(0), std::min(3 * n, components), s.vectors.begin() + long(n));
    s.vectors[4 * n] = g->getScaleVector();
    s.mark(ShareState::Vectors);
}

struct KindCapture {
    const char* name; ///< as the record layouts name the kind
    Kind kind;
    void (*capture)(SendClass*, Object&);
};

// The kinds of the record layouts (RecordLayout's table decides which kind an
// object is), each with the function that reads its state.
const KindCapture kCaptures[] = {
    {"Sphere", Kind::Sphere, sphere},
    {"Cube", Kind::Cube, cube},
    {"Cylinder", Kind::Cylinder, cylinder},
    {"Cone", Kind::Cone, cone},
    {"Arrow", Kind::Arrow, placed<Arrow>},
    {"DiskSource", Kind::DiskSource, disk},
    {"Plane", Kind::Plane, placed<Plane>},
    {"RegularPolygon", Kind::RegularPolygon, regularPolygon},
    {"PolygonC", Kind::PolygonC, placed<PolygonC>},
    {"HalfPipe", Kind::HalfPipe, halfPipe},
    {"File3DSImporter", Kind::File3DSImporter, placed<File3DSImporter>},
    {"VectorText", Kind::VectorText, text},
    {"PlanarGrid", Kind::PlanarGrid, grid},
    {"TrailQwt", Kind::Trail, nullptr},
    {"NumberField", Kind::NumberField, nullptr},
    {"DisplayDouble", Kind::ReadOut, nullptr},
};

const KindCapture* kindOf(int num, SendClass* object) {
    const QJsonObject layout = RecordLayout::describe(num, object);
    if (layout.value("ignored").toBool())
        return nullptr;
    const QString name = layout.value("kind").toString();
    const auto kind = std::find_if(std::begin(kCaptures), std::end(kCaptures),
                                   [&](const KindCapture& k) { return name == k.name; });
    return kind == std::end(kCaptures) ? nullptr : kind;
}

} // namespace

void ShareCapture::capturePlacement(DrawableSource* object, ShareState::Object& out) {
    placement(object, out);
}

bool ShareCapture::captureObject(SendClass* object, ShareState::Object& out) {
    const KindCapture* kind = kindOf(0, object);
    if (!kind || !kind->capture)
        return false;
    out.kind = kind->kind;
    out.sections = 0;
    kind->capture(object, out);
    return true;
}

ShareCapture::ShareCapture(const QMap<int, SendClass*>& objects) {
    for (auto it = objects.cbegin(); it != objects.cend(); ++it) {
        const KindCapture* kind = kindOf(it.key(), it.value());
        if (!kind)
            continue;
        m_entries.push_back({it.key(), it.value(), kind->kind, kind->capture});
        if (kind->kind == Kind::Trail && !m_trails.contains(it.value())) {
            auto* t = static_cast<TrailQwt*>(it.value());
            Trail& shadow = m_trails[it.value()];
            shadow.received = t->getNReceivedPoints();
            shadow.maxPoints = t->getNMaxPoints();
            shadow.skip = t->getNSkip();
        } else if (kind->kind == Kind::NumberField || kind->kind == Kind::ReadOut) {
            m_widgets.insert(it.value(), Widget());
        }
    }
}

void ShareCapture::Trail::take(const QVector<double>& batch) {
    // TrailQwt::insertXY's two modes: one point appended, or a batch of
    // `received` points replacing the curve's.
    const int count = batch.size();
    if (received != 1) {
        const int n = std::max(received, 0);
        if (count < 2 * qint64(n))
            return;
        first += quint64(x.size());
        x = batch.mid(0, n);
        y = batch.mid(n, n);
        return;
    }
    if (count < 2)
        return;
    first += quint64(TrailQwt::appendPoint(x, y, skipPhase, skip, maxPoints, batch[0], batch[1]));
}

void ShareCapture::capture(const HandOver& batch, qint64 cycle, ShareState& out) {
    for (const HandOver::Widget& w : batch.widgets) {
        auto it = m_widgets.find(w.field ? static_cast<SendClass*>(w.field)
                                         : static_cast<SendClass*>(w.readOut));
        if (it == m_widgets.end())
            continue;
        it->known = true;
        it->value = w.value;
    }
    for (const HandOver::Trail& t : batch.trails) {
        auto it = m_trails.find(t.trail);
        if (it != m_trails.end())
            it->take(t.points);
    }

    out.publisher = 0; // the publisher numbers what it publishes
    out.sequence = 0;
    out.cycle = cycle;
    out.objects.resize(m_entries.size());
    SceneLock lock;
    for (std::size_t i = 0; i < m_entries.size(); ++i) {
        const Entry& e = m_entries[i];
        Object& s = out.objects[i];
        s.num = e.num;
        s.kind = e.kind;
        s.sections = 0;
        if (e.capture) {
            e.capture(e.object, s);
        } else if (e.kind == Kind::Trail) {
            const Trail& t = m_trails[e.object];
            s.trailFirst = t.first;
            s.trailX.assign(t.x.cbegin(), t.x.cend());
            s.trailY.assign(t.y.cbegin(), t.y.cend());
            s.mark(ShareState::Trail);
        } else if (const Widget& w = m_widgets[e.object]; w.known) {
            if (e.kind == Kind::ReadOut) {
                s.value = w.value;
                s.mark(ShareState::Value);
            } else {
                // The hand-over's own rule (HandOver::apply).
                s.enabled = w.value > 0.5;
                s.mark(ShareState::Enabled);
            }
        }
    }
}

} // namespace detail
} // namespace Orlavex
