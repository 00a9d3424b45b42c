// Writers of test databases on top of the database, naming and file code,
// and shapes made in memory.
#include "testdata.h"

#include <sys/time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include "dictionary.h"

namespace {

// An element about to be saved in a chapter: its name record with the next
// version, and the path of its file without the chapter suffix.
struct Target {
    ElemName name;
    std::string stem;
    std::string suffix;
};

bool targetFor(Database *db, int chapterId, const std::string &elemName, Target &t) {
    if (!db || elemName.empty()) return false;
    const char *chapter = g_chapterTable[chapterId].dir;
    std::string ignoredSuffix;
    elemNameSplit(elemName.c_str(), t.name.prefix, t.name.name, t.name.version,
                  t.name.revision, ignoredSuffix);
    t.name.version = std::to_string(elemNextVersion(db, chapter, &t.name));
    t.name.revision = "0";
    t.name.fullName = elemNameFormat(t.name);
    // elemNextVersion left the chapter selected on the database.
    t.stem = db->chapterPath + t.name.fullName;
    t.suffix = g_chapterTable[chapterId].suffix;
    return true;
}

// The write's outcome: the file's path, or "" with a report.
std::string finish(Database *db, int chapterId, const Target &t, int written) {
    std::string path = t.stem + "." + t.suffix;
    if (!written) {
        fprintf(stderr, "testdata: cannot write %s\n", path.c_str());
        return "";
    }
    elemPruneVersions(db, g_chapterTable[chapterId].dir, &t.name);
    return path;
}

}  // namespace

Database *tdDatabaseCreate(const std::string &dir, const std::string &name,
                           const std::string &dirFile) {
    int result = dbCreate(g_dbList, name.c_str(), dir.c_str(),
                          dirFile.empty() ? nullptr : dirFile.c_str());
    if (result != DB_CREATE_OK) {
        fprintf(stderr, "testdata: cannot create the database %s at %s (code %d)\n",
                name.c_str(), dir.c_str(), result);
        return nullptr;
    }
    // The table holds the path as dbCreate expanded it.
    char expanded[BW_PATH_MAX];
    dbExpandPath(dir.c_str(), expanded);
    int index = -1;
    if (!dbFindExact(g_dbList, name.c_str(), expanded, &index)) return nullptr;
    return &g_dbList.items[static_cast<size_t>(index)];
}

std::string tdWriteModel(Database *db, const std::string &name, const Model *root) {
    Target t;
    if (!root || !targetFor(db, CHP_MODELS, name, t)) return "";
    // Unlike the material writers, the model writer takes the whole file name.
    return finish(db, CHP_MODELS, t, modelFileWritePath((t.stem + "." + t.suffix).c_str(), root));
}

std::string tdWriteMaterial(Database *db, const std::string &name, const Material &material) {
    Target t;
    if (!targetFor(db, CHP_MATERIALS, name, t)) return "";
    return finish(db, CHP_MATERIALS, t, materialFileWrite(t.stem.c_str(), material, nullptr));
}

std::string tdWriteTexture2D(Database *db, const std::string &name, const Texture2D &texture) {
    Target t;
    if (!targetFor(db, CHP_TEXTURES2D, name, t)) return "";
    return finish(db, CHP_TEXTURES2D, t, texture2DFileWrite(t.stem.c_str(), texture, nullptr));
}

std::string tdWritePicture(Database *db, const std::string &name, const PictureInfo &picture) {
    Target t;
    if (!targetFor(db, CHP_PICTURES, name, t)) return "";
    return finish(db, CHP_PICTURES, t, picWriteImage((t.stem + "." + t.suffix).c_str(), &picture, PIC_WRITE_RUNS));
}

PictureInfo tdPictureNew(uint16_t width, uint16_t height, bool alpha) {
    PictureInfo p{};
    p.width = width;
    p.height = height;
    p.ratio = height ? static_cast<float>(width) / height : 1.0f;
    for (int k = 0; k < (alpha ? 4 : 3); ++k)
        p.planes[k] = static_cast<uint8_t *>(calloc(static_cast<size_t>(width) * height, 1));
    return p;
}

std::string tdWriteCamera(Database *db, const std::string &name, const Camera &camera) {
    Target t;
    if (!targetFor(db, CHP_CAMERAS, name, t)) return "";
    return finish(db, CHP_CAMERAS, t, cameraFileWrite((t.stem + "." + t.suffix).c_str(), camera, nullptr));
}

std::string tdWriteLight(Database *db, const std::string &name, const Light &light) {
    Target t;
    if (!targetFor(db, CHP_LIGHTS, name, t)) return "";
    return finish(db, CHP_LIGHTS, t, lightFileWrite((t.stem + "." + t.suffix).c_str(), light, nullptr));
}

std::string tdWriteAnimation(Database *db, const std::string &name, const AnimItem *items) {
    Target t;
    if (!items || !targetFor(db, CHP_ANIMATION, name, t)) return "";
    return finish(db, CHP_ANIMATION, t, animFileWrite((t.stem + "." + t.suffix).c_str(), items));
}

std::string tdWriteShapes(Database *db, const std::string &name, const ShapeKeys &keys) {
    Target t;
    if (!targetFor(db, CHP_SHAPES, name, t)) return "";
    return finish(db, CHP_SHAPES, t, shapeFileWrite((t.stem + "." + t.suffix).c_str(), &keys));
}

std::string tdWriteWave(Database *db, const std::string &name, const Wave &wave) {
    Target t;
    if (!targetFor(db, CHP_WAVES, name, t)) return "";
    return finish(db, CHP_WAVES, t, waveFileWrite((t.stem + "." + t.suffix).c_str(), wave));
}

void tdWriteBytes(Database *db, int chapter, const std::string &fullName, const std::string &bytes) {
    dbSetChapter(*db, g_chapterTable[chapter].dir);
    FILE *f = fopen((db->chapterPath + fullName + "." + g_chapterTable[chapter].suffix).c_str(), "wb");
    if (!f) return;
    fwrite(bytes.data(), 1, bytes.size(), f);
    fclose(f);
}

std::string tdWriteLattice(Database *db, const std::string &name, const Lattice &lattice) {
    Target t;
    if (!targetFor(db, CHP_LATTICES, name, t)) return "";
    return finish(db, CHP_LATTICES, t, latticeFileWrite((t.stem + "." + t.suffix).c_str(), lattice, nullptr));
}

std::string tdWriteSetup(Database *db, const std::string &name, const SceneSetup &setup) {
    Target t;
    if (!targetFor(db, CHP_SETUP_BRAK, name, t)) return "";
    return finish(db, CHP_SETUP_BRAK, t, sceneSetupWrite((t.stem + "." + t.suffix).c_str(), setup));
}

std::string tdWriteExpressions(Database *db, const std::string &name,
                               const std::vector<ExprFileEntry> &entries) {
    Target t;
    if (!targetFor(db, CHP_EXPRESSIONS, name, t)) return "";
    return finish(db, CHP_EXPRESSIONS, t, exprFileWrite((t.stem + "." + t.suffix).c_str(), entries));
}

std::string tdWriteScene(Database *db, const std::string &name, const std::string &text,
                         time_t mtime) {
    Target t;
    if (!targetFor(db, CHP_SCENES, name, t)) return "";
    std::string path = t.stem + "." + t.suffix;
    int written = 0;
    // No scene writer exists yet: the text goes to the file as it stands.
    if (FILE *f = fopen(path.c_str(), "wb")) {
        written = fwrite(text.data(), 1, text.size(), f) == text.size();
        written = (fclose(f) == 0) && written;
        struct timeval times[2] = {{mtime, 0}, {mtime, 0}};
        written = written && utimes(path.c_str(), times) == 0;
    }
    return finish(db, CHP_SCENES, t, written);
}

std::string tdFullName(const std::string &path) {
    size_t slash = path.rfind('/');
    std::string file = slash == std::string::npos ? path : path.substr(slash + 1);
    size_t dot = file.rfind('.');
    return dot == std::string::npos ? file : file.substr(0, dot);
}

int tdLoadRelations() {
    const char *dir = getenv("BW_RSRC");
    std::string path = std::string(dir ? dir : BW_SOURCE_DIR "/rsrc") + "/Relations.rsrc";
    return dbLoadRelationDictionary(&g_relationDict, path.c_str(), 0);
}

TdScene::TdScene() {
    dictInit(&dict);
    dictCreateChapters(&dict, nullptr, 0);
}

TdScene::~TdScene() { dictFree(&dict, 0); }

int TdScene::add(int chapter, const std::string &fullName, bool root) {
    ElemName *name = elemNameParse(fullName.c_str(), nullptr, 0);
    int index = elemAdd(&dict, chapter, name, nullptr, nullptr, 0, 0);
    if (Element *e = elemGet(&dict, chapter, index)) e->lev = root ? 0 : 1;
    return index;
}

bool TdScene::relate(int srcChapter, int src, int dstChapter, int dst, int32_t relid) {
    if (relSameChapters(&g_relationDict, relid))
        return relAddVia(&dict, &g_relationDict, srcChapter, src, dstChapter, dst, relid, 1, 1,
                         nullptr, 1) != 0;
    return relAdd(&dict, &g_relationDict, src, dst, relid, 1, 1, nullptr, 1) != 0;
}

Element *TdScene::element(int chapter, int index) { return elemGet(&dict, chapter, index); }

std::string tdWriteScene(Database *db, const std::string &name, TdScene &scene, time_t mtime,
                         float version) {
    Target t;
    if (!targetFor(db, CHP_SCENES, name, t)) return "";
    std::string path = t.stem + "." + t.suffix;
    int written = sceneWrite(&scene.dict, path.c_str(), version);
    struct timeval times[2] = {{mtime, 0}, {mtime, 0}};
    written = written && utimes(path.c_str(), times) == 0;
    return finish(db, CHP_SCENES, t, written);
}

Mesh *tdMakeGridMesh(int32_t quadsU, int32_t quadsV) {
    const int32_t vu = quadsU + 1, vv = quadsV + 1;
    const int64_t triangles = int64_t{2} * quadsU * quadsV;
    Mesh *m = static_cast<Mesh *>(calloc(1, sizeof(Mesh)));
    m->uvDomainCount = 1;
    m->discontinuity = 60.0f;
    m->cosDiscontinuity = 0.5f;
    m->vertexCount = vu * vv;
    m->vertices = static_cast<MeshVertex *>(calloc(static_cast<size_t>(m->vertexCount), sizeof(MeshVertex)));
    for (int32_t j = 0; j < vv; ++j)
        for (int32_t i = 0; i < vu; ++i) {
            float *p = m->vertices[j * vu + i].pos;
            p[0] = static_cast<float>(i);
            p[2] = static_cast<float>(j);
        }
    std::vector<std::pair<int32_t, int32_t>> edges;
    edges.reserve(static_cast<size_t>(3) * quadsU * quadsV + quadsU + quadsV);
    for (int32_t j = 0; j < vv; ++j)
        for (int32_t i = 0; i < vu; ++i) {
            const int32_t v = j * vu + i;
            if (i + 1 < vu) edges.emplace_back(v, v + 1);
            if (j + 1 < vv) edges.emplace_back(v, v + vu);
            if (i + 1 < vu && j + 1 < vv) edges.emplace_back(v, v + vu + 1);
        }
    m->edgeCount = static_cast<int32_t>(edges.size());
    const int32_t blocks = (m->edgeCount + MESH_EDGE_BLOCK - 1) / MESH_EDGE_BLOCK;
    m->edgeBlocks = static_cast<MeshEdge **>(calloc(static_cast<size_t>(blocks), sizeof(MeshEdge *)));
    for (int32_t b = 0; b < blocks; ++b)
        m->edgeBlocks[b] = static_cast<MeshEdge *>(calloc(MESH_EDGE_BLOCK, sizeof(MeshEdge)));
    for (int32_t e = 0; e < m->edgeCount; ++e) {
        meshEdge(m, e)->vrt[0] = edges[static_cast<size_t>(e)].first;
        meshEdge(m, e)->vrt[1] = edges[static_cast<size_t>(e)].second;
    }
    m->polygons = static_cast<MeshPolygon *>(calloc(static_cast<size_t>(triangles), sizeof(MeshPolygon)));
    m->nodeBlock = static_cast<MeshNode *>(calloc(static_cast<size_t>(3 * triangles), sizeof(MeshNode)));
    m->nodeBlockCount = 3 * triangles;
    for (int32_t j = 0; j < quadsV; ++j)
        for (int32_t i = 0; i < quadsU; ++i) {
            const int32_t v = j * vu + i;
            // Counter-clockwise seen from +Y.
            const int32_t corners[2][3] = {{v, v + vu + 1, v + 1}, {v, v + vu, v + vu + 1}};
            for (const auto &tri : corners) {
                MeshPolygon &poly = m->polygons[m->polygonCount];
                poly.nodes = &m->nodeBlock[3 * static_cast<size_t>(m->polygonCount++)];
                poly.nrm[1] = 1.0f;
                poly.nodeCount = 3;
                for (int k = 0; k < 3; ++k) {
                    MeshNode &n = poly.nodes[k];
                    n.vrt = tri[k];
                    n.nrm[1] = 1.0f;
                    n.u = m->vertices[tri[k]].pos[0] / static_cast<float>(quadsU);
                    n.v = m->vertices[tri[k]].pos[2] / static_cast<float>(quadsV);
                    n.colour = 0xFFFFFFFFu;
                }
            }
        }
    meshLink(m);
    return m;
}

Mesh *tdMakeSphereMesh(int32_t slices, int32_t stacks, float radius) {
    if (slices < 3 || stacks < 2 || radius <= 0.0f) return nullptr;
    const int32_t rings = stacks - 1;
    const int32_t south = 1 + rings * slices;
    const int64_t triangles = int64_t{2} * slices * rings;
    Mesh *m = static_cast<Mesh *>(calloc(1, sizeof(Mesh)));
    m->uvDomainCount = 1;
    m->discontinuity = 60.0f;
    m->cosDiscontinuity = 0.5f;
    m->vertexCount = south + 1;
    m->vertices = static_cast<MeshVertex *>(calloc(static_cast<size_t>(m->vertexCount), sizeof(MeshVertex)));
    const double pi = 3.14159265358979323846;
    // Latitude from the north pole (+Y), longitude turning from +X towards -Z.
    auto unit = [&](int32_t j, int32_t i, float out[3]) {
        const double theta = pi * j / stacks, phi = 2.0 * pi * i / slices;
        out[0] = static_cast<float>(std::sin(theta) * std::cos(phi));
        out[1] = static_cast<float>(std::cos(theta));
        out[2] = static_cast<float>(-std::sin(theta) * std::sin(phi));
    };
    // Vertex at ring j (0 the north pole, stacks the south pole), meridian i.
    auto vertexAt = [&](int32_t j, int32_t i) -> int32_t {
        if (j == 0) return 0;
        if (j == stacks) return south;
        return 1 + (j - 1) * slices + i % slices;
    };
    for (int32_t j = 0; j <= stacks; ++j)
        for (int32_t i = 0; i < ((j == 0 || j == stacks) ? 1 : slices); ++i) {
            float *p = m->vertices[vertexAt(j, i)].pos;
            unit(j, i, p);
            for (int k = 0; k < 3; ++k) p[k] *= radius;
        }

    m->polygons = static_cast<MeshPolygon *>(calloc(static_cast<size_t>(triangles), sizeof(MeshPolygon)));
    m->nodeBlock = static_cast<MeshNode *>(calloc(static_cast<size_t>(3 * triangles), sizeof(MeshNode)));
    m->nodeBlockCount = 3 * triangles;
    std::vector<int64_t> edges;
    edges.reserve(static_cast<size_t>(3 * triangles));
    // Corners as (ring, meridian), counter-clockwise seen from outside.
    auto addTriangle = [&](const int32_t corner[3][2]) {
        MeshPolygon &poly = m->polygons[m->polygonCount];
        poly.nodes = &m->nodeBlock[3 * static_cast<size_t>(m->polygonCount++)];
        poly.nodeCount = 3;
        int32_t v[3];
        for (int k = 0; k < 3; ++k) v[k] = vertexAt(corner[k][0], corner[k][1]);
        const float *a = m->vertices[v[0]].pos, *b = m->vertices[v[1]].pos, *c = m->vertices[v[2]].pos;
        const float e1[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
        const float e2[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
        float n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2], e1[0] * e2[1] - e1[1] * e2[0]};
        const float len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        for (int k = 0; k < 3 && len > 0.0f; ++k) poly.nrm[k] = n[k] / len;
        for (int k = 0; k < 3; ++k) {
            MeshNode &node = poly.nodes[k];
            node.vrt = v[k];
            for (int c3 = 0; c3 < 3; ++c3) node.nrm[c3] = m->vertices[v[k]].pos[c3] / radius;
            const int32_t j = corner[k][0];
            // A pole's corner takes the middle of its triangle's meridians.
            const bool pole = j == 0 || j == stacks;
            const int32_t other = corner[k == 0 ? 1 : 0][1];
            node.u = pole ? (static_cast<float>(other) + 0.5f) / static_cast<float>(slices)
                          : static_cast<float>(corner[k][1]) / static_cast<float>(slices);
            node.v = static_cast<float>(j) / static_cast<float>(stacks);
            node.colour = 0xFFFFFFFFu;
            const int32_t x = v[k], y = v[(k + 1) % 3];
            edges.push_back(int64_t{std::min(x, y)} << 32 | std::max(x, y));
        }
    };
    for (int32_t j = 0; j < stacks; ++j)
        for (int32_t i = 0; i < slices; ++i) {
            // The quad (j, i) (j, i + 1) (j + 1, i + 1) (j + 1, i); at a pole
            // it keeps only the triangle that is not flat.
            const int32_t upper[3][2] = {{j, i}, {j + 1, i}, {j, i + 1}};
            const int32_t lower[3][2] = {{j, i + 1}, {j + 1, i}, {j + 1, i + 1}};
            if (j != 0) addTriangle(upper);
            if (j != stacks - 1) addTriangle(lower);
        }

    std::sort(edges.begin(), edges.end());
    edges.erase(std::unique(edges.begin(), edges.end()), edges.end());
    m->edgeCount = static_cast<int32_t>(edges.size());
    const int32_t blocks = (m->edgeCount + MESH_EDGE_BLOCK - 1) / MESH_EDGE_BLOCK;
    m->edgeBlocks = static_cast<MeshEdge **>(calloc(static_cast<size_t>(blocks), sizeof(MeshEdge *)));
    for (int32_t b = 0; b < blocks; ++b)
        m->edgeBlocks[b] = static_cast<MeshEdge *>(calloc(MESH_EDGE_BLOCK, sizeof(MeshEdge)));
    for (int32_t e = 0; e < m->edgeCount; ++e) {
        meshEdge(m, e)->vrt[0] = static_cast<int32_t>(edges[static_cast<size_t>(e)] >> 32);
        meshEdge(m, e)->vrt[1] = static_cast<int32_t>(edges[static_cast<size_t>(e)] & 0xFFFFFFFF);
    }
    meshLink(m);
    return m;
}

int tdWriteObj(const std::string &path, const Mesh *mesh) {
    if (!mesh || !mesh->vertices || !mesh->polygons) return 0;
    FILE *f = fopen(path.c_str(), "wb");
    if (!f) {
        fprintf(stderr, "testdata: cannot write %s\n", path.c_str());
        return 0;
    }
    std::vector<char> buffer(size_t{1} << 20);
    setvbuf(f, buffer.data(), _IOFBF, buffer.size());
    fprintf(f, "# %d vertices, %d polygons\n", mesh->vertexCount, mesh->polygonCount);
    auto put = [&](const char *key, int digits, const float *a) {
        fprintf(f, "%s %.*g %.*g %.*g\n", key, digits, static_cast<double>(a[0]), digits,
                static_cast<double>(a[1]), digits, static_cast<double>(a[2]));
    };
    for (int32_t i = 0; i < mesh->vertexCount; ++i) put("v", 7, mesh->vertices[i].pos);
    // A corner's normal is its own, else its polygon's. Each vertex takes the
    // normal of the first corner at it; a corner that disagrees gets its own.
    auto cornerNormal = [](const MeshPolygon &poly, const MeshNode &node) -> const float * {
        const float *n = node.nrm;
        return n[0] != 0.0f || n[1] != 0.0f || n[2] != 0.0f ? n : poly.nrm;
    };
    std::vector<const float *> vertexNormal(static_cast<size_t>(mesh->vertexCount), nullptr);
    for (int32_t p = 0; p < mesh->polygonCount; ++p) {
        const MeshPolygon &poly = mesh->polygons[p];
        for (int k = 0; poly.nodes && k < poly.nodeCount; ++k) {
            const int32_t v = poly.nodes[k].vrt;
            if (v >= 0 && v < mesh->vertexCount && !vertexNormal[static_cast<size_t>(v)])
                vertexNormal[static_cast<size_t>(v)] = cornerNormal(poly, poly.nodes[k]);
        }
    }
    static const float up[3] = {0.0f, 1.0f, 0.0f};
    for (const float *n : vertexNormal) {
        put("vn", 6, n ? n : up);
    }
    int64_t extra = mesh->vertexCount;  // normals written so far
    for (int32_t p = 0; p < mesh->polygonCount; ++p) {
        const MeshPolygon &poly = mesh->polygons[p];
        if (!poly.nodes || poly.nodeCount < 3) continue;
        int64_t normal[64];
        const int count = poly.nodeCount < 64 ? poly.nodeCount : 64;
        bool ok = true;
        for (int k = 0; k < count; ++k) {
            const int32_t v = poly.nodes[k].vrt;
            ok = ok && v >= 0 && v < mesh->vertexCount;
            if (!ok) break;
            const float *n = cornerNormal(poly, poly.nodes[k]);
            if (memcmp(n, vertexNormal[static_cast<size_t>(v)], 3 * sizeof(float)) == 0) {
                normal[k] = v + 1;
            } else {
                put("vn", 6, n);
                normal[k] = ++extra;
            }
        }
        if (!ok) continue;
        fputc('f', f);
        for (int k = 0; k < count; ++k)
            fprintf(f, " %d//%lld", poly.nodes[k].vrt + 1, static_cast<long long>(normal[k]));
        fputc('\n', f);
    }
    const bool written = !ferror(f);
    if (fclose(f) != 0 || !written) {
        fprintf(stderr, "testdata: cannot write %s\n", path.c_str());
        return 0;
    }
    return 1;
}

Mesh *tdMakeMesh(const float (*points)[3], const float (*normals)[3], int32_t pointCount,
                 const int32_t (*triangles)[3], int32_t triangleCount) {
    if (pointCount <= 0 || triangleCount <= 0) return nullptr;
    Mesh *m = static_cast<Mesh *>(calloc(1, sizeof(Mesh)));
    m->uvDomainCount = 1;
    m->discontinuity = 60.0f;
    m->cosDiscontinuity = 0.5f;
    m->vertexCount = pointCount;
    m->vertices = static_cast<MeshVertex *>(calloc(static_cast<size_t>(pointCount), sizeof(MeshVertex)));
    for (int32_t i = 0; i < pointCount; ++i)
        for (int k = 0; k < 3; ++k) m->vertices[i].pos[k] = points[i][k];
    // Each edge once, in the order the triangles meet it.
    std::map<std::pair<int32_t, int32_t>, int32_t> edgeOf;
    std::vector<std::pair<int32_t, int32_t>> edges;
    for (int32_t t = 0; t < triangleCount; ++t)
        for (int k = 0; k < 3; ++k) {
            const int32_t a = triangles[t][k], b = triangles[t][(k + 1) % 3];
            const auto key = std::make_pair(std::min(a, b), std::max(a, b));
            if (edgeOf.emplace(key, static_cast<int32_t>(edges.size())).second) edges.push_back(key);
        }
    m->edgeCount = static_cast<int32_t>(edges.size());
    const int32_t blocks = (m->edgeCount + MESH_EDGE_BLOCK - 1) / MESH_EDGE_BLOCK;
    m->edgeBlocks = static_cast<MeshEdge **>(calloc(static_cast<size_t>(blocks > 0 ? blocks : 1), sizeof(MeshEdge *)));
    for (int32_t b = 0; b < blocks; ++b)
        m->edgeBlocks[b] = static_cast<MeshEdge *>(calloc(MESH_EDGE_BLOCK, sizeof(MeshEdge)));
    for (int32_t e = 0; e < m->edgeCount; ++e) {
        meshEdge(m, e)->vrt[0] = edges[static_cast<size_t>(e)].first;
        meshEdge(m, e)->vrt[1] = edges[static_cast<size_t>(e)].second;
    }
    m->polygons = static_cast<MeshPolygon *>(calloc(static_cast<size_t>(triangleCount), sizeof(MeshPolygon)));
    m->nodeBlock = static_cast<MeshNode *>(calloc(3 * static_cast<size_t>(triangleCount), sizeof(MeshNode)));
    m->nodeBlockCount = 3 * static_cast<int64_t>(triangleCount);
    for (int32_t t = 0; t < triangleCount; ++t) {
        MeshPolygon &poly = m->polygons[m->polygonCount];
        poly.nodes = &m->nodeBlock[3 * static_cast<size_t>(m->polygonCount++)];
        poly.nodeCount = 3;
        for (int k = 0; k < 3; ++k) {
            MeshNode &n = poly.nodes[k];
            n.vrt = triangles[t][k];
            for (int c = 0; c < 3; ++c) {
                n.nrm[c] = normals[n.vrt][c];
                poly.nrm[c] += normals[n.vrt][c] / 3.0f;
            }
            n.colour = 0xFFFFFFFFu;
        }
    }
    meshLink(m);
    return m;
}

Mesh *tdMakeTubeMesh(int32_t segments, float radius, float height) {
    std::vector<float> points, normals;  // the top ring, then the bottom one
    for (int ring = 0; ring < 2; ++ring)
        for (int32_t i = 0; i < segments; ++i) {
            // Around y from +x towards -z.
            const double around = 2.0 * M_PI * i / segments;
            const float n[3] = {static_cast<float>(std::cos(around)), 0.0f, static_cast<float>(-std::sin(around))};
            points.insert(points.end(), {radius * n[0], ring ? -0.5f * height : 0.5f * height, radius * n[2]});
            normals.insert(normals.end(), n, n + 3);
        }
    std::vector<int32_t> triangles;  // two a side, facing out
    for (int32_t i = 0; i < segments; ++i) {
        const int32_t j = (i + 1) % segments;
        triangles.insert(triangles.end(), {i, segments + i, segments + j, i, segments + j, j});
    }
    return tdMakeMesh(reinterpret_cast<const float(*)[3]>(points.data()),
                      reinterpret_cast<const float(*)[3]>(normals.data()), 2 * segments,
                      reinterpret_cast<const int32_t(*)[3]>(triangles.data()), 2 * segments);
}
