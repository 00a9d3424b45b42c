// Paths: a model, camera or light placed on a curve at a percentage of its
// length given by a function curve, and a position sampled from a curve at
// the time. Curves are spline models (cubic segments between vertices, with
// the vertices' tangents as handles) and NURBS curve models.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "camera.h"
#include "constraint_internal.h"
#include "model.h"

namespace {

constexpr int SAMPLES_PER_SPAN = 128;  // arc length samples per spline segment or knot span
constexpr int MAX_DEGREE = 31;

// ---------------------------------------------------------------------------
// Splines: segment i runs from vertex i to the next (the first again on a
// closed spline) as a cubic with the handles pos + tanOut and next + tanIn.

int splineSegments(const Spline *s) {
    if (!s || !s->vertices || s->vertexCount < 2) return 0;
    return s->closed ? s->vertexCount : s->vertexCount - 1;
}

void splinePoint(const Spline *s, double u, double out[3]) {
    const int segments = splineSegments(s);
    int seg = static_cast<int>(std::floor(u));
    if (seg < 0) seg = 0;
    if (seg > segments - 1) seg = segments - 1;
    const double t = u - seg, r = 1.0 - t;
    const SplineVertex &a = s->vertices[seg];
    const SplineVertex &b = s->vertices[(seg + 1) % s->vertexCount];
    const double w0 = r * r * r, w1 = 3 * t * r * r, w2 = 3 * t * t * r, w3 = t * t * t;
    for (int k = 0; k < 3; ++k)
        out[k] = w0 * a.pos[k] + w1 * (static_cast<double>(a.pos[k]) + a.tanOut[k]) +
                 w2 * (static_cast<double>(b.pos[k]) + b.tanIn[k]) + w3 * b.pos[k];
}

// ---------------------------------------------------------------------------
// NURBS curves

struct Knots {
    std::vector<double> k;  // cvCount + degree + 1 values
    int degree = 0, count = 0;
    double first = 0.0, last = 0.0;  // the domain
};

// Full knot vectors, or ones without their two outer knots.
bool knotsOf(const NurbsCurve *c, Knots *out) {
    if (!c || !c->cvs || !c->knots || c->degree < 1 || c->degree > MAX_DEGREE || c->cvCount <= c->degree)
        return false;
    const int full = c->cvCount + c->degree + 1;
    if (c->knotCount == full) {
        out->k.assign(c->knots, c->knots + full);
    } else if (c->knotCount == full - 2) {
        out->k.assign(1, c->knots[0]);
        out->k.insert(out->k.end(), c->knots, c->knots + c->knotCount);
        out->k.push_back(c->knots[c->knotCount - 1]);
    } else {
        return false;
    }
    for (int i = 0; i + 1 < full; ++i)
        if (!(out->k[static_cast<size_t>(i)] <= out->k[static_cast<size_t>(i) + 1])) return false;
    out->degree = c->degree;
    out->count = c->cvCount;
    out->first = out->k[static_cast<size_t>(c->degree)];
    out->last = out->k[static_cast<size_t>(c->cvCount)];
    return out->last > out->first;
}

// de Boor's scheme on homogeneous points (x w, y w, z w, w), then the
// division by the weight. Outside the domain the end spans go on.
bool nurbsPoint(const NurbsCurve *c, const Knots &K, double t, double out[3]) {
    const int p = K.degree;
    int span = p;
    while (span < K.count - 1 && t >= K.k[static_cast<size_t>(span) + 1]) ++span;
    double d[MAX_DEGREE + 1][4];
    for (int j = 0; j <= p; ++j) {
        const double *cv = c->cvs[span - p + j];
        d[j][0] = cv[0] * cv[3], d[j][1] = cv[1] * cv[3], d[j][2] = cv[2] * cv[3], d[j][3] = cv[3];
    }
    for (int r = 1; r <= p; ++r)
        for (int j = p; j >= r; --j) {
            const double lo = K.k[static_cast<size_t>(span - p + j)];
            const double hi = K.k[static_cast<size_t>(span + 1 + j - r)];
            const double a = hi > lo ? (t - lo) / (hi - lo) : 0.0;
            for (int k = 0; k < 4; ++k) d[j][k] = (1.0 - a) * d[j - 1][k] + a * d[j][k];
        }
    if (d[p][3] == 0.0) return false;
    for (int k = 0; k < 3; ++k) out[k] = d[p][k] / d[p][3];
    return true;
}

// ---------------------------------------------------------------------------
// One curve, whichever kind, over a parameter from 0 to `span`.

struct CurveEval {
    const Model *model = nullptr;
    Knots knots;     // NURBS only
    double span = 0; // parameter range: spline segments, or NURBS CVs less one
    bool nurbs = false;

    bool make(const Model *m) {
        model = m;
        if (!m || !m->geometry.any) return false;
        if (m->type == MODEL_SPLINE) {
            span = splineSegments(m->geometry.spline);
            return span > 0;
        }
        if (m->type == MODEL_NURBS_CURVE && knotsOf(m->geometry.curve, &knots)) {
            nurbs = true;
            span = knots.count - 1;
            return true;
        }
        return false;
    }
    bool at(double u, double out[3]) const {
        if (!nurbs) {
            splinePoint(model->geometry.spline, u, out);
            return true;
        }
        double t = knots.first + (knots.last - knots.first) * u / span;
        return nurbsPoint(model->geometry.curve, knots, t, out);
    }
    int samples() const { return static_cast<int>(span) * SAMPLES_PER_SPAN; }
};

double distance3(const double a[3], const double b[3]) {
    return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) + (a[2] - b[2]) * (a[2] - b[2]));
}

// The cumulative arc length at each sample of the parameter.
struct LengthTable {
    std::vector<double> length;  // at sample j, parameter j * step
    double step = 0;
};

bool lengthTable(const CurveEval &c, LengthTable *t) {
    const int n = c.samples();
    if (n <= 0) return false;
    t->step = c.span / n;
    t->length.assign(static_cast<size_t>(n) + 1, 0.0);
    double prev[3], cur[3];
    if (!c.at(0.0, prev)) return false;
    for (int j = 1; j <= n; ++j) {
        if (!c.at(j * t->step, cur)) return false;
        t->length[static_cast<size_t>(j)] = t->length[static_cast<size_t>(j) - 1] + distance3(prev, cur);
        memcpy(prev, cur, sizeof prev);
    }
    return true;
}

// The point at arc length s, and the unit tangent there, on the curve
// measured by `t`.
bool pointAtLength(const CurveEval &c, const LengthTable &t, double s, double point[3], double tangent[3]) {
    const double total = t.length.back();
    const size_t n = t.length.size() - 1;
    size_t j = 0;
    if (s >= total) {
        j = n - 1;
        while (j > 0 && t.length[j] >= t.length[j + 1]) --j;
    } else if (s > 0.0) {
        while (j + 1 < n && t.length[j + 1] <= s) ++j;
    }
    double a[3], b[3];
    if (!c.at(j * t.step, a) || !c.at((j + 1) * t.step, b)) return false;
    const double chord = t.length[j + 1] - t.length[j];
    for (int k = 0; k < 3; ++k) tangent[k] = chord > 0.0 ? (b[k] - a[k]) / chord : 0.0;
    // The parameter between the two samples by length; at an end, the end.
    const double f = s < 0.0 ? 0.0 : s >= total ? 1.0 : chord > 0.0 ? (s - t.length[j]) / chord : 0.0;
    const double u = (j + f) * t.step;
    // The tangent by a difference over half a sample each way, kept inside
    // the curve: finer than the chord of the samples.
    double before[3], after[3];
    if (c.at(std::max(0.0, u - 0.5 * t.step), before) && c.at(std::min(c.span, u + 0.5 * t.step), after)) {
        double d[3] = {after[0] - before[0], after[1] - before[1], after[2] - before[2]};
        const double len = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
        if (len > 0.0)
            for (int k = 0; k < 3; ++k) tangent[k] = d[k] / len;
    }
    if (s < 0.0 || s >= total) {
        // Beyond the ends the curve goes on straight along its end tangent.
        const double *end = s < 0.0 ? a : b;
        const double beyond = s < 0.0 ? s : s - total;
        for (int k = 0; k < 3; ++k) point[k] = end[k] + tangent[k] * beyond;
        return true;
    }
    return c.at(u, point);
}

// ---------------------------------------------------------------------------
// Notes of paths for the normal constraint of the same model

std::mutex s_notesLock;
std::unordered_map<const Model *, PathNote> s_notes;

bool hasRelation(const Dictionary *dict, int32_t index, int32_t relid) {
    if (!dict || index < 0) return false;
    const Element *e = elemGet(const_cast<Dictionary *>(dict), CHP_MODELS, index);
    if (!e || !e->childGroups || e->childGroupCount <= RELGR_TRANSFO) return false;
    const RelationGroup &g = e->childGroups[RELGR_TRANSFO];
    for (int i = 0; i < g.count; ++i)
        if (g.items[i].relid == relid && g.items[i].activ) return true;
    return false;
}

bool goalDriven(const Model *m) {
    return (m->type == MODEL_TYPE_JOINT && m->kind == MODEL_KIND_CHAIN) ||
           (m->type == MODEL_TYPE_NULL && (m->kind == MODEL_KIND_EFFECTOR || m->kind == MODEL_KIND_EFFECTOR_2));
}

// Writes a curve point (in the curve's coordinates) into a model: its local
// position through pathToParent, or the goal of a joint or effector.
void placeModel(Model *model, const Model *curve, const float point[3]) {
    if (goalDriven(model)) {
        float world[3];
        pointMul(point, curve->globalMatrix, world);
        chainSetGoal(model, world[0], world[1], world[2]);
        return;
    }
    pathToParent(model, curve, point, model->translation);
    modelMarkDirty(model, TRANSFO_DIRTY_POSITION);
    modelGlobalUpdate(model->parent, model, 1);
}

// The first model and the first curve among the record's sources.
void pathSources(const UpdateRecord *record, Model **curve, Fcurve **percentage) {
    *curve = nullptr;
    *percentage = nullptr;
    for (int i = 0; i < record->sourceCount; ++i) {
        const UpdateSource &s = record->sources[i];
        if (!s.data) continue;
        if (s.chapter == CHP_MODELS && !*curve) *curve = static_cast<Model *>(s.data);
        if (s.chapter == CHP_ANIMATION && !*percentage) *percentage = static_cast<Fcurve *>(s.data);
    }
}

}  // namespace

void pathNoteSet(const PathNote &note) {
    std::lock_guard<std::mutex> hold(s_notesLock);
    s_notes[note.model] = note;
}

int pathNoteGet(const Model *model, PathNote *note) {
    std::lock_guard<std::mutex> hold(s_notesLock);
    auto it = s_notes.find(model);
    if (it == s_notes.end()) return 0;
    *note = it->second;
    s_notes.erase(it);  // a note serves the frame it was made in
    return 1;
}

// ---------------------------------------------------------------------------
// Curves

double curveLength(const Model *curve) {
    CurveEval c;
    LengthTable t;
    if (!c.make(curve) || !lengthTable(c, &t)) return 0.0;
    return t.length.back();
}

int curvePointAtLength(const Model *curve, double s, float point[3]) {
    CurveEval c;
    LengthTable t;
    double p[3], tangent[3];
    if (!c.make(curve) || !lengthTable(c, &t) || !pointAtLength(c, t, s, p, tangent)) return 0;
    for (int k = 0; k < 3; ++k) point[k] = static_cast<float>(p[k]);
    return 1;
}

int curvePointsAtLengths(const Model *curve, const double *lengths, int32_t count, float (*points)[3],
                         float (*tangents)[3]) {
    CurveEval c;
    LengthTable t;
    if (!c.make(curve) || !lengthTable(c, &t)) return 0;
    for (int32_t i = 0; i < count; ++i) {
        double p[3], tangent[3];
        if (!pointAtLength(c, t, lengths[i], p, tangent)) return 0;
        for (int k = 0; k < 3; ++k) {
            points[i][k] = static_cast<float>(p[k]);
            if (tangents) tangents[i][k] = static_cast<float>(tangent[k]);
        }
    }
    return 1;
}

int curvePointAtParameter(const Model *curve, double parameter, float point[3]) {
    CurveEval c;
    double p[3];
    if (!c.make(curve) || !c.at(parameter, p)) return 0;
    for (int k = 0; k < 3; ++k) point[k] = static_cast<float>(p[k]);
    return 1;
}

void pathToParent(const Model *model, const Model *curve, const float point[3], float out[3]) {
    const Model *parent = model->parent;
    const bool absolute = !parent || (model->type == MODEL_TYPE_NULL && model->kind == MODEL_KIND_EFFECTOR) ||
                          (model->type == MODEL_TYPE_JOINT && model->kind == MODEL_KIND_CHAIN);
    if (absolute) {
        pointMul(point, curve->globalMatrix, out);
        return;
    }
    if (parent == curve->parent) {
        // Siblings: the curve's own local matrix alone, with no round trip
        // through the parent's inverse.
        float local[4][4];
        mat4Identity(local);
        for (int i = 0; i < 3; ++i) {
            for (int k = 0; k < 3; ++k) local[i][k] = curve->rotMatrix[i][k] * curve->scaling[i];
            local[3][i] = curve->translation[i];
        }
        pointMul(point, local, out);
        return;
    }
    float world[3], inverse[4][4];
    pointMul(point, curve->globalMatrix, world);
    if (mat4Inverse(parent->globalMatrix, inverse))
        pointMul(world, inverse, out);
    else
        memcpy(out, world, sizeof world);
}

void pathEval(int32_t relation, Model *curve, void *target, float percentage, const Dictionary *dict,
              int32_t targetIndex) {
    CurveEval c;
    if (!target || !c.make(curve)) return;
    LengthTable t;
    if (!lengthTable(c, &t)) return;
    double p[3], tangent[3];
    if (!pointAtLength(c, t, t.length.back() * percentage * 0.01, p, tangent)) return;
    float point[3] = {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
    if (relation == 112 || relation == 612) {
        Model *model = static_cast<Model *>(target);
        placeModel(model, curve, point);
        if (relation == 112 && hasRelation(dict, targetIndex, 124)) {
            PathNote note{};
            note.flag = 1;
            note.sameCurve = 1;
            note.model = model;
            note.curve = curve;
            pointMul(point, curve->globalMatrix, note.point);
            for (int k = 0; k < 3; ++k)  // directions take the matrix without its translation
                note.tangent[k] = static_cast<float>(tangent[0] * curve->globalMatrix[0][k] +
                                                     tangent[1] * curve->globalMatrix[1][k] +
                                                     tangent[2] * curve->globalMatrix[2][k]);
            pathNoteSet(note);
        }
        return;
    }
    float world[3];
    pointMul(point, curve->globalMatrix, world);
    switch (relation) {
        case 1112: memcpy(static_cast<Camera *>(target)->position, world, sizeof world); break;
        case 1114: memcpy(static_cast<Camera *>(target)->interest, world, sizeof world); break;
        case 2112: memcpy(static_cast<Light *>(target)->position, world, sizeof world); break;
        case 2114: memcpy(static_cast<Light *>(target)->interest, world, sizeof world); break;
        default: break;
    }
}

void pathRecord(UpdateRecord *record, float time) {
    Model *curve;
    Fcurve *percentage;
    pathSources(record, &curve, &percentage);
    if (!curve || !percentage) return;
    void *target = record->data;
    if (record->relation == 612)
        target = g_evalHooks.waveTransfo && record->data ? g_evalHooks.waveTransfo(record->data) : nullptr;
    if (!target) return;
    if (record->relation == 112 || record->relation == 612) {
        const Model *m = static_cast<const Model *>(target);
        // Dynamics move the model themselves; a chain link follows its path
        // only inside the keys of the percentage.
        if (m->kind == MODEL_KIND_CHAIN_DYNAMIC || m->kind == MODEL_KIND_DYNAMIC) return;
        const bool chainLink = m->kind >= MODEL_KIND_CHAIN && m->kind <= MODEL_KIND_EFFECTOR_2;
        if (chainLink && percentage->keyCount > 0 &&
            (time < percentage->keys[0].time || time > percentage->keys[percentage->keyCount - 1].time))
            return;
    }
    const float p = static_cast<float>(fcurveValue(percentage, time, 1));
    pathEval(record->relation, curve, target, p, walkState().dict, record->element);
}

void evalPath(UpdateRecord *record, float time, int *) { pathRecord(record, time); }

// ---------------------------------------------------------------------------
// Curve samples

void curveSample(UpdateRecord *record, float time) {
    Model *model = static_cast<Model *>(record->data);
    if (!model || record->chapter != CHP_MODELS) return;
    const Model *curve = nullptr;
    for (int i = 0; i < record->sourceCount && !curve; ++i)
        if (record->sources[i].chapter == CHP_MODELS) curve = static_cast<const Model *>(record->sources[i].data);
    CurveEval c;
    if (!c.make(curve)) return;
    const TOL_PlayCtrl &play = sceneStateCurrent().playCtrl;
    double start = play.startFrame;
    if (const float *first = relDataValues(static_cast<RelData *>(record->relationData), "FIRST_FRAME"))
        start = first[0];
    const double frame = static_cast<double>(time) * play.framesPerSecond - start;
    float point[3];
    const double whole = std::round(frame);
    if (std::fabs(frame - whole) < 0.0001) {
        // On a frame: the stored point of that index, within the curve's points.
        const int count = c.nurbs ? curve->geometry.curve->cvCount : curve->geometry.spline->vertexCount;
        int index = static_cast<int>(whole);
        if (index < 0) index = 0;
        if (index > count - 1) index = count - 1;
        if (!modelPointAt(curve, index, point)) return;
    } else {
        double p[3];
        if (!c.at(frame, p)) return;
        for (int k = 0; k < 3; ++k) point[k] = static_cast<float>(p[k]);
    }
    placeModel(model, curve, point);
}
