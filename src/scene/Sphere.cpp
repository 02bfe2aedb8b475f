#include <Orlavex/scene/Sphere.h>

#include <vtkActor.h>
#include <vtkPolyDataMapper.h>
#include <vtkSphereSource.h>

namespace Orlavex {

Sphere::Sphere()
    : source(vtkSmartPointer<vtkSphereSource>::New()),
      mapper(vtkSmartPointer<vtkPolyDataMapper>::New()) {
    // No shape parameter is set, so the sphere starts as the source's default;
    // the recording fields read that default back so they never hold garbage.
    source->GetCenter(center);
    radius = source->GetRadius();
    thetaResolution = source->GetThetaResolution();
    startTheta = source->GetStartTheta();
    endTheta = source->GetEndTheta();
    phiResolution = source->GetPhiResolution();
    startPhi = source->GetStartPhi();
    endPhi = source->GetEndPhi();
    drawOutputOf(source, mapper);
}

Sphere::Sphere(const Sphere& other) = default;
Sphere& Sphere::operator=(const Sphere& other) = default;
Sphere::~Sphere() = default;

vtkSphereSource* Sphere::getSource() const {
    return source;
}
vtkPolyDataMapper* Sphere::getMapper() const {
    return mapper;
}

void Sphere::setRadius(double r) {
    radius = r;
    source->SetRadius(r);
}

void Sphere::setCenter(double x, double y, double z) {
    center[0] = x;
    center[1] = y;
    center[2] = z;
    source->SetCenter(center);
}

void Sphere::setThetaResolution(int n) {
    thetaResolution = n;
    source->SetThetaResolution(n);
}

void Sphere::setPhiResolution(int n) {
    phiResolution = n;
    source->SetPhiResolution(n);
}

void Sphere::setStartTheta(double a) {
    startTheta = a;
    source->SetStartTheta(a);
}

void Sphere::setEndTheta(double a) {
    endTheta = a;
    source->SetEndTheta(a);
}

void Sphere::setStartPhi(double a) {
    startPhi = a;
    source->SetStartPhi(a);
}

void Sphere::setEndPhi(double a) {
    endPhi = a;
    source->SetEndPhi(a);
}

void Sphere::latLongTessellationOn() {
    source->LatLongTessellationOn();
}

} // namespace Orlavex
