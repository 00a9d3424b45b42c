// Handlers of the curve and surface deformations, for the handler table.
#pragma once

#include "animation.h"

// 245: the model follows a curve or a surface; the deformation waits for -200.
void curveDeformRecord(UpdateRecord *record, float time, int *flags);
// 246: the same deformation for the model and, at once, for each descendant.
void constraintDeformation(UpdateRecord *record, float time, int *flags);
// 250 to 253, 255 to 257, 260: deformers of custom modules this viewer does
// not carry; the records run and change nothing.
void customDeformerRecord(UpdateRecord *record, float time, int *flags);

// The slot a curve deformation of the model lives in: the one whose block a
// 230 or 231 record wrote, the local one when neither or both did.
int curveDeformSlot(const ModelDeformers *deformers);
// True for a model a deformation can follow: a curve (spline, NURBS curve)
// or a patch.
bool curveDeformDriver(const Model *driver);
