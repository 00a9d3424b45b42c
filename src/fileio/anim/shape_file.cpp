// Shape key files (.shp): the header, an optional "PROT" table, the key count
// (65534 and then the count; older files give the count alone), and per key
// the four-character tag of its geometry kind and the geometry record of the
// model file.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "../model/model_internal.h"
#include "anim_internal.h"

namespace {

constexpr uint16_t SHAPE_COUNT_FOLLOWS = 65534;  // the next u16 is the key count

struct ShapeTag {
    int32_t type;     // node type
    const char *tag;  // chunk tag of its records
};

constexpr ShapeTag shapeTags[] = {
    {MODEL_PATCH, "PTCH"}, {MODEL_FACE, "FACE"}, {MODEL_MESH, "MESH"},
    {MODEL_SPLINE, "SPLN"}, {MODEL_NURBS_CURVE, "NCRV"}, {MODEL_NURBS_SURFACE, "NSRF"},
};

int32_t typeOfTag(const char *tag) {
    for (const ShapeTag &t : shapeTags)
        if (strcmp(t.tag, tag) == 0) return t.type;
    return -1;
}

}  // namespace

const char *shapeTag(int32_t type) {
    for (const ShapeTag &t : shapeTags)
        if (t.type == type) return t.tag;
    return nullptr;
}

ShapeKeys *shapeKeysRead(BinReader &r, const Prototype *proto, Model *node) {
    uint16_t count = binReadU16(r);
    if (count == SHAPE_COUNT_FOLLOWS) count = binReadU16(r);
    if (r.failed) return nullptr;
    if (node) node->shapeCount = count;
    ShapeKeys *keys = static_cast<ShapeKeys *>(calloc(1, sizeof(ShapeKeys)));
    if (!keys) {
        binFail(r, "out of memory for shape keys");
        return nullptr;
    }
    // Each key takes at least its tag and an end token.
    if (count > 0) keys->keys = static_cast<ShapeKey *>(geoAllocChecked(r, count, 6, sizeof(ShapeKey)));
    if (!keys->keys) return keys;
    keys->count = count;
    Model scratch{};  // reads records not of the node's type: one UV domain
    scratch.uvDomainCount = 1;
    for (int i = 0; i < count && !r.failed; ++i) {
        char tag[5];
        binReadTag(r, tag);
        int32_t type = typeOfTag(tag);
        if (r.failed) break;
        if (type < 0) {
            std::string what = std::string("unknown shape tag \"") + tag + "\"";
            binFail(r, what.c_str());
            break;
        }
        void *geometry = MODEL_GEO_READ[type](r, proto, node && type == node->type ? node : &scratch);
        keys->keys[i].type = node ? node->type : type;
        if (node && type != node->type) {
            geometryFree(type, geometry);  // a record of another kind: read past and dropped
            geometry = nullptr;
        }
        keys->keys[i].geometry = geometry;
    }
    return keys;
}

ShapeKeys *shapeFileRead(const char *path, Model *node) {
    BinReader r;
    if (!path || !binReaderOpen(r, path)) {
        fprintf(stderr, "ERROR: Cannot open file %s\n", path ? path : "");
        return nullptr;
    }
    Prototype proto;
    ShapeKeys *keys = nullptr;
    int32_t id = binReadHeader(r, nullptr, nullptr);
    if (id == BIN_ID_SHAPE_KEYS && animReadProto(r, proto)) keys = shapeKeysRead(r, &proto, node);
    else if (id >= 0 && !r.failed) binFail(r, "not a shape key file");
    binReaderClose(r);
    return keys;
}

int shapeFileWrite(const char *path, const ShapeKeys *keys) {
    BinWriter w;
    if (!binWriterOpen(w, path)) return 0;
    if (!keys || keys->count < 0 || keys->count >= SHAPE_COUNT_FOLLOWS) {
        binWriteFail(w, "no shape keys to write");
        return binWriterClose(w);
    }
    Prototype proto;
    geometryProtoSet(proto);
    binWriteHeader(w, BIN_ID_SHAPE_KEYS, BIN_VERSION, nullptr);
    protoWrite(w, proto);
    binWriteU16(w, SHAPE_COUNT_FOLLOWS);
    binWriteU16(w, static_cast<uint16_t>(keys->count));
    for (int32_t i = 0; i < keys->count && !w.failed; ++i) {
        const ShapeKey &k = keys->keys[i];
        const char *tag = shapeTag(k.type);
        if (!tag) {
            std::string what = "no shape tag for type " + std::to_string(k.type);
            binWriteFail(w, what.c_str());
            break;
        }
        binWriteTag(w, tag);
        MODEL_GEO_WRITE[k.type](w, &proto, k.geometry ? k.geometry : modelEmptyGeometry(k.type));
    }
    return binWriterClose(w);
}

void shapeKeysFree(ShapeKeys *keys) {
    if (!keys) return;
    for (int32_t i = 0; keys->keys && i < keys->count; ++i) geometryFree(keys->keys[i].type, keys->keys[i].geometry);
    free(keys->keys);
    free(keys);
}
