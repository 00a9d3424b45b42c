// The ring of two Scene Contexts and the sequence, without a window.
#include <gtest/gtest.h>

#include <thread>

#include "capture.h"
#include "database.h"
#include "tol.h"
#include "viewer.h"

namespace {

// Two created scenes stand in for the loaded ones.
class Ring : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        dir = new bwtest::TempDir;
        dir->write("rsrc/Relations.rsrc", "SREL 3.48\nRELATIONS\nEndOfRELATIONS\n");
        bwtest::OutputCapture quiet;
        ASSERT_EQ(TOL_Init((*dir / "rsrc").c_str(), 0, TOL_SDK_VERSION), 0);
        ASSERT_EQ(TOL_sceneCreate(&scenes[0]), 0);
        ASSERT_EQ(TOL_sceneCreate(&scenes[1]), 0);
    }
    static void TearDownTestSuite() { delete dir; }
    void SetUp() override {
        viewerInitDefaults();
        viewer.sceneCtx[0] = scenes[0];
        viewer.sceneCtx[1] = scenes[1];
    }
    static bwtest::TempDir *dir;
    static TOL_Scene scenes[2];
};
bwtest::TempDir *Ring::dir = nullptr;
TOL_Scene Ring::scenes[2];

}  // namespace

TEST_F(Ring, OneContextStaysOnItselfAndPlaysEveryFrame) {
    viewer.processCount = 1;
    viewer.startFrame = 1;
    viewer.endFrame = 3;
    bwtest::OutputCapture cap;
    viewerStartSequence();
    viewerStartSequence();  // a second RIGHT while playing changes nothing
    for (int i = 0; i < 3; ++i) {
        viewerRingStep();
        EXPECT_EQ(viewer.drawIndex, 0);
        EXPECT_EQ(viewer.updateIndex, 0);
    }
    EXPECT_EQ(viewer.curFrame, 4);
    EXPECT_EQ(viewer.playing, 1u);
    viewerRingStep();  // past the end: the sequence stops and both copies re-evaluate
    EXPECT_EQ(viewer.playing, 0u);
    EXPECT_EQ(viewer.forceEval[0], 1u);
    EXPECT_EQ(viewer.forceEval[1], 1u);
    viewerRingStep();
    EXPECT_EQ(viewer.forceEval[0], 0u);
    EXPECT_EQ(cap.out.text(), "Start Animation (3 frames)...\nEnd Animation\n");
}

TEST_F(Ring, TwoContextsChangePlacesThroughTheUpdateThread) {
    viewer.processCount = 2;
    viewer.parallel = 1;
    viewer.drawIndex = 0;
    viewer.updateIndex = 1;
    viewerRingStep();  // the update side still works on 1: draw 0 again
    EXPECT_EQ(viewer.drawIndex, 0);

    std::thread update(updateThreadProc);
    // The thread finishes 1 and stops at (0, 0); the next frame moves to 1.
    while (loadAcquire(viewer.updateIndex) != 0) std::this_thread::yield();
    viewerRingStep();
    EXPECT_EQ(viewer.drawIndex, 1);
    // Then it works on 0 and stops at (1, 1); the draw side goes back to 0.
    while (loadAcquire(viewer.updateIndex) != 1) std::this_thread::yield();
    viewerRingStep();
    EXPECT_EQ(viewer.drawIndex, 0);
    // Idle at (0, 0) once more, where it sees quit.
    while (loadAcquire(viewer.updateIndex) != 0) std::this_thread::yield();
    storeRelease(viewer.quit, 1u);
    update.join();
}

TEST_F(Ring, ForcedEvaluationRunsOncePerCopy) {
    viewer.processCount = 1;
    viewer.forceEval[0] = 1;
    viewerRingStep();
    EXPECT_EQ(viewer.forceEval[0], 0u);
    EXPECT_EQ(viewer.curFrame, 1);  // forced evaluation does not advance the frame
}
