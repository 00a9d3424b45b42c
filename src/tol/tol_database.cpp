// The layer's entry points of the database table: a database by name or path
// turned into a handle, and a handle into the core's record.
#include <cstdio>
#include <string>

#include "database.h"
#include "tol.h"

TOL_Status TOL_databaseIsExistent(const char *nameOrPath, int *exists) {
    if (!nameOrPath) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_databaseIsExistent():dbname:");
    if (!exists) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_databaseIsExistent():exists:");
    std::string root;
    *exists = dbLocateRoot(nameOrPath, root) ? 1 : 0;
    return 0;
}

namespace {

TOL_Status notADatabase(const char *path) {
    if (dbIsPathText(path)) return tol_report(TOL_ST_NOT_A_DATABASE_PATH, "TOL_databaseLoad()", path);
    return tol_report(TOL_ST_DATABASE_NOT_FOUND, "TOL_databaseLoad()", path);
}

TOL_Status knownDatabase(Database *db, TOL_Database *handle) {
    dbShaderLibTest(*db);
    *handle = dbIndexOf(db) + 1;
    return 0;
}

}  // namespace

TOL_Status TOL_databaseLoad(const char *path, TOL_Database *handle) {
    if (!path) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_databaseLoad():dbpath:");
    if (!handle) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_databaseLoad():dbase:");
    *handle = 0;

    Database *db = nullptr;
    databaseGet(path, &db);
    if (db) return knownDatabase(db, handle);

    std::string root;
    if (!dbLocateRoot(path, root)) return notADatabase(path);
    // A path inside a chapter may lead to a database the table holds already.
    databaseGetByPath(root.c_str(), &db);
    if (db) return knownDatabase(db, handle);

    size_t slash = root.find_last_of('/');
    std::string base = slash == std::string::npos ? root : root.substr(slash + 1);
    if (base.empty()) base = root;

    int savedRead = g_dbRead, savedWrite = g_dbWrite, savedOther = g_dbSaved;

    // The test matches unique prefixes as well, so a name that is only the
    // start of a known one is numbered too.
    std::string name = base;
    for (int n = 1; dbFindByName(g_dbList, name.c_str(), nullptr, nullptr) == DB_FOUND; ++n) {
        char numbered[BW_TOKEN_MAX];
        snprintf(numbered, sizeof numbered, "%s%d", base.c_str(), n);
        name = numbered;
    }

    db = dbAdd(g_dbList, name, root);
    if (!db) return tol_report(TOL_ST_OUT_OF_MEMORY, "TOL_databaseLoad");
    if (dbScanChapters(*db, 1) < 1) {
        dbRemove(g_dbList, db, 0, 0, 1, nullptr);
        g_dbRead = savedRead;
        g_dbWrite = savedWrite;
        g_dbSaved = savedOther;
        return notADatabase(path);
    }

    g_dbRead = savedRead;
    g_dbWrite = savedWrite;
    g_dbSaved = savedOther;
    return knownDatabase(db, handle);
}

TOL_Status TOL_databaseTOL2BRAK(TOL_Database handle, Database **db) {
    if (!db) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_databaseTOL2BRAK():db:");
    *db = nullptr;
    // The range check guards every call; the verification bit for database
    // handles asks for the same check.
    if (handle < 1 || handle > g_dbList.count()) return tol_report(TOL_ST_INVALID_DATABASE, "TOL_databaseTOL2BRAK()");
    *db = &g_dbList.items[handle - 1];
    return 0;
}

TOL_Database TOL_dbGet(const char *name) {
    if (!name) return 0;
    for (int i = 0; i < g_dbList.count(); ++i)
        if (g_dbList.items[i].name == name) return i + 1;
    Database *db = nullptr;
    if (dbFindByName(g_dbList, name, &db, nullptr) == DB_FOUND) return dbIndexOf(db) + 1;
    return 0;
}

TOL_Database TOL_toolDatabase(const char *tool, const char *nameOrPath) {
    TOL_Database handle = TOL_dbGet(nameOrPath);
    if (handle == 0 && TOL_databaseLoad(nameOrPath, &handle) != 0) handle = 0;
    Database *db = nullptr;
    if (handle && (TOL_databaseTOL2BRAK(handle, &db) != 0 || !db || !db->valid)) handle = 0;
    if (!handle) fprintf(stderr, "%s: no valid database '%s'\n", tool, nameOrPath);
    return handle;
}
