// Parameter records whose relation id names one field of their element:
// 2D and 3D textures and the scene's global block. Each family keeps its ids
// in one table; a handler finds the row of its record and stores the curves'
// values into the row's field with the row's limits.
#include <cmath>
#include <cstddef>
#include <limits>

#include "material.h"
#include "updatelist_internal.h"


namespace {

constexpr float NO_LIMIT = std::numeric_limits<float>::infinity();

// How a curve value becomes the stored value.
enum ParamForm : uint8_t {
    FORM_VALUE,    // as it is, within the row's limits
    FORM_DEGREES,  // degrees in the curve, radians in the field
    FORM_SWITCH,   // 1.0 on, anything else off; stored as 1 or 0
};

// Where a row stores: one of the three kinds of field.
struct ParamSlot {
    float *f = nullptr;     // a real value, `count` of them in a row
    int32_t *i = nullptr;   // a switch of an i32 field
    uint16_t *u = nullptr;  // a switch of a u16 field
};

template <class T>
struct ParamRow {
    int32_t relid;           // relation id
    ParamSlot (*slot)(T &);  // the field in an element's record
    int8_t count;            // components: 1, or 3 for a vector driven by up to three curves
    int32_t firstType;       // curve type of the first component; 0: components by curve order
    ParamForm form;          // see ParamForm
    float low, high;         // limits of FORM_VALUE
};

ParamSlot real(float *f) { return ParamSlot{f, nullptr, nullptr}; }

// Stores one component; true when the field changed.
bool store(const ParamSlot &s, int component, ParamForm form, float low, float high, double v) {
    if (form == FORM_SWITCH) {
        const uint16_t on = v >= 1.0 ? 1 : 0;
        bool changed = false;
        if (s.i && *s.i != on) {
            *s.i = on;
            changed = true;
        }
        if (s.u && *s.u != on) {
            *s.u = on;
            changed = true;
        }
        return changed;
    }
    if (form == FORM_DEGREES) v *= DEG_TO_RAD;
    float f = static_cast<float>(v);
    if (f < low) f = low;
    if (f > high) f = high;
    float &field = s.f[component];
    if (field == f) return false;
    field = f;
    return true;
}

// The row of `relid` in a table sorted by id; null for none.
template <class T, size_t N>
const ParamRow<T> *rowOf(const ParamRow<T> (&rows)[N], int32_t relid) {
    for (const ParamRow<T> &r : rows)
        if (r.relid == relid) return &r;
    return nullptr;
}

// Evaluates the record's curves into the row's field of `target`. A scalar
// takes its first active curve; a vector places each curve by its type, or
// by its order among the record's curves when the row names no type.
// True when a value changed.
template <class T>
bool applyRow(const ParamRow<T> &row, const UpdateRecord *record, float time, T &target) {
    ParamSlot slot = row.slot(target);
    bool changed = false;
    int place = 0;
    forEachSourceCurve(record, [&](Fcurve *c) {
        int component = row.firstType ? c->type - row.firstType : place;
        ++place;
        if (component >= 0 && component < row.count)
            changed |= store(slot, component, row.form, row.low, row.high, fcurveValue(c, time, 1));
        return row.count > 1;
    });
    return changed;
}

// ---------------------------------------------------------------------------
// 2D textures. Each id drives one value; the angles turn the projection, so
// every change recomputes what the texture derives and tells the draw.

#define TEX2D(field) [](Texture2D &t) { return real(&t.field); }
const ParamRow<Texture2D> TEXTURE2D_PARAMS[] = {
    {511, TEX2D(uScale), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {512, TEX2D(vScale), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {513, TEX2D(uOffset), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {514, TEX2D(vOffset), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {515, TEX2D(rotation[0]), 1, 0, FORM_DEGREES, -NO_LIMIT, NO_LIMIT},
    {516, TEX2D(rotation[1]), 1, 0, FORM_DEGREES, -NO_LIMIT, NO_LIMIT},
    {517, TEX2D(rotation[2]), 1, 0, FORM_DEGREES, -NO_LIMIT, NO_LIMIT},
    {518, TEX2D(boxCentre[0]), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {519, TEX2D(boxCentre[1]), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {520, TEX2D(boxCentre[2]), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {521, TEX2D(factors[0]), 1, 0, FORM_VALUE, 0.0f, 1.0f},
    {522, TEX2D(factors[1]), 1, 0, FORM_VALUE, 0.0f, 1.0f},
    {523, TEX2D(factors[2]), 1, 0, FORM_VALUE, 0.0f, 1.0f},
    {524, TEX2D(sphereCentre[0]), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {525, TEX2D(sphereCentre[1]), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {526, TEX2D(sphereCentre[2]), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {527, TEX2D(boxSize[0]), 1, 0, FORM_VALUE, 0.0f, NO_LIMIT},
    {528, TEX2D(boxSize[1]), 1, 0, FORM_VALUE, 0.0f, NO_LIMIT},
    {529, TEX2D(boxSize[2]), 1, 0, FORM_VALUE, 0.0f, NO_LIMIT},
    {530, TEX2D(factors[3]), 1, 0, FORM_VALUE, -1.0f, NO_LIMIT},
    {531, TEX2D(factors[4]), 1, 0, FORM_VALUE, -1.0f, NO_LIMIT},
    {532, TEX2D(factors[5]), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
};
#undef TEX2D

// ---------------------------------------------------------------------------
// 3D textures: the sixteen fields of the record's version 4.0 list after its
// name and type, in list order. Its transform is three vectors of curve
// types 91 to 99; the rotation stays in degrees, as the record holds it.

#define TEX3D(field) [](Texture3D &t) { return real(t.field); }
#define TEX3D_TOKEN(token) [](Texture3D &t) { return real(&t.params[token]); }
const ParamRow<Texture3D> TEXTURE3D_PARAMS[] = {
    {411, TEX3D(scaling), 3, 91, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {412, TEX3D(rotation), 3, 94, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {413, TEX3D(translation), 3, 97, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {414, TEX3D(colours[0]), 3, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {415, TEX3D(colours[1]), 3, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {416, TEX3D(colours[2]), 3, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {417, TEX3D(colours[3]), 3, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {418, TEX3D(colours[4]), 3, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {419, TEX3D_TOKEN(10), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {420, TEX3D_TOKEN(27), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {421, TEX3D_TOKEN(28), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {422, TEX3D_TOKEN(11), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {423, TEX3D_TOKEN(12), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {424, TEX3D_TOKEN(13), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {425, TEX3D_TOKEN(14), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {426, TEX3D_TOKEN(15), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
};
#undef TEX3D
#undef TEX3D_TOKEN

// ---------------------------------------------------------------------------
// The scene's global block: ambient colour and two-sided lighting, then the
// fog, in the order of the block.

#define GLOBAL(field) [](SceneGlobals &g) { return real(&g.field); }
const ParamRow<SceneGlobals> SCENE_GLOBAL_PARAMS[] = {
    {3000, GLOBAL(ambient[0]), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {3001, GLOBAL(ambient[1]), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {3002, GLOBAL(ambient[2]), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {3003, [](SceneGlobals &g) { return ParamSlot{nullptr, nullptr, &g.twoSided}; }, 1, 0, FORM_SWITCH, 0, 0},
    {3030, [](SceneGlobals &g) { return ParamSlot{nullptr, &g.fogEnable, nullptr}; }, 1, 0, FORM_SWITCH, 0, 0},
    {3031, GLOBAL(fogStart), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {3032, GLOBAL(fogEnd), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {3033, GLOBAL(fogColor[0]), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {3034, GLOBAL(fogColor[1]), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
    {3035, GLOBAL(fogColor[2]), 1, 0, FORM_VALUE, -NO_LIMIT, NO_LIMIT},
};
#undef GLOBAL

}  // namespace

void evalTexture2DParam(UpdateRecord *record, float time, int *) {
    Texture2D *t = static_cast<Texture2D *>(record->data);
    const ParamRow<Texture2D> *row = rowOf(TEXTURE2D_PARAMS, record->relation);
    if (!t || !row || !applyRow(*row, record, time, *t)) return;
    texture2DDerive(*t);
    ++t->revision;
}

void evalTexture3DParam(UpdateRecord *record, float time, int *) {
    Texture3D *t = static_cast<Texture3D *>(record->data);
    const ParamRow<Texture3D> *row = rowOf(TEXTURE3D_PARAMS, record->relation);
    if (t && row) applyRow(*row, record, time, *t);
}

void evalSceneGlobal(UpdateRecord *record, float time, int *) {
    Dictionary *dict = walkState().dict;
    const ParamRow<SceneGlobals> *row = rowOf(SCENE_GLOBAL_PARAMS, record->relation);
    if (dict && row && applyRow(*row, record, time, dict->globals)) ++dict->globals.revision;
}
