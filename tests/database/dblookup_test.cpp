#include <cstring>

#include "db_fixture.h"

using bwtest::OutputCapture;
using bwtest::ScopedEnv;

namespace {

std::string expand(const char *in) {
    char out[BW_PATH_MAX];
    dbExpandPath(in, out);
    return out;
}

}  // namespace

TEST(DbExpandPath, VariablesHomeAndParentFolding) {
    ScopedEnv root("BWT_ROOT", "/data");
    ScopedEnv none("BWT_NONE", nullptr);
    ScopedEnv home("HOME", "/home/me");
    EXPECT_EQ(expand("$BWT_ROOT/db"), "/data/db");
    EXPECT_EQ(expand("$BWT_NONE/db"), "$BWT_NONE/db");
    EXPECT_EQ(expand("~/db"), "/home/me/db");
    EXPECT_EQ(expand("~"), "/home/me");
    EXPECT_EQ(expand("~bob/db"), "~bob/db");
    EXPECT_EQ(expand("/a/b/../c/"), "/a/c");
    EXPECT_EQ(expand("/a/b/../../c"), "/c");
    EXPECT_EQ(expand("/../x/../y"), "/../x/../y");  // nothing before the first: folding stops
    EXPECT_EQ(expand("/x/y//"), "/x/y");
    EXPECT_EQ(expand("/"), "/");
    EXPECT_EQ(expand(nullptr), "");
    EXPECT_EQ(expand(std::string(3000, 'p').c_str()).size(), size_t(BW_PATH_MAX - 1));
}

TEST_F(DbTest, FindByNameAndByPath) {
    dbAdd(g_dbList, "demo", "/d/demo");
    dbAdd(g_dbList, "demolition", "/d/x");
    dbAdd(g_dbList, "test", "/t/test");
    dbAdd(g_dbList, "testing", "/t/testing2");
    Database *db = nullptr;
    int count = -1;
    EXPECT_EQ(dbFindByName(g_dbList, "demo", &db, &count), DB_FOUND);  // exact beats prefix
    EXPECT_EQ(db, &g_dbList.items[0]);
    EXPECT_EQ(dbFindByName(g_dbList, "demol", &db, &count), DB_FOUND);
    EXPECT_EQ(db, &g_dbList.items[1]);
    EXPECT_EQ(dbFindByName(g_dbList, "tes", &db, &count), DB_AMBIGUOUS);
    EXPECT_EQ(db, nullptr);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(dbFindByName(g_dbList, "zz", &db, &count), DB_NOT_FOUND);

    EXPECT_EQ(dbFindByPath(g_dbList, "/d/demo", 1, &db, &count), DB_FOUND);
    EXPECT_EQ(dbFindByPath(g_dbList, "/d", 1, &db, &count), DB_NOT_FOUND);
    EXPECT_EQ(dbFindByPath(g_dbList, "/d", 2, &db, &count), DB_AMBIGUOUS);
    EXPECT_EQ(dbFindByPath(g_dbList, "/t/testing", 2, &db, &count), DB_FOUND);
    EXPECT_EQ(db, &g_dbList.items[3]);
    EXPECT_EQ(dbFindByPath(g_dbList, "/d/demo/SCENES/a", 3, &db, &count), DB_FOUND);
    EXPECT_EQ(db, &g_dbList.items[0]);
    EXPECT_EQ(dbFindByPath(g_dbList, "/t/testing2x", 3, &db, &count), DB_NOT_FOUND);
}

TEST_F(DbTest, DatabaseGetHandlesAndCurrent) {
    std::string one = makeDb("one");
    dbAdd(g_dbList, "demo", one);
    dbAdd(g_dbList, "other", "rel\\other");
    Database *db = nullptr;
    EXPECT_EQ(databaseGet((tmp / "sub/../one/").c_str(), &db), 0);
    EXPECT_EQ(db, &g_dbList.items[0]);
    databaseGet("dem", &db);
    EXPECT_EQ(db, &g_dbList.items[0]);
    databaseGet("nope", &db);
    EXPECT_EQ(db, nullptr);
    databaseGet("demo:", &db);  // a ':' makes it a path
    EXPECT_EQ(db, nullptr);
    {
        CwdGuard cwd(tmp.path());
        databaseGetByPath((tmp / "rel/other").c_str(), &db);
        EXPECT_EQ(db, &g_dbList.items[1]);
    }

    EXPECT_EQ(TOL_dbGet("demo"), 1);
    EXPECT_EQ(TOL_dbGet("oth"), 2);
    EXPECT_EQ(TOL_dbGet("x"), 0);
    EXPECT_EQ(TOL_databaseTOL2BRAK(2, &db), 0);
    EXPECT_EQ(db, &g_dbList.items[1]);
    OutputCapture io;
    EXPECT_EQ(TOL_databaseTOL2BRAK(3, &db), 17);
    EXPECT_EQ(db, nullptr);
    EXPECT_EQ(io.out.text(), "BW_WARNING: TOL_databaseTOL2BRAK() Invalid database\n");

    dbMakeCurrent(1);
    g_dbSaved = 1;
    dbRemove(g_dbList, &g_dbList.items[0], 0, 0, 1, nullptr);
    EXPECT_EQ(g_dbRead, 0);
    EXPECT_EQ(g_dbWrite, 0);
    EXPECT_EQ(g_dbSaved, 0);
}

TEST_F(DbTest, IsExistentFollowsChapterPaths) {
    std::string base = makeDb("base");
    tmp.mkdir("base/MODELS/sub");
    tmp.mkdir("single/MODELS");
    int exists = -1;
    EXPECT_EQ(TOL_databaseIsExistent(base.c_str(), &exists), 0);
    EXPECT_EQ(exists, 1);
    TOL_databaseIsExistent((base + "/MODELS/sub").c_str(), &exists);
    EXPECT_EQ(exists, 1);
    TOL_databaseIsExistent((base + "/MODELS").c_str(), &exists);
    EXPECT_EQ(exists, 1);
    TOL_databaseIsExistent("base", &exists);  // a bare name lies in the working directory
    EXPECT_EQ(exists, 1);
    TOL_databaseIsExistent((tmp / "single").c_str(), &exists);
    EXPECT_EQ(exists, 0);
    TOL_databaseIsExistent((tmp / "single/MODELS/x").c_str(), &exists);
    EXPECT_EQ(exists, 0);
    OutputCapture io;
    EXPECT_EQ(TOL_databaseIsExistent(nullptr, &exists), 16);
}

TEST_F(DbTest, DatabaseLoadNamesAndFailures) {
    std::string a = makeDb("a/demo"), b = makeDb("b/demo");
    std::string lib = makeDb("lib", {"LIGHTS", "CAMERAS"});
    tmp.mkdir("hollow/SCENES");
    tmp.mkdir("hollow/MODELS");
    dbMakeCurrent(-1);
    TOL_Database h = 0;
    EXPECT_EQ(TOL_databaseLoad(a.c_str(), &h), 0);
    EXPECT_EQ(h, 1);
    EXPECT_EQ(TOL_databaseLoad(b.c_str(), &h), 0);
    EXPECT_EQ(h, 2);
    EXPECT_EQ(g_dbList.items[1].name, "demo1");
    EXPECT_EQ(TOL_databaseLoad((a + "/").c_str(), &h), 0);
    EXPECT_EQ(h, 1);
    EXPECT_EQ(TOL_databaseLoad((b + "/MODELS").c_str(), &h), 0);
    EXPECT_EQ(h, 2);
    EXPECT_EQ(TOL_databaseLoad(lib.c_str(), &h), 0);
    EXPECT_EQ(g_dbList.items[h - 1].type, DB_TYPE_SHADERLIB);
    EXPECT_EQ(g_dbList.items[0].type, DB_TYPE_ORDINARY);
    EXPECT_EQ(g_dbRead, -1);
    ASSERT_EQ(g_dbList.count(), 3);

    OutputCapture io;
    EXPECT_EQ(TOL_databaseLoad((tmp / "hollow").c_str(), &h), 40);  // chapters without Chapter.rsrc
    EXPECT_EQ(TOL_databaseLoad("nosuch", &h), 39);
    EXPECT_EQ(TOL_databaseLoad(nullptr, &h), 16);
    EXPECT_EQ(TOL_databaseLoad("x", nullptr), 16);
    EXPECT_EQ(io.out.text(),
              "BW_ERROR: TOL_databaseLoad() Path " + tmp / "hollow" +
                  " doesn't seem to point to a valid database\n"
                  "BW_ERROR: TOL_databaseLoad() Database nosuch not found\n"
                  "BW_WARNING: TOL_databaseLoad():dbpath: Null or Invalid argument\n"
                  "BW_WARNING: TOL_databaseLoad():dbase: Null or Invalid argument\n");
    EXPECT_EQ(g_dbList.count(), 3);
}
