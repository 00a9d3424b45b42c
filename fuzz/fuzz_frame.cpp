// Fuzz target: the header, the prototype table and the token frame of a binary
// element file, or the header of an ascii one.
#include <cstdint>
#include <cstdio>

#include "fileio.h"
#include "tol.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    tol_setMinimumClass(TOL_CLASS_MODE + 1);  // the reports say nothing new here
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FILE *f = fmemopen(const_cast<uint8_t *>(data), size, "rb");
    if (!f) return 0;
    BinReader r;
    if (binReaderAttach(r, f, "fuzz.bin")) {
        Prototype *proto = protoNew();
        char tag[5];
        if (binReadFileStart(r, *proto, tag) >= 0) {
            // Walk records of every known shape until the file ends or fails.
            for (int record = 3; record < 32 && !r.failed && binRemaining(r) > 0; ++record) {
                TokenCursor cur;
                for (uint16_t t = binFirstToken(r, proto, record, cur); t && !r.failed;
                     t = binNextToken(r, cur))
                    binSkip(r, t);
            }
        } else {
            int isAscii = 0;
            float version = 0.0f;
            BinReader again;
            rewind(f);
            if (binReaderAttach(again, f, "fuzz.bin")) fileReadMagic(again, &isAscii, &version);
        }
        protoFree(proto);
    }
    binReaderClose(r);
    fclose(f);
    return 0;
}
