// The wave driver, started as the viewer starts it, against the test's arena: its
// values are predicted from their time by formulas of the test's own.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <cmath>
#include <numbers>
#include <thread>

#include "arena_fixture.h"

using bwtest::TestArena;

namespace {

constexpr uint32_t kIndex = 1, kFirst = 20, kSemA = 2, kSemB = 3;
constexpr double kFreq = 2.0, kAmp = 3.0, kPhase = 30.0;
// Noise of seed 7, held for each whole count of cycles 0, 1, 2...
const double kNoise7[] = {-0.21290949495778722, -0.06961509874302552, -0.7844485345999186,
                          0.8164263981107025,   -0.4736726053108351,  0.11441500273371386,
                          -0.6620798679241149,  -0.5450444016727776};

pid_t startWave(const TestArena &arena, std::vector<std::string> words) {
    pid_t pid = fork();
    if (pid == 0) {
        setenv("BW_CHNL_ARENA_NAME", arena.path().c_str(), 1);
        words.insert(words.begin(), WAVE_PATH);
        std::vector<char *> argv;
        for (std::string &w : words) argv.push_back(w.data());
        argv.push_back(nullptr);
        execv(WAVE_PATH, argv.data());
        _exit(127);
    }
    return pid;
}

// Exit code of the child within five seconds, or -1.
int waitExit(pid_t pid) {
    for (int i = 0; i < 500; ++i) {
        int status;
        if (waitpid(pid, &status, WNOHANG) == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : -2;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return -1;
}

bool waitHandshake(TestArena &arena, pid_t pid) {
    for (int i = 0; i < 700; ++i) {
        if (__atomic_load_n(&arena.u32(576), __ATOMIC_ACQUIRE) == uint32_t(pid)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

bool takeTurn(TestArena &arena) {
    timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += 5;
    return sem_timedwait(arena.sem(kSemB), &until) == 0;
}

// The five waveforms at `t`, written from their textbook forms.
double expected(int dof, double t) {
    double cycles = kFreq * t + kPhase / 360.0;
    double angle = 2.0 * std::numbers::pi * cycles;
    switch (dof) {
    case 0: return kAmp * std::sin(angle);
    case 1: return std::sin(angle) >= 0.0 ? kAmp : -kAmp;
    case 2: return kAmp * 2.0 / std::numbers::pi * std::asin(std::sin(angle));
    case 3: return kAmp * 2.0 * (cycles - std::floor(cycles + 0.5));
    default: return kAmp * kNoise7[int(std::floor(cycles))];
    }
}

TEST(WaveDriver, ValuesFollowTheirTimeAndTheGain) {
    TestArena arena;
    arena.startDriver(kIndex, kFirst, 6, kSemA, kSemB);
    arena.command(4, kIndex);
    pid_t pid = startWave(arena, {"-BW_RUN", "-frequency", "2", "-amplitude", "3", "-phase", "30", "-seed", "7"});
    ASSERT_TRUE(waitHandshake(arena, pid));
    EXPECT_EQ(arena.u32(0), 0x3510cafeu);
    EXPECT_EQ(arena.u32(4), 3u);
    EXPECT_STREQ(arena.text(8), "wave 1.0");
    double gain = 1.0;
    for (int turn = 0; turn < 16; ++turn) {
        ASSERT_TRUE(takeTurn(arena)) << "turn " << turn;
        double t = arena.time(int(kFirst));
        ASSERT_LT(kFreq * t + kPhase / 360.0, 8.0);
        for (int dof = 0; dof < 5; ++dof) {
            int ch = int(kFirst) + dof;
            EXPECT_EQ(arena.written(ch), 1u);
            EXPECT_EQ(arena.time(ch), float(t));
            EXPECT_NEAR(arena.value(ch), gain * expected(dof, t), 1e-6) << "dof " << dof << " at " << t;
            arena.written(ch) = 0;
        }
        // The gain set in this turn of the viewer is used from the driver's next sample.
        if (turn == 6) {
            arena.value(int(kFirst) + 5) = 0.5f;
            arena.written(int(kFirst) + 5) = 2;
            gain = 0.5;
        }
        if (turn == 7) {
            EXPECT_EQ(arena.written(int(kFirst) + 5), 0u);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(120));
        sem_post(arena.sem(kSemA));
    }
    ASSERT_TRUE(takeTurn(arena));
    arena.command(8, kIndex);
    sem_post(arena.sem(kSemA));
    EXPECT_EQ(waitExit(pid), 0);
    // Its slots were all the driver wrote.
    EXPECT_EQ(arena.written(int(kFirst) + 6), 0u);
    EXPECT_EQ(arena.u32(268), 0u);
}

// Lines of the take between START-OF-DATA and END-OF-DATA, as (time, dof, count, value).
struct Record {
    double time, value;
    int dof, count;
};
std::vector<Record> takeRecords(const std::string &path) {
    std::ifstream in(path);
    std::string line;
    std::vector<Record> out;
    bool data = false;
    while (std::getline(in, line)) {
        if (line == "START-OF-DATA") data = true;
        else if (line == "END-OF-DATA") break;
        else if (data) {
            Record r{};
            if (sscanf(line.c_str(), "%lf %d %d %lf", &r.time, &r.dof, &r.count, &r.value) == 4) out.push_back(r);
        }
    }
    return out;
}

TEST(WaveDriver, RecordsTheTakeItIsTold) {
    TestArena arena;
    std::string dir = arena.dir() + "/t.CHD/TAKE.0003";
    std::filesystem::create_directories(dir);
    std::string file = dir + "/wave.01.chd";
    arena.startDriver(kIndex, kFirst, 6, kSemA, kSemB);
    pid_t pid = startWave(arena, {"-BW_RUN", "-record", file, "-frequency", "2", "-amplitude", "3", "-phase",
                                  "30", "-seed", "7"});
    ASSERT_TRUE(waitHandshake(arena, pid));
    arena.u32(556) = 3;
    for (int turn = 0; turn < 5; ++turn) {
        ASSERT_TRUE(takeTurn(arena));
        if (turn == 1) arena.command(14, kIndex);
        if (turn == 3) arena.command(15, kIndex);
        sem_post(arena.sem(kSemA));
    }
    ASSERT_TRUE(takeTurn(arena));
    arena.command(8, kIndex);
    sem_post(arena.sem(kSemA));
    ASSERT_EQ(waitExit(pid), 0);
    // Samples 2 and 3 of the driver, five inputs each, at "%f" precision.
    std::vector<Record> records = takeRecords(file);
    ASSERT_EQ(records.size(), 10u);
    for (size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(records[i].dof, int(i % 5));
        EXPECT_EQ(records[i].count, 2 + int(i / 5));
        EXPECT_NEAR(records[i].value, expected(records[i].dof, records[i].time), 2e-5) << i;
    }
}

TEST(WaveDriver, EndsOnTheStopSignal) {
    TestArena arena;
    arena.startDriver(kIndex, kFirst, 6, kSemA, kSemB);
    std::string file = arena.dir() + "/wave.01.chd";
    pid_t pid = startWave(arena, {"-BW_RUN", "-record", file});
    ASSERT_TRUE(waitHandshake(arena, pid));
    ASSERT_TRUE(takeTurn(arena));
    arena.command(14, kIndex);  // in the viewer's turn: the driver's next sample records
    sem_post(arena.sem(kSemA));
    ASSERT_TRUE(takeTurn(arena));  // the driver now waits for its turn, recording
    kill(pid, SIGTERM);
    EXPECT_EQ(waitExit(pid), 0);
    // The take open at the signal is written, not lost.
    EXPECT_EQ(takeRecords(file).size(), 5u);
}

TEST(WaveDriver, RefusesToRunWithoutAnArena) {
    pid_t pid = fork();
    if (pid == 0) {
        unsetenv("BW_CHNL_ARENA_NAME");
        freopen("/dev/null", "w", stderr);
        execl(WAVE_PATH, WAVE_PATH, "-BW_RUN", static_cast<char *>(nullptr));
        _exit(127);
    }
    EXPECT_EQ(waitExit(pid), 1);
}

TEST(WaveDriver, RefusesUnknownArguments) {
    TestArena arena;
    arena.startDriver(kIndex, kFirst, 6, kSemA, kSemB);
    pid_t pid = startWave(arena, {"-BW_RUN", "-colour", "red"});
    EXPECT_EQ(waitExit(pid), 2);
    EXPECT_EQ(arena.u32(576), 0u);
}

}  // namespace
