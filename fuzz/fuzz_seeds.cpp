// Writes the seed corpus of the fuzz targets with our own writers.
#include <cstdio>
#include <string>

#include "fileio.h"

namespace {

void writeFrame(const std::string &path, const Prototype *proto) {
    BinWriter w;
    if (!binWriterOpen(w, path.c_str())) return;
    binWriteFileStart(w, BIN_ID_GENERAL, 4.0f, "seed", proto, "HRCH");
    TokenCursor cur;
    const float pos[3] = {1, 2, 3};
    binWriteBegin(w, proto, 12, cur);
    binWriteToken(w, cur, 0x0001), binWriteStr(w, "node");
    binWriteToken(w, cur, 0x0C02), binWriteFloats(w, pos, 3);
    binWriteToken(w, cur, 0x0203), binWriteU16(w, 7);
    binWriteEnd(w, cur);
    binWriterClose(w);
}

}  // namespace

int main(int argc, char *argv[]) {
    if (argc != 2) {
        fprintf(stderr, "Usage: %s DIR\n", argv[0]);
        return 2;
    }
    std::string dir = argv[1];
    writeFrame(dir + "/tagged.bin", nullptr);
    Prototype *proto = protoNew();
    const uint16_t list[] = {0x0001, 0x0C02, 0x0203};
    protoSet(*proto, 12, list, 3);
    writeFrame(dir + "/prototyped.bin", proto);
    protoFree(proto);
    if (FILE *f = fopen((dir + "/scene.dsc").c_str(), "wb")) {
        fputs("SDSC 3.6\nCHAPTER SCENES\n", f);
        fclose(f);
    }
    return 0;
}
