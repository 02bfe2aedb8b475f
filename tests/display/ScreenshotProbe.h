#pragma once

// Pixel probes for screenshot checks. Images are written to the test's
// output directory (the working directory, under "screenshots/") when a
// check fails, or always when ORLAVEX_KEEP_SCREENSHOTS is set.

#include <QColor>
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

inline void keepIfAsked(const QImage& image, const QString& name) {
    if (qEnvironmentVariableIsSet("ORLAVEX_KEEP_SCREENSHOTS"))
        save(image, name);
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

/// Fails the test with the path of the saved image when `cond` is false.
#define PROBE_VERIFY(cond, image, name)                                                            \
    do {                                                                                           \
        probe::keepIfAsked(image, name);                                                           \
        if (!(cond))                                                                               \
            QFAIL(qPrintable(QStringLiteral("%1 failed; image written to %2")                      \
                                 .arg(QStringLiteral(#cond), probe::save(image, name))));          \
    } while (false)
