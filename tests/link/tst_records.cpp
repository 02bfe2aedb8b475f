// Records of every kind, applied through real cycles: each number must reach
// its setter, for every combination of the kind's flags. The solids run
// against a bare link thread; the other kinds with a main window taking the
// render passes, widget changes and trail points.
#include <Orlavex/Orlavex.h>

#include "CycleRun.h"
#include "GuiTestMain.h"
#include "ThreeDSWriter.h"

#include <QLabel>
#include <QTemporaryDir>

#include <qwt_plot_curve.h>
#include <vtkActor.h>
#include <vtkArrowSource.h>
#include <vtkConeSource.h>
#include <vtkCubeSource.h>
#include <vtkCylinderSource.h>
#include <vtkDiskSource.h>
#include <vtkFloatArray.h>
#include <vtkProperty.h>
#include <vtkRegularPolygonSource.h>
#include <vtkSphereSource.h>
#include <vtkVectorText.h>

#include <cmath>
#include <functional>
#include <memory>

namespace {
using V = QVector<double>;

// What numbers become on their way: parsed as floats, widened to double.
V widened(const V& v) {
    V out;
    for (double x : v)
        out << double(float(x));
    return out;
}

// The colour block as the object holds it: edges show above 0.5.
V shown(const V& colour) {
    V out = widened(colour);
    out[7] = colour[7] > 0.5;
    return out;
}

const V kCommon{1.5, -2, 3.25, 0.5, 0.25, -1, 0, 0, 45};
const V kTail{0.75, 1.25, 2.5, 0.6};
const V kColour{0.2, 0.4, 0.6, 0.7, 0.3, 12, 0.8, 0.6, 0.1, 0.9, 0.5};
// The common block sent in two cycles: absolute values stay, turns add up.
const V kPlaced{1.5, -2, 3.25, 0.5, 0.25, -1, 90};
const V kPlaced1{1.5, -2, 3.25, 0.5, 0.25, -1, 45}; // in one cycle

V placement(DrawableSource* o) {
    vtkActor* a = o->getActor();
    const double* p = a->GetPosition();
    const double* q = a->GetOrigin();
    // The turn is read back from the actor's matrix: rounded.
    return V{p[0], p[1], p[2], q[0], q[1], q[2]} << std::round(a->GetOrientation()[2] * 1e9) / 1e9;
}

V colouring(DrawableSource* o) {
    vtkProperty* p = o->getProperty();
    const double* c = p->GetColor();
    const double* e = p->GetEdgeColor();
    return V{c[0], c[1], c[2], p->GetDiffuse(), p->GetSpecular(), p->GetSpecularPower()}
           << p->GetOpacity() << double(p->GetEdgeVisibility()) << e[0] << e[1] << e[2];
}

struct Kind {
    std::function<DrawableSource*()> make;
    std::function<V(DrawableSource*)> tail; // the tail numbers as the object holds them
};

template <class T>
Kind kind(
    std::function<V(T*)> tail, std::function<T*()> make = [] { return new T; }) {
    return {make, [tail](DrawableSource* d) { return tail(static_cast<T*>(d)); }};
}

File3DSImporter* plate() {
    static QTemporaryDir dir;
    ThreeDSWriter writer;
    writer.addMaterial({"grey", {128, 128, 128}});
    writer.addMesh(ThreeDSWriter::square("plate", 0, 0, 0, 1, "grey"));
    writer.save(dir.filePath("plate.3ds"));
    return new File3DSImporter(dir.filePath("plate.3ds").toUtf8().constData());
}

QMap<QString, Kind> solids() {
    static float square[12] = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
    return {
        {"Sphere", kind<Sphere>([](Sphere* o) { return V{o->getSource()->GetRadius()}; })},
        {"Cylinder", kind<Cylinder>([](Cylinder* o) {
             return V{o->getSource()->GetRadius(), o->getSource()->GetHeight()};
         })},
        {"Cube", kind<Cube>([](Cube* o) {
             vtkCubeSource* s = o->getSource();
             return V{s->GetXLength(), s->GetYLength(), s->GetZLength()};
         })},
        {"RegularPolygon", kind<RegularPolygon>([](RegularPolygon* o) {
             const double* n = o->getSource()->GetNormal();
             return V{n[0], n[1], n[2], o->getSource()->GetRadius()};
         })},
        {"DiskSource", kind<DiskSource>([](DiskSource* o) {
             return V{o->getSource()->GetInnerRadius(), o->getSource()->GetOuterRadius()};
         })},
        {"Arrow", kind<Arrow>([](Arrow* o) { // one number, a uniform scale
             const double* s = o->getActor()->GetScale();
             return V{s[1] == s[0] && s[2] == s[0] ? s[0] : qQNaN()};
         })},
        {"Cone", kind<Cone>([](Cone* o) {
             return V{o->getSource()->GetRadius(), o->getSource()->GetHeight()};
         })},
        {"Plane", kind<Plane>([](Plane*) { return V{}; })},
        {"PolygonC",
         kind<PolygonC>([](PolygonC*) { return V{}; }, [] { return new PolygonC(4, square); })},
        {"HalfPipe", kind<HalfPipe>(
                         [](HalfPipe* o) {
                             return V{o->getRadiusMin(), o->getRadiusMax(), o->getLength()};
                         },
                         [] { return new HalfPipe(1, 2, 10, 3, 2, 2); })},
        {"3DS model", kind<File3DSImporter>([](File3DSImporter*) { return V{}; }, plate)},
    };
}
} // namespace

class TestRecords : public QObject {
    Q_OBJECT
private slots:
    void solid_data() {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<int>("p");
        QTest::addColumn<int>("c");
        QTest::addColumn<double>("edge");
        for (const QString& kind : solids().keys())
            for (int p : {0, 1})
                for (int c : {0, 1})
                    QTest::addRow("%s p=%d c=%d", qPrintable(kind), p, c) << kind << p << c << 0.6;
        for (double edge : {0.5, 0.51, -1.0})
            QTest::addRow("edge %g", edge) << "Sphere" << 0 << 1 << edge;
    }
    void solid() {
        QFETCH(QString, kind);
        QFETCH(int, p);
        QFETCH(int, c);
        QFETCH(double, edge);
        const Kind k = solids().value(kind);
        std::unique_ptr<DrawableSource> o(k.make());
        o->setInteractivelyPositioned(p);
        o->setInteractivelyColored(c);
        const V tail = k.tail(o.get()), placed = placement(o.get()), coloured = colouring(o.get());
        V colour = kColour;
        colour[7] = edge;
        V numbers;
        if (p)
            numbers << kCommon << kTail.mid(0, tail.size());
        if (c)
            numbers << colour;
        QCOMPARE(runRecord(o.get(), numbers, 2).cycles, 2);
        QCOMPARE(placement(o.get()), p ? kPlaced : placed);
        QCOMPARE(k.tail(o.get()), p ? widened(kTail.mid(0, tail.size())) : tail);
        QCOMPARE(colouring(o.get()), c ? shown(colour) : coloured);
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
        const V placed = placement(&text), coloured = colouring(&text);
        V numbers;
        if (t)
            numbers << 12.345;
        if (p)
            numbers << kCommon;
        if (c)
            numbers << kColour;
        QCOMPARE(runRecord(&text, numbers, 2, true).cycles, 2);
        QCOMPARE(QString(text.getSource()->GetText()), t ? QString("t = 12.35 s") : "start");
        QCOMPARE(placement(&text), p ? kPlaced : placed);
        QCOMPARE(colouring(&text), c ? shown(kColour) : coloured);
    }

    // Positioned block (15 numbers), then n magnitudes, 3n vector components
    // and the scale, then n cell colours.
    void grid_data() {
        QTest::addColumn<int>("side");
        QTest::addColumn<int>("p");
        QTest::newRow("n=4 p=0 v=1 c=1") << 2 << 0;
        QTest::newRow("n=4 p=1 v=1 c=1") << 2 << 1;
        // The vector scratch buffer grows past its first size.
        QTest::newRow("a million cells") << 1000 << 1;
    }
    void grid() {
        QFETCH(int, side);
        QFETCH(int, p);
        const int n = side * side;
        std::vector<float> zeros(size_t(n), 0.f);
        PlanarGrid grid(0, 0, 0, side, side, 0, side, side, 0, zeros.data(), zeros.data(), 0.667f,
                        0, 1, 1, 1, 1, 1, 1, 0, 1, 1, 1, 1);
        grid.setInteractivelyPositioned(p);
        grid.setInteractivelyColored(1);
        const V placed = placement(&grid);
        V numbers;
        numbers.reserve(15 + 5 * n + 1);
        if (p) // new lengths and origin; the origin shows from the next rebuild on
            numbers << kCommon << 2 * side << 3 * side << 0 << 10 << 20 << 30;
        for (int i = 0; i < 4 * n; ++i) // magnitudes, then vector components
            numbers << (i < n ? i + 1 : (i - n) % 7);
        numbers << 0.5; // scale
        for (int i = 0; i < n; ++i)
            numbers << 0.1 * (i % 4 + 1); // cell colours
        QCOMPARE(runRecord(&grid, numbers, 1, true).cycles, 1);
        QCOMPARE(grid.getMagnitudes()->GetValue(n - 1), float(n));
        QCOMPARE(grid.getVectors()->GetComponent(n - 1, 2), double((3 * n - 1) % 7));
        QCOMPARE(grid.getScaleVector(), 0.5f);
        QCOMPARE(grid.getScalars()->GetValue(0), 0.1f);
        QCOMPARE(grid.getScalars()->GetValue(n - 1), 0.4f);
        QCOMPARE(placement(&grid), p ? kPlaced1 : placed);
        // the new length, from the old origin
        QCOMPARE(grid.getXCoordinates()->GetValue(side), float(p ? 2 * side : side));
        QCOMPARE(grid.getX0(), p ? 10.0f : 0.0f);
    }

    void trail_data() {
        QTest::addColumn<int>("batch");
        QTest::addColumn<V>("numbers");
        QTest::addColumn<int>("shown");
        QTest::newRow("three points per batch") << 3 << V{0, 1, 2, 10, 11, 0.1} << 3;
        QTest::newRow("one point per batch, appended") << 1 << V{2, 0.1} << 4;
        QTest::newRow("no points") << 0 << V{} << 0;
    }
    void trail() {
        QFETCH(int, batch);
        QFETCH(V, numbers);
        QFETCH(int, shown);
        TrailQwt trail("trail");
        trail.setNReceivedPoints(batch);
        QCOMPARE(runRecord(&trail, numbers, 4, true).cycles, 4);
        QCOMPARE(int(trail.getCurve()->dataSize()), shown);
        if (shown) // trail numbers keep double precision
            QCOMPARE(trail.getCurve()->sample(shown - 1).y(), 0.1);
    }

    void numberFieldEnable_data() {
        QTest::addColumn<int>("flag");
        QTest::addColumn<V>("numbers");
        QTest::addColumn<bool>("enabled");
        QTest::newRow("0.5 disables") << 1 << V{0.5} << false;
        QTest::newRow("0.51 enables") << 1 << V{0.51} << true;
        QTest::newRow("flag 0: left alone") << 0 << V{} << false;
    }
    void numberFieldEnable() {
        QFETCH(int, flag);
        QFETCH(V, numbers);
        QFETCH(bool, enabled);
        NumberField field;
        field.setEnabled(flag && !enabled);
        field.setEnableInt(flag);
        QCOMPARE(runRecord(&field, numbers, 1, true).cycles, 1);
        QCOMPARE(field.isEnabled(), enabled);
    }

    void readOut() {
        DisplayDouble readOut;
        readOut.setFormat('g', 17);
        QCOMPARE(runRecord(&readOut, {0.1}, 1, true).cycles, 1);
        // the single-precision value nearest to 0.1, widened
        QCOMPARE(readOut.getLabel()->text(), QString::number(double(0.1f), 'g', 17));
    }
};

ORLAVEX_GUI_TEST_MAIN(TestRecords)
#include "tst_records.moc"
