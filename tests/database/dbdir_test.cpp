#include <sys/stat.h>

#include "db_fixture.h"

using bwtest::OutputCapture;
using bwtest::ScopedEnv;

TEST_F(DbTest, DuplicatesAreDroppedAndSameNameResolvesToFirst) {
    std::string one = makeDb("one"), two = makeDb("two");
    std::string file = tmp.write("DatabaseDir.rsrc", "DATABASE demo PATH " + one +
                                                         "\nDATABASE demo PATH " + one +
                                                         "\nTYPE SHADERLIB\nDATABASE demo PATH " +
                                                         two + "\n");
    OutputCapture io;
    EXPECT_EQ(dbDirRead(g_dbList, file.c_str(), 0, 1), 1);
    EXPECT_EQ(io.out.text(), "");
    EXPECT_EQ(io.err.text(), "");
    ASSERT_EQ(g_dbList.count(), 2);
    EXPECT_EQ(g_dbList.items[0].path, one);
    EXPECT_EQ(g_dbList.items[0].type, DB_TYPE_ORDINARY);  // the duplicate's TYPE went with it
    EXPECT_EQ(g_dbList.items[1].path, two);
    EXPECT_EQ(g_dbList.dirty, 1);
    EXPECT_EQ(TOL_dbGet("demo"), 1);
}

TEST_F(DbTest, KeywordsCommentsAndMissingFinalNewline) {
    std::string one = makeDb("one"), two = makeDb("two"), three = makeDb("three");
    std::string file = tmp.write(
        "DatabaseDir.rsrc", "# a comment, ends at the keyword\nDATABASE a PATH " + one +
                                "\nMASTER 1\nACCESS rw\n#DATABASE gone PATH " + one +
                                "\nDATABASE lib PATH " + two +
                                " TYPE SHADERLIB\r\nDATABASE last PATH " + three);
    OutputCapture io;
    dbDirRead(g_dbList, file.c_str(), 0, 1);
    EXPECT_EQ(io.out.text(), " Database [a] access is -> [rw]\n");
    EXPECT_EQ(io.err.text(), "");
    ASSERT_EQ(g_dbList.count(), 3);
    EXPECT_EQ(g_dbList.items[0].system, 1);
    EXPECT_EQ(g_dbList.items[1].name, "lib");
    EXPECT_EQ(g_dbList.items[1].type, DB_TYPE_SHADERLIB);
    EXPECT_EQ(g_dbList.items[2].path, three);
    EXPECT_EQ(dbFirstValid(g_dbList), &g_dbList.items[0]);
}

TEST_F(DbTest, NoPathMessageOnlyBeforeFirstPath) {
    std::string one = makeDb("one");
    std::string file = tmp.write("d.rsrc", "DATABASE x\nDATABASE y PATH " + one +
                                               "\nDATABASE z\nDATABASE w PATH " + one + "\n");
    OutputCapture io;
    dbDirRead(g_dbList, file.c_str(), 0, 1);
    EXPECT_EQ(io.err.text(),
              "\nERROR: No path found for database: [x]\n       in file [" + file + "].\n");
    ASSERT_EQ(g_dbList.count(), 2);
    EXPECT_EQ(g_dbList.items[1].name, "w");
}

TEST_F(DbTest, InvalidTokensLongTokensAndGarbage) {
    std::string one = makeDb("one"), two = makeDb("two");
    std::string file = tmp.write("bad.rsrc", "DATABASE a PATH " + one + " BOGUS " + two +
                                                 " PATH x DATABASE b PATH " + two + "\n");
    {
        OutputCapture io;
        dbDirRead(g_dbList, file.c_str(), 0, 1);
        EXPECT_EQ(io.err.text(), "\nERROR: Invalid token : [BOGUS] in file [" + file + "].\n");
        EXPECT_EQ(g_dbList.count(), 2);
    }
    dbListInit(g_dbList);
    file = tmp.write("long.rsrc", "DATABASE " + std::string(1500, 'n') + " PATH " + one +
                                      "\nDATABASE c PATH " + two + "\n");
    {
        OutputCapture io;
        dbDirRead(g_dbList, file.c_str(), 0, 1);
        EXPECT_EQ(io.err.text(), "\nERROR: Token too long in file [" + file + "].\n");
        ASSERT_EQ(g_dbList.count(), 1);
        EXPECT_EQ(g_dbList.items[0].name, "c");
    }
    dbListInit(g_dbList);
    file = tmp.write("bin.rsrc", "DATABASE a PATH " + one + "\n" + std::string("\x01\x00\xff", 3) +
                                     "DATABASE b PATH " + two + "\n");
    {
        OutputCapture io;
        EXPECT_EQ(dbDirRead(g_dbList, file.c_str(), 0, 1), 1);
        EXPECT_EQ(io.err.text(),
                  "\nERROR: Invalid character in file [" + file + "]. Reading stopped.\n");
        EXPECT_EQ(g_dbList.count(), 1);
    }
}

TEST_F(DbTest, InvalidDatabasesAndMissingFiles) {
    EXPECT_EQ(dbDirRead(g_dbList, (tmp / "absent.rsrc").c_str(), 0, 1), 0);

    std::string file = tmp.write("ghost.rsrc", "DATABASE ghost PATH " + tmp / "nowhere" + "\n");
    {
        OutputCapture io;
        EXPECT_EQ(dbDirRead(g_dbList, file.c_str(), 0, 1), 1);
        EXPECT_EQ(io.err.text(), "ERROR: Database ghost non-existent or invalid\n");
    }
    ASSERT_EQ(g_dbList.count(), 1);
    EXPECT_EQ(g_dbList.items[0].valid, 0);
    EXPECT_EQ(dbFirstValid(g_dbList), nullptr);
    EXPECT_EQ(dbHasLocal(g_dbList), 0);
    // With readAll clear a table that holds something is not read further.
    EXPECT_EQ(dbDirRead(g_dbList, file.c_str(), 0, 0), 0);
}

TEST_F(DbTest, UnreadableFileIsNotRead) {
    std::string file = tmp.write("locked.rsrc", "DATABASE a PATH " + makeDb("one") + "\n");
    chmod(file.c_str(), 0);
    if (access(file.c_str(), R_OK) == 0) GTEST_SKIP() << "mode 000 is readable for this user";
    EXPECT_EQ(dbDirRead(g_dbList, file.c_str(), 0, 1), 0);
}

TEST_F(DbTest, PathsAreExpandedAndStoredWithSlashes) {
    std::string one = makeDb("one");
    ScopedEnv root("BWTEST_ROOT", tmp.path().c_str());
    ScopedEnv shader("BW_CUSTOM_SHADER", "lib");
    std::string file = tmp.write("p.rsrc", "DATABASE w PATH C:\\dbs\\demo\n"
                                           "DATABASE lib PATH $BWTEST_ROOT/one/\n"
                                           "DATABASE lib PATH $BWTEST_ROOT/x/../one\n");
    OutputCapture io;
    dbDirRead(g_dbList, file.c_str(), 0, 1);
    ASSERT_EQ(g_dbList.count(), 2);
    EXPECT_EQ(g_dbList.items[0].path, "C:/dbs/demo");
    EXPECT_EQ(g_dbList.items[1].path, one);  // the second lib is the same after expansion
    EXPECT_EQ(g_dbList.items[1].type, DB_TYPE_SHADERLIB);
}

TEST_F(DbTest, LoadFallsBackToWorkingDirectoryThenSystemFile) {
    std::string user = makeDb("user"), sys = makeDb("sys");
    tmp.write("DatabaseDir.rsrc", "DATABASE user PATH " + user + "\n");
    tmp.write("rsrc/DatabaseSys.rsrc", "DATABASE sys PATH " + sys + "\n");
    CwdGuard cwd(tmp.path());
    {
        ScopedEnv dbdir("BW_DBDIR", (tmp / "missing").c_str());
        OutputCapture io;
        EXPECT_EQ(dbDirLoad(g_dbList, (tmp / "rsrc").c_str(), 1), 1);
        EXPECT_EQ(io.err.text(),
                  "\nERROR: Couldn't read the DatabaseDir.rsrc file from the path\n"
                  "         specified by BW_DBDIR: [" + tmp / "missing" + "]\n");
    }
    ASSERT_EQ(g_dbList.count(), 2);
    EXPECT_EQ(g_dbList.items[0].system, 0);
    EXPECT_EQ(g_dbList.items[1].system, 1);
    EXPECT_EQ(g_dbRead, 0);
    EXPECT_EQ(g_dbWrite, 0);

    dbListInit(g_dbList);
    std::filesystem::remove(tmp / "DatabaseDir.rsrc");
    ScopedEnv noDbdir("BW_DBDIR", nullptr);
    OutputCapture io;
    EXPECT_EQ(dbDirLoad(g_dbList, (tmp / "rsrc").c_str(), 1), 1);
    EXPECT_EQ(io.err.text(), "ERROR: Couldn't read the DatabaseDir.rsrc file from the\n"
                             "       current directory (check BW_DBDIR env. variable)\n");
    EXPECT_EQ(g_dbRead, 0);  // the system database is the only one
}

TEST_F(DbTest, WriteListsLocalEntries) {
    ScopedEnv noDbdir("BW_DBDIR", nullptr);
    dbAdd(g_dbList, "a", "/p/a");
    dbAdd(g_dbList, "sys", "/p/sys")->system = 1;
    dbAdd(g_dbList, "lib", "/p/lib")->type = DB_TYPE_SHADERLIB;
    EXPECT_EQ(dbDirWrite(g_dbList, tmp.path().c_str(), nullptr, 0), DB_DIR_WRITTEN);
    EXPECT_EQ(g_dbList.dirty, 0);
    std::string written = "DATABASE a \nPATH /p/a \nDATABASE lib \nPATH /p/lib \nTYPE SHADERLIB \n";
    EXPECT_EQ(slurp(tmp / "DatabaseDir.rsrc"), written);

    dbAdd(g_dbList, "b", "/p/b");
    EXPECT_EQ(dbDirWrite(g_dbList, tmp.path().c_str(), nullptr, 1), DB_DIR_WRITTEN);
    EXPECT_EQ(slurp(tmp / "DatabaseDir.rsrc"), written + "DATABASE b \nPATH /p/b \n");
    EXPECT_EQ(dbDirWrite(g_dbList, nullptr, (tmp / "no/such/file").c_str(), 0), DB_DIR_NOT_OPENED);

    ScopedEnv badDbdir("BW_DBDIR", (tmp / "missing").c_str());
    tmp.mkdir("work");
    OutputCapture io;
    EXPECT_EQ(dbDirWrite(g_dbList, (tmp / "work").c_str(), nullptr, 0), DB_DIR_WRITTEN);
    EXPECT_EQ(io.err.text(), "The directory pointed by BW_DBDIR does not exist,\n"
                             "or you do not have access permission.\n"
                             "Current directory has been used for DatabaseDir.rsrc.\n");
    EXPECT_TRUE(std::filesystem::exists(tmp / "work/DatabaseDir.rsrc"));
}
