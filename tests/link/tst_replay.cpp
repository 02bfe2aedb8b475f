// A recorded session replayed by orlavex-replay into the same front-end shows
// the same pictures cycle by cycle; a file cut short replays its complete
// cycles, a damaged one is refused; a video holds one frame per cycle.
#include <Orlavex/Orlavex.h>

#include "CycleServer.h"
#include "GuiTestMain.h"
#include "ScreenshotProbe.h"

#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtEndian>

#include <cmath>

namespace {
constexpr int kCycles = 8;
// Qt's image conversions behind a video frame run on Qt's own thread pool,
// whose ordering the thread sanitizer cannot see: no video in those runs.
const bool kVideo = !qEnvironmentVariableIsSet("ORLAVEX_SANITIZER_RUN");

// A moving sphere, a trail and a read-out. After each cycle's render pass the
// link pauses until the picture is taken, so each picture shows one cycle.
struct Lab {
    MainWindow window;
    CanvasButtons* view = new CanvasButtons;
    PlottingPanelQwt* plot = new PlottingPanelQwt;
    DisplayDouble readOut;
    Sphere sphere;
    TrailQwt trail{"x"};
    std::atomic<int> rendered{0};
    std::atomic<bool> ended{false};
    QVector<QImage> shots;

    Lab() {
        window.setFrameSceneOnStart(false);
        window.setLayoutPolicy("VBox");
        for (QWidget* w : {(QWidget*)view, (QWidget*)plot, (QWidget*)readOut.getLabel()})
            window.addWidget(w);
        sphere.setRenderer(view->renderer);
        sphere.setColor(1, 0, 0);
        sphere.setInteractivelyPositioned(1);
        trail.attachToPlot(plot);
        CommThread* link = window.commThread;
        link->setRenderer(view->renderer);
        link->setCanvas(view->canvas);
        link->setPlot(plot);
        link->setDrawables(&sphere);
        link->setSendingObjI(1, &sphere);
        link->setSendingObjI(2, &trail);
        link->setSendingObjI(3, &readOut);
        view->canvas->SetCamera(0, 0, 10, 0, 0, 0, 0, 1, 0, 30);
        link->setServerAddress("local");
        QObject::connect(
            link, &CommThread::dataUpdated, link,
            [this, link] {
                // On the link thread, once the window's pass has returned.
                if (link->cyclesHandedOver() > rendered) {
                    link->updatePause(false);
                    ++rendered;
                }
            },
            Qt::DirectConnection);
        QObject::connect(
            link, &CommThread::connectionFailed, link, [this] { ended = true; },
            Qt::DirectConnection);
    }
    ~Lab() { delete window.commThread; } // before the objects it writes to

    void run(quint16 port) {
        window.commThread->setServerPort(port);
        window.resize(420, 560);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        window.commThread->start();
        for (int k = 1;; ++k) {
            QVERIFY(QTest::qWaitFor([&] { return rendered >= k || ended; }, 60000));
            if (rendered < k)
                return;
            shots.append(window.grab().toImage());
            window.commThread->updatePause(true);
        }
    }
};

QVector<QByteArray> records(int c) {
    const double sphere[10] = {-1.4 + 0.4 * c, 0.3 * std::sin(c), 0, 0, 0, 0, 0, 0, 0, 0.5};
    const double point[2] = {double(c), std::cos(c)}, value = 1.25 * c;
    return {SimulationServer::record(1, sphere, 10), SimulationServer::record(2, point, 2),
            SimulationServer::record(3, &value, 1)};
}

int differing(const QImage& a, const QImage& b) { // pixels beyond a rounding step
    if (a.size() != b.size())
        return 1 << 30;
    int n = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            n += !probe::near(a.pixelColor(x, y), b.pixelColor(x, y), 8);
    return n;
}

int number(const QByteArray& text, const char* pattern) {
    return QRegularExpression(pattern).match(QString::fromLatin1(text)).captured(1).toInt();
}

void save(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
}
} // namespace

class TestReplay : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;
    QByteArray m_file; // the recording's bytes
    QVector<QImage> m_shots;

private slots:
    void initTestCase() { // one recording, with its video, serves every test
        qputenv("ORLAVEX_RECORD_BLOCK_BYTES", "1"); // a block per cycle: cuts keep whole cycles
        CycleServer server(records, kCycles);
        {
            Lab lab;
            lab.window.commThread->setRecordFile(m_dir.filePath("lab.orlrec"));
            QVERIFY(!kVideo || lab.window.setVideoFile(m_dir.filePath("lab.mp4")));
            lab.run(server.port());
            m_shots = lab.shots;
        } // the recording and the video end with the lab
        QFile file(m_dir.filePath("lab.orlrec"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        m_file = file.readAll();
        QCOMPARE(m_shots.size(), kCycles);
        QVERIFY(differing(m_shots.first(), m_shots.last()) > 100); // the lab moves
    }

    void replay_data() {
        QTest::addColumn<double>("keep"); // the share of the file that is kept
        QTest::newRow("whole") << 1.0;
        QTest::newRow("cut short") << 0.6;
    }
    void replay() {
        QFETCH(double, keep);
        const QString copy = m_dir.filePath(QStringLiteral("copy-%1").arg(keep));
        save(copy, m_file.left(int(m_file.size() * keep)));
        QProcess tool;
        tool.start(ORLAVEX_REPLAY_TOOL, {copy, "--port", "0", "--speed", "max"});
        QByteArray out;
        while (!out.contains("listening on port") && tool.waitForReadyRead(60000))
            out += tool.readAllStandardOutput();
        const int cycles = number(out, "recording: (\\d+) cycles");
        QVERIFY2(cycles > 0 && (cycles == kCycles) == (keep == 1.0), out.constData());

        NumberField field; // a change made during the replay is only reported
        Lab lab;
        lab.window.commThread->setInteractiveControls(&field);
        emit field.sigValueChanged(0.5, 3);
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", ""); // no ffmpeg: the video becomes a PNG sequence
        QVERIFY(!kVideo || lab.window.setVideoFile(copy + ".video"));
        qputenv("PATH", path);
        lab.run(quint16(number(out, "listening on port (\\d+)")));
        QVERIFY(tool.waitForFinished(60000));
        out = tool.readAllStandardOutput();
        QVERIFY2(out.contains("control 3 = 0.5 (not applied: replay)") &&
                     out.contains("replayed " + QByteArray::number(cycles) + " cycles"),
                 out.constData());
        QCOMPARE(tool.exitCode(), 0);
        QCOMPARE(lab.shots.size(), cycles);
        for (int k = 0; k < cycles; ++k)
            PROBE_VERIFY(differing(lab.shots[k], m_shots[k]) <= 20, lab.shots[k],
                         QStringLiteral("cycle%1").arg(k + 1));
        QCOMPARE(lab.window.videoFrames(), kVideo ? cycles : 0);
        QVERIFY(!kVideo ||
                QFile::exists(
                    copy + QStringLiteral(".video.%1.png").arg(cycles, 4, 10, QLatin1Char('0'))));
    }

    void damaged_data() {
        QTest::addColumn<int>("at"); // the byte changed; -1: an empty file, -2: garbage
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("message");
        const int block = 20 + int(qFromLittleEndian<quint32>(m_file.constData() + 12));
        QTest::newRow("empty") << -1 << 1 << "not an Orlavex recording";
        QTest::newRow("garbage") << -2 << 1 << "not an Orlavex recording";
        QTest::newRow("header") << 20 << 1 << "header is damaged (checksum mismatch)";
        QTest::newRow("block") << block + 24 << 1
                               << QStringLiteral("block 1 at offset %1: checksum").arg(block);
        QTest::newRow("registry") << 0 << 2
                                  << "record 1: Sphere (10 numbers) in the recording, "
                                     "Cube (23 numbers) in the front-end";
    }
    void damaged() {
        QFETCH(int, at);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        QByteArray bytes = at == -1 ? QByteArray() : at == -2 ? QByteArray(4000, 'Z') : m_file;
        if (at > 0)
            bytes[at] = char(bytes[at] ^ 0x11);
        const QString file = m_dir.filePath("damaged"), registry = m_dir.filePath("front.json");
        save(file, bytes);
        save(registry, R"({"format":"orlavex-registry","records":[{"num":1,"kind":"Cube",
            "count":23},{"num":2,"kind":"TrailQwt","count":2},{"num":4,"kind":"Cone"}]})");
        QProcess tool;
        tool.start(ORLAVEX_REPLAY_TOOL,
                   at == 0 ? QStringList{file, "--port", "0", "--registry", registry}
                           : QStringList{file, "--port", "0"});
        QVERIFY(tool.waitForFinished(60000));
        const QByteArray err = tool.readAllStandardError();
        QCOMPARE(tool.exitStatus(), QProcess::NormalExit); // never a crash
        QVERIFY2(err.contains(message.toUtf8()), err.constData());
        QCOMPARE(tool.exitCode(), exitCode);
    }

    void video() { // the recording's, through ffmpeg
        const QString ffprobe = QStandardPaths::findExecutable("ffprobe");
        if (ffprobe.isEmpty() || !kVideo)
            QSKIP("no ffprobe or no video (the replay test counts a PNG sequence)");
        QProcess probe;
        probe.start(ffprobe,
                    {"-v", "error", "-count_frames", "-select_streams", "v:0", "-show_entries",
                     "stream=nb_read_frames", "-of", "csv=p=0", m_dir.filePath("lab.mp4")});
        QVERIFY(probe.waitForFinished(60000));
        QCOMPARE(probe.readAllStandardOutput().trimmed(), QByteArray::number(kCycles));
    }
};

ORLAVEX_GUI_TEST_MAIN(TestReplay)
#include "tst_replay.moc"
