// The solve of 3D chains: every joint turns on its three Euler angles. The
// tip follows the goal by damped least squares over all angles, with the
// joints' own forward kinematics, the limits held at each step.
#include <cstring>

#include "chain_internal.h"

namespace {

constexpr double START_BEND = 0.05;    // smallest bend a long chain starts from
constexpr double DAMPING = 0.01;       // times the chain length: the damping of the least squares
constexpr int MAX_ITERATIONS = 200;    // steps of one pass
constexpr int MAX_HALVINGS = 21;       // halvings of a step that does not bring the tip nearer

struct Frame3 {
    double m[3][3];  // rows: the frame's axes in world terms
};

Frame3 frameOf(const float r[4][4]) {
    Frame3 f;
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) f.m[i][k] = r[i][k];
    return f;
}

Frame3 mul(const Frame3 &a, const Frame3 &b) {
    Frame3 o;
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) o.m[i][k] = a.m[i][0] * b.m[0][k] + a.m[i][1] * b.m[1][k] + a.m[i][2] * b.m[2][k];
    return o;
}

Frame3 euler(double x, double y, double z) {
    float m[4][4];
    const float a[3] = {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
    eulerToMatrix(a, m);
    return frameOf(m);
}

ChainVec rowOf(const Frame3 &f, int r) { return {f.m[r][0], f.m[r][1], f.m[r][2]}; }

// The strip in the solver's own terms: per joint three angles and the bone
// as a vector of the joint's frame (the child's offset, scaled as the
// hierarchy scales it).
struct Spatial {
    int n;
    double angle[CHAIN_MAX_JOINTS][3];
    ChainVec bone[CHAIN_MAX_JOINTS];
    Frame3 parent;                        // the first joint's parent frame
    ChainVec origin;                      // the first joint
    ChainVec at[CHAIN_MAX_JOINTS + 1];    // joint positions, the tip last
    Frame3 above[CHAIN_MAX_JOINTS];       // frame each joint turns in (its parent's)

    void forward() {
        Frame3 f = parent;
        at[0] = origin;
        for (int i = 0; i < n; ++i) {
            above[i] = f;
            f = mul(euler(angle[i][0], angle[i][1], angle[i][2]), f);
            ChainVec b = bone[i];
            at[i + 1] = at[i] + rowOf(f, 0) * b.x + rowOf(f, 1) * b.y + rowOf(f, 2) * b.z;
        }
    }
};

void clampToLimits(const Model *joint, double a[3]) {
    const ChainData *d = joint->chain;
    if (!d) return;
    for (int k = 0; k < 3; ++k) {
        if (d->limitOn[3 + k] && a[k] > d->limit[3 + k]) a[k] = d->limit[3 + k];
        if (d->limitOn[k] && a[k] < d->limit[k]) a[k] = d->limit[k];
    }
}

// Solves the 3 by 3 system m x = b; 0 when singular.
int solve3(double m[3][3], const double b[3], double x[3]) {
    double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                 m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    if (!(std::fabs(det) > 1e-300)) return 0;
    for (int c = 0; c < 3; ++c) {
        double t[3][3];
        memcpy(t, m, sizeof t);
        for (int r = 0; r < 3; ++r) t[r][c] = b[r];
        x[c] = (t[0][0] * (t[1][1] * t[2][2] - t[1][2] * t[2][1]) - t[0][1] * (t[1][0] * t[2][2] - t[1][2] * t[2][0]) +
                t[0][2] * (t[1][0] * t[2][1] - t[1][1] * t[2][0])) / det;
    }
    return 1;
}

// One damped least-squares step: the change of every angle that moves the tip by `e`.
bool dampedStep(const Spatial &p, ChainVec e, double lambda, double delta[][3]) {
    ChainVec col[CHAIN_MAX_JOINTS][3];
    ChainVec tip = p.at[p.n];
    double jj[3][3] = {{lambda * lambda, 0, 0}, {0, lambda * lambda, 0}, {0, 0, lambda * lambda}};
    for (int i = 0; i < p.n; ++i) {
        // Rx Ry Rz acting on row vectors: z turns about the parent's Z, y
        // about Y after the z turn, x about X after both.
        Frame3 afterZ = mul(euler(0, 0, p.angle[i][2]), p.above[i]);
        Frame3 afterYZ = mul(euler(0, p.angle[i][1], p.angle[i][2]), p.above[i]);
        const ChainVec axes[3] = {rowOf(afterYZ, 0), rowOf(afterZ, 1), rowOf(p.above[i], 2)};
        for (int k = 0; k < 3; ++k) {
            col[i][k] = cross(axes[k], tip - p.at[i]);
            const double c[3] = {col[i][k].x, col[i][k].y, col[i][k].z};
            for (int r = 0; r < 3; ++r)
                for (int q = 0; q < 3; ++q) jj[r][q] += c[r] * c[q];
        }
    }
    double w[3];
    const double rhs[3] = {e.x, e.y, e.z};
    if (!solve3(jj, rhs, w)) return false;
    const ChainVec wv{w[0], w[1], w[2]};
    for (int i = 0; i < p.n; ++i)
        for (int k = 0; k < 3; ++k) delta[i][k] = dot(col[i][k], wv);
    return true;
}

}  // namespace

void chainManyJoints3D(ChainStretch &s, const float goalIn[3]) {
    float goal[3], plane[4][4];
    int clampCase = 0;
    double L = 0.0;
    if (!chainLongStart(s, goalIn, goal, &clampCase, &L, plane)) return;
    if (clampCase == 2) {
        // Fully stretched: straight joints, the first aimed at the goal.
        for (int i = 1; i < s.count; ++i) memset(s.joints[i]->rotation, 0, sizeof(float[3]));
        for (int i = 0; i < 3; ++i) plane[3][i] = 0.0f;
        chainSetGlobalRotation(s.joints[0], plane);
        chainFinish(s, 0);
        return;
    }
    Spatial p{};
    p.n = s.count;
    p.origin = chainVec(s.joints[0]->globalPosition);
    if (s.joints[0]->parent) p.parent = frameOf(s.joints[0]->parent->globalRotation);
    else p.parent = euler(0, 0, 0);
    const ChainData *firstData = s.joints[0]->chain;
    const bool fromPreferred = s.firstPass && firstData && firstData->free;
    for (int i = 0; i < s.count; ++i) {
        Model *j = s.joints[i];
        const Model *next = i + 1 < s.count ? s.joints[i + 1] : s.tip;
        for (int k = 0; k < 3; ++k) p.angle[i][k] = j->rotation[k];
        ChainVec b{next->translation[0], next->translation[1], next->translation[2]};
        // Own scaling carries a child's offset through the joint's global scale.
        if (g_scalingType != 1) b = {b.x * j->globalScale[0], b.y * j->globalScale[1], b.z * j->globalScale[2]};
        p.bone[i] = b;
        if (i == 0) continue;
        if (fromPreferred && j->chain) p.angle[i][0] = p.angle[i][1] = 0.0, p.angle[i][2] = j->chain->prefRotationZ;
        double &z = p.angle[i][2];
        if (std::fabs(z) < START_BEND && p.angle[i][0] == 0.0 && p.angle[i][1] == 0.0) z = z > 0.0 ? START_BEND : -START_BEND;
    }
    const ChainVec target = chainVec(goal);
    const double tolerance = CHAIN_REACH_TOLERANCE * L;
    const double lambda = DAMPING * L;
    p.forward();
    double e = length(target - p.at[p.n]);
    for (int it = 0; it < MAX_ITERATIONS && e > tolerance; ++it) {
        double delta[CHAIN_MAX_JOINTS][3];
        if (!dampedStep(p, target - p.at[p.n], lambda, delta)) break;
        double saved[CHAIN_MAX_JOINTS][3];
        memcpy(saved, p.angle, sizeof(double[3]) * static_cast<size_t>(p.n));
        double scale = 1.0, now = e;
        int halvings = 0;
        for (; halvings < MAX_HALVINGS; ++halvings, scale *= 0.5) {
            for (int i = 0; i < p.n; ++i) {
                for (int k = 0; k < 3; ++k) p.angle[i][k] = saved[i][k] + delta[i][k] * scale;
                clampToLimits(s.joints[i], p.angle[i]);
            }
            p.forward();
            now = length(target - p.at[p.n]);
            if (now < e) break;
        }
        if (halvings == MAX_HALVINGS) {
            memcpy(p.angle, saved, sizeof(double[3]) * static_cast<size_t>(p.n));
            break;
        }
        e = now;
    }
    for (int i = 0; i < s.count; ++i)
        for (int k = 0; k < 3; ++k) s.joints[i]->rotation[k] = static_cast<float>(p.angle[i][k]);
    chainFinish(s, 0);
}
