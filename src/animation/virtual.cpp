// Virtual relations: added to the graph for the time of a build so that the
// ordering rules of chains, deformers, branch visibility and hierarchy
// constraints hold without special cases in the sort. A saved scene never
// holds one.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "material.h"
#include "model.h"
#include "updatelist_internal.h"

bool isVirtualRelation(int32_t relid) {
    switch (relid) {
        case REL_IMAGE_SEQUENCE: case -102: case -103: case -104: case -105: case -106: case -107:
        case -108: case -109: case -110: case 120: case 121:
            return true;
        default:
            return false;
    }
}

namespace {

// Constraints whose partners pull an element into a chain's order.
bool isConstraint(int32_t relid) {
    switch (relid) {
        case 102: case 103: case 111: case 114: case 115: case 116: case 117: case 118: case 119:
        case 124: case 125: case 126: case 127: case 128: case 129: case 150: case 238: case 806:
            return true;
        default:
            return false;
    }
}

bool isJoint(const Model *m) { return m->type == MODEL_TYPE_JOINT; }
bool isEffector(const Model *m) {
    return m->type == MODEL_TYPE_NULL &&
           (m->kind == MODEL_KIND_EFFECTOR || m->kind == MODEL_KIND_EFFECTOR_2);
}

// The MODELS element of a node, or -1.
int32_t elementOf(Dictionary *dict, const Model *m) {
    if (!m || m->elementIndex < 0) return -1;
    Element *e = elemGet(dict, CHP_MODELS, m->elementIndex);
    return e && e->deleted == ELEM_LIVE && e->data == m ? m->elementIndex : -1;
}

// Adds instance `instance` of a virtual relation between two elements of one chapter.
void addVirtual(Dictionary *dict, int chapter, int32_t src, int32_t dst, int32_t relid, int instance) {
    if (src < 0 || dst < 0) return;
    int16_t grpFrom, grpTo, rk;
    if (!relRowInstance(&g_relationDict, relid, instance, nullptr, nullptr, &grpFrom, &grpTo, &rk, nullptr))
        return;
    relAddFull(dict, &g_relationDict, chapter, chapter, grpFrom, grpTo, src, dst, relid, -1, rk, nullptr);
}

bool holds(const Element &e, int group, int32_t relid) {
    if (!e.childGroups || group >= e.childGroupCount) return false;
    const RelationGroup &g = e.childGroups[group];
    for (int i = 0; i < g.count; ++i)
        if (g.items[i].relid == relid) return true;
    return false;
}

bool relationEnabled(int32_t relid) {
    int row = relRowFind(&g_relationDict, relid);
    return row >= 0 && g_relationDict.rows[row].act != 0;
}

// Calls fn(descendant) for every node below `m`.
template <typename Fn> void eachDescendant(Model *m, Fn fn) {
    for (Model *c = m->firstChild; c; c = c->nextSibling) {
        fn(c);
        eachDescendant(c, fn);
    }
}

bool subtreeHolds(Dictionary *dict, Model *m, int group, int32_t relid) {
    bool found = false;
    eachDescendant(m, [&](Model *d) {
        int32_t index = elementOf(dict, d);
        if (index >= 0 && holds(*elemGet(dict, CHP_MODELS, index), group, relid)) found = true;
    });
    return found;
}

// Relations whose result a joint of kind 1 takes as its chain goal.
bool givesGoal(int32_t relid) {
    switch (relid) {
        case 111: case 112: case 113: case 126: case 160: case 612: case 613: case 806:
            return true;
        default:
            return false;
    }
}

// A joint constrained through its chain: one of kind 1 whose position comes
// from a constraint, a path or translation curves, which all hand it to the
// chain as a goal; the stretch above it is solved by its own record.
bool constrainedThroughChain(const Element &e, const Model *m) {
    if (!isJoint(m) || m->kind != MODEL_KIND_CHAIN || !e.childGroups || e.childGroupCount <= RELGR_TRANSFO) return false;
    const RelationGroup &g = e.childGroups[RELGR_TRANSFO];
    for (int i = 0; i < g.count; ++i)
        if (givesGoal(g.items[i].relid)) return true;
    return false;
}

// A skin's envelope record reads every deformer of its skeleton, and the
// chain solves that place them: it waits for every model of the skeleton's
// trees (the top and its siblings of depth 0), its own branch excepted.
void addEnvelopeWaits(Dictionary *dict, int32_t index, Model *skin, int group, int32_t relid, int instance) {
    const Element &e = *elemGet(dict, CHP_MODELS, index);
    if (!e.childGroups || group >= e.childGroupCount) return;
    std::vector<Model *> tops;
    const RelationGroup &g = e.childGroups[group];
    for (int i = 0; i < g.count; ++i) {
        const RelationInst &r = g.items[i];
        if (r.relid != relid || r.chp != CHP_MODELS) continue;
        Element *top = elemGet(dict, CHP_MODELS, r.elem);
        Model *tm = top ? static_cast<Model *>(top->data) : nullptr;
        if (tm) tops.push_back(tm);
    }
    auto within = [skin](const Model *n) {
        for (; n; n = n->parent)
            if (n == skin) return true;
        return false;
    };
    for (Model *top : tops)
        for (Model *t = top; t; t = t->nextSibling) {
            if (t != top && envelopeDepth(t) != 0) continue;
            auto wait = [&](Model *n) {
                if (!within(n)) addVirtual(dict, CHP_MODELS, index, elementOf(dict, n), -109, instance);
            };
            wait(t);
            eachDescendant(t, wait);
        }
}

void addForModel(Dictionary *dict, int32_t index, Model *m) {
    const Element &e = *elemGet(dict, CHP_MODELS, index);
    addEnvelopeWaits(dict, index, m, RELGR_TRANSFO, 206, 1);
    addEnvelopeWaits(dict, index, m, RELGR_GEOM, 207, 2);
    // Chains: the solve waits for the goal, children of joints for the solve.
    if (isEffector(m) || constrainedThroughChain(e, m)) {
        int32_t root = elementOf(dict, chainRootOf(m));
        addVirtual(dict, CHP_MODELS, index, root, 120, 1);
        if (evalManipulationOptim()) addVirtual(dict, CHP_MODELS, root, index, -110, 1);
    }
    if (m->parent && isJoint(m->parent) && !isJoint(m) && !isEffector(m))
        addVirtual(dict, CHP_MODELS, index, elementOf(dict, chainRootOf(m->parent)), 121, 1);
    if (e.childGroups && e.childGroupCount > RELGR_TRANSFO) {
        // Collected first: the additions below grow the group being read.
        std::vector<int32_t> roots;
        const RelationGroup &transfo = e.childGroups[RELGR_TRANSFO];
        for (int i = 0; i < transfo.count; ++i) {
            const RelationInst &r = transfo.items[i];
            if (r.chp != CHP_MODELS || !isConstraint(r.relid)) continue;
            Element *partner = elemGet(dict, CHP_MODELS, r.elem);
            Model *pm = partner ? static_cast<Model *>(partner->data) : nullptr;
            if (pm && isJoint(pm)) roots.push_back(elementOf(dict, chainRootOf(pm)));
        }
        for (int32_t root : roots) addVirtual(dict, CHP_MODELS, index, root, 121, 1);
    }
    if (m->deformChildren)
        eachDescendant(m, [&](Model *d) { addVirtual(dict, CHP_MODELS, elementOf(dict, d), index, -107, 2); });
    if (m->subtreeWait)
        eachDescendant(m, [&](Model *d) { addVirtual(dict, CHP_MODELS, index, elementOf(dict, d), -105, 1); });
    if (!m->parent && ((holds(e, RELGR_TRANSFO, 117) && relationEnabled(117)) ||
                       (holds(e, RELGR_TRANSFO, 118) && relationEnabled(118))))
        eachDescendant(m, [&](Model *d) {
            int32_t di = elementOf(dict, d);
            addVirtual(dict, CHP_MODELS, index, di, -102, 1);
            addVirtual(dict, CHP_MODELS, di, index, -103, 1);
        });
    if (holds(e, RELGR_PARAM, 12))
        eachDescendant(m, [&](Model *d) { addVirtual(dict, CHP_MODELS, index, elementOf(dict, d), -108, 1); });
    if (holds(e, RELGR_PARAM, 10)) {
        addVirtual(dict, CHP_MODELS, index, index, -106, 1);
        addVirtual(dict, CHP_MODELS, index, index, -107, 1);
    }
    if ((holds(e, RELGR_GEOM, 250) || holds(e, RELGR_GEOM, 251)) && subtreeHolds(dict, m, RELGR_GEOM, 245))
        eachDescendant(m, [&](Model *d) {
            int32_t di = elementOf(dict, d);
            if (di >= 0 && holds(*elemGet(dict, CHP_MODELS, di), RELGR_GEOM, 245))
                addVirtual(dict, CHP_MODELS, di, index, -104, 1);
        });
}

void addAll(Dictionary *dict, int withTextures) {
    if (Chapter *models = dictChapter(dict, CHP_MODELS))
        for (int i = 0; i < models->elementCount; ++i) {
            Element &e = models->elements[i];
            if (e.deleted == ELEM_LIVE && e.data && e.childGroups) addForModel(dict, i, static_cast<Model *>(e.data));
        }
    if (!withTextures) return;
    if (Chapter *textures = dictChapter(dict, CHP_TEXTURES2D))
        for (int i = 0; i < textures->elementCount; ++i) {
            Element &e = textures->elements[i];
            const Texture2D *t = static_cast<const Texture2D *>(e.data);
            if (e.deleted == ELEM_LIVE && t && !t->sequenceName.empty())
                addVirtual(dict, CHP_TEXTURES2D, i, i, REL_IMAGE_SEQUENCE, 1);
        }
}

// Drops the virtual entries of both sides of every element of a chapter.
void removeFrom(Chapter *chapter) {
    if (!chapter) return;
    for (int i = 0; i < chapter->elementCount; ++i) {
        Element &e = chapter->elements[i];
        for (int side = 0; side < 2; ++side) {
            RelationGroup *groups = side ? e.parentGroups : e.childGroups;
            int count = side ? e.parentGroupCount : e.childGroupCount;
            for (int g = 0; groups && g < count; ++g) {
                RelationGroup &group = groups[g];
                int kept = 0;
                for (int k = 0; k < group.count; ++k)
                    if (!isVirtualRelation(group.items[k].relid)) group.items[kept++] = group.items[k];
                if (kept == group.count) continue;
                group.count = kept;
                group.cursor = 0;
                if (kept == 0) {
                    free(group.items);
                    group.items = nullptr;
                    group.capacity = 0;
                }
            }
        }
    }
}

}  // namespace

void hierarchyRelations(Dictionary *dict, int add, int withTextures) {
    if (!dict) return;
    // The scene does not change by them: what the relation calls mark stays as it was.
    int32_t dirty = dict->update.dirty, dirty2 = dict->update2.dirty;
    uint16_t browser = dict->browserDirty, hierarchy = dict->hierarchyDirty;
    if (add)
        addAll(dict, withTextures);
    else {
        removeFrom(dictChapter(dict, CHP_MODELS));
        if (withTextures) removeFrom(dictChapter(dict, CHP_TEXTURES2D));
    }
    dict->update.dirty = dirty;
    dict->update2.dirty = dirty2;
    dict->browserDirty = browser;
    dict->hierarchyDirty = hierarchy;
}
