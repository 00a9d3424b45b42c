// The one window, its GL context and its events: Xlib and GLX.
#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <GL/glx.h>

#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <thread>
#include <vector>

#include "viewer.h"
#include "viewer_platform.h"
#include "bw_env.h"

namespace {

Display *display = nullptr;
Window window = 0;
Colormap colormap = 0;
GLXContext context = nullptr;
Atom wmDeleteWindow = 0;
int clientWidth = 0, clientHeight = 0;
bool closeRequested = false;
int pointerButtons = 3;  // buttons of the pointer, as the server maps them

bool keyDown[256];  // X key codes held, to tell auto-repeat from a new press

// Mouse buttons held, and the last press for double clicks.
int buttonsDown = 0;  // bit b for button b (0 left, 1 middle, 2 right)
int lastPressButton = -1;
Time lastPressTime = 0;
int lastPressX = 0, lastPressY = 0;
constexpr Time DOUBLE_CLICK_MS = 400;
constexpr int DOUBLE_CLICK_PX = 4;

// ---------------------------------------------------------------------------
// Pixel formats. The list is the server's GLXFBConfig list; a format's id is its
// place in that list counted from 1. The attributes of the report and of the
// fitting test come from the config as follows:
//   colour bits      red + green + blue for RGBA configs, GLX_BUFFER_SIZE otherwise
//   alpha            GLX_ALPHA_SIZE
//   accum            the four GLX_ACCUM_*_SIZE added
//   depth, stencil   GLX_DEPTH_SIZE, GLX_STENCIL_SIZE
//   reserved value   GLX_LEVEL, the plane the config draws in
//   draw to window   GLX_WINDOW_BIT in GLX_DRAWABLE_TYPE and an X visual to make it with
//   draw to bitmap   GLX_PIXMAP_BIT in GLX_DRAWABLE_TYPE
//   OpenGL           always; GDI and the two palette needs never
//   stereo, double   GLX_STEREO, GLX_DOUBLEBUFFER
//   RGB              GLX_RGBA_BIT in GLX_RENDER_TYPE, colour index otherwise
//   main plane       GLX_LEVEL 0; any other level is an overlay
//   generic          never. GLX has no config of a fallback renderer: its one
//                    hint, GLX_SLOW_CONFIG, marks configs whose accumulation
//                    buffer is done in software while all else runs at full
//                    speed, and refusing those would push every machine past the
//                    stencil pass.
struct PixelFormat {
    int id;
    int configId;  // GLX_FBCONFIG_ID, to find the chooser's answer in the list
    int colorBits, alphaBits, accumBits, depthBits, stencilBits, reserved;
    bool drawToWindow, drawToBitmap, stereo, doubleBuffer, rgba, generic, mainPlane;
};

int configAttrib(GLXFBConfig config, int attribute) {
    int value = 0;
    if (glXGetFBConfigAttrib(display, config, attribute, &value) != Success) return 0;
    return value;
}

PixelFormat describeFormat(GLXFBConfig config, int id) {
    PixelFormat f{};
    f.id = id;
    f.configId = configAttrib(config, GLX_FBCONFIG_ID);
    f.rgba = (configAttrib(config, GLX_RENDER_TYPE) & GLX_RGBA_BIT) != 0;
    f.colorBits = f.rgba ? configAttrib(config, GLX_RED_SIZE) + configAttrib(config, GLX_GREEN_SIZE) +
                               configAttrib(config, GLX_BLUE_SIZE)
                         : configAttrib(config, GLX_BUFFER_SIZE);
    f.alphaBits = configAttrib(config, GLX_ALPHA_SIZE);
    f.accumBits = configAttrib(config, GLX_ACCUM_RED_SIZE) + configAttrib(config, GLX_ACCUM_GREEN_SIZE) +
                  configAttrib(config, GLX_ACCUM_BLUE_SIZE) + configAttrib(config, GLX_ACCUM_ALPHA_SIZE);
    f.depthBits = configAttrib(config, GLX_DEPTH_SIZE);
    f.stencilBits = configAttrib(config, GLX_STENCIL_SIZE);
    f.reserved = configAttrib(config, GLX_LEVEL);
    int drawable = configAttrib(config, GLX_DRAWABLE_TYPE);
    f.drawToWindow = (drawable & GLX_WINDOW_BIT) && configAttrib(config, GLX_VISUAL_ID) != 0;
    f.drawToBitmap = (drawable & GLX_PIXMAP_BIT) != 0;
    f.stereo = configAttrib(config, GLX_STEREO) != 0;
    f.doubleBuffer = configAttrib(config, GLX_DOUBLEBUFFER) != 0;
    f.generic = false;
    f.mainPlane = f.reserved == 0;
    return f;
}

void reportFormat(const PixelFormat &f) {
    fprintf(stderr, "\n---\nPixel format ID %d : \n", f.id);
    fprintf(stderr, "%d color bitplanes\n", f.colorBits);
    fprintf(stderr, "%d alpha bitplanes\n", f.alphaBits);
    fprintf(stderr, "%d accum bitplanes\n", f.accumBits);
    fprintf(stderr, "%d depth bitplanes\n", f.depthBits);
    fprintf(stderr, "%d stenc bitplanes\n", f.stencilBits);
    fprintf(stderr, "Reserved value is %d\n", f.reserved);
    if (f.drawToWindow) fprintf(stderr, "\tDraw To Window\n");
    if (f.drawToBitmap) fprintf(stderr, "\tDraw To Bitmap\n");
    fprintf(stderr, "\tSupport OpenGL\n");
    if (f.stereo) fprintf(stderr, "\tSupports stereo\n");
    if (f.doubleBuffer) fprintf(stderr, "\tDouble Buffered\n");
    fprintf(stderr, f.rgba ? "\tRGB pixel format\n" : "\tColorindex format\n");
    if (f.generic) fprintf(stderr, "\tGeneric format - NO HARDWARE/DRIVER !!\n");
    fprintf(stderr, f.mainPlane ? "\tMain plane\n" : "\tOverlay plane\n");
    fprintf(stderr, "===\n");
}

bool formatFits(const PixelFormat &f, int deviceBits, int alpha, int depth, int stencil, int accum,
                int doubleBuffer, int wantDeep) {
    if (!f.drawToWindow || !f.mainPlane || !f.rgba || f.generic) return false;
    if (f.depthBits < depth || f.stencilBits < stencil || f.alphaBits < alpha || f.accumBits < accum)
        return false;
    if (doubleBuffer && !f.doubleBuffer) return false;
    if (wantDeep && (f.colorBits == 24 || f.colorBits >= 32)) return true;
    return f.colorBits >= deviceBits;
}

// The system's chooser: GLX's own ordering of the configs that meet the request.
// Sizes are minimums to GLX; the accumulation request of 8 bits is spread over
// the four channels. A single-buffered run takes either kind.
int systemChooser(int screen, const PixelFormat *formats, int count, int alpha, int stencil,
                  int doubleBuffer) {
    const int attributes[] = {
        GLX_X_RENDERABLE, True,
        GLX_DRAWABLE_TYPE, GLX_WINDOW_BIT,
        GLX_RENDER_TYPE, GLX_RGBA_BIT,
        GLX_DOUBLEBUFFER, doubleBuffer ? True : static_cast<int>(GLX_DONT_CARE),
        GLX_RED_SIZE, 8, GLX_GREEN_SIZE, 8, GLX_BLUE_SIZE, 8,
        GLX_ALPHA_SIZE, alpha,
        GLX_DEPTH_SIZE, 32,
        GLX_STENCIL_SIZE, stencil,
        GLX_ACCUM_RED_SIZE, 2, GLX_ACCUM_GREEN_SIZE, 2, GLX_ACCUM_BLUE_SIZE, 2, GLX_ACCUM_ALPHA_SIZE, 2,
        None};
    int found = 0;
    GLXFBConfig *chosen = glXChooseFBConfig(display, screen, attributes, &found);
    int id = 0;
    if (chosen && found > 0) {
        int configId = configAttrib(chosen[0], GLX_FBCONFIG_ID);
        for (int i = 0; i < count && !id; ++i)
            if (formats[i].configId == configId) id = formats[i].id;
    }
    if (chosen) XFree(chosen);
    return id;
}

// Returns the id of the format to use, 0 when there is none.
int viewerChoosePixelFormat(int screen, const PixelFormat *formats, int count) {
    bool showFormats = envIsSet(ENV_BW_LIVE_SHOWFORMATS);
    int colorBits = DefaultDepth(display, screen);
    printf("Colorbits is %d\n", colorBits);
    int wantDeep = colorBits == 24 || colorBits >= 32;
    printf("%d different pixel formats supported\n", count);
    printf("[ Set %s to a given format before running to override ]\n", "BW_PIXELFORMAT");
    if (showFormats)
        for (int i = 0; i < count; ++i) reportFormat(formats[i]);

    int chosen = 0;
    if (const char *text = envGet(ENV_BW_PIXELFORMAT)) {
        int n = atoi(text);
        if (n >= 1 && n <= count) {
            const PixelFormat &f = formats[n - 1];
            if (f.drawToWindow && f.mainPlane && f.rgba) {
                printf("[Viewer override pixelformat with %d]\n", n);
                chosen = n;
            }
        }
    }

    if (!chosen) {
        int doubleBuffer = viewer.singleBuffer ? 0 : 1;
        int alpha = 8, stencil = 8, accum = 8;
        int prePass = 0;
        for (int pass = 1; pass <= 4 && !prePass; ++pass) {
            if (pass == 2) { stencil = 0; printf("NEW - Giving up on stencil bitplanes\n"); }
            if (pass == 3) { alpha = 0; printf("NEW - Giving up on alpha bitplanes\n"); }
            if (pass == 4) { accum = 0; printf("NEW - Giving up on accum bitplanes\n"); }
            for (int i = 0; i < count && !prePass; ++i)
                if (formatFits(formats[i], colorBits, alpha, 24, stencil, accum, doubleBuffer, wantDeep))
                    prePass = formats[i].id;
        }
        if (prePass) printf("Pre pass suggested id %d\n", prePass);

        // The chooser is asked even after a pass found one, for the report.
        int second = systemChooser(screen, formats, count, 8, 8, doubleBuffer);
        if (!second) {
            printf("OLD - Giving up on stencil planes\n");
            second = systemChooser(screen, formats, count, 8, 0, doubleBuffer);
        }
        if (!second) {
            printf("OLD - Giving up on alpha bitplanes\n");
            second = systemChooser(screen, formats, count, 0, 0, doubleBuffer);
        }
        printf("Second pass suggested id %d\n", second);
        chosen = prePass ? prePass : second;
    }

    if (!chosen) {
        fprintf(stderr, "ERROR: Viewer cannot run on this platform. Aborting.\n");
        return 0;
    }
    printf("Trying to use format %d\n", chosen);
    viewer.alphaBits = formats[chosen - 1].alphaBits;
    viewer.stencilBits = formats[chosen - 1].stencilBits;
    viewer.accumBits = 0;
    return chosen;
}

// Takes down the context, the window and the connection: the close button's end.
void destroyWindow() {
    if (!display) return;
    if (context) {
        glXMakeContextCurrent(display, None, None, nullptr);
        glXDestroyContext(display, context);
        context = nullptr;
    }
    if (window) {
        XDestroyWindow(display, window);
        window = 0;
    }
    if (colormap) {
        XFreeColormap(display, colormap);
        colormap = 0;
    }
    XCloseDisplay(display);
    display = nullptr;
    buttonsDown = 0;
    for (bool &down : keyDown) down = false;
}

// Makes the window and its context on the chosen config. 0 when the config
// cannot be set on a window: the "SetPixelFormat failed" case.
int createOnConfig(int screen, GLXFBConfig config, const char *title, int width, int height) {
    XVisualInfo *visual = glXGetVisualFromFBConfig(display, config);
    if (!visual) return 0;
    Window root = RootWindow(display, screen);
    colormap = XCreateColormap(display, root, visual->visual, AllocNone);
    XSetWindowAttributes attributes{};
    attributes.colormap = colormap;
    attributes.border_pixel = 0;
    attributes.background_pixmap = None;
    attributes.event_mask = KeyPressMask | KeyReleaseMask | ButtonPressMask | ButtonReleaseMask |
                            ButtonMotionMask | StructureNotifyMask | ExposureMask | FocusChangeMask;
    window = XCreateWindow(display, root, 0, 0, static_cast<unsigned>(width), static_cast<unsigned>(height),
                           0, visual->depth, InputOutput, visual->visual,
                           CWColormap | CWBorderPixel | CWBackPixmap | CWEventMask, &attributes);
    XFree(visual);
    if (!window) return 0;
    XStoreName(display, window, title ? title : "");
    wmDeleteWindow = XInternAtom(display, "WM_DELETE_WINDOW", False);
    XSetWMProtocols(display, window, &wmDeleteWindow, 1);

    context = glXCreateNewContext(display, config, GLX_RGBA_TYPE, nullptr, True);
    if (!context) context = glXCreateNewContext(display, config, GLX_RGBA_TYPE, nullptr, False);
    if (!context || !glXMakeContextCurrent(display, window, window, context)) return 0;
    return 1;
}

// Waits until the server has mapped the window, so that the first frame has a
// drawable, and takes the client size it was given on the way.
void mapAndWait() {
    XMapWindow(display, window);
    XEvent event;
    for (;;) {
        XWindowEvent(display, window, StructureNotifyMask, &event);
        if (event.type == ConfigureNotify) {
            clientWidth = event.xconfigure.width;
            clientHeight = event.xconfigure.height;
        }
        if (event.type == MapNotify) break;
    }
    XWindowAttributes attributes;
    if (XGetWindowAttributes(display, window, &attributes)) {
        clientWidth = attributes.width;
        clientHeight = attributes.height;
    }
}

// ---------------------------------------------------------------------------
// Events

// X reports an auto-repeat as a release and a press with the same time; without
// detectable auto-repeat the pair is found by looking ahead.
bool releaseIsRepeat(const XKeyEvent &release) {
    if (!XEventsQueued(display, QueuedAfterReading)) return false;
    XEvent next;
    XPeekEvent(display, &next);
    return next.type == KeyPress && next.xkey.keycode == release.keycode && next.xkey.time == release.time;
}

int keyCodeOf(XKeyEvent *event) {
    KeySym sym = XLookupKeysym(event, 0);
    // The number pad gives its digits with Num Lock on, as the platform's pad does.
    if (IsKeypadKey(sym) && (event->state & Mod2Mask)) {
        KeySym digit = XLookupKeysym(event, 1);
        if (digit >= XK_KP_0 && digit <= XK_KP_9) sym = digit;
    }
    return viewerKeyFromKeysym(sym);
}

void onKey(XKeyEvent *event, int down) {
    unsigned keycode = event->keycode & 0xff;
    int repeat = 0;
    if (down) {
        repeat = keyDown[keycode] ? 1 : 0;
        keyDown[keycode] = true;
    } else {
        if (releaseIsRepeat(*event)) return;  // the press that follows is the repeat
        keyDown[keycode] = false;
    }
    int code = keyCodeOf(event);
    if (!code) return;
    viewerDeliverKey(code, down, repeat, (event->state & ShiftMask) ? 1 : 0);
}

void onButton(XButtonEvent *event, int down) {
    if (event->button < Button1 || event->button > Button3) return;  // the wheel is not a button here
    int button = static_cast<int>(event->button) - 1;
    int control = (event->state & ControlMask) ? 1 : 0;
    if (down) {
        int dx = event->x - lastPressX, dy = event->y - lastPressY;
        int doubleClick = button == lastPressButton && event->time - lastPressTime <= DOUBLE_CLICK_MS &&
                          dx <= DOUBLE_CLICK_PX && dx >= -DOUBLE_CLICK_PX && dy <= DOUBLE_CLICK_PX &&
                          dy >= -DOUBLE_CLICK_PX;
        // A third click starts a new pair.
        lastPressButton = doubleClick ? -1 : button;
        lastPressTime = event->time;
        lastPressX = event->x;
        lastPressY = event->y;
        if (!buttonsDown)
            XGrabPointer(display, window, False, ButtonPressMask | ButtonReleaseMask | ButtonMotionMask,
                         GrabModeAsync, GrabModeAsync, None, None, event->time);
        buttonsDown |= 1 << button;
        viewerButtonEvent(button, 1, event->x, event->y, doubleClick, control);
    } else {
        buttonsDown &= ~(1 << button);
        if (!buttonsDown) XUngrabPointer(display, event->time);
        viewerButtonEvent(button, 0, event->x, event->y, 0, control);
    }
}

// Motions queued back to back count as their last one; a motion after another
// event stays in its place.
void onMotion(XMotionEvent *event) {
    while (XEventsQueued(display, QueuedAlready) > 0) {
        XEvent next;
        XPeekEvent(display, &next);
        if (next.type != MotionNotify) break;
        XNextEvent(display, &next);
        *event = next.xmotion;
    }
    int left = (event->state & Button1Mask) ? 1 : 0;
    int middle = (event->state & Button2Mask) ? 1 : 0;
    int right = (event->state & Button3Mask) ? 1 : 0;
    if (!left && !middle && !right) return;
    viewerMotionEvent(event->x, event->y, left, middle, right, (event->state & ControlMask) ? 1 : 0);
}

}  // namespace

int viewerRegisterClass() {
    if (display) return 1;
    XInitThreads();  // before any other Xlib call: the update thread may take the lock too
    display = XOpenDisplay(nullptr);
    return display ? 1 : 0;
}

namespace {

// The server's configs and their descriptions, read ahead by the warm-up.
struct ConfigsAhead {
    std::thread reader;                // the warm-up, joined before the window is made
    GLXFBConfig *configs = nullptr;    // glXGetFBConfigs' list; null before or without it
    int count = 0;                     // entries of configs
    std::vector<PixelFormat> formats;  // describeFormat of each, ids from 1
};
ConfigsAhead *ahead = nullptr;  // never freed: a thread object must not be destroyed while it may run

void configsRead(int screen, GLXFBConfig **configs, int *count, std::vector<PixelFormat> *formats) {
    *count = 0;
    *configs = glXGetFBConfigs(display, screen, count);
    if (!*configs) *count = 0;
    formats->clear();
    for (int i = 0; i < *count; ++i) formats->push_back(describeFormat((*configs)[i], i + 1));
}

}  // namespace

void viewerWindowWarmUp() {
    // The first call of GL on a display loads the driver and reads the
    // server's configs: tens of milliseconds that start-up spends reading
    // scenes anyway. Nothing else uses the connection until the window is
    // made, which waits for this first; it prints nothing.
    if (ahead || !display) return;
    ahead = new ConfigsAhead;
    try {
        ahead->reader = std::thread([] { configsRead(DefaultScreen(display), &ahead->configs, &ahead->count, &ahead->formats); });
        // A fatal fault of start-up may end the process while this still
        // runs: the exit waits for it before anything is torn down.
        std::atexit([] { viewerWindowWarmUpWait(); });
    } catch (const std::system_error &) {
        // No thread: the window reads them itself.
    }
}

void viewerWindowWarmUpWait() {
    if (ahead && ahead->reader.joinable()) ahead->reader.join();
}

int viewerCreateWindow(const char *title, int width, int height, const char *geometry) {
    (void)geometry;  // the window opens at the default place; -s gives its size only
    viewerWindowWarmUpWait();
    if (!keyStateMapOpen()) {
        printf("Failed to map keyboard state file object\n");
        printf("Keyboard channel driver may not function\n");
    }
    if (viewer.stereo) {
        width = 1280;
        height = 1024;
    }
    if (width < 1) width = 1;
    if (height < 1) height = 1;

    if (window) destroyWindow();  // one window at a time
    if (!viewerRegisterClass()) return 0;
    int screen = DefaultScreen(display);
    unsigned char buttonMap[32];
    pointerButtons = XGetPointerMapping(display, buttonMap, sizeof buttonMap);
    if (pointerButtons < 1) pointerButtons = 3;
    Bool detectable = False;
    XkbSetDetectableAutoRepeat(display, True, &detectable);

    int count = 0;
    GLXFBConfig *configs = nullptr;
    std::vector<PixelFormat> formats;
    if (ahead && ahead->configs && screen == DefaultScreen(display)) {
        configs = ahead->configs;
        count = ahead->count;
        formats.swap(ahead->formats);
        ahead->configs = nullptr;
    } else {
        configsRead(screen, &configs, &count, &formats);
    }

    // A window that gets no pixel format, or cannot take the one chosen, has
    // no GL to draw with: that posts quit. The connection goes with the window,
    // so the message loop leaves at its first turn without drawing, and the
    // run ends as after the close button.
    int chosen = viewerChoosePixelFormat(screen, formats.data(), count);
    int made = 0;
    if (chosen) {
        made = createOnConfig(screen, configs[chosen - 1], title, width, height);
        if (!made) fprintf(stderr, "SetPixelFormat failed\n");
    }
    if (configs) XFree(configs);
    if (!made) {
        destroyWindow();
        return 1;
    }
    clientWidth = width;
    clientHeight = height;
    closeRequested = false;
    viewerGlReady();
    mapAndWait();
    viewerWindowResized(clientWidth, clientHeight);
    return 1;
}

int viewerProcessEvents() {
    if (!display) return 0;
    if (closeRequested) {
        closeRequested = false;
        destroyWindow();
        return 0;
    }
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        switch (event.type) {
        case KeyPress: onKey(&event.xkey, 1); break;
        case KeyRelease: onKey(&event.xkey, 0); break;
        case ButtonPress: onButton(&event.xbutton, 1); break;
        case ButtonRelease: onButton(&event.xbutton, 0); break;
        case MotionNotify: onMotion(&event.xmotion); break;
        case FocusOut:
            // Releases made elsewhere never come here: the next press is a new one.
            for (bool &down : keyDown) down = false;
            break;
        case ConfigureNotify:
            if (event.xconfigure.width != clientWidth || event.xconfigure.height != clientHeight) {
                clientWidth = event.xconfigure.width;
                clientHeight = event.xconfigure.height;
                viewerWindowResized(clientWidth, clientHeight);
            }
            break;
        case ClientMessage:
            if (static_cast<Atom>(event.xclient.data.l[0]) == wmDeleteWindow) {
                destroyWindow();
                return 0;
            }
            break;
        default: break;  // Expose and the rest: the next frame redraws anyway
        }
    }
    return 1;
}

int viewerMessagePending() { return display && XPending(display) > 0 ? 1 : 0; }

int viewerWindowExists() { return display && context ? 1 : 0; }

void viewerMakeCurrent() {
    if (!viewerWindowExists() || glXGetCurrentContext() == context) return;
    glXMakeContextCurrent(display, window, window, context);
}

void viewerSwapBuffers() {
    if (viewerWindowExists()) glXSwapBuffers(display, window);
}

void viewerClientSize(int *width, int *height) {
    if (width) *width = clientWidth;
    if (height) *height = clientHeight;
}

void viewerRequestClose() { closeRequested = true; }

int viewerMouseButtonCount() { return pointerButtons; }
