#include "CycleRun.h"

#include "SignalCounter.h"

#include <Orlavex/Orlavex.h>

#include <QtTest>

#include <memory>

CycleRun runCycles(const QMap<int, SendClass*>& objects, const CycleServer::Records& records,
                   int cycles, bool window) {
    CycleServer server(records, cycles);
    std::unique_ptr<MainWindow> mainWindow(window ? new MainWindow : nullptr);
    // Deleted before the window, as a client application does.
    std::unique_ptr<CommThread> thread(window ? mainWindow->commThread : new CommThread);
    for (auto it = objects.cbegin(); it != objects.cend(); ++it)
        thread->setSendingObjI(it.key(), it.value());
    thread->setServerAddress("local");
    thread->setServerPort(server.port());
    thread->setOverlapRendering(qEnvironmentVariableIsSet("ORLAVEX_TEST_OVERLAP"));
    SignalCounter failed(thread.get(), &CommThread::connectionFailed);
    SignalCounter updates(thread.get(), &CommThread::dataUpdated);
    thread->start();
    // The server closes the link after its last cycle; the thread reports it.
    static_cast<void>(QTest::qWaitFor([&] { return failed.count() > 0; }, 60000));
    thread->shutdown();
    QCoreApplication::processEvents(); // widget changes queued without a main window
    CycleRun run;
    run.cycles = server.cycles();
    run.failures = failed.count();
    run.updates = updates.count();
    run.dataMessages = server.dataMessages();
    return run;
}

CycleRun runRecord(SendClass* object, const QVector<double>& numbers, int cycles, bool window) {
    const QByteArray record = SimulationServer::record(1, numbers.constData(), numbers.size());
    return runCycles(
        {{1, object}}, [record](int) { return QVector<QByteArray>{record}; }, cycles, window);
}
