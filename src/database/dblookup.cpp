// Finding a database by name or by path, the handles of the TOL layer, and
// the databases that are current.
#include <dirent.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>

#include "database.h"
#include "db_internal.h"

bool dbFindExact(const DbList &list, const char *name, const char *path, int *index) {
    if (index) *index = -1;
    if (!name || !path) return false;
    for (int i = 0; i < list.count(); ++i) {
        const Database &db = list.items[i];
        if (db.name == name && db.path == path) {
            if (index) *index = i;
            return true;
        }
    }
    return false;
}

namespace {

// Shared end of the two lookups: an exact hit was handled by the caller, this
// turns the count of partial matches into the result.
int partialResult(Database *candidate, int matches, Database **db, int *count) {
    if (count) *count = matches;
    if (matches == 1) {
        if (db) *db = candidate;
        return DB_FOUND;
    }
    if (db) *db = nullptr;
    return matches == 0 ? DB_NOT_FOUND : DB_AMBIGUOUS;
}

// True when `inner` holds `outer` followed by '/' or by its end.
bool containsAsDirectory(const std::string &inner, const std::string &outer) {
    if (outer.empty()) return false;
    for (size_t at = inner.find(outer); at != std::string::npos; at = inner.find(outer, at + 1)) {
        size_t behind = at + outer.size();
        if (behind == inner.size() || inner[behind] == '/') return true;
    }
    return false;
}

}  // namespace

int dbFindByName(const DbList &list, const char *name, Database **db, int *count) {
    if (db) *db = nullptr;
    if (count) *count = 0;
    if (!name) return DB_NOT_FOUND;
    size_t length = strlen(name);
    Database *candidate = nullptr;
    int matches = 0;
    for (const Database &entry : list.items) {
        Database *item = const_cast<Database *>(&entry);
        if (entry.name == name) return partialResult(item, 1, db, count);
        if (entry.name.compare(0, length, name) == 0) {
            candidate = item;
            ++matches;
        }
    }
    return partialResult(candidate, matches, db, count);
}

int dbFindByPath(const DbList &list, const char *path, int mode, Database **db, int *count) {
    if (db) *db = nullptr;
    if (count) *count = 0;
    if (!path) return DB_NOT_FOUND;
    std::string wanted = path;
    Database *candidate = nullptr;
    int matches = 0;
    for (const Database &entry : list.items) {
        Database *item = const_cast<Database *>(&entry);
        if (entry.path == wanted) return partialResult(item, 1, db, count);
        bool hit = (mode == 2 && entry.path.find(wanted) != std::string::npos) ||
                   (mode == 3 && containsAsDirectory(wanted, entry.path));
        if (hit) {
            candidate = item;
            ++matches;
        }
    }
    return partialResult(candidate, matches, db, count);
}

Database *dbFirstValid(DbList &list) {
    for (Database &db : list.items)
        if (db.valid && db.type == DB_TYPE_ORDINARY) return &db;
    return nullptr;
}

int dbHasLocal(const DbList &list) {
    for (const Database &db : list.items)
        if (db.valid && !db.system) return 1;
    return 0;
}

void dbSetChapter(Database &db, const char *chapterName) {
    if (!chapterName) {
        db.chapterName.clear();
        db.chapterPath.clear();
        return;
    }
    db.chapterName = chapterName;
    db.chapterPath = db.path + "/" + db.chapterName + "/";
}

void dbMakeCurrent(int index) {
    if (index < 0 || index >= g_dbList.count()) index = -1;
    g_dbRead = index;
    g_dbWrite = index;
}

// ---------------------------------------------------------------------------
// Lookups of the TOL layer

namespace {

// The path made absolute by text alone, without a trailing separator.
std::string lexicalAbsolute(const std::string &path) {
    std::error_code ec;
    std::filesystem::path p = std::filesystem::absolute(dbSlashes(path), ec);
    if (ec) p = dbSlashes(path);
    std::string text = p.lexically_normal().string();
    while (text.size() > 1 && text.back() == '/') text.pop_back();
    return text;
}

bool isDirectory(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// At least two known chapter directories make a directory a database.
bool holdsChapters(const std::string &dir) {
    DIR *listing = opendir(dir.c_str());
    if (!listing) return false;
    int chapters = 0;
    while (struct dirent *entry = readdir(listing)) {
        if (entry->d_name[0] == '.' || chapterFind(entry->d_name) < 0) continue;
        if (isDirectory(dir + "/" + entry->d_name) && ++chapters >= 2) break;
    }
    closedir(listing);
    return chapters >= 2;
}

}  // namespace

TOL_Status databaseGetByPath(const char *path, Database **db) {
    if (!db) return TOL_ST_NULL_ARGUMENT;
    *db = nullptr;
    if (!path) return TOL_ST_NULL_ARGUMENT;
    std::string wanted = lexicalAbsolute(path);
    for (Database &entry : g_dbList.items) {
        if (lexicalAbsolute(entry.path) == wanted) {
            *db = &entry;
            break;
        }
    }
    return 0;
}

TOL_Status databaseGet(const char *pathOrName, Database **db) {
    if (!db) return TOL_ST_NULL_ARGUMENT;
    *db = nullptr;
    if (!pathOrName) return TOL_ST_NULL_ARGUMENT;
    if (dbIsPathText(pathOrName)) return databaseGetByPath(pathOrName, db);
    Database *found = nullptr;
    if (dbFindByName(g_dbList, pathOrName, &found, nullptr) == DB_FOUND) *db = found;
    return 0;
}

bool dbLocateRoot(const char *nameOrPath, std::string &root) {
    if (!nameOrPath || !*nameOrPath) return false;
    std::string path = dbSlashes(nameOrPath);
    if (!dbIsPathText(nameOrPath)) path = dbWorkDir() + "/" + path;
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    if (holdsChapters(path)) {
        root = path;
        return true;
    }
    // A path inside a chapter still names the database above that chapter.
    for (size_t end = path.size(); end > 0;) {
        size_t slash = path.rfind('/', end - 1);
        if (slash == std::string::npos) break;
        std::string component = path.substr(slash + 1, end - slash - 1);
        std::string parent = slash == 0 ? "/" : path.substr(0, slash);
        if (chapterFind(component.c_str()) >= 0 && holdsChapters(parent)) {
            root = parent;
            return true;
        }
        end = slash;
    }
    return false;
}

void dbShaderLibTest(Database &db) {
    static const int probes[] = {CHP_SCENES, CHP_MODELS, CHP_PICTURES};
    for (int id : probes)
        if (isDirectory(db.path + "/" + g_chapterTable[id].dir)) return;
    db.type = DB_TYPE_SHADERLIB;
}

int dbIndexOf(const Database *db) {
    if (!db || g_dbList.items.empty()) return -1;
    const Database *first = g_dbList.items.data();
    if (db < first || db >= first + g_dbList.count()) return -1;
    return static_cast<int>(db - first);
}
