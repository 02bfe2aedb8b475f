#pragma once

#include <Orlavex/scene/DrawableI.h>

class vtkLookupTable;
class vtkScalarBarActor;

namespace Orlavex {

/// A colour legend drawn flat over the view, with a colour table of its own.
///
/// Set it up with `setLut` and `setScalarBar` (in either order), then
/// `paint` it. A later `setLut` changes the table in place, so a painted
/// legend shows the new colours at the next render.
///
/// A copy shares the table and the legend actor, holding references of its own.
class ORLAVEX_EXPORT ScalarBar : public DrawableI {
public:
    ScalarBar();
    ScalarBar(const ScalarBar& other);
    ScalarBar& operator=(const ScalarBar& other);
    ~ScalarBar() override;

    /// Builds the table: hues from `hueMin` at `rangeMin` to `hueMax` at
    /// `rangeMax`, fully saturated, full value, half opaque. `scale` 1 is
    /// linear, anything else base-10 logarithmic; `ramp` 1 is linear,
    /// anything else an S-curve.
    void setLut(float hueMin, float hueMax, float rangeMin, float rangeMax, int scale, int ramp);

    /// Lays out the legend: (`x`, `y`) is its lower left corner and `width`,
    /// `height` its size, all as fractions of the view. `orientation` 1 is
    /// horizontal, anything else vertical. `labelFormat` is a printf format
    /// for one double; title and labels are black.
    void setScalarBar(const char* title, float x, float y, float width, float height,
                      int numberOfLabels, int maximumNumberOfColors, const char* labelFormat,
                      int orientation);

    /// Hands the legend the current table and adds it to the renderer; does
    /// nothing without a renderer.
    void paint() override;

    vtkLookupTable* getLut() const;
    vtkScalarBarActor* getScalarBar() const;
    /// The values last given to `setLut`.
    float getHueMin() const { return hueMin; }
    float getHueMax() const { return hueMax; }
    float getRangeMin() const { return rangeMin; }
    float getRangeMax() const { return rangeMax; }
    int getRamp() const { return ramp; }
    int getScale() const { return scale; }

    /// True when `format` holds exactly one conversion of a double (with
    /// optional flags, width and precision) besides "%%" escapes: the only
    /// kind of format that the legend can safely hand to printf.
    static bool isDoubleFormat(const char* format);

private:
    vtkSmartPointer<vtkLookupTable> lut;
    vtkSmartPointer<vtkScalarBarActor> scalarBar;
    float hueMin = 0.667f, hueMax = 0.0f;
    float rangeMin = 0.0f, rangeMax = 40.0f;
    int ramp = 1;
    int scale = 0;
};

} // namespace Orlavex
