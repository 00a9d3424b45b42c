// bwexport: a scene as glTF 2.0, for any glTF viewer.
//
//   bwexport [-R RSRC] [-s PRECISION] DATABASE SCENE OUT [--frames FIRST:LAST] [--gltf]
//
// Loads the scene through the same layer as the viewer, builds its update
// list, and writes the model hierarchy, the tessellated surfaces, materials,
// textures, cameras and lights, with the animation of the play range (or of
// the frames given) sampled at every frame. OUT is a binary .glb, or with
// --gltf a .gltf with its buffer in a .bin beside it.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bw_env.h"
#include "dictionary.h"
#include "export.h"
#include "tol.h"

namespace {

void usage(const char *program) {
    fprintf(stderr, "Usage: %s [-R RSRC] [-s PRECISION] DATABASE SCENE OUT [--frames FIRST:LAST] [--gltf]\n",
            program);
}

struct SceneEval {
    TOL_Scene *scene;  // loaded, with its update list
    float rate;        // frames per second
};

int evalFrame(void *user, int32_t frame) {
    SceneEval *e = static_cast<SceneEval *>(user);
    return TOL_updatelistEvalScene(e->scene, static_cast<float>(frame) / e->rate) != 0;
}

}  // namespace

int main(int argc, char *argv[]) {
    std::string rsrc = getenv("BW_RSRC") ? getenv("BW_RSRC") : "";
    std::string database, sceneName, out;
    int first = 0, last = -1;
    bool framesGiven = false;
    ExportOptions options;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "-R") == 0 && i + 1 < argc) {
            rsrc = argv[++i];
        } else if (strcmp(argv[i], "-s") == 0 && i + 1 < argc) {
            options.precision = atoi(argv[++i]);
        } else if (strcmp(argv[i], "--gltf") == 0) {
            options.binary = 0;
        } else if (strcmp(argv[i], "--frames") == 0 && i + 1 < argc) {
            if (sscanf(argv[++i], "%d:%d", &first, &last) != 2 || last < first) {
                fprintf(stderr, "bwexport: --frames wants FIRST:LAST with FIRST not above LAST, not %s\n", argv[i]);
                return 2;
            }
            framesGiven = true;
        } else if (argv[i][0] == '-') {
            usage(argv[0]);
            return 2;
        } else if (database.empty()) {
            database = argv[i];
        } else if (sceneName.empty()) {
            sceneName = argv[i];
        } else if (out.empty()) {
            out = argv[i];
        } else {
            usage(argv[0]);
            return 2;
        }
    }
    if (out.empty()) {
        usage(argv[0]);
        return 2;
    }
    if (rsrc.empty()) {
        fprintf(stderr, "bwexport: no resource directory: give -R RSRC or set BW_RSRC\n");
        return 2;
    }

    if (TOL_Init(rsrc.c_str(), 0, TOL_SDK_VERSION) != 0) return 1;
    TOL_Database db = TOL_toolDatabase("bwexport", database.c_str());
    if (db == 0) return 1;
    TOL_Scene scene;
    if (TOL_sceneCreate(&scene) != 0 || TOL_sceneSetCurrent(&scene) != 0) return 1;
    if (TOL_sceneLoad(&db, sceneName.c_str(), &scene) != 0) {
        fprintf(stderr, "bwexport: cannot load the scene %s of %s\n", sceneName.c_str(), database.c_str());
        return 1;
    }
    if (TOL_updatelistGet(&scene) != 0) return 1;

    const TOL_PlayCtrl *play = tol_sidPlayCtrl(&scene);
    SceneEval eval{&scene, play && play->framesPerSecond > 0 ? play->framesPerSecond : 30.0f};
    if (!framesGiven) {
        first = play ? play->startFrame : 1;
        last = play ? play->endFrame : first;
        if (last < first) last = first;
    }
    ExportSource source;
    source.dict = dictGet(static_cast<int>(scene.dict));
    source.firstFrame = first;
    source.lastFrame = last;
    source.frameRate = eval.rate;
    source.eval = evalFrame;
    source.user = &eval;
    options.progress = 1;
    options.repeatAll = envIsSet(ENV_BW_SHADE_TEXTURE_REPEAT);
    ExportSummary summary;
    std::string error;
    if (exportGltf(source, out.c_str(), options, &summary, &error) != 0) {
        fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    printf("%s: %d nodes, %d meshes (%d deforming), %lld triangles, %d materials, %d textures, %d channels over "
           "frames %d to %d\n",
           out.c_str(), summary.nodes, summary.meshes, summary.morphed, static_cast<long long>(summary.triangles),
           summary.materials, summary.textures, summary.channels, first, last);
    return 0;
}
