#include "CheckBox.h"

namespace Orlavex {

CheckBox::CheckBox(QWidget* parent) : QCheckBox(parent) {
    connect(this, &QAbstractButton::toggled, this, &CheckBox::accion);
}

CheckBox::~CheckBox() = default;

void CheckBox::setVarName(const char* name) {
    varName = QString::fromUtf8(name);
}

void CheckBox::accion(bool checked) {
    emit sigValueChanged(!checked);
}

} // namespace Orlavex
