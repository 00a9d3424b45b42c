// The viewer application: its one state block, the option reader and start-up.
#pragma once

#include <atomic>
#include <cstdint>

#include "graphic.h"
#include "tol.h"

struct ChannelSetup;  // channel setup of a Scene Context

constexpr int VIEWER_MAX_SCENES = 10;  // -S options that are kept
constexpr const char *VIEWER_TITLE = "BRACKWOOD Viewer";  // program name of the banner
constexpr const char *VIEWER_VERSION = "4.0";
constexpr const char *VIEWER_SDK_VERSION = "SDKv4.00.1";
constexpr const char *VIEWER_DEFAULT_RSRC = "/usr/brackwood/rsrc";

// The viewer's one block, shared by the main thread and the update thread.
// Requests in the one slot `channelCommand` to the channel run.
constexpr int32_t CHANNEL_CMD_NONE = 0;        // nothing asked
constexpr int32_t CHANNEL_CMD_START = 1;       // start capture
constexpr int32_t CHANNEL_CMD_STOP = 2;        // stop capture
constexpr int32_t CHANNEL_CMD_TAKE_START = 3;  // start take recording
constexpr int32_t CHANNEL_CMD_TAKE_STOP = 4;   // stop take recording

struct ViewerState {
    TOL_Scene sceneCtx[2];               // the two Scene Contexts; dict -1 before creation
    TOL_Elem *camera[2];                 // camera viewed in each Scene Context
    ChannelSetup *channelSetup[2];       // channel setup of each Scene Context
    uint32_t forceEval[2];               // evaluate the current frame once at the next update
    uint32_t quit;                       // tells the update thread to return
    int32_t drawIndex;                   // Scene Context the draw side owns
    int32_t updateIndex;                 // Scene Context the update side owns
    int32_t drawCpu, updateCpu;          // processor of each side; always 0 here
    int32_t processCount;                // Scene Contexts in use, 1 or 2
    int32_t channelCommand;              // CHANNEL_CMD_ request to the channel run; -c sets START
    int32_t curFrame;                    // frame being played
    int32_t startFrame, endFrame, frameStep;  // play range
    float walkSpeed, elevatorSpeed;      // from the scene's bounding box
    void *instance, *dc, *glContext, *window;  // window-system objects
    int32_t showCommand;                 // window show state handed in by the system
    int32_t takeNumber;                  // number of the next take
    char *takeDir, *takeName;            // -T directory and name
    char userText[256];                  // -z TEXT
    int32_t userTextX, userTextY;        // -z X, Y on a 1000-step screen
    float userTextColor[3];              // -z COLOR, RGB 0..1
    char *sceneName;                     // first scene's name, for take headers
    uint32_t stereo;                     // -x
    uint16_t drawFlags;                  // display flag word; bit 32 is key n
    uint16_t retraceMultiple;            // -f
    int32_t alphaBits, stencilBits, accumBits;  // what the pixel format offers
    BW_GraphicProps gprops;              // the one set of graphic properties
    BW_GraphicProps updateGprops;        // the update thread's copy of gprops, taken at each hand-over
    uint32_t singleBuffer;               // -b
    uint32_t parallel;                   // 1 when processCount is 2
    uint32_t channelsRunning, channelStopAck;  // channel run hand-shake
    uint32_t keysOffInRun;               // -k
    uint32_t playing;                    // key RIGHT sequence running
    uint32_t paused;                     // key y paused the sequence: y resumes it
    uint32_t frameShown;                 // the transport moved: the status text shows the frame
    uint32_t walkMode;                   // key W
    uint32_t adjustWalkSpeed;            // left double click in walk mode, held
    uint32_t adjustElevatorSpeed;        // right double click in walk mode, held
    uint32_t orbitMode;                  // key o held
    uint32_t orbitInterestMode;          // key O held
    uint32_t selectMode;                 // space held
    uint32_t dollyMode;                  // key p held
    uint32_t zoomPanMode;                // key z held
    uint32_t zoomIn;                     // middle button in zoom-pan mode
    uint32_t zoomOut;                    // right button in zoom-pan mode
    uint32_t panMode;                    // left button in zoom-pan mode
    uint32_t showInfo;                   // status text on
    int32_t statsLevel;                  // 0 none, 1 rates, 2 shares; the update side reads it (acquire)
    uint32_t showCross;                  // key x
    uint32_t preprocessOnDraw;           // -u
    uint32_t takeRecording, takeEnabled; // a take is being written; -T was given
    uint32_t showUserText;               // -z TEXT was given
    uint32_t listDumpKey;                // both Shift keys down: print the update lists
    uint32_t expandInstances;            // -e
    // Statistics, seconds and counts; the draw side's and the update side's own.
    double drawTimeSum, drawLast;        // frame time gathered, clock of the last frame
    int32_t drawCount;                   // frames gathered
    double drawRate;                     // frames per second
    double drawUpdateShare, clearShare, drawShare, hiUpdShare, hiPreShare;  // percent
    double drawUpdateAcc, clearAcc, drawAcc, hiUpdAcc, hiPreAcc;  // seconds gathered
    double updateTimeSum, updateLast;    // update time gathered, clock of the last update
    int32_t updateCount;                 // updates gathered
    double updateRate;                   // updates per second
    double loUpdShare, loPreShare;       // percent
    double loUpdAcc, loPreAcc;           // seconds gathered
};

extern ViewerState viewer;

// The words the two sides hand over through are read with acquire and written
// with release order; nothing else orders the two threads.
template <typename T> inline T loadAcquire(T &word) {
    return std::atomic_ref<T>(word).load(std::memory_order_acquire);
}
template <typename T> inline void storeRelease(T &word, T value) {
    std::atomic_ref<T>(word).store(value, std::memory_order_release);
}

// What the option reader hands on to start-up.
struct ViewerOptions {
    const char *dbPath = nullptr;                       // -D
    const char *scenes[VIEWER_MAX_SCENES] = {};         // -S, directory part cut off
    int sceneCount = 0;
    const char *garbageScene = nullptr;                 // -G
    const char *resourcePath = nullptr;                 // -R, BW_RSRC or the default
    int processCount = 0;                               // -p as typed
    int patchLod = 1;                                   // -l
    int x = 0, y = 0;                                   // -s position, echoed only
    int width = 720, height = 486;                      // -s size
    const char *geometry = nullptr;                     // -s text
};

// What the viewer does to a scene before drawing it, shared with the other
// programs that draw as it does (library viewer_scene, no window in it).
// -a, -d and -l: 1 when `letter` is one of them, with its argument applied.
int viewerDisplayOption(int letter, const char *arg, BW_GraphicProps *gprops, int *patchLod);
// The figures of the start-up's Texture Summary.
struct TextureSummary {
    int pictures;         // pictures after the merge
    int mergedPictures;   // textures that share another's picture
    int mergedMaterials;  // materials merged into an equal one
    int textureMemory;    // bytes of the pictures, at powers of two
};
// Merges equal materials and textures of one picture, then makes the display
// form of every model. 0 when a step failed; its status was printed.
int viewerOptimizeScene(TOL_Scene *scene, BW_GraphicProps *gprops, TextureSummary *summary);
// Bounds for culling, display mode and colour of every model; returns the
// scene's first camera (null without one). Leaves the scene current. With
// `expandInstances` (-e) its instances first become models of their own.
TOL_Elem *viewerPrepareScene(TOL_Scene *scene, int expandInstances);
// Loads one scene and prepares it as the viewer's start-up does (database,
// scene, update list, merges and display form, display switches, bounds),
// for the programs that draw a scene outside the viewer. Messages begin with
// `tool`. 1 with the scene's first camera in *camera (null without one), or
// 0 with the reason printed.
int viewerToolScene(const char *tool, const char *resourcePath, const char *database, const char *sceneName,
                    int patchLod, BW_GraphicProps *gprops, TOL_Scene *scene, TOL_Elem **camera);
// Sets the camera's aspect (width / height), keeping the current scene.
void viewerSceneAspect(TOL_Scene *scene, TOL_Elem *camera, float aspect);
// Time in seconds of a frame at the scene's frame rate (30 when it has none).
float viewerSceneTime(TOL_Scene *scene, int frame);

// The option reader's own getopt, with the standard library's names.
namespace viewer_getopt {
extern int optind;     // next argument; starts at 1
extern int opterr;     // starts at 1
extern char *optarg;   // argument of the last option
int getopt(int argc, char *const argv[], const char *optstring);
int getsubopt(char **optionp, char *const *tokens, char **valuep);
}  // namespace viewer_getopt

constexpr const char *VIEWER_OPTSTRING = "buop:a:kcvxs:i:hR:d:D:T:S:G:l:f:z:e";

void viewerInitDefaults();
ViewerOptions viewerParseOptions(int argc, char *argv[]);
// Returns 1 when the geometry text parsed, and then stores only the parts present.
int viewerParseGeometry(const char *text, int *x, int *y, int *width, int *height);
void viewerEchoOptions(const ViewerOptions &options);
void viewerBanner(const char *programName);
void viewerUsage(const char *programName);  // programName: argv[0]
void viewerWaitForEnter();
int viewerStartup(const ViewerOptions &options);
// Sets the aspect of the camera of each Scene Context, keeping the current scene.
void viewerSetAspect(float aspect);
// Connects to the window system; 0 when there is none to connect to.
int viewerRegisterClass();
// 1 with a window, or with quit posted when the window got no pixel format;
// 0 when no window could be made.
int viewerCreateWindow(const char *title, int width, int height, const char *geometry);
// Reads the server's pixel formats on a thread of their own while start-up
// goes on (after viewerRegisterClass); the window takes them. Wait joins it.
void viewerWindowWarmUp();
void viewerWindowWarmUpWait();
// The whole run from process start; returns the process exit status.
int viewerMain(int argc, char *argv[]);

// The frame loop and its two sides.
int viewerMessageLoop();          // returns when the window was closed
void viewerFrame();               // one frame on the main thread
void viewerRingStep();            // the first step of a frame
void updateThreadProc();          // body of the update thread
void updateNormal();              // the update step when no capture runs
void updateChannels();            // the update step during capture
void updateHiPriority();          // the draw side's step during capture
int channelsActive();             // reads channelsRunning and acknowledges a stop
void channelStart();
void channelStop();
void takeRecordStart();           // tells the drivers to record the next take
void takeRecordStop();
void cameraMirror();              // copies the draw side's camera to the other side
double viewerClock();             // seconds since the first call, millisecond steps
float timeFromFrame(int frame);   // frame / frames per second of the scene
void viewerStartSequence();       // key RIGHT
void viewerStopSequence();
// Frame transport: a step of `frames` frames (the play range holds it), a
// jump to a frame, pause and resume of a playing sequence.
void viewerStepFrames(int frames);
void viewerGotoFrame(int frame);
void viewerPauseSequence();
long viewerFrameNumber();         // viewerFrame calls so far
int viewerStartUpdateThread();    // 0 when the thread could not be started

// Status text and statistics.
void viewerStatusText();
void statsDrawTick(double now);   // one more frame on the draw side
void statsDrawRates();            // rates and shares once a second has gathered
void statsUpdateTick(double now);
void statsUpdateRates();
void statsDrawIdle();             // a frame without statistics: start afresh
void statsUpdateIdle();           // the same for an update step

// Keys: platform key codes, Shift state as read at the event.
int viewerKeyGate();
void onKeyDown(int keyCode, int shift);
void onKeyUp(int keyCode, int shift);

// Mouse: buttons 0 left, 1 middle, 2 right; positions in pixels with y growing
// upwards. A drag comes only while a button is down; `messagePending` ends the
// walk loop, which runs frames inside the drag.
void onMousePress(int button, int x, int y, int doubleClick);
void onMouseRelease(int button);
void onMouseDrag(int x, int y, int width, int height, int left, int middle, int right, int control,
                 int (*messagePending)());
// On a mouse of two buttons the left one with Control is the middle one.
int viewerButtonOf(int button, int control, int buttonCount);
// Selects by a pick in Scene Context i at (x, y), by the button's rule.
void pickElement(int button, int x, int y, int i);

extern const char *const viewerUsageLines[];  // null-terminated
extern const char *const keysHelp[];          // null-terminated
extern const char *const transportHelp[];     // the transport keys, after keysHelp on `?`; null-terminated
void viewerPrintKeysHelp();
