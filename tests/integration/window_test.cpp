// The viewer in a real window under Xvfb, driven by BW_VIEWER_SCRIPT.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <string>

#include "capture.h"
#include "png_read.h"
#include "run_viewer.h"

using bwtest::RunResult;

using bwtest::contains;

namespace {

const std::string rsrc = BW_RSRC_DIR;

size_t occurrences(const std::string &text, const std::string &part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}

class Window : public ::testing::Test {
protected:
    void SetUp() override {
        if (!getenv("DISPLAY")) GTEST_SKIP() << "needs an X display (run under xvfb-run)";
        RunResult made = bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
        ASSERT_EQ(made.status, 0) << made.err;
    }
    RunResult run(const std::string &script, std::vector<std::string> args,
                  std::vector<std::string> env = {}) {
        dir.write("script.txt", script);
        args.insert(args.begin(), {"-R", rsrc});
        env.insert(env.begin(), {"BW_DBDIR", "BW_RSRC", "BW_LIVE_SHOWFORMATS", "BW_PIXELFORMAT",
                                 "BW_VIEWER_SCRIPT=script.txt", "LIBGL_ALWAYS_SOFTWARE=1"});
        return bwtest::runViewer(args, dir.path(), env);
    }
    bwtest::TempDir dir;
};

}  // namespace

TEST_F(Window, EscapeReleaseEndsWithStatusZero) {
    RunResult r = run("at 3\npress Escape\nat 4\nrelease Escape\n", {});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(contains(r.out, "Trying to use format ")) << r.out;
    EXPECT_FALSE(contains(r.out, "Can't create windows"));

    // The close button ends the run the same way.
    r = run("at 2\nquit\n", {"-p", "2"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;

    // The key-state map a keyboard driver reads exists for the machine.
    struct stat st;
    ASSERT_EQ(stat("/dev/shm/GL4_KeyStateFileObjectName", &st), 0);
    EXPECT_EQ(st.st_size, 32);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(Window, SequencePlaysOnOneAndTwoSides) {
    RunResult r = run("at 2\nkey Right\nat 160\nkey Escape\n", {});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(occurrences(r.out, "Start Animation (100 frames)...\n"), 1u) << r.out;
    EXPECT_EQ(occurrences(r.out, "End Animation\n"), 1u) << r.out;

    // With two sides the update thread evaluates at its own pace; the draw side
    // keeps drawing, and the run ends cleanly while the thread works.
    r = run("at 2\nkey Right\nat 300\nkey Escape\n", {"-p", "2"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Process 2 Initialisation\n"));
    EXPECT_EQ(occurrences(r.out, "Start Animation (100 frames)...\n"), 1u) << r.out;
}

TEST_F(Window, SnapshotShowsTheUserTextWhereTheThousandStepScreenPutsIt) {
    // Near the top left corner, above the demo scene.
    RunResult r = run("at 3\nsnapshot shot.png\nat 4\nkey Escape\n",
                      {"-s", "400x300", "-z", "TEXT=HELLO,COLOR=red,X=30,Y=950"});
    ASSERT_EQ(r.status, 0) << r.err;
    bwtest::Image image;
    ASSERT_TRUE(bwtest::readPng(dir / "shot.png", &image));
    ASSERT_EQ(image.width, 400);
    ASSERT_EQ(image.height, 300);
    const int band = 40;  // the top rows: the text and nothing of the scene
    int minX = 400, maxX = -1, minY = 300, maxY = -1, other = 0;
    for (int y = 0; y < band; ++y)
        for (int x = 0; x < image.width; ++x) {
            const unsigned char *p = image.at(x, y);
            if (p[0] > 128 && p[1] < 64 && p[2] < 64) {
                minX = std::min(minX, x); maxX = std::max(maxX, x);
                minY = std::min(minY, y); maxY = std::max(maxY, y);
            } else if (p[0] || p[1] || p[2]) {
                ++other;
            }
        }
    // Five glyphs 10 pixels apart from x = 12; the baseline at y = 285 from the bottom.
    EXPECT_GE(minX, 12);
    EXPECT_LE(maxX, 62);
    EXPECT_GE(minY, 300 - 285 - 11);
    EXPECT_LE(maxY, 300 - 285 + 2);
    EXPECT_EQ(other, 0);

    // Stereo asks for 1280 x 1024 whatever -s says.
    r = run("at 2\nsnapshot big.png\nat 3\nkey Escape\n", {"-s", "400x300", "-x"});
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_TRUE(bwtest::readPng(dir / "big.png", &image));
    EXPECT_EQ(image.width, 1280);
    EXPECT_EQ(image.height, 1024);
}

TEST_F(Window, PixelFormatReportAndOverride) {
    RunResult r = run("at 2\nkey Escape\n", {}, {"BW_LIVE_SHOWFORMATS=1", "BW_PIXELFORMAT=0"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "\n---\nPixel format ID 1 : \n")) << r.err.substr(0, 400);
    EXPECT_TRUE(contains(r.err, "\tSupport OpenGL\n"));
    EXPECT_TRUE(contains(r.err, "===\n"));
    EXPECT_TRUE(contains(r.out, "[ Set BW_PIXELFORMAT to a given format before running to override ]\n"));
    EXPECT_FALSE(contains(r.out, "[Viewer override pixelformat"));  // 0 is no format

    // A suggested format, asked for by number, is taken as it is.
    size_t at = r.out.find("Trying to use format ");
    ASSERT_NE(at, std::string::npos);
    int id = atoi(r.out.c_str() + at + 21);
    r = run("at 2\nkey Escape\n", {}, {"BW_PIXELFORMAT=" + std::to_string(id)});
    EXPECT_TRUE(contains(r.out, "[Viewer override pixelformat with " + std::to_string(id) + "]\n")) << r.out;
    EXPECT_EQ(r.status, 0);

    // -b takes a single-buffered format and draws without a swap.
    r = run("at 2\nsnapshot single.png\nat 3\nkey Escape\n", {"-b", "-z", "TEXT=X"});
    EXPECT_EQ(r.status, 0) << r.err;
    bwtest::Image image;
    EXPECT_TRUE(bwtest::readPng(dir / "single.png", &image));
}
