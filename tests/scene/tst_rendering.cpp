// Scene objects really drawn: a red half pipe, a blue sphere and a green
// square polygon rendered offscreen on a white background. Probes at each
// object's projected centre must show its colour and the corners must stay
// white; unpainted and empty objects in the same scene must draw nothing and
// must not upset the render. On failure the image is saved as a PNG.
#include <Orlavex/scene/HalfPipe.h>
#include <Orlavex/scene/Line.h>
#include <Orlavex/scene/PolygonC.h>
#include <Orlavex/scene/Sphere.h>

#include <QDir>
#include <QImage>
#include <QtTest>

#include <vtkActor.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkRenderWindow.h>
#include <vtkRenderer.h>
#include <vtkWindowToImageFilter.h>

namespace {
const int width = 480, height = 240;

struct Rgb {
    int r, g, b;
};
} // namespace

class TestRendering : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void probes_data();
    void probes();
    void cleanupTestCase();

private:
    void render();
    Rgb pixel(int x, int y);
    /// Window position of a world point; false when it falls outside.
    bool project(const double world[3], int* x, int* y);
    void saveImage(const QString& why);

    vtkNew<vtkRenderWindow> window;
    vtkNew<vtkRenderer> renderer;
    vtkNew<vtkImageData> image;
    HalfPipe pipe{1, 2, 6, 24, 2, 8};
    HalfPipe unpainted{0.5f, 1, 2, 12, 2, 2};
    HalfPipe noPoints{1, 2, 6, 0, 2, 8};
    HalfPipe singleAngle{1, 2, 6, 1, 2, 8}; // a flat strip on the pipe's rim
    Sphere sphere;
    PolygonC square{4, QVector<float>{-8, -1, 0, -6, -1, 0, -6, 1, 0, -8, 1, 0}.data()};
    PolygonC emptyPolygon{0, nullptr};
    Line emptyLine{0, nullptr};
    bool failed = false;
};

void TestRendering::initTestCase() {
    window->SetOffScreenRendering(1);
    window->SetSize(width, height);
    window->SetMultiSamples(0);
    window->AddRenderer(renderer);
    renderer->SetBackground(1, 1, 1);

    pipe.setColor(1, 0, 0);
    singleAngle.setColor(1, 0, 0);
    sphere.setColor(0, 0, 1);
    sphere.setRadius(1.5);
    sphere.setThetaResolution(32);
    sphere.setPhiResolution(32);
    sphere.setPosition(6, 0, 0);
    square.setColor(0, 0.8, 0);
    unpainted.setColor(0, 0, 0);
    unpainted.setPosition(0, 3.2, 0);
    for (DrawableSource* d : std::initializer_list<DrawableSource*>{
             &pipe, &sphere, &square, &noPoints, &singleAngle, &emptyPolygon, &emptyLine}) {
        d->setRenderer(renderer);
        d->paint();
    }
    // On the renderer but never painted: its grid has no points yet.
    renderer->AddActor(unpainted.getActor());
    renderer->ResetCamera();
    render();
}

void TestRendering::render() {
    window->Render();
    vtkNew<vtkWindowToImageFilter> grab;
    grab->SetInput(window);
    grab->SetInputBufferTypeToRGB();
    grab->ReadFrontBufferOff();
    grab->Update();
    image->DeepCopy(grab->GetOutput());
}

Rgb TestRendering::pixel(int x, int y) {
    auto* p = static_cast<unsigned char*>(
        const_cast<vtkImageData*>(image.GetPointer())->GetScalarPointer(x, y, 0));
    return {p[0], p[1], p[2]};
}

bool TestRendering::project(const double world[3], int* x, int* y) {
    renderer->SetWorldPoint(world[0], world[1], world[2], 1.0);
    renderer->WorldToDisplay();
    const double* d = renderer->GetDisplayPoint();
    *x = qRound(d[0]);
    *y = qRound(d[1]);
    return *x >= 0 && *x < width && *y >= 0 && *y < height;
}

void TestRendering::saveImage(const QString& why) {
    QImage out(width, height, QImage::Format_RGB888);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const Rgb c = pixel(x, y);
            out.setPixel(x, height - 1 - y, qRgb(c.r, c.g, c.b)); // VTK rows run bottom-up
        }
    const QString path = QDir::current().absoluteFilePath("tst_scene_rendering.png");
    out.save(path);
    qWarning("%s; image saved to %s", qPrintable(why), qPrintable(path));
}

void TestRendering::probes_data() {
    QTest::addColumn<QVector<double>>("world");
    QTest::addColumn<QString>("colour");
    // Centres of the objects' bounds; the pipe's is on the floor of its trough.
    QTest::newRow("half pipe") << QVector<double>{0, 0, -1} << "red";
    QTest::newRow("sphere") << QVector<double>{6, 0, 0} << "blue";
    QTest::newRow("square") << QVector<double>{-7, 0, 0} << "green";
    QTest::newRow("unpainted pipe") << QVector<double>{0, 3.2, -0.5} << "white";
}

void TestRendering::probes() {
    QFETCH(QVector<double>, world);
    QFETCH(QString, colour);
    int x = 0, y = 0;
    QVERIFY2(project(world.constData(), &x, &y), "probe outside the window");
    const Rgb c = pixel(x, y);
    const QString seen = QString("%1 at (%2, %3) is rgb(%4, %5, %6)")
                             .arg(QTest::currentDataTag())
                             .arg(x)
                             .arg(y)
                             .arg(c.r)
                             .arg(c.g)
                             .arg(c.b);
    bool ok = false;
    if (colour == "red")
        ok = c.r > 150 && c.g < 90 && c.b < 90;
    else if (colour == "green")
        ok = c.g > 120 && c.r < 90 && c.b < 90;
    else if (colour == "blue")
        ok = c.b > 150 && c.r < 90 && c.g < 90;
    else
        ok = c.r > 245 && c.g > 245 && c.b > 245;
    // Every probe also checks that the four corners stay background.
    for (const auto& corner : {qMakePair(1, 1), qMakePair(width - 2, 1), qMakePair(1, height - 2),
                               qMakePair(width - 2, height - 2)}) {
        const Rgb w = pixel(corner.first, corner.second);
        ok = ok && w.r > 245 && w.g > 245 && w.b > 245;
    }
    if (!ok && !failed) {
        failed = true;
        saveImage(seen);
    }
    QVERIFY2(ok, qPrintable(seen + ", expected " + colour + " with white corners"));
}

void TestRendering::cleanupTestCase() {
    if (qEnvironmentVariableIsSet("ORLAVEX_SAVE_RENDERS"))
        saveImage("saved on request");
}

QTEST_GUILESS_MAIN(TestRendering)
#include "tst_rendering.moc"
