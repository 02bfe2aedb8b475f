#include "ButtonGroup.h"

ButtonGroup::ButtonGroup(QObject* parent) : QButtonGroup(parent) {}

ButtonGroup::~ButtonGroup() = default;
