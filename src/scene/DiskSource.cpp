#include <Orlavex/scene/DiskSource.h>

#include <vtkActor.h>
#include <vtkDiskSource.h>
#include <vtkPolyDataMapper.h>

namespace Orlavex {

DiskSource::DiskSource() : source(vtkDiskSource::New()), mapper(vtkPolyDataMapper::New()) {
    actor->SetMapper(mapper);
    mapper->SetInputConnection(source->GetOutputPort(0));
}

DiskSource::DiskSource(const DiskSource& other)
    : DrawableSource(other), source(other.source), mapper(other.mapper) {
    source->Register(nullptr);
    mapper->Register(nullptr);
}

DiskSource& DiskSource::operator=(const DiskSource& other) {
    if (this != &other) {
        DrawableSource::operator=(other);
        shareReference(source, other.source);
        shareReference(mapper, other.mapper);
    }
    return *this;
}

DiskSource::~DiskSource() {
    source->Delete();
    mapper->Delete();
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
