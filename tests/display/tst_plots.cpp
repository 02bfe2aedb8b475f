// The plotting panels. PlottingPanel (VTK): curve numbers, the order of the
// plotted inputs in a rendered chart, and text styles. TrailQwt: append mode
// with skipping and a bounded buffer, replace mode, bad batches and the
// ownership of the curve. PlottingPanelQwt: legend placement, the checkable
// legend and the right-click autoscale.
#include <Orlavex/Orlavex.h>

#include "Fixtures.h"
#include "GuiTestMain.h"
#include "ScreenshotProbe.h"

#include <qwt_legend.h>
#include <qwt_legend_label.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_layout.h>
#include <qwt_plot_zoomer.h>
#include <qwt_scale_div.h>
#include <vtkDataObject.h>
#include <vtkDoubleArray.h>
#include <vtkFieldData.h>
#include <vtkTextProperty.h>
#include <vtkXYPlotActor.h>

#include <functional>

namespace {
// A data object whose field data holds x in component 0 and y in component 1.
vtkSmartPointer<vtkDataObject> series(const QVector<QPointF>& points) {
    vtkNew<vtkDoubleArray> x, y;
    for (const QPointF& p : points) {
        x->InsertNextValue(p.x());
        y->InsertNextValue(p.y());
    }
    auto data = vtkSmartPointer<vtkDataObject>::New();
    data->GetFieldData()->AddArray(x);
    data->GetFieldData()->AddArray(y);
    return data;
}

QImage render(PlottingPanel& panel) {
    if (!fixture::show(panel, {500, 400}))
        return {};
    panel.renderWindow()->Render();
    return panel.grab().toImage();
}

// Mean row of the pixels of one colour; -1 when there are none.
template <class Colour> double meanRow(const QImage& image, Colour colour) {
    double sum = 0;
    for (int y = 0; y < image.height(); ++y)
        sum += y * probe::count(image, colour, QRect(0, y, image.width(), 1));
    const int n = probe::count(image, colour);
    return n ? sum / n : -1;
}

// The plot actor may keep its own copies of the axis styles, so styles are
// compared by content.
QString style(vtkTextProperty* p) {
    const double* c = p->GetColor();
    return QString::asprintf("%g,%g,%g %s bold %d", c[0], c[1], c[2], p->GetFontFamilyAsString(),
                             p->GetBold());
}

using Xs = QVector<int>;
using Script = std::function<Xs(TrailQwt&)>; // acts on a trail, returns what it showed

// Feeds the points (x, 10 x) for x = from..to, one per batch.
void feed(TrailQwt& trail, int from, int to) {
    for (int i = from; i <= to; ++i) {
        QVector<double> p{double(i), 10.0 * i};
        trail.insertXY(&p);
    }
}

// The x of every shown point, after checking that y = 10 x.
Xs shownX(const TrailQwt& trail) {
    Xs out;
    for (size_t i = 0; i < trail.getCurve()->dataSize(); ++i) {
        const QPointF p = trail.getCurve()->sample(int(i));
        out << (p.y() == 10 * p.x() ? int(p.x()) : -1);
    }
    return out;
}

Xs range(int from, int to) {
    Xs v;
    for (int i = from; i <= to; ++i)
        v << i;
    return v;
}

// Points 1..count appended with the given limit and skip.
Script append(int maxPoints, int skip, int count) {
    return [=](TrailQwt& t) {
        t.setNMaxPoints(maxPoints);
        t.setNSkip(skip);
        feed(t, 1, count);
        return shownX(t);
    };
}

// Points 1..2 appended, then one batch of n points (`null`: a null batch):
// what it shows, then what shows once point 3 is appended again.
Script batch(int n, const QVector<double>& batch, bool null = false) {
    return [=](TrailQwt& t) {
        feed(t, 1, 2);
        t.setNReceivedPoints(n);
        QVector<double> copy = batch;
        t.insertXY(null ? nullptr : &copy);
        const Xs shown = shownX(t);
        t.setNReceivedPoints(1);
        feed(t, 3, 3);
        return shown + shownX(t);
    };
}

QRectF view(const PlottingPanelQwt& plot) {
    const QwtScaleDiv x = plot.axisScaleDiv(QwtPlot::xBottom);
    const QwtScaleDiv y = plot.axisScaleDiv(QwtPlot::yLeft);
    return QRectF(x.lowerBound(), y.lowerBound(), x.range(), y.range());
}
} // namespace

Q_DECLARE_METATYPE(Script)

class TestPlots : public QObject {
    Q_OBJECT

private slots:
    // Curves are numbered in the order added (a null input gets -1), colours
    // follow the input positions, and re-adding moves an input to the end.
    // Until the client puts the chart on the renderer the panel is blank.
    void chartOfNumberedCurves() {
        PlottingPanel panel;
        panel.plotActor->LegendOff(); // only the curves carry colour
        panel.plotActor->SetYRange(0, 4);
        auto a = series({{0, 1}, {10, 1}}), b = series({{0, 2}, {10, 2}}),
             c = series({{0, 3}, {10, 3}});
        QCOMPARE(panel.addTrail(a), 0);
        QCOMPARE(panel.addTrail(b), 1);
        QCOMPARE(panel.addTrail(c), 2);
        QCOMPARE(panel.plotActor->GetDataObjectYComponent(1), 1);
        QCOMPARE(panel.addTrail(nullptr), -1);
        panel.setTrailColor(0, 1, 0, 0);
        panel.setTrailColor(1, 0, 0.8, 0);
        panel.setTrailColor(2, 0, 0, 1);
        panel.setTrailColor(-1, 1, 1, 0); // ignored
        QCOMPARE(panel.addTrail(a), 3);   // inputs now b, c, a: red, green, blue
        panel.setTrailLabel(0, "low");
        panel.setTrailLabel(1, nullptr);
        panel.setTitle("Three curves");
        QImage image = render(panel);
        PROBE_VERIFY(!image.isNull() &&
                         probe::count(image, Qt::white, 5) == image.width() * image.height(),
                     image, "blank");

        panel.renderer->AddActor(panel.plotActor);
        image = render(panel);
        // Lower levels are further down.
        PROBE_VERIFY(meanRow(image, probe::blue) > meanRow(image, probe::red), image, "chart");
        PROBE_VERIFY(meanRow(image, probe::red) > meanRow(image, probe::green), image, "chart");
        PROBE_VERIFY(meanRow(image, probe::green) > 0, image, "chart");
        // The title is the only dark text in the middle of the top band.
        const QRect top(image.width() / 3, 0, image.width() / 3, image.height() / 6);
        PROBE_VERIFY(probe::count(image, Qt::black, 90, top) > 10, image, "chart");
    }

    void titleTextPropertyChangesOnlyTitle() {
        PlottingPanel panel;
        const QString blackTimes = QStringLiteral("0,0,0 Times bold 0");
        vtkNew<vtkTextProperty> title;
        title->SetColor(1, 0, 0);
        title->BoldOn();
        for (vtkTextProperty* p : {title.Get(), static_cast<vtkTextProperty*>(nullptr)}) {
            panel.setTitleTextProperty(p); // null keeps the style
            panel.setAxisTitleTextProperty(nullptr);
            QCOMPARE(style(panel.plotActor->GetTitleTextProperty()), style(title));
            QCOMPARE(style(panel.plotActor->GetAxisTitleTextProperty()), blackTimes);
            QCOMPARE(style(panel.plotActor->GetAxisLabelTextProperty()), blackTimes);
        }
    }

    // After a replacing batch, appending one point at a time goes on from the
    // append buffers, which the batch left alone.
    void shownPoints_data() {
        QTest::addColumn<Script>("script");
        QTest::addColumn<Xs>("shown");
        const Xs again = range(1, 3); // a batch's row: its points, then these
        QTest::newRow("every point") << append(500, 0, 4) << range(1, 4);
        QTest::newRow("skip 2 of 1..9") << append(500, 2, 9) << Xs{3, 6, 9};
        // Limits outside 1..500 stand for 500.
        QTest::newRow("max 0, 501st removes the first") << append(0, 0, 501) << range(2, 501);
        QTest::newRow("max 501") << append(501, 0, 501) << range(2, 501);
        QTest::newRow("max -3") << append(-3, 0, 501) << range(2, 501);
        QTest::newRow("max 1 keeps the newest") << append(1, 0, 7) << Xs{7};
        // Full with skip > 0: max - 1 and max points shown in turn.
        QTest::newRow("full, skip 1, 9 points") << append(3, 1, 9) << Xs{6, 8};
        QTest::newRow("full, skip 1, 10 points") << append(3, 1, 10) << Xs{6, 8, 10};
        QTest::newRow("full, skip 2, 28 points") << append(4, 2, 28) << Xs{21, 24, 27};
        QTest::newRow("full, skip 2, 30 points") << append(4, 2, 30) << Xs{21, 24, 27, 30};
        QTest::newRow("lowered limit trims at the next point") << Script([](TrailQwt& t) {
            feed(t, 1, 50);
            t.setNMaxPoints(5);
            feed(t, 51, 51);
            return shownX(t);
        }) << range(47, 51);
        QTest::newRow("replace, 4 points")
            << batch(4, {5, 2, 7, 3, 50, 20, 70, 30}) << Xs{5, 2, 7, 3} + again;
        QTest::newRow("replace, 0 points") << batch(0, {}) << again;
        QTest::newRow("replace, negative count") << batch(-2, {1, 2}) << again;
        // Bad batches change nothing.
        QTest::newRow("append, null") << batch(1, {}, true) << range(1, 2) + again;
        QTest::newRow("append, one value") << batch(1, {4}) << range(1, 2) + again;
        QTest::newRow("replace, short") << batch(3, {1, 2, 3, 4, 5}) << range(1, 2) + again;
        QTest::newRow("replace, huge count") << batch(0x7fffffff, {1, 2}) << range(1, 2) + again;
    }
    void shownPoints() {
        QFETCH(Script, script);
        QFETCH(Xs, shown);
        TrailQwt trail(QStringLiteral("t"));
        QCOMPARE(script(trail), shown);
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
        // Not asked for, the legend is no child of the plot.
        QCOMPARE(plot.findChild<QwtLegend*>() != nullptr, expected >= 0);
        if (expected >= 0)
            QCOMPARE(int(plot.plotLayout()->legendPosition()), expected);
    }

    // Clicking an entry hides its curve only; made checkable before or after
    // the curves are attached.
    void checkableLegendHidesCurve_data() {
        QTest::addColumn<bool>("checkableFirst");
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
        QVERIFY(fixture::show(plot, {500, 300}));

        QwtPlotCurve* hit = trails[clicked].getCurve();
        QwtLegendLabel* label = nullptr;
        QTRY_VERIFY((label = qobject_cast<QwtLegendLabel*>(
                         plot.getLegend()->legendWidget(plot.itemToInfo(hit)))) &&
                    label->isVisible());
        for (const bool checked : {true, false}) {
            QCOMPARE(label->isChecked(), !checked);
            QTest::mouseClick(label, Qt::LeftButton);
            QCOMPARE(label->isChecked(), checked);
            QCOMPARE(hit->isVisible(), !checked);
            QVERIFY(trails[1 - clicked].getCurve()->isVisible());
        }
    }

    // A right click sets each axis's autoscale and makes the present view the
    // zoomer's base; an axis without autoscale keeps its zoomed span.
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
        QVERIFY(fixture::show(plot, {500, 300}));
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
        QCOMPARE(plot.getZoomer()->zoomRectIndex(), 0u);
        QCOMPARE(plot.getZoomer()->zoomBase(), now);
    }
};

ORLAVEX_GUI_TEST_MAIN(TestPlots)
#include "tst_plots.moc"
