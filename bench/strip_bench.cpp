// Preprocess of a mesh of 1,000,000 triangles: its tessellation into vertex
// and triangle records, the strip build, and both as the preprocess runs them
// (two calls). Counters: triangles per second and mean triangles per strip.
// The whole preprocess should stay under a second in a release tree.
// BM_SphereStreamShape measures what the draw sends for bwbig's sphere of
// 1,000,000 triangles (1000 slices, 501 stacks): vertices per triangle,
// strips, and material binds (state changes) in the stream; a triangle list
// sends 3 vertices a triangle.
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

struct StreamShape {
    int64_t strips = 0, vertices = 0, triangles = 0, materials = 0, textures = 0;
};

StreamShape streamShape(const TmeshHeader *h) {
    StreamShape shape;
    StripStreamVisitor v = {&shape, [](void *u, float, int) { ++static_cast<StreamShape *>(u)->materials; },
                            [](void *u, int) { ++static_cast<StreamShape *>(u)->textures; },
                            [](void *u, const float *, int cells, const StripVertexLayout *l) {
                                StreamShape &c = *static_cast<StreamShape *>(u);
                                ++c.strips;
                                c.vertices += cells / l->stride;
                                c.triangles += cells / l->stride - 2;
                            }};
    stripStreamWalk(h->stream, h->streamLength, &v);
    return shape;
}

double meanPerStrip(const TmeshHeader *h) {
    const StreamShape s = streamShape(h);
    return s.strips ? static_cast<double>(s.triangles) / static_cast<double>(s.strips) : 0.0;
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

void BM_SphereStreamShape(benchmark::State &state) {
    BW_GraphicProps gp;
    gpropsInit(&gp);
    static Model *m = modelNew("sphere", MODEL_MESH, tdMakeSphereMesh(1000, 501, 1.0f));
    for (auto _ : state) {
        modelDropGeometry(m, 0);
        modelPreprocess(m, &gp);
        modelPreprocess(m, &gp);
        benchmark::DoNotOptimize(m->tmesh);
    }
    const StreamShape s = streamShape(m->tmesh);
    state.counters["triangles"] = static_cast<double>(s.triangles);
    state.counters["strips"] = static_cast<double>(s.strips);
    state.counters["triangles_per_strip"] = s.strips ? static_cast<double>(s.triangles) / static_cast<double>(s.strips) : 0;
    state.counters["vertices_per_triangle"] = s.triangles ? static_cast<double>(s.vertices) / static_cast<double>(s.triangles) : 0;
    state.counters["material_binds"] = static_cast<double>(s.materials);
    state.counters["texture_binds"] = static_cast<double>(s.textures);
}

}  // namespace

BENCHMARK(BM_SphereStreamShape)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Tessellate)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Strips)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Preprocess)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
