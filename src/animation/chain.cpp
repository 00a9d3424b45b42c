// Kinematic chains: the joint and chain records, goals and up vectors handed
// in by the evaluators, joint limits, and the solve of a chain as a whole
// (stretches, passes, limits). The closed forms and the iteration are in
// chain_solve.cpp and chain_3d.cpp.
#include <cstdlib>
#include <cstring>

#include "bw_env.h"
#include "chain_internal.h"
#include "updatelist_internal.h"

std::atomic<long> g_chainSolveCount{0};

namespace {

constexpr int MAX_PASSES = 10;              // further passes of a solve with limits or in 3D
constexpr double PASS_CHANGE = 1e-5;        // a pass that moves the tip less than this ends the passes
constexpr double START_DISTANCE = 1000.0;   // distance to the goal before the first pass

// The strip from the first joint under the root to the model above `tip`;
// 0 when `tip` is not under a chain root through joints only.
int stripOf(Model *tip, ChainStretch &s) {
    s = ChainStretch{};
    s.root = chainRootOf(tip);
    s.tip = tip;
    if (!s.root) return 0;
    Model *up[CHAIN_MAX_JOINTS];
    int n = 0;
    for (Model *p = tip->parent; p && p != s.root; p = p->parent) {
        if (!chainIsJoint(p) || n == CHAIN_MAX_JOINTS) return 0;
        up[n++] = p;
    }
    for (int i = 0; i < n; ++i) s.joints[i] = up[n - 1 - i];
    s.count = n;
    return n > 0;
}

// The effector of `root`'s own chain below `m`, or null.
Model *effectorBelow(Model *root, Model *m) {
    for (Model *c = m->firstChild; c; c = c->nextSibling) {
        if (chainIsEffector(c) && chainRootOf(c) == root) return c;
        if (Model *e = effectorBelow(root, c)) return e;
    }
    return nullptr;
}

void saveRotations(ChainStretch &s) {
    for (int i = 0; i < s.count; ++i)
        if (ChainData *d = chainDataOf(s.joints[i])) memcpy(d->savedRotation, s.joints[i]->rotation, sizeof(float[3]));
}

bool rotationsDiffer(const ChainStretch &s, const float before[][3]) {
    for (int i = 0; i < s.count; ++i)
        if (memcmp(before[i], s.joints[i]->rotation, sizeof(float[3])) != 0) return true;
    return false;
}

int lockedCount(const ChainStretch &s) {
    int n = 0;
    for (int i = 0; i < s.count; ++i) n += s.joints[i]->chain && s.joints[i]->chain->locked;
    return n;
}

bool reached(const ChainStretch &s, const float goal[3]) {
    return chainTipDistance(s, goal) <= CHAIN_REACH_TOLERANCE * chainLengths(s, nullptr, nullptr);
}

// The sub-chain of `s` behind joint `i`, towards the same tip.
ChainStretch behind(const ChainStretch &s, int i) {
    ChainStretch sub = s;
    sub.count = s.count - i - 1;
    for (int k = 0; k < sub.count; ++k) sub.joints[k] = s.joints[i + 1 + k];
    sub.firstPass = 0;
    sub.abort = 0;
    return sub;
}

// The dynamics switch of the root (relation 11), at `time`: kinds follow it.
void dynamicsSwitchAgain(Model *root, float time) {
    Dictionary *dict = walkState().dict;
    if (!dict || !root || root->elementIndex < 0) return;
    const Element *e = elemGet(dict, CHP_MODELS, root->elementIndex);
    if (!e || e->data != root || !e->childGroups || e->childGroupCount <= RELGR_PARAM) return;
    const RelationGroup &g = e->childGroups[RELGR_PARAM];
    for (int i = 0; i < g.count; ++i) {
        const RelationInst &r = g.items[i];
        if (r.relid != 11 || r.chp != CHP_ANIMATION || !r.activ) continue;
        const Element *c = elemGet(dict, CHP_ANIMATION, r.elem);
        if (!c || !c->data) continue;
        modelDynamicsSwitch(root, fcurveValue(static_cast<Fcurve *>(c->data), time, 1) >= 1.0);
        return;
    }
}

}  // namespace

ChainData *chainDataOf(Model *model) {
    if (!model) return nullptr;
    if (!model->chain) model->chain = static_cast<ChainData *>(calloc(1, sizeof(ChainData)));
    return model->chain;
}

void chainSetGoal(Model *model, float x, float y, float z) {
    ChainData *d = chainDataOf(model);
    if (!d) return;
    d->goal[0] = x;
    d->goal[1] = y;
    d->goal[2] = z;
    d->goalState = CHAIN_GOAL_NEW;
}

int chainGoalGet(Model *model, float goal[3]) {
    if (!model || !model->chain || model->chain->goalState == CHAIN_GOAL_NONE) return 0;
    memcpy(goal, model->chain->goal, sizeof(float[3]));
    return 1;
}

void chainSetUpVector(Model *joint, int mode, float x, float y, float z, float) {
    ChainStretch s;
    if (!joint || !stripOf(joint, s)) {
        // A first joint has no joint above it: it is its own first joint.
        if (!chainIsJoint(joint) || !chainIsRoot(joint->parent)) return;
        s.root = joint->parent;
        s.joints[0] = joint;
        s.count = 1;
    }
    ChainData *d = chainDataOf(s.joints[0]);
    if (!d) return;
    d->resolutionPlaneMode = mode;
    d->resolutionPlanePoint[0] = x;
    d->resolutionPlanePoint[1] = y;
    d->resolutionPlanePoint[2] = z;
    // The viewer has no edit mode: an effector without a goal stays where it is.
    Model *effector = chainIsEffector(joint) ? joint : effectorBelow(s.root, s.joints[0]);
    if (effector && chainGoalGet(effector, d->goal) == 0)
        chainSetGoal(effector, effector->globalPosition[0], effector->globalPosition[1], effector->globalPosition[2]);
}

void chainSetJointRotation(Model *joint, int axis, float x, float y, float z) {
    ChainData *d = chainDataOf(joint);
    if (!d) return;
    const float v[3] = {x, y, z};
    for (int k = 0; k < 3; ++k)
        if (axis < 0 || axis == k) joint->rotation[k] = v[k];
    memcpy(d->savedRotation, joint->rotation, sizeof(float[3]));
    d->keyed = 1;
}

int chainOldJointRoll() { return envIsSet(ENV_BW_IK_OLD_JOINT_ROLL); }

// ---------------------------------------------------------------------------
// Limits

void chainLimitsRead(Dictionary *dict, Model *joint) {
    ChainData *d = chainDataOf(joint);
    if (!d) return;
    const Element *e = dict && joint->elementIndex >= 0 ? elemGet(dict, CHP_MODELS, joint->elementIndex) : nullptr;
    if (e && e->data == joint) {
        memset(d->limitOn, 0, sizeof d->limitOn);
        if (e->childGroups && e->childGroupCount > RELGR_TRANSFO) {
            const RelationGroup &g = e->childGroups[RELGR_TRANSFO];
            for (int i = 0; i < g.count; ++i)
                if (g.items[i].relid == 103 && g.items[i].activ && g.items[i].data)
                    chainLimitsTake(joint, g.items[i].data);
        }
    }
    d->free = 1;
    for (uint16_t on : d->limitOn)
        if (on) d->free = 0;
}

void chainLimitsTake(Model *joint, void *relationData) {
    ChainData *d = chainDataOf(joint);
    RelData *data = static_cast<RelData *>(relationData);
    if (!d || !data) return;
    const float *mn = relDataValues(data, "MIN_LIMIT"), *mx = relDataValues(data, "MAX_LIMIT");
    const float *mnOn = relDataValues(data, "MIN_ACTIVE"), *mxOn = relDataValues(data, "MAX_ACTIVE");
    if (!mn || !mx || !mnOn || !mxOn) return;
    for (int k = 0; k < 3; ++k) {
        d->limitOn[k] = mnOn[k] != 0.0f;
        d->limitOn[3 + k] = mxOn[k] != 0.0f;
        d->limit[k] = static_cast<float>(mn[k] * DEG_TO_RAD);
        d->limit[3 + k] = static_cast<float>(mx[k] * DEG_TO_RAD);
    }
}

int chainApplyLimits(Model *joint) {
    ChainData *d = joint ? joint->chain : nullptr;
    if (!d) return 0;
    int clamped = 0;
    for (int k = 0; k < 3; ++k) {
        float &r = joint->rotation[k];
        if (d->limitOn[3 + k] && r >= d->limit[3 + k]) {
            r = d->limit[3 + k];
            ++clamped;
        } else if (d->limitOn[k] && r <= d->limit[k]) {
            r = d->limit[k];
            ++clamped;
        }
    }
    if (clamped == 3) d->locked = 1;
    if (clamped) modelMarkDirty(joint, TRANSFO_DIRTY_ROTATION);
    return clamped;
}

void chainRotationLimit(Model *model, void *relationData) {
    if (!model) return;
    chainLimitsTake(model, relationData);
    if (chainApplyLimits(model)) modelGlobalUpdate(model->parent, model, 1);
}

// ---------------------------------------------------------------------------
// Shared steps

double chainLengths(const ChainStretch &s, double *largest, double *smallest) {
    double total = 0.0, big = 0.0, small = 0.0;
    for (int i = 0; i < s.count; ++i) {
        const Model *next = i + 1 < s.count ? s.joints[i + 1] : s.tip;
        double len = length(chainVec(next->globalPosition) - chainVec(s.joints[i]->globalPosition));
        total += len;
        if (i == 0 || len > big) big = len;
        if (i == 0 || len < small) small = len;
    }
    if (largest) *largest = big;
    if (smallest) *smallest = small;
    return total;
}

double chainTipDistance(const ChainStretch &s, const float goal[3]) {
    return length(chainVec(s.tip->globalPosition) - chainVec(goal));
}

void chainStripUpdate(ChainStretch &s) {
    if (s.count > 0) modelGlobalUpdate(s.joints[0]->parent, s.joints[0], 1);
}

void chainRestore(ChainStretch &s) {
    for (int i = 0; i < s.count; ++i)
        if (s.joints[i]->chain) memcpy(s.joints[i]->rotation, s.joints[i]->chain->savedRotation, sizeof(float[3]));
    chainStripUpdate(s);
}

void chainSetGlobalRotation(Model *joint, const float world[4][4]) {
    float local[4][4];
    mat4Identity(local);
    const float (*p)[4] = joint->parent ? joint->parent->globalRotation : nullptr;
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) {
            // Times the parent's inverse, its transpose.
            double v = p ? static_cast<double>(world[i][0]) * p[k][0] + static_cast<double>(world[i][1]) * p[k][1] +
                               static_cast<double>(world[i][2]) * p[k][2]
                         : world[i][k];
            local[i][k] = static_cast<float>(v);
        }
    float hint[3];
    memcpy(hint, joint->rotation, sizeof hint);
    matrixToEuler(local, hint, joint->rotation);
    modelMarkDirty(joint, TRANSFO_DIRTY_ROTATION);
}

void chainTurnZ(double angle, const float m[4][4], float out[4][4]) {
    float rz[4][4];
    const float a[3] = {0.0f, 0.0f, static_cast<float>(angle)};
    eulerToMatrix(a, rz);
    mat4Mul(rz, m, out);
}

double chainNearPreferred(double angle, double preferred) {
    int k = static_cast<int>(preferred / CHAIN_TWO_PI);
    double rest = std::fmod(preferred, CHAIN_TWO_PI);
    if (rest > CHAIN_PI) ++k;
    else if (rest < -CHAIN_PI) --k;
    return angle + k * CHAIN_TWO_PI;
}

void chainFinish(ChainStretch &s, int turnAll) {
    for (int i = 0; i < s.count; ++i) {
        Model *j = s.joints[i];
        if ((turnAll || i == 0) && j->chain)
            j->rotation[2] = static_cast<float>(chainNearPreferred(j->rotation[2], j->chain->prefRotationZ));
        for (float &a : j->rotation) a = static_cast<float>(std::fmod(static_cast<double>(a), CHAIN_TWO_PI));
        modelMarkDirty(j, TRANSFO_DIRTY_ROTATION);
    }
    chainStripUpdate(s);
}

int chainClampGoal(const ChainStretch &s, float goal[3]) {
    ChainVec first = chainVec(s.joints[0]->globalPosition);
    ChainVec to = chainVec(goal) - first;
    double r = length(to);
    if (r < CHAIN_BOUND) return 4;
    double largest = 0.0;
    double L = chainLengths(s, &largest, nullptr);
    auto place = [&](double distance) {
        ChainVec g = first + to * (distance / r);
        goal[0] = static_cast<float>(g.x);
        goal[1] = static_cast<float>(g.y);
        goal[2] = static_cast<float>(g.z);
    };
    if (r > L + CHAIN_BOUND) {
        place(L);
        return 2;
    }
    double margin = s.count == 2 ? CHAIN_BOUND : L * 0.001;
    if (L - largest < largest) margin += largest - (L - largest);
    if (r <= margin) {
        place(margin);
        return 3;
    }
    return 0;
}

int chainPlaneMatrix(ChainStretch &s, int code, int useGoal, const float goal[3], float out[4][4]) {
    (void)code;  // both codes give the same frame; the first joint is its origin
    ChainVec first = chainVec(s.joints[0]->globalPosition);
    ChainVec x = (useGoal ? chainVec(goal) : chainVec(s.tip->globalPosition)) - first;
    double lx = length(x);
    if (lx < CHAIN_BOUND) return 0;
    x = x * (1.0 / lx);
    ChainData *d = chainDataOf(s.joints[0]);
    if (!d) return 0;
    ChainVec z{0, 0, 0};
    if (d->resolutionPlaneMode == 1 || d->resolutionPlaneMode == 2) {
        ChainVec v = chainVec(d->resolutionPlanePoint);
        if (d->resolutionPlaneMode == 2) v = v - first;
        ChainVec y = v - x * dot(v, x);
        if (length(y) >= CHAIN_BOUND) z = cross(x, y);
    }
    // No up point, or one on the line: the plane of before, else the one
    // the first joint bends in now, else the root's.
    const ChainVec candidates[3] = {{d->planeNormal[0], d->planeNormal[1], d->planeNormal[2]},
                                    chainRow(s.joints[0]->globalRotation, 2), chainRow(s.root->globalRotation, 2)};
    for (int i = 0; i < 3 && length(z) < CHAIN_BOUND; ++i) z = candidates[i] - x * dot(candidates[i], x);
    if (length(z) < CHAIN_BOUND) z = std::fabs(x.z) < 0.9 ? cross(x, {0, 0, 1}) * -1.0 : cross(x, {1, 0, 0});
    z = z * (1.0 / length(z));
    ChainVec y = cross(z, x);
    const ChainVec rows[4] = {x, y, z, first};
    for (int i = 0; i < 4; ++i) {
        out[i][0] = static_cast<float>(rows[i].x);
        out[i][1] = static_cast<float>(rows[i].y);
        out[i][2] = static_cast<float>(rows[i].z);
        out[i][3] = i == 3 ? 1.0f : 0.0f;
    }
    d->planeNormal[0] = out[2][0];
    d->planeNormal[1] = out[2][1];
    d->planeNormal[2] = out[2][2];
    return 1;
}

// ---------------------------------------------------------------------------
// The solve

int chainStep(ChainStretch &s, const float goal[3]) {
    if (!chainIsRoot(s.root) || s.count < 1 || s.joints[0]->kind != MODEL_KIND_CHAIN) return 0;
    ChainData *rootData = chainDataOf(s.root);
    if (!rootData) return 0;
    const int32_t count = rootData->jointCount;
    rootData->jointCount = s.count;
    if (s.count == 1)
        chainOneJoint(s, goal);
    else if (chainIs3D(s))
        chainManyJoints3D(s, goal);
    else if (s.count == 2)
        chainTwoJoints(s, goal);
    else
        chainManyJoints(s, goal);
    rootData->jointCount = count;
    if (s.abort) return 0;
    // Limits from the first joint on: the first joint they move ends the
    // stretch, and what lies behind it tries again from there.
    bool changed = false;
    for (int i = 0; i < s.count; ++i) {
        if (!chainApplyLimits(s.joints[i])) continue;
        changed = true;
        if (i + 1 >= s.count) break;
        chainStripUpdate(s);
        changed = false;
        if (reached(s, goal)) break;
        ChainStretch sub = behind(s, i);
        if (!chainStep(sub, goal)) s.abort = sub.abort;
        break;
    }
    if (changed) chainStripUpdate(s);
    return !s.abort;
}

void chainSolveStretch(ChainStretch &s, const float goal[3]) {
    for (int i = 0; i < s.count; ++i)
        if (ChainData *d = chainDataOf(s.joints[i])) d->locked = 0;
    s.firstPass = 1;
    s.abort = 0;
    chainStep(s, goal);
    if (s.abort) {
        chainRestore(s);
        return;
    }
    bool limited = false;
    for (int i = 0; i < s.count; ++i)
        if (s.joints[i]->chain && !s.joints[i]->chain->free) limited = true;
    if (!limited && !chainIs3D(s)) return;
    const double L = chainLengths(s, nullptr, nullptr);
    double before = START_DISTANCE, d = chainTipDistance(s, goal);
    bool moved = true;
    float rotations[CHAIN_MAX_JOINTS][3];
    for (int pass = 0; pass < MAX_PASSES && moved && d > CHAIN_REACH_TOLERANCE * L &&
                       std::fabs(d - before) > PASS_CHANGE && lockedCount(s) < s.count && !reached(s, goal);
         ++pass) {
        for (int i = 0; i < s.count; ++i) memcpy(rotations[i], s.joints[i]->rotation, sizeof(float[3]));
        s.firstPass = 0;
        if (!chainStep(s, goal)) {
            chainRestore(s);
            return;
        }
        moved = rotationsDiffer(s, rotations);
        before = d;
        d = chainTipDistance(s, goal);
    }
}

void chainSolve(Model *model, float x, float y, float z, float) {
    if (!model || chainIsRoot(model)) return;
    const bool joint = chainIsJoint(model) && model->kind == MODEL_KIND_CHAIN;
    const bool effector = model->type == MODEL_TYPE_NULL && model->kind == MODEL_KIND_EFFECTOR;
    if ((!joint && !effector) || chainIsRoot(model->parent)) return;
    ChainStretch s;
    if (!stripOf(model, s)) return;
    ++g_chainSolveCount;
    Dictionary *dict = walkState().dict;
    for (int i = 0; i < s.count; ++i) chainLimitsRead(dict, s.joints[i]);
    saveRotations(s);
    float goal[3] = {x, y, z};
    // A joint with a goal of its own divides the chain: the stretch above it
    // brings it to its goal first, then the stretch below reaches on.
    for (int k = s.count - 1; k > 0; --k) {
        ChainData *d = s.joints[k]->chain;
        if (!d || d->goalState == CHAIN_GOAL_NONE) continue;
        ChainStretch upper = s;
        upper.count = k;
        upper.tip = s.joints[k];
        float upperGoal[3] = {d->goal[0], d->goal[1], d->goal[2]};
        chainSolveStretch(upper, upperGoal);
        d->goalState = CHAIN_GOAL_USED;
        ChainStretch lower = behind(s, k - 1);
        lower.root = s.root;
        s = lower;
        break;
    }
    chainSolveStretch(s, goal);
    for (int i = 0; i < s.count; ++i)
        if (s.joints[i]->chain) s.joints[i]->chain->keyed = 0;
    if (ChainData *r = chainDataOf(s.root)) r->solved = 0;
}

void chainSolveRecord(UpdateRecord *record, float time, int *) {
    Model *m = static_cast<Model *>(record->data);
    if (!m) return;
    ChainData *d = m->chain;
    if (d && d->goalState == CHAIN_GOAL_NEW) {
        chainSolve(m, d->goal[0], d->goal[1], d->goal[2], time);
        d->goalState = CHAIN_GOAL_USED;
    }
    dynamicsSwitchAgain(chainRootOf(m), time);
}
