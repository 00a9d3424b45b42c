// The remote and listen forms of a driver's command line, as the started
// driver (the test's fake_driver) finds them.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "capture.h"
#include "channel.h"

namespace {

std::string firstLine(const std::string &file) {
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    return line;
}

// Starts `exe` as driver `index` of a three-driver run and gives back the
// command line the driver wrote, with what the start printed in `err`.
std::string started(const std::string &exe, int index, int channels, ChannelDriver *drv,
                    std::string *err) {
    bwtest::ScopedEnv mode("FAKE_DRIVER_MODE", "ok");
    if (!commInit(1, 3, 0)) return "no arena";
    int pid = 0, timedOut = -1;
    std::string line = "not started";
    {
        bwtest::StreamCapture capture(stderr);
        const int ok = commStartDriver(index, index, exe.c_str(), 0, channels, &pid, nullptr, drv, &timedOut);
        *err = capture.text();
        if (ok) {
            commUnlockAll(nullptr);
            commLockAll(nullptr);  // a turn later the driver has written its file
            line = firstLine(drv->bufferFile);
        }
    }
    commStopDrivers();
    commClose();
    return line;
}

}  // namespace

TEST(ChannelDriverForms, RemoteNamesHostPortCustomFileDirectoryAndChannels) {
    bwtest::TempDir tmp;
    ChannelDriver drv;
    drv.remote = CHANNEL_DRIVER_REMOTE;
    drv.remoteHost = "farhost";
    drv.directory = "/opt/drivers";
    std::string err;
    // Port 1125 plus the driver's index; a broadcast file plays no part.
    EXPECT_EQ(started(FAKE_DRIVER, 2, 3, &drv, &err),
              "-BW_RUN -mode LOCAL_SERVER farhost 1127 DRIVER_NO_CUS_FILE - /opt/drivers 3");
    EXPECT_EQ(err, "");
    // Without a directory of its own, the driver directory; the take file comes first.
    bwtest::ScopedEnv dir("BW_CHNLDRIVER", tmp.path().c_str());
    drv.directory.clear();
    drv.recordFile = tmp / "take.chd";
    EXPECT_EQ(started(FAKE_DRIVER, 0, 1, &drv, &err),
              "-BW_RUN -record " + tmp / "take.chd" + " -mode LOCAL_SERVER farhost 1125 DRIVER_NO_CUS_FILE - " +
                  tmp.path() + " 1");
}

TEST(ChannelDriverForms, ListenTakesHostAndPortOfTheBroadcastFileOrRevertsToStandard) {
    bwtest::TempDir tmp;
    const std::string exe = tmp / "tracker";
    std::filesystem::copy_file(FAKE_DRIVER, exe);
    ChannelDriver drv;
    drv.remote = CHANNEL_DRIVER_LISTEN;
    std::string err;
    EXPECT_EQ(started(exe, 0, 1, &drv, &err), "-BW_RUN");
    EXPECT_EQ(err, "Cannot run in listen mode - no broad registry\nReverting to standard\n");
    // Any host will do for listening, and nothing is said of a broadcast.
    tmp.write("tracker.brd", "BRAK-BROADCAST\nsomewhere.else\n6001\n");
    drv.recordFile = tmp / "t.chd";
    EXPECT_EQ(started(exe, 1, 1, &drv, &err), "-BW_RUN -record " + tmp / "t.chd" + " -mode LISTEN somewhere.else 6001");
    EXPECT_EQ(err, "");
}
