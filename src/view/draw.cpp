// The scene draw: the frame wrapper, the pass over the model list with its
// frustum pruning, and the draw of one model in its shaded, matte and wire
// parts.
#include <GL/gl.h>

#include <cstdio>
#include <cstdlib>

#include "camera.h"
#include "dictionary.h"
#include "geometry.h"
#include "material.h"
#include "model.h"
#include "view.h"

namespace {

constexpr uint16_t ENTRY_ALPHA_ZERO = 128;   // per-model word: matte alpha 0 under the overload
constexpr uint16_t ENTRY_ALPHA_ONE = 0x100;  // per-model word: matte alpha 1 under the overload
constexpr uint16_t DISP_BITS = DISP_WIRE | DISP_SHADED | DISP_TEXTURED | DISP_NORMALS;
constexpr int32_t KIND_NO_SHADE = 13;        // models of this kind are never filled
constexpr int32_t KIND_INSTANCE = 15;        // instances draw without strips, yellow in wire
constexpr int32_t KIND_HELPER_FIRST = 18;    // helper kinds, shown with the helper switch
constexpr int32_t KIND_HELPER_LAST = 29;
constexpr int MAX_GL_LIGHTS = 8;

int debugCulling = -1;      // DEBUG_CULLING begins with "Y"; read at the first pass
int drawFrame = 0;          // frames drawn, for the culling lines
int showHelpers = 1;        // helper kinds are drawn
int lightsUsedLast = 0;     // GL lights enabled by the previous frame
Dictionary *drawDict = nullptr;  // scene of the pass in progress
float drawAlpha = 1.0f;     // alpha of the model whose strips are playing

const char *const cullWords[4] = {"NOT IN SIGHT", "PARTIALLY IN SIGHT", "COMPLETLY IN SIGHT",
                                  "CANT TELL IF IN SIGHT"};

// The default material of models without one of their own or of an ancestor.
const Material defaultMaterial;

// ---------------------------------------------------------------------------
// What the draw reads of a models entry.

int visibilityState(const Model *m) { return m->visible ? 2 : 0; }

// The per-model display type and the two matte bits.
uint16_t entryWord(const Element *e, const Model *m) {
    uint16_t word = static_cast<uint16_t>(e->browserData & DISP_BITS);
    if (m->drawState & MODEL_DRAW_STATE_A) word |= ENTRY_ALPHA_ZERO;
    if (m->drawState & MODEL_DRAW_STATE_B) word |= ENTRY_ALPHA_ONE;
    return word;
}

int wireColourCode(const Element *e) { return (e->envSet & 1) ? e->envValues[0] : 0; }

bool isRoot(const Model *m) { return !m->parent || m->parent->elementIndex < 0; }

bool hasSurface(const Model *m) {
    return m->type == MODEL_PATCH || m->type == MODEL_FACE || m->type == MODEL_MESH ||
           m->type == MODEL_META || m->type == MODEL_NURBS_SURFACE;
}

// Own materials, else those of the nearest ancestor that has some.
const Material *modelMaterial(const Model *m) {
    for (; m; m = m->parent)
        if (m->materialCount > 0 && m->materials && m->materials[0]) return m->materials[0];
    return &defaultMaterial;
}

// ---------------------------------------------------------------------------
// Materials and lights, as far as the pass itself sets them.

enum MaterialForm { FORM_NONE, FORM_CONSTANT, FORM_PLAIN, FORM_HIGHLIGHT, FORM_SHADOW };
// By shading model 0 to 7.
const MaterialForm materialForms[8] = {FORM_NONE,      FORM_CONSTANT,  FORM_PLAIN,  FORM_PLAIN,
                                       FORM_HIGHLIGHT, FORM_HIGHLIGHT, FORM_SHADOW, FORM_CONSTANT};

MaterialForm formOf(const Material *m) {
    return m->shadingModel < 8 ? materialForms[m->shadingModel] : FORM_NONE;
}

void materialApply(const Material *m, float alpha) {
    MaterialForm form = formOf(m);
    if (form == FORM_NONE) return;
    const float black[4] = {0, 0, 0, 1};
    float ambient[4] = {m->ambient[0], m->ambient[1], m->ambient[2], alpha};
    float diffuse[4] = {m->diffuse[0], m->diffuse[1], m->diffuse[2], alpha};
    float specular[4] = {m->specular[0], m->specular[1], m->specular[2], alpha};
    float shininess = m->specularDecay < 128.0f ? m->specularDecay : 128.0f;
    if (form == FORM_CONSTANT) {
        ambient[0] = ambient[1] = ambient[2] = 0.0f, ambient[3] = 1.0f;
    } else if (form == FORM_SHADOW) {
        for (int k = 0; k < 4; ++k) ambient[k] = diffuse[k] = 0.0f;
    }
    if (form != FORM_HIGHLIGHT) shininess = 0.0f;
    glMaterialfv(GL_FRONT, GL_AMBIENT, ambient);
    glMaterialfv(GL_FRONT, GL_DIFFUSE, diffuse);
    glMaterialfv(GL_FRONT, GL_SPECULAR, form == FORM_HIGHLIGHT ? specular : black);
    glMaterialf(GL_FRONT, GL_SHININESS, shininess);
}

// Materials of the strips by their stream id: 1 the default, else the
// MATERIALS element index + 2 of the scene being drawn. A constant material
// carries the model's alpha in its colour.
void stripMaterialBind(int materialId, int shaded) {
    const Material *m = &defaultMaterial;
    if (materialId >= 2)
        if (Element *e = elemGet(drawDict, CHP_MATERIALS, materialId - 2))
            if (!e->deleted && e->data) m = static_cast<const Material *>(e->data);
    glColor4f(m->diffuse[0], m->diffuse[1], m->diffuse[2], drawAlpha);
    if (shaded) materialApply(m, drawAlpha);
}

void lightSetup(GLenum gl, const Light &l) {
    const float white[4] = {1, 1, 1, 1};
    const float diffuse[4] = {l.colour[0], l.colour[1], l.colour[2], 1.0f};
    const float position[4] = {l.position[0], l.position[1], l.position[2],
                               l.type == 3 || l.type == 4 ? 0.0f : 1.0f};
    glLightfv(gl, GL_DIFFUSE, diffuse);
    glLightfv(gl, GL_POSITION, position);
    glLightf(gl, GL_SPOT_EXPONENT, 0.0f);
    if (l.type == 2) {
        const float direction[3] = {l.interest[0] - l.position[0], l.interest[1] - l.position[1],
                                    l.interest[2] - l.position[2]};
        glLightfv(gl, GL_SPOT_DIRECTION, direction);
        glLightf(gl, GL_SPOT_CUTOFF, static_cast<float>(l.coneAngle * 57.29577951308232));
    } else {
        glLightf(gl, GL_SPOT_CUTOFF, 180.0f);
    }
    glLightfv(gl, GL_SPECULAR, white);
    glEnable(gl);
}

// A white light from above, in front and to the right of the origin, at
// infinity: every face of a model turned to the viewer gets some of it.
void defaultLightSetup() {
    Light l;
    l.type = 3;
    l.position[0] = 0.4f, l.position[1] = 0.8f, l.position[2] = 0.6f;
    lightSetup(GL_LIGHT0, l);
}

// The scene's lights that are on, up to eight, in world space (the view is
// loaded); the default light when none is on. Lights the previous frame used
// beyond the new count are switched off.
void lightsSet(Dictionary *dict, const BW_GraphicProps *gprops) {
    int count = 0;
    const Camera *camera = static_cast<const Camera *>(gprops->curCamera);
    if (gprops->headLight == 1 && camera) {
        Light head;
        head.type = 3;
        for (int k = 0; k < 3; ++k) head.position[k] = camera->position[k] - camera->interest[k];
        lightSetup(GL_LIGHT0, head);
        count = 1;
    } else {
        Chapter *lights = dictChapter(dict, CHP_LIGHTS);
        for (int32_t i = 0; lights && i < lights->elementCount; ++i) {
            const Element &e = lights->elements[i];
            const Light *l = static_cast<const Light *>(e.data);
            if (e.deleted || !l || !l->on) continue;
            if (count < MAX_GL_LIGHTS) lightSetup(static_cast<GLenum>(GL_LIGHT0 + count), *l);
            ++count;
        }
        if (count == 0) {
            defaultLightSetup();
            count = 1;
        }
    }
    for (int i = count; i < lightsUsedLast && i < MAX_GL_LIGHTS; ++i)
        glDisable(static_cast<GLenum>(GL_LIGHT0 + i));
    lightsUsedLast = count;
}

void fogBegin(const BW_GraphicProps *gprops) {
    if (gprops->fogEnable != 1) return;
    float end = gprops->fogEnd > gprops->fogStart ? gprops->fogEnd : gprops->fogStart * 1.00001f;
    glEnable(GL_FOG);
    glFogi(GL_FOG_MODE, GL_LINEAR);
    glFogf(GL_FOG_START, gprops->fogStart);
    glFogf(GL_FOG_END, end);
    glFogfv(GL_FOG_COLOR, gprops->fogColor);
}

// ---------------------------------------------------------------------------
// Parts of one model

void wireColour(const Element *entry, const Model *m, const BW_GraphicProps *gprops) {
    if (gprops->icons) {
        if (glbVar.palette) paletteColorSet(wireColourCode(entry) & 255, 1);
        else glColor4f(0.0f, 0.0f, 0.0f, 1.0f);
    } else {
        glColor4f(0.5f, 0.5f, 0.5f, 1.0f);
    }
    if (entry->selected) glColor4f(1.0f, 1.0f, 1.0f, 1.0f);
    bool bare = m->type == MODEL_NULL || m->type == MODEL_BARE;
    if (bare && m->parent && m->parent->type == MODEL_TYPE_JOINT) glColor4f(0.1f, 0.0f, 0.5f, 1.0f);
    if (m->kind == KIND_INSTANCE) glColor4f(1.0f, 1.0f, 0.0f, 1.0f);
}

// Whether the strip stream can draw the model as its shaded part.
bool stripsDraw(const Model *m, const ViewModelRecord *r, const BW_GraphicProps *gprops) {
    return visibilityState(m) >= 2 && m->kind != KIND_INSTANCE && m->triangles &&
           !gprops->material.matte && !(r && r->garbageMatte) && m->tmesh &&
           (m->tmesh->stream || m->tmesh->listId >= 0) && hasSurface(m);
}

TOL_Status shadedPart(TOL_Scene *scene, Model *m, const Element *entry, BW_GraphicProps *gprops) {
    Dictionary *dict = dictGet(static_cast<int>(scene->dict));
    ViewModelRecord *r = viewModelRecord(dict, m->elementIndex);
    if (gprops->useHiddenForMatte && r) {
        uint16_t word = entryWord(entry, m);
        if (word & ENTRY_ALPHA_ZERO) r->alpha = 0.0f;
        else if (word & ENTRY_ALPHA_ONE) r->alpha = 1.0f;
    }
    // Lines drawn over the fill need the fill pushed back a little.
    PolygonOffsetFn offset = (gprops->dispType & DISP_WIRE) ? grPolygonOffset() : nullptr;
    if (offset) {
        glEnable(GL_POLYGON_OFFSET_FILL);
        offset(1.0f, 1.0f);
    }
    TOL_Status status = 0;
    if (stripsDraw(m, r, gprops)) {
        drawAlpha = r ? r->alpha : 1.0f;
        status = drawStripStream(scene, m, gprops);
    } else {
        if (m->tmesh && !m->tmesh->stream && m->tmesh->listId < 0) modelDropStrips(m);
        drawTrianglesDirect(scene, m, gprops);
    }
    if (offset) glDisable(GL_POLYGON_OFFSET_FILL);
    return status;
}

// A line from each tessellated vertex along its normal, a unit long in the
// world whatever the model's scale.
void drawNormals(const Model *m) {
    if (m->type != MODEL_PATCH && m->type != MODEL_FACE && m->type != MODEL_MESH &&
        m->type != MODEL_NURBS_SURFACE)
        return;
    glPushMatrix();
    glMultMatrixf(&m->globalMatrix[0][0]);
    glBegin(GL_LINES);
    for (int32_t i = 0; m->vertices && i < m->vertexCount; ++i) {
        const TessVertex &v = m->vertices[i];
        float tip[3];
        for (int k = 0; k < 3; ++k) {
            float s = m->globalScale[k] != 0.0f ? m->globalScale[k] : 1.0f;
            tip[k] = v.pos[k] + v.normal[k] / s;
        }
        glVertex3fv(v.pos);
        glVertex3fv(tip);
    }
    glEnd();
    glPopMatrix();
}

void cullLine(const char *what, const Model *m, int result) {
    fprintf(stderr, "Frame %d, %s %s%s, visibility = %s\n", drawFrame, what, isRoot(m) ? "ROOT " : "",
            m->name ? m->name : "", cullWords[result]);
}

}  // namespace

void drawTrianglesDirect(const TOL_Scene *scene, Model *model, const BW_GraphicProps *gprops) {
    if (!model || !model->triangles) return;
    const Dictionary *dict = dictGet(static_cast<int>(scene->dict));
    const ViewModelRecord *r = viewModelRecord(dict, model->elementIndex);
    const float alpha = r ? r->alpha : 1.0f;
    const bool garbage = r && r->garbageMatte, matte = gprops->material.matte != 0;
    const bool lit = glIsEnabled(GL_LIGHTING);
    // A mirrored model turns its triangles inside out: swap the winding back.
    const bool mirrored = model->globalScale[0] * model->globalScale[1] * model->globalScale[2] < 0.0f;
    const float flip = mirrored ? -1.0f : 1.0f;
    const int order[2][3] = {{0, 1, 2}, {0, 2, 1}};
    glDisable(GL_TEXTURE_2D);
    glPushMatrix();
    glMultMatrixf(&model->globalMatrix[0][0]);
    if (garbage || matte) {
        grLighting(0);
        float a = garbage ? 0.0f : alpha;
        glColor4f(a, a, a, a);
    }
    const Material *current = nullptr;
    bool open = false;
    for (const TessTriangle *t = model->triangles; t; t = t->next) {
        if (!t->v[0] || !t->v[1] || !t->v[2]) continue;
        const Material *m = t->material ? t->material : modelMaterial(model);
        if (!garbage && !matte && m != current) {
            if (open) glEnd();
            open = false;
            current = m;
            if (formOf(m) == FORM_CONSTANT) {
                grLighting(0);
                glColor4f(m->diffuse[0], m->diffuse[1], m->diffuse[2], alpha);
            } else {
                grLighting(lit ? 1 : 0);
                materialApply(m, alpha);
            }
        }
        if (!open) glBegin(GL_TRIANGLES);
        open = true;
        for (int k : order[mirrored ? 1 : 0]) {
            const TessVertex *v = t->v[k];
            glNormal3f(flip * v->normal[0], flip * v->normal[1], flip * v->normal[2]);
            glVertex3fv(v->pos);
        }
    }
    if (open) glEnd();
    grLighting(lit ? 1 : 0);
    glPopMatrix();
}

TOL_Status drawModel(TOL_Scene *scene, Model *model, int recurse, Element *entry,
                     BW_GraphicProps *gprops) {
    (void)recurse;
    if (!model || !entry) return 0;
    if (!showHelpers && model->kind >= KIND_HELPER_FIRST && model->kind <= KIND_HELPER_LAST) return 0;
    const uint16_t dispType = gprops->dispType;
    if ((dispType & DISP_PER_MODEL) || !(dispType & (DISP_WIRE | DISP_SHADED)))
        gprops->dispType = entryWord(entry, model) & DISP_BITS;
    const uint16_t type = gprops->dispType;
    TOL_Status status = 0;
    if ((type & DISP_SHADED) && model->kind != KIND_NO_SHADE)
        status = shadedPart(scene, model, entry, gprops);
    if (type & DISP_NORMALS) drawNormals(model);
    if (type & DISP_WIRE) {
        grDepthTest(type & DISP_SHADED);
        grLighting(0);
        wireColour(entry, model, gprops);
        drawWireModel(model);
        // The fill of the next model is lit again.
        if (type & DISP_SHADED) grLighting(1);
    }
    gprops->dispType = dispType;
    return status;
}

TOL_Status drawModelTree(TOL_Scene *scene, Chapter *list, int32_t index, BW_GraphicProps *gprops,
                         int pass, int cull, int *stop, const float viewMatrix[16], int recurse) {
    if (!list || index < 0 || index >= list->elementCount) return 0;
    Element *entry = &list->elements[index];
    Model *model = static_cast<Model *>(entry->data);
    if (entry->deleted || !model) return 0;
    Dictionary *dict = dictGet(static_cast<int>(scene->dict));
    ViewModelRecord *r = viewModelRecord(dict, index);
    int outcome = FRUSTUM_UNKNOWN, branch = FRUSTUM_UNKNOWN;
    bool passTakes = (pass == 0 && r && r->garbageMatte) || (pass == 1 && !(r && r->garbageMatte)) ||
                     pass == 2;
    TOL_Status status = 0;
    if (visibilityState(model) != 0 && passTakes) {
        // Bounds made from other geometry than the model now holds say nothing.
        if (!r || !r->hasBounds || (r->bounds.ownState != BOUNDS_NONE && r->boxSource != model->geometry.any))
            cull = 0;
        if (cull) {
            const BoundsRecord &b = r->bounds;
            const bool children = model->firstChild != nullptr;
            if (children && b.branchState == BOUNDS_EMPTY) {
                branch = FRUSTUM_INSIDE;
            } else if (children) {
                if (b.branchState == BOUNDS_VALID) branch = frustumClassify(b.branch, gprops, viewMatrix);
                if (debugCulling == 1) cullLine("branch from", model, branch);
            }
            if (branch == FRUSTUM_INSIDE || branch == FRUSTUM_OUT) {
                outcome = branch;
                cull = 0;
            } else if (b.ownState == BOUNDS_VALID) {
                outcome = frustumClassify(b.own, gprops, viewMatrix);
            }
            if (debugCulling == 1) cullLine("model", model, outcome);
        }
        if (outcome != FRUSTUM_OUT) {
            if (gprops->stopFct && gprops->stopFct()) return 97;
            // Garbage mattes need the stencil set-up that frame effects own;
            // without it they are not drawn.
            if (pass == 0) {
                *stop = 1;
                return 0;
            }
            status = drawModel(scene, model, recurse, entry, gprops);
        }
    }
    if (recurse && status == 0 && branch != FRUSTUM_OUT)
        for (Model *c = model->firstChild; c && status == 0 && !*stop; c = c->nextSibling)
            status = drawModelTree(scene, list, c->elementIndex, gprops, pass, cull, stop, viewMatrix,
                                   recurse);
    return status;
}

TOL_Status sceneDrawPass(TOL_Scene *scene, int loadCamera, BW_GraphicProps *gprops) {
    if (debugCulling < 0) {
        const char *flag = getenv("DEBUG_CULLING");
        debugCulling = flag && flag[0] == 'Y' ? 1 : 0;
    }
    paletteColorSet(8, 0);
    Dictionary *dict = dictGet(static_cast<int>(scene->dict));
    drawDict = dict;
    g_stripMaterialBind = stripMaterialBind;
    if (loadCamera) {
        void **current = tol_sidCamera(scene);
        Camera *camera = current ? static_cast<Camera *>(*current) : nullptr;
        gprops->curCamera = camera;
        if (camera && camera->kind == CAMERA_KIND_ORTHO) cameraLoadOrtho(camera, gprops);
        else cameraLoadPerspective(camera, gprops, 0, 0, 0, 0, 1.0f);
    }
    float viewMatrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    if (glbVar.cullEnable) glGetFloatv(GL_MODELVIEW_MATRIX, viewMatrix);
    gpropsResolveDispType(gprops);
    lightsSet(dict, gprops);
    fogBegin(gprops);
    DisplayPassState state{};
    displayModePassBegin(gprops, &state);

    Chapter *list = dictChapter(dict, CHP_MODELS);
    const int count = list ? list->elementCount : 0;
    TOL_Status status = 0;
    int stop = 0;
    int mainPass = 2;
    if (gprops->material.shade) {
        // Garbage mattes first, into the stencil, so that the scene is cut by them.
        for (int32_t i = 0; i < count && !stop && status == 0; ++i)
            status = drawModelTree(scene, list, i, gprops, 0, 0, &stop, viewMatrix, 0);
        mainPass = 1;
        stop = 0;
    }
    // With culling the hierarchy is walked from its roots, so that a branch
    // out of sight is skipped whole; without, the list is drawn as it stands.
    const int cull = glbVar.cullEnable ? 1 : 0;
    for (int32_t i = 0; i < count && !stop && status == 0; ++i) {
        const Model *m = static_cast<const Model *>(list->elements[i].data);
        if (cull && (!m || !isRoot(m))) continue;
        status = drawModelTree(scene, list, i, gprops, mainPass, cull, &stop, viewMatrix, cull);
    }

    if (gprops->dispType & DISP_WIRE) {
        grLighting(0);
        glColor4f(1.0f, 1.0f, 1.0f, 1.0f);
        drawLightIcons(dict);
        void **current = tol_sidCamera(scene);
        Camera *camera = current ? static_cast<Camera *>(*current) : nullptr;
        if (camera && camera != gprops->curCamera) drawCameraIcon(camera, 0);
        grLighting(1);
    }
    displayModePassEnd(gprops, &state);
    if (gprops->fogEnable == 1) glDisable(GL_FOG);
    glbVar.curMatId = -1;
    glbVar.curTxtId = -1;
    return status;
}

TOL_Status drawAccumulated(TOL_Scene *scene, Camera *camera, BW_GraphicProps *gprops) {
    gpropsResolveDispType(gprops);
    if (!camera) {
        void **current = tol_sidCamera(scene);
        camera = current ? static_cast<Camera *>(*current) : nullptr;
    }
    if (!camera) return tol_report(99, "drawAccumulated(): no camera");
    gprops->curCamera = camera;
    // One sample: the pixel formats taken on this platform offer no
    // accumulation buffer, so jittered samples could not be summed.
    if (camera->kind == CAMERA_KIND_ORTHO) cameraLoadOrtho(camera, gprops);
    else cameraLoadPerspective(camera, gprops, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f);
    return sceneDrawPass(scene, 0, gprops);
}

TOL_Status TOL_sceneDraw(TOL_Scene *scene, TOL_Elem *camera, BW_GraphicProps *gprops) {
    if (!scene) return tol_report(16, "TOL_sceneDraw(): scene:");
    if (!gprops) return tol_report(16, "TOL_sceneDraw(): gprops:");
    TOL_Scene saved{};
    uint16_t swapped = 0;
    TOL_Status status = tol_sceneSwapIn(scene, &saved, &swapped);
    ++drawFrame;
    if (status == 0) {
        Element *entry = nullptr;
        if (camera)
            status = tol_elemResolve(camera, -1, nullptr, nullptr, &entry, CHP_CAMERAS,
                                     "TOL_sceneDraw(): camera:", 1);
        if (status == 0) {
            if (camera) status = drawAccumulated(scene, static_cast<Camera *>(entry->data), gprops);
            else status = sceneDrawPass(scene, 1, gprops);
        }
    }
    if (swapped) {
        TOL_Status back = tol_sceneSwapIn(&saved, nullptr, &swapped);
        if (status == 0) status = back;
    }
    return status;
}
