#include "SceneDescription.h"

#include "ShareCapture.h"

#include <Orlavex/common/SceneLock.h>
#include <Orlavex/controls/DisplayDouble.h>
#include <Orlavex/display/Canvas.h>
#include <Orlavex/display/PlottingPanelQwt.h>
#include <Orlavex/display/TrailQwt.h>
#include <Orlavex/link/CommThread.h>
#include <Orlavex/scene/Arrow.h>
#include <Orlavex/scene/Cone.h>
#include <Orlavex/scene/Cube.h>
#include <Orlavex/scene/Cylinder.h>
#include <Orlavex/scene/DiskSource.h>
#include <Orlavex/scene/File3DSImporter.h>
#include <Orlavex/scene/HalfPipe.h>
#include <Orlavex/scene/Line.h>
#include <Orlavex/scene/PlanarGrid.h>
#include <Orlavex/scene/Plane.h>
#include <Orlavex/scene/PolygonC.h>
#include <Orlavex/scene/RegularPolygon.h>
#include <Orlavex/scene/ScalarBar.h>
#include <Orlavex/scene/Sphere.h>

#include <QJsonArray>
#include <QRegularExpression>

#include <qwt_plot_curve.h>
#include <qwt_text.h>
#include <vtkActor.h>
#include <vtkActorCollection.h>
#include <vtkAlgorithm.h>
#include <vtkArrowSource.h>
#include <vtkCamera.h>
#include <vtkCellArray.h>
#include <vtkConeSource.h>
#include <vtkCoordinate.h>
#include <vtkCubeSource.h>
#include <vtkCylinderSource.h>
#include <vtkDiskSource.h>
#include <vtkGlyph3D.h>
#include <vtkIdList.h>
#include <vtkLookupTable.h>
#include <vtkMapper.h>
#include <vtkPlaneSource.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkProperty.h>
#include <vtkRegularPolygonSource.h>
#include <vtkRenderer.h>
#include <vtkScalarBarActor.h>
#include <vtkSphereSource.h>

#include <algorithm>

namespace Orlavex {
namespace detail {

namespace {

/// A model's mesh goes into the description only up to this many numbers
/// (points and cells): the description travels in one broker message.
constexpr vtkIdType kMaxMeshNumbers = 300000;

QJsonArray numbers(const double* v, int n) {
    QJsonArray out;
    for (int i = 0; i < n; ++i)
        out.append(v[i]);
    return out;
}

QJsonArray points(vtkPoints* p) {
    QJsonArray out;
    for (vtkIdType i = 0; p && i < p->GetNumberOfPoints(); ++i) {
        const double* x = p->GetPoint(i);
        out.append(x[0]);
        out.append(x[1]);
        out.append(x[2]);
    }
    return out;
}

/// A lookup table as its ramp: the ranges it interpolates and its size.
QJsonObject colourTable(vtkLookupTable* t, vtkIdType maxColours = 0) {
    if (!t)
        return {};
    const vtkIdType colours =
        maxColours > 0 ? std::min(t->GetNumberOfColors(), maxColours) : t->GetNumberOfColors();
    return {{"hue", numbers(t->GetHueRange(), 2)},
            {"saturation", numbers(t->GetSaturationRange(), 2)},
            {"value", numbers(t->GetValueRange(), 2)},
            {"alpha", numbers(t->GetAlphaRange(), 2)},
            {"range", numbers(t->GetTableRange(), 2)},
            {"colours", double(colours)}};
}

/// The polydata a model's actor draws: its points and its polygons in
/// VTK's cell layout (count, then the point indices), triangle strips
/// turned into the triangles they stand for.
QJsonObject mesh(vtkActor* actor) {
    vtkMapper* mapper = actor ? actor->GetMapper() : nullptr;
    // Before the first render nothing has run the importer's pipeline.
    if (mapper && mapper->GetInputAlgorithm())
        mapper->GetInputAlgorithm()->Update();
    auto* data = mapper ? vtkPolyData::SafeDownCast(mapper->GetInputAsDataSet()) : nullptr;
    if (!data ||
        3 * data->GetNumberOfPoints() +
                4 * (data->GetNumberOfPolys() + data->GetStrips()->GetNumberOfConnectivityIds()) >
            kMaxMeshNumbers)
        return {};
    QJsonArray polys;
    vtkNew<vtkIdList> ids;
    vtkCellArray* cells = data->GetPolys();
    for (vtkIdType c = 0; c < cells->GetNumberOfCells(); ++c) {
        cells->GetCellAtId(c, ids);
        polys.append(double(ids->GetNumberOfIds()));
        for (vtkIdType k = 0; k < ids->GetNumberOfIds(); ++k)
            polys.append(double(ids->GetId(k)));
    }
    cells = data->GetStrips();
    for (vtkIdType c = 0; c < cells->GetNumberOfCells(); ++c) {
        cells->GetCellAtId(c, ids);
        for (vtkIdType k = 0; k + 2 < ids->GetNumberOfIds(); ++k) {
            // Every other triangle of a strip turns the other way.
            const vtkIdType a = k % 2 ? k + 1 : k, b = k % 2 ? k : k + 1;
            polys.append(3);
            polys.append(double(ids->GetId(a)));
            polys.append(double(ids->GetId(b)));
            polys.append(double(ids->GetId(k + 2)));
        }
    }
    return {{"points", points(data->GetPoints())}, {"polys", polys}};
}

/// The settings that shape an object but that no record carries.
QJsonObject shapeOptions(SendClass* object) {
    QJsonObject out;
    // Read from the VTK sources, which hold what is drawn: the objects'
    // own fields stay 0 until their setters are called.
    if (auto* o = dynamic_cast<Sphere*>(object)) {
        vtkSphereSource* p = o->getSource();
        out = {{"thetaResolution", p->GetThetaResolution()},
               {"phiResolution", p->GetPhiResolution()},
               {"startTheta", p->GetStartTheta()},
               {"endTheta", p->GetEndTheta()},
               {"startPhi", p->GetStartPhi()},
               {"endPhi", p->GetEndPhi()},
               {"center", numbers(p->GetCenter(), 3)}};
    } else if (auto* o = dynamic_cast<Cube*>(object)) {
        out = {{"center", numbers(o->getSource()->GetCenter(), 3)}};
    } else if (auto* o = dynamic_cast<Cylinder*>(object)) {
        vtkCylinderSource* p = o->getSource();
        out = {{"resolution", p->GetResolution()},
               {"center", numbers(p->GetCenter(), 3)},
               {"capping", p->GetCapping() != 0}};
    } else if (auto* o = dynamic_cast<Cone*>(object)) {
        vtkConeSource* p = o->getSource();
        out = {{"resolution", p->GetResolution()}, {"capping", p->GetCapping() != 0}};
    } else if (auto* o = dynamic_cast<Arrow*>(object)) {
        vtkArrowSource* p = o->getSource();
        out = {{"tipLength", p->GetTipLength()},
               {"tipRadius", p->GetTipRadius()},
               {"shaftRadius", p->GetShaftRadius()},
               {"tipResolution", p->GetTipResolution()},
               {"shaftResolution", p->GetShaftResolution()}};
    } else if (auto* o = dynamic_cast<DiskSource*>(object)) {
        out = {{"radialResolution", o->getSource()->GetRadialResolution()},
               {"circumferentialResolution", o->getSource()->GetCircumferentialResolution()}};
    } else if (auto* o = dynamic_cast<Plane*>(object)) {
        vtkPlaneSource* p = o->getSource();
        out = {{"plane", QJsonObject{{"origin", numbers(p->GetOrigin(), 3)},
                                     {"point1", numbers(p->GetPoint1(), 3)},
                                     {"point2", numbers(p->GetPoint2(), 3)},
                                     {"xResolution", p->GetXResolution()},
                                     {"yResolution", p->GetYResolution()}}}};
    } else if (auto* o = dynamic_cast<RegularPolygon*>(object)) {
        vtkRegularPolygonSource* p = o->getSource();
        out = {{"sides", p->GetNumberOfSides()},
               {"center", numbers(p->GetCenter(), 3)},
               {"polygon", p->GetGeneratePolygon() != 0},
               {"polyline", p->GetGeneratePolyline() != 0}};
    } else if (auto* o = dynamic_cast<HalfPipe*>(object)) {
        const int* d = o->getDimensions();
        out = {{"dimensions", QJsonArray{d[0], d[1], d[2]}}};
    } else if (auto* o = dynamic_cast<PolygonC*>(object)) {
        out = {{"points", points(o->getPoints())}};
    } else if (auto* o = dynamic_cast<Line*>(object)) {
        out = {{"points", points(o->getPoints())}};
    } else if (auto* o = dynamic_cast<File3DSImporter*>(object)) {
        const QJsonObject m = mesh(o->getActor());
        if (!m.isEmpty())
            out = {{"mesh", m}};
    } else if (auto* g = dynamic_cast<PlanarGrid*>(object)) {
        const float* f = g->getCellPoints();
        out = {{"lut", colourTable(g->getCellLUT())},
               {"vectorLut", colourTable(g->getVectorLUT())},
               {"cellPoints", QJsonArray{f[0], f[1], f[2]}}};
        vtkAlgorithm* source =
            g->getDisplayVectors() && g->getGlyph()->GetNumberOfInputConnections(1)
                ? g->getGlyph()->GetInputAlgorithm(1, 0)
                : nullptr;
        if (auto* arrow = vtkArrowSource::SafeDownCast(source))
            out.insert("arrow", QJsonObject{{"tipLength", arrow->GetTipLength()},
                                            {"tipRadius", arrow->GetTipRadius()},
                                            {"shaftRadius", arrow->GetShaftRadius()},
                                            {"tipResolution", arrow->GetTipResolution()},
                                            {"shaftResolution", arrow->GetShaftResolution()}});
    }
    if (auto* o = dynamic_cast<DrawableSource*>(object))
        out.insert("ambient", o->getProperty()->GetAmbient());
    return out;
}

/// An object no record addresses, in the frames' terms: kind, the actor's
/// matrix (row by row), material, geometry and text. A line, whose records
/// the front-end ignores, has its points among the options.
QJsonObject fixedObject(SendClass* object) {
    ShareState::Object s;
    QString kind;
    if (ShareCapture::captureObject(object, s)) {
        kind = QString::fromLatin1(ShareState::kindName(s.kind));
    } else if (auto* line = dynamic_cast<Line*>(object)) {
        ShareCapture::capturePlacement(line, s);
        kind = QStringLiteral("Line");
    } else {
        return {};
    }
    const double* m = s.material.data();
    QJsonObject out = shapeOptions(object);
    out.insert("kind", kind);
    out.insert("transform", numbers(s.transform.data(), 16));
    out.insert("material", QJsonObject{{"colour", numbers(m, 3)},
                                       {"diffuse", m[3]},
                                       {"specular", m[4]},
                                       {"specularPower", m[5]},
                                       {"opacity", m[6]},
                                       {"edges", m[7] > 0.5},
                                       {"edgeColour", numbers(m + 8, 3)}});
    if (!s.geometry.empty())
        out.insert("geometry", numbers(s.geometry.data(), int(s.geometry.size())));
    if (s.has(ShareState::Text))
        out.insert("text", QString::fromStdString(s.text));
    return out;
}

/// A colour legend as its scalar bar draws it.
QJsonObject legend(ScalarBar* bar) {
    vtkScalarBarActor* a = bar->getScalarBar();
    const double* at = a->GetPositionCoordinate()->GetValue();
    const QRegularExpressionMatch decimals = QRegularExpression(QStringLiteral("\\.(\\d+)f"))
                                                 .match(QString::fromLatin1(a->GetLabelFormat()));
    return {{"title", QString::fromUtf8(a->GetTitle() ? a->GetTitle() : "")},
            {"position", QJsonArray{at[0], at[1]}},
            {"size", QJsonArray{a->GetWidth(), a->GetHeight()}},
            {"labels", a->GetNumberOfLabels()},
            {"decimals", decimals.hasMatch() ? decimals.captured(1).toInt() : 2},
            {"lut", colourTable(bar->getLut(), a->GetMaximumNumberOfColors())}};
}

bool shows(vtkRenderer* r, SendClass* object) {
    auto* o = dynamic_cast<DrawableSource*>(object);
    return o && o->getActor() && r->GetActors()->IsItemPresent(o->getActor());
}

QString nameOf(const QObject* o, const QString& otherwise) {
    return o && !o->objectName().isEmpty() ? o->objectName() : otherwise;
}

QJsonArray canvases(const CommThread& thread, bool framed) {
    QJsonArray out;
    for (int i = 0; i < thread.canvases.size(); ++i) {
        vtkRenderer* r = thread.renderers.value(i, nullptr);
        if (!r)
            continue;
        const QString name = nameOf(thread.canvases[i], QStringLiteral("canvas-%1").arg(i + 1));
        QJsonObject canvas{{"id", name},
                           {"title", name},
                           {"background", numbers(r->GetBackground(), 3)},
                           {"frame", framed}};
        if (r->IsActiveCameraCreated()) {
            vtkCamera* c = r->GetActiveCamera();
            canvas.insert("camera", QJsonObject{{"position", numbers(c->GetPosition(), 3)},
                                                {"focalPoint", numbers(c->GetFocalPoint(), 3)},
                                                {"viewUp", numbers(c->GetViewUp(), 3)},
                                                {"viewAngle", c->GetViewAngle()}});
        }
        QJsonArray shown;
        QJsonObject options;
        for (auto it = thread.sendingObjects.cbegin(); it != thread.sendingObjects.cend(); ++it) {
            if (!shows(r, it.value()))
                continue;
            shown.append(it.key());
            options.insert(QString::number(it.key()), shapeOptions(it.value()));
        }
        QJsonArray fixed, legends;
        for (Drawable* d : thread.drawables) {
            if (auto* bar = dynamic_cast<ScalarBar*>(d)) {
                if (r->HasViewProp(bar->getScalarBar()))
                    legends.append(legend(bar));
                continue;
            }
            const auto& registered = thread.sendingObjects;
            if (std::find(registered.cbegin(), registered.cend(), d) != registered.cend() ||
                !shows(r, d))
                continue;
            const QJsonObject o = fixedObject(d);
            if (!o.isEmpty())
                fixed.append(o);
        }
        canvas.insert("objects", shown);
        canvas.insert("options", options);
        canvas.insert("static", fixed);
        canvas.insert("legends", legends);
        out.append(canvas);
    }
    return out;
}

QJsonArray plots(const CommThread& thread) {
    QJsonArray out;
    for (int i = 0; i < thread.plots.size(); ++i) {
        PlottingPanelQwt* p = thread.plots[i];
        QJsonArray trails;
        for (auto it = thread.sendingObjects.cbegin(); it != thread.sendingObjects.cend(); ++it) {
            auto* trail = dynamic_cast<TrailQwt*>(it.value());
            QwtPlotCurve* curve = trail ? trail->getCurve() : nullptr;
            if (!curve || curve->plot() != p)
                continue;
            trails.append(QJsonObject{{"num", it.key()},
                                      {"label", curve->title().text()},
                                      {"colour", curve->pen().color().name()},
                                      {"markers", curve->symbol() != nullptr}});
        }
        out.append(QJsonObject{{"id", nameOf(p, QStringLiteral("plot-%1").arg(i + 1))},
                               {"title", p->title().text()},
                               {"xTitle", p->axisTitle(QwtPlot::xBottom).text()},
                               {"yTitle", p->axisTitle(QwtPlot::yLeft).text()},
                               {"trails", trails}});
    }
    return out;
}

QJsonArray readOuts(const CommThread& thread) {
    QJsonArray out;
    for (auto it = thread.sendingObjects.cbegin(); it != thread.sendingObjects.cend(); ++it) {
        auto* r = dynamic_cast<DisplayDouble*>(it.value());
        if (!r)
            continue;
        QJsonObject o{{"num", it.key()}, {"prefix", r->prefix()}, {"suffix", r->suffix()}};
        // Fixed decimals are what a browser can show as DisplayDouble does;
        // other formats are shown as the number comes.
        if (r->getFormat() == 'f')
            o.insert("decimals", r->getPrecision());
        out.append(o);
    }
    return out;
}

} // namespace

QJsonObject describeScene(const CommThread& thread, bool framed) {
    QJsonObject out;
    if (!thread.canvases.isEmpty() && thread.canvases.first())
        out.insert("title", thread.canvases.first()->window()->windowTitle());
    out.insert("plots", plots(thread));
    out.insert("readouts", readOuts(thread));
    SceneLock lock;
    out.insert("canvases", canvases(thread, framed));
    return out;
}

} // namespace detail
} // namespace Orlavex
