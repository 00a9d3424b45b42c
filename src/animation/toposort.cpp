// The sort that flattens the relation graph: a depth-first visit of
// (element, group) nodes that emits every driver's records before the records
// of what it drives.
#include <cstdio>
#include <cstdlib>

#include "updatelist_internal.h"

namespace {

thread_local UpdateFailure s_failure = {-1, -1, -1, 0};

const RelationRow *rowOf(int32_t relid) {
    int row = relRowFind(&g_relationDict, relid);
    return row < 0 ? nullptr : &g_relationDict.rows[row];
}

bool sameRun(const RelationInst &a, const RelationInst &b) {
    return a.relid == b.relid && a.serialid == b.serialid;
}

// The live element at the other end of an entry in an active chapter, or null.
Element *otherEnd(Dictionary *dict, const RelationInst &e) {
    Chapter *chapter = dictChapter(dict, e.chp);
    if (!chapter || chapter->active != 1) return nullptr;
    Element *other = elemGet(dict, e.chp, e.elem);
    if (!other || other->deleted != ELEM_LIVE || !other->childGroups || !other->parentGroups) return nullptr;
    if (e.grp >= other->childGroupCount || e.grp >= other->parentGroupCount) return nullptr;
    return other;
}

// Relations through which meeting a group on the stack is no cycle: they
// order two elements both ways on purpose.
bool tolerantThrough(const RelationInst &e) {
    return e.relid == -102 || e.relid == -103 || e.relid == -104 || e.relid == -110 ||
           e.chp == CHP_CHANNEL_DRIVERS;
}

UpdateSource sourceOf(Dictionary *dict, const RelationInst &e) {
    UpdateSource s{};
    s.chapter = static_cast<int16_t>(e.chp);
    s.group = static_cast<int16_t>(e.grp);
    s.element = e.elem;
    Element *other = elemGet(dict, e.chp, e.elem);
    s.data = other ? other->data : nullptr;
    s.active = e.activ;
    Element *gate = e.actfcv >= 0 ? elemGet(dict, CHP_ANIMATION, e.actfcv) : nullptr;
    s.fcurve = gate ? static_cast<Fcurve *>(gate->data) : nullptr;
    return s;
}

// Emits the record of the run that ends at entry i. 1 when it counts as output.
int emitRun(Dictionary *dict, UpdateList *list, Element *element, const RelationGroup &grp,
            int chapter, int32_t elementIndex, int group, int i) {
    const RelationInst &e = grp.items[i];
    int start = i;
    while (start > 0 && sameRun(grp.items[start - 1], e)) --start;
    bool anyActive = false;
    for (int k = start; k <= i; ++k) anyActive = anyActive || grp.items[k].activ;
    // The relation data of a run sits on one of its entries; expressions
    // keep theirs on the entry towards the expression.
    const RelationInst *withData = nullptr;
    for (int k = i; k >= 0 && !withData; --k) {
        const RelationInst &d = grp.items[k];
        if (d.data && (e.relid != REL_EXPRESSION || d.chp == CHP_EXPRESSIONS)) withData = &d;
    }
    if (withData && withData->relid != e.relid) withData = nullptr;
    if (!anyActive) return 0;
    int from = start > grp.cursor ? start : grp.cursor;
    int n = i - from + 1;
    auto *sources = static_cast<UpdateSource *>(malloc(sizeof(UpdateSource) * static_cast<size_t>(n)));
    if (!sources) return 0;
    for (int k = 0; k < n; ++k) sources[k] = sourceOf(dict, grp.items[from + k]);
    updatelistAddRecord(list, chapter, elementIndex, element, e.relid, withData, group, n, sources);
    return 1;
}

void addStep(UpdateList *list, int chapter, int32_t elementIndex, Element *element, int32_t relation,
             int group) {
    updatelistAddRecord(list, chapter, elementIndex, element, relation, nullptr, group, 0, nullptr);
}

// Index of the element the entry 110 of `element` points at, or -1.
int32_t parentOf(const Element *element) {
    if (!element->childGroups || element->childGroupCount <= RELGR_TRANSFO) return -1;
    const RelationGroup &g = element->childGroups[RELGR_TRANSFO];
    for (int i = 0; i < g.count; ++i)
        if (g.items[i].relid == REL_PARENT && g.items[i].chp == CHP_MODELS) return g.items[i].elem;
    return -1;
}

}  // namespace

void updatelistFailureSet(int chapter, int32_t element, int group, int tooDeep) {
    s_failure = UpdateFailure{chapter, element, group, tooDeep};
}

const UpdateFailure *updatelistLastFailure() { return &s_failure; }

void updatelistReset(Dictionary *dict, int forward) {
    if (!dict) return;
    for (Chapter &chapter : dict->chapters)
        for (int i = 0; i < chapter.elementCount; ++i) {
            Element &e = chapter.elements[i];
            if (e.deleted != ELEM_LIVE) continue;
            RelationGroup *groups = forward ? e.childGroups : e.parentGroups;
            int count = forward ? e.childGroupCount : e.parentGroupCount;
            for (int g = 0; groups && g < count; ++g) {
                groups[g].state = 0;
                groups[g].cursor = 0;
            }
        }
}

int TopoSort(Dictionary *dict, UpdateList *list, Element *element, RelationGroup *groups,
             int chapter, int32_t elementIndex, int group, int level, int noOutput, int forward,
             int partial, int tolerant) {
    if (level > TOPOSORT_MAX_LEVEL) {
        printf("TopoSort: help! level > 100... \n");
        updatelistFailureSet(chapter, elementIndex, group, 1);
        return 0;
    }
    RelationGroup &grp = groups[group];
    grp.state = 1;
    if (!forward) element->marked = 1;
    bool output = !noOutput && list;
    int produced = 0;
    for (int i = grp.cursor; i < grp.count; ++i) {
        const RelationInst &e = grp.items[i];
        const RelationRow *row = rowOf(e.relid);
        if (row && row->actdep == 0) {
            grp.cursor = i + 1;
            continue;
        }
        Element *other = otherEnd(dict, e);
        if (!other) continue;
        RelationGroup *otherGroups = forward ? other->childGroups : other->parentGroups;
        RelationGroup &target = otherGroups[e.grp];
        if (forward && e.relid == -110) {
            grp.cursor = i + 1;
            continue;
        }
        if (forward && partial && e.relid == REL_PARENT && evalManipulationOptim()) {
            // Unmarked parents are skipped: their own lists handle them.
            Element *ancestor = other;
            int32_t index = e.elem;
            int depth = 0;
            while (ancestor && !ancestor->marked && depth++ <= TOPOSORT_MAX_LEVEL) {
                index = parentOf(ancestor);
                ancestor = index < 0 ? nullptr : elemGet(dict, CHP_MODELS, index);
                if (ancestor && (ancestor->deleted != ELEM_LIVE || !ancestor->childGroups)) ancestor = nullptr;
            }
            if (ancestor && ancestor->marked && ancestor->childGroups[RELGR_TRANSFO].state == 0 &&
                !TopoSort(dict, list, ancestor, ancestor->childGroups, CHP_MODELS, index,
                          RELGR_TRANSFO, level + 1, noOutput, forward, partial, tolerant))
                return 0;
            grp.cursor = i + 1;
            continue;
        }
        bool own = other == element;
        if (output && own && e.activ && e.relid == REL_CUSTOM && chapter == CHP_MODELS &&
            group == RELGR_TRANSFO && e.grp == RELGR_TRANSFO)
            addStep(list, chapter, elementIndex, element, REL_HIERARCHY_STEP, RELGR_TRANSFO);
        bool passive = own || !e.activ;
        if (target.state == 1) {
            bool throughDown = target.cursor < target.count && target.items[target.cursor].relid == -102;
            if (!passive && !throughDown && !tolerant) {
                updatelistFailureSet(chapter, elementIndex, group, 0);
                return 0;
            }
        } else if (target.state == 0 && e.activ) {
            int below = tolerant || tolerantThrough(e);
            if (!TopoSort(dict, list, other, otherGroups, e.chp, e.elem, e.grp, level + 1, noOutput,
                          forward, partial, below))
                return 0;
        }
        // Only the last entry of a run emits; the cursor stays on its first.
        if (i + 1 < grp.count && sameRun(grp.items[i + 1], e)) continue;
        if (output && !(row && row->noRecord) && group != RELGR_RENDER) {
            if (row && row->hierarchyFirst)
                addStep(list, chapter, elementIndex, element, REL_HIERARCHY_STEP, RELGR_TRANSFO);
            produced += emitRun(dict, list, element, grp, chapter, elementIndex, group, i);
        }
        grp.cursor = i + 1;
    }
    if (output && grp.count > 0 && (chapter == CHP_MODELS || chapter == CHP_WAVES)) {
        // All local values of the group are set: one closing step computes
        // from them.
        if (group == RELGR_TRANSFO && produced > 0)
            addStep(list, chapter, elementIndex, element,
                    chapter == CHP_WAVES ? REL_WAVE_HIERARCHY_STEP : REL_HIERARCHY_STEP, RELGR_TRANSFO);
        if (group == RELGR_GEOM && produced >= 1)
            addStep(list, chapter, elementIndex, element, REL_GEOMETRY_END, RELGR_GEOM);
    }
    grp.state = 2;
    return 1;
}
