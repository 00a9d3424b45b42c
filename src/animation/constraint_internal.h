// Helpers shared by the constraint and path handlers; not part of the public
// interface.
#pragma once

#include "updatelist_internal.h"

struct Cluster;

// Handlers of the table, one signature.
void evalConstraint(UpdateRecord *record, float time, int *flags);   // common routine
void evalConstraintPoints(UpdateRecord *record, float time, int *flags);  // 119, 126, 127, 150, 160
void evalCameraLightConstraint(UpdateRecord *record, float time, int *flags);  // 1111, 1116, 2111, 2116
void evalConstraintHierarchy(UpdateRecord *record, float time, int *flags);  // 117, 118
void evalPath(UpdateRecord *record, float time, int *flags);  // 112, 612, 1112, 1114, 2112, 2114

// Point `index` of the model's geometry in model coordinates; 0 out of range.
int modelPointAt(const Model *model, int32_t index, float point[3]);
// The world point of a cluster of `owner`: its own point through the owner's
// global matrix. 0 without cluster.
int clusterCentrePoint(const Cluster *cluster, const Model *owner, float point[3]);

// 124, 125: the alignment by the path note, else the hooks.
void constraintNormal(UpdateRecord *record, Model *model, float time);
void constraintTangency(UpdateRecord *record, Model *model, float time);

// What a path leaves for a normal constraint of the same model: the curve
// gives the tangent at the point it placed the model.
struct PathNote {
    int32_t flag;           // 1: the curve gives the tangent
    int32_t sameCurve;      // 1: the source is the path's own curve
    const Model *model;     // the model placed
    const Model *curve;     // the path's curve
    float point[3];         // last point of the evaluation, world
    float tangent[3];       // unit tangent there, world
};
void pathNoteSet(const PathNote &note);
int pathNoteGet(const Model *model, PathNote *note);  // 1 when the model has one
