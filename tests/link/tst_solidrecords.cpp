// Records of the solid kinds, applied through real cycles: every number of
// the positioned and colour blocks must reach its setter, for every
// combination of the positioned (p) and coloured (c) flags.
#include <Orlavex/link/CommThread.h>
#include <Orlavex/scene/Arrow.h>
#include <Orlavex/scene/Cone.h>
#include <Orlavex/scene/Cube.h>
#include <Orlavex/scene/Cylinder.h>
#include <Orlavex/scene/DiskSource.h>
#include <Orlavex/scene/Plane.h>
#include <Orlavex/scene/RegularPolygon.h>
#include <Orlavex/scene/Sphere.h>

#include "CycleServer.h"
#include "SignalCounter.h"
#include "GuiTestMain.h"

#include <vtkActor.h>
#include <vtkArrowSource.h>
#include <vtkConeSource.h>
#include <vtkCubeSource.h>
#include <vtkCylinderSource.h>
#include <vtkDiskSource.h>
#include <vtkProperty.h>
#include <vtkRegularPolygonSource.h>
#include <vtkSphereSource.h>

#include <functional>
#include <memory>

namespace {
// What a number becomes on its way: parsed as a float, widened to double.
double f(double v) { return double(float(v)); }

struct Kind {
    std::function<DrawableSource*()> make;
    int tailLength;
    // Checks that the tail numbers reached the kind's own setters.
    std::function<bool(DrawableSource*, const QVector<double>&)> tailApplied;
};

template <class T> T* as(DrawableSource* d) { return static_cast<T*>(d); }

QMap<QString, Kind> kinds() {
    QMap<QString, Kind> k;
    k["Sphere"] = {[] { return new Sphere; }, 1, [](DrawableSource* d, const QVector<double>& t) {
                       return as<Sphere>(d)->getSource()->GetRadius() == f(t[0]);
                   }};
    k["Cylinder"] = {[] { return new Cylinder; }, 2,
                     [](DrawableSource* d, const QVector<double>& t) {
                         auto* s = as<Cylinder>(d)->getSource();
                         return s->GetRadius() == f(t[0]) && s->GetHeight() == f(t[1]);
                     }};
    k["Cube"] = {[] { return new Cube; }, 3, [](DrawableSource* d, const QVector<double>& t) {
                     auto* s = as<Cube>(d)->getSource();
                     return s->GetXLength() == f(t[0]) && s->GetYLength() == f(t[1]) &&
                            s->GetZLength() == f(t[2]);
                 }};
    k["RegularPolygon"] = {[] { return new RegularPolygon; }, 4,
                           [](DrawableSource* d, const QVector<double>& t) {
                               auto* s = as<RegularPolygon>(d)->getSource();
                               const double* n = s->GetNormal();
                               return n[0] == f(t[0]) && n[1] == f(t[1]) && n[2] == f(t[2]) &&
                                      s->GetRadius() == f(t[3]);
                           }};
    k["DiskSource"] = {[] { return new DiskSource; }, 2,
                       [](DrawableSource* d, const QVector<double>& t) {
                           auto* s = as<DiskSource>(d)->getSource();
                           return s->GetInnerRadius() == f(t[0]) &&
                                  s->GetOuterRadius() == f(t[1]);
                       }};
    k["Arrow"] = {[] { return new Arrow; }, 1, [](DrawableSource* d, const QVector<double>& t) {
                      const double* s = d->getActor()->GetScale();
                      return s[0] == f(t[0]) && s[1] == f(t[0]) && s[2] == f(t[0]);
                  }};
    k["Cone"] = {[] { return new Cone; }, 2, [](DrawableSource* d, const QVector<double>& t) {
                     auto* s = as<Cone>(d)->getSource();
                     return s->GetRadius() == f(t[0]) && s->GetHeight() == f(t[1]);
                 }};
    k["Plane"] = {[] { return new Plane; }, 0,
                  [](DrawableSource*, const QVector<double>&) { return true; }};
    return k;
}

const QVector<double> kCommon{1.5, -2, 3.25, 0.5, 0.25, -1, 0, 0, 45};
const QVector<double> kTail{0.75, 1.25, 2.5, 0.6};
const QVector<double> kColour{0.2, 0.4, 0.6, 0.7, 0.3, 12, 0.8, 0.6, 0.1, 0.9, 0.5};
} // namespace

class TestSolidRecords : public QObject {
    Q_OBJECT
private slots:
    void layout_data() {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<int>("p");
        QTest::addColumn<int>("c");
        for (const QString& kind : kinds().keys())
            for (int p : {0, 1})
                for (int c : {0, 1})
                    QTest::addRow("%s p=%d c=%d", qPrintable(kind), p, c) << kind << p << c;
    }
    void layout() {
        QFETCH(QString, kind);
        QFETCH(int, p);
        QFETCH(int, c);
        const Kind k = kinds().value(kind);
        std::unique_ptr<DrawableSource> object(k.make());
        object->setInteractivelyPositioned(p);
        object->setInteractivelyColored(c);

        QVector<double> numbers;
        if (p)
            numbers << kCommon << kTail.mid(0, k.tailLength);
        if (c)
            numbers << kColour;
        QCOMPARE(numbers.size(), (9 + k.tailLength) * p + 11 * c);
        // The same record in two cycles: absolute values stay, turns add up.
        const QByteArray record = SimulationServer::record(1, numbers.constData(), numbers.size());
        CycleServer server([&](int) { return QVector<QByteArray>{record}; }, 2);
        CommThread thread;
        thread.setServerAddress("local");
        thread.setServerPort(server.port());
        thread.setSendingObjI(1, object.get());
        SignalCounter failed(&thread, &CommThread::connectionFailed);
        thread.start();
        QTRY_COMPARE(failed.count(), 1); // after the server's two cycles
        QCOMPARE(server.cycles(), 2);
        thread.shutdown();

        vtkActor* actor = object->getActor();
        vtkProperty* prop = object->getProperty();
        const double* pos = actor->GetPosition();
        const double* origin = actor->GetOrigin();
        const double* colour = prop->GetColor();
        const double* edge = prop->GetEdgeColor();
        if (p) {
            QCOMPARE(QVector<double>({pos[0], pos[1], pos[2]}), QVector<double>({1.5, -2, 3.25}));
            QCOMPARE(QVector<double>({origin[0], origin[1], origin[2]}),
                     QVector<double>({0.5, 0.25, -1}));
            QCOMPARE(actor->GetOrientation()[2], 90.0);
            QVERIFY(k.tailApplied(object.get(), kTail));
        } else {
            QCOMPARE(QVector<double>({pos[0], pos[1], pos[2]}), QVector<double>({0, 0, 0}));
            QCOMPARE(actor->GetOrientation()[2], 0.0);
        }
        if (c) {
            QCOMPARE(QVector<double>({colour[0], colour[1], colour[2]}),
                     QVector<double>({f(0.2), f(0.4), f(0.6)}));
            QCOMPARE(prop->GetDiffuse(), f(0.7));
            QCOMPARE(prop->GetSpecular(), f(0.3));
            QCOMPARE(prop->GetSpecularPower(), 12.0);
            QCOMPARE(prop->GetOpacity(), f(0.8));
            QCOMPARE(prop->GetEdgeVisibility(), 1);
            QCOMPARE(QVector<double>({edge[0], edge[1], edge[2]}),
                     QVector<double>({f(0.1), f(0.9), f(0.5)}));
        } else {
            QCOMPARE(QVector<double>({colour[0], colour[1], colour[2]}),
                     QVector<double>({1, 1, 1}));
        }
    }

    void edgeThreshold_data() {
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("visible");
        QTest::newRow("0.5") << 0.5 << 0;
        QTest::newRow("0.51") << 0.51 << 1;
        QTest::newRow("negative") << -1.0 << 0;
    }
    void edgeThreshold() {
        QFETCH(double, value);
        QFETCH(int, visible);
        Sphere sphere;
        sphere.setInteractivelyColored(1);
        QVector<double> colour = kColour;
        colour[7] = value;
        const QByteArray record = SimulationServer::record(1, colour.constData(), colour.size());
        CycleServer server([&](int) { return QVector<QByteArray>{record}; }, 1);
        CommThread thread;
        thread.setServerAddress("local");
        thread.setServerPort(server.port());
        thread.setSendingObjI(1, &sphere);
        SignalCounter failed(&thread, &CommThread::connectionFailed);
        thread.start();
        QTRY_COMPARE(failed.count(), 1);
        thread.shutdown();
        QCOMPARE(sphere.getProperty()->GetEdgeVisibility(), visible);
    }
};

ORLAVEX_GUI_TEST_MAIN(TestSolidRecords)
#include "tst_solidrecords.moc"
