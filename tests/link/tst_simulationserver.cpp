// The shipped server class: message parsing, number formatting that reads
// back exactly, and time-outs instead of hangs.
#include <Orlavex/link/SocketClass.h>

#include "ServerThread.h"

#include <QTcpSocket>
#include <QtTest>

#include <cstring>
#include <limits>

class TestSimulationServer : public QObject {
    Q_OBJECT
private slots:
    // A silent client times the reads out instead of hanging the server.
    void readData_data() {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<int>("entries");
        QTest::newRow("empty") << QByteArray("0#") << true << 0;
        QTest::newRow("two") << QByteArray("2,3,0.500000,-7,-12.250000#") << true << 2;
        QTest::newRow("count too high") << QByteArray("2,3,0.5#") << false << 0;
        QTest::newRow("garbage") << QByteArray("x#") << false << 0;
        QTest::newRow("silent client") << QByteArray() << false << 0;
    }
    void readData() {
        QFETCH(QByteArray, message);
        QFETCH(bool, ok);
        QFETCH(int, entries);
        bool result = !ok, ack = true;
        QVector<SimulationServer::Entry> got;
        ServerThread server(
            [&](SimulationServer& s) {
                if (message.isEmpty())
                    ack = s.readClientAck();
                result = s.readData(&got);
            },
            message.isEmpty() ? 200 : 20000);
        QTcpSocket client;
        client.connectToHost(QHostAddress::LocalHost, server.port());
        QVERIFY(client.waitForConnected(10000));
        client.write(message);
        QVERIFY(client.waitForBytesWritten(10000) || message.isEmpty());
        QVERIFY(server.wait(15000));
        QCOMPARE(result, ok);
        QCOMPARE(ack, !message.isEmpty());
        QCOMPARE(got.size(), entries);
        if (entries == 2)
            QCOMPARE(got[1], SimulationServer::Entry(-7, -12.25));
    }

    void numbersReadBackExactly() {
        const double largest = std::numeric_limits<double>::max();
        const double smallest = std::numeric_limits<double>::denorm_min();
        const double values[] = {0.1, -0.0, 1e-300, 123456789.123456789, 0.1f, largest, smallest};
        const QByteArray text = SimulationServer::record(3, values, 7);
        QVERIFY(text.startsWith("3,"));
        QVERIFY(text.endsWith('#'));
        const QList<QByteArray> fields = text.mid(2, text.size() - 3).split(',');
        QCOMPARE(fields.size(), 7);
        for (int i = 0; i < 7; ++i) {
            const QString f = QString::fromLatin1(fields[i]);
            const double back = SocketClass::toDouble(f.constData(), f.size());
            QVERIFY2(std::memcmp(&back, &values[i], sizeof back) == 0, fields[i].constData());
        }
        // a float sent as double reaches a single-precision reader unchanged
        const QString f = QString::fromLatin1(fields[4]);
        QCOMPARE(SocketClass::toFloat(f.constData(), f.size()), 0.1f);
    }
};

QTEST_GUILESS_MAIN(TestSimulationServer)
#include "tst_simulationserver.moc"
