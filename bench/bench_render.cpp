// Render pass benchmark: the main window's render pass (what each cycle costs
// the GUI thread) for N = 1, 100 and 1000 spheres on one canvas, against a
// bare VTK pipeline measured in the same run: a vtkGenericOpenGLRenderWindow
// in a QVTKOpenGLNativeWidget of the same size, drawing the same actors (the
// same sources, transforms and properties, each through a mapper of its own,
// since a mapper keeps its buffers in one OpenGL context).
//
// Needs a display: run under xvfb-run -a -s "-screen 0 1280x1024x24 -noreset".
#include <Orlavex/Orlavex.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QMainWindow>
#include <QMetaObject>
#include <QVBoxLayout>

#include <QVTKOpenGLNativeWidget.h>
#include <vtkActor.h>
#include <vtkCamera.h>
#include <vtkGenericOpenGLRenderWindow.h>
#include <vtkNew.h>
#include <vtkPolyDataMapper.h>
#include <vtkRenderer.h>
#include <vtkSmartPointer.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

// Lets the windows map and their OpenGL widgets create their contexts.
void settle(QOpenGLWidget& a, QOpenGLWidget& b) {
    QElapsedTimer t;
    t.start();
    while ((!a.isValid() || !b.isValid()) && t.elapsed() < 10000)
        QApplication::processEvents(QEventLoop::AllEvents, 20);
    for (int k = 0; k < 10; ++k)
        QApplication::processEvents();
}

struct Result {
    double library = 0, bare = 0, counter = 0, ratio = 0;
    int passes = 0;
};

Result measure(int n, double seconds) {
    MainWindow window;
    window.setLayoutPolicy("VBox");
    auto* canvas = new Canvas;
    window.addWidget(canvas);
    window.commThread->setRenderer(canvas->renderer);
    window.commThread->setCanvas(canvas);

    // The spheres on a square lattice, each in a colour of its own.
    std::vector<std::unique_ptr<Sphere>> spheres;
    const int side = int(std::ceil(std::sqrt(double(n))));
    for (int i = 0; i < n; ++i) {
        spheres.emplace_back(new Sphere);
        Sphere& s = *spheres.back();
        s.setRenderer(canvas->renderer);
        s.setThetaResolution(16);
        s.setPhiResolution(16);
        s.setRadius(0.4);
        s.setPosition(i % side, i / side, 0);
        s.setColor(0.2 + 0.6 * (i % 7) / 6.0, 0.3, 0.9 - 0.6 * (i % 5) / 4.0);
        s.paint();
    }

    // The bare pipeline: the same actors, nothing of the library around them,
    // in a window built as the main window is (a top-level OpenGL widget is
    // shown differently from one inside a window).
    QMainWindow bareHost;
    auto* bareCentral = new QWidget;
    bareHost.setCentralWidget(bareCentral);
    auto* bareLayout = new QVBoxLayout(bareCentral);
    auto* bareWidget = new QVTKOpenGLNativeWidget;
    bareLayout->addWidget(bareWidget);
    QVTKOpenGLNativeWidget& bare = *bareWidget;
    vtkNew<vtkGenericOpenGLRenderWindow> bareWindow;
    bare.setRenderWindow(bareWindow);
    vtkNew<vtkRenderer> bareRenderer;
    bareRenderer->SetBackground(canvas->renderer->GetBackground());
    bareWindow->AddRenderer(bareRenderer);
    std::vector<vtkSmartPointer<vtkActor>> actors;
    for (const auto& s : spheres) {
        vtkActor* original = s->getActor();
        auto actor = vtkSmartPointer<vtkActor>::New();
        actor->ShallowCopy(original); // transform and property
        vtkNew<vtkPolyDataMapper> mapper;
        mapper->SetInputConnection(original->GetMapper()->GetInputConnection(0, 0));
        actor->SetMapper(mapper);
        bareRenderer->AddActor(actor);
        actors.push_back(actor);
    }

    window.resize(640, 480);
    window.show();
    QApplication::processEvents();
    bareHost.resize(window.size());
    bareHost.show();
    QApplication::processEvents();
    if (bare.size() != canvas->size())
        bare.setFixedSize(canvas->size());
    settle(*canvas, bare);

    const auto libraryPass = [&] {
        QMetaObject::invokeMethod(&window, "renderWindow", Qt::DirectConnection);
    };
    // The window's first passes frame the scene; the bare view takes that camera.
    for (int k = 0; k < 3; ++k)
        libraryPass();
    bareRenderer->GetActiveCamera()->DeepCopy(canvas->renderer->GetActiveCamera());
    for (int k = 0; k < 3; ++k)
        bareWindow->Render();
    QApplication::processEvents();

    // Alternate the two, so that a change in the machine's load meets both,
    // and compare each pass with its neighbour (the median of those ratios);
    // the widgets show each frame in between, as they would in a lab.
    std::vector<double> lib, raw, ratios;
    const int passes0 = window.renderPassCount();
    const double seconds0 = window.renderSeconds();
    QElapsedTimer total, one;
    total.start();
    const auto timed = [&](auto pass, std::vector<double>& into) {
        one.start();
        pass();
        into.push_back(one.nsecsElapsed() * 1e-6);
        QApplication::processEvents();
    };
    const auto barePass = [&] { bareWindow->Render(); };
    // Which of the two goes first changes every pair.
    for (int k = 0; (total.elapsed() < seconds * 1000 || k < 6) && k < 2000; ++k) {
        if (k % 2 == 0) {
            timed(libraryPass, lib);
            timed(barePass, raw);
        } else {
            timed(barePass, raw);
            timed(libraryPass, lib);
        }
        ratios.push_back(lib.back() / raw.back());
    }
    Result r;
    r.library = median(lib);
    r.bare = median(raw);
    r.ratio = median(ratios);
    r.passes = window.renderPassCount() - passes0;
    r.counter = (window.renderSeconds() - seconds0) * 1e3 / std::max(1, r.passes);
    if (canvas->size() != bare.size())
        std::printf("(sizes differ: canvas %dx%d, bare %dx%d)\n", canvas->width(),
                    canvas->height(), bare.width(), bare.height());
    static bool told = false;
    if (!told) {
        told = true;
        std::printf("canvas %dx%d pixels, multisamples: canvas %d, bare %d\n", canvas->width(),
                    canvas->height(), canvas->renderWindow()->GetMultiSamples(),
                    bareWindow->GetMultiSamples());
    }
    window.close();
    bareHost.close();
    return r;
}

} // namespace

int main(int argc, char** argv) {
    SurfaceFormat::prepare();
    QApplication app(argc, argv);
    std::printf("== render pass: MainWindow::renderWindow against a bare VTK render of the same "
                "actors (median ms per pass)\n");
    for (int n : {1, 100, 1000}) {
        const Result r = measure(n, n >= 1000 ? 8.0 : n >= 100 ? 5.0 : 3.0);
        std::printf("N=%4d  library %7.2f ms (own counter %7.2f ms, %d passes)  bare %7.2f ms  "
                    "time ratio %.2f (median of pairs; target <= 1.05)\n",
                    n, r.library, r.counter, r.passes, r.bare, r.ratio);
        std::fflush(stdout);
    }
    return 0;
}
