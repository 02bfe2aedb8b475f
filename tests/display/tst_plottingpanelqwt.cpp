// PlottingPanelQwt: legend placement, the checkable legend, the right-click
// autoscale and a screenshot of a plotted trail.
#include <Orlavex/display/PlottingPanelQwt.h>
#include <Orlavex/display/TrailQwt.h>

#include "GuiTestMain.h"
#include "ScreenshotProbe.h"

#include <QtTest>
#include <qwt_legend.h>
#include <qwt_legend_label.h>
#include <qwt_plot_canvas.h>
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

QwtLegendLabel* labelOf(PlottingPanelQwt& plot, TrailQwt& trail) {
    const QList<QWidget*> widgets =
        plot.getLegend()->legendWidgets(plot.itemToInfo(trail.getCurve()));
    return widgets.size() == 1 ? qobject_cast<QwtLegendLabel*>(widgets.first()) : nullptr;
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
    void defaults() {
        PlottingPanelQwt plot;
        QVERIFY(plot.getZoomer());
        QCOMPARE(plot.getZoomer()->canvas(), plot.canvas());
        QCOMPARE(plot.getZoomer()->trackerMode(), QwtPicker::AlwaysOff);
        QCOMPARE(plot.getZoomer()->maxStackDepth(), 10);
        QVERIFY(plot.getLegend());
        QVERIFY(!plot.legend()); // not shown yet
        QVERIFY(plot.getCheckableLegend());
        QVERIFY(plot.getAutoscalex());
        QVERIFY(plot.getAutoscaley());
    }

    void legendPlacement_data() {
        QTest::addColumn<bool>("show");
        QTest::addColumn<bool>("null");
        QTest::addColumn<QByteArray>("position");
        QTest::addColumn<int>("expected"); // -1: no legend
        QTest::newRow("right") << true << false << QByteArray("RightLegend")
                               << int(QwtPlot::RightLegend);
        QTest::newRow("left") << true << false << QByteArray("LeftLegend")
                              << int(QwtPlot::LeftLegend);
        QTest::newRow("bottom") << true << false << QByteArray("BottomLegend")
                                << int(QwtPlot::BottomLegend);
        QTest::newRow("top") << true << false << QByteArray("TopLegend") << int(QwtPlot::TopLegend);
        QTest::newRow("lower case")
            << true << false << QByteArray("rightlegend") << int(QwtPlot::TopLegend);
        QTest::newRow("other text")
            << true << false << QByteArray("Right") << int(QwtPlot::TopLegend);
        QTest::newRow("null") << true << true << QByteArray() << int(QwtPlot::TopLegend);
        QTest::newRow("not shown") << false << false << QByteArray("RightLegend") << -1;
        QTest::newRow("not shown, null") << false << true << QByteArray() << -1;
    }
    void legendPlacement() {
        QFETCH(bool, show);
        QFETCH(bool, null);
        QFETCH(QByteArray, position);
        QFETCH(int, expected);
        PlottingPanelQwt plot;
        plot.insertLeg(show, null ? nullptr : position.constData());
        if (expected < 0) {
            QVERIFY(!plot.legend());
            return;
        }
        QCOMPARE(plot.legend(), plot.getLegend());
        QCOMPARE(int(plot.plotLayout()->legendPosition()), expected);
    }

    void movingTheLegendKeepsIt() {
        PlottingPanelQwt plot;
        plot.insertLeg(true, "LeftLegend");
        QwtLegend* legend = plot.getLegend();
        plot.insertLeg(true, "BottomLegend");
        QCOMPARE(plot.getLegend(), legend);
        QCOMPARE(plot.legend(), legend);
        QCOMPARE(plot.plotLayout()->legendPosition(), QwtPlot::BottomLegend);
    }

    void checkableLegendHidesCurve_data() {
        QTest::addColumn<bool>("checkableFirst"); // made checkable before the curves exist
        QTest::addColumn<int>("clicked");
        QTest::newRow("first entry") << true << 0;
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
        TrailQwt a(QStringLiteral("a"));
        TrailQwt b(QStringLiteral("b"));
        a.attachToPlot(&plot);
        b.attachToPlot(&plot);
        if (!checkableFirst) {
            plot.setCheckableLegend(true);
            plot.setCheckableLegend(true); // a second call changes nothing
        }
        plot.resize(500, 300);
        plot.show();
        QVERIFY(QTest::qWaitForWindowExposed(&plot));

        TrailQwt& hit = clicked == 0 ? a : b;
        TrailQwt& other = clicked == 0 ? b : a;
        QwtLegendLabel* label = nullptr;
        QTRY_VERIFY((label = labelOf(plot, hit)) && label->isVisible());
        QCOMPARE(label->itemMode(), QwtLegendData::Checkable);
        QVERIFY(!label->isChecked());

        QTest::mouseClick(label, Qt::LeftButton);
        QVERIFY(label->isChecked());
        QVERIFY(!hit.getCurve()->isVisible());
        QVERIFY(other.getCurve()->isVisible());

        QTest::mouseClick(label, Qt::LeftButton);
        QVERIFY(!label->isChecked());
        QVERIFY(hit.getCurve()->isVisible());
    }

    void notCheckableLegendIgnoresClicks() {
        PlottingPanelQwt plot;
        plot.insertLeg(true, "RightLegend");
        TrailQwt a(QStringLiteral("a"));
        a.attachToPlot(&plot);
        plot.setCheckableLegend(false);
        QVERIFY(!plot.getCheckableLegend());
        plot.show();
        QVERIFY(QTest::qWaitForWindowExposed(&plot));
        QwtLegendLabel* label = nullptr;
        QTRY_VERIFY((label = labelOf(plot, a)) && label->isVisible());
        QTest::mouseClick(label, Qt::LeftButton);
        QVERIFY(a.getCurve()->isVisible());
    }

    void rightClickAutoscale_data() {
        QTest::addColumn<bool>("autoscalex");
        QTest::addColumn<bool>("autoscaley");
        QTest::newRow("both off: zoom base only") << false << false;
        QTest::newRow("x only") << true << false;
        QTest::newRow("y only") << false << true;
        QTest::newRow("both") << true << true;
    }
    void rightClickAutoscale() {
        QFETCH(bool, autoscalex);
        QFETCH(bool, autoscaley);
        PlottingPanelQwt plot;
        TrailQwt trail(QStringLiteral("t"));
        trail.attachToPlot(&plot);
        feed(trail, {{0, 0}, {10, 100}});
        plot.resize(500, 300);
        plot.show();
        QVERIFY(QTest::qWaitForWindowExposed(&plot));
        plot.replot();

        plot.getZoomer()->zoom(QRectF(2, 20, 2, 20)); // x 2..4, y 20..40
        QCOMPARE(plot.getZoomer()->zoomRectIndex(), 1u);
        const QRectF zoomed = view(plot);
        QVERIFY(!plot.axisAutoScale(QwtPlot::xBottom));

        plot.setAutoscalex(autoscalex);
        plot.setAutoscaley(autoscaley);
        QTest::mouseClick(&plot, Qt::RightButton, Qt::NoModifier, QPoint(5, 5));

        QCOMPARE(plot.axisAutoScale(QwtPlot::xBottom), autoscalex);
        QCOMPARE(plot.axisAutoScale(QwtPlot::yLeft), autoscaley);
        const QRectF now = view(plot);
        if (autoscalex) {
            QVERIFY(now.left() <= 0 && now.right() >= 10);
        } else {
            QCOMPARE(now.left(), zoomed.left());
            QCOMPARE(now.right(), zoomed.right());
        }
        if (autoscaley) {
            QVERIFY(now.top() <= 0 && now.bottom() >= 100);
        } else {
            QCOMPARE(now.top(), zoomed.top());
            QCOMPARE(now.bottom(), zoomed.bottom());
        }
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
        plot.resize(400, 300);
        plot.show();
        QVERIFY(QTest::qWaitForWindowExposed(&plot));
        plot.replot();

        const QImage image = plot.grab().toImage();
        auto at = [&](double x, double y) {
            const QPoint inCanvas(qRound(plot.transform(QwtPlot::xBottom, x)),
                                  qRound(plot.transform(QwtPlot::yLeft, y)));
            return plot.canvas()->mapTo(&plot, inCanvas);
        };
        auto colourNear = [&](QPoint p) {
            for (int dy = -2; dy <= 2; ++dy)
                for (int dx = -2; dx <= 2; ++dx)
                    if (probe::near(image.pixelColor(p + QPoint(dx, dy)), colour, 30))
                        return true;
            return false;
        };
        PROBE_VERIFY(colourNear(at(2.5, 2.5)), image, "trail");
        PROBE_VERIFY(colourNear(at(7.5, 7.5)), image, "trail");
        PROBE_VERIFY(!colourNear(at(8, 2)), image, "trail"); // off the curve
    }
};

ORLAVEX_GUI_TEST_MAIN(TestPlottingPanelQwt)
#include "tst_plottingpanelqwt.moc"
