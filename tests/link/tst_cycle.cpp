// The exchange cycle against the server class on loopback: wire order, record
// dispatch, pause, stop and link failures at every step.
#include <Orlavex/link/CommThread.h>
#include <Orlavex/link/SocketClass.h>
#include <Orlavex/scene/Line.h>
#include <Orlavex/scene/Sphere.h>

#include "CycleServer.h"
#include "SignalCounter.h"
#include "GuiTestMain.h"

#include <QFile>
#include <QTemporaryDir>

#include <vtkActor.h>

namespace {
void addPending(CommThread& t, int index, double value) {
    QMetaObject::invokeMethod(&t, "updateInewIndex", Qt::DirectConnection, Q_ARG(double, value),
                              Q_ARG(int, index));
}

void connectTo(CommThread& t, quint16 port) {
    t.setServerAddress("local");
    t.setServerPort(port);
}

// Ends a started link thread, as deleting it would.
void finish(CommThread& t) { t.shutdown(); }

double orientationZ(Sphere& s) { return s.getActor()->GetOrientation()[2]; }
} // namespace

class TestCycle : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

private slots:
    void initTestCase() { QVERIFY(QDir::setCurrent(m_dir.path())); }

    void wireOrder() {
        QByteArray data, afterCycle;
        bool chalkAck = false, recordAck = false;
        ServerThread server([&](SimulationServer& s) {
            s.sendAck(QByteArray(1, '\x05'));
            data = s.readRaw(13, 5000); // "1,3,0.500000#"
            s.sendRaw("7#");
            chalkAck = s.readRaw(1, 5000) == QByteArray(1, '\0');
            s.sendRaw("2,#");
            recordAck = s.readRaw(1, 5000) == QByteArray(1, '\0');
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
        QVERIFY(chalkAck);
        QVERIFY(recordAck);
        QCOMPARE(afterCycle, QByteArray());
        QTRY_COMPARE(updates.count(), 2); // start-up, then the cycle
        QCOMPARE(thread.getPendingCount(), 0);
        finish(thread);
        QFile log("info.txt");
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QStringList lines = QString::fromLatin1(log.readAll()).split('\n');
        QVERIFY(lines.contains("COMMTHREAD: Inicio Hebra CommThread"));
        const int sent = lines.indexOf("COMMTHREAD: Send data to the server");
        QVERIFY(sent > 0);
        QCOMPARE(lines.value(sent + 1), QStringLiteral("index 1"));
    }

    void nothingRegistered() {
        CycleServer server([](int) { return QVector<QByteArray>{}; }, 3);
        CommThread thread;
        connectTo(thread, server.port());
        SignalCounter updates(&thread, &CommThread::dataUpdated);
        thread.start();
        QTRY_COMPARE(server.cycles(), 3);
        QCOMPARE(server.dataMessages(), (QVector<QByteArray>{"0#", "0#", "0#"}));
        QCOMPARE(updates.count(), 1); // only the start-up emission
        finish(thread);
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
        CycleServer server([&](int) { return records; }, 1);
        CommThread thread;
        connectTo(thread, server.port());
        Sphere sa, sb;
        sa.setInteractivelyPositioned(1);
        sb.setInteractivelyPositioned(1);
        float pts[6] = {0, 0, 0, 1, 1, 1};
        Line line(2, pts);
        line.setInteractivelyPositioned(1);
        thread.setSendingObjI(3, &sa);
        thread.setSendingObjI(8, &sb);
        if (withLine)
            thread.setSendingObjI(4, &line);
        SignalCounter failed(&thread, &CommThread::connectionFailed);
        thread.start();
        QTRY_COMPARE(server.cycles(), 1);
        QTRY_COMPARE(failed.count(), 1); // the server has gone after its one cycle
        finish(thread);
        QCOMPARE(orientationZ(sa), turnA);
        QCOMPARE(orientationZ(sb), turnB);
    }

    void pauseAndStop() {
        std::atomic<bool> release{false};
        QByteArray duringPause;
        QVector<SimulationServer::Entry> entries;
        bool resumed = false;
        ServerThread server([&](SimulationServer& s) {
            s.sendAck();
            s.readData(&entries);
            s.sendChalk(1);
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
        QTRY_COMPARE(updates.count(), 1);
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
        finish(thread);
        QCOMPARE(updates.count(), 3);
    }

    // Wherever the link fails, the cycle ends without reading further, one
    // connectionFailed() is emitted, and records applied before stay applied.
    void linkFailure_data() {
        QTest::addColumn<int>("step");
        QTest::addColumn<double>("turnA");
        QTest::newRow("no server ack") << 0 << 0.0;
        QTest::newRow("in the chalk string") << 1 << 0.0;
        QTest::newRow("before the records") << 2 << 0.0;
        QTest::newRow("in the second record") << 3 << 30.0;
        QTest::newRow("after a whole cycle") << 4 << 30.0;
        QTest::newRow("no server at all") << 5 << 0.0;
    }
    void linkFailure() {
        QFETCH(int, step);
        QFETCH(double, turnA);
        ServerThread server([&](SimulationServer& s) {
            QVector<SimulationServer::Entry> entries;
            if (step == 0 || step == 5)
                return;
            s.sendAck();
            s.readData(&entries);
            if (step == 1) {
                s.sendRaw("12");
                return;
            }
            s.sendChalk(1);
            if (step == 2)
                return;
            s.sendRecord(1, {0, 0, 0, 0, 0, 0, 0, 0, 30, 1});
            if (step == 3) {
                s.sendRaw("2,0,0,0,0,0,0,0,0,30");
                return;
            }
            s.sendRecord(2, {0, 0, 0, 0, 0, 0, 0, 0, 30, 1});
            s.readRaw(1, 100);
        }, 3000);
        CommThread thread;
        connectTo(thread, step == 5 ? 1 : server.port()); // port 1: refused
        Sphere a, b;
        a.setInteractivelyPositioned(1);
        b.setInteractivelyPositioned(1);
        thread.setSendingObjI(1, &a);
        thread.setSendingObjI(2, &b);
        SignalCounter failed(&thread, &CommThread::connectionFailed);
        thread.start();
        QTRY_COMPARE(failed.count(), 1);
        QVERIFY(server.wait(15000));
        // No second report, and stop() ends the loop.
        finish(thread);
        QCOMPARE(failed.count(), 1);
        QCOMPARE(orientationZ(a), turnA);
        QCOMPARE(orientationZ(b), step == 4 ? 30.0 : 0.0);
    }
};

ORLAVEX_GUI_TEST_MAIN(TestCycle)
#include "tst_cycle.moc"
