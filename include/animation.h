// The evaluation core: function curves, the items of animation files, the
// update list that orders a scene's relations, and the scene update that
// walks it. Records here are shared by the file readers, the dictionary's
// scene load and the layer.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>

struct Dictionary;
struct RelationDict;

// Animation optimisation switch read by the update list: -1 on, 0 off (-o).
// It is the word evalOptimisations; the bits below act when set.
extern int animationOptimise;
constexpr int EVAL_OPT_CHILD_LOOP = 2;      // hierarchy recursion loops over the child list
constexpr int EVAL_OPT_SENTINEL = 4;        // hierarchy records recurse only into children without one
constexpr int EVAL_OPT_PRUNE_CHANNELS = 8;  // channel lists are pruned
constexpr int EVAL_OPT_NO_RELATIVE = 16;    // relativeMatrix is not computed
constexpr int EVAL_OPT_TEXTURE_ROOTS = 32;  // texture-space square roots skipped

// ---------------------------------------------------------------------------
// Function curves

enum FcurveInterpolation : int16_t {
    FCV_CONSTANT = 0,
    FCV_LINEAR = 1,
    FCV_SPLINE = 2,
    FCV_SLOPE0 = 3,
    FCV_PLATEAU = 4,
};

enum FcurveExtrapolation : int16_t {
    FCV_EXTRA_CONSTANT = 0,
    FCV_EXTRA_LINEAR = 1,
    FCV_EXTRA_PERIODIC = 2,
};

constexpr uint16_t FCVKEY_USER_SLOPES = 1;  // flag: slopes set by the user
constexpr uint16_t FCVKEY_BROKEN = 2;       // flag: left and right slope differ

struct Fcurve;

struct FcurveKey {
    float time;             // seconds ("TIME")
    float value;            // ("VALUE")
    float rightSlope;       // outgoing slope, value per second ("RIGHT_SLOPE")
    uint16_t flag;          // FCVKEY_USER_SLOPES, FCVKEY_BROKEN ("FLAG")
    int16_t interpolation;  // FcurveInterpolation of the segment to the next key
    Fcurve *owner;          // the curve; restored after every copy
    uint16_t selected;      // user selection mark
    uint16_t pad;           // free
    float leftSlope;        // incoming slope ("LEFT_SLOPE")
    uint16_t keyType;       // low 4 bits FREEFORM, KEYFRAME, KEYPATH, RAWDATA; marks above
    uint16_t splineIndex;   // KEYPATH keys only; 0xFFFF when free
    uint16_t spare;         // 0xFFFF when free
};

struct Fcurve {
    int32_t type;            // curve type: the id of the animated parameter
    int32_t subId;           // instance id for curves of custom effects
    FcurveKey *keys;         // malloc'd, capacity a multiple of 8
    int32_t keyCount;        // keys in use
    float lastTime;          // time of the latest evaluation; -100000 when new
    float lastValue;         // value of the latest evaluation
    int16_t preMode;         // FcurveExtrapolation before the first key
    int16_t postMode;        // FcurveExtrapolation after the last key
    uint16_t flags;          // "FLAGS"; not used by evaluation
    uint16_t interpolation;  // default interpolation of new keys; 2 when new
    uint16_t rangeOn;        // 1 when new: time clamped to [rangeStart, rangeEnd]
    uint16_t pad;            // free
    float rangeStart;        // seconds
    float rangeEnd;          // seconds
    uint16_t editable;       // 1 when new
    uint8_t editorBytes[14]; // for curve editors; zero when new
    int32_t currentKey;      // search hint: index of the key found last
    Fcurve *child;           // dependent curve owned by this one; null for none
    float minValue;          // smallest key value seen when keys were added
    float maxValue;          // largest key value seen when keys were added
    uint16_t reserved;       // free
    uint16_t modified;       // counted in the modified-curves counters
};

// Allocation. A new curve has no keys, lastTime -100000, rangeOn 1 and the
// default interpolation of its type.
Fcurve *fcurveCreate(int32_t type, int32_t subId);
void fcurveFree(Fcurve *curve);  // keys and child too; null is ignored
FcurveKey *fcurveKeyNew();       // malloc'd fresh key: zeros, type 0, 0xFFFF in the last two
// Inserts a malloc'd key in time order (taking ownership) or replaces one
// within the merge tolerance. Index of the key (from 0), or -1.
int fcurveAddKey(Fcurve *curve, FcurveKey *key, int startIndex, int askIfLocked, int replace);

// Evaluation. Not re-entrant for one curve: the search hint and the last
// value are written.
double fcurveValue(Fcurve *curve, float time, int useRange);       // by the curve's type
double fcurveFloatValue(Fcurve *curve, float time, int useRange);  // interpolated value
int fcurveStepValue(Fcurve *curve, float time, int useRange, int asBoolean);
// Whether an activation curve is on; `freezeTime` gets the time of its last change.
int fcurveFreezeTime(Fcurve *curve, float time, float *freezeTime);

// Key types: the low four bits of FcurveKey::keyType. The bits above are
// marks that survive a change of type.
constexpr uint16_t FCVKEY_FREEFORM = 0;
constexpr uint16_t FCVKEY_KEYFRAME = 1;   // locked: replacing it asks first
constexpr uint16_t FCVKEY_KEYPATH = 2;    // value set by a path vertex (splineIndex)
constexpr uint16_t FCVKEY_RAWDATA = 3;
constexpr uint16_t FCVKEY_TYPE_MASK = 0x000F;

// Process-wide settings of curves.
extern int fcurveDefaultInterpolation;  // of new curves of types without their own; FCV_SPLINE at start
extern float fcurveFrameRate;           // frames per second that key merging counts in; 30 at start
extern float fcurveMergeFrames;         // keys nearer than this many frames merge; 0.15 at start
// 1: type 175 steps as an integer 0 to 3, not as a boolean (visibility values 2
// and 3 choose drawing states); 0 off; -1 (at start) takes the presence of
// BW_OVERLOAD_HIDDEN at the first question. Both sides of the viewer ask.
extern std::atomic<int> fcurveIntegerVisibility;
int fcurveIntegerVisibilityOn();  // the switch, the environment read if still -1
// Asked before a locked key is replaced; non-zero replaces. While null the
// question is printed on standard output and taken as refused.
using FcurveConfirm = int (*)(const char *question);
extern FcurveConfirm fcurveConfirm;

// Key `index` counted from 1; null, with a message on standard output, out of range.
FcurveKey *fcurveKey(Fcurve *curve, int index);
// Makes room for `count` fresh keys (capacity a multiple of 8), dropping the
// old ones; keyCount becomes `count`. 0 when out of memory (the curve then has no keys).
int fcurveKeysAlloc(Fcurve *curve, int count);
// Appends a malloc'd key behind the last one as it stands (taking ownership):
// for readers that keep a file's order and slopes. 0 when out of memory.
int fcurveKeysAppend(Fcurve *curve, FcurveKey *key);
// Removal by index counted from 1; the slopes of the neighbours follow. 1 if removed.
int fcurveDeleteKey(Fcurve *curve, int index);
// Removes keys first to last (from 1, both included), only the selected ones
// when `selectedOnly`; then recomputes the slopes. Returns the keys removed.
int fcurveDeleteKeys(Fcurve *curve, int first, int last, int selectedOnly);
void fcurveKeySlopes(Fcurve *curve, int index);  // slopes of key `index`, counted from 0
void fcurveSlopes(Fcurve *curve);                // of every key, in order
void fcurveSortKeys(Fcurve *curve);              // ascending by time (1e-5 tolerance), then slopes
// A copy with its own keys, without the child. Null when out of memory.
Fcurve *fcurveDuplicate(const Fcurve *curve);

// Range edits over the keys whose time lies in [from, to]; each re-sorts the
// keys afterwards and returns the keys changed. Times move and scale about
// `pivot` on every key but locked ones; values scale on every key but path
// ones. A time scale divides the slopes (a zero scale sets them to 100000),
// a value scale multiplies them.
int fcurveMoveKeys(Fcurve *curve, float from, float to, float offset);
int fcurveScaleTime(Fcurve *curve, float from, float to, float pivot, float scale);
int fcurveScaleValue(Fcurve *curve, float from, float to, float pivot, float scale);

// Keyword form of a curve inside setup and effect files, read with the shared
// token reader. Null, with a message on standard output, on a bad word.
Fcurve *fcurveAsciiRead(FILE *stream);
int fcurveAsciiWrite(FILE *stream, const Fcurve *curve);  // 1 if every write succeeded
// Raw curve files (.fraw): "count interpolation", then "time value left right"
// per key. Failures are reported on standard output, naming the file.
Fcurve *fcurveRawRead(const char *path);
int fcurveRawWrite(const char *path, const Fcurve *curve);

// ---------------------------------------------------------------------------
// Items of an animation file: one per curve of the file, connected after the
// scene's elements are read.

struct AnimItem {
    Fcurve *curve;     // owned until the item is connected
    int32_t kind;      // token 1: relation id that the curve drives
    int32_t target;    // token 5: chapter id of the animated element
    int32_t param;     // token 6: parameter of the target (instance of the relation)
    int32_t active;    // token 7: 1 unless switched off
    AnimItem *next;    // next item of the file, in file order
};

// Element files of animation: .ani and .key (curves), .shp (shape keys) and
// .cls (cluster keys). The readers and writers live in the fileio library.
struct BinReader;
struct BinWriter;
struct Prototype;
struct Model;

// Tokens of a block of an .ani or .key file; each but the ends carries a value.
enum AnimBlockToken : uint16_t {
    ANIM_TOKEN_KIND = 1,      // u16 relation id: required, a block without it ends the file
    ANIM_TOKEN_NAME = 2,      // string, dropped
    ANIM_TOKEN_WORD3 = 3,     // u16, dropped
    ANIM_TOKEN_FORM = 4,      // u16 ANIM_FORM_CURVE or ANIM_FORM_LIST
    ANIM_TOKEN_TARGET = 5,    // u16 chapter id of the animated element
    ANIM_TOKEN_PARAM = 6,     // u16 instance of the relation, 0 for the first
    ANIM_TOKEN_ACTIVE = 7,    // u16, 1 by default
    ANIM_TOKEN_END = 10,      // the curve or the list follows
    ANIM_TOKEN_END_OLD = 99,  // the same, in older files
};
constexpr int ANIM_FORM_CURVE = 0;  // one curve follows the block's tokens
constexpr int ANIM_FORM_LIST = 1;   // an i32 count and that many curves follow

struct AnimBlock {
    int32_t kind;     // token 1; -1 when the block had none
    int32_t form;     // token 4
    int32_t target;   // token 5
    int32_t param;    // token 6
    int32_t active;   // token 7
    AnimItem *items;  // the block's curves, one item each in file order; the caller owns them
};

// Reads "<path>" (.ani or .key, the path as given). Null for a file without
// curves; "ERROR: Cannot open file <path>" on standard error when it cannot be
// opened; a bad header gives null without a message (the scene reports the
// element). A damaged file keeps the curves read before the damage.
AnimItem *animFileRead(const char *path);
// The next block: 1 when one was read whole, 0 at the end of the blocks or on
// damage; `block.items` holds what was read in both cases.
int animBlockRead(BinReader &r, AnimBlock &block);
// One block per run of items with the same kind, target, parameter and
// activity: a single curve, or a list for several. 1 if written whole.
int animFileWrite(const char *path, const AnimItem *items);
void animItemsFree(AnimItem *items);  // the items and their curves
// The binary record of one curve, shared by every file that holds curves.
Fcurve *fcurveBinRead(BinReader &r);
int fcurveBinWrite(BinWriter &w, const Fcurve *curve);
// The optional "PROT" table behind the header of a file without a chunk tag
// (.shp, .cls): read when the next four bytes are "PROT", else nothing is
// consumed. 0 when the table is damaged.
int animReadProto(BinReader &r, Prototype &proto);

// Shape keys: whole geometry records of a node's type, one per key.
struct ShapeKey {
    int32_t type;    // ModelType of the record
    void *geometry;  // the record (Mesh, Patch, ...); null for a block skipped as a mismatch
};

struct ShapeKeys {
    int32_t count;   // keys in the file, skipped ones included
    ShapeKey *keys;  // count entries, in file order
};

// Reads "<path>" (as given) for `node`: the node's shapeCount is set from the
// file and records of another type than the node's are skipped. With a null
// node each record keeps the type of its tag. Null when nothing could be read.
ShapeKeys *shapeFileRead(const char *path, Model *node);
ShapeKeys *shapeKeysRead(BinReader &r, const Prototype *proto, Model *node);
int shapeFileWrite(const char *path, const ShapeKeys *keys);  // 1 if written whole
void shapeKeysFree(ShapeKeys *keys);
const char *shapeTag(int32_t type);  // "MESH", "PTCH", ... of a node type; null for none

// A cluster: points of a model moved together, with one offset per point and key.
struct Cluster {
    char *name;           // malloc'd; null for none
    int32_t type;         // ModelType whose points the cluster moves
    float centre[9];      // the cluster's own point, in the form of its type
    int32_t pointCount;   // points of the cluster ("numCVs")
    int32_t *indexes;     // pointCount point indices into the model's geometry
    int32_t keyCount;     // keys ("numKeys")
    float *keys;          // keyCount x pointCount points of clusterPointFloats(type) floats
    uint32_t word5;       // token 5, kept
    uint16_t word6;       // token 6, kept
    Cluster *next;        // next cluster of the model
};

// Floats of one point: 4 for the CVs of types 1, 9 and 10, 9 (position and
// two tangents) for 2 and 6, 3 for a mesh vertex; 0 for a type without points.
int clusterPointFloats(int32_t type);
// Reads "<path>" (as given), binary or the ascii CLUS form, for `model`, whose
// type gives the form of the points. Null for a null model or on failure.
Cluster *clusterFileRead(const char *path, Model *model);
// The binary records behind the start of the file; `type` is the model's, or
// -1 to take each cluster's own.
Cluster *clusterChainRead(BinReader &r, int32_t type);
int clusterFileWrite(const char *path, const Cluster *chain);  // binary; 1 if written whole
void clusterFree(Cluster *chain);  // the whole chain
// Wave files (.wav), ascii: the magic SWAV and a version, then keyword and
// value groups (the Wave record is under "Waves" below). Null, with a message
// on the error stream naming the file, when it cannot be read.
struct Wave;
Wave *waveFileRead(const char *path);
int waveFileWrite(const char *path, const Wave &wave);  // 1 if written whole

// ---------------------------------------------------------------------------
// The update list: a scene's relations flattened so that every driver stands
// before what it drives.

struct UpdateSource {
    int16_t chapter;   // chapter of the driving element
    int16_t group;     // its group
    int32_t element;   // its index
    void *data;        // its data (an Fcurve for the ANIMATION chapter)
    uint16_t active;   // copy of the relation entry's flag
    Fcurve *fcurve;    // activation fcurve of the entry; null for none
};

struct UpdateRecord;
// A relation handler: evaluates one record at a time; `flags` is the walk's word.
using UpdateHandler = void (*)(UpdateRecord *record, float time, int *flags);

constexpr int16_t UPDATE_SENTINEL_CHAPTER = -1;  // 65535: the record behind the last

struct UpdateRecord {
    int16_t chapter;          // chapter of the driven element; -1 (65535) in the sentinel
    int16_t group;            // group being computed
    int32_t element;          // index of the driven element
    void *data;               // the element's data (Model, Camera, ...)
    UpdateHandler handler;    // looked up once when the record is added; null: nothing to do
    int32_t foSum;            // sum of fo over the relation's rows with dd set
    int32_t relation;         // relation id; the key of the dispatch
    int16_t sourceCount;      // entries of sources
    UpdateSource *sources;    // malloc'd, owned by the record
    uint16_t active;          // 0 switches the record off
    void *relationData;       // relation data of the run, or null
    void *extra;              // malloc'd buffer freed with the record; null for none
};

struct UpdateList {
    int32_t count = 0;               // records, the sentinel not counted
    UpdateRecord *records = nullptr; // malloc'd
    int32_t dirty = 1;               // 1 after creation and whenever relations change
};

// Frees the sources and extra buffers of each record and the array; count 0,
// dirty 1. Lives in the dictionary library, which owns the lists of a scene.
void updatelistClear(UpdateList *list);

// Handler of (group, relid); null for none. Handlers register at start.
UpdateHandler updateHandlerFind(int group, int32_t relid);
void updateHandlerRegister(int group, int32_t relid, UpdateHandler handler);

// ---------------------------------------------------------------------------
// Building and walking the update list; transforms of models, cameras, lights.

struct Element;
struct RelationGroup;
struct RelationInst;
struct Model;
struct Camera;
struct Light;

// Relation ids that exist only in the list or only while it is built.
constexpr int32_t REL_HIERARCHY_STEP = -100;       // global transform of a model and its subtree
constexpr int32_t REL_WAVE_HIERARCHY_STEP = -101;  // the same on a wave's transform object
constexpr int32_t REL_GEOMETRY_END = -200;         // end of an element's deformations
constexpr int32_t REL_IMAGE_SEQUENCE = -400;       // self relation of an image-sequence texture
constexpr int32_t REL_PARENT = 110;                // child to parent

constexpr int TOPOSORT_MAX_LEVEL = 100;  // deepest recursion of the sort

// ---------------------------------------------------------------------------
// Building

// Builds `list` from the scene's relations. 1, or 0 on a cycle or when the
// recursion goes deeper than TOPOSORT_MAX_LEVEL; the list then stays dirty
// and empty. A list that is not dirty is left as it is. With `checkOnly` the
// sort only tests for cycles and the list is untouched. With `partial` only
// elements that are `marked` start a sweep, and the caller owns the virtual
// relations.
int updatelistBuild(Dictionary *dict, UpdateList *list, int checkOnly, int partial);
// The partial build into dict->update2: the dependents of the marked elements
// are marked by a reverse pass over `group` (-1: all groups), then listed.
int updatelistBuildFrom(Dictionary *dict, int group, int withVirtual, int checkOnly);
// One visit of the sort: group `group` of `element` in direction list `groups`
// (its childGroups when `forward`, else its parentGroups). 1 on success.
int TopoSort(Dictionary *dict, UpdateList *list, Element *element, RelationGroup *groups,
             int chapter, int32_t elementIndex, int group, int level, int noOutput, int forward,
             int partial, int tolerant);
// State and cursor 0 in every group of one direction of every live element.
void updatelistReset(Dictionary *dict, int forward);
// Appends a record and returns the new count; the record owns `sources`. Data
// and active flag come from `entry` (null: no data, active). A MODELS element
// without data gets no record. The handler is looked up here, once.
int updatelistAddRecord(UpdateList *list, int chapter, int32_t elementIndex, const Element *element,
                        int32_t relation, const RelationInst *entry, int group, int sourceCount,
                        UpdateSource *sources);
// Adds (`add` 1) or removes the virtual relations that order models without a
// special case in the sort; `withTextures` adds the self relation of every
// image-sequence texture too. The dictionary's dirty words are left as found.
void hierarchyRelations(Dictionary *dict, int add, int withTextures);
// The main list of a scene after a load; on failure the cycle is reported
// through msgError and 0 is returned.
int updatelistBuildScene(Dictionary *dict);
void updatelistUnmark(Dictionary *dict);  // clears `marked` of every element

// Where the calling thread's last failed sort stopped.
struct UpdateFailure {
    int32_t chapter;  // chapter of the element whose group closed the cycle
    int32_t element;  // its index
    int32_t group;    // its group
    int32_t tooDeep;  // 1: the depth limit, not a cycle
};
const UpdateFailure *updatelistLastFailure();

// Channel runs: records of `main` equal to one of `hiPriority` in chapter,
// element, group and relation are switched off, so each runs in one list.
void updatelistDeactivateShared(UpdateList *main, const UpdateList *hiPriority);
// With EVAL_OPT_PRUNE_CHANNELS: curve sources that a following expression
// overrides with a plain channel value are switched off (needs the hooks).
void updatelistPruneChannels(UpdateList *list);

// ---------------------------------------------------------------------------
// Evaluating

// Whether the record runs at `time`, and at which time (a relation switched
// off by its activation curve stays at the moment it went off).
int updatelistRecordNeeded(UpdateRecord *record, float time, float *effectiveTime);
void updatelistEvalRecord(UpdateRecord *record, float time, int *flags);
// The scene update: one walk of the list.
void updatelistEval(Dictionary *dict, UpdateList *list, float time);
// Global transforms of every model tree, then the main list at `time`: the
// first update after a load.
void updatelistSceneUpdate(Dictionary *dict, float time);

// Update modes of the walk (g_updateMode): what the user asked to see move.
enum UpdateMode { UPDATE_ALL = 0, UPDATE_SELECTED = 1, UPDATE_VISIBLE = 2 };
extern int g_updateMode;

// Environment switches, read once: BW_MANIPULATION_OPTIM (present: on) and
// BW_NO_OPTIM_UNTOLD_REL (present: the skipping of hidden models nobody reads
// is off), BW_NO_ENVELOP_OPTIM (present: envelope work is not deferred).
int evalManipulationOptim();
int evalUntoldRelOptim();
int evalEnvelopeDeferral();
// BW_CLASSICAL_SCL_FIX (present: on): in classical scaling every model outside
// chains under a parent outside chains gets the sheared-child correction, not
// only those whose MODEL_CHAIN_SCALING bit asks for it.
int evalClassicalScalingFix();
void evalFlagsReset();  // the next question reads the environment again (BW_OVERLOAD_HIDDEN too)


// ---------------------------------------------------------------------------
// Printing: " \n\n UPDATE LIST: \n" and a line per record, verbose or short.
// A title (the list's name) is printed first with a rule of its length.
void updatelistPrint(FILE *out, Dictionary *dict, const UpdateList *list, int verbose,
                     const char *title);

// ---------------------------------------------------------------------------
// Transforms. Row vectors (p' = p M), translation in the fourth row, Euler
// angles in the order Rx Ry Rz, radians in models, degrees in curves.

constexpr double DEG_TO_RAD = 0.0174532925;

extern int g_scalingType;      // scene setting: 0 own scaling, 1 classical scaling
extern int g_eulerFoldToHint;  // 1: extracted angles move by whole turns towards the hint

void eulerToMatrix(const float angles[3], float m[4][4]);
// The angles of the rotation in `m` nearest to `hint` of the two solutions.
void matrixToEuler(const float m[4][4], const float hint[3], float angles[3]);

// Recomputes the global transform of `model` under `parent` (null for a
// root) and, with `recurse`, of its subtree.
void modelGlobalUpdate(Model *parent, Model *model, int recurse);
// Each takes a global value and turns it into the local one, then updates the subtree.
void modelSetLocalPosition(Model *model, const float position[3]);
// Marks the local values `bits` (TRANSFO_DIRTY_*) as changed for the update and the draw.
void modelMarkDirty(Model *model, uint16_t bits);
void modelSetLocalRotation(Model *model, const float rotation[4][4]);
void modelSetLocalScaling(Model *model, const float scaling[3]);
// The chain root above a joint or effector: the first type 0 ancestor of kind 1 or 2.
Model *chainRootOf(Model *model);

// The camera frame from position, interest and roll. With `upPoint`, the up
// direction points at it and the roll that gives it is stored.
void cameraViewUpdate(Camera *camera, const float *upPoint);

// ---------------------------------------------------------------------------
// Boundaries to the modules that live elsewhere. Each may be null; the walk
// then does without.

struct EvalHooks {
    // Transform object of a wave element's data.
    Model *(*waveTransfo)(void *wave);
    // State of the record's display item: DISPLAY_ITEM_* bits, 0 when it has none.
    uint32_t (*displayItem)(const UpdateRecord *record);
    // Fcurve type an expression record assigns; -1 when unknown. With
    // `fromChannel`, only when the value is a plain channel value.
    int32_t (*expressionTarget)(const UpdateRecord *record, int fromChannel);
    // Whether an element is driven by a channel connection.
    int (*channelConnected)(int chapter, int32_t element);
    // An expression record (relation 20010) whose element or first source is a
    // driver of the channels chapter: the connections it carries.
    void (*channelRecord)(UpdateRecord *record, float time);
    // Any other expression record.
    void (*expressionRecord)(UpdateRecord *record, float time);
    // Channels as expressions see them, by the names of the current scene's
    // setup: the driver and DOF of "driver.dof" with the DOF's ChannelDirection
    // (1 when found), the value of an input DOF at a time, and a value put
    // into an output DOF.
    int (*channelDofFind)(const char *driver, const char *dof, int *driverIndex, int *dofIndex,
                          int *direction);
    float (*channelDofRead)(int driverIndex, int dofIndex, float time);
    void (*channelDofWrite)(int driverIndex, int dofIndex, float value);
};
extern EvalHooks g_evalHooks;

// ---------------------------------------------------------------------------
// Deformed geometry: what shapes, clusters, envelopes and deformers share.

// A model's points at rest, as loaded: each frame's deformation starts from
// them. Values as geometryPointsRead gives them.
struct DeformRest {
    int32_t type;    // ModelType the copy was made from
    int32_t count;   // points
    int32_t width;   // values per point (geometryPointWidth)
    double *values;  // count x width, malloc'd
};
// The rest copy of the model's points, made from its geometry on the first
// call; null for a model without points or when out of memory.
const DeformRest *modelRestPoints(Model *model);
// Puts the rest points back into the geometry. 0 without a rest copy or when
// the geometry no longer has the copy's point count.
int modelRestore(Model *model);
// The model's points moved this frame: its normals are made again and its
// display form rebuilt by the next tessellation (before the next draw).
void modelGeometryChanged(Model *model);
// Releases what the evaluation attached to one node (chain, envelope, shapes,
// clusters, rest copy); installed as g_modelExtraFree.
void modelExtraFree(Model *model);

// ---------------------------------------------------------------------------
// Shape and cluster animation: relation 200 blends the model's geometry from
// stored shapes, relation 700 moves the points of its clusters. Both write the
// current geometry and end with modelGeometryChanged.

// Interpolations of the shape keys of a model.
#define BW_SHAPE_INTERPOLATIONS(X)                                     \
    X(SHAPE_INTERP_LINEAR, 0)    /* between the pair of the key index */ \
    X(SHAPE_INTERP_CUBIC, 1)     /* Catmull-Rom over four keys */        \
    X(SHAPE_INTERP_WEIGHTED, 2)  /* sum of all keys by their weights */
enum ShapeInterpolation : int32_t {
#define BW_SHAPE_INTERP_ENUM(name, value) name = value,
    BW_SHAPE_INTERPOLATIONS(BW_SHAPE_INTERP_ENUM)
#undef BW_SHAPE_INTERP_ENUM
};
constexpr int32_t SHAPE_CURVE_KEY = 201;     // fcurve type: key index, a real number
constexpr int32_t SHAPE_CURVE_WEIGHT = 202;  // fcurve type: weight of one key, in key order
constexpr double SHAPE_WEIGHT_EPSILON = 1e-05;  // weights at or below count as none

// A model's shapes. The array has keys + 1 entries: index 0 is the current
// geometry (the model's own record), 1 up the keys of the file. Each key's
// points are read once when the keys are attached, so a frame reads no record.
struct ShapeAnim {
    int32_t shapeCount;     // entries of pointCounts and points: keys + 1
    int32_t type;           // ModelType of the model the keys were made for
    int32_t width;          // values per point (geometryPointWidth)
    int32_t *pointCounts;   // shapeCount entries: points of each key; [0] the geometry's at attach; -1 for a key without record
    double **points;        // shapeCount entries: each key's points, pointCounts x width; [0] null
    int32_t interpolation;  // ShapeInterpolation; 3 and up are refused by the update
    uint16_t absolute;      // 1: weights taken as they are; 0: normalised by their sum
    uint16_t pending;       // set when keys are attached; cleared by each update
    int32_t cubicBefore;    // cubic data: the key before the pair of the latest update
    int32_t scratchCount;   // points the work arrays hold
    double *scratch;        // scratchCount x width: the frame's result before it is written
    int32_t weightCapacity; // entries of weights: the most keys of the shapes or of one cluster
    double *weights;        // weightCapacity entries: the weighted form's weights
    ShapeKeys *keys;        // the keys as read: records for the tessellation's reference shape
};

// The model's shape record, made empty (shapeCount 1, no keys) on first use,
// with work arrays sized to its geometry and its rest copy made. Null for a
// model without points or when out of memory.
ShapeAnim *shapeAnimOf(Model *model);
// Hands the keys read for `model` to its shape record (which owns them from
// now on, also on failure) with the interpolation and `absolute` of the
// model's shape settings (shapeSettingsRead). 1, or 0 when out of memory.
int shapeAnimAttach(Model *model, ShapeKeys *keys);
// Interpolation and `absolute` from the model node's shape block (token 17):
// a u16 interpolation and a u16 absolute flag, big-endian; a block shorter
// than a field leaves it at 0 (linear, normalised weights).
void shapeSettingsRead(const Model *model, int32_t *interpolation, uint16_t *absolute);
void shapeAnimFree(ShapeAnim *anim);
// The geometry record of shape `index` (0 the model's own; a key's record,
// null for a key without one or out of range).
void *shapeGeometry(const Model *model, int32_t index);

void animShapeUpdate(UpdateRecord *record, float time);   // relation 200
// The weighted form: every key by its curve 202; nothing below the sum's bound.
void shapeWeighted(Model *model, UpdateRecord *record, float time);
void clusterAnimUpdate(UpdateRecord *record, float time); // relation 700
// The offset of point `pointIndex` of the cluster (clusterPointFloats values
// into `offset`) at key position `keyValue` (modes 0, 1) or by `weights`
// (mode 2, one per key, `absolute` as for shapes). 0 when the cluster has no
// keys or the point is out of range.
int clusterKeyEval(const Cluster *cluster, int32_t pointIndex, int mode, double keyValue,
                   const double *weights, int absolute, double *offset);
// Appends the clusters read for `model` to its list (which owns them from
// now on, also on failure) and readies the work arrays. 1, or 0 for a model
// without points or when out of memory.
int clusterAttach(Model *model, Cluster *chain);
// Registers the SHAPES and CLUSTERS readers of the scene load.
void shapeSceneInstall();
// The model that the relation `relid` from MODELS leads to the element
// (chapterId, index); null for none. Elements read for their model use it.
Model *sceneRelationOwner(Dictionary *dict, int chapterId, int index, int32_t relid);
// Envelopes: skins whose points follow the deformers of a skeleton. The skin
// (role 6 or 7) holds the update record (relation 206, or 207); each deformer
// keeps, per skin it moves, the skin's assignments and its own base pose.

enum EnvelopeRole : int32_t {  // Model::envelopeRole
    ENVELOPE_ROLE_NONE = 0,
    ENVELOPE_ROLE_SKELETON = 4,        // a skeleton's model
    ENVELOPE_ROLE_CHAIN_DEFORMER = 5,  // a deformer in a chain
    ENVELOPE_ROLE_SKIN = 6,            // an enveloped model
    ENVELOPE_ROLE_CHAIN_SKIN = 7,      // an enveloped chain part
    ENVELOPE_ROLE_DEFORMER = 8,        // a deformer
    ENVELOPE_ROLE_ROOT = 10,           // a deformer root
    ENVELOPE_ROLE_NULL = 11,           // a null-like model in a skeleton: moves nothing itself
};
constexpr uint16_t ENVELOPE_MOVED = 2;     // EnvelopeData::bits: the deformer moved this walk
constexpr uint16_t ENVELOPE_DEFERRED = 4;  // its skeleton's matrices are made for this walk
constexpr uint16_t ENVELOPE_REBUILD = 8;   // its point lists changed: the skins must be made again

constexpr float ENVELOPE_MIN_WEIGHT = 0.01f;  // percent; lighter assignments are dropped
constexpr float ENVELOPE_POSE_EPSILON = 0.0001f;  // a pose value moved by no more is unmoved

struct EnvelopeAssignment {
    int32_t vertex;  // point number in the skin (geometry point order)
    float weight;    // percent; a point's weights total 100
};

// The assignments of one skin to one deformer.
struct EnvelopeSkin {
    Model *skin;                      // the skin's node; null until the scene resolves the name
    char *skinName;                   // malloc'd name of the skin node as stored
    int32_t count;                    // entries of assignments
    EnvelopeAssignment *assignments;  // malloc'd, in stored order
    EnvelopeSkin *next;               // the deformer's next skin
};

// A deformer's side of its envelopes (Model::envelope).
struct EnvelopeData {
    EnvelopeSkin *skins;     // linked per skin
    float reference[9];      // at binding, relative to the parent: scale, rotation (radians), position
    float basePose[4][4];    // inverse of the global matrix in the base pose
    float lastPose[9];       // global scale, local rotation, local position at the last walk's end
    float rounding;          // round-joint value of a chain joint; 0 for none
    uint16_t bits;           // ENVELOPE_MOVED, ENVELOPE_DEFERRED, ENVELOPE_REBUILD
};

// The model's record, made empty (identity base pose, unit reference scale)
// on first use; null when out of memory. Lives in the file library.
EnvelopeData *envelopeDataGet(Model *model);
void envelopeDataFree(EnvelopeData *data);
// A new list for `skin` (or, with a null skin, for the node named `name`)
// with `count` zeroed assignments, put behind the others; null when out of memory.
EnvelopeSkin *envelopeSkinAdd(EnvelopeData *data, Model *skin, const char *name, int32_t count);
EnvelopeSkin *envelopeSkinFind(const EnvelopeData *data, const Model *skin);
// Token 28 of a model node: the sized block of the deformer's record
// (reader and writer of the .hrc node).
int envelopeBlockRead(BinReader &r, Model *model);
int envelopeBlockWrite(BinWriter &w, const Model *model);

// Whether the role is one of a skeleton's (4, 5, 8, 10, 11).
int envelopeIsDeformer(int32_t role);
// Depth of a deformer in its skeleton, 0 at the top; -1 for any other model.
int envelopeDepth(const Model *model);
// The skeleton top of a model: a deformer's own top; for a skin the child of
// depth 0 with role 4 or 10, else the first such ancestor. Null for none.
Model *envelopeOf(Model *model);

// Handler of 206 (RELGR_TRANSFO) and 207 (RELGR_GEOM): the skin follows the
// skeleton named by the record's first source, and only when it moved.
void envelopeUpdateRecord(UpdateRecord *record, float time, int *flags);
// Deformer matrices of the skeleton `top` (null: the skin's own) and the
// skin's points from them.
void envelopeRefresh(Model *skin, Model *top);
// Base poses of the deformers from their reference records.
void envelopeDeformerMatrices(Model *top);
// The skin's points from its rest copy, moved by every deformer of `top`.
// Points carry no selection here: `selectedOnly` leaves every point out.
void envelopeApply(Model *skin, Model *top, int selectedOnly);
// Marks the deformers of `top` that moved since the last walk's end; 1 if any.
int envelopeMark(Model *skin, Model *top);
// The end of a walk in which an envelope record ran: every deformer clears
// its moved, deferred and rebuild bits and keeps its present pose for the
// next comparison.
void envelopeWalkEnd(Dictionary *dict);
// Ties the assignment lists of every skeleton named by a skin's 206 or 207
// to the skin node of the stored name, and gives the skin its role.
void envelopeSceneResolve(Dictionary *dict);
// Skins this thread has deformed since it started: a frame whose skeletons
// stood still adds nothing.
int64_t envelopeDeformCount();

// ---------------------------------------------------------------------------
// Animated parameters by name ("transx", "rotz", "posy"...), per chapter.

struct ParamInfo {
    const char *name;   // as written after the element
    int chapter;        // chapter of the elements that have it
    int32_t curveType;  // fcurve type it stands for
    int group;          // group of the update list that sets it (RelationGroupId)
};
int paramLookup(int chapter, const char *name);  // index of the parameter, -1 for none
int paramInfo(int param, ParamInfo *info);       // 1 and `info` filled, 0 out of range
// Present value, in the user's units (degrees for angles).
float paramGet(int param, void *data);
// Sets the value on the element's data and marks what depends on it.
void paramSet(int param, void *data, float value);

constexpr uint32_t DISPLAY_ITEM_PRESENT = 1;
constexpr uint32_t DISPLAY_ITEM_SELECTED = 2;
constexpr uint32_t DISPLAY_ITEM_HIGHLIGHTED = 4;
constexpr uint32_t DISPLAY_ITEM_HIDDEN = 8;

// ---------------------------------------------------------------------------
// Constraints and paths: handlers that set a model, camera or light from the
// global state of its partners, through the local setters so that the subtree
// follows at once.

// The element type word of a partner: 2 model, 4 camera, 6 light (interests,
// 5 and 7, are parts of their camera or light here); 0 for anything else.
int elementTypeOf(int chapter, const void *data);
// World position of a partner by its type word; 0 when it has none.
int elementPosition(int type, const void *data, float position[3]);
// Orientation of a partner as Euler angles (radians); 0 when it has none.
int elementOrientation(int type, const void *data, float angles[3]);
// Whether source `index` of the record counts at `time`: its entry is active
// and its activation curve, if any, steps to at least 1.
int constraintSourceOn(const UpdateRecord *record, int index, float time);

// The common handler of 102, 103, 111, 114, 115, 116, 124, 125, 128, 129, 238
// and 806; `selectedIndex` is -1 in the list walk.
void constraintEval(UpdateRecord *record, float time, int selectedIndex);
// Aims the model's X axis along `direction` (world), keeping the roll of its
// x rotation. 0 when the aim fails (a direction below the 0.0001 bound).
int constraintDirection(Model *model, const float direction[3], const Dictionary *dict,
                        int32_t modelIndex);
// The aim matrix: rows d, up-side, side (X along d, Z along up x d). 0 with
// the identity when d is too short.
int constraintAimMatrix(const float direction[3], const float up[3], float m[4][4]);
void constraintThreePoints(UpdateRecord *record, float time);    // 119
void constraintTwoPoints(UpdateRecord *record, float time);      // 127
void constraintClusterCentre(UpdateRecord *record, float time);  // 126
void constraintTransformCopy(UpdateRecord *record, float time);  // 150
void curveSample(UpdateRecord *record, float time);              // 160
void cameraPositionConstraint(UpdateRecord *record, float time); // 1111, 1116
void lightPositionConstraint(UpdateRecord *record, float time);  // 2111, 2116
// 117, 118: the subtree is brought up to date and the collision routine of
// the relation runs per partner (ConstraintHooks); `point` may be null.
void constraintHierarchy(UpdateRecord *record, float time, int selectedIndex, const float *point);
// Sets the model's orientation from two world vectors: X along `first`, Z
// along the part of `normal` square to it. Then the rotation setter.
void modelSetPlane(Model *model, const float first[3], const float normal[3]);
// Scales the model along its X axis so that the axis has the length of
// `vector` and points along it.
void modelSetAxisScale(Model *model, const float vector[3]);

// Points of curves: a spline model (type 6) or a NURBS curve model (type 9),
// in the curve's own coordinates.
double curveLength(const Model *curve);  // arc length; 0 for no curve
// The point at arc length `s` from the start; beyond the ends the end
// segments go on straight. 0 for no curve.
int curvePointAtLength(const Model *curve, double s, float point[3]);
// Points and unit tangents at `count` arc lengths, on one measure of the
// curve; `tangents` may be null. 0 for no curve.
int curvePointsAtLengths(const Model *curve, const double *lengths, int32_t count, float (*points)[3],
                         float (*tangents)[3]);
// The point at a parameter counted in vertices (spline) or CVs (NURBS).
int curvePointAtParameter(const Model *curve, double parameter, float point[3]);
// A curve point for `model`'s local position: see pathToParent.
void pathToParent(const Model *model, const Model *curve, const float point[3], float out[3]);
// Places the target of a path relation (112, 612, 1112, 1114, 2112, 2114) at
// `percentage` of the curve's length. `target` is a Model, or the Camera or
// Light of the camera and light relations.
void pathEval(int32_t relation, Model *curve, void *target, float percentage,
              const Dictionary *dict, int32_t targetIndex);
void pathRecord(UpdateRecord *record, float time);  // the handler of the path relations

// What the walk hands to modules this library does not carry. Each may be null.
struct ConstraintHooks {
    // Collision routines of 117 (tolerance as parameter) and 118.
    void (*collision)(Model *model, Model *partner, float tolerance);
    void (*collisionAlternate)(Model *model, Model *partner);
    // Surface normal (124) and curve tangent (125) alignment of a model.
    void (*alignNormal)(Model *model, Model *partner);
    void (*alignTangent)(Model *model, Model *partner);
};
extern ConstraintHooks g_constraintHooks;

// ---------------------------------------------------------------------------
// Kinematic chains: a root (type 0, kind 1 or 2), joints (type 5, kind 1 or
// 2) and an effector (type 0, kind 3 or 4). The solve turns the joints so
// that the chain's tip reaches the goal handed in by the effector's
// evaluators; it writes only the joints' local rotations, then recomputes the
// strip. A bone runs along its joint's X axis, to the next joint or the
// effector; a 2D chain bends about the joints' Z axes in its resolution plane.

constexpr int32_t CHAIN_TYPE_3D = 40;        // root's Model::chainType: joints turn on three axes
constexpr int CHAIN_MAX_JOINTS = 64;         // longer strips are not solved
constexpr int CHAIN_GOAL_NONE = 0;           // ChainData::goalState: no goal handed in
constexpr int CHAIN_GOAL_NEW = 1;            // a new goal waits for the solve
constexpr int CHAIN_GOAL_USED = 2;           // the goal was solved for

// Joint and chain data, held by each joint and by the root, made on first
// use (or by the model reader for the values a file gives). Plain memory:
// released with free. The root's chain type is Model::chainType.
struct ChainData {
    int32_t jointCount;              // joints the solver works with; a sub-chain's size during a step
    float goal[3];                   // target, global coordinates
    int32_t goalState;               // CHAIN_GOAL_*
    float jointRollOffset;           // preferred roll about the bone, radians (old roll convention)
    float prefRotationZ;             // preferred z rotation, radians: the bend a long chain starts from
    float deltaRotation;             // scratch: the z change of the present step
    float savedRotation[3];          // the joint's local rotation before the solve, radians
    uint16_t free;                   // 1 when no limit flag is on, set before each solve
    uint16_t locked;                 // scratch: 1 when the limits clamped all three axes
    int32_t resolutionPlaneMode;     // 0 default plane, 1 point is a direction (129), 2 a position (128)
    float resolutionPlanePoint[3];   // the up point of the resolution plane, global
    int32_t solved;                  // root: reuse the previous frame's solution; cleared after a solve
    uint16_t limitOn[6];             // minimum x, y, z, maximum x, y, z: 1 when that limit holds
    float limit[6];                  // the six limit angles, radians, in the order of limitOn
    uint16_t keyed;                  // 1: a keyed rotation was handed in since the last solve
    float planeNormal[3];            // first joint: normal of the last resolution plane, global
};

// The model's record, made when missing; null for a null model or out of memory.
ChainData *chainDataOf(Model *model);
// Stores the goal of a joint or effector and marks it new (CHAIN_GOAL_NEW).
void chainSetGoal(Model *model, float x, float y, float z);
// The stored goal of a joint or effector: 1 and `goal` filled when it has one.
int chainGoalGet(Model *model, float goal[3]);
// The resolution plane of `joint`'s chain, on its first joint: mode 2 reads
// the point as a position (128), 1 as a direction (129). An effector without
// a goal yet keeps its present position as goal.
void chainSetUpVector(Model *joint, int mode, float x, float y, float z, float time);
// A keyed rotation of a joint of kind 1 (relation 101): the joint's values
// become its rotation, and the next solve starts from them. `axis` names the
// component the key set (0 x, 1 y, 2 z, -1 all).
void chainSetJointRotation(Model *joint, int axis, float x, float y, float z);
// Solves the chain of an effector of kind 3, or the stretch above a joint of
// kind 1, for a global goal. Nothing happens for any other model.
void chainSolve(Model *model, float x, float y, float z, float time);
// The handler of relation 120 on a chain part: solves when a new goal waits,
// then evaluates the part's branch visibility (relation 11 curve).
void chainSolveRecord(UpdateRecord *record, float time, int *flags);

// A stretch of the strip, for the steps of the solve.
struct ChainStretch {
    Model *root;                      // chain root
    Model *joints[CHAIN_MAX_JOINTS];  // first joint first
    int count;                        // joints in the stretch
    Model *tip;                       // the model after the last joint: a joint or the effector
    int firstPass;                    // 1 on the first step of a solve
    int abort;                        // set by a failed step: the joints go back as they were
};
// Bone lengths of the stretch: the total, and the largest and smallest bone.
double chainLengths(const ChainStretch &s, double *largest, double *smallest);
// One pass of the solve: the closed forms or the iteration by joint count,
// then the limits. 0 when the step aborted.
int chainStep(ChainStretch &s, const float goal[3]);
// The solve of one stretch: a first step, then passes while limits or a 3D
// chain leave the tip short of the goal.
void chainSolveStretch(ChainStretch &s, const float goal[3]);
// Moves a goal the stretch cannot take: returns 4 (goal at the first joint,
// nothing to do), 2 (beyond reach: pulled in to the chain length), 3 (inside
// the fold margin: pushed out to it) or 0.
int chainClampGoal(const ChainStretch &s, float goal[3]);
// The frame of the plane a 2D chain bends in: X from the first joint towards
// the goal, Z the plane's normal, Y towards the up point; fourth row the first
// joint. `code` 20 for two joints, 30 for longer and 3D chains. 0 when the
// goal is on the first joint.
int chainPlaneMatrix(ChainStretch &s, int code, int useGoal, const float goal[3], float out[4][4]);
void chainOneJoint(ChainStretch &s, const float goal[3]);
void chainTwoJoints(ChainStretch &s, const float goal[3]);
void chainManyJoints(ChainStretch &s, const float goal[3]);
void chainManyJoints3D(ChainStretch &s, const float goal[3]);
// Rolls of the joints after the first, distributed along the chain.
void chainPropagateRoll(ChainStretch &s);
// Clamps the joint's local rotation to its limits; the number of axes clamped.
int chainApplyLimits(Model *joint);
// Reads the limits of the joint's relation 103 entries in `dict` into its
// record and sets `free`. Without a dictionary the record's limits stay.
void chainLimitsRead(Dictionary *dict, Model *joint);
// The limits of one relation 103 record (its relation data) into the
// joint's record, degrees on disk, radians kept.
void chainLimitsTake(Model *joint, void *relationData);
// Relation 103 evaluated on a joint or effector: its limits taken and
// applied to its local rotation now, the subtree following.
void chainRotationLimit(Model *model, void *relationData);
// Relation 11 on a model: a chain root takes kind 2 (on) or 1 with all its
// members; an object that can be dynamic kind 12 or 0.
void modelDynamicsSwitch(Model *model, int on);
// Whether old joint roll is asked for (BW_IK_OLD_JOINT_ROLL present).
int chainOldJointRoll();
// Solves counted since the start (for tests and statistics).
extern std::atomic<long> g_chainSolveCount;

// ---------------------------------------------------------------------------
// Deformers: lattices (keyed or not), curve and surface deformations, waves.
// The records of the geometry group only bring a deformer's parameters up to
// date and say in the walk's list flags that work is pending; the points are
// rewritten once per model and frame, by the record -200 that closes the
// model's geometry group.

// Codes of the walk's list flags.
constexpr int DEFORM_FLAG_GLOBAL = 1;    // 215, 221, 231, 601: apply the global form
constexpr int DEFORM_FLAG_LOCAL = 2;     // 210, 220, 230, 600: apply the local form
constexpr int DEFORM_FLAG_DYNAMICS = 3;  // 239: refresh the derived geometry
constexpr int DEFORM_FLAG_REFRESH = 4;   // 247: refresh the derived geometry

// The two slots of a model: the local form works in the model's own frame,
// the global form in world space.
constexpr int DEFORM_SLOT_LOCAL = 0;
constexpr int DEFORM_SLOT_GLOBAL = 1;
constexpr int DEFORM_SLOT_COUNT = 2;

// A deformer's animated parameters (lattice or curve deformation), from the
// fcurves of 220/221 (lattice) and 230/231 (curve): types 107 to 113 for the
// local slot, 114 to 120 for the global one.
struct DeformerBlock {
    float scale[3];        // 107-109 / 114-116; 1.0 until a keyed curve says otherwise
    float rotation;        // 110 / 117: degrees in the curve, radians here
    float extra[3];        // 111-113 / 118-120: the deformer's own three parameters
    float matrix[4][4];    // recomputed from scale and rotation (row vectors)
    float falloff;         // cached from the extras by the recompute
    uint16_t present;      // 1 once a record has written the block
};

// One slot of a model's deformations.
struct DeformSlotData {
    struct Lattice *lattice;    // the slot's lattice: keys as states, [0] the current cage; owned
    float keyPosition;          // 211 / 216: position among the stored states, a real number
    DeformerBlock latticeBlock; // 220 / 221
    DeformerBlock curveBlock;   // 230 / 231
    Model *curve;               // 245: the curve or surface model the points follow; not owned
    struct Wave *wave;          // 600 / 601: the wave element's record; not owned
    uint16_t pending;           // a record of this slot ran in this walk: -200 applies the slot
};

// A model's deformers, made on first use; freed with the model's records.
struct ModelDeformers {
    DeformSlotData slot[DEFORM_SLOT_COUNT];  // local, global
    uint32_t appliedStamp;                   // Model geometry stamp after the last -200 write
};
// The model's record, made when missing; null for a null model or out of memory.
ModelDeformers *modelDeformersOf(Model *model);
void modelDeformersFree(ModelDeformers *deformers);
// Recomputes the block's matrix and falloff after its fields changed.
void deformerBlockRecompute(DeformerBlock *block);

// Each deformer kind rewrites the points of one slot. `points` are
// geometryPositionsRead values of the model (count x 3): in the model's own
// frame for the local slot; for the global slot the record -200 has taken
// them through the model's global matrix into world space and brings them
// back afterwards. 0 when the slot has nothing of that kind.
int latticeApply(Model *model, int slot, float (*points)[3], int32_t count);
int curveDeformApply(Model *model, int slot, float (*points)[3], int32_t count);
int waveApply(Model *model, int slot, float (*points)[3], int32_t count, float time);

// A .lat file as a deformation of `model`: its keys become the states of the
// slot of `kind` (0 local, as relation 210; 1 global, as 215), replacing what
// the slot held. The first key names the lattice's element "<model>-Lat" in
// the current dictionary when none holds the lattice yet. 1, or 0 when the
// file gives no lattice (or `model` is null).
int latticeFileRead(const char *path, Model *model, int kind);
// Registers the LATTICES reader of the scene load: each element reaches its
// model through relation 210, else 215, and shows the slot's lattice.
void latticeSceneInstall();
// ---------------------------------------------------------------------------
// Waves: an element of the WAVES chapter moves the points of the models tied
// to it (600 local form, 601 global) by a sine that travels out from the
// wave's centre. Its parameters are fcurves of types 620 to 633; where a wave
// has no curve of a type, the value its file gave stands.

// How a parameter's value is taken, from a curve or from the file.
enum WaveParamKind : int32_t {
    WAVE_KIND_SWITCH = 0,  // 1 when positive, else 0
    WAVE_KIND_COUNT = 1,   // whole number, rounded, at least 0
    WAVE_KIND_SIZE = 2,    // real number, a negative one becomes 0
    WAVE_KIND_REAL = 3,    // real number as it stands
};

// The parameters: index name, fcurve type, file keyword, default, kind.
#define BW_WAVE_PARAMS(X)                                                                   \
    X(WAVE_ACTIVE, 620, "ACTIVE", 1.0f, WAVE_KIND_SWITCH)        /* 1: the wave moves points */ \
    X(WAVE_AMPLITUDE, 621, "AMPLITUDE", 1.0f, WAVE_KIND_SIZE)    /* crest height, units */      \
    X(WAVE_WAVELENGTH, 622, "WAVELENGTH", 4.0f, WAVE_KIND_SIZE)  /* crest to crest, units */    \
    X(WAVE_SPEED, 623, "SPEED", 2.0f, WAVE_KIND_SIZE)            /* of the crests, units per second */ \
    X(WAVE_DAMPING, 624, "DAMPING", 0.0f, WAVE_KIND_SIZE)        /* decay per unit of distance */ \
    X(WAVE_START, 625, "START", 0.0f, WAVE_KIND_COUNT)           /* frame the front leaves the centre */ \
    X(WAVE_DURATION, 626, "DURATION", 0.0f, WAVE_KIND_COUNT)     /* frames of emission, 0 forever */ \
    X(WAVE_PLANAR, 627, "PLANAR", 0.0f, WAVE_KIND_SWITCH)        /* 1 planar, 0 circular */     \
    X(WAVE_ONE_SHOT, 628, "ONE_SHOT", 0.0f, WAVE_KIND_SWITCH)    /* 1: a single crest travels */ \
    X(WAVE_PHASE, 629, "PHASE", 0.0f, WAVE_KIND_REAL)            /* degrees */                  \
    X(WAVE_DIRECTION, 630, "DIRECTION", 0.0f, WAVE_KIND_REAL)    /* planar: degrees about y from x */ \
    X(WAVE_MOVE_X, 631, "MOVE_X", 0.0f, WAVE_KIND_SWITCH)        /* points move along the wave's x */ \
    X(WAVE_MOVE_Y, 632, "MOVE_Y", 1.0f, WAVE_KIND_SWITCH)        /* along its y */              \
    X(WAVE_MOVE_Z, 633, "MOVE_Z", 0.0f, WAVE_KIND_SWITCH)        /* along its z */

enum WaveParam : int32_t {
#define BW_WAVE_PARAM_ENUM(name, type, keyword, fallback, kind) name,
    BW_WAVE_PARAMS(BW_WAVE_PARAM_ENUM)
#undef BW_WAVE_PARAM_ENUM
    WAVE_PARAM_COUNT
};
constexpr int32_t WAVE_CURVE_FIRST = 620;  // fcurve type of parameter 0; the rest follow in order

struct WaveParamInfo {
    int32_t type;          // fcurve type
    const char *keyword;   // word of the wave file
    float fallback;        // value of a new wave
    WaveParamKind kind;    // how values are taken
};
extern const WaveParamInfo g_waveParams[WAVE_PARAM_COUNT];
// Index of the parameter of fcurve type `type`; -1 for another type.
int waveParamIndex(int32_t type);
// A value brought into the parameter's kind, as the curves' own rules do.
float waveParamTake(int param, double value);

// A wave element's record (its data).
struct Wave {
    char *name;                          // malloc'd; null for none (NAME)
    Model *transfo;                      // the wave's transform object: a null node, owned; 610-613 move it
    float value[WAVE_PARAM_COUNT];       // the file's value of each parameter; stands while it has no curve
    Fcurve *curve[WAVE_PARAM_COUNT];     // cache kept by 614 / 615: the wave's curve of each type; not owned
    float current[WAVE_PARAM_COUNT];     // parameters at `currentTime`, set by waveUpdate
    float currentTime;                   // seconds; -100000 before the first update
    uint16_t bound;                      // 1 once the cache has been filled from the scene's relations
};
// A wave with the defaults of the table and an identity transform; null when
// out of memory.
Wave *waveNew(const char *name);
void waveFree(Wave *wave);  // the transform object too; null is ignored


// The wave's parameters at `time` from its curves (or file values) into
// `current`. Nothing is allocated.
void waveUpdate(Wave *wave, float time);
// Fills the curve cache from the relations 614 / 615 of the wave's element.
void waveBind(Dictionary *dict, int32_t waveIndex);
// Handlers: 600 / 601 (geometry group of the model) and 614 / 615 (the
// wave's parameter group).
void waveRecord(UpdateRecord *record, float time, int *flags);
void waveParamRecord(UpdateRecord *record, float time, int *flags);
// Registers the WAVES reader of the scene load and the transform hook.
void waveSceneInstall();
