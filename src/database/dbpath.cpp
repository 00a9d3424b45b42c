// Paths of the database files: the link table, environment and home
// expansion, and the small path helpers of the subsystem.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "database.h"
#include "db_internal.h"
#include "bw_env.h"

// The link table translates between the path rules of a database file and
// those of the local file system. Here both are UNIX rules, the table holds
// nothing, and so BW_LINKTAB_DEBUG has no rule to trace.
void linkTabInit() {}
std::string linkTabToLocal(const std::string &path) { return path; }
std::string linkTabToUnix(const std::string &path) { return path; }

bool dbIsPathText(const char *text) {
    return text && (strchr(text, '/') || strchr(text, '\\') || strchr(text, ':'));
}

std::string dbSlashes(std::string path) {
    for (char &c : path)
        if (c == '\\') c = '/';
    return path;
}

std::string dbWorkDir() {
    if (!g_workDir.empty()) return g_workDir;
    char here[BW_PATH_MAX];
    if (getcwd(here, sizeof here)) return here;
    return ".";
}

namespace {

// $NAME runs; a name ends at '/' or at the end. Undefined names stay.
std::string expandVariables(const std::string &in) {
    std::string out;
    size_t i = 0;
    while (i < in.size()) {
        if (in[i] != '$') {
            out += in[i++];
            continue;
        }
        size_t end = in.find('/', i + 1);
        if (end == std::string::npos) end = in.size();
        std::string name = in.substr(i + 1, end - i - 1);
        const char *value = envLookup(name.c_str());
        out += value ? std::string(value) : in.substr(i, end - i);
        i = end;
    }
    return out;
}

// A leading "~/" or lone "~" is the home directory; "~user" stays.
std::string expandHome(const std::string &in) {
    if (in.empty() || in[0] != '~' || (in.size() > 1 && in[1] != '/')) return in;
    const char *home = envGet(ENV_HOME);
    return home ? std::string(home) + in.substr(1) : in;
}

// Each "/../" removes the component before it; one with no component before
// it ends the folding.
std::string foldParents(std::string path) {
    for (;;) {
        size_t up = path.find("/../");
        if (up == std::string::npos || up == 0) break;
        size_t start = path.rfind('/', up - 1);
        if (start == std::string::npos)
            path = path.substr(up + 4);  // "a/../b" leaves "b"
        else
            path = path.substr(0, start) + path.substr(up + 3);
    }
    return path;
}

}  // namespace

void dbExpandPath(const char *in, char *out) {
    if (!out) return;
    std::string path = in ? in : "";
    path = foldParents(expandHome(expandVariables(path)));
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    size_t length = std::min(path.size(), static_cast<size_t>(BW_PATH_MAX - 1));
    memcpy(out, path.data(), length);
    out[length] = '\0';
}
