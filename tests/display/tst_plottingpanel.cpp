// PlottingPanel: curve numbers, the order of the plotted inputs, text styles
// and a screenshot of a rendered chart.
#include <Orlavex/Orlavex.h>

#include "GuiTestMain.h"
#include "ScreenshotProbe.h"

#include <vtkDataObject.h>
#include <vtkDoubleArray.h>
#include <vtkFieldData.h>
#include <vtkTextProperty.h>
#include <vtkXYPlotActor.h>

namespace {
// A data object whose field data holds x in component 0 and y in component 1.
vtkSmartPointer<vtkDataObject> series(const QVector<QPointF>& points) {
    vtkNew<vtkDoubleArray> x, y;
    for (const QPointF& p : points) {
        x->InsertNextValue(p.x());
        y->InsertNextValue(p.y());
    }
    auto data = vtkSmartPointer<vtkDataObject>::New();
    data->GetFieldData()->AddArray(x);
    data->GetFieldData()->AddArray(y);
    return data;
}

QImage render(PlottingPanel& panel) {
    panel.resize(500, 400);
    panel.show();
    if (!QTest::qWaitForWindowExposed(&panel))
        return {};
    panel.renderWindow()->Render();
    return panel.grab().toImage();
}

// Mean row of the pixels of one colour; -1 when there are none.
double meanRow(const QImage& image, const QColor& colour) {
    double sum = 0;
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (probe::near(image.pixelColor(x, y), colour, 30)) {
                sum += y;
                ++n;
            }
    return n ? sum / n : -1;
}

// The plot actor may keep its own copies of the axis styles, so styles are
// compared by content.
QString style(vtkTextProperty* p) {
    const double* c = p->GetColor();
    return QStringLiteral("%1,%2,%3 %4 bold %5")
        .arg(c[0])
        .arg(c[1])
        .arg(c[2])
        .arg(QString::fromLatin1(p->GetFontFamilyAsString()))
        .arg(p->GetBold());
}

const QColor red(255, 0, 0), green(0, 204, 0), blue(0, 0, 255);
} // namespace

class TestPlottingPanel : public QObject {
    Q_OBJECT

private slots:
    void addTrailNumbersCurves() {
        PlottingPanel panel;
        auto a = series({{0, 1}, {10, 1}}), b = series({{0, 2}, {10, 2}});
        QCOMPARE(panel.addTrail(a), 0);
        QCOMPARE(panel.addTrail(b), 1);
        QCOMPARE(panel.addTrail(series({{0, 3}, {10, 3}})), 2);
        QCOMPARE(panel.plotActor->GetDataObjectYComponent(1), 1);
        QCOMPARE(panel.addTrail(nullptr), -1);
        QCOMPARE(panel.addTrail(a), 3); // re-added: still the next number
    }

    // Colours follow the input positions; re-adding moves an input to the end.
    void reAddingMovesObjectToEnd() {
        PlottingPanel panel;
        panel.renderer->AddActor(panel.plotActor);
        panel.plotActor->LegendOff(); // only the curves carry colour
        panel.plotActor->SetYRange(0, 4);
        auto a = series({{0, 1}, {10, 1}}), b = series({{0, 2}, {10, 2}}),
             c = series({{0, 3}, {10, 3}});
        for (auto* d : {a.Get(), b.Get(), c.Get()})
            panel.addTrail(d);
        panel.setTrailColor(0, 1, 0, 0);
        panel.setTrailColor(1, 0, 0.8, 0);
        panel.setTrailColor(2, 0, 0, 1);
        panel.setTrailColor(-1, 1, 1, 0); // ignored
        panel.addTrail(a);                // inputs now b, c, a: red, green, blue
        const QImage image = render(panel);
        // Lower levels are further down.
        PROBE_VERIFY(meanRow(image, blue) > meanRow(image, red), image, "after");
        PROBE_VERIFY(meanRow(image, red) > meanRow(image, green), image, "after");
        PROBE_VERIFY(meanRow(image, green) > 0, image, "after");
    }

    void titleTextPropertyChangesOnlyTitle() {
        PlottingPanel panel;
        const QString blackTimes = QStringLiteral("0,0,0 Times bold 0");
        vtkNew<vtkTextProperty> title;
        title->SetColor(1, 0, 0);
        title->BoldOn();
        for (vtkTextProperty* p : {title.Get(), static_cast<vtkTextProperty*>(nullptr)}) {
            panel.setTitleTextProperty(p); // null keeps the style
            panel.setAxisTitleTextProperty(nullptr);
            QCOMPARE(style(panel.plotActor->GetTitleTextProperty()), style(title));
            QCOMPARE(style(panel.plotActor->GetAxisTitleTextProperty()), blackTimes);
            QCOMPARE(style(panel.plotActor->GetAxisLabelTextProperty()), blackTimes);
        }
    }

    void screenshotShowsTitledChartWithBothColours() {
        PlottingPanel panel;
        QVector<QPointF> rising, falling;
        for (int i = 0; i <= 20; ++i) {
            rising << QPointF(i, i * 0.5);
            falling << QPointF(i, 10 - i * 0.4);
        }
        auto up = series(rising), down = series(falling);
        panel.setTrailColor(panel.addTrail(up), 1, 0, 0);
        panel.setTrailColor(panel.addTrail(down), 0, 0, 1);
        panel.setTrailLabel(0, "rising");
        panel.setTrailLabel(1, nullptr);
        panel.setTitle("Two curves");
        panel.legendOn();
        // Until the client puts the chart on the renderer, the panel is blank white.
        QImage image = render(panel);
        PROBE_VERIFY(!image.isNull() &&
                         probe::count(image, Qt::white, 5) == image.width() * image.height(),
                     image, "blank");

        panel.renderer->AddActor(panel.plotActor);
        image = render(panel);
        PROBE_VERIFY(probe::count(image, red, 30) > 200, image, "chart");
        PROBE_VERIFY(probe::count(image, blue, 30) > 200, image, "chart");
        // The title is the only dark text in the middle of the top band.
        const QRect top(image.width() / 3, 0, image.width() / 3, image.height() / 6);
        PROBE_VERIFY(probe::count(image, Qt::black, 90, top) > 10, image, "chart");
    }
};

ORLAVEX_GUI_TEST_MAIN(TestPlottingPanel)
#include "tst_plottingpanel.moc"
