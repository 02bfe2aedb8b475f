#include "GroupBox.h"

GroupBox::GroupBox(QWidget* parent) : QGroupBox(parent) {}

GroupBox::~GroupBox() = default;

void GroupBox::setLayoutPolicy(const char* policy) { replaceLayoutPolicy(policy, this); }
