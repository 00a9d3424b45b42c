// The midi driver on an arena of the viewer's side, connected to a sequencer
// port the test makes.
#include <gtest/gtest.h>

#ifdef DRIVER_BIN
#include <alsa/asoundlib.h>
#include <unistd.h>

#include <fstream>

#include "driver_run.h"

TEST(MidiDriver, ControllersAndNotesComeInFromZeroToOneAndOutputsGoOutAsControllers) {
    if (access("/dev/snd/seq", R_OK | W_OK) != 0) GTEST_SKIP() << "no /dev/snd/seq here: no virtual MIDI port";
    snd_seq_t *seq = nullptr;
    ASSERT_GE(snd_seq_open(&seq, "default", SND_SEQ_OPEN_DUPLEX, SND_SEQ_NONBLOCK), 0);
    const int port = snd_seq_create_simple_port(
        seq, "test", SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ | SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
        SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
    ASSERT_GE(port, 0);
    auto send = [&](void (*set)(snd_seq_event_t *)) {
        snd_seq_event_t ev;
        snd_seq_ev_clear(&ev);
        snd_seq_ev_set_source(&ev, port);
        snd_seq_ev_set_subs(&ev);
        snd_seq_ev_set_direct(&ev);
        set(&ev);
        snd_seq_event_output_direct(seq, &ev);
    };
    {
        bwtest::TempDir bin;
        const std::string exe = bin.path() + "/midi";
        ASSERT_EQ(symlink(DRIVER_BIN, exe.c_str()), 0);
        std::ofstream(exe + ".cfg") << "-connect " << snd_seq_client_id(seq) << ":" << port << " -out-channel 3\n";
        bwtest::DriverRun run(exe, 272);
        ASSERT_TRUE(run.started());
        EXPECT_TRUE(run.turnUntil([&] { return run.slot(7).value == 1.0f && run.slot(128 + 60).active; }, [&] {
            send([](snd_seq_event_t *ev) { snd_seq_ev_set_controller(ev, 0, 7, 127); });
            send([](snd_seq_event_t *ev) { snd_seq_ev_set_noteon(ev, 0, 60, 64); });
        }));
        EXPECT_FLOAT_EQ(run.slot(128 + 60).value, 64.0f / 127.0f);

        run.setOutput(256 + 2, 0.5f);
        int param = -1, value = -1, channel = -1;
        EXPECT_TRUE(run.turnUntil([&] {
            snd_seq_event_t *ev = nullptr;
            while (snd_seq_event_input(seq, &ev) >= 0 && ev) {
                if (ev->type == SND_SEQ_EVENT_CONTROLLER) {
                    param = int(ev->data.control.param);
                    value = ev->data.control.value;
                    channel = ev->data.control.channel;
                }
                ev = nullptr;
            }
            return param >= 0;
        }));
        EXPECT_EQ(param, 2);
        EXPECT_EQ(value, 64);
        EXPECT_EQ(channel, 2) << "-out-channel 3, counted from 1";
    }
    snd_seq_close(seq);
}

#else
TEST(MidiDriver, Skipped) { GTEST_SKIP() << "midi driver not built: pkg-config module alsa not found"; }
#endif
