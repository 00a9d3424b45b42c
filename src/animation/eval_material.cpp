// Material records: colours and values of a material from its curves. A
// handler that changes a value bumps the material's revision, which is what
// the draw compares to know that the material's list must be compiled again.
#include <cstring>

#include "material.h"
#include "updatelist_internal.h"

namespace {

// The colours, three curves each: curve types first, first + 1, first + 2
// give red, green and blue.
#define MATERIAL_COLOURS(X) \
    X(301, 45, ambient)     \
    X(302, 48, diffuse)     \
    X(303, 51, specular)

// The values, one curve each: relation, 1 when negative values become 0,
// and the store of value `v` into material `m`, true when it changed it.
// Token 9 is a colour whose mean is the transparency: its curve sets all
// three components, so that the mean is the value. Token 15 is four bytes
// on disk that animation takes as a real.
#define MATERIAL_SCALARS(X)                        \
    X(304, 1, store(m.specularDecay, v))           \
    X(305, 1, store(m.kept7, v))                   \
    X(306, 1, store(m.kept8, v))                   \
    X(307, 1, storeTransparency(m, v))             \
    X(308, 1, store(m.kept10, v))                  \
    X(310, 1, store(m.kept11, v))                  \
    X(311, 0, store(m.kept13, v))                  \
    X(312, 0, store(m.kept15, v))

// Stores `value` into `field`; true when it changed.
bool store(float &field, float value) {
    if (field == value) return false;
    field = value;
    return true;
}

bool store(uint32_t &field, float value) {
    uint32_t bits;
    memcpy(&bits, &value, sizeof bits);
    if (field == bits) return false;
    field = bits;
    return true;
}

// The transparency and its colour move together.
bool storeTransparency(Material &m, float value) {
    bool changed = store(m.transparency, value);
    for (float &c : m.transparencyColour) changed = store(c, value) || changed;
    return changed;
}

struct ColourRow {
    int32_t relation;              // relation id
    int32_t firstType;             // curve type of red
    float (Material::*field)[3];   // the colour it drives
};

const ColourRow COLOURS[] = {
#define COLOUR_ROW(id, first, field) {id, first, &Material::field},
    MATERIAL_COLOURS(COLOUR_ROW)
#undef COLOUR_ROW
};

struct ScalarRow {
    int32_t relation;                   // relation id
    bool floor;                         // negative values become 0
    bool (*store)(Material &m, float v);  // true when the value changed
};

const ScalarRow SCALARS[] = {
#define SCALAR_ROW(id, floor, expr) {id, floor != 0, [](Material &m, float v) { return expr; }},
    MATERIAL_SCALARS(SCALAR_ROW)
#undef SCALAR_ROW
};

}  // namespace

void evalMaterialColour(UpdateRecord *record, float time, int *) {
    Material *m = static_cast<Material *>(record->data);
    if (!m) return;
    for (const ColourRow &row : COLOURS) {
        if (row.relation != record->relation) continue;
        float *colour = m->*row.field;
        bool changed = false;
        forEachSourceCurve(record, [&](Fcurve *c) {
            if (c->type >= row.firstType && c->type < row.firstType + 3)
                changed = store(colour[c->type - row.firstType], static_cast<float>(fcurveValue(c, time, 1))) || changed;
            return true;
        });
        if (changed) ++m->revision;
        return;
    }
}

void evalMaterialScalar(UpdateRecord *record, float time, int *) {
    Material *m = static_cast<Material *>(record->data);
    if (!m) return;
    double v = 0.0;
    bool found = false;
    forEachSourceCurve(record, [&](Fcurve *c) {
        v = fcurveValue(c, time, 1);
        found = true;
        return false;
    });
    if (!found) return;
    for (const ScalarRow &row : SCALARS) {
        if (row.relation != record->relation) continue;
        float f = static_cast<float>(v);
        if (row.floor && f < 0.0f) f = 0.0f;
        if (row.store(*m, f)) ++m->revision;
        return;
    }
}
