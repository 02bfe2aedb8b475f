#include "ColourTable.h"

#include <vtkLookupTable.h>

namespace Orlavex {

namespace ColourTable {

void configure(vtkLookupTable* lut, float hueMin, float hueMax, float saturationMin,
               float saturationMax, float valueMin, float valueMax, float alphaMin, float alphaMax,
               float rangeMin, float rangeMax, int scale, int ramp) {
    lut->SetHueRange(double(hueMin), double(hueMax));
    lut->SetSaturationRange(double(saturationMin), double(saturationMax));
    lut->SetValueRange(double(valueMin), double(valueMax));
    lut->SetAlphaRange(double(alphaMin), double(alphaMax));
    lut->SetRange(double(rangeMin), double(rangeMax));
    if (ramp == 1)
        lut->SetRampToLinear();
    else
        lut->SetRampToSCurve();
    lut->SetScale(scale == 1 ? VTK_SCALE_LINEAR : VTK_SCALE_LOG10);
    lut->Build();
}

} // namespace ColourTable

} // namespace Orlavex
