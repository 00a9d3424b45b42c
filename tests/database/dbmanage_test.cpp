#include <filesystem>

#include "db_fixture.h"

namespace fs = std::filesystem;

TEST_F(DbTest, CreateRefusals) {
    std::string dirFile = tmp / "DatabaseDir.rsrc";
    std::string fresh = tmp / "fresh";
    ASSERT_EQ(dbCreate(g_dbList, "fresh", fresh.c_str(), dirFile.c_str()), DB_CREATE_OK);
    EXPECT_EQ(dbCreate(g_dbList, "fresh", fresh.c_str(), dirFile.c_str()), DB_CREATE_KNOWN);
    EXPECT_EQ(dbCreate(g_dbList, "other", fresh.c_str(), dirFile.c_str()), DB_CREATE_INSIDE);
    EXPECT_EQ(dbCreate(g_dbList, "in", (fresh + "/MODELS/x").c_str(), dirFile.c_str()),
              DB_CREATE_INSIDE);
    std::string unknown = makeDb("unknown");
    EXPECT_EQ(dbCreate(g_dbList, "u", (unknown + "/SCENES/y").c_str(), dirFile.c_str()),
              DB_CREATE_INSIDE);
    tmp.mkdir("plain");
    EXPECT_EQ(dbCreate(g_dbList, "p", (tmp / "plain").c_str(), dirFile.c_str()), DB_CREATE_EXISTS);
    tmp.write("afile", "x");
    EXPECT_EQ(dbCreate(g_dbList, "f", (tmp / "afile/db").c_str(), dirFile.c_str()),
              DB_CREATE_NO_DIR);
    EXPECT_EQ(dbCreate(g_dbList, "n", (tmp / "n").c_str(), (tmp / "no/dir.rsrc").c_str()),
              DB_CREATE_NOT_LISTED);
    EXPECT_EQ(g_dbList.count(), 2);
    EXPECT_EQ(slurp(dirFile), "DATABASE fresh \nPATH " + fresh + " \n");
}

TEST_F(DbTest, CreateThenRemoveRoundTrip) {
    std::string dirFile = tmp / "DatabaseDir.rsrc";
    std::string fresh = tmp / "fresh";
    ASSERT_EQ(dbCreate(g_dbList, "fresh", fresh.c_str(), dirFile.c_str()), DB_CREATE_OK);
    Database &db = g_dbList.items[0];
    EXPECT_EQ(db.chapters.size(), 33u);  // every chapter kept in files
    EXPECT_EQ(slurp(fresh + "/SCENES/Chapter.rsrc"), "SUFFIX dsc \nVERSIONS 4 \n");
    EXPECT_EQ(slurp(fresh + "/TEXTURES3D/Chapter.rsrc"), "SUFFIX t3D \nVERSIONS 4 \n");
    EXPECT_FALSE(fs::exists(fresh + "/NSELECTIONS"));
    EXPECT_FALSE(fs::exists(fresh + "/OUTSIDE_DB_FILES"));

    // A link to something outside must survive the deletion of the tree.
    std::string outside = tmp.write("outside/keep.hrc", "x");
    fs::create_directory_symlink(tmp / "outside", fresh + "/MODELS/SHARE");
    EXPECT_EQ(dbRemove(g_dbList, &db, 1, 1, 1, tmp.path().c_str()), DB_REMOVE_NOT_EMPTY);
    fs::remove(fresh + "/MODELS/SHARE");
    tmp.write("fresh/MODELS/sub/ball.1-0.hrc", "x");
    EXPECT_EQ(dbRemove(g_dbList, &db, 1, 1, 1, tmp.path().c_str()), DB_REMOVE_NOT_EMPTY);
    fs::remove_all(fresh + "/MODELS/sub");
    fs::create_directory_symlink(tmp / "outside", fresh + "/MODELS/.link");
    EXPECT_EQ(dbRemove(g_dbList, &db, 1, 1, 1, tmp.path().c_str()), DB_REMOVED_WITH_DIR);
    EXPECT_FALSE(fs::exists(fresh));
    EXPECT_TRUE(fs::exists(outside));
    EXPECT_EQ(g_dbList.count(), 0);

    bwtest::ScopedEnv noDbdir("BW_DBDIR", nullptr);
    dbAdd(g_dbList, "gone", "/p/gone");
    dbAdd(g_dbList, "kept", "/p/kept");
    EXPECT_EQ(dbRemove(g_dbList, &g_dbList.items[0], 0, 0, 0, tmp.path().c_str()), DB_REMOVED);
    EXPECT_EQ(slurp(dirFile), "DATABASE kept \nPATH /p/kept \n");
    EXPECT_EQ(dbRemove(g_dbList, &g_dbList.items[0], 0, 0, 0, (tmp / "none").c_str()),
              DB_DIR_NOT_OPENED);
}
