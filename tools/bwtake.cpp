// bwtake: what a take file holds. Prints the header's fields and the records,
// one a line, then whether the file is whole; or the records as CSV.
//
//   bwtake PATH
//   bwtake --csv PATH
//
// Exit status: 0 for a complete file, 1 for one without its end mark (cut, or
// with something that is not a record after its last record), 2 when the file
// cannot be read or its header is wrong, or for a bad command line.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "channel.h"

namespace {

void usage() { fprintf(stderr, "usage: bwtake [--csv] PATH\n"); }

void printHeader(const TakeFile &t) {
    const char *type = takeFileTypeName(t.type);
    printf("%s\n", t.path.c_str());
    printf("  %-11s : %f\n", "VERSION", double(t.version));
    printf("  %-11s : %s\n", "FILE_TYPE", type ? type : "?");
    printf("  %-11s : %s\n", "TAKE_FILE", t.takeFile.c_str());
    printf("  %-11s : %s\n", "SCENE_NAME", t.sceneName.c_str());
    printf("  %-11s : %s\n", "DRIVER_NAME", t.driverName.c_str());
    printf("  %-11s : %d\n", "NUM_DOFS", t.dofCount);
    printf("  %-11s : %f\n", "MIN_TIME", double(t.minTime));
    printf("  %-11s : %f\n", "MAX_TIME", double(t.maxTime));
    printf("  %-11s : %s\n", "START_TC", t.startTc.c_str());
    printf("  %-11s : %s\n", "END_TC", t.endTc.c_str());
    printf("  %-11s : %s\n", "DOF_GROUPED", t.dofGrouped ? "TRUE" : "FALSE");
    printf("  %-11s : %s\n", "DOF_COUNTED", t.dofCounted ? "TRUE" : "FALSE");
}

// What stands where the end mark should: empty when the file is complete.
std::string whatIsMissing(TakeFile &t, int records) {
    const long at = ftell(t.stream);
    struct stat st;
    const long size = fstat(fileno(t.stream), &st) == 0 ? long(st.st_size) : -1;
    if (takeFileIsComplete(t.stream)) return "";
    char text[256];
    if (at >= 0 && at == size)
        snprintf(text, sizeof text, "incomplete: END-OF-DATA is missing, the file ends after record %d", records);
    else if (t.type == BW_TAKE_FILE_BINARY)
        snprintf(text, sizeof text,
                 "incomplete: the %ld bytes after record %d are neither a whole record nor END-OF-DATA",
                 size - at, records);
    else
        snprintf(text, sizeof text, "incomplete: line %d, after record %d, is neither a record nor END-OF-DATA",
                 t.line + 1, records);
    return text;
}

}  // namespace

int main(int argc, char **argv) {
    bool csv = false;
    const char *path = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--csv") == 0) csv = true;
        else if (argv[i][0] == '-' && argv[i][1]) {
            fprintf(stderr, "bwtake: unknown option '%s'\n", argv[i]);
            usage();
            return 2;
        } else if (path) {
            usage();
            return 2;
        } else path = argv[i];
    }
    if (!path) {
        usage();
        return 2;
    }

    TakeFile take;
    if (!takeFileReadHeader(&take, path)) {
        takeFileClose(&take);
        return 2;
    }
    if (csv) printf("time,dof,status,value\n");
    else {
        printHeader(take);
        printf("records: time dof status value\n");
    }
    int32_t dof, status;
    float value, time;
    int records = 0;
    while (takeFileReadRecord(&take, nullptr, &dof, &status, &value, &time)) {
        ++records;
        if (csv) printf("%.9g,%d,%d,%.9g\n", double(time), dof, status, double(value));
        else printf("  %f %d %d %f\n", double(time), dof, status, double(value));
    }
    const std::string missing = whatIsMissing(take, records);
    takeFileClose(&take);
    if (missing.empty()) {
        if (!csv) printf("complete: %d records\n", records);
        return 0;
    }
    if (csv) fprintf(stderr, "%s: %s\n", path, missing.c_str());
    else printf("%s\n", missing.c_str());
    return 1;
}
