// Keys and mouse through the whole viewer under Xvfb: scripted input on the
// demo database, and what the snapshots and the console show for it.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "capture.h"
#include "png_read.h"
#include "run_viewer.h"

using bwtest::RunResult;

namespace {

const std::string rsrc = BW_RSRC_DIR;

bool lit(const unsigned char *p) { return p[0] > 8 || p[1] > 8 || p[2] > 8; }

struct Rect {
    int x0 = 1 << 30, y0 = 1 << 30, x1 = -1, y1 = -1;  // inclusive, rows from the top
    int width() const { return x1 - x0 + 1; }
};

Rect litRect(const bwtest::Image &image) {
    Rect r;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
            if (lit(image.at(x, y))) {
                r.x0 = std::min(r.x0, x), r.x1 = std::max(r.x1, x);
                r.y0 = std::min(r.y0, y), r.y1 = std::max(r.y1, y);
            }
    return r;
}

class Interaction : public ::testing::Test {
protected:
    void SetUp() override {
        if (!getenv("DISPLAY")) GTEST_SKIP() << "needs an X display (run under xvfb-run)";
        RunResult made = bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
        ASSERT_EQ(made.status, 0) << made.err;
    }
    RunResult run(const std::string &script, std::vector<std::string> args = {}) {
        dir.write("script.txt", script);
        args.insert(args.begin(), {"-R", rsrc});
        return bwtest::runViewer(args, dir.path(),
                                 {"BW_DBDIR", "BW_RSRC", "BW_LIVE_SHOWFORMATS", "BW_PIXELFORMAT",
                                  "BW_VIEWER_SCRIPT=script.txt", "LIBGL_ALWAYS_SOFTWARE=1"});
    }
    bwtest::Image shot(const std::string &name) {
        bwtest::Image image;
        EXPECT_TRUE(bwtest::readPng(dir / name, &image)) << name;
        return image;
    }
    bool same(const std::string &a, const std::string &b) { return shot(a).rgb == shot(b).rgb; }
    bwtest::TempDir dir;
};

}  // namespace

TEST_F(Interaction, DisplayModeKeysChangeThePictureAndTheHelpKeysPrintTheKeyList) {
    RunResult r = run("at 3\nsnapshot 0.png\nat 4\nkey w\nat 6\nsnapshot 1.png\nat 7\nkey s\n"
                      "at 9\nsnapshot 2.png\nat 10\nkey m\nat 12\nsnapshot 3.png\nat 13\nkey t\n"
                      "at 15\nsnapshot 4.png\nat 16\nkey W\nat 18\nsnapshot 5.png\nat 19\nkey question\n"
                      "at 20\nkey slash\nat 21\nkey Escape\n",
                      {"-s", "400x300"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const std::string modes = "Display mode: WIREFRAME\nDisplay mode: SHADED\nDisplay mode: MATTE\n"
                              "Display mode: TEXTURED\n";
    size_t at = r.out.find(modes);
    ASSERT_NE(at, std::string::npos) << r.out;
    EXPECT_FALSE(same("0.png", "1.png"));  // wire
    EXPECT_FALSE(same("1.png", "2.png"));  // shaded again, as the viewer starts
    EXPECT_TRUE(same("0.png", "2.png"));
    EXPECT_FALSE(same("2.png", "3.png"));  // matte
    EXPECT_FALSE(same("3.png", "4.png"));  // textured
    EXPECT_TRUE(same("4.png", "5.png"));   // Shift+W walks, and draws as it did

    // ? and / print the key list, the same text twice at the end of the output,
    // each time with this viewer's transport keys after the list's own lines.
    const std::string head = "\n\nKeys: \n \n  <a> key    - Frame all. Fit all objects to the viewport.\n",
                      tail = "  Escape key - exit the program \n  <?> key    - help, prints this info \n \n"
                             "Frame transport (keys of this viewer)\n";
    size_t first = r.out.find(head, at), second = r.out.find(head, first + 1);
    ASSERT_EQ(first, at + modes.size()) << r.out;
    ASSERT_NE(second, std::string::npos);
    EXPECT_NE(r.out.find(tail, first), std::string::npos);
    const std::string last = "  <y> key    - pause or resume a playing sequence\n";
    EXPECT_EQ(r.out.substr(r.out.size() - last.size()), last);
    EXPECT_EQ(second - first, r.out.size() - second);
}

TEST_F(Interaction, TransportKeysStepThroughTheFrames) {
    // Three frames forward, one back, then the first and two forward: the
    // sheet rises 0.125 a frame from frame 1.
    RunResult r = run("at 3\nsnapshot 1.png\ndump\nkey j\nat 4\nkey j\nat 5\nkey j\nat 7\nsnapshot 4.png\ndump\n"
                      "key h\nat 9\nsnapshot 3.png\ndump\nkey u\nat 11\nkey j\nat 12\nkey j\n"
                      "at 14\ndump\nkey b\nat 16\ndump\nat 17\nkey Escape\n",
                      {"-s", "400x300"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    std::vector<double> sheetY;
    size_t at = 0;
    while ((at = r.out.find("model sheet ", at)) != std::string::npos) {
        double x, y, z;
        ASSERT_EQ(sscanf(r.out.c_str() + at, "model sheet %lf %lf %lf", &x, &y, &z), 3);
        sheetY.push_back(y);
        ++at;
    }
    ASSERT_EQ(sheetY.size(), 5u) << r.out;
    EXPECT_NEAR(sheetY[0], 0.0, 1e-5);
    EXPECT_NEAR(sheetY[1], 0.375, 1e-5);
    EXPECT_NEAR(sheetY[2], 0.25, 1e-5);
    EXPECT_NEAR(sheetY[3], 0.25, 1e-5);  // the first frame and two forward
    EXPECT_FALSE(same("1.png", "4.png"));
    EXPECT_FALSE(same("4.png", "3.png"));
}

TEST_F(Interaction, OrbitDragMovesThePictureOfBothCopies) {
    // A drag without a mode leaves the picture; with o held it turns the
    // camera, and the frames after it show one picture whichever copy they draw.
    RunResult r = run("at 3\nsnapshot 0.png\nbutton down left 200 150\nat 4\ndrag 260 120\n"
                      "at 5\nbutton up left\nat 7\nsnapshot 1.png\nat 8\npress o\n"
                      "button down left 200 150\nat 9\ndrag 260 120\nat 10\nbutton up left\n"
                      "release o\nat 12\nsnapshot 2.png\nat 13\nsnapshot 3.png\nat 14\nsnapshot 4.png\n"
                      "at 15\nkey Escape\n",
                      {"-s", "400x300", "-p", "2"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(same("0.png", "1.png"));
    EXPECT_FALSE(same("1.png", "2.png"));
    EXPECT_TRUE(same("2.png", "3.png") && same("3.png", "4.png"));
}

TEST_F(Interaction, FrameAllFillsTheWindowWithAMargin) {
    // Far away first: a dolly of half the window's width at low speed.
    RunResult r = run("at 3\npress p\nbutton down left 100 150\nat 4\ndrag 300 150\nat 5\n"
                      "button up left\nrelease p\nat 7\nsnapshot far.png\nat 8\nkey a\n"
                      "at 10\nsnapshot all.png\nat 11\nkey Escape\n",
                      {"-s", "400x300"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    Rect far = litRect(shot("far.png")), all = litRect(shot("all.png"));
    EXPECT_LT(far.width(), 400 * 6 / 10);
    // One pair of edges nearly reached, and nothing on an edge.
    EXPECT_TRUE(all.x1 - all.x0 >= 400 * 8 / 10 || all.y1 - all.y0 >= 300 * 8 / 10);
    EXPECT_TRUE(all.x0 > 0 && all.y0 > 0 && all.x1 < 399 && all.y1 < 299)
        << all.x0 << "," << all.y0 << " " << all.x1 << "," << all.y1;
}

TEST_F(Interaction, WalkingGoesOnWhileTheCursorStaysStill) {
    // One drag event, then frames of walking inside it until the release: a
    // longer hold walks further, and the walk ends with the button.
    for (int release : {60, 400}) {
        auto at = [&](int later) { return "at " + std::to_string(release + later) + "\n"; };
        RunResult r = run("at 3\nsnapshot 0.png\nkey W\nbutton down left 200 150\nat 4\ndrag 200 20\n" +
                          at(0) + "button up left\n" + at(2) + "snapshot " + std::to_string(release) + ".png\n" +
                          at(3) + "snapshot still.png\n" + at(4) + "key Escape\n", {"-s", "400x300"});
        ASSERT_EQ(r.status, 0) << r.out << r.err;
        EXPECT_TRUE(same(std::to_string(release) + ".png", "still.png"));
    }
    EXPECT_FALSE(same("0.png", "60.png"));
    EXPECT_FALSE(same("60.png", "400.png"));
}

namespace {

// The status lines from y 150 down by 25 on a 1000-step screen, one letter of
// colour each (r red, g green, v violet): every text pixel of the lower quarter
// lies on a line of its colour, from 11 rows above its baseline to 2 below and
// right of x 20, and every line has some.
void expectLines(const bwtest::Image &image, const std::string &colours) {
    std::vector<int> hits(colours.size());
    int stray = 0;
    for (int y = image.height * 3 / 4; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x) {
            const unsigned char *p = image.at(x, y);
            char colour = p[0] == 255 && !p[1] && !p[2]                                 ? 'r'
                          : !p[0] && p[1] == 255 && !p[2]                               ? 'g'
                          : p[0] >= 100 && p[0] <= 104 && !p[1] && p[2] >= 227 && p[2] <= 232 ? 'v'
                                                                                        : 0;
            size_t line = 0;
            for (; colour && line < colours.size(); ++line) {
                int baseline = image.height - (150 - 25 * int(line)) * image.height / 1000;
                if (colours[line] == colour && y >= baseline - 11 && y <= baseline + 2 && x >= image.width / 50)
                    break;
            }
            if (colour && line == colours.size()) ++stray;
            else if (colour) ++hits[line];
        }
    for (size_t i = 0; i < colours.size(); ++i) EXPECT_GT(hits[i], 0) << "line " << i;
    EXPECT_EQ(stray, 0);
}

}  // namespace

TEST_F(Interaction, InformationLinesInTheirColoursAtTheirPlaces) {
    // Tall enough that the lines, 15 pixels apart, do not overlap. Culling and
    // display lists (violet), the rates of the two sides, green and red, and
    // the last line: PARALLEL DRAW/UPDATE (violet).
    RunResult r = run("at 3\nkey k\nkey d\nkey i\nat 5\nsnapshot rates.png\nat 6\nkey I\n"
                      "at 8\nsnapshot shares.png\nat 9\nkey W\nbutton down left 100 100 double\n"
                      "at 11\nsnapshot speed.png\nat 12\nbutton up left\nat 13\nkey Escape\n",
                      {"-s", "400x600", "-p", "2"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    expectLines(shot("rates.png"), "vvgrv");
    expectLines(shot("shares.png"), "vvggrv");  // the draw side's shares take a second line
    expectLines(shot("speed.png"), "r");        // adjusting the walking speed shows it alone
}
