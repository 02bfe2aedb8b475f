// A front-end with one object of every record kind, for the Python package's
// tests: it shows what a server's records did to each object.
//
//   kinds_client [--port P] [--cycles N] [--describe FILE] [--state FILE] [--set INDEX=VALUE]...
//
//   --describe FILE   writes the registry description and exits without connecting
//   --cycles N        closes the window after N rendered cycles
//   --state FILE      on exit, writes what was applied, read back from each object
//   --set I=V         after the first render pass, sets control I to V as a user would
//
// Record numbers: 1 Sphere, 2 Cylinder, 3 Cube, 4 RegularPolygon, 5 PolygonC,
// 6 DiskSource, 7 Arrow, 8 Cone, 9 HalfPipe, 10 Plane, 11 VectorText,
// 12 PlanarGrid (4 x 3 cells, vectors), 13 TrailQwt (one point per batch),
// 14 TrailQwt (3 points per batch), 15 NumberField (enable flag),
// 16 DisplayDouble, 17 ScalarBar (read and ignored). Every solid and the text
// have p = 1 and c = 1. Controls: 1 a NumberField, 2 a RadioButton.
#include <Orlavex/Orlavex.h>

#include <QApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QKeyEvent>
#include <QLabel>

#include <qwt_plot_curve.h>

#include <vtkActor.h>
#include <vtkDiskSource.h>
#include <vtkFloatArray.h>
#include <vtkProperty.h>
#include <vtkRegularPolygonSource.h>
#include <vtkVectorText.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace {

QJsonArray array(const double* v, int n) {
    QJsonArray out;
    for (int i = 0; i < n; ++i)
        out.append(v[i]);
    return out;
}

QJsonArray array(vtkFloatArray* a) {
    QJsonArray out;
    for (vtkIdType i = 0; i < a->GetNumberOfValues(); ++i)
        out.append(double(a->GetValue(i)));
    return out;
}

void put3(QJsonObject& o, const char* name, const double* v) {
    o.insert(QString("%1.x").arg(name), v[0]);
    o.insert(QString("%1.y").arg(name), v[1]);
    o.insert(QString("%1.z").arg(name), v[2]);
}

/// Placement and colour block, under the registry's field names.
QJsonObject placed(const char* kind, DrawableSource& o) {
    QJsonObject s{{"kind", kind}};
    vtkActor* actor = o.getActor();
    put3(s, "position", actor->GetPosition());
    put3(s, "origin", actor->GetOrigin());
    s.insert("orientation", array(actor->GetOrientation(), 3));
    vtkProperty* p = o.getProperty();
    const double* c = p->GetColor();
    s.insert("color.r", c[0]);
    s.insert("color.g", c[1]);
    s.insert("color.b", c[2]);
    s.insert("diffuse", p->GetDiffuse());
    s.insert("specular", p->GetSpecular());
    s.insert("specularPower", p->GetSpecularPower());
    s.insert("opacity", p->GetOpacity());
    s.insert("edgeVisibility", p->GetEdgeVisibility());
    const double* e = p->GetEdgeColor();
    s.insert("edgeColor.r", e[0]);
    s.insert("edgeColor.g", e[1]);
    s.insert("edgeColor.b", e[2]);
    return s;
}

QJsonArray points(TrailQwt& t) {
    QJsonArray out;
    if (QwtPlotCurve* curve = t.getCurve())
        for (size_t i = 0; i < curve->dataSize(); ++i) {
            const QPointF p = curve->sample(int(i));
            out.append(QJsonArray{p.x(), p.y()});
        }
    return out;
}

} // namespace

int main(int argc, char** argv) {
    // Before the QApplication exists. Describing needs no display.
    const bool describing = SurfaceFormat::hasArgument(argc, argv, "--describe");
    describing ? SurfaceFormat::prepareHeadless() : SurfaceFormat::prepare();
    QApplication app(argc, argv);
    int port = 4848, cycles = 0;
    QString describePath, statePath;
    std::vector<std::pair<int, double>> sets;
    for (int i = 1; i + 1 < argc; ++i) {
        const char* value = argv[i + 1];
        if (std::strcmp(argv[i], "--port") == 0)
            port = std::atoi(value);
        else if (std::strcmp(argv[i], "--cycles") == 0)
            cycles = std::atoi(value);
        else if (std::strcmp(argv[i], "--describe") == 0)
            describePath = value;
        else if (std::strcmp(argv[i], "--state") == 0)
            statePath = value;
        else if (std::strcmp(argv[i], "--set") == 0 && std::strchr(value, '='))
            sets.emplace_back(std::atoi(value), std::atof(std::strchr(value, '=') + 1));
        else
            continue;
        ++i;
    }

    MainWindow window;
    window.setLayoutPolicy("VBox");
    auto* view = new CanvasButtons;
    window.addWidget(view);
    vtkRenderer* renderer = view->renderer;

    Sphere sphere;
    sphere.setRadius(0.3);
    Cylinder cylinder;
    cylinder.setRadius(0.2);
    cylinder.setHeight(0.5);
    Cube cube;
    RegularPolygon polygon;
    polygon.setNumberOfSides(6);
    float triangle[9] = {0, 0, 0, 0.5f, 0, 0, 0, 0.5f, 0};
    PolygonC polygonC(3, triangle);
    DiskSource disk;
    Arrow arrow;
    Cone cone;
    HalfPipe pipe(0.3f, 0.4f, 1.0f, 12, 2, 4);
    Plane plane;
    VectorText text;
    text.setInitText("v=");
    text.setFinalText(" m");
    text.setInteractiveValue(1);
    float cellValues[12] = {}, magnitudes[12] = {};
    PlanarGrid grid(0, 0, 0, 2, 1.5f, 0, 4, 3, 0, cellValues, magnitudes, 0.667f, 0, 1, 1, 1, 1,
                    1, 1, 0, 10, 1, 1, 1);

    struct Solid {
        int num;
        DrawableSource* object;
    };
    const Solid solids[] = {{1, &sphere}, {2, &cylinder}, {3, &cube},  {4, &polygon},
                            {5, &polygonC}, {6, &disk},   {7, &arrow}, {8, &cone},
                            {9, &pipe},   {10, &plane},   {11, &text}, {12, &grid}};
    CommThread* link = window.commThread;
    for (const Solid& s : solids) {
        s.object->setRenderer(renderer);
        s.object->setInteractivelyPositioned(1);
        s.object->setInteractivelyColored(1);
        link->setDrawables(s.object);
        link->setSendingObjI(s.num, s.object);
    }

    auto* plot = new PlottingPanelQwt;
    window.addWidget(plot);
    TrailQwt appended("appended"), replaced("replaced");
    replaced.setNReceivedPoints(3);
    for (TrailQwt* t : {&appended, &replaced})
        t->attachToPlot(plot);
    link->setPlot(plot);
    link->setSendingObjI(13, &appended);
    link->setSendingObjI(14, &replaced);

    auto* controls = new Panel;
    window.addWidget(controls);
    auto* switchable = new NumberField; // switched on and off by record 15
    switchable->setEnableInt(1);
    controls->addWidget(switchable);
    link->setSendingObjI(15, switchable);
    DisplayDouble readOut;
    controls->addWidget(readOut.getLabel());
    link->setSendingObjI(16, &readOut);
    ScalarBar legend;
    legend.setRenderer(renderer);
    legend.setLut(0.667f, 0, 0, 10, 1, 1);
    legend.setScalarBar("cells", 0.1f, 0.02f, 0.8f, 0.1f, 5, 64, "%.1f", 1);
    link->setDrawables(&legend);
    link->setSendingObjI(17, &legend);

    auto* field = new NumberField;
    field->setRange(-100, 100);
    field->setIndex(1);
    controls->addWidget(field);
    link->setInteractiveControls(field);
    auto* radio = new RadioButton;
    radio->setText("on");
    radio->setIndex(2);
    controls->addWidget(radio);
    link->setInteractiveControls(radio);

    if (!describePath.isEmpty()) {
        const bool written = link->writeRegistry(describePath);
        delete window.commThread;
        return written ? 0 : 1;
    }

    link->setRenderer(renderer);
    link->setCanvas(view->canvas);
    link->setServerAddress("local");
    link->setServerPort(port);

    // Counted on the link thread after each render pass: one for the first
    // painting, then one per cycle. The GUI work is queued to the GUI thread.
    std::atomic<int> passes{0};
    QObject::connect(
        link, &CommThread::dataUpdated, link,
        [&] {
            const int pass = ++passes;
            if (pass == 1 && !sets.empty())
                QMetaObject::invokeMethod(
                    &window,
                    [&] {
                        for (const auto& s : sets) {
                            if (s.first == field->getIndex()) {
                                // Typed, then confirmed with Return: what sends a value.
                                field->setValue(s.second);
                                QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
                                QApplication::sendEvent(field, &press);
                            } else if (s.first == radio->getIndex()) {
                                radio->setChecked(s.second > 0.5);
                            }
                        }
                    },
                    Qt::QueuedConnection);
            if (pass == cycles + 1)
                QMetaObject::invokeMethod(&window, &QWidget::close, Qt::QueuedConnection);
        },
        Qt::DirectConnection);

    window.resize(640, 720);
    window.show();
    link->start();
    const int rc = app.exec();
    delete window.commThread; // ends the link thread: the objects hold still from here

    if (statePath.isEmpty())
        return rc;
    QJsonObject state;
    auto add = [&](int num, QJsonObject o) { state.insert(QString::number(num), o); };
    QJsonObject s = placed("Sphere", sphere);
    s.insert("radius", sphere.getRadius());
    add(1, s);
    s = placed("Cylinder", cylinder);
    s.insert("radius", cylinder.getRadius());
    s.insert("height", cylinder.getHeight());
    add(2, s);
    s = placed("Cube", cube);
    s.insert("length.x", cube.getXLength());
    s.insert("length.y", cube.getYLength());
    s.insert("length.z", cube.getZLength());
    add(3, s);
    s = placed("RegularPolygon", polygon);
    put3(s, "normal", polygon.getSource()->GetNormal());
    s.insert("radius", polygon.getSource()->GetRadius());
    add(4, s);
    add(5, placed("PolygonC", polygonC));
    s = placed("DiskSource", disk);
    s.insert("innerRadius", disk.getSource()->GetInnerRadius());
    s.insert("outerRadius", disk.getSource()->GetOuterRadius());
    add(6, s);
    s = placed("Arrow", arrow);
    s.insert("scale", arrow.getActor()->GetScale()[0]);
    add(7, s);
    s = placed("Cone", cone);
    s.insert("radius", cone.getRadius());
    s.insert("height", cone.getHeight());
    add(8, s);
    s = placed("HalfPipe", pipe);
    s.insert("radiusMin", double(pipe.getRadiusMin()));
    s.insert("radiusMax", double(pipe.getRadiusMax()));
    s.insert("length", double(pipe.getLength()));
    add(9, s);
    add(10, placed("Plane", plane));
    s = placed("VectorText", text);
    s.insert("text", QString::fromUtf8(text.getSource()->GetText()));
    add(11, s);
    s = placed("PlanarGrid", grid);
    s.insert("length.x", double(grid.getLengthx()));
    s.insert("length.y", double(grid.getLengthy()));
    s.insert("length.z", double(grid.getLengthz()));
    s.insert("corner.x", double(grid.getX0()));
    s.insert("corner.y", double(grid.getY0()));
    s.insert("corner.z", double(grid.getZ0()));
    s.insert("magnitudes", array(grid.getMagnitudes()));
    s.insert("vectors", array(grid.getVectors()));
    s.insert("vectorScale", double(grid.getScaleVector()));
    s.insert("cells", array(grid.getScalars()));
    add(12, s);
    add(13, QJsonObject{{"kind", "TrailQwt"}, {"points", points(appended)}});
    add(14, QJsonObject{{"kind", "TrailQwt"}, {"points", points(replaced)}});
    add(15, QJsonObject{{"kind", "NumberField"}, {"enabled", switchable->isEnabled()}});
    add(16, QJsonObject{{"kind", "DisplayDouble"}, {"text", readOut.getLabel()->text()}});

    QFile out(statePath);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        out.write(QJsonDocument(state).toJson()) < 0) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(statePath));
        return 1;
    }
    return rc;
}
