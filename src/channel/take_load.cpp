// Loading a take: the file of each driver in the take's directory read into
// the curves of the driver's DOFs, one key a record.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "animation.h"
#include "channel.h"
#include "tol_status.h"

namespace {

constexpr size_t kShownTail = 32;  // characters of a long take path in the progress line

struct Point {
    float time;   // seconds
    float value;  // the record's value
};

// Only input DOFs are recorded: a driver without one has no take to give.
bool validDriver(const ChannelDriver &driver) {
    if (!driver.enabled) return false;
    return std::any_of(driver.dofs.begin(), driver.dofs.end(),
                       [](const ChannelDof &d) { return d.direction == CHANNEL_DIR_INPUT; });
}

// The DOF's curve, made when it has none, without keys.
Fcurve *emptyCurve(ChannelDof &dof) {
    if (!dof.curve) dof.curve = fcurveCreate(0, 0);
    if (!dof.curve) return nullptr;
    fcurveKeysAlloc(dof.curve, 0);
    dof.curve->interpolation = FCV_LINEAR;
    dof.curve->lastTime = -100000.0f;
    return dof.curve;
}

// Keys in time order, linear between them; of records at one time the last
// read stands. Returns the keys put in.
int fillCurve(Fcurve *curve, std::vector<Point> &points, float start, float end) {
    std::stable_sort(points.begin(), points.end(), [](const Point &a, const Point &b) { return a.time < b.time; });
    int keys = 0;
    for (size_t i = 0; i < points.size(); ++i) {
        if (i + 1 < points.size() && points[i + 1].time == points[i].time) continue;
        FcurveKey *key = fcurveKeyNew();
        if (!key) break;
        key->time = points[i].time;
        key->value = points[i].value;
        key->interpolation = FCV_LINEAR;
        key->keyType = FCVKEY_RAWDATA;
        if (!fcurveKeysAppend(curve, key)) break;
        ++keys;
    }
    fcurveSlopes(curve);
    curve->rangeStart = start;
    curve->rangeEnd = end;
    return keys;
}

struct OpenTake {
    int driver;       // index in the setup
    std::string path; // the data file
    TakeFile file;    // its header read, the stream at the first record
};

const char *baseName(const std::string &path) {
    const size_t slash = path.rfind('/');
    return path.c_str() + (slash == std::string::npos ? 0 : slash + 1);
}

// Reads the records of one file into the driver's curves.
void readTake(ChannelSetup *setup, OpenTake &open, float start, float end, TakeLoadRange *range) {
    ChannelDriver &driver = setup->drivers[size_t(open.driver)];
    std::vector<std::vector<Point>> points(driver.dofs.size());
    int32_t dof, status, stray = 0;
    float value, time;
    while (takeFileReadRecord(&open.file, nullptr, &dof, &status, &value, &time)) {
        if (dof < 0 || size_t(dof) >= points.size()) ++stray;
        else if (time < start || time > end) ++range->clipped;
        else points[size_t(dof)].push_back({time, value});
    }
    if (!takeFileIsComplete(open.file.stream))
        msgShowf(TOL_CLASS_WARNING, "%s: no END-OF-DATA after the last record, the take is loaded as far as it goes",
                 open.path.c_str());
    if (stray)
        msgShowf(TOL_CLASS_WARNING, "%s: %d records of DOFs the driver %s does not have, left out",
                 open.path.c_str(), stray, driver.name.c_str());
    for (size_t d = 0; d < driver.dofs.size(); ++d)
        if (Fcurve *curve = emptyCurve(driver.dofs[d])) range->points += fillCurve(curve, points[d], start, end);
}

}  // namespace

int takeLoad(ChannelSetup *setup, int takeNumber, TakeLoadRange *range) {
    TakeLoadRange scratch;
    if (!range) range = &scratch;
    range->files = range->points = range->clipped = 0;
    if (!setup) {
        msgShow("No valid drivers for Take Load.", TOL_CLASS_ERROR);
        return 0;
    }
    const std::string dir = takeDirPath(setup->takeDir, setup->takeName, takeNumber);
    struct stat st;
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        msgShowf(TOL_CLASS_ERROR, "%s does not exist yet", dir.c_str());
        return 0;
    }
    if (access(dir.c_str(), R_OK | X_OK) != 0) {
        msgShowf(TOL_CLASS_ERROR, "%s not readable", dir.c_str());
        return 0;
    }
    std::vector<int> drivers;
    for (int i = 0; i < int(setup->drivers.size()); ++i)
        if (validDriver(setup->drivers[size_t(i)])) drivers.push_back(i);
    if (drivers.empty()) {
        msgShow("No valid drivers for Take Load.", TOL_CLASS_ERROR);
        return 0;
    }

    // Every header first: the range of the take is the union of theirs.
    std::vector<OpenTake> takes;
    for (int i : drivers) {
        const ChannelDriver &driver = setup->drivers[size_t(i)];
        OpenTake open{i, takeDataPath(setup->takeDir, setup->takeName, takeNumber, driver.name.c_str(), i), {}};
        if (!takeFileReadHeader(&open.file, open.path.c_str())) {
            msgShowf(TOL_CLASS_ERROR, "Cannot read take data file '%s'.", open.path.c_str());
            takeFileClose(&open.file);
            continue;
        }
        if (takes.empty() || open.file.minTime < range->takeStart) range->takeStart = open.file.minTime;
        if (takes.empty() || open.file.maxTime > range->takeEnd) range->takeEnd = open.file.maxTime;
        takes.push_back(std::move(open));
    }
    if (takes.empty()) return 0;
    const bool ownRange = range->end >= range->start;
    const float start = ownRange ? range->start : range->takeStart;
    const float end = ownRange ? range->end : range->takeEnd;

    if (dir.size() > kShownTail) printf("Take Reading ...%s\n", dir.c_str() + dir.size() - kShownTail);
    else printf("Take Reading %s\n", dir.c_str());
    for (size_t k = 0; k < takes.size(); ++k) {
        OpenTake &open = takes[k];
        printf("Reading %s%s (%d of %d)\n", open.file.type == BW_TAKE_FILE_BINARY ? "BIN " : "ASC ",
               baseName(open.path), int(k + 1), int(takes.size()));
        fflush(stdout);
        readTake(setup, open, start, end, range);
        takeFileClose(&open.file);
        ++range->files;
    }
    return 1;
}

void takeCurvesFree(ChannelSetup *setup) {
    if (!setup) return;
    for (ChannelDriver &driver : setup->drivers)
        for (ChannelDof &dof : driver.dofs) {
            fcurveFree(dof.curve);
            dof.curve = nullptr;
        }
}
