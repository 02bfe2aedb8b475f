// The eight parametric solids: each setter must reach both the recording
// field and the VTK source, painting must put exactly the solid's actor on
// the renderer, and copies must share the source and mapper without
// stealing them.
#include <Orlavex/scene/Arrow.h>
#include <Orlavex/scene/Cone.h>
#include <Orlavex/scene/Cube.h>
#include <Orlavex/scene/Cylinder.h>
#include <Orlavex/scene/DiskSource.h>
#include <Orlavex/scene/Plane.h>
#include <Orlavex/scene/RegularPolygon.h>
#include <Orlavex/scene/Sphere.h>

#include <QtTest>

#include <vtkActor.h>
#include <vtkArrowSource.h>
#include <vtkConeSource.h>
#include <vtkCubeSource.h>
#include <vtkCylinderSource.h>
#include <vtkDiskSource.h>
#include <vtkNew.h>
#include <vtkPlaneSource.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>
#include <vtkRegularPolygonSource.h>
#include <vtkRenderer.h>
#include <vtkSphereSource.h>
#include <vtkWeakPointer.h>

#include <functional>
#include <memory>

namespace {
/// Calls one setter on a fresh solid and reads back what it should have changed.
using Probe = std::function<QVector<double>()>;

/// What the generic tests need to know about one kind of solid.
struct Kind {
    std::function<std::unique_ptr<DrawableSource>()> make;
    std::function<std::unique_ptr<DrawableSource>(const DrawableSource&)> copy;
    std::function<void(DrawableSource&, const DrawableSource&)> assign;
    std::function<vtkPolyDataAlgorithm*(const DrawableSource&)> source;
    std::function<vtkPolyDataMapper*(const DrawableSource&)> mapper;
};

template <class T> Kind kind() {
    return {[] { return std::make_unique<T>(); },
            [](const DrawableSource& d) { return std::make_unique<T>(static_cast<const T&>(d)); },
            [](DrawableSource& to, const DrawableSource& from) {
                static_cast<T&>(to) = static_cast<const T&>(from);
            },
            [](const DrawableSource& d) { return static_cast<const T&>(d).getSource(); },
            [](const DrawableSource& d) { return static_cast<const T&>(d).getMapper(); }};
}

QVector<double> xyz(const double* p) {
    return {p[0], p[1], p[2]};
}

void addKindRows() {
    QTest::addColumn<Kind>("k");
    QTest::newRow("Sphere") << kind<Sphere>();
    QTest::newRow("Cube") << kind<Cube>();
    QTest::newRow("Cone") << kind<Cone>();
    QTest::newRow("Cylinder") << kind<Cylinder>();
    QTest::newRow("Arrow") << kind<Arrow>();
    QTest::newRow("DiskSource") << kind<DiskSource>();
    QTest::newRow("Plane") << kind<Plane>();
    QTest::newRow("RegularPolygon") << kind<RegularPolygon>();
}
} // namespace

Q_DECLARE_METATYPE(Probe)
Q_DECLARE_METATYPE(Kind)

class TestSolids : public QObject {
    Q_OBJECT
private slots:
    void setters_data();
    void setters();
    void paintShowsDefaultShape_data() { addKindRows(); }
    void paintShowsDefaultShape();
    void copiesShareSourceAndMapper_data() { addKindRows(); }
    void copiesShareSourceAndMapper();
    void arrowIsUpToDateAtOnce();
    void capping_data();
    void capping();
    void planeCornerIsNotActorOrigin();
    void cubeLengthTimesScale();
};

void TestSolids::setters_data() {
    QTest::addColumn<Probe>("probe");
    QTest::addColumn<QVector<double>>("expected");

    // Each row: field(s) first, then what the source holds.
    QTest::newRow("Sphere::setRadius") << Probe([] {
        Sphere s;
        s.setRadius(2.5);
        return QVector<double>{s.getRadius(), s.getSource()->GetRadius()};
    }) << QVector<double>{2.5, 2.5};
    QTest::newRow("Sphere::setCenter") << Probe([] {
        Sphere s;
        s.setCenter(1, 2, 3);
        return xyz(s.getCenter()) + xyz(s.getSource()->GetCenter());
    }) << QVector<double>{1, 2, 3, 1, 2, 3};
    QTest::newRow("Sphere::setThetaResolution") << Probe([] {
        Sphere s;
        s.setThetaResolution(12);
        return QVector<double>{double(s.getThetaResolution()),
                               double(s.getSource()->GetThetaResolution())};
    }) << QVector<double>{12, 12};
    // Out of range: the source clamps, the field records what was given.
    QTest::newRow("Sphere::setThetaResolution below range") << Probe([] {
        Sphere s;
        s.setThetaResolution(1);
        return QVector<double>{double(s.getThetaResolution()),
                               double(s.getSource()->GetThetaResolution())};
    }) << QVector<double>{1, 3};
    QTest::newRow("Sphere::setPhiResolution") << Probe([] {
        Sphere s;
        s.setPhiResolution(20);
        return QVector<double>{double(s.getPhiResolution()),
                               double(s.getSource()->GetPhiResolution())};
    }) << QVector<double>{20, 20};
    QTest::newRow("Sphere theta and phi ranges") << Probe([] {
        Sphere s;
        s.setStartTheta(30);
        s.setEndTheta(270);
        s.setStartPhi(10);
        s.setEndPhi(170);
        auto* src = s.getSource();
        return QVector<double>{s.getStartTheta(),  s.getEndTheta(),      s.getStartPhi(),
                               s.getEndPhi(),      src->GetStartTheta(), src->GetEndTheta(),
                               src->GetStartPhi(), src->GetEndPhi()};
    }) << QVector<double>{30, 270, 10, 170, 30, 270, 10, 170};
    QTest::newRow("Sphere::latLongTessellationOn") << Probe([] {
        Sphere s;
        s.latLongTessellationOn();
        return QVector<double>{double(s.getSource()->GetLatLongTessellation())};
    }) << QVector<double>{1};

    QTest::newRow("Cube lengths") << Probe([] {
        Cube c;
        c.setXLength(2);
        c.setYLength(3);
        c.setZLength(4);
        auto* src = c.getSource();
        return QVector<double>{c.getXLength(),    c.getYLength(),    c.getZLength(),
                               src->GetXLength(), src->GetYLength(), src->GetZLength()};
    }) << QVector<double>{2, 3, 4, 2, 3, 4};
    QTest::newRow("Cube::setXLength negative") << Probe([] {
        Cube c;
        c.setXLength(-1);
        return QVector<double>{c.getXLength(), c.getSource()->GetXLength()};
    }) << QVector<double>{-1, 0};
    QTest::newRow("Cube::setCenter") << Probe([] {
        Cube c;
        c.setCenter(-1, 0.5, 7);
        return xyz(c.getCenter()) + xyz(c.getSource()->GetCenter());
    }) << QVector<double>{-1, 0.5, 7, -1, 0.5, 7};

    QTest::newRow("Cone::setResolution") << Probe([] {
        Cone c;
        c.setResolution(12);
        return QVector<double>{c.getResolution(), double(c.getSource()->GetResolution())};
    }) << QVector<double>{12.0, 12};
    QTest::newRow("Cone height and radius") << Probe([] {
        Cone c;
        c.setHeight(3);
        c.setRadius(0.25);
        return QVector<double>{c.getHeight(), c.getRadius(), c.getSource()->GetHeight(),
                               c.getSource()->GetRadius()};
    }) << QVector<double>{3, 0.25, 3, 0.25};
    QTest::newRow("Cone::setCapping") << Probe([] {
        Cone c;
        c.setCapping(0);
        return QVector<double>{double(c.getSource()->GetCapping())};
    }) << QVector<double>{0};

    QTest::newRow("Cylinder height, radius, resolution") << Probe([] {
        Cylinder c;
        c.setHeight(4);
        c.setRadius(0.75);
        c.setResolution(10);
        auto* src = c.getSource();
        return QVector<double>{c.getHeight(),    c.getRadius(),    double(c.getResolution()),
                               src->GetHeight(), src->GetRadius(), double(src->GetResolution())};
    }) << QVector<double>{4, 0.75, 10, 4, 0.75, 10};
    QTest::newRow("Cylinder::setCenter") << Probe([] {
        Cylinder c;
        c.setCenter(1, 2, 3);
        return xyz(c.getCenter()) + xyz(c.getSource()->GetCenter());
    }) << QVector<double>{1, 2, 3, 1, 2, 3};
    QTest::newRow("Cylinder::setCapping") << Probe([] {
        Cylinder c;
        c.setCapping(0);
        return QVector<double>{double(c.getSource()->GetCapping())};
    }) << QVector<double>{0};

    QTest::newRow("Arrow tip") << Probe([] {
        Arrow a;
        a.setTipLength(0.4);
        a.setTipRadius(0.2);
        a.setTipResolution(16);
        auto* src = a.getSource();
        return QVector<double>{
            a.getTipLength(),    a.getTipRadius(),    double(a.getTipResolution()),
            src->GetTipLength(), src->GetTipRadius(), double(src->GetTipResolution())};
    }) << QVector<double>{0.4, 0.2, 16, 0.4, 0.2, 16};
    QTest::newRow("Arrow shaft") << Probe([] {
        Arrow a;
        a.setShaftRadius(0.05);
        a.setShaftResolution(9);
        auto* src = a.getSource();
        return QVector<double>{a.getShaftRadius(), double(a.getShaftResolution()),
                               src->GetShaftRadius(), double(src->GetShaftResolution())};
    }) << QVector<double>{0.05, 9, 0.05, 9};
    QTest::newRow("Arrow::setTipLength above range") << Probe([] {
        Arrow a;
        a.setTipLength(2);
        return QVector<double>{a.getTipLength(), a.getSource()->GetTipLength()};
    }) << QVector<double>{2, 1};

    QTest::newRow("DiskSource") << Probe([] {
        DiskSource d;
        d.setInnerRadius(0.5);
        d.setOuterRadius(2);
        d.setRadialResolution(3);
        d.setCircumferentialResolution(24);
        auto* src = d.getSource();
        return QVector<double>{src->GetInnerRadius(), src->GetOuterRadius(),
                               double(src->GetRadialResolution()),
                               double(src->GetCircumferentialResolution())};
    }) << QVector<double>{0.5, 2, 3, 24};

    QTest::newRow("Plane corner and edges") << Probe([] {
        Plane p;
        p.setOriginPoint(1, 2, 3);
        p.setPoint1(4, 2, 3);
        p.setPoint2(1, 6, 3);
        auto* src = p.getSource();
        return xyz(src->GetOrigin()) + xyz(src->GetPoint1()) + xyz(src->GetPoint2());
    }) << QVector<double>{1, 2, 3, 4, 2, 3, 1, 6, 3};
    QTest::newRow("Plane centre and normal") << Probe([] {
        Plane p;
        p.setCenter(5, 6, 7);
        p.setNormal(1, 0, 0);
        auto* src = p.getSource();
        return xyz(src->GetCenter()) + xyz(src->GetNormal());
    }) << QVector<double>{5, 6, 7, 1, 0, 0};
    QTest::newRow("Plane::setResolution") << Probe([] {
        Plane p;
        p.setResolution(4, 5);
        return QVector<double>{double(p.getSource()->GetXResolution()),
                               double(p.getSource()->GetYResolution())};
    }) << QVector<double>{4, 5};

    QTest::newRow("RegularPolygon::setCenter") << Probe([] {
        RegularPolygon r;
        r.setCenter(1, 2, 3);
        return xyz(r.getCenter()) + xyz(r.getSource()->GetCenter());
    }) << QVector<double>{1, 2, 3, 1, 2, 3};
    QTest::newRow("RegularPolygon shape") << Probe([] {
        RegularPolygon r;
        r.setNumberOfSides(7);
        r.setRadius(2);
        r.setNormal(0, 1, 0);
        r.setGeneratePolygon(0);
        r.setGeneratePolyline(0);
        auto* src = r.getSource();
        return QVector<double>{double(src->GetNumberOfSides()), src->GetRadius()} +
               xyz(src->GetNormal()) +
               QVector<double>{double(src->GetGeneratePolygon()),
                               double(src->GetGeneratePolyline())};
    }) << QVector<double>{7, 2, 0, 1, 0, 0, 0};
}

void TestSolids::setters() {
    QFETCH(Probe, probe);
    QFETCH(QVector<double>, expected);
    const QVector<double> actual = probe();
    QCOMPARE(actual.size(), expected.size());
    // Within rounding: the plane source turns its points to reach a new normal.
    for (int i = 0; i < actual.size(); ++i)
        QVERIFY2(qAbs(actual[i] - expected[i]) <= 1e-12 * qMax(1.0, qAbs(expected[i])),
                 qPrintable(QString("value %1 is %2, expected %3")
                                .arg(i)
                                .arg(actual[i], 0, 'g', 17)
                                .arg(expected[i], 0, 'g', 17)));
}

void TestSolids::paintShowsDefaultShape() {
    QFETCH(Kind, k);
    vtkNew<vtkRenderer> renderer;
    auto solid = k.make();
    solid->setRenderer(renderer);
    solid->paint();
    QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 1);
    QVERIFY(renderer->GetActors()->GetLastActor() == solid->getActor());
    QVERIFY(solid->getActor()->GetMapper() == k.mapper(*solid));

    // What the actor shows is the untouched source's output.
    vtkPolyDataAlgorithm* source = k.source(*solid);
    source->Update();
    QVERIFY(source->GetOutput()->GetNumberOfCells() > 0);
    double expected[6], shown[6];
    source->GetOutput()->GetBounds(expected);
    solid->getActor()->GetBounds(shown);
    for (int i = 0; i < 6; ++i)
        QCOMPARE(shown[i], expected[i]);
}

void TestSolids::copiesShareSourceAndMapper() {
    QFETCH(Kind, k);
    auto original = k.make();
    vtkPolyDataAlgorithm* source = k.source(*original);
    vtkPolyDataMapper* mapper = k.mapper(*original);
    const int sourceRefs = source->GetReferenceCount();
    const int mapperRefs = mapper->GetReferenceCount();
    {
        auto copy = k.copy(*original);
        QVERIFY(k.source(*copy) == source);
        QVERIFY(k.mapper(*copy) == mapper);
        QCOMPARE(source->GetReferenceCount(), sourceRefs + 1);
        QCOMPARE(mapper->GetReferenceCount(), mapperRefs + 1);

        // Assignment drops the target's own objects and shares the original's.
        auto target = k.make();
        vtkWeakPointer<vtkPolyDataAlgorithm> oldSource = k.source(*target);
        vtkWeakPointer<vtkPolyDataMapper> oldMapper = k.mapper(*target);
        k.assign(*target, *original);
        QVERIFY(oldSource == nullptr);
        QVERIFY(oldMapper == nullptr);
        QVERIFY(k.source(*target) == source);
        QCOMPARE(source->GetReferenceCount(), sourceRefs + 2);
    }
    QCOMPARE(source->GetReferenceCount(), sourceRefs);
    QCOMPARE(mapper->GetReferenceCount(), mapperRefs);
    // The original still draws.
    double bounds[6];
    original->getActor()->GetBounds(bounds);
    QVERIFY(bounds[0] <= bounds[1]);
}

void TestSolids::arrowIsUpToDateAtOnce() {
    Arrow a;
    QVERIFY(a.getSource()->GetOutput()->GetNumberOfPoints() > 0);
}

void TestSolids::capping_data() {
    QTest::addColumn<bool>("cylinder");
    QTest::addColumn<int>("capping");
    QTest::addColumn<int>("caps");
    QTest::newRow("cone capped") << false << 1 << 1;
    QTest::newRow("cone open") << false << 0 << 0;
    QTest::newRow("cylinder capped") << true << 1 << 2;
    QTest::newRow("cylinder open") << true << 0 << 0;
}

void TestSolids::capping() {
    QFETCH(bool, cylinder);
    QFETCH(int, capping);
    QFETCH(int, caps);
    const int resolution = 10;
    vtkPolyDataAlgorithm* source = nullptr;
    Cone cone;
    Cylinder cyl;
    if (cylinder) {
        cyl.setResolution(resolution);
        cyl.setCapping(capping);
        source = cyl.getSource();
    } else {
        cone.setResolution(resolution);
        cone.setCapping(capping);
        source = cone.getSource();
    }
    source->Update();
    // One facet per step around the axis, and one polygon per cap.
    QCOMPARE(source->GetOutput()->GetNumberOfPolys(), vtkIdType(resolution + caps));
}

void TestSolids::planeCornerIsNotActorOrigin() {
    Plane p;
    p.setOriginPoint(1, 2, 3);
    double actorOrigin[3];
    p.getActor()->GetOrigin(actorOrigin);
    QCOMPARE(xyz(actorOrigin), (QVector<double>{0, 0, 0}));
    p.getSource()->Update();
    double corner[3];
    p.getSource()->GetOutput()->GetPoint(0, corner);
    QCOMPARE(xyz(corner), (QVector<double>{1, 2, 3}));

    p.setOrigin(4, 5, 6);
    p.getActor()->GetOrigin(actorOrigin);
    QCOMPARE(xyz(actorOrigin), (QVector<double>{4, 5, 6}));
    QCOMPARE(xyz(p.getSource()->GetOrigin()), (QVector<double>{1, 2, 3}));
}

void TestSolids::cubeLengthTimesScale() {
    Cube c;
    c.setXLength(2);
    c.setScale(3);
    double b[6];
    c.getActor()->GetBounds(b);
    QCOMPARE(b[1] - b[0], 6.0);
    QCOMPARE(b[3] - b[2], 3.0);
    QCOMPARE(b[5] - b[4], 3.0);
}

QTEST_GUILESS_MAIN(TestSolids)
#include "tst_solids.moc"
