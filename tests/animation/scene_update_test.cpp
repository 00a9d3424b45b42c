// The scene update: world matrices of a hierarchy against products worked out
// here, both scaling types, the record decisions of the walk, and cameras and
// lights.
#include <cmath>
#include <cstring>

#include "camera.h"
#include "scene_fixture.h"

namespace {

struct M4 {
    double m[4][4];
};

M4 identity() {
    M4 r{};
    for (int i = 0; i < 4; ++i) r.m[i][i] = 1;
    return r;
}

M4 mul(const M4 &a, const M4 &b) {
    M4 r{};
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k)
            for (int j = 0; j < 4; ++j) r.m[i][k] += a.m[i][j] * b.m[j][k];
    return r;
}

// Elementary turns for row vectors, multiplied X first.
M4 rotation(const float degrees[3]) {
    M4 x = identity(), y = identity(), z = identity();
    double a = degrees[0] * M_PI / 180, b = degrees[1] * M_PI / 180, c = degrees[2] * M_PI / 180;
    x.m[1][1] = cos(a), x.m[1][2] = sin(a), x.m[2][1] = -sin(a), x.m[2][2] = cos(a);
    y.m[0][0] = cos(b), y.m[0][2] = -sin(b), y.m[2][0] = sin(b), y.m[2][2] = cos(b);
    z.m[0][0] = cos(c), z.m[0][1] = sin(c), z.m[1][0] = -sin(c), z.m[1][1] = cos(c);
    return mul(mul(x, y), z);
}

struct Pose {
    float s[3], r[3], t[3];
};

// World frame of own scaling: the scales multiply per axis, the rotations
// chain, and only the position goes through the parent's full matrix.
struct Own {
    double scale[3];
    M4 rot, matrix;
};

Own ownOf(const Pose &p, const Own *parent) {
    Own o;
    M4 r = rotation(p.r);
    o.rot = parent ? mul(r, parent->rot) : r;
    for (int i = 0; i < 3; ++i) o.scale[i] = p.s[i] * (parent ? parent->scale[i] : 1.0);
    o.matrix = identity();
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) o.matrix.m[i][k] = o.rot.m[i][k] * o.scale[i];
    for (int k = 0; k < 3; ++k) {
        double v = p.t[k];
        if (parent) {
            v = parent->matrix.m[3][k];
            for (int j = 0; j < 3; ++j) v += p.t[j] * parent->matrix.m[j][k];
        }
        o.matrix.m[3][k] = v;
    }
    return o;
}

// Classical scaling: the local matrix times the parent's world matrix.
M4 classicalOf(const Pose &p, const M4 *parent) {
    M4 local = rotation(p.r);
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) local.m[i][k] *= p.s[i];
    for (int k = 0; k < 3; ++k) local.m[3][k] = p.t[k];
    return parent ? mul(local, *parent) : local;
}

void expectMatrix(const float got[4][4], const M4 &want, const char *what) {
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k) EXPECT_NEAR(got[i][k], want.m[i][k], 2e-5) << what << " [" << i << "][" << k << "]";
}

double rowDot(const float m[4][4], int a, int b) {
    return double(m[a][0]) * m[b][0] + double(m[a][1]) * m[b][1] + double(m[a][2]) * m[b][2];
}

const Pose ROOT = {{2, 1, 1}, {0, 0, 30}, {1, 2, 3}};
const Pose CHILD = {{1, 3, 1}, {10, 20, 0}, {0, 1, 0}};
const Pose LEAF = {{1, 1, 2}, {0, 45, 5}, {2, 0, 0}};

}  // namespace

TEST_F(SceneTest, AHierarchyEvaluatesToTheProductsOfItsFrames) {
    int root = model("root"), child = model("child", root), leaf = model("leaf", child);
    pose(root, ROOT.s, ROOT.r, ROOT.t);
    pose(child, CHILD.s, CHILD.r, CHILD.t);
    pose(leaf, LEAF.s, LEAF.r, LEAF.t);
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 0.5f);
    Own r = ownOf(ROOT, nullptr), c = ownOf(CHILD, &r), l = ownOf(LEAF, &c);
    expectMatrix(node(root)->globalMatrix, r.matrix, "root");
    expectMatrix(node(child)->globalMatrix, c.matrix, "child");
    expectMatrix(node(leaf)->globalMatrix, l.matrix, "leaf");
    // A parent scaled unevenly never shears a child in own scaling.
    EXPECT_NEAR(rowDot(node(child)->globalMatrix, 0, 1), 0.0, 1e-5);
    EXPECT_NEAR(node(leaf)->globalScale[1], 3.0, 1e-6);

    // Without the optimisations every step recomputes its whole subtree: the
    // same numbers, bit for bit.
    float kept[3][4][4];
    for (int i = 0; i < 3; ++i) memcpy(kept[i], node(i)->globalMatrix, sizeof kept[i]);
    for (int i = 0; i < 3; ++i) memset(node(i)->globalMatrix, 0, sizeof kept[i]);
    animationOptimise = 0;
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 0.5f);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(memcmp(kept[i], node(i)->globalMatrix, sizeof kept[i]), 0) << i;

    g_scalingType = 1;
    updatelistEval(&dict, &list, 0.5f);
    M4 cr = classicalOf(ROOT, nullptr), cc = classicalOf(CHILD, &cr), cl = classicalOf(LEAF, &cc);
    expectMatrix(node(root)->globalMatrix, cr, "classical root");
    expectMatrix(node(child)->globalMatrix, cc, "classical child");
    expectMatrix(node(leaf)->globalMatrix, cl, "classical leaf");
    // Without the optimisations the matrix towards the parent is kept too.
    expectMatrix(node(leaf)->relativeMatrix, classicalOf(LEAF, nullptr), "classical relative");
    EXPECT_GT(std::fabs(rowDot(node(child)->globalMatrix, 0, 1)), 0.1);  // sheared
    // The own-scaling values are kept beside.
    EXPECT_NEAR(node(leaf)->classicalPosition[0], l.matrix.m[3][0], 2e-5);
}

TEST_F(SceneTest, ScalesAreClampedInPlaceAndOddSignFlipsMirror) {
    Model *parent = modelNew("p", 0, nullptr), *m = modelNew("m", 0, nullptr);
    models = {parent, m};
    modelAddChild(parent, m);
    m->scaling[0] = 0.0f, m->scaling[1] = -0.0f, m->scaling[2] = -1e-7f;
    modelGlobalUpdate(nullptr, parent, 1);
    EXPECT_EQ(std::vector<float>(m->scaling, m->scaling + 3), (std::vector<float>{1e-5f, 1e-5f, -1e-5f}));
    EXPECT_TRUE(m->transfoDirtyDraw & TRANSFO_MIRRORED);  // one negative axis appeared
    m->scaling[0] = m->scaling[1] = m->scaling[2] = 1.0f;
    modelGlobalUpdate(nullptr, parent, 1);
    struct Step {
        float s[3];
        bool mirrored;
    } steps[] = {{{-1, -1, 1}, false}, {{-1, -1, -1}, true}, {{1, 1, 1}, true}, {{1, -1, -1}, false}};
    for (const Step &step : steps) {
        m->transfoDirtyDraw = 0;
        memcpy(m->scaling, step.s, sizeof step.s);
        modelGlobalUpdate(parent, m, 0);
        EXPECT_EQ((m->transfoDirtyDraw & TRANSFO_MIRRORED) != 0, step.mirrored) << step.s[0] << step.s[1] << step.s[2];
    }
    // A parent's flip mirrors the child through the global scale.
    m->transfoDirtyDraw = 0;
    parent->scaling[2] = -1.0f;
    modelGlobalUpdate(nullptr, parent, 1);
    EXPECT_TRUE(m->transfoDirtyDraw & TRANSFO_MIRRORED);
    // An effector of chain type 1 keeps its own orientation under a turned parent.
    parent->rotation[2] = 1.0f;
    m->kind = MODEL_KIND_EFFECTOR, m->chainType = 1;
    modelGlobalUpdate(nullptr, parent, 1);
    EXPECT_EQ(memcmp(m->globalRotation, m->rotMatrix, sizeof m->rotMatrix), 0);
    models = {parent};
}

TEST_F(SceneTest, LocalSettersTakeGlobalValues) {
    int root = model("root"), child = model("child", root);
    Model *p = node(root), *c = node(child);
    p->scaling[0] = 2, p->scaling[1] = 4, p->scaling[2] = 0.5f;
    p->rotation[2] = 0.7f, p->rotation[0] = -0.2f;
    p->translation[0] = 3;
    c->rotation[1] = 0.3f;
    modelGlobalUpdate(nullptr, p, 1);
    const float where[3] = {5, -1, 2}, scale[3] = {1, 2, 3};
    modelSetLocalPosition(c, where);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(c->globalPosition[i], where[i], 1e-5);
    modelSetLocalScaling(c, scale);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(c->globalScale[i], scale[i], 1e-6);
    float turn[4][4];
    const float angles[3] = {0.4f, -1.1f, 2.0f};
    eulerToMatrix(angles, turn);
    modelSetLocalRotation(c, turn);
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(c->globalRotation[i][k], turn[i][k], 1e-5);
    EXPECT_TRUE(c->transfoDirty & TRANSFO_DIRTY_ROTATION);
}

TEST_F(SceneTest, EulerExtractionFollowsTheHint) {
    const float cases[][3] = {{0.3f, 0.2f, -0.1f}, {2.5f, 1.2f, -2.0f}, {-1.0f, -0.4f, 3.0f}};
    for (const auto &a : cases) {
        float m[4][4], back[3];
        eulerToMatrix(a, m);
        matrixToEuler(m, a, back);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(back[i], a[i], 1e-5) << i;
    }
    // The other solution of the same matrix, when the hint stands near it.
    float m[4][4], back[3];
    const float a[3] = {0.3f, 0.2f, -0.1f};
    eulerToMatrix(a, m);
    const float near[3] = {0.3f - 3.14159f, 3.14159f - 0.2f, -0.1f + 3.14159f};
    matrixToEuler(m, near, back);
    EXPECT_NEAR(back[1], 3.14159265f - 0.2f, 1e-5);
    float again[4][4];
    eulerToMatrix(back, again);
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(again[i][k], m[i][k], 1e-5);
    // At the pole the hint keeps its z; x takes the rest.
    const float pole[3] = {0.5f, 1.5707963f, 0.2f}, hint[3] = {0, 1.5f, 0.4f};
    eulerToMatrix(pole, m);
    matrixToEuler(m, hint, back);
    EXPECT_NEAR(back[2], 0.4f, 1e-6);
    EXPECT_NEAR(back[0] - back[2], 0.3f, 1e-3);
    // Folding moves results by whole turns towards the hint.
    g_eulerFoldToHint = 1;
    const float far[3] = {0.3f + 12.566371f, 0.2f, -0.1f};
    eulerToMatrix(a, m);
    matrixToEuler(m, far, back);
    g_eulerFoldToHint = 0;
    EXPECT_NEAR(back[0], far[0], 1e-4);
}

TEST_F(SceneTest, RecordsRunByTheActivityOfTheirSources) {
    UpdateList records;
    auto add = [&](int32_t relid, std::vector<uint16_t> active) {
        auto *s = static_cast<UpdateSource *>(calloc(active.size(), sizeof(UpdateSource)));
        for (size_t i = 0; i < active.size(); ++i) s[i].active = active[i], s[i].chapter = CHP_ANIMATION;
        updatelistAddRecord(&records, CHP_CAMERAS, 0, nullptr, relid, nullptr, RELGR_TRANSFO,
                            static_cast<int>(active.size()), s);
        return &records.records[records.count - 1];
    };
    float at;
    EXPECT_EQ(updatelistRecordNeeded(add(100, {1, 1, 1}), 2.0f, &at), 1);
    EXPECT_EQ(at, 2.0f);
    EXPECT_EQ(updatelistRecordNeeded(add(100, {0, 0}), 2.0f, &at), 0);
    // 100 lets inactive sources up to its fan-out pass; 127 needs both partners.
    EXPECT_EQ(updatelistRecordNeeded(add(100, {1, 0}), 2.0f, &at), 1);
    EXPECT_EQ(updatelistRecordNeeded(add(127, {1, 0}), 2.0f, &at), 0);
    // Constraints weigh their partners themselves.
    EXPECT_EQ(updatelistRecordNeeded(add(111, {0, 0}), 2.0f, &at), 1);
    UpdateRecord *off = add(100, {1});
    off->active = 0;
    EXPECT_EQ(updatelistRecordNeeded(off, 2.0f, &at), 0);
    updatelistClear(&records);
}

TEST_F(SceneTest, ASwitchedOffRelationHoldsThePoseOfItsLastChange) {
    int ball = model("ball");
    int sx = curve(1, {{0, 0}, {10, 10}});
    int gate = curve(178, {{0, 1}, {2, 1}, {3, 0}, {5, 0}});
    for (FcurveKey *k = curves[1]->keys; k < curves[1]->keys + 4; ++k) k->interpolation = FCV_CONSTANT;
    animate(ball, 100, {sx});
    relFind(elemGet(&dict, CHP_MODELS, ball), 100, CHP_ANIMATION, sx)->actfcv = gate;
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 1.5f);
    EXPECT_FLOAT_EQ(node(ball)->scaling[0], 1.5f);
    EXPECT_FLOAT_EQ(node(ball)->globalMatrix[0][0], 1.5f);
    updatelistEval(&dict, &list, 4.0f);
    EXPECT_FLOAT_EQ(node(ball)->scaling[0], 2.0f);
}

TEST_F(SceneTest, HiddenModelsThatNothingReadsAreSkipped) {
    int root = model("root"), hidden = model("hidden", root);
    animate(root, 113, {constant(139, 4)});
    ASSERT_EQ(build(), 1);
    node(hidden)->visible = 0;
    updatelistEval(&dict, &list, 0.0f);
    EXPECT_EQ(node(root)->globalPosition[0], 4.0f);
    EXPECT_EQ(node(hidden)->globalPosition[0], 0.0f);
    setenv("BW_NO_OPTIM_UNTOLD_REL", "", 1);
    evalFlagsReset();
    updatelistEval(&dict, &list, 0.0f);
    unsetenv("BW_NO_OPTIM_UNTOLD_REL");
    evalFlagsReset();
    EXPECT_EQ(node(hidden)->globalPosition[0], 4.0f);
    // A node without an element of its own follows its parent's step.
    model("loose", root, false);
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 0.0f);
    EXPECT_EQ(models.back()->globalPosition[0], 4.0f);
}

TEST_F(SceneTest, VisibilityCurvesShowAndHideModelsAndBranches) {
    int top = model("top"), leaf = model("leaf", top);
    animate(top, 12, {curve(175, {{0, 1}, {1, 0}})});
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 2.0f);
    EXPECT_EQ(node(top)->visible, 0);
    EXPECT_EQ(node(leaf)->visible, 0);
    updatelistEval(&dict, &list, 0.0f);
    EXPECT_EQ(node(leaf)->visible, 1);
}

// ---------------------------------------------------------------------------
// Cameras and lights

namespace {

void expectRows(const Camera &c, const double want[3][3]) {
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(c.viewMatrix[i][k], want[i][k], 1e-6) << i << k;
}

}  // namespace

TEST(CameraView, FrameFromPositionInterestRollAndUpPoint) {
    Camera c;
    c.position[0] = 1, c.position[1] = 2, c.position[2] = 3;
    memcpy(c.interest, c.position, sizeof c.position);
    cameraViewUpdate(&c, nullptr);
    const double same[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    expectRows(c, same);
    EXPECT_EQ(c.viewMatrix[3][2], 3.0f);
    // Straight up and straight down take fixed up vectors.
    c.interest[1] = 7;
    cameraViewUpdate(&c, nullptr);
    const double up[3][3] = {{-1, 0, 0}, {0, 0, -1}, {0, -1, 0}};
    expectRows(c, up);
    c.interest[1] = -7;
    cameraViewUpdate(&c, nullptr);
    const double down[3][3] = {{-1, 0, 0}, {0, 0, 1}, {0, 1, 0}};
    expectRows(c, down);
    // Looking along -z with y up is the plain frame; a roll turns side and up.
    c.position[0] = c.position[1] = 0, c.position[2] = 10;
    c.interest[0] = c.interest[1] = c.interest[2] = 0;
    cameraViewUpdate(&c, nullptr);
    expectRows(c, same);
    c.roll = static_cast<float>(M_PI / 2);
    cameraViewUpdate(&c, nullptr);
    const double rolled[3][3] = {{0, 1, 0}, {-1, 0, 0}, {0, 0, 1}};
    expectRows(c, rolled);
    // An up point to the right makes the frame's up point there, by a roll.
    const float right[3] = {5, 0, 10};
    cameraViewUpdate(&c, right);
    EXPECT_NEAR(c.roll, -M_PI / 2, 1e-6);
    EXPECT_NEAR(c.viewMatrix[1][0], 1.0, 1e-6);
    EXPECT_EQ(c.viewMatrix[3][2], 10.0f);
    // Looking along +x the side row is -z: still the right hand of the view.
    c = Camera{};
    c.position[0] = c.position[1] = c.position[2] = 0;
    c.interest[0] = 1, c.interest[1] = c.interest[2] = 0;
    cameraViewUpdate(&c, nullptr);
    const double alongX[3][3] = {{0, 0, 1}, {0, 1, 0}, {-1, 0, 0}};
    expectRows(c, alongX);
}

TEST_F(SceneTest, AnUpVectorModelOverheadLeavesTheCameraUpright) {
    Camera camera;
    camera.position[2] = 0;
    camera.interest[2] = -1;
    int cam = elemAdd(&dict, CHP_CAMERAS, elemNameParse("cam", nullptr, 0), &camera, nullptr, 0, 0);
    int above = model("above");
    animate(above, 113, {constant(140, 5)});
    ASSERT_EQ(relAdd(&dict, nullptr, cam, cam, 1117, 1, 1, nullptr, 1), 1);
    ASSERT_EQ(relAddVia(&dict, nullptr, CHP_CAMERAS, cam, CHP_MODELS, above, 1117, 2, 1, nullptr, 1), 1);
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 0.0f);
    EXPECT_NEAR(camera.roll, 0.0, 1e-6);
    const double plain[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    expectRows(camera, plain);
    // Below the camera it turns the view upside down.
    curves.back()->keys[0].value = -5;
    updatelistEval(&dict, &list, 0.0f);
    EXPECT_NEAR(std::fabs(camera.roll), M_PI, 1e-6);
    const double upsideDown[3][3] = {{-1, 0, 0}, {0, -1, 0}, {0, 0, 1}};
    expectRows(camera, upsideDown);
}

TEST_F(SceneTest, CameraAndLightRecordsDriveTheirRecords) {
    Camera camera;
    Light light;
    int cam = elemAdd(&dict, CHP_CAMERAS, elemNameParse("cam", nullptr, 0), &camera, nullptr, 0, 0);
    int lamp = elemAdd(&dict, CHP_LIGHTS, elemNameParse("lamp", nullptr, 0), &light, nullptr, 0, 0);
    ASSERT_EQ(relAdd(&dict, nullptr, cam, cam, 1117, 1, 1, nullptr, 1), 1);
    animate(cam, 1113, {curve(142, {{0, 0}, {1, 10}}), constant(144, 5)});
    animate(cam, 1131, {constant(0, 90)});
    animate(cam, 1100, {constant(177, 0)});
    animate(lamp, 2130, {constant(23, 0.5f)});
    animate(lamp, 2201, {constant(216, 90)});
    animate(lamp, 2100, {constant(176, 0)});
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 0.5f);
    EXPECT_FLOAT_EQ(camera.position[0], 5.0f);
    EXPECT_FLOAT_EQ(camera.position[2], 5.0f);
    EXPECT_FLOAT_EQ(camera.viewMatrix[3][0], 5.0f);  // the frame follows in the same walk
    EXPECT_NEAR(camera.fieldOfView, M_PI / 2, 1e-6);
    EXPECT_NEAR(camera.planeDistance, camera.planeWidth * 0.5, 1e-6);
    EXPECT_EQ(camera.visibility, 0);
    EXPECT_FLOAT_EQ(light.colour[1], 0.5f);
    EXPECT_FLOAT_EQ(light.colour[0], 1.0f);
    EXPECT_NEAR(light.direction[0], -1.0, 1e-6);
    EXPECT_NEAR(light.direction[2], 0.0, 1e-6);
    EXPECT_EQ(light.on, 0);
}
