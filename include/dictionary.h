// The scene dictionary: element names, the relation table, and the in-memory
// model of a scene (chapters, elements and the relation instances joining them).
//
// The universal handle of an object is (chapter id, element index). Element
// arrays grow by reallocation, so an Element pointer is good only until the
// next addition to the same chapter.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "animation.h"
#include "database.h"

// ---------------------------------------------------------------------------
// Element names

// Set while a scene file is being read: names then keep their special characters.
extern int loadInProgress;

struct ElemName {
    std::string dbPath;           // path of the database the file was read from; "" for none
    std::string reserved1;        // unused
    std::string subdir;           // directory under the chapter with a trailing '/', or ""
    std::string alias;            // ALIAS of the scene file; "" for none
    std::string prefix;           // text before the first '-' (usually the scene); "" for none
    std::string name;             // the element's own name
    std::string version = "1";    // decimal
    std::string revision = "0";   // decimal
    int32_t time = 0;             // modification time, seconds since the epoch
    std::string fullName;         // [prefix-]name.version-revision, no chapter suffix
    int32_t reserved2 = 0;        // unused
    uint16_t mode = 0;            // file mode bits of the directory scan; 0x4000 = directory
    int32_t size = 0;             // file size in bytes
};

ElemName *elemNameNew();  // defaults, time = now
void elemNameFree(ElemName *name);
// New name from a file name; fullName cut at the suffix when `stripSuffix` is set.
ElemName *elemNameParse(const char *fileName, const char *alias, int stripSuffix);
// Splits a file name; 1, or 0 for a null name (outputs untouched then).
int elemNameSplit(const char *fileName, std::string &prefix, std::string &name,
                  std::string &version, std::string &revision, std::string &suffix);
// "prefix-name.version-revision" (or "name.version-revision"), parts sanitized.
std::string elemNameFormat(const ElemName &name);
// The text cleaned for use in a file name; "" when it was empty.
std::string elemNameSanitize(const std::string &text, int isPrefix);
// Case-insensitive order in which '_' comes before the hexadecimal digits.
// Null sorts before any text. Result -1, 0 or 1.
int elemNameCompare(const char *a, const char *b);
// True when `text` reads as "%d-%d" and prints back identically.
bool elemNameIsVersionStamp(const char *text, int *version, int *revision);

// ---------------------------------------------------------------------------
// Relation table

enum RelationGroupId {
    RELGR_PARAM = 0,
    RELGR_TRANSFO = 1,
    RELGR_GEOM = 2,
    RELGR_RENDER = 3,
    RELGR_CUSTOM = 4,
    RELGR_OTHER = 5,
};
constexpr int REL_GROUP_COUNT = 6;    // groups on each side of an element
constexpr int16_t REL_ANY_CHAPTER = -10;  // "*" in the table: chapters come from the caller
constexpr int32_t REL_CUSTOM = 20000;     // custom effect; may repeat between two elements
constexpr int32_t REL_EXPRESSION = 20010; // stands in every group; as a wanted id: all groups

struct RelationRow {
    int32_t relid = 0;              // relation id; a relid's rows are adjacent, instances 1, 2, ...
    std::string name;               // the relation's name
    int16_t chpFrom = 0;            // source chapter id, REL_ANY_CHAPTER for any
    int16_t chpTo = 0;              // target chapter id, REL_ANY_CHAPTER for any
    int16_t grpFrom = 0;            // group on the source
    int16_t grpTo = 0;              // group on the target
    int16_t rk = 0;                 // rank in the group
    int16_t fo = 1;                 // fan-out: instances a single source may hold
    int16_t dd = 0;                 // third number of the row
    int16_t noRecord = 0;           // non-zero: no update-list record
    int16_t hierarchyFirst = 0;     // non-zero: a hierarchy record stands before it
    int16_t act = 1;                // active in the update
    int16_t actdep = 1;             // active in the dependency
    std::string customSource;       // operator rows: source attribute name
    std::string customDest;         // operator rows: destination name
    int32_t customWords[5] = {};    // operator rows: remaining custom words
    uint16_t customHalf[4] = {};    // operator rows: custom half-words
    int16_t opFlag = 0;             // non-zero for rows a custom operator made
    int32_t kind = 3;               // 3 for rows of a RELATIONS section
};

// Lookup index of a RelationDict: row numbers ordered by relid.
struct RelationIndex {
    std::vector<int32_t> sorted;  // row numbers, by relid, file order among equals
    int32_t valid = 0;            // 0: rebuild before next use
};

struct RelationDict {
    std::vector<RelationRow> rows;         // in file order
    int32_t reserved = 0;                  // unused
    std::unique_ptr<RelationIndex> index;  // made by the first relDictAddRow
    int count() const { return static_cast<int>(rows.size()); }
};

// The process-wide table, filled at initialisation by the resource reader.
extern RelationDict g_relationDict;

void relDictClear(RelationDict *table);  // no rows, no index
// Appends a row; creates the index on first use and marks it invalid. Row number.
int relDictAddRow(RelationDict *table, const RelationRow &row);
int relRowFind(const RelationDict *table, int32_t relid);   // first row or -1
int relRowCount(const RelationDict *table, int32_t relid);  // rows of the relid
const char *relName(const RelationDict *table, int32_t relid);  // "unknown" if none
// Row of instance n (below 1 means 1) of the relid; outputs may be null. 1 or 0.
int relRowInstance(const RelationDict *table, int32_t relid, int instance, int16_t *chpFrom,
                   int16_t *chpTo, int16_t *grpFrom, int16_t *grpTo, int16_t *rk, int16_t *fo);
int relFanOutOf(const RelationDict *table, int32_t relid);  // fo of the first row, -1 if none
bool relSameChapters(const RelationDict *table, int32_t relid);  // a chapter of the row is -10
// Where a relation stands: the group on the source side of its first row, and
// the number of its instances (rows). Outputs may be null. 1, or 0 for a
// relid without rows (group -1, instances 0).
int relGroups(const RelationDict *table, int32_t relid, int16_t *group, int *instances);
// Sum of fo over the relid's rows whose dd is set: how many of a record's
// sources may be inactive while the record still runs. 0 for an unknown relid.
int32_t relDdSum(const RelationDict *table, int32_t relid);
// First row whose name is `name`, or -1.
int relRowFindByName(const RelationDict *table, const char *name);
void relDump(const RelationDict *table);  // the table to standard output

// ---------------------------------------------------------------------------
// Dictionary records

struct RelationInst {
    int32_t relid;     // relation id
    int32_t elem;      // index of the element at the other end
    int32_t actfcv;    // -1, or the ANIMATION index of the fcurve animating it
    int32_t serialid;  // -1, or tells apart repeated instances between two elements
    uint16_t chp;      // chapter id of the other end
    uint16_t grp;      // group of the twin instance on the other element
    uint16_t activ;    // 1 active, 0 inactive
    uint16_t visited;  // set while an iterator stands on it
    void *data;        // relation data, owned by the source side; null for none
    int32_t rank;      // ordering key within the group
};

struct RelationGroup {
    int32_t count;         // instances in use
    int32_t capacity;      // instances allocated; grows by one
    int32_t cursor;        // 1 + index of the last one an iterator returned, 0 at the start
    RelationInst *items;   // malloc'd, ascending rank; null when empty
    int32_t state;         // sort state of the update list build
    uint32_t vis;          // group visible / enabled; 1 when emptied
};

// Small optional record of an element.
struct ElementExtra {
    int32_t count;    // entries of items
    int32_t *items;   // malloc'd
};

// The `deleted` word of a chapter list entry.
enum ElemState : uint16_t {
    ELEM_LIVE = 0,       // in use
    ELEM_HIDDEN = 1,     // removed but kept with its objects for a later restore
    ELEM_FREE_SLOT = 2,  // empty, reusable by the next addition
};

struct Element {
    ElemName *name;              // owned; null for a free slot
    void *data;                  // the loaded object; owned by its reader
    void *aux;                   // second object; owned by its reader
    float schemX, schemY;        // schematic position
    int32_t reserved1;           // unused
    int32_t schemMark;           // third value of SCHEM
    int32_t stamp;               // creation stamp: running number of additions
    uint32_t browserData;        // browser storage, 2 at creation
    float browserValue[2];       // browser values (sort keys 16, 17)
    uint16_t browserBits;        // bit 0 set by USR
    int32_t iconRect[4];         // icon x, y, width, height
    float *srt;                  // 9 floats stored by SRT, malloc'd; null for none
    uint16_t envSet;             // bit i: envValues[i] was given by the scene
    int32_t envValues[3];        // WIRECOL, DISPLAY, MPRFLG of the scene's environment
    uint16_t dirty;              // needs saving
    uint16_t selected;           // selection mark
    uint16_t shared;             // file from the chapter's SHARE directory
    uint16_t isNew;              // 2 made in memory, 1 named by a scene, 0 slot reset
    uint16_t loaded;             // data was read or substituted by a scene load, which frees it
    uint16_t deleted;            // ElemState: live, hidden or free slot
    uint16_t level;              // compared for name clashes in one sub-tree
    int32_t owner;               // SCENES index of the scene that brought it in
    int32_t root;                // index of the root of its hierarchy in this chapter
    int32_t lev;                 // depth under root, 0 for a root
    int32_t flag;                // general mark ("FLAG")
    uint16_t marked;             // reached by the update list's reverse pass: needs an update
    int32_t wrkid;               // work identifier: position in the scene file
    int32_t childGroupCount;     // 6, or 0 without relations
    RelationGroup *childGroups;  // malloc'd; relations in which it is the source
    int32_t parentGroupCount;    // 6, or 0 without relations
    RelationGroup *parentGroups; // malloc'd; relations in which it is the target
    ElementExtra *extra;         // malloc'd; null for none
    int32_t reserved2[3];        // unused
    char *suffix;                // malloc'd file suffix of the directory scan; null for none
};

struct ElemDataIndex {
    int32_t count = 0;                // live entries after a rebuild
    std::vector<int32_t> sortedIndex; // element indices ordered by data pointer
    int32_t valid = 0;                // 0: rebuild before next use
};

struct Chapter {
    std::string name;                      // directory name
    int32_t elementCount = 0;              // slots in use, deleted ones included
    Element *elements = nullptr;           // malloc'd array of elementCount
    int32_t elementCapacity = 0;           // slots allocated; grows by doubling
    int32_t freeSlots = 0;                 // slots with deleted = ELEM_FREE_SLOT, for reuse
    std::vector<int32_t> sorted;           // display order of elemlistSortChapterElements
    std::vector<int32_t> hierOrder;        // ANIMATION only: elemHierSort output
    std::vector<int32_t> hierChildCount;   // parallel to hierOrder
    uint16_t kind = 1;                     // ChapterKind
    uint16_t active = 1;                   // 0 keeps the chapter out of the update list
    int32_t iconIndex = 0;                 // "chpicn"
    int32_t reserved = 0;                  // unused
    std::string directory;                 // kind 2: absolute directory
    std::vector<std::string> subdirNames;  // known sub-directories, each with a trailing '/'
    int32_t subdirCount = 0;               // entries of subdirNames
    std::vector<std::string> subdirLabels; // labels of the sub-directories
    ElemDataIndex *dataIndex = nullptr;    // owned; made while BW_LOAD_OPTIM is set
    std::string suffix;                    // default file suffix; "" for none
};

// One browser view of the dictionary; the words belong to the browser module.
struct BrowserView {
    int32_t sortKey = 6;             // key of elemlistSortChapterElements
    uint16_t viewA[2] = {3, 0};      // view settings
    uint16_t viewB[2] = {1, 0};      // view settings
    int32_t viewC = -1;              // view settings
    uint16_t viewD[3] = {0, 0, 1};   // view settings; [2] is the view's last flag
};

// One entry of a sub-scene list.
struct SubSceneEntry {
    int32_t count;          // groups
    RelationGroup *groups;  // malloc'd; items freed like relation groups
};

struct SubSceneList {
    int32_t count;           // entries
    SubSceneEntry *entries;  // malloc'd
};

// The scene's global block: the scene-wide settings that curves animate
// (relations 3000 to 3003 and 3030 to 3035 on the scene element). Each scene
// holds its own; the draw takes the values over once a curve has moved them.
struct SceneGlobals {
    float ambient[3] = {0.2f, 0.2f, 0.2f};  // 3000 to 3002: light model ambient colour
    uint16_t twoSided = 0;                  // 3003: 1 lights both sides of surfaces
    uint16_t twoSidedOverride = 0;          // setup file: 1 one side only, whatever twoSided says
    uint16_t lightingGiven = 0;             // 1: the setup file set the light model
    int32_t fogEnable = 0;                  // 3030: 1 linear fog
    float fogStart = 20.0f;                 // 3031: distance where fog begins
    float fogEnd = 100.0f;                  // 3032: distance of full fog
    float fogColor[3] = {0, 0, 0};          // 3033 to 3035: fog colour
    uint32_t revision = 0;                  // bumped by every change a curve makes; 0: never animated
};

struct SceneSetup;     // settings of the scene's setup file
struct GrMaterialIds;  // the display's numbering of a scene's materials and textures

struct Dictionary {
    int32_t chapterCount = 0;           // 36 once created
    std::vector<Chapter> chapters;      // indexed by chapter id
    std::vector<int32_t> chapterOrder;  // chapter ids sorted by name, built on demand
    UpdateList update;                  // the scene's main update list
    BrowserView list1;                  // first browser view
    BrowserView list2;                  // second browser view
    Database *database = nullptr;       // the database the scene was loaded from
    UpdateList update2;                 // second list: partial builds
    uint16_t isMain = 1;                // holds the live scene
    uint16_t browserDirty = 1;          // browser must redraw
    SubSceneList lists[2] = {};         // sub-scene lists
    uint16_t scratchFlag = 0;           // scratch
    uint16_t hierarchyDirty = 1;        // MODELS hierarchy changed: re-derive transforms
    SceneGlobals globals;               // ambient, two-sided lighting and fog of the scene
    std::shared_ptr<SceneSetup> setup;  // the setup file read at load; null without one
    std::shared_ptr<GrMaterialIds> materialIds;  // ids of materials and textures; made by the display
};

// ---------------------------------------------------------------------------
// Core state that each scene owns; the calling thread reaches its current
// scene's through its thread storage.

struct ChannelSetup;

// The play control of a scene: its frame range and rate.
struct TOL_PlayCtrl {
    int32_t startFrame = 1;         // first frame of the play range
    int32_t endFrame = 100;         // last frame of the play range
    int32_t frameStep = 1;          // frames advanced per update
    int32_t currentFrame = 1;       // frame now shown
    int32_t pause = 0;              // PAUSE of the scene file; no default of its own
    float framesPerSecond = 30.0f;  // frame rate of the scene
};

struct TOL_RenderCtrl {
    int32_t words[16] = {};  // carried for the renderer, not read by the viewer
};

struct TOL_AudioContainer {
    int32_t words[3] = {};                  // leading words
    float rates[2] = {2.0f, 30.0f};         // two f32 of the fourth word
    int32_t defaults[4] = {1, 1, 100, 1};   // integer defaults behind them
    int32_t tail[4] = {};                   // the rest of the block
};

constexpr int TOL_MANIPULATION_FLAGS = 15;

// The core's state of one scene. The scene owns it; a thread reaches it through
// its current scene (sceneStateCurrent()), so two threads on two scenes never
// share a byte of it and the swap copies nothing.
struct TOL_SceneState {
    TOL_PlayCtrl playCtrl;                   // play range, step, frame and rate
    TOL_RenderCtrl renderCtrl;               // render control
    uint16_t actionCtrl = 0;                 // action control word
    std::array<uint16_t, TOL_MANIPULATION_FLAGS> manipulationFlags{};  // global manipulation flags
    TOL_AudioContainer audioContainer;       // audio container, carried and not played
    void *history = nullptr;                 // history of the scene
    ChannelSetup *channelSetup = nullptr;    // channel setup (set by the capture run)
};

// ---------------------------------------------------------------------------
// Thread storage: the current state of each thread that calls the layer.

struct ThreadStorage {
    int32_t curDict;        // dictionary slot of the current scene
    int32_t curSelectList;  // current select list
    void *curCamera;        // current camera
    TOL_SceneState *scene = nullptr;  // state of the current scene; null: the thread's own
};

ThreadStorage *threadStorage();  // the calling thread's block, made on first use
// The core's state of the calling thread's current scene: the scene's own
// record, or before the layer has made a scene current, one of the thread's own.
TOL_SceneState &sceneStateCurrent();

// ---------------------------------------------------------------------------
// Dictionaries and chapters

int dictAllocSlot();               // new slot with dictInit applied, or -1
bool dictFreeSlot(int slot);       // false for the caller's own slot or a bad one
Dictionary *dictGet(int slot);     // null for a bad or unused slot
int dictCount();                   // slots ever made
bool dictInUse(int slot);
Dictionary *dictCurrent();         // the calling thread's dictionary, or null
void dictInit(Dictionary *dict);
// Makes the 36 chapters in table order; ids[i] (may be null) receives each id.
// 1, or 0 when the dictionary has chapters already. Adds no scene: see dictEnsureScene.
int dictCreateChapters(Dictionary *dict, int32_t *ids, int mainFlag);
void dictFree(Dictionary *dict, int keepNames);
// With keepNames, names of selected elements are not freed: their owner is
// whoever took the pointer before the call.
void chapterFree(Chapter *chapter, int keepNames);
int chapterAddByName(Dictionary *dict, const char *name);  // id, new or existing; -1 for null
int dictChapterFind(const Dictionary *dict, const char *name);           // id or -1
int dictChapterFindBySuffix(const Dictionary *dict, const char *suffix);  // id or -1
int chapterDirOf(int chapterId);  // chapter table row describing the chapter, or -1
Chapter *dictChapter(Dictionary *dict, int chapterId);  // null when out of range
// Element 0 of SCENES; a "no_name" scene is made if the chapter is empty.
Element *dictEnsureScene(Dictionary *dict);
void dictCleanupAfterLoad(Dictionary *dict);
void dictDump(const Dictionary *dict);  // to standard error

// ---------------------------------------------------------------------------
// Elements

// The name passes to the chapter. Index, or -1 for a null chapter.
int elemAddRaw(Chapter *chapter, ElemName *name, void *data, void *aux, int32_t owner,
               int32_t wrkid, int makeRelations, int reuse);
// With relations, reusing free slots; sets the dictionary's dirty flags.
int elemAdd(Dictionary *dict, int chapterId, ElemName *name, void *data, void *aux,
            int32_t owner, int32_t wrkid);
Element *elemGet(Dictionary *dict, int chapterId, int index);
Element *elemGetInChapter(Chapter *chapter, int index);
int elemIndexOf(Dictionary *dict, int chapterId, const Element *elem);
int elemFindByData(Dictionary *dict, int chapterId, const void *data);
int elemFindByAux(const Chapter *chapter, const void *aux);       // live elements
int elemFindDeletedAux(const Chapter *chapter, const void *aux);  // hidden elements
// First live element other than `skip` with that prefix (null: any) and name;
// `level` and `root` are compared when not negative; newOnly keeps new != 0.
int elemFindByName(Dictionary *dict, int chapterId, int skip, const char *prefix,
                   const char *name, int level, int root, int newOnly);
int elemFindByFullName(Dictionary *dict, int chapterId, int skip, const char *fullName,
                       int newOnly);
int elemCountLive(const Chapter *chapter);
// `elem` or, when null, `index` names the element; relFilter -1 for none. 1 or 0.
int elemRemove(Dictionary *dict, int chapterId, Element *elem, int index, int32_t relFilter,
               int keepRelations, int freeSlot);
int elemRename(Dictionary *dict, int chapterId, Element *elem, const char *prefix,
               const char *name);  // 1 refused, 0 done; -1 for bad arguments
std::string elemUniqueName(Dictionary *dict, int chapterId, const char *base, int *number,
                           int byPrefix);
void elemHierSort(Chapter *chapter);
// Fills chapter->sorted; number of entries written.
int elemlistSortChapterElements(Chapter *chapter, int chapterId, int key, int direction,
                                int hierarchical);
void elemSetSuffix(Element *elem, const char *suffix);  // copies; null clears
void elemSetSrt(Element *elem, const float *srt);       // copies 9 floats; null clears

// ---------------------------------------------------------------------------
// Relations. Every call names both ends; adding or removing updates both.
// A null table means g_relationDict.

// Relation data release; null frees the record with free().
using RelDataFreeFn = void (*)(int32_t relid, void *data);
extern RelDataFreeFn g_relDataFree;

int relInsert(RelationGroup *group, const RelationDict *table, int32_t relid, int32_t chp,
              int32_t elem, int32_t grp, int32_t rank, int32_t fanOut, int32_t instanceLimit,
              int32_t serialid, int addFlag, void *data, int activ);
int relAdd(Dictionary *dict, const RelationDict *table, int32_t src, int32_t dst,
           int32_t relid, int srcInstance, int dstInstance, void *data, int activ);
int relAddVia(Dictionary *dict, const RelationDict *table, int srcChapter, int32_t src,
              int dstChapter, int32_t dst, int32_t relid, int srcInstance, int dstInstance,
              void *data, int activ);
int relAddFull(Dictionary *dict, const RelationDict *table, int srcChapter, int dstChapter,
               int srcGroup, int dstGroup, int32_t src, int32_t dst, int32_t relid,
               int32_t serialid, int32_t rank, void *data);
// Drops the instances of the element's side (child 1: it is the source) that
// match; relid, otherChapter, other and serialid match anything when negative.
int relRemove(Dictionary *dict, int chapterId, int32_t index, int child, int32_t relid,
              int otherChapter, int32_t other, int32_t serialid);
int relRemoveAll(Dictionary *dict, int chapterId, int32_t index);
int relRemoveChildren(Dictionary *dict, int chapterId, int32_t index);
int relRemoveParents(Dictionary *dict, int chapterId, int32_t index);

Element *relFirst(Dictionary *dict, Element *elem, int child, int group, int32_t relid,
                  int chapter, int32_t *outChapter, int32_t *outIndex);
Element *relNext(Dictionary *dict, Element *elem, int child, int group, int32_t relid,
                 int chapter, int32_t *outChapter, int32_t *outIndex);
Element *relFirstInGroup(Dictionary *dict, Element *elem, int child, int group, int32_t low,
                         int32_t high, int chapter, int32_t *outChapter, int32_t *outIndex);
Element *relNextInGroup(Dictionary *dict, Element *elem, int child, int group, int32_t low,
                        int32_t high, int chapter, int32_t *outChapter, int32_t *outIndex);
Element *relFirstBySerial(Dictionary *dict, Element *elem, int child, int group,
                          int32_t relid, int chapter, int32_t serialid, int32_t *outChapter,
                          int32_t *outIndex);
Element *relNextBySerial(Dictionary *dict, Element *elem, int child, int group,
                         int32_t relid, int chapter, int32_t serialid, int32_t *outChapter,
                         int32_t *outIndex);
int relCount(const Element *elem, int child, int group, int32_t relid, int chapter);
int relCountRange(const Element *elem, int child, int group, int32_t low, int32_t high,
                  int chapter);
// Source-side instance of the relid towards (chapter, target); target -1 for any.
RelationInst *relFind(Element *elem, int32_t relid, int chapter, int32_t target);
int relHas(const Element *elem, int child, int32_t relid, int chapter);
RelationInst *relLastReturned(Element *elem, int child, int group);
// Source-side instance number n (from 0) of the relid, across the groups in
// order, skipping free slots at the other end.
RelationInst *relNth(Dictionary *dict, Element *elem, int32_t relid, int chapter, int n);
// The instance on the other end that points back to (chapter, index), whose
// `child` side holds `inst`.
RelationInst *relFindTwin(Dictionary *dict, int chapter, int32_t index, int child,
                          const RelationInst *inst);

// ---------------------------------------------------------------------------
// Element files: where an element's file lies and which versions stand on disk.

// The path of the last file elemFindFile tried; the found one after a success.
extern char g_elemPath[BW_PATH_MAX];

// Looks for the element's file: an absolute "$VAR" or drive subdir, else the
// chapter (made current on `db`) with the element's subdir, the chapter itself
// (subdir then cleared) and the chapter's sub-directory list (the entry goes
// to `outSubdir`, which may be null); then, unless `noRetry`, all again with
// the versionless name. Marks the element shared for a SHARE directory. 1 if found.
int elemFindFile(Database *db, Dictionary *dict, const char *chapterName, int chapterId,
                 Element *elem, std::string *outSubdir, int noRetry);
// Highest version of the element in the database's current chapter and its
// sub-directories, or -1; `lowest` (99999 when none) and `count` may be null.
// With `update`, a version found that differs from the element's becomes its
// version and fullName. Revisions play no part.
int elemLatestVersion(Database *db, ElemName *elem, int update, int *lowest, int *count);
// The version a save of the element writes: the highest on disk plus one, 1 for none.
int elemNextVersion(Database *db, const char *chapterName, const ElemName *elem);
// Deletes the element's oldest versions in its own sub-directory, with their
// ".icn" files, until no more than the chapter's VERSIONS remain. Versions deleted.
int elemPruneVersions(Database *db, const char *chapterName, const ElemName *elem);

// ---------------------------------------------------------------------------
// The relation resource file: its reader, the custom effect declarations it
// carries, and the lookups that depend on them.

constexpr float REL_SECTIONED_VERSION = 3.49f;  // files at or above it hold sections
constexpr int16_t REL_CUSTOM_RANK = 50;         // rank of a custom row without names
constexpr int16_t REL_CUSTOM_FANOUT = 32767;    // fan-out of a custom row without names

// Kinds of rows, by the part of the file that made them.
enum RelationRowKind {
    RELKIND_ATTRIBUTE = 1,  // an attribute statement of ELEMENTS_ATTRIBUTES
    RELKIND_OPERATOR = 2,   // an OPERATOR block
    RELKIND_RELATIONS = 3,  // a row of the RELATIONS section
};

// Transform parameter an attribute stands for (SCAL, ROTN, TRANSL).
enum CustomTransformParam { CUSPARAM_NONE = 0, CUSPARAM_SCAL = 1, CUSPARAM_ROTN = 2, CUSPARAM_TRANSL = 3 };

// Flag bits of an operator, in the order of their words.
enum CustomOperatorFlag : uint32_t {
    CUSOP_NO_OP = 1, CUSOP_BIDIRECTIONAL = 2, CUSOP_SUBSTITUTION = 4, CUSOP_SPATIAL_DEF = 8,
    CUSOP_CREATOR = 16, CUSOP_GENERATOR = 32, CUSOP_CV_BASED = 64, CUSOP_RENDERING = 128,
};

struct CustomEnum {
    std::string name;                                   // name of the enumeration
    std::vector<std::pair<int32_t, std::string>> values; // number and word, in file order
};

struct CustomAttribute {
    std::string element;     // ELEMENT it belongs to
    std::string subelement;  // SUBELEMENT inside it; "" for none
    std::string name;        // attribute name, also the row's name
    std::string type;        // type word, kept as written
    int16_t group = 0;       // RelationGroupId
    int16_t param = 0;       // CustomTransformParam
    int32_t relid = 0;       // relation id of its row
    int hasRange = 0;        // 1: low and high hold the range
    float low = 0, high = 0; // bounds of a "low:high" range
    std::string enumName;    // range given by an enumeration; "" for none
    std::string condition;   // condition word; "" for none
};

struct CustomResult {
    std::string name;   // result name
    int16_t group = 0;  // group on the destination
    int16_t fo = 1;     // fan-out
};

struct CustomOperator {
    std::string name;
    uint32_t flags = 0;          // CustomOperatorFlag bits
    int mode = 0;                // 0 MULTI, 1 SINGLE
    int scope = 0;               // 0 NODE, 1 BRANCH, 2 TREE
    int updateMode = 0;          // INCR_SEND_NONE .. INCR_SEND_WITH_SHDTRE as 0 .. 4
    std::vector<CustomResult> results;
    std::vector<std::string> arguments;
};

struct CustomTable {
    std::vector<CustomEnum> enums;
    std::vector<CustomAttribute> attributes;
    std::vector<CustomOperator> operators;
};

// Declarations read with the relation resources; kept, not used by the viewer.
extern CustomTable g_customTable;
void customTableClear(CustomTable *custom);

// The resource reader appends to `table` (and to g_customTable). The scene
// dictionary plays no part in reading it, so unlike the other loaders these
// take none. 1 if the file was opened and has a relation part, else 0.
int reldictReadRelations(RelationDict *table, const char *path);
// Empties `table` and the custom table, then reads `path`. With `report`, a
// failure gives status 30. 1 or 0.
int dbLoadRelationDictionary(RelationDict *table, const char *path, int report);
// act (depFlag 0) or actdep (depFlag 1) of the relid's rows in g_relationDict,
// -1 for every row; with depFlag the update lists of every dictionary are
// marked dirty. Rows changed.
int relSetActive(int32_t relid, int16_t value, int depFlag);
// Rank and fan-out of a relation instance. For REL_CUSTOM the row is the
// instance-th (below 1 means 1) whose source and destination names are given;
// with no names (null or "") rank REL_CUSTOM_RANK and fan-out REL_CUSTOM_FANOUT.
// Other relids: as relRowInstance. Outputs may be null. 1 or 0.
int relRowByNames(const RelationDict *table, int32_t relid, const char *source,
                  const char *dest, int instance, int16_t *rk, int16_t *fo);

// ---------------------------------------------------------------------------
// Scene files (".dsc", magic SDSC): the grammar reader, the load in its fixed
// order of steps, substitution of what is missing, and relation data.

// Process-wide state of a load.
extern int loadIsPrimary;    // the first load into a dictionary, as opposed to a merge
extern float loadFileVersion;  // version of the scene file being read
// A batch caller's answer to a scene newer than this system; null accepts.
// Returning 0 refuses the read.
extern int (*g_sceneVersionHook)(float version);

// The play control of the scene's ENVIRONMENT goes to the current scene's state
// (sceneStateCurrent()): the primary load sets it, a merge may only widen the
// frame range.

int32_t relNewSerial();  // the process's running serial number of relations

// 1 or 0. Adds the scene element to SCENES (or takes the empty one of a new
// dictionary) and runs sceneLoad.
int sceneRead(Dictionary *dict, Database *db, const char *sceneName);
int sceneLoad(Dictionary *dict, Database *db, int primary, int latestVersion, int keepSelection);
int ExpandDscFile(Database *db, Dictionary *dict, const RelationDict *table, int sceneIndex,
                  Element *scene, int depth);
int sceneReadHeader(FILE *stream, Dictionary *dict, int sceneIndex, const char *pathPrefix,
                    float *version, int rootsOnly);
void sceneReadElements(FILE *stream, Dictionary *dict, int chapterId, int sceneIndex,
                       const char *pathPrefix, int count, int rootsOnly);
int sceneReadRelations(FILE *stream, Dictionary *dict, const RelationDict *table, int sceneIndex,
                       float version);
int sceneReadEnvironment(FILE *stream, Dictionary *dict, int sceneIndex);
// The element of the scene whose position in its CHAPTER list is the number
// in `reference` (text from an '@' on is ignored). 1 if found.
int sceneElemRef(Dictionary *dict, int chapterId, int sceneIndex, const char *reference,
                 int32_t *index);
// Replaces the data of an element that could not be read, or removes it.
void sceneSubstitute(Database *db, Dictionary *dict, int chapterId, Element *elem, int index);

// Element files are read through a table of readers by chapter. A reader
// fills the element's data from the file at `path` (1 on success, 2 for data
// owned elsewhere, -1 for an element refused with its own report, which then
// goes to the substitution without the header message); the
// matching free releases it. Chapters read by other libraries register here.
using SceneReadFn = int (*)(Dictionary *dict, int index, const char *path);
using SceneFreeFn = void (*)(Element &elem);
void sceneChapterReaderSet(int chapterId, SceneReadFn read, SceneFreeFn freeData);

// Each curve of the ANIMATION elements read by the load becomes an element
// of its own, under its file's element, with a relation from the element the
// file animates (the one of the file's name). Connections made.
int sceneConnectAnimation(Dictionary *dict, const RelationDict *table);

// Steps of a load that belong to the evaluation core; each may be null.
struct SceneLoadHooks {
    int (*buildUpdateLists)(Dictionary *dict);          // the main update list; 0 on a cycle
    void (*updateScene)(Dictionary *dict, float time);  // the first scene update
    void (*select)(Dictionary *dict, int chapter, int index);  // onto the current select list
    int (*connectExpressions)(Dictionary *dict);  // compiles and connects the loaded expressions
};
extern SceneLoadHooks g_sceneLoadHooks;

// Writes the dictionary's scene: every live element of the chapters kept on
// disk, each relation instance from its source side with its data, the
// elements' environment and the play control. 1 or 0.
int sceneWrite(Dictionary *dict, const char *path, float version);

// Frees what the load attached to the elements (models, materials, textures,
// curves), undoing the links between them first. dictFree calls it.
void sceneDataFree(Dictionary *dict);

// Relation data: one record kind per family of relations.
struct RelDataField {
    const char *token;  // keyword in the scene file
    int16_t count;      // values stored behind it
    int16_t isWord;     // 1: a word (written quoted), 0: numbers
};
struct RelDataFamily {
    const char *name;            // family name, for dumps
    const RelDataField *fields;  // keywords in file order
    int16_t fieldCount;          // entries of fields
    int16_t shortCount;          // fields of the short form; 0 for none
};
struct RelData {
    int32_t relid;                // relation the record belongs to
    const RelDataFamily *family;  // its family
    float *values;                // malloc'd; the fields' numbers, in field order
    char **words;                 // malloc'd; one per word field, null for none
    uint32_t present;             // bit i: field i was read or set
    int32_t index;                // custom effects: MODELS index of the effect's model; -1 before
};
const RelDataFamily *relDataFamilyOf(int32_t relid);  // null: the relation carries no data
RelData *relDataNew(int32_t relid);  // record with defaults, or null
// Instance (row) of relation 20010 that an expression between the two chapters
// stands for: the row named by its data's first word, or the first that fits.
int relExpressionInstance(const RelationDict *table, const RelData *data, int srcChapter,
                          int dstChapter);
// Adds an expression relation (20010) as a scene file does: the row of
// `instance` (0: relExpressionInstance) gives groups and rank, and a negative
// serial takes a new one. The dictionary takes `data` on success. 1 or 0.
int relAddExpression(Dictionary *dict, const RelationDict *table, int srcChapter, int32_t src,
                     int dstChapter, int32_t dst, int instance, int32_t serial, RelData *data);
// After RELDATA: reads the pairs; the stream stands behind EndOfRELDATA, or
// the foreign token is left in g_token. Null when the relation has no data kind.
RelData *relDataRead(FILE *stream, int32_t relid, int *foreignToken);
void relDataWrite(FILE *stream, int32_t relid, const RelData *data);
void relDataFree(int32_t relid, void *data);  // g_relDataFree while a scene is loaded
float *relDataValues(RelData *data, const char *token);  // a field's numbers, or null
const char *relDataWord(const RelData *data, const char *token);  // a word field, or null
void relDataFixup(Dictionary *dict, int chapterId, int32_t index, RelationInst *inst);
// The fix-up of every relation instance of the MODELS chapter, after a load.
void relDataFixupModels(Dictionary *dict);

// ---------------------------------------------------------------------------
// Scene setup file (".sts", magic SSET): everything about a scene that is not
// its content. The reader takes the few settings the viewer uses and keeps
// every other keyword line as read, so that the writer gives it back.

// How textures are filtered, over each texture's own choice.
enum SetupTexInterpolation : int32_t {
    SETUP_TXT_RESPECT_PROPERTY = 0,  // RESPECT_TXT_PROPERTY: each texture's own choice
    SETUP_TXT_ALWAYS_ON = 1,         // ALWAYS_ON: always interpolated (linear)
    SETUP_TXT_ALWAYS_OFF = 2,        // ALWAYS_OFF: never interpolated (nearest)
};

// A keyword line the reader passed over: its tokens as read.
struct SetupLine {
    int32_t section = -1;             // section it was read in (index of the section table); -1 before any
    std::vector<std::string> tokens;  // keyword first, then its values
    bool operator==(const SetupLine &) const = default;
};

struct SceneSetup {
    float version = 1.0f;         // version token of the header
    int32_t firstFrame = 1;       // PLAYCTRL FRAME: first frame of the range
    int32_t lastFrame = 100;      // last frame of the range
    int32_t currentFrame = 1;     // frame shown
    int32_t frameStep = 1;        // frames advanced per step
    int32_t playGiven = 0;        // 1 when the file's PLAYCTRL gave a FRAME range
    int32_t pause = 0;            // PAUSE: 1 play control paused
    float frameRate = 30.0f;      // RATE: frames per second
    float ambient[3] = {0.2f, 0.2f, 0.2f};  // AMBIENT_COLOR: light model ambient, 0 to 1
    int32_t twoSided = 0;         // TWO_SIDED_LIGHTING: 1 lights both sides of surfaces
    int32_t twoSidedOverride = 0; // TWO_SIDED_OVERRIDE: 1 one side only, whatever twoSided says
    int32_t autoSaveActive = 0;   // AUTO_SAVE_ACTIVE: 1 ACTIVE, 0 INACTIVE
    int32_t autoSavePeriod = 1;   // AUTO_SAVE_PERIOD: minutes between saves, 1 or more
    SetupTexInterpolation texInterpolation = SETUP_TXT_RESPECT_PROPERTY;  // TEXTURE_PXL_INTERPOLATION_MODE
    int32_t texBlending = 0;      // BLENDING: non-zero decal textures with alpha
    int32_t texGlobal = 1;        // TXT_DPY_GLOBAL: 1 textures of materials shown
    int32_t texLocal = 1;         // TXT_DPY_LOCAL: 1 local textures of models shown
    int32_t texTiling = 0;        // TXT_DPY_TILING: 1 textures tiled in the image
    int32_t texMirror = 0;        // TXT_DPY_MIRROR: 1 tiles mirrored
    std::vector<SetupLine> lines; // the other keyword lines, in the order read
    bool operator==(const SceneSetup &) const = default;
};

// Section names of the file, in the order a written file has them.
const char *sceneSetupSectionName(int section);  // null out of range
int sceneSetupSectionCount();

// Reads a setup file into `setup`. A missing file, or one without the magic,
// leaves the record as it was and gives 0; otherwise the settings read
// replace theirs, the kept lines are replaced, and the result is 1.
int sceneSetupRead(const char *path, SceneSetup *setup);
// Writes the header, each section's settings and kept lines; the play control
// only when the file gave one (playGiven). 1 or 0.
int sceneSetupWrite(const char *path, const SceneSetup &setup);
