// Canvas and CanvasButtons under Xvfb with real rendering: the stored camera
// settings, the button panel, the scene lock around every render and a
// screenshot of a rendered scene.
#include <Orlavex/common/SceneLock.h>
#include <Orlavex/display/Canvas.h>
#include <Orlavex/display/CanvasButtons.h>

#include "GuiTestMain.h"
#include "ScreenshotProbe.h"

#include <QPushButton>
#include <QtTest>

#include <vtkActor.h>
#include <vtkCallbackCommand.h>
#include <vtkCamera.h>
#include <vtkNew.h>
#include <vtkPolyDataMapper.h>
#include <vtkProperty.h>
#include <vtkRenderWindow.h>
#include <vtkRenderer.h>
#include <vtkRendererCollection.h>
#include <vtkSphereSource.h>

#include <atomic>
#include <thread>

namespace {
using Settings = Canvas::CameraSettings;

Settings settingsOf(vtkCamera* cam) {
    Settings s;
    cam->GetPosition(s.position);
    cam->GetFocalPoint(s.focalPoint);
    cam->GetViewUp(s.viewUp);
    cam->GetClippingRange(s.clippingRange);
    s.viewAngle = cam->GetViewAngle();
    return s;
}

bool same(const Settings& a, const Settings& b) {
    auto eq = [](const double* x, const double* y, int n) {
        for (int i = 0; i < n; ++i)
            if (qAbs(x[i] - y[i]) > 1e-6)
                return false;
        return true;
    };
    return eq(a.position, b.position, 3) && eq(a.focalPoint, b.focalPoint, 3) &&
           eq(a.viewUp, b.viewUp, 3) && eq(a.clippingRange, b.clippingRange, 2) &&
           qAbs(a.viewAngle - b.viewAngle) < 1e-6;
}

void addSphere(vtkRenderer* renderer, double r, double g, double b) {
    vtkNew<vtkSphereSource> source;
    source->SetThetaResolution(32);
    source->SetPhiResolution(32);
    vtkNew<vtkPolyDataMapper> mapper;
    mapper->SetInputConnection(source->GetOutputPort());
    vtkNew<vtkActor> actor;
    actor->SetMapper(mapper);
    actor->GetProperty()->SetColor(r, g, b);
    renderer->AddActor(actor);
    renderer->ResetCamera();
}

void drag(QWidget* w, QPoint from, QPoint to) {
    QMouseEvent press(QEvent::MouseButtonPress, from, Qt::LeftButton, Qt::LeftButton,
                      Qt::NoModifier);
    QApplication::sendEvent(w, &press);
    for (int i = 1; i <= 5; ++i) {
        QMouseEvent move(QEvent::MouseMove, from + (to - from) * i / 5, Qt::NoButton,
                         Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(w, &move);
    }
    QMouseEvent release(QEvent::MouseButtonRelease, to, Qt::LeftButton, Qt::NoButton,
                        Qt::NoModifier);
    QApplication::sendEvent(w, &release);
}

// Counts the renders of a render window and those that ran without the scene
// lock held (probed from a second thread, since the mutex is recursive).
struct RenderWatch {
    int renders = 0;
    int unlocked = 0;
    vtkNew<vtkCallbackCommand> command;

    explicit RenderWatch(vtkRenderWindow* window) {
        command->SetClientData(this);
        command->SetCallback([](vtkObject*, unsigned long, void* data, void*) {
            auto* self = static_cast<RenderWatch*>(data);
            ++self->renders;
            bool free = false;
            std::thread probe([&free] {
                free = SceneLock::mutex().try_lock();
                if (free)
                    SceneLock::mutex().unlock();
            });
            probe.join();
            if (free)
                ++self->unlocked;
        });
        window->AddObserver(vtkCommand::StartEvent, command);
    }
};

void showCanvas(QWidget& w) {
    w.resize(400, 300);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
}
} // namespace

class TestCanvas : public QObject {
    Q_OBJECT

private slots:
    void newCanvasHasOwnWhiteRenderer() {
        Canvas a;
        Canvas b;
        double bg[3];
        a.renderer->GetBackground(bg);
        QCOMPARE(bg[0], 1.0);
        QCOMPARE(bg[1], 1.0);
        QCOMPARE(bg[2], 1.0);
        QCOMPARE(a.renderWindow()->GetRenderers()->GetNumberOfItems(), 1);
        QCOMPARE(a.renderWindow()->GetRenderers()->GetFirstRenderer(), a.renderer);
        QVERIFY(a.renderWindow() != b.renderWindow());
        QVERIFY(a.renderer != b.renderer);
        QCOMPARE(a.renderWindow()->GetInteractor(), a.interactor());
        QVERIFY(!a.savedCameraSettings());
        QVERIFY(!a.initialCameraSettings());
        QVERIFY(!a.currentCamera());
    }

    void restoreReturnsToSavedView_data() {
        QTest::addColumn<QString>("change");
        QTest::newRow("mouse drag") << "drag";
        QTest::newRow("programmatic move and clip") << "move";
        QTest::newRow("SetCamera with ten values") << "ten";
    }
    void restoreReturnsToSavedView() {
        QFETCH(QString, change);
        Canvas canvas;
        addSphere(canvas.renderer, 1, 0, 0);
        showCanvas(canvas);
        canvas.renderer->GetActiveCamera()->Elevation(20);
        canvas.renderer->GetActiveCamera()->SetClippingRange(0.125, 45.5);
        canvas.GetCamera();
        const Settings saved = settingsOf(canvas.renderer->GetActiveCamera());
        QVERIFY(canvas.savedCameraSettings());
        QVERIFY(same(*canvas.savedCameraSettings(), saved));

        if (change == "drag") {
            drag(&canvas, QPoint(200, 150), QPoint(320, 60));
        } else if (change == "move") {
            vtkCamera* cam = canvas.renderer->GetActiveCamera();
            cam->Azimuth(70);
            cam->Dolly(1.5);
            cam->SetViewAngle(50);
            cam->SetClippingRange(1.0, 2.0);
        } else {
            canvas.SetCamera(0, 0, 10, 0, 0, 0, 0, 1, 0, 30);
            vtkCamera* cam = canvas.renderer->GetActiveCamera();
            QCOMPARE(canvas.currentCamera(), cam);
            const Settings s = settingsOf(cam);
            const Settings want{{0, 0, 10}, {0, 0, 0}, {0, 1, 0}, {}, 30};
            for (int i = 0; i < 3; ++i) {
                QCOMPARE(s.position[i], want.position[i]);
                QCOMPARE(s.focalPoint[i], want.focalPoint[i]);
                QCOMPARE(s.viewUp[i], want.viewUp[i]);
            }
            QCOMPARE(s.viewAngle, 30.0);
            QVERIFY(same(*canvas.savedCameraSettings(), saved));
            QVERIFY(!canvas.initialCameraSettings());
        }
        canvas.render();
        QVERIFY(!same(settingsOf(canvas.renderer->GetActiveCamera()), saved));

        canvas.SetCamera();
        QCOMPARE(canvas.currentCamera(), canvas.renderer->GetActiveCamera());
        canvas.render();
        QVERIFY(same(settingsOf(canvas.renderer->GetActiveCamera()), saved));
    }

    void restoreInitialAfterSeveralSaves() {
        Canvas canvas;
        addSphere(canvas.renderer, 0, 0, 1);
        showCanvas(canvas);
        canvas.GetCamera0();
        const Settings initial = settingsOf(canvas.renderer->GetActiveCamera());
        QVERIFY(same(*canvas.initialCameraSettings(), initial));
        QVERIFY(same(*canvas.savedCameraSettings(), initial));
        for (int i = 0; i < 3; ++i) {
            canvas.renderer->GetActiveCamera()->Azimuth(25);
            canvas.renderer->GetActiveCamera()->Zoom(1.2);
            canvas.GetCamera();
            canvas.SetCamera(); // a fresh camera each time, as the restore button makes
        }
        const Settings lastSaved = *canvas.savedCameraSettings();
        QVERIFY(!same(lastSaved, initial));

        vtkCamera* active = canvas.renderer->GetActiveCamera();
        canvas.SetCamera0();
        QCOMPARE(canvas.renderer->GetActiveCamera(), active); // no new camera
        canvas.render();
        QVERIFY(same(settingsOf(canvas.renderer->GetActiveCamera()), initial));
        QVERIFY(same(*canvas.savedCameraSettings(), lastSaved));
    }

    void restoreFromUnwrittenGroupKeepsView() {
        Canvas canvas;
        addSphere(canvas.renderer, 0, 1, 0);
        vtkCamera* active = canvas.renderer->GetActiveCamera();
        const Settings before = settingsOf(active);
        canvas.SetCamera();
        canvas.SetCamera0();
        QCOMPARE(canvas.renderer->GetActiveCamera(), active);
        QVERIFY(same(settingsOf(active), before));
    }

    void everyRenderHoldsSceneLock() {
        Canvas canvas;
        addSphere(canvas.renderer, 1, 0, 0);
        RenderWatch watch(canvas.renderWindow());
        showCanvas(canvas);
        QTRY_VERIFY(watch.renders > 0); // the first paint

        int before = watch.renders;
        canvas.render();
        QTRY_VERIFY(watch.renders > before);

        before = watch.renders;
        vtkCamera* cam = canvas.renderer->GetActiveCamera();
        double from[3], to[3];
        cam->GetPosition(from);
        drag(&canvas, QPoint(100, 100), QPoint(300, 200));
        QTRY_VERIFY(watch.renders > before);
        cam->GetPosition(to);
        QVERIFY(qAbs(from[0] - to[0]) + qAbs(from[1] - to[1]) + qAbs(from[2] - to[2]) > 1e-3);

        before = watch.renders;
        canvas.resize(500, 380); // a new size renders again in the next paint
        QTRY_VERIFY(watch.renders > before);
        QCOMPARE(watch.unlocked, 0);
    }

    void screenshotShowsRedSphereOnWhite() {
        Canvas canvas;
        addSphere(canvas.renderer, 1, 0, 0);
        showCanvas(canvas);
        canvas.render();
        QImage image;
        QTRY_VERIFY(
            (image = canvas.grab().toImage(),
             probe::near(image.pixelColor(image.width() / 2, image.height() / 2), Qt::red)));
        const QColor centre = image.pixelColor(image.width() / 2, image.height() / 2);
        const QColor corner = image.pixelColor(2, 2);
        PROBE_VERIFY(probe::near(centre, Qt::red), image, "sphere");
        PROBE_VERIFY(probe::near(corner, Qt::white, 10), image, "sphere");
    }

    void buttonPanelLayout() {
        CanvasButtons panel;
        QCOMPARE(panel.renderer, panel.canvas->renderer);
        QCOMPARE(panel.saveButton->text(), QStringLiteral("Save camera settings"));
        QCOMPARE(panel.restoreButton->text(), QStringLiteral("Restore camera settings"));
        QCOMPARE(panel.restoreInitialButton->text(),
                 QStringLiteral("Restore initial camera settings"));
        showCanvas(panel);
        auto rect = [&](QWidget* w) { return QRect(w->mapTo(&panel, QPoint(0, 0)), w->size()); };
        const QRect save = rect(panel.saveButton);
        const QRect restore = rect(panel.restoreButton);
        const QRect initial = rect(panel.restoreInitialButton);
        const QRect canvas = rect(panel.canvas);
        QCOMPARE(restore.center().y(), save.center().y());
        QCOMPARE(initial.center().y(), save.center().y());
        QVERIFY(save.right() < restore.left());
        QVERIFY(restore.right() < initial.left());
        QVERIFY(save.bottom() < canvas.top());
        QVERIFY(canvas.height() > panel.height() / 2);
    }

    void buttonsOperateCamera() {
        CanvasButtons panel;
        addSphere(panel.renderer, 1, 1, 0);
        showCanvas(panel);
        Canvas* canvas = panel.canvas;
        canvas->GetCamera0();
        const Settings initial = *canvas->initialCameraSettings();

        canvas->renderer->GetActiveCamera()->Azimuth(40);
        QTest::mouseClick(panel.saveButton, Qt::LeftButton);
        const Settings saved = settingsOf(canvas->renderer->GetActiveCamera());
        QVERIFY(same(*canvas->savedCameraSettings(), saved));

        canvas->renderer->GetActiveCamera()->Elevation(30);
        vtkCamera* moved = canvas->renderer->GetActiveCamera();
        QTest::mouseClick(panel.restoreButton, Qt::LeftButton);
        QVERIFY(canvas->renderer->GetActiveCamera() != moved); // a new camera
        QVERIFY(same(settingsOf(canvas->renderer->GetActiveCamera()), saved));

        QTest::mouseClick(panel.restoreInitialButton, Qt::LeftButton);
        QVERIFY(same(settingsOf(canvas->renderer->GetActiveCamera()), initial));
    }
};

ORLAVEX_GUI_TEST_MAIN(TestCanvas)
#include "tst_canvas.moc"
