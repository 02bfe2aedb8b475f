#include <Orlavex/scene/Arrow.h>

#include <vtkActor.h>
#include <vtkArrowSource.h>
#include <vtkPolyDataMapper.h>

namespace Orlavex {

Arrow::Arrow() : source(vtkArrowSource::New()) {
    // The arrow's output exists before anything asks for it, so that its
    // bounds can be read before the first render.
    source->Update();
    // The recording fields start at the source's defaults, read back from it.
    tipResolution = source->GetTipResolution();
    shaftResolution = source->GetShaftResolution();
    tipLength = source->GetTipLength();
    tipRadius = source->GetTipRadius();
    shaftRadius = source->GetShaftRadius();
    mapper = vtkPolyDataMapper::New();
    actor->SetMapper(mapper);
    mapper->SetInputConnection(source->GetOutputPort(0));
}

Arrow::Arrow(const Arrow& other)
    : DrawableSource(other), source(other.source), tipResolution(other.tipResolution),
      mapper(other.mapper), shaftResolution(other.shaftResolution), tipLength(other.tipLength),
      tipRadius(other.tipRadius), shaftRadius(other.shaftRadius) {
    source->Register(nullptr);
    mapper->Register(nullptr);
}

Arrow& Arrow::operator=(const Arrow& other) {
    if (this != &other) {
        DrawableSource::operator=(other);
        shareReference(source, other.source);
        tipResolution = other.tipResolution;
        shareReference(mapper, other.mapper);
        shaftResolution = other.shaftResolution;
        tipLength = other.tipLength;
        tipRadius = other.tipRadius;
        shaftRadius = other.shaftRadius;
    }
    return *this;
}

Arrow::~Arrow() {
    source->Delete();
    mapper->Delete();
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
