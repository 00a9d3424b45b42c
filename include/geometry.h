// Geometry records of model nodes: meshes, patches, faces, splines, NURBS
// curves and surfaces, meta groups and model references, as held in memory and
// as stored in binary model files. Arrays are malloc'd and owned by their
// record; the free functions release a record and everything under it.
#pragma once

#include <cstdint>

#include "fileio.h"

struct Model;

// Node types: the `type` word of a Model picks its geometry record.
enum ModelType : int32_t {
    MODEL_NULL = -1,       // null node
    MODEL_BARE = 0,        // node without geometry
    MODEL_PATCH = 1,       // Patch
    MODEL_FACE = 2,        // Face
    MODEL_BARE3 = 3,       // node without geometry
    MODEL_MESH = 4,        // Mesh
    MODEL_BARE5 = 5,       // node without geometry
    MODEL_SPLINE = 6,      // Spline
    MODEL_META = 7,        // MetaGroup
    MODEL_REF = 8,         // ModelRef
    MODEL_NURBS_CURVE = 9, // NurbsCurve
    MODEL_NURBS_SURFACE = 10,  // NurbsSurface
    MODEL_TYPE_END = 11,   // one past the last type
};

// Record ids of the prototype table.
enum GeoRecordId : int {
    REC_SPLINE = 3, REC_MODEL = 5, REC_PATCH = 6, REC_FACE = 7, REC_MESH = 8,
    REC_EDGE = 9, REC_POLYGON = 10, REC_POLYNODE = 11, REC_VERTEX = 12,
    REC_MATERIAL = 13, REC_TEXTURE2D = 14, REC_TEXTURE3D = 15, REC_SPLINE_VERTEX = 18,
    REC_DYNA_MATTER = 19, REC_DYNA_ENTRY = 20, REC_CHAIN = 21, REC_CHAIN_ELEM = 22,
    REC_DEFORM = 23, REC_MODEL_REF = 24, REC_META = 25, REC_META_MEMBER = 26,
    REC_META_PAIR = 27, REC_RESERVED28 = 28, REC_NURBS_CURVE = 29,
    REC_NURBS_SURFACE = 30, REC_TRIM = 31,
};

// Versions at which a field's form changed without a new token.
constexpr float MESH_ALPHA_VERSION = 3.0f;     // colours older than this have no alpha
constexpr float NURBS_CV_FLAG_VERSION = 3.0f;  // curve CVs carry an i32 from this on

// ---------------------------------------------------------------------------
// Surface approximation

enum : uint16_t { APPROX_PIXEL = 0, APPROX_SYSTEM = 1 };       // units
enum : uint16_t { APPROX_CURVATURE = 1, APPROX_SPACIAL = 2 };  // type; not 2 is curvature

struct SurfaceApprox {
    uint16_t units;        // APPROX_PIXEL or APPROX_SYSTEM
    float spacial;         // spacial step
    float spacialLength;   // spacial length
    float spacialAngle;    // spacial angle, degrees
    uint16_t subdMin;      // fewest subdivisions
    uint16_t subdMax;      // most subdivisions
    uint16_t subdLimits;   // boolean: subd min and max apply
    uint16_t type;         // APPROX_SPACIAL, anything else curvature
    uint16_t useApprox;    // boolean: use surface approximation
};

// ---------------------------------------------------------------------------
// Mesh

constexpr int MESH_EDGE_BLOCK_BITS = 10;                    // edges lie in blocks of 1024
constexpr int32_t MESH_EDGE_BLOCK = 1 << MESH_EDGE_BLOCK_BITS;
constexpr uint16_t MESH_FLAG_TOKEN1 = 2;                    // flags bit set by token 1
constexpr uint16_t MESH_FLAG_SCALED = 4;                    // flags bit: drawn without the model's second scale

struct MeshNeighbour {
    int32_t vrt;  // vertex at the other end of the edge
    int32_t edg;  // the edge
    int32_t pol;  // polygon on the side from this vertex to vrt; -1 for none
};

struct MeshVertex {
    float pos[3];               // position
    MeshNeighbour *neighbours;  // derived on read; null for none
    uint16_t neighbourCount;    // entries of neighbours
    uint16_t flag;              // vertex flag
};

struct MeshNode {
    int32_t vrt;      // vertex index
    int32_t edg;      // edge to the next node of the polygon; derived, -1 for none
    float nrm[3];     // node normal
    float u, v;       // first UV domain
    uint32_t colour;  // RGBA, alpha in the top byte
    float *uvs;       // (uvDomainCount - 1) u, v pairs; null with one domain
};

struct MeshPolygon {
    float nrm[3];       // polygon normal
    MeshNode *nodes;    // nodeCount entries
    uint16_t nodeCount; // corners
    uint16_t material;  // index into the node's material list
    uint16_t flg;       // polygon flag
};

struct MeshEdge {
    int32_t vrt[2];  // end vertices
    int32_t pol[2];  // polygons on each side, -1 for none; derived on read
    uint16_t flg;    // edge flag
    uint16_t extra;  // run-time word
};

struct Mesh {
    MeshVertex *vertices;       // vertexCount entries
    MeshPolygon *polygons;      // polygonCount entries
    MeshEdge **edgeBlocks;      // blocks of MESH_EDGE_BLOCK edges
    float discontinuity;        // degrees above which a shared edge is hard
    float cosDiscontinuity;     // cos(discontinuity)
    int32_t vertexCount;        // entries of vertices
    int32_t polygonCount;       // entries of polygons
    int32_t edgeCount;          // edges in edgeBlocks
    uint16_t flags;             // MESH_FLAG_TOKEN1 and others
    SurfaceApprox approx;       // approximation settings
    int32_t uvDomainCount;      // 1 + extra UV domains; copied to the node on read
    // One block holding the node lists of polygons read together, freed as a
    // whole; null when every polygon's list is its own malloc'd block. A
    // polygon whose nodes lie in it must not have them freed alone.
    MeshNode *nodeBlock;
    int64_t nodeBlockCount;     // entries of nodeBlock
    // One block holding every vertex's neighbour list, made by meshLink; a
    // vertex whose list lies in it must not have it freed alone.
    MeshNeighbour *neighbourBlock;
    int64_t neighbourBlockCount;  // entries of neighbourBlock
};

// True when `nodes` lies in the mesh's shared node block.
inline bool meshNodesInBlock(const Mesh *mesh, const MeshNode *nodes) {
    auto at = reinterpret_cast<uintptr_t>(nodes), base = reinterpret_cast<uintptr_t>(mesh->nodeBlock);
    return mesh->nodeBlock && at >= base &&
           at - base < static_cast<uint64_t>(mesh->nodeBlockCount) * sizeof(MeshNode);
}

// True when `list` lies in the mesh's shared neighbour block.
inline bool meshNeighboursInBlock(const Mesh *mesh, const MeshNeighbour *list) {
    auto at = reinterpret_cast<uintptr_t>(list), base = reinterpret_cast<uintptr_t>(mesh->neighbourBlock);
    return mesh->neighbourBlock && at >= base &&
           at - base < static_cast<uint64_t>(mesh->neighbourBlockCount) * sizeof(MeshNeighbour);
}

inline MeshEdge *meshEdge(const Mesh *mesh, int32_t index) {
    return &mesh->edgeBlocks[index >> MESH_EDGE_BLOCK_BITS][index & (MESH_EDGE_BLOCK - 1)];
}

// ---------------------------------------------------------------------------
// Patch

struct Patch {
    int32_t uType, vType;       // basis per direction; 1 needs grid repair at the root
    uint16_t uCount, vCount;    // CV grid size
    uint16_t uClosed, vClosed;  // 0 or 1
    uint32_t step[2];           // step values u, v (raw 4-byte words)
    uint16_t extra[4];          // tokens 8 to 11
    uint16_t approxWords[7];    // tokens 12 to 18
    float approxValues[3];      // tokens 19 to 21
    uint16_t approxFlags[3];    // tokens 22 to 24
    float (*cvs)[4];            // uCount x vCount CVs, x y z w, row by row in v
    uint16_t *cvFlags;          // one per CV
};

// Patch bases (Patch::uType, vType).
enum PatchBasis : int32_t {
    PATCH_LINEAR = 0,    // straight between CVs
    PATCH_BEZIER = 1,    // cubic Bezier segments sharing their end CVs
    PATCH_CARDINAL = 2,  // cardinal spline through the inner CVs
    PATCH_BSPLINE = 3,   // uniform cubic B-spline
};

// Spans of one direction of a patch: 0 for an unknown basis or too few CVs.
int patchSpans(int32_t basis, int count, int closed);
// The point and unit normal at parameter `tU` (0 to 1) of span `spanU` and
// `tV` of span `spanV`. The normal faces the side of dv x du; a collapsed
// edge or pole takes the normal a little inside the span, +z when none.
void patchSample(const Patch *patch, int spanU, double tU, int spanV, double tV, float pos[3], float normal[3]);
// The same at `u` and `v` from 0 to 1 over the whole patch (clamped); 0 when
// the patch has no span or no CVs.
int patchPointAt(const Patch *patch, double u, double v, float pos[3], float normal[3]);

// ---------------------------------------------------------------------------
// Splines and NURBS curves

struct SplineVertex {
    float pos[3];       // position
    float tanIn[3];     // incoming tangent
    float tanOut[3];    // outgoing tangent
    uint16_t flags[3];  // tokens 4, 5, 6
};

struct Spline {
    char *name;             // malloc'd; null for none
    uint16_t nextFields;    // token 3 word
    int32_t type;           // basis; stored as u16
    uint16_t closed;        // 0 or 1
    uint16_t vertexCount;   // entries of vertices
    SplineVertex *vertices; // null for none
    uint32_t degree;        // raw 4-byte word of token 4
    uint16_t step;          // token 5
};

struct NurbsCurve {
    int32_t degree;          // degree
    int32_t cvCount;         // CVs
    double (*cvs)[4];        // x y z w
    int32_t *cvFlags;        // one i32 per CV in files that store it; null otherwise
    uint16_t closed;         // 0 or 1
    int32_t parametrisation; // knot parametrisation
    int32_t knotCount;       // entries of knots
    double *knots;           // knot vector
    double range[2];         // parameter range
    int32_t step;            // display step
    int32_t kind;            // curve kind
    uint16_t flag;           // flag word
};

// ---------------------------------------------------------------------------
// Faces

struct Face {
    uint16_t isSpline;       // 1: boundaries are Splines; 0: NurbsCurves
    Spline boundary;         // outer boundary
    uint16_t holeCount;      // holes
    Spline *holes;           // holeCount Splines when isSpline; null otherwise
    NurbsCurve *curveHoles;  // holeCount NurbsCurves when not isSpline; null otherwise
};

// ---------------------------------------------------------------------------
// NURBS surfaces

struct NurbsTrim {
    uint16_t word;   // token 1
    int32_t value;   // token 2
};

struct NurbsSurface {
    int32_t degree[2];           // U, V
    int32_t cvCount[2];          // U, V
    double (*cvs)[4];            // cvCount[0] x cvCount[1] CVs, x y z w
    uint16_t closed[2];          // U, V: 0 or 1
    int32_t parametrisation[2];  // U, V
    int32_t knotCount[2];        // U, V
    double *knots[2];            // U, V knot vectors
    double range[4];             // u min, u max, v min, v max
    uint16_t word6;              // token 6
    int32_t trimCount;           // entries of trims
    NurbsTrim *trims;            // trim records
    int32_t values[4];           // tokens 8 to 11
    uint16_t word12;             // token 12
    uint16_t word13;             // token 13
    SurfaceApprox approx;        // tokens 14 to 22
    int32_t extra[3];            // tokens 23 to 25
    uint8_t *customData;         // token 0xFF1A block; null for none
    int32_t customSize;          // bytes of customData
};

// ---------------------------------------------------------------------------
// Meta groups and model references

struct MetaMember {
    char *name;       // member's name
    uint16_t refCount; // entries of refs
    char **refs;      // names
};

struct MetaPair {
    char *first, *second;  // the two names of the pair
};

struct MetaGroup {
    int32_t value1, value2;  // tokens 1, 2
    uint16_t word3;          // token 3
    uint16_t memberCount;    // entries of members
    MetaMember *members;     // records of id 26
    uint16_t pairCount;      // entries of pairs
    MetaPair *pairs;         // records of id 27
};

struct ModelRef {
    double value4, value5;  // tokens 4, 5
    double vector[3];       // token 6
    double matrix[4][4];    // token 7
    Model *node;            // node the reference completes from; set on read
};

// ---------------------------------------------------------------------------
// Reading. Each reader allocates its record, or returns null when the first
// allocation fails. A damaged stream keeps what was read before the damage.

Mesh *readMesh(BinReader &r, const Prototype *proto, Model *node);
Patch *readPatch(BinReader &r, const Prototype *proto);
Face *readFace(BinReader &r, const Prototype *proto);
Spline *readSpline(BinReader &r, const Prototype *proto);
NurbsCurve *readNurbsCurve(BinReader &r, const Prototype *proto);
NurbsSurface *readNurbsSurface(BinReader &r, const Prototype *proto);
MetaGroup *readMetaGroup(BinReader &r, const Prototype *proto);
ModelRef *readModelRef(BinReader &r, const Prototype *proto, Model *node);
// Derives vertex neighbours, node edges and edge polygons; indices out of
// range are left unlinked. Returns 0 when out of memory.
int meshLink(Mesh *mesh);

// ---------------------------------------------------------------------------
// Writing. With a prototype, the record's list must be the version 4.0 list
// that geometryProtoSet gives; with null, tokens are written.

void geometryProtoSet(Prototype &proto);  // the version 4.0 lists of the geometry records
int writeMesh(BinWriter &w, const Prototype *proto, const Mesh *mesh);
int writePatch(BinWriter &w, const Prototype *proto, const Patch *patch);
int writeFace(BinWriter &w, const Prototype *proto, const Face *face);
int writeSpline(BinWriter &w, const Prototype *proto, const Spline *spline);
int writeNurbsCurve(BinWriter &w, const Prototype *proto, const NurbsCurve *curve);
int writeNurbsSurface(BinWriter &w, const Prototype *proto, const NurbsSurface *surface);
int writeMetaGroup(BinWriter &w, const Prototype *proto, const MetaGroup *meta);
int writeModelRef(BinWriter &w, const Prototype *proto, const ModelRef *ref);

// ---------------------------------------------------------------------------
// Release and construction

void meshFree(Mesh *mesh);
void patchFree(Patch *patch);
void faceFree(Face *face);
void splineFree(Spline *spline);
void nurbsCurveFree(NurbsCurve *curve);
void nurbsSurfaceFree(NurbsSurface *surface);
void metaGroupFree(MetaGroup *meta);
void modelRefFree(ModelRef *ref);
void geometryFree(int32_t type, void *geometry);  // by node type; null is fine

// ---------------------------------------------------------------------------
// Points: what shapes, clusters, envelopes and deformers move. A point is
// `geometryPointWidth` values: 3 for a mesh vertex (position), 4 for the CVs of
// patches and NURBS curves and surfaces (x y z w), 9 for spline vertices
// (position, incoming tangent, outgoing tangent). A face's points are its
// boundary's vertices, then each hole's: spline vertices, or the CVs of curve
// holes in the first four values (the other five read 0 and are not written).
// Point numbers follow this order: mesh vertices; patch CVs row by row; spline
// vertices; NURBS CVs as stored.

int geometryPointWidth(int32_t type);  // 0 for a type without points
int32_t geometryPointCount(int32_t type, const void *geometry);  // 0 for none
// Every value of every point into `values` (count x width). Returns the count.
int32_t geometryPointsRead(int32_t type, const void *geometry, double *values);
// The reverse; the record keeps its point count. Returns the count written.
int32_t geometryPointsWrite(int32_t type, void *geometry, const double *values);
// Positions alone: x y z of each point (count x 3).
int32_t geometryPositionsRead(int32_t type, const void *geometry, float *xyz);
int32_t geometryPositionsWrite(int32_t type, void *geometry, const float *xyz);
// After points moved: a mesh's polygon normals are made again from its
// vertices, and each corner that had a normal of its own gets the mean of
// the polygons around its vertex that lie within the mesh's discontinuity
// angle of its polygon. Other types keep no normals.
void geometryRefresh(int32_t type, void *geometry);

// Small shapes for tests and generated scenes; null when out of memory.
Mesh *meshMakeCube(float size);                  // 8 vertices, 6 quads, 12 linked edges
Patch *patchMakeGrid(uint16_t uCount, uint16_t vCount, float size);  // flat grid in XZ
Spline *splineMakeSquare(float size);            // closed, 4 vertices
Face *faceMakeSquare(float size, uint16_t holes); // square boundary, square holes
NurbsCurve *nurbsCurveMakeLine(float length);    // degree 1, 2 CVs
NurbsSurface *nurbsSurfaceMakePlane(float size); // bilinear, 2 x 2 CVs
