// The mouse driver on an arena of the viewer's side, under the test's own X
// server, the pointer moved and pressed by xdotool.
#include <gtest/gtest.h>

#ifdef DRIVER_BIN
#include <X11/Xlib.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <fstream>

#include "driver_run.h"

namespace {

bool run(const std::string &cmd) { return system(cmd.c_str()) == 0; }

// The driver as the viewer runs it, from a directory of the test's own with
// `words` in its custom file.
std::string driverWith(const bwtest::TempDir &bin, const std::string &words) {
    const std::string exe = bin.path() + "/mouse";
    EXPECT_EQ(symlink(DRIVER_BIN, exe.c_str()), 0);
    std::ofstream(exe + ".cfg") << words << "\n";
    return exe;
}

class MouseDriver : public ::testing::Test {
protected:
    void SetUp() override {
        display_ = XOpenDisplay(nullptr);
        if (!display_) GTEST_SKIP() << "no X display (the test runs under xvfb-run)";
        if (!run("command -v xdotool >/dev/null")) GTEST_SKIP() << "xdotool not installed";
        width_ = DisplayWidth(display_, DefaultScreen(display_));
        height_ = DisplayHeight(display_, DefaultScreen(display_));
    }
    void TearDown() override {
        if (display_) XCloseDisplay(display_);
    }
    Display *display_ = nullptr;
    int width_ = 0, height_ = 0;  // pixels of the screen
};

}  // namespace

TEST_F(MouseDriver, PointerPositionIsNormalisedToTheScreenWithUpPositiveAndButtonsAreZeroOrOne) {
    bwtest::TempDir bin;
    bwtest::DriverRun drv(driverWith(bin, "# whole screen"), 5);
    ASSERT_TRUE(drv.started());
    ASSERT_TRUE(run("xdotool mousemove 0 0"));
    const float left = 0.0f, top = 1.0f;
    EXPECT_TRUE(drv.turnUntil([&] { return drv.slot(0).value == left && drv.slot(1).value == top; }));

    const int px = width_ / 2, py = height_ / 4;
    ASSERT_TRUE(run("xdotool mousemove " + std::to_string(px) + " " + std::to_string(py)));
    const float wantX = float(px) / float(width_ - 1), wantY = 1.0f - float(py) / float(height_ - 1);
    EXPECT_TRUE(drv.turnUntil([&] {
        return std::fabs(drv.slot(0).value - wantX) < 1e-6f && std::fabs(drv.slot(1).value - wantY) < 1e-6f;
    })) << drv.slot(0).value << " " << drv.slot(1).value;
    EXPECT_EQ(drv.slot(2).value, 0.0f);

    ASSERT_TRUE(run("xdotool mousedown 3"));
    EXPECT_TRUE(drv.turnUntil([&] { return drv.slot(4).value == 1.0f; }));
    EXPECT_EQ(drv.slot(2).value, 0.0f);
    EXPECT_EQ(drv.slot(3).value, 0.0f);
    ASSERT_TRUE(run("xdotool mouseup 3"));
    EXPECT_TRUE(drv.turnUntil([&] { return drv.slot(4).value == 0.0f; }));
}

TEST_F(MouseDriver, AWindowGivenByIdIsTheAreaAndThePointerOutsideGoesPastItsEdges) {
    // No window manager: the window stands where it is made.
    const Window root = DefaultRootWindow(display_);
    const Window win = XCreateSimpleWindow(display_, root, 100, 200, 201, 101, 0, 0, 0);
    XMapWindow(display_, win);
    XSync(display_, False);
    bwtest::TempDir bin;
    bwtest::DriverRun drv(driverWith(bin, "-window " + std::to_string(win)), 5);
    ASSERT_TRUE(drv.started());

    ASSERT_TRUE(run("xdotool mousemove 150 225"));  // (50, 25) in the window
    EXPECT_TRUE(drv.turnUntil([&] {
        return std::fabs(drv.slot(0).value - 0.25f) < 1e-6f && std::fabs(drv.slot(1).value - 0.75f) < 1e-6f;
    })) << drv.slot(0).value << " " << drv.slot(1).value;
    ASSERT_TRUE(run("xdotool mousemove 50 200"));  // left of the window, on its top row
    EXPECT_TRUE(drv.turnUntil([&] {
        return std::fabs(drv.slot(0).value + 0.25f) < 1e-6f && drv.slot(1).value == 1.0f;
    })) << drv.slot(0).value << " " << drv.slot(1).value;
    XDestroyWindow(display_, win);
    XSync(display_, False);
}

TEST(MouseDriverArgs, AWindowIdThatIsNotANumberIsRefused) {
    const std::string cmd = std::string(DRIVER_BIN) + " -window nowhere 2>/dev/null";
    EXPECT_EQ(WEXITSTATUS(system(cmd.c_str())), 2);
}

#else
TEST(MouseDriver, Skipped) { GTEST_SKIP() << "mouse driver not built: X11 not found"; }
#endif
