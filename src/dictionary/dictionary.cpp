// Dictionary slots, the per-thread current state, chapters, and the
// dictionary-wide steps (default scene, clean-up after a load).
#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "dict_internal.h"
#include "bw_env.h"

// ---------------------------------------------------------------------------
// Environment switches

namespace {

int s_loadOptim = -1;      // -1 not read yet
int s_legacyLoader = -1;   // -1 not read yet

bool readOnce(int &cached, EnvVar variable) {
    if (cached < 0) cached = envIsSet(variable);
    return cached != 0;
}

}  // namespace

bool dictLoadOptim() { return readOnce(s_loadOptim, ENV_BW_LOAD_OPTIM); }
bool dictLegacyLoader() { return readOnce(s_legacyLoader, ENV_BW_NEO_LEGACYLOADER); }

void dictEnvReset() {
    s_loadOptim = -1;
    s_legacyLoader = -1;
    envReset();
}

// ---------------------------------------------------------------------------
// Thread storage

ThreadStorage *threadStorage() {
    thread_local ThreadStorage storage{0, 0, nullptr};
    return &storage;
}

TOL_SceneState &sceneStateCurrent() {
    thread_local TOL_SceneState own;
    TOL_SceneState *scene = threadStorage()->scene;
    return scene ? *scene : own;
}

// ---------------------------------------------------------------------------
// Slots

namespace {

// Dictionaries are never given back to the heap, so a pointer to one stays
// good while other slots come and go. The table itself outlives static
// destruction: a scene lives until the process ends.
std::vector<Dictionary *> &slots() {
    static auto *table = new std::vector<Dictionary *>;
    return *table;
}
std::vector<uint8_t> s_inUse;

}  // namespace

int dictAllocSlot() {
    int slot = 0;
    while (slot < dictCount() && s_inUse[slot]) ++slot;
    if (slot == dictCount()) {
        Dictionary *dict = new (std::nothrow) Dictionary;
        if (!dict) return -1;
        slots().push_back(dict);
        s_inUse.push_back(0);
    }
    dictInit(slots()[slot]);
    s_inUse[slot] = 1;
    return slot;
}

bool dictFreeSlot(int slot) {
    if (!dictInUse(slot) || slot == threadStorage()->curDict) return false;
    dictFree(slots()[slot], 0);
    s_inUse[slot] = 0;
    return true;
}

Dictionary *dictGet(int slot) { return dictInUse(slot) ? slots()[slot] : nullptr; }

int dictCount() { return static_cast<int>(slots().size()); }

bool dictInUse(int slot) { return slot >= 0 && slot < dictCount() && s_inUse[slot]; }

Dictionary *dictCurrent() { return dictGet(threadStorage()->curDict); }

// ---------------------------------------------------------------------------
// Dictionary life

void dictInit(Dictionary *dict) {
    if (dict) *dict = Dictionary{};
}

int dictCreateChapters(Dictionary *dict, int32_t *ids, int mainFlag) {
    if (!dict || dict->chapterCount > 0) return 0;
    dict->chapters.resize(CHAPTER_COUNT);
    for (const ChapterRow &row : g_chapterTable) {
        Chapter &chapter = dict->chapters[row.id];
        chapter.name = row.dir;
        chapter.kind = static_cast<uint16_t>(row.kind);
        chapter.suffix = row.suffix ? row.suffix : "";
        if (ids) ids[row.id] = row.id;
    }
    dict->chapterCount = CHAPTER_COUNT;
    // The main dictionary lists by full name in its first view; a private one
    // in its second.
    if (mainFlag) {
        dict->list1.sortKey = 9;
        dict->list1.viewD[2] = 1;
    } else {
        dict->list2.sortKey = 9;
        dict->list2.viewD[2] = 1;
        dict->list1.viewD[2] = 0;
    }
    return 1;
}

namespace {

void subSceneListFree(SubSceneList &list) {
    for (int i = 0; i < list.count; ++i)
        relGroupsFree(list.entries[i].groups, list.entries[i].count);
    free(list.entries);
    list = SubSceneList{};
}

}  // namespace

void updatelistClear(UpdateList *list) {
    if (!list) return;
    for (int32_t i = 0; i < list->count; i++) {
        free(list->records[i].sources);
        free(list->records[i].extra);
    }
    free(list->records);
    *list = UpdateList{};
}

void dictFree(Dictionary *dict, int keepNames) {
    if (!dict) return;
    sceneDataFree(dict);
    for (Chapter &chapter : dict->chapters) chapterFree(&chapter, keepNames);
    updatelistClear(&dict->update);
    updatelistClear(&dict->update2);
    for (SubSceneList &list : dict->lists) subSceneListFree(list);
    dictInit(dict);
}

namespace {

void elementFree(Element &elem, int keepNames) {
    if (!(keepNames && elem.selected)) elemNameFree(elem.name);
    relGroupsFree(elem.childGroups, elem.childGroupCount);
    relGroupsFree(elem.parentGroups, elem.parentGroupCount);
    if (elem.extra) free(elem.extra->items);
    free(elem.extra);
    free(elem.srt);
    free(elem.suffix);
}

}  // namespace

void chapterFree(Chapter *chapter, int keepNames) {
    if (!chapter) return;
    for (int i = 0; i < chapter->elementCount; ++i) elementFree(chapter->elements[i], keepNames);
    free(chapter->elements);
    chapter->elements = nullptr;
    chapter->elementCount = 0;
    chapter->elementCapacity = 0;
    chapter->freeSlots = 0;
    chapter->sorted.clear();
    chapter->hierOrder.clear();
    chapter->hierChildCount.clear();
    chapter->subdirNames.clear();
    chapter->subdirLabels.clear();
    chapter->subdirCount = 0;
    elemDataCacheForget(chapter);
    delete chapter->dataIndex;
    chapter->dataIndex = nullptr;
}

// ---------------------------------------------------------------------------
// Chapters

int dictChapterFind(const Dictionary *dict, const char *name) {
    if (!dict || !name) return -1;
    for (int id = 0; id < dict->chapterCount; ++id) {
        const std::string &have = dict->chapters[id].name;
        // Picture directories are met in any case on disks shared with other systems.
        bool anyCase = have == "PICTURES" || have == "RENDER_PICTURES";
        if (anyCase ? strcasecmp(have.c_str(), name) == 0 : have == name) return id;
    }
    return -1;
}

int dictChapterFindBySuffix(const Dictionary *dict, const char *suffix) {
    if (!dict || !suffix || !*suffix) return -1;
    for (int id = 0; id < dict->chapterCount; ++id)
        if (strcasecmp(dict->chapters[id].suffix.c_str(), suffix) == 0) return id;
    return -1;
}

int chapterAddByName(Dictionary *dict, const char *name) {
    if (!dict || !name) return -1;
    int id = dictChapterFind(dict, name);
    if (id >= 0) return id;
    // The chapters may move: a cached chapter address would then be stale.
    elemDataCacheForget(nullptr);
    dict->chapters.emplace_back();
    dict->chapters.back().name = name;
    dict->chapterCount = static_cast<int32_t>(dict->chapters.size());
    return dict->chapterCount - 1;
}

int chapterDirOf(int chapterId) {
    if (chapterId < 0 || chapterId >= CHAPTER_COUNT) return -1;
    // Rendered pictures are pictures as far as the chapter's kind goes.
    return chapterId == CHP_RENDER_PICTURES ? CHP_PICTURES : chapterId;
}

Chapter *dictChapter(Dictionary *dict, int chapterId) {
    if (!dict || chapterId < 0 || chapterId >= dict->chapterCount) return nullptr;
    return &dict->chapters[chapterId];
}

// ---------------------------------------------------------------------------
// Dictionary-wide steps

Element *dictEnsureScene(Dictionary *dict) {
    Chapter *scenes = dictChapter(dict, CHP_SCENES);
    if (!scenes) return nullptr;
    if (scenes->elementCount == 0) {
        ElemName *name = elemNameNew();
        name->name = "no_name";
        name->fullName = elemNameFormat(*name);
        elemAdd(dict, CHP_SCENES, name, nullptr, nullptr, 0, 0);
    }
    return elemGet(dict, CHP_SCENES, 0);
}

namespace {

void removeAllBut(Dictionary *dict, int chapterId, int keep) {
    Chapter *chapter = dictChapter(dict, chapterId);
    if (!chapter) return;
    for (int i = 0; i < chapter->elementCount; ++i)
        if (i != keep && chapter->elements[i].deleted != ELEM_FREE_SLOT)
            elemRemove(dict, chapterId, nullptr, i, -1, 0, 1);
}

bool tied(const Element &e) {
    for (int g = 0; e.childGroups && g < e.childGroupCount; ++g)
        if (e.childGroups[g].count) return true;
    for (int g = 0; e.parentGroups && g < e.parentGroupCount; ++g)
        if (e.parentGroups[g].count) return true;
    return false;
}

}  // namespace

void dictCleanupAfterLoad(Dictionary *dict) {
    if (!dict) return;
    // Sub-scenes and merged setups leave extra elements that only the first
    // of each may stand for.
    removeAllBut(dict, CHP_SCENES, 0);
    removeAllBut(dict, CHP_SETUP_BRAK, 0);
    removeAllBut(dict, CHP_SETUP_CHANNELS, 0);
    removeAllBut(dict, CHP_SETUP_FLOCK, 0);
    // Expressions that a relation ties to the scene stay; of the loose ones
    // only the first without a level does.
    if (Chapter *expressions = dictChapter(dict, CHP_EXPRESSIONS)) {
        bool kept = false;
        for (int i = 0; i < expressions->elementCount; ++i) {
            const Element &e = expressions->elements[i];
            if (e.deleted != ELEM_LIVE || tied(e)) continue;
            if (!kept && e.level == 0) {
                kept = true;
                continue;
            }
            elemRemove(dict, CHP_EXPRESSIONS, nullptr, i, -1, 0, 1);
        }
    }
    // Elements named by the scene whose file gave nothing.
    for (int chapterId : {CHP_MODELS, CHP_CAMERAS, CHP_LIGHTS, CHP_MATERIALS}) {
        Chapter *chapter = dictChapter(dict, chapterId);
        if (!chapter || chapter->kind != CHAPTER_FILES) continue;
        for (int i = 0; i < chapter->elementCount; ++i) {
            const Element &e = chapter->elements[i];
            if (e.deleted == ELEM_LIVE && e.isNew == 1 && !e.data)
                elemRemove(dict, chapterId, nullptr, i, -1, 0, 1);
        }
    }
}
