// Tessellation into vertex and triangle records: patches and their precision,
// NURBS surfaces against an evaluation of their own, the polygon
// triangulator, faces, and the vertex splitting of meshes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <utility>
#include <vector>

#include "graphic.h"
#include "material.h"
#include "model.h"
#include "tess_internal.h"

namespace {

Model *modelOf(int32_t type, void *geometry) { return modelNew("tess", type, geometry); }

int32_t indexOf(const Model *m, const TessVertex *v) { return static_cast<int32_t>(v - m->vertices); }

// Normal of a triangle from its corners.
void faceNormal(const TessTriangle &t, double n[3]) {
    double a[3], b[3];
    for (int k = 0; k < 3; ++k) {
        a[k] = t.v[1]->pos[k] - t.v[0]->pos[k];
        b[k] = t.v[2]->pos[k] - t.v[0]->pos[k];
    }
    n[0] = a[1] * b[2] - a[2] * b[1];
    n[1] = a[2] * b[0] - a[0] * b[2];
    n[2] = a[0] * b[1] - a[1] * b[0];
}

double area(const TessTriangle &t) {
    double n[3];
    faceNormal(t, n);
    return 0.5 * std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
}

// Every triangle faces the side of its corners' normals, and the list is
// linked in array order.
void expectConsistent(const Model *m) {
    for (int32_t i = 0; i < m->triangleCount; ++i) {
        const TessTriangle &t = m->triangles[i];
        EXPECT_EQ(t.next, i + 1 < m->triangleCount ? &m->triangles[i + 1] : nullptr);
        double n[3];
        faceNormal(t, n);
        for (const TessVertex *v : t.v) {
            ASSERT_GE(indexOf(m, v), 0);
            ASSERT_LT(indexOf(m, v), m->vertexCount);
            EXPECT_GT(n[0] * v->normal[0] + n[1] * v->normal[1] + n[2] * v->normal[2], 0.0) << "triangle " << i;
        }
    }
}

// Edges used by exactly one triangle, as vertex index pairs.
std::vector<std::pair<int32_t, int32_t>> openEdges(const Model *m) {
    std::map<std::pair<int32_t, int32_t>, int> uses;
    for (int32_t i = 0; i < m->triangleCount; ++i)
        for (int k = 0; k < 3; ++k) {
            int32_t a = indexOf(m, m->triangles[i].v[k]), b = indexOf(m, m->triangles[i].v[(k + 1) % 3]);
            ++uses[{std::min(a, b), std::max(a, b)}];
        }
    std::vector<std::pair<int32_t, int32_t>> out;
    for (const auto &[edge, count] : uses)
        if (count == 1) out.push_back(edge);
    return out;
}

}  // namespace

// ---------------------------------------------------------------------------
// Patches

TEST(PatchTessellation, BilinearGridKeepsRowsPerSpanAndInterpolates) {
    Patch *p = patchMakeGrid(3, 2, 2.0f);  // x -1, 0, 1; z -1, 1
    p->uType = p->vType = PATCH_LINEAR;
    p->step[0] = p->step[1] = 2;
    Model *m = modelOf(MODEL_PATCH, p);
    ASSERT_EQ(tessellateModel(m, 2, 0, 0), 0);
    // u: 2 spans of 2 steps, each keeping its own seam row: 6; v: 3.
    ASSERT_EQ(m->vertexCount, 18);
    ASSERT_EQ(m->triangleCount, 2 * 2 * 2 * 1 * 2);
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 3; ++j) {
            const TessVertex &v = m->vertices[i * 3 + j];
            const int span = i / 3, k = i % 3;
            EXPECT_FLOAT_EQ(v.u, 0.5f * span + 0.25f * k);
            EXPECT_FLOAT_EQ(v.v, 0.5f * j);
            EXPECT_FLOAT_EQ(v.pos[0], -1.0f + span + 0.5f * k);
            EXPECT_FLOAT_EQ(v.pos[2], -1.0f + j);
            EXPECT_FLOAT_EQ(v.normal[1], 1.0f);
            EXPECT_EQ(v.refPos[0], v.pos[0]);
        }
    double total = 0;
    for (int32_t i = 0; i < m->triangleCount; ++i) total += area(m->triangles[i]);
    EXPECT_NEAR(total, 4.0, 1e-5);
    expectConsistent(m);
    modelFree(m);
}

TEST(PatchTessellation, GlobalPrecisionReplacesTheLocalStepsForTheRunOnly) {
    Patch *p = patchMakeGrid(3, 2, 2.0f);
    p->uType = p->vType = PATCH_LINEAR;
    p->step[0] = p->step[1] = 5;
    Model *m = modelOf(MODEL_PATCH, p);
    ASSERT_EQ(tessellateModel(m, 2, 0, 0), 0);
    EXPECT_EQ(m->triangleCount, 5 * 5 * 2 * 1 * 2);
    // -l 1: one step per span.
    ASSERT_EQ(tessellateModel(m, 2, 0, 1), 0);
    EXPECT_EQ(m->triangleCount, 2 * 1 * 2);
    EXPECT_EQ(m->vertexCount, 4 * 2);
    EXPECT_TRUE(p->step[0] == 5 && p->step[1] == 5);
    // Zero steps or zero spans: nothing.
    p->step[0] = 0;
    ASSERT_EQ(tessellateModel(m, 2, 0, 0), 0);
    EXPECT_EQ(m->triangleCount, 0);
    EXPECT_EQ(m->vertices, nullptr);
    EXPECT_EQ(tessellateModel(nullptr, 2, 0, 0), 9);
    modelFree(m);
}

TEST(PatchTessellation, ClosedPatchSharesItsSeamAndLeavesNoGap) {
    // A tube: 6 CVs around the Y axis, closed in u; 4 rows up Y.
    auto tube = [](uint16_t around, bool closed) {
        Patch *p = patchMakeGrid(around, 4, 1.0f);
        p->uType = p->vType = PATCH_BSPLINE;
        p->uClosed = closed;
        p->step[0] = 3;
        p->step[1] = 2;
        for (int j = 0; j < 4; ++j)
            for (int i = 0; i < around; ++i) {
                float *cv = p->cvs[j * around + i];
                const double a = 2.0 * M_PI * (i % 6) / 6.0;
                cv[0] = static_cast<float>(std::cos(a));
                cv[1] = static_cast<float>(j);
                cv[2] = static_cast<float>(-std::sin(a));
            }
        return p;
    };
    Model *closed = modelOf(MODEL_PATCH, tube(6, true));
    // The open tube of the same 6 spans needs 9 CVs around.
    Model *open = modelOf(MODEL_PATCH, tube(9, false));
    ASSERT_EQ(tessellateModel(closed, 2, 0, 0), 0);
    ASSERT_EQ(tessellateModel(open, 2, 0, 0), 0);
    EXPECT_EQ(closed->triangleCount, open->triangleCount);
    EXPECT_EQ(closed->vertexCount, 6 * 3 * 3);
    EXPECT_EQ(open->vertexCount, (6 * 3 + 1) * 3);
    // Only the two rims are open: every edge around the tube is shared.
    const int32_t countV = 3;
    for (const auto &[a, b] : openEdges(closed)) {
        EXPECT_EQ(a % countV, b % countV) << a << " " << b;
        EXPECT_TRUE(a % countV == 0 || a % countV == countV - 1);
    }
    EXPECT_EQ(openEdges(closed).size(), 2u * 18);
    // The open one also has both sides of its seam open.
    EXPECT_EQ(openEdges(open).size(), 2u * 18 + 2 * (countV - 1));
    expectConsistent(closed);
    for (Model *m : {closed, open}) modelFree(m);
}

// ---------------------------------------------------------------------------
// NURBS surfaces

namespace {

// Cox-de Boor recursion, straight from the definition.
double basis(const std::vector<double> &k, int i, int p, double t) {
    if (p == 0) {
        const bool last = t == k.back() && k[static_cast<size_t>(i)] < k[static_cast<size_t>(i) + 1] &&
                          k[static_cast<size_t>(i) + 1] == k.back();
        return (k[static_cast<size_t>(i)] <= t && t < k[static_cast<size_t>(i) + 1]) || last ? 1.0 : 0.0;
    }
    double out = 0;
    const double d1 = k[static_cast<size_t>(i + p)] - k[static_cast<size_t>(i)];
    const double d2 = k[static_cast<size_t>(i + p + 1)] - k[static_cast<size_t>(i + 1)];
    if (d1 > 0) out += (t - k[static_cast<size_t>(i)]) / d1 * basis(k, i, p - 1, t);
    if (d2 > 0) out += (k[static_cast<size_t>(i + p + 1)] - t) / d2 * basis(k, i + 1, p - 1, t);
    return out;
}

struct TestSurface {
    int degree[2] = {3, 2};
    int count[2] = {5, 5};
    std::vector<double> knots[2] = {{0, 0, 0, 0, 0.4, 1.5, 1.5, 1.5, 1.5}, {0, 0, 0, 1, 1, 2, 2, 2}};
    std::vector<double> cvs;  // x y z w, u fastest

    TestSurface() {
        for (int j = 0; j < count[1]; ++j)
            for (int i = 0; i < count[0]; ++i) {
                const double w = 1.0 + 0.3 * ((i + 2 * j) % 3);
                cvs.insert(cvs.end(), {i * 1.0, std::sin(i + j) * 0.7, j * 0.8 + 0.1 * i, w});
            }
    }
    void point(double u, double v, double out[3]) const {
        double sum[4] = {0, 0, 0, 0};
        for (int j = 0; j < count[1]; ++j)
            for (int i = 0; i < count[0]; ++i) {
                const double b = basis(knots[0], i, degree[0], u) * basis(knots[1], j, degree[1], v);
                const double *cv = &cvs[4 * static_cast<size_t>(j * count[0] + i)];
                for (int k = 0; k < 3; ++k) sum[k] += b * cv[3] * cv[k];
                sum[3] += b * cv[3];
            }
        for (int k = 0; k < 3; ++k) out[k] = sum[k] / sum[3];
    }
    NurbsSurface *record(int steps) const {
        NurbsSurface *s = static_cast<NurbsSurface *>(calloc(1, sizeof(NurbsSurface)));
        for (int d = 0; d < 2; ++d) {
            s->degree[d] = degree[d];
            s->cvCount[d] = count[d];
            s->knotCount[d] = static_cast<int32_t>(knots[d].size());
            s->knots[d] = static_cast<double *>(malloc(knots[d].size() * sizeof(double)));
            std::copy(knots[d].begin(), knots[d].end(), s->knots[d]);
        }
        s->cvs = static_cast<double (*)[4]>(malloc(cvs.size() * sizeof(double)));
        std::copy(cvs.begin(), cvs.end(), &s->cvs[0][0]);
        s->values[0] = s->values[1] = steps;
        return s;
    }
};

}  // namespace

TEST(NurbsTessellation, PointsAndNormalsMatchAnIndependentEvaluation) {
    const TestSurface ref;
    NurbsSurface *s = ref.record(3);
    Model *m = modelOf(MODEL_NURBS_SURFACE, s);
    ASSERT_EQ(tessellateModel(m, 2, 0, 0), 0);
    // u: two spans of 3 steps and the end. v: a crease at the double knot 1
    // (multiplicity = degree) doubles that parameter.
    const int cu = 2 * 3 + 1, cv = 2 * 3 + 1 + 1;
    ASSERT_EQ(m->vertexCount, cu * cv);
    // The cells between the doubled parameters are stepped over.
    EXPECT_EQ(m->triangleCount, 2 * (cu - 1) * (cv - 2));
    for (int32_t i = 0; i < m->vertexCount; ++i) {
        const TessVertex &v = m->vertices[i];
        const double u = (1.0 - v.u) * 1.5, w = v.v * 2.0;  // stored as 1 - u, both normalised
        double p[3];
        ref.point(u, w, p);
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(v.pos[k], p[k], 1e-4) << "vertex " << i << " axis " << k;
        // Both finite-difference tangents are perpendicular to the normal;
        // the first of the doubled parameters has the left side's tangent.
        const int j = i % cv;
        const double hu = u < 1.4 ? 1e-4 : -1e-4, hw = (j == 3 || w > 1.9) ? -1e-4 : 1e-4;
        double pu[3], pw[3];
        ref.point(u + hu, w, pu);
        ref.point(u, w + hw, pw);
        double tu[3], tw[3];
        for (int k = 0; k < 3; ++k) {
            tu[k] = pu[k] - p[k];
            tw[k] = pw[k] - p[k];
        }
        const double nu = std::sqrt(tu[0] * tu[0] + tu[1] * tu[1] + tu[2] * tu[2]);
        const double nw = std::sqrt(tw[0] * tw[0] + tw[1] * tw[1] + tw[2] * tw[2]);
        EXPECT_NEAR((tu[0] * v.normal[0] + tu[1] * v.normal[1] + tu[2] * v.normal[2]) / nu, 0.0, 2e-3) << i;
        EXPECT_NEAR((tw[0] * v.normal[0] + tw[1] * v.normal[1] + tw[2] * v.normal[2]) / nw, 0.0, 2e-3) << i;
        EXPECT_NEAR(v.normal[0] * v.normal[0] + v.normal[1] * v.normal[1] + v.normal[2] * v.normal[2], 1.0, 1e-5);
    }
    expectConsistent(m);
    // -l 2: steps from the precision; the surface keeps its own.
    ASSERT_EQ(tessellateModel(m, 2, 0, 2), 0);
    EXPECT_EQ(m->vertexCount, (2 * 2 + 1) * (2 * 2 + 2));
    EXPECT_TRUE(s->values[0] == 3 && s->values[1] == 3);
    modelFree(m);
}

TEST(NurbsTessellation, CollapsedEdgeFindsATangentAndTrimLoopsCutTheDomain) {
    // A bilinear quad whose v = 0 edge collapses to a point: no u tangent there.
    NurbsSurface *s = nurbsSurfaceMakePlane(2.0f);
    s->cvs[1][0] = s->cvs[0][0];
    s->values[0] = s->values[1] = 4;
    Model *m = modelOf(MODEL_NURBS_SURFACE, s);
    ASSERT_EQ(tessellateModel(m, 2, 0, 0), 0);
    ASSERT_EQ(m->vertexCount, 25);
    for (int32_t i = 0; i < m->vertexCount; ++i) EXPECT_NEAR(std::fabs(m->vertices[i].normal[1]), 1.0f, 1e-4) << i;

    // Trimmed to the lower-left quarter of the domain.
    const float quarter[4][2] = {{0, 0}, {0.5f, 0}, {0.5f, 0.5f}, {0, 0.5f}};
    const TessTrimLoop loop = {4, quarter};
    ASSERT_EQ(tessellateNurbsTrimmed(m, &loop, 1, 0), 0);
    EXPECT_EQ(m->triangleCount, 2 * 2 * 2);
    EXPECT_EQ(m->vertexCount, 9);
    // A hole in it takes one cell.
    const float hole[4][2] = {{0.3f, 0.3f}, {0.45f, 0.3f}, {0.45f, 0.45f}, {0.3f, 0.45f}};
    const TessTrimLoop loops[2] = {{4, quarter}, {4, hole}};
    ASSERT_EQ(tessellateNurbsTrimmed(m, loops, 2, 0), 0);
    EXPECT_EQ(m->triangleCount, 2 * 2 * 2 - 2);
    EXPECT_EQ(tessellateNurbsTrimmed(nullptr, nullptr, 0, 0), 9);
    modelFree(m);
}

// ---------------------------------------------------------------------------
// Triangulator, faces, boxes

namespace {

double signedArea(const double (*p)[2], const int *tri, int count) {
    double sum = 0;
    for (int t = 0; t < count; ++t) {
        const double *a = p[tri[3 * t]], *b = p[tri[3 * t + 1]], *c = p[tri[3 * t + 2]];
        const double s = 0.5 * ((b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]));
        EXPECT_NE(s, 0.0);
        sum += s;
    }
    return sum;
}

}  // namespace

TEST(Triangulator, ConcavePolygonsAndHolesKeepAreaAndTurningSense) {
    // A comb: concave, 8 corners, area 4 x 3 - 2 notches of 1 x 2.
    double comb[8][2] = {{0, 0}, {4, 0}, {4, 3}, {3, 3}, {3, 1}, {1, 1}, {1, 3}, {0, 3}};
    int out[3 * 16];
    int counts[2] = {8, 0};
    ASSERT_EQ(polygonTriangulate(comb, counts, 1, out), 6);
    EXPECT_NEAR(signedArea(comb, out, 6), 12.0 - 4.0, 1e-12);
    // Turned round: the triangles turn the other way too.
    std::reverse(std::begin(comb), std::end(comb));
    ASSERT_EQ(polygonTriangulate(comb, counts, 1, out), 6);
    EXPECT_NEAR(signedArea(comb, out, 6), -8.0, 1e-12);

    // A square with a square hole, both given counter-clockwise.
    double ring[8][2] = {{0, 0}, {4, 0}, {4, 4}, {0, 4}, {1, 1}, {3, 1}, {3, 3}, {1, 3}};
    counts[0] = counts[1] = 4;
    const int made = polygonTriangulate(ring, counts, 2, out);
    ASSERT_EQ(made, 8);
    EXPECT_NEAR(signedArea(ring, out, made), 16.0 - 4.0, 1e-12);

    // Refused: points on a line, too few points.
    double line[4][2] = {{0, 0}, {1, 0}, {2, 0}, {3, 0}};
    counts[0] = 4;
    EXPECT_EQ(polygonTriangulate(line, counts, 1, out), -1);
    counts[0] = 2;
    EXPECT_EQ(polygonTriangulate(comb, counts, 1, out), -1);
    const float flat[3][3] = {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}};
    counts[0] = 3;
    EXPECT_EQ(polygonTriangulate3D(flat, counts, 1, out), -1);
}

TEST(FaceAndBoxTessellation, FaceWithHoleAndBoxForm) {
    Model *face = modelOf(MODEL_FACE, faceMakeSquare(2.0f, 1));  // hole of side 0.5
    ASSERT_EQ(tessellateModel(face, 2, 0, 0), 0);
    EXPECT_EQ(face->vertexCount, 8);  // all corners shared: one smooth plane
    double total = 0;
    for (int32_t i = 0; i < face->triangleCount; ++i) total += area(face->triangles[i]);
    EXPECT_NEAR(total, 4.0 - 0.25, 1e-5);
    expectConsistent(face);
    modelFree(face);

    Model *box = modelOf(MODEL_MESH, meshMakeCube(2.0f));
    box->box = 1;
    ASSERT_EQ(tessellateModel(box, 2, 0, 0), 0);
    EXPECT_EQ(box->vertexCount, 24);
    EXPECT_EQ(box->triangleCount, 12);
    expectConsistent(box);
    for (int32_t i = 0; i < box->vertexCount; ++i)
        for (int k = 0; k < 3; ++k) EXPECT_EQ(std::fabs(box->vertices[i].pos[k]), 1.0f);
    modelFree(box);
}

// ---------------------------------------------------------------------------
// Meshes

namespace {

// Two unit quads side by side in XZ sharing the edge x = 1 (vertices 1, 4).
// `du` shifts the UV of the right quad's corners on the shared edge.
Mesh *twoQuads(float du, float tilt) {
    Mesh *m = static_cast<Mesh *>(calloc(1, sizeof(Mesh)));
    m->uvDomainCount = 1;
    const float pos[6][3] = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {0, 0, 1}, {1, 0, 1}, {2, 0, 1}};
    m->vertexCount = 6;
    m->vertices = static_cast<MeshVertex *>(calloc(6, sizeof(MeshVertex)));
    for (int i = 0; i < 6; ++i) std::copy(pos[i], pos[i] + 3, m->vertices[i].pos);
    const int quads[2][4] = {{0, 3, 4, 1}, {1, 4, 5, 2}};
    m->polygonCount = 2;
    m->polygons = static_cast<MeshPolygon *>(calloc(2, sizeof(MeshPolygon)));
    for (int p = 0; p < 2; ++p) {
        MeshPolygon &poly = m->polygons[p];
        poly.nodeCount = 4;
        poly.nodes = static_cast<MeshNode *>(calloc(4, sizeof(MeshNode)));
        poly.nrm[1] = 1;
        for (int k = 0; k < 4; ++k) {
            MeshNode &n = poly.nodes[k];
            n.vrt = quads[p][k];
            n.nrm[1] = 1;
            n.nrm[0] = p == 1 ? tilt : 0.0f;
            n.u = pos[n.vrt][0] / 2 + (p == 1 && (n.vrt == 1 || n.vrt == 4) ? du : 0.0f);
            n.v = pos[n.vrt][2];
        }
    }
    const int edges[7][2] = {{0, 1}, {1, 2}, {3, 4}, {4, 5}, {0, 3}, {1, 4}, {2, 5}};
    m->edgeCount = 7;
    m->edgeBlocks = static_cast<MeshEdge **>(calloc(1, sizeof(MeshEdge *)));
    m->edgeBlocks[0] = static_cast<MeshEdge *>(calloc(MESH_EDGE_BLOCK, sizeof(MeshEdge)));
    for (int e = 0; e < 7; ++e) std::copy(edges[e], edges[e] + 2, meshEdge(m, e)->vrt);
    meshLink(m);
    return m;
}

int32_t vertexCountOf(Mesh *mesh, bool uvTexture) {
    Model *m = modelOf(MODEL_MESH, mesh);
    Texture2D *texture = nullptr;
    if (uvTexture) {
        texture = new Texture2D;
        texture->method = 4;
        m->textures2D = static_cast<Texture2D **>(calloc(1, sizeof(Texture2D *)));
        m->textures2D[0] = texture;
        m->texture2DCount = 1;
    }
    EXPECT_EQ(tessellateModel(m, 2, 0, 0), 0);
    EXPECT_EQ(m->triangleCount, 4);
    expectConsistent(m);
    // A UV in use is stored turned: the corner at the origin has u = v = 0.
    for (int32_t i = 0; i < m->vertexCount; ++i) {
        if (m->vertices[i].pos[0] == 0.0f && m->vertices[i].pos[2] == 0.0f) {
            EXPECT_EQ(m->vertices[i].u, uvTexture ? 1.0f : 0.0f);
        }
    }
    const int32_t count = m->vertexCount;
    modelFree(m);
    return count;
}

}  // namespace

TEST(MeshTessellation, VerticesSplitAlongHardEdgesOnly) {
    EXPECT_EQ(vertexCountOf(twoQuads(0.0f, 0.0f), false), 6);
    // UV apart on the shared edge: hard only while a UV texture is in use.
    EXPECT_EQ(vertexCountOf(twoQuads(0.01f, 0.0f), false), 6);
    EXPECT_EQ(vertexCountOf(twoQuads(0.01f, 0.0f), true), 8);
    EXPECT_EQ(vertexCountOf(twoQuads(0.0005f, 0.0f), true), 6);
    // Normals apart by more than 0.01: hard.
    EXPECT_EQ(vertexCountOf(twoQuads(0.0f, 0.02f), false), 8);
    EXPECT_EQ(vertexCountOf(twoQuads(0.0f, 0.005f), false), 6);
    // Marked edges, and the mesh's all-hard flag.
    Mesh *marked = twoQuads(0.0f, 0.0f);
    meshEdge(marked, 5)->flg = 16;
    EXPECT_EQ(vertexCountOf(marked, false), 8);
    Mesh *faceted = twoQuads(0.0f, 0.0f);
    faceted->flags |= MESH_FLAG_TOKEN1;
    EXPECT_EQ(vertexCountOf(faceted, false), 8);
}
