#include "DrawableI.h"

#include <vtkRenderer.h>

namespace Orlavex {

DrawableI::DrawableI(const DrawableI& other) : Drawable(other), renderer(other.renderer) {
    if (renderer)
        renderer->Register(nullptr);
}

DrawableI& DrawableI::operator=(const DrawableI& other) {
    if (this != &other) {
        Drawable::operator=(other);
        setRenderer(other.renderer);
    }
    return *this;
}

DrawableI::~DrawableI() {
    if (renderer)
        renderer->Delete();
}

void DrawableI::setRenderer(vtkRenderer* r) {
    shareReference(renderer, r);
}

} // namespace Orlavex
