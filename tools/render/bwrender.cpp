// bwrender: numbered PNG frames of a scene, drawn as the viewer draws them,
// without a window or a display.
//
//   bwrender DATABASE SCENE [--frames FIRST:LAST[:STEP]] [--size WxH] --out DIR
//            [-d MODE] [-a LEVEL] [-l LOD] [-R RSRC] [--context auto|egl|osmesa]
//
// Each frame of the range is evaluated as the viewer's update does it, drawn
// through the scene's first camera and written as DIR/frame-NNNN.png, NNNN
// being the frame's own number.
#include <sys/stat.h>
#include <unistd.h>

#include <GL/gl.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "bw_env.h"
#include "database.h"
#include "frame_writer.h"
#include "graphic.h"
#include "offscreen.h"
#include "tol.h"
#include "view.h"
#include "viewer.h"

namespace {

const char *const usageText =
    "Usage: bwrender DATABASE SCENE [--frames FIRST:LAST[:STEP]] [--size WxH] --out DIR\n"
    "                [-d MODE] [-a LEVEL] [-l LOD] [-R RSRC] [--context auto|egl|osmesa]\n";

struct RenderOptions {
    const char *database = nullptr;  // name in the database directory, or a path
    const char *scene = nullptr;     // scene name
    bool framesGiven = false;        // --frames; else the scene's play range
    int first = 1, last = 1, step = 1;  // frame range, step >= 1
    int width = 720, height = 486;   // --size, pixels: the viewer's window by default
    const char *out = nullptr;       // --out directory
    const char *resourcePath = nullptr;  // -R, BW_RSRC or the viewer's default
    int context = OFFSCREEN_AUTO;    // --context
    int patchLod = 1;                // -l, as the viewer's
};

// A whole decimal number of the text from `p` up to `stop` (or its end).
bool readInt(const char *p, const char *stop, int *value) {
    char *end = nullptr;
    if (p == stop || !*p) return false;
    long v = strtol(p, &end, 10);
    if (end != (stop ? stop : p + strlen(p)) || v < -1000000000L || v > 1000000000L) return false;
    *value = static_cast<int>(v);
    return true;
}

bool parseFrames(const char *text, RenderOptions *o) {
    const char *colon = strchr(text, ':');
    if (!colon) return false;
    const char *second = strchr(colon + 1, ':');
    int step = 1;
    if (!readInt(text, colon, &o->first) || !readInt(colon + 1, second, &o->last)) return false;
    if (second && !readInt(second + 1, nullptr, &step)) return false;
    o->step = step;
    return o->first >= 0 && o->first <= o->last && step >= 1;
}

bool parseSize(const char *text, RenderOptions *o) {
    const char *x = strchr(text, 'x');
    return x && readInt(text, x, &o->width) && readInt(x + 1, nullptr, &o->height) && o->width >= 1 &&
           o->height >= 1 && o->width <= 16384 && o->height <= 16384;
}

// Reads the command line; prints what is wrong and returns false on a fault.
bool parseCommandLine(int argc, char *argv[], RenderOptions *o, BW_GraphicProps *gprops) {
    for (int i = 1; i < argc; ++i) {
        const char *word = argv[i];
        if (word[0] != '-' || word[1] == '\0') {
            if (!o->database) o->database = word;
            else if (!o->scene) o->scene = word;
            else {
                fprintf(stderr, "bwrender: one scene only: '%s' is one word too many\n", word);
                return false;
            }
            continue;
        }
        // The value of an option: behind '=' or the letter in the same word, or the next word.
        const bool isLong = word[1] == '-';
        const char *inWord = isLong ? strchr(word, '=') : (word[2] ? word + 2 : nullptr);
        const std::string name = isLong && inWord ? std::string(word, inWord) : isLong ? word : std::string(word, 2);
        const char *value = inWord ? inWord + (isLong ? 1 : 0) : nullptr;
        static const char *const known[] = {"--frames", "--size", "--out", "--context", "-d", "-a", "-l", "-R"};
        bool isKnown = false;
        for (const char *k : known) isKnown = isKnown || name == k;
        if (!isKnown) {
            fprintf(stderr, "bwrender: unknown option %s\n", name.c_str());
            return false;
        }
        if (!value) {
            if (i + 1 >= argc) {
                fprintf(stderr, "bwrender: option %s wants a value\n", name.c_str());
                return false;
            }
            value = argv[++i];
        }
        if (name == "--frames") {
            if (!parseFrames(value, o)) {
                fprintf(stderr, "bwrender: --frames wants FIRST:LAST or FIRST:LAST:STEP, 0 <= FIRST <= LAST, "
                                "STEP >= 1, not '%s'\n", value);
                return false;
            }
            o->framesGiven = true;
        } else if (name == "--size") {
            if (!parseSize(value, o)) {
                fprintf(stderr, "bwrender: --size wants WIDTHxHEIGHT of 1 to 16384 pixels each, not '%s'\n", value);
                return false;
            }
        } else if (name == "--out") {
            o->out = value;
        } else if (name == "--context") {
            o->context = offscreenKindOf(value);
            if (o->context < 0) {
                fprintf(stderr, "bwrender: --context wants auto, egl or osmesa, not '%s'\n", value);
                return false;
            }
        } else if (name == "-R") {
            o->resourcePath = value;
        } else {
            viewerDisplayOption(name[1], value, gprops, &o->patchLod);
        }
    }
    if (!o->database || !o->scene) {
        fprintf(stderr, "bwrender: name a database and a scene\n");
        return false;
    }
    if (!o->out) {
        fprintf(stderr, "bwrender: --out DIR is missing: where should the frames go?\n");
        return false;
    }
    if (!o->resourcePath) {
        const char *env = envGet(ENV_BW_RSRC);
        o->resourcePath = env ? env : VIEWER_DEFAULT_RSRC;
    }
    return true;
}

bool isDirectory(const char *path) {
    struct stat st;
    return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

// The progress line on a terminal: frame, count and rate so far.
void progress(int frame, int done, int total, double seconds) {
    fprintf(stderr, "\rframe %d  %d/%d  %.1f frames/s ", frame, done, total,
            seconds > 0.0 ? done / seconds : 0.0);
}

}  // namespace

int main(int argc, char *argv[]) {
    BW_GraphicProps gprops;
    gpropsInit(&gprops);
    gprops.inViewer = 1;
    gprops.stopFct = nullptr;
    RenderOptions o;
    animationOptimise = -1;
    if (!parseCommandLine(argc, argv, &o, &gprops)) {
        fputs(usageText, stderr);
        return 2;
    }
    std::error_code error;
    std::filesystem::create_directories(o.out, error);
    if (!isDirectory(o.out)) {
        fprintf(stderr, "bwrender: cannot make the directory %s\n", o.out);
        return 1;
    }

    // The scene, loaded and prepared as the viewer's start-up does it.
    TOL_Scene scene;
    TOL_Elem *camera = nullptr;
    if (!viewerToolScene("bwrender", o.resourcePath, o.database, o.scene, o.patchLod, &gprops, &scene, &camera)) return 1;
    viewerSceneAspect(&scene, camera, static_cast<float>(o.width) / static_cast<float>(o.height));
    if (!o.framesGiven) {
        if (const TOL_PlayCtrl *play = tol_sidPlayCtrl(&scene)) {
            o.first = play->startFrame;
            o.last = play->endFrame;
            o.step = play->frameStep < 1 ? 1 : play->frameStep;
        }
    }

    OffscreenContext *context = offscreenCreate(o.context, o.width, o.height);
    if (!context) {
        fprintf(stderr, "bwrender: no off-screen GL context to draw in\n");
        return 1;
    }
    grSetProcAddress(offscreenProcAddress);
    grViewport(0, 0, o.width, o.height);
    TOL_grStateInit(&scene, &gprops);
    GLint stencilBits = 0;
    glGetIntegerv(GL_STENCIL_BITS, &stencilBits);
    if (stencilBits > 0) grClearStencil();

    const bool terminal = isatty(STDERR_FILENO) != 0;
    const int total = (o.last - o.first) / o.step + 1;
    const auto start = std::chrono::steady_clock::now();
    // The files are encoded beside the drawing: half the processors, the
    // rasteriser has its own threads.
    FrameWriter writer(static_cast<int>(std::thread::hardware_concurrency() / 2), o.width, o.height);
    int done = 0;
    bool ok = true;
    for (int frame = o.first; ok && frame <= o.last; frame += o.step) {
        // The update side's step, then the draw side's, as one frame of the viewer.
        TOL_sceneSetCurrent(&scene);
        TOL_updatelistEvalScene(&scene, viewerSceneTime(&scene, frame));
        TOL_preprocessALL(&scene, &gprops);
        TOL_grClear(&gprops);
        TOL_sceneDraw(&scene, camera, &gprops);
        std::vector<unsigned char> pixels;
        grReadFrameRgb(o.width, o.height, &pixels);
        char file[64];
        snprintf(file, sizeof file, "/frame-%04d.png", frame);
        ok = writer.write(std::string(o.out) + file, std::move(pixels));
        ++done;
        if (terminal)
            progress(frame, done, total,
                     std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        if (frame > o.last - o.step) break;  // the next step would pass the end (or overflow)
    }
    ok = writer.finish() && ok;
    if (terminal) fputc('\n', stderr);
    offscreenDestroy(context);
    return ok ? 0 : 1;
}
