// Off-screen contexts on EGL's surfaceless platform and on OSMesa.
//
// The program's GL calls are bound to OSMesa's library (it is linked before
// the GL dispatch library): OSMesa draws only through its own entry points,
// and those reach an EGL context of the same drivers too, as both share one
// dispatch table. Each new context is checked for that: a GL call through the
// program's own binding has to answer.
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/osmesa.h>
#include <GL/gl.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "offscreen.h"

struct OffscreenContext {
    int kind;                          // OffscreenKind
    int width, height;                 // pixels
    EGLDisplay display = EGL_NO_DISPLAY;  // EGL: the surfaceless display
    EGLContext eglContext = EGL_NO_CONTEXT;
    EGLSurface surface = EGL_NO_SURFACE;  // EGL: a pbuffer of the frame's size
    OSMesaContext osmesa = nullptr;    // OSMesa: the context
    std::vector<unsigned char> pixels; // OSMesa: the colour buffer it draws into, RGBA
};

namespace {

int currentKind = -1;  // kind of the context made current last

bool hasWord(const char *list, const char *word) {
    if (!list) return false;
    const size_t n = strlen(word);
    for (const char *p = list; (p = strstr(p, word)); p += n)
        if ((p == list || p[-1] == ' ') && (p[n] == ' ' || p[n] == '\0')) return true;
    return false;
}

bool eglCreate(OffscreenContext *c) {
    const char *clientExtensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    if (!hasWord(clientExtensions, "EGL_MESA_platform_surfaceless")) {
        fprintf(stderr, "bwrender: EGL offers no surfaceless platform\n");
        return false;
    }
    auto getPlatformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (!getPlatformDisplay) {
        fprintf(stderr, "bwrender: EGL has no eglGetPlatformDisplayEXT\n");
        return false;
    }
    c->display = getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    EGLint major = 0, minor = 0;
    if (c->display == EGL_NO_DISPLAY || !eglInitialize(c->display, &major, &minor)) {
        fprintf(stderr, "bwrender: the EGL surfaceless display does not start (error 0x%x)\n", eglGetError());
        c->display = EGL_NO_DISPLAY;
        return false;
    }
    const EGLint attributes[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT,
                                 EGL_RED_SIZE, 8, EGL_GREEN_SIZE, 8, EGL_BLUE_SIZE, 8, EGL_ALPHA_SIZE, 8,
                                 EGL_DEPTH_SIZE, 24, EGL_STENCIL_SIZE, 8, EGL_NONE};
    EGLConfig config;
    EGLint found = 0;
    if (!eglChooseConfig(c->display, attributes, &config, 1, &found) || found < 1) {
        fprintf(stderr, "bwrender: EGL has no OpenGL pbuffer config of 8-bit RGBA, depth 24, stencil 8\n");
        return false;
    }
    const EGLint size[] = {EGL_WIDTH, c->width, EGL_HEIGHT, c->height, EGL_NONE};
    if (!eglBindAPI(EGL_OPENGL_API) ||
        (c->eglContext = eglCreateContext(c->display, config, EGL_NO_CONTEXT, nullptr)) == EGL_NO_CONTEXT ||
        (c->surface = eglCreatePbufferSurface(c->display, config, size)) == EGL_NO_SURFACE ||
        !eglMakeCurrent(c->display, c->surface, c->surface, c->eglContext)) {
        fprintf(stderr, "bwrender: no EGL OpenGL context of %d x %d (error 0x%x)\n", c->width, c->height,
                eglGetError());
        return false;
    }
    return true;
}

void eglDestroy(OffscreenContext *c) {
    if (c->display == EGL_NO_DISPLAY) return;
    eglMakeCurrent(c->display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (c->surface != EGL_NO_SURFACE) eglDestroySurface(c->display, c->surface);
    if (c->eglContext != EGL_NO_CONTEXT) eglDestroyContext(c->display, c->eglContext);
    eglTerminate(c->display);
    c->display = EGL_NO_DISPLAY;
}

void *eglProc(const char *name) { return reinterpret_cast<void *>(eglGetProcAddress(name)); }

bool osmesaCreate(OffscreenContext *c) {
    c->osmesa = OSMesaCreateContextExt(OSMESA_RGBA, 24, 8, 0, nullptr);
    if (!c->osmesa) {
        fprintf(stderr, "bwrender: OSMesa makes no RGBA context with depth 24 and stencil 8\n");
        return false;
    }
    c->pixels.resize(static_cast<size_t>(c->width) * static_cast<size_t>(c->height) * 4);
    if (!OSMesaMakeCurrent(c->osmesa, c->pixels.data(), GL_UNSIGNED_BYTE, c->width, c->height)) {
        fprintf(stderr, "bwrender: OSMesa cannot draw into %d x %d pixels\n", c->width, c->height);
        return false;
    }
    return true;
}

void osmesaDestroy(OffscreenContext *c) {
    if (c->osmesa) OSMesaDestroyContext(c->osmesa);
    c->osmesa = nullptr;
}

void *osmesaProc(const char *name) { return reinterpret_cast<void *>(OSMesaGetProcAddress(name)); }

struct Backend {
    const char *word;   // name on the command line
    const char *title;  // name in reports
    bool (*create)(OffscreenContext *);
    void (*destroy)(OffscreenContext *);
    void *(*proc)(const char *);
};

const Backend backends[OFFSCREEN_KIND_COUNT] = {
#define OFFSCREEN_BACKEND(tag, word, title, prefix) {word, title, prefix##Create, prefix##Destroy, prefix##Proc},
    OFFSCREEN_KINDS(OFFSCREEN_BACKEND)
#undef OFFSCREEN_BACKEND
};

OffscreenContext *createOf(int kind, int width, int height) {
    auto *c = new OffscreenContext;
    c->kind = kind;
    c->width = width;
    c->height = height;
    const Backend &b = backends[kind];
    if (b.create(c)) {
        // The program's own GL binding has to reach this context.
        if (glGetString(GL_VERSION)) {
            currentKind = kind;
            return c;
        }
        fprintf(stderr, "bwrender: the %s context does not answer this program's GL calls\n", b.title);
    }
    b.destroy(c);
    delete c;
    return nullptr;
}

}  // namespace

int offscreenKindOf(const char *word) {
    if (strcmp(word, "auto") == 0) return OFFSCREEN_AUTO;
    for (int k = 0; k < OFFSCREEN_KIND_COUNT; ++k)
        if (strcmp(word, backends[k].word) == 0) return k;
    return -1;
}

OffscreenContext *offscreenCreate(int kind, int width, int height) {
    if (kind != OFFSCREEN_AUTO) return kind >= 0 && kind < OFFSCREEN_KIND_COUNT ? createOf(kind, width, height) : nullptr;
    for (int k = 0; k < OFFSCREEN_KIND_COUNT; ++k)
        if (OffscreenContext *c = createOf(k, width, height)) return c;
    return nullptr;
}

const char *offscreenTitle(const OffscreenContext *context) { return backends[context->kind].title; }

void offscreenDestroy(OffscreenContext *context) {
    if (!context) return;
    backends[context->kind].destroy(context);
    if (currentKind == context->kind) currentKind = -1;
    delete context;
}

void *offscreenProcAddress(const char *name) {
    return currentKind >= 0 ? backends[currentKind].proc(name) : nullptr;
}
