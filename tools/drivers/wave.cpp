// wave: a synthetic channel driver. DOFs 0 to 4 give a sine, a square, a triangle,
// a saw and a held noise of one frequency, amplitude and phase; DOF 5 is an output
// the viewer may set, a gain on all of them. Values depend on the time alone.
//
//   wave [-BW_RUN] [-record file] [-frequency hz] [-amplitude a] [-phase degrees] [-seed n]
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bwdriver.h"
#include "wave.h"

namespace {

struct State {
    wave::Params params;  // from the command line
    float gain = 1.0f;    // last value of the output DOF
};

int sample(BW_Driver *drv, double time, void *user) {
    State &s = *static_cast<State *>(user);
    float gain;
    if (driverGetDofValue(drv, wave::kGainDof, &gain)) s.gain = gain;
    for (int shape = 0; shape < wave::ShapeCount; ++shape)
        driverSetDofValue(drv, shape, float(s.gain * wave::value(wave::Shape(shape), s.params, time)));
    return 1;
}

bool number(const char *text, double &out) {
    char *end;
    out = strtod(text, &end);
    return *text && !*end;
}

}  // namespace

int main(int argc, char **argv) {
    static const int directions[wave::kDofCount] = {BW_DOF_INPUT, BW_DOF_INPUT, BW_DOF_INPUT,
                                                    BW_DOF_INPUT, BW_DOF_INPUT, BW_DOF_OUTPUT};
    State state;
    BW_DriverArgs args;
    if (!driverParseArgs(argc, argv, &args)) return 2;
    for (int i = 0; i < args.restCount; ++i) {
        const char *word = args.rest[i];
        double v;
        if (i + 1 >= args.restCount || !number(args.rest[i + 1], v)) {
            fprintf(stderr, "wave: unknown argument '%s'\n", word);
            return 2;
        }
        ++i;
        if (strcmp(word, "-frequency") == 0) state.params.frequency = v;
        else if (strcmp(word, "-amplitude") == 0) state.params.amplitude = v;
        else if (strcmp(word, "-phase") == 0) state.params.phase = v;
        else if (strcmp(word, "-seed") == 0) state.params.seed = uint64_t(v);
        else {
            fprintf(stderr, "wave: unknown argument '%s'\n", word);
            return 2;
        }
    }
    BW_DriverDesc desc{};
    desc.name = "wave";
    desc.versionText = "wave 1.0";
    desc.dofCount = wave::kDofCount;
    desc.directions = directions;
    desc.sample = sample;
    desc.user = &state;
    return driverRun(&desc, &args);
}
