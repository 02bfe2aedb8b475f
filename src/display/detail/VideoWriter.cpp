#include "VideoWriter.h"

namespace Orlavex {
namespace detail {

// Placeholder until the writer lands: writes nothing.
struct VideoWriter::Impl {};

VideoWriter::VideoWriter() = default;
VideoWriter::~VideoWriter() = default;
bool VideoWriter::open(const QString&, int) { return false; }
bool VideoWriter::isOpen() const { return false; }
QString VideoWriter::errorString() const { return QStringLiteral("video is not available"); }
bool VideoWriter::addFrame(const QImage&) { return false; }
int VideoWriter::frameCount() const { return 0; }
bool VideoWriter::close() { return true; }

} // namespace detail
} // namespace Orlavex
