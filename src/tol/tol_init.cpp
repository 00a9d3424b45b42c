// Start of the TOL layer.
#include <unistd.h>

#include <cstdio>
#include <string>

#include "database.h"
#include "tol.h"

namespace {

bool fileOpens(const std::string &path) {
    FILE *f = fopen(path.c_str(), "r");
    if (!f) return false;
    fclose(f);
    return true;
}

}  // namespace

TOL_Status TOL_Init(const char *resourcePath, int readDatabases, const char *sdkVersion) {
    if (!resourcePath) return tol_report(16, "TOL_Init():path:");

    char cwd[BW_PATH_MAX];
    g_workDir = getcwd(cwd, sizeof cwd) ? cwd : "";
    g_resourceDir = resourcePath;

    // The relation resources are looked for behind the working directory first,
    // then behind the resource path.
    std::string tried = g_workDir + "/Relations.rsrc";
    if (!fileOpens(tried)) {
        tried = std::string(resourcePath) + "/Relations.rsrc";
        if (!fileOpens(tried)) return tol_report(30, "TOL_Init", tried.c_str());
    }

    noInterface = 1;
    dbListInit(g_dbList);
    g_dbRead = g_dbWrite = g_dbSaved = -1;

    if (readDatabases) {
        dbDirLoad(g_dbList, resourcePath, 1);
        if (g_dbRead < 0) printf("ERROR: No valid Database where the scene could be found\n");
    }
    return TOL_sceneInitInternal(sdkVersion);
}
