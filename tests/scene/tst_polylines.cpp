// Line and PolygonC: the cell they draw (open polyline versus filled
// polygon), exact storage of the float coordinates, reading no more than
// 3 × count floats, and the count setters rebuilding the drawn cell.
#include <Orlavex/scene/Line.h>
#include <Orlavex/scene/PolygonC.h>

#include <QtTest>

#include <vtkActor.h>
#include <vtkCellArray.h>
#include <vtkIdList.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>

#include <cstring>
#include <functional>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>

namespace {
/// Floats placed right before an unreadable page, so that reading one float
/// past the end crashes the test instead of passing unnoticed.
class GuardedFloats {
public:
    explicit GuardedFloats(const QVector<float>& values) {
        pageSize = size_t(sysconf(_SC_PAGESIZE));
        base = static_cast<char*>(mmap(nullptr, 2 * pageSize, PROT_READ | PROT_WRITE,
                                       MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (base == MAP_FAILED)
            qFatal("mmap failed");
        mprotect(base + pageSize, pageSize, PROT_NONE);
        data = reinterpret_cast<float*>(base + pageSize) - values.size();
        if (!values.isEmpty())
            std::memcpy(data, values.constData(), sizeof(float) * size_t(values.size()));
    }
    ~GuardedFloats() { munmap(base, 2 * pageSize); }
    GuardedFloats(const GuardedFloats&) = delete;
    GuardedFloats& operator=(const GuardedFloats&) = delete;
    float* get() const { return data; }

private:
    size_t pageSize = 0;
    char* base = nullptr;
    float* data = nullptr;
};

/// Line and PolygonC seen through one interface.
struct Kind {
    bool closed = false;
    std::function<std::unique_ptr<DrawableSource>(int, float*)> make;
    std::function<std::unique_ptr<DrawableSource>(const DrawableSource&)> copy;
    std::function<vtkPolyData*(const DrawableSource&)> polyData;
    std::function<int(const DrawableSource&)> count;
    std::function<void(DrawableSource&, int)> setCount;
    std::function<void(DrawableSource&, float*)> setPoints;

    /// The cells the kind draws with, and those it must leave empty.
    vtkCellArray* drawn(const DrawableSource& d) const {
        return closed ? polyData(d)->GetPolys() : polyData(d)->GetLines();
    }
    vtkCellArray* unused(const DrawableSource& d) const {
        return closed ? polyData(d)->GetLines() : polyData(d)->GetPolys();
    }
};

template <class T> Kind kind(bool closed) {
    Kind k;
    k.closed = closed;
    k.make = [](int n, float* pts) { return std::make_unique<T>(n, pts); };
    k.copy = [](const DrawableSource& d) { return std::make_unique<T>(static_cast<const T&>(d)); };
    k.polyData = [](const DrawableSource& d) { return static_cast<const T&>(d).getPolyData(); };
    k.setPoints = [](DrawableSource& d, float* pts) { static_cast<T&>(d).setPoints(pts); };
    if constexpr (std::is_same_v<T, Line>) {
        k.count = [](const DrawableSource& d) {
            return static_cast<const T&>(d).getNumberPoints();
        };
        k.setCount = [](DrawableSource& d, int n) { static_cast<T&>(d).setNumberPoints(n); };
    } else {
        k.count = [](const DrawableSource& d) {
            return static_cast<const T&>(d).getNumberVertexes();
        };
        k.setCount = [](DrawableSource& d, int n) { static_cast<T&>(d).setNumberVertexes(n); };
    }
    return k;
}

void addKindColumn() {
    QTest::addColumn<Kind>("k");
}

QVector<float> coords(int n, float offset) {
    QVector<float> v;
    for (int i = 0; i < 3 * n; ++i)
        v << offset + 0.1f * float(i) + float(i % 3);
    return v;
}

/// The id list of the single drawn cell; empty when there is no cell.
QVector<vtkIdType> cellIds(vtkCellArray* cells) {
    QVector<vtkIdType> ids;
    if (cells->GetNumberOfCells() != 1)
        return ids;
    vtkNew<vtkIdList> list;
    cells->GetCellAtId(0, list);
    for (vtkIdType i = 0; i < list->GetNumberOfIds(); ++i)
        ids << list->GetId(i);
    return ids;
}

QVector<vtkIdType> iota(int n) {
    QVector<vtkIdType> ids;
    for (int i = 0; i < n; ++i)
        ids << i;
    return ids;
}

/// Checks every stored coordinate against the floats given, exactly.
bool storedExactly(vtkPoints* points, const QVector<float>& expected, QString* why) {
    if (points->GetNumberOfPoints() * 3 != expected.size()) {
        *why = QString("%1 points held").arg(points->GetNumberOfPoints());
        return false;
    }
    for (int i = 0; i < expected.size(); ++i) {
        const double stored = points->GetPoint(i / 3)[i % 3];
        if (stored != double(expected[i])) {
            *why = QString("coordinate %1 is %2, expected %3")
                       .arg(i)
                       .arg(stored, 0, 'g', 17)
                       .arg(double(expected[i]), 0, 'g', 17);
            return false;
        }
    }
    return true;
}
} // namespace

Q_DECLARE_METATYPE(Kind)

class TestPolylines : public QObject {
    Q_OBJECT
private slots:
    void construction_data();
    void construction();
    void setPointsExact_data();
    void setPointsExact();
    void setPointsKeepsCell_data();
    void setPointsKeepsCell();
    void countRebuildsCell_data();
    void countRebuildsCell();
    void copiesShareObjects_data();
    void copiesShareObjects();
};

void TestPolylines::construction_data() {
    addKindColumn();
    QTest::addColumn<int>("n");
    QTest::addColumn<int>("expectedCount");
    for (const bool closed : {false, true}) {
        const Kind k = closed ? kind<PolygonC>(true) : kind<Line>(false);
        const char* name = closed ? "PolygonC" : "Line";
        QTest::addRow("%s of 4", name) << k << 4 << 4;
        QTest::addRow("%s of 2", name) << k << 2 << 2;
        QTest::addRow("%s of 1", name) << k << 1 << 1;
        QTest::addRow("%s of 0", name) << k << 0 << 0;
        QTest::addRow("%s of -3", name) << k << -3 << 0;
    }
}

void TestPolylines::construction() {
    QFETCH(Kind, k);
    QFETCH(int, n);
    QFETCH(int, expectedCount);
    const QVector<float> given = coords(qMax(n, 0), 1.0f);
    GuardedFloats pts(given);
    auto d = k.make(n, pts.get());

    QCOMPARE(k.count(*d), expectedCount);
    QString why;
    QVERIFY2(storedExactly(k.polyData(*d)->GetPoints(), given, &why), qPrintable(why));
    // One cell through every point in order, and for a Line no id repeats
    // the first: the polyline stays open.
    QCOMPARE(k.drawn(*d)->GetNumberOfCells(), vtkIdType(expectedCount > 0 ? 1 : 0));
    QCOMPARE(k.unused(*d)->GetNumberOfCells(), vtkIdType(0));
    if (expectedCount > 0)
        QCOMPARE(cellIds(k.drawn(*d)), iota(expectedCount));
    QVERIFY(d->getActor()->GetMapper() != nullptr);
    d->getActor()->GetMapper()->Update(); // an empty shape must pass the pipeline too
}

void TestPolylines::setPointsExact_data() {
    addKindColumn();
    QTest::addColumn<float>("value");
    // Values whose float differs from the nearest double of the same literal.
    const QVector<QPair<const char*, float>> values{{"0.1", 0.1f},
                                                    {"one third", 1.0f / 3.0f},
                                                    {"-2.7", -2.7f},
                                                    {"1e-7", 1e-7f},
                                                    {"largest float", 3.4028235e38f},
                                                    {"denormal", 1.4e-45f},
                                                    {"16777217", 16777217.0f}};
    for (const auto& v : values) {
        QTest::addRow("Line %s", v.first) << kind<Line>(false) << v.second;
        QTest::addRow("PolygonC %s", v.first) << kind<PolygonC>(true) << v.second;
    }
}

void TestPolylines::setPointsExact() {
    QFETCH(Kind, k);
    QFETCH(float, value);
    const QVector<float> first = coords(3, 0.0f);
    GuardedFloats firstPts(first);
    auto d = k.make(3, firstPts.get());
    const QVector<float> given{value, -value, value * 0.5f, 1, 2, 3, value, value, value};
    GuardedFloats pts(given);
    k.setPoints(*d, pts.get());
    QString why;
    QVERIFY2(storedExactly(k.polyData(*d)->GetPoints(), given, &why), qPrintable(why));
}

void TestPolylines::setPointsKeepsCell_data() {
    addKindColumn();
    QTest::newRow("Line") << kind<Line>(false);
    QTest::newRow("PolygonC") << kind<PolygonC>(true);
}

void TestPolylines::setPointsKeepsCell() {
    QFETCH(Kind, k);
    GuardedFloats first(coords(4, 0.0f));
    auto d = k.make(4, first.get());
    vtkPoints* points = k.polyData(*d)->GetPoints();
    const vtkMTimeType before = points->GetMTime();

    const QVector<float> moved = coords(4, 10.0f);
    GuardedFloats pts(moved);
    k.setPoints(*d, pts.get());
    QString why;
    QVERIFY2(storedExactly(points, moved, &why), qPrintable(why));
    QVERIFY(points->GetMTime() > before); // the next render picks the change up
    QCOMPARE(cellIds(k.drawn(*d)), iota(4));

    k.setPoints(*d, nullptr); // no array: nothing changes
    QVERIFY2(storedExactly(points, moved, &why), qPrintable(why));
}

void TestPolylines::countRebuildsCell_data() {
    addKindColumn();
    QTest::addColumn<int>("initial");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("expectedCount");
    for (const bool closed : {false, true}) {
        const Kind k = closed ? kind<PolygonC>(true) : kind<Line>(false);
        const char* name = closed ? "PolygonC" : "Line";
        QTest::addRow("%s 4 to 2", name) << k << 4 << 2 << 2;
        QTest::addRow("%s 2 to 5", name) << k << 2 << 5 << 5;
        QTest::addRow("%s 0 to 3", name) << k << 0 << 3 << 3;
        QTest::addRow("%s 4 to 0", name) << k << 4 << 0 << 0;
        QTest::addRow("%s 4 to -1", name) << k << 4 << -1 << 0;
        QTest::addRow("%s 3 to 3", name) << k << 3 << 3 << 3;
    }
}

void TestPolylines::countRebuildsCell() {
    QFETCH(Kind, k);
    QFETCH(int, initial);
    QFETCH(int, count);
    QFETCH(int, expectedCount);
    const QVector<float> start = coords(initial, 0.0f);
    GuardedFloats first(start);
    auto d = k.make(initial, first.get());
    k.setCount(*d, count);
    QCOMPARE(k.count(*d), expectedCount);

    // The drawn cell has the new count, and every id in it names a point.
    QCOMPARE(k.drawn(*d)->GetNumberOfCells(), vtkIdType(expectedCount > 0 ? 1 : 0));
    if (expectedCount > 0)
        QCOMPARE(cellIds(k.drawn(*d)), iota(expectedCount));
    vtkPoints* points = k.polyData(*d)->GetPoints();
    QCOMPARE(points->GetNumberOfPoints(), vtkIdType(expectedCount));
    // Kept points keep their coordinates; new ones wait on the last kept one.
    for (int i = 0; i < expectedCount; ++i) {
        const int source = qMin(i, initial - 1);
        for (int c = 0; c < 3; ++c) {
            const double want = source >= 0 ? double(start[3 * source + c]) : 0.0;
            QCOMPARE(points->GetPoint(i)[c], want);
        }
    }
    d->getActor()->GetMapper()->Update();

    // The count bounds the next setPoints, which reads exactly 3 × count floats.
    const QVector<float> moved = coords(expectedCount, 5.0f);
    GuardedFloats pts(moved);
    k.setPoints(*d, pts.get());
    QString why;
    QVERIFY2(storedExactly(points, moved, &why), qPrintable(why));
}

void TestPolylines::copiesShareObjects_data() {
    addKindColumn();
    QTest::newRow("Line") << kind<Line>(false);
    QTest::newRow("PolygonC") << kind<PolygonC>(true);
}

void TestPolylines::copiesShareObjects() {
    QFETCH(Kind, k);
    GuardedFloats pts(coords(3, 0.0f));
    auto original = k.make(3, pts.get());
    vtkPolyData* polyData = k.polyData(*original);
    vtkPoints* points = polyData->GetPoints();
    const int polyRefs = polyData->GetReferenceCount();
    const int pointRefs = points->GetReferenceCount();
    {
        auto copy = k.copy(*original);
        QVERIFY(k.polyData(*copy) == polyData);
        QCOMPARE(polyData->GetReferenceCount(), polyRefs + 1);
        QCOMPARE(points->GetReferenceCount(), pointRefs + 1);
        // A change through the copy shows in the original: they draw the same data.
        const QVector<float> moved = coords(3, 7.0f);
        GuardedFloats movedPts(moved);
        k.setPoints(*copy, movedPts.get());
        QString why;
        QVERIFY2(storedExactly(points, moved, &why), qPrintable(why));
    }
    QCOMPARE(polyData->GetReferenceCount(), polyRefs);
    QCOMPARE(points->GetReferenceCount(), pointRefs);
    original->getActor()->GetMapper()->Update();
    QCOMPARE(k.drawn(*original)->GetNumberOfCells(), vtkIdType(1));
}

QTEST_GUILESS_MAIN(TestPolylines)
#include "tst_polylines.moc"
