// The viewer's side of the arena against the driver kit's, each written from
// the protocol on its own: the shipped wave driver, started and read through
// turns as a capture run does.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "capture.h"
#include "channel.h"

TEST(WaveRun, SyncedTurnsCarryTheWaveAndTheGainGoesBack) {
    bwtest::TempDir tmp;
    bwtest::ScopedEnv dir("TMPDIR", tmp.path().c_str());
    ASSERT_EQ(commInit(1, 1, 0), 1);
    ChannelDriver drv;
    drv.name = "wave";
    int pid = 0, timedOut = -1;
    ASSERT_EQ(commStartDriver(0, 0, WAVE_DRIVER, 0, 6, &pid, nullptr, &drv, &timedOut), 1);
    EXPECT_EQ(timedOut, 0);
    commSetCommand(COMM_CMD_RUN);

    // Default wave: 1 Hz, amplitude 1, no phase. Each turn's sine and square
    // are those of the time the driver stamped on them.
    float lastTime = -1.0f;
    for (int turn = 0; turn < 12; ++turn) {
        commUnlockAll(nullptr);
        ASSERT_EQ(commLockAll(nullptr), 1);
        ChannelSlot slots[6] = {};
        ASSERT_EQ(bw_commGetData(&drv, 0, 0, 6, slots), 1);
        if (!slots[0].written && !slots[0].active) continue;  // the driver's first turn was the handshake
        const double t = slots[0].time;
        EXPECT_GE(slots[0].time, lastTime) << turn;
        lastTime = slots[0].time;
        EXPECT_NEAR(slots[0].value, std::sin(2 * std::numbers::pi * t), 1e-5) << "sine at " << t;
        const double x = t - std::floor(t);
        EXPECT_EQ(slots[1].value, x < 0.5 ? 1.0f : -1.0f) << "square at " << t;
    }
    ASSERT_GE(lastTime, 0.0f) << "no turn carried values";

    // The gain is an output: written 2 by the viewer, taken at the next turn.
    ChannelSlot gain[6] = {};
    gain[5] = {3.0f, 0.0f, 2, 1, 1};
    int written = 0;
    ASSERT_EQ(bw_commSetData(&drv, 0, 0, 6, gain, 0, &written), 1);
    EXPECT_EQ(written, 1);
    for (int turn = 0; turn < 3; ++turn) {
        commUnlockAll(nullptr);
        ASSERT_EQ(commLockAll(nullptr), 1);
    }
    ChannelSlot slots[6] = {};
    ASSERT_EQ(bw_commGetData(&drv, 0, 0, 6, slots), 1);
    EXPECT_FLOAT_EQ(std::fabs(slots[1].value), 3.0f) << "the square at three times its height";

    commMonitorStop();
    commStopDrivers();
    EXPECT_EQ(commClose(), 1);
}
