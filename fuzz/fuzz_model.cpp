// Fuzz target: the model reader on a whole .hrc file. The reader takes a path,
// so each input is written to one file of a directory made for this process.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "model.h"
#include "tol.h"
#include "fuzz_scratch.h"

namespace {

std::string g_stem;  // the model path without ".hrc"

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    tol_setMinimumClass(TOL_CLASS_MODE + 1);  // damaged files are the normal case here
    fuzz::scratchInit("fuzz_model");
    g_stem = fuzz::scratch("m");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (!fuzz::writeFile(g_stem + ".hrc", data, size)) return 0;
    modelFree(modelFileRead(g_stem.c_str(), nullptr, MODEL_READ_NEW));
    return 0;
}
