#pragma once

// Pixel probes for screenshot checks. A failing check writes the image to
// "screenshots/" under the working directory (the test's output directory);
// ORLAVEX_KEEP_SCREENSHOTS=1 writes every checked image there.

#include <QDir>
#include <QImage>
#include <QtTest>

namespace probe {
inline QString save(const QImage& image, const QString& name) {
    QDir dir(QDir::current().absoluteFilePath(QStringLiteral("screenshots")));
    dir.mkpath(QStringLiteral("."));
    const QString path = dir.absoluteFilePath(
        QStringLiteral("%1-%2.png").arg(QString::fromLatin1(QTest::currentTestFunction()), name));
    image.save(path);
    return path;
}

/// True when every channel of `c` is within `tol` of `want`.
inline bool near(const QColor& c, const QColor& want, int tol = 40) {
    return qAbs(c.red() - want.red()) <= tol && qAbs(c.green() - want.green()) <= tol &&
           qAbs(c.blue() - want.blue()) <= tol;
}

/// Number of pixels within `tol` of `want`.
inline int count(const QImage& image, const QColor& want, int tol = 40) {
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            n += near(image.pixelColor(x, y), want, tol) ? 1 : 0;
    return n;
}
} // namespace probe

#define PROBE_VERIFY(cond, image, name)                                                            \
    do {                                                                                           \
        if (qEnvironmentVariableIsSet("ORLAVEX_KEEP_SCREENSHOTS"))                                 \
            probe::save(image, name);                                                              \
        if (!(cond))                                                                               \
            QFAIL(qPrintable(QStringLiteral(#cond " failed; image in ") +                          \
                             probe::save(image, name)));                                           \
    } while (false)
