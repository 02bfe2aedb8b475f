#include "PlottingPanel.h"

#include <vtkGenericOpenGLRenderWindow.h>
#include <vtkNew.h>
#include <vtkProperty2D.h>
#include <vtkRenderer.h>
#include <vtkTextProperty.h>
#include <vtkXYPlotActor.h>

namespace Orlavex {

PlottingPanel::PlottingPanel(QWidget* parent)
    : QVTKOpenGLNativeWidget(parent), m_renderer(vtkSmartPointer<vtkRenderer>::New()),
      m_plotActor(vtkSmartPointer<vtkXYPlotActor>::New()),
      m_textProperty(vtkSmartPointer<vtkTextProperty>::New()), renderer(m_renderer),
      plotActor(m_plotActor), textProperty(m_textProperty) {
    vtkNew<vtkGenericOpenGLRenderWindow> window;
    setRenderWindow(window);
    renderWindow()->AddRenderer(renderer);
    renderer->SetBackground(1.0, 1.0, 1.0);

    plotActor->SetXValuesToValue();
    plotActor->SetWidth(0.9);
    plotActor->SetHeight(0.9);
    plotActor->SetPosition(0.0, 0.0);
    plotActor->LegendOn();
    plotActor->PickableOff();
    // The size is the line width: the chart draws lines, and VTK's one-pixel
    // default is hard to see and to tell apart by colour.
    plotActor->GetProperty()->SetLineWidth(2.0);
    plotActor->GetProperty()->SetColor(0.0, 0.0, 0.0);

    // Shadows stay off (VTK's default, set explicitly because the style is
    // shared): on the white background they only blur the thin Times glyphs.
    textProperty->ShadowOff();
    textProperty->SetColor(0.0, 0.0, 0.0);
    textProperty->SetFontFamilyToTimes();
    textProperty->SetOpacity(1.0);
    textProperty->ShadowOff();

    plotActor->SetTitleTextProperty(textProperty);
    plotActor->SetAxisTitleTextProperty(textProperty);
    plotActor->SetAxisLabelTextProperty(textProperty);
    // Curves are drawn as lines joining their points, without markers:
    // VTK's default, made explicit so that the line width above is what shows.
    plotActor->PlotLinesOn();

    // Like the 3-D canvas, the chart takes the room that other widgets leave.
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

PlottingPanel::~PlottingPanel() = default;

int PlottingPanel::addTrail(vtkDataObject* data) {
    if (!data)
        return -1;
    plotActor->RemoveDataObjectInput(data);
    plotActor->AddDataObjectInput(data);
    plotActor->SetXValuesToValue();
    plotActor->SetDataObjectXComponent(trailCount, 0);
    plotActor->SetDataObjectYComponent(trailCount, 1);
    return trailCount++;
}

void PlottingPanel::setTrailColor(int curve, double r, double g, double b) {
    if (curve >= 0)
        plotActor->SetPlotColor(curve, r, g, b);
}

void PlottingPanel::setTrailLabel(int curve, const char* label) {
    if (curve >= 0)
        plotActor->SetPlotLabel(curve, label ? label : "");
}

void PlottingPanel::legendOn() {
    plotActor->LegendOn();
}

void PlottingPanel::logxOn() {
    plotActor->LogxOn();
}

void PlottingPanel::setTitle(const char* title) {
    plotActor->SetTitle(title);
}

void PlottingPanel::setXTitle(const char* title) {
    plotActor->SetXTitle(title);
}

void PlottingPanel::setYTitle(const char* title) {
    plotActor->SetYTitle(title);
}

void PlottingPanel::setNumberOfXLabels(int n) {
    plotActor->SetNumberOfXLabels(n);
}

void PlottingPanel::setNumberOfYLabels(int n) {
    plotActor->SetNumberOfYLabels(n);
}

// The plot actor reads its text styles at every render; a null style would
// leave it nothing to draw the text with.
void PlottingPanel::setTitleTextProperty(vtkTextProperty* p) {
    if (p)
        plotActor->SetTitleTextProperty(p);
}

void PlottingPanel::setAxisTitleTextProperty(vtkTextProperty* p) {
    if (p)
        plotActor->SetAxisTitleTextProperty(p);
}

void PlottingPanel::setAxisLabelTextProperty(vtkTextProperty* p) {
    if (p)
        plotActor->SetAxisLabelTextProperty(p);
}

void PlottingPanel::setPlotColor(double r, double g, double b) {
    plotActor->GetProperty()->SetColor(r, g, b);
}

void PlottingPanel::setBackGroundColor(double r, double g, double b) {
    renderer->SetBackground(r, g, b);
}

} // namespace Orlavex
