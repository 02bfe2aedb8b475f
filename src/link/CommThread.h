#pragma once

#include <Orlavex/orlavex_export.h>

#include <QHash>
#include <QMap>
#include <QMetaType>
#include <QPair>
#include <QString>
#include <QThread>
#include <QVector>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

class vtkRenderer;
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
class NumberField;
class DisplayDouble;
struct RecordContext;

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
/// Shutdown: deleting the thread object stops the cycle, closes the link, ends
/// the thread's event loop and waits for the thread, so it never hangs, even
/// when the owner forgot `quit()` or never started the thread (see ~CommThread).
class ORLAVEX_EXPORT CommThread : public QThread {
    Q_OBJECT
public:
    /// The argument is accepted and not used: the thread object has no Qt
    /// parent, so no window deletes it behind the owner's back.
    explicit CommThread(QWidget* parent = nullptr);
    /// Shuts the thread down (see `shutdown`), so it never hangs, also when the
    /// owner forgot to quit the thread's event loop or never started it.
    ~CommThread() override;

    // Registries, walked by the exchange cycle and the main window.
    QVector<vtkRenderer*> renderers; ///< rendered on every pass; renderer i pairs with canvas i
    QVector<PlottingPanelQwt*> plots;
    QVector<Canvas*> canvases;
    QVector<Dialog*> dialogs;
    QVector<TrailQwt*> trails; ///< listed only; nothing inside the library reads it
    QVector<Browser*> browsers;
    QVector<Drawable*> drawables; ///< painted on their renderers when the thread starts
    QMap<int, Drawable*> indexedDrawables;
    /// The objects that take part in the exchange, by the num field of their record.
    QMap<int, SendClass*> sendingObjects;
    QVector<InteractiveControlI*> interactiveControls;
    QVector<CheckBox*> checkBoxes;
    QVector<QString> groupNames;
    QVector<ButtonGroup*> buttonGroups; ///< parallel to groupNames

    void setRenderer(vtkRenderer* r);
    void setPlot(PlottingPanelQwt* p);
    void setCanvas(Canvas* c);
    void setDialogs(Dialog* d);
    void setTrailQwt(TrailQwt* t);
    void setBrowser(Browser* b);
    void setDrawables(Drawable* d);
    void setCheckBoxes(CheckBox* c);
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

    /// Clears the stop flag (only matters before the loop has seen it).
    void play();
    /// Ends the cycle loop at its next check; a cycle under way finishes first.
    void stop();
    /// Stops the cycle, asks the socket client to close (a blocked wait ends
    /// within one wait slice), ends the thread's event loop and waits until
    /// the thread has finished. Called on the GUI thread, it delivers the
    /// thread's pending hand-overs (render pass, trail points) while it waits,
    /// so a link thread that waits for the GUI thread cannot deadlock it.
    /// The destructor does the same.
    void shutdown();

    bool isStopped() const { return stopped.load(); }
    bool isPaused() const { return paused.load(); }
    bool isVerbose() const { return verbose; }
    /// The socket client, owned by the thread (for its verbose flag, and for
    /// closing the link).
    SocketClass* getSocket() const { return socket.get(); }
    /// Carries out, on the GUI thread, the widget changes that records asked
    /// for (read-out values, number fields' enabled state). The main window
    /// calls it at the start of each render pass; without a main window the
    /// thread posts the call itself, ahead of its render hand-over.
    void applyWidgetUpdates();
    /// Held by the link thread while it fills the vector that `trailUpdated`
    /// hands over, and by the receiver while it reads it. The blocking
    /// hand-over already keeps the two apart; the lock states it in a form
    /// that race checkers see, at no cost, since it is never contended.
    std::mutex& handOverLock() { return m_handOverLock; }
    /// A snapshot of the pending list: (control index, value), in recording order.
    QVector<QPair<int, double>> pendingEntries() const;
    int getPendingCount() const;

signals:
    void connectionFailed();
    void dataUpdated();
    /// New points for `trail`; the vector belongs to the link thread and is
    /// valid only while the receiving slot runs.
    void trailUpdated(TrailQwt* trail, QVector<double>* points);

private slots:
    void updateInewIndex(double value, int index);

public slots:
    /// `running` is the pause button's checked state: false pauses the exchange.
    void updatePause(bool running);

protected:
    void run() override;

private:
    friend struct RecordContext;
    struct Target {
        SendClass* object;
        void (*apply)(RecordContext&, SendClass*);
    };
    bool runCycle(RecordContext& context, const QHash<int, Target>& targets);
    void logLine(const QByteArray& text);
    void queueWidgetUpdate(NumberField* field, DisplayDouble* readOut, double value);
    friend class MainWindow;
    std::atomic<bool> m_renderPassAppliesWidgets{false}; ///< set by the main window

    std::unique_ptr<SocketClass> socket;
    std::unique_ptr<LogStream> logFile;
    std::atomic<bool> stopped{false};
    std::atomic<bool> paused{false};
    bool verbose = false;

    QString message; ///< payload of the record being processed
    // The pending list. Appended on the GUI thread and handed to the socket
    // client on the link thread, always under m_pendingLock, which is never
    // held across a wait for the server.
    QVector<int> pendingIndices;
    QVector<double> pendingValues;
    int pendingCount = 0;
    mutable std::mutex m_pendingLock;

    QVector<float> floatValues;
    QVector<double> doubleValues;
    QVector<int> intValues;

    // Taken by run() as its last step and by shutdown() once the thread has
    // finished: it orders everything the link thread did before whatever the
    // owner does next, also for tools that cannot see inside QThread::wait.
    std::mutex m_runLock;

    // Pause and stop are waited for, never polled.
    std::mutex m_stateLock;
    std::condition_variable m_stateChanged;

    // Widget changes that records ask for, carried out on the GUI thread
    // before the cycle's render pass.
    struct WidgetUpdate {
        NumberField* field;
        DisplayDouble* readOut;
        double value;
    };
    std::mutex m_widgetLock;
    std::mutex m_handOverLock;
    std::vector<WidgetUpdate> m_widgetUpdates;
    std::vector<WidgetUpdate> m_widgetUpdatesGui;
};

Q_DECLARE_METATYPE(QVector<double>*)
