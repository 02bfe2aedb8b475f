#include <Orlavex/scene/Cube.h>

#include <algorithm>

#include <vtkActor.h>
#include <vtkCubeSource.h>
#include <vtkPolyDataMapper.h>

namespace Orlavex {

Cube::Cube() : source(vtkCubeSource::New()), mapper(vtkPolyDataMapper::New()) {
    // The recording fields start at the source's defaults, read back from it.
    source->GetCenter(center);
    xLength = source->GetXLength();
    yLength = source->GetYLength();
    zLength = source->GetZLength();
    actor->SetMapper(mapper);
    mapper->SetInputConnection(source->GetOutputPort(0));
}

Cube::Cube(const Cube& other)
    : DrawableSource(other), source(other.source), xLength(other.xLength), yLength(other.yLength),
      zLength(other.zLength), mapper(other.mapper) {
    std::copy(other.center, other.center + 3, center);
    source->Register(nullptr);
    mapper->Register(nullptr);
}

Cube& Cube::operator=(const Cube& other) {
    if (this != &other) {
        DrawableSource::operator=(other);
        shareReference(source, other.source);
        std::copy(other.center, other.center + 3, center);
        xLength = other.xLength;
        yLength = other.yLength;
        zLength = other.zLength;
        shareReference(mapper, other.mapper);
    }
    return *this;
}

Cube::~Cube() {
    source->Delete();
    mapper->Delete();
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
