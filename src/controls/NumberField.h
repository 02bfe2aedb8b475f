#pragma once

#include <Orlavex/controls/InteractiveControlI.h>

#include <QDoubleSpinBox>
#include <QPalette>

namespace Orlavex {

/// A number entry whose value goes to the simulation server only when the user
/// confirms it with Return or Enter. The line edit turns yellow while the shown
/// value differs from the one last sent and white once it has been sent.
///
/// The stored range (0 to 1 by default) is applied by the first value change
/// after the field has been given a control index above 0; until then the spin
/// box keeps Qt's own range, so a client can set the value first and the index
/// afterwards.
class ORLAVEX_EXPORT NumberField : public QDoubleSpinBox, public InteractiveControlI {
    Q_OBJECT
public:
    explicit NumberField(QWidget* parent = nullptr);
    ~NumberField() override;

    /// Stores the range and applies it to the spin box at once.
    void setRange(double min, double max);

signals:
    /// The confirmed value and the control index.
    void sigValueChanged(double value, int index);

protected:
    /// Return and Enter send the value and mark the field white, and go no
    /// further; every other key marks it yellow and is handled as usual.
    void keyPressEvent(QKeyEvent* event) override;

private slots:
    void accion(double val);

private:
    void highlight(Qt::GlobalColor colour);

    QPalette highlightPalette;
    bool rangeApplied = false;
    double storedMinimum = 0.0;
    double storedMaximum = 1.0;
};

} // namespace Orlavex
