// The solve of 2D chains: one joint aims, two joints take the law of
// cosines in the resolution plane, longer chains iterate on the tip with the
// pseudo-inverse of the plane Jacobian, halving steps that overshoot.
#include <cstring>

#include "chain_internal.h"

namespace {

constexpr float FOLDED = 3.1415927f;         // second angle of a folded pair
constexpr double START_BEND = 0.05;          // smallest bend a long chain starts from
constexpr int MAX_LEVEL = 21;                // halvings of one advance
constexpr int MAX_ADVANCES = 64;             // partial targets of one iteration

double wrapPi(double a) {
    a = std::fmod(a, CHAIN_TWO_PI);
    if (a > CHAIN_PI) a -= CHAIN_TWO_PI;
    if (a < -CHAIN_PI) a += CHAIN_TWO_PI;
    return a;
}

// Coordinates of a world point in the plane (X and Y rows, fourth row origin).
void inPlane(const float plane[4][4], const float p[3], double &u, double &v) {
    ChainVec d = chainVec(p) - chainRow(plane, 3);
    u = dot(d, chainRow(plane, 0));
    v = dot(d, chainRow(plane, 1));
}

// Rotation of `angle` about X, times `m`.
void turnX(double angle, const float m[4][4], float out[4][4]) {
    float rx[4][4];
    const float a[3] = {static_cast<float>(angle), 0.0f, 0.0f};
    eulerToMatrix(a, rx);
    mat4Mul(rx, m, out);
}

// A planar chain: the angles of the joints (the first against the plane's
// X axis, the others against their parent bone), bone lengths, and the
// positions that follow.
struct Planar {
    int n;                                // joints
    double angle[CHAIN_MAX_JOINTS];       // radians
    double len[CHAIN_MAX_JOINTS];         // bone lengths
    double x[CHAIN_MAX_JOINTS + 1];       // joint positions, the tip last
    double y[CHAIN_MAX_JOINTS + 1];
    double pinv[CHAIN_MAX_JOINTS][2];     // pseudo-inverse of the tip's Jacobian, row per joint
    double stepTolerance;                 // what an advance must land within
    int abort;                            // the halving went too deep

    void forward() {
        double phi = 0.0;
        x[0] = y[0] = 0.0;
        for (int i = 0; i < n; ++i) {
            phi += angle[i];
            x[i + 1] = x[i] + len[i] * std::cos(phi);
            y[i + 1] = y[i] + len[i] * std::sin(phi);
        }
    }
    double tipDistance(const double t[2]) const { return std::hypot(x[n] - t[0], y[n] - t[1]); }
};

// Jacobian of the tip by each angle, and its least-squares inverse
// J^T (J J^T)^-1. 0 when J J^T is singular.
int pseudoInverse(Planar &p) {
    double a = 0.0, b = 0.0, c = 0.0, scale = 0.0;
    double col[CHAIN_MAX_JOINTS][2];
    for (int i = 0; i < p.n; ++i) {
        col[i][0] = -(p.y[p.n] - p.y[i]);
        col[i][1] = p.x[p.n] - p.x[i];
        a += col[i][0] * col[i][0];
        b += col[i][0] * col[i][1];
        c += col[i][1] * col[i][1];
        scale += p.len[i];
    }
    double det = a * c - b * b;
    if (!(std::fabs(det) > 1e-12 * scale * scale * scale * scale)) return 0;
    const double inv[2][2] = {{c / det, -b / det}, {-b / det, a / det}};
    for (int i = 0; i < p.n; ++i) {
        p.pinv[i][0] = col[i][0] * inv[0][0] + col[i][1] * inv[1][0];
        p.pinv[i][1] = col[i][0] * inv[0][1] + col[i][1] * inv[1][1];
    }
    return 1;
}

// One advance of the tip towards `target`; a step that lands off by more
// than the tolerance is done again as two halves.
void chainAdvance(int level, Planar &p, ChainStretch &s, int recompute, double tolerance, const double target[2]) {
    if (p.abort) return;
    if (level >= MAX_LEVEL) {
        p.abort = 1;
        return;
    }
    const double from[2] = {p.x[p.n], p.y[p.n]};
    const double r[2] = {target[0] - from[0], target[1] - from[1]};
    if (recompute && !pseudoInverse(p)) return;
    double delta[CHAIN_MAX_JOINTS];
    for (int i = 0; i < p.n; ++i) {
        delta[i] = p.pinv[i][0] * r[0] + p.pinv[i][1] * r[1];
        p.angle[i] += delta[i];
        if (ChainData *d = s.joints[i]->chain) d->deltaRotation = static_cast<float>(delta[i]);
    }
    p.forward();
    if (p.tipDistance(target) <= tolerance) return;
    for (int i = 0; i < p.n; ++i) p.angle[i] -= delta[i];
    p.forward();
    const double middle[2] = {(from[0] + target[0]) * 0.5, (from[1] + target[1]) * 0.5};
    const double half = std::hypot(r[0], r[1]) * 0.5;
    chainAdvance(level + 1, p, s, 0, tolerance + half, middle);
    chainAdvance(level + 1, p, s, 1, tolerance, target);
}

// The point at `fraction` of the way from `from` to `to`; components that
// differ by less than the bound take the goal's.
void targetPoint(const double from[2], const double to[2], double fraction, double out[2]) {
    for (int k = 0; k < 2; ++k) {
        if (fraction <= 0.0) out[k] = from[k];
        else if (fraction >= 1.0 || std::fabs(to[k] - from[k]) < CHAIN_BOUND) out[k] = to[k];
        else out[k] = from[k] + (to[k] - from[k]) * fraction;
    }
}

void chainIterate(Planar &p, ChainStretch &s, double ratio, double reachTolerance, const double goal[2]) {
    double e = p.tipDistance(goal);
    for (int round = 0; e > reachTolerance && round < MAX_ADVANCES && !p.abort; ++round) {
        const double from[2] = {p.x[p.n], p.y[p.n]};
        double target[2];
        targetPoint(from, goal, e * ratio / e, target);
        chainAdvance(0, p, s, 1, p.stepTolerance, target);
        double now = p.tipDistance(goal);
        if (!(now < e)) break;  // no progress: a singular pose or a goal it cannot take
        e = now;
    }
    if (!p.abort && p.tipDistance(goal) > 0.0) chainAdvance(0, p, s, 1, p.stepTolerance, goal);
}

// The angle the joints turn by, on the plus side of the plane or the minus
// side: where the elbow stands now, else the second joint's preferred or
// present bend; none of them says plus.
bool plusSide(const ChainStretch &s, const float plane[4][4], double goalAngle) {
    double ex, ey;
    inPlane(plane, s.joints[1]->globalPosition, ex, ey);
    double side = wrapPi(goalAngle - std::atan2(ey, ex));
    if (side != 0.0 && std::hypot(ex, ey) > CHAIN_BOUND) return side > 0.0;
    const ChainData *d = s.joints[1]->chain;
    if (d && d->prefRotationZ != 0.0f) return d->prefRotationZ > 0.0f;
    return s.joints[1]->rotation[2] > 0.0f;
}

double angleOf(double px, double py) {
    if (py == 0.0) return px < 0.0 ? CHAIN_PI : 0.0;
    return std::atan2(py, px);
}

}  // namespace

void chainOneJoint(ChainStretch &s, const float goal[3]) {
    float plane[4][4];
    if (!chainPlaneMatrix(s, chainIs3D(s) ? 30 : 20, 1, goal, plane)) return;
    chainSetGlobalRotation(s.joints[0], plane);
    chainFinish(s, 0);
}

void chainPropagateRoll(ChainStretch &s) {
    // Joint i turns about its own Z after the rolls of the joints before it:
    // its local rotation is Rx(rolls up to i) Rz Rx(rolls before i)^-1, so
    // every bone stays in the plane while each joint keeps its roll.
    double before = 0.0;
    for (int i = 1; i < s.count; ++i) {
        Model *j = s.joints[i];
        double offset = j->chain ? j->chain->jointRollOffset : 0.0;
        double upTo = before + (std::fabs(offset) > CHAIN_BOUND ? offset : 0.0);
        if (upTo != 0.0 || before != 0.0) {
            float rz[4][4], m[4][4], out[4][4];
            const float z[3] = {0.0f, 0.0f, j->rotation[2]};
            eulerToMatrix(z, rz);
            turnX(upTo, rz, m);
            float back[4][4];
            const float x[3] = {static_cast<float>(-before), 0.0f, 0.0f};
            eulerToMatrix(x, back);
            mat4Mul(m, back, out);
            float hint[3];
            memcpy(hint, j->rotation, sizeof hint);
            matrixToEuler(out, hint, j->rotation);
        }
        before = upTo;
    }
}

void chainTwoJoints(ChainStretch &s, const float goalIn[3]) {
    const double a = length(chainVec(s.joints[1]->globalPosition) - chainVec(s.joints[0]->globalPosition));
    const double b = length(chainVec(s.tip->globalPosition) - chainVec(s.joints[1]->globalPosition));
    if (a < CHAIN_BOUND || b < CHAIN_BOUND) return;
    float goal[3] = {goalIn[0], goalIn[1], goalIn[2]};
    if (chainClampGoal(s, goal) == 4) return;
    float plane[4][4];
    if (!chainPlaneMatrix(s, 20, 1, goal, plane)) return;
    double px, py;
    inPlane(plane, goal, px, py);
    const double r = std::hypot(px, py);
    const ChainData *second = s.joints[1]->chain;
    const bool oldRoll = chainOldJointRoll() != 0;
    const double roll = oldRoll && second && std::fabs(second->jointRollOffset) > CHAIN_BOUND ? second->jointRollOffset : 0.0;
    const double goalAngle = angleOf(px, py);
    const bool plus = plusSide(s, plane, goalAngle);
    double first, bend;
    if (a + b < r + CHAIN_BOUND) {
        first = goalAngle;
        bend = 0.0;
    } else if (r - CHAIN_BOUND < std::fabs(a - b)) {
        first = goalAngle;
        bend = FOLDED;
    } else {
        double c = (r * r - a * a - b * b) / (2.0 * a * b);
        c = c < -1.0 ? -1.0 : c > 1.0 ? 1.0 : c;
        double sn = -std::sqrt(1.0 - c * c);
        if (plus) sn = -sn;
        bend = sn == 0.0 ? (c < 0.0 ? CHAIN_PI : 0.0) : std::atan2(sn, c);
        first = goalAngle - std::atan2(sn * b, c * b + a);
    }
    // The old roll convention turns the whole plane about the line to the
    // goal by the second joint's roll, which leaves the tip where it is.
    float rolled[4][4], world[4][4];
    turnX(roll, plane, rolled);
    chainTurnZ(first, rolled, world);
    for (int i = 0; i < 3; ++i) world[3][i] = 0.0f;
    chainSetGlobalRotation(s.joints[0], world);
    Model *j = s.joints[1];
    j->rotation[0] = static_cast<float>(roll);
    j->rotation[1] = 0.0f;
    j->rotation[2] = static_cast<float>(bend);
    if (!oldRoll) chainPropagateRoll(s);
    chainFinish(s, 1);
}

void chainManyJoints(ChainStretch &s, const float goalIn[3]) {
    const double reach = length(chainVec(s.tip->globalPosition) - chainVec(s.joints[0]->globalPosition));
    float goal[3], plane[4][4];
    int clampCase = 0;
    double L = 0.0;
    if (!chainLongStart(s, goalIn, goal, &clampCase, &L, plane)) return;
    Planar p{};
    p.n = s.count;
    for (int i = 0; i < s.count; ++i) {
        const Model *next = i + 1 < s.count ? s.joints[i + 1] : s.tip;
        p.len[i] = length(chainVec(next->globalPosition) - chainVec(s.joints[i]->globalPosition));
    }
    if (clampCase != 2) {
        const bool stretched = L - reach < 1e-5;
        double ratio = stretched ? 0.718 : 1.0;
        p.stepTolerance = (stretched ? 0.0001 : 0.0005) * L;
        const ChainData *firstData = s.joints[0]->chain;
        const bool fromPreferred = s.firstPass && firstData && firstData->free;
        for (int i = 1; i < s.count; ++i) {
            Model *j = s.joints[i];
            double a = fromPreferred && j->chain ? j->chain->prefRotationZ : j->rotation[2];
            if (std::fabs(a) < START_BEND) a = a > 0.0 ? START_BEND : -START_BEND;
            if (fromPreferred) j->rotation[0] = j->rotation[1] = 0.0f;
            p.angle[i] = a;
        }
        // The first joint turns the tip onto the line to the goal.
        p.angle[0] = 0.0;
        p.forward();
        p.angle[0] = std::atan2(p.y[1], p.x[1]) - std::atan2(p.y[p.n], p.x[p.n]);
        p.forward();
        double gx, gy;
        inPlane(plane, goal, gx, gy);
        const double target[2] = {gx, gy};
        chainIterate(p, s, ratio, CHAIN_REACH_TOLERANCE * L, target);
        if (p.abort) {
            s.abort = 1;
            return;
        }
    }
    float world[4][4];
    chainTurnZ(p.angle[0], plane, world);
    for (int i = 0; i < 3; ++i) world[3][i] = 0.0f;
    Model *first = s.joints[0];
    if (first->chain) memcpy(first->rotation, first->chain->savedRotation, sizeof(float[3]));
    chainSetGlobalRotation(first, world);
    for (int i = 1; i < s.count; ++i) {
        Model *j = s.joints[i];
        j->rotation[0] = j->rotation[1] = 0.0f;
        j->rotation[2] = static_cast<float>(p.angle[i]);
    }
    if (!chainOldJointRoll()) chainPropagateRoll(s);
    chainFinish(s, 0);
}

int chainLongStart(ChainStretch &s, const float goalIn[3], float goal[3], int *clampCase, double *L,
                   float plane[4][4]) {
    for (int i = 0; i < s.count; ++i)
        if (ChainData *d = chainDataOf(s.joints[i])) memcpy(d->savedRotation, s.joints[i]->rotation, sizeof(float[3]));
    double smallest = 0.0;
    *L = chainLengths(s, nullptr, &smallest);
    const double d = length(chainVec(goalIn) - chainVec(s.joints[0]->globalPosition));
    const ChainData *rootData = s.root->chain;
    if (!((d >= CHAIN_REACH_TOLERANCE * *L && smallest >= CHAIN_BOUND) || (rootData && rootData->solved))) return 0;
    memcpy(goal, goalIn, sizeof(float[3]));
    *clampCase = chainClampGoal(s, goal);
    if (*clampCase == 4) return 0;
    return chainPlaneMatrix(s, 30, 1, goal, plane) ? 1 : 0;
}
