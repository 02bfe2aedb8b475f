#pragma once

#include <Orlavex/Orlavex.h>

#include <QApplication>
#include <QtTest>

/// Like QTEST_MAIN, but prepares the OpenGL surface format before the
/// application exists, as every client application of the library must.
#define ORLAVEX_GUI_TEST_MAIN(TestObject)                                                          \
    int main(int argc, char** argv) {                                                              \
        SurfaceFormat::prepare();                                                                  \
        QApplication app(argc, argv);                                                              \
        app.setAttribute(Qt::AA_Use96Dpi, true);                                                   \
        TestObject tc;                                                                             \
        QTEST_SET_MAIN_SOURCE_PATH                                                                 \
        return QTest::qExec(&tc, argc, argv);                                                      \
    }
