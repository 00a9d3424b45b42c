// Keys and mouse without a window: what keys do to the state, the modes held
// with a key, the key gate of a capture, and drags moving the camera of both
// copies of the scene.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "camera.h"
#include "capture.h"
#include "dictionary.h"
#include "model.h"
#include "viewer.h"
#include "viewer_platform.h"

namespace {

int pending() { return 1; }

// Two created scenes with a model each stand in for the two loaded copies.
class Input : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        bwtest::OutputCapture quiet;
        ASSERT_EQ(TOL_Init(bwtest::sourcePath("rsrc").c_str(), 0, TOL_SDK_VERSION), 0);
        for (TOL_Scene &s : scenes) {
            ASSERT_EQ(TOL_sceneCreate(&s), 0);
            Model *m = modelNew("box", MODEL_MESH, meshMakeCube(2.0f));
            box = elemAdd(dictGet(int(s.dict)), CHP_MODELS, elemNameParse("box", nullptr, 0), m, nullptr, 0, 0);
        }
    }
    void SetUp() override {
        viewerInitDefaults();
        viewer.processCount = 2;
        viewer.parallel = 1;  // ring steps here zoom and draw, and leave the scenes alone
        for (int i = 0; i < 2; ++i) {
            viewer.sceneCtx[i] = scenes[i];
            viewer.camera[i] = TOL_elemGetFirstInChap(scenes[i].dict, CHP_CAMERAS, 0, &cameraElem[i]);
            Camera &c = camera(i);
            c.position[0] = c.position[1] = c.interest[0] = c.interest[1] = c.interest[2] = 0;
            c.position[2] = 10, c.fieldOfView = 0.7854f, c.aspect = 4.0f / 3.0f;
        }
    }
    static Camera &camera(int i) {
        return *static_cast<Camera *>(
            elemGet(dictGet(int(scenes[i].dict)), CHP_CAMERAS, int(cameraElem[i].index))->data);
    }
    static uint16_t selected(int i) { return elemGet(dictGet(int(scenes[i].dict)), CHP_MODELS, box)->selected; }
    static void key(int code, int shift = 0) {
        viewerKeyEvent(code, 1, 0, shift);
        viewerKeyEvent(code, 0, 0, shift);
    }
    static void expectMirrored() {
        for (int k = 0; k < 3; ++k) EXPECT_EQ(camera(1).position[k], camera(0).position[k]);
        EXPECT_EQ(camera(1).fieldOfView, camera(0).fieldOfView);
        EXPECT_EQ(camera(1).aspect, camera(0).aspect);
    }
    static TOL_Scene scenes[2];
    static TOL_Elem cameraElem[2];
    static int box;
};
TOL_Scene Input::scenes[2];
TOL_Elem Input::cameraElem[2];
int Input::box = 0;

}  // namespace

TEST_F(Input, KeysSwitchModesAndPrintTheirLines) {
    bwtest::OutputCapture cap;
    for (int code : {'T', 'M', 'S', 'W', '0', '0'}) key(code);
    key('S', 1);  // the shifted letter of a plain row does nothing
    key('W', 1);  // walk mode: the display mode stays
    EXPECT_EQ(cap.out.text(), "Display mode: TEXTURED\nDisplay mode: MATTE\nDisplay mode: SHADED\n"
                              "Display mode: WIREFRAME\nShow Icons: ON\nShow Icons: OFF\n");
    EXPECT_EQ(viewer.walkMode, 1u);
    EXPECT_EQ(viewer.gprops.material.shade, 0);

    // i turns the rates on and off; I steps to the shares and back, and does
    // nothing while the information is off.
    const int shifts[5] = {1, 0, 1, 1, 0};
    std::vector<int> levels;
    for (int shift : shifts) key('I', shift), levels.push_back(viewer.statsLevel);
    EXPECT_EQ(levels, (std::vector<int>{0, 1, 2, 1, 0}));
    viewer.gprops.interOcular = 0.015f;
    key(VKEY_SUBTRACT);
    key(VKEY_SUBTRACT);  // never below 0
    EXPECT_EQ(viewer.gprops.interOcular, 0.0f);
}

TEST_F(Input, HeldModesEndWithTheirKey) {
    viewerKeyEvent('O', 1, 0, 1);
    EXPECT_EQ(viewer.orbitInterestMode, 1u);
    viewerKeyEvent('O', 0, 0, 1);
    EXPECT_EQ(viewer.orbitInterestMode, 0u);
    viewerKeyEvent('P', 1, 0, 0);
    viewerKeyEvent('P', 0, 0, 1);  // released with Shift down: the dolly stays
    EXPECT_EQ(viewer.dollyMode, 1u);
    // z with Shift pressed before its release stays on until the next z,
    // which ends it with the buttons of the mode.
    viewerKeyEvent('Z', 1, 0, 0);
    onMousePress(1, 10, 10, 0);
    viewerKeyEvent('Z', 0, 0, 1);
    EXPECT_EQ(viewer.zoomIn, 1u);
    viewerKeyEvent('Z', 1, 1, 0);  // auto-repeat: dropped
    EXPECT_EQ(viewer.zoomPanMode, 1u);
    viewerKeyEvent('Z', 1, 0, 0);
    EXPECT_EQ(viewer.zoomPanMode + viewer.zoomIn, 0u);
}

TEST_F(Input, KeysOffDuringACaptureButTheMouseStillStopsIt) {
    viewer.channelsRunning = viewer.keysOffInRun = 1;
    key('X');
    EXPECT_EQ(viewer.showCross, 0u);
    onMouseRelease(2);
    EXPECT_EQ(viewer.channelCommand, 2);
    viewer.keysOffInRun = 0;
    key('X');
    EXPECT_EQ(viewer.showCross, 1u);
    viewer.channelsRunning = 0;
}

TEST_F(Input, DragsZoomAndResetMoveBothCopies) {
    ASSERT_EQ(TOL_cameraStoreAttributes(&viewer.sceneCtx[0], nullptr), 0);
    // Orbit: a drag of the window's width is a full turn; the right button
    // keeps to left and right.
    viewerKeyEvent('O', 1, 0, 0);
    onMousePress(0, 100, 100, 0);
    onMouseDrag(150, 130, 400, 300, 0, 0, 1, 0, pending);
    EXPECT_NEAR(std::atan2(camera(0).position[0], camera(0).position[2]), -50.0 * 2 * M_PI / 400, 1e-5);
    EXPECT_NEAR(camera(0).position[1], 0.0f, 1e-5);
    expectMirrored();
    viewerKeyEvent('O', 0, 0, 0);

    // The middle button zooms once a frame in zoom mode.
    viewerKeyEvent('Z', 1, 0, 0);
    onMousePress(1, 200, 150, 0);
    for (int i = 0; i < 3; ++i) viewerRingStep();
    onMouseRelease(1);
    viewerRingStep();
    EXPECT_NEAR(camera(0).fieldOfView, 0.7854 * std::pow(0.9523809523809523, 3), 1e-5);
    expectMirrored();

    // R goes back to the stored camera and keeps the window's shape.
    viewerWindowResized(800, 400);
    key('R', 1);
    EXPECT_EQ(camera(0).position[0], 0.0f);
    EXPECT_EQ(camera(0).fieldOfView, 0.7854f);
    EXPECT_EQ(camera(0).aspect, 2.0f);
    expectMirrored();
}

TEST_F(Input, SelectModeWithoutAWindowPicksNothingAndKeepsTheSelection) {
    // With no GL context the pick sees nothing: the click changes nothing,
    // as a click on the background would. The picks themselves are the
    // window tests'.
    elemGet(dictGet(int(scenes[0].dict)), CHP_MODELS, box)->selected = 1;
    viewerKeyEvent(VKEY_SPACE, 1, 0, 0);
    for (int button : {0, 1, 2}) onMousePress(button, 50, 60, 0);
    viewerKeyEvent(VKEY_SPACE, 0, 0, 0);
    EXPECT_EQ(selected(0), 1);
    EXPECT_EQ(selected(1), 0);
    elemGet(dictGet(int(scenes[0].dict)), CHP_MODELS, box)->selected = 0;
}

TEST_F(Input, RatesLeaveOutTheTimeWithStatisticsOff) {
    statsDrawTick(10.0);
    statsDrawIdle();
    for (double t : {50.0, 50.6, 51.6}) statsDrawTick(t);
    statsDrawRates();
    EXPECT_NEAR(viewer.drawRate, 2.0 / 1.6, 1e-9);
}
