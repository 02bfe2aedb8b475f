#pragma once

#include <QObject>

#include <atomic>

/// Counts emissions of a signal that may come from another thread. Unlike
/// QSignalSpy, whose list is appended to on the emitting thread, the count is
/// atomic, so reading it while the link thread runs is not a data race.
class SignalCounter {
public:
    template <typename Sender, typename Signal> SignalCounter(Sender* sender, Signal signal) {
        QObject::connect(
            sender, signal, sender, [this] { ++m_count; }, Qt::DirectConnection);
    }
    int count() const { return m_count.load(); }

private:
    std::atomic<int> m_count{0};
};
