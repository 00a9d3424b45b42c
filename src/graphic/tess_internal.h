// Inside the tessellation and the strip build: the display-form writers, the
// readings of record fields that the file readers keep raw, the patch
// evaluator, the polygon triangulator and the routines of each model type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "geometry.h"
#include "graphic.h"
#include "model.h"

// Source name of the strip build in its messages.
constexpr const char *GR_TRIANGLE_SOURCE = "graphic/grTriangle";

// Model display flags.

// Allocation that cannot fail: a refusal stops the program with the system's
// fatal report. Sizes are checked for overflow the same way.
[[noreturn]] void tessFatal();
void *tessAlloc(size_t count, size_t size);
void *tessGrow(void *block, size_t count, size_t size);

// Runs fn(begin, end) over [0, count) cut into one range per core (at most
// four), the calling thread taking the first, and returns when all are done.
// The big loops of one model's build have independent iterations, and the
// other cores are idle while a big model is prepared. Fewer than `grain`
// iterations a range run here alone.
void tessParallel(int64_t count, int64_t grain, const std::function<void(int64_t, int64_t)> &fn);
// Iterations below which a range is not worth a thread of its own.
constexpr int64_t TESS_GRAIN = 16384;
// Ranges tessParallel cuts at most; 0 (the default) for one per core, at most four.
extern int g_tessThreads;

// Puts fresh arrays of `vertexCount` vertices (with their UV slots) and
// `triangleCount` triangles on the model, zeroed; counts are set.
void tessArraysNew(Model *model, int64_t vertexCount, int64_t triangleCount);
// Writes a vertex with the defaults: colour, null UV, reference = position.
void tessVertexSet(TessVertex *v, float u, float w, const float pos[3], const float normal[3]);
// Links triangles [0, count) in order and gives them `material` / `index`;
// sets the model's triangle count to `count`.
void tessTrianglesLink(Model *model, int32_t count);
void tessTrianglesMaterial(Model *model, Material *material, uint16_t index);
// The model's first own material, or null.
Material *tessFirstMaterial(const Model *model);
// The dictionary of the scene being preprocessed, else the calling thread's;
// null for none.
struct Dictionary;
Dictionary *tessDictionary();

// ---------------------------------------------------------------------------
// Field readings. The file readers keep a patch's step words and a NURBS
// surface's integer words as read; these are the meanings the display gives
// them.

inline uint16_t patchStepU(const Patch *p) { return static_cast<uint16_t>(p->step[0]); }
inline uint16_t patchStepV(const Patch *p) { return static_cast<uint16_t>(p->step[1]); }
inline int32_t nurbsStepU(const NurbsSurface *s) { return s->values[0]; }
inline int32_t nurbsStepV(const NurbsSurface *s) { return s->values[1]; }
// A surface is trimmed when it carries trim records.
inline bool nurbsTrimmed(const NurbsSurface *s) { return s->trimCount > 0; }
// Surface CVs lie u fastest: index = v * cvCount[0] + u. A CV is a point and
// its weight; its homogeneous form is (x w, y w, z w, w).

// Linear and Bezier spans keep their own boundary row at a span seam.
inline bool patchOwnRows(int32_t basis) { return basis == PATCH_LINEAR || basis == PATCH_BEZIER; }

// The grid of a patch evaluated at `stepU` x `stepV` samples per span, in the
// tessellation's vertex order (u-major: index = i * countV + j). A closed
// direction leaves out its last row, which is its first.
struct PatchGrid {
    int32_t countU, countV;  // samples per direction
    float (*pos)[3];         // point per sample
    float (*normal)[3];      // unit normal per sample, facing the triangles' front
    float *paramU;           // u of each row, 0 to 1 over the whole patch
    float *paramV;           // v of each column
};
// Fills `grid` (tessAlloc'd arrays); 0 spans or steps give an empty grid.
void patchEvaluate(const Patch *patch, int stepU, int stepV, PatchGrid *grid);
void patchGridFree(PatchGrid *grid);

// ---------------------------------------------------------------------------
// Polygon triangulation by ear clipping in a plane.
//
// `points` holds the loops one after the other: `counts[0]` points of the
// outer loop, then each hole. Writes triples of point indices to `out`, room
// for (points + 2 x holes - 2) triples, keeping the outer loop's turning
// sense. Returns the number of triangles, or -1 for degenerate input (fewer
// than three points, no area, crossing loops that leave no ear).
int polygonTriangulate(const double (*points)[2], const int *counts, int loopCount, int *out);
// The same for a polygon in space: projected on the plane of its points
// first. Returns -1 also when the points span no plane.
int polygonTriangulate3D(const float (*points)[3], const int *counts, int loopCount, int *out);

// ---------------------------------------------------------------------------
// Routines of each model type. Each starts from a model without geometry.

int tessellateBox(Model *model);
int tessellatePatch(Model *model, Patch *shape, Patch *reference, int precision);
int tessellateFace(Model *model, Face *shape, Face *reference);
int tessellateMesh(Model *model, Mesh *shape, Mesh *reference, Material **materials, int materialCount,
                   int allHard);
int tessellateMeta(Model *model);

// The polygonising pass of a meta group: the surface where the summed field
// of its clay balls reaches META_THRESHOLD, in the group's coordinates.
// Triangles are wound clockwise seen from outside, the pass's own sense;
// normals point outwards. Arrays are tessAlloc'd.
constexpr double META_THRESHOLD = 0.5625;
struct MetaSurface {
    int32_t pointCount;        // entries of points and normals
    float (*points)[3];        // vertex positions
    float (*normals)[3];       // unit normals
    int32_t triangleCount;     // entries of triangles
    int32_t (*triangles)[3];   // point indices
};
void metaPolygonise(const Model *group, MetaSurface *out);
void metaSurfaceFree(MetaSurface *surface);
int tessellateNurbs(Model *model, NurbsSurface *shape, NurbsSurface *reference, int precision);

// The plain NURBS tessellator; with `params` not null it also hands back the
// knot values (u, v) of each vertex (tessAlloc'd, 2 per vertex).
void tessellateNurbsPlain(Model *model, const NurbsSurface *shape, const NurbsSurface *reference,
                          float **params);

// Converts a face to a mesh of triangles on its plane; null when the face
// has no usable boundary.
Mesh *faceToMesh(const Face *face);

// Samples a NURBS curve, `step` points per non-empty span and its end, into
// points (x, y, z); returns their count (tessAlloc'd array in `out`).
int nurbsCurveSample(const NurbsCurve *curve, int step, float (**out)[3]);

// modelCreateTmesh's output, kept for the stream compile: per strip a
// material token, the vertex indices, an end.
constexpr int32_t TMESH_MATERIAL = -4;   // followed by the material slot
constexpr int32_t TMESH_STRIP_END = -1;  // closes a strip
struct TmeshBuild {
    TmeshHeader *header;     // the new header, swapped onto the model at the end
    int32_t *cells;          // output, 6 per triangle at most
    int64_t count;           // cells used
    Material **materials;    // material of each slot; null for the default
    int32_t materialCount;   // slots used
};
// Builds the strips of the model's (sorted) triangles. 1, or 0 with the
// report on standard error.
int modelCreateTmesh(Model *model, TmeshBuild *build);
void tmeshBuildFree(TmeshBuild *build);
