// VectorText: the number format (also under a locale with a decimal comma)
// and how the leading and trailing texts join the number. ScalarBar: its
// colour table, layout and label format (painting is in tst_screenshots).
#include <Orlavex/Orlavex.h>

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "ColourTableProbe.h"

#include <vtkLookupTable.h>
#include <vtkScalarBarActor.h>
#include <vtkTextProperty.h>
#include <vtkVectorText.h>

#include <cfloat>
#include <clocale>
#include <cstdio>

using probe::colourNear;

namespace {
QString shown(VectorText& t) {
    return QString::fromUtf8(t.getSource()->GetText());
}
} // namespace

class TestTextAndLegend : public QObject {
    Q_OBJECT
    QTemporaryDir m_locales;

    // Switches the numeric locale to German, building the locale when the
    // system has none installed. False when neither works.
    bool useCommaLocale() {
        if (!std::setlocale(LC_NUMERIC, "de_DE.UTF-8")) {
            const QString target = m_locales.filePath(QStringLiteral("de_DE.utf8"));
            QProcess::execute(QStringLiteral("localedef"), {"-i", "de_DE", "-f", "UTF-8", target});
            qputenv("LOCPATH", QFile::encodeName(m_locales.path()));
            if (!std::setlocale(LC_NUMERIC, "de_DE.UTF-8"))
                return false;
        }
        char buffer[16];
        std::snprintf(buffer, sizeof buffer, "%.2f", 2.5);
        return QByteArray(buffer) == "2,50";
    }

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

    void legendLut_data() {
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
    void legendLut() {
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

    void legendLayout_data() {
        QTest::addColumn<int>("orientation");
        QTest::addColumn<int>("vtkOrientation");
        QTest::newRow("1 horizontal") << 1 << VTK_ORIENT_HORIZONTAL;
        QTest::newRow("0 vertical") << 0 << VTK_ORIENT_VERTICAL;
        QTest::newRow("2 vertical") << 2 << VTK_ORIENT_VERTICAL;
    }
    void legendLayout() {
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
    void legendLabelFormats_data() {
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
    void legendLabelFormats() {
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
};

QTEST_GUILESS_MAIN(TestTextAndLegend)
#include "tst_textandlegend.moc"
