// VectorText: the number format (also under a locale with a decimal comma)
// and how the leading and trailing texts join the number.
#include <Orlavex/scene/VectorText.h>

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <vtkVectorText.h>

#include <clocale>
#include <cstdio>
#include <random>

namespace {
QString shown(VectorText& t) {
    return QString::fromUtf8(t.getSource()->GetText());
}
} // namespace

class TestVectorText : public QObject {
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
        const struct {
            const char* name;
            double value;
            const char* expected;
        } cases[] = {
            {"pi", 3.14159, "3.14"},        {"one decimal", 2.5, "2.50"},
            {"million", 1e6, "1000000.00"}, {"small negative", -0.004, "-0.00"},
            {"rounds up", 0.005, "0.01"},   // the double is slightly above 0.005
            {"rounds down", 2.675, "2.67"}, // the double is slightly below 2.675
            {"exact tie", 0.125, "0.12"},   {"huge", 1e20, "100000000000000000000.00"},
        };
        for (const auto& c : cases) {
            QTest::newRow(c.name) << c.value << QString(c.expected) << false;
            QTest::addRow("%s (de_DE)", c.name) << c.value << QString(c.expected) << true;
        }
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

    void numberAgreesWithPrintf() {
        std::mt19937_64 rng(7);
        std::uniform_real_distribution<double> mantissa(-10, 10);
        std::uniform_int_distribution<int> exponent(-6, 12);
        char buffer[400];
        for (int i = 0; i < 20000; ++i) {
            const double v = mantissa(rng) * std::pow(10.0, exponent(rng));
            std::snprintf(buffer, sizeof buffer, "%.2f", v);
            QCOMPARE(QByteArray::fromStdString(VectorText::formatNumber(v)), QByteArray(buffer));
        }
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
};

QTEST_GUILESS_MAIN(TestVectorText)
#include "tst_vectortext.moc"
