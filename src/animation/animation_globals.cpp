#include "animation.h"

int animationOptimise = -1;
