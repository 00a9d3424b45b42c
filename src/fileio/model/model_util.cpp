// Model nodes in memory: making, transforms, search by name, release, and the
// per-type geometry tables.
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "database.h"
#include "dictionary.h"
#include "graphic.h"
#include "animation.h"
#include "model_internal.h"

namespace {

template <class T, T *(*F)(BinReader &, const Prototype *)>
void *readAs(BinReader &r, const Prototype *proto, Model *) { return F(r, proto); }
template <class T, T *(*F)(BinReader &, const Prototype *, Model *)>
void *readWithNode(BinReader &r, const Prototype *proto, Model *node) { return F(r, proto, node); }
template <class T, int (*F)(BinWriter &, const Prototype *, const T *)>
int writeAs(BinWriter &w, const Prototype *proto, const void *g) { return F(w, proto, static_cast<const T *>(g)); }

struct EmptyGeometry {
    Patch patch;
    Face face;
    Mesh mesh;
    Spline spline;
    MetaGroup meta;
    ModelRef ref;
    NurbsCurve curve;
    NurbsSurface surface;
};
const EmptyGeometry EMPTY{};

void identity(float m[4][4]) {
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k) m[i][k] = i == k ? 1.0f : 0.0f;
}

// A node is free for an element while no element holds it, or its element
// is a fresh one still waiting for its data.
int nodeIsFree(Dictionary *dict, const Model *node) {
    if (node->elementIndex < 0 || !dict) return 1;
    if (CHP_MODELS >= static_cast<int>(dict->chapters.size())) return 1;
    const Chapter &chapter = dict->chapters[CHP_MODELS];
    if (node->elementIndex >= chapter.elementCount) return 1;
    const Element &e = chapter.elements[node->elementIndex];
    return e.isNew == 1 && !e.data;
}

}  // namespace

const GeoReadFn MODEL_GEO_READ[MODEL_TYPE_END] = {
    nullptr,                                              // 0
    readAs<Patch, readPatch>,                             // 1
    readAs<Face, readFace>,                               // 2
    nullptr,                                              // 3
    readWithNode<Mesh, readMesh>,                         // 4
    nullptr,                                              // 5
    readAs<Spline, readSpline>,                           // 6
    readAs<MetaGroup, readMetaGroup>,                     // 7
    readWithNode<ModelRef, readModelRef>,                 // 8
    readAs<NurbsCurve, readNurbsCurve>,                   // 9
    readAs<NurbsSurface, readNurbsSurface>,               // 10
};

const GeoWriteFn MODEL_GEO_WRITE[MODEL_TYPE_END] = {
    nullptr,
    writeAs<Patch, writePatch>,
    writeAs<Face, writeFace>,
    nullptr,
    writeAs<Mesh, writeMesh>,
    nullptr,
    writeAs<Spline, writeSpline>,
    writeAs<MetaGroup, writeMetaGroup>,
    writeAs<ModelRef, writeModelRef>,
    writeAs<NurbsCurve, writeNurbsCurve>,
    writeAs<NurbsSurface, writeNurbsSurface>,
};

const void *modelEmptyGeometry(int32_t type) {
    const void *table[MODEL_TYPE_END] = {nullptr, &EMPTY.patch, &EMPTY.face, nullptr, &EMPTY.mesh, nullptr,
                                         &EMPTY.spline, &EMPTY.meta, &EMPTY.ref, &EMPTY.curve, &EMPTY.surface};
    return type >= 0 && type < MODEL_TYPE_END ? table[type] : nullptr;
}

void modelListsFree(Model *n, int materials, int textures2D) {
    if (materials) {
        for (int i = 0; n->materials && i < n->materialCount; ++i) delete n->materials[i];
        free(n->materials);
        n->materials = nullptr;
        n->materialCount = 0;
    }
    if (textures2D) {
        for (int i = 0; n->textures2D && i < n->texture2DCount; ++i) delete n->textures2D[i];
        free(n->textures2D);
        n->textures2D = nullptr;
        n->texture2DCount = 0;
    }
}

void modelBlobFree(ModelBlob *blob) {
    if (!blob) return;
    free(blob->bytes);
    free(blob);
}

void (*g_modelExtraFree)(Model *node) = nullptr;

void modelClearFields(Model *n, int keepName) {
    if (g_modelExtraFree) g_modelExtraFree(n);
    // The chain record is plain memory that the reader may have made while
    // no evaluation library is linked in.
    free(n->chain);
    n->chain = nullptr;
    // The envelope record is read here; without the evaluation linked in it goes here too.
    envelopeDataFree(n->envelope);
    n->envelope = nullptr;
    if (!keepName) { free(n->name); n->name = nullptr; }
    geometryFree(n->type, n->geometry.any);
    n->geometry.any = nullptr;
    modelListsFree(n, 1, 1);
    delete n->texture3D;
    n->texture3D = nullptr;
    modelBlobFree(n->matterRecord);
    modelBlobFree(n->jointRecord);
    n->matterRecord = n->jointRecord = nullptr;
    free(n->animBlock);
    free(n->shapes);
    free(n->constraintData);
    free(n->uvDomains);
    n->animBlock = n->shapes = n->constraintData = n->uvDomains = nullptr;
    n->animBlockSize = n->shapesSize = n->constraintSize = n->uvDomainsSize = 0;
    for (int32_t i = 0; n->clusters && i < n->clusterCount; ++i) free(n->clusters[i].bytes);
    free(n->clusters);
    n->clusters = nullptr;
    n->clusterCount = 0;
    delete n->customBlocks;
    n->customBlocks = nullptr;
}

Model *modelNew(const char *name, int32_t type, void *geometry) {
    static std::atomic<int> running{0};
    Model *n = static_cast<Model *>(calloc(1, sizeof(Model)));
    if (!n) return nullptr;
    char made[32];
    if (!name) {
        snprintf(made, sizeof made, "obj%1hd", static_cast<short>(running++));
        name = made;
    }
    size_t len = strlen(name) + 1;
    n->name = static_cast<char *>(malloc(len));
    if (!n->name) { free(n); return nullptr; }
    memcpy(n->name, name, len);
    n->type = type;
    n->geometry.any = geometry;
    n->scaling[0] = n->scaling[1] = n->scaling[2] = 1.0f;
    n->uvDomainCount = 1;
    n->elementIndex = -1;
    n->versionStamp = BIN_VERSION;
    identity(n->rotMatrix);
    identity(n->localMatrix);
    identity(n->globalMatrix);
    // Neutral transform state until the first evaluation.
    for (int i = 0; i < 3; ++i) n->parentScale[i] = n->globalScale[i] = n->classicalScale[i] = 1.0f;
    identity(n->parentRotation);
    identity(n->globalRotation);
    identity(n->relativeMatrix);
    identity(n->classicalRotation);
    n->visible = 1;
    return n;
}

void modelAddChild(Model *parent, Model *child) {
    if (!parent || !child) return;
    child->parent = parent;
    Model **slot = &parent->firstChild;
    while (*slot) slot = &(*slot)->nextSibling;
    *slot = child;
}

void modelUpdateTransform(Model *n) {
    // Row vectors: v' = v S Rx Ry Rz T.
    float c[3], s[3];
    for (int i = 0; i < 3; ++i) {
        c[i] = std::cos(n->rotation[i]);
        s[i] = std::sin(n->rotation[i]);
    }
    const float rx[3][3] = {{1, 0, 0}, {0, c[0], s[0]}, {0, -s[0], c[0]}};
    const float ry[3][3] = {{c[1], 0, -s[1]}, {0, 1, 0}, {s[1], 0, c[1]}};
    const float rz[3][3] = {{c[2], s[2], 0}, {-s[2], c[2], 0}, {0, 0, 1}};
    float rxy[3][3] = {};
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k)
            for (int j = 0; j < 3; ++j) rxy[i][k] += rx[i][j] * ry[j][k];
    identity(n->rotMatrix);
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) {
            float sum = 0;
            for (int j = 0; j < 3; ++j) sum += rxy[i][j] * rz[j][k];
            n->rotMatrix[i][k] = sum;
        }
    identity(n->localMatrix);
    for (int i = 0; i < 3; ++i) {
        for (int k = 0; k < 3; ++k) n->localMatrix[i][k] = n->scaling[i] * n->rotMatrix[i][k];
        n->localMatrix[3][i] = n->translation[i];
    }
    if (!n->parent) {
        memcpy(n->globalMatrix, n->localMatrix, sizeof n->globalMatrix);
        return;
    }
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k) {
            float sum = 0;
            for (int j = 0; j < 4; ++j) sum += n->localMatrix[i][j] * n->parent->globalMatrix[j][k];
            n->globalMatrix[i][k] = sum;
        }
}

Model *modelFindByName(Dictionary *dict, Model *node, const char *name) {
    if (!node || !name) return nullptr;
    std::vector<Model *> stack{node};
    while (!stack.empty()) {
        Model *n = stack.back();
        stack.pop_back();
        if (n->name && strcmp(n->name, name) == 0 && nodeIsFree(dict, n)) return n;
        // Children before siblings; the start node's own siblings are not under it.
        if (n != node && n->nextSibling) stack.push_back(n->nextSibling);
        if (n->firstChild) stack.push_back(n->firstChild);
    }
    return nullptr;
}

Model *modelTreeNext(const Model *node, const Model *top) {
    if (!node) return nullptr;
    if (node->firstChild) return node->firstChild;
    for (const Model *n = node; n && n != top; n = n->parent)
        if (n->nextSibling) return n->nextSibling;
    return nullptr;
}

namespace {

// The display form is plain malloc'd memory (computed UV lie in the vertex
// block), released here without the graphic library. A display list that
// took a stream over is not deleted: that needs the GL context's thread,
// where modelDropStrips is the way.
void displayFormFree(Model *n) {
    free(n->vertices);
    free(n->triangles);
    if (n->tmesh) free(n->tmesh->stream);
    free(n->tmesh);
    n->vertices = nullptr;
    n->triangles = nullptr;
    n->tmesh = nullptr;
    n->vertexCount = n->triangleCount = 0;
}

}  // namespace

void modelFree(Model *root) {
    // By a stack of our own, since a file may nest nodes deeper than the
    // call stack would allow.
    std::vector<Model *> stack;
    if (root) stack.push_back(root);
    while (!stack.empty()) {
        Model *n = stack.back();
        stack.pop_back();
        if (n->firstChild) stack.push_back(n->firstChild);
        if (n->nextSibling) stack.push_back(n->nextSibling);
        displayFormFree(n);
        modelClearFields(n, 0);
        free(n);
    }
}
