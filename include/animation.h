// The evaluation core: function curves, the items of animation files, the
// update list that orders a scene's relations, and the scene update that
// walks it. Records here are shared by the file readers, the dictionary's
// scene load and the layer.
#pragma once

#include <cstdint>

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
extern int fcurveIntegerVisibility;     // 1: type 175 steps as an integer, not as a boolean
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
#include <cstdio>
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
    void *reserved;           // free
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
