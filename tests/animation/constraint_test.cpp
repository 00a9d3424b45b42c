// Constraints through the update list: each case builds a scene in memory,
// walks the list at several times and checks what the partners imply,
// computed here from their world state.
#include <array>
#include <cmath>

#include "camera.h"
#include "scene_fixture.h"

namespace {

using V3 = std::array<double, 3>;

V3 pos(const Model *m) { return {m->globalPosition[0], m->globalPosition[1], m->globalPosition[2]}; }
V3 row(const float m[4][4], int r) { return {m[r][0], m[r][1], m[r][2]}; }
double dot(const V3 &a, const V3 &b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
V3 sub(const V3 &a, const V3 &b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
V3 scaled(const V3 &a, double s) { return {a[0] * s, a[1] * s, a[2] * s}; }
V3 unit(const V3 &a) { return scaled(a, 1.0 / std::sqrt(dot(a, a))); }
V3 crossV(const V3 &a, const V3 &b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

void expectNear(const V3 &got, const V3 &want, double tol, const char *what) {
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(got[k], want[k], tol) << what << " component " << k;
}

class ConstraintTest : public SceneTest {
protected:
    // A root model moved by linear translation curves from `from` at time 0 to `to` at time 4.
    int mover(const char *name, V3 from, V3 to, int parent = -1) {
        int m = model(name, parent);
        animate(m, 113, {curve(139, {{0.0f, float(from[0])}, {4.0f, float(to[0])}}),
                         curve(140, {{0.0f, float(from[1])}, {4.0f, float(to[1])}}),
                         curve(141, {{0.0f, float(from[2])}, {4.0f, float(to[2])}})});
        return m;
    }
    void relate(int from, int to, int32_t relid, RelData *data = nullptr) {
        ASSERT_EQ(relAdd(&dict, nullptr, from, to, relid, 0, 0, data, 1), 1);
    }
    // Gates the entry of `relid` from `from` to `to` by a curve.
    void gate(int from, int to, int32_t relid, int curveIndex) {
        RelationInst *inst = relFind(elemGet(&dict, CHP_MODELS, from), relid, CHP_MODELS, to);
        ASSERT_NE(inst, nullptr);
        inst->actfcv = curveIndex;
    }
    void evalAt(float t) {
        updatelistEval(&dict, &list, t);
    }
};

TEST_F(ConstraintTest, PositionIsTheMeanOfThePartnersThatAreOnAndTheSubtreeFollows) {
    float s[3] = {2, 1, 1}, r[3] = {10, 20, 30}, t[3] = {1, 2, 3};
    int parent = model("parent");
    pose(parent, s, r, t);
    int m = model("m", parent);
    int child = model("child", m);
    float cs[3] = {1, 1, 1}, cr[3] = {0, 0, 0}, ct[3] = {1, 0, 0};
    pose(child, cs, cr, ct);
    int a = mover("a", {0, 0, 0}, {4, 0, 0});
    int b = mover("b", {0, 2, 0}, {0, 6, 0});
    int c = mover("c", {-3, 1, 5}, {-3, 1, -5});
    relate(m, a, 111);
    relate(m, b, 111);
    relate(m, c, 111);
    // c counts until time 2, then its activation steps to 0.
    gate(m, c, 111, curve(0, {{0.0f, 1.0f}, {2.0f, 1.0f}, {2.001f, 0.0f}, {9.0f, 0.0f}}));
    ASSERT_EQ(build(), 1);
    for (float time : {0.0f, 1.0f, 1.5f, 2.5f, 3.0f, 4.0f}) {
        evalAt(time);
        V3 want = scaled({pos(node(a))[0] + pos(node(b))[0], pos(node(a))[1] + pos(node(b))[1],
                          pos(node(a))[2] + pos(node(b))[2]},
                         1.0);
        int n = 2;
        if (time < 2.0f) {
            for (int k = 0; k < 3; ++k) want[k] += pos(node(c))[k];
            n = 3;
        }
        expectNear(pos(node(m)), scaled(want, 1.0 / n), 1e-4, "constrained model");
        // The child stands one unit along the constrained model's X axis.
        const Model *cm = node(m);
        V3 expected = {cm->globalMatrix[3][0] + cm->globalMatrix[0][0], cm->globalMatrix[3][1] + cm->globalMatrix[0][1],
                       cm->globalMatrix[3][2] + cm->globalMatrix[0][2]};
        expectNear(pos(node(child)), expected, 1e-4, "child");
    }
}

TEST_F(ConstraintTest, DirectionAimsTheXAxisAndKeepsTheXRotationCurveAsRoll) {
    int m = mover("m", {1, 1, 1}, {2, -1, 0});
    animate(m, 101, {curve(4, {{0.0f, 0.0f}, {4.0f, 120.0f}}), constant(5, 0), constant(6, 0)});
    int a = mover("a", {5, 0, 0}, {-2, 3, 4});
    relate(m, a, 116);
    ASSERT_EQ(build(), 1);
    for (float time : {0.0f, 1.0f, 2.0f, 3.5f}) {
        evalAt(time);
        const Model *mm = node(m);
        V3 x = unit(row(mm->globalMatrix, 0));
        V3 d = unit(sub(pos(node(a)), pos(mm)));
        expectNear(x, d, 1e-4, "aim");
        // Without roll Y is world up made square to X; the roll turns it about X.
        V3 y0 = unit(sub({0, 1, 0}, scaled(d, d[1])));
        V3 z0 = crossV(d, y0);
        double roll = time * 30.0 * M_PI / 180.0;
        V3 y = {y0[0] * cos(roll) + z0[0] * sin(roll), y0[1] * cos(roll) + z0[1] * sin(roll),
                y0[2] * cos(roll) + z0[2] * sin(roll)};
        expectNear(unit(row(mm->globalMatrix, 1)), y, 1e-4, "rolled up axis");
    }
}

TEST_F(ConstraintTest, DirectionToAPartnerInPlaceFailsToTheIdentityAndAnUpPartnerTurnsTheFrame) {
    int m = mover("m", {1, 1, 1}, {1, 1, 1});
    int a = mover("a", {1, 1, 1}, {1, 1, 1});
    relate(m, a, 116);
    int n = mover("n", {0, 0, 0}, {0, 0, 0});
    int target = mover("target", {3, 0, 0}, {3, 0, 0});
    int up = mover("up", {0, 0, 5}, {0, 0, 5});
    relate(n, target, 116);
    relate(n, up, 128);
    ASSERT_EQ(build(), 1);
    evalAt(1.0f);
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(node(m)->globalRotation[i][k], i == k ? 1.0 : 0.0, 1e-6);
    // Up towards +z: X along +x, Y along +z.
    expectNear(row(node(n)->globalRotation, 0), {1, 0, 0}, 1e-5, "aim");
    expectNear(row(node(n)->globalRotation, 1), {0, 0, 1}, 1e-5, "up partner");
}

TEST_F(ConstraintTest, PositionLimitClampsTheActiveAxesOfTheBoxOrTheRadius) {
    // The dictionary frees the records as a loaded scene has it do.
    RelDataFreeFn savedFree = g_relDataFree;
    g_relDataFree = relDataFree;
    int ref = mover("ref", {1, 0, 0}, {1, 0, 0});
    int boxed = mover("boxed", {-5, 7, 0}, {5, 7, 0});
    RelData *box = relDataNew(102);
    float *mn = relDataValues(box, "MIN_LIMIT"), *mx = relDataValues(box, "MAX_LIMIT");
    mn[0] = -1, mx[0] = 2;
    relDataValues(box, "MIN_ACTIVE")[0] = 1;
    relDataValues(box, "MAX_ACTIVE")[0] = 1;
    relDataValues(box, "IS_REF_WORLD")[0] = 1;
    relate(boxed, ref, 102, box);
    int round = mover("round", {-5, 0, 0}, {5, 0, 0});
    RelData *ball = relDataNew(102);
    relDataValues(ball, "IS_AREA_BOX")[0] = 0;
    relDataValues(ball, "LIMIT_RADIUS")[0] = 1.5f;
    relate(round, ref, 102, ball);
    ASSERT_EQ(build(), 1);
    for (float time : {0.0f, 1.0f, 2.0f, 2.5f, 3.0f, 4.0f}) {
        evalAt(time);
        double free = -5 + 2.5 * time;
        double clamped = std::min(std::max(free, 1.0 - 1.0), 1.0 + 2.0);
        expectNear(pos(node(boxed)), {clamped, 7, 0}, 1e-5, "box");
        double inBall = std::min(std::max(free, 1.0 - 1.5), 1.0 + 1.5);
        expectNear(pos(node(round)), {inBall, 0, 0}, 1e-5, "radius");
    }
    updatelistClear(&list);
    dictFree(&dict, 0);
    g_relDataFree = savedFree;
    dictCreateChapters(&dict, nullptr, 1);
}

TEST_F(ConstraintTest, OrientationScalingTwoPointsAndTransformCopyTakeThePartnersFrames) {
    float s[3] = {2, 3, 0.5f}, r[3] = {30, -40, 70}, t[3] = {1, 2, 3};
    int p = model("p");
    pose(p, s, r, t);
    int turned = model("turned");
    relate(turned, p, 114);
    int grown = model("grown");
    relate(grown, p, 115);
    int copy = model("copy");
    relate(copy, p, 150);
    int q1 = mover("q1", {0, 0, 0}, {0, 0, 0});
    int q2 = mover("q2", {2, 2, 1}, {2, 2, 1});
    int between = model("between");
    relate(between, q1, 127);
    relate(between, q2, 127);
    ASSERT_EQ(build(), 1);
    evalAt(0.0f);
    for (int i = 0; i < 3; ++i) {
        expectNear(row(node(turned)->globalRotation, i), row(node(p)->globalRotation, i), 1e-5, "orientation");
        EXPECT_NEAR(node(grown)->globalScale[i], s[i], 1e-5);
    }
    for (int i = 0; i < 4; ++i) expectNear(row(node(copy)->globalMatrix, i), row(node(p)->globalMatrix, i), 1e-4, "copy");
    expectNear(pos(node(between)), {1, 1, 0.5}, 1e-5, "centre of two points");
    expectNear(row(node(between)->globalMatrix, 0), {2, 2, 1}, 1e-4, "axis between two points");
}

TEST_F(ConstraintTest, ThreePointsCentreTheModelInTheirPlane) {
    int p1 = mover("p1", {3, 0, 0}, {3, 0, 0});
    int p2 = mover("p2", {0, 3, 0}, {0, 3, 0});
    int p3 = mover("p3", {0, 0, 0}, {0, 0, 0});
    int m = model("m");
    relate(m, p1, 119);
    relate(m, p2, 119);
    relate(m, p3, 119);
    ASSERT_EQ(build(), 1);
    evalAt(0.0f);
    expectNear(pos(node(m)), {1, 1, 0}, 1e-5, "centre");
    expectNear(row(node(m)->globalRotation, 0), unit({2, -1, 0}), 1e-5, "towards the first point");
    expectNear(row(node(m)->globalRotation, 2), {0, 0, 1}, 1e-5, "plane normal");
}

TEST_F(ConstraintTest, CameraAndLightStandAtTheirPartners) {
    int a = mover("a", {1, 2, 3}, {5, 2, 3});
    int b = mover("b", {0, 0, 0}, {0, -4, 0});
    Camera camera;
    Light light;
    int cam = elemAdd(&dict, CHP_CAMERAS, elemNameParse("cam", nullptr, 0), &camera, nullptr, 0, 0);
    int lig = elemAdd(&dict, CHP_LIGHTS, elemNameParse("lig", nullptr, 0), &light, nullptr, 0, 0);
    ASSERT_EQ(relAdd(&dict, nullptr, cam, a, 1111, 0, 0, nullptr, 1), 1);
    ASSERT_EQ(relAdd(&dict, nullptr, cam, b, 1116, 0, 0, nullptr, 1), 1);
    ASSERT_EQ(relAdd(&dict, nullptr, lig, b, 2111, 0, 0, nullptr, 1), 1);
    ASSERT_EQ(relAdd(&dict, nullptr, lig, a, 2116, 0, 0, nullptr, 1), 1);
    ASSERT_EQ(build(), 1);
    for (float time : {0.0f, 2.0f, 4.0f}) {
        evalAt(time);
        expectNear({camera.position[0], camera.position[1], camera.position[2]}, pos(node(a)), 1e-6, "camera");
        expectNear({camera.interest[0], camera.interest[1], camera.interest[2]}, pos(node(b)), 1e-6, "interest");
        expectNear({light.position[0], light.position[1], light.position[2]}, pos(node(b)), 1e-6, "light");
        expectNear({light.interest[0], light.interest[1], light.interest[2]}, pos(node(a)), 1e-6, "light interest");
    }
    elemGet(&dict, CHP_CAMERAS, cam)->data = nullptr;
    elemGet(&dict, CHP_LIGHTS, lig)->data = nullptr;
}

}  // namespace
