// The deformers of a model's geometry group. Their records only bring a
// deformer's animated parameters up to date and leave in the walk's list
// flags (and in the slot's pending mark) what is to be done; the record -200
// that closes the group then rewrites the points once, from one base, through
// every pending slot and every kind of deformer in a fixed order.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "camera.h"
#include "geometry.h"
#include "model.h"
#include "updatelist_internal.h"

namespace {


// Every applier carries the time; the kinds that do not need it ignore it.
using DeformerApplyFn = int (*)(Model *model, int slot, float (*points)[3], int32_t count, float time);

template <int (*Apply)(Model *, int, float (*)[3], int32_t)>
int withoutTime(Model *model, int slot, float (*points)[3], int32_t count, float) {
    return Apply(model, slot, points, count);
}

// The kinds of deformer in the order -200 applies them within a slot, each
// with its applier; a kind whose applier is null is passed over.
#define BW_DEFORMER_KINDS(X)                              \
    X(DEFORMER_LATTICE, withoutTime<latticeApply>)        \
    X(DEFORMER_CURVE, withoutTime<curveDeformApply>)      \
    X(DEFORMER_WAVE, waveApply)

enum DeformerKind : int {
#define BW_DEFORMER_KIND_ENUM(id, apply) id,
    BW_DEFORMER_KINDS(BW_DEFORMER_KIND_ENUM)
#undef BW_DEFORMER_KIND_ENUM
    DEFORMER_KIND_COUNT
};

struct DeformerKindRow {
    DeformerApplyFn apply;  // rewrites the points of one slot; null: not in this build
};

// Indexed by DeformerKind.
const DeformerKindRow DEFORMER_KINDS[DEFORMER_KIND_COUNT] = {
#define BW_DEFORMER_KIND_ROW(id, apply) {apply},
    BW_DEFORMER_KINDS(BW_DEFORMER_KIND_ROW)
#undef BW_DEFORMER_KIND_ROW
};

void blockInit(DeformerBlock *block) {
    *block = DeformerBlock{};
    block->scale[0] = block->scale[1] = block->scale[2] = 1.0f;
    block->extra[0] = 1.0f;  // full strength until a curve says otherwise
    block->extra[2] = 1.0f;  // a curve deformation's length scale: the whole curve
    deformerBlockRecompute(block);
}

// The positions of a model while -200 works on them. One buffer per thread,
// grown to the largest model, so a frame allocates nothing.
float (*scratchPoints(int32_t count))[3] {
    thread_local std::vector<float> buffer;
    const size_t need = static_cast<size_t>(count) * 3;
    if (buffer.size() < need) buffer.resize(need);
    return reinterpret_cast<float (*)[3]>(buffer.data());
}

void transformAll(float (*points)[3], int32_t count, const float m[4][4]) {
    for (int32_t i = 0; i < count; ++i) {
        float out[3];
        pointMul(points[i], m, out);
        points[i][0] = out[0], points[i][1] = out[1], points[i][2] = out[2];
    }
}

void applyPending(Model *model, ModelDeformers *deformers, float time) {
    const int32_t count = geometryPointCount(model->type, model->geometry.any);
    if (count <= 0) return;
    // The rest copy must exist before the first rewrite, or it would copy a
    // deformed shape. When nobody else moved the points since our last write,
    // the deformers start again from it and never accumulate.
    modelRestPoints(model);
    if (model->geometryStamp == deformers->appliedStamp) modelRestore(model);
    float (*points)[3] = scratchPoints(count);
    geometryPositionsRead(model->type, model->geometry.any, &points[0][0]);
    for (int slot = 0; slot < DEFORM_SLOT_COUNT; ++slot) {
        DeformSlotData &s = deformers->slot[slot];
        if (!s.pending) continue;
        s.pending = 0;
        float toWorld[4][4], fromWorld[4][4];
        const bool global = slot == DEFORM_SLOT_GLOBAL;
        if (global) {
            mat4Copy(toWorld, model->globalMatrix);
            if (!mat4Inverse(toWorld, fromWorld)) continue;  // a flat model cannot come back
            transformAll(points, count, toWorld);
        }
        for (const DeformerKindRow &kind : DEFORMER_KINDS)
            if (kind.apply) kind.apply(model, slot, points, count, time);
        if (global) transformAll(points, count, fromWorld);
    }
    geometryPositionsWrite(model->type, model->geometry.any, &points[0][0]);
    modelGeometryChanged(model);
    deformers->appliedStamp = model->geometryStamp;
}

// Whether a key curve (211 or 216) stands in the geometry group of the
// record's element. The group's records lie together in the walked list.
bool groupHasKeyCurve(const UpdateRecord *record) {
    const UpdateList *list = walkState().list;
    if (!list || !list->records || record < list->records || record >= list->records + list->count) return false;
    const int32_t at = static_cast<int32_t>(record - list->records);
    auto same = [&](const UpdateRecord &r) {
        return r.chapter == record->chapter && r.element == record->element && r.group == record->group;
    };
    auto isKey = [](const UpdateRecord &r) { return (r.relation == 211 || r.relation == 216) && r.sourceCount > 0; };
    for (int32_t i = at; i >= 0 && same(list->records[i]); --i)
        if (isKey(list->records[i])) return true;
    for (int32_t i = at + 1; i < list->count && same(list->records[i]); ++i)
        if (isKey(list->records[i])) return true;
    return false;
}

// One flag per source of the record: an expression of the element assigns
// that curve, which then holds its value in lastValue. Found once per list
// and kept with the record.
const uint8_t *expressionDriven(UpdateRecord *record) {
    if (record->extra) return static_cast<const uint8_t *>(record->extra);
    const UpdateList *list = walkState().list;
    if (!list || !g_evalHooks.expressionTarget) return nullptr;
    auto *driven = static_cast<uint8_t *>(calloc(static_cast<size_t>(record->sourceCount) + 1, 1));
    if (!driven) return nullptr;
    for (int32_t i = 0; i < list->count; ++i) {
        const UpdateRecord &x = list->records[i];
        if (x.relation != REL_EXPRESSION || x.chapter != record->chapter || x.element != record->element) continue;
        const int32_t type = g_evalHooks.expressionTarget(&x, 0);
        for (int s = 0; s < record->sourceCount; ++s) {
            const UpdateSource &src = record->sources[s];
            if (src.chapter == CHP_ANIMATION && src.data && static_cast<const Fcurve *>(src.data)->type == type)
                driven[s] = 1;
        }
    }
    record->extra = driven;
    return driven;
}

// Field of the block a curve type writes: 0 to 6 (scale x, y, z, rotation,
// three extras), -1 for none. Local and global types share the layout.
int blockField(int32_t type) {
    if (type >= 107 && type <= 113) return type - 107;
    if (type >= 114 && type <= 120) return type - 114;
    return -1;
}

// The meta group a clay ball belongs to: its nearest type 7 ancestor.
Model *clayGroupOf(Model *ball) {
    for (Model *m = ball->parent; m; m = m->parent)
        if (m->type == MODEL_META) return m;
    return nullptr;
}

}  // namespace

// ---------------------------------------------------------------------------
// The record of a model's deformers

ModelDeformers *modelDeformersOf(Model *model) {
    if (!model) return nullptr;
    if (model->deformers) return model->deformers;
    auto *deformers = static_cast<ModelDeformers *>(calloc(1, sizeof(ModelDeformers)));
    if (!deformers) return nullptr;
    for (DeformSlotData &s : deformers->slot) {
        blockInit(&s.latticeBlock);
        blockInit(&s.curveBlock);
    }
    deformers->appliedStamp = model->geometryStamp;  // nobody else has moved the points yet
    model->deformers = deformers;
    return deformers;
}

void modelDeformersFree(ModelDeformers *deformers) {
    if (!deformers) return;
    for (DeformSlotData &s : deformers->slot) latticeFree(s.lattice);
    free(deformers);
}

void deformerBlockRecompute(DeformerBlock *block) {
    if (!block) return;
    // Scale, then rotation about the deformer's z axis (row vectors).
    const float c = std::cos(block->rotation), s = std::sin(block->rotation);
    mat4Identity(block->matrix);
    block->matrix[0][0] = block->scale[0] * c;
    block->matrix[0][1] = block->scale[0] * s;
    block->matrix[1][0] = -block->scale[1] * s;
    block->matrix[1][1] = block->scale[1] * c;
    block->matrix[2][2] = block->scale[2];
    const float strength = block->extra[0];
    block->falloff = std::isnan(strength) ? 0.0f : std::clamp(strength, 0.0f, 1.0f);
}

int deformSlotOf(int32_t relation) {
    switch (relation) {
        case 215: case 216: case 221: case 231: case 601: return DEFORM_SLOT_GLOBAL;
        default: return DEFORM_SLOT_LOCAL;
    }
}

void deformSlotMark(ModelDeformers *deformers, int slot, int *flags) {
    deformers->slot[slot].pending = 1;
    if (flags) *flags = slot == DEFORM_SLOT_GLOBAL ? DEFORM_FLAG_GLOBAL : DEFORM_FLAG_LOCAL;
}

void deformersApplyNow(Model *model, float time) {
    if (model && model->deformers) applyPending(model, model->deformers, time);
}

// ---------------------------------------------------------------------------
// The record -200

void deformersGeometryEnd(UpdateRecord *record, float time, int *flags) {
    const int code = flags ? *flags : 0;
    if (flags) *flags = 0;
    Model *model = static_cast<Model *>(record ? record->data : nullptr);
    if (!model) return;
    ModelDeformers *deformers = model->deformers;
    if (code == 0) {
        // Nothing ran this walk; a mark left from elsewhere must not fire later.
        if (deformers)
            for (DeformSlotData &s : deformers->slot) s.pending = 0;
        return;
    }
    // The word holds the last writer's code only: a pending slot is applied
    // whatever the code, and the rewrite refreshes the derived geometry too.
    const bool pending = deformers && (deformers->slot[0].pending || deformers->slot[1].pending);
    if (pending)
        applyPending(model, deformers, time);
    else if (code == DEFORM_FLAG_DYNAMICS || code == DEFORM_FLAG_REFRESH)
        modelGeometryChanged(model);
}

// ---------------------------------------------------------------------------
// Handlers

void evalDeformKeyPosition(UpdateRecord *record, float time, int *) {
    Model *model = static_cast<Model *>(record->data);
    double value = 0.0;
    if (!model || !firstCurveValue(record, time, &value)) return;
    ModelDeformers *deformers = modelDeformersOf(model);
    if (deformers) deformers->slot[deformSlotOf(record->relation)].keyPosition = static_cast<float>(value);
}

void evalKeyedDeformation(UpdateRecord *record, float, int *flags) {
    Model *model = static_cast<Model *>(record->data);
    if (!model || record->sourceCount < 1 || !record->sources[0].data || !model->deformers) return;
    const int slot = deformSlotOf(record->relation);
    DeformSlotData &s = model->deformers->slot[slot];
    Lattice *lattice = s.lattice;
    if (!lattice || lattice->keyCount < 1 || !lattice->keys) return;
    deformSlotMark(model->deformers, slot, flags);
    if (!groupHasKeyCurve(record)) return;
    const int32_t n = lattice->keyCount;
    const double v = s.keyPosition;
    if (n < 2 || !std::isfinite(v)) return;  // no stored state to mix
    const double i = std::trunc(v);
    const double last = n - 1;
    const int32_t k1 = static_cast<int32_t>(std::clamp(i + 1.0, 1.0, last));
    const int32_t k2 = static_cast<int32_t>(std::clamp(i + 2.0, 1.0, last));
    const double f = v - i;
    LatticeKey &now = lattice->keys[0];
    const LatticeKey &a = lattice->keys[k1], &b = lattice->keys[k2];
    if (!now.points || !a.points || !b.points || a.pointCount != now.pointCount || b.pointCount != now.pointCount)
        return;
    for (int32_t p = 0; p < now.pointCount; ++p)
        for (int c = 0; c < 3; ++c)
            now.points[p][c] = static_cast<float>(a.points[p][c] + (static_cast<double>(b.points[p][c]) - a.points[p][c]) * f);
}

void evalDeformerBlock(UpdateRecord *record, float time, int *flags) {
    Model *model = static_cast<Model *>(record->data);
    ModelDeformers *deformers = modelDeformersOf(model);
    if (!deformers) return;
    const int slot = deformSlotOf(record->relation);
    const bool lattice = record->relation == 220 || record->relation == 221;
    DeformerBlock &block = lattice ? deformers->slot[slot].latticeBlock : deformers->slot[slot].curveBlock;
    deformSlotMark(deformers, slot, flags);
    const uint8_t *driven = expressionDriven(record);
    for (int i = 0; i < record->sourceCount; ++i) {
        const UpdateSource &src = record->sources[i];
        if (!src.active || src.chapter != CHP_ANIMATION || !src.data) continue;
        Fcurve *curve = static_cast<Fcurve *>(src.data);
        const int field = blockField(curve->type);
        if (field < 0) continue;
        double value;
        if (driven && driven[i]) {
            value = curve->lastValue;
        } else {
            if (curve->keyCount == 0 && field < 3) continue;  // a scale keeps its present value
            value = fcurveValue(curve, time, 1);
        }
        if (field < 3) block.scale[field] = static_cast<float>(value);
        else if (field == 3) block.rotation = static_cast<float>(value * DEG_TO_RAD);
        else block.extra[field - 4] = static_cast<float>(value);
    }
    block.present = 1;
    deformerBlockRecompute(&block);
}

void evalDeformRefresh(UpdateRecord *record, float, int *flags) {
    if (record->data && flags) *flags = record->relation == 239 ? DEFORM_FLAG_DYNAMICS : DEFORM_FLAG_REFRESH;
}

void evalMetaClay(UpdateRecord *record, float time, int *) {
    Model *ball = static_cast<Model *>(record->data);
    if (!ball || ball->type != MODEL_REF || !ball->geometry.ref) return;
    ModelRef *clay = ball->geometry.ref;
    bool changed = false;
    forEachSourceCurve(record, [&](Fcurve *curve) {
        const double value = fcurveValue(curve, time, 1);
        switch (curve->type) {
            case 185: clay->value4 = value; break;     // radius: the shape itself
            case 186: clay->value5 = value; break;     // weight
            case 187: clay->vector[0] = value; break;  // kept
            case 188: clay->vector[1] = value; break;  // kept
            default: return true;
        }
        changed = true;
        return true;
    });
    if (!changed) return;
    // The ball's own form, and the group's surface that the balls make.
    modelGeometryChanged(ball);
    if (Model *group = clayGroupOf(ball)) modelGeometryChanged(group);
}
