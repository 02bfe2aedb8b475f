// The shared behaviour of every scene object: the link flags, the renderer
// reference, the placement and appearance setters, and copies that share the
// VTK objects without stealing them from each other.
#include <Orlavex/scene/DrawableSource.h>

#include <QtTest>

#include <vtkActor.h>
#include <vtkNew.h>
#include <vtkProperty.h>
#include <vtkRenderer.h>

#include <limits>
#include <memory>

class TestDrawable : public QObject {
    Q_OBJECT
private slots:
    void newDrawable();
    void edgeVisibility_data();
    void edgeVisibility();
    void relativeRotation_data();
    void relativeRotation();
    void scaleAndLineWidth();
    void copyKeepsOriginalUsable_data();
    void copyKeepsOriginalUsable();
    void rendererReferenceFollowsSetRenderer();
};

void TestDrawable::newDrawable() {
    DrawableSource d;
    QCOMPARE(d.getInteractivelyPositioned(), 0);
    QCOMPARE(d.getInteractivelyColored(), 0);
    QVERIFY(d.getRenderer() == nullptr);
    QVERIFY(d.getActor() != nullptr);
    QCOMPARE(d.getActor()->GetProperty(), d.getProperty());
    QVERIFY(d.getActor()->GetMapper() == nullptr);

    // Read through a DrawableI pointer, as the link thread does.
    d.setInteractivelyPositioned(1);
    d.setInteractivelyColored(1);
    const DrawableI& base = d;
    QCOMPARE(base.getInteractivelyPositioned(), 1);
    QCOMPARE(base.getInteractivelyColored(), 1);

    d.paint(); // no renderer yet: nothing to do, and no crash
    vtkNew<vtkRenderer> renderer;
    d.setRenderer(renderer);
    QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 0); // setRenderer adds nothing
    d.paint();
    QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 1);
    QVERIFY(renderer->GetActors()->GetLastActor() == d.getActor());
}

void TestDrawable::edgeVisibility_data() {
    QTest::addColumn<double>("value");
    QTest::addColumn<int>("shown");
    QTest::newRow("0.5 exactly") << 0.5 << 0;
    QTest::newRow("just above 0.5") << 0.51 << 1;
    QTest::newRow("1") << 1.0 << 1;
    QTest::newRow("large") << 1e9 << 1;
    QTest::newRow("0") << 0.0 << 0;
    QTest::newRow("negative") << -1.0 << 0;
    QTest::newRow("NaN") << std::numeric_limits<double>::quiet_NaN() << 0;
    QTest::newRow("+inf") << std::numeric_limits<double>::infinity() << 1;
    QTest::newRow("-inf") << -std::numeric_limits<double>::infinity() << 0;
}

void TestDrawable::edgeVisibility() {
    QFETCH(double, value);
    QFETCH(int, shown);
    DrawableSource d;
    // Start from the opposite state so that a setter that does nothing fails.
    d.getProperty()->SetEdgeVisibility(!shown);
    d.setEdgeVisibility(value);
    QCOMPARE(d.getProperty()->GetEdgeVisibility(), shown);
}

void TestDrawable::relativeRotation_data() {
    QTest::addColumn<int>("axis");
    QTest::newRow("x") << 0;
    QTest::newRow("y") << 1;
    QTest::newRow("z") << 2;
}

void TestDrawable::relativeRotation() {
    QFETCH(int, axis);
    DrawableSource d;
    for (int turn = 0; turn < 2; ++turn) {
        if (axis == 0)
            d.rotateX(10);
        else if (axis == 1)
            d.rotateY(10);
        else
            d.rotateZ(10);
    }
    double orientation[3];
    d.getActor()->GetOrientation(orientation);
    for (int c = 0; c < 3; ++c)
        QVERIFY2(qAbs(orientation[c] - (c == axis ? 20.0 : 0.0)) < 1e-9,
                 qPrintable(QString("component %1 is %2").arg(c).arg(orientation[c])));
    const double recorded[3] = {d.getRotationX(), d.getRotationY(), d.getRotationZ()};
    for (int c = 0; c < 3; ++c)
        QCOMPARE(recorded[c], c == axis ? 10.0 : 0.0);
}

void TestDrawable::scaleAndLineWidth() {
    DrawableSource d;
    const auto actorScale = [&] {
        const double* s = d.getActor()->GetScale();
        return QVector<double>{s[0], s[1], s[2]};
    };
    const auto fields = [&] {
        return QVector<double>{d.getScaleX(), d.getScaleY(), d.getScaleZ()};
    };
    QCOMPARE(fields(), (QVector<double>{1, 1, 1}));
    d.setScale(2);
    QCOMPARE(actorScale(), (QVector<double>{2, 2, 2}));
    QCOMPARE(fields(), (QVector<double>{2, 2, 2}));
    d.setScale(2, 3, -0.5);
    QCOMPARE(actorScale(), (QVector<double>{2, 3, -0.5}));
    QCOMPARE(fields(), (QVector<double>{2, 3, -0.5}));

    const vtkMTimeType before = d.getProperty()->GetMTime();
    d.SetLineWidth(3);
    QCOMPARE(d.getProperty()->GetLineWidth(), 3.0f);
    QVERIFY(d.getProperty()->GetMTime() > before);
}

void TestDrawable::copyKeepsOriginalUsable_data() {
    QTest::addColumn<bool>("assign");
    QTest::newRow("copy constructor") << false;
    QTest::newRow("copy assignment") << true;
}

void TestDrawable::copyKeepsOriginalUsable() {
    QFETCH(bool, assign);
    vtkNew<vtkRenderer> renderer;
    DrawableSource original;
    original.setRenderer(renderer);
    original.rotateZ(15);
    original.setInteractivelyColored(1);
    vtkActor* actor = original.getActor();
    vtkProperty* property = original.getProperty();
    const int actorRefs = actor->GetReferenceCount();
    const int propertyRefs = property->GetReferenceCount();
    const int rendererRefs = renderer->GetReferenceCount();

    {
        std::unique_ptr<DrawableSource> copy;
        if (assign) {
            copy = std::make_unique<DrawableSource>();
            *copy = original;
        } else {
            copy = std::make_unique<DrawableSource>(original);
        }
        QVERIFY(copy->getActor() == actor);
        QVERIFY(copy->getProperty() == property);
        QVERIFY(copy->getRenderer() == renderer.GetPointer());
        QCOMPARE(copy->getRotationZ(), 15.0);
        QCOMPARE(copy->getInteractivelyColored(), 1);
        QCOMPARE(actor->GetReferenceCount(), actorRefs + 1);
        QCOMPARE(property->GetReferenceCount(), propertyRefs + 1);
        QCOMPARE(renderer->GetReferenceCount(), rendererRefs + 1);
        // Destroyed through a base pointer, as the link thread's registries hold them.
        std::unique_ptr<SendClass> asBase(copy.release());
    }

    QCOMPARE(actor->GetReferenceCount(), actorRefs);
    QCOMPARE(property->GetReferenceCount(), propertyRefs);
    QCOMPARE(renderer->GetReferenceCount(), rendererRefs);
    original.setColor(0.25, 0.5, 0.75);
    QCOMPARE(property->GetColor()[2], 0.75);
    original.paint();
    QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 1);
}

void TestDrawable::rendererReferenceFollowsSetRenderer() {
    vtkNew<vtkRenderer> first;
    vtkNew<vtkRenderer> second;
    const int firstRefs = first->GetReferenceCount();
    const int secondRefs = second->GetReferenceCount();
    {
        DrawableSource d;
        d.setRenderer(first);
        d.setRenderer(first); // the same renderer again takes no extra reference
        d.setRenderer(second);
        QCOMPARE(first->GetReferenceCount(), firstRefs);
        QCOMPARE(second->GetReferenceCount(), secondRefs + 1);
    }
    QCOMPARE(second->GetReferenceCount(), secondRefs);
}

QTEST_GUILESS_MAIN(TestDrawable)
#include "tst_drawable.moc"
