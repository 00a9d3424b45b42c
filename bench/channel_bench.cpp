// The viewer's side of the channel arena against drivers on the kit.
//  - One synced cycle as the viewer makes it once a frame: lock all, take every
//    slot of 8 drivers of 32 DOFs each, unlock. The drivers are threads of this
//    process; between two cycles (the rest of a frame, not timed) each has had
//    its turn. The aim is under 20 microseconds.
//  - The same cycle back to back, without a frame between: the viewer then
//    waits for all 8 drivers to be woken, sample and give the turn back. On a
//    machine with fewer cores than drivers this is mostly wake-ups.
//  - The delay from a driver's write to the viewer's read, and whether the value
//    read in a cycle is the one the driver wrote in that cycle (it should be,
//    every time: same_cycle 1).
//  - A driver's start, exec to handshake, with the wave driver. The aim is under
//    150 ms.
// Run in a tree without sanitizers.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "bwdriver.h"
#include "channel.h"
#include "channel_internal.h"

namespace {

constexpr int kDrivers = 8;
constexpr int kDofs = 32;
constexpr int kMaxSamples = 1 << 22;  // write times kept, by sample number

using Clock = std::chrono::steady_clock;

// One in-process driver: every sample writes its sample number to all its DOFs.
struct BenchDriver {
    int index = 0;
    std::atomic<int64_t> samples{0};      // samples written
    std::vector<Clock::time_point> when;  // per sample number: when it was written
    BW_Driver *kit = nullptr;
    std::thread thread;
};

int benchSample(BW_Driver *drv, double, void *user) {
    BenchDriver &d = *static_cast<BenchDriver *>(user);
    const int64_t n = d.samples.load(std::memory_order_relaxed);
    if (n < kMaxSamples) d.when[size_t(n)] = Clock::now();
    for (int dof = 0; dof < kDofs; ++dof) driverSetDofValue(drv, dof, float(n % (1 << 24)));
    d.samples.store(n + 1, std::memory_order_release);
    return 1;
}

const std::vector<int> &inputs() {
    static const std::vector<int> all(kDofs, BW_DOF_INPUT);
    return all;
}

// The arena, 8 synced drivers started as the viewer starts a process, but with
// the kit's handshake made by a thread of this process.
struct Rig {
    BenchDriver drivers[kDrivers];
    ChannelDriver rows[kDrivers];
    BW_DriverDesc desc{};
    BW_DriverArgs args{};
    bool ok = false;

    Rig() {
        if (commInit(1, kDrivers, 0) != 1) return;
        desc.name = "bench";
        desc.versionText = "bench 1.0";
        desc.dofCount = kDofs;
        desc.directions = inputs().data();
        desc.sample = benchSample;
        for (int i = 0; i < kDrivers; ++i) {
            BenchDriver &d = drivers[i];
            d.index = i;
            d.when.resize(kMaxSamples);
            rows[i].name = "bench";
            commPrepareDriver(i, i, i * kDofs, kDofs, CHANNEL_RUN_SYNCED, 0.0f);
            BW_DriverDesc mine = desc;
            mine.user = &d;
            d.kit = driverInitArena(&mine, &args, commArenaPath());
            if (!d.kit) return;
            d.thread = std::thread([&d] {
                while (driverTurn(d.kit)) {}
            });
            int timedOut = 0;
            if (!commAwaitDriver(i, "bench", uint32_t(getpid()), -1, &timedOut)) return;
        }
        commSetCommand(COMM_CMD_RUN);
        ok = true;
    }
    ~Rig() {
        commLockAll(nullptr);
        commSetCommand(COMM_CMD_STOP);
        commUnlockAll(nullptr);
        for (BenchDriver &d : drivers) {
            if (d.thread.joinable()) d.thread.join();
            driverClose(d.kit);
        }
        commClose();
    }
    // One cycle of the viewer: every driver's turn is over once the lock is held.
    void cycle(ChannelSlot (&slots)[kDrivers][kDofs]) {
        commUnlockAll(nullptr);
        commLockAll(nullptr);
        for (int i = 0; i < kDrivers; ++i) bw_commGetData(&rows[i], i, i * kDofs, kDofs, slots[i]);
    }
    // The rest of a frame: every driver takes the turn it was given and waits
    // for the next one.
    void frame(const int64_t (&before)[kDrivers]) {
        for (int i = 0; i < kDrivers; ++i)
            while (drivers[i].samples.load(std::memory_order_acquire) == before[i]) std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
};

void BM_SyncedCycle(benchmark::State &state) {
    Rig rig;
    if (!rig.ok) {
        state.SkipWithError("the drivers did not start");
        return;
    }
    ChannelSlot slots[kDrivers][kDofs];
    int64_t before[kDrivers];
    // The unlock wakes 8 sleeping drivers: a semaphore post to a waiter is a
    // system call and a wake-up on another core, the floor of the cycle.
    double lockAndGet = 0.0, unlock = 0.0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        commLockAll(nullptr);
        for (int i = 0; i < kDrivers; ++i) bw_commGetData(&rig.rows[i], i, i * kDofs, kDofs, slots[i]);
        benchmark::DoNotOptimize(slots);
        for (int i = 0; i < kDrivers; ++i) before[i] = rig.drivers[i].samples.load(std::memory_order_acquire);
        const Clock::time_point read = Clock::now();
        commUnlockAll(nullptr);
        const Clock::time_point end = Clock::now();
        lockAndGet += std::chrono::duration<double, std::micro>(read - start).count();
        unlock += std::chrono::duration<double, std::micro>(end - read).count();
        state.PauseTiming();
        rig.frame(before);
        state.ResumeTiming();
    }
    const double n = double(state.iterations());
    state.counters["lock_get_us"] = n > 0 ? lockAndGet / n : 0.0;
    state.counters["unlock_us"] = n > 0 ? unlock / n : 0.0;
}
BENCHMARK(BM_SyncedCycle)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_SyncedCycleBackToBack(benchmark::State &state) {
    Rig rig;
    if (!rig.ok) {
        state.SkipWithError("the drivers did not start");
        return;
    }
    ChannelSlot slots[kDrivers][kDofs];
    for (auto _ : state) {
        rig.cycle(slots);
        benchmark::DoNotOptimize(slots);
    }
}
BENCHMARK(BM_SyncedCycleBackToBack)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_WriteToRead(benchmark::State &state) {
    Rig rig;
    if (!rig.ok) {
        state.SkipWithError("the drivers did not start");
        return;
    }
    ChannelSlot slots[kDrivers][kDofs];
    double delaySum = 0.0;
    int64_t reads = 0, sameCycle = 0;
    for (auto _ : state) {
        rig.cycle(slots);
        const Clock::time_point now = Clock::now();
        BenchDriver &d = rig.drivers[0];
        // The driver waits for its next turn now: its last sample is the newest.
        const int64_t newest = d.samples.load(std::memory_order_acquire) - 1;
        const int64_t read = int64_t(slots[0][kDofs - 1].value);
        if (slots[0][kDofs - 1].written == 1 && read >= 0 && read < kMaxSamples) {
            delaySum += std::chrono::duration<double, std::micro>(now - d.when[size_t(read)]).count();
            ++reads;
            if (read == newest % (1 << 24)) ++sameCycle;
        }
    }
    state.counters["write_to_read_us"] = reads ? delaySum / double(reads) : 0.0;
    state.counters["same_cycle"] = reads ? double(sameCycle) / double(reads) : 0.0;
}
BENCHMARK(BM_WriteToRead)->UseRealTime()->Unit(benchmark::kMicrosecond);

// Exec to handshake of the wave driver, timed alone; the arena is made and the
// driver stopped outside the timing.
void BM_WaveDriverStart(benchmark::State &state) {
    for (auto _ : state) {
        if (commInit(1, 1, 0) != 1) {
            state.SkipWithError("no arena");
            return;
        }
        ChannelDriver drv;
        drv.name = "wave";
        int pid = 0, timedOut = 0;
        const Clock::time_point start = Clock::now();
        const int ok = commStartDriver(0, 0, WAVE_DRIVER, 0, 6, &pid, nullptr, &drv, &timedOut);
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        commStopDrivers();
        commClose();
        if (!ok) {
            state.SkipWithError("the wave driver did not start");
            return;
        }
        state.SetIterationTime(seconds);
    }
}
BENCHMARK(BM_WaveDriverStart)->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
