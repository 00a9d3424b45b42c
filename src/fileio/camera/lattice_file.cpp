// Lattice files (.lat): the header, then tokens with their values on disk,
// ending with token 0. The tokens before a token 4 set up the key that it
// makes: kind, divisions, words and three vectors; token 4 holds its points.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "cam_internal.h"
#include "tol_status.h"

namespace {

enum LatticeToken : uint16_t {
    LAT_KIND = 1,       // u16
    LAT_DIVISIONS = 2,  // three u16
    LAT_WORDS = 3,      // three u16
    LAT_POINTS = 4,     // the points of one key
    LAT_VECTOR = 6,     // tokens 6, 7 and 8: one vector each
};

constexpr const char *ALLOC_MESSAGE = "LatticeBinaryRead: cannot allocate lattice or null ptr, skipping.";

// What the next token 4 takes, and the keys made so far.
struct LatticeReading {
    Lattice *lattice = nullptr;  // null when it could not be allocated
    int32_t capacity = 0;        // keys allocated
    uint16_t kind = 0;
    uint16_t divisions[3] = {0, 0, 0};
    int32_t words[3] = {0, 0, 0};
    float vectors[3][3] = {};
};

// Room for one more key; false without memory.
bool keysGrow(LatticeReading &s) {
    Lattice &l = *s.lattice;
    if (l.keyCount < s.capacity) return true;
    int32_t more = s.capacity ? s.capacity * 2 : 4;
    void *keys = realloc(l.keys, sizeof(LatticeKey) * static_cast<size_t>(more));
    if (!keys) return false;
    l.keys = static_cast<LatticeKey *>(keys);
    s.capacity = more;
    return true;
}

void readPoints(BinReader &r, LatticeReading &s) {
    int64_t count = int64_t{s.divisions[0]} * s.divisions[1] * s.divisions[2];
    if (!binCheckCount(r, count, 12)) return;  // a lying count fails before anything is allocated
    if (count > INT32_MAX) {
        binFail(r, "too many lattice points");
        return;
    }
    size_t n = static_cast<size_t>(count);
    LatticeKey key{};
    key.kind = s.kind;
    memcpy(key.divisions, s.divisions, sizeof key.divisions);
    memcpy(key.words, s.words, sizeof key.words);
    memcpy(key.vectors, s.vectors, sizeof key.vectors);
    key.pointCount = static_cast<int32_t>(count);
    if (n > 0) {
        key.points = static_cast<float(*)[3]>(malloc(n * sizeof *key.points));
        key.pointFlags = static_cast<uint16_t *>(calloc(n, sizeof *key.pointFlags));
    }
    if (!s.lattice || (n > 0 && (!key.points || !key.pointFlags)) || !keysGrow(s)) {
        msgShow(ALLOC_MESSAGE, TOL_CLASS_ERROR);
        free(key.points);
        free(key.pointFlags);
        for (size_t i = 0; i < n; ++i) vectorRead(r, nullptr);
        return;
    }
    if (n > 0) binReadFloats(r, &key.points[0][0], 3 * n);
    s.lattice->keys[s.lattice->keyCount++] = key;
}

using LatticeField = void (*)(BinReader &r, LatticeReading &s);

// Indexed by token.
constexpr LatticeField latticeFields[] = {
    nullptr,                                                                  // 0: end
    [](BinReader &r, LatticeReading &s) { camKeep(r, s.kind, binReadU16(r)); },  // 1
    [](BinReader &r, LatticeReading &s) {                                     // 2
        uint16_t v[3];
        binReadU16s(r, v, 3);
        if (!r.failed) memcpy(s.divisions, v, sizeof v);
    },
    [](BinReader &r, LatticeReading &s) {                                     // 3
        uint16_t v[3];
        binReadU16s(r, v, 3);
        for (int i = 0; i < 3; ++i) camKeep(r, s.words[i], v[i]);
    },
    readPoints,                                                               // 4
    [](BinReader &, LatticeReading &) {},                                     // 5: ignored, nothing follows
    [](BinReader &r, LatticeReading &s) { vectorRead(r, s.vectors[0]); },     // 6
    [](BinReader &r, LatticeReading &s) { vectorRead(r, s.vectors[1]); },     // 7
    [](BinReader &r, LatticeReading &s) { vectorRead(r, s.vectors[2]); },     // 8
};

}  // namespace

Lattice *latticeRead(BinReader &r) {
    LatticeReading s;
    s.lattice = static_cast<Lattice *>(calloc(1, sizeof(Lattice)));
    // Tokens past the table carry no value this reader knows: those with a
    // size in their high byte are passed over, the others stand alone.
    for (uint16_t t = binReadU16(r); t != BIN_TOKEN_END; t = binReadU16(r)) {
        if (t < std::size(latticeFields)) latticeFields[t](r, s);
        else binSkip(r, t);
    }
    return s.lattice;
}

Lattice *latticeFileLoad(const char *path) {
    BinReader r;
    if (!camOpen(r, path, BIN_ID_LATTICE, "lattice")) return nullptr;
    Lattice *l = latticeRead(r);
    binReaderClose(r);
    return l;
}

int latticeWrite(BinWriter &w, const Lattice &l) {
    for (int32_t k = 0; k < l.keyCount && !w.failed; ++k) {
        const LatticeKey &key = l.keys[k];
        int64_t count = int64_t{key.divisions[0]} * key.divisions[1] * key.divisions[2];
        if (count != key.pointCount || (count > 0 && !key.points)) {
            binWriteFail(w, "lattice key whose points do not fill its divisions");
            break;
        }
        binWriteU16(w, LAT_KIND), binWriteU16(w, key.kind);
        binWriteU16(w, LAT_DIVISIONS), binWrite(w, key.divisions, 2, 3);
        binWriteU16(w, LAT_WORDS);
        for (int32_t word : key.words) binWriteU16(w, static_cast<uint16_t>(word));
        for (int i = 0; i < 3; ++i)
            binWriteU16(w, static_cast<uint16_t>(LAT_VECTOR + i)), binWriteFloats(w, key.vectors[i], 3);
        binWriteU16(w, LAT_POINTS);
        if (count > 0) binWriteFloats(w, &key.points[0][0], static_cast<size_t>(3 * count));
    }
    binWriteU16(w, BIN_TOKEN_END);
    return !w.failed;
}

int latticeFileWrite(const char *path, const Lattice &l, const char *comment) {
    return camFileWrite(path, BIN_ID_LATTICE, comment, l, latticeWrite);
}

void latticeFree(Lattice *l) {
    if (!l) return;
    for (int32_t k = 0; k < l->keyCount; ++k) {
        free(l->keys[k].points);
        free(l->keys[k].pointFlags);
    }
    free(l->keys);
    free(l);
}
