#include <Orlavex/scene/Cone.h>

#include "detail/AxialSource.h"

#include <vtkActor.h>
#include <vtkConeSource.h>
#include <vtkPolyDataMapper.h>

namespace Orlavex {

Cone::Cone()
    : source(vtkSmartPointer<vtkConeSource>::New()),
      mapper(vtkSmartPointer<vtkPolyDataMapper>::New()) {
    AxialSource::recordDefaults(source.Get(), height, radius, resolution);
    drawOutputOf(source, mapper);
}

Cone::Cone(const Cone& other) = default;
Cone& Cone::operator=(const Cone& other) = default;
Cone::~Cone() = default;

vtkConeSource* Cone::getSource() const {
    return source;
}
vtkPolyDataMapper* Cone::getMapper() const {
    return mapper;
}

void Cone::setHeight(double h) {
    height = h;
    source->SetHeight(h);
}

void Cone::setRadius(double r) {
    radius = r;
    source->SetRadius(r);
}

void Cone::setResolution(int n) {
    resolution = n;
    source->SetResolution(n);
}

void Cone::setCapping(int on) {
    source->SetCapping(on);
}

} // namespace Orlavex
