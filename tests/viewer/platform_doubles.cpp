#include "platform_doubles.h"

#include <cstdio>

#include "viewer_platform.h"

namespace bwtest {
std::string inputLog;
}

void viewerKeyEvent(int keyCode, int down, int repeat, int shift) {
    char line[96];
    snprintf(line, sizeof line, "key %d %s repeat=%d shift=%d\n", keyCode, down ? "down" : "up",
             repeat, shift);
    bwtest::inputLog += line;
}

void viewerButtonEvent(int button, int down, int x, int y, int doubleClick, int control) {
    char line[96];
    snprintf(line, sizeof line, "button %d %s %d,%d double=%d control=%d\n", button,
             down ? "down" : "up", x, y, doubleClick, control);
    bwtest::inputLog += line;
}

void viewerMotionEvent(int x, int y, int left, int middle, int right, int control) {
    char line[96];
    snprintf(line, sizeof line, "motion %d,%d buttons=%d%d%d control=%d\n", x, y, left, middle,
             right, control);
    bwtest::inputLog += line;
}

void viewerDumpScene() { bwtest::inputLog += "dump\n"; }
