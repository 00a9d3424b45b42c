// Building the update lists: the sweep over the scene, records, the
// sentinel and what the hierarchy records need for the walk.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "model.h"
#include "updatelist_internal.h"

namespace {

// Records are kept in blocks of 8, then of powers of two; the count tells the size.
int32_t capacityFor(int32_t count) {
    int32_t cap = 8;
    while (cap < count) cap *= 2;
    return cap;
}

int ensureSlots(UpdateList *list, int32_t slots) {
    if (list->records && capacityFor(list->count) >= slots) return 1;
    size_t bytes = sizeof(UpdateRecord) * static_cast<size_t>(capacityFor(slots));
    void *grown = realloc(list->records, bytes);
    if (!grown) return 0;
    list->records = static_cast<UpdateRecord *>(grown);
    return 1;
}

UpdateHandler handlerFor(int group, int32_t relation) {
    // Rendering relations evaluate nothing; the last group only expressions.
    if (group == RELGR_RENDER) return nullptr;
    if (group == RELGR_OTHER && relation != REL_EXPRESSION) return nullptr;
    return updateHandlerFind(group, relation);
}

}  // namespace

int updatelistAddRecord(UpdateList *list, int chapter, int32_t elementIndex, const Element *element,
                        int32_t relation, const RelationInst *entry, int group, int sourceCount,
                        UpdateSource *sources) {
    if (!list) {
        free(sources);
        return 0;
    }
    if ((chapter == CHP_MODELS && (!element || !element->data)) || !ensureSlots(list, list->count + 1)) {
        free(sources);
        return list->count;
    }
    UpdateRecord &r = list->records[list->count];
    r = UpdateRecord{};
    r.chapter = static_cast<int16_t>(chapter);
    r.group = static_cast<int16_t>(group);
    r.element = elementIndex;
    r.data = element ? element->data : nullptr;
    r.handler = handlerFor(group, relation);
    // The walk must not search the relation table: the fan-out sum rides along.
    // How many inactive sources a record of the relation may have and still run.
    r.foSum = relDdSum(&g_relationDict, relation);
    r.relation = relation;
    r.sourceCount = static_cast<int16_t>(sourceCount);
    r.sources = sources;
    // Only the entry with the relation data switches the whole record off;
    // the sources' own flags are weighed when the record runs.
    r.active = entry ? entry->activ : 1;
    r.relationData = entry ? entry->data : nullptr;
    return ++list->count;
}

void updatelistSentinel(UpdateList *list) {
    if (!list || !ensureSlots(list, list->count + 1)) return;
    UpdateRecord &s = list->records[list->count];
    s = UpdateRecord{};
    s.chapter = UPDATE_SENTINEL_CHAPTER;
    s.element = -1;
}

void updatelistLinkHierarchy(UpdateList *list) {
    if (!list) return;
    // Where each model's last hierarchy record stands.
    struct Last {
        const Model *model;
        int32_t index;
    };
    std::vector<Last> last;
    for (int32_t i = 0; i < list->count; ++i) {
        const UpdateRecord &r = list->records[i];
        if (r.relation != REL_HIERARCHY_STEP && r.relation != REL_WAVE_HIERARCHY_STEP) continue;
        if (const Model *m = recordTransfo(&r)) last.push_back({m, i});
    }
    std::stable_sort(last.begin(), last.end(), [](const Last &a, const Last &b) {
        return std::less<const Model *>()(a.model, b.model);
    });
    auto laterRecord = [&](const Model *m, int32_t after) {
        auto it = std::upper_bound(last.begin(), last.end(), m, [](const Model *x, const Last &l) {
            return std::less<const Model *>()(x, l.model);
        });
        return it != last.begin() && (it - 1)->model == m && (it - 1)->index > after;
    };
    std::vector<Model *> own, stack;
    for (int32_t i = 0; i < list->count; ++i) {
        UpdateRecord &r = list->records[i];
        if (r.relation != REL_HIERARCHY_STEP && r.relation != REL_WAVE_HIERARCHY_STEP) continue;
        Model *m = recordTransfo(&r);
        if (!m) continue;
        own.clear();
        stack.clear();
        for (Model *c = m->firstChild; c; c = c->nextSibling) stack.push_back(c);
        std::reverse(stack.begin(), stack.end());
        // Pre-order, so that every model follows its parent.
        while (!stack.empty()) {
            Model *n = stack.back();
            stack.pop_back();
            if (laterRecord(n, i)) continue;
            own.push_back(n);
            size_t mark = stack.size();
            for (Model *c = n->firstChild; c; c = c->nextSibling) stack.push_back(c);
            std::reverse(stack.begin() + static_cast<long>(mark), stack.end());
        }
        free(r.extra);
        auto *models = static_cast<Model **>(malloc(sizeof(Model *) * (own.size() + 1)));
        if (models) {
            std::copy(own.begin(), own.end(), models);
            models[own.size()] = nullptr;
        }
        r.extra = models;
    }
}

int updatelistBuild(Dictionary *dict, UpdateList *list, int checkOnly, int partial) {
    if (!dict || !list) return 0;
    if (!list->dirty) return 1;
    updateHandlersInit();
    if (!partial) hierarchyRelations(dict, 1, 1);
    updatelistReset(dict, 1);
    if (!checkOnly) updatelistClear(list);
    int ok = 1;
    for (int c = 0; c < dict->chapterCount && ok; ++c) {
        Chapter &chapter = dict->chapters[c];
        if (chapter.active != 1) continue;
        // Roots first: a whole tree is listed from its top when it can be.
        for (int rootsOnly = 1; rootsOnly >= 0 && ok; --rootsOnly)
            for (int i = 0; i < chapter.elementCount && ok; ++i) {
                Element &e = chapter.elements[i];
                if (e.deleted != ELEM_LIVE || !e.childGroups) continue;
                if (rootsOnly && e.lev > 0) continue;
                if (partial && !e.marked) continue;
                for (int g = 0; g < e.childGroupCount && ok; ++g) {
                    RelationGroup &group = e.childGroups[g];
                    if (!group.vis || (group.state && group.cursor >= group.count)) continue;
                    ok = TopoSort(dict, checkOnly ? nullptr : list, &e, e.childGroups, c, i, g, 0,
                                  checkOnly, 1, partial, 0);
                }
            }
    }
    if (!ok) {
        if (!partial) hierarchyRelations(dict, 0, 1);
        if (!checkOnly) updatelistClear(list);
        list->dirty = 1;
        return 0;
    }
    if ((animationOptimise & EVAL_OPT_SENTINEL) && list->count > 0 && !checkOnly) {
        updatelistSentinel(list);
        updatelistLinkHierarchy(list);
    }
    if (!partial) hierarchyRelations(dict, 0, 1);
    if (!checkOnly) list->dirty = 0;
    return 1;
}

int updatelistBuildFrom(Dictionary *dict, int group, int withVirtual, int checkOnly) {
    if (!dict) return 0;
    UpdateList *list = &dict->update2;
    updatelistClear(list);
    if (withVirtual) hierarchyRelations(dict, 1, 0);
    updatelistReset(dict, 0);
    // Everything that depends on a marked element is marked in turn.
    for (int c = 0; c < dict->chapterCount; ++c) {
        Chapter &chapter = dict->chapters[c];
        for (int i = 0; i < chapter.elementCount; ++i) {
            Element &e = chapter.elements[i];
            if (e.deleted != ELEM_LIVE || !e.marked || !e.parentGroups) continue;
            for (int g = 0; g < e.parentGroupCount; ++g) {
                RelationGroup &grp = e.parentGroups[g];
                if (group >= 0 ? g != group : !grp.vis) continue;
                if (grp.state && grp.cursor >= grp.count) continue;
                if (!TopoSort(dict, nullptr, &e, e.parentGroups, c, i, g, 0, 1, 0, 0, 0) && withVirtual) {
                    hierarchyRelations(dict, 0, 0);
                    return 0;
                }
            }
        }
    }
    int ok = updatelistBuild(dict, list, checkOnly, 1);
    if (withVirtual) hierarchyRelations(dict, 0, 0);
    list->dirty = 0;
    return ok;
}

int updatelistBuildScene(Dictionary *dict) {
    if (!dict) return 0;
    // The skins know their skeletons by the relations just connected; the
    // order of the list and the first update need them tied.
    envelopeSceneResolve(dict);
    if (updatelistBuild(dict, &dict->update, 0, 0)) return 1;
    msgError("A cycle has been detected in scene dependencies.\n Please Cut or Relax the latest relation you set.");
    return 0;
}

void updatelistUnmark(Dictionary *dict) {
    if (!dict) return;
    for (Chapter &chapter : dict->chapters)
        for (int i = 0; i < chapter.elementCount; ++i) chapter.elements[i].marked = 0;
}

// ---------------------------------------------------------------------------
// Lists of a channel run

void updatelistDeactivateShared(UpdateList *main, const UpdateList *hiPriority) {
    if (!main || !hiPriority || hiPriority->count == 0) return;
    struct Key {
        int32_t chapter, element, group, relation;
        bool operator<(const Key &o) const {
            if (chapter != o.chapter) return chapter < o.chapter;
            if (element != o.element) return element < o.element;
            if (group != o.group) return group < o.group;
            return relation < o.relation;
        }
    };
    std::vector<Key> keys;
    keys.reserve(static_cast<size_t>(hiPriority->count));
    for (int32_t i = 0; i < hiPriority->count; ++i) {
        const UpdateRecord &r = hiPriority->records[i];
        keys.push_back({r.chapter, r.element, r.group, r.relation});
    }
    std::sort(keys.begin(), keys.end());
    for (int32_t i = 0; i < main->count; ++i) {
        UpdateRecord &r = main->records[i];
        if (std::binary_search(keys.begin(), keys.end(), Key{r.chapter, r.element, r.group, r.relation}))
            r.active = 0;
    }
}

void updatelistPruneChannels(UpdateList *list) {
    if (!list || !(animationOptimise & EVAL_OPT_PRUNE_CHANNELS)) return;
    if (!g_evalHooks.expressionTarget || !g_evalHooks.channelConnected) return;
    // The last record has nothing behind it to override it.
    for (int32_t i = 0; i + 1 < list->count; ++i) {
        UpdateRecord &r = list->records[i];
        if (!r.active || r.relation == REL_EXPRESSION || r.sourceCount == 0) continue;
        bool curves = true;
        for (int s = 0; s < r.sourceCount && curves; ++s)
            if (r.sources[s].active && r.sources[s].chapter != CHP_ANIMATION) curves = false;
        if (!curves || !g_evalHooks.channelConnected(r.chapter, r.element)) continue;
        for (int32_t j = i + 1; j < list->count; ++j) {
            const UpdateRecord &x = list->records[j];
            if (x.relation != REL_EXPRESSION || x.chapter != r.chapter || x.element != r.element) break;
            int32_t type = g_evalHooks.expressionTarget(&x, 1);
            for (int s = 0; s < r.sourceCount; ++s) {
                const Fcurve *c = static_cast<const Fcurve *>(r.sources[s].data);
                if (c && c->type == type) r.sources[s].active = 0;
            }
        }
        bool left = false;
        for (int s = 0; s < r.sourceCount; ++s) left = left || r.sources[s].active;
        if (!left) r.active = 0;
    }
}
