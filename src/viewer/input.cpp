// What window events turn into: keys through the key gate to the key commands,
// buttons and drags to the mouse modes and the camera, size changes to the
// viewport.
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "database.h"
#include "graphic.h"
#include "tol.h"
#include "view.h"
#include "viewer.h"
#include "viewer_platform.h"

namespace {

constexpr float PI = 3.14159265358979f;

// Shared by the mouse handlers.
struct MouseState {
    int lastX, lastY;    // position of the last event, y growing upwards
    int pressX, pressY;  // position of the last press
    double walkTime;     // clock of the last walk step
};
MouseState mouse;

uint16_t leftShiftDown = 0, rightShiftDown = 0;  // the two Shift keys

// Every camera command works on the copy the draw side owns, with the
// scene's first camera; the other copy follows through cameraMirror.
TOL_Scene *drawScene() { return &viewer.sceneCtx[viewer.drawIndex]; }

uint32_t flip(uint32_t word) { return word ? 0u : 1u; }
uint16_t flip16(uint16_t word) { return word ? 0 : 1; }

// The four words of zoom and pan mode go together.
void zoomPanClear() {
    viewer.zoomPanMode = 0;
    viewer.zoomIn = 0;
    viewer.zoomOut = 0;
    viewer.panMode = 0;
}

// ---------------------------------------------------------------------------
// Letter commands, indexed by letter; a letter without a command does nothing.
// `shift` is either Shift key down: upper-case rows need it, plain rows refuse it.

using LetterCommand = void (*)(int shift, MouseState &mouse);
void noCommand(int, MouseState &) {}

void keyA(int shift, MouseState &) {
    if (shift) return;
    TOL_cameraFitScene(drawScene(), nullptr, 0);
    cameraMirror();
}
void keyC(int shift, MouseState &) {
    const int capturing = channelsActive();
    if (!shift) {
        if (!capturing) storeRelease(viewer.channelCommand, CHANNEL_CMD_START);
        return;
    }
    if (!capturing)
        fprintf(stderr, "WARNING: Channels must be active for take recording.\n");
    else if (!viewer.takeEnabled)
        fprintf(stderr, "WARNING: Take recording not enabled\n");
    else
        storeRelease(viewer.channelCommand, viewer.takeRecording ? CHANNEL_CMD_TAKE_STOP : CHANNEL_CMD_TAKE_START);
}
void keyD(int shift, MouseState &) {
    if (!shift) glbVar.listEnable = flip16(glbVar.listEnable);
}
void keyF(int shift, MouseState &) {
    if (shift) return;
    TOL_cameraFitScene(drawScene(), nullptr, 1);
    cameraMirror();
}
void keyG(int shift, MouseState &) {
    if (!shift) viewer.gprops.showGarbage = flip16(viewer.gprops.showGarbage);
}
void keyI(int shift, MouseState &) {
    // The update thread reads the level for its statistics at every step.
    const int32_t level = viewer.statsLevel;
    if (!shift) {
        viewer.showInfo = flip(viewer.showInfo);
        storeRelease(viewer.statsLevel, static_cast<int32_t>(viewer.showInfo));
    } else if (level == 1 || level == 2) {
        storeRelease(viewer.statsLevel, 3 - level);
    }
}
void keyK(int shift, MouseState &) {
    if (!shift) glbVar.cullEnable = flip16(glbVar.cullEnable);
}
void keyL(int shift, MouseState &) {
    if (!shift) viewer.gprops.antialias = flip16(viewer.gprops.antialias);
}
void keyM(int shift, MouseState &) {
    if (!shift) displayModeSet(&viewer.gprops, VIEW_MODE_MATTE);
}
void keyN(int shift, MouseState &) {
    // The normals bit of the flag word; nothing draws from it.
    if (!shift) viewer.drawFlags = static_cast<uint16_t>(viewer.drawFlags ^ 32);
}
void keyO(int shift, MouseState &) {
    if (shift) viewer.orbitInterestMode = 1;
    else viewer.orbitMode = 1;
}
void keyP(int shift, MouseState &) {
    if (!shift) viewer.dollyMode = 1;
}
void keyR(int shift, MouseState &) {
    if (shift) {
        TOL_cameraRestoreAttributes(drawScene(), nullptr);
        cameraMirror();
    } else if (viewer.walkMode) {
        TOL_cameraResetTilt(drawScene(), nullptr);
        cameraMirror();
    }
}
void keyS(int shift, MouseState &) {
    if (!shift) displayModeSet(&viewer.gprops, VIEW_MODE_SHADED);
}
void keyT(int shift, MouseState &) {
    if (!shift) displayModeSet(&viewer.gprops, VIEW_MODE_TEXTURED);
}
void keyV(int shift, MouseState &) {
    if (shift) return;
    BW_TextureProps &texture = viewer.gprops.texture;
    texture.video = flip16(texture.video);
    if (!texture.video) {
        TOL_siriusExit(&viewer.gprops);
        printf("Video texturing: OFF\n");
    } else if (TOL_siriusInit(&viewer.gprops) != 0) {
        fprintf(stderr, "ERROR: Cannot enable video texturing\n");
        texture.video = 0;
    } else {
        printf("Video texturing: ON\n");
    }
}
void keyW(int shift, MouseState &mouse) {
    if (!shift) {
        displayModeSet(&viewer.gprops, VIEW_MODE_WIRE);
        return;
    }
    viewer.walkMode = flip(viewer.walkMode);
    mouse.walkTime = viewerClock();
}
void keyX(int shift, MouseState &) {
    if (!shift) viewer.showCross = flip(viewer.showCross);
}
// The frame transport: keys the original list leaves free.
void keyB(int shift, MouseState &) {
    if (!shift) viewerGotoFrame(viewer.endFrame);
}
void keyH(int shift, MouseState &) {
    if (!shift) viewerStepFrames(-viewer.frameStep);
}
void keyJ(int shift, MouseState &) {
    if (!shift) viewerStepFrames(viewer.frameStep);
}
void keyU(int shift, MouseState &) {
    if (!shift) viewerGotoFrame(viewer.startFrame);
}
void keyY(int shift, MouseState &) {
    if (!shift) viewerPauseSequence();
}
void keyZ(int shift, MouseState &) {
    if (shift) return;
    if (!viewer.zoomPanMode) viewer.zoomPanMode = 1;
    else zoomPanClear();
}

const LetterCommand letterPress[26] = {
    keyA,      keyB,      keyC,      keyD,      noCommand, keyF,      keyG,       // a-g
    keyH,      keyI,      keyJ,      keyK,      keyL,      keyM,      keyN,       // h-n
    keyO,      keyP,      noCommand, keyR,      keyS,      keyT,      keyU,       // o-u
    keyV,      keyW,      keyX,      keyY,      keyZ,                             // v-z
};

// Releases end the modes held by their key.
void keyOUp(int shift, MouseState &) {
    viewer.orbitMode = 0;
    if (shift) viewer.orbitInterestMode = 0;
}
void keyPUp(int shift, MouseState &) {
    if (!shift) viewer.dollyMode = 0;
}
void keyZUp(int shift, MouseState &) {
    // A Shift pressed while z is held makes this release pass: the mode then
    // stays on until the next z.
    if (!shift) zoomPanClear();
}

const LetterCommand letterRelease[26] = {
    noCommand, noCommand, noCommand, noCommand, noCommand, noCommand, noCommand,  // a-g
    noCommand, noCommand, noCommand, noCommand, noCommand, noCommand, noCommand,  // h-n
    keyOUp,    keyPUp,    noCommand, noCommand, noCommand, noCommand, noCommand,  // o-u
    noCommand, noCommand, noCommand, noCommand, keyZUp,                           // v-z
};

// ---------------------------------------------------------------------------
// The other keys.

using KeyCommand = void (*)(int keyCode, int shift);

void keyIcons(int, int) {
    viewer.gprops.icons = flip16(viewer.gprops.icons);
    printf("Show Icons: %s\n", viewer.gprops.icons ? "ON" : "OFF");
}
void keyEyesApart(int, int) { viewer.gprops.interOcular += 0.01f; }
void keyEyesCloser(int, int) {
    viewer.gprops.interOcular -= 0.01f;
    if (viewer.gprops.interOcular < 0.0f) viewer.gprops.interOcular = 0.0f;
}
void keyHelp(int, int) {
    viewerPrintKeysHelp();
    for (const char *const *line = transportHelp; *line; ++line) fputs(*line, stdout);
}
void keyPlay(int, int) { viewerStartSequence(); }
void keySelect(int, int) { viewer.selectMode = 1; }
void keySelectUp(int, int) { viewer.selectMode = 0; }
void keyExit(int, int) { viewerExit(); }

// Both Shift keys down turn on the update list dump; either one up ends it.
void keyShift(int keyCode, int) {
    if (keyCode == VKEY_LSHIFT) {
        leftShiftDown = 1;
        storeRelease(viewer.listDumpKey, static_cast<uint32_t>(rightShiftDown));
    } else {
        rightShiftDown = 1;
        storeRelease(viewer.listDumpKey, static_cast<uint32_t>(leftShiftDown));
    }
}
void keyShiftUp(int, int) {
    storeRelease(viewer.listDumpKey, 0u);
    if (!viewerKeyHeld(VKEY_LSHIFT)) leftShiftDown = 0;
    if (!viewerKeyHeld(VKEY_RSHIFT)) rightShiftDown = 0;
}

struct KeyBinding {
    int key;             // platform key code
    KeyCommand press;    // null for none
    KeyCommand release;  // null for none
};

// The top row's + and - are not bound: only the number pad's.
const KeyBinding otherKeys[] = {
    {'0', keyIcons, nullptr},
    {VKEY_ADD, keyEyesApart, nullptr},
    {VKEY_SUBTRACT, keyEyesCloser, nullptr},
    {VKEY_OEM_2, keyHelp, nullptr},  // '/' and '?' alike
    {VKEY_RIGHT, keyPlay, nullptr},
    {VKEY_SPACE, keySelect, keySelectUp},
    {VKEY_ESCAPE, nullptr, keyExit},  // on release
    {VKEY_LSHIFT, keyShift, keyShiftUp},
    {VKEY_RSHIFT, keyShift, keyShiftUp},
};

const KeyBinding *bindingOf(int keyCode) {
    for (const KeyBinding &b : otherKeys)
        if (b.key == keyCode) return &b;
    return nullptr;
}

// ---------------------------------------------------------------------------
// Mouse

// Sign-keeping square: the walk speeds grow with the square of the offset.
float signedSquare(float v) { return v < 0.0f ? -v * v : v * v; }

// Walking needs no motion: while the cursor stays where it is, frames run
// here, each moving the camera by the cursor's offset from the press point,
// until a window event is waiting.
void walkLoop(int x, int y, int width, int height, int left, int middle, int right, int control,
              int (*messagePending)()) {
    const float qx = signedSquare(static_cast<float>(x - mouse.pressX) / static_cast<float>(width));
    const float qy = signedSquare(static_cast<float>(y - mouse.pressY) / static_cast<float>(height));
    do {
        double now = viewerClock();
        float dt = static_cast<float>(now - mouse.walkTime);
        mouse.walkTime = now;
        TOL_Scene *scene = drawScene();  // the ring moves on with every frame
        if (left) {
            if (control) {
                TOL_cameraPan(scene, nullptr, qx * dt, qy * dt);
            } else {
                TOL_cameraIntOrbit(scene, nullptr, qx * dt * PI, 0.0f);
                TOL_cameraWalk(scene, nullptr, viewer.walkSpeed * qy * dt);
            }
        } else if (middle) {
            TOL_cameraIntOrbit(scene, nullptr, qx * dt * PI, qy * dt * PI);
        } else if (right) {
            TOL_cameraElevate(scene, nullptr, viewer.elevatorSpeed * qy * dt);
        }
        if (left || middle || right) cameraMirror();
        viewerFrame();
    } while (!messagePending());
}

// A window event, or a scripted one due at the next frame, ends the walk loop;
// so does the end of the window.
int inputWaiting() { return viewerMessagePending() || viewerScriptPending() || !viewerWindowExists(); }

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
        letterPress[keyCode - 'A'](shift, mouse);
    } else if (const KeyBinding *b = bindingOf(keyCode)) {
        if (b->press) b->press(keyCode, shift);
    }
}

void onKeyUp(int keyCode, int shift) {
    if (keyCode >= 'A' && keyCode <= 'Z') {
        letterRelease[keyCode - 'A'](shift, mouse);
    } else if (const KeyBinding *b = bindingOf(keyCode)) {
        if (b->release) b->release(keyCode, shift);
    }
}

int viewerButtonOf(int button, int control, int buttonCount) {
    return buttonCount == 2 && button == 0 && control ? 1 : button;
}

void pickElement(int button, int x, int y, int i) {
    TOL_Scene *scene = &viewer.sceneCtx[i];
    TOL_Elem *elem = nullptr;
    // A pick region of 3 by 3 pixels around the cursor.
    TOL_modelPick(scene, nullptr, &viewer.gprops, &elem, x - 1, y - 1, x + 1, y + 1);
    if (!elem) return;
    int count = 0;
    float *values = nullptr;
    int selected = TOL_elemGetParams(elem, 5, 0, &count, &values) == 0 && count > 0 && values[0] > 0.0f;
    free(values);
    // The selection always starts from nothing: a left click on a selected
    // element empties it; middle takes the branch, right the tree.
    int scope = button == 0 ? 0 : button == 1 ? 1 : 2;
    int state = button == 0 && selected ? 2 : 0;
    TOL_elemDraw(scene->dict, elem, scene->chapters[CHP_MODELS], scope, state, 1);
    free(elem);
}

void onMousePress(int button, int x, int y, int doubleClick) {
    mouse.lastX = mouse.pressX = x;
    mouse.lastY = mouse.pressY = y;
    if (viewer.selectMode) {
        // Both copies pick, so that their selections stay equal. The pick
        // draws, so the window's context must be current.
        viewerMakeCurrent();
        for (int i = 0; i < viewer.processCount; ++i) pickElement(button, x, y, i);
    } else if (viewer.zoomPanMode) {
        if (button == 0) viewer.panMode = 1;
        else if (button == 1) viewer.zoomIn = 1;
        else viewer.zoomOut = 1;
    } else if (viewer.walkMode && doubleClick) {
        if (button == 0) viewer.adjustWalkSpeed = 1;
        else if (button == 2) viewer.adjustElevatorSpeed = 1;
    }
}

void onMouseRelease(int button) {
    viewer.adjustWalkSpeed = 0;
    viewer.adjustElevatorSpeed = 0;
    if (button == 2 && channelsActive()) {
        storeRelease(viewer.channelCommand, CHANNEL_CMD_STOP);  // the right button stops a capture
    } else if (button == 2 && loadAcquire(viewer.playing)) {
        viewerStopSequence();
    } else if (viewer.zoomPanMode) {
        if (button == 0) viewer.panMode = 0;
        else if (button == 1) viewer.zoomIn = 0;
        else viewer.zoomOut = 0;
    }
}

void onMouseDrag(int x, int y, int width, int height, int left, int middle, int right, int control,
                 int (*messagePending)()) {
    const float dx = static_cast<float>(x - mouse.lastX), dy = static_cast<float>(y - mouse.lastY);
    mouse.lastX = x;
    mouse.lastY = y;
    if (width < 1) width = 1;
    if (height < 1) height = 1;
    const float w = static_cast<float>(width), h = static_cast<float>(height);
    TOL_Scene *scene = drawScene();
    if (viewer.orbitMode) {
        // Middle keeps to up and down, right to left and right.
        float dPhi = right ? 0.0f : dy * PI / h;
        float dTheta = middle ? 0.0f : dx * 2.0f * PI / w;
        TOL_cameraOrbit(scene, nullptr, dTheta, dPhi);
        cameraMirror();
    } else if (viewer.orbitInterestMode) {
        float dPhi = right ? 0.0f : dy * (PI / 2.0f) / h;
        float dTheta = middle ? 0.0f : dx * (PI / 2.0f) / w;
        TOL_cameraIntOrbit(scene, nullptr, dTheta, dPhi);
        cameraMirror();
    } else if (viewer.panMode) {
        TOL_cameraPan(scene, nullptr, dx / w, dy / h);
        cameraMirror();
    } else if (viewer.dollyMode) {
        float speed = viewer.walkSpeed;
        if (middle) speed *= 5.0f;
        else if (right) speed *= 20.0f;
        TOL_cameraDolly(scene, nullptr, speed * dx / w);
        cameraMirror();
    } else if (viewer.adjustWalkSpeed || viewer.adjustElevatorSpeed) {
        // No lower bound: below zero the controls run backwards.
        if (viewer.adjustWalkSpeed) viewer.walkSpeed += dx;
        if (viewer.adjustElevatorSpeed) viewer.elevatorSpeed += dx;
    } else if (viewer.walkMode) {
        walkLoop(x, y, width, height, left, middle, right, control, messagePending);
    }
}

// The window reports y downwards from the top; the handlers want it upwards.
// A button is released as what it was pressed as, whatever Control did since.
void viewerButtonEvent(int button, int down, int x, int y, int doubleClick, int control) {
    static int pressedAs[3] = {0, 1, 2};
    if (button < 0 || button > 2) return;
    if (!down) {
        onMouseRelease(pressedAs[button]);
        return;
    }
    int width = 0, height = 0;
    viewerClientSize(&width, &height);
    pressedAs[button] = viewerButtonOf(button, control, viewerMouseButtonCount());
    onMousePress(pressedAs[button], x, height - y, doubleClick);
}

void viewerMotionEvent(int x, int y, int left, int middle, int right, int control) {
    int width = 0, height = 0;
    viewerClientSize(&width, &height);
    if (left && viewerButtonOf(0, control, viewerMouseButtonCount()) == 1) {
        left = 0;
        middle = 1;
    }
    onMouseDrag(x, height - y, width, height, left, middle, right, control, inputWaiting);
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

// The viewport fills the window, and the cameras take its shape.
void viewerWindowResized(int width, int height) {
    viewerMakeCurrent();
    grViewport(0, 0, width, height);
    if (height > 0) viewerSetAspect(static_cast<float>(width) / static_cast<float>(height));
}
