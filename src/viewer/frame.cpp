// The frame loop: the draw side on the main thread, the update side on the
// update thread (or on the main thread with one Scene Context), and the ring of
// two indices that hands a finished copy of the scene from one side to the other.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "camera.h"
#include "database.h"
#include "dictionary.h"
#include "graphic.h"
#include "model.h"
#include "tol.h"
#include "view.h"
#include "viewer.h"
#include "viewer_platform.h"

namespace {

long frameNumber = 0;

int nextIndex(int index) { return (index + 1) % viewer.processCount; }

// Statistics of one update step: begun before the step's work, with the work's
// and the preprocessing's shares added as they end.
struct UpdateStats {
    int level = loadAcquire(viewer.statsLevel);
    double t0 = 0.0;
    UpdateStats() {
        if (level >= 1) {
            t0 = viewerClock();
            statsUpdateTick(t0);
        } else {
            statsUpdateIdle();
        }
    }
    void workDone() { add(viewer.loUpdAcc); }
    void preprocessDone() {
        add(viewer.loPreAcc);
        if (level >= 1) statsUpdateRates();
    }
    void add(double &acc) {
        if (level < 2) return;
        double t = viewerClock();
        acc += t - t0;
        t0 = t;
    }
};

// The record of the camera viewed in Scene Context i: the viewer's camera
// element, or the scene's first camera.
Camera *cameraOf(int i) {
    const TOL_Scene &scene = viewer.sceneCtx[i];
    TOL_Elem first;
    const TOL_Elem *elem = viewer.camera[i];
    if (!elem) elem = TOL_elemGetFirstInChap(scene.dict, CHP_CAMERAS, 0, &first);
    if (!elem) return nullptr;
    Element *entry = elemGet(dictGet(static_cast<int>(elem->dict)), CHP_CAMERAS, static_cast<int>(elem->index));
    return entry ? static_cast<Camera *>(entry->data) : nullptr;
}

// Evaluates the update side's copy at a frame.
void evaluateAt(int frame) {
    TOL_updatelistEvalScene(&viewer.sceneCtx[viewer.updateIndex], timeFromFrame(frame));
}

}  // namespace

double viewerClock() {
    using namespace std::chrono;
    static const steady_clock::time_point start = steady_clock::now();
    long long ms = duration_cast<milliseconds>(steady_clock::now() - start).count();
    return static_cast<double>(ms) / 1000.0;
}

float timeFromFrame(int frame) {
    return viewerSceneTime(&viewer.sceneCtx[viewer.updateIndex], frame);
}

long viewerFrameNumber() { return frameNumber; }

int viewerMessageLoop() {
    for (;;) {
        if (!viewerProcessEvents()) return 0;
        if (viewerWindowExists()) viewerFrame();
    }
}

void viewerFrame() {
    viewerScriptFrameStart(++frameNumber);
    const int stats = viewer.statsLevel;
    double t0 = 0.0, t = 0.0;
    if (stats >= 1) {
        t0 = viewerClock();
        statsDrawTick(t0);
    } else {
        statsDrawIdle();
    }
    viewerRingStep();
    viewerMakeCurrent();
    if (stats >= 2) {
        t = viewerClock();
        viewer.drawUpdateAcc += t - t0;
        t0 = t;
    }
    TOL_grClear(&viewer.gprops);
    if (stats >= 2) {
        t = viewerClock();
        viewer.clearAcc += t - t0;
        t0 = t;
    }
    viewerStatusText();
    if (viewer.gprops.texture.video && viewer.gprops.texture.active)
        TOL_siriusProcessEvents(&viewer.gprops);
    TOL_sceneDraw(&viewer.sceneCtx[viewer.drawIndex], viewer.camera[viewer.drawIndex], &viewer.gprops);
    if (viewer.showCross) viewportCross();
    viewerScriptBeforeSwap();
    if (!viewer.singleBuffer) viewerSwapBuffers();
    if (stats >= 2) viewer.drawAcc += viewerClock() - t0;
    if (stats >= 1) statsDrawRates();
}

void viewerRingStep() {
    if (loadAcquire(viewer.updateIndex) == viewer.drawIndex) {
        // The keys change the properties while the update thread works: it
        // reads the copy taken here, while it waits for this hand-over.
        if (viewer.parallel) viewer.updateGprops = viewer.gprops;
        storeRelease(viewer.drawIndex, nextIndex(viewer.drawIndex));
        if (viewer.preprocessOnDraw) TOL_preprocessALL(&viewer.sceneCtx[viewer.drawIndex], &viewer.gprops);
    }
    if (channelsActive()) {
        if (!viewer.parallel) updateChannels();
        updateHiPriority();
    } else if (!viewer.parallel) {
        updateNormal();
    }
    // Held zoom buttons zoom once a frame.
    if (viewer.zoomIn) {
        TOL_cameraZoom(&viewer.sceneCtx[viewer.drawIndex], nullptr, 1.0f);
        cameraMirror();
    }
    if (viewer.zoomOut) {
        TOL_cameraZoom(&viewer.sceneCtx[viewer.drawIndex], nullptr, -1.0f);
        cameraMirror();
    }
}

void updateThreadProc() {
    TOL_threadStorageInit(&viewer.sceneCtx[loadAcquire(viewer.updateIndex)]);
    for (;;) {
        while (loadAcquire(viewer.updateIndex) == loadAcquire(viewer.drawIndex)) {
            if (loadAcquire(viewer.quit)) return;
            if (viewer.drawCpu == viewer.updateCpu)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        if (channelsActive())
            updateChannels();
        else
            updateNormal();
        storeRelease(viewer.updateIndex, nextIndex(viewer.updateIndex));
    }
}

int viewerStartUpdateThread() {
    viewer.updateGprops = viewer.gprops;
    try {
        std::thread(updateThreadProc).detach();
    } catch (const std::system_error &e) {
        printf("CreateThread() returned error: %d\n", e.code().value());
        storeRelease(viewer.quit, 1u);
        return 0;
    }
    return 1;
}

// The graphic properties the update side's preprocess reads.
static BW_GraphicProps *updateProps() { return viewer.parallel ? &viewer.updateGprops : &viewer.gprops; }

void updateNormal() {
    UpdateStats stats;
    const int u = viewer.updateIndex;
    TOL_sceneSetCurrent(&viewer.sceneCtx[u]);
    if (loadAcquire(viewer.playing)) {
        int frame = loadAcquire(viewer.curFrame);
        if (frame <= viewer.endFrame) {
            evaluateAt(frame);
            storeRelease(viewer.curFrame, frame + viewer.frameStep);
        } else {
            viewerStopSequence();
        }
    } else if (loadAcquire(viewer.forceEval[u])) {
        evaluateAt(loadAcquire(viewer.curFrame));
        storeRelease(viewer.forceEval[u], 0u);
    }
    stats.workDone();
    TOL_preprocessALL(&viewer.sceneCtx[u], updateProps());
    stats.preprocessDone();
    if (loadAcquire(viewer.channelCommand) == CHANNEL_CMD_START) {
        if (!channelsActive()) channelStart();
        storeRelease(viewer.channelCommand, CHANNEL_CMD_NONE);
    }
}

namespace {

// One list of the capture on Scene Context i, printed first while both Shift
// keys are down. 0 when the run cannot go on.
int runCaptureList(int i, UpdateList *list, const char *title) {
    ChannelSetup *setup = viewer.channelSetup[i];
    if (!setup) return 0;
    Dictionary *dict = dictGet(static_cast<int>(viewer.sceneCtx[i].dict));
    if (loadAcquire(viewer.listDumpKey)) updatelistPrint(stderr, dict, list, 0, title);
    return channelRunList(setup, dict, list);
}

}  // namespace

void updateChannels() {
    UpdateStats stats;
    const int u = viewer.updateIndex;
    TOL_sceneSetCurrent(&viewer.sceneCtx[u]);
    if (channelsActive() && viewer.channelSetup[u] &&
        !runCaptureList(u, &viewer.channelSetup[u]->mainList, "MAIN UPDATE LIST"))
        channelStop();
    stats.workDone();
    if (!viewer.preprocessOnDraw) TOL_preprocessALL(&viewer.sceneCtx[u], updateProps());
    stats.preprocessDone();
    if (channelsActive()) {
        switch (loadAcquire(viewer.channelCommand)) {
        case CHANNEL_CMD_STOP:
            takeRecordStop();
            channelStop();
            break;
        case CHANNEL_CMD_TAKE_START: takeRecordStart(); break;
        case CHANNEL_CMD_TAKE_STOP: takeRecordStop(); break;
        default: break;
        }
    }
    storeRelease(viewer.channelCommand, CHANNEL_CMD_NONE);
}

void updateHiPriority() {
    const int stats = viewer.statsLevel;
    double t0 = stats >= 2 ? viewerClock() : 0.0;
    const int d = viewer.drawIndex;
    TOL_sceneSetCurrent(&viewer.sceneCtx[d]);
    if (channelsActive() && viewer.channelSetup[d] &&
        !runCaptureList(d, &viewer.channelSetup[d]->hiPriorityList, "HI-PRIORITY UPDATE LIST"))
        channelStop();
    if (stats >= 2) {
        double t = viewerClock();
        viewer.hiUpdAcc += t - t0;
        viewer.hiPreAcc += viewerClock() - t;
    }
}

namespace {

// With two threads, the other side acknowledges a stop at its next look at
// the flag: only then are the capture's lists no longer walked.
void awaitStopAck() {
    if (!viewer.parallel || loadAcquire(viewer.channelStopAck)) return;
    const double start = viewerClock();
    while (!loadAcquire(viewer.channelStopAck)) {
        if (viewerClock() - start >= 2.0) {
            fprintf(stderr, "WARNING: Channel stop not acknowledged by draw process.\n");
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

}  // namespace

int channelsActive() {
    if (!loadAcquire(viewer.channelsRunning)) {
        storeRelease(viewer.channelStopAck, 1u);
        return 0;
    }
    storeRelease(viewer.channelStopAck, 0u);
    return 1;
}

void channelStart() {
    if (loadAcquire(viewer.channelsRunning)) return;
    printf("Start capture .... \n");
    const float rate = 1.0f / timeFromFrame(1);
    for (int i = 0; i < viewer.processCount; ++i) {
        if (ChannelSetup *setup = viewer.channelSetup[i]) {
            // The scene stands still at its frame while devices drive it.
            setup->playTime = setup->startTime = timeFromFrame(loadAcquire(viewer.curFrame));
            setup->endTime = timeFromFrame(viewer.endFrame);
            setup->framesPerSecond = rate;
        }
    }
    const int ok = channelCaptureBegin(viewer.channelSetup, viewer.sceneCtx, viewer.processCount);
    if (viewer.channelSetup[0] && viewer.channelSetup[0]->takeEnable != viewer.takeEnabled)
        viewer.takeEnabled = viewer.channelSetup[0]->takeEnable;
    if (!ok) {
        storeRelease(viewer.channelsRunning, 0u);
        return;
    }
    for (int i = 0; i < viewer.processCount; ++i) {
        if (TOL_updatelistGet(&viewer.sceneCtx[i]) != 0) {
            fflush(nullptr);
            _exit(255);
        }
    }
    storeRelease(viewer.channelsRunning, 1u);
    storeRelease(viewer.channelCommand, CHANNEL_CMD_NONE);
    storeRelease(viewer.channelStopAck, 0u);
}

void takeRecordStart() {
    ChannelSetup *setup = viewer.channelSetup[0];
    if (!viewer.takeEnabled || viewer.takeRecording || !setup) return;
    setup->takeNumber = viewer.takeNumber;
    if (takeRecordStart(setup, viewer.sceneName, viewerClock())) storeRelease(viewer.takeRecording, 1u);
    viewer.takeNumber = setup->takeNumber;
}

void takeRecordStop() {
    ChannelSetup *setup = viewer.channelSetup[0];
    if (!viewer.takeEnabled || !viewer.takeRecording || !setup) return;
    takeRecordStop(setup);
    storeRelease(viewer.takeRecording, 0u);
    viewer.takeNumber = setup->takeNumber;
}

void channelStop() {
    storeRelease(viewer.listDumpKey, 0u);
    if (loadAcquire(viewer.channelsRunning)) {
        storeRelease(viewer.channelsRunning, 0u);
        awaitStopAck();
        storeRelease(viewer.channelCommand, CHANNEL_CMD_NONE);
        channelCaptureEnd(viewer.channelSetup, viewer.sceneCtx, viewer.processCount);
        storeRelease(viewer.takeRecording, 0u);
        printf("End Capture\n");
    }
    for (int i = 0; i < viewer.processCount; ++i) {
        if (TOL_updatelistGet(&viewer.sceneCtx[i]) != 0) {
            fflush(nullptr);
            _exit(255);
        }
        storeRelease(viewer.forceEval[i], 1u);
    }
}

void viewerStartSequence() {
    if (loadAcquire(viewer.playing)) return;
    viewer.paused = 0;
    storeRelease(viewer.curFrame, viewer.startFrame);
    storeRelease(viewer.playing, 1u);
    printf("Start Animation (%d frames)...\n", viewer.endFrame - viewer.startFrame + 1);
}

void viewerGotoFrame(int frame) {
    // A sequence stops where the transport takes it; the frame stays shown.
    storeRelease(viewer.playing, 0u);
    viewer.paused = 0;
    viewer.frameShown = 1;
    storeRelease(viewer.curFrame, std::clamp(frame, viewer.startFrame, viewer.endFrame));
    storeRelease(viewer.forceEval[0], 1u);
    storeRelease(viewer.forceEval[1], 1u);
}

void viewerStepFrames(int frames) { viewerGotoFrame(loadAcquire(viewer.curFrame) + frames); }

void viewerPauseSequence() {
    if (loadAcquire(viewer.playing)) {
        storeRelease(viewer.playing, 0u);
        viewer.paused = 1;
        viewer.frameShown = 1;
        // The two copies may stand a frame apart: both show the paused one.
        storeRelease(viewer.forceEval[0], 1u);
        storeRelease(viewer.forceEval[1], 1u);
    } else if (viewer.paused) {
        viewer.paused = 0;
        storeRelease(viewer.playing, 1u);
    }
}

void viewerStopSequence() {
    if (loadAcquire(viewer.playing)) {
        storeRelease(viewer.playing, 0u);
        printf("End Animation\n");
    }
    storeRelease(viewer.forceEval[0], 1u);
    storeRelease(viewer.forceEval[1], 1u);
}

void cameraMirror() {
    const Camera *from = cameraOf(viewer.drawIndex);
    if (!from) return;
    for (int i = 0; i < viewer.processCount; ++i) {
        if (i == viewer.drawIndex) continue;
        Camera *to = cameraOf(i);
        if (!to) continue;
        // The view data only: the rest of the record is each copy's own.
        memcpy(to->position, from->position, sizeof to->position);
        memcpy(to->interest, from->interest, sizeof to->interest);
        to->roll = from->roll;
        to->fieldOfView = from->fieldOfView;
        memcpy(to->upVector, from->upVector, sizeof to->upVector);
        to->aspect = from->aspect;
        to->offsetLens = from->offsetLens;
        memcpy(to->lens, from->lens, sizeof to->lens);
        to->focalLength = from->focalLength;
        to->filmWidth = from->filmWidth;
        to->nearClip = from->nearClip;
        to->farClip = from->farClip;
    }
}

void viewerExit() {
    if (channelsActive()) {
        storeRelease(viewer.channelsRunning, 0u);
        storeRelease(viewer.channelCommand, CHANNEL_CMD_NONE);
        awaitStopAck();
        channelCaptureEnd(viewer.channelSetup, viewer.sceneCtx, viewer.processCount);
    }
    viewer.gprops.texture.video = 0;
    storeRelease(viewer.quit, 1u);
    viewer.stereo = 0;
    // The update thread is not waited for: leave without running destructors
    // under its feet.
    fflush(nullptr);
    _exit(0);
}

void viewerDumpScene() {
    const int d = viewer.drawIndex;
    Dictionary *dict = dictGet(static_cast<int>(viewer.sceneCtx[d].dict));
    if (!dict) return;
    printf("dump frame %ld\n", viewerFrameNumber());
    if (Chapter *models = dictChapter(dict, CHP_MODELS))
        for (int i = 0; i < models->elementCount; ++i) {
            const Element &e = models->elements[i];
            const Model *m = static_cast<const Model *>(e.data);
            if (e.deleted != ELEM_LIVE || !m || !e.name) continue;
            const float(*g)[4] = m->globalMatrix;
            printf("model %s %.6f %.6f %.6f", e.name->name.c_str(), double(g[3][0]), double(g[3][1]), double(g[3][2]));
            for (int r = 0; r < 3; ++r) printf(" %.6f %.6f %.6f", double(g[r][0]), double(g[r][1]), double(g[r][2]));
            printf("\n");
        }
    if (Chapter *lights = dictChapter(dict, CHP_LIGHTS))
        for (int i = 0; i < lights->elementCount; ++i) {
            const Element &e = lights->elements[i];
            const Light *l = static_cast<const Light *>(e.data);
            if (e.deleted != ELEM_LIVE || !l || !e.name) continue;
            printf("light %s %.6f %.6f %.6f at %.6f %.6f %.6f\n", e.name->name.c_str(), double(l->position[0]),
                   double(l->position[1]), double(l->position[2]), double(l->interest[0]),
                   double(l->interest[1]), double(l->interest[2]));
        }
    // The selection of every copy: picks keep them equal.
    for (int i = 0; i < viewer.processCount; ++i)
        if (Chapter *models = dictChapter(dictGet(static_cast<int>(viewer.sceneCtx[i].dict)), CHP_MODELS))
            for (int k = 0; k < models->elementCount; ++k) {
                const Element &e = models->elements[k];
                if (e.deleted == ELEM_LIVE && e.selected && e.name)
                    printf("selected %d %s\n", i, e.name->name.c_str());
            }
    if (const Camera *c = cameraOf(d))
        printf("camera %.6f %.6f %.6f\n", double(c->position[0]), double(c->position[1]), double(c->position[2]));
    if (const ChannelSetup *setup = viewer.channelSetup[d])
        for (const ChannelDriver &drv : setup->drivers)
            for (size_t k = 0; k < drv.slots.size(); ++k)
                printf("slot %s %zu %.6f %.6f\n", drv.name.c_str(), k, double(drv.slots[k].value),
                       double(drv.slots[k].time));
}
