#include "LinkStatus.h"

#include <Orlavex/link/CommThread.h>

#include <QTimer>

namespace Orlavex {

LinkStatus::LinkStatus(CommThread* link, QWidget* parent) : QLabel(parent), m_link(link) {
    setText(tr("waiting for the first cycle"));
    m_clock.start();
    connect(link, &CommThread::reconnecting, this, [this](int attempt, double next) {
        setText(CommThread::reconnectingText(attempt, next));
    });
    connect(link, &CommThread::reconnected, this, [this] { setText(tr("reconnected")); });
    auto* timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, &LinkStatus::checkWait);
    timer->start(500);
    // Direct: the statistics are summed on the emitting thread under the
    // lock, and only a parameterless refresh crosses to this widget's thread.
    connect(
        link, &CommThread::cycleFinished, this, [this](const CycleStats& s) { take(s); },
        Qt::DirectConnection);
}

void LinkStatus::take(const CycleStats& s) {
    std::lock_guard<std::mutex> guard(m_lock);
    m_sum.cycle = s.cycle;
    m_sum.waitMs += s.waitMs;
    m_sum.bytesReceived += s.bytesReceived;
    m_sum.parseMs += s.parseMs;
    m_sum.applyMs += s.applyMs;
    m_sum.renderMs += s.renderMs;
    m_sum.records += s.records;
    m_sum.sharePublished = s.sharePublished; // totals: the latest counts
    m_sum.shareDropped = s.shareDropped;
    for (auto it = s.anomalies.cbegin(); it != s.anomalies.cend(); ++it)
        m_sum.anomalies[it.key()] += it.value();
    ++m_cycles;
    if (!m_refreshQueued && m_clock.elapsed() >= 250) {
        m_refreshQueued = true;
        QMetaObject::invokeMethod(this, "refresh", Qt::QueuedConnection);
    }
}

void LinkStatus::refresh() {
    CycleStats sum;
    int cycles;
    double seconds;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        sum = m_sum;
        cycles = m_cycles;
        seconds = m_clock.restart() * 1e-3;
        m_sum = CycleStats();
        m_cycles = 0;
        m_refreshQueued = false;
    }
    if (cycles > 0)
        setText(describe(sum, cycles, seconds));
}

void LinkStatus::checkWait() {
    if (!m_link)
        return;
    double seconds = 0;
    const QString what = m_link->waitingFor(&seconds);
    if (what.isEmpty() || seconds < 2.0)
        return;
    setText(tr("waiting for %1 for %2 s").arg(what).arg(int(seconds)));
}

QString LinkStatus::describe(const CycleStats& sum, int cycles, double seconds) {
    const double n = qMax(cycles, 1);
    QString text = tr("cycle %1 · %2 cycles/s · server %3 ms · render %4 ms · parse %5 ms · "
                      "apply %6 ms · %7 kB")
                       .arg(sum.cycle)
                       .arg(seconds > 0 ? cycles / seconds : 0.0, 0, 'f', 1)
                       .arg(sum.waitMs / n, 0, 'f', 1)
                       .arg(sum.renderMs / n, 0, 'f', 1)
                       .arg(sum.parseMs / n, 0, 'f', 2)
                       .arg(sum.applyMs / n, 0, 'f', 2)
                       .arg(sum.bytesReceived / n / 1000.0, 0, 'f', 1);
    if (!sum.anomalies.isEmpty()) {
        QStringList where;
        for (auto it = sum.anomalies.cbegin(); it != sum.anomalies.cend(); ++it)
            where << tr("record %1: %2").arg(it.key()).arg(it.value());
        text += tr(" · fields amiss (%1)").arg(where.join(QStringLiteral(", ")));
    }
    if (sum.sharePublished + sum.shareDropped > 0)
        text += tr(" · shared %1 frames, %2 dropped").arg(sum.sharePublished).arg(sum.shareDropped);
    return text;
}

} // namespace Orlavex
