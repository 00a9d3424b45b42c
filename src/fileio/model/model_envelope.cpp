// A deformer's envelope record and its form in a model node (token 28): the
// reference and base pose of the deformer and, per skin it moves, the skin's
// name and its assignments.
#include <cstdlib>
#include <cstring>
#include <string>

#include "animation.h"
#include "model.h"

namespace {

constexpr float RAD_PER_DEG = 0.0174532925f;
constexpr float DEG_PER_RAD = 1.0f / RAD_PER_DEG;
// Bytes of the fixed part: reference, base pose, rounding, skin count.
constexpr int64_t FIXED_BYTES = 9 * 4 + 16 * 4 + 4 + 4;
constexpr int64_t ASSIGNMENT_BYTES = 8;  // i32 vertex, f32 weight

void skinFree(EnvelopeSkin *s) {
    free(s->skinName);
    free(s->assignments);
    free(s);
}

}  // namespace

EnvelopeData *envelopeDataGet(Model *model) {
    if (!model) return nullptr;
    if (model->envelope) return model->envelope;
    auto *d = static_cast<EnvelopeData *>(calloc(1, sizeof(EnvelopeData)));
    if (!d) return nullptr;
    for (int i = 0; i < 4; ++i) d->basePose[i][i] = 1.0f;
    d->reference[0] = d->reference[1] = d->reference[2] = 1.0f;
    d->lastPose[0] = d->lastPose[1] = d->lastPose[2] = 1.0f;
    model->envelope = d;
    return d;
}

void envelopeDataFree(EnvelopeData *data) {
    if (!data) return;
    for (EnvelopeSkin *s = data->skins; s;) {
        EnvelopeSkin *next = s->next;
        skinFree(s);
        s = next;
    }
    free(data);
}

EnvelopeSkin *envelopeSkinAdd(EnvelopeData *data, Model *skin, const char *name, int32_t count) {
    if (!data || count < 0) return nullptr;
    auto *s = static_cast<EnvelopeSkin *>(calloc(1, sizeof(EnvelopeSkin)));
    if (!s) return nullptr;
    const char *n = name ? name : skin && skin->name ? skin->name : "";
    s->skinName = strdup(n);
    s->assignments = count ? static_cast<EnvelopeAssignment *>(calloc(static_cast<size_t>(count), sizeof(EnvelopeAssignment)))
                           : nullptr;
    if (!s->skinName || (count && !s->assignments)) {
        skinFree(s);
        return nullptr;
    }
    s->skin = skin;
    s->count = count;
    EnvelopeSkin **at = &data->skins;
    while (*at) at = &(*at)->next;
    *at = s;
    return s;
}

EnvelopeSkin *envelopeSkinFind(const EnvelopeData *data, const Model *skin) {
    for (EnvelopeSkin *s = data ? data->skins : nullptr; s; s = s->next)
        if (s->skin == skin) return s;
    return nullptr;
}

int envelopeBlockRead(BinReader &r, Model *model) {
    const int32_t size = binReadI32(r);
    if (r.failed) return 0;
    if (size < 0) return binFail(r, ("negative size " + std::to_string(size) + " of the envelope block").c_str());
    if (size == 0) return 1;  // a node that moves no skin
    if (!binCheckCount(r, 1, size)) return 0;
    const int64_t end = r.pos + size;
    if (size < FIXED_BYTES) return binFail(r, "envelope block shorter than its fixed part");
    EnvelopeData *d = envelopeDataGet(model);
    if (!d) return binFail(r, "out of memory for an envelope");
    binReadFloats(r, d->reference, 9);
    for (int i = 3; i < 6; ++i) d->reference[i] *= RAD_PER_DEG;
    binReadFloats(r, &d->basePose[0][0], 16);
    d->rounding = binReadF32(r);
    const int32_t skins = binReadI32(r);
    if (skins < 0 || skins > (end - r.pos) / 5)  // a name's zero and a count at least
        return binFail(r, ("envelope skin count " + std::to_string(skins) + " does not fit its block").c_str());
    for (int32_t k = 0; k < skins && !r.failed; ++k) {
        char *name = binReadStr(r);
        const int32_t count = binReadI32(r);
        if (r.failed || count < 0 || r.pos + count * ASSIGNMENT_BYTES > end) {
            free(name);
            return binFail(r, ("envelope assignment count " + std::to_string(count) + " does not fit its block").c_str());
        }
        EnvelopeSkin *s = envelopeSkinAdd(d, nullptr, name ? name : "", count);
        free(name);
        if (!s) return binFail(r, "out of memory for envelope assignments");
        for (int32_t i = 0; i < count; ++i) {
            s->assignments[i].vertex = binReadI32(r);
            s->assignments[i].weight = binReadF32(r);
        }
    }
    if (r.pos > end) return binFail(r, "envelope block overruns its size");
    // A later writer may add fields behind ours.
    while (r.pos < end && !r.failed) binReadU8(r);
    d->bits |= ENVELOPE_REBUILD;
    return !r.failed;
}

int envelopeBlockWrite(BinWriter &w, const Model *model) {
    const EnvelopeData *d = model ? model->envelope : nullptr;
    if (!d) return binWriteI32(w, 0);
    int64_t size = FIXED_BYTES;
    for (const EnvelopeSkin *s = d->skins; s; s = s->next) {
        const char *name = s->skin && s->skin->name ? s->skin->name : s->skinName ? s->skinName : "";
        size += static_cast<int64_t>(strlen(name)) + 1 + 4 + s->count * ASSIGNMENT_BYTES;
    }
    if (size > INT32_MAX) return binWriteI32(w, 0);
    binWriteI32(w, static_cast<int32_t>(size));
    float reference[9];
    memcpy(reference, d->reference, sizeof reference);
    for (int i = 3; i < 6; ++i) reference[i] *= DEG_PER_RAD;
    binWriteFloats(w, reference, 9);
    binWriteFloats(w, &d->basePose[0][0], 16);
    binWriteF32(w, d->rounding);
    int32_t skins = 0;
    for (const EnvelopeSkin *s = d->skins; s; s = s->next) ++skins;
    binWriteI32(w, skins);
    for (const EnvelopeSkin *s = d->skins; s; s = s->next) {
        binWriteStr(w, s->skin && s->skin->name ? s->skin->name : s->skinName);
        binWriteI32(w, s->count);
        for (int32_t i = 0; i < s->count; ++i) {
            binWriteI32(w, s->assignments[i].vertex);
            binWriteF32(w, s->assignments[i].weight);
        }
    }
    return !w.failed;
}
