// Fuzz target: the ascii readers of a scene. An input beginning with the
// relation magic is read as Relations.rsrc (through a scratch file, as the
// reader takes a path); any other input as a scene file, through the grammar
// readers into a fresh dictionary.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "dictionary.h"
#include "tol.h"
#include "fuzz_scratch.h"

namespace {

std::string g_file;  // the relations file

void readScene(const uint8_t *data, size_t size) {
    FILE *f = fmemopen(const_cast<uint8_t *>(data), size, "rb");
    if (!f) return;
    Dictionary dict;
    dictInit(&dict);
    dictCreateChapters(&dict, nullptr, 0);
    float version = 0;
    if (sceneReadHeader(f, &dict, 0, "", &version, 0)) {
        sceneReadRelations(f, &dict, &g_relationDict, 0, version);
        sceneReadEnvironment(f, &dict, 0);
    }
    fclose(f);
    dictFree(&dict, 0);
}

void readRelations(const uint8_t *data, size_t size) {
    if (!fuzz::writeFile(g_file, data, size)) return;
    RelationDict table;
    reldictReadRelations(&table, g_file.c_str());
    relDictClear(&table);
    customTableClear(&g_customTable);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    tol_setMinimumClass(TOL_CLASS_MODE + 1);
    if (!dbLoadRelationDictionary(&g_relationDict, BW_SOURCE_DIR "/rsrc/Relations.rsrc", 0)) {
        fprintf(stderr, "fuzz_scene: cannot read the relation resources\n");
        abort();
    }
    fuzz::scratchInit("fuzz_scene");
    g_file = fuzz::scratch("Relations.rsrc");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size >= 4 && memcmp(data, "SREL", 4) == 0)
        readRelations(data, size);
    else
        readScene(data, size);
    return 0;
}
