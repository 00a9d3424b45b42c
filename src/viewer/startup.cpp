// From process start to the first frame: database choice, scene choice and the
// Scene Contexts.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "database.h"
#include "animation.h"
#include "viewer.h"

namespace {

bool isDirectory(const char *path) {
    struct stat st;
    return path && stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

// Picks the database asked for, or the one the database directory made current.
// Prints the reason and returns null when there is none to use.
Database *viewerChooseDatabase(const char *dbPath) {
    Database *db = nullptr;
    TOL_Database handle = 0;
    if (!dbPath) {
        printf("No database specified - searching DatabaseDir.rsrc ...\n");
        if (g_dbList.count() == 0) {
            printf("ERROR: No database found in DatabaseDir.rsrc. Aborting.\n");
            return nullptr;
        }
        if (g_dbRead >= 0) {
            handle = TOL_dbGet(g_dbList.items[static_cast<size_t>(g_dbRead)].name.c_str());
            if (TOL_databaseTOL2BRAK(handle, &db) != 0) db = nullptr;
        }
    } else {
        if (TOL_databaseLoad(dbPath, &handle) != 0 || TOL_databaseTOL2BRAK(handle, &db) != 0) {
            printf("ERROR: Invalid database path '%s'\n", dbPath);
            printf("Aborting.\n");
            return nullptr;
        }
        dbMakeCurrent(handle - 1);
    }
    if (!db || !db->valid) {
        printf("ERROR: No valid database. Aborting.\n");
        return nullptr;
    }
    return db;
}

}  // namespace

int viewerStartup(const ViewerOptions &o) {
    printf("Database Initialisation\n");
    printf("-----------------------\n");
    if (TOL_Init(o.resourcePath, !isDirectory(o.dbPath), VIEWER_SDK_VERSION) != 0) return 0;

    Database *db = viewerChooseDatabase(o.dbPath);
    if (!db) return 0;
    printf("\nUsing database:         %s\n\n", db->name.c_str());

    const char *scenes[VIEWER_MAX_SCENES];
    int sceneCount = o.sceneCount;
    memcpy(scenes, o.scenes, sizeof scenes);
    static std::string latest;  // lives as long as the scene name that points into it
    if (sceneCount == 0) {
        latest = dbLatestScene(*db);
        if (latest.empty()) {
            printf("ERROR: No valid scene. Aborting.\n");
            return 0;
        }
        scenes[sceneCount++] = latest.c_str();
    }

    if (viewer.parallel) {
        viewer.processCount = 2;
        viewer.drawIndex = 0;
        viewer.updateIndex = 1;
    } else {
        viewer.processCount = 1;
        viewer.drawIndex = viewer.updateIndex = 0;
    }

    for (int i = 0; i < viewer.processCount; ++i) {
        printf("Process %d Initialisation\n", i + 1);
        printf("-------------------------\n");
        for (int s = 0; s < sceneCount; ++s) printf("scene %d:                %s\n", s + 1, scenes[s]);
        if (o.garbageScene) printf("Loading garbage mattes:  %s\n", o.garbageScene);
        if (i == 0) {
            int pictures = 0, mergedPictures = 0, mergedMaterials = 0, textureMemory = 0;
            printf("Texture Summary\n");
            printf("---------------\n");
            printf("# of pictures:          %d\n", pictures);
            printf("# of pictures merged:   %d\n", mergedPictures);
            printf("# of materials merged:  %d\n", mergedMaterials);
            printf("Used texture memory:    %d\n", textureMemory);
            printf("\n");
        }
    }

    TOL_gpropsSetSurfacePrecision(&viewer.gprops, o.patchLod);
    glbVar.cullEnable = 0;
    glbVar.listEnable = 0;
    viewer.gprops.stereoEye = 0;

    viewer.sceneName = strdup(scenes[0]);
    if (viewer.frameStep < 1) viewer.frameStep = 1;
    viewer.drawCpu = viewer.updateCpu = 0;
    return 1;
}

int viewerMain(int argc, char *argv[]) {
    setvbuf(stdout, nullptr, _IONBF, 0);
    setvbuf(stderr, nullptr, _IONBF, 0);
    viewerInitDefaults();

    animationOptimise = -1;
    ViewerOptions options = viewerParseOptions(argc, argv);
    viewerEchoOptions(options);

    if (!viewerStartup(options)) {
        viewerWaitForEnter();
        return -1;
    }
    if (!viewerCreateWindow(viewer.sceneName, options.width, options.height, options.geometry)) {
        printf("Can't create windows\n");
        viewerWaitForEnter();
        return -1;
    }
    return 0;
}
