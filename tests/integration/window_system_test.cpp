// The viewer binary when the window system is missing: no display at all, a
// display that names no server, and a server that offers no GL.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "capture.h"
#include "run_viewer.h"

using bwtest::contains;
using bwtest::RunResult;

namespace {

const std::string rsrc = BW_RSRC_DIR;
const std::string noWindowSystem = "Can't start Windowing System\n";
const std::string pressEnter = "Press on <ENTER> to close the window\n";

// A scratch directory with the demo database, and a script that would write a
// picture of the first frame.
class WindowSystem : public ::testing::Test {
protected:
    void SetUp() override {
        RunResult made = bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
        ASSERT_EQ(made.status, 0) << made.err;
        dir.write("frame.txt", "at 1\nsnapshot first.png\n");
    }
    RunResult run(const std::string &display, std::vector<std::string> args) {
        std::vector<std::string> env{"BW_DBDIR", "BW_RSRC", "BW_VIEWER_SCRIPT=frame.txt"};
        env.push_back(display.empty() ? "DISPLAY" : "DISPLAY=" + display);
        return bwtest::runViewer(args, dir.path(), env);
    }
    bwtest::TempDir dir;
};

// A display number with no server socket behind it.
std::string deadDisplay() {
    struct stat st;
    for (int n = 173;; ++n)
        if (stat(("/tmp/.X11-unix/X" + std::to_string(n)).c_str(), &st) != 0) return ":" + std::to_string(n);
}

}  // namespace

// Nothing is read, echoed or loaded before the window system answers: the two
// lines on standard error are the whole output, whatever the command line.
TEST_F(WindowSystem, WithoutADisplayTheRunEndsBeforeTheOptions) {
    for (const std::string &display : {std::string(), deadDisplay()}) {
        SCOPED_TRACE("DISPLAY=" + display);
        for (const std::vector<std::string> &args :
             {std::vector<std::string>{"-R", rsrc, "-D", "demo", "-S", "demo"},
              std::vector<std::string>{"-h"}, std::vector<std::string>{"-Z", "-p", "2"}}) {
            RunResult r = run(display, args);
            EXPECT_EQ(r.status, 255);
            EXPECT_EQ(r.err, noWindowSystem + pressEnter);
            EXPECT_EQ(r.out, "");
        }
    }
    EXPECT_FALSE(std::ifstream(dir / "first.png").good());
}

// A server without GL: start-up runs to its end, the window gets no pixel
// format and posts quit, and the run ends with status 0 before any frame.
TEST_F(WindowSystem, AServerWithoutGlPostsQuitAfterTheLoad) {
    if (access("/usr/bin/xvfb-run", X_OK) != 0) GTEST_SKIP() << "needs xvfb-run";
    RunResult r = bwtest::runProgram(
        "/usr/bin/xvfb-run",
        {"-a", "-s", "-screen 0 640x480x24 -extension GLX", BW_VIEWER_BIN, "-R", rsrc, "-S", "demo"},
        dir.path(), {"BW_DBDIR", "BW_RSRC", "BW_PIXELFORMAT=1", "BW_VIEWER_SCRIPT=frame.txt"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(contains(r.out, "scene 1:                demo\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "0 different pixel formats supported\n"
                                "[ Set BW_PIXELFORMAT to a given format before running to override ]\n"
                                "NEW - Giving up on stencil bitplanes\n"
                                "NEW - Giving up on alpha bitplanes\n"
                                "NEW - Giving up on accum bitplanes\n"
                                "OLD - Giving up on stencil planes\n"
                                "OLD - Giving up on alpha bitplanes\n"
                                "Second pass suggested id 0\n"))
        << r.out;
    EXPECT_TRUE(contains(r.err, "ERROR: Viewer cannot run on this platform. Aborting.\n")) << r.err;
    EXPECT_FALSE(contains(r.out, "Trying to use format"));
    EXPECT_FALSE(contains(r.out, "Can't create windows"));
    EXPECT_FALSE(contains(r.err, noWindowSystem));
    EXPECT_FALSE(contains(r.err, pressEnter));
    EXPECT_FALSE(std::ifstream(dir / "first.png").good());
}
