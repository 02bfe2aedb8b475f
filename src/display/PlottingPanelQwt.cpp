#include "PlottingPanelQwt.h"

#include <QMouseEvent>
#include <qwt_legend.h>
#include <qwt_legend_label.h>
#include <qwt_plot_canvas.h>
#include <qwt_plot_zoomer.h>

namespace Orlavex {

PlottingPanelQwt::PlottingPanelQwt(QWidget* parent)
    : QwtPlot(parent), zoomer(new QwtPlotZoomer(canvas(), true)) {
    zoomer->setTrackerMode(QwtPicker::AlwaysOff);
    zoomer->setMaxStackDepth(10);
    ensureLegend();
}

PlottingPanelQwt::~PlottingPanelQwt() {
    // Inserted, the plot owns it; never inserted, it has no parent and is ours.
    if (plotLegend && !plotLegend->parent())
        delete plotLegend.data();
}

bool PlottingPanelQwt::ensureLegend() {
    if (plotLegend)
        return false;
    // No parent until insertLeg: a plot without a legend has no legend child.
    plotLegend = new QwtLegend;
    plotLegend->hide();
    return true;
}

void PlottingPanelQwt::insertLeg(bool show, const char* position) {
    if (!show)
        return;
    const QString text = QString::fromUtf8(position ? position : "");
    LegendPosition where = TopLegend;
    if (text == QLatin1String("RightLegend"))
        where = RightLegend;
    else if (text == QLatin1String("LeftLegend"))
        where = LeftLegend;
    else if (text == QLatin1String("BottomLegend"))
        where = BottomLegend;
    if (ensureLegend() && legendMadeCheckable)
        makeLegendCheckable();
    insertLegend(plotLegend, where, -1.0);
}

void PlottingPanelQwt::setCheckableLegend(bool on) {
    checkableLegend = on;
    if (!on)
        return;
    legendMadeCheckable = true;
    ensureLegend();
    makeLegendCheckable();
}

void PlottingPanelQwt::makeLegendCheckable() {
    plotLegend->setDefaultItemMode(QwtLegendData::Checkable);
    // A unique connection, so that a repeated call does not re-plot twice per
    // click.
    connect(plotLegend.data(), &QwtLegend::checked, this, &PlottingPanelQwt::legendChecked,
            Qt::UniqueConnection);
    // Entries made before the mode changed take it on at the legend's update.
    updateLegend();
}

void PlottingPanelQwt::legendChecked(const QVariant& itemInfo, bool on) {
    if (QwtPlotItem* item = infoToItem(itemInfo))
        showCurve(item, on);
}

void PlottingPanelQwt::showCurve(QwtPlotItem* item, bool on) {
    item->setVisible(!on);
    if (plotLegend) {
        const QList<QWidget*> widgets = plotLegend->legendWidgets(itemToInfo(item));
        if (widgets.size() == 1)
            if (auto* label = qobject_cast<QwtLegendLabel*>(widgets.first()))
                label->setChecked(on);
    }
    replot();
}

void PlottingPanelQwt::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::RightButton)
        return; // handled here by doing nothing: not passed on to the plot

    if (autoscalex)
        setAxisAutoScale(xBottom, true);
    if (autoscaley)
        setAxisAutoScale(yLeft, true);
    zoomer->setZoomBase(true);
    event->accept();
}

} // namespace Orlavex
