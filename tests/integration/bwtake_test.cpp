// bwtake through the built program: a take written here by hand, shown whole
// and as CSV, and the exit status of a cut file, a bad header and bad words.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "capture.h"
#include "take_bytes.h"
#include "run_viewer.h"

using bwtest::RunResult;

namespace {

RunResult bwtake(const std::vector<std::string> &args, const bwtest::TempDir &tmp) {
    return bwtest::runProgram(BW_BWTAKE_BIN, args, tmp.path());
}

const char kHeader[] =
    "BRAK_TAKE V1.100000\n"
    "# recorded by hand\n"
    "\tFILE_TYPE  : %s\n"
    "\tTAKE_FILE   : /takes/t.CHD/TAKE.0004/wave.00.chd\n"
    "\tSCENE_NAME  : studio\n"
    "\tDRIVER_NAME : wave\n"
    "\tNUM_DOFS    : 2\n"
    "\tMIN_TIME    : 0.000000\n"
    "\tMAX_TIME    : 0.500000\n"
    "\tSTART_TC    : 00:00:00:00\n"
    "\tEND_TC      : 00:00:00:15\n"
    "\tDOF_GROUPED : TRUE\n"
    "\tDOF_COUNTED : FALSE\n"
    "START-OF-DATA\n";

std::string header(const char *type) {
    char text[1024];
    snprintf(text, sizeof text, kHeader, type);
    return text;
}

const char kRecords[] = "0.000000 0 7 1.250000\n0.500000 1 8 -3.000000\n";

const char kShownHeader[] =
    "  VERSION     : 1.100000\n"
    "  FILE_TYPE   : %s\n"
    "  TAKE_FILE   : /takes/t.CHD/TAKE.0004/wave.00.chd\n"
    "  SCENE_NAME  : studio\n"
    "  DRIVER_NAME : wave\n"
    "  NUM_DOFS    : 2\n"
    "  MIN_TIME    : 0.000000\n"
    "  MAX_TIME    : 0.500000\n"
    "  START_TC    : 00:00:00:00\n"
    "  END_TC      : 00:00:00:15\n"
    "  DOF_GROUPED : TRUE\n"
    "  DOF_COUNTED : FALSE\n"
    "records: time dof status value\n"
    "  0.000000 0 7 1.250000\n"
    "  0.500000 1 8 -3.000000\n";

std::string shown(const std::string &path, const char *type) {
    char text[2048];
    snprintf(text, sizeof text, kShownHeader, type);
    return path + "\n" + text;
}

}  // namespace

TEST(Bwtake, PrintsTheHeaderAndRecordsOfEachType) {
    bwtest::TempDir tmp;
    const std::string ascii = tmp.write("a.chd", header("ASCII") + kRecords + "END-OF-DATA\n");
    RunResult r = bwtake({ascii}, tmp);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, shown(ascii, "ASCII") + "complete: 2 records\n");
    EXPECT_EQ(r.err, "");

    std::string bytes = header("BINARY");
    bwtest::putTakeRecord(bytes, 0, 7, 1.25f, 0.0f);
    bwtest::putTakeRecord(bytes, 1, 8, -3.0f, 0.5f);
    const std::string binary = tmp.write("b.chd", bytes + "END-OF-DATA\n");
    r = bwtake({binary}, tmp);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, shown(binary, "BINARY") + "complete: 2 records\n");

    const std::string compressed = tmp.write("c.chd", header("COMPRESS2") + kRecords + "END-OF-DATA\n");
    r = bwtake({compressed}, tmp);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, shown(compressed, "COMPRESS2") + "complete: 2 records\n");
}

TEST(Bwtake, CsvHasAHeaderLineAndOneRowARecord) {
    bwtest::TempDir tmp;
    const std::string path = tmp.write("a.chd", header("ASCII") + kRecords + "END-OF-DATA\n");
    RunResult r = bwtake({"--csv", path}, tmp);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "time,dof,status,value\n0,0,7,1.25\n0.5,1,8,-3\n");
    // Cut: the rows that are whole, the status 1 and what is missing on standard error.
    const std::string cut = tmp.write("cut.chd", header("ASCII") + kRecords);
    r = bwtake({"--csv", cut}, tmp);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "time,dof,status,value\n0,0,7,1.25\n0.5,1,8,-3\n");
    EXPECT_EQ(r.err, cut + ": incomplete: END-OF-DATA is missing, the file ends after record 2\n");
}

TEST(Bwtake, IncompleteFilesSayWhatIsMissing) {
    bwtest::TempDir tmp;
    const std::string cut = tmp.write("cut.chd", header("ASCII") + kRecords);
    RunResult r = bwtake({cut}, tmp);
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(bwtest::contains(r.out, "incomplete: END-OF-DATA is missing, the file ends after record 2\n")) << r.out;
    // Line 17: after the 14 header lines (one comment) and the two records.
    const std::string junk = tmp.write("junk.chd", header("ASCII") + kRecords + "0.75 0 x\nEND-OF-DATA\n");
    r = bwtake({junk}, tmp);
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(bwtest::contains(r.out, "incomplete: line 17, after record 2, is neither a record nor END-OF-DATA\n"))
        << r.out;
    std::string bytes = header("BINARY");
    bwtest::putTakeRecord(bytes, 0, 7, 1.25f, 0.0f);
    const std::string half = tmp.write("half.chd", bytes + bytes.substr(bytes.size() - 16, 9));
    r = bwtake({half}, tmp);
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(bwtest::contains(
        r.out, "incomplete: the 9 bytes after record 1 are neither a whole record nor END-OF-DATA\n"))
        << r.out;
}

TEST(Bwtake, UnreadableFilesAndBadWordsExitWithTwo) {
    bwtest::TempDir tmp;
    std::string text = header("ASCII");
    text.replace(text.find("NUM_DOFS    : 2"), 15, "NUM_DOFS    : ?");
    const std::string bad = tmp.write("bad.chd", text + "END-OF-DATA\n");
    RunResult r = bwtake({bad}, tmp);
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, bad + " (line 7): Error -- expecting NUM_DOFS\n");

    r = bwtake({tmp / "none.chd"}, tmp);
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, tmp / "none.chd" + ": No such file or directory\n");

    for (const std::vector<std::string> &args :
         {std::vector<std::string>{}, {"--table", "a.chd"}, {"a.chd", "b.chd"}}) {
        r = bwtake(args, tmp);
        EXPECT_EQ(r.status, 2);
        EXPECT_TRUE(bwtest::contains(r.err, "usage: bwtake [--csv] PATH\n")) << r.err;
    }
}
