#pragma once

// Pixel probes for screenshot checks. A failing check writes the image to
// "screenshots/" under the working directory (the test's output directory);
// ORLAVEX_KEEP_SCREENSHOTS=1 writes every checked image there.

#include <QDir>
#include <QImage>
#include <QtTest>

#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkRenderWindow.h>
#include <vtkRenderer.h>
#include <vtkWindowToImageFilter.h>

namespace probe {
inline QString save(const QImage& image, const QString& name) {
    QDir dir(QDir::current().absoluteFilePath(QStringLiteral("screenshots")));
    dir.mkpath(QStringLiteral("."));
    QString tag = QString::fromLatin1(QTest::currentTestFunction());
    if (QTest::currentDataTag())
        tag += '-' + QString::fromLatin1(QTest::currentDataTag()).replace(' ', '_');
    const QString path = dir.absoluteFilePath(QStringLiteral("%1-%2.png").arg(tag, name));
    image.save(path);
    return path;
}

/// True when every channel of `c` is within `tol` of `want`.
inline bool near(const QColor& c, const QColor& want, int tol = 40) {
    return qAbs(c.red() - want.red()) <= tol && qAbs(c.green() - want.green()) <= tol &&
           qAbs(c.blue() - want.blue()) <= tol;
}

// Colour classes of rendered pixels, loose enough for shading and blending.
const auto red = [](QColor c) { return c.red() > 180 && c.green() < 90 && c.blue() < 90; };
const auto green = [](QColor c) { return c.green() > 120 && c.red() < 90 && c.blue() < 90; };
const auto blue = [](QColor c) { return c.blue() > 180 && c.red() < 90 && c.green() < 90; };
const auto black = [](QColor c) { return c.red() < 70 && c.green() < 70 && c.blue() < 70; };
const auto white = [](QColor c) { return c.red() > 240 && c.green() > 240 && c.blue() > 240; };

/// Number of pixels in `box` (the whole image when empty) that pass `test`.
template <class Test> int count(const QImage& image, Test test, QRect box = QRect()) {
    box = box.isNull() ? image.rect() : box.intersected(image.rect());
    int n = 0;
    for (int y = box.top(); y <= box.bottom(); ++y)
        for (int x = box.left(); x <= box.right(); ++x)
            n += test(image.pixelColor(x, y)) ? 1 : 0;
    return n;
}

/// Number of pixels within `tol` of `want`.
inline int count(const QImage& image, const QColor& want, int tol = 40, QRect box = QRect()) {
    return count(image, [&](const QColor& c) { return near(c, want, tol); }, box);
}

/// An off-screen VTK window with one white renderer; grab() renders it.
class View {
public:
    View(int width, int height) {
        window->OffScreenRenderingOn();
        window->SetSize(width, height);
        window->SetMultiSamples(0);
        window->AddRenderer(renderer);
        renderer->SetBackground(1, 1, 1);
    }
    /// The rendered image, top row first.
    QImage grab() {
        window->Render();
        vtkNew<vtkWindowToImageFilter> filter;
        filter->SetInput(window);
        filter->SetInputBufferTypeToRGB();
        filter->ReadFrontBufferOff();
        filter->Update();
        vtkImageData* data = filter->GetOutput();
        int dims[3];
        data->GetDimensions(dims);
        QImage image(static_cast<const uchar*>(data->GetScalarPointer()), dims[0], dims[1],
                     3 * dims[0], QImage::Format_RGB888);
        return image.mirrored();
    }
    /// Image position of a world point.
    QPoint project(double x, double y, double z) {
        renderer->SetWorldPoint(x, y, z, 1.0);
        renderer->WorldToDisplay();
        const double* d = renderer->GetDisplayPoint();
        return QPoint(qRound(d[0]), window->GetSize()[1] - 1 - qRound(d[1]));
    }
    vtkNew<vtkRenderWindow> window;
    vtkNew<vtkRenderer> renderer;
};
} // namespace probe

#define PROBE_VERIFY(cond, image, name)                                                            \
    do {                                                                                           \
        if (qEnvironmentVariableIsSet("ORLAVEX_KEEP_SCREENSHOTS"))                                 \
            probe::save(image, name);                                                              \
        if (!(cond))                                                                               \
            QFAIL(qPrintable(QStringLiteral(#cond " failed; image in ") +                          \
                             probe::save(image, name)));                                           \
    } while (false)
