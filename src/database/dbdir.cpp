// The table of databases and the two files that fill it at start-up,
// DatabaseDir.rsrc (the user's list) and DatabaseSys.rsrc (the installation's).
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "database.h"
#include "db_internal.h"
#include "bw_env.h"

DbList g_dbList;
int g_dbRead = -1;
int g_dbWrite = -1;
int g_dbSaved = -1;
std::string g_workDir;
std::string g_resourceDir;

void dbListInit(DbList &list) {
    list.items.clear();
    list.dirty = 0;
    if (&list == &g_dbList) g_dbRead = g_dbWrite = g_dbSaved = -1;
}

Database *dbAdd(DbList &list, std::string name, std::string path) {
    try {
        Database db;
        db.name = std::move(name);
        db.path = dbSlashes(std::move(path));
        list.items.push_back(std::move(db));
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
    list.dirty = 1;
    return &list.items.back();
}

// ---------------------------------------------------------------------------
// BW_CUSTOM_SHADER: the value is fetched by the first read, and the first
// database of that name becomes the shader library.

namespace {

struct CustomShader {
    bool fetched = false;
    bool matched = false;
    std::string name;
};
CustomShader customShader;

void checkCustomShader(Database &db) {
    if (!customShader.fetched) {
        const char *value = envGet(ENV_BW_CUSTOM_SHADER);
        customShader.name = value ? value : "";
        customShader.fetched = true;
    }
    if (customShader.matched || customShader.name.empty() || db.name != customShader.name) return;
    db.type = DB_TYPE_SHADERLIB;
    customShader.matched = true;
}

}  // namespace

void dbCustomShaderReset() {
    customShader = CustomShader();
    envReset();
}

// ---------------------------------------------------------------------------
// Reading a file

namespace {

enum TokenState { TOK_OK, TOK_END, TOK_LONG };

enum Action {
    ACT_NEXT,    // go on with the next keyword
    ACT_SKIP,    // pass over everything up to the next DATABASE
    ACT_END,     // stop reading the file
    ACT_FOUND,   // a good database was found and only the first was wanted
};

struct DirReader {
    FILE *file;
    const char *fileName;
    DbList &list;
    int system;
    int readAll;
    char pending[BW_TOKEN_MAX] = {};  // name of the DATABASE waiting for its PATH
    bool hasPending = false;
    bool pathSeen = false;            // a PATH was met in this file
    bool skipShaderLib = false;       // a duplicate was dropped just before
    int last = -1;                    // index of the entry this file made last
};

TokenState nextToken(DirReader &r) {
    readToken(r.file);
    if (g_tokenEnd == TOKEN_END_BAD) {
        fprintf(stderr, "\nERROR: Invalid character in file [%s]. Reading stopped.\n",
                r.fileName);
        return TOK_END;
    }
    // A last token without a line end behind it still counts.
    if (g_token[0] == '\0') return TOK_END;
    if (g_tokenTruncated) {
        fprintf(stderr, "\nERROR: Token too long in file [%s].\n", r.fileName);
        return TOK_LONG;
    }
    return TOK_OK;
}

Action readValue(DirReader &r) {
    switch (nextToken(r)) {
    case TOK_OK: return ACT_NEXT;
    case TOK_LONG: return ACT_SKIP;
    default: return ACT_END;
    }
}

// Reads on to the next DATABASE keyword; false at the end of the file.
bool skipToDatabase(DirReader &r) {
    for (;;) {
        readToken(r.file);
        if (g_tokenEnd == TOKEN_END_BAD) {
            fprintf(stderr, "\nERROR: Invalid character in file [%s]. Reading stopped.\n",
                    r.fileName);
            return false;
        }
        if (g_token[0] == '\0') return false;
        if (!g_tokenTruncated && strcmp(g_token, "DATABASE") == 0) return true;
    }
}

Database *lastMade(DirReader &r) {
    return r.last >= 0 && r.last < r.list.count() ? &r.list.items[r.last] : nullptr;
}

Action onPath(DirReader &r) {
    r.pathSeen = true;
    Action value = readValue(r);
    if (value != ACT_NEXT) return value;
    if (!r.hasPending) return ACT_NEXT;  // a PATH without a name is ignored
    r.hasPending = false;

    char path[BW_PATH_MAX];
    dbExpandPath(dbSlashes(linkTabToLocal(g_token)).c_str(), path);
    int index = -1;
    if (dbFindExact(r.list, r.pending, path, &index)) {
        r.skipShaderLib = true;  // its TYPE SHADERLIB goes with it
        return ACT_NEXT;
    }
    Database *db = dbAdd(r.list, r.pending, path);
    if (!db) return ACT_END;
    r.last = r.list.count() - 1;
    db->system = static_cast<uint16_t>(r.system);
    checkCustomShader(*db);
    if (dbScanChapters(*db, 0) == 0) {
        fprintf(stderr, "ERROR: Database %s non-existent or invalid\n", db->name.c_str());
        db->valid = 0;
        db->accessFlags[0] = 1;
        return ACT_NEXT;
    }
    return r.readAll ? ACT_NEXT : ACT_FOUND;
}

Action onKeyword(DirReader &r, const char *keyword) {
    bool afterDuplicate = r.skipShaderLib;
    r.skipShaderLib = false;

    if (strcmp(keyword, "DATABASE") == 0) {
        Action value = readValue(r);
        if (value != ACT_NEXT) return value;
        if (r.hasPending && !r.pathSeen) {
            fprintf(stderr, "\nERROR: No path found for database: [%s]\n", r.pending);
            fprintf(stderr, "       in file [%s].\n", r.fileName);
        }
        snprintf(r.pending, sizeof r.pending, "%s", g_token);
        r.hasPending = true;
        return ACT_NEXT;
    }
    if (strcmp(keyword, "PATH") == 0) return onPath(r);
    if (strcmp(keyword, "TYPE") == 0) {
        Action value = readValue(r);
        if (value != ACT_NEXT) return value;
        // The type word itself says nothing; a SHADERLIB behind TYPE is a keyword.
        if (strcmp(g_token, "SHADERLIB") != 0) return ACT_NEXT;
        keyword = "SHADERLIB";
    }
    if (strcmp(keyword, "SHADERLIB") == 0) {
        Database *db = lastMade(r);
        if (db && !afterDuplicate) db->type = DB_TYPE_SHADERLIB;
        return ACT_NEXT;
    }
    if (strcmp(keyword, "MASTER") == 0) {
        Action value = readValue(r);
        if (value != ACT_NEXT) return value;
        if (Database *db = lastMade(r)) db->system = static_cast<uint16_t>(atoi(g_token));
        return ACT_NEXT;
    }
    if (strcmp(keyword, "ACCESS") == 0) {
        Action value = readValue(r);
        if (value != ACT_NEXT) return value;
        Database *db = lastMade(r);
        printf(" Database [%s] access is -> [%s]\n", db ? db->name.c_str() : "(null)", g_token);
        return ACT_NEXT;
    }
    if (keyword[0] != '#')
        fprintf(stderr, "\nERROR: Invalid token : [%s] in file [%s].\n", keyword, r.fileName);
    return ACT_SKIP;  // '#' comments out everything up to the next DATABASE
}

}  // namespace

int dbDirRead(DbList &list, const char *file, int system, int readAll) {
    if (!readAll && list.count() > 0) return 0;
    if (!file) return 0;
    linkTabInit();
    FILE *in = fopen(file, "r");
    if (!in) return 0;

    DirReader r{in, file, list, system, readAll};
    Action action = ACT_NEXT;
    while (action == ACT_NEXT) {
        TokenState state = nextToken(r);
        if (state == TOK_END) break;
        if (state == TOK_LONG) {
            action = ACT_SKIP;
        } else {
            char keyword[BW_TOKEN_MAX];
            snprintf(keyword, sizeof keyword, "%s", g_token);
            action = onKeyword(r, keyword);
        }
        while (action == ACT_SKIP)
            action = skipToDatabase(r) ? onKeyword(r, "DATABASE") : ACT_END;
    }
    fclose(in);
    return 1;
}

int dbDirLoad(DbList &list, const char *resourceDir, int readAll) {
    bool read = false;
    if (const char *dir = envGet(ENV_BW_DBDIR)) {
        std::string file = std::string(dir) + "/DatabaseDir.rsrc";
        read = dbDirRead(list, file.c_str(), 0, readAll) != 0;
        if (!read) {
            fprintf(stderr, "\nERROR: Couldn't read the DatabaseDir.rsrc file from the path\n");
            fprintf(stderr, "         specified by BW_DBDIR: [%s]\n", dir);
        }
    }
    if (!read && !dbDirRead(list, "DatabaseDir.rsrc", 0, readAll)) {
        fprintf(stderr, "ERROR: Couldn't read the DatabaseDir.rsrc file from the\n");
        fprintf(stderr, "       current directory (check BW_DBDIR env. variable)\n");
    }

    int result = 0;
    if (!resourceDir && !g_resourceDir.empty()) resourceDir = g_resourceDir.c_str();
    if (resourceDir) {
        std::string file = std::string(resourceDir) + "/DatabaseSys.rsrc";
        result = dbDirRead(list, file.c_str(), 1, readAll);
    }

    if (&list == &g_dbList) {
        Database *first = dbFirstValid(list);
        dbMakeCurrent(first ? static_cast<int>(first - list.items.data()) : -1);
    }
    return result;
}

// ---------------------------------------------------------------------------
// Writing the file

namespace {

bool usableDirectory(const char *dir) {
    struct stat st;
    return stat(dir, &st) == 0 && S_ISDIR(st.st_mode) && access(dir, R_OK | W_OK) == 0;
}

void writeEntry(FILE *out, const Database &db) {
    fprintf(out, "DATABASE %s \n", db.name.c_str());
    fprintf(out, "PATH %s \n", linkTabToUnix(db.path).c_str());
    if (db.type == DB_TYPE_SHADERLIB) fprintf(out, "TYPE SHADERLIB \n");
}

}  // namespace

int dbDirWrite(DbList &list, const char *workDir, const char *file, int append) {
    std::string target;
    if (file) {
        target = file;
    } else {
        const char *dir = envGet(ENV_BW_DBDIR);
        if (dir && usableDirectory(dir)) {
            target = std::string(dir) + "/DatabaseDir.rsrc";
        } else {
            if (dir)
                msgError("The directory pointed by BW_DBDIR does not exist,\n"
                         "or you do not have access permission.\n"
                         "Current directory has been used for DatabaseDir.rsrc.");
            target = (workDir ? std::string(workDir) : dbWorkDir()) + "/DatabaseDir.rsrc";
        }
    }

    linkTabInit();
    FILE *out = fopen(target.c_str(), append ? "ab" : "wb");
    if (!out) return DB_DIR_NOT_OPENED;
    if (append) {
        const Database *last = list.items.empty() ? nullptr : &list.items.back();
        if (last && last->system == 0) writeEntry(out, *last);
    } else {
        for (const Database &db : list.items)
            if (db.system == 0) writeEntry(out, db);
    }
    bool failed = ferror(out) != 0;
    if (fclose(out) != 0 || failed) return DB_DIR_NOT_OPENED;
    list.dirty = 0;
    return DB_DIR_WRITTEN;
}
