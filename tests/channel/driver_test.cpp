// Driver processes: start and handshake, timeout, the watch that notices a
// dead driver, and the stop. The driver is the test's own fake_driver program.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "capture.h"
#include "channel.h"

namespace {

struct DriverRun {
    explicit DriverRun(int drivers) { ok = commInit(1, drivers, 0); }
    ~DriverRun() {
        commMonitorStop();
        commStopDrivers();
        if (ok) commClose();
    }
    int ok;
};

std::string commandLine(const std::string &bufferFile) {
    std::ifstream in(bufferFile);
    std::string line;
    std::getline(in, line);
    return line;
}

bool waitFor(bool (*done)()) {
    for (int i = 0; i < 50 && !done(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return done();
}

}  // namespace

TEST(ChannelDriver, StartsTakesTurnsAndStops) {
    bwtest::TempDir tmp;
    bwtest::ScopedEnv dir("TMPDIR", tmp.path().c_str());
    bwtest::ScopedEnv mode("FAKE_DRIVER_MODE", "ok");
    std::string buffer;
    {
        DriverRun run(1);
        ASSERT_EQ(run.ok, 1);
        ChannelDriver drv;
        drv.name = "fake";
        int pid = 0, timedOut = -1;
        ASSERT_EQ(commStartDriver(0, 0, FAKE_DRIVER, 5, 2, &pid, nullptr, &drv, &timedOut), 1);
        EXPECT_GT(pid, 0);
        EXPECT_EQ(drv.pid, pid);
        EXPECT_EQ(timedOut, 0);
        ChannelSlot slots[2] = {};
        ASSERT_EQ(bw_commGetData(&drv, 0, 5, 2, slots), 1);  // under the turn the start took
        EXPECT_EQ(slots[0].value, 42.0f);
        EXPECT_EQ(slots[1].value, 43.0f);
        commUnlockAll(nullptr);
        ASSERT_EQ(commLockAll(nullptr), 1);
        buffer = drv.bufferFile;
        EXPECT_EQ(commandLine(buffer), "-BW_RUN");  // the driver found its file in CHNL_BUFFER_FILE
    }
    EXPECT_NE(access(buffer.c_str(), F_OK), 0);
}

TEST(ChannelDriver, TakeFileAndBroadcastFormOnTheCommandLine) {
    bwtest::TempDir tmp;
    bwtest::ScopedEnv mode("FAKE_DRIVER_MODE", "ok");
    const std::string exe = tmp / "tracker";
    std::filesystem::copy_file(FAKE_DRIVER, exe);
    char host[1024] = {};
    gethostname(host, sizeof host - 1);
    tmp.write("tracker.brd", std::string("BRAK-BROADCAST\n") + host + "\n5000\n");
    DriverRun run(1);
    ASSERT_EQ(run.ok, 1);
    ChannelDriver drv;
    drv.recordFile = tmp / "take.chd";
    int pid = 0, timedOut = -1;
    bwtest::StreamCapture err(stderr);
    ASSERT_EQ(commStartDriver(0, 0, exe.c_str(), 0, 1, &pid, nullptr, &drv, &timedOut), 1);
    EXPECT_EQ(err.text(), "tracker: Broadcast/Local active on port5000\n");
    commUnlockAll(nullptr);
    ASSERT_EQ(commLockAll(nullptr), 1);  // a turn later the driver has written its file
    EXPECT_EQ(commandLine(drv.bufferFile), "-BW_RUN -record " + tmp / "take.chd" + " -mode BROAD_LOCAL 5000");
}

TEST(ChannelDriver, ACustomFileReachesTheDriverOnItsInput) {
    bwtest::TempDir tmp;
    bwtest::ScopedEnv mode("FAKE_DRIVER_MODE", "ok");
    bwtest::ScopedEnv input("FAKE_DRIVER_STDIN", "1");
    DriverRun run(1);
    ASSERT_EQ(run.ok, 1);
    ChannelDriver drv;
    drv.customFile = tmp.write("tracker.cus", "CHANNEL_DRIVER 1.0\nDOF_NUM 1\n_END\n");
    int pid = 0, timedOut = -1;
    ASSERT_EQ(commStartDriver(0, 0, FAKE_DRIVER, 0, 1, &pid, nullptr, &drv, &timedOut), 1);
    commUnlockAll(nullptr);
    ASSERT_EQ(commLockAll(nullptr), 1);  // a turn later the driver has written its file
    std::ifstream in(drv.bufferFile);
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_EQ(text.str(), "-BW_RUN|CHANNEL_DRIVER 1.0\nDOF_NUM 1\n_END\n");
}

TEST(ChannelDriver, MissingNotExecutableAndSilentDrivers) {
    bwtest::TempDir tmp;
    bwtest::ScopedEnv dir("TMPDIR", tmp.path().c_str());
    DriverRun run(1);
    ASSERT_EQ(run.ok, 1);
    int pid = 0, timedOut = -1;
    const std::string missing = tmp / "nothere";
    const std::string plain = tmp.write("plain", "data");
    {
        bwtest::StreamCapture err(stderr);
        EXPECT_EQ(commStartDriver(0, 0, missing.c_str(), 0, 1, &pid, nullptr, nullptr, &timedOut), 0);
        EXPECT_EQ(commStartDriver(0, 0, plain.c_str(), 0, 1, &pid, nullptr, nullptr, &timedOut), 0);
        EXPECT_EQ(err.text(), "Cannot find '" + missing + "' driver executable.\n"
                              "Driver '" + plain + "' does not have execution permission.\n");
    }
    bwtest::ScopedEnv mode("FAKE_DRIVER_MODE", "silent");
    bwtest::ScopedEnv timeout("BW_DRIVER_TIMEOUT", "1");
    bwtest::StreamCapture err(stderr);
    EXPECT_EQ(commStartDriver(0, 0, FAKE_DRIVER, 0, 1, &pid, nullptr, nullptr, &timedOut), 0);
    EXPECT_EQ(timedOut, 1);
    EXPECT_EQ(pid, -1);
    EXPECT_EQ(err.text(), "Cannot start 'channel_fake_driver' driver.\n"
                          "Timed out waiting for 'channel_fake_driver'.\n"
                          "May want to increase BW_DRIVER_TIMEOUT, and restart brak\n");
}

TEST(ChannelDriver, OldVersionIsNotStarted) {
    bwtest::ScopedEnv mode("FAKE_DRIVER_MODE", "old");
    DriverRun run(1);
    ASSERT_EQ(run.ok, 1);
    int pid = 0, timedOut = -1;
    bwtest::StreamCapture err(stderr);
    EXPECT_EQ(commStartDriver(0, 0, FAKE_DRIVER, 0, 1, &pid, nullptr, nullptr, &timedOut), 0);
    EXPECT_EQ(timedOut, 0);
    EXPECT_EQ(err.text(), "channel_fake_driver driver (2.0) - incompatible version\n"
                          "Cannot start 'channel_fake_driver' driver.\n");
}

TEST(ChannelDriver, MonitorReportsEachDeathAndTheLast) {
    ChannelSetup *setup = channelSetupCreate(4);
    ChannelDriver a, b;
    a.name = "tracker";
    b.name = "dials";
    channelSetupAddDriver(setup, a);
    channelSetupAddDriver(setup, b);
    {
        DriverRun run(2);
        ASSERT_EQ(run.ok, 1);
        int pidA = 0, pidB = 0, timedOut = -1;
        {
            bwtest::ScopedEnv mode("FAKE_DRIVER_MODE", "ok");
            ASSERT_EQ(commStartDriver(0, 0, FAKE_DRIVER, 0, 1, &pidA, nullptr, &setup->drivers[0], &timedOut), 1);
        }
        {
            bwtest::ScopedEnv mode("FAKE_DRIVER_MODE", "die");
            ASSERT_EQ(commStartDriver(1, 1, FAKE_DRIVER, 1, 1, &pidB, nullptr, &setup->drivers[1], &timedOut), 1);
        }
        bwtest::StreamCapture err(stderr);
        ASSERT_EQ(commMonitorStart(setup), 1);
        // The dead one's turn is not waited for.
        for (int i = 0; i < 50 && commDriver(1)->state != CHANNEL_DRV_DEAD; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(commGrabDriver(setup, 1), 0);
        EXPECT_FALSE(commAllDriversDead());
        kill(pidA, SIGKILL);
        ASSERT_TRUE(waitFor(commAllDriversDead));
        commMonitorStop();
        EXPECT_EQ(err.text(), "Driver dials died - channel run will continue\n"
                              "Driver tracker died - channel run will continue\n"
                              "All drivers died (dials,tracker)\n");
        EXPECT_EQ(setup->drivers[0].pid, -1);
    }
    channelSetupFree(setup);
}
