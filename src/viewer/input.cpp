// What window events turn into: keys through the key gate to the key commands,
// buttons and drags to the mouse modes, size changes to the viewport.
#include <cstdio>

#include "graphic.h"
#include "tol.h"
#include "view.h"
#include "viewer.h"
#include "viewer_platform.h"

namespace {

// Shared by the mouse handlers.
struct MouseState {
    int lastX, lastY;    // position of the last event, y growing upwards
    int pressX, pressY;  // position of the last press
    double walkTime;     // clock of the last walk step
};
MouseState mouse;

uint16_t leftShiftDown = 0, rightShiftDown = 0;  // the two Shift keys

// Letter commands, indexed by letter; a letter without a command does nothing.
using LetterCommand = void (*)(int shift, MouseState &mouse);
void noCommand(int, MouseState &) {}

void keyD(int shift, MouseState &) {
    if (!shift) glbVar.listEnable = glbVar.listEnable ? 0 : 1;
}
void keyI(int shift, MouseState &) {
    if (!shift) {
        viewer.showInfo = viewer.showInfo ? 0 : 1;
        viewer.statsLevel = static_cast<int32_t>(viewer.showInfo);
    } else if (viewer.statsLevel == 1) {
        viewer.statsLevel = 2;
    } else if (viewer.statsLevel == 2) {
        viewer.statsLevel = 1;
    }
}
void keyK(int shift, MouseState &) {
    if (!shift) glbVar.cullEnable = glbVar.cullEnable ? 0 : 1;
}
void keyM(int shift, MouseState &) {
    if (!shift) displayModeSet(&viewer.gprops, VIEW_MODE_MATTE);
}
void keyS(int shift, MouseState &) {
    if (!shift) displayModeSet(&viewer.gprops, VIEW_MODE_SHADED);
}
void keyT(int shift, MouseState &) {
    if (!shift) displayModeSet(&viewer.gprops, VIEW_MODE_TEXTURED);
}
void keyW(int shift, MouseState &) {
    if (!shift) displayModeSet(&viewer.gprops, VIEW_MODE_WIRE);
}
void keyX(int shift, MouseState &) {
    if (!shift) viewer.showCross = viewer.showCross ? 0 : 1;
}

const LetterCommand letterCommands[26] = {
    noCommand, noCommand, noCommand, keyD,      noCommand, noCommand, noCommand,  // a-g
    noCommand, keyI,      noCommand, keyK,      noCommand, keyM,      noCommand,  // h-n
    noCommand, noCommand, noCommand, noCommand, keyS,      keyT,      noCommand,  // o-u
    noCommand, keyW,      keyX,      noCommand, noCommand,                        // v-z
};

}  // namespace

int viewerKeyGate() {
    if (channelsActive() && viewer.keysOffInRun) return 0;
    viewerMakeCurrent();
    return 1;
}

void viewerKeyEvent(int keyCode, int down, int repeat, int shift) {
    if (down && repeat) return;  // every command fires once a press
    if (!viewerKeyGate()) return;
    if (down)
        onKeyDown(keyCode, shift);
    else
        onKeyUp(keyCode, shift);
}

void onKeyDown(int keyCode, int shift) {
    if (keyCode >= 'A' && keyCode <= 'Z') {
        letterCommands[keyCode - 'A'](shift, mouse);
        return;
    }
    switch (keyCode) {
    case '0':
        viewer.gprops.icons = viewer.gprops.icons ? 0 : 1;
        printf("Show Icons: %s\n", viewer.gprops.icons ? "ON" : "OFF");
        break;
    case VKEY_RIGHT: viewerStartSequence(); break;
    case VKEY_LSHIFT:
        leftShiftDown = 1;
        storeRelease(viewer.listDumpKey, static_cast<uint32_t>(rightShiftDown));
        break;
    case VKEY_RSHIFT:
        rightShiftDown = 1;
        storeRelease(viewer.listDumpKey, static_cast<uint32_t>(leftShiftDown));
        break;
    default: break;
    }
}

void onKeyUp(int keyCode, int shift) {
    (void)shift;
    switch (keyCode) {
    case VKEY_ESCAPE: viewerExit(); break;
    case VKEY_LSHIFT:
    case VKEY_RSHIFT:
        storeRelease(viewer.listDumpKey, 0u);
        if (keyCode == VKEY_LSHIFT) leftShiftDown = 0;
        if (keyCode == VKEY_RSHIFT) rightShiftDown = 0;
        break;
    default: break;
    }
}

void viewerButtonEvent(int button, int down, int x, int y, int doubleClick, int control) {
    (void)doubleClick;
    (void)control;
    int width = 0, height = 0;
    viewerClientSize(&width, &height);
    y = height - y;
    if (down) {
        mouse.lastX = mouse.pressX = x;
        mouse.lastY = mouse.pressY = y;
        return;
    }
    viewer.adjustWalkSpeed = 0;
    viewer.adjustElevatorSpeed = 0;
    // A right click ends a running sequence.
    if (button == 2 && !channelsActive() && loadAcquire(viewer.playing)) viewerStopSequence();
}

void viewerMotionEvent(int x, int y, int left, int middle, int right, int control) {
    (void)left; (void)middle; (void)right; (void)control;
    int width = 0, height = 0;
    viewerClientSize(&width, &height);
    mouse.lastX = x;
    mouse.lastY = height - y;
}

void viewerGlReady() {
    viewerMakeCurrent();
    int width = 0, height = 0;
    viewerClientSize(&width, &height);
    grViewport(0, 0, width, height);
    TOL_grStateInit(&viewer.sceneCtx[viewer.drawIndex], &viewer.gprops);
    if (viewer.gprops.texture.video) {
        if (TOL_siriusInit(&viewer.gprops) != 0) {
            fprintf(stderr, "ERROR: Cannot enable video texturing\n");
            viewer.gprops.texture.video = 0;
        } else {
            printf("Video texturing: ON\n");
        }
    }
    if (viewer.stencilBits > 0) grClearStencil();
}

void viewerWindowResized(int width, int height) {
    viewerMakeCurrent();
    grViewport(0, 0, width, height);
    if (height > 0) viewerSetAspect(static_cast<float>(width) / static_cast<float>(height));
}
