#include "ButtonGroup.h"

namespace Orlavex {

ButtonGroup::ButtonGroup(QObject* parent) : QButtonGroup(parent) {}

ButtonGroup::~ButtonGroup() = default;

} // namespace Orlavex
