// PlottingPanelQwt: legend placement, the checkable legend, the right-click
// autoscale and a screenshot of a plotted trail.
#include <Orlavex/display/PlottingPanelQwt.h>
#include <Orlavex/display/TrailQwt.h>

#include "GuiTestMain.h"
#include "ScreenshotProbe.h"

#include <qwt_legend_label.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_layout.h>
#include <qwt_plot_zoomer.h>
#include <qwt_scale_div.h>

namespace {
void feed(TrailQwt& trail, const QVector<QPointF>& points) {
    for (const QPointF& p : points) {
        QVector<double> v{p.x(), p.y()};
        trail.insertXY(&v);
    }
}

bool show(QWidget& w) {
    w.resize(500, 300);
    w.show();
    return QTest::qWaitForWindowExposed(&w);
}

QRectF view(const PlottingPanelQwt& plot) {
    const QwtScaleDiv x = plot.axisScaleDiv(QwtPlot::xBottom);
    const QwtScaleDiv y = plot.axisScaleDiv(QwtPlot::yLeft);
    return QRectF(x.lowerBound(), y.lowerBound(), x.range(), y.range());
}
} // namespace

class TestPlottingPanelQwt : public QObject {
    Q_OBJECT

private slots:
    void legendPlacement_data() {
        QTest::addColumn<bool>("show");
        QTest::addColumn<bool>("null");
        QTest::addColumn<QByteArray>("position");
        QTest::addColumn<int>("expected"); // -1: no legend
        QTest::newRow("left") << true << false << QByteArray("LeftLegend")
                              << int(QwtPlot::LeftLegend);
        QTest::newRow("bottom") << true << false << QByteArray("BottomLegend")
                                << int(QwtPlot::BottomLegend);
        QTest::newRow("lower case")
            << true << false << QByteArray("rightlegend") << int(QwtPlot::TopLegend);
        QTest::newRow("null") << true << true << QByteArray() << int(QwtPlot::TopLegend);
        QTest::newRow("not shown") << false << false << QByteArray("RightLegend") << -1;
    }
    void legendPlacement() {
        QFETCH(bool, show);
        QFETCH(bool, null);
        QFETCH(QByteArray, position);
        QFETCH(int, expected);
        PlottingPanelQwt plot;
        plot.insertLeg(show, null ? nullptr : position.constData());
        QCOMPARE(plot.legend(), expected < 0 ? nullptr : plot.getLegend());
        if (expected >= 0)
            QCOMPARE(int(plot.plotLayout()->legendPosition()), expected);
    }

    void checkableLegendHidesCurve_data() {
        QTest::addColumn<bool>("checkableFirst"); // before the curves exist
        QTest::addColumn<int>("clicked");
        QTest::newRow("second entry") << true << 1;
        QTest::newRow("made checkable after attaching") << false << 0;
    }
    void checkableLegendHidesCurve() {
        QFETCH(bool, checkableFirst);
        QFETCH(int, clicked);
        PlottingPanelQwt plot;
        plot.insertLeg(true, "RightLegend");
        if (checkableFirst)
            plot.setCheckableLegend(true);
        TrailQwt trails[] = {TrailQwt(QStringLiteral("a")), TrailQwt(QStringLiteral("b"))};
        for (TrailQwt& t : trails)
            t.attachToPlot(&plot);
        if (!checkableFirst)
            plot.setCheckableLegend(true);
        QVERIFY(show(plot));

        QwtPlotCurve* hit = trails[clicked].getCurve();
        QwtLegendLabel* label = nullptr;
        QTRY_VERIFY((label = qobject_cast<QwtLegendLabel*>(
                         plot.getLegend()->legendWidget(plot.itemToInfo(hit)))) &&
                    label->isVisible());
        QVERIFY(!label->isChecked());
        QTest::mouseClick(label, Qt::LeftButton);
        QVERIFY(label->isChecked());
        QVERIFY(!hit->isVisible());
        QVERIFY(trails[1 - clicked].getCurve()->isVisible());
        QTest::mouseClick(label, Qt::LeftButton);
        QVERIFY(!label->isChecked());
        QVERIFY(hit->isVisible());
    }

    void rightClickAutoscale_data() {
        QTest::addColumn<bool>("autoscalex");
        QTest::addColumn<bool>("autoscaley");
        QTest::newRow("both off: zoom base only") << false << false;
        QTest::newRow("x only") << true << false;
    }
    void rightClickAutoscale() {
        QFETCH(bool, autoscalex);
        QFETCH(bool, autoscaley);
        PlottingPanelQwt plot;
        TrailQwt trail(QStringLiteral("t"));
        trail.attachToPlot(&plot);
        feed(trail, {{0, 0}, {10, 100}});
        QVERIFY(show(plot));
        plot.replot();
        plot.getZoomer()->zoom(QRectF(2, 20, 2, 20));
        const QRectF zoomed = view(plot);

        plot.setAutoscalex(autoscalex);
        plot.setAutoscaley(autoscaley);
        QTest::mouseClick(&plot, Qt::RightButton, {}, QPoint(5, 5));
        QCOMPARE(plot.axisAutoScale(QwtPlot::xBottom), autoscalex);
        QCOMPARE(plot.axisAutoScale(QwtPlot::yLeft), autoscaley);
        const QRectF now = view(plot);
        QCOMPARE(now.left() <= 0 && now.right() >= 10, autoscalex);
        QCOMPARE(now.top() <= 0 && now.bottom() >= 100, autoscaley);
        if (!autoscalex)
            QCOMPARE(now.width(), zoomed.width());
        if (!autoscaley)
            QCOMPARE(now.height(), zoomed.height());
        // The present view is the zoomer's new base.
        QCOMPARE(plot.getZoomer()->zoomRectIndex(), 0u);
        QCOMPARE(plot.getZoomer()->zoomBase(), now);
    }

    void screenshotShowsTrailColour() {
        PlottingPanelQwt plot;
        plot.setCanvasBackground(Qt::white);
        TrailQwt trail(QStringLiteral("t"));
        trail.attachToPlot(&plot);
        const QColor colour(0, 160, 0);
        trail.getCurve()->setPen(colour, 3);
        feed(trail, {{0, 0}, {5, 5}, {10, 10}});
        QVERIFY(show(plot));
        plot.replot();

        const QImage image = plot.grab().toImage();
        auto colourNear = [&](double x, double y) {
            const QPoint p =
                plot.canvas()->mapTo(&plot, QPoint(qRound(plot.transform(QwtPlot::xBottom, x)),
                                                   qRound(plot.transform(QwtPlot::yLeft, y))));
            for (int dy = -2; dy <= 2; ++dy)
                for (int dx = -2; dx <= 2; ++dx)
                    if (probe::near(image.pixelColor(p + QPoint(dx, dy)), colour, 30))
                        return true;
            return false;
        };
        PROBE_VERIFY(colourNear(2.5, 2.5) && colourNear(7.5, 7.5), image, "trail");
        PROBE_VERIFY(!colourNear(8, 2), image, "trail"); // off the curve
    }
};

ORLAVEX_GUI_TEST_MAIN(TestPlottingPanelQwt)
#include "tst_plottingpanelqwt.moc"
