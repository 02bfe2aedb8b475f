#include "InteractiveControlI.h"

namespace Orlavex {

// Out of line so that the link thread's dynamic_cast finds one type info for
// the class across the library boundary.
InteractiveControlI::~InteractiveControlI() = default;

} // namespace Orlavex
