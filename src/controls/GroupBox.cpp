#include "GroupBox.h"

namespace Orlavex {

GroupBox::GroupBox(QWidget* parent) : QGroupBox(parent) {}

GroupBox::~GroupBox() = default;

void GroupBox::setLayoutPolicy(const char* policy) { replaceLayoutPolicy(policy, this); }

} // namespace Orlavex
