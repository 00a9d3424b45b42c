// bwchan: channel drivers from the command line, without a scene.
//
//   bwchan list
//   bwchan run [--frames N --csv] DRIVER [ARGS...]
//
// `list` shows the drivers of the driver directory with the DOFs of their .drv
// files. `run` starts one driver as the viewer does (the arena, the start with
// its handshake, the monitor) and takes its turns: live in the terminal until
// Ctrl-C, or N turns as CSV. ARGS are the driver's own words.
//
// The driver directory is BW_CHNLDRIVER when set, else bin/drivers beside this
// program (the build tree's), else the installed one.
#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "bw_env.h"
#include "channel.h"

namespace {

volatile sig_atomic_t stopAsked = 0;  // Ctrl-C or SIGTERM came
void onStop(int) { stopAsked = 1; }

void usage() {
    fprintf(stderr,
            "Usage: bwchan list\n"
            "       bwchan run [--frames N --csv] DRIVER [ARGS...]\n");
}

bool isFile(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// The directory the drivers are looked for in; empty when there is none.
std::string driverDirectory() {
    const char *dir = channelDriverDirectory();
    return dir ? dir : "";
}

const char *directionWord(int direction) {
    return direction == CHANNEL_DIR_INPUT ? "in" : direction == CHANNEL_DIR_OUTPUT ? "out" : "none";
}

std::string dofName(const ChannelDriver &driver, int dof) {
    const std::string &name = driver.dofs[dof].name;
    return name.empty() ? "DOF" + std::to_string(dof) : name;
}

// Reads driver `name` of `dir`, or says what is wrong with it on standard error.
bool readDriver(const std::string &dir, const std::string &name, ChannelDriver *driver) {
    const std::string exe = dir + "/" + name;
    if (!isFile(exe) && !isFile(exe + ".drv")) {
        fprintf(stderr, "bwchan: unknown driver '%s': no %s in %s\n", name.c_str(), name.c_str(), dir.c_str());
        return false;
    }
    if (!isFile(exe + ".drv")) {
        fprintf(stderr, "bwchan: driver '%s' has no configuration file %s.drv\n", name.c_str(), exe.c_str());
        return false;
    }
    if (!isFile(exe)) {
        fprintf(stderr, "bwchan: driver '%s' has %s.drv but no executable %s\n", name.c_str(), exe.c_str(),
                exe.c_str());
        return false;
    }
    if (access(exe.c_str(), X_OK) != 0) {
        fprintf(stderr, "bwchan: driver '%s': %s is not executable\n", name.c_str(), exe.c_str());
        return false;
    }
    if (!driverFileRead(dir.c_str(), name.c_str(), driver)) {
        fprintf(stderr, "bwchan: driver '%s': cannot read %s.drv (not a CHANNEL_DRIVER file, or a bad line)\n",
                name.c_str(), exe.c_str());
        return false;
    }
    return true;
}

int list() {
    const std::string dir = driverDirectory();
    if (dir.empty()) {
        fprintf(stderr, "bwchan: no driver directory: set BW_CHNLDRIVER\n");
        return 1;
    }
    DIR *d = opendir(dir.c_str());
    if (!d) {
        fprintf(stderr, "bwchan: cannot read the driver directory %s: %s\n", dir.c_str(), strerror(errno));
        return 1;
    }
    // A driver is an executable or a .drv file; each name once, sorted.
    std::vector<std::string> names;
    while (const dirent *e = readdir(d)) {
        std::string name = e->d_name;
        const size_t dot = name.rfind('.');
        if (dot != std::string::npos && name.substr(dot) == ".drv") name.resize(dot);
        else if (dot != std::string::npos || !isFile(dir + "/" + name) || access((dir + "/" + name).c_str(), X_OK) != 0)
            continue;
        if (!name.empty()) names.push_back(name);
    }
    closedir(d);
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());

    printf("drivers in %s:\n", dir.c_str());
    int bad = 0;
    for (const std::string &name : names) {
        ChannelDriver driver;
        if (!readDriver(dir, name, &driver)) {
            ++bad;
            continue;
        }
        printf("%s: %d DOF%s\n", name.c_str(), driver.dofCount, driver.dofCount == 1 ? "" : "s");
        for (int i = 0; i < driver.dofCount; ++i)
            printf("  %3d %-16s %-4s %s\n", i, dofName(driver, i).c_str(), directionWord(driver.dofs[i].direction),
                   driver.dofs[i].active ? "on" : "off");
    }
    if (names.empty()) printf("  (none)\n");
    return bad ? 1 : 0;
}

// The live view: one line a DOF, the bar over the range seen so far.
struct LiveView {
    bool terminal = false;        // redraw in place
    bool drawn = false;           // a first picture is on the screen
    std::vector<float> low, high;  // range of each DOF so far
    timespec last{};              // time of the last picture

    void draw(const ChannelDriver &driver, const ChannelSlot *slots, long turn) {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        const double since = double(now.tv_sec - last.tv_sec) + double(now.tv_nsec - last.tv_nsec) * 1e-9;
        if (drawn && since < (terminal ? 0.05 : 0.5)) return;
        last = now;
        if (low.empty()) {
            low.assign(driver.dofCount, -1.0f);
            high.assign(driver.dofCount, 1.0f);
        }
        if (drawn && terminal) printf("\033[%dA", driver.dofCount + 1);
        printf("%s: turn %ld%s\n", driver.name.c_str(), turn, terminal ? "   (Ctrl-C stops)\033[K" : "");
        constexpr int width = 30;
        for (int i = 0; i < driver.dofCount; ++i) {
            const float v = slots[i].value;
            if (std::isfinite(v)) {
                low[i] = std::min(low[i], v);
                high[i] = std::max(high[i], v);
            }
            char bar[width + 1];
            const int fill = std::isfinite(v) ? int(std::lround((v - low[i]) / (high[i] - low[i]) * width)) : 0;
            for (int k = 0; k < width; ++k) bar[k] = k < fill ? '#' : '.';
            bar[width] = 0;
            printf("  %-16s %-4s %12.5f  t %9.3f s  [%s]%s\n", dofName(driver, i).c_str(),
                   directionWord(driver.dofs[i].direction), v, slots[i].time, bar, terminal ? "\033[K" : "");
        }
        fflush(stdout);
        drawn = true;
    }
};

void csvHeader(const ChannelDriver &driver) {
    printf("turn");
    for (int i = 0; i < driver.dofCount; ++i) printf(",%s.time,%s.value", dofName(driver, i).c_str(), dofName(driver, i).c_str());
    printf("\n");
}

void csvRow(const ChannelDriver &driver, const ChannelSlot *slots, long turn) {
    printf("%ld", turn);
    for (int i = 0; i < driver.dofCount; ++i) printf(",%.9g,%.9g", slots[i].time, slots[i].value);
    printf("\n");
}

// Runs driver `name`: `frames` turns as CSV, or live until stopped when 0.
int run(const std::string &name, const std::vector<std::string> &arguments, long frames, bool csv) {
    const std::string dir = driverDirectory();
    if (dir.empty()) {
        fprintf(stderr, "bwchan: no driver directory: set BW_CHNLDRIVER\n");
        return 1;
    }
    ChannelDriver read;
    if (!readDriver(dir, name, &read)) return 1;
    ChannelSetup *setup = channelSetupCreate(1);
    channelSetupAddDriver(setup, read);
    ChannelDriver &driver = setup->drivers[0];
    driver.arguments = arguments;
    driver.selected = 1;
    const std::string exe = dir + "/" + name;

    if (!commInit(1, 1, 0)) {
        fprintf(stderr, "bwchan: Cannot initialise channel communications\n");
        channelSetupFree(setup);
        return 1;
    }
    // The driver is in our process group: Ctrl-C is for us, who stop it, so it
    // starts with the interrupt ignored.
    signal(SIGINT, SIG_IGN);
    int pid = -1, timedOut = 0;
    const int started = commStartDriver(0, 0, exe.c_str(), 0, driver.dofCount, &pid, nullptr, &driver, &timedOut);
    struct sigaction sa{};
    sa.sa_handler = onStop;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    if (!started) {
        fprintf(stderr, "bwchan: driver '%s' failed to start\n", name.c_str());
        commClose();
        channelSetupFree(setup);
        return 1;
    }
    commMonitorStart(setup);
    commSetCommand(COMM_CMD_RUN);

    LiveView view;
    view.terminal = !csv && isatty(STDOUT_FILENO);
    if (csv) csvHeader(driver);
    ChannelSlot *slots = driver.slots.data();
    const ChannelComm *comm = commBlock();
    bool fatal = false, carried = false;
    long turn = 0, empty = 0;
    while (!stopAsked && (frames == 0 || turn < frames)) {
        commUnlockAll(setup);
        if (!stopAsked && !csv) {
            const timespec pause{0, 20 * 1000 * 1000};  // a terminal needs no more
            nanosleep(&pause, nullptr);
        }
        const bool locked = commLockAll(setup);
        if (commAllDriversDead()) break;
        if (!locked) {  // the driver is ending: the monitor will say so
            const timespec pause{0, 10 * 1000 * 1000};
            nanosleep(&pause, nullptr);
            continue;
        }
        if (commCheckDriverError(setup)) {
            fatal = true;
            break;
        }
        for (int i = 0; i < driver.dofCount; ++i) slots[i].written = 0;
        bw_commGetData(&driver, 0, 0, driver.dofCount, slots);
        bool fresh = false;
        for (int i = 0; i < driver.dofCount; ++i) {
            if (driver.dofs[i].direction == CHANNEL_DIR_OUTPUT) slots[i] = comm->values[i];  // as the block has it
            else fresh |= slots[i].written == 1;
        }
        // Turns are counted from the first that carries a value (the first may
        // only have been the handshake), or after a while of none.
        if (!carried && !fresh && ++empty < 100) continue;
        carried = true;
        ++turn;
        if (csv) csvRow(driver, slots, turn);
        else view.draw(driver, slots, turn);
    }
    fflush(stdout);
    commMonitorStop();
    const bool allDead = commAllDriversDead();
    commStopDrivers();
    commClose();
    channelSetupFree(setup);
    if (fatal || allDead) return 1;
    if (frames && turn < frames) return stopAsked ? 130 : 1;
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        usage();
        return 2;
    }
    const std::string command = argv[1];
    if (command == "list" && argc == 2) return list();
    if (command != "run") {
        usage();
        return 2;
    }
    long frames = 0;
    bool csv = false;
    int i = 2;
    for (; i < argc && argv[i][0] == '-' && argv[i][1] == '-'; ++i) {
        if (strcmp(argv[i], "--csv") == 0) {
            csv = true;
        } else if (strcmp(argv[i], "--frames") == 0 && i + 1 < argc) {
            char *end;
            frames = strtol(argv[++i], &end, 10);
            if (*end || frames < 1) {
                fprintf(stderr, "bwchan: --frames needs a count of at least 1, not '%s'\n", argv[i]);
                return 2;
            }
        } else {
            fprintf(stderr, "bwchan: unknown option '%s'\n", argv[i]);
            usage();
            return 2;
        }
    }
    if (csv != (frames > 0)) {
        fprintf(stderr, "bwchan: --frames and --csv go together\n");
        return 2;
    }
    if (i >= argc) {
        usage();
        return 2;
    }
    const std::string name = argv[i++];
    return run(name, std::vector<std::string>(argv + i, argv + argc), frames, csv);
}
