// The scratch directory of a fuzz target: one per process under /dev/shm
// (memory, so that millions of inputs wear no disk), emptied and removed at
// exit. Every reader here takes a path, so each input goes through a file.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tol_status.h"

namespace fuzz {

inline std::string &scratchDir() {
    static std::string dir;
    return dir;
}

inline void scratchRemove() {
    const std::string &dir = scratchDir();
    if (DIR *d = opendir(dir.c_str())) {
        while (dirent *e = readdir(d))
            if (e->d_name[0] != '.') unlink((dir + "/" + e->d_name).c_str());
        closedir(d);
    }
    rmdir(dir.c_str());
}

// Makes the directory of `target` (its name in the directory's and in the
// message when it cannot be made, which stops the run).
inline void scratchInit(const char *target) {
    std::string pattern = std::string("/dev/shm/") + target + ".XXXXXX";
    if (!mkdtemp(pattern.data())) {
        perror((std::string(target) + ": mkdtemp").c_str());
        abort();
    }
    scratchDir() = pattern;
    atexit(scratchRemove);
}

// The start of a file reader's target: damaged input is the normal case, so
// reports below errors are off and standard output (where some readers print
// a line per damaged record) goes nowhere; libFuzzer reports on stderr.
inline void readerInit(const char *target) {
    tol_setMinimumClass(TOL_CLASS_MODE + 1);
    if (!freopen("/dev/null", "w", stdout)) abort();
    scratchInit(target);
}

// The path of `name` in the scratch directory.
inline std::string scratch(const std::string &name) { return scratchDir() + "/" + name; }

// Writes the input to `path`; false when it could not be written whole.
inline bool writeFile(const std::string &path, const uint8_t *data, size_t size) {
    FILE *f = fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool written = fwrite(data, 1, size, f) == size;
    return fclose(f) == 0 && written;
}

}  // namespace fuzz
