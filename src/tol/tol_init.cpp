// Start of the TOL layer.
#include <unistd.h>

#include <cstdio>
#include <string>

#include "animation.h"
#include "camera.h"
#include "database.h"
#include "dictionary.h"
#include "expr.h"
#include "tol.h"
#include "tol_internal.h"
#include "view.h"

namespace {

bool fileOpens(const std::string &path) {
    FILE *f = fopen(path.c_str(), "r");
    if (!f) return false;
    fclose(f);
    return true;
}

}  // namespace

TOL_Status TOL_Init(const char *resourcePath, int readDatabases, const char *sdkVersion) {
    if (!resourcePath) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_Init():path:");
    // A load ends with the scene's update list and its first update.
    g_sceneLoadHooks.buildUpdateLists = updatelistBuildScene;
    g_sceneLoadHooks.updateScene = updatelistSceneUpdate;
    // Elements a file marks selected join the loading scene's select list.
    g_sceneLoadHooks.select = selectListAddCurrent;
    // Expressions: their chapter's reader, their connection after a load, their handler.
    exprInstall();
    // Shapes and clusters: their chapters' readers give them to their models.
    shapeSceneInstall();
    latticeSceneInstall();
    // Waves: their chapter's reader and the transform object their relations move.
    waveSceneInstall();

    char cwd[BW_PATH_MAX];
    g_workDir = getcwd(cwd, sizeof cwd) ? cwd : "";
    g_resourceDir = resourcePath;

    // The relation resources are looked for behind the working directory first,
    // then behind the resource path.
    std::string tried = g_workDir + "/Relations.rsrc";
    if (!fileOpens(tried)) {
        tried = std::string(resourcePath) + "/Relations.rsrc";
        if (!fileOpens(tried)) return tol_report(TOL_ST_CANNOT_OPEN_RESOURCE, "TOL_Init", tried.c_str());
    }

    noInterface = 1;
    TOL_Status status = tol_coreInit();
    if (status) return status;
    // The relation table: the working directory's file first, then the resource
    // path's. Nothing can be evaluated without it.
    std::string local = g_workDir + "/Relations.rsrc";
    std::string installed = std::string(resourcePath) + "/Relations.rsrc";
    if (!dbLoadRelationDictionary(&g_relationDict, local.c_str(), 0) &&
        !dbLoadRelationDictionary(&g_relationDict, installed.c_str(), 0)) {
        fprintf(stderr, "Cannot read Relation resources in %s\n", resourcePath);
        fflush(nullptr);
        _exit(255);
    }
    dbListInit(g_dbList);

    if (readDatabases) {
        dbDirLoad(g_dbList, resourcePath, 1);
        if (g_dbRead < 0) printf("ERROR: No valid Database where the scene could be found\n");
    }
    const bool first = !tol_sidGet();
    if (first) {
        status = tol_defaultObjectsCreate();
        if (status) return status;
    }
    // The icons of lights and cameras; a missing file leaves a line shape.
    iconModelsLoad(resourcePath);
    status = TOL_sceneInitInternal(sdkVersion);
    if (status || !first) return status;
    // The default camera sees as far as the two default clipping distances
    // reach together.
    Camera *camera = static_cast<Camera *>(tol_sidGet()->cameras[0]);
    const Camera defaults;
    if (camera) camera->farClip = defaults.nearClip + defaults.farClip;
    return 0;
}
