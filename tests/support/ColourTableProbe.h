#pragma once

#include <QtGlobal>

#include <vtkLookupTable.h>

namespace probe {
/// True when the table maps `value` to (r, g, b) within 0.02 per channel.
inline bool colourNear(vtkLookupTable* lut, double value, double r, double g, double b) {
    double c[3];
    lut->GetColor(value, c);
    return qAbs(c[0] - r) < 0.02 && qAbs(c[1] - g) < 0.02 && qAbs(c[2] - b) < 0.02;
}
} // namespace probe
