// The driver's side of the shared arena: handshake, turns, slots, commands, errors.
#include "bwdriver.h"

#include <errno.h>
#include <fcntl.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "driverkit_take.h"

namespace {

// Offsets of the words of the shared block.
enum : size_t {
    kMagic = 0,
    kVersion = 4,
    kVersionText = 8,           // up to 264
    kCommand = 264,
    kErrorFlags = 268,
    kErrorNumber = 272,
    kErrorDriver = 276,
    kClockRunning = 280,        // u16
    kStartSeconds = 284,
    kStartMicroseconds = 288,
    kRecordTime = 292,          // f32
    kSceneName = 300,           // up to 556
    kTakeNumber = 556,
    kDriverPid = 576,
    kSemaphoreA = 580,
    kSemaphoreB = 584,
    kSyncMode = 588,            // u16
    kDriverIndex = 592,
    kFirstChannel = 596,
    kChannelCount = 600,
    kValues = 604,              // slots of 20 bytes
    kAbort = 28604,             // u16
    kFrequency = 28608,
    kCommandPending = 28612,    // 32 x u16
};
// Offsets within a slot record.
enum : size_t { kSlotValue = 0, kSlotTime = 4, kSlotWritten = 8, kSlotType = 12, kSlotActive = 16 };

volatile sig_atomic_t gStopRequested = 0;

const char *const kCommonErrors[] = {
#define BW_X_TEXT(name, text) text,
    BW_DRIVER_COMMON_ERRORS(BW_X_TEXT)
#undef BW_X_TEXT
};

}  // namespace

struct BW_Driver {
    BW_DriverDesc desc;             // the driver's description
    BW_DriverArgs args;             // its command line
    uint8_t *base = nullptr;        // arena mapping
    size_t size = 0;                // bytes mapped
    int index = 0;                  // driver index of the viewer
    int first = 0;                  // first slot
    int count = 0;                  // slots given
    int used = 0;                   // slots used: min(count, dofCount)
    BW_SyncMode sync = BW_SYNC_SYNCED;
    uint32_t frequency = 0;         // samples a second in frequency mode
    sem_t *turn = nullptr;          // semaphore A: the driver's turn (write)
    sem_t *back = nullptr;          // semaphore B: given back to the viewer (read)
    uint32_t command = 0;           // last command followed
    bool paused = false;            // command pause in force
    bool over = false;              // the run is over
    pid_t parent = 0;               // the viewer; the driver ends when it is gone
    timespec attached{};            // monotonic time of the handshake
    timespec nextTick{};            // next sample of a driver without turns
    int64_t sampleCount = 0;        // samples taken, the take's count word
    std::vector<float> input;       // input values of this sample
    std::vector<char> inputSet;     // set in this sample
    std::vector<float> output;      // last output values from the viewer
    std::vector<char> outputNew;    // came in this turn
    bwkit::Take take;               // the take being recorded
    bool takeOpen = false;
};

namespace {

uint32_t load32(const BW_Driver *d, size_t off) {
    return __atomic_load_n(reinterpret_cast<const uint32_t *>(d->base + off), __ATOMIC_ACQUIRE);
}
void store32(BW_Driver *d, size_t off, uint32_t v) {
    __atomic_store_n(reinterpret_cast<uint32_t *>(d->base + off), v, __ATOMIC_RELEASE);
}
uint16_t load16(const BW_Driver *d, size_t off) {
    return __atomic_load_n(reinterpret_cast<const uint16_t *>(d->base + off), __ATOMIC_ACQUIRE);
}
void store16(BW_Driver *d, size_t off, uint16_t v) {
    __atomic_store_n(reinterpret_cast<uint16_t *>(d->base + off), v, __ATOMIC_RELEASE);
}
float loadF(const BW_Driver *d, size_t off) {
    uint32_t bits = load32(d, off);
    float f;
    memcpy(&f, &bits, 4);
    return f;
}
void storeF(BW_Driver *d, size_t off, float f) {
    uint32_t bits;
    memcpy(&bits, &f, 4);
    store32(d, off, bits);
}
size_t slotOffset(const BW_Driver *d, int dof) {
    return kValues + size_t(d->first + dof) * BW_COMM_SLOT_SIZE;
}
// Text field of `width` bytes, up to its nul.
std::string loadText(const BW_Driver *d, size_t off, size_t width) {
    const char *p = reinterpret_cast<const char *>(d->base + off);
    return std::string(p, strnlen(p, width));
}

double seconds(const timespec &t) { return double(t.tv_sec) + double(t.tv_nsec) * 1e-9; }

timespec monotonicNow() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t;
}

// Time of the run: from the record clock the viewer started, else from the handshake.
float runTime(BW_Driver *d) {
    double t;
    if (load16(d, kClockRunning) == 1) {
        timeval now;
        gettimeofday(&now, nullptr);
        t = double(int64_t(now.tv_sec) - int64_t(load32(d, kStartSeconds))) +
            (double(now.tv_usec) - double(load32(d, kStartMicroseconds))) * 1e-6;
        storeF(d, kRecordTime, float(t));
    } else {
        t = seconds(monotonicNow()) - seconds(d->attached);
    }
    return float(t);
}

void reportError(BW_Driver *d, uint32_t flags, int number) {
    store32(d, kErrorNumber, uint32_t(number));
    store32(d, kErrorDriver, uint32_t(d->index));
    // A warning of the driver's own list has neither bit; bit 0 says an error is there.
    store32(d, kErrorFlags, flags | BW_DRVERR_SET);
}

bool badDof(BW_Driver *d, int dof, BW_DriverCommonError err) {
    if (dof >= 0 && dof < d->desc.dofCount) return false;
    driverCommonError(d, err, 0);
    return true;
}

int direction(const BW_Driver *d, int dof) {
    return d->desc.directions ? d->desc.directions[dof] : BW_DOF_INPUT;
}

// The take file path for the take the viewer has just numbered: the "TAKE.nnnn"
// directory of the path given at start is renumbered, so that later takes of one
// run do not overwrite the first.
std::string takePath(const BW_Driver *d) {
    std::string path = d->args.recordFile;
    uint32_t number = load32(d, kTakeNumber);
    size_t at = path.rfind("TAKE.");
    if (number == 0 || number > 9999 || at == std::string::npos || at + 9 > path.size()) return path;
    for (size_t i = at + 5; i < at + 9; ++i)
        if (path[i] < '0' || path[i] > '9') return path;
    char digits[8];
    snprintf(digits, sizeof digits, "%04u", number);
    path.replace(at + 5, 4, digits);
    return path;
}

void takeFinish(BW_Driver *d) {
    if (!d->takeOpen) return;
    d->takeOpen = false;
    if (!bwkit::takeWrite(d->take))
        fprintf(stderr, "%s driver: cannot write take file '%s'\n", d->desc.name, d->take.path.c_str());
}

void follow(BW_Driver *d, uint32_t cmd) {
    d->command = cmd;
    switch (cmd) {
    case BW_CMD_PAUSE: d->paused = true; break;
    case BW_CMD_DONE:
    case BW_CMD_STOP: d->over = true; break;
    case BW_CMD_RECORD_ON:
        d->paused = false;
        if (d->args.recordFile && !d->takeOpen) {
            d->take = bwkit::Take{};
            d->take.path = takePath(d);
            d->take.sceneName = loadText(d, kSceneName, 256);
            d->take.driverName = d->desc.name ? d->desc.name : "driver";
            d->take.dofCount = d->desc.dofCount;
            d->take.type = d->args.takeType;
            d->takeOpen = true;
        }
        break;
    case BW_CMD_RECORD_OFF: d->paused = false; takeFinish(d); break;
    default: d->paused = false; break;
    }
}

void followCommands(BW_Driver *d) {
    size_t pending = kCommandPending + size_t(d->index) * 2;
    uint32_t cmd = load32(d, kCommand);
    if (load16(d, pending) != 0 || cmd != d->command) {
        store16(d, pending, 0);
        follow(d, cmd);
    }
}

bool viewerGone(const BW_Driver *d) {
    return gStopRequested || getppid() != d->parent || load16(d, kAbort) != 0;
}

// Waits for semaphore A in steps, so that a stop, a gone viewer or an abort ends the wait.
bool waitTurn(BW_Driver *d) {
    for (;;) {
        timespec until;
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_nsec += 100 * 1000 * 1000;
        if (until.tv_nsec >= 1000000000) { until.tv_nsec -= 1000000000; ++until.tv_sec; }
        if (sem_timedwait(d->turn, &until) == 0) return true;
        if (errno != ETIMEDOUT && errno != EINTR) {
            driverCommonError(d, BW_DERR_SEM_ACQUIRE, 1);
            return false;
        }
        if (viewerGone(d)) return false;
    }
}

bool waitTick(BW_Driver *d) {
    double rate = d->sync == BW_SYNC_FREQUENCY && d->frequency > 0 ? d->frequency : BW_DRIVER_FREE_RATE;
    long step = long(1e9 / rate);
    d->nextTick.tv_nsec += step;
    while (d->nextTick.tv_nsec >= 1000000000) { d->nextTick.tv_nsec -= 1000000000; ++d->nextTick.tv_sec; }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &d->nextTick, nullptr) == EINTR)
        if (gStopRequested) return false;
    return !viewerGone(d);
}

void readOutputs(BW_Driver *d) {
    for (int i = 0; i < d->used; ++i) {
        d->outputNew[size_t(i)] = 0;
        if (direction(d, i) != BW_DOF_OUTPUT) continue;
        size_t slot = slotOffset(d, i);
        if (load32(d, slot + kSlotWritten) != 2) continue;
        d->output[size_t(i)] = loadF(d, slot + kSlotValue);
        d->outputNew[size_t(i)] = 1;
        store32(d, slot + kSlotWritten, 0);
    }
}

void writeInputs(BW_Driver *d, float time) {
    for (int i = 0; i < d->used; ++i) {
        if (direction(d, i) != BW_DOF_INPUT || !d->inputSet[size_t(i)]) continue;
        size_t slot = slotOffset(d, i);
        float v = d->input[size_t(i)];
        storeF(d, slot + kSlotValue, v);
        storeF(d, slot + kSlotTime, time);
        store32(d, slot + kSlotType, BW_DOF_INPUT);
        store32(d, slot + kSlotActive, 1);
        store32(d, slot + kSlotWritten, 1);
        if (d->takeOpen) d->take.records.push_back({time, i, int(d->sampleCount), v});
    }
}

void onTerm(int) { gStopRequested = 1; }

}  // namespace

extern "C" {

int driverParseArgs(int argc, char **argv, BW_DriverArgs *args) {
    *args = BW_DriverArgs{};
    args->rest = argv + (argc > 0 ? 1 : 0);
    int out = 0;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "-BW_RUN") == 0) {
            args->run = 1;
        } else if (strcmp(argv[i], "-take_type") == 0) {
            const char *word = i + 1 < argc ? argv[++i] : "";
            if (strcmp(word, "ASCII") == 0) args->takeType = BW_TAKE_FILE_ASCII;
            else if (strcmp(word, "BINARY") == 0) args->takeType = BW_TAKE_FILE_BINARY;
            else {
                fprintf(stderr, "%s: '-take_type' needs ASCII or BINARY, not '%s'\n", argv[0], word);
                return 0;
            }
        } else if (strcmp(argv[i], "-record") == 0 || strcmp(argv[i], "-mode") == 0) {
            if (i + 1 >= argc) {
                fprintf(stderr, "%s: '%s' needs an argument\n", argv[0], argv[i]);
                return 0;
            }
            if (argv[i][1] == 'r') {
                args->recordFile = argv[++i];
            } else {
                // The network modes carry their words to the end of the line.
                args->mode = argv[++i];
                args->modeWords = argv + i + 1;
                args->modeCount = argc - i - 1;
                break;
            }
        } else {
            args->rest[out++] = argv[i];
        }
    }
    args->restCount = out;
    return 1;
}

BW_Driver *driverInitArena(const BW_DriverDesc *desc, const BW_DriverArgs *args, const char *path) {
    const char *name = desc->name ? desc->name : "driver";
    int fd = open(path, O_RDWR);
    if (fd < 0) {
        fprintf(stderr, "%s driver: cannot open channel arena '%s': %s\n", name, path, strerror(errno));
        return nullptr;
    }
    struct stat st;
    size_t need = BW_COMM_SEM_TABLE_OFFSET + BW_COMM_SEM_COUNT * sizeof(sem_t);
    if (fstat(fd, &st) != 0 || size_t(st.st_size) < need) {
        fprintf(stderr, "%s driver: channel arena '%s' is too small (%lld bytes, %zu needed)\n", name, path,
                (long long)st.st_size, need);
        close(fd);
        return nullptr;
    }
    void *map = mmap(nullptr, size_t(st.st_size), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (map == MAP_FAILED) {
        fprintf(stderr, "%s driver: cannot map channel arena '%s': %s\n", name, path, strerror(errno));
        return nullptr;
    }
    BW_Driver *d = new BW_Driver;
    d->desc = *desc;
    d->args = *args;
    d->base = static_cast<uint8_t *>(map);
    d->size = size_t(st.st_size);
    d->index = int(load32(d, kDriverIndex));
    d->first = int(load32(d, kFirstChannel));
    d->count = int(load32(d, kChannelCount));
    uint32_t semA = load32(d, kSemaphoreA), semB = load32(d, kSemaphoreB);
    bool synced = load16(d, kSyncMode) == 0;
    d->frequency = load32(d, kFrequency);
    d->sync = synced ? BW_SYNC_SYNCED : d->frequency ? BW_SYNC_FREQUENCY : BW_SYNC_FREE;
    const char *bad = nullptr;
    if (d->index < 0 || d->index >= BW_COMM_MAX_DRIVERS) bad = "driver index";
    else if (d->first < 0 || d->count < 0 || d->first + d->count > BW_COMM_MAX_CHANNELS) bad = "channel range";
    else if (synced && (semA >= BW_COMM_SEM_COUNT || semB >= BW_COMM_SEM_COUNT)) bad = "semaphore index";
    if (bad) {
        fprintf(stderr, "%s driver: channel arena '%s' has a bad %s\n", name, path, bad);
        munmap(map, d->size);
        delete d;
        return nullptr;
    }
    d->turn = reinterpret_cast<sem_t *>(d->base + BW_COMM_SEM_TABLE_OFFSET + semA * sizeof(sem_t));
    d->back = reinterpret_cast<sem_t *>(d->base + BW_COMM_SEM_TABLE_OFFSET + semB * sizeof(sem_t));
    d->used = d->count < desc->dofCount ? d->count : desc->dofCount;
    d->input.assign(size_t(desc->dofCount), 0.0f);
    d->inputSet.assign(size_t(desc->dofCount), 0);
    d->output.assign(size_t(desc->dofCount), 0.0f);
    d->outputNew.assign(size_t(desc->dofCount), 0);
    d->parent = getppid();
    d->attached = monotonicNow();
    d->nextTick = d->attached;
    d->command = load32(d, kCommand);
    d->paused = d->command == BW_CMD_PAUSE;

    // The handshake: magic, version and its text first, the pid last.
    char *text = reinterpret_cast<char *>(d->base + kVersionText);
    memset(text, 0, 256);
    snprintf(text, 256, "%s", desc->versionText ? desc->versionText : "");
    store32(d, kMagic, BW_COMM_MAGIC_VALUE);
    store32(d, kVersion, BW_COMM_VERSION_VALUE);
    store32(d, kDriverPid, uint32_t(getpid()));
    return d;
}

BW_Driver *driverInit(const BW_DriverDesc *desc, const BW_DriverArgs *args) {
    const char *path = getenv("BW_CHNL_ARENA_NAME");
    if (!path || !*path) {
        fprintf(stderr, "%s driver: BW_CHNL_ARENA_NAME is not set: start it from the viewer\n",
                desc->name ? desc->name : "driver");
        return nullptr;
    }
    return driverInitArena(desc, args, path);
}

int driverTurn(BW_Driver *d) {
    if (d->over) return 0;
    bool synced = d->sync == BW_SYNC_SYNCED;
    if (!(synced ? waitTurn(d) : waitTick(d))) {
        d->over = true;
        takeFinish(d);
        return 0;
    }
    followCommands(d);
    if (!d->over) {
        readOutputs(d);
        if (!d->paused) {
            std::fill(d->inputSet.begin(), d->inputSet.end(), 0);
            float time = runTime(d);
            if (d->desc.sample && !d->desc.sample(d, double(time), d->desc.user)) d->over = true;
            writeInputs(d, time);
            ++d->sampleCount;
        }
    }
    if (d->over) takeFinish(d);
    if (synced && sem_post(d->back) != 0) {
        driverCommonError(d, BW_DERR_SEM_RELEASE, 1);
        d->over = true;
    }
    return d->over ? 0 : 1;
}

void driverClose(BW_Driver *d) {
    if (!d) return;
    takeFinish(d);
    munmap(d->base, d->size);
    delete d;
}

int driverRun(const BW_DriverDesc *desc, const BW_DriverArgs *args) {
    // The viewer stops a driver with SIGTERM: the turn's wait sees it and the
    // take is written before the exit. No SA_RESTART, so the wait is woken.
    struct sigaction sa{};
    sa.sa_handler = onTerm;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGTERM, &sa, nullptr);
    BW_Driver *d = driverInit(desc, args);
    if (!d) return 1;
    while (driverTurn(d)) {
    }
    driverClose(d);
    return 0;
}

int driverMain(int argc, char **argv, const BW_DriverDesc *desc) {
    BW_DriverArgs args;
    if (!driverParseArgs(argc, argv, &args)) return 2;
    return driverRun(desc, &args);
}

int driverSetDofValue(BW_Driver *d, int dof, float value) {
    if (badDof(d, dof, BW_DERR_SET_DOF)) return 0;
    d->input[size_t(dof)] = value;
    d->inputSet[size_t(dof)] = 1;
    return 1;
}

int driverGetDofValue(BW_Driver *d, int dof, float *value) {
    if (badDof(d, dof, BW_DERR_GET_INFO)) return 0;
    *value = d->output[size_t(dof)];
    return d->outputNew[size_t(dof)];
}

int driverGetDofType(BW_Driver *d, int dof) {
    if (badDof(d, dof, BW_DERR_GET_TYPE)) return -1;
    return direction(d, dof);
}

int driverGetDofActive(BW_Driver *d, int dof) {
    if (badDof(d, dof, BW_DERR_GET_ACTIVE) || dof >= d->used) return -1;
    return int(load32(d, slotOffset(d, dof) + kSlotActive));
}

int driverGetDofInfo(BW_Driver *d, int dof, float *value, float *time, uint32_t *written) {
    if (badDof(d, dof, BW_DERR_GET_INFO) || dof >= d->used) return 0;
    size_t slot = slotOffset(d, dof);
    *value = loadF(d, slot + kSlotValue);
    *time = loadF(d, slot + kSlotTime);
    *written = load32(d, slot + kSlotWritten);
    return 1;
}

void driverError(BW_Driver *d, int number, int fatal) {
    reportError(d, fatal ? BW_DRVERR_FATAL : 0u, number);
}

void driverCommonError(BW_Driver *d, BW_DriverCommonError number, int fatal) {
    reportError(d, BW_DRVERR_COMMON | (fatal ? BW_DRVERR_FATAL : 0u), int(number));
}

const char *driverCommonErrorText(int number) {
    return number >= 0 && number < BW_DERR_COUNT ? kCommonErrors[number] : nullptr;
}

int driverIndex(const BW_Driver *d) { return d->index; }
int driverChannelCount(const BW_Driver *d) { return d->count; }
BW_SyncMode driverSyncMode(const BW_Driver *d) { return d->sync; }
uint32_t driverCommand(const BW_Driver *d) { return d->command; }
int driverRecording(const BW_Driver *d) { return d->takeOpen ? 1 : 0; }
void driverRequestStop(void) { gStopRequested = 1; }

}  // extern "C"
