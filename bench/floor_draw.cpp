// floor_draw: the rasteriser's floor for a scene the viewer draws.
//
//   floor_draw -D DATABASE -S SCENE [-R RSRC] [-s WxH] [-n FRAMES] [-d MODE] [-l LOD]
//              [--snapshot FILE.png]
//
// Loads and prepares the scene as the viewer's start-up does, sets the
// viewer's camera, lights and material lists once, and compiles every shown
// model's strip stream into ONE display list: a glBegin(GL_TRIANGLE_STRIP)
// a strip, a glNormal3fv and glVertex3fv a vertex (with its colour and UV
// when the stream has them), the material and lighting switches between runs
// made by the viewer's own strip play, recorded into the list. Each frame is then a
// clear, one glCallList and a swap, in a double-buffered window of the same
// kind of visual the viewer picks: no update side, no per-frame state, so
// that its frame time is what the rasteriser needs for that picture and no
// more. --snapshot writes the first frame as PNG, to prove that the picture
// is the viewer's.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <GL/gl.h>
#include <GL/glx.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bw_env.h"
#include "camera.h"
#include "dictionary.h"
#include "graphic.h"
#include "model.h"
#include "tol.h"
#include "view.h"
#include "view_internal.h"
#include "viewer.h"

namespace {

const char *const usageText =
    "Usage: floor_draw -D DATABASE -S SCENE [-R RSRC] [-s WxH] [-n FRAMES] [-d MODE] [-l LOD]\n"
    "                  [--snapshot FILE.png]\n";

struct FloorOptions {
    const char *database = nullptr;      // -D: name in the database directory, or a path
    const char *scene = nullptr;         // -S: scene name
    const char *resourcePath = nullptr;  // -R, BW_RSRC or the viewer's default
    int width = 720, height = 486;       // -s, pixels: the viewer's window by default
    int frames = 100;                    // -n: frames drawn
    int patchLod = 1;                    // -l, as the viewer's
    const char *snapshot = nullptr;      // --snapshot: PNG of the first frame
};

bool readCount(const char *text, int low, int high, int *value) {
    char *end = nullptr;
    long v = strtol(text, &end, 10);
    if (end == text || *end || v < low || v > high) return false;
    *value = static_cast<int>(v);
    return true;
}

bool parseSize(const char *text, FloorOptions *o) {
    const char *x = strchr(text, 'x');
    if (!x) return false;
    const std::string w(text, x);
    return readCount(w.c_str(), 1, 16384, &o->width) && readCount(x + 1, 1, 16384, &o->height);
}

// Reads the command line; prints what is wrong and returns false on a fault.
bool parseCommandLine(int argc, char *argv[], FloorOptions *o, BW_GraphicProps *gprops) {
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        static const char *const known[] = {"-D", "-S", "-R", "-s", "-n", "-d", "-l", "--snapshot"};
        bool isKnown = false;
        for (const char *k : known) isKnown = isKnown || name == k;
        if (!isKnown) {
            fprintf(stderr, "floor_draw: unknown option %s\n", argv[i]);
            return false;
        }
        if (i + 1 >= argc) {
            fprintf(stderr, "floor_draw: option %s wants a value\n", argv[i]);
            return false;
        }
        const char *value = argv[++i];
        if (name == "-D") {
            o->database = value;
        } else if (name == "-S") {
            o->scene = value;
        } else if (name == "-R") {
            o->resourcePath = value;
        } else if (name == "--snapshot") {
            o->snapshot = value;
        } else if (name == "-s") {
            if (!parseSize(value, o)) {
                fprintf(stderr, "floor_draw: -s wants WIDTHxHEIGHT of 1 to 16384 pixels each, not '%s'\n", value);
                return false;
            }
        } else if (name == "-n") {
            if (!readCount(value, 1, 100000000, &o->frames)) {
                fprintf(stderr, "floor_draw: -n wants a count of frames from 1, not '%s'\n", value);
                return false;
            }
        } else {
            viewerDisplayOption(name[1], value, gprops, &o->patchLod);
        }
    }
    if (!gprops->material.shade) {
        fprintf(stderr, "floor_draw: the wireframe mode draws no strips; -d takes 2 (shaded) or 3 (textured)\n");
        return false;
    }
    if (!o->database || !o->scene) {
        fprintf(stderr, "floor_draw: name a database (-D) and a scene (-S)\n");
        return false;
    }
    if (!o->resourcePath) {
        const char *env = envGet(ENV_BW_RSRC);
        o->resourcePath = env ? env : VIEWER_DEFAULT_RSRC;
    }
    return true;
}

// ---------------------------------------------------------------------------
// The window: the viewer's kind of visual. The viewer takes the first config
// of the server's list that draws RGBA to a window in the main plane, double
// buffered, with 24 depth bits, as many colour bits as the screen, and 8
// stencil, 8 alpha and 8 accumulation bits, giving those up in that order.

struct FloorWindow {
    Display *display = nullptr;  // the connection
    Window window = 0;           // the one window
    GLXContext context = nullptr;
    int width = 0, height = 0;   // client size once mapped, pixels
};

int configAttrib(Display *display, GLXFBConfig config, int attribute) {
    int value = 0;
    return glXGetFBConfigAttrib(display, config, attribute, &value) == Success ? value : 0;
}

bool configFits(Display *d, GLXFBConfig c, int deviceBits, int alpha, int stencil, int accum) {
    auto a = [&](int attribute) { return configAttrib(d, c, attribute); };
    if (!(a(GLX_DRAWABLE_TYPE) & GLX_WINDOW_BIT) || !a(GLX_VISUAL_ID) || a(GLX_LEVEL) != 0 ||
        !(a(GLX_RENDER_TYPE) & GLX_RGBA_BIT) || !a(GLX_DOUBLEBUFFER))
        return false;
    const int accumBits = a(GLX_ACCUM_RED_SIZE) + a(GLX_ACCUM_GREEN_SIZE) + a(GLX_ACCUM_BLUE_SIZE) +
                          a(GLX_ACCUM_ALPHA_SIZE);
    if (a(GLX_DEPTH_SIZE) < 24 || a(GLX_STENCIL_SIZE) < stencil || a(GLX_ALPHA_SIZE) < alpha || accumBits < accum)
        return false;
    const int colourBits = a(GLX_RED_SIZE) + a(GLX_GREEN_SIZE) + a(GLX_BLUE_SIZE);
    const bool deep = deviceBits == 24 || deviceBits >= 32;
    return (deep && (colourBits == 24 || colourBits >= 32)) || colourBits >= deviceBits;
}

// The chosen config and its place in the server's list counted from 1, the
// number the viewer reports as its format.
bool configChoose(Display *display, int screen, GLXFBConfig *chosen, int *format) {
    int count = 0;
    GLXFBConfig *configs = glXGetFBConfigs(display, screen, &count);
    const int deviceBits = DefaultDepth(display, screen);
    struct Wanted {
        int alpha, stencil, accum;  // bits, each given up in turn
    };
    static const Wanted passes[] = {{8, 8, 8}, {8, 0, 8}, {0, 0, 8}, {0, 0, 0}};
    bool found = false;
    for (const Wanted &w : passes)
        for (int i = 0; configs && i < count && !found; ++i)
            if (configFits(display, configs[i], deviceBits, w.alpha, w.stencil, w.accum)) {
                *chosen = configs[i];
                *format = i + 1;
                found = true;
            }
    if (configs) XFree(configs);
    return found;
}

bool windowOpen(int width, int height, FloorWindow *w) {
    w->display = XOpenDisplay(nullptr);
    if (!w->display) {
        fprintf(stderr, "floor_draw: cannot open the display '%s'\n", getenv("DISPLAY") ? getenv("DISPLAY") : "");
        return false;
    }
    const int screen = DefaultScreen(w->display);
    GLXFBConfig config{};
    int format = 0;
    if (!configChoose(w->display, screen, &config, &format)) {
        fprintf(stderr, "floor_draw: the display has no double-buffered RGBA visual with a depth buffer\n");
        return false;
    }
    XVisualInfo *visual = glXGetVisualFromFBConfig(w->display, config);
    if (!visual) return false;
    const Window root = RootWindow(w->display, screen);
    XSetWindowAttributes attributes{};
    attributes.colormap = XCreateColormap(w->display, root, visual->visual, AllocNone);
    attributes.event_mask = StructureNotifyMask;
    w->window = XCreateWindow(w->display, root, 0, 0, static_cast<unsigned>(width), static_cast<unsigned>(height),
                              0, visual->depth, InputOutput, visual->visual, CWColormap | CWEventMask, &attributes);
    XFree(visual);
    XStoreName(w->display, w->window, "floor_draw");
    w->context = glXCreateNewContext(w->display, config, GLX_RGBA_TYPE, nullptr, True);
    if (!w->context || !glXMakeContextCurrent(w->display, w->window, w->window, w->context)) {
        fprintf(stderr, "floor_draw: no GL context on the chosen visual\n");
        return false;
    }
    XMapWindow(w->display, w->window);
    XEvent event;
    do XWindowEvent(w->display, w->window, StructureNotifyMask, &event);
    while (event.type != MapNotify);
    XWindowAttributes now;
    w->width = width;
    w->height = height;
    if (XGetWindowAttributes(w->display, w->window, &now)) {
        w->width = now.width;
        w->height = now.height;
    }
    printf("floor_draw: format %d, %d x %d\n", format, w->width, w->height);
    return true;
}

// ---------------------------------------------------------------------------
// The one display list.

// Strips and vertices of the list, all models.
struct ListCount {
    long strips = 0, vertices = 0;
};

// Compiles every shown model's strips, under its matrices, into one list:
// the viewer's own strip play, one call a vertex, recorded instead of drawn.
// Models the viewer draws otherwise (no strips) are named and left out.
GLuint compileFloorList(TOL_Scene *scene, BW_GraphicProps *gprops, ListCount *count) {
    Dictionary *dict = dictGet(static_cast<int>(scene->dict));
    Chapter *models = dictChapter(dict, CHP_MODELS);
    const GLuint list = glGenLists(1);
    if (!list) return 0;
    BW_GlbVar *g = gprops->glbVar ? gprops->glbVar : &glbVar;
    g->curMatId = -1;
    g->listEnable = 0;  // the play makes no list of its own inside this one
    g_stripArrays = 0;
    const StripStreamVisitor counter = {count, nullptr, nullptr,
                                        [](void *user, const float *, int cells, const StripVertexLayout *l) {
                                            ListCount &c = *static_cast<ListCount *>(user);
                                            ++c.strips;
                                            c.vertices += cells / l->stride;
                                        }};
    glNewList(list, GL_COMPILE);
    for (int32_t i = 0; models && i < models->elementCount; ++i) {
        Element *entry = &models->elements[i];
        Model *m = static_cast<Model *>(entry->data);
        if (entry->deleted != ELEM_LIVE || !m || !modelTypeFilled(m->type)) continue;
        // Hidden, ghosts and wire-only models have no fill to draw.
        const ModelDisplay display = modelDisplay(entry, m);
        if (display.state != VISIBILITY_SHOWN || display.hiddenInShade) continue;
        const ViewModelRecord *r = viewModelRecord(dict, i);
        if (m->kind == MODEL_KIND_INSTANCE || !m->triangles || (r && r->garbageMatte) || !m->tmesh ||
            !m->tmesh->stream) {
            fprintf(stderr, "floor_draw: model %s has no strips; left out\n", m->name);
            continue;
        }
        if (stripStreamWalk(m->tmesh->stream, m->tmesh->streamLength, &counter) != 0)
            fprintf(stderr, "floor_draw: the strips of model %s break off\n", m->name);
        shadeStripsBegin(dict, r ? r->alpha : 1.0f);
        drawStripStream(scene, m, gprops);
    }
    glEndList();
    g->curMatId = -1;
    g->curTxtId = -1;
    return list;
}

// The camera the viewer views the scene through: its first one.
Camera *cameraOf(const TOL_Elem *elem) {
    Element *entry = elem ? elemGet(dictGet(static_cast<int>(elem->dict)), CHP_CAMERAS, static_cast<int>(elem->index))
                          : nullptr;
    return entry ? static_cast<Camera *>(entry->data) : nullptr;
}

}  // namespace

int main(int argc, char *argv[]) {
    setvbuf(stdout, nullptr, _IONBF, 0);
    BW_GraphicProps gprops;
    gpropsInit(&gprops);
    gprops.inViewer = 1;
    gprops.stopFct = nullptr;
    FloorOptions o;
    animationOptimise = -1;
    if (!parseCommandLine(argc, argv, &o, &gprops)) {
        fputs(usageText, stderr);
        return 2;
    }

    // The scene, loaded and prepared as the viewer's start-up does it.
    TOL_Scene scene;
    TOL_Elem *cameraElem = nullptr;
    if (!viewerToolScene("floor_draw", o.resourcePath, o.database, o.scene, o.patchLod, &gprops, &scene, &cameraElem))
        return 1;
    TOL_Elem first;
    if (cameraElem) first = *cameraElem;
    Camera *camera = cameraElem ? cameraOf(&first) : nullptr;
    if (!camera) {
        fprintf(stderr, "floor_draw: the scene '%s' has no camera\n", o.scene);
        return 1;
    }

    FloorWindow w;
    if (!windowOpen(o.width, o.height, &w)) return 1;
    viewerSceneAspect(&scene, &first, static_cast<float>(w.width) / static_cast<float>(w.height));
    grViewport(0, 0, w.width, w.height);
    TOL_grStateInit(&scene, &gprops);
    GLint stencilBits = 0;
    glGetIntegerv(GL_STENCIL_BITS, &stencilBits);
    if (stencilBits > 0) grClearStencil();

    // The update side's preprocess, until the strips are made.
    TOL_sceneSetCurrent(&scene);
    if (TOL_preprocessALL(&scene, &gprops) != 0 || TOL_preprocessALL(&scene, &gprops) != 0) return 1;

    // The state of the scene pass, set once: camera, lights, material lists.
    gpropsResolveDispType(&gprops);
    gprops.curCamera = camera;
    cameraLoadPerspective(camera, &gprops, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f);
    if (lightsBind(&scene, &gprops) != 0 || materialsBind(&scene, &gprops) != 0) return 1;
    if ((gprops.dispType & DISP_TEXTURED) && texturesBind(&scene, &gprops) != 0) return 1;
    DisplayPassState pass{};
    displayModePassBegin(&gprops, &pass);
    ListCount build;
    const GLuint list = compileFloorList(&scene, &gprops, &build);
    if (!list) {
        fprintf(stderr, "floor_draw: no display list could be made\n");
        return 1;
    }
    printf("floor_draw: %ld strips, %ld vertices in one display list\n", build.strips, build.vertices);

    const auto start = std::chrono::steady_clock::now();
    for (int frame = 1; frame <= o.frames; ++frame) {
        TOL_grClear(&gprops);
        glCallList(list);
        if (frame == 1 && o.snapshot && !snapshotWritePng(o.snapshot, w.width, w.height)) return 1;
        glXSwapBuffers(w.display, w.window);
    }
    glFinish();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    printf("floor_draw: %d frames in %.3f s, %.2f ms a frame\n", o.frames, seconds, 1000.0 * seconds / o.frames);
    glDeleteLists(list, 1);
    glXMakeContextCurrent(w.display, None, None, nullptr);
    glXDestroyContext(w.display, w.context);
    XDestroyWindow(w.display, w.window);
    XCloseDisplay(w.display);
    return 0;
}
