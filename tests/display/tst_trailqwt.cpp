// TrailQwt: append mode with skipping and a bounded buffer, replace mode,
// the bounds of nMaxPoints, bad batches and the ownership of the curve.
#include <Orlavex/display/PlottingPanelQwt.h>
#include <Orlavex/display/TrailQwt.h>

#include "GuiTestMain.h"

#include <QtTest>
#include <qwt_plot_curve.h>
#include <qwt_point_data.h>
#include <qwt_symbol.h>

namespace {
// Feeds the points (x, 10 x) for x = 1..n one at a time.
void feed(TrailQwt& trail, int from, int to) {
    for (int i = from; i <= to; ++i) {
        QVector<double> p{double(i), 10.0 * i};
        trail.insertXY(&p);
    }
}

QVector<double> xs(const QwtPlotCurve* curve) {
    QVector<double> out;
    for (size_t i = 0; i < curve->dataSize(); ++i) {
        const QPointF s = curve->sample(int(i));
        out << s.x();
        if (s.y() != 10.0 * s.x()) // paired with its own y
            out << qQNaN();
    }
    return out;
}

QVector<double> range(int from, int to, int step = 1) {
    QVector<double> v;
    for (int i = from; i <= to; i += step)
        v << i;
    return v;
}
} // namespace

class TestTrailQwt : public QObject {
    Q_OBJECT

private slots:
    void defaults() {
        TrailQwt trail(QStringLiteral("speed"));
        QCOMPARE(trail.getNMaxPoints(), 500);
        QCOMPARE(trail.getNSkip(), 0);
        QCOMPARE(trail.getNReceivedPoints(), 1);
        QCOMPARE(trail.getCurve()->title().text(), QStringLiteral("speed"));
        QCOMPARE(trail.getCurve()->symbol(), trail.getSymbol());
        QCOMPARE(trail.getSymbol()->style(), QwtSymbol::NoSymbol);
        QCOMPARE(trail.getSymbol()->size(), QSize(5, 5));
        QVERIFY(!trail.getPlot());
    }

    void appendKeepsNewestKeptPoints_data() {
        QTest::addColumn<int>("maxPoints");
        QTest::addColumn<int>("skip");
        QTest::addColumn<int>("count");
        QTest::addColumn<QVector<double>>("kept");
        QTest::newRow("every point") << 500 << 0 << 4 << range(1, 4);
        QTest::newRow("skip 2 of 1..9") << 500 << 2 << 9 << QVector<double>{3, 6, 9};
        QTest::newRow("501st removes the first") << 500 << 0 << 501 << range(2, 501);
        QTest::newRow("600 keep the newest 500") << 500 << 0 << 600 << range(101, 600);
        QTest::newRow("max 1 keeps the newest") << 1 << 0 << 7 << QVector<double>{7};
        QTest::newRow("full with skip 1, odd count") << 3 << 1 << 9 << QVector<double>{6, 8};
        QTest::newRow("full with skip 1, even count") << 3 << 1 << 10 << QVector<double>{6, 8, 10};
    }
    void appendKeepsNewestKeptPoints() {
        QFETCH(int, maxPoints);
        QFETCH(int, skip);
        QFETCH(int, count);
        QFETCH(QVector<double>, kept);
        TrailQwt trail(QStringLiteral("t"));
        trail.setNMaxPoints(maxPoints);
        trail.setNSkip(skip);
        feed(trail, 1, count);
        QCOMPARE(xs(trail.getCurve()), kept);
        QCOMPARE(trail.getNStored(), kept.size());
    }

    void fullBufferWithSkipAlternates() {
        TrailQwt trail(QStringLiteral("t"));
        trail.setNMaxPoints(4);
        trail.setNSkip(2);
        QVector<int> shown;
        for (int i = 1; i <= 30; ++i) {
            feed(trail, i, i);
            if (i > 12) // the fourth kept point is the 12th received
                shown << int(trail.getCurve()->dataSize());
        }
        for (int i = 0; i < shown.size(); ++i)
            QVERIFY2(shown[i] == 3 || shown[i] == 4, qPrintable(QString::number(shown[i])));
        QVERIFY(shown.contains(3));
        QVERIFY(shown.contains(4));
        QCOMPARE(xs(trail.getCurve()), (QVector<double>{21, 24, 27, 30}));
    }

    void appendDrawsBuffersInPlace() {
        TrailQwt trail(QStringLiteral("t"));
        feed(trail, 1, 3);
        auto* data = dynamic_cast<QwtCPointerData*>(trail.getCurve()->data());
        QVERIFY(data); // raw samples, no copy per point
        QCOMPARE(int(data->size()), 3);
        QCOMPARE(data->xData()[2], 3.0);
        QCOMPARE(data->yData()[2], 30.0);
    }

    void setNMaxPointsBounds_data() {
        QTest::addColumn<int>("given");
        QTest::addColumn<int>("stored");
        QTest::newRow("0") << 0 << 500;
        QTest::newRow("501") << 501 << 500;
        QTest::newRow("-3") << -3 << 500;
        QTest::newRow("1") << 1 << 1;
        QTest::newRow("250") << 250 << 250;
        QTest::newRow("500") << 500 << 500;
    }
    void setNMaxPointsBounds() {
        QFETCH(int, given);
        QFETCH(int, stored);
        TrailQwt trail(QStringLiteral("t"));
        trail.setNMaxPoints(7);
        trail.setNMaxPoints(given);
        QCOMPARE(trail.getNMaxPoints(), stored);
    }

    void loweredLimitTrimsAtNextPoint() {
        TrailQwt trail(QStringLiteral("t"));
        feed(trail, 1, 50);
        trail.setNMaxPoints(5);
        feed(trail, 51, 51);
        QCOMPARE(xs(trail.getCurve()), range(47, 51));
    }

    void replaceMode_data() {
        QTest::addColumn<int>("n");
        QTest::addColumn<QVector<double>>("batch");
        QTest::addColumn<QVector<QPointF>>("shown");
        QTest::newRow("4 points") << 4 << QVector<double>{0, 1, 2, 3, 10, 11, 12, 13}
                                  << QVector<QPointF>{{0, 10}, {1, 11}, {2, 12}, {3, 13}};
        QTest::newRow("longer vector")
            << 2 << QVector<double>{5, 6, 50, 60, 99} << QVector<QPointF>{{5, 50}, {6, 60}};
        QTest::newRow("0 points") << 0 << QVector<double>{} << QVector<QPointF>{};
        QTest::newRow("negative count") << -2 << QVector<double>{1, 2} << QVector<QPointF>{};
    }
    void replaceMode() {
        QFETCH(int, n);
        QFETCH(QVector<double>, batch);
        QFETCH(QVector<QPointF>, shown);
        TrailQwt trail(QStringLiteral("t"));
        feed(trail, 1, 3); // append buffers: 1, 2, 3
        trail.setNReceivedPoints(7);
        QVector<double> first{9, 9, 9, 9, 9, 9, 9, 8, 8, 8, 8, 8, 8, 8};
        trail.insertXY(&first);
        QCOMPARE(int(trail.getCurve()->dataSize()), 7);

        trail.setNReceivedPoints(n);
        trail.insertXY(&batch);
        QVector<QPointF> samples;
        for (size_t i = 0; i < trail.getCurve()->dataSize(); ++i)
            samples << trail.getCurve()->sample(int(i));
        QCOMPARE(samples, shown);

        // The append buffers were left alone.
        QCOMPARE(trail.getNStored(), 3);
        trail.setNReceivedPoints(1);
        feed(trail, 4, 4);
        QCOMPARE(xs(trail.getCurve()), range(1, 4));
    }

    void badBatchesChangeNothing_data() {
        QTest::addColumn<int>("n");
        QTest::addColumn<bool>("null");
        QTest::addColumn<QVector<double>>("batch");
        QTest::newRow("append, null") << 1 << true << QVector<double>{};
        QTest::newRow("append, one value") << 1 << false << QVector<double>{4};
        QTest::newRow("replace, null") << 3 << true << QVector<double>{};
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
        QCOMPARE(xs(trail.getCurve()), range(1, 2));
    }

    void curveOwnership() {
        auto* plot = new PlottingPanelQwt;
        {
            TrailQwt trail(QStringLiteral("a"));
            trail.attachToPlot(plot);
            QCOMPARE(trail.getPlot(), plot);
            QCOMPARE(trail.getCurve()->plot(), plot);
            {
                TrailQwt copy(trail);
                QCOMPARE(copy.getCurve(), trail.getCurve());
                feed(copy, 1, 2);
                QCOMPARE(trail.getNStored(), 2);
            }
            QCOMPARE(plot->itemList(QwtPlotItem::Rtti_PlotCurve).size(),
                     1); // copy gone, curve stays
        }
        QVERIFY(plot->itemList(QwtPlotItem::Rtti_PlotCurve).isEmpty()); // last copy took it off

        TrailQwt survivor(QStringLiteral("b"));
        survivor.attachToPlot(plot);
        feed(survivor, 1, 3);
        delete plot; // deletes the curve
        QVERIFY(!survivor.getCurve());
        QVERIFY(!survivor.getSymbol());
        QVERIFY(!survivor.getPlot());
        feed(survivor, 4, 5);
        survivor.setNReceivedPoints(1 + 1);
        QVector<double> batch{1, 2, 3, 4};
        survivor.insertXY(&batch);
        QCOMPARE(survivor.getNStored(), 5);
    }
};

ORLAVEX_GUI_TEST_MAIN(TestTrailQwt)
#include "tst_trailqwt.moc"
