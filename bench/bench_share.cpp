// A shared lab's cost, on loopback through a real broker (nats-server, TLS):
//  1. the controller's cycle rate unpaced, shared with no viewer and with 30
//     against the same lab not shared (the bound). The viewers run in this
//     process: on a small machine they and the broker take CPU time from the
//     link thread, which the first ratio leaves out;
//  2. paced at 30 cycles per second, as the demo lab runs: the rate with 30
//     viewers against the same lab not shared, the lag from a frame's
//     publication to its application at the viewers (median, p99), frames
//     dropped, and the bytes a viewer receives per cycle against the bytes
//     of the cycle's records;
//  3. 30 viewers joining one after another while the lab runs: the time from
//     each one's join() to its first state.
// The lab is the demo's: six spheres and a text, a 24 x 16 grid with vectors
// and cell colours, two trails, eight read-outs and two enable states.
#include <Orlavex/Orlavex.h>
#include <Orlavex/share/ShareFrame.h>
#include <Orlavex/share/ShareViewer.h>

#include "CycleServer.h"
#include "NatsBroker.h"

#include <QApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

using Clock = std::chrono::steady_clock;

namespace {

constexpr int kViewers = 30;
constexpr int kNx = 24, kNy = 16, kCells = kNx * kNy;

/// The demo's objects, each under its record number, and their records.
struct Lab {
    Lab() {
        std::vector<float> zero(kCells, 0.f);
        grid.reset(new PlanarGrid(0, 0, 0, 1, 1, 0, kNx, kNy, 0, zero.data(), zero.data(), 0, 1, 1,
                                  1, 1, 1, 1, 1, 0, 1, 1, 1, 1));
        grid->setInteractivelyColored(1);
        for (Sphere& s : spheres)
            s.setInteractivelyPositioned(1), s.setInteractivelyColored(1);
        text.setInteractiveValue(1);
        for (TrailQwt* t : {&trailA, &trailB})
            t->setNMaxPoints(200);
        for (NumberField& f : fields)
            f.setEnableInt(1);
    }
    void registerWith(CommThread& thread) {
        int num = 1;
        for (Sphere& s : spheres)
            thread.setSendingObjI(num++, &s);
        thread.setSendingObjI(num++, &text);
        thread.setSendingObjI(num++, grid.get());
        thread.setSendingObjI(num++, &trailA);
        thread.setSendingObjI(num++, &trailB);
        for (DisplayDouble& d : readOuts)
            thread.setSendingObjI(num++, &d);
        for (NumberField& f : fields)
            thread.setSendingObjI(num++, &f);
    }
    static QVector<QByteArray> records(int c) {
        QVector<QByteArray> out;
        auto add = [&](int num, int count, double scale) {
            QVector<double> v(count);
            for (int i = 0; i < count; ++i)
                v[i] = scale * std::sin(c * 0.05 + num + i * 0.01);
            out << SimulationServer::record(num, v.constData(), count);
        };
        int num = 1;
        for (int i = 0; i < 6; ++i)
            add(num++, 21, 1);
        add(num++, 1, 10);
        add(num++, (4 * kCells + 1) + kCells, 1);
        add(num++, 2, c);
        add(num++, 2, 1);
        for (int i = 0; i < 8; ++i)
            add(num++, 1, 100);
        for (int i = 0; i < 2; ++i)
            add(num++, 1, 1);
        return out;
    }

    Sphere spheres[6];
    VectorText text;
    std::unique_ptr<PlanarGrid> grid;
    TrailQwt trailA{"a"}, trailB{"b"};
    DisplayDouble readOuts[8];
    NumberField fields[2];
};

/// Runs the GUI thread's events until `done` or `ms` have passed.
template <class F> bool waitFor(F done, int ms) {
    QElapsedTimer t;
    t.start();
    while (!done()) {
        if (t.elapsed() > ms)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

struct Run {
    double rate = 0;        ///< cycles per second
    qint64 published = 0;   ///< frames
    qint64 dropped = 0;     ///< states
    qint64 recordBytes = 0; ///< bytes of the server's strings
    int cycles = 0;
};

/// Runs `cycles` cycles of the lab, paced to `hz` (0: as fast as it goes),
/// shared through `broker` when it is given; `during` runs on this thread
/// once the lab is `atCycle` cycles in.
template <class During>
Run runLab(int cycles, double hz, NatsBroker* broker, const QString& labName, int atCycle,
           During during) {
    Lab lab;
    const auto start = Clock::now();
    CycleServer server(
        [&](int c) {
            if (hz > 0)
                std::this_thread::sleep_until(start + std::chrono::duration<double>(c / hz));
            return Lab::records(c);
        },
        cycles);
    auto thread = std::make_unique<CommThread>();
    lab.registerWith(*thread);
    thread->setServerAddress("local");
    thread->setServerPort(server.port());
    thread->setCycleLimit(cycles); // ends by itself, not as a lost link
    if (broker)
        thread->setShare(broker->url(), labName, broker->credentials("publisher"));
    std::atomic<int> done{0};
    std::atomic<qint64> published{0}, dropped{0}, bytes{0};
    Clock::time_point first, last;
    QObject::connect(
        thread.get(), &CommThread::cycleFinished, thread.get(),
        [&](const CycleStats& s) {
            const auto now = Clock::now();
            if (done.load() == 0)
                first = now;
            last = now;
            published = s.sharePublished;
            dropped = s.shareDropped;
            bytes += s.bytesReceived;
            ++done;
        },
        Qt::DirectConnection);
    thread->start();
    waitFor([&] { return done.load() >= atCycle; }, 120000);
    during(*thread);
    waitFor([&] { return done.load() >= cycles || server.finished(); }, 300000);
    Run r;
    r.cycles = done.load();
    r.rate =
        r.cycles > 1 ? (r.cycles - 1) / std::chrono::duration<double>(last - first).count() : 0;
    r.published = published;
    r.dropped = dropped;
    r.recordBytes = bytes;
    thread.reset();
    return r;
}

double percentile(std::vector<double> v, double p) {
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, std::size_t(p * double(v.size())))];
}

/// Viewers that keep every frame's lag.
struct Class {
    Class(NatsBroker& broker, const QString& lab, int n) {
        for (int i = 0; i < n; ++i) {
            viewers.emplace_back(new ShareViewer);
            ShareViewer* v = viewers.back().get();
            QObject::connect(
                v, &ShareViewer::frameApplied, v,
                [this, v](qint64) {
                    const double lag = v->stats().lagMs;
                    std::lock_guard<std::mutex> guard(lock);
                    lags.push_back(lag);
                },
                Qt::DirectConnection);
            QString error;
            if (!v->join(broker.url(), lab, broker.credentials("viewer"), &error))
                std::fprintf(stderr, "viewer %d cannot join: %s\n", i, qPrintable(error));
        }
    }
    std::vector<double> takeLags() {
        std::lock_guard<std::mutex> guard(lock);
        std::vector<double> out;
        out.swap(lags);
        return out;
    }
    // The viewers go first: their handlers use the lock and the lags.
    std::mutex lock;
    std::vector<double> lags;
    std::vector<std::unique_ptr<ShareViewer>> viewers;
};

} // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    if (!NatsBroker::installed()) {
        std::printf("bench_share: nats-server or openssl is missing; nothing measured\n");
        return 0;
    }
    NatsBroker broker;
    if (!broker.ok()) {
        std::fprintf(stderr, "bench_share: %s\n", qPrintable(broker.error()));
        return 1;
    }
    const int unpaced = 3000;
    auto nothing = [](CommThread&) {};

    std::printf("1. cycle rate, unpaced, %d cycles\n", unpaced);
    const Run alone = runLab(unpaced, 0, nullptr, QString(), 1, nothing);
    const Run publisherOnly = runLab(unpaced, 0, &broker, "bench0", 1, nothing);
    Run shared;
    {
        Class viewers(broker, "bench1", kViewers);
        shared = runLab(unpaced, 0, &broker, "bench1", 1, nothing);
    }
    std::printf("   not shared (bound)       %8.0f cycles/s\n", alone.rate);
    std::printf("   shared, no viewers       %8.0f cycles/s   ratio %.2f\n", publisherOnly.rate,
                publisherOnly.rate / alone.rate);
    std::printf("   shared with %d viewers   %8.0f cycles/s   ratio %.2f (target >= 0.95)\n",
                kViewers, shared.rate, shared.rate / alone.rate);
    std::printf("   frames published %lld, states dropped %lld (the newest state wins)\n",
                static_cast<long long>(shared.published), static_cast<long long>(shared.dropped));

    const int paced = 300;
    std::printf("2. paced at 30 cycles/s, %d cycles, %d viewers\n", paced, kViewers);
    std::vector<double> lags;
    qint64 viewerBytes = 0, viewerFrames = 0, keyframeBytes = 0;
    Run steady;
    {
        Class viewers(broker, "bench2", kViewers);
        steady = runLab(paced, 30, &broker, "bench2", 30, [&](CommThread& t) {
            viewers.takeLags(); // the first second is the join's
            for (auto& v : viewers.viewers) {
                viewerBytes -= v->stats().bytes;
                viewerFrames -= v->stats().frames;
            }
            keyframeBytes = ShareFrame::encodeKey(t.sharedState()).size();
        });
        waitFor([&] { return viewers.viewers[0]->state().cycle >= paced; }, 10000);
        for (auto& v : viewers.viewers) {
            viewerBytes += v->stats().bytes;
            viewerFrames += v->stats().frames;
        }
        lags = viewers.takeLags();
    }
    // The bound: the same lab at the same pace, not shared.
    const Run pacedAlone = runLab(paced, 30, nullptr, QString(), 1, nothing);
    const double frames = double(viewerFrames) / kViewers;
    std::printf("   rate %.1f cycles/s, not shared %.1f cycles/s: ratio %.3f (target >= 0.95)\n",
                steady.rate, pacedAlone.rate, steady.rate / pacedAlone.rate);
    std::printf("   frames published %lld, dropped %lld\n",
                static_cast<long long>(steady.published), static_cast<long long>(steady.dropped));
    std::printf("   lag publication to viewer: median %.2f ms, p99 %.2f ms (%zu frames)\n",
                percentile(lags, 0.5), percentile(lags, 0.99), lags.size());
    std::printf("   bytes per cycle: %.0f to each viewer, %.0f of records (ratio %.2f)\n",
                frames > 0 ? viewerBytes / double(kViewers) / frames : 0.0,
                double(steady.recordBytes) / std::max(1, steady.cycles),
                frames > 0 ? (viewerBytes / double(kViewers) / frames) /
                                 (double(steady.recordBytes) / std::max(1, steady.cycles))
                           : 0.0);
    std::printf("   keyframe %lld bytes\n", static_cast<long long>(keyframeBytes));

    std::printf("3. %d viewers joining one after another, lab running at 30 cycles/s\n", kViewers);
    std::vector<double> joins;
    runLab(120, 30, &broker, "bench3", 30, [&](CommThread&) {
        Class late(broker, "bench3", kViewers);
        waitFor(
            [&] {
                for (auto& v : late.viewers)
                    if (v->stats().joinMs < 0)
                        return false;
                return true;
            },
            30000);
        for (auto& v : late.viewers)
            joins.push_back(v->stats().joinMs);
    });
    std::printf("   join to first state: median %.1f ms, max %.1f ms\n", percentile(joins, 0.5),
                percentile(joins, 1.0));

    // What TLS costs: the same lab and viewers through a broker in plain
    // text, then through the TLS one, one after the other.
    NatsBroker plain(0, false);
    if (!plain.ok()) {
        std::fprintf(stderr, "bench_share: %s\n", qPrintable(plain.error()));
        return 1;
    }
    const int rounds = 1000;
    std::printf("4. TLS against plain text, unpaced, %d cycles, %d viewers, best of 2\n", rounds,
                kViewers);
    double rate[2] = {0, 0};
    for (int pass = 0; pass < 2; ++pass)
        for (int tls = 0; tls < 2; ++tls) {
            NatsBroker& through = tls ? broker : plain;
            const QString lab = QStringLiteral("bench4%1%2").arg(tls).arg(pass);
            Class viewers(through, lab, kViewers);
            rate[tls] = std::max(rate[tls], runLab(rounds, 0, &through, lab, 1, nothing).rate);
        }
    std::printf("   plain %.0f cycles/s, TLS %.0f cycles/s, ratio %.2f (target >= 0.95)\n", rate[0],
                rate[1], rate[1] / rate[0]);
    // And as the demo lab runs, at its own pace.
    double pacedRate[2] = {0, 0};
    for (int tls = 0; tls < 2; ++tls) {
        NatsBroker& through = tls ? broker : plain;
        const QString lab = QStringLiteral("bench5%1").arg(tls);
        Class viewers(through, lab, kViewers);
        pacedRate[tls] = runLab(paced, 30, &through, lab, 1, nothing).rate;
    }
    std::printf("   paced at 30 cycles/s: plain %.1f cycles/s, TLS %.1f cycles/s, ratio %.3f "
                "(target >= 0.95)\n",
                pacedRate[0], pacedRate[1], pacedRate[1] / pacedRate[0]);
    return 0;
}
