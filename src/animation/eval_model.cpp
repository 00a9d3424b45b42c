// Global transforms of models, the local setters, and the handlers of the
// relations that write a model's local values and visibility.
#include <cmath>
#include <cstring>

#include "model.h"
#include "updatelist_internal.h"

namespace {

constexpr float MIN_SCALE = 1e-5f;  // smallest magnitude of a scale component

constexpr int32_t KIND_OWN_GEOMETRY = 30;        // a model of this kind never follows a master

const float ONES[3] = {1.0f, 1.0f, 1.0f};
const float ZEROS[3] = {0.0f, 0.0f, 0.0f};
const float IDENTITY[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};

void copy3(float to[3], const float from[3]) { memcpy(to, from, sizeof(float[3])); }

bool isEffector(const Model *m) {
    return m->type == MODEL_TYPE_NULL &&
           (m->kind == MODEL_KIND_EFFECTOR || m->kind == MODEL_KIND_EFFECTOR_2);
}

// An effector of chain type 1 keeps its orientation whatever its parents do.
bool absoluteOrientation(const Model *m) {
    return m->type == MODEL_TYPE_NULL && m->kind == MODEL_KIND_EFFECTOR && m->chainType == 1;
}

// Zero and tiny scales would make the matrices singular; the fix is stored so
// that it happens once. Negative zero becomes positive.
void clampScale(float s[3]) {
    for (int i = 0; i < 3; ++i)
        if (std::fabs(s[i]) < MIN_SCALE) s[i] = s[i] < 0.0f ? -MIN_SCALE : MIN_SCALE;
}

// The own-scaling matrix: each row of the rotation scaled along its own axis.
void composeMatrix(const float rot[4][4], const float scale[3], const float pos[3], float m[4][4]) {
    for (int i = 0; i < 3; ++i) {
        for (int k = 0; k < 3; ++k) m[i][k] = rot[i][k] * scale[i];
        m[i][3] = 0.0f;
        m[3][i] = pos[i];
    }
    m[3][3] = 1.0f;
}

// Product of two pure rotations: only their 3 by 3 parts carry anything.
void rotationMul(const float a[4][4], const float b[4][4], float out[4][4]) {
    float r[4][4];
    for (int i = 0; i < 3; ++i) {
        for (int k = 0; k < 3; ++k)
            r[i][k] = static_cast<float>(static_cast<double>(a[i][0]) * b[0][k] +
                                         static_cast<double>(a[i][1]) * b[1][k] +
                                         static_cast<double>(a[i][2]) * b[2][k]);
        r[i][3] = 0.0f;
        r[3][i] = 0.0f;
    }
    r[3][3] = 1.0f;
    mat4Copy(out, r);
}

// Own scaling: global scale, rotation and position of `m` from its local
// values and the parent's (null matrix: no parent).
void ownGlobals(const Model *m, const float pScale[3], const float pRot[4][4],
                const float (*pMatrix)[4], float scale[3], float rot[4][4], float pos[3]) {
    for (int i = 0; i < 3; ++i) scale[i] = pScale[i] * m->scaling[i];
    if (absoluteOrientation(m))
        mat4Copy(rot, m->rotMatrix);
    else
        rotationMul(m->rotMatrix, pRot, rot);
    if (pMatrix)
        pointMul(m->translation, pMatrix, pos);
    else
        copy3(pos, m->translation);
}

double scaleProduct(const float s[3]) {
    return static_cast<double>(s[0]) * s[1] * s[2];
}

void ownUpdate(const Model *parent, Model *m) {
    copy3(m->parentScale, parent ? parent->globalScale : ONES);
    mat4Copy(m->parentRotation, parent ? parent->globalRotation : IDENTITY);
    copy3(m->parentPosition, parent ? parent->globalPosition : ZEROS);
    eulerToMatrix(m->rotation, m->rotMatrix);
    clampScale(m->scaling);
    ownGlobals(m, m->parentScale, m->parentRotation, parent ? parent->globalMatrix : nullptr,
               m->globalScale, m->globalRotation, m->globalPosition);
    composeMatrix(m->globalRotation, m->globalScale, m->globalPosition, m->globalMatrix);
    composeMatrix(m->rotMatrix, m->scaling, m->translation, m->localMatrix);
}

bool inChain(const Model *m) { return m->kind >= MODEL_KIND_CHAIN && m->kind <= MODEL_KIND_EFFECTOR_2; }

double rowLength(const float r[4]) {
    return std::sqrt(static_cast<double>(r[0]) * r[0] + static_cast<double>(r[1]) * r[1] +
                     static_cast<double>(r[2]) * r[2]);
}

// A child under a non-uniformly scaled, turned parent comes out sheared: its
// axes are no longer square to each other. The correction keeps the x axis,
// makes y square to it in their common plane and z square to both on the
// side it was, and gives each axis back its length. The position stays.
void unshear(float m[4][4]) {
    double len[3], u[3][3];
    for (int i = 0; i < 3; ++i) len[i] = rowLength(m[i]);
    if (len[0] == 0.0 || len[1] == 0.0 || len[2] == 0.0) return;
    for (int k = 0; k < 3; ++k) u[0][k] = m[0][k] / len[0];
    double d = (m[1][0] * u[0][0] + m[1][1] * u[0][1] + m[1][2] * u[0][2]);
    for (int k = 0; k < 3; ++k) u[1][k] = m[1][k] - d * u[0][k];
    double n = std::sqrt(u[1][0] * u[1][0] + u[1][1] * u[1][1] + u[1][2] * u[1][2]);
    if (n == 0.0) return;
    for (int k = 0; k < 3; ++k) u[1][k] /= n;
    double c[3] = {u[0][1] * u[1][2] - u[0][2] * u[1][1], u[0][2] * u[1][0] - u[0][0] * u[1][2],
                   u[0][0] * u[1][1] - u[0][1] * u[1][0]};
    double side = c[0] * m[2][0] + c[1] * m[2][1] + c[2] * m[2][2];
    for (int k = 0; k < 3; ++k) u[2][k] = side < 0.0 ? -c[k] : c[k];
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) m[i][k] = static_cast<float>(u[i][k] * len[i]);
}

void classicalUpdate(const Model *parent, Model *m) {
    eulerToMatrix(m->rotation, m->rotMatrix);
    clampScale(m->scaling);
    // The own-scaling values, from the parent's own-scaling values, kept beside.
    float parentOwn[4][4];
    if (parent)
        composeMatrix(parent->classicalRotation, parent->classicalScale, parent->classicalPosition,
                      parentOwn);
    ownGlobals(m, parent ? parent->classicalScale : ONES,
               parent ? parent->classicalRotation : IDENTITY, parent ? parentOwn : nullptr,
               m->classicalScale, m->classicalRotation, m->classicalPosition);
    copy3(m->parentScale, ONES);
    mat4Copy(m->parentRotation, parent ? parent->globalRotation : IDENTITY);
    copy3(m->parentPosition, parent ? parent->globalPosition : ZEROS);
    composeMatrix(m->rotMatrix, m->scaling, m->translation, m->localMatrix);
    if (parent)
        mat4Mul(m->localMatrix, parent->globalMatrix, m->globalMatrix);
    else
        mat4Copy(m->globalMatrix, m->localMatrix);
    if (absoluteOrientation(m))
        for (int i = 0; i < 3; ++i)
            for (int k = 0; k < 3; ++k) m->globalMatrix[i][k] = m->localMatrix[i][k];
    copy3(m->globalPosition, m->globalMatrix[3]);
    if (parent && !inChain(m) && !inChain(parent) &&
        ((m->transfoFlags & MODEL_CHAIN_SCALING) || evalClassicalScalingFix()))
        unshear(m->globalMatrix);
    // The frame the matrix really has: row lengths, signed like the scales,
    // and the rows they leave. A sheared frame is not a pure rotation.
    for (int i = 0; i < 3; ++i) {
        const float *row = m->globalMatrix[i];
        double len = rowLength(row);
        if (m->classicalScale[i] < 0.0f) len = -len;
        if (len == 0.0) continue;
        m->globalScale[i] = static_cast<float>(len);
        for (int k = 0; k < 3; ++k) m->globalRotation[i][k] = static_cast<float>(row[k] / len);
    }
}

// A model whose shape comes from a master elsewhere (a reference to another
// node) follows that master's transform: its display form is made again,
// unless the master is itself being updated, which will redo it, or the
// model's envelope work is kept for the end of the walk.
void refreshDerivedGeometry(Model *m) {
    if (m->kind == KIND_OWN_GEOMETRY || m->type != MODEL_REF || !m->geometry.ref) return;
    const Model *master = m->geometry.ref->node;
    if (!master || master == m || (master->transfoFlags & MODEL_IN_UPDATE)) return;
    if (walkState().deferred && (m->animKind == 5 || m->animKind == 6 || m->animKind == 8)) return;
    m->displayFlags |= MODEL_GEOMETRY_STALE;
}

// Siblings first, then each one's children: the order of the recursion
// without the child loop, kept flat over the siblings.
void updateSiblingChain(Model *parent, Model *first) {
    for (Model *n = first; n; n = n->nextSibling) modelGlobalUpdate(parent, n, 0);
    for (Model *n = first; n; n = n->nextSibling)
        if (n->firstChild) updateSiblingChain(n, n->firstChild);
}

}  // namespace

void modelGlobalUpdate(Model *parent, Model *model, int recurse) {
    if (!model) return;
    model->transfoFlags |= MODEL_IN_UPDATE;
    bool classical = g_scalingType == 1;
    double before = scaleProduct(classical ? model->classicalScale : model->globalScale);
    if (classical)
        classicalUpdate(parent, model);
    else
        ownUpdate(parent, model);
    double after = scaleProduct(classical ? model->classicalScale : model->globalScale);
    if (before * after < 0.0) model->transfoDirtyDraw |= TRANSFO_MIRRORED;
    if (!(animationOptimise & EVAL_OPT_NO_RELATIVE)) {
        float inverse[4][4];
        if (parent && mat4Inverse(parent->globalMatrix, inverse))
            mat4Mul(model->globalMatrix, inverse, model->relativeMatrix);
        else
            mat4Copy(model->relativeMatrix, model->globalMatrix);
    }
    refreshDerivedGeometry(model);
    if (recurse) {
        if (animationOptimise & EVAL_OPT_CHILD_LOOP)
            for (Model *c = model->firstChild; c; c = c->nextSibling) modelGlobalUpdate(model, c, 1);
        else if (model->firstChild)
            updateSiblingChain(model, model->firstChild);
    }
    model->transfoFlags &= static_cast<uint16_t>(~MODEL_IN_UPDATE);
}

Model *chainRootOf(Model *model) {
    if (!model) return nullptr;
    for (Model *p = model->parent; p; p = p->parent)
        if (p->type == MODEL_TYPE_NULL &&
            (p->kind == MODEL_KIND_CHAIN || p->kind == MODEL_KIND_CHAIN_DYNAMIC))
            return p;
    return nullptr;
}

// ---------------------------------------------------------------------------
// Local setters

void modelMarkDirty(Model *m, uint16_t bits) {
    m->transfoDirty |= bits;
    m->transfoDirtyDraw |= bits;
}

void modelSetLocalPosition(Model *model, const float position[3]) {
    if (!model) return;
    float inverse[4][4];
    if (!model->parent)
        copy3(model->translation, position);
    else if (mat4Inverse(model->parent->globalMatrix, inverse))
        pointMul(position, inverse, model->translation);
    modelMarkDirty(model, TRANSFO_DIRTY_POSITION);
    modelGlobalUpdate(model->parent, model, 1);
}

void modelSetLocalRotation(Model *model, const float rotation[4][4]) {
    if (!model) return;
    float local[4][4];
    if (model->parent) {
        // A pure rotation is inverted by its transpose.
        float inverse[4][4];
        mat4Identity(inverse);
        for (int i = 0; i < 3; ++i)
            for (int k = 0; k < 3; ++k) inverse[i][k] = model->parent->globalRotation[k][i];
        mat4Mul(rotation, inverse, local);
    } else {
        mat4Copy(local, rotation);
    }
    float hint[3];
    copy3(hint, model->rotation);
    matrixToEuler(local, hint, model->rotation);
    modelMarkDirty(model, TRANSFO_DIRTY_ROTATION);
    modelGlobalUpdate(model->parent, model, 1);
}

void modelSetLocalScaling(Model *model, const float scaling[3]) {
    if (!model) return;
    const Model *p = model->parent;
    if (!p) {
        copy3(model->scaling, scaling);
    } else if (g_scalingType != 1) {
        for (int i = 0; i < 3; ++i) {
            float d = p->globalScale[i];
            if (std::fabs(d) < MIN_SCALE) d = d < 0.0f ? -MIN_SCALE : MIN_SCALE;
            model->scaling[i] = scaling[i] / d;
        }
    } else {
        // The wanted frame, brought into the parent's through its inverse;
        // the local scales are the lengths of the rows that come out.
        float wanted[4][4], inverse[4][4], local[4][4];
        composeMatrix(model->globalRotation, scaling, model->globalPosition, wanted);
        if (mat4Inverse(p->globalMatrix, inverse)) {
            mat4Mul(wanted, inverse, local);
            for (int i = 0; i < 3; ++i) {
                double len = std::sqrt(static_cast<double>(local[i][0]) * local[i][0] +
                                       static_cast<double>(local[i][1]) * local[i][1] +
                                       static_cast<double>(local[i][2]) * local[i][2]);
                model->scaling[i] = static_cast<float>(scaling[i] < 0.0f ? -len : len);
            }
        }
    }
    modelMarkDirty(model, TRANSFO_DIRTY_SCALE);
    modelGlobalUpdate(model->parent, model, 1);
}

// ---------------------------------------------------------------------------
// Handlers of the transform group

Model *recordTransfo(const UpdateRecord *record) {
    switch (record->relation) {
        case 610: case 611: case 613: case REL_WAVE_HIERARCHY_STEP:
            return g_evalHooks.waveTransfo && record->data ? g_evalHooks.waveTransfo(record->data)
                                                           : nullptr;
        default:
            return static_cast<Model *>(record->data);
    }
}

namespace {

// Component of a curve type among three runs of x, y, z types; -1 for none.
int componentOf(int32_t type, int32_t first, int32_t second) {
    if (type >= first && type < first + 3) return type - first;
    if (type >= second && type < second + 3) return type - second;
    return -1;
}

}  // namespace

void evalLocalScaling(UpdateRecord *record, float time, int *) {
    Model *m = recordTransfo(record);
    if (!m) return;
    bool whole = forEachSourceCurve(record, [&](Fcurve *c) {
        int axis = componentOf(c->type, 1, 163);
        // A curve without keys leaves its axis at unit scale.
        if (axis >= 0) m->scaling[axis] = static_cast<float>(c->keyCount == 0 ? 1.0 : fcurveValue(c, time, 1));
        return true;
    });
    if (!whole) return;
    modelMarkDirty(m, TRANSFO_DIRTY_SCALE);
}

void evalLocalRotation(UpdateRecord *record, float time, int *) {
    Model *m = recordTransfo(record);
    if (!m) return;
    bool keyed = false;
    bool whole = forEachSourceCurve(record, [&](Fcurve *c) {
        int axis = componentOf(c->type, 4, 166);
        if (axis < 0) return true;
        float v = static_cast<float>(fcurveValue(c, time, 1) * DEG_TO_RAD);
        m->rotation[axis] = v;
        if (axis < 2) m->keyedRotation[axis] = v;
        keyed = keyed || c->keyCount > 0;
        return true;
    });
    if (!whole) return;
    if (keyed && m->type == MODEL_TYPE_JOINT && m->kind == MODEL_KIND_CHAIN)
        chainSetJointRotation(m, -1, m->rotation[0], m->rotation[1], m->rotation[2]);
    modelMarkDirty(m, TRANSFO_DIRTY_ROTATION);
}

void evalLocalTranslation(UpdateRecord *record, float time, int *) {
    Model *m = recordTransfo(record);
    if (!m) return;
    // Joints and effectors are moved through their chain's goal, which is global.
    bool throughGoal = (m->type == MODEL_TYPE_JOINT && m->kind == MODEL_KIND_CHAIN) || isEffector(m);
    bool chainPart = throughGoal || (m->kind >= MODEL_KIND_CHAIN && m->kind <= MODEL_KIND_EFFECTOR_2);
    float pos[3];
    if (!throughGoal)
        copy3(pos, m->translation);
    else if (!chainGoalGet(m, pos))
        copy3(pos, m->globalPosition);
    int read = 0;
    bool outside = false;
    bool whole = forEachSourceCurve(record, [&](Fcurve *c) {
        int axis = componentOf(c->type, 139, 169);
        if (axis < 0) return true;
        pos[axis] = static_cast<float>(fcurveValue(c, time, 1));
        ++read;
        if (c->keyCount == 0 || time < c->keys[0].time || time > c->keys[c->keyCount - 1].time)
            outside = true;
        return true;
    });
    if (!whole || !read) return;
    if (m->kind == MODEL_KIND_CHAIN_DYNAMIC || m->kind == MODEL_KIND_DYNAMIC) return;
    if (chainPart && outside) return;
    if (throughGoal) {
        chainSetGoal(m, pos[0], pos[1], pos[2]);
    } else {
        copy3(m->translation, pos);
    }
    modelMarkDirty(m, TRANSFO_DIRTY_POSITION);
}

void evalHierarchyStep(UpdateRecord *record, float, int *) {
    Model *m = recordTransfo(record);
    if (!m) return;
    // The build left the models this step owns in `extra`; the branches with
    // a hierarchy record of their own further on are theirs.
    Model *const *own = static_cast<Model *const *>(record->extra);
    if ((animationOptimise & EVAL_OPT_SENTINEL) && own) {
        modelGlobalUpdate(m->parent, m, 0);
        for (; *own; ++own) modelGlobalUpdate((*own)->parent, *own, 0);
    } else {
        modelGlobalUpdate(m->parent, m, 1);
    }
}

void evalGeometryEnd(UpdateRecord *record, float time, int *flags) { deformersGeometryEnd(record, time, flags); }

// ---------------------------------------------------------------------------
// Visibility

namespace {

void setBranch(Model *m, uint16_t visible, uint16_t state, bool visibility, bool states) {
    for (Model *c = m->firstChild; c; c = c->nextSibling) {
        if (visibility) c->visible = visible;
        if (states) c->drawState = state;
        setBranch(c, visible, state, visibility, states);
    }
}

}  // namespace

void evalModelVisibility(UpdateRecord *record, float time, int *) {
    Model *m = static_cast<Model *>(record->data);
    if (!m) return;
    // The first active curve decides.
    forEachSourceCurve(record, [&](Fcurve *c) {
        double v = fcurveValue(c, time, 1);
        // With integer visibility the value 2 and 3 choose two drawing states
        // over the whole subtree.
        bool integer = fcurveIntegerVisibilityOn() != 0;
        uint16_t visible = (integer ? v >= 0.5 : v >= 1.0) ? 1 : 0;
        uint16_t state = !integer || v < 1.5 ? 0 : v < 2.5 ? MODEL_DRAW_STATE_A : MODEL_DRAW_STATE_B;
        m->visible = visible;
        if (integer) m->drawState = state;
        bool branch = record->relation == 12;
        if (branch || integer) setBranch(m, visible, state, branch, integer);
        return false;
    });
}

// ---------------------------------------------------------------------------
// Parameters of a model

namespace {

bool canBeDynamic(const Model *m) {
    return m->type == 1 || m->type == 4 || m->type == 8 || m->type == 10;
}

bool isChainRoot(const Model *m) {
    return m->type == MODEL_TYPE_NULL &&
           (m->kind == MODEL_KIND_CHAIN || m->kind == MODEL_KIND_CHAIN_DYNAMIC);
}

// The joints of `root`'s own chain (not those of a chain nested below it).
void setChainKind(const Model *root, Model *m, int32_t kind) {
    for (Model *c = m->firstChild; c; c = c->nextSibling) {
        if ((c->kind == MODEL_KIND_CHAIN || c->kind == MODEL_KIND_CHAIN_DYNAMIC) && chainRootOf(c) == root)
            c->kind = kind;
        setChainKind(root, c, kind);
    }
}

}  // namespace

void evalDynamicsSwitch(UpdateRecord *record, float time, int *) {
    Model *m = static_cast<Model *>(record->data);
    double v;
    if (!m || !firstCurveValue(record, time, &v)) return;
    modelDynamicsSwitch(m, v >= 1.0);
}

void modelDynamicsSwitch(Model *m, int on) {
    if (!m) return;
    if (isChainRoot(m)) {
        // A chain goes under dynamics as a whole.
        m->kind = on ? MODEL_KIND_CHAIN_DYNAMIC : MODEL_KIND_CHAIN;
        setChainKind(m, m, m->kind);
    } else if ((m->kind == MODEL_KIND_NONE || m->kind == MODEL_KIND_DYNAMIC) && canBeDynamic(m)) {
        m->kind = on ? MODEL_KIND_DYNAMIC : MODEL_KIND_NONE;
    }
}

void evalModelParam(UpdateRecord *record, float time, int *) {
    Model *m = static_cast<Model *>(record->data);
    if (!m) return;
    // The curve's type names the parameter, as it does for the local
    // transform relations; types that name no parameter of a model are passed over.
    uint16_t changed = 0;
    forEachSourceCurve(record, [&](Fcurve *c) {
        double v = fcurveValue(c, time, 1);
        int axis;
        if ((axis = componentOf(c->type, 1, 163)) >= 0) {
            m->scaling[axis] = static_cast<float>(v);
            changed |= TRANSFO_DIRTY_SCALE;
        } else if ((axis = componentOf(c->type, 4, 166)) >= 0) {
            m->rotation[axis] = static_cast<float>(v * DEG_TO_RAD);
            changed |= TRANSFO_DIRTY_ROTATION;
        } else if ((axis = componentOf(c->type, 139, 169)) >= 0) {
            m->translation[axis] = static_cast<float>(v);
            changed |= TRANSFO_DIRTY_POSITION;
        }
        return true;
    });
    if (!changed) return;
    modelMarkDirty(m, changed);
    // A parameter record is not followed by a hierarchy step of its own.
    modelGlobalUpdate(m->parent, m, 1);
}

void evalRenderFlag(UpdateRecord *record, float time, int *) {
    Model *m = static_cast<Model *>(record->data);
    double v;
    if (!m || !firstCurveValue(record, time, &v)) return;
    const uint16_t bit = static_cast<uint16_t>(1u << (record->relation - 4000));
    m->renderFlags = static_cast<uint16_t>(v >= 1.0 ? m->renderFlags | bit : m->renderFlags & ~bit);
}
