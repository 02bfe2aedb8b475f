#pragma once

#include <Orlavex/orlavex_export.h>

#include <QByteArray>
#include <QHostAddress>
#include <QString>
#include <QVector>

#include <atomic>
#include <memory>
#include <mutex>

class QTcpSocket;
class QThread;

namespace Orlavex {

class LogStream;

/// TCP client of the simulation server and codec of the wire protocol.
///
/// Every call blocks until its work on the wire is done. Thread roles:
/// - The thread that calls `connectToServer` owns the socket. One thread at a
///   time is inside a blocking call (`connectToServer`, `sendData`,
///   `getChalk`, `getNumValue`); each such call marks itself as inside.
/// - `closeConnection` may be called from any thread at any time. It closes
///   at once only when the caller owns the socket and no other thread is
///   inside a call, or when the caller is the thread inside the call.
///   Otherwise it only requests the close: the thread inside the call closes
///   the socket at its next wait slice (within about 40 ms) and the call
///   returns failure. A request made while no call runs is carried out by
///   the next call, which then fails at once; one made during
///   `connectToServer` makes the connect give up.
/// - `requestClose` always only requests: a shutdown that may come before the
///   connect (from any thread) uses it, so the connect that follows gives up
///   at once. A close by the owner with nothing connected is no request, so
///   a client may close and connect again.
///
/// Waits never spin and never outlive the connection: each wait runs in short
/// slices that end as soon as data arrives, and between slices it notices a
/// closed connection or a `closeConnection` from another thread.
class ORLAVEX_EXPORT SocketClass {
public:
    SocketClass();
    ~SocketClass();
    SocketClass(const SocketClass&) = delete;
    SocketClass& operator=(const SocketClass&) = delete;

    /// "local" anywhere in the text (any case) selects 127.0.0.1; otherwise the
    /// text must be a numeric IPv4 or IPv6 address, else the address is null.
    void setServerAddress(QString address);
    /// Keeps the low 16 bits of `port`.
    void setServerPort(int port);
    void setVerbose(bool verbose);

    /// Connects and sets the low-delay option (TCP_NODELAY) on the socket.
    void connectToServer();
    /// The same, giving up after `timeoutMs` (negative: never).
    void connectToServer(int timeoutMs);
    /// A wait for the server that sees no byte for `ms` fails, closing the
    /// link as a lost one ("the server was silent for 3 s"): across a
    /// dropped network no close may ever arrive. 0 (the default) waits for
    /// ever, as a paused simulation may legitimately take its time.
    void setSilenceLimit(int ms) { m_silenceMs = ms; }
    int silenceLimit() const { return m_silenceMs; }
    /// Closes the connection, at once or by request (see the class comment).
    void closeConnection();
    /// Asks the thread in a call, or the next call (a connect included), to
    /// close and fail; callable from any thread.
    void requestClose();

    /// Waits for the server ack, then sends the data message built from the
    /// first `*count` entries of the two vectors. 1 when sent, 0 when not.
    int sendData(int* count, QVector<int>* indices, QVector<double>* values);
    /// As above, for a pending list that another thread appends to: `lock` is
    /// held only while the message is built (after the ack has arrived, never
    /// across a wait), and `sent` receives the number of entries the message
    /// carried (0 when nothing was sent).
    int sendData(int* count, QVector<int>* indices, QVector<double>* values, std::mutex* lock,
                 int* sent);
    /// Reads a chalk string (acking it) and returns its integer (0 when none).
    int getChalk();
    /// Reads a record string (acking it); returns its num field and leaves the
    /// payload, terminal included, in `*data`.
    int getNumValue(QString* data);
    /// The same without a copy: the payload's bytes, terminal included, stay
    /// in the receive buffer, valid until the next call on this socket. Once
    /// they are used, `releaseReceiveBuffer()` gives back the room a string
    /// of many MiB took.
    int getNumValue(const char** payload, int* length);
    void releaseReceiveBuffer();
    /// Parses `n` numbers and then `m` integers of the payload; afterwards the
    /// vectors hold exactly n and m entries. A field that is not a number
    /// gives 0. When a field needs a separating comma and finds none, the
    /// payload has run out: that entry and every later entry of the call are
    /// 0 (each such number field is reported: "error process input" on
    /// standard output for single precision, a log line for double).
    void processInput(QString* data, QVector<float>* values, int n, QVector<int>* ints, int m);
    void processInput(QString* data, QVector<double>* values, int n, QVector<int>* ints, int m);
    /// The same on the payload's bytes, as the link thread parses a record
    /// it received (`getNumValue(const char**, int*)`): the same values, the
    /// same reports, without widening the payload to UTF-16 first.
    void processInput(const char* data, int length, QVector<float>* values, int n,
                      QVector<int>* ints, int m);
    void processInput(const char* data, int length, QVector<double>* values, int n,
                      QVector<int>* ints, int m);

    /// Fields that `processInput` found amiss since the last call of this
    /// function, which resets the count: a field that needed a comma and
    /// found none, a field that is not a number, and surplus fields after
    /// the last one read. The parsed values are unchanged by counting.
    /// What was wrong with the first field counted by `takeParseAnomalies`
    /// since the last call, in words (for example "field 4 of 10 has no
    /// comma; it and the rest read as 0"); empty when nothing was.
    QString takeAnomalyText();
    int takeParseAnomalies() {
        const int n = m_anomalies;
        m_anomalies = 0;
        return n;
    }
    /// Bytes of server strings received since the last call; resets the count.
    qint64 takeReceivedBytes() {
        const qint64 n = m_receivedBytes;
        m_receivedBytes = 0;
        return n;
    }

    /// The bytes of the last server string as they arrived, terminal included
    /// (a copy; for recording a session).
    QByteArray lastString() const { return m_lastString; }
    /// The last data message sent (for recording a session).
    QByteArray lastDataMessage() const { return m_tx; }
    /// Keeps a copy of each server string for `lastString` (off by default:
    /// it costs a copy per string).
    void setKeepStrings(bool on) { m_keepStrings = on; }

    /// Whether the last server string ended with its terminal (false after a
    /// read cut short by a lost connection or by the length limit).
    bool lastStringComplete() const { return m_lastStringComplete; }
    /// Whether the connection is up, as seen by the thread that uses the socket.
    bool isConnected() const;
    /// True once a connect has succeeded (a later failure is then a lost link).
    bool wasConnected() const { return m_wasConnected; }
    /// Why the link failed, in a few words for people ("connection refused",
    /// "the server closed the connection", ...); empty while nothing failed.
    QString failureReason() const;
    QHostAddress serverAddress() const { return m_address; }
    quint16 serverPort() const { return m_port; }
    bool isVerbose() const { return m_verbose; }

    /// Longest server string accepted, terminal included (default 256 MiB).
    /// A longer one ends the read, counts as a failed string and closes the
    /// connection, since the stream can no longer be followed.
    void setMaxStringLength(qint64 bytes) { m_maxStringLength = bytes; }
    qint64 maxStringLength() const { return m_maxStringLength; }

    /// The "%f" form of a value: identical to printf("%f") in the C locale.
    static void appendFixed6(QByteArray& out, double value);
    /// Field conversions, equal to QString::toFloat, toDouble and toInt
    /// (base 10) in the C locale for every input; 0 when not a number.
    static float toFloat(const QChar* text, int length);
    static double toDouble(const QChar* text, int length);
    static int toInt(const QChar* text, int length);

private:
    int recv_ack();
    QString recv_string(char terminal);
    void send_ack();

    bool readString(char terminal, QString* out);
    /// Reads one server string, logs it and sends the client ack. Its bytes
    /// (the terminal included when it arrived) stay at [*begin, *begin +
    /// *length) until the next read; true when the terminal arrived.
    bool receiveString(char terminal, const char** begin, int* length);
    template <typename T, typename Char>
    void parseFields(const Char* s, int length, QVector<T>* values, int n, QVector<int>* ints, int m);
    qint64 buffered() const;
    void releaseLargeBuffer();
    void widen(const char* src, int length, QString* out);
    static constexpr int kNormalBuffer = 64 * 1024;
    static constexpr int kLargeBuffer = 4 * 1024 * 1024;
    bool pollClose();
    bool waitReadable(bool ownBufferCounts); // false when the link is gone
    bool waitWritten();
    void log(const QByteArray& text);

    class CallScope;
    std::unique_ptr<LogStream> m_log;
    std::unique_ptr<QTcpSocket> m_socket;
    QHostAddress m_address;
    quint16 m_port = 4848;
    bool m_verbose = false;

    // Bytes taken from the socket but not yet consumed: what follows a
    // terminal stays here for the next read, exactly as if it were still in
    // the socket's receive buffer.
    QByteArray m_rx;
    int m_rxPos = 0;
    QByteArray m_tx;   // data message, reused every cycle
    QString m_scratch; // chalk string and record num field, reused every cycle
    bool m_lastStringComplete = true;
    int m_anomalies = 0;
    bool m_keepStrings = false;
    QByteArray m_lastString;
    qint64 m_receivedBytes = 0;
    qint64 m_maxStringLength = qint64(256) * 1024 * 1024;
    // Who may close the socket at once (see the class comment). The lock
    // covers the owner, the thread inside a call and the hand of the socket
    // to a new thread in connectToServer against a concurrent close.
    std::mutex m_ownerLock;
    QThread* m_socketThread = nullptr;
    QThread* m_inCall = nullptr;
    std::atomic<bool> m_closeRequested{false};
    bool m_wasConnected = false;
    int m_silenceMs = 0;
    QString m_anomalyText; ///< the first anomaly since takeAnomalyText
    void noteAnomaly(const QString& text);
    QString m_protocolError; ///< a failure the server's bytes caused
};

} // namespace Orlavex
