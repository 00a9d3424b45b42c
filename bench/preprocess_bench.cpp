// The update side's preprocess of a scene that does not change: once the
// strips are built, every further TOL_preprocessALL only checks each model's
// strip header, so a call should take microseconds, not milliseconds. Two
// scenes, written into a scratch database and loaded through the layer as
// the viewer loads them: one sphere of 1,000,000 triangles, and 4,000 small
// spheres of 96 triangles, each a model file of its own, under 32 materials.
// The first build is timed as well, for scale. Run in a tree without
// sanitizers.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "dictionary.h"
#include "graphic.h"
#include "model.h"
#include "testdata.h"
#include "tol.h"

namespace {

constexpr int kMaterials = 32;
constexpr int kSmallModels = 4000;
constexpr int32_t kSmallSlices = 12, kSmallStacks = 5;  // 96 triangles

struct Scratch {
    std::string dir;  // the database and its directory file
    bool ok = false;
};

// The two scenes: material i % kMaterials on model i, one camera.
bool writeScenes(Database *db) {
    std::string materials[kMaterials];
    for (int i = 0; i < kMaterials; ++i) {
        Material m;
        m.name = std::to_string(i);
        for (int k = 0; k < 3; ++k) m.diffuse[k] = 0.2f + 0.02f * static_cast<float>(i + k);
        materials[i] = tdFullName(tdWriteMaterial(db, "pre-m" + std::to_string(i), m));
        if (materials[i].empty()) return false;
    }
    Camera eye;
    eye.position[2] = 50.0f;
    const std::string camera = tdFullName(tdWriteCamera(db, "pre-eye", eye));

    // The big sphere.
    {
        Model *model = modelNew("sphere", MODEL_MESH, tdMakeSphereMesh(1000, 501, 1.0f));
        const std::string file = tdFullName(tdWriteModel(db, "pre-sphere", model));
        modelFree(model);
        TdScene scene;
        const int m = scene.add(CHP_MODELS, file);
        const int mat = scene.add(CHP_MATERIALS, materials[0]);
        scene.add(CHP_CAMERAS, camera);
        if (file.empty() || !scene.relate(CHP_MODELS, m, CHP_MATERIALS, mat, 300) ||
            tdWriteScene(db, "sphere", scene, time(nullptr) - 2).empty())
            return false;
    }

    // The many small ones.
    TdScene scene;
    int matIndex[kMaterials];
    for (int i = 0; i < kMaterials; ++i) matIndex[i] = scene.add(CHP_MATERIALS, materials[i]);
    scene.add(CHP_CAMERAS, camera);
    for (int i = 0; i < kSmallModels; ++i) {
        const std::string name = "ball" + std::to_string(i);
        Model *model = modelNew(name.c_str(), MODEL_MESH, tdMakeSphereMesh(kSmallSlices, kSmallStacks, 0.5f));
        const std::string file = tdFullName(tdWriteModel(db, "pre-" + name, model));
        modelFree(model);
        if (file.empty()) return false;
        const int m = scene.add(CHP_MODELS, file);
        if (!scene.relate(CHP_MODELS, m, CHP_MATERIALS, matIndex[i % kMaterials], 300)) return false;
    }
    return !tdWriteScene(db, "many", scene, time(nullptr) - 1).empty();
}

Scratch *made = nullptr;  // written at the first use, removed at exit

const Scratch &scratch() {
    static Scratch s = [] {
        Scratch out;
        char pattern[] = "/tmp/bwpreprocess_bench.XXXXXX";
        if (!mkdtemp(pattern)) return out;
        out.dir = pattern;
        Database *db = tdDatabaseCreate(out.dir + "/pre", "pre", out.dir + "/DatabaseDir.rsrc");
        out.ok = db && tdLoadRelations() && writeScenes(db) && TOL_Init(BW_RSRC_DIR, 0, TOL_SDK_VERSION) == 0;
        return out;
    }();
    made = &s;
    return s;
}

struct Loaded {
    TOL_Scene scene{};
    BW_GraphicProps gprops{};
    int32_t models = 0;  // entries of the models list
    bool ok = false;
};

// The scene loaded as the viewer loads it, shaded.
bool load(const char *name, Loaded *out) {
    const Scratch &s = scratch();
    if (!s.ok) return false;
    TOL_Database db = 0;
    if (TOL_databaseLoad((s.dir + "/pre").c_str(), &db) != 0 || TOL_sceneCreate(&out->scene) != 0 ||
        TOL_sceneSetCurrent(&out->scene) != 0 || TOL_sceneLoad(&db, name, &out->scene) != 0 ||
        TOL_updatelistGet(&out->scene) != 0)
        return false;
    gpropsInit(&out->gprops);
    out->gprops.material.shade = 1;
    const Chapter *models = dictChapter(dictGet(static_cast<int>(out->scene.dict)), CHP_MODELS);
    out->models = models ? models->elementCount : 0;
    return true;
}

// Tessellation, then strips: what the first two update steps do.
bool build(Loaded *l) {
    return TOL_preprocessALL(&l->scene, &l->gprops) == 0 && TOL_preprocessALL(&l->scene, &l->gprops) == 0;
}

Loaded &loaded(const char *name) {
    static Loaded sphere, many;
    Loaded &l = std::string(name) == "sphere" ? sphere : many;
    if (!l.ok) l.ok = load(name, &l) && build(&l);
    return l;
}

void unchanged(benchmark::State &state, const char *name) {
    Loaded &l = loaded(name);
    if (!l.ok) {
        state.SkipWithError("the scene does not load");
        return;
    }
    TOL_sceneSetCurrent(&l.scene);
    for (auto _ : state) benchmark::DoNotOptimize(TOL_preprocessALL(&l.scene, &l.gprops));
    // Models with strips: the header checks the calls made.
    const Chapter *models = dictChapter(dictGet(static_cast<int>(l.scene.dict)), CHP_MODELS);
    int32_t withStrips = 0;
    for (int32_t i = 0; models && i < models->elementCount; ++i) {
        const Model *m = static_cast<const Model *>(models->elements[i].data);
        withStrips += m && m->tmesh ? 1 : 0;
    }
    state.counters["models"] = l.models;
    state.counters["with_strips"] = withStrips;
    state.counters["ns_per_model"] =
        benchmark::Counter(static_cast<double>(l.models) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_PreprocessUnchangedSphere(benchmark::State &state) { unchanged(state, "sphere"); }
void BM_PreprocessUnchangedManyModels(benchmark::State &state) { unchanged(state, "many"); }

// The first build of the many models' strips, for scale: tessellation and
// strips from nothing.
void BM_PreprocessFirstBuildManyModels(benchmark::State &state) {
    Loaded &l = loaded("many");
    if (!l.ok) {
        state.SkipWithError("the scene does not load");
        return;
    }
    TOL_sceneSetCurrent(&l.scene);
    Chapter *models = dictChapter(dictGet(static_cast<int>(l.scene.dict)), CHP_MODELS);
    for (auto _ : state) {
        state.PauseTiming();
        for (int32_t i = 0; i < models->elementCount; ++i)
            modelDropGeometry(static_cast<Model *>(models->elements[i].data), 0);
        state.ResumeTiming();
        benchmark::DoNotOptimize(build(&l));
    }
}

}  // namespace

BENCHMARK(BM_PreprocessUnchangedSphere)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PreprocessUnchangedManyModels)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PreprocessFirstBuildManyModels)->Unit(benchmark::kMillisecond)->Iterations(3);

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (made && !made->dir.empty()) {
        const std::string clean = "rm -rf " + made->dir;
        if (system(clean.c_str()) != 0) fprintf(stderr, "preprocess_bench: %s stays\n", made->dir.c_str());
    }
    return 0;
}
