// Element files, their versions on disk and the database lock.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>

#include "capture.h"
#include "database.h"
#include "dictionary.h"

using bwtest::ScopedEnv;
namespace fs = std::filesystem;

namespace {

class ChapterFiles : public ::testing::Test {
protected:
    void SetUp() override {
        tmp.write("db/MODELS/Chapter.rsrc", "SUFFIX hrc \nVERSIONS 2 \n");
        tmp.write("db/SCENES/Chapter.rsrc", "SUFFIX dsc \nVERSIONS 4 \n");
        db.path = tmp / "db";
        dbScanChapters(db, 0);
        dictCreateChapters(&dict, nullptr, 1);
        elem.name = &name;
    }
    void TearDown() override { dictFree(&dict, 0); }

    void touch(const std::string &rel) { tmp.write("db/MODELS/" + rel, "x"); }
    void named(const char *prefix, const char *own, const char *version, const char *subdir) {
        name.prefix = prefix;
        name.name = own;
        name.version = version;
        name.revision = "0";
        name.subdir = subdir;
        name.fullName = elemNameFormat(name);
        elem.shared = 0;
    }
    int find(std::string *outSubdir = nullptr, int noRetry = 0) {
        return elemFindFile(&db, &dict, "MODELS", CHP_MODELS, &elem, outSubdir, noRetry);
    }
    std::string models(const std::string &rel) const { return tmp / ("db/MODELS/" + rel); }

    bwtest::TempDir tmp;
    Database db;
    Dictionary dict;
    ElemName name;
    Element elem{};
};

}  // namespace

TEST_F(ChapterFiles, LatestVersionIgnoresIconsRevisionsAndDirectories) {
    for (const char *f : {"s-ball.1-0.hrc", "s-ball.3-0.hrc", "s-ball.3-5.hrc", "s-ball.4-0.icn",
                          "SHARE/s-ball.2-0.hrc", "s-balloon.9-0.hrc", "t-ball.8-0.hrc"})
        touch(f);
    tmp.mkdir("db/MODELS/s-ball.7-0");
    dbSetChapter(db, "MODELS");
    named("s", "ball", "1", "");
    int lowest = 0, count = 0;
    EXPECT_EQ(elemLatestVersion(&db, &name, 0, &lowest, &count), 3);
    EXPECT_EQ(lowest, 1);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(name.fullName, "s-ball.1-0");  // no update asked

    name.revision = "2";
    EXPECT_EQ(elemLatestVersion(&db, &name, 1, nullptr, nullptr), 3);
    EXPECT_EQ(name.version, "3");
    EXPECT_EQ(name.fullName, "s-ball.3-2");

    named("s", "none", "5", "");
    EXPECT_EQ(elemLatestVersion(&db, &name, 1, &lowest, &count), -1);
    EXPECT_EQ(lowest, 99999);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(name.fullName, "s-none.5-0");

    ScanVersionArg wanted{"s-ball", "5"};
    EXPECT_TRUE(scanVersionPredicate("s-ball.3-5.hrc", &wanted));
    EXPECT_FALSE(scanVersionPredicate("s-ball.3-0.hrc", &wanted));
    EXPECT_FALSE(scanVersionPredicate("s-ball.3-50.hrc", &wanted));
    EXPECT_FALSE(scanVersionPredicate("s-ball.3-5.ICN", &wanted));
    EXPECT_EQ(chapterFindBySuffix("DSC"), CHP_SCENES);  // "kitchen.DSC" is cut like ".dsc"
}

TEST_F(ChapterFiles, FindFileInChapterShareSubdirsAndOutside) {
    touch("s-ball.2-0.hrc");
    named("s", "ball", "2", "");
    EXPECT_EQ(find(), 1);
    EXPECT_EQ(std::string(g_elemPath), models("s-ball.2-0.hrc"));
    EXPECT_EQ(elem.shared, 0);

    touch("SHARE/lamp.1-0.hrc");
    named("", "lamp", "1", "SHARE/");
    EXPECT_EQ(find(), 1);
    EXPECT_EQ(elem.shared, 1);

    named("s", "ball", "2", "gone/");  // the sub-directory vanished
    EXPECT_EQ(find(), 1);
    EXPECT_EQ(name.subdir, "");

    touch("props/chair.1-0.hrc");
    touch("SHARE/table.1-0.hrc");
    Chapter *chapter = dictChapter(&dict, CHP_MODELS);
    chapter->subdirNames = {"props/", "SHARE/"};
    chapter->subdirCount = 2;
    std::string subdir = "untouched";
    named("", "chair", "1", "");
    EXPECT_EQ(find(&subdir), 1);
    EXPECT_EQ(subdir, "props/");
    EXPECT_EQ(elem.shared, 0);
    named("", "table", "1", "");
    EXPECT_EQ(find(&subdir), 1);
    EXPECT_EQ(subdir, "SHARE/");
    EXPECT_EQ(elem.shared, 1);

    touch("cup.hrc");  // named by the scene with a version that is not on disk
    named("", "cup", "5", "");
    EXPECT_EQ(find(nullptr, 1), 0);
    EXPECT_EQ(find(), 1);
    EXPECT_EQ(std::string(g_elemPath), models("cup.hrc"));
    EXPECT_EQ(name.fullName, "cup.5-0");

    tmp.write("ext/tex.1-0", "x");
    ScopedEnv ext("BWT_EXT", (tmp / "ext").c_str());
    named("", "tex", "1", "$BWT_EXT");
    EXPECT_EQ(find(), 1);
    EXPECT_EQ(std::string(g_elemPath), tmp / "ext/tex.1-0");
    named("", "tex", "1", "$BWT_EXT\\");
    EXPECT_EQ(find(), 1);
    EXPECT_EQ(std::string(g_elemPath), tmp / "ext/tex.1-0");

    name.fullName = std::string(1100, 'n');
    EXPECT_EQ(find(), 0);  // a path beyond the buffer is no file
    EXPECT_LT(strlen(g_elemPath), size_t(BW_PATH_MAX));
}

TEST_F(ChapterFiles, NextVersionAndPruningKeepTheChaptersVersions) {
    named("", "ball", "1", "");
    EXPECT_EQ(elemNextVersion(&db, "MODELS", &name), 1);
    for (const char *f : {"ball.1-0.hrc", "ball.1-0.icn", "ball.2-0.hrc", "ball.3-0.hrc",
                          "ball.3-1.hrc", "SHARE/ball.0-0.hrc", "ball.0-0.icn"})
        touch(f);
    EXPECT_EQ(elemNextVersion(&db, "MODELS", &name), 4);
    EXPECT_EQ(elemPruneVersions(&db, "MODELS", &name), 1);
    std::string left;
    for (const ScannedFile &f : chapterScanDir(db.path + "/MODELS", scanSuffixPredicate, "all", 1))
        left += f.subdir + f.fileName + " ";
    EXPECT_EQ(left, "ball.0-0.icn ball.2-0.hrc ball.3-0.hrc ball.3-1.hrc Chapter.rsrc SHARE "
                    "SHARE/ball.0-0.hrc ");
    EXPECT_EQ(elemPruneVersions(&db, "MODELS", &name), 0);
}

TEST_F(ChapterFiles, ChapterVersionsReread) {
    tmp.write("db/MODELS/Chapter.rsrc", "SUFFIX hrc BROWSER x VERSIONS 7 ");
    EXPECT_EQ(dbChapterVersions(&db, "MODELS"), 7);
    EXPECT_EQ(db.chapters[0].versions, 7);
    tmp.write("db/MODELS/Chapter.rsrc", "VERSIONS -3\n");
    EXPECT_EQ(dbChapterVersions(&db, "MODELS"), 1);
    tmp.write("db/MODELS/Chapter.rsrc", "SUFFIX hrc\n");
    EXPECT_EQ(dbChapterVersions(&db, "MODELS"), 1);  // no VERSIONS: unchanged
    fs::remove(tmp / "db/MODELS/Chapter.rsrc");
    EXPECT_EQ(dbChapterVersions(&db, "MODELS"), 1);
    EXPECT_EQ(dbChapterVersions(&db, "LIGHTS"), 4);  // not a chapter of this database
}

TEST_F(ChapterFiles, LockTakeForceRelease) {
    ScopedEnv user("USER", "tester");
    std::string lock = db.path + "/BW_DB_LOCK__";
    EXPECT_EQ(dbLock(&db, DB_LOCK_RELEASE), 0);  // nothing to release
    EXPECT_EQ(dbLock(&db, DB_LOCK_TAKE), 1);
    std::string text = bwtest::fileText(lock);
    EXPECT_TRUE(std::regex_match(
        text, std::regex(R"(Locked by user tester on \d\d/\d\d/\d\d \d\d:\d\d \n)")))
        << text;
    EXPECT_EQ(dbLock(&db, DB_LOCK_TAKE), 0);
    EXPECT_EQ(std::string(g_dbLockText), text);

    tmp.write("db/BW_DB_LOCK__", std::string(300, 'z'));
    EXPECT_EQ(dbLock(&db, DB_LOCK_TAKE), 0);
    EXPECT_EQ(std::string(g_dbLockText), std::string(100, 'z'));
    EXPECT_EQ(dbLock(&db, DB_LOCK_FORCE), 1);
    EXPECT_EQ(bwtest::fileText(lock).compare(0, 15, "Locked by user "), 0);
    EXPECT_EQ(dbLock(&db, DB_LOCK_RELEASE), 1);
    EXPECT_FALSE(fs::exists(lock));

    Database nowhere;  // a lock that cannot be made holds nobody out
    nowhere.path = tmp / "missing/db";
    EXPECT_EQ(dbLock(&nowhere, DB_LOCK_TAKE), 1);
    EXPECT_EQ(dbLock(&nowhere, DB_LOCK_RELEASE), 0);
}

TEST_F(ChapterFiles, UnreadableLockIsInProgress) {
    std::string lock = tmp.write("db/BW_DB_LOCK__", "Locked by user other on 01/01/01 00:00 \n");
    chmod(lock.c_str(), 0);
    if (access(lock.c_str(), R_OK) == 0) GTEST_SKIP() << "mode 000 is readable for this user";
    EXPECT_EQ(dbLock(&db, DB_LOCK_TAKE), 0);
    EXPECT_STREQ(g_dbLockText, "Lock in progress. (file not readable)");
}

// Each chapter's name is made from its directory, at the index of its id.
TEST(ChapterTable, NamesAreTheDirectoriesAtTheirIds) {
    EXPECT_EQ(CHP_MODELS, 8);
    EXPECT_EQ(CHP_SPREADSHEET_SETUP, 32);
    EXPECT_EQ(CHP_LIGHT_PHOTON_SHADERS, CHAPTER_COUNT - 1);
    EXPECT_STREQ(g_chapterTable[CHP_TEXTURES3D].dir, "TEXTURES3D");
    EXPECT_STREQ(g_chapterTable[CHP_TEXTURES3D].suffix, "t3D");
    EXPECT_EQ(g_chapterTable[CHP_MATERIALS].magic, 0x534D4154u);  // "SMAT"
    EXPECT_EQ(g_chapterTable[CHP_MODELS].magic, 0u);
    EXPECT_EQ(g_chapterTable[CHP_NSELECTIONS].suffix, nullptr);
    EXPECT_EQ(g_chapterTable[CHP_OUTSIDE_DB_FILES].kind, CHAPTER_OUTSIDE);
}
