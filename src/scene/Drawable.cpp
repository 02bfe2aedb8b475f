#include "Drawable.h"

Drawable::~Drawable() = default;
