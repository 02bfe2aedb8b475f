#pragma once

#include <QByteArray>
#include <QString>

#include "NatsLibrary.h"

#include <condition_variable>
#include <functional>
#include <mutex>

namespace Orlavex {
namespace detail {

/// An asynchronous subscription whose handler runs on the library's
/// delivery thread for it.
///
/// The handler is the object's own, so it must not outlive the object: the
/// destructor unsubscribes and waits until the handler has returned for the
/// last time (the library says so through its completion callback). A
/// handler must therefore never wait for the object's owner.
class NatsSubscription {
public:
    /// Gets each message; the message is destroyed once the handler returns.
    using Handler = std::function<void(natsMsg*)>;

    NatsSubscription() = default;
    ~NatsSubscription();
    NatsSubscription(const NatsSubscription&) = delete;
    NatsSubscription& operator=(const NatsSubscription&) = delete;

    bool subscribe(natsConnection* connection, const QByteArray& subject, Handler handler,
                   QString* error);

private:
    static void onMessage(natsConnection*, natsSubscription*, natsMsg* message, void* closure);
    static void onComplete(void* closure);

    natsSubscription* m_subscription = nullptr;
    Handler m_handler;
    std::mutex m_lock;
    std::condition_variable m_completed;
    bool m_complete = false;
    bool m_completionSet = false;
};

} // namespace detail
} // namespace Orlavex
