// SocketClass against the simulation server class on loopback: the worked
// example of the protocol with the verbose log, framing corner cases, strings
// cut short, failed sends, thread roles, addresses and the parser's outputs;
// the server class's own parsing, number formatting and time-outs; and the
// number conversions, which must agree bit for bit with Qt's own QString
// conversions in the C locale (and "%f" with printf), over hand-picked edge
// cases and many generated fields.
#include <Orlavex/Orlavex.h>

#include "Fixtures.h"
#include "ServerThread.h"
#include "StdoutCapture.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <clocale>
#include <random>
#include <cmath>
#include <cstring>
#include <limits>
#include <future>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
QStringList logLines() {
    LogStream::waitWritten(5000); // lines reach the file through the output thread
    QFile file(QStringLiteral("info.txt"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromLatin1(file.readAll()).split('\n', Qt::SkipEmptyParts);
}

void connectTo(SocketClass& socket, ServerThread& server) {
    socket.setServerAddress("local");
    socket.setServerPort(server.port());
    socket.connectToServer();
}

int send(SocketClass& socket, int count = 0, QVector<int> indices = {},
         QVector<double> values = {}) {
    return socket.sendData(&count, &indices, &values);
}
template <typename T> bool sameBits(T a, T b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

QStringList edgeFields() {
    // Separated by '|'; the first field is empty.
    return QString::fromUtf8(
               "| |0|-0|+0|00|0.0|-0.0|1|-1|+1| 1|1 |\t5\n|1.5|-12.25|.5|-.5|5.|1e5|1E5|1e+5|1e-5|"
               "1e|e5|1e5.5|1.5.5|--1|-+1|1-2|1,5|0x10|0x1p3|inf|-inf|+inf|INF|Infinity|nan|NaN|"
               "-nan|1e39|-1e39|3.4028235e38|3.4028236e38|3.40282357e38|1.17549435e-38|"
               "1.17549434e-38|1e-38|1e-39|1e-45|1.4e-45|7e-46|1e-50|1e308|1.7976931348623157e308|"
               "1.8e308|1e400|-1e400|-1e-400|-1e-50|-0e5|0e-999|2.2250738585072014e-308|2.2e-308|"
               "4.9e-324|1e-320|1e-400|2147483647|2147483648|-2147483648|-2147483649|4294967296|"
               "007|-007|0000000000001|999999999|-999999999|1000000000|12345678901234567890|1#|"
               "12#|#|abc|1.5#|٣|1\u00a0|0.1|0.3|123456789012345678901234567890|9007199254740993|"
               "1.00000005960464477550|16777217|0.000000000000000000000000000000000000000000001")
               .split('|')
           << QString(QChar(0));
}

QStringList generatedFields() {
    std::mt19937_64 rng(20261122);
    std::uniform_int_distribution<int> expo(-330, 330);
    std::uniform_real_distribution<double> mant(-10.0, 10.0);
    std::uniform_int_distribution<int> prec(0, 19);
    std::uniform_int_distribution<int> pick(0, 6);
    std::uniform_int_distribution<long long> integers(-5000000000LL, 5000000000LL);
    char buf[512];
    auto print = [&](const char* format, auto... args) {
        std::snprintf(buf, sizeof buf, format, args...);
        return QString::fromLatin1(buf);
    };
    QStringList out;
    for (int i = 0; i < 20000; ++i) {
        const double v = mant(rng) * std::pow(10.0, expo(rng) / (pick(rng) == 0 ? 1 : 8));
        const int p = prec(rng);
        const long long n = integers(rng);
        const QString forms[] = {print("%.*g", p, v),
                                 print("%.*e", p, v),
                                 print("%.*f", p % 8, std::fmod(v, 1e12)),
                                 print("%.17g", v),
                                 print("%lld", n),
                                 print("%.9g", double(float(v))),
                                 print("%d", int(n % 100000))};
        out << forms[pick(rng)];
    }
    return out;
}
} // namespace

class TestSocketClass : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY(QDir::setCurrent(m_dir.path())); // info.txt goes here
        std::setlocale(LC_NUMERIC, "C");
    }
    void init() { QFile::remove(QStringLiteral("info.txt")); }

    // The worked example of the protocol with the verbose log on: the log's
    // exact lines, and the verbose echo of each parsed field. (The bytes on
    // the wire and the parsed values: dataMessage, framing, processInput.)
    void workedExample() {
        ServerThread server([&](SimulationServer& s) {
            QVector<SimulationServer::Entry> entries;
            s.sendAck(QByteArray(1, '\x7f'));
            s.readData(&entries);
            // Silence until the client has logged a whole empty wait slice.
            QElapsedTimer silence;
            silence.start();
            while (!logLines().contains("SOCKET: recv_string: Time out DATA") &&
                   silence.elapsed() < 20000)
                s.readRaw(1, 20); // the client sends nothing while it waits
            s.sendChalk(12) && s.sendRaw("5,1.5,-0.25,3#") && s.readClientAck();
        });
        SocketClass socket;
        socket.setVerbose(true);
        connectTo(socket, server);
        QCOMPARE(send(socket, 2, {3, 7}, {0.5, -12.25}), 1);
        QCOMPARE(socket.getChalk(), 12);
        QString payload;
        QCOMPARE(socket.getNumValue(&payload), 5);
        QVector<float> numbers;
        QVector<double> doubles;
        QVector<int> ints;
        StdoutCapture out;
        socket.processInput(&payload, &numbers, 3, &ints, 0);
        payload = "1#"; // the double form reports missing commas to the log only
        socket.processInput(&payload, &doubles, 3, &ints, 0);
        QCOMPARE(out.take(), QByteArray("1.5\t-0.25\t3\t"));
        QVERIFY(server.wait(10000));

        const QStringList all = logLines();
        const int wait = all.indexOf("SOCKET: recv_string Waiting for receiving data");
        QVERIFY(wait > 0);
        QCOMPARE(all[wait + 1], QStringLiteral("SOCKET: recv_string: Time out DATA"));
        // Lines written once per wait slice depend on timing; the rest must match exactly.
        const QStringList lines =
            all.filter(QRegularExpression("^(?!.*(Waiting for receiving data|Time out DATA))"));
        QCOMPARE(lines[0], QStringLiteral("FILE OPENED BY SOCKETCLASS"));
        QVERIFY(QRegularExpression("^SOCKET \\d+$").match(lines[1]).hasMatch());
        const QStringList expected{"SOCKET: SEND DATA",
                                   "SOCKET: ACK - FUNCION recv_ack",
                                   "SOCKET::sendData: ack received",
                                   "2,3,0.500000,7,-12.250000#",
                                   "SOCKET: recv_string Entrada en funcion",
                                   "SOCKET: recv_string Receiving data",
                                   "SOCKET: recv_string: Client: recv terminal #",
                                   "SOCKET: recv_string: Client: recv 12#",
                                   "SOCKET: send_ack sentSOCKET: data GETCHALK 3",
                                   "SOCKET::getChalk, chalk: 12",
                                   "SOCKET: recv_string Entrada en funcion",
                                   "SOCKET: recv_string Receiving data",
                                   "SOCKET: recv_string: Client: recv terminal #",
                                   "SOCKET: recv_string: Client: recv 5,1.5,-0.25,3#",
                                   "SOCKET: send_ack sentSOCKET::getNumValue, num: 5",
                                   "SOCKET: data without num 1.5,-0.25,3#",
                                   "Socket: Error en processInput",
                                   "Socket: Error en processInput"};
        QCOMPARE(lines.mid(2), expected);
    }

    void dataMessage_data() {
        QTest::addColumn<int>("count");
        QTest::addColumn<QVector<int>>("indices");
        QTest::addColumn<QVector<double>>("values");
        QTest::addColumn<QByteArray>("expected");
        using I = QVector<int>;
        using D = QVector<double>;
        QTest::newRow("count 0") << 0 << I{} << D{} << QByteArray("0#");
        QTest::newRow("negative") << 2 << I{-3, 12} << D{-2.5, -0.0}
                                  << QByteArray("2,-3,-2.500000,12,-0.000000#");
        QTest::newRow("six digits")
            << 2 << I{1, 2} << D{0.0000004, -0.0000004} << QByteArray("2,1,0.000000,2,-0.000000#");
        QTest::newRow("no exponent")
            << 1 << I{9} << D{1e20} << QByteArray("1,9,100000000000000000000.000000#");
        QTest::newRow("first N only") << 1 << I{4, 5} << D{2.5, 3} << QByteArray("1,4,2.500000#");
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
        QCOMPARE(send(socket, count, indices, values), 1);
        QVERIFY(server.wait(15000));
        QCOMPARE(message, expected);
    }

    // Up to ten bytes of whatever arrives with the ack are swallowed; the rest
    // starts the next server string. A string may come in several segments,
    // and several strings in one.
    void framing() {
        ServerThread server([&](SimulationServer& s) {
            QVector<SimulationServer::Entry> entries;
            s.sendRaw("abc"); // a three-byte ack
            s.readData(&entries);
            s.sendSplit("5,1.5,-0.25,3#", 5, 15);
            s.readClientAck();
            s.sendRaw("12#8,4#7#");
            s.readRaw(3, 5000);         // three client acks
            s.sendRaw("A12345678942#"); // an ack and more than ten bytes
            s.readData(&entries);
            s.readClientAck();
            s.sendRaw("#abc#");
            s.readRaw(2, 5000);
        });
        SocketClass socket;
        connectTo(socket, server);
        QCOMPARE(send(socket), 1);
        QString payload;
        QCOMPARE(socket.getNumValue(&payload), 5);
        QCOMPARE(payload, QStringLiteral("1.5,-0.25,3#"));
        QCOMPARE(socket.getChalk(), 12);
        QCOMPARE(socket.getNumValue(&payload), 8);
        QCOMPARE(payload, QStringLiteral("4#"));
        QCOMPARE(socket.getNumValue(&payload), 0); // no comma: num 0, whole string kept
        QCOMPARE(payload, QStringLiteral("7#"));
        QCOMPARE(send(socket), 1);
        QCOMPARE(socket.getChalk(), 42);
        QCOMPARE(socket.getChalk(), 0); // "#" alone
        QCOMPARE(socket.getChalk(), 0); // "abc#"
        QVERIFY(socket.lastStringComplete());
        QVERIFY(server.wait(15000));
    }

    // A string cut short fails and leaves the link closed; sendData fails then.
    // (A close from another thread in the wait: closeFromAnyThread.)
    void cutShort_data() {
        QTest::addColumn<QByteArray>("sent");
        QTest::addColumn<QString>("closedBy");
        QTest::addColumn<int>("num");
        QTest::addColumn<QString>("payload");
        QTest::newRow("server, before the string") << QByteArray() << "server" << 0 << QString();
        QTest::newRow("server, during the string")
            << QByteArray("5,1.5,-0.") << "server" << 5 << "1.5,-0.";
        QTest::newRow("string longer than the maximum")
            << QByteArray(5000, '1') << "limit" << 0 << QString();
    }
    void cutShort() {
        QFETCH(QByteArray, sent);
        QFETCH(QString, closedBy);
        QFETCH(int, num);
        QFETCH(QString, payload);
        ServerThread server([&](SimulationServer& s) {
            s.sendRaw(sent);
            s.readRaw(1, closedBy == "server" ? 200 : 30000); // or until the client closes
            s.closeClient();
        });
        SocketClass socket;
        if (closedBy == "limit")
            socket.setMaxStringLength(1000);
        connectTo(socket, server);
        QString data;
        QCOMPARE(socket.getNumValue(&data), num);
        QCOMPARE(data, payload);
        QVERIFY(!socket.lastStringComplete());
        QVERIFY(!socket.isConnected());
        QCOMPARE(send(socket), 0);
        QVERIFY(server.wait(15000));
    }

    // An overlong string right behind a whole one in the same read gives
    // nothing: neither its own bytes nor those of the string before.
    void overlongAfterAWholeString() {
        ServerThread server([](SimulationServer& s) {
            s.sendRaw("3,1#" + QByteArray(5000, '1'));
            s.readRaw(2, 30000); // the client acks, or closes
        });
        SocketClass socket;
        socket.setMaxStringLength(1000);
        connectTo(socket, server);
        QString data;
        QCOMPARE(socket.getNumValue(&data), 3);
        QCOMPARE(data, QStringLiteral("1#"));
        QCOMPARE(socket.getNumValue(&data), 0);
        QCOMPARE(data, QString());
        QVERIFY(!socket.lastStringComplete());
        QVERIFY(!socket.isConnected());
        QVERIFY(server.wait(15000));
    }

    void sendDataFails_data() {
        QTest::addColumn<bool>("server");
        QTest::addColumn<QStringList>("log");
        QTest::newRow("not connected")
            << false << QStringList{"SOCKET -1", "SOCKET: SEND DATA", "SOCKET: Not connected"};
        QTest::newRow("server closes while the ack is awaited")
            << true
            << QStringList{"SOCKET: recv_ack Time out DATA", "SOCKET: failed to receive ack"};
    }
    void sendDataFails() {
        QFETCH(bool, server);
        QFETCH(QStringList, log);
        ServerThread closing(
            [](SimulationServer& s) {
                s.readRaw(1, 100); // no ack
                s.closeClient();
            },
            1000);
        SocketClass socket;
        QCOMPARE(send(socket), 0); // never connected
        socket.setVerbose(true);
        socket.setServerAddress(server ? "local" : "example.org"); // a host name: null address
        socket.setServerPort(closing.port());
        socket.connectToServer();
        QCOMPARE(send(socket, 1, {1}, {1}), 0);
        const QStringList lines = logLines();
        QCOMPARE(lines.mid(lines.size() - log.size()), log);
    }

    // Thread roles: whoever connected, a close from any thread ends a call
    // that another thread is blocked in within one wait slice, without
    // touching the socket under that thread's feet; a close before or during
    // a connect ends the connect.
    void closeFromAnyThread_data() {
        QTest::addColumn<int>("scene");
        QTest::newRow("A connects, B waits, A closes") << 0;
        QTest::newRow("A connects, A waits, B closes") << 1;
        QTest::newRow("close during connect") << 2;
        QTest::newRow("close before connect") << 3;
    }
    void closeFromAnyThread() {
        QFETCH(int, scene);
        // A listener whose accept queue is full leaves later connects hanging:
        // the kernel drops their handshakes.
        const int full = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t atLength = sizeof at;
        QVERIFY(::bind(full, reinterpret_cast<sockaddr*>(&at), sizeof at) == 0 &&
                ::listen(full, 0) == 0 &&
                ::getsockname(full, reinterpret_cast<sockaddr*>(&at), &atLength) == 0);
        std::vector<int> fillers;
        for (int i = 0; scene >= 2 && i < 4; ++i) {
            fillers.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
            ::connect(fillers.back(), reinterpret_cast<sockaddr*>(&at), sizeof at);
        }
        ServerThread silent([](SimulationServer& s) { s.readRaw(1, 5000); });

        SocketClass socket;
        socket.setServerAddress("local");
        socket.setServerPort(scene >= 2 ? ntohs(at.sin_port) : silent.port());
        std::atomic<qint64> closedAt{0}, returnedAt{0};
        QElapsedTimer clock;
        clock.start();
        auto close = [&] {
            closedAt = clock.nsecsElapsed();
            // Before the connect nothing is open: the owner's own close would be none.
            scene == 3 ? socket.requestClose() : socket.closeConnection();
        };
        if (scene == 3)
            close();
        if (scene == 0)
            socket.connectToServer(); // this thread owns the socket
        std::atomic<bool> waiting{false};
        std::thread worker([&] {
            if (scene == 1)
                socket.connectToServer(); // the worker owns it and waits
            waiting = true;
            scene >= 2 ? socket.connectToServer() : void(socket.getChalk());
            returnedAt = clock.nsecsElapsed();
        });
        if (scene != 3) {
            // The close may land just before the worker's wait or inside it:
            // the checks below hold either way. No event processing here:
            // in the first scene this thread owns the socket.
            while (!waiting.load())
                std::this_thread::yield();
            close();
        }
        worker.join();
        fillers.push_back(full);
        for (int fd : fillers)
            ::close(fd);
        QVERIFY(!socket.isConnected());
        QVERIFY2(returnedAt.load() - closedAt.load() < qint64(fixture::bound(100)) * 1000 * 1000,
                 qPrintable(QString::number((returnedAt - closedAt) / 1000000.0) + " ms"));
    }

    void addressAndPort_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("address"); // empty: a null address
        QTest::newRow("localhost") << "localhost" << QStringLiteral("127.0.0.1");
        QTest::newRow("LOCAL") << "LOCAL" << QStringLiteral("127.0.0.1");
        QTest::newRow("my-local-box") << "my-local-box" << QStringLiteral("127.0.0.1");
        QTest::newRow("IPv4") << "192.0.2.7" << QStringLiteral("192.0.2.7");
        QTest::newRow("IPv6") << "2001:db8::1" << QStringLiteral("2001:db8::1");
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
        QTest::newRow("floats and ints")
            << "1.5,-0.25,3,4,2#" << 3 << 2 << F{1.5f, -0.25f, 3} << I{4, 2} << 0;
        QTest::newRow("surplus into last") << "1,2,3#" << 2 << 0 << F{1, 0} << I{} << 0;
        QTest::newRow("not a number") << "a,2#" << 2 << 0 << F{0, 2} << I{} << 0;
        QTest::newRow("nothing asked") << "#" << 0 << 0 << F{} << I{} << 0;
        QTest::newRow("too few numbers") << "1,2#" << 4 << 0 << F{1, 0, 0, 0} << I{} << 2;
        QTest::newRow("too few with ints") << "1#" << 1 << 2 << F{0} << I{0, 0} << 1;
        QTest::newRow("int without comma") << "1#" << 0 << 2 << F{} << I{0, 0} << 0;
        QTest::newRow("empty string") << "" << 1 << 1 << F{0} << I{0} << 1;
        QTest::newRow("single precision") << "0.1#" << 1 << 0 << F{0.1f} << I{} << 0;
        QTest::newRow("cut short: the last character is dropped")
            << "1.5,-0.25" << 2 << 0 << F{1.5f, -0.2f} << I{} << 0;
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
        StdoutCapture out;
        socket.processInput(&payload, &got, n, &gotInts, m);
        QCOMPARE(out.take(), QByteArray("error process input\n").repeated(errors));
        QCOMPARE(got, numbers);
        QCOMPARE(gotInts, ints);
        QCOMPARE(payload, before);
        QVector<double> doubles;
        StdoutCapture quiet; // the double form reports to the log only, and only when verbose
        socket.processInput(&payload, &doubles, n, &gotInts, m);
        QCOMPARE(quiet.take(), QByteArray());
        QCOMPARE(doubles.size(), n);
        QCOMPARE(gotInts, ints);
    }

    // The server class itself: message parsing, and time-outs instead of hangs
    // (a silent client).
    void serverReadsData_data() {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<int>("entries");
        QTest::newRow("empty") << QByteArray("0#") << true << 0;
        QTest::newRow("two") << QByteArray("2,3,0.500000,-7,-12.250000#") << true << 2;
        QTest::newRow("count too high") << QByteArray("2,3,0.5#") << false << 0;
        QTest::newRow("garbage") << QByteArray("x#") << false << 0;
        QTest::newRow("silent client") << QByteArray() << false << 0;
    }
    void serverReadsData() {
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

    void serverNumbersReadBackExactly() {
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

    // A server takes the next front-end after one leaves, or, with take-back,
    // after a newcomer shows that the silent one is gone, and the same
    // simulation goes on: the chalk numbers continue across the clients.
    void serverTakesFrontEndBack_data() {
        QTest::addColumn<bool>("pipelined");
        QTest::addColumn<bool>("silent"); // the first front-end stays, saying nothing
        for (bool pipelined : {true, false})
            for (bool silent : {false, true})
                QTest::addRow("%s, %s", pipelined ? "pipelined" : "lock-step",
                              silent ? "silent" : "leaves")
                    << pipelined << silent;
    }
    void serverTakesFrontEndBack() {
        QFETCH(bool, pipelined);
        QFETCH(bool, silent);
        std::promise<quint16> listening;
        std::atomic<int> served{0};
        QString whyFirstLeft;
        std::thread server([&] {
            SimulationServer s;
            s.setPipelined(pipelined);
            s.setTakeBack(true);
            s.setTimeout(20000);
            listening.set_value(s.listen() ? s.port() : 0);
            int clients = 0;
            for (int cycle = 1; clients < 2 && s.waitForClient(20000); ++clients) {
                for (;; ++cycle) {
                    QVector<SimulationServer::Entry> changes;
                    if (!s.nextCycle(&changes))
                        break;
                    s.addRecord(1, {double(cycle)});
                    if (!s.finishCycle(cycle))
                        break;
                    served = cycle;
                }
                if (clients == 0)
                    whyFirstLeft = s.errorString();
            }
        });
        const quint16 port = listening.get_future().get();
        const auto cycles = [&](SocketClass& client, int count) {
            QVector<int> chalks;
            int none = 0;
            QVector<int> indices;
            QVector<double> values;
            QString payload;
            for (int k = 0; k < count; ++k) {
                if (!client.sendData(&none, &indices, &values))
                    break;
                chalks.append(client.getChalk());
                client.getNumValue(&payload);
            }
            return chalks;
        };
        SocketClass first, second;
        for (SocketClass* c : {&first, &second}) {
            c->setServerAddress("local");
            c->setServerPort(port);
        }
        first.connectToServer();
        QCOMPARE(cycles(first, 2), (QVector<int>{1, 2}));
        if (!silent)
            first.closeConnection();
        second.connectToServer();
        // The cycle the first one left open is served again to the second.
        QCOMPARE(cycles(second, 2), (QVector<int>{3, 4}));
        second.closeConnection();
        first.closeConnection();
        server.join();
        if (silent)
            QCOMPARE(whyFirstLeft,
                     QStringLiteral("a new front-end connected: the current one is taken as gone"));
    }

    // The front-end describes what it reads; the server class refuses a
    // record that does not match before anything goes on the wire.
    void serverChecksTheRegistry() {
        CommThread front;
        Sphere ball;
        ball.setInteractivelyPositioned(1);
        ScalarBar legend; // a kind whose records are read and ignored
        front.setSendingObjI(1, &ball);
        front.setSendingObjI(2, &legend);
        const QString path = m_dir.filePath(QStringLiteral("registry.json"));
        QVERIFY(front.writeRegistry(path));
        SimulationServer server;
        QVERIFY(server.loadRegistry(path));
        QVERIFY(server.addRecord(1, QVector<double>(10, 0.5)));
        QVERIFY(server.addRecord(2, {1, 2, 3})); // any count for an ignored kind
        QVERIFY(!server.addRecord(1, {1, 2, 3}));
        QCOMPARE(server.errorString(),
                 QStringLiteral("record 1 (Sphere) carries 3 numbers, the front-end reads 10"));
        QVERIFY(!server.addRecord(7, {1}) && server.errorString().contains("not registered"));
    }

    void sameAsQt_data() {
        QTest::addColumn<QStringList>("fields");
        QTest::newRow("edge cases") << edgeFields();
        QTest::newRow("generated") << generatedFields();
    }
    void sameAsQt() {
        QFETCH(QStringList, fields);
        for (const QString& f : fields) {
            const float qf = f.toFloat();
            const double qd = f.toDouble();
            const int qi = f.toInt(nullptr, 10);
            QVERIFY2(sameBits(SocketClass::toFloat(f.constData(), f.size()), qf) &&
                         sameBits(SocketClass::toDouble(f.constData(), f.size()), qd) &&
                         SocketClass::toInt(f.constData(), f.size()) == qi,
                     qPrintable("a conversion differs from Qt's for \"" + f + "\""));
        }
    }

    void fixedSameAsPrintf() {
        std::mt19937_64 rng(7);
        std::uniform_int_distribution<unsigned long long> bits;
        const double inf = std::numeric_limits<double>::infinity();
        const double nan = std::numeric_limits<double>::quiet_NaN();
        const double denorm = std::numeric_limits<double>::denorm_min();
        QVector<double> values;
        for (double v : {0.0, 2.5, 12.25, 0.0000004, 0.0000005, 0.0000015, 1e20, 1e300,
                         1.7976931348623157e308, denorm, inf, nan})
            values << v << -v;
        for (int i = 0; i < 20000; ++i) {
            const unsigned long long b = bits(rng);
            double d;
            std::memcpy(&d, &b, sizeof d);
            values << d << double(float(std::fmod(std::abs(d), 1e7)) * (i % 2 ? 1 : -1));
        }
        char expected[512];
        for (double v : values) {
            std::snprintf(expected, sizeof expected, "%f", v);
            QByteArray got;
            SocketClass::appendFixed6(got, v);
            QCOMPARE(got, QByteArray(expected));
        }
    }
};

QTEST_GUILESS_MAIN(TestSocketClass)
#include "tst_socketclass.moc"
