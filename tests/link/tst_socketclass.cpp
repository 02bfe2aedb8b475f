// SocketClass against the simulation server class on loopback: the worked
// example of the protocol, framing corner cases, lost connections, the
// verbose log and the parser's outputs.
#include <Orlavex/link/SocketClass.h>

#include "ServerThread.h"
#include "StdoutCapture.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <thread>

namespace {
QStringList logLines() {
    QFile file(QStringLiteral("info.txt"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromLatin1(file.readAll()).split('\n', Qt::SkipEmptyParts);
}

// Lines written once per wait slice depend on timing; the rest must match exactly.
QStringList withoutWaits(const QStringList& lines) {
    QStringList out;
    for (const QString& l : lines)
        if (!l.contains("Waiting for receiving data") && !l.contains("Time out DATA"))
            out << l;
    return out;
}

void connectTo(SocketClass& socket, ServerThread& server) {
    socket.setServerAddress("local");
    socket.setServerPort(server.port());
    socket.connectToServer();
}
} // namespace

class TestSocketClass : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY(QDir::setCurrent(m_dir.path())); // info.txt goes here
    }
    void init() { QFile::remove(QStringLiteral("info.txt")); }

    void workedExample() {
        QByteArray message;
        bool acks = false;
        ServerThread server([&](SimulationServer& s) {
            QVector<SimulationServer::Entry> entries;
            s.sendAck(QByteArray(1, '\x7f'));
            s.readData(&entries);
            message = s.lastDataMessage();
            acks = s.sendChalk(12) && s.sendRaw("5,1.5,-0.25,3#") && s.readClientAck();
        });
        SocketClass socket;
        connectTo(socket, server);
        int count = 2;
        QVector<int> indices{3, 7};
        QVector<double> values{0.5, -12.25};
        QCOMPARE(socket.sendData(&count, &indices, &values), 1);
        QCOMPARE(socket.getChalk(), 12);
        QString payload;
        QCOMPARE(socket.getNumValue(&payload), 5);
        QCOMPARE(payload, QStringLiteral("1.5,-0.25,3#"));
        QVector<float> numbers;
        QVector<int> ints;
        socket.processInput(&payload, &numbers, 3, &ints, 0);
        QCOMPARE(numbers, (QVector<float>{1.5f, -0.25f, 3.0f}));
        QVERIFY(ints.isEmpty());
        QVERIFY(server.wait(10000));
        QCOMPARE(message, QByteArray("2,3,0.500000,7,-12.250000#"));
        QCOMPARE(message.size(), 26);
        QVERIFY(acks);
        QCOMPARE(count, 2); // arguments are left alone
    }

    void dataMessage_data() {
        QTest::addColumn<int>("count");
        QTest::addColumn<QVector<int>>("indices");
        QTest::addColumn<QVector<double>>("values");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("count 0") << 0 << QVector<int>{} << QVector<double>{} << QByteArray("0#");
        QTest::newRow("negative") << 2 << QVector<int>{-3, 12} << QVector<double>{-2.5, -0.0}
                                  << QByteArray("2,-3,-2.500000,12,-0.000000#");
        QTest::newRow("six digits") << 2 << QVector<int>{1, 2}
                                    << QVector<double>{0.0000004, -0.0000004}
                                    << QByteArray("2,1,0.000000,2,-0.000000#");
        QTest::newRow("no exponent") << 1 << QVector<int>{9} << QVector<double>{1e20}
                                     << QByteArray("1,9,100000000000000000000.000000#");
        QTest::newRow("first N only") << 1 << QVector<int>{4, 5} << QVector<double>{2.5, 3}
                                      << QByteArray("1,4,2.500000#");
    }
    void dataMessage() {
        QFETCH(int, count);
        QFETCH(QVector<int>, indices);
        QFETCH(QVector<double>, values);
        QFETCH(QByteArray, expected);
        QByteArray message;
        ServerThread server([&](SimulationServer& s) {
            s.sendAck();
            message = s.readRaw(expected.size(), 10000);
        });
        SocketClass socket;
        connectTo(socket, server);
        QCOMPARE(socket.sendData(&count, &indices, &values), 1);
        QVERIFY(server.wait(15000));
        QCOMPARE(message, expected);
    }

    // Up to ten bytes of whatever arrived with the ack are swallowed; the
    // rest starts the next server string.
    void ackSwallowing_data() {
        QTest::addColumn<QByteArray>("ackBytes");
        QTest::addColumn<int>("chalk");
        QTest::newRow("three-byte ack") << QByteArray("abc") << 7;
        QTest::newRow("ack and more than ten bytes") << QByteArray("A12345678942#") << 42;
    }
    void ackSwallowing() {
        QFETCH(QByteArray, ackBytes);
        QFETCH(int, chalk);
        ServerThread server([&](SimulationServer& s) {
            QVector<SimulationServer::Entry> entries;
            s.sendRaw(ackBytes);
            s.readData(&entries);
            if (chalk == 7)
                s.sendChalk(7);
            else
                s.readClientAck();
        });
        SocketClass socket;
        connectTo(socket, server);
        int count = 0;
        QVector<int> indices;
        QVector<double> values;
        QCOMPARE(socket.sendData(&count, &indices, &values), 1);
        QCOMPARE(socket.getChalk(), chalk);
        QVERIFY(server.wait(15000));
    }

    void stringFraming() {
        ServerThread server([&](SimulationServer& s) {
            s.sendSplit("5,1.5,-0.25,3#", 5, 15); // several segments
            s.readClientAck();
            s.sendRaw("12#8,4#7#"); // three strings in one segment
            s.readClientAck();
            s.readClientAck();
            s.readClientAck();
            s.sendRaw("#abc#");
        });
        SocketClass socket;
        connectTo(socket, server);
        QString payload;
        QCOMPARE(socket.getNumValue(&payload), 5);
        QCOMPARE(payload, QStringLiteral("1.5,-0.25,3#"));
        QCOMPARE(socket.getChalk(), 12);
        QCOMPARE(socket.getNumValue(&payload), 8);
        QCOMPARE(payload, QStringLiteral("4#"));
        QCOMPARE(socket.getNumValue(&payload), 0); // no comma: num 0, whole string kept
        QCOMPARE(payload, QStringLiteral("7#"));
        QCOMPARE(socket.getChalk(), 0); // "#" alone
        QCOMPARE(socket.getChalk(), 0); // "abc#"
        QVERIFY(socket.lastStringComplete());
        QVERIFY(server.wait(15000));
    }

    void lostConnection_data() {
        QTest::addColumn<QByteArray>("sent");
        QTest::addColumn<int>("num");
        QTest::addColumn<QString>("payload");
        QTest::newRow("before the string") << QByteArray() << 0 << QString();
        QTest::newRow("during the string") << QByteArray("5,1.5,-0.") << 5 << "1.5,-0.";
    }
    void lostConnection() {
        QFETCH(QByteArray, sent);
        QFETCH(int, num);
        QFETCH(QString, payload);
        ServerThread server([&](SimulationServer& s) {
            if (!sent.isEmpty())
                s.sendRaw(sent);
            s.readRaw(1, 200);
            s.closeClient();
        });
        SocketClass socket;
        connectTo(socket, server);
        QString data;
        QCOMPARE(socket.getNumValue(&data), num);
        QCOMPARE(data, payload);
        QVERIFY(!socket.lastStringComplete());
        QVector<float> numbers;
        QVector<int> ints;
        StdoutCapture quiet; // an empty payload reports its missing comma
        socket.processInput(&data, &numbers, 2, &ints, 0);
        quiet.take();
        if (num == 5)
            QCOMPARE(numbers, (QVector<float>{1.5f, -0.0f})); // the last character is dropped
        int count = 0;
        QVector<int> indices;
        QVector<double> values;
        QCOMPARE(socket.sendData(&count, &indices, &values), 0);
        QVERIFY(server.wait(15000));
    }

    void sendDataWithoutServer() {
        SocketClass socket;
        int count = 0;
        QVector<int> indices;
        QVector<double> values;
        QCOMPARE(socket.sendData(&count, &indices, &values), 0); // never connected
        socket.setServerAddress("example.org");                  // a host name: null address
        socket.setVerbose(true);
        socket.connectToServer();
        QCOMPARE(socket.sendData(&count, &indices, &values), 0);
        QCOMPARE(logLines().mid(0, 4),
                 (QStringList{"FILE OPENED BY SOCKETCLASS", "SOCKET -1", "SOCKET: SEND DATA",
                              "SOCKET: Not connected"}));
    }

    void serverClosesWhileWaitingForAck() {
        ServerThread server([&](SimulationServer& s) {
            s.readRaw(1, 100);
            s.closeClient();
        });
        SocketClass socket;
        socket.setVerbose(true);
        connectTo(socket, server);
        int count = 1;
        QVector<int> indices{1};
        QVector<double> values{1};
        QCOMPARE(socket.sendData(&count, &indices, &values), 0);
        QVERIFY(server.wait(15000));
        const QStringList lines = logLines();
        QVERIFY(lines.size() >= 2);
        QCOMPARE(lines.mid(lines.size() - 2),
                 (QStringList{"SOCKET: recv_ack Time out DATA", "SOCKET: failed to receive ack"}));
    }

    void verboseLog() {
        ServerThread server([&](SimulationServer& s) {
            QVector<SimulationServer::Entry> entries;
            s.sendAck();
            s.readData(&entries);
            s.sendChalk(12);
            s.sendRecord(4, {1.5, 2});
        });
        {
            SocketClass socket;
            socket.setVerbose(true);
            connectTo(socket, server);
            int count = 1;
            QVector<int> indices{3};
            QVector<double> values{0.5};
            QCOMPARE(socket.sendData(&count, &indices, &values), 1);
            QCOMPARE(socket.getChalk(), 12);
            QString payload;
            QCOMPARE(socket.getNumValue(&payload), 4);
            QVERIFY(server.wait(15000));
        }
        const QStringList lines = withoutWaits(logLines());
        QCOMPARE(lines.size(), 18);
        QCOMPARE(lines[0], QStringLiteral("FILE OPENED BY SOCKETCLASS"));
        QVERIFY(QRegularExpression("^SOCKET \\d+$").match(lines[1]).hasMatch());
        const QStringList expected{
            "SOCKET: SEND DATA",
            "SOCKET: ACK - FUNCION recv_ack",
            "SOCKET::sendData: ack received",
            "1,3,0.500000#",
            "SOCKET: recv_string Entrada en funcion",
            "SOCKET: recv_string Receiving data",
            "SOCKET: recv_string: Client: recv terminal #",
            "SOCKET: recv_string: Client: recv 12#",
            "SOCKET: send_ack sentSOCKET: data GETCHALK 3",
            "SOCKET::getChalk, chalk: 12",
            "SOCKET: recv_string Entrada en funcion",
            "SOCKET: recv_string Receiving data",
            "SOCKET: recv_string: Client: recv terminal #",
            "SOCKET: recv_string: Client: recv 4,1.5,2#",
            "SOCKET: send_ack sentSOCKET::getNumValue, num: 4",
            "SOCKET: data without num 1.5,2#",
        };
        QCOMPARE(lines.mid(2), expected);
    }

    // The first-byte wait writes its two lines once per slice while the
    // server is silent, and still returns as soon as the string arrives.
    void verboseFirstByteWait() {
        ServerThread server([&](SimulationServer& s) {
            s.readRaw(1, 400); // silence
            s.sendChalk(3);
        });
        SocketClass socket;
        socket.setVerbose(true);
        connectTo(socket, server);
        QCOMPARE(socket.getChalk(), 3);
        QVERIFY(server.wait(15000));
        const QStringList lines = logLines();
        const int first = lines.indexOf("SOCKET: recv_string Waiting for receiving data");
        QVERIFY(first > 0);
        QCOMPARE(lines[first + 1], QStringLiteral("SOCKET: recv_string: Time out DATA"));
    }

    void closeFromAnotherThread() {
        ServerThread server([&](SimulationServer& s) { s.readRaw(1, 5000); });
        SocketClass socket;
        connectTo(socket, server);
        QElapsedTimer sinceClose;
        std::thread closer([&] {
            // Not a synchronisation: before or during the wait, the close must
            // end the call within one wait slice; the pause only makes "during"
            // the usual case.
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            sinceClose.start();
            socket.closeConnection();
        });
        QCOMPARE(socket.getChalk(), 0);
        const qint64 ms = sinceClose.elapsed();
        closer.join();
        qInfo("wait ended %lld ms after closeConnection", ms);
        QVERIFY2(ms < 1000, "the wait must end within one slice of the close");
        QVERIFY(!socket.isConnected());
        QVERIFY(server.wait(15000));
    }

    void stringTooLong() {
        ServerThread server([&](SimulationServer& s) {
            s.sendRaw(QByteArray(5000, '1'));
            s.readRaw(1, 2000);
        });
        SocketClass socket;
        socket.setMaxStringLength(1000);
        connectTo(socket, server);
        QString data;
        QCOMPARE(socket.getNumValue(&data), 0);
        QVERIFY(!socket.lastStringComplete());
        QVERIFY(data.isEmpty());
        QVERIFY(!socket.isConnected());
        QVERIFY(server.wait(15000));
    }

    void addressAndPort_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("address");
        QTest::newRow("localhost") << "localhost" << "127.0.0.1";
        QTest::newRow("LOCAL") << "LOCAL" << "127.0.0.1";
        QTest::newRow("my-local-box") << "my-local-box" << "127.0.0.1";
        QTest::newRow("IPv4") << "192.0.2.7" << "192.0.2.7";
        QTest::newRow("IPv6") << "2001:db8::1" << "2001:db8::1";
        QTest::newRow("host name") << "example.org" << QString();
        QTest::newRow("empty") << "" << QString();
        QTest::newRow("bad IPv4") << "999.1.1.1" << QString();
    }
    void addressAndPort() {
        QFETCH(QString, text);
        QFETCH(QString, address);
        SocketClass socket;
        QVERIFY(socket.serverAddress().isNull());
        QCOMPARE(socket.serverPort(), quint16(4848));
        socket.setServerAddress("192.0.2.99");
        socket.setServerAddress(text);
        QCOMPARE(socket.serverAddress().isNull(), address.isEmpty());
        if (!address.isEmpty())
            QCOMPARE(socket.serverAddress(), QHostAddress(address));
        socket.setServerPort(70000);
        QCOMPARE(socket.serverPort(), quint16(4464));
        socket.setServerPort(-1);
        QCOMPARE(socket.serverPort(), quint16(65535));
    }

    void processInput_data() {
        QTest::addColumn<QString>("payload");
        QTest::addColumn<int>("n");
        QTest::addColumn<int>("m");
        QTest::addColumn<QVector<float>>("numbers");
        QTest::addColumn<QVector<int>>("ints");
        QTest::addColumn<int>("errors");
        using F = QVector<float>;
        using I = QVector<int>;
        QTest::newRow("floats") << "1.5,-0.25,3#" << 3 << 0 << F{1.5f, -0.25f, 3} << I{} << 0;
        QTest::newRow("floats and ints") << "1.5,-0.25,3,4,2#" << 3 << 2 << F{1.5f, -0.25f, 3}
                                         << I{4, 2} << 0;
        QTest::newRow("surplus into last") << "1,2,3#" << 2 << 0 << F{1, 0} << I{} << 0;
        QTest::newRow("not a number") << "a,2#" << 2 << 0 << F{0, 2} << I{} << 0;
        QTest::newRow("nothing asked") << "#" << 0 << 0 << F{} << I{} << 0;
        QTest::newRow("too few numbers") << "1,2#" << 4 << 0 << F{1, 0, 0, 0} << I{} << 2;
        QTest::newRow("too few with ints") << "1#" << 1 << 2 << F{0} << I{0, 0} << 1;
        QTest::newRow("int without comma") << "1#" << 0 << 2 << F{} << I{0, 0} << 0;
        QTest::newRow("empty string") << "" << 1 << 1 << F{0} << I{0} << 1;
        QTest::newRow("single precision") << "0.1#" << 1 << 0 << F{0.1f} << I{} << 0;
    }
    void processInput() {
        QFETCH(QString, payload);
        QFETCH(int, n);
        QFETCH(int, m);
        QFETCH(QVector<float>, numbers);
        QFETCH(QVector<int>, ints);
        QFETCH(int, errors);
        SocketClass socket;
        QVector<float> got(10, 9.0f); // more entries than asked: resized to n
        QVector<int> gotInts(10, 9);
        const QString before = payload;
        {
            StdoutCapture out;
            socket.processInput(&payload, &got, n, &gotInts, m);
            QCOMPARE(out.take(), QByteArray("error process input\n").repeated(errors));
        }
        QCOMPARE(got, numbers);
        QCOMPARE(gotInts, ints);
        QCOMPARE(payload, before);

        // The double form reports to the log only, and only when verbose.
        QVector<double> doubles;
        {
            StdoutCapture out;
            socket.processInput(&payload, &doubles, n, &gotInts, m);
            QCOMPARE(out.take(), QByteArray());
        }
        QCOMPARE(doubles.size(), n);
        QCOMPARE(gotInts, ints);
    }

    void processInputVerbose() {
        ServerThread server([](SimulationServer&) {});
        SocketClass socket;
        socket.setVerbose(true);
        connectTo(socket, server); // opens the log
        QString payload = "1.5,x,7#";
        QVector<double> doubles;
        QVector<int> ints;
        {
            StdoutCapture out;
            socket.processInput(&payload, &doubles, 2, &ints, 1);
            QCOMPARE(out.take(), QByteArray("1.5\tx\t"));
        }
        QCOMPARE(ints, QVector<int>{7});
        payload = "1#";
        {
            StdoutCapture out;
            socket.processInput(&payload, &doubles, 3, &ints, 0);
            QCOMPARE(out.take(), QByteArray());
        }
        QCOMPARE(logLines().filter("Socket: Error en processInput").size(), 2);
        QVERIFY(server.wait(15000));
    }
};

QTEST_GUILESS_MAIN(TestSocketClass)
#include "tst_socketclass.moc"
