// Export of a scene of 1,000,000 triangles with 100 frames of animation to
// .glb: bwbig's sphere loaded through the layer, turned a little at every
// frame, sampled and written. It should stay under 3 seconds in a release
// tree (build-release/).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "dictionary.h"
#include "export.h"
#include "model.h"
#include "tol.h"

namespace {

struct Turning {
    TOL_Scene *scene;  // the sphere's scene
    Model *model;      // the sphere
};

// The layer's evaluation, then the sphere turned about y by the frame.
int evalFrame(void *user, int32_t frame) {
    auto *t = static_cast<Turning *>(user);
    if (TOL_updatelistEvalScene(t->scene, static_cast<float>(frame) / 30.0f) != 0) return 1;
    t->model->rotation[1] = 0.01f * static_cast<float>(frame);
    modelUpdateTransform(t->model);
    return 0;
}

void BM_ExportMillionTriangles100Frames(benchmark::State &state) {
    char pattern[] = "/tmp/bwexport_bench.XXXXXX";
    const std::string dir = mkdtemp(pattern);
    const std::string make = std::string(BW_BWBIG_BIN) + " " + dir + " 1000000 >/dev/null";
    if (system(make.c_str()) != 0 || TOL_Init(BW_RSRC_DIR, 0, TOL_SDK_VERSION) != 0) {
        state.SkipWithError("bwbig or the layer failed");
        return;
    }
    TOL_Database db = 0;
    TOL_Scene scene;
    if (TOL_databaseLoad((dir + "/big").c_str(), &db) != 0 || TOL_sceneCreate(&scene) != 0 ||
        TOL_sceneSetCurrent(&scene) != 0 || TOL_sceneLoad(&db, "sphere1000000", &scene) != 0 ||
        TOL_updatelistGet(&scene) != 0) {
        state.SkipWithError("the sphere scene does not load");
        return;
    }
    Dictionary *dict = dictGet(static_cast<int>(scene.dict));
    Chapter *models = dictChapter(dict, CHP_MODELS);
    Turning turning{&scene, static_cast<Model *>(models->elements[0].data)};
    ExportSource source;
    source.dict = dict;
    source.firstFrame = 1;
    source.lastFrame = 100;
    source.eval = evalFrame;
    source.user = &turning;
    const std::string out = dir + "/sphere.glb";
    ExportSummary summary;
    for (auto _ : state) {
        std::string error;
        if (exportGltf(source, out.c_str(), ExportOptions{}, &summary, &error) != 0) {
            state.SkipWithError(error.c_str());
            break;
        }
    }
    state.counters["triangles"] = static_cast<double>(summary.triangles);
    state.counters["channels"] = summary.channels;
    std::string clean = "rm -rf " + dir;
    if (system(clean.c_str()) != 0) fprintf(stderr, "export_bench: %s stays\n", dir.c_str());
}
BENCHMARK(BM_ExportMillionTriangles100Frames)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
