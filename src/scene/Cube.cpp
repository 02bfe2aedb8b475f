#include <Orlavex/scene/Cube.h>

#include <vtkActor.h>
#include <vtkCubeSource.h>
#include <vtkPolyDataMapper.h>

namespace Orlavex {

Cube::Cube()
    : source(vtkSmartPointer<vtkCubeSource>::New()),
      mapper(vtkSmartPointer<vtkPolyDataMapper>::New()) {
    // The recording fields start at the source's defaults, read back from it.
    source->GetCenter(center);
    xLength = source->GetXLength();
    yLength = source->GetYLength();
    zLength = source->GetZLength();
    drawOutputOf(source, mapper);
}

Cube::Cube(const Cube& other) = default;
Cube& Cube::operator=(const Cube& other) = default;
Cube::~Cube() = default;

vtkCubeSource* Cube::getSource() const {
    return source;
}
vtkPolyDataMapper* Cube::getMapper() const {
    return mapper;
}

void Cube::setXLength(double l) {
    xLength = l;
    source->SetXLength(l);
}

void Cube::setYLength(double l) {
    yLength = l;
    source->SetYLength(l);
}

void Cube::setZLength(double l) {
    zLength = l;
    source->SetZLength(l);
}

void Cube::setCenter(double x, double y, double z) {
    center[0] = x;
    center[1] = y;
    center[2] = z;
    source->SetCenter(center);
}

} // namespace Orlavex
