// osc: Open Sound Control over UDP. A message "/<input DOF name>" whose first
// argument is a number (f, d, i or h) sets that input DOF, held until the next
// one; an output DOF the viewer sets goes out as "/<output DOF name> f" to the
// host and port of "-send".
//
//   osc [-BW_RUN] [-record file] [-port udp-port] [-send host:port]
//   (the same words may stand in osc.cfg beside the executable)
#include <lo/lo.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>

#include "bwdriver.h"
#include "driver_words.h"

namespace {

constexpr int kInputs = 8;    // in0 .. in7: DOFs 0 to 7
constexpr int kOutputs = 4;   // out0 .. out3: DOFs 8 to 11
constexpr int kDofCount = kInputs + kOutputs;
constexpr const char *kDefaultPort = "7770";

// Names as in osc.drv, by DOF.
const char *const kNames[kDofCount] = {"in0", "in1", "in2", "in3", "in4", "in5",
                                       "in6", "in7", "out0", "out1", "out2", "out3"};

struct State {
    lo_server_thread server = nullptr;  // listens on -port; null when that failed
    lo_address target = nullptr;        // where outputs go; null without -send
    std::atomic<float> value[kInputs];  // last number received for each input
    std::atomic<bool> seen[kInputs];    // a number has come for the input
    std::string portText;               // as given, for the error message
};

int onMessage(const char *path, const char *types, lo_arg **argv, int argc, lo_message, void *user) {
    State &s = *static_cast<State *>(user);
    if (argc < 1 || path[0] != '/') return 1;
    float v;
    switch (types[0]) {
    case LO_FLOAT: v = argv[0]->f; break;
    case LO_DOUBLE: v = float(argv[0]->d); break;
    case LO_INT32: v = float(argv[0]->i); break;
    case LO_INT64: v = float(argv[0]->h); break;
    default: return 1;  // not a number: not ours
    }
    for (int i = 0; i < kInputs; ++i) {
        if (strcmp(path + 1, kNames[i]) == 0) {
            s.value[i].store(v);
            s.seen[i].store(true);
            return 0;
        }
    }
    return 1;
}

void onServerError(int num, const char *msg, const char *where) {
    fprintf(stderr, "osc: network error %d: %s%s%s\n", num, msg, where ? " at " : "", where ? where : "");
}

int sample(BW_Driver *drv, double, void *user) {
    State &s = *static_cast<State *>(user);
    if (!s.server) {
        driverCommonError(drv, BW_DERR_PORT_OPEN, 1);
        return 0;
    }
    for (int i = 0; i < kInputs; ++i)
        if (s.seen[i].load()) driverSetDofValue(drv, i, s.value[i].load());
    for (int o = kInputs; o < kDofCount; ++o) {
        float v;
        if (driverGetDofValue(drv, o, &v) && s.target) {
            const std::string path = std::string("/") + kNames[o];
            if (lo_send(s.target, path.c_str(), "f", v) < 0) driverCommonError(drv, BW_DERR_PORT_WRITE, 0);
        }
    }
    return 1;
}

// "host:port" into a liblo address; null with a message when it is not one.
lo_address sendAddress(const std::string &text) {
    const size_t colon = text.rfind(':');
    long port;
    if (colon == std::string::npos || colon == 0 ||
        !drivers::wholeNumber(text.substr(colon + 1), 1, 65535, port)) {
        fprintf(stderr, "osc: '-send %s' is not host:port\n", text.c_str());
        return nullptr;
    }
    return lo_address_new(text.substr(0, colon).c_str(), std::to_string(port).c_str());
}

}  // namespace

int main(int argc, char **argv) {
    static const int directions[kDofCount] = {
        BW_DOF_INPUT,  BW_DOF_INPUT,  BW_DOF_INPUT,  BW_DOF_INPUT,  BW_DOF_INPUT,  BW_DOF_INPUT,
        BW_DOF_INPUT,  BW_DOF_INPUT,  BW_DOF_OUTPUT, BW_DOF_OUTPUT, BW_DOF_OUTPUT, BW_DOF_OUTPUT};
    BW_DriverArgs args;
    if (!driverParseArgs(argc, argv, &args)) return 2;
    drivers::Options opt;
    if (!drivers::readOptions("osc", argv[0], args, {"port", "send"}, {}, opt)) return 2;
    State state;
    for (int i = 0; i < kInputs; ++i) {
        state.value[i] = 0.0f;
        state.seen[i] = false;
    }
    state.portText = opt.get("port", kDefaultPort);
    long port;
    if (!drivers::wholeNumber(state.portText, 1, 65535, port)) {
        fprintf(stderr, "osc: '-port %s' is not a UDP port\n", state.portText.c_str());
        return 2;
    }
    if (opt.has("send") && !(state.target = sendAddress(opt.get("send", "")))) return 2;

    // A port that cannot be had is the run's fatal error, told at the first turn.
    state.server = lo_server_thread_new(state.portText.c_str(), onServerError);
    if (state.server) {
        lo_server_thread_add_method(state.server, nullptr, nullptr, onMessage, &state);
        lo_server_thread_start(state.server);
    } else {
        fprintf(stderr, "osc: cannot listen on UDP port %s\n", state.portText.c_str());
    }

    BW_DriverDesc desc{};
    desc.name = "osc";
    desc.versionText = "osc 1.0";
    desc.dofCount = kDofCount;
    desc.directions = directions;
    desc.sample = sample;
    desc.user = &state;
    const int code = driverRun(&desc, &args);
    if (state.server) lo_server_thread_free(state.server);
    if (state.target) lo_address_free(state.target);
    return code;
}
