// Loading a scene: the name a user gives becomes the file of the newest version.
#include <cstdlib>
#include <cstring>
#include <string>

#include "database.h"
#include "dictionary.h"
#include "graphic.h"
#include "model.h"
#include "tol.h"
#include "tol_internal.h"
#include "bw_env.h"

TOL_Status tol_elementGetLatestVersion(const char *elementName, Database *db,
                                       const char *chapterName, char **latest) {
    if (!elementName) return tol_report(TOL_ST_NULL_ARGUMENT, "tol_elementGetLatestVersionelementName:");
    if (!db) return tol_report(TOL_ST_NULL_ARGUMENT, "tol_elementGetLatestVersiondbi:");
    if (!chapterName) return tol_report(TOL_ST_NULL_ARGUMENT, "tol_elementGetLatestVersionchapterName:");
    if (!latest) return tol_report(TOL_ST_NULL_ARGUMENT, "tol_elementGetLatestVersionlatestVersion:");
    dbSetChapter(*db, chapterName);
    std::string prefix, name, version, revision, suffix;
    elemNameSplit(elementName, prefix, name, version, revision, suffix);
    ElemName scratch;
    scratch.prefix = prefix;
    scratch.name = name;
    scratch.revision = revision;
    scratch.version = "0";  // stays when nothing is on disk, and names no file
    int lowest = 0, count = 0;
    elemLatestVersion(db, &scratch, 1, &lowest, &count);
    *latest = strdup(elemNameFormat(scratch).c_str());
    if (!*latest) return tol_report(TOL_ST_OUT_OF_MEMORY, "tol_elementGetLatestVersion");
    return 0;
}

namespace {

// The texture display settings of the scene's setup file are the viewer's
// own, process-wide: the last scene loaded with a setup file sets them.
void setupTake(const Dictionary *dict) {
    if (!dict || !dict->setup) return;
    const SceneSetup &s = *dict->setup;
    glbVar.texFilter = static_cast<int32_t>(s.texInterpolation);
    glbVar.blending = s.texBlending ? 1 : 0;
    glbVar.useMaterialTexture = s.texGlobal ? 1 : 0;
    glbVar.useLocalTexture = s.texLocal ? 1 : 0;
    glbVar.tiling = s.texTiling ? 1 : 0;
    glbVar.mirror = s.texMirror ? 1 : 0;
}

// The models a garbage matte scene brought, behind the entries there were
// before its load, are mattes.
void markGarbageMattes(Dictionary *dict, int32_t firstNew) {
    Chapter *models = dictChapter(dict, CHP_MODELS);
    for (int32_t i = firstNew; models && i < models->elementCount; ++i) {
        const Element &e = models->elements[i];
        if (e.deleted != ELEM_FREE_SLOT && e.data) static_cast<Model *>(e.data)->garbageMatte = 1;
    }
}

}  // namespace

TOL_Status TOL_sceneLoad(TOL_Database *dbHandle, const char *name, TOL_Scene *scene) {
    if (!name) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_sceneLoad():scn_name:");
    if (!dbHandle) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_sceneLoad():db:");
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_sceneLoad():scn:");

    TolSceneFrame frame(scene);
    TOL_Status status = frame.status();
    bool swapped = frame.swapped();
    Database *db = nullptr;
    if (status == 0) status = TOL_databaseTOL2BRAK(*dbHandle, &db);

    if (status == 0) {
        int previousRead = g_dbRead;
        g_dbRead = *dbHandle - 1;
        uint32_t savedRunFlags = g_runFlags;
        int savedNoInterface = noInterface;
        if (swapped) {
            g_runFlags &= ~1u;
            noInterface = 1;
        }

        // A known chapter suffix is cut; a bare name then takes its newest version.
        std::string loading = name;
        size_t dot = loading.rfind('.');
        bool lookUp = dot == std::string::npos;
        if (!lookUp && dot + 1 < loading.size() &&
            chapterFindBySuffix(loading.c_str() + dot + 1) >= 0) {
            std::string bare = loading.substr(0, dot);
            if (bare.find('.') == std::string::npos) {
                loading = bare;
                lookUp = true;
            }
        }
        if (lookUp) {
            char *latest = nullptr;
            status = tol_elementGetLatestVersion(loading.c_str(), db, "SCENES", &latest);
            if (status == 0) loading = latest;
            free(latest);
        }

        const Chapter *models = dictChapter(dictCurrent(), CHP_MODELS);
        const int32_t modelsBefore = models ? models->elementCount : 0;
        if (status == 0 && !sceneRead(dictCurrent(), db, loading.c_str()))
            status = tol_report(TOL_ST_CANNOT_READ_SCENE, "TOL_sceneLoad:", loading.c_str());
        if (status == 0 && g_loadMatteScene) markGarbageMattes(dictCurrent(), modelsBefore);
        // The one way to see everything a load has built.
        if (status == 0) setupTake(dictCurrent());
        if (status == 0 && envGet(ENV_BW_DICT_DUMP)) dictDump(dictCurrent());
        if (status == 0) {
            TOL_Scene current;  // keeps the loaded play, render and action control
            TOL_sceneGetCurrent(&current);
        }

        g_dbRead = previousRead;
        g_runFlags = savedRunFlags;
        noInterface = savedNoInterface;
    }
    return frame.finish(status);
}
