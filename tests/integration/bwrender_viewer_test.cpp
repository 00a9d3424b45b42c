// bwrender's frames against the viewer's snapshots of the same frames: the
// viewer under Xvfb, bwrender with no display at all.
//
// The viewer reaches frame 60 through its transport keys: `u` jumps to the
// first frame and each `j` steps one on, all in one scripted frame, so the
// frame shown is named outright and does not hang on how many frames the
// loop ran while a sequence played.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "capture.h"
#include "png_read.h"
#include "run_viewer.h"

namespace {

const std::string rsrc = BW_RSRC_DIR;
constexpr int W = 400, H = 300;

// Pixels whose channels differ by more than `step` anywhere.
int differing(const bwtest::Image &a, const bwtest::Image &b, int step) {
    int n = 0;
    for (size_t i = 0; i < a.rgb.size(); i += 3)
        for (size_t k = 0; k < 3; ++k)
            if (std::abs(a.rgb[i + k] - b.rgb[i + k]) > step) {
                ++n;
                break;
            }
    return n;
}

class RenderAgainstViewer : public ::testing::TestWithParam<std::vector<std::string>> {
protected:
    void SetUp() override {
        if (!getenv("DISPLAY")) GTEST_SKIP() << "needs an X display for the viewer (run under xvfb-run)";
        bwtest::RunResult made = bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
        ASSERT_EQ(made.status, 0) << made.err;
    }
    bwtest::Image shot(const std::string &name) {
        bwtest::Image image;
        EXPECT_TRUE(bwtest::readPng(dir / name, &image)) << name;
        return image;
    }
    bwtest::TempDir dir;
};

TEST_P(RenderAgainstViewer, Frame60IsTheViewersFrame60) {
    const std::vector<std::string> &mode = GetParam();
    std::string script = "at 2\nkey u\n";
    for (int i = 1; i < 60; ++i) script += "key j\n";
    script += "at 4\nsnapshot viewer60.png\nat 5\nkey Escape\n";
    dir.write("script.txt", script);
    std::vector<std::string> viewerArgs{"-R", rsrc, "-S", "demo", "-s", std::to_string(W) + "x" + std::to_string(H)};
    viewerArgs.insert(viewerArgs.end(), mode.begin(), mode.end());
    bwtest::RunResult v = bwtest::runViewer(viewerArgs, dir.path(),
                                            {"BW_DBDIR", "BW_RSRC", "BW_VIEWER_SCRIPT=script.txt",
                                             "LIBGL_ALWAYS_SOFTWARE=1"});
    ASSERT_EQ(v.status, 0) << v.out << v.err;

    std::vector<std::string> renderArgs{"demo", "demo", "--frames", "59:60", "--size",
                                        std::to_string(W) + "x" + std::to_string(H), "--out", "frames", "-R", rsrc};
    renderArgs.insert(renderArgs.end(), mode.begin(), mode.end());
    bwtest::RunResult r = bwtest::runProgram(BW_BWRENDER_BIN, renderArgs, dir.path(), {"DISPLAY", "BW_RSRC"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;

    bwtest::Image viewer = shot("viewer60.png"), rendered = shot("frames/frame-0060.png"),
                  before = shot("frames/frame-0059.png");
    ASSERT_EQ(rendered.width, viewer.width);
    ASSERT_EQ(rendered.height, viewer.height);
    // Both draw with the same software rasteriser: a few pixels may round
    // apart by a step or two, no more.
    EXPECT_LE(differing(rendered, viewer, 2), W * H / 1000);
    EXPECT_LE(differing(rendered, viewer, 0), W * H / 100);
    // The frame before differs by far more: the comparison tells frames apart.
    EXPECT_GT(differing(before, viewer, 2), W * H / 1000 + 50);
}

INSTANTIATE_TEST_SUITE_P(DisplayModes, RenderAgainstViewer,
                         ::testing::Values(std::vector<std::string>{}, std::vector<std::string>{"-d", "1"},
                                           std::vector<std::string>{"-d", "3"}),
                         [](const auto &info) {
                             return info.param.empty() ? std::string("shaded")
                                                       : info.param[1] == "1" ? "wireframe" : "textured";
                         });

}  // namespace
