#pragma once

#include <Orlavex/orlavex_export.h>

#include <QPointer>
#include <qwt_legend.h>
#include <qwt_plot.h>

class QwtPlotItem;
class QwtPlotZoomer;

namespace Orlavex {

/// A time plot: a Qwt plot with a rubber-band zoomer, a legend that can be
/// placed on any side and made checkable (checking an entry hides its
/// curve), and a right-click that restores automatic axis scaling.
class ORLAVEX_EXPORT PlottingPanelQwt : public QwtPlot {
    Q_OBJECT
public:
    explicit PlottingPanelQwt(QWidget* parent = nullptr);
    ~PlottingPanelQwt() override;

    /// Shows the legend when `show` is true: "RightLegend", "LeftLegend" or
    /// "BottomLegend" (exact, case included) put it on that side, any other
    /// text or null on top.
    void insertLeg(bool show, const char* position);
    /// With true, legend entries become check boxes that hide their curve.
    /// False only records the value: a checkable legend stays checkable.
    void setCheckableLegend(bool on);
    bool getCheckableLegend() const { return checkableLegend; }
    /// Whether a right-click re-enables automatic scaling of the bottom axis.
    void setAutoscalex(bool on) { autoscalex = on; }
    bool getAutoscalex() const { return autoscalex; }
    /// Whether a right-click re-enables automatic scaling of the left axis.
    void setAutoscaley(bool on) { autoscaley = on; }
    bool getAutoscaley() const { return autoscaley; }

    /// The zoomer on the plot's canvas, which owns it.
    QwtPlotZoomer* getZoomer() const { return zoomer; }
    /// The legend that `insertLeg` shows.
    QwtLegend* getLegend() const { return plotLegend; }

protected:
    void mousePressEvent(QMouseEvent* event) override;

private slots:
    void legendChecked(const QVariant& itemInfo, bool on);

private:
    void showCurve(QwtPlotItem* item, bool on);
    void makeLegendCheckable();
    /// Makes a legend when there is none (never made, or deleted by the
    /// plot); true when it did.
    bool ensureLegend();

    QwtPlotZoomer* const zoomer;
    // A child of the panel from the start, hidden until `insertLeg` shows it.
    // The plot deletes it when a direct QwtPlot::insertLegend replaces it;
    // hence the guard.
    QPointer<QwtLegend> plotLegend;
    bool checkableLegend = true;
    bool autoscalex = true;
    bool autoscaley = true;
    bool legendMadeCheckable = false;
};

} // namespace Orlavex
