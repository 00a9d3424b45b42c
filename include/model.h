// Model hierarchies: the Model node, the .hrc file that holds one tree of
// them (chunk "HRCH"), and the search of nodes by name. Nodes and everything
// under them are malloc'd; modelFree releases a whole tree.
#pragma once

#include <cstdint>

#include "fileio.h"
#include "geometry.h"
#include "material.h"

struct Dictionary;

constexpr uint16_t MODEL_FLAG_FILE1 = 8;  // flags bit set when the file's word 548 is 1

// A record kept as read, in its tokenised form (tokens and values, ending with
// token 0), whatever form the file used; written back the same way.
struct ModelBlob {
    uint8_t *bytes;  // malloc'd record bytes
    int32_t size;    // bytes
};

union ModelGeometry {
    void *any;                  // whatever the type holds
    Patch *patch;               // type 1
    Face *face;                 // type 2
    Mesh *mesh;                 // type 4
    Spline *spline;             // type 6
    MetaGroup *meta;            // type 7
    ModelRef *ref;              // type 8
    NurbsCurve *curve;          // type 9
    NurbsSurface *surface;      // type 10
};

// Roles of Model::kind.
enum ModelKind : int32_t {
    MODEL_KIND_NONE = 0,
    MODEL_KIND_CHAIN = 1,          // chain root (type 0) or joint (type 5)
    MODEL_KIND_CHAIN_DYNAMIC = 2,  // the same under dynamics
    MODEL_KIND_EFFECTOR = 3,       // chain effector (type 0)
    MODEL_KIND_EFFECTOR_2 = 4,     // chain effector of the second form
    MODEL_KIND_DYNAMIC = 12,       // object under dynamics
    MODEL_KIND_INSTANCE = 15,      // instance: drawn without strips, yellow in wire, never culled
};
constexpr int32_t MODEL_TYPE_NULL = 0;   // Model::type of a null node
constexpr int32_t MODEL_TYPE_JOINT = 5;  // Model::type of a chain joint

constexpr uint16_t TRANSFO_DIRTY_SCALE = 2;     // transfoDirty*: scaling changed
constexpr uint16_t TRANSFO_DIRTY_ROTATION = 4;  // rotation changed
constexpr uint16_t TRANSFO_DIRTY_POSITION = 8;  // translation changed
constexpr uint16_t TRANSFO_MIRRORED = 16;       // transfoDirtyDraw: handedness changed
constexpr uint16_t MODEL_IN_UPDATE = 1;         // transfoFlags: global transform being computed
constexpr uint16_t MODEL_CHAIN_SCALING = 2;     // transfoFlags: sheared-child correction asked
constexpr uint16_t MODEL_DRAW_STATE_A = 1;      // drawState: overloaded visibility 2
constexpr uint16_t MODEL_DRAW_STATE_B = 2;      // drawState: overloaded visibility 3
constexpr uint16_t MODEL_WAIT_PHYSICAL = 1;     // subtreeWait: physical data
constexpr uint16_t MODEL_WAIT_DYNAMIC = 2;      // subtreeWait: dynamic data
constexpr uint8_t MODEL_STRIPS_STALE = 16;      // displayFlags: strips out of date
constexpr uint8_t MODEL_NORMALS_STALE = 32;     // displayFlags: points moved, normals not yet made again
constexpr uint8_t MODEL_GEOMETRY_STALE = 64;    // displayFlags: tessellation out of date
constexpr uint8_t MODEL_STRIPS_STALE_2 = 128;   // displayFlags: strips out of date (deformations)

struct Model {
    char *name;                      // malloc'd; "obj%1hd" for nodes made without one
    uint16_t flags;                  // MODEL_FLAG_FILE1 and run-time bits
    uint16_t flags2;                 // run-time word, cleared after a whole tree is read
    int32_t type;                    // ModelType
    ModelGeometry geometry;          // record of the type; null for none
    float scaling[3];                // local scale; |component| kept at least 1e-5 by evaluation
    float rotation[3];               // local rotation, radians (degrees on disk)
    float translation[3];            // local translation
    float rotMatrix[4][4];           // local rotation matrix: Rx Ry Rz of rotation
    float localMatrix[4][4];         // scale, rotation, translation, row vectors
    float globalMatrix[4][4];        // world matrix: what display and constraints read
    // Transform state of the evaluation; the six fields above are its local
    // values and its result. What every update reads and writes comes first.
    float parentScale[3];            // parent's global scale; 1, 1, 1 without parent
    float parentRotation[4][4];      // parent's global rotation; identity without parent
    float parentPosition[3];         // parent's global position; 0 without parent
    float globalScale[3];            // scale in world terms, per own axis
    float globalRotation[4][4];      // pure rotation in world terms
    float globalPosition[3];         // origin in world coordinates
    uint16_t transfoDirty;           // TRANSFO_DIRTY_* set by evaluation, cleared by its readers
    uint16_t transfoDirtyDraw;       // the same for the draw side, plus TRANSFO_MIRRORED
    uint16_t transfoFlags;           // MODEL_IN_UPDATE, MODEL_CHAIN_SCALING
    uint16_t visible;                // 1 shown, 0 hidden by the visibility relations
    int32_t kind;                    // ModelKind: role in kinematics and dynamics
    int32_t chainType;               // effector: 1 holds an absolute orientation
    Model *parent;                   // set by the reader
    Model *firstChild;               // first child
    Model *nextSibling;              // next child of the parent
    float relativeMatrix[4][4];      // globalMatrix times the inverse of the parent's; only when asked
    float classicalRotation[4][4];   // classical scaling: the own-scaling rotation kept beside
    float classicalScale[3];         // classical scaling: the own-scaling global scale
    float classicalPosition[3];      // classical scaling: the own-scaling global position
    float keyedRotation[2];          // last keyed x and y rotation, radians
    uint16_t drawState;              // MODEL_DRAW_STATE_* chosen by an overloaded visibility
    uint16_t garbageMatte;           // 1: read with a garbage matte scene (-G); drawn as a matte
    uint16_t deformChildren;         // non-zero: deforms its descendants, not itself
    uint16_t subtreeWait;            // MODEL_WAIT_* data that makes the model wait for its subtree
    uint16_t materialCount;          // entries of materials
    Material **materials;            // new'd; null entries for references, linked by the scene's relations
    uint16_t texture2DCount;         // entries of textures2D
    Texture2D **textures2D;          // new'd; null entries for references
    Texture3D *texture3D;            // new'd; first inline 3D texture; null for none
    uint16_t visibility;             // 65535 on disk reads as 0
    uint16_t animKind;               // animation kind
    uint8_t *animBlock;              // deformation or animation block of token 13; null for none
    int32_t animBlockSize;           // bytes of animBlock
    uint16_t shapeCount;             // shape keys
    uint8_t *shapes;                 // shape block, kept as read; null for none
    int32_t shapesSize;              // bytes of shapes
    ModelBlob *matterRecord;         // dynamics matter (record 19); null for none
    ModelBlob *jointRecord;          // dynamics joint data (record 21); null for none
    int32_t clusterCount;            // entries of clusters
    ModelBlob *clusters;             // cluster blocks as read
    uint8_t *constraintData;         // constraint block; null for none
    int32_t constraintSize;          // bytes of constraintData
    uint16_t hasBounding;            // 1 when bounding was stored
    float bounding[3][3];            // three vectors of the bounding block
    uint16_t inheritFlags[2];        // tokens 23, 24
    std::vector<CustomBlock> *customBlocks;  // new'd; tokens 22 and 0xFF1C in file order; null for none
    float versionStamp;              // version word of the node
    int32_t uvDomainCount;           // 1 + extra UV domains, from the mesh
    uint8_t *uvDomains;              // token 0xFF24 bytes: per extra domain i32 n and n i32
    int32_t uvDomainsSize;           // bytes of uvDomains
    uint16_t reserved[4];            // words 545, 546, 547, 539
    int32_t elementIndex;            // MODELS element of the node; -1 before it is linked
    // Display form, made by the tessellation and the strip build; freed by
    // modelDropGeometry. modelNew leaves them zero.
    uint8_t displayFlags;            // MODEL_STRIPS_STALE, MODEL_NORMALS_STALE, MODEL_GEOMETRY_STALE...
    uint8_t box;                     // non-zero: drawn as its local bounding box
    int32_t vertexCount;             // entries of vertices
    struct TessVertex *vertices;     // malloc'd; null before tessellation
    int32_t triangleCount;           // entries of triangles
    struct TessTriangle *triangles;  // malloc'd; linked in order through next
    struct TmeshHeader *tmesh;       // strip stream of the model; null for none
    // Set by the scene that names the model (its environment), after the read.
    uint16_t displayMode;            // DISPLAY: the model's own display type; 0 when not given
    int32_t wireColour;              // WIRECOL: wire colour code; 0 when not given
    uint16_t renderFlags;            // bits 0 to 3, driven by relations 4000 to 4003: the
                                     // renderer's switches of the model, kept, not drawn
    // Skeletons and deformations: records of the evaluation, made at load or
    // on first use; null or 0 for none. modelFree releases them through
    // g_modelExtraFree, which the evaluation library installs.
    struct ChainData *chain;         // joint or chain-root data of the solver
    int32_t envelopeRole;            // modelEnvelopeRole: 0 none, 4 to 11 its part in an envelope
    struct EnvelopeData *envelope;   // a deformer's side of envelopes: assignments, poses
    struct ShapeAnim *shapeAnim;     // shape keys of SHAPES elements and their interpolation
    struct Cluster *clusterList;     // clusters of CLUSTERS elements, in load order
    struct DeformRest *rest;         // the points at rest that deformations start from
    struct ModelDeformers *deformers; // lattices, curve deformations and waves of the two slots
    uint32_t geometryStamp;          // bumped each time the points are rewritten (modelGeometryChanged)
};

// Releases the evaluation records of one node (the fields above); null while
// no evaluation library is linked in. Called by modelFree for every node.
extern void (*g_modelExtraFree)(Model *node);

// Reading modes.
constexpr int MODEL_READ_NEW = 0;   // makes new nodes
constexpr int MODEL_READ_OVER = 1;  // reads over nodes in memory; transforms are dropped

// Reads "<path>.hrc". Mode 0: `target` becomes the parent of the new root (may
// be null). Mode 1: `target` is the root read over. Null, with the file named
// on standard error, for a missing or damaged file or another chunk than HRCH.
Model *modelFileRead(const char *path, Model *target, int mode);
// Reads the node record behind the "HRCH" tag, with its whole tree.
Model *modelChunkRead(BinReader &r, Model *target, const Prototype *proto, int mode);
// Reads one node record, its children and siblings with it; `over` is the node
// read over in mode 1, null in mode 0.
Model *modelNodeRead(BinReader &r, Model *parent, const Prototype *proto, int mode, Model *over);
// Writes the header (general id), the PROT table, "HRCH" and the tree.
int modelFileWrite(BinWriter &w, const Model *root);
// The same, or without a table (every value preceded by its token) when
// withTable is 0, as files of older writers were.
int modelFileWriteForm(BinWriter &w, const Model *root, int withTable);
int modelFileWritePath(const char *path, const Model *root);  // "<path>" as given
void modelProtoSet(Prototype &proto);  // lists of the version 4.0 writer

// First node named `name` under `node` (itself included; children before
// siblings) not yet tied to an element of `dict`'s MODELS chapter. A null
// dictionary accepts every node.
Model *modelFindByName(Dictionary *dict, Model *node, const char *name);
// The node after `node` in the file's order of the tree under `top`: its
// first child, else its next sibling, else the next sibling of the nearest
// ancestor below `top` that has one; null after the last. Starting from
// `top` walks the whole tree, `top` first, without recursion.
Model *modelTreeNext(const Model *node, const Model *top);
// Ties the tree read from the file of MODELS element `rootIndex` to the
// elements under it (relation 110, child towards parent): the root element
// gets the root, every element below gets the free node of its name. A node
// that cannot be found is reported on standard error and its element keeps no
// data. Returns the number of elements left without a node; -1 for bad
// arguments. Lives in the dictionary library.
int modelElemLink(Dictionary *dict, int rootIndex, Model *root);

// Memory
Model *modelNew(const char *name, int32_t type, void *geometry);  // identity transform
void modelAddChild(Model *parent, Model *child);  // appended behind the last child
void modelUpdateTransform(Model *node);           // rotMatrix, localMatrix, globalMatrix
void modelFree(Model *root);  // the node, its children and its following siblings
void modelBlobFree(ModelBlob *blob);
