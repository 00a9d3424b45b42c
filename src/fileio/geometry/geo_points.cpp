// The points of geometry records, one numbering for every kind, so that shape,
// cluster, envelope and deformer code moves points without knowing the record.
#include <cmath>
#include <cstring>

#include "geo_internal.h"

namespace {

constexpr int SPLINE_WIDTH = 9;  // position and two tangents
// Runs step through records by whole floats.
static_assert(sizeof(MeshVertex) % sizeof(float) == 0);
static_assert(sizeof(SplineVertex) % sizeof(float) == 0);

// Visits the point arrays of a record in point order. `f` is called per run
// with the floats or the doubles of the run (one of them null), its point
// count and the distance in values between two points.
template <typename F>
void forEachRun(int32_t type, const void *geometry, F &&f) {
    if (!geometry) return;
    switch (type) {
        case MODEL_MESH: {
            const Mesh *m = static_cast<const Mesh *>(geometry);
            if (m->vertices && m->vertexCount > 0)
                f(const_cast<float *>(m->vertices[0].pos), nullptr, m->vertexCount,
                  static_cast<int>(sizeof(MeshVertex) / sizeof(float)), 3);
            break;
        }
        case MODEL_PATCH: {
            const Patch *p = static_cast<const Patch *>(geometry);
            if (p->cvs && p->uCount && p->vCount)
                f(const_cast<float *>(p->cvs[0]), nullptr, int32_t{p->uCount} * p->vCount, 4, 4);
            break;
        }
        case MODEL_SPLINE: {
            const Spline *s = static_cast<const Spline *>(geometry);
            if (s->vertices && s->vertexCount)
                f(const_cast<float *>(s->vertices[0].pos), nullptr, int32_t{s->vertexCount},
                  static_cast<int>(sizeof(SplineVertex) / sizeof(float)), SPLINE_WIDTH);
            break;
        }
        case MODEL_FACE: {
            const Face *face = static_cast<const Face *>(geometry);
            auto spline = [&](const Spline &s) {
                if (s.vertices && s.vertexCount)
                    f(const_cast<float *>(s.vertices[0].pos), nullptr, int32_t{s.vertexCount},
                      static_cast<int>(sizeof(SplineVertex) / sizeof(float)), SPLINE_WIDTH);
            };
            spline(face->boundary);
            for (int h = 0; h < face->holeCount; ++h) {
                if (face->isSpline && face->holes) {
                    spline(face->holes[h]);
                } else if (!face->isSpline && face->curveHoles) {
                    const NurbsCurve &c = face->curveHoles[h];
                    if (c.cvs && c.cvCount > 0) f(nullptr, const_cast<double *>(c.cvs[0]), c.cvCount, 4, 4);
                }
            }
            break;
        }
        case MODEL_NURBS_CURVE: {
            const NurbsCurve *c = static_cast<const NurbsCurve *>(geometry);
            if (c->cvs && c->cvCount > 0) f(nullptr, const_cast<double *>(c->cvs[0]), c->cvCount, 4, 4);
            break;
        }
        case MODEL_NURBS_SURFACE: {
            const NurbsSurface *s = static_cast<const NurbsSurface *>(geometry);
            if (s->cvs && s->cvCount[0] > 0 && s->cvCount[1] > 0)
                f(nullptr, const_cast<double *>(s->cvs[0]), s->cvCount[0] * s->cvCount[1], 4, 4);
            break;
        }
        default:
            break;
    }
}

void normalise(float v[3]) {
    const float len = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    if (len > 0.0f)
        for (int k = 0; k < 3; ++k) v[k] /= len;
}

// Polygon normals by Newell's sum, which is sound for concave and slightly
// warped polygons; corners with a normal of their own are smoothed over the
// polygons of their vertex that lie within the discontinuity angle. A vertex
// without links keeps its polygon's normal.
void meshRefresh(Mesh *m) {
    if (!m->vertices || !m->polygons) return;
    for (int32_t p = 0; p < m->polygonCount; ++p) {
        MeshPolygon &poly = m->polygons[p];
        float n[3] = {0.0f, 0.0f, 0.0f};
        for (int k = 0; k < poly.nodeCount; ++k) {
            const int32_t a = poly.nodes[k].vrt, b = poly.nodes[(k + 1) % poly.nodeCount].vrt;
            if (a < 0 || a >= m->vertexCount || b < 0 || b >= m->vertexCount) continue;
            const float *pa = m->vertices[a].pos, *pb = m->vertices[b].pos;
            n[0] += (pa[1] - pb[1]) * (pa[2] + pb[2]);
            n[1] += (pa[2] - pb[2]) * (pa[0] + pb[0]);
            n[2] += (pa[0] - pb[0]) * (pa[1] + pb[1]);
        }
        normalise(n);
        memcpy(poly.nrm, n, sizeof n);
    }
    const float limit = m->cosDiscontinuity != 0.0f ? m->cosDiscontinuity
                                                    : std::cos(m->discontinuity * 0.0174532925f);
    for (int32_t p = 0; p < m->polygonCount; ++p) {
        MeshPolygon &poly = m->polygons[p];
        for (int k = 0; k < poly.nodeCount; ++k) {
            MeshNode &node = poly.nodes[k];
            if (node.nrm[0] == 0.0f && node.nrm[1] == 0.0f && node.nrm[2] == 0.0f) continue;
            if (node.vrt < 0 || node.vrt >= m->vertexCount) continue;
            // The polygons round a vertex are those on the sides of its
            // edges (meshLink): each once, with no list to build per frame.
            const MeshVertex &vertex = m->vertices[node.vrt];
            float n[3] = {0.0f, 0.0f, 0.0f};
            for (int i = 0; i < vertex.neighbourCount; ++i) {
                const int32_t q = vertex.neighbours[i].pol;
                if (q < 0 || q >= m->polygonCount) continue;
                const float *qn = m->polygons[q].nrm;
                if (qn[0] * poly.nrm[0] + qn[1] * poly.nrm[1] + qn[2] * poly.nrm[2] < limit) continue;
                for (int c = 0; c < 3; ++c) n[c] += qn[c];
            }
            normalise(n);
            // A vertex whose polygons cancel keeps its polygon's normal.
            if (n[0] == 0.0f && n[1] == 0.0f && n[2] == 0.0f) memcpy(n, poly.nrm, sizeof n);
            memcpy(node.nrm, n, sizeof n);
        }
    }
}

}  // namespace

int geometryPointWidth(int32_t type) {
    switch (type) {
        case MODEL_MESH: return 3;
        case MODEL_PATCH: case MODEL_NURBS_CURVE: case MODEL_NURBS_SURFACE: return 4;
        case MODEL_SPLINE: case MODEL_FACE: return SPLINE_WIDTH;
        default: return 0;
    }
}

int32_t geometryPointCount(int32_t type, const void *geometry) {
    int32_t total = 0;
    forEachRun(type, geometry, [&](float *, double *, int32_t count, int, int) { total += count; });
    return total;
}

int32_t geometryPointsRead(int32_t type, const void *geometry, double *values) {
    const int width = geometryPointWidth(type);
    int32_t at = 0;
    forEachRun(type, geometry, [&](float *f, double *d, int32_t count, int stride, int runWidth) {
        for (int32_t i = 0; i < count; ++i, ++at) {
            double *out = values + static_cast<size_t>(at) * static_cast<size_t>(width);
            for (int k = 0; k < width; ++k)
                out[k] = k >= runWidth ? 0.0 : f ? f[static_cast<size_t>(i) * static_cast<size_t>(stride) + static_cast<size_t>(k)]
                                                 : d[static_cast<size_t>(i) * static_cast<size_t>(stride) + static_cast<size_t>(k)];
        }
    });
    return at;
}

int32_t geometryPointsWrite(int32_t type, void *geometry, const double *values) {
    const int width = geometryPointWidth(type);
    int32_t at = 0;
    forEachRun(type, geometry, [&](float *f, double *d, int32_t count, int stride, int runWidth) {
        for (int32_t i = 0; i < count; ++i, ++at) {
            const double *in = values + static_cast<size_t>(at) * static_cast<size_t>(width);
            const size_t base = static_cast<size_t>(i) * static_cast<size_t>(stride);
            for (int k = 0; k < runWidth; ++k) {
                if (f) f[base + static_cast<size_t>(k)] = static_cast<float>(in[k]);
                else d[base + static_cast<size_t>(k)] = in[k];
            }
        }
    });
    return at;
}

int32_t geometryPositionsRead(int32_t type, const void *geometry, float *xyz) {
    int32_t at = 0;
    forEachRun(type, geometry, [&](float *f, double *d, int32_t count, int stride, int) {
        for (int32_t i = 0; i < count; ++i, ++at) {
            const size_t base = static_cast<size_t>(i) * static_cast<size_t>(stride);
            for (int k = 0; k < 3; ++k)
                xyz[3 * static_cast<size_t>(at) + static_cast<size_t>(k)] =
                    f ? f[base + static_cast<size_t>(k)] : static_cast<float>(d[base + static_cast<size_t>(k)]);
        }
    });
    return at;
}

int32_t geometryPositionsWrite(int32_t type, void *geometry, const float *xyz) {
    int32_t at = 0;
    forEachRun(type, geometry, [&](float *f, double *d, int32_t count, int stride, int) {
        for (int32_t i = 0; i < count; ++i, ++at) {
            const size_t base = static_cast<size_t>(i) * static_cast<size_t>(stride);
            for (int k = 0; k < 3; ++k) {
                const float v = xyz[3 * static_cast<size_t>(at) + static_cast<size_t>(k)];
                if (f) f[base + static_cast<size_t>(k)] = v;
                else d[base + static_cast<size_t>(k)] = v;
            }
        }
    });
    return at;
}

void geometryRefresh(int32_t type, void *geometry) {
    if (type == MODEL_MESH && geometry) meshRefresh(static_cast<Mesh *>(geometry));
}
