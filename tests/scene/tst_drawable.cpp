// DrawableSource and the eight parametric solids built on it: flags, edge
// visibility, placement, copies that share the VTK objects, and setters that
// reach each solid's source.
#include <Orlavex/Orlavex.h>

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
#include <vtkProperty.h>
#include <vtkRegularPolygonSource.h>
#include <vtkRenderer.h>
#include <vtkSphereSource.h>
#include <vtkWeakPointer.h>

#include <functional>
#include <limits>
#include <memory>

namespace {
using Values = QVector<double>;
using Probe = std::function<Values()>; // calls setters, reads the source back

Values values(const double* p) {
    return {p[0], p[1], p[2]};
}
Values values(double v) {
    return {v};
}

// Copies share the source and mapper, each holding a reference of its own;
// painted without any setter, the solid shows the source's default shape.
template <class T> void copiesAndPaint() {
    T solid;
    auto* source = solid.getSource();
    vtkMapper* mapper = solid.getActor()->GetMapper();
    const int sourceRefs = source->GetReferenceCount();
    const int mapperRefs = mapper->GetReferenceCount();
    {
        T copy(solid);
        QVERIFY(copy.getSource() == source);
        QCOMPARE(mapper->GetReferenceCount(), mapperRefs + 1);
        // Assignment drops the target's own objects and shares the original's.
        T target;
        vtkWeakPointer<vtkObject> oldSource = target.getSource();
        vtkWeakPointer<vtkObject> oldMapper = target.getActor()->GetMapper();
        target = solid;
        QVERIFY(oldSource == nullptr && oldMapper == nullptr);
        QCOMPARE(source->GetReferenceCount(), sourceRefs + 2);
    }
    QCOMPARE(source->GetReferenceCount(), sourceRefs);
    QCOMPARE(mapper->GetReferenceCount(), mapperRefs);

    vtkNew<vtkRenderer> renderer;
    solid.setRenderer(renderer);
    solid.paint();
    QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 1);
    source->Update();
    QVERIFY(source->GetOutput()->GetNumberOfCells() > 0);
    double expected[6], shown[6];
    source->GetOutput()->GetBounds(expected);
    solid.getActor()->GetBounds(shown);
    QCOMPARE(Values(shown, shown + 6), Values(expected, expected + 6));
}
} // namespace

Q_DECLARE_METATYPE(Probe)
Q_DECLARE_METATYPE(std::function<void()>)

class TestDrawable : public QObject {
    Q_OBJECT
private slots:
    void newDrawable() {
        DrawableSource d;
        QCOMPARE(d.getInteractivelyPositioned(), 0);
        QCOMPARE(d.getInteractivelyColored(), 0);
        QVERIFY(d.getRenderer() == nullptr);
        QCOMPARE(d.getActor()->GetProperty(), d.getProperty());
        d.paint(); // no renderer yet: nothing to do, and no crash
        vtkNew<vtkRenderer> renderer;
        d.setRenderer(renderer);
        QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 0); // setRenderer adds nothing
        d.paint();
        QVERIFY(renderer->GetActors()->GetLastActor() == d.getActor());
    }

    void edgeVisibility_data() {
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("shown");
        QTest::newRow("0.5 exactly") << 0.5 << 0;
        QTest::newRow("0.51") << 0.51 << 1;
        QTest::newRow("0") << 0.0 << 0;
        QTest::newRow("negative") << -1.0 << 0;
        QTest::newRow("NaN") << std::numeric_limits<double>::quiet_NaN() << 0;
        QTest::newRow("+inf") << std::numeric_limits<double>::infinity() << 1;
    }
    void edgeVisibility() {
        QFETCH(double, value);
        QFETCH(int, shown);
        DrawableSource d;
        d.getProperty()->SetEdgeVisibility(!shown); // a setter that does nothing fails
        d.setEdgeVisibility(value);
        QCOMPARE(d.getProperty()->GetEdgeVisibility(), shown);
    }

    void placement() {
        DrawableSource d;
        d.rotateZ(10);
        d.rotateZ(10);
        const Values turned = values(d.getActor()->GetOrientation());
        QVERIFY2(qAbs(turned[0]) + qAbs(turned[1]) + qAbs(turned[2] - 20) < 1e-9,
                 qPrintable(QString::number(turned[2], 'g', 17)));
        QCOMPARE(d.getRotationZ(), 10.0); // the last relative turn
        d.setScale(2);
        QCOMPARE(values(d.getActor()->GetScale()), (Values{2, 2, 2}));
        QCOMPARE(d.getScaleY(), 2.0);
        d.SetLineWidth(3);
        QCOMPARE(d.getProperty()->GetLineWidth(), 3.0f);
    }

    void copyKeepsOriginalUsable_data() {
        QTest::addColumn<bool>("assign");
        QTest::newRow("copy constructor") << false;
        QTest::newRow("copy assignment") << true;
    }
    void copyKeepsOriginalUsable() {
        QFETCH(bool, assign);
        vtkNew<vtkRenderer> renderer;
        DrawableSource original;
        original.setRenderer(renderer);
        vtkActor* actor = original.getActor();
        vtkProperty* property = original.getProperty();
        const int refs[] = {actor->GetReferenceCount(), property->GetReferenceCount(),
                            renderer->GetReferenceCount()};
        {
            auto copy = std::make_unique<DrawableSource>();
            if (assign)
                *copy = original;
            else
                copy = std::make_unique<DrawableSource>(original);
            QVERIFY(copy->getActor() == actor && copy->getRenderer() == renderer.GetPointer());
            QCOMPARE(actor->GetReferenceCount(), refs[0] + 1);
            // Destroyed through a base pointer, as the link thread's registries hold them.
            std::unique_ptr<SendClass> asBase(copy.release());
        }
        QCOMPARE(actor->GetReferenceCount(), refs[0]);
        QCOMPARE(property->GetReferenceCount(), refs[1]);
        QCOMPARE(renderer->GetReferenceCount(), refs[2]);
        original.setColor(0.25, 0.5, 0.75);
        QCOMPARE(property->GetColor()[2], 0.75);
        original.paint();
        QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 1);
    }

    void settersReachSource_data() {
        QTest::addColumn<Probe>("probe");
        QTest::addColumn<Values>("expected");
        // One row per setter: the call on a fresh solid, then its source's getter.
#define SETTER(T, call, get, ...)                                                                  \
    QTest::newRow(#T "::" #call) << Probe([] {                                                     \
        T solid;                                                                                   \
        solid.call;                                                                                \
        return values(solid.getSource()->get);                                                     \
    }) << Values{__VA_ARGS__}
        SETTER(Sphere, setCenter(1, 2, 3), GetCenter(), 1, 2, 3);
        SETTER(Sphere, setRadius(2.5), GetRadius(), 2.5);
        SETTER(Sphere, setThetaResolution(16), GetThetaResolution(), 16);
        SETTER(Sphere, setPhiResolution(20), GetPhiResolution(), 20);
        SETTER(Sphere, setStartTheta(30), GetStartTheta(), 30);
        SETTER(Sphere, setEndTheta(270), GetEndTheta(), 270);
        SETTER(Sphere, setStartPhi(10), GetStartPhi(), 10);
        SETTER(Sphere, setEndPhi(170), GetEndPhi(), 170);
        SETTER(Cube, setXLength(2), GetXLength(), 2);
        SETTER(Cube, setYLength(3), GetYLength(), 3);
        SETTER(Cube, setZLength(4), GetZLength(), 4);
        SETTER(Cube, setCenter(-1, 0.5, 7), GetCenter(), -1, 0.5, 7);
        SETTER(Cone, setHeight(3), GetHeight(), 3);
        SETTER(Cone, setRadius(0.25), GetRadius(), 0.25);
        SETTER(Cone, setResolution(12), GetResolution(), 12);
        SETTER(Cone, setCapping(0), GetCapping(), 0);
        SETTER(Cylinder, setHeight(4), GetHeight(), 4);
        SETTER(Cylinder, setRadius(0.75), GetRadius(), 0.75);
        SETTER(Cylinder, setResolution(10), GetResolution(), 10);
        SETTER(Cylinder, setCenter(1, 2, 3), GetCenter(), 1, 2, 3);
        SETTER(Cylinder, setCapping(0), GetCapping(), 0);
        SETTER(Arrow, setTipLength(0.5), GetTipLength(), 0.5);
        SETTER(Arrow, setTipRadius(0.2), GetTipRadius(), 0.2);
        SETTER(Arrow, setTipResolution(16), GetTipResolution(), 16);
        SETTER(Arrow, setShaftRadius(0.05), GetShaftRadius(), 0.05);
        SETTER(Arrow, setShaftResolution(9), GetShaftResolution(), 9);
        // Built at construction, before any render.
        SETTER(Arrow, getSource(), GetOutput()->GetNumberOfPoints() > 0, 1);
        SETTER(DiskSource, setInnerRadius(0.5), GetInnerRadius(), 0.5);
        SETTER(DiskSource, setOuterRadius(2), GetOuterRadius(), 2);
        SETTER(DiskSource, setRadialResolution(3), GetRadialResolution(), 3);
        SETTER(DiskSource, setCircumferentialResolution(24), GetCircumferentialResolution(), 24);
        SETTER(Plane, setOriginPoint(1, 2, 3), GetOrigin(), 1, 2, 3);
        SETTER(Plane, setPoint1(4, 2, 3), GetPoint1(), 4, 2, 3);
        SETTER(Plane, setPoint2(1, 6, 3), GetPoint2(), 1, 6, 3);
        SETTER(Plane, setCenter(5, 6, 7), GetCenter(), 5, 6, 7);
        SETTER(Plane, setNormal(1, 0, 0), GetNormal(), 1, 0, 0);
        SETTER(Plane, setResolution(4, 5), GetYResolution(), 5);
        SETTER(RegularPolygon, setCenter(1, 2, 3), GetCenter(), 1, 2, 3);
        SETTER(RegularPolygon, setNumberOfSides(7), GetNumberOfSides(), 7);
        SETTER(RegularPolygon, setRadius(2), GetRadius(), 2);
        SETTER(RegularPolygon, setNormal(0, 1, 0), GetNormal(), 0, 1, 0);
        SETTER(RegularPolygon, setGeneratePolygon(0), GetGeneratePolygon(), 0);
        SETTER(RegularPolygon, setGeneratePolyline(0), GetGeneratePolyline(), 0);
#undef SETTER
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

    void solidCopiesAndPaint_data() {
        QTest::addColumn<std::function<void()>>("check");
        QTest::newRow("Sphere") << std::function<void()>(copiesAndPaint<Sphere>);
        QTest::newRow("Cube") << std::function<void()>(copiesAndPaint<Cube>);
        QTest::newRow("Cone") << std::function<void()>(copiesAndPaint<Cone>);
        QTest::newRow("Cylinder") << std::function<void()>(copiesAndPaint<Cylinder>);
        QTest::newRow("Arrow") << std::function<void()>(copiesAndPaint<Arrow>);
        QTest::newRow("DiskSource") << std::function<void()>(copiesAndPaint<DiskSource>);
        QTest::newRow("Plane") << std::function<void()>(copiesAndPaint<Plane>);
        QTest::newRow("RegularPolygon") << std::function<void()>(copiesAndPaint<RegularPolygon>);
    }
    void solidCopiesAndPaint() {
        QFETCH(std::function<void()>, check);
        check();
    }

    void planeCornerIsNotActorOrigin() {
        Plane p;
        p.setOriginPoint(1, 2, 3);
        p.getSource()->Update();
        QCOMPARE(values(p.getSource()->GetOutput()->GetPoint(0)), (Values{1, 2, 3}));
        QCOMPARE(values(p.getActor()->GetOrigin()), (Values{0, 0, 0}));
        p.setOrigin(4, 5, 6);
        QCOMPARE(values(p.getActor()->GetOrigin()), (Values{4, 5, 6}));
        QCOMPARE(values(p.getSource()->GetOrigin()), (Values{1, 2, 3}));
    }

    void cubeLengthTimesScale() {
        Cube c;
        c.setXLength(2);
        c.setScale(3);
        const double* b = c.getActor()->GetBounds();
        QCOMPARE(b[1] - b[0], 6.0);
        QCOMPARE(b[3] - b[2], 3.0);
    }
};

QTEST_GUILESS_MAIN(TestDrawable)
#include "tst_drawable.moc"
