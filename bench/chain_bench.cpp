// One solve of a 3-joint planar chain: the goal moves on a circle inside the
// chain's reach, so every solve iterates from the previous pose. A solve
// should take under 5 microseconds. Run in a tree without sanitizers.
#include <benchmark/benchmark.h>

#include <cmath>

#include "animation.h"
#include "model.h"

namespace {

void BM_ChainSolve(benchmark::State &state) {
    g_modelExtraFree = modelExtraFree;
    Model *root = modelNew("root", MODEL_TYPE_NULL, nullptr);
    root->kind = MODEL_KIND_CHAIN;
    Model *parent = root;
    Model *effector = nullptr;
    for (int i = 0; i <= 3; ++i) {
        Model *m = modelNew(i == 3 ? "effector" : "joint", i == 3 ? MODEL_TYPE_NULL : MODEL_TYPE_JOINT, nullptr);
        m->kind = i == 3 ? MODEL_KIND_EFFECTOR : MODEL_KIND_CHAIN;
        if (i > 0) m->translation[0] = 1.0f;
        modelAddChild(parent, m);
        parent = effector = m;
    }
    modelGlobalUpdate(nullptr, root, 1);
    double angle = 0.0;
    for (auto _ : state) {
        angle += 0.05;
        chainSolve(effector, static_cast<float>(2.0 * std::cos(angle)), static_cast<float>(2.0 * std::sin(angle)),
                   0.3f, 0.0f);
        benchmark::DoNotOptimize(effector->globalPosition[0]);
    }
    modelFree(root);
}

}  // namespace

BENCHMARK(BM_ChainSolve)->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
