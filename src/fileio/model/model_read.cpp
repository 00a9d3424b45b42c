// Reader of .hrc model files: the node record (id 5) and the tree it carries.
// Children and siblings stand inside their node's record; they are read with
// a stack of our own rather than by recursion, so that a deep or long tree,
// or a damaged file that pretends to be one, cannot exhaust the call stack.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "../binary/bin_internal.h"
#include "../geometry/geo_internal.h"
#include "animation.h"
#include "model_internal.h"

namespace {

constexpr float RAD_PER_DEG = 3.14159265358979323846f / 180.0f;

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

// One entry of a material or texture list: a reference by name, dropped
// since the scene's relations link the named element, or an inline record
// read by the same reader as the element files.
template <class T>
T *readListEntry(BinReader &r, const Prototype *proto, int (*read)(BinReader &, const Prototype *, T &)) {
    if (binReadU16(r)) {
        free(binReadStr(r));
        return nullptr;
    }
    T *record = new (std::nothrow) T;
    if (!record) {
        binFail(r, "out of memory for a material or texture");
        return nullptr;
    }
    read(r, proto, *record);
    return record;
}

// u16 count, then entries; the array has one slot per entry.
template <class T>
T **readList(BinReader &r, const Prototype *proto, int (*read)(BinReader &, const Prototype *, T &),
             uint16_t &count) {
    uint16_t n = binReadU16(r);
    count = 0;
    T **list = static_cast<T **>(geoAllocChecked(r, n, 2, sizeof(T *)));
    if (!list) return nullptr;
    count = n;
    for (int i = 0; i < n && !r.failed; ++i) list[i] = readListEntry(r, proto, read);
    return list;
}

// u16 flag; when set, a sized block follows.
void readFlaggedBlock(BinReader &r, uint8_t *&data, int32_t &size) {
    if (!binReadU16(r)) return;
    free(data);
    data = binReadBlock(r, &size);
    if (!data) size = 0;
}

std::vector<CustomBlock> *customBlocksOf(Model *n) {
    if (!n->customBlocks) n->customBlocks = new (std::nothrow) std::vector<CustomBlock>;
    return n->customBlocks;
}

// The chain block: i32 kind, i32 chain type, f32 preferred z rotation and
// f32 roll offset (radians); an empty block leaves the node as it is, bytes
// past the four fields are passed over.
constexpr int32_t CHAIN_BLOCK_SIZE = 16;

void readChainBlock(BinReader &r, Model *n) {
    int32_t size = 0;
    uint8_t *block = binReadBlock(r, &size);
    if (block && size >= CHAIN_BLOCK_SIZE) {
        n->kind = static_cast<int32_t>(binBig32(block));
        n->chainType = static_cast<int32_t>(binBig32(block + 4));
        const float preferred = binBigFloat(block + 8), roll = binBigFloat(block + 12);
        if (preferred != 0.0f || roll != 0.0f) {
            if (!n->chain) n->chain = static_cast<ChainData *>(calloc(1, sizeof(ChainData)));
            if (n->chain) {
                n->chain->prefRotationZ = preferred;
                n->chain->jointRollOffset = roll;
            }
        }
    } else if (size > 0 && !r.failed) {
        binFail(r, "chain block shorter than its four fields");
    }
    free(block);
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
        modelListsFree(n, 1, 0);
        n->materials = readList(r, proto, materialRead, n->materialCount);
        break;
    case 8:
        modelListsFree(n, 0, 1);
        n->textures2D = readList(r, proto, texture2DRead, n->texture2DCount);
        break;
    case 9: {
        uint16_t count = binReadU16(r);
        for (int i = 0; i < count && !r.failed; ++i) {
            Texture3D *tex = readListEntry(r, proto, texture3DRead);
            if (tex && !n->texture3D) n->texture3D = tex;  // only the first is kept
            else delete tex;
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
        std::vector<CustomBlock> *blocks = customBlocksOf(n);
        if (!blocks) { binFail(r, "out of memory for custom blocks"); break; }
        for (int i = 0; i < count && !r.failed; ++i) {
            blocks->emplace_back();
            customBlockRead(r, blocks->back());
        }
        break;
    }
    case 0xFF1C: {
        std::vector<CustomBlock> *blocks = customBlocksOf(n);
        if (!blocks) { binFail(r, "out of memory for custom blocks"); break; }
        customBlocksReadSized(r, *blocks);
        break;
    }
    case 27: n->envelopeRole = binReadI32(r); break;
    case 28: envelopeBlockRead(r, n); break;
    case 1050: n->versionStamp = binReadF32(r); break;
    case 0xFF24:
        free(n->uvDomains);
        n->uvDomains = binReadBlock(r, &n->uvDomainsSize);
        if (!n->uvDomains) n->uvDomainsSize = 0;
        break;
    case 26: readChainBlock(r, n); break;
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

// Spreads a patch grid in u (dir 0) or v (dir 1) when its span count there is
// no multiple of three: every third line then holds an old point and the two
// between are computed on the straight line to the next one, so the surface
// keeps its shape. 0 when the grid could not be grown.
int spreadGrid(Patch &p, int dir) {
    const int n = dir ? p.vCount : p.uCount;
    const int closed = dir ? p.vClosed : p.uClosed;
    const int spans = closed ? n : n - 1;
    if (n < 2 || spans % 3 == 0 || !p.cvs || !p.cvFlags) return 1;
    const int m = 3 * spans + (closed ? 0 : 1);
    if (m > UINT16_MAX) return 0;
    const int nu = dir ? p.uCount : m, nv = dir ? m : p.vCount;
    const size_t total = static_cast<size_t>(nu) * static_cast<size_t>(nv);
    auto cvs = static_cast<float (*)[4]>(calloc(total, sizeof(float[4])));
    auto flags = static_cast<uint16_t *>(calloc(total, sizeof(uint16_t)));
    if (!cvs || !flags) {
        free(cvs);
        free(flags);
        return 0;
    }
    for (int v = 0; v < nv; ++v)
        for (int u = 0; u < nu; ++u) {
            const int k = dir ? v : u;         // place along the spread direction
            const int i = k / 3, third = k % 3;  // old line before it, and how far past it
            const int j = (i + 1) % n;         // the next old line; wraps on a closed grid
            const size_t from = dir ? size_t(i) * p.uCount + u : size_t(v) * p.uCount + i;
            const size_t to = dir ? size_t(j) * p.uCount + u : size_t(v) * p.uCount + j;
            const size_t at = size_t(v) * nu + u;
            const float t = static_cast<float>(third) / 3.0f;
            for (int c = 0; c < 4; ++c) cvs[at][c] = p.cvs[from][c] + (p.cvs[to][c] - p.cvs[from][c]) * t;
            flags[at] = third == 0 ? p.cvFlags[from] : 0;
        }
    free(p.cvs);
    free(p.cvFlags);
    p.cvs = cvs;
    p.cvFlags = flags;
    (dir ? p.vCount : p.uCount) = static_cast<uint16_t>(m);
    return 1;
}

// A patch root of basis 1 in both directions comes from writers that stored
// its grid before it was spread to whole spans of three.
void repairPatchRoot(Model *root) {
    Patch *p = root->type == MODEL_PATCH ? root->geometry.patch : nullptr;
    if (!p || p->uType != 1 || p->vType != 1) return;
    if (!spreadGrid(*p, 0) || !spreadGrid(*p, 1))
        fprintf(stderr, "Patch %s: its grid could not be spread\n", root->name ? root->name : "");
}

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
        Model *root = modelNodeRead(r, target->parent, proto, mode, target);
        if (root) repairPatchRoot(root);
        return root;
    }
    Model *root = modelNodeRead(r, target, proto, mode, nullptr);
    if (!root) return nullptr;
    if (target) modelAddChild(target, root);
    repairPatchRoot(root);
    // Files before 2.6 hold models of an older form; what the viewer reads of
    // them (names, transforms, geometry) is the same, so nothing is adjusted.
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
