// Scene lifecycle: the per-scene store of the core's globals (tol_sid), the swap
// that moves them in and out, the current scene of each thread, scene creation.
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "camera.h"
#include "database.h"
#include "dictionary.h"
#include "tol.h"
#include "tol_internal.h"
#include "animation.h"
#include "bw_env.h"

thread_local int32_t g_curTagList = 0;
thread_local uint32_t g_runFlags = 0;
thread_local int g_loadMatteScene = 0;
thread_local int g_evalFromList = 0;
thread_local int32_t g_currentFrame = 1;

namespace {

TOL_Sid *sid = nullptr;
// Set while tol_sceneSwapIn calls TOL_sceneSetCurrent. Each thread swaps its own
// scene, so the flag is the thread's.
thread_local uint16_t swapping = 0;

struct SelectList {
    std::vector<TOL_Elem> items;  // selected elements
    bool inUse;                   // list number taken
};
std::vector<SelectList> selectLists;

size_t row(const TOL_Scene *scene) { return scene->dict; }

// History of a scene: the viewer only carries it around.
struct History {
    int32_t depth;  // steps kept
};

// Slot allocation for a new scene. `first` is the initial scene, which takes
// over the state the thread worked on before any scene was current.
TOL_Status slotAllocate(bool first) {
    TOL_Sid &s = *sid;
    size_t n = static_cast<size_t>(s.sceneCount) + 1;
    try {
        if (first) {
            s.cameras.resize(1, nullptr);
            s.cameraCount = 1;
        }
        s.states.resize(n, first ? sceneStateCurrent() : TOL_SceneState{});
    } catch (const std::bad_alloc &) {
        return tol_report(TOL_ST_OUT_OF_MEMORY, "Insufficient memory for scene play, render, and action control storage.");
    }
    try {
        s.updateLists.resize(n);
    } catch (const std::bad_alloc &) {
        return tol_report(TOL_ST_OUT_OF_MEMORY, "Insufficient memory for scene updateList storage.");
    }
    try {
        // Histories live as long as the process; this list keeps them all.
        static std::vector<std::unique_ptr<History>> allHistories;
        allHistories.push_back(std::make_unique<History>(History{0}));
        s.states[n - 1].history = allHistories.back().get();
    } catch (const std::bad_alloc &) {
        return tol_report(TOL_ST_OUT_OF_MEMORY, "Insufficient memory for scene history storage.");
    }
    ++s.sceneCount;
    return 0;
}

// Creates the working camera of a scene in its CAMERAS chapter.
int32_t cameraElementCreate(Dictionary *dict, const char *name, int32_t *index) {
    ElemName *elemName = elemNameNew();
    elemName->name = name;
    elemName->fullName = elemNameFormat(*elemName);
    Camera *camera = new Camera;
    camera->kind = CAMERA_KIND_WORKING;
    *index = elemAdd(dict, CHP_CAMERAS, elemName, camera, nullptr, 0, 0);
    return *index;
}

void copyChapterIds(uint32_t *chapters) {
    for (int i = 0; i < 33; ++i) chapters[i] = static_cast<uint32_t>(i);
}

}  // namespace

TOL_Sid *tol_sidGet() { return sid; }

int selectListCreate() {
    selectLists.push_back({{}, true});
    return static_cast<int>(selectLists.size()) - 1;
}
int selectListCount() { return static_cast<int>(selectLists.size()); }
int selectListInUse(int list) {
    return list >= 0 && list < selectListCount() && selectLists[static_cast<size_t>(list)].inUse;
}
void selectListAdd(int list, const TOL_Elem &elem) {
    if (selectListInUse(list)) selectLists[static_cast<size_t>(list)].items.push_back(elem);
}
int selectListSize(int list) {
    return selectListInUse(list) ? static_cast<int>(selectLists[static_cast<size_t>(list)].items.size()) : 0;
}
int selectListHas(int list, uint32_t dict, uint32_t chapter, uint32_t index) {
    if (!selectListInUse(list)) return 0;
    for (const TOL_Elem &e : selectLists[static_cast<size_t>(list)].items)
        if (e.dict == dict && e.chapter == chapter && e.index == index) return 1;
    return 0;
}
void selectListAddCurrent(Dictionary *dict, int chapter, int index) {
    ThreadStorage *ts = threadStorage();
    int slot = ts->curDict;
    if (dictGet(slot) != dict)
        for (slot = 0; slot < dictCount() && dictGet(slot) != dict; ++slot) continue;
    if (slot >= dictCount()) return;  // a dictionary outside the layer's has no select list
    selectListAdd(ts->curSelectList, TOL_Elem{static_cast<uint32_t>(slot), static_cast<uint32_t>(chapter),
                                              static_cast<uint32_t>(index), -1, 0});
}

int tol_sceneIsValid(const TOL_Scene *scene) {
    if (!scene) return 0;
    int32_t d = static_cast<int32_t>(scene->dict);
    return d >= 0 && d < dictCount() && dictInUse(d) &&
           selectListInUse(static_cast<int>(scene->selectList)) &&
           selectListInUse(static_cast<int>(scene->tagList)) && sid &&
           static_cast<size_t>(d) < sid->states.size();
}

TOL_Status tol_coreInit() {
    if (dictCount() > 0) return 0;
    int slot = dictAllocSlot();
    if (slot < 0) return tol_report(TOL_ST_ERROR_TEXT, "Error allocating memory.");
    dictCreateChapters(dictGet(slot), nullptr, 1);
    dictEnsureScene(dictGet(slot));
    ThreadStorage *ts = threadStorage();
    ts->curDict = slot;
    ts->curSelectList = 0;
    return 0;
}

TOL_Status tol_defaultObjectsCreate() {
    // The first select list, the default camera on it, and the second list.
    int first = selectListCreate();
    Dictionary *dict = dictGet(0);
    int32_t index = -1;
    if (cameraElementCreate(dict, "Perspective_def", &index) < 0)
        return tol_report(TOL_ST_ERROR_TEXT, "Error allocating memory.");
    selectListAdd(first, TOL_Elem{0, CHP_CAMERAS, static_cast<uint32_t>(index), -1, 0});
    threadStorage()->curCamera = elemGet(dict, CHP_CAMERAS, index)->data;
    g_curTagList = selectListCreate();
    return 0;
}

TOL_Status tol_sidCreate() {
    if (sid) return 0;
    sid = new (std::nothrow) TOL_Sid{};
    if (!sid) return tol_report(TOL_ST_ERROR_TEXT, "Error allocating memory.");
    TOL_Status status = slotAllocate(true);
    if (status) return status;
    ThreadStorage *ts = threadStorage();
    sid->firstDict = static_cast<uint32_t>(ts->curDict);
    sid->firstSelectList = static_cast<uint32_t>(ts->curSelectList);
    sid->firstTagList = static_cast<uint32_t>(g_curTagList);
    sid->cameras[0] = ts->curCamera;
    copyChapterIds(sid->chapters);
    if (static_cast<size_t>(ts->curDict) < sid->states.size())
        ts->scene = &sid->states[static_cast<size_t>(ts->curDict)];
    return 0;
}

TOL_Status TOL_sceneCreate(TOL_Scene *scene) {
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_sceneCreate(): scn:");
    if (!sid) return tol_report(TOL_ST_ERROR_TEXT, "TOL_sceneCreate(): the layer is not initialised");
    int slot = dictAllocSlot();
    if (slot < 0) return tol_report(TOL_ST_ERROR_TEXT, "TOL_sceneCreate(): no dictionary");
    Dictionary *dict = dictGet(slot);
    dictCreateChapters(dict, nullptr, 1);
    dictEnsureScene(dict);
    scene->dict = static_cast<uint32_t>(slot);
    copyChapterIds(scene->chapters);

    int32_t savedTag = g_curTagList;
    scene->selectList = static_cast<uint32_t>(selectListCreate());
    scene->tagList = static_cast<uint32_t>(selectListCreate());
    TOL_Status status = slotAllocate(false);
    g_curTagList = savedTag;
    if (status) return status;

    // The scene's working camera, "Camera1".
    if (sid->cameras.size() < static_cast<size_t>(slot) + 1) {
        sid->cameras.resize(static_cast<size_t>(slot) + 1, nullptr);
        sid->cameraCount = static_cast<int32_t>(sid->cameras.size());
    }
    int32_t index = -1;
    if (cameraElementCreate(dict, "Camera1", &index) < 0)
        return tol_report(TOL_ST_ERROR_TEXT, "Error allocating memory.");
    Element *elem = elemGet(dict, CHP_CAMERAS, index);
    sid->cameras[static_cast<size_t>(slot)] = elem->data;
    selectListAdd(static_cast<int>(scene->selectList),
                  TOL_Elem{scene->dict, CHP_CAMERAS, static_cast<uint32_t>(index), -1, 0});
    return 0;
}

// The state of the current scene is the scene's own record, which the thread
// reaches by a pointer: there is nothing to save, and making a scene current
// copies nothing that another thread could be reading.
TOL_Status TOL_sceneGetCurrent(TOL_Scene *scene) {
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_sceneGetCurrent():scn:");
    ThreadStorage *ts = threadStorage();
    scene->dict = static_cast<uint32_t>(ts->curDict);
    scene->selectList = static_cast<uint32_t>(ts->curSelectList);
    scene->tagList = static_cast<uint32_t>(g_curTagList);
    copyChapterIds(scene->chapters);
    return 0;
}

TOL_Status TOL_sceneSetCurrent(TOL_Scene *scene) {
    if (!tol_sceneIsValid(scene))
        return tol_report(TOL_ST_INVALID_SCENE, "TOL_sceneSetCurrent(): Invalid Scene referenced");
    ThreadStorage *ts = threadStorage();
    if (ts->curSelectList == static_cast<int32_t>(scene->selectList)) return 0;
    if (!swapping) {
        TOL_Scene local;
        TOL_Status status = TOL_sceneGetCurrent(&local);
        if (status) return status;
    }
    size_t r = row(scene);
    ts->curDict = static_cast<int32_t>(scene->dict);
    ts->curSelectList = static_cast<int32_t>(scene->selectList);
    ts->scene = &sid->states[r];
    g_curTagList = static_cast<int32_t>(scene->tagList);
    if (r < sid->cameras.size()) ts->curCamera = sid->cameras[r];
    return 0;
}

TOL_Status tol_sceneSwapIn(TOL_Scene *scene, TOL_Scene *saved, uint16_t *swapped) {
    if (saved) {
        if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "new_scn");
        if (!swapped) return tol_report(TOL_ST_NULL_ARGUMENT, "swapped");
        *swapped = 0;
        ThreadStorage *ts = threadStorage();
        if (ts->curDict == static_cast<int32_t>(scene->dict) &&
            ts->curSelectList == static_cast<int32_t>(scene->selectList))
            return 0;
        TOL_Status status = TOL_sceneGetCurrent(saved);
        if (status) return status;
        swapping = 1;
        status = TOL_sceneSetCurrent(scene);
        swapping = 0;
        if (status == 0) *swapped = 1;
        return status;
    }
    swapping = 1;
    TOL_Status status = TOL_sceneSetCurrent(scene);
    swapping = 0;
    if (status == 0 && swapped) *swapped = 0;
    return status;
}

void tol_dictMakeCurrent(int32_t dict) {
    if (dict < 0 || dict >= dictCount()) tol_report(TOL_ST_INVALID_DICTIONARY, "Attempt to convert invalid TOL_ElmDct.");
    if (dict > 0) {
        ThreadStorage *ts = threadStorage();
        ts->curDict = dict;
        ts->curSelectList = 2 * dict;
        if (sid && static_cast<size_t>(dict) < sid->states.size())
            ts->scene = &sid->states[static_cast<size_t>(dict)];
        g_curTagList = 2 * dict + 1;
    }
}

TOL_Status TOL_threadStorageInit(TOL_Scene *scene) {
    if (!tol_sceneIsValid(scene))
        return tol_report(TOL_ST_INVALID_SCENE, "TOL_threadStorageInit(): Invalid Scene referenced");
    ThreadStorage *ts = threadStorage();
    ts->curDict = -1;
    ts->curSelectList = -1;
    ts->scene = nullptr;
    TOL_Status status = TOL_sceneSetCurrent(scene);
    if (status) tol_report(TOL_ST_ERROR_TEXT, "TOL_threadStorageInit()");
    return status;
}

namespace {
template <typename Rows> typename Rows::value_type *sidRow(Rows &rows, const TOL_Scene *scene) {
    if (!tol_sceneIsValid(scene) || row(scene) >= rows.size()) return nullptr;
    return &rows[row(scene)];
}
}  // namespace

TOL_UpdateListRow *tol_sidUpdateList(const TOL_Scene *s) { return sid ? sidRow(sid->updateLists, s) : nullptr; }
TOL_SceneState *tol_sidState(const TOL_Scene *s) { return sid ? sidRow(sid->states, s) : nullptr; }
TOL_RenderCtrl *tol_sidRenderCtrl(const TOL_Scene *s) {
    TOL_SceneState *state = tol_sidState(s);
    return state ? &state->renderCtrl : nullptr;
}
TOL_PlayCtrl *tol_sidPlayCtrl(const TOL_Scene *s) {
    TOL_SceneState *state = tol_sidState(s);
    return state ? &state->playCtrl : nullptr;
}
uint16_t *tol_sidActionCtrl(const TOL_Scene *s) {
    TOL_SceneState *state = tol_sidState(s);
    return state ? &state->actionCtrl : nullptr;
}
void **tol_sidCamera(const TOL_Scene *s) { return sid ? sidRow(sid->cameras, s) : nullptr; }

TOL_Status TOL_updatelistGet(TOL_Scene *scene) {
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_updatelistGet(): scn:");
    if (!tol_sceneIsValid(scene)) return tol_report(TOL_ST_INVALID_SCENE, "Invalid Scene referenced");
    TolSceneFrame frame(scene);
    TOL_Status status = frame.status();
    if (status == 0) {
        Dictionary *dict = dictGet(static_cast<int>(scene->dict));
        // Built in the dictionary's place, handed to the scene's row, and the
        // dictionary's own list put back: each call yields a list of its own.
        UpdateList saved = dict->update;
        dict->update = UpdateList{};
        if (updatelistBuild(dict, &dict->update, 0, 0)) {
            TOL_UpdateListRow *row = tol_sidUpdateList(scene);
            updatelistClear(&row->list);
            row->list = dict->update;
            // A debugging aid: the list as the scene will walk it.
            if (envGet(ENV_BW_UPDATE_LIST_DUMP))
                updatelistPrint(stderr, dict, &row->list, 1, "MAIN UPDATE LIST");
        } else {
            updatelistClear(&dict->update);
            const UpdateFailure *at = updatelistLastFailure();
            status = tol_report(TOL_ST_CYCLE_DETECTED, "TOL_updatelistGet():", at->chapter, at->element, at->group);
        }
        dict->update = saved;
    }
    return frame.finish(status);
}

TOL_Status TOL_updatelistEvalScene(TOL_Scene *scene, float time) {
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_updatelistEvalScene(): scn:");
    TolSceneFrame frame(scene);
    TOL_Status status = frame.status();
    if (status == 0) {
        int32_t savedFrame = g_currentFrame;
        float rate = sceneStateCurrent().playCtrl.framesPerSecond;
        double frames = static_cast<double>(time) * rate;
        g_currentFrame = static_cast<int32_t>(frames < 0 ? frames - 0.5 : frames + 0.5);
        g_evalFromList = 1;
        Dictionary *dict = dictGet(static_cast<int>(scene->dict));
        UpdateList saved = dict->update;
        dict->update = tol_sidUpdateList(scene)->list;
        updatelistEval(dict, &dict->update, time);
        dict->update = saved;
        g_evalFromList = 0;
        g_currentFrame = savedFrame;
    }
    return frame.finish(status);
}
