// The channel model: setup defaults, the default driver, names of drivers and
// DOFs, connections as text, merging and selection.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <tuple>

#include "capture.h"
#include "channel.h"
#include "dictionary.h"

namespace {

uint32_t bits(float f) {
    uint32_t u;
    memcpy(&u, &f, 4);
    return u;
}

// A driver directory with an executable `name` and its configuration.
std::string writeDriver(const bwtest::TempDir &dir, const std::string &name, const std::string &drv) {
    const std::string exe = dir.write(name, "#!/bin/sh\n");
    chmod(exe.c_str(), 0755);
    dir.write(name + ".drv", drv);
    return dir.path();
}

const char *kMouseDrv =
    "CHANNEL_DRIVER 3.0\n"
    "# the pointer of the window\n"
    "DOF_NUM 3\n"
    "DOF_NAME 0 x\nDOF_NAME 1 y\nDOF_NAME 2 buttons\n"
    "DOF_TYPE 0 I ON\nDOF_TYPE 1 I ON\nDOF_TYPE 2 O OFF\n"
    "ERROR_NUM 1\nERROR 0 no pointer found\n"
    "_END\n";

ChannelDriver driverWith(const char *name, std::initializer_list<const char *> dofs, int direction) {
    ChannelDriver d;
    d.name = name;
    d.configRead = 1;
    for (const char *dofName : dofs) {
        ChannelDof dof;
        dof.name = dofName;
        dof.direction = direction;
        d.dofs.push_back(dof);
    }
    d.dofCount = static_cast<int>(d.dofs.size());
    return d;
}

struct SceneSetupReset {
    ~SceneSetupReset() {
        channelSetupFree(sceneStateCurrent().channelSetup);
        sceneStateCurrent().channelSetup = nullptr;
    }
};

}  // namespace

TEST(ChannelSetup, CreateGivesTheDefaults) {
    ChannelSetup *s = channelSetupCreate(4);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(std::tuple(s->driverCount, s->driverMax, s->sync, s->fastInput, s->timeStamp, s->capture, s->control,
                         s->frameRate, std::string(s->takeDir), std::string(s->takeName), s->takeNumber, s->lastTake),
              std::tuple(0, 4, 2, 1, 1, 1, 1, 0, "\\temp", "default", 1, -1));
    EXPECT_EQ(s->connections, nullptr);
    ChannelDof dof;
    EXPECT_EQ(std::tuple(bits(dof.maximum), bits(dof.minimum), dof.scale, dof.offset),
              std::tuple(0x461C3C00u, 0xC61C3C00u, 1.0f, 0.0f));
    channelSetupFree(s);
}

TEST(ChannelSetup, DriverDirectoryWarnsWithoutTheVariable) {
    bwtest::ScopedEnv unset("BW_CHNLDRIVER", "");
    bwtest::StreamCapture err(stderr);
    const char *dir = channelDriverDirectory();
    EXPECT_EQ(err.text(), "Channels environment variable, BW_CHNLDRIVER, has not been set.\n");
    if (access(CHANNEL_DEFAULT_DRIVER_DIR, R_OK) != 0) {
        EXPECT_EQ(dir, nullptr);
    }
}

TEST(ChannelSetup, InitAddsTheMouseFromItsConfiguration) {
    bwtest::TempDir dir;
    bwtest::ScopedEnv env("BW_CHNLDRIVER", writeDriver(dir, "mouse", kMouseDrv).c_str());
    SceneSetupReset reset;
    ChannelSetup *s = channelSetupInit();
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(sceneStateCurrent().channelSetup, s);
    EXPECT_EQ(channelSetupInit(), s);  // made once
    ASSERT_EQ(s->driverCount, 1);
    const ChannelDriver &m = s->drivers[0];
    ASSERT_EQ(std::tie(m.name, m.dofCount, m.errorCount), std::tuple("mouse", 3, 1));
    EXPECT_EQ(std::tie(m.dofs[2].name, m.dofs[0].direction, m.dofs[2].direction, m.dofs[1].active, m.dofs[2].active,
                       m.errors[0]),
              std::tuple("buttons", CHANNEL_DIR_INPUT, CHANNEL_DIR_OUTPUT, 1, 0, "no pointer found"));
    EXPECT_EQ(m.slots.size(), 3u);
    EXPECT_TRUE(channelSetupIsEmpty(s));
}

TEST(ChannelSetup, InitWithoutAReadableMouseHasNoDriver) {
    bwtest::TempDir dir;
    dir.write("mouse.drv", kMouseDrv);  // no executable beside it
    bwtest::ScopedEnv env("BW_CHNLDRIVER", dir.path().c_str());
    SceneSetupReset reset;
    ChannelSetup *s = channelSetupInit();
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->driverCount, 0);
    ChannelDriver d;
    writeDriver(dir, "bad", "CHANNEL_DRIVER 3.0\nDOF_NUM 1\nDOF_TYPE 0 X ON\n");
    EXPECT_EQ(driverFileRead(dir.path().c_str(), "bad", &d), 0);  // a direction letter not I or O
}

TEST(ChannelSetup, DofLookupByNameInstanceAndNumber) {
    ChannelSetup *s = channelSetupCreate(4);
    channelSetupAddDriver(s, driverWith("tracker", {"x", "y", "z", "roll"}, CHANNEL_DIR_INPUT));
    channelSetupAddDriver(s, driverWith("dials", {"a"}, CHANNEL_DIR_INPUT));
    channelSetupAddDriver(s, driverWith("tracker", {"x", "y"}, CHANNEL_DIR_INPUT));
    int driver, dof;
    ASSERT_EQ(channelDofLookup(s, "tracker", "roll", &driver, &dof), 1);
    EXPECT_EQ(driver, 0);
    EXPECT_EQ(dof, 3);
    // DOF3 reaches index 3 though that DOF has a name.
    ASSERT_EQ(channelDofLookup(s, "tracker", "DOF3", &driver, &dof), 1);
    EXPECT_EQ(dof, 3);
    ASSERT_EQ(channelDofLookup(s, "tracker_1", "y", &driver, &dof), 1);
    EXPECT_EQ(driver, 2);
    EXPECT_EQ(dof, 1);
    EXPECT_EQ(channelDofLookup(s, "tracker_1", "DOF2", &driver, &dof), 0);
    EXPECT_EQ(channelDofLookup(s, "tracker_2", "x", &driver, &dof), 0);
    EXPECT_EQ(channelDofLookup(s, "tracker", "DOF1x", &driver, &dof), 0);

    char dn[1024], fn[1024];
    ASSERT_EQ(channelDofNames(s, 2, 0, dn, fn), 1);
    EXPECT_STREQ(dn, "tracker_1");
    EXPECT_STREQ(fn, "x");
    s->drivers[1].dofs[0].name.clear();
    ASSERT_EQ(channelDofNames(s, 1, 0, dn, fn), 1);
    EXPECT_STREQ(dn, "dials");
    EXPECT_STREQ(fn, "DOF0");
    EXPECT_EQ(channelDofNames(s, 1, 1, dn, fn), 0);
    channelSetupFree(s);
}

TEST(ChannelConnectionText, BothDirectionsAndNone) {
    ChannelConnectionParts p;
    p.prefix = "sc1-";
    p.element = "cube";
    p.parameter = "posx";
    p.channel = "mouse.x";
    p.scale = 0.1;
    p.offset = -2.5;
    EXPECT_EQ(channelConnectionText(CHANNEL_CONN_INPUT, p), "sc1-cube.posx = 0.1 * CHN mouse.x + -2.5");
    EXPECT_EQ(channelConnectionText(CHANNEL_CONN_OUTPUT, p), "CHN mouse.x = 0.1 * sc1-cube.posx + -2.5");
    p = ChannelConnectionParts{};
    EXPECT_EQ(channelConnectionText(CHANNEL_CONN_INPUT, p), "NONE.NONE = 1 * CHN NONE + 0");

    int kind = -1;
    ChannelConnectionParts back;
    ASSERT_EQ(channelConnectionParse("CHN dials.DOF2 = 2.000000000001 * cam.roll + 3", &kind, &back), 1);
    EXPECT_EQ(kind, CHANNEL_CONN_OUTPUT);
    EXPECT_EQ(back.channel, "dials.DOF2");
    EXPECT_EQ(back.element, "cam");
    EXPECT_EQ(back.parameter, "roll");
    EXPECT_DOUBLE_EQ(back.scale, 2.000000000001);
    ASSERT_EQ(channelConnectionParse("NONE.NONE = 1 * CHN NONE + 0", &kind, &back), 1);
    EXPECT_EQ(kind, CHANNEL_CONN_INPUT);
    EXPECT_EQ(back.element, "");
    EXPECT_EQ(back.channel, "");
    EXPECT_EQ(channelConnectionParse("cube.posx = CHN mouse.x", &kind, &back), 0);
}

TEST(ChannelSetupMerge, EmptyOrMouseOnlyYields) {
    ChannelSetup *mouseOnly = channelSetupCreate(4);
    channelSetupAddDriver(mouseOnly, driverWith("mouse", {"x", "y"}, CHANNEL_DIR_INPUT));
    ChannelSetup *other = channelSetupCreate(4);
    channelSetupAddDriver(other, driverWith("tracker", {"x"}, CHANNEL_DIR_INPUT));
    channelSetupAddConnection(other, CHANNEL_CONN_INPUT, "cube.posx = 1 * CHN tracker.x + 0");
    EXPECT_EQ(channelSetupMerge(mouseOnly, other), mouseOnly);
    ASSERT_EQ(mouseOnly->driverCount, 1);
    EXPECT_EQ(mouseOnly->drivers[0].name, "tracker");
    ASSERT_NE(mouseOnly->connections, nullptr);
    EXPECT_NE(mouseOnly->connections, other->connections);  // a copy
    ChannelSetup *empty = channelSetupCreate(4);
    channelSetupMerge(other, empty);
    EXPECT_EQ(other->driverCount, 1);
    channelSetupFree(mouseOnly);
    channelSetupFree(other);
    channelSetupFree(empty);
}

TEST(ChannelSetupMerge, DuplicatesAndRepeatedDrivers) {
    ChannelSetup *a = channelSetupCreate(4);
    channelSetupAddDriver(a, driverWith("tracker", {"x", "y"}, CHANNEL_DIR_INPUT));
    channelSetupAddDriver(a, driverWith("dials", {"d0"}, CHANNEL_DIR_OUTPUT));
    channelSetupAddConnection(a, CHANNEL_CONN_INPUT, "cube.posx = 1 * CHN tracker.x + 0");
    channelSetupAddConnection(a, CHANNEL_CONN_OUTPUT, "CHN dials.d0 = 1 * cube.roty + 0");
    ChannelSetup *b = channelSetupCreate(4);
    channelSetupAddDriver(b, driverWith("tracker", {"u"}, CHANNEL_DIR_INPUT));  // channels differ
    channelSetupAddDriver(b, driverWith("dials", {"d0"}, CHANNEL_DIR_OUTPUT));  // the same
    channelSetupAddConnection(b, CHANNEL_CONN_INPUT, "cube.posx = 2 * CHN tracker.u + 0");
    channelSetupAddConnection(b, CHANNEL_CONN_OUTPUT, "CHN dials.d0 = 3 * cone.roty + 0");
    channelSetupAddConnection(b, CHANNEL_CONN_INPUT, "cone.posy = 1 * CHN tracker.u + 0");
    bwtest::StreamCapture err(stderr);
    channelSetupMerge(a, b);
    EXPECT_EQ(err.text(),
              "\"tracker\" driver repeated because channels do not match\n"
              "Duplicate channel connection found (discarded) for destination \"cube.posx\".\n"
              "Duplicate channel connection found (discarded) for destination CHN \"dials.d0\".\n");
    ASSERT_EQ(a->driverCount, 3);
    EXPECT_EQ(a->drivers[2].dofs[0].name, "u");
    // The kept connection now names the second instance of the tracker.
    const ChannelConnection *c = a->connections->next->next;
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->expression, "cone.posy = 1 * CHN tracker_1.u + 0");
    EXPECT_EQ(c->next, nullptr);
    int driver, dof;
    EXPECT_EQ(channelDofLookup(a, "tracker_1", "u", &driver, &dof), 1);
    EXPECT_EQ(driver, 2);
    channelSetupFree(a);
    channelSetupFree(b);
}

TEST(ChannelSetup, SelectionNeedsAnEnabledReadDriverWithAUsedDirection) {
    ChannelSetup *s = channelSetupCreate(4);
    channelSetupAddDriver(s, driverWith("in", {"a"}, CHANNEL_DIR_INPUT));
    channelSetupAddDriver(s, driverWith("out", {"a"}, CHANNEL_DIR_OUTPUT));
    channelSetupAddDriver(s, driverWith("none", {"a"}, CHANNEL_DIR_NONE));
    ChannelDriver unread = driverWith("unread", {"a"}, CHANNEL_DIR_INPUT);
    unread.configRead = 0;
    channelSetupAddDriver(s, unread);
    ChannelDriver off = driverWith("off", {"a"}, CHANNEL_DIR_INPUT);
    off.enabled = 0;
    channelSetupAddDriver(s, off);  // beyond driverMax 4: the rows grow
    EXPECT_EQ(channelSetupSelectDrivers(s), 2);
    s->capture = 0;
    EXPECT_EQ(channelSetupSelectDrivers(s), 1);
    EXPECT_EQ(s->drivers[0].selected, 0);
    EXPECT_EQ(s->drivers[1].selected, 1);
    channelSetupFree(s);
}
