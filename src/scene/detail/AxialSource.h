#pragma once

namespace Orlavex {

/// What Cone and Cylinder share beyond `DrawableSource`: a VTK source with a
/// height, a radius and a facet count, whose values each solid records as it
/// forwards them. vtkConeSource and vtkCylinderSource declare the same
/// accessors without a common base that has them, hence a template.
namespace AxialSource {
/// Starts the recorded values at the source's own defaults, so that the
/// getters never read garbage before the first setter.
template <class Source, class Resolution>
void recordDefaults(Source* source, double& height, double& radius, Resolution& resolution) {
    height = source->GetHeight();
    radius = source->GetRadius();
    resolution = source->GetResolution();
}
} // namespace AxialSource

} // namespace Orlavex
