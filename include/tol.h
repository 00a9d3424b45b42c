// The TOL layer: the thin call layer through which the viewer reaches the core.
// Status codes, the reporter, run-time verification, handles and the start of
// the layer.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <vector>

#include "animation.h"

using TOL_Status = int32_t;  // 0 for no error; an index into the status table

constexpr int TOL_STATUS_COUNT = 150;  // rows of the status table

// Message classes; also the index of the class word in the reporter's prefix.
enum TOL_MessageClass : uint32_t {
    TOL_CLASS_STATUS = 0,
    TOL_CLASS_MESSAGE = 1,
    TOL_CLASS_WARNING = 2,
    TOL_CLASS_ERROR = 3,
    TOL_CLASS_MODE = 4,
};

// Where reports go.
enum TOL_ReportRoute : uint32_t {
    TOL_ROUTE_STDOUT = 0,
    TOL_ROUTE_STDERR = 1,
    TOL_ROUTE_CALLBACK = 2,
};

using TOL_ReportCallback = void (*)(TOL_Status code, uint32_t messageClass, const char *text);

// One row of the status table.
struct TOL_StatusRow {
    uint32_t code;          // equal to the row's index
    uint32_t messageClass;  // TOL_MessageClass
    const char *format;     // printf format; for code 124 the scratch buffer
};

extern char TOL_SCRATCH[1024];  // scratch buffer that code 124 prints

// Reporter: prints "BW_<CLASS>: " and the formatted row, returns `code`.
TOL_Status tol_report(TOL_Status code, ...);
const char *tol_statusFormat(TOL_Status code);    // null for a code outside the table
uint32_t tol_statusClass(TOL_Status code);        // TOL_CLASS_ERROR outside the table
const char *tol_classWord(uint32_t messageClass);  // "STATUS" ... "MODE"
uint32_t tol_setMinimumClass(uint32_t messageClass);  // returns the old value
uint32_t tol_getMinimumClass();
uint32_t tol_setReportRoute(uint32_t route, TOL_ReportCallback callback);  // returns the old route

// Run-time verification word.
enum TOL_VerifyBit : uint32_t {
    TOL_VERIFY_MODEL = 1,       // tol_modelVerify: element of a model chapter
    TOL_VERIFY_ELEMENT = 32,    // tol_elementVerify: element, scene and dictionary agree
    TOL_VERIFY_DATABASE = 128,  // database handle range check
    TOL_VERIFY_CAMERA = 256,    // camera check: element of the camera chapter
};
int tol_verifyEnabled(uint32_t bit);
void tol_verifySet(uint32_t bits);
void tol_verifyClear(uint32_t bits);
uint32_t tol_verifyWord();
void tol_verifyInit();  // reads TOL_VERIFY_OPTIONS

// Messages of the core that are not status codes. With `noInterface` set (always
// in the viewer) each goes to standard error with a newline, whatever its class.
extern int noInterface;  // the core runs without a user interface
void msgShow(const char *text, uint32_t messageClass);
void msgStatus(const char *text);
void msgMessage(const char *text);
void msgError(const char *text);

// Handles that cross the layer.
using TOL_Database = int32_t;  // one-based index into the table of databases; 0 for none

struct TOL_Scene {
    uint32_t dict;          // index of the scene's Dictionary; -1 before creation
    uint32_t selectList;    // index of the scene's select list
    uint32_t tagList;       // index of the second select list
    uint32_t chapters[33];  // chapter ids of the scene's dictionary
};

struct TOL_Elem {
    uint32_t dict;     // dictionary of the element
    uint32_t chapter;  // chapter id
    uint32_t index;    // place in the chapter's list
    int32_t group;     // -1 for none
    uint32_t reserved; // always 0
};

struct TOL_Vector {
    float x, y, z;
};

constexpr const char *TOL_CORE_VERSION = "3Dv4.00.1";  // version of the core
constexpr const char *TOL_SDK_VERSION = "SDKv4.00.1";  // newest SDK the layer serves

// Compares the numbers in two version texts in turn: 1, 0 or -1. Null is lower
// than any text; "3Dv4.00.1" and "4.0.1" are equal.
int versionCompare(const char *a, const char *b);
// Checks the core's and the caller's versions and reads TOL_VERIFY_OPTIONS once.
TOL_Status TOL_sceneInitInternal(const char *sdkVersion);

// ---------------------------------------------------------------------------
// Core state that each scene owns; the calling thread reaches its current scene's.

struct ChannelSetup;

struct TOL_PlayCtrl {
    int32_t startFrame = 1;         // first frame of the play range
    int32_t endFrame = 100;         // last frame of the play range
    int32_t frameStep = 1;          // frames advanced per update
    int32_t currentFrame = 1;       // frame now shown
    int32_t pause = 0;              // PAUSE of the scene file; no default of its own
    float framesPerSecond = 30.0f;  // frame rate of the scene
};

struct TOL_RenderCtrl {
    int32_t words[16] = {};  // carried for the renderer, not read by the viewer
};

struct TOL_AudioContainer {
    int32_t words[3] = {};                  // leading words
    float rates[2] = {2.0f, 30.0f};         // two f32 of the fourth word
    int32_t defaults[4] = {1, 1, 100, 1};   // integer defaults behind them
    int32_t tail[4] = {};                   // the rest of the block
};

struct TOL_UpdateListRow {
    UpdateList list;  // the scene's main update list, owned by the row; built by TOL_updatelistGet
};

constexpr int TOL_MANIPULATION_FLAGS = 15;

// The core's state of one scene. The scene owns it; a thread reaches it through
// its current scene (sceneStateCurrent()), so two threads on two scenes never
// share a byte of it and the swap copies nothing.
struct TOL_SceneState {
    TOL_PlayCtrl playCtrl;                   // play range, step, frame and rate
    TOL_RenderCtrl renderCtrl;               // render control
    uint16_t actionCtrl = 0;                 // action control word
    std::array<uint16_t, TOL_MANIPULATION_FLAGS> manipulationFlags{};  // global manipulation flags
    TOL_AudioContainer audioContainer;       // audio container, carried and not played
    void *history = nullptr;                 // history of the scene
    ChannelSetup *channelSetup = nullptr;    // channel setup (set by the capture run)
};

struct TOL_Sid {
    uint32_t firstDict;                      // dictionary that existed at initialisation
    uint32_t firstSelectList;                // its select list
    uint32_t firstTagList;                   // its second select list
    uint32_t chapters[33];                   // chapter ids
    int32_t sceneCount;                      // scenes beyond the initial one
    std::vector<TOL_UpdateListRow> updateLists;    // per scene: main update list
    // Per scene: its state. A deque, so that a row stays where it is while
    // later scenes are added and a thread's pointer to it stays good.
    std::deque<TOL_SceneState> states;
    int32_t cameraCount;                           // rows of cameras
    std::vector<void *> cameras;                   // per scene: camera element used by the core
};

// The calling thread's scratch state of an evaluation or a load: saved and put
// back around each use, never seen by another thread.
extern thread_local int32_t g_curTagList;      // current second select list
extern thread_local uint32_t g_runFlags;       // the core's run flags; bit 0 is masked during a load
extern thread_local int g_loadMatteScene;      // the scene being loaded is a garbage matte scene
extern thread_local int g_evalFromList;        // evaluation walks the update list
extern thread_local int32_t g_currentFrame;    // the core's current frame

TOL_Sid *tol_sidGet();  // null before the first TOL_sceneInitInternal

// Select lists: numbered, with in-use flags; a scene with dictionary d owns 2d and 2d+1.
int selectListCreate();              // number of a new list
int selectListCount();
int selectListInUse(int list);
void selectListAdd(int list, const TOL_Elem &elem);
int selectListSize(int list);
// 1 when the list holds the element (chapter, index) of dictionary slot `dict`.
int selectListHas(int list, uint32_t dict, uint32_t chapter, uint32_t index);
// Puts an element of `dict` on the calling thread's current select list.
void selectListAddCurrent(Dictionary *dict, int chapter, int index);

TOL_Status TOL_sceneCreate(TOL_Scene *scene);
TOL_Status TOL_sceneLoad(TOL_Database *db, const char *name, TOL_Scene *scene);
TOL_Status TOL_sceneGetCurrent(TOL_Scene *scene);
TOL_Status TOL_sceneSetCurrent(TOL_Scene *scene);
TOL_Status TOL_threadStorageInit(TOL_Scene *scene);
TOL_Status tol_sceneSwapIn(TOL_Scene *scene, TOL_Scene *saved, uint16_t *swapped);
void tol_dictMakeCurrent(int32_t dict);

// The one swap of a TOL_ call that names a scene: the scene is made the calling
// thread's current one for the call, and the previous one is put back by
// finish(), or by the destructor when the call leaves early.
class TolSceneFrame {
public:
    explicit TolSceneFrame(TOL_Scene *scene) { status_ = tol_sceneSwapIn(scene, &saved_, &swapped_); }
    TolSceneFrame(const TolSceneFrame &) = delete;
    TolSceneFrame &operator=(const TolSceneFrame &) = delete;
    ~TolSceneFrame() { finish(0); }
    TOL_Status status() const { return status_; }  // the swap's own result
    bool swapped() const { return swapped_ != 0; }   // another scene was current before
    // The work's status if that is not 0, else the swap back's.
    TOL_Status finish(TOL_Status work) {
        if (swapped_) {
            TOL_Status back = tol_sceneSwapIn(&saved_, nullptr, &swapped_);
            if (work == 0) work = back;
        }
        return work;
    }

private:
    TOL_Scene saved_{};
    uint16_t swapped_ = 0;
    TOL_Status status_ = 0;
};
int tol_sceneIsValid(const TOL_Scene *scene);
TOL_Status tol_elementGetLatestVersion(const char *name, struct Database *db,
                                       const char *chapterName, char **latest);
TOL_Status TOL_updatelistGet(TOL_Scene *scene);
TOL_Status TOL_updatelistEvalScene(TOL_Scene *scene, float time);
TOL_UpdateListRow *tol_sidUpdateList(const TOL_Scene *scene);
TOL_SceneState *tol_sidState(const TOL_Scene *scene);  // the scene's state record
TOL_RenderCtrl *tol_sidRenderCtrl(const TOL_Scene *scene);
TOL_PlayCtrl *tol_sidPlayCtrl(const TOL_Scene *scene);
uint16_t *tol_sidActionCtrl(const TOL_Scene *scene);
void **tol_sidCamera(const TOL_Scene *scene);

// ---------------------------------------------------------------------------
// Elements through the layer

TOL_Status tol_elementVerify(const TOL_Scene *scene, const TOL_Elem *elem);
TOL_Status tol_modelVerify(const TOL_Scene *scene, const TOL_Elem *elem);
TOL_Status tol_cameraVerify(const TOL_Scene *scene, const TOL_Elem *elem);

// Camera navigation. A null camera is the scene's first; a camera whose
// `active` word is 0 is left alone. Angles in radians; pan in fractions of the
// view; zoom in for a direction of 0 or more.
TOL_Status TOL_cameraOrbit(TOL_Scene *scene, const TOL_Elem *camera, float dTheta, float dPhi);
TOL_Status TOL_cameraIntOrbit(TOL_Scene *scene, const TOL_Elem *camera, float dTheta, float dPhi);
TOL_Status TOL_cameraWalk(TOL_Scene *scene, const TOL_Elem *camera, float distance);
TOL_Status TOL_cameraElevate(TOL_Scene *scene, const TOL_Elem *camera, float distance);
TOL_Status TOL_cameraResetTilt(TOL_Scene *scene, const TOL_Elem *camera);
TOL_Status TOL_cameraPan(TOL_Scene *scene, const TOL_Elem *camera, float dx, float dy);
TOL_Status TOL_cameraZoom(TOL_Scene *scene, const TOL_Elem *camera, float direction);
TOL_Status TOL_cameraDolly(TOL_Scene *scene, const TOL_Elem *camera, float distance);
// Frames the scene's models, or only the selected ones: the interest goes to
// the middle of their box, and the camera, keeping its direction, backs away
// until every point is in view, then a tenth further. Nothing happens without
// a box or a point.
TOL_Status TOL_cameraFitScene(TOL_Scene *scene, const TOL_Elem *camera, int selectedOnly);
// The attribute store: one saved copy per camera element index, shared by
// the scene contexts (the last to store wins).
TOL_Status TOL_cameraStoreAttributes(TOL_Scene *scene, const TOL_Elem *camera);
TOL_Status TOL_cameraRestoreAttributes(TOL_Scene *scene, const TOL_Elem *camera);
// The central handle check; `dictOverride` -1 for none, `wantChapter` -1 for any.
// Outputs may be null. With `report` 0 the codes come back unprinted.
TOL_Status tol_elemResolve(const TOL_Elem *elem, int32_t dictOverride, struct Dictionary **dict,
                           struct Chapter **chapter, struct Element **entry,
                           int32_t wantChapter, const char *caller, int report);
TOL_Elem *TOL_elemGetFirstInChap(uint32_t dict, uint32_t chapter, int skipHidden, TOL_Elem *dest);
TOL_Elem *TOL_elemGetNextInChap(const TOL_Elem *elem, int skipHidden, TOL_Elem *dest);
TOL_Elem *TOL_elemGetRoot(const TOL_Elem *elem, TOL_Elem *dest);
// Values are f32 arrays; get (re)allocates *values with malloc.
TOL_Status TOL_elemGetParams(const TOL_Elem *elem, int param, int byRelation, int *count,
                             float **values);
TOL_Status TOL_elemSetParams(const TOL_Elem *elem, int param, int byRelation, int count,
                             const float *values);
TOL_Status TOL_elemSetDisplayMode(const TOL_Elem *elem, int mode);
TOL_Status TOL_elemDraw(uint32_t dict, const TOL_Elem *elem, uint32_t chapter, int scope,
                        int state, int clearFirst);

// Video texturing hardware is absent on this platform: each reports status 8.
struct BW_GraphicProps;
TOL_Status TOL_siriusInit(BW_GraphicProps *props);
TOL_Status TOL_siriusExit(BW_GraphicProps *props);
TOL_Status TOL_siriusProcessEvents(BW_GraphicProps *props);
// Graphic state of a new GL context, for the scene being displayed.
TOL_Status TOL_grStateInit(TOL_Scene *scene, BW_GraphicProps *props);

// Start of the layer: finds Relations.rsrc (working directory, then
// `resourcePath`) and, with `readDatabases` set, reads the database directory.
TOL_Status TOL_Init(const char *resourcePath, int readDatabases, const char *sdkVersion);
