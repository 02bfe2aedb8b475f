#pragma once

// Set-up shared by the fuzz targets.

#include <Orlavex/common/LogStream.h>

#include <QApplication>
#include <QByteArray>
#include <QCoreApplication>

#include <cstdlib>

namespace fuzz {

// Bad input is expected to make the library warn, at a rate of thousands of
// inputs per second; the warnings would only bury libFuzzer's own report.
// ORLAVEX_FUZZ_VERBOSE=1 keeps them, to look at one reproducer.
inline void quietMessages() {
    if (qEnvironmentVariableIntValue("ORLAVEX_FUZZ_VERBOSE") == 0)
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
}

// One application object for the whole run, never destroyed (libFuzzer ends
// the process with exit()). Widgets need QApplication; the offscreen
// platform lets them exist without a display.
template <class App> inline void makeApplication() {
    if (QCoreApplication::instance())
        return;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char name[] = "orlavex-fuzz";
    static char* argv[] = {name, nullptr};
    new App(argc, argv);
    quietMessages();
}

// Lets the library's output thread write (and free) what an input made the
// library print or log before the input ends. Otherwise those frees land in
// a later input, and libFuzzer, seeing more allocations than frees, runs a
// full leak check after nearly every input.
inline void settleOutput() {
    Orlavex::LogStream::waitWritten(10000);
}

} // namespace fuzz
