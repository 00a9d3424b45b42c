// BW_VIEWER_SCRIPT: the commands, their frames, and bad lines that end the script.
#include <gtest/gtest.h>

#include <string>

#include "capture.h"
#include "platform_doubles.h"
#include "viewer_platform.h"

namespace {
int closeRequests = 0;
}

// The window side, as far as the script reaches it.
void viewerRequestClose() { ++closeRequests; }
void viewerClientSize(int *width, int *height) {
    *width = 320;
    *height = 200;
}
int snapshotWritePng(const char *file, int width, int height) {
    bwtest::inputLog += "snapshot " + std::string(file) + " " + std::to_string(width) + "x" +
                        std::to_string(height) + "\n";
    return 1;
}

namespace {

class Script : public ::testing::Test {
protected:
    void SetUp() override {
        bwtest::inputLog.clear();
        closeRequests = 0;
    }
    // Loads `text` as a script; `err` gets what the load said on stderr.
    int load(const std::string &text) {
        path_ = dir_.write("script.txt", text);
        bwtest::StreamCapture capture(stderr);
        int loaded = viewerScriptLoad(path_.c_str());
        err = capture.text();
        return loaded;
    }
    // What one frame does: its commands, then the moment before the swap.
    std::string frame(long n) {
        bwtest::inputLog.clear();
        viewerScriptFrameStart(n);
        viewerScriptBeforeSwap();
        return bwtest::inputLog;
    }
    bwtest::TempDir dir_;
    std::string path_, err;
};

}  // namespace

TEST_F(Script, CommandsRunAtTheStartOfTheirFrame) {
    ASSERT_EQ(load("# a whole comment line\n"
                   "\n"
                   "key a          # before any 'at': frame 1\n"
                   "at 2\n"
                   "press Shift_L\n"
                   "key A\n"
                   "release Shift_L\n"
                   "drag 1 1\n"
                   "button down left 10 20\n"
                   "drag 15 -5\n"
                   "button up left\n"
                   "at 2\n"
                   "key slash\n"
                   "at 4\n"
                   "press Control_R\n"
                   "button down right 5 6 double\n"
                   "drag 7 8\n"
                   "button up right\n"
                   "release Control_R\n"
                   "snapshot shot.png\n"
                   "key KP_Add\n"
                   "key question\n"
                   "quit\n"),
              1);
    EXPECT_EQ(err, "");
    EXPECT_EQ(frame(1), "key 65 down repeat=0 shift=0\nkey 65 up repeat=0 shift=0\n");
    EXPECT_EQ(frame(2),
              "key 160 down repeat=0 shift=1\n"
              "key 65 down repeat=0 shift=1\n"
              "key 65 up repeat=0 shift=1\n"
              "key 160 up repeat=0 shift=0\n"
              "button 0 down 10,20 double=0 control=0\n"
              "motion 15,-5 buttons=100 control=0\n"
              "button 0 up 15,-5 double=0 control=0\n"
              "key 191 down repeat=0 shift=0\n"
              "key 191 up repeat=0 shift=0\n");
    EXPECT_EQ(frame(3), "");
    EXPECT_EQ(closeRequests, 0);
    EXPECT_EQ(frame(4),
              "key 163 down repeat=0 shift=0\n"
              "button 2 down 5,6 double=1 control=1\n"
              "motion 7,8 buttons=001 control=1\n"
              "button 2 up 7,8 double=0 control=1\n"
              "key 163 up repeat=0 shift=0\n"
              "key 107 down repeat=0 shift=0\n"
              "key 107 up repeat=0 shift=0\n"
              "key 191 down repeat=0 shift=1\n"
              "key 191 up repeat=0 shift=1\n"
              "snapshot shot.png 320x200\n");
    EXPECT_EQ(closeRequests, 1);
    EXPECT_EQ(frame(5), "");  // the snapshot is not taken twice
}

TEST_F(Script, AFrameThatWasSkippedStillRunsAndALoadStartsAfresh) {
    ASSERT_EQ(load("at 3\nkey x\nat 5\nkey z\n"), 1);
    EXPECT_EQ(frame(4), "key 88 down repeat=0 shift=0\nkey 88 up repeat=0 shift=0\n");
    ASSERT_EQ(load("key w\n"), 1);
    EXPECT_EQ(frame(6), "key 87 down repeat=0 shift=0\nkey 87 up repeat=0 shift=0\n");
    EXPECT_EQ(frame(7), "");
}

TEST_F(Script, ABadLineIsReportedAndEndsTheScript) {
    const struct {
        const char *line;
        const char *what;
    } cases[] = {
        {"jump 3", "unknown command 'jump'"},
        {"at x", "bad frame number 'x'"},
        {"at 0", "bad frame number '0'"},
        {"key", "missing argument to 'key'"},
        {"press F1", "unknown key 'F1'"},
        {"release NoSuchKey", "unknown key 'NoSuchKey'"},
        {"button sideways left", "'button' wants down or up, not 'sideways'"},
        {"button down thumb 1 2", "unknown button 'thumb'"},
        {"button down left 1", "missing argument to 'button'"},
        {"drag 1 2y", "bad number '2y'"},
        {"button down left 1 2 triple", "unexpected 'triple' after 'button down'"},
        {"quit now", "unexpected 'now' after 'quit'"},
    };
    for (const auto &c : cases) {
        ASSERT_EQ(load(std::string("key a\n") + c.line + "\nkey b\n"), 1) << c.line;
        EXPECT_EQ(err, "BW_VIEWER_SCRIPT: " + path_ + ":2: " + c.what + "\n");
        EXPECT_EQ(frame(1), "key 65 down repeat=0 shift=0\nkey 65 up repeat=0 shift=0\n") << c.line;
    }

    ASSERT_EQ(load("at 5\n# going back\nat 3\nkey b\n"), 1);
    EXPECT_EQ(err, "BW_VIEWER_SCRIPT: " + path_ + ":3: frame 3 comes after frame 5\n");
    EXPECT_EQ(frame(9), "");
}

TEST_F(Script, AnUnreadableFileIsSaidAndNothingRuns) {
    bwtest::StreamCapture capture(stderr);
    EXPECT_EQ(viewerScriptLoad("/nonexistent/script.txt"), 0);
    EXPECT_EQ(capture.text(), "BW_VIEWER_SCRIPT: cannot read /nonexistent/script.txt\n");
    EXPECT_EQ(frame(1), "");
}
