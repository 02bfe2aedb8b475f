#include "NatsSubscription.h"

#include "NatsConnection.h"

namespace Orlavex {
namespace detail {

NatsSubscription::~NatsSubscription() {
    if (!m_subscription)
        return;
    ORLAVEX_NATS(natsSubscription_Unsubscribe)(m_subscription);
    if (m_completionSet) {
        // The handler is ours and never waits, so its last call ends soon.
        std::unique_lock<std::mutex> guard(m_lock);
        m_completed.wait(guard, [this] { return m_complete; });
    }
    ORLAVEX_NATS(natsSubscription_Destroy)(m_subscription);
}

bool NatsSubscription::subscribe(natsConnection* connection, const QByteArray& subject,
                                 Handler handler, QString* error) {
    m_handler = std::move(handler);
    const natsStatus s = ORLAVEX_NATS(natsConnection_Subscribe)(
        &m_subscription, connection, subject.constData(), onMessage, this);
    if (s != NATS_OK) {
        m_subscription = nullptr;
        if (error)
            *error = QStringLiteral("subscribe to %1: %2")
                         .arg(QString::fromUtf8(subject), NatsConnection::lastError(s));
        return false;
    }
    // Refused only for a subscription already closed, whose handler has
    // then already returned for good.
    m_completionSet =
        ORLAVEX_NATS(natsSubscription_SetOnCompleteCB)(m_subscription, onComplete, this) == NATS_OK;
    return true;
}

void NatsSubscription::onMessage(natsConnection*, natsSubscription*, natsMsg* message,
                                 void* closure) {
    static_cast<NatsSubscription*>(closure)->m_handler(message);
    ORLAVEX_NATS(natsMsg_Destroy)(message);
}

void NatsSubscription::onComplete(void* closure) {
    auto* self = static_cast<NatsSubscription*>(closure);
    // Notified under the lock: the destructor, once it sees the flag, may
    // destroy the condition variable at once.
    std::lock_guard<std::mutex> guard(self->m_lock);
    self->m_complete = true;
    self->m_completed.notify_all();
}

} // namespace detail
} // namespace Orlavex
