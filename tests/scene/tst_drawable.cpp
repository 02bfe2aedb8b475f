// The scene objects drawn from geometry of their own: the parametric solids on
// DrawableSource (new state, copies that share the VTK objects, setters that
// reach each solid's source), the half pipe's trough, and the points and cell
// of Line and PolygonC.
#include <Orlavex/Orlavex.h>

#include "VtkHeaders.h"

#include <QtTest>

#include <cstring>
#include <functional>
#include <sys/mman.h>
#include <unistd.h>

namespace {
using Values = QVector<double>;
using Probe = std::function<Values()>; // calls setters, reads the result back

// A point or direction, or one number.
template <class T> Values values(T v) {
    if constexpr (std::is_pointer_v<T>)
        return {v[0], v[1], v[2]};
    else
        return {double(v)};
}

// A new solid carries no record blocks and no renderer. Copies share the
// source, mapper, actor, property and renderer, each holding a reference of
// its own; painted without any setter, the solid shows the source's default
// shape (the text, the shape of its text).
template <class T> void copiesAndPaint() {
    T solid;
    if constexpr (std::is_same_v<T, VectorText>)
        solid.setText(7.5); // an empty text has no shape to show
    QVERIFY(!solid.getInteractivelyPositioned() && !solid.getInteractivelyColored());
    QVERIFY(!solid.getRenderer() && solid.getActor()->GetProperty() == solid.getProperty());
    solid.paint(); // no renderer yet: nothing to do
    vtkNew<vtkRenderer> renderer;
    solid.setRenderer(renderer);
    vtkObject* shared[] = {solid.getSource(), solid.getActor()->GetMapper(), solid.getActor(),
                           solid.getProperty(), renderer};
    int refs[5];
    for (int i = 0; i < 5; ++i)
        refs[i] = shared[i]->GetReferenceCount();
    {
        // Destroyed through the base, as the link thread's registries hold objects.
        std::unique_ptr<SendClass> copy(new T(solid));
        QVERIFY(static_cast<T*>(copy.get())->getRenderer() == renderer.GetPointer());
        // Assignment drops the target's own objects and shares the original's.
        T target;
        vtkWeakPointer<vtkObject> oldSource = target.getSource();
        vtkWeakPointer<vtkObject> oldMapper = target.getActor()->GetMapper();
        target = solid;
        QVERIFY(oldSource == nullptr && oldMapper == nullptr);
        for (int i = 0; i < 5; ++i)
            QCOMPARE(shared[i]->GetReferenceCount(), refs[i] + 2);
    }
    for (int i = 0; i < 5; ++i)
        QCOMPARE(shared[i]->GetReferenceCount(), refs[i]);
    QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 0); // setRenderer adds nothing
    solid.paint();
    QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 1);
    solid.getSource()->Update();
    QVERIFY(solid.getSource()->GetOutput()->GetNumberOfCells() > 0);
    double expected[6], shown[6];
    solid.getSource()->GetOutput()->GetBounds(expected);
    solid.getActor()->GetBounds(shown);
    QCOMPARE(Values(shown, shown + 6), Values(expected, expected + 6));
}

// Equal up to the float error of the sine and cosine.
void checkPoint(const HalfPipe& h, vtkIdType id, const Values& want) {
    const Values p = values(h.getGrid()->GetPoint(id));
    for (int c = 0; c < 3; ++c)
        QVERIFY2(
            std::abs(p[c] - want[c]) < 1e-6,
            qPrintable(QString("point %1 is (%2, %3, %4)").arg(id).arg(p[0]).arg(p[1]).arg(p[2])));
}

/// The floats placed right before an unreadable page, so that reading one
/// float past the end crashes the test instead of passing unnoticed. The
/// pages stay mapped until the process ends.
float* guarded(const QVector<float>& values) {
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    char* base = static_cast<char*>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (base == MAP_FAILED || mprotect(base + page, page, PROT_NONE) != 0)
        qFatal("no guard page");
    float* data = reinterpret_cast<float*>(base + page) - values.size();
    std::memcpy(data, values.constData(), sizeof(float) * size_t(values.size()));
    return data;
}

/// 3n coordinates, among them floats whose double differs from the double
/// nearest the same decimal, a denormal and the largest float.
QVector<float> coords(int n, float offset) {
    const float special[] = {0.1f, 1.0f / 3.0f, -2.7f, 1e-7f, 3.4028235e38f, 1.4e-45f};
    QVector<float> v;
    for (int i = 0; i < 3 * n; ++i)
        v << (i % 2 ? special[i % 6] : offset + float(i));
    return v;
}

/// Every stored coordinate must equal the float given, exactly.
void checkStored(vtkPoints* points, const QVector<float>& expected) {
    QCOMPARE(points->GetNumberOfPoints() * 3, vtkIdType(expected.size()));
    for (int i = 0; i < expected.size(); ++i)
        QVERIFY2(points->GetPoint(i / 3)[i % 3] == double(expected[i]),
                 qPrintable(QString("coordinate %1").arg(i)));
}

/// The single drawn cell must run through points 0 to n - 1 in order; none
/// for n = 0. For a Line no id repeats the first: the polyline stays open.
template <class T> void checkCell(const T& shape, int n) {
    constexpr bool closed = std::is_same_v<T, PolygonC>;
    vtkPolyData* data = shape.getPolyData();
    vtkCellArray* drawn = closed ? data->GetPolys() : data->GetLines();
    QCOMPARE((closed ? data->GetLines() : data->GetPolys())->GetNumberOfCells(), vtkIdType(0));
    QCOMPARE(drawn->GetNumberOfCells(), vtkIdType(n > 0 ? 1 : 0));
    if (n > 0) {
        vtkNew<vtkIdList> ids;
        drawn->GetCellAtId(0, ids);
        QCOMPARE(ids->GetNumberOfIds(), vtkIdType(n));
        for (int i = 0; i < n; ++i)
            QCOMPARE(ids->GetId(i), vtkIdType(i));
    }
    shape.getActor()->GetMapper()->Update(); // an empty shape must pass the pipeline too
}

template <class T> void run(int (T::*count)() const, void (T::*setCount)(int), int initial, int n) {
    const int first = qMax(initial, 0), expected = qMax(n, 0);
    const QVector<float> start = coords(first, 0.0f);
    T shape(initial, guarded(start));
    QCOMPARE((shape.*count)(), first);
    checkStored(shape.getPoints(), start);
    checkCell(shape, first);

    (shape.*setCount)(n);
    QCOMPARE((shape.*count)(), expected);
    checkCell(shape, expected);
    // Kept points keep their coordinates; new ones wait on the last kept one.
    vtkPoints* points = shape.getPoints();
    QCOMPARE(points->GetNumberOfPoints(), vtkIdType(expected));
    for (int i = 0; i < expected; ++i) {
        const int from = qMin(i, first - 1);
        for (int c = 0; c < 3; ++c)
            QCOMPARE(points->GetPoint(i)[c], from >= 0 ? double(start[3 * from + c]) : 0.0);
    }
    // The count bounds setPoints, which reads exactly 3 × count floats and
    // leaves the cell as it is.
    const QVector<float> moved = coords(expected, 5.0f);
    shape.setPoints(guarded(moved));
    checkStored(points, moved);
    checkCell(shape, expected);
    shape.setPoints(nullptr); // no array: nothing changes
    checkStored(points, moved);
}
} // namespace

Q_DECLARE_METATYPE(Probe)
Q_DECLARE_METATYPE(std::function<void()>)
Q_DECLARE_METATYPE(std::function<void(HalfPipe&)>)

class TestDrawable : public QObject {
    Q_OBJECT
private slots:
    void solidCopiesAndPaint_data() {
        QTest::addColumn<std::function<void()>>("check");
        const std::pair<const char*, void (*)()> solids[] = {
            {"Sphere", copiesAndPaint<Sphere>},
            {"Cube", copiesAndPaint<Cube>},
            {"Cone", copiesAndPaint<Cone>},
            {"Cylinder", copiesAndPaint<Cylinder>},
            {"Arrow", copiesAndPaint<Arrow>},
            {"DiskSource", copiesAndPaint<DiskSource>},
            {"Plane", copiesAndPaint<Plane>},
            {"RegularPolygon", copiesAndPaint<RegularPolygon>},
            {"VectorText", copiesAndPaint<VectorText>}};
        for (const auto& s : solids)
            QTest::newRow(s.first) << std::function<void()>(s.second);
    }
    void solidCopiesAndPaint() {
        QFETCH(std::function<void()>, check);
        check();
    }

    // A setter that forwards to the wrong VTK call shows nowhere else.
    void settersReachSource_data() {
        QTest::addColumn<Probe>("probe");
        QTest::addColumn<Values>("expected");
        // One row per setter: the calls on a fresh object, then what they reach.
        // The setters that records drive (radii, heights, lengths, a polygon's
        // normal) are tst_records' solid rows.
#define ROW(T, calls, get, ...)                                                                    \
    QTest::newRow(#T ": " #calls) << Probe([] {                                                    \
        T s;                                                                                       \
        [[maybe_unused]] auto* v = s.getSource();                                                  \
        calls;                                                                                     \
        return values(get);                                                                        \
    }) << Values{__VA_ARGS__}
        ROW(Sphere, s.setCenter(1, 2, 3), v->GetCenter(), 1, 2, 3);
        ROW(Sphere, s.setThetaResolution(16), v->GetThetaResolution(), 16);
        ROW(Sphere, s.setPhiResolution(20), v->GetPhiResolution(), 20);
        ROW(Sphere, s.setStartTheta(30), v->GetStartTheta(), 30);
        ROW(Sphere, s.setEndTheta(270), v->GetEndTheta(), 270);
        ROW(Sphere, s.setStartPhi(10), v->GetStartPhi(), 10);
        ROW(Sphere, s.setEndPhi(170), v->GetEndPhi(), 170);
        ROW(Cube, s.setCenter(-1, 0.5, 7), v->GetCenter(), -1, 0.5, 7);
        ROW(Cone, s.setResolution(12), v->GetResolution(), 12);
        ROW(Cone, s.setCapping(0), v->GetCapping(), 0);
        ROW(Cylinder, s.setResolution(10), v->GetResolution(), 10);
        ROW(Cylinder, s.setCenter(1, 2, 3), v->GetCenter(), 1, 2, 3);
        ROW(Cylinder, s.setCapping(0), v->GetCapping(), 0);
        ROW(Arrow, s.setTipLength(0.5), v->GetTipLength(), 0.5);
        ROW(Arrow, s.setTipRadius(0.2), v->GetTipRadius(), 0.2);
        ROW(Arrow, s.setTipResolution(16), v->GetTipResolution(), 16);
        ROW(Arrow, s.setShaftRadius(0.05), v->GetShaftRadius(), 0.05);
        ROW(Arrow, s.setShaftResolution(9), v->GetShaftResolution(), 9);
        ROW(Arrow, , v->GetOutput()->GetNumberOfPoints() > 0, 1); // built before any render
        ROW(DiskSource, s.setRadialResolution(3), v->GetRadialResolution(), 3);
        ROW(DiskSource, s.setCircumferentialResolution(24), v->GetCircumferentialResolution(), 24);
        ROW(Plane, s.setOriginPoint(1, 2, 3), v->GetOrigin(), 1, 2, 3);
        ROW(Plane, s.setPoint1(4, 2, 3), v->GetPoint1(), 4, 2, 3);
        ROW(Plane, s.setPoint2(1, 6, 3), v->GetPoint2(), 1, 6, 3);
        ROW(Plane, s.setCenter(5, 6, 7), v->GetCenter(), 5, 6, 7);
        ROW(Plane, s.setNormal(1, 0, 0), v->GetNormal(), 1, 0, 0);
        ROW(Plane, s.setResolution(4, 5), v->GetYResolution(), 5);
        // The plane's corner is not the actor's origin, nor the other way round.
        ROW(Plane, s.setOriginPoint(1, 2, 3), s.getActor()->GetOrigin(), 0, 0, 0);
        ROW(Plane, s.setOrigin(4, 5, 6), v->GetOrigin(), -0.5, -0.5, 0);
        ROW(RegularPolygon, s.setCenter(1, 2, 3), v->GetCenter(), 1, 2, 3);
        ROW(RegularPolygon, s.setNumberOfSides(7), v->GetNumberOfSides(), 7);
        ROW(RegularPolygon, s.setGeneratePolygon(0), v->GetGeneratePolygon(), 0);
        ROW(RegularPolygon, s.setGeneratePolyline(0), v->GetGeneratePolyline(), 0);
        // DrawableSource's own: the getters give the last turn and factor.
        ROW(Cube, (s.rotateZ(5), s.rotateZ(10)), s.getRotationZ(), 10);
        ROW(Cube, s.setScale(2), s.getScaleY(), 2);
        ROW(Cube, s.SetLineWidth(3), s.getProperty()->GetLineWidth(), 3);
        ROW(Cube, (s.setEdgeVisibility(1), s.setEdgeVisibility(qQNaN())),
            s.getProperty()->GetEdgeVisibility(), 0);
        ROW(Cube, s.setEdgeVisibility(qInf()), s.getProperty()->GetEdgeVisibility(), 1);
#undef ROW
    }
    void settersReachSource() {
        QFETCH(Probe, probe);
        QFETCH(Values, expected);
        const Values actual = probe();
        QCOMPARE(actual.size(), expected.size());
        // Within rounding: the plane source turns its points to reach a new normal.
        for (int i = 0; i < actual.size(); ++i)
            QVERIFY2(qAbs(actual[i] - expected[i]) <= 1e-12 * qMax(1.0, qAbs(expected[i])),
                     qPrintable(QString("value %1 is %2").arg(i).arg(actual[i], 0, 'g', 17)));
    }

    // Half pipe (1, 2, 10, 3, 2, 2): no points before the first paint or
    // setter, each of which rebuilds them all.
    void halfPipe_data() {
        QTest::addColumn<std::function<void(HalfPipe&)>>("change");
        QTest::addColumn<int>("points");
        QTest::addColumn<int>("first"); // the id of at[0]
        QTest::addColumn<QVector<Values>>("at");
        // id = i + nθ·j + nθ·nr·k: the inner ring at the near end, then the
        // outer ring, then both again at the far end.
        QTest::newRow("paint") << std::function<void(HalfPipe&)>(&HalfPipe::paint) << 12 << 0
                               << QVector<Values>{{-5, -1, 0}, {-5, 0, -1}, {-5, 1, 0}, {-5, -2, 0},
                                                  {-5, 0, -2}, {-5, 2, 0},  {5, -1, 0}, {5, 0, -1},
                                                  {5, 1, 0},   {5, -2, 0},  {5, 0, -2}, {5, 2, 0}};
        const auto row = [](const char* name, std::function<void(HalfPipe&)> change, int points,
                            int id, const Values& at) {
            QTest::newRow(name) << change << points << id << QVector<Values>{at};
        };
        row("setLength(20), near end", [](HalfPipe& h) { h.setLength(20); }, 12, 0, {-10, -1, 0});
        row("setLength(20), far end", [](HalfPipe& h) { h.setLength(20); }, 12, 11, {10, 2, 0});
        row("setRadiusMin(0.5)", [](HalfPipe& h) { h.setRadiusMin(0.5f); }, 12, 1, {-5, 0, -0.5});
        row("setRadiusMax(3)", [](HalfPipe& h) { h.setRadiusMax(3); }, 12, 5, {-5, 3, 0});
        const auto dims = [](HalfPipe& h) { h.setDimensions(5, 2, 4); };
        row("setDimensions(5, 2, 4), last", dims, 40, 39, {5, 2, 0});
        row("setDimensions(5, 2, 4), 45°", dims, 40, 6, {-5, -std::sqrt(2.0), -std::sqrt(2.0)});
    }
    void halfPipe() {
        QFETCH(std::function<void(HalfPipe&)>, change);
        QFETCH(int, points);
        QFETCH(int, first);
        QFETCH(QVector<Values>, at);
        HalfPipe h(1, 2, 10, 3, 2, 2);
        QCOMPARE(h.getGrid()->GetNumberOfPoints(), vtkIdType(0));
        change(h);
        QCOMPARE(h.getGrid()->GetNumberOfPoints(), vtkIdType(points));
        const int* d = h.getDimensions();
        QCOMPARE(h.getGrid()->GetNumberOfCells(), vtkIdType((d[0] - 1) * (d[1] - 1) * (d[2] - 1)));
        for (int i = 0; i < at.size(); ++i)
            checkPoint(h, first + i, at[i]);
        if (first == 0) // the float cosine of the float π is exactly -1
            QCOMPARE(h.getGrid()->GetPoint(0)[1], -1.0);
    }

    // Counts below 2 must give no NaN, and no cell may name a missing point.
    void halfPipeSmallCounts_data() {
        QTest::addColumn<QVector<int>>("dims");
        QTest::addColumn<int>("points");
        QTest::addColumn<double>("maxDepth");
        QTest::newRow("2 angular: flat strip") << QVector<int>{2, 2, 2} << 8 << 0.0;
        QTest::newRow("1 angular") << QVector<int>{1, 2, 2} << 4 << 0.0;
        QTest::newRow("1 radial") << QVector<int>{3, 1, 2} << 6 << 1.0;
        QTest::newRow("1 axial") << QVector<int>{3, 2, 1} << 6 << 2.0;
        QTest::newRow("0 angular") << QVector<int>{0, 2, 2} << 0 << 0.0;
        QTest::newRow("negative radial") << QVector<int>{3, -4, 2} << 0 << 0.0;
        QTest::newRow("product overflows int") << QVector<int>{65536, 65536, 2} << 0 << 0.0;
    }
    void halfPipeSmallCounts() {
        QFETCH(QVector<int>, dims);
        QFETCH(int, points);
        QFETCH(double, maxDepth);
        for (const bool viaSetter : {false, true}) {
            HalfPipe h(1, 2, 10, viaSetter ? 3 : dims[0], viaSetter ? 2 : dims[1],
                       viaSetter ? 2 : dims[2]);
            if (viaSetter)
                h.setDimensions(dims[0], dims[1], dims[2]);
            else
                h.paint();
            vtkStructuredGrid* grid = h.getGrid();
            QCOMPARE(grid->GetNumberOfPoints(), vtkIdType(points));
            if (points == 0)
                QCOMPARE(grid->GetNumberOfCells(), vtkIdType(0));
            for (vtkIdType id = 0; id < points; ++id) {
                const Values p = values(grid->GetPoint(id));
                QVERIFY2(std::isfinite(p[0] + p[1] + p[2]), qPrintable(QString::number(id)));
                QVERIFY(p[0] >= -5 && p[0] <= 5 && std::abs(p[2]) <= maxDepth + 1e-6);
            }
        }
    }

    // Line draws an open polyline, PolygonC a filled polygon: exact storage
    // of the float coordinates, reading no more than 3 × count floats, and
    // the count setters rebuilding the drawn cell.
    void polylines_data() {
        QTest::addColumn<bool>("closed");
        QTest::addColumn<int>("initial");
        QTest::addColumn<int>("n");
        for (const bool closed : {false, true})
            for (const auto& c : {qMakePair(4, 2), qMakePair(2, 5), qMakePair(0, 3),
                                  qMakePair(1, 1), qMakePair(-3, 0), qMakePair(4, -1)})
                QTest::addRow("%s %d to %d", closed ? "PolygonC" : "Line", c.first, c.second)
                    << closed << c.first << c.second;
    }
    void polylines() {
        QFETCH(bool, closed);
        QFETCH(int, initial);
        QFETCH(int, n);
        if (closed)
            run(&PolygonC::getNumberVertexes, &PolygonC::setNumberVertexes, initial, n);
        else
            run(&Line::getNumberPoints, &Line::setNumberPoints, initial, n);
    }
};

QTEST_GUILESS_MAIN(TestDrawable)
#include "tst_drawable.moc"
