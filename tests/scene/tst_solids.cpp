// The eight parametric solids: every setter must reach both its recording
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
using Values = QVector<double>;
/// Calls setters on a fresh solid and reads back fields and source values.
using Probe = std::function<Values()>;

/// What the generic tests need to know about one kind of solid.
struct Kind {
    std::function<std::unique_ptr<DrawableSource>()> make;
    std::function<std::unique_ptr<DrawableSource>(const DrawableSource&)> copy;
    std::function<void(DrawableSource&, const DrawableSource&)> assign;
    std::function<vtkPolyDataAlgorithm*(const DrawableSource&)> source;
};

template <class T> Kind kind() {
    return {[] { return std::make_unique<T>(); },
            [](const DrawableSource& d) { return std::make_unique<T>(static_cast<const T&>(d)); },
            [](DrawableSource& to, const DrawableSource& from) {
                static_cast<T&>(to) = static_cast<const T&>(from);
            },
            [](const DrawableSource& d) { return static_cast<const T&>(d).getSource(); }};
}

Values xyz(const double* p) {
    return {p[0], p[1], p[2]};
}

double polys(vtkPolyDataAlgorithm* source) {
    source->Update();
    return double(source->GetOutput()->GetNumberOfPolys());
}
} // namespace

Q_DECLARE_METATYPE(Probe)
Q_DECLARE_METATYPE(Kind)

class TestSolids : public QObject {
    Q_OBJECT
private slots:
    void setters_data();
    void setters();
    void kinds_data();
    void kinds();
    void planeCornerIsNotActorOrigin();
    void cubeLengthTimesScale();
};

void TestSolids::setters_data() {
    QTest::addColumn<Probe>("probe");
    QTest::addColumn<Values>("expected");
    // Out-of-range values (sphere resolution 1, arrow tip length 2) are
    // clamped by the source while the field keeps what was given.
    QTest::newRow("Sphere") << Probe([] {
        Sphere s;
        s.setCenter(1, 2, 3);
        s.setRadius(2.5);
        s.setThetaResolution(1);
        s.setPhiResolution(20);
        s.setStartTheta(30);
        s.setEndTheta(270);
        s.setStartPhi(10);
        s.setEndPhi(170);
        s.latLongTessellationOn();
        auto* o = s.getSource();
        return xyz(s.getCenter()) + xyz(o->GetCenter()) +
               (Values() << s.getRadius() << o->GetRadius() << double(s.getThetaResolution())
                         << double(o->GetThetaResolution()) << double(s.getPhiResolution())
                         << double(o->GetPhiResolution()) << s.getStartTheta() << o->GetStartTheta()
                         << s.getEndTheta() << o->GetEndTheta() << s.getStartPhi()
                         << o->GetStartPhi() << s.getEndPhi() << o->GetEndPhi()
                         << double(o->GetLatLongTessellation()));
    }) << Values{1, 2, 3, 1, 2, 3, 2.5, 2.5, 1, 3, 20, 20, 30, 30, 270, 270, 10, 10, 170, 170, 1};
    QTest::newRow("Cube") << Probe([] {
        Cube c;
        c.setXLength(2);
        c.setYLength(3);
        c.setZLength(-4);
        c.setCenter(-1, 0.5, 7);
        auto* o = c.getSource();
        return xyz(c.getCenter()) + xyz(o->GetCenter()) +
               (Values() << c.getXLength() << c.getYLength() << c.getZLength() << o->GetXLength()
                         << o->GetYLength() << o->GetZLength());
    }) << Values{-1, 0.5, 7, -1, 0.5, 7, 2, 3, -4, 2, 3, 0};
    // The resolution field of a cone is a double; caps are one polygon each.
    QTest::newRow("Cone") << Probe([] {
        Cone c;
        c.setHeight(3);
        c.setRadius(0.25);
        c.setResolution(12);
        const double capped = polys(c.getSource());
        c.setCapping(0);
        auto* o = c.getSource();
        return (Values() << c.getHeight() << o->GetHeight() << c.getRadius() << o->GetRadius()
                         << c.getResolution() << double(o->GetResolution()) << capped << polys(o));
    }) << Values{3, 3, 0.25, 0.25, 12.0, 12, 13, 12};
    QTest::newRow("Cylinder") << Probe([] {
        Cylinder c;
        c.setHeight(4);
        c.setRadius(0.75);
        c.setResolution(10);
        c.setCenter(1, 2, 3);
        const double capped = polys(c.getSource());
        c.setCapping(0);
        auto* o = c.getSource();
        return xyz(c.getCenter()) + xyz(o->GetCenter()) +
               (Values() << c.getHeight() << o->GetHeight() << c.getRadius() << o->GetRadius()
                         << double(c.getResolution()) << double(o->GetResolution()) << capped
                         << polys(o));
    }) << Values{1, 2, 3, 1, 2, 3, 4, 4, 0.75, 0.75, 10, 10, 12, 10};
    // The arrow's output exists from construction on, before any render.
    QTest::newRow("Arrow") << Probe([] {
        Arrow a;
        const double built = a.getSource()->GetOutput()->GetNumberOfPoints() > 0;
        a.setTipLength(2);
        a.setTipRadius(0.2);
        a.setTipResolution(16);
        a.setShaftRadius(0.05);
        a.setShaftResolution(9);
        auto* o = a.getSource();
        return (Values() << built << a.getTipLength() << o->GetTipLength() << a.getTipRadius()
                         << o->GetTipRadius() << double(a.getTipResolution())
                         << double(o->GetTipResolution()) << a.getShaftRadius()
                         << o->GetShaftRadius() << double(a.getShaftResolution())
                         << double(o->GetShaftResolution()));
    }) << Values{1, 2, 1, 0.2, 0.2, 16, 16, 0.05, 0.05, 9, 9};
    QTest::newRow("DiskSource") << Probe([] {
        DiskSource d;
        d.setInnerRadius(0.5);
        d.setOuterRadius(2);
        d.setRadialResolution(3);
        d.setCircumferentialResolution(24);
        auto* o = d.getSource();
        return (Values() << o->GetInnerRadius() << o->GetOuterRadius()
                         << double(o->GetRadialResolution())
                         << double(o->GetCircumferentialResolution()));
    }) << Values{0.5, 2, 3, 24};
    QTest::newRow("Plane") << Probe([] {
        Plane p;
        p.setOriginPoint(1, 2, 3);
        p.setPoint1(4, 2, 3);
        p.setPoint2(1, 6, 3);
        auto* o = p.getSource();
        Values v = xyz(o->GetOrigin()) + xyz(o->GetPoint1()) + xyz(o->GetPoint2());
        p.setCenter(5, 6, 7);
        p.setNormal(1, 0, 0);
        p.setResolution(4, 5);
        return v + xyz(o->GetCenter()) + xyz(o->GetNormal()) +
               (Values() << double(o->GetXResolution()) << double(o->GetYResolution()));
    }) << Values{1, 2, 3, 4, 2, 3, 1, 6, 3, 5, 6, 7, 1, 0, 0, 4, 5};
    QTest::newRow("RegularPolygon") << Probe([] {
        RegularPolygon r;
        r.setCenter(1, 2, 3);
        r.setNumberOfSides(7);
        r.setRadius(2);
        r.setNormal(0, 1, 0);
        r.setGeneratePolygon(0);
        r.setGeneratePolyline(0);
        auto* o = r.getSource();
        return xyz(r.getCenter()) + xyz(o->GetCenter()) + xyz(o->GetNormal()) +
               (Values() << double(o->GetNumberOfSides()) << o->GetRadius()
                         << double(o->GetGeneratePolygon()) << double(o->GetGeneratePolyline()));
    }) << Values{1, 2, 3, 1, 2, 3, 0, 1, 0, 7, 2, 0, 0};
}

void TestSolids::setters() {
    QFETCH(Probe, probe);
    QFETCH(Values, expected);
    const Values actual = probe();
    QCOMPARE(actual.size(), expected.size());
    // Within rounding: the plane source turns its points to reach a new normal.
    for (int i = 0; i < actual.size(); ++i)
        QVERIFY2(qAbs(actual[i] - expected[i]) <= 1e-12 * qMax(1.0, qAbs(expected[i])),
                 qPrintable(QString("value %1 is %2, expected %3")
                                .arg(i)
                                .arg(actual[i], 0, 'g', 17)
                                .arg(expected[i])));
}

void TestSolids::kinds_data() {
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

void TestSolids::kinds() {
    QFETCH(Kind, k);
    vtkNew<vtkRenderer> renderer;
    auto solid = k.make();
    vtkPolyDataAlgorithm* source = k.source(*solid);
    vtkMapper* mapper = solid->getActor()->GetMapper();
    QVERIFY(mapper != nullptr);
    const int sourceRefs = source->GetReferenceCount();
    const int mapperRefs = mapper->GetReferenceCount();
    {
        auto copy = k.copy(*solid);
        QVERIFY(k.source(*copy) == source);
        QCOMPARE(source->GetReferenceCount(), sourceRefs + 1);
        QCOMPARE(mapper->GetReferenceCount(), mapperRefs + 1);
        // Assignment drops the target's own objects and shares the original's.
        auto target = k.make();
        vtkWeakPointer<vtkPolyDataAlgorithm> oldSource = k.source(*target);
        vtkWeakPointer<vtkMapper> oldMapper = target->getActor()->GetMapper();
        k.assign(*target, *solid);
        QVERIFY(oldSource == nullptr && oldMapper == nullptr);
        QCOMPARE(source->GetReferenceCount(), sourceRefs + 2);
    }
    QCOMPARE(source->GetReferenceCount(), sourceRefs);
    QCOMPARE(mapper->GetReferenceCount(), mapperRefs);

    // Painted without any setter, the solid shows the source's default shape.
    solid->setRenderer(renderer);
    solid->paint();
    QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 1);
    QVERIFY(renderer->GetActors()->GetLastActor() == solid->getActor());
    source->Update();
    QVERIFY(source->GetOutput()->GetNumberOfCells() > 0);
    double expected[6], shown[6];
    source->GetOutput()->GetBounds(expected);
    solid->getActor()->GetBounds(shown);
    for (int i = 0; i < 6; ++i)
        QCOMPARE(shown[i], expected[i]);
}

void TestSolids::planeCornerIsNotActorOrigin() {
    Plane p;
    p.setOriginPoint(1, 2, 3);
    p.getSource()->Update();
    QCOMPARE(xyz(p.getSource()->GetOutput()->GetPoint(0)), (Values{1, 2, 3}));
    QCOMPARE(xyz(p.getActor()->GetOrigin()), (Values{0, 0, 0}));
    p.setOrigin(4, 5, 6);
    QCOMPARE(xyz(p.getActor()->GetOrigin()), (Values{4, 5, 6}));
    QCOMPARE(xyz(p.getSource()->GetOrigin()), (Values{1, 2, 3}));
}

void TestSolids::cubeLengthTimesScale() {
    Cube c;
    c.setXLength(2);
    c.setScale(3);
    const double* b = c.getActor()->GetBounds();
    QCOMPARE(b[1] - b[0], 6.0);
    QCOMPARE(b[3] - b[2], 3.0);
}

QTEST_GUILESS_MAIN(TestSolids)
#include "tst_solids.moc"
