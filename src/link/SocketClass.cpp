#include "SocketClass.h"

#include <QDeadlineTimer>

#include <type_traits>

#include <Orlavex/common/LogStream.h>

#include <QDebug>
#include <QTcpSocket>
#include <QThread>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <sys/mman.h>
#include <unistd.h>

namespace Orlavex {

namespace {

// Length of one wait slice. Every wait of this class is a loop of such
// slices, so that a closed connection or a close request from another thread
// ends it within one slice, and no slice spins: each one sleeps in the
// socket's own select until data arrives or the slice ends.
constexpr int kSliceMs = 40;

// Fields at least this long are left to Qt's conversion.
constexpr int kFastField = 64;

// Narrows UTF-16 to bytes for the fast conversion. A unit that is not Latin-1
// becomes 0x00 or 0xFF, never a digit, a sign, a point, an exponent or a
// comma: a field that holds one fails the fast conversion and goes to Qt with
// its original characters, and no separator appears that was not there.
void narrow(const QChar* text, int length, char* out) {
    const auto* src = reinterpret_cast<const ushort*>(text);
    int i = 0;
#ifdef __SSE2__
    // The pack saturates as signed: 0x0100-0x7FFF give 0xFF, 0x8000 up give 0.
    for (; i + 16 <= length; i += 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 8));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(a, b));
    }
#endif
    for (; i < length; ++i)
        out[i] = char(src[i] > 0xFF ? 0xFF : src[i]);
}

// Common numbers are read with std::from_chars, which rounds correctly like
// Qt's own conversion. Results where Qt applies its own rules (values outside
// the normal range of the target type, anything from_chars does not take
// whole) are left to Qt: the callers accept only zero and normal values.
// Taken whole with such a result, a field holds only digits, one minus, a
// point and an exponent: "inf" and "nan" are not normal, and a plus, a space
// or a hexadecimal prefix stop from_chars early.
Q_ALWAYS_INLINE bool fastDouble(const char* text, int length, double* out) {
    if (!text || length <= 0 || length >= kFastField)
        return false;
    const auto r = std::from_chars(text, text + length, *out);
    return r.ec == std::errc() && r.ptr == text + length;
}

} // namespace

SocketClass::SocketClass() : m_log(new LogStream), m_socket(new QTcpSocket) {
    m_socketThread = QThread::currentThread();
    m_rx.reserve(kNormalBuffer); // reserved capacity survives resize(0)
    m_tx.reserve(4 * 1024);
    m_scratch.reserve(256);
}

SocketClass::~SocketClass() {
    m_log->close();
}

void SocketClass::setServerAddress(QString address) {
    if (address.contains(QLatin1String("local"), Qt::CaseInsensitive)) {
        m_address = QHostAddress(QHostAddress::LocalHost);
        return;
    }
    m_address = QHostAddress();
    if (!m_address.setAddress(address))
        m_address = QHostAddress();
}

void SocketClass::setServerPort(int port) {
    m_port = quint16(port & 0xFFFF);
}

void SocketClass::setVerbose(bool verbose) {
    m_verbose = verbose;
}

void SocketClass::log(const QByteArray& text) {
    m_log->line(text);
}

// Marks the calling thread as the one inside a blocking call for the call's
// length, so that a close from any other thread only requests the close.
class SocketClass::CallScope {
public:
    explicit CallScope(SocketClass* s) : m_s(s) {
        std::lock_guard<std::mutex> guard(s->m_ownerLock);
        m_outer = s->m_inCall;
        s->m_inCall = QThread::currentThread();
    }
    ~CallScope() {
        std::lock_guard<std::mutex> guard(m_s->m_ownerLock);
        m_s->m_inCall = m_outer;
    }
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

private:
    SocketClass* m_s;
    QThread* m_outer;
};

void SocketClass::connectToServer() {
    connectToServer(-1);
}

void SocketClass::connectToServer(int timeoutMs) {
    CallScope scope(this);
    m_log->open();
    m_log->line("FILE OPENED BY SOCKETCLASS");

    // The socket belongs to the thread that connects it, normally the link
    // thread. An unused socket made by the constructor on another thread is
    // replaced here. A close requested before this call is kept: the connect
    // then gives up at once, so a shutdown that lands early is not lost.
    QThread* here = QThread::currentThread();
    {
        std::lock_guard<std::mutex> guard(m_ownerLock);
        if (m_socket->thread() != here) {
            m_socket.reset(new QTcpSocket);
        }
        m_socketThread = here;
        if (m_socket->state() != QAbstractSocket::UnconnectedState)
            m_socket->abort();
        m_rx.resize(0);
        m_rxPos = 0;
        m_wasConnected = false;
        m_protocolError.clear();
    }

    if (!pollClose()) {
        m_socket->connectToHost(m_address, m_port, QIODevice::ReadWrite);
        // By default no time limit, as a connect has no retry; the slices
        // only let a close request from another thread end an attempt that
        // hangs. A reconnecting link gives each attempt a limit.
        QDeadlineTimer deadline(timeoutMs < 0 ? QDeadlineTimer::Forever
                                              : QDeadlineTimer(timeoutMs));
        while (m_socket->state() == QAbstractSocket::HostLookupState ||
               m_socket->state() == QAbstractSocket::ConnectingState) {
            if (m_socket->waitForConnected(kSliceMs))
                break;
            if (pollClose())
                break;
            if (deadline.hasExpired()) {
                m_socket->abort();
                break;
            }
        }
    }
    if (m_socket->state() == QAbstractSocket::ConnectedState) {
        m_wasConnected = true;
        // One-byte acks and short data messages must not wait for Nagle's
        // algorithm and the peer's delayed ACK: at internet latency that
        // costs a round trip per string.
        m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        // Qt's own read buffer holds what the kernel had before we take it;
        // bounded, a string of many MiB is not held twice on its way in.
        m_socket->setReadBufferSize(kNormalBuffer * 16);
    } else {
        qDebug("Failed to connect per 1 second.");
        qDebug("%s", m_socket->errorString().toLocal8Bit().constData());
    }
    if (m_verbose)
        log("SOCKET " + QByteArray::number(qlonglong(m_socket->socketDescriptor())));
}

void SocketClass::closeConnection() {
    std::lock_guard<std::mutex> guard(m_ownerLock);
    QThread* here = QThread::currentThread();
    // At once only when no other thread can be inside a wait on the socket:
    // either nobody is in a call and the caller owns the socket, or the
    // caller is the thread inside the call (the close then comes from within).
    const bool mayClose = m_inCall ? m_inCall == here : m_socketThread == here;
    if (!mayClose) {
        m_closeRequested = true;
        return;
    }
    m_closeRequested = false;
    m_socket->close();
    if (m_socket->state() != QAbstractSocket::UnconnectedState)
        m_socket->abort();
    m_rx.resize(0);
    m_rxPos = 0;
}

void SocketClass::requestClose() {
    m_closeRequested = true;
}

bool SocketClass::pollClose() {
    if (!m_closeRequested.load())
        return false;
    closeConnection(); // called inside a call: closes at once
    return true;
}

void SocketClass::noteAnomaly(const QString& text) {
    m_anomalyText = text;
}

QString SocketClass::takeAnomalyText() {
    QString text;
    text.swap(m_anomalyText);
    return text;
}

QString SocketClass::failureReason() const {
    if (!m_protocolError.isEmpty())
        return m_protocolError;
    switch (m_socket->error()) {
    case QAbstractSocket::ConnectionRefusedError:
        return QStringLiteral("connection refused");
    case QAbstractSocket::RemoteHostClosedError:
        return QStringLiteral("the server closed the connection");
    case QAbstractSocket::HostNotFoundError:
        return QStringLiteral("host not found");
    case QAbstractSocket::NetworkError:
        return QStringLiteral("the network failed");
    case QAbstractSocket::UnknownSocketError:
        // A close seen through the socket's state, before any error was set.
        return m_wasConnected ? QStringLiteral("the server closed the connection")
                              : QStringLiteral("no connection");
    default:
        return m_socket->errorString();
    }
}

bool SocketClass::isConnected() const {
    return m_socket->state() == QAbstractSocket::ConnectedState;
}

qint64 SocketClass::buffered() const {
    return qint64(m_rx.size() - m_rxPos) + m_socket->bytesAvailable();
}

bool SocketClass::waitReadable(bool ownBufferCounts) {
    QDeadlineTimer silence(m_silenceMs > 0 ? QDeadlineTimer(m_silenceMs)
                                           : QDeadlineTimer(QDeadlineTimer::Forever));
    for (;;) {
        if (ownBufferCounts ? buffered() > 0 : m_socket->bytesAvailable() > 0)
            return true;
        if (pollClose())
            return false;
        if (m_socket->state() != QAbstractSocket::ConnectedState)
            return m_socket->bytesAvailable() > 0;
        if (m_socket->waitForReadyRead(kSliceMs))
            return true;
        if (silence.hasExpired()) {
            m_protocolError =
                QStringLiteral("the server was silent for %1 s").arg(m_silenceMs / 1000.0);
            m_socket->abort();
            return false;
        }
    }
}

bool SocketClass::waitWritten() {
    while (m_socket->bytesToWrite() > 0) {
        if (pollClose() || m_socket->state() != QAbstractSocket::ConnectedState)
            return false;
        m_socket->waitForBytesWritten(kSliceMs);
    }
    return true;
}

int SocketClass::sendData(int* count, QVector<int>* indices, QVector<double>* values) {
    return sendData(count, indices, values, nullptr, nullptr);
}

int SocketClass::sendData(int* count, QVector<int>* indices, QVector<double>* values,
                          std::mutex* lock, int* sent) {
    CallScope scope(this);
    if (sent)
        *sent = 0;
    if (m_verbose) {
        log("SOCKET: SEND DATA");
        qDebug("sendData");
    }
    pollClose();
    if (m_socket->state() != QAbstractSocket::ConnectedState) {
        if (m_verbose)
            log("SOCKET: Not connected");
        return 0;
    }
    if (!recv_ack()) {
        if (m_verbose)
            log("SOCKET: failed to receive ack");
        return 0;
    }
    if (m_verbose)
        log("SOCKET::sendData: ack received");

    // The message is built after the ack, under the owner's lock if it gave
    // one, so it carries every entry recorded up to this moment.
    m_tx.resize(0);
    int n = 0;
    {
        std::unique_lock<std::mutex> guard;
        if (lock)
            guard = std::unique_lock<std::mutex>(*lock);
        n = *count;
        char buf[16];
        // count, then ",index,value" per entry, then the terminal; a negative
        // count sends the terminal alone
        if (n >= 0)
            m_tx.append(buf, int(std::to_chars(buf, buf + sizeof buf, n).ptr - buf));
        for (int k = 0; k < n; ++k) {
            m_tx.append(',');
            m_tx.append(buf, int(std::to_chars(buf, buf + sizeof buf, indices->at(k)).ptr - buf));
            m_tx.append(',');
            appendFixed6(m_tx, values->at(k));
        }
        m_tx.append('#');
    }
    if (sent)
        *sent = n;
    if (m_verbose)
        log(m_tx);
    m_socket->write(m_tx);
    waitWritten();
    return 1;
}

int SocketClass::recv_ack() {
    if (m_verbose) {
        log("SOCKET: ACK - FUNCION recv_ack");
        qDebug("SOCKET: ACK - FUNCION recv_ack");
    }
    while (buffered() == 0) {
        if (m_verbose)
            log("SOCKET: ACK - Waiting for receiving data");
        if (!waitReadable(true)) {
            if (m_verbose)
                log("SOCKET: recv_ack Time out DATA");
            return 0;
        }
    }
    // Swallow at most ten bytes of whatever has arrived, ours first.
    int take = 10;
    const int own = qMin(take, m_rx.size() - m_rxPos);
    m_rxPos += own;
    take -= own;
    if (take > 0 && m_socket->bytesAvailable() > 0) {
        char sink[10];
        m_socket->read(sink, take);
    }
    return 1;
}

bool SocketClass::readString(char terminal, QString* out) {
    const char* src = nullptr;
    int length = 0;
    const bool complete = receiveString(terminal, &src, &length);
    widen(src, length, out);
    releaseLargeBuffer();
    return complete;
}

void SocketClass::widen(const char* src, int length, QString* out) {
    if (length <= kLargeBuffer) {
        *out = QLatin1String(src, length); // reuses the string's room when it fits
        return;
    }
    // A string of many MiB: widened piece by piece, and each piece of the
    // receive buffer that has been copied is handed back to the system at
    // once, so the narrow and the wide copy are never both resident whole.
    // (The buffer's pages read as zeros afterwards; releaseLargeBuffer drops
    // it next, keeping only what follows the string.)
    out->resize(length);
    QChar* dst = out->data();
    const long page = ::sysconf(_SC_PAGESIZE);
    constexpr int kPiece = 1 << 20;
    for (int done = 0; done < length;) {
        const int n = qMin(kPiece, length - done);
        for (int i = 0; i < n; ++i)
            dst[done + i] = QLatin1Char(src[done + i]);
        done += n;
        const auto first = (reinterpret_cast<quintptr>(src) + quintptr(page) - 1) & ~quintptr(page - 1);
        const auto end = (reinterpret_cast<quintptr>(src) + quintptr(done)) & ~quintptr(page - 1);
        if (end > first)
            ::madvise(reinterpret_cast<void*>(first), end - first, MADV_DONTNEED);
    }
}

void SocketClass::releaseLargeBuffer() {
    // A string of many MiB grew the receive buffer; once its bytes have been
    // copied out the room goes back to the system at once, so that a single
    // huge record neither doubles the peak nor stays resident. Only the
    // bytes after it (the next strings of a pipelined cycle) are kept.
    if (m_rx.capacity() <= kLargeBuffer)
        return;
    QByteArray rest(m_rx.constData() + m_rxPos, m_rx.size() - m_rxPos);
    rest.reserve(qMax(rest.size(), kNormalBuffer));
    m_rx.swap(rest);
    m_rxPos = 0;
}

bool SocketClass::receiveString(char terminal, const char** begin, int* length) {
    m_lastStringComplete = false;
    // The previous string's bytes were valid until now; a consumed buffer
    // starts over at its front.
    if (m_rxPos == m_rx.size()) {
        m_rx.resize(0);
        m_rxPos = 0;
    }
    if (m_verbose)
        log("SOCKET: recv_string Entrada en funcion");

    // First byte: wait in slices, two log lines per slice as the protocol's
    // log has always shown. A closed link ends the wait with nothing read.
    while (buffered() == 0) {
        if (pollClose() || m_socket->state() != QAbstractSocket::ConnectedState)
            break;
        if (m_verbose)
            log("SOCKET: recv_string Waiting for receiving data");
        if (!m_socket->waitForReadyRead(kSliceMs) && m_verbose)
            log("SOCKET: recv_string: Time out DATA");
    }
    if (m_verbose)
        log("SOCKET: recv_string Receiving data");

    // Take whole chunks from the socket and scan them for the terminal; what
    // follows the terminal stays in m_rx for the next read.
    int scanFrom = m_rxPos;
    int end = -1;
    bool tooLong = false;
    for (;;) {
        const char* base = m_rx.constData();
        if (scanFrom < m_rx.size()) {
            const void* hit =
                std::memchr(base + scanFrom, terminal, size_t(m_rx.size() - scanFrom));
            if (hit) {
                end = int(static_cast<const char*>(hit) - base) + 1;
                break;
            }
        }
        scanFrom = m_rx.size();
        const qint64 pending = m_rx.size() - m_rxPos;
        if (pending >= m_maxStringLength) {
            tooLong = true;
            break;
        }
        if (!waitReadable(false)) // our own bytes are scanned already
            break;
        if (m_rxPos > 0 && m_rxPos >= m_rx.size() / 2) {
            m_rx.remove(0, m_rxPos);
            scanFrom -= m_rxPos;
            m_rxPos = 0;
        }
        const qint64 room = m_maxStringLength - (m_rx.size() - m_rxPos);
        const qint64 want = qMin(m_socket->bytesAvailable(), room);
        const int old = m_rx.size();
        m_rx.resize(old + int(want));
        const qint64 got = m_socket->read(m_rx.data() + old, want);
        m_rx.resize(old + int(qMax<qint64>(got, 0)));
    }

    if (tooLong) {
        qWarning("SOCKET: recv_string: server string longer than %lld bytes, connection closed",
                 static_cast<long long>(m_maxStringLength));
        m_protocolError = QStringLiteral("the server sent a string longer than %1 bytes")
                              .arg(m_maxStringLength);
        m_closeRequested = true;
        pollClose();
        m_rxPos = m_rx.size(); // nothing of the string is returned
    }
    const int stop = end >= 0 ? end : m_rx.size();
    *begin = m_rx.constData() + m_rxPos;
    *length = stop - m_rxPos;
    m_rxPos = stop;
    m_lastStringComplete = end >= 0;
    m_receivedBytes += *length;
    if (m_keepStrings)
        m_lastString = QByteArray(*begin, *length);

    if (m_verbose) {
        log("SOCKET: recv_string: Client: recv terminal #");
        log("SOCKET: recv_string: Client: recv " + QByteArray::fromRawData(*begin, *length));
    }
    send_ack();
    return m_lastStringComplete;
}

QString SocketClass::recv_string(char terminal) {
    QString s;
    readString(terminal, &s);
    return s;
}

void SocketClass::send_ack() {
    if (m_socket->state() == QAbstractSocket::ConnectedState) {
        m_socket->write("\0", 1);
        waitWritten();
    }
    if (m_verbose)
        m_log->putOpen("SOCKET: send_ack sent");
}

int SocketClass::getChalk() {
    CallScope scope(this);
    readString('#', &m_scratch);
    if (m_verbose)
        log("SOCKET: data GETCHALK " + QByteArray::number(m_scratch.size()));
    const int chalk = toInt(m_scratch.constData(), qMax(0, m_scratch.size() - 1));
    if (m_verbose)
        log("SOCKET::getChalk, chalk: " + QByteArray::number(chalk));
    return chalk;
}

int SocketClass::getNumValue(const char** payload, int* length) {
    CallScope scope(this);
    const char* src = nullptr;
    int size = 0;
    receiveString('#', &src, &size);
    const auto* comma = static_cast<const char*>(std::memchr(src, ',', size_t(size)));
    int num;
    if (comma) {
        const int head = int(comma - src);
        m_scratch = QLatin1String(src, head);
        num = toInt(m_scratch.constData(), head);
        *payload = comma + 1;
        *length = size - head - 1;
    } else {
        m_scratch = QLatin1String(src, size);
        num = toInt(m_scratch.constData(), size);
        *payload = src;
        *length = size;
    }
    if (m_verbose) {
        log("SOCKET::getNumValue, num: " + QByteArray::number(num));
        log("SOCKET: data without num " + QByteArray(*payload, *length));
    }
    return num;
}

void SocketClass::releaseReceiveBuffer() {
    releaseLargeBuffer();
}

int SocketClass::getNumValue(QString* data) {
    CallScope scope(this);
    const char* src = nullptr;
    int length = 0;
    receiveString('#', &src, &length);
    // The num field and the rest are widened apart, so the (possibly large)
    // rest is written once and never shifted.
    const auto* comma = static_cast<const char*>(std::memchr(src, ',', size_t(length)));
    int num = 0;
    if (comma) {
        const int head = int(comma - src);
        m_scratch = QLatin1String(src, head);
        num = toInt(m_scratch.constData(), head);
        widen(comma + 1, length - head - 1, data);
    } else {
        widen(src, length, data);
        num = toInt(data->constData(), data->size());
    }
    releaseLargeBuffer();
    if (m_verbose) {
        log("SOCKET::getNumValue, num: " + QByteArray::number(num));
        log("SOCKET: data without num " + data->toLatin1());
    }
    return num;
}

namespace {
// The conversions of toFloat and toDouble, telling also whether the field
// was a number (for the anomaly count; the value is the same either way).
// `narrowed` is the field's text as bytes (see narrow()), or null when it is
// not at hand; `text` is the same field as it arrived, for Qt.
// The field as Qt sees it: the payload's own characters, or its bytes read
// as Latin-1 (the same characters the link would have widened them to).
inline QString qtText(const QChar* text, int length) {
    return QString::fromRawData(text, qMax(0, length));
}
inline QString qtText(const char* text, int length) {
    return QString::fromLatin1(text, qMax(0, length));
}

// Qt reads no number with a comma in it (its conversions use the C locale
// and reject group separators). Said without asking Qt, a last field that
// runs on over surplus fields of many MiB is not copied just to be refused.
inline bool hasComma(const QChar*, int) {
    return false; // Qt reads these characters in place: nothing to spare
}
inline bool hasComma(const char* text, int length) {
    return length >= kFastField && std::memchr(text, ',', size_t(length));
}

template <typename T, typename Char>
T convert(const Char* text, const char* narrowed, int length, bool* ok);
template <typename T, typename Char>
inline T convert(const Char* text, const char* narrowed, int length, bool* ok) {
    double d;
    *ok = true;
    if (hasComma(text, length)) {
        *ok = false;
        return T(0);
    }
    if (std::is_same<T, float>::value) {
        // A double in float's normal range is normal itself.
        if (fastDouble(narrowed, length, &d) &&
            (d == 0 || (std::fabs(d) >= double(std::numeric_limits<float>::min()) &&
                        std::fabs(d) <= double(std::numeric_limits<float>::max()))))
            return T(float(d));
        return T(qtText(text, length).toFloat(ok));
    }
    if (fastDouble(narrowed, length, &d) && (std::isnormal(d) || d == 0))
        return T(d);
    return T(qtText(text, length).toDouble(ok));
}

// A payload read field by field through a window narrowed to bytes a block
// at a time: each character is narrowed once (SIMD), commas are found with
// memchr and fields converted in place, in constant memory whatever the
// payload's size. A field that straddles the window's end is narrowed again
// from its start; one longer than the window is only searched through.
template <typename Char> class FieldScanner;

// Bytes are scanned where they lie: no window, no copy.
template <> class FieldScanner<char> {
public:
    FieldScanner(const char* text, int length) : m_text(text), m_length(length) {}
    int comma(int pos) const {
        if (pos >= m_length)
            return -1;
        const void* hit = std::memchr(m_text + pos, ',', size_t(m_length - pos));
        return hit ? int(static_cast<const char*>(hit) - m_text) : -1;
    }
    const char* text(int pos, int end) const {
        return end - pos <= 0 || end - pos >= kFastField ? nullptr : m_text + pos;
    }

private:
    const char* m_text;
    int m_length;
};

template <> class FieldScanner<QChar> {
public:
    FieldScanner(const QChar* text, int length) : m_text(text), m_length(length) {}

    // The first comma at or after `pos`, or -1.
    int comma(int pos) {
        if (pos < m_begin || pos > m_end)
            fill(pos);
        for (;;) {
            const int from = qMax(pos, m_begin);
            if (from < m_end) {
                const void* hit = std::memchr(m_window + (from - m_begin), ',', size_t(m_end - from));
                if (hit)
                    return m_begin + int(static_cast<const char*>(hit) - m_window);
            }
            if (m_end >= m_length)
                return -1;
            // Start the window at the field, unless it starts there already:
            // then the field is too long to convert fast and the search moves on.
            fill(pos > m_begin ? pos : m_end);
        }
    }

    // The narrowed text of [pos, end), or null when the field is too long
    // (or empty) for the fast conversion.
    const char* text(int pos, int end) {
        if (end - pos <= 0 || end - pos >= kFastField)
            return nullptr;
        if (pos < m_begin || end > m_end)
            fill(pos);
        return m_window + (pos - m_begin);
    }

private:
    void fill(int from) {
        m_begin = from;
        m_end = qMin(m_length, from + kWindow);
        narrow(m_text + from, m_end - from, m_window);
    }

    static constexpr int kWindow = 8192;
    static_assert(kWindow > kFastField, "a fast field must fit in the window");
    const QChar* m_text;
    int m_length;
    int m_begin = 0, m_end = 0;
    char m_window[kWindow];
};

// Standard output goes through the output thread: a pipe that nobody reads
// must never stall the link thread.
void printField(const QChar* text, int length) {
    QByteArray bytes = QString::fromRawData(text, length).toLatin1();
    bytes.append('\t');
    LogStream::toStandardOutput(bytes);
}
void printField(const char* text, int length) {
    QByteArray bytes(text, length);
    bytes.append('\t');
    LogStream::toStandardOutput(bytes);
}
inline int fieldToInt(const QChar* text, int length) {
    return SocketClass::toInt(text, length);
}
inline int fieldToInt(const char* text, int length) {
    const QString wide = QString::fromLatin1(text, length);
    return SocketClass::toInt(wide.constData(), length);
}
} // namespace

template <typename T, typename Char>
void SocketClass::parseFields(const Char* s, int length, QVector<T>* values, int n,
                              QVector<int>* ints, int m) {
    const int last = length - 1; // the terminal, never part of a last field
    int pos = 0;
    bool failed = false;
    FieldScanner<Char> scan(s, length);

    values->resize(n);
    T* out = values->data();
    for (int i = 0; i < n; ++i) {
        const bool runsToEnd = (i == n - 1 && m == 0);
        if (failed) {
            // After a field that found no comma there is nothing left to split:
            // this and every later entry is 0, and each field that needed a
            // comma is reported as before.
            out[i] = T(0);
            if (!runsToEnd) {
                if (m_anomalies == 0)
                    noteAnomaly(QStringLiteral("field %1 of %2 has no comma; it and the rest read as 0")
                                    .arg(i + 1)
                                    .arg(n));
                ++m_anomalies;
                if (std::is_same<T, float>::value)
                    LogStream::toStandardOutput(QByteArrayLiteral("error process input\n"));
                else if (m_verbose)
                    log("Socket: Error en processInput");
            }
            continue;
        }
        int fieldEnd;
        if (runsToEnd) {
            fieldEnd = qMax(pos, last);
        } else {
            fieldEnd = scan.comma(pos);
            if (fieldEnd < 0) {
                failed = true;
                --i; // report and zero this field through the branch above
                continue;
            }
        }
        bool ok;
        out[i] = convert<T, Char>(s + pos, scan.text(pos, fieldEnd), fieldEnd - pos, &ok);
        if (!ok) { // not a number, or (the last field) surplus fields
            if (m_anomalies == 0)
                noteAnomaly(runsToEnd && scan.comma(pos) >= 0 && scan.comma(pos) < fieldEnd
                                ? QStringLiteral("more than %1 fields").arg(n)
                                : QStringLiteral("field %1 of %2 is not a number: \"%3\"")
                                      .arg(i + 1)
                                      .arg(n)
                                      .arg(qtText(s + pos, qMin(fieldEnd - pos, 40))));
            ++m_anomalies;
        }
        if (m_verbose)
            printField(s + pos, fieldEnd - pos);
        pos = fieldEnd + 1;
    }

    ints->resize(m);
    int* iout = ints->data();
    for (int j = 0; j < m; ++j) {
        if (failed || pos > length) {
            iout[j] = 0;
            continue;
        }
        int fieldEnd;
        if (j == m - 1) {
            fieldEnd = qMax(pos, last);
        } else {
            fieldEnd = scan.comma(pos);
            if (fieldEnd < 0)
                fieldEnd = length; // runs to the end, terminal included
        }
        iout[j] = fieldToInt(s + pos, fieldEnd - pos);
        pos = fieldEnd + 1;
    }
}

void SocketClass::processInput(QString* data, QVector<float>* values, int n, QVector<int>* ints,
                               int m) {
    parseFields(data->constData(), data->size(), values, n, ints, m);
}

void SocketClass::processInput(QString* data, QVector<double>* values, int n, QVector<int>* ints,
                               int m) {
    parseFields(data->constData(), data->size(), values, n, ints, m);
}

void SocketClass::processInput(const char* data, int length, QVector<float>* values, int n,
                               QVector<int>* ints, int m) {
    parseFields(data, length, values, n, ints, m);
}

void SocketClass::processInput(const char* data, int length, QVector<double>* values, int n,
                               QVector<int>* ints, int m) {
    parseFields(data, length, values, n, ints, m);
}

void SocketClass::appendFixed6(QByteArray& out, double value) {
    // std::to_chars is exact and locale-free; printf would follow the
    // process's LC_NUMERIC, which a Qt application sets from the user.
    char buf[400];
    const auto r = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::fixed, 6);
    out.append(buf, int(r.ptr - buf));
}

float SocketClass::toFloat(const QChar* text, int length) {
    bool ok;
    char narrowed[kFastField];
    const bool fits = length > 0 && length < kFastField;
    if (fits)
        narrow(text, length, narrowed);
    return convert<float, QChar>(text, fits ? narrowed : nullptr, length, &ok);
}

double SocketClass::toDouble(const QChar* text, int length) {
    bool ok;
    char narrowed[kFastField];
    const bool fits = length > 0 && length < kFastField;
    if (fits)
        narrow(text, length, narrowed);
    return convert<double, QChar>(text, fits ? narrowed : nullptr, length, &ok);
}

int SocketClass::toInt(const QChar* text, int length) {
    // Up to nine digits with an optional minus cannot overflow.
    if (length > 0 && length <= 10) {
        int i = 0;
        bool negative = false;
        if (text[0].unicode() == '-') {
            negative = true;
            i = 1;
        }
        if (i < length && length - i <= 9) {
            int v = 0;
            for (; i < length; ++i) {
                const ushort c = text[i].unicode();
                if (c < '0' || c > '9')
                    break;
                v = v * 10 + int(c - '0');
            }
            if (i == length)
                return negative ? -v : v;
        }
    }
    return QString::fromRawData(text, qMax(0, length)).toInt(nullptr, 10);
}

} // namespace Orlavex
