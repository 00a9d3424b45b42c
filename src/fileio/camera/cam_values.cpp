// The value frames of the camera and light files (animatable values, vectors,
// position blocks), the pending path references, and the opening of a file.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string>

#include "cam_internal.h"

namespace {

// Both Scene Contexts load on the main thread today; the lock keeps the list
// whole should a load ever run elsewhere.
std::mutex s_pathRefsLock;
PathRef *s_pathRefs = nullptr;  // pending references, newest first

void pathRefAdd(void *owner, int32_t kind, uint16_t word, char *pathName) {
    PathRef *ref = static_cast<PathRef *>(malloc(sizeof(PathRef)));
    if (!ref) {
        free(pathName);
        return;
    }
    *ref = PathRef{nullptr, owner, kind, word, pathName};
    std::lock_guard<std::mutex> hold(s_pathRefsLock);
    ref->next = s_pathRefs;
    s_pathRefs = ref;
}

}  // namespace

int valueRead(BinReader &r, float *field) {
    uint16_t kind = binReadU16(r);
    if (kind == VALUE_PLAIN) {
        float value = binReadF32(r);
        if (field) camKeep(r, *field, value);
    } else if (kind != VALUE_FROM_CURVE) {
        binSkip(r, kind);
    }
    return 1;
}

int valueRead3(BinReader &r, float *fields) {
    uint16_t kind = binReadU16(r);
    if (kind == VALUE_PLAIN)
        vectorRead(r, fields);
    else if (kind != VALUE_FROM_CURVE)
        binSkip(r, kind);
    return 1;
}

int vectorRead(BinReader &r, float *fields) {
    float v[3];
    binReadFloat3(r, v);
    if (fields && !r.failed) memcpy(fields, v, sizeof v);
    return 1;
}

int positionRead(BinReader &r, float *field, void *owner, int32_t refKind) {
    // A block holds any number of forms and ends at a word outside them; the
    // word is consumed. The old curve form ends it as well.
    for (;;) {
        uint16_t form = binReadU16(r);
        if (r.failed) return 1;
        switch (form) {
            case POSITION_VECTOR: vectorRead(r, field); break;
            case POSITION_PATH: {
                uint16_t word = binReadU16(r);
                char *name = binReadStr(r);
                if (owner && name && !r.failed) pathRefAdd(owner, refKind, word, name);
                else free(name);
                break;
            }
            case 2:
            case 4:
            case 5:
                // Positions on curves of the old form were converted long ago;
                // such a file keeps the point the record has.
                fputs(" oldpositionBinaryRead - token BW_B_POS_FCV_TOKEN - shouldn't be called anymore\n", stdout);
                return 1;
            default: return 1;
        }
    }
}

PathRef *pathRefsTake() {
    std::lock_guard<std::mutex> hold(s_pathRefsLock);
    PathRef *list = s_pathRefs;
    s_pathRefs = nullptr;
    return list;
}

void pathRefsFree(PathRef *list) {
    while (list) {
        PathRef *next = list->next;
        free(list->pathName);
        free(list);
        list = next;
    }
}

int camOpen(BinReader &r, const char *path, uint32_t id, const char *what) {
    if (!binReaderOpen(r, path)) return 0;
    int32_t got = binReadHeader(r, nullptr, nullptr);
    if (got >= 0 && static_cast<uint32_t>(got) == id && !r.failed) return 1;
    if (got >= 0) {
        std::string text = std::string("not a ") + what + " file";
        binFail(r, text.c_str());
    }
    binReaderClose(r);
    return 0;
}

void valueWrite(BinWriter &w, float value) {
    binWriteU16(w, VALUE_PLAIN);
    binWriteF32(w, value);
}

void valueWrite3(BinWriter &w, const float *values) {
    binWriteU16(w, VALUE_PLAIN);
    binWriteFloats(w, values, 3);
}

void positionWrite(BinWriter &w, const float *point) {
    binWriteU16(w, POSITION_VECTOR);
    binWriteFloats(w, point, 3);
    binWriteU16(w, POSITION_END);
}
