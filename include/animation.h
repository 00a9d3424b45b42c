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
// within the merge tolerance. Index of the key, or -1.
int fcurveAddKey(Fcurve *curve, FcurveKey *key, int startIndex, int askIfLocked, int replace);

// Evaluation. Not re-entrant for one curve: the search hint and the last
// value are written.
double fcurveValue(Fcurve *curve, float time, int useRange);       // by the curve's type
double fcurveFloatValue(Fcurve *curve, float time, int useRange);  // interpolated value
int fcurveStepValue(Fcurve *curve, float time, int useRange, int asBoolean);
// Whether an activation curve is on; `freezeTime` gets the time of its last change.
int fcurveFreezeTime(Fcurve *curve, float time, float *freezeTime);

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
