// Elements of a chapter: adding, reading, finding and removing them.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <type_traits>

#include "dict_internal.h"

// Element arrays grow with realloc.
static_assert(std::is_trivially_copyable_v<Element>);

namespace {

int32_t s_stamp = 0;  // creation stamps, process-wide

void markDirty(Dictionary *dict) {
    dict->update.dirty = 1;
    dict->update2.dirty = 1;
    dict->browserDirty = 1;
    dict->hierarchyDirty = 1;
}

}  // namespace

Element *elemAt(Dictionary *dict, int chapterId, int index) {
    Chapter *chapter = dictChapter(dict, chapterId);
    if (!chapter || index < 0 || index >= chapter->elementCount) return nullptr;
    return &chapter->elements[index];
}

// ---------------------------------------------------------------------------
// Adding

int elemAddRaw(Chapter *chapter, ElemName *name, void *data, void *aux, int32_t owner,
               int32_t wrkid, int makeRelations, int reuse) {
    if (!chapter) return -1;
    int index = -1;
    // A load adds tens of thousands of elements: no scan without a free slot,
    // and the array grows by doubling.
    if (reuse && chapter->freeSlots > 0)
        for (int i = 0; i < chapter->elementCount && index < 0; ++i)
            if (chapter->elements[i].deleted == ELEM_FREE_SLOT) index = i;
    bool fresh = index < 0;
    if (!fresh) chapter->freeSlots--;
    if (fresh) {
        if (chapter->elementCount >= chapter->elementCapacity) {
            int32_t capacity = chapter->elementCapacity < 8 ? 8 : chapter->elementCapacity * 2;
            void *grown = realloc(chapter->elements, sizeof(Element) * static_cast<size_t>(capacity));
            if (!grown) return -1;
            chapter->elements = static_cast<Element *>(grown);
            chapter->elementCapacity = capacity;
        }
        index = chapter->elementCount++;
        Element &e = chapter->elements[index];
        memset(&e, 0, sizeof e);
        e.browserData = 2;
    }
    Element &e = chapter->elements[index];
    if (!fresh) {
        // The slot's relation groups stay; what the old element carried goes.
        elemNameFree(e.name);
        if (e.extra) free(e.extra->items);
        free(e.extra);
        free(e.suffix);
        free(e.srt);
        e.srt = nullptr;
    }
    e.name = name;
    e.data = data;
    e.aux = aux;
    e.dirty = 1;
    e.isNew = 2;
    e.selected = e.shared = e.level = 0;
    e.deleted = ELEM_LIVE;
    e.root = index;
    e.lev = e.flag = 0;
    e.owner = owner;
    e.wrkid = wrkid;
    e.extra = nullptr;
    e.suffix = nullptr;
    e.stamp = ++s_stamp;
    if (makeRelations && !e.childGroups) {
        e.childGroups = relGroupsNew();
        e.parentGroups = relGroupsNew();
        e.childGroupCount = e.childGroups ? REL_GROUP_COUNT : 0;
        e.parentGroupCount = e.parentGroups ? REL_GROUP_COUNT : 0;
    }
    if (dictLoadOptim()) {
        if (!chapter->dataIndex) chapter->dataIndex = new ElemDataIndex;
        chapter->dataIndex->valid = 0;
        if (fresh) {
            chapter->dataIndex->sortedIndex.push_back(-1);
            chapter->dataIndex->count++;
        }
    }
    return index;
}

int elemAdd(Dictionary *dict, int chapterId, ElemName *name, void *data, void *aux,
            int32_t owner, int32_t wrkid) {
    Chapter *chapter = dictChapter(dict, chapterId);
    if (!chapter) return -1;
    int index = elemAddRaw(chapter, name, data, aux, owner, wrkid, 1, 1);
    if (index < 0) return -1;
    // Appending a new node to the run-time lists of the MODELS hierarchy is
    // not available yet, so every addition asks for the full re-derivation.
    markDirty(dict);
    return index;
}

void elemSetSuffix(Element *elem, const char *suffix) {
    if (!elem) return;
    free(elem->suffix);
    elem->suffix = suffix ? strdup(suffix) : nullptr;
}

void elemSetSrt(Element *elem, const float *srt) {
    if (!elem) return;
    if (!srt) {
        free(elem->srt);
        elem->srt = nullptr;
        return;
    }
    if (!elem->srt) elem->srt = static_cast<float *>(malloc(9 * sizeof(float)));
    if (elem->srt) memcpy(elem->srt, srt, 9 * sizeof(float));
}

// ---------------------------------------------------------------------------
// Reading

Element *elemGetInChapter(Chapter *chapter, int index) {
    if (!chapter || index < 0 || index >= chapter->elementCount) return nullptr;
    Element *e = &chapter->elements[index];
    return e->deleted == ELEM_FREE_SLOT ? nullptr : e;
}

Element *elemGet(Dictionary *dict, int chapterId, int index) {
    return elemGetInChapter(dictChapter(dict, chapterId), index);
}

int elemIndexOf(Dictionary *dict, int chapterId, const Element *elem) {
    Chapter *chapter = dictChapter(dict, chapterId);
    if (!chapter || !elem || chapter->elementCount == 0) return -1;
    std::less<const Element *> before;
    const Element *first = chapter->elements;
    const Element *end = first + chapter->elementCount;
    if (before(elem, first) || !before(elem, end)) return -1;
    return static_cast<int>(elem - first);
}

int elemCountLive(const Chapter *chapter) {
    if (!chapter) return 0;
    int n = 0;
    for (int i = 0; i < chapter->elementCount; ++i) n += chapter->elements[i].deleted == ELEM_LIVE;
    return n;
}

// ---------------------------------------------------------------------------
// Finding by data

namespace {

// The last lookup through an index. Connecting a scene asks for the same
// object many times in a row.
struct DataCache {
    const Chapter *chapter = nullptr;  // null: empty
    const void *data = nullptr;        // asked for
    int index = -1;                    // answer
};
DataCache s_dataCache;

bool dataBefore(const void *a, const void *b) { return std::less<const void *>()(a, b); }

void rebuildDataIndex(Chapter &chapter) {
    ElemDataIndex &index = *chapter.dataIndex;
    std::vector<int32_t> &sorted = index.sortedIndex;
    sorted.clear();
    for (int i = 0; i < chapter.elementCount; ++i) {
        const Element &e = chapter.elements[i];
        if (e.deleted != ELEM_LIVE) continue;
        // Behind equal pointers, so that the first of them is found as a walk would.
        auto at = std::upper_bound(sorted.begin(), sorted.end(), e.data, [&](const void *d, int32_t k) {
            return dataBefore(d, chapter.elements[k].data);
        });
        sorted.insert(at, i);
    }
    index.count = static_cast<int32_t>(sorted.size());
    index.valid = 1;
    elemDataCacheForget(&chapter);
}

}  // namespace

void elemDataCacheForget(const Chapter *chapter) {
    if (!chapter || s_dataCache.chapter == chapter) s_dataCache = DataCache{};
}

int elemFindByData(Dictionary *dict, int chapterId, const void *data) {
    Chapter *chapter = dictChapter(dict, chapterId);
    if (!chapter) return -1;
    if (!dictLoadOptim() || !chapter->dataIndex) {
        for (int i = 0; i < chapter->elementCount; ++i)
            if (chapter->elements[i].deleted == ELEM_LIVE && chapter->elements[i].data == data) return i;
        return -1;
    }
    if (!chapter->dataIndex->valid) rebuildDataIndex(*chapter);
    if (s_dataCache.chapter == chapter && s_dataCache.data == data) return s_dataCache.index;
    const std::vector<int32_t> &sorted = chapter->dataIndex->sortedIndex;
    auto at = std::lower_bound(sorted.begin(), sorted.end(), data, [&](int32_t k, const void *d) {
        return dataBefore(chapter->elements[k].data, d);
    });
    int found = (at != sorted.end() && chapter->elements[*at].data == data) ? *at : -1;
    s_dataCache = DataCache{chapter, data, found};
    return found;
}

int elemFindByAux(const Chapter *chapter, const void *aux) {
    if (!chapter) return -1;
    for (int i = 0; i < chapter->elementCount; ++i)
        if (chapter->elements[i].deleted == ELEM_LIVE && chapter->elements[i].aux == aux) return i;
    return -1;
}

int elemFindDeletedAux(const Chapter *chapter, const void *aux) {
    if (!chapter) return -1;
    for (int i = 0; i < chapter->elementCount; ++i)
        if (chapter->elements[i].deleted == ELEM_HIDDEN && chapter->elements[i].aux == aux) return i;
    return -1;
}

// ---------------------------------------------------------------------------
// Finding by name

int elemFindByName(Dictionary *dict, int chapterId, int skip, const char *prefix,
                   const char *name, int level, int root, int newOnly) {
    Chapter *chapter = dictChapter(dict, chapterId);
    if (!chapter || !name) return -1;
    for (int i = 0; i < chapter->elementCount; ++i) {
        const Element &e = chapter->elements[i];
        if (i == skip || e.deleted != ELEM_LIVE || !e.name) continue;
        if (newOnly && e.isNew == 0) continue;
        if (level >= 0 && e.level != level) continue;
        if (root >= 0 && e.root != root) continue;
        if (prefix && elemNameCompare(e.name->prefix.c_str(), prefix) != 0) continue;
        if (elemNameCompare(e.name->name.c_str(), name) == 0) return i;
    }
    return -1;
}

int elemFindByFullName(Dictionary *dict, int chapterId, int skip, const char *fullName,
                       int newOnly) {
    Chapter *chapter = dictChapter(dict, chapterId);
    if (!chapter || !fullName) return -1;
    for (int i = 0; i < chapter->elementCount; ++i) {
        const Element &e = chapter->elements[i];
        if (i == skip || e.deleted != ELEM_LIVE || !e.name) continue;
        if (newOnly && e.isNew == 0) continue;
        if (elemNameCompare(e.name->fullName.c_str(), fullName) == 0) return i;
    }
    return -1;
}

// ---------------------------------------------------------------------------
// Removing

namespace {

int parentInstances(const Element &e) {
    int n = 0;
    for (int g = 0; g < e.parentGroupCount; ++g) n += e.parentGroups[g].count;
    return n;
}

}  // namespace

int elemRemove(Dictionary *dict, int chapterId, Element *elem, int index, int32_t relFilter,
               int keepRelations, int freeSlot) {
    if (elem) index = elemIndexOf(dict, chapterId, elem);
    Element *e = elemAt(dict, chapterId, index);
    if (!e || e->deleted == ELEM_FREE_SLOT) return 0;
    if (!keepRelations) {
        if (relFilter >= 0 && parentInstances(*e) > 1)
            relRemove(dict, chapterId, index, 0, relFilter, -1, -1, -1);
        else
            relRemoveAll(dict, chapterId, index);
    }
    // Removing relations may remove fcurve elements, never add any: `e` holds.
    Chapter *chapter = dictChapter(dict, chapterId);
    if (chapter->dataIndex) chapter->dataIndex->valid = 0;
    elemDataCacheForget(chapter);
    if (freeSlot) {
        if (e->deleted != ELEM_FREE_SLOT) chapter->freeSlots++;
        e->deleted = ELEM_FREE_SLOT;
        elemNameFree(e->name);
        e->name = nullptr;
        if (e->extra) free(e->extra->items);
        free(e->extra);
        e->extra = nullptr;
        e->data = e->aux = nullptr;
        e->lev = 0;
        e->isNew = 0;
        e->root = index;
    } else {
        e->deleted = ELEM_HIDDEN;  // hidden: kept with its objects for a later restore
    }
    markDirty(dict);
    return 1;
}
