// Deformers in the update list: a lattice moves a model's points by the
// trilinear weight of its moved control points, in the model's frame or in
// world space; keyed states mix into the cage; the parameter block comes from
// curves; the record -200 starts from the rest points so nothing piles up.
// Expected values are worked out here from the geometry of the cage.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "camera.h"
#include "geometry.h"
#include "scene_fixture.h"

namespace {

// A cage of 2 x 2 x 2 points at rest over the box -0.5..0.5 scaled by `size`
// (no rotation) and moved by `at`; points run x fastest.
LatticeKey restKey(const float size[3], const float at[3]) {
    LatticeKey key{};
    key.divisions[0] = key.divisions[1] = key.divisions[2] = 2;
    key.pointCount = 8;
    key.points = static_cast<float(*)[3]>(malloc(sizeof(float[3]) * 8));
    key.pointFlags = static_cast<uint16_t *>(calloc(8, sizeof(uint16_t)));
    for (int i = 0; i < 8; ++i) {
        const int corner[3] = {i & 1, (i >> 1) & 1, (i >> 2) & 1};
        for (int a = 0; a < 3; ++a) key.points[i][a] = (corner[a] - 0.5f) * size[a] + at[a];
    }
    for (int a = 0; a < 3; ++a) key.vectors[0][a] = size[a], key.vectors[2][a] = at[a];
    return key;
}

Lattice *latticeOf(std::initializer_list<LatticeKey> keys) {
    auto *l = static_cast<Lattice *>(calloc(1, sizeof(Lattice)));
    l->keys = static_cast<LatticeKey *>(calloc(keys.size(), sizeof(LatticeKey)));
    for (const LatticeKey &k : keys) l->keys[l->keyCount++] = k;
    return l;
}

// Trilinear weight of the far corner (1, 1, 1) for box coordinates u.
double farWeight(const double u[3]) { return (u[0] + 0.5) * (u[1] + 0.5) * (u[2] + 0.5); }

const float kPoints[4][3] = {{1.5f, 0.5f, -0.5f}, {0.2f, -0.8f, 0.9f}, {5.0f, 0.0f, 0.0f}, {1.0f, 0.0f, 0.0f}};
const float kSize[3] = {2, 2, 2};
const float kAt[3] = {1, 0, 0};  // the box runs 0..2, -1..1, -1..1

class Deformers : public SceneTest {
protected:
    // A spline model with the four points above, and its element.
    int shapeModel(const char *name) {
        Model *m = modelNew(name, MODEL_SPLINE, splineMakeSquare(1.0f));
        geometryPositionsWrite(MODEL_SPLINE, m->geometry.any, &kPoints[0][0]);
        models.push_back(m);
        int index = elemAdd(&dict, CHP_MODELS, elemNameParse(name, nullptr, 0), m, nullptr, 0, 0);
        m->elementIndex = index;
        return index;
    }
    // The lattice as the model's slot holds it, shown by an element that `relid` relates.
    void attach(int model, int slot, Lattice *lattice, int32_t relid) {
        modelDeformersOf(node(model))->slot[slot].lattice = lattice;
        int e = elemAdd(&dict, CHP_LATTICES, elemNameParse("cage", nullptr, 0), lattice, nullptr, 0, 0);
        ASSERT_EQ(relAdd(&dict, nullptr, model, e, relid, 0, 0, nullptr, 1), 1);
    }
    void points(int model, float out[4][3]) {
        ASSERT_EQ(geometryPositionsRead(MODEL_SPLINE, node(model)->geometry.any, &out[0][0]), 4);
    }
    void eval(float time) { updatelistEval(&dict, &list, time); }
};

// Moving control point 7 by d moves a point inside by w * d, w its weight
// for that corner; points outside the box stay. Run at two frames: the
// result does not pile up.
TEST_F(Deformers, LocalLatticeMovesPointsByTheirTrilinearWeight) {
    const int m = shapeModel("ball");
    LatticeKey key = restKey(kSize, kAt);
    key.points[7][2] += 1.0f;
    attach(m, DEFORM_SLOT_LOCAL, latticeOf({key}), 210);
    ASSERT_EQ(build(), 1);
    for (float time : {10 / 30.0f, 10 / 30.0f, 11 / 30.0f}) {
        eval(time);
        float p[4][3];
        points(m, p);
        const double u0[3] = {0.25, 0.25, -0.25}, u1[3] = {-0.4, -0.4, 0.45};
        EXPECT_FLOAT_EQ(p[0][2], -0.5f + static_cast<float>(farWeight(u0)));
        EXPECT_FLOAT_EQ(p[1][2], 0.9f + static_cast<float>(farWeight(u1)));
        EXPECT_FLOAT_EQ(p[0][0], 1.5f);
        EXPECT_FLOAT_EQ(p[2][0], 5.0f);  // outside
        EXPECT_FLOAT_EQ(p[2][2], 0.0f);
    }
}

// A cage turned and scaled at rest moves nothing: its rest grid is the
// key's box under the key's three vectors.
TEST_F(Deformers, TurnedCageAtRestLeavesThePoints) {
    const int m = shapeModel("ball");
    LatticeKey key = restKey(kSize, kAt);
    const float turn[3] = {0.3f, -0.7f, 1.1f};
    float r[4][4];
    eulerToMatrix(turn, r);
    for (int i = 0; i < 8; ++i) {
        const int corner[3] = {i & 1, (i >> 1) & 1, (i >> 2) & 1};
        for (int a = 0; a < 3; ++a) {
            double v = kAt[a];
            for (int k = 0; k < 3; ++k) v += (corner[k] - 0.5) * kSize[k] * r[k][a];
            key.points[i][a] = static_cast<float>(v);
        }
    }
    for (int a = 0; a < 3; ++a) key.vectors[1][a] = turn[a];
    attach(m, DEFORM_SLOT_LOCAL, latticeOf({key}), 210);
    ASSERT_EQ(build(), 1);
    eval(0.0f);
    float p[4][3];
    points(m, p);
    for (int i = 0; i < 4; ++i)
        for (int a = 0; a < 3; ++a) EXPECT_NEAR(p[i][a], kPoints[i][a], 1e-5f) << i << " " << a;
}

// The global form deforms in world space: the cage stands around the point's
// world place, and the move comes back through the inverse of the model's matrix.
TEST_F(Deformers, GlobalLatticeWorksInWorldSpace) {
    const int m = shapeModel("ball");
    const float s[3] = {2, 2, 2}, rot[3] = {0, 0, 90}, t[3] = {10, 0, 0};
    pose(m, s, rot, t);
    LatticeKey key = restKey(kSize, kAt);  // placed once the world matrix is known
    key.points[7][0] += 1.0f;
    Lattice *lattice = latticeOf({key});
    attach(m, DEFORM_SLOT_GLOBAL, lattice, 215);
    ASSERT_EQ(build(), 1);
    eval(0.0f);
    const float(*g)[4] = node(m)->globalMatrix;
    ASSERT_GT(std::fabs(g[0][1]), 1.0f);  // not the identity
    // Box coordinates (0.25, 0.25, -0.25) for point 0 in world space.
    double world[3];
    for (int a = 0; a < 3; ++a)
        world[a] = kPoints[0][0] * g[0][a] + kPoints[0][1] * g[1][a] + kPoints[0][2] * g[2][a] + g[3][a];
    const double u[3] = {0.25, 0.25, -0.25};
    LatticeKey &k = lattice->keys[0];
    for (int a = 0; a < 3; ++a) {
        const float shift = static_cast<float>(world[a] - u[a] * kSize[a]) - k.vectors[2][a];
        k.vectors[2][a] += shift;
        for (int i = 0; i < 8; ++i) k.points[i][a] += shift;
    }
    eval(0.0f);
    float p[4][3];
    points(m, p);
    // World move (w, 0, 0); the matrix is 2 x a turn, so its inverse is its transpose / 4.
    const double w = farWeight(u);
    for (int a = 0; a < 3; ++a) EXPECT_NEAR(p[0][a], kPoints[0][a] + w * g[a][0] / 4.0, 1e-5) << a;
    EXPECT_NEAR(p[2][0], 5.0f, 1e-5);
}

// Keyed deformation: the key position picks the stored states 1.. n-1 and
// mixes them into state 0, which the lattice then applies.
TEST_F(Deformers, KeyPositionMixesTheStoredStates) {
    const int m = shapeModel("ball");
    const float lifts[4] = {0.0f, 1.0f, 2.0f, 4.0f};  // state k lifts the far corner by lifts[k]
    LatticeKey keys[4];
    for (int k = 0; k < 4; ++k) {
        keys[k] = restKey(kSize, kAt);
        keys[k].points[7][2] += lifts[k];
    }
    attach(m, DEFORM_SLOT_LOCAL, latticeOf({keys[0], keys[1], keys[2], keys[3]}), 210);
    const int position = constant(211, 0.0f);
    animate(m, 211, {position});
    ASSERT_EQ(build(), 1);
    const double u0[3] = {0.25, 0.25, -0.25};
    const double w = farWeight(u0);
    Fcurve *c = static_cast<Fcurve *>(elemGet(&dict, CHP_ANIMATION, position)->data);
    // 0: state 1; 1.5: halfway from state 2 to 3; beyond the last: the last.
    for (auto [v, lift] : {std::pair{0.0f, 1.0f}, {1.5f, 3.0f}, {7.0f, 4.0f}, {0.25f, 1.25f}}) {
        c->keys[0].value = v;
        eval(0.0f);
        float p[4][3];
        points(m, p);
        EXPECT_NEAR(p[0][2], -0.5 + w * lift, 1e-5) << v;
    }
}

// Without a key curve in the group the lattice applies its state 0 as it is.
TEST_F(Deformers, LatticeWithoutKeyCurveKeepsItsCage) {
    const int m = shapeModel("ball");
    LatticeKey now = restKey(kSize, kAt), stored = restKey(kSize, kAt);
    now.points[7][2] += 1.0f;
    stored.points[7][2] += 3.0f;
    attach(m, DEFORM_SLOT_LOCAL, latticeOf({now, stored}), 210);
    ASSERT_EQ(build(), 1);
    eval(0.0f);
    float p[4][3];
    points(m, p);
    const double u0[3] = {0.25, 0.25, -0.25};
    EXPECT_NEAR(p[0][2], -0.5 + farWeight(u0), 1e-5);
}

// The block: a scale curve without keys keeps its value, rotation goes from
// degrees to radians, the first extra is the strength.
TEST_F(Deformers, BlockFromCurvesScalesTurnsAndWeakensTheMoves) {
    const int m = shapeModel("ball");
    LatticeKey key = restKey(kSize, kAt);
    key.points[7][0] += 1.0f;
    attach(m, DEFORM_SLOT_LOCAL, latticeOf({key}), 210);
    const int keyless = curve(107, {});
    animate(m, 220, {keyless, constant(108, 2.0f), constant(110, 90.0f), constant(111, 0.5f)});
    ASSERT_EQ(build(), 1);
    eval(0.0f);
    const DeformerBlock &b = node(m)->deformers->slot[DEFORM_SLOT_LOCAL].latticeBlock;
    EXPECT_EQ(b.scale[0], 1.0f);
    EXPECT_EQ(b.scale[1], 2.0f);
    EXPECT_FLOAT_EQ(b.rotation, 90.0f * 0.0174532925f);
    EXPECT_EQ(b.falloff, 0.5f);
    EXPECT_EQ(b.present, 1);
    // The move (1, 0, 0), scaled along x by 1 then turned a quarter about z, at half strength.
    float p[4][3];
    points(m, p);
    const double u0[3] = {0.25, 0.25, -0.25};
    const double w = farWeight(u0);
    EXPECT_NEAR(p[0][0], 1.5, 1e-5);
    EXPECT_NEAR(p[0][1], 0.5 + w * 0.5, 1e-5);
    EXPECT_NEAR(p[0][2], -0.5, 1e-5);
}

// The list flags: with no deformer record the word stays 0 and -200 touches
// nothing, though the model holds a lattice; 247 asks for a refresh alone.
TEST_F(Deformers, WithoutDeformerRecordTheClosingRecordDoesNothing) {
    const int m = shapeModel("ball");
    Model *model = node(m);
    LatticeKey key = restKey(kSize, kAt);
    key.points[7][2] += 1.0f;
    modelDeformersOf(model)->slot[DEFORM_SLOT_LOCAL].lattice = latticeOf({key});
    animate(m, 211, {constant(211, 1.0f)});  // a key curve is no deformer
    ASSERT_EQ(build(), 1);
    ASSERT_TRUE(bwtest::contains(order(), "-200"));
    const uint32_t stamp = model->geometryStamp;
    eval(0.0f);
    float p[4][3];
    points(m, p);
    EXPECT_EQ(model->geometryStamp, stamp);
    EXPECT_EQ(p[0][2], kPoints[0][2]);

    const int other = shapeModel("other");
    ASSERT_EQ(relAdd(&dict, nullptr, m, other, 247, 0, 0, nullptr, 1), 1);
    ASSERT_EQ(build(), 1);
    eval(0.0f);
    eval(1.0f);
    points(m, p);
    EXPECT_EQ(model->geometryStamp, stamp + 2);  // refreshed once a walk
    EXPECT_EQ(p[0][2], kPoints[0][2]);           // and not deformed
}

// The clay relations set the ball's radius and weight, and its group's
// surface is made again.
TEST_F(Deformers, ClayCurvesSetTheBall) {
    Model *group = modelNew("group", MODEL_META, calloc(1, sizeof(MetaGroup)));
    Model *ball = modelNew("ball", MODEL_REF, calloc(1, sizeof(ModelRef)));
    modelAddChild(group, ball);
    models.push_back(group);
    models.push_back(ball);
    const int b = elemAdd(&dict, CHP_MODELS, elemNameParse("ball", nullptr, 0), ball, nullptr, 0, 0);
    animate(b, 241, {constant(185, 2.5f), constant(186, -1.0f)});
    ASSERT_EQ(build(), 1);
    group->displayFlags = 0;
    eval(0.0f);
    EXPECT_EQ(ball->geometry.ref->value4, 2.5);
    EXPECT_EQ(ball->geometry.ref->value5, -1.0);
    EXPECT_TRUE(group->displayFlags & MODEL_GEOMETRY_STALE);
}

}  // namespace
