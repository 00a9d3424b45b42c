// Driver configuration files: the executable check, the .cus in place of the
// .drv, every message, and the .drv files we ship.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "capture.h"
#include "channel.h"

namespace {

using bwtest::StreamCapture;
using bwtest::TempDir;

struct DriverRead {
    ChannelDriver driver;
    std::string err;
    int result = 0;
    DriverRead(const TempDir &dir, const char *name) {
        driver.name = "untouched";
        StreamCapture capture(stderr);
        result = driverFileRead(dir.path().c_str(), name, &driver);
        err = capture.text();
    }
};

std::string executable(const TempDir &dir, const std::string &name) {
    const std::string exe = dir.write(name, "#!/bin/sh\n");
    chmod(exe.c_str(), 0755);
    return exe;
}

const std::string kPrefix = "Channel driver configuration file:\n";

}  // namespace

TEST(DriverFileRead, TheExecutableMustBeThere) {
    TempDir dir;
    dir.write("gone.drv", "CHANNEL_DRIVER 1.0\nDOF_NUM 1\n");
    DriverRead gone(dir, "gone");
    EXPECT_EQ(gone.result, 0);
    EXPECT_EQ(gone.err, "Channel driver:\n" + (dir / "gone") + "\ndoes not exist\n");
    EXPECT_EQ(gone.driver.name, "untouched");
    dir.write("plain", "data");
    dir.write("plain.drv", "CHANNEL_DRIVER 1.0\n");
    DriverRead plain(dir, "plain");
    EXPECT_EQ(plain.err, "Channel driver:\n" + (dir / "plain") + "\nis not executable\n");
    executable(dir, "bare");
    DriverRead bare(dir, "bare");
    EXPECT_EQ(bare.err, (dir / "bare") + ".cus\ndoes not exist\n" + (dir / "bare") +
                            ".drv\ndoes not exist\nSo bare is not a valid channel driver\n");
}

TEST(DriverFileRead, HeaderAndLineFailures) {
    TempDir dir;
    auto expectFailure = [&](const char *text, const char *what) {
        executable(dir, "d");
        const std::string path = dir.write("d.drv", text);
        DriverRead r(dir, "d");
        EXPECT_EQ(r.result, 0) << text;
        EXPECT_EQ(r.err, kPrefix + path + "\n" + what + "\n") << text;
        EXPECT_EQ(r.driver.name, "untouched");
    };
    expectFailure("CHANNELS 1.0\n", "has an invalid ID");
    expectFailure("", "has an invalid ID");
    expectFailure("CHANNEL_DRIVER one\n", "has a bad version number");
    expectFailure("SDRV x\nCHANNEL_DRIVER 1.0\n", "has a bad version number");
    expectFailure("CHANNEL_DRIVER 1.0\nDOF_NUM 2\nDOF_TYPE 0 I ON\nDOF_TYPE 1 X ON\n", "is not readable");
    expectFailure("CHANNEL_DRIVER 1.0\nDOF_NUM 0\n", "is not readable");
    expectFailure("CHANNEL_DRIVER 1.0\nDOF_NUM 1\nDOF_NAME zero x\n", "is not readable");
    expectFailure("CHANNEL_DRIVER 1.0\nERROR_NUM -1\n", "is not readable");
}

TEST(DriverFileRead, EveryTokenWithHeaderCommentsAndSkippedLines) {
    TempDir dir;
    executable(dir, "dials");
    dir.write("dials.drv",
              "# a comment before the id\nSDRV 1.0\nCHANNEL_DRIVER 2.5\n"
              "DOF_NAME 0 early\n"  // before DOF_NUM: out of range, skipped
              "DOF_NUM 3 # three dials\n"
              "DOF_NAME 0 pan\nDOF_NAME 2 tilt\nDOF_NAME 7 far\n"
              "DOF_TYPE 0 I ON\nDOF_TYPE 1 O OFF\nDOF_TYPE 9 I ON\n"
              "PORT_NUM 2 DOF_NUM 99\nwords that are no tokens\n"
              "ERROR_NUM 2\nERROR 1   the dial box is off  \n"
              "_END\nDOF_NUM 50\n");
    DriverRead r(dir, "dials");
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.err, "");
    const ChannelDriver &d = r.driver;
    EXPECT_EQ(d.name, "dials");
    EXPECT_EQ(d.directory, dir.path());
    EXPECT_EQ(d.customFile, "");
    EXPECT_EQ(d.configRead, 1);
    ASSERT_EQ(d.dofCount, 3);
    EXPECT_EQ(d.slots.size(), 3u);
    EXPECT_EQ(d.dofs[0].name, "pan");
    EXPECT_EQ(d.dofs[1].name, "");
    EXPECT_EQ(d.dofs[2].name, "tilt");
    EXPECT_EQ(d.dofs[0].direction, CHANNEL_DIR_INPUT);
    EXPECT_EQ(d.dofs[1].direction, CHANNEL_DIR_OUTPUT);
    EXPECT_EQ(d.dofs[2].direction, CHANNEL_DIR_NONE);
    EXPECT_EQ(d.dofs[0].active, 1);
    EXPECT_EQ(d.dofs[1].active, 0);
    ASSERT_EQ(d.errorCount, 2);
    EXPECT_EQ(d.errors[0], "");
    EXPECT_EQ(d.errors[1], "the dial box is off");
}

TEST(DriverFileRead, TheCustomDialogueIsPreferred) {
    TempDir dir;
    executable(dir, "box");
    dir.write("box.drv", "CHANNEL_DRIVER 1.0\nDOF_NUM 1\n_END\n");
    const std::string cus = dir.write("box.cus", "CHANNEL_DRIVER 1.0\nDOF_NUM 4\nDOF_TYPE 3 O ON\n_END\n");
    DriverRead r(dir, "box");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.driver.dofCount, 4);
    EXPECT_EQ(r.driver.dofs[3].direction, CHANNEL_DIR_OUTPUT);
    EXPECT_EQ(r.driver.customFile, cus);
    // Only a .cus: it is enough.
    std::filesystem::remove(dir / "box.drv");
    DriverRead alone(dir, "box");
    EXPECT_EQ(alone.result, 1);
    EXPECT_EQ(alone.driver.dofCount, 4);
}

TEST(DriverFileRead, AnUnreadableCustomDialogueFallsBackToTheDrv) {
    if (geteuid() == 0) GTEST_SKIP() << "every file is readable to root";
    TempDir dir;
    executable(dir, "box");
    dir.write("box.drv", "CHANNEL_DRIVER 1.0\nDOF_NUM 1\n_END\n");
    const std::string cus = dir.write("box.cus", "CHANNEL_DRIVER 1.0\nDOF_NUM 4\n");
    chmod(cus.c_str(), 0);
    DriverRead r(dir, "box");
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.err, "Custom dialog:\n" + cus + "\nis not readable\n");
    EXPECT_EQ(r.driver.dofCount, 1);
    EXPECT_EQ(r.driver.customFile, "");
}

TEST(DriverFileRead, EveryShippedDrvReadsCleanly) {
    TempDir dir;
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(bwtest::sourcePath("tools/drivers"))) {
        if (entry.path().extension() != ".drv") continue;
        const std::string name = entry.path().stem().string();
        std::filesystem::copy_file(entry.path(), dir / (name + ".drv"));
        executable(dir, name);
        DriverRead r(dir, name.c_str());
        ++count;
        EXPECT_EQ(r.result, 1) << name;
        EXPECT_EQ(r.err, "") << name;
        EXPECT_GT(r.driver.dofCount, 0) << name;
        for (int i = 0; i < r.driver.dofCount; ++i) {
            EXPECT_NE(r.driver.dofs[i].direction, CHANNEL_DIR_NONE) << name << " DOF " << i;
            EXPECT_EQ(r.driver.dofs[i].active, 1) << name << " DOF " << i;
        }
    }
    EXPECT_GE(count, 6);
}
