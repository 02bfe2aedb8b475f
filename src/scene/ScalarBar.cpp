#include "ScalarBar.h"

#include "detail/ColourTable.h"

#include <QtDebug>

#include <vtkCoordinate.h>
#include <vtkLookupTable.h>
#include <vtkRenderer.h>
#include <vtkScalarBarActor.h>
#include <vtkTextProperty.h>

#include <cstring>

namespace Orlavex {

ScalarBar::ScalarBar()
    : lut(vtkSmartPointer<vtkLookupTable>::New()),
      scalarBar(vtkSmartPointer<vtkScalarBarActor>::New()) {}

ScalarBar::ScalarBar(const ScalarBar& other) = default;
ScalarBar& ScalarBar::operator=(const ScalarBar& other) = default;
ScalarBar::~ScalarBar() = default;

vtkLookupTable* ScalarBar::getLut() const {
    return lut;
}
vtkScalarBarActor* ScalarBar::getScalarBar() const {
    return scalarBar;
}

void ScalarBar::setLut(float hueMin, float hueMax, float rangeMin, float rangeMax, int scale,
                       int ramp) {
    this->hueMin = hueMin;
    this->hueMax = hueMax;
    this->rangeMin = rangeMin;
    this->rangeMax = rangeMax;
    this->scale = scale;
    this->ramp = ramp;
    // Fully saturated, full value, half opaque: only the hues vary.
    ColourTable::configure(lut, hueMin, hueMax, 1, 1, 1, 1, 0.5f, 0.5f, rangeMin, rangeMax, scale,
                           ramp);
}

void ScalarBar::setScalarBar(const char* title, float x, float y, float width, float height,
                             int numberOfLabels, int maximumNumberOfColors, const char* labelFormat,
                             int orientation) {
    scalarBar->SetTitle(title);
    scalarBar->GetPositionCoordinate()->SetCoordinateSystemToNormalizedViewport();
    scalarBar->GetPositionCoordinate()->SetValue(double(x), double(y));
    if (orientation == 1)
        scalarBar->SetOrientationToHorizontal();
    else
        scalarBar->SetOrientationToVertical();
    scalarBar->SetWidth(double(width));
    scalarBar->SetHeight(double(height));
    scalarBar->SetNumberOfLabels(numberOfLabels);
    scalarBar->SetMaximumNumberOfColors(maximumNumberOfColors);
    // The legend hands its format to printf with one double at every render;
    // a format asking for anything else (a string, two numbers, nothing at
    // all) would read garbage or crash there, so it is refused and the
    // legend keeps its previous format.
    if (isDoubleFormat(labelFormat))
        scalarBar->SetLabelFormat(labelFormat);
    else
        qWarning() << "ScalarBar: label format" << (labelFormat ? labelFormat : "(null)")
                   << "is not a format for one number; keeping" << scalarBar->GetLabelFormat();
    scalarBar->GetTitleTextProperty()->SetColor(0.0, 0.0, 0.0);
    scalarBar->GetLabelTextProperty()->SetColor(0.0, 0.0, 0.0);
}

void ScalarBar::paint() {
    scalarBar->SetLookupTable(lut);
    if (renderer)
        renderer->AddActor(scalarBar);
}

bool ScalarBar::isDoubleFormat(const char* format) {
    if (!format)
        return false;
    int conversions = 0;
    for (const char* p = format; *p; ++p) {
        if (*p != '%')
            continue;
        ++p;
        if (*p == '%')
            continue;
        while (*p && std::strchr("-+ #0'", *p))
            ++p;
        while (*p >= '0' && *p <= '9')
            ++p;
        if (*p == '.') {
            ++p;
            while (*p >= '0' && *p <= '9')
                ++p;
        }
        if (!*p || !std::strchr("eEfFgGaA", *p))
            return false;
        ++conversions;
    }
    return conversions == 1;
}

} // namespace Orlavex
