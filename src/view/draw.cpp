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
#include "view_internal.h"
#include "bw_env.h"

namespace {

constexpr uint16_t ENTRY_ALPHA_ZERO = 128;   // per-model word: matte alpha 0 under the overload
constexpr uint16_t ENTRY_ALPHA_ONE = 0x100;  // per-model word: matte alpha 1 under the overload
constexpr uint16_t DISP_BITS = DISP_WIRE | DISP_SHADED | DISP_TEXTURED | DISP_NORMALS;
constexpr int32_t KIND_NO_SHADE = 13;        // models of this kind are never filled
constexpr int32_t KIND_HELPER_FIRST = 18;    // helper kinds, shown with the helper switch
constexpr int32_t KIND_HELPER_LAST = 29;
constexpr uint16_t SHADING_CONSTANT = 1;     // drawn unlit in the material's colour
constexpr uint16_t GHOST_STIPPLE = 43690;    // every other pixel of a ghost's lines
constexpr uint16_t RESET_STIPPLE = 170;      // the pattern left behind for other lines
const float BLACK[4] = {0.0f, 0.0f, 0.0f, 1.0f};         // wire with icons and no palette colour
const float GREY[4] = {0.5f, 0.5f, 0.5f, 1.0f};          // wire without icons
const float WHITE[4] = {1.0f, 1.0f, 1.0f, 1.0f};         // selected
const float YELLOW[4] = {0.8f, 0.8f, 0.0f, 1.0f};        // selected by a branch selection byte
const float JOINT_NULL[4] = {0.1f, 0.0f, 0.5f, 1.0f};    // null node under a joint
const float INSTANCE[4] = {1.0f, 1.0f, 0.0f, 1.0f};      // instance

int debugCulling = -1;      // DEBUG_CULLING begins with "Y"; read at the first pass
int drawFrame = 0;          // frames drawn, for the culling lines
int showHelpers = 1;        // helper kinds are drawn
int matteBegun = 0;         // a garbage matte was met in pass 0 of this scene pass

const char *const cullWords[4] = {"NOT IN SIGHT", "PARTIALLY IN SIGHT", "COMPLETLY IN SIGHT",
                                  "CANT TELL IF IN SIGHT"};

// ---------------------------------------------------------------------------
// What the draw reads of a models entry.

// The per-model display type and the two matte bits: the first drawing state
// keys the model out of a matte, the second keeps it in.
uint16_t entryWord(const Element *e, const ModelDisplay &display) {
    uint16_t word = static_cast<uint16_t>(e->browserData & DISP_BITS);
    if (display.drawState & MODEL_DRAW_STATE_A) word |= ENTRY_ALPHA_ZERO;
    if (display.drawState & MODEL_DRAW_STATE_B) word |= ENTRY_ALPHA_ONE;
    return word;
}

bool isRoot(const Model *m) { return !m->parent || m->parent->elementIndex < 0; }

// Own materials, else those of the nearest ancestor that has some; none for
// the default material.
void modelMaterials(const Model *m, int *count, Material *const **materials) {
    for (; m; m = m->parent)
        if (m->materialCount > 0 && m->materials) {
            *count = m->materialCount;
            *materials = m->materials;
            return;
        }
    *count = 0;
    *materials = nullptr;
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

// The wire's colour: the palette colour of its code with icons, unless the
// colour is locked, then the colours of selection and of the special nodes,
// each over the one before.
void wireColour(const ModelDisplay &display, const Model *m, const BW_GraphicProps *gprops) {
    if (!gprops->icons) glColor4fv(GREY);
    else if (glbVar.palette && !display.wireLocked) paletteColorSet(display.wireColour & (PALETTE_SIZE - 1), 1);
    else glColor4fv(BLACK);
    if (modelDisplaySelected(display))
        glColor4fv(display.selectionByte >= SELECTION_BRANCH ? YELLOW : WHITE);
    bool bare = m->type == MODEL_NULL || m->type == MODEL_BARE;
    if (bare && m->parent && m->parent->type == MODEL_TYPE_JOINT) glColor4fv(JOINT_NULL);
    if (m->kind == MODEL_KIND_INSTANCE) glColor4fv(INSTANCE);
}

// Whether the strip stream can draw the model as its shaded part.
bool stripsDraw(const Model *m, const ModelDisplay &display, const ViewModelRecord *r,
                const BW_GraphicProps *gprops) {
    return display.state >= VISIBILITY_SHOWN && m->kind != MODEL_KIND_INSTANCE && m->triangles &&
           !gprops->material.matte && !(r && r->garbageMatte) && m->tmesh &&
           (m->tmesh->stream || m->tmesh->listId >= 0) && modelTypeFilled(m->type);
}

TOL_Status shadedPart(TOL_Scene *scene, Model *m, const Element *entry, const ModelDisplay &display,
                      BW_GraphicProps *gprops) {
    Dictionary *dict = dictGet(static_cast<int>(scene->dict));
    ViewModelRecord *r = viewModelRecord(dict, m->elementIndex);
    if (gprops->useHiddenForMatte && r) {
        uint16_t word = entryWord(entry, display);
        if (word & ENTRY_ALPHA_ZERO) r->alpha = 0.0f;
        else if (word & ENTRY_ALPHA_ONE) r->alpha = 1.0f;
    }
    // The lists of the model's materials hold its alpha before they are called.
    const float alpha = r ? r->alpha : 1.0f;
    int materialCount = 0;
    Material *const *materials = nullptr;
    modelMaterials(m, &materialCount, &materials);
    TOL_Status status = materialsUpdateAlpha(scene, materialCount, materials, alpha, gprops);
    if (status != 0) return status;
    // Lines drawn over the fill need the fill pushed back a little.
    PolygonOffsetFn offset = (gprops->dispType & DISP_WIRE) ? grPolygonOffset() : nullptr;
    if (offset) {
        glEnable(GL_POLYGON_OFFSET_FILL);
        offset(1.0f, 1.0f);
    }
    selectiveLightsOff(m->elementIndex);
    if (stripsDraw(m, display, r, gprops)) {
        shadeStripsBegin(dict, alpha);
        status = drawStripStream(scene, m, gprops);
    } else {
        if (m->tmesh && !m->tmesh->stream && m->tmesh->listId < 0) modelDropStrips(m);
        drawTrianglesDirect(scene, m, gprops);
    }
    selectiveLightsOn();
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

// The wire part: stippled for a ghost, lit by nothing, depth-tested only
// over a fill.
void wirePart(const Model *m, const ModelDisplay &display, uint16_t type, const BW_GraphicProps *gprops) {
    const bool ghost = display.state == VISIBILITY_GHOST;
    grDepthTest(type & DISP_SHADED);
    grLighting(0);
    if (ghost) {
        glLineStipple(1, GHOST_STIPPLE);
        glEnable(GL_LINE_STIPPLE);
    }
    wireColour(display, m, gprops);
    drawWireModel(m);
    if (ghost) {
        glLineStipple(1, RESET_STIPPLE);
        glDisable(GL_LINE_STIPPLE);
    }
    // The fill of the next model is lit again.
    if (type & DISP_SHADED) grLighting(1);
}

}  // namespace

ModelDisplay modelDisplay(const Element *entry, const Model *model) {
    ModelDisplay d{};
    if (!entry || !model) return d;
    // The scene's WIRECOL, DISPLAY and MPRFLG reached the model at the load.
    const int32_t flags = model->flags;
    d.selected = entry->selected ? 1 : 0;
    d.selectionByte = static_cast<uint8_t>(flags & MPRFLG_SELECTION);
    // Hidden and shown follow the model's visibility; the scene can make a
    // shown model a ghost.
    if (!model->visible) d.state = VISIBILITY_HIDDEN;
    else if (model->displayMode == DISPLAY_GHOST) d.state = VISIBILITY_GHOST;
    else d.state = VISIBILITY_SHOWN;
    d.wireColour = model->wireColour;
    d.wireLocked = (flags & MPRFLG_WIRE_LOCKED) ? 1 : 0;
    d.hiddenInShade = (flags & MPRFLG_HIDDEN_IN_SHADE) ? 1 : 0;
    d.drawState = model->drawState;
    return d;
}

int modelDisplaySelected(const ModelDisplay &display) {
    return display.selected || display.selectionByte >= SELECTION_BRANCH;
}

void drawTrianglesDirect(const TOL_Scene *scene, Model *model, const BW_GraphicProps *gprops) {
    if (!model || !model->triangles) return;
    Dictionary *dict = dictGet(static_cast<int>(scene->dict));
    const ViewModelRecord *r = viewModelRecord(dict, model->elementIndex);
    const float alpha = r ? r->alpha : 1.0f;
    const bool garbage = r && r->garbageMatte, matte = gprops->material.matte != 0;
    const bool lit = glIsEnabled(GL_LIGHTING);
    BW_GlbVar &g = gprops->glbVar ? *gprops->glbVar : glbVar;
    const bool textured = gprops->texture.active && !garbage && !matte;
    const Texture2D *local = textured ? modelLocalTexture(model, g) : nullptr;
    // A mirrored model turns its triangles inside out: swap the winding back.
    const bool mirrored = model->globalScale[0] * model->globalScale[1] * model->globalScale[2] < 0.0f;
    const float flip = mirrored ? -1.0f : 1.0f;
    const int order[2][3] = {{0, 1, 2}, {0, 2, 1}};
    textureUnbind(g);
    glPushMatrix();
    glMultMatrixf(&model->globalMatrix[0][0]);
    if (garbage || matte) {
        grLighting(0);
        float a = garbage ? 0.0f : alpha;
        glColor4f(a, a, a, a);
    }
    const Material *current = nullptr;
    const Texture2D *texture = nullptr;  // of the run; null: no UV
    bool open = false, first = true;
    for (TessTriangle *t = model->triangles; t; t = t->next) {
        if (!t->v[0] || !t->v[1] || !t->v[2]) continue;
        const Material *m = t->material ? t->material : modelMaterial(model);
        if (!garbage && !matte && (first || m != current)) {
            if (open) glEnd();
            open = false;
            first = false;
            current = m;
            const Material &mat = m ? *m : materialDefault();
            if (mat.shadingModel == SHADING_CONSTANT) {
                grLighting(0);
                glColor4f(mat.diffuse[0], mat.diffuse[1], mat.diffuse[2], alpha);
            } else {
                grLighting(lit ? 1 : 0);
                const int id = grMaterialId(dict, m);
                if (id != g.curMatId) {
                    g.curMatId = id;
                    glCallList(static_cast<GLuint>(MATERIAL_LIST_BASE + id));
                }
            }
            texture = textured ? textureResolve(model, m, local, g) : nullptr;
            const int textureId = grTextureId(dict, texture);
            if (textureId < 0) {
                texture = nullptr;
                if (g.curTxtId > 0) textureUnbind(g);
            } else if (!textureBindList(texture, textureId, gprops)) {
                texture = nullptr;  // a reflection map makes its own coordinates
            }
        }
        if (!open) glBegin(GL_TRIANGLES);
        open = true;
        for (int k : order[mirrored ? 1 : 0]) {
            TessVertex *v = t->v[k];
            if (texture) {
                // UV are made on demand, into the vertex's own slot.
                v->uv = tessUvSlot(model->vertices, model->vertexCount, static_cast<int32_t>(v - model->vertices));
                stripVertexUv(texture, v, v->uv, nullptr);
                glTexCoord2fv(v->uv);
            }
            glNormal3f(flip * v->normal[0], flip * v->normal[1], flip * v->normal[2]);
            glVertex3fv(v->pos);
        }
    }
    if (open) glEnd();
    textureUnbind(g);
    grLighting(lit ? 1 : 0);
    glPopMatrix();
}

TOL_Status drawModel(TOL_Scene *scene, Model *model, int recurse, Element *entry,
                     BW_GraphicProps *gprops) {
    (void)recurse;
    if (!model || !entry) return 0;
    if (!showHelpers && model->kind >= KIND_HELPER_FIRST && model->kind <= KIND_HELPER_LAST) return 0;
    const ModelDisplay display = modelDisplay(entry, model);
    const uint16_t dispType = gprops->dispType;
    if ((dispType & DISP_PER_MODEL) || !(dispType & (DISP_WIRE | DISP_SHADED)))
        gprops->dispType = entryWord(entry, display) & DISP_BITS;
    const uint16_t type = gprops->dispType;
    const bool ghost = display.state == VISIBILITY_GHOST;
    TOL_Status status = 0;
    if ((type & DISP_SHADED) && !ghost && model->kind != KIND_NO_SHADE && !display.hiddenInShade)
        status = shadedPart(scene, model, entry, display, gprops);
    if (type & DISP_NORMALS) drawNormals(model);
    if ((type & DISP_WIRE) || ghost || display.hiddenInShade) wirePart(model, display, type, gprops);
    gprops->dispType = dispType;
    return status;
}

TOL_Status drawModelTree(TOL_Scene *scene, Chapter *list, int32_t index, BW_GraphicProps *gprops,
                         int pass, int cull, int *stop, const float viewMatrix[16], int recurse) {
    if (!list || index < 0 || index >= list->elementCount) return 0;
    Element *entry = &list->elements[index];
    Model *model = static_cast<Model *>(entry->data);
    if (entry->deleted != ELEM_LIVE || !model) return 0;
    Dictionary *dict = dictGet(static_cast<int>(scene->dict));
    ViewModelRecord *r = viewModelRecord(dict, index);
    int outcome = FRUSTUM_UNKNOWN, branch = FRUSTUM_UNKNOWN;
    bool passTakes = (pass == 0 && r && r->garbageMatte) || (pass == 1 && !(r && r->garbageMatte)) ||
                     pass == 2;
    TOL_Status status = 0;
    if (modelDisplay(entry, model).state != VISIBILITY_HIDDEN && passTakes) {
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
            if (gprops->stopFct && gprops->stopFct()) return TOL_ST_STOPPED;
            // The first matte of the pass sets the buffers up for all of them;
            // a refusal draws no matte and ends the pass.
            if (pass == 0 && !matteBegun) {
                if (!matteBegin(gprops)) {
                    *stop = 1;
                    return 0;
                }
                matteBegun = 1;
            }
            // Only the selected models show their textures when asked. The
            // properties are shared with the update side, which reads them:
            // the change goes into a copy, never into them.
            if (gprops->texture.selected && (gprops->dispType & DISP_TEXTURED) &&
                !modelDisplaySelected(modelDisplay(entry, model))) {
                BW_GraphicProps untextured = *gprops;
                untextured.texture.active = 0;
                untextured.dispType = static_cast<uint16_t>(gprops->dispType & ~DISP_TEXTURED);
                status = drawModel(scene, model, recurse, entry, &untextured);
            } else {
                status = drawModel(scene, model, recurse, entry, gprops);
            }
        }
    }
    if (recurse && status == 0 && branch != FRUSTUM_OUT)
        for (Model *c = model->firstChild; c && status == 0 && !*stop; c = c->nextSibling)
            status = drawModelTree(scene, list, c->elementIndex, gprops, pass, cull, stop, viewMatrix,
                                   recurse);
    return status;
}

// A scene whose curves moved its global block draws with the block's light
// model and fog; the fog goes into the graphic record, so that the frame
// clear takes its colour too. A setup file gives the light model alone. A
// block neither touched leaves the viewer's own settings alone.
static void sceneGlobalsTake(const SceneGlobals &g, BW_GraphicProps *gprops) {
    if (g.revision == 0 && !g.lightingGiven) return;
    grLightModelSet(g);
    if (g.revision == 0) return;  // the fog is the curves' alone
    gprops->fogEnable = g.fogEnable;
    gprops->fogStart = g.fogStart;
    gprops->fogEnd = g.fogEnd;
    for (int i = 0; i < 3; ++i) gprops->fogColor[i] = g.fogColor[i];
}

TOL_Status sceneDrawPass(TOL_Scene *scene, Camera *current, int loadCamera, BW_GraphicProps *gprops) {
    ++drawFrame;
    // Lists of strips the preprocess dropped, on whichever thread it ran.
    grListsReap();
    if (debugCulling < 0) {
        const char *flag = envGet(ENV_DEBUG_CULLING);
        debugCulling = flag && flag[0] == 'Y' ? 1 : 0;
    }
    paletteColorSet(8, 0);
    Dictionary *dict = dictGet(static_cast<int>(scene->dict));
    if (loadCamera) {
        Camera *camera = current;
        gprops->curCamera = camera;
        if (camera && camera->kind == CAMERA_KIND_ORTHO) cameraLoadOrtho(camera, gprops);
        else cameraLoadPerspective(camera, gprops, 0, 0, 0, 0, 1.0f);
    }
    float viewMatrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    if (glbVar.cullEnable) glGetFloatv(GL_MODELVIEW_MATRIX, viewMatrix);
    gpropsResolveDispType(gprops);
    if (dict) sceneGlobalsTake(dict->globals, gprops);
    TOL_Status status = lightsBind(scene, gprops);
    if (status == 0) status = materialsBind(scene, gprops);
    if (status == 0 && (gprops->dispType & DISP_TEXTURED)) status = texturesBind(scene, gprops);
    if (status != 0) {
        glbVar.curMatId = -1;
        glbVar.curTxtId = -1;
        return status;
    }
    fogBegin(gprops);
    DisplayPassState state{};
    displayModePassBegin(gprops, &state);

    Chapter *list = dictChapter(dict, CHP_MODELS);
    const int count = list ? list->elementCount : 0;
    int stop = 0;
    int mainPass = 2;
    matteBegun = 0;
    if (gprops->material.shade) {
        // Garbage mattes first, into the stencil, so that the frame knows them.
        for (int32_t i = 0; i < count && !stop && status == 0; ++i)
            status = drawModelTree(scene, list, i, gprops, 0, 0, &stop, viewMatrix, 0);
        if (matteBegun) matteEnd(gprops);
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

    if (gprops->dispType & DISP_WIRE) drawIcons(dict, current, gprops);
    safeFrameDraw(gprops);
    if (matteBegun) matteFill(gprops);
    displayModePassEnd(gprops, &state);
    if (gprops->fogEnable == 1) glDisable(GL_FOG);
    glbVar.curMatId = -1;
    glbVar.curTxtId = -1;
    return status;
}
