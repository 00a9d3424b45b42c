// From process start to the first frame: database choice, scene choice and the
// Scene Contexts.
#include <malloc.h>
#include <sys/stat.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>
#include <thread>

#include "database.h"
#include "animation.h"
#include "dictionary.h"
#include "view.h"
#include "viewer.h"
#include "viewer_platform.h"
#include "bw_env.h"

namespace {

bool isDirectory(const char *path) {
    struct stat st;
    return path && stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

// Picks the database asked for, or the one the database directory made current.
// Prints the reason and returns 0 when there is none to use.
TOL_Database viewerChooseDatabase(const char *dbPath, Database **dbOut) {
    Database *db = nullptr;
    TOL_Database handle = 0;
    if (!dbPath) {
        printf("No database specified - searching DatabaseDir.rsrc ...\n");
        if (g_dbList.count() == 0) {
            printf("ERROR: No database found in DatabaseDir.rsrc. Aborting.\n");
            return 0;
        }
        if (g_dbRead >= 0) {
            handle = TOL_dbGet(g_dbList.items[static_cast<size_t>(g_dbRead)].name.c_str());
            if (TOL_databaseTOL2BRAK(handle, &db) != 0) db = nullptr;
        }
    } else {
        if (TOL_databaseLoad(dbPath, &handle) != 0 || TOL_databaseTOL2BRAK(handle, &db) != 0) {
            printf("ERROR: Invalid database path '%s'\n", dbPath);
            printf("Aborting.\n");
            return 0;
        }
        dbMakeCurrent(handle - 1);
    }
    if (!db || !db->valid) {
        printf("ERROR: No valid database. Aborting.\n");
        return 0;
    }
    *dbOut = db;
    return handle;
}

// Loads the scenes into Scene Context i; 0 on a failure, whose status was printed.
int viewerLoadContext(int i, TOL_Database *handle, const char *const *scenes, int sceneCount,
                      const char *garbageScene) {
    TOL_Scene *scene = &viewer.sceneCtx[i];
    printf("Process %d Initialisation\n", i + 1);
    printf("-------------------------\n");
    if (TOL_sceneCreate(scene) != 0 || TOL_sceneSetCurrent(scene) != 0) return 0;
    for (int s = 0; s < sceneCount && s < VIEWER_MAX_SCENES; ++s) {
        printf("scene %d:                %s\n", s + 1, scenes[s]);
        if (TOL_sceneLoad(handle, scenes[s], scene) != 0) return 0;
    }
    if (garbageScene) {
        printf("Loading garbage mattes:  %s\n", garbageScene);
        g_loadMatteScene = 1;
        TOL_Status status = TOL_sceneLoad(handle, garbageScene, scene);
        g_loadMatteScene = 0;
        if (status != 0) return 0;
    }
    ChannelSetup *setup = channelSetupLoadForScene();
    if (!setup) return 0;
    viewer.channelSetup[i] = setup;
    setup->sceneName = scenes[0];
    if (viewer.takeEnabled) {
        snprintf(setup->takeDir, sizeof setup->takeDir, "%s", viewer.takeDir);
        snprintf(setup->takeName, sizeof setup->takeName, "%s", viewer.takeName);
        setup->takeEnable = 1;
        setup->takeNumber = viewer.takeNumber;
    }
    if (TOL_updatelistGet(scene) != 0) return 0;
    TextureSummary summary{};
    if (!viewerOptimizeScene(scene, &viewer.gprops, &summary)) return 0;
    if (i == 0) {
        printf("Texture Summary\n");
        printf("---------------\n");
        printf("# of pictures:          %d\n", summary.pictures);
        printf("# of pictures merged:   %d\n", summary.mergedPictures);
        printf("# of materials merged:  %d\n", summary.mergedMaterials);
        printf("Used texture memory:    %d\n", summary.textureMemory);
        printf("\n");
    }
    return 1;
}

}  // namespace

void viewerSetAspect(float aspect) {
    for (int i = 0; i < viewer.processCount; ++i) viewerSceneAspect(&viewer.sceneCtx[i], viewer.camera[i], aspect);
}

int viewerStartup(const ViewerOptions &o) {
    printf("Database Initialisation\n");
    printf("-----------------------\n");
    if (TOL_Init(o.resourcePath, !isDirectory(o.dbPath), VIEWER_SDK_VERSION) != 0) return 0;
    // The window's pixel formats are read while the scenes load (the core's
    // start, which may end the process, is behind us).
    viewerWindowWarmUp();

    Database *db = nullptr;
    TOL_Database handle = viewerChooseDatabase(o.dbPath, &db);
    if (!handle) return 0;
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
    for (int i = 0; i < viewer.processCount; ++i)
        if (!viewerLoadContext(i, &handle, scenes, sceneCount, o.garbageScene)) return 0;

    TOL_gpropsSetSurfacePrecision(&viewer.gprops, o.patchLod);
    glbVar.cullEnable = 0;
    glbVar.listEnable = 0;
    viewer.gprops.stereoEye = 0;

    for (int i = 0; i < viewer.processCount; ++i) viewer.camera[i] = viewerPrepareScene(&viewer.sceneCtx[i], static_cast<int>(viewer.expandInstances));
    viewerSetAspect(static_cast<float>(o.width) / static_cast<float>(o.height > 0 ? o.height : 1));
    // What key R goes back to.
    for (int i = 0; i < viewer.processCount; ++i)
        TOL_cameraStoreAttributes(&viewer.sceneCtx[i], viewer.camera[i]);

    viewer.sceneName = strdup(scenes[0]);
    if (const TOL_PlayCtrl *play = tol_sidPlayCtrl(&viewer.sceneCtx[0])) {
        viewer.startFrame = play->startFrame;
        viewer.endFrame = play->endFrame;
        viewer.frameStep = play->frameStep;
    }
    if (viewer.frameStep < 1) viewer.frameStep = 1;

    TOL_sceneSetCurrent(&viewer.sceneCtx[viewer.drawIndex]);
    TOL_sceneSetCurrent(&viewer.sceneCtx[viewer.updateIndex]);
    // Walking and the elevator go at the scene's size: at full stroke, its
    // diagonal on the ground and its height in a second.
    float bbmin[3], bbmax[3];
    if (TOL_scnGetBbox(&viewer.sceneCtx[viewer.drawIndex], nullptr, 0, bbmin, bbmax) == 1) {
        float dx = bbmax[0] - bbmin[0], dy = bbmax[1] - bbmin[1], dz = bbmax[2] - bbmin[2];
        viewer.walkSpeed = std::sqrt(dx * dx + dz * dz);
        viewer.elevatorSpeed = std::fabs(dy);
    }
    viewer.drawCpu = viewer.updateCpu = 0;
    if (viewer.parallel && !viewerStartUpdateThread()) return 0;
    return 1;
}

int viewerMain(int argc, char *argv[]) {
    setvbuf(stdout, nullptr, _IONBF, 0);
    setvbuf(stderr, nullptr, _IONBF, 0);
    // Start-up frees big blocks (a model file's bytes, the tessellation's
    // work arrays) just before it asks for others as big (vertex and triangle
    // records, strip streams). Given back to the kernel, each would come
    // back as fresh pages that the kernel zeroes one fault at a time, the
    // larger part of a big scene's way to its first frame; kept in the heap,
    // they are taken again at once. The viewer holds its scenes to the end
    // anyway, so nothing is lost by keeping them.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    viewerClock();  // the clock counts from here
    viewerInitDefaults();
    // The window system comes first: without it nothing else is worth reading,
    // let alone loading.
    if (!viewerRegisterClass()) {
        fprintf(stderr, "Can't start Windowing System\n");
        viewerWaitForEnter();
        return -1;
    }

    animationOptimise = -1;
    ViewerOptions options = viewerParseOptions(argc, argv);
    viewerEchoOptions(options);

    if (!viewerStartup(options)) {
        viewerWindowWarmUpWait();
        viewerWaitForEnter();
        return -1;
    }
    // With one side, the first frame's preprocess builds the strips of what
    // start-up tessellated. The window's creation touches no model, so that
    // preprocess runs beside it on a thread of its own, from a copy of the
    // graphic properties, and the first frame finds the strips up to date
    // (anything changed since is caught by the preprocess's own checks then).
    std::thread early;
    if (viewer.processCount == 1) {
        try {
            early = std::thread([props = viewer.gprops]() mutable {
                TOL_threadStorageInit(&viewer.sceneCtx[0]);
                TOL_preprocessALL(&viewer.sceneCtx[0], &props);
            });
        } catch (const std::system_error &) {
            // No thread to be had: the first frame builds them.
        }
    }
    const int windowMade = viewerCreateWindow(viewer.sceneName, options.width, options.height, options.geometry);
    if (early.joinable()) early.join();
    if (!windowMade) {
        printf("Can't create windows\n");
        viewerWaitForEnter();
        return -1;
    }
    if (const char *script = envGet(ENV_BW_VIEWER_SCRIPT)) viewerScriptLoad(script);
    viewerMessageLoop();
    // Closed by the window: a capture still running ends as a stop ends it,
    // so that its drivers and arena do not outlive the viewer.
    if (loadAcquire(viewer.channelsRunning)) channelStop();
    storeRelease(viewer.quit, 1u);
    return 0;
}
