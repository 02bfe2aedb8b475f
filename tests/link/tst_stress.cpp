// Many fast cycles against the server while the GUI thread renders the canvas
// without pause and drags its camera: the link thread's changes to the scene
// and the renders must never overlap. Meant to run under ThreadSanitizer too
// (scripts/test --sanitize thread), where any race is reported.
#include <Orlavex/Orlavex.h>

#include "CycleServer.h"
#include "GuiTestMain.h"

#include <QLabel>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <vector>

class TestStress : public QObject {
    Q_OBJECT
private slots:
    void rendersAndCyclesNeverOverlap() {
        const int cycles = qEnvironmentVariableIsSet("ORLAVEX_SANITIZER_RUN") ? 150 : 400;
        Canvas canvas;
        canvas.resize(320, 240);
        canvas.show();
        QVERIFY(QTest::qWaitForWindowExposed(&canvas));

        Sphere spheres[8];
        Cube cube;
        VectorText text;
        std::vector<float> zeros(16, 0.f);
        PlanarGrid grid(0, 0, 0, 4, 4, 0, 4, 4, 0, zeros.data(), zeros.data(), 0.667f, 0, 1, 1, 1,
                        1, 1, 1, 0, 1, 1, 1, 1);
        DisplayDouble readOut;
        NumberField field;
        // A main window takes the render passes and the widget changes, as in
        // a real front-end; between its passes this thread renders on its own.
        MainWindow window;
        window.setFrameSceneOnStart(false);
        CommThread& thread = *window.commThread;
        thread.setRenderer(canvas.renderer);
        thread.setCanvas(&canvas);
        QVector<DrawableI*> drawn{&cube, &text, &grid};
        for (int i = 0; i < 8; ++i) {
            spheres[i].setInteractivelyPositioned(1);
            spheres[i].setInteractivelyColored(1);
            thread.setSendingObjI(i + 1, &spheres[i]);
            drawn << &spheres[i];
        }
        for (DrawableI* d : drawn) {
            d->setRenderer(canvas.renderer);
            thread.setDrawables(d);
        }
        cube.setInteractivelyPositioned(1);
        text.setInteractiveValue(1);
        grid.setInteractivelyColored(1);
        field.setEnableInt(1);
        thread.setSendingObjI(20, &cube);
        thread.setSendingObjI(21, &text);
        thread.setSendingObjI(22, &grid);
        thread.setSendingObjI(23, &readOut);
        thread.setSendingObjI(24, &field);

        // The server keeps pace with the renders (one render for every few
        // cycles), so cycles and renders overlap however fast the machine is.
        std::mutex paceLock;
        std::condition_variable rendered;
        int renders = 0;
        CycleServer server(
            [&](int c) {
                {
                    std::unique_lock<std::mutex> guard(paceLock);
                    rendered.wait_for(guard, std::chrono::seconds(10),
                                      [&] { return renders >= c / 20; });
                }
                const double t = c * 0.05, on = c % 2;
                QVector<QByteArray> records;
                for (int i = 1; i <= 8; ++i) {
                    const double x = std::cos(t + i), y = std::sin(t + i), r = 0.3 + 0.05 * i;
                    const double v[21] = {x,   y,   0,   0,   0,  0, 1,   2, 3, r, 0.5,
                                          0.2, 0.9, 0.8, 0.3, 10, 1, 0.6, 0, 0, 0};
                    records << SimulationServer::record(i, v, 21);
                }
                const double cube[12] = {0, 0, -1, 0, 0, 0, 0, 0, 1, 1 + std::sin(t), 1, 0.2};
                std::vector<double> grid(16 + 48 + 1, 1.0); // magnitudes, vectors, scale
                for (int k = 0; k < 16; ++k)                // cell colours
                    grid.push_back(0.5 + 0.5 * std::sin(t + k));
                return records << SimulationServer::record(20, cube, 12)
                               << SimulationServer::record(21, &t, 1)
                               << SimulationServer::record(22, grid.data(), int(grid.size()))
                               << SimulationServer::record(23, &t, 1)
                               << SimulationServer::record(24, &on, 1);
            },
            cycles);
        thread.setServerAddress("local");
        thread.setServerPort(server.port());
        thread.start();

        // Render without pause, and drag the camera now and then, as a user would.
        while (!server.finished()) {
            canvas.render();
            {
                std::lock_guard<std::mutex> guard(paceLock);
                ++renders;
            }
            rendered.notify_all();
            if (renders % 5 == 0) {
                QTest::mousePress(&canvas, Qt::LeftButton, {}, QPoint(100, 100));
                QTest::mouseMove(&canvas, QPoint(110 + renders % 20, 105));
                QTest::mouseRelease(&canvas, Qt::LeftButton, {}, QPoint(110, 105));
            }
            QCoreApplication::processEvents();
        }
        QCOMPARE(server.cycles(), cycles);
        QVERIFY(renders >= (cycles - 1) / 20);
        QTRY_VERIFY(readOut.getLabel()->text() != QString()); // applied on this thread
        delete window.commThread;
    }
};

ORLAVEX_GUI_TEST_MAIN(TestStress)
#include "tst_stress.moc"
