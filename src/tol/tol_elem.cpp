// Element handles through the layer: verification, resolution, walking a
// chapter, numbered parameters, display mode and selection.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "database.h"
#include "camera.h"
#include "dictionary.h"
#include "material.h"
#include "model.h"
#include "tol.h"

namespace {

constexpr int32_t REL_MODEL_HIERARCHY = 110;   // parent to child among models
constexpr int32_t REL_CAMERA_HIERARCHY = 1110;
constexpr int32_t REL_LIGHT_HIERARCHY = 2110;
// A pseudo chapter outside the table whose handles every verification lets through.
constexpr uint32_t TOL_CHAPTER_UNCHECKED = 211;

bool isModelChapter(uint32_t chapter) { return chapter == CHP_MODELS; }

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

// The element and every element below it, through the child and sibling
// links of the model hierarchy: the links the draw walks, so that a branch
// selected is the branch drawn.
void applyToBranch(Dictionary *dict, int32_t index, int state) {
    Element *entry = elemGet(dict, CHP_MODELS, index);
    if (!entry || entry->deleted != ELEM_LIVE) return;
    applyState(entry, state);
    const Model *top = static_cast<const Model *>(entry->data);
    if (!top) return;
    // Depth first with a stack of our own: a hierarchy is data.
    std::vector<const Model *> stack;
    if (top->firstChild) stack.push_back(top->firstChild);
    size_t visited = 0;
    const size_t limit = static_cast<size_t>(dictChapter(dict, CHP_MODELS)->elementCount);
    while (!stack.empty() && visited++ <= limit) {
        const Model *m = stack.back();
        stack.pop_back();
        if (m->nextSibling) stack.push_back(m->nextSibling);
        if (m->firstChild) stack.push_back(m->firstChild);
        Element *e = elemGet(dict, CHP_MODELS, m->elementIndex);
        if (e && e->deleted == ELEM_LIVE && e->data == m) applyState(e, state);
    }
}

}  // namespace

TOL_Status tol_elementVerify(const TOL_Scene *scene, const TOL_Elem *elem) {
    if (elem && elem->chapter == TOL_CHAPTER_UNCHECKED) return 0;
    if (!tol_verifyEnabled(TOL_VERIFY_ELEMENT)) return 0;
    if (!scene) return tol_report(TOL_ST_INVALID_SCENE, "Invalid scene referenced");
    if (!elem) return tol_report(TOL_ST_INVALID_ELEMENT, "Invalid element referenced");
    if (elem->dict != scene->dict) return tol_report(TOL_ST_ELEMENT_OF_OTHER_SCENE, "Element doesn't belong to Scene");
    Dictionary *dict = dictGet(static_cast<int>(elem->dict));
    if (!dict || elem->chapter >= static_cast<uint32_t>(dict->chapterCount))
        return tol_report(TOL_ST_INVALID_CHAPTER, "tol_elementVerify():", static_cast<int>(elem->chapter));
    if (elem->index >= static_cast<uint32_t>(dict->chapters[elem->chapter].elementCount))
        return tol_report(TOL_ST_INVALID_ELEMENT, "tol_elementVerify():");
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
    if (!chapterOk(elem->chapter)) return tol_report(TOL_ST_WRONG_ELEMENT_KIND, notKind);
    return 0;
}
}  // namespace

TOL_Status tol_modelVerify(const TOL_Scene *scene, const TOL_Elem *elem) {
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "tol_modelVerify(): scn:");
    if (!elem) return tol_report(TOL_ST_NULL_ARGUMENT, "tol_modelVerify(): el:");
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
            if (code == TOL_ST_INVALID_CHAPTER) tol_report(code, caller, value);
            else tol_report(code, caller);
        }
        return code;
    };
    if (!elem && dictOverride < 0) return fail(TOL_ST_INVALID_ELEMENT, 0);
    int32_t slot = dictOverride >= 0 ? dictOverride : static_cast<int32_t>(elem->dict);
    Dictionary *dict = dictGet(slot);
    if (dictOut) *dictOut = dict;
    if (!dict) return fail(TOL_ST_INVALID_DICTIONARY, 0);
    if (!elem) return 0;
    if (wantChapter != -1 && static_cast<int32_t>(elem->chapter) != wantChapter)
        return fail(TOL_ST_INVALID_CHAPTER, static_cast<int>(elem->chapter));
    if (elem->chapter >= static_cast<uint32_t>(dict->chapterCount))
        return fail(TOL_ST_INVALID_CHAPTER, static_cast<int>(elem->chapter));
    Chapter *chapter = &dict->chapters[elem->chapter];
    if (chapterOut) *chapterOut = chapter;
    if (elem->index >= static_cast<uint32_t>(chapter->elementCount)) return fail(TOL_ST_INVALID_ELEMENT, 0);
    Element *entry = &chapter->elements[elem->index];
    if (entry->deleted == ELEM_FREE_SLOT) return fail(TOL_ST_INVALID_ELEMENT, 0);
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
        if (e.deleted == ELEM_FREE_SLOT || (skipHidden && e.deleted == ELEM_HIDDEN)) continue;
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

namespace {

// ---------------------------------------------------------------------------
// Element parameters. Each number reads and writes a field of the records a
// model carries: the node itself, its list entry, its first material, its
// first 2D texture and its 3D texture. Angles are degrees, as in files and
// curves; u16 fields read as whole numbers and are written rounded.

// Where a parameter's values live.
enum ParamHolder {
    HOLD_ENTRY,      // the list entry: any model has it
    HOLD_MODEL,      // the model node (element data)
    HOLD_MATERIAL,   // the node's first material, or a material element's own
    HOLD_TEXTURE,    // the node's first 2D texture, or a 2D texture element's own
    HOLD_TEXTURE3D,  // the node's 3D texture
    HOLD_CAMERA,     // a camera element's record
};

// The records an element offers to its parameters; null where it has none.
struct ParamTarget {
    Element *entry;        // the list entry
    Model *model;          // model node
    Material *material;    // first material
    Texture2D *texture;    // first 2D texture
    Texture3D *texture3D;  // 3D texture
    Camera *camera;        // camera record
};

ParamTarget paramTarget(uint32_t chapter, Element *entry) {
    ParamTarget t{entry, nullptr, nullptr, nullptr, nullptr, nullptr};
    switch (chapter) {
    case CHP_MODELS:
        t.model = static_cast<Model *>(entry->data);
        if (!t.model) break;
        for (int i = 0; t.model->materials && i < t.model->materialCount && !t.material; ++i)
            t.material = t.model->materials[i];
        for (int i = 0; t.model->textures2D && i < t.model->texture2DCount && !t.texture; ++i)
            t.texture = t.model->textures2D[i];
        t.texture3D = t.model->texture3D;
        break;
    case CHP_MATERIALS: t.material = static_cast<Material *>(entry->data); break;
    case CHP_TEXTURES2D: t.texture = static_cast<Texture2D *>(entry->data); break;
    case CHP_CAMERAS: t.camera = static_cast<Camera *>(entry->data); break;
    default: break;
    }
    return t;
}

bool holderPresent(const ParamTarget &t, ParamHolder holder, uint32_t chapter) {
    switch (holder) {
    case HOLD_ENTRY: return isModelChapter(chapter);
    case HOLD_MODEL: return t.model;
    case HOLD_MATERIAL: return t.material;
    case HOLD_TEXTURE: return t.texture;
    case HOLD_TEXTURE3D: return t.texture3D;
    case HOLD_CAMERA: return t.camera;
    }
    return false;
}

constexpr float DEGREES_PER_RADIAN = 57.29577951f;

void getFloats(float *out, const float *field, int n) { memcpy(out, field, sizeof(float) * static_cast<size_t>(n)); }
void setFloats(float *field, const float *in, int n) { memcpy(field, in, sizeof(float) * static_cast<size_t>(n)); }
void getWords(float *out, const uint16_t *field, int n) {
    for (int i = 0; i < n; ++i) out[i] = field[i];
}
void setWords(uint16_t *field, const float *in, int n) {
    for (int i = 0; i < n; ++i) {
        float v = in[i] < 0.0f ? 0.0f : in[i] > 65535.0f ? 65535.0f : in[i];
        field[i] = static_cast<uint16_t>(v + 0.5f);
    }
}

// A changed material or texture is rebuilt by the draw when it sees the new revision.
void touched(const ParamTarget &t, ParamHolder holder) {
    if (holder == HOLD_MATERIAL) ++t.material->revision;
    if (holder == HOLD_TEXTURE) ++t.texture->revision;
}

using ParamGet = void (*)(const ParamTarget &t, float *out);
using ParamSet = void (*)(const ParamTarget &t, const float *in);

// The getters and setters, one pair a parameter.
void getInherit(const ParamTarget &t, float *o) { getWords(o, t.model->inheritFlags, 2); }
void setInherit(const ParamTarget &t, const float *v) { setWords(t.model->inheritFlags, v, 2); }
void getVisible(const ParamTarget &t, float *o) { o[0] = t.model->visible ? 1.0f : 0.0f; }
void setVisible(const ParamTarget &t, const float *v) { t.model->visible = v[0] >= 1.0f ? 1 : 0; }
void getAnimKind(const ParamTarget &t, float *o) { getWords(o, &t.model->animKind, 1); }
void setAnimKind(const ParamTarget &t, const float *v) { setWords(&t.model->animKind, v, 1); }
void getStamp(const ParamTarget &t, float *o) { o[0] = t.model->versionStamp; }
void setStamp(const ParamTarget &t, const float *v) { t.model->versionStamp = v[0]; }
void getSelected(const ParamTarget &t, float *o) { o[0] = t.entry->selected ? 1.0f : 0.0f; }
void setSelected(const ParamTarget &t, const float *v) { t.entry->selected = v[0] > 0.0f ? 1 : 0; }
// The colour slot reads as mid grey and keeps nothing.
void getColourSlot(const ParamTarget &, float *o) { o[0] = o[1] = o[2] = 0.5f; }
void setColourSlot(const ParamTarget &, const float *) {}
void getScaling(const ParamTarget &t, float *o) { getFloats(o, t.model->scaling, 3); }
void setScaling(const ParamTarget &t, const float *v) {
    setFloats(t.model->scaling, v, 3);
    modelUpdateTransform(t.model);
}
void getRotation(const ParamTarget &t, float *o) {
    for (int i = 0; i < 3; ++i) o[i] = t.model->rotation[i] * DEGREES_PER_RADIAN;
}
void setRotation(const ParamTarget &t, const float *v) {
    for (int i = 0; i < 3; ++i) t.model->rotation[i] = v[i] / DEGREES_PER_RADIAN;
    modelUpdateTransform(t.model);
}
void getTranslation(const ParamTarget &t, float *o) { getFloats(o, t.model->translation, 3); }
void setTranslation(const ParamTarget &t, const float *v) {
    setFloats(t.model->translation, v, 3);
    modelUpdateTransform(t.model);
}
void getAmbient(const ParamTarget &t, float *o) { getFloats(o, t.material->ambient, 3); }
void setAmbient(const ParamTarget &t, const float *v) { setFloats(t.material->ambient, v, 3); }
void getDecay(const ParamTarget &t, float *o) { o[0] = t.material->specularDecay; }
void setDecay(const ParamTarget &t, const float *v) { t.material->specularDecay = v[0]; }
void getTransparency(const ParamTarget &t, float *o) { o[0] = t.material->transparency; }
void setTransparency(const ParamTarget &t, const float *v) {
    for (float &c : t.material->transparencyColour) c = v[0];
    t.material->transparency = v[0];
}
void getShading(const ParamTarget &t, float *o) { getWords(o, &t.material->shadingModel, 1); }
void setShading(const ParamTarget &t, const float *v) { setWords(&t.material->shadingModel, v, 1); }
void getDiffuse(const ParamTarget &t, float *o) { getFloats(o, t.material->diffuse, 3); }
void setDiffuse(const ParamTarget &t, const float *v) { setFloats(t.material->diffuse, v, 3); }
void getSpecular(const ParamTarget &t, float *o) { getFloats(o, t.material->specular, 3); }
void setSpecular(const ParamTarget &t, const float *v) { setFloats(t.material->specular, v, 3); }
// The stored bounding block: its first two vectors.
void getBounding(const ParamTarget &t, float *o) {
    getFloats(o, t.model->bounding[0], 3);
    getFloats(o + 3, t.model->bounding[1], 3);
}
void setBounding(const ParamTarget &t, const float *v) {
    setFloats(t.model->bounding[0], v, 3);
    setFloats(t.model->bounding[1], v + 3, 3);
    t.model->hasBounding = 1;
}
void getProjectionBox(const ParamTarget &t, float *o) {
    getFloats(o, t.texture->boxSize, 3);
    getFloats(o + 3, t.texture->boxCentre, 3);
}
void setProjectionBox(const ParamTarget &t, const float *v) {
    setFloats(t.texture->boxSize, v, 3);
    setFloats(t.texture->boxCentre, v + 3, 3);
}
void getSolidPlace(const ParamTarget &t, float *o) {
    getFloats(o, t.texture3D->scaling, 3);
    getFloats(o + 3, t.texture3D->translation, 3);
}
void setSolidPlace(const ParamTarget &t, const float *v) {
    setFloats(t.texture3D->scaling, v, 3);
    setFloats(t.texture3D->translation, v + 3, 3);
}
void getAspect(const ParamTarget &t, float *o) { o[0] = t.camera->aspect; }
void setAspect(const ParamTarget &t, const float *v) { t.camera->aspect = v[0]; }
void getUvScale(const ParamTarget &t, float *o) { o[0] = t.texture->uScale; o[1] = t.texture->vScale; }
void setUvScale(const ParamTarget &t, const float *v) { t.texture->uScale = v[0]; t.texture->vScale = v[1]; }
void getUvOffset(const ParamTarget &t, float *o) { o[0] = t.texture->uOffset; o[1] = t.texture->vOffset; }
void setUvOffset(const ParamTarget &t, const float *v) { t.texture->uOffset = v[0]; t.texture->vOffset = v[1]; }
void getCropX(const ParamTarget &t, float *o) { getFloats(o, t.texture->crop, 2); }
void setCropX(const ParamTarget &t, const float *v) { setFloats(t.texture->crop, v, 2); }
void getCropY(const ParamTarget &t, float *o) { getFloats(o, t.texture->crop + 2, 2); }
void setCropY(const ParamTarget &t, const float *v) { setFloats(t.texture->crop + 2, v, 2); }
void getTiles(const ParamTarget &t, float *o) { getWords(o, t.texture->tiles, 2); }
void setTiles(const ParamTarget &t, const float *v) { setWords(t.texture->tiles, v, 2); }
void getMirror(const ParamTarget &t, float *o) { getWords(o, t.texture->mirror, 2); }
void setMirror(const ParamTarget &t, const float *v) { setWords(t.texture->mirror, v, 2); }
void getCropSwitches(const ParamTarget &t, float *o) { o[0] = t.texture->cropOn; o[1] = t.texture->interpolate; }
void setCropSwitches(const ParamTarget &t, const float *v) {
    setWords(&t.texture->cropOn, v, 1);
    setWords(&t.texture->interpolate, v + 1, 1);
}

// number, values, holder, getter and setter suffix. Parameter 22 is a
// camera's: a model never has it.
#define TOL_ELEM_PARAMS(X)                       \
    X(1, 2, HOLD_MODEL, Inherit)                 \
    X(2, 1, HOLD_MODEL, Visible)                 \
    X(3, 1, HOLD_MODEL, AnimKind)                \
    X(4, 1, HOLD_MODEL, Stamp)                   \
    X(5, 1, HOLD_ENTRY, Selected)                \
    X(6, 3, HOLD_ENTRY, ColourSlot)              \
    X(10, 3, HOLD_MODEL, Scaling)                \
    X(11, 3, HOLD_MODEL, Rotation)               \
    X(12, 3, HOLD_MODEL, Translation)            \
    X(13, 3, HOLD_MATERIAL, Ambient)             \
    X(14, 1, HOLD_MATERIAL, Decay)               \
    X(15, 1, HOLD_MATERIAL, Transparency)        \
    X(16, 1, HOLD_MATERIAL, Shading)             \
    X(17, 3, HOLD_MATERIAL, Diffuse)             \
    X(18, 6, HOLD_MODEL, Bounding)               \
    X(19, 6, HOLD_TEXTURE, ProjectionBox)        \
    X(20, 6, HOLD_TEXTURE3D, SolidPlace)         \
    X(21, 3, HOLD_MATERIAL, Specular)            \
    X(22, 1, HOLD_CAMERA, Aspect)                \
    X(100, 2, HOLD_TEXTURE, UvScale)             \
    X(101, 2, HOLD_TEXTURE, UvOffset)            \
    X(102, 2, HOLD_TEXTURE, CropX)               \
    X(103, 2, HOLD_TEXTURE, CropY)               \
    X(104, 2, HOLD_TEXTURE, Tiles)               \
    X(105, 2, HOLD_TEXTURE, Mirror)              \
    X(106, 2, HOLD_TEXTURE, CropSwitches)

struct ElemParam {
    int number;         // parameter number
    int count;          // values it has
    ParamHolder holder; // record the values live in
    ParamGet get;
    ParamSet set;
};

constexpr ElemParam ELEM_PARAMS[] = {
#define X(number, count, holder, name) {number, count, holder, get##name, set##name},
    TOL_ELEM_PARAMS(X)
#undef X
};

const ElemParam *paramFind(int number) {
    for (const ElemParam &p : ELEM_PARAMS)
        if (p.number == number) return &p;
    return nullptr;
}

// Relations whose value is an element parameter: relation id, parameter. The
// relation's source chapter is the chapter of the elements it drives.
#define TOL_RELATION_PARAMS(X) \
    X(10, 2)                   \
    X(12, 2)                   \
    X(100, 10)                 \
    X(101, 11)                 \
    X(113, 12)                 \
    X(301, 13)                 \
    X(302, 17)                 \
    X(303, 21)

constexpr struct {
    int32_t relid;  // relation id
    int param;      // element parameter it drives
} RELATION_PARAMS[] = {
#define X(relid, param) {relid, param},
    TOL_RELATION_PARAMS(X)
#undef X
};

// Resolves the element and the parameter of a get or set (`count` is the
// number of values a set brings).
struct ParamCall {
    TOL_Status status;      // non-zero: reported already, the call ends with it
    const ElemParam *param; // the parameter reached
    ParamTarget target;     // the element's records
};

ParamCall paramResolve(const TOL_Elem *elem, int number, int byRelation, const char *caller, bool isSet,
                       int count) {
    ParamCall call{0, nullptr, {}};
    auto fail = [&](TOL_Status status) {
        call.status = status;
        return call;
    };
    Element *entry = nullptr;
    if (TOL_Status status = tol_elemResolve(elem, -1, nullptr, nullptr, &entry, -1, caller, 1)) return fail(status);
    const int chapter = static_cast<int>(elem->chapter);
    const bool model = isModelChapter(elem->chapter);
    call.target = paramTarget(elem->chapter, entry);
    if (byRelation) {
        if (relRowFind(&g_relationDict, number) < 0) return fail(tol_report(TOL_ST_INVALID_RELATION_ID, caller, number));
        for (const auto &r : RELATION_PARAMS)
            if (r.relid == number) call.param = paramFind(r.param);
        if (!call.param) return fail(tol_report(TOL_ST_PARAMETER_WITHOUT_VALUE, caller, number));
        int16_t relChapter = -10;
        relRowInstance(&g_relationDict, number, 1, &relChapter, nullptr, nullptr, nullptr, nullptr, nullptr);
        if (relChapter != -10 && relChapter != chapter)
            return fail(tol_report(TOL_ST_INVALID_PARAMETER_CHAPTER, caller, chapter, number, static_cast<int>(relChapter)));
    } else {
        if (!isSet && !model) return fail(tol_report(TOL_ST_INVALID_PARAMETER_CHAPTER, caller, chapter, number, CHP_MODELS));
        call.param = paramFind(number);
        if (!call.param) return fail(tol_report(TOL_ST_INVALID_PARAMETER, caller, number, chapter));
    }
    if (isSet && count != call.param->count)
        return fail(tol_report(TOL_ST_INVALID_VALUE_COUNT, caller, count, number, call.param->count));
    // By number only models have parameters, and cameras their aspect.
    bool kindOk = byRelation || model || call.param->holder == HOLD_CAMERA;
    if (!kindOk || !holderPresent(call.target, call.param->holder, elem->chapter))
        return fail(tol_report(TOL_ST_INVALID_PARAMETER, caller, number, chapter));
    return call;
}

}  // namespace

TOL_Status TOL_elemGetParams(const TOL_Elem *elem, int param, int byRelation, int *count,
                             float **values) {
    const char *caller = "TOL_elemGetParams():";
    if (!elem) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_elemGetParams(): elem:");
    if (!count) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_elemGetParams(): count:");
    if (!values) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_elemGetParams(): values:");
    ParamCall call = paramResolve(elem, param, byRelation, caller, false, 0);
    if (call.status) return call.status;
    const int n = call.param->count;
    float *out = static_cast<float *>(realloc(*values, sizeof(float) * static_cast<size_t>(n)));
    if (!out) return tol_report(TOL_ST_OUT_OF_MEMORY, "TOL_elemGetParams");
    *values = out;
    *count = n;
    call.param->get(call.target, out);
    return 0;
}

TOL_Status TOL_elemSetParams(const TOL_Elem *elem, int param, int byRelation, int count,
                             const float *values) {
    const char *caller = "TOL_elemSetParams():";
    if (!elem) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_elemSetParams(): elem:");
    if (!values) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_elemSetParams(): values:");
    ParamCall call = paramResolve(elem, param, byRelation, caller, true, count);
    if (call.status) return call.status;
    call.param->set(call.target, values);
    touched(call.target, call.param->holder);
    return 0;
}

TOL_Status TOL_elemSetDisplayMode(const TOL_Elem *elem, int mode) {
    Element *entry = entryOf(elem);
    if (!entry) return tol_report(TOL_ST_INVALID_ELEMENT, "TOL_elemSetDisplayMode():");
    if (entry->deleted == ELEM_LIVE) entry->browserData = (entry->browserData & 3u) | static_cast<uint32_t>(mode);
    return 0;
}

TOL_Status TOL_elemDraw(uint32_t dictSlot, const TOL_Elem *elem, uint32_t chapter, int scope,
                        int state, int clearFirst) {
    if (!elem) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_elemDraw(): elem:");
    Dictionary *dict = dictGet(static_cast<int>(dictSlot));
    if (!dict) return tol_report(TOL_ST_INVALID_DICTIONARY, "TOL_elemDraw():");
    if (!isModelChapter(chapter)) return 0;  // selection walks model chapters only
    Chapter *c = dictChapter(dict, static_cast<int>(chapter));
    if (!c) return tol_report(TOL_ST_INVALID_CHAPTER, "TOL_elemDraw():", static_cast<int>(chapter));
    if (clearFirst)
        for (int32_t i = 0; i < c->elementCount; ++i) c->elements[i].selected = 0;
    TOL_Elem target = *elem;
    if (scope == 2 && !TOL_elemGetRoot(elem, &target)) return tol_report(TOL_ST_INVALID_ELEMENT, "TOL_elemDraw():");
    Element *entry = elemGet(dict, static_cast<int>(chapter), static_cast<int>(target.index));
    if (!entry) return tol_report(TOL_ST_INVALID_ELEMENT, "TOL_elemDraw():");
    if (scope == 0)
        applyState(entry, state);
    else
        applyToBranch(dict, static_cast<int32_t>(target.index), state);
    return 0;
}
