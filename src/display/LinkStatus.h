#pragma once

#include <Orlavex/link/CycleStats.h>
#include <Orlavex/orlavex_export.h>

#include <QLabel>

#include <QElapsedTimer>
#include <QPointer>
#include <mutex>

namespace Orlavex {

class CommThread;

/// A one-line status of the link, added by the client application with one
/// line (`window.addWidget(new LinkStatus(window.commThread))`): the cycle,
/// the cycles per second, and per cycle the time waiting for the server, the
/// render pass, parsing and applying, the bytes received and the fields that
/// records had amiss; for a shared lab (`CommThread::setShare`) also the
/// frames published and the states dropped so far. With the waits and the
/// render side by side it shows whether the link or the rendering limits a lab.
///
/// It refreshes at most four times a second, from the link thread's
/// statistics (`CommThread::cycleFinished`), averaged over the cycles since
/// the last refresh. When the link has waited for the server for two
/// seconds or more, it says for what and how long instead ("waiting for
/// record 9 of 9 for 12 s"), so a server that sends too few records is seen.

class ORLAVEX_EXPORT LinkStatus : public QLabel {
    Q_OBJECT
public:
    explicit LinkStatus(CommThread* link, QWidget* parent = nullptr);

    /// The text for the statistics of `cycles` cycles summed in `sum` over
    /// `seconds`, as the widget shows it.
    static QString describe(const CycleStats& sum, int cycles, double seconds);

private slots:
    void refresh();
    void checkWait();

private:
    void take(const CycleStats& stats); // on the thread that emits

    std::mutex m_lock;
    CycleStats m_sum; ///< since the last refresh, under m_lock
    int m_cycles = 0;
    bool m_refreshQueued = false;
    QElapsedTimer m_clock;
    QPointer<CommThread> m_link;
};

} // namespace Orlavex
