#include "DrawableSource.h"

#include <vtkActor.h>
#include <vtkAlgorithm.h>
#include <vtkPolyDataMapper.h>
#include <vtkProperty.h>
#include <vtkRenderer.h>

namespace Orlavex {

DrawableSource::DrawableSource()
    : actor(vtkSmartPointer<vtkActor>::New()), property(vtkSmartPointer<vtkProperty>::New()) {
    actor->SetProperty(property);
}

DrawableSource::DrawableSource(const DrawableSource& other) = default;
DrawableSource& DrawableSource::operator=(const DrawableSource& other) = default;
DrawableSource::~DrawableSource() = default;

vtkActor* DrawableSource::getActor() const {
    return actor;
}
vtkProperty* DrawableSource::getProperty() const {
    return property;
}

void DrawableSource::adopt(vtkActor* newActor, vtkProperty* newProperty) {
    if (newActor)
        actor = newActor;
    if (newProperty)
        property = newProperty;
}

void DrawableSource::drawOutputOf(vtkAlgorithm* source, vtkPolyDataMapper* mapper) {
    actor->SetMapper(mapper);
    mapper->SetInputConnection(source->GetOutputPort(0));
}

void DrawableSource::paint() {
    if (renderer)
        renderer->AddActor(actor);
}

void DrawableSource::setColor(double r, double g, double b) {
    property->SetColor(r, g, b);
}
void DrawableSource::setDiffuse(double d) {
    property->SetDiffuse(d);
}
void DrawableSource::setSpecular(double s) {
    property->SetSpecular(s);
}
void DrawableSource::setSpecularPower(double p) {
    property->SetSpecularPower(p);
}
void DrawableSource::setOpacity(double o) {
    property->SetOpacity(o);
}
void DrawableSource::setEdgeVisibility(double v) {
    property->SetEdgeVisibility(v > 0.5 ? 1 : 0);
}
void DrawableSource::setEdgeColor(double r, double g, double b) {
    property->SetEdgeColor(r, g, b);
}

void DrawableSource::SetLineWidth(int w) {
    property->SetLineWidth(float(w));
    property->Modified();
}

void DrawableSource::setRepresentationToWireframe() {
    property->SetRepresentationToWireframe();
}
void DrawableSource::setPosition(double x, double y, double z) {
    actor->SetPosition(x, y, z);
}
void DrawableSource::setOrigin(double x, double y, double z) {
    actor->SetOrigin(x, y, z);
}

void DrawableSource::setScale(double s) {
    scaleX = scaleY = scaleZ = s;
    actor->SetScale(s, s, s);
}

void DrawableSource::setScale(double x, double y, double z) {
    scaleX = x;
    scaleY = y;
    scaleZ = z;
    actor->SetScale(x, y, z);
}

void DrawableSource::rotateX(double a) {
    rotationX = a;
    actor->RotateX(a);
}

void DrawableSource::rotateY(double a) {
    rotationY = a;
    actor->RotateY(a);
}

void DrawableSource::rotateZ(double a) {
    rotationZ = a;
    actor->RotateZ(a);
}

} // namespace Orlavex
