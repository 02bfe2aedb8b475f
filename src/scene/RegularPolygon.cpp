#include <Orlavex/scene/RegularPolygon.h>

#include <algorithm>

#include <vtkActor.h>
#include <vtkPolyDataMapper.h>
#include <vtkRegularPolygonSource.h>

namespace Orlavex {

RegularPolygon::RegularPolygon()
    : source(vtkRegularPolygonSource::New()), mapper(vtkPolyDataMapper::New()) {
    // The recording field starts at the source's default, read back from it.
    source->GetCenter(center);
    actor->SetMapper(mapper);
    mapper->SetInputConnection(source->GetOutputPort(0));
}

RegularPolygon::RegularPolygon(const RegularPolygon& other)
    : DrawableSource(other), source(other.source), mapper(other.mapper) {
    std::copy(other.center, other.center + 3, center);
    source->Register(nullptr);
    mapper->Register(nullptr);
}

RegularPolygon& RegularPolygon::operator=(const RegularPolygon& other) {
    if (this != &other) {
        DrawableSource::operator=(other);
        shareReference(source, other.source);
        std::copy(other.center, other.center + 3, center);
        shareReference(mapper, other.mapper);
    }
    return *this;
}

RegularPolygon::~RegularPolygon() {
    source->Delete();
    mapper->Delete();
}

void RegularPolygon::setNumberOfSides(int n) {
    source->SetNumberOfSides(n);
}
void RegularPolygon::setRadius(double r) {
    source->SetRadius(r);
}

void RegularPolygon::setCenter(double x, double y, double z) {
    center[0] = x;
    center[1] = y;
    center[2] = z;
    source->SetCenter(center);
}

void RegularPolygon::setNormal(double x, double y, double z) {
    source->SetNormal(x, y, z);
}
void RegularPolygon::setGeneratePolygon(int on) {
    source->SetGeneratePolygon(on);
}
void RegularPolygon::setGeneratePolyline(int on) {
    source->SetGeneratePolyline(on);
}

} // namespace Orlavex
