// bwbig OUTDIR [TRIANGLES...]: big meshes for measuring the draw.
//
// OUTDIR/DatabaseDir.rsrc names the database "big", OUTDIR/big holds, for each
// size (200,000 and 1,000,000 triangles when none is given), a scene
// "sphere<N>" of one model: a sphere mesh of N triangles (or as near as the
// rings allow) with one grey material, and a camera that frames it in a
// 1024 x 768 window as osgviewer's home view frames the OBJ file: a vertical
// angle of 30 degrees, the sphere around the mesh's bounding box just filling
// the height, so that both programs fill the same pixels.
// OUTDIR/sphere<N>.obj holds the same mesh as a Wavefront OBJ file, for other
// programs to draw; osgviewer, which turns an OBJ file's +Y up to its own +Z
// and looks along +Y, then faces the sphere as our camera does.
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "testdata.h"

namespace {

constexpr float kRadius = 1.0f;
constexpr float kFieldOfView = 0.5235988f;  // vertical, radians
constexpr float kAspect = 1024.0f / 768.0f;

// Slices and stacks giving 2 * slices * (stacks - 1) = triangles, with about
// twice as many slices as bands; the nearest count when no pair fits exactly.
void sphereShape(long triangles, int32_t *slices, int32_t *stacks) {
    const long half = triangles / 2;
    const long bands = std::lround(std::sqrt(static_cast<double>(half) / 2.0));
    for (long d = 0; d <= bands / 2; ++d)
        for (long b : {bands - d, bands + d})
            if (b >= 1 && half % b == 0 && half / b >= 3) {
                *stacks = static_cast<int32_t>(b + 1);
                *slices = static_cast<int32_t>(half / b);
                return;
            }
    *stacks = static_cast<int32_t>(bands < 1 ? 2 : bands + 1);
    *slices = static_cast<int32_t>(half / (*stacks - 1) < 3 ? 3 : half / (*stacks - 1));
}

// One size: the model, its material, its camera and the scene; the OBJ file beside.
bool writeSize(Database *db, const std::string &out, long triangles, const std::string &material,
               time_t mtime) {
    int32_t slices = 0, stacks = 0;
    sphereShape(triangles, &slices, &stacks);
    Mesh *mesh = tdMakeSphereMesh(slices, stacks, kRadius);
    if (!mesh) return false;
    const std::string tag = "sphere" + std::to_string(triangles);
    const std::string objPath = out + "/" + tag + ".obj";
    bool ok = tdWriteObj(objPath, mesh) != 0;
    const int32_t made = mesh->polygonCount;
    Model *model = modelNew(tag.c_str(), MODEL_MESH, mesh);
    const std::string modelFile = ok ? tdFullName(tdWriteModel(db, "big-" + tag, model)) : "";
    modelFree(model);
    ok = ok && !modelFile.empty();

    // The sphere through the corners of the bounding box just fills the
    // height of the view.
    Camera eye;
    const float distance = std::sqrt(3.0f) * kRadius / std::sin(kFieldOfView * 0.5f);
    const float position[3] = {0.0f, 0.0f, distance};
    memcpy(eye.position, position, sizeof position);
    eye.fieldOfView = kFieldOfView;
    eye.aspect = kAspect;
    eye.nearClip = 0.1f;
    eye.farClip = 100.0f;
    const std::string eyeFile = ok ? tdFullName(tdWriteCamera(db, "big-eye" + std::to_string(triangles), eye)) : "";
    ok = ok && !eyeFile.empty();
    if (!ok) return false;

    TdScene scene;
    const int m = scene.add(CHP_MODELS, modelFile);
    const int grey = scene.add(CHP_MATERIALS, material);
    scene.add(CHP_CAMERAS, eyeFile);
    ok = scene.relate(CHP_MODELS, m, CHP_MATERIALS, grey, 300) &&
         !tdWriteScene(db, tag, scene, mtime).empty();
    if (ok)
        printf("%s: %d triangles (%d slices, %d stacks), OBJ %s\n", tag.c_str(), made, slices, stacks,
               objPath.c_str());
    return ok;
}

}  // namespace

int main(int argc, char *argv[]) {
    if (argc < 2) {
        fprintf(stderr, "Usage: %s OUTDIR [TRIANGLES...]\n", argv[0]);
        return 2;
    }
    std::vector<long> sizes;
    for (int i = 2; i < argc; ++i) {
        char *end = nullptr;
        long n = strtol(argv[i], &end, 10);
        if (!end || *end || n < 12 || n > 200000000) {
            fprintf(stderr, "bwbig: %s is no triangle count (12 to 200000000)\n", argv[i]);
            return 2;
        }
        sizes.push_back(n);
    }
    if (sizes.empty()) sizes = {200000, 1000000};

    std::string out = argv[1];
    mkdir(out.c_str(), 0755);
    std::string dbPath = out + "/big";
    std::string dirFile = out + "/DatabaseDir.rsrc";
    if (access(dbPath.c_str(), F_OK) == 0) {
        fprintf(stderr, "bwbig: %s exists already; remove it to write fresh meshes\n", dbPath.c_str());
        return 1;
    }
    remove(dirFile.c_str());
    Database *db = tdDatabaseCreate(dbPath, "big", dirFile);
    if (!db) return 1;
    if (!tdLoadRelations()) {
        fprintf(stderr, "bwbig: cannot read the relation resources (set BW_RSRC)\n");
        return 1;
    }

    Material grey;
    grey.name = "grey";
    for (int k = 0; k < 3; ++k) {
        grey.diffuse[k] = 0.8f;
        grey.ambient[k] = 0.2f;
    }
    const std::string material = tdFullName(tdWriteMaterial(db, "big-grey", grey));
    if (material.empty()) return 1;
    // The last size is the newest scene, the one the viewer takes without -S.
    time_t now = time(nullptr);
    for (size_t i = 0; i < sizes.size(); ++i)
        if (!writeSize(db, out, sizes[i], material, now - static_cast<time_t>(sizes.size() - i)))
            return 1;
    printf("Database written to %s\n", dbPath.c_str());
    return 0;
}
