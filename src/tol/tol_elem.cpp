// Element handles through the layer: verification, resolution, walking a
// chapter, numbered parameters, display mode and selection.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "database.h"
#include "camera.h"
#include "dictionary.h"
#include "tol.h"

namespace {

constexpr int32_t REL_MODEL_HIERARCHY = 110;   // parent to child among models
constexpr int32_t REL_CAMERA_HIERARCHY = 1110;
constexpr int32_t REL_LIGHT_HIERARCHY = 2110;

bool isModelChapter(uint32_t chapter) { return chapter == CHP_MODELS; }

// Number of values of an element parameter, 0 for a number that is no parameter.
int paramValueCount(int param) {
    switch (param) {
    case 1: case 100: case 101: case 102: case 103: case 104: case 105: case 106: return 2;
    case 2: case 3: case 4: case 5: case 14: case 15: case 16: case 22: return 1;
    case 6: case 10: case 11: case 12: case 13: case 17: case 21: return 3;
    case 18: case 19: case 20: return 6;
    default: return 0;
    }
}

// Resolves quietly; null when the handle names no live element.
Element *entryOf(const TOL_Elem *elem, Dictionary **dict = nullptr) {
    Element *entry = nullptr;
    if (tol_elemResolve(elem, -1, dict, nullptr, &entry, -1, "", 0) != 0) return nullptr;
    return entry;
}

int32_t hierarchyRelation(uint32_t chapter) {
    switch (chapter) {
    case CHP_MODELS: return REL_MODEL_HIERARCHY;
    case CHP_CAMERAS: return REL_CAMERA_HIERARCHY;
    case CHP_LIGHTS: return REL_LIGHT_HIERARCHY;
    default: return -1;
    }
}

void applyState(Element *entry, int state) {
    switch (state) {
    case 0: entry->selected = entry->selected ? 0 : 1; break;
    case 1: entry->selected = 1; break;
    case 2: entry->selected = 0; break;
    default: break;
    }
}

// The element and every element below it through the model hierarchy.
void applyToBranch(Dictionary *dict, int32_t index, int state, int depth) {
    Element *entry = elemGet(dict, CHP_MODELS, index);
    if (!entry || entry->deleted || depth > 4096) return;
    applyState(entry, state);
    int16_t group = 0;
    if (!relRowInstance(&g_relationDict, REL_MODEL_HIERARCHY, 1, nullptr, nullptr, &group,
                        nullptr, nullptr, nullptr))
        return;
    std::vector<int32_t> children;
    int32_t chapter = 0, child = 0;
    for (Element *e = relFirst(dict, entry, 1, group, REL_MODEL_HIERARCHY, CHP_MODELS, &chapter, &child);
         e; e = relNext(dict, entry, 1, group, REL_MODEL_HIERARCHY, CHP_MODELS, &chapter, &child))
        children.push_back(child);
    for (int32_t c : children) applyToBranch(dict, c, state, depth + 1);
}

}  // namespace

TOL_Status tol_elementVerify(const TOL_Scene *scene, const TOL_Elem *elem) {
    if (elem && elem->chapter == 211) return 0;
    if (!tol_verifyEnabled(TOL_VERIFY_ELEMENT)) return 0;
    if (!scene) return tol_report(71, "Invalid scene referenced");
    if (!elem) return tol_report(13, "Invalid element referenced");
    if (elem->dict != scene->dict) return tol_report(72, "Element doesn't belong to Scene");
    Dictionary *dict = dictGet(static_cast<int>(elem->dict));
    if (!dict || elem->chapter >= static_cast<uint32_t>(dict->chapterCount))
        return tol_report(10, "tol_elementVerify():", static_cast<int>(elem->chapter));
    if (elem->index >= static_cast<uint32_t>(dict->chapters[elem->chapter].elementCount))
        return tol_report(13, "tol_elementVerify():");
    return 0;
}

namespace {
// The model and camera checks share their frame: element check forced on for
// the call, then the chapter.
TOL_Status kindVerify(const TOL_Scene *scene, const TOL_Elem *elem, uint32_t bit,
                      bool (*chapterOk)(uint32_t), const char *notKind) {
    if (!tol_verifyEnabled(bit)) return 0;
    bool wasOn = tol_verifyEnabled(TOL_VERIFY_ELEMENT);
    tol_verifySet(TOL_VERIFY_ELEMENT);
    TOL_Status status = tol_elementVerify(scene, elem);
    if (!wasOn) tol_verifyClear(TOL_VERIFY_ELEMENT);
    if (status) return status;
    if (!chapterOk(elem->chapter)) return tol_report(73, notKind);
    return 0;
}
}  // namespace

TOL_Status tol_modelVerify(const TOL_Scene *scene, const TOL_Elem *elem) {
    if (!scene) return tol_report(16, "tol_modelVerify(): scn:");
    if (!elem) return tol_report(16, "tol_modelVerify(): el:");
    return kindVerify(scene, elem, TOL_VERIFY_MODEL, isModelChapter, "Element is not a Model");
}

TOL_Status tol_cameraVerify(const TOL_Scene *scene, const TOL_Elem *elem) {
    return kindVerify(scene, elem, TOL_VERIFY_CAMERA,
                      [](uint32_t chapter) { return chapter == CHP_CAMERAS; },
                      "Element is not a Camera");
}

TOL_Status tol_elemResolve(const TOL_Elem *elem, int32_t dictOverride, Dictionary **dictOut,
                           Chapter **chapterOut, Element **entryOut, int32_t wantChapter,
                           const char *caller, int report) {
    auto fail = [&](TOL_Status code, int value) {
        if (report) {
            if (code == 10) tol_report(code, caller, value);
            else tol_report(code, caller);
        }
        return code;
    };
    if (!elem && dictOverride < 0) return fail(13, 0);
    int32_t slot = dictOverride >= 0 ? dictOverride : static_cast<int32_t>(elem->dict);
    Dictionary *dict = dictGet(slot);
    if (dictOut) *dictOut = dict;
    if (!dict) return fail(14, 0);
    if (!elem) return 0;
    if (wantChapter != -1 && static_cast<int32_t>(elem->chapter) != wantChapter)
        return fail(10, static_cast<int>(elem->chapter));
    if (elem->chapter >= static_cast<uint32_t>(dict->chapterCount))
        return fail(10, static_cast<int>(elem->chapter));
    Chapter *chapter = &dict->chapters[elem->chapter];
    if (chapterOut) *chapterOut = chapter;
    if (elem->index >= static_cast<uint32_t>(chapter->elementCount)) return fail(13, 0);
    Element *entry = &chapter->elements[elem->index];
    if (entry->deleted == 2) return fail(13, 0);
    if (entryOut) *entryOut = entry;
    return 0;
}

namespace {
TOL_Elem *walkFrom(uint32_t dict, uint32_t chapter, uint32_t start, int skipHidden, int32_t group,
                   TOL_Elem *dest) {
    Chapter *c = dictChapter(dictGet(static_cast<int>(dict)), static_cast<int>(chapter));
    if (!c) return nullptr;
    for (int32_t i = static_cast<int32_t>(start); i < c->elementCount; ++i) {
        const Element &e = c->elements[i];
        if (e.deleted == 2 || (skipHidden && e.deleted == 1)) continue;
        TOL_Elem *out = dest ? dest : static_cast<TOL_Elem *>(malloc(sizeof(TOL_Elem)));
        if (!out) return nullptr;
        *out = TOL_Elem{dict, chapter, static_cast<uint32_t>(i), group, 0};
        return out;
    }
    return nullptr;
}
}  // namespace

TOL_Elem *TOL_elemGetFirstInChap(uint32_t dict, uint32_t chapter, int skipHidden, TOL_Elem *dest) {
    return walkFrom(dict, chapter, 0, skipHidden, -1, dest);
}

TOL_Elem *TOL_elemGetNextInChap(const TOL_Elem *elem, int skipHidden, TOL_Elem *dest) {
    if (!elem) return nullptr;
    return walkFrom(elem->dict, elem->chapter, elem->index + 1, skipHidden, elem->group, dest);
}

TOL_Elem *TOL_elemGetRoot(const TOL_Elem *elem, TOL_Elem *dest) {
    Element *entry = entryOf(elem);
    if (!entry) return nullptr;
    TOL_Elem *out = dest ? dest : static_cast<TOL_Elem *>(malloc(sizeof(TOL_Elem)));
    if (!out) return nullptr;
    *out = *elem;
    if (hierarchyRelation(elem->chapter) >= 0 && entry->root >= 0)
        out->index = static_cast<uint32_t>(entry->root);
    return out;
}

TOL_Status TOL_elemGetParams(const TOL_Elem *elem, int param, int byRelation, int *count,
                             float **values) {
    const char *caller = "TOL_elemGetParams():";
    if (!elem) return tol_report(16, "TOL_elemGetParams(): elem:");
    if (!count) return tol_report(16, "TOL_elemGetParams(): count:");
    if (!values) return tol_report(16, "TOL_elemGetParams(): values:");
    Element *entry = nullptr;
    TOL_Status status = tol_elemResolve(elem, -1, nullptr, nullptr, &entry, -1, caller, 1);
    if (status) return status;
    if (byRelation) {
        if (relRowFind(&g_relationDict, param) < 0) return tol_report(15, caller, param);
        return tol_report(25, caller, param);
    }
    if (!isModelChapter(elem->chapter))
        return tol_report(26, caller, static_cast<int>(elem->chapter), param, CHP_MODELS);
    int n = paramValueCount(param);
    if (param != 5 && param != 6) return tol_report(23, caller, param, static_cast<int>(elem->chapter));
    float *out = static_cast<float *>(realloc(*values, sizeof(float) * static_cast<size_t>(n)));
    if (!out) return tol_report(70, "TOL_elemGetParams");
    *values = out;
    *count = n;
    if (param == 5) {
        out[0] = entry->selected ? 1.0f : 0.0f;
    } else {
        out[0] = out[1] = out[2] = 0.5f;  // the colour slot reads as mid grey
    }
    return 0;
}

TOL_Status TOL_elemSetParams(const TOL_Elem *elem, int param, int byRelation, int count,
                             const float *values) {
    const char *caller = "TOL_elemSetParams():";
    if (!elem) return tol_report(16, "TOL_elemSetParams(): elem:");
    if (!values) return tol_report(16, "TOL_elemSetParams(): values:");
    Dictionary *dict = nullptr;
    Element *entry = nullptr;
    TOL_Status status = tol_elemResolve(elem, -1, &dict, nullptr, &entry, -1, caller, 1);
    if (status) return status;
    if (byRelation) {
        if (relRowFind(&g_relationDict, param) < 0) return tol_report(15, caller, param);
        return tol_report(25, caller, param);
    }
    int n = paramValueCount(param);
    if (n == 0) return tol_report(23, caller, param, static_cast<int>(elem->chapter));
    if (count != n) return tol_report(24, caller, count, param, n);
    if (param == 22 && elem->chapter == CHP_CAMERAS) {
        if (Camera *camera = static_cast<Camera *>(entry->data)) camera->aspect = values[0];
        return 0;
    }
    if (!isModelChapter(elem->chapter) || (param != 5 && param != 6))
        return tol_report(23, caller, param, static_cast<int>(elem->chapter));
    if (param == 5) entry->selected = values[0] > 0.0f ? 1 : 0;
    // The colour slot accepts its values and keeps none.
    return 0;
}

TOL_Status TOL_elemSetDisplayMode(const TOL_Elem *elem, int mode) {
    Element *entry = entryOf(elem);
    if (!entry) return tol_report(13, "TOL_elemSetDisplayMode():");
    if (entry->deleted == 0) entry->browserData = (entry->browserData & 3u) | static_cast<uint32_t>(mode);
    return 0;
}

TOL_Status TOL_elemDraw(uint32_t dictSlot, const TOL_Elem *elem, uint32_t chapter, int scope,
                        int state, int clearFirst) {
    if (!elem) return tol_report(16, "TOL_elemDraw(): elem:");
    Dictionary *dict = dictGet(static_cast<int>(dictSlot));
    if (!dict) return tol_report(14, "TOL_elemDraw():");
    if (!isModelChapter(chapter)) return 0;  // selection walks model chapters only
    Chapter *c = dictChapter(dict, static_cast<int>(chapter));
    if (!c) return tol_report(10, "TOL_elemDraw():", static_cast<int>(chapter));
    if (clearFirst)
        for (int32_t i = 0; i < c->elementCount; ++i) c->elements[i].selected = 0;
    TOL_Elem target = *elem;
    if (scope == 2 && !TOL_elemGetRoot(elem, &target)) return tol_report(13, "TOL_elemDraw():");
    Element *entry = elemGet(dict, static_cast<int>(chapter), static_cast<int>(target.index));
    if (!entry) return tol_report(13, "TOL_elemDraw():");
    if (scope == 0)
        applyState(entry, state);
    else
        applyToBranch(dict, static_cast<int32_t>(target.index), state, 0);
    return 0;
}
