// Test data on disk: a database made through dbCreate and element files put
// into its chapters under the names the naming rules give, each write taking
// the next version and pruning beyond the chapter's VERSIONS, as a save does.
//
// Element names may carry a prefix ("demo-ball"). Every writer returns the
// path of the file it wrote, or "" after a failure (reported on stderr).
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "animation.h"
#include "camera.h"
#include "database.h"
#include "dictionary.h"
#include "expr.h"
#include "material.h"
#include "model.h"

// Makes the database `name` at `dir` with every chapter and lists it in
// `dirFile` (empty: the default DatabaseDir.rsrc). Returns its entry in
// g_dbList, good until the next addition to the table; null on failure.
Database *tdDatabaseCreate(const std::string &dir, const std::string &name,
                           const std::string &dirFile);

// MODELS: "<name>.<version>-0.hrc" holding the tree under `root`.
std::string tdWriteModel(Database *db, const std::string &name, const Model *root);
// MATERIALS and TEXTURES2D: stand-alone ".mtr" and ".txt" files.
std::string tdWriteMaterial(Database *db, const std::string &name, const Material &material);
std::string tdWriteTexture2D(Database *db, const std::string &name, const Texture2D &texture);
// PICTURES: a ".pic" picture, run-length coded. Textures name it by the
// full name of the path returned (tdFullName).
std::string tdWritePicture(Database *db, const std::string &name, const PictureInfo &picture);
// A picture of zero pixels, with an alpha plane when asked; picFree releases
// its planes.
PictureInfo tdPictureNew(uint16_t width, uint16_t height, bool alpha);
// CAMERAS and LIGHTS: ".cam" and ".lig" files.
std::string tdWriteCamera(Database *db, const std::string &name, const Camera &camera);
std::string tdWriteLight(Database *db, const std::string &name, const Light &light);
// ANIMATION: an ".ani" file of the items' curves; the element of the same
// name (without version) is the one they animate.
std::string tdWriteAnimation(Database *db, const std::string &name, const AnimItem *items);
// SHAPES: a ".shp" file of shape keys; the scene ties it to its model by relation 200.
std::string tdWriteShapes(Database *db, const std::string &name, const ShapeKeys &keys);
// WAVES: a ".wav" file of the wave; the scene ties it to the models it
// moves by relation 600 or 601.
std::string tdWriteWave(Database *db, const std::string &name, const Wave &wave);
// `bytes` as the file of element `fullName` in `chapter`, as they stand:
// files of other writers, written by a test field by field.
void tdWriteBytes(Database *db, int chapter, const std::string &fullName, const std::string &bytes);
// A lattice file (.lat) of the keys of `lattice`, in chapter LATTICES.
std::string tdWriteLattice(Database *db, const std::string &name, const Lattice &lattice);
// A scene setup file (.sts) in chapter SETUP_BRAK.
std::string tdWriteSetup(Database *db, const std::string &name, const SceneSetup &setup);
// EXPRESSIONS: an ".exp" file of named expressions; the scene names it as
// a ROOT element and the load makes each expression an element of its own.
std::string tdWriteExpressions(Database *db, const std::string &name,
                               const std::vector<ExprFileEntry> &entries);
// SCENES: a ".dsc" file holding `text` as given, its modification time set to
// `mtime` so that the newest scene is the one the caller chose.
std::string tdWriteScene(Database *db, const std::string &name, const std::string &text,
                         time_t mtime);

// The full name ("demo-world.1-0") of the element a writer's path names.
std::string tdFullName(const std::string &path);

// Reads the relation rows the system ships (rsrc/Relations.rsrc of the source
// tree, or $BW_RSRC/Relations.rsrc) into g_relationDict. 1 or 0.
int tdLoadRelations();

// A scene built in memory: elements naming files of the database, relations
// between them, and environment settings, written out by the scene writer.
struct TdScene {
    Dictionary dict;
    TdScene();
    ~TdScene();
    TdScene(const TdScene &) = delete;
    TdScene &operator=(const TdScene &) = delete;
    // Element of `chapter` named by a full name; `root` marks a hierarchy's top.
    int add(int chapter, const std::string &fullName, bool root = true);
    // Relation `relid` from (srcChapter, src) to (dstChapter, dst); false when
    // the relation table refuses it.
    bool relate(int srcChapter, int src, int dstChapter, int dst, int32_t relid);
    Element *element(int chapter, int index);
};
// A flat mesh in XZ of quadsU x quadsV unit quads, each split along its
// diagonal into two triangles facing +Y, with UV over the grid and every edge
// listed once and linked; freed by meshFree.
Mesh *tdMakeGridMesh(int32_t quadsU, int32_t quadsV);

// A sphere of `radius` about the origin: `slices` meridians by `stacks` bands,
// one vertex at each pole, 2 * slices * (stacks - 1) triangles facing out,
// corner normals along the radius so that every vertex is smooth, UV by
// longitude and latitude; edges listed once and linked; freed by meshFree.
// At least 3 slices and 2 stacks.
Mesh *tdMakeSphereMesh(int32_t slices, int32_t stacks, float radius);

// The mesh as a Wavefront OBJ file: "v" per vertex, "vn" per vertex (from its
// first corner, plus one per corner whose normal differs from its vertex's),
// "f v//vn ..." per polygon; +Y up, as OBJ readers expect. 1 or 0 (reported
// on stderr).
int tdWriteObj(const std::string &path, const Mesh *mesh);

// A mesh of triangles (counter-clockwise seen from the front) over the
// points, with a normal per point, every edge listed once and linked; freed
// by meshFree. Null without points or triangles.
Mesh *tdMakeMesh(const float (*points)[3], const float (*normals)[3], int32_t pointCount,
                 const int32_t (*triangles)[3], int32_t triangleCount);
// An open tube about the y axis from -height / 2 to height / 2.
Mesh *tdMakeTubeMesh(int32_t segments, float radius, float height);

// SCENES: the scene's file, with modification time `mtime`.
std::string tdWriteScene(Database *db, const std::string &name, TdScene &scene, time_t mtime,
                         float version = 4.0f);
