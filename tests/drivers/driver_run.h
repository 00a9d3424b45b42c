// A shipped driver started as a child on an arena of the viewer's side, read
// through synced turns as a capture run does. One at a time (one arena a process).
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "capture.h"
#include "channel.h"

namespace bwtest {

class DriverRun {
public:
    // Starts `executable` as driver 0 with `count` channels, the run state set.
    DriverRun(const std::string &executable, int count)
        : env_("TMPDIR", tmp_.path().c_str()), slots_(size_t(count)) {
        driver_.name = "device";
        if (commInit(1, 1, 0) != 1) return;
        int pid = 0, timedOut = -1;
        started_ = commStartDriver(0, 0, executable.c_str(), 0, count, &pid, nullptr, &driver_,
                                   &timedOut) == 1;
        if (started_) commSetCommand(COMM_CMD_RUN);
    }
    ~DriverRun() {
        if (started_) commStopDrivers();
        commClose();
    }
    bool started() const { return started_; }
    const std::string &dir() const { return tmp_.path(); }

    // One turn: the slots the driver wrote in it replace the held ones.
    void turn() {
        commUnlockAll(nullptr);
        ASSERT_EQ(commLockAll(nullptr), 1);
        std::vector<ChannelSlot> fresh(slots_.size());
        ASSERT_EQ(bw_commGetData(&driver_, 0, 0, int(fresh.size()), fresh.data()), 1);
        for (size_t i = 0; i < fresh.size(); ++i)
            if (fresh[i].written || fresh[i].active) slots_[i] = fresh[i];
    }
    // Turns, `poke` before each, until `done` holds or about five seconds pass.
    bool turnUntil(const std::function<bool()> &done, const std::function<void()> &poke = {}) {
        for (int i = 0; i < 500; ++i) {
            if (poke) poke();
            turn();
            if (done()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
    const ChannelSlot &slot(int channel) const { return slots_[size_t(channel)]; }

    // Sets output channel `channel` to `value` for the driver's next turn.
    void setOutput(int channel, float value) {
        std::vector<ChannelSlot> out(slots_.size(), ChannelSlot{});
        out[size_t(channel)] = {value, 0.0f, 2, 1, 1};
        int written = 0;
        bw_commSetData(&driver_, 0, 0, int(out.size()), out.data(), 0, &written);
    }

private:
    TempDir tmp_;
    ScopedEnv env_;
    ChannelDriver driver_;
    std::vector<ChannelSlot> slots_;
    bool started_ = false;
};

}  // namespace bwtest
