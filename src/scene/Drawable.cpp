#include "Drawable.h"

namespace Orlavex {

Drawable::~Drawable() = default;

} // namespace Orlavex
