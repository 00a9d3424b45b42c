// The scene draw: one evaluated scene to one frame through the fixed OpenGL
// pipeline. Bounds of the model hierarchy and the frustum test that prunes it,
// the camera's projection and view, the display modes at OpenGL level, the
// per-model draw in wire, shaded and matte form, and the icons of cameras and
// lights. Everything here runs on the draw side, with the GL context current,
// except the bounds build (start-up) and the box of TOL_scnGetBbox (any side).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "graphic.h"
#include "tol_handle.h"
#include "tol_status.h"

struct Camera;
struct Chapter;
struct Dictionary;
struct Element;
struct Light;
struct Material;
struct Model;
struct Texture2D;

// ---------------------------------------------------------------------------
// Bounds, built once per scene at start-up, in world space.

enum BoundsState : int32_t {
    BOUNDS_NONE = 0,   // no usable box
    BOUNDS_VALID = 1,  // the corners hold the box
    BOUNDS_EMPTY = 2,  // nothing to draw: the box is all zero
};

struct BoundsRecord {
    int32_t ownState;        // BoundsState of the model alone
    float own[8][3];         // corners of the model's box
    uint16_t animated;       // this model or an ancestor moves: no box below
    int32_t branchState;     // BoundsState of the model with its descendants
    float branch[8][3];      // corners of the branch box
};

// What the draw keeps per model entry beside the model itself.
struct ViewModelRecord {
    uint16_t hasBounds;      // 1 once the bounds build reached the entry
    BoundsRecord bounds;     // see above
    const void *boxSource;   // geometry the own box was made from; another one voids it
    float alpha;             // the model's alpha, 1 by default; matte colour and material alpha
    uint16_t garbageMatte;   // the model's flag, taken at the bounds build: drawn in pass 0 only, as a matte
};

// Builds the bounds of every root entry of the dictionary's models and their
// trees. Returns the number of entries given a record.
int boundsBuild(Dictionary *dict);
// Makes every instance of the scene a model of its own: drawn through strips
// in its own colours and boxed for culling like any model. Its display form
// is made again at the next preprocess. Returns the number expanded.
int instancesExpand(Dictionary *dict);
// The record of a models entry; null when the bounds build never saw it.
ViewModelRecord *viewModelRecord(const Dictionary *dict, int32_t index);
// The model's own box in its local coordinates. 1 when its geometry has
// points, 0 for none (the box is then all zero).
int modelLocalBox(const Model *model, float bmin[3], float bmax[3]);
// The eight corners of a box under a row-vector matrix (null: as it stands).
void boxCorners(const float bmin[3], const float bmax[3], const float matrix[4][4],
                float corners[8][3]);

// ---------------------------------------------------------------------------
// Camera: projection and view.

constexpr uint16_t CAMERA_KIND_ORTHO = 2009;  // orthographic; the working camera is 2003

// The extents the last projection load used; the frustum test reads them.
struct ViewFrustum {
    float left, right, bottom, top;  // at the near plane, jitter included
    float nearPlane, farPlane;       // positive distances
};
extern ViewFrustum g_lastFrustum;

// The window a perspective camera sees through, at `distance` ahead of the
// eye: from its shifted film back when it has one (offsetLens, with a focal
// length and film sizes above 0), else from its angle and aspect. The draw
// takes it at the near plane, the fit at distance 1 (its tangents).
void cameraPerspectiveWindow(const Camera *camera, float distance, float *left, float *right, float *bottom,
                             float *top);
// Unjittered extents of a perspective camera at its near plane.
void cameraPerspectiveExtents(const Camera *camera, float *left, float *right, float *bottom,
                              float *top);
// Column-major (OpenGL order) matrices, the same that glFrustum and glOrtho make.
void frustumMatrix(float left, float right, float bottom, float top, float nearPlane,
                   float farPlane, float out[16]);
void orthoMatrix(float left, float right, float bottom, float top, float nearPlane, float farPlane,
                 float out[16]);
// The view: the inverse of the camera frame that position, interest and roll
// give (the frame is refreshed in camera->viewMatrix on the way).
void cameraViewMatrix(Camera *camera, float out[16]);
// Jittered perspective: stores the extents in g_lastFrustum and loads them.
void accFrustum(Camera *camera, float left, float right, float bottom, float top, float nearPlane,
                float farPlane, float pixdx, float pixdy, float eyedx, float eyedy, float focus);
void cameraLoadPerspective(Camera *camera, BW_GraphicProps *gprops, float pixdx, float pixdy,
                           float eyedx, float eyedy, float focus);
void cameraLoadOrtho(Camera *camera, BW_GraphicProps *gprops);

// ---------------------------------------------------------------------------
// Frustum test.

enum FrustumResult : int {
    FRUSTUM_OUT = 0,      // not in sight
    FRUSTUM_PARTIAL = 1,  // partly in sight
    FRUSTUM_INSIDE = 2,   // completely in sight
    FRUSTUM_UNKNOWN = 3,  // cannot tell
};

// Classifies eight world corners against the frustum of gprops->curCamera,
// `viewMatrix` being the modelview (column-major) of the pass.
int frustumClassify(const float corners[8][3], const BW_GraphicProps *gprops,
                    const float viewMatrix[16]);

// ---------------------------------------------------------------------------
// Display modes of the viewer and their OpenGL state.

enum ViewMode : int {
    VIEW_MODE_WIRE = 0,
    VIEW_MODE_SHADED = 1,
    VIEW_MODE_TEXTURED = 2,
    VIEW_MODE_MATTE = 3,
    VIEW_MODE_COUNT = 4,
};

// Sets the switches of a mode and prints its console line. 0, or 16 for a
// null record or a mode out of range.
TOL_Status displayModeSet(BW_GraphicProps *gprops, int mode);
// The mode a resolved dispType draws in.
int displayModeOf(const BW_GraphicProps *gprops);

// State of one pass that the mode's begin step saves for its end step.
struct DisplayPassState {
    uint8_t depthWasOn;  // depth test before the pass
};
void displayModePassBegin(const BW_GraphicProps *gprops, DisplayPassState *state);
void displayModePassEnd(const BW_GraphicProps *gprops, const DisplayPassState *state);

// glPolygonOffset as the GL of the run offers it; null when absent or switched
// off by BW_SHADE_DISABLE_OFFSET. Looked up once.
using PolygonOffsetFn = void (*)(float factor, float units);
PolygonOffsetFn grPolygonOffset();
// How GL entry points are looked up: the window system's (GLX) unless the
// program that made the context says otherwise, before the first draw.
using GrProcAddressFn = void *(*)(const char *name);
void grSetProcAddress(GrProcAddressFn lookup);

// ---------------------------------------------------------------------------
// Materials and lights on the hardware. Each material is a display list
// (1000 + id, the id of grMaterialId: a MATERIALS index + 2, then the
// materials inline in the models; 1001 the default material) that the strip
// stream calls by id; lights are set once a frame, in world space, since
// they move. A list is compiled again when the material's record, revision,
// alpha or (for an animated one) values differ from what went into it, and
// only when what goes into it changed.

// All lights of the frame: the head light alone when gprops->headLight is 1,
// else the scene's lights that are on, the first eight on GL_LIGHT0 to 7,
// else the default light. Lights the previous frame used beyond the new
// count go off. 0, or 97 when stopFct stopped it.
TOL_Status lightsBind(TOL_Scene *scene, BW_GraphicProps *gprops);
// One light on GL_LIGHT0 + `index` (below 8): colour, position (at infinity
// for types 3 and 4), the cone of a spot (type 2), white specular. 0, or 97.
TOL_Status lightSetup(const Light *light, int index, BW_GraphicProps *gprops);
// Lights of the last bind that were on, counted beyond eight.
int lightsCount();
// Before and after the shaded part of models entry `modelIndex`: a linked
// light that does not light the model goes off, and every one on again.
void selectiveLightsOff(int32_t modelIndex);
void selectiveLightsOn();

// Compiles list 1000 + `id` from the material, its colours' alpha `alpha`:
// by shading model constant (1, 7), without highlight (2, 3), with highlight
// (4, 5), shadow (6); an empty list for other models. 0, or 98 for a null
// material. The list remembers what it was compiled from.
int materialListCompile(const Material *material, int id, float alpha);
// Compiles the list of material id `index` + 2 (-1: the default material)
// when it no longer holds the material's values. 0, 97 or 98 for an id
// without a material.
TOL_Status materialBind(TOL_Scene *scene, int32_t index, BW_GraphicProps *gprops);
// materialBind over the scene's materials, the default one first; the status
// of the last.
TOL_Status materialsBind(TOL_Scene *scene, BW_GraphicProps *gprops);
// Compiles the lists of the named ids - 2 whatever they hold; a failure prints
// "ERROR: MATERIAL %s INVALID!\n" and the next one is taken.
TOL_Status materialsCompileList(TOL_Scene *scene, int count, const int32_t *indices,
                                BW_GraphicProps *gprops);
// Before a model's strips: each material whose list holds another alpha
// than the model's is recompiled with it. No materials, or a material the
// scene does not hold, stand for the default one.
TOL_Status materialsUpdateAlpha(TOL_Scene *scene, int count, Material *const *materials, float alpha,
                                BW_GraphicProps *gprops);
// The alpha of a material's list now (the default one's for null or a
// material the scene does not hold).
float materialAlpha(const Dictionary *dict, const Material *material);

// ---------------------------------------------------------------------------
// Textures on the hardware: a texture's picture in display list 1500 + id
// (the id of grTextureId: a TEXTURES2D index + 2, then the textures inline in
// materials and models), with its filters and wrap. Textures are named below
// by id - 2. A list is made again when the texture's record or revision
// differs from what it was made from and what goes into it changed.

// Defines every flagged texture of the scene (loads its picture, compiles its
// list); a texture that fails prints "ERROR: TEXTURE %s INVALID!\n" and the
// run goes on. 0, or 97.
TOL_Status texturesBind(TOL_Scene *scene, BW_GraphicProps *gprops);
// Flags the named textures for load and compile and defines them.
TOL_Status texturesDefineSome(TOL_Scene *scene, int count, const int32_t *indices,
                              BW_GraphicProps *gprops);
// Defines texture `index` as far as its flags ask. 0, 97, or 98 for
// a picture that cannot be had.
int textureDefine(Dictionary *dict, int32_t index, BW_GraphicProps *gprops);
// The flag word of texture `index`; 0 for none.
uint16_t textureFlags(const Dictionary *dict, int32_t index);
// The frame of the pictures of sequence textures, as the evaluation gives it:
// a texture whose frame changed loads its picture again at the next bind.
void textureSequenceFrameSet(const Texture2D *texture, int32_t frame);

// ---------------------------------------------------------------------------
// The scene draw.

// `current` is the scene's own camera, which the layer keeps per scene: the
// one a pass loads with `loadCamera`, and the one whose icon the pass leaves
// out.
// The frame wrapper: loads `camera` (null: `current`) and runs the pass once
// per jitter sample of gprops->anti_lev, summing the passes in the
// accumulation buffer when there are two or more, and twice per sample, once
// per eye, when gprops->stereoEye is not 0. The status of the last pass; 99
// without a camera.
TOL_Status drawAccumulated(TOL_Scene *scene, Camera *camera, Camera *current,
                           BW_GraphicProps *gprops);

// One sample of the antialiasing jitter, in pixels.
struct JitterOffset {
    float x, y;  // pixels, within half a pixel of the centre
};
// The samples of a level: one at the centre when `antialias` is 0 or the
// level is negative; 2, 3, 4, 8, 15, 24 for levels 1 to 6; 66 from 7 up.
const JitterOffset *jitterSet(int antialias, int level, int *passes);
// glAccum as drawAccumulated calls it; tests count the calls through their
// own. Null puts glAccum back. Returns the previous one.
using AccumFn = void (*)(unsigned op, float value);
AccumFn accumHookSet(AccumFn fn);

// Garbage mattes. matteBegin, at the first matte model of a pass: with a
// stencil buffer the mattes write 1 there and nothing else; without one they
// punch the depth buffer, or are refused (0) when neither showGarbage nor
// matte display asks for them. matteEnd, at the end of pass 0, undoes it.
// matteFill, after the main pass, with a stencil buffer and shading only:
// outside the mattes the alpha goes to 1, or red shows with showGarbage;
// the stencil buffer is clear again after it.
int matteBegin(const BW_GraphicProps *gprops);
void matteEnd(const BW_GraphicProps *gprops);
void matteFill(const BW_GraphicProps *gprops);
TOL_Status sceneDrawPass(TOL_Scene *scene, Camera *current, int loadCamera,
                         BW_GraphicProps *gprops);
// Draws entry `index` of the models list. `pass`: 0 garbage mattes, 1 all but
// them, 2 everything. `cull` 1 tests bounds; `recurse` 1 walks the children.
TOL_Status drawModelTree(TOL_Scene *scene, Chapter *list, int32_t index, BW_GraphicProps *gprops,
                         int pass, int cull, int *stop, const float viewMatrix[16], int recurse);
TOL_Status drawModel(TOL_Scene *scene, Model *model, int recurse, Element *entry,
                     BW_GraphicProps *gprops);
// The model's triangles as they stand, in material runs.
void drawTrianglesDirect(const TOL_Scene *scene, Model *model, const BW_GraphicProps *gprops);
// Wire of the model by its type, under its global matrix. With `iconsOnly`
// the types with filled geometry (1, 2, 4, 7, 10) draw nothing.
void drawWireModel(const Model *model, int iconsOnly = 0);
// Light and camera icons, in world space.
void drawLightIcons(Dictionary *dict);
void drawLightIcon(const Light &light, int selected);  // one light, white when selected
void drawCameraIcon(const Camera *camera, int selected);
// Drawing colour from a colour code; returns 1 when the colour was set.
// glbVar.palette holds PALETTE_SIZE wire colours and the spare entry after
// them: codes 0 to 7 (but 3, black) take the spare entry, code 9 and up the
// entry code - 9; 8 only records itself.
int paletteColorSet(int code, int force);
constexpr int PALETTE_SIZE = 128;          // wire colours of the palette; wire codes are masked by it
constexpr int PALETTE_SPARE = PALETTE_SIZE;  // the fixed spare entry, after the wire colours
// Types 1, 2, 4, 7 and 10: filled geometry, left out of an icons-only wire.
int modelTypeFilled(int32_t type);

// ---------------------------------------------------------------------------
// Picking through the selection mode of the GL.

constexpr size_t PICK_BUFFER_WORDS = 512;  // selection buffer of one pick, on the stack

// The name of the nearest of `hits` selection records in `buffer` (name
// count, minimum depth, maximum depth, names): the smallest minimum depth,
// compared unsigned, the first of equals; a depth of 0xFFFFFFFF is never
// taken. -1 for no hit or a negative name.
int pickNearestHit(int hits, const uint32_t *buffer);
// Draws one entry of `chapter` for the selection: a models entry that is
// shown as drawModel draws it, without its children; light and camera
// entries as their icons while the wire is drawn.
TOL_Status pickDrawElement(TOL_Scene *scene, int chapter, Element *entry, BW_GraphicProps *gprops);
// The models entry under the box (x1, y1)-(x2, y2) of the viewport, in GL
// window coordinates, seen by `camera` through a perspective with no roll; a
// box with no extent on an axis is 10 pixels on it. -1 for none. The depth
// test, the matrices and their mode are as before.
int32_t pickModelEntry(TOL_Scene *scene, const Camera *camera, BW_GraphicProps *gprops, int x1, int y1,
                       int x2, int y2);

// ---------------------------------------------------------------------------
// What the draw reads of a models entry: its visibility record. The entry and
// its model hold it (the scene's WIRECOL, DISPLAY and MPRFLG reach the model
// at the load); modelDisplay gathers it for one draw.

enum VisibilityState : int32_t {
    VISIBILITY_HIDDEN = 0,  // not drawn, not picked
    VISIBILITY_GHOST = 1,   // stippled wire only
    VISIBILITY_SHOWN = 2,   // drawn in the display type of the moment
};

constexpr int32_t DISPLAY_GHOST = 1;              // DISPLAY value that makes a ghost
constexpr int32_t MPRFLG_SELECTION = 0xFF;        // MPRFLG low byte: the selection byte
constexpr int32_t MPRFLG_WIRE_LOCKED = 0x1000;    // MPRFLG high nibble: wire colour locked
constexpr int32_t MPRFLG_HIDDEN_IN_SHADE = 0x2000;  // MPRFLG high nibble: wire even when shaded
constexpr int SELECTION_BRANCH = 32;              // a selection byte from here on: selected, yellow

struct ModelDisplay {
    uint16_t selected;       // the entry's selected flag
    uint8_t selectionByte;   // SELECTION_BRANCH and up: selected, drawn yellow
    int32_t state;           // VisibilityState
    int32_t wireColour;      // colour code of the wire (paletteColorSet)
    uint16_t wireLocked;     // 1: the wire stays black whatever its code
    uint16_t hiddenInShade;  // 1: drawn as wire, never filled
    uint16_t drawState;      // MODEL_DRAW_STATE_* an overloaded visibility chose
};

// The visibility record of a models entry; all zero for a null entry or model.
ModelDisplay modelDisplay(const Element *entry, const Model *model);
// Selected by its flag or by a selection byte of SELECTION_BRANCH and up.
int modelDisplaySelected(const ModelDisplay &display);

// ---------------------------------------------------------------------------
// Icons. The icon models are read once by TOL_Init from the resource
// directory; a missing one leaves the plain line shape in its place.

#define ICON_MODEL_LIST(X)                      \
    X(ICON_MODEL_LIGHT, "/LIGHT_ICON")  /* spot, infinite and area lights */ \
    X(ICON_MODEL_BULB, "/BULB_ICON")    /* point lights */                   \
    X(ICON_MODEL_CAMERA, "/CAMERA_ICON")  /* the camera body */

enum IconModel : int {
#define ICON_MODEL_ENUM(tag, file) tag,
    ICON_MODEL_LIST(ICON_MODEL_ENUM)
#undef ICON_MODEL_ENUM
    ICON_MODEL_COUNT
};

// The icon model `which`, or null when its file was missing or damaged.
Model *iconModel(int which);
// Reads the icon models behind `resourcePath` ("<path>/LIGHT_ICON.hrc" and
// so on). Returns how many were read; a damaged file is reported by the
// model reader and left out.
int iconModelsLoad(const char *resourcePath);
// Forgets the icon models read, so that the icons fall back to plain line
// shapes until the next load.
void iconModelsFree();

// The icon chapters drawn after the models when dispType has the wire bit:
// lights, lattices (their cage), and the models linked to cameras (their
// paths and up-vector models, wire of unfilled types only). The third one
// follows the link icon switch, on by default.
constexpr int ICON_CHAPTER_COUNT = 3;
extern const int iconChapters[ICON_CHAPTER_COUNT];  // chapter ids in drawing order
extern int g_linkIcons;                            // draw the linked models
// The cage of each lattice, under the matrix of the model it deforms.
void drawLatticeIcons(Dictionary *dict);
// The models linked to each camera by its relations.
void drawLinkedModels(Dictionary *dict);
// All icon chapters in order, then the camera icon of `current` unless it is
// the camera of the draw in progress.
void drawIcons(Dictionary *dict, const Camera *current, const BW_GraphicProps *gprops);

// ---------------------------------------------------------------------------
// Scene optimisation, once after a load and before the first frame: textures
// that show one picture share one list, and materials that look the same
// become one. The dictionary in memory changes; the files do not.

// 1 when MATERIALS elements `a` and `b` can merge: colours, shading and
// transparency within 1e-4, the rest of the record alike, curves alike key by
// key, the linked textures alike and not driven by an expression. Never for a
// material and itself.
int materialsEqual(Dictionary *dict, int32_t a, int32_t b);
// Merges every group of equal materials into its first (with `selectedOnly`,
// of the selected ones; a material driven by an expression never merges):
// the models take the first one instead, their arrays and polygons are made
// to match, and the others are removed. The count of materials merged away.
int mergeMaterials(Dictionary *dict, int selectedOnly);
// Gives every TEXTURES2D texture that shows the picture of an earlier one
// (same name, crop, alpha and video switches) that one's list (Texture2D::
// listId). Each picture is read once: `pictures` is their count, `merged` the
// texture entries beyond it, `memory` their bytes at power-of-two size in
// RGBA. 0, or 98 "Invalid Pic name" for a picture that cannot be read, which
// ends the merge.
TOL_Status texturesMerge(Dictionary *dict, int *pictures, int *merged, int *memory);
// Bytes a picture of that size takes: each side down to a power of two, 4 a pixel.
int32_t pictureMemory(int32_t width, int32_t height);
