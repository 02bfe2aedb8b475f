// The input widgets with real key presses and clicks: what each one sends,
// when, and how the number field marks unsent and sent values. The read-out:
// its text and the life of its label.
#include <Orlavex/Orlavex.h>

#include "Fixtures.h"
#include "GuiTestMain.h"

#include <QLabel>
#include <QLineEdit>
#include <QSlider>

namespace {
// The base colour must be the same in every colour group, or a field that
// loses focus would change colour.
QColor shadeOf(NumberField& field) {
    const QPalette p = field.findChild<QLineEdit*>()->palette();
    const QColor base = p.color(QPalette::Active, QPalette::Base);
    const bool same = p.color(QPalette::Inactive, QPalette::Base) == base &&
                      p.color(QPalette::Disabled, QPalette::Base) == base;
    return same ? base : QColor(Qt::transparent);
}

using Sent = QList<QPair<double, int>>;

// The arguments of every emission, as (value, index); the index is 0 for
// signals that carry none.
Sent collect(QSignalSpy& spy) {
    Sent out;
    for (const QList<QVariant>& args : spy)
        out << qMakePair(args.at(0).toDouble(), args.value(1).toInt());
    return out;
}

// Names arrive as UTF-8 and are read through a pointer taken beforehand.
const char* const kUtf8Name = "Gr\xc3\xb6\xc3\x9f"
                              "e";
} // namespace

class TestInteractiveControls : public QObject {
    Q_OBJECT
private slots:
    void confirmKeysSendOnce_data() {
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<int>("index"); // -1: never set
        QTest::newRow("Return, index 3") << int(Qt::Key_Return) << int(Qt::NoModifier) << 3;
        QTest::newRow("Enter, index 0") << int(Qt::Key_Enter) << int(Qt::KeypadModifier) << 0;
        QTest::newRow("Return, index never set")
            << int(Qt::Key_Return) << int(Qt::NoModifier) << -1;
    }
    void confirmKeysSendOnce() {
        QFETCH(int, key);
        QFETCH(int, modifiers);
        QFETCH(int, index);
        NumberField field;
        if (index != -1)
            field.setIndex(index);
        QSignalSpy sent(&field, &NumberField::sigValueChanged);
        QSignalSpy finished(&field, &QAbstractSpinBox::editingFinished);
        field.findChild<QLineEdit*>()->selectAll();
        QTest::keyClicks(&field, "0.75");
        QCOMPARE(field.value(), 0.75); // the keys reached the spin box
        QCOMPARE(shadeOf(field), QColor(Qt::yellow));
        QCOMPARE(sent.count(), 0);

        QTest::keyClick(&field, Qt::Key(key), Qt::KeyboardModifiers(modifiers));
        QCOMPARE(collect(sent), (Sent{{0.75, index}}));
        QCOMPARE(shadeOf(field), QColor(Qt::white));
        // The spin box's own Return handling would have finished the edit.
        QCOMPARE(finished.count(), 0);
    }

    void arrowsAndWheelSendNothing() {
        NumberField field;
        field.setIndex(5);
        field.setRange(0.0, 10.0);
        QSignalSpy sent(&field, &NumberField::sigValueChanged);
        QTest::keyClick(&field, Qt::Key_Up);
        QCOMPARE(field.value(), 1.0);
        QWheelEvent wheel(QPointF(5, 5), field.mapToGlobal(QPoint(5, 5)), QPoint(), QPoint(0, 120),
                          Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(&field, &wheel);
        QCOMPARE(field.value(), 2.0);
        QCOMPARE(sent.count(), 0);
    }

    // The stored range waits for the first value change after an index above 0
    // was given, and is applied once only.
    void storedRange_data() {
        QTest::addColumn<int>("index");
        QTest::addColumn<bool>("callSetRange");      // setRange(-5, 5)
        QTest::addColumn<QVector<double>>("values"); // first value, then maximum and value
        QTest::newRow("index 3, inside") << 3 << false << QVector<double>{0.5, 1.0, 0.5};
        QTest::newRow("index 3, clamped") << 3 << false << QVector<double>{5.0, 1.0, 1.0};
        QTest::newRow("index 3, setRange") << 3 << true << QVector<double>{7.0, 5.0, 5.0};
        QTest::newRow("index -1") << -1 << false << QVector<double>{5.0, 99.99, 5.0};
        QTest::newRow("index 0") << 0 << false << QVector<double>{5.0, 99.99, 5.0};
        QTest::newRow("index 0, setRange") << 0 << true << QVector<double>{7.0, 5.0, 5.0};
    }
    void storedRange() {
        QFETCH(int, index);
        QFETCH(bool, callSetRange);
        QFETCH(QVector<double>, values);
        NumberField field;
        field.setIndex(index);
        if (callSetRange)
            field.setRange(-5.0, 5.0);
        QSignalSpy sent(&field, &NumberField::sigValueChanged);
        field.setValue(values[0]);
        QCOMPARE(field.maximum(), values[1]);
        QCOMPARE(field.value(), values[2]);
        // Widened behind the field's back: the range is not applied again.
        static_cast<QDoubleSpinBox&>(field).setRange(0.0, 100.0);
        field.setValue(50.0);
        QCOMPARE(field.value(), 50.0);
        QCOMPARE(sent.count(), 0);
    }

    // Exclusive radio buttons: a new choice sends 0 for the old button, then 1
    // for the new one. The check box sends the negation of its state, the
    // pause button its state.
    void clickedButtons() {
        Panel panel;
        ButtonGroup group;
        RadioButton a, b;
        auto* box = new CheckBox;
        auto* pause = new PauseButton;
        a.setIndex(4);
        b.setIndex(7);
        Sent sent; // one list for both radio buttons, so that the order shows
        for (RadioButton* r : {&a, &b}) {
            r->setText(QStringLiteral("option"));
            panel.addWidget(r);
            group.addButton(r);
            connect(r, &RadioButton::sigValueChanged, this,
                    [&sent](double v, int i) { sent << qMakePair(v, i); });
        }
        panel.addWidget(box);
        panel.addWidget(pause);
        QCOMPARE(pause->text(), QStringLiteral("play"));
        QVERIFY(fixture::show(panel));
        QSignalSpy boxSent(box, &CheckBox::sigValueChanged);
        QSignalSpy pauseSent(pause, &PauseButton::sigValueChanged);
        QTest::mouseClick(&a, Qt::LeftButton);
        QCOMPARE(sent, (Sent{{1.0, 4}}));
        QTest::mouseClick(&b, Qt::LeftButton);
        QCOMPARE(sent, (Sent{{1.0, 4}, {0.0, 4}, {1.0, 7}}));
        QTest::mouseClick(&b, Qt::LeftButton); // already checked: no change
        QCOMPARE(sent.size(), 3);
        QTest::mouseClick(box, Qt::LeftButton);
        QTest::mouseClick(pause, Qt::LeftButton);
        QCOMPARE(pause->text(), QStringLiteral("Pause"));
        QTest::mouseClick(box, Qt::LeftButton);
        QTest::mouseClick(pause, Qt::LeftButton);
        QCOMPARE(pause->text(), QStringLiteral("Play"));
        QCOMPARE(collect(boxSent), (Sent{{0, 0}, {1, 0}}));
        QCOMPARE(collect(pauseSent), (Sent{{1, 0}, {0, 0}}));
        QString* names[] = {a.getGroupName(), box->getVarName()};
        a.setGroupName(kUtf8Name);
        box->setVarName(kUtf8Name);
        for (QString* name : names)
            QCOMPARE(*name, QString::fromUtf8(kUtf8Name));
        a.setGroupName(nullptr);
        box->setVarName(nullptr);
        QVERIFY(names[0]->isEmpty() && names[1]->isEmpty());
    }

    void slider_data() {
        QTest::addColumn<QVector<int>>("range");
        QTest::addColumn<int>("value");
        QTest::addColumn<int>("position");
        QTest::newRow("above range") << QVector<int>{0, 99} << 150 << 99;
        QTest::newRow("below range") << QVector<int>{10, 20} << -3 << 10;
        QTest::newRow("inside range") << QVector<int>{-50, 50} << -20 << -20;
    }
    void slider() {
        QFETCH(QVector<int>, range);
        QFETCH(int, value);
        QFETCH(int, position);
        Slider slider(Qt::Vertical, QStringLiteral("Mass"));
        auto* inner = slider.findChild<QSlider*>();
        slider.setMinimum(range[0]);
        slider.setMaximum(range[1]);
        slider.setValue(value);
        QCOMPARE(inner->value(), position);
        QCOMPARE(slider.getValue(), double(value));
        inner->setValue(range[0] + 1); // as if moved by hand
        QCOMPARE(slider.getValue(), double(value));
    }

    // Paired with a registered field, a slider steers the server through it.
    void sliderPairedWithField() {
        CommThread thread;
        NumberField field;
        field.setIndex(5);
        field.setRange(0, 2);
        field.setValue(0.5);
        thread.setInteractiveControls(&field);
        Slider slider(Qt::Horizontal, QStringLiteral("Gravity"));
        slider.pairWith(&field, 100);
        auto* inner = slider.findChild<QSlider*>();
        QCOMPARE(inner->maximum(), 200);
        QCOMPARE(inner->value(), 50);
        inner->setValue(140); // dragged
        QCOMPARE(field.value(), 1.4);
        field.setValue(0.25); // typed and confirmed in the field
        QTest::keyClick(&field, Qt::Key_Return);
        QCOMPARE(inner->value(), 25);
        QCOMPARE(thread.pendingEntries(), (QVector<QPair<int, double>>{{5, 1.4}, {5, 0.25}}));
    }

    // Setters wait for the next value; a null prefix drops the one before.
    void readOutText_data() {
        QTest::addColumn<QByteArray>("format"); // empty: the default; else the letter and precision
        QTest::addColumn<QByteArray>("prefix"); // null: setPrefix(nullptr)
        QTest::addColumn<QByteArray>("suffix");
        QTest::addColumn<double>("value");
        QTest::addColumn<QString>("expected");
        const QByteArray none;
        QTest::newRow("default, whole") << none << none << none << 2.0 << "2.00";
        QTest::newRow("default, negative") << none << none << none << -0.5 << "-0.50";
        QTest::newRow("e 3") << QByteArray("e3") << none << none << 1234.56 << "1.235e+03";
        QTest::newRow("prefix and suffix run together")
            << none << QByteArray("t=") << QByteArray(" s") << 1.5 << "t=1.50 s";
        QTest::newRow("UTF-8 suffix") << QByteArray("f1") << none
                                      << QByteArray("\xc2\xb0"
                                                    "C")
                                      << 21.24 << QString::fromUtf8("21.2°C");
        // A precision in the millions would build a string of that length.
        QTest::newRow("huge precision")
            << QByteArray("f1000000000") << none << none << 1.0 << "1." + QString(99, '0');
    }
    void readOutText() {
        QFETCH(QByteArray, format);
        QFETCH(QByteArray, prefix);
        QFETCH(QByteArray, suffix);
        QFETCH(double, value);
        QFETCH(QString, expected);
        DisplayDouble readout;
        QVERIFY(readout.getLabel()->text().isEmpty());
        readout.setPrefix("stale");
        readout.setValue(value);
        const QString before = readout.getLabel()->text();
        if (!format.isEmpty())
            readout.setFormat(format.at(0), format.mid(1).toInt());
        readout.setPrefix(prefix.isNull() ? nullptr : prefix.constData());
        if (!suffix.isEmpty())
            readout.setSufix(suffix.constData());
        QCOMPARE(readout.getLabel()->text(), before);
        readout.setValue(value);
        QCOMPARE(readout.getLabel()->text(), expected);
    }

    // Copies share the label; the last copy deletes it unless a widget tree holds it.
    void readOutLabelLife() {
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

ORLAVEX_GUI_TEST_MAIN(TestInteractiveControls)
#include "tst_interactivecontrols.moc"
