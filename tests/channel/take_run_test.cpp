// The take driver played through the viewer's side of the arena: take files the
// test writes byte by byte, ASCII and BINARY, come out at their recorded times.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "capture.h"
#include "take_bytes.h"
#include "channel.h"

namespace {

struct Rec {
    float time;
    int dof;
    float value;
};

// DOF 0 steps 10, 20, 30; DOF 1 steps -1, -2. Out of time order in the file.
const std::vector<Rec> kRecords = {{0.0f, 0, 10.0f}, {0.0f, 1, -1.0f}, {0.5f, 0, 30.0f},
                                   {0.25f, 0, 20.0f}, {0.4f, 1, -2.0f}};

std::string header(const char *versionLine, const char *typeLine) {
    std::string h = std::string(versionLine) + "# a comment line\n\n";
    if (typeLine) h += typeLine;
    h += "\tTAKE_FILE   : /takes/t.CHD/TAKE.0001/take.00.chd\n"
         "\tSCENE_NAME  : scene\n"
         "\tDRIVER_NAME : take\n"
         "\tNUM_DOFS    : 2\n"
         "\tMIN_TIME    : 0.000000\n"
         "\tMAX_TIME    : 0.500000\n"
         "\tSTART_TC    : 00:00:00:00\n"
         "\tEND_TC      : 00:00:00:15\n"
         "\tDOF_GROUPED : FALSE\n"
         "\tDOF_COUNTED : TRUE\n"
         "START-OF-DATA\n";
    return h;
}

// A version 1.0 header has no FILE_TYPE line and is ASCII.
std::string asciiTake() {
    std::string t = header("BRAK_TAKE V1.000000\n", nullptr);
    char line[128];
    for (size_t i = 0; i < kRecords.size(); ++i) {
        snprintf(line, sizeof line, "%f %d %d %f\n", double(kRecords[i].time), kRecords[i].dof, int(i),
                 double(kRecords[i].value));
        t += line;
    }
    return t + "END-OF-DATA\n";
}

std::string binaryTake() {
    std::string t = header("BRAK_TAKE V1.100000\n", "\tFILE_TYPE  : BINARY\n");
    for (size_t i = 0; i < kRecords.size(); ++i) {
        bwtest::putTakeRecord(t, uint16_t(kRecords[i].dof), uint32_t(i), kRecords[i].value, kRecords[i].time);
    }
    return t + "END-OF-DATA\n";
}

// Value of a DOF at run time t: its last record at t or before.
float expected(int dof, float t) {
    float v = 0.0f;
    float best = -1.0f;
    for (const Rec &r : kRecords)
        if (r.dof == dof && r.time <= t && r.time >= best) { best = r.time; v = r.value; }
    return v;
}

bool nearStep(float t) {
    for (const Rec &r : kRecords)
        if (std::fabs(t - r.time) < 2e-3f) return true;
    return false;
}

void playThrough(const std::string &bytes) {
    bwtest::TempDir tmp;
    bwtest::ScopedEnv dir("TMPDIR", tmp.path().c_str());
    std::string file = tmp.path() + "/take.00.chd";
    std::ofstream(file, std::ios::binary) << bytes;
    ASSERT_EQ(commInit(1, 1, 0), 1);
    ChannelDriver drv;
    drv.name = "take";
    drv.arguments = {file};  // the driver's own word: the take it plays
    int pid = 0, timedOut = -1;
    ASSERT_EQ(commStartDriver(0, 0, TAKE_DRIVER, 0, 2, &pid, nullptr, &drv, &timedOut), 1);
    commSetCommand(COMM_CMD_RUN);

    std::vector<float> seen0, seen1;  // values as they changed
    float lastTime = -1.0f;
    for (int turn = 0; turn < 200 && lastTime < 0.7f; ++turn) {
        usleep(10000);
        commUnlockAll(nullptr);
        ASSERT_EQ(commLockAll(nullptr), 1);
        ChannelSlot slots[2] = {};
        ASSERT_EQ(bw_commGetData(&drv, 0, 0, 2, slots), 1);
        if (!slots[0].active) continue;  // the handshake turn carries nothing
        const float t = slots[0].time;
        EXPECT_GE(t, lastTime);
        lastTime = t;
        if (!nearStep(t)) {
            EXPECT_EQ(slots[0].value, expected(0, t)) << "DOF 0 at " << t;
            EXPECT_EQ(slots[1].value, expected(1, t)) << "DOF 1 at " << t;
        }
        if (seen0.empty() || seen0.back() != slots[0].value) seen0.push_back(slots[0].value);
        if (seen1.empty() || seen1.back() != slots[1].value) seen1.push_back(slots[1].value);
    }
    EXPECT_GE(lastTime, 0.7f) << "the run did not get past the last record";
    EXPECT_EQ(seen0, (std::vector<float>{10.0f, 20.0f, 30.0f}));
    EXPECT_EQ(seen1, (std::vector<float>{-1.0f, -2.0f}));

    commMonitorStop();
    commStopDrivers();
    EXPECT_EQ(commClose(), 1);
}

TEST(TakeRun, AsciiTakeOfVersionOnePointZeroPlaysAtItsTimes) { playThrough(asciiTake()); }

TEST(TakeRun, BinaryTakePlaysAtItsTimes) { playThrough(binaryTake()); }

// A header line out of place is named with its line; the driver does not start.
TEST(TakeRun, BadHeaderLineNamesTheFileLineAndWhatWasExpected) {
    bwtest::TempDir tmp;
    std::string file = tmp.path() + "/bad.chd";
    std::string text = binaryTake();
    text.replace(text.find("\tDOF_COUNTED"), 12, "\tDOF_COUNTER");
    std::ofstream(file, std::ios::binary) << text;
    std::string command = std::string("'" TAKE_DRIVER "' -BW_RUN '") + file + "' 2>&1";
    FILE *out = popen(command.c_str(), "r");
    ASSERT_NE(out, nullptr);
    char buffer[512] = {};
    size_t n = fread(buffer, 1, sizeof buffer - 1, out);
    EXPECT_EQ(WEXITSTATUS(pclose(out)), 2);
    // Line 14: the version, the comment and the empty line count as lines.
    EXPECT_EQ(std::string(buffer, n), file + " (line 14): Error -- expecting DOF_COUNTED\n");
}

}  // namespace
