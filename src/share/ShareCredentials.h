#pragma once

#include <QString>

namespace Orlavex {

/// How a front-end or a viewer proves itself to the NATS broker of a shared
/// lab, and how it checks the broker (`CommThread::setShare`, `ShareViewer`).
///
/// With a CA file the connection uses TLS and the broker's certificate must
/// be signed by that CA and name the host of the URL. A `tls://` URL uses TLS
/// too, and then needs the CA file, unless the client application sets
/// `insecure`, which takes any certificate: only for tests on one machine.
struct ShareCredentials {
    QString user;
    QString password;
    QString caFile; ///< PEM file of the CA that signed the broker's certificate
    bool insecure = false;
};

} // namespace Orlavex
