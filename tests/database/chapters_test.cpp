#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>

#include "db_fixture.h"

namespace fs = std::filesystem;
using bwtest::OutputCapture;

TEST(ChapterTable, RowsAndLookups) {
    for (int i = 0; i < CHAPTER_COUNT; ++i) EXPECT_EQ(g_chapterTable[i].id, i);
    EXPECT_EQ(g_chapterTable[CHP_SCENES].magic, 0x53445343u);  // "SDSC"
    EXPECT_EQ(g_chapterTable[CHP_PICTURES].magic, 0u);
    EXPECT_STREQ(g_chapterTable[CHP_TEXTURES3D].suffix, "t3D");
    EXPECT_EQ(g_chapterTable[CHP_NSELECTIONS].kind, CHAPTER_MEMORY);
    EXPECT_EQ(g_chapterTable[CHP_OUTSIDE_DB_FILES].kind, CHAPTER_OUTSIDE);
    EXPECT_STREQ(g_chapterTable[35].dir, "LIGHT_PHOTON_SHADERS");

    EXPECT_EQ(chapterFind("MODELS"), CHP_MODELS);
    EXPECT_EQ(chapterFind("models"), -1);
    EXPECT_EQ(chapterFind("pictures"), CHP_PICTURES);
    EXPECT_EQ(chapterFind("Render_Pictures"), CHP_RENDER_PICTURES);
    EXPECT_EQ(chapterFind(nullptr), -1);
    EXPECT_EQ(chapterFindBySuffix("HRC"), CHP_MODELS);
    EXPECT_EQ(chapterFindBySuffix("pic"), CHP_PICTURES);
    EXPECT_EQ(chapterFindBySuffix("shd"), 21);
    EXPECT_EQ(chapterFindBySuffix(""), -1);
}

TEST_F(DbTest, ReadChapterInfoModes) {
    std::string db = tmp.mkdir("db");
    tmp.write("db/MODELS/Chapter.rsrc", "SUFFIX abc\nBROWSER list\nJUNK 3\nVERSIONS 0");
    tmp.write("db/SETUP_BRAK/Chapter.rsrc", "SUFFIX xyz VERSIONS 7\n");
    ChapterInfo info;
    EXPECT_EQ(ReadChapterInfo(db.c_str(), "MODELS", info, 0), 1);
    EXPECT_EQ(info.suffix, "abc");
    EXPECT_EQ(info.browser, "list");
    EXPECT_EQ(info.versions, 1);
    EXPECT_EQ(ReadChapterInfo(db.c_str(), "SETUP_BRAK", info, 0), 1);
    EXPECT_EQ(info.suffix, "sts");
    EXPECT_EQ(info.versions, 7);

    OutputCapture io;
    EXPECT_EQ(ReadChapterInfo(db.c_str(), "CAMERAS", info, 0), 0);
    EXPECT_EQ(info.suffix, "cam");
    EXPECT_EQ(info.versions, 4);
    EXPECT_EQ(ReadChapterInfo(db.c_str(), "MODELS", info, 1), 1);
    EXPECT_EQ(info.suffix, "hrc");  // existence only: the table's suffix
    EXPECT_EQ(ReadChapterInfo(db.c_str(), "LIGHTS", info, 1), 0);
    EXPECT_EQ(io.out.text(),
              "ERROR: ReadChapterInfo - cannot open " + db + "/CAMERAS/Chapter.rsrc\n");
}

TEST_F(DbTest, ChapterScanTakesDirectoriesOnly) {
    Database db;
    db.path = makeDb("db", {"SCENES", "CAMERAS"});
    tmp.mkdir("db/MODELS");
    tmp.mkdir("db/.hidden");
    tmp.write("db/LIGHTS", "not a chapter");
    OutputCapture io;
    EXPECT_EQ(dbScanChapters(db, 0), 2);
    ASSERT_EQ(db.chapters.size(), 3u);
    EXPECT_EQ(db.chapters[0].name, "CAMERAS");
    EXPECT_EQ(db.chapters[1].name, "MODELS");
    EXPECT_EQ(db.chapters[2].name, "SCENES");
    EXPECT_EQ(io.out.text(),
              "ERROR: ReadChapterInfo - cannot open " + db.path + "/MODELS/Chapter.rsrc\n");
    db.path = tmp / "db/LIGHTS";
    EXPECT_EQ(dbScanChapters(db, 0), 0);
    EXPECT_TRUE(db.chapters.empty());
}

TEST_F(DbTest, DirectoryScanOrderNamesAndSharing) {
    for (const char *name : {"b.dsc", "A.dsc", "c.txt", ".hidden.dsc", "SHARE/s-x.2-0.dsc",
                             "sub/deep.DSC", "ball.3-0"})
        tmp.write(std::string("SCENES/") + name, "x");
    std::string chapter = tmp / "SCENES";
    std::vector<ScannedFile> files = chapterScanDir(chapter, scanSuffixPredicate, "dsc", 1);
    std::vector<std::string> seen;
    for (const ScannedFile &f : files) seen.push_back(f.subdir + f.fileName);
    EXPECT_EQ(seen, (std::vector<std::string>{"A.dsc", "b.dsc", "SHARE", "SHARE/s-x.2-0.dsc", "sub",
                                              "sub/deep.DSC"}));
    EXPECT_TRUE(S_ISDIR(files[2].mode));
    EXPECT_EQ(files[0].fullName, "A");
    EXPECT_EQ(files[3].fullName, "s-x.2-0");
    EXPECT_EQ(files[3].suffix, "dsc");
    EXPECT_EQ(files[3].shared, 1);
    EXPECT_EQ(files[5].shared, 0);
    EXPECT_EQ(files[0].size, 1);

    files = chapterScanDir(chapter + "/", scanSuffixPredicate, "all", 0);
    ASSERT_EQ(files.size(), 6u);  // no descent
    EXPECT_EQ(files[2].fileName, "ball.3-0");
    EXPECT_EQ(files[2].fullName, "ball.3-0");  // a version stamp is no suffix

    chmod((chapter + "/sub").c_str(), 0);
    files = chapterScanDir(chapter, scanSuffixPredicate, "dsc", 1);
    EXPECT_GE(files.size(), 5u);
    EXPECT_TRUE(chapterScanDir(tmp / "none", scanSuffixPredicate, "dsc", 1).empty());
}

TEST_F(DbTest, LatestSceneEqualTimesAndLinkLoops) {
    Database db;
    db.path = tmp.path();
    EXPECT_EQ(dbLatestScene(db), "");
    auto setTime = [](const std::string &path, int offset) {
        struct timespec times[2] = {{1000000000 + offset, 0}, {1000000000 + offset, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    };
    auto stamp = [&](const std::string &rel, int offset) {
        setTime(tmp.write("SCENES/" + rel, "x"), offset);
    };
    stamp("older.dsc", -100);
    stamp("b-second.1-0.dsc", 0);
    stamp("a-first.1-0.dsc", 0);
    stamp("other.hrc", 50);
    EXPECT_EQ(dbLatestScene(db), "a-first.1-0");

    fs::create_directory_symlink(tmp / "SCENES", tmp / "SCENES/loop");
    fs::create_directory_symlink("..", tmp / "SCENES/z");
    stamp("deep/newest.1-0.dsc", 10);
    setTime(tmp / "SCENES/deep", 500);  // a directory is no scene, however new
    EXPECT_EQ(dbLatestScene(db), "newest.1-0");
}
