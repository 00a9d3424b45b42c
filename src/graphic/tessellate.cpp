// Tessellation of a model into the display form: the dispatch by type, the
// box form, and the writers of vertex and triangle arrays shared by the
// routines of each type.
#include <algorithm>
#include <cfloat>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <thread>
#include <vector>

#include "animation.h"
#include "tess_internal.h"

void tessFatal() {
    msgError("SYSALLOC failed, not enough system memory");
    exit(1);
}

void *tessAlloc(size_t count, size_t size) {
    if (count == 0 || size == 0) return nullptr;
    void *block = count > SIZE_MAX / size ? nullptr : calloc(count, size);
    if (!block) tessFatal();
    return block;
}

void *tessGrow(void *block, size_t count, size_t size) {
    void *grown = count > SIZE_MAX / size ? nullptr : realloc(block, count * size);
    if (!grown && count) tessFatal();
    return grown;
}

int g_tessThreads = 0;

void tessParallel(int64_t count, int64_t grain, const std::function<void(int64_t, int64_t)> &fn) {
    if (count <= 0) return;
    const int64_t cores = g_tessThreads > 0 ? g_tessThreads : std::clamp<int64_t>(std::thread::hardware_concurrency(), 1, 4);
    const int64_t ranges = std::clamp<int64_t>(grain > 0 ? count / grain : 1, 1, cores);
    std::vector<std::thread> others;
    for (int64_t r = 1; r < ranges; ++r) {
        const int64_t begin = count * r / ranges, end = count * (r + 1) / ranges;
        try {
            others.emplace_back(fn, begin, end);
        } catch (const std::system_error &) {
            fn(begin, end);  // no thread to be had: this one does it
        }
    }
    fn(0, count / ranges);
    for (std::thread &t : others) t.join();
}

void tessArraysNew(Model *model, int64_t vertexCount, int64_t triangleCount) {
    // The records count in 32 bits.
    if (vertexCount > INT32_MAX || triangleCount > INT32_MAX) tessFatal();
    const size_t nv = static_cast<size_t>(vertexCount), nt = static_cast<size_t>(triangleCount);
    // One block: the records, then a UV pair per vertex (tessUvSlot).
    model->vertices = static_cast<TessVertex *>(tessAlloc(nv, sizeof(TessVertex) + 2 * sizeof(float)));
    model->triangles = static_cast<TessTriangle *>(tessAlloc(nt, sizeof(TessTriangle)));
    model->vertexCount = static_cast<int32_t>(vertexCount);
    model->triangleCount = static_cast<int32_t>(triangleCount);
}

void tessVertexSet(TessVertex *v, float u, float w, const float pos[3], const float normal[3]) {
    v->u = u;
    v->v = w;
    memcpy(v->pos, pos, sizeof v->pos);
    memcpy(v->refPos, pos, sizeof v->refPos);
    memcpy(v->normal, normal, sizeof v->normal);
    v->uv = nullptr;
    v->colour = TESS_DEFAULT_COLOUR;
}

void tessTrianglesLink(Model *model, int32_t count) {
    model->triangleCount = count;
    for (int32_t i = 0; i < count; ++i)
        model->triangles[i].next = i + 1 < count ? &model->triangles[i + 1] : nullptr;
    if (count == 0) {
        // Nothing to draw: no records at all.
        free(model->triangles);
        free(model->vertices);
        model->triangles = nullptr;
        model->vertices = nullptr;
        model->vertexCount = 0;
    }
}

void tessTrianglesMaterial(Model *model, Material *material, uint16_t index) {
    for (int32_t i = 0; i < model->triangleCount; ++i) {
        model->triangles[i].material = material;
        model->triangles[i].materialIndex = index;
    }
}

Material *tessFirstMaterial(const Model *model) {
    return model->materials && model->materialCount > 0 ? model->materials[0] : nullptr;
}

namespace {

void boxAdd(float lo[3], float hi[3], const float *p) {
    for (int k = 0; k < 3; ++k) {
        if (p[k] < lo[k]) lo[k] = p[k];
        if (p[k] > hi[k]) hi[k] = p[k];
    }
}

void boxAddSpline(float lo[3], float hi[3], const Spline &s) {
    for (int i = 0; s.vertices && i < s.vertexCount; ++i) boxAdd(lo, hi, s.vertices[i].pos);
}

void boxAddHomogeneous(float lo[3], float hi[3], const double (*cvs)[4], int64_t count) {
    for (int64_t i = 0; cvs && i < count; ++i) {
        const float p[3] = {static_cast<float>(cvs[i][0]), static_cast<float>(cvs[i][1]),
                            static_cast<float>(cvs[i][2])};
        boxAdd(lo, hi, p);
    }
}

// The box of the points that define the model's geometry, in its own
// coordinates. 0 when it has none.
int modelLocalBox(const Model *m, float lo[3], float hi[3]) {
    for (int k = 0; k < 3; ++k) {
        lo[k] = FLT_MAX;
        hi[k] = -FLT_MAX;
    }
    const ModelGeometry &g = m->geometry;
    if (!g.any) return 0;
    switch (m->type) {
    case MODEL_PATCH:
        for (int64_t i = 0; g.patch->cvs && i < int64_t{g.patch->uCount} * g.patch->vCount; ++i)
            boxAdd(lo, hi, g.patch->cvs[i]);
        break;
    case MODEL_FACE:
        boxAddSpline(lo, hi, g.face->boundary);
        break;
    case MODEL_MESH:
        for (int32_t i = 0; g.mesh->vertices && i < g.mesh->vertexCount; ++i) boxAdd(lo, hi, g.mesh->vertices[i].pos);
        break;
    case MODEL_SPLINE:
        boxAddSpline(lo, hi, *g.spline);
        break;
    case MODEL_NURBS_CURVE:
        boxAddHomogeneous(lo, hi, g.curve->cvs, g.curve->cvCount);
        break;
    case MODEL_NURBS_SURFACE:
        boxAddHomogeneous(lo, hi, g.surface->cvs, int64_t{g.surface->cvCount[0]} * g.surface->cvCount[1]);
        break;
    default:
        break;
    }
    return lo[0] <= hi[0];
}

}  // namespace

int tessellateBox(Model *model) {
    float lo[3], hi[3];
    if (!modelLocalBox(model, lo, hi)) return 0;
    // Four corners per face, counter-clockwise seen from outside; a corner is
    // bits x, y, z (0 low, 1 high).
    static const int8_t faces[6][4] = {
        {0, 4, 6, 2}, {1, 3, 7, 5},  // -x, +x
        {0, 1, 5, 4}, {2, 6, 7, 3},  // -y, +y
        {0, 2, 3, 1}, {4, 5, 7, 6},  // -z, +z
    };
    tessArraysNew(model, 24, 12);
    for (int f = 0; f < 6; ++f) {
        float normal[3] = {0, 0, 0};
        normal[f / 2] = f % 2 ? 1.0f : -1.0f;
        for (int k = 0; k < 4; ++k) {
            const int c = faces[f][k];
            const float p[3] = {c & 1 ? hi[0] : lo[0], c & 2 ? hi[1] : lo[1], c & 4 ? hi[2] : lo[2]};
            tessVertexSet(&model->vertices[4 * f + k], (k == 1 || k == 2) ? 1.0f : 0.0f, k >= 2 ? 1.0f : 0.0f, p,
                          normal);
        }
        TessVertex *v = &model->vertices[4 * f];
        TessTriangle *t = &model->triangles[2 * f];
        t[0].v[0] = &v[0]; t[0].v[1] = &v[1]; t[0].v[2] = &v[2];
        t[1].v[0] = &v[0]; t[1].v[1] = &v[2]; t[1].v[2] = &v[3];
    }
    tessTrianglesLink(model, 12);
    tessTrianglesMaterial(model, tessFirstMaterial(model), 0);
    return 0;
}

namespace {

// The shape to tessellate and the one its reference positions come from.
// Mode 2 takes the pair of the current time: the current geometry, and the
// model's first key as reference unless `shapeIndex` names another key. Any
// other mode uses the chosen shape in both roles. A shape that does not
// exist falls back on the current geometry.
void tessShapes(const Model *model, int chooseShape, int shapeIndex, void **shape, void **reference) {
    void *current = model->geometry.any;
    if (chooseShape == 2) {
        *shape = current;
        void *ref = shapeGeometry(model, shapeIndex > 0 ? shapeIndex : 1);
        *reference = ref ? ref : current;
        return;
    }
    void *chosen = shapeGeometry(model, shapeIndex);
    *shape = *reference = chosen ? chosen : current;
}

}  // namespace

int tessellateModel(Model *model, int chooseShape, int shapeIndex, int precision) {
    if (!model) return 9;
    tessArraysDrop(model);
    if (model->box) {
        if (model->type == MODEL_NULL || model->type == MODEL_BARE || model->type == MODEL_BARE5) return 0;
        return tessellateBox(model);
    }
    if (!model->geometry.any) return 0;
    if (model->displayFlags & MODEL_NORMALS_STALE) {
        geometryRefresh(model->type, model->geometry.any);
        model->displayFlags &= static_cast<uint8_t>(~MODEL_NORMALS_STALE);
    }
    void *shape = nullptr, *reference = nullptr;
    tessShapes(model, chooseShape, shapeIndex, &shape, &reference);
    switch (model->type) {
    case MODEL_PATCH:
        return tessellatePatch(model, static_cast<Patch *>(shape), static_cast<Patch *>(reference), precision);
    case MODEL_FACE:
        return tessellateFace(model, static_cast<Face *>(shape), static_cast<Face *>(reference));
    case MODEL_MESH:
        return tessellateMesh(model, static_cast<Mesh *>(shape), static_cast<Mesh *>(reference), model->materials,
                              model->materials ? model->materialCount : 0, 0);
    case MODEL_META:
        return tessellateMeta(model);
    case MODEL_NURBS_SURFACE:
        return tessellateNurbs(model, static_cast<NurbsSurface *>(shape),
                               static_cast<NurbsSurface *>(reference), precision);
    default:
        return 0;
    }
}
