#include "Panel.h"

Panel::Panel(QWidget* parent) : QWidget(parent) { LayoutPolicy::setLayoutPolicy("HBox", this); }

Panel::~Panel() = default;

void Panel::setLayoutPolicy(const char* policy) { replaceLayoutPolicy(policy, this); }
