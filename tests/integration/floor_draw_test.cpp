// floor_draw against the viewer under Xvfb: on bwbig's sphere both must show
// the same picture, pixel for pixel, in every configuration the comparison
// times (one or two Scene Contexts, display lists off and on), on the same
// kind of visual; and the floor refuses what it cannot draw with a reason.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "capture.h"
#include "png_read.h"
#include "run_viewer.h"

using bwtest::contains;
using bwtest::RunResult;

namespace {

const std::string rsrc = BW_RSRC_DIR;
const std::string size = "400x300";

class FloorDraw : public ::testing::Test {
protected:
    // One sphere of 2,000 triangles for every case: bwbig writes it once.
    static void SetUpTestSuite() {
        if (!getenv("DISPLAY")) return;
        dir = std::make_unique<bwtest::TempDir>();
        RunResult r = bwtest::runProgram(BW_BWBIG_BIN, {dir->path(), "2000"}, dir->path(), {"BW_RSRC=" + rsrc});
        ASSERT_EQ(r.status, 0) << r.out << r.err;
    }
    static void TearDownTestSuite() { dir.reset(); }
    void SetUp() override {
        if (!getenv("DISPLAY")) GTEST_SKIP() << "needs an X display (run under xvfb-run)";
    }
    static std::vector<std::string> env(const std::vector<std::string> &more = {}) {
        std::vector<std::string> e = {"BW_DBDIR=" + dir->path(), "BW_RSRC", "BW_PIXELFORMAT",
                                      "BW_LIVE_SHOWFORMATS", "LIBGL_ALWAYS_SOFTWARE=1"};
        e.insert(e.end(), more.begin(), more.end());
        return e;
    }
    static RunResult viewer(const std::string &script, const std::string &processes) {
        dir->write("script.txt", script);
        return bwtest::runViewer({"-R", rsrc, "-D", "big", "-S", "sphere2000", "-s", size, "-p", processes},
                                 dir->path(), env({"BW_VIEWER_SCRIPT=script.txt"}));
    }
    static RunResult floor(const std::vector<std::string> &args) {
        std::vector<std::string> all = {"-R", rsrc, "-D", "big", "-S", "sphere2000", "-s", size};
        all.insert(all.end(), args.begin(), args.end());
        return bwtest::runProgram(BW_FLOOR_DRAW_BIN, all, dir->path(), env());
    }
    static bwtest::Image shot(const std::string &name) {
        bwtest::Image image;
        EXPECT_TRUE(bwtest::readPng(*dir / name, &image)) << name;
        return image;
    }
    // Pixels that differ between two pictures of one size; the first one's
    // place in `where`.
    static int differing(const bwtest::Image &a, const bwtest::Image &b, std::string *where) {
        int n = 0;
        for (int y = 0; y < a.height; ++y)
            for (int x = 0; x < a.width; ++x)
                if (memcmp(a.at(x, y), b.at(x, y), 3) != 0 && n++ == 0)
                    *where = std::to_string(x) + "," + std::to_string(y);
        return n;
    }
    static std::unique_ptr<bwtest::TempDir> dir;
};
std::unique_ptr<bwtest::TempDir> FloorDraw::dir;

// The number after `lead` up to the line's end, -1 when absent.
int numberAfter(const std::string &text, const std::string &lead) {
    const size_t at = text.find(lead);
    return at == std::string::npos ? -1 : atoi(text.c_str() + at + lead.size());
}

}  // namespace

TEST_F(FloorDraw, DrawsTheViewersPictureInEveryConfiguration) {
    RunResult f = floor({"-n", "3", "--snapshot", "floor.png"});
    ASSERT_EQ(f.status, 0) << f.out << f.err;
    const bwtest::Image want = shot("floor.png");
    ASSERT_EQ(want.width, 400);
    ASSERT_EQ(want.height, 300);
    // The sphere is there, shaded: many pixels lit, and in more than one grey.
    int lit = 0, brightest = 0, darkest = 255;
    for (size_t i = 0; i + 2 < want.rgb.size(); i += 3)
        if (want.rgb[i] > 8) {
            ++lit;
            brightest = std::max<int>(brightest, want.rgb[i]);
            darkest = std::min<int>(darkest, want.rgb[i]);
        }
    EXPECT_GT(lit, 10000);
    EXPECT_GT(brightest - darkest, 100);

    // Lists off at frame 2, on from key d at frame 2 (the list is made at
    // frame 3 and played at 4); one Scene Context, then two.
    const std::string script = "at 2\nsnapshot off.png\nkey d\nat 4\nsnapshot on.png\nat 5\nkey Escape\n";
    for (const char *processes : {"1", "2"}) {
        RunResult v = viewer(script, processes);
        ASSERT_EQ(v.status, 0) << v.out << v.err;
        EXPECT_EQ(numberAfter(f.out, "floor_draw: format "), numberAfter(v.out, "Trying to use format "))
            << "the floor draws on another kind of visual than the viewer";
        for (const char *name : {"off.png", "on.png"}) {
            std::string where;
            EXPECT_EQ(differing(shot(name), want, &where), 0)
                << "-p " << processes << ", " << name << ": first difference at " << where;
        }
    }
}

TEST_F(FloorDraw, RefusesWhatItCannotDrawAndSaysWhy) {
    RunResult r = floor({"-d", "1"});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "floor_draw: the wireframe mode draws no strips; -d takes 2 (shaded) or 3 "
                                "(textured)\n"))
        << r.err;

    r = bwtest::runProgram(BW_FLOOR_DRAW_BIN, {"-R", rsrc, "-D", "big", "-S", "sphere9", "-n", "1"}, dir->path(),
                           env());
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, "floor_draw: the scene 'sphere9' does not load from big\n")) << r.err;

    r = floor({"-n", "0"});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "floor_draw: -n wants a count of frames from 1, not '0'\n")) << r.err;
}
