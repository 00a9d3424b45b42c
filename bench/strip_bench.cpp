// Preprocess of a mesh of 1,000,000 triangles: its tessellation into vertex
// and triangle records, the strip build, and both as the preprocess runs them
// (two calls). Counters: triangles per second and mean triangles per strip.
// The whole preprocess should stay under a second in a release tree.
#include <benchmark/benchmark.h>

#include "graphic.h"
#include "model.h"
#include "testdata.h"

namespace {

constexpr int32_t kQuadsU = 1000, kQuadsV = 500;  // two triangles per quad

Model *gridModel() {
    static Model *model = modelNew("grid", MODEL_MESH, tdMakeGridMesh(kQuadsU, kQuadsV));
    return model;
}

double meanPerStrip(const TmeshHeader *h) {
    struct Count {
        int64_t strips = 0, triangles = 0;
    } count;
    StripStreamVisitor v = {&count, nullptr, nullptr, [](void *u, const float *, int cells, const StripVertexLayout *l) {
                                Count &c = *static_cast<Count *>(u);
                                ++c.strips;
                                c.triangles += cells / l->stride - 2;
                            }};
    stripStreamWalk(h->stream, h->streamLength, &v);
    return count.strips ? static_cast<double>(count.triangles) / static_cast<double>(count.strips) : 0.0;
}

void report(benchmark::State &state, const Model *m) {
    state.counters["triangles_per_s"] = benchmark::Counter(static_cast<double>(m->triangleCount) * state.iterations(),
                                                           benchmark::Counter::kIsRate);
    if (m->tmesh) state.counters["triangles_per_strip"] = meanPerStrip(m->tmesh);
}

void BM_Tessellate(benchmark::State &state) {
    Model *m = gridModel();
    for (auto _ : state) {
        tessellateModel(m, 2, 0, 0);
        benchmark::DoNotOptimize(m->triangles);
    }
    report(state, m);
}

void BM_Strips(benchmark::State &state) {
    BW_GraphicProps gp;
    gpropsInit(&gp);
    Model *m = gridModel();
    modelDropGeometry(m, 0);
    modelPreprocess(m, &gp);
    for (auto _ : state) {
        modelDropStrips(m);
        modelPreprocess(m, &gp);
        benchmark::DoNotOptimize(m->tmesh);
    }
    report(state, m);
}

void BM_Preprocess(benchmark::State &state) {
    BW_GraphicProps gp;
    gpropsInit(&gp);
    Model *m = gridModel();
    for (auto _ : state) {
        modelDropGeometry(m, 0);
        modelPreprocess(m, &gp);  // tessellates
        modelPreprocess(m, &gp);  // builds the strips
        benchmark::DoNotOptimize(m->tmesh);
    }
    report(state, m);
}

}  // namespace

BENCHMARK(BM_Tessellate)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Strips)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Preprocess)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
