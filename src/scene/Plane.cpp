#include <Orlavex/scene/Plane.h>

#include <vtkActor.h>
#include <vtkPlaneSource.h>
#include <vtkPolyDataMapper.h>

namespace Orlavex {

Plane::Plane()
    : source(vtkSmartPointer<vtkPlaneSource>::New()),
      mapper(vtkSmartPointer<vtkPolyDataMapper>::New()) {
    drawOutputOf(source, mapper);
}

Plane::Plane(const Plane& other) = default;
Plane& Plane::operator=(const Plane& other) = default;
Plane::~Plane() = default;

vtkPlaneSource* Plane::getSource() const {
    return source;
}
vtkPolyDataMapper* Plane::getMapper() const {
    return mapper;
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
