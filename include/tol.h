// The TOL layer: the thin call layer through which the viewer reaches the core.
// The start of the layer, the scenes and their swapped state, elements, the
// camera and the entry points of the draw. Status codes and the reporter are
// in tol_status.h, the handles in tol_handle.h.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <vector>

#include "animation.h"
#include "channel.h"
#include "dictionary.h"
#include "tol_handle.h"
#include "tol_status.h"

constexpr const char *TOL_CORE_VERSION = "3Dv4.00.1";  // version of the core
constexpr const char *TOL_SDK_VERSION = "SDKv4.00.1";  // newest SDK the layer serves

// Compares the numbers in two version texts in turn: 1, 0 or -1. Null is lower
// than any text; "3Dv4.00.1" and "4.0.1" are equal.
int versionCompare(const char *a, const char *b);
// Checks the core's and the caller's versions and reads TOL_VERIFY_OPTIONS once.
TOL_Status TOL_sceneInitInternal(const char *sdkVersion);

// ---------------------------------------------------------------------------
// The layer's record of its scenes. The state each scene owns (TOL_SceneState)
// is the core's, in dictionary.h.

struct TOL_UpdateListRow {
    UpdateList list;  // the scene's main update list, owned by the row; built by TOL_updatelistGet
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

// ---------------------------------------------------------------------------
// The draw through the layer (the work is the view's and the graphic side's).

struct BW_GraphicProps;

// Bounds of one model (`elem`), or of all shown models when `elem` is null,
// in world space; flat axes widened by 0.1 each way. Only types 1, 2, 4, 7
// and 10 count. Returns 1 for a box, 0 when nothing counted, 16 (reported)
// for a null scene or output.
TOL_Status TOL_scnGetBbox(TOL_Scene *scene, const TOL_Elem *elem, int selectedOnly, float *bbmin,
                          float *bbmax);
// One frame of the scene. `camera` is the camera element or null.
TOL_Status TOL_sceneDraw(TOL_Scene *scene, TOL_Elem *camera, BW_GraphicProps *gprops);
// The model under the box (x1, y1)-(x2, y2) of the viewport, in GL window
// coordinates (y upwards), as `camera` (null: the scene's own) sees it through
// a perspective. *elem receives a handle to its element, allocated with
// malloc for the caller to free, or null when nothing was hit. Needs the GL
// context current. Returns 0; 16 (reported) for a null scene, gprops or elem.
TOL_Status TOL_modelPick(TOL_Scene *scene, const TOL_Elem *camera, BW_GraphicProps *gprops, TOL_Elem **elem,
                         int x1, int y1, int x2, int y2);
// Forwarders with no scene.
TOL_Status TOL_gpropsSetSurfacePrecision(BW_GraphicProps *props, int level);
// Clears the frame: colour, and depth when shading; fog colour while fog is on.
TOL_Status TOL_grClear(BW_GraphicProps *props);
// Draws `str` with the 8 x 13 bitmap font at (x, y) of a 1000-step screen.
TOL_Status TOL_grStringDraw(const char *str, const float *color, int x, int y);
// Tessellates changed surfaces and builds the strips of the scene's models.
TOL_Status TOL_preprocessALL(TOL_Scene *scene, BW_GraphicProps *gprops);
// Merges the scene's equal materials into one each; `mergedMaterials` gets
// how many went.
TOL_Status TOL_sceneOptimizeMaterials(TOL_Scene *scene, int *mergedMaterials);
// Gives the scene's textures of one picture one list; the count of pictures,
// of textures beyond them, and the bytes of the pictures. 98 "Invalid Pic
// name" for a picture that cannot be read.
TOL_Status TOL_sceneOptimizeTexture2D(TOL_Scene *scene, int *pictures, int *mergedPictures, int *memory);

// Video texturing hardware is absent on this platform: each reports status 8
// ("OpenGL sirius functions not supported") and its own failure line, returns
// 8 and leaves the record alone; the caller switches video texturing off.
TOL_Status TOL_siriusInit(BW_GraphicProps *props);
TOL_Status TOL_siriusExit(BW_GraphicProps *props);
TOL_Status TOL_siriusProcessEvents(BW_GraphicProps *props);
// Graphic state of a new GL context, for the scene being displayed.
TOL_Status TOL_grStateInit(TOL_Scene *scene, BW_GraphicProps *props);

// The table of databases through the layer (the entry points live in the
// layer; the table itself is the database subsystem's).
TOL_Status TOL_databaseIsExistent(const char *nameOrPath, int *exists);
TOL_Status TOL_databaseLoad(const char *path, TOL_Database *handle);
TOL_Status TOL_databaseTOL2BRAK(TOL_Database handle, Database **db);
TOL_Database TOL_dbGet(const char *name);  // 0 when no database has that name
// A tool's database: by name from the database directory, else loaded from
// the path, and valid. 0, with "<tool>: no valid database '<name>'" on
// standard error, when neither gives one.
TOL_Database TOL_toolDatabase(const char *tool, const char *nameOrPath);

// Start of the layer: finds Relations.rsrc (working directory, then
// `resourcePath`) and, with `readDatabases` set, reads the database directory.
TOL_Status TOL_Init(const char *resourcePath, int readDatabases, const char *sdkVersion);

// ---------------------------------------------------------------------------
// Capture over the scenes: the first scene's setup starts the drivers, the
// others prepare lists and read through the same arena. 1 when all went through.
int channelCaptureBegin(ChannelSetup **setups, TOL_Scene *scenes, int count);
void channelCaptureEnd(ChannelSetup **setups, TOL_Scene *scenes, int count);
