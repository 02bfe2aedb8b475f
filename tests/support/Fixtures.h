#pragma once

// Scaffolding shared by the widget and scene tests: showing a widget, a
// scratch directory, and a main window that owns its link thread.

#include <Orlavex/Orlavex.h>

#include <QTemporaryDir>
#include <QtTest>

namespace fixture {
/// Shows `w` (at `size` when one is given) and waits until it is on screen.
inline bool show(QWidget& w, QSize size = QSize()) {
    if (size.isValid())
        w.resize(size);
    w.show();
    return QTest::qWaitForWindowExposed(&w);
}

/// A wall-clock bound of `ms` for a promptness check. Under a sanitizer
/// everything runs many times slower and the same bound would measure the
/// checker, so it is ten times wider there; a hang still fails.
inline int bound(int ms) {
    return qEnvironmentVariableIsSet("ORLAVEX_SANITIZER_RUN") ? 10 * ms : ms;
}

/// A path in a scratch directory that lasts as long as the test process.
inline QString tempPath(const QString& name) {
    static QTemporaryDir dir;
    return dir.filePath(name);
}

/// A main window that deletes its link thread with it, as a client
/// application does after app.exec() returns.
class OwningWindow : public MainWindow {
public:
    ~OwningWindow() override { delete commThread; }
};
} // namespace fixture
