#pragma once

#include <Orlavex/orlavex_export.h>
#include <Orlavex/share/ShareCredentials.h>
#include <Orlavex/share/ShareState.h>

#include <QByteArray>
#include <QObject>
#include <QString>

#include <memory>

namespace Orlavex {

/// Follows a shared lab (`CommThread::setShare`) through its NATS broker and
/// keeps the lab's state as the controlling front-end captured it, bit for
/// bit (docs/share.md).
///
/// `join` subscribes to the lab's frames and asks the publisher for a
/// keyframe; deltas that arrive before it are kept and applied after it.
/// From then on each delta must follow the state's frame. A frame lost on
/// the way (a sequence gap), or one that cannot be decoded, leaves the state
/// as it was and makes the viewer ask for a keyframe again; so does a
/// publisher that started over. Qt Core only: a viewer needs neither VTK nor
/// widgets.
///
/// Frames are applied on the NATS library's delivery threads. `state()` and
/// `stats()` may be called from any thread; `frameApplied` is emitted on a
/// delivery thread, so a receiver living elsewhere gets it queued. A slot
/// connected directly runs on that thread, until `leave()` or the
/// destructor has returned: whatever it uses must outlive the viewer.
class ORLAVEX_EXPORT ShareViewer : public QObject {
    Q_OBJECT
public:
    struct Stats {
        qint64 frames = 0;    ///< frames applied, keyframes included
        qint64 keyframes = 0; ///< keyframes applied
        qint64 stale = 0;     ///< frames ignored because the state already had them
        qint64 gaps = 0;      ///< frames found missing
        qint64 bad = 0;       ///< messages refused (malformed, truncated, oversized, ...)
        qint64 syncs = 0;     ///< keyframes asked for
        qint64 restarts = 0;  ///< times the publisher started over
        qint64 bytes = 0;     ///< bytes of frames received
        double lagMs = 0;     ///< last frame: from its publication to its application
        double joinMs = -1;   ///< from `join` to the first state; -1 until then
        QString lastError;    ///< why the last message was refused
    };

    explicit ShareViewer(QObject* parent = nullptr);
    /// Leaves the lab.
    ~ShareViewer() override;

    /// Connects to the broker at `url` and joins lab `lab`; false, with the
    /// reason in `error`, when the broker cannot be reached or refuses. Once
    /// joined, the connection comes back on its own after a loss.
    bool join(const QString& url, const QString& lab, const ShareCredentials& credentials,
              QString* error = nullptr);
    /// Unsubscribes and disconnects; waits for a frame being applied.
    void leave();
    bool isJoined() const;

    /// The state as of the last frame applied (sequence 0 before the first).
    ShareState state() const;
    /// True once a keyframe has been applied and no frame is missing since.
    bool isSynchronized() const;
    Stats stats() const;
    /// The lab's registry description (`CommThread::registryDescription`), once received.
    QByteArray registry() const;
    /// The publisher's last status line (JSON), once received.
    QByteArray status() const;
    /// Frames larger than this are refused (256 MiB unless set); set before `join`.
    void setMaxFrameBytes(qint64 bytes);

signals:
    /// A frame was applied; the state is now that of cycle `cycle`.
    void frameApplied(qint64 cycle);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Orlavex
