// Meshes and faces. A mesh's corners become vertex records, shared across
// smooth edges and split along hard ones; its polygons become triangles. A
// face is first turned into a mesh of triangles on its plane.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "material.h"
#include "tess_internal.h"

namespace {

constexpr uint16_t EDGE_HARD = 0x8000;                 // classified hard
constexpr uint16_t EDGE_MARKED_HARD = 8 | 16 | 32;     // flag bits that make an edge hard
constexpr uint16_t MESH_ALL_HARD = MESH_FLAG_TOKEN1;   // mesh flag: every edge hard
constexpr float NORMAL_APART = 0.01f;                  // corner normals further apart: hard
constexpr float UV_APART = 0.001f;                     // UV further apart: hard

// Corners joined into fans, by several threads at once: a root is linked
// under a lower one by one compare-and-swap, so each fan's root is its lowest
// corner (a fan takes its first corner's values) whatever order the joins
// come in.
int32_t findRoot(std::atomic<int32_t> *parent, int32_t x) {
    for (;;) {
        int32_t up = parent[x].load(std::memory_order_relaxed);
        if (up == x) return x;
        const int32_t upper = parent[up].load(std::memory_order_relaxed);
        // Halving: point past the parent; an ancestor stays an ancestor.
        if (upper != up) parent[x].compare_exchange_weak(up, upper, std::memory_order_relaxed);
        x = upper;
    }
}

void unite(std::atomic<int32_t> *parent, int32_t a, int32_t b) {
    for (;;) {
        a = findRoot(parent, a);
        b = findRoot(parent, b);
        if (a == b) return;
        if (a < b) std::swap(a, b);
        int32_t expected = a;
        if (parent[a].compare_exchange_strong(expected, b, std::memory_order_relaxed)) return;
    }
}

const Texture2D *localTexture(const Model *m) {
    for (int i = 0; m->textures2D && i < m->texture2DCount; ++i)
        if (m->textures2D[i]) return m->textures2D[i];
    return nullptr;
}

// A texture of the model that maps by the surface's UV (method 4) puts the
// corners' UV sets in use.
bool uvInUse(const Model *m, Material **materials, int materialCount) {
    for (int i = 0; m->textures2D && i < m->texture2DCount; ++i)
        if (m->textures2D[i] && m->textures2D[i]->method == 4) return true;
    for (int i = 0; materials && i < materialCount; ++i)
        for (size_t k = 0; materials[i] && k < materials[i]->textures.size(); ++k)
            if (materials[i]->textures[k].method == 4) return true;
    return false;
}

bool hasOwnTexture(const Material *material, const Texture2D *local) {
    return material && !material->textures.empty() && &material->textures[0] != local;
}

// A corner's normal: its own, else the polygon's.
const float *cornerNormal(const MeshPolygon &poly, const MeshNode &node) {
    const float *n = node.nrm;
    return n[0] != 0.0f || n[1] != 0.0f || n[2] != 0.0f ? n : poly.nrm;
}

bool apart3(const float *a, const float *b, float limit) {
    const float d[3] = {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
    return std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]) > limit;
}

bool uvApart(const MeshNode &a, const MeshNode &b, int extraSets) {
    if (std::fabs(a.u - b.u) > UV_APART || std::fabs(a.v - b.v) > UV_APART) return true;
    for (int s = 0; a.uvs && b.uvs && s < 2 * extraSets; ++s)
        if (std::fabs(a.uvs[s] - b.uvs[s]) > UV_APART) return true;
    return false;
}

}  // namespace

int tessellateMesh(Model *model, Mesh *m, Mesh *reference, Material **materials, int materialCount,
                   int allHard) {
    if (!m || !m->polygons || !m->vertices || m->polygonCount <= 0) return 0;
    if (!reference) reference = m;
    const Texture2D *local = localTexture(model);
    const bool uvUsed = uvInUse(model, materials, materialCount);
    const int extraSets = m->uvDomainCount > 1 ? m->uvDomainCount - 1 : 0;
    auto materialOf = [&](const MeshPolygon &poly) -> Material * {
        if (!materials || materialCount <= 0) return nullptr;
        return materials[poly.material < materialCount ? poly.material : 0];
    };

    // Corners are numbered polygon by polygon; a polygon naming a vertex
    // that does not exist is left out.
    std::vector<int64_t> firstCorner(static_cast<size_t>(m->polygonCount) + 1);
    std::vector<uint8_t> usable(static_cast<size_t>(m->polygonCount));
    int64_t corners = 0;
    for (int32_t p = 0; p < m->polygonCount; ++p) {
        const MeshPolygon &poly = m->polygons[p];
        firstCorner[static_cast<size_t>(p)] = corners;
        bool ok = poly.nodes && poly.nodeCount >= 3;
        for (int k = 0; ok && k < poly.nodeCount; ++k)
            ok = poly.nodes[k].vrt >= 0 && poly.nodes[k].vrt < m->vertexCount;
        usable[static_cast<size_t>(p)] = ok;
        corners += poly.nodeCount;
    }
    firstCorner[static_cast<size_t>(m->polygonCount)] = corners;
    if (corners > INT32_MAX) tessFatal();

    // Hard edges: by their flags, by materials, by the corners on both sides.
    const bool everyHard = allHard || (m->flags & MESH_ALL_HARD);
    for (int32_t e = 0; m->edgeBlocks && e < m->edgeCount; ++e) {
        MeshEdge *edge = meshEdge(m, e);
        edge->flg &= static_cast<uint16_t>(~EDGE_HARD);
        if (everyHard || (edge->flg & EDGE_MARKED_HARD)) edge->flg |= EDGE_HARD;
    }
    // Each edge is judged by its first polygon, which alone writes its flag,
    // so polygons are judged at once.
    std::unique_ptr<std::atomic<int32_t>[]> parent(new std::atomic<int32_t>[static_cast<size_t>(corners)]);
    tessParallel(corners, TESS_GRAIN, [&](int64_t from, int64_t to) {
        for (int64_t c = from; c < to; ++c) parent[static_cast<size_t>(c)].store(static_cast<int32_t>(c), std::memory_order_relaxed);
    });
    tessParallel(m->edgeBlocks ? m->polygonCount : 0, TESS_GRAIN, [&](int64_t from, int64_t to) {
        for (int32_t p = static_cast<int32_t>(from); p < to; ++p) {
            const MeshPolygon &a = m->polygons[p];
            if (!usable[static_cast<size_t>(p)]) continue;
            for (int k = 0; k < a.nodeCount; ++k) {
                const int32_t e = a.nodes[k].edg;
                if (e < 0 || e >= m->edgeCount) continue;
                MeshEdge *edge = meshEdge(m, e);
                const int32_t q = edge->pol[1];
                if (edge->pol[0] != p || q < 0 || q >= m->polygonCount || q == p || !usable[static_cast<size_t>(q)])
                    continue;
                const MeshPolygon &b = m->polygons[q];
                int at = -1;
                for (int i = 0; i < b.nodeCount && at < 0; ++i)
                    if (b.nodes[i].edg == e) at = i;
                if (at < 0) continue;
                // The two ends of the edge, as corners of each polygon.
                const int a0 = k, a1 = (k + 1) % a.nodeCount, b0 = at, b1 = (at + 1) % b.nodeCount;
                int pairB[2];
                if (b.nodes[b0].vrt == a.nodes[a1].vrt && b.nodes[b1].vrt == a.nodes[a0].vrt) {
                    pairB[0] = b1; pairB[1] = b0;
                } else if (b.nodes[b0].vrt == a.nodes[a0].vrt && b.nodes[b1].vrt == a.nodes[a1].vrt) {
                    pairB[0] = b0; pairB[1] = b1;
                } else {
                    continue;
                }
                bool hard = edge->flg & EDGE_HARD;
                if (!hard && materialCount > 1 && materialOf(a) != materialOf(b))
                    hard = hasOwnTexture(materialOf(a), local) || hasOwnTexture(materialOf(b), local);
                const int endA[2] = {a0, a1};
                for (int end = 0; end < 2 && !hard; ++end) {
                    const MeshNode &na = a.nodes[endA[end]], &nb = b.nodes[pairB[end]];
                    hard = apart3(cornerNormal(a, na), cornerNormal(b, nb), NORMAL_APART) ||
                           (uvUsed && uvApart(na, nb, extraSets));
                }
                if (hard) {
                    edge->flg |= EDGE_HARD;
                    continue;
                }
                for (int end = 0; end < 2; ++end)
                    unite(parent.get(), static_cast<int32_t>(firstCorner[static_cast<size_t>(p)] + endA[end]),
                          static_cast<int32_t>(firstCorner[static_cast<size_t>(q)] + pairB[end]));
            }
        }
    });

    // One vertex record per fan of corners joined by smooth edges, numbered
    // in the order of the fans' first corners and written from them. Each
    // range numbers its own first corners after the ranges before it.
    std::vector<int32_t> vertexOf(static_cast<size_t>(corners), -1);
    std::vector<int32_t> firstOf;  // per vertex record, its first corner
    {
        std::vector<uint8_t> isFirst(static_cast<size_t>(corners), 0);
        tessParallel(m->polygonCount, TESS_GRAIN, [&](int64_t from, int64_t to) {
            for (int32_t p = static_cast<int32_t>(from); p < to; ++p) {
                if (!usable[static_cast<size_t>(p)]) continue;
                for (int64_t c = firstCorner[static_cast<size_t>(p)]; c < firstCorner[static_cast<size_t>(p) + 1]; ++c)
                    isFirst[static_cast<size_t>(c)] = findRoot(parent.get(), static_cast<int32_t>(c)) == c;
            }
        });
        for (int64_t c = 0; c < corners; ++c)
            if (isFirst[static_cast<size_t>(c)]) {
                vertexOf[static_cast<size_t>(c)] = static_cast<int32_t>(firstOf.size());
                firstOf.push_back(static_cast<int32_t>(c));
            }
    }
    const int32_t vertexCount = static_cast<int32_t>(firstOf.size());
    tessParallel(corners, TESS_GRAIN, [&](int64_t from, int64_t to) {
        for (int64_t c = from; c < to; ++c)
            if (vertexOf[static_cast<size_t>(c)] < 0) {
                const int32_t root = parent[static_cast<size_t>(c)].load(std::memory_order_relaxed);
                vertexOf[static_cast<size_t>(c)] = root == c ? -1 : vertexOf[static_cast<size_t>(findRoot(parent.get(), root))];
            }
    });
    int64_t triangleBound = 0;
    for (int32_t p = 0; p < m->polygonCount; ++p)
        if (usable[static_cast<size_t>(p)]) triangleBound += m->polygons[p].nodeCount - 2;
    if (vertexCount == 0) return 0;
    parent.reset();
    tessArraysNew(model, vertexCount, triangleBound);
    tessParallel(vertexCount, TESS_GRAIN, [&](int64_t from, int64_t to) {
        for (int64_t vi = from; vi < to; ++vi) {
            const int32_t c = firstOf[static_cast<size_t>(vi)];
            const int32_t p = static_cast<int32_t>(
                std::upper_bound(firstCorner.begin(), firstCorner.end(), int64_t{c}) - firstCorner.begin() - 1);
            const MeshPolygon &poly = m->polygons[p];
            const MeshNode &node = poly.nodes[c - firstCorner[static_cast<size_t>(p)]];
            TessVertex *v = &model->vertices[vi];
            // Stored turned (1 - value): the UV method of the strips turns it back.
            tessVertexSet(v, uvUsed ? 1.0f - node.u : 0.0f, uvUsed ? 1.0f - node.v : 0.0f,
                          m->vertices[node.vrt].pos, cornerNormal(poly, node));
            v->colour = node.colour;
            if (reference != m && node.vrt < reference->vertexCount && reference->vertices)
                memcpy(v->refPos, reference->vertices[node.vrt].pos, sizeof v->refPos);
        }
    });

    // Triangles, polygon by polygon, each range of polygons from the place of
    // its first polygon's first triangle; polygons the triangulator refuses
    // are left out, and the ranges are closed up after.
    std::vector<int64_t> triangleFirst(static_cast<size_t>(m->polygonCount) + 1, 0);
    for (int32_t p = 0; p < m->polygonCount; ++p)
        triangleFirst[static_cast<size_t>(p) + 1] =
            triangleFirst[static_cast<size_t>(p)] + (usable[static_cast<size_t>(p)] ? m->polygons[p].nodeCount - 2 : 0);
    struct Made {
        int64_t first, count;  // where the range wrote, how many triangles
    };
    std::vector<Made> made;
    std::mutex madeLock;
    tessParallel(m->polygonCount, TESS_GRAIN, [&](int64_t from, int64_t to) {
        const int64_t first = triangleFirst[static_cast<size_t>(from)];
        int64_t triangles = first;
        size_t room = 1000;
        float (*points)[3] = static_cast<float (*)[3]>(tessAlloc(room, sizeof(float[3])));
        int *triples = static_cast<int *>(tessAlloc(3 * room, sizeof(int)));
        for (int32_t p = static_cast<int32_t>(from); p < to; ++p) {
            if (!usable[static_cast<size_t>(p)]) continue;
            const MeshPolygon &poly = m->polygons[p];
            const int64_t base = firstCorner[static_cast<size_t>(p)];
            Material *material = materialOf(poly);
            const uint16_t index = materials && poly.material < materialCount ? poly.material : 0;
            auto emit = [&](int c0, int c1, int c2) {
                TessTriangle *t = &model->triangles[triangles++];
                t->v[0] = &model->vertices[vertexOf[static_cast<size_t>(base + c0)]];
                t->v[1] = &model->vertices[vertexOf[static_cast<size_t>(base + c1)]];
                t->v[2] = &model->vertices[vertexOf[static_cast<size_t>(base + c2)]];
                t->material = material;
                t->materialIndex = index;
            };
            if (poly.nodeCount == 3) {
                emit(0, 1, 2);
                continue;
            }
            if (poly.nodeCount > room) {
                while (room < poly.nodeCount) room *= 2;
                points = static_cast<float (*)[3]>(tessGrow(points, room, sizeof(float[3])));
                triples = static_cast<int *>(tessGrow(triples, 3 * room, sizeof(int)));
            }
            for (int k = 0; k < poly.nodeCount; ++k) memcpy(points[k], m->vertices[poly.nodes[k].vrt].pos, sizeof points[k]);
            const int count = poly.nodeCount;
            const int madeHere = polygonTriangulate3D(points, &count, 1, triples);
            for (int t = 0; t < madeHere; ++t) emit(triples[3 * t], triples[3 * t + 1], triples[3 * t + 2]);
        }
        free(points);
        free(triples);
        std::lock_guard<std::mutex> hold(madeLock);
        made.push_back(Made{first, triangles - first});
    });
    std::sort(made.begin(), made.end(), [](const Made &x, const Made &y) { return x.first < y.first; });
    int64_t triangles = 0;
    for (const Made &r : made) {
        if (r.first != triangles)
            memmove(&model->triangles[triangles], &model->triangles[r.first], static_cast<size_t>(r.count) * sizeof(TessTriangle));
        triangles += r.count;
    }
    tessTrianglesLink(model, static_cast<int32_t>(triangles));
    return 0;
}

// ---------------------------------------------------------------------------
// Faces

namespace {

void loopFromSpline(const Spline &s, std::vector<float> &out) {
    // The boundary runs through the spline's vertices.
    for (int i = 0; s.vertices && i < s.vertexCount; ++i) out.insert(out.end(), s.vertices[i].pos, s.vertices[i].pos + 3);
}

// Drops a closing point that repeats the first one; false when fewer than
// three points are left.
bool loopFinish(std::vector<float> &loop) {
    size_t n = loop.size() / 3;
    if (n >= 2 && loop[0] == loop[3 * n - 3] && loop[1] == loop[3 * n - 2] && loop[2] == loop[3 * n - 1])
        loop.resize(3 * --n);
    return n >= 3;
}

bool insideLoop(const std::vector<float> &loop, const float *p, int ax, int ay) {
    bool inside = false;
    const size_t n = loop.size() / 3;
    for (size_t i = 0, j = n - 1; i < n; j = i++) {
        const float *a = &loop[3 * i], *b = &loop[3 * j];
        if ((a[ay] > p[ay]) != (b[ay] > p[ay]) &&
            p[ax] < (b[ax] - a[ax]) * (p[ay] - a[ay]) / (b[ay] - a[ay]) + a[ax])
            inside = !inside;
    }
    return inside;
}

}  // namespace

Mesh *faceToMesh(const Face *face) {
    if (!face) return nullptr;
    std::vector<std::vector<float>> loops(1);
    loopFromSpline(face->boundary, loops[0]);
    if (!loopFinish(loops[0])) return nullptr;
    // The plane's normal (Newell) and its dominant axis for the UV.
    const std::vector<float> &outer = loops[0];
    const size_t n0 = outer.size() / 3;
    double n[3] = {0, 0, 0};
    for (size_t i = 0; i < n0; ++i) {
        const float *a = &outer[3 * i], *b = &outer[3 * ((i + 1) % n0)];
        n[0] += (static_cast<double>(a[1]) - b[1]) * (static_cast<double>(a[2]) + b[2]);
        n[1] += (static_cast<double>(a[2]) - b[2]) * (static_cast<double>(a[0]) + b[0]);
        n[2] += (static_cast<double>(a[0]) - b[0]) * (static_cast<double>(a[1]) + b[1]);
    }
    const double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    if (!(len > 0)) return nullptr;
    const float normal[3] = {static_cast<float>(n[0] / len), static_cast<float>(n[1] / len),
                             static_cast<float>(n[2] / len)};
    const int drop = std::fabs(n[0]) >= std::fabs(n[1]) && std::fabs(n[0]) >= std::fabs(n[2]) ? 0
                     : std::fabs(n[1]) >= std::fabs(n[2])                                    ? 1
                                                                                             : 2;
    const int ax = drop == 0 ? 1 : 0, ay = drop == 2 ? 1 : 2;
    // Holes; one inside another hole adds nothing and is left out.
    for (int h = 0; h < face->holeCount; ++h) {
        std::vector<float> loop;
        if (face->isSpline && face->holes) {
            loopFromSpline(face->holes[h], loop);
        } else if (!face->isSpline && face->curveHoles) {
            const NurbsCurve &c = face->curveHoles[h];
            float (*pts)[3] = nullptr;
            const int count = nurbsCurveSample(&c, c.step > 0 ? c.step : 4, &pts);
            for (int i = 0; i < count; ++i) loop.insert(loop.end(), pts[i], pts[i] + 3);
            free(pts);
        }
        if (!loopFinish(loop)) continue;
        bool nested = false;
        for (size_t l = 1; l < loops.size() && !nested; ++l) nested = insideLoop(loops[l], loop.data(), ax, ay);
        if (!nested) loops.push_back(std::move(loop));
    }

    std::vector<float> all;
    std::vector<int> counts;
    for (const std::vector<float> &l : loops) {
        all.insert(all.end(), l.begin(), l.end());
        counts.push_back(static_cast<int>(l.size() / 3));
    }
    const int total = static_cast<int>(all.size() / 3);
    std::vector<int> triples(3 * static_cast<size_t>(total + 2 * static_cast<int>(loops.size())));
    const int made = polygonTriangulate3D(reinterpret_cast<const float (*)[3]>(all.data()), counts.data(),
                                          static_cast<int>(counts.size()), triples.data());
    if (made <= 0) return nullptr;

    Mesh *m = static_cast<Mesh *>(tessAlloc(1, sizeof(Mesh)));
    m->uvDomainCount = 1;
    m->vertexCount = total;
    m->vertices = static_cast<MeshVertex *>(tessAlloc(static_cast<size_t>(total), sizeof(MeshVertex)));
    float lo[2] = {all[static_cast<size_t>(ax)], all[static_cast<size_t>(ay)]}, hi[2] = {lo[0], lo[1]};
    for (int i = 0; i < total; ++i) {
        memcpy(m->vertices[i].pos, &all[3 * static_cast<size_t>(i)], sizeof m->vertices[i].pos);
        lo[0] = std::min(lo[0], m->vertices[i].pos[ax]);
        hi[0] = std::max(hi[0], m->vertices[i].pos[ax]);
        lo[1] = std::min(lo[1], m->vertices[i].pos[ay]);
        hi[1] = std::max(hi[1], m->vertices[i].pos[ay]);
    }
    const float span[2] = {hi[0] > lo[0] ? hi[0] - lo[0] : 1.0f, hi[1] > lo[1] ? hi[1] - lo[1] : 1.0f};
    m->polygonCount = made;
    m->polygons = static_cast<MeshPolygon *>(tessAlloc(static_cast<size_t>(made), sizeof(MeshPolygon)));
    m->nodeBlock = static_cast<MeshNode *>(tessAlloc(3 * static_cast<size_t>(made), sizeof(MeshNode)));
    m->nodeBlockCount = 3 * int64_t{made};
    // Edges: each side of a triangle once.
    std::vector<std::pair<int, int>> sides;
    for (int t = 0; t < made; ++t) {
        MeshPolygon &poly = m->polygons[t];
        memcpy(poly.nrm, normal, sizeof poly.nrm);
        poly.nodes = &m->nodeBlock[3 * t];
        poly.nodeCount = 3;
        for (int k = 0; k < 3; ++k) {
            MeshNode &node = poly.nodes[k];
            node.vrt = triples[3 * static_cast<size_t>(t) + static_cast<size_t>(k)];
            memcpy(node.nrm, normal, sizeof node.nrm);
            node.u = (m->vertices[node.vrt].pos[ax] - lo[0]) / span[0];
            node.v = (m->vertices[node.vrt].pos[ay] - lo[1]) / span[1];
            node.colour = TESS_DEFAULT_COLOUR;
            const int a = node.vrt, b = triples[3 * static_cast<size_t>(t) + static_cast<size_t>((k + 1) % 3)];
            sides.emplace_back(std::min(a, b), std::max(a, b));
        }
    }
    std::sort(sides.begin(), sides.end());
    sides.erase(std::unique(sides.begin(), sides.end()), sides.end());
    m->edgeCount = static_cast<int32_t>(sides.size());
    const size_t blocks = (sides.size() + MESH_EDGE_BLOCK - 1) / MESH_EDGE_BLOCK;
    m->edgeBlocks = static_cast<MeshEdge **>(tessAlloc(blocks, sizeof(MeshEdge *)));
    for (size_t b = 0; b < blocks; ++b) m->edgeBlocks[b] = static_cast<MeshEdge *>(tessAlloc(MESH_EDGE_BLOCK, sizeof(MeshEdge)));
    for (int32_t e = 0; e < m->edgeCount; ++e) {
        MeshEdge *edge = meshEdge(m, e);
        edge->vrt[0] = sides[static_cast<size_t>(e)].first;
        edge->vrt[1] = sides[static_cast<size_t>(e)].second;
    }
    if (!meshLink(m)) tessFatal();
    return m;
}

int tessellateFace(Model *model, Face *shape, Face *reference) {
    Mesh *mesh = faceToMesh(shape);
    if (!mesh) return 0;
    Mesh *ref = reference && reference != shape ? faceToMesh(reference) : nullptr;
    const int materials = model->materials && model->materialCount > 0 ? 1 : 0;
    const int status = tessellateMesh(model, mesh, ref ? ref : mesh, model->materials, materials, 0);
    meshFree(mesh);
    meshFree(ref);
    return status;
}
