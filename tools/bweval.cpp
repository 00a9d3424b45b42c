// bweval: a scene's animation as numbers, without a window.
//
//   bweval [-R RSRC] DATABASE [SCENE ...] [--frames FIRST:LAST:STEP] [--points MODEL ...]
//
// Loads the scenes (the newest of the database when none is named) through
// the same layer as the viewer, builds the update list, and for each frame
// of the range (the scene's play range by default) evaluates the scene and
// prints each model's global translation, rotation (degrees, x y z) and scale.
// With --points, each named model's points follow: its geometry after every
// deformation of the frame, in the model's own frame, in the record's order.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "animation.h"
#include "database.h"
#include "dictionary.h"
#include "geometry.h"
#include "model.h"
#include "tol.h"

namespace {

void usage(const char *program) {
    fprintf(stderr, "Usage: %s [-R RSRC] DATABASE [SCENE ...] [--frames FIRST:LAST:STEP] [--points MODEL ...]\n",
            program);
}

// Translation, Euler angles (degrees) and scale of a matrix made as scale,
// Rx Ry Rz (row vectors), translation. The angles are the engine's own
// extraction, of the two solutions the one nearest to no rotation.
void decompose(const float m[4][4], double t[3], double r[3], double s[3]) {
    float rotation[4][4] = {{0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 1}};
    for (int i = 0; i < 3; ++i) {
        s[i] = std::sqrt(double(m[i][0]) * m[i][0] + double(m[i][1]) * m[i][1] + double(m[i][2]) * m[i][2]);
        for (int k = 0; k < 3; ++k) rotation[i][k] = s[i] > 1e-12 ? static_cast<float>(m[i][k] / s[i]) : 0.0f;
        t[i] = m[3][i];
    }
    const float hint[3] = {0.0f, 0.0f, 0.0f};
    float angles[3];
    matrixToEuler(rotation, hint, angles);
    for (int i = 0; i < 3; ++i) r[i] = angles[i] / DEG_TO_RAD;
}

double clean(double v) { return std::fabs(v) < 5e-7 ? 0.0 : v; }

std::string printedName(const Element &e) {
    return e.name->prefix.empty() ? e.name->name : e.name->prefix + "-" + e.name->name;
}

// The model a --points name means: the name as the transform lines print it,
// or the element's name without its prefix.
const Model *findModel(Dictionary *dict, const std::string &wanted) {
    Chapter *models = dictChapter(dict, CHP_MODELS);
    for (int i = 0; models && i < models->elementCount; ++i) {
        const Element &e = models->elements[i];
        if (e.deleted || !e.data || !e.name) continue;
        if (printedName(e) == wanted || e.name->name == wanted) return static_cast<const Model *>(e.data);
    }
    return nullptr;
}

void printPoints(const std::string &name, const Model *m) {
    const int32_t count = geometryPointCount(m->type, m->geometry.any);
    std::vector<float> xyz(3 * static_cast<size_t>(count));
    geometryPositionsRead(m->type, m->geometry.any, xyz.data());
    printf("  points %s %d\n", name.c_str(), count);
    for (int32_t i = 0; i < count; ++i)
        printf("%.6f %.6f %.6f\n", clean(xyz[3 * static_cast<size_t>(i)]), clean(xyz[3 * static_cast<size_t>(i) + 1]),
               clean(xyz[3 * static_cast<size_t>(i) + 2]));
}

void printModels(Dictionary *dict) {
    Chapter *models = dictChapter(dict, CHP_MODELS);
    for (int i = 0; models && i < models->elementCount; ++i) {
        const Element &e = models->elements[i];
        if (e.deleted || !e.data || !e.name) continue;
        const Model *m = static_cast<const Model *>(e.data);
        double t[3], r[3], s[3];
        decompose(m->globalMatrix, t, r, s);
        std::string name = printedName(e);
        printf("  %-20s T %9.4f %9.4f %9.4f  R %9.3f %9.3f %9.3f  S %7.4f %7.4f %7.4f\n",
               name.c_str(), clean(t[0]), clean(t[1]), clean(t[2]), clean(r[0]), clean(r[1]),
               clean(r[2]), clean(s[0]), clean(s[1]), clean(s[2]));
    }
}

}  // namespace

int main(int argc, char *argv[]) {
    std::string rsrc = getenv("BW_RSRC") ? getenv("BW_RSRC") : "";
    std::string database;
    std::vector<std::string> scenes, pointModels;
    int first = 0, last = -1, step = 1;
    bool framesGiven = false;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "-R") == 0 && i + 1 < argc) {
            rsrc = argv[++i];
        } else if (strcmp(argv[i], "--frames") == 0 && i + 1 < argc) {
            if (sscanf(argv[++i], "%d:%d:%d", &first, &last, &step) < 2 || step <= 0) {
                fprintf(stderr, "bweval: --frames wants FIRST:LAST or FIRST:LAST:STEP, not %s\n", argv[i]);
                return 2;
            }
            framesGiven = true;
        } else if (strcmp(argv[i], "--points") == 0 && i + 1 < argc) {
            pointModels.push_back(argv[++i]);
        } else if (argv[i][0] == '-') {
            usage(argv[0]);
            return 2;
        } else if (database.empty()) {
            database = argv[i];
        } else {
            scenes.push_back(argv[i]);
        }
    }
    if (database.empty()) {
        usage(argv[0]);
        return 2;
    }
    if (rsrc.empty()) {
        fprintf(stderr, "bweval: no resource directory: give -R RSRC or set BW_RSRC\n");
        return 2;
    }

    if (TOL_Init(rsrc.c_str(), 0, TOL_SDK_VERSION) != 0) return 1;
    TOL_Database db = TOL_toolDatabase("bweval", database.c_str());
    if (db == 0) return 1;
    Database *record = nullptr;
    if (TOL_databaseTOL2BRAK(db, &record) != 0 || !record) return 1;
    if (scenes.empty()) {
        std::string newest = dbLatestScene(*record);
        if (newest.empty()) {
            fprintf(stderr, "bweval: the database %s holds no scene\n", database.c_str());
            return 1;
        }
        scenes.push_back(newest);
    }
    TOL_Scene scene;
    if (TOL_sceneCreate(&scene) != 0 || TOL_sceneSetCurrent(&scene) != 0) return 1;
    for (const std::string &name : scenes)
        if (TOL_sceneLoad(&db, name.c_str(), &scene) != 0) return 1;
    if (TOL_updatelistGet(&scene) != 0) return 1;

    const TOL_PlayCtrl *play = tol_sidPlayCtrl(&scene);
    float rate = play && play->framesPerSecond > 0 ? play->framesPerSecond : 30.0f;
    if (!framesGiven && play) {
        first = play->startFrame;
        last = play->endFrame;
        step = play->frameStep > 0 ? play->frameStep : 1;
    }
    Dictionary *dict = dictGet(static_cast<int>(scene.dict));
    std::vector<std::pair<std::string, const Model *>> shown;
    for (const std::string &name : pointModels) {
        const Model *m = findModel(dict, name);
        if (m)
            shown.emplace_back(name, m);
        else
            fprintf(stderr, "bweval: no model %s in the scene\n", name.c_str());
    }
    for (int frame = first; frame <= last; frame += step) {
        float time = static_cast<float>(frame) / rate;
        TOL_updatelistEvalScene(&scene, time);
        printf("frame %d (time %.4f)\n", frame, static_cast<double>(time));
        printModels(dict);
        for (const auto &[name, m] : shown) printPoints(name, m);
    }
    return 0;
}
