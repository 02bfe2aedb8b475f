// The exchange cycle against the server class on loopback: wire order, record
// dispatch, the pending list under concurrency, pause, stop and link failures
// at every step.
#include <Orlavex/Orlavex.h>

#include "CycleRun.h"
#include "GuiTestMain.h"
#include "SignalCounter.h"

#include <QFile>
#include <QTemporaryDir>

#include <vtkActor.h>

#include <chrono>
#include <thread>

namespace {
void addPending(CommThread& t, int index, double value) {
    QMetaObject::invokeMethod(&t, "updateInewIndex", Qt::DirectConnection, Q_ARG(double, value),
                              Q_ARG(int, index));
}

void connectTo(CommThread& t, quint16 port) {
    t.setServerAddress("local");
    t.setServerPort(port);
}

double orientationZ(Sphere& s) {
    return s.getActor()->GetOrientation()[2];
}
} // namespace

class TestCycle : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

private slots:
    void initTestCase() { QVERIFY(QDir::setCurrent(m_dir.path())); }

    void wireOrder() {
        QByteArray data, acks, afterCycle;
        ServerThread server([&](SimulationServer& s) {
            s.sendAck(QByteArray(1, '\x05'));
            data = s.readRaw(13, 5000); // "1,3,0.500000#"
            s.sendRaw("7#");
            acks = s.readRaw(1, 5000);
            s.sendRaw("2,#");
            acks += s.readRaw(1, 5000);
            afterCycle = s.readRaw(1, 300); // nothing before the next server ack
        });
        CommThread thread;
        thread.setVerbose(true);
        connectTo(thread, server.port());
        Sphere sphere; // p = c = 0: its record carries no numbers
        thread.setSendingObjI(2, &sphere);
        addPending(thread, 3, 0.5);
        SignalCounter updates(&thread, &CommThread::dataUpdated);
        thread.start();
        QVERIFY(server.wait(15000));
        QCOMPARE(data, QByteArray("1,3,0.500000#"));
        QCOMPARE(acks, QByteArray(2, '\0')); // for the chalk and for the record
        QCOMPARE(afterCycle, QByteArray());
        QTRY_COMPARE(updates.count(), 2); // start-up, then the cycle
        QCOMPARE(thread.getPendingCount(), 0);
        thread.shutdown();
        QVERIFY(LogStream::waitWritten(5000));
        QFile log("info.txt");
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QStringList lines = QString::fromLatin1(log.readAll()).split('\n');
        QVERIFY(lines.contains("COMMTHREAD: Inicio Hebra CommThread"));
        const int sent = lines.indexOf("COMMTHREAD: Send data to the server");
        QVERIFY(sent > 0);
        QCOMPARE(lines.value(sent + 1), QStringLiteral("index 1"));
    }

    void nothingRegistered() {
        const CycleRun run = runCycles(
            {}, [](int) { return QVector<QByteArray>{}; }, 3);
        QCOMPARE(run.cycles, 3);
        QCOMPARE(run.dataMessages, (QVector<QByteArray>{"0#", "0#", "0#"}));
        QCOMPARE(run.updates, 1); // only the start-up emission
    }

    // Records go to the object their num field names, in the order they come;
    // the cycle reads exactly one record per registered object.
    void dispatch_data() {
        QTest::addColumn<QVector<QByteArray>>("records");
        QTest::addColumn<bool>("withLine"); // a registered kind whose records are ignored
        QTest::addColumn<double>("turnA");  // object under 3
        QTest::addColumn<double>("turnB");  // object under 8
        const QByteArray a = "3,0,0,0,0,0,0,0,0,10,1#";
        const QByteArray b = "8,0,0,0,0,0,0,0,0,20,1#";
        QTest::newRow("in any order") << QVector<QByteArray>{b, a} << false << 10.0 << 20.0;
        QTest::newRow("same num twice") << QVector<QByteArray>{a, a} << false << 20.0 << 0.0;
        QTest::newRow("unregistered num")
            << QVector<QByteArray>{"5,1,2,3#", b} << false << 0.0 << 20.0;
        QTest::newRow("a kind without records")
            << QVector<QByteArray>{"4,1,2,3#", a, b} << true << 10.0 << 20.0;
    }
    void dispatch() {
        QFETCH(QVector<QByteArray>, records);
        QFETCH(bool, withLine);
        QFETCH(double, turnA);
        QFETCH(double, turnB);
        Sphere sa, sb;
        sa.setInteractivelyPositioned(1);
        sb.setInteractivelyPositioned(1);
        float pts[6] = {0, 0, 0, 1, 1, 1};
        Line line(2, pts);
        line.setInteractivelyPositioned(1);
        QMap<int, SendClass*> objects{{3, &sa}, {8, &sb}};
        if (withLine)
            objects.insert(4, &line);
        const CycleRun run = runCycles(
            objects, [&](int) { return records; }, 1);
        QCOMPARE(run.cycles, 1);
        QCOMPARE(run.failures, 1); // the server has gone after its one cycle
        QCOMPARE(orientationZ(sa), turnA);
        QCOMPARE(orientationZ(sb), turnB);
    }

    // Changes recorded on another thread while the link thread hands the list
    // to real cycles against a fast server reach the server once each, in
    // order. Run it under ThreadSanitizer as well.
    void pendingListUnderConcurrency() {
        const int atLeast = 20000;
        CycleServer server([](int) { return QVector<QByteArray>{}; }, 1000000);
        CommThread thread;
        connectTo(thread, server.port());
        thread.start();
        // Recording starts once cycles run and goes on until two data
        // messages have carried changes, so the list is handed over while
        // changes still arrive however fast or slow the machine is.
        QTRY_VERIFY_WITH_TIMEOUT(server.cycles() >= 1, 20000);
        int recorded = 0;
        std::thread recorder([&] {
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
            while (recorded < atLeast || (server.messagesWithEntries() < 2 &&
                                          std::chrono::steady_clock::now() < deadline)) {
                // as a control's direct connection does
                addPending(thread, recorded, recorded * 0.5);
                if (++recorded >= atLeast)
                    std::this_thread::yield(); // leave the cores to the cycles
            }
        });
        recorder.join();
        QByteArray expected; // the entries of every data message, in order
        for (int k = 0; k < recorded; ++k)
            expected += ',' + QByteArray::number(k) + ',' + QByteArray::number(k * 0.5, 'f', 6);
        auto received = [&] {
            QByteArray all;
            for (const QByteArray& m : server.dataMessages())
                if (m.contains(','))
                    all += m.mid(m.indexOf(','), m.size() - m.indexOf(',') - 1);
            return all;
        };
        QTRY_COMPARE_WITH_TIMEOUT(received(), expected, 60000);
        QVERIFY(server.messagesWithEntries() > 1); // the hand-over overlapped the recording
        thread.shutdown();
    }

    void pauseAndStop() {
        std::atomic<bool> release{false}, inCycle{false};
        QByteArray duringPause;
        QVector<SimulationServer::Entry> entries;
        bool resumed = false;
        ServerThread server([&](SimulationServer& s) {
            s.sendAck();
            s.readData(&entries);
            s.sendChalk(1);
            inCycle = true;         // the link thread is past its pause check
            while (!release.load()) // the test pauses the thread mid-cycle
                QThread::msleep(1);
            s.sendRecord(1, {});
            s.sendAck();
            duringPause = s.readRaw(1, 300);
            release = false;
            resumed = s.readData(&entries); // after updatePause(true)
            s.sendChalk(2);
            s.sendRecord(1, {});
        });
        CommThread thread;
        connectTo(thread, server.port());
        Sphere sphere;
        thread.setSendingObjI(1, &sphere);
        SignalCounter updates(&thread, &CommThread::dataUpdated);
        thread.start();
        QTRY_VERIFY(inCycle.load());
        QCOMPARE(updates.count(), 1); // start-up only
        thread.updatePause(false);
        release = true;
        QTRY_COMPARE(updates.count(), 2); // the cycle under way finishes
        QTRY_VERIFY(!release.load());     // and nothing is sent while paused
        QCOMPARE(duringPause, QByteArray());
        thread.updatePause(true);
        QTRY_COMPARE(updates.count(), 3);
        // Stop while paused: no further exchange, the thread waits in its event loop.
        thread.updatePause(false);
        thread.stop();
        QVERIFY(server.wait(15000));
        QVERIFY(resumed);
        QVERIFY(thread.isRunning());
        thread.shutdown();
        QCOMPARE(updates.count(), 3);
    }

    // Wherever the link fails, the cycle ends without reading further, one
    // connectionFailed() is emitted, and records applied before stay applied.
    void linkFailure_data() {
        QTest::addColumn<bool>("refused");
        QTest::addColumn<QVector<QByteArray>>("sent"); // after the data message; then it closes
        QTest::addColumn<double>("turnA");
        QTest::addColumn<double>("turnB");
        using Sent = QVector<QByteArray>;
        const QByteArray a = "1,0,0,0,0,0,0,0,0,30,1#", b = "2,0,0,0,0,0,0,0,0,30,1#";
        QTest::newRow("no server at all") << true << Sent{} << 0.0 << 0.0;
        QTest::newRow("no server ack") << false << Sent{} << 0.0 << 0.0;
        QTest::newRow("in the chalk string") << false << Sent{"12"} << 0.0 << 0.0;
        QTest::newRow("before the records") << false << Sent{"1#"} << 0.0 << 0.0;
        QTest::newRow("in the second record") << false << Sent{"1#", a, b.left(20)} << 30.0 << 0.0;
        QTest::newRow("after a whole cycle") << false << Sent{"1#", a, b} << 30.0 << 30.0;
    }
    void linkFailure() {
        QFETCH(bool, refused);
        QFETCH(QVector<QByteArray>, sent);
        QFETCH(double, turnA);
        QFETCH(double, turnB);
        ServerThread server(
            [&](SimulationServer& s) {
                QVector<SimulationServer::Entry> entries;
                if (sent.isEmpty() || !s.sendAck() || !s.readData(&entries))
                    return;
                for (const QByteArray& m : sent) // a whole string waits for its ack
                    if (!s.sendRaw(m) || (m.endsWith('#') && !s.readClientAck()))
                        return;
            },
            3000);
        CommThread thread;
        connectTo(thread, refused ? 1 : server.port()); // port 1: refused
        Sphere sa, sb;
        sa.setInteractivelyPositioned(1);
        sb.setInteractivelyPositioned(1);
        thread.setSendingObjI(1, &sa);
        thread.setSendingObjI(2, &sb);
        SignalCounter failed(&thread, &CommThread::connectionFailed);
        thread.start();
        QTRY_COMPARE(failed.count(), 1);
        QVERIFY(refused || server.wait(15000)); // refused: no client ever comes
        thread.shutdown();                      // no second report, and the loop ends
        QCOMPARE(failed.count(), 1);
        QCOMPARE(orientationZ(sa), turnA);
        QCOMPARE(orientationZ(sb), turnB);
    }
};

ORLAVEX_GUI_TEST_MAIN(TestCycle)
#include "tst_cycle.moc"
