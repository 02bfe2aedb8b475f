#include <Orlavex/scene/RegularPolygon.h>

#include <vtkActor.h>
#include <vtkPolyDataMapper.h>
#include <vtkRegularPolygonSource.h>

namespace Orlavex {

RegularPolygon::RegularPolygon()
    : source(vtkSmartPointer<vtkRegularPolygonSource>::New()),
      mapper(vtkSmartPointer<vtkPolyDataMapper>::New()) {
    // The recording field starts at the source's default, read back from it.
    source->GetCenter(center);
    drawOutputOf(source, mapper);
}

RegularPolygon::RegularPolygon(const RegularPolygon& other) = default;
RegularPolygon& RegularPolygon::operator=(const RegularPolygon& other) = default;
RegularPolygon::~RegularPolygon() = default;

vtkRegularPolygonSource* RegularPolygon::getSource() const {
    return source;
}
vtkPolyDataMapper* RegularPolygon::getMapper() const {
    return mapper;
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
