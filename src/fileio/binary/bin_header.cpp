// File headers of the family: the 88-byte binary header with its version
// check, the ascii magic and version token, and the display names of both.
#include <bit>
#include <cstdlib>
#include <cstring>

#include "bin_internal.h"
#include "database.h"

float g_binFileVersion = 0.0f;

namespace {

BinVersionHook versionHook = nullptr;

struct TypeName {
    uint32_t magic;    // binary id or ascii magic
    const char *name;  // display name
};

constexpr TypeName typeNames[] = {
    {BIN_ID_GENERAL, "General BRACKWOOD Binary"},
    {BIN_ID_ANIMATION, "BRACKWOOD Binary Animation"},
    {BIN_ID_CAMERA, "BRACKWOOD Binary Camera"},
    {BIN_ID_CLUSTER_KEYS, "BRACKWOOD Binary Cluster Keys"},
    {BIN_ID_LATTICE, "BRACKWOOD Binary Lattice"},
    {BIN_ID_LIGHT, "BRACKWOOD Binary Light"},
    {BIN_ID_MATERIAL, "BRACKWOOD Binary Material"},
    {BIN_ID_MODEL, "BRACKWOOD Binary Model"},
    {BIN_ID_SHAPE_KEYS, "BRACKWOOD Binary Shape Keys"},
    {BIN_ID_TEXTURE2D, "BRACKWOOD Binary 2D Texture"},
    {BIN_ID_TEXTURE3D, "BRACKWOOD Binary 3D Texture"},
    {BIN_ID_STRUCT_KEYS, "BRACKWOOD Binary Struct Keys"},
    {MAGIC_SDSC, "BRACKWOOD Ascii Scene (>= 2.6)"},
    {MAGIC_SSCN, "BRACKWOOD Ascii Scene (< 2.6)"},
    {MAGIC_SSET, "BRACKWOOD Ascii Setup"},
    {MAGIC_SCHN, "BRACKWOOD Ascii Channel Setup"},
    {MAGIC_SFLK, "BRACKWOOD Ascii Flock Setup"},
    {MAGIC_SWAV, "BRACKWOOD Ascii Wave"},
    {MAGIC_SREL, "BRACKWOOD Relations resources"},
    {MAGIC_SDRV, "BRACKWOOD Ascii Driver Descr."},
    {MAGIC_CLUS, "BRACKWOOD Ascii Cluster Keys"},
};

// The magics that asciiReadHeader accepts: files that carry a version token.
constexpr uint32_t headerMagics[] = {
    MAGIC_SDSC, MAGIC_SSET, MAGIC_SCHN, MAGIC_SFLK, MAGIC_SWAV, MAGIC_SREL, MAGIC_SDRV, MAGIC_CLUS,
};

// Shader kinds, which only fileReadMagic recognises.
constexpr uint32_t shaderMagics[] = {
    fourCC("SHAT"), fourCC("SHAD"), fourCC("SHVL"), fourCC("SHT2"), fourCC("SHT3"),
    fourCC("SHIG"), fourCC("SHAM"), fourCC("SHUT"), fourCC("SHNV"), fourCC("SDAD"),
    fourCC("SDAM"), fourCC("SDAT"), fourCC("SDIG"), fourCC("SDT2"), fourCC("SDT3"),
    fourCC("SDUT"), fourCC("SDVL"),
};

template <size_t N>
bool inList(const uint32_t (&list)[N], uint32_t magic) {
    for (uint32_t m : list)
        if (m == magic) return true;
    return false;
}

// The version token of an ascii header; the whole token must be a number.
bool readVersionToken(BinReader &r, float *version) {
    // The token reader works on the stream: put it where decoding has got to.
    if (fseek(r.file, static_cast<long>(r.pos), SEEK_SET) != 0) return false;
    if (!readToken(r.file)) return false;
    long at = ftell(r.file);
    if (at >= 0) r.pos = at;
    char *end = nullptr;
    float value = strtof(g_token, &end);
    if (end == g_token || *end != '\0') return false;
    value = binUsableFloat(value);
    r.version = value;
    if (version) *version = value;
    return true;
}

}  // namespace

int binIsFileId(uint32_t id) { return id >= BIN_ID_FIRST && id < BIN_ID_END; }

int asciiIsMagic(uint32_t magic) {
    return inList(headerMagics, magic) || magic == MAGIC_SSCN || inList(shaderMagics, magic);
}

const char *fileTypeName(uint32_t magic) {
    for (const TypeName &row : typeNames)
        if (row.magic == magic) return row.name;
    return nullptr;
}

BinVersionHook binSetVersionHook(BinVersionHook hook) {
    BinVersionHook old = versionHook;
    versionHook = hook;
    return old;
}

int32_t binReadHeader(BinReader &r, float *version, char *comment) {
    int64_t start = r.pos;
    uint8_t header[BIN_HEADER_SIZE];
    if (!binProbe(r, header, sizeof header)) return -1;
    uint32_t id = binLoad32(header);
    float fileVersion = binUsableFloat(std::bit_cast<float>(binLoad32(header + 4)));
    if (!binIsFileId(id) ||
        (fileVersion > BIN_VERSION_WARN && versionHook && !versionHook(r.name.c_str(), fileVersion))) {
        binSeekTo(r, start);
        return -1;
    }
    r.version = fileVersion;
    g_binFileVersion = fileVersion;
    if (version) *version = fileVersion;
    if (comment) {
        memcpy(comment, header + 8, BIN_COMMENT_SIZE);
        comment[BIN_COMMENT_SIZE] = '\0';
    }
    return static_cast<int32_t>(id);
}

int binWriteHeader(BinWriter &w, uint32_t id, float version, const char *comment) {
    uint8_t header[BIN_HEADER_SIZE] = {};
    binStore32(header, id);
    binStore32(header + 4, std::bit_cast<uint32_t>(version));
    if (!comment) comment = BIN_DEFAULT_COMMENT;
    memcpy(header + 8, comment, strnlen(comment, BIN_COMMENT_SIZE));
    return binPut(w, header, sizeof header) ? BIN_HEADER_SIZE : 0;
}

int32_t asciiReadHeader(BinReader &r, float *version) {
    int64_t start = r.pos;
    uint8_t bytes[4];
    if (!binProbe(r, bytes, 4)) return -1;
    uint32_t magic = binLoad32(bytes);
    if (!inList(headerMagics, magic) || !readVersionToken(r, version)) {
        binSeekTo(r, start);
        return -1;
    }
    return static_cast<int32_t>(magic);
}

int32_t fileReadMagic(BinReader &r, int *isAscii, float *version) {
    int64_t start = r.pos;
    uint8_t bytes[4];
    if (!binProbe(r, bytes, 4)) return -1;
    uint32_t magic = binLoad32(bytes);
    if (binIsFileId(magic)) {
        binSeekTo(r, start);
        int32_t id = binReadHeader(r, version, nullptr);
        if (id >= 0 && isAscii) *isAscii = 0;
        return id;
    }
    if (magic == MAGIC_SSCN) {
        if (isAscii) *isAscii = 1;
        if (version) *version = 0.0f;
        return static_cast<int32_t>(magic);
    }
    if (!asciiIsMagic(magic) || !readVersionToken(r, version)) {
        binSeekTo(r, start);
        return -1;
    }
    if (isAscii) *isAscii = 1;
    return static_cast<int32_t>(magic);
}
