#pragma once

#include <Orlavex/share/ShareCredentials.h>

#include <QByteArray>
#include <QString>

#include "NatsLibrary.h"

namespace Orlavex {
namespace detail {

/// One connection to the NATS broker of a shared lab, with its options.
///
/// The connection reconnects on its own, without limit, after it has once
/// been made; publishing meanwhile fails at once rather than piling frames up
/// that no viewer could use. TLS is used when a CA file is given, the URL is
/// `tls://` or the credentials say `insecure`; the broker's certificate is
/// verified unless they say `insecure`.
class NatsConnection {
public:
    NatsConnection() = default;
    /// Closes the connection.
    ~NatsConnection();
    NatsConnection(const NatsConnection&) = delete;
    NatsConnection& operator=(const NatsConnection&) = delete;

    /// Connects to `url` under the connection name `name`. With `background`
    /// the first connect, too, is retried in the background and this call
    /// only fails on options that no retry can mend (a bad URL, an unreadable
    /// CA file); otherwise it fails when the broker cannot be reached now.
    bool open(const QString& url, const ShareCredentials& credentials, const QString& name,
              bool background, QString* error);
    natsConnection* handle() const { return m_connection; }
    bool connected() const;
    /// Connections made again after a loss since `open`.
    quint64 reconnects() const;
    /// The largest message the broker takes (0 before the first connect).
    qint64 maxPayload() const;
    /// Publishes `size` bytes on `subject`, with `reply` as reply subject
    /// when it is not empty; false when the library refused the message.
    bool publish(const QByteArray& subject, const char* data, int size,
                 const QByteArray& reply = QByteArray());
    /// Sends what is buffered and waits up to `ms` for the broker to confirm.
    bool flush(int ms);
    /// The library's text for the last failure.
    static QString lastError(int status);

private:
    natsOptions* m_options = nullptr;
    natsConnection* m_connection = nullptr;
};

} // namespace detail
} // namespace Orlavex
