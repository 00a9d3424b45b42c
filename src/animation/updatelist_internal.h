// Helpers shared by the files of the update list and the transforms; not
// part of the public interface. The tests reach them too.
#pragma once

#include "dictionary.h"
#include "animation.h"

// ---------------------------------------------------------------------------
// The walk in progress on this thread: the update thread and the draw side's
// high-priority list each walk their own scene at the same time.

struct WalkState {
    Dictionary *dict;   // dictionary of the list being walked; null outside a walk
    UpdateList *list;   // the list being walked
    int deferred;       // envelope work is kept for the end of the walk
};
WalkState &walkState();

// ---------------------------------------------------------------------------
// Matrices: 4 by 4, row vectors, sums in double precision.

void mat4Identity(float m[4][4]);
void mat4Copy(float to[4][4], const float from[4][4]);
void mat4Mul(const float a[4][4], const float b[4][4], float out[4][4]);  // out may be a or b
// Inverse of an affine matrix (fourth column 0, 0, 0, 1); 0 when singular.
int mat4Inverse(const float m[4][4], float out[4][4]);
void pointMul(const float p[3], const float m[4][4], float out[3]);  // p as (x, y, z, 1)
// Turns v by `angle` about the unit `axis`, right-handed.
void vecRotate(const double v[3], const double axis[3], double angle, double out[3]);

// ---------------------------------------------------------------------------
// Handlers of the relations this library evaluates, registered at first use.

void updateHandlersInit();

void evalLocalScaling(UpdateRecord *record, float time, int *flags);      // 100, 610
void evalLocalRotation(UpdateRecord *record, float time, int *flags);     // 101, 611
void evalLocalTranslation(UpdateRecord *record, float time, int *flags);  // 113, 613
void evalHierarchyStep(UpdateRecord *record, float time, int *flags);     // -100, -101
void evalGeometryEnd(UpdateRecord *record, float time, int *flags);       // -200
void evalModelVisibility(UpdateRecord *record, float time, int *flags);   // 10, 12
void evalCameraPosition(UpdateRecord *record, float time, int *flags);    // 1113, 1115
void evalCameraView(UpdateRecord *record, float time, int *flags);        // 1117
void evalCameraVisibility(UpdateRecord *record, float time, int *flags);  // 1100
void evalCameraParam(UpdateRecord *record, float time, int *flags);       // 1130 to 1144
void evalLightPosition(UpdateRecord *record, float time, int *flags);     // 2113, 2115
void evalLightVisibility(UpdateRecord *record, float time, int *flags);   // 2100
void evalMaterialColour(UpdateRecord *record, float time, int *flags);    // 301 to 303
void evalMaterialScalar(UpdateRecord *record, float time, int *flags);    // 304 to 308, 310 to 312
void evalLightParam(UpdateRecord *record, float time, int *flags);        // 2130 to 2136, 2201 to 2208
void evalDynamicsSwitch(UpdateRecord *record, float time, int *flags);    // 11
void evalModelParam(UpdateRecord *record, float time, int *flags);        // 15
void evalRenderFlag(UpdateRecord *record, float time, int *flags);        // 4000 to 4003
void evalLightInteger(UpdateRecord *record, float time, int *flags);      // 2120
void evalTexture3DParam(UpdateRecord *record, float time, int *flags);    // 411 to 426
void evalTexture2DParam(UpdateRecord *record, float time, int *flags);    // 511 to 532
void evalSceneGlobal(UpdateRecord *record, float time, int *flags);       // 3000 to 3003, 3030 to 3035
// Deformers of the geometry group: parameters and list flags, then -200.
void deformersGeometryEnd(UpdateRecord *record, float time, int *flags);  // body of -200
// The slot a deformer relation works on: the second of each pair (215, 216,
// 221, 231, 601) is the global form.
int deformSlotOf(int32_t relation);
// A record of the slot ran: -200 applies the slot, and the walk's word says
// which form spoke last.
void deformSlotMark(ModelDeformers *deformers, int slot, int *flags);
// Rewrites the model's points now by every pending slot, as -200 does.
void deformersApplyNow(Model *model, float time);
void evalDeformKeyPosition(UpdateRecord *record, float time, int *flags); // 211, 216
void evalKeyedDeformation(UpdateRecord *record, float time, int *flags);  // 210, 215
void evalDeformerBlock(UpdateRecord *record, float time, int *flags);     // 220, 221, 230, 231
void evalDeformRefresh(UpdateRecord *record, float time, int *flags);     // 239, 247
void evalMetaClay(UpdateRecord *record, float time, int *flags);          // 241, 242

// The value of the first active curve source; 0 when there is none.
int firstCurveValue(const UpdateRecord *record, float time, double *value);
// A curve value as the integer of a stepped parameter: rounded half away from zero.
int32_t roundedValue(double v);

// The model a transform record works on: the wave's transform object for the
// wave relations, else the record's data.
Model *recordTransfo(const UpdateRecord *record);

// ---------------------------------------------------------------------------
// Building

// Ids that only the virtual relations use.
bool isVirtualRelation(int32_t relid);
// Records the place of a failed sort for updatelistLastFailure.
void updatelistFailureSet(int chapter, int32_t element, int group, int tooDeep);
// Gives each hierarchy record the models its step must update itself: the
// subtree less the branches whose own hierarchy record comes later.
void updatelistLinkHierarchy(UpdateList *list);
// Writes the sentinel behind the last record; the count stays.
void updatelistSentinel(UpdateList *list);

// Calls f(curve) for the active sources of `record` in order while f returns
// true. A source that is not a curve stops the walk and the record: false
// then, so that the handler leaves the rest undone.
template <class F>
bool forEachSourceCurve(const UpdateRecord *record, F &&f) {
    for (int i = 0; i < record->sourceCount; ++i) {
        const UpdateSource &s = record->sources[i];
        if (!s.active) continue;
        if (s.chapter != CHP_ANIMATION || !s.data) return false;
        if (!f(static_cast<Fcurve *>(s.data))) return true;
    }
    return true;
}
