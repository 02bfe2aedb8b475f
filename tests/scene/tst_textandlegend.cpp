// VectorText: the number format (also under a locale with a decimal comma)
// and how the leading and trailing texts join the number. ScalarBar: its
// colour table, layout and label format (painting is in tst_screenshots).
#include <Orlavex/Orlavex.h>

#include "ColourTableProbe.h"
#include "Fixtures.h"
#include "VtkHeaders.h"

#include <QProcess>

#include <cfloat>
#include <clocale>
#include <cstdio>

namespace {
QString shown(VectorText& t) {
    return QString::fromUtf8(t.getSource()->GetText());
}

// Switches the numeric locale to German, building the locale when the system
// has none installed. False when neither works.
bool useCommaLocale() {
    if (!std::setlocale(LC_NUMERIC, "de_DE.UTF-8")) {
        const QString target = fixture::tempPath(QStringLiteral("de_DE.utf8"));
        QProcess::execute(QStringLiteral("localedef"), {"-i", "de_DE", "-f", "UTF-8", target});
        qputenv("LOCPATH", QFile::encodeName(QFileInfo(target).path()));
        if (!std::setlocale(LC_NUMERIC, "de_DE.UTF-8"))
            return false;
    }
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%.2f", 2.5);
    return QByteArray(buffer) == "2,50";
}
} // namespace

class TestTextAndLegend : public QObject {
    Q_OBJECT

private slots:
    void cleanup() { std::setlocale(LC_NUMERIC, "C"); }

    void number_data() {
        QTest::addColumn<double>("value");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<bool>("commaLocale");
        const auto row = [](const char* name, double value, const QString& expected) {
            QTest::newRow(name) << value << expected << false;
            QTest::addRow("%s (de_DE)", name) << value << expected << true;
        };
        row("pi", 3.14159, "3.14");
        row("one decimal", 2.5, "2.50");
        row("million", 1e6, "1000000.00");
        row("small negative", -0.004, "-0.00");
        row("rounds up", 0.005, "0.01");   // the double is slightly above 0.005
        row("rounds down", 2.675, "2.67"); // the double is slightly below 2.675
        row("exact tie", 0.125, "0.12");
        char largest[400]; // 309 digits before the point
        std::snprintf(largest, sizeof largest, "%.2f", DBL_MAX);
        row("largest double", DBL_MAX, largest);
    }
    void number() {
        QFETCH(double, value);
        QFETCH(QString, expected);
        QFETCH(bool, commaLocale);
        if (commaLocale && !useCommaLocale())
            QSKIP("no locale with a decimal comma can be used here");
        VectorText text;
        text.setText(value);
        QCOMPARE(shown(text), expected);
    }

    void leadingAndTrailingTexts() {
        VectorText text;
        text.setInitText("T = ");
        text.setFinalText(" K");
        QCOMPARE(shown(text), QString()); // shows only at the next number
        text.setText(2.5);
        QCOMPARE(shown(text), QString("T = 2.50 K"));
        text.setFinalText(" K"); // appended
        text.setInitText("v=");  // replaced
        text.setText(-1.0);
        QCOMPARE(shown(text), QString("v=-1.00 K K"));
        text.setText("plain");
        QCOMPARE(shown(text), QString("plain"));
        text.setText(static_cast<const char*>(nullptr));
        QCOMPARE(shown(text), QString());
    }

    // How the scale and ramp numbers map to VTK's, for every colour table.
    void legendLut_data() {
        using V = QVector<int>;
        QTest::addColumn<V>("given"); // scale, ramp
        QTest::addColumn<V>("vtk");
        QTest::addColumn<float>("rangeMin"); // a logarithmic table starts above 0
        const int lin = VTK_SCALE_LINEAR, log = VTK_SCALE_LOG10, ramp = VTK_RAMP_LINEAR;
        QTest::newRow("linear") << V{1, 1} << V{lin, ramp} << 0.0f;
        QTest::newRow("scale 0 log") << V{0, 1} << V{log, ramp} << 1.0f;
        QTest::newRow("scale 2 log") << V{2, 1} << V{log, ramp} << 1.0f;
        QTest::newRow("ramp 0 S-curve") << V{1, 0} << V{lin, VTK_RAMP_SCURVE} << 0.0f;
        QTest::newRow("ramp 2 S-curve") << V{1, 2} << V{lin, VTK_RAMP_SCURVE} << 0.0f;
    }
    void legendLut() {
        QFETCH(QVector<int>, given);
        QFETCH(QVector<int>, vtk);
        QFETCH(float, rangeMin);
        ScalarBar bar;
        bar.setLut(0.667f, 0.0f, rangeMin, 40, given[0], given[1]);
        vtkLookupTable* lut = bar.getLut();
        QCOMPARE(QVector<int>({lut->GetScale(), lut->GetRamp()}), vtk);
        QVERIFY(probe::colourNear(lut, rangeMin, 0, 0, 1));
        QVERIFY(probe::colourNear(lut, 40, 1, 0, 0));
        for (vtkIdType i : {vtkIdType(0), lut->GetNumberOfTableValues() - 1})
            QVERIFY(qAbs(lut->GetTableValue(i)[3] - 0.5) < 1.5 / 255); // the table holds bytes
    }

    // The format goes to printf: only one floating-point conversion may pass.
    // Each call also lays the bar out (1: horizontal, others vertical) with
    // black text.
    void legendLayoutAndFormat_data() {
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
    void legendLayoutAndFormat() {
        QFETCH(QByteArray, format);
        QFETCH(bool, accepted);
        ScalarBar bar;
        vtkScalarBarActor* actor = bar.getScalarBar();
        bar.setScalarBar("t", 0, 0, 1, 1, 3, 16, "%.2f", 1);
        QCOMPARE(actor->GetOrientation(), VTK_ORIENT_HORIZONTAL);
        for (vtkTextProperty* text : {actor->GetTitleTextProperty(), actor->GetLabelTextProperty()})
            QCOMPARE(QVector<double>(text->GetColor(), text->GetColor() + 3),
                     QVector<double>(3, 0));
        if (!accepted)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("label format"));
        bar.setScalarBar(nullptr, 0, 0, 1, 1, 3, 16, format.isNull() ? nullptr : format.data(), 2);
        QCOMPARE(actor->GetOrientation(), VTK_ORIENT_VERTICAL);
        QCOMPARE(QByteArray(actor->GetLabelFormat()), accepted ? format : QByteArray("%.2f"));
    }
};

QTEST_GUILESS_MAIN(TestTextAndLegend)
#include "tst_textandlegend.moc"
