// The evaluation core: globals that the viewer sets before the core runs.
#pragma once

// Animation optimisation switch read by the update list: -1 on, 0 off (-o).
extern int animationOptimise;
