// Steps of the layer's start that live beside the records they fill.
#pragma once

#include "tol.h"

TOL_Status tol_coreInit();             // the first dictionary, current on this thread
TOL_Status tol_defaultObjectsCreate(); // select lists and the default camera
TOL_Status tol_sidCreate();            // the per-scene record with the initial scene's rows
