// bwrender through the built program, with no display: frame numbering, the
// two off-screen contexts, and the faults of its command line.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "capture.h"
#include "png_read.h"
#include "run_viewer.h"

namespace {

const std::string rsrc = BW_RSRC_DIR;
const std::string usage =
    "Usage: bwrender DATABASE SCENE [--frames FIRST:LAST[:STEP]] [--size WxH] --out DIR\n"
    "                [-d MODE] [-a LEVEL] [-l LOD] [-R RSRC] [--context auto|egl|osmesa]\n";

class Bwrender : public ::testing::Test {
protected:
    void SetUp() override {
        bwtest::RunResult made = bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
        ASSERT_EQ(made.status, 0) << made.err;
    }
    // bwrender on the demo database with DISPLAY unset: nothing may need an X server.
    bwtest::RunResult render(std::vector<std::string> args) {
        args.insert(args.end(), {"-R", rsrc});
        return bwtest::runProgram(BW_BWRENDER_BIN, args, dir.path(), {"DISPLAY", "BW_RSRC", "BW_DBDIR"});
    }
    bwtest::Image shot(const std::string &name) {
        bwtest::Image image;
        EXPECT_TRUE(bwtest::readPng(dir / name, &image)) << name;
        return image;
    }
    std::vector<std::string> files(const std::string &sub) {
        std::vector<std::string> names;
        for (const auto &e : std::filesystem::directory_iterator(dir / sub)) names.push_back(e.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    bwtest::TempDir dir;
};

TEST_F(Bwrender, FilesAreNamedByTheFrameTheyShow) {
    bwtest::RunResult r = render({"demo", "demo", "--frames", "3:8:2", "--size", "64x48", "--out", "frames"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(files("frames"), (std::vector<std::string>{"frame-0003.png", "frame-0005.png", "frame-0007.png"}));
    bwtest::Image first = shot("frames/frame-0003.png"), last = shot("frames/frame-0007.png");
    EXPECT_EQ(first.width, 64);
    EXPECT_EQ(first.height, 48);
    EXPECT_NE(first.rgb, last.rgb) << "each frame is evaluated before it is drawn";
    // Standard error is no terminal here: no progress line.
    EXPECT_EQ(r.err.find("frames/s"), std::string::npos) << r.err;
}

TEST_F(Bwrender, OptionsMayCarryTheirValueInTheWord) {
    bwtest::RunResult r = render({"demo", "demo", "--frames=9:9", "--size=32x20", "--out=o", "-d1"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(files("o"), std::vector<std::string>{"frame-0009.png"});
    EXPECT_EQ(shot("o/frame-0009.png").width, 32);
}

TEST_F(Bwrender, BothContextsDrawTheSamePicture) {
    bwtest::RunResult mesa = render({"demo", "demo", "--frames", "30:30", "--size", "160x120", "--out", "osmesa",
                                     "--context", "osmesa", "-d", "3"});
    ASSERT_EQ(mesa.status, 0) << mesa.err;
    bwtest::RunResult egl = render({"demo", "demo", "--frames", "30:30", "--size", "160x120", "--out", "egl",
                                    "--context", "egl", "-d", "3"});
    if (egl.status != 0 && egl.err.find("bwrender: no off-screen GL context") != std::string::npos)
        GTEST_SKIP() << "no EGL surfaceless context here: " << egl.err;
    ASSERT_EQ(egl.status, 0) << egl.err;
    EXPECT_EQ(shot("osmesa/frame-0030.png").rgb, shot("egl/frame-0030.png").rgb);
}

TEST_F(Bwrender, DisplayModesAreTheViewers) {
    // -d 1 is wireframe: the shaded picture's filled faces are gone.
    ASSERT_EQ(render({"demo", "demo", "--frames", "1:1", "--size", "80x60", "--out", "s"}).status, 0);
    ASSERT_EQ(render({"demo", "demo", "--frames", "1:1", "--size", "80x60", "--out", "w", "-d", "1"}).status, 0);
    ASSERT_EQ(render({"demo", "demo", "--frames", "1:1", "--size", "80x60", "--out", "x", "-d", "4"}).status, 0);
    auto litPixels = [](const bwtest::Image &image) {
        int n = 0;
        for (size_t i = 0; i < image.rgb.size(); i += 3) n += image.rgb[i] + image.rgb[i + 1] + image.rgb[i + 2] > 24;
        return n;
    };
    bwtest::Image shaded = shot("s/frame-0001.png"), wire = shot("w/frame-0001.png");
    EXPECT_LT(litPixels(wire) * 2, litPixels(shaded));
    EXPECT_EQ(shot("x/frame-0001.png").rgb, shaded.rgb) << "-d 4 keeps the default shaded mode";
}

TEST_F(Bwrender, AShiftedFilmBackShowsTheWindowItCuts) {
    // "facade": a tower 1.5 wide and 5 high, its front face 8.25 ahead of a
    // level eye at height 1.5; the film (35 mm lens, 36 x 24 mm back) slides
    // 8 mm up. Its window spans (8 -+ 12) / 35 up and -+18 / 35 across per
    // unit of depth: the tower's top shows 0.43 of the way up, not cut off
    // as a level plain lens of the same place would cut it.
    ASSERT_EQ(render({"demo", "facade", "--frames", "1:1", "--size", "360x240", "--out", "f"}).status, 0);
    const bwtest::Image image = shot("f/frame-0001.png");
    auto lit = [&](int x, int y) {
        const unsigned char *p = image.at(x, y);
        return p[0] + p[1] + p[2] > 24;
    };
    const double up = 3.5 / 8.25, across = 0.75 / 8.25, low = (8.0 - 12.0) / 35, high = (8.0 + 12.0) / 35;
    const double topRow = (high - up) / (high - low) * image.height;
    const double left = (0.5 - across / (36.0 / 35)) * image.width, right = image.width - left;
    int first = -1;
    for (int y = 0; y < image.height && first < 0; ++y)
        if (lit(image.width / 2, y)) first = y;
    EXPECT_NEAR(first, topRow, 1.5);
    // Level: the sides stand upright from the top to the picture's foot.
    for (int y : {first + 2, image.height / 2, image.height - 1}) {
        int x0 = 0, x1 = image.width - 1;
        while (x0 < image.width && !lit(x0, y)) ++x0;
        while (x1 >= 0 && !lit(x1, y)) --x1;
        EXPECT_NEAR(x0, left, 1.5) << "row " << y;
        EXPECT_NEAR(x1 + 1, right, 1.5) << "row " << y;
    }
}

TEST_F(Bwrender, FaultsOfTheCommandLineAreNamed) {
    struct Case {
        std::vector<std::string> args;
        std::string message;
    };
    const Case cases[] = {
        {{"demo", "demo", "--out", "o", "--frames", "5"},
         "bwrender: --frames wants FIRST:LAST or FIRST:LAST:STEP, 0 <= FIRST <= LAST, STEP >= 1, not '5'\n"},
        {{"demo", "demo", "--out", "o", "--frames", "9:3"},
         "bwrender: --frames wants FIRST:LAST or FIRST:LAST:STEP, 0 <= FIRST <= LAST, STEP >= 1, not '9:3'\n"},
        {{"demo", "demo", "--out", "o", "--frames", "1:3:0"},
         "bwrender: --frames wants FIRST:LAST or FIRST:LAST:STEP, 0 <= FIRST <= LAST, STEP >= 1, not '1:3:0'\n"},
        {{"demo", "demo", "--out", "o", "--frames", "1:3x"},
         "bwrender: --frames wants FIRST:LAST or FIRST:LAST:STEP, 0 <= FIRST <= LAST, STEP >= 1, not '1:3x'\n"},
        {{"demo", "demo", "--out", "o", "--size", "640"},
         "bwrender: --size wants WIDTHxHEIGHT of 1 to 16384 pixels each, not '640'\n"},
        {{"demo", "demo", "--out", "o", "--size", "0x10"},
         "bwrender: --size wants WIDTHxHEIGHT of 1 to 16384 pixels each, not '0x10'\n"},
        {{"demo", "demo", "--out", "o", "--context", "glx"},
         "bwrender: --context wants auto, egl or osmesa, not 'glx'\n"},
        {{"demo", "demo", "--out", "o", "-x"}, "bwrender: unknown option -x\n"},
        {{"demo", "demo", "--out", "o", "--fps", "3"}, "bwrender: unknown option --fps\n"},
        {{"demo", "demo", "--out"}, "bwrender: option --out wants a value\n"},
        {{"demo", "demo", "--out", "o", "-d"}, "bwrender: option -d wants a value\n"},
        {{"demo", "--out", "o"}, "bwrender: name a database and a scene\n"},
        {{"demo", "demo", "intro", "--out", "o"}, "bwrender: one scene only: 'intro' is one word too many\n"},
        {{"demo", "demo"}, "bwrender: --out DIR is missing: where should the frames go?\n"},
    };
    for (const Case &c : cases) {
        bwtest::RunResult r = bwtest::runProgram(BW_BWRENDER_BIN, c.args, dir.path(), {"DISPLAY"});
        EXPECT_EQ(r.status, 2) << c.message;
        EXPECT_EQ(r.err, c.message + usage);
        EXPECT_FALSE(std::filesystem::exists(dir / "o")) << c.message;
    }
}

TEST_F(Bwrender, FaultsOfTheRunAreNamed) {
    bwtest::RunResult r = render({"demo", "nosuchscene", "--frames", "1:1", "--out", "o"});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(bwtest::contains(r.err, "bwrender: the scene 'nosuchscene' does not load from demo\n")) << r.err;
    r = render({"nodb", "demo", "--frames", "1:1", "--out", "o"});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(bwtest::contains(r.err, "bwrender: no valid database 'nodb'\n")) << r.err;
    dir.write("plain", "a file where the directory should go");
    r = render({"demo", "demo", "--frames", "1:1", "--out", "plain"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "bwrender: cannot make the directory plain\n");
}

}  // namespace
