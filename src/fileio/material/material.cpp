// The material record, its stand-alone file, and the custom data that
// materials and textures share: custom blocks and shader references.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

#include "mat_internal.h"

namespace {

// Tokens of the material record (id 13). Tokens below 256 are of the first
// versions and carry no size; the later ones do.
constexpr uint16_t MT_NAME = 1, MT_SHADING = 2, MT_AMBIENT = 3, MT_DIFFUSE = 4, MT_SPECULAR = 5,
                   MT_DECAY = 6, MT_K7 = 7, MT_K8 = 8, MT_TRANSPARENCY = 9, MT_K10 = 10,
                   MT_K11 = 11, MT_K13 = 13, MT_K14 = 14, MT_K15 = 15, MT_TEX2D = 16,
                   MT_TEX3D = 17, MT_K18 = 18, MT_K19 = 19, MT_K20 = 20, MT_SHADER1 = 21,
                   MT_SHADER3 = 23, MT_SHADING_NEW = 536, MT_SHADING_THIRD = 539, MT_VERTEX_COLOUR = 540,
                   MT_K541 = 541, MT_CUSTOM = 0xFF19, MT_SIZED_SHADER = 0xFF1A;

// What version 4.0 writes, in this order. Token 539 is read, never written.
constexpr uint16_t materialList[] = {1,  2,  3,  4,  5,  6,  7,   8,   9,   10,  11,     13,
                                     14, 15, 16, 17, 18, 19, 20,  21,  22,  23,  536,    540,
                                     541, 0xFF19, 0xFF1A, 0};

constexpr uint16_t SHADING_NEW_CONSTANT = 7;  // constant model in the new form of token 536

const char *const knownTags[] = {"CUSA", "CUSB", "CUSC", "CUSD"};

void readFloats(BinReader &r, float *v, size_t n) { binReadFloats(r, v, n); }

int readField(BinReader &r, const Prototype *proto, Material &m, uint16_t token) {
    switch (token) {
        case MT_NAME: m.name = matReadString(r); return 1;
        case MT_SHADING: m.shadingModel = binReadU16(r); return 1;
        case MT_AMBIENT: readFloats(r, m.ambient, 3); return 1;
        case MT_DIFFUSE: readFloats(r, m.diffuse, 3); return 1;
        case MT_SPECULAR: readFloats(r, m.specular, 3); return 1;
        case MT_DECAY: m.specularDecay = binReadF32(r); return 1;
        case MT_K7: m.kept7 = binReadF32(r); return 1;
        case MT_K8: m.kept8 = binReadF32(r); return 1;
        case MT_TRANSPARENCY: readFloats(r, m.transparencyColour, 3); return 1;
        case MT_K10: m.kept10 = binReadF32(r); return 1;
        case MT_K11: m.kept11 = binReadF32(r); return 1;
        case MT_K13: m.kept13 = binReadF32(r); return 1;
        case MT_K14: m.kept14 = binReadU16(r); return 1;
        case MT_K15: m.kept15 = binReadU32(r); return 1;
        case MT_TEX2D: texture2DListRead(r, proto, m.textures); return 1;
        case MT_TEX3D: {
            std::vector<Texture3D> list;
            texture3DListRead(r, proto, list);
            if (!list.empty() && !m.hasTexture3D) {
                m.texture3D = std::move(list.front());
                m.hasTexture3D = 1;
            }
            return 1;
        }
        case MT_K18: m.kept18 = binReadU16(r); return 1;
        case MT_K19: m.kept19 = binReadU32(r); return 1;
        case MT_K20: m.kept20 = binReadU32(r); return 1;
        case MT_SHADER1:
        case MT_SHADER1 + 1:
        case MT_SHADER3: customShaderRead(r, m.shaders[token - MT_SHADER1]); return 1;
        case MT_SHADING_NEW: {
            uint16_t model = binReadU16(r);
            if (model == SHADING_NEW_CONSTANT) {
                m.shadingModel = 1;
                m.newForm[0] = m.newForm[1] = 2;
            } else {
                m.shadingModel = model;
            }
            return 1;
        }
        case MT_SHADING_THIRD: m.shadingModel = binReadU16(r); return 1;
        case MT_VERTEX_COLOUR: m.vertexColourMode = binReadU16(r); return 1;
        case MT_K541: m.kept541 = binReadU16(r); return 1;
        case MT_CUSTOM: customBlocksReadSized(r, m.customBlocks); return 1;
        case MT_SIZED_SHADER: {
            int64_t end = 0;
            if (!matSizedStart(r, end, "shader field")) return 1;
            customShaderRead(r, m.sizedShader);
            matSizedFinish(r, end, "shader field");
            return 1;
        }
        default: return 0;
    }
}

void writeField(BinWriter &w, const Prototype *proto, const Material &m, uint16_t token) {
    switch (token) {
        case MT_NAME: binWriteStr(w, m.name.c_str()); break;
        case MT_SHADING: binWriteU16(w, m.shadingModel); break;
        case MT_AMBIENT: binWriteFloats(w, m.ambient, 3); break;
        case MT_DIFFUSE: binWriteFloats(w, m.diffuse, 3); break;
        case MT_SPECULAR: binWriteFloats(w, m.specular, 3); break;
        case MT_DECAY: binWriteF32(w, m.specularDecay); break;
        case MT_K7: binWriteF32(w, m.kept7); break;
        case MT_K8: binWriteF32(w, m.kept8); break;
        case MT_TRANSPARENCY: binWriteFloats(w, m.transparencyColour, 3); break;
        case MT_K10: binWriteF32(w, m.kept10); break;
        case MT_K11: binWriteF32(w, m.kept11); break;
        case MT_K13: binWriteF32(w, m.kept13); break;
        case MT_K14: binWriteU16(w, m.kept14); break;
        case MT_K15: binWriteU32(w, m.kept15); break;
        case MT_TEX2D: texture2DListWrite(w, proto, m.textures); break;
        case MT_TEX3D: texture3DListWrite(w, proto, &m.texture3D, m.hasTexture3D ? 1 : 0); break;
        case MT_K18: binWriteU16(w, m.kept18); break;
        case MT_K19: binWriteU32(w, m.kept19); break;
        case MT_K20: binWriteU32(w, m.kept20); break;
        case MT_SHADER1:
        case MT_SHADER1 + 1:
        case MT_SHADER3: customShaderWrite(w, m.shaders[token - MT_SHADER1]); break;
        case MT_SHADING_NEW: {
            bool constantNew = m.shadingModel == 1 && m.newForm[0] == 2 && m.newForm[1] == 2;
            binWriteU16(w, constantNew ? SHADING_NEW_CONSTANT : m.shadingModel);
            break;
        }
        case MT_VERTEX_COLOUR: binWriteU16(w, m.vertexColourMode); break;
        case MT_K541: binWriteU16(w, m.kept541); break;
        case MT_CUSTOM: customBlocksWriteSized(w, m.customBlocks); break;
        case MT_SIZED_SHADER:
            matWriteSize(w, matShaderBytes(m.sizedShader), "shader field");
            customShaderWrite(w, m.sizedShader);
            break;
        default: break;
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// Shared helpers

std::string matReadString(BinReader &r) {
    char *text = binReadStr(r);
    std::string out = text ? text : "";
    free(text);
    return out;
}

int matSizedStart(BinReader &r, int64_t &end, const char *what) {
    int32_t size = binReadI32(r);
    if (r.failed) return 0;
    if (size < 0) {
        std::string text = "negative size " + std::to_string(size) + " of a " + what;
        return binFail(r, text.c_str());
    }
    if (!binCheckCount(r, size, 1)) return 0;
    end = r.pos + size;
    return 1;
}

int matSizedFinish(BinReader &r, int64_t end, const char *what) {
    if (r.failed) return 0;
    if (r.pos > end) {
        std::string text = std::string(what) + " runs past its size";
        return binFail(r, text.c_str());
    }
    // Contents of a later version may follow what this reader knows.
    std::vector<uint8_t> rest(static_cast<size_t>(end - r.pos));
    binRead(r, rest.data(), 1, rest.size());
    return !r.failed;
}

int matWriteSize(BinWriter &w, size_t bytes, const char *what) {
    if (bytes > INT32_MAX) {
        std::string text = std::string(what) + " is too large";
        return binWriteFail(w, text.c_str());
    }
    return binWriteI32(w, static_cast<int32_t>(bytes));
}

size_t matShaderBytes(const CustomShader &s) { return s.name.size() + 1 + 4 + s.data.size(); }

size_t customBlocksBytes(const std::vector<CustomBlock> &blocks) {
    size_t n = 0;
    for (const CustomBlock &b : blocks) n += 5 + 1 + 4 + b.data.size();
    return n;
}

// ---------------------------------------------------------------------------
// Custom blocks and shader references

int customBlockRead(BinReader &r, CustomBlock &out) {
    char tag[5];
    binRead(r, tag, 1, sizeof tag);
    tag[4] = '\0';
    out.tag = tag;
    bool known = std::any_of(std::begin(knownTags), std::end(knownTags),
                             [&](const char *k) { return strcmp(k, tag) == 0; });
    // Old files stored a custom element's tag as a swapped word.
    if (!known && r.version < 3.5f) {
        std::string turned(tag);
        std::reverse(turned.begin(), turned.end());
        out.tag = "_" + turned;
    }
    out.flag = binReadU8(r);
    int32_t size = binReadI32(r);
    if (r.failed) return 0;
    if (size < 0) {
        std::string text = "negative size " + std::to_string(size) + " of custom block " + out.tag;
        return binFail(r, text.c_str());
    }
    if (!binCheckCount(r, size, 1)) return 0;
    out.data.assign(static_cast<size_t>(size), 0);
    if (r.version < 3.50009f)
        binRead(r, out.data.data(), out.data.size(), 1);  // one item of the block's size
    else
        binRead(r, out.data.data(), 1, out.data.size());
    return !r.failed;
}

int customBlockWrite(BinWriter &w, const CustomBlock &b) {
    // An old custom element's tag loses the "_" it was given on read.
    const char *name = b.tag.size() == 5 && b.tag[0] == '_' ? b.tag.c_str() + 1 : b.tag.c_str();
    char tag[5] = {};
    memcpy(tag, name, std::min<size_t>(strlen(name), 4));
    binWrite(w, tag, 1, sizeof tag);
    binWriteU8(w, b.flag);
    matWriteSize(w, b.data.size(), "custom block");
    binWrite(w, b.data.data(), 1, b.data.size());
    return !w.failed;
}

int customBlocksReadSized(BinReader &r, std::vector<CustomBlock> &out) {
    int64_t end = 0;
    if (!matSizedStart(r, end, "custom block field")) return 0;
    // Every block takes at least ten bytes, so the loop ends with the field.
    while (r.pos < end && !r.failed) {
        CustomBlock b;
        customBlockRead(r, b);
        out.push_back(std::move(b));
    }
    return matSizedFinish(r, end, "custom block field");
}

int customBlocksWriteSized(BinWriter &w, const std::vector<CustomBlock> &blocks) {
    matWriteSize(w, customBlocksBytes(blocks), "custom block field");
    for (const CustomBlock &b : blocks) customBlockWrite(w, b);
    return !w.failed;
}

int customShaderRead(BinReader &r, CustomShader &out) {
    out.name = matReadString(r);
    int32_t size = 0;
    uint8_t *data = binReadBlock(r, &size);
    out.data.assign(data, data + size);
    free(data);
    return !r.failed;
}

int customShaderWrite(BinWriter &w, const CustomShader &s) {
    binWriteStr(w, s.name.c_str());
    if (s.data.size() > INT32_MAX) return binWriteFail(w, "shader parameters are too large");
    binWriteBlock(w, s.data.data(), static_cast<int32_t>(s.data.size()));
    return !w.failed;
}

// ---------------------------------------------------------------------------
// Material record

int materialRead(BinReader &r, const Prototype *proto, Material &out) {
    TokenCursor cur;
    for (uint16_t t = binFirstToken(r, proto, PROTO_ID_MATERIAL, cur); t != BIN_TOKEN_END;
         t = binNextToken(r, cur)) {
        if (!readField(r, proto, out, t)) binSkip(r, t);
    }
    const float *c = out.transparencyColour;
    out.transparency = (c[0] + c[1] + c[2]) * (1.0f / 3.0f);
    return !r.failed;
}

int materialWrite(BinWriter &w, const Prototype *proto, const Material &m) {
    return matWriteRecord(w, proto, PROTO_ID_MATERIAL, materialList,
                          [&](BinWriter &out, uint16_t t) { writeField(out, proto, m, t); });
}

void materialProtoAdd(Prototype &proto) {
    protoSet(proto, PROTO_ID_MATERIAL, materialList, std::size(materialList));
    texture2DProtoAdd(proto);
    texture3DProtoAdd(proto);
}
