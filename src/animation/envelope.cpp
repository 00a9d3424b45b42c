// Envelopes: a skin's points follow the deformers of its skeleton. Since a
// skin costs more than anything else in a frame, a skeleton that stood still
// since the last walk (each pose value within ENVELOPE_POSE_EPSILON) leaves
// its skins alone, and one skeleton's matrices are made once per walk.
#include <cmath>
#include <cstring>
#include <vector>

#include "envelope_internal.h"

namespace {

thread_local int64_t s_deformCount = 0;
// An envelope record ran in this thread's walk: only then has its end
// anything to keep. A walk without one leaves the kept poses older, so the
// next comparison still sees every move since.
thread_local bool s_walkCompared = false;

bool isSkinRole(int32_t role) {
    return role == ENVELOPE_ROLE_SKIN || role == ENVELOPE_ROLE_CHAIN_SKIN;
}

bool isChainRoot(const Model *m) {
    return m->type == MODEL_TYPE_NULL && (m->kind == MODEL_KIND_CHAIN || m->kind == MODEL_KIND_CHAIN_DYNAMIC);
}

// A chain root whose first child is a skeleton's model: the chain carries the
// deformers, and is forced into their pose before their matrices are made.
bool chainSkeletonRoot(const Model *m) {
    return isChainRoot(m) && m->firstChild && m->firstChild->envelopeRole == ENVELOPE_ROLE_SKELETON;
}

// What a skin's deformation walk passes over: null-like models, and for a
// skin the chain that only carries the deformers.
bool passedOver(const Model *skin, const Model *n) {
    return n->envelopeRole == ENVELOPE_ROLE_NULL || (isSkinRole(skin->envelopeRole) && chainSkeletonRoot(n));
}

// The deformers of depth 0 beside `top` (itself first), as the walks take them.
template <class Fn> void eachTop(Model *top, Fn fn) {
    for (Model *t = top; t; t = t->nextSibling)
        if (t == top || envelopeDepth(t) == 0) fn(t);
}

// ---------------------------------------------------------------------------
// Base poses

// A frame of the bind pose: global scale, rotation and matrix.
struct Frame {
    float scale[3];       // global scale
    float rot[4][4];      // pure rotation
    float matrix[4][4];   // the whole transform
};

Frame frameOf(const Model *m) {
    Frame f;
    if (!m) {
        f.scale[0] = f.scale[1] = f.scale[2] = 1.0f;
        mat4Identity(f.rot);
        mat4Identity(f.matrix);
        return f;
    }
    memcpy(f.scale, m->globalScale, sizeof f.scale);
    mat4Copy(f.rot, m->globalRotation);
    mat4Copy(f.matrix, m->globalMatrix);
    return f;
}

// The bind frame of deformer `d` under its parent's bind frame, as the
// hierarchy composes a model's global transform; its inverse becomes the base pose.
Frame bindUnder(const Frame &parent, Model *d) {
    Frame f = parent;
    EnvelopeData *e = envelopeDataGet(d);
    if (!e) return f;
    const float *refScale = e->reference, *refRot = e->reference + 3, *refPos = e->reference + 6;
    float r[4][4];
    eulerToMatrix(refRot, r);
    if (g_scalingType == 1) {
        float local[4][4];
        mat4Identity(local);
        for (int i = 0; i < 3; ++i) {
            for (int k = 0; k < 3; ++k) local[i][k] = r[i][k] * refScale[i];
            local[3][i] = refPos[i];
        }
        mat4Mul(local, parent.matrix, f.matrix);
        for (int i = 0; i < 3; ++i) {
            const float *row = f.matrix[i];
            double len = std::sqrt(double(row[0]) * row[0] + double(row[1]) * row[1] + double(row[2]) * row[2]);
            f.scale[i] = static_cast<float>(len);
            for (int k = 0; k < 3; ++k) f.rot[i][k] = len > 0.0 ? static_cast<float>(row[k] / len) : 0.0f;
        }
    } else {
        for (int i = 0; i < 3; ++i) f.scale[i] = parent.scale[i] * refScale[i];
        float rot[4][4];
        mat4Mul(r, parent.rot, rot);
        for (int i = 0; i < 3; ++i) rot[3][i] = rot[i][3] = 0.0f;
        rot[3][3] = 1.0f;
        mat4Copy(f.rot, rot);
        float pos[3];
        pointMul(refPos, parent.matrix, pos);
        for (int i = 0; i < 3; ++i) {
            for (int k = 0; k < 3; ++k) f.matrix[i][k] = rot[i][k] * f.scale[i];
            f.matrix[i][3] = 0.0f;
            f.matrix[3][i] = pos[i];
        }
        f.matrix[3][3] = 1.0f;
    }
    float inverse[4][4];
    if (mat4Inverse(f.matrix, inverse)) mat4Copy(e->basePose, inverse);
    return f;
}

void bindChildren(const Frame &frame, Model *m) {
    for (Model *c = m->firstChild; c; c = c->nextSibling)
        if (envelopeIsDeformer(c->envelopeRole)) bindChildren(bindUnder(frame, c), c);
}

// ---------------------------------------------------------------------------
// Pose comparison

bool poseDiffers(const Model *m, const EnvelopeData *d) {
    const float *scale = g_scalingType == 1 ? m->classicalScale : m->globalScale;
    const float *now[3] = {scale, m->rotation, m->translation};
    for (int v = 0; v < 3; ++v)
        for (int k = 0; k < 3; ++k)
            if (std::fabs(now[v][k] - d->lastPose[3 * v + k]) > ENVELOPE_POSE_EPSILON) return true;
    return false;
}

// Marks the deformers of the branch that moved; below a moved one every
// deformer counts as moved without comparing.
bool markBranch(const Model *skin, Model *n, bool moved) {
    bool any = false;
    if (!passedOver(skin, n)) {
        EnvelopeData *d = envelopeDataGet(n);
        if (d && (moved || (d->bits & ENVELOPE_REBUILD) || poseDiffers(n, d))) {
            d->bits |= ENVELOPE_MOVED;
            moved = any = true;
        }
    }
    for (Model *c = n->firstChild; c; c = c->nextSibling)
        if (envelopeIsDeformer(c->envelopeRole) && markBranch(skin, c, moved)) any = true;
    return any;
}

// ---------------------------------------------------------------------------
// Deformation walk

// The skeleton a record names: its first source's top, else the skin's own.
Model *recordTop(const UpdateRecord *record, Model *skin) {
    const UpdateSource &s = record->sources[0];
    Model *source = s.chapter == CHP_MODELS ? static_cast<Model *>(s.data) : nullptr;
    if (source && envelopeIsDeformer(source->envelopeRole)) return envelopeOf(source);
    return envelopeOf(skin);
}

}  // namespace

// ---------------------------------------------------------------------------

void envelopeDeform(const EnvelopePass &pass, Model *first, int depth) {
    for (Model *n = first; n; n = n->nextSibling) {
        // The top's siblings count when they are tops too; every deformer
        // child stands one deeper.
        if (!envelopeIsDeformer(n->envelopeRole) || (depth == 0 && n != first && envelopeDepth(n) != 0)) continue;
        if (!passedOver(pass.skin, n)) {
            if (n->type == MODEL_TYPE_JOINT && envelopeJointRounds(n))
                envelopeDeformJoint(pass, n);
            else
                envelopeDeformBone(pass, n);
        }
        if (n->firstChild) envelopeDeform(pass, n->firstChild, depth + 1);
    }
}

int envelopeIsDeformer(int32_t role) {
    switch (role) {
        case ENVELOPE_ROLE_SKELETON: case ENVELOPE_ROLE_CHAIN_DEFORMER: case ENVELOPE_ROLE_DEFORMER:
        case ENVELOPE_ROLE_ROOT: case ENVELOPE_ROLE_NULL:
            return 1;
        default:
            return 0;
    }
}

int envelopeDepth(const Model *model) {
    if (!model || !envelopeIsDeformer(model->envelopeRole)) return -1;
    int depth = 0;
    for (const Model *p = model->parent; p && envelopeIsDeformer(p->envelopeRole); p = p->parent) ++depth;
    return depth;
}

Model *envelopeOf(Model *model) {
    if (!model) return nullptr;
    if (envelopeIsDeformer(model->envelopeRole)) {
        while (model->parent && envelopeIsDeformer(model->parent->envelopeRole)) model = model->parent;
        return model;
    }
    if (!isSkinRole(model->envelopeRole)) return nullptr;
    auto skeletonTop = [](const Model *m) {
        return m->envelopeRole == ENVELOPE_ROLE_SKELETON || m->envelopeRole == ENVELOPE_ROLE_ROOT;
    };
    for (Model *c = model->firstChild; c; c = c->nextSibling)
        if (skeletonTop(c)) return c;
    for (Model *p = model->parent; p; p = p->parent)
        if (skeletonTop(p)) return p;
    return nullptr;
}

void envelopeDeformerMatrices(Model *top) {
    if (!top || envelopeDepth(top) < 0) return;
    EnvelopeData *d = envelopeDataGet(top);
    if (!d) return;
    if (walkState().deferred) d->bits |= ENVELOPE_DEFERRED;
    const bool chain = chainSkeletonRoot(top);
    if (chain) {
        // The chain's own transforms first, walked with the child loop.
        // The word is shared by every thread: it is written only when the bit is off (-o).
        const int saved = animationOptimise;
        if (!(saved & EVAL_OPT_CHILD_LOOP)) animationOptimise = saved | EVAL_OPT_CHILD_LOOP;
        modelGlobalUpdate(top->parent, top, 1);
        if (!(saved & EVAL_OPT_CHILD_LOOP)) animationOptimise = saved;
    }
    if (top->envelopeRole == ENVELOPE_ROLE_NULL) {
        bindChildren(frameOf(top), top);
    } else if (chain || top->envelopeRole == ENVELOPE_ROLE_SKELETON || top->envelopeRole == ENVELOPE_ROLE_ROOT) {
        // The skeleton's base follows its parent: the bind pose is relative to it.
        const Frame parent = frameOf(top->parent);
        eachTop(top, [&](Model *t) { bindChildren(bindUnder(parent, t), t); });
    }
    // A skeleton of plain deformers keeps the base poses it was stored with.
}

void envelopeApply(Model *skin, Model *top, int selectedOnly) {
    if (!skin || !top || selectedOnly) return;
    const DeformRest *rest = modelRestPoints(skin);
    if (!rest || geometryPointCount(skin->type, skin->geometry.any) != rest->count) return;
    EnvelopePass pass;
    pass.skin = skin;
    pass.rest = rest->values;
    pass.count = rest->count;
    pass.width = rest->width;
    mat4Copy(pass.toWorld, skin->globalMatrix);
    if (!mat4Inverse(skin->globalMatrix, pass.fromWorld)) return;
    // The sum starts from the rest points; unassigned points stay there.
    thread_local std::vector<double> out;
    const size_t values = static_cast<size_t>(rest->count) * static_cast<size_t>(rest->width);
    out.assign(rest->values, rest->values + values);
    pass.out = out.data();
    // A chain part keeps the global place the solver gave it.
    float rotation[4][4], position[3];
    const bool chainPart = skin->envelopeRole == ENVELOPE_ROLE_CHAIN_SKIN;
    if (chainPart) {
        mat4Copy(rotation, skin->globalRotation);
        memcpy(position, skin->globalPosition, sizeof position);
    }
    envelopeDeform(pass, top, 0);
    geometryPointsWrite(skin->type, skin->geometry.any, pass.out);
    if (chainPart) {
        modelSetLocalRotation(skin, rotation);
        modelSetLocalPosition(skin, position);
    }
    modelGeometryChanged(skin);
    ++s_deformCount;
}

void envelopeRefresh(Model *skin, Model *top) {
    if (!skin) return;
    if (!top) top = envelopeOf(skin);
    EnvelopeData *d = envelopeDataGet(top);
    if (!d) return;
    // One skeleton's matrices serve every skin it moves in a walk.
    if (!evalEnvelopeDeferral() || !(d->bits & ENVELOPE_DEFERRED)) envelopeDeformerMatrices(top);
    envelopeApply(skin, top, 0);
    const int32_t role = skin->envelopeRole;
    if (role == ENVELOPE_ROLE_CHAIN_SKIN)
        modelGlobalUpdate(skin->parent, skin, 0);
    else if ((role == ENVELOPE_ROLE_CHAIN_DEFORMER || role == ENVELOPE_ROLE_DEFORMER) &&
             top->envelopeRole != ENVELOPE_ROLE_NULL)
        modelGlobalUpdate(top->parent, top, 1);
}

int envelopeMark(Model *skin, Model *top) {
    if (!skin || !top) return 0;
    bool any = false;
    eachTop(top, [&](Model *t) {
        if (markBranch(skin, t, false)) any = true;
    });
    return any ? 1 : 0;
}

void envelopeUpdateRecord(UpdateRecord *record, float, int *) {
    Model *skin = record->chapter == CHP_MODELS ? static_cast<Model *>(record->data) : nullptr;
    if (!skin || record->sourceCount < 1) return;
    switch (skin->envelopeRole) {
        case ENVELOPE_ROLE_CHAIN_DEFORMER: case ENVELOPE_ROLE_SKIN: case ENVELOPE_ROLE_CHAIN_SKIN:
        case ENVELOPE_ROLE_DEFORMER:
            break;
        default:
            return;
    }
    if (!record->active || !record->sources[0].active) {
        // Switched off: the skin goes back to rest.
        if (skin->rest && modelRestore(skin)) modelGeometryChanged(skin);
        return;
    }
    Model *top = recordTop(record, skin);
    EnvelopeData *d = envelopeDataGet(top);
    if (!d) return;
    s_walkCompared = true;
    if (!evalEnvelopeDeferral()) {
        envelopeRefresh(skin, top);
        return;
    }
    const bool moved = (d->bits & ENVELOPE_MOVED) || envelopeMark(skin, top);
    // Shapes and clusters start the skin's points afresh each frame.
    if (moved || skin->shapeAnim || skin->clusterList) envelopeRefresh(skin, top);
}

void envelopeWalkEnd(Dictionary *dict) {
    if (!s_walkCompared) return;
    s_walkCompared = false;
    Chapter *models = dict ? dictChapter(dict, CHP_MODELS) : nullptr;
    for (int i = 0; models && i < models->elementCount; ++i) {
        const Element &e = models->elements[i];
        Model *root = static_cast<Model *>(e.data);
        if (e.deleted != ELEM_LIVE || !root || root->parent) continue;
        for (Model *n = root; n; n = modelTreeNext(n, root)) {
            EnvelopeData *d = n->envelope;
            if (!d || envelopeDepth(n) < 0) continue;
            d->bits &= static_cast<uint16_t>(~(ENVELOPE_MOVED | ENVELOPE_DEFERRED | ENVELOPE_REBUILD));
            const float *scale = g_scalingType == 1 ? n->classicalScale : n->globalScale;
            memcpy(d->lastPose, scale, sizeof(float[3]));
            memcpy(d->lastPose + 3, n->rotation, sizeof(float[3]));
            memcpy(d->lastPose + 6, n->translation, sizeof(float[3]));
        }
    }
}

void envelopeSceneResolve(Dictionary *dict) {
    Chapter *models = dict ? dictChapter(dict, CHP_MODELS) : nullptr;
    for (int i = 0; models && i < models->elementCount; ++i) {
        const Element &e = models->elements[i];
        Model *skin = static_cast<Model *>(e.data);
        if (e.deleted != ELEM_LIVE || !skin || !e.childGroups) continue;
        const struct { int group; int32_t relid; } kinds[] = {{RELGR_TRANSFO, 206}, {RELGR_GEOM, 207}};
        for (const auto &k : kinds) {
            if (k.group >= e.childGroupCount) continue;
            const RelationGroup &g = e.childGroups[k.group];
            for (int r = 0; r < g.count; ++r) {
                const RelationInst &rel = g.items[r];
                Element *other = rel.relid == k.relid && rel.chp == CHP_MODELS ? elemGet(dict, CHP_MODELS, rel.elem) : nullptr;
                Model *source = other ? static_cast<Model *>(other->data) : nullptr;
                if (!source) continue;
                if (skin->envelopeRole == ENVELOPE_ROLE_NONE)
                    skin->envelopeRole = skin->kind >= MODEL_KIND_CHAIN && skin->kind <= MODEL_KIND_EFFECTOR_2
                                             ? ENVELOPE_ROLE_CHAIN_SKIN
                                             : ENVELOPE_ROLE_SKIN;
                Model *top = envelopeIsDeformer(source->envelopeRole) ? envelopeOf(source) : source;
                eachTop(top, [&](Model *t) {
                    for (Model *n = t; n; n = modelTreeNext(n, t)) {
                        if (!n->envelope) continue;
                        for (EnvelopeSkin *s = n->envelope->skins; s; s = s->next)
                            if (!s->skin && s->skinName && skin->name && strcmp(s->skinName, skin->name) == 0) {
                                s->skin = skin;
                                n->envelope->bits |= ENVELOPE_REBUILD;
                            }
                    }
                });
            }
        }
    }
}

int64_t envelopeDeformCount() { return s_deformCount; }

// ---------------------------------------------------------------------------
// The plain form

void envelopeComposite(const EnvelopePass &pass, const Model *bone, float out[4][4]) {
    float a[4][4], b[4][4];
    mat4Mul(pass.toWorld, bone->envelope->basePose, a);
    mat4Mul(a, bone->globalMatrix, b);
    mat4Mul(b, pass.fromWorld, out);
}

void envelopeDeformBone(const EnvelopePass &pass, const Model *bone) {
    const EnvelopeSkin *list = envelopeSkinFind(bone->envelope, pass.skin);
    if (!list) return;
    float c[4][4];
    envelopeComposite(pass, bone, c);
    envelopeAccumulate(pass, *list, [&](const double *p, double q[3], bool direction) {
        envelopePointMul(p, c, q, direction);
    });
}
