// Making and removing database directories.
#include <dirent.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>

#include "database.h"
#include "db_internal.h"

namespace {

bool isDirectory(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// True when some chapter directory holds an element file. The chapter's own
// Chapter.rsrc and hidden files are no elements; links are not followed.
bool holdsElements(const std::string &dbPath) {
    namespace fs = std::filesystem;
    std::error_code ec;
    for (fs::directory_iterator chapter(dbPath, ec), end; !ec && chapter != end;
         chapter.increment(ec)) {
        if (!chapter->is_directory(ec) || chapter->path().filename().string()[0] == '.') continue;
        fs::recursive_directory_iterator it(chapter->path(),
                                            fs::directory_options::skip_permission_denied, ec);
        for (fs::recursive_directory_iterator stop; !ec && it != stop; it.increment(ec)) {
            std::string name = it->path().filename().string();
            if (name[0] == '.') {
                if (it->is_directory(ec)) it.disable_recursion_pending();
                continue;
            }
            if (it->is_directory(ec) && !it->is_symlink(ec)) continue;
            if (it.depth() == 0 && name == "Chapter.rsrc") continue;
            return true;
        }
    }
    return false;
}

void shiftCurrent(int &current, int removed) {
    if (current == removed)
        current = -1;
    else if (current > removed)
        --current;
}

}  // namespace

int dbRemove(DbList &list, Database *db, int deleteDir, int checkEmpty, int silent,
             const char *workDir) {
    if (!db || list.items.empty()) return DB_NOT_FOUND;
    const Database *first = list.items.data();
    if (db < first || db >= first + list.count()) return DB_NOT_FOUND;
    int index = static_cast<int>(db - first);

    if (deleteDir) {
        if (checkEmpty && holdsElements(db->path)) return DB_REMOVE_NOT_EMPTY;
        // Never the root, never an empty path; remove_all takes links away
        // without following them.
        std::string path = db->path;
        while (path.size() > 1 && path.back() == '/') path.pop_back();
        if (path.empty() || path == "/") return DB_REMOVE_REFUSED;
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
        if (ec) return DB_REMOVE_REFUSED;
    }

    list.items.erase(list.items.begin() + index);
    if (&list == &g_dbList) {
        shiftCurrent(g_dbRead, index);
        shiftCurrent(g_dbWrite, index);
        shiftCurrent(g_dbSaved, index);
    }
    if (!silent && dbDirWrite(list, workDir, nullptr, 0) != DB_DIR_WRITTEN)
        return DB_DIR_NOT_OPENED;
    return deleteDir ? DB_REMOVED_WITH_DIR : DB_REMOVED;
}

int dbCreate(DbList &list, const char *name, const char *path, const char *dirFile) {
    if (!name || !*name || !path || !*path) return DB_CREATE_NO_DIR;
    char expanded[BW_PATH_MAX];
    dbExpandPath(dbSlashes(path).c_str(), expanded);
    std::string dir = expanded;

    if (dbFindExact(list, name, dir.c_str(), nullptr)) return DB_CREATE_KNOWN;
    int inside = 0;
    dbFindByPath(list, dir.c_str(), 3, nullptr, &inside);
    std::string root;
    if (inside > 0 || dbLocateRoot(dir.c_str(), root)) return DB_CREATE_INSIDE;
    struct stat st;
    if (lstat(dir.c_str(), &st) == 0) return DB_CREATE_EXISTS;

    if (mkdir(dir.c_str(), 0777) != 0 || !isDirectory(dir)) return DB_CREATE_NO_DIR;

    Database *db = dbAdd(list, name, dir);
    if (!db) return DB_CREATE_NO_DIR;
    for (const ChapterRow &row : g_chapterTable) {
        if (row.kind != CHAPTER_FILES) continue;
        std::string chapter = dir + "/" + row.dir;
        FILE *rsrc = nullptr;
        if (mkdir(chapter.c_str(), 0777) == 0)
            rsrc = fopen((chapter + "/Chapter.rsrc").c_str(), "wb");
        const char *suffix = row.suffix ? row.suffix : "";
        bool written = rsrc && fprintf(rsrc, "SUFFIX %s \nVERSIONS 4 \n", suffix) > 0;
        if (rsrc && fclose(rsrc) != 0) written = false;
        if (!written) {
            db->valid = 0;
            db->accessFlags[0] = 1;
            return DB_CREATE_NO_CHAPTER;
        }
    }
    dbScanChapters(*db, 0);
    if (dbDirWrite(list, nullptr, dirFile, 1) != DB_DIR_WRITTEN) return DB_CREATE_NOT_LISTED;
    return DB_CREATE_OK;
}
