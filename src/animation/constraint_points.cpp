// Constraints with a handler of their own: a model between two or three
// points, at a cluster's centre, copying a transform; cameras and lights at
// the mean of their partners; the hierarchy constraints; and the orientation
// helpers they share.
#include <cmath>
#include <cstring>

#include "camera.h"
#include "constraint_internal.h"
#include "model.h"

namespace {

void cross(const double a[3], const double b[3], double out[3]) {
    double r[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
    memcpy(out, r, sizeof r);
}

double normalise(double v[3]) {
    double len = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    if (len > 0.0)
        for (int i = 0; i < 3; ++i) v[i] /= len;
    return len;
}

bool isGoalDriven(const Model *m) {
    return (m->type == MODEL_TYPE_JOINT && m->kind == MODEL_KIND_CHAIN) ||
           (m->type == MODEL_TYPE_NULL && (m->kind == MODEL_KIND_EFFECTOR || m->kind == MODEL_KIND_EFFECTOR_2));
}

// Positions of the record's model partners that count at the time, in entry
// order; the count. With `allOn`, one partner switched off by its curve stops all.
int partnerPoints(const UpdateRecord *record, float time, float points[][3], int most, bool allOn) {
    int n = 0;
    for (int i = 0; i < record->sourceCount; ++i) {
        const UpdateSource &s = record->sources[i];
        if (allOn && s.fcurve && fcurveStepValue(s.fcurve, time, 0, 0) < 1) return -1;
        if (!constraintSourceOn(record, i, time)) continue;
        if (n < most && elementPosition(elementTypeOf(s.chapter, s.data), s.data, points[n])) ++n;
    }
    return n;
}

void threePoints(UpdateRecord *record, Model *model, float time) {
    float p[3][3];
    if (partnerPoints(record, time, p, 3, true) < 3) return;
    float centre[3], first[3], normal[3];
    double a[3], b[3], c[3];
    for (int k = 0; k < 3; ++k) {
        centre[k] = static_cast<float>((static_cast<double>(p[0][k]) + p[1][k] + p[2][k]) * 0.333333);
        a[k] = static_cast<double>(p[1][k]) - p[0][k];
        b[k] = static_cast<double>(p[2][k]) - p[0][k];
    }
    cross(a, b, c);
    for (int k = 0; k < 3; ++k) {
        first[k] = p[0][k] - centre[k];
        normal[k] = static_cast<float>(c[k]);
    }
    modelSetLocalPosition(model, centre);
    modelSetPlane(model, first, normal);
    // A spline model passes through the points: its first three vertices
    // are put there, in its own coordinates.
    if (model->type == MODEL_SPLINE && model->geometry.spline &&
        model->geometry.spline->vertexCount >= 3 && model->geometry.spline->vertices) {
        float inverse[4][4];
        if (!mat4Inverse(model->globalMatrix, inverse)) return;
        for (int i = 0; i < 3; ++i) pointMul(p[i], inverse, model->geometry.spline->vertices[i].pos);
        model->displayFlags |= MODEL_GEOMETRY_STALE;
    }
}

void twoPoints(UpdateRecord *record, Model *model, float time) {
    float p[2][3];
    if (partnerPoints(record, time, p, 2, false) < 2) return;
    float centre[3], v[3];
    for (int k = 0; k < 3; ++k) {
        centre[k] = static_cast<float>((static_cast<double>(p[0][k]) + p[1][k]) * 0.5);
        v[k] = p[1][k] - p[0][k];
    }
    modelSetLocalPosition(model, centre);
    modelSetAxisScale(model, v);
}

void clusterCentre(UpdateRecord *record, Model *model, float time) {
    const Model *owner = nullptr;
    const Cluster *cluster = nullptr;
    for (int i = 0; i < record->sourceCount; ++i) {
        const UpdateSource &s = record->sources[i];
        if (s.chapter == CHP_MODELS) {
            if (!constraintSourceOn(record, i, time)) return;
            owner = static_cast<const Model *>(s.data);
        } else if (s.chapter == CHP_CLUSTERS) {
            cluster = static_cast<const Cluster *>(s.data);
        }
    }
    if (!owner || !cluster || !cluster->indexes || cluster->pointCount <= 0) return;
    double sum[3] = {0.0, 0.0, 0.0};
    int n = 0;
    for (int i = 0; i < cluster->pointCount; ++i) {
        float q[3];
        if (!modelPointAt(owner, cluster->indexes[i], q)) continue;
        for (int k = 0; k < 3; ++k) sum[k] += q[k];
        ++n;
    }
    if (n == 0) return;
    float local[3], centre[3];
    const float inv = n > 1 ? 1.0f / static_cast<float>(n) : 1.0f;
    for (int k = 0; k < 3; ++k) local[k] = static_cast<float>(sum[k] * inv);
    pointMul(local, owner->globalMatrix, centre);
    if (isGoalDriven(model)) {
        chainSetGoal(model, centre[0], centre[1], centre[2]);
    } else {
        modelSetLocalPosition(model, centre);
    }
}

void transformCopy(UpdateRecord *record, Model *model, float time) {
    for (int i = 0; i < record->sourceCount; ++i) {
        const UpdateSource &s = record->sources[i];
        if (s.chapter != CHP_MODELS || !s.data || !constraintSourceOn(record, i, time)) continue;
        const Model *from = static_cast<const Model *>(s.data);
        float scale[3], rotation[4][4], position[3];
        memcpy(scale, g_scalingType == 1 ? from->classicalScale : from->globalScale, sizeof scale);
        mat4Copy(rotation, from->globalRotation);
        memcpy(position, from->globalPosition, sizeof position);
        modelSetLocalScaling(model, scale);
        modelSetLocalRotation(model, rotation);
        modelSetLocalPosition(model, position);
        return;
    }
}

// Mean of the positions of the partners in the transform group that count.
bool partnerMean(const UpdateRecord *record, float time, float mean[3]) {
    double sum[3] = {0.0, 0.0, 0.0};
    int n = 0;
    for (int i = 0; i < record->sourceCount; ++i) {
        const UpdateSource &s = record->sources[i];
        if (s.group != RELGR_TRANSFO || !constraintSourceOn(record, i, time)) continue;
        float p[3];
        if (!elementPosition(elementTypeOf(s.chapter, s.data), s.data, p)) continue;
        for (int k = 0; k < 3; ++k) sum[k] += p[k];
        ++n;
    }
    if (n == 0) return false;
    const float inv = 1.0f / static_cast<float>(n);
    for (int k = 0; k < 3; ++k) mean[k] = static_cast<float>(sum[k] * inv);
    return true;
}

}  // namespace

// ---------------------------------------------------------------------------
// Orientation helpers

void modelSetPlane(Model *model, const float first[3], const float normal[3]) {
    if (!model) return;
    double x[3] = {first[0], first[1], first[2]}, n[3] = {normal[0], normal[1], normal[2]};
    if (normalise(x) == 0.0) return;
    double along = n[0] * x[0] + n[1] * x[1] + n[2] * x[2];
    for (int k = 0; k < 3; ++k) n[k] -= along * x[k];
    if (normalise(n) == 0.0) return;
    double y[3];
    cross(n, x, y);
    float m[4][4];
    mat4Identity(m);
    for (int k = 0; k < 3; ++k) {
        m[0][k] = static_cast<float>(x[k]);
        m[1][k] = static_cast<float>(y[k]);
        m[2][k] = static_cast<float>(n[k]);
    }
    modelSetLocalRotation(model, m);
}

void modelSetAxisScale(Model *model, const float vector[3]) {
    if (!model) return;
    double len = std::sqrt(static_cast<double>(vector[0]) * vector[0] +
                           static_cast<double>(vector[1]) * vector[1] +
                           static_cast<double>(vector[2]) * vector[2]);
    if (len == 0.0) return;
    // The aim keeps the model's Y on the side of the world's up.
    const float up[3] = {0.0f, 1.0f, 0.0f};
    float aim[4][4];
    constraintAimMatrix(vector, up, aim);
    modelSetLocalRotation(model, aim);
    float scale[3];
    memcpy(scale, g_scalingType == 1 ? model->classicalScale : model->globalScale, sizeof scale);
    scale[0] = static_cast<float>(len);
    modelSetLocalScaling(model, scale);
}

// ---------------------------------------------------------------------------
// Points of models and clusters

int modelPointAt(const Model *model, int32_t index, float point[3]) {
    if (!model || index < 0 || !model->geometry.any) return 0;
    const ModelGeometry &g = model->geometry;
    switch (model->type) {
        case MODEL_MESH:
            if (index >= g.mesh->vertexCount || !g.mesh->vertices) return 0;
            memcpy(point, g.mesh->vertices[index].pos, sizeof(float[3]));
            return 1;
        case MODEL_SPLINE:
            if (index >= g.spline->vertexCount || !g.spline->vertices) return 0;
            memcpy(point, g.spline->vertices[index].pos, sizeof(float[3]));
            return 1;
        case MODEL_PATCH:
            if (index >= g.patch->uCount * g.patch->vCount || !g.patch->cvs) return 0;
            memcpy(point, g.patch->cvs[index], sizeof(float[3]));
            return 1;
        case MODEL_NURBS_CURVE:
            if (index >= g.curve->cvCount || !g.curve->cvs) return 0;
            for (int k = 0; k < 3; ++k) point[k] = static_cast<float>(g.curve->cvs[index][k]);
            return 1;
        case MODEL_NURBS_SURFACE:
            if (index >= g.surface->cvCount[0] * g.surface->cvCount[1] || !g.surface->cvs) return 0;
            for (int k = 0; k < 3; ++k) point[k] = static_cast<float>(g.surface->cvs[index][k]);
            return 1;
        default:
            return 0;
    }
}

int clusterCentrePoint(const Cluster *cluster, const Model *owner, float point[3]) {
    if (!cluster || !owner) return 0;
    pointMul(cluster->centre, owner->globalMatrix, point);
    return 1;
}

// ---------------------------------------------------------------------------
// Alignment to a partner's surface or curve

void constraintNormal(UpdateRecord *record, Model *model, float time) {
    // A path on the same model tells the tangent of its curve at the point.
    PathNote note;
    if (pathNoteGet(model, &note) && note.flag == 1) {
        constraintDirection(model, note.tangent, walkState().dict, record->element);
        return;
    }
    if (!g_constraintHooks.alignNormal) return;
    for (int i = 0; i < record->sourceCount; ++i)
        if (record->sources[i].chapter == CHP_MODELS && constraintSourceOn(record, i, time)) {
            g_constraintHooks.alignNormal(model, static_cast<Model *>(record->sources[i].data));
            return;
        }
}

void constraintTangency(UpdateRecord *record, Model *model, float time) {
    if (!g_constraintHooks.alignTangent) return;
    for (int i = 0; i < record->sourceCount; ++i)
        if (record->sources[i].chapter == CHP_MODELS && constraintSourceOn(record, i, time)) {
            g_constraintHooks.alignTangent(model, static_cast<Model *>(record->sources[i].data));
            return;
        }
}

// ---------------------------------------------------------------------------
// Handlers

void constraintThreePoints(UpdateRecord *record, float time) {
    if (Model *m = static_cast<Model *>(record->data)) threePoints(record, m, time);
}
void constraintTwoPoints(UpdateRecord *record, float time) {
    if (Model *m = static_cast<Model *>(record->data)) twoPoints(record, m, time);
}
void constraintClusterCentre(UpdateRecord *record, float time) {
    if (Model *m = static_cast<Model *>(record->data)) clusterCentre(record, m, time);
}
void constraintTransformCopy(UpdateRecord *record, float time) {
    if (Model *m = static_cast<Model *>(record->data)) transformCopy(record, m, time);
}

void evalConstraintPoints(UpdateRecord *record, float time, int *) {
    if (record->chapter != CHP_MODELS) return;
    switch (record->relation) {
        case 119: constraintThreePoints(record, time); break;
        case 126: constraintClusterCentre(record, time); break;
        case 127: constraintTwoPoints(record, time); break;
        case 150: constraintTransformCopy(record, time); break;
        case 160: curveSample(record, time); break;
        default: break;
    }
}

void cameraPositionConstraint(UpdateRecord *record, float time) {
    Camera *camera = static_cast<Camera *>(record->data);
    float mean[3];
    if (!camera || record->chapter != CHP_CAMERAS || !partnerMean(record, time, mean)) return;
    memcpy(record->relation == 1116 ? camera->interest : camera->position, mean, sizeof mean);
}

void lightPositionConstraint(UpdateRecord *record, float time) {
    Light *light = static_cast<Light *>(record->data);
    float mean[3];
    if (!light || record->chapter != CHP_LIGHTS || !partnerMean(record, time, mean)) return;
    // The light's type word: 7 is its interest, the others its position.
    int type = record->relation == 2116 ? 7 : 6;
    memcpy(type == 7 ? light->interest : light->position, mean, sizeof mean);
}

void evalCameraLightConstraint(UpdateRecord *record, float time, int *) {
    if (record->relation == 1111 || record->relation == 1116)
        cameraPositionConstraint(record, time);
    else
        lightPositionConstraint(record, time);
}

// ---------------------------------------------------------------------------
// Hierarchy constraints

namespace {
constexpr float COLLISION_TOLERANCE = 0.001f;  // parameter of the collision routine of 117
}

void constraintHierarchy(UpdateRecord *record, float time, int selectedIndex, const float *point) {
    Model *model = static_cast<Model *>(record->data);
    if (!model || record->chapter != CHP_MODELS) return;
    if (point && point[0] == 0.0f && point[1] == 0.0f && point[2] == 0.0f && selectedIndex == 1) return;
    modelGlobalUpdate(model->parent, model, 1);
    for (int i = 0; i < record->sourceCount; ++i) {
        const UpdateSource &s = record->sources[i];
        if (s.chapter != CHP_MODELS || s.group != RELGR_TRANSFO || !constraintSourceOn(record, i, time))
            continue;
        Model *partner = static_cast<Model *>(s.data);
        if (!partner) continue;
        modelGlobalUpdate(partner->parent, partner, 0);  // the partner's pose of this time
        if (record->relation == 117) {
            if (g_constraintHooks.collision) g_constraintHooks.collision(model, partner, COLLISION_TOLERANCE);
        } else if (selectedIndex != 2 && g_constraintHooks.collisionAlternate) {
            g_constraintHooks.collisionAlternate(model, partner);
        }
    }
}

void evalConstraintHierarchy(UpdateRecord *record, float time, int *) {
    constraintHierarchy(record, time, -1, nullptr);
}
