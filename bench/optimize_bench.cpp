// The start-up merge of a scene of 5,000 materials (groups of five alike) and
// 2,000 textures over 40 small pictures: what the viewer spends before its
// first frame. Aim: under 100 ms. Run in a tree without sanitizers, e.g.
//   build-rel/bin/optimize_bench
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "capture.h"
#include "dictionary.h"
#include "fileio.h"
#include "material.h"
#include "testdata.h"
#include "view.h"

namespace {

constexpr int kMaterials = 5000, kTextures = 2000, kPictures = 40;

struct Scene {
    TdScene scene;
    std::vector<std::unique_ptr<Material>> materials;
    std::vector<std::unique_ptr<Texture2D>> textures;
};

std::unique_ptr<Scene> makeScene(const std::vector<std::string> &pictures) {
    auto s = std::make_unique<Scene>();
    for (int i = 0; i < kMaterials; ++i) {
        auto m = std::make_unique<Material>();
        const int group = i / 5;
        m->diffuse[0] = static_cast<float>(group % 100) / 100.0f;
        m->diffuse[1] = static_cast<float>(group / 100) / 100.0f;
        const int at = s->scene.add(CHP_MATERIALS, "m" + std::to_string(i) + ".1-0");
        s->scene.element(CHP_MATERIALS, at)->data = m.get();
        s->materials.push_back(std::move(m));
    }
    for (int i = 0; i < kTextures; ++i) {
        auto t = std::make_unique<Texture2D>();
        t->pictureName = pictures[static_cast<size_t>(i % kPictures)];
        const int at = s->scene.add(CHP_TEXTURES2D, "t" + std::to_string(i) + ".1-0");
        s->scene.element(CHP_TEXTURES2D, at)->data = t.get();
        s->textures.push_back(std::move(t));
    }
    return s;
}

void BM_MergeAtStartup(benchmark::State &state) {
    tdLoadRelations();
    bwtest::TempDir dir;
    std::vector<std::string> pictures;
    PictureInfo p = tdPictureNew(64, 48, false);
    for (int i = 0; i < kPictures; ++i) {
        pictures.push_back(dir / ("p" + std::to_string(i) + ".pic"));
        picWriteImage(pictures.back().c_str(), &p, PIC_WRITE_RUNS);
    }
    picFree(&p);
    int merged = 0, pics = 0, mergedPics = 0, memory = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::unique_ptr<Scene> s = makeScene(pictures);
        state.ResumeTiming();
        merged = mergeMaterials(&s->scene.dict, 0);
        texturesMerge(&s->scene.dict, &pics, &mergedPics, &memory);
        state.PauseTiming();
        s.reset();
        state.ResumeTiming();
    }
    state.counters["materials merged"] = merged;
    state.counters["pictures"] = pics;
    state.counters["pictures merged"] = mergedPics;
}
BENCHMARK(BM_MergeAtStartup)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
