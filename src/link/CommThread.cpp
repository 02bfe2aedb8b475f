#include "CommThread.h"

#include "detail/RecordLayout.h"
#include "detail/RenderRelay.h"
#include "detail/SceneDescription.h"
#include "detail/SessionRecorder.h"
#include "detail/ShareCapture.h"
#include "detail/SharePublisher.h"

#include <Orlavex/common/LogStream.h>
#include <Orlavex/common/SceneLock.h>
#include <Orlavex/controls/DisplayDouble.h>
#include <Orlavex/controls/InteractiveControlI.h>
#include <Orlavex/controls/NumberField.h>
#include <Orlavex/controls/PauseButton.h>
#include <Orlavex/controls/RadioButton.h>
#include <Orlavex/link/SocketClass.h>
#include <Orlavex/scene/DrawableI.h>
#include <Orlavex/share/ShareFrame.h>

#include <Orlavex/controls/ButtonGroup.h>

#include <QButtonGroup>
#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <chrono>
#include <deque>

namespace Orlavex {

namespace {
double msSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}
} // namespace

CommThread::CommThread(QWidget* /*parent*/)
    : QThread(nullptr), socket(new SocketClass), logFile(new LogStream) {
    qRegisterMetaType<Orlavex::CycleStats>("Orlavex::CycleStats");
}

CommThread::~CommThread() {
    shutdown();
    logFile->close();
}

void CommThread::shutdown() {
    m_closing = true;
    stop();
    // A wait on the server ends at its next slice; a connect not yet begun
    // gives up at once.
    socket->requestClose();
    quit(); // exec() returns at once if it has not begun yet
    if (QThread::currentThread() == this)
        return; // asked from inside run(): the loop sees the flags and ends
    const bool guiThread = QThread::currentThread() == thread();
    while (isRunning() && !wait(10)) {
        quit();
        // The link thread may be waiting for this thread to run its render
        // pass; deliver it so the link thread can go on.
        if (guiThread)
            QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall);
    }
    // QThread::wait and isRunning learn of the end through Qt's own futex;
    // this acquire pairs with run()'s last store, so that everything the
    // link thread did is ordered before what the owner does next for any
    // reader, race checkers included.
    (void)m_runEnded.load(std::memory_order_acquire);
}

void CommThread::closeConnection() {
    {
        std::lock_guard<std::mutex> guard(m_stateLock);
        m_closing = true; // also ends a wait between reconnect attempts
    }
    m_stateChanged.notify_all();
    socket->closeConnection();
}

void CommThread::setRenderer(vtkRenderer* r) {
    renderers.append(r);
}
void CommThread::setPlot(PlottingPanelQwt* p) {
    plots.append(p);
}
void CommThread::setCanvas(Canvas* c) {
    canvases.append(c);
}
void CommThread::setDialogs(Dialog* d) {
    dialogs.append(d);
}
void CommThread::setTrailQwt(TrailQwt*) {}
void CommThread::setBrowser(Browser* b) {
    browsers.append(b);
}
void CommThread::setDrawables(Drawable* d) {
    drawables.append(d);
}
void CommThread::setCheckBoxes(CheckBox*) {}
void CommThread::setDrawablesI(int, Drawable*) {}
void CommThread::setSendingObjI(int index, SendClass* o) {
    sendingObjects.insert(index, o);
}

void CommThread::setInteractiveControls(InteractiveControlI* c) {
    interactiveControls.append(c);
    // Direct connections: the slot runs on the GUI thread, where the control emits.
    if (auto* field = dynamic_cast<NumberField*>(c))
        connect(field, &NumberField::sigValueChanged, this, &CommThread::updateInewIndex,
                Qt::DirectConnection);
    else if (auto* radio = dynamic_cast<RadioButton*>(c))
        connect(radio, &RadioButton::sigValueChanged, this, &CommThread::updateInewIndex,
                Qt::DirectConnection);
}

void CommThread::setPauseButtons(PauseButton* b) {
    connect(b, &PauseButton::sigValueChanged, this, &CommThread::updatePause, Qt::DirectConnection);
}

void CommThread::addGroup(const char* name, ButtonGroup* g) {
    groupNames.append(QString::fromUtf8(name ? name : ""));
    buttonGroups.append(g);
}

ButtonGroup* CommThread::isButtonGroup(const char* name) {
    const QString wanted = QString::fromUtf8(name ? name : "");
    const int at = groupNames.indexOf(wanted);
    return at < 0 ? nullptr : buttonGroups.at(at);
}

void CommThread::setServerAddress(QString address) {
    socket->setServerAddress(address);
}
void CommThread::setServerPort(int port) {
    socket->setServerPort(port);
}
void CommThread::setVerbose(bool on) {
    verbose = on;
}

QByteArray CommThread::registryDescription() const {
    return QJsonDocument(registryObject()).toJson(QJsonDocument::Indented);
}

QJsonObject CommThread::registryObject() const {
    QJsonArray records;
    for (auto it = sendingObjects.cbegin(); it != sendingObjects.cend(); ++it)
        records.append(detail::RecordLayout::describe(it.key(), it.value()));
    QJsonArray controls;
    QVector<InteractiveControlI*> listed;
    for (InteractiveControlI* c : interactiveControls) {
        if (listed.contains(c))
            continue; // registered twice: still one control
        listed.append(c);
        controls.append(describeControl(c));
    }
    const QJsonObject root{{"format", "orlavex-registry"},
                           {"version", 1},
                           {"library", QStringLiteral(ORLAVEX_VERSION_TEXT)},
                           {"records", records},
                           {"controls", controls}};
    return root;
}

QJsonObject CommThread::describeControl(InteractiveControlI* c) const {
    const char* kind = dynamic_cast<NumberField*>(c)     ? "NumberField"
                       : dynamic_cast<RadioButton*>(c)   ? "RadioButton"
                       : dynamic_cast<DisplayDouble*>(c) ? "DisplayDouble"
                                                         : "control";
    QJsonObject out{{"index", c->getIndex()}, {"kind", kind}};
    // A control is named by its object name (QObject::setObjectName); a
    // radio button's group by the name it was registered under (addGroup),
    // or else by the group's object name.
    if (auto* object = dynamic_cast<QObject*>(c))
        if (!object->objectName().isEmpty())
            out.insert("name", object->objectName());
    if (auto* radio = dynamic_cast<RadioButton*>(c)) {
        if (QButtonGroup* group = radio->group()) {
            const int at = buttonGroups.indexOf(static_cast<ButtonGroup*>(group));
            const QString name = at >= 0 ? groupNames.at(at) : group->objectName();
            if (!name.isEmpty())
                out.insert("group", name);
        }
    }
    return out;
}

QStringList CommThread::registryProblems() const {
    QStringList problems;
    QHash<int, InteractiveControlI*> byIndex;
    const auto label = [this](InteractiveControlI* c) {
        const QJsonObject d = describeControl(c);
        QString text = d.value("kind").toString();
        if (d.contains("name"))
            text += QStringLiteral(" \"%1\"").arg(d.value("name").toString());
        return text;
    };
    for (InteractiveControlI* c : interactiveControls) {
        if (c->getIndex() < 0)
            continue; // a read-out that sends nothing needs no index
        InteractiveControlI*& first = byIndex[c->getIndex()];
        if (first && first != c)
            problems.append(QStringLiteral("control index %1 is registered twice: %2 and %3")
                                .arg(c->getIndex())
                                .arg(label(first), label(c)));
        else
            first = c;
    }
    return problems;
}

bool CommThread::writeRegistry(const QString& path) const {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        LogStream::toStandardError(
            QStringLiteral("cannot write %1: %2\n").arg(path, file.errorString()).toLocal8Bit());
        return false;
    }
    const QByteArray text = registryDescription();
    if (file.write(text) != text.size())
        return false;
    // Written all the same, so that the server author sees the whole picture.
    const QStringList problems = registryProblems();
    for (const QString& p : problems)
        LogStream::toStandardError(p.toLocal8Bit() + '\n');
    return problems.isEmpty();
}

void CommThread::play() {
    {
        std::lock_guard<std::mutex> guard(m_stateLock);
        stopped = false;
    }
    m_stateChanged.notify_all();
}

void CommThread::stop() {
    {
        std::lock_guard<std::mutex> guard(m_stateLock);
        stopped = true;
    }
    m_stateChanged.notify_all();
}

void CommThread::updatePause(bool running) {
    {
        std::lock_guard<std::mutex> guard(m_stateLock);
        paused = !running;
    }
    m_stateChanged.notify_all();
}

void CommThread::updateInewIndex(double value, int index) {
    std::lock_guard<std::mutex> guard(m_pendingLock);
    ++pendingCount;
    pendingIndices.append(index);
    pendingValues.append(value);
}

QVector<QPair<int, double>> CommThread::pendingEntries() const {
    std::lock_guard<std::mutex> guard(m_pendingLock);
    QVector<QPair<int, double>> out;
    for (int k = 0; k < pendingCount; ++k)
        out.append(qMakePair(pendingIndices.at(k), pendingValues.at(k)));
    return out;
}

int CommThread::getPendingCount() const {
    std::lock_guard<std::mutex> guard(m_pendingLock);
    return pendingCount;
}

void CommThread::logLine(const QByteArray& text) {
    if (verbose)
        logFile->line(text);
}

void CommThread::applyHandOvers() {
    // GUI thread: the widgets' own thread. Batches are taken under the lock
    // and applied outside it, in the order the cycles produced them.
    std::vector<detail::HandOver> batches;
    {
        std::lock_guard<std::mutex> guard(m_handOverLock);
        batches.swap(m_handOvers);
    }
    for (detail::HandOver& batch : batches)
        batch.apply();
}

void CommThread::handOver(detail::RecordContext& context) {
    // The batch goes ahead of the render pass on the GUI thread's queue, so
    // the pass shows it; it owns copies, never pointers into this thread.
    if (context.batch.empty())
        return;
    {
        std::lock_guard<std::mutex> guard(m_handOverLock);
        m_handOvers.push_back(std::move(context.batch));
    }
    context.batch = detail::HandOver();
    QMetaObject::invokeMethod(this, "applyHandOvers", Qt::QueuedConnection);
}

void CommThread::run() {
    detail::RecordContext context;
    context.socket = socket.get();

    logFile->open();
    if (!m_recordPath.isEmpty()) {
        m_recorder.reset(new detail::SessionRecorder);
        if (m_recorder->open(m_recordPath, registryDescription())) {
            socket->setKeepStrings(true);
        } else {
            qWarning("CommThread: cannot record to %s: %s", qPrintable(m_recordPath),
                     qPrintable(m_recorder->errorString()));
            m_recorder.reset();
        }
    }
    setWaiting(WaitConnect, std::chrono::steady_clock::now());
    socket->connectToServer();
    setWaiting(WaitNone, std::chrono::steady_clock::now());
    logLine("COMMTHREAD: Inicio Hebra CommThread");
    for (Drawable* d : qAsConst(drawables)) {
        if (auto* paintable = dynamic_cast<DrawableI*>(d)) {
            SceneLock lock;
            paintable->paint();
        }
    }
    // Registration ends with start(), so each receiver's kind is looked up once.
    for (auto it = sendingObjects.cbegin(); it != sendingObjects.cend(); ++it)
        context.targets.insert(it.key(), {it.value(), detail::RecordLayout::find(it.value())});
    emit dataUpdated();

    std::unique_ptr<detail::RenderRelay> relay;
    if (m_overlap)
        relay.reset(new detail::RenderRelay(this));
    const bool anyRecords = !sendingObjects.isEmpty();
    bool failed = false;
    qint64 cycle = 0;
    for (;;) {
        {
            // A paused exchange, and a failed link waiting for stop(), sleep
            // here until the flags change: no polling, no CPU.
            std::unique_lock<std::mutex> guard(m_stateLock);
            m_stateChanged.wait(guard, [&] { return stopped || (!paused && !failed); });
        }
        if (stopped)
            break;
        context.stats = CycleStats();
        context.stats.cycle = ++cycle;
        bool ok;
        if (!relay) {
            ok = exchange(context, false);
            if (ok && anyRecords) {
                shareCycle(context);
                handOver(context);
                ++m_cyclesHandedOver;
                const auto start = std::chrono::steady_clock::now();
                emit dataUpdated(); // blocking: returns when the pass has
                context.stats.renderMs = msSince(start);
                emit cycleFinished(context.stats);
            }
        } else {
            // The previous cycle's render pass may still run: receive this
            // cycle meanwhile, apply it only once the pass has returned.
            ok = exchange(context, true);
            relay->wait();
            applyBuffered(context);
            if (ok && anyRecords) {
                shareCycle(context);
                handOver(context);
                ++m_cyclesHandedOver;
                relay->start(context.stats);
            }
        }
        if (ok && m_cycleLimit > 0 && cycle >= m_cycleLimit)
            stop(); // the loop ends before another exchange
        if (!ok && m_reconnect.enabled && !m_closing && !stopped && reconnect(cycle - 1)) {
            --cycle; // the cycle cut short is done again on the new link
            continue;
        }
        if (!ok) {
            failed = true;
            // A close that the client application made itself is no failure.
            if (!m_closing) {
                logLine("COMMTHREAD: Connection failed");
                // Always said, verbose or not: otherwise a server that was
                // never started looks the same as one that ended normally.
                LogStream::toStandardError(failureLine(cycle - 1));
                m_linkFailed = true;
                emit connectionFailed();
            }
        }
    }
    if (relay)
        relay->wait();
    relay.reset();
    if (m_recorder)
        m_recorder->close();
    exec();
    m_runEnded.store(true, std::memory_order_release);
}

void CommThread::setWaiting(WaitKind kind, std::chrono::steady_clock::time_point since, int k,
                            int n) {
    m_waitSinceNs.store(since.time_since_epoch().count(), std::memory_order_relaxed);
    m_waiting.store(quint64(kind) | quint64(quint32(k)) << 4 | quint64(quint32(n)) << 34,
                    std::memory_order_release);
}

QString CommThread::waitingFor(double* seconds) const {
    const quint64 word = m_waiting.load(std::memory_order_acquire);
    const auto since = std::chrono::steady_clock::time_point(
        std::chrono::steady_clock::duration(m_waitSinceNs.load(std::memory_order_relaxed)));
    if (seconds)
        *seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
    const int k = int((word >> 4) & 0x3fffffff), n = int(word >> 34);
    switch (WaitKind(word & 0xf)) {
    case WaitConnect:
        return QStringLiteral("the connection to %1:%2")
            .arg(socket->serverAddress().toString())
            .arg(socket->serverPort());
    case WaitAck:
        return QStringLiteral("the server's ack");
    case WaitChalk:
        return QStringLiteral("the chalk string");
    case WaitRecord:
        return QStringLiteral("record %1 of %2").arg(k).arg(n);
    default:
        return QString();
    }
}

void CommThread::setReconnect(const ReconnectPolicy& policy) {
    m_reconnect = policy;
    socket->setSilenceLimit(policy.enabled ? policy.silenceMs : 0);
}

QString CommThread::reconnectingText(int attempt, double nextInSeconds) {
    return QStringLiteral("connection lost, reconnecting (attempt %1, next in %2 s)")
        .arg(attempt)
        .arg(nextInSeconds, 0, 'g', 3);
}

bool CommThread::reconnect(qint64 completedCycles) {
    QByteArray lost = failureLine(completedCycles);
    lost.chop(1);
    LogStream::toStandardError(lost + ": reconnecting\n");
    logLine("COMMTHREAD: Connection lost, reconnecting");
    const auto since = std::chrono::steady_clock::now();
    double delay = qMax(0.0, m_reconnect.firstDelay);
    for (int attempt = 1; m_reconnect.maxAttempts <= 0 || attempt <= m_reconnect.maxAttempts;
         ++attempt) {
        emit reconnecting(attempt, delay);
        {
            // Waited for like a pause: a stop or a close ends it at once.
            std::unique_lock<std::mutex> guard(m_stateLock);
            m_stateChanged.wait_for(guard, std::chrono::duration<double>(delay),
                                    [&] { return stopped.load() || m_closing.load(); });
        }
        if (stopped || m_closing)
            break;
        setWaiting(WaitConnect, std::chrono::steady_clock::now());
        socket->connectToServer(m_reconnect.connectTimeoutMs);
        setWaiting(WaitNone, std::chrono::steady_clock::now());
        if (socket->isConnected()) {
            coalescePending();
            const double took =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
            LogStream::toStandardError(QStringLiteral("reconnected to %1:%2 after %3 s\n")
                                           .arg(socket->serverAddress().toString())
                                           .arg(socket->serverPort())
                                           .arg(took, 0, 'f', 1)
                                           .toLocal8Bit());
            logLine("COMMTHREAD: Reconnected");
            emit reconnected();
            return true;
        }
        delay = qMin(delay * qMax(1.0, m_reconnect.factor), m_reconnect.maxDelay);
    }
    setWaiting(WaitNone, std::chrono::steady_clock::now());
    return false;
}

void CommThread::coalescePending() {
    // What the user changed while the link was down goes out once: the last
    // value per control, in the order of each control's first change.
    std::lock_guard<std::mutex> guard(m_pendingLock);
    QVector<int> indices;
    QVector<double> values;
    for (int k = 0; k < pendingCount; ++k) {
        const int at = indices.indexOf(pendingIndices.at(k));
        if (at >= 0) {
            values[at] = pendingValues.at(k);
        } else {
            indices.append(pendingIndices.at(k));
            values.append(pendingValues.at(k));
        }
    }
    pendingIndices = indices;
    pendingValues = values;
    pendingCount = indices.size();
}

QByteArray CommThread::failureLine(qint64 completedCycles) const {
    const QString where =
        QStringLiteral("%1:%2").arg(socket->serverAddress().toString()).arg(socket->serverPort());
    const QString reason = socket->failureReason();
    QString text;
    if (socket->wasConnected())
        text = QStringLiteral("%1 after cycle %2").arg(reason).arg(completedCycles);
    else if (reason == QLatin1String("connection refused"))
        text = QStringLiteral("connection refused: is the server running on %1?").arg(where);
    else
        text = QStringLiteral("cannot connect to %1: %2").arg(where, reason);
    return text.toLocal8Bit() + '\n';
}

bool CommThread::exchange(detail::RecordContext& context, bool buffer) {
    auto start = std::chrono::steady_clock::now();
    double waited = 0;
    int sent = 0;
    setWaiting(WaitAck, start);
    const bool ok =
        socket->sendData(&pendingCount, &pendingIndices, &pendingValues, &m_pendingLock, &sent);
    waited += msSince(start);
    if (!ok) {
        setWaiting(WaitNone, start);
        return false;
    }
    if (m_recorder) {
        m_recorder->beginCycle(context.stats.cycle);
        m_recorder->dataMessage(socket->lastDataMessage());
    }
    start = std::chrono::steady_clock::now();
    setWaiting(WaitChalk, start);
    socket->getChalk();
    waited += msSince(start);
    if (!socket->lastStringComplete()) {
        setWaiting(WaitNone, start);
        return false;
    }
    if (m_recorder)
        m_recorder->serverString(socket->lastString());
    {
        // Only what the message carried leaves the list; a change recorded
        // while the chalk was awaited stays for the next data message.
        std::lock_guard<std::mutex> guard(m_pendingLock);
        pendingIndices.remove(0, sent);
        pendingValues.remove(0, sent);
        pendingCount -= sent;
    }
    logLine("COMMTHREAD: Send data to the server");
    if (sent > 0 && verbose) // no text built for a silent log
        logLine("index " + QByteArray::number(sent));

    bool complete = true;
    const int n = sendingObjects.size();
    for (int i = 0; i < n && complete; ++i) {
        start = std::chrono::steady_clock::now();
        setWaiting(WaitRecord, start, i + 1, n);
        const int num = socket->getNumValue(&context.payload, &context.payloadLength);
        waited += msSince(start);
        complete = socket->lastStringComplete(); // a partial record is never applied
        if (!complete)
            break;
        if (m_recorder)
            m_recorder->serverString(socket->lastString());
        if (buffer) {
            context.buffered.append({num, QByteArray(context.payload, context.payloadLength)});
            socket->releaseReceiveBuffer();
        } else {
            context.apply(num);
            context.releaseLargeBuffers();
        }
    }
    setWaiting(WaitNone, start);
    context.stats.waitMs += waited;
    context.stats.bytesReceived += socket->takeReceivedBytes();
    if (m_recorder && complete)
        m_recorder->endCycle(); // a cycle cut short is not part of the recording
    return complete;
}

void CommThread::applyBuffered(detail::RecordContext& context) {
    for (detail::RecordContext::Buffered& record : context.buffered) {
        context.payload = record.payload.constData();
        context.payloadLength = record.payload.size();
        context.apply(record.num);
        record.payload = QByteArray(); // a record of many MiB goes at once
        context.releaseLargeBuffers();
    }
    context.buffered.clear();
}

// --- Sharing the lab with viewers (docs/share.md) ---

void CommThread::setShare(const QString& url, const QString& lab,
                          const ShareCredentials& credentials) {
    if (!ShareFrame::isValidLab(lab)) {
        LogStream::toStandardError(QStringLiteral("the lab name \"%1\" is not one subject token "
                                                  "(letters, digits and '_'): the lab is not "
                                                  "shared\n")
                                       .arg(lab)
                                       .toLocal8Bit());
        return;
    }
    m_share.reset(new detail::SharePublisher(url, lab, credentials));
}

ShareState CommThread::sharedState() const {
    return m_share ? m_share->snapshot() : ShareState();
}

void CommThread::shareCycle(detail::RecordContext& context) {
    // Runs before handOver(), which moves the batch away.
    if (!m_share)
        return;
    if (!m_shareCapture) {
        // Registration ended with start(): kinds and registry are final.
        m_shareCapture.reset(new detail::ShareCapture(sendingObjects));
        // Viewers that draw the lab themselves learn its canvases from the
        // registry: read now, after the start-up pass set the cameras up.
        QJsonObject registry = registryObject();
        registry.insert("scene", detail::describeScene(*this, m_framedOnStart.load()));
        m_share->setJournal(m_shareJournal);
        m_share->start(QJsonDocument(registry).toJson(QJsonDocument::Indented));
    }
    m_shareCapture->capture(context.batch, context.stats.cycle, m_share->buffer());
    m_share->handOver();
    context.stats.sharePublished = m_share->published();
    context.stats.shareDropped = m_share->dropped();
}

} // namespace Orlavex
