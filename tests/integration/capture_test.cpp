// Live capture through the whole viewer under Xvfb: the demo's wave scene in a
// capture (-c), with the script's "dump" printing the draw side's numbers; a
// channel setup written here by hand puts the camera on the high-priority
// list; takes recorded with C and played back through the take driver.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "capture.h"
#include "run_viewer.h"

using bwtest::RunResult;

namespace {

const std::string rsrc = BW_RSRC_DIR;

// One "dump" of the viewer: the cube's position, the camera's, the slots.
struct Dump {
    double cubeX = 0, cameraY = 0;
    std::vector<double> value, time;  // slot of DOF i of the setup's first driver
};

std::vector<Dump> dumps(const std::string &out) {
    std::vector<Dump> all;
    std::istringstream in(out);
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream w(line);
        std::string word, name;
        w >> word;
        if (word == "dump") all.emplace_back();
        if (all.empty()) continue;
        Dump &d = all.back();
        double x, y, z;
        size_t dof;
        if (word == "model" && w >> name >> x >> y >> z && name == "world") d.cubeX = x;
        if (word == "camera" && w >> x >> y >> z) d.cameraY = y;
        if (word == "slot" && w >> name >> dof >> x >> y && dof == d.value.size()) {
            d.value.push_back(x);
            d.time.push_back(y);
        }
    }
    return all;
}

class CaptureRun : public ::testing::Test {
protected:
    void SetUp() override {
        if (!getenv("DISPLAY")) GTEST_SKIP() << "needs an X display (run under xvfb-run)";
        RunResult made = bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
        ASSERT_EQ(made.status, 0) << made.err;
    }
    RunResult run(const std::string &script, std::vector<std::string> args) {
        dir.write("script.txt", script);
        args.insert(args.begin(), {"-R", rsrc, "-d", "3", "-S", "wave", "-c"});
        return bwtest::runViewer(args, dir.path(),
                                 {"BW_DBDIR", "BW_RSRC", "BW_CHNLDRIVER", "BW_PIXELFORMAT",
                                  "BW_VIEWER_SCRIPT=script.txt", "LIBGL_ALWAYS_SOFTWARE=1",
                                  "TMPDIR=" + arenas.path()});
    }
    // The wave scene's channel setup replaced by one written here.
    void setup(const std::string &driverLine, const std::string &location, const std::string &channels,
               const std::string &items) {
        dir.write("demo/SETUP_CHANNELS/wave.1-0.chn",
                  "CHANNELS 3.51\n"
                  "CAPTURE ON\nCONTROL ON\n"
                  "DRIVER " + driverLine + "\n"
                  "REMOTE 0 DRIVER_EMPTY_STRING\t" + location + "\n"
                  "RUNMODE SYNCED\n" + channels + items);
    }
    bool arenaLeft() const { return !std::filesystem::is_empty(arenas.path()); }
    std::string script(int from, int to, int step, const std::string &tail) const {
        std::string s;
        for (int f = from; f <= to; f += step) s += "at " + std::to_string(f) + "\ndump\n";
        return s + tail;
    }

    bwtest::TempDir dir, arenas;
};

double sine(double t) { return std::sin(2 * std::numbers::pi * t); }

}  // namespace

TEST_F(CaptureRun, TheWaveMovesTheCubeUntilTheRightButtonStopsTheCapture) {
    RunResult r = run(script(40, 160, 40,
                             "at 170\npress Shift_L\npress Shift_R\nat 171\nrelease Shift_R\nrelease Shift_L\n"
                             "at 200\nbutton down right 10 10\nat 201\nbutton up right\nat 205\ndump\nat 230\ndump\nat 240\nquit\n"),
                      {});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(bwtest::contains(r.out, "Start capture .... \n")) << r.out;
    EXPECT_TRUE(bwtest::contains(r.out, "End Capture\n")) << r.out;
    EXPECT_TRUE(bwtest::contains(r.err, "MAIN UPDATE LIST")) << r.err;
    EXPECT_TRUE(bwtest::contains(r.err, "HI-PRIORITY UPDATE LIST")) << r.err;
    const std::vector<Dump> all = dumps(r.out);
    ASSERT_EQ(all.size(), 6u) << r.out;
    std::set<double> places;
    for (size_t i = 0; i + 2 < all.size(); ++i) {
        const Dump &d = all[i];
        ASSERT_EQ(d.value.size(), 6u) << "the wave's six slots, dump " << i;
        EXPECT_NEAR(d.cubeX, 2 * sine(d.time[0]), 1e-4) << "dump " << i << " at " << d.time[0];
        EXPECT_NEAR(d.value[0], sine(d.time[0]), 1e-5);
        places.insert(d.cubeX);
    }
    EXPECT_GE(places.size(), 3u) << "the cube moves";
    // After the stop the cube keeps its place and the arena is gone.
    EXPECT_EQ(all[5].cubeX, all[4].cubeX);
    EXPECT_FALSE(arenaLeft());
}

TEST_F(CaptureRun, InParallelTheCameraFollowsOnTheDrawSideAndTheCubeOnTheUpdateSide) {
    setup("ON wave 6", "DEFAULT_DRIVER_LOCATION",
          "CHANNEL 0 0 1 9999 -9999 ON I IN sine\nCHANNEL 1 0 1 9999 -9999 ON I IN square\n",
          "ITEM MODEL \"demo-world.transx = 2 * CHN wave.sine + 0\"\n"
          "ITEM CAMERA \"demo-eye.posy = 1 * CHN wave.square + 4\"\n");
    RunResult r = run(script(100, 2000, 100, "at 2010\nquit\n"), {"-p", "2"});
    ASSERT_EQ(r.status, 0) << r.err;
    std::set<double> cube, camera;
    for (const Dump &d : dumps(r.out)) {
        if (d.value.empty() || d.time[0] <= 0) continue;  // the capture was still starting
        EXPECT_LE(std::fabs(d.cubeX), 2.0 + 1e-5);
        EXPECT_TRUE(d.cameraY == 3.0 || d.cameraY == 5.0) << d.cameraY;
        cube.insert(d.cubeX);
        camera.insert(d.cameraY);
    }
    EXPECT_GE(cube.size(), 2u) << r.out;
    EXPECT_FALSE(camera.empty()) << r.out;
    EXPECT_FALSE(arenaLeft());
}

TEST_F(CaptureRun, ATakeIsRecordedWithTheNextNumberAndPlaysBackThroughTheTakeDriver) {
    bwtest::TempDir takes;
    takes.mkdir("mytake.CHD/TAKE.0001");
    takes.mkdir("mytake.CHD/TAKE.0007");
    RunResult r = run("at 100\nkey C\nat 1200\nkey C\nat 1250\nquit\n", {"-T", takes.path() + ",mytake"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string take = takes.path() + "/mytake.CHD/TAKE.0008";
    EXPECT_TRUE(bwtest::contains(r.out, "Recording to... '" + take + "'\n")) << r.out;
    EXPECT_TRUE(bwtest::contains(r.out, "'" + take + "' ...take recording completed !\n")) << r.out;
    std::ifstream file(take + "/wave.00.chd");
    ASSERT_TRUE(file) << "the wave driver's take";
    std::stringstream text;
    text << file.rdbuf();
    ASSERT_TRUE(bwtest::contains(text.str(), "\tSCENE_NAME  : wave\n")) << text.str();
    ASSERT_TRUE(text.str().size() > 12 && text.str().substr(text.str().size() - 12) == "END-OF-DATA\n");
    // The sine values the take holds.
    std::set<double> recorded;
    std::istringstream lines(text.str().substr(text.str().find("START-OF-DATA\n") + 14));
    double t, v;
    int dof, status;
    while (lines >> t >> dof >> status >> v)
        if (dof == 0) recorded.insert(v);
    ASSERT_GE(recorded.size(), 3u);

    // Played back: the take driver of a directory of the test's, told its file by take.cfg.
    bwtest::TempDir drivers;
    std::filesystem::create_symlink(BW_TAKE_DRIVER, drivers / "take");
    std::filesystem::copy_file(std::filesystem::path(BW_TAKE_DRIVER).parent_path() / "take.drv", drivers / "take.drv");
    drivers.write("take.cfg", "-file " + take + "/wave.00.chd\n");
    setup("ON take 8", drivers.path(), "CHANNEL 0 0 1 9999 -9999 ON I IN DOF0\n",
          "ITEM MODEL \"demo-world.transx = 2 * CHN take.DOF0 + 0\"\n");
    RunResult replay = run(script(20, 800, 20, "at 810\nquit\n"), {});
    ASSERT_EQ(replay.status, 0) << replay.err;
    std::set<double> seen;
    for (const Dump &d : dumps(replay.out)) {
        if (d.cubeX == 0.0) continue;  // before the first record
        bool found = false;
        for (double value : recorded) found = found || std::fabs(d.cubeX - 2 * value) < 1e-4;
        EXPECT_TRUE(found) << d.cubeX << " is twice no recorded sine";
        seen.insert(d.cubeX);
    }
    EXPECT_GE(seen.size(), 2u) << replay.out << replay.err;
}

TEST_F(CaptureRun, ABadSetupFileIsNamedAndTheViewerPlaysOnWithoutACapture) {
    dir.write("demo/SETUP_CHANNELS/wave.1-0.chn", "CHANNELS three\nDRIVER ON wave 6\n");
    RunResult r = run("at 30\ndump\nat 40\nquit\n", {});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(bwtest::contains(r.err, "Channel setup file '")) << r.err;
    EXPECT_TRUE(bwtest::contains(r.err, "wave.1-0.chn' has a bad version number.")) << r.err;
    EXPECT_TRUE(bwtest::contains(r.err, "No valid channel items to update")) << r.err;
    EXPECT_FALSE(bwtest::contains(r.out, "End Capture")) << "no capture ran";
    const std::vector<Dump> all = dumps(r.out);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].cubeX, 0.0);
    EXPECT_FALSE(arenaLeft());
}
