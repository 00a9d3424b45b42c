// Fuzz target: the picture reader on a whole .pic file, through a scratch file
// (the reader takes a name, as texture loading does).
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fileio.h"
#include "fuzz_scratch.h"

namespace {

std::string g_file;  // the picture

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::scratchInit("fuzz_picture");
    g_file = fuzz::scratch("p.pic");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (!fuzz::writeFile(g_file, data, size)) return 0;
    PictureInfo info{};
    if (picRead(g_file.c_str(), &info)) picFree(&info);
    return 0;
}
