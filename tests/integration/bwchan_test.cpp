// bwchan: the list of drivers, a CSV run of the wave driver checked against the
// wave's formula, a driver that dies during a run, and driver errors reaching
// the screen with their texts.
#include <gtest/gtest.h>

#include <dirent.h>
#include <unistd.h>

#include <cmath>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

#include "capture.h"
#include "run_viewer.h"

using bwtest::RunResult;

namespace {

RunResult bwchan(const std::vector<std::string> &args, const bwtest::TempDir &tmp,
                 const std::string &driverDir = "") {
    // The arena and the drivers' buffer files go to the test's own TMPDIR.
    std::vector<std::string> env{"TMPDIR=" + tmp.path()};
    env.push_back(driverDir.empty() ? "BW_CHNLDRIVER" : "BW_CHNLDRIVER=" + driverDir);
    return bwtest::runProgram(BW_BWCHAN_BIN, args, tmp.path(), env);
}

// Files the channel run leaves in `dir`: arenas and buffer files.
std::vector<std::string> leftovers(const std::string &dir) {
    std::vector<std::string> found;
    DIR *d = opendir(dir.c_str());
    while (const dirent *e = d ? readdir(d) : nullptr) {
        const std::string name = e->d_name;
        if (name.rfind("BRAK_CHANNEL_arena", 0) == 0 || name.rfind("CHNL", 0) == 0) found.push_back(name);
    }
    if (d) closedir(d);
    return found;
}

std::vector<std::vector<std::string>> csv(const std::string &text) {
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> cells;
        std::istringstream fields(line);
        for (std::string cell; std::getline(fields, cell, ',');) cells.push_back(cell);
        rows.push_back(cells);
    }
    return rows;
}

// A driver directory with the probe driver and its .drv: one DOF, two errors.
std::string probeDirectory(const bwtest::TempDir &tmp) {
    const std::string dir = tmp.mkdir("drivers");
    EXPECT_EQ(symlink(BW_PROBE_DRIVER, (dir + "/probe").c_str()), 0);
    tmp.write("drivers/probe.drv",
              "CHANNEL_DRIVER 1.0\nDOF_NUM 1\nDOF_NAME 0 count\nDOF_TYPE 0 I ON\n"
              "ERROR_NUM 2\nERROR 0 Probe is tired\nERROR 1 Probe lost its wire\n_END\n");
    return dir;
}

}  // namespace

TEST(Bwchan, ListsTheBuiltDriversWithoutSettings) {
    bwtest::TempDir tmp;
    RunResult r = bwchan({"list"}, tmp);
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(bwtest::contains(r.out, "wave: 6 DOFs\n"
                                        "    0 sine             in   on\n"
                                        "    1 square           in   on\n"
                                        "    2 triangle         in   on\n"
                                        "    3 saw              in   on\n"
                                        "    4 noise            in   on\n"
                                        "    5 gain             out  on\n"))
        << r.out;
    EXPECT_TRUE(bwtest::contains(r.out, "/bin/drivers:\n")) << r.out;
}

TEST(Bwchan, CsvTurnsOfWaveFollowItsFormulaAndLeaveNoArena) {
    bwtest::TempDir tmp;
    RunResult r = bwchan({"run", "--frames", "20", "--csv", "wave", "-frequency", "2", "-amplitude", "3"}, tmp);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    auto rows = csv(r.out);
    ASSERT_EQ(rows.size(), 21u) << r.out;
    EXPECT_EQ(rows[0][0], "turn");
    EXPECT_EQ(rows[0][1], "sine.time");
    EXPECT_EQ(rows[0][2], "sine.value");
    EXPECT_EQ(rows[0][12], "gain.value");
    double last = -1;
    for (size_t i = 1; i < rows.size(); ++i) {
        ASSERT_EQ(rows[i].size(), 13u) << i;
        EXPECT_EQ(rows[i][0], std::to_string(i));
        const double t = std::stod(rows[i][1]);
        EXPECT_GE(t, last) << "turn " << i;
        last = t;
        // 3 sin(2 pi 2 t), from the time the driver stamped on the value.
        EXPECT_NEAR(std::stod(rows[i][2]), 3.0 * std::sin(2.0 * std::numbers::pi * 2.0 * t), 1e-4)
            << "sine at " << t;
        const double x = 2.0 * t - std::floor(2.0 * t);
        if (std::fabs(x - 0.5) > 1e-4 && x > 1e-4) {
            EXPECT_EQ(std::stod(rows[i][4]), x < 0.5 ? 3.0 : -3.0) << "square at " << t;
        }
    }
    EXPECT_TRUE(leftovers(tmp.path()).empty()) << leftovers(tmp.path())[0];
}

TEST(Bwchan, NamesWhatIsWrongWithADriver) {
    bwtest::TempDir tmp;
    const std::string dir = probeDirectory(tmp);
    RunResult unknown = bwchan({"run", "nothing"}, tmp, dir);
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.err, "bwchan: unknown driver 'nothing': no nothing in " + dir + "\n");

    ASSERT_EQ(symlink(BW_PROBE_DRIVER, (dir + "/bare").c_str()), 0);
    RunResult bare = bwchan({"run", "bare"}, tmp, dir);
    EXPECT_EQ(bare.status, 1);
    EXPECT_EQ(bare.err, "bwchan: driver 'bare' has no configuration file " + dir + "/bare.drv\n");

    // A driver that exits at once: the viewer side's own messages, then ours.
    RunResult bad = bwchan({"run", "probe", "-nonsense"}, tmp, dir);
    EXPECT_EQ(bad.status, 1);
    EXPECT_TRUE(bwtest::contains(bad.err, "Cannot start 'probe' driver.\n"
                                          "bwchan: driver 'probe' failed to start\n"))
        << bad.err;
    EXPECT_TRUE(leftovers(tmp.path()).empty());
}

TEST(Bwchan, ADriverKilledEndsTheRunWhenItWasTheLast) {
    bwtest::TempDir tmp;
    const std::string dir = probeDirectory(tmp);
    RunResult r = bwchan({"run", "probe", "-at", "5", "-kill"}, tmp, dir);
    EXPECT_EQ(r.status, 1) << r.out << r.err;
    EXPECT_TRUE(bwtest::contains(r.err, "Driver probe died - channel run will continue\n"
                                        "All drivers died (probe)\n"))
        << r.err;
    EXPECT_TRUE(bwtest::contains(r.out, "probe: turn 1\n  count ")) << r.out;
    EXPECT_TRUE(leftovers(tmp.path()).empty());
}

TEST(Bwchan, DriverErrorsReachTheScreenWithTheirTexts) {
    bwtest::TempDir tmp;
    const std::string dir = probeDirectory(tmp);
    struct Case {
        std::vector<std::string> words;  // the probe's own
        std::string text;                // standard error has this line
        int status;                      // bwchan's exit status
    };
    const Case cases[] = {
        {{"-common", "9"}, "from probe driver: Cannot open port\n", 0},
        {{"-common", "22", "-fatal"}, "from probe driver: driverGetDofInfo() - invalid degree of freedom index\n", 1},
        {{"-common", "0"}, "from probe driver: Unable to allocate enough memory\n", 0},
        {{"-own", "1"}, "from probe driver: Probe lost its wire\n", 0},
        {{"-own", "7", "-fatal"}, "from probe driver: error number 7\n", 1},
        {{"-common", "23"}, "from probe driver: error number 23\n", 0},
    };
    for (const Case &c : cases) {
        std::vector<std::string> args{"run", "--frames", "8", "--csv", "probe", "-at", "3"};
        args.insert(args.end(), c.words.begin(), c.words.end());
        RunResult r = bwchan(args, tmp, dir);
        EXPECT_EQ(r.status, c.status) << c.text << r.err;
        EXPECT_EQ(r.err, c.text);
        // A warning lets the run go on to its last turn; an error ends it.
        if (c.status) EXPECT_LT(csv(r.out).size(), 9u) << c.text << r.out;
        else EXPECT_EQ(csv(r.out).size(), 9u) << c.text << r.out;
    }
    EXPECT_TRUE(leftovers(tmp.path()).empty());
}
