#pragma once

#include <Orlavex/orlavex_export.h>

#include <QGroupBox>

class QSlider;

namespace Orlavex {

/// A titled group box around an integer slider. It remembers the last value
/// given to `setValue`, even one outside the slider's range, and emits nothing.
class ORLAVEX_EXPORT Slider : public QGroupBox {
    Q_OBJECT
public:
    /// A horizontal slider sits in a column, a vertical one in a row.
    Slider(Qt::Orientation orientation, const QString& title, QWidget* parent = nullptr);
    ~Slider() override;

    /// The last value given to `setValue` (0 before any); moving the slider by
    /// hand does not change it.
    double getValue() const { return value; }

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
