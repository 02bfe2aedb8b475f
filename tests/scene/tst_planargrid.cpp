// PlanarGrid's geometry, glyph positions, value arrays and colour tables.
#include <Orlavex/Orlavex.h>

#include "ColourTableProbe.h"
#include "VtkHeaders.h"

#include <QtTest>

#include <memory>
#include <stdexcept>

using Floats = QVector<float>;

namespace {
std::unique_ptr<PlanarGrid> makeGrid(float x0, float y0, float z0, float lx, float ly, float lz,
                                     int nx, int ny, int nz, int displayVectors = 1) {
    // Generous arrays: the grid reads only as many values as it has cells.
    std::vector<float> colors(1000), magnitudes(1000, 1.0f);
    for (std::size_t i = 0; i < colors.size(); ++i)
        colors[i] = float(i);
    return std::make_unique<PlanarGrid>(x0, y0, z0, lx, ly, lz, nx, ny, nz, colors.data(),
                                        magnitudes.data(), 0.667f, 0.0f, 1, 1, 1, 1, 1, 1, 0, 10, 1,
                                        1, displayVectors);
}

// Values are compared as text with four decimals, so that single-precision
// rounding does not count and a failure shows both lists.
QString text(const Floats& v) {
    QStringList parts;
    for (float f : v)
        parts << QString::number(double(f), 'f', 4);
    return parts.join(' ');
}

QString values(vtkFloatArray* a) {
    Floats out;
    for (vtkIdType i = 0; i < a->GetNumberOfValues(); ++i)
        out << a->GetValue(i);
    return text(out);
}

// Points from..from + count - 1, x y z each.
QString points(vtkPoints* points, vtkIdType from, vtkIdType count = 1) {
    Floats out;
    for (vtkIdType id = from; id < from + count; ++id)
        for (int c = 0; c < 3; ++c)
            out << float(points->GetPoint(id)[c]);
    return text(out);
}

} // namespace

class TestPlanarGrid : public QObject {
    Q_OBJECT

private slots:
    void construction_data() {
        QTest::addColumn<QVector<int>>("n"); // nx, ny, nz
        QTest::addColumn<int>("cells");
        QTest::addColumn<Floats>("xLines");
        QTest::addColumn<Floats>("zLines");
        QTest::addColumn<int>("glyphs");
        QTest::addColumn<Floats>("firstGlyphs"); // the first two positions, or the only one
        // Origin (1, 2, 3), lengths (8, 6, 5) throughout.
        QTest::newRow("4x3x0") << QVector<int>{4, 3, 0} << 12 << Floats{1, 3, 5, 7, 9} << Floats{3}
                               << 6 << Floats{2, 3, 3, 2, 5, 3};
        QTest::newRow("10x8x1") << QVector<int>{10, 8, 1} << 80
                                << Floats{1, 1.8f, 2.6f, 3.4f, 4.2f, 5, 5.8f, 6.6f, 7.4f, 8.2f, 9}
                                << Floats{3, 8} << 63
                                << Floats{1.4f, 2.375f, 5.5f, 1.4f, 3.125f, 5.5f};
        QTest::newRow("1x1x1") << QVector<int>{1, 1, 1} << 1 << Floats{1, 9} << Floats{3, 8} << 1
                               << Floats{5, 5, 5.5f};
        // x slowest, z fastest: the second position is one step along z.
        QTest::newRow("4x4x4") << QVector<int>{4, 4, 4} << 64 << Floats{1, 3, 5, 7, 9}
                               << Floats{3, 4.25f, 5.5f, 6.75f, 8} << 27
                               << Floats{2, 2.75f, 3.625f, 2, 2.75f, 4.875f};
    }
    void construction() {
        QFETCH(QVector<int>, n);
        QFETCH(int, cells);
        QFETCH(Floats, xLines);
        QFETCH(Floats, zLines);
        QFETCH(int, glyphs);
        QFETCH(Floats, firstGlyphs);
        auto grid = makeGrid(1, 2, 3, 8, 6, 5, n[0], n[1], n[2]);
        QCOMPARE(grid->getCellNumber(), cells);
        QCOMPARE(grid->getGrid()->GetNumberOfCells(), vtkIdType(cells));
        QCOMPARE(grid->getScalars()->GetValue(cells - 1), float(cells - 1));
        QCOMPARE(values(grid->getXCoordinates()), text(xLines));
        QCOMPARE(values(grid->getZCoordinates()), text(zLines));
        QCOMPARE(grid->getGlyphPoints()->GetNumberOfPoints(), vtkIdType(glyphs));
        QCOMPARE(points(grid->getGlyphPoints(), 0, qMin(glyphs, 2)), text(firstGlyphs));
        QCOMPARE(grid->getMagnitudes()->GetNumberOfValues(), vtkIdType(cells));
        QCOMPARE(grid->getVectors()->GetNumberOfTuples(), vtkIdType(cells));
    }

    // A length re-spaces its own axis; a new origin shows at the next rebuild.
    void lengthAndOrigin() {
        auto grid = makeGrid(1, 2, 3, 3, 6, 5, 3, 2, 0);
        const QString y = values(grid->getYCoordinates());
        grid->setLengthx(6);
        QCOMPARE(values(grid->getXCoordinates()), text({1, 3, 5, 7}));
        QCOMPARE(values(grid->getYCoordinates()), y);
        QCOMPARE(points(grid->getGlyphPoints(), 1), text({4, 3.5f, 3}));
        grid->setx0y0z0(10, 20, 30);
        QCOMPARE(values(grid->getXCoordinates()), text({1, 3, 5, 7}));
        grid->setLengthx(3);
        QCOMPARE(values(grid->getXCoordinates()), text({10, 11, 12, 13}));
        QCOMPARE(values(grid->getYCoordinates()), y); // moves with setLengthy only
        QCOMPARE(points(grid->getGlyphPoints(), 0), text({10.5f, 21.5f, 30}));
    }

    void setDimensionsCountsLines() {
        auto grid = makeGrid(1, 2, 3, 8, 4, 2, 4, 4, 1);
        grid->setDimensions(5, 5, 1);
        QCOMPARE(values(grid->getXCoordinates()), text({1, 3, 5, 7, 9}));
        QCOMPARE(values(grid->getYCoordinates()), text({2, 3, 4, 5, 6}));
        QCOMPARE(values(grid->getZCoordinates()), text({3}));
        QCOMPARE(grid->getGrid()->GetNumberOfCells(), vtkIdType(16));
        QCOMPARE(grid->getGlyphPoints()->GetNumberOfPoints(), vtkIdType(16));
        QCOMPARE(points(grid->getGlyphPoints(), 15), text({8, 5.5f, 3}));

        // Fewer positions overwrite the front and keep the rest.
        grid->setDimensions(3, 3, 1);
        QCOMPARE(grid->getGlyphPoints()->GetNumberOfPoints(), vtkIdType(16));
        QCOMPARE(points(grid->getGlyphPoints(), 3), text({7, 5, 3}));
        QCOMPARE(points(grid->getGlyphPoints(), 15), text({8, 5.5f, 3}));

        // More cells than the value arrays hold is refused.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("setDimensions.*refused"));
        grid->setDimensions(6, 5, 1);
        QCOMPARE(grid->getGrid()->GetNumberOfCells(), vtkIdType(4));
    }

    void vectorLayer_data() {
        QTest::addColumn<int>("displayVectors");
        QTest::newRow("without vectors") << 0;
        QTest::newRow("with vectors") << 1;
    }
    void vectorLayer() {
        QFETCH(int, displayVectors);
        auto grid = makeGrid(0, 0, 0, 2, 2, 0, 2, 2, 0, displayVectors);
        vtkNew<vtkRenderer> renderer;
        grid->setRenderer(renderer);
        grid->paint();
        QCOMPARE(renderer->GetActors()->GetNumberOfItems(), displayVectors ? 2 : 1);
        if (!displayVectors) {
            // Nothing is read from the pointers, so null ones are fine.
            grid->setVectorMagnitude(nullptr);
            grid->setVectors(nullptr);
            grid->setScaleVector(7);
            QCOMPARE(grid->getGlyph()->GetNumberOfInputConnections(0), 0);
            QCOMPARE(grid->getMagnitudes()->GetNumberOfValues(), vtkIdType(0));
            return;
        }
        float magnitudes[] = {0.5f, 1, 1.5f, 2};
        float vectors[] = {0, 1, 0, 0, 0, 1, 1, 1, 0, -1, 0, 0};
        grid->setVectorMagnitude(magnitudes);
        grid->setVectors(vectors);
        grid->setScaleVector(0.25f);
        QCOMPARE(values(grid->getMagnitudes()), text({0.5f, 1, 1.5f, 2}));
        QCOMPARE(grid->getVectors()->GetTuple(3)[0], -1.0);
        // One arrow (one glyph position here), magnitude × scale long, along y.
        grid->getGlyph()->Update();
        double bounds[6];
        grid->getGlyph()->GetOutput()->GetBounds(bounds);
        QVERIFY2(qAbs(bounds[3] - bounds[2] - 0.5 * 0.25) < 1e-3, "arrow 0.125 long along y");
    }

    void setCellColors() {
        auto grid = makeGrid(0, 0, 0, 2, 2, 0, 2, 2, 0);
        grid->setCellColors({9, 8, 7, 6, 5});
        QCOMPARE(values(grid->getScalars()), text({9, 8, 7, 6}));
        const vtkMTimeType before = grid->getScalars()->GetMTime();
        QVERIFY_EXCEPTION_THROWN(grid->setCellColors({1, 2}), std::out_of_range);
        QCOMPARE(values(grid->getScalars()), text({1, 2, 7, 6}));
        QVERIFY(grid->getScalars()->GetMTime() > before); // what was stored shows
    }

    // Each table takes its own arguments (how scale and ramp map to VTK's is
    // tst_textandlegend's); the grid's colours span the cell table's range.
    void colourTables() {
        auto grid = makeGrid(0, 0, 0, 2, 2, 0, 2, 2, 0);
        grid->setCellLUT(0.667f, 0, 1, 1, 1, 1, 1, 1, 0, 10, 0, 1);
        grid->setVectorLUT(0, 0.667f, 1, 1, 1, 1, 1, 1, 0, 10, 1, 0);
        vtkLookupTable *cells = grid->getCellLUT(), *vectors = grid->getVectorLUT();
        QCOMPARE(QVector<int>({cells->GetScale(), cells->GetRamp()}),
                 QVector<int>({VTK_SCALE_LOG10, VTK_RAMP_LINEAR}));
        QCOMPARE(QVector<int>({vectors->GetScale(), vectors->GetRamp()}),
                 QVector<int>({VTK_SCALE_LINEAR, VTK_RAMP_SCURVE}));
        QVERIFY(probe::colourNear(cells, 10, 1, 0, 0));
        QVERIFY(probe::colourNear(vectors, 10, 0, 0, 1) && probe::colourNear(vectors, 0, 1, 0, 0));
        QCOMPARE(grid->getMapper()->GetUseLookupTableScalarRange(), vtkTypeBool(1));
        QCOMPARE(grid->getMapper()->GetLookupTable(), cells);
    }

    void copiesShareThePipeline() {
        auto original = makeGrid(0, 0, 0, 2, 2, 0, 2, 2, 0);
        PlanarGrid copy(*original);
        auto other = makeGrid(0, 0, 0, 1, 1, 1, 1, 1, 1);
        *other = copy;
        original.reset();
        copy.setLengthx(4);
        other->setCellColors({1, 2, 3, 4});
        QCOMPARE(values(copy.getXCoordinates()), text({0, 2, 4}));
        QCOMPARE(values(copy.getScalars()), text({1, 2, 3, 4}));
    }
};

QTEST_GUILESS_MAIN(TestPlanarGrid)
#include "tst_planargrid.moc"
