#pragma once

#include <nats/nats.h>

class QString;

namespace Orlavex {
namespace detail {

/// The NATS C client is loaded when a lab is first shared or watched, not
/// linked: a front-end that shares nothing never maps it, nor OpenSSL
/// through it. True once the library and every function the library uses
/// are there; otherwise `error` says what is missing. Safe from any thread.
bool loadNats(QString* error);

/// The address of the loaded client's function `name`; null before
/// `loadNats` succeeded. Through ORLAVEX_NATS only.
void* natsSymbol(const char* name);

} // namespace detail
} // namespace Orlavex

/// Calls the loaded client's function `f` with the type its header declares:
/// `ORLAVEX_NATS(natsConnection_Publish)(nc, subject, data, n)`. Each call
/// site looks its function up once.
#define ORLAVEX_NATS(f)                                                                            \
    ([] {                                                                                          \
        static const auto address =                                                                \
            reinterpret_cast<decltype(&f)>(::Orlavex::detail::natsSymbol(#f));                     \
        return address;                                                                            \
    }())
