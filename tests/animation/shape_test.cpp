// Shape keys blended by a key index or by weights, clusters moved by their
// keyed offsets, and the messages of what cannot be animated. Expected points
// are computed here from the keys' own points.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "animation.h"
#include "capture.h"
#include "dictionary.h"
#include "geometry.h"
#include "graphic.h"
#include "model.h"

namespace {

using Points = std::vector<double>;

Points pointsOf(int32_t type, const void *geometry) {
    Points p(static_cast<size_t>(geometryPointCount(type, geometry) * geometryPointWidth(type)));
    geometryPointsRead(type, geometry, p.data());
    return p;
}

// A spline square whose points are those of the square scaled and moved by
// (size, shift) so that keys differ in every value.
Spline *square(float size, float shift) {
    Spline *s = splineMakeSquare(size);
    Points p = pointsOf(MODEL_SPLINE, s);
    for (size_t i = 0; i < p.size(); i += 9) p[i + 1] += shift;
    geometryPointsWrite(MODEL_SPLINE, s, p.data());
    return s;
}

// A model frees what the evaluation attached to it once the library is in;
// the record under test takes constant curves as its sources.
class DeformTest : public ::testing::Test {
protected:
    void SetUp() override { g_modelExtraFree = modelExtraFree; }
    void TearDown() override {
        for (Fcurve *c : curves) fcurveFree(c);
        if (model) modelFree(model);
        free(record.sources);
    }
    // A constant curve of `type` as the record's next source.
    Fcurve *source(int32_t type, float value) {
        Fcurve *c = fcurveCreate(type, 0);
        fcurveKeysAlloc(c, 1);
        c->keys[0].time = 0;
        c->keys[0].value = value;
        c->keys[0].interpolation = FCV_LINEAR;
        curves.push_back(c);
        record.sources = static_cast<UpdateSource *>(
            realloc(record.sources, sizeof(UpdateSource) * static_cast<size_t>(record.sourceCount + 1)));
        record.sources[record.sourceCount++] = UpdateSource{CHP_ANIMATION, RELGR_PARAM, 0, c, 1, nullptr};
        return c;
    }

    Model *model = nullptr;
    std::vector<Fcurve *> curves;
    UpdateRecord record{};
};

class ShapeAnimTest : public DeformTest {
protected:

    // The model with keys of the sizes given; `settings` is the node's shape block.
    void make(std::vector<float> sizes, std::vector<uint8_t> settings = {}) {
        model = modelNew("morph", MODEL_SPLINE, square(1.0f, 0.0f));
        if (!settings.empty()) {
            model->shapes = static_cast<uint8_t *>(malloc(settings.size()));
            memcpy(model->shapes, settings.data(), settings.size());
            model->shapesSize = static_cast<int32_t>(settings.size());
        }
        auto *keys = static_cast<ShapeKeys *>(calloc(1, sizeof(ShapeKeys)));
        keys->count = static_cast<int32_t>(sizes.size());
        keys->keys = static_cast<ShapeKey *>(calloc(sizes.size(), sizeof(ShapeKey)));
        for (size_t k = 0; k < sizes.size(); ++k) {
            keys->keys[k] = {MODEL_SPLINE, square(sizes[k], static_cast<float>(k))};
            key.push_back(pointsOf(MODEL_SPLINE, keys->keys[k].geometry));
        }
        ASSERT_EQ(shapeAnimAttach(model, keys), 1);
        record.data = model;
        record.relation = 200;
    }
    Points now() const { return pointsOf(MODEL_SPLINE, model->geometry.any); }
    // Each value as the float the geometry stores.
    static void expectPoints(const Points &got, const Points &want) {
        ASSERT_EQ(got.size(), want.size());
        for (size_t i = 0; i < got.size(); ++i) EXPECT_FLOAT_EQ(got[i], static_cast<float>(want[i])) << i;
    }

    std::vector<Points> key;  // key[k] holds the points of key k + 1
};

TEST_F(ShapeAnimTest, TheKeyCountOfTheFileMakesAnArrayOfOneMore) {
    make({2, 4, 8});
    EXPECT_EQ(model->shapeAnim->shapeCount, 4);  // the current geometry and three keys
    EXPECT_EQ(model->shapeAnim->interpolation, SHAPE_INTERP_LINEAR);
}

TEST_F(ShapeAnimTest, LinearGivesEachKeyAtItsWholeNumberAndBlendsBetween) {
    make({2, 4, 8});
    Fcurve *index = source(SHAPE_CURVE_KEY, 0);
    for (int k = 0; k < 3; ++k) {
        index->keys[0].value = static_cast<float>(k);
        animShapeUpdate(&record, 0);
        EXPECT_EQ(now(), key[k]) << "key value " << k;  // exactly, not nearly
    }
    index->keys[0].value = 0.25f;
    animShapeUpdate(&record, 0);
    Points want(key[0].size());
    for (size_t i = 0; i < want.size(); ++i) want[i] = key[0][i] + (key[1][i] - key[0][i]) * 0.25;
    expectPoints(now(), want);
    index->keys[0].value = 7.5f;  // beyond the last key
    animShapeUpdate(&record, 0);
    EXPECT_EQ(now(), key[2]);
    EXPECT_NE(model->displayFlags & 64, 0);  // tessellation asked for again
}

TEST_F(ShapeAnimTest, CubicTakesCatmullRomWeightsWithTheEndKeyRepeated) {
    make({1, 2, 5, 3}, {0, 1, 0, 0});
    ASSERT_EQ(model->shapeAnim->interpolation, SHAPE_INTERP_CUBIC);
    Fcurve *index = source(SHAPE_CURVE_KEY, 1.3f);
    auto catmullRom = [&](int k0, int k1, int k2, int k3, double t) {
        const double w0 = -0.5 * t + t * t - 0.5 * t * t * t, w1 = 1 - 2.5 * t * t + 1.5 * t * t * t,
                     w2 = 0.5 * t + 2 * t * t - 1.5 * t * t * t, w3 = -0.5 * t * t + 0.5 * t * t * t;
        Points p(key[0].size());
        for (size_t i = 0; i < p.size(); ++i)
            p[i] = w0 * key[k0][i] + w1 * key[k1][i] + w2 * key[k2][i] + w3 * key[k3][i];
        return p;
    };
    animShapeUpdate(&record, 0);
    const double t = static_cast<double>(1.3f) - 1;
    expectPoints(now(), catmullRom(0, 1, 2, 3, t));  // keys 1 to 4, zero-based here
    index->keys[0].value = 0.5f;                      // no key before the first: it stands twice
    animShapeUpdate(&record, 0);
    expectPoints(now(), catmullRom(0, 0, 1, 2, 0.5));
    index->keys[0].value = 2.0f;
    animShapeUpdate(&record, 0);
    EXPECT_EQ(now(), key[2]);
}

TEST_F(ShapeAnimTest, WeightsGiveTheMeanOrNothingOrTheRestToTheFirstKey) {
    make({2, 4}, {0, 2, 0, 0});
    Fcurve *a = source(SHAPE_CURVE_WEIGHT, 0.5f), *b = source(SHAPE_CURVE_WEIGHT, 0.5f);
    animShapeUpdate(&record, 0);
    Points mean(key[0].size());
    for (size_t i = 0; i < mean.size(); ++i) mean[i] = (key[0][i] + key[1][i]) / 2;
    expectPoints(now(), mean);
    a->keys[0].value = 0;
    b->keys[0].value = 0.000001f;  // counts as none
    animShapeUpdate(&record, 0);
    expectPoints(now(), mean);  // as last set
    // Absolute weights: 0.3 of the second key, what is left of the first.
    model->shapeAnim->absolute = 1;
    b->keys[0].value = 0.3f;
    animShapeUpdate(&record, 0);
    const double w = static_cast<double>(0.3f);
    Points want(key[0].size());
    for (size_t i = 0; i < want.size(); ++i) want[i] = w * key[1][i] + (1 - w) * key[0][i];
    expectPoints(now(), want);
}

TEST_F(ShapeAnimTest, KeysOfAnotherPointCountAreRefusedWithoutAReport) {
    make({2, 4});
    model->shapeAnim->pointCounts[2] = 3;  // as a key of three points would be
    const Points before = now();
    Fcurve *index = source(SHAPE_CURVE_KEY, 0.5f);
    bwtest::OutputCapture out;
    animShapeUpdate(&record, 0);
    index->keys[0].value = 1;  // both roles on the refused key
    animShapeUpdate(&record, 0);
    EXPECT_EQ(out.err.text(), "");
    EXPECT_EQ(now(), before);
}

TEST_F(ShapeAnimTest, AnUnknownInterpolationOrTypeIsReported) {
    make({2, 4}, {0, 3});
    source(SHAPE_CURVE_KEY, 1);
    const Points before = now();
    {
        bwtest::StreamCapture err(stderr);
        animShapeUpdate(&record, 0);
        EXPECT_EQ(err.text(), "Unknown shape interpolation type!\n");
    }
    model->shapeAnim->interpolation = SHAPE_INTERP_LINEAR;
    model->type = MODEL_REF;  // no longer a kind with points
    {
        bwtest::StreamCapture err(stderr);
        animShapeUpdate(&record, 0);
        EXPECT_EQ(err.text(), "animShapeUpdate: Unknown object type!\n");
    }
    model->type = MODEL_SPLINE;
    EXPECT_EQ(now(), before);
}

TEST_F(ShapeAnimTest, AKeylessCurveGivesTheValueItsDriverLeft) {
    make({2, 4, 8});
    Fcurve *index = source(SHAPE_CURVE_KEY, 0);
    fcurveKeysAlloc(index, 0);
    index->keyCount = 0;
    index->lastValue = 2;  // as an expression leaves it
    animShapeUpdate(&record, 0);
    EXPECT_EQ(now(), key[2]);
}

TEST_F(ShapeAnimTest, TheTessellationTakesTheShapeItIsAskedFor) {
    // A mesh cube with a key twice its size: the reference positions follow
    // the first key in mode 2, the chosen key in both roles otherwise.
    model = modelNew("box", MODEL_MESH, meshMakeCube(1.0f));
    auto *keys = static_cast<ShapeKeys *>(calloc(1, sizeof(ShapeKeys)));
    keys->count = 1;
    keys->keys = static_cast<ShapeKey *>(calloc(1, sizeof(ShapeKey)));
    keys->keys[0] = {MODEL_MESH, meshMakeCube(2.0f)};
    ASSERT_EQ(shapeAnimAttach(model, keys), 1);
    auto extent = [&](bool reference) {
        float most = 0;
        for (int i = 0; i < model->vertexCount; ++i)
            for (int a = 0; a < 3; ++a)
                most = std::max(most, std::fabs(reference ? model->vertices[i].refPos[a] : model->vertices[i].pos[a]));
        return most;
    };
    ASSERT_EQ(tessellateModel(model, 2, 0, 0), 0);
    ASSERT_GT(model->vertexCount, 0);
    EXPECT_FLOAT_EQ(extent(false), 0.5f);
    EXPECT_FLOAT_EQ(extent(true), 1.0f);
    ASSERT_EQ(tessellateModel(model, 1, 1, 0), 0);
    EXPECT_FLOAT_EQ(extent(false), 1.0f);
    EXPECT_FLOAT_EQ(extent(true), 1.0f);
    ASSERT_EQ(tessellateModel(model, 1, 0, 0), 0);
    EXPECT_FLOAT_EQ(extent(true), 0.5f);
}

// ---------------------------------------------------------------------------
// Clusters

class ClusterAnimTest : public DeformTest {
protected:
    // A mesh cube and one cluster of vertices 1 and 5 with two keys of offsets.
    void make(int32_t firstIndex = 1) {
        model = modelNew("box", MODEL_MESH, meshMakeCube(1.0f));
        rest = pointsOf(MODEL_MESH, model->geometry.any);
        auto *c = static_cast<Cluster *>(calloc(1, sizeof(Cluster)));
        c->type = MODEL_MESH;
        c->pointCount = 2;
        c->indexes = static_cast<int32_t *>(malloc(2 * sizeof(int32_t)));
        c->indexes[0] = firstIndex;
        c->indexes[1] = 5;
        c->keyCount = 2;
        c->keys = static_cast<float *>(malloc(12 * sizeof(float)));
        for (int i = 0; i < 12; ++i) c->keys[i] = offsets[i];
        ASSERT_EQ(clusterAttach(model, c), 1);
        record.data = model;
        record.relation = 700;
    }

    // key 1: (1 0 0) (0 2 0); key 2: (3 0 0) (0 0 4)
    const float offsets[12] = {1, 0, 0, 0, 2, 0, 3, 0, 0, 0, 0, 4};
    Points rest;
};

TEST_F(ClusterAnimTest, OnlyTheClusterPointsMoveByTheirBlendedOffsets) {
    make();
    source(SHAPE_CURVE_KEY, 0.5f);
    // Points outside the cluster that a shape moved stay where it put them.
    Points moved = rest;
    moved[0] += 10;
    geometryPointsWrite(MODEL_MESH, model->geometry.any, moved.data());
    clusterAnimUpdate(&record, 0);
    Points want = moved;
    const double a[3] = {2, 0, 0}, b[3] = {0, 1, 2};  // the mean of the two keys
    for (int v = 0; v < 3; ++v) {
        want[3 * 1 + v] = rest[3 * 1 + v] + a[v];
        want[3 * 5 + v] = rest[3 * 5 + v] + b[v];
    }
    EXPECT_EQ(pointsOf(MODEL_MESH, model->geometry.any), want);
    // Again at the same time: from the rest place, not from the last frame.
    clusterAnimUpdate(&record, 0);
    EXPECT_EQ(pointsOf(MODEL_MESH, model->geometry.any), want);
}

TEST_F(ClusterAnimTest, WeightedAndCubicOffsetsFollowTheShapeForms) {
    make();
    model->shapeAnim->interpolation = SHAPE_INTERP_WEIGHTED;
    source(SHAPE_CURVE_WEIGHT, 1.0f);
    source(SHAPE_CURVE_WEIGHT, 3.0f);
    clusterAnimUpdate(&record, 0);
    Points got = pointsOf(MODEL_MESH, model->geometry.any);
    EXPECT_DOUBLE_EQ(got[3 * 1 + 0], rest[3] + (1 * 1.0 + 3 * 3.0) / 4);
    EXPECT_DOUBLE_EQ(got[3 * 5 + 2], rest[17] + (3 * 4.0) / 4);
    // Two keys: the cubic form has no outer keys and is the linear one.
    double offset[3];
    ASSERT_EQ(clusterKeyEval(model->clusterList, 1, SHAPE_INTERP_CUBIC, 0.25, nullptr, 0, offset), 1);
    EXPECT_DOUBLE_EQ(offset[2], 4 * 0.25);
}

TEST_F(ClusterAnimTest, AClusterBeyondTheGeometryIsReportedAndLeftAlone) {
    make(99);
    source(SHAPE_CURVE_KEY, 1);
    bwtest::StreamCapture err(stderr);
    clusterAnimUpdate(&record, 0);
    EXPECT_EQ(err.text(), "Unable to animate that cluster...\n");
    EXPECT_EQ(pointsOf(MODEL_MESH, model->geometry.any), rest);
}

}  // namespace
