// A minimal front-end for minimal_server: a 3-D view with a red ball on a
// floor, a read-out of the ball's height, a number field for the gravity and a
// pause button.
//
//   minimal_client [--port P] [--cycles N]     N > 0 closes the window after N cycles
//   minimal_client --describe FILE             writes what it expects of the server
//                                              (records, fields, controls) as JSON
#include <Orlavex/Orlavex.h>

#include <QApplication>
#include <QLabel>

#include <atomic>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv) {
    // Before the QApplication exists. Describing needs no display.
    const bool describing = SurfaceFormat::hasArgument(argc, argv, "--describe");
    describing ? SurfaceFormat::prepareHeadless() : SurfaceFormat::prepare();
    QApplication app(argc, argv);
    int port = 4848, cycles = 0;
    const char* describe = nullptr;
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--describe") == 0)
            describe = argv[i + 1];
        if (std::strcmp(argv[i], "--port") == 0)
            port = std::atoi(argv[i + 1]);
        if (std::strcmp(argv[i], "--cycles") == 0)
            cycles = std::atoi(argv[i + 1]);
    }

    MainWindow window;
    window.setLayoutPolicy("VBox");

    auto* view = new CanvasButtons; // a 3-D canvas under three camera buttons
    window.addWidget(view);
    Sphere ball; // record 1: the server places it (p = 1: 10 numbers)
    ball.setRenderer(view->renderer);
    ball.setColor(1, 0, 0);
    ball.setThetaResolution(24);
    ball.setPhiResolution(24);
    ball.setInteractivelyPositioned(1);
    ball.setPosition(0, 2, 0); // its highest point: the window frames the scene on start
    Cube ground;               // never addressed by the server: drawn where the client puts it
    ground.setRenderer(view->renderer);
    ground.setXLength(2);
    ground.setYLength(0.1);
    ground.setZLength(1);
    ground.setPosition(0, -0.05, 0);
    ground.setColor(0.6, 0.6, 0.6);

    auto* controls = new Panel; // a row
    window.addWidget(controls);
    DisplayDouble height; // record 2: one number
    height.setPrefix("height ");
    height.setSufix(" m");
    controls->addWidget(height.getLabel());
    controls->addWidget(new QLabel("gravity (m/s²)"));
    auto* gravity = new NumberField; // sent as control 1 when the user presses Return
    gravity->setRange(0, 30);
    gravity->setValue(9.81);
    gravity->setIndex(1);
    gravity->setObjectName("gravity"); // what index 1 means, in the registry description
    controls->addWidget(gravity);
    auto* pause = new PauseButton;
    pause->setChecked(true); // the link runs from the start: offer "Pause"
    controls->addWidget(pause);

    CommThread* link = window.commThread;
    link->setRenderer(view->renderer);
    link->setCanvas(view->canvas);
    link->setDrawables(&ball);
    link->setDrawables(&ground);
    link->setSendingObjI(1, &ball);
    link->setSendingObjI(2, &height);
    link->setInteractiveControls(gravity);
    link->setPauseButtons(pause);
    link->setServerAddress("local");
    link->setServerPort(port);
    link->setCycleLimit(cycles); // the server serves exactly that many
    if (describe) // for server authors: orlavex.Registry.load(FILE) checks every record
        return link->writeRegistry(QString::fromLocal8Bit(describe)) ? 0 : 1;

    // Counted on the link thread after each render pass that it asked for:
    // one for the first painting of the scene, then one per cycle. The
    // window itself is closed on the GUI thread.
    std::atomic<int> passes{0};
    QObject::connect(
        link, &CommThread::dataUpdated, link,
        [&] {
            if (++passes == cycles + 1)
                QMetaObject::invokeMethod(&window, &QWidget::close, Qt::QueuedConnection);
        },
        Qt::DirectConnection);

    window.resize(480, 560);
    window.show();
    link->start();
    const int rc = app.exec();
    const bool failed = link->linkFailed(); // the library has said why on standard error
    delete window.commThread;               // ends the link thread promptly
    return failed ? 1 : rc;
}
