#include "NumberField.h"

#include <QKeyEvent>
#include <QLineEdit>

namespace Orlavex {

NumberField::NumberField(QWidget* parent) : QDoubleSpinBox(parent) {
    connect(this, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this, &NumberField::accion);
}

NumberField::~NumberField() = default;

void NumberField::setRange(double min, double max) {
    storedMinimum = min;
    storedMaximum = max;
    QDoubleSpinBox::setRange(min, max);
}

void NumberField::highlight(Qt::GlobalColor colour) {
    highlightPalette.setBrush(QPalette::Base, QBrush(colour));
    lineEdit()->setPalette(highlightPalette);
}

void NumberField::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        emit sigValueChanged(value(), getIndex());
        highlight(Qt::white);
        // Puts the text back in the field's own format (and drops a half-typed
        // entry that never became a value).
        setValue(value());
        // Accepted, so that a dialog around the field does not also take the
        // key as a press of its default button.
        event->accept();
        return;
    }
    highlight(Qt::yellow);
    QDoubleSpinBox::keyPressEvent(event);
}

void NumberField::accion(double) {
    if (!rangeApplied && getIndex() > 0) {
        // Flag first: clamping to the new range re-enters here as a value
        // change, which must already count as one after the range was applied.
        rangeApplied = true;
        QDoubleSpinBox::setRange(storedMinimum, storedMaximum);
    } else if (rangeApplied) {
        highlight(Qt::yellow);
    }
}

} // namespace Orlavex
