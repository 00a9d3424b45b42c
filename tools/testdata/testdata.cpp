// Writers of test databases on top of the database, naming and file code.
#include "testdata.h"

#include <sys/time.h>

#include <cstdio>
#include <cstdlib>

#include "dictionary.h"

namespace {

// An element about to be saved in a chapter: its name record with the next
// version, and the path of its file without the chapter suffix.
struct Target {
    ElemName name;
    std::string stem;
    std::string suffix;
};

bool targetFor(Database *db, int chapterId, const std::string &elemName, Target &t) {
    if (!db || elemName.empty()) return false;
    const char *chapter = g_chapterTable[chapterId].dir;
    std::string ignoredSuffix;
    elemNameSplit(elemName.c_str(), t.name.prefix, t.name.name, t.name.version,
                  t.name.revision, ignoredSuffix);
    t.name.version = std::to_string(elemNextVersion(db, chapter, &t.name));
    t.name.revision = "0";
    t.name.fullName = elemNameFormat(t.name);
    // elemNextVersion left the chapter selected on the database.
    t.stem = db->chapterPath + t.name.fullName;
    t.suffix = g_chapterTable[chapterId].suffix;
    return true;
}

// The write's outcome: the file's path, or "" with a report.
std::string finish(Database *db, int chapterId, const Target &t, int written) {
    std::string path = t.stem + "." + t.suffix;
    if (!written) {
        fprintf(stderr, "testdata: cannot write %s\n", path.c_str());
        return "";
    }
    elemPruneVersions(db, g_chapterTable[chapterId].dir, &t.name);
    return path;
}

}  // namespace

Database *tdDatabaseCreate(const std::string &dir, const std::string &name,
                           const std::string &dirFile) {
    int result = dbCreate(g_dbList, name.c_str(), dir.c_str(),
                          dirFile.empty() ? nullptr : dirFile.c_str());
    if (result != DB_CREATE_OK) {
        fprintf(stderr, "testdata: cannot create the database %s at %s (code %d)\n",
                name.c_str(), dir.c_str(), result);
        return nullptr;
    }
    // The table holds the path as dbCreate expanded it.
    char expanded[BW_PATH_MAX];
    dbExpandPath(dir.c_str(), expanded);
    int index = -1;
    if (!dbFindExact(g_dbList, name.c_str(), expanded, &index)) return nullptr;
    return &g_dbList.items[static_cast<size_t>(index)];
}

std::string tdWriteModel(Database *db, const std::string &name, const Model *root) {
    Target t;
    if (!root || !targetFor(db, CHP_MODELS, name, t)) return "";
    // Unlike the material writers, the model writer takes the whole file name.
    return finish(db, CHP_MODELS, t, modelFileWritePath((t.stem + "." + t.suffix).c_str(), root));
}

std::string tdWriteMaterial(Database *db, const std::string &name, const Material &material) {
    Target t;
    if (!targetFor(db, CHP_MATERIALS, name, t)) return "";
    return finish(db, CHP_MATERIALS, t, materialFileWrite(t.stem.c_str(), material, nullptr));
}

std::string tdWriteTexture2D(Database *db, const std::string &name, const Texture2D &texture) {
    Target t;
    if (!targetFor(db, CHP_TEXTURES2D, name, t)) return "";
    return finish(db, CHP_TEXTURES2D, t, texture2DFileWrite(t.stem.c_str(), texture, nullptr));
}

std::string tdWriteAnimation(Database *db, const std::string &name, const AnimItem *items) {
    Target t;
    if (!items || !targetFor(db, CHP_ANIMATION, name, t)) return "";
    return finish(db, CHP_ANIMATION, t, animFileWrite((t.stem + "." + t.suffix).c_str(), items));
}

std::string tdWriteScene(Database *db, const std::string &name, const std::string &text,
                         time_t mtime) {
    Target t;
    if (!targetFor(db, CHP_SCENES, name, t)) return "";
    std::string path = t.stem + "." + t.suffix;
    int written = 0;
    // No scene writer exists yet: the text goes to the file as it stands.
    if (FILE *f = fopen(path.c_str(), "wb")) {
        written = fwrite(text.data(), 1, text.size(), f) == text.size();
        written = (fclose(f) == 0) && written;
        struct timeval times[2] = {{mtime, 0}, {mtime, 0}};
        written = written && utimes(path.c_str(), times) == 0;
    }
    return finish(db, CHP_SCENES, t, written);
}

std::string tdFullName(const std::string &path) {
    size_t slash = path.rfind('/');
    std::string file = slash == std::string::npos ? path : path.substr(slash + 1);
    size_t dot = file.rfind('.');
    return dot == std::string::npos ? file : file.substr(0, dot);
}

int tdLoadRelations() {
    const char *dir = getenv("BW_RSRC");
    std::string path = std::string(dir ? dir : BW_SOURCE_DIR "/rsrc") + "/Relations.rsrc";
    return dbLoadRelationDictionary(&g_relationDict, path.c_str(), 0);
}

TdScene::TdScene() {
    dictInit(&dict);
    dictCreateChapters(&dict, nullptr, 0);
}

TdScene::~TdScene() { dictFree(&dict, 0); }

int TdScene::add(int chapter, const std::string &fullName, bool root) {
    ElemName *name = elemNameParse(fullName.c_str(), nullptr, 0);
    int index = elemAdd(&dict, chapter, name, nullptr, nullptr, 0, 0);
    if (Element *e = elemGet(&dict, chapter, index)) e->lev = root ? 0 : 1;
    return index;
}

bool TdScene::relate(int srcChapter, int src, int dstChapter, int dst, int32_t relid) {
    if (relSameChapters(&g_relationDict, relid))
        return relAddVia(&dict, &g_relationDict, srcChapter, src, dstChapter, dst, relid, 1, 1,
                         nullptr, 1) != 0;
    return relAdd(&dict, &g_relationDict, src, dst, relid, 1, 1, nullptr, 1) != 0;
}

Element *TdScene::element(int chapter, int index) { return elemGet(&dict, chapter, index); }

std::string tdWriteScene(Database *db, const std::string &name, TdScene &scene, time_t mtime,
                         float version) {
    Target t;
    if (!targetFor(db, CHP_SCENES, name, t)) return "";
    std::string path = t.stem + "." + t.suffix;
    int written = sceneWrite(&scene.dict, path.c_str(), version);
    struct timeval times[2] = {{mtime, 0}, {mtime, 0}};
    written = written && utimes(path.c_str(), times) == 0;
    return finish(db, CHP_SCENES, t, written);
}
