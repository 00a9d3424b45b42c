// Constraints: a model, camera or light set from the global state of its
// partners. The common handler averages positions, orientations, scales or
// directions of the partners that count at the time and hands the result to
// the local setters, which recompute the model and its subtree at once.
#include <cmath>
#include <cstring>

#include "camera.h"
#include "constraint_internal.h"
#include "model.h"

ConstraintHooks g_constraintHooks = {};

namespace {

constexpr float AIM_BOUND = 0.0001f;  // shorter directions do not aim

bool isChainPart(const Model *m) {
    if (m->type == MODEL_TYPE_JOINT) return true;
    return m->type == MODEL_TYPE_NULL &&
           (m->kind == MODEL_KIND_EFFECTOR || m->kind == MODEL_KIND_EFFECTOR_2);
}

bool isDynamic(const Model *m) {
    return m->kind == MODEL_KIND_CHAIN_DYNAMIC || m->kind == MODEL_KIND_DYNAMIC;
}

void cross(const double a[3], const double b[3], double out[3]) {
    double r[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
    memcpy(out, r, sizeof r);
}

double length3(const double v[3]) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

// Divides by the length unless it is below the bound.
void normaliseBounded(double v[3]) {
    double len = length3(v);
    if (len > AIM_BOUND)
        for (int i = 0; i < 3; ++i) v[i] /= len;
}

bool allBelow(const double v[3], double bound) {
    return std::fabs(v[0]) < bound && std::fabs(v[1]) < bound && std::fabs(v[2]) < bound;
}

// The first partner of the model by relation 128 among its relation entries.
const Model *upVectorPartner(const Dictionary *dict, int32_t modelIndex) {
    if (!dict || modelIndex < 0) return nullptr;
    const Element *e = elemGet(const_cast<Dictionary *>(dict), CHP_MODELS, modelIndex);
    if (!e || !e->childGroups || e->childGroupCount <= RELGR_TRANSFO) return nullptr;
    const RelationGroup &g = e->childGroups[RELGR_TRANSFO];
    for (int i = 0; i < g.count; ++i) {
        const RelationInst &r = g.items[i];
        if (r.relid != 128 || r.chp != CHP_MODELS || !r.activ) continue;
        const Element *o = elemGet(const_cast<Dictionary *>(dict), CHP_MODELS, r.elem);
        if (o && o->deleted == ELEM_LIVE && o->data) return static_cast<const Model *>(o->data);
    }
    return nullptr;
}

// Limits of a relation, read from its data; absent data limits nothing.
struct Limits {
    float min[3], max[3];  // MIN_LIMIT, MAX_LIMIT
    bool minOn[3], maxOn[3];  // MIN_ACTIVE, MAX_ACTIVE non-zero
    float damping;         // 0 hard, towards 1 softer
    bool box;              // IS_AREA_BOX
    bool world;            // IS_REF_WORLD
    float radius;          // LIMIT_RADIUS
};

bool limitsOf(void *data, Limits *out) {
    RelData *d = static_cast<RelData *>(data);
    const float *mn = relDataValues(d, "MIN_LIMIT"), *mx = relDataValues(d, "MAX_LIMIT");
    const float *mnOn = relDataValues(d, "MIN_ACTIVE"), *mxOn = relDataValues(d, "MAX_ACTIVE");
    const float *damp = relDataValues(d, "DAMPING"), *box = relDataValues(d, "IS_AREA_BOX");
    const float *world = relDataValues(d, "IS_REF_WORLD"), *radius = relDataValues(d, "LIMIT_RADIUS");
    if (!mn || !mx || !mnOn || !mxOn || !damp || !box || !world || !radius) return false;
    for (int i = 0; i < 3; ++i) {
        out->min[i] = mn[i];
        out->max[i] = mx[i];
        out->minOn[i] = mnOn[i] != 0.0f;
        out->maxOn[i] = mxOn[i] != 0.0f;
    }
    out->damping = damp[0] < 0.0f ? 0.0f : (damp[0] > 1.0f ? 1.0f : damp[0]);
    out->box = box[0] != 0.0f;
    out->world = world[0] != 0.0f;
    out->radius = radius[0];
    return true;
}

// The position limit: the model's offset from the reference point, in world
// axes or the partner's, is kept inside the box of the active bounds, or
// inside the sphere of LIMIT_RADIUS; damping leaves that share of the
// overshoot.
void positionLimit(Model *model, const float reference[3], const Model *partnerModel, void *data) {
    Limits lim;
    if (!limitsOf(data, &lim)) return;
    float axes[4][4];
    mat4Identity(axes);
    if (!lim.world && partnerModel) mat4Copy(axes, partnerModel->globalRotation);
    double world[3], v[3];
    for (int i = 0; i < 3; ++i) world[i] = static_cast<double>(model->globalPosition[i]) - reference[i];
    for (int k = 0; k < 3; ++k)  // into the reference axes: the rows are the axes
        v[k] = world[0] * axes[k][0] + world[1] * axes[k][1] + world[2] * axes[k][2];
    double limited[3] = {v[0], v[1], v[2]};
    if (lim.box) {
        for (int i = 0; i < 3; ++i) {
            if (lim.minOn[i] && limited[i] < lim.min[i]) limited[i] = lim.min[i];
            if (lim.maxOn[i] && limited[i] > lim.max[i]) limited[i] = lim.max[i];
        }
    } else if (lim.radius > 0.0f) {
        double len = length3(v);
        if (len > lim.radius)
            for (int i = 0; i < 3; ++i) limited[i] = v[i] * lim.radius / len;
    }
    if (limited[0] == v[0] && limited[1] == v[1] && limited[2] == v[2]) return;
    float out[3];
    for (int k = 0; k < 3; ++k) {
        double c = limited[k] + lim.damping * (v[k] - limited[k]);
        v[k] = c;
    }
    for (int k = 0; k < 3; ++k)
        out[k] = static_cast<float>(reference[k] + v[0] * axes[0][k] + v[1] * axes[1][k] + v[2] * axes[2][k]);
    modelSetLocalPosition(model, out);
}

// The rotation limit: the model's orientation less the partner's, in
// degrees per axis, kept within the active bounds.
void rotationLimit(Model *model, const float reference[3], void *data) {
    Limits lim;
    if (!limitsOf(data, &lim)) return;
    float own[3];
    if (!elementOrientation(2, model, own)) return;
    bool changed = false;
    float wanted[3];
    for (int i = 0; i < 3; ++i) {
        double rel = (static_cast<double>(own[i]) - reference[i]) / DEG_TO_RAD;
        double limited = rel;
        if (lim.minOn[i] && limited < lim.min[i]) limited = lim.min[i];
        if (lim.maxOn[i] && limited > lim.max[i]) limited = lim.max[i];
        limited += lim.damping * (rel - limited);
        if (limited != rel) changed = true;
        wanted[i] = static_cast<float>(reference[i] + limited * DEG_TO_RAD);
    }
    if (!changed) return;
    float m[4][4];
    eulerToMatrix(wanted, m);
    modelSetLocalRotation(model, m);
}

}  // namespace

// ---------------------------------------------------------------------------
// Partners

int elementTypeOf(int chapter, const void *data) {
    if (!data) return 0;
    switch (chapter) {
        case CHP_MODELS: return 2;
        case CHP_CAMERAS: return 4;
        case CHP_LIGHTS: return 6;
        default: return 0;
    }
}

int elementPosition(int type, const void *data, float position[3]) {
    if (!data) return 0;
    const float *p = nullptr;
    switch (type) {
        case 2: case 3: p = static_cast<const Model *>(data)->globalPosition; break;
        case 4: p = static_cast<const Camera *>(data)->position; break;
        case 5: p = static_cast<const Camera *>(data)->interest; break;
        case 6: case 8: case 19: case 20: p = static_cast<const Light *>(data)->position; break;
        case 7: p = static_cast<const Light *>(data)->interest; break;
        default: return 0;
    }
    memcpy(position, p, sizeof(float[3]));
    return 1;
}

int elementOrientation(int type, const void *data, float angles[3]) {
    if (!data) return 0;
    switch (type) {
        case 2: case 3: {
            const Model *m = static_cast<const Model *>(data);
            if (m->parent)
                matrixToEuler(m->globalRotation, m->rotation, angles);
            else
                memcpy(angles, m->rotation, sizeof(float[3]));
            return 1;
        }
        case 4:
            memcpy(angles, static_cast<const Camera *>(data)->position, sizeof(float[3]));
            return 1;
        case 6: case 8: case 19:
            memcpy(angles, static_cast<const Light *>(data)->position, sizeof(float[3]));
            return 1;
        default:
            return 0;
    }
}

int constraintSourceOn(const UpdateRecord *record, int index, float time) {
    const UpdateSource &s = record->sources[index];
    if (!s.active) return 0;
    return !s.fcurve || fcurveStepValue(s.fcurve, time, 0, 0) >= 1;
}

// ---------------------------------------------------------------------------
// Direction

int constraintAimMatrix(const float direction[3], const float up[3], float m[4][4]) {
    mat4Identity(m);
    double d[3] = {direction[0], direction[1], direction[2]};
    if (allBelow(d, AIM_BOUND)) return 0;
    double u[3] = {up[0], up[1], up[2]}, c[3];
    cross(d, u, c);
    normaliseBounded(d);
    normaliseBounded(c);
    if (allBelow(c, AIM_BOUND)) {
        // Aiming along the up vector: the world's up leaned by the aim's own
        // height gives a side that is never parallel to it.
        double lean[3] = {0.0, 1.0, d[1]};
        cross(d, lean, c);
        if (allBelow(c, AIM_BOUND)) {
            double x[3] = {1.0, 0.0, 0.0};
            cross(d, x, c);
        }
        normaliseBounded(c);
    }
    double y[3];
    cross(c, d, y);
    for (int k = 0; k < 3; ++k) {
        m[0][k] = static_cast<float>(d[k]);
        m[1][k] = static_cast<float>(y[k]);
        m[2][k] = static_cast<float>(c[k]);
    }
    return 1;
}

int constraintDirection(Model *model, const float direction[3], const Dictionary *dict,
                        int32_t modelIndex) {
    if (!model) return 0;
    float up[3] = {0.0f, 1.0f, 0.0f};
    if (const Model *partner = upVectorPartner(dict, modelIndex)) {
        for (int i = 0; i < 3; ++i) up[i] = partner->globalPosition[i] - model->globalPosition[i];
    } else if (model->parent) {
        const float *row = model->parent->globalRotation[1];
        for (int i = 0; i < 3; ++i) up[i] = row[i];
    }
    float aim[4][4];
    int ok = constraintAimMatrix(direction, up, aim);
    // The roll about the aim axis is the x rotation the curves gave.
    float roll[3] = {model->keyedRotation[0], 0.0f, 0.0f}, rx[4][4], wanted[4][4];
    eulerToMatrix(roll, rx);
    mat4Mul(rx, aim, wanted);
    memset(model->rotation, 0, sizeof model->rotation);  // the extraction starts from zero
    modelSetLocalRotation(model, wanted);
    return ok;
}

// ---------------------------------------------------------------------------
// The common handler

void constraintEval(UpdateRecord *record, float time, int selectedIndex) {
    Model *model = static_cast<Model *>(record->data);
    if (!model || record->chapter != CHP_MODELS) return;
    // The model's own curves have set its local values; its global position
    // is brought up to date before the partners are measured from it.
    modelGlobalUpdate(model->parent, model, 0);
    const float *P = model->globalPosition;
    const int32_t rel = record->relation;
    double sum[3] = {0.0, 0.0, 0.0};
    float taken[3] = {0.0f, 0.0f, 0.0f}, extra[3] = {0.0f, 0.0f, 0.0f};
    const Model *partnerModel = nullptr;
    const Cluster *cluster = nullptr;
    int n = 0;
    for (int i = 0; i < record->sourceCount; ++i) {
        const UpdateSource &s = record->sources[i];
        if (!constraintSourceOn(record, i, time) || !s.data) continue;
        if (s.group != RELGR_TRANSFO && s.group != RELGR_GEOM) continue;
        int type = elementTypeOf(s.chapter, s.data);
        if (type == 2) {
            const Model *pm = static_cast<const Model *>(s.data);
            if (pm->kind == MODEL_KIND_CHAIN_DYNAMIC || pm->kind == MODEL_KIND_DYNAMIC ||
                pm->kind == MODEL_KIND_EFFECTOR_2)
                continue;
        }
        float v[3];
        switch (rel) {
            case 111: case 806:
                if (!elementPosition(type, s.data, v)) continue;
                for (int k = 0; k < 3; ++k) sum[k] += v[k];
                break;
            case 114:
                if (!elementOrientation(type, s.data, v)) continue;
                for (int k = 0; k < 3; ++k) sum[k] += v[k];
                break;
            case 115:
                // Only models have a scale: any other partner repeats the last one taken.
                if (type == 2 || type == 3) {
                    const Model *pm = static_cast<const Model *>(s.data);
                    memcpy(taken, g_scalingType == 1 ? pm->classicalScale : pm->globalScale, sizeof taken);
                }
                for (int k = 0; k < 3; ++k) sum[k] += taken[k];
                break;
            case 116: {
                if (!elementPosition(type, s.data, v)) continue;
                double d[3] = {static_cast<double>(v[0]) - P[0], static_cast<double>(v[1]) - P[1],
                               static_cast<double>(v[2]) - P[2]};
                double len = length3(d);
                for (int k = 0; k < 3; ++k) sum[k] += len > AIM_BOUND ? d[k] / len : d[k];
                break;
            }
            case 102: case 128: case 129:
                if (!elementPosition(type, s.data, taken)) continue;
                partnerModel = type == 2 ? static_cast<const Model *>(s.data) : nullptr;
                break;
            case 103:
                if (!elementOrientation(type, s.data, taken)) continue;
                break;
            case 238:
                // The partner model gives the position, its cluster the point
                // the model turns to.
                if (s.chapter == CHP_CLUSTERS) {
                    cluster = static_cast<const Cluster *>(s.data);
                    continue;
                }
                if (!elementPosition(type, s.data, taken)) continue;
                partnerModel = type == 2 ? static_cast<const Model *>(s.data) : nullptr;
                break;
            default:
                break;
        }
        ++n;
    }
    if (n == 0) return;
    const bool haveExtra = rel == 238 && partnerModel && clusterCentrePoint(cluster, partnerModel, extra);
    const float inv = 1.0f / static_cast<float>(n);
    float avg[3];
    for (int k = 0; k < 3; ++k) avg[k] = static_cast<float>(sum[k] * inv);

    if (isChainPart(model)) {
        switch (rel) {
            case 114: {
                memcpy(model->rotation, avg, sizeof avg);
                float m[4][4];
                eulerToMatrix(avg, m);
                modelSetLocalRotation(model, m);
                break;
            }
            case 102: positionLimit(model, taken, partnerModel, record->relationData); break;
            case 103:
                chainRotationLimit(model, record->relationData);
                break;
            case 806:
                if (isDynamic(model)) break;
                [[fallthrough]];
            case 111:
                chainSetGoal(model, avg[0], avg[1], avg[2]);
                break;
            case 128: case 129:
                chainSetUpVector(model, rel == 128 ? 2 : 1, taken[0], taken[1], taken[2], time);
                break;
            default: break;
        }
        return;
    }
    switch (rel) {
        case 102: positionLimit(model, taken, partnerModel, record->relationData); break;
        case 103: rotationLimit(model, taken, record->relationData); break;
        case 806:
            if (isDynamic(model)) break;
            [[fallthrough]];
        case 111: modelSetLocalPosition(model, avg); break;
        case 114: {
            memcpy(model->rotation, avg, sizeof avg);
            float m[4][4];
            eulerToMatrix(avg, m);
            modelSetLocalRotation(model, m);
            break;
        }
        case 115: modelSetLocalScaling(model, avg); break;
        case 116: constraintDirection(model, avg, walkState().dict, record->element); break;
        case 124: constraintNormal(record, model, time); break;
        case 125: constraintTangency(record, model, time); break;
        case 238: {
            modelSetLocalPosition(model, taken);
            if (!haveExtra) break;
            float d[3] = {extra[0] - taken[0], extra[1] - taken[1], extra[2] - taken[2]};
            constraintDirection(model, d, walkState().dict, record->element);
            break;
        }
        default: break;
    }
    (void)selectedIndex;
}

void evalConstraint(UpdateRecord *record, float time, int *) { constraintEval(record, time, -1); }
