// One scene update of 10,000 animated models: three curves each on scaling,
// rotation and translation (90,000 curves), in wide trees four levels deep,
// built in memory and walked through the update list at successive frames.
// With the optimisations on (the default) an update should take under 5 ms;
// "off" is the -o option. The walk is bound by memory: the second argument
// makes all curves before the elements, so that curves and keys lie together
// in walk order instead of between names and relation arrays. Run in a tree
// without sanitizers.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "dictionary.h"
#include "model.h"
#include "animation.h"

namespace {

constexpr int kModels = 10000;
constexpr int kRoots = 10;
constexpr int kBranching = 10;  // children per model, breadth first: 10, 100, 1000, 8890
constexpr int kKeys = 4;        // spline keys over four seconds

struct Scene {
    Dictionary dict;
    std::vector<Model *> roots;
    std::vector<Fcurve *> curves;
    std::vector<Fcurve *> made;  // curves made ahead, handed out in order
};

int addCurve(Scene &s, int32_t type, unsigned seed, float base, float swing) {
    Fcurve *c = s.made.empty() ? fcurveCreate(type, 0) : s.made[s.curves.size()];
    c->type = type;
    if (!c->keys) fcurveKeysAlloc(c, kKeys);
    for (int k = 0; k < kKeys; ++k) {
        c->keys[k].time = static_cast<float>(k);
        c->keys[k].value = base + swing * static_cast<float>((seed * 7919u + k * 104729u) % 1000) / 1000.0f;
        c->keys[k].interpolation = FCV_SPLINE;
    }
    fcurveSlopes(c);
    s.curves.push_back(c);
    std::string name = "c" + std::to_string(s.curves.size());
    return elemAdd(&s.dict, CHP_ANIMATION, elemNameParse(name.c_str(), nullptr, 0), c, nullptr, 0, 0);
}

Scene *sceneMake(bool curvesFirst) {
    auto *s = new Scene;
    dictCreateChapters(&s->dict, nullptr, 1);
    for (int i = 0; curvesFirst && i < kModels * 9; ++i) {
        s->made.push_back(fcurveCreate(0, 0));
        fcurveKeysAlloc(s->made.back(), kKeys);
    }
    const struct {
        int32_t relid, type;  // relation and curve type
        float base, swing;    // range of the key values
    } channels[] = {{100, 1, 0.5f, 1.0f}, {100, 2, 0.5f, 1.0f}, {100, 3, 0.5f, 1.0f},
                    {101, 4, -90, 180},   {101, 5, -90, 180},   {101, 6, -90, 180},
                    {113, 139, -5, 10},   {113, 140, -5, 10},   {113, 141, -5, 10}};
    for (int i = 0; i < kModels; ++i) {
        std::string name = "m" + std::to_string(i);
        Model *m = modelNew(name.c_str(), 0, nullptr);
        int index = elemAdd(&s->dict, CHP_MODELS, elemNameParse(name.c_str(), nullptr, 0), m, nullptr, 0, 0);
        m->elementIndex = index;
        int parent = i < kRoots ? -1 : (i - kRoots) / kBranching;
        if (parent < 0) {
            s->roots.push_back(m);
        } else {
            modelAddChild(static_cast<Model *>(elemGet(&s->dict, CHP_MODELS, parent)->data), m);
            elemGet(&s->dict, CHP_MODELS, index)->lev = 1;
            relAdd(&s->dict, nullptr, index, parent, REL_PARENT, 1, 1, nullptr, 1);
        }
        for (const auto &ch : channels) {
            int curve = addCurve(*s, ch.type, static_cast<unsigned>(i * 9 + ch.type), ch.base, ch.swing);
            relAdd(&s->dict, nullptr, index, curve, ch.relid, 0, 0, nullptr, 1);
        }
    }
    return s;
}

Scene &scene(bool curvesFirst) {
    static Scene *interleaved = nullptr, *together = nullptr;
    Scene *&s = curvesFirst ? together : interleaved;
    if (!s) s = sceneMake(curvesFirst);
    return *s;
}

void BM_SceneUpdate(benchmark::State &state) {
    Scene &s = scene(state.range(1) != 0);
    animationOptimise = state.range(0) ? -1 : 0;
    s.dict.update.dirty = 1;
    if (!updatelistBuild(&s.dict, &s.dict.update, 0, 0)) {
        state.SkipWithError("the update list did not build");
        return;
    }
    int frame = 0;
    for (auto _ : state) {
        float time = static_cast<float>(frame++ % 120) / 30.0f;
        updatelistEval(&s.dict, &s.dict.update, time);
        benchmark::DoNotOptimize(s.roots[0]->globalMatrix[3][0]);
    }
    state.counters["models"] = kModels;
    state.counters["records"] = s.dict.update.count;
    state.SetLabel(std::string(state.range(0) ? "optimisations on" : "optimisations off (-o)") +
                   (state.range(1) ? ", curves together" : ", curves between elements"));
    animationOptimise = -1;
}

}  // namespace

BENCHMARK(BM_SceneUpdate)->ArgsProduct({{1, 0}, {0, 1}})->Unit(benchmark::kMillisecond);

int main(int argc, char **argv) {
    // The relation rows: the installed resource file.
    const char *path = getenv("BW_RELATIONS");
    if (!dbLoadRelationDictionary(&g_relationDict, path ? path : BW_RELATIONS_RSRC, 1)) return 1;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
