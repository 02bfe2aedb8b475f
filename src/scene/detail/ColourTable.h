#pragma once

class vtkLookupTable;

namespace Orlavex {

/// Builds a colour table from the twelve colour-table parameters shared by the
/// grid and the colour legend: hue, saturation, value and alpha ranges, the
/// span of values spread over the table, a linear (1) or base-10 logarithmic
/// (otherwise) scale, and a linear (1) or S-curve (otherwise) ramp.
namespace ColourTable {
void configure(vtkLookupTable* lut, float hueMin, float hueMax, float saturationMin,
               float saturationMax, float valueMin, float valueMax, float alphaMin, float alphaMax,
               float rangeMin, float rangeMax, int scale, int ramp);
} // namespace ColourTable

} // namespace Orlavex
