// The read-out's text and the life of its label.
#include <Orlavex/controls/DisplayDouble.h>
#include <Orlavex/controls/Panel.h>

#include "GuiTestMain.h"

#include <QLabel>
#include <QPointer>

class TestDisplayDouble : public QObject {
    Q_OBJECT

private slots:
    void text_data() {
        QTest::addColumn<QByteArray>("format"); // empty: keep the default
        QTest::addColumn<int>("precision");
        QTest::addColumn<QByteArray>("prefix");
        QTest::addColumn<QByteArray>("suffix");
        QTest::addColumn<double>("value");
        QTest::addColumn<QString>("expected");
        QTest::newRow("default, whole")
            << QByteArray() << 0 << QByteArray() << QByteArray() << 2.0 << "2.00";
        QTest::newRow("default, negative")
            << QByteArray() << 0 << QByteArray() << QByteArray() << -0.5 << "-0.50";
        QTest::newRow("default, rounded")
            << QByteArray() << 0 << QByteArray() << QByteArray() << 3.14159 << "3.14";
        QTest::newRow("e 3") << QByteArray("e") << 3 << QByteArray() << QByteArray() << 1234.56
                             << "1.235e+03";
        QTest::newRow("g 4") << QByteArray("g") << 4 << QByteArray() << QByteArray() << 0.00001234
                             << "1.234e-05";
        QTest::newRow("prefix and suffix run together")
            << QByteArray() << 0 << QByteArray("t=") << QByteArray(" s") << 1.5 << "t=1.50 s";
        QTest::newRow("UTF-8 suffix") << QByteArray("f") << 1 << QByteArray()
                                      << QByteArray("\xc2\xb0"
                                                    "C")
                                      << 21.24 << QString::fromUtf8("21.2°C");
        // A precision in the millions would build a string of that length.
        QTest::newRow("huge precision") << QByteArray("f") << 1000000000 << QByteArray()
                                        << QByteArray() << 1.0 << "1." + QString(99, '0');
    }
    void text() {
        QFETCH(QByteArray, format);
        QFETCH(int, precision);
        QFETCH(QByteArray, prefix);
        QFETCH(QByteArray, suffix);
        QFETCH(double, value);
        QFETCH(QString, expected);
        DisplayDouble readout;
        if (!format.isEmpty())
            readout.setFormat(format.at(0), precision);
        if (!prefix.isEmpty())
            readout.setPrefix(prefix.constData());
        if (!suffix.isEmpty())
            readout.setSufix(suffix.constData());
        QVERIFY(readout.getLabel()->text().isEmpty());
        readout.setValue(value);
        QCOMPARE(readout.getLabel()->text(), expected);
    }

    void settersWaitForNextValue() {
        DisplayDouble readout;
        readout.setValue(1.0);
        readout.setPrefix("x = ");
        readout.setSufix(" m");
        readout.setFormat('e', 1);
        QCOMPARE(readout.getLabel()->text(), QStringLiteral("1.00"));
        readout.setValue(1.0);
        QCOMPARE(readout.getLabel()->text(), QStringLiteral("x = 1.0e+00 m"));
        readout.setPrefix(nullptr);
        readout.setSufix(nullptr);
        readout.setValue(2.0);
        QCOMPARE(readout.getLabel()->text(), QStringLiteral("2.0e+00"));
    }

    void copiesShareLabelAndAffixes() {
        DisplayDouble original;
        original.setPrefix("a");
        DisplayDouble copy(original);
        QCOMPARE(copy.getLabel(), original.getLabel());
        copy.setSufix("b");
        copy.setFormat('f', 0);
        original.setValue(3.0); // the copy's suffix, the original's own format
        QCOMPARE(original.getLabel()->text(), QStringLiteral("a3.00b"));
        copy.setValue(3.0);
        QCOMPARE(original.getLabel()->text(), QStringLiteral("a3b"));

        DisplayDouble other;
        QPointer<QLabel> otherLabel = other.getLabel();
        other = original; // the old label has no other holder and no parent
        QVERIFY(otherLabel.isNull());
        QCOMPARE(other.getLabel(), original.getLabel());
    }

    void unplacedLabelGoesWithLastCopy() {
        QPointer<QLabel> label;
        {
            DisplayDouble readout;
            label = readout.getLabel();
            { DisplayDouble copy(readout); }
            QVERIFY(!label.isNull());
        }
        QVERIFY(label.isNull());
    }

    void placedLabelStaysWithItsTree() {
        Panel panel;
        QPointer<QLabel> label;
        {
            DisplayDouble readout;
            label = readout.getLabel();
            panel.addWidget(label);
            readout.setValue(4.0);
        }
        QVERIFY(!label.isNull());
        QCOMPARE(label->text(), QStringLiteral("4.00"));
        QCOMPARE(label->parentWidget(), &panel);
    }

    void labelDeletedElsewhere() {
        DisplayDouble readout;
        delete readout.getLabel();
        QVERIFY(!readout.getLabel());
        readout.setValue(1.0); // nothing to show it in, and no crash
    }
};

ORLAVEX_GUI_TEST_MAIN(TestDisplayDouble)
#include "tst_displaydouble.moc"
