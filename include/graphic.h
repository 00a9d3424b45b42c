// The display's graphic properties: one BW_GraphicProps owned by the viewer and
// the glbVar record that outlives one draw.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tol_handle.h"
#include "tol_status.h"

struct BW_GlbVar {
    int32_t blending = 0;             // non-zero: GL_DECAL and four-component textures
    int32_t tiling = 0;               // 1: tile textures in the image
    int32_t mirror = 0;               // 1: tiled textures mirror every second tile, whatever their switches
    int32_t patch_lod = 0;            // global surface precision; 0: each surface's own
    int32_t curMatId = -1;            // material list now bound; -1 nothing
    int32_t curTxtId = -1;            // texture list now bound; 0 or less nothing
    int32_t do_optimize = 0;          // printed by the dump
    uint16_t useLocalTexture = 1;     // local textures of a model count
    uint16_t useMaterialTexture = 1;  // textures of materials count
    int32_t materialOverLocal = 1;    // 1: a material's own texture wins over the local one
    int32_t currentMaterialOnly = 0;  // 1: material texture only for the current material
    int32_t texFilter = 0;            // 0 each texture's choice, 1 GL_LINEAR, 2 GL_NEAREST
    uint16_t cullEnable = 0;          // viewing frustum culling (key k)
    uint16_t listEnable = 0;          // display lists for models (key d)
    uint16_t useEditBack = 0;         // editing: clear with editBack
    float editBack[4] = {0.502f, 0.502f, 0.44f, 1.0f};  // editing background RGBA
    int16_t (*palette)[3] = nullptr;  // wire colours, three 0..255 per entry
    uint16_t noStrips = 0;            // editing: triangles instead of strips
};

extern BW_GlbVar glbVar;  // the one global glbVar

using BW_StopFct = int (*)();  // polled between models; non-zero stops the work

struct BW_TextureProps {
    uint16_t active = 0;    // textures are shown
    uint16_t selected = 1;  // only selected models are textured
    uint16_t video = 0;     // video texture on
};

struct BW_MaterialProps {
    uint16_t shade = 1;  // filled shaded drawing; 0 wireframe
    uint16_t matte = 0;  // matte display
};

// Display type bits.
enum BW_DispType : uint16_t {
    DISP_WIRE = 4,
    DISP_SHADED = 8,
    DISP_TEXTURED = 16,
    DISP_NORMALS = 32,
    DISP_MATTE = 128,
    DISP_PER_MODEL = 0x1000,
};

struct BW_GraphicProps {
    uint16_t icons = 0;              // show icons; adds the wire bit to a shaded dispType
    uint16_t antialias = 0;          // accumulation antialiasing active
    uint16_t showGarbage = 0;        // garbage matte visible in shade view (key g)
    uint16_t dispType = DISP_WIRE;      // display type bits; derived before every draw
    int32_t anti_lev = 1;            // antialiasing level, 0 to 7
    int32_t optimize = 2;            // printed by the dump only
    BW_TextureProps texture;         // texture switches
    BW_MaterialProps material;       // shading switches
    int32_t stereoEye = 0;           // 0 none, 1 first eye, 2 second eye
    float interOcular = 0.5f;        // eye separation
    void *curCamera = nullptr;       // camera of the draw in progress
    uint16_t headLight = 0;          // 1: one light at the camera replaces the scene's
    BW_StopFct stopFct = nullptr;    // polled between models; the viewer keeps it null
    BW_GlbVar *glbVar = nullptr;     // the one global glbVar
    uint16_t useHiddenForMatte = 0;  // BW_OVERLOAD_HIDDEN: hidden bits set matte alpha
    uint16_t inViewer = 0;           // switches off all editing overlays
    int32_t fogEnable = 0;           // 1: linear fog
    float fogStart = 20.0f;          // fog start
    float fogEnd = 100.0f;           // fog end
    float fogColor[4] = {0, 0, 0, 0};  // fog colour, also the clear colour with fog
    float backColor[4] = {0, 0, 0, 0}; // clear colour RGBA
    uint16_t gridEnable = 0;         // editing grid
    float gridStep[2] = {1.0f, 1.0f};  // grid spacing
    float gridOrigin[3] = {0, 0, 0};   // grid origin
    float gridWeight = 1.0f;         // carried, not used
    uint16_t annotations = 0;        // editing annotations
    uint16_t safeFrame = 0;          // safe action and safe title frames
    int32_t pictureCacheCount = 0;   // valid during one texture definition run
    void *pictureCache = nullptr;    // idem
    float highlightWidth = 1.0f;     // line width of highlights
    uint16_t seeThroughGhost = 0;    // editing only
    uint16_t flatshade = 0;          // editing only
    uint16_t vertexColors = 0;       // colour from vertices recomputed at draw time
    uint16_t editFlags[3] = {0, 0, 0};  // editing only
    uint16_t followSel = 0;          // editing only
};

void gpropsInit(BW_GraphicProps *props);
void gpropsCopy(const BW_GraphicProps *from, BW_GraphicProps *to);
void gpropsDump(const BW_GraphicProps *props);
TOL_Status gpropsSetDisplayType(BW_GraphicProps *props, int code);
void gpropsResolveDispType(BW_GraphicProps *props);
// The patch level of detail of glbVar.
TOL_Status gpropsSetSurfacePrecision(BW_GraphicProps *props, int level);

// OpenGL level (src/graphic/grstate.cpp, grstring.cpp). Called on the thread that
// owns the GL context.

// The graphic state initialisation: GL lights off, nothing bound, depth
// function, depth test, normalisation, the default light and the light model;
// the scenes' materials, lights and textures are flagged for compilation
// (g_grStateInit). Returns 1 on success.
int grStateInitGL(BW_GraphicProps *props);
// Clears the frame: colour, and depth when shading; fog colour while fog is on.
TOL_Status grClear(BW_GraphicProps *props);
// Draws `str` with the 8 x 13 bitmap font at (x, y) of a 1000-step screen.
TOL_Status grStringDraw(const char *str, const float *color, int x, int y);
// The three thin state wrappers.
void grLighting(int on);   // on only for the value 1
void grDepthTest(int on);  // on for any non-zero value
void grViewport(int x, int y, int width, int height);
// Clears the stencil buffer once, for a pixel format that has one.
void grClearStencil();
// The red alignment cross over the whole viewport: an X along its diagonals.
// Lighting and depth test are on after it.
void viewportCross();
// Overlays drawn over the whole view: both matrices pushed, the view the unit
// square (0, 0)-(1, 1) of the window. The end pops them and gives back the
// matrix mode the begin returned.
int grOverlayBegin();
void grOverlayEnd(int matrixMode);

// Safe frames of editing: three black rectangles, at an outer margin, the
// safe action margin and the safe title margin, each a fraction of the view
// on every side. Drawn only with `safeFrame` and `icons`, outside the viewer.
constexpr float SAFE_FRAME_OUTER = 0.015f;  // outer rectangle, of each side
constexpr int SAFE_TITLE_DEFAULT = 80;      // percent of the view kept for titles
constexpr int SAFE_ACTION_DEFAULT = 90;     // percent of the view kept for action
struct SafeFrameMargins {
    int shown;     // 1 when BW_SHADE_SHOW_FIELD is set
    float outer;   // margins of each side, fractions of the view
    float action;  // (100 - action percent) x 0.005
    float title;   // (100 - title percent) x 0.005
};
// The margins from the three variables' texts (null: unset); a percentage
// outside 1 to 100, or no number, takes the default.
SafeFrameMargins safeFrameMargins(const char *showField, const char *title, const char *action);
void safeFrameDraw(const BW_GraphicProps *props);

// The 8 x 13 bitmap font of grStringDraw: for each printable character, 32
// to 126 in order, its code and then 13 rows of 8 pixels, bottom row first, the
// leftmost pixel in the high bit. Other characters draw as an empty cell.
constexpr int GR_FONT_GLYPHS = 95;
struct GrFont8x13 {
    uint8_t glyph[GR_FONT_GLYPHS][14];
};
extern const GrFont8x13 grFont8x13;

// ---------------------------------------------------------------------------
// The display form of a surface: what tessellation leaves on a model (vertex
// and triangle records) and the strip stream built from it.

struct Model;
struct Material;
struct Texture2D;
struct Dictionary;

constexpr uint32_t TESS_DEFAULT_COLOUR = 0xFFB2B2B2;  // packed colour of a fresh vertex

struct TessVertex {
    float u, v;            // parameters in the surface
    float pos[3];          // current position, model coordinates
    float normal[3];       // unit normal
    float refPos[3];       // reference position for texture projection
    int32_t priv[2];       // private words of the strip build
    float *uv;             // computed UV pair; null at first
    uint32_t colour;       // packed: byte 0 red, 1 green, 2 blue
};

struct TessTriangle {
    TessVertex *v[3];      // corners, counter-clockwise seen from the front
    int32_t priv[2];       // private words of the strip build
    Material *material;    // the triangle's material; null for none
    uint16_t materialIndex;  // index in the model's material list
    TessTriangle *next;    // next triangle; null for the last
};

// The per-model strip record.
struct TmeshHeader {
    int32_t streamLength;      // floats in stream; 0 after a display list took it over
    float *stream;             // the strip stream; null after a list took it over
    int32_t curMaterialId;     // id of the model's current material, -1 none
    int32_t curMaterialTexId;  // id of that material's texture, -1 none
    int32_t defaultMaterialId; // id of the model's material at build time
    int32_t localTextureId;    // -1 none
    int32_t policy[4];         // useLocalTexture|useMaterialTexture, materialOverLocal,
                               // currentMaterialOnly, texFilter at build time
    uint16_t textureState;     // texture.active when the list was compiled
    int32_t listId;            // display list, -1 none
    uint16_t compileRequest;   // 1 at build: make a list at the next draw if listEnable
    int32_t lastMaterial;      // curMatId after the list
    int32_t lastTexture;       // curTxtId after the list
    uint32_t revisions;        // sum of the revisions of the materials and textures built from
};

// Stream cells.
constexpr float STRIP_MAT_CONSTANT = -3.0f;         // constant material, no vertex colour
constexpr float STRIP_MAT_CONSTANT_COLOUR = -7.0f;  // constant material with vertex colour
constexpr float STRIP_MAT_SHADED = -8.0f;           // shaded material, no vertex colour
constexpr float STRIP_MAT_SHADED_COLOUR = -9.0f;    // shaded material with vertex colour
constexpr float STRIP_TEXTURE = -5.0f;              // texture id follows
constexpr float STRIP_END = -6.0f;                  // end of stream
constexpr float STRIP_PLACEHOLDER = 1313.0f;        // count of a strip not yet closed

extern int g_keepOrientation;  // 1 (default): triangles as generated; 0 swaps corners

// `precision` is glbVar.patch_lod at the callers. 0, or 9 for a null model.
// Drops the old geometry first.
int tessellateModel(Model *model, int chooseShape, int shapeIndex, int precision);
// Frees the model's vertex and triangle arrays (not its strips, which the
// draw owns: they are flagged stale).
void tessArraysDrop(Model *model);
// The dictionary the tessellation and the strip build look ids up in for this
// thread; null gives back the thread's current one.
void tessDictionarySet(Dictionary *dict);
// Tessellates, then (at the next call) builds the strip stream. 0, 23 for a
// null model, 97 when stopFct stopped it.
int modelPreprocess(Model *model, BW_GraphicProps *gprops);
// Deletes nothing on the GL side itself: a list it drops is retired.
void modelDropStrips(Model *model);
void modelDropGeometry(Model *model, int recurse);
// 1 (default): strips are drawn from the stream as vertex arrays, one call a
// strip (a per-vertex diffuse colour excepted); 0: one call a vertex. Both
// give the same pixels.
extern int g_stripArrays;
// A display list given up on any thread, deleted by grListsReap on the thread
// that draws (with its context current); the count of lists deleted.
void grListRetire(int32_t list);
int grListsReap();
// Plays the model's stream (or its display list under listEnable). 0, or 97.
int drawStripStream(const TOL_Scene *scene, Model *model, BW_GraphicProps *gprops);
// Preprocesses every shown model of the scene when shading (modelPreprocess).
// 0, or 97 when stopFct stopped it.
TOL_Status grPreprocessAll(TOL_Scene *scene, BW_GraphicProps *gprops);

// Vertex arrays are malloc'd with room for one UV pair per vertex behind the
// records, so that computed UV need no allocation of their own and go with
// the vertices: a vertex's `uv` is null or points at its slot.
inline float *tessUvSlot(TessVertex *vertices, int32_t count, int32_t index) {
    return reinterpret_cast<float *>(vertices + count) + 2 * index;
}

// A loop of a trimmed surface's domain, in knot values (u, v). The first loop
// of a list is the outer boundary, the others holes; a point is inside the
// trimmed surface when it lies inside an odd number of loops.
struct TessTrimLoop {
    int32_t count;           // points of the loop
    const float (*uv)[2];    // the points, closed implicitly
};

// Tessellates a type 10 model as the plain tessellator does and keeps the
// triangles whose centroid in the parameter plane lies inside the loops;
// vertices no triangle uses are dropped. No loops: the whole surface. 0, or
// 9 for a null model or another type.
int tessellateNurbsTrimmed(Model *model, const TessTrimLoop *loops, int loopCount, int precision);

// Hooks of the strip build and draw, for what materials and textures on the
// hardware will provide. Each has a working default.
//
// Binds material `materialId` for the strips that follow; `shaded` is 0 for a
// constant material, drawn unlit. Called when the id differs from curMatId,
// and for every constant (-3) run since its colour carries the model's alpha.
// Default: a grey through glColor and glMaterial.
extern void (*g_stripMaterialBind)(int materialId, int shaded);
// Id of a material in streams (grMaterialId). Default: the id in the
// dictionary being preprocessed (else the calling thread's); 1, the default
// material, for null or a material the scene does not hold.
extern int (*g_stripMaterialId)(const Material *material);
// Id of a texture (grTextureId), or -1 when it has none (such a texture is
// not drawn). Default: the same look-up.
extern int (*g_stripTextureId)(const Texture2D *texture);

// The ids of a scene's materials and textures, which name their display
// lists (1000 + id, 1500 + id) and stand in the strip streams. One rule for
// every side: an element of MATERIALS or TEXTURES2D is its index + 2; the
// records that stand inline in the scene's models follow all the slots of
// their chapter, in the order of the models' trees (docs/formats.md,
// "Ids of materials and textures"). The two copies of a scene, loaded from
// the same files, give every record the same id.
//
// The id of the element in slot `index` of MATERIALS or TEXTURES2D.
constexpr int32_t grSlotId(int32_t index) { return index + 2; }
// 1 (the default material) for null or a material the scene does not hold.
int grMaterialId(Dictionary *dict, const Material *material);
// The material of an id; the default material for 1; null for none.
const Material *grMaterialOfId(Dictionary *dict, int id);
// One past the scene's last material id.
int grMaterialIdEnd(Dictionary *dict);
// -1 for null or a texture the scene does not hold; the id of the list it
// shares (Texture2D::listId) for a texture merged with an earlier one.
int grTextureId(Dictionary *dict, const Texture2D *texture);
// The texture of an id; null for none.
const Texture2D *grTextureOfId(Dictionary *dict, int id);
// One past the scene's last texture id.
int grTextureIdEnd(Dictionary *dict);

// Reading a strip stream without drawing it. The offsets of one vertex's
// cells, -1 for cells it does not have.
struct StripVertexLayout {
    int stride;  // cells per vertex: 4, 7, 10 or 13
    int uv;      // UV kind, u, v
    int colour;  // r, g, b
    int normal;  // normal
    int pos;     // position
};
struct StripStreamVisitor {
    void *user;                                          // handed to every call
    void (*material)(void *user, float token, int id);   // a material cell pair
    void (*texture)(void *user, int id);                 // a texture cell pair
    void (*strip)(void *user, const float *cells, int cellCount, const StripVertexLayout *layout);
};
// Walks `length` cells up to the end cell. 0, or -1 when the stream breaks
// its form (unknown cell, strip past the end, no end cell, a strip count that
// is no multiple of the stride).
int stripStreamWalk(const float *stream, int32_t length, const StripStreamVisitor *visitor);
// The vertex cell holds the index of the vertex in the model's array (a
// pointer has no room in a 32-bit cell); this reads it back.
int32_t stripVertexIndex(const float *vertexCells);

// ---------------------------------------------------------------------------
// Materials, lights and textures on the hardware: what the scene draw binds
// each frame. Materials and textures are display lists of fixed numbers; the
// strip stream names them by id.

constexpr int MATERIAL_LIST_BASE = 1000;  // material id n is list 1000 + n
constexpr int TEXTURE_LIST_BASE = 1500;   // texture id n is list 1500 + n
constexpr int DEFAULT_MATERIAL_ID = 1;    // the default material, list 1001
constexpr int GR_MAX_LIGHTS = 8;          // GL lights a scene can use

// The light that stands in when no light of the scene is on.
struct BW_DefaultLight {
    float colour[3];     // red, green, blue
    float direction[3];  // towards the light at infinity; the position otherwise
    uint16_t type;       // 3: at infinity
};

// Lighting beside the scene's own block (ambient and two-sided lighting
// stand in the dictionary's SceneGlobals): the default light.
struct BW_SceneLighting {
    BW_DefaultLight defaultLight = {{1.0f, 1.0f, 1.0f}, {0.4f, 0.8f, 0.6f}, 3};  // white, from above right
};
extern BW_SceneLighting g_sceneLighting;

// State initialisations so far. The draw keeps records per scene (compiled
// materials, loaded textures); a record that saw an older initialisation
// flags everything again, since the lists may be gone.
struct GrStateInitMark {
    int32_t serial;          // initialisations so far
    int32_t texturesSerial;  // the last one that flagged the textures too
};
extern GrStateInitMark g_grStateInit;
extern int g_optimizeEditing;  // BW_SHADE_OPTIMIZE_EDITING: textures keep their flags at state init

// The light of a type: where it stands and whether it is a spot. Unknown
// types light as points.
struct LightForm {
    float w;    // fourth coordinate of the light's position: 0 at infinity
    bool spot;  // aims at its interest within its cone
};
const LightForm &lightFormOf(uint16_t type);

// GL_LIGHT0 from the default light, not enabled.
void grDefaultLightSet();
// Local or infinite viewer (BW_OGL_LIGHT_VIEWER_INFINITE, read once), the
// scene's ambient colour and two-sided lighting; lighting on. State
// initialisation knows no scene and sets the block's defaults.
struct SceneGlobals;
void grLightModelSet(const SceneGlobals &scene);

// True when the model's global scale turns it inside out (a negative product
// of its three components): the strips then carry negated normals.
bool modelMirrored(const Model *model);
// The second scale a mesh model (type 4) is drawn with, inside the global
// matrix: its own scaling, unless its mesh has MESH_FLAG_SCALED. 1 and the
// three factors in `scale`, or 0 when none applies.
int modelExtraScale(const Model *model, float scale[3]);

// The fixed material "default" of models without one: shading model 4,
// ambient 0.5, diffuse 0.7, specular 1, decay 50; id 1.
const Material &materialDefault();
// The material a model draws with: its own first one, else that of the
// nearest ancestor with materials; null for the default material.
Material *modelMaterial(const Model *model);
// The model's first local texture, null when there is none or local
// textures do not count.
const Texture2D *modelLocalTexture(const Model *model, const BW_GlbVar &g);
// Which texture applies to the triangles of `material` on `model`.
const Texture2D *textureResolve(const Model *model, const Material *material, const Texture2D *local,
                                const BW_GlbVar &g);

// The first of a material's own 2D textures; null for none.
const Texture2D *materialTexture(const Material *material);
// Whether a texture repeats (else it is clamped at its edges): every texture
// with `repeatAll` (BW_SHADE_TEXTURE_REPEAT), one that uses its picture's
// alpha, and one that takes the surface's UV as given.
int textureRepeats(const Texture2D *texture, int repeatAll);
// The file that holds the picture of a texture: a path as it stands (".pic"
// added when it has no suffix), else a picture of the database's PICTURES
// chapter. A sequence (sequenceName) names its frames "<name>.<frame>". 1 if
// a file was found.
int texturePicturePath(Dictionary *dict, const Texture2D *texture, int32_t frame, std::string *path);

// Texture UV. UV of a point for the texture's method, the point first turned
// by the texture's rotation (`matrix`, row vector times rows); returns the seam side
// code of cylindrical and spherical methods (1 for u at most 0.25, 2 for u at
// least 0.75, else 0; a triangle whose corners give 1 and 2 crosses the
// seam), 0 for other methods.
int textureProject(const Texture2D *texture, const float point[3], float uv[2]);
// Scale, offset and swap of a texture applied to UV.
void textureTransform(const Texture2D *texture, float uv[2]);
// BW_OLD_UV_CONVERSION, read once.
bool stripOldUvConversion();
// The transformed UV of a vertex: the surface's own (method 4) or projected
// from its reference position. Returns the seam side code; `fromSurface` (may
// be null) is set to 1 for the surface's own UV.
int stripVertexUv(const Texture2D *texture, const TessVertex *vertex, float uv[2], int *fromSurface);

// Flag word of a texture entry.
constexpr uint16_t TEXTURE_FLAG_LOAD = 1;     // read the picture again
constexpr uint16_t TEXTURE_FLAG_UV = 2;       // UV computed for the current triangles
constexpr uint16_t TEXTURE_FLAG_COMPILE = 4;  // compile the list again
constexpr uint16_t TEXTURE_FLAG_VIDEO = 8;    // the video source was taken on

// A picture made ready for the hardware.
struct TexturePicture {
    int32_t width;       // pixels, a power of two
    int32_t height;      // pixels, a power of two
    int32_t components;  // bytes a pixel: 4 (RGBA), 3 after packing
    int32_t flipped;     // 1: the bytes of each pixel stand in reverse order
    uint8_t *pixels;     // malloc'd, bottom row first
};
void texturePictureFree(TexturePicture *picture);  // the pixels and the record

// Side of a texture: the largest power of two not above `side`, halved while
// above `limit` (0: no limit). Pictures are never scaled up.
int textureFitSize(int side, int limit);
// The size limit a value of BW_SHADE_TEXSIZE_LIMIT gives: 256 for none or an
// unparsable value, 0 (no limit) for "OFF" or a value not above 0, else the
// largest power of two not above it.
int textureSizeLimitParse(const char *value);
// The limit of the run, BW_SHADE_TEXSIZE_LIMIT read at the first call.
int textureSizeLimit();

// The picture of a texture, prepared: read from `path` (kinds 0 and 1; kind 2
// reads the resource "noIcon"), cropped, tiled in the image when `tile` and
// the tile counts ask for it, widened to close the wrap of a cylindrical or
// spherical map, resized to powers of two within the limit; with `alphaFlag`
// a border of alpha 0, with `noAlpha` packed to RGB, with `flip` each pixel's
// bytes reversed. Null when the picture cannot be read. Pictures of one
// definition run are cached in gprops (textureCacheBegin): a second texture
// of the same file and settings takes a copy.
TexturePicture *textureLoad(const Texture2D *texture, const char *path, int alphaFlag, int flip, int tile,
                            int noAlpha, BW_GraphicProps *gprops);
void textureCacheBegin(BW_GraphicProps *gprops);
void textureCacheEnd(BW_GraphicProps *gprops);  // frees the cached pictures

// Compiles list 1500 + `id`: filters (texFilter, else the texture's own),
// wrap (GL_REPEAT with `repeat`, else GL_CLAMP), the image. 0, or 98 for a
// count of components the hardware cannot take ("Unknown number of colour
// channels: %d\n").
int textureListCompile(int id, const Texture2D *texture, const TexturePicture *picture, int repeat,
                       const BW_GlbVar &g);
// Makes texture `id` current when it is not: its list, texturing on, sphere
// mapping for reflection maps, the colour mask for live video. Returns 0 for
// a reflection map (no UV needed), else 1.
int textureBindList(const Texture2D *texture, int id, const BW_GraphicProps *gprops);
// Texturing off, sphere mapping off, nothing bound.
void textureUnbind(BW_GlbVar &g);

// Writes the current colour buffer (the back buffer when double-buffered) as an
// 8-bit RGB PNG, bottom row last. Returns 1 on success.
int snapshotWritePng(const char *file, int width, int height);
// Its two halves: the colour buffer read back as RGB rows, bottom row first
// (0 for an empty size), and such rows written as the PNG file (1 on success;
// a failure is reported on standard error). The second knows no GL.
int grReadFrameRgb(int width, int height, std::vector<unsigned char> *pixels);
int pngWriteRgb(const char *file, int width, int height, const unsigned char *pixels);
