// Element files on disk: finding the file of an element, and the versions of
// it that stand in its chapter.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "database.h"
#include "dictionary.h"

char g_elemPath[BW_PATH_MAX] = "";

namespace {

// Search bounds of the write side: the start of the search for the highest
// version, and the value that stands for no element on disk.
constexpr int VERSION_SEARCH_START = -9999;
constexpr int VERSION_NO_ELEMENT = -9998;
constexpr int VERSION_LOWEST_START = 99999;

// The formatted "[prefix-]name" of the element, without version stamp.
std::string elemStem(const ElemName &name) {
    std::string formatted = elemNameFormat(name);
    size_t stamp = name.version.size() + name.revision.size() + 2;  // ".v-r"
    return formatted.substr(0, formatted.size() - std::min(stamp, formatted.size()));
}

struct VersionFile {
    int version;
    ScannedFile file;
};

// The element's version files in the current chapter of `db` and below it.
std::vector<VersionFile> versionFiles(const Database &db, const ElemName &name) {
    std::vector<VersionFile> out;
    // Without a chapter the scan would start at the root of the file system.
    if (db.chapterName.empty() || db.chapterPath.empty()) return out;
    ScanVersionArg wanted{elemStem(name), ""};
    for (ScannedFile &file : chapterScanDir(db.chapterPath, scanVersionPredicate, &wanted, 1)) {
        if (S_ISDIR(file.mode)) continue;
        int version = atoi(file.fileName.c_str() + wanted.stem.size() + 1);
        out.push_back({version, std::move(file)});
    }
    return out;
}

void selectChapter(Database &db, const char *chapterName) {
    if (chapterName) dbSetChapter(db, chapterName);
}

bool readable(const char *path) { return access(path, R_OK) == 0; }

// "<chapterPath><subdir><fullName>[.<suffix>]" into g_elemPath; false when it
// does not fit or names no readable file.
bool tryFile(const std::string &chapterPath, const std::string &subdir,
             const std::string &fullName, const std::string &suffix) {
    int n = snprintf(g_elemPath, sizeof g_elemPath, "%s%s%s%s%s", chapterPath.c_str(),
                     subdir.c_str(), fullName.c_str(), suffix.empty() ? "" : ".", suffix.c_str());
    return n > 0 && n < BW_PATH_MAX && readable(g_elemPath);
}

// A subdir that names a place outside the database: "$VAR..." or "C:...".
bool isAbsoluteSubdir(const std::string &subdir) {
    if (subdir.empty()) return false;
    if (subdir[0] == '$') return true;
    return subdir.size() > 2 && isalpha(static_cast<unsigned char>(subdir[0])) && subdir[1] == ':';
}

// The absolute form: subdir and full name joined, expanded through the
// environment; the file carries no chapter suffix.
bool tryAbsolute(const std::string &subdir, const std::string &fullName) {
    std::string joined = subdir;
    if (joined.back() != '/' && joined.back() != '\\') joined += '/';
    joined += fullName;
    std::replace(joined.begin(), joined.end(), '\\', '/');
    if (joined.size() >= static_cast<size_t>(BW_PATH_MAX)) {
        g_elemPath[0] = '\0';
        return false;
    }
    dbExpandPath(joined.c_str(), g_elemPath);
    // A full buffer may hold a cut expansion, which must not name another file.
    if (strlen(g_elemPath) >= static_cast<size_t>(BW_PATH_MAX - 1)) return false;
    return readable(g_elemPath);
}

bool isShareDir(const std::string &subdir) { return subdir.compare(0, 5, "SHARE") == 0; }

}  // namespace

int elemFindFile(Database *db, Dictionary *dict, const char *chapterName, int chapterId,
                 Element *elem, std::string *outSubdir, int noRetry) {
    g_elemPath[0] = '\0';
    if (!db || !elem || !elem->name) return 0;
    ElemName &name = *elem->name;
    Chapter *chapter = dictChapter(dict, chapterId);

    bool found = false;
    if (isAbsoluteSubdir(name.subdir)) {
        found = tryAbsolute(name.subdir, name.fullName);
    } else {
        if (!chapterName && chapterId >= 0 && chapterId < CHAPTER_COUNT)
            chapterName = g_chapterTable[chapterId].dir;
        if (!chapterName && chapter) chapterName = chapter->name.c_str();
        selectChapter(*db, chapterName);
        std::string suffix;
        if (chapterId >= 0 && chapterId < CHAPTER_COUNT) {
            if (g_chapterTable[chapterId].suffix) suffix = g_chapterTable[chapterId].suffix;
        } else if (chapter) {
            suffix = chapter->suffix;
        }
        const std::string &base = db->chapterPath;
        if (!base.empty() && tryFile(base, name.subdir, name.fullName, suffix)) {
            if (isShareDir(name.subdir)) elem->shared = 1;
            return 1;
        }
        if (!base.empty() && tryFile(base, "", name.fullName, suffix)) {
            name.subdir.clear();  // the sub-directory it was in has gone
            return 1;
        }
        size_t listed = chapter ? std::min(chapter->subdirNames.size(),
                                           static_cast<size_t>(std::max(chapter->subdirCount, 0)))
                                : 0;
        for (size_t i = 0; i < listed && !base.empty(); ++i) {
            const std::string &entry = chapter->subdirNames[i];
            if (!tryFile(base, entry, name.fullName, suffix)) continue;
            if (outSubdir) *outSubdir = entry;
            if (isShareDir(entry)) elem->shared = 1;
            return 1;
        }
    }
    if (found || noRetry) return found ? 1 : 0;

    // Scene files may name an element without its version stamp, or with one
    // that is no longer on disk.
    std::string fullName = name.fullName;
    name.fullName = elemStem(name);
    int result = elemFindFile(db, dict, chapterName, chapterId, elem, outSubdir, 1);
    name.fullName = fullName;
    return result;
}

int elemLatestVersion(Database *db, ElemName *elem, int update, int *lowest, int *count) {
    int highest = -1, low = VERSION_LOWEST_START, found = 0;
    if (db && elem) {
        for (const VersionFile &v : versionFiles(*db, *elem)) {
            highest = std::max(highest, v.version);
            low = std::min(low, v.version);
            ++found;
        }
    }
    if (lowest) *lowest = low;
    if (count) *count = found;
    if (update && elem && highest >= 0 && atoi(elem->version.c_str()) != highest) {
        elem->version = std::to_string(highest);
        elem->fullName = elemNameFormat(*elem);
    }
    return highest;
}

int elemNextVersion(Database *db, const char *chapterName, const ElemName *elem) {
    if (!db || !elem) return 1;
    selectChapter(*db, chapterName);
    int highest = VERSION_SEARCH_START;
    for (const VersionFile &v : versionFiles(*db, *elem)) highest = std::max(highest, v.version);
    return highest <= VERSION_NO_ELEMENT ? 1 : highest + 1;
}

int elemPruneVersions(Database *db, const char *chapterName, const ElemName *elem) {
    if (!db || !elem) return 0;
    selectChapter(*db, chapterName);
    int keep = dbChapterVersions(db, db->chapterName.c_str());
    // Only the element's own directory: a SHARE copy belongs to every scene.
    std::vector<VersionFile> files;
    for (VersionFile &v : versionFiles(*db, *elem))
        if (v.file.subdir == elem->subdir) files.push_back(std::move(v));
    std::vector<int> versions;
    for (const VersionFile &v : files) versions.push_back(v.version);
    std::sort(versions.begin(), versions.end());
    versions.erase(std::unique(versions.begin(), versions.end()), versions.end());

    int deleted = 0;
    size_t excess = versions.size() > static_cast<size_t>(keep) ? versions.size() - keep : 0;
    for (size_t i = 0; i < excess; ++i) {  // oldest first
        for (const VersionFile &v : files) {
            if (v.version != versions[i]) continue;
            std::string dir = db->chapterPath + v.file.subdir;
            unlink((dir + v.file.fileName).c_str());
            unlink((dir + v.file.fullName + ".icn").c_str());
        }
        ++deleted;
    }
    return deleted;
}
