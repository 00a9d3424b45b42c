// Animated parameters by name: what a connection or an expression names after
// the element ("cube.transx"), with the curve type it stands for, the group
// of the update list it belongs to, and how its value is read and set.
#include <cstring>

#include "camera.h"
#include "model.h"
#include "updatelist_internal.h"

namespace {

// name, chapter, curve type, group, what it touches, component
#define PARAM_ROWS                                                      \
    PARAM_ROW("scalx", MODELS, 1, TRANSFO, MODEL_SCALING, 0)            \
    PARAM_ROW("scaly", MODELS, 2, TRANSFO, MODEL_SCALING, 1)            \
    PARAM_ROW("scalz", MODELS, 3, TRANSFO, MODEL_SCALING, 2)            \
    PARAM_ROW("rotx", MODELS, 4, TRANSFO, MODEL_ROTATION, 0)            \
    PARAM_ROW("roty", MODELS, 5, TRANSFO, MODEL_ROTATION, 1)            \
    PARAM_ROW("rotz", MODELS, 6, TRANSFO, MODEL_ROTATION, 2)            \
    PARAM_ROW("transx", MODELS, 139, TRANSFO, MODEL_TRANSLATION, 0)     \
    PARAM_ROW("transy", MODELS, 140, TRANSFO, MODEL_TRANSLATION, 1)     \
    PARAM_ROW("transz", MODELS, 141, TRANSFO, MODEL_TRANSLATION, 2)     \
    PARAM_ROW("posx", CAMERAS, 142, TRANSFO, CAMERA_POSITION, 0)        \
    PARAM_ROW("posy", CAMERAS, 143, TRANSFO, CAMERA_POSITION, 1)        \
    PARAM_ROW("posz", CAMERAS, 144, TRANSFO, CAMERA_POSITION, 2)        \
    PARAM_ROW("intx", CAMERAS, 145, TRANSFO, CAMERA_INTEREST, 0)        \
    PARAM_ROW("inty", CAMERAS, 146, TRANSFO, CAMERA_INTEREST, 1)        \
    PARAM_ROW("intz", CAMERAS, 147, TRANSFO, CAMERA_INTEREST, 2)        \
    PARAM_ROW("roll", CAMERAS, 1130, TRANSFO, CAMERA_ROLL, 0)           \
    PARAM_ROW("posx", LIGHTS, 148, TRANSFO, LIGHT_POSITION, 0)          \
    PARAM_ROW("posy", LIGHTS, 149, TRANSFO, LIGHT_POSITION, 1)          \
    PARAM_ROW("posz", LIGHTS, 150, TRANSFO, LIGHT_POSITION, 2)          \
    PARAM_ROW("intx", LIGHTS, 151, TRANSFO, LIGHT_INTEREST, 0)          \
    PARAM_ROW("inty", LIGHTS, 152, TRANSFO, LIGHT_INTEREST, 1)          \
    PARAM_ROW("intz", LIGHTS, 153, TRANSFO, LIGHT_INTEREST, 2)

enum ParamTarget {
    MODEL_SCALING,
    MODEL_ROTATION,
    MODEL_TRANSLATION,
    CAMERA_POSITION,
    CAMERA_INTEREST,
    CAMERA_ROLL,
    LIGHT_POSITION,
    LIGHT_INTEREST,
};

struct ParamRow {
    const char *name;     // as written after the element
    int chapter;          // chapter of the elements that have it
    int32_t curveType;    // fcurve type it stands for
    int group;            // group of the update list that sets it
    ParamTarget target;   // the field it reads and writes
    int component;        // 0, 1, 2: x, y, z
};

constexpr ParamRow kParams[] = {
#define PARAM_ROW(name, chapter, type, group, target, component) \
    {name, CHP_##chapter, type, RELGR_##group, target, component},
    PARAM_ROWS
#undef PARAM_ROW
};
constexpr int kParamCount = sizeof kParams / sizeof kParams[0];

float *field(const ParamRow &row, void *data) {
    switch (row.target) {
    case MODEL_SCALING: return &static_cast<Model *>(data)->scaling[row.component];
    case MODEL_ROTATION: return &static_cast<Model *>(data)->rotation[row.component];
    case MODEL_TRANSLATION: return &static_cast<Model *>(data)->translation[row.component];
    case CAMERA_POSITION: return &static_cast<Camera *>(data)->position[row.component];
    case CAMERA_INTEREST: return &static_cast<Camera *>(data)->interest[row.component];
    case CAMERA_ROLL: return &static_cast<Camera *>(data)->roll;
    case LIGHT_POSITION: return &static_cast<Light *>(data)->position[row.component];
    case LIGHT_INTEREST: return &static_cast<Light *>(data)->interest[row.component];
    }
    return nullptr;
}

// Angles are degrees to the user and radians inside.
bool inDegrees(const ParamRow &row) { return row.target == MODEL_ROTATION || row.target == CAMERA_ROLL; }

}  // namespace

int paramLookup(int chapter, const char *name) {
    if (!name) return -1;
    for (int i = 0; i < kParamCount; ++i)
        if (kParams[i].chapter == chapter && strcmp(kParams[i].name, name) == 0) return i;
    return -1;
}

int paramInfo(int param, ParamInfo *info) {
    if (param < 0 || param >= kParamCount) return 0;
    const ParamRow &row = kParams[param];
    info->name = row.name;
    info->chapter = row.chapter;
    info->curveType = row.curveType;
    info->group = row.group;
    return 1;
}

float paramGet(int param, void *data) {
    if (param < 0 || param >= kParamCount || !data) return 0.0f;
    const ParamRow &row = kParams[param];
    const float v = *field(row, data);
    return inDegrees(row) ? static_cast<float>(v / DEG_TO_RAD) : v;
}

void paramSet(int param, void *data, float value) {
    if (param < 0 || param >= kParamCount || !data) return;
    const ParamRow &row = kParams[param];
    *field(row, data) = inDegrees(row) ? static_cast<float>(value * DEG_TO_RAD) : value;
    switch (row.target) {
    case MODEL_SCALING: modelMarkDirty(static_cast<Model *>(data), TRANSFO_DIRTY_SCALE); break;
    case MODEL_ROTATION: modelMarkDirty(static_cast<Model *>(data), TRANSFO_DIRTY_ROTATION); break;
    case MODEL_TRANSLATION: modelMarkDirty(static_cast<Model *>(data), TRANSFO_DIRTY_POSITION); break;
    case CAMERA_POSITION:
    case CAMERA_INTEREST:
    case CAMERA_ROLL: cameraViewUpdate(static_cast<Camera *>(data), nullptr); break;
    case LIGHT_POSITION:
    case LIGHT_INTEREST: break;
    }
}
