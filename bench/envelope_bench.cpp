// A skin of about 100,000 points bound to a chain of 30 deformers, each point
// shared by the two nearest, deformed once per frame with the skeleton moving:
// matrices, the weighted sum and the point write, which should take under
// 4 ms; as a patch, which keeps no normals, that is the whole frame; as a
// mesh the new normals come on top. Beside it the cost of a frame whose
// skeleton stood still: the pose comparison alone. Run in a tree without
// sanitizers.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "animation.h"
#include "model.h"
#include "testdata.h"

namespace {

constexpr int kBones = 30;
constexpr int32_t kQuadsU = 315, kQuadsV = 316;  // (316 x 317) points

struct Rig {
    Model *skin = nullptr;
    Model *base = nullptr;
    std::vector<Model *> bones;
};

Rig *rigMake(int32_t type) {
    updateHandlerFind(RELGR_TRANSFO, 206);  // installs the release of the evaluation's records
    auto *rig = new Rig;
    void *geometry = type == MODEL_MESH ? static_cast<void *>(tdMakeGridMesh(kQuadsU, kQuadsV))
                                        : static_cast<void *>(patchMakeGrid(kQuadsU + 1, kQuadsV + 1, 1.0f));
    rig->skin = modelNew("skin", type, geometry);
    rig->skin->envelopeRole = ENVELOPE_ROLE_SKIN;
    const int32_t count = geometryPointCount(type, geometry);
    std::vector<float> xyz(size_t(count) * 3);
    geometryPositionsRead(type, geometry, xyz.data());
    float low = xyz[0], high = xyz[0];
    for (int32_t i = 0; i < count; ++i) low = std::min(low, xyz[3 * i]), high = std::max(high, xyz[3 * i]);
    rig->base = modelNew("base", 0, nullptr);
    rig->base->envelopeRole = ENVELOPE_ROLE_ROOT;
    envelopeDataGet(rig->base);
    const float length = (high - low) / kBones;
    Model *parent = rig->base;
    for (int b = 0; b < kBones; ++b) {
        Model *bone = modelNew(nullptr, 0, nullptr);
        bone->envelopeRole = ENVELOPE_ROLE_DEFORMER;
        bone->translation[0] = b == 0 ? low : length;
        envelopeDataGet(bone)->reference[6] = bone->translation[0];
        modelAddChild(parent, bone);
        rig->bones.push_back(bone);
        parent = bone;
    }
    modelGlobalUpdate(nullptr, rig->base, 1);
    // Each point to the bone it lies on (70) and the next one along (30).
    std::vector<std::vector<EnvelopeAssignment>> lists(kBones);
    for (int32_t i = 0; i < count; ++i) {
        int b = std::min(kBones - 1, std::max(0, int((xyz[3 * i] - low) / length)));
        lists[b].push_back({i, 70.0f});
        lists[(b + 1) % kBones].push_back({i, 30.0f});
    }
    for (int b = 0; b < kBones; ++b) {
        EnvelopeSkin *s = envelopeSkinAdd(rig->bones[b]->envelope, rig->skin, nullptr, int32_t(lists[b].size()));
        std::copy(lists[b].begin(), lists[b].end(), s->assignments);
    }
    return rig;
}

void rigFree(Rig *rig) {
    modelFree(rig->skin);
    modelFree(rig->base);
    delete rig;
}

void BM_EnvelopeMovingSkeleton(benchmark::State &state) {
    const int32_t type = int32_t(state.range(0));
    Rig *rig = rigMake(type);
    int frame = 0;
    for (auto _ : state) {
        for (int b = 0; b < kBones; ++b) rig->bones[b]->rotation[1] = 0.02f * std::sin(0.1f * float(frame + b));
        modelGlobalUpdate(nullptr, rig->base, 1);
        envelopeRefresh(rig->skin, rig->base);
        ++frame;
    }
    state.counters["points"] = double(geometryPointCount(type, rig->skin->geometry.any));
    rigFree(rig);
}
BENCHMARK(BM_EnvelopeMovingSkeleton)->Arg(MODEL_PATCH)->Arg(MODEL_MESH)->ArgName("type")->Unit(benchmark::kMillisecond);

void BM_EnvelopeStillSkeleton(benchmark::State &state) {
    Rig *rig = rigMake(MODEL_MESH);
    // The pose of the last walk's end, as the update list's end step keeps it.
    for (Model *m : rig->bones) {
        float *last = m->envelope->lastPose;
        for (int k = 0; k < 3; ++k) last[k] = m->globalScale[k], last[3 + k] = m->rotation[k], last[6 + k] = m->translation[k];
    }
    for (auto _ : state) benchmark::DoNotOptimize(envelopeMark(rig->skin, rig->base));
    rigFree(rig);
}
BENCHMARK(BM_EnvelopeStillSkeleton)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
