// Integer visibility under BW_OVERLOAD_HIDDEN, the sheared-child correction
// of classical scaling, and the refresh of references after their master.
#include <cmath>
#include <cstdlib>

#include "scene_fixture.h"

namespace {

double dot(const float a[4], const float b[4]) {
    return static_cast<double>(a[0]) * b[0] + static_cast<double>(a[1]) * b[1] +
           static_cast<double>(a[2]) * b[2];
}

double length(const float a[4]) { return std::sqrt(dot(a, a)); }

class OverloadTest : public SceneTest {
protected:
    void TearDown() override {
        unsetenv("BW_OVERLOAD_HIDDEN");
        unsetenv("BW_CLASSICAL_SCL_FIX");
        evalFlagsReset();
        SceneTest::TearDown();
    }
    // A parent scaled (2, 1, 1) and turned 45 degrees about z, a child turned
    // 30 degrees about z under it, in classical scaling.
    void shearedPair(int *parent, int *child) {
        g_scalingType = 1;
        *parent = model("parent");
        *child = model("child", *parent);
        const float ps[3] = {2, 1, 1}, pr[3] = {0, 0, 45}, zero[3] = {0, 0, 0}, ones[3] = {1, 1, 1};
        const float cr[3] = {0, 0, 30}, ct[3] = {1, 0, 0};
        pose(*parent, ps, pr, zero);
        pose(*child, ones, cr, ct);
        ASSERT_EQ(build(), 1);
    }
};

}  // namespace

TEST_F(OverloadTest, IntegerVisibilityChoosesDrawingStatesOverTheSubtree) {
    setenv("BW_OVERLOAD_HIDDEN", "", 1);
    evalFlagsReset();
    int top = model("top"), leaf = model("leaf", top);
    animate(top, 10, {curve(175, {{0, 0}, {1, 1}, {2, 2}, {3, 3}})});
    ASSERT_EQ(build(), 1);
    const struct {
        float time;
        uint16_t visible, state;
    } cases[] = {{0, 0, 0}, {1, 1, 0}, {2, 1, MODEL_DRAW_STATE_A}, {3, 1, MODEL_DRAW_STATE_B}};
    for (const auto &c : cases) {
        updatelistEval(&dict, &list, c.time);
        EXPECT_EQ(node(top)->visible, c.visible) << c.time;
        EXPECT_EQ(node(top)->drawState, c.state) << c.time;
        EXPECT_EQ(node(leaf)->drawState, c.state) << c.time;
    }
}

TEST_F(OverloadTest, WithoutTheSwitchVisibilityIsOnOffAndStatesStayClear) {
    int top = model("top");
    animate(top, 10, {constant(175, 3)});
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 0.0f);
    EXPECT_EQ(node(top)->visible, 1);
    EXPECT_EQ(node(top)->drawState, 0);
}

TEST_F(OverloadTest, ClassicalScalingShearsAChildUnlessTheCorrectionIsAsked) {
    int parent, child;
    shearedPair(&parent, &child);
    updatelistEval(&dict, &list, 0.0f);
    const Model *c = node(child);
    EXPECT_GT(std::fabs(dot(c->globalMatrix[0], c->globalMatrix[1])), 0.1);  // sheared
    float before[4][4];
    memcpy(before, c->globalMatrix, sizeof before);

    setenv("BW_CLASSICAL_SCL_FIX", "", 1);
    evalFlagsReset();
    updatelistEval(&dict, &list, 0.0f);
    // Axes square to each other, x kept as it was, each axis its length, the
    // position and the handedness unchanged.
    for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(dot(c->globalMatrix[k], c->globalMatrix[(k + 1) % 3]), 0.0, 1e-5);
        EXPECT_NEAR(c->globalMatrix[0][k], before[0][k], 1e-6);
        EXPECT_NEAR(c->globalMatrix[3][k], before[3][k], 1e-6);
    }
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(length(c->globalMatrix[i]), length(before[i]), 1e-5);
    EXPECT_GT(c->globalMatrix[2][2], 0.0f);
    // The frame is a pure rotation now.
    EXPECT_NEAR(dot(c->globalRotation[0], c->globalRotation[1]), 0.0, 1e-5);
}

TEST_F(OverloadTest, TheModelsOwnBitAsksForTheCorrectionButNotInsideAChain) {
    int parent, child;
    shearedPair(&parent, &child);
    node(child)->transfoFlags |= MODEL_CHAIN_SCALING;
    updatelistEval(&dict, &list, 0.0f);
    EXPECT_NEAR(dot(node(child)->globalMatrix[0], node(child)->globalMatrix[1]), 0.0, 1e-5);
    node(parent)->kind = MODEL_KIND_CHAIN;
    updatelistEval(&dict, &list, 0.0f);
    EXPECT_GT(std::fabs(dot(node(child)->globalMatrix[0], node(child)->globalMatrix[1])), 0.1);
}

TEST_F(OverloadTest, AReferenceRemakesItsShapeWhenTransformedApartFromItsMaster) {
    int master = model("master"), copy = model("copy");
    ModelRef ref{};
    ref.node = node(master);
    Model *c = node(copy);
    c->type = MODEL_REF;
    c->geometry.ref = &ref;
    modelGlobalUpdate(nullptr, c, 0);
    EXPECT_EQ(c->displayFlags & 64, 64);
    // A master in its own update redoes it; a reference to itself has nothing to follow.
    c->displayFlags = 0;
    node(master)->transfoFlags |= MODEL_IN_UPDATE;
    modelGlobalUpdate(nullptr, c, 0);
    EXPECT_EQ(c->displayFlags, 0);
    node(master)->transfoFlags = 0;
    ref.node = c;
    modelGlobalUpdate(nullptr, c, 0);
    EXPECT_EQ(c->displayFlags, 0);
    c->type = 0;
    c->geometry.ref = nullptr;
}
