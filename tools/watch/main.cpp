// orlavex-watch: follows a shared lab (CommThread::setShare) through its NATS
// broker, as a viewer does, and says how it goes.
//
//   orlavex-watch URL LAB [--user U] [--password P] [--ca FILE] [--insecure]
//                         [--print] [--digests] [--cycles N] [--timeout S]
//
// Once a second it prints the lab's cycle, the lag behind the controller and
// what the viewer counted; with --print it prints the state after each frame,
// with --digests a line "digest CYCLE DIGEST" per state it reached, to compare
// with the controller's journal (CommThread::setShareJournal).
// Exit codes: 0 --cycles reached, 1 cannot join, 2 wrong usage, 3 --timeout
// passed first. Without --cycles it runs until it is interrupted.
#include <Orlavex/share/ShareFrame.h>
#include <Orlavex/share/ShareViewer.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QStringList>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <mutex>

using Orlavex::ShareCredentials;
using Orlavex::ShareFrame;
using Orlavex::ShareState;
using Orlavex::ShareViewer;

namespace {

const char kUsage[] =
    "usage: orlavex-watch URL LAB [--user U] [--password P] [--ca FILE] [--insecure]\n"
    "                             [--print] [--digests] [--cycles N] [--timeout S]\n"
    "  URL           the broker, tls://host:port (or nats://host:port without TLS)\n"
    "  LAB           the lab's name, as the front-end shares it\n"
    "  --user U      broker user (default: viewer)\n"
    "  --password P  its password (default: $ORLAVEX_SHARE_PASSWORD)\n"
    "  --ca FILE     the CA that signed the broker's certificate (TLS)\n"
    "  --insecure    TLS without checking the broker's certificate (tests only)\n"
    "  --print       print the state after every frame\n"
    "  --digests     print \"digest CYCLE DIGEST\" for every state reached\n"
    "  --cycles N    leave after N frames\n"
    "  --timeout S   give up (exit 3) when --cycles has not been reached in S seconds\n";

struct Options {
    QString url;
    QString lab;
    ShareCredentials credentials;
    bool print = false;
    bool digests = false;
    qint64 cycles = 0;
    double timeout = 0;
};

[[noreturn]] void quit(int code, const QString& message) {
    std::fprintf(stderr, "orlavex-watch: %s\n", qPrintable(message));
    std::exit(code);
}

Options parse(const QStringList& args) {
    Options o;
    o.credentials.user = QStringLiteral("viewer");
    o.credentials.password = qEnvironmentVariable("ORLAVEX_SHARE_PASSWORD");
    QStringList positional;
    for (int i = 1; i < args.size(); ++i) {
        const QString& a = args[i];
        const bool more = i + 1 < args.size();
        bool ok = true;
        if (a == "--user" && more)
            o.credentials.user = args[++i];
        else if (a == "--password" && more)
            o.credentials.password = args[++i];
        else if (a == "--ca" && more)
            o.credentials.caFile = args[++i];
        else if (a == "--insecure")
            o.credentials.insecure = true;
        else if (a == "--print")
            o.print = true;
        else if (a == "--digests")
            o.digests = true;
        else if (a == "--cycles" && more)
            o.cycles = args[++i].toLongLong(&ok);
        else if (a == "--timeout" && more)
            o.timeout = args[++i].toDouble(&ok);
        else if (a == "-h" || a == "--help")
            std::fputs(kUsage, stdout), std::exit(0);
        else if (a.startsWith("--"))
            ok = false;
        else
            positional << a;
        if (!ok || o.cycles < 0 || o.timeout < 0) {
            std::fputs(kUsage, stderr);
            quit(2, QStringLiteral("cannot use %1").arg(a));
        }
    }
    if (positional.size() != 2) {
        std::fputs(kUsage, stderr);
        std::exit(2);
    }
    o.url = positional[0];
    o.lab = positional[1];
    return o;
}

QString numbers(const double* v, std::size_t n) {
    QStringList out;
    for (std::size_t i = 0; i < n; ++i)
        out << QString::number(v[i], 'g', 6);
    return out.join(' ');
}

/// The translation column of the actor's matrix.
QString position(const ShareState::Object& o) {
    const double at[3] = {o.transform[3], o.transform[7], o.transform[11]};
    return numbers(at, 3);
}

template <class T> QString someOf(const std::vector<T>& v) {
    QStringList out;
    for (std::size_t i = 0; i < v.size() && i < 4; ++i)
        out << QString::number(double(v[i]), 'g', 6);
    return QStringLiteral("%1 values [%2%3]")
        .arg(v.size())
        .arg(out.join(' '))
        .arg(v.size() > 4 ? " ..." : "");
}

/// One line per object: what a reader checks by eye.
void printState(const ShareState& s) {
    std::printf("cycle %lld (frame %llu)\n", static_cast<long long>(s.cycle),
                static_cast<unsigned long long>(s.sequence));
    for (const ShareState::Object& o : s.objects) {
        QStringList parts;
        if (o.has(ShareState::Transform))
            parts << QStringLiteral("at (%1)").arg(position(o));
        if (o.has(ShareState::Material))
            parts << QStringLiteral("colour (%1) opacity %2")
                         .arg(numbers(o.material.data(), 3))
                         .arg(o.material[6]);
        if (o.has(ShareState::Geometry))
            parts << QStringLiteral("geometry (%1)")
                         .arg(numbers(o.geometry.data(), o.geometry.size()));
        if (o.has(ShareState::Cells))
            parts << QStringLiteral("cells ") + someOf(o.cells);
        if (o.has(ShareState::Vectors))
            parts << QStringLiteral("vectors ") + someOf(o.vectors);
        if (o.has(ShareState::Text))
            parts << QStringLiteral("text \"%1\"").arg(QString::fromStdString(o.text));
        if (o.has(ShareState::Value))
            parts << QStringLiteral("value %1").arg(o.value, 0, 'g', 10);
        if (o.has(ShareState::Enabled))
            parts << (o.enabled ? QStringLiteral("enabled") : QStringLiteral("disabled"));
        if (o.has(ShareState::Trail)) {
            parts << QStringLiteral("%1 points").arg(o.trailX.size());
            if (!o.trailX.empty())
                parts << QStringLiteral("last (%1, %2)").arg(o.trailX.back()).arg(o.trailY.back());
        }
        std::printf("  %5d %-16s %s\n", o.num, ShareState::kindName(o.kind),
                    qPrintable(parts.join(QStringLiteral(", "))));
    }
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const Options o = parse(app.arguments());

    ShareViewer viewer;
    QString error;
    if (!viewer.join(o.url, o.lab, o.credentials, &error))
        quit(1, QStringLiteral("cannot join lab %1 at %2: %3").arg(o.lab, o.url, error));
    std::printf("joined lab %s at %s\n", qPrintable(o.lab), qPrintable(o.url));
    std::fflush(stdout);

    // Digests are printed on the library's delivery thread, right after
    // their frame was applied, so that each names the state it came from;
    // the once-a-second line on this thread. One lock for standard output.
    std::mutex out;
    if (o.digests)
        QObject::connect(
            &viewer, &ShareViewer::frameApplied, &viewer,
            [&](qint64) {
                const ShareState state = viewer.state();
                const QByteArray digest = ShareFrame::digest(state);
                std::lock_guard<std::mutex> guard(out);
                std::printf("digest %lld %s\n", static_cast<long long>(state.cycle),
                            digest.constData());
            },
            Qt::DirectConnection);

    qint64 printedCycle = -1;
    // Queued to this thread: frames are applied on the library's threads.
    QObject::connect(&viewer, &ShareViewer::frameApplied, &app, [&](qint64) {
        const ShareViewer::Stats s = viewer.stats();
        if (o.print) {
            const ShareState state = viewer.state();
            if (state.cycle != printedCycle) {
                std::lock_guard<std::mutex> guard(out);
                printState(state);
            }
            printedCycle = state.cycle;
        }
        if (o.cycles > 0 && s.frames >= o.cycles)
            QCoreApplication::exit(0);
    });

    QElapsedTimer clock;
    clock.start();
    qint64 lastFrames = 0;
    qint64 lastBytes = 0;
    QTimer each;
    QObject::connect(&each, &QTimer::timeout, &app, [&] {
        const ShareViewer::Stats s = viewer.stats();
        const ShareState state = viewer.state();
        const double seconds = clock.restart() * 1e-3;
        const qint64 frames = s.frames - lastFrames;
        std::lock_guard<std::mutex> guard(out);
        std::printf("cycle %lld · %.1f frames/s · lag %.1f ms · %.1f kB/frame · keyframes %lld · "
                    "gaps %lld · bad %lld · %s\n",
                    static_cast<long long>(state.cycle), seconds > 0 ? frames / seconds : 0.0,
                    s.lagMs, frames > 0 ? (s.bytes - lastBytes) / 1000.0 / frames : 0.0,
                    static_cast<long long>(s.keyframes), static_cast<long long>(s.gaps),
                    static_cast<long long>(s.bad),
                    viewer.isSynchronized() ? "in step" : "waiting for a keyframe");
        std::fflush(stdout);
        lastFrames = s.frames;
        lastBytes = s.bytes;
    });
    each.start(1000);
    if (o.timeout > 0)
        QTimer::singleShot(int(o.timeout * 1000), &app, [] { QCoreApplication::exit(3); });
    const int rc = app.exec();
    const ShareViewer::Stats s = viewer.stats();
    std::printf("left at cycle %lld after %lld frames: %lld keyframes, %lld stale, %lld gaps, "
                "%lld bad\n",
                static_cast<long long>(viewer.state().cycle), static_cast<long long>(s.frames),
                static_cast<long long>(s.keyframes), static_cast<long long>(s.stale),
                static_cast<long long>(s.gaps), static_cast<long long>(s.bad));
    if (rc == 3)
        std::fprintf(stderr, "orlavex-watch: %lld of %lld frames in %g s\n",
                     static_cast<long long>(s.frames), static_cast<long long>(o.cycles), o.timeout);
    return rc;
}
