#pragma once

#include <Orlavex/share/ShareState.h>

#include <QHash>
#include <QMap>
#include <QVector>

#include <vector>

namespace Orlavex {

class DrawableSource;
class SendClass;

namespace detail {

struct HandOver;

/// Captures a shared lab's state after each cycle, on the link thread: one
/// short capture function per kind reads what the cycle's records left in
/// the scene objects, and the cycle's hand-over gives what belongs to the
/// GUI thread (read-out values, enabled states, trail points).
///
/// Trails keep their points on the GUI thread, so the capture keeps a shadow
/// of each trail's retained points, fed from the hand-overs with the trail's
/// own rule (`TrailQwt::appendPoint`). Read-outs and number fields carry a
/// value only once a record has given them one.
///
/// Kinds are those of the record layouts: an object whose records are read
/// and ignored has no state. Each object's kind and each trail's settings are
/// looked up once, when the capture is made: after `CommThread::start()`,
/// when nothing is registered or reconfigured any more.
class ShareCapture {
public:
    explicit ShareCapture(const QMap<int, SendClass*>& objects);
    ShareCapture(const ShareCapture&) = delete;
    ShareCapture& operator=(const ShareCapture&) = delete;

    /// Fills `out` (its storage reused) with the state after cycle `cycle`,
    /// whose hand-over is `batch`. Takes `SceneLock` while it reads the scene.
    void capture(const HandOver& batch, qint64 cycle, ShareState& out);

    /// Reads one scene object's state as its kind's capture does, whether it
    /// is registered or not; false for what has no placed state (trails,
    /// controls, kinds whose records are ignored). The caller holds `SceneLock`.
    static bool captureObject(SendClass* object, ShareState::Object& out);
    /// The placement every placed kind shares: the actor's matrix and the
    /// material. The caller holds `SceneLock`.
    static void capturePlacement(DrawableSource* object, ShareState::Object& out);

private:
    using Capture = void (*)(SendClass*, ShareState::Object&);
    struct Entry {
        int num;
        SendClass* object;
        ShareState::Kind kind;
        Capture capture; ///< null for trails and controls: the hand-overs feed them
    };
    struct Trail {
        int received = 1; ///< points per batch
        int maxPoints = 500;
        int skip = 0;
        int skipPhase = 0;
        quint64 first = 0;
        QVector<double> x, y;
        void take(const QVector<double>& batch);
    };
    struct Widget {
        bool known = false;
        double value = 0;
    };

    std::vector<Entry> m_entries; ///< ascending record numbers
    QHash<SendClass*, Trail> m_trails;
    QHash<SendClass*, Widget> m_widgets;
};

} // namespace detail
} // namespace Orlavex
