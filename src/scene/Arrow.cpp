#include <Orlavex/scene/Arrow.h>

#include <vtkActor.h>
#include <vtkArrowSource.h>
#include <vtkPolyDataMapper.h>

namespace Orlavex {

Arrow::Arrow()
    : source(vtkSmartPointer<vtkArrowSource>::New()),
      mapper(vtkSmartPointer<vtkPolyDataMapper>::New()) {
    // The arrow's output exists before anything asks for it, so that its
    // bounds can be read before the first render.
    source->Update();
    // The recording fields start at the source's defaults, read back from it.
    tipResolution = source->GetTipResolution();
    shaftResolution = source->GetShaftResolution();
    tipLength = source->GetTipLength();
    tipRadius = source->GetTipRadius();
    shaftRadius = source->GetShaftRadius();
    drawOutputOf(source, mapper);
}

Arrow::Arrow(const Arrow& other) = default;
Arrow& Arrow::operator=(const Arrow& other) = default;
Arrow::~Arrow() = default;

vtkArrowSource* Arrow::getSource() const {
    return source;
}
vtkPolyDataMapper* Arrow::getMapper() const {
    return mapper;
}

void Arrow::setTipLength(double l) {
    tipLength = l;
    source->SetTipLength(l);
}

void Arrow::setTipRadius(double r) {
    tipRadius = r;
    source->SetTipRadius(r);
}

void Arrow::setTipResolution(int n) {
    tipResolution = n;
    source->SetTipResolution(n);
}

void Arrow::setShaftRadius(double r) {
    shaftRadius = r;
    source->SetShaftRadius(r);
}

void Arrow::setShaftResolution(int n) {
    shaftResolution = n;
    source->SetShaftResolution(n);
}

} // namespace Orlavex
