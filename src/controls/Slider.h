#pragma once

#include <Orlavex/orlavex_export.h>

#include <QGroupBox>

class QSlider;

namespace Orlavex {

class NumberField;

/// A titled group box around an integer slider. It remembers the last value
/// given to `setValue`, even one outside the slider's range, and emits nothing:
/// a slider is no interactive control of its own. To steer the server with
/// it, pair it with a registered `NumberField` (`pairWith`): the field sends.
/// \code
///   auto* gravity = new NumberField;  // registered: setInteractiveControls
///   gravity->setIndex(1);
///   gravity->setRange(0, 30);
///   auto* slider = new Slider(Qt::Horizontal, "Gravity");
///   slider->pairWith(gravity, 10);    // the slider counts tenths
/// \endcode
class ORLAVEX_EXPORT Slider : public QGroupBox {
    Q_OBJECT
public:
    /// A horizontal slider sits in a column, a vertical one in a row.
    Slider(Qt::Orientation orientation, const QString& title, QWidget* parent = nullptr);
    ~Slider() override;

    /// The last value given to `setValue` (0 before any); moving the slider by
    /// hand does not change it.
    double getValue() const { return value; }
    /// Makes the slider a handle of `field`: its range becomes the field's
    /// range times `scale`, dragging it gives the field the position divided
    /// by `scale` and sends it as Return in the field would, and a value the
    /// field sends moves the slider. The field must outlive the slider or be
    /// destroyed with it.
    void pairWith(NumberField* field, double scale = 1.0);

public slots:
    /// Stores `v` as given and moves the slider to it, clamped to its range.
    void setValue(int v);
    void setMinimum(int v);
    void setMaximum(int v);
    void invertAppearance(bool invert);
    void invertKeyBindings(bool invert);

private:
    QSlider* const slider; // a child of the box
    int value = 0;
};

} // namespace Orlavex
