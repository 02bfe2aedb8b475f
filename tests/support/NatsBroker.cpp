#include "NatsBroker.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTcpServer>

#include <signal.h>
#include <sys/prctl.h>

namespace {
constexpr int kStartMs = 20000;

/// nats-server, killed with the test process even when that ends without
/// its destructors (a crash, or a sanitizer run's quick exit).
class BrokerProcess : public QProcess {
protected:
    void setupChildProcess() override { prctl(PR_SET_PDEATHSIG, SIGKILL); }
};

bool run(const QString& program, const QStringList& args, const QString& dir, QString* error) {
    QProcess p;
    p.setWorkingDirectory(dir);
    p.start(program, args);
    if (p.waitForFinished(kStartMs) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0)
        return true;
    *error = QStringLiteral("%1 %2 failed: %3")
                 .arg(program, args.join(' '), QString::fromLocal8Bit(p.readAllStandardError()));
    return false;
}

QString password(const QString& user) {
    return QStringLiteral("pw-") + user;
}
} // namespace

bool NatsBroker::installed() {
    return !QStandardPaths::findExecutable("nats-server").isEmpty() &&
           !QStandardPaths::findExecutable("openssl").isEmpty();
}

NatsBroker::NatsBroker(int maxPayload, bool tls) : m_tls(tls) {
    if (!installed()) {
        m_error = QStringLiteral("nats-server or openssl is not installed");
        return;
    }
    m_arguments = QStringList{"-c", "nats.conf", "-a", "127.0.0.1"};
    m_caFile = m_dir.filePath("ca.pem");
    for (const QString& role : {"publisher", "viewer", "admin"})
        m_logins.insert(role, {role, password(role)});
    if (makeFiles(maxPayload))
        start();
}

NatsBroker::NatsBroker(const QString& script, const QString& lab) {
    if (!installed()) {
        m_error = QStringLiteral("nats-server or openssl is not installed");
        return;
    }
    // Its ports are written into the configuration: free ones, found now.
    quint16 ports[2];
    for (quint16& port : ports) {
        QTcpServer probe;
        if (!probe.listen(QHostAddress::LocalHost)) {
            m_error = QStringLiteral("no free port");
            return;
        }
        port = probe.serverPort();
    }
    const QString dir = m_dir.filePath("broker");
    if (!run("bash",
             {script, dir, "--lab", lab, "--port", QString::number(ports[0]), "--ws-port",
              QString::number(ports[1])},
             m_dir.path(), &m_error))
        return;
    QFile env(dir + "/credentials.env");
    if (!env.open(QIODevice::ReadOnly)) {
        m_error = QStringLiteral("share-setup wrote no credentials.env");
        return;
    }
    QMap<QString, QString> values;
    for (const QByteArray& line : env.readAll().split('\n')) {
        const int eq = line.indexOf('=');
        if (eq > 0 && !line.startsWith('#'))
            values.insert(QString::fromUtf8(line.left(eq)), QString::fromUtf8(line.mid(eq + 1)));
    }
    m_logins.insert("publisher", {values.value("ORLAVEX_SHARE_PUBLISHER_USER_" + lab),
                                  values.value("ORLAVEX_SHARE_PUBLISHER_" + lab)});
    m_logins.insert("viewer", {values.value("ORLAVEX_SHARE_VIEWER_USER_" + lab),
                               values.value("ORLAVEX_SHARE_VIEWER_" + lab)});
    m_logins.insert(
        "admin", {values.value("ORLAVEX_SHARE_ADMIN_USER"), values.value("ORLAVEX_SHARE_ADMIN")});
    m_caFile = values.value("ORLAVEX_SHARE_CA");
    m_arguments = QStringList{"-c", dir + "/nats.conf"};
    m_port = ports[0];
    start();
}

NatsBroker::~NatsBroker() {
    stop();
}

bool NatsBroker::makeFiles(int maxPayload) {
    const QString dir = m_dir.path();
    const QStringList ec{"-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"};
    QFile ext(m_dir.filePath("ext.cnf"));
    if (!ext.open(QIODevice::WriteOnly) ||
        ext.write("subjectAltName=DNS:localhost,IP:127.0.0.1\n") < 0)
        return false;
    ext.close();
    if (!run("openssl",
             QStringList{"req", "-x509"} + ec +
                 QStringList{"-keyout", "ca.key", "-out", "ca.pem", "-days", "2", "-subj",
                             "/CN=orlavex-test-ca"},
             dir, &m_error) ||
        !run("openssl",
             QStringList{"req"} + ec +
                 QStringList{"-keyout", "server.key", "-out", "server.csr", "-subj",
                             "/CN=localhost"},
             dir, &m_error) ||
        !run("openssl",
             {"x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key",
              "-CAcreateserial", "-out", "server.pem", "-days", "2", "-extfile", "ext.cnf"},
             dir, &m_error))
        return false;
    // The permissions a shared lab needs: the publisher publishes the lab's
    // subjects and answers sync requests, a viewer asks and listens.
    QString config = QStringLiteral(R"(
authorization {
  users = [
    { user: publisher, password: "%1",
      permissions: { publish: ["orlavex.*.frame", "orlavex.*.key", "orlavex.*.registry",
                               "orlavex.*.status"],
                     subscribe: ["orlavex.*.sync"], allow_responses: true } }
    { user: viewer, password: "%2",
      permissions: { publish: ["orlavex.*.sync"],
                     subscribe: ["orlavex.*.frame", "orlavex.*.key", "orlavex.*.registry",
                                 "orlavex.*.status", "_INBOX.>"] } }
    { user: admin, password: "%3" }
  ]
}
)")
                         .arg(password("publisher"), password("viewer"), password("admin"));
    if (m_tls)
        config += QStringLiteral(
            "tls { cert_file: \"server.pem\", key_file: \"server.key\", timeout: 5 }\n");
    if (maxPayload > 0)
        config += QStringLiteral("max_payload: %1\n").arg(maxPayload);
    QFile file(m_dir.filePath("nats.conf"));
    return file.open(QIODevice::WriteOnly) && file.write(config.toUtf8()) > 0;
}

bool NatsBroker::start() {
    stop();
    m_process.reset(new BrokerProcess);
    m_process->setWorkingDirectory(m_dir.path());
    m_process->setProcessChannelMode(QProcess::MergedChannels);
    // Port -1 lets the server choose a free one; a restart takes the same one.
    QStringList args = m_arguments;
    if (args.contains("-a")) // share-setup's configuration names its ports itself
        args << "-p" << (m_port ? QString::number(m_port) : QStringLiteral("-1"));
    // ORLAVEX_NATS_TRACE=FILE: the brokers' protocol traces, to see what went where.
    // Each broker of a run gets its own file: FILE.1, FILE.2, ...
    static int brokers = 0;
    QString trace = qEnvironmentVariable("ORLAVEX_NATS_TRACE");
    if (!trace.isEmpty())
        trace += QStringLiteral(".%1").arg(++brokers);
    if (!trace.isEmpty())
        args << "-DV"
             << "-l" << trace;
    m_process->start(QStandardPaths::findExecutable("nats-server"), args);
    const QRegularExpression ready(R"(Listening for client connections on [^:]+:(\d+))");
    QByteArray log;
    QDeadlineTimer deadline(kStartMs);
    while (!deadline.hasExpired() && m_process->state() != QProcess::NotRunning) {
        m_process->waitForReadyRead(100);
        log += m_process->readAll();
        if (!trace.isEmpty()) {
            QFile file(trace);
            if (file.open(QIODevice::ReadOnly))
                log = file.readAll();
        }
        const QRegularExpressionMatch m = ready.match(QString::fromUtf8(log));
        if (m.hasMatch() && log.contains("Server is ready")) {
            m_port = quint16(m.captured(1).toUInt());
            return true;
        }
    }
    m_error = QStringLiteral("nats-server did not start: ") + QString::fromUtf8(log);
    stop();
    return false;
}

void NatsBroker::stop() {
    if (!m_process)
        return;
    m_process->kill();
    m_process->waitForFinished(5000);
    m_process.reset();
}

QString NatsBroker::url() const {
    return QString(m_tls ? "tls://localhost:%1" : "nats://localhost:%1").arg(m_port);
}

Orlavex::ShareCredentials NatsBroker::credentials(const QString& role) const {
    Orlavex::ShareCredentials c;
    const QPair<QString, QString> login = m_logins.value(role, {role, password(role)});
    c.user = login.first;
    c.password = login.second;
    if (m_tls)
        c.caFile = m_caFile;
    return c;
}
