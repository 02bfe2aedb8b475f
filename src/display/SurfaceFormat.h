#pragma once

#include <Orlavex/orlavex_export.h>

namespace Orlavex {

/// Start-up call for client applications.
///
/// `SurfaceFormat::prepare()` must run before the QApplication is
/// constructed: it makes the OpenGL surface format of the 3-D canvases the
/// default for every window, and lets web views and canvases share OpenGL
/// contexts.
/// \code
///   int main(int argc, char** argv) {
///       SurfaceFormat::prepare();
///       QApplication app(argc, argv);
///       ...
/// \endcode
class ORLAVEX_EXPORT SurfaceFormat {
public:
    static void prepare();
    /// Instead of `prepare()`, for a run that builds its window but never
    /// shows it, such as writing the registry description
    /// (`CommThread::writeRegistry`): Qt's offscreen platform, so that no
    /// display is needed, unless QT_QPA_PLATFORM already names one. Web
    /// views need OpenGL and cannot be made in such a run.
    static void prepareHeadless();
    /// True when `flag` is among the program's arguments: for choosing
    /// between the two calls above before the QApplication exists.
    static bool hasArgument(int argc, char** argv, const char* flag);
};

} // namespace Orlavex
