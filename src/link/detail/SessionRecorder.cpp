#include "SessionRecorder.h"

namespace Orlavex {
namespace detail {

// Placeholder until the file format lands: records nothing.
struct SessionRecorder::Impl {};

SessionRecorder::SessionRecorder() = default;
SessionRecorder::~SessionRecorder() = default;
bool SessionRecorder::open(const QString&, const QByteArray&) { return false; }
bool SessionRecorder::isOpen() const { return false; }
QString SessionRecorder::errorString() const { return QStringLiteral("recording is not available"); }
void SessionRecorder::beginCycle(qint64) {}
void SessionRecorder::dataMessage(const QByteArray&) {}
void SessionRecorder::serverString(const QByteArray&) {}
void SessionRecorder::endCycle() {}
void SessionRecorder::close() {}

} // namespace detail
} // namespace Orlavex
