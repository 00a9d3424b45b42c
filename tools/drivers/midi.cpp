// midi: the sequencer's MIDI events. Controller changes and notes come in as
// DOFs from 0 to 1; output DOFs go out as controller changes. The driver is a
// sequencer client with one port, "midi", that others connect to, or that
// connects itself to "-connect client:port" both ways.
//
//   midi [-BW_RUN] [-record file] [-connect client:port] [-out-channel 1-16]
//   (the same words may stand in midi.cfg beside the executable)
#include <alsa/asoundlib.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "bwdriver.h"
#include "driver_words.h"

namespace {

constexpr int kControllers = 128;                    // cc0 .. cc127: DOFs 0 to 127
constexpr int kNotes = 128;                          // note0 .. note127: DOFs 128 to 255
constexpr int kOutputs = 16;                         // out0 .. out15: controllers 0 to 15
constexpr int kFirstOutput = kControllers + kNotes;  // DOF 256
constexpr int kDofCount = kFirstOutput + kOutputs;

struct State {
    snd_seq_t *seq = nullptr;  // null when the sequencer could not be opened
    int port = -1;             // our port
    int outChannel = 0;        // MIDI channel of the outputs, 0 to 15
    float value[kFirstOutput] = {};  // last value of each input
    bool seen[kFirstOutput] = {};    // an event has come for the input
};

void take(State &s, int dof, int value) {
    s.value[dof] = float(value) / 127.0f;
    s.seen[dof] = true;
}

int sample(BW_Driver *drv, double, void *user) {
    State &s = *static_cast<State *>(user);
    if (!s.seq) {
        driverCommonError(drv, BW_DERR_PORT_OPEN, 1);
        return 0;
    }
    snd_seq_event_t *ev = nullptr;
    while (snd_seq_event_input(s.seq, &ev) >= 0 && ev) {
        switch (ev->type) {
        case SND_SEQ_EVENT_CONTROLLER:
            if (ev->data.control.param < kControllers)
                take(s, int(ev->data.control.param), std::clamp(ev->data.control.value, 0, 127));
            break;
        case SND_SEQ_EVENT_NOTEON: take(s, kControllers + ev->data.note.note % kNotes, ev->data.note.velocity); break;
        case SND_SEQ_EVENT_NOTEOFF: take(s, kControllers + ev->data.note.note % kNotes, 0); break;
        default: break;
        }
        ev = nullptr;
    }
    for (int i = 0; i < kFirstOutput; ++i)
        if (s.seen[i]) driverSetDofValue(drv, i, s.value[i]);
    for (int o = 0; o < kOutputs; ++o) {
        float v;
        if (!driverGetDofValue(drv, kFirstOutput + o, &v)) continue;
        snd_seq_event_t out;
        snd_seq_ev_clear(&out);
        snd_seq_ev_set_source(&out, s.port);
        snd_seq_ev_set_subs(&out);
        snd_seq_ev_set_direct(&out);
        snd_seq_ev_set_controller(&out, s.outChannel, o, int(std::clamp(v, 0.0f, 1.0f) * 127.0f + 0.5f));
        if (snd_seq_event_output_direct(s.seq, &out) < 0) driverCommonError(drv, BW_DERR_PORT_WRITE, 0);
    }
    return 1;
}

}  // namespace

int main(int argc, char **argv) {
    int directions[kDofCount];
    std::fill(directions, directions + kFirstOutput, BW_DOF_INPUT);
    std::fill(directions + kFirstOutput, directions + kDofCount, BW_DOF_OUTPUT);
    BW_DriverArgs args;
    if (!driverParseArgs(argc, argv, &args)) return 2;
    drivers::Options opt;
    if (!drivers::readOptions("midi", argv[0], args, {"connect", "out-channel"}, {}, opt)) return 2;
    State state;
    long channel;
    if (!drivers::wholeNumber(opt.get("out-channel", "1"), 1, 16, channel)) {
        fprintf(stderr, "midi: '-out-channel %s' is not a channel 1 to 16\n", opt.get("out-channel", "").c_str());
        return 2;
    }
    state.outChannel = int(channel) - 1;
    // No sequencer is the run's fatal error, told at the first turn.
    if (snd_seq_open(&state.seq, "default", SND_SEQ_OPEN_DUPLEX, SND_SEQ_NONBLOCK) < 0) {
        fprintf(stderr, "midi: cannot open the sequencer\n");
        state.seq = nullptr;
    } else {
        snd_seq_set_client_name(state.seq, "brak midi driver");
        state.port = snd_seq_create_simple_port(
            state.seq, "midi",
            SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ | SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
            SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
        if (opt.has("connect")) {
            snd_seq_addr_t peer;
            const std::string text = opt.get("connect", "");
            if (snd_seq_parse_address(state.seq, &peer, text.c_str()) < 0 ||
                snd_seq_connect_from(state.seq, state.port, peer.client, peer.port) < 0 ||
                snd_seq_connect_to(state.seq, state.port, peer.client, peer.port) < 0) {
                fprintf(stderr, "midi: cannot connect to '%s'\n", text.c_str());
                snd_seq_close(state.seq);
                return 2;
            }
        }
    }

    BW_DriverDesc desc{};
    desc.name = "midi";
    desc.versionText = "midi 1.0";
    desc.dofCount = kDofCount;
    desc.directions = directions;
    desc.sample = sample;
    desc.user = &state;
    const int code = driverRun(&desc, &args);
    if (state.seq) snd_seq_close(state.seq);
    return code;
}
