// The Qwt time plots. TrailQwt: append mode with skipping and a bounded
// buffer, replace mode, bad batches and the ownership of the curve.
// PlottingPanelQwt: legend placement, the checkable legend, the right-click
// autoscale and a screenshot of a plotted trail.
#include <Orlavex/Orlavex.h>

#include "GuiTestMain.h"
#include "ScreenshotProbe.h"

#include <qwt_legend_label.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_layout.h>
#include <qwt_plot_zoomer.h>
#include <qwt_scale_div.h>

namespace {
// Feeds the points (x, 10 x) for x = from..to, one per batch.
void feed(TrailQwt& trail, int from, int to) {
    for (int i = from; i <= to; ++i) {
        QVector<double> p{double(i), 10.0 * i};
        trail.insertXY(&p);
    }
}

// The x of every shown point, after checking that y = 10 x.
QVector<int> shownX(const TrailQwt& trail) {
    QVector<int> out;
    for (size_t i = 0; i < trail.getCurve()->dataSize(); ++i) {
        const QPointF p = trail.getCurve()->sample(int(i));
        out << (p.y() == 10 * p.x() ? int(p.x()) : -1);
    }
    return out;
}

QVector<int> range(int from, int to) {
    QVector<int> v;
    for (int i = from; i <= to; ++i)
        v << i;
    return v;
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

class TestQwtPlots : public QObject {
    Q_OBJECT

private slots:
    void appendKeepsNewestKeptPoints_data() {
        QTest::addColumn<int>("maxPoints");
        QTest::addColumn<int>("skip");
        QTest::addColumn<int>("count");
        QTest::addColumn<QVector<int>>("kept");
        QTest::newRow("every point") << 500 << 0 << 4 << range(1, 4);
        QTest::newRow("skip 2 of 1..9") << 500 << 2 << 9 << QVector<int>{3, 6, 9};
        // Limits outside 1..500 stand for 500.
        QTest::newRow("max 0, 501st removes the first") << 0 << 0 << 501 << range(2, 501);
        QTest::newRow("max 501") << 501 << 0 << 501 << range(2, 501);
        QTest::newRow("max -3") << -3 << 0 << 501 << range(2, 501);
        QTest::newRow("max 1 keeps the newest") << 1 << 0 << 7 << QVector<int>{7};
        // Full with skip > 0: max - 1 and max points shown in turn.
        QTest::newRow("full, skip 1, 9 points") << 3 << 1 << 9 << QVector<int>{6, 8};
        QTest::newRow("full, skip 1, 10 points") << 3 << 1 << 10 << QVector<int>{6, 8, 10};
        QTest::newRow("full, skip 2, 28 points") << 4 << 2 << 28 << QVector<int>{21, 24, 27};
        QTest::newRow("full, skip 2, 30 points") << 4 << 2 << 30 << QVector<int>{21, 24, 27, 30};
    }
    void appendKeepsNewestKeptPoints() {
        QFETCH(int, maxPoints);
        QFETCH(int, skip);
        QFETCH(int, count);
        QFETCH(QVector<int>, kept);
        TrailQwt trail(QStringLiteral("t"));
        trail.setNMaxPoints(maxPoints);
        trail.setNSkip(skip);
        feed(trail, 1, count);
        QCOMPARE(shownX(trail), kept);
    }

    void loweredLimitTrimsAtNextPoint() {
        TrailQwt trail(QStringLiteral("t"));
        feed(trail, 1, 50);
        trail.setNMaxPoints(5);
        feed(trail, 51, 51);
        QCOMPARE(shownX(trail), range(47, 51));
    }

    // A batch replaces what is shown and leaves the append buffers alone.
    void replaceMode_data() {
        QTest::addColumn<int>("n");
        QTest::addColumn<QVector<double>>("batch");
        QTest::addColumn<QVector<int>>("shown"); // x values; the batch holds x, then y
        QTest::newRow("4 points") << 4 << QVector<double>{5, 2, 7, 3, 50, 20, 70, 30}
                                  << QVector<int>{5, 2, 7, 3};
        QTest::newRow("0 points") << 0 << QVector<double>{} << QVector<int>{};
        QTest::newRow("negative count") << -2 << QVector<double>{1, 2} << QVector<int>{};
    }
    void replaceMode() {
        QFETCH(int, n);
        QFETCH(QVector<double>, batch);
        QFETCH(QVector<int>, shown);
        TrailQwt trail(QStringLiteral("t"));
        feed(trail, 1, 3);
        trail.setNReceivedPoints(n);
        trail.insertXY(&batch);
        QCOMPARE(shownX(trail), shown);
        trail.setNReceivedPoints(1);
        feed(trail, 4, 4);
        QCOMPARE(shownX(trail), range(1, 4));
    }

    void badBatchesChangeNothing_data() {
        QTest::addColumn<int>("n");
        QTest::addColumn<bool>("null");
        QTest::addColumn<QVector<double>>("batch");
        QTest::newRow("append, null") << 1 << true << QVector<double>{};
        QTest::newRow("append, one value") << 1 << false << QVector<double>{4};
        QTest::newRow("replace, short") << 3 << false << QVector<double>{1, 2, 3, 4, 5};
        QTest::newRow("replace, huge count") << 0x7fffffff << false << QVector<double>{1, 2};
    }
    void badBatchesChangeNothing() {
        QFETCH(int, n);
        QFETCH(bool, null);
        QFETCH(QVector<double>, batch);
        TrailQwt trail(QStringLiteral("t"));
        feed(trail, 1, 2);
        trail.setNReceivedPoints(n);
        trail.insertXY(null ? nullptr : &batch);
        QCOMPARE(shownX(trail), range(1, 2));
    }

    void curveOwnership() {
        auto* plot = new PlottingPanelQwt;
        {
            TrailQwt trail(QStringLiteral("a"));
            trail.attachToPlot(plot);
            { TrailQwt copy(trail); }
            QCOMPARE(trail.getCurve()->plot(), plot); // the copy left it attached
        }
        QVERIFY(plot->itemList().isEmpty()); // the last copy took it off

        TrailQwt survivor(QStringLiteral("b"));
        survivor.attachToPlot(plot);
        delete plot; // deletes the attached curve
        QVERIFY(!survivor.getCurve() && !survivor.getPlot());
        feed(survivor, 1, 3); // no crash
        QCOMPARE(survivor.getNStored(), 3);
    }

    // Names are compared with case; a null one gives the top.
    void legendPlacement_data() {
        QTest::addColumn<QByteArray>("position"); // null: a null pointer
        QTest::addColumn<int>("expected");        // -1: insertLeg(false, ...), no legend
        QTest::newRow("left") << QByteArray("LeftLegend") << int(QwtPlot::LeftLegend);
        QTest::newRow("bottom") << QByteArray("BottomLegend") << int(QwtPlot::BottomLegend);
        QTest::newRow("lower case") << QByteArray("rightlegend") << int(QwtPlot::TopLegend);
        QTest::newRow("null") << QByteArray() << int(QwtPlot::TopLegend);
        QTest::newRow("not shown") << QByteArray("RightLegend") << -1;
    }
    void legendPlacement() {
        QFETCH(QByteArray, position);
        QFETCH(int, expected);
        PlottingPanelQwt plot;
        plot.insertLeg(expected >= 0, position.isNull() ? nullptr : position.constData());
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
        feed(trail, 0, 10); // up to (10, 100)
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
        feed(trail, 0, 10);
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
        PROBE_VERIFY(colourNear(2.5, 25) && colourNear(7.5, 75), image, "trail");
        PROBE_VERIFY(!colourNear(8, 20), image, "trail"); // off the curve
    }
};

ORLAVEX_GUI_TEST_MAIN(TestQwtPlots)
#include "tst_qwtplots.moc"
