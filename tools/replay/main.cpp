// orlavex-replay: serves a recorded lab session (CommThread::setRecordFile)
// to a front-end, as the simulation server did, cycle by cycle and at the
// recorded pace.
//
//   orlavex-replay FILE [--port P] [--speed FACTOR|max] [--loop] [--from CYCLE]
//                       [--registry FRONTEND_JSON] [--info]
//
// It checks the whole file first, so a damaged recording is refused before a
// front-end connects. Exit codes: 0 done, 1 unreadable or damaged file,
// 2 wrong usage or a recording that does not fit the front-end.
#include "SessionReader.h"

#include <Orlavex/server/SimulationServer.h>

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QStringList>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

using Orlavex::detail::SessionFrame;
using Orlavex::detail::SessionReader;
using Clock = std::chrono::steady_clock;

namespace {

const char kUsage[] =
    "usage: orlavex-replay FILE [--port P] [--speed FACTOR|max] [--loop] [--from CYCLE]\n"
    "                           [--registry FRONTEND_JSON] [--info]\n"
    "  --port P        port to listen on (default 4848; 0 picks a free one)\n"
    "  --speed F       play F times as fast as recorded; max: no pacing (default 1)\n"
    "  --loop          start again from the first cycle after the last\n"
    "  --from CYCLE    start at this recorded cycle\n"
    "  --registry F    refuse the recording unless its records match the front-end's\n"
    "                  registry description F (CommThread::writeRegistry)\n"
    "  --info          describe the recording and exit\n";

struct Options {
    QString file;
    int port = 4848;
    double speed = 1; ///< 0: no pacing
    bool loop = false;
    qint64 from = 0;
    QString registry;
    bool info = false;
};

[[noreturn]] void quit(int code, const QString& message) {
    std::fprintf(stderr, "orlavex-replay: %s\n", qPrintable(message));
    std::exit(code);
}

Options parse(const QStringList& args) {
    Options o;
    for (int i = 1; i < args.size(); ++i) {
        const int at = i;
        const QString& a = args[i];
        const bool more = i + 1 < args.size();
        bool ok = true;
        if (a == "--port" && more)
            o.port = args[++i].toInt(&ok);
        else if (a == "--speed" && more) {
            const QString v = args[++i];
            o.speed = v == "max" ? 0 : v.toDouble(&ok);
            ok = ok && o.speed >= 0;
        } else if (a == "--loop")
            o.loop = true;
        else if (a == "--from" && more)
            o.from = args[++i].toLongLong(&ok);
        else if (a == "--registry" && more)
            o.registry = args[++i];
        else if (a == "--info")
            o.info = true;
        else if (a == "-h" || a == "--help") {
            std::fputs(kUsage, stdout);
            std::exit(0);
        } else if (!a.startsWith("--") && o.file.isEmpty())
            o.file = a;
        else
            ok = false;
        if (!ok || o.port < 0 || o.port > 65535) {
            std::fprintf(stderr, "orlavex-replay: bad argument \"%s\"\n%s",
                         qPrintable(args.mid(at, i - at + 1).join(' ')), kUsage);
            std::exit(2);
        }
    }
    if (o.file.isEmpty()) {
        std::fputs(kUsage, stderr);
        std::exit(2);
    }
    return o;
}

/// num -> "Kind (n numbers)" for each record of a registry description.
QMap<int, QString> recordsOf(const QJsonObject& registry) {
    QMap<int, QString> out;
    for (const QJsonValue& v : registry.value("records").toArray()) {
        const QJsonObject r = v.toObject();
        const QString kind = r.value("kind").toString();
        out.insert(r.value("num").toInt(),
                   r.value("ignored").toBool()
                       ? kind + " (ignored)"
                       : QStringLiteral("%1 (%2 numbers)").arg(kind).arg(r.value("count").toInt()));
    }
    return out;
}

/// The differences between the recording's records and the front-end's.
QStringList compareRegistries(const QJsonObject& recorded, const QString& frontEndPath) {
    QFile file(frontEndPath);
    if (!file.open(QIODevice::ReadOnly))
        quit(2, QStringLiteral("cannot read %1").arg(frontEndPath));
    const QJsonObject frontEnd = QJsonDocument::fromJson(file.readAll()).object();
    if (frontEnd.value("format").toString() != "orlavex-registry")
        quit(2, QStringLiteral("%1 is not a registry description").arg(frontEndPath));
    const QMap<int, QString> a = recordsOf(recorded), b = recordsOf(frontEnd);
    QStringList diff;
    for (auto it = a.cbegin(); it != a.cend(); ++it) {
        if (!b.contains(it.key()))
            diff << QStringLiteral("record %1: %2 in the recording, absent from the front-end")
                        .arg(it.key())
                        .arg(it.value());
        else if (b.value(it.key()) != it.value())
            diff << QStringLiteral("record %1: %2 in the recording, %3 in the front-end")
                        .arg(it.key())
                        .arg(it.value(), b.value(it.key()));
    }
    for (auto it = b.cbegin(); it != b.cend(); ++it)
        if (!a.contains(it.key()))
            diff << QStringLiteral("record %1: %2 in the front-end, absent from the recording")
                        .arg(it.key())
                        .arg(it.value());
    return diff;
}

/// Reads the whole file once: how many cycles it holds from `from` on, and
/// whether every cycle carries the records that the front-end reads.
qint64 check(SessionReader& reader, const Options& o, int records) {
    SessionFrame frame;
    qint64 count = 0, total = 0;
    while (reader.next(&frame)) {
        ++total;
        for (const QByteArray& s : qAsConst(frame.strings))
            if (!s.endsWith('#'))
                quit(1, QStringLiteral("%1: cycle %2 holds a string without its terminal "
                                       "(damaged file)")
                            .arg(o.file)
                            .arg(frame.cycle));
        if (frame.strings.size() != records + 1)
            quit(2, QStringLiteral("%1: cycle %2 carries %3 record strings, but the front-end "
                                   "that made it registered %4 records")
                        .arg(o.file)
                        .arg(frame.cycle)
                        .arg(frame.strings.size() - 1)
                        .arg(records));
        if (frame.cycle >= o.from)
            ++count;
    }
    if (reader.hasError())
        quit(1, QStringLiteral("%1: %2").arg(o.file, reader.errorString()));
    if (reader.truncated())
        std::fprintf(stderr,
                     "orlavex-replay: note: %s ends early (its recorder did not close it); "
                     "its %lld complete cycles are replayed\n",
                     qPrintable(o.file), total);
    std::printf("recording: %lld cycles, %d records per cycle, library %s, started %s\n", total,
                records, qPrintable(reader.libraryVersion()),
                qPrintable(reader.header().value("started").toString()));
    if (count == 0 && !o.info)
        quit(total == 0 ? 1 : 2,
             total == 0 ? QStringLiteral("%1 holds no complete cycle").arg(o.file)
                        : QStringLiteral("%1 has no cycle from %2 on").arg(o.file).arg(o.from));
    return count;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const Options o = parse(app.arguments());

    SessionReader reader;
    if (!reader.open(o.file))
        quit(1, reader.errorString());
    const QJsonObject registry = reader.registry();
    if (!o.registry.isEmpty()) {
        const QStringList diff = compareRegistries(registry, o.registry);
        if (!diff.isEmpty())
            quit(2, QStringLiteral("%1 does not match the front-end described in %2:\n  %3")
                        .arg(o.file, o.registry, diff.join("\n  ")));
    }
    check(reader, o, registry.value("records").toArray().size());
    std::fflush(stdout);
    if (o.info)
        return 0;

    SimulationServer server;
    server.setTimeout(-1); // a paused front-end keeps the replay waiting
    if (!server.listen(QHostAddress::LocalHost, quint16(o.port)))
        quit(1, QStringLiteral("cannot listen on port %1").arg(o.port));
    std::printf("listening on port %d\n", int(server.port()));
    std::fflush(stdout); // whoever started us reads the port from this line
    if (!server.waitForClient())
        quit(1, QStringLiteral("no front-end connected"));

    QVector<SimulationServer::Entry> changes;
    SessionFrame frame;
    qint64 served = 0;
    bool gone = false;
    do {
        if (!reader.rewind())
            quit(1, reader.errorString());
        // Pacing follows the recorded time stamps from the first cycle
        // served; a front-end that fell behind (paused) is not made to catch up.
        Clock::time_point base;
        double first = -1;
        while (!gone && reader.next(&frame)) {
            if (frame.cycle < o.from)
                continue;
            if (!server.nextCycle(&changes)) {
                gone = true;
                break;
            }
            for (const SimulationServer::Entry& c : qAsConst(changes)) {
                QByteArray value;
                SimulationServer::appendNumber(value, c.second);
                std::printf("control %d = %s (not applied: replay)\n", c.first, value.constData());
            }
            if (!changes.isEmpty())
                std::fflush(stdout);
            if (o.speed > 0) {
                const auto now = Clock::now();
                if (first < 0) {
                    first = frame.timeMs;
                    base = now;
                }
                const auto due = base + std::chrono::duration_cast<Clock::duration>(
                                            std::chrono::duration<double, std::milli>(
                                                (frame.timeMs - first) / o.speed));
                if (due > now)
                    std::this_thread::sleep_until(due);
                else if (now - due > std::chrono::milliseconds(250))
                    base += now - due;
            }
            for (int i = 1; i < frame.strings.size(); ++i)
                server.addRecordString(frame.strings[i]);
            QByteArray chalk = frame.strings[0];
            chalk.chop(1);
            if (!server.finishCycle(chalk.toInt())) {
                gone = true;
                break;
            }
            ++served;
        }
        if (reader.hasError()) // the file changed since it was checked
            quit(1, QStringLiteral("%1: %2").arg(o.file, reader.errorString()));
    } while (o.loop && !gone);
    if (!gone)
        server.nextCycle(&changes); // the front-end's acks of the last cycle
    std::printf(gone ? "the front-end left after %lld cycles\n" : "replayed %lld cycles\n", served);
    return 0;
}
