// The main window: render-pass semantics, closing, and a whole
// front-end driven by the server class (canvas, trail plot and read-out
// screenshots). Its prompt shutdown is checked with the link thread's.
#include <Orlavex/Orlavex.h>

#include <cstdio>

#include "CycleServer.h"
#include "Fixtures.h"
#include "GuiTestMain.h"
#include "ScreenshotProbe.h"
#include "StdoutCapture.h"

#include <QElapsedTimer>
#include <QLabel>

#include <qwt_plot_curve.h>
#include <vtkCamera.h>

#include <thread>

using Window = fixture::OwningWindow;

namespace {
double initialCameraZ(Canvas& c) {
    return c.initialCameraSettings() ? c.initialCameraSettings()->position[2] : -1;
}

// Runs one render pass as the link thread asks for it.
void renderPass(Window& w) {
    QMetaObject::invokeMethod(&w, "renderWindow");
}
} // namespace

class TestMainWindow : public QObject {
    Q_OBJECT
private slots:
    // The first pass comes on the start timer or on the first dataUpdated(),
    // whichever is first; it and the second pass save the camera.
    void firstPasses_data() {
        QTest::addColumn<bool>("byData");
        QTest::newRow("on the timer") << false;
        QTest::newRow("on the first dataUpdated") << true;
    }
    void firstPasses() {
        QFETCH(bool, byData);
        Window w;
        w.setFrameSceneOnStart(false);
        Canvas canvas;
        w.commThread->setRenderer(canvas.renderer);
        w.commThread->setCanvas(&canvas);
        canvas.SetCamera(0, 0, 10, 0, 0, 0, 0, 1, 0, 30);
        QElapsedTimer timer;
        timer.start();
        w.setTimeStart(byData ? 60000 : 250.9);
        QCOMPARE(w.getTimeStart(), byData ? 60000 : 250.9);
        std::thread link([&] {
            if (byData)
                emit w.commThread->dataUpdated();
        });
        QTRY_VERIFY(canvas.initialCameraSettings().has_value());
        link.join();
        QVERIFY(byData || timer.elapsed() >= 250);
        QCOMPARE(initialCameraZ(canvas), 10.0);
        canvas.SetCamera(0, 0, 20, 0, 0, 0, 0, 1, 0, 30);
        renderPass(w); // second pass
        QCOMPARE(initialCameraZ(canvas), 20.0);
        canvas.SetCamera(0, 0, 30, 0, 0, 0, 0, 1, 0, 30);
        renderPass(w); // steady: only renders
        QCOMPARE(initialCameraZ(canvas), 20.0);
        canvas.SetCamera0();
        QCOMPARE(canvas.currentCamera()->GetPosition()[2], 20.0);
    }

    void browsersLoadedOnFirstPassOnly() {
        if (qEnvironmentVariableIsSet("ORLAVEX_SANITIZER_RUN"))
            QSKIP("QtWebEngine's Chromium does not start under the sanitizers");
        Window w;
        Browser browser;
        const char* address = "about:blank";
        browser.settingURL(address);
        QVERIFY(browser.url() != QUrl(address)); // the start page comes first
        w.commThread->setBrowser(&browser);
        QTRY_COMPARE_WITH_TIMEOUT(browser.url(), QUrl(address), 60000); // Chromium starts
        QVERIFY(browser.isVisible());
        browser.setUrl(QUrl("about:blank#later"));
        renderPass(w);
        renderPass(w);
        QCOMPARE(browser.url(), QUrl("about:blank#later"));
    }

    void closing() {
        Window w;
        Dialog a, b;
        w.commThread->setDialogs(&a);
        w.commThread->setDialogs(&b);
        w.show();
        a.show();
        b.show();
        QSignalSpy closingA(&a, &Dialog::closing);
        StdoutCapture out;
        // The text is out when the call returns, after what the application
        // printed before it and still held in stdio's buffer.
        std::fputs("before ", stdout);
        QMetaObject::invokeMethod(&w, "closeWindow"); // what a failed link does
        QCOMPARE(out.take(), QByteArray("before Closing windowsClosing windows"));
        QVERIFY(w.commThread->isStopped());
        QVERIFY(!w.isVisible());
        QVERIFY(!a.isVisible() && !b.isVisible());
        QCOMPARE(closingA.count(), 1);

        Window alone; // no dialogs: nothing written, close accepted
        alone.show();
        StdoutCapture quiet;
        QVERIFY(alone.close());
        QCOMPARE(quiet.take(), QByteArray());
    }

    // A whole front-end: the server moves a red sphere, feeds a trail and a
    // read-out; every cycle ends in a render pass and a re-plot.
    void endToEnd() {
        std::atomic<double> x{0.0};
        CycleServer server(
            [&](int cycle) {
                const double sphere[10] = {x.load(), 0, 0, 0, 0, 0, 0, 0, 0, 1};
                const double point[2] = {double(cycle), double(cycle % 7)};
                const double height = 2.5;
                return QVector<QByteArray>{SimulationServer::record(1, sphere, 10),
                                           SimulationServer::record(2, point, 2),
                                           SimulationServer::record(3, &height, 1)};
            },
            1000000);
        Window w;
        w.setFrameSceneOnStart(false);
        w.setLayoutPolicy("VBox");
        auto* view = new CanvasButtons;
        auto* plot = new PlottingPanelQwt;
        DisplayDouble readOut;
        readOut.setPrefix("h = ");
        readOut.setSufix(" m");
        w.addWidget(view);
        w.addWidget(plot);
        w.addWidget(readOut.getLabel());
        Sphere sphere;
        sphere.setRenderer(view->renderer);
        sphere.setColor(1, 0, 0);
        sphere.setInteractivelyPositioned(1);
        TrailQwt trail("height");
        trail.attachToPlot(plot);
        trail.getCurve()->setPen(QPen(Qt::blue, 3));
        CommThread* link = w.commThread;
        link->setRenderer(view->renderer);
        link->setCanvas(view->canvas);
        link->setPlot(plot);
        link->setDrawables(&sphere);
        link->setSendingObjI(1, &sphere);
        link->setSendingObjI(2, &trail);
        link->setSendingObjI(3, &readOut);
        view->canvas->SetCamera(0, 0, 10, 0, 0, 0, 0, 1, 0, 30);
        link->setServerAddress("local");
        link->setServerPort(server.port());
        QVERIFY(fixture::show(w, {600, 800}));
        link->start();

        QTRY_VERIFY_WITH_TIMEOUT(trail.getCurve()->dataSize() > 20, 60000);
        QTRY_COMPARE_WITH_TIMEOUT(readOut.getLabel()->text(), QStringLiteral("h = 2.50 m"), 60000);
        const QImage before = view->canvas->grabFramebuffer();
        const QPoint centre = before.rect().center();
        PROBE_VERIFY(probe::near(before.pixelColor(centre), Qt::red, 100), before, "before");
        PROBE_VERIFY(probe::near(before.pixelColor(2, 2), Qt::white, 25), before, "before");

        x = 1.6; // the next records move the sphere to the right
        QImage after;
        QTRY_VERIFY_WITH_TIMEOUT((after = view->canvas->grabFramebuffer(),
                                  probe::near(after.pixelColor(centre), Qt::white, 25)),
                                 60000);                                 // the sphere has gone
        const int right = centre.x() + int(1.6 / 5.36 * after.height()); // x = 1.6 in view units
        PROBE_VERIFY(probe::near(after.pixelColor(right, centre.y()), Qt::red, 100), after,
                     "after");

        // The trail plot shows the points sent: blue pixels on the plot canvas.
        const QImage plotted = plot->canvas()->grab().toImage();
        PROBE_VERIFY(probe::count(plotted, Qt::blue, 60) >= 20, plotted, "plot");
        delete link; // before the objects it writes to
        w.commThread = nullptr;
    }
};

ORLAVEX_GUI_TEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
