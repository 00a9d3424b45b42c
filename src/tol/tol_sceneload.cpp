// Loading a scene: the name a user gives becomes the file of the newest version.
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "database.h"
#include "dictionary.h"
#include "tol.h"
#include "tol_internal.h"

namespace {

struct VersionWanted {
    std::string stem;      // formatted prefix-name
    std::string revision;  // "" for any
};

// A file of the element: "<stem>.<version>-<revision>..." and no icon file.
bool versionPredicate(const char *fileName, const void *arg) {
    const VersionWanted &w = *static_cast<const VersionWanted *>(arg);
    size_t n = strlen(fileName);
    if (n >= 4 && strcasecmp(fileName + n - 4, ".icn") == 0) return false;
    if (strncmp(fileName, w.stem.c_str(), w.stem.size()) != 0 || fileName[w.stem.size()] != '.')
        return false;
    if (w.revision.empty()) return true;
    const char *dash = strchr(fileName + w.stem.size() + 1, '-');
    if (!dash) return false;
    const char *end = strchr(dash + 1, '.');
    size_t len = end ? static_cast<size_t>(end - dash - 1) : strlen(dash + 1);
    return len == w.revision.size() && strncmp(dash + 1, w.revision.c_str(), len) == 0;
}

// Highest version on disk of `stem` in the database's selected chapter, -1 for none.
int latestVersion(Database &db, const std::string &stem, int *lowest, int *count) {
    VersionWanted wanted{stem, ""};
    int highest = -1;
    *lowest = 99999;
    *count = 0;
    for (const ScannedFile &f : chapterScanDir(db.chapterPath, versionPredicate, &wanted, 1)) {
        if (f.mode & 0x4000) continue;
        int version = atoi(f.fileName.c_str() + stem.size() + 1);
        if (version > highest) highest = version;
        if (version < *lowest) *lowest = version;
        ++*count;
    }
    return highest;
}

bool readable(const std::string &path) { return access(path.c_str(), R_OK) == 0; }

// Where a scene element's file lies: in the chapter, else without version stamp.
bool sceneFileFound(Database &db, const ElemName &name, std::string *path) {
    std::string suffix = g_chapterTable[CHP_SCENES].suffix;
    for (const std::string &stem : {name.fullName, elemNameFormat(name).substr(
                                                       0, elemNameFormat(name).rfind('.'))}) {
        *path = db.chapterPath + name.subdir + stem + "." + suffix;
        if (readable(*path)) return true;
    }
    return false;
}

}  // namespace

TOL_Status tol_elementGetLatestVersion(const char *elementName, Database *db,
                                       const char *chapterName, char **latest) {
    if (!elementName) return tol_report(16, "tol_elementGetLatestVersionelementName:");
    if (!db) return tol_report(16, "tol_elementGetLatestVersiondbi:");
    if (!chapterName) return tol_report(16, "tol_elementGetLatestVersionchapterName:");
    if (!latest) return tol_report(16, "tol_elementGetLatestVersionlatestVersion:");
    dbSetChapter(*db, chapterName);
    std::string prefix, name, version, revision, suffix;
    elemNameSplit(elementName, prefix, name, version, revision, suffix);
    ElemName scratch;
    scratch.prefix = prefix;
    scratch.name = name;
    scratch.revision = revision;
    scratch.version = "0";
    std::string stem = elemNameFormat(scratch);
    stem = stem.substr(0, stem.rfind('.'));
    int lowest = 0, count = 0;
    int highest = latestVersion(*db, stem, &lowest, &count);
    scratch.version = std::to_string(highest < 0 ? 0 : highest);
    *latest = strdup(elemNameFormat(scratch).c_str());
    if (!*latest) return tol_report(70, "tol_elementGetLatestVersion");
    return 0;
}

TOL_Status TOL_sceneLoad(TOL_Database *dbHandle, const char *name, TOL_Scene *scene) {
    if (!name) return tol_report(16, "TOL_sceneLoad():scn_name:");
    if (!dbHandle) return tol_report(16, "TOL_sceneLoad():db:");
    if (!scene) return tol_report(16, "TOL_sceneLoad():scn:");

    TolSceneFrame frame(scene);
    TOL_Status status = frame.status();
    bool swapped = frame.swapped();
    Database *db = nullptr;
    if (status == 0) status = TOL_databaseTOL2BRAK(*dbHandle, &db);

    if (status == 0) {
        int previousRead = g_dbRead;
        g_dbRead = *dbHandle - 1;
        uint32_t savedRunFlags = g_runFlags;
        int savedNoInterface = noInterface;
        if (swapped) {
            g_runFlags &= ~1u;
            noInterface = 1;
        }

        // A known chapter suffix is cut; a bare name then takes its newest version.
        std::string loading = name;
        size_t dot = loading.rfind('.');
        bool lookUp = dot == std::string::npos;
        if (!lookUp && dot + 1 < loading.size() &&
            chapterFindBySuffix(loading.c_str() + dot + 1) >= 0) {
            std::string bare = loading.substr(0, dot);
            if (bare.find('.') == std::string::npos) {
                loading = bare;
                lookUp = true;
            }
        }
        if (lookUp) {
            char *latest = nullptr;
            status = tol_elementGetLatestVersion(loading.c_str(), db, "SCENES", &latest);
            if (status == 0) loading = latest;
            free(latest);
        }

        if (status == 0) {
            dbSetChapter(*db, "SCENES");
            ElemName *elemName = elemNameParse(loading.c_str(), nullptr, 1);
            std::string path;
            bool found = elemName && sceneFileFound(*db, *elemName, &path);
            elemNameFree(elemName);
            // The file's content is read here once scene files are understood.
            if (!found) status = tol_report(45, "TOL_sceneLoad:", loading.c_str());
        }
        if (status == 0) {
            TOL_Scene current;  // keeps the loaded play, render and action control
            TOL_sceneGetCurrent(&current);
        }

        g_dbRead = previousRead;
        g_runFlags = savedRunFlags;
        noInterface = savedNoInterface;
    }
    return frame.finish(status);
}
