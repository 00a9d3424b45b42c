// Fuzz target: the camera, light and lattice readers on a whole file, the
// reader picked by the file id at the front of the input. The readers take a
// path, so each input is written to a file of a directory made for this
// process. Whatever a reader keeps is written back and read again: the second
// writing must give the bytes of the first, or reader and writer disagree.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "camera.h"
#include "fileio.h"
#include "tol.h"
#include "fuzz_scratch.h"

namespace {

std::string g_input, g_one, g_two;  // the input and the two writings

std::vector<uint8_t> bytesOf(const std::string &path) {
    std::vector<uint8_t> out;
    FILE *f = fopen(path.c_str(), "rb");
    if (!f) return out;
    uint8_t buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, f)) > 0;) out.insert(out.end(), buf, buf + n);
    fclose(f);
    return out;
}

void sameWritings(const char *what) {
    if (bytesOf(g_one) != bytesOf(g_two)) {
        fprintf(stderr, "fuzz_camera: a %s read back from its own file is written differently\n", what);
        abort();
    }
}

void camera() {
    Camera c;
    if (cameraFileRead(g_input.c_str(), &c) && cameraFileWrite(g_one.c_str(), c, nullptr)) {
        Camera again;
        if (cameraFileRead(g_one.c_str(), &again) && cameraFileWrite(g_two.c_str(), again, nullptr))
            sameWritings("camera");
        cameraFreeData(again);
    }
    cameraFreeData(c);
}

void light() {
    Light *l = lightFileRead(g_input.c_str());
    if (l && lightFileWrite(g_one.c_str(), *l, nullptr)) {
        Light *again = lightFileRead(g_one.c_str());
        if (again && lightFileWrite(g_two.c_str(), *again, nullptr)) sameWritings("light");
        lightFree(again);
    }
    lightFree(l);
}

void lattice() {
    Lattice *l = latticeFileLoad(g_input.c_str());
    if (l && latticeFileWrite(g_one.c_str(), *l, nullptr)) {
        Lattice *again = latticeFileLoad(g_one.c_str());
        if (again && latticeFileWrite(g_two.c_str(), *again, nullptr)) sameWritings("lattice");
        latticeFree(again);
    }
    latticeFree(l);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::readerInit("fuzz_camera");
    g_input = fuzz::scratch("in"), g_one = fuzz::scratch("one"), g_two = fuzz::scratch("two");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (!fuzz::writeFile(g_input, data, size)) return 0;
    uint32_t id = size >= 4 ? (uint32_t{data[0]} << 24) | (uint32_t{data[1]} << 16) | (uint32_t{data[2]} << 8) | data[3]
                            : 0;
    switch (id) {
        case BIN_ID_CAMERA: camera(); break;
        case BIN_ID_LIGHT: light(); break;
        case BIN_ID_LATTICE: lattice(); break;
        default:  // refused by all three
            camera(), light(), lattice();
            break;
    }
    pathRefsFree(pathRefsTake());
    return 0;
}
