// Materials and lights on the hardware: one display list per material, with
// its colours in the alpha of the models that use it, bound by the strip
// stream through its hooks; and the lights of a frame, set in world space
// once the camera is loaded, with the links that keep a light off the models
// it is not linked to.
#include <GL/gl.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "camera.h"
#include "dictionary.h"
#include "material.h"
#include "model.h"
#include "view_internal.h"

namespace {

constexpr int32_t REL_LIGHT_LINK = 2200;    // light to a model it lights alone
constexpr int32_t REL_EXPRESSION = 20010;   // an expression drives a value of the element
constexpr int32_t REL_MATERIAL_FIRST = 301; // curves of a material's colours and values
constexpr int32_t REL_MATERIAL_LAST = 312;
constexpr double DEGREES_PER_RADIAN = 57.29577951308232;

int stopped(const BW_GraphicProps *gprops) { return gprops && gprops->stopFct && gprops->stopFct() ? TOL_ST_STOPPED : 0; }

Dictionary *dictOf(const TOL_Scene *scene) { return scene ? dictGet(static_cast<int>(scene->dict)) : nullptr; }

// ---------------------------------------------------------------------------
// Material lists

// Where each colour of a list comes from.
enum ColourSource : uint8_t {
    COLOUR_OWN,    // the material's, in the list's alpha
    COLOUR_BLACK,  // black, alpha 1
    COLOUR_ZERO,   // all four zero
};

struct MaterialForm {
    uint8_t compiled;   // 0: the list stays empty
    uint8_t ambient;    // ColourSource of GL_AMBIENT
    uint8_t diffuse;    // ColourSource of GL_DIFFUSE
    uint8_t specular;   // ColourSource of GL_SPECULAR
    uint8_t shininess;  // 1: the specular decay, at most 128; 0: none
};

constexpr MaterialForm FORM_NONE = {0, COLOUR_BLACK, COLOUR_BLACK, COLOUR_BLACK, 0};
constexpr MaterialForm FORM_CONSTANT = {1, COLOUR_BLACK, COLOUR_OWN, COLOUR_BLACK, 0};
constexpr MaterialForm FORM_PLAIN = {1, COLOUR_OWN, COLOUR_OWN, COLOUR_BLACK, 0};
constexpr MaterialForm FORM_HIGHLIGHT = {1, COLOUR_OWN, COLOUR_OWN, COLOUR_OWN, 1};
constexpr MaterialForm FORM_SHADOW = {1, COLOUR_ZERO, COLOUR_ZERO, COLOUR_BLACK, 0};

// By shading model.
constexpr int SHADING_MODELS = 8;
const MaterialForm materialForms[SHADING_MODELS] = {FORM_NONE,      FORM_CONSTANT,  FORM_PLAIN,  FORM_PLAIN,
                                                    FORM_HIGHLIGHT, FORM_HIGHLIGHT, FORM_SHADOW, FORM_CONSTANT};
constexpr float MAX_SHININESS = 128.0f;

const MaterialForm &formOf(const Material *m) {
    return m->shadingModel < SHADING_MODELS ? materialForms[m->shadingModel] : FORM_NONE;
}

void colourOf(uint8_t source, const float rgb[3], float alpha, float out[4]) {
    for (int k = 0; k < 3; ++k) out[k] = source == COLOUR_OWN ? rgb[k] : 0.0f;
    out[3] = source == COLOUR_OWN ? alpha : (source == COLOUR_BLACK ? 1.0f : 0.0f);
}

// What a material's list holds: the values of its glMaterial calls.
struct MaterialValues {
    uint8_t compiled;     // 0: the list is empty
    float ambient[4];     // GL_AMBIENT
    float diffuse[4];     // GL_DIFFUSE
    float specular[4];    // GL_SPECULAR
    float shininess;      // GL_SHININESS

    bool operator==(const MaterialValues &o) const {
        return compiled == o.compiled && memcmp(ambient, o.ambient, sizeof ambient) == 0 &&
               memcmp(diffuse, o.diffuse, sizeof diffuse) == 0 &&
               memcmp(specular, o.specular, sizeof specular) == 0 && shininess == o.shininess;
    }
};

MaterialValues valuesOf(const Material *m, float alpha) {
    const MaterialForm &form = formOf(m);
    MaterialValues v{};
    v.compiled = form.compiled;
    if (!form.compiled) return v;
    colourOf(form.ambient, m->ambient, alpha, v.ambient);
    colourOf(form.diffuse, m->diffuse, alpha, v.diffuse);
    colourOf(form.specular, m->specular, alpha, v.specular);
    const float decay = m->specularDecay < MAX_SHININESS ? m->specularDecay : MAX_SHININESS;
    v.shininess = form.shininess ? decay : 0.0f;
    return v;
}

// What the draw last compiled into each material list, by id. The lists
// belong to the one GL context, whichever copy of the scene compiled them,
// so this is one table for all scenes.
struct CompiledMaterial {
    int32_t serial = -1;                // state initialisation it was compiled after; -1 never
    const Material *record = nullptr;   // the record compiled
    uint32_t revision = 0;              // the record's revision then
    float alpha = 1.0f;                 // alpha of the list's colours
    MaterialValues values{};            // what went into the list
};
std::vector<CompiledMaterial> compiledMaterials;

CompiledMaterial &compiledOf(int id) {
    if (compiledMaterials.size() <= static_cast<size_t>(id)) compiledMaterials.resize(static_cast<size_t>(id) + 1);
    return compiledMaterials[static_cast<size_t>(id)];
}

bool compiledNow(const CompiledMaterial &c) { return c.serial == g_grStateInit.serial; }

// The alpha a material's list has, or gets at its first compile: an
// opaque material's list holds alpha 1, as the models that use it.
float listAlpha(int id, const Material *m) {
    const CompiledMaterial &c = compiledOf(id);
    if (compiledNow(c)) return c.alpha;
    return id == DEFAULT_MATERIAL_ID || !m ? 1.0f : 1.0f - m->transparency;
}

// A material with curves or an expression on one of its values changes
// each frame.
bool materialAnimated(const Element *e) {
    return relCountRange(e, 1, RELGR_PARAM, REL_MATERIAL_FIRST, REL_MATERIAL_LAST, -1) > 0 ||
           relCount(e, 1, RELGR_PARAM, REL_EXPRESSION, -1) > 0;
}

const char *materialName(Dictionary *dict, int id) {
    if (const Material *m = grMaterialOfId(dict, id)) return m->name.c_str();
    const Element *e = elemGet(dict, CHP_MATERIALS, id - 2);
    return e && e->name ? e->name->fullName.c_str() : "";
}

// Compiles the list of `id` unless it holds the material's values in `alpha`
// already. `check` asks for a look at the values even when the record and
// its revision are those compiled; `force` compiles whatever the list holds.
TOL_Status materialListUpdate(const Material *m, int id, float alpha, bool check, bool force,
                              const BW_GraphicProps *gprops) {
    CompiledMaterial &c = compiledOf(id);
    if (!force && compiledNow(c) && c.alpha == alpha) {
        if (!check && c.record == m && c.revision == m->revision) return 0;
        // Another copy of the scene, or a change: a list that holds these
        // values already is kept.
        if (c.values == valuesOf(m, alpha)) {
            c.record = m;
            c.revision = m->revision;
            return 0;
        }
    }
    if (stopped(gprops)) return TOL_ST_STOPPED;
    return materialListCompile(m, id, alpha);
}

// ---------------------------------------------------------------------------
// Lights


// Every light reaches every model, and no cone.
void lightRoundAbout(GLenum gl) {
    glLightf(gl, GL_SPOT_EXPONENT, 0.0f);
    glLightf(gl, GL_SPOT_CUTOFF, 180.0f);
}

int lightsUsedLast = 0;  // GL lights the previous frame enabled
int lightsOn = 0;        // lights the last bind found on, beyond eight too

// Linked lights of the frame and their GL light.
struct SelectiveLight {
    int32_t light;  // LIGHTS entry
    int gl;         // GL_LIGHT0 + gl
};
SelectiveLight selectiveLights[GR_MAX_LIGHTS];
int selectiveCount = 0;
const ViewScene *selectiveScene = nullptr;  // the scene whose lights they are

// Links of a light from its light link relations: the mode word is 1 when
// it has any, and the table holds 1 at each linked model.
void lightLinksMake(const Element &e, ShadeLight &l) {
    l.mode = 0;
    l.table.clear();
    if (!e.childGroups || RELGR_RENDER >= e.childGroupCount) return;
    const RelationGroup &g = e.childGroups[RELGR_RENDER];
    for (int k = 0; k < g.count; ++k) {
        const RelationInst &r = g.items[k];
        if (r.relid != REL_LIGHT_LINK || r.chp != CHP_MODELS || r.elem < 0) continue;
        l.mode = 1;
        if (l.table.size() <= static_cast<size_t>(r.elem)) l.table.resize(static_cast<size_t>(r.elem) + 1, 0);
        l.table[static_cast<size_t>(r.elem)] = l.mode;
    }
}

// ---------------------------------------------------------------------------
// The strip stream's hooks

Dictionary *hookDict = nullptr;  // scene whose strips are playing
float hookAlpha = 1.0f;          // alpha of the model whose strips are playing

// A shaded material is its list; a constant one is drawn unlit in its
// diffuse colour with the model's alpha, black when it cannot be found.
void stripMaterialBind(int id, int shaded) {
    if (shaded) {
        glCallList(static_cast<GLuint>(MATERIAL_LIST_BASE + id));
        return;
    }
    const Material *m = grMaterialOfId(hookDict, id);
    if (m) glColor4f(m->diffuse[0], m->diffuse[1], m->diffuse[2], hookAlpha);
    else glColor4f(0.0f, 0.0f, 0.0f, hookAlpha);
}

}  // namespace

// ---------------------------------------------------------------------------
// Records

ViewScene &shadeSceneOf(const Dictionary *dict) {
    ViewScene &s = viewSceneOf(dict);
    Dictionary *d = const_cast<Dictionary *>(dict);
    const Chapter *lights = dictChapter(d, CHP_LIGHTS);
    const ShadeTexture freshTexture = {TEXTURE_FLAG_LOAD | TEXTURE_FLAG_UV | TEXTURE_FLAG_COMPILE, -1};
    if (s.shadeSerial != g_grStateInit.serial) {
        // The links are made again from the relations.
        s.shadeSerial = g_grStateInit.serial;
        s.lights.clear();
        selectiveCount = 0;
    }
    if (s.texturesSerial != g_grStateInit.texturesSerial) {
        s.texturesSerial = g_grStateInit.texturesSerial;
        for (ShadeTexture &t : s.textures) t.flags = freshTexture.flags;
        s.textureWalk = 0;
    }
    // Elements added since: their records are fresh.
    for (int32_t i = static_cast<int32_t>(s.lights.size()); lights && i < lights->elementCount; ++i) {
        s.lights.push_back(ShadeLight{});
        lightLinksMake(lights->elements[i], s.lights.back());
    }
    const size_t textureSlots = static_cast<size_t>(grTextureIdEnd(d) - 2);
    if (s.textures.size() < textureSlots) s.textures.resize(textureSlots, freshTexture);
    return s;
}

void shadeStripsBegin(Dictionary *dict, float alpha) {
    hookDict = dict;
    hookAlpha = alpha;
    g_stripMaterialBind = stripMaterialBind;
}

// ---------------------------------------------------------------------------
// Materials

int materialListCompile(const Material *m, int id, float alpha) {
    if (!m) return TOL_ST_INVALID_GRAPHIC_DATA;
    const MaterialValues v = valuesOf(m, alpha);
    glNewList(static_cast<GLuint>(MATERIAL_LIST_BASE + id), GL_COMPILE);
    if (v.compiled) {
        glMaterialfv(GL_FRONT, GL_AMBIENT, v.ambient);
        glMaterialfv(GL_FRONT, GL_DIFFUSE, v.diffuse);
        glMaterialfv(GL_FRONT, GL_SPECULAR, v.specular);
        glMaterialf(GL_FRONT, GL_SHININESS, v.shininess);
    }
    glEndList();
    if (id >= 0) compiledOf(id) = CompiledMaterial{g_grStateInit.serial, m, m->revision, alpha, v};
    return 0;
}

TOL_Status materialBind(TOL_Scene *scene, int32_t index, BW_GraphicProps *gprops) {
    Dictionary *dict = dictOf(scene);
    if (!dict) return TOL_ST_INVALID_GRAPHIC_DATA;
    const int id = index < 0 ? DEFAULT_MATERIAL_ID : index + 2;
    const Material *material = grMaterialOfId(dict, id);
    if (!material) return TOL_ST_INVALID_GRAPHIC_DATA;
    const Element *e = index >= 0 ? elemGet(dict, CHP_MATERIALS, index) : nullptr;
    const bool animated = e && e->data == material && materialAnimated(e);
    return materialListUpdate(material, id, listAlpha(id, material), animated, false, gprops);
}

TOL_Status materialsBind(TOL_Scene *scene, BW_GraphicProps *gprops) {
    Dictionary *dict = dictOf(scene);
    if (!dict) return 0;
    TOL_Status status = materialBind(scene, -1, gprops);
    const int end = grMaterialIdEnd(dict);
    for (int id = 2; id < end && status != TOL_ST_STOPPED; ++id) {
        if (!grMaterialOfId(dict, id)) continue;  // a slot without a material
        status = materialBind(scene, id - 2, gprops);
    }
    return status;
}

TOL_Status materialsCompileList(TOL_Scene *scene, int count, const int32_t *indices, BW_GraphicProps *gprops) {
    Dictionary *dict = dictOf(scene);
    if (!dict || !indices) return 0;
    TOL_Status status = 0;
    for (int i = 0; i < count && status != TOL_ST_STOPPED; ++i) {
        const int id = indices[i] < 0 ? DEFAULT_MATERIAL_ID : indices[i] + 2;
        const Material *m = grMaterialOfId(dict, id);
        status = m ? materialListUpdate(m, id, listAlpha(id, m), true, true, gprops) : TOL_ST_INVALID_GRAPHIC_DATA;
        if (status == TOL_ST_INVALID_GRAPHIC_DATA) fprintf(stderr, "ERROR: MATERIAL %s INVALID!\n", materialName(dict, id));
    }
    return status;
}

TOL_Status materialsUpdateAlpha(TOL_Scene *scene, int count, Material *const *materials, float alpha,
                                BW_GraphicProps *gprops) {
    Dictionary *dict = dictOf(scene);
    if (!dict) return 0;
    TOL_Status status = 0;
    for (int i = 0; i < (count > 0 ? count : 1) && status != TOL_ST_STOPPED; ++i) {
        // A material the scene does not hold draws as the default one.
        const int id = grMaterialId(dict, count > 0 && materials ? materials[i] : nullptr);
        const Material *m = grMaterialOfId(dict, id);
        if (!m || listAlpha(id, m) == alpha) continue;
        status = materialListUpdate(m, id, alpha, true, false, gprops) == TOL_ST_STOPPED ? TOL_ST_STOPPED : 0;
    }
    return status;
}

float materialAlpha(const Dictionary *dict, const Material *material) {
    Dictionary *d = const_cast<Dictionary *>(dict);
    const int id = grMaterialId(d, material);
    return listAlpha(id, grMaterialOfId(d, id));
}

// ---------------------------------------------------------------------------
// Lights

TOL_Status lightSetup(const Light *l, int index, BW_GraphicProps *gprops) {
    if (stopped(gprops)) return TOL_ST_STOPPED;
    if (!l || index < 0 || index >= GR_MAX_LIGHTS) return 0;
    const GLenum gl = static_cast<GLenum>(GL_LIGHT0 + index);
    const LightForm &form = lightFormOf(l->type);
    const GLfloat colour[4] = {l->colour[0], l->colour[1], l->colour[2], 1.0f};
    const GLfloat position[4] = {l->position[0], l->position[1], l->position[2], form.w};
    static const GLfloat white[4] = {1.0f, 1.0f, 1.0f, 1.0f};
    glLightfv(gl, GL_DIFFUSE, colour);
    glLightfv(gl, GL_POSITION, position);
    if (form.spot) {
        const GLfloat aim[3] = {l->interest[0] - l->position[0], l->interest[1] - l->position[1],
                                l->interest[2] - l->position[2]};
        glLightfv(gl, GL_SPOT_DIRECTION, aim);
        glLightf(gl, GL_SPOT_EXPONENT, 0.0f);
        glLightf(gl, GL_SPOT_CUTOFF, static_cast<float>(l->coneAngle * DEGREES_PER_RADIAN));
    } else {
        lightRoundAbout(gl);
    }
    glLightfv(gl, GL_SPECULAR, white);
    glEnable(gl);
    return 0;
}

TOL_Status lightsBind(TOL_Scene *scene, BW_GraphicProps *gprops) {
    Dictionary *dict = dictOf(scene);
    if (!dict || !gprops) return 0;
    ViewScene &s = shadeSceneOf(dict);
    selectiveCount = 0;
    selectiveScene = &s;
    int count = 0;
    TOL_Status status = 0;
    const Camera *camera = static_cast<const Camera *>(gprops->curCamera);
    if (gprops->headLight == 1 && camera) {
        // One light from the eye along the view, in the default light's colour.
        const float *c = g_sceneLighting.defaultLight.colour;
        const GLfloat colour[4] = {c[0], c[1], c[2], 1.0f};
        const GLfloat position[4] = {camera->position[0] - camera->interest[0],
                                     camera->position[1] - camera->interest[1],
                                     camera->position[2] - camera->interest[2], 0.0f};
        glLightfv(GL_LIGHT0, GL_DIFFUSE, colour);
        glLightfv(GL_LIGHT0, GL_POSITION, position);
        lightRoundAbout(GL_LIGHT0);
        glEnable(GL_LIGHT0);
        count = 1;
    } else {
        grDefaultLightSet();
        const Chapter *lights = dictChapter(dict, CHP_LIGHTS);
        for (int32_t i = 0; lights && i < lights->elementCount && status == 0; ++i) {
            const Element &e = lights->elements[i];
            const Light *l = static_cast<const Light *>(e.data);
            if (e.deleted != ELEM_LIVE || !l || !l->on) continue;
            if (count < GR_MAX_LIGHTS) {
                status = lightSetup(l, count, gprops);
                if (s.lights[static_cast<size_t>(i)].mode != 0) selectiveLights[selectiveCount++] = SelectiveLight{i, count};
            }
            ++count;  // the ninth and later are counted, never set
        }
        if (count == 0) {
            glEnable(GL_LIGHT0);
            count = 1;
        }
    }
    lightsOn = count;
    for (int n = count; n < lightsUsedLast && n < GR_MAX_LIGHTS; ++n) glDisable(static_cast<GLenum>(GL_LIGHT0 + n));
    lightsUsedLast = count;
    return status;
}

int lightsCount() { return lightsOn; }

void selectiveLightsOff(int32_t modelIndex) {
    for (int i = 0; i < selectiveCount; ++i) {
        const ShadeLight &l = selectiveScene->lights[static_cast<size_t>(selectiveLights[i].light)];
        const bool beyond = modelIndex < 0 || static_cast<size_t>(modelIndex) >= l.table.size();
        const bool off = beyond ? l.mode != 0 : l.table[static_cast<size_t>(modelIndex)] != l.mode;
        if (off) glDisable(static_cast<GLenum>(GL_LIGHT0 + selectiveLights[i].gl));
    }
}

void selectiveLightsOn() {
    for (int i = 0; i < selectiveCount; ++i) glEnable(static_cast<GLenum>(GL_LIGHT0 + selectiveLights[i].gl));
}
