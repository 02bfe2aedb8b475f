#pragma once

#include <Orlavex/link/CycleStats.h>
#include <Orlavex/orlavex_export.h>
#include <Orlavex/share/ShareCredentials.h>

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QThread>
#include <QVector>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

class vtkRenderer;

namespace Orlavex {

class PlottingPanelQwt;
class Canvas;
class Dialog;
class TrailQwt;
class Browser;
class Drawable;
class SendClass;
class InteractiveControlI;
class CheckBox;
class ButtonGroup;
class PauseButton;
class SocketClass;
class LogStream;
class ShareState;
namespace detail {
struct HandOver;
struct RecordContext;
class RenderRelay;
class SessionRecorder;
class ShareCapture;
class SharePublisher;
} // namespace detail

/// The link thread: the hub of a front-end.
///
/// It keeps the registries of everything the exchange cycle and the main
/// window's render pass reach, owns the socket client, collects the user's
/// control changes between two cycles (the pending list) and runs the
/// exchange cycle in `run()`.
///
/// Registration happens on the GUI thread before `start()`; the registries
/// only grow and hold plain pointers to objects the client application owns.
///
/// Per cycle the link thread applies the records to scene objects itself
/// (under `SceneLock`), and hands the GUI thread one batch with everything
/// that belongs to widgets (read-out values, enabled states, trail points,
/// all copied into the batch), followed by the render pass (`dataUpdated`).
/// No pointer into the link thread's own storage crosses threads. See
/// docs/architecture.md for who touches what, on which thread, under which lock.
///
/// Shutdown: deleting the thread object stops the cycle, closes the link, ends
/// the thread's event loop and waits for the thread, so it never hangs, even
/// when the owner forgot `quit()` or never started the thread (see ~CommThread).
class ORLAVEX_EXPORT CommThread : public QThread {
    Q_OBJECT
public:
    /// The argument is accepted and not used: the thread object has no Qt
    /// parent, so no window deletes it behind the owner's back.
    explicit CommThread(QWidget* parent = nullptr);
    /// Shuts the thread down (see `shutdown`).
    ~CommThread() override;

    // Registries, walked by the exchange cycle and the main window.
    QVector<vtkRenderer*> renderers; ///< rendered on every pass; renderer i pairs with canvas i
    QVector<PlottingPanelQwt*> plots;
    QVector<Canvas*> canvases;
    QVector<Dialog*> dialogs;
    QVector<Browser*> browsers;
    QVector<Drawable*> drawables; ///< painted on their renderers when the thread starts
    /// The objects that take part in the exchange, by the num field of their record.
    QMap<int, SendClass*> sendingObjects;
    /// Listed in the registry description, so a server knows the control indices.
    QVector<InteractiveControlI*> interactiveControls;
    QVector<QString> groupNames;
    QVector<ButtonGroup*> buttonGroups; ///< parallel to groupNames

    void setRenderer(vtkRenderer* r);
    void setPlot(PlottingPanelQwt* p);
    void setCanvas(Canvas* c);
    void setDialogs(Dialog* d);
    /// Accepted for existing client code; a trail is fed through its record
    /// (`setSendingObjI`) and needs no other registration.
    void setTrailQwt(TrailQwt* t);
    void setBrowser(Browser* b);
    void setDrawables(Drawable* d);
    /// Accepted for existing client code; check boxes take no part in the exchange.
    void setCheckBoxes(CheckBox* c);
    /// Accepted for existing client code; `setSendingObjI` is what addresses
    /// an object's record, and `setDrawables` what paints it.
    void setDrawablesI(int index, Drawable* d);
    /// Registers the receiver of the records with num field `index` (replaces).
    void setSendingObjI(int index, SendClass* o);
    /// Registers the control; a NumberField or RadioButton is connected so
    /// that each of its value changes lands in the pending list.
    void setInteractiveControls(InteractiveControlI* c);
    /// Connects the button: checked runs the exchange, unchecked pauses it.
    void setPauseButtons(PauseButton* b);
    void addGroup(const char* name, ButtonGroup* g);
    /// The group registered under the first name equal to `name`, or null.
    ButtonGroup* isButtonGroup(const char* name);

    void setServerAddress(QString address);
    void setServerPort(int port);
    /// The thread's own log lines; the socket client has its own flag.
    void setVerbose(bool on);

    /// Overlaps each render pass with the next exchange: while the GUI thread
    /// renders cycle k, the link thread sends the data message and receives
    /// and acknowledges cycle k+1's strings into a buffer, and applies them
    /// only after the render pass of cycle k has returned. Records are applied
    /// in the same order with the same effect, never during a render; the
    /// data message of cycle k+1 carries the changes made up to the end of
    /// cycle k's records. Off by default; set before `start()`.
    void setOverlapRendering(bool on) { m_overlap = on; }
    bool overlapRendering() const { return m_overlap; }

    /// Records the session to `path` as it runs (see docs/recording.md): the
    /// registry description, then per cycle the data message and every
    /// server string. Set before `start()`; an empty path records nothing.
    void setRecordFile(const QString& path) { m_recordPath = path; }
    QString recordFile() const { return m_recordPath; }
    /// Ends the exchange by itself after `cycles` cycles, as `stop()` would
    /// right after the last one's records: the server serves exactly that
    /// many, and the front-end renders that many passes after its start-up
    /// pass. 0 (the default) runs until stopped. Set before `start()`.
    void setCycleLimit(qint64 cycles) { m_cycleLimit = cycles; }
    qint64 cycleLimit() const { return m_cycleLimit; }
    /// How the link comes back after it was lost (see `setReconnect`).
    struct ReconnectPolicy {
        bool enabled = false;
        double firstDelay = 0.25;    ///< seconds before the first attempt
        double factor = 2.0;         ///< each further wait is this much longer ...
        double maxDelay = 2.0;       ///< ... up to this many seconds
        int maxAttempts = 0;         ///< then connectionFailed(); 0 tries for ever
        int connectTimeoutMs = 2000; ///< one attempt's longest wait for the connect
        /// A server silent this long while the link waits for it is taken as
        /// gone (no close may ever arrive across a dropped network).
        int silenceMs = 3000;
    };
    /// Opt-in: instead of failing, a lost link is retried with a growing
    /// wait, `reconnecting()` and `reconnected()` say so (`LinkStatus` and
    /// the main window's title show "connection lost, reconnecting (attempt
    /// n, next in t s)"), and the exchange resumes on the new link with the
    /// scene as it was. Controls changed meanwhile go out once, in the first
    /// data message after the reconnect: the last value per control index,
    /// in the order of first change. The cycle cut short by the loss is done
    /// again. A close or stop by the client ends the attempts at once.
    /// Without it a lost link fails, as always. Set before `start()`.
    void setReconnect(const ReconnectPolicy& policy);
    ReconnectPolicy reconnectPolicy() const { return m_reconnect; }
    /// The text shown while reconnecting.
    static QString reconnectingText(int attempt, double nextInSeconds);

    /// Whether the main window frames each scene on start
    /// (`MainWindow::setFrameSceneOnStart`, which calls this): a shared lab
    /// tells viewers that draw it themselves to frame it too, rather than
    /// keep the camera it had before the first cycle.
    void setSceneFramedOnStart(bool framed) { m_framedOnStart = framed; }

    /// Cycles whose render pass has been asked for so far (start-up's excluded).
    qint64 cyclesHandedOver() const { return m_cyclesHandedOver.load(); }

    /// The registry as JSON, for server authors and tools: for each record
    /// number the kind, its flags and the ordered fields its record carries
    /// (see docs/protocol.md); and the control indices.
    QByteArray registryDescription() const;
    /// Writes `registryDescription()` to `path`. False when it cannot, or
    /// when `registryProblems()` finds any; each is said on standard error.
    /// A control appears with its object name (`QObject::setObjectName`) as
    /// "name", and a radio button with the name its group was registered
    /// under (`addGroup`) as "group", so the description says what each
    /// index means.
    bool writeRegistry(const QString& path) const;
    /// What makes the registry ambiguous for a server, in words: a control
    /// index registered for two different controls.
    QStringList registryProblems() const;

    /// Shares the lab: after every cycle its state goes to the NATS broker at
    /// `url` (`nats://` or `tls://host:port`) under the name `lab`, for
    /// viewers (`ShareViewer`, `orlavex-watch`) to follow (docs/share.md).
    /// Set before `start()`; without it nothing is shared. A thread of its
    /// own talks to the broker, so the link thread never waits for it: a slow
    /// or absent broker only drops frames (`CycleStats::shareDropped`). A lab
    /// name that is not one subject token (`ShareFrame::isValidLab`) is
    /// refused with a warning.
    void setShare(const QString& url, const QString& lab, const ShareCredentials& credentials);
    /// With `setShare`, before `start()`: writes to `path` one line per state
    /// published, "CYCLE DIGEST" (`ShareFrame::digest`), from the publisher's
    /// thread; a viewer's digests (`orlavex-watch --digests`) must match it
    /// cycle by cycle. For checking a deployment, not for everyday running:
    /// it costs a keyframe's encoding per cycle.
    void setShareJournal(const QString& path) { m_shareJournal = path; }
    /// The state last published to the lab's viewers (sequence 0 before the
    /// first, and without sharing); for tests and tools.
    ShareState sharedState() const;

    /// Clears the stop flag (only matters before the loop has seen it).
    void play();
    /// Ends the cycle loop at its next check; a cycle under way finishes
    /// first, and a link that fails in it still emits `connectionFailed()`.
    void stop();
    /// Stops the cycle, closes the link (a blocked wait ends within one wait
    /// slice), ends the thread's event loop and waits until the thread has
    /// finished. On the GUI thread it delivers the thread's pending hand-overs
    /// while it waits, so a link thread that waits for the GUI thread cannot
    /// deadlock it. Called on the link thread itself it only asks for all of
    /// this and returns. No `connectionFailed()` follows a shutdown. The
    /// destructor does the same.
    void shutdown();
    /// Asks the socket client to close the link (see `SocketClass::closeConnection`);
    /// a close the client application makes is no failure.
    void closeConnection();

    /// What the link thread waits for from the server right now, in words
    /// ("record 9 of 9", "the server's ack", "the chalk string", "the
    /// connection to 127.0.0.1:5000"), and since how many seconds; empty
    /// while it waits for nothing (between cycles, paused, ended). Any thread.
    QString waitingFor(double* seconds) const;

    /// True once `connectionFailed()` has been emitted: for a program's exit
    /// status (`return link->linkFailed() ? 1 : app.exec()` style).
    bool linkFailed() const { return m_linkFailed.load(); }

    bool isStopped() const { return stopped.load(); }
    bool isPaused() const { return paused.load(); }
    bool isVerbose() const { return verbose; }
    /// The socket client, owned by the thread (for its verbose flag).
    SocketClass* getSocket() const { return socket.get(); }
    /// A snapshot of the pending list: (control index, value), in recording order.
    QVector<QPair<int, double>> pendingEntries() const;
    int getPendingCount() const;

signals:
    /// The link failed (no server, or the server closed, reset or broke the
    /// protocol); one line on standard error says which, for example
    /// "connection refused: is the server running on 127.0.0.1:5000?" or
    /// "the server closed the connection after cycle 181". Never emitted for
    /// a close the client application made itself.
    void connectionFailed();
    /// The link was lost and attempt `attempt` comes in `nextInSeconds`
    /// (with `setReconnect` only).
    void reconnecting(int attempt, double nextInSeconds);
    /// The link is back; the exchange resumes.
    void reconnected();
    /// The render pass: emitted blocking-queued by the main window's connection.
    void dataUpdated();
    /// The statistics of a finished cycle, after its render pass.
    void cycleFinished(const Orlavex::CycleStats& stats);

private slots:
    void updateInewIndex(double value, int index);
    /// Applies the cycles' hand-overs on the GUI thread (a queued call).
    void applyHandOvers();

public slots:
    /// `running` is the pause button's checked state: false pauses the exchange.
    void updatePause(bool running);

protected:
    void run() override;

private:
    friend struct detail::RecordContext;
    bool exchange(detail::RecordContext& context, bool buffer);
    void applyBuffered(detail::RecordContext& context);
    void handOver(detail::RecordContext& context);
    void logLine(const QByteArray& text);
    QJsonObject describeControl(InteractiveControlI* c) const;
    QJsonObject registryObject() const;
    bool reconnect(qint64 completedCycles);
    void coalescePending();
    ReconnectPolicy m_reconnect;
    /// The one line on standard error that says why the link failed.
    QByteArray failureLine(qint64 completedCycles) const;

    std::unique_ptr<SocketClass> socket;
    std::unique_ptr<LogStream> logFile;
    std::atomic<bool> stopped{false};
    std::atomic<bool> paused{false};
    std::atomic<bool> m_runEnded{false}; ///< see shutdown()
    /// The client application closes the link itself (shutdown(),
    /// closeConnection()): the failure that follows is no failure. stop()
    /// alone does not set it; a cycle it lets finish may still fail.
    std::atomic<bool> m_closing{false};
    std::atomic<bool> m_linkFailed{false};
    bool verbose = false;
    bool m_overlap = false;
    qint64 m_cycleLimit = 0;
    QString m_recordPath;
    std::unique_ptr<detail::SessionRecorder> m_recorder;
    std::atomic<qint64> m_cyclesHandedOver{0};
    /// What the link thread waits for (see waitingFor): kind, record k and
    /// record count packed into one word, so a reader never sees a mix.
    enum WaitKind : quint64 { WaitNone, WaitConnect, WaitAck, WaitChalk, WaitRecord };
    std::atomic<quint64> m_waiting{0};
    std::atomic<qint64> m_waitSinceNs{0};
    void setWaiting(WaitKind kind, std::chrono::steady_clock::time_point since, int k = 0,
                    int n = 0);

    // The pending list. Appended on the GUI thread and handed to the socket
    // client on the link thread, always under m_pendingLock, which is never
    // held across a wait for the server.
    QVector<int> pendingIndices;
    QVector<double> pendingValues;
    int pendingCount = 0;
    mutable std::mutex m_pendingLock;

    // Hand-overs waiting for the GUI thread, oldest first.
    std::mutex m_handOverLock;
    std::vector<detail::HandOver> m_handOvers; // vector: allows the incomplete type here

    // Pause and stop are waited for, never polled.
    std::mutex m_stateLock;
    std::condition_variable m_stateChanged;

    // Sharing the lab: made by setShare before start(), then used by the
    // link thread alone; the publisher's thread only takes what it is handed.
    void shareCycle(detail::RecordContext& context);
    std::unique_ptr<detail::SharePublisher> m_share;
    std::unique_ptr<detail::ShareCapture> m_shareCapture;
    std::atomic<bool> m_framedOnStart{true};
    QString m_shareJournal;
};

} // namespace Orlavex
