#include "NatsLibrary.h"

#include <QString>

#include <dlfcn.h>

#include <mutex>

namespace Orlavex {
namespace detail {

namespace {

// Every function of the client that the library calls, checked at load time
// so that a wrong version fails with a message, not at the first call.
const char* const kFunctions[] = {
    "natsConnection_Connect",
    "natsConnection_Destroy",
    "natsConnection_FlushTimeout",
    "natsConnection_GetMaxPayload",
    "natsConnection_GetStats",
    "natsConnection_Publish",
    "natsConnection_PublishRequest",
    "natsConnection_Status",
    "natsConnection_Subscribe",
    "natsInbox_Create",
    "natsInbox_Destroy",
    "natsMsg_Destroy",
    "natsMsg_GetData",
    "natsMsg_GetDataLength",
    "natsMsg_GetReply",
    "natsMsg_IsNoResponders",
    "natsOptions_Create",
    "natsOptions_Destroy",
    "natsOptions_LoadCATrustedCertificates",
    "natsOptions_SetMaxPingsOut",
    "natsOptions_SetMaxReconnect",
    "natsOptions_SetName",
    "natsOptions_SetPingInterval",
    "natsOptions_SetReconnectBufSize",
    "natsOptions_SetReconnectWait",
    "natsOptions_SetRetryOnFailedConnect",
    "natsOptions_SetSecure",
    "natsOptions_SetURL",
    "natsOptions_SetUserInfo",
    "natsOptions_SetWriteDeadline",
    "natsOptions_SkipServerVerification",
    "natsStatistics_Create",
    "natsStatistics_Destroy",
    "natsStatistics_GetCounts",
    "natsStatus_GetText",
    "natsSubscription_Destroy",
    "natsSubscription_SetOnCompleteCB",
    "natsSubscription_Unsubscribe",
    "nats_GetLastError",
};

struct Loaded {
    void* handle = nullptr; // never closed: the client keeps threads of its own
    QString error;
};

const Loaded& loaded() {
    static const Loaded once = [] {
        Loaded l;
        // The name the build linked against (its SONAME), so that another
        // major version is never taken by mistake.
        l.handle = dlopen(ORLAVEX_NATS_SONAME, RTLD_NOW | RTLD_LOCAL);
        if (!l.handle) {
            const char* why = dlerror();
            l.error = QStringLiteral("the NATS client library cannot be loaded (%1); Debian: "
                                     "libnats3.4")
                          .arg(QString::fromLocal8Bit(why ? why : ORLAVEX_NATS_SONAME));
            return l;
        }
        for (const char* name : kFunctions) {
            if (!dlsym(l.handle, name)) {
                l.error = QStringLiteral("%1 has no %2").arg(ORLAVEX_NATS_SONAME, name);
                l.handle = nullptr;
                break;
            }
        }
        return l;
    }();
    return once;
}

} // namespace

bool loadNats(QString* error) {
    const Loaded& l = loaded();
    if (!l.handle && error)
        *error = l.error;
    return l.handle != nullptr;
}

void* natsSymbol(const char* name) {
    const Loaded& l = loaded();
    return l.handle ? dlsym(l.handle, name) : nullptr;
}

} // namespace detail
} // namespace Orlavex
