#include "SimulationServer.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <charconv>

#include <sys/socket.h>
#include <utility>
#include <cstdlib>

namespace Orlavex {

SimulationServer::SimulationServer() = default;

SimulationServer::~SimulationServer() {
    delete m_client;
    delete m_server;
}

bool SimulationServer::listen(const QHostAddress& address, quint16 port) {
    delete m_server;
    m_server = new QTcpServer;
    return m_server->listen(address, port);
}

quint16 SimulationServer::port() const { return m_server ? m_server->serverPort() : 0; }

bool SimulationServer::waitForClient(int msecs) {
    if (!m_server)
        return false;
    if (!m_server->hasPendingConnections() && !m_server->waitForNewConnection(msecs))
        return false;
    delete m_client;
    m_client = m_server->nextPendingConnection();
    m_replaced = false;
    m_rx.clear();
    m_ackDue = true;
    m_acksOutstanding = 0;
    m_cycleOut.clear();
    m_cycleRecords.clear();
    if (!m_client)
        return false;
    m_client->setParent(nullptr);
    // The front-end's strings and acks are tiny: they must not wait for
    // Nagle's algorithm and the peer's delayed ACK.
    m_client->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    return true;
}

bool SimulationServer::isConnected() const {
    return m_client && m_client->state() == QAbstractSocket::ConnectedState;
}

bool SimulationServer::write(const QByteArray& bytes) {
    if (!isConnected())
        return false;
    m_client->write(bytes);
    while (m_client->bytesToWrite() > 0) {
        if (!m_client->waitForBytesWritten(m_timeout))
            return false;
    }
    return true;
}

bool SimulationServer::fill(int msecs) {
    if (!m_client)
        return false;
    if (m_client->bytesAvailable() == 0 && !m_client->waitForReadyRead(msecs)) {
        if (newcomerWaiting()) {
            m_replaced = true;
            m_client->abort();
        }
        return false;
    }
    m_rx.append(m_client->readAll());
    return true;
}

bool SimulationServer::newcomerWaiting() {
    if (!m_takeBack || !m_server)
        return false;
    // No event loop here: looking for a connection means accepting it into
    // the listener's queue, where waitForClient finds it.
    if (!m_server->hasPendingConnections())
        m_server->waitForNewConnection(0);
    return m_server->hasPendingConnections();
}

bool SimulationServer::sendAck(const QByteArray& ack) { return write(ack); }

bool SimulationServer::readData(QVector<Entry>* entries) {
    const QDeadlineTimer deadline =
        m_timeout < 0 ? QDeadlineTimer(QDeadlineTimer::Forever) : QDeadlineTimer(qint64(m_timeout));
    int end;
    while ((end = m_rx.indexOf('#')) < 0) {
        if (!fill(int(qMin<qint64>(deadline.remainingTime() < 0 ? 1000 : deadline.remainingTime(),
                                   1000))) &&
            (deadline.hasExpired() || !isConnected()))
            return false;
    }
    m_lastMessage = m_rx.left(end + 1);
    m_rx.remove(0, end + 1);
    entries->clear();

    const QList<QByteArray> fields = m_lastMessage.left(end).split(',');
    bool ok = false;
    const int n = fields.value(0).toInt(&ok);
    if (!ok || n < 0 || fields.size() != 1 + 2 * n)
        return false;
    for (int k = 0; k < n; ++k) {
        bool okIndex = false, okValue = false;
        const int index = fields[1 + 2 * k].toInt(&okIndex);
        const double value = fields[2 + 2 * k].toDouble(&okValue);
        if (!okIndex || !okValue)
            return false;
        entries->append(Entry(index, value));
    }
    return true;
}

bool SimulationServer::readClientAck() {
    const QDeadlineTimer deadline =
        m_timeout < 0 ? QDeadlineTimer(QDeadlineTimer::Forever) : QDeadlineTimer(qint64(m_timeout));
    while (m_rx.isEmpty()) {
        const qint64 left = deadline.remainingTime();
        if (!fill(int(left < 0 ? 1000 : qMin<qint64>(left, 1000))) &&
            (deadline.hasExpired() || !isConnected()))
            return false;
    }
    const bool ack = m_rx.at(0) == '\0';
    m_rx.remove(0, 1);
    return ack;
}

bool SimulationServer::sendChalk(int chalk) {
    return write(QByteArray::number(chalk) + '#') && readClientAck();
}

void SimulationServer::appendNumber(QByteArray& out, double value) {
    char buf[64];
    const auto r = std::to_chars(buf, buf + sizeof buf, value);
    out.append(buf, int(r.ptr - buf));
}

QByteArray SimulationServer::record(int num, const double* values, int count) {
    QByteArray text = QByteArray::number(num);
    text.reserve(text.size() + 2 + count * 12);
    text.append(',');
    for (int i = 0; i < count; ++i) {
        if (i > 0)
            text.append(',');
        appendNumber(text, values[i]);
    }
    text.append('#');
    return text;
}

bool SimulationServer::sendRecord(int num, const double* values, int count) {
    return write(record(num, values, count)) && readClientAck();
}

bool SimulationServer::sendRecord(int num, const QVector<double>& values) {
    return sendRecord(num, values.constData(), values.size());
}

bool SimulationServer::sendRecord(int num, std::initializer_list<double> values) {
    return sendRecord(num, values.begin(), int(values.size()));
}

bool SimulationServer::sendRaw(const QByteArray& bytes) { return write(bytes); }

bool SimulationServer::sendSplit(const QByteArray& bytes, int parts, int pauseMs) {
    parts = qMax(1, qMin(parts, bytes.size()));
    const int step = (bytes.size() + parts - 1) / parts;
    for (int from = 0; from < bytes.size(); from += step) {
        if (from > 0)
            QThread::msleep(ulong(pauseMs));
        if (!write(bytes.mid(from, step)))
            return false;
    }
    return true;
}

QByteArray SimulationServer::readRaw(int maxBytes, int msecs) {
    QDeadlineTimer deadline(msecs);
    while (m_rx.size() < maxBytes && !deadline.hasExpired()) {
        if (!fill(int(qMax<qint64>(1, deadline.remainingTime()))) && !isConnected())
            break;
    }
    const QByteArray out = m_rx.left(maxBytes);
    m_rx.remove(0, out.size());
    return out;
}

void SimulationServer::closeClient() {
    if (m_client) {
        m_client->close();
        if (m_client->state() != QAbstractSocket::UnconnectedState)
            m_client->abort();
    }
}


void SimulationServer::resetClient() {
    if (!m_client || m_client->socketDescriptor() < 0)
        return;
    // A zero linger time makes the close send a reset instead of a FIN.
    const linger hard{1, 0};
    ::setsockopt(int(m_client->socketDescriptor()), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    m_client->abort();
}

bool SimulationServer::fail(const QString& why) {
    m_error = m_replaced
                  ? QStringLiteral("a new front-end connected: the current one is taken as gone")
                  : why;
    return false;
}

bool SimulationServer::nextCycle(QVector<Entry>* changes) {
    if (!m_pipelined || m_ackDue) {
        if (!sendAck())
            return fail(QStringLiteral("the front-end has gone (sending the server ack)"));
        m_ackDue = false;
    }
    for (int k = 0; k < m_acksOutstanding; ++k) {
        if (!readClientAck()) {
            m_acksOutstanding = 0;
            return fail(QStringLiteral("client ack %1 of the last cycle missing or not 0x00")
                            .arg(k + 1));
        }
    }
    m_acksOutstanding = 0;
    if (!readData(changes))
        return fail(QStringLiteral("no valid data message (the front-end has gone or broke the "
                                   "protocol): \"%1\"")
                        .arg(QString::fromLatin1(m_lastMessage.left(80))));
    return true;
}

bool SimulationServer::addRecord(int num, const double* values, int count) {
    if (!m_registryCounts.isEmpty()) {
        const auto expected = m_registryCounts.constFind(num);
        if (expected == m_registryCounts.cend())
            return fail(QStringLiteral("record %1 is not registered by the front-end").arg(num));
        if (*expected >= 0 && *expected != count)
            return fail(QStringLiteral("record %1 (%2) carries %3 numbers, the front-end reads %4")
                            .arg(num)
                            .arg(m_registryKinds.value(num))
                            .arg(count)
                            .arg(*expected));
    }
    const int from = m_cycleOut.size();
    m_cycleOut.append(record(num, values, count));
    m_cycleRecords.append(qMakePair(from, m_cycleOut.size() - from));
    return true;
}

void SimulationServer::addRecordString(const QByteArray& text) {
    m_cycleRecords.append(qMakePair(m_cycleOut.size(), text.size()));
    m_cycleOut.append(text);
}

bool SimulationServer::addRecord(int num, const QVector<double>& values) {
    return addRecord(num, values.constData(), values.size());
}

bool SimulationServer::addRecord(int num, std::initializer_list<double> values) {
    return addRecord(num, values.begin(), int(values.size()));
}

bool SimulationServer::finishCycle(int chalk) {
    QByteArray out;
    out.swap(m_cycleOut);
    const QVector<QPair<int, int>> records = std::exchange(m_cycleRecords, {});
    if (m_pipelined) {
        // One write: chalk, records, and the ack that opens the next cycle.
        QByteArray all = QByteArray::number(chalk) + '#';
        all.append(out);
        all.append('\x01');
        m_acksOutstanding = 1 + records.size();
        return write(all) || fail(QStringLiteral("the front-end has gone (sending the cycle)"));
    }
    if (!sendChalk(chalk))
        return fail(QStringLiteral("the front-end has gone or sent a wrong ack (chalk)"));
    for (const auto& r : records)
        if (!write(out.mid(r.first, r.second)) || !readClientAck())
            return fail(QStringLiteral("the front-end has gone or sent a wrong ack (record)"));
    return true;
}

bool SimulationServer::loadRegistry(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("cannot read %1").arg(path));
    const QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
    if (root.value(QStringLiteral("format")).toString() != QLatin1String("orlavex-registry"))
        return fail(QStringLiteral("%1 is not a registry description").arg(path));
    m_registryCounts.clear();
    m_registryKinds.clear();
    for (const QJsonValue& v : root.value(QStringLiteral("records")).toArray()) {
        const QJsonObject r = v.toObject();
        const int num = r.value(QStringLiteral("num")).toInt();
        const bool ignored = r.value(QStringLiteral("ignored")).toBool();
        m_registryCounts.insert(num, ignored ? -1 : r.value(QStringLiteral("count")).toInt());
        m_registryKinds.insert(num, r.value(QStringLiteral("kind")).toString());
    }
    // Two controls under one index: the server could not tell which the
    // user changed.
    QHash<int, QString> controls;
    for (const QJsonValue& v : root.value(QStringLiteral("controls")).toArray()) {
        const QJsonObject c = v.toObject();
        const int index = c.value(QStringLiteral("index")).toInt(-1);
        QString label = c.value(QStringLiteral("kind")).toString();
        if (c.contains(QStringLiteral("name")))
            label += QStringLiteral(" \"%1\"").arg(c.value(QStringLiteral("name")).toString());
        if (index >= 0 && controls.contains(index))
            return fail(QStringLiteral("%1: control index %2 is registered twice: %3 and %4")
                            .arg(path)
                            .arg(index)
                            .arg(controls.value(index), label));
        controls.insert(index, label);
    }
    return true;
}

} // namespace Orlavex
