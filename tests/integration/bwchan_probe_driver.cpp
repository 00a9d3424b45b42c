// A driver for the bwchan tests: one input DOF, the count of its samples; at
// sample `-at K` it kills itself (-kill) or reports an error of the common table
// (-common N) or of its own list (-own N), fatal with -fatal.
#include <signal.h>

#include <cstdlib>
#include <cstring>

#include "bwdriver.h"

namespace {

struct Probe {
    int at = 3;          // sample of the event
    bool kill = false;   // SIGKILL itself
    int common = -1;     // common error to report
    int own = -1;        // own error to report
    bool fatal = false;  // the error ends the run
    int samples = 0;     // taken so far
};

int sample(BW_Driver *drv, double, void *user) {
    Probe &p = *static_cast<Probe *>(user);
    driverSetDofValue(drv, 0, float(++p.samples));
    if (p.samples != p.at) return 1;
    if (p.kill) raise(SIGKILL);
    if (p.common >= 0) driverCommonError(drv, BW_DriverCommonError(p.common), p.fatal);
    if (p.own >= 0) driverError(drv, p.own, p.fatal);
    return 1;
}

}  // namespace

int main(int argc, char **argv) {
    static const int directions[1] = {BW_DOF_INPUT};
    Probe probe;
    BW_DriverArgs args;
    if (!driverParseArgs(argc, argv, &args)) return 2;
    for (int i = 0; i < args.restCount; ++i) {
        const char *w = args.rest[i];
        const bool valued = i + 1 < args.restCount;
        if (strcmp(w, "-kill") == 0) probe.kill = true;
        else if (strcmp(w, "-fatal") == 0) probe.fatal = true;
        else if (strcmp(w, "-at") == 0 && valued) probe.at = atoi(args.rest[++i]);
        else if (strcmp(w, "-common") == 0 && valued) probe.common = atoi(args.rest[++i]);
        else if (strcmp(w, "-own") == 0 && valued) probe.own = atoi(args.rest[++i]);
        else return 2;
    }
    BW_DriverDesc desc{};
    desc.name = "probe";
    desc.versionText = "probe 1.0";
    desc.dofCount = 1;
    desc.directions = directions;
    desc.sample = sample;
    desc.user = &probe;
    return driverRun(&desc, &args);
}
