// The kit's take writer against the one take reader: what a driver writes, in
// either type, reads back record for record, and header values that would
// break a line are written so that the header still reads.
#include <gtest/gtest.h>

#include <string>

#include "capture.h"
#include "channel.h"
#include "driverkit_take.h"

namespace {

bwkit::Take sample(int type) {
    bwkit::Take take;
    take.sceneName = "the scene";
    take.driverName = "wave";
    take.dofCount = 2;
    take.type = type;
    take.records = {{0.25f, 0, 1, 1.5f}, {0.25f, 1, 1, -2.0f}, {0.5f, 0, 2, 1024.0f}, {0.5f, 1, 2, 0.125f}};
    return take;
}

// Writes the take into `tmp` and reads it back: 1 when the header and every
// record read and the end mark follows.
int readBack(const bwtest::TempDir &tmp, bwkit::Take take, TakeFile *file, std::vector<bwkit::TakeRecord> *out) {
    take.path = tmp / "wave.00.chd";
    if (!bwkit::takeWrite(take)) return 0;
    if (!takeFileReadHeader(file, take.path.c_str())) return 0;
    int32_t dof, status;
    float value, time;
    while (takeFileReadRecord(file, nullptr, &dof, &status, &value, &time)) out->push_back({time, dof, status, value});
    const int complete = takeFileIsComplete(file->stream);
    takeFileClose(file);
    return complete;
}

TEST(TakeWriter, AsciiAndBinaryTakesReadBackWhole) {
    bwtest::TempDir tmp;
    for (int type : {BW_TAKE_FILE_ASCII, BW_TAKE_FILE_BINARY}) {
        const bwkit::Take take = sample(type);
        TakeFile file;
        std::vector<bwkit::TakeRecord> records;
        ASSERT_EQ(readBack(tmp, take, &file, &records), 1) << type;
        EXPECT_EQ(file.type, type);
        EXPECT_EQ(file.sceneName, "the scene");
        EXPECT_EQ(file.driverName, "wave");
        EXPECT_EQ(file.takeFile, tmp / "wave.00.chd");
        EXPECT_EQ(file.dofCount, 2);
        EXPECT_EQ(file.minTime, 0.25f);
        EXPECT_EQ(file.maxTime, 0.5f);
        EXPECT_EQ(file.dofGrouped, 1);
        EXPECT_EQ(file.dofCounted, 1);
        ASSERT_EQ(records.size(), take.records.size());
        for (size_t i = 0; i < records.size(); ++i) {
            EXPECT_EQ(records[i].time, take.records[i].time);
            EXPECT_EQ(records[i].dof, take.records[i].dof);
            EXPECT_EQ(records[i].count, take.records[i].count);
            EXPECT_EQ(records[i].value, take.records[i].value);
        }
    }
}

TEST(TakeWriter, HeaderValuesKeepToALineThatReads) {
    bwtest::TempDir tmp;
    bwkit::Take take = sample(BW_TAKE_FILE_ASCII);
    take.sceneName = std::string(300, 'n');  // the arena holds up to 255 characters, and the path more
    take.driverName = "two\nlines ";
    TakeFile file;
    std::vector<bwkit::TakeRecord> records;
    ASSERT_EQ(readBack(tmp, take, &file, &records), 1);
    EXPECT_EQ(file.sceneName, std::string(256 - 15, 'n'));
    EXPECT_EQ(file.driverName, "two lines");
    take.sceneName = "  ";
    take.driverName = "";
    TakeFile blank;
    records.clear();
    ASSERT_EQ(readBack(tmp, take, &blank, &records), 1);
    EXPECT_EQ(blank.sceneName, "NONE");
    EXPECT_EQ(blank.driverName, "NONE");
}

TEST(TakeWriter, TimeCodesAreHoursMinutesSecondsAndFramesAtThirty) {
    bwkit::Take take = sample(BW_TAKE_FILE_ASCII);
    // 0.1 s is 3 frames; 3725.5 s is 1 h 2 min 5 s and 15 frames; 2.305 s
    // (69.15 frames) rounds to the nearest frame.
    take.records = {{3725.5f, 0, 1, 0.0f}, {0.1f, 1, 1, 0.0f}};
    std::string text = bwkit::takeText(take);
    EXPECT_TRUE(bwtest::contains(text, "\tSTART_TC    : 00:00:00:03\n\tEND_TC      : 01:02:05:15\n")) << text;
    take.records = {{2.305f, 0, 1, 0.0f}};
    text = bwkit::takeText(take);
    EXPECT_TRUE(bwtest::contains(text, "\tSTART_TC    : 00:00:02:09\n\tEND_TC      : 00:00:02:09\n")) << text;
}

}  // namespace
