// Fuzz target: the picture reader on a whole .pic file, through a scratch file
// (the reader takes a name, as texture loading does).
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fileio.h"

namespace {

std::string g_dir;   // the process's scratch directory
std::string g_file;  // the picture

void removeScratch() {
    unlink(g_file.c_str());
    rmdir(g_dir.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    char pattern[] = "/dev/shm/fuzz_picture.XXXXXX";
    if (!mkdtemp(pattern)) {
        perror("fuzz_picture: mkdtemp");
        abort();
    }
    g_dir = pattern;
    g_file = g_dir + "/p.pic";
    atexit(removeScratch);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FILE *f = fopen(g_file.c_str(), "wb");
    if (!f) return 0;
    bool written = fwrite(data, 1, size, f) == size;
    if (fclose(f) != 0 || !written) return 0;
    PictureInfo info{};
    if (picRead(g_file.c_str(), &info)) picFree(&info);
    return 0;
}
