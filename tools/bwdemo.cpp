// bwdemo OUTDIR: writes the demo database through our own writers.
//
// OUTDIR/DatabaseDir.rsrc names the database "demo", OUTDIR/demo holds its
// chapters. The scenes are empty until the scene writer exists: "intro" is the
// older one and "demo" the newest, so that the viewer picks "demo" when no scene
// is named.
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <string>

#include "database.h"

namespace {

int writeScene(const std::string &path, time_t when) {
    FILE *f = fopen(path.c_str(), "wb");
    if (!f) {
        fprintf(stderr, "bwdemo: cannot write %s\n", path.c_str());
        return 0;
    }
    fclose(f);
    struct timeval times[2] = {{when, 0}, {when, 0}};
    utimes(path.c_str(), times);
    return 1;
}

}  // namespace

int main(int argc, char *argv[]) {
    if (argc != 2) {
        fprintf(stderr, "Usage: %s OUTDIR\n", argv[0]);
        return 2;
    }
    std::string out = argv[1];
    mkdir(out.c_str(), 0755);
    std::string dbPath = out + "/demo";
    std::string dirFile = out + "/DatabaseDir.rsrc";
    if (access(dbPath.c_str(), F_OK) == 0) {
        fprintf(stderr, "bwdemo: %s exists already; remove it to write a fresh demo\n",
                dbPath.c_str());
        return 1;
    }
    remove(dirFile.c_str());

    int result = dbCreate(g_dbList, "demo", dbPath.c_str(), dirFile.c_str());
    if (result != DB_CREATE_OK) {
        fprintf(stderr, "bwdemo: cannot create the database at %s (code %d)\n", dbPath.c_str(),
                result);
        return 1;
    }
    time_t now = time(nullptr);
    std::string scenes = dbPath + "/SCENES/";
    if (!writeScene(scenes + "intro.1-0.dsc", now - 3600) ||
        !writeScene(scenes + "demo.1-0.dsc", now))
        return 1;
    printf("Demo database written to %s\n", dbPath.c_str());
    return 0;
}
