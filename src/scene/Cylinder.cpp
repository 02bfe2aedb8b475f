#include <Orlavex/scene/Cylinder.h>

#include <algorithm>

#include <vtkActor.h>
#include <vtkCylinderSource.h>
#include <vtkPolyDataMapper.h>

namespace Orlavex {

Cylinder::Cylinder() : source(vtkCylinderSource::New()), mapper(vtkPolyDataMapper::New()) {
    // The recording fields start at the source's defaults, read back from it.
    source->GetCenter(center);
    radius = source->GetRadius();
    height = source->GetHeight();
    resolution = source->GetResolution();
    actor->SetMapper(mapper);
    mapper->SetInputConnection(source->GetOutputPort(0));
}

Cylinder::Cylinder(const Cylinder& other)
    : DrawableSource(other), source(other.source), radius(other.radius), height(other.height),
      resolution(other.resolution), mapper(other.mapper) {
    std::copy(other.center, other.center + 3, center);
    source->Register(nullptr);
    mapper->Register(nullptr);
}

Cylinder& Cylinder::operator=(const Cylinder& other) {
    if (this != &other) {
        DrawableSource::operator=(other);
        shareReference(source, other.source);
        std::copy(other.center, other.center + 3, center);
        radius = other.radius;
        height = other.height;
        resolution = other.resolution;
        shareReference(mapper, other.mapper);
    }
    return *this;
}

Cylinder::~Cylinder() {
    source->Delete();
    mapper->Delete();
}

void Cylinder::setHeight(double h) {
    height = h;
    source->SetHeight(h);
}

void Cylinder::setRadius(double r) {
    radius = r;
    source->SetRadius(r);
}

void Cylinder::setResolution(int n) {
    resolution = n;
    source->SetResolution(n);
}

void Cylinder::setCenter(double x, double y, double z) {
    center[0] = x;
    center[1] = y;
    center[2] = z;
    source->SetCenter(center);
}

void Cylinder::setCapping(int on) {
    source->SetCapping(on);
}

} // namespace Orlavex
