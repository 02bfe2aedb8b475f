#pragma once

#include <Orlavex/Orlavex.h>

#include <QApplication>
#include <QtTest>

#include <cstdio>
#include <cstdlib>

namespace testsupport {
/// Under ThreadSanitizer (ORLAVEX_SKIP_QT_TEARDOWN) a test program ends once
/// its tests have run, without tearing Qt down: the X11 connection's own
/// event thread hands its last events to the GUI thread through atomics the
/// checker cannot see, and its teardown would be reported as a race of Qt's.
/// Every test has finished, and its own objects are gone, by then.
inline int finish(int rc) {
    if (Orlavex::LogStream::waitWritten(5000) && qEnvironmentVariableIsSet("ORLAVEX_SKIP_QT_TEARDOWN"))
        std::fflush(nullptr), std::_Exit(rc);
    return rc;
}
} // namespace testsupport

/// Like QTEST_MAIN, but prepares the OpenGL surface format before the
/// application exists, as every client application of the library must.
#define ORLAVEX_GUI_TEST_MAIN(TestObject)                                                          \
    int main(int argc, char** argv) {                                                              \
        SurfaceFormat::prepare();                                                                  \
        QApplication app(argc, argv);                                                              \
        app.setAttribute(Qt::AA_Use96Dpi, true);                                                   \
        TestObject tc;                                                                             \
        QTEST_SET_MAIN_SOURCE_PATH                                                                 \
        return testsupport::finish(QTest::qExec(&tc, argc, argv));                                 \
    }
