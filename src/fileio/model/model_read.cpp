// Reader of .hrc model files: the node record (id 5) and the tree it carries.
// Children and siblings stand inside their node's record; they are read with
// a stack of our own rather than by recursion, so that a deep or long tree,
// or a damaged file that pretends to be one, cannot exhaust the call stack.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "../geometry/geo_internal.h"
#include "model_internal.h"

namespace {

constexpr float RAD_PER_DEG = 3.14159265358979323846f / 180.0f;
constexpr float CUSTOM_TAG_VERSION = 3.5f;      // older files store unknown tags swapped
constexpr float CUSTOM_BYTES_VERSION = 3.50009f;  // older files swap block data as one item

void put16(std::vector<uint8_t> &out, uint16_t v) {
    out.push_back(static_cast<uint8_t>(v >> 8));
    out.push_back(static_cast<uint8_t>(v));
}

void put32(std::vector<uint8_t> &out, uint32_t v) {
    put16(out, static_cast<uint16_t>(v >> 16));
    put16(out, static_cast<uint16_t>(v));
}

// Reads a record of a type this reader does not decode by the skip rules of
// its tokens, and keeps it in tokenised form whatever form the file used.
ModelBlob *captureRecord(BinReader &r, const Prototype *proto, int id) {
    std::vector<uint8_t> out;
    TokenCursor cur;
    for (uint16_t t = binFirstToken(r, proto, id, cur); t != 0 && !r.failed; t = binNextToken(r, cur)) {
        int rule = tokenSkip(t);
        if (rule == BIN_SKIP_NONE) continue;  // no size known: the value cannot be passed
        put16(out, t);
        int64_t n = rule;
        if (rule == BIN_SKIP_SIZED) {
            int32_t size = binReadI32(r);
            if (size < 0) { binFail(r, "negative size in a kept record"); break; }
            put32(out, static_cast<uint32_t>(size));
            n = size;
        }
        if (!binCheckCount(r, n, 1)) break;
        size_t at = out.size();
        out.resize(at + static_cast<size_t>(n));
        binRead(r, out.data() + at, 1, static_cast<size_t>(n));
    }
    put16(out, 0);
    ModelBlob *blob = static_cast<ModelBlob *>(calloc(1, sizeof(ModelBlob)));
    if (!blob) return nullptr;
    blob->bytes = static_cast<uint8_t *>(malloc(out.size()));
    if (!blob->bytes) { free(blob); return nullptr; }
    memcpy(blob->bytes, out.data(), out.size());
    blob->size = static_cast<int32_t>(out.size());
    return blob;
}

// One entry of a material or texture list: a reference by name, dropped, or
// an inline record.
// Hook for the material records: once include/material.h exists, the inline
// record is read by materialRead (id 13), texture2DRead (14) or
// texture3DRead (15) here instead of being kept as a blob.
ModelBlob *readListEntry(BinReader &r, const Prototype *proto, int recordId) {
    if (binReadU16(r)) {
        free(binReadStr(r));  // the scene's relations link the named element
        return nullptr;
    }
    return captureRecord(r, proto, recordId);
}

// u16 count, then entries; the array has one slot per entry.
ModelBlob **readList(BinReader &r, const Prototype *proto, int recordId, uint16_t &count) {
    uint16_t n = binReadU16(r);
    count = 0;
    ModelBlob **list = static_cast<ModelBlob **>(geoAllocChecked(r, n, 2, sizeof(ModelBlob *)));
    if (!list) return nullptr;
    count = n;
    for (int i = 0; i < n; ++i) list[i] = readListEntry(r, proto, recordId);
    return list;
}

// u16 flag; when set, a sized block follows.
void readFlaggedBlock(BinReader &r, uint8_t *&data, int32_t &size) {
    if (!binReadU16(r)) return;
    free(data);
    data = binReadBlock(r, &size);
    if (!data) size = 0;
}

CustomBlock *readCustomBlock(BinReader &r) {
    uint8_t raw[5];  // four characters and a zero
    binRead(r, raw, 1, 5);
    uint8_t flag = binReadU8(r);
    int32_t size = binReadI32(r);
    if (r.failed) return nullptr;
    if (size < 0) { binFail(r, "negative size of a custom block"); return nullptr; }
    if (!binCheckCount(r, size, 1)) return nullptr;
    CustomBlock *b = static_cast<CustomBlock *>(calloc(1, sizeof(CustomBlock)));
    if (!b) return nullptr;
    b->flag = flag;
    b->size = size;
    memcpy(b->tag, raw, 4);
    bool known = raw[0] == 'C' && raw[1] == 'U' && raw[2] == 'S' && raw[3] >= 'A' && raw[3] <= 'D';
    if (!known && r.version < CUSTOM_TAG_VERSION) {
        // An old custom element: its tag was stored as a swapped word.
        const char turned[5] = {char(raw[3]), char(raw[2]), char(raw[1]), char(raw[0]), 0};
        snprintf(b->tag, sizeof b->tag, "%c%s", '_', turned);
    }
    if (size > 0) {
        b->data = static_cast<uint8_t *>(malloc(static_cast<size_t>(size)));
        if (!b->data) { free(b); return nullptr; }
        if (r.version < CUSTOM_BYTES_VERSION) binRead(r, b->data, static_cast<size_t>(size), 1);
        else binRead(r, b->data, 1, static_cast<size_t>(size));
    }
    return b;
}

void appendCustom(Model *n, CustomBlock *b) {
    CustomBlock **slot = &n->customBlocks;
    while (*slot) slot = &(*slot)->next;
    *slot = b;
}

void readField(BinReader &r, const Prototype *proto, Model *n, uint16_t t, int mode) {
    switch (t) {
    case 1: free(n->name); n->name = binReadStr(r); break;
    case 548: if (binReadU16(r) == 1) n->flags |= MODEL_FLAG_FILE1; break;
    case 2: {
        int32_t type = binReadI32(r);
        if (type != n->type) {
            geometryFree(n->type, n->geometry.any);
            n->geometry.any = nullptr;
        }
        n->type = type;
        break;
    }
    case 3: {
        GeoReadFn read = n->type >= 0 && n->type < MODEL_TYPE_END ? MODEL_GEO_READ[n->type] : nullptr;
        if (!read) { binSkip(r, 0xFFFF); break; }  // a bare node's geometry is a sized block
        geometryFree(n->type, n->geometry.any);
        n->geometry.any = read(r, proto, n);
        break;
    }
    case 4: case 5: case 6: {
        float v[3];
        binReadFloat3(r, v);
        if (mode == MODEL_READ_OVER) break;  // the tree in memory keeps its transforms
        if (t == 4) memcpy(n->scaling, v, sizeof v);
        if (t == 6) memcpy(n->translation, v, sizeof v);
        if (t == 5)
            for (int i = 0; i < 3; ++i) n->rotation[i] = v[i] * RAD_PER_DEG;
        break;
    }
    case 7:
        for (int i = 0; n->materials && i < n->materialCount; ++i) modelBlobFree(n->materials[i]);
        free(n->materials);
        n->materials = readList(r, proto, REC_MATERIAL, n->materialCount);
        break;
    case 8:
        for (int i = 0; n->textures2D && i < n->texture2DCount; ++i) modelBlobFree(n->textures2D[i]);
        free(n->textures2D);
        n->textures2D = readList(r, proto, REC_TEXTURE2D, n->texture2DCount);
        break;
    case 9: {
        uint16_t count = binReadU16(r);
        for (int i = 0; i < count && !r.failed; ++i) {
            ModelBlob *tex = readListEntry(r, proto, REC_TEXTURE3D);
            if (tex && !n->texture3D) n->texture3D = tex;  // only the first is kept
            else modelBlobFree(tex);
        }
        break;
    }
    case 12: n->visibility = binReadU16(r); if (n->visibility == 65535) n->visibility = 0; break;
    case 16: n->animKind = binReadU16(r); break;
    case 13: {
        uint16_t kind = binReadU16(r);
        n->animKind = kind == 2 ? 1 : kind == 12 ? 0 : kind;
        if (kind == 1 || kind == 2 || kind == 12) {
            free(n->animBlock);
            n->animBlock = binReadBlock(r, &n->animBlockSize);
            if (!n->animBlock) n->animBlockSize = 0;
        }
        break;
    }
    case 15: n->shapeCount = binReadU16(r); break;
    case 17:
        free(n->shapes);
        n->shapes = binReadBlock(r, &n->shapesSize);
        if (!n->shapes) n->shapesSize = 0;
        break;
    case 14: case 19: {
        ModelBlob *&slot = t == 14 ? n->matterRecord : n->jointRecord;
        if (!binReadU16(r)) break;
        modelBlobFree(slot);
        slot = captureRecord(r, proto, t == 14 ? REC_DYNA_MATTER : REC_CHAIN);
        break;
    }
    case 21: {
        int32_t count = binReadI32(r);
        for (int32_t i = 0; n->clusters && i < n->clusterCount; ++i) free(n->clusters[i].bytes);
        free(n->clusters);
        n->clusters = static_cast<ModelBlob *>(geoAllocChecked(r, count, 4, sizeof(ModelBlob)));
        n->clusterCount = n->clusters ? count : 0;
        for (int32_t i = 0; i < n->clusterCount; ++i)
            n->clusters[i].bytes = binReadBlock(r, &n->clusters[i].size);
        break;
    }
    case 20: readFlaggedBlock(r, n->constraintData, n->constraintSize); break;
    case 25:
        n->hasBounding = binReadU16(r) ? 1 : 0;
        if (n->hasBounding) binReadFloats(r, &n->bounding[0][0], 9);
        break;
    case 23: n->inheritFlags[0] = binReadU16(r); break;
    case 24: n->inheritFlags[1] = binReadU16(r); break;
    case 22: {
        uint16_t count = binReadU16(r);
        if (!binCheckCount(r, count, 10)) break;
        for (int i = 0; i < count && !r.failed; ++i)
            if (CustomBlock *b = readCustomBlock(r)) appendCustom(n, b);
        break;
    }
    case 0xFF1C: {
        int32_t size = binReadI32(r);
        if (size < 0) { binFail(r, "negative size of the custom blocks"); break; }
        if (!binCheckCount(r, size, 1)) break;
        const int64_t end = r.pos + size;
        while (r.pos < end && !r.failed)
            if (CustomBlock *b = readCustomBlock(r)) appendCustom(n, b);
        if (r.pos != end) binFail(r, "custom blocks run past their field");
        break;
    }
    case 1050: n->versionStamp = binReadF32(r); break;
    case 0xFF24:
        free(n->uvDomains);
        n->uvDomains = binReadBlock(r, &n->uvDomainsSize);
        if (!n->uvDomains) n->uvDomainsSize = 0;
        break;
    case 545: n->reserved[0] = binReadU16(r); break;
    case 546: n->reserved[1] = binReadU16(r); break;
    case 547: n->reserved[2] = binReadU16(r); break;
    case 539: n->reserved[3] = binReadU16(r); break;
    default: binSkip(r, t);
    }
}

// What depends on the whole node.
void finishNode(Model *n) {
    if (n->type == MODEL_MESH && n->geometry.mesh) {
        Mesh *m = n->geometry.mesh;
        for (int32_t i = 0; i < m->polygonCount; ++i)
            if (m->polygons[i].material >= n->materialCount) m->polygons[i].material = 0;
    }
    // Meta groups are finished by their evaluation, which is not part of the viewer.
}

Model *startNode(Model *parent, int mode, Model *over) {
    Model *n = mode == MODEL_READ_OVER && over ? over : modelNew("", MODEL_BARE, nullptr);
    if (n) n->parent = parent;
    return n;
}

struct Frame {
    Model *node;         // node whose record is being read
    TokenCursor cur;     // its tokens
    int started;         // 1 once the first token was taken
};

}  // namespace

Model *modelNodeRead(BinReader &r, Model *parent, const Prototype *proto, int mode, Model *over) {
    Model *root = startNode(parent, mode, over);
    if (!root) return nullptr;
    std::vector<Frame> stack{{root, {}, 0}};
    while (!stack.empty()) {
        Frame &f = stack.back();
        uint16_t t = f.started ? binNextToken(r, f.cur) : binFirstToken(r, proto, REC_MODEL, f.cur);
        f.started = 1;
        if (t == 0 || r.failed) {
            finishNode(f.node);
            stack.pop_back();
            continue;
        }
        if (t != 10 && t != 11) {
            readField(r, proto, f.node, t, mode);
            continue;
        }
        Model *node = f.node;
        if (!binReadU16(r) || r.failed) continue;
        Model *&slot = t == 10 ? node->firstChild : node->nextSibling;
        Model *next = startNode(t == 10 ? node : node->parent, mode, slot);
        if (!next) {
            binFail(r, "out of memory for a model node");
            continue;
        }
        if (slot != next) {
            modelFree(slot);  // a repeated field replaces the nodes it named before
            slot = next;
        }
        stack.push_back({next, {}, 0});
    }
    // Transforms top-down, once every node of the tree has its values.
    std::vector<Model *> walk{root};
    while (!walk.empty()) {
        Model *n = walk.back();
        walk.pop_back();
        if (mode == MODEL_READ_NEW) modelUpdateTransform(n);
        n->flags2 = 0;
        if (n->nextSibling && n != root) walk.push_back(n->nextSibling);
        if (n->firstChild) walk.push_back(n->firstChild);
    }
    return root;
}

Model *modelChunkRead(BinReader &r, Model *target, const Prototype *proto, int mode) {
    if (mode == MODEL_READ_OVER) {
        if (!target) return nullptr;
        return modelNodeRead(r, target->parent, proto, mode, target);
    }
    Model *root = modelNodeRead(r, target, proto, mode, nullptr);
    if (root && target) modelAddChild(target, root);
    // Files before 2.6 need their old models adjusted, and a patch root of
    // basis 1 in both directions its grid repaired; both belong to the
    // modelling side and are left to it.
    return root;
}

Model *modelFileRead(const char *path, Model *target, int mode) {
    if (!path) return nullptr;
    std::string file = std::string(path) + ".hrc";
    BinReader r;
    if (!binReaderOpen(r, file.c_str())) return nullptr;  // the caller reports a missing element
    Prototype *proto = protoNew();
    Model *root = nullptr;
    char tag[5];
    if (proto && binReadFileStart(r, *proto, tag) >= 0) {
        if (strcmp(tag, "HRCH") == 0) {
            root = modelChunkRead(r, target, proto, mode);
        } else {
            std::string what = std::string("chunk \"") + tag + "\" is not a model hierarchy";
            binFail(r, what.c_str());
        }
    }
    protoFree(proto);
    binReaderClose(r);
    return root;
}
