#include "SharePublisher.h"

#include <Orlavex/common/LogStream.h>
#include <Orlavex/share/ShareFrame.h>
#include <Orlavex/share/detail/NatsConnection.h>
#include <Orlavex/share/detail/NatsSubscription.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>

#include <chrono>

namespace Orlavex {
namespace detail {

namespace {
using Clock = std::chrono::steady_clock;

qint64 nowUs() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// Requests beyond these wait for nobody: a viewer asks again.
constexpr std::size_t kMaxSyncs = 256;
// The goodbye is worth a short wait, never a long one: the destructor of the
// link thread waits for this one.
constexpr int kFlushMs = 500;
} // namespace

SharePublisher::SharePublisher(const QString& url, const QString& lab,
                               const ShareCredentials& credentials)
    : m_url(url), m_lab(lab), m_credentials(credentials), m_fill(new ShareState),
      m_last(new ShareState) {
    // Frames are numbered per run: a viewer that sees another number here
    // knows that a new front-end took over the lab, whatever the sequence.
    m_last->publisher = QRandomGenerator::system()->generate64() | 1;
}

SharePublisher::~SharePublisher() {
    if (!m_thread.joinable())
        return;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_quit = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void SharePublisher::start(const QByteArray& registry) {
    m_registry = registry;
    m_thread = std::thread([this] { run(); });
}

void SharePublisher::handOver() {
    std::unique_ptr<ShareState> next;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        if (m_pending) {
            next = std::move(m_pending); // never taken: the newer state wins
            ++m_dropped;
        } else {
            next = std::move(m_spare);
        }
        m_pending = std::move(m_fill);
    }
    m_wake.notify_one();
    m_fill = next ? std::move(next) : std::unique_ptr<ShareState>(new ShareState);
}

ShareState SharePublisher::snapshot() const {
    std::lock_guard<std::mutex> guard(m_lastLock);
    return *m_last;
}

void SharePublisher::recycle(std::unique_ptr<ShareState> state) {
    std::lock_guard<std::mutex> guard(m_lock);
    if (!m_spare)
        m_spare = std::move(state);
}

void SharePublisher::takeSync(const QByteArray& reply, const QByteArray& request) {
    // On the library's delivery thread: queue it, answer on this object's thread.
    if (reply.isEmpty())
        return; // nowhere to answer
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_syncs.size() < kMaxSyncs)
        m_syncs.push_back({reply, request == "registry"});
    m_wake.notify_one();
}

void SharePublisher::run() {
    if (!m_journalPath.isEmpty()) {
        m_journal.setFileName(m_journalPath);
        if (!m_journal.open(QIODevice::WriteOnly | QIODevice::Truncate))
            LogStream::toStandardError(QStringLiteral("cannot write the share journal %1: %2\n")
                                           .arg(m_journalPath, m_journal.errorString())
                                           .toLocal8Bit());
    }
    NatsConnection nats;
    QString error;
    const bool usable =
        nats.open(m_url, m_credentials, QStringLiteral("orlavex %1").arg(m_lab), true, &error);
    // Said on standard error without ever waiting for it (LogStream).
    if (!usable)
        LogStream::toStandardError(QStringLiteral("cannot share lab %1 through %2: %3\n")
                                       .arg(m_lab, m_url, error)
                                       .toLocal8Bit());
    NatsSubscription syncs; // after the connection: it goes first
    if (usable && !syncs.subscribe(
                      nats.handle(), ShareFrame::subject(m_lab, "sync"),
                      [this](natsMsg* m) {
                          const char* reply = ORLAVEX_NATS(natsMsg_GetReply)(m);
                          takeSync(QByteArray(reply ? reply : ""),
                                   QByteArray(ORLAVEX_NATS(natsMsg_GetData)(m),
                                              ORLAVEX_NATS(natsMsg_GetDataLength)(m)));
                      },
                      &error))
        LogStream::toStandardError(QStringLiteral("lab %1 answers no keyframe requests: %2\n")
                                       .arg(m_lab, error)
                                       .toLocal8Bit());

    bool wasConnected = false;
    quint64 reconnects = 0;
    // The newest state not published yet: while the broker is away it
    // waits here, so that a lab that pauses or ends meanwhile still shows
    // its last state once the broker is back.
    std::unique_ptr<ShareState> held;
    Clock::time_point lastStatus = Clock::now();
    for (;;) {
        std::unique_ptr<ShareState> state;
        std::vector<Sync> requests;
        bool quit;
        {
            // Woken by a hand-over, a request or the end; once a second
            // anyway, for the status line and a connection that came back.
            std::unique_lock<std::mutex> guard(m_lock);
            m_wake.wait_for(guard, std::chrono::seconds(1),
                            [this] { return m_pending || !m_syncs.empty() || m_quit; });
            state = std::move(m_pending);
            requests.swap(m_syncs);
            quit = m_quit;
        }
        const bool isConnected = usable && nats.connected();
        if (isConnected && (!wasConnected || nats.reconnects() != reconnects)) {
            reconnects = nats.reconnects();
            connected(nats);
            lastStatus = Clock::now();
        }
        wasConnected = isConnected;
        if (state) {
            if (held) {
                ++m_dropped;
                recycle(std::move(held));
            }
            held = std::move(state);
        }
        if (held && isConnected)
            publishState(nats, std::move(held));
        if (isConnected) {
            answer(nats, requests);
            if (Clock::now() - lastStatus >= std::chrono::seconds(1)) {
                publishStatus(nats, "sharing");
                lastStatus = Clock::now();
            }
        }
        if (quit)
            break;
    }
    if (held)
        ++m_dropped;
    if (usable && nats.connected()) {
        publishStatus(nats, "closed");
        nats.flush(kFlushMs);
    }
}

void SharePublisher::connected(NatsConnection& nats) {
    // Viewers that were cut off with the publisher learn the registry again
    // and can start over from the next keyframe.
    send(nats, ShareFrame::subject(m_lab, "registry"), m_registry);
    m_needKey = true;
    publishStatus(nats, "sharing");
}

bool SharePublisher::send(NatsConnection& nats, const QByteArray& subject, const QByteArray& frame,
                          const QByteArray& reply) {
    const QByteArray& to = reply.isEmpty() ? subject : reply;
    for (const QByteArray& message : ShareFrame::split(frame, nats.maxPayload())) {
        if (!nats.publish(to, message.constData(), message.size()))
            return false;
        m_bytes += message.size();
    }
    return true;
}

const QByteArray& SharePublisher::keyframe() {
    // One encoding per state, however many viewers ask for it.
    if (m_keySequence != m_last->sequence) {
        m_key = ShareFrame::encodeKey(*m_last, nowUs());
        m_keySequence = m_last->sequence;
    }
    return m_key;
}

void SharePublisher::publishState(NatsConnection& nats, std::unique_ptr<ShareState> state) {
    state->publisher = m_last->publisher;
    state->sequence = m_last->sequence + 1;
    const QByteArray frame = ShareFrame::encodeDelta(*m_last, *state, nowUs());
    if (!send(nats, ShareFrame::subject(m_lab, "frame"), frame)) {
        // Not published: the next delta follows the last one that was.
        ++m_dropped;
        state->publisher = 0;
        state->sequence = 0;
        recycle(std::move(state));
        return;
    }
    ++m_published;
    {
        std::lock_guard<std::mutex> guard(m_lastLock);
        std::swap(m_last, state);
    }
    if (m_journal.isOpen()) {
        // Line by line: whoever checks it may end the program at any time.
        m_journal.write(QByteArray::number(m_last->cycle) + ' ' + ShareFrame::digest(*m_last) +
                        '\n');
        m_journal.flush();
    }
    recycle(std::move(state));
    ShareFrame::Header h;
    if (ShareFrame::readHeader(frame, &h).ok() && h.type == ShareFrame::Type::Key) {
        m_key = frame;
        m_keySequence = m_last->sequence;
    }
    if (m_needKey || m_last->cycle - m_lastKeyCycle >= kKeyframeEvery) {
        send(nats, ShareFrame::subject(m_lab, "key"), keyframe());
        m_lastKeyCycle = m_last->cycle;
        m_needKey = false;
    }
    std::vector<Sync> waiting;
    waiting.swap(m_waiting);
    answer(nats, waiting);
}

void SharePublisher::answer(NatsConnection& nats, const std::vector<Sync>& requests) {
    // An answer that needs parts would be several answers to one request,
    // which a broker refuses: it goes to every viewer on the lab's own
    // subject instead, once for all the requests that came together.
    bool keyForAll = false;
    bool registryForAll = false;
    for (const Sync& sync : requests) {
        if (!sync.registry && m_last->sequence == 0) {
            // Nothing published yet: answered with the first state.
            if (m_waiting.size() < kMaxSyncs)
                m_waiting.push_back(sync);
            continue;
        }
        const QByteArray& answer = sync.registry ? m_registry : keyframe();
        if (answer.size() <= nats.maxPayload())
            send(nats, QByteArray(), answer, sync.reply);
        else
            (sync.registry ? registryForAll : keyForAll) = true;
    }
    if (registryForAll)
        send(nats, ShareFrame::subject(m_lab, "registry"), m_registry);
    if (keyForAll)
        send(nats, ShareFrame::subject(m_lab, "key"), keyframe());
}

void SharePublisher::publishStatus(NatsConnection& nats, const char* state) {
    // The publisher's number in hex: a JSON number could not hold 64 bits.
    const QJsonObject status{{"lab", m_lab},
                             {"state", QLatin1String(state)},
                             {"publisher", QString::number(m_last->publisher, 16)},
                             {"cycle", double(m_last->cycle)},
                             {"sequence", double(m_last->sequence)},
                             {"published", double(m_published.load())},
                             {"dropped", double(m_dropped.load())},
                             {"keyframeEvery", double(kKeyframeEvery)}};
    const QByteArray text = QJsonDocument(status).toJson(QJsonDocument::Compact);
    nats.publish(ShareFrame::subject(m_lab, "status"), text.constData(), text.size());
}

} // namespace detail
} // namespace Orlavex
