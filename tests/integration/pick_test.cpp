// Picking through the whole viewer under Xvfb: space held and clicks on a
// scene of three cubes, the parent "left" at x = -2 with its child "kid" 1.5
// above it, and "right" at x = 2, seen by the default camera from (0, 0, 10)
// in a 400 x 300 window. The selection is read from the script's dump lines
// of both copies (-p 2) and from a wireframe snapshot.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "capture.h"
#include "png_read.h"
#include "run_viewer.h"
#include "testdata.h"

using bwtest::contains;
using bwtest::RunResult;

namespace {

const std::string rsrc = BW_RSRC_DIR;

// Window pixels (origin top-left) of the cubes' centres: x / (10 tan 22.5
// degrees x 4/3) across, y / (10 tan 22.5 degrees) up.
const char *const LEFT = "128 150", *const KID = "128 96", *const RIGHT = "272 150", *const SKY = "200 20";

// One click in select mode.
std::string click(const char *button, const char *at) {
    return std::string("press space\nbutton down ") + button + " " + at + "\nbutton up " + button +
           "\nrelease space\ndump\n";
}

// The selection lines of each dump, one text a dump: "left kid " and so on,
// for the copy `copy`.
std::vector<std::string> selections(const std::string &out, int copy) {
    std::vector<std::string> dumps;
    const std::string mark = "selected " + std::to_string(copy) + " ";
    size_t at = 0;
    while ((at = out.find("dump frame ", at)) != std::string::npos) {
        size_t end = out.find("dump frame ", at + 1);
        std::string block = out.substr(at, end == std::string::npos ? std::string::npos : end - at);
        std::string names;
        for (size_t p = 0; (p = block.find(mark, p)) != std::string::npos; p += mark.size()) {
            size_t eol = block.find('\n', p);
            names += block.substr(p + mark.size(), eol - p - mark.size()) + " ";
        }
        dumps.push_back(names);
        at += 1;
    }
    return dumps;
}

// The camera line of each dump.
std::vector<std::string> cameras(const std::string &out) {
    std::vector<std::string> lines;
    for (size_t at = 0; (at = out.find("\ncamera ", at)) != std::string::npos; ++at)
        lines.push_back(out.substr(at + 1, out.find('\n', at + 1) - at - 1));
    return lines;
}

// White pixels of the image left and right of the middle column.
void whiteHalves(const bwtest::Image &image, int *left, int *right) {
    *left = *right = 0;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x) {
            const unsigned char *p = image.at(x, y);
            if (p[0] > 250 && p[1] > 250 && p[2] > 250) ++(x < image.width / 2 ? *left : *right);
        }
}

class Pick : public ::testing::Test {
protected:
    void SetUp() override {
        if (!getenv("DISPLAY")) GTEST_SKIP() << "needs an X display (run under xvfb-run)";
        ASSERT_EQ(tdLoadRelations(), 1);
        bwtest::OutputCapture quiet;
        Database *db = tdDatabaseCreate(dir / "db", "pick", dir / "DatabaseDir.rsrc");
        ASSERT_NE(db, nullptr);
        Model *left = modelNew("left", MODEL_MESH, meshMakeCube(1.0f));
        left->translation[0] = -2.0f;
        Model *kid = modelNew("kid", MODEL_MESH, meshMakeCube(1.0f));
        kid->translation[1] = 1.5f;
        modelAddChild(left, kid);
        Model *right = modelNew("right", MODEL_MESH, meshMakeCube(1.0f));
        right->translation[0] = 2.0f;
        std::string leftFile = tdFullName(tdWriteModel(db, "draw-left", left));
        std::string rightFile = tdFullName(tdWriteModel(db, "draw-right", right));
        modelFree(left);
        modelFree(right);
        ASSERT_FALSE(leftFile.empty());
        ASSERT_FALSE(rightFile.empty());
        TdScene scene;
        int top = scene.add(CHP_MODELS, leftFile);
        ASSERT_TRUE(scene.relate(CHP_MODELS, scene.add(CHP_MODELS, "draw-kid.1-0", false), CHP_MODELS, top, 110));
        scene.add(CHP_MODELS, rightFile);
        ASSERT_FALSE(tdWriteScene(db, "shot", scene, time(nullptr)).empty());
    }
    RunResult run(const std::string &script) {
        dir.write("script.txt", script);
        return bwtest::runViewer({"-R", rsrc, "-s", "400x300", "-p", "2"}, dir.path(),
                                 {"BW_DBDIR", "BW_RSRC", "BW_LIVE_SHOWFORMATS", "BW_PIXELFORMAT",
                                  "BW_VIEWER_SCRIPT=script.txt", "LIBGL_ALWAYS_SOFTWARE=1"});
    }
    bwtest::TempDir dir;
};

}  // namespace

TEST_F(Pick, ButtonsSelectTheModelItsBranchOrItsTreeInBothCopies) {
    // Commands of a frame run before its draw, and its snapshot after.
    const std::string script = "at 3\n" + click("left", LEFT) + "key w\nat 5\nsnapshot left.png\n" +
                               "at 6\nkey s\n" + click("left", RIGHT) + "at 7\n" + click("left", RIGHT) +
                               "at 8\n" + click("left", SKY) + "key f\ndump\n" +
                               "at 9\n" + click("middle", LEFT) + "at 10\n" + click("left", KID) +
                               "at 11\n" + click("right", KID) + "at 12\n" + click("middle", KID) +
                               "snapshot before.png\nat 13\nkey f\nat 15\nsnapshot after.png\ndump\n"
                               "at 16\nkey Escape\n";
    RunResult r = run(script);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const std::vector<std::string> want = {
        "left ",      // left on a model: it alone
        "right ",     // left on another: it alone
        "",           // left on the selected one: nothing
        "",           // the background: nothing
        "",           // f with nothing selected leaves all as it was
        "left kid ",  // middle: the model and what hangs below it
        "",           // left on the child, which is selected: nothing
        "left kid ",  // right on the child: its whole tree
        "kid ",       // middle on the child: its branch is itself
        "kid ",       // f keeps the selection
    };
    for (int copy : {0, 1}) EXPECT_EQ(selections(r.out, copy), want) << "copy " << copy << "\n" << r.out;

    // f with nothing selected leaves the camera; with the child selected it
    // moves the camera to frame it.
    const std::vector<std::string> cams = cameras(r.out);
    ASSERT_EQ(cams.size(), want.size()) << r.out;
    EXPECT_EQ(cams[4], cams[3]);
    EXPECT_NE(cams[9], cams[8]);

    // The selected model's wire is white, the others' not.
    bwtest::Image image;
    ASSERT_TRUE(bwtest::readPng(dir / "left.png", &image));
    int whiteLeft = 0, whiteRight = 0;
    whiteHalves(image, &whiteLeft, &whiteRight);
    EXPECT_GT(whiteLeft, 40);
    EXPECT_EQ(whiteRight, 0);

    bwtest::Image before, after;
    ASSERT_TRUE(bwtest::readPng(dir / "before.png", &before));
    ASSERT_TRUE(bwtest::readPng(dir / "after.png", &after));
    EXPECT_NE(before.rgb, after.rgb) << "framing the child changes the picture";
}
