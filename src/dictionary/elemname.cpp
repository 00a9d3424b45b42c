// Element names: taking a file name apart, building it back, cleaning texts
// for use in file names and the order in which names are listed.
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "dictionary.h"

int loadInProgress = 0;

ElemName *elemNameNew() {
    ElemName *name = new ElemName;
    name->time = static_cast<int32_t>(::time(nullptr));
    return name;
}

void elemNameFree(ElemName *name) { delete name; }

namespace {

// One decimal number as "%d" reads it: blanks, a sign, digits. False when no
// digit stands there or the value leaves the int range.
bool readInt(const char *&p, int &value) {
    char *end = nullptr;
    errno = 0;
    long v = strtol(p, &end, 10);
    if (end == p || errno == ERANGE || v < INT_MIN || v > INT_MAX) return false;
    value = static_cast<int>(v);
    p = end;
    return true;
}

}  // namespace

bool elemNameIsVersionStamp(const char *text, int *version, int *revision) {
    if (!text) return false;
    const char *p = text;
    int v = 0, r = 0;
    if (!readInt(p, v) || *p == '\0') return false;
    ++p;  // the one separating character, whatever it is
    if (!readInt(p, r)) return false;
    // Only a stamp that prints back the same is one: "03-0" and "3_0" are not.
    char back[32];
    snprintf(back, sizeof back, "%d-%d", v, r);
    if (strcmp(back, text) != 0) return false;
    if (version) *version = v;
    if (revision) *revision = r;
    return true;
}

int elemNameSplit(const char *fileName, std::string &prefix, std::string &name,
                  std::string &version, std::string &revision, std::string &suffix) {
    if (!fileName) return 0;
    std::string rest = fileName;
    version = "1";
    revision = "0";
    suffix.clear();
    int v = 0, r = 0;
    size_t dot = rest.rfind('.');
    if (dot != std::string::npos) {
        std::string tail = rest.substr(dot + 1);
        if (elemNameIsVersionStamp(tail.c_str(), &v, &r)) {
            version = std::to_string(v);
            revision = std::to_string(r);
            rest.resize(dot);
        } else {
            rest.resize(dot);
            size_t second = rest.rfind('.');
            if (second != std::string::npos) {
                // A stamp before the suffix, or a dotted name whose second dot
                // goes with the suffix.
                if (elemNameIsVersionStamp(rest.c_str() + second + 1, &v, &r)) {
                    version = std::to_string(v);
                    revision = std::to_string(r);
                    suffix = tail;
                }
                rest.resize(second);
            }
        }
    }
    size_t dash = rest.find('-');
    if (dash == std::string::npos || dash == 0 || rest[dash - 1] == '.') {
        prefix.clear();
        name = rest;
    } else {
        prefix = rest.substr(0, dash);
        name = rest.substr(dash + 1);
    }
    return 1;
}

ElemName *elemNameParse(const char *fileName, const char *alias, int stripSuffix) {
    if (!fileName) return nullptr;
    ElemName *name = elemNameNew();
    std::string suffix;
    elemNameSplit(fileName, name->prefix, name->name, name->version, name->revision, suffix);
    name->alias = alias ? alias : "";
    name->fullName = fileName;
    if (stripSuffix) {
        // A '-' behind the last '.' belongs to a version stamp: no suffix to cut.
        size_t dot = name->fullName.rfind('.');
        size_t dash = name->fullName.rfind('-');
        if (dot != std::string::npos && (dash == std::string::npos || dot > dash))
            name->fullName.resize(dot);
    }
    return name;
}

std::string elemNameFormat(const ElemName &name) {
    std::string prefix = elemNameSanitize(name.prefix, 1);
    std::string own = elemNameSanitize(name.name, 0);
    std::string out = prefix.empty() ? own : prefix + "-" + own;
    return out + "." + name.version + "-" + name.revision;
}

std::string elemNameSanitize(const std::string &text, int isPrefix) {
    constexpr size_t kMax = 99;  // longest name part a file name may carry
    std::string out = text.substr(0, kMax);
    if (out.empty()) return out;
    static const char kSpecial[] = "!\"#$%&'()*+,:;<=>?@[\\]^`{|}~";
    // While a scene is read, names stay as the file has them so that
    // references inside the scene still match.
    bool strict = !loadInProgress;
    bool dashInName = out[0] == '-';
    for (size_t i = 0; i < out.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(out[i]);
        if (c < 32 || c > 126) continue;
        if (c == ' ' || c == '/') {
            out[i] = '_';
        } else if (strchr(kSpecial, c)) {
            if (strict) out[i] = '_';
        } else if (c == '.') {
            // A prefix ending in '.' would run into the name's separator.
            if (strict && isPrefix && i + 1 == out.size()) out[i] = '_';
        } else if (c == '-') {
            if (strict && (isPrefix || dashInName)) out[i] = '_';
        }
    }
    return out;
}

namespace {

// Sort weight of one character: case folded, '_' just below '0'.
int weight(unsigned char c) {
    if (c == '_') return '0' * 2 - 1;
    return tolower(c) * 2;
}

}  // namespace

int elemNameCompare(const char *a, const char *b) {
    if (!a || !b) return (a ? 1 : 0) - (b ? 1 : 0);
    const unsigned char *p = reinterpret_cast<const unsigned char *>(a);
    const unsigned char *q = reinterpret_cast<const unsigned char *>(b);
    for (;; ++p, ++q) {
        int wp = *p ? weight(*p) : -1;
        int wq = *q ? weight(*q) : -1;
        if (wp != wq) return wp < wq ? -1 : 1;
        if (!*p) return 0;
    }
}
