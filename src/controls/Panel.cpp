#include "Panel.h"

namespace Orlavex {

Panel::Panel(QWidget* parent) : QWidget(parent) { LayoutPolicy::setLayoutPolicy("HBox", this); }

Panel::~Panel() = default;

void Panel::setLayoutPolicy(const char* policy) { replaceLayoutPolicy(policy, this); }

} // namespace Orlavex
