#include <Orlavex/scene/Plane.h>

#include <vtkActor.h>
#include <vtkPlaneSource.h>
#include <vtkPolyDataMapper.h>

namespace Orlavex {

Plane::Plane() : source(vtkPlaneSource::New()), mapper(vtkPolyDataMapper::New()) {
    actor->SetMapper(mapper);
    mapper->SetInputConnection(source->GetOutputPort(0));
}

Plane::Plane(const Plane& other)
    : DrawableSource(other), source(other.source), mapper(other.mapper) {
    source->Register(nullptr);
    mapper->Register(nullptr);
}

Plane& Plane::operator=(const Plane& other) {
    if (this != &other) {
        DrawableSource::operator=(other);
        shareReference(source, other.source);
        shareReference(mapper, other.mapper);
    }
    return *this;
}

Plane::~Plane() {
    source->Delete();
    mapper->Delete();
}

void Plane::setOriginPoint(double x, double y, double z) {
    source->SetOrigin(x, y, z);
}
void Plane::setPoint1(double x, double y, double z) {
    source->SetPoint1(x, y, z);
}
void Plane::setPoint2(double x, double y, double z) {
    source->SetPoint2(x, y, z);
}
void Plane::setCenter(double x, double y, double z) {
    source->SetCenter(x, y, z);
}
void Plane::setNormal(double x, double y, double z) {
    source->SetNormal(x, y, z);
}
void Plane::setResolution(int xResolution, int yResolution) {
    source->SetResolution(xResolution, yResolution);
}

} // namespace Orlavex
