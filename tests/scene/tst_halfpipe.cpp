// HalfPipe geometry: the point layout and coordinates of the trough, the
// rebuild on every setter, and counts below 2 that must give no NaN.
#include <Orlavex/Orlavex.h>

#include <QtTest>

#include <vtkStructuredGrid.h>

#include <cmath>

namespace {
using Point = QVector<double>;

Point point(const HalfPipe& h, vtkIdType id) {
    const double* p = h.getGrid()->GetPoint(id);
    return {p[0], p[1], p[2]};
}

/// Equal up to the float error of the sine and cosine.
void checkPoint(const HalfPipe& h, vtkIdType id, const Point& expected) {
    const Point p = point(h, id);
    for (int c = 0; c < 3; ++c)
        QVERIFY2(
            std::abs(p[c] - expected[c]) < 1e-6,
            qPrintable(QString("point %1 is (%2, %3, %4)").arg(id).arg(p[0]).arg(p[1]).arg(p[2])));
}
} // namespace

class TestHalfPipe : public QObject {
    Q_OBJECT
private slots:
    void referencePoints() {
        HalfPipe h(1, 2, 10, 3, 2, 2);
        QCOMPARE(h.getGrid()->GetNumberOfPoints(), vtkIdType(0)); // nothing before paint
        h.paint();
        QCOMPARE(h.getGrid()->GetNumberOfPoints(), vtkIdType(12));
        // id = i + nθ·j + nθ·nr·k: the inner ring at the near end, then the
        // outer ring, then both again at the far end.
        const QVector<Point> expected{{-5, -1, 0}, {-5, 0, -1}, {-5, 1, 0}, {-5, -2, 0},
                                      {-5, 0, -2}, {-5, 2, 0},  {5, -1, 0}, {5, 0, -1},
                                      {5, 1, 0},   {5, -2, 0},  {5, 0, -2}, {5, 2, 0}};
        for (int id = 0; id < expected.size(); ++id)
            checkPoint(h, id, expected[id]);
        QCOMPARE(point(h, 0)[1], -1.0); // the float cosine of the float π is exactly -1
    }

    void settersRebuild_data() {
        QTest::addColumn<QString>("setter");
        QTest::addColumn<int>("points");
        QTest::addColumn<int>("id");
        QTest::addColumn<Point>("at");
        QTest::newRow("setLength(20), near end") << "length" << 12 << 0 << Point{-10, -1, 0};
        QTest::newRow("setLength(20), far end") << "length" << 12 << 11 << Point{10, 2, 0};
        QTest::newRow("setRadiusMin(0.5)") << "radiusMin" << 12 << 1 << Point{-5, 0, -0.5};
        QTest::newRow("setRadiusMax(3)") << "radiusMax" << 12 << 5 << Point{-5, 3, 0};
        QTest::newRow("setDimensions(5, 2, 4), last") << "dimensions" << 40 << 39 << Point{5, 2, 0};
        QTest::newRow("setDimensions(5, 2, 4), 45°")
            << "dimensions" << 40 << 6 << Point{-5, -std::sqrt(2.0), -std::sqrt(2.0)};
    }
    void settersRebuild() {
        QFETCH(QString, setter);
        QFETCH(int, points);
        QFETCH(int, id);
        QFETCH(Point, at);
        HalfPipe h(1, 2, 10, 3, 2, 2);
        // No paint: each setter rebuilds the points by itself.
        if (setter == "length")
            h.setLength(20);
        else if (setter == "radiusMin")
            h.setRadiusMin(0.5f);
        else if (setter == "radiusMax")
            h.setRadiusMax(3);
        else
            h.setDimensions(5, 2, 4);
        QCOMPARE(h.getGrid()->GetNumberOfPoints(), vtkIdType(points));
        const int* d = h.getDimensions();
        QCOMPARE(h.getGrid()->GetNumberOfCells(), vtkIdType((d[0] - 1) * (d[1] - 1) * (d[2] - 1)));
        checkPoint(h, id, at);
    }

    void smallCounts_data() {
        QTest::addColumn<int>("angular");
        QTest::addColumn<int>("radial");
        QTest::addColumn<int>("axial");
        QTest::addColumn<int>("points");
        QTest::addColumn<double>("maxDepth");
        QTest::newRow("2 angular: flat strip") << 2 << 2 << 2 << 8 << 0.0;
        QTest::newRow("1 angular") << 1 << 2 << 2 << 4 << 0.0;
        QTest::newRow("1 radial") << 3 << 1 << 2 << 6 << 1.0;
        QTest::newRow("1 axial") << 3 << 2 << 1 << 6 << 2.0;
        QTest::newRow("0 angular") << 0 << 2 << 2 << 0 << 0.0;
        QTest::newRow("negative radial") << 3 << -4 << 2 << 0 << 0.0;
        QTest::newRow("product overflows int") << 65536 << 65536 << 2 << 0 << 0.0;
    }
    void smallCounts() {
        QFETCH(int, angular);
        QFETCH(int, radial);
        QFETCH(int, axial);
        QFETCH(int, points);
        QFETCH(double, maxDepth);
        for (const bool viaSetter : {false, true}) {
            HalfPipe h(1, 2, 10, viaSetter ? 3 : angular, viaSetter ? 2 : radial,
                       viaSetter ? 2 : axial);
            if (viaSetter)
                h.setDimensions(angular, radial, axial);
            else
                h.paint();
            vtkStructuredGrid* grid = h.getGrid();
            QCOMPARE(grid->GetNumberOfPoints(), vtkIdType(points));
            if (points == 0) // no cell may name a point that is not there
                QCOMPARE(grid->GetNumberOfCells(), vtkIdType(0));
            for (vtkIdType id = 0; id < points; ++id) {
                const Point p = point(h, id);
                QVERIFY2(std::isfinite(p[0] + p[1] + p[2]), qPrintable(QString::number(id)));
                QVERIFY(p[0] >= -5 && p[0] <= 5 && std::abs(p[2]) <= maxDepth + 1e-6);
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestHalfPipe)
#include "tst_halfpipe.moc"
