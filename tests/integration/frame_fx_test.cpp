// Frame effects through the whole viewer under Xvfb: antialiasing of a slanted
// edge, the garbage matte of the demo, the video switch that this platform
// refuses, and stereo options that change no picture.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "capture.h"
#include "png_read.h"
#include "run_viewer.h"
#include "testdata.h"

using bwtest::contains;
using bwtest::RunResult;

namespace {

const std::string rsrc = BW_RSRC_DIR;
const std::vector<std::string> viewerEnv = {"BW_DBDIR", "BW_RSRC", "BW_LIVE_SHOWFORMATS", "BW_PIXELFORMAT",
                                            "BW_VIEWER_SCRIPT=script.txt", "LIBGL_ALWAYS_SOFTWARE=1"};

class FrameFx : public ::testing::Test {
protected:
    void SetUp() override {
        if (!getenv("DISPLAY")) GTEST_SKIP() << "needs an X display (run under xvfb-run)";
    }
    void writeDemo() {
        RunResult made = bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
        ASSERT_EQ(made.status, 0) << made.err;
    }
    // A cube turned about the view axis, so that its front face has slanted edges.
    void writeSlantedCube() {
        ASSERT_EQ(tdLoadRelations(), 1);
        bwtest::OutputCapture quiet;
        Database *db = tdDatabaseCreate(dir / "db", "slant", dir / "DatabaseDir.rsrc");
        ASSERT_NE(db, nullptr);
        Model *cube = modelNew("cube", MODEL_MESH, meshMakeCube(3.0f));
        cube->rotation[2] = 0.35f;
        std::string file = tdFullName(tdWriteModel(db, "slant-cube", cube));
        modelFree(cube);
        ASSERT_FALSE(file.empty());
        TdScene scene;
        scene.add(CHP_MODELS, file);
        ASSERT_FALSE(tdWriteScene(db, "shot", scene, time(nullptr)).empty());
    }
    RunResult run(const std::string &script, std::vector<std::string> args) {
        dir.write("script.txt", script);
        args.insert(args.begin(), {"-R", rsrc});
        return bwtest::runViewer(args, dir.path(), viewerEnv);
    }
    bwtest::Image shot(const std::string &name) {
        bwtest::Image image;
        EXPECT_TRUE(bwtest::readPng(dir / name, &image)) << name;
        return image;
    }
    bwtest::TempDir dir;
};

// Pixels neither black nor white: the edge's partial coverage.
int between(const bwtest::Image &image) {
    int n = 0;
    for (size_t i = 0; i < image.rgb.size(); i += 3) n += image.rgb[i] > 24 && image.rgb[i] < 231;
    return n;
}

}  // namespace

TEST_F(FrameFx, ASlantedEdgeHasPartialPixelsOnlyWithAntialiasing) {
    writeSlantedCube();
    // Matte display draws the cube flat white on black.
    const std::string script = "at 2\nkey m\nat 4\nsnapshot edge.png\nat 5\nkey Escape\n";
    RunResult sharp = run(script, {"-s", "200x150", "-a", "0"});
    ASSERT_EQ(sharp.status, 0) << sharp.out << sharp.err;
    EXPECT_TRUE(contains(sharp.out, "Antialiasing level:     0\n"));
    const bwtest::Image plain = shot("edge.png");
    EXPECT_EQ(between(plain), 0);

    RunResult smooth = run(script, {"-s", "200x150", "-a", "4"});
    ASSERT_EQ(smooth.status, 0) << smooth.out << smooth.err;
    const bwtest::Image soft = shot("edge.png");
    // Every pixel the edges cross, a few hundred, and not much more.
    EXPECT_GT(between(soft), 150);
    EXPECT_LT(between(soft), 1500);
}

TEST_F(FrameFx, GarbageMatteShowsRedOutsideTheCardOnlyWhenAsked) {
    writeDemo();
    const std::string script = "at 3\nsnapshot keyed.png\nat 4\nkey g\nat 6\nsnapshot shown.png\nat 7\nkey Escape\n";
    RunResult r = run(script, {"-s", "400x300", "-G", "matte"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(contains(r.out, "Garbage matte scene:    matte\n"));
    EXPECT_TRUE(contains(r.out, "Loading garbage mattes:  matte\n"));
    const bwtest::Image keyed = shot("keyed.png"), shown = shot("shown.png");
    RunResult bare = run("at 3\nsnapshot bare.png\nat 4\nkey Escape\n", {"-s", "400x300"});
    ASSERT_EQ(bare.status, 0) << bare.out << bare.err;
    // The key goes into the alpha alone: the picture is the scene's.
    EXPECT_EQ(keyed.rgb, shot("bare.png").rgb);

    // With g the red channel is full outside the card; inside, nothing changed.
    int kept = 0, reddened = 0;
    for (size_t i = 0; i < shown.rgb.size(); i += 3) {
        ASSERT_EQ(shown.rgb[i + 1], keyed.rgb[i + 1]);
        ASSERT_EQ(shown.rgb[i + 2], keyed.rgb[i + 2]);
        if (shown.rgb[i] == keyed.rgb[i] && keyed.rgb[i] < 255) ++kept;
        else if (shown.rgb[i] == 255) ++reddened;
    }
    EXPECT_EQ(kept + reddened, 400 * 300);
    EXPECT_GT(kept, 2000);  // the card, about 100 x 70 pixels, less its red parts
    EXPECT_GT(reddened, 400 * 300 / 2);
    // A corner of the sky is outside the card; the card's middle is inside.
    EXPECT_EQ(shown.at(5, 5)[0], 255);
    EXPECT_EQ(shown.at(110, 160)[0], keyed.at(110, 160)[0]);
}

TEST_F(FrameFx, VideoTexturingIsRefusedAndTheRunGoesOn) {
    writeDemo();
    RunResult r = run("at 3\nkey v\nat 4\nsnapshot on.png\nat 5\nkey Escape\n", {"-s", "200x150", "-v"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const std::string refused = "BW_WARNING: OpenGL sirius functions not supported\n"
                                "BW_ERROR: TOL_siriusInit(): can't initialize SIRIUS properly\n";
    const size_t first = r.out.find(refused);
    ASSERT_NE(first, std::string::npos) << r.out;
    EXPECT_NE(r.out.find(refused, first + 1), std::string::npos) << "the key tries again";
    // Once at start for -v, once for the key.
    const std::string line = "ERROR: Cannot enable video texturing\n";
    int lines = 0;
    for (size_t at = r.err.find(line); at != std::string::npos; at = r.err.find(line, at + 1)) ++lines;
    EXPECT_EQ(lines, 2) << r.err;
    EXPECT_FALSE(contains(r.out, "Video texturing: ON"));
    EXPECT_EQ(shot("on.png").width, 200);
}

TEST_F(FrameFx, StereoOptionsEchoAndChangeNoPicture) {
    writeDemo();
    const std::string script = "at 3\nsnapshot view.png\nat 4\nkey Escape\n";
    RunResult stereo = run(script, {"-x", "-i", "0.3"});
    ASSERT_EQ(stereo.status, 0) << stereo.out << stereo.err;
    EXPECT_TRUE(contains(stereo.out, "Stereo:                 ENABLED\nInter-ocular distance:  0.3\n"));
    const bwtest::Image withStereo = shot("view.png");
    EXPECT_EQ(withStereo.width, 1280);  // the stereo window's size, whatever -s says
    RunResult mono = run(script, {"-s", "1280x1024"});
    ASSERT_EQ(mono.status, 0) << mono.out << mono.err;
    EXPECT_TRUE(contains(mono.out, "Stereo:                 DISABLED\nInter-ocular distance:  0.5\n"));
    EXPECT_EQ(withStereo.rgb, shot("view.png").rgb);
}
