#include "SceneDescription.h"

#include "ShareCapture.h"

#include <Orlavex/common/SceneLock.h>
#include <Orlavex/display/Canvas.h>
#include <Orlavex/scene/Arrow.h>
#include <Orlavex/scene/Cone.h>
#include <Orlavex/scene/Cylinder.h>
#include <Orlavex/scene/HalfPipe.h>
#include <Orlavex/scene/PolygonC.h>
#include <Orlavex/scene/RegularPolygon.h>
#include <Orlavex/scene/Sphere.h>

#include <QJsonArray>

#include <vtkActor.h>
#include <vtkActorCollection.h>
#include <vtkCamera.h>
#include <vtkPoints.h>
#include <vtkProperty.h>
#include <vtkRegularPolygonSource.h>
#include <vtkRenderer.h>

namespace Orlavex {
namespace detail {

namespace {

QJsonArray numbers(const double* v, int n) {
    QJsonArray out;
    for (int i = 0; i < n; ++i)
        out.append(v[i]);
    return out;
}

/// The settings that shape an object but that no record carries.
QJsonObject shapeOptions(SendClass* object) {
    QJsonObject out;
    if (auto* o = dynamic_cast<Sphere*>(object)) {
        out = {{"thetaResolution", o->getThetaResolution()},
               {"phiResolution", o->getPhiResolution()}};
    } else if (auto* o = dynamic_cast<Cylinder*>(object)) {
        out = {{"resolution", o->getResolution()}};
    } else if (auto* o = dynamic_cast<Cone*>(object)) {
        out = {{"resolution", int(o->getResolution())}};
    } else if (auto* o = dynamic_cast<Arrow*>(object)) {
        out = {{"tipLength", o->getTipLength()},
               {"tipRadius", o->getTipRadius()},
               {"shaftRadius", o->getShaftRadius()},
               {"tipResolution", o->getTipResolution()},
               {"shaftResolution", o->getShaftResolution()}};
    } else if (auto* o = dynamic_cast<RegularPolygon*>(object)) {
        out = {{"sides", o->getSource()->GetNumberOfSides()}};
    } else if (auto* o = dynamic_cast<HalfPipe*>(object)) {
        const int* d = o->getDimensions();
        out = {{"dimensions", QJsonArray{d[0], d[1], d[2]}}};
    } else if (auto* o = dynamic_cast<PolygonC*>(object)) {
        QJsonArray points;
        vtkPoints* p = o->getPoints();
        for (vtkIdType i = 0; p && i < p->GetNumberOfPoints(); ++i) {
            const double* x = p->GetPoint(i);
            points.append(x[0]);
            points.append(x[1]);
            points.append(x[2]);
        }
        out = {{"points", points}};
    }
    if (auto* o = dynamic_cast<DrawableSource*>(object))
        out.insert("ambient", o->getProperty()->GetAmbient());
    return out;
}

/// An object no record addresses, in the frames' terms: kind, the actor's
/// matrix (row by row), material, geometry and text.
QJsonObject fixedObject(SendClass* object) {
    ShareState::Object s;
    if (!ShareCapture::captureObject(object, s))
        return {};
    const double* m = s.material.data();
    QJsonObject out = shapeOptions(object);
    out.insert("kind", ShareState::kindName(s.kind));
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

bool shows(vtkRenderer* r, SendClass* object) {
    auto* o = dynamic_cast<DrawableSource*>(object);
    return o && o->getActor() && r->GetActors()->IsItemPresent(o->getActor());
}

} // namespace

QJsonObject describeScene(const QVector<Canvas*>& canvases, const QVector<vtkRenderer*>& renderers,
                          const QVector<Drawable*>& drawables, const QMap<int, SendClass*>& objects,
                          bool framed) {
    SceneLock lock;
    QJsonArray out;
    for (int i = 0; i < canvases.size(); ++i) {
        vtkRenderer* r = renderers.value(i, nullptr);
        if (!r)
            continue;
        QJsonObject canvas{{"id", canvases[i] && !canvases[i]->objectName().isEmpty()
                                      ? canvases[i]->objectName()
                                      : QStringLiteral("canvas-%1").arg(i + 1)},
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
        for (auto it = objects.cbegin(); it != objects.cend(); ++it) {
            if (!shows(r, it.value()))
                continue;
            shown.append(it.key());
            options.insert(QString::number(it.key()), shapeOptions(it.value()));
        }
        QJsonArray fixed;
        for (Drawable* d : drawables) {
            if (std::find(objects.cbegin(), objects.cend(), d) != objects.cend() || !shows(r, d))
                continue;
            const QJsonObject o = fixedObject(d);
            if (!o.isEmpty())
                fixed.append(o);
        }
        canvas.insert("objects", shown);
        canvas.insert("options", options);
        canvas.insert("static", fixed);
        out.append(canvas);
    }
    return QJsonObject{{"canvases", out}};
}

} // namespace detail
} // namespace Orlavex
