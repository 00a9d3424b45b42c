// Release of geometry records, and small shapes made in memory for tests and
// generated scenes.
#include <cstdlib>
#include <cstring>

#include "geo_internal.h"

namespace {

char *dupText(const char *text) {
    if (!text) return nullptr;
    size_t n = strlen(text) + 1;
    char *copy = static_cast<char *>(malloc(n));
    if (copy) memcpy(copy, text, n);
    return copy;
}

void meshClearLists(Mesh &m) {
    for (int32_t i = 0; i < m.vertexCount; ++i)
        if (!meshNeighboursInBlock(&m, m.vertices[i].neighbours)) free(m.vertices[i].neighbours);
    free(m.neighbourBlock);
    free(m.vertices);
    for (int32_t i = 0; i < m.polygonCount; ++i) {
        for (int k = 0; k < m.polygons[i].nodeCount; ++k) free(m.polygons[i].nodes[k].uvs);
        if (!meshNodesInBlock(&m, m.polygons[i].nodes)) free(m.polygons[i].nodes);
    }
    free(m.polygons);
    free(m.nodeBlock);
    int32_t blocks = (m.edgeCount + MESH_EDGE_BLOCK - 1) / MESH_EDGE_BLOCK;
    for (int32_t b = 0; m.edgeBlocks && b < blocks; ++b) free(m.edgeBlocks[b]);
    free(m.edgeBlocks);
}

// Sets a square of half size `h` in the XZ plane into four spline vertices.
void squareVertices(SplineVertex *v, float h) {
    const float corners[4][2] = {{-h, -h}, {h, -h}, {h, h}, {-h, h}};
    for (int i = 0; i < 4; ++i) {
        v[i].pos[0] = corners[i][0];
        v[i].pos[2] = corners[i][1];
    }
}

int splineSquareInto(Spline &s, float size, const char *name) {
    s.name = dupText(name);
    s.closed = 1;
    s.degree = 1;
    s.vertices = static_cast<SplineVertex *>(calloc(4, sizeof(SplineVertex)));
    if (!s.vertices) return 0;
    s.vertexCount = 4;
    squareVertices(s.vertices, size * 0.5f);
    return 1;
}

}  // namespace

void splineClear(Spline &s) {
    free(s.name);
    free(s.vertices);
    s = Spline{};
}

void nurbsCurveClear(NurbsCurve &c) {
    free(c.cvs);
    free(c.cvFlags);
    free(c.knots);
    c = NurbsCurve{};
}

void meshFree(Mesh *mesh) {
    if (!mesh) return;
    meshClearLists(*mesh);
    free(mesh);
}

void patchFree(Patch *patch) {
    if (!patch) return;
    free(patch->cvs);
    free(patch->cvFlags);
    free(patch);
}

void splineFree(Spline *spline) {
    if (!spline) return;
    splineClear(*spline);
    free(spline);
}

void nurbsCurveFree(NurbsCurve *curve) {
    if (!curve) return;
    nurbsCurveClear(*curve);
    free(curve);
}

void faceFree(Face *face) {
    if (!face) return;
    splineClear(face->boundary);
    for (int i = 0; face->holes && i < face->holeCount; ++i) splineClear(face->holes[i]);
    for (int i = 0; face->curveHoles && i < face->holeCount; ++i) nurbsCurveClear(face->curveHoles[i]);
    free(face->holes);
    free(face->curveHoles);
    free(face);
}

void nurbsSurfaceFree(NurbsSurface *s) {
    if (!s) return;
    free(s->cvs);
    free(s->knots[0]);
    free(s->knots[1]);
    free(s->trims);
    free(s->customData);
    free(s);
}

void metaGroupFree(MetaGroup *g) {
    if (!g) return;
    for (int i = 0; g->members && i < g->memberCount; ++i) {
        free(g->members[i].name);
        for (int k = 0; g->members[i].refs && k < g->members[i].refCount; ++k) free(g->members[i].refs[k]);
        free(g->members[i].refs);
    }
    for (int i = 0; g->pairs && i < g->pairCount; ++i) {
        free(g->pairs[i].first);
        free(g->pairs[i].second);
    }
    free(g->members);
    free(g->pairs);
    free(g);
}

void modelRefFree(ModelRef *ref) { free(ref); }

namespace {

using GeoFreeFn = void (*)(void *);
template <class T, void (*F)(T *)>
void freeAs(void *p) { F(static_cast<T *>(p)); }

// Release of the geometry of each node type; null for the bare types.
const GeoFreeFn GEO_FREE[MODEL_TYPE_END] = {
    nullptr,                                   // 0
    freeAs<Patch, patchFree>,                  // 1
    freeAs<Face, faceFree>,                    // 2
    nullptr,                                   // 3
    freeAs<Mesh, meshFree>,                    // 4
    nullptr,                                   // 5
    freeAs<Spline, splineFree>,                // 6
    freeAs<MetaGroup, metaGroupFree>,          // 7
    freeAs<ModelRef, modelRefFree>,            // 8
    freeAs<NurbsCurve, nurbsCurveFree>,        // 9
    freeAs<NurbsSurface, nurbsSurfaceFree>,    // 10
};

}  // namespace

void geometryFree(int32_t type, void *geometry) {
    if (!geometry || type < 0 || type >= MODEL_TYPE_END || !GEO_FREE[type]) return;
    GEO_FREE[type](geometry);
}

// ---------------------------------------------------------------------------
// Construction

Mesh *meshMakeCube(float size) {
    static const int8_t corner[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                                        {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
    // Counter-clockwise seen from outside.
    static const int8_t quad[6][4] = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4},
                                      {2, 3, 7, 6}, {1, 2, 6, 5}, {0, 4, 7, 3}};
    static const float normal[6][3] = {{0, 0, -1}, {0, 0, 1}, {0, -1, 0}, {0, 1, 0}, {1, 0, 0}, {-1, 0, 0}};
    static const int8_t edge[12][2] = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6},
                                       {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};
    Mesh *m = static_cast<Mesh *>(calloc(1, sizeof(Mesh)));
    if (!m) return nullptr;
    m->uvDomainCount = 1;
    m->discontinuity = 60.0f;
    m->cosDiscontinuity = 0.5f;
    m->vertices = static_cast<MeshVertex *>(calloc(8, sizeof(MeshVertex)));
    m->polygons = static_cast<MeshPolygon *>(calloc(6, sizeof(MeshPolygon)));
    m->edgeBlocks = static_cast<MeshEdge **>(calloc(1, sizeof(MeshEdge *)));
    if (m->edgeBlocks) m->edgeBlocks[0] = static_cast<MeshEdge *>(calloc(MESH_EDGE_BLOCK, sizeof(MeshEdge)));
    if (!m->vertices || !m->polygons || !m->edgeBlocks || !m->edgeBlocks[0]) {
        meshFree(m);
        return nullptr;
    }
    const float h = size * 0.5f;
    m->vertexCount = 8;
    for (int i = 0; i < 8; ++i)
        for (int k = 0; k < 3; ++k) m->vertices[i].pos[k] = corner[i][k] ? h : -h;
    m->edgeCount = 12;
    for (int i = 0; i < 12; ++i) {
        MeshEdge *e = meshEdge(m, i);
        e->vrt[0] = edge[i][0];
        e->vrt[1] = edge[i][1];
    }
    for (int p = 0; p < 6; ++p) {
        MeshPolygon &poly = m->polygons[p];
        memcpy(poly.nrm, normal[p], sizeof poly.nrm);
        poly.nodes = static_cast<MeshNode *>(calloc(4, sizeof(MeshNode)));
        if (!poly.nodes) { meshFree(m); return nullptr; }
        m->polygonCount = p + 1;
        poly.nodeCount = 4;
        for (int k = 0; k < 4; ++k) {
            MeshNode &n = poly.nodes[k];
            n.vrt = quad[p][k];
            memcpy(n.nrm, normal[p], sizeof n.nrm);
            n.u = (k == 1 || k == 2) ? 1.0f : 0.0f;
            n.v = k >= 2 ? 1.0f : 0.0f;
            n.colour = 0xFFFFFFFFu;
        }
    }
    if (!meshLink(m)) { meshFree(m); return nullptr; }
    return m;
}

Patch *patchMakeGrid(uint16_t uCount, uint16_t vCount, float size) {
    Patch *p = static_cast<Patch *>(calloc(1, sizeof(Patch)));
    if (!p) return nullptr;
    size_t n = static_cast<size_t>(uCount) * vCount;
    if (n) {
        p->cvs = static_cast<float (*)[4]>(calloc(n, sizeof(float[4])));
        p->cvFlags = static_cast<uint16_t *>(calloc(n, sizeof(uint16_t)));
        if (!p->cvs || !p->cvFlags) { patchFree(p); return nullptr; }
    }
    p->uCount = uCount;
    p->vCount = vCount;
    p->uType = p->vType = 2;
    for (size_t i = 0; i < n; ++i) {
        size_t u = i % (uCount ? uCount : 1), v = i / (uCount ? uCount : 1);
        p->cvs[i][0] = uCount > 1 ? size * (static_cast<float>(u) / (uCount - 1) - 0.5f) : 0.0f;
        p->cvs[i][2] = vCount > 1 ? size * (static_cast<float>(v) / (vCount - 1) - 0.5f) : 0.0f;
        p->cvs[i][3] = 1.0f;
    }
    return p;
}

Spline *splineMakeSquare(float size) {
    Spline *s = static_cast<Spline *>(calloc(1, sizeof(Spline)));
    if (s && !splineSquareInto(*s, size, "square")) { splineFree(s); return nullptr; }
    return s;
}

Face *faceMakeSquare(float size, uint16_t holes) {
    Face *f = static_cast<Face *>(calloc(1, sizeof(Face)));
    if (!f) return nullptr;
    f->isSpline = 1;
    if (!splineSquareInto(f->boundary, size, "boundary")) { faceFree(f); return nullptr; }
    if (holes) {
        f->holes = static_cast<Spline *>(calloc(holes, sizeof(Spline)));
        if (!f->holes) { faceFree(f); return nullptr; }
        f->holeCount = holes;
        for (int i = 0; i < holes; ++i)
            if (!splineSquareInto(f->holes[i], size / (2.0f * (i + 2)), "hole")) { faceFree(f); return nullptr; }
    }
    return f;
}

NurbsCurve *nurbsCurveMakeLine(float length) {
    NurbsCurve *c = static_cast<NurbsCurve *>(calloc(1, sizeof(NurbsCurve)));
    if (!c) return nullptr;
    c->cvs = static_cast<double (*)[4]>(calloc(2, sizeof(double[4])));
    c->cvFlags = static_cast<int32_t *>(calloc(2, sizeof(int32_t)));
    c->knots = static_cast<double *>(calloc(4, sizeof(double)));
    if (!c->cvs || !c->cvFlags || !c->knots) { nurbsCurveFree(c); return nullptr; }
    c->degree = 1;
    c->cvCount = 2;
    c->cvs[0][3] = 1.0;
    c->cvs[1][0] = length;
    c->cvs[1][3] = 1.0;
    c->knotCount = 4;
    c->knots[2] = c->knots[3] = 1.0;
    c->range[1] = 1.0;
    c->step = 4;
    return c;
}

NurbsSurface *nurbsSurfaceMakePlane(float size) {
    NurbsSurface *s = static_cast<NurbsSurface *>(calloc(1, sizeof(NurbsSurface)));
    if (!s) return nullptr;
    s->cvs = static_cast<double (*)[4]>(calloc(4, sizeof(double[4])));
    s->knots[0] = static_cast<double *>(calloc(4, sizeof(double)));
    s->knots[1] = static_cast<double *>(calloc(4, sizeof(double)));
    if (!s->cvs || !s->knots[0] || !s->knots[1]) { nurbsSurfaceFree(s); return nullptr; }
    const double h = size * 0.5;
    for (int i = 0; i < 4; ++i) {
        s->cvs[i][0] = (i & 1) ? h : -h;
        s->cvs[i][2] = (i & 2) ? h : -h;
        s->cvs[i][3] = 1.0;
    }
    for (int d = 0; d < 2; ++d) {
        s->degree[d] = 1;
        s->cvCount[d] = 2;
        s->knotCount[d] = 4;
        s->knots[d][2] = s->knots[d][3] = 1.0;
    }
    s->range[1] = s->range[3] = 1.0;
    s->approx.subdMin = 1;
    s->approx.subdMax = 8;
    return s;
}
