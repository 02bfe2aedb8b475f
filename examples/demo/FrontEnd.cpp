#include "FrontEnd.h"

#include <QCoreApplication>
#include <QGridLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QUrl>

#include <qwt_plot_curve.h>
#include <qwt_symbol.h>
#include <qwt_text.h>

#include <vtkArrowSource.h>
#include <vtkAxisActor2D.h>
#include <vtkDataObject.h>
#include <vtkDoubleArray.h>
#include <vtkFieldData.h>
#include <vtkGlyph3D.h>
#include <vtkProperty.h>
#include <vtkRenderer.h>
#include <vtkTextProperty.h>
#include <vtkXYPlotActor.h>

#include <cmath>

namespace {

constexpr double pi = 3.14159265358979323846;

/// Sends a field's value as if the user had pressed Return in it: a number
/// field reaches the server only on that key.
void confirm(NumberField* field) {
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
    QCoreApplication::sendEvent(field, &press);
}

void paint(DrawableSource& d, vtkRenderer* r, double red, double green, double blue) {
    d.setRenderer(r);
    d.setColor(red, green, blue);
    // Some light of its own, so that faces turned away from the camera's
    // light do not go black.
    d.getProperty()->SetAmbient(0.3);
}

QLabel* caption(const char* text) {
    auto* label = new QLabel(QString::fromUtf8(text));
    label->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    return label;
}

/// Titles in a size that leaves the plot most of its room.
void label(QwtPlot* plot, const char* title, const char* xTitle) {
    // A Qwt plot takes its size hint as its least size; here it may shrink
    // to its minimum, so that the window keeps its height.
    plot->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    QFont font = plot->font();
    font.setPointSizeF(font.pointSizeF() * 1.1);
    font.setBold(true);
    QwtText t(QString::fromUtf8(title));
    t.setFont(font);
    plot->setTitle(t);
    font.setPointSizeF(plot->font().pointSizeF());
    font.setBold(false);
    QwtText x(QString::fromUtf8(xTitle));
    x.setFont(font);
    plot->setAxisTitle(QwtPlot::xBottom, x);
}

QGridLayout* gridOf(LayoutPolicy& container) {
    return qobject_cast<QGridLayout*>(container.layout());
}

} // namespace

FrontEnd::FrontEnd(MainWindow& window, const QString& instructions)
    : m_window(window), m_link(window.commThread),
      m_instructionsUrl(QUrl::fromLocalFile(instructions).toEncoded()) {
    window.setWindowTitle("Orlavex laboratory: a driven pendulum and a heated plate");
    window.setLayoutPolicy("Grid");
    // Both views start from the cameras set below, which frame their scenes
    // more closely than a framing of everything in view would.
    window.setFrameSceneOnStart(false);

    m_pendulumView = new CanvasButtons;
    m_plateView = new Canvas;
    // Their names title them where the lab is shared (a browser's page).
    m_pendulumView->canvas->setObjectName("Pendulum");
    m_plateView->setObjectName("Heated plate");
    window.addWidget(m_pendulumView, 0, 0);
    window.addWidget(m_plateView, 0, 1);
    if (!instructions.isEmpty()) { // a web view needs OpenGL: none when only describing
        m_browser = new Browser;
        m_browser->settingURL(m_instructionsUrl.constData());
        window.addWidget(m_browser, 0, 2);
    }

    buildPendulumScene();
    buildPlateScene();
    buildPlots();
    window.addWidget(m_motionPlot, 1, 0);
    window.addWidget(m_profilePlot, 1, 1);
    window.addWidget(m_phasePanel, 1, 2);

    window.addWidget(buildPendulumControls(), 2, 0);
    window.addWidget(buildPlateControls(), 2, 1);
    window.addWidget(buildRunControls(), 2, 2);
    buildDialog();

    if (auto* grid = qobject_cast<QGridLayout*>(window.LayoutPolicy::layout())) {
        // The web view asks for more height than a 900-pixel window has to
        // spare; the 3-D views get a fair share first.
        grid->setRowMinimumHeight(0, 330);
        grid->setRowStretch(0, 1);
        grid->setRowStretch(1, 1);
        // The pendulum's column is as wide as its camera buttons need; the
        // others share the rest.
        grid->setColumnStretch(1, 1);
        grid->setColumnStretch(2, 1);
    }

    // Renderer i goes with canvas i; the chart's renderer comes after the
    // canvases, so that no camera framing touches it.
    m_link->setRenderer(m_pendulumView->renderer);
    m_link->setCanvas(m_pendulumView->canvas);
    m_link->setRenderer(m_plateView->renderer);
    m_link->setCanvas(m_plateView);
    m_link->setRenderer(m_phaseChart->renderer);
    m_link->setPlot(m_motionPlot);
    m_link->setPlot(m_profilePlot);
    if (m_browser)
        m_link->setBrowser(m_browser);
    m_link->setDialogs(m_dialog);

    m_link->setSendingObjI(lab::Bob, &m_bob);
    m_link->setSendingObjI(lab::Rod, &m_rod);
    m_link->setSendingObjI(lab::Carriage, &m_carriage);
    m_link->setSendingObjI(lab::Protractor, m_protractor.get());
    m_link->setSendingObjI(lab::Velocity, &m_velocity);
    m_link->setSendingObjI(lab::Clock, &m_clock);
    m_link->setSendingObjI(lab::Plate, m_plate.get());
    m_link->setSendingObjI(lab::Heater, &m_heater);
    m_link->setSendingObjI(lab::AngleTrail, &m_angle);
    m_link->setSendingObjI(lab::SpeedTrail, &m_speed);
    m_link->setSendingObjI(lab::RowProfile, &m_row);
    m_link->setSendingObjI(lab::ColumnProfile, &m_column);
    m_link->setSendingObjI(lab::AngleReadout, &m_angleReadout);
    m_link->setSendingObjI(lab::SpeedReadout, &m_speedReadout);
    m_link->setSendingObjI(lab::EnergyReadout, &m_energyReadout);
    m_link->setSendingObjI(lab::PeriodReadout, &m_periodReadout);
    m_link->setSendingObjI(lab::HottestReadout, &m_hottestReadout);
    m_link->setSendingObjI(lab::MeanReadout, &m_meanReadout);
    m_link->setTrailQwt(&m_angle);
    m_link->setTrailQwt(&m_speed);
    m_link->setTrailQwt(&m_row);
    m_link->setTrailQwt(&m_column);
}

FrontEnd::~FrontEnd() {
    if (m_phase)
        m_phase->Delete();
    if (m_phaseAngle)
        m_phaseAngle->Delete();
    if (m_phaseSpeed)
        m_phaseSpeed->Delete();
}

void FrontEnd::buildPendulumScene() {
    vtkRenderer* r = m_pendulumView->renderer;
    r->SetBackground(0.97, 0.97, 0.99);

    // The stand: a base, two posts and two arms holding the rail. Static:
    // the server never addresses them.
    paint(m_base, r, 0.78, 0.62, 0.42);
    m_base.setXLength(2.9);
    m_base.setYLength(0.14);
    m_base.setZLength(0.9);
    m_base.setPosition(0, -1.85, 0);
    for (Cylinder* post : {&m_postLeft, &m_postRight}) {
        paint(*post, r, 0.45, 0.47, 0.5);
        post->setRadius(0.035);
        post->setHeight(1.83);
        post->setResolution(20);
    }
    m_postLeft.setPosition(-1.35, -0.865, -0.3);
    m_postRight.setPosition(1.35, -0.865, -0.3);
    for (Cube* arm : {&m_armLeft, &m_armRight}) {
        paint(*arm, r, 0.45, 0.47, 0.5);
        arm->setXLength(0.07);
        arm->setYLength(0.07);
        arm->setZLength(0.34);
    }
    m_armLeft.setPosition(-1.35, 0.02, -0.15);
    m_armRight.setPosition(1.35, 0.02, -0.15);

    // The rail: a half pipe along x, turned to open downwards, in which the
    // driven carriage runs.
    m_rail = std::make_unique<HalfPipe>(0.09f, 0.11f, 2.7f, 24, 2, 2);
    paint(*m_rail, r, 0.72, 0.74, 0.78);
    m_rail->setSpecular(0.4);
    m_rail->rotateX(90);

    // A protractor behind the rod: a half disc below the pivot.
    std::vector<float> fan{0, 0, 0};
    const int arcPoints = 37;
    for (int k = 0; k < arcPoints; ++k) {
        const double a = (-90.0 + 180.0 * k / (arcPoints - 1)) * pi / 180.0;
        fan.insert(fan.end(), {float(0.6 * std::sin(a)), float(-0.6 * std::cos(a)), 0.0f});
    }
    m_protractor = std::make_unique<PolygonC>(arcPoints + 1, fan.data());
    paint(*m_protractor, r, 0.55, 0.7, 0.95);
    m_protractor->setOpacity(0.35);
    m_protractor->setInteractivelyPositioned(1);

    paint(m_carriage, r, 0.2, 0.25, 0.4);
    m_carriage.setInteractivelyPositioned(1);
    paint(m_rod, r, 0.25, 0.25, 0.28);
    m_rod.setResolution(16);
    m_rod.setInteractivelyPositioned(1);
    paint(m_bob, r, 0.2, 0.3, 1.0);
    m_bob.setThetaResolution(32);
    m_bob.setPhiResolution(32);
    m_bob.setInteractivelyPositioned(1);
    m_bob.setInteractivelyColored(1);
    paint(m_velocity, r, 0.1, 0.65, 0.2);
    m_velocity.setShaftRadius(0.05);
    m_velocity.setTipRadius(0.14);
    m_velocity.setTipLength(0.3);
    m_velocity.setInteractivelyPositioned(1);

    // The simulated time, as 3-D text over the stand.
    paint(m_clock, r, 0.1, 0.1, 0.3);
    m_clock.setInitText("t = ");
    m_clock.setFinalText(" s");
    m_clock.setText(0.0);
    m_clock.setScale(0.16);
    m_clock.setPosition(-1.35, 0.3, 0);
    m_clock.setInteractiveValue(1);

    for (Drawable* d : std::initializer_list<Drawable*>{
             &m_base, &m_postLeft, &m_postRight, &m_armLeft, &m_armRight, m_rail.get(),
             m_protractor.get(), &m_carriage, &m_rod, &m_bob, &m_velocity, &m_clock})
        m_link->setDrawables(d);

    // Seen from the front, a little from the right and from above.
    m_pendulumView->canvas->SetCamera(1.16, 0.06, 5.45, 0, -0.76, 0, 0, 1, 0, 30);
}

void FrontEnd::buildPlateScene() {
    vtkRenderer* r = m_plateView->renderer;
    r->SetBackground(0.97, 0.97, 0.99);
    const float start = float(lab::field(lab::EdgeTemperature).value);
    std::vector<float> temperatures(lab::plateCells, start), magnitudes(lab::plateCells, 0.0f);
    // Cells coloured by temperature from blue (cold) to red (hot), with a
    // heat-flow arrow on every interior grid node.
    m_plate = std::make_unique<PlanarGrid>(
        0.0f, 0.0f, 0.0f, float(lab::plateWidth), float(lab::plateHeight), 0.0f, lab::plateNx,
        lab::plateNy, 0, temperatures.data(), magnitudes.data(), 0.667f, 0.0f, 1.0f, 1.0f, 1.0f,
        1.0f, 1.0f, 1.0f, float(lab::coldest), float(lab::hottest), 1, 1, 1);
    m_plate->setRenderer(r);
    // Arrows on the nodes between cells rather than in the cells' centres;
    // the positions are rebuilt when a length is set.
    m_plate->setCellPoints(1.0f, 1.0f, 0.0f);
    m_plate->setLengthx(float(lab::plateWidth));
    // Weak flow in grey, strong flow in black.
    m_plate->setVectorLUT(0, 0, 0, 0, 0.55f, 0.0f, 1, 1, 0, 1, 1, 1);
    m_plate->setEdgeVisibility(0);
    // Stouter arrows than the glyph's default, which vanish at this size.
    if (auto* arrow = vtkArrowSource::SafeDownCast(m_plate->getGlyph()->GetInputAlgorithm(1, 0))) {
        arrow->SetShaftRadius(0.07);
        arrow->SetTipRadius(0.2);
        arrow->SetTipLength(0.4);
    }
    // The cells sit a little below the arrows' plane, so that the arrows
    // show whole.
    m_plate->setPosition(0, 0, -0.01);
    m_plate->setInteractivelyColored(1);

    paint(m_heater, r, 1.0, 0.55, 0.1);
    m_heater.setResolution(24);
    m_heater.rotateY(90); // from +x to -z: pointing down at the plate
    m_heater.setInteractivelyPositioned(1);

    m_legend.setRenderer(r);
    m_legend.setLut(0.667f, 0.0f, float(lab::coldest), float(lab::hottest), 1, 1);
    m_legend.setScalarBar("T (°C)", 0.1f, 0.02f, 0.8f, 0.14f, 6, 64, "%.0f", 1);

    for (Drawable* d : std::initializer_list<Drawable*>{m_plate.get(), &m_heater, &m_legend})
        m_link->setDrawables(d);

    m_plateView->SetCamera(0.6, -1.23, 2.86, 0.6, 0.42, 0, 0, 0.866, 0.5, 30);
}

void FrontEnd::buildPlots() {
    m_motionPlot = new PlottingPanelQwt;
    label(m_motionPlot, "Pendulum", "time (s)");
    m_motionPlot->insertLeg(true, "BottomLegend");
    m_motionPlot->setCanvasBackground(Qt::white);
    const struct {
        TrailQwt& trail;
        QColor colour;
    } motion[] = {{m_angle, QColor(200, 40, 40)}, {m_speed, QColor(30, 90, 200)}};
    for (const auto& m : motion) {
        m.trail.attachToPlot(m_motionPlot);
        m.trail.setNMaxPoints(450); // 15 s of simulated time
        m.trail.getCurve()->setPen(m.colour, 2);
        m.trail.getCurve()->setRenderHint(QwtPlotItem::RenderAntialiased);
    }

    m_profilePlot = new PlottingPanelQwt;
    label(m_profilePlot, "Plate temperature (°C)", "position (m)");
    m_profilePlot->insertLeg(true, "BottomLegend");
    m_profilePlot->setCanvasBackground(Qt::white);
    m_row.setNReceivedPoints(lab::plateNx);
    m_column.setNReceivedPoints(lab::plateNy);
    const struct {
        TrailQwt& trail;
        QColor colour;
    } profiles[] = {{m_row, QColor(220, 100, 0)}, {m_column, QColor(120, 40, 160)}};
    for (const auto& p : profiles) {
        p.trail.attachToPlot(m_profilePlot);
        p.trail.getCurve()->setPen(p.colour, 2);
        p.trail.getCurve()->setRenderHint(QwtPlotItem::RenderAntialiased);
        QwtSymbol* marker = p.trail.getSymbol();
        marker->setStyle(QwtSymbol::Ellipse);
        marker->setSize(6);
        marker->setBrush(p.colour);
        marker->setPen(p.colour);
    }

    // The phase portrait, drawn by VTK from the two trails' points, which
    // afterCycle copies into these arrays.
    m_phaseChart = new PlottingPanel;
    m_phaseAngle = vtkDoubleArray::New();
    m_phaseSpeed = vtkDoubleArray::New();
    m_phaseAngle->SetName("angle");
    m_phaseSpeed->SetName("speed");
    m_phaseAngle->InsertNextValue(0.0);
    m_phaseSpeed->InsertNextValue(0.0);
    m_phase = vtkDataObject::New();
    m_phase->GetFieldData()->AddArray(m_phaseAngle);
    m_phase->GetFieldData()->AddArray(m_phaseSpeed);
    const int curve = m_phaseChart->addTrail(m_phase);
    m_phaseChart->setTrailColor(curve, 0.75, 0.1, 0.45);
    m_phaseChart->setTrailLabel(curve, "last 15 s");
    m_phaseChart->setXTitle("angle (rad)");
    m_phaseChart->setYTitle("speed (rad/s)");
    m_phaseChart->setNumberOfXLabels(5);
    m_phaseChart->setNumberOfYLabels(5);
    m_phaseChart->textProperty->SetFontFamilyToArial();
    vtkXYPlotActor* chart = m_phaseChart->plotActor;
    chart->SetLabelFormat("%.1f");
    chart->SetYTitlePositionToVCenter();
    // VTK sizes the chart's text to the panel, which leaves it small here.
    chart->GetXAxisActor2D()->SetFontFactor(1.8);
    chart->GetYAxisActor2D()->SetFontFactor(1.8);
    chart->SetPosition(0.0, 0.0);
    chart->SetWidth(0.98);
    chart->SetHeight(0.98);
    chart->LegendOff(); // one curve, named in the title
    m_phaseChart->renderer->AddActor(chart);

    // The chart's title in the style of the Qwt plots' titles beside it.
    auto* panel = new Panel;
    panel->setLayoutPolicy("VBox");
    panel->layout()->setContentsMargins(0, 0, 0, 0);
    panel->layout()->setSpacing(4);
    auto* title = new QLabel("Phase portrait, last 15 s");
    QFont font = title->font();
    font.setPointSizeF(font.pointSizeF() * 1.1);
    font.setBold(true);
    title->setFont(font);
    title->setAlignment(Qt::AlignCenter);
    panel->addWidget(title);
    panel->addWidget(m_phaseChart);
    m_phasePanel = panel;
}

NumberField* FrontEnd::numberField(lab::Control index) {
    const lab::FieldSetup& setup = lab::field(index);
    auto* field = new NumberField;
    field->setDecimals(setup.decimals);
    field->setSingleStep(setup.step);
    field->setRange(setup.minimum, setup.maximum);
    field->setValue(setup.value);
    field->setIndex(setup.index);
    field->setObjectName(QString::fromUtf8(setup.label)); // its name in the registry description
    field->setToolTip("Type a value and press Return to send it");
    field->setMinimumWidth(72);
    m_link->setInteractiveControls(field);
    m_fields.push_back(field);
    return field;
}

RadioButton* FrontEnd::radioButton(const char* text, lab::Control index, ButtonGroup* group,
                                   bool checked) {
    auto* button = new RadioButton;
    button->setText(QString::fromUtf8(text));
    button->setIndex(index);
    button->setObjectName(button->text());
    group->addButton(button);
    button->setChecked(checked); // before it is registered: the server starts with this choice
    m_link->setInteractiveControls(button);
    return button;
}

Slider* FrontEnd::sliderFor(NumberField* field, const char* title) {
    auto* slider = new Slider(Qt::Horizontal, QString::fromUtf8(title));
    if (!*title) // no frame around a slider without a title
        slider->setStyleSheet("QGroupBox { border: none; margin: 0; padding: 0; }");
    slider->pairWith(field, 100); // the slider counts in centimetres
    return slider;
}

QWidget* FrontEnd::buildPendulumControls() {
    auto* box = new GroupBox;
    box->setTitle("Pendulum");
    box->setLayoutPolicy("Grid");
    const lab::Control controls[] = {lab::Length, lab::Damping, lab::DriveAmplitude,
                                     lab::DriveFrequency};
    for (int k = 0; k < 4; ++k) {
        NumberField* field = numberField(controls[k]);
        box->addWidget(caption(lab::field(controls[k]).label), k / 2, 2 * (k % 2));
        box->addWidget(field, k / 2, 2 * (k % 2) + 1);
        if (controls[k] == lab::DriveAmplitude || controls[k] == lab::DriveFrequency) {
            field->setEnableInt(1); // the server greys it out while the drive is off
            m_link->setSendingObjI(controls[k] == lab::DriveAmplitude ? lab::AmplitudeField
                                                                      : lab::FrequencyField,
                                   field);
        }
    }

    auto* driveOn = new CheckBox;
    driveOn->setText("Drive the pivot");
    driveOn->setVarName("driveOn");
    driveOn->setChecked(lab::kDriveOnAtStart);
    m_driveOnCarrier = std::make_unique<NumberField>();
    m_driveOnCarrier->setRange(0, 1);
    m_driveOnCarrier->setValue(lab::kDriveOnAtStart ? 1 : 0);
    m_driveOnCarrier->setIndex(lab::DriveOn);
    m_driveOnCarrier->setObjectName("Drive the pivot");
    m_link->setInteractiveControls(m_driveOnCarrier.get());
    m_link->setCheckBoxes(driveOn);
    NumberField* carrier = m_driveOnCarrier.get();
    QObject::connect(driveOn, &CheckBox::sigValueChanged, carrier, [carrier](bool unchecked) {
        carrier->setValue(unchecked ? 0 : 1);
        confirm(carrier);
    });
    box->addWidget(driveOn, 2, 3);

    // The integrators, in a column of their own to the right.
    auto* integrators = new ButtonGroup(box);
    m_link->addGroup("integrator", integrators);
    auto* column = new Panel;
    column->setLayoutPolicy("VBox");
    column->layout()->setContentsMargins(12, 0, 0, 0);
    column->layout()->setSpacing(2);
    column->addWidget(new QLabel("Integrator"));
    const struct {
        const char* text;
        lab::Control index;
    } methods[] = {{"Euler", lab::Euler},
                   {"semi-implicit Euler", lab::SemiImplicitEuler},
                   {"Runge-Kutta 4", lab::RungeKutta}};
    for (const auto& m : methods)
        column->addWidget(
            radioButton(m.text, m.index, integrators, m.index == lab::kIntegratorAtStart));
    box->addWidget(column, 0, 4, 3, 1);

    auto* readouts = new Panel;
    readouts->layout()->setContentsMargins(0, 4, 0, 0);
    const struct {
        DisplayDouble& readout;
        const char* prefix;
        const char* suffix;
        int precision;
    } shown[] = {{m_angleReadout, "θ = ", "°", 1},
                 {m_speedReadout, "ω = ", " rad/s", 2},
                 {m_energyReadout, "E = ", " J/kg", 2},
                 {m_periodReadout, "T₀ = ", " s", 2}};
    for (const auto& s : shown) {
        s.readout.setPrefix(s.prefix);
        s.readout.setSufix(s.suffix);
        s.readout.setFormat('f', s.precision);
        s.readout.getLabel()->setMinimumWidth(80);
        readouts->addWidget(s.readout.getLabel());
    }
    box->addWidget(readouts, 3, 0, 1, 5);
    return box;
}

QWidget* FrontEnd::buildPlateControls() {
    auto* box = new GroupBox;
    box->setTitle("Heated plate");
    box->setLayoutPolicy("Grid");
    box->addWidget(new QLabel("Heater position (m): drag or type"), 0, 0, 1, 3);
    const struct {
        lab::Control index;
        const char* axis;
    } axes[] = {{lab::SourceX, "x"}, {lab::SourceY, "y"}};
    for (int k = 0; k < 2; ++k) {
        NumberField* field = numberField(axes[k].index);
        box->addWidget(caption(axes[k].axis), k + 1, 0);
        box->addWidget(sliderFor(field, ""), k + 1, 1);
        box->addWidget(field, k + 1, 2);
    }
    gridOf(*box)->setColumnStretch(1, 1);

    auto* readouts = new Panel;
    readouts->layout()->setContentsMargins(0, 4, 0, 0);
    m_hottestReadout.setPrefix("hottest ");
    m_hottestReadout.setSufix(" °C");
    m_hottestReadout.setFormat('f', 1);
    m_meanReadout.setPrefix("mean ");
    m_meanReadout.setSufix(" °C");
    m_meanReadout.setFormat('f', 1);
    readouts->addWidget(m_hottestReadout.getLabel());
    readouts->addWidget(m_meanReadout.getLabel());
    box->addWidget(readouts, 3, 0, 1, 3);
    return box;
}

QWidget* FrontEnd::buildRunControls() {
    auto* box = new GroupBox;
    box->setTitle("Run");
    box->setLayoutPolicy("Grid");
    auto* pause = new PauseButton;
    pause->setChecked(true); // running, so the button offers "Pause"
    m_link->setPauseButtons(pause);
    auto* more = new QPushButton("More settings…");
    QObject::connect(more, &QPushButton::clicked, [this] {
        m_dialog->show();
        m_dialog->raise();
    });
    // The library's own statistics line: cycles per second, and per cycle
    // the wait for the server beside the render pass.
    m_status = new LinkStatus(m_link);
    m_status->setWordWrap(true);
    box->addWidget(pause, 0, 0);
    box->addWidget(more, 0, 1);
    box->addWidget(m_status, 1, 0, 1, 2);
    return box;
}

void FrontEnd::buildDialog() {
    m_dialog = new Dialog(&m_window);
    m_dialog->setWindowTitle("More settings");
    m_dialog->setVarName("settings");
    m_dialog->setLayoutPolicy("Grid");

    const lab::Control more[] = {lab::Gravity, lab::SourcePower, lab::Diffusivity,
                                 lab::EdgeTemperature};
    int row = 0;
    for (lab::Control c : more) {
        m_dialog->addWidget(caption(lab::field(c).label), row, 0);
        m_dialog->addWidget(numberField(c), row, 1);
        ++row;
    }

    auto* edges = new GroupBox;
    edges->setTitle("Plate edges");
    edges->setLayoutPolicy("VBox");
    auto* group = new ButtonGroup(edges);
    m_link->addGroup("edges", group);
    edges->addWidget(radioButton("held at the edge temperature", lab::EdgesHeld, group,
                                 lab::kEdgesAtStart == lab::EdgesHeld));
    edges->addWidget(radioButton("insulated", lab::EdgesInsulated, group,
                                 lab::kEdgesAtStart == lab::EdgesInsulated));
    m_dialog->addWidget(edges, row++, 0, 1, 2);

    // Only the front-end knows about this one: it hides the arrows.
    auto* arrows = new CheckBox;
    arrows->setText("Show the heat-flow arrows");
    arrows->setVarName("arrows");
    arrows->setChecked(true);
    m_link->setCheckBoxes(arrows);
    QObject::connect(arrows, &QCheckBox::toggled, [this](bool on) {
        {
            SceneLock lock; // the link thread may be changing the scene
            m_plate->getGlyphActor()->SetVisibility(on);
        }
        m_plateView->render();
    });
    m_dialog->addWidget(arrows, row++, 0, 1, 2);
}

void FrontEnd::afterCycle() {
    const QwtPlotCurve* angle = m_angle.getCurve();
    const QwtPlotCurve* speed = m_speed.getCurve();
    if (!angle || !speed)
        return;
    const int n = int(qMin(angle->dataSize(), speed->dataSize()));
    if (n == 0)
        return;
    m_phaseAngle->SetNumberOfValues(n);
    m_phaseSpeed->SetNumberOfValues(n);
    for (int i = 0; i < n; ++i) {
        m_phaseAngle->SetValue(i, angle->sample(size_t(i)).y());
        m_phaseSpeed->SetValue(i, speed->sample(size_t(i)).y());
    }
    m_phaseAngle->Modified();
    m_phaseSpeed->Modified();
    m_phase->Modified();
}

QVector<QWidget*> FrontEnd::openGlWidgets() const {
    return {m_pendulumView->canvas, m_plateView, m_phaseChart};
}
