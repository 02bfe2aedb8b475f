// ScalarBar: its colour table, the legend's layout and its painting.
#include <Orlavex/scene/ScalarBar.h>

#include <QtTest>

#include <vtkActor2DCollection.h>
#include <vtkLookupTable.h>
#include <vtkRenderer.h>
#include <vtkScalarBarActor.h>
#include <vtkSmartPointer.h>
#include <vtkTextProperty.h>

namespace {
bool colourNear(vtkLookupTable* lut, double value, double r, double g, double b) {
    double c[3];
    lut->GetColor(value, c);
    return qAbs(c[0] - r) < 0.02 && qAbs(c[1] - g) < 0.02 && qAbs(c[2] - b) < 0.02;
}
} // namespace

class TestScalarBar : public QObject {
    Q_OBJECT

private slots:
    void lut_data() {
        QTest::addColumn<int>("scale");
        QTest::addColumn<int>("ramp");
        QTest::addColumn<int>("vtkScale");
        QTest::addColumn<int>("vtkRamp");
        QTest::addColumn<float>("rangeMin"); // a logarithmic table starts above 0
        QTest::newRow("linear") << 1 << 1 << VTK_SCALE_LINEAR << VTK_RAMP_LINEAR << 0.0f;
        QTest::newRow("scale 0 log") << 0 << 1 << VTK_SCALE_LOG10 << VTK_RAMP_LINEAR << 1.0f;
        QTest::newRow("scale 2 log") << 2 << 1 << VTK_SCALE_LOG10 << VTK_RAMP_LINEAR << 1.0f;
        QTest::newRow("ramp 0 S-curve") << 1 << 0 << VTK_SCALE_LINEAR << VTK_RAMP_SCURVE << 0.0f;
        QTest::newRow("ramp 2 S-curve") << 1 << 2 << VTK_SCALE_LINEAR << VTK_RAMP_SCURVE << 0.0f;
    }
    void lut() {
        QFETCH(int, scale);
        QFETCH(int, ramp);
        QFETCH(int, vtkScale);
        QFETCH(int, vtkRamp);
        QFETCH(float, rangeMin);
        ScalarBar bar;
        bar.setLut(0.667f, 0.0f, rangeMin, 40, scale, ramp);
        vtkLookupTable* lut = bar.getLut();
        QCOMPARE(lut->GetScale(), vtkScale);
        QCOMPARE(lut->GetRamp(), vtkRamp);
        QVERIFY(colourNear(lut, rangeMin, 0, 0, 1));
        QVERIFY(colourNear(lut, 40, 1, 0, 0));
        for (vtkIdType i : {vtkIdType(0), lut->GetNumberOfTableValues() - 1})
            QVERIFY(qAbs(lut->GetTableValue(i)[3] - 0.5) < 1.5 / 255); // the table holds bytes
    }

    void layout_data() {
        QTest::addColumn<int>("orientation");
        QTest::addColumn<int>("vtkOrientation");
        QTest::newRow("1 horizontal") << 1 << VTK_ORIENT_HORIZONTAL;
        QTest::newRow("0 vertical") << 0 << VTK_ORIENT_VERTICAL;
        QTest::newRow("2 vertical") << 2 << VTK_ORIENT_VERTICAL;
    }
    void layout() {
        QFETCH(int, orientation);
        QFETCH(int, vtkOrientation);
        ScalarBar bar;
        bar.setScalarBar("Temperature", 0.1f, 0.2f, 0.3f, 0.4f, 5, 64, "%.1f", orientation);
        vtkScalarBarActor* actor = bar.getScalarBar();
        QCOMPARE(actor->GetOrientation(), vtkOrientation);
        for (vtkTextProperty* text : {actor->GetTitleTextProperty(), actor->GetLabelTextProperty()})
            QCOMPARE(QVector<double>(text->GetColor(), text->GetColor() + 3),
                     (QVector<double>{0, 0, 0}));
    }

    // The format goes to printf: only one floating-point conversion may pass.
    void labelFormats_data() {
        QTest::addColumn<QByteArray>("format"); // null: a null pointer
        QTest::addColumn<bool>("accepted");
        QTest::newRow("%g") << QByteArray("%g") << true;
        QTest::newRow("flags, width, precision") << QByteArray("%-#6.3e units") << true;
        QTest::newRow("percent signs") << QByteArray("%5.1f %%") << true;
        QTest::newRow("string") << QByteArray("%s") << false;
        QTest::newRow("integer") << QByteArray("%d") << false;
        QTest::newRow("two numbers") << QByteArray("%f-%f") << false;
        QTest::newRow("star width") << QByteArray("%*f") << false;
        QTest::newRow("trailing percent") << QByteArray("%f%") << false;
        QTest::newRow("null") << QByteArray() << false;
    }
    void labelFormats() {
        QFETCH(QByteArray, format);
        QFETCH(bool, accepted);
        ScalarBar bar;
        bar.setScalarBar("t", 0, 0, 1, 1, 3, 16, "%.2f", 0);
        if (!accepted)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("label format"));
        bar.setScalarBar(nullptr, 0, 0, 1, 1, 3, 16, format.isNull() ? nullptr : format.data(), 0);
        QCOMPARE(QByteArray(bar.getScalarBar()->GetLabelFormat()),
                 accepted ? format : QByteArray("%.2f"));
    }

    void paintHandsOverTheTable() {
        ScalarBar bar;
        bar.paint(); // no renderer: nothing to add to
        auto renderer = vtkSmartPointer<vtkRenderer>::New();
        bar.setRenderer(renderer);
        bar.setLut(0.667f, 0, 0, 40, 1, 1);
        bar.paint();
        QCOMPARE(bar.getScalarBar()->GetLookupTable(), bar.getLut());
        QCOMPARE(renderer->GetActors2D()->GetNumberOfItems(), 1);
    }
};

QTEST_GUILESS_MAIN(TestScalarBar)
#include "tst_scalarbar.moc"
