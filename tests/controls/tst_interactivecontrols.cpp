// The input widgets with real key presses and clicks: what each one sends,
// when, and how the number field marks unsent and sent values.
#include <Orlavex/controls/ButtonGroup.h>
#include <Orlavex/controls/CheckBox.h>
#include <Orlavex/controls/Dialog.h>
#include <Orlavex/controls/NumberField.h>
#include <Orlavex/controls/Panel.h>
#include <Orlavex/controls/PauseButton.h>
#include <Orlavex/controls/RadioButton.h>
#include <Orlavex/controls/Slider.h>

#include "GuiTestMain.h"

#include <QLineEdit>
#include <QSlider>

#include <functional>

namespace {
enum class Shade { Unset, Yellow, White };

// The base colour must be the same in every colour group, or a field that
// loses focus would change colour.
Shade shadeOf(NumberField& field) {
    auto* edit = field.findChild<QLineEdit*>();
    if (!edit->testAttribute(Qt::WA_SetPalette))
        return Shade::Unset;
    const QPalette p = edit->palette();
    const QColor base = p.color(QPalette::Active, QPalette::Base);
    for (auto group : {QPalette::Inactive, QPalette::Disabled})
        if (p.color(group, QPalette::Base) != base)
            return Shade::Unset;
    if (base == QColor(Qt::yellow))
        return Shade::Yellow;
    if (base == QColor(Qt::white))
        return Shade::White;
    return Shade::Unset;
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

Q_DECLARE_METATYPE(Shade)

class TestInteractiveControls : public QObject {
    Q_OBJECT

private slots:
    void confirmKeysSendOnce_data() {
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<int>("index");
        QTest::newRow("Return, index 3") << int(Qt::Key_Return) << int(Qt::NoModifier) << 3;
        QTest::newRow("Enter, index 3") << int(Qt::Key_Enter) << int(Qt::KeypadModifier) << 3;
        QTest::newRow("Return, index never set")
            << int(Qt::Key_Return) << int(Qt::NoModifier) << -1;
        QTest::newRow("Enter, index 0") << int(Qt::Key_Enter) << int(Qt::KeypadModifier) << 0;
    }
    void confirmKeysSendOnce() {
        QFETCH(int, key);
        QFETCH(int, modifiers);
        QFETCH(int, index);
        NumberField field;
        if (index != -1)
            field.setIndex(index);
        field.setValue(0.75);
        QSignalSpy sent(&field, &NumberField::sigValueChanged);
        QSignalSpy finished(&field, &QAbstractSpinBox::editingFinished);

        QTest::keyClick(&field, Qt::Key_A); // any other key first: yellow
        QCOMPARE(shadeOf(field), Shade::Yellow);
        QTest::keyClick(&field, Qt::Key(key), Qt::KeyboardModifiers(modifiers));

        QCOMPARE(collect(sent), (Sent{{0.75, index}}));
        QCOMPARE(shadeOf(field), Shade::White);
        // The spin box's own Return handling would have finished the edit.
        QCOMPARE(finished.count(), 0);
    }

    void typedValueIsSentOnConfirm() {
        NumberField field;
        field.setIndex(2);
        field.setRange(0.0, 50.0);
        QSignalSpy sent(&field, &NumberField::sigValueChanged);
        field.findChild<QLineEdit*>()->selectAll();
        QTest::keyClicks(&field, "12.5");
        QCOMPARE(field.value(), 12.5); // the keys reached the spin box
        QCOMPARE(shadeOf(field), Shade::Yellow);
        QCOMPARE(sent.count(), 0);
        QTest::keyClick(&field, Qt::Key_Return);
        QCOMPARE(collect(sent), (Sent{{12.5, 2}}));
        QCOMPARE(field.text(), QStringLiteral("12.50"));
    }

    void arrowsAndWheelSendNothing() {
        NumberField field;
        field.setIndex(5);
        field.setRange(0.0, 10.0);
        field.setValue(1.0); // applies 0..10 again
        QSignalSpy sent(&field, &NumberField::sigValueChanged);

        QTest::keyClick(&field, Qt::Key_Up);
        QCOMPARE(field.value(), 2.0);
        QWheelEvent wheel(QPointF(5, 5), field.mapToGlobal(QPoint(5, 5)), QPoint(), QPoint(0, 120),
                          Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(&field, &wheel);
        QCOMPARE(field.value(), 3.0);
        QCOMPARE(shadeOf(field), Shade::Yellow);
        QCOMPARE(sent.count(), 0);

        QTest::keyClick(&field, Qt::Key_Enter, Qt::KeypadModifier);
        QCOMPARE(collect(sent), (Sent{{3.0, 5}}));
    }

    // The stored range waits for the first value change after an index above 0
    // was given; applying it may clamp, which is a change of its own.
    void storedRange_data() {
        QTest::addColumn<int>("index");
        QTest::addColumn<bool>("callSetRange");
        QTest::addColumn<double>("first");
        QTest::addColumn<double>("expMin");
        QTest::addColumn<double>("expMax");
        QTest::addColumn<double>("expValue");
        QTest::addColumn<Shade>("afterFirst");
        QTest::addColumn<Shade>("afterSecond");
        QTest::newRow("index 3, inside")
            << 3 << false << 0.5 << 0.0 << 1.0 << 0.5 << Shade::Unset << Shade::Yellow;
        QTest::newRow("index 3, clamped")
            << 3 << false << 5.0 << 0.0 << 1.0 << 1.0 << Shade::Yellow << Shade::Yellow;
        // The spin box clamps 7 itself; applying the same range again changes nothing.
        QTest::newRow("index 3, setRange(-5, 5)")
            << 3 << true << 7.0 << -5.0 << 5.0 << 5.0 << Shade::Unset << Shade::Yellow;
        QTest::newRow("index -1") << -1 << false << 5.0 << 0.0 << 99.99 << 5.0 << Shade::Unset
                                  << Shade::Unset;
        QTest::newRow("index 0") << 0 << false << 5.0 << 0.0 << 99.99 << 5.0 << Shade::Unset
                                 << Shade::Unset;
        QTest::newRow("index 0, setRange(-5, 5)")
            << 0 << true << 7.0 << -5.0 << 5.0 << 5.0 << Shade::Unset << Shade::Unset;
    }
    void storedRange() {
        QFETCH(int, index);
        QFETCH(bool, callSetRange);
        QFETCH(double, first);
        QFETCH(double, expMin);
        QFETCH(double, expMax);
        QFETCH(double, expValue);
        QFETCH(Shade, afterFirst);
        QFETCH(Shade, afterSecond);
        NumberField field;
        QCOMPARE(field.maximum(), 99.99);
        field.setIndex(index);
        if (callSetRange) {
            field.setRange(-5.0, 5.0);
            QCOMPARE(field.minimum(), -5.0); // at once, before any value change
            QCOMPARE(field.maximum(), 5.0);
        }
        QSignalSpy sent(&field, &NumberField::sigValueChanged);
        const double before = field.value();

        field.setValue(first);
        QCOMPARE(field.minimum(), expMin);
        QCOMPARE(field.maximum(), expMax);
        QCOMPARE(field.value(), expValue);
        QCOMPARE(shadeOf(field), afterFirst);

        field.setValue(before);
        QCOMPARE(shadeOf(field), afterSecond);
        QCOMPARE(sent.count(), 0);
    }

    void rangeIsAppliedOnlyOnce() {
        NumberField field;
        field.setIndex(3);
        field.setValue(0.5); // applies 0..1
        // Widened behind the field's back, so the stored range stays 0..1.
        static_cast<QDoubleSpinBox&>(field).setRange(0.0, 100.0);
        field.setValue(50.0);
        QCOMPARE(field.value(), 50.0); // not clamped back to 0..1
        QCOMPARE(field.maximum(), 100.0);
    }

    void exclusiveRadioButtonsSendTwoValues() {
        Panel panel;
        ButtonGroup group;
        QVERIFY(group.exclusive());
        RadioButton a, b, unnumbered;
        a.setIndex(4);
        b.setIndex(7);
        for (RadioButton* r : {&a, &b, &unnumbered}) {
            r->setText(QStringLiteral("option"));
            panel.addWidget(r);
            group.addButton(r);
        }
        panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&panel));
        // One list for all three, so that the order of the entries shows.
        Sent sent;
        for (RadioButton* r : {&a, &b, &unnumbered})
            connect(r, &RadioButton::sigValueChanged, this,
                    [&sent](double v, int i) { sent << qMakePair(v, i); });

        QTest::mouseClick(&a, Qt::LeftButton);
        QCOMPARE(sent, (Sent{{1.0, 4}}));
        sent.clear();
        QTest::mouseClick(&b, Qt::LeftButton);
        QCOMPARE(sent, (Sent{{0.0, 4}, {1.0, 7}}));
        sent.clear();
        QTest::mouseClick(&unnumbered, Qt::LeftButton);
        QCOMPARE(sent, (Sent{{0.0, 7}, {1.0, -1}}));
        sent.clear();
        QTest::mouseClick(&unnumbered, Qt::LeftButton); // already checked: no change
        QCOMPARE(sent, Sent{});
    }

    void checkBoxSendsNegation() {
        CheckBox box;
        box.setText(QStringLiteral("hide"));
        box.show();
        QVERIFY(QTest::qWaitForWindowExposed(&box));
        QSignalSpy spy(&box, &CheckBox::sigValueChanged);
        QTest::mouseClick(&box, Qt::LeftButton);
        QTest::mouseClick(&box, Qt::LeftButton);
        QCOMPARE(collectBools(spy), (QList<bool>{false, true}));
        box.setChecked(true); // by program, too
        QCOMPARE(collectBools(spy), (QList<bool>{false, true, false}));
    }

    void pauseButtonTextsAndValues() {
        PauseButton button;
        QVERIFY(button.isCheckable());
        QCOMPARE(button.text(), QStringLiteral("play"));
        button.show();
        QVERIFY(QTest::qWaitForWindowExposed(&button));
        QSignalSpy spy(&button, &PauseButton::sigValueChanged);
        QTest::mouseClick(&button, Qt::LeftButton);
        QCOMPARE(button.text(), QStringLiteral("Pause"));
        QTest::mouseClick(&button, Qt::LeftButton);
        QCOMPARE(button.text(), QStringLiteral("Play"));
        QCOMPARE(collectBools(spy), (QList<bool>{true, false}));
    }

    void slider_data() {
        QTest::addColumn<int>("orientation");
        QTest::addColumn<int>("minimum");
        QTest::addColumn<int>("maximum");
        QTest::addColumn<int>("value");
        QTest::addColumn<int>("position");
        QTest::newRow("above default range") << int(Qt::Horizontal) << 0 << 99 << 150 << 99;
        QTest::newRow("below range") << int(Qt::Vertical) << 10 << 20 << -3 << 10;
        QTest::newRow("inside range") << int(Qt::Vertical) << -50 << 50 << -20 << -20;
    }
    void slider() {
        QFETCH(int, orientation);
        QFETCH(int, minimum);
        QFETCH(int, maximum);
        QFETCH(int, value);
        QFETCH(int, position);
        Slider slider(Qt::Orientation(orientation), QStringLiteral("Mass"));
        auto* inner = slider.findChild<QSlider*>();
        QVERIFY(inner);
        QCOMPARE(slider.getValue(), 0.0);
        if (minimum != 0)
            slider.setMinimum(minimum);
        if (maximum != 99)
            slider.setMaximum(maximum);
        QCOMPARE(inner->minimum(), minimum);
        QCOMPARE(inner->maximum(), maximum);

        slider.setValue(value);
        QCOMPARE(inner->value(), position);
        QCOMPARE(slider.getValue(), double(value));
        inner->setValue(minimum + 1); // as if moved by hand
        QCOMPARE(slider.getValue(), double(value));
    }

    // A pointer taken before a rename sees the new name; null empties it.
    void names_data() {
        QTest::addColumn<QString>("kind");
        QTest::newRow("RadioButton group name") << QStringLiteral("radio");
        QTest::newRow("CheckBox var name") << QStringLiteral("check");
        QTest::newRow("Dialog var name") << QStringLiteral("dialog");
    }
    void names() {
        QFETCH(QString, kind);
        RadioButton radio;
        CheckBox check;
        Dialog dialog;
        std::function<QString*()> get;
        std::function<void(const char*)> set;
        if (kind == QLatin1String("radio")) {
            get = [&] { return radio.getGroupName(); };
            set = [&](const char* n) { radio.setGroupName(n); };
        } else if (kind == QLatin1String("check")) {
            get = [&] { return check.getVarName(); };
            set = [&](const char* n) { check.setVarName(n); };
        } else {
            get = [&] { return dialog.getVarName(); };
            set = [&](const char* n) { dialog.setVarName(n); };
        }
        QString* name = get();
        QVERIFY(name && name->isEmpty());
        set("Gr\xc3\xb6\xc3\x9f"
            "e");
        QCOMPARE(*name, QString::fromUtf8("Größe"));
        QCOMPARE(get(), name);
        set(nullptr);
        QVERIFY(get()->isEmpty());
    }
};

ORLAVEX_GUI_TEST_MAIN(TestInteractiveControls)
#include "tst_interactivecontrols.moc"
