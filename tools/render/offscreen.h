// An off-screen GL context: a frame buffer to draw into and read back, with no
// window and no display. Which kind is chosen at run time.
#pragma once

// The kinds, in the order `auto` tries them: name on the command line, what a
// report calls it, prefix of its functions.
#define OFFSCREEN_KINDS(X)                             \
    X(OFFSCREEN_EGL, "egl", "EGL surfaceless", egl)    \
    X(OFFSCREEN_OSMESA, "osmesa", "OSMesa", osmesa)

enum OffscreenKind : int {
#define OFFSCREEN_ENUM(tag, word, title, prefix) tag,
    OFFSCREEN_KINDS(OFFSCREEN_ENUM)
#undef OFFSCREEN_ENUM
    OFFSCREEN_KIND_COUNT,
    OFFSCREEN_AUTO = OFFSCREEN_KIND_COUNT,  // the first kind that works
};

struct OffscreenContext;

// The kind named `word` ("auto" included); -1 for an unknown word.
int offscreenKindOf(const char *word);
// Makes a context of width x height pixels current on the calling thread:
// RGBA of 8 bits, depth of 24, stencil of 8. Null when there is none of that
// kind (with `auto`, of any kind); the reasons went to standard error.
OffscreenContext *offscreenCreate(int kind, int width, int height);
// "EGL surfaceless" or "OSMesa".
const char *offscreenTitle(const OffscreenContext *context);
void offscreenDestroy(OffscreenContext *context);
// A GL entry point of the context current on the calling thread (one that
// offscreenCreate made); null when it has none.
void *offscreenProcAddress(const char *name);
