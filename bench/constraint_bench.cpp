// One scene update of 10,000 constrained models: 100 partners moved by
// translation curves and 10,000 models each bound to one of them by a
// position, direction or orientation constraint, built in memory and walked
// through the update list at successive frames. An update should take under
// 5 ms. Run in a tree without sanitizers.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "dictionary.h"
#include "model.h"
#include "animation.h"

namespace {

constexpr int kModels = 10000;
constexpr int kPartners = 100;

struct Scene {
    Dictionary dict;
    std::vector<Model *> models;
};

int addModel(Scene &s, char kind, int number) {
    char name[32];
    snprintf(name, sizeof name, "%c%d", kind, number);
    Model *m = modelNew(name, 0, nullptr);
    s.models.push_back(m);
    int index = elemAdd(&s.dict, CHP_MODELS, elemNameParse(name, nullptr, 0), m, nullptr, 0, 0);
    m->elementIndex = index;
    return index;
}

int addCurve(Scene &s, int32_t type, float from, float to) {
    Fcurve *c = fcurveCreate(type, 0);
    fcurveKeysAlloc(c, 2);
    c->keys[0].time = 0, c->keys[0].value = from, c->keys[0].interpolation = FCV_LINEAR;
    c->keys[1].time = 4, c->keys[1].value = to, c->keys[1].interpolation = FCV_LINEAR;
    char name[32];
    snprintf(name, sizeof name, "c%d_%d", type, s.dict.chapters[CHP_ANIMATION].elementCount);
    return elemAdd(&s.dict, CHP_ANIMATION, elemNameParse(name, nullptr, 0), c, nullptr, 0, 0);
}

Scene *sceneMake() {
    auto *s = new Scene;
    dictCreateChapters(&s->dict, nullptr, 1);
    std::vector<int> partners;
    for (int i = 0; i < kPartners; ++i) {
        int p = addModel(*s, 'p', i);
        for (int32_t type : {139, 140, 141})
            relAdd(&s->dict, nullptr, p, addCurve(*s, type, float(i % 7) - 3, float(i % 5) + 1), 113, 0, 0, nullptr, 1);
        partners.push_back(p);
    }
    const int32_t kinds[3] = {111, 116, 114};
    for (int i = 0; i < kModels; ++i) {
        int m = addModel(*s, 'm', i);
        s->models.back()->translation[0] = float(i % 13);
        relAdd(&s->dict, nullptr, m, partners[static_cast<size_t>(i % kPartners)], kinds[i % 3], 0, 0, nullptr, 1);
    }
    return s;
}

void BM_ConstraintUpdate(benchmark::State &state) {
    static Scene *s = sceneMake();
    s->dict.update.dirty = 1;
    if (!updatelistBuild(&s->dict, &s->dict.update, 0, 0)) {
        state.SkipWithError("the update list did not build");
        return;
    }
    int frame = 0;
    for (auto _ : state) {
        float time = static_cast<float>(frame++ % 120) / 30.0f;
        updatelistEval(&s->dict, &s->dict.update, time);
        benchmark::DoNotOptimize(s->models.back()->globalMatrix[3][0]);
    }
    state.counters["constrained"] = kModels;
    state.counters["records"] = s->dict.update.count;
}

}  // namespace

BENCHMARK(BM_ConstraintUpdate)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv) {
    const char *path = getenv("BW_RELATIONS");
    if (!dbLoadRelationDictionary(&g_relationDict, path ? path : BW_RELATIONS_RSRC, 1)) return 1;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
