// Scene objects rendered off screen: pixel probes on a coloured grid with
// its arrows and legend, on 3-D text, and renders of degenerate objects.
// A failing case leaves its image in <temp>/orlavex-screenshots; with
// ORLAVEX_KEEP_SCREENSHOTS set, every render does.
#include <Orlavex/scene/File3DSImporter.h>
#include <Orlavex/scene/PlanarGrid.h>
#include <Orlavex/scene/ScalarBar.h>
#include <Orlavex/scene/VectorText.h>

#include <QDir>
#include <QtTest>

#include <vtkCamera.h>
#include <vtkImageData.h>
#include <vtkPNGWriter.h>
#include <vtkRenderWindow.h>
#include <vtkRenderer.h>
#include <vtkSmartPointer.h>
#include <vtkWindowToImageFilter.h>

#include <functional>
#include <memory>

namespace {
struct Rgb {
    int r, g, b;
};

using Test = std::function<bool(const Rgb&)>;

bool white(const Rgb& c) {
    return c.r > 240 && c.g > 240 && c.b > 240;
}
bool red(const Rgb& c) {
    return c.r > 180 && c.g < 90 && c.b < 90;
}
bool blue(const Rgb& c) {
    return c.b > 180 && c.r < 90 && c.g < 90;
}
bool green(const Rgb& c) {
    return c.g > 120 && c.r < 90 && c.b < 90;
}
bool black(const Rgb& c) {
    return c.r < 70 && c.g < 70 && c.b < 70;
}
// Legend colours may be blended half with the white background.
bool bluish(const Rgb& c) {
    return c.b - c.r > 80;
}
bool reddish(const Rgb& c) {
    return c.r - c.b > 80;
}

QString fileTag() {
    QString tag = QString::fromLatin1(QTest::currentTestFunction());
    if (QTest::currentDataTag())
        tag += '-' + QString::fromLatin1(QTest::currentDataTag()).replace(' ', '_');
    return tag;
}

/// An off-screen render window with one white renderer, and its last image.
class View {
public:
    View(int width, int height) : m_width(width), m_height(height) {
        m_window->OffScreenRenderingOn();
        m_window->SetSize(width, height);
        m_window->AddRenderer(m_renderer);
        m_renderer->SetBackground(1, 1, 1);
    }

    vtkRenderer* renderer() const { return m_renderer; }
    vtkCamera* camera() const { return m_renderer->GetActiveCamera(); }

    void render() {
        m_window->Render();
        auto grab = vtkSmartPointer<vtkWindowToImageFilter>::New();
        grab->SetInput(m_window);
        grab->SetInputBufferTypeToRGB();
        grab->ReadFrontBufferOff();
        grab->Update();
        m_image = grab->GetOutput();
        if (qEnvironmentVariableIsSet("ORLAVEX_KEEP_SCREENSHOTS"))
            save(fileTag());
    }

    /// The pixel in column x and row y, rows counted from the top.
    Rgb pixel(int x, int y) const {
        auto* p = static_cast<unsigned char*>(m_image->GetScalarPointer(x, m_height - 1 - y, 0));
        return {p[0], p[1], p[2]};
    }

    /// Pixels within the box (rows from the top, ends included) that pass.
    int count(int x0, int y0, int x1, int y1, const Test& test) const {
        int n = 0;
        for (int y = qMax(y0, 0); y <= qMin(y1, m_height - 1); ++y)
            for (int x = qMax(x0, 0); x <= qMin(x1, m_width - 1); ++x)
                n += test(pixel(x, y)) ? 1 : 0;
        return n;
    }

    /// Saves the image under the test's name and returns the path.
    QString save(const QString& name) const {
        const QString dir = QDir::temp().filePath(QStringLiteral("orlavex-screenshots"));
        QDir().mkpath(dir);
        const QString path = QDir(dir).filePath(name + QStringLiteral(".png"));
        auto writer = vtkSmartPointer<vtkPNGWriter>::New();
        writer->SetFileName(path.toLocal8Bit().constData());
        writer->SetInputData(m_image);
        writer->Write();
        return path;
    }

    int width() const { return m_width; }
    int height() const { return m_height; }

private:
    int m_width, m_height;
    vtkSmartPointer<vtkRenderWindow> m_window = vtkSmartPointer<vtkRenderWindow>::New();
    vtkSmartPointer<vtkRenderer> m_renderer = vtkSmartPointer<vtkRenderer>::New();
    vtkSmartPointer<vtkImageData> m_image;
};

// Fails with the saved image's path when no pixel in the box passes.
#define EXPECT_PIXELS(view, x0, y0, x1, y1, test, what)                                            \
    do {                                                                                           \
        if ((view).count(x0, y0, x1, y1, test) == 0)                                               \
            QFAIL(qPrintable(QStringLiteral("no %1 pixel in (%2,%3)-(%4,%5); image: %6")           \
                                 .arg(what)                                                        \
                                 .arg(x0)                                                          \
                                 .arg(y0)                                                          \
                                 .arg(x1)                                                          \
                                 .arg(y1)                                                          \
                                 .arg((view).save(fileTag()))));                                   \
    } while (false)
} // namespace

class TestScreenshots : public QObject {
    Q_OBJECT

private slots:
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
        grid.setRenderer(view.renderer());
        grid.paint();
        legend.setRenderer(view.renderer());
        legend.paint();
        // 80 pixels per unit; world (x, y) is at column 250 + 80 (x − 2.5)
        // and row 200 − 80 (y − 2) from the top.
        view.camera()->ParallelProjectionOn();
        view.camera()->SetFocalPoint(2.5, 2, 0);
        view.camera()->SetPosition(2.5, 2, 10);
        view.camera()->SetViewUp(0, 1, 0);
        view.camera()->SetParallelScale(2.5);
        view.renderer()->ResetCameraClippingRange();
        view.render();

        auto column = [](double x) { return int(250 + 80 * (x - 2.5)); };
        auto row = [](double y) { return int(200 - 80 * (y - 2)); };
        // Cell 15 (upper right) red, cell 0 (lower left, beside its arrow) blue.
        EXPECT_PIXELS(view, column(3.4), row(3.6), column(3.6), row(3.4), red, "red");
        EXPECT_PIXELS(view, column(0.2), row(0.3), column(0.3), row(0.2), blue, "blue");
        QCOMPARE(view.count(column(3.3), row(3.7), column(3.7), row(3.3), blue), 0);
        // The arrow of cell 0 near its tip, and none in the top row of cells.
        EXPECT_PIXELS(view, column(1.0), row(0.55), column(1.15), row(0.45), green, "green");
        QCOMPARE(view.count(column(0), row(4), column(4), row(3.05), green), 0);
        // The legend: blue at its foot, red at its head, black labels or title.
        EXPECT_PIXELS(view, 400, 290, 475, 355, bluish, "bluish legend");
        EXPECT_PIXELS(view, 400, 45, 475, 110, reddish, "reddish legend");
        EXPECT_PIXELS(view, 400, 0, 499, 399, black, "black legend text");
        // Outside everything: white.
        QCOMPARE(view.count(0, 0, 40, 30, white), 41 * 31);
    }

    void textShowsNumber_data() {
        QTest::addColumn<double>("r");
        QTest::addColumn<double>("g");
        QTest::addColumn<double>("b");
        QTest::newRow("black") << 0.0 << 0.0 << 0.0;
        QTest::newRow("red") << 1.0 << 0.0 << 0.0;
    }
    void textShowsNumber() {
        QFETCH(double, r);
        QFETCH(double, g);
        QFETCH(double, b);
        const Test inColour = r > 0.5 ? Test(red) : Test(black);
        VectorText text;
        text.setText(7.5);
        text.setColor(r, g, b);
        View view(400, 200);
        text.setRenderer(view.renderer());
        text.paint();
        view.renderer()->ResetCamera();
        view.render();

        // Where the text's bounds land on the image.
        double bounds[6];
        text.getActor()->GetBounds(bounds);
        int box[4] = {view.width(), view.height(), 0, 0};
        for (double x : {bounds[0], bounds[1]})
            for (double y : {bounds[2], bounds[3]}) {
                view.renderer()->SetWorldPoint(x, y, 0, 1);
                view.renderer()->WorldToDisplay();
                const double* d = view.renderer()->GetDisplayPoint();
                box[0] = qMin(box[0], int(d[0]));
                box[2] = qMax(box[2], int(d[0]));
                box[1] = qMin(box[1], view.height() - 1 - int(d[1]));
                box[3] = qMax(box[3], view.height() - 1 - int(d[1]));
            }
        QVERIFY2(box[2] - box[0] > 50, qPrintable(view.save(fileTag())));
        const int coloured = view.count(box[0], box[1], box[2], box[3], inColour);
        const int area = (box[2] - box[0] + 1) * (box[3] - box[1] + 1);
        QVERIFY2(coloured > area / 20 && coloured < area * 3 / 4, qPrintable(view.save(fileTag())));
        QCOMPARE(view.count(box[0], 0, box[2], box[1] - 3, inColour), 0);
        // Four characters, the point below the middle: the middle row crosses
        // the strokes of "7", "5" and "0" and the gaps between them.
        int runs = 0;
        bool inside = false;
        const int middle = (box[1] + box[3]) / 2;
        for (int x = box[0]; x <= box[2]; ++x) {
            const bool hit = inColour(view.pixel(x, middle));
            runs += hit && !inside ? 1 : 0;
            inside = hit;
        }
        QVERIFY2(runs >= 3, qPrintable(QString::number(runs) + " runs; " + view.save(fileTag())));
        for (auto corner : {std::pair<int, int>{0, 0},
                            {view.width() - 1, 0},
                            {0, view.height() - 1},
                            {view.width() - 1, view.height() - 1}})
            QVERIFY2(white(view.pixel(corner.first, corner.second)),
                     qPrintable(view.save(fileTag())));
    }

    void degenerateObjectsRender_data() {
        QTest::addColumn<int>("nx");
        QTest::addColumn<int>("ny");
        QTest::addColumn<int>("nz");
        QTest::addColumn<int>("displayVectors");
        QTest::newRow("negative cells") << -3 << 2 << 0 << 1;
        QTest::newRow("no cells") << 0 << 0 << 0 << 1;
        QTest::newRow("one cell") << 1 << 1 << 1 << 1;
        QTest::newRow("no vectors") << 3 << 3 << 0 << 0;
    }
    void degenerateObjectsRender() {
        QFETCH(int, nx);
        QFETCH(int, ny);
        QFETCH(int, nz);
        QFETCH(int, displayVectors);
        float values[64] = {};
        PlanarGrid grid(0, 0, 0, 1, 1, 1, nx, ny, nz, values, values, 0.667f, 0, 1, 1, 1, 1, 1, 1,
                        0, 1, 1, 1, displayVectors);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("cannot import"));
        File3DSImporter missing("/nonexistent/model.3ds");
        VectorText empty;
        ScalarBar bareLegend; // painted before any table or layout
        View view(100, 100);
        for (DrawableI* d :
             std::initializer_list<DrawableI*>{&grid, &missing, &empty, &bareLegend}) {
            d->setRenderer(view.renderer());
            d->paint();
        }
        view.render();
        grid.setDimensions(0, 0, 0);
        grid.setLengthx(-1);
        view.render();
        QVERIFY(view.count(0, 0, 99, 99, white) > 0);
    }
};

QTEST_GUILESS_MAIN(TestScreenshots)
#include "tst_screenshots.moc"
