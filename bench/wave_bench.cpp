// A wave over a grid of 300 x 300 points (90,000): one waveApply per
// iteration at successive times, circular and planar, damped, in the local
// slot of a model placed away from the origin so that the frame change runs.
// A frame should take under 3 ms. Run in a tree without sanitizers.
#include <benchmark/benchmark.h>

#include <vector>

#include "animation.h"
#include "model.h"

namespace {

constexpr int kSide = 300;

struct Field {
    Model *model = nullptr;
    Wave *wave = nullptr;
    std::vector<float> points;

    explicit Field(bool planar) : points(3u * kSide * kSide) {
        g_modelExtraFree = modelExtraFree;
        model = modelNew("grid", MODEL_TYPE_NULL, nullptr);
        model->translation[0] = 5.0f;
        modelGlobalUpdate(nullptr, model, 0);
        wave = waveNew("ripple");
        wave->value[WAVE_PLANAR] = planar ? 1.0f : 0.0f;
        wave->value[WAVE_DIRECTION] = 30.0f;
        wave->value[WAVE_DAMPING] = 0.01f;
        wave->value[WAVE_SPEED] = 40.0f;
        wave->transfo->translation[2] = 20.0f;
        modelGlobalUpdate(nullptr, wave->transfo, 0);
        modelDeformersOf(model)->slot[DEFORM_SLOT_LOCAL].wave = wave;
        for (int i = 0; i < kSide; ++i)
            for (int k = 0; k < kSide; ++k) {
                float *p = &points[3u * (i * kSide + k)];
                p[0] = i * 0.5f, p[1] = 0.0f, p[2] = k * 0.5f;
            }
    }
    ~Field() {
        modelDeformersFree(model->deformers);
        model->deformers = nullptr;
        modelFree(model);
        waveFree(wave);
    }
};

void run(benchmark::State &state, bool planar) {
    Field field(planar);
    auto *points = reinterpret_cast<float(*)[3]>(field.points.data());
    int frame = 0;
    for (auto _ : state) {
        waveApply(field.model, DEFORM_SLOT_LOCAL, points, kSide * kSide, 1.0f + (frame++ % 97) / 30.0f);
        benchmark::DoNotOptimize(points);
    }
    state.SetItemsProcessed(state.iterations() * kSide * kSide);
}

void BM_WaveCircular(benchmark::State &state) { run(state, false); }
void BM_WavePlanar(benchmark::State &state) { run(state, true); }

}  // namespace

BENCHMARK(BM_WaveCircular)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_WavePlanar)->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
