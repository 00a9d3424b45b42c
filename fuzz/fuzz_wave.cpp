// Fuzz target: the reader of wave files (.wav), then the wave's displacement
// of a few points in both slots at a few times. An input that does not start
// with the magic gets the header in front, so that most inputs reach the groups.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "animation.h"
#include "model.h"
#include "tol.h"
#include "fuzz_scratch.h"

namespace {

std::string g_path;  // the file each input is written to

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_modelExtraFree = modelExtraFree;
    fuzz::readerInit("fuzz_wave");
    g_path = fuzz::scratch("a.wav");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FILE *f = fopen(g_path.c_str(), "wb");
    if (!f) return 0;
    bool written = true;
    if (size < 4 || memcmp(data, "SWAV", 4) != 0) written = fputs("SWAV 1.0\n", f) >= 0;
    written = written && fwrite(data, 1, size, f) == size;
    if (fclose(f) != 0 || !written) return 0;

    Wave *wave = waveFileRead(g_path.c_str());
    if (!wave) return 0;
    modelGlobalUpdate(nullptr, wave->transfo, 0);
    Model *model = modelNew("m", MODEL_TYPE_NULL, nullptr);
    if (model && modelDeformersOf(model)) {
        model->deformers->slot[DEFORM_SLOT_LOCAL].wave = wave;
        model->deformers->slot[DEFORM_SLOT_GLOBAL].wave = wave;
        static const float times[] = {-1.0f, 0.0f, 0.5f, 3.0f, 1e6f};
        for (float t : times) {
            float points[4][3] = {{0, 0, 0}, {1, 0, 0}, {0, 2, -3}, {1e30f, 0, 1}};
            waveApply(model, DEFORM_SLOT_LOCAL, points, 4, t);
            waveApply(model, DEFORM_SLOT_GLOBAL, points, 4, t);
        }
        modelDeformersFree(model->deformers);
        model->deformers = nullptr;
    }
    modelFree(model);
    waveFree(wave);
    return 0;
}
