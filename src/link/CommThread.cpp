#include "CommThread.h"

#include "detail/RecordLayout.h"

#include <Orlavex/common/LogStream.h>
#include <Orlavex/common/SceneLock.h>
#include <Orlavex/controls/DisplayDouble.h>
#include <Orlavex/controls/NumberField.h>
#include <Orlavex/controls/PauseButton.h>
#include <Orlavex/controls/RadioButton.h>
#include <Orlavex/display/TrailQwt.h>
#include <Orlavex/link/SocketClass.h>
#include <Orlavex/scene/DrawableI.h>

#include <QCoreApplication>
#include <QHash>

namespace {
// Room of the vector scratch buffer of grid records: three components per
// cell of a 300000-cell grid. Larger grids grow it.
constexpr size_t kScratchSize = 900000;
} // namespace

CommThread::CommThread(QWidget* /*parent*/)
    : QThread(nullptr), logFile(new LogStream), doubleValues(900000, 0.0) {
    qRegisterMetaType<TrailQwt*>("TrailQwt*");
    qRegisterMetaType<QVector<double>*>("QVector<double>*");
    socket.reset(new SocketClass);
}

CommThread::~CommThread() {
    shutdown();
    logFile->close();
    socket.reset();
}

void CommThread::shutdown() {
    stop();
    if (isRunning()) {
        socket->closeConnection(); // a wait on the server ends at its next slice
        quit();                    // exec() returns at once if it has not begun yet
        const bool guiThread = QThread::currentThread() == thread();
        while (!wait(10)) {
            quit();
            // The link thread may be waiting for this thread to run the render
            // pass or take trail points; deliver those so it can go on.
            if (guiThread)
                QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall);
        }
    }
    std::lock_guard<std::mutex> finished(m_runLock);
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
void CommThread::setTrailQwt(TrailQwt* t) {
    trails.append(t);
}
void CommThread::setBrowser(Browser* b) {
    browsers.append(b);
}
void CommThread::setDrawables(Drawable* d) {
    drawables.append(d);
}
void CommThread::setCheckBoxes(CheckBox* c) {
    checkBoxes.append(c);
}
void CommThread::setDrawablesI(int index, Drawable* d) {
    indexedDrawables.insert(index, d);
}
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

void CommThread::queueWidgetUpdate(NumberField* field, DisplayDouble* readOut, double value) {
    std::lock_guard<std::mutex> guard(m_widgetLock);
    m_widgetUpdates.push_back({field, readOut, value});
}

void CommThread::applyWidgetUpdates() {
    {
        std::lock_guard<std::mutex> guard(m_widgetLock);
        m_widgetUpdatesGui.swap(m_widgetUpdates);
    }
    for (const WidgetUpdate& u : m_widgetUpdatesGui) {
        if (u.field)
            u.field->setEnabled(u.value > 0.5);
        else if (u.readOut)
            u.readOut->setValue(u.value);
    }
    m_widgetUpdatesGui.clear();
}

void CommThread::run() {
    std::vector<float> scratch(kScratchSize);
    std::vector<float> gridCopy;
    RecordContext context{this,          socket.get(), &message, &floatValues,
                          &doubleValues, &intValues,   &scratch, &gridCopy};

    logFile->open();
    socket->connectToServer();
    logLine("COMMTHREAD: Inicio Hebra CommThread");
    for (Drawable* d : qAsConst(drawables)) {
        if (auto* paintable = dynamic_cast<DrawableI*>(d)) {
            SceneLock lock;
            paintable->paint();
        }
    }
    // Registration ends with start(), so each receiver's kind is looked up once.
    QHash<int, Target> targets;
    for (auto it = sendingObjects.cbegin(); it != sendingObjects.cend(); ++it)
        targets.insert(it.key(), Target{it.value(), RecordLayout::find(it.value())});
    emit dataUpdated();

    bool failed = false;
    for (;;) {
        {
            // A paused exchange, and a failed link waiting for stop(), sleep
            // here until the flags change: no polling, no CPU.
            std::unique_lock<std::mutex> guard(m_stateLock);
            m_stateChanged.wait(guard, [&] { return stopped || (!paused && !failed); });
        }
        if (stopped)
            break;
        if (!runCycle(context, targets)) {
            failed = true;
            logLine("COMMTHREAD: Connection failed");
            emit connectionFailed();
        }
    }
    exec();
    std::lock_guard<std::mutex> finished(m_runLock); // see shutdown()
}

bool CommThread::runCycle(RecordContext& context, const QHash<int, Target>& targets) {
    int sent = 0;
    if (!socket->sendData(&pendingCount, &pendingIndices, &pendingValues, &m_pendingLock, &sent))
        return false;
    socket->getChalk();
    if (!socket->lastStringComplete())
        return false;
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

    const int n = sendingObjects.size();
    for (int i = 0; i < n; ++i) {
        const int num = socket->getNumValue(&message);
        if (!socket->lastStringComplete())
            return false; // a partial record is never applied
        const auto target = targets.constFind(num);
        if (target != targets.cend() && target->apply)
            target->apply(context, target->object); // unknown num fields are read and ignored
    }

    // The main window's render pass applies widget updates first thing;
    // without one, a queued call lands on the GUI thread ahead of any later
    // hand-over.
    if (!m_renderPassAppliesWidgets.load()) {
        bool widgets;
        {
            std::lock_guard<std::mutex> guard(m_widgetLock);
            widgets = !m_widgetUpdates.empty();
        }
        if (widgets)
            QMetaObject::invokeMethod(
                this, [this] { applyWidgetUpdates(); }, Qt::QueuedConnection);
    }
    if (n > 0)
        emit dataUpdated();
    return true;
}
