// Canvas and CanvasButtons with real rendering: stored camera settings, the
// button panel, the scene lock around every render and a screenshot.
#include <Orlavex/Orlavex.h>

#include "Fixtures.h"
#include "GuiTestMain.h"
#include "ScreenshotProbe.h"

#include "VtkHeaders.h"

#include <QPushButton>

#include <vtkCallbackCommand.h>

#include <thread>

namespace {
// Position, focal point, view up, clipping range and view angle.
QVector<double> view(vtkCamera* c) {
    QVector<double> v(11);
    c->GetPosition(&v[0]);
    c->GetFocalPoint(&v[3]);
    c->GetViewUp(&v[6]);
    c->GetClippingRange(&v[9]);
    v.back() = c->GetViewAngle();
    return v;
}

bool same(const QVector<double>& a, const QVector<double>& b) {
    for (int i = 0; i < a.size(); ++i)
        if (qAbs(a[i] - b[i]) > 1e-6)
            return false;
    return a.size() == b.size();
}

vtkCamera* active(Canvas* c) {
    return c->renderer->GetActiveCamera();
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
} // namespace

class TestCanvas : public QObject {
    Q_OBJECT

private slots:
    void restoreReturnsToSavedView_data() {
        QTest::addColumn<bool>("tenValues");
        QTest::newRow("move and clip") << false;
        QTest::newRow("SetCamera with ten values") << true;
    }
    // Each canvas has a renderer and window of its own. Restoring before
    // anything was saved keeps the present camera; after a save it returns to
    // the saved view.
    void restoreReturnsToSavedView() {
        QFETCH(bool, tenValues);
        Canvas canvas, other;
        QVERIFY(canvas.renderer != other.renderer && canvas.renderWindow() != other.renderWindow());
        vtkRendererCollection* renderers = canvas.renderWindow()->GetRenderers();
        QVERIFY(renderers->GetNumberOfItems() == 1 &&
                renderers->GetFirstRenderer() == canvas.renderer);
        addSphere(canvas.renderer, 1, 0, 0);
        vtkCamera* camera = active(&canvas);
        const QVector<double> initial = view(camera);
        canvas.SetCamera();
        canvas.SetCamera0();
        QVERIFY(active(&canvas) == camera && same(view(camera), initial));
        QVERIFY(fixture::show(canvas, {400, 300}));
        active(&canvas)->Elevation(20);
        active(&canvas)->SetClippingRange(0.125, 45.5);
        canvas.GetCamera();
        const QVector<double> saved = view(active(&canvas));
        if (tenValues) {
            canvas.SetCamera(0, 0, 10, 0, 0, 0, 0, 1, 0, 30);
            QCOMPARE(canvas.currentCamera(), active(&canvas));
            QVERIFY(same(view(active(&canvas)).mid(0, 9), {0, 0, 10, 0, 0, 0, 0, 1, 0}));
            QCOMPARE(active(&canvas)->GetViewAngle(), 30.0);
        } else {
            active(&canvas)->Azimuth(70);
            active(&canvas)->SetViewAngle(50);
            active(&canvas)->SetClippingRange(1.0, 2.0);
        }
        canvas.render();
        QVERIFY(!same(view(active(&canvas)), saved));
        canvas.SetCamera();
        canvas.render();
        QVERIFY(same(view(active(&canvas)), saved));
    }

    // At the start of every render a second thread tries the scene lock (the
    // mutex is recursive, so the probe must run elsewhere). The first paint
    // shows a red sphere on white.
    void everyRenderHoldsSceneLock() {
        Canvas canvas;
        addSphere(canvas.renderer, 1, 0, 0);
        static int renders, unlocked;
        renders = unlocked = 0;
        vtkNew<vtkCallbackCommand> command;
        command->SetCallback([](vtkObject*, unsigned long, void*, void*) {
            std::thread([] {
                if (SceneLock::mutex().try_lock()) {
                    SceneLock::mutex().unlock();
                    ++unlocked;
                }
            }).join();
            ++renders;
        });
        canvas.renderWindow()->AddObserver(vtkCommand::StartEvent, command);
        QVERIFY(fixture::show(canvas, {400, 300}));
        QImage image;
        auto centre = [&] { return image.pixelColor(image.width() / 2, image.height() / 2); };
        QTRY_VERIFY((image = canvas.grab().toImage(), probe::near(centre(), Qt::red)));
        PROBE_VERIFY(probe::near(image.pixelColor(2, 2), Qt::white, 10), image, "sphere");
        int before = renders;
        canvas.render();
        QTRY_VERIFY(renders > before);
        before = renders;
        const QVector<double> start = view(active(&canvas));
        const QPoint from(100, 100), to(300, 200);
        QMouseEvent press(QEvent::MouseButtonPress, from, Qt::LeftButton, Qt::LeftButton, {});
        QApplication::sendEvent(&canvas, &press);
        for (int i = 1; i <= 5; ++i) {
            QMouseEvent move(QEvent::MouseMove, from + (to - from) * i / 5, Qt::NoButton,
                             Qt::LeftButton, {});
            QApplication::sendEvent(&canvas, &move);
        }
        QMouseEvent release(QEvent::MouseButtonRelease, to, Qt::LeftButton, Qt::NoButton, {});
        QApplication::sendEvent(&canvas, &release);
        QTRY_VERIFY(renders > before);
        QVERIFY(!same(view(active(&canvas)), start)); // the drag turned the camera
        QCOMPARE(unlocked, 0);
    }

    void buttonPanel() {
        CanvasButtons panel;
        QCOMPARE(panel.renderer, panel.canvas->renderer);
        QCOMPARE((QStringList{panel.saveButton->text(), panel.restoreButton->text(),
                              panel.restoreInitialButton->text()}),
                 (QStringList{"Save camera settings", "Restore camera settings",
                              "Restore initial camera settings"}));
        addSphere(panel.renderer, 1, 1, 0);
        QVERIFY(fixture::show(panel, {400, 300}));
        // One row above the canvas: save, restore, restore initial.
        auto rect = [&](QWidget* w) { return QRect(w->mapTo(&panel, QPoint()), w->size()); };
        const QRect save = rect(panel.saveButton), restore = rect(panel.restoreButton),
                    initial = rect(panel.restoreInitialButton), canvas = rect(panel.canvas);
        QCOMPARE(restore.center().y(), save.center().y());
        QCOMPARE(initial.center().y(), save.center().y());
        QVERIFY(save.right() < restore.left() && restore.right() < initial.left());
        QVERIFY(save.bottom() < canvas.top());

        // Restore initial comes back after several saves and restores.
        Canvas* c = panel.canvas;
        c->GetCamera0();
        const QVector<double> start = view(active(c));
        for (int i = 0; i < 3; ++i) {
            active(c)->Azimuth(40);
            QTest::mouseClick(panel.saveButton, Qt::LeftButton);
            const QVector<double> saved = view(active(c));
            active(c)->Elevation(30);
            QTest::mouseClick(panel.restoreButton, Qt::LeftButton);
            QVERIFY(same(view(active(c)), saved));
        }
        QTest::mouseClick(panel.restoreInitialButton, Qt::LeftButton);
        panel.canvas->render();
        QVERIFY(same(view(active(c)), start));
    }
};

ORLAVEX_GUI_TEST_MAIN(TestCanvas)
#include "tst_canvas.moc"
