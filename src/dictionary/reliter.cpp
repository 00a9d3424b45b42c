// Walking and counting the relation instances of an element.
//
// The iterators keep their place in the group (cursor) and in the instance
// (visited), so one group of one element can carry one loop at a time.
#include "dict_internal.h"

namespace {

// What an iterator or a count looks for.
struct Wanted {
    int32_t low, high;  // relation ids, inclusive
    int chapter;        // other end's chapter, -1 for any
    int32_t serialid;   // -1 for any
    bool allGroups;     // walk the six groups in order instead of one
};

Wanted single(int32_t relid, int chapter, int32_t serialid = -1) {
    // Expressions stand in every group, so asking for them asks all groups.
    return Wanted{relid, relid, chapter, serialid, relid == REL_EXPRESSION};
}

bool matches(const RelationInst &inst, const Wanted &w) {
    return inst.relid >= w.low && inst.relid <= w.high && (w.chapter < 0 || inst.chp == w.chapter) &&
           (w.serialid < 0 || inst.serialid == w.serialid);
}

RelationGroup *sideGroups(const Element *elem, int child, int *count) {
    *count = child ? elem->childGroupCount : elem->parentGroupCount;
    return child ? elem->childGroups : elem->parentGroups;
}

// Takes back the mark of the instance the last step returned.
void unvisit(RelationGroup &group) {
    if (group.cursor > 0 && group.cursor <= group.count) group.items[group.cursor - 1].visited = 0;
}

// Looks on from `start` in one group; on a hit the group remembers it.
Element *scanGroup(Dictionary *dict, RelationGroup &group, int start, const Wanted &w,
                   int32_t *outChapter, int32_t *outIndex) {
    for (int i = start; i < group.count; ++i) {
        RelationInst &inst = group.items[i];
        if (!matches(inst, w)) continue;
        Element *other = elemAt(dict, inst.chp, inst.elem);
        if (!other || other->deleted == ELEM_FREE_SLOT) continue;
        group.cursor = i + 1;
        inst.visited = 1;
        if (outChapter) *outChapter = inst.chp;
        if (outIndex) *outIndex = inst.elem;
        return other;
    }
    group.cursor = 0;
    return nullptr;
}

Element *step(Dictionary *dict, Element *elem, int child, int group, const Wanted &w, bool first,
              int32_t *outChapter, int32_t *outIndex) {
    if (!dict || !elem) return nullptr;
    int count = 0;
    RelationGroup *groups = sideGroups(elem, child, &count);
    if (!groups) return nullptr;
    if (!w.allGroups) {
        if (group < 0 || group >= count) return nullptr;
        RelationGroup &g = groups[group];
        unvisit(g);
        return scanGroup(dict, g, first ? 0 : g.cursor, w, outChapter, outIndex);
    }
    // Across the groups: the walk stands in the first group whose cursor is set.
    int from = 0;
    if (first) {
        for (int g = 0; g < count; ++g) {
            unvisit(groups[g]);
            groups[g].cursor = 0;
        }
    } else {
        while (from < count && groups[from].cursor == 0) ++from;
        if (from == count) from = 0;
    }
    for (int g = from; g < count; ++g) {
        unvisit(groups[g]);
        int start = g == from ? groups[g].cursor : 0;
        if (Element *hit = scanGroup(dict, groups[g], start, w, outChapter, outIndex)) return hit;
    }
    return nullptr;
}

int countIn(const Element *elem, int child, int group, const Wanted &w) {
    if (!elem) return 0;
    int count = 0;
    const RelationGroup *groups = sideGroups(elem, child, &count);
    if (!groups) return 0;
    int n = 0;
    for (int g = 0; g < count; ++g) {
        if (!w.allGroups && g != group) continue;
        for (int i = 0; i < groups[g].count; ++i) n += matches(groups[g].items[i], w);
    }
    return n;
}

}  // namespace

Element *relFirst(Dictionary *dict, Element *elem, int child, int group, int32_t relid,
                  int chapter, int32_t *outChapter, int32_t *outIndex) {
    return step(dict, elem, child, group, single(relid, chapter), true, outChapter, outIndex);
}

Element *relNext(Dictionary *dict, Element *elem, int child, int group, int32_t relid,
                 int chapter, int32_t *outChapter, int32_t *outIndex) {
    return step(dict, elem, child, group, single(relid, chapter), false, outChapter, outIndex);
}

Element *relFirstInGroup(Dictionary *dict, Element *elem, int child, int group, int32_t low,
                         int32_t high, int chapter, int32_t *outChapter, int32_t *outIndex) {
    Wanted w{low, high, chapter, -1, false};
    return step(dict, elem, child, group, w, true, outChapter, outIndex);
}

Element *relNextInGroup(Dictionary *dict, Element *elem, int child, int group, int32_t low,
                        int32_t high, int chapter, int32_t *outChapter, int32_t *outIndex) {
    Wanted w{low, high, chapter, -1, false};
    return step(dict, elem, child, group, w, false, outChapter, outIndex);
}

Element *relFirstBySerial(Dictionary *dict, Element *elem, int child, int group,
                          int32_t relid, int chapter, int32_t serialid, int32_t *outChapter,
                          int32_t *outIndex) {
    return step(dict, elem, child, group, single(relid, chapter, serialid), true, outChapter,
                outIndex);
}

Element *relNextBySerial(Dictionary *dict, Element *elem, int child, int group,
                         int32_t relid, int chapter, int32_t serialid, int32_t *outChapter,
                         int32_t *outIndex) {
    return step(dict, elem, child, group, single(relid, chapter, serialid), false, outChapter,
                outIndex);
}

int relCount(const Element *elem, int child, int group, int32_t relid, int chapter) {
    return countIn(elem, child, group, single(relid, chapter));
}

int relCountRange(const Element *elem, int child, int group, int32_t low, int32_t high,
                  int chapter) {
    return countIn(elem, child, group, Wanted{low, high, chapter, -1, false});
}

int relHas(const Element *elem, int child, int32_t relid, int chapter) {
    Wanted w{relid, relid, chapter, -1, true};
    return countIn(elem, child, 0, w) > 0 ? 1 : 0;
}

RelationInst *relFind(Element *elem, int32_t relid, int chapter, int32_t target) {
    if (!elem || !elem->childGroups) return nullptr;
    Wanted w{relid, relid, chapter, -1, true};
    for (int g = 0; g < elem->childGroupCount; ++g)
        for (int i = 0; i < elem->childGroups[g].count; ++i) {
            RelationInst &inst = elem->childGroups[g].items[i];
            if (matches(inst, w) && (target < 0 || inst.elem == target)) return &inst;
        }
    return nullptr;
}

RelationInst *relLastReturned(Element *elem, int child, int group) {
    if (!elem) return nullptr;
    int count = 0;
    RelationGroup *groups = sideGroups(elem, child, &count);
    if (!groups || group < 0 || group >= count) return nullptr;
    RelationGroup &g = groups[group];
    return g.cursor > 0 && g.cursor <= g.count ? &g.items[g.cursor - 1] : nullptr;
}

RelationInst *relNth(Dictionary *dict, Element *elem, int32_t relid, int chapter, int n) {
    if (!dict || !elem || !elem->childGroups || n < 0) return nullptr;
    Wanted w{relid, relid, chapter, -1, true};
    for (int g = 0; g < elem->childGroupCount; ++g)
        for (int i = 0; i < elem->childGroups[g].count; ++i) {
            RelationInst &inst = elem->childGroups[g].items[i];
            if (!matches(inst, w)) continue;
            Element *other = elemAt(dict, inst.chp, inst.elem);
            if (!other || other->deleted == ELEM_FREE_SLOT) continue;
            if (n-- == 0) return &inst;
        }
    return nullptr;
}

RelationInst *relFindTwin(Dictionary *dict, int chapter, int32_t index, int child,
                          const RelationInst *inst) {
    if (!inst) return nullptr;
    Element *other = elemAt(dict, inst->chp, inst->elem);
    if (!other) return nullptr;
    int count = 0;
    RelationGroup *groups = sideGroups(other, !child, &count);
    if (!groups) return nullptr;
    for (int pass = 0; pass < 2; ++pass)
        for (int g = 0; g < count; ++g) {
            // The twin's group is the one the instance names; others only if not there.
            if ((pass == 0) != (g == inst->grp)) continue;
            for (int i = 0; i < groups[g].count; ++i) {
                RelationInst &t = groups[g].items[i];
                if (t.relid == inst->relid && t.chp == chapter && t.elem == index &&
                    t.serialid == inst->serialid)
                    return &t;
            }
        }
    return nullptr;
}
