// What the viewer does to a loaded scene before it draws it, and the display
// options, for every program that draws scenes as the viewer does.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>

#include "dictionary.h"
#include "view.h"
#include "viewer.h"

int viewerDisplayOption(int letter, const char *arg, BW_GraphicProps *gprops, int *patchLod) {
    switch (letter) {
    case 'a':
        gprops->antialias = 1;
        if (sscanf(arg, "%d", &gprops->anti_lev) != 1) gprops->anti_lev = 0;
        return 1;
    case 'd':
        switch (atoi(arg)) {
        case 1: gprops->material.shade = 0; break;
        case 2: gprops->material.shade = 1; break;
        case 3:
            gprops->material.shade = 1;
            gprops->texture.active = 1;
            gprops->texture.selected = 0;
            break;
        default: break;
        }
        return 1;
    case 'l': *patchLod = atoi(arg); return 1;
    default: return 0;
    }
}

int viewerOptimizeScene(TOL_Scene *scene, BW_GraphicProps *gprops, TextureSummary *summary) {
    // Equal materials and textures of one picture merge before any strip is
    // built; a picture that cannot be read stops the load.
    return TOL_sceneOptimizeMaterials(scene, &summary->mergedMaterials) == 0 &&
           TOL_sceneOptimizeTexture2D(scene, &summary->pictures, &summary->mergedPictures,
                                      &summary->textureMemory) == 0 &&
           TOL_preprocessALL(scene, gprops) == 0;
}

TOL_Elem *viewerPrepareScene(TOL_Scene *scene, int expandInstances) {
    TOL_sceneSetCurrent(scene);
    Dictionary *dict = dictGet(static_cast<int>(scene->dict));
    if (expandInstances) instancesExpand(dict);
    boundsBuild(dict);
    static const float colour[3] = {0.1f, 0.7f, 0.1f};
    TOL_Elem model;
    for (TOL_Elem *m = TOL_elemGetFirstInChap(scene->dict, CHP_MODELS, 0, &model); m;
         m = TOL_elemGetNextInChap(m, 0, &model)) {
        TOL_elemSetDisplayMode(m, 8);
        TOL_elemSetParams(m, 6, 0, 3, colour);
    }
    return TOL_elemGetFirstInChap(scene->dict, CHP_CAMERAS, 0, nullptr);
}

int viewerToolScene(const char *tool, const char *resourcePath, const char *database, const char *sceneName,
                    int patchLod, BW_GraphicProps *gprops, TOL_Scene *scene, TOL_Elem **camera) {
    struct stat st;
    const bool directory = stat(database, &st) == 0 && S_ISDIR(st.st_mode);
    if (TOL_Init(resourcePath, !directory, VIEWER_SDK_VERSION) != 0) return 0;
    TOL_Database db = TOL_toolDatabase(tool, database);
    if (!db) return 0;
    if (TOL_sceneCreate(scene) != 0 || TOL_sceneSetCurrent(scene) != 0) return 0;
    if (TOL_sceneLoad(&db, sceneName, scene) != 0) {
        fprintf(stderr, "%s: the scene '%s' does not load from %s\n", tool, sceneName, database);
        return 0;
    }
    TextureSummary summary{};
    if (TOL_updatelistGet(scene) != 0 || !viewerOptimizeScene(scene, gprops, &summary)) return 0;
    TOL_gpropsSetSurfacePrecision(gprops, patchLod);
    glbVar.cullEnable = 0;
    glbVar.listEnable = 0;
    gprops->stereoEye = 0;
    *camera = viewerPrepareScene(scene, 0);
    return 1;
}

void viewerSceneAspect(TOL_Scene *scene, TOL_Elem *camera, float aspect) {
    if (!camera) return;
    TolSceneFrame frame(scene);
    TOL_elemSetParams(camera, 22, 0, 1, &aspect);
}

float viewerSceneTime(TOL_Scene *scene, int frame) {
    const TOL_PlayCtrl *play = tol_sidPlayCtrl(scene);
    float fps = play && play->framesPerSecond > 0.0f ? play->framesPerSecond : 30.0f;
    return static_cast<float>(frame) / fps;
}
