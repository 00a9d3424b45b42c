// The window under a real X server: pixel format choice and its texts, window
// size, events through to the viewer's handlers, snapshots, and the way out.
#include <gtest/gtest.h>
#include <png.h>

#include <string>
#include <vector>

#include "capture.h"
#include "platform_doubles.h"
#include "viewer.h"
#include "viewer_platform.h"

// Xlib's macros come last: they clash with names in the test framework.
#include <GL/glx.h>
#include <X11/keysym.h>

ViewerState viewer;

void viewerGlReady() {
    bwtest::inputLog += glXGetCurrentContext() ? "gl ready\n" : "gl ready without a context\n";
}
void viewerWindowResized(int width, int height) {
    bwtest::inputLog += "resized " + std::to_string(width) + "x" + std::to_string(height) + "\n";
}

namespace {

// The test's own look at the server: the config list and a line to send events on.
class ViewerWindow : public ::testing::Test {
protected:
    void SetUp() override {
        if (!getenv("DISPLAY")) GTEST_SKIP() << "no display";
        x_ = XOpenDisplay(nullptr);
        ASSERT_TRUE(x_);
        viewer = ViewerState{};
        bwtest::inputLog.clear();
    }
    void TearDown() override {
        if (viewerWindowExists()) {
            viewerRequestClose();
            viewerProcessEvents();
        }
        if (x_) XCloseDisplay(x_);
    }

    // Opens the viewer's window; `out` and `err` get what it printed.
    int open(int width = 320, int height = 200) {
        bwtest::OutputCapture capture;
        int made = viewerCreateWindow("Scene Title", width, height, nullptr);
        out = capture.out.text();
        err = capture.err.text();
        win_ = made ? glXGetCurrentDrawable() : 0;
        return made;
    }
    int attrib(int id, int attribute) {
        int count = 0, value = 0;
        GLXFBConfig *configs = glXGetFBConfigs(x_, DefaultScreen(x_), &count);
        if (id >= 1 && id <= count) glXGetFBConfigAttrib(x_, configs[id - 1], attribute, &value);
        XFree(configs);
        return value;
    }
    int formatCount() {
        int count = 0;
        XFree(glXGetFBConfigs(x_, DefaultScreen(x_), &count));
        return count;
    }
    // The first format in the server's order with the first pass's planes.
    int firstFullFormat(bool needDouble) {
        for (int id = 1; id <= formatCount(); ++id) {
            int accum = attrib(id, GLX_ACCUM_RED_SIZE) + attrib(id, GLX_ACCUM_GREEN_SIZE) +
                        attrib(id, GLX_ACCUM_BLUE_SIZE) + attrib(id, GLX_ACCUM_ALPHA_SIZE);
            int color = attrib(id, GLX_RED_SIZE) + attrib(id, GLX_GREEN_SIZE) + attrib(id, GLX_BLUE_SIZE);
            if (windowRgba(id) && attrib(id, GLX_ALPHA_SIZE) >= 8 && attrib(id, GLX_DEPTH_SIZE) >= 24 &&
                attrib(id, GLX_STENCIL_SIZE) >= 8 && accum >= 8 && (color == 24 || color >= 32) &&
                (!needDouble || attrib(id, GLX_DOUBLEBUFFER)))
                return id;
        }
        return 0;
    }
    bool windowRgba(int id) {
        return (attrib(id, GLX_DRAWABLE_TYPE) & GLX_WINDOW_BIT) && attrib(id, GLX_VISUAL_ID) &&
               (attrib(id, GLX_RENDER_TYPE) & GLX_RGBA_BIT) && attrib(id, GLX_LEVEL) == 0;
    }
    // The format the viewer's context was made with.
    int formatInUse() {
        int configId = 0;
        glXQueryContext(glXGetCurrentDisplay(), glXGetCurrentContext(), GLX_FBCONFIG_ID, &configId);
        for (int id = 1; id <= formatCount(); ++id)
            if (attrib(id, GLX_FBCONFIG_ID) == configId) return id;
        return 0;
    }
    std::string header() {
        return "Colorbits is 24\n" + std::to_string(formatCount()) +
               " different pixel formats supported\n"
               "[ Set BW_PIXELFORMAT to a given format before running to override ]\n";
    }

    void send(XEvent event) {
        event.xany.display = x_;
        event.xany.window = win_;
        XSendEvent(x_, win_, False, 0, &event);  // no mask: to the window's maker
        XSync(x_, False);
    }
    void key(int type, KeySym sym, unsigned state, Time time) {
        XEvent e{};
        e.xkey.type = type;
        e.xkey.root = DefaultRootWindow(x_);
        e.xkey.keycode = XKeysymToKeycode(x_, sym);
        e.xkey.state = state;
        e.xkey.time = time;
        e.xkey.same_screen = True;
        send(e);
    }
    void button(int type, unsigned number, int x, int y, Time time, unsigned state = 0) {
        XEvent e{};
        e.xbutton.type = type;
        e.xbutton.button = number;
        e.xbutton.x = x;
        e.xbutton.y = y;
        e.xbutton.time = time;
        e.xbutton.state = state;
        e.xbutton.same_screen = True;
        send(e);
    }
    void motion(int x, int y, unsigned state) {
        XEvent e{};
        e.xmotion.type = MotionNotify;
        e.xmotion.x = x;
        e.xmotion.y = y;
        e.xmotion.state = state;
        e.xmotion.same_screen = True;
        send(e);
    }
    std::string events() {
        bwtest::inputLog.clear();
        EXPECT_EQ(viewerProcessEvents(), 1);
        return bwtest::inputLog;
    }

    Display *x_ = nullptr;
    GLXDrawable win_ = 0;
    std::string out, err;
};

}  // namespace

TEST_F(ViewerWindow, TheFirstFullFormatIsTakenAndTheWindowIsShownAtItsSize) {
    ASSERT_EQ(open(), 1);
    int id = firstFullFormat(true);
    ASSERT_NE(id, 0) << "the server offers no format with every plane";
    std::string pre = "Pre pass suggested id " + std::to_string(id) + "\n";
    EXPECT_EQ(out.substr(0, header().size() + pre.size()), header() + pre);
    EXPECT_NE(out.find("Second pass suggested id "), std::string::npos);
    std::string last = "Trying to use format " + std::to_string(id) + "\n";
    EXPECT_EQ(out.substr(out.size() - last.size()), last);
    EXPECT_EQ(err, "");
    EXPECT_EQ(formatInUse(), id);
    EXPECT_EQ(viewer.alphaBits, attrib(id, GLX_ALPHA_SIZE));
    EXPECT_EQ(viewer.stencilBits, attrib(id, GLX_STENCIL_SIZE));
    EXPECT_EQ(viewer.accumBits, 0);

    EXPECT_EQ(bwtest::inputLog, "gl ready\nresized 320x200\n");
    int width = 0, height = 0;
    viewerClientSize(&width, &height);
    EXPECT_EQ(width * 1000 + height, 320200);
    XWindowAttributes shown;
    ASSERT_TRUE(XGetWindowAttributes(x_, win_, &shown));
    EXPECT_EQ(shown.map_state, IsViewable);
    char *name = nullptr;
    ASSERT_TRUE(XFetchName(x_, win_, &name));
    EXPECT_STREQ(name, "Scene Title");
    XFree(name);
}

TEST_F(ViewerWindow, SingleBufferAndStereoRuns) {
    viewer.singleBuffer = 1;
    viewer.stereo = 1;
    ASSERT_EQ(open(320, 200), 1);
    int id = firstFullFormat(false);
    EXPECT_NE(out.find("Pre pass suggested id " + std::to_string(id) + "\n"), std::string::npos);
    EXPECT_EQ(formatInUse(), id);
    EXPECT_EQ(bwtest::inputLog, "gl ready\nresized 1280x1024\n");
}

TEST_F(ViewerWindow, BW_PIXELFORMATOverridesOnlyWithAWindowFormat) {
    int count = formatCount(), usable = 0, unusable = 0;
    for (int id = count; id >= 1; --id) {
        if (!usable && windowRgba(id)) usable = id;
        if (!unusable && !windowRgba(id)) unusable = id;
    }
    ASSERT_NE(usable, 0);
    {
        bwtest::ScopedEnv env("BW_PIXELFORMAT", std::to_string(usable).c_str());
        ASSERT_EQ(open(), 1);
        EXPECT_EQ(out, header() + "[Viewer override pixelformat with " + std::to_string(usable) +
                           "]\nTrying to use format " + std::to_string(usable) + "\n");
        EXPECT_EQ(formatInUse(), usable);
        viewerRequestClose();
        EXPECT_EQ(viewerProcessEvents(), 0);
    }
    std::vector<std::string> ignored = {"0", std::to_string(count + 1), "-3", "many"};
    if (unusable) ignored.push_back(std::to_string(unusable));
    for (const std::string &value : ignored) {
        bwtest::ScopedEnv env("BW_PIXELFORMAT", value.c_str());
        ASSERT_EQ(open(), 1);
        EXPECT_EQ(out.find("[Viewer override"), std::string::npos) << value;
        EXPECT_EQ(formatInUse(), firstFullFormat(true)) << value;
        viewerRequestClose();
        EXPECT_EQ(viewerProcessEvents(), 0);
    }
}

TEST_F(ViewerWindow, BW_LIVE_SHOWFORMATSReportsEveryFormatOnStandardError) {
    bwtest::ScopedEnv env("BW_LIVE_SHOWFORMATS", "");
    ASSERT_EQ(open(), 1);
    int id = formatInUse();
    std::string expected = "\n---\nPixel format ID " + std::to_string(id) + " : \n" +
                           std::to_string(attrib(id, GLX_RED_SIZE) * 3) + " color bitplanes\n" +
                           std::to_string(attrib(id, GLX_ALPHA_SIZE)) + " alpha bitplanes\n" +
                           std::to_string(attrib(id, GLX_ACCUM_RED_SIZE) * 4) + " accum bitplanes\n" +
                           std::to_string(attrib(id, GLX_DEPTH_SIZE)) + " depth bitplanes\n" +
                           std::to_string(attrib(id, GLX_STENCIL_SIZE)) + " stenc bitplanes\n" +
                           "Reserved value is 0\n\tDraw To Window\n" +
                           ((attrib(id, GLX_DRAWABLE_TYPE) & GLX_PIXMAP_BIT) ? "\tDraw To Bitmap\n" : "") +
                           "\tSupport OpenGL\n\tDouble Buffered\n\tRGB pixel format\n\tMain plane\n===\n";
    EXPECT_NE(err.find(expected), std::string::npos) << expected;
    size_t reports = 0;
    for (size_t at = err.find("Pixel format ID "); at != std::string::npos; at = err.find("Pixel format ID ", at + 1))
        ++reports;
    EXPECT_EQ(reports, static_cast<size_t>(formatCount()));
    EXPECT_EQ(out.find("Pixel format ID"), std::string::npos);
}

TEST_F(ViewerWindow, KeysReachTheViewerOncePerPressWithShiftAndTheMap) {
    ASSERT_EQ(open(), 1);
    key(KeyPress, XK_a, ShiftMask, 100);
    EXPECT_EQ(events(), "key 65 down repeat=0 shift=1\n");
    EXPECT_TRUE(keyStateMap()[8] & 0x02);
    // Auto-repeat: a release and a press at the same time are one repeated press.
    key(KeyRelease, XK_a, 0, 200);
    key(KeyPress, XK_a, 0, 200);
    key(KeyRelease, XK_a, 0, 300);
    EXPECT_EQ(events(), "key 65 down repeat=1 shift=0\nkey 65 up repeat=0 shift=0\n");
    EXPECT_FALSE(keyStateMap()[8] & 0x02);

    key(KeyPress, XK_Shift_R, 0, 400);
    key(KeyPress, XK_KP_End, Mod2Mask, 410);  // the pad's 1 with Num Lock on
    key(KeyPress, XK_KP_End, 0, 420);         // without: not a key of the viewer
    key(KeyPress, XK_F5, 0, 430);
    EXPECT_EQ(events(), "key 16 down repeat=0 shift=1\nkey 97 down repeat=0 shift=0\n");
    EXPECT_EQ(viewerKeyHeld(VKEY_RSHIFT), 1);
    key(KeyRelease, XK_Shift_R, ShiftMask, 500);
    EXPECT_EQ(events(), "key 16 up repeat=0 shift=0\n");
}

TEST_F(ViewerWindow, ButtonsDoubleClicksAndDrags) {
    ASSERT_EQ(open(), 1);
    button(ButtonPress, Button1, 10, 10, 1000);
    button(ButtonRelease, Button1, 10, 10, 1010, Button1Mask);
    button(ButtonPress, Button1, 13, 6, 1300);   // within 400 ms and 4 pixels
    button(ButtonRelease, Button1, 13, 6, 1310, Button1Mask);
    button(ButtonPress, Button1, 13, 6, 1400);   // a third click starts anew
    motion(20, 30, Button1Mask);
    motion(25, 35, Button1Mask | ControlMask);   // only the last motion counts
    button(ButtonRelease, Button1, 25, 35, 1500, Button1Mask);
    motion(40, 40, 0);                           // no button: not a drag
    button(ButtonPress, Button4, 1, 1, 1600);    // the wheel
    button(ButtonPress, Button3, 13, 6, 1650, ControlMask);
    button(ButtonPress, Button2, 13, 6, 2200);
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

TEST_F(ViewerWindow, ResizeCloseAndScriptedQuit) {
    ASSERT_EQ(open(), 1);
    XResizeWindow(x_, win_, 400, 250);
    XSync(x_, False);
    EXPECT_EQ(events(), "resized 400x250\n");

    XEvent close{};
    close.xclient.type = ClientMessage;
    close.xclient.message_type = XInternAtom(x_, "WM_PROTOCOLS", False);
    close.xclient.format = 32;
    close.xclient.data.l[0] = static_cast<long>(XInternAtom(x_, "WM_DELETE_WINDOW", False));
    send(close);
    EXPECT_EQ(viewerProcessEvents(), 0);
    EXPECT_EQ(viewerWindowExists(), 0);
    EXPECT_EQ(viewerProcessEvents(), 0);

    // The script's snapshot is of the frame just drawn, and its quit closes.
    bwtest::TempDir dir;
    std::string shot = dir / "shot.png";
    std::string script = dir.write("script", "at 2\nsnapshot " + shot + "\nquit\n");
    ASSERT_EQ(open(), 1);
    ASSERT_EQ(viewerScriptLoad(script.c_str()), 1);
    viewerScriptFrameStart(1);
    EXPECT_EQ(viewerProcessEvents(), 1);
    viewerScriptFrameStart(2);
    viewerScriptBeforeSwap();
    EXPECT_EQ(viewerProcessEvents(), 0);
    FILE *png = fopen(shot.c_str(), "rb");
    EXPECT_TRUE(png);
    if (png) fclose(png);
}

TEST_F(ViewerWindow, SnapshotsAreTopRowFirst) {
    ASSERT_EQ(open(), 1);
    glClearColor(1, 0, 0, 1);  // bottom half red
    glClear(GL_COLOR_BUFFER_BIT);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 100, 320, 100);
    glClearColor(0, 1, 0, 1);  // top half green
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
    bwtest::OutputCapture capture;
    EXPECT_EQ(viewerCreateWindow("t", 10, 10, nullptr), 0);
    EXPECT_EQ(viewerWindowExists(), 0);
    EXPECT_EQ(viewerProcessEvents(), 0);
}
