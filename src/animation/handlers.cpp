// The handler table: for each relation group the handlers by relation id.
// Records look their handler up once, when they are added to a list, so the
// walk calls through the record without any search.
#include <mutex>

#include "constraint_internal.h"
#include "curve_deform_internal.h"
#include "model.h"
#include "updatelist_internal.h"

namespace {

constexpr int HANDLERS_PER_GROUP = 256;  // room per group; built-ins use about 100 of the parameter group

struct HandlerSlot {
    int32_t relid;          // relation id
    UpdateHandler handler;  // its evaluation
};

struct HandlerTable {
    int32_t count[REL_GROUP_COUNT];                             // slots in use per group
    HandlerSlot slots[REL_GROUP_COUNT][HANDLERS_PER_GROUP];     // ascending relid per group
};

HandlerTable s_table;

// An expression is either a channel connection, read from a driver of the
// channels chapter, or one of the expressions chapter.
void evalExpression(UpdateRecord *record, float time, int *) {
    const bool channel = record->chapter == CHP_CHANNEL_DRIVERS ||
                         (record->sourceCount > 0 && record->sources[0].chapter == CHP_CHANNEL_DRIVERS);
    if (channel) {
        if (g_evalHooks.channelRecord) g_evalHooks.channelRecord(record, time);
    } else if (g_evalHooks.expressionRecord) {
        g_evalHooks.expressionRecord(record, time);
    }
}

// Shapes and clusters take no walk flags.
void evalShape(UpdateRecord *record, float time, int *) { animShapeUpdate(record, time); }
void evalCluster(UpdateRecord *record, float time, int *) { clusterAnimUpdate(record, time); }

// The relations evaluated here, by group.
struct BuiltinHandler {
    int16_t group;           // RelationGroupId
    int32_t first, last;     // relation ids, inclusive
    UpdateHandler handler;
};

const BuiltinHandler BUILTINS[] = {
    {RELGR_PARAM, 10, 10, evalModelVisibility},
    {RELGR_PARAM, 12, 12, evalModelVisibility},
    {RELGR_PARAM, 1100, 1100, evalCameraVisibility},
    {RELGR_PARAM, 1130, 1144, evalCameraParam},
    {RELGR_PARAM, 2100, 2100, evalLightVisibility},
    {RELGR_PARAM, 2130, 2136, evalLightParam},
    {RELGR_PARAM, 2201, 2207, evalLightParam},
    {RELGR_PARAM, 301, 303, evalMaterialColour},
    {RELGR_PARAM, 304, 308, evalMaterialScalar},
    {RELGR_PARAM, 310, 312, evalMaterialScalar},
    {RELGR_PARAM, 2208, 2208, evalLightParam},
    {RELGR_PARAM, 11, 11, evalDynamicsSwitch},
    {RELGR_PARAM, 15, 15, evalModelParam},
    {RELGR_PARAM, 411, 426, evalTexture3DParam},
    {RELGR_PARAM, 511, 532, evalTexture2DParam},
    {RELGR_PARAM, 3000, 3003, evalSceneGlobal},
    {RELGR_PARAM, 3030, 3035, evalSceneGlobal},
    {RELGR_PARAM, 4000, 4003, evalRenderFlag},
    {RELGR_TRANSFO, REL_WAVE_HIERARCHY_STEP, REL_WAVE_HIERARCHY_STEP, evalHierarchyStep},
    {RELGR_TRANSFO, REL_HIERARCHY_STEP, REL_HIERARCHY_STEP, evalHierarchyStep},
    {RELGR_TRANSFO, 100, 100, evalLocalScaling},
    {RELGR_TRANSFO, 610, 610, evalLocalScaling},
    {RELGR_TRANSFO, 101, 101, evalLocalRotation},
    {RELGR_TRANSFO, 611, 611, evalLocalRotation},
    {RELGR_TRANSFO, 113, 113, evalLocalTranslation},
    {RELGR_TRANSFO, 613, 613, evalLocalTranslation},
    {RELGR_TRANSFO, 1113, 1113, evalCameraPosition},
    {RELGR_TRANSFO, 1115, 1115, evalCameraPosition},
    {RELGR_TRANSFO, 1117, 1117, evalCameraView},
    {RELGR_TRANSFO, 1130, 1130, evalCameraParam},
    {RELGR_TRANSFO, 2113, 2113, evalLightPosition},
    {RELGR_TRANSFO, 2115, 2115, evalLightPosition},
    {RELGR_TRANSFO, 2120, 2120, evalLightInteger},
    {RELGR_GEOM, REL_GEOMETRY_END, REL_GEOMETRY_END, evalGeometryEnd},
    {RELGR_PARAM, REL_EXPRESSION, REL_EXPRESSION, evalExpression},
    {RELGR_TRANSFO, REL_EXPRESSION, REL_EXPRESSION, evalExpression},
    {RELGR_GEOM, REL_EXPRESSION, REL_EXPRESSION, evalExpression},
    {RELGR_OTHER, REL_EXPRESSION, REL_EXPRESSION, evalExpression},
    // Constraints and paths.
    {RELGR_TRANSFO, 102, 103, evalConstraint},
    {RELGR_TRANSFO, 111, 111, evalConstraint},
    {RELGR_TRANSFO, 114, 116, evalConstraint},
    {RELGR_TRANSFO, 124, 125, evalConstraint},
    {RELGR_TRANSFO, 128, 129, evalConstraint},
    {RELGR_TRANSFO, 238, 238, evalConstraint},
    {RELGR_TRANSFO, 806, 806, evalConstraint},
    {RELGR_TRANSFO, 117, 118, evalConstraintHierarchy},
    {RELGR_TRANSFO, 119, 119, evalConstraintPoints},
    {RELGR_TRANSFO, 126, 127, evalConstraintPoints},
    {RELGR_TRANSFO, 150, 150, evalConstraintPoints},
    {RELGR_TRANSFO, 160, 160, evalConstraintPoints},
    {RELGR_TRANSFO, 1111, 1111, evalCameraLightConstraint},
    {RELGR_TRANSFO, 1116, 1116, evalCameraLightConstraint},
    {RELGR_TRANSFO, 2111, 2111, evalCameraLightConstraint},
    {RELGR_TRANSFO, 2116, 2116, evalCameraLightConstraint},
    {RELGR_TRANSFO, 112, 112, evalPath},
    {RELGR_TRANSFO, 612, 612, evalPath},
    {RELGR_TRANSFO, 1112, 1112, evalPath},
    {RELGR_TRANSFO, 1114, 1114, evalPath},
    {RELGR_TRANSFO, 2112, 2112, evalPath},
    {RELGR_TRANSFO, 2114, 2114, evalPath},
    // Shape and cluster animation.
    {RELGR_GEOM, 200, 200, evalShape},
    {RELGR_GEOM, 700, 700, evalCluster},
    // Kinematic chains.
    {RELGR_TRANSFO, 120, 120, chainSolveRecord},
    // Envelopes.
    {RELGR_TRANSFO, 206, 206, envelopeUpdateRecord},
    {RELGR_GEOM, 207, 207, envelopeUpdateRecord},
    // Deformers: lattices, keyed deformation, deformer parameters, refresh, clay.
    {RELGR_GEOM, 210, 210, evalKeyedDeformation},
    {RELGR_GEOM, 215, 215, evalKeyedDeformation},
    {RELGR_GEOM, 211, 211, evalDeformKeyPosition},
    {RELGR_GEOM, 216, 216, evalDeformKeyPosition},
    {RELGR_GEOM, 220, 221, evalDeformerBlock},
    {RELGR_GEOM, 230, 231, evalDeformerBlock},
    {RELGR_GEOM, 239, 239, evalDeformRefresh},
    {RELGR_GEOM, 247, 247, evalDeformRefresh},
    {RELGR_GEOM, 241, 242, evalMetaClay},
    // Curve and surface deformations; the custom deformers change nothing.
    {RELGR_GEOM, 245, 245, curveDeformRecord},
    {RELGR_GEOM, 246, 246, constraintDeformation},
    {RELGR_GEOM, 250, 253, customDeformerRecord},
    {RELGR_GEOM, 255, 257, customDeformerRecord},
    {RELGR_GEOM, 260, 260, customDeformerRecord},
    // Waves: the model's record marks the slot, the wave's keeps its curves.
    {RELGR_GEOM, 600, 601, waveRecord},
    {RELGR_PARAM, 614, 615, waveParamRecord},
};

void insert(int group, int32_t relid, UpdateHandler handler) {
    int32_t &count = s_table.count[group];
    HandlerSlot *slots = s_table.slots[group];
    int pos = 0;
    while (pos < count && slots[pos].relid < relid) ++pos;
    if (pos < count && slots[pos].relid == relid) {
        slots[pos].handler = handler;
        return;
    }
    if (count == HANDLERS_PER_GROUP) return;
    for (int i = count; i > pos; --i) slots[i] = slots[i - 1];
    slots[pos] = HandlerSlot{relid, handler};
    ++count;
}

std::once_flag s_builtins;

}  // namespace

void updateHandlersInit() {
    std::call_once(s_builtins, [] {
        g_modelExtraFree = modelExtraFree;
        for (const BuiltinHandler &b : BUILTINS)
            for (int32_t id = b.first; id <= b.last; ++id) insert(b.group, id, b.handler);
    });
}

void updateHandlerRegister(int group, int32_t relid, UpdateHandler handler) {
    if (group < 0 || group >= REL_GROUP_COUNT) return;
    updateHandlersInit();
    insert(group, relid, handler);
}

UpdateHandler updateHandlerFind(int group, int32_t relid) {
    if (group < 0 || group >= REL_GROUP_COUNT) return nullptr;
    updateHandlersInit();
    const HandlerSlot *slots = s_table.slots[group];
    int low = 0, high = s_table.count[group] - 1;
    while (low <= high) {
        int mid = (low + high) / 2;
        if (slots[mid].relid == relid) return slots[mid].handler;
        if (slots[mid].relid < relid)
            low = mid + 1;
        else
            high = mid - 1;
    }
    return nullptr;
}
