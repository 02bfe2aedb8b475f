// The pending list under concurrency: changes recorded on one thread while
// the link thread hands the list to real cycles against a fast server. Every
// change must reach the server exactly once and in order. Run it under
// ThreadSanitizer as well (scripts/test --sanitize thread).
#include <Orlavex/link/CommThread.h>
#include <Orlavex/link/SocketClass.h>

#include "CycleServer.h"

#include <QtTest>

#include <thread>

class TestPendingList : public QObject {
    Q_OBJECT
private slots:
    void everyChangeOnceInOrder() {
        const int total = 20000;
        CycleServer server([](int) { return QVector<QByteArray>{}; }, 1000000);
        CommThread thread;
        thread.setServerAddress("local");
        thread.setServerPort(server.port());
        thread.start();

        std::thread recorder([&] {
            for (int k = 0; k < total; ++k) // as a control's direct connection does
                QMetaObject::invokeMethod(&thread, "updateInewIndex", Qt::DirectConnection,
                                          Q_ARG(double, k * 0.5), Q_ARG(int, k));
        });
        recorder.join();

        QVector<int> indices;
        QVector<double> values;
        auto allArrived = [&] {
                indices.clear();
                values.clear();
                for (const QByteArray& m : server.dataMessages()) {
                    const QList<QByteArray> f = m.left(m.size() - 1).split(',');
                    for (int e = 0; e < f.value(0).toInt(); ++e) {
                        indices << f[1 + 2 * e].toInt();
                        values << f[2 + 2 * e].toDouble();
                    }
                }
                return indices.size() >= total;
        };
        QTRY_VERIFY_WITH_TIMEOUT(allArrived(), 60000);
        QCOMPARE(indices.size(), total);
        for (int k = 0; k < total; ++k) {
            QCOMPARE(indices[k], k);
            QCOMPARE(values[k], k * 0.5);
        }
        QVERIFY(server.dataMessages().size() > 1); // the hand-over really overlapped
        thread.shutdown();
    }
};

QTEST_GUILESS_MAIN(TestPendingList)
#include "tst_pendinglist.moc"
