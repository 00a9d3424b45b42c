// Shape and cluster animation. A model's shape keys are whole copies of its
// points; relation 200 blends them by a key index (linear, cubic) or by one
// weight per key, relation 700 moves the points of the model's clusters from
// their rest place by offsets blended the same way. Every frame works on the
// point arrays read when the keys were attached: nothing is allocated and no
// geometry record of a key is read.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "animation.h"
#include "geometry.h"
#include "model.h"
#include "tol.h"

namespace {

// ---------------------------------------------------------------------------
// Per-type work

// Vertex data of a mesh that are no points: the corners' texture coordinates
// follow the key pair linearly in the linear and the cubic form.
void meshNodesBlend(void *geometry, const void *from, const void *to, double f) {
    Mesh *m = static_cast<Mesh *>(geometry);
    const Mesh *a = static_cast<const Mesh *>(from), *b = static_cast<const Mesh *>(to);
    if (!m || !a || !b || a->polygonCount != m->polygonCount || b->polygonCount != m->polygonCount) return;
    for (int32_t p = 0; p < m->polygonCount; ++p) {
        MeshPolygon &out = m->polygons[p];
        const MeshPolygon &pa = a->polygons[p], &pb = b->polygons[p];
        if (pa.nodeCount != out.nodeCount || pb.nodeCount != out.nodeCount) continue;
        for (int n = 0; n < out.nodeCount; ++n) {
            out.nodes[n].u = static_cast<float>(pa.nodes[n].u + (pb.nodes[n].u - pa.nodes[n].u) * f);
            out.nodes[n].v = static_cast<float>(pa.nodes[n].v + (pb.nodes[n].v - pa.nodes[n].v) * f);
        }
    }
}

using NodeBlend = void (*)(void *geometry, const void *from, const void *to, double f);

// The types whose geometry shapes and clusters animate, with what each has
// besides its points.
#define BW_SHAPE_TYPES(X)                 \
    X(MODEL_PATCH, nullptr)               \
    X(MODEL_FACE, nullptr)                \
    X(MODEL_MESH, meshNodesBlend)         \
    X(MODEL_SPLINE, nullptr)              \
    X(MODEL_NURBS_CURVE, nullptr)         \
    X(MODEL_NURBS_SURFACE, nullptr)

struct ShapeType {
    bool animated;     // in the list above
    NodeBlend nodes;   // vertex data other than points; null for none
};

struct ShapeTypeTable {
    ShapeType rows[MODEL_TYPE_END] = {};
    ShapeTypeTable() {
#define BW_SHAPE_TYPE_ROW(type, nodes) rows[type] = {true, nodes};
        BW_SHAPE_TYPES(BW_SHAPE_TYPE_ROW)
#undef BW_SHAPE_TYPE_ROW
    }
};

const ShapeType *shapeTypeOf(int32_t type) {
    static const ShapeTypeTable table;
    if (type < 0 || type >= MODEL_TYPE_END || !table.rows[type].animated) return nullptr;
    return &table.rows[type];
}

// ---------------------------------------------------------------------------
// Curves of a record

// The value of a curve at `time`. A curve without keys carries what its
// driver (an expression, a channel) last put into it.
double curveValue(Fcurve *c, float time) {
    if (c->keyCount == 0) return c->lastValue;
    return fcurveValue(c, time, 1);
}

// The record's active curve sources of `type`, one after the other.
struct CurveCursor {
    const UpdateRecord *record;
    int at = 0;
    Fcurve *next(int32_t type) {
        for (; at < record->sourceCount; ++at) {
            const UpdateSource &s = record->sources[at];
            if (!s.active || s.chapter != CHP_ANIMATION || !s.data) continue;
            Fcurve *c = static_cast<Fcurve *>(s.data);
            if (c->type != type) continue;
            ++at;
            return c;
        }
        return nullptr;
    }
};

// ---------------------------------------------------------------------------
// Key pairs

struct KeyPick {
    int32_t k0, k1, k2, k3;  // outer and inner keys, 1 up
    double f;                // fraction between k1 and k2
};

// The keys about `value` among keys 1 to `last`: the integer part cut toward
// zero gives the pair, the outer keys repeat the ends.
KeyPick keysAbout(double value, int32_t last) {
    KeyPick p;
    const double i = std::trunc(value);
    p.f = value - i;
    auto clamp = [last](double k) { return static_cast<int32_t>(k < 1 ? 1 : (k > last ? last : k)); };
    p.k1 = clamp(i + 1);
    p.k2 = clamp(i + 2);
    p.k0 = p.k1 > 1 ? p.k1 - 1 : p.k1;
    p.k3 = p.k2 < last ? p.k2 + 1 : p.k2;
    return p;
}

// Catmull-Rom weights of the four keys at t.
void cubicWeights(double t, double w[4]) {
    const double t2 = t * t, t3 = t2 * t;
    w[0] = t2 - t3 / 2 - t / 2;
    w[1] = 1.5 * t3 - 2.5 * t2 + 1;
    w[2] = 2 * t2 - 1.5 * t3 + t / 2;
    w[3] = t3 / 2 - t2 / 2;
}

// out = sum of weights[k] x rows[k] over n values (the k with a non-zero weight).
void blend(double *out, const double *const *rows, const double *weights, int count, size_t n) {
    for (size_t v = 0; v < n; ++v) {
        double sum = 0;
        for (int k = 0; k < count; ++k) sum += weights[k] * rows[k][v];
        out[v] = sum;
    }
}

// Weights as the weighted form takes them: small ones are none unless they
// are absolute. Returns the sum of their magnitudes.
double weightSum(double *weights, int count, int absolute) {
    double sum = 0;
    for (int k = 0; k < count; ++k) {
        if (!absolute && weights[k] <= SHAPE_WEIGHT_EPSILON) weights[k] = 0;
        sum += std::fabs(weights[k]);
    }
    return sum;
}

void report(const char *text, uint32_t messageClass) { msgShow(text, messageClass); }

// ---------------------------------------------------------------------------
// Attaching keys

bool growWeights(ShapeAnim *a, int32_t needed) {
    if (needed <= a->weightCapacity) return true;
    auto *grown = static_cast<double *>(realloc(a->weights, sizeof(double) * static_cast<size_t>(needed)));
    if (!grown) return false;
    a->weights = grown;
    a->weightCapacity = needed;
    return true;
}

void keysDrop(ShapeAnim *a) {
    for (int32_t k = 1; a->points && k < a->shapeCount; ++k) free(a->points[k]);
    free(a->points);
    free(a->pointCounts);
    shapeKeysFree(a->keys);
    a->points = nullptr;
    a->pointCounts = nullptr;
    a->keys = nullptr;
    a->shapeCount = 1;
}

}  // namespace

ShapeAnim *shapeAnimOf(Model *model) {
    if (!model) return nullptr;
    if (model->shapeAnim) return model->shapeAnim;
    const int width = geometryPointWidth(model->type);
    const int32_t count = geometryPointCount(model->type, model->geometry.any);
    if (!shapeTypeOf(model->type) || width == 0 || count == 0 || !modelRestPoints(model)) return nullptr;
    auto *a = static_cast<ShapeAnim *>(calloc(1, sizeof(ShapeAnim)));
    double *scratch = static_cast<double *>(malloc(sizeof(double) * static_cast<size_t>(count) * width));
    if (!a || !scratch) {
        free(a);
        free(scratch);
        return nullptr;
    }
    a->shapeCount = 1;
    a->type = model->type;
    a->width = width;
    a->scratchCount = count;
    a->scratch = scratch;
    a->cubicBefore = 1;
    shapeSettingsRead(model, &a->interpolation, &a->absolute);
    model->shapeAnim = a;
    return a;
}

void shapeSettingsRead(const Model *model, int32_t *interpolation, uint16_t *absolute) {
    *interpolation = SHAPE_INTERP_LINEAR;
    *absolute = 0;
    if (!model || !model->shapes) return;
    const uint8_t *b = model->shapes;
    if (model->shapesSize >= 2) *interpolation = (b[0] << 8) | b[1];
    if (model->shapesSize >= 4) *absolute = static_cast<uint16_t>((b[2] << 8) | b[3]);
}

int shapeAnimAttach(Model *model, ShapeKeys *keys) {
    ShapeAnim *a = shapeAnimOf(model);
    if (!a || !keys) {
        shapeKeysFree(keys);
        return 0;
    }
    keysDrop(a);
    const int32_t shapes = keys->count + 1;
    a->keys = keys;
    a->pointCounts = static_cast<int32_t *>(calloc(static_cast<size_t>(shapes), sizeof(int32_t)));
    a->points = static_cast<double **>(calloc(static_cast<size_t>(shapes), sizeof(double *)));
    if (!a->pointCounts || !a->points || !growWeights(a, shapes)) {
        keysDrop(a);
        return 0;
    }
    a->shapeCount = shapes;
    a->pointCounts[0] = a->scratchCount;
    for (int32_t k = 1; k < shapes; ++k) {
        const ShapeKey &key = keys->keys[k - 1];
        a->pointCounts[k] = -1;
        if (!key.geometry || key.type != model->type) continue;
        const int32_t n = geometryPointCount(key.type, key.geometry);
        a->points[k] = static_cast<double *>(malloc(sizeof(double) * static_cast<size_t>(n > 0 ? n : 1) * a->width));
        if (!a->points[k]) {
            keysDrop(a);
            return 0;
        }
        geometryPointsRead(key.type, key.geometry, a->points[k]);
        a->pointCounts[k] = n;
    }
    a->pending = 1;
    return 1;
}

int clusterAttach(Model *model, Cluster *chain) {
    ShapeAnim *a = shapeAnimOf(model);
    int32_t keys = 0;
    for (const Cluster *c = chain; c; c = c->next) keys = c->keyCount > keys ? c->keyCount : keys;
    if (!a || !growWeights(a, keys)) {
        clusterFree(chain);
        return 0;
    }
    Cluster **tail = &model->clusterList;
    while (*tail) tail = &(*tail)->next;
    *tail = chain;
    return 1;
}

void shapeAnimFree(ShapeAnim *anim) {
    if (!anim) return;
    keysDrop(anim);
    free(anim->scratch);
    free(anim->weights);
    free(anim);
}

void *shapeGeometry(const Model *model, int32_t index) {
    if (!model) return nullptr;
    if (index == 0) return model->geometry.any;
    const ShapeAnim *a = model->shapeAnim;
    if (!a || !a->keys || index < 1 || index >= a->shapeCount) return nullptr;
    const ShapeKey &key = a->keys->keys[index - 1];
    return key.type == model->type ? key.geometry : nullptr;
}

// ---------------------------------------------------------------------------
// Relation 200

namespace {

// The key points to blend, if every one of them has the geometry's point
// count; null otherwise.
bool keysFit(const ShapeAnim *a, const int32_t *keys, int count, int32_t points) {
    for (int k = 0; k < count; ++k)
        if (a->pointCounts[keys[k]] != points || !a->points[keys[k]]) return false;
    return true;
}

void writeResult(Model *model, ShapeAnim *a) {
    geometryPointsWrite(model->type, model->geometry.any, a->scratch);
    modelGeometryChanged(model);
}

}  // namespace

void animShapeUpdate(UpdateRecord *record, float time) {
    Model *model = record ? static_cast<Model *>(record->data) : nullptr;
    ShapeAnim *a = model ? model->shapeAnim : nullptr;
    if (!a || a->shapeCount < 2 || !model->geometry.any) return;
    a->pending = 0;
    const ShapeType *type = shapeTypeOf(model->type);
    if (!type || model->type != a->type) {
        report("animShapeUpdate: Unknown object type!", TOL_CLASS_ERROR);
        return;
    }
    if (a->interpolation < SHAPE_INTERP_LINEAR || a->interpolation > SHAPE_INTERP_WEIGHTED) {
        report("Unknown shape interpolation type!", TOL_CLASS_ERROR);
        return;
    }
    if (a->interpolation == SHAPE_INTERP_WEIGHTED) {
        shapeWeighted(model, record, time);
        return;
    }
    CurveCursor curves{record};
    Fcurve *c = curves.next(SHAPE_CURVE_KEY);
    if (!c) return;
    const KeyPick p = keysAbout(curveValue(c, time), a->shapeCount - 1);
    const int32_t points = geometryPointCount(model->type, model->geometry.any);
    if (points > a->scratchCount) return;
    const size_t n = static_cast<size_t>(points) * static_cast<size_t>(a->width);
    const bool cubic = a->interpolation == SHAPE_INTERP_CUBIC && !(p.k0 == p.k1 && p.k2 == p.k3);
    if (cubic) {
        const int32_t keys[4] = {p.k0, p.k1, p.k2, p.k3};
        if (!keysFit(a, keys, 4, points)) return;
        double w[4];
        cubicWeights(p.f, w);
        const double *rows[4] = {a->points[p.k0], a->points[p.k1], a->points[p.k2], a->points[p.k3]};
        blend(a->scratch, rows, w, 4, n);
        a->cubicBefore = p.k0;
    } else {
        const int32_t keys[2] = {p.k1, p.k2};
        if (!keysFit(a, keys, 2, points)) return;
        const double *s1 = a->points[p.k1], *s2 = a->points[p.k2];
        for (size_t v = 0; v < n; ++v) a->scratch[v] = s1[v] + (s2[v] - s1[v]) * p.f;
    }
    if (type->nodes) type->nodes(model->geometry.any, shapeGeometry(model, p.k1), shapeGeometry(model, p.k2), p.f);
    writeResult(model, a);
}

void shapeWeighted(Model *model, UpdateRecord *record, float time) {
    ShapeAnim *a = model ? model->shapeAnim : nullptr;
    if (!a || a->shapeCount < 2 || a->weightCapacity < a->shapeCount - 1) return;
    const int keys = a->shapeCount - 1;
    double *w = a->weights;
    CurveCursor curves{record};
    for (int j = 0; j < keys; ++j) {
        Fcurve *c = curves.next(SHAPE_CURVE_WEIGHT);
        w[j] = c ? curveValue(c, time) : 0.0;
    }
    const double sum = weightSum(w, keys, a->absolute);
    if (sum <= SHAPE_WEIGHT_EPSILON) return;
    const int32_t points = geometryPointCount(model->type, model->geometry.any);
    if (points > a->scratchCount) return;
    for (int j = 0; j < keys; ++j)
        if ((std::fabs(w[j]) > SHAPE_WEIGHT_EPSILON || (a->absolute && j == 0)) &&
            (a->pointCounts[j + 1] != points || !a->points[j + 1]))
            return;
    const size_t n = static_cast<size_t>(points) * static_cast<size_t>(a->width);
    memset(a->scratch, 0, n * sizeof(double));
    for (int j = 0; j < keys; ++j) {
        if (std::fabs(w[j]) <= SHAPE_WEIGHT_EPSILON) continue;
        const double k = a->absolute ? w[j] : w[j] / sum;
        const double *s = a->points[j + 1];
        for (size_t v = 0; v < n; ++v) a->scratch[v] += k * s[v];
    }
    if (a->absolute) {
        // What the weights leave of the whole goes to the first key.
        const double rest = 1.0 - sum;
        const double *s = a->points[1];
        for (size_t v = 0; v < n; ++v) a->scratch[v] += rest * s[v];
    }
    writeResult(model, a);
}

// ---------------------------------------------------------------------------
// Relation 700

int clusterKeyEval(const Cluster *cluster, int32_t pointIndex, int mode, double keyValue,
                   const double *weights, int absolute, double *offset) {
    const int pf = cluster ? clusterPointFloats(cluster->type) : 0;
    if (!pf || !cluster->keys || cluster->keyCount < 1 || pointIndex < 0 || pointIndex >= cluster->pointCount)
        return 0;
    const size_t stride = static_cast<size_t>(cluster->pointCount) * pf;  // floats of one key
    auto at = [&](int32_t key) { return cluster->keys + (key - 1) * stride + static_cast<size_t>(pointIndex) * pf; };
    if (mode == SHAPE_INTERP_WEIGHTED) {
        if (!weights) return 0;
        double sum = 0;
        for (int32_t k = 0; k < cluster->keyCount; ++k) sum += std::fabs(weights[k]);
        for (int v = 0; v < pf; ++v) offset[v] = 0;
        if (sum <= SHAPE_WEIGHT_EPSILON) return 1;
        for (int32_t k = 0; k < cluster->keyCount; ++k) {
            if (std::fabs(weights[k]) <= SHAPE_WEIGHT_EPSILON) continue;
            const double w = absolute ? weights[k] : weights[k] / sum;
            const float *o = at(k + 1);
            for (int v = 0; v < pf; ++v) offset[v] += w * o[v];
        }
        if (absolute) {
            const float *o = at(1);
            for (int v = 0; v < pf; ++v) offset[v] += (1.0 - sum) * o[v];
        }
        return 1;
    }
    const KeyPick p = keysAbout(keyValue, cluster->keyCount);
    if (mode == SHAPE_INTERP_CUBIC && !(p.k0 == p.k1 && p.k2 == p.k3)) {
        double w[4];
        cubicWeights(p.f, w);
        const float *o[4] = {at(p.k0), at(p.k1), at(p.k2), at(p.k3)};
        for (int v = 0; v < pf; ++v) offset[v] = w[0] * o[0][v] + w[1] * o[1][v] + w[2] * o[2][v] + w[3] * o[3][v];
        return 1;
    }
    const float *o1 = at(p.k1), *o2 = at(p.k2);
    for (int v = 0; v < pf; ++v) offset[v] = o1[v] + (static_cast<double>(o2[v]) - o1[v]) * p.f;
    return 1;
}

namespace {

constexpr char kClusterFailure[] = "Unable to animate that cluster...";

// The cluster's key position or weights from the record's next curves: one
// curve 201, or one curve 202 per key. 0 when its curves are missing.
int clusterCurves(CurveCursor &curves, const Cluster *c, int mode, float time, ShapeAnim *a,
                  double *keyValue) {
    if (mode != SHAPE_INTERP_WEIGHTED) {
        Fcurve *curve = curves.next(SHAPE_CURVE_KEY);
        if (!curve) return 0;
        *keyValue = curveValue(curve, time);
        return 1;
    }
    if (c->keyCount > a->weightCapacity) return 0;
    int found = 0;
    for (int32_t k = 0; k < c->keyCount; ++k) {
        Fcurve *curve = curves.next(SHAPE_CURVE_WEIGHT);
        a->weights[k] = curve ? curveValue(curve, time) : 0.0;
        found += curve != nullptr;
    }
    weightSum(a->weights, c->keyCount, a->absolute);
    return found > 0;
}

// Every point of the cluster names a point of the geometry in the form of
// the model's type.
bool clusterFits(const Cluster *c, const Model *model, int width, int32_t points) {
    if (c->type != model->type || clusterPointFloats(c->type) != width || !c->keys || !c->indexes) return false;
    for (int32_t i = 0; i < c->pointCount; ++i)
        if (c->indexes[i] < 0 || c->indexes[i] >= points) return false;
    return true;
}

}  // namespace

void clusterAnimUpdate(UpdateRecord *record, float time) {
    Model *model = record ? static_cast<Model *>(record->data) : nullptr;
    if (!model || !model->clusterList || !model->geometry.any) return;
    ShapeAnim *a = model->shapeAnim;
    const DeformRest *rest = model->rest;
    if (!a || !rest || rest->type != model->type || !a->scratch) return;
    if (!shapeTypeOf(model->type)) {
        report("animShapeUpdate: Unknown object type!", TOL_CLASS_ERROR);
        return;
    }
    const int32_t points = geometryPointCount(model->type, model->geometry.any);
    if (points != rest->count || points > a->scratchCount) return;
    const int width = rest->width;
    const int mode = a->interpolation;
    // Points outside every cluster keep what the frame gave them so far.
    geometryPointsRead(model->type, model->geometry.any, a->scratch);
    CurveCursor curves{record};
    bool moved = false;
    double offset[9];
    for (const Cluster *c = model->clusterList; c; c = c->next) {
        double keyValue = 0;
        if (!clusterCurves(curves, c, mode, time, a, &keyValue)) continue;
        if (mode < SHAPE_INTERP_LINEAR || mode > SHAPE_INTERP_WEIGHTED || !clusterFits(c, model, width, points)) {
            report(kClusterFailure, TOL_CLASS_WARNING);
            continue;
        }
        for (int32_t i = 0; i < c->pointCount; ++i) {
            if (!clusterKeyEval(c, i, mode, keyValue, a->weights, a->absolute, offset)) break;
            const size_t at = static_cast<size_t>(c->indexes[i]) * width;
            for (int v = 0; v < width; ++v) a->scratch[at + v] = rest->values[at + v] + offset[v];
        }
        moved = true;
    }
    if (moved) writeResult(model, a);
}
