// Writers of test databases on top of the database, naming and file code,
// and shapes made in memory.
#include "testdata.h"

#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
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
