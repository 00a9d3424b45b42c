// Driver processes: their start with the handshake, the thread that notices
// when one ends, and their stop.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bw_env.h"
#include "channel.h"
#include "channel_internal.h"
#include "tol_status.h"

extern char **environ;

namespace {

std::mutex bufferLock;                  // guards bufferFiles
std::vector<std::string> bufferFiles;   // temporary files handed to the drivers of the run
std::atomic<bool> timeoutHintShown{false};  // the BW_DRIVER_TIMEOUT hint is printed once
constexpr int kRemotePortBase = 1125;          // port of a remote driver: this plus its index
constexpr const char *kNoCustomFile = "DRIVER_NO_CUS_FILE";  // custom file word without one
constexpr int kCustomPipeBytes = 1024;  // asked for; the system rounds a pipe up to a page

// The custom file into the driver's input; a driver that does not read it
// must not hold the viewer, so the writes stop when the pipe is full.
void sendCustomData(int fd, const std::string &path) {
    fcntl(fd, F_SETFL, O_NONBLOCK);
    FILE *in = fopen(path.c_str(), "rb");
    if (!in) return;
    char buf[1024];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, in)) > 0)
        if (write(fd, buf, n) != ssize_t(n)) break;
    fclose(in);
}

struct Monitor {
    std::thread thread;                  // the watching thread
    int stopFd = -1;                     // eventfd that ends the watch
    ChannelSetup *setup = nullptr;       // setup whose drivers are watched
    std::atomic<bool> allDead{false};    // every watched driver has ended
};
Monitor monitor;
std::mutex deadLock;  // guards the setups' dead lists and driver pids against the monitor

int pidfdOpen(pid_t pid) { return static_cast<int>(syscall(SYS_pidfd_open, pid, 0)); }
int pidfdSignal(int pidfd, int sig) { return static_cast<int>(syscall(SYS_pidfd_send_signal, pidfd, sig, nullptr, 0)); }

// Ends a process: SIGTERM, then SIGKILL when it is still there after a second.
void endProcess(pid_t pid, int pidfd) {
    if (pidfd >= 0) {
        pidfdSignal(pidfd, SIGTERM);
        pollfd p{pidfd, POLLIN, 0};
        if (poll(&p, 1, 1000) <= 0) pidfdSignal(pidfd, SIGKILL);
    }
    waitpid(pid, nullptr, 0);
}

// Base name of an executable path.
std::string baseName(const char *path) {
    const char *slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

// A temporary file "CHNL..." for the driver's data, its path in CHNL_BUFFER_FILE.
bool makeBufferFile(ChannelDriver *driver) {
    const char *tmp = envGet(ENV_TMPDIR);
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/CHNLXXXXXX";
    const int fd = mkstemp(pattern.data());
    if (fd < 0) { msgShow("Error finding temp file name.", TOL_CLASS_ERROR); return false; }
    close(fd);
    {
        std::lock_guard<std::mutex> lock(bufferLock);
        bufferFiles.push_back(pattern);
    }
    if (driver) driver->bufferFile = pattern;
    if (setenv("CHNL_BUFFER_FILE", pattern.c_str(), 1) != 0) {
        msgShow("Error doing putenv.", TOL_CLASS_ERROR);
        return false;
    }
    return true;
}

// The executable's broadcast file: its name without ".exe" (any case) and
// ".brd" behind it. When it begins with "BRAK-BROADCAST", `host` and `port`
// get the two items behind that word.
bool readBroadcast(const char *executable, std::string *host, int *port) {
    std::string path = executable;
    if (path.size() > 4 && strcasecmp(path.c_str() + path.size() - 4, ".exe") == 0)
        path.resize(path.size() - 4);
    FILE *f = fopen((path + ".brd").c_str(), "r");
    if (!f) return false;
    char word[1024] = {}, name[1024] = {};
    const bool ok = fscanf(f, "%1023s", word) == 1 && strcmp(word, "BRAK-BROADCAST") == 0 &&
                    fscanf(f, "%1023s\n%d", name, port) == 2;
    fclose(f);
    if (ok) *host = name;
    return ok;
}

// Port of the broadcast form, whose host must be this one. -1 when there is none.
int broadcastPort(const char *executable, const std::string &name) {
    std::string host;
    int port = -1;
    char here[1024] = {};
    if (!readBroadcast(executable, &host, &port) || gethostname(here, sizeof here - 1) != 0 ||
        host != here)
        return -1;
    fprintf(stderr, "%s: Broadcast/Local active on port%d\n", name.c_str(), port);
    return port;
}

void watch() {
    for (;;) {
        std::vector<pollfd> fds{{monitor.stopFd, POLLIN, 0}};
        std::vector<int> index;
        for (int i = 0; i < CHANNEL_MAX_DRIVERS; ++i) {
            const ChannelCommDriver *row = commDriver(i);
            if (row->state == CHANNEL_DRV_RUNNING && row->pidfd >= 0) {
                fds.push_back({row->pidfd, POLLIN, 0});
                index.push_back(i);
            }
        }
        if (index.empty()) { monitor.allDead = true; return; }
        if (poll(fds.data(), fds.size(), -1) < 0) {
            if (errno == EINTR) continue;
            fprintf(stderr, "poll() on the drivers returned %d.\n", errno);
            return;
        }
        if (fds[0].revents) return;
        for (size_t k = 1; k < fds.size(); ++k) {
            if (!fds[k].revents) continue;
            ChannelCommDriver *row = commDriver(index[k - 1]);
            waitpid(row->pid, nullptr, 0);
            if (row->state != CHANNEL_DRV_DEAD) channelDriverDied(monitor.setup, index[k - 1]);
            if (index.size() == 1) {
                monitor.allDead = true;
                std::lock_guard<std::mutex> lock(deadLock);
                msgShowf(TOL_CLASS_ERROR, "All drivers died (%s)",
                         monitor.setup ? monitor.setup->deadList.c_str() : "");
            }
        }
    }
}

}  // namespace

void commRemoveBufferFiles() {
    std::lock_guard<std::mutex> lock(bufferLock);
    for (const std::string &f : bufferFiles) unlink(f.c_str());
    bufferFiles.clear();
}

std::vector<std::string> commDriverWords(int index, const char *executable, int channelCount,
                                         const ChannelDriver *driver) {
    // The driver's own words go first: the network modes take the rest of the line.
    std::vector<std::string> words{executable};
    if (driver) words.insert(words.end(), driver->arguments.begin(), driver->arguments.end());
    words.push_back("-BW_RUN");
    if (driver && !driver->recordFile.empty()) {
        words.push_back("-record");
        words.push_back(driver->recordFile);
    }
    const int mode = driver ? driver->remote : CHANNEL_DRIVER_LOCAL;
    if (mode == CHANNEL_DRIVER_REMOTE) {
        const char *directory = driver->directory.empty() ? channelDriverDirectory()
                                                          : driver->directory.c_str();
        for (const std::string &w :
             {std::string("-mode"), std::string("LOCAL_SERVER"), driver->remoteHost,
              std::to_string(kRemotePortBase + index),
              driver->customFile.empty() ? std::string(kNoCustomFile) : driver->customFile, std::string("-"),
              std::string(directory ? directory : ""), std::to_string(channelCount)})
            words.push_back(w);
        return words;
    }
    if (mode == CHANNEL_DRIVER_LISTEN) {
        std::string host;
        int port = -1;
        if (readBroadcast(executable, &host, &port)) {
            for (const std::string &w :
                 {std::string("-mode"), std::string("LISTEN"), host, std::to_string(port)})
                words.push_back(w);
            return words;
        }
        fprintf(stderr, "Cannot run in listen mode - no broad registry\n");
        fprintf(stderr, "Reverting to standard\n");
    }
    const int port = broadcastPort(executable, baseName(executable));
    if (port >= 0) {
        words.push_back("-mode");
        words.push_back("BROAD_LOCAL");
        words.push_back(std::to_string(port));
    }
    return words;
}

int commStartDriver(int index, int semaphoreIndex, const char *executable, int firstChannel,
                    int channelCount, int *pid, void *custom, ChannelDriver *driver, int *timedOut) {
    (void)custom;  // what a driver is given of its custom dialogue is its customFile
    *timedOut = 0;
    *pid = -1;
    if (!commBlock() || index < 0 || index >= CHANNEL_MAX_DRIVERS) return 0;
    const std::string name = baseName(executable);
    if (access(executable, F_OK) != 0) {
        msgShowf(TOL_CLASS_ERROR, "Cannot find '%s' driver executable.", executable);
        return 0;
    }
    if (access(executable, X_OK) != 0) {
        msgShowf(TOL_CLASS_ERROR, "Driver '%s' does not have execution permission.", executable);
        return 0;
    }
    const int runMode = driver ? driver->runMode : CHANNEL_RUN_SYNCED;
    commPrepareDriver(index, semaphoreIndex, firstChannel, channelCount, runMode,
                      driver ? driver->frequency : 0.0f);
    if (!makeBufferFile(driver)) return 0;

    std::vector<std::string> words = commDriverWords(index, executable, channelCount, driver);
    std::vector<char *> argv;
    for (std::string &w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    // A driver with custom data reads it on its standard input, from a pipe
    // the viewer fills with its custom file and closes.
    int input[2] = {-1, -1};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (driver && !driver->customFile.empty()) {
        if (pipe2(input, O_CLOEXEC) != 0) {
            fprintf(stderr, "BRAK shmemStartDriver(): PIPE FAILED!!! TROUBLE AHEAD!!!\n");
            posix_spawn_file_actions_destroy(&actions);
            return 0;
        }
        fcntl(input[1], F_SETPIPE_SZ, kCustomPipeBytes);
        posix_spawn_file_actions_adddup2(&actions, input[0], 0);
    }
    pid_t child = -1;
    const int spawned = posix_spawn(&child, executable, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (input[0] >= 0) close(input[0]);
    if (spawned != 0) {
        if (input[1] >= 0) close(input[1]);
        msgShowf(TOL_CLASS_ERROR, "Cannot start '%s' driver.", name.c_str());
        return 0;
    }
    if (input[1] >= 0) {
        sendCustomData(input[1], driver->customFile);
        close(input[1]);
    }
    const int pidfd = pidfdOpen(child);
    if (!commAwaitDriver(index, name.c_str(), static_cast<uint32_t>(child), pidfd, timedOut)) {
        msgShowf(TOL_CLASS_ERROR, "Cannot start '%s' driver.", name.c_str());
        if (*timedOut) {
            msgShowf(TOL_CLASS_ERROR, "Timed out waiting for '%s'.", name.c_str());
            if (!timeoutHintShown.exchange(true))
                msgShow("May want to increase BW_DRIVER_TIMEOUT, and restart brak", TOL_CLASS_ERROR);
            if (driver && driver->remote == CHANNEL_DRIVER_REMOTE) {
                msgShow("Perhaps remote driver is taking a while to start ?", TOL_CLASS_ERROR);
                msgShow("Could try giving fully resolved remote machine name", TOL_CLASS_ERROR);
            }
        }
        endProcess(child, pidfd);
        if (pidfd >= 0) close(pidfd);
        return 0;
    }
    *pid = child;
    if (driver) driver->pid = child;
    return 1;
}

void channelDriverDied(ChannelSetup *setup, int index) {
    ChannelCommDriver *row = commDriver(index);
    if (!row) return;
    std::lock_guard<std::mutex> lock(deadLock);
    std::string name = "driver";
    if (setup && index < setup->driverCount) {
        name = setup->drivers[index].name;
        setup->drivers[index].pid = -1;
        setup->deadList = setup->deadList.empty() ? name : setup->deadList + "," + name;
    }
    msgShowf(TOL_CLASS_WARNING, "Driver %s died - channel run will continue", name.c_str());
    commReleaseDriver(setup, index);
    row->state = CHANNEL_DRV_DEAD;  // a wait on its turn now gives up
    row->pid = -1;
}

int commMonitorStart(ChannelSetup *setup) {
    if (monitor.thread.joinable()) return 0;
    monitor.stopFd = eventfd(0, EFD_CLOEXEC);
    if (monitor.stopFd < 0) return 0;
    monitor.setup = setup;
    monitor.allDead = false;
    monitor.thread = std::thread(watch);
    return 1;
}

void commMonitorStop() {
    if (!monitor.thread.joinable()) return;
    const uint64_t one = 1;
    if (write(monitor.stopFd, &one, sizeof one) < 0) perror("eventfd");
    monitor.thread.join();  // the thread polls the stop descriptor: it ends at once
    close(monitor.stopFd);
    monitor.stopFd = -1;
}

bool commAllDriversDead() { return monitor.allDead; }

void commStopDrivers() {
    for (int i = 0; i < CHANNEL_MAX_DRIVERS; ++i) {
        ChannelCommDriver *row = commDriver(i);
        if (row->state != CHANNEL_DRV_RUNNING || row->pidfd < 0) continue;
        endProcess(row->pid, row->pidfd);
        close(row->pidfd);
        row->pidfd = -1;
        row->pid = -1;
        row->state = CHANNEL_DRV_NOT_STARTED;
    }
}
