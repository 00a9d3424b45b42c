// Fuzz target: the scene setup file reader, and the writer over what it kept:
// a record read from any input is written and read again, which must give
// the same settings and lines.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "dictionary.h"
#include "tol.h"
#include "fuzz_scratch.h"

namespace {

std::string g_in, g_out;  // the input's file and the written one

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::readerInit("fuzz_setup");
    g_in = fuzz::scratch("in.sts");
    g_out = fuzz::scratch("out.sts");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // Most inputs get the magic in front so that the groups are reached.
    std::string text(reinterpret_cast<const char *>(data), size);
    if (text.compare(0, 4, "SSET") != 0 && !(size > 0 && data[0] == '!')) text = "SSET 3.0\n" + text;
    if (!fuzz::writeFile(g_in, reinterpret_cast<const uint8_t *>(text.data()), text.size())) return 0;
    SceneSetup first;
    if (!sceneSetupRead(g_in.c_str(), &first)) return 0;
    if (!sceneSetupWrite(g_out.c_str(), first)) return 0;
    SceneSetup second;
    if (!sceneSetupRead(g_out.c_str(), &second)) abort();
    if (second.lines.size() != first.lines.size()) abort();
    return 0;
}
