#include <Orlavex/scene/Cone.h>

#include <vtkActor.h>
#include <vtkConeSource.h>
#include <vtkPolyDataMapper.h>

namespace Orlavex {

Cone::Cone() : source(vtkConeSource::New()), mapper(vtkPolyDataMapper::New()) {
    // The recording fields start at the source's defaults, read back from it.
    height = source->GetHeight();
    radius = source->GetRadius();
    resolution = source->GetResolution();
    actor->SetMapper(mapper);
    mapper->SetInputConnection(source->GetOutputPort(0));
}

Cone::Cone(const Cone& other)
    : DrawableSource(other), source(other.source), height(other.height), radius(other.radius),
      resolution(other.resolution), mapper(other.mapper) {
    source->Register(nullptr);
    mapper->Register(nullptr);
}

Cone& Cone::operator=(const Cone& other) {
    if (this != &other) {
        DrawableSource::operator=(other);
        shareReference(source, other.source);
        height = other.height;
        radius = other.radius;
        resolution = other.resolution;
        shareReference(mapper, other.mapper);
    }
    return *this;
}

Cone::~Cone() {
    source->Delete();
    mapper->Delete();
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
