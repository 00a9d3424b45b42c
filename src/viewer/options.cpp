// Default state, the command line, the echo of options, banner and usage.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "animation.h"
#include "viewer.h"
#include "bw_env.h"

ViewerState viewer;


void viewerInitDefaults() {
    // Strings of an earlier initialisation are let go, so that the state can be
    // filled afresh (the program does it once; tests do it per case).
    free(viewer.takeDir);
    free(viewer.takeName);
    free(viewer.sceneName);
    memset(static_cast<void *>(&viewer), 0, sizeof viewer);
    for (TOL_Scene &scene : viewer.sceneCtx) scene.dict = static_cast<uint32_t>(-1);
    viewer.processCount = 1;
    viewer.curFrame = 1;
    viewer.startFrame = 1;
    viewer.endFrame = 100;
    viewer.frameStep = 1;
    viewer.takeNumber = 1;
    viewer.userTextX = 30;
    viewer.userTextY = 100;
    viewer.userTextColor[0] = viewer.userTextColor[1] = viewer.userTextColor[2] = 1.0f;
    viewer.drawFlags = 8;
    viewer.retraceMultiple = 1;
    gpropsInit(&viewer.gprops);
    viewer.gprops.inViewer = 1;
    viewer.gprops.stopFct = nullptr;
}

namespace {

// One signed run of decimal digits; returns null when there is no digit.
const char *parseNumber(const char *p, int *value) {
    const char *start = p;
    if (*p == '+' || *p == '-') ++p;
    if (!isdigit(static_cast<unsigned char>(*p))) return nullptr;
    while (isdigit(static_cast<unsigned char>(*p))) ++p;
    *value = atoi(start);
    return p;
}

void parseUserText(char *subopts) {
    static char *const keys[] = {const_cast<char *>("TEXT"), const_cast<char *>("X"),
                                 const_cast<char *>("Y"), const_cast<char *>("COLOR"), nullptr};
    struct Colour { const char *name; float rgb[3]; };
    static const Colour colours[] = {
        {"white", {1, 1, 1}}, {"red", {1, 0, 0}}, {"green", {0, 1, 0}},
        {"bleu", {0, 0, 1}},  // the word the program has always compared with
        {"yellow", {1, 1, 0}},
    };
    char *value = nullptr;
    while (*subopts) {
        switch (viewer_getopt::getsubopt(&subopts, keys, &value)) {
        case 0:
            viewer.showUserText = 1;
            snprintf(viewer.userText, sizeof viewer.userText, "%s", value ? value : "");
            break;
        case 1: viewer.userTextX = value ? atoi(value) : 0; break;
        case 2: viewer.userTextY = value ? atoi(value) : 0; break;
        case 3: {
            const float *rgb = colours[0].rgb;
            for (const Colour &c : colours)
                if (value && strcmp(value, c.name) == 0) rgb = c.rgb;
            memcpy(viewer.userTextColor, rgb, sizeof viewer.userTextColor);
            break;
        }
        default:
            fprintf(stderr, "ERROR: User-string sub-option '%s' invalid. \n", value ? value : "");
            break;
        }
    }
}

void parseTake(const char *word) {
    viewer.takeEnabled = 1;
    const char *comma = strrchr(word, ',');
    if (comma && comma[1] != '\0') {
        viewer.takeDir = strndup(word, static_cast<size_t>(comma - word));
        viewer.takeName = strdup(comma + 1);
    } else {
        // No comma, or a comma as the last character: the whole word is the
        // directory, trailing comma included.
        viewer.takeDir = strdup(word);
        viewer.takeName = strdup("vdefault");
    }
    const int next = takeNextNumber(takeSetPath(viewer.takeDir, viewer.takeName).c_str(), 1);
    if (next >= 0) viewer.takeNumber = next;
}

const char *onOff(bool enabled) { return enabled ? "ENABLED" : "DISABLED"; }
const char *orNull(const char *text) { return text ? text : "(null)"; }

}  // namespace

int viewerParseGeometry(const char *text, int *x, int *y, int *width, int *height) {
    if (!text) return 0;
    const char *p = text;
    int w = 0, h = 0, px = 0, py = 0;
    bool haveW = false, haveH = false, haveX = false, haveY = false;
    if (*p == '=') ++p;
    if (*p != '+' && *p != '-' && *p != 'x' && *p != 'X' && *p != '\0') {
        if (!(p = parseNumber(p, &w))) return 0;
        haveW = true;
    }
    if (*p == 'x' || *p == 'X') {
        if (!(p = parseNumber(p + 1, &h))) return 0;
        haveH = true;
    }
    if (*p == '+' || *p == '-') {
        if (!(p = parseNumber(p, &px))) return 0;
        haveX = true;
        if (*p == '+' || *p == '-') {
            if (!(p = parseNumber(p, &py))) return 0;
            haveY = true;
        }
    }
    if (*p != '\0') return 0;
    if (haveW) *width = w;
    if (haveH) *height = h;
    if (haveX) *x = px;
    if (haveY) *y = py;
    return 1;
}

ViewerOptions viewerParseOptions(int argc, char *argv[]) {
    ViewerOptions o;
    bool error = false;
    int c;
    while ((c = viewer_getopt::getopt(argc, argv, VIEWER_OPTSTRING)) != -1) {
        if (error) break;  // the option read after an error is dropped unread
        switch (c) {
        case 'D': o.dbPath = viewer_getopt::optarg; break;
        case 'G': o.garbageScene = viewer_getopt::optarg; break;
        case 'R': o.resourcePath = viewer_getopt::optarg; break;
        case 'S': {
            const char *name = viewer_getopt::optarg;
            for (const char *p = viewer_getopt::optarg; *p; ++p)
                if (*p == '/' || *p == '\\') name = p + 1;
            if (o.sceneCount >= VIEWER_MAX_SCENES)
                printf("ERROR: Unable to load scene '%s' - maximum %d scenes allowed\n", name,
                       VIEWER_MAX_SCENES);
            else
                o.scenes[o.sceneCount++] = name;
            break;
        }
        case 'T': parseTake(viewer_getopt::optarg); break;
        case 'a':
        case 'd':
        case 'l': viewerDisplayOption(c, viewer_getopt::optarg, &viewer.gprops, &o.patchLod); break;
        case 'b': viewer.singleBuffer = 1; break;
        case 'c': viewer.channelCommand = CHANNEL_CMD_START; break;
        case 'e': viewer.expandInstances = 1; break;
        case 'f': {
            int multiple = 0;
            if (sscanf(viewer_getopt::optarg, "%d", &multiple) == 1 && multiple > 1)
                fprintf(stderr, "Sorry, retrace multiples other than 1 are not supported on NT\n");
            break;
        }
        case 'h':
            viewerUsage(argv[0]);
            exit(-1);
        case 'i': {
            float distance;
            if (sscanf(viewer_getopt::optarg, "%f", &distance) == 1) viewer.gprops.interOcular = distance;
            break;
        }
        case 'k': viewer.keysOffInRun = 1; break;
        case 'o': animationOptimise = 0; break;
        case 'p':
            if (sscanf(viewer_getopt::optarg, "%d", &o.processCount) != 1) o.processCount = 0;
            break;
        case 's':
            o.geometry = viewer_getopt::optarg;
            viewerParseGeometry(viewer_getopt::optarg, &o.x, &o.y, &o.width, &o.height);
            break;
        case 'u': viewer.preprocessOnDraw = 1; break;
        case 'v': viewer.gprops.texture.video = 1; break;
        case 'x': viewer.stereo = 1; break;
        case 'z': parseUserText(viewer_getopt::optarg); break;
        default: error = true; break;
        }
    }

    if (!o.resourcePath) {
        const char *env = envGet(ENV_BW_RSRC);
        o.resourcePath = env ? env : VIEWER_DEFAULT_RSRC;
    }
    if (o.processCount <= 1) {
        o.processCount = 1;
        viewer.parallel = 0;
    } else {
        viewer.parallel = 1;
    }
    return o;
}

void viewerBanner(const char *programName) {
    int year = 1993;
    time_t now = time(nullptr);
    struct tm local;
    if (now != static_cast<time_t>(-1) && localtime_r(&now, &local)) year = local.tm_year + 1900;
    fprintf(stderr, "\n%s %s", programName, VIEWER_VERSION);
    fprintf(stderr, "\nCopyright (c) 1995-%d Brackwood. All rights reserved.\n", year);
    printf("Compiled on: %s\n",
           "Build=Internal Build-number=Invalid OS=NT40 --- --- -- ---- --:--:--");
    printf("\n");
}

void viewerEchoOptions(const ViewerOptions &o) {
    viewerBanner(VIEWER_TITLE);
    const BW_GraphicProps &g = viewer.gprops;
    printf("Options Specified\n");
    printf("-----------------\n");
    printf("Database:               %s\n", orNull(o.dbPath));
    if (o.sceneCount == 0) printf("Scene:                  (null)\n");
    for (int i = 0; i < o.sceneCount; ++i) printf("Scene %d:                %s\n", i + 1, o.scenes[i]);
    printf("Garbage matte scene:    %s\n", orNull(o.garbageScene));
    printf("Take recording:         %s, %s\n", orNull(viewer.takeDir), orNull(viewer.takeName));
    printf("Resource path:          %s\n", orNull(o.resourcePath));
    printf("\n");
    printf("Number of processes:    %d\n", o.processCount);
    printf("Patch precision:        %d\n", o.patchLod);
    printf("Antialiasing level:     %d\n", g.anti_lev);
    printf("Display mode:           %s\n",
           !g.material.shade ? "WIREFRAME" : g.texture.active ? "TEXTURED" : "SHADED");
    printf("Optimisations:          %s\n", onOff(animationOptimise != 0));
    // These two labels have always shown each other's switch.
    printf("Channel run:            %s\n", onOff(g.texture.video != 0));
    printf("Video texture mapping:  %s\n", onOff(viewer.channelCommand == CHANNEL_CMD_START));
    printf("Channel viewing keys:   %s\n", onOff(!viewer.keysOffInRun));
    printf("Stereo:                 %s\n", onOff(viewer.stereo != 0));
    printf("Inter-ocular distance:  %g\n", static_cast<double>(g.interOcular));
    printf("Retrace multiple:       %d\n", viewer.retraceMultiple);
    printf("Window size (x,y,w,h):  %d, %d, %d, %d\n", o.x, o.y, o.width, o.height);
    printf("Window text:            %s\n", viewer.userText);
    printf("\n");
}

void viewerPrintKeysHelp() {
    printf("\n\nKeys: \n");
    for (const char *const *line = keysHelp; *line; ++line) fputs(*line, stdout);
}

void viewerUsage(const char *programName) {
    viewerBanner(VIEWER_TITLE);
    printf("Usage: %s\n", programName);
    for (const char *const *line = viewerUsageLines; *line; ++line) fputs(*line, stdout);
    viewerPrintKeysHelp();
    viewerWaitForEnter();
}

void viewerWaitForEnter() {
    fprintf(stderr, "Press on <ENTER> to close the window\n");
    int c;
    do c = getchar(); while (c != '\n' && c != EOF);
}
