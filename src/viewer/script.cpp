// BW_VIEWER_SCRIPT: a file of input commands, each run at the start of a given
// frame through the same handlers as the window's events. The whole file is read
// and checked at load; the frames then play it.
#include <X11/Xlib.h>
#include <X11/keysym.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "graphic.h"
#include "viewer_platform.h"

namespace {

enum ScriptOp { OP_PRESS, OP_RELEASE, OP_BUTTON_DOWN, OP_BUTTON_UP, OP_DRAG, OP_SNAPSHOT, OP_DUMP, OP_QUIT };

struct ScriptCommand {
    long frame;
    ScriptOp op;
    int key;       // platform key code
    int shift;     // the key's name asks for Shift held (upper-case letters, '?')
    int button;    // 0 left, 1 middle, 2 right
    int x, y;
    int doubleClick;
    std::string file;
};

std::vector<ScriptCommand> commands;
size_t nextCommand = 0;
std::vector<std::string> snapshots;  // asked for by the frame being drawn
int buttonHeld[3];
int pointerX = 0, pointerY = 0;
long lastFrame = 0;    // the frame last started, nested ones included
bool running = false;  // a command's handler is at work

std::vector<std::string> splitWords(const std::string &line) {
    std::vector<std::string> words;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && isspace(static_cast<unsigned char>(line[i]))) ++i;
        size_t start = i;
        while (i < line.size() && !isspace(static_cast<unsigned char>(line[i]))) ++i;
        if (i > start) words.push_back(line.substr(start, i - start));
    }
    return words;
}

bool parseLong(const std::string &word, long *value) {
    if (word.empty()) return false;
    errno = 0;
    char *end = nullptr;
    long v = strtol(word.c_str(), &end, 10);
    if (errno || *end || !(isdigit(static_cast<unsigned char>(word[0])) || word[0] == '-' || word[0] == '+'))
        return false;
    *value = v;
    return true;
}

bool parseCoordinate(const std::string &word, int *value) {
    long v = 0;
    if (!parseLong(word, &v) || v < INT_MIN || v > INT_MAX) return false;
    *value = static_cast<int>(v);
    return true;
}

int buttonNumber(const std::string &word) {
    if (word == "left") return 0;
    if (word == "middle") return 1;
    if (word == "right") return 2;
    return -1;
}

// Parses one line into `out` (none for a blank or comment line). Returns an empty
// text, or what is wrong with the line.
std::string parseLine(const std::string &raw, long *frame, std::vector<ScriptCommand> *out) {
    std::string line = raw.substr(0, raw.find('#'));
    std::vector<std::string> w = splitWords(line);
    if (w.empty()) return "";
    const std::string &name = w[0];
    size_t args = w.size() - 1;
    auto argCount = [&](size_t lo, size_t hi) -> std::string {
        if (args < lo) return "missing argument to '" + name + "'";
        if (args > hi) return "unexpected '" + w[hi + 1] + "' after '" + name + "'";
        return "";
    };
    ScriptCommand c{};
    c.frame = *frame;

    if (name == "at") {
        if (std::string e = argCount(1, 1); !e.empty()) return e;
        long n = 0;
        if (!parseLong(w[1], &n) || n < 1) return "bad frame number '" + w[1] + "'";
        if (n < *frame) return "frame " + w[1] + " comes after frame " + std::to_string(*frame);
        *frame = n;
        return "";
    }
    if (name == "key" || name == "press" || name == "release") {
        if (std::string e = argCount(1, 1); !e.empty()) return e;
        KeySym sym = XStringToKeysym(w[1].c_str());
        c.key = sym == NoSymbol ? 0 : viewerKeyFromKeysym(sym);
        if (!c.key) return "unknown key '" + w[1] + "'";
        c.shift = (sym >= XK_A && sym <= XK_Z) || sym == XK_question;
        if (name != "release") {
            c.op = OP_PRESS;
            out->push_back(c);
        }
        if (name != "press") {
            c.op = OP_RELEASE;
            out->push_back(c);
        }
        return "";
    }
    if (name == "button") {
        if (args < 1) return "missing argument to 'button'";
        bool down = w[1] == "down";
        if (!down && w[1] != "up") return "'button' wants down or up, not '" + w[1] + "'";
        if (args < 2) return "missing argument to 'button'";
        c.button = buttonNumber(w[2]);
        if (c.button < 0) return "unknown button '" + w[2] + "'";
        if (!down) {
            if (args > 2) return "unexpected '" + w[3] + "' after 'button up'";
            c.op = OP_BUTTON_UP;
            out->push_back(c);
            return "";
        }
        if (args < 4) return "missing argument to 'button'";
        if (!parseCoordinate(w[3], &c.x)) return "bad number '" + w[3] + "'";
        if (!parseCoordinate(w[4], &c.y)) return "bad number '" + w[4] + "'";
        if (args >= 5) {
            if (w[5] != "double") return "unexpected '" + w[5] + "' after 'button down'";
            c.doubleClick = 1;
        }
        if (args > 5) return "unexpected '" + w[6] + "' after 'button down'";
        c.op = OP_BUTTON_DOWN;
        out->push_back(c);
        return "";
    }
    if (name == "drag") {
        if (std::string e = argCount(2, 2); !e.empty()) return e;
        if (!parseCoordinate(w[1], &c.x)) return "bad number '" + w[1] + "'";
        if (!parseCoordinate(w[2], &c.y)) return "bad number '" + w[2] + "'";
        c.op = OP_DRAG;
        out->push_back(c);
        return "";
    }
    if (name == "snapshot") {
        if (std::string e = argCount(1, 1); !e.empty()) return e;
        c.op = OP_SNAPSHOT;
        c.file = w[1];
        out->push_back(c);
        return "";
    }
    if (name == "dump") {
        if (std::string e = argCount(0, 0); !e.empty()) return e;
        c.op = OP_DUMP;
        out->push_back(c);
        return "";
    }
    if (name == "quit") {
        if (std::string e = argCount(0, 0); !e.empty()) return e;
        c.op = OP_QUIT;
        out->push_back(c);
        return "";
    }
    return "unknown command '" + name + "'";
}

void runCommand(const ScriptCommand &c) {
    switch (c.op) {
    case OP_PRESS:
    case OP_RELEASE: {
        int down = c.op == OP_PRESS;
        viewerDeliverKey(c.key, down, 0, c.shift || viewerKeyHeld(VKEY_SHIFT));
        break;
    }
    case OP_BUTTON_DOWN:
        pointerX = c.x;
        pointerY = c.y;
        buttonHeld[c.button] = 1;
        viewerButtonEvent(c.button, 1, c.x, c.y, c.doubleClick, viewerKeyHeld(VKEY_CONTROL));
        break;
    case OP_BUTTON_UP:
        buttonHeld[c.button] = 0;
        viewerButtonEvent(c.button, 0, pointerX, pointerY, 0, viewerKeyHeld(VKEY_CONTROL));
        break;
    case OP_DRAG:
        pointerX = c.x;
        pointerY = c.y;
        // As on the window, motion counts only while a button is down.
        if (buttonHeld[0] || buttonHeld[1] || buttonHeld[2])
            viewerMotionEvent(c.x, c.y, buttonHeld[0], buttonHeld[1], buttonHeld[2],
                              viewerKeyHeld(VKEY_CONTROL));
        break;
    case OP_SNAPSHOT: snapshots.push_back(c.file); break;
    case OP_DUMP: viewerDumpScene(); break;
    case OP_QUIT: viewerRequestClose(); break;
    }
}

}  // namespace

int viewerScriptLoad(const char *path) {
    commands.clear();
    nextCommand = 0;
    snapshots.clear();
    buttonHeld[0] = buttonHeld[1] = buttonHeld[2] = 0;
    pointerX = pointerY = 0;
    lastFrame = 0;
    running = false;
    if (!path) return 0;
    FILE *file = fopen(path, "r");
    if (!file) {
        fprintf(stderr, "BW_VIEWER_SCRIPT: cannot read %s\n", path);
        return 0;
    }
    long frame = 1;
    int lineNumber = 0;
    std::string line;
    bool reading = true;
    while (reading) {
        line.clear();
        int ch;
        while ((ch = fgetc(file)) != EOF && ch != '\n') line.push_back(static_cast<char>(ch));
        if (ch == EOF) {
            reading = false;
            if (line.empty()) break;
        }
        ++lineNumber;
        std::vector<ScriptCommand> parsed;
        std::string wrong = parseLine(line, &frame, &parsed);
        if (!wrong.empty()) {
            fprintf(stderr, "BW_VIEWER_SCRIPT: %s:%d: %s\n", path, lineNumber, wrong.c_str());
            break;
        }
        commands.insert(commands.end(), parsed.begin(), parsed.end());
    }
    fclose(file);
    return 1;
}

void viewerScriptFrameStart(long frame) {
    lastFrame = frame;
    if (running) return;
    snapshots.clear();
    running = true;
    while (nextCommand < commands.size() && commands[nextCommand].frame <= frame)
        runCommand(commands[nextCommand++]);
    running = false;
}

int viewerScriptPending() {
    return nextCommand < commands.size() && commands[nextCommand].frame <= lastFrame + 1 ? 1 : 0;
}

void viewerScriptBeforeSwap() {
    if (running || snapshots.empty()) return;
    int width = 0, height = 0;
    viewerClientSize(&width, &height);
    for (const std::string &file : snapshots) snapshotWritePng(file.c_str(), width, height);
    snapshots.clear();
}
