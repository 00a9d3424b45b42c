// Kinematic chains: each case builds a strip of models, solves, and checks
// the tip by forward kinematics computed here from the joints' local
// rotations and bone lengths.
#include <array>
#include <cmath>

#include "scene_fixture.h"

namespace {

using V3 = std::array<double, 3>;
using M3 = std::array<V3, 3>;

// Rx Ry Rz for row vectors, from the table of the transform conventions.
M3 euler(const float a[3]) {
    double cx = std::cos(a[0]), sx = std::sin(a[0]), cy = std::cos(a[1]), sy = std::sin(a[1]);
    double cz = std::cos(a[2]), sz = std::sin(a[2]);
    return {{{cz * cy, sz * cy, -sy},
             {sy * sx * cz - sz * cx, sy * sx * sz + cz * cx, cy * sx},
             {sy * cx * cz + sz * sx, sy * cx * sz - cz * sx, cy * cx}}};
}
M3 mul(const M3 &a, const M3 &b) {
    M3 o{};
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) o[i][k] = a[i][0] * b[0][k] + a[i][1] * b[1][k] + a[i][2] * b[2][k];
    return o;
}
double dist(const V3 &a, const V3 &b) { return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]); }

// A strip: a root at `base`, joints with bones along X of the given
// lengths, an effector at the end. Everything lives in `owned`'s tree.
struct Strip {
    Model *root;
    std::vector<Model *> joints;
    Model *effector;
    std::vector<double> bones;
    V3 base;

    // The tip from the joints' local rotations alone (root unturned).
    V3 tip() const {
        M3 frame{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
        V3 p = base;
        for (size_t i = 0; i < joints.size(); ++i) {
            frame = mul(euler(joints[i]->rotation), frame);
            for (int k = 0; k < 3; ++k) p[k] += bones[i] * frame[0][k];
        }
        return p;
    }
    double length() const {
        double L = 0;
        for (double b : bones) L += b;
        return L;
    }
    void solve(const V3 &goal) {
        chainSolve(effector, float(goal[0]), float(goal[1]), float(goal[2]), 0.0f);
    }
};

Strip makeStrip(std::vector<double> bones, V3 base = {0.5, -0.25, 0.0}, int32_t chainType = 0) {
    Strip s;
    s.bones = bones;
    s.base = base;
    s.root = modelNew("root", MODEL_TYPE_NULL, nullptr);
    s.root->kind = MODEL_KIND_CHAIN;
    s.root->chainType = chainType;
    for (int k = 0; k < 3; ++k) s.root->translation[k] = float(base[k]);
    Model *parent = s.root;
    for (size_t i = 0; i <= bones.size(); ++i) {
        bool last = i == bones.size();
        Model *m = modelNew(last ? "effector" : "joint", last ? MODEL_TYPE_NULL : MODEL_TYPE_JOINT, nullptr);
        m->kind = last ? MODEL_KIND_EFFECTOR : MODEL_KIND_CHAIN;
        if (i > 0) m->translation[0] = float(bones[i - 1]);
        modelAddChild(parent, m);
        if (last) s.effector = m;
        else s.joints.push_back(m);
        parent = m;
    }
    modelGlobalUpdate(nullptr, s.root, 1);
    return s;
}

class ChainTest : public ::testing::Test {
protected:
    void SetUp() override {
        g_modelExtraFree = modelExtraFree;  // chain records go with their nodes
        g_scalingType = 0;
    }
    void TearDown() override {
        for (Strip &s : strips) modelFree(s.root);
    }
    Strip &strip(std::vector<double> bones, V3 base = {0.5, -0.25, 0.0}, int32_t chainType = 0) {
        strips.push_back(makeStrip(bones, base, chainType));
        return strips.back();
    }
    std::vector<Strip> strips;
};

}  // namespace

TEST_F(ChainTest, TwoJointsPutTheTipOnReachableGoals) {
    Strip &s = strip({1.0, 0.75});
    for (V3 goal : {V3{1.7, 0.6, 0.0}, V3{0.9, 0.9, -0.4}, V3{-0.2, 0.3, 0.5}, V3{0.6, -1.3, 0.2}}) {
        s.solve(goal);
        EXPECT_LT(dist(s.tip(), goal), 1e-4) << goal[0] << " " << goal[1] << " " << goal[2];
        // The hierarchy agrees with the rotations.
        EXPECT_LT(dist({s.effector->globalPosition[0], s.effector->globalPosition[1], s.effector->globalPosition[2]}, goal), 1e-4);
    }
}

TEST_F(ChainTest, TwoJointsKeepTheElbowOnItsSide) {
    Strip &s = strip({1.0, 1.0});
    s.solve({1.0, 1.0, 0.0});
    const float bend = s.joints[1]->rotation[2];
    ASSERT_NE(bend, 0.0f);
    s.solve({1.2, 0.8, 0.0});
    EXPECT_GT(bend * s.joints[1]->rotation[2], 0.0f);
}

TEST_F(ChainTest, UnreachableGoalLeavesTheChainStraightTowardIt) {
    Strip &s = strip({1.0, 1.0, 0.5});
    const V3 goal{4.0, 3.0, 1.0};
    s.solve(goal);
    V3 tip = s.tip();
    EXPECT_NEAR(dist(tip, s.base), s.length(), 1e-4);
    // On the line from the first joint to the goal.
    double along = dist(goal, s.base);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(tip[k] - s.base[k], (goal[k] - s.base[k]) * s.length() / along, 1e-4);
}

TEST_F(ChainTest, GoalAtTheRootChangesNothing) {
    Strip &s = strip({1.0, 1.0});
    s.joints[1]->rotation[2] = 0.4f;
    modelGlobalUpdate(nullptr, s.root, 1);
    s.solve(s.base);
    EXPECT_EQ(s.joints[0]->rotation[2], 0.0f);
    EXPECT_EQ(s.joints[1]->rotation[2], 0.4f);
}

TEST_F(ChainTest, NearFullReachIsStraightAndShorterGoalsTakeTheCosineLaw) {
    Strip &s = strip({1.0, 1.0});
    const V3 dir{0.6, 0.8, 0.0};
    V3 far{s.base[0] + 2.00005 * dir[0], s.base[1] + 2.00005 * dir[1], 0.0};
    s.solve(far);
    EXPECT_EQ(s.joints[1]->rotation[2], 0.0f);
    EXPECT_NEAR(dist(s.tip(), s.base), 2.0, 1e-5);
    V3 near{s.base[0] + 1.9 * dir[0], s.base[1] + 1.9 * dir[1], 0.0};
    s.solve(near);
    // Law of cosines: 1.9^2 = 1 + 1 - 2 cos(pi - bend).
    EXPECT_NEAR(std::fabs(s.joints[1]->rotation[2]), std::acos((1.9 * 1.9 - 2.0) / 2.0), 1e-5);
    EXPECT_LT(dist(s.tip(), near), 1e-4);
}

TEST_F(ChainTest, LongStraightChainBendsAndReaches) {
    Strip &s = strip({1.0, 1.0, 1.0, 1.0});
    const V3 goal{s.base[0] + 2.2, s.base[1] + 1.5, 0.0};
    s.solve(goal);
    EXPECT_LT(dist(s.tip(), goal), 0.0008 * s.length());
    for (int i = 1; i < 4; ++i) EXPECT_NE(s.joints[i]->rotation[2], 0.0f) << i;
}

TEST_F(ChainTest, ThreeDimensionalChainReachesOffThePlane) {
    Strip &s = strip({1.0, 0.8, 0.6}, {0.0, 0.0, 0.0}, CHAIN_TYPE_3D);
    for (V3 goal : {V3{1.0, 0.8, 0.9}, V3{0.2, -1.1, 0.7}, V3{-0.5, 0.4, -1.2}}) {
        s.solve(goal);
        EXPECT_LT(dist(s.tip(), goal), 0.0008 * s.length()) << goal[0] << " " << goal[1] << " " << goal[2];
    }
}

// Chains in a scene: the update list runs the solve behind the goal's curves.
class ChainSceneTest : public SceneTest {
protected:
    // root - joints - effector as elements; returns the effector's index.
    int chain(const char *prefix, std::vector<double> bones, std::vector<int> *joints = nullptr) {
        int root = lastRoot = model((std::string(prefix) + "root").c_str());
        node(root)->kind = MODEL_KIND_CHAIN;
        int parent = root;
        for (size_t i = 0; i <= bones.size(); ++i) {
            bool last = i == bones.size();
            std::string name = std::string(prefix) + (last ? "eff" : "j" + std::to_string(i));
            int m = model(name.c_str(), parent);
            Model *n = node(m);
            n->type = last ? MODEL_TYPE_NULL : MODEL_TYPE_JOINT;
            n->kind = last ? MODEL_KIND_EFFECTOR : MODEL_KIND_CHAIN;
            if (i > 0) n->translation[0] = float(bones[i - 1]);
            if (!last && joints) joints->push_back(m);
            parent = m;
        }
        modelGlobalUpdate(nullptr, node(root), 1);
        return parent;
    }
    int lastRoot = -1;
};

TEST_F(ChainSceneTest, AnimatedEffectorDrivesTheSolveAndAStillOneCostsNothing) {
    std::vector<int> joints;
    int eff = chain("a", {1.0, 1.0}, &joints);
    animate(eff, 113, {curve(139, {{0.0f, 1.5f}, {4.0f, 0.5f}}), curve(140, {{0.0f, 0.5f}, {4.0f, 1.2f}}),
                       curve(141, {{0.0f, 0.0f}, {4.0f, 0.3f}})});
    int still = chain("b", {1.0, 1.0, 1.0});
    ASSERT_EQ(build(), 1);
    // The solve stands behind the effector's curves.
    std::string o = order();
    size_t curves = o.find(std::to_string(eff) + ":113"), solve = o.find(std::to_string(eff) + ":120");
    ASSERT_NE(solve, std::string::npos) << o;
    EXPECT_LT(curves, solve) << o;
    for (float t : {0.0f, 1.0f, 2.5f, 4.0f}) {
        long before = g_chainSolveCount;
        updatelistEval(&dict, &list, t);
        EXPECT_EQ(g_chainSolveCount - before, 1) << t;
        float f = t / 4.0f;
        V3 goal{1.5 - f, 0.5 + 0.7 * f, 0.3 * f};
        const Model *e = node(eff);
        EXPECT_LT(dist({e->globalPosition[0], e->globalPosition[1], e->globalPosition[2]}, goal), 1e-4) << t;
    }
    EXPECT_EQ(node(still)->globalPosition[0], 3.0f);
    (void)joints;
}

TEST_F(ChainSceneTest, JointLimitsHoldThroughSolves) {
    std::vector<int> joints;
    int eff = chain("a", {1.0, 1.0, 1.0}, &joints);
    animate(eff, 113, {curve(139, {{0.0f, 2.5f}, {4.0f, -0.5f}}), curve(140, {{0.0f, 0.5f}, {4.0f, 1.5f}}),
                       curve(141, {{0.0f, 0.0f}, {4.0f, 0.0f}})});
    // The dictionary frees the record as a loaded scene has it do.
    RelDataFreeFn savedFree = g_relDataFree;
    g_relDataFree = relDataFree;
    // The middle joint bends between -20 and 30 degrees about Z.
    RelData *limits = relDataNew(103);
    ASSERT_NE(limits, nullptr);
    relDataValues(limits, "MIN_LIMIT")[2] = -20.0f;
    relDataValues(limits, "MAX_LIMIT")[2] = 30.0f;
    relDataValues(limits, "MIN_ACTIVE")[2] = 1.0f;
    relDataValues(limits, "MAX_ACTIVE")[2] = 1.0f;
    ASSERT_EQ(relAdd(&dict, nullptr, joints[1], lastRoot, 103, 0, 0, limits, 1), 1);
    ASSERT_EQ(build(), 1);
    int atLimit = 0;
    const float low = float(-20.0 * DEG_TO_RAD), high = float(30.0 * DEG_TO_RAD);
    for (float t = 0.0f; t <= 4.0f; t += 0.25f) {
        updatelistEval(&dict, &list, t);
        float z = node(joints[1])->rotation[2];
        EXPECT_GE(z, low - 1e-6f) << t;
        EXPECT_LE(z, high + 1e-6f) << t;
        atLimit += std::fabs(z - low) < 1e-5f || std::fabs(z - high) < 1e-5f;
    }
    // The goals ask for more than the range: the limit was met.
    EXPECT_GT(atLimit, 0);
    updatelistClear(&list);
    dictFree(&dict, 0);
    g_relDataFree = savedFree;
    dictCreateChapters(&dict, nullptr, 1);
}
