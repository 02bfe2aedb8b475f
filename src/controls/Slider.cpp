#include "Slider.h"

#include "NumberField.h"

#include <QBoxLayout>
#include <QCoreApplication>
#include <QKeyEvent>
#include <QSlider>

#include <cmath>
#include <memory>

namespace Orlavex {

Slider::Slider(Qt::Orientation orientation, const QString& title, QWidget* parent)
    : QGroupBox(title, parent), slider(new QSlider(orientation, this)) {
    slider->setFocusPolicy(Qt::StrongFocus);
    slider->setTickPosition(QSlider::TicksBothSides);
    slider->setTickInterval(10);
    slider->setSingleStep(1);
    auto* box = new QBoxLayout(orientation == Qt::Horizontal ? QBoxLayout::TopToBottom
                                                             : QBoxLayout::LeftToRight);
    box->addWidget(slider, 0);
    setLayout(box);
}

Slider::~Slider() = default;

void Slider::setValue(int v) {
    value = v;
    slider->setValue(v);
}

void Slider::pairWith(NumberField* field, double scale) {
    const auto position = [scale](double v) { return int(std::lround(v * scale)); };
    setMinimum(position(field->minimum()));
    setMaximum(position(field->maximum()));
    setValue(position(field->value()));
    // The flag stops the two from echoing each other.
    auto echo = std::make_shared<bool>(false);
    connect(slider, &QSlider::valueChanged, field, [=](int v) {
        if (*echo)
            return;
        field->setValue(double(v) / scale);
        // A number field sends only on Return: the same path as the user's.
        QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
        QCoreApplication::sendEvent(field, &press);
    });
    connect(field, &NumberField::sigValueChanged, this, [=](double v, int) {
        *echo = true;
        setValue(position(v));
        *echo = false;
    });
}

void Slider::setMinimum(int v) {
    slider->setMinimum(v);
}

void Slider::setMaximum(int v) {
    slider->setMaximum(v);
}

void Slider::invertAppearance(bool invert) {
    slider->setInvertedAppearance(invert);
}

void Slider::invertKeyBindings(bool invert) {
    slider->setInvertedControls(invert);
}

} // namespace Orlavex
