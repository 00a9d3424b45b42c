// The lock of a database, taken by the browser and by saving so that two
// sessions do not write the same database at once.
#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "database.h"
#include "bw_env.h"

char g_dbLockText[DB_LOCK_TEXT_MAX + 1] = "";

namespace {

// The lock file's path; false when it does not fit the buffer.
bool lockPath(const Database &db, char (&path)[BW_PATH_MAX]) {
    int n = snprintf(path, sizeof path, "%s/BW_DB_LOCK__", db.path.c_str());
    return n > 0 && n < BW_PATH_MAX;
}

const char *userName() {
    for (EnvVar variable : {ENV_USER, ENV_LOGNAME}) {
        const char *value = envGet(variable);
        if (value && *value) return value;
    }
    const struct passwd *entry = getpwuid(geteuid());
    return entry && entry->pw_name ? entry->pw_name : "unknown";
}

// Writes the one line that tells others who holds the lock. A file that cannot
// be made is not reported: the lock then holds nobody out.
void writeLock(const char *path) {
    FILE *out = fopen(path, "w");
    if (!out) return;
    char when[64] = "";
    time_t now = time(nullptr);
    struct tm local;
    if (localtime_r(&now, &local)) strftime(when, sizeof when, "%y/%m/%d %H:%M", &local);
    fprintf(out, "Locked by user %s on %s \n", userName(), when);
    fclose(out);
}

}  // namespace

int dbLock(Database *db, int mode) {
    if (!db) return 0;
    char path[BW_PATH_MAX];
    bool fits = lockPath(*db, path);
    switch (mode) {
    case DB_LOCK_TAKE:
        if (fits && access(path, F_OK) == 0) {
            FILE *in = fopen(path, "r");
            if (!in) {
                snprintf(g_dbLockText, sizeof g_dbLockText, "%s",
                         "Lock in progress. (file not readable)");
                return 0;
            }
            size_t n = fread(g_dbLockText, 1, DB_LOCK_TEXT_MAX, in);
            g_dbLockText[n] = '\0';
            fclose(in);
            return 0;
        }
        if (fits) writeLock(path);
        return 1;
    case DB_LOCK_FORCE:
        if (fits) writeLock(path);
        return 1;
    case DB_LOCK_RELEASE:
        return fits && access(path, F_OK) == 0 && unlink(path) == 0 ? 1 : 0;
    default:
        return 0;
    }
}
