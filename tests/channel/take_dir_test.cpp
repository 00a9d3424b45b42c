// Take sets: which entries count as takes, and the number the next take gets.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include "capture.h"
#include "channel.h"

namespace {

TEST(TakeDir, NextNumberFollowsTheLastTakeOfFourDigits) {
    bwtest::TempDir dir;
    const std::string set = dir.mkdir("mytake.CHD");
    EXPECT_EQ(takeNextNumber(set.c_str(), 1), 1);  // an empty set keeps the number given
    EXPECT_EQ(takeNextNumber(set.c_str(), 5), 5);
    dir.mkdir("mytake.CHD/TAKE.0001");
    dir.mkdir("mytake.CHD/TAKE.0007");
    // Not takes: other digit counts, other words, a suffix.
    dir.mkdir("mytake.CHD/TAKE.012");
    dir.mkdir("mytake.CHD/TAKE.00099");
    dir.mkdir("mytake.CHD/TAKE.0050x");
    dir.mkdir("mytake.CHD/take.0090");
    dir.write("mytake.CHD/notes.txt", "x");
    EXPECT_EQ(takeNextNumber(set.c_str(), 1), 8);
    EXPECT_EQ(takeNextNumber(set.c_str(), 8), 8);  // none from 8 on
    EXPECT_EQ(takeNextNumber((dir / "other.CHD").c_str(), 1), -1);
    EXPECT_EQ(takeSetPath("/some/dir", "mytake"), "/some/dir/mytake.CHD");
}

TEST(TakeDir, ScanFindsTheLastByNameOrTheNewestDirectory) {
    bwtest::TempDir dir;
    const std::string set = dir.mkdir("s.CHD");
    TakeDirQuery q;
    EXPECT_EQ(takeDirScan(set.c_str(), &q), TAKE_SCAN_NONE);
    for (const char *name : {"TAKE.0003", "TAKE.0002", "TAKE.0010"}) dir.mkdir(std::string("s.CHD/") + name);
    dir.write("s.CHD/TAKE.0011", "a file, not a take directory");
    q.mode = TAKE_SCAN_LAST;
    q.first = 0;
    ASSERT_EQ(takeDirScan(set.c_str(), &q), TAKE_SCAN_FOUND);
    EXPECT_EQ(q.number, 11);
    EXPECT_STREQ(q.name, "TAKE.0011");
    // The newest directory: TAKE.0002 touched last; the file does not count.
    utimbuf old{1000, 1000}, recent{2000, 2000};
    for (const char *name : {"TAKE.0003", "TAKE.0010", "TAKE.0011"}) utime((dir / (std::string("s.CHD/") + name)).c_str(), &old);
    utime((dir / "s.CHD/TAKE.0002").c_str(), &recent);
    q.mode = TAKE_SCAN_NEWEST;
    ASSERT_EQ(takeDirScan(set.c_str(), &q), TAKE_SCAN_FOUND);
    EXPECT_EQ(q.number, 2);
    // On equal times the first in the order of names.
    utime((dir / "s.CHD/TAKE.0002").c_str(), &old);
    ASSERT_EQ(takeDirScan(set.c_str(), &q), TAKE_SCAN_FOUND);
    EXPECT_EQ(q.number, 2);
    utime((dir / "s.CHD/TAKE.0003").c_str(), &recent);
    ASSERT_EQ(takeDirScan(set.c_str(), &q), TAKE_SCAN_FOUND);
    EXPECT_EQ(q.number, 3);
    q.mode = 7;
    EXPECT_EQ(takeDirScan(set.c_str(), &q), TAKE_SCAN_BAD_ARGUMENT);
    EXPECT_EQ(takeDirScan(nullptr, &q), TAKE_SCAN_BAD_ARGUMENT);
}

}  // namespace
