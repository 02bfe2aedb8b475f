// The laboratory's front-end: a driven pendulum and a heated plate, computed
// by demo_server and shown here in 3-D views, plots, a chart and read-outs,
// with the controls that steer both simulations.
//
//   demo_client [--port P] [--cycles N] [--screenshot FILE] [--record FILE]
//               [--video FILE] [--verbose]
//
// --port P           the server's port on this machine (4848)
// --cycles N         close by itself after N cycles (0, the default: run until
//                    the window is closed)
// --screenshot FILE  with --cycles, save a picture of the window before closing
// --record FILE      record the session (replay it with orlavex-replay)
// --video FILE       write a video of the window, one frame per cycle
// --verbose          log the link's traffic to info.txt
// --reconnect        survive a lost link: retry, and resume when it is back
// --describe FILE    write what the front-end expects of the server (record
//                    numbers, kinds, fields, controls) as JSON, and exit
// --share URL LAB    share the lab with viewers through the NATS broker at URL
//                    (docs/share.md); the login comes from the environment:
//                    ORLAVEX_SHARE_USER, ORLAVEX_SHARE_PASSWORD, ORLAVEX_SHARE_CA
// --share-journal FILE  with --share: a line per published state, "CYCLE
//                    DIGEST", to check viewers against (orlavex-watch --digests)
//
// Each render pass overlaps the next exchange with the server, so a lab
// across a slow network runs at the network's pace, not at that plus the
// rendering. On closing it prints the cycles per second and, per cycle, the
// wait for the server and the render pass, from the link's own statistics.
#include "FrontEnd.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QPainter>
#include <QPixmap>

#include <QVTKOpenGLNativeWidget.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

struct Options {
    int port = 4848;
    int cycles = 0;
    QString screenshot;
    QString record;
    QString describe;
    QString video;
    bool verbose = false;
    bool reconnect = false;
    QString shareUrl;
    QString shareLab;
    QString shareJournal;
};

void usage(FILE* to) {
    std::fprintf(to,
                 "usage: demo_client [--port P] [--cycles N] [--screenshot FILE] [--record FILE]\n"
                 "                   [--video FILE] [--verbose] [--reconnect] [--describe FILE]\n"
                 "                   [--share URL LAB] [--share-journal FILE]\n");
}

Options parse(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (std::strcmp(argv[i], "--port") == 0 && hasValue)
            o.port = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--cycles") == 0 && hasValue)
            o.cycles = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--screenshot") == 0 && hasValue)
            o.screenshot = QString::fromLocal8Bit(argv[++i]);
        else if (std::strcmp(argv[i], "--describe") == 0 && hasValue)
            o.describe = QString::fromLocal8Bit(argv[++i]);
        else if (std::strcmp(argv[i], "--record") == 0 && hasValue)
            o.record = QString::fromLocal8Bit(argv[++i]);
        else if (std::strcmp(argv[i], "--video") == 0 && hasValue)
            o.video = QString::fromLocal8Bit(argv[++i]);
        else if (std::strcmp(argv[i], "--verbose") == 0)
            o.verbose = true;
        else if (std::strcmp(argv[i], "--reconnect") == 0)
            o.reconnect = true;
        else if (std::strcmp(argv[i], "--share") == 0 && i + 2 < argc) {
            o.shareUrl = QString::fromLocal8Bit(argv[++i]);
            o.shareLab = QString::fromLocal8Bit(argv[++i]);
        } else if (std::strcmp(argv[i], "--share-journal") == 0 && hasValue) {
            o.shareJournal = QString::fromLocal8Bit(argv[++i]);
        } else if (std::strcmp(argv[i], "--help") == 0) {
            usage(stdout);
            std::exit(0);
        } else {
            usage(stderr);
            std::exit(2);
        }
    }
    return o;
}

/// True when most of the image is black: an OpenGL widget that the window's
/// grab could not read back.
bool mostlyBlack(const QImage& image) {
    int black = 0, seen = 0;
    for (int y = 0; y < image.height(); y += 7)
        for (int x = 0; x < image.width(); x += 7, ++seen)
            black += (image.pixel(x, y) & 0xffffff) == 0;
    return seen > 0 && black > seen * 9 / 10;
}

/// The whole window as the user sees it. The 3-D views and the chart are
/// painted in from their own frame buffers where the window's grab shows
/// them black.
QImage screenshot(QWidget& window, const QVector<QWidget*>& glWidgets) {
    QImage shot = window.grab().toImage().convertToFormat(QImage::Format_RGB32);
    QPainter painter(&shot);
    for (QWidget* w : glWidgets) {
        const QRect area(w->mapTo(&window, QPoint(0, 0)), w->size());
        if (!mostlyBlack(shot.copy(area)))
            continue;
        if (auto* gl = qobject_cast<QOpenGLWidget*>(w))
            painter.drawImage(area, gl->grabFramebuffer());
    }
    return shot;
}

/// The link's statistics summed over the run (written on the link thread).
struct Totals {
    std::mutex lock;
    double waitMs = 0, renderMs = 0, parseMs = 0, applyMs = 0;
    int cycles = 0;
    qint64 sharePublished = 0, shareDropped = 0; // since the start
};

} // namespace

int main(int argc, char** argv) {
    // Before the QApplication exists. Describing needs no display.
    const bool describing = SurfaceFormat::hasArgument(argc, argv, "--describe");
    describing ? SurfaceFormat::prepareHeadless() : SurfaceFormat::prepare();
    QApplication app(argc, argv);
    const Options options = parse(argc, argv);

    MainWindow window;
    FrontEnd lab(window, describing
                             ? QString()
                             : QCoreApplication::applicationDirPath() + "/instructions.html");
    CommThread* link = window.commThread;
    link->setServerAddress("local");
    link->setServerPort(options.port);
    link->setVerbose(options.verbose);
    link->getSocket()->setVerbose(options.verbose);
    link->setOverlapRendering(true);
    link->setCycleLimit(options.cycles); // the server serves exactly --cycles
    if (options.reconnect) {
        CommThread::ReconnectPolicy policy;
        policy.enabled = true;
        link->setReconnect(policy);
    }
    if (!options.describe.isEmpty())
        return link->writeRegistry(options.describe) ? 0 : 1;
    if (!options.record.isEmpty())
        link->setRecordFile(options.record);
    if (!options.shareUrl.isEmpty()) {
        // The password stays off the command line, where any user could read it.
        ShareCredentials credentials;
        credentials.user = qEnvironmentVariable("ORLAVEX_SHARE_USER");
        credentials.password = qEnvironmentVariable("ORLAVEX_SHARE_PASSWORD");
        credentials.caFile = qEnvironmentVariable("ORLAVEX_SHARE_CA");
        link->setShare(options.shareUrl, options.shareLab, credentials);
        link->setShareJournal(options.shareJournal);
    }
    if (!options.video.isEmpty() && !window.setVideoFile(options.video))
        return 1;
    Totals totals;
    QObject::connect(
        link, &CommThread::cycleFinished, link,
        [&](const CycleStats& s) {
            std::lock_guard<std::mutex> guard(totals.lock);
            totals.waitMs += s.waitMs;
            totals.renderMs += s.renderMs;
            totals.parseMs += s.parseMs;
            totals.applyMs += s.applyMs;
            totals.sharePublished = s.sharePublished;
            totals.shareDropped = s.shareDropped;
            ++totals.cycles;
        },
        Qt::DirectConnection);

    // Runs on the GUI thread after each render pass that the link thread
    // asked for: the first follows the painting of the scene, then one per
    // cycle.
    QElapsedTimer clock;
    qint64 firstNs = 0, lastNs = 0;
    int cycles = -1;
    bool saved = false;
    QObject::connect(
        link, &CommThread::dataUpdated, &window,
        [&] {
            lab.afterCycle();
            ++cycles;
            lastNs = clock.nsecsElapsed();
            if (cycles == 0) {
                firstNs = lastNs;
                return;
            }
            if (options.cycles > 0 && cycles == options.cycles) {
                if (!options.screenshot.isEmpty()) {
                    saved = screenshot(window, lab.openGlWidgets()).save(options.screenshot);
                    if (!saved)
                        std::fprintf(stderr, "demo_client: cannot write %s\n",
                                     qPrintable(options.screenshot));
                }
                window.close();
            }
        },
        Qt::QueuedConnection);

    window.resize(1280, 900);
    window.show();
    clock.start();
    link->start();
    const int rc = app.exec();
    const bool failed = link->linkFailed(); // the library has said why on standard error
    delete window.commThread;               // ends the link thread promptly
    // Closing the window wrote "Closing windows" for the dialog, without a line end.
    std::printf("\n");
    std::fflush(stdout);

    if (cycles > 0) {
        const double wall = (lastNs - firstNs) * 1e-9;
        std::lock_guard<std::mutex> guard(totals.lock);
        const double n = qMax(totals.cycles, 1);
        std::printf("%d cycles in %.2f s: %.1f cycles/s\n", cycles, wall, cycles / wall);
        std::printf("  per cycle: server %.2f ms, render %.2f ms (overlapped with the next "
                    "exchange), parse %.2f ms, apply %.2f ms\n",
                    totals.waitMs / n, totals.renderMs / n, totals.parseMs / n, totals.applyMs / n);
        if (saved)
            std::printf("screenshot saved to %s\n", qPrintable(options.screenshot));
        if (!options.video.isEmpty())
            std::printf("video: %d frames to %s\n", window.videoFrames(),
                        qPrintable(options.video));
        if (!options.record.isEmpty())
            std::printf("session recorded to %s\n", qPrintable(options.record));
        if (!options.shareUrl.isEmpty())
            std::printf("shared as lab %s: %lld frames published, %lld states dropped\n",
                        qPrintable(options.shareLab), static_cast<long long>(totals.sharePublished),
                        static_cast<long long>(totals.shareDropped));
    }
    if (failed)
        return 1;
    if (options.cycles > 0 && cycles < options.cycles) {
        std::fprintf(stderr, "demo_client: the link ended after %d of %d cycles\n", qMax(cycles, 0),
                     options.cycles);
        return 1;
    }
    if (!options.screenshot.isEmpty() && options.cycles > 0 && !saved)
        return 1;
    return rc;
}
