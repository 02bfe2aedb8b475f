#pragma once

#include "CycleServer.h"

#include <QMap>

#include <Orlavex/Orlavex.h>

/// What a run of real cycles left behind.
struct CycleRun {
    int cycles = 0;   ///< completed by the server
    int failures = 0; ///< connectionFailed() emissions
    int updates = 0;  ///< dataUpdated() emissions
    QVector<QByteArray> dataMessages;
};

/// Registers `objects` under their num fields with a link thread and runs it
/// against a CycleServer that sends `records(cycle)` for `cycles` cycles. It
/// returns once the server has gone, the thread has reported the lost link
/// and has been shut down, so the objects may be read at once. With `window`
/// a MainWindow owns the thread and takes its render passes, widget changes
/// and trail points, as in a client application.
CycleRun runCycles(const QMap<int, SendClass*>& objects, const CycleServer::Records& records,
                   int cycles, bool window = false);

/// The same record, made of `numbers`, for the object under num 1 in every cycle.
CycleRun runRecord(SendClass* object, const QVector<double>& numbers, int cycles = 1,
                   bool window = false);
