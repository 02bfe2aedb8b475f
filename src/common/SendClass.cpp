#include "SendClass.h"

namespace Orlavex {

// Out of line so that the class has one home for its vtable and type info,
// which dynamic_cast across the shared library boundary relies on.
SendClass::~SendClass() = default;

} // namespace Orlavex
