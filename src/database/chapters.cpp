// The chapter table, Chapter.rsrc, the chapter scan of a database and the
// directory scan that lists the element files of a chapter.
#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "database.h"
#include "db_internal.h"

namespace {

// A chapter without a magic word has "" in the table.
constexpr uint32_t magic(const char (&)[1]) { return 0; }
constexpr uint32_t magic(const char (&text)[5]) {
    return (static_cast<uint32_t>(static_cast<unsigned char>(text[0])) << 24) |
           (static_cast<uint32_t>(static_cast<unsigned char>(text[1])) << 16) |
           (static_cast<uint32_t>(static_cast<unsigned char>(text[2])) << 8) |
           static_cast<uint32_t>(static_cast<unsigned char>(text[3]));
}

}  // namespace

#define CHAPTER_ROW(id, dir, suffix, magicText, kind) {id, #dir, suffix, magic(magicText), CHAPTER_##kind},
const ChapterRow g_chapterTable[CHAPTER_COUNT] = {BW_CHAPTER_ROWS};
#undef CHAPTER_ROW

namespace {
#define CHAPTER_ROW(id, dir, suffix, magicText, kind) id,
constexpr int chapterIds[] = {BW_CHAPTER_ROWS};
#undef CHAPTER_ROW
constexpr bool chaptersAreIndexed() {
    if (sizeof chapterIds / sizeof chapterIds[0] != CHAPTER_COUNT) return false;
    for (int i = 0; i < CHAPTER_COUNT; ++i)
        if (chapterIds[i] != i) return false;
    return true;
}
static_assert(chaptersAreIndexed(), "every chapter row must stand at the index of its id");
}  // namespace

int chapterFind(const char *name) {
    if (!name) return -1;
    for (const ChapterRow &row : g_chapterTable) {
        // Picture directories are met in any case on disks shared with other systems.
        bool anyCase = row.id == CHP_PICTURES || row.id == CHP_RENDER_PICTURES;
        if (anyCase ? strcasecmp(row.dir, name) == 0 : strcmp(row.dir, name) == 0) return row.id;
    }
    return -1;
}

int chapterFindBySuffix(const char *suffix) {
    if (!suffix || !*suffix) return -1;
    for (const ChapterRow &row : g_chapterTable)
        if (row.suffix && strcasecmp(row.suffix, suffix) == 0) return row.id;
    return -1;
}

// ---------------------------------------------------------------------------
// Chapter.rsrc

namespace {

void defaultChapterInfo(const char *chapterName, ChapterInfo &info) {
    info.versions = 4;
    int id = chapterFind(chapterName);
    if (id >= 0 && g_chapterTable[id].suffix) info.suffix = g_chapterTable[id].suffix;
}

// Reads the value behind a keyword; false when there is none to use.
bool readValue(FILE *file) {
    readToken(file);
    return g_tokenEnd != TOKEN_END_BAD && g_token[0] != '\0';
}

int parseCount(const char *text) {
    char *end = nullptr;
    errno = 0;
    long value = strtol(text, &end, 10);
    if (end == text) return 0;
    if (errno == ERANGE || value > INT_MAX) return INT_MAX;
    if (value < INT_MIN) return INT_MIN;
    return static_cast<int>(value);
}

}  // namespace

int ReadChapterInfo(const char *dbPath, const char *chapterName, ChapterInfo &info,
                    int existenceOnly) {
    if (!dbPath || !chapterName) return 0;
    info.name = chapterName;
    info.suffix.clear();
    info.browser.clear();
    info.versions = 4;

    std::string file = std::string(dbPath) + "/" + chapterName + "/Chapter.rsrc";
    if (existenceOnly) {
        defaultChapterInfo(chapterName, info);
        return access(file.c_str(), R_OK) == 0 ? 1 : 0;
    }

    FILE *in = fopen(file.c_str(), "r");
    if (!in) {
        printf("ERROR: ReadChapterInfo - cannot open %s\n", file.c_str());
        defaultChapterInfo(chapterName, info);
        return 0;
    }
    bool setupChapter = strcmp(chapterName, "SETUP_BRAK") == 0;
    for (;;) {
        readToken(in);
        if (g_tokenEnd == TOKEN_END_BAD || g_token[0] == '\0') break;
        if (strcmp(g_token, "SUFFIX") == 0) {
            if (!readValue(in)) break;
            // Setup files keep their own suffix whatever the file says.
            info.suffix = setupChapter ? "sts" : g_token;
        } else if (strcmp(g_token, "BROWSER") == 0) {
            if (!readValue(in)) break;
            info.browser = g_token;
        } else if (strcmp(g_token, "VERSIONS") == 0) {
            if (!readValue(in)) break;
            info.versions = std::max(1, parseCount(g_token));
        }
        // Other tokens are passed over.
    }
    fclose(in);
    return 1;
}

int dbChapterVersions(Database *db, const char *chapterName) {
    if (!db || !chapterName) return 4;
    ChapterInfo *info = nullptr;
    for (ChapterInfo &chapter : db->chapters)
        if (chapter.name == chapterName) info = &chapter;
    int versions = info ? info->versions : 4;
    std::string file = db->path + "/" + chapterName + "/Chapter.rsrc";
    FILE *in = fopen(file.c_str(), "r");
    if (!in) return versions;  // the number read at the chapter scan stands
    if (skipToToken(in, "VERSIONS", ';') && readValue(in))
        versions = std::max(1, parseCount(g_token));
    fclose(in);
    if (info) info->versions = versions;
    return versions;
}

namespace {

bool isDirectory(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

int dbScanChapters(Database &db, int existenceOnly) {
    db.chapters.clear();
    DIR *dir = opendir(db.path.c_str());
    if (!dir) return 0;
    std::vector<std::string> names;
    while (struct dirent *entry = readdir(dir)) {
        if (entry->d_name[0] == '.') continue;
        if (isDirectory(db.path + "/" + entry->d_name)) names.emplace_back(entry->d_name);
    }
    closedir(dir);

    // Sorted before reading, so that the reports come in a stable order.
    std::sort(names.begin(), names.end());
    int readable = 0;
    for (const std::string &name : names) {
        ChapterInfo info;
        readable += ReadChapterInfo(db.path.c_str(), name.c_str(), info, existenceOnly);
        db.chapters.push_back(std::move(info));
    }
    return readable;
}

// ---------------------------------------------------------------------------
// Directory scan

std::string dbStripSuffix(const std::string &fileName) {
    size_t dot = fileName.rfind('.');
    if (dot == std::string::npos) return fileName;
    size_t dash = fileName.rfind('-');
    if (dash != std::string::npos && dash > dot) return fileName;  // a version stamp, no suffix
    return fileName.substr(0, dot);
}

bool scanSuffixPredicate(const char *fileName, const void *suffix) {
    const char *wanted = static_cast<const char *>(suffix);
    if (!fileName || !wanted) return false;
    if (strcasecmp(wanted, "all") == 0) return true;
    size_t nameLength = strlen(fileName);
    size_t suffixLength = strlen(wanted);
    if (nameLength < suffixLength + 1) return false;
    const char *tail = fileName + nameLength - suffixLength;
    return tail[-1] == '.' && strcasecmp(tail, wanted) == 0;
}

bool scanVersionPredicate(const char *fileName, const void *wanted) {
    const ScanVersionArg *w = static_cast<const ScanVersionArg *>(wanted);
    if (!fileName || !w) return false;
    size_t n = strlen(fileName);
    // The icon that goes with a version is not a version of its own.
    if (n >= 4 && strcasecmp(fileName + n - 4, ".icn") == 0) return false;
    size_t stem = w->stem.size();
    if (n <= stem || strncmp(fileName, w->stem.c_str(), stem) != 0 || fileName[stem] != '.')
        return false;
    if (w->revision.empty()) return true;
    const char *dash = strchr(fileName + stem + 1, '-');
    if (!dash) return false;
    const char *end = strchr(dash + 1, '.');
    size_t length = end ? static_cast<size_t>(end - dash - 1) : strlen(dash + 1);
    return length == w->revision.size() && strncmp(dash + 1, w->revision.c_str(), length) == 0;
}

namespace {

constexpr int SCAN_DEPTH_MAX = 64;

struct ScanState {
    std::string chapterPath;
    ScanPredicate match;
    const void *arg;
    int recursive;
    // Directories on the way down from the chapter, to stop at a link that
    // leads back into one of them.
    std::vector<std::pair<dev_t, ino_t>> open;
    std::vector<ScannedFile> found;
};

bool caseLess(const std::string &a, const std::string &b) {
    int order = strcasecmp(a.c_str(), b.c_str());
    return order != 0 ? order < 0 : a < b;
}

void scanLevel(ScanState &state, const std::string &subdir, int depth) {
    std::string here = state.chapterPath + subdir;
    DIR *dir = opendir(here.c_str());
    if (!dir) return;  // unreadable directories are passed over
    std::vector<std::string> names;
    while (struct dirent *entry = readdir(dir))
        if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
    closedir(dir);
    std::sort(names.begin(), names.end(), caseLess);

    for (const std::string &name : names) {
        struct stat st;
        if (stat((here + name).c_str(), &st) != 0) continue;  // dangling link, vanished file
        bool isDir = S_ISDIR(st.st_mode);
        if (!isDir && !state.match(name.c_str(), state.arg)) continue;

        ScannedFile file;
        file.subdir = subdir;
        file.fileName = name;
        file.fullName = dbStripSuffix(name);
        size_t dot = name.rfind('.');
        if (dot != std::string::npos) file.suffix = name.substr(dot + 1);
        file.time = static_cast<int64_t>(st.st_mtime);
        file.mode = static_cast<uint16_t>(st.st_mode & 0xFFFF);
        file.size = static_cast<int64_t>(st.st_size);
        file.shared = subdir.find("SHARE") != std::string::npos ? 1 : 0;
        state.found.push_back(std::move(file));

        if (!isDir || !state.recursive || depth + 1 >= SCAN_DEPTH_MAX) continue;
        std::pair<dev_t, ino_t> id{st.st_dev, st.st_ino};
        if (std::find(state.open.begin(), state.open.end(), id) != state.open.end()) continue;
        state.open.push_back(id);
        scanLevel(state, subdir + name + "/", depth + 1);
        state.open.pop_back();
    }
}

}  // namespace

std::vector<ScannedFile> chapterScanDir(const std::string &chapterPath, ScanPredicate match,
                                        const void *arg, int recursive) {
    ScanState state;
    state.chapterPath = chapterPath;
    if (state.chapterPath.empty() || state.chapterPath.back() != '/') state.chapterPath += '/';
    state.match = match ? match : scanSuffixPredicate;
    state.arg = match ? arg : "all";
    state.recursive = recursive;
    struct stat st;
    if (stat(state.chapterPath.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return {};
    state.open.emplace_back(st.st_dev, st.st_ino);
    scanLevel(state, "", 0);
    return std::move(state.found);
}

std::string dbLatestScene(Database &db) {
    std::string scenes = db.path + "/" + g_chapterTable[CHP_SCENES].dir + "/";
    std::vector<ScannedFile> files = chapterScanDir(scenes, scanSuffixPredicate, "dsc", 1);
    const ScannedFile *latest = nullptr;
    for (const ScannedFile &file : files) {
        if (S_ISDIR(file.mode)) continue;  // sub-directories are listed too, but are no scenes
        if (!latest || file.time > latest->time) latest = &file;
    }
    return latest ? latest->fullName : std::string();
}
