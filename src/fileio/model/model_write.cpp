// Writer of .hrc model files: header with the general id, the PROT table of
// version 4.0, "HRCH", and the tree in reading order (a node, its children
// inside it, then its next sibling).
#include <cstring>
#include <vector>

#include "../geometry/geo_internal.h"
#include "../binary/bin_internal.h"
#include "model_internal.h"
#include "animation.h"

namespace {

constexpr float DEG_PER_RAD = 180.0f / 3.14159265358979323846f;

// The node list. The dynamics records kept as blobs have no list in the
// written table, since the blobs hold their tokens; materials and textures
// have theirs.
const uint16_t LIST_MODEL[] = {1, 548, 2, 3, 4, 5, 6, 7, 8, 9, 12, 13, 15, 17, 14, 19, 21, 20, 25,
                               23, 24, 0xFF1C, 1050, 0xFF24, 545, 546, 547, 539, 26, 27, 28, 10, 11, 0};

// A list entry: a reference whose name was not kept (the scene's relations
// link it), or the inline record.
template <class T>
void writeListEntry(BinWriter &w, const Prototype *proto, const T *record,
                    int (*write)(BinWriter &, const Prototype *, const T &)) {
    if (!record) {
        binWriteU16(w, 1);
        binWriteStr(w, "");
        return;
    }
    binWriteU16(w, 0);
    write(w, proto, *record);
}

void writeFields(BinWriter &w, const Prototype *proto, const Model *n, TokenCursor &cur) {
    geoTok(w, cur, 1) && binWriteStr(w, n->name);
    geoTok(w, cur, 548) && binWriteU16(w, (n->flags & MODEL_FLAG_FILE1) ? 1 : 0);
    geoTok(w, cur, 2) && binWriteI32(w, n->type);
    if (geoTok(w, cur, 3)) {
        GeoWriteFn write = n->type >= 0 && n->type < MODEL_TYPE_END ? MODEL_GEO_WRITE[n->type] : nullptr;
        if (!write) binWriteI32(w, 0);  // bare node: an empty sized block
        else write(w, proto, n->geometry.any ? n->geometry.any : modelEmptyGeometry(n->type));
    }
    geoTok(w, cur, 4) && binWriteFloats(w, n->scaling, 3);
    if (geoTok(w, cur, 5))
        for (float a : n->rotation) binWriteF32(w, a * DEG_PER_RAD);
    geoTok(w, cur, 6) && binWriteFloats(w, n->translation, 3);
    if (geoTok(w, cur, 7)) {
        uint16_t count = n->materials ? n->materialCount : 0;
        binWriteU16(w, count);
        for (int i = 0; i < count; ++i) writeListEntry(w, proto, n->materials[i], materialWrite);
    }
    if (geoTok(w, cur, 8)) {
        uint16_t count = n->textures2D ? n->texture2DCount : 0;
        binWriteU16(w, count);
        for (int i = 0; i < count; ++i) writeListEntry(w, proto, n->textures2D[i], texture2DWrite);
    }
    if (geoTok(w, cur, 9)) {
        binWriteU16(w, n->texture3D ? 1 : 0);
        if (n->texture3D) writeListEntry(w, proto, n->texture3D, texture3DWrite);
    }
    geoTok(w, cur, 12) && binWriteU16(w, n->visibility);
    if (geoTok(w, cur, 13)) {
        // Kind 1 carries its block; a block of kind 0 goes out as 12.
        uint16_t kind = n->animKind == 0 && n->animBlock ? 12 : n->animKind;
        binWriteU16(w, kind);
        if (kind == 1 || kind == 2 || kind == 12) binWriteBlock(w, n->animBlock, n->animBlock ? n->animBlockSize : 0);
    }
    geoTok(w, cur, 15) && binWriteU16(w, n->shapeCount);
    geoTok(w, cur, 17) && binWriteBlock(w, n->shapes, n->shapes ? n->shapesSize : 0);
    for (uint16_t t : {uint16_t(14), uint16_t(19)}) {
        const ModelBlob *blob = t == 14 ? n->matterRecord : n->jointRecord;
        if (!geoTok(w, cur, t)) continue;
        binWriteU16(w, blob ? 1 : 0);
        if (blob) binWrite(w, blob->bytes, 1, static_cast<size_t>(blob->size));
    }
    if (geoTok(w, cur, 21)) {
        int32_t count = n->clusters ? n->clusterCount : 0;
        binWriteI32(w, count);
        for (int32_t i = 0; i < count; ++i)
            binWriteBlock(w, n->clusters[i].bytes, n->clusters[i].bytes ? n->clusters[i].size : 0);
    }
    if (geoTok(w, cur, 20)) {
        binWriteU16(w, n->constraintData ? 1 : 0);
        if (n->constraintData) binWriteBlock(w, n->constraintData, n->constraintSize);
    }
    if (geoTok(w, cur, 25)) {
        binWriteU16(w, n->hasBounding);
        if (n->hasBounding) binWriteFloats(w, &n->bounding[0][0], 9);
    }
    geoTok(w, cur, 23) && binWriteU16(w, n->inheritFlags[0]);
    geoTok(w, cur, 24) && binWriteU16(w, n->inheritFlags[1]);
    if (geoTok(w, cur, 0xFF1C)) {
        static const std::vector<CustomBlock> none;
        customBlocksWriteSized(w, n->customBlocks ? *n->customBlocks : none);
    }
    geoTok(w, cur, 1050) && binWriteF32(w, n->versionStamp);
    geoTok(w, cur, 0xFF24) && binWriteBlock(w, n->uvDomains, n->uvDomains ? n->uvDomainsSize : 0);
    const uint16_t reservedTokens[4] = {545, 546, 547, 539};
    for (int i = 0; i < 4; ++i) geoTok(w, cur, reservedTokens[i]) && binWriteU16(w, n->reserved[i]);
    // The chain block goes out for a node of a kind; with a table every node
    // has the field, an empty block for the others.
    if ((n->kind != 0 || proto) && geoTok(w, cur, 26)) {
        if (n->kind == 0) {
            binWriteI32(w, 0);
        } else {
            binWriteI32(w, 16);
            binWriteI32(w, n->kind);
            binWriteI32(w, n->chainType);
            binWriteF32(w, n->chain ? n->chain->prefRotationZ : 0.0f);
            binWriteF32(w, n->chain ? n->chain->jointRollOffset : 0.0f);
        }
    }
    // Without a table a node outside envelopes leaves its envelope tokens out.
    if (cur.list || n->envelopeRole) geoTok(w, cur, 27) && binWriteI32(w, n->envelopeRole);
    if (cur.list || n->envelope) geoTok(w, cur, 28) && envelopeBlockWrite(w, n);
}

struct WriteFrame {
    const Model *node;  // node being written
    TokenCursor cur;    // its tokens
    int stage;          // 0 fields and child, 1 sibling, 2 end
};

}  // namespace

void modelProtoSet(Prototype &proto) {
    geometryProtoSet(proto);
    materialProtoAdd(proto);
    protoSet(proto, REC_MODEL, LIST_MODEL, sizeof LIST_MODEL / sizeof LIST_MODEL[0]);
}

int modelFileWrite(BinWriter &w, const Model *root) { return modelFileWriteForm(w, root, 1); }

int modelFileWriteForm(BinWriter &w, const Model *root, int withTable) {
    if (!root) return binWriteFail(w, "no model to write");
    Prototype *proto = withTable ? protoNew() : nullptr;
    if (withTable && !proto) return binWriteFail(w, "out of memory");
    if (proto) modelProtoSet(*proto);
    binWriteFileStart(w, BIN_ID_GENERAL, BIN_VERSION, nullptr, proto, "HRCH");
    std::vector<WriteFrame> stack{{root, {}, 0}};
    while (!stack.empty() && !w.failed) {
        WriteFrame &f = stack.back();
        const Model *n = f.node;
        if (f.stage == 0) {
            binWriteBegin(w, proto, REC_MODEL, f.cur);
            writeFields(w, proto, n, f.cur);
            geoTok(w, f.cur, 10) && binWriteU16(w, n->firstChild ? 1 : 0);
            f.stage = 1;
            if (n->firstChild) stack.push_back({n->firstChild, {}, 0});
        } else if (f.stage == 1) {
            // The file's root stands alone: its siblings belong to another tree.
            const Model *next = stack.size() > 1 ? n->nextSibling : nullptr;
            geoTok(w, f.cur, 11) && binWriteU16(w, next ? 1 : 0);
            f.stage = 2;
            if (next) stack.push_back({next, {}, 0});
        } else {
            binWriteEnd(w, f.cur);
            stack.pop_back();
        }
    }
    protoFree(proto);
    return !w.failed;
}

int modelFileWritePath(const char *path, const Model *root) {
    BinWriter w;
    if (!binWriterOpen(w, path)) return 0;
    modelFileWrite(w, root);
    return binWriterClose(w);
}
