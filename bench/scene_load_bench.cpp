// Loading a generated scene: N models in five wide hierarchies no deeper than
// 10 levels (one model file per hierarchy, its members taking their nodes by
// name), a material per hierarchy, and a relation per member, with and
// without BW_LOAD_OPTIM. The counter per_model (seconds per model) should stay flat as N grows
// from 1,000 to 50,000: the load is linear in the size of the scene.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "capture.h"
#include "dict_internal.h"
#include "testdata.h"

namespace {

constexpr int kHierarchies = 5;
constexpr int kBranching = 4;  // 4^7 > 10,000: depth stays under 10 up to 50,000 models

struct Generated {
    bwtest::TempDir dir;
    Database *db = nullptr;
    std::string scene;
};

// Tree of `count` nodes, breadth first, each node with up to kBranching children.
Model *makeTree(const std::string &prefix, int count, std::vector<int> &parentOf) {
    std::vector<Model *> nodes;
    nodes.reserve(static_cast<size_t>(count));
    parentOf.assign(static_cast<size_t>(count), -1);
    for (int i = 0; i < count; ++i) {
        nodes.push_back(modelNew((prefix + "n" + std::to_string(i)).c_str(), 0, nullptr));
        if (i > 0) {
            int parent = (i - 1) / kBranching;
            parentOf[static_cast<size_t>(i)] = parent;
            modelAddChild(nodes[static_cast<size_t>(parent)], nodes.back());
        }
    }
    return nodes[0];
}

Generated *generate(int models) {
    static std::vector<std::pair<int, Generated *>> made;
    for (auto &m : made)
        if (m.first == models) return m.second;
    Generated *g = new Generated;
    bwtest::OutputCapture quiet;
    tdLoadRelations();
    g->db = tdDatabaseCreate(g->dir / "db", "bench" + std::to_string(models), g->dir / "Dir.rsrc");
    TdScene scene;
    int perTree = models / kHierarchies;
    for (int h = 0; h < kHierarchies; ++h) {
        std::string prefix = "h" + std::to_string(h);
        std::vector<int> parentOf;
        Model *root = makeTree(prefix, perTree, parentOf);
        std::string file = tdFullName(tdWriteModel(g->db, prefix, root));
        modelFree(root);
        Material m;
        std::string material = tdFullName(tdWriteMaterial(g->db, prefix + "mat", m));
        int matIndex = scene.add(CHP_MATERIALS, material);
        std::vector<int> index(static_cast<size_t>(perTree));
        index[0] = scene.add(CHP_MODELS, file);
        scene.relate(CHP_MODELS, index[0], CHP_MATERIALS, matIndex, 300);
        for (int i = 1; i < perTree; ++i) {
            index[static_cast<size_t>(i)] = scene.add(CHP_MODELS, prefix + "n" + std::to_string(i) + ".1-0", false);
            scene.relate(CHP_MODELS, index[static_cast<size_t>(i)], CHP_MODELS,
                         index[static_cast<size_t>(parentOf[static_cast<size_t>(i)])], 110);
        }
    }
    g->scene = tdFullName(tdWriteScene(g->db, "big", scene, time(nullptr)));
    made.emplace_back(models, g);
    return g;
}

void load(benchmark::State &state, bool optim) {
    int models = static_cast<int>(state.range(0));
    Generated *g = generate(models);
    bwtest::ScopedEnv env("BW_LOAD_OPTIM", optim ? "1" : nullptr);
    dictEnvReset();
    for (auto _ : state) {
        Dictionary dict;
        dictInit(&dict);
        dictCreateChapters(&dict, nullptr, 1);
        bwtest::OutputCapture quiet;
        if (!sceneRead(&dict, g->db, g->scene.c_str())) state.SkipWithError("load failed");
        state.PauseTiming();
        dictFree(&dict, 0);
        state.ResumeTiming();
    }
    dictEnvReset();
    // Seconds per model, printed with its SI prefix.
    state.counters["per_model"] = benchmark::Counter(
        static_cast<double>(models),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_SceneLoad(benchmark::State &state) { load(state, false); }
void BM_SceneLoadOptim(benchmark::State &state) { load(state, true); }

BENCHMARK(BM_SceneLoad)->Arg(1000)->Arg(10000)->Arg(50000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SceneLoadOptim)->Arg(1000)->Arg(10000)->Arg(50000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
