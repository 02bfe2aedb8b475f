#include "NatsConnection.h"

namespace Orlavex {
namespace detail {

namespace {
// A connected handler makes a retried first connect asynchronous; the
// publisher watches the connection's state instead of being called back, so
// that no callback can outlive it.
void ignoreConnected(natsConnection*, void*) {}

bool check(natsStatus s, QString* error, const char* what) {
    if (s == NATS_OK)
        return true;
    if (error)
        *error = QStringLiteral("%1: %2").arg(QLatin1String(what), NatsConnection::lastError(s));
    return false;
}
} // namespace

NatsConnection::~NatsConnection() {
    if (m_connection)
        ORLAVEX_NATS(natsConnection_Destroy)(m_connection);
    if (m_options)
        ORLAVEX_NATS(natsOptions_Destroy)(m_options);
}

QString NatsConnection::lastError(int status) {
    QString text = QString::fromUtf8(ORLAVEX_NATS(natsStatus_GetText)(natsStatus(status)));
    const char* detail = ORLAVEX_NATS(nats_GetLastError)(nullptr);
    if (detail && *detail && text != QLatin1String(detail))
        text += QStringLiteral(" (%1)").arg(QString::fromUtf8(detail));
    return text;
}

bool NatsConnection::open(const QString& url, const ShareCredentials& credentials,
                          const QString& name, bool background, QString* error) {
    if (!loadNats(error))
        return false;
    if (!check(ORLAVEX_NATS(natsOptions_Create)(&m_options), error, "options"))
        return false;
    const QByteArray u = url.toUtf8();
    const QByteArray n = name.toUtf8();
    const bool tls = url.startsWith(QLatin1String("tls://"), Qt::CaseInsensitive) ||
                     !credentials.caFile.isEmpty() || credentials.insecure;
    if (!check(ORLAVEX_NATS(natsOptions_SetURL)(m_options, u.constData()), error, "URL") ||
        !check(ORLAVEX_NATS(natsOptions_SetName)(m_options, n.constData()), error, "name") ||
        // Without limit: a lab runs for hours, and its broker may restart.
        !check(ORLAVEX_NATS(natsOptions_SetMaxReconnect)(m_options, -1), error, "reconnects") ||
        !check(ORLAVEX_NATS(natsOptions_SetReconnectWait)(m_options, 500), error,
               "reconnect wait") ||
        // Frames buffered while the broker is away would reach no viewer in
        // time: a publish then fails, and the frame counts as dropped.
        !check(ORLAVEX_NATS(natsOptions_SetReconnectBufSize)(m_options, 64 * 1024), error,
               "reconnect buffer") ||
        // A broker that stops reading is given up within seconds, not left
        // to hold the publisher's writes.
        !check(ORLAVEX_NATS(natsOptions_SetWriteDeadline)(m_options, 2000), error,
               "write deadline") ||
        !check(ORLAVEX_NATS(natsOptions_SetPingInterval)(m_options, 5000), error,
               "ping interval") ||
        !check(ORLAVEX_NATS(natsOptions_SetMaxPingsOut)(m_options, 2), error, "pings"))
        return false;
    if (!credentials.user.isEmpty() && !check(ORLAVEX_NATS(natsOptions_SetUserInfo)(
                                                  m_options, credentials.user.toUtf8().constData(),
                                                  credentials.password.toUtf8().constData()),
                                              error, "user"))
        return false;
    if (tls) {
        if (!check(ORLAVEX_NATS(natsOptions_SetSecure)(m_options, true), error, "TLS"))
            return false;
        if (!credentials.caFile.isEmpty() &&
            !check(ORLAVEX_NATS(natsOptions_LoadCATrustedCertificates)(
                       m_options, credentials.caFile.toUtf8().constData()),
                   error, "CA file"))
            return false;
        if (credentials.insecure &&
            !check(ORLAVEX_NATS(natsOptions_SkipServerVerification)(m_options, true), error, "TLS"))
            return false;
    }
    if (background && !check(ORLAVEX_NATS(natsOptions_SetRetryOnFailedConnect)(
                                 m_options, true, ignoreConnected, nullptr),
                             error, "retry"))
        return false;
    const natsStatus s = ORLAVEX_NATS(natsConnection_Connect)(&m_connection, m_options);
    if (s == NATS_NOT_YET_CONNECTED)
        return true;
    return check(s, error, "connect");
}

bool NatsConnection::connected() const {
    return m_connection &&
           ORLAVEX_NATS(natsConnection_Status)(m_connection) == NATS_CONN_STATUS_CONNECTED;
}

quint64 NatsConnection::reconnects() const {
    if (!m_connection)
        return 0;
    natsStatistics* stats = nullptr;
    uint64_t count = 0;
    if (ORLAVEX_NATS(natsStatistics_Create)(&stats) == NATS_OK &&
        ORLAVEX_NATS(natsConnection_GetStats)(m_connection, stats) == NATS_OK)
        ORLAVEX_NATS(natsStatistics_GetCounts)(stats, nullptr, nullptr, nullptr, nullptr, &count);
    if (stats)
        ORLAVEX_NATS(natsStatistics_Destroy)(stats);
    return count;
}

qint64 NatsConnection::maxPayload() const {
    return m_connection ? ORLAVEX_NATS(natsConnection_GetMaxPayload)(m_connection) : 0;
}

bool NatsConnection::publish(const QByteArray& subject, const char* data, int size,
                             const QByteArray& reply) {
    if (!m_connection)
        return false;
    const natsStatus s =
        reply.isEmpty()
            ? ORLAVEX_NATS(natsConnection_Publish)(m_connection, subject.constData(), data, size)
            : ORLAVEX_NATS(natsConnection_PublishRequest)(m_connection, subject.constData(),
                                                          reply.constData(), data, size);
    return s == NATS_OK;
}

bool NatsConnection::flush(int ms) {
    return m_connection && ORLAVEX_NATS(natsConnection_FlushTimeout)(m_connection, ms) == NATS_OK;
}

} // namespace detail
} // namespace Orlavex
