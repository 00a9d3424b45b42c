// Keys on their way in: X keysyms to platform key codes, the held-key state, and
// the shared key-state map from which a keyboard channel driver reads the keys.
#include <X11/keysym.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "viewer_platform.h"

namespace {

constexpr int MAP_BYTES = 32;  // 256 device key numbers, one bit each

uint8_t *keyMap = nullptr;
bool held[256];  // platform key codes down by the delivered events

// Device numbers of the sided modifier keys.
constexpr int DEV_LSHIFT = 5, DEV_RSHIFT = 6;
constexpr int DEV_LCONTROL = 3, DEV_RCONTROL = 145;
constexpr int DEV_LALT = 143, DEV_RALT = 144;

// The number pad's 0 to 9 share the device numbers of the digit keys.
constexpr int numberPad[10] = {46, 8, 14, 15, 22, 23, 30, 31, 38, 39};

int mapBit(int n) { return (keyMap[n / 8] >> (n % 8)) & 1; }

void setMapBit(int n, int on) {
    uint8_t mask = static_cast<uint8_t>(1u << (n % 8));
    if (on) keyMap[n / 8] |= mask;
    else keyMap[n / 8] &= static_cast<uint8_t>(~mask);
}

bool validCode(int code) { return code > 0 && code < 256; }

}  // namespace

int keyStateMapOpen() {
    // A second call maps afresh, so that the object can be replaced under a
    // running viewer (and tests can start from a known object).
    if (keyMap) {
        munmap(keyMap, MAP_BYTES);
        keyMap = nullptr;
    }
    int fd = shm_open(KEY_STATE_MAP_NAME, O_CREAT | O_EXCL | O_RDWR, 0600);
    bool fresh = fd >= 0;
    if (fd < 0 && errno == EEXIST) fd = shm_open(KEY_STATE_MAP_NAME, O_RDWR, 0600);
    if (fd < 0) return 0;
    struct stat st;
    if (fstat(fd, &st) != 0) {
        close(fd);
        return 0;
    }
    if (st.st_size == 0) fresh = true;  // created by someone who never sized it
    // A larger object belongs to a driver that knows better; only a short one grows.
    if (st.st_size < MAP_BYTES && ftruncate(fd, MAP_BYTES) != 0) {
        close(fd);
        return 0;
    }
    void *p = mmap(nullptr, MAP_BYTES, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (p == MAP_FAILED) return 0;
    keyMap = static_cast<uint8_t *>(p);
    if (fresh) memset(keyMap, 0, MAP_BYTES);
    return 1;
}

uint8_t *keyStateMap() { return keyMap; }

// Platform codes 8 to 145 are their own device numbers: the table the drivers
// were written against covered that range, and no other numbering of it is
// known. The exceptions are the number pad (96 to 105), which reports the digit
// keys' numbers, and the sided modifiers, which have numbers of their own
// (right Control shares 145 with the key of that code). The generic Shift,
// Control and Alt codes have none: keyStateUpdate resolves them to a side.
int keyMapping(int code) {
    switch (code) {
    case VKEY_LSHIFT: return DEV_LSHIFT;
    case VKEY_RSHIFT: return DEV_RSHIFT;
    case VKEY_LCONTROL: return DEV_LCONTROL;
    case VKEY_RCONTROL: return DEV_RCONTROL;
    case VKEY_LMENU: return DEV_LALT;
    case VKEY_RMENU: return DEV_RALT;
    case VKEY_SHIFT:
    case VKEY_CONTROL:
    case VKEY_MENU: return 0;
    default: break;
    }
    if (code >= VKEY_NUMPAD0 && code <= VKEY_NUMPAD0 + 9) return numberPad[code - VKEY_NUMPAD0];
    if (code >= 8 && code <= 145) return code;
    return 0;
}

// `leftDown` and `rightDown` are the state of the two sided keys after the event.
// For a generic event that state is copied into both bits. When neither side is
// reported down on a press, the map decides: the right bit already set means the
// right key, anything else the left.
void keyStateUpdate(int code, int down, int leftDown, int rightDown) {
    if (!keyMap) return;
    int left = 0, right = 0;
    if (code == VKEY_SHIFT) { left = DEV_LSHIFT; right = DEV_RSHIFT; }
    else if (code == VKEY_CONTROL) { left = DEV_LCONTROL; right = DEV_RCONTROL; }
    else if (code == VKEY_MENU) { left = DEV_LALT; right = DEV_RALT; }
    if (left) {
        if (leftDown || rightDown) {
            setMapBit(left, leftDown);
            setMapBit(right, rightDown);
        } else if (down) {
            if (!mapBit(right)) setMapBit(left, 1);
        } else {
            setMapBit(left, 0);
            setMapBit(right, 0);
        }
        return;
    }
    int n = keyMapping(code);
    if (n) setMapBit(n, down);
}

int viewerKeyFromKeysym(unsigned long sym) {
    if (sym >= XK_a && sym <= XK_z) return static_cast<int>(sym - XK_a) + 'A';
    if (sym >= XK_A && sym <= XK_Z) return static_cast<int>(sym - XK_A) + 'A';
    if (sym >= XK_0 && sym <= XK_9) return static_cast<int>(sym - XK_0) + '0';
    if (sym >= XK_KP_0 && sym <= XK_KP_9) return static_cast<int>(sym - XK_KP_0) + VKEY_NUMPAD0;
    switch (sym) {
    case XK_space: return VKEY_SPACE;
    case XK_Escape: return VKEY_ESCAPE;
    case XK_Return:
    case XK_KP_Enter: return VKEY_RETURN;
    case XK_BackSpace: return VKEY_BACK;
    case XK_Tab: return VKEY_TAB;
    case XK_Left: return VKEY_LEFT;
    case XK_Up: return VKEY_UP;
    case XK_Right: return VKEY_RIGHT;
    case XK_Down: return VKEY_DOWN;
    case XK_KP_Add: return VKEY_ADD;
    case XK_KP_Subtract: return VKEY_SUBTRACT;
    case XK_Shift_L: return VKEY_LSHIFT;
    case XK_Shift_R: return VKEY_RSHIFT;
    case XK_Control_L: return VKEY_LCONTROL;
    case XK_Control_R: return VKEY_RCONTROL;
    case XK_Alt_L: return VKEY_LMENU;
    case XK_Alt_R: return VKEY_RMENU;
    case XK_slash:
    case XK_question: return VKEY_OEM_2;
    default: return 0;
    }
}

int viewerKeyHeld(int code) {
    switch (code) {
    case VKEY_SHIFT: return held[VKEY_LSHIFT] || held[VKEY_RSHIFT];
    case VKEY_CONTROL: return held[VKEY_LCONTROL] || held[VKEY_RCONTROL];
    case VKEY_MENU: return held[VKEY_LMENU] || held[VKEY_RMENU];
    default: return validCode(code) && held[code];
    }
}

void viewerDeliverKey(int code, int down, int repeat, int shift) {
    if (!validCode(code)) return;
    held[code] = down != 0;
    keyStateUpdate(code, down, 0, 0);
    // A Shift key's own event tells whether a Shift is down once it has happened.
    if (code == VKEY_LSHIFT || code == VKEY_RSHIFT) shift = viewerKeyHeld(VKEY_SHIFT);
    viewerKeyEvent(code, down, repeat, shift ? 1 : 0);
}
