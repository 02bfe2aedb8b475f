// Scene objects rendered off screen and probed pixel by pixel: a half pipe
// among degenerate objects, and a coloured grid with its arrows and legend.
#include <Orlavex/Orlavex.h>

#include "ScreenshotProbe.h"

#include "VtkHeaders.h"

using namespace probe;

namespace {
QRect box(int x0, int y0, int x1, int y1) {
    return QRect(QPoint(x0, y0), QPoint(x1, y1));
}
} // namespace

class TestScreenshots : public QObject {
    Q_OBJECT

private slots:
    // Unpainted and empty objects in the same scene draw nothing and do not
    // upset the render.
    void halfPipeAmongDegenerateObjects() {
        View view(480, 240);
        HalfPipe pipe(1, 2, 6, 24, 2, 8);
        pipe.setColor(1, 0, 0);
        HalfPipe unpainted(0.5f, 1, 2, 12, 2, 2), noPoints(1, 2, 6, 0, 2, 8);
        unpainted.setColor(0, 0, 0);
        unpainted.setPosition(0, 3.2, 0);
        PolygonC emptyPolygon(0, nullptr);
        Line emptyLine(0, nullptr);
        float values[64] = {};
        PlanarGrid noCells(0, 0, 0, 1, 1, 1, -3, 2, 0, values, values, 0.667f, 0, 1, 1, 1, 1, 1, 1,
                           0, 1, 1, 1, 1);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("cannot import"));
        File3DSImporter missing("/nonexistent/model.3ds");
        VectorText emptyText;
        ScalarBar bareLegend; // painted before any table or layout
        for (DrawableI* d :
             std::initializer_list<DrawableI*>{&pipe, &noPoints, &emptyPolygon, &emptyLine,
                                               &noCells, &missing, &emptyText, &bareLegend}) {
            d->setRenderer(view.renderer);
            d->paint();
        }
        view.renderer->AddActor(unpainted.getActor()); // its grid has no points yet
        view.renderer->ResetCamera();
        QImage image = view.grab();
        // The centre of the pipe's bounds is on the floor of its trough.
        PROBE_VERIFY(red(image.pixelColor(view.project(0, 0, -1))), image, "pipe");
        PROBE_VERIFY(white(image.pixelColor(view.project(0, 3.2, -0.5))), image, "pipe");
        for (QPoint corner : {QPoint(1, 1), QPoint(478, 1), QPoint(1, 238), QPoint(478, 238)})
            PROBE_VERIFY(white(image.pixelColor(corner)), image, "pipe");

        noCells.setDimensions(0, 0, 0);
        noCells.setLengthx(-1);
        image = view.grab();
        PROBE_VERIFY(red(image.pixelColor(view.project(0, 0, -1))), image, "again");
    }

    void gridWithArrowsAndLegend() {
        // 4 × 4 cells over (0..4, 0..4), cell i coloured i on a blue-to-red
        // table over 0..15; nine green arrows 0.8 long pointing along +x from
        // the centres of the lower left 3 × 3 cells.
        float colors[16], magnitudes[16];
        for (int i = 0; i < 16; ++i) {
            colors[i] = float(i);
            magnitudes[i] = 1;
        }
        PlanarGrid grid(0, 0, 0, 4, 4, 0, 4, 4, 0, colors, magnitudes, 0.667f, 0, 1, 1, 1, 1, 1, 1,
                        0, 15, 1, 1, 1);
        grid.setVectorLUT(0.333f, 0.333f, 1, 1, 1, 1, 1, 1, 0, 1, 1, 1);
        grid.setScaleVector(0.8f);
        ScalarBar legend;
        legend.setLut(0.667f, 0, 0, 15, 1, 1);
        legend.setScalarBar("Value", 0.8f, 0.1f, 0.15f, 0.8f, 4, 64, "%.0f", 0);

        View view(500, 400);
        grid.setRenderer(view.renderer);
        grid.paint();
        legend.setRenderer(view.renderer);
        legend.paint();
        // 80 pixels per unit; world (x, y) is at column 250 + 80 (x − 2.5)
        // and row 200 − 80 (y − 2) from the top.
        vtkCamera* camera = view.renderer->GetActiveCamera();
        camera->ParallelProjectionOn();
        camera->SetFocalPoint(2.5, 2, 0);
        camera->SetPosition(2.5, 2, 10);
        camera->SetViewUp(0, 1, 0);
        camera->SetParallelScale(2.5);
        view.renderer->ResetCameraClippingRange();
        const QImage image = view.grab();

        auto at = [](double x0, double y0, double x1, double y1) {
            return box(int(250 + 80 * (x0 - 2.5)), int(200 - 80 * (y1 - 2)),
                       int(250 + 80 * (x1 - 2.5)), int(200 - 80 * (y0 - 2)));
        };
        // Cell 15 (upper right) red, cell 0 (lower left, beside its arrow) blue.
        PROBE_VERIFY(count(image, red, at(3.4, 3.4, 3.6, 3.6)) > 0, image, "grid");
        PROBE_VERIFY(count(image, blue, at(0.2, 0.2, 0.3, 0.3)) > 0, image, "grid");
        PROBE_VERIFY(count(image, blue, at(3.3, 3.3, 3.7, 3.7)) == 0, image, "grid");
        // The arrow of cell 0 near its tip, and none in the top row of cells.
        PROBE_VERIFY(count(image, green, at(1.0, 0.45, 1.15, 0.55)) > 0, image, "grid");
        PROBE_VERIFY(count(image, green, at(0, 3.05, 4, 4)) == 0, image, "grid");
        // The legend (blended half with the background): blue at its foot,
        // red at its head, and black labels or title.
        auto bluish = [](const QColor& c) { return c.blue() - c.red() > 80; };
        auto reddish = [](const QColor& c) { return c.red() - c.blue() > 80; };
        PROBE_VERIFY(count(image, bluish, box(400, 290, 475, 355)) > 0, image, "grid");
        PROBE_VERIFY(count(image, reddish, box(400, 45, 475, 110)) > 0, image, "grid");
        PROBE_VERIFY(count(image, black, box(400, 0, 499, 399)) > 0, image, "grid");
        PROBE_VERIFY(count(image, white, box(0, 0, 40, 30)) == 41 * 31, image, "grid");
    }
};

QTEST_GUILESS_MAIN(TestScreenshots)
#include "tst_screenshots.moc"
