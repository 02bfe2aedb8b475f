// The front-end of mpi_plate_server: the heated plate coloured by
// temperature, with its heater, a legend, read-outs of the hottest cell, the
// mean and the number of processes, and fields for the heater's position and
// power.
//
//   plate_client [--port P] [--cycles N] [--screenshot FILE] [--set CYCLE INDEX VALUE]...
//
// --port P                  the server's port on this machine (4848)
// --cycles N                close by itself after N cycles (0, the default: run
//                           until the window is closed)
// --screenshot FILE        with --cycles, save a picture of the window before closing
// --set CYCLE INDEX VALUE   after cycle CYCLE, enter VALUE in the field of control
//                           INDEX and press Return, as a user would: the change
//                           goes out in the next data message, so a scripted
//                           run sends the same messages every time
#include "PlateProtocol.h"

#include <Orlavex/Orlavex.h>

#include <QApplication>
#include <QImage>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>

#include <vtkProperty.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

namespace {

struct ScriptedChange {
    int afterCycle;
    int index;
    double value;
};

struct Options {
    int port = 4848;
    int cycles = 0;
    QString screenshot;
    std::vector<ScriptedChange> changes;
};

Options parse(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--port") == 0 && i + 1 < argc)
            o.port = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--cycles") == 0 && i + 1 < argc)
            o.cycles = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--screenshot") == 0 && i + 1 < argc)
            o.screenshot = QString::fromLocal8Bit(argv[++i]);
        else if (std::strcmp(argv[i], "--set") == 0 && i + 3 < argc) {
            o.changes.push_back(
                {std::atoi(argv[i + 1]), std::atoi(argv[i + 2]), std::atof(argv[i + 3])});
            i += 3;
        } else {
            std::fprintf(stderr, "usage: plate_client [--port P] [--cycles N] [--screenshot FILE] "
                                 "[--set CYCLE INDEX VALUE]...\n");
            std::exit(std::strcmp(argv[i], "--help") == 0 ? 0 : 2);
        }
    }
    return o;
}

/// A number field's value reaches the server only when Return is pressed in it.
void confirm(NumberField* field) {
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
    QCoreApplication::sendEvent(field, &press);
}

/// The window as the user sees it; the 3-D view is painted in from its own
/// frame buffer, which the window's grab may show black.
QImage screenshot(QWidget& window, Canvas* view) {
    QImage shot = window.grab().toImage().convertToFormat(QImage::Format_RGB32);
    QPainter painter(&shot);
    painter.drawImage(QRect(view->mapTo(&window, QPoint(0, 0)), view->size()),
                      view->grabFramebuffer());
    return shot;
}

} // namespace

int main(int argc, char** argv) {
    SurfaceFormat::prepare(); // before the QApplication exists
    QApplication app(argc, argv);
    const Options options = parse(argc, argv);

    MainWindow window;
    window.setWindowTitle("Orlavex: a heated plate computed by MPI processes");
    window.setLayoutPolicy("VBox");
    window.setFrameSceneOnStart(false); // the camera below frames the plate more closely

    auto* view = new Canvas;
    window.addWidget(view);
    vtkRenderer* renderer = view->renderer;

    // Record Grid: one temperature per cell (c = 1), blue (cold) to red (hot).
    std::vector<float> start(plate::cells, float(plate::edgeTemperature)), none(plate::cells, 0.0f);
    PlanarGrid grid(0.0f, 0.0f, 0.0f, float(plate::width), float(plate::height), 0.0f, plate::nx,
                    plate::ny, 0, start.data(), none.data(), 0.667f, 0.0f, 1.0f, 1.0f, 1.0f, 1.0f,
                    1.0f, 1.0f, float(plate::coldest), float(plate::hottest), 1, 1, 0);
    grid.setRenderer(renderer);
    grid.setEdgeVisibility(0);
    grid.setInteractivelyColored(1);

    // Record Heater: a cone above the plate pointing down at the heater (p = 1).
    Cone heater;
    heater.setRenderer(renderer);
    heater.setColor(1.0, 0.55, 0.1);
    heater.getProperty()->SetAmbient(0.3);
    heater.setResolution(24);
    heater.rotateY(90); // from +x to -z
    heater.setInteractivelyPositioned(1);

    ScalarBar legend;
    legend.setRenderer(renderer);
    legend.setLut(0.667f, 0.0f, float(plate::coldest), float(plate::hottest), 1, 1);
    legend.setScalarBar("T (°C)", 0.1f, 0.02f, 0.8f, 0.14f, 6, 64, "%.0f", 1);

    auto* readouts = new Panel; // a row
    window.addWidget(readouts);
    DisplayDouble hottest, mean, ranks;
    hottest.setPrefix("hottest ");
    hottest.setSufix(" °C");
    mean.setPrefix("mean ");
    mean.setSufix(" °C");
    ranks.setPrefix("MPI processes: ");
    ranks.setFormat('f', 0);
    for (DisplayDouble* d : {&hottest, &mean, &ranks})
        readouts->addWidget(d->getLabel());

    CommThread* link = window.commThread;
    auto* controls = new Panel; // a row
    window.addWidget(controls);
    std::map<int, NumberField*> fields;
    for (const plate::FieldSetup& setup : plate::kFields) {
        auto* field = new NumberField;
        field->setDecimals(setup.decimals);
        field->setSingleStep(setup.step);
        field->setRange(setup.minimum, setup.maximum);
        field->setValue(setup.value); // the server starts from the same values
        field->setIndex(setup.index);
        field->setToolTip("Type a value and press Return to send it");
        controls->addWidget(new QLabel(QString::fromUtf8(setup.label)));
        controls->addWidget(field);
        link->setInteractiveControls(field);
        fields[setup.index] = field;
    }
    auto* pause = new PauseButton;
    pause->setChecked(true); // the link runs from the start: offer "Pause"
    controls->addWidget(pause);

    link->setRenderer(renderer);
    link->setCanvas(view);
    for (Drawable* d : std::initializer_list<Drawable*>{&grid, &heater, &legend})
        link->setDrawables(d);
    link->setSendingObjI(plate::Grid, &grid);
    link->setSendingObjI(plate::Heater, &heater);
    link->setSendingObjI(plate::HottestReadout, &hottest);
    link->setSendingObjI(plate::MeanReadout, &mean);
    link->setSendingObjI(plate::RanksReadout, &ranks);
    link->setPauseButtons(pause);
    link->setServerAddress("local");
    link->setServerPort(options.port);
    view->SetCamera(0.6, -0.62, 1.8, 0.6, 0.32, 0, 0, 0.886, 0.464, 30);

    // Counted on the link thread after each render pass that it asked for:
    // the first follows the painting of the scene, then one per cycle. A
    // scripted change is typed in while the link thread waits, so it lands
    // in the data message of the next cycle, never one later.
    std::atomic<int> passes{0};
    bool saved = false;
    QObject::connect(
        link, &CommThread::dataUpdated, link,
        [&] {
            const int cycle = passes++; // cycles finished before this pass
            for (const ScriptedChange& c : options.changes) {
                const auto f = fields.find(c.index);
                if (c.afterCycle != cycle || f == fields.end())
                    continue;
                NumberField* field = f->second;
                QMetaObject::invokeMethod(
                    field,
                    [field, c] {
                        field->setValue(c.value);
                        confirm(field);
                    },
                    Qt::BlockingQueuedConnection);
            }
            if (options.cycles > 0 && cycle == options.cycles)
                QMetaObject::invokeMethod(
                    &window,
                    [&] {
                        if (!options.screenshot.isEmpty())
                            saved = screenshot(window, view).save(options.screenshot);
                        window.close();
                    },
                    Qt::QueuedConnection);
        },
        Qt::DirectConnection);

    window.resize(760, 640);
    window.show();
    link->start();
    const int rc = app.exec();
    const bool failed = link->linkFailed(); // the library has said why on standard error
    delete window.commThread;               // ends the link thread promptly
    if (failed)
        return 1;
    if (options.cycles > 0 && passes <= options.cycles) {
        std::fprintf(stderr, "plate_client: the link ended after %d of %d cycles\n",
                     qMax(passes - 1, 0), options.cycles);
        return 1;
    }
    if (options.cycles > 0 && !options.screenshot.isEmpty() && !saved) {
        std::fprintf(stderr, "plate_client: cannot write %s\n", qPrintable(options.screenshot));
        return 1;
    }
    return rc;
}
