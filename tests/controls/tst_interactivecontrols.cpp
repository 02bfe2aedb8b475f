// The input widgets with real key presses and clicks: what each one sends,
// when, and how the number field marks unsent and sent values.
#include <Orlavex/Orlavex.h>

#include "GuiTestMain.h"

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

Sent collect(QSignalSpy& spy) {
    Sent out;
    for (const QList<QVariant>& args : spy)
        out << qMakePair(args.at(0).toDouble(), args.at(1).toInt());
    return out;
}

QList<bool> collectBools(QSignalSpy& spy) {
    QList<bool> out;
    for (const QList<QVariant>& args : spy)
        out << args.at(0).toBool();
    return out;
}
} // namespace

class TestInteractiveControls : public QObject {
    Q_OBJECT
private slots:
    void confirmKeysSendOnce_data() {
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<int>("index");
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
        QTest::addColumn<bool>("callSetRange");
        QTest::addColumn<double>("first");
        QTest::addColumn<double>("expMax");
        QTest::addColumn<double>("expValue");
        QTest::newRow("index 3, inside") << 3 << false << 0.5 << 1.0 << 0.5;
        QTest::newRow("index 3, clamped") << 3 << false << 5.0 << 1.0 << 1.0;
        QTest::newRow("index 3, setRange(-5, 5)") << 3 << true << 7.0 << 5.0 << 5.0;
        QTest::newRow("index -1") << -1 << false << 5.0 << 99.99 << 5.0;
        QTest::newRow("index 0") << 0 << false << 5.0 << 99.99 << 5.0;
        QTest::newRow("index 0, setRange(-5, 5)") << 0 << true << 7.0 << 5.0 << 5.0;
    }
    void storedRange() {
        QFETCH(int, index);
        QFETCH(bool, callSetRange);
        QFETCH(double, first);
        QFETCH(double, expMax);
        QFETCH(double, expValue);
        NumberField field;
        field.setIndex(index);
        if (callSetRange)
            field.setRange(-5.0, 5.0);
        QSignalSpy sent(&field, &NumberField::sigValueChanged);
        field.setValue(first);
        QCOMPARE(field.maximum(), expMax);
        QCOMPARE(field.value(), expValue);
        // Widened behind the field's back: the range is not applied again.
        static_cast<QDoubleSpinBox&>(field).setRange(0.0, 100.0);
        field.setValue(50.0);
        QCOMPARE(field.value(), 50.0);
        QCOMPARE(sent.count(), 0);
    }

    void exclusiveRadioButtonsSendTwoValues() {
        Panel panel;
        ButtonGroup group;
        RadioButton a, b;
        a.setIndex(4);
        b.setIndex(7);
        Sent sent; // one list for both, so that the order of the entries shows
        for (RadioButton* r : {&a, &b}) {
            r->setText(QStringLiteral("option"));
            panel.addWidget(r);
            group.addButton(r);
            connect(r, &RadioButton::sigValueChanged, this,
                    [&sent](double v, int i) { sent << qMakePair(v, i); });
        }
        panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&panel));
        QTest::mouseClick(&a, Qt::LeftButton);
        QCOMPARE(sent, (Sent{{1.0, 4}}));
        QTest::mouseClick(&b, Qt::LeftButton);
        QCOMPARE(sent, (Sent{{1.0, 4}, {0.0, 4}, {1.0, 7}}));
        QTest::mouseClick(&b, Qt::LeftButton); // already checked: no change
        QCOMPARE(sent.size(), 3);
    }

    // The check box sends the negation of its state; the pause button its state.
    void checkBoxAndPauseButton() {
        Panel panel;
        auto* box = new CheckBox;
        auto* pause = new PauseButton;
        panel.addWidget(box);
        panel.addWidget(pause);
        QCOMPARE(pause->text(), QStringLiteral("play"));
        panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&panel));
        QSignalSpy boxSent(box, &CheckBox::sigValueChanged);
        QSignalSpy pauseSent(pause, &PauseButton::sigValueChanged);
        QTest::mouseClick(box, Qt::LeftButton);
        QTest::mouseClick(pause, Qt::LeftButton);
        QCOMPARE(pause->text(), QStringLiteral("Pause"));
        QTest::mouseClick(box, Qt::LeftButton);
        QTest::mouseClick(pause, Qt::LeftButton);
        QCOMPARE(pause->text(), QStringLiteral("Play"));
        QCOMPARE(collectBools(boxSent), (QList<bool>{false, true}));
        QCOMPARE(collectBools(pauseSent), (QList<bool>{true, false}));
    }

    void slider_data() {
        QTest::addColumn<int>("minimum");
        QTest::addColumn<int>("maximum");
        QTest::addColumn<int>("value");
        QTest::addColumn<int>("position");
        QTest::newRow("above range") << 0 << 99 << 150 << 99;
        QTest::newRow("below range") << 10 << 20 << -3 << 10;
        QTest::newRow("inside range") << -50 << 50 << -20 << -20;
    }
    void slider() {
        QFETCH(int, minimum);
        QFETCH(int, maximum);
        QFETCH(int, value);
        QFETCH(int, position);
        Slider slider(Qt::Vertical, QStringLiteral("Mass"));
        auto* inner = slider.findChild<QSlider*>();
        slider.setMinimum(minimum);
        slider.setMaximum(maximum);
        slider.setValue(value);
        QCOMPARE(inner->value(), position);
        QCOMPARE(slider.getValue(), double(value));
        inner->setValue(minimum + 1); // as if moved by hand
        QCOMPARE(slider.getValue(), double(value));
    }

    // A pointer taken before a rename sees the new name; null empties it.
    void names() {
        RadioButton radio;
        CheckBox check;
        Dialog dialog;
        QString* names[] = {radio.getGroupName(), check.getVarName(), dialog.getVarName()};
        const char* utf8 = "Gr\xc3\xb6\xc3\x9f"
                           "e";
        radio.setGroupName(utf8);
        check.setVarName(utf8);
        dialog.setVarName(utf8);
        for (QString* name : names)
            QCOMPARE(*name, QString::fromUtf8("Größe"));
        radio.setGroupName(nullptr);
        check.setVarName(nullptr);
        dialog.setVarName(nullptr);
        for (QString* name : names)
            QVERIFY(name->isEmpty());
    }
};

ORLAVEX_GUI_TEST_MAIN(TestInteractiveControls)
#include "tst_interactivecontrols.moc"
