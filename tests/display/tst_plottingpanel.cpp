// PlottingPanel: curve numbers, the order of the plotted inputs, text styles
// and screenshots of rendered charts.
#include <Orlavex/display/PlottingPanel.h>

#include "GuiTestMain.h"
#include "ScreenshotProbe.h"

#include <vtkDataObject.h>
#include <vtkDoubleArray.h>
#include <vtkFieldData.h>
#include <vtkRenderWindow.h>
#include <vtkRenderer.h>
#include <vtkSmartPointer.h>
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

vtkSmartPointer<vtkDataObject> level(double y) {
    return series({{0, y}, {10, y}});
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
    double c[3];
    p->GetColor(c);
    return QStringLiteral("%1,%2,%3 %4 bold %5 opacity %6")
        .arg(c[0])
        .arg(c[1])
        .arg(c[2])
        .arg(QString::fromLatin1(p->GetFontFamilyAsString()))
        .arg(p->GetBold())
        .arg(p->GetOpacity());
}

const QColor red(255, 0, 0), green(0, 204, 0), blue(0, 0, 255);
} // namespace

class TestPlottingPanel : public QObject {
    Q_OBJECT

private slots:
    void addTrailNumbersCurves() {
        PlottingPanel panel;
        auto a = level(1), b = level(2), c = level(3);
        QCOMPARE(panel.addTrail(a), 0);
        QCOMPARE(panel.addTrail(b), 1);
        QCOMPARE(panel.addTrail(c), 2);
        QCOMPARE(panel.plotActor->GetDataObjectXComponent(1), 0);
        QCOMPARE(panel.plotActor->GetDataObjectYComponent(1), 1);
        QCOMPARE(panel.addTrail(nullptr), -1);
        QCOMPARE(panel.addTrail(a), 3); // re-added: still the next number
    }

    void reAddingMovesObjectToEnd() {
        PlottingPanel panel;
        panel.renderer->AddActor(panel.plotActor);
        panel.plotActor->LegendOff(); // only the curves carry colour
        panel.plotActor->SetYRange(0, 4);
        auto a = level(1), b = level(2), c = level(3);
        for (auto* d : {a.Get(), b.Get(), c.Get()})
            panel.addTrail(d);
        panel.setTrailColor(0, 1, 0, 0);
        panel.setTrailColor(1, 0, 0.8, 0);
        panel.setTrailColor(2, 0, 0, 1);
        panel.setTrailColor(-1, 1, 1, 0); // ignored

        // Colours follow the input positions; lower rows are further down.
        QImage image = render(panel);
        PROBE_VERIFY(meanRow(image, red) > meanRow(image, green), image, "before");
        PROBE_VERIFY(meanRow(image, green) > meanRow(image, blue), image, "before");
        PROBE_VERIFY(meanRow(image, blue) > 0, image, "before");

        panel.addTrail(a); // inputs now b, c, a
        image = render(panel);
        PROBE_VERIFY(meanRow(image, blue) > meanRow(image, red), image, "after");
        PROBE_VERIFY(meanRow(image, red) > meanRow(image, green), image, "after");
        PROBE_VERIFY(meanRow(image, green) > 0, image, "after");
    }

    void titleTextPropertyChangesOnlyTitle() {
        PlottingPanel panel;
        const QString blackTimes = QStringLiteral("0,0,0 Times bold 0 opacity 1");
        QCOMPARE(style(panel.plotActor->GetTitleTextProperty()), blackTimes);
        vtkNew<vtkTextProperty> title;
        title->SetColor(1, 0, 0);
        title->BoldOn();
        const QString redBold = style(title);
        for (vtkTextProperty* p : {title.Get(), static_cast<vtkTextProperty*>(nullptr)}) {
            panel.setTitleTextProperty(p);
            panel.setAxisTitleTextProperty(nullptr); // null keeps the style
            panel.setAxisLabelTextProperty(nullptr);
            QCOMPARE(style(panel.plotActor->GetTitleTextProperty()), redBold);
            QCOMPARE(style(panel.plotActor->GetAxisTitleTextProperty()), blackTimes);
            QCOMPARE(style(panel.plotActor->GetAxisLabelTextProperty()), blackTimes);
            QCOMPARE(style(panel.textProperty), blackTimes);
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
        const int first = panel.addTrail(up);
        const int second = panel.addTrail(down);
        panel.setTrailColor(first, 1, 0, 0);
        panel.setTrailColor(second, 0, 0, 1);
        panel.setTrailLabel(first, "rising");
        panel.setTrailLabel(second, nullptr);
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
        const QImage top = image.copy(image.width() / 3, 0, image.width() / 3, image.height() / 6);
        PROBE_VERIFY(probe::count(top, Qt::black, 90) > 10, image, "chart");
    }
};

ORLAVEX_GUI_TEST_MAIN(TestPlottingPanel)
#include "tst_plottingpanel.moc"
