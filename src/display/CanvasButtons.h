#pragma once

#include <Orlavex/controls/Panel.h>

class QPushButton;
class vtkRenderer;

namespace Orlavex {

class Canvas;

/// A ready-made panel: a canvas under a row of three buttons that save the
/// camera, restore the saved camera and restore the initial camera.
class ORLAVEX_EXPORT CanvasButtons : public Panel {
    Q_OBJECT
public:
    explicit CanvasButtons(QWidget* parent = nullptr);
    ~CanvasButtons() override;

    /// The 3-D view, a child widget of the panel.
    Canvas* const canvas;
    /// The canvas's renderer, for scene objects and the link thread.
    vtkRenderer* const renderer;
    /// The buttons, child widgets of the panel in the row above the canvas.
    QPushButton* const saveButton;
    QPushButton* const restoreButton;
    QPushButton* const restoreInitialButton;

private slots:
    void saveA();
    void restoreA();
    void restore0A();
};

} // namespace Orlavex
