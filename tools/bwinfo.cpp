// bwinfo FILE...: says what each element or ascii file of the family is
// (kind, version, comment), prints its prototype table and a readable dump of
// the records it knows: materials, textures, models, animation curves, shape
// and cluster keys, cameras, lights and lattices. A damaged file gives what could be read and a line
// saying where reading stopped and why. Exit status 0 when every file was
// read whole, 1 otherwise.
#include <cstdio>
#include <cstring>
#include <string>

#include <utility>
#include <vector>

#include "animation.h"
#include "camera.h"
#include "fileio.h"
#include "material.h"
#include "model.h"

namespace {

// A dumper reads the records behind the chunk tag and prints them.
using DumpFn = void (*)(BinReader &r, const Prototype &proto, const char *tag);

void indent(int depth) { printf("%*s", depth * 2, ""); }

void printToken(uint16_t token) {
    if (token < 256) printf(" %u", token);
    else printf(" 0x%04X", token);
}

void print3(int depth, const char *label, const float v[3]) {
    indent(depth);
    printf("%s %g %g %g\n", label, v[0], v[1], v[2]);
}

void dumpShader(int depth, const char *label, const CustomShader &s) {
    if (s.name.empty() && s.data.empty()) return;
    indent(depth);
    printf("%s \"%s\", %zu bytes of parameters\n", label, s.name.c_str(), s.data.size());
}

void dumpBlocks(int depth, const std::vector<CustomBlock> &blocks) {
    for (const CustomBlock &b : blocks) {
        indent(depth);
        printf("custom block \"%s\" flag %u, %zu bytes\n", b.tag.c_str(), b.flag, b.data.size());
    }
}

void dumpTexture2D(int depth, const Texture2D &t) {
    indent(depth);
    printf("2D texture \"%s\"\n", t.pictureName.c_str());
    ++depth;
    indent(depth);
    printf("source kind %u, method %u, swap %u, interpolate %u\n", t.sourceKind, t.method, t.swap,
           t.interpolate);
    indent(depth);
    printf("crop %u: %g %g %g %g\n", t.cropOn, t.crop[0], t.crop[1], t.crop[2], t.crop[3]);
    indent(depth);
    printf("scale %g %g, offset %g %g\n", t.uScale, t.vScale, t.uOffset, t.vOffset);
    indent(depth);
    printf("tiles %u %u, mirror %u %u\n", t.tiles[0], t.tiles[1], t.mirror[0], t.mirror[1]);
    indent(depth);
    printf("video %u, alpha %u, explicit UV %u\n", t.video, t.alpha, t.explicitUV);
    print3(depth, "box size", t.boxSize);
    print3(depth, "box centre", t.boxCentre);
    print3(depth, "sphere centre", t.sphereCentre);
    if (!t.sequenceName.empty()) {
        indent(depth);
        printf("sequence \"%s\"\n", t.sequenceName.c_str());
    }
    dumpShader(depth, "shader", t.shader);
    dumpBlocks(depth, t.customBlocks);
}

void dumpTexture3D(int depth, const Texture3D &t) {
    indent(depth);
    printf("3D texture \"%s\" type %u\n", t.name.c_str(), t.type);
    print3(depth + 1, "scaling", t.scaling);
    print3(depth + 1, "rotation", t.rotation);
    print3(depth + 1, "translation", t.translation);
    if (!t.extra.empty()) {
        indent(depth + 1);
        printf("extra data %zu bytes\n", t.extra.size());
    }
}

void dumpMaterial(int depth, const Material &m) {
    indent(depth);
    printf("material \"%s\"\n", m.name.c_str());
    ++depth;
    indent(depth);
    printf("shading model %u\n", m.shadingModel);
    print3(depth, "ambient", m.ambient);
    print3(depth, "diffuse", m.diffuse);
    print3(depth, "specular", m.specular);
    indent(depth);
    printf("specular decay %g\n", m.specularDecay);
    indent(depth);
    printf("transparency %g\n", m.transparency);
    for (const Texture2D &t : m.textures) dumpTexture2D(depth, t);
    if (m.hasTexture3D) dumpTexture3D(depth, m.texture3D);
    for (int i = 0; i < 3; ++i) dumpShader(depth, "shader", m.shaders[i]);
    dumpShader(depth, "shader", m.sizedShader);
    dumpBlocks(depth, m.customBlocks);
}

void dumpMaterialFile(BinReader &r, const Prototype &proto, const char *) {
    Material m;
    materialRead(r, &proto, m);
    dumpMaterial(1, m);
}

void dumpTexture2DFile(BinReader &r, const Prototype &proto, const char *) {
    Texture2D t;
    texture2DRead(r, &proto, t);
    dumpTexture2D(1, t);
}

void dumpTexture3DFile(BinReader &r, const Prototype &proto, const char *) {
    Texture3D t;
    texture3DRead(r, &proto, t);
    dumpTexture3D(1, t);
}

// Vertices, polygons and control vertices of a node's geometry.
struct GeoCounts {
    int64_t vertices = 0;  // mesh vertices, spline and face boundary points
    int64_t polygons = 0;  // mesh polygons
    int64_t cvs = 0;       // patch, NURBS curve and surface control vertices
};

GeoCounts countsOf(const Model &n) {
    GeoCounts c;
    const ModelGeometry &g = n.geometry;
    if (!g.any) return c;
    switch (n.type) {
        case MODEL_MESH: c.vertices = g.mesh->vertexCount, c.polygons = g.mesh->polygonCount; break;
        case MODEL_PATCH: c.cvs = int64_t(g.patch->uCount) * g.patch->vCount; break;
        case MODEL_SPLINE: c.vertices = g.spline->vertexCount; break;
        case MODEL_FACE: c.vertices = g.face->boundary.vertexCount; break;
        case MODEL_NURBS_CURVE: c.cvs = g.curve->cvCount; break;
        case MODEL_NURBS_SURFACE: c.cvs = int64_t(g.surface->cvCount[0]) * g.surface->cvCount[1]; break;
        default: break;
    }
    return c;
}

void dumpNode(int depth, const Model &n) {
    indent(depth);
    printf("node \"%s\" type %d\n", n.name ? n.name : "", n.type);
    ++depth;
    print3(depth, "scaling", n.scaling);
    constexpr float DEG_PER_RAD = 180.0f / 3.14159265358979323846f;  // nodes keep radians
    const float degrees[3] = {n.rotation[0] * DEG_PER_RAD, n.rotation[1] * DEG_PER_RAD,
                              n.rotation[2] * DEG_PER_RAD};
    print3(depth, "rotation", degrees);
    print3(depth, "translation", n.translation);
    GeoCounts c = countsOf(n);
    indent(depth);
    printf("vertices %lld, polygons %lld, CVs %lld\n", static_cast<long long>(c.vertices),
           static_cast<long long>(c.polygons), static_cast<long long>(c.cvs));
    for (int i = 0; n.materials && i < n.materialCount; ++i)
        if (n.materials[i]) dumpMaterial(depth, *n.materials[i]);
    for (int i = 0; n.textures2D && i < n.texture2DCount; ++i)
        if (n.textures2D[i]) dumpTexture2D(depth, *n.textures2D[i]);
    if (n.texture3D) dumpTexture3D(depth, *n.texture3D);
    if (n.customBlocks) dumpBlocks(depth, *n.customBlocks);
}

// The tree behind "HRCH": each node, then its children one level deeper.
void dumpModel(BinReader &r, const Prototype &proto, const char *tag) {
    if (strcmp(tag, "HRCH") != 0) {
        printf("  records of this kind are not dumped\n");
        return;
    }
    Model *root = modelChunkRead(r, nullptr, &proto, MODEL_READ_NEW);
    // By a stack of our own: a file may nest deeper than the call stack allows.
    std::vector<std::pair<const Model *, int>> stack;
    if (root) stack.push_back({root, 1});
    while (!stack.empty()) {
        auto [n, depth] = stack.back();
        stack.pop_back();
        dumpNode(depth, *n);
        if (n->nextSibling && n != root) stack.push_back({n->nextSibling, depth});
        if (n->firstChild) stack.push_back({n->firstChild, depth + 1});
    }
    modelFree(root);
}

void dumpCurve(const Fcurve &c) {
    printf("    curve type %d: pre %d, post %d, interpolation %u, %d keys\n", c.type, c.preMode, c.postMode,
           c.interpolation, c.keyCount);
    for (int i = 0; c.keys && i < c.keyCount; ++i) {
        const FcurveKey &k = c.keys[i];
        printf("      key %d: time %g, value %g, slopes %g %g, interpolation %d, flag %u, type %u\n", i + 1,
               k.time, k.value, k.leftSlope, k.rightSlope, k.interpolation, k.flag, k.keyType);
    }
}

// The blocks of an .ani or .key file, each with its curves.
void dumpAnimation(BinReader &r, const Prototype &, const char *) {
    AnimBlock b;
    int n = 0;
    for (int more = 1; more;) {
        more = animBlockRead(r, b);
        if (b.kind < 0) break;  // the end of the blocks
        printf("  block %d: kind %d, target %d, param %d, active %d, form %d\n", ++n, b.kind, b.target, b.param,
               b.active, b.form);
        for (const AnimItem *it = b.items; it; it = it->next) dumpCurve(*it->curve);
        animItemsFree(b.items);
    }
    if (n == 0) printf("  no blocks\n");
}

void dumpShapes(BinReader &r, const Prototype &proto, const char *) {
    ShapeKeys *keys = shapeKeysRead(r, &proto, nullptr);
    printf("  shape keys %d\n", keys ? keys->count : 0);
    for (int32_t i = 0; keys && i < keys->count; ++i) {
        const ShapeKey &k = keys->keys[i];
        if (!k.geometry) break;  // reading stopped before this key
        Model node{};
        node.type = k.type;
        node.geometry.any = k.geometry;
        GeoCounts c = countsOf(node);
        printf("    key %d: \"%s\" type %d, vertices %lld, polygons %lld, CVs %lld\n", i + 1, shapeTag(k.type),
               k.type, static_cast<long long>(c.vertices), static_cast<long long>(c.polygons),
               static_cast<long long>(c.cvs));
    }
    shapeKeysFree(keys);
}

void dumpClusters(BinReader &r, const Prototype &, const char *) {
    Cluster *chain = clusterChainRead(r, -1);
    for (const Cluster *c = chain; c; c = c->next)
        printf("  cluster \"%s\" type %d, %d points, %d keys\n", c->name ? c->name : "", c->type, c->pointCount,
               c->keyCount);
    if (!chain) printf("  no clusters\n");
    clusterFree(chain);
}

// Path references the camera and light readers put on the pending list.
void dumpPathRefs() {
    static const char *const what[] = {"camera position", "camera interest", "light position", "light interest"};
    PathRef *refs = pathRefsTake();
    for (const PathRef *p = refs; p; p = p->next) {
        const char *kind = p->kind >= PATH_REF_CAMERA_POSITION && p->kind <= PATH_REF_LIGHT_INTEREST
                               ? what[p->kind - PATH_REF_CAMERA_POSITION]
                               : "point";
        printf("  %s follows path \"%s\", word %u\n", kind, p->pathName, p->word);
    }
    pathRefsFree(refs);
}

void dumpCamera(BinReader &r, const Prototype &, const char *) {
    Camera c;
    cameraRead(r, &c);
    print3(1, "position", c.position);
    print3(1, "interest", c.interest);
    printf("  roll %g, field of view %g, near %g, far %g\n", c.roll, c.fieldOfView, c.nearClip, c.farClip);
    printf("  focal length %g, f-stop %g, focus distance %g\n", c.focalLength, c.fStop, c.focusDistance);
    printf("  depth of field mode %d, near focus %g, far focus %g, circle of confusion %g\n", c.dofMode,
           c.nearFocus, c.farFocus, c.circleOfConfusion);
    printf("  film width %g, offset lens %d: %g %g %g %g %g\n", c.filmWidth, c.offsetLens, c.lens[0],
           c.lens[1], c.lens[2], c.lens[3], c.lens[4]);
    if (c.customBlocks) dumpBlocks(1, *c.customBlocks);
    dumpPathRefs();
    cameraFreeData(c);
}

void dumpLight(BinReader &r, const Prototype &, const char *) {
    Light *l = lightRead(r);
    if (!l) {
        printf("  no light record\n");
        dumpPathRefs();
        return;
    }
    printf("  light \"%s\" type %u\n", l->name, l->type);
    print3(2, "colour", l->colour);
    print3(2, "position", l->position);
    print3(2, "interest", l->interest);
    printf("    factor %g, cone %g, spread %g\n", l->factor, l->coneAngle, l->spreadAngle);
    printf("    falloff %g to %g%s\n", l->falloff[0], l->falloff[1], l->falloffOn ? "" : " (none)");
    printf("    shadow %u, selection %u, area shape %d\n", l->shadow, l->display.selection, l->areaShape);
    if (l->mapName) printf("    map \"%s\"\n", l->mapName);
    for (const CustomShader *s : l->shaders)
        if (s) dumpShader(2, "shader", *s);
    if (l->customBlocks) dumpBlocks(2, *l->customBlocks);
    dumpPathRefs();
    lightFree(l);
}

void dumpLattice(BinReader &r, const Prototype &, const char *) {
    Lattice *l = latticeRead(r);
    for (int32_t k = 0; l && k < l->keyCount; ++k) {
        const LatticeKey &key = l->keys[k];
        printf("  key %d: kind %u, divisions %u %u %u, %d points\n", k + 1, key.kind, key.divisions[0],
               key.divisions[1], key.divisions[2], key.pointCount);
    }
    if (!l || l->keyCount == 0) printf("  no keys\n");
    latticeFree(l);
}

struct DumpEntry {
    uint32_t id;  // file id
    DumpFn dump;  // reads and prints the records
    int tagged;   // 1: a chunk tag stands behind the table; 0: the records follow at once;
                  // -1: the tokens follow the header, with no table
};

constexpr DumpEntry dumpers[] = {
    {BIN_ID_MATERIAL, dumpMaterialFile, 1},
    {BIN_ID_TEXTURE2D, dumpTexture2DFile, 1},
    {BIN_ID_TEXTURE3D, dumpTexture3DFile, 1},
    {BIN_ID_GENERAL, dumpModel, 1},
    {BIN_ID_MODEL, dumpModel, 1},
    {BIN_ID_ANIMATION, dumpAnimation, 0},
    {BIN_ID_STRUCT_KEYS, dumpAnimation, 0},
    {BIN_ID_SHAPE_KEYS, dumpShapes, 0},
    {BIN_ID_CLUSTER_KEYS, dumpClusters, 0},
    {BIN_ID_CAMERA, dumpCamera, -1},
    {BIN_ID_LIGHT, dumpLight, -1},
    {BIN_ID_LATTICE, dumpLattice, -1},
};

const DumpEntry *dumperOf(uint32_t id) {
    for (const DumpEntry &e : dumpers)
        if (e.id == id) return &e;
    return nullptr;
}

void printPrototypes(const Prototype &proto) {
    bool any = false;
    for (int id = 0; id < PROTO_ID_COUNT; ++id) {
        const std::vector<uint16_t> &list = proto.lists[id];
        if (list.empty()) continue;
        if (!any) printf("  prototypes:\n");
        any = true;
        printf("    record %d:", id);
        for (size_t i = 0; i + 1 < list.size(); ++i) printToken(list[i]);
        printf("\n");
    }
    if (!any) printf("  prototypes: none\n");
}

// Prints the name of a binary id or ascii magic, or its number.
void printKind(const char *file, uint32_t magic) {
    const char *name = fileTypeName(magic);
    if (name) printf("%s: %s\n", file, name);
    else printf("%s: file kind 0x%08X\n", file, magic);
}

// 1 when the file was read whole.
int inspect(const char *file) {
    BinReader r;
    if (!binReaderOpen(r, file)) {
        fprintf(stderr, "bwinfo: %s: %s\n", file, r.error.c_str());
        return 0;
    }
    char comment[BIN_COMMENT_SIZE + 1];
    float version = 0;
    int32_t id = binReadHeader(r, &version, comment);
    if (id < 0) {
        int isAscii = 0;
        int32_t magic = fileReadMagic(r, &isAscii, &version);
        binReaderClose(r);
        if (magic < 0) {
            fprintf(stderr, "bwinfo: %s: not an element or ascii file of the family\n", file);
            return 0;
        }
        printKind(file, static_cast<uint32_t>(magic));
        if (static_cast<uint32_t>(magic) == MAGIC_SSCN) printf("  version: none\n");
        else printf("  version: %g\n", version);
        return 1;
    }
    printKind(file, static_cast<uint32_t>(id));
    printf("  version: %g\n", version);
    printf("  comment: \"%s\"\n", comment);
    Prototype proto;
    char tag[5] = {};
    const DumpEntry *entry = dumperOf(static_cast<uint32_t>(id));
    if (entry && entry->tagged <= 0) {
        if (entry->tagged == 0) animReadProto(r, proto);
        printPrototypes(proto);
        if (!r.failed) entry->dump(r, proto, tag);
    } else {
        if (binReadTag(r, tag) && strcmp(tag, "PROT") == 0 && protoRead(r, proto)) binReadTag(r, tag);
        printPrototypes(proto);
        if (!r.failed) {
            printf("  chunk: \"%s\"\n", tag);
            if (entry) entry->dump(r, proto, tag);
            else printf("  records of this kind are not dumped\n");
        }
    }
    int whole = !r.failed;
    if (!whole)
        printf("bwinfo: %s: reading stopped at offset %lld: %s\n", file, static_cast<long long>(r.pos),
               r.error.c_str());
    binReaderClose(r);
    return whole;
}

}  // namespace

int main(int argc, char *argv[]) {
    if (argc < 2 || strcmp(argv[1], "-h") == 0) {
        FILE *out = argc < 2 ? stderr : stdout;
        fprintf(out, "Usage: bwinfo FILE...\n");
        return argc < 2 ? 1 : 0;
    }
    int status = 0;
    for (int i = 1; i < argc; ++i) {
        if (!inspect(argv[i])) status = 1;
        fflush(stdout);
    }
    return status;
}
