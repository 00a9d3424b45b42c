// The arena shared with drivers. The driver side here is written from the
// arena's documented layout alone: raw offsets into the mapped file.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>
#include <tuple>

#include "capture.h"
#include "channel.h"
#include "channel_internal.h"

namespace {

// The driver's view of the arena: the file named by BW_CHNL_ARENA_NAME.
struct FakeDriver {
    unsigned char *base = nullptr;

    FakeDriver() {
        const char *path = getenv("BW_CHNL_ARENA_NAME");
        int fd = path ? open(path, O_RDWR) : -1;
        if (fd < 0) return;
        void *m = mmap(nullptr, 0x100000, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        close(fd);
        if (m != MAP_FAILED) base = static_cast<unsigned char *>(m);
    }
    ~FakeDriver() { if (base) munmap(base, 0x100000); }

    uint32_t u32(size_t at) const { uint32_t v; memcpy(&v, base + at, 4); return v; }
    void put32(size_t at, uint32_t v) { memcpy(base + at, &v, 4); }
    void putf(size_t at, float v) { memcpy(base + at, &v, 4); }
    sem_t *sem(uint32_t handle) { return reinterpret_cast<sem_t *>(base + 28736 + 32 * handle); }

    // Magic, version and text first, the pid last: the pid says "ready".
    void handshake(uint32_t pid, uint32_t version = 3, const char *text = "") {
        put32(0, 0x3510cafe);
        put32(4, version);
        strncpy(reinterpret_cast<char *>(base + 8), text, 255);
        __atomic_store_n(reinterpret_cast<uint32_t *>(base + 576), pid, __ATOMIC_RELEASE);
    }
    // One turn: wait for ours, write each of our slots as new, hand the turn over.
    void turn(float value) {
        const uint32_t a = u32(580), b = u32(584), first = u32(596), count = u32(600);
        sem_wait(sem(a));
        for (uint32_t i = 0; i < count; ++i) {
            const size_t slot = 604 + 20 * (first + i);
            putf(slot, value + i);       // value
            putf(slot + 4, 0.25f);       // time
            put32(slot + 8, 1);          // written: new for the viewer
            put32(slot + 12, 7);         // type
            put32(slot + 16, 1);         // active
        }
        sem_post(sem(b));
    }
};

struct Arena {
    explicit Arena(int drivers, int debug = 0) { ok = commInit(1, drivers, debug); }
    ~Arena() { if (ok) commClose(); }
    int ok;
};

}  // namespace

TEST(ChannelComm, ArenaFileIsPrivateSizedAndRemoved) {
    bwtest::TempDir tmp;
    bwtest::ScopedEnv dir("TMPDIR", tmp.path().c_str());
    std::string path;
    {
        Arena arena(2);
        ASSERT_EQ(arena.ok, 1);
        char want[1100];
        snprintf(want, sizeof want, "%s/BRAK_CHANNEL_arena.%05d", tmp.path().c_str(), (int)getpid());
        path = commArenaPath();
        EXPECT_EQ(path, want);
        EXPECT_STREQ(getenv("BW_CHNL_ARENA_NAME"), want);
        struct stat st{};
        ASSERT_EQ(stat(want, &st), 0);
        EXPECT_EQ(st.st_mode & 0777, 0600u);
        EXPECT_EQ(st.st_size, 0x100000);
        FakeDriver view;
        ASSERT_NE(view.base, nullptr);
        EXPECT_EQ(view.u32(564), 2u);  // driverCount
        EXPECT_EQ(view.u32(568), 1u);  // syncFlag
        EXPECT_EQ(view.u32(264), 0u);  // command
        EXPECT_EQ(commDriver(0)->semaphoreIndex, -1);
        EXPECT_EQ(commInit(1, 1, 0), 0);  // one arena at a time
    }
    EXPECT_NE(access(path.c_str(), F_OK), 0);
}

TEST(ChannelComm, HandshakeAndTurnsWithADriverThread) {
    Arena arena(1);
    ASSERT_EQ(arena.ok, 1);
    commPrepareDriver(0, 0, 10, 2, CHANNEL_RUN_SYNCED, 0);
    std::thread driver([] {
        FakeDriver d;
        EXPECT_EQ(d.u32(580), 0u);
        EXPECT_EQ(d.u32(584), 1u);
        EXPECT_EQ(d.u32(592), 0u);  // driverIndex
        d.handshake(4242);
        d.turn(1.5f);
        d.turn(10.5f);
    });
    int timedOut = -1;
    ASSERT_EQ(commAwaitDriver(0, "fake", 4242, -1, &timedOut), 1);  // takes the first turn
    EXPECT_EQ(timedOut, 0);
    EXPECT_EQ(commDriver(0)->holdsLock, 1u);
    ChannelDriver local;
    ChannelSlot slots[2] = {};
    ASSERT_EQ(bw_commGetData(&local, 0, 10, 2, slots), 1);
    EXPECT_EQ(local.readFlag, 1);
    EXPECT_EQ(std::tuple(slots[0].value, slots[1].value, slots[1].time, slots[1].written, slots[1].type),
              std::tuple(1.5f, 2.5f, 0.25f, 1u, 7u));
    EXPECT_EQ(commBlock()->values[10].written, 0u);  // taken
    commSetCommand(COMM_CMD_RUN);
    EXPECT_EQ(commBlock()->commandPending[0], 1);
    EXPECT_EQ(commBlock()->commandPending[1], 0);
    ASSERT_EQ(commUnlockAll(nullptr), 1);
    // Not holding the turn now: the read waits for the driver's next one.
    ASSERT_EQ(bw_commGetData(&local, 0, 10, 2, slots), 1);
    EXPECT_EQ(slots[0].value, 10.5f);
    EXPECT_EQ(commDriver(0)->holdsLock, 0u);
    driver.join();
}

TEST(ChannelComm, GrabbingAHeldTurnOrReleasingAGivenOneChangesNothing) {
    Arena arena(1);
    ASSERT_EQ(arena.ok, 1);
    commPrepareDriver(0, 0, 0, 1, CHANNEL_RUN_SYNCED, 0);
    FakeDriver d;
    ASSERT_NE(d.base, nullptr);
    d.handshake(4343);
    d.turn(1.0f);
    int timedOut = -1;
    ASSERT_EQ(commAwaitDriver(0, "fake", 4343, -1, &timedOut), 1);  // the viewer holds the turn
    sem_t *a = d.sem(d.u32(580)), *b = d.sem(d.u32(584));
    auto values = [&] {
        int va = -1, vb = -1;
        sem_getvalue(a, &va);
        sem_getvalue(b, &vb);
        return std::pair(va, vb);
    };
    EXPECT_EQ(values(), std::pair(0, 0));
    // Were the second grab to wait, the driver would never post: a watchdog
    // aborts the wait so that the test fails instead of hanging.
    std::atomic<bool> done{false};
    std::thread watchdog([&] {
        for (int i = 0; i < 200 && !done; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (!done) commBlock()->abort = 1;
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(commGrabDriver(nullptr, 0), 1);
    const auto took = std::chrono::steady_clock::now() - start;
    done = true;
    watchdog.join();
    EXPECT_LT(took, std::chrono::milliseconds(500));
    EXPECT_EQ(values(), std::pair(0, 0));
    EXPECT_EQ(commDriver(0)->holdsLock, 1u);
    // One release gives the turn back; a second has nothing to give.
    ASSERT_EQ(commReleaseDriver(nullptr, 0), 1);
    EXPECT_EQ(values(), std::pair(1, 0));
    ASSERT_EQ(commReleaseDriver(nullptr, 0), 1);
    EXPECT_EQ(values(), std::pair(1, 0));
    EXPECT_EQ(commDriver(0)->holdsLock, 0u);
}

TEST(ChannelComm, ADeadDriverProcessDoesNotHangTheTurn) {
    std::string path;
    {
        Arena arena(1);
        ASSERT_EQ(arena.ok, 1);
        path = commArenaPath();
        commPrepareDriver(0, 0, 0, 1, CHANNEL_RUN_SYNCED, 0);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            FakeDriver d;  // its own mapping of the file, by name
            if (!d.base) _exit(2);
            d.handshake(static_cast<uint32_t>(getpid()));
            d.turn(3.0f);
            pause();  // dies here, holding its turn
            _exit(0);
        }
        const int pidfd = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
        ASSERT_GE(pidfd, 0);
        int timedOut = -1;
        ASSERT_EQ(commAwaitDriver(0, "fake", static_cast<uint32_t>(child), pidfd, &timedOut), 1);
        ChannelSlot slot{};
        ASSERT_EQ(bw_commGetData(nullptr, 0, 0, 1, &slot), 1);
        EXPECT_EQ(slot.value, 3.0f);
        commReleaseDriver(nullptr, 0);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(commGrabDriver(nullptr, 0), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    }
    EXPECT_NE(access(path.c_str(), F_OK), 0);  // removed after the crash too
}

TEST(ChannelComm, IncompatibleVersionShowsTheDriversText) {
    Arena arena(1);
    ASSERT_EQ(arena.ok, 1);
    commPrepareDriver(0, 0, 0, 1, CHANNEL_RUN_SYNCED, 0);
    {
        FakeDriver d;
        d.handshake(77, 2, "2.0 beta");
    }
    int timedOut = -1;
    bwtest::StreamCapture err(stderr);
    EXPECT_EQ(commAwaitDriver(0, "tracker", 77, -1, &timedOut), 0);
    EXPECT_EQ(err.text(), "tracker driver (2.0 beta) - incompatible version\n");
    EXPECT_EQ(commDriver(0)->state, CHANNEL_DRV_NOT_STARTED);
}

TEST(ChannelComm, FreeDriverHasNoTurnAndTimeoutDefaults) {
    Arena arena(1);
    ASSERT_EQ(arena.ok, 1);
    commPrepareDriver(0, 0, 0, 1, CHANNEL_RUN_FREQUENCY, 60.0f);
    EXPECT_EQ(commBlock()->syncMode, 1);
    EXPECT_EQ(commBlock()->frequency, 60u);
    {
        FakeDriver d;
        d.handshake(88);
    }
    int timedOut = -1;
    ASSERT_EQ(commAwaitDriver(0, "free", 88, -1, &timedOut), 1);
    EXPECT_EQ(commLockAll(nullptr), 1);  // nothing to wait for
    ChannelSlot slot{};
    EXPECT_EQ(bw_commGetData(nullptr, 0, 0, 1, &slot), 1);

    {
        bwtest::ScopedEnv zero("BW_DRIVER_TIMEOUT", "0");
        EXPECT_EQ(commDriverTimeout(), 7);
    }
    bwtest::ScopedEnv one("BW_DRIVER_TIMEOUT", "1");
    EXPECT_EQ(commDriverTimeout(), 1);
    commPrepareDriver(1, 0, 0, 1, CHANNEL_RUN_SYNCED, 0);
    EXPECT_EQ(commAwaitDriver(1, "silent", 99, -1, &timedOut), 0);
    EXPECT_EQ(timedOut, 1);
}

TEST(ChannelComm, SetDataBoundsAndDebugLines) {
    Arena arena(0, 1);
    ASSERT_EQ(arena.ok, 1);
    ChannelSlot slots[2] = {{1.0f, 0.5f, 2, 3, 1}, {9.0f, 0.5f, 0, 3, 1}};
    int written = -1;
    EXPECT_EQ(bw_commSetData(nullptr, 0, 999, 2, slots, 0, &written), 0);  // past slot 999
    EXPECT_EQ(bw_commGetData(nullptr, 32, 0, 1, slots), 0);                 // no driver 32
    bwtest::StreamCapture out(stdout);
    ASSERT_EQ(bw_commSetData(nullptr, 0, 998, 2, slots, 0, &written), 1);
    EXPECT_EQ(out.text(),
              "bw_commSetData - chn 998, value 1.000000, time 0.500000, written 2, type: 3\n"
              "bw_commSetData - chn 999, value 9.000000, time 0.500000, written 0, type: 3\n");
    EXPECT_EQ(written, 1);
    EXPECT_EQ(commBlock()->values[998].value, 1.0f);
    EXPECT_EQ(commBlock()->values[999].value, 0.0f);  // not marked, not forced
    slots[0].written = 0;
    ASSERT_EQ(bw_commSetData(nullptr, 0, 998, 2, slots, 1, &written), 1);
    EXPECT_EQ(written, 0);
    EXPECT_EQ(commBlock()->values[999].value, 9.0f);
}

TEST(ChannelComm, AnOutputSetByTheViewerIsMarkedForTheWriteToTakeIt) {
    Arena arena(0);
    ASSERT_EQ(arena.ok, 1);
    ChannelDriver d;
    d.dofCount = 3;
    d.dofs.resize(3);
    d.dofs[0].direction = d.dofs[2].direction = CHANNEL_DIR_OUTPUT;
    d.dofs[1].direction = CHANNEL_DIR_INPUT;
    d.dofs[2].scale = 2.0f;
    channelDofSet(&d, 0, 1.5f);
    channelDofSet(&d, 1, 9.0f);  // an input: the driver's to set
    channelDofSet(&d, 2, 3.0f);
    ASSERT_EQ(d.slots.size(), 3u);
    EXPECT_EQ(d.slots[0].written, 2u);
    EXPECT_EQ(d.slots[1].written, 0u);
    EXPECT_EQ(d.slots[2].written, 2u);
    // The write step copies exactly the marked slots, with their mark, into the block.
    int written = -1;
    ASSERT_EQ(bw_commSetData(&d, 0, 100, 3, d.slots.data(), 0, &written), 1);
    EXPECT_EQ(written, 1);
    const ChannelSlot *block = commBlock()->values;
    EXPECT_EQ(block[100].value, 1.5f);
    EXPECT_EQ(block[100].written, 2u);
    EXPECT_EQ(block[101].written, 0u);
    EXPECT_EQ(block[101].value, 0.0f);
    EXPECT_EQ(block[102].value, 6.0f);
    EXPECT_EQ(block[102].active, 1u);
}
