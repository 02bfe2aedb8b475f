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
};

} // namespace Orlavex
