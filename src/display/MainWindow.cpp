#include "MainWindow.h"

#include <Orlavex/common/LogStream.h>
#include <Orlavex/common/SceneLock.h>
#include <Orlavex/controls/Browser.h>
#include <Orlavex/controls/Dialog.h>
#include <Orlavex/display/Canvas.h>
#include <Orlavex/display/PlottingPanelQwt.h>
#include <Orlavex/display/TrailQwt.h>
#include <Orlavex/link/CommThread.h>

#include "detail/VideoWriter.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <QUrl>

#include <qwt_plot_item.h>
#include <vtkRenderWindow.h>
#include <vtkRenderer.h>

namespace Orlavex {

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent), m_firstPass(true) {
    commThread = new CommThread(this);
    m_link = commThread;
    timeStart = 0;
    m_startTimer = new QTimer(this);
    m_startTimer->setSingleShot(true);
    m_startTimer->start(0);
    connect(m_startTimer, &QTimer::timeout, this, &MainWindow::renderWindow);
    m_central = new QWidget;
    setCentralWidget(m_central);
    connect(commThread, &CommThread::connectionFailed, this, &MainWindow::closeWindow);
    // A reconnecting link says so in the title, until it is back.
    connect(commThread, &CommThread::reconnecting, this, [this](int attempt, double next) {
        if (m_titleBeforeLoss.isNull())
            m_titleBeforeLoss = windowTitle();
        const QString status = CommThread::reconnectingText(attempt, next);
        setWindowTitle(m_titleBeforeLoss.isEmpty() ? status : m_titleBeforeLoss + " - " + status);
    });
    connect(commThread, &CommThread::reconnected, this, [this] {
        setWindowTitle(m_titleBeforeLoss);
        m_titleBeforeLoss = QString();
    });
    connect(commThread, &CommThread::dataUpdated, this, &MainWindow::renderWindow,
            Qt::BlockingQueuedConnection);
}

MainWindow::~MainWindow() {
    // The link thread may be about to hand this window a render pass; once
    // the window is gone nobody would take it. Stop the thread first; the
    // client application still owns (and deletes) the thread object.
    if (m_link) {
        disconnect(m_link, nullptr, this, nullptr);
        // Dropping a pending hand-over releases the link thread waiting on it.
        QCoreApplication::removePostedEvents(this, QEvent::MetaCall);
        m_link->shutdown();
    }
}

void MainWindow::setLayoutPolicy(const char* policy) {
    replaceLayoutPolicy(policy, m_central);
}

void MainWindow::setTimeStart(double ms) {
    timeStart = ms;
    // A pending single-shot timer restarts with the new interval.
    m_startTimer->setInterval(int(ms));
}

void MainWindow::setFrameSceneOnStart(bool frame) {
    m_frameScene = frame;
    if (m_link)
        m_link->setSceneFramedOnStart(frame);
}

void MainWindow::adjustCameras() {
    // Framing reads the actors' bounds, which the link thread may be changing.
    SceneLock lock;
    const QVector<Canvas*>& canvases = m_link->canvases;
    for (int i = 0; i < canvases.size(); ++i) {
        canvases[i]->GetCamera0();
        vtkRenderer* r = m_link->renderers.value(i, nullptr);
        if (!r)
            continue;
        if (m_frameScene)
            r->ResetCamera();
        else
            r->ResetCameraClippingRange();
    }
}

void MainWindow::renderWindow() {
    if (!m_link)
        return; // the client application has already ended the link
    QElapsedTimer clock;
    clock.start();
    ++m_passes;
    // The cycle's read-outs, enabled states and trail points reached their
    // widgets just before this pass, through the link thread's hand-over.
    {
        // Whether or not the link thread waits for this pass (an overlapped
        // cycle does not), it changes the scene only under this lock.
        SceneLock lock;
        for (vtkRenderer* r : qAsConst(m_link->renderers))
            if (r && r->GetRenderWindow())
                r->GetRenderWindow()->Render();
    }
    for (PlottingPanelQwt* p : qAsConst(m_link->plots))
        p->replot();
    m_renderNs += clock.nsecsElapsed();
    // One frame per cycle, grabbed before the link thread may change the
    // scene again; passes that no cycle asked for (start-up) add none.
    const qint64 cycle = m_link->cyclesHandedOver();
    if (m_video && cycle > m_videoCycle) {
        m_videoCycle = cycle;
        m_video->addFrame(grab().toImage());
    }
    if (m_secondPass) {
        adjustCameras();
        m_secondPass = false;
    }
    if (!m_firstPass)
        return;
    for (Browser* b : qAsConst(m_link->browsers)) {
        const char* address = b->getURL();
        b->setUrl(QUrl(QString::fromUtf8(address ? address : ""), QUrl::TolerantMode));
        b->show();
    }
    adjustCameras();
    m_firstPass = false;
    m_secondPass = true;
}

bool MainWindow::setVideoFile(const QString& path, int fps) {
    m_video.reset(new detail::VideoWriter);
    if (m_video->open(path, fps))
        return true;
    qWarning("MainWindow: cannot write the video %s: %s", qPrintable(path),
             qPrintable(m_video->errorString()));
    m_video.reset();
    return false;
}

int MainWindow::videoFrames() const {
    return m_video ? m_video->frameCount() : 0;
}

void MainWindow::closeEvent(QCloseEvent* event) {
    const QVector<Dialog*> dialogs = m_link ? m_link->dialogs : QVector<Dialog*>();
    for (Dialog* d : dialogs) {
        d->close();
        // Written at once when standard output takes it; a full pipe never hangs the GUI.
        LogStream::toStandardOutput(QByteArrayLiteral("Closing windows"));
    }
    event->accept();
}

void MainWindow::closeWindow() {
    if (m_link) {
        m_link->closeConnection();
        m_link->stop();
    }
    close();
}

void MainWindow::showCurve(QwtPlotItem* item, bool on) {
    item->setVisible(on);
}

void MainWindow::pointTrail(TrailQwt* trail, QVector<double>* points) {
    trail->insertXY(points);
}

} // namespace Orlavex
