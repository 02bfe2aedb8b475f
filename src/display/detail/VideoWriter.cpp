#include "VideoWriter.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

#include <cstring>

namespace Orlavex {
namespace detail {

namespace {
// Long enough for a loaded machine to take a large frame or finish a long
// video; a frame is never dropped, so only a stuck encoder ends in an error.
constexpr int kWriteWaitMs = 60000;
constexpr int kFinishWaitMs = 300000;

bool hasEncoder(const QString& ffmpeg, const char* name) {
    QProcess probe;
    probe.start(ffmpeg, {"-hide_banner", "-encoders"});
    if (!probe.waitForFinished(30000))
        return false;
    return probe.readAllStandardOutput().contains(QByteArray(" ") + name + ' ');
}
} // namespace

struct VideoWriter::Impl {
    QString path;
    int fps = 25;
    QString error;
    bool open = false;
    QString ffmpeg;  ///< empty: a PNG sequence
    QString encoder; ///< libx264 where the ffmpeg build has it, else mpeg4
    QProcess process;
    QSize source; ///< the first frame's size; later frames are fitted to it
    QSize padded; ///< even width and height, as yuv420p needs
    QByteArray raw;
    int frames = 0;

    bool fail(const QString& why) {
        error = why;
        return false;
    }
    bool startEncoder();
    QString encoderMessage() {
        const QByteArray text = process.readAllStandardError().trimmed();
        return text.isEmpty() ? process.errorString() : QString::fromLocal8Bit(text.right(2000));
    }
};

bool VideoWriter::Impl::startEncoder() {
    QStringList args{
        "-hide_banner", "-loglevel",
        "error",        "-y",
        "-f",           "rawvideo",
        "-pix_fmt",     "rgb24",
        "-s",           QStringLiteral("%1x%2").arg(padded.width()).arg(padded.height()),
        "-r",           QString::number(fps),
        "-i",           "-",
        "-c:v",         encoder,
        "-pix_fmt",     "yuv420p"};
    if (encoder == QLatin1String("mpeg4"))
        args << "-q:v"
             << "3";
    args << path;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.start(ffmpeg, args);
    if (!process.waitForStarted(30000))
        return fail(QStringLiteral("cannot start %1: %2").arg(ffmpeg, process.errorString()));
    return true;
}

VideoWriter::VideoWriter() : d(new Impl) {}

VideoWriter::~VideoWriter() {
    if (!close())
        qWarning("VideoWriter: %s", qPrintable(d->error));
}

bool VideoWriter::open(const QString& path, int fps) {
    close();
    d->error.clear();
    d->frames = 0;
    d->source = d->padded = QSize();
    if (fps <= 0)
        return d->fail(QStringLiteral("the frame rate must be above 0 (%1)").arg(fps));
    const QFileInfo info(path);
    if (path.isEmpty() || !info.absoluteDir().exists())
        return d->fail(QStringLiteral("the folder of \"%1\" does not exist").arg(path));
    d->path = info.absoluteFilePath();
    d->fps = fps;
    d->ffmpeg = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
    if (d->ffmpeg.isEmpty()) {
        qWarning("VideoWriter: ffmpeg is not installed (Debian: ffmpeg); writing the frames as "
                 "%s.0001.png, ...",
                 qPrintable(d->path));
    } else {
        d->encoder =
            hasEncoder(d->ffmpeg, "libx264") ? QStringLiteral("libx264") : QStringLiteral("mpeg4");
    }
    d->open = true;
    return true;
}

bool VideoWriter::isOpen() const {
    return d->open;
}

QString VideoWriter::errorString() const {
    return d->error;
}

bool VideoWriter::addFrame(const QImage& frame) {
    if (!d->open)
        return d->fail(QStringLiteral("the video is not open"));
    if (frame.isNull())
        return d->fail(QStringLiteral("an empty frame"));
    if (!d->source.isValid()) {
        d->source = frame.size();
        d->padded = QSize((frame.width() + 1) & ~1, (frame.height() + 1) & ~1);
        if (!d->ffmpeg.isEmpty() && !d->startEncoder()) {
            d->open = false;
            return false;
        }
    }
    QImage rgb = frame.size() == d->source ? frame : frame.scaled(d->source);
    rgb = rgb.convertToFormat(QImage::Format_RGB888);

    // Rows top first, each padded with black on the right, then black rows.
    const int w = d->padded.width(), h = d->padded.height();
    const int row = 3 * w, used = 3 * d->source.width();
    d->raw.fill('\0', row * h);
    for (int y = 0; y < d->source.height(); ++y)
        std::memcpy(d->raw.data() + y * row, rgb.constScanLine(y), size_t(used));

    if (d->ffmpeg.isEmpty()) {
        const QImage padded(reinterpret_cast<const uchar*>(d->raw.constData()), w, h, row,
                            QImage::Format_RGB888);
        const QString name =
            QStringLiteral("%1.%2.png").arg(d->path).arg(d->frames + 1, 4, 10, QLatin1Char('0'));
        if (!padded.save(name, "PNG"))
            return d->fail(QStringLiteral("cannot write %1").arg(name));
        ++d->frames;
        return true;
    }
    // Every frame goes in whole, however long the encoder takes: the video
    // has one frame per call, never fewer.
    if (d->process.write(d->raw) != d->raw.size())
        return d->fail(QStringLiteral("ffmpeg does not take frames: %1").arg(d->encoderMessage()));
    while (d->process.bytesToWrite() > 0) {
        if (!d->process.waitForBytesWritten(kWriteWaitMs))
            return d->fail(
                QStringLiteral("ffmpeg stopped taking frames: %1").arg(d->encoderMessage()));
    }
    ++d->frames;
    return true;
}

int VideoWriter::frameCount() const {
    return d->frames;
}

bool VideoWriter::close() {
    if (!d->open)
        return d->error.isEmpty();
    d->open = false;
    if (d->process.state() == QProcess::NotRunning)
        return d->error.isEmpty();
    d->process.closeWriteChannel();
    if (!d->process.waitForFinished(kFinishWaitMs)) {
        d->process.kill();
        d->process.waitForFinished(5000);
        return d->fail(QStringLiteral("ffmpeg did not finish %1").arg(d->path));
    }
    if (d->process.exitStatus() != QProcess::NormalExit || d->process.exitCode() != 0)
        return d->fail(QStringLiteral("ffmpeg failed on %1: %2").arg(d->path, d->encoderMessage()));
    return d->error.isEmpty();
}

} // namespace detail
} // namespace Orlavex
