// The joystick driver on an arena of the viewer's side, reading a virtual
// gamepad the test makes through uinput.
#include <gtest/gtest.h>

#ifdef DRIVER_BIN
#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>
#include <unistd.h>

#include <fstream>

#include "driver_run.h"

TEST(JoystickDriver, AxesSpanMinusOneToOneAndButtonsCountInCodeOrder) {
    if (access("/dev/uinput", W_OK) != 0) GTEST_SKIP() << "/dev/uinput is not writable here: no virtual gamepad";
    libevdev *pad = libevdev_new();
    libevdev_set_name(pad, "bw test gamepad");
    input_absinfo range{};
    range.minimum = 0;
    range.maximum = 200;
    range.value = 100;
    libevdev_enable_event_code(pad, EV_ABS, ABS_X, &range);
    libevdev_enable_event_code(pad, EV_ABS, ABS_Y, &range);
    libevdev_enable_event_code(pad, EV_KEY, BTN_SOUTH, nullptr);
    libevdev_enable_event_code(pad, EV_KEY, BTN_WEST, nullptr);  // a code after BTN_EAST, which it lacks
    libevdev_uinput *uidev = nullptr;
    ASSERT_EQ(libevdev_uinput_create_from_device(pad, LIBEVDEV_UINPUT_OPEN_MANAGED, &uidev), 0);
    const char *node = libevdev_uinput_get_devnode(uidev);
    ASSERT_NE(node, nullptr);
    {
        bwtest::TempDir bin;
        const std::string exe = bin.path() + "/joystick";
        ASSERT_EQ(symlink(DRIVER_BIN, exe.c_str()), 0);
        std::ofstream(exe + ".cfg") << "-device " << node << "\n";
        bwtest::DriverRun run(exe, 20);
        ASSERT_TRUE(run.started());
        libevdev_uinput_write_event(uidev, EV_ABS, ABS_X, 200);
        libevdev_uinput_write_event(uidev, EV_ABS, ABS_Y, 50);
        libevdev_uinput_write_event(uidev, EV_KEY, BTN_WEST, 1);
        libevdev_uinput_write_event(uidev, EV_SYN, SYN_REPORT, 0);
        EXPECT_TRUE(run.turnUntil([&] { return run.slot(0).value == 1.0f && run.slot(9).value == 1.0f; }));
        EXPECT_FLOAT_EQ(run.slot(1).value, -0.5f);
        EXPECT_EQ(run.slot(8).value, 0.0f) << "BTN_SOUTH, not pressed";
        EXPECT_EQ(run.slot(2).active, 0u) << "an axis the device lacks is unused";
        EXPECT_EQ(run.slot(10).active, 0u) << "a button the device lacks is unused";
    }
    libevdev_uinput_destroy(uidev);
    libevdev_free(pad);
}

#else
TEST(JoystickDriver, Skipped) { GTEST_SKIP() << "joystick driver not built: pkg-config module libevdev not found"; }
#endif
