// Fuzz target: the model reader on a whole .hrc file. The reader takes a path,
// so each input is written to one file of a directory made for this process.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "model.h"
#include "tol.h"

namespace {

std::string g_dir;   // the process's scratch directory
std::string g_stem;  // the model path without ".hrc"

void removeScratch() {
    unlink((g_stem + ".hrc").c_str());
    rmdir(g_dir.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    tol_setMinimumClass(TOL_CLASS_MODE + 1);  // damaged files are the normal case here
    char pattern[] = "/dev/shm/fuzz_model.XXXXXX";
    if (!mkdtemp(pattern)) {
        perror("fuzz_model: mkdtemp");
        abort();
    }
    g_dir = pattern;
    g_stem = g_dir + "/m";
    atexit(removeScratch);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FILE *f = fopen((g_stem + ".hrc").c_str(), "wb");
    if (!f) return 0;
    bool written = fwrite(data, 1, size, f) == size;
    if (fclose(f) != 0 || !written) return 0;
    modelFree(modelFileRead(g_stem.c_str(), nullptr, MODEL_READ_NEW));
    return 0;
}
