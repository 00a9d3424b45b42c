// joystick: a game controller through the kernel's event devices. Eight axes,
// each -1 to 1 over the range the device gives, and twelve buttons, 1 while
// pressed, as input DOFs.
//
//   joystick [-BW_RUN] [-record file] [-device /dev/input/eventN]
//   (the same words may stand in joystick.cfg beside the executable)
#include <fcntl.h>
#include <libevdev/libevdev.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "bwdriver.h"
#include "driver_words.h"

namespace {

// Axes by DOF, as in joystick.drv; the buttons follow them.
constexpr unsigned kAxes[] = {ABS_X, ABS_Y, ABS_Z, ABS_RX, ABS_RY, ABS_RZ, ABS_HAT0X, ABS_HAT0Y};
constexpr int kAxisCount = int(sizeof kAxes / sizeof kAxes[0]);
constexpr int kButtonCount = 12;
constexpr int kDofCount = kAxisCount + kButtonCount;

struct State {
    libevdev *dev = nullptr;        // null when no device could be opened
    int fd = -1;                    // of the device
    std::vector<unsigned> buttons;  // key codes of button DOFs 0.., in code order
};

// Opens `path` as an event device; null when it cannot be.
libevdev *openDevice(const std::string &path, int &fd) {
    fd = open(path.c_str(), O_RDONLY | O_NONBLOCK);
    if (fd < 0) return nullptr;
    libevdev *dev = nullptr;
    if (libevdev_new_from_fd(fd, &dev) < 0) {
        close(fd);
        fd = -1;
        return nullptr;
    }
    return dev;
}

// A gamepad or joystick: an X axis and a gamepad or joystick button.
bool isGamepad(libevdev *dev) {
    return libevdev_has_event_code(dev, EV_ABS, ABS_X) &&
           (libevdev_has_event_code(dev, EV_KEY, BTN_GAMEPAD) || libevdev_has_event_code(dev, EV_KEY, BTN_JOYSTICK));
}

// The first gamepad among /dev/input/event*, in name order.
libevdev *findGamepad(int &fd) {
    std::vector<std::string> paths;
    std::error_code ec;
    for (const auto &e : std::filesystem::directory_iterator("/dev/input", ec))
        if (e.path().filename().string().rfind("event", 0) == 0) paths.push_back(e.path().string());
    std::sort(paths.begin(), paths.end());
    for (const std::string &p : paths) {
        libevdev *dev = openDevice(p, fd);
        if (dev && isGamepad(dev)) return dev;
        if (dev) libevdev_free(dev);
        if (fd >= 0) close(fd);
        fd = -1;
    }
    return nullptr;
}

int sample(BW_Driver *drv, double, void *user) {
    State &s = *static_cast<State *>(user);
    if (!s.dev) {
        driverCommonError(drv, BW_DERR_PORT_OPEN, 1);
        return 0;
    }
    // Drain the events; libevdev keeps the device's state, read below.
    input_event ev;
    int rc;
    unsigned flag = LIBEVDEV_READ_FLAG_NORMAL;
    while ((rc = libevdev_next_event(s.dev, flag, &ev)) >= 0)
        flag = rc == LIBEVDEV_READ_STATUS_SYNC ? LIBEVDEV_READ_FLAG_SYNC : LIBEVDEV_READ_FLAG_NORMAL;
    if (rc != -EAGAIN) {
        driverCommonError(drv, BW_DERR_PORT_READ, 1);  // unplugged
        return 0;
    }
    for (int a = 0; a < kAxisCount; ++a) {
        const input_absinfo *info = libevdev_get_abs_info(s.dev, kAxes[a]);
        if (!info) continue;
        const float span = float(info->maximum) - float(info->minimum);
        const float v = span > 0 ? 2.0f * (float(info->value) - float(info->minimum)) / span - 1.0f : 0.0f;
        driverSetDofValue(drv, a, v);
    }
    for (size_t b = 0; b < s.buttons.size(); ++b)
        driverSetDofValue(drv, kAxisCount + int(b), float(libevdev_get_event_value(s.dev, EV_KEY, s.buttons[b])));
    return 1;
}

}  // namespace

int main(int argc, char **argv) {
    int directions[kDofCount];
    std::fill(directions, directions + kDofCount, BW_DOF_INPUT);
    BW_DriverArgs args;
    if (!driverParseArgs(argc, argv, &args)) return 2;
    drivers::Options opt;
    if (!drivers::readOptions("joystick", argv[0], args, {"device"}, {}, opt)) return 2;
    State state;
    // No device is the run's fatal error, told at the first turn.
    if (opt.has("device")) {
        state.dev = openDevice(opt.get("device", ""), state.fd);
        if (!state.dev) fprintf(stderr, "joystick: cannot open '%s' as an input device\n", opt.get("device", "").c_str());
    } else {
        state.dev = findGamepad(state.fd);
        if (!state.dev) fprintf(stderr, "joystick: no gamepad found in /dev/input\n");
    }
    if (state.dev) {
        for (unsigned code = BTN_JOYSTICK; code < BTN_DIGI && int(state.buttons.size()) < kButtonCount; ++code)
            if (libevdev_has_event_code(state.dev, EV_KEY, code)) state.buttons.push_back(code);
    }

    BW_DriverDesc desc{};
    desc.name = "joystick";
    desc.versionText = "joystick 1.0";
    desc.dofCount = kDofCount;
    desc.directions = directions;
    desc.sample = sample;
    desc.user = &state;
    const int code = driverRun(&desc, &args);
    if (state.dev) libevdev_free(state.dev);
    if (state.fd >= 0) close(state.fd);
    return code;
}
