// Curve and surface deformations: a model laid along a curve or over a
// surface. The records (245, 246) only name the driver in the model's slot;
// the points are rewritten from the slot's data by curveDeformApply.
//
// Along a curve, the x range of the model's rest points runs along the
// curve's arc length and a point's y and z become offsets in the curve's
// moving frame. Over a surface, the rest x and y ranges run over the
// surface's u and v, and z becomes an offset along its normal.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <vector>

#include "curve_deform_internal.h"
#include "geometry.h"
#include "model.h"
#include "updatelist_internal.h"

namespace {

constexpr int FRAME_SAMPLES = 256;  // extra samples that carry the moving frame between points
constexpr double DEGENERATE = 1e-12;

// The block of a slot no 230/231 record wrote: the whole curve, untwisted,
// at full strength.
const DeformerBlock &defaultBlock() {
    static const DeformerBlock block = [] {
        DeformerBlock b{};
        b.scale[0] = b.scale[1] = b.scale[2] = 1.0f;
        b.extra[0] = 1.0f;  // strength
        b.extra[1] = 0.0f;  // start, a fraction of the curve's length
        b.extra[2] = 1.0f;  // length covered, a fraction of the curve's length
        for (int i = 0; i < 4; ++i) b.matrix[i][i] = 1.0f;
        b.falloff = 1.0f;
        return b;
    }();
    return block;
}

// The frames a deformation works between. Local form: the model's own frame;
// global form: world space.
struct Space {
    float toWork[4][4];    // model frame to the working space
    float fromWork[4][4];  // and back
    float driver[4][4];    // the driver's own coordinates to the working space
};

bool spaceMake(const Model *model, const Model *driver, int slot, Space *sp) {
    float inverse[4][4];
    if (!mat4Inverse(model->globalMatrix, inverse)) return false;
    if (slot == DEFORM_SLOT_GLOBAL) {
        mat4Copy(sp->toWork, model->globalMatrix);
        mat4Copy(sp->fromWork, inverse);
        mat4Copy(sp->driver, driver->globalMatrix);
    } else {
        mat4Identity(sp->toWork);
        mat4Identity(sp->fromWork);
        mat4Mul(driver->globalMatrix, inverse, sp->driver);
    }
    return true;
}

void dirMul(const double v[3], const float m[4][4], double out[3]) {
    for (int k = 0; k < 3; ++k) out[k] = v[0] * m[0][k] + v[1] * m[1][k] + v[2] * m[2][k];
}
double dot(const double a[3], const double b[3]) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
void cross(const double a[3], const double b[3], double out[3]) {
    out[0] = a[1] * b[2] - a[2] * b[1];
    out[1] = a[2] * b[0] - a[0] * b[2];
    out[2] = a[0] * b[1] - a[1] * b[0];
}
bool normalise(double v[3]) {
    const double len = std::sqrt(dot(v, v));
    if (len < DEGENERATE) return false;
    for (int k = 0; k < 3; ++k) v[k] /= len;
    return true;
}

// The extent of the model's rest points in the working space; the given
// points when the model keeps no rest copy.
void restRange(Model *model, const Space &sp, const float (*points)[3], int32_t count, double lo[3], double hi[3]) {
    for (int k = 0; k < 3; ++k) lo[k] = HUGE_VAL, hi[k] = -HUGE_VAL;
    auto take = [&](const float p[3]) {
        float w[3];
        pointMul(p, sp.toWork, w);
        for (int k = 0; k < 3; ++k) lo[k] = std::min(lo[k], double{w[k]}), hi[k] = std::max(hi[k], double{w[k]});
    };
    const DeformRest *rest = modelRestPoints(model);
    if (rest && rest->count > 0 && rest->width >= 3) {
        for (int32_t i = 0; i < rest->count; ++i) {
            const double *v = rest->values + static_cast<size_t>(i) * static_cast<size_t>(rest->width);
            const float p[3] = {static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2])};
            take(p);
        }
    } else {
        for (int32_t i = 0; i < count; ++i) take(points[i]);
    }
}

// Where a coordinate stands in [lo, hi], 0 to 1; 0 for an empty range.
double fraction(double x, double lo, double hi) { return hi - lo > DEGENERATE ? (x - lo) / (hi - lo) : 0.0; }

// Mixes the working-space point toward its deformed place by the strength
// and writes it back in the model's frame.
void settle(float out[3], const float work[3], const double deformed[3], float falloff, const Space &sp) {
    float mixed[3];
    for (int k = 0; k < 3; ++k) mixed[k] = static_cast<float>(work[k] + falloff * (deformed[k] - work[k]));
    pointMul(mixed, sp.fromWork, out);
}

// ---------------------------------------------------------------------------
// Along a curve

// The moving frame at each arc length: the tangent, and a normal carried
// along the curve by parallel transport from a fixed start (the working
// space's y axis for a curve along x), so that it never flips where the
// curve straightens or turns back.
struct Frame {
    double point[3], tangent[3], normal[3], binormal[3];
};

bool framesAlong(const Model *driver, const Space &sp, const std::vector<double> &lengths, std::vector<Frame> *frames) {
    const size_t n = lengths.size();
    std::vector<float> points(n * 3), tangents(n * 3);
    if (!curvePointsAtLengths(driver, lengths.data(), static_cast<int32_t>(n), reinterpret_cast<float (*)[3]>(points.data()),
                              reinterpret_cast<float (*)[3]>(tangents.data())))
        return false;
    std::vector<size_t> order(n);
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return lengths[a] < lengths[b]; });
    frames->assign(n, Frame{});
    const double *previous = nullptr;
    for (size_t i : order) {
        Frame &f = (*frames)[i];
        float at[3];
        pointMul(&points[i * 3], sp.driver, at);
        const double t[3] = {tangents[i * 3], tangents[i * 3 + 1], tangents[i * 3 + 2]};
        for (int k = 0; k < 3; ++k) f.point[k] = at[k];
        dirMul(t, sp.driver, f.tangent);
        if (!normalise(f.tangent)) f.tangent[0] = 1.0, f.tangent[1] = f.tangent[2] = 0.0;
        bool carried = false;
        if (previous) {
            const double d = dot(previous, f.tangent);
            for (int k = 0; k < 3; ++k) f.normal[k] = previous[k] - d * f.tangent[k];
            carried = normalise(f.normal);
        }
        if (!carried) {
            // The start: the binormal toward +z, or the normal toward +y for
            // a tangent along z.
            const double up[3] = {0, 0, 1}, side[3] = {0, 1, 0};
            const double d = dot(up, f.tangent);
            if (std::fabs(d) < 0.999) {
                double b[3] = {up[0] - d * f.tangent[0], up[1] - d * f.tangent[1], up[2] - d * f.tangent[2]};
                normalise(b);
                cross(b, f.tangent, f.normal);
            } else {
                const double e = dot(side, f.tangent);
                for (int k = 0; k < 3; ++k) f.normal[k] = side[k] - e * f.tangent[k];
                normalise(f.normal);
            }
        }
        cross(f.tangent, f.normal, f.binormal);
        previous = f.normal;
    }
    return true;
}

int alongCurve(Model *model, const Model *driver, const DeformerBlock &block, float falloff, const Space &sp,
               float (*points)[3], int32_t count) {
    const double length = curveLength(driver);
    if (!(length > 0.0)) return 0;
    double lo[3], hi[3];
    restRange(model, sp, points, count, lo, hi);
    const double start = double{block.extra[1]} * length;
    const double covered = double{block.extra[2]} * block.scale[0] * length;

    // The points' own arc lengths, then even samples between them that carry
    // the frame across gaps.
    const size_t n = static_cast<size_t>(count);
    std::vector<float> work(n * 3);
    std::vector<double> lengths(n + FRAME_SAMPLES);
    for (size_t i = 0; i < n; ++i) {
        pointMul(points[i], sp.toWork, &work[i * 3]);
        lengths[i] = start + fraction(work[i * 3], lo[0], hi[0]) * covered;
    }
    for (int j = 0; j < FRAME_SAMPLES; ++j) lengths[n + static_cast<size_t>(j)] = start + covered * j / (FRAME_SAMPLES - 1);
    std::vector<Frame> frames;
    if (!framesAlong(driver, sp, lengths, &frames)) return 0;

    const double c = std::cos(double{block.rotation}), s = std::sin(double{block.rotation});
    for (size_t i = 0; i < n; ++i) {
        const Frame &f = frames[i];
        const double y = double{work[i * 3 + 1]} * block.scale[1], z = double{work[i * 3 + 2]} * block.scale[2];
        const double a = y * c - z * s, b = y * s + z * c;  // twisted about the tangent
        double deformed[3];
        for (int k = 0; k < 3; ++k) deformed[k] = f.point[k] + a * f.normal[k] + b * f.binormal[k];
        settle(points[i], &work[i * 3], deformed, falloff, sp);
    }
    return 1;
}

// ---------------------------------------------------------------------------
// Over a surface

int overPatch(Model *model, const Model *driver, const DeformerBlock &block, float falloff, const Space &sp,
              float (*points)[3], int32_t count) {
    const Patch *patch = driver->geometry.patch;
    float probe[3], probeNormal[3];
    if (!patchPointAt(patch, 0.0, 0.0, probe, probeNormal)) return 0;
    double lo[3], hi[3];
    restRange(model, sp, points, count, lo, hi);
    // Normals go through the inverse transpose of the driver's matrix.
    float inverse[4][4];
    if (!mat4Inverse(sp.driver, inverse)) return 0;
    for (int32_t i = 0; i < count; ++i) {
        float work[3], pos[3], normal[3];
        pointMul(points[i], sp.toWork, work);
        patchPointAt(patch, fraction(work[0], lo[0], hi[0]), fraction(work[1], lo[1], hi[1]), pos, normal);
        float at[3];
        pointMul(pos, sp.driver, at);
        // The patch's normal faces dv x du; the offset goes along du x dv, so
        // that a patch spanning x by u and y by v keeps z pointing up.
        double n[3];
        for (int k = 0; k < 3; ++k)
            n[k] = -(normal[0] * double{inverse[k][0]} + normal[1] * double{inverse[k][1]} + normal[2] * double{inverse[k][2]});
        if (!normalise(n)) n[0] = n[1] = 0.0, n[2] = 1.0;
        const double z = double{work[2]} * block.scale[2];
        double deformed[3];
        for (int k = 0; k < 3; ++k) deformed[k] = at[k] + z * n[k];
        settle(points[i], work, deformed, falloff, sp);
    }
    return 1;
}

// The deformation of each kind of driver, by model type.
using DriverApply = int (*)(Model *, const Model *, const DeformerBlock &, float, const Space &, float (*)[3], int32_t);
struct DriverKind {
    int32_t type;       // the driver's model type
    DriverApply apply;  // how points follow it
};
const DriverKind DRIVER_KINDS[] = {
    {MODEL_SPLINE, alongCurve},
    {MODEL_NURBS_CURVE, alongCurve},
    {MODEL_PATCH, overPatch},
};

DriverApply driverApply(const Model *driver) {
    if (!driver || !driver->geometry.any) return nullptr;
    for (const DriverKind &k : DRIVER_KINDS)
        if (k.type == driver->type) return k.apply;
    return nullptr;
}

// The first driving model of a record.
Model *recordDriver(const UpdateRecord *record) {
    for (int i = 0; i < record->sourceCount; ++i) {
        const UpdateSource &s = record->sources[i];
        if (s.chapter == CHP_MODELS && s.data && s.active) return static_cast<Model *>(s.data);
    }
    return nullptr;
}

// Names the driver in the model's slot; the slot, or -1 when there is none.
int driverSet(Model *model, Model *driver) {
    ModelDeformers *deformers = modelDeformersOf(model);
    if (!deformers) return -1;
    const int slot = curveDeformSlot(deformers);
    deformers->slot[slot].curve = driver;
    return slot;
}

// Each descendant is deformed at once through its own slot, as its -200
// would: from its rest copy unless another writer moved its points.
void descendantsDeform(Model *model, Model *driver, float time) {
    for (Model *child = model->firstChild; child; child = child->nextSibling) {
        if (child != driver) {
            const int slot = driverSet(child, driver);
            if (slot >= 0) {
                deformSlotMark(child->deformers, slot, nullptr);
                deformersApplyNow(child, time);
            }
        }
        descendantsDeform(child, driver, time);
    }
}

}  // namespace

bool curveDeformDriver(const Model *driver) { return driverApply(driver) != nullptr; }

int curveDeformSlot(const ModelDeformers *deformers) {
    const bool local = deformers->slot[DEFORM_SLOT_LOCAL].curveBlock.present != 0;
    const bool global = deformers->slot[DEFORM_SLOT_GLOBAL].curveBlock.present != 0;
    return global && !local ? DEFORM_SLOT_GLOBAL : DEFORM_SLOT_LOCAL;
}

int curveDeformApply(Model *model, int slot, float (*points)[3], int32_t count) {
    if (!model || !model->deformers || slot < 0 || slot >= DEFORM_SLOT_COUNT || !points || count <= 0) return 0;
    const DeformSlotData &data = model->deformers->slot[slot];
    const Model *driver = data.curve;
    const DriverApply apply = driverApply(driver);
    if (!apply || driver == model) return 0;
    const DeformerBlock &block = data.curveBlock.present ? data.curveBlock : defaultBlock();
    const float falloff = std::clamp(block.falloff, 0.0f, 1.0f);
    if (falloff == 0.0f) return 1;  // no strength: the points stay
    Space sp;
    if (!spaceMake(model, driver, slot, &sp)) return 0;
    return apply(model, driver, block, falloff, sp, points, count);
}

void curveDeformRecord(UpdateRecord *record, float, int *flags) {
    Model *model = static_cast<Model *>(record->data);
    Model *driver = recordDriver(record);
    if (!model || record->chapter != CHP_MODELS || !curveDeformDriver(driver) || driver == model) return;
    const int slot = driverSet(model, driver);
    if (slot < 0) return;
    deformSlotMark(model->deformers, slot, flags);
}

void constraintDeformation(UpdateRecord *record, float time, int *flags) {
    // The model itself waits for its -200 like any 245; its descendants have
    // no walk word of their own here, so they are deformed at once, each from
    // its own slot.
    curveDeformRecord(record, time, flags);
    Model *model = static_cast<Model *>(record->data);
    Model *driver = recordDriver(record);
    if (!model || record->chapter != CHP_MODELS || !curveDeformDriver(driver)) return;
    descendantsDeform(model, driver, time);
}

void customDeformerRecord(UpdateRecord *, float, int *) {}
