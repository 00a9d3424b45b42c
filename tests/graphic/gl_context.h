// An off-screen GL context for the graphic tests: one pbuffer of the size the
// first caller asks for, current for the rest of the program; false without a
// display with GLX.
#pragma once

#include <cstdlib>

#include "graphic.h"

// Xlib's macros come last in the including file: they clash with names in the
// test framework, so this header is included after the others.
#include <GL/glx.h>

namespace bwtest {

inline bool glReady(int width, int height) {
    static int ready = -1;
    if (ready >= 0) return ready;
    ready = 0;
    Display *display = getenv("DISPLAY") ? XOpenDisplay(nullptr) : nullptr;
    if (!display) return false;
    const int attributes[] = {GLX_DRAWABLE_TYPE, GLX_PBUFFER_BIT, GLX_RED_SIZE, 8, GLX_GREEN_SIZE, 8,
                              GLX_BLUE_SIZE, 8, GLX_DEPTH_SIZE, 24, None};
    int count = 0;
    GLXFBConfig *configs = glXChooseFBConfig(display, DefaultScreen(display), attributes, &count);
    if (!configs || count == 0) return false;
    const int size[] = {GLX_PBUFFER_WIDTH, width, GLX_PBUFFER_HEIGHT, height, None};
    GLXPbuffer pbuffer = glXCreatePbuffer(display, configs[0], size);
    GLXContext context = glXCreateNewContext(display, configs[0], GLX_RGBA_TYPE, nullptr, True);
    XFree(configs);
    ready = pbuffer && context && glXMakeContextCurrent(display, pbuffer, pbuffer, context);
    return ready;
}

// A draw test's starting point: default graphic properties and globals, the
// whole context as viewport, identity matrices, the display state initialised.
inline bool glFreshState(int width, int height, BW_GraphicProps &gp) {
    gpropsInit(&gp);
    glbVar = BW_GlbVar{};
    glViewport(0, 0, width, height);
    for (GLenum m : {GL_PROJECTION, GL_MODELVIEW}) {
        glMatrixMode(m);
        glLoadIdentity();
    }
    return grStateInitGL(&gp) == 1;  // every scene record flagged afresh
}

// The pixel at (x, y), bottom row first, as 0xRRGGBB.
inline unsigned glPixel(int x, int y) {
    unsigned char rgb[3];
    glReadPixels(x, y, 1, 1, GL_RGB, GL_UNSIGNED_BYTE, rgb);
    return unsigned{rgb[0]} << 16 | unsigned{rgb[1]} << 8 | rgb[2];
}

}  // namespace bwtest
