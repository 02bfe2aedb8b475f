// The read-out's text and the life of its label.
#include <Orlavex/Orlavex.h>

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
        const QByteArray none;
        QTest::newRow("default, whole") << none << 0 << none << none << 2.0 << "2.00";
        QTest::newRow("default, negative") << none << 0 << none << none << -0.5 << "-0.50";
        QTest::newRow("e 3") << QByteArray("e") << 3 << none << none << 1234.56 << "1.235e+03";
        QTest::newRow("prefix and suffix run together")
            << none << 0 << QByteArray("t=") << QByteArray(" s") << 1.5 << "t=1.50 s";
        QTest::newRow("UTF-8 suffix") << QByteArray("f") << 1 << none
                                      << QByteArray("\xc2\xb0"
                                                    "C")
                                      << 21.24 << QString::fromUtf8("21.2°C");
        // A precision in the millions would build a string of that length.
        QTest::newRow("huge precision")
            << QByteArray("f") << 1000000000 << none << none << 1.0 << "1." + QString(99, '0');
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
        QCOMPARE(readout.getLabel()->text(), QStringLiteral("1.00"));
        readout.setValue(1.0);
        QCOMPARE(readout.getLabel()->text(), QStringLiteral("x = 1.00"));
        readout.setPrefix(nullptr);
        readout.setValue(2.0);
        QCOMPARE(readout.getLabel()->text(), QStringLiteral("2.00"));
    }

    // Copies share the label; the last copy deletes it unless a widget tree holds it.
    void labelLife() {
        QPointer<QLabel> label, placed;
        Panel panel;
        {
            DisplayDouble readout, other;
            label = readout.getLabel();
            QPointer<QLabel> otherLabel = other.getLabel();
            other = readout; // the old label has no other holder and no parent
            QVERIFY(otherLabel.isNull());
            QCOMPARE(other.getLabel(), label.data());
            DisplayDouble inPanel;
            placed = inPanel.getLabel();
            panel.addWidget(placed);
        }
        QVERIFY(label.isNull());
        QVERIFY(!placed.isNull());

        DisplayDouble readout;
        delete readout.getLabel();
        QVERIFY(!readout.getLabel());
        readout.setValue(1.0); // nothing to show it in, and no crash
    }
};

ORLAVEX_GUI_TEST_MAIN(TestDisplayDouble)
#include "tst_displaydouble.moc"
