// Relation instances: adding and removing them on both ends.
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <vector>

#include "dict_internal.h"

// Instance arrays grow with realloc.
static_assert(std::is_trivially_copyable_v<RelationInst>);

RelDataFreeFn g_relDataFree = nullptr;

namespace {

void releaseData(RelationInst &inst) {
    if (!inst.data) return;
    if (g_relDataFree)
        g_relDataFree(inst.relid, inst.data);
    else
        free(inst.data);
    inst.data = nullptr;
}

void groupEmpty(RelationGroup &group) {
    free(group.items);
    group.items = nullptr;
    group.count = 0;
    group.capacity = 0;
    group.cursor = 0;
    group.vis = 1;
}

}  // namespace

RelationGroup *relGroupsNew() {
    auto *groups = static_cast<RelationGroup *>(calloc(REL_GROUP_COUNT, sizeof(RelationGroup)));
    if (groups)
        for (int g = 0; g < REL_GROUP_COUNT; ++g) groups[g].vis = 1;
    return groups;
}

void relGroupsFree(RelationGroup *groups, int count) {
    if (!groups) return;
    for (int g = 0; g < count; ++g) {
        for (int i = 0; i < groups[g].count; ++i) releaseData(groups[g].items[i]);
        free(groups[g].items);
    }
    free(groups);
}

// ---------------------------------------------------------------------------
// Insertion

namespace {

// Relations that may join the same two elements more than once.
bool mayRepeat(int32_t relid) {
    return relid == 20000 || relid == 10000 || relid == 20010 || relid == 246 || relid == 247 ||
           relid == 551;
}

}  // namespace

int relInsert(RelationGroup *group, const RelationDict *table, int32_t relid, int32_t chp,
              int32_t elem, int32_t grp, int32_t rank, int32_t fanOut, int32_t instanceLimit,
              int32_t serialid, int addFlag, void *data, int activ) {
    if (!group) return 0;
    if (!table) table = &g_relationDict;
    if (group->count >= group->capacity) {
        void *grown = realloc(group->items,
                              sizeof(RelationInst) * static_cast<size_t>(group->capacity + 1));
        if (!grown) return 0;
        group->items = static_cast<RelationInst *>(grown);
        group->capacity++;
    }
    int single = relRowCount(table, relid) == 1;
    bool bySerial = serialid != -1 && serialid != -2;
    bool serialMatched = false;
    int duplicates = 0;
    int pos = 0;
    for (; pos < group->count; ++pos) {
        const RelationInst &it = group->items[pos];
        if (it.rank > rank) break;
        if (bySerial && it.relid == relid) {
            // Instances of one serial stand together, ordered by chapter.
            if (it.chp > chp) break;
            if (serialMatched && it.serialid != serialid) break;
            if (it.visited) break;
            if (it.serialid == serialid) serialMatched = true;
        }
        if (it.rank == rank && it.relid == relid && it.chp == chp && it.grp == grp) {
            if (single && it.elem == elem && !mayRepeat(relid)) return 0;
            ++duplicates;
            if (fanOut >= 2 && instanceLimit >= 1 && duplicates >= instanceLimit) break;
        }
    }
    if (addFlag && pos > 0) {
        const RelationInst &prev = group->items[pos - 1];
        if (prev.rank == rank && prev.relid == relid && prev.chp == chp && prev.grp == grp &&
            duplicates >= fanOut)
            return 0;  // the fan-out is full
    }
    memmove(group->items + pos + 1, group->items + pos,
            sizeof(RelationInst) * static_cast<size_t>(group->count - pos));
    RelationInst &inst = group->items[pos];
    inst.chp = static_cast<uint16_t>(chp);
    inst.elem = elem;
    inst.grp = static_cast<uint16_t>(grp);
    inst.activ = static_cast<uint16_t>(activ);
    inst.data = data;
    inst.relid = relid;
    inst.actfcv = -1;
    inst.serialid = serialid;
    inst.visited = 0;
    inst.rank = rank;
    group->count++;
    return 1;
}

namespace {

bool validGroup(int g) { return g >= 0 && g < REL_GROUP_COUNT; }

Element *liveWithGroups(Dictionary *dict, int chapterId, int32_t index) {
    Element *e = elemAt(dict, chapterId, index);
    if (!e || e->deleted != ELEM_LIVE || !e->childGroups || !e->parentGroups) return nullptr;
    return e;
}

// The instance on the source and its twin on the target.
int insertPair(Dictionary *dict, const RelationDict *table, int srcChapter, int32_t src,
               int dstChapter, int32_t dst, int srcGroup, int dstGroup, int32_t relid,
               int32_t rank, int32_t fanOut, int srcInstance, int dstInstance,
               int32_t serialid, void *data, int activ) {
    if (!validGroup(srcGroup) || !validGroup(dstGroup)) return 0;
    Element *source = liveWithGroups(dict, srcChapter, src);
    Element *target = liveWithGroups(dict, dstChapter, dst);
    if (!source || !target) return 0;
    if (!relInsert(&source->childGroups[srcGroup], table, relid, dstChapter, dst, dstGroup, rank,
                   fanOut, srcInstance, serialid, 1, data, activ))
        return 0;
    // The data belongs to the source side only.
    int twin = relInsert(&target->parentGroups[dstGroup], table, relid, srcChapter, src, srcGroup,
                         rank, fanOut, dstInstance, serialid, 0, nullptr, activ);
    if (!twin) {
        // Half a pair is no relation: the source's instance goes again, and
        // its data stays the caller's.
        RelationGroup &group = source->childGroups[srcGroup];
        for (int i = group.count - 1; i >= 0; --i) {
            const RelationInst &it = group.items[i];
            if (it.relid == relid && it.chp == dstChapter && it.elem == dst && it.data == data &&
                it.serialid == serialid) {
                memmove(group.items + i, group.items + i + 1,
                        sizeof(RelationInst) * static_cast<size_t>(group.count - i - 1));
                group.count--;
                break;
            }
        }
        return 0;
    }
    dict->update.dirty = 1;
    dict->browserDirty = 1;
    dict->update2.dirty = 1;
    if (!dictLoadOptim() || srcChapter == CHP_MODELS || dstChapter == CHP_MODELS)
        dict->hierarchyDirty = 1;
    return twin;
}

}  // namespace

int relAdd(Dictionary *dict, const RelationDict *table, int32_t src, int32_t dst, int32_t relid,
           int srcInstance, int dstInstance, void *data, int activ) {
    if (!table) table = &g_relationDict;
    int16_t chpFrom, chpTo, grpFrom, grpTo, rk, fo;
    if (!relRowInstance(table, relid, srcInstance, &chpFrom, &chpTo, &grpFrom, &grpTo, &rk, &fo))
        return 0;
    if (chpFrom == REL_ANY_CHAPTER || chpTo == REL_ANY_CHAPTER) return 0;  // relAddVia's work
    return insertPair(dict, table, chpFrom, src, chpTo, dst, grpFrom, grpTo, relid, rk, fo,
                      srcInstance, dstInstance, -1, data, activ);
}

int relAddVia(Dictionary *dict, const RelationDict *table, int srcChapter, int32_t src,
              int dstChapter, int32_t dst, int32_t relid, int srcInstance, int dstInstance,
              void *data, int activ) {
    if (!table) table = &g_relationDict;
    int16_t grpFrom, grpTo, rk, fo;
    if (!relRowInstance(table, relid, srcInstance, nullptr, nullptr, &grpFrom, &grpTo, &rk, &fo))
        return 0;
    return insertPair(dict, table, srcChapter, src, dstChapter, dst, grpFrom, grpTo, relid, rk, fo,
                      srcInstance, dstInstance, -1, data, activ);
}

int relAddFull(Dictionary *dict, const RelationDict *table, int srcChapter, int dstChapter,
               int srcGroup, int dstGroup, int32_t src, int32_t dst, int32_t relid,
               int32_t serialid, int32_t rank, void *data) {
    if (!table) table = &g_relationDict;
    int fanOut = relFanOutOf(table, relid);
    if (fanOut < 0) fanOut = 32767;  // a relation the table does not limit
    return insertPair(dict, table, srcChapter, src, dstChapter, dst, srcGroup, dstGroup, relid,
                      rank, fanOut, 0, 0, serialid, data, 1);
}

// ---------------------------------------------------------------------------
// Removal

namespace {

// Drops one instance; its fcurve, if any, is noted for removal afterwards.
void dropAt(RelationGroup &group, int pos, std::vector<int32_t> &fcurves) {
    RelationInst &inst = group.items[pos];
    if (inst.actfcv >= 0) fcurves.push_back(inst.actfcv);
    releaseData(inst);
    memmove(group.items + pos, group.items + pos + 1,
            sizeof(RelationInst) * static_cast<size_t>(group.count - pos - 1));
    group.count--;
    // A loop that removes what it was just given goes on with the next one.
    if (pos < group.cursor) group.cursor--;
    if (group.count == 0) groupEmpty(group);
}

bool twinMatches(const RelationInst &t, const RelationInst &inst, int chapterId, int32_t index) {
    return t.relid == inst.relid && t.chp == chapterId && t.elem == index &&
           t.serialid == inst.serialid;
}

// Removes the instance at the other end of `inst` that points back to
// (chapterId, index); `child` tells the side of `inst`.
void dropTwin(Dictionary *dict, int chapterId, int32_t index, int child, const RelationInst &inst,
              std::vector<int32_t> &fcurves) {
    Element *other = elemAt(dict, inst.chp, inst.elem);
    if (!other) return;
    RelationGroup *groups = child ? other->parentGroups : other->childGroups;
    int count = child ? other->parentGroupCount : other->childGroupCount;
    if (!groups) return;
    for (int pass = 0; pass < 2; ++pass) {
        // The twin stands in the group the instance names; look further only
        // if it is not there.
        for (int g = 0; g < count; ++g) {
            if ((pass == 0) != (g == inst.grp)) continue;
            RelationGroup &group = groups[g];
            for (int i = 0; i < group.count; ++i)
                if (twinMatches(group.items[i], inst, chapterId, index)) {
                    dropAt(group, i, fcurves);
                    return;
                }
        }
    }
}

void removeFcurves(Dictionary *dict, const std::vector<int32_t> &fcurves) {
    for (int32_t f : fcurves) {
        Element *e = elemAt(dict, CHP_ANIMATION, f);
        if (e && e->deleted != ELEM_FREE_SLOT) elemRemove(dict, CHP_ANIMATION, nullptr, f, -1, 0, 1);
    }
}

}  // namespace

int relRemove(Dictionary *dict, int chapterId, int32_t index, int child, int32_t relid,
              int otherChapter, int32_t other, int32_t serialid) {
    Element *e = elemAt(dict, chapterId, index);
    if (!e) return 0;
    RelationGroup *groups = child ? e->childGroups : e->parentGroups;
    int count = child ? e->childGroupCount : e->parentGroupCount;
    std::vector<int32_t> fcurves;
    bool touchedModels = chapterId == CHP_MODELS;
    for (int g = 0; groups && g < count; ++g) {
        RelationGroup &group = groups[g];
        for (int i = 0; i < group.count;) {
            const RelationInst &it = group.items[i];
            bool match = (relid < 0 || it.relid == relid) &&
                         (otherChapter < 0 || it.chp == otherChapter) &&
                         (other < 0 || it.elem == other) && (serialid < 0 || it.serialid == serialid);
            if (!match) {
                ++i;
                continue;
            }
            touchedModels = touchedModels || it.chp == CHP_MODELS;
            // A target model that carries shape data would have its run-time
            // told here; shape animation is not part of the dictionary yet.
            RelationInst copy = it;
            dropTwin(dict, chapterId, index, child, copy, fcurves);
            dropAt(group, i, fcurves);
        }
    }
    dict->update.dirty = 1;
    dict->update2.dirty = 1;
    dict->browserDirty = 1;
    if (touchedModels) dict->hierarchyDirty = 1;
    removeFcurves(dict, fcurves);
    return 1;
}

int relRemoveChildren(Dictionary *dict, int chapterId, int32_t index) {
    return relRemove(dict, chapterId, index, 1, -1, -1, -1, -1);
}

int relRemoveParents(Dictionary *dict, int chapterId, int32_t index) {
    return relRemove(dict, chapterId, index, 0, -1, -1, -1, -1);
}

int relRemoveAll(Dictionary *dict, int chapterId, int32_t index) {
    if (!relRemoveChildren(dict, chapterId, index)) return 0;
    return relRemoveParents(dict, chapterId, index);
}
