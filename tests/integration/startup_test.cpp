// The viewer binary from the command line to the end of start-up. Each run
// that gets through start-up opens its window on the test's X server and is
// closed at the first frame.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "capture.h"
#include "database.h"
#include "run_viewer.h"

using bwtest::RunResult;
using bwtest::runViewer;

using bwtest::contains;

namespace {

const std::string rsrc = BW_RSRC_DIR;
const std::string endOfStartup = "Trying to use format ";  // the window is being made
const std::string pressEnter = "Press on <ENTER> to close the window\n";

// A scratch directory with the demo database written by bwdemo, as users get it.
class Startup : public ::testing::Test {
protected:
    void SetUp() override {
        if (!getenv("DISPLAY")) GTEST_SKIP() << "needs an X display (run under xvfb-run)";
        dir.write("quit.txt", "at 1\nquit\n");
        RunResult made = bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
        ASSERT_EQ(made.status, 0) << made.err;
    }
    RunResult run(std::vector<std::string> args, std::vector<std::string> env = {}) {
        env.insert(env.begin(), {"BW_DBDIR", "BW_RSRC", "BW_CUSTOM_SHADER", "BW_PIXELFORMAT",
                                 "BW_VIEWER_SCRIPT=quit.txt", "LIBGL_ALWAYS_SOFTWARE=1"});
        return runViewer(args, dir.path(), env);
    }
    // Makes another database directory with a SCENES chapter holding `scene`.
    std::string makeDatabase(const std::string &rel, const std::string &scene) {
        std::string path = dir.mkdir(rel);
        dir.write(rel + "/SCENES/Chapter.rsrc", "SUFFIX dsc \nVERSIONS 4 \n");
        dir.write(rel + "/MODELS/Chapter.rsrc", "SUFFIX hrc \nVERSIONS 4 \n");
        if (!scene.empty()) dir.write(rel + "/SCENES/" + scene, "SDSC 4.0\n");
        return path;
    }
    bwtest::TempDir dir;
};

}  // namespace

TEST(Help, PrintsUsageAndKeysAndWaits) {
    if (!getenv("DISPLAY")) GTEST_SKIP() << "needs an X display (run under xvfb-run)";
    bwtest::TempDir dir;
    RunResult r = runViewer({"-h"}, dir.path());
    EXPECT_EQ(r.status, 255);
    std::string usage = "Usage: " + std::string(BW_VIEWER_BIN) + "\n";
    EXPECT_EQ(r.out.rfind("Compiled on: Build=Internal Build-number=Invalid OS=NT40 "
                          "--- --- -- ---- --:--:--\n\n" + usage +
                              "                [-D <database>]\n",
                          0),
              0u)
        << r.out;
    EXPECT_TRUE(contains(r.out, "                [-z  TEXT=\"<string>\",X=<0-1000>,Y=<0-1000>,\n"));
    EXPECT_TRUE(contains(r.out, "\n\t     COLOR=\"(white)|red|green|blue|yellow\" \n\n\nKeys: \n \n"
                                "  <a> key    - Frame all. Fit all objects to the viewport.\n"));
    EXPECT_TRUE(contains(r.out, "  <?> key    - help, prints this info \n \n"));
    EXPECT_EQ(r.out.find("Options Specified"), std::string::npos);
    EXPECT_EQ(r.err.rfind("\nBRACKWOOD Viewer 4.0\n", 0), 0u);
    EXPECT_TRUE(contains(r.err, pressEnter));
}

TEST_F(Startup, NewestSceneOfTheDatabaseDirectory) {
    RunResult r = run({"-R", rsrc});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out,
                         "Database Initialisation\n"
                         "-----------------------\n"
                         "No database specified - searching DatabaseDir.rsrc ...\n"
                         "\nUsing database:         demo\n\n"
                         "Process 1 Initialisation\n"
                         "-------------------------\n"
                         "scene 1:                demo.1-0\n"
                         "Texture Summary\n"))
        << r.out;
    EXPECT_TRUE(contains(r.out, "Used texture memory:    ")) << r.out;
    EXPECT_TRUE(contains(r.out, endOfStartup));
    EXPECT_FALSE(contains(r.err, pressEnter));
}

TEST_F(Startup, DatabaseByNamePrefixAndPath) {
    RunResult r = run({"-R", rsrc, "-D", "de", "-S", "scenes/intro.1-0"});
    EXPECT_TRUE(contains(r.out, "Using database:         demo\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "scene 1:                intro.1-0\n"));

    // A path is loaded without the database directory.
    r = run({"-R", rsrc, "-D", dir / "demo", "-p", "7"});
    EXPECT_TRUE(contains(r.out, "Number of processes:    7\n"));
    EXPECT_TRUE(contains(r.out, "Using database:         demo\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "Process 2 Initialisation\n"));
    EXPECT_TRUE(contains(r.out, endOfStartup));

    // A second database whose name shares the prefix makes "de" ambiguous.
    makeDatabase("demo2", "x.1-0.dsc");
    dir.write("DatabaseDir.rsrc", "DATABASE demo PATH " + dir / "demo" + "\nDATABASE demo2 PATH " +
                                      dir / "demo2");  // no final newline
    r = run({"-R", rsrc, "-D", "de"});
    EXPECT_EQ(r.status, 255);
    EXPECT_TRUE(contains(r.out, "ERROR: Invalid database path 'de'\nAborting.\n")) << r.out;
    r = run({"-R", rsrc, "-D", "demo2"});
    EXPECT_TRUE(contains(r.out, "scene 1:                x.1-0\n")) << r.out;
}

TEST_F(Startup, FailuresStopWithTheirMessage) {
    RunResult r = run({"-R", rsrc, "-D", "nowhere"});
    EXPECT_EQ(r.status, 255);
    EXPECT_TRUE(contains(r.out, "ERROR: Invalid database path 'nowhere'\nAborting.\n")) << r.out;
    EXPECT_FALSE(contains(r.out, endOfStartup));

    r = run({"-R", dir / "no-rsrc"});
    EXPECT_EQ(r.status, 255);
    EXPECT_TRUE(contains(r.out, "BW_ERROR: TOL_Init Cannot open resource file " + dir / "no-rsrc" +
                                    "/Relations.rsrc\n"))
        << r.out;

    // A relation file that opens but holds no relations ends the process.
    dir.write("bad-rsrc/Relations.rsrc", "SREL 3.48\n");
    r = run({"-R", dir / "bad-rsrc"});
    EXPECT_EQ(r.status, 255);
    EXPECT_TRUE(contains(r.err, "Cannot read Relation resources in " + dir / "bad-rsrc" + "\n")) << r.err;

    makeDatabase("empty", "");
    r = run({"-R", rsrc, "-D", dir / "empty"});
    EXPECT_TRUE(contains(r.out, "Using database:         empty\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "ERROR: No valid scene. Aborting.\n"));

    unlink((dir / "DatabaseDir.rsrc").c_str());
    r = run({"-R", rsrc});
    EXPECT_EQ(r.status, 255);
    EXPECT_TRUE(contains(r.err, "ERROR: Couldn't read the DatabaseDir.rsrc file from the\n"
                                "       current directory (check BW_DBDIR env. variable)\n"));
    EXPECT_TRUE(contains(r.out, "ERROR: No valid Database where the scene could be found\n"
                                "No database specified - searching DatabaseDir.rsrc ...\n"
                                "ERROR: No database found in DatabaseDir.rsrc. Aborting.\n"))
        << r.out;
}

TEST_F(Startup, IllegalOptionDropsTheNextAndPlaysTheNewest) {
    RunResult r = run({"-R", rsrc, "-Z", "-S", "intro"});
    EXPECT_TRUE(contains(r.err, ": Illegal option -- Z\n"));
    EXPECT_TRUE(contains(r.out, "Scene:                  (null)\n"));
    EXPECT_TRUE(contains(r.out, "scene 1:                demo.1-0\n")) << r.out;
}

TEST_F(Startup, DatabaseDirectoryFromBwDbdir) {
    std::string elsewhere = dir.mkdir("config");
    rename((dir / "DatabaseDir.rsrc").c_str(), (elsewhere + "/DatabaseDir.rsrc").c_str());
    RunResult r = run({"-R", rsrc}, {"BW_DBDIR=" + elsewhere});
    EXPECT_TRUE(contains(r.out, "Using database:         demo\n")) << r.out << r.err;

    // A missing BW_DBDIR falls back to the working directory, then DatabaseSys.rsrc.
    r = run({"-R", rsrc}, {"BW_DBDIR=" + dir / "missing"});
    EXPECT_TRUE(contains(r.err, "\nERROR: Couldn't read the DatabaseDir.rsrc file from the path\n"
                                "         specified by BW_DBDIR: [" + dir / "missing" + "]\n"))
        << r.err;
    EXPECT_TRUE(contains(r.out, "ERROR: No database found in DatabaseDir.rsrc. Aborting.\n"));
}

TEST_F(Startup, DamagedDatabaseDirectoryNeverCrashes) {
    std::string garbage("DATABASE demo PATH " + dir / "demo" + "\n\x01\x02\xff\x00\x7f garbage");
    garbage.push_back('\0');
    dir.write("DatabaseDir.rsrc", garbage);
    RunResult r = run({"-R", rsrc});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Using database:         demo\n")) << r.out << r.err;

    dir.write("DatabaseDir.rsrc", "DATABASE " + std::string(5000, 'n') + " PATH " + dir / "demo" +
                                      "\nDATABASE file PATH " + dir / "demo/SCENES/demo.1-0.dsc" +
                                      "\n");
    r = run({"-R", rsrc});
    EXPECT_EQ(r.status, 255);
    EXPECT_TRUE(contains(r.err, "ERROR: Database file non-existent or invalid\n")) << r.err;

    // A symlink loop under the scenes chapter does not hold up the newest-scene search.
    ASSERT_EQ(symlink("..", (dir / "demo/SCENES/loop").c_str()), 0);
    r = run({"-R", rsrc, "-D", dir / "demo"});
    EXPECT_TRUE(contains(r.out, "scene 1:                demo.1-0\n")) << r.out;
}

namespace {

int count(const std::string &text, const std::string &part) {
    int n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}

}  // namespace

TEST_F(Startup, DemoScenesLoadEveryElementAndRelation) {
    RunResult r = run({"-R", rsrc, "-D", "demo", "-S", "demo"}, {"BW_DICT_DUMP=1"});
    EXPECT_TRUE(contains(r.out, "scene 1:                demo\n")) << r.out;
    for (const char *name : {"demo-ground", "demo-red", "demo-green", "demo-blue", "demo-gold"})
        EXPECT_EQ(count(r.err, std::string("name [") + name + ".1-0]"), 1) << name << r.err;
    // The animated ones: the model, its curve file and a curve for each of x, y and z.
    for (const char *name : {"demo-world", "demo-sheet", "demo-panel"})
        EXPECT_EQ(count(r.err, std::string("name [") + name + ".1-0]"), 5) << name << r.err;
    EXPECT_EQ(count(r.err, "relid[110]"), 3);
    EXPECT_EQ(count(r.err, "relid[300]"), 4);
    for (const char *relid : {"relid[100]", "relid[101]", "relid[113]"}) EXPECT_EQ(count(r.err, relid), 3);
    EXPECT_FALSE(contains(r.err, "Missing")) << r.err;

    // A second scene merges into the same context: the cube is named twice.
    r = run({"-R", rsrc, "-D", "demo", "-S", "demo", "-S", "intro"}, {"BW_DICT_DUMP=1"});
    EXPECT_TRUE(contains(r.out, "scene 2:                intro\n")) << r.out;
    std::string last = r.err.substr(r.err.rfind("Dictionnary >>>"));
    EXPECT_EQ(count(last, "name [demo-world.1-0]"), 6) << last;
    EXPECT_EQ(count(last, "relid[300]"), 5);
}

TEST_F(Startup, AMissingModelBecomesACube) {
    ASSERT_EQ(unlink((dir / "demo/MODELS/demo-world.1-0.hrc").c_str()), 0);
    RunResult r = run({"-R", rsrc, "-D", "demo", "-S", "intro"}, {"BW_DICT_DUMP=1"});
    EXPECT_TRUE(contains(r.err, "Couldn't read file")) << r.err;
    EXPECT_TRUE(contains(r.err, "Missing MODELS [demo-world.1-0] has been replaced by a default element\n"))
        << r.err;
    EXPECT_EQ(count(r.err, "name [demo-world.1-0]"), 1);
    EXPECT_TRUE(contains(r.out, "Texture Summary\n")) << r.out;  // the load went on
}

TEST_F(Startup, AMissingLightBecomesADefaultLight) {
    ASSERT_EQ(unlink((dir / "demo/LIGHTS/demo-lamp.1-0.lig").c_str()), 0);
    RunResult r = run({"-R", rsrc, "-D", "demo", "-S", "demo"}, {"BW_DICT_DUMP=1"});
    EXPECT_TRUE(contains(r.err, "Couldn't read file " + dir / "demo/LIGHTS/demo-lamp.lig\n"
                                "Missing LIGHTS [demo-lamp.1-0] has been replaced by a default element\n"))
        << r.err;
    // The light stays in the dictionary, and its curves still find it.
    EXPECT_EQ(count(r.err, "name [demo-lamp.1-0]"), 5) << r.err;
    EXPECT_FALSE(contains(r.err, "No element [demo-lamp] found")) << r.err;
    EXPECT_TRUE(contains(r.out, "Texture Summary\n")) << r.out;  // the load went on
}
