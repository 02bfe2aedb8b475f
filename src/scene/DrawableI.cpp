#include "DrawableI.h"

#include <vtkRenderer.h>

namespace Orlavex {

// Out of line, as everything that touches the smart pointers: their
// conversions need the complete VTK types, which the header only names.
DrawableI::DrawableI() = default;
DrawableI::DrawableI(const DrawableI& other) = default;
DrawableI& DrawableI::operator=(const DrawableI& other) = default;
DrawableI::~DrawableI() = default;

void DrawableI::setRenderer(vtkRenderer* r) {
    renderer = r;
}

vtkRenderer* DrawableI::getRenderer() const {
    return renderer;
}

} // namespace Orlavex
