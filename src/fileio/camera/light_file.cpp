// Light files (.lig): the header, then tokens with their values on disk,
// ending with token 0. Token 2 makes the record; values met before it are read
// and dropped, and the name of token 1 waits for it.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>
#include <vector>

#include "cam_internal.h"

namespace {

enum LightToken : uint16_t {
    LIG_NAME = 1,         // string, held until the record exists
    LIG_TYPE = 2,         // u16 type; makes the record
    LIG_AREA_SHAPE = 31,  // four bytes: form of token 34
    LIG_AREA = 34,        // area values by the shape
    LIG_SHADER = 29,      // shader reference
    LIG_SHADER2 = 41,     // shader reference
    LIG_CUSTOM = 65320,   // i32 size, custom blocks
};

// Later forms of tokens 42 to 47 carry a size in the high byte; they read as
// their field number.
constexpr uint16_t sizedForms[] = {4138, 1067, 1068, 1069, 558, 559};

constexpr float NO_FALLOFF = 10000.0f;          // a falloff start here means none
constexpr float NO_FALLOFF_TOLERANCE = 0.01f;

struct LightReading {
    Light *light = nullptr;  // made by token 2
    Light scratch;           // takes the values met before the record; dropped
    char *name = nullptr;    // token 1, malloc'd, until token 2 takes it
};

Light &target(LightReading &s) { return s.light ? *s.light : s.scratch; }

void freeParts(Light &l) {
    free(l.mapName);
    l.mapName = nullptr;
    for (CustomShader *&s : l.shaders) {
        delete s;
        s = nullptr;
    }
    delete l.customBlocks;
    l.customBlocks = nullptr;
}

void readName(BinReader &r, LightReading &s) {
    char *text = binReadStr(r);
    if (!text) return;
    free(s.name);
    s.name = text;
}

void readType(BinReader &r, LightReading &s) {
    uint16_t type = binReadU16(r);
    if (r.failed) return;
    if (!s.light) s.light = new (std::nothrow) Light;
    if (!s.light) return;
    s.light->type = type;
    if (!s.name) return;
    size_t n = strnlen(s.name, sizeof s.light->name - 1);
    memcpy(s.light->name, s.name, n);
    s.light->name[n] = '\0';
    free(s.name);
    s.name = nullptr;
}

void readFalloffEnd(BinReader &r, LightReading &s) {
    Light &l = target(s);
    valueRead(r, &l.falloff[1]);
    l.falloffOn = std::fabs(l.falloff[0] - NO_FALLOFF) > NO_FALLOFF_TOLERANCE;
}

void readPosition(BinReader &r, LightReading &s) {
    positionRead(r, target(s).position, s.light, PATH_REF_LIGHT_POSITION);
}

void readInterest(BinReader &r, LightReading &s) {
    positionRead(r, target(s).interest, s.light, PATH_REF_LIGHT_INTEREST);
}

void readMapName(BinReader &r, LightReading &s) {
    Light &l = target(s);
    if (char *text = binReadStr(r)) {
        free(l.mapName);
        l.mapName = text;
    }
}

void readShader(BinReader &r, Light &l, int slot) {
    CustomShader read;
    customShaderRead(r, read);
    if (r.failed) return;
    if (!l.shaders[slot]) l.shaders[slot] = new (std::nothrow) CustomShader;
    if (l.shaders[slot]) *l.shaders[slot] = std::move(read);
}

void readArea(BinReader &r, LightReading &s) {
    Light &l = target(s);
    switch (l.areaShape) {
        case 0:  // a quad of corner points
            for (int i = 0; i < 4; ++i) valueRead3(r, l.area + 3 * i);
            break;
        case 1: valueRead(r, l.area); break;
        case 2:
            valueRead3(r, l.area);
            valueRead(r, l.area + 3);
            break;
        default: binSkip(r, LIG_AREA); break;  // a shape of unknown size: the value cannot be passed over
    }
}

void readMatrix(BinReader &r, LightReading &s) {
    float *m = &target(s).matrix[0][0];
    for (int i = 0; i < 16; ++i) valueRead(r, m + i);
}

uint16_t low16(uint32_t word) { return static_cast<uint16_t>(word & 0xFFFF); }

using LightField = void (*)(BinReader &r, LightReading &s);

// Indexed by token.
constexpr LightField lightFields[] = {
    nullptr,                                                                               // 0: end
    readName,                                                                              // 1
    readType,                                                                              // 2
    [](BinReader &r, LightReading &s) { valueRead3(r, target(s).colour); },                // 3
    [](BinReader &r, LightReading &s) { valueRead(r, &target(s).falloff[0]); },            // 4
    readFalloffEnd,                                                                        // 5
    [](BinReader &r, LightReading &s) { valueRead(r, &target(s).factor); },                // 6
    readPosition,                                                                          // 7
    readInterest,                                                                          // 8
    [](BinReader &r, LightReading &s) { valueRead(r, &target(s).coneAngle); },             // 9
    [](BinReader &r, LightReading &s) { valueRead(r, &target(s).spreadAngle); },           // 10
    [](BinReader &r, LightReading &) { valueRead(r, nullptr); },                           // 11: dropped
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).display.colour, binReadU16(r)); },  // 12
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).display.word, binReadU16(r)); },    // 13
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).display.selection, binReadU16(r)); },      // 14
    [](BinReader &r, LightReading &) { valueRead(r, nullptr); },                           // 15: dropped
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).shadow, binReadU16(r) == 1); },    // 16
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).kept17[0], binReadU16(r)); },      // 17
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).kept17[1], binReadU16(r)); },      // 18
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).kept17[2], binReadU16(r)); },      // 19
    [](BinReader &r, LightReading &s) { valueRead(r, &target(s).kept20[0]); },             // 20
    [](BinReader &r, LightReading &s) { valueRead(r, &target(s).kept20[1]); },             // 21
    [](BinReader &r, LightReading &s) {                                                    // 22
        uint16_t v[2];
        binReadU16s(r, v, 2);
        camKeep(r, target(s).display.colours[0], v[0]), camKeep(r, target(s).display.colours[1], v[1]);
    },
    [](BinReader &r, LightReading &s) {                                                    // 23
        uint16_t v[2];
        binReadU16s(r, v, 2);
        camKeep(r, target(s).kept23[0], v[0]), camKeep(r, target(s).kept23[1], v[1]);
    },
    readMapName,                                                                           // 24
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).linkedWords[0], binReadU32(r)); },  // 25
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).linkedWords[1], binReadU32(r)); },  // 26
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).linkedWord27, binReadU16(r)); },    // 27
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).linkedWord28, binReadU32(r)); },    // 28
    [](BinReader &r, LightReading &s) { readShader(r, target(s), 0); },                    // 29
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).kept30, low16(binReadU32(r))); },   // 30
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).areaShape, binReadI32(r)); },       // 31
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).kept32, binReadU32(r)); },    // 32
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).kept33, binReadU32(r)); },    // 33
    readArea,                                                                              // 34
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).kept35, low16(binReadU32(r))); },   // 35
    [](BinReader &r, LightReading &s) { valueRead3(r, target(s).kept36); },                // 36
    [](BinReader &r, LightReading &s) { valueRead3(r, target(s).kept37); },                // 37
    readMatrix,                                                                            // 38
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).kept39, low16(binReadU32(r))); },   // 39
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).flag40, binReadU32(r) != 0); },     // 40
    [](BinReader &r, LightReading &s) { readShader(r, target(s), 1); },                    // 41
    [](BinReader &r, LightReading &s) { valueRead3(r, target(s).photon); },                // 42
    [](BinReader &r, LightReading &s) { valueRead(r, &target(s).kept43); },                // 43
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).count44, binReadI32(r)); },   // 44
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).count45, binReadI32(r)); },   // 45
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).flag46, binReadU16(r)); },    // 46
    [](BinReader &r, LightReading &s) { camKeep(r, target(s).flag47, binReadU16(r)); },    // 47
};

bool isSizedForm(uint16_t token) {
    for (uint16_t t : sizedForms)
        if (t == token) return true;
    return false;
}

}  // namespace

Light *lightRead(BinReader &r) {
    LightReading s;
    for (uint16_t t = binReadU16(r); t != BIN_TOKEN_END; t = binReadU16(r)) {
        if (isSizedForm(t)) t = static_cast<uint16_t>(tokenField(t));
        if (t < std::size(lightFields)) {
            lightFields[t](r, s);
        } else if (t == LIG_CUSTOM) {
            Light &l = target(s);
            if (!l.customBlocks) l.customBlocks = new (std::nothrow) std::vector<CustomBlock>;
            if (l.customBlocks) customBlocksReadSized(r, *l.customBlocks);
            else binSkip(r, t);
        } else {
            binSkip(r, t);
        }
    }
    free(s.name);
    freeParts(s.scratch);
    return s.light;
}

Light *lightFileRead(const char *path) {
    BinReader r;
    if (!camOpen(r, path, BIN_ID_LIGHT, "light")) return nullptr;
    Light *l = lightRead(r);
    binReaderClose(r);
    return l;
}

int lightWrite(BinWriter &w, const Light &l) {
    char name[sizeof l.name];
    size_t n = strnlen(l.name, sizeof l.name - 1);
    memcpy(name, l.name, n);
    name[n] = '\0';
    binWriteU16(w, LIG_NAME), binWriteStr(w, name);
    binWriteU16(w, LIG_TYPE), binWriteU16(w, l.type);
    binWriteU16(w, 3), valueWrite3(w, l.colour);
    binWriteU16(w, 4), valueWrite(w, l.falloff[0]);
    binWriteU16(w, 5), valueWrite(w, l.falloff[1]);
    binWriteU16(w, 6), valueWrite(w, l.factor);
    binWriteU16(w, 7), positionWrite(w, l.position);
    binWriteU16(w, 8), positionWrite(w, l.interest);
    binWriteU16(w, 9), valueWrite(w, l.coneAngle);
    binWriteU16(w, 10), valueWrite(w, l.spreadAngle);
    binWriteU16(w, 12), binWriteU16(w, l.display.colour);
    binWriteU16(w, 13), binWriteU16(w, l.display.word);
    binWriteU16(w, 14), binWriteU16(w, l.display.selection);
    binWriteU16(w, 16), binWriteU16(w, l.shadow);
    for (int i = 0; i < 3; ++i)
        binWriteU16(w, static_cast<uint16_t>(17 + i)), binWriteU16(w, static_cast<uint16_t>(l.kept17[i]));
    binWriteU16(w, 20), valueWrite(w, l.kept20[0]);
    binWriteU16(w, 21), valueWrite(w, l.kept20[1]);
    binWriteU16(w, 22), binWriteU16(w, l.display.colours[0]), binWriteU16(w, l.display.colours[1]);
    binWriteU16(w, 23), binWriteU16(w, static_cast<uint16_t>(l.kept23[0])),
        binWriteU16(w, static_cast<uint16_t>(l.kept23[1]));
    if (l.mapName) binWriteU16(w, 24), binWriteStr(w, l.mapName);
    binWriteU16(w, 25), binWriteU32(w, l.linkedWords[0]);
    binWriteU16(w, 26), binWriteU32(w, l.linkedWords[1]);
    binWriteU16(w, 27), binWriteU16(w, l.linkedWord27);
    binWriteU16(w, 28), binWriteU32(w, l.linkedWord28);
    if (l.shaders[0]) binWriteU16(w, LIG_SHADER), customShaderWrite(w, *l.shaders[0]);
    binWriteU16(w, 30), binWriteU32(w, l.kept30);
    binWriteU16(w, LIG_AREA_SHAPE), binWriteI32(w, l.areaShape);
    binWriteU16(w, 32), binWriteU32(w, l.kept32);
    binWriteU16(w, 33), binWriteU32(w, l.kept33);
    if (l.areaShape == 0) {
        binWriteU16(w, LIG_AREA);
        for (int i = 0; i < 4; ++i) valueWrite3(w, l.area + 3 * i);
    } else if (l.areaShape == 1) {
        binWriteU16(w, LIG_AREA), valueWrite(w, l.area[0]);
    } else if (l.areaShape == 2) {
        binWriteU16(w, LIG_AREA), valueWrite3(w, l.area), valueWrite(w, l.area[3]);
    }
    binWriteU16(w, 35), binWriteU32(w, l.kept35);
    binWriteU16(w, 36), valueWrite3(w, l.kept36);
    binWriteU16(w, 37), valueWrite3(w, l.kept37);
    binWriteU16(w, 38);
    for (int i = 0; i < 16; ++i) valueWrite(w, l.matrix[i / 4][i % 4]);
    binWriteU16(w, 39), binWriteU32(w, l.kept39);
    binWriteU16(w, 40), binWriteU32(w, l.flag40);
    if (l.shaders[1]) binWriteU16(w, LIG_SHADER2), customShaderWrite(w, *l.shaders[1]);
    binWriteU16(w, 42), valueWrite3(w, l.photon);
    binWriteU16(w, 43), valueWrite(w, l.kept43);
    binWriteU16(w, 44), binWriteI32(w, l.count44);
    binWriteU16(w, 45), binWriteI32(w, l.count45);
    binWriteU16(w, 46), binWriteU16(w, l.flag46);
    binWriteU16(w, 47), binWriteU16(w, l.flag47);
    if (l.customBlocks && !l.customBlocks->empty())
        binWriteU16(w, LIG_CUSTOM), customBlocksWriteSized(w, *l.customBlocks);
    binWriteU16(w, BIN_TOKEN_END);
    return !w.failed;
}

int lightFileWrite(const char *path, const Light &l, const char *comment) {
    return camFileWrite(path, BIN_ID_LIGHT, comment, l, lightWrite);
}

int lightOnSelectList(const Light &l) { return l.display.selection == 1 || l.display.selection == 3; }

void lightFree(Light *l) {
    if (!l) return;
    freeParts(*l);
    delete l;
}
