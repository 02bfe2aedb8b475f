#pragma once

#include <Orlavex/orlavex_export.h>

#include <QPushButton>

namespace Orlavex {

/// Checkable button that runs (checked) or pauses (unchecked) the exchange with
/// the simulation server. A new button is unchecked and reads "play" while the
/// link starts running, so its first click keeps the link running and shows
/// "Pause"; the second pauses it and shows "Play".
class ORLAVEX_EXPORT PauseButton : public QPushButton {
    Q_OBJECT
public:
    explicit PauseButton(QWidget* parent = nullptr);
    ~PauseButton() override;

signals:
    /// The new checked state: true run, false pause.
    void sigValueChanged(bool);

private slots:
    void accion(bool checked);
};

} // namespace Orlavex
