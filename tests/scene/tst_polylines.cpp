// Line and PolygonC: the cell they draw (open polyline versus filled
// polygon), exact storage of the float coordinates, reading no more than
// 3 × count floats, and the count setters rebuilding the drawn cell.
#include <Orlavex/Orlavex.h>

#include <QtTest>

#include <vtkActor.h>
#include <vtkCellArray.h>
#include <vtkIdList.h>
#include <vtkMapper.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>

#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace {
/// Floats placed right before an unreadable page, so that reading one float
/// past the end crashes the test instead of passing unnoticed.
class GuardedFloats {
public:
    explicit GuardedFloats(const QVector<float>& values) : page(size_t(sysconf(_SC_PAGESIZE))) {
        base = static_cast<char*>(
            mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        QVERIFY(base != MAP_FAILED && mprotect(base + page, page, PROT_NONE) == 0);
        data = reinterpret_cast<float*>(base + page) - values.size();
        std::memcpy(data, values.constData(), sizeof(float) * size_t(values.size()));
    }
    ~GuardedFloats() { munmap(base, 2 * page); }
    float* get() const { return data; }

private:
    size_t page;
    char* base = nullptr;
    float* data = nullptr;
};

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
    GuardedFloats given(start);
    T shape(initial, given.get());
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
    GuardedFloats pts(moved);
    shape.setPoints(pts.get());
    checkStored(points, moved);
    checkCell(shape, expected);
    shape.setPoints(nullptr); // no array: nothing changes
    checkStored(points, moved);
}
} // namespace

class TestPolylines : public QObject {
    Q_OBJECT
private slots:
    void countsAndPoints_data() {
        QTest::addColumn<bool>("closed");
        QTest::addColumn<int>("initial");
        QTest::addColumn<int>("n");
        for (const bool closed : {false, true}) {
            const char* kind = closed ? "PolygonC" : "Line";
            for (const auto& c : {qMakePair(4, 2), qMakePair(2, 5), qMakePair(0, 3),
                                  qMakePair(1, 1), qMakePair(-3, 0), qMakePair(4, -1)})
                QTest::addRow("%s %d to %d", kind, c.first, c.second)
                    << closed << c.first << c.second;
        }
    }
    void countsAndPoints() {
        QFETCH(bool, closed);
        QFETCH(int, initial);
        QFETCH(int, n);
        if (closed)
            run(&PolygonC::getNumberVertexes, &PolygonC::setNumberVertexes, initial, n);
        else
            run(&Line::getNumberPoints, &Line::setNumberPoints, initial, n);
    }
};

QTEST_GUILESS_MAIN(TestPolylines)
#include "tst_polylines.moc"
