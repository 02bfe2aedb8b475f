// The link thread's registries, control path and flags with real widgets, and
// its shutdown in every state, alone or owned by a main window.
#include <Orlavex/Orlavex.h>

#include "CycleServer.h"
#include "GuiTestMain.h"
#include "StdoutCapture.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <atomic>
#include <memory>
#include <optional>

namespace {
/// A receiving control that is neither a number field nor a radio button.
class ReadOutStandIn : public InteractiveControlI {};
} // namespace

class TestCommThread : public QObject {
    Q_OBJECT
private slots:
    // Number fields (on Return or Enter) and radio buttons feed the pending
    // list, in order and unmerged; other controls are only stored.
    void controls() {
        CommThread thread;
        NumberField field;
        field.setIndex(3);
        RadioButton a, b;
        a.setIndex(4);
        b.setIndex(5);
        ButtonGroup group;
        group.addButton(&a);
        group.addButton(&b);
        ReadOutStandIn readOut;
        for (InteractiveControlI* c :
             std::initializer_list<InteractiveControlI*>{&field, &a, &b, &readOut})
            thread.setInteractiveControls(c);
        field.setValue(0.25); // a value change alone sends nothing
        QCOMPARE(thread.getPendingCount(), 0);
        for (double v : {0.5, 0.75, 0.5}) {
            field.setValue(v);
            QTest::keyClick(&field, Qt::Key_Return);
        }
        a.setChecked(true);
        b.setChecked(true);                    // exclusive: two signals, the loser first
        thread.setInteractiveControls(&field); // kept twice, connected twice
        QTest::keyClick(&field, Qt::Key_Enter);
        const QVector<QPair<int, double>> expected{{3, 0.5}, {3, 0.75}, {3, 0.5}, {4, 1.0},
                                                   {4, 0.0}, {5, 1.0},  {3, 0.5}, {3, 0.5}};
        QCOMPARE(thread.pendingEntries(), expected);
        QCOMPARE(thread.getPendingCount(), 8);
        QCOMPARE(thread.interactiveControls.size(), 5);
    }

    void registries() {
        CommThread thread;
        Sphere a, b;
        thread.setSendingObjI(4, &a);
        thread.setSendingObjI(4, &b); // replaces
        thread.setSendingObjI(1, &a);
        QCOMPARE(thread.sendingObjects, (QMap<int, SendClass*>{{1, &a}, {4, &b}}));
        ButtonGroup first, second, other;
        thread.addGroup("modes", &first);
        thread.addGroup("other", &other);
        thread.addGroup("modes", &second);
        QCOMPARE(thread.isButtonGroup("modes"), &first);
        QCOMPARE(thread.isButtonGroup("other"), &other);
        QCOMPARE(thread.isButtonGroup("Modes"), static_cast<ButtonGroup*>(nullptr));
        QCOMPARE(thread.isButtonGroup("never"), static_cast<ButtonGroup*>(nullptr));
    }

    // Named controls and groups reach the registry description; an index
    // given to two controls is reported by the front-end and refused by the
    // server class.
    void registryControls() {
        CommThread front;
        NumberField gravity;
        gravity.setObjectName("gravity");
        gravity.setIndex(3);
        RadioButton euler;
        euler.setObjectName("Euler");
        euler.setIndex(4);
        ButtonGroup method;
        method.addButton(&euler);
        front.addGroup("method", &method);
        front.setInteractiveControls(&gravity);
        front.setInteractiveControls(&euler);
        front.setInteractiveControls(&gravity); // the same control twice is no clash
        QTemporaryDir dir;
        const QString path = dir.filePath("registry.json");
        QVERIFY(front.writeRegistry(path));
        const QJsonArray controls = QJsonDocument::fromJson(front.registryDescription())
                                        .object()
                                        .value("controls")
                                        .toArray();
        QCOMPARE(controls.size(), 2);
        QCOMPARE(
            controls.at(1).toObject(),
            (QJsonObject{
                {"index", 4}, {"kind", "RadioButton"}, {"name", "Euler"}, {"group", "method"}}));
        SimulationServer server;
        QVERIFY(server.loadRegistry(path));

        euler.setIndex(3);
        const QString twice = QStringLiteral("control index 3 is registered twice: "
                                             "NumberField \"gravity\" and RadioButton \"Euler\"");
        StdoutCapture err(2);
        QVERIFY(!front.writeRegistry(path));
        QCOMPARE(QString::fromUtf8(err.take()), twice + '\n');
        QVERIFY(!server.loadRegistry(path));
        QCOMPARE(server.errorString(), path + ": " + twice);
    }

    void flags() {
        CommThread thread;
        PauseButton button;
        thread.setPauseButtons(&button);
        QVERIFY(!thread.isPaused());
        button.click(); // checked: run
        QVERIFY(!thread.isPaused());
        button.click(); // unchecked: pause
        QVERIFY(thread.isPaused());
        thread.setVerbose(true);
        QVERIFY(!thread.getSocket()->isVerbose()); // the socket keeps its own flag
    }

    // Deleting the thread, or closing a main window and then deleting its
    // thread, as a client application does, ends at once in every state.
    void shutdownNeverHangs_data() {
        QTest::addColumn<QString>("state");
        QTest::addColumn<bool>("window");
        QTest::newRow("never started") << "never started" << false;
        QTest::newRow("cycling, event loop never quit") << "cycling" << false;
        QTest::newRow("asked by the link thread itself") << "self" << false;
        for (bool window : {false, true}) {
            const char* owner = window ? "window" : "thread";
            QTest::addRow("%s: paused", owner) << "paused" << window;
            QTest::addRow("%s: waiting for a silent server", owner) << "silent" << window;
            QTest::addRow("%s: blocked on its render hand-over", owner) << "render" << window;
        }
    }
    void shutdownNeverHangs() {
        QFETCH(QString, state);
        QFETCH(bool, window);
        std::optional<CycleServer> cycling;
        std::optional<ServerThread> silent;
        if (state == "silent")
            silent.emplace([](SimulationServer& s) { s.readRaw(1, 30000); }, 30000);
        else
            cycling.emplace([](int) { return QVector<QByteArray>{"1,#"}; }, 1000000, 30000);
        Sphere sphere;
        QObject receiver;
        QAtomicInt renders = 0;
        std::unique_ptr<MainWindow> w(window ? new MainWindow : nullptr);
        CommThread* thread = window ? w->commThread : new CommThread;
        thread->setServerAddress("local");
        thread->setServerPort(silent ? silent->port() : cycling->port());
        thread->setSendingObjI(1, &sphere);
        if (state == "render") // a receiver on this thread, as the main window is
            connect(
                thread, &CommThread::dataUpdated, &receiver, [&] { renders.fetchAndAddOrdered(1); },
                Qt::BlockingQueuedConnection);
        if (state == "paused")
            thread->updatePause(false);
        std::atomic<bool> returned{false};
        if (state == "self") // a receiver that ends the link from the link thread
            connect(
                thread, &CommThread::dataUpdated, thread,
                [&] {
                    thread->shutdown();
                    returned = true;
                },
                Qt::DirectConnection);
        if (window)
            w->show();
        if (state != "never started")
            thread->start();
        if (state == "cycling")
            QTRY_VERIFY(cycling->cycles() > 3);
        if (state == "render")
            QTRY_VERIFY(renders.loadAcquire() > 2); // the next hand-over is then pending
        if (state == "self")
            QTRY_VERIFY(returned.load() && thread->isFinished());
        QElapsedTimer timer;
        timer.start();
        if (window)
            w->close();
        delete thread;
        w.reset();
        // Far below the servers' 30 s: a shutdown that waited on the link
        // would show, while a loaded machine still has ample time.
        QVERIFY2(timer.elapsed() < 10000, "shutdown must not wait on the link");
    }

    // The NATS client is mapped only once a lab is shared: a front-end that
    // shares nothing never loads it (nor the TLS libraries behind it).
    void natsClientLoadedOnlyWhenShared() {
        const auto mapped = [] {
            QFile maps("/proc/self/maps");
            return maps.open(QIODevice::ReadOnly) && maps.readAll().contains("libnats");
        };
        for (bool shared : {false, true}) {
            CycleServer server([](int) { return QVector<QByteArray>{"1,#"}; }, 3, 30000);
            Sphere sphere;
            CommThread thread;
            thread.setServerAddress("local");
            thread.setServerPort(server.port());
            thread.setSendingObjI(1, &sphere);
            if (shared) // a broker that is not there: the lab runs on regardless
                thread.setShare("nats://127.0.0.1:9", "nowhere", ShareCredentials());
            thread.start();
            QTRY_COMPARE(server.cycles(), 3);
            thread.shutdown();
            QTRY_COMPARE(mapped(), shared);
        }
    }
};

ORLAVEX_GUI_TEST_MAIN(TestCommThread)
#include "tst_commthread.moc"
