// The window under a real X server: pixel format choice and its texts, window
// size, events through to the viewer's handlers, snapshots, and the way out.
#include <gtest/gtest.h>
#include <png.h>

#include <string>
#include <vector>

#include "capture.h"
#include "graphic.h"
#include "platform_doubles.h"
#include "viewer.h"
#include "viewer_platform.h"

// Xlib's macros come last: they clash with names in the test framework.
#include <GL/glx.h>
#include <X11/keysym.h>

ViewerState viewer;

void viewerGlReady() { bwtest::inputLog += glXGetCurrentContext() ? "gl ready\n" : "no context\n"; }
void viewerWindowResized(int width, int height) {
    bwtest::inputLog += "resized " + std::to_string(width) + "x" + std::to_string(height) + "\n";
}

namespace {

// The test's own line to the server: the format list, and events sent to the window.
class ViewerWindow : public ::testing::Test {
protected:
    void SetUp() override {
        if (!getenv("DISPLAY")) GTEST_SKIP() << "no display";
        x_ = XOpenDisplay(nullptr);
        ASSERT_TRUE(x_);
        GLXFBConfig *configs = glXGetFBConfigs(x_, DefaultScreen(x_), &count_);
        configs_.assign(configs, configs + count_);
        XFree(configs);
        viewer = ViewerState{};
        bwtest::inputLog.clear();
    }
    void TearDown() override {
        viewerRequestClose();
        viewerProcessEvents();
        if (x_) XCloseDisplay(x_);
    }
    // Opens the viewer's window; `out` and `err` get what it printed.
    int open() {
        bwtest::OutputCapture capture;
        int made = viewerCreateWindow("Scene Title", 320, 200, nullptr);
        out = capture.out.text();
        err = capture.err.text();
        win_ = made ? glXGetCurrentDrawable() : 0;
        return made;
    }
    int attrib(int id, int attribute) {
        int value = 0;
        glXGetFBConfigAttrib(x_, configs_[id - 1], attribute, &value);
        return value;
    }
    bool windowRgba(int id) {
        return (attrib(id, GLX_DRAWABLE_TYPE) & GLX_WINDOW_BIT) && attrib(id, GLX_VISUAL_ID) &&
               (attrib(id, GLX_RENDER_TYPE) & GLX_RGBA_BIT) && attrib(id, GLX_LEVEL) == 0;
    }
    // The first format in the server's order with every plane the first pass asks for.
    int firstFullFormat(bool needDouble) {
        for (int id = 1; id <= count_; ++id)
            if (windowRgba(id) && attrib(id, GLX_ALPHA_SIZE) >= 8 && attrib(id, GLX_DEPTH_SIZE) >= 24 &&
                attrib(id, GLX_STENCIL_SIZE) >= 8 && attrib(id, GLX_ACCUM_RED_SIZE) >= 2 &&
                (!needDouble || attrib(id, GLX_DOUBLEBUFFER)))
                return id;
        return 0;
    }
    int formatInUse() {
        int configId = 0;
        glXQueryContext(glXGetCurrentDisplay(), glXGetCurrentContext(), GLX_FBCONFIG_ID, &configId);
        for (int id = 1; id <= count_; ++id)
            if (attrib(id, GLX_FBCONFIG_ID) == configId) return id;
        return 0;
    }
    std::string header() {
        return "Colorbits is 24\n" + std::to_string(count_) + " different pixel formats supported\n"
               "[ Set BW_PIXELFORMAT to a given format before running to override ]\n";
    }
    // Sends a key, button or motion event; `detail` is the keysym or the button.
    void send(int type, unsigned long detail, unsigned state, Time time, int x = 0, int y = 0) {
        XEvent e{};
        e.xkey.type = type;  // key, button and motion events share these fields
        e.xkey.window = win_;
        e.xkey.time = time;
        e.xkey.x = x;
        e.xkey.y = y;
        e.xkey.state = state;
        e.xkey.same_screen = True;
        if (type == KeyPress || type == KeyRelease) e.xkey.keycode = XKeysymToKeycode(x_, detail);
        else if (type != MotionNotify) e.xbutton.button = static_cast<unsigned>(detail);
        sendEvent(e);
    }
    void sendEvent(XEvent &e) {
        XSendEvent(x_, win_, False, 0, &e);  // no mask: to the client that made the window
        XSync(x_, False);
    }
    std::string events() {
        bwtest::inputLog.clear();
        EXPECT_EQ(viewerProcessEvents(), 1);
        return bwtest::inputLog;
    }

    Display *x_ = nullptr;
    std::vector<GLXFBConfig> configs_;
    int count_ = 0;
    GLXDrawable win_ = 0;
    std::string out, err;
};

}  // namespace

TEST_F(ViewerWindow, TheFirstFullFormatMakesAWindowOfTheAskedSize) {
    ASSERT_EQ(open(), 1);
    int id = firstFullFormat(true);
    ASSERT_NE(id, 0) << "the server offers no format with every plane";
    std::string pre = header() + "Pre pass suggested id " + std::to_string(id) + "\n";
    std::string last = "Trying to use format " + std::to_string(id) + "\n";
    EXPECT_EQ(out.substr(0, pre.size()), pre);
    EXPECT_NE(out.find("Second pass suggested id "), std::string::npos);
    EXPECT_EQ(out.substr(out.size() - last.size()), last);
    EXPECT_EQ(err, "");
    EXPECT_EQ(formatInUse(), id);
    EXPECT_EQ(viewer.alphaBits * 100 + viewer.stencilBits, attrib(id, GLX_ALPHA_SIZE) * 100 + attrib(id, GLX_STENCIL_SIZE));
    EXPECT_EQ(viewer.accumBits, 0);
    EXPECT_EQ(bwtest::inputLog, "gl ready\nresized 320x200\n");

    XWindowAttributes shown;
    ASSERT_TRUE(XGetWindowAttributes(x_, win_, &shown));
    EXPECT_EQ(shown.map_state, IsViewable);  // mapped before the first frame

    // -b takes single-buffered formats too; -x opens 1280 by 1024 whatever the size.
    viewerRequestClose();
    EXPECT_EQ(viewerProcessEvents(), 0);
    viewer.singleBuffer = viewer.stereo = 1;
    bwtest::inputLog.clear();
    ASSERT_EQ(open(), 1);
    EXPECT_EQ(formatInUse(), firstFullFormat(false));
    EXPECT_EQ(bwtest::inputLog, "gl ready\nresized 1280x1024\n");
}

TEST_F(ViewerWindow, FormatOverrideAndReport) {
    int usable = 0, unusable = 0;
    for (int id = count_; id >= 1; --id) (windowRgba(id) ? usable : unusable) = id;
    {
        bwtest::ScopedEnv env("BW_PIXELFORMAT", std::to_string(usable).c_str());
        ASSERT_EQ(open(), 1);
        EXPECT_EQ(out, header() + "[Viewer override pixelformat with " + std::to_string(usable) +
                           "]\nTrying to use format " + std::to_string(usable) + "\n");
        EXPECT_EQ(formatInUse(), usable);
    }
    std::vector<std::string> ignored = {"0", std::to_string(count_ + 1), "-3", "many"};
    if (unusable) ignored.push_back(std::to_string(unusable));
    for (const std::string &value : ignored) {
        bwtest::ScopedEnv env("BW_PIXELFORMAT", value.c_str());
        ASSERT_EQ(open(), 1);
        EXPECT_EQ(out.find("[Viewer override"), std::string::npos) << value;
        EXPECT_EQ(formatInUse(), firstFullFormat(true)) << value;
    }

    bwtest::ScopedEnv env("BW_LIVE_SHOWFORMATS", "");
    ASSERT_EQ(open(), 1);
    int id = formatInUse();
    auto n = [&](int attribute, int times) { return std::to_string(attrib(id, attribute) * times); };
    std::string report = "\n---\nPixel format ID " + std::to_string(id) + " : \n" + n(GLX_RED_SIZE, 3) +
                         " color bitplanes\n" + n(GLX_ALPHA_SIZE, 1) + " alpha bitplanes\n" +
                         n(GLX_ACCUM_RED_SIZE, 4) + " accum bitplanes\n" + n(GLX_DEPTH_SIZE, 1) +
                         " depth bitplanes\n" + n(GLX_STENCIL_SIZE, 1) + " stenc bitplanes\n" +
                         "Reserved value is 0\n\tDraw To Window\n\tDraw To Bitmap\n\tSupport OpenGL\n"
                         "\tDouble Buffered\n\tRGB pixel format\n\tMain plane\n===\n";
    EXPECT_NE(err.find(report), std::string::npos) << report;
    int reports = 0;
    for (size_t at = err.find("===\n"); at != std::string::npos; at = err.find("===\n", at + 1)) ++reports;
    EXPECT_EQ(reports, count_);
}

TEST_F(ViewerWindow, KeysReachTheViewerOncePerPressWithShiftAndTheMap) {
    ASSERT_EQ(open(), 1);
    send(KeyPress, XK_a, ShiftMask, 100);
    EXPECT_EQ(events(), "key 65 down repeat=0 shift=1\n");
    EXPECT_EQ(keyStateMap()[8], 0x02);
    // Auto-repeat: a release and a press at the same time are one repeated press.
    send(KeyRelease, XK_a, 0, 200);
    send(KeyPress, XK_a, 0, 200);
    send(KeyRelease, XK_a, 0, 300);
    EXPECT_EQ(events(), "key 65 down repeat=1 shift=0\nkey 65 up repeat=0 shift=0\n");
    EXPECT_EQ(keyStateMap()[8], 0);

    send(KeyPress, XK_Shift_R, 0, 400);
    send(KeyPress, XK_KP_End, Mod2Mask, 410);  // the pad's 1 with Num Lock on
    send(KeyPress, XK_KP_End, 0, 420);         // without: no key of the viewer
    send(KeyPress, XK_F5, 0, 430);
    send(KeyRelease, XK_Shift_R, ShiftMask, 500);
    EXPECT_EQ(events(),
              "key 161 down repeat=0 shift=1\nkey 97 down repeat=0 shift=0\nkey 161 up repeat=0 shift=0\n");
}

TEST_F(ViewerWindow, ButtonsDoubleClicksAndDrags) {
    ASSERT_EQ(open(), 1);
    send(ButtonPress, Button1, 0, 1000, 10, 10);
    send(ButtonRelease, Button1, Button1Mask, 1010, 10, 10);
    send(ButtonPress, Button1, 0, 1300, 13, 6);  // within 400 ms and 4 pixels
    send(ButtonRelease, Button1, Button1Mask, 1310, 13, 6);
    send(ButtonPress, Button1, 0, 1400, 13, 6);  // a third click starts anew
    send(MotionNotify, 0, Button1Mask, 1410, 20, 30);
    send(MotionNotify, 0, Button1Mask | ControlMask, 1420, 25, 35);  // the last of a run counts
    send(ButtonRelease, Button1, Button1Mask, 1500, 25, 35);
    send(MotionNotify, 0, 0, 1510, 40, 40);  // no button down: no drag
    send(ButtonPress, Button4, 0, 1600, 1, 1);  // the wheel
    send(ButtonPress, Button3, ControlMask, 1650, 13, 6);
    send(ButtonPress, Button2, 0, 2200, 13, 6);
    EXPECT_EQ(events(),
              "button 0 down 10,10 double=0 control=0\n"
              "button 0 up 10,10 double=0 control=0\n"
              "button 0 down 13,6 double=1 control=0\n"
              "button 0 up 13,6 double=0 control=0\n"
              "button 0 down 13,6 double=0 control=0\n"
              "motion 25,35 buttons=100 control=1\n"
              "button 0 up 25,35 double=0 control=0\n"
              "button 2 down 13,6 double=0 control=1\n"
              "button 1 down 13,6 double=0 control=0\n");
}

TEST_F(ViewerWindow, ResizeAndTheTwoWaysToClose) {
    ASSERT_EQ(open(), 1);
    XResizeWindow(x_, win_, 400, 250);
    XSync(x_, False);
    EXPECT_EQ(events(), "resized 400x250\n");

    XEvent close{};
    close.xclient.type = ClientMessage;
    close.xclient.window = win_;
    close.xclient.message_type = XInternAtom(x_, "WM_PROTOCOLS", False);
    close.xclient.format = 32;
    close.xclient.data.l[0] = static_cast<long>(XInternAtom(x_, "WM_DELETE_WINDOW", False));
    sendEvent(close);
    EXPECT_EQ(viewerProcessEvents(), 0);
    EXPECT_EQ(viewerWindowExists(), 0);

    ASSERT_EQ(open(), 1);
    viewerRequestClose();  // a script's quit
    EXPECT_EQ(viewerProcessEvents(), 0);
    EXPECT_EQ(viewerWindowExists(), 0);
}

TEST_F(ViewerWindow, SnapshotsAreTopRowFirst) {
    ASSERT_EQ(open(), 1);
    glClearColor(1, 0, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 100, 320, 100);
    glClearColor(0, 1, 0, 1);  // the top half green
    glClear(GL_COLOR_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);

    bwtest::TempDir dir;
    std::string file = dir / "frame.png";
    ASSERT_EQ(snapshotWritePng(file.c_str(), 320, 200), 1);
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&image, file.c_str()));
    image.format = PNG_FORMAT_RGB;
    std::vector<unsigned char> rgb(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr));
    EXPECT_EQ(image.width * 1000 + image.height, 320200u);
    EXPECT_EQ(std::vector<int>(rgb.begin(), rgb.begin() + 3), (std::vector<int>{0, 255, 0}));
    EXPECT_EQ(std::vector<int>(rgb.end() - 3, rgb.end()), (std::vector<int>{255, 0, 0}));

    bwtest::StreamCapture capture(stderr);
    EXPECT_EQ(snapshotWritePng("/nonexistent/frame.png", 320, 200), 0);
    EXPECT_EQ(snapshotWritePng("x.png", 0, 200), 0);
    EXPECT_EQ(capture.text(),
              "Snapshot: cannot write /nonexistent/frame.png\n"
              "Snapshot: nothing to write to x.png (0 x 200)\n");
}

TEST(WindowWithoutDisplay, NoDisplayMeansNoWindow) {
    bwtest::ScopedEnv noDisplay("DISPLAY", nullptr);
    EXPECT_EQ(viewerCreateWindow("t", 10, 10, nullptr), 0);
    EXPECT_EQ(viewerProcessEvents(), 0);
}
