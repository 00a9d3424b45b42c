// The driver kit against an arena the test lays out byte by byte.
#include <gtest/gtest.h>
#include <sys/time.h>

#include <algorithm>
#include <filesystem>

#include <fstream>
#include <sstream>
#include <vector>
#include <tuple>

#include "arena_fixture.h"
#include "bwdriver.h"

using bwtest::TestArena;

namespace {

constexpr uint32_t kIndex = 2, kFirst = 10, kCount = 4, kSemA = 4, kSemB = 5;

// Three inputs and one output; each sample writes sample number + DOF / 10.
struct Probe {
    int samples = 0;           // calls of sample
    float lastOutput = -1.0f;  // output DOF 3 when it came in
    int outputsSeen = 0;
};

int probeSample(BW_Driver *drv, double, void *user) {
    Probe &p = *static_cast<Probe *>(user);
    float out;
    if (driverGetDofValue(drv, 3, &out)) {
        p.lastOutput = out;
        ++p.outputsSeen;
    }
    for (int i = 0; i < 3; ++i) driverSetDofValue(drv, i, float(p.samples) + float(i) / 10.0f);
    ++p.samples;
    return 1;
}

const int kDirections[4] = {BW_DOF_INPUT, BW_DOF_INPUT, BW_DOF_INPUT, BW_DOF_OUTPUT};

struct KitTest : ::testing::Test {
    TestArena arena;
    Probe probe;
    BW_DriverDesc desc{};
    BW_DriverArgs args{};
    BW_Driver *drv = nullptr;

    void SetUp() override {
        desc.name = "probe";
        desc.versionText = "probe 1.0";
        desc.dofCount = 4;
        desc.directions = kDirections;
        desc.sample = probeSample;
        desc.user = &probe;
    }
    void TearDown() override { driverClose(drv); }
    void attach(uint16_t syncMode = 0, uint32_t frequency = 0) {
        arena.startDriver(kIndex, kFirst, kCount, kSemA, kSemB, syncMode, frequency);
        drv = driverInitArena(&desc, &args, arena.path().c_str());
        ASSERT_NE(drv, nullptr);
    }
    // The viewer's half of a turn: take semaphore B, give semaphore A.
    void viewerTurn() {
        ASSERT_EQ(sem_trywait(arena.sem(kSemB)), 0);
        sem_post(arena.sem(kSemA));
    }
};

TEST_F(KitTest, HandshakeWordsLandAtTheirOffsets) {
    attach();
    EXPECT_EQ(arena.u32(0), 0x3510cafeu);
    EXPECT_EQ(arena.u32(4), 3u);
    EXPECT_STREQ(arena.text(8), "probe 1.0");
    EXPECT_EQ(arena.u32(576), uint32_t(getpid()));
    EXPECT_EQ(driverIndex(drv), 2);
    EXPECT_EQ(driverChannelCount(drv), 4);
    EXPECT_EQ(driverSyncMode(drv), BW_SYNC_SYNCED);
    // Nothing else of the block is touched by the handshake.
    EXPECT_EQ(arena.u32(264), 0u);
    EXPECT_EQ(arena.written(kFirst), 0u);
}

TEST_F(KitTest, BadArenasAreRefusedWithTheirName) {
    bwtest::OutputCapture cap;
    EXPECT_EQ(driverInitArena(&desc, &args, "/nonexistent/arena"), nullptr);
    std::string small = arena.dir() + "/small";
    std::ofstream(small) << "x";
    EXPECT_EQ(driverInitArena(&desc, &args, small.c_str()), nullptr);
    arena.startDriver(kIndex, 999, 2, kSemA, kSemB);
    EXPECT_EQ(driverInitArena(&desc, &args, arena.path().c_str()), nullptr);
    std::string err = cap.err.text();
    EXPECT_TRUE(bwtest::contains(err, "probe driver: cannot open channel arena '/nonexistent/arena'")) << err;
    EXPECT_TRUE(bwtest::contains(err, "probe driver: channel arena '" + small + "' is too small")) << err;
    EXPECT_TRUE(bwtest::contains(err, "probe driver: channel arena '" + arena.path() + "' has a bad channel range"))
        << err;
    EXPECT_EQ(arena.u32(576), 0u);
}

TEST_F(KitTest, SyncedTurnsWriteValuesAndTimesInOrder) {
    attach();
    float lastTime = -1.0f;
    for (int turn = 0; turn < 3; ++turn) {
        ASSERT_EQ(driverTurn(drv), 1);
        EXPECT_EQ(arena.semValue(kSemB), 1);  // given back to the viewer
        EXPECT_EQ(arena.semValue(kSemA), 0);
        for (int i = 0; i < 3; ++i) {
            EXPECT_FLOAT_EQ(arena.value(int(kFirst) + i), float(turn) + float(i) / 10.0f);
            EXPECT_EQ(arena.written(int(kFirst) + i), 1u);
            EXPECT_EQ(arena.type(int(kFirst) + i), 1u);
            EXPECT_EQ(arena.active(int(kFirst) + i), 1u);
            arena.written(int(kFirst) + i) = 0;  // taken by the viewer
        }
        float t = arena.time(int(kFirst));
        EXPECT_GE(t, lastTime);
        EXPECT_EQ(arena.time(int(kFirst) + 2), t);  // one time for the sample
        lastTime = t;
        // The output slot and the slots beside the driver's range stay as they were.
        EXPECT_EQ(arena.written(int(kFirst) + 3), 0u);
        EXPECT_EQ(arena.written(int(kFirst) - 1), 0u);
        EXPECT_EQ(arena.written(int(kFirst + kCount)), 0u);
        viewerTurn();
    }
}

TEST_F(KitTest, RecordClockGivesTheTimeAndRecordTime) {
    attach();
    timeval now;
    gettimeofday(&now, nullptr);
    arena.u32(284) = uint32_t(now.tv_sec - 100);
    arena.u32(288) = uint32_t(now.tv_usec);
    arena.u16(280) = 1;
    ASSERT_EQ(driverTurn(drv), 1);
    EXPECT_NEAR(arena.time(int(kFirst)), 100.0f, 5.0f);
    EXPECT_EQ(arena.f32(292), arena.time(int(kFirst)));
}

TEST_F(KitTest, OutputSlotsAreReadOnlyWhenWrittenIsTwo) {
    attach();
    int out = int(kFirst) + 3;
    arena.value(out) = 7.5f;
    arena.written(out) = 1;  // the viewer's own mark: not for the driver
    ASSERT_EQ(driverTurn(drv), 1);
    EXPECT_EQ(probe.outputsSeen, 0);
    EXPECT_EQ(arena.written(out), 1u);
    viewerTurn();
    arena.value(out) = 2.5f;
    arena.written(out) = 2;
    ASSERT_EQ(driverTurn(drv), 1);
    EXPECT_EQ(probe.outputsSeen, 1);
    EXPECT_EQ(probe.lastOutput, 2.5f);
    EXPECT_EQ(arena.written(out), 0u);  // taken
    viewerTurn();
    ASSERT_EQ(driverTurn(drv), 1);
    EXPECT_EQ(probe.outputsSeen, 1);  // not taken twice
}

TEST_F(KitTest, PauseRunAndStopAreFollowed) {
    attach();
    arena.command(3, kIndex);
    ASSERT_EQ(driverTurn(drv), 1);
    EXPECT_EQ(arena.u16(28612 + 2 * kIndex), 0u);  // pending cleared
    EXPECT_EQ(driverCommand(drv), 3u);
    EXPECT_EQ(probe.samples, 0);
    EXPECT_EQ(arena.written(int(kFirst)), 0u);
    viewerTurn();
    arena.command(4, kIndex);
    ASSERT_EQ(driverTurn(drv), 1);
    EXPECT_EQ(probe.samples, 1);
    EXPECT_EQ(arena.written(int(kFirst)), 1u);
    viewerTurn();
    arena.command(8, kIndex);
    EXPECT_EQ(driverTurn(drv), 0);
    EXPECT_EQ(arena.semValue(kSemB), 1);  // the viewer is not left waiting
    EXPECT_EQ(probe.samples, 1);
    EXPECT_EQ(driverTurn(drv), 0);
}

TEST_F(KitTest, AbortEndsTheWaitForATurn) {
    attach();
    ASSERT_EQ(driverTurn(drv), 1);
    arena.u16(28604) = 1;  // the viewer gives up the turns; semaphore A is never posted
    EXPECT_EQ(driverTurn(drv), 0);
}

TEST_F(KitTest, FrequencyModeTakesNoTurn) {
    attach(1, 200);
    EXPECT_EQ(driverSyncMode(drv), BW_SYNC_FREQUENCY);
    ASSERT_EQ(driverTurn(drv), 1);
    ASSERT_EQ(driverTurn(drv), 1);
    EXPECT_EQ(arena.semValue(kSemA), 1);
    EXPECT_EQ(arena.semValue(kSemB), 0);
    EXPECT_FLOAT_EQ(arena.value(int(kFirst) + 1), 1.1f);
    EXPECT_GE(arena.time(int(kFirst)), 0.005f);  // one period of 200 per second at least
}

TEST_F(KitTest, ErrorsAreReportedByNumberAndFlags) {
    attach();
    // The flags word (1 set, 2 fatal, 4 common table), the number, the driver.
    auto error = [&] { return std::tuple(arena.u32(268), arena.u32(272), arena.u32(276)); };
    driverCommonError(drv, BW_DERR_PORT_OPEN, 1);
    EXPECT_EQ(error(), std::tuple(7u, 9u, uint32_t(kIndex)));
    driverError(drv, 3, 0);
    EXPECT_EQ(error(), std::tuple(1u, 3u, uint32_t(kIndex)));
    EXPECT_EQ(driverSetDofValue(drv, 4, 1.0f), 0);
    EXPECT_EQ(error(), std::tuple(5u, 1u, uint32_t(kIndex)));
    EXPECT_EQ(driverGetDofType(drv, -1), -1);
    EXPECT_EQ(arena.u32(272), 20u);
}

TEST(DriverErrorTable, HasTheTwentyThreeTexts) {
    EXPECT_EQ(BW_DERR_COUNT, 23);
    EXPECT_STREQ(driverCommonErrorText(0), "Unable to allocate enough memory");
    EXPECT_STREQ(driverCommonErrorText(6), "Channel communication problem - Unable to send message to brak");
    EXPECT_STREQ(driverCommonErrorText(14), "Invalid port baud rate - using 9600");
    EXPECT_STREQ(driverCommonErrorText(22), "driverGetDofInfo() - invalid degree of freedom index");
    EXPECT_EQ(driverCommonErrorText(23), nullptr);
    EXPECT_EQ(driverCommonErrorText(-1), nullptr);
}

TEST(DriverArgs, RunRecordAndModeWordsAreTaken) {
    const char *line[] = {"wave", "-BW_RUN", "-record", "/t/x.CHD/TAKE.0001/wave.00.chd", "-seed",
                          "3", "-mode", "LISTEN", "host", "1125"};
    std::vector<char *> argv;
    for (const char *w : line) argv.push_back(const_cast<char *>(w));
    BW_DriverArgs a;
    ASSERT_EQ(driverParseArgs(int(argv.size()), argv.data(), &a), 1);
    EXPECT_EQ(a.run, 1);
    EXPECT_STREQ(a.recordFile, "/t/x.CHD/TAKE.0001/wave.00.chd");
    EXPECT_STREQ(a.mode, "LISTEN");
    ASSERT_EQ(a.restCount, 2);
    EXPECT_STREQ(a.rest[0], "-seed");
    EXPECT_STREQ(a.rest[1], "3");
    ASSERT_EQ(a.modeCount, 2);
    EXPECT_STREQ(a.modeWords[1], "1125");
    bwtest::OutputCapture cap;
    char name[] = "wave", record[] = "-record";
    char *bad[] = {name, record};
    EXPECT_EQ(driverParseArgs(2, bad, &a), 0);
    EXPECT_EQ(cap.err.text(), "wave: '-record' needs an argument\n");
}

TEST_F(KitTest, RecordOnAndOffWriteTheTakeFile) {
    std::string take = arena.dir() + "/t.CHD/TAKE.0001";
    std::string take7 = arena.dir() + "/t.CHD/TAKE.0007";
    std::filesystem::create_directories(take);
    std::filesystem::create_directories(take7);
    std::string file = take + "/probe.02.chd";
    args.recordFile = file.c_str();
    attach();
    strcpy(reinterpret_cast<char *>(&arena.u32(300)), "scn");
    arena.u32(556) = 1;
    ASSERT_EQ(driverTurn(drv), 1);  // before the take: not recorded
    viewerTurn();
    arena.command(14, kIndex);
    for (int turn = 0; turn < 2; ++turn) {
        ASSERT_EQ(driverTurn(drv), 1);
        EXPECT_EQ(driverRecording(drv), 1);
        viewerTurn();
    }
    float t1 = arena.time(int(kFirst));
    arena.command(15, kIndex);
    ASSERT_EQ(driverTurn(drv), 1);
    EXPECT_EQ(driverRecording(drv), 0);
    std::string text = bwtest::fileText(file);
    std::string head = "BRAK_TAKE V1.100000\n\tFILE_TYPE  : ASCII\n\tTAKE_FILE   : " + file +
                       "\n\tSCENE_NAME  : scn\n\tDRIVER_NAME : probe\n\tNUM_DOFS    : 4\n";
    EXPECT_EQ(text.substr(0, head.size()), head);
    char maxLine[64];
    snprintf(maxLine, sizeof maxLine, "\tMAX_TIME    : %f\n", double(t1));
    EXPECT_TRUE(bwtest::contains(text, maxLine)) << text;
    EXPECT_TRUE(bwtest::contains(text, "\tDOF_GROUPED : TRUE\n\tDOF_COUNTED : TRUE\nSTART-OF-DATA\n")) << text;
    char last[128];
    snprintf(last, sizeof last, "%f 2 2 %f\nEND-OF-DATA\n", double(t1), 2.2);
    ASSERT_GE(text.size(), strlen(last));
    EXPECT_EQ(text.substr(text.size() - strlen(last)), last);
    // Samples 1 and 2, three inputs each: six records between the marks.
    size_t data = text.find("START-OF-DATA\n") + 14;
    EXPECT_EQ(std::count(text.begin() + long(data), text.end(), '\n'), 7);
    EXPECT_TRUE(bwtest::contains(text, " 0 1 1.000000\n")) << text;

    // A second take of the run goes to the directory of its own number.
    viewerTurn();
    arena.u32(556) = 7;
    arena.command(14, kIndex);
    ASSERT_EQ(driverTurn(drv), 1);
    viewerTurn();
    arena.command(8, kIndex);  // stop while recording: the take is written
    EXPECT_EQ(driverTurn(drv), 0);
    EXPECT_TRUE(bwtest::contains(bwtest::fileText(take7 + "/probe.02.chd"), "END-OF-DATA\n"));
}

}  // namespace

namespace {

// A BINARY take read with a parser of its own: header lines to START-OF-DATA,
// then 16-byte records in network order (u16 DOF, 2 unused, u32 status, f32 value,
// f32 time), then the END-OF-DATA line.
struct BinRecord {
    uint16_t dof;
    uint32_t status;
    float value, time;
};

uint32_t be32(const std::string &b, size_t at) {
    return uint32_t(uint8_t(b[at])) << 24 | uint32_t(uint8_t(b[at + 1])) << 16 |
           uint32_t(uint8_t(b[at + 2])) << 8 | uint32_t(uint8_t(b[at + 3]));
}

float beFloat(const std::string &b, size_t at) {
    uint32_t bits = be32(b, at);
    float f;
    memcpy(&f, &bits, 4);
    return f;
}

TEST_F(KitTest, TakeTypeBinaryWritesSixteenByteRecordsInNetworkOrder) {
    std::string file = arena.dir() + "/bin.00.chd";
    char prog[] = "probe", run[] = "-BW_RUN", rec[] = "-record", type[] = "-take_type", bin[] = "BINARY";
    char *argv[] = {prog, run, rec, file.data(), type, bin, nullptr};
    ASSERT_EQ(driverParseArgs(6, argv, &args), 1);
    EXPECT_EQ(args.takeType, BW_TAKE_FILE_BINARY);
    EXPECT_EQ(args.restCount, 0);
    attach();
    arena.command(14, kIndex);
    ASSERT_EQ(driverTurn(drv), 1);  // sample 0 recorded
    viewerTurn();
    float t0 = arena.time(int(kFirst));
    ASSERT_EQ(driverTurn(drv), 1);  // sample 1 recorded
    viewerTurn();
    float t1 = arena.time(int(kFirst));
    arena.command(15, kIndex);
    ASSERT_EQ(driverTurn(drv), 1);

    std::string bytes = bwtest::fileText(file);
    EXPECT_EQ(bytes.substr(0, 41), "BRAK_TAKE V1.100000\n\tFILE_TYPE  : BINARY\n");
    size_t data = bytes.find("START-OF-DATA\n");
    ASSERT_NE(data, std::string::npos);
    data += 14;
    const std::string end = "END-OF-DATA\n";
    ASSERT_GE(bytes.size(), data + end.size());
    EXPECT_EQ(bytes.substr(bytes.size() - end.size()), end);
    size_t dataBytes = bytes.size() - end.size() - data;
    ASSERT_EQ(dataBytes, 6u * 16u);  // two samples of three inputs
    std::vector<BinRecord> records;
    for (size_t at = data; at < data + dataBytes; at += 16) {
        BinRecord r;
        r.dof = uint16_t(uint8_t(bytes[at]) << 8 | uint8_t(bytes[at + 1]));
        EXPECT_EQ(bytes[at + 2], 0);
        EXPECT_EQ(bytes[at + 3], 0);
        r.status = be32(bytes, at + 4);
        r.value = beFloat(bytes, at + 8);
        r.time = beFloat(bytes, at + 12);
        records.push_back(r);
    }
    for (size_t i = 0; i < records.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(records[i].dof, i % 3);
        EXPECT_EQ(records[i].status, i / 3);  // the sample number
        EXPECT_FLOAT_EQ(records[i].value, float(i / 3) + float(i % 3) / 10.0f);
        EXPECT_EQ(records[i].time, i < 3 ? t0 : t1);
    }
}

TEST_F(KitTest, TakeTypeOtherThanAsciiOrBinaryIsRefused) {
    char prog[] = "probe", type[] = "-take_type", word[] = "COMPRESS1";
    char *argv[] = {prog, type, word, nullptr};
    bwtest::OutputCapture cap;
    EXPECT_EQ(driverParseArgs(3, argv, &args), 0);
    EXPECT_EQ(cap.err.text(), "probe: '-take_type' needs ASCII or BINARY, not 'COMPRESS1'\n");
}

}  // namespace
