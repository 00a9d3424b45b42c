// The seam between the viewer and the window system: what the X11/GLX side
// offers the frame loop, and the handlers it calls for input.
#pragma once

#include <cstdint>

// ---------------------------------------------------------------------------
// Window system side (src/viewer/window.cpp, keymap.cpp)

// Handles every pending window event. Returns 0 once the window was closed (the
// close button, or a lost pixel format): the message loop then returns.
int viewerProcessEvents();
int viewerMessagePending();  // 1 when a window event is waiting
int viewerWindowExists();    // 1 while the window and its GL context exist
void viewerMakeCurrent();    // makes the GL context current on the calling thread
void viewerSwapBuffers();
void viewerClientSize(int *width, int *height);  // client area in pixels
int viewerMouseButtonCount();  // buttons of the pointer, 3 when unknown

// Platform key codes are the virtual-key numbers the key table is written in
// (VK_ values): letters are their upper-case ASCII code, digits their ASCII code.
enum ViewerKeyCode : int {
    VKEY_BACK = 0x08, VKEY_TAB = 0x09, VKEY_RETURN = 0x0D, VKEY_SHIFT = 0x10,
    VKEY_CONTROL = 0x11, VKEY_MENU = 0x12, VKEY_ESCAPE = 0x1B, VKEY_SPACE = 0x20,
    VKEY_LEFT = 0x25, VKEY_UP = 0x26, VKEY_RIGHT = 0x27, VKEY_DOWN = 0x28,
    VKEY_NUMPAD0 = 0x60, VKEY_ADD = 0x6B, VKEY_SUBTRACT = 0x6D,
    VKEY_LSHIFT = 0xA0, VKEY_RSHIFT = 0xA1, VKEY_LCONTROL = 0xA2, VKEY_RCONTROL = 0xA3,
    VKEY_LMENU = 0xA4, VKEY_RMENU = 0xA5, VKEY_OEM_2 = 0xBF,  // '/' and '?'
};

// Turns an X keysym into the platform key code, 0 for keys the viewer ignores.
int viewerKeyFromKeysym(unsigned long keysym);

// The shared key-state map a keyboard channel driver reads: 32 bytes, one bit
// per device key number.
constexpr const char *KEY_STATE_MAP_NAME = "/GL4_KeyStateFileObjectName";
int keyStateMapOpen();                 // 1 when mapped; creates and clears a new one
uint8_t *keyStateMap();                // null when not mapped
int keyMapping(int platformKeyCode);   // device number, 0 for none
// Updates the map for a press or release. Generic Shift, Control and Alt are
// resolved through `leftDown`/`rightDown` (the state of the two keys).
void keyStateUpdate(int platformKeyCode, int down, int leftDown, int rightDown);

// Delivers one key event as a real key does: the held-key state and the key-state
// map first, then viewerKeyEvent. Shift, Control and Alt come with their side
// (VKEY_LSHIFT, VKEY_RSHIFT, ...); for a Shift key's own event `shift` tells
// whether a Shift key is down after it.
void viewerDeliverKey(int keyCode, int down, int repeat, int shift);
// 1 while the key is down by the events delivered so far; the generic Shift,
// Control and Alt codes ask for either side.
int viewerKeyHeld(int keyCode);
// Closes the window as its close button does: the next viewerProcessEvents
// destroys it and returns 0.
void viewerRequestClose();
// Prints the draw side's models, camera and channel slots as numbers (script "dump").
void viewerDumpScene();

// ---------------------------------------------------------------------------
// Viewer side (src/viewer): what window events turn into.

void viewerGlReady();                         // the GL context is new and current
void viewerWindowResized(int width, int height);
// A key press or release as a platform key code; `repeat` marks auto-repeat,
// `shift` either Shift key down. The window side updates the key-state map first.
void viewerKeyEvent(int keyCode, int down, int repeat, int shift);
// Buttons: 0 left, 1 middle, 2 right. y grows downwards as X reports it.
void viewerButtonEvent(int button, int down, int x, int y, int doubleClick, int control);
void viewerMotionEvent(int x, int y, int left, int middle, int right, int control);
void viewerExit();  // the one way out: exits the process with status 0

// ---------------------------------------------------------------------------
// Scripted input (src/viewer/script.cpp): BW_VIEWER_SCRIPT names a file of
// commands that act through the same handlers as real window events.

int viewerScriptLoad(const char *path);  // 1 when loaded; reports its own errors
void viewerScriptFrameStart(long frame); // runs the commands of frame `frame` (from 1)
void viewerScriptBeforeSwap();           // writes the snapshot asked for this frame
// 1 when a command is due by the next frame: a handler that runs frames of its
// own (the walk loop) stops for it. Frames run inside a command's handler leave
// the commands and snapshots to the frame that ran it.
int viewerScriptPending();

