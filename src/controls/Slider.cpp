#include "Slider.h"

#include <QBoxLayout>
#include <QSlider>

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
