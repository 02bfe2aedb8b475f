#pragma once

#include <Orlavex/controls/LayoutPolicy.h>

#include <QMainWindow>
#include <QPointer>
#include <QVector>

#include <memory>

class QTimer;
class QwtPlotItem;

namespace Orlavex {

class CommThread;
namespace detail {
class VideoWriter;
}
class TrailQwt;

/// The top-level window of a front-end.
///
/// It creates the link thread (`commThread`, public so that the client
/// application registers its objects with it and starts it), renders every
/// registered renderer and re-plots every registered plot whenever the link
/// thread reports a cycle, runs a start-up pass that loads the web views and
/// records each canvas's initial camera, hands trail points to their trails
/// and closes itself when the link fails.
///
/// Start-up and shutdown, as a client application does them:
/// \code
///   SurfaceFormat::prepare();          // before the QApplication exists
///   QApplication app(argc, argv);
///   MainWindow window;
///   window.setLayoutPolicy("VBox");
///   ... widgets, canvases, scene objects, registration with window.commThread ...
///   window.commThread->setServerAddress("local");
///   window.commThread->setServerPort(port);
///   window.show();
///   window.commThread->start();
///   const int rc = app.exec();
///   delete window.commThread;          // ends the link thread promptly, whatever it is doing
///   return rc;
/// \endcode
/// The window never deletes the link thread. If it is destroyed while the
/// thread still runs, its destructor stops the thread and waits for it (the
/// thread object itself stays the client application's to delete).
class ORLAVEX_EXPORT MainWindow : public QMainWindow, public LayoutPolicy {
    Q_OBJECT
    Q_INTERFACES(Orlavex::LayoutPolicy)
public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    /// The link thread. Not a child of the window.
    CommThread* commThread;

    using LayoutPolicy::setLayoutPolicy;
    using QMainWindow::layout; // the window's own; the central widget's is LayoutPolicy::layout()
    /// Deletes the central widget's layout, if any, then builds the new one on it.
    void setLayoutPolicy(const char* policy);
    /// Delay of the first render pass in milliseconds (truncated toward zero);
    /// restarts the pending start timer, changes nothing once it has fired.
    void setTimeStart(double ms);
    double getTimeStart() const { return timeStart; }

    /// The start-up passes save each canvas's camera and then adjust its
    /// renderer to the scene. By default the camera is reset to frame all
    /// visible objects (vtkRenderer::ResetCamera), so that a scene shows
    /// whatever its size; with `false` only the clipping range is reset
    /// (vtkRenderer::ResetCameraClippingRange), which keeps a camera the client
    /// application set up itself.
    void setFrameSceneOnStart(bool frame);

    /// Render passes run so far, and the time they took in all (seconds):
    /// with the cycle count this splits a cycle into waiting for the server
    /// and rendering.
    int renderPassCount() const { return m_passes; }
    double renderSeconds() const { return m_renderNs * 1e-9; }

    /// Writes one video frame per cycle to `path`, grabbed right after the
    /// cycle's render pass: raw frames piped into the `ffmpeg` command, or a
    /// PNG sequence where it is missing. False (with a warning) when the
    /// video cannot be started. The video ends with the window.
    bool setVideoFile(const QString& path, int fps = 25);
    /// Frames written to the video so far.
    int videoFrames() const;

protected:
    /// Closes every registered dialog, writing "Closing windows" to standard
    /// output for each, then accepts. The link thread is not stopped here.
    void closeEvent(QCloseEvent* event) override;

private slots:
    void renderWindow();
    void closeWindow();
    void showCurve(QwtPlotItem* item, bool on);
    /// Hands points to a trail. The link thread does not call it: trail
    /// points reach their trails in the cycle's hand-over.
    void pointTrail(TrailQwt* trail, QVector<double>* points);

private:
    void adjustCameras();

    double timeStart;
    QWidget* m_central;
    QTimer* m_startTimer;
    bool m_firstPass;
    bool m_secondPass = false;
    bool m_frameScene = true;
    int m_passes = 0;
    qint64 m_renderNs = 0;
    QPointer<CommThread> m_link; // nulled when the client application deletes the thread
    std::unique_ptr<detail::VideoWriter> m_video;
    qint64 m_videoCycle = 0;   ///< the last cycle that has its frame
    QString m_titleBeforeLoss; ///< null while the link is up
};

} // namespace Orlavex
