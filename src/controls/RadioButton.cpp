#include "RadioButton.h"

namespace Orlavex {

RadioButton::RadioButton(QWidget* parent) : QRadioButton(parent) {
    connect(this, &QAbstractButton::toggled, this, &RadioButton::accion);
}

RadioButton::~RadioButton() = default;

void RadioButton::setGroupName(const char* name) {
    groupName = QString::fromUtf8(name);
}

void RadioButton::accion(bool checked) {
    emit sigValueChanged(checked ? 1.0 : 0.0, getIndex());
}

} // namespace Orlavex
