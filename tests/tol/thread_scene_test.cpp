// Each thread its own current scene: two threads evaluate two scenes of
// different play range and rate at the same time, and each sees only its own
// play control and current frame. Run under the race detector by
// scripts/test.sh --tsan.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "capture.h"
#include "dictionary.h"
#include "tol.h"

namespace {

struct Side {
    TOL_Scene scene;     // the thread's scene
    TOL_PlayCtrl play;   // what its play control must read
    int mismatches = 0;  // reads that were not the thread's own
};

// One thread's run: its scene current, then frame by frame the play control set
// and read back around an evaluation.
void runSide(Side &side, std::atomic<int> &ready, int frames) {
    if (TOL_threadStorageInit(&side.scene) != 0) {
        side.mismatches = -1;
        return;
    }
    ready.fetch_add(1);
    while (ready.load() < 2) std::this_thread::yield();
    for (int f = side.play.startFrame; f < side.play.startFrame + frames; ++f) {
        TOL_PlayCtrl &play = sceneStateCurrent().playCtrl;
        play.currentFrame = f;
        g_currentFrame = -f;  // the evaluation puts the thread's frame back
        if (TOL_updatelistEvalScene(&side.scene, static_cast<float>(f) / play.framesPerSecond) != 0)
            ++side.mismatches;
        const TOL_PlayCtrl &seen = sceneStateCurrent().playCtrl;
        if (seen.startFrame != side.play.startFrame || seen.endFrame != side.play.endFrame ||
            seen.framesPerSecond != side.play.framesPerSecond || seen.currentFrame != f ||
            g_currentFrame != -f || tol_sidPlayCtrl(&side.scene)->currentFrame != f)
            ++side.mismatches;
    }
}

// The layer, started once for the program on an empty relation table.
void startLayer() {
    static bwtest::TempDir *dir = nullptr;
    if (dir) return;
    dir = new bwtest::TempDir;
    dir->write("rsrc/Relations.rsrc", "SREL 3.48\nRELATIONS\nEndOfRELATIONS\n");
    bwtest::OutputCapture quiet;
    ASSERT_EQ(TOL_Init((*dir / "rsrc").c_str(), 0, TOL_SDK_VERSION), 0);
}

TEST(ThreadScenes, TwoThreadsEvaluateTheirOwnScenesAtOnce) {
    startLayer();
    Side a, b;
    ASSERT_EQ(TOL_sceneCreate(&a.scene), 0);
    ASSERT_EQ(TOL_sceneCreate(&b.scene), 0);
    a.play.startFrame = 1;
    a.play.endFrame = 100;
    a.play.framesPerSecond = 24.0f;
    b.play.startFrame = 500;
    b.play.endFrame = 2000;
    b.play.framesPerSecond = 60.0f;
    for (Side *side : {&a, &b}) {
        ASSERT_EQ(TOL_updatelistGet(&side->scene), 0);
        *tol_sidPlayCtrl(&side->scene) = side->play;
    }

    // The main thread keeps a third scene of its own current all along.
    TOL_Scene mine;
    TOL_sceneGetCurrent(&mine);
    const TOL_PlayCtrl before = sceneStateCurrent().playCtrl;

    std::atomic<int> ready{0};
    std::thread ta(runSide, std::ref(a), std::ref(ready), 400);
    std::thread tb(runSide, std::ref(b), std::ref(ready), 400);
    ta.join();
    tb.join();
    EXPECT_EQ(a.mismatches, 0);
    EXPECT_EQ(b.mismatches, 0);

    TOL_Scene now;
    TOL_sceneGetCurrent(&now);
    EXPECT_EQ(now.dict, mine.dict);
    EXPECT_EQ(sceneStateCurrent().playCtrl.endFrame, before.endFrame);
    EXPECT_EQ(sceneStateCurrent().playCtrl.framesPerSecond, before.framesPerSecond);
    // Each scene keeps what its thread left in it.
    EXPECT_EQ(tol_sidPlayCtrl(&a.scene)->currentFrame, 400);
    EXPECT_EQ(tol_sidPlayCtrl(&b.scene)->currentFrame, 899);
}

// A call that names another scene swaps it in for the call only, and the
// thread's own scene is current again afterwards, on every way out.
TEST(ThreadScenes, TheSwapGuardPutsTheThreadsSceneBack) {
    startLayer();
    TOL_Scene mine;
    TOL_sceneGetCurrent(&mine);
    TOL_Scene other;
    ASSERT_EQ(TOL_sceneCreate(&other), 0);
    tol_sidPlayCtrl(&other)->endFrame = 77;
    {
        TolSceneFrame frame(&other);
        ASSERT_EQ(frame.status(), 0);
        EXPECT_TRUE(frame.swapped());
        EXPECT_EQ(sceneStateCurrent().playCtrl.endFrame, 77);
    }  // left without finish(): the destructor swaps back
    TOL_Scene now;
    TOL_sceneGetCurrent(&now);
    EXPECT_EQ(now.dict, mine.dict);
    EXPECT_NE(sceneStateCurrent().playCtrl.endFrame, 77);
    {
        TolSceneFrame frame(&mine);  // already current: nothing to put back
        EXPECT_FALSE(frame.swapped());
        EXPECT_EQ(frame.finish(0), 0);
    }
}

}  // namespace
