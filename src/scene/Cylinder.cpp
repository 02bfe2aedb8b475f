#include <Orlavex/scene/Cylinder.h>

#include "detail/AxialSource.h"

#include <vtkActor.h>
#include <vtkCylinderSource.h>
#include <vtkPolyDataMapper.h>

namespace Orlavex {

Cylinder::Cylinder()
    : source(vtkSmartPointer<vtkCylinderSource>::New()),
      mapper(vtkSmartPointer<vtkPolyDataMapper>::New()) {
    source->GetCenter(center);
    AxialSource::recordDefaults(source.Get(), height, radius, resolution);
    drawOutputOf(source, mapper);
}

Cylinder::Cylinder(const Cylinder& other) = default;
Cylinder& Cylinder::operator=(const Cylinder& other) = default;
Cylinder::~Cylinder() = default;

vtkCylinderSource* Cylinder::getSource() const {
    return source;
}
vtkPolyDataMapper* Cylinder::getMapper() const {
    return mapper;
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
