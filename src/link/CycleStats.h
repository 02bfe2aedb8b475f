#pragma once

#include <Orlavex/orlavex_export.h>

#include <QMap>
#include <QMetaType>

namespace Orlavex {

/// What one exchange cycle cost and found, published by the link thread
/// after the cycle's render pass (`CommThread::cycleFinished`).
///
/// With the waits on the server and the render pass side by side a lab shows
/// at a glance whether the link or the rendering limits its rate.
struct CycleStats {
    qint64 cycle = 0;         ///< counts from 1
    double waitMs = 0;        ///< blocked on the server: ack, chalk and record strings
    qint64 bytesReceived = 0; ///< bytes of the cycle's server strings
    double parseMs = 0;       ///< turning payloads into numbers
    double applyMs = 0;       ///< applying the numbers, parsing excluded
    double renderMs = 0;      ///< the render pass, from hand-over to its return
    int records = 0;          ///< records applied to a registered object of a known kind
    /// Fields amiss, by record number: a missing comma, surplus fields, a
    /// field that is not a number, a rotation or trail point that is not finite.
    QMap<int, int> anomalies;
    /// A shared lab (`CommThread::setShare`), counted since the link thread
    /// started: frames published to the viewers, and cycles whose state never
    /// reached the broker (none there, or too slow to take every cycle).
    qint64 sharePublished = 0;
    qint64 shareDropped = 0;

    int anomalyCount() const {
        int n = 0;
        for (int a : anomalies)
            n += a;
        return n;
    }
};

} // namespace Orlavex

Q_DECLARE_METATYPE(Orlavex::CycleStats)
