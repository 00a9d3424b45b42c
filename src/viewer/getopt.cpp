// The viewer's own option reader. It is not the C library's: the first word that
// is no option ends the reading, clusters such as -kc count only their first
// letter, and reaching the end resets optind for the next caller.
#include <cstdio>
#include <cstring>

#include "viewer.h"

namespace viewer_getopt {

int optind = 1;
int opterr = 1;
char *optarg = nullptr;

int getopt(int argc, char *const argv[], const char *optstring) {
    optarg = nullptr;
    if (optind >= argc) {
        optind = 1;
        return -1;
    }
    const char *word = argv[optind];
    if (word[0] != '-') {
        ++optind;
        return -1;
    }
    int letter = static_cast<unsigned char>(word[1]);
    const char *spec = letter && letter != ':' ? strchr(optstring, letter) : nullptr;
    if (!spec) {
        if (opterr) fprintf(stderr, "%s: Illegal option -- %s\n", argv[0], word + 1);
        ++optind;
        return '?';
    }
    ++optind;
    if (spec[1] != ':') return letter;
    if (word[2] != '\0') {
        optarg = const_cast<char *>(word + 2);
    } else if (optind < argc) {
        optarg = argv[optind++];
    } else {
        if (opterr) fprintf(stderr, "%s: Option requires an argument -- %s\n", argv[0], word + 1);
        return '?';
    }
    return letter;
}

int getsubopt(char **optionp, char *const *tokens, char **valuep) {
    *valuep = nullptr;
    char *start = *optionp;
    if (!start || !*start) return -1;
    char *end = strchr(start, ',');
    if (end) {
        *end = '\0';
        *optionp = end + 1;
    } else {
        *optionp = start + strlen(start);
    }
    char *equals = strchr(start, '=');
    size_t keyLength = equals ? static_cast<size_t>(equals - start) : strlen(start);
    for (int i = 0; tokens[i]; ++i) {
        if (strlen(tokens[i]) == keyLength && strncmp(tokens[i], start, keyLength) == 0) {
            *valuep = equals ? equals + 1 : nullptr;
            return i;
        }
    }
    *valuep = start;  // the whole sub-option, for the caller's message
    return -1;
}

}  // namespace viewer_getopt
