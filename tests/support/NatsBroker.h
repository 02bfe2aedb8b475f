#pragma once

#include <Orlavex/share/ShareCredentials.h>

#include <QMap>
#include <QPair>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

/// A NATS broker for the share tests and benchmarks: nats-server on a free
/// loopback port, with TLS (a CA and a certificate made for the run) and the
/// three roles of a shared lab: "publisher" (the front-end), "viewer" and
/// "admin" (anything). It stops with the object.
class NatsBroker {
public:
    /// A configuration of its own, with one login per role for every lab;
    /// `maxPayload` bytes per message (0: the server's default). Without
    /// `tls` it listens in plain text (nats://), to measure what TLS costs.
    explicit NatsBroker(int maxPayload = 0, bool tls = true);
    /// The configuration that `script` (scripts/share-setup) writes for
    /// `lab`, with the logins it made.
    NatsBroker(const QString& script, const QString& lab);
    ~NatsBroker();
    NatsBroker(const NatsBroker&) = delete;
    NatsBroker& operator=(const NatsBroker&) = delete;

    /// Whether nats-server and openssl can be found at all.
    static bool installed();
    /// Started and listening; otherwise `error()` says why.
    bool ok() const { return m_port != 0 && m_process && m_process->state() == QProcess::Running; }
    QString error() const { return m_error; }
    quint16 port() const { return m_port; }
    /// tls://localhost:port (nats:// without TLS)
    QString url() const;
    /// The login of `role` (publisher, viewer, admin; any other name gets
    /// a login that does not exist) and the CA file that clients check with.
    Orlavex::ShareCredentials credentials(const QString& role) const;
    /// Stops the broker (an abrupt end, as a crash would be).
    void stop();
    /// Starts it again on the same port; false when it does not come up.
    bool start();

private:
    bool makeFiles(int maxPayload);
    bool m_tls = true;

    QTemporaryDir m_dir;
    QStringList m_arguments; ///< of nats-server, but for the port
    QString m_caFile;
    QMap<QString, QPair<QString, QString>> m_logins; ///< role: user and password
    std::unique_ptr<QProcess> m_process;
    quint16 m_port = 0;
    QString m_error;
};
