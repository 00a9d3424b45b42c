// mouse: the default driver. The X pointer's position, normalised to the
// screen or to a window, and its three buttons, from the display in DISPLAY.
//
//   mouse [-BW_RUN] [-record file] [-window id]
//   (the same words may stand in mouse.cfg beside the executable)
#include <X11/Xlib.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bwdriver.h"
#include "driver_words.h"

namespace {

enum Dof { X, Y, Left, Middle, Right, DofCount };  // as in mouse.drv

struct State {
    Display *display = nullptr;  // null when it could not be opened
    Window area = 0;             // the window positions are relative to; the root without -window
};

// Position `p` of `size` pixels as 0 at the first pixel and 1 at the last.
float normalise(int p, unsigned size) { return size > 1 ? float(p) / float(size - 1) : 0.0f; }

int sample(BW_Driver *drv, double, void *user) {
    State &s = *static_cast<State *>(user);
    if (!s.display) {
        driverCommonError(drv, BW_DERR_PORT_OPEN, 1);
        return 0;
    }
    Window root, child;
    int rootX, rootY, x, y;
    unsigned mask;
    XWindowAttributes area;
    if (!XGetWindowAttributes(s.display, s.area, &area) ||
        !XQueryPointer(s.display, s.area, &root, &child, &rootX, &rootY, &x, &y, &mask)) {
        // The window is gone or the pointer is on another screen: keep the last values.
        return 1;
    }
    driverSetDofValue(drv, X, normalise(x, unsigned(area.width)));
    driverSetDofValue(drv, Y, 1.0f - normalise(y, unsigned(area.height)));  // up is positive
    driverSetDofValue(drv, Left, (mask & Button1Mask) ? 1.0f : 0.0f);
    driverSetDofValue(drv, Middle, (mask & Button2Mask) ? 1.0f : 0.0f);
    driverSetDofValue(drv, Right, (mask & Button3Mask) ? 1.0f : 0.0f);
    return 1;
}

// Does nothing: a failed query of a window that went away is not fatal.
int ignoreXError(Display *, XErrorEvent *) { return 0; }

}  // namespace

int main(int argc, char **argv) {
    static const int directions[DofCount] = {BW_DOF_INPUT, BW_DOF_INPUT, BW_DOF_INPUT, BW_DOF_INPUT,
                                             BW_DOF_INPUT};
    BW_DriverArgs args;
    if (!driverParseArgs(argc, argv, &args)) return 2;
    drivers::Options opt;
    if (!drivers::readOptions("mouse", argv[0], args, {"window"}, {}, opt)) return 2;
    State state;
    unsigned long window = 0;
    if (opt.has("window")) {
        const std::string text = opt.get("window", "");
        char *end = nullptr;
        window = strtoul(text.c_str(), &end, 0);  // decimal, or 0x... as X tools print it
        if (text.empty() || *end || window == 0) {
            fprintf(stderr, "mouse: '-window %s' is not a window id\n", text.c_str());
            return 2;
        }
    }
    // A display that cannot be had is the run's fatal error, told at the first turn.
    state.display = XOpenDisplay(nullptr);
    if (state.display) {
        XSetErrorHandler(ignoreXError);
        state.area = window ? Window(window) : DefaultRootWindow(state.display);
    } else {
        fprintf(stderr, "mouse: cannot open the X display '%s'\n", XDisplayName(nullptr));
    }

    BW_DriverDesc desc{};
    desc.name = "mouse";
    desc.versionText = "mouse 1.0";
    desc.dofCount = DofCount;
    desc.directions = directions;
    desc.sample = sample;
    desc.user = &state;
    const int code = driverRun(&desc, &args);
    if (state.display) XCloseDisplay(state.display);
    return code;
}
