#include <Orlavex/scene/DiskSource.h>

#include <vtkActor.h>
#include <vtkDiskSource.h>
#include <vtkPolyDataMapper.h>

namespace Orlavex {

DiskSource::DiskSource()
    : source(vtkSmartPointer<vtkDiskSource>::New()),
      mapper(vtkSmartPointer<vtkPolyDataMapper>::New()) {
    drawOutputOf(source, mapper);
}

DiskSource::DiskSource(const DiskSource& other) = default;
DiskSource& DiskSource::operator=(const DiskSource& other) = default;
DiskSource::~DiskSource() = default;

vtkDiskSource* DiskSource::getSource() const {
    return source;
}
vtkPolyDataMapper* DiskSource::getMapper() const {
    return mapper;
}

void DiskSource::setInnerRadius(double r) {
    source->SetInnerRadius(r);
}
void DiskSource::setOuterRadius(double r) {
    source->SetOuterRadius(r);
}
void DiskSource::setRadialResolution(int n) {
    source->SetRadialResolution(n);
}
void DiskSource::setCircumferentialResolution(int n) {
    source->SetCircumferentialResolution(n);
}

} // namespace Orlavex
