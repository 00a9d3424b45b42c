// The 2D and 3D texture records and the lists of them in materials and
// model nodes.
#include <cstdlib>
#include <iterator>

#include "animation.h"
#include "mat_internal.h"

namespace {

// Tokens of the 2D texture record (id 14) that are not a single value.
constexpr uint16_t T2_NAME = 1, T2_CROP_FIRST = 5, T2_CROP_LAST = 8, T2_SCALE_FIRST = 11,
                   T2_EFFECT_FIRST = 15, T2_EFFECT_LAST = 18, T2_OLD_EFFECT = 19, T2_TILES = 22,
                   T2_MIRROR = 23, T2_K24 = 24, T2_K25 = 25, T2_BOX_SIZE = 32,
                   T2_BOX_CENTRE = 33, T2_SPHERE_CENTRE = 34, T2_SHADER = 36, T2_SEQUENCE = 50,
                   T2_K563 = 563, T2_K568 = 568, T2_CUSTOM = 0xFF35;
constexpr uint16_t METHOD_REFLECTION_A = 7, METHOD_REFLECTION_B = 8;

constexpr uint16_t texture2DList[] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11,  12,  13,  14,
                                      15, 16, 18, 20, 21, 22, 23, 24, 25, 26, 27,  28,  29,  30,
                                      31, 32, 33, 34, 35, 36, 37, 50, 563, 564, 565, 566, 567, 568,
                                      0xFF35, 0};

// Tokens of the 3D texture record (id 15).
constexpr uint16_t T3_NAME = 1, T3_TYPE = 2, T3_SCALING = 3, T3_ROTATION = 4, T3_TRANSLATION = 5,
                   T3_COLOUR_FIRST = 22, T3_COLOUR_LAST = 26, T3_EXTRA = 0xFF24;
constexpr uint16_t texture3DList[] = {1,  2,  3,  4,  5,  22, 23, 24, 25, 26, 10, 27, 28, 11, 12, 13,
                                      14, 15, 16, 17, 18, 19, 21, 29, 31, 32, 33, 34, 35, 0xFF24, 0};

// A single u16 field of a 2D texture, by token; null for other tokens.
template <typename T>
auto texU16(T &t, uint16_t token) -> decltype(&t.sourceKind) {
    switch (token) {
        case 2: return &t.sourceKind;
        case 3: return &t.method;
        case 4: return &t.swap;
        case 9: return &t.cropOn;
        case 10: return &t.interpolate;
        case 21: return &t.kept21;
        case 26: return &t.video;
        case 27: return &t.alpha;
        case 28: return &t.explicitUV;
        case 30: return &t.kept30;
        case 31: return &t.kept31;
        case 35: return &t.kept35;
        case 37: return &t.kept37;
        default: return token >= T2_K563 && token <= T2_K568 ? &t.kept563[token - T2_K563] : nullptr;
    }
}

// A single f32 field, by token.
template <typename T>
auto texF32(T &t, uint16_t token) -> decltype(&t.uScale) {
    if (token >= T2_CROP_FIRST && token <= T2_CROP_LAST) return &t.crop[token - T2_CROP_FIRST];
    decltype(&t.uScale) scales[] = {&t.uScale, &t.vScale, &t.uOffset, &t.vOffset};
    if (token >= T2_SCALE_FIRST && token < T2_EFFECT_FIRST) return scales[token - T2_SCALE_FIRST];
    if (token >= T2_EFFECT_FIRST && token <= T2_EFFECT_LAST) return &t.effects[token - T2_EFFECT_FIRST];
    return nullptr;
}

// Fields of two u16 or three f32.
template <typename T>
auto texPair(T &t, uint16_t token) -> decltype(&t.tiles[0]) {
    switch (token) {
        case T2_TILES: return t.tiles;
        case T2_MIRROR: return t.mirror;
        case T2_K24: return t.kept24;
        case T2_K25: return t.kept25;
        default: return nullptr;
    }
}

template <typename T>
auto texTriple(T &t, uint16_t token) -> decltype(&t.boxSize[0]) {
    switch (token) {
        case T2_BOX_SIZE: return t.boxSize;
        case T2_BOX_CENTRE: return t.boxCentre;
        case T2_SPHERE_CENTRE: return t.sphereCentre;
        default: return nullptr;
    }
}

template <typename T>
auto texWord(T &t, uint16_t token) -> decltype(&t.kept20) {
    return token == 20 ? &t.kept20 : token == 29 ? &t.kept29 : nullptr;
}

int readField2D(BinReader &r, Texture2D &t, uint16_t token) {
    if (uint16_t *v = texU16(t, token)) *v = binReadU16(r);
    else if (float *f = texF32(t, token)) *f = binReadF32(r);
    else if (uint16_t *p = texPair(t, token)) binReadU16s(r, p, 2);
    else if (float *v3 = texTriple(t, token)) binReadFloat3(r, v3);
    else if (uint32_t *word = texWord(t, token)) *word = binReadU32(r);
    else if (token == T2_NAME) t.pictureName = matReadString(r);
    else if (token == T2_SEQUENCE) t.sequenceName = matReadString(r);
    else if (token == T2_SHADER) customShaderRead(r, t.shader);
    else if (token == T2_CUSTOM) customBlocksReadSized(r, t.customBlocks);
    else if (token == T2_OLD_EFFECT) {
        // The old integer form; its companion had no field then.
        t.effects[2] = binReadU16(r);
        t.effects[3] = 1.0f;
    } else {
        return 0;
    }
    return 1;
}

void writeField2D(BinWriter &w, const Texture2D &t, uint16_t token) {
    if (const uint16_t *v = texU16(t, token)) binWriteU16(w, *v);
    else if (const float *f = texF32(t, token)) binWriteF32(w, *f);
    else if (const uint16_t *p = texPair(t, token)) binWrite(w, p, 2, 2);
    else if (const float *v3 = texTriple(t, token)) binWriteFloats(w, v3, 3);
    else if (const uint32_t *word = texWord(t, token)) binWriteU32(w, *word);
    else if (token == T2_NAME) binWriteStr(w, t.pictureName.c_str());
    else if (token == T2_SEQUENCE) binWriteStr(w, t.sequenceName.c_str());
    else if (token == T2_SHADER) customShaderWrite(w, t.shader);
    else if (token == T2_CUSTOM) customBlocksWriteSized(w, t.customBlocks);
}

int readField3D(BinReader &r, Texture3D &t, uint16_t token) {
    switch (token) {
        case T3_NAME: t.name = matReadString(r); return 1;
        case T3_TYPE: t.type = binReadU16(r); return 1;
        case T3_SCALING: binReadFloat3(r, t.scaling); return 1;
        case T3_ROTATION: binReadFloat3(r, t.rotation); return 1;
        case T3_TRANSLATION: binReadFloat3(r, t.translation); return 1;
        case T3_EXTRA: {
            int32_t size = 0;
            uint8_t *data = binReadBlock(r, &size);
            t.extra.assign(data, data + size);
            free(data);
            return 1;
        }
        default: break;
    }
    if (token >= T3_COLOUR_FIRST && token <= T3_COLOUR_LAST) {
        binReadFloat3(r, t.colours[token - T3_COLOUR_FIRST]);
        return 1;
    }
    // Every other token of the list is one f32, kept by its number.
    for (const uint16_t *k = texture3DList; *k; ++k)
        if (*k == token && token < std::size(t.params)) {
            t.params[token] = binReadF32(r);
            return 1;
        }
    return 0;
}

void writeField3D(BinWriter &w, const Texture3D &t, uint16_t token) {
    switch (token) {
        case T3_NAME: binWriteStr(w, t.name.c_str()); return;
        case T3_TYPE: binWriteU16(w, t.type); return;
        case T3_SCALING: binWriteFloats(w, t.scaling, 3); return;
        case T3_ROTATION: binWriteFloats(w, t.rotation, 3); return;
        case T3_TRANSLATION: binWriteFloats(w, t.translation, 3); return;
        case T3_EXTRA:
            matWriteSize(w, t.extra.size(), "3D texture data");
            binWrite(w, t.extra.data(), 1, t.extra.size());
            return;
        default: break;
    }
    if (token >= T3_COLOUR_FIRST && token <= T3_COLOUR_LAST)
        binWriteFloats(w, t.colours[token - T3_COLOUR_FIRST], 3);
    else
        binWriteF32(w, t.params[token]);
}

// The entries of a texture list; `readOne` reads an inline record.
template <typename T, typename ReadOne>
int listRead(BinReader &r, std::vector<T> &out, ReadOne readOne) {
    uint16_t count = binReadU16(r);
    // Each entry takes at least its u16 flag, so a lying count fails here.
    if (!binCheckCount(r, count, 2)) return 0;
    for (uint16_t i = 0; i < count && !r.failed; ++i) {
        if (binReadU16(r) != 0) {
            // A reference to an element file: the scene's relations link it.
            free(binReadStr(r));
            continue;
        }
        T t;
        readOne(t);
        out.push_back(std::move(t));
    }
    return !r.failed;
}

}  // namespace

int texture2DRead(BinReader &r, const Prototype *proto, Texture2D &out) {
    TokenCursor cur;
    for (uint16_t t = binFirstToken(r, proto, PROTO_ID_TEXTURE2D, cur); t != BIN_TOKEN_END;
         t = binNextToken(r, cur)) {
        if (!readField2D(r, out, t)) binSkip(r, t);
    }
    // A reflection map has no projection.
    if (out.method == METHOD_REFLECTION_A || out.method == METHOD_REFLECTION_B) {
        for (int i = 0; i < 3; ++i) out.boxSize[i] = out.boxCentre[i] = out.sphereCentre[i] = 0.0f;
    }
    texture2DDerive(out);
    return !r.failed;
}

void texture2DDerive(Texture2D &t) {
    float m[4][4];
    eulerToMatrix(t.rotation, m);
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) t.matrix[i][k] = m[i][k];
}

int texture2DWrite(BinWriter &w, const Prototype *proto, const Texture2D &t) {
    return matWriteRecord(w, proto, PROTO_ID_TEXTURE2D, texture2DList,
                          [&](BinWriter &out, uint16_t k) { writeField2D(out, t, k); });
}

int texture3DRead(BinReader &r, const Prototype *proto, Texture3D &out) {
    TokenCursor cur;
    for (uint16_t t = binFirstToken(r, proto, PROTO_ID_TEXTURE3D, cur); t != BIN_TOKEN_END;
         t = binNextToken(r, cur)) {
        if (!readField3D(r, out, t)) binSkip(r, t);
    }
    return !r.failed;
}

int texture3DWrite(BinWriter &w, const Prototype *proto, const Texture3D &t) {
    return matWriteRecord(w, proto, PROTO_ID_TEXTURE3D, texture3DList,
                          [&](BinWriter &out, uint16_t k) { writeField3D(out, t, k); });
}

void texture2DProtoAdd(Prototype &proto) {
    protoSet(proto, PROTO_ID_TEXTURE2D, texture2DList, std::size(texture2DList));
}

void texture3DProtoAdd(Prototype &proto) {
    protoSet(proto, PROTO_ID_TEXTURE3D, texture3DList, std::size(texture3DList));
}

int texture2DListRead(BinReader &r, const Prototype *proto, std::vector<Texture2D> &out) {
    return listRead(r, out, [&](Texture2D &t) { texture2DRead(r, proto, t); });
}

int texture3DListRead(BinReader &r, const Prototype *proto, std::vector<Texture3D> &out) {
    return listRead(r, out, [&](Texture3D &t) { texture3DRead(r, proto, t); });
}

int texture2DListWrite(BinWriter &w, const Prototype *proto, const std::vector<Texture2D> &list) {
    if (list.size() > UINT16_MAX) return binWriteFail(w, "too many textures in a list");
    binWriteU16(w, static_cast<uint16_t>(list.size()));
    for (const Texture2D &t : list) {
        binWriteU16(w, 0);
        texture2DWrite(w, proto, t);
    }
    return !w.failed;
}

int texture3DListWrite(BinWriter &w, const Prototype *proto, const Texture3D *list, size_t count) {
    if (count > UINT16_MAX) return binWriteFail(w, "too many textures in a list");
    binWriteU16(w, static_cast<uint16_t>(count));
    for (size_t i = 0; i < count; ++i) {
        binWriteU16(w, 0);
        texture3DWrite(w, proto, list[i]);
    }
    return !w.failed;
}
