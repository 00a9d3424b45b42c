// The arena shared with the driver processes: a file mapped by both sides,
// holding the ChannelComm block and a table of process-shared semaphores.
#include <fcntl.h>
#include <poll.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "bw_env.h"
#include "channel.h"
#include "channel_internal.h"
#include "tol_status.h"

// The block is read by drivers written apart from this program: every offset is fixed.
static_assert(offsetof(ChannelComm, magic) == 0);
static_assert(offsetof(ChannelComm, version) == 4);
static_assert(offsetof(ChannelComm, driverVersionText) == 8);
static_assert(offsetof(ChannelComm, command) == 264);
static_assert(offsetof(ChannelComm, errorFlags) == 268);
static_assert(offsetof(ChannelComm, errorNumber) == 272);
static_assert(offsetof(ChannelComm, errorDriver) == 276);
static_assert(offsetof(ChannelComm, clockRunning) == 280);
static_assert(offsetof(ChannelComm, startSeconds) == 284);
static_assert(offsetof(ChannelComm, startMicroseconds) == 288);
static_assert(offsetof(ChannelComm, recordTime) == 292);
static_assert(offsetof(ChannelComm, startTime) == 296);
static_assert(offsetof(ChannelComm, sceneName) == 300);
static_assert(offsetof(ChannelComm, takeNumber) == 556);
static_assert(offsetof(ChannelComm, takeExtra) == 560);
static_assert(offsetof(ChannelComm, driverCount) == 564);
static_assert(offsetof(ChannelComm, syncFlag) == 568);
static_assert(offsetof(ChannelComm, debug) == 572);
static_assert(offsetof(ChannelComm, driverPid) == 576);
static_assert(offsetof(ChannelComm, semaphoreA) == 580);
static_assert(offsetof(ChannelComm, semaphoreB) == 584);
static_assert(offsetof(ChannelComm, syncMode) == 588);
static_assert(offsetof(ChannelComm, driverIndex) == 592);
static_assert(offsetof(ChannelComm, firstChannel) == 596);
static_assert(offsetof(ChannelComm, channelCount) == 600);
static_assert(offsetof(ChannelComm, values) == 604);
static_assert(offsetof(ChannelComm, channelState) == 20604);
static_assert(offsetof(ChannelComm, channelCounter) == 24604);
static_assert(offsetof(ChannelComm, abort) == 28604);
static_assert(offsetof(ChannelComm, frequency) == 28608);
static_assert(offsetof(ChannelComm, commandPending) == 28612);
static_assert(sizeof(ChannelComm) == 28676);
static_assert(sizeof(sem_t) == CHANNEL_SEMA_SIZE);
static_assert(CHANNEL_SEMA_TABLE_OFFSET >= sizeof(ChannelComm));
static_assert(CHANNEL_SEMA_TABLE_OFFSET + CHANNEL_SEMA_COUNT * CHANNEL_SEMA_SIZE <= CHANNEL_ARENA_SIZE);

namespace {

struct Arena {
    char path[1024] = "";           // the arena file
    unsigned char *base = nullptr;  // its mapping, CHANNEL_ARENA_SIZE bytes
    int semaCount = 0;              // semaphores made
    int commMode = 0;               // 1 while the arena serves a run
    int slotSize = 20;              // bytes of a slot record
};
Arena arena;
ChannelCommDriver driverTable[CHANNEL_MAX_DRIVERS];

ChannelComm *block() { return reinterpret_cast<ChannelComm *>(arena.base); }

sem_t *semaphore(int index) {
    return reinterpret_cast<sem_t *>(arena.base + CHANNEL_SEMA_TABLE_OFFSET + index * CHANNEL_SEMA_SIZE);
}

// True when the process behind a descriptor has ended.
bool processEnded(int pidfd) {
    if (pidfd < 0) return false;
    pollfd p{pidfd, POLLIN, 0};
    return poll(&p, 1, 0) > 0;
}

constexpr long kSpinNanoseconds = 20 * 1000;

// Waits on a semaphore in steps of 100 ms, giving up when the run is aborted
// or the driver is known dead, so that a dead driver cannot hang the viewer.
bool boundedWait(sem_t *sem, int driver) {
    // A synced driver's turn is short: a driver that is running gives the turn
    // back within microseconds, sooner than a sleep and a wake-up would take.
    timespec spinStart, now;
    clock_gettime(CLOCK_MONOTONIC, &spinStart);
    do {
        if (sem_trywait(sem) == 0) return true;
        clock_gettime(CLOCK_MONOTONIC, &now);
    } while ((now.tv_sec - spinStart.tv_sec) * 1000000000L + (now.tv_nsec - spinStart.tv_nsec) < kSpinNanoseconds);
    for (;;) {
        timespec until;
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_nsec += 100 * 1000 * 1000;
        if (until.tv_nsec >= 1000000000) { until.tv_sec += 1; until.tv_nsec -= 1000000000; }
        if (sem_timedwait(sem, &until) == 0) return true;
        if (errno != ETIMEDOUT && errno != EINTR) return false;
        const ChannelCommDriver &row = driverTable[driver];
        if (__atomic_load_n(&block()->abort, __ATOMIC_ACQUIRE) || arena.commMode != 1 ||
            row.state == CHANNEL_DRV_DEAD || processEnded(row.pidfd))
            return false;
    }
}

bool boundsOk(int index, int first, int count) {
    return index >= 0 && index < CHANNEL_MAX_DRIVERS && first >= 0 && count >= 0 &&
           first + count <= CHANNEL_SLOT_COUNT;
}

}  // namespace

ChannelComm *commBlock() { return arena.base ? block() : nullptr; }
const char *commArenaPath() { return arena.path; }
ChannelCommDriver *commDriver(int index) {
    return index >= 0 && index < CHANNEL_MAX_DRIVERS ? &driverTable[index] : nullptr;
}

int commInit(int syncWanted, int driverCount, int debug) {
    if (arena.base || driverCount < 0 || driverCount > CHANNEL_MAX_DRIVERS) return 0;
    const char *tmp = envGet(ENV_TMPDIR);
    snprintf(arena.path, sizeof arena.path, "%s/BRAK_CHANNEL_arena.%05d", tmp && *tmp ? tmp : "/tmp",
             static_cast<int>(getpid()));
    unlink(arena.path);  // a file left by an earlier process with our pid
    const int fd = open(arena.path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) { arena.path[0] = 0; return 0; }
    void *map = ftruncate(fd, CHANNEL_ARENA_SIZE) == 0
                    ? mmap(nullptr, CHANNEL_ARENA_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0)
                    : MAP_FAILED;
    close(fd);
    if (map == MAP_FAILED) { unlink(arena.path); arena.path[0] = 0; return 0; }
    arena.base = static_cast<unsigned char *>(map);
    if (setenv("BW_CHNL_ARENA_NAME", arena.path, 1) != 0) {
        printf("Error doing putenv( \"BW_CHNL_ARENA_NAME=%s\" )\n", arena.path);
        commClose();
        return 0;
    }
    ChannelComm *comm = block();
    memset(comm, 0, sizeof *comm);  // slots, error words, command, startTime, states, counters
    comm->debug = static_cast<uint16_t>(debug);
    comm->driverCount = static_cast<uint32_t>(driverCount);
    comm->syncFlag = 1;
    arena.commMode = 1;
    arena.slotSize = sizeof(ChannelSlot);
    arena.semaCount = 0;
    if (syncWanted) {
        for (int i = 0; i < driverCount; ++i) {
            // The driver goes first: its semaphore starts at 1, the viewer's at 0.
            if (sem_init(semaphore(2 * i), 1, 1) != 0 || sem_init(semaphore(2 * i + 1), 1, 0) != 0) {
                commClose();
                return 0;
            }
            arena.semaCount = 2 * i + 2;
        }
    }
    for (ChannelCommDriver &row : driverTable) {
        row.semaphoreIndex = -1;
        row.holdsLock = 0;
        row.inSync = 1;
        row.state = CHANNEL_DRV_NOT_STARTED;
        row.pidfd = -1;
        row.pid = -1;
    }
    return 1;
}

int commClose() {
    if (!arena.base) return 0;
    int ok = 1;
    for (int i = 0; i < arena.semaCount; ++i) ok &= sem_destroy(semaphore(i)) == 0;
    arena.semaCount = 0;
    arena.commMode = 0;
    ok &= munmap(arena.base, CHANNEL_ARENA_SIZE) == 0;
    arena.base = nullptr;
    ok &= unlink(arena.path) == 0;
    commRemoveBufferFiles();
    arena.path[0] = 0;
    for (ChannelCommDriver &row : driverTable) {
        if (row.pidfd >= 0) close(row.pidfd);
        row.pidfd = -1;
        row.pid = -1;
        row.semaphoreIndex = -1;
        row.state = CHANNEL_DRV_NOT_STARTED;
    }
    return ok;
}

int commGrabDriver(ChannelSetup *, int index) {
    if (!arena.base || index < 0 || index >= CHANNEL_MAX_DRIVERS) return 0;
    ChannelCommDriver &row = driverTable[index];
    if (row.state == CHANNEL_DRV_DEAD) return 0;
    if (row.semaphoreIndex < 0 || !row.inSync) return 1;  // a driver that runs free has no turn
    if (row.holdsLock) return 1;
    if (block()->abort || arena.commMode != 1) return 0;
    if (!boundedWait(semaphore(2 * row.semaphoreIndex + 1), index)) return 0;
    row.holdsLock = 1;
    return 1;
}

int commReleaseDriver(ChannelSetup *, int index) {
    if (!arena.base || index < 0 || index >= CHANNEL_MAX_DRIVERS) return 0;
    ChannelCommDriver &row = driverTable[index];
    if (row.semaphoreIndex < 0 || !row.inSync || !row.holdsLock) return 1;
    row.holdsLock = 0;
    return sem_post(semaphore(2 * row.semaphoreIndex)) == 0;
}

int commLockAll(ChannelSetup *setup) {
    int ok = 1;
    for (int i = 0; i < CHANNEL_MAX_DRIVERS; ++i)
        if (driverTable[i].state == CHANNEL_DRV_RUNNING) ok &= commGrabDriver(setup, i);
    return ok;
}

int commUnlockAll(ChannelSetup *setup) {
    int ok = 1;
    for (int i = 0; i < CHANNEL_MAX_DRIVERS; ++i)
        if (driverTable[i].state != CHANNEL_DRV_NOT_STARTED) ok &= commReleaseDriver(setup, i);
    return ok;
}

int bw_commGetData(ChannelDriver *driver, int index, int first, int count, ChannelSlot *slots) {
    if (!arena.base || !boundsOk(index, first, count)) return 0;
    ChannelCommDriver &row = driverTable[index];
    // A synced driver whose turn the viewer holds already (commLockAll) is read
    // under that turn; otherwise the turn is taken for this read alone.
    const bool grabbed = row.inSync && !row.holdsLock && row.semaphoreIndex >= 0;
    if (grabbed && !commGrabDriver(nullptr, index)) return 0;
    if (driver) driver->readFlag = 1;
    ChannelComm *comm = block();
    for (int i = 0; i < count; ++i) {
        ChannelSlot &shared = comm->values[first + i];
        if (shared.written == 1) {
            slots[i] = shared;
            shared.written = 0;
        }
        if (comm->debug)
            printf("bw_commGetData - chn %d, value %f, time %f, written %d, type: %d, active: %d\n",
                   first + i, slots[i].value, slots[i].time, slots[i].written, slots[i].type,
                   slots[i].active);
    }
    if (comm->debug) fflush(stdout);
    if (grabbed) commReleaseDriver(nullptr, index);
    return 1;
}

int bw_commSetData(ChannelDriver *, int index, int first, int count, const ChannelSlot *slots,
                   int force, int *written) {
    if (written) *written = 0;
    if (!arena.base || !boundsOk(index, first, count)) return 0;
    ChannelComm *comm = block();
    for (int i = 0; i < count; ++i) {
        if (slots[i].written == 2 && written) *written = 1;
        if (slots[i].written == 2 || force) comm->values[first + i] = slots[i];
        if (comm->debug)
            printf("bw_commSetData - chn %d, value %f, time %f, written %d, type: %d\n", first + i,
                   slots[i].value, slots[i].time, slots[i].written, slots[i].type);
    }
    if (comm->debug) fflush(stdout);
    return 1;
}

void commSetCommand(uint32_t command) {
    if (!arena.base) return;
    ChannelComm *comm = block();
    comm->command = command;
    for (int i = 0; i < CHANNEL_MAX_DRIVERS; ++i)
        if (driverTable[i].state == CHANNEL_DRV_RUNNING) comm->commandPending[i] = 1;
}

void commPrepareDriver(int index, int semaphoreIndex, int firstChannel, int channelCount, int runMode,
                       float frequency) {
    ChannelComm *comm = block();
    comm->commandPending[index] = 0;
    __atomic_store_n(&comm->driverPid, 0u, __ATOMIC_RELEASE);
    comm->driverIndex = static_cast<uint32_t>(index);
    comm->semaphoreA = static_cast<uint32_t>(2 * semaphoreIndex);
    comm->semaphoreB = static_cast<uint32_t>(2 * semaphoreIndex + 1);
    comm->syncMode = runMode == CHANNEL_RUN_SYNCED ? 0 : 1;
    comm->frequency = runMode == CHANNEL_RUN_FREQUENCY ? static_cast<uint32_t>(frequency) : 0;
    comm->firstChannel = static_cast<uint32_t>(firstChannel);
    comm->channelCount = static_cast<uint32_t>(channelCount);
    comm->abort = 0;
    driverTable[index].semaphoreIndex = semaphoreIndex;
}

int commDriverTimeout() {
    const char *value = envGet(ENV_BW_DRIVER_TIMEOUT);
    const int seconds = value ? atoi(value) : 0;
    return seconds < 1 ? 7 : seconds;
}

int commAwaitDriver(int index, const char *baseName, uint32_t pid, int pidfd, int *timedOut) {
    ChannelComm *comm = block();
    *timedOut = 0;
    const int steps = commDriverTimeout() * 10;
    int step = 0;
    while (__atomic_load_n(&comm->driverPid, __ATOMIC_ACQUIRE) != pid) {
        if (++step > steps || processEnded(pidfd)) { *timedOut = step > steps; return 0; }
        usleep(100 * 1000);
    }
    if (comm->magic != CHANNEL_COMM_MAGIC || comm->version != CHANNEL_COMM_VERSION) {
        char text[sizeof comm->driverVersionText + 1] = {};
        memcpy(text, comm->driverVersionText, sizeof comm->driverVersionText);
        if (text[0]) msgShowf(TOL_CLASS_ERROR, "%s driver (%s) - incompatible version", baseName, text);
        else msgShowf(TOL_CLASS_ERROR, "%s driver - incompatible version", baseName);
        return 0;
    }
    ChannelCommDriver &row = driverTable[index];
    // A driver that runs free counts as always held: the viewer never waits on it.
    row.holdsLock = comm->syncMode;
    row.inSync = comm->syncMode == 0;
    row.pidfd = pidfd;
    row.pid = static_cast<int32_t>(pid);
    row.state = CHANNEL_DRV_RUNNING;
    if (comm->syncMode == 0) return commGrabDriver(nullptr, index);
    return 1;
}
