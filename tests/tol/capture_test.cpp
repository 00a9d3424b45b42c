// A capture run on a scene of the layer with the shipped wave driver: the
// connections drive a model on the main list and the camera on the
// high-priority list, takes are recorded, and dead drivers end the run.
#include <gtest/gtest.h>
#include <signal.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <sstream>

#include "capture.h"
#include "layer_fixture.h"
#include "camera.h"
#include "model.h"

namespace {

class Capture : public bwtest::LayerTest {
protected:
    void SetUp() override {
        LayerTest::SetUp();
        ASSERT_EQ(TOL_sceneSetCurrent(&scene), 0);
        cube = modelNew("cube", MODEL_MESH, meshMakeCube(2.0f));
        modelGlobalUpdate(nullptr, cube, 1);
        cube->elementIndex = elemAdd(dict, CHP_MODELS, elemNameParse("cube", nullptr, 0), cube, nullptr, 0, 0);
        TOL_Elem first;
        ASSERT_NE(TOL_elemGetFirstInChap(scene.dict, CHP_CAMERAS, 0, &first), nullptr);
        const Element *e = elemGet(dict, CHP_CAMERAS, int(first.index));
        camera = static_cast<Camera *>(e->data);
        cameraName = e->name->name;
        setup = channelSetupCreate(4);
        ChannelDriver wave;
        ASSERT_EQ(driverFileRead(WAVE_DIR, "wave", &wave), 1);
        channelSetupAddDriver(setup, wave);
        channelSetupAddConnection(setup, CHANNEL_CONN_INPUT, "cube.transx = 2 * CHN wave.sine + 1");
        channelSetupAddConnection(setup, CHANNEL_CONN_INPUT, "cube.rotz = 45 * CHN wave.square + 45");
        channelSetupAddConnection(setup, CHANNEL_CONN_INPUT,
                                  (cameraName + ".posy = 1 * CHN wave.square + 0").c_str());
        channelRunInit(setup, CHANNEL_MODE_CONTROL, 0);
    }
    void TearDown() override {
        channelSetupFree(setup);
        modelFree(cube);
    }
    // The sine and square of the wave driver at the time of its last slot.
    float slotTime() const { return setup->drivers[0].slots[0].time; }

    bwtest::TempDir tmp;
    bwtest::ScopedEnv arenaDir{"TMPDIR", tmp.path().c_str()};
    Model *cube = nullptr;
    Camera *camera = nullptr;
    std::string cameraName;
    ChannelSetup *setup = nullptr;
};

bool arenaLeft(const std::string &dir) {
    for (const auto &e : std::filesystem::directory_iterator(dir))
        if (e.path().filename().string().rfind("BRAK_CHANNEL_arena", 0) == 0) return true;
    return false;
}

}  // namespace

TEST_F(Capture, ConnectionsDriveTheModelOnTheMainListAndTheCameraOnTheHighPriorityList) {
    ASSERT_EQ(channelRunStart(setup), 1);
    // The camera's record runs on the draw side only.
    int cameraInMain = 0, cameraInHi = 0, cubeInHi = 0;
    for (int32_t i = 0; i < setup->mainList.count; ++i) {
        const UpdateRecord &r = setup->mainList.records[i];
        if (r.chapter == CHP_CAMERAS && r.relation == REL_EXPRESSION && r.active) ++cameraInMain;
    }
    for (int32_t i = 0; i < setup->hiPriorityList.count; ++i) {
        const UpdateRecord &r = setup->hiPriorityList.records[i];
        cameraInHi += r.chapter == CHP_CAMERAS && r.relation == REL_EXPRESSION;
        cubeInHi += r.chapter == CHP_MODELS;
    }
    EXPECT_EQ(cameraInMain, 0);
    EXPECT_EQ(cameraInHi, 1);
    EXPECT_EQ(cubeInHi, 0);
    for (int cycle = 0; cycle < 10; ++cycle) {
        ASSERT_EQ(channelRunList(setup, dict, &setup->mainList), 1);
        const double t = slotTime();
        EXPECT_NEAR(cube->translation[0], 2 * std::sin(2 * std::numbers::pi * t) + 1, 1e-5) << t;
        EXPECT_NEAR(cube->globalMatrix[3][0], cube->translation[0], 1e-5) << "the hierarchy step followed";
        const bool high = t - std::floor(t) < 0.5;  // the square: degrees in, radians inside
        EXPECT_NEAR(cube->rotation[2], high ? std::numbers::pi / 2 : 0.0, 1e-6) << t;
        ASSERT_EQ(channelRunList(setup, dict, &setup->hiPriorityList), 1);
        const double u = slotTime();
        EXPECT_EQ(camera->position[1], u - std::floor(u) < 0.5 ? 1.0f : -1.0f) << u;
    }
    EXPECT_GT(slotTime(), 0.0f);
    channelRunClose(setup);
    channelRunStop(setup);
    EXPECT_FALSE(arenaLeft(tmp.path()));
    EXPECT_EQ(relCount(elemGet(dict, CHP_MODELS, cube->elementIndex), 1, -1, REL_EXPRESSION, -1), 0)
        << "the connections' relations go with the run";
}

TEST_F(Capture, TakesAreNumberedAndEachDriverWritesItsFile) {
    bwtest::TempDir takes;
    snprintf(setup->takeDir, sizeof setup->takeDir, "%s", takes.path().c_str());
    snprintf(setup->takeName, sizeof setup->takeName, "mytake");
    setup->takeEnable = 1;
    takes.mkdir("mytake.CHD/TAKE.0001");
    takes.mkdir("mytake.CHD/TAKE.0007");
    std::string out;
    {
        bwtest::OutputCapture capture;
        ASSERT_EQ(channelRunStart(setup), 1);
        EXPECT_EQ(setup->takeNumber, 8);
        ASSERT_EQ(takeRecordStart(setup, "demo", 100.0), 1);
        for (int cycle = 0; cycle < 20; ++cycle) ASSERT_EQ(channelRunList(setup, dict, &setup->mainList), 1);
        takeRecordStop(setup);
        for (int cycle = 0; cycle < 3; ++cycle) ASSERT_EQ(channelRunList(setup, dict, &setup->mainList), 1);
        channelRunClose(setup);
        channelRunStop(setup);
        out = capture.out.text() + capture.err.text();
    }
    EXPECT_TRUE(bwtest::contains(out, "New Start Take Number is now 8")) << out;
    EXPECT_TRUE(bwtest::contains(out, "Recording to... '" + takes.path() + "/mytake.CHD/TAKE.0008'\n")) << out;
    EXPECT_TRUE(bwtest::contains(out, "'" + takes.path() + "/mytake.CHD/TAKE.0008' ...take recording completed !\n"))
        << out;
    EXPECT_EQ(setup->takeNumber, 9);
    std::ifstream file(takes / "mytake.CHD/TAKE.0008/wave.00.chd");
    ASSERT_TRUE(file) << "the driver's take file";
    std::stringstream text;
    text << file.rdbuf();
    EXPECT_TRUE(bwtest::contains(text.str(), "\tSCENE_NAME  : demo\n")) << text.str();
    EXPECT_TRUE(bwtest::contains(text.str(), "\nEND-OF-DATA\n")) << text.str();
}

TEST_F(Capture, NothingConnectedOrADeadDriverEndsTheRunWithItsText) {
    ChannelSetup *empty = channelSetupCreate(4);
    ChannelDriver wave;
    ASSERT_EQ(driverFileRead(WAVE_DIR, "wave", &wave), 1);
    channelSetupAddDriver(empty, wave);
    channelRunInit(empty, CHANNEL_MODE_CONTROL, 0);
    {
        bwtest::OutputCapture capture;
        EXPECT_EQ(channelRunStart(empty), 0);
        EXPECT_TRUE(bwtest::contains(capture.out.text() + capture.err.text(), "No valid channel items to update"));
    }
    channelSetupFree(empty);
    EXPECT_FALSE(arenaLeft(tmp.path()));

    ASSERT_EQ(channelRunStart(setup), 1);
    ASSERT_EQ(channelRunList(setup, dict, &setup->mainList), 1);
    std::string text;
    {
        bwtest::OutputCapture capture;
        kill(commDriver(0)->pid, SIGKILL);  // the row's pid: the monitor clears the setup's
        int result = 1;
        for (int cycle = 0; cycle < 100 && result; ++cycle) result = channelRunList(setup, dict, &setup->mainList);
        EXPECT_EQ(result, 0);
        text = capture.out.text() + capture.err.text();
    }
    EXPECT_TRUE(bwtest::contains(text, "Driver wave died - channel run will continue")) << text;
    EXPECT_TRUE(bwtest::contains(text, "All drivers died (wave)")) << text;
    channelRunClose(setup);
    EXPECT_FALSE(arenaLeft(tmp.path()));
}

TEST_F(Capture, ADriverKilledDuringATakeLeavesTheOthersRecordingToTheEnd) {
    ChannelDriver second;
    ASSERT_EQ(driverFileRead(WAVE_DIR, "wave", &second), 1);
    channelSetupAddDriver(setup, second);
    channelSetupAddConnection(setup, CHANNEL_CONN_INPUT, "cube.transy = 1 * CHN wave_1.sine + 0");
    bwtest::TempDir takes;
    snprintf(setup->takeDir, sizeof setup->takeDir, "%s", takes.path().c_str());
    snprintf(setup->takeName, sizeof setup->takeName, "t");
    setup->takeEnable = 1;
    bwtest::OutputCapture quiet;
    ASSERT_EQ(channelRunStart(setup), 1);
    ASSERT_EQ(takeRecordStart(setup, "s", 0.0), 1);
    for (int cycle = 0; cycle < 5; ++cycle) ASSERT_EQ(channelRunList(setup, dict, &setup->mainList), 1);
    kill(commDriver(1)->pid, SIGKILL);
    // The run goes on with the driver that lives; its take ends whole.
    for (int cycle = 0; cycle < 30; ++cycle) ASSERT_EQ(channelRunList(setup, dict, &setup->mainList), 1);
    takeRecordStop(setup);
    ASSERT_EQ(channelRunList(setup, dict, &setup->mainList), 1);
    channelRunClose(setup);
    channelRunStop(setup);
    std::ifstream file(takes / "t.CHD/TAKE.0001/wave.00.chd");
    std::stringstream text;
    text << file.rdbuf();
    EXPECT_TRUE(text.str().size() > 12 && text.str().substr(text.str().size() - 12) == "END-OF-DATA\n") << text.str();
    EXPECT_EQ(setup->deadList, "wave");
}

TEST_F(Capture, TheTableOfStartsAndStopsHoldsAThousand) {
    channelTimesReset();
    std::string err;
    {
        bwtest::StreamCapture capture(stderr);
        for (int i = 0; i < CHANNEL_TIME_TABLE_SIZE + 1; ++i) channelRunClose(setup);
        err = capture.text();
    }
    EXPECT_EQ(channelTimesCount(), CHANNEL_TIME_TABLE_SIZE);
    EXPECT_TRUE(bwtest::contains(err, "Can't start/stop more than 1000 times.\n")) << err;
    EXPECT_EQ(err.rfind("channel/chn_capt(", 0), 0u) << err;
}
