// The take directory: which takes a take set holds, and the number the next
// one gets.
#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "channel.h"

namespace {

constexpr int kTakeDigits = 4;        // digits of the number in "TAKE.%04d"
constexpr size_t kPathLimit = 260;    // longest absolute path the scan takes

// The number of a name that reads "TAKE." and exactly four digits, else -1.
int takeNumberOf(const char *name) {
    if (strncmp(name, "TAKE.", 5) != 0) return -1;
    const char *digits = name + 5;
    int count = 0;
    while (digits[count] >= '0' && digits[count] <= '9') ++count;
    if (count != kTakeDigits || digits[count] != 0) return -1;
    return atoi(digits);
}

struct Entry {
    std::string name;  // entry of the take set
    int number;        // its take number
};

}  // namespace

int takeDirScan(const char *path, TakeDirQuery *query) {
    if (!path || !*path || !query || (query->mode != TAKE_SCAN_NEWEST && query->mode != TAKE_SCAN_LAST))
        return TAKE_SCAN_BAD_ARGUMENT;
    std::string absolute = path;
    if (absolute[0] != '/') {
        char cwd[PATH_MAX];
        if (!getcwd(cwd, sizeof cwd)) return TAKE_SCAN_BAD_ARGUMENT;
        absolute = std::string(cwd) + "/" + absolute;
    }
    if (absolute.size() > kPathLimit) return TAKE_SCAN_BAD_ARGUMENT;
    DIR *dir = opendir(absolute.c_str());
    if (!dir) return TAKE_SCAN_NONE;
    std::vector<Entry> entries;
    while (const dirent *e = readdir(dir)) {
        const int number = takeNumberOf(e->d_name);
        if (number < 0) continue;
        if (query->mode == TAKE_SCAN_LAST && number < query->first) continue;
        entries.push_back({e->d_name, number});
    }
    closedir(dir);
    std::stable_sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) {
        return strcasecmp(a.name.c_str(), b.name.c_str()) < 0;
    });
    const Entry *found = nullptr;
    if (query->mode == TAKE_SCAN_LAST) {
        if (!entries.empty()) found = &entries.back();
    } else {
        // The newest directory; on equal times the first in the order.
        timespec newest{};
        for (const Entry &e : entries) {
            struct stat st;
            if (stat((absolute + "/" + e.name).c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) continue;
            if (!found || st.st_mtim.tv_sec > newest.tv_sec ||
                (st.st_mtim.tv_sec == newest.tv_sec && st.st_mtim.tv_nsec > newest.tv_nsec)) {
                found = &e;
                newest = st.st_mtim;
            }
        }
    }
    if (!found) return TAKE_SCAN_NONE;
    query->number = found->number;
    snprintf(query->name, sizeof query->name, "%s", found->name.c_str());
    return TAKE_SCAN_FOUND;
}

int takeNextNumber(const char *path, int startNumber) {
    struct stat st;
    if (!path || stat(path, &st) != 0) return -1;
    TakeDirQuery query;
    query.mode = TAKE_SCAN_LAST;
    query.first = startNumber;
    switch (takeDirScan(path, &query)) {
    case TAKE_SCAN_FOUND: return query.number + 1;
    case TAKE_SCAN_NONE: return startNumber;
    default: return -1;
    }
}

std::string takeSetPath(const char *takeDir, const char *takeName) {
    return std::string(takeDir ? takeDir : "") + "/" + (takeName ? takeName : "") + ".CHD";
}

std::string takeDirPath(const char *takeDir, const char *takeName, int takeNumber) {
    char leaf[32];
    snprintf(leaf, sizeof leaf, "TAKE.%04d", takeNumber);
    return takeSetPath(takeDir, takeName) + "/" + leaf;
}

std::string takeDataPath(const char *takeDir, const char *takeName, int takeNumber,
                         const char *driverName, int driver) {
    char index[16];
    snprintf(index, sizeof index, ".%02d.chd", driver);
    return takeDirPath(takeDir, takeName, takeNumber) + "/" + (driverName ? driverName : "") + index;
}
