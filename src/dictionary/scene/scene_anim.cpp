// Curves of a scene: an ANIMATION element names an .ani file whose curves
// animate the element of the same name. After the elements are read each
// curve becomes an element of its own (a member of the file's element) and a
// relation from the animated element to it, so that the update list finds the
// curve as the source of that relation.
#include <string>

#include "animation.h"
#include "scene_internal.h"

namespace {

// Relations that follow a path: they need the path relation on their target.
bool isPathKind(int32_t relid) {
    return relid == 112 || relid == 612 || relid == 1112 || relid == 1114 || relid == 2112 ||
           relid == 2114;
}

void report(const char *format, const std::string &name) {
    char text[512];
    snprintf(text, sizeof text, format, name.c_str());
    msgShow(text, TOL_CLASS_WARNING);
}

// The target's instance whose chapters fit the curve chapter; the item's
// parameter picks among several rows of that shape.
int curveInstance(const RelationDict *table, int32_t relid, int targetChapter, int param) {
    int rows = relRowCount(table, relid);
    int seen = 0;
    for (int n = 1; n <= rows; ++n) {
        int16_t from, to;
        if (!relRowInstance(table, relid, n, &from, &to, nullptr, nullptr, nullptr, nullptr)) break;
        bool fits = (from == REL_ANY_CHAPTER || from == targetChapter) &&
                    (to == REL_ANY_CHAPTER || to == CHP_ANIMATION);
        if (fits && seen++ == param) return n;
    }
    return seen ? 1 : 0;
}

// One element per curve, under the file's element; 1 if the relation was made.
int connectItem(Dictionary *dict, const RelationDict *table, int fileIndex, int target,
                AnimItem *item) {
    Element *file = elemGet(dict, CHP_ANIMATION, fileIndex);
    ElemName *name = elemNameParse(file->name->fullName.c_str(), nullptr, 0);
    name->subdir = file->name->subdir;
    int owner = file->owner;
    int index = elemAdd(dict, CHP_ANIMATION, name, item->curve, nullptr, owner, -1);
    if (index < 0) return 0;
    Element *curve = elemGet(dict, CHP_ANIMATION, index);
    curve->lev = 1;
    curve->root = fileIndex;
    curve->loaded = 1;
    curve->isNew = 1;
    Fcurve *data = item->curve;
    item->curve = nullptr;  // the element owns it now
    // Appended behind the curves already there: the file's order is the
    // order of the sources.
    int instance = curveInstance(table, item->kind, item->target, item->param);
    int16_t grpFrom = 0, grpTo = 0, rank = 0;
    int ok = instance > 0 && relRowInstance(table, item->kind, instance, nullptr, nullptr, &grpFrom,
                                            &grpTo, &rank, nullptr);
    if (ok)
        ok = relAddFull(dict, table, item->target, CHP_ANIMATION, grpFrom, grpTo, target, index,
                        item->kind, -1, rank, nullptr);
    if (ok && !item->active)
        if (RelationInst *inst = relFind(elemGet(dict, item->target, target), item->kind,
                                         CHP_ANIMATION, index))
            inst->activ = 0;
    if (!ok) {
        // The element goes; its curve with it.
        elemGet(dict, CHP_ANIMATION, index)->data = nullptr;
        fcurveFree(data);
        elemRemove(dict, CHP_ANIMATION, nullptr, index, -1, 0, 1);
    }
    return ok;
}

}  // namespace

int sceneConnectAnimation(Dictionary *dict, const RelationDict *table) {
    if (!table) table = &g_relationDict;
    Chapter *chapter = dictChapter(dict, CHP_ANIMATION);
    int connections = 0;
    int files = chapter ? chapter->elementCount : 0;  // curve elements are added behind
    for (int i = 0; i < files; ++i) {
        Element *file = elemGet(dict, CHP_ANIMATION, i);
        if (!file || file->deleted != ELEM_LIVE || !file->loaded || file->lev != 0 || !file->data) continue;
        if (file->isNew != 1) continue;  // connected by an earlier load
        AnimItem *items = static_cast<AnimItem *>(file->data);
        const std::string prefix = file->name->prefix, own = file->name->name;
        std::string label = prefix.empty() ? own : prefix + "-" + own;
        bool anyTarget = false;
        for (AnimItem *item = items; item; item = item->next) {
            if (!item->curve) continue;  // a curve-less item has nothing to give
            int target = elemFindByName(dict, item->target, -1, prefix.empty() ? nullptr : prefix.c_str(),
                                        own.c_str(), -1, -1, 0);
            if (target < 0) continue;
            anyTarget = true;
            Element *t = elemGet(dict, item->target, target);
            if (isPathKind(item->kind) && !relHas(t, 1, item->kind, CHP_MODELS)) {
                report("Cannot connect path animation to item without path.", label);
                continue;
            }
            connections += connectItem(dict, table, i, target, item);
        }
        if (!anyTarget) {
            report("No element [%s] found to connect fcurve", label);
            elemRemove(dict, CHP_ANIMATION, nullptr, i, -1, 0, 1);
            animItemsFree(items);
            continue;
        }
        // The file's element keeps the items, their curves handed on.
        file = elemGet(dict, CHP_ANIMATION, i);
        file->data = items;
    }
    return connections;
}
