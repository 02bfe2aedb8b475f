#pragma once

#include <QImage>
#include <QString>

#include <memory>

namespace Orlavex {
namespace detail {

/// Writes one video frame per call: raw RGB frames piped into the `ffmpeg`
/// command, found at run time (padded to even width and height, the right way
/// up), or, where `ffmpeg` is absent, a PNG sequence next to the file name.
/// Every frame handed in is written, however long rendering took: the video
/// has exactly one frame per call.
class VideoWriter {
public:
    VideoWriter();
    ~VideoWriter(); ///< finishes the video
    VideoWriter(const VideoWriter&) = delete;
    VideoWriter& operator=(const VideoWriter&) = delete;

    /// Starts a video at `path` with `fps` frames per second; false (and
    /// `errorString`) when it cannot.
    bool open(const QString& path, int fps = 25);
    bool isOpen() const;
    QString errorString() const;
    /// Appends one frame. All frames take the size of the first.
    bool addFrame(const QImage& frame);
    /// Frames written so far.
    int frameCount() const;
    /// Ends the video (waits for ffmpeg to finish the file).
    bool close();

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace detail
} // namespace Orlavex
