#pragma once

#include <Orlavex/orlavex_server_export.h>

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QHostAddress>
#include <QPair>
#include <QVector>

#include <initializer_list>

class QTcpServer;
class QTcpSocket;

namespace Orlavex {

/// The simulation server's half of the wire protocol, for servers written in
/// C++ with Qt (and for tests, benchmarks and the demo).
///
/// It listens, accepts one front-end and offers the server's messages: the
/// server ack, reading a data message, the chalk string, record strings and
/// the client ack, plus raw access for fault injection. Every call blocks;
/// reads wait at most `timeout()` (30 s by default, -1 for ever) and report
/// failure instead of hanging.
///
/// The object is used on one thread: the thread that calls `listen` creates
/// the sockets and must be the one that serves. It needs no event loop.
///
/// A cycle:
/// \code
///   server.nextCycle(&changes);         // (index, value) pairs from the front-end
///   server.addRecord(1, {x, y, z});     // one per registered object
///   server.finishCycle(cycle);          // the chalk string and the records go out
/// \endcode
/// Pipelined (the default), `finishCycle` sends the chalk string, every record
/// and the next cycle's server ack in one write, and the front-end's client
/// acks are read by the next `nextCycle`, before the data message: one round
/// trip per cycle instead of one per string. Nothing may be sent after the
/// server ack until the data message has arrived, because the front-end
/// swallows up to 10 bytes of whatever has arrived as the ack; the cycle
/// calls keep to that. A missing or wrong client ack still fails the cycle
/// (see `errorString`). Lock-step (`setPipelined(false)`) sends each string
/// and waits for its ack, as the single-message calls below do; those stay
/// for tests and fault injection.
class ORLAVEX_SERVER_EXPORT SimulationServer {
public:
    /// One (control index, value) pair of a data message.
    using Entry = QPair<int, double>;

    SimulationServer();
    ~SimulationServer();
    SimulationServer(const SimulationServer&) = delete;
    SimulationServer& operator=(const SimulationServer&) = delete;

    /// Listens on the address and port; port 0 picks a free port (see `port`).
    bool listen(const QHostAddress& address = QHostAddress(QHostAddress::LocalHost),
                quint16 port = 0);
    quint16 port() const;
    /// Waits for the front-end to connect; true once one is connected.
    /// Called again after a front-end has gone (a cycle call failed), it
    /// takes the next one: the listener stays open, and everything of the
    /// old connection (buffered bytes, outstanding acks, the cycle under
    /// way) is dropped, so the new front-end starts as the first did, with
    /// the server ack. The simulation itself is the caller's and goes on.
    bool waitForClient(int msecs = -1);
    /// With take-back on, a front-end that connects while the server waits
    /// for the current one replaces it: the wait ends as a lost link
    /// (`errorString()` says so), and the caller's `waitForClient()` takes
    /// the newcomer. A front-end that reconnects does so only after it lost
    /// its link, so the old one, silent across a dropped network, is gone
    /// even though no close reached the server. Off by default.
    void setTakeBack(bool on) { m_takeBack = on; }
    bool takeBack() const { return m_takeBack; }
    bool isConnected() const;

    /// Pipelined cycles (default true); see the class comment.
    void setPipelined(bool on) { m_pipelined = on; }
    bool isPipelined() const { return m_pipelined; }
    /// Starts a cycle: sends the server ack when it is due, reads the client
    /// acks of the previous cycle's strings (pipelined), then the data
    /// message. False when the front-end has gone or broke the protocol.
    bool nextCycle(QVector<Entry>* changes);
    /// Queues a record of this cycle. With a registry loaded, a record whose
    /// number is not registered or whose count differs is refused (false,
    /// see `errorString`) before anything goes on the wire.
    bool addRecord(int num, const double* values, int count);
    bool addRecord(int num, const QVector<double>& values);
    bool addRecord(int num, std::initializer_list<double> values);
    /// Queues a record string as it is, for tests and fault injection (no check).
    void addRecordString(const QByteArray& text);
    /// Sends the chalk string and the queued records (see the class comment).
    bool finishCycle(int chalk);
    /// Loads the front-end's registry description (`CommThread::writeRegistry`)
    /// against which `addRecord` checks every record.
    bool loadRegistry(const QString& path);
    /// What went wrong last, in words.
    QString errorString() const { return m_error; }

    /// Longest wait of a read, in milliseconds; -1 waits for ever.
    void setTimeout(int msecs) { m_timeout = msecs; }
    int timeout() const { return m_timeout; }

    /// Sends the server ack (one to ten bytes of any value).
    bool sendAck(const QByteArray& ack = QByteArray(1, '\x01'));
    /// Reads one data message into its entries; false on time-out, a closed
    /// connection or a message that does not follow the format.
    bool readData(QVector<Entry>* entries);
    /// The text of the last data message read, terminator included.
    QByteArray lastDataMessage() const { return m_lastMessage; }

    /// Sends "<chalk>#" and reads the client ack.
    bool sendChalk(int chalk);
    /// Sends "<num>,<v0>,<v1>,...#" and reads the client ack. Numbers are
    /// written in their shortest form that reads back to the same double.
    bool sendRecord(int num, const double* values, int count);
    bool sendRecord(int num, const QVector<double>& values);
    bool sendRecord(int num, std::initializer_list<double> values);
    /// Reads the one-byte client ack.
    bool readClientAck();

    /// Raw access for fault injection: any bytes, unframed.
    bool sendRaw(const QByteArray& bytes);
    /// Sends `bytes` in `parts` writes of about equal size, `pauseMs` apart.
    bool sendSplit(const QByteArray& bytes, int parts, int pauseMs);
    /// Reads whatever arrives within `msecs`, at most `maxBytes` bytes.
    QByteArray readRaw(int maxBytes, int msecs);
    /// Closes the front-end's connection (for instance in the middle of a string).
    void closeClient();
    /// Ends the connection with a reset (RST), as a crashed server host does.
    void resetClient();

    /// Appends the shortest text that reads back to `value`.
    static void appendNumber(QByteArray& out, double value);
    /// Builds a record string without sending it.
    static QByteArray record(int num, const double* values, int count);

private:
    bool fill(int msecs); // waits for more bytes into m_rx
    bool write(const QByteArray& bytes);
    bool fail(const QString& why);

    bool m_pipelined = true;
    bool m_ackDue = true;       ///< pipelined: the next nextCycle sends the ack
    int m_acksOutstanding = 0;  ///< pipelined: client acks not read yet
    QByteArray m_cycleOut;      ///< this cycle's record strings
    QVector<QPair<int, int>> m_cycleRecords; ///< lock-step: (offset, length) of each
    bool m_takeBack = false;
    bool m_replaced = false; ///< the current front-end gave way to a newcomer
    bool newcomerWaiting();
    QHash<int, int> m_registryCounts;        ///< num -> count; -1 for any count
    QHash<int, QString> m_registryKinds;
    QString m_error;
    QTcpServer* m_server = nullptr;
    QTcpSocket* m_client = nullptr;
    QByteArray m_rx;
    QByteArray m_lastMessage;
    int m_timeout = 30000;
};

} // namespace Orlavex

#ifndef ORLAVEX_NO_GLOBAL_NAMES
using Orlavex::SimulationServer;
#endif
