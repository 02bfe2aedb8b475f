#pragma once

#include <Orlavex/orlavex_export.h>

#include <QVTKOpenGLNativeWidget.h>
#include <vtkSmartPointer.h>

class vtkDataObject;
class vtkRenderer;
class vtkTextProperty;
class vtkXYPlotActor;

namespace Orlavex {

/// A 2-D line chart drawn with VTK: a widget with a renderer of its own and
/// one XY plot actor that plots any number of client-supplied data objects.
///
/// Each data object's field data holds the x values in component 0 and the
/// y values in component 1. The chart shows once the client application has
/// put `plotActor` on `renderer` (`renderer->AddActor(plotActor)`).
class ORLAVEX_EXPORT PlottingPanel : public QVTKOpenGLNativeWidget {
    Q_OBJECT
    // The panel's references. Declared first: the public pointers below are
    // initialised from them.
    vtkSmartPointer<vtkRenderer> m_renderer;
    vtkSmartPointer<vtkXYPlotActor> m_plotActor;
    vtkSmartPointer<vtkTextProperty> m_textProperty;

public:
    explicit PlottingPanel(QWidget* parent = nullptr);
    ~PlottingPanel() override;

    /// Plots `data` as the last curve (moving it there if it was added
    /// before) and returns the curve number used: the number of earlier
    /// calls. Null adds nothing and returns -1.
    int addTrail(vtkDataObject* data);
    /// Colour of curve `curve` (line and legend entry); negative numbers are ignored.
    void setTrailColor(int curve, double r, double g, double b);
    /// Legend text of curve `curve` (UTF-8; null is the empty text); negative numbers are ignored.
    void setTrailLabel(int curve, const char* label);

    void legendOn();
    /// x values on a logarithmic axis.
    void logxOn();
    void setTitle(const char* title);
    void setXTitle(const char* title);
    void setYTitle(const char* title);
    void setNumberOfXLabels(int n);
    void setNumberOfYLabels(int n);
    /// Style of the title alone; null keeps the present one.
    void setTitleTextProperty(vtkTextProperty* p);
    /// Style of the axis titles alone; null keeps the present one.
    void setAxisTitleTextProperty(vtkTextProperty* p);
    /// Style of the axis labels alone; null keeps the present one.
    void setAxisLabelTextProperty(vtkTextProperty* p);
    /// Colour of the axes and of curves without a colour of their own.
    void setPlotColor(double r, double g, double b);
    void setBackGroundColor(double r, double g, double b);

    /// The panel's renderer (white background), owned by the panel.
    vtkRenderer* const renderer;
    /// The chart, owned by the panel; not on `renderer` until the client puts it there.
    vtkXYPlotActor* const plotActor;
    /// Shared style of title, axis titles and axis labels: black Times text.
    vtkTextProperty* const textProperty;

private:
    int trailCount = 0;
};

} // namespace Orlavex
