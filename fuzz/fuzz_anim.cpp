// Fuzz target: the reader of .ani files, and the evaluation of every curve it
// gives. An input that does not start with a binary header gets the header of
// an animation file in front, so that most inputs reach the blocks.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "animation.h"
#include "fileio.h"
#include "tol.h"
#include "fuzz_scratch.h"

namespace {

std::string g_path;  // the file each input is written to

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::readerInit("fuzz_anim");
    g_path = fuzz::scratch("a.ani");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FILE *f = fopen(g_path.c_str(), "wb");
    if (!f) return 0;
    bool written = true;
    if (size < 4 || !binIsFileId(uint32_t(data[0]) << 24 | uint32_t(data[1]) << 16 | uint32_t(data[2]) << 8 | data[3])) {
        BinWriter w;
        binWriterAttach(w, f, g_path.c_str());
        binWriteHeader(w, BIN_ID_ANIMATION, BIN_VERSION, nullptr);
        written = !w.failed;
    }
    written = written && fwrite(data, 1, size, f) == size;
    if (fclose(f) != 0 || !written) return 0;

    AnimItem *items = animFileRead(g_path.c_str());
    static const float times[] = {-1e30f, -3.5f, 0.0f, 0.25f, 1.0f, 7.75f, 1e30f};
    for (AnimItem *it = items; it; it = it->next)
        for (float t : times) {
            fcurveValue(it->curve, t, 1);
            fcurveFloatValue(it->curve, t, 0);
            fcurveStepValue(it->curve, t, 0, 0);
            float at;
            fcurveFreezeTime(it->curve, t, &at);
        }
    animItemsFree(items);
    return 0;
}
