// Waves: the element's record as the scene load reads it, the records of the
// update list that tie it to models (600, 601) and keep its curves at hand
// (614, 615), and the displacement the geometry end applies to the points.
//
// A wave is a sine travelling out from its centre, the origin of its
// transform object: at distance d and time t (seconds since the start frame)
// a point moves by
//     amplitude * exp(-damping * d) * sin(2 pi (d - speed t) / wavelength + phase)
// along the wave's switched axes, while d lies between the tail and the front
// (speed t). Circular waves measure d from the centre, planar ones along the
// direction, turned about the wave's y axis from its x axis.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "animation.h"
#include "dictionary.h"
#include "model.h"
#include "updatelist_internal.h"

namespace {

constexpr double kTwoPi = 6.283185307179586;

Model *transfoOf(void *data) { return data ? static_cast<Wave *>(data)->transfo : nullptr; }

int readWave(Dictionary *dict, int index, const char *path) {
    Wave *wave = waveFileRead(path);
    if (!wave) return 0;
    // The transform object's matrices from the file's SRT, before any walk.
    modelGlobalUpdate(nullptr, wave->transfo, 0);
    elemGet(dict, CHP_WAVES, index)->data = wave;
    return 1;
}

void freeWave(Element &e) { waveFree(static_cast<Wave *>(e.data)); }

// The wave source of a 600 / 601 record: the first active one with data.
const UpdateSource *waveSourceOf(const UpdateRecord *record) {
    for (int i = 0; i < record->sourceCount; ++i) {
        const UpdateSource &s = record->sources[i];
        if (s.active && s.chapter == CHP_WAVES && s.data) return &s;
    }
    return nullptr;
}

// The constants of one frame of a wave: everything but the distance.
struct WaveShape {
    float k;          // radians per unit of distance: 2 pi / wavelength
    float offset;     // phase at distance 0: phase - k speed t
    float amplitude;  // units
    float damping;    // per unit of distance
    float front;      // farthest distance reached: speed t
    float tail;       // nearest distance still moving: 0, or behind the last crest
    bool moves;       // false: no point moves this frame
};

WaveShape shapeAt(const Wave &w, float time, float frameRate) {
    const float *v = w.current;
    WaveShape s{};
    const double tau = time - v[WAVE_START] / frameRate;
    const double wavelength = v[WAVE_WAVELENGTH];
    if (v[WAVE_ACTIVE] <= 0.0f || tau < 0.0 || wavelength <= 0.0 || v[WAVE_AMPLITUDE] <= 0.0f) return s;
    const double speed = v[WAVE_SPEED];
    const double k = kTwoPi / wavelength;
    double tail = 0.0;
    if (v[WAVE_ONE_SHOT] > 0.0f) tail = std::max(tail, speed * tau - wavelength);
    if (v[WAVE_DURATION] > 0.0f) tail = std::max(tail, speed * (tau - v[WAVE_DURATION] / frameRate));
    s.k = static_cast<float>(k);
    s.offset = static_cast<float>(std::fmod(v[WAVE_PHASE] * DEG_TO_RAD - k * speed * tau, kTwoPi));
    s.amplitude = v[WAVE_AMPLITUDE];
    s.damping = v[WAVE_DAMPING];
    s.front = static_cast<float>(speed * tau);
    s.tail = static_cast<float>(tail);
    s.moves = s.front >= s.tail;
    return s;
}

inline float heightAt(const WaveShape &s, float d) {
    if (d > s.front || d < s.tail) return 0.0f;
    const float h = s.amplitude * sinf(s.k * d + s.offset);
    return s.damping > 0.0f ? h * expf(-s.damping * d) : h;
}

// v (a direction) through the upper 3 x 3 of m.
void vectorMul(const float v[3], const float m[4][4], float out[3]) {
    float r[3];
    for (int k = 0; k < 3; ++k)
        r[k] = static_cast<float>(static_cast<double>(v[0]) * m[0][k] + static_cast<double>(v[1]) * m[1][k] +
                                  static_cast<double>(v[2]) * m[2][k]);
    memcpy(out, r, sizeof r);
}

float sceneFrameRate() {
    const float rate = sceneStateCurrent().playCtrl.framesPerSecond;
    return rate > 0.0f ? rate : 30.0f;
}

}  // namespace

void waveUpdate(Wave *wave, float time) {
    if (!wave) return;
    for (int i = 0; i < WAVE_PARAM_COUNT; ++i) {
        Fcurve *c = wave->curve[i];
        // A curve without keys leaves the file's value standing.
        wave->current[i] = c && c->keyCount > 0 ? waveParamTake(i, fcurveValue(c, time, 1)) : wave->value[i];
    }
    wave->currentTime = time;
}

void waveBind(Dictionary *dict, int32_t waveIndex) {
    Element *e = elemGet(dict, CHP_WAVES, waveIndex);
    Wave *wave = e ? static_cast<Wave *>(e->data) : nullptr;
    if (!wave) return;
    int32_t chapter = -1, index = -1;
    for (Element *c = relFirstInGroup(dict, e, 1, RELGR_PARAM, 614, 615, CHP_ANIMATION, &chapter, &index); c;
         c = relNextInGroup(dict, e, 1, RELGR_PARAM, 614, 615, CHP_ANIMATION, &chapter, &index)) {
        // Curve elements (below their file's element) hold one curve each.
        if (c->lev == 0 || !c->data) continue;
        auto *curve = static_cast<Fcurve *>(c->data);
        const int param = waveParamIndex(curve->type);
        if (param >= 0) wave->curve[param] = curve;
    }
    wave->bound = 1;
}

void waveParamRecord(UpdateRecord *record, float time, int *) {
    auto *wave = static_cast<Wave *>(record->data);
    if (!wave) return;
    forEachSourceCurve(record, [&](Fcurve *c) {
        const int param = waveParamIndex(c->type);
        if (param >= 0) {
            wave->curve[param] = c;
            fcurveValue(c, time, 1);  // its cached value current
        }
        return true;
    });
}

void waveRecord(UpdateRecord *record, float time, int *flags) {
    auto *model = static_cast<Model *>(record->data);
    const UpdateSource *source = waveSourceOf(record);
    if (!model || !source) return;
    auto *wave = static_cast<Wave *>(source->data);
    // The wave's curves are listed after the models it moves: the first
    // walk finds them through the scene's relations.
    if (!wave->bound && walkState().dict) waveBind(walkState().dict, source->element);
    waveUpdate(wave, time);
    if (wave->current[WAVE_ACTIVE] <= 0.0f) return;
    ModelDeformers *deformers = modelDeformersOf(model);
    if (!deformers) return;
    const int slot = deformSlotOf(record->relation);
    deformers->slot[slot].wave = wave;
    deformSlotMark(deformers, slot, flags);
}

int waveApply(Model *model, int slot, float (*points)[3], int32_t count, float time) {
    if (!model || !model->deformers || slot < 0 || slot >= DEFORM_SLOT_COUNT) return 0;
    Wave *wave = model->deformers->slot[slot].wave;
    if (!wave || !wave->transfo) return 0;
    waveUpdate(wave, time);
    const WaveShape s = shapeAt(*wave, time, sceneFrameRate());
    if (!s.moves || !points || count <= 0) return 1;

    // The points are in the model's frame (local form) or in the world
    // (global form): the wave's centre, direction and axes are brought there.
    float toSlot[4][4];
    if (slot == DEFORM_SLOT_LOCAL) {
        if (!mat4Inverse(model->globalMatrix, toSlot)) return 0;
    } else {
        mat4Identity(toSlot);
    }
    const float (*w)[4] = wave->transfo->globalMatrix;
    float centre[3];
    pointMul(w[3], toSlot, centre);
    const float *v = wave->current;
    const double angle = v[WAVE_DIRECTION] * DEG_TO_RAD;
    const float along[3] = {static_cast<float>(std::cos(angle)), 0.0f, static_cast<float>(-std::sin(angle))};
    float direction[3];
    vectorMul(along, w, direction);
    vectorMul(direction, toSlot, direction);
    const double length = std::sqrt(double(direction[0]) * direction[0] + double(direction[1]) * direction[1] +
                                    double(direction[2]) * direction[2]);
    const bool planar = v[WAVE_PLANAR] > 0.0f;
    if (planar && length <= 0.0) return 1;
    for (float &c : direction) c = planar ? static_cast<float>(c / length) : 0.0f;
    float axis[3] = {0.0f, 0.0f, 0.0f};
    for (int k = 0; k < 3; ++k)
        if (v[WAVE_MOVE_X + k] > 0.0f)
            for (int j = 0; j < 3; ++j) axis[j] += w[k][j];
    vectorMul(axis, toSlot, axis);

    for (int32_t i = 0; i < count; ++i) {
        float *p = points[i];
        const float dx = p[0] - centre[0], dy = p[1] - centre[1], dz = p[2] - centre[2];
        const float d = planar ? dx * direction[0] + dy * direction[1] + dz * direction[2]
                               : sqrtf(dx * dx + dy * dy + dz * dz);
        const float h = heightAt(s, d);
        p[0] += h * axis[0];
        p[1] += h * axis[1];
        p[2] += h * axis[2];
    }
    return 1;
}

void waveSceneInstall() {
    sceneChapterReaderSet(CHP_WAVES, readWave, freeWave);
    g_evalHooks.waveTransfo = transfoOf;
}
