#pragma once

#include <Orlavex/share/ShareCredentials.h>
#include <Orlavex/share/ShareState.h>

#include <QByteArray>
#include <QFile>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace Orlavex {
namespace detail {

class NatsConnection;

/// Publishes a lab's state to its viewers through a NATS broker, from a
/// thread of its own (subjects and frames: docs/share.md).
///
/// The link thread fills a state after each cycle (`buffer`) and hands it
/// over (`handOver`), and never waits for this thread: the hand-over is one
/// slot, latest wins, so a state not yet taken is replaced and counted as
/// dropped, and buffers go round between the two threads without being
/// allocated again. This thread connects (reconnecting on its own), and
/// publishes each state it takes as a delta frame, a keyframe every
/// `kKeyframeEvery` cycles and after each connect, the registry once per
/// connect, a status line about once a second, and a keyframe in reply to
/// each sync request (on the key subject instead when it needs parts, since
/// a request takes one answer). A state that cannot be published (no broker, a full
/// buffer) is dropped and counted; the next delta then still follows the
/// last one published, so viewers see no gap.
class SharePublisher {
public:
    static constexpr qint64 kKeyframeEvery = 100;

    SharePublisher(const QString& url, const QString& lab, const ShareCredentials& credentials);
    /// Publishes the state handed over last, if it has not gone yet, says
    /// goodbye on the status subject and closes (about a second at most).
    ~SharePublisher();
    SharePublisher(const SharePublisher&) = delete;
    SharePublisher& operator=(const SharePublisher&) = delete;

    /// Link thread, once before the first hand-over: starts the thread.
    void start(const QByteArray& registry);
    /// Before `start()`: the file to which the publisher's thread writes a
    /// line per published state, "CYCLE DIGEST" (`ShareFrame::digest`).
    void setJournal(const QString& path) { m_journalPath = path; }
    bool started() const { return m_thread.joinable(); }
    /// Link thread: the state to fill for the next hand-over.
    ShareState& buffer() { return *m_fill; }
    /// Link thread: hands `buffer()` over and takes a fresh one.
    void handOver();

    /// Frames published so far, one per state.
    qint64 published() const { return m_published.load(); }
    /// States that never reached the broker so far.
    qint64 dropped() const { return m_dropped.load(); }
    /// Bytes published so far: delta frames, keyframes and replies.
    qint64 bytesPublished() const { return m_bytes.load(); }
    /// The state last published (sequence 0 before the first).
    ShareState snapshot() const;

private:
    struct Sync {
        QByteArray reply;
        bool registry; ///< asks for the registry instead of a keyframe
    };

    void run();
    void connected(NatsConnection& nats);
    void publishState(NatsConnection& nats, std::unique_ptr<ShareState> state);
    void answer(NatsConnection& nats, const std::vector<Sync>& requests);
    void publishStatus(NatsConnection& nats, const char* state);
    bool send(NatsConnection& nats, const QByteArray& subject, const QByteArray& frame,
              const QByteArray& reply = QByteArray());
    const QByteArray& keyframe();
    void recycle(std::unique_ptr<ShareState> state);
    void takeSync(const QByteArray& reply, const QByteArray& request);

    const QString m_url;
    const QString m_lab;
    const ShareCredentials m_credentials;
    QByteArray m_registry; ///< written before the thread starts
    QString m_journalPath; ///< likewise

    std::unique_ptr<ShareState> m_fill; ///< link thread only

    // The hand-over between the link thread and this thread.
    std::mutex m_lock;
    std::condition_variable m_wake;
    std::unique_ptr<ShareState> m_pending; ///< handed over, not taken yet
    std::unique_ptr<ShareState> m_spare;   ///< published and replaced: for the link thread
    std::vector<Sync> m_syncs;             ///< requests not answered yet
    bool m_quit = false;

    // This thread only, but for m_last, which snapshot() reads under m_lastLock.
    mutable std::mutex m_lastLock;
    std::unique_ptr<ShareState> m_last; ///< published last
    QFile m_journal;
    std::vector<Sync> m_waiting; ///< requests that came before the first state
    QByteArray m_key;            ///< keyframe of m_last, once encoded
    quint64 m_keySequence = 0;
    qint64 m_lastKeyCycle = 0;
    bool m_needKey = true;

    std::atomic<qint64> m_published{0};
    std::atomic<qint64> m_dropped{0};
    std::atomic<qint64> m_bytes{0};
    std::thread m_thread;
};

} // namespace detail
} // namespace Orlavex
