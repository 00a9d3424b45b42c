// Tests of the database subsystem, each on a clean table and a scratch directory.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

#include "capture.h"
#include "database.h"
#include "db_internal.h"
#include "tol.h"

using bwtest::OutputCapture;
using bwtest::ScopedEnv;
namespace fs = std::filesystem;

namespace {

class DbTest : public ::testing::Test {
protected:
    void SetUp() override { g_workDir = tmp.path(); }
    void TearDown() override {
        dbListInit(g_dbList);  // clears the current indices too
        g_workDir.clear();
        g_resourceDir.clear();
        dbCustomShaderReset();
    }

    // A database whose chapters each hold a Chapter.rsrc.
    std::string makeDb(const std::string &rel,
                       std::initializer_list<const char *> chapters = {"SCENES", "MODELS"}) {
        for (const char *chapter : chapters)
            tmp.write(rel + "/" + chapter + "/Chapter.rsrc", "SUFFIX x \nVERSIONS 4 \n");
        return tmp / rel;
    }

    // Reads `text` as the only DatabaseDir file into an emptied table; gives what
    // was printed, stdout before stderr.
    std::string readDir(const std::string &text) {
        dbListInit(g_dbList);
        tmp.write("d.rsrc", text);
        OutputCapture io;
        dbDirRead(g_dbList, dirFile.c_str(), 0, 1);
        return io.out.text() + io.err.text();
    }

    static std::string names() {
        std::string all;
        for (const Database &db : g_dbList.items) all += db.name + " ";
        return all;
    }

    bwtest::TempDir tmp;
    const std::string dirFile = tmp / "d.rsrc";
};

FILE *streamOf(const std::string &text) {
    FILE *f = tmpfile();
    fwrite(text.data(), 1, text.size(), f);
    rewind(f);
    return f;
}

std::string expand(const char *in) {
    char out[BW_PATH_MAX];
    dbExpandPath(in, out);
    return out;
}

}  // namespace

TEST(TokenReader, DelimitersLineEndsAndEnds) {
    FILE *f = streamOf("  alpha\tbeta;gamma\r\n;\r\nlast\rx caf\xc3\xa9\r\n  tail");
    for (const char *token : {"alpha", "beta", ";", "gamma", ";", "last\rx", "caf\xc3\xa9"}) {
        EXPECT_EQ(readToken(f), 1) << token;
        EXPECT_STREQ(g_token, token);
    }
    EXPECT_EQ(readToken(f), 0);  // the last token needs no line end
    EXPECT_STREQ(g_token, "tail");
    EXPECT_EQ(g_tokenEnd, TOKEN_END_EOF);
    fclose(f);

    f = streamOf("a,b;c VERSIONS 7\nWANTED");
    EXPECT_NE(skipToToken(f, "b;c", ','), 0);  // ',' takes the place of ';'
    EXPECT_NE(skipToToken(f, "WANTED", ';'), 0);
    EXPECT_EQ(skipToToken(f, "VERSIONS", ';'), 0);
    fclose(f);

    f = streamOf(std::string(1500, 'x') + "\r\nnext ab" + '\0' + " \xff");
    EXPECT_EQ(readToken(f), 1);
    EXPECT_EQ(strlen(g_token), size_t(BW_TOKEN_MAX - 1));
    EXPECT_EQ(g_tokenTruncated, 1);
    readToken(f);  // the rest of the long token was consumed
    EXPECT_STREQ(g_token, "next");
    EXPECT_EQ(g_tokenTruncated, 0);
    for (const char *token : {"ab", ""}) {  // NUL, then 0xFF, ends the reading
        EXPECT_EQ(readToken(f), 0);
        EXPECT_STREQ(g_token, token);
        EXPECT_EQ(g_tokenEnd, TOKEN_END_BAD);
    }
    fclose(f);
}

TEST_F(DbTest, DirFileGrammar) {
    std::string one = makeDb("one"), two = makeDb("two"), three = makeDb("three");
    ScopedEnv shader("BW_CUSTOM_SHADER", "last");
    EXPECT_EQ(readDir("# a comment up to the keyword\nDATABASE demo PATH " + one +
                      "\nMASTER 1\nACCESS rw\nDATABASE demo PATH " + tmp / "x/../one/" +
                      "\nTYPE SHADERLIB\n#DATABASE gone PATH " + three + "\nDATABASE demo PATH " +
                      two + "\nDATABASE lib PATH " + three +
                      " TYPE SHADERLIB\r\nDATABASE last PATH C:\\dbs\\demo"),
              " Database [demo] access is -> [rw]\n"
              "ERROR: Database last non-existent or invalid\n");
    EXPECT_EQ(names(), "demo demo lib last ");
    EXPECT_EQ(g_dbList.items[0].system, 1);
    EXPECT_EQ(g_dbList.items[0].type, DB_TYPE_ORDINARY);  // the duplicate's TYPE went with it
    EXPECT_EQ(g_dbList.items[1].path, two);
    EXPECT_EQ(g_dbList.items[2].type, DB_TYPE_SHADERLIB);
    EXPECT_EQ(g_dbList.items[3].path, "C:/dbs/demo");
    EXPECT_EQ(g_dbList.items[3].type, DB_TYPE_SHADERLIB);
    EXPECT_EQ(TOL_dbGet("demo"), 1);
}

TEST_F(DbTest, DirFileErrors) {
    std::string one = " PATH " + makeDb("one") + "\n", two = " PATH " + makeDb("two") + "\n";
    EXPECT_EQ(readDir("DATABASE x\nDATABASE y" + one + "DATABASE z\nDATABASE w" + two),
              "\nERROR: No path found for database: [x]\n       in file [" + dirFile + "].\n");
    EXPECT_EQ(names(), "y w ");
    EXPECT_EQ(readDir("DATABASE a" + one + "BOGUS x PATH x DATABASE b" + two),
              "\nERROR: Invalid token : [BOGUS] in file [" + dirFile + "].\n");
    EXPECT_EQ(names(), "a b ");
    EXPECT_EQ(readDir("DATABASE " + std::string(1500, 'n') + one + "DATABASE c" + two),
              "\nERROR: Token too long in file [" + dirFile + "].\n");
    EXPECT_EQ(names(), "c ");
    EXPECT_EQ(readDir("DATABASE a" + one + std::string("\x01\x00\xff", 3) + "DATABASE b" + two),
              "\nERROR: Invalid character in file [" + dirFile + "]. Reading stopped.\n");
    EXPECT_EQ(names(), "a ");
    EXPECT_EQ(dbDirRead(g_dbList, (tmp / "absent.rsrc").c_str(), 0, 1), 0);
    EXPECT_EQ(dbDirRead(g_dbList, dirFile.c_str(), 0, 0), 0);  // filled table, first only
}

TEST_F(DbTest, UnreadableDirFileIsNotRead) {
    std::string file = tmp.write("locked.rsrc", "DATABASE a PATH " + makeDb("one") + "\n");
    chmod(file.c_str(), 0);
    if (access(file.c_str(), R_OK) == 0) GTEST_SKIP() << "mode 000 is readable for this user";
    EXPECT_EQ(dbDirRead(g_dbList, file.c_str(), 0, 1), 0);
}

TEST_F(DbTest, LoadFallsBackToWorkingDirectoryThenSystemFile) {
    tmp.write("rsrc/DatabaseSys.rsrc", "DATABASE sys PATH " + makeDb("sys") + "\n");
    g_resourceDir = tmp / "rsrc";
    fs::path saved = fs::current_path();
    fs::current_path(tmp.path());
    auto load = [] {
        dbListInit(g_dbList);
        OutputCapture io;
        dbDirLoad(g_dbList, nullptr, 1);
        return io.err.text();
    };
    ScopedEnv noDbdir("BW_DBDIR", nullptr);
    EXPECT_EQ(load(), "ERROR: Couldn't read the DatabaseDir.rsrc file from the\n"
                      "       current directory (check BW_DBDIR env. variable)\n");
    EXPECT_EQ(names(), "sys ");

    tmp.write("DatabaseDir.rsrc", "DATABASE user PATH " + makeDb("user") + "\n");
    ScopedEnv dbdir("BW_DBDIR", (tmp / "missing").c_str());
    EXPECT_EQ(load(), "\nERROR: Couldn't read the DatabaseDir.rsrc file from the path\n"
                      "         specified by BW_DBDIR: [" + tmp / "missing" + "]\n");
    fs::current_path(saved);
    EXPECT_EQ(names(), "user sys ");
    EXPECT_EQ(g_dbList.items[1].system, 1);
    EXPECT_EQ(g_dbRead, 0);
}

TEST(DbExpandPath, VariablesHomeAndParentFolding) {
    ScopedEnv root("BWT_ROOT", "/data"), none("BWT_NONE", nullptr), home("HOME", "/home/me");
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
    EXPECT_EQ(expand(std::string(3000, 'p').c_str()).size(), size_t(BW_PATH_MAX - 1));
}

TEST_F(DbTest, FindHandlesAndCurrentIndices) {
    for (const char *name : {"demo", "demolition", "test", "testing"})
        dbAdd(g_dbList, name, std::string("/d/") + name + "2");
    Database *db = nullptr, *const items = g_dbList.items.data();
    int count = -1;
    EXPECT_EQ(dbFindByName(g_dbList, "demo", &db, &count), DB_FOUND);  // exact beats prefix
    EXPECT_EQ(db, &items[0]);
    EXPECT_EQ(dbFindByName(g_dbList, "demol", &db, &count), DB_FOUND);
    EXPECT_EQ(db, &items[1]);
    EXPECT_EQ(dbFindByName(g_dbList, "tes", &db, &count), DB_AMBIGUOUS);
    EXPECT_EQ(db, nullptr);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(dbFindByName(g_dbList, "zz", &db, &count), DB_NOT_FOUND);

    EXPECT_EQ(dbFindByPath(g_dbList, "/d/demo", 1, &db, &count), DB_NOT_FOUND);
    EXPECT_EQ(dbFindByPath(g_dbList, "/d/demo", 2, &db, &count), DB_AMBIGUOUS);
    EXPECT_EQ(dbFindByPath(g_dbList, "/d/testing", 2, &db, &count), DB_FOUND);
    EXPECT_EQ(db, &items[3]);
    EXPECT_EQ(dbFindByPath(g_dbList, "/d/demo2/SCENES/a", 3, &db, &count), DB_FOUND);
    EXPECT_EQ(db, &items[0]);
    EXPECT_EQ(dbFindByPath(g_dbList, "/d/demo2x", 3, &db, &count), DB_NOT_FOUND);

    OutputCapture io;
    EXPECT_EQ(TOL_databaseTOL2BRAK(4, &db), 0);
    EXPECT_EQ(db, &items[3]);
    EXPECT_EQ(TOL_databaseTOL2BRAK(5, &db), 17);
    EXPECT_EQ(db, nullptr);
    EXPECT_EQ(io.out.text(), "BW_WARNING: TOL_databaseTOL2BRAK() Invalid database\n");
    dbMakeCurrent(1);
    g_dbSaved = 2;
    dbRemove(g_dbList, &g_dbList.items[0], 0, 0, 1, nullptr);
    EXPECT_EQ((std::vector{g_dbRead, g_dbWrite, g_dbSaved}), (std::vector{0, 0, 1}));
}

TEST_F(DbTest, DatabaseLoad) {
    std::string a = makeDb("a/demo"), b = makeDb("b/demo");
    makeDb("lib", {"LIGHTS", "CAMERAS"});
    tmp.mkdir("b/demo/MODELS/sub");
    tmp.mkdir("hollow/SCENES");
    tmp.mkdir("hollow/MODELS");
    auto load = [](const std::string &path) {
        TOL_Database h = 0;
        EXPECT_EQ(TOL_databaseLoad(path.c_str(), &h), 0) << path;
        return h;
    };
    EXPECT_EQ(load(a), 1);
    EXPECT_EQ(load(b + "/MODELS/sub"), 2);
    EXPECT_EQ(load(b), 2);
    EXPECT_EQ(load(tmp / "x/../a/demo/"), 1);
    EXPECT_EQ(load("lib"), 3);  // a bare name lies in the working directory
    EXPECT_EQ(names(), "demo demo1 lib ");
    EXPECT_EQ(g_dbList.items[1].path, b);
    EXPECT_EQ(g_dbList.items[0].type, DB_TYPE_ORDINARY);
    EXPECT_EQ(g_dbList.items[2].type, DB_TYPE_SHADERLIB);
    EXPECT_EQ(g_dbRead, -1);

    OutputCapture io;
    TOL_Database h = 0;
    EXPECT_EQ(TOL_databaseLoad((tmp / "hollow").c_str(), &h), 40);  // chapters without Chapter.rsrc
    EXPECT_EQ(TOL_databaseLoad("nosuch", &h), 39);
    EXPECT_EQ(io.out.text(), "BW_ERROR: TOL_databaseLoad() Path " + tmp / "hollow" +
                                 " doesn't seem to point to a valid database\n"
                                 "BW_ERROR: TOL_databaseLoad() Database nosuch not found\n");
    EXPECT_EQ(g_dbList.count(), 3);
}

TEST_F(DbTest, CreateThenRemove) {
    std::string fresh = tmp / "fresh", n = tmp / "n";
    auto create = [&](const char *name, const std::string &path) {
        return dbCreate(g_dbList, name, path.c_str(), dirFile.c_str());
    };
    ASSERT_EQ(create("fresh", fresh), DB_CREATE_OK);
    EXPECT_EQ(bwtest::fileText(fresh + "/SCENES/Chapter.rsrc"), "SUFFIX dsc \nVERSIONS 4 \n");
    EXPECT_FALSE(fs::exists(fresh + "/NSELECTIONS"));
    EXPECT_EQ(create("n", n), DB_CREATE_OK);
    EXPECT_EQ(bwtest::fileText(dirFile), "DATABASE fresh \nPATH " + fresh + " \nDATABASE n \nPATH " + n + " \n");
    EXPECT_EQ(create("fresh", fresh), DB_CREATE_KNOWN);
    EXPECT_EQ(create("other", fresh), DB_CREATE_INSIDE);
    EXPECT_EQ(create("in", fresh + "/MODELS/x"), DB_CREATE_INSIDE);
    EXPECT_EQ(create("u", makeDb("unknown") + "/SCENES/y"), DB_CREATE_INSIDE);
    EXPECT_EQ(create("p", tmp.mkdir("plain")), DB_CREATE_EXISTS);
    EXPECT_EQ(create("f", tmp.write("afile", "x") + "/db"), DB_CREATE_NO_DIR);
    EXPECT_EQ(dbCreate(g_dbList, "m", (tmp / "m").c_str(), (tmp / "no/dir.rsrc").c_str()),
              DB_CREATE_NOT_LISTED);
    EXPECT_EQ(names(), "fresh n m ");

    // Links count as elements but are never followed when the tree goes.
    Database *db = &g_dbList.items[0];
    std::string outside = tmp.write("outside/keep.hrc", "x");
    fs::create_directory_symlink(tmp / "outside", fresh + "/MODELS/SHARE");
    EXPECT_EQ(dbRemove(g_dbList, db, 1, 1, 1, nullptr), DB_REMOVE_NOT_EMPTY);
    fs::remove(fresh + "/MODELS/SHARE");
    tmp.write("fresh/MODELS/sub/Chapter.rsrc", "x");  // only the chapter's own is no element
    EXPECT_EQ(dbRemove(g_dbList, db, 1, 1, 1, nullptr), DB_REMOVE_NOT_EMPTY);
    fs::remove_all(fresh + "/MODELS/sub");
    fs::create_directory_symlink(tmp / "outside", fresh + "/MODELS/.link");
    EXPECT_EQ(dbRemove(g_dbList, db, 1, 1, 1, nullptr), DB_REMOVED_WITH_DIR);
    EXPECT_FALSE(fs::exists(fresh));
    EXPECT_TRUE(fs::exists(outside));

    // A listed removal rewrites the working directory's file without system entries.
    dbAdd(g_dbList, "sys", "/p/sys")->system = 1;
    dbAdd(g_dbList, "lib", "/p/lib")->type = DB_TYPE_SHADERLIB;
    ScopedEnv badDbdir("BW_DBDIR", (tmp / "missing").c_str());
    OutputCapture io;
    EXPECT_EQ(dbRemove(g_dbList, &g_dbList.items[1], 0, 0, 0, tmp.path().c_str()), DB_REMOVED);
    EXPECT_EQ(bwtest::fileText(tmp / "DatabaseDir.rsrc"),
              "DATABASE n \nPATH " + n + " \nDATABASE lib \nPATH /p/lib \nTYPE SHADERLIB \n");
    EXPECT_EQ(dbRemove(g_dbList, &g_dbList.items[0], 0, 0, 0, (tmp / "none").c_str()),
              DB_DIR_NOT_OPENED);
    std::string moved = "The directory pointed by BW_DBDIR does not exist,\n"
                        "or you do not have access permission.\n"
                        "Current directory has been used for DatabaseDir.rsrc.\n";
    EXPECT_EQ(io.err.text(), moved + moved);
}

TEST_F(DbTest, ChapterLookupsFilesAndScan) {
    EXPECT_EQ(chapterFind("models"), -1);
    EXPECT_EQ(chapterFind("Render_Pictures"), CHP_RENDER_PICTURES);
    EXPECT_EQ(chapterFindBySuffix("PIC"), CHP_PICTURES);  // the first row holding it

    std::string db = tmp.mkdir("db");
    tmp.write("db/MODELS/Chapter.rsrc", "SUFFIX abc\nBROWSER list\nJUNK 3\nVERSIONS 0");
    tmp.write("db/SETUP_BRAK/Chapter.rsrc", "SUFFIX xyz VERSIONS 7\n");
    tmp.mkdir("db/CAMERAS");
    tmp.mkdir("db/.hidden");
    tmp.write("db/LIGHTS", "not a chapter");
    ChapterInfo info;
    auto read = [&](const char *chapter, int existenceOnly) {
        int found = ReadChapterInfo(db.c_str(), chapter, info, existenceOnly);
        return std::to_string(found) + " " + info.suffix + " " + std::to_string(info.versions);
    };
    EXPECT_EQ(read("MODELS", 0), "1 abc 1");
    EXPECT_EQ(info.browser, "list");
    EXPECT_EQ(read("SETUP_BRAK", 0), "1 sts 7");
    OutputCapture io;
    EXPECT_EQ(read("CAMERAS", 0), "0 cam 4");
    EXPECT_EQ(read("MODELS", 1), "1 hrc 4");  // existence only: the table's suffix
    EXPECT_EQ(read("LIGHTS", 1), "0 lig 4");

    Database scanned;  // chapters are the directories, in name order
    scanned.path = db;
    EXPECT_EQ(dbScanChapters(scanned, 0), 2);
    std::string seen;
    for (const ChapterInfo &chapter : scanned.chapters) seen += chapter.name + " ";
    EXPECT_EQ(seen, "CAMERAS MODELS SETUP_BRAK ");
    std::string missing = "ERROR: ReadChapterInfo - cannot open " + db + "/CAMERAS/Chapter.rsrc\n";
    EXPECT_EQ(io.out.text(), missing + missing);
    scanned.path = tmp / "db/LIGHTS";
    EXPECT_EQ(dbScanChapters(scanned, 0), 0);
    EXPECT_TRUE(scanned.chapters.empty());
}

TEST_F(DbTest, DirectoryScanOrderNamesAndSharing) {
    for (const char *name : {"b.dsc", "A.dsc", "c.txt", ".hidden.dsc", "SHARE/s-x.2-0.dsc",
                             "sub/deep.DSC", "ball.3-0"})
        tmp.write(std::string("SCENES/") + name, "x");
    std::vector<ScannedFile> files = chapterScanDir(tmp / "SCENES", scanSuffixPredicate, "dsc", 1);
    std::vector<std::string> seen;
    for (const ScannedFile &f : files)
        seen.push_back(f.subdir + f.fileName + "=" + f.fullName + (f.shared ? " shared" : ""));
    EXPECT_EQ(seen, (std::vector<std::string>{"A.dsc=A", "b.dsc=b", "SHARE=SHARE",
                                              "SHARE/s-x.2-0.dsc=s-x.2-0 shared", "sub=sub",
                                              "sub/deep.DSC=deep"}));
    files = chapterScanDir(tmp / "SCENES/", scanSuffixPredicate, "all", 0);
    ASSERT_EQ(files.size(), 6u);  // no descent
    EXPECT_EQ(files[2].fullName, "ball.3-0");  // a version stamp is no suffix
}

TEST_F(DbTest, LatestSceneEqualTimesAndLinkLoops) {
    Database db;
    db.path = tmp.path();
    EXPECT_EQ(dbLatestScene(db), "");
    auto setTime = [](const std::string &path, int offset) {
        struct timespec times[2] = {{1000000000 + offset, 0}, {1000000000 + offset, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    };
    for (auto [rel, offset] : {std::pair{"older.dsc", -100}, {"b-second.1-0.dsc", 0},
                               {"a-first.1-0.dsc", 0}, {"other.hrc", 50}})
        setTime(tmp.write(std::string("SCENES/") + rel, "x"), offset);
    EXPECT_EQ(dbLatestScene(db), "a-first.1-0");

    fs::create_directory_symlink(tmp / "SCENES", tmp / "SCENES/loop");
    fs::create_directory_symlink("..", tmp / "SCENES/z");
    setTime(tmp.write("SCENES/deep/newest.1-0.dsc", "x"), 10);
    setTime(tmp / "SCENES/deep", 500);  // a directory is no scene, however new
    EXPECT_EQ(dbLatestScene(db), "newest.1-0");
}
