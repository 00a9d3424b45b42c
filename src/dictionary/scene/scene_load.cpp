// Loading a scene: the scene file and its sub-scenes fill the dictionary,
// then every element file is read in a fixed chapter order, hierarchies are
// sorted and relations connected. Element files are read by the readers of
// their chapters, through one table.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "animation.h"
#include "camera.h"
#include "dict_internal.h"
#include "material.h"
#include "model.h"
#include "scene_internal.h"
#include "bw_env.h"

// ---------------------------------------------------------------------------
// Chapter readers

namespace {

// A reader fills elem->data (and aux) from the file at `path`; 1 on success,
// 2 when the data is owned elsewhere, -1 when it refused the element and said
// why itself.
using ChapterReadFn = int (*)(Dictionary *dict, int index, const char *path);

// The elements that took nodes of a tree the load read.
void markLoaded(Dictionary *dict, Model *node) {
    for (; node; node = node->nextSibling) {
        if (Element *e = elemGet(dict, CHP_MODELS, node->elementIndex))
            if (e->data == node) e->loaded = 1;
        markLoaded(dict, node->firstChild);
    }
}

// Models: the root's file holds the whole tree; the members of the
// hierarchy find their nodes in it by name.
// The binary readers add their suffix themselves.
std::string stemOf(const char *path) {
    std::string base = path;
    size_t dot = base.rfind('.');
    size_t slash = base.rfind('/');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) base.resize(dot);
    return base;
}

int readModel(Dictionary *dict, int index, const char *path) {
    Model *root = modelFileRead(stemOf(path).c_str(), nullptr, MODEL_READ_NEW);
    if (!root) return 0;
    Element *e = elemGet(dict, CHP_MODELS, index);
    e->data = root;
    modelElemLink(dict, index, root);
    markLoaded(dict, root);
    return 1;
}

// Materials and textures: a record cut short keeps what was read, as a
// model's tree does, and the damage is told; only a file that gave nothing
// of its record is left to the substitution.
template <typename T, int (*fileRead)(const char *, T &, std::string *, int *), int chapterId>
int readRecord(Dictionary *dict, int index, const char *path) {
    T *record = new T;
    std::string error;
    int partial = 0;
    if (!fileRead(stemOf(path).c_str(), *record, &error, &partial)) {
        if (!partial) {
            delete record;
            return 0;
        }
        std::string text = error + "; what was read is kept";
        msgShow(text.c_str(), TOL_CLASS_ERROR);
    }
    elemGet(dict, chapterId, index)->data = record;
    return 1;
}
constexpr auto readMaterial = readRecord<Material, materialFileRead, CHP_MATERIALS>;
constexpr auto readTexture2D = readRecord<Texture2D, texture2DFileRead, CHP_TEXTURES2D>;
constexpr auto readTexture3D = readRecord<Texture3D, texture3DFileRead, CHP_TEXTURES3D>;

// Curves: the file's items stay on its element until the load hands each
// curve to an element of its own. Structure keys (.key) are curve files too
// and stay on their element as read.
template <int chapterId>
int readCurves(Dictionary *dict, int index, const char *path) {
    AnimItem *items = animFileRead(path);
    if (!items) return 0;
    elemGet(dict, chapterId, index)->data = items;
    return 1;
}
constexpr auto readAnimation = readCurves<CHP_ANIMATION>;
constexpr auto readStructKeys = readCurves<CHP_STRUCT_KEYS>;

void freeAnimation(Element &e) {
    if (e.lev == 0)
        animItemsFree(static_cast<AnimItem *>(e.data));
    else
        fcurveFree(static_cast<Fcurve *>(e.data));
}

// A camera file fills the thread's current camera: the scene's camera is the
// one the viewer looks through. The element shares that record, which the
// layer owns.
int readCamera(Dictionary *dict, int index, const char *path) {
    Camera *current = static_cast<Camera *>(threadStorage()->curCamera);
    Camera *read = cameraFileRead(path, current);
    if (!read) return 0;
    Element *e = elemGet(dict, CHP_CAMERAS, index);
    e->data = read;
    return 2;  // read, not owned
}

// A light whose file marks it selected goes on the scene's select list.
int readLight(Dictionary *dict, int index, const char *path) {
    Light *light = lightFileRead(path);
    if (!light) return 0;
    elemGet(dict, CHP_LIGHTS, index)->data = light;
    if (lightOnSelectList(*light) && g_sceneLoadHooks.select) g_sceneLoadHooks.select(dict, CHP_LIGHTS, index);
    return 1;
}

int readLattice(Dictionary *dict, int index, const char *path) {
    Lattice *lattice = latticeFileLoad(path);
    if (!lattice) return 0;
    elemGet(dict, CHP_LATTICES, index)->data = lattice;
    return 1;
}

void freeLight(Element &e) { lightFree(static_cast<Light *>(e.data)); }
void freeLattice(Element &e) { latticeFree(static_cast<Lattice *>(e.data)); }

struct ChapterReader {
    ChapterReadFn read;      // null: the chapter has no reader yet
    int reportsInvalid;      // a read that gives no data is told ("Invalid file header...") before substitution
    void (*freeData)(Element &e);  // releases what read attached; null: nothing
};

// Members point into their root's tree: only a tree's top is freed, and the
// tops are told apart before any tree goes.
void freeModels(Chapter &chapter) {
    std::vector<Model *> tops;
    for (int i = 0; i < chapter.elementCount; ++i) {
        Element &e = chapter.elements[i];
        Model *m = static_cast<Model *>(e.data);
        if (e.deleted == ELEM_FREE_SLOT || !m || !e.loaded) continue;
        if (!m->parent) tops.push_back(m);
        e.data = nullptr;
        e.loaded = 0;
    }
    for (Model *m : tops) {
        m->nextSibling = nullptr;
        modelFree(m);
    }
}
void freeMaterial(Element &e) { delete static_cast<Material *>(e.data); }
void freeTexture2D(Element &e) { delete static_cast<Texture2D *>(e.data); }
void freeTexture3D(Element &e) { delete static_cast<Texture3D *>(e.data); }

ChapterReader s_readers[CHAPTER_COUNT] = {};

void readersInit() {
    static bool done = false;
    if (done) return;
    done = true;
    s_readers[CHP_MODELS] = {readModel, 1, nullptr};
    s_readers[CHP_MATERIALS] = {readMaterial, 1, freeMaterial};
    s_readers[CHP_TEXTURES2D] = {readTexture2D, 1, freeTexture2D};
    s_readers[CHP_TEXTURES3D] = {readTexture3D, 1, freeTexture3D};
    s_readers[CHP_ANIMATION] = {readAnimation, 1, freeAnimation};
    s_readers[CHP_STRUCT_KEYS] = {readStructKeys, 0, freeAnimation};
    s_readers[CHP_CAMERAS] = {readCamera, 1, nullptr};
    s_readers[CHP_LIGHTS] = {readLight, 1, freeLight};
    s_readers[CHP_LATTICES] = {readLattice, 1, freeLattice};
}

// Chapters whose elements hold no file data of their own.
bool dataless(int chapterId) {
    return chapterId == CHP_SCENES || chapterId == CHP_SETUP_BRAK ||
           chapterId == CHP_SETUP_CHANNELS || chapterId == CHP_SETUP_FLOCK ||
           chapterId == CHP_SPREADSHEET_SETUP || chapterId == CHP_NSELECTIONS;
}

}  // namespace

void sceneChapterReaderSet(int chapterId, SceneReadFn read, SceneFreeFn freeData) {
    readersInit();
    if (chapterId < 0 || chapterId >= CHAPTER_COUNT) return;
    // The chapter's report of an unreadable file stays as the load gives it.
    s_readers[chapterId] = {read, s_readers[chapterId].reportsInvalid, freeData};
}

// ---------------------------------------------------------------------------
// Freeing

namespace {

// Model material and texture slots filled from elements are the elements'
// own: they are given back before either side is freed.
void unlinkModelLists(Dictionary *dict) {
    Chapter *models = dictChapter(dict, CHP_MODELS);
    if (!models) return;
    for (int i = 0; i < models->elementCount; ++i) {
        Element &e = models->elements[i];
        Model *m = static_cast<Model *>(e.data);
        if (e.deleted == ELEM_FREE_SLOT || !m || !e.loaded) continue;
        for (int k = 0; m->materials && k < m->materialCount; ++k)
            if (m->materials[k] && elemFindByData(dict, CHP_MATERIALS, m->materials[k]) >= 0)
                m->materials[k] = nullptr;
        for (int k = 0; m->textures2D && k < m->texture2DCount; ++k)
            if (m->textures2D[k] && elemFindByData(dict, CHP_TEXTURES2D, m->textures2D[k]) >= 0)
                m->textures2D[k] = nullptr;
    }
}

}  // namespace

void sceneDataFree(Dictionary *dict) {
    if (!dict) return;
    readersInit();
    unlinkModelLists(dict);
    if (Chapter *models = dictChapter(dict, CHP_MODELS)) freeModels(*models);
    for (int c = 0; c < CHAPTER_COUNT && c < dict->chapterCount; ++c) {
        Chapter *chapter = dictChapter(dict, c);
        if (!chapter || !s_readers[c].freeData) continue;
        for (int i = 0; i < chapter->elementCount; ++i) {
            Element &e = chapter->elements[i];
            if (e.deleted == ELEM_FREE_SLOT || !e.data || !e.loaded) continue;
            s_readers[c].freeData(e);
            e.data = nullptr;
            e.loaded = 0;
        }
    }
}

// ---------------------------------------------------------------------------
// Sub-scenes

namespace {

// The path of the element's scene file, or "" when there is none.
std::string sceneFilePath(Database *db, Dictionary *dict, Element *scene) {
    if (elemFindFile(db, dict, "SCENES", CHP_SCENES, scene, nullptr, 0)) return g_elemPath;
    dbSetChapter(*db, "SCENES");
    char path[BW_PATH_MAX];
    snprintf(path, sizeof path, "%s%s%s.dsc", db->chapterPath.c_str(), scene->name->subdir.c_str(),
             scene->name->fullName.c_str());
    return path;
}

int findTwin(Chapter *scenes, int index) {
    const std::string &full = scenes->elements[index].name->fullName;
    for (int i = 0; i < index; ++i) {
        const Element &e = scenes->elements[i];
        if (e.deleted != ELEM_FREE_SLOT && e.name && e.flag && e.name->fullName == full) return i;
    }
    return -1;
}

}  // namespace

int ExpandDscFile(Database *db, Dictionary *dict, const RelationDict *table, int sceneIndex,
                  Element *scene, int depth) {
    if (depth > 1) {
        fprintf(stderr, "ERROR - ExpandDscFile: One sub-level of scene for now!!!\n");
        return 0;
    }
    if (!db || !dict || !scene || !scene->name) return 0;
    std::string path = sceneFilePath(db, dict, scene);
    FILE *stream = fopen(path.c_str(), "rb");
    if (!stream) return 0;
    scene->flag = 1;
    std::string prefix = scene->name->alias;
    float version = 0.0f;
    if (!sceneReadHeader(stream, dict, sceneIndex, prefix.c_str(), &version, 0)) {
        fclose(stream);
        return 0;
    }
    loadFileVersion = version;
    // Scenes named by this one are its sub-scenes.
    Chapter *scenes = dictChapter(dict, CHP_SCENES);
    for (int i = 0; i < scenes->elementCount; ++i) {
        Element &sub = scenes->elements[i];
        if (sub.deleted == ELEM_FREE_SLOT || sub.owner != sceneIndex || sub.flag || i == sceneIndex) continue;
        int twin = findTwin(scenes, i);
        if (twin >= 0) {
            sub.flag = 2;  // joined with the first: its elements are the twin's
            sub.root = twin;
            continue;
        }
        if (!ExpandDscFile(db, dict, table, i, &scenes->elements[i], depth + 1)) {
            fclose(stream);
            return 0;
        }
        scenes = dictChapter(dict, CHP_SCENES);  // the array may have moved
    }
    sceneReadRelations(stream, dict, table, sceneIndex, version);
    sceneReadEnvironment(stream, dict, sceneIndex);
    fclose(stream);
    return 1;
}

// ---------------------------------------------------------------------------
// Reading the elements

namespace {

// Known sub-directories of the chapter, for elemFindFile's last try.
void scanSubdirs(Database *db, Chapter *chapter) {
    chapter->subdirNames.clear();
    std::set<std::string> seen;
    for (const ScannedFile &f : chapterScanDir(db->chapterPath, scanSuffixPredicate, "all", 1))
        if (!f.subdir.empty() && seen.insert(f.subdir).second) chapter->subdirNames.push_back(f.subdir);
    chapter->subdirCount = static_cast<int32_t>(chapter->subdirNames.size());
}

bool wantsRead(const Element &e) {
    return e.deleted == ELEM_LIVE && e.isNew == 1 && !e.data && e.lev == 0 && e.name;
}

void readChapter(Database *db, Dictionary *dict, int chapterId) {
    Chapter *chapter = dictChapter(dict, chapterId);
    if (!chapter || chapter->elementCount == 0) return;
    const char *dir = chapterId < CHAPTER_COUNT ? g_chapterTable[chapterId].dir : chapter->name.c_str();
    dbSetChapter(*db, dir);
    scanSubdirs(db, chapter);
    const ChapterReader &reader = s_readers[chapterId];
    for (int i = 0; i < chapter->elementCount; ++i) {
        chapter = dictChapter(dict, chapterId);
        Element *e = &chapter->elements[i];
        if (!wantsRead(*e) || dataless(chapterId)) continue;
        std::string progress = "Read " + e->name->fullName;
        msgStatus(progress.c_str());
        std::string subdir;
        if (!elemFindFile(db, dict, dir, chapterId, e, &subdir, 0)) {
            sceneSubstitute(db, dict, chapterId, e, i);
            continue;
        }
        if (!subdir.empty()) e->name->subdir = subdir;
        std::string path = g_elemPath;
        if (!reader.read) continue;  // named and kept; read once the chapter has a reader
        int got = reader.read(dict, i, path.c_str());
        if (got < 0) {
            sceneSubstitute(db, dict, chapterId, elemGet(dict, chapterId, i), i);
            continue;
        }
        if (!got && !reader.reportsInvalid) {
            // Shapes, clusters, structure keys and expressions go to the
            // substitution alone, which says what became of the element.
            sceneSubstitute(db, dict, chapterId, elemGet(dict, chapterId, i), i);
            continue;
        }
        if (!got) {
            char text[BW_PATH_MAX + 64];
            snprintf(text, sizeof text, "Invalid file header or content: %s", path.c_str());
            msgShow(text, TOL_CLASS_ERROR);
            if (!envIsSet(ENV_BW_NO_LOAD_PAUSE)) sleep(1);
            e = elemGet(dict, chapterId, i);
            sceneSubstitute(db, dict, chapterId, e, i);
            continue;
        }
        e = elemGet(dict, chapterId, i);
        e->loaded = got == 1 ? 1 : 0;  // 2: read into a record someone else owns
        struct stat st;
        if (stat(path.c_str(), &st) == 0) e->name->time = static_cast<int32_t>(st.st_mtime);
        e->name->dbPath = db->path;
    }
}

// The setup file of element 0 of SETUP_BRAK, the only one that stays: its
// light model goes to the scene's global block, its play control to the
// scene's (a merge only widens the range), and the whole record to the
// scene, where the layer takes the texture display settings from. A missing
// or foreign file leaves the defaults.
void readSetup(Database *db, Dictionary *dict) {
    Chapter *chapter = dictChapter(dict, CHP_SETUP_BRAK);
    if (!chapter || chapter->elementCount == 0) return;
    Element *e = &chapter->elements[0];
    if (e->deleted != ELEM_LIVE || e->isNew != 1 || !e->name) return;
    dbSetChapter(*db, g_chapterTable[CHP_SETUP_BRAK].dir);
    scanSubdirs(db, chapter);
    e = &dictChapter(dict, CHP_SETUP_BRAK)->elements[0];
    msgStatus(("Read " + e->name->fullName).c_str());
    if (!elemFindFile(db, dict, g_chapterTable[CHP_SETUP_BRAK].dir, CHP_SETUP_BRAK, e, nullptr, 0)) return;
    auto setup = std::make_shared<SceneSetup>();
    if (!sceneSetupRead(g_elemPath, setup.get())) return;
    SceneGlobals &g = dict->globals;
    for (int k = 0; k < 3; ++k) g.ambient[k] = setup->ambient[k];
    g.twoSided = setup->twoSided ? 1 : 0;
    g.twoSidedOverride = setup->twoSidedOverride ? 1 : 0;
    g.lightingGiven = 1;
    if (setup->playGiven) {
        TOL_PlayCtrl &play = sceneStateCurrent().playCtrl;
        if (loadIsPrimary) {
            play.startFrame = setup->firstFrame;
            play.endFrame = setup->lastFrame;
            play.currentFrame = setup->currentFrame;
            play.frameStep = setup->frameStep;
            play.pause = setup->pause;
            if (setup->frameRate > 0) play.framesPerSecond = setup->frameRate;
        } else {
            if (setup->firstFrame < play.startFrame) play.startFrame = setup->firstFrame;
            if (setup->lastFrame > play.endFrame) play.endFrame = setup->lastFrame;
        }
    }
    dict->setup = std::move(setup);
}

// MODELS first, ANIMATION and SETUP_BRAK last: the models' trees are there
// when other chapters link to them, and curves find their targets.
std::vector<int> readOrder(const Dictionary *dict) {
    std::vector<int> order{CHP_MODELS};
    for (int c = 0; c < dict->chapterCount; ++c) {
        if (c == CHP_MODELS || c == CHP_PICTURES || c == CHP_RENDER_PICTURES ||
            c == CHP_ANIMATION || c == CHP_SCENES || c == CHP_SETUP_BRAK)
            continue;
        order.push_back(c);
    }
    order.push_back(CHP_ANIMATION);
    order.push_back(CHP_SETUP_BRAK);
    return order;
}

// lev and root of MODELS, CAMERAS and LIGHTS from their hierarchy relation.
void sortHierarchy(Dictionary *dict, int chapterId, int32_t relid) {
    Chapter *chapter = dictChapter(dict, chapterId);
    if (!chapter) return;
    std::vector<int32_t> stack;
    for (int i = 0; i < chapter->elementCount; ++i) {
        Element &e = chapter->elements[i];
        if (e.deleted == ELEM_FREE_SLOT || !e.name) continue;
        if (relHas(&e, 1, relid, chapterId)) continue;  // it has a parent: reached from it
        e.lev = 0;
        e.root = i;
        stack.assign(1, i);
        while (!stack.empty()) {
            int32_t at = stack.back();
            stack.pop_back();
            Element *parent = elemGet(dict, chapterId, at);
            int32_t childChapter = -1, child = -1;
            for (Element *c = relFirst(dict, parent, 0, RELGR_TRANSFO, relid, chapterId,
                                       &childChapter, &child);
                 c; c = relNext(dict, parent, 0, RELGR_TRANSFO, relid, chapterId, &childChapter,
                                &child)) {
                if (c->root == i && c->lev > 0 && child != i) continue;  // seen: a cycle
                c->lev = parent->lev + 1;
                c->root = i;
                if (c->lev < 10000) stack.push_back(child);
            }
        }
    }
}

void sortHierarchies(Dictionary *dict) {
    sortHierarchy(dict, CHP_MODELS, 110);
    sortHierarchy(dict, CHP_CAMERAS, 1110);
    sortHierarchy(dict, CHP_LIGHTS, 2110);
}

// Fills the model's empty material or texture slots, in the order of the
// relations, with the elements' records; slots run out: the list grows.
template <typename T>
void linkList(Model *m, T **&list, uint16_t &count, T *item) {
    for (int k = 0; list && k < count; ++k)
        if (!list[k]) {
            list[k] = item;
            return;
        }
    for (int k = 0; list && k < count; ++k)
        if (list[k] == item) return;
    T **grown = static_cast<T **>(realloc(list, sizeof(T *) * (count + 1u)));
    if (!grown) return;
    list = grown;
    list[count++] = item;
    (void)m;
}

void connectModelLists(Dictionary *dict, int32_t relid) {
    Chapter *models = dictChapter(dict, CHP_MODELS);
    int target = relid == 300 ? CHP_MATERIALS : CHP_TEXTURES2D;
    int16_t group = RELGR_RENDER;
    relGroups(&g_relationDict, relid, &group, nullptr);
    for (int i = 0; models && i < models->elementCount; ++i) {
        Element *e = &models->elements[i];
        Model *m = static_cast<Model *>(e->data);
        if (e->deleted == ELEM_FREE_SLOT || !m) continue;
        int32_t chp = -1, other = -1;
        for (Element *t = relFirst(dict, e, 1, group, relid, target, &chp, &other); t;
             t = relNext(dict, e, 1, group, relid, target, &chp, &other)) {
            if (!t->data) continue;
            if (relid == 300)
                linkList(m, m->materials, m->materialCount, static_cast<Material *>(t->data));
            else
                linkList(m, m->textures2D, m->texture2DCount, static_cast<Texture2D *>(t->data));
        }
    }
}

// The relations whose connection does work at load time; the rest are
// evaluated through the update list and need nothing here.
struct Connection {
    int chapter;
    int group;
    int32_t relid;
};
const Connection kConnections[] = {
    {CHP_MODELS, 1, 111},    {CHP_MODELS, 1, 800},    {CHP_MODELS, 1, 801},
    {CHP_MODELS, 1, 802},    {CHP_MODELS, 1, 803},    {CHP_MODELS, 1, 804},
    {CHP_MODELS, 1, 805},    {CHP_MODELS, 1, 806},    {CHP_MODELS, 1, 807},
    {CHP_LIGHTS, 1, 2111},   {CHP_LIGHTS, 1, 2116},   {CHP_CAMERAS, 1, 1111},
    {CHP_CAMERAS, 1, 1116},  {CHP_MODELS, 1, 112},    {CHP_LIGHTS, 1, 2112},
    {CHP_LIGHTS, 1, 2114},   {CHP_CAMERAS, 1, 1112},  {CHP_CAMERAS, 1, 1114},
    {CHP_MODELS, 2, 220},    {CHP_MODELS, 2, 221},    {CHP_MODELS, 2, 230},
    {CHP_MODELS, 2, 231},    {CHP_MODELS, 2, 600},    {CHP_MODELS, 2, 601},
    {CHP_WAVES, 1, 612},     {CHP_MODELS, 3, 300},    {CHP_MATERIALS, 3, 401},
    {CHP_MATERIALS, 3, 501}, {CHP_MODELS, 3, 400},    {CHP_MODELS, 3, 500},
    {CHP_LIGHTS, 3, 2200},   {CHP_NSELECTIONS, 0, 10001}, {CHP_MODELS, 4, REL_CUSTOM},
};

void relConnect(Dictionary *dict, int chapterId, int group, int32_t relid) {
    if (chapterId == CHP_MODELS && (relid == 300 || relid == 500)) {
        connectModelLists(dict, relid);
        return;
    }
    Chapter *chapter = dictChapter(dict, chapterId);
    for (int i = 0; chapter && i < chapter->elementCount; ++i) {
        Element &e = chapter->elements[i];
        if (e.deleted == ELEM_FREE_SLOT || !e.childGroups || group >= e.childGroupCount) continue;
        RelationGroup &g = e.childGroups[group];
        for (int k = 0; k < g.count; ++k)
            if (g.items[k].relid == relid) relDataFixup(dict, chapterId, i, &g.items[k]);
    }
}

// WIRECOL, DISPLAY and MPRFLG of the scene's environment are the model's: its
// wire colour, its own display type, and the low byte and high nibble of its
// flags word (the nibble between them holds bits of the run time, which stay).
void applyModelEnvironment(Dictionary *dict) {
    constexpr uint16_t kSceneFlagBits = 0xF0FF;
    Chapter *models = dictChapter(dict, CHP_MODELS);
    for (int i = 0; models && i < models->elementCount; ++i) {
        const Element &e = models->elements[i];
        Model *m = static_cast<Model *>(e.data);
        if (e.deleted == ELEM_FREE_SLOT || !m) continue;
        if (e.envSet & 1) m->wireColour = e.envValues[0];
        if (e.envSet & 2) m->displayMode = static_cast<uint16_t>(e.envValues[1]);
        if (e.envSet & 4)
            m->flags = static_cast<uint16_t>((m->flags & ~kSceneFlagBits) |
                                             (static_cast<uint16_t>(e.envValues[2]) & kSceneFlagBits));
    }
}

// In a merge the elements the second scene brought carry its name.
void addSceneName(Dictionary *dict, const std::string &sceneName) {
    static const int chapters[] = {CHP_MODELS, CHP_MATERIALS, CHP_TEXTURES2D, CHP_TEXTURES3D,
                                   CHP_LIGHTS};
    for (int c : chapters) {
        Chapter *chapter = dictChapter(dict, c);
        for (int i = 0; chapter && i < chapter->elementCount; ++i) {
            Element &e = chapter->elements[i];
            if (e.deleted == ELEM_FREE_SLOT || e.isNew != 1 || !e.data || !e.name) continue;
            if (e.name->prefix.empty()) e.name->prefix = sceneName;
        }
    }
}

void updateLatestVersions(Database *db, Dictionary *dict) {
    int changed = 0;
    for (int c = 0; c < dict->chapterCount && c < CHAPTER_COUNT; ++c) {
        if (g_chapterTable[c].kind != CHAPTER_FILES) continue;
        Chapter *chapter = dictChapter(dict, c);
        if (!chapter || chapter->elementCount == 0) continue;
        dbSetChapter(*db, g_chapterTable[c].dir);
        for (int i = 0; i < chapter->elementCount; ++i) {
            Element &e = chapter->elements[i];
            if (e.deleted == ELEM_FREE_SLOT || !e.name) continue;
            std::string before = e.name->version;
            int latest = elemLatestVersion(db, e.name, 1, nullptr, nullptr);
            if (latest >= 0 && e.name->version != before) {
                char text[256];
                snprintf(text, sizeof text, "[%s] updated with version (%d)", e.name->name.c_str(), latest);
                msgStatus(text);
                ++changed;
            }
        }
    }
    char text[128];
    if (changed)
        snprintf(text, sizeof text, "Changed %d elements for latest version", changed);
    else
        snprintf(text, sizeof text, "Latest versions already used for all elements");
    msgStatus(text);
}

// Cameras and lights whose points follow a path name the path's model in
// their files: each becomes the path relation of that point.
void resolvePathRefs(Dictionary *dict) {
    PathRef *refs = pathRefsTake();
    for (PathRef *r = refs; r; r = r->next) {
        static const struct {
            int chapter;
            int32_t relid;
        } kinds[] = {{CHP_CAMERAS, 1112}, {CHP_CAMERAS, 1114}, {CHP_LIGHTS, 2112}, {CHP_LIGHTS, 2114}};
        if (r->kind < PATH_REF_CAMERA_POSITION || r->kind > PATH_REF_LIGHT_INTEREST || !r->pathName) continue;
        const auto &k = kinds[r->kind - PATH_REF_CAMERA_POSITION];
        int owner = elemFindByData(dict, k.chapter, r->owner);
        ElemName *path = elemNameParse(r->pathName, nullptr, 0);
        int model = path ? elemFindByName(dict, CHP_MODELS, -1, path->prefix.empty() ? nullptr : path->prefix.c_str(),
                                          path->name.c_str(), -1, -1, 0)
                         : -1;
        elemNameFree(path);
        if (owner < 0 || model < 0) {
            msgShow("Cannot connect path animation to item without path.", TOL_CLASS_WARNING);
            continue;
        }
        relAdd(dict, &g_relationDict, owner, model, k.relid, 1, 1, nullptr, 1);
    }
    pathRefsFree(refs);
}

void endLoad() {
    loadInProgress = 0;
    loadIsPrimary = 0;
    sceneRefReset();
}

}  // namespace

// Steps that other parts of the system run inside a load: curve connection,
// update lists and the first scene update. Each may be left null.
SceneLoadHooks g_sceneLoadHooks;

int sceneLoad(Dictionary *dict, Database *db, int primary, int latestVersion, int keepSelection) {
    if (!dict || !db) return 0;
    readersInit();
    const RelationDict *table = &g_relationDict;
    if (!keepSelection)
        for (int c = 0; c < dict->chapterCount; ++c)
            if (Chapter *chapter = dictChapter(dict, c))
                for (int i = 0; i < chapter->elementCount; ++i) chapter->elements[i].selected = 0;
    loadInProgress = 1;
    loadIsPrimary = primary;
    sceneRefReset();

    // 1-2: the scene files.
    Chapter *scenes = dictChapter(dict, CHP_SCENES);
    for (int i = 0; scenes && i < scenes->elementCount; ++i) {
        Element &e = scenes->elements[i];
        if (e.deleted != ELEM_LIVE || e.isNew != 1 || e.flag) continue;
        if (!ExpandDscFile(db, dict, table, i, &e, 0)) {
            endLoad();
            return 0;
        }
        scenes = dictChapter(dict, CHP_SCENES);
    }
    if (latestVersion) updateLatestVersions(db, dict);

    // 3: the element files.
    msgStatus("Read Elements");
    for (int c : readOrder(dict)) readChapter(db, dict, c);
    readSetup(db, dict);

    resolvePathRefs(dict);
    applyModelEnvironment(dict);

    // 4: a merge names what it brought.
    if (!primary && scenes && scenes->elementCount > 0) {
        const Element &last = scenes->elements[scenes->elementCount - 1];
        if (last.name) addSceneName(dict, last.name->name);
    }

    // 5-7: hierarchies, animation, connections.
    sortHierarchies(dict);
    sceneConnectAnimation(dict, table);
    for (const Connection &c : kConnections) relConnect(dict, c.chapter, c.group, c.relid);
    relDataFixupModels(dict);

    // 8-9
    dictCleanupAfterLoad(dict);
    if (g_sceneLoadHooks.connectExpressions) g_sceneLoadHooks.connectExpressions(dict);
    sortHierarchies(dict);
    if (g_sceneLoadHooks.buildUpdateLists) g_sceneLoadHooks.buildUpdateLists(dict);
    if (Chapter *animation = dictChapter(dict, CHP_ANIMATION)) elemHierSort(animation);

    // 10: the first scene update.
    if (g_sceneLoadHooks.updateScene) {
        const TOL_PlayCtrl &play = sceneStateCurrent().playCtrl;
        float rate = play.framesPerSecond > 0 ? play.framesPerSecond : 30.0f;
        g_sceneLoadHooks.updateScene(dict, static_cast<float>(play.currentFrame) / rate);
    }

    // 11
    for (int c = 0; c < dict->chapterCount; ++c)
        if (Chapter *chapter = dictChapter(dict, c))
            for (int i = 0; i < chapter->elementCount; ++i)
                if (chapter->elements[i].isNew == 1) chapter->elements[i].isNew = 0;
    dict->database = db;
    endLoad();
    return 1;
}

int sceneRead(Dictionary *dict, Database *db, const char *sceneName) {
    if (!dict || !db || !sceneName) return 0;
    Element *first = dictEnsureScene(dict);
    Chapter *scenes = dictChapter(dict, CHP_SCENES);
    bool primary = true;
    for (int i = 0; scenes && i < scenes->elementCount; ++i)
        if (scenes->elements[i].deleted == ELEM_LIVE && scenes->elements[i].flag) primary = false;
    ElemName *name = elemNameParse(sceneName, nullptr, 1);
    if (!name) return 0;
    if (primary && first) {
        // The empty scene of a new dictionary becomes the loaded one.
        elemNameFree(first->name);
        first->name = name;
        first->isNew = 1;
        first->owner = -1;
        first->wrkid = 0;
    } else {
        int index = elemAdd(dict, CHP_SCENES, name, nullptr, nullptr, -1, 0);
        if (index < 0) return 0;
        elemGet(dict, CHP_SCENES, index)->isNew = 1;
    }
    return sceneLoad(dict, db, primary ? 1 : 0, 0, 0);
}
