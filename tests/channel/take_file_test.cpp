// Take files: the header and records of each type on bytes written here field
// by field, the header's errors line by line, the end mark, and a take loaded
// into the curves of a setup's DOFs.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "animation.h"
#include "capture.h"
#include "take_bytes.h"
#include "channel.h"

namespace {

struct Rec {
    float time;
    int dof;
    int status;
    float value;
};

// The header lines after the preamble and the type, as the table gives them.
std::vector<std::string> fieldLines(int dofs, float minTime, float maxTime) {
    char n[64], lo[64], hi[64];
    snprintf(n, sizeof n, "\tNUM_DOFS    : %d\n", dofs);
    snprintf(lo, sizeof lo, "\tMIN_TIME    : %f\n", double(minTime));
    snprintf(hi, sizeof hi, "\tMAX_TIME    : %f\n", double(maxTime));
    return {"\tTAKE_FILE   : /takes/t.CHD/TAKE.0001/drv.00.chd\n", "\tSCENE_NAME  : the scene\n",
            "\tDRIVER_NAME : drv\n", n, lo, hi, "\tSTART_TC    : 00:00:00:00\n",
            "\tEND_TC      : 00:00:01:00\n", "\tDOF_GROUPED : FALSE\n", "\tDOF_COUNTED : TRUE\n"};
}

// Whole header; `type` null: no FILE_TYPE line (version 1.0).
std::vector<std::string> headerLines(const char *version, const char *type, int dofs = 3, float minTime = 0.0f,
                                     float maxTime = 1.0f) {
    std::vector<std::string> lines{std::string("BRAK_TAKE V") + version + "\n"};
    if (type) lines.push_back(std::string("\tFILE_TYPE  : ") + type + "\n");
    for (const std::string &l : fieldLines(dofs, minTime, maxTime)) lines.push_back(l);
    lines.push_back("START-OF-DATA\n");
    return lines;
}

std::string joined(const std::vector<std::string> &lines) {
    std::string out;
    for (const std::string &l : lines) out += l;
    return out;
}

std::string asciiRecords(const std::vector<Rec> &records) {
    std::string out;
    char line[128];
    for (const Rec &r : records) {
        snprintf(line, sizeof line, "%f %d %d %f\n", double(r.time), r.dof, r.status, double(r.value));
        out += line;
    }
    return out;
}

// 16 bytes a record: u16 DOF, two unused, u32 status, f32 value, f32 time, all big-endian.
std::string binaryRecords(const std::vector<Rec> &records) {
    std::string out;
    for (const Rec &r : records) {
        // Unused bytes: whatever stands there is passed over.
        bwtest::putTakeRecord(out, uint16_t(r.dof), uint32_t(r.status), r.value, r.time, "\xAA\x55");
    }
    return out;
}

const std::vector<Rec> kRecords = {{0.0f, 0, 1, 10.5f}, {0.25f, 2, 1, -3.0f}, {0.5f, 1, 2, 1e-3f},
                                   {1.0f, 0, 3, 40.0f}};

std::vector<Rec> readAll(TakeFile &take) {
    std::vector<Rec> out;
    int32_t dof, status;
    float value, time;
    while (takeFileReadRecord(&take, nullptr, &dof, &status, &value, &time)) out.push_back({time, dof, status, value});
    return out;
}

void expectRecords(const std::vector<Rec> &got, const std::vector<Rec> &want) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i].dof, want[i].dof) << i;
        EXPECT_EQ(got[i].status, want[i].status) << i;
        EXPECT_FLOAT_EQ(got[i].time, want[i].time) << i;
        EXPECT_FLOAT_EQ(got[i].value, want[i].value) << i;
    }
}

// Reads `bytes` as the file `name`: header, records, end mark.
struct Read {
    int header = 0;
    TakeFile take;
    std::vector<Rec> records;
    int complete = 0;
    std::string err;
};

Read readBytes(const bwtest::TempDir &tmp, const std::string &bytes, const char *name = "drv.00.chd") {
    Read r;
    const std::string path = tmp.write(name, bytes);
    bwtest::StreamCapture err(stderr);
    r.header = takeFileReadHeader(&r.take, path.c_str());
    if (r.header) {
        r.records = readAll(r.take);
        r.complete = takeFileIsComplete(r.take.stream);
    }
    takeFileClose(&r.take);
    r.err = err.text();
    return r;
}

TEST(TakeFileRead, VersionOneHasNoTypeLineAndIsAscii) {
    bwtest::TempDir tmp;
    Read r = readBytes(tmp, "# written by hand\n\n" + joined(headerLines("1.000000", nullptr)) + asciiRecords(kRecords) +
                                "END-OF-DATA\n");
    ASSERT_EQ(r.header, 1) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_FLOAT_EQ(r.take.version, 1.0f);
    EXPECT_EQ(r.take.type, BW_TAKE_FILE_ASCII);
    // The scene name is the rest of its line, blanks inside kept.
    const TakeFile &t = r.take;
    EXPECT_EQ(std::tie(t.takeFile, t.sceneName, t.driverName, t.dofCount, t.minTime, t.maxTime, t.startTc, t.endTc,
                       t.dofGrouped, t.dofCounted),
              std::tuple("/takes/t.CHD/TAKE.0001/drv.00.chd", "the scene", "drv", 3, 0.0f, 1.0f, "00:00:00:00",
                         "00:00:01:00", 0, 1));
    expectRecords(r.records, kRecords);
    EXPECT_EQ(r.complete, 1);
}

TEST(TakeFileRead, TypedAsciiAndTheCompressTypesReadAsLines) {
    bwtest::TempDir tmp;
    const std::string body = asciiRecords(kRecords) + "# a note between records\n\nEND-OF-DATA\r\n";
    int expected[] = {BW_TAKE_FILE_ASCII, BW_TAKE_FILE_COMPRESS1, BW_TAKE_FILE_COMPRESS2};
    const char *words[] = {"ASCII", "COMPRESS1", "COMPRESS2"};
    for (int i = 0; i < 3; ++i) {
        Read r = readBytes(tmp, joined(headerLines("1.100000", words[i])) + body);
        ASSERT_EQ(r.header, 1) << words[i] << r.err;
        EXPECT_EQ(r.take.type, expected[i]);
        EXPECT_STREQ(takeFileTypeName(r.take.type), words[i]);
        expectRecords(r.records, kRecords);
        EXPECT_EQ(r.complete, 1) << words[i];
    }
    // A version past 1.1 has the type line too.
    Read later = readBytes(tmp, joined(headerLines("2.5", "ASCII")) + body);
    EXPECT_EQ(later.header, 1) << later.err;
}

TEST(TakeFileRead, BinaryRecordsInNetworkOrder) {
    bwtest::TempDir tmp;
    std::vector<Rec> records = kRecords;
    records.push_back({2.0f, 0xABCD, int(0x80000001u), -0.0625f});  // the u16 and u32 use all their bits
    Read r = readBytes(tmp, joined(headerLines("1.100000", "BINARY")) + binaryRecords(records) + "END-OF-DATA\n");
    ASSERT_EQ(r.header, 1) << r.err;
    EXPECT_EQ(r.take.type, BW_TAKE_FILE_BINARY);
    expectRecords(r.records, records);
    EXPECT_EQ(r.complete, 1);
    // A record whose bytes hold a line end is still one record.
    Read nl = readBytes(tmp, joined(headerLines("1.100000", "BINARY")) + binaryRecords({{0.0f, 10, 10, 0.0f}}) +
                                 "END-OF-DATA\n");
    ASSERT_EQ(nl.records.size(), 1u);
    EXPECT_EQ(nl.records[0].dof, 10);
    EXPECT_EQ(nl.complete, 1);
}

TEST(TakeFileRead, AnyFirstWordLeadsAndTheStartMarkIsALineOfItsOwn) {
    bwtest::TempDir tmp;
    // Another writer's word before the version, and line ends of two bytes:
    // the BINARY records begin right behind the start mark's line end.
    std::vector<std::string> lines = headerLines("1.100000", "BINARY");
    lines[0] = "OTHER_TAKE V1.100000\r\n";
    lines.back() = "START-OF-DATA\r\n";
    Read r = readBytes(tmp, joined(lines) + binaryRecords(kRecords) + "END-OF-DATA\r\n");
    ASSERT_EQ(r.header, 1) << r.err;
    EXPECT_FLOAT_EQ(r.take.version, 1.1f);
    EXPECT_EQ(r.take.startTc, "00:00:00:00");  // a time code is kept as its text
    EXPECT_EQ(r.take.endTc, "00:00:01:00");
    expectRecords(r.records, kRecords);
    EXPECT_EQ(r.complete, 1);
}

TEST(TakeFileRead, EachMissingHeaderLineIsNamedWithItsLine) {
    bwtest::TempDir tmp;
    const std::vector<std::string> lines = headerLines("1.100000", "BINARY");
    const char *what[] = {"preamble", "valid take file type", "TAKE_FILE", "SCENE_NAME", "DRIVER_NAME",
                          "NUM_DOFS", "MIN_TIME", "MAX_TIME", "START_TC", "END_TC", "DOF_GROUPED",
                          "DOF_COUNTED", "start data token"};
    ASSERT_EQ(lines.size(), std::size(what));
    for (size_t k = 0; k < lines.size(); ++k) {
        std::vector<std::string> cut = lines;
        cut.erase(cut.begin() + long(k));
        // A comment and an empty line after the preamble count as lines 2 and 3.
        if (k > 0) cut.insert(cut.begin() + 1, {"# note\n", "\n"});
        const std::string bytes = joined(cut) + "0.0 0 0 1.0\nEND-OF-DATA\n";
        const std::string path = tmp / "bad.chd";
        Read r = readBytes(tmp, bytes, "bad.chd");
        EXPECT_EQ(r.header, 0);
        const int line = k == 0 ? 1 : int(k) + 3;
        EXPECT_EQ(r.err, path + " (line " + std::to_string(line) + "): Error -- expecting " + what[k] + "\n");
    }
}

TEST(TakeFileRead, ValuesThatDoNotReadAreTheirLinesError) {
    bwtest::TempDir tmp;
    const std::string path = tmp / "bad.chd";
    struct Case {
        size_t line;          // index in headerLines
        std::string text;     // its replacement
        const char *message;  // the expected word
    } cases[] = {
        {0, "BRAK_TAKE 1.1\n", "preamble"},
        {1, "\tFILE_TYPE  : GZIP\n", "valid take file type"},
        {1, "\tFILE_TYPES : ASCII\n", "valid take file type"},
        {5, "\tNUM_DOFS    : three\n", "NUM_DOFS"},
        {5, "\tNUM_DOFS    : -1\n", "NUM_DOFS"},
        {6, "\tMIN_TIME    : 0.5s\n", "MIN_TIME"},
        {2, "\tTAKE_FILE   :   \n", "TAKE_FILE"},
        {10, "\tDOF_GROUPED : YES\n", "DOF_GROUPED"},
        {11, "\tDOF_COUNTED   TRUE\n", "DOF_COUNTED"},
        {12, "START-OF-DATA-X\n", "start data token"},
        {3, "\tSCENE_NAME  : " + std::string(250, 's') + "\n", "SCENE_NAME"},  // 265 characters
    };
    for (const Case &c : cases) {
        std::vector<std::string> lines = headerLines("1.100000", "ASCII");
        lines[c.line] = c.text;
        Read r = readBytes(tmp, joined(lines) + "END-OF-DATA\n", "bad.chd");
        EXPECT_EQ(r.err, path + " (line " + std::to_string(c.line + 1) + "): Error -- expecting " + c.message + "\n")
            << c.text;
    }
    // A line of exactly 256 characters is whole.
    std::vector<std::string> lines = headerLines("1.100000", "ASCII");
    lines[3] = "\tSCENE_NAME  : " + std::string(256 - 15, 's') + "\n";
    Read r = readBytes(tmp, joined(lines) + "END-OF-DATA\n");
    EXPECT_EQ(r.header, 1) << r.err;
    EXPECT_EQ(r.take.sceneName.size(), 241u);
}

TEST(TakeFileRead, ACutFileIsIncompleteAfterItsWholeRecords) {
    bwtest::TempDir tmp;
    const std::string ascii = joined(headerLines("1.100000", "ASCII")) + asciiRecords(kRecords);
    // Cut before the end mark.
    Read cut = readBytes(tmp, ascii);
    expectRecords(cut.records, kRecords);
    EXPECT_EQ(cut.complete, 0);
    // Cut inside the last record line: it is not taken.
    Read half = readBytes(tmp, ascii.substr(0, ascii.size() - 4));
    EXPECT_EQ(half.records.size(), kRecords.size() - 1);
    EXPECT_EQ(half.complete, 0);
    // Something other than a record before the end mark stops the records there.
    Read junk = readBytes(tmp, ascii + "0.5 1 x 2\nEND-OF-DATA\n");
    EXPECT_EQ(junk.records.size(), kRecords.size());
    EXPECT_EQ(junk.complete, 0);
    // BINARY cut in the middle of a record, and before the end mark.
    const std::string binary = joined(headerLines("1.100000", "BINARY")) + binaryRecords(kRecords);
    Read bin = readBytes(tmp, binary.substr(0, binary.size() - 5));
    EXPECT_EQ(bin.records.size(), kRecords.size() - 1);
    EXPECT_EQ(bin.complete, 0);
    Read bin2 = readBytes(tmp, binary + "END-OF-");
    EXPECT_EQ(bin2.records.size(), kRecords.size());
    EXPECT_EQ(bin2.complete, 0);
}

TEST(TakeFileRead, ANullTakeIsReportedWithTheReaderName) {
    int32_t dof, status;
    float value, time;
    TakeFile closed;  // no stream
    for (TakeFile *take : {static_cast<TakeFile *>(nullptr), &closed}) {
        bwtest::StreamCapture err(stderr);
        EXPECT_EQ(takeFileReadRecord(take, nullptr, &dof, &status, &value, &time), 0);
        const std::string text = err.text();
        EXPECT_TRUE(std::regex_match(text, std::regex("channel/chn_take\\([0-9]+\\): NULL take file pointer\n")))
            << text;
    }
    EXPECT_EQ(takeFileIsComplete(nullptr), 0);
}

// ---------------------------------------------------------------------------
// Loading a take into curves

struct LoadRun {
    int result = 0;
    std::string out, err;
};

LoadRun load(ChannelSetup *setup, int number, TakeLoadRange *range) {
    LoadRun run;
    bwtest::StreamCapture out(stdout), err(stderr);
    run.result = takeLoad(setup, number, range);
    run.out = out.text();
    run.err = err.text();
    return run;
}

ChannelDriver driverOf(const char *name, std::vector<int> directions) {
    ChannelDriver d;
    d.name = name;
    for (int dir : directions) {
        ChannelDof dof;
        dof.direction = dir;
        d.dofs.push_back(dof);
    }
    d.dofCount = int(d.dofs.size());
    return d;
}

// Setup with drivers wave (two inputs), gain (an output only), pad (one
// input, BINARY file) and lost (one input, no file), take 2 on disk.
struct TakeFixture {
    bwtest::TempDir tmp;
    ChannelSetup *setup = channelSetupCreate(4);
    std::string dir;

    TakeFixture() {
        snprintf(setup->takeDir, sizeof setup->takeDir, "%s", tmp.path().c_str());
        snprintf(setup->takeName, sizeof setup->takeName, "t");
        channelSetupAddDriver(setup, driverOf("wave", {CHANNEL_DIR_INPUT, CHANNEL_DIR_INPUT}));
        channelSetupAddDriver(setup, driverOf("gain", {CHANNEL_DIR_OUTPUT}));
        channelSetupAddDriver(setup, driverOf("pad", {CHANNEL_DIR_INPUT}));
        channelSetupAddDriver(setup, driverOf("lost", {CHANNEL_DIR_INPUT}));
        dir = tmp.mkdir("t.CHD/TAKE.0002");
        // DOF 5 is not the driver's; the two records of DOF 1 at one time: the later stands.
        tmp.write("t.CHD/TAKE.0002/wave.00.chd",
                  joined(headerLines("1.100000", "ASCII", 2, 0.5f, 2.0f)) +
                      asciiRecords({{0.5f, 0, 1, 1.0f}, {1.0f, 1, 1, 7.0f}, {1.0f, 0, 2, 3.0f},
                                    {1.0f, 1, 2, 8.0f}, {2.0f, 0, 3, -1.0f}, {1.5f, 5, 3, 0.0f}}) +
                      "END-OF-DATA\n");
        tmp.write("t.CHD/TAKE.0002/pad.02.chd",
                  joined(headerLines("1.100000", "BINARY", 1, 0.25f, 3.0f)) +
                      binaryRecords({{0.25f, 0, 1, 5.0f}, {1.25f, 0, 2, 6.0f}, {3.0f, 0, 3, 7.0f}}) +
                      "END-OF-DATA\n");
        // An old curve of a DOF is emptied first.
        Fcurve *old = fcurveCreate(0, 0);
        FcurveKey *key = fcurveKeyNew();
        key->time = 9.0f;
        fcurveAddKey(old, key, 0, 0, 1);
        setup->drivers[0].dofs[1].curve = old;
    }
    ~TakeFixture() {
        takeCurvesFree(setup);
        channelSetupFree(setup);
    }
    std::vector<float> times(int driver, int dof) const {
        std::vector<float> t;
        const Fcurve *c = setup->drivers[size_t(driver)].dofs[size_t(dof)].curve;
        for (int i = 0; c && i < c->keyCount; ++i) t.push_back(c->keys[i].time);
        return t;
    }
};

TEST(TakeLoad, EachDriverFileFillsItsDofCurvesWithinTheSetupRange) {
    TakeFixture f;
    TakeLoadRange range;
    range.start = 0.4f;
    range.end = 2.5f;
    LoadRun run = load(f.setup, 2, &range);
    ASSERT_EQ(run.result, 1) << run.err;
    const std::string lost = f.dir + "/lost.03.chd";
    EXPECT_EQ(run.err, lost + ": No such file or directory\n"
                       "Cannot read take data file '" + lost + "'.\n" +
                       f.dir + "/wave.00.chd: 1 records of DOFs the driver wave does not have, left out\n");
    EXPECT_EQ(run.out, "Take Reading ..." + f.dir.substr(f.dir.size() - 32) + "\n"
                       "Reading ASC wave.00.chd (1 of 2)\n"
                       "Reading BIN pad.02.chd (2 of 2)\n");
    EXPECT_EQ(range.files, 2);
    EXPECT_EQ(range.takeStart, 0.25f);  // the union of the headers
    EXPECT_EQ(range.takeEnd, 3.0f);
    EXPECT_EQ(range.clipped, 2);        // pad's records at 0.25 and 3.0
    EXPECT_EQ(range.points, 5);
    EXPECT_EQ(f.times(0, 0), (std::vector<float>{0.5f, 1.0f, 2.0f}));
    EXPECT_EQ(f.times(0, 1), (std::vector<float>{1.0f}));
    EXPECT_EQ(f.setup->drivers[0].dofs[1].curve->keys[0].value, 8.0f);
    EXPECT_EQ(f.times(2, 0), (std::vector<float>{1.25f}));
    EXPECT_EQ(f.setup->drivers[1].dofs[0].curve, nullptr);  // the output-only driver is left alone
    EXPECT_EQ(f.setup->drivers[3].dofs[0].curve, nullptr);
    // Linear between the samples, held at the range's ends.
    Fcurve *wave0 = f.setup->drivers[0].dofs[0].curve;
    EXPECT_EQ(wave0->keys[0].interpolation, FCV_LINEAR);
    EXPECT_FLOAT_EQ(float(fcurveFloatValue(wave0, 0.75f, 0)), 2.0f);
    EXPECT_FLOAT_EQ(float(fcurveFloatValue(wave0, 1.5f, 0)), 1.0f);
    EXPECT_EQ(wave0->rangeStart, 0.4f);
    EXPECT_EQ(wave0->rangeEnd, 2.5f);
}

TEST(TakeLoad, WithoutARangeOfItsOwnTheTakesRangeStands) {
    TakeFixture f;
    TakeLoadRange range;  // end below start
    LoadRun run = load(f.setup, 2, &range);
    ASSERT_EQ(run.result, 1);
    EXPECT_EQ(range.clipped, 0);
    EXPECT_EQ(f.times(2, 0), (std::vector<float>{0.25f, 1.25f, 3.0f}));
    EXPECT_EQ(f.setup->drivers[2].dofs[0].curve->rangeStart, 0.25f);
    EXPECT_EQ(f.setup->drivers[2].dofs[0].curve->rangeEnd, 3.0f);
}

TEST(TakeLoad, AMissingTakeOrNoValidDriverIsSaid) {
    TakeFixture f;
    LoadRun missing = load(f.setup, 7, nullptr);
    EXPECT_EQ(missing.result, 0);
    EXPECT_EQ(missing.err, f.tmp.path() + "/t.CHD/TAKE.0007 does not exist yet\n");
    EXPECT_EQ(missing.out, "");

    ChannelSetup *outputs = channelSetupCreate(2);
    snprintf(outputs->takeDir, sizeof outputs->takeDir, "%s", f.tmp.path().c_str());
    snprintf(outputs->takeName, sizeof outputs->takeName, "t");
    channelSetupAddDriver(outputs, driverOf("gain", {CHANNEL_DIR_OUTPUT}));
    LoadRun none = load(outputs, 2, nullptr);
    EXPECT_EQ(none.result, 0);
    EXPECT_EQ(none.err, "No valid drivers for Take Load.\n");
    channelSetupFree(outputs);

    if (geteuid() != 0) {  // the superuser reads any directory
        chmod(f.dir.c_str(), 0);
        LoadRun closed = load(f.setup, 2, nullptr);
        EXPECT_EQ(closed.result, 0);
        EXPECT_EQ(closed.err, f.dir + " not readable\n");
        chmod(f.dir.c_str(), 0755);
    }
    EXPECT_EQ(takeDataPath("/d", "n", 12, "wave", 3), "/d/n.CHD/TAKE.0012/wave.03.chd");
}

}  // namespace
