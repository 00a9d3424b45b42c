// Shape blending of 100,000 points: a patch of 317 x 316 CVs with three keys
// of its own size, blended by a key index (linear and cubic) and by weights,
// one relation 200 update per iteration at successive times. An update
// should take under 1 ms. The same points through a 4 x 4 x 4 lattice, one
// frame's deformation from the rest points per iteration, should take under
// 3 ms. Run in a tree without sanitizers.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "animation.h"
#include "camera.h"
#include "dictionary.h"
#include "geometry.h"
#include "model.h"

namespace {

constexpr uint16_t kU = 317, kV = 316;  // 100,172 points

struct Blend {
    Model *model = nullptr;
    std::vector<Fcurve *> curves;
    std::vector<UpdateSource> sources;
    UpdateRecord record{};

    Blend(int32_t interpolation) {
        g_modelExtraFree = modelExtraFree;
        model = modelNew("morph", MODEL_PATCH, patchMakeGrid(kU, kV, 1.0f));
        auto *keys = static_cast<ShapeKeys *>(calloc(1, sizeof(ShapeKeys)));
        keys->count = 3;
        keys->keys = static_cast<ShapeKey *>(calloc(3, sizeof(ShapeKey)));
        for (int k = 0; k < 3; ++k) keys->keys[k] = {MODEL_PATCH, patchMakeGrid(kU, kV, 1.0f + k)};
        shapeAnimAttach(model, keys);
        model->shapeAnim->interpolation = interpolation;
        if (interpolation == SHAPE_INTERP_WEIGHTED)
            for (int k = 0; k < 3; ++k) curve(SHAPE_CURVE_WEIGHT, 0.1f * k, 1.0f - 0.2f * k);
        else
            curve(SHAPE_CURVE_KEY, 0.0f, 2.0f);
        record.data = model;
        record.relation = 200;
        record.sources = sources.data();
        record.sourceCount = static_cast<int16_t>(sources.size());
    }
    ~Blend() {
        modelFree(model);
        for (Fcurve *c : curves) fcurveFree(c);
    }
    // A curve from `from` at time 0 to `to` at time 1.
    void curve(int32_t type, float from, float to) {
        Fcurve *c = fcurveCreate(type, 0);
        fcurveKeysAlloc(c, 2);
        c->keys[0].time = 0, c->keys[0].value = from, c->keys[0].interpolation = FCV_LINEAR;
        c->keys[1].time = 1, c->keys[1].value = to, c->keys[1].interpolation = FCV_LINEAR;
        curves.push_back(c);
        sources.push_back(UpdateSource{CHP_ANIMATION, RELGR_PARAM, 0, c, 1, nullptr});
    }
};

void run(benchmark::State &state, int32_t interpolation) {
    Blend blend(interpolation);
    int frame = 0;
    for (auto _ : state) {
        animShapeUpdate(&blend.record, static_cast<float>(frame++ % 97) / 97.0f);
        benchmark::DoNotOptimize(blend.model->geometry.patch);
    }
    state.SetItemsProcessed(state.iterations() * kU * kV);
}

void BM_ShapeLinear(benchmark::State &state) { run(state, SHAPE_INTERP_LINEAR); }
void BM_ShapeCubic(benchmark::State &state) { run(state, SHAPE_INTERP_CUBIC); }
void BM_ShapeWeighted(benchmark::State &state) { run(state, SHAPE_INTERP_WEIGHTED); }

// A 4 x 4 x 4 cage over the patch's box, every control point nudged, and the
// patch's positions deformed from a rest copy each iteration.
void BM_Lattice(benchmark::State &state) {
    g_modelExtraFree = modelExtraFree;
    Model *model = modelNew("cage", MODEL_PATCH, patchMakeGrid(kU, kV, 1.0f));
    const int32_t count = geometryPointCount(MODEL_PATCH, model->geometry.any);
    std::vector<float> rest(static_cast<size_t>(count) * 3), points(rest.size());
    geometryPositionsRead(MODEL_PATCH, model->geometry.any, rest.data());
    float lo[3], hi[3];
    for (int a = 0; a < 3; ++a) lo[a] = hi[a] = rest[static_cast<size_t>(a)];
    for (int32_t i = 0; i < count; ++i)
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], rest[static_cast<size_t>(3 * i + a)]);
            hi[a] = std::max(hi[a], rest[static_cast<size_t>(3 * i + a)]);
        }
    auto *lattice = static_cast<Lattice *>(calloc(1, sizeof(Lattice)));
    lattice->keys = static_cast<LatticeKey *>(calloc(1, sizeof(LatticeKey)));
    lattice->keyCount = 1;
    LatticeKey &key = lattice->keys[0];
    key.divisions[0] = key.divisions[1] = key.divisions[2] = 4;
    key.pointCount = 64;
    key.points = static_cast<float(*)[3]>(malloc(sizeof(float[3]) * 64));
    key.pointFlags = static_cast<uint16_t *>(calloc(64, sizeof(uint16_t)));
    for (int a = 0; a < 3; ++a) {
        key.vectors[0][a] = (hi[a] - lo[a]) * 1.1f + 0.1f;
        key.vectors[2][a] = (hi[a] + lo[a]) * 0.5f;
    }
    for (int i = 0; i < 64; ++i) {
        const int at[3] = {i % 4, (i / 4) % 4, i / 16};
        for (int a = 0; a < 3; ++a)
            key.points[i][a] = (at[a] / 3.0f - 0.5f) * key.vectors[0][a] + key.vectors[2][a] + 0.01f * static_cast<float>((i + a) % 5);
    }
    modelDeformersOf(model)->slot[DEFORM_SLOT_LOCAL].lattice = lattice;
    for (auto _ : state) {
        memcpy(points.data(), rest.data(), rest.size() * sizeof(float));
        latticeApply(model, DEFORM_SLOT_LOCAL, reinterpret_cast<float(*)[3]>(points.data()), count);
        benchmark::DoNotOptimize(points.data());
    }
    state.SetItemsProcessed(state.iterations() * count);
    modelFree(model);
}

}  // namespace

BENCHMARK(BM_Lattice)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ShapeLinear)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ShapeCubic)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ShapeWeighted)->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
