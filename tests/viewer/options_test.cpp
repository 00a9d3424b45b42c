// The option reader: its getopt quirks, every option's effect, -s geometry and the echo.
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "animation.h"
#include "capture.h"
#include "viewer.h"

namespace {

// Runs viewerParseOptions on a fresh state, as the program does once at start.
class Options : public ::testing::Test {
protected:
    ViewerOptions parse(std::initializer_list<const char *> words) {
        args_.assign(1, "viewer");
        args_.insert(args_.end(), words.begin(), words.end());
        argv_.clear();
        for (std::string &a : args_) argv_.push_back(a.data());
        argv_.push_back(nullptr);
        viewer_getopt::optind = 1;
        viewerInitDefaults();
        animationOptimise = -1;
        return viewerParseOptions(static_cast<int>(args_.size()), argv_.data());
    }
    std::vector<std::string> args_;
    std::vector<char *> argv_;
    bwtest::ScopedEnv noRsrc_{"BW_RSRC", nullptr};
};

}  // namespace

TEST_F(Options, GetoptStopsAtTheFirstWordThatIsNoOption) {
    ViewerOptions o = parse({"x", "-S", "a"});
    EXPECT_EQ(o.sceneCount, 0);

    // Clusters count only their first letter.
    parse({"-kc"});
    EXPECT_EQ(viewer.keysOffInRun, 1u);
    EXPECT_EQ(viewer.channelCommand, 0);

    // The argument is the rest of the word, or the next word.
    o = parse({"-Dmydb", "-S", "scene"});
    EXPECT_STREQ(o.dbPath, "mydb");
    EXPECT_STREQ(o.scenes[0], "scene");
}

TEST_F(Options, AnErrorDropsTheNextOptionAndEndsTheReading) {
    bwtest::OutputCapture cap;
    ViewerOptions o = parse({"-Z", "-S", "a", "-D", "db"});
    EXPECT_EQ(cap.err.text(), "viewer: Illegal option -- Z\n");
    EXPECT_EQ(o.sceneCount, 0);
    EXPECT_EQ(o.dbPath, nullptr);
}

TEST_F(Options, MissingArgumentIsReported) {
    bwtest::OutputCapture cap;
    ViewerOptions o = parse({"-k", "-D"});
    EXPECT_EQ(cap.err.text(), "viewer: Option requires an argument -- D\n");
    EXPECT_EQ(o.dbPath, nullptr);
    EXPECT_EQ(viewer.keysOffInRun, 1u);
    // Reaching the end resets optind for the next caller.
    EXPECT_EQ(viewer_getopt::optind, 1);
}

TEST_F(Options, ScenesLoseTheirDirectoryAndStopAtTen) {
    ViewerOptions o = parse({"-S", "a/b/c", "-S", "d\\e"});
    EXPECT_STREQ(o.scenes[0], "c");
    EXPECT_STREQ(o.scenes[1], "e");

    bwtest::OutputCapture cap;
    o = parse({"-S", "s1", "-S", "s2", "-S", "s3", "-S", "s4", "-S", "s5", "-S", "s6",
               "-S", "s7", "-S", "s8", "-S", "s9", "-S", "s10", "-S", "s11"});
    EXPECT_EQ(o.sceneCount, 10);
    EXPECT_STREQ(o.scenes[9], "s10");
    EXPECT_EQ(cap.out.text(), "ERROR: Unable to load scene 's11' - maximum 10 scenes allowed\n");
}

TEST_F(Options, TakeDirectoryAndName) {
    parse({"-T", "/tmp/t,"});
    EXPECT_EQ(viewer.takeEnabled, 1u);
    EXPECT_STREQ(viewer.takeDir, "/tmp/t,");
    EXPECT_STREQ(viewer.takeName, "vdefault");
    parse({"-T", "/tmp/a,b,run"});
    EXPECT_STREQ(viewer.takeDir, "/tmp/a,b");
    EXPECT_STREQ(viewer.takeName, "run");
    parse({"-T", "/tmp/takes"});
    EXPECT_STREQ(viewer.takeDir, "/tmp/takes");
    EXPECT_STREQ(viewer.takeName, "vdefault");
    EXPECT_EQ(viewer.takeNumber, 1);
}

TEST_F(Options, ProcessesAndRetrace) {
    ViewerOptions o = parse({"-p", "7"});
    EXPECT_EQ(o.processCount, 7);
    EXPECT_EQ(viewer.parallel, 1u);
    o = parse({"-p", "abc"});
    EXPECT_EQ(o.processCount, 1);
    EXPECT_EQ(viewer.parallel, 0u);
    o = parse({});
    EXPECT_EQ(o.processCount, 1);

    bwtest::OutputCapture cap;
    parse({"-f", "2"});
    EXPECT_EQ(viewer.retraceMultiple, 1);
    parse({"-f", "0"});
    parse({"-f", "x"});
    EXPECT_EQ(cap.err.text(), "Sorry, retrace multiples other than 1 are not supported on NT\n");
}

TEST_F(Options, DisplayAntialiasingAndSwitches) {
    parse({"-d", "4"});
    EXPECT_EQ(viewer.gprops.material.shade, 1);
    EXPECT_EQ(viewer.gprops.texture.active, 0);
    parse({"-d", "1"});
    EXPECT_EQ(viewer.gprops.material.shade, 0);
    parse({"-d", "3"});
    EXPECT_EQ(viewer.gprops.material.shade, 1);
    EXPECT_EQ(viewer.gprops.texture.active, 1);
    EXPECT_EQ(viewer.gprops.texture.selected, 0);

    parse({"-a", "abc"});
    EXPECT_EQ(viewer.gprops.antialias, 1);
    EXPECT_EQ(viewer.gprops.anti_lev, 0);
    parse({"-a", "5", "-i", "0.25", "-o", "-v", "-x", "-e", "-b", "-u", "-c"});
    EXPECT_EQ(viewer.gprops.anti_lev, 5);
    EXPECT_FLOAT_EQ(viewer.gprops.interOcular, 0.25f);
    EXPECT_EQ(animationOptimise, 0);
    EXPECT_EQ(viewer.gprops.texture.video, 1);
    EXPECT_EQ(viewer.stereo, 1u);
    EXPECT_EQ(viewer.expandInstances, 1u);
    EXPECT_EQ(viewer.singleBuffer, 1u);
    EXPECT_EQ(viewer.preprocessOnDraw, 1u);
    EXPECT_EQ(viewer.channelCommand, 1);
    parse({"-i", "far"});
    EXPECT_FLOAT_EQ(viewer.gprops.interOcular, 0.5f);
}

TEST_F(Options, UserTextSubOptions) {
    parse({"-z", "TEXT=hi,COLOR=blue,X=500,Y=250"});
    EXPECT_EQ(viewer.showUserText, 1u);
    EXPECT_STREQ(viewer.userText, "hi");
    EXPECT_EQ(viewer.userTextColor[2], 1.0f);
    EXPECT_EQ(viewer.userTextColor[0], 1.0f);  // "blue" is no colour word: white
    EXPECT_EQ(viewer.userTextX, 500);
    EXPECT_EQ(viewer.userTextY, 250);

    parse({"-z", "COLOR=bleu"});
    EXPECT_EQ(viewer.userTextColor[0], 0.0f);
    EXPECT_EQ(viewer.userTextColor[2], 1.0f);
    EXPECT_EQ(viewer.showUserText, 0u);

    bwtest::OutputCapture cap;
    parse({"-z", "SIZE=3,TEXT=ok,TEXTX=1"});
    EXPECT_STREQ(viewer.userText, "ok");
    EXPECT_EQ(cap.err.text(),
              "ERROR: User-string sub-option 'SIZE=3' invalid. \n"
              "ERROR: User-string sub-option 'TEXTX=1' invalid. \n");

    // A text longer than the buffer is cut, never written past it.
    std::string longText = "TEXT=" + std::string(400, 'w');
    parse({"-z", longText.c_str()});
    EXPECT_EQ(std::string(viewer.userText).size(), 255u);
}

TEST_F(Options, ResourcePathPrecedence) {
    EXPECT_STREQ(parse({}).resourcePath, "/usr/brackwood/rsrc");
    bwtest::ScopedEnv env("BW_RSRC", "/opt/rsrc");
    EXPECT_STREQ(parse({}).resourcePath, "/opt/rsrc");
    EXPECT_STREQ(parse({"-R", "/mine"}).resourcePath, "/mine");
}

TEST(Geometry, PartsArePresentOrNothingIsStored) {
    // From x 0, y 0, 720 x 486: what each text leaves. A number without digits
    // or any character left over stores nothing at all.
    const struct {
        const char *text;
        int ok, x, y, w, h;
    } cases[] = {
        {"500x300-20+300", 1, -20, 300, 500, 300}, {"=640X480", 1, 0, 0, 640, 480},
        {"x200", 1, 0, 0, 720, 200}, {"+10-5", 1, 10, -5, 720, 486},
        {"500x", 0, 0, 0, 720, 486}, {"500y", 0, 0, 0, 720, 486}, {"800x600+", 0, 0, 0, 720, 486},
        {"800x600+1+2+3", 0, 0, 0, 720, 486}, {"abc", 0, 0, 0, 720, 486}, {"640x480 ", 0, 0, 0, 720, 486},
    };
    for (const auto &c : cases) {
        int x = 0, y = 0, w = 720, h = 486;
        EXPECT_EQ(viewerParseGeometry(c.text, &x, &y, &w, &h), c.ok) << c.text;
        EXPECT_EQ((std::vector<int>{x, y, w, h}), (std::vector<int>{c.x, c.y, c.w, c.h})) << c.text;
    }
}

TEST_F(Options, EchoOfTheOptions) {
    ViewerOptions o = parse({"-D", "demo", "-S", "s1", "-S", "s2", "-c", "-k", "-p", "2", "-s", "640x480+3+4",
                             "-z", "TEXT=hello", "-T", "/tmp/takes,run1"});
    bwtest::OutputCapture cap;
    viewerEchoOptions(o);
    std::string year = cap.err.text();
    EXPECT_EQ(year.rfind("\nBRACKWOOD Viewer 4.0\nCopyright (c) 1995-", 0), 0u) << year;
    EXPECT_EQ(cap.out.text(),
              "Compiled on: Build=Internal Build-number=Invalid OS=NT40 --- --- -- ---- --:--:--\n"
              "\n"
              "Options Specified\n"
              "-----------------\n"
              "Database:               demo\n"
              "Scene 1:                s1\n"
              "Scene 2:                s2\n"
              "Garbage matte scene:    (null)\n"
              "Take recording:         /tmp/takes, run1\n"
              "Resource path:          /usr/brackwood/rsrc\n"
              "\n"
              "Number of processes:    2\n"
              "Patch precision:        1\n"
              "Antialiasing level:     1\n"
              "Display mode:           SHADED\n"
              "Optimisations:          ENABLED\n"
              "Channel run:            DISABLED\n"
              "Video texture mapping:  ENABLED\n"
              "Channel viewing keys:   DISABLED\n"
              "Stereo:                 DISABLED\n"
              "Inter-ocular distance:  0.5\n"
              "Retrace multiple:       1\n"
              "Window size (x,y,w,h):  3, 4, 640, 480\n"
              "Window text:            hello\n"
              "\n");
}
