// Records of the kinds beyond the parametric solids, applied through real
// cycles with a main window taking the render passes and trail points:
// polygon, half pipe, imported model, 3-D text, grid, trail, number-field
// enable state and read-out, in the order in which the cycle tests kinds.
#include <Orlavex/controls/DisplayDouble.h>
#include <Orlavex/controls/NumberField.h>
#include <Orlavex/display/MainWindow.h>
#include <Orlavex/display/TrailQwt.h>
#include <Orlavex/link/CommThread.h>
#include <Orlavex/link/SocketClass.h>
#include <Orlavex/scene/File3DSImporter.h>
#include <Orlavex/scene/HalfPipe.h>
#include <Orlavex/scene/PlanarGrid.h>
#include <Orlavex/scene/PolygonC.h>
#include <Orlavex/scene/VectorText.h>

#include "CycleServer.h"
#include "GuiTestMain.h"
#include "ThreeDSWriter.h"

#include <QLabel>
#include <QTemporaryDir>

#include <qwt_plot_curve.h>
#include <qwt_series_data.h>
#include <vtkActor.h>
#include <vtkFloatArray.h>
#include <vtkProperty.h>
#include <vtkVectorText.h>

namespace {
double f(double v) { return double(float(v)); }

const QVector<double> kCommon{1.5, -2, 3.25, 0.5, 0.25, -1, 0, 0, 45};
const QVector<double> kColour{0.2, 0.4, 0.6, 0.7, 0.3, 12, 0.8, 0.6, 0.1, 0.9, 0.5};

// Runs `cycles` cycles in which the server sends `numbers` as the record of
// `object`, registered under 1, with a main window taking the hand-overs.
void runCycles(SendClass* object, const QVector<double>& numbers, int cycles = 1) {
    const QByteArray record = SimulationServer::record(1, numbers.constData(), numbers.size());
    CycleServer server([&](int) { return QVector<QByteArray>{record}; }, cycles);
    MainWindow window;
    window.commThread->setServerAddress("local");
    window.commThread->setServerPort(server.port());
    window.commThread->setSendingObjI(1, object);
    window.commThread->start();
    QTRY_VERIFY_WITH_TIMEOUT(server.finished(), 60000);
    QCOMPARE(server.cycles(), cycles);
    QCoreApplication::processEvents(); // the queued widget changes land here
    delete window.commThread;
}

bool placed(DrawableSource* o) {
    const double* p = o->getActor()->GetPosition();
    const double* q = o->getActor()->GetOrigin();
    return p[0] == 1.5 && p[1] == -2 && p[2] == 3.25 && q[0] == 0.5 && q[1] == 0.25 &&
           q[2] == -1 && qAbs(o->getActor()->GetOrientation()[2] - 45) < 1e-9;
}

bool coloured(DrawableSource* o) {
    const double* c = o->getProperty()->GetColor();
    return c[0] == f(0.2) && c[1] == f(0.4) && c[2] == f(0.6) &&
           o->getProperty()->GetOpacity() == f(0.8) && o->getProperty()->GetEdgeVisibility() == 1;
}
} // namespace

class TestFurtherRecords : public QObject {
    Q_OBJECT
private slots:
    void polygonAndHalfPipe() {
        float square[12] = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
        PolygonC polygon(4, square);
        polygon.setInteractivelyPositioned(1);
        polygon.setInteractivelyColored(1);
        runCycles(&polygon, kCommon + kColour); // 9p + 11c
        QVERIFY(placed(&polygon));
        QVERIFY(coloured(&polygon));

        HalfPipe pipe(1, 2, 10, 3, 2, 2);
        pipe.setInteractivelyPositioned(1); // 12 numbers: the last three are the tail
        runCycles(&pipe, kCommon + QVector<double>{0.5, 1.75, 20});
        QVERIFY(placed(&pipe));
        QCOMPARE(pipe.getRadiusMin(), 0.5f);
        QCOMPARE(pipe.getRadiusMax(), 1.75f);
        QCOMPARE(pipe.getLength(), 20.0f);
    }

    void importedModel() {
        QTemporaryDir dir;
        ThreeDSWriter writer;
        writer.addMaterial({"grey", {128, 128, 128}});
        writer.addMesh(ThreeDSWriter::square("plate", 0, 0, 0, 1, "grey"));
        const QString path = dir.filePath("plate.3ds");
        QVERIFY(writer.save(path));
        File3DSImporter model(path.toUtf8().constData());
        model.setInteractivelyPositioned(1);
        model.setInteractivelyColored(1);
        runCycles(&model, kCommon + kColour);
        QVERIFY(placed(&model));
        QVERIFY(coloured(&model));
    }

    void text_data() {
        QTest::addColumn<int>("t");
        QTest::addColumn<int>("p");
        QTest::addColumn<int>("c");
        for (int t : {0, 1})
            for (int p : {0, 1})
                for (int c : {0, 1})
                    QTest::addRow("t=%d p=%d c=%d", t, p, c) << t << p << c;
    }
    void text() {
        QFETCH(int, t);
        QFETCH(int, p);
        QFETCH(int, c);
        VectorText text;
        text.setInitText("t = ");
        text.setFinalText(" s");
        text.setText("start");
        text.setInteractiveValue(t);
        text.setInteractivelyPositioned(p);
        text.setInteractivelyColored(c);
        QVector<double> numbers;
        if (t)
            numbers << 12.345;
        if (p)
            numbers << kCommon;
        if (c)
            numbers << kColour;
        runCycles(&text, numbers);
        QCOMPARE(QString(text.getSource()->GetText()), t ? QString("t = 12.35 s") : "start");
        QCOMPARE(placed(&text), bool(p));
        QCOMPARE(coloured(&text), bool(c));
    }

    // n = 4, p = 0, v = 1, c = 1: 4 magnitudes, 12 vector components, the
    // scale, then 4 cell colours; with p = 1 the 15-number block comes first.
    void grid_data() {
        QTest::addColumn<int>("p");
        QTest::newRow("p=0 v=1 c=1") << 0;
        QTest::newRow("p=1 v=1 c=1") << 1;
    }
    void grid() {
        QFETCH(int, p);
        float zeros[4] = {0, 0, 0, 0};
        PlanarGrid grid(0, 0, 0, 2, 2, 0, 2, 2, 0, zeros, zeros, 0.667f, 0, 1, 1, 1, 1, 1, 1, 0,
                        1, 1, 1, 1);
        grid.setInteractivelyPositioned(p);
        grid.setInteractivelyColored(1);
        QVector<double> numbers;
        if (p) // lengths 4, 6, 0 and a new origin, which shows from the next rebuild on
            numbers << kCommon << 4 << 6 << 0 << 10 << 20 << 30;
        numbers << 1 << 2 << 3 << 4;                                  // magnitudes
        numbers << 1 << 0 << 0 << 0 << 1 << 0 << 0 << 0 << 1 << 1 << 1 << 1; // vectors
        numbers << 0.5;                                               // scale
        numbers << 0.1 << 0.2 << 0.3 << 0.4;                          // cell colours
        QCOMPARE(numbers.size(), 15 * p + 21);
        runCycles(&grid, numbers);
        QCOMPARE(grid.getMagnitudes()->GetValue(3), 4.0f);
        QCOMPARE(grid.getVectors()->GetComponent(2, 2), 1.0);
        QCOMPARE(grid.getScaleVector(), 0.5f);
        QCOMPARE(grid.getScalars()->GetValue(0), 0.1f);
        QCOMPARE(grid.getScalars()->GetValue(3), 0.4f);
        if (p) {
            QVERIFY(placed(&grid));
            QCOMPARE(grid.getLengthx(), 4.0f);
            QCOMPARE(grid.getXCoordinates()->GetValue(2), 4.0f); // still the old origin
            QCOMPARE(grid.getX0(), 10.0f);
        }
    }

    void trail_data() {
        QTest::addColumn<int>("batch");
        QTest::addColumn<QVector<double>>("numbers");
        QTest::addColumn<int>("shown");
        QTest::newRow("three points per batch") << 3 << QVector<double>{0, 1, 2, 10, 11, 0.1} << 3;
        QTest::newRow("one point per batch, appended") << 1 << QVector<double>{2, 0.1} << 4;
        QTest::newRow("no points") << 0 << QVector<double>{} << 0;
    }
    void trail() {
        QFETCH(int, batch);
        QFETCH(QVector<double>, numbers);
        QFETCH(int, shown);
        TrailQwt trail("trail");
        trail.setNReceivedPoints(batch);
        runCycles(&trail, numbers, 4);
        QCOMPARE(int(trail.getCurve()->dataSize()), shown);
        if (shown) // trail numbers keep double precision
            QCOMPARE(trail.getCurve()->sample(shown - 1).y(), 0.1);
    }

    void numberFieldEnable_data() {
        QTest::addColumn<int>("flag");
        QTest::addColumn<QVector<double>>("numbers");
        QTest::addColumn<bool>("enabled");
        QTest::newRow("0.5 disables") << 1 << QVector<double>{0.5} << false;
        QTest::newRow("0.51 enables") << 1 << QVector<double>{0.51} << true;
        QTest::newRow("flag 0: left alone") << 0 << QVector<double>{} << false;
    }
    void numberFieldEnable() {
        QFETCH(int, flag);
        QFETCH(QVector<double>, numbers);
        QFETCH(bool, enabled);
        NumberField field;
        field.setEnabled(!enabled);
        if (!flag)
            field.setEnabled(false);
        field.setEnableInt(flag);
        runCycles(&field, numbers);
        QCOMPARE(field.isEnabled(), enabled);
    }

    void readOut() {
        DisplayDouble readOut;
        readOut.setFormat('g', 17);
        runCycles(&readOut, {0.1});
        // the single-precision value nearest to 0.1, widened
        QCOMPARE(readOut.getLabel()->text(), QString::number(double(0.1f), 'g', 17));
    }

    // A million cells with positions, vectors and colours: the vector scratch
    // buffer grows past its first size and every block still lands.
    void millionCellGrid() {
        const int n = 1000 * 1000;
        std::vector<float> zeros(size_t(n), 0.f);
        PlanarGrid grid(0, 0, 0, 1000, 1000, 0, 1000, 1000, 0, zeros.data(), zeros.data(),
                        0.667f, 0, 1, 1, 1, 1, 1, 1, 0, 1, 1, 1, 1);
        grid.setInteractivelyPositioned(1);
        grid.setInteractivelyColored(1);
        QVector<double> numbers = kCommon;
        numbers << 1000 << 1000 << 0 << 0 << 0 << 0;
        numbers.reserve(15 + 5 * n + 1);
        for (int i = 0; i < n; ++i)
            numbers << 1;                                        // magnitudes
        for (int i = 0; i < 3 * n; ++i)
            numbers << (i == 3 * n - 1 ? 7 : 0);                 // vectors
        numbers << 2;                                            // scale
        for (int i = 0; i < n; ++i)
            numbers << (i == n - 1 ? 0.75 : 0.25);               // cell colours
        runCycles(&grid, numbers);
        QCOMPARE(grid.getVectors()->GetComponent(n - 1, 2), 7.0);
        QCOMPARE(grid.getScalars()->GetValue(n - 1), 0.75f);
        QCOMPARE(grid.getScaleVector(), 2.0f);
    }
};

ORLAVEX_GUI_TEST_MAIN(TestFurtherRecords)
#include "tst_furtherrecords.moc"
