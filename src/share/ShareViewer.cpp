#include "ShareViewer.h"

#include "ShareFrame.h"
#include "detail/NatsConnection.h"
#include "detail/NatsSubscription.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <chrono>
#include <deque>
#include <mutex>
#include <vector>

namespace Orlavex {

namespace {
using Clock = std::chrono::steady_clock;

qint64 nowUs() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// Deltas kept while a keyframe is awaited: enough for a few seconds of a
// lab, never more memory than a large grid's frames take.
constexpr std::size_t kMaxPending = 256;
constexpr qint64 kMaxPendingBytes = qint64(64) << 20;
// A keyframe asked for and not come is asked for again after this long (on
// the next frame that arrives).
constexpr auto kSyncRetry = std::chrono::seconds(1);
constexpr int kFlushMs = 5000;
} // namespace

struct ShareViewer::Private {
    /// Where a frame came from: frames are ordered within each source only.
    enum Source { FrameSubject, KeySubject, Reply, RegistrySubject, Sources };

    explicit Private(ShareViewer* q) : q(q) {}

    void message(Source source, const char* data, qint64 size);
    bool receive(const char* frame, qint64 size);
    bool applyKey(const ShareFrame::Header& h, const char* frame, qint64 size);
    bool applyDelta(const ShareFrame::Header& h, const char* frame, qint64 size);
    void drain();
    void keep(const char* frame, qint64 size);
    /// Counts a refused message; `resync`: a frame may be missing now.
    void refuse(const ShareFrame::Result& r, bool resync = true);
    void requestSync(bool force = false);
    void applied(const ShareFrame::Header& h);
    void statusLine(const QByteArray& text);
    /// A reply subject of its own for each request: a broker lets the
    /// publisher answer each reply subject it was given once.
    QByteArray replySubject() { return inbox + '.' + QByteArray::number(++requests); }

    ShareViewer* q;
    // Everything below but the subscriptions is guarded by `lock`; the
    // subscriptions are made and dropped by join() and leave() alone.
    mutable std::mutex lock;
    ShareState state;
    Stats stats;
    QByteArray registry;
    QByteArray status;
    bool needKey = true;
    std::deque<QByteArray> pending;
    qint64 pendingBytes = 0;
    ShareFrame::Assembler assemblers[Sources];
    qint64 maxBytes = ShareFrame::kDefaultMaxBytes;
    bool syncOutstanding = false;
    Clock::time_point syncAt;
    Clock::time_point joinedAt;
    QByteArray syncSubject;
    QByteArray inbox;
    quint64 requests = 0;
    detail::NatsConnection* nats = nullptr; ///< owned by `connection`; null once left
    std::unique_ptr<detail::NatsConnection> connection;
    std::vector<std::unique_ptr<detail::NatsSubscription>> subscriptions;
};

void ShareViewer::Private::message(Source source, const char* data, qint64 size) {
    qint64 cycle = -1;
    {
        std::lock_guard<std::mutex> guard(lock);
        stats.bytes += size;
        const char* frame;
        qint64 frameSize;
        const ShareFrame::Result r = assemblers[source].take(data, size, &frame, &frameSize);
        if (!r.ok())
            refuse(r, source != RegistrySubject); // the message may still complete a frame
        if (frame && frameSize > 0 && frame[0] == '{') {
            // The registry: on its subject, or the answer to join's request.
            if (source == Reply || source == RegistrySubject)
                registry = QByteArray(frame, int(frameSize));
        } else if (frame && source != RegistrySubject && receive(frame, frameSize)) {
            cycle = state.cycle;
        }
    }
    if (cycle >= 0)
        emit q->frameApplied(cycle);
}

bool ShareViewer::Private::receive(const char* frame, qint64 size) {
    ShareFrame::Header h;
    const ShareFrame::Result r = ShareFrame::readHeader(frame, size, &h, maxBytes);
    if (!r.ok()) {
        refuse(r);
        return false;
    }
    return h.type == ShareFrame::Type::Key ? applyKey(h, frame, size) : applyDelta(h, frame, size);
}

bool ShareViewer::Private::applyKey(const ShareFrame::Header& h, const char* frame, qint64 size) {
    // Another publisher's keyframe means a new front-end took the lab over:
    // its numbers start again. The state's own frame again is what a viewer
    // that refused a message needs.
    const bool restart = state.sequence != 0 && h.publisher != state.publisher;
    const bool again = needKey && h.sequence == state.sequence;
    if (h.publisher == state.publisher && h.sequence <= state.sequence && !again) {
        ++stats.stale;
        return false;
    }
    const ShareFrame::Result r = ShareFrame::apply(frame, size, &state, maxBytes);
    if (!r.ok()) {
        refuse(r);
        return false;
    }
    if (restart)
        ++stats.restarts; // the deltas kept may be the new publisher's: drain() sorts them
    ++stats.keyframes;
    needKey = false;
    syncOutstanding = false;
    applied(h);
    drain();
    return true;
}

bool ShareViewer::Private::applyDelta(const ShareFrame::Header& h, const char* frame, qint64 size) {
    if (needKey) {
        keep(frame, size);
        requestSync(); // again, if the last request went unanswered
        return false;
    }
    if (h.publisher == state.publisher && h.sequence <= state.sequence) {
        ++stats.stale;
        return false;
    }
    if (h.publisher != state.publisher || h.sequence > state.sequence + 1) {
        ++stats.gaps;
        stats.lastError = h.publisher != state.publisher
                              ? QStringLiteral("a delta of another publisher")
                              : QStringLiteral("frames %1 to %2 missing")
                                    .arg(state.sequence + 1)
                                    .arg(h.sequence - 1);
        needKey = true;
        keep(frame, size);
        requestSync(true);
        return false;
    }
    const ShareFrame::Result r = ShareFrame::apply(frame, size, &state, maxBytes);
    if (!r.ok()) {
        refuse(r);
        return false;
    }
    applied(h);
    return true;
}

void ShareViewer::Private::applied(const ShareFrame::Header& h) {
    ++stats.frames;
    if (h.publishedUs > 0)
        stats.lagMs = double(nowUs() - h.publishedUs) * 1e-3;
    if (stats.joinMs < 0)
        stats.joinMs = std::chrono::duration<double, std::milli>(Clock::now() - joinedAt).count();
}

void ShareViewer::Private::drain() {
    // The deltas that came while the keyframe was awaited, in their order.
    // One that does not follow is dropped with the rest: if frames really
    // are missing, the next delta to arrive says so again.
    while (!pending.empty()) {
        const QByteArray frame = pending.front();
        pending.pop_front();
        pendingBytes -= frame.size();
        ShareFrame::Header h;
        ShareFrame::readHeader(frame, &h, maxBytes); // checked when kept
        if (h.publisher != state.publisher || h.sequence <= state.sequence)
            continue;
        if (h.sequence > state.sequence + 1) {
            pending.clear();
            pendingBytes = 0;
            return;
        }
        const ShareFrame::Result r = ShareFrame::apply(frame, &state, maxBytes);
        if (!r.ok()) {
            refuse(r);
            return;
        }
        applied(h);
    }
}

void ShareViewer::Private::keep(const char* frame, qint64 size) {
    pending.emplace_back(frame, int(size));
    pendingBytes += size;
    while (pending.size() > kMaxPending || pendingBytes > kMaxPendingBytes) {
        pendingBytes -= pending.front().size();
        pending.pop_front();
    }
}

void ShareViewer::Private::refuse(const ShareFrame::Result& r, bool resync) {
    if (r.error == ShareFrame::Error::SequenceGap)
        ++stats.gaps;
    else
        ++stats.bad;
    stats.lastError =
        QStringLiteral("%1: %2").arg(QLatin1String(ShareFrame::errorName(r.error)), r.message);
    if (!resync)
        return;
    // The state is as it was, but a frame may be missing from it now.
    needKey = true;
    pending.clear();
    pendingBytes = 0;
    requestSync(true);
}

void ShareViewer::Private::requestSync(bool force) {
    if (!nats)
        return;
    const Clock::time_point now = Clock::now();
    if (syncOutstanding && !force && now - syncAt < kSyncRetry)
        return;
    if (syncOutstanding && force && now - syncAt < kSyncRetry / 10)
        return; // one request answers a burst of refusals
    nats->publish(syncSubject, nullptr, 0, replySubject());
    ++stats.syncs;
    syncOutstanding = true;
    syncAt = now;
}

void ShareViewer::Private::statusLine(const QByteArray& text) {
    // Once a second the publisher says which frame it published last: a
    // viewer that missed the last frames of a lab that has gone quiet (a
    // broker that was away, say), or the first of a new front-end's, learns
    // it here, as no later delta would tell it.
    const QJsonObject line = QJsonDocument::fromJson(text).object();
    const qint64 published = qint64(line.value("sequence").toDouble());
    bool known = false;
    const quint64 publisher = line.value("publisher").toString().toULongLong(&known, 16);
    std::lock_guard<std::mutex> guard(lock);
    status = text;
    if (published > 0 &&
        ((known && publisher != state.publisher) || quint64(published) > state.sequence))
        requestSync();
}

ShareViewer::ShareViewer(QObject* parent) : QObject(parent), d(new Private(this)) {}

ShareViewer::~ShareViewer() {
    leave();
}

bool ShareViewer::join(const QString& url, const QString& lab, const ShareCredentials& credentials,
                       QString* error) {
    leave();
    if (!ShareFrame::isValidLab(lab)) {
        if (error)
            *error = QStringLiteral("\"%1\" is no lab name (letters, digits and '_')").arg(lab);
        return false;
    }
    auto connection = std::make_unique<detail::NatsConnection>();
    QString why;
    if (!connection->open(url, credentials, QStringLiteral("orlavex viewer %1").arg(lab), false,
                          &why)) {
        if (error)
            *error = why;
        return false;
    }
    natsInbox* box = nullptr;
    if (ORLAVEX_NATS(natsInbox_Create)(&box) != NATS_OK) {
        if (error)
            *error =
                QStringLiteral("no inbox: %1").arg(detail::NatsConnection::lastError(NATS_ERR));
        return false;
    }
    const QByteArray inbox(box);
    ORLAVEX_NATS(natsInbox_Destroy)(box);
    {
        std::lock_guard<std::mutex> guard(d->lock);
        d->state.clear();
        d->stats = Stats();
        d->registry.clear();
        d->status.clear();
        d->needKey = true;
        d->pending.clear();
        d->pendingBytes = 0;
        for (ShareFrame::Assembler& a : d->assemblers) {
            a = ShareFrame::Assembler(d->maxBytes);
        }
        d->syncOutstanding = false;
        d->joinedAt = Clock::now();
        d->syncSubject = ShareFrame::subject(lab, "sync");
        d->inbox = inbox;
        d->nats = connection.get();
    }
    d->connection = std::move(connection);
    Private* p = d.get();
    auto frames = [p](Private::Source s) {
        return [p, s](natsMsg* m) {
            if (ORLAVEX_NATS(natsMsg_IsNoResponders)(m)) {
                // Nobody publishes the lab yet: its first frame is a keyframe.
                std::lock_guard<std::mutex> guard(p->lock);
                p->syncOutstanding = false;
                return;
            }
            p->message(s, ORLAVEX_NATS(natsMsg_GetData)(m), ORLAVEX_NATS(natsMsg_GetDataLength)(m));
        };
    };
    const struct {
        QByteArray subject;
        detail::NatsSubscription::Handler handler;
    } wanted[] = {
        {ShareFrame::subject(lab, "frame"), frames(Private::FrameSubject)},
        {ShareFrame::subject(lab, "key"), frames(Private::KeySubject)},
        {inbox + ".*", frames(Private::Reply)},
        {ShareFrame::subject(lab, "registry"), frames(Private::RegistrySubject)},
        {ShareFrame::subject(lab, "status"),
         [p](natsMsg* m) {
             p->statusLine(QByteArray(ORLAVEX_NATS(natsMsg_GetData)(m),
                                      ORLAVEX_NATS(natsMsg_GetDataLength)(m)));
         }},
    };
    for (const auto& w : wanted) {
        auto sub = std::make_unique<detail::NatsSubscription>();
        if (!sub->subscribe(d->connection->handle(), w.subject, w.handler, &why)) {
            leave();
            if (error)
                *error = why;
            return false;
        }
        d->subscriptions.push_back(std::move(sub));
    }
    // The broker must know the subscriptions before the publisher answers:
    // otherwise the keyframe, and the deltas that follow it, could pass by.
    if (!d->connection->flush(kFlushMs)) {
        leave();
        if (error)
            *error = QStringLiteral("the broker did not confirm the subscriptions");
        return false;
    }
    std::lock_guard<std::mutex> guard(d->lock);
    d->nats->publish(d->syncSubject, "registry", 8, d->replySubject());
    d->requestSync(true);
    return true;
}

void ShareViewer::leave() {
    std::vector<std::unique_ptr<detail::NatsSubscription>> subscriptions;
    subscriptions.swap(d->subscriptions);
    {
        std::lock_guard<std::mutex> guard(d->lock);
        d->nats = nullptr; // no more sync requests from the handlers
    }
    // Each waits for its handler's last call, which may need the lock: so
    // they go with the lock free.
    subscriptions.clear();
    d->connection.reset();
}

bool ShareViewer::isJoined() const {
    std::lock_guard<std::mutex> guard(d->lock);
    return d->nats != nullptr;
}

ShareState ShareViewer::state() const {
    std::lock_guard<std::mutex> guard(d->lock);
    return d->state;
}

bool ShareViewer::isSynchronized() const {
    std::lock_guard<std::mutex> guard(d->lock);
    return d->state.sequence != 0 && !d->needKey;
}

ShareViewer::Stats ShareViewer::stats() const {
    std::lock_guard<std::mutex> guard(d->lock);
    return d->stats;
}

QByteArray ShareViewer::registry() const {
    std::lock_guard<std::mutex> guard(d->lock);
    return d->registry;
}

QByteArray ShareViewer::status() const {
    std::lock_guard<std::mutex> guard(d->lock);
    return d->status;
}

void ShareViewer::setMaxFrameBytes(qint64 bytes) {
    std::lock_guard<std::mutex> guard(d->lock);
    d->maxBytes = bytes;
}

} // namespace Orlavex
