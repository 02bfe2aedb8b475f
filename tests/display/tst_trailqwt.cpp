// TrailQwt: append mode with skipping and a bounded buffer, replace mode,
// bad batches and the ownership of the curve.
#include <Orlavex/display/PlottingPanelQwt.h>
#include <Orlavex/display/TrailQwt.h>

#include "GuiTestMain.h"

#include <qwt_plot_curve.h>

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

QVector<QPointF> samples(const TrailQwt& trail) {
    QVector<QPointF> out;
    for (size_t i = 0; i < trail.getCurve()->dataSize(); ++i)
        out << trail.getCurve()->sample(int(i));
    return out;
}

QVector<int> range(int from, int to) {
    QVector<int> v;
    for (int i = from; i <= to; ++i)
        v << i;
    return v;
}
} // namespace

class TestTrailQwt : public QObject {
    Q_OBJECT

private slots:
    void appendKeepsNewestKeptPoints_data() {
        QTest::addColumn<int>("maxPoints");
        QTest::addColumn<int>("skip");
        QTest::addColumn<int>("count");
        QTest::addColumn<QVector<int>>("kept");
        QTest::newRow("every point") << 500 << 0 << 4 << range(1, 4);
        QTest::newRow("skip 2 of 1..9") << 500 << 2 << 9 << QVector<int>{3, 6, 9};
        QTest::newRow("501st removes the first") << 0 << 0 << 501 << range(2, 501);
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

    void setNMaxPointsBounds_data() {
        QTest::addColumn<int>("given");
        QTest::addColumn<int>("stored");
        for (int n : {0, 501, -3})
            QTest::addRow("%d", n) << n << 500;
        QTest::newRow("1") << 1 << 1;
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
        QCOMPARE(shownX(trail), range(47, 51));
    }

    // A batch replaces what is shown and leaves the append buffers alone.
    void replaceMode_data() {
        QTest::addColumn<int>("n");
        QTest::addColumn<QVector<double>>("batch");
        QTest::addColumn<QVector<QPointF>>("shown");
        QTest::newRow("4 points") << 4 << QVector<double>{0, 1, 2, 3, 10, 11, 12, 13}
                                  << QVector<QPointF>{{0, 10}, {1, 11}, {2, 12}, {3, 13}};
        QTest::newRow("0 points") << 0 << QVector<double>{} << QVector<QPointF>{};
        QTest::newRow("negative count") << -2 << QVector<double>{1, 2} << QVector<QPointF>{};
    }
    void replaceMode() {
        QFETCH(int, n);
        QFETCH(QVector<double>, batch);
        QFETCH(QVector<QPointF>, shown);
        TrailQwt trail(QStringLiteral("t"));
        feed(trail, 1, 3);
        trail.setNReceivedPoints(n);
        trail.insertXY(&batch);
        QCOMPARE(samples(trail), shown);
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
};

ORLAVEX_GUI_TEST_MAIN(TestTrailQwt)
#include "tst_trailqwt.moc"
