#pragma once

#include "LabProtocol.h"

#include <Orlavex/Orlavex.h>

#include <QByteArray>
#include <QVector>

#include <memory>
#include <vector>

class QLabel;
class QPushButton;
class QSlider;
class vtkDataObject;
class vtkDoubleArray;

/// The laboratory's front-end: every widget, canvas, scene object and plot
/// of the main window and of its settings dialog, registered with the
/// window's link thread under the numbers of LabProtocol.h.
///
/// It lives as long as the link thread may touch its objects: the client
/// application deletes the link thread first.
class FrontEnd {
public:
    /// Builds everything in `window`; `instructions` is the local page that
    /// the web view shows (empty: no web view, for a run without a display).
    FrontEnd(MainWindow& window, const QString& instructions);
    ~FrontEnd();
    FrontEnd(const FrontEnd&) = delete;
    FrontEnd& operator=(const FrontEnd&) = delete;

    /// Work on the GUI thread after each cycle's render pass: the phase
    /// portrait follows the angle and speed trails.
    void afterCycle();
    /// Shows a line of the running figures under the controls.

    /// The widgets drawn with OpenGL, which a screenshot may have to paint
    /// in from their own frame buffers.
    QVector<QWidget*> openGlWidgets() const;

private:
    void buildPendulumScene();
    void buildPlateScene();
    void buildPlots();
    QWidget* buildPendulumControls();
    QWidget* buildPlateControls();
    QWidget* buildRunControls();
    void buildDialog();
    NumberField* numberField(lab::Control index);
    RadioButton* radioButton(const char* text, lab::Control index, ButtonGroup* group,
                             bool checked);
    /// A slider that moves with a number field and sends through it.
    Slider* sliderFor(NumberField* field, const char* title);

    MainWindow& m_window;
    CommThread* m_link;
    QByteArray m_instructionsUrl; // the web view keeps a pointer to this text

    CanvasButtons* m_pendulumView = nullptr;
    Canvas* m_plateView = nullptr;
    PlottingPanelQwt* m_motionPlot = nullptr;
    PlottingPanelQwt* m_profilePlot = nullptr;
    PlottingPanel* m_phaseChart = nullptr;
    QWidget* m_phasePanel = nullptr; // the chart under its title
    Browser* m_browser = nullptr;
    Dialog* m_dialog = nullptr;
    QLabel* m_status = nullptr;

    // The pendulum's scene.
    Cube m_base, m_armLeft, m_armRight, m_carriage;
    Cylinder m_postLeft, m_postRight, m_rod;
    std::unique_ptr<HalfPipe> m_rail;
    std::unique_ptr<PolygonC> m_protractor;
    Sphere m_bob;
    Arrow m_velocity;
    VectorText m_clock;

    // The plate's scene.
    std::unique_ptr<PlanarGrid> m_plate;
    Cone m_heater;
    ScalarBar m_legend;

    TrailQwt m_angle{"angle θ (rad)"};
    TrailQwt m_speed{"angular velocity ω (rad/s)"};
    TrailQwt m_row{"row through the heater"};
    TrailQwt m_column{"column through the heater"};
    vtkDataObject* m_phase = nullptr;
    vtkDoubleArray* m_phaseAngle = nullptr;
    vtkDoubleArray* m_phaseSpeed = nullptr;

    DisplayDouble m_angleReadout, m_speedReadout, m_energyReadout, m_periodReadout;
    DisplayDouble m_hottestReadout, m_meanReadout;

    std::vector<NumberField*> m_fields;
    // Values without a number field of their own (the check box) travel
    // through a field that is never shown.
    std::unique_ptr<NumberField> m_driveOnCarrier;
};
