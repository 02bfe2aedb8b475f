#include "PauseButton.h"

namespace Orlavex {

PauseButton::PauseButton(QWidget* parent) : QPushButton(parent) {
    setCheckable(true);
    setText(isChecked() ? QStringLiteral("pause") : QStringLiteral("play"));
    connect(this, &QAbstractButton::toggled, this, &PauseButton::accion);
}

PauseButton::~PauseButton() = default;

void PauseButton::accion(bool checked) {
    setText(checked ? QStringLiteral("Pause") : QStringLiteral("Play"));
    emit sigValueChanged(checked);
}

} // namespace Orlavex
