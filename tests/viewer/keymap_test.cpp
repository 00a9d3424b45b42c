// Keys: X keysyms to platform codes, device numbers, and the shared key-state
// map as a driver sees it through its own mapping of the object.
#include <X11/keysym.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "platform_doubles.h"
#include "viewer_platform.h"

TEST(KeyCodes, KeysymsAndDeviceNumbers) {
    const std::pair<unsigned long, int> keys[] = {
        {XK_a, 'A'}, {XK_A, 'A'}, {XK_z, 'Z'}, {XK_0, '0'}, {XK_9, '9'}, {XK_KP_0, 0x60},
        {XK_KP_9, 0x69}, {XK_KP_Add, VKEY_ADD}, {XK_KP_Subtract, VKEY_SUBTRACT}, {XK_Left, VKEY_LEFT},
        {XK_Down, VKEY_DOWN}, {XK_space, VKEY_SPACE}, {XK_Escape, VKEY_ESCAPE}, {XK_Return, VKEY_RETURN},
        {XK_Shift_L, VKEY_LSHIFT}, {XK_Shift_R, VKEY_RSHIFT}, {XK_Control_R, VKEY_RCONTROL},
        {XK_Alt_L, VKEY_LMENU}, {XK_slash, VKEY_OEM_2}, {XK_question, VKEY_OEM_2},
        {XK_plus, 0}, {XK_minus, 0}, {XK_F1, 0}};  // the top row's + and - are not the pad's
    for (const auto &[sym, code] : keys) EXPECT_EQ(viewerKeyFromKeysym(sym), code) << sym;

    const std::pair<int, int> devices[] = {
        {7, 0}, {8, 8}, {'A', 'A'}, {145, 145}, {146, 0}, {VKEY_OEM_2, 0},
        {VKEY_NUMPAD0, 46}, {VKEY_NUMPAD0 + 1, 8}, {VKEY_NUMPAD0 + 5, 23}, {VKEY_NUMPAD0 + 9, 39},
        {VKEY_LSHIFT, 5}, {VKEY_RSHIFT, 6}, {VKEY_LCONTROL, 3}, {VKEY_RCONTROL, 145},
        {VKEY_LMENU, 143}, {VKEY_RMENU, 144}, {VKEY_SHIFT, 0}, {VKEY_CONTROL, 0}, {VKEY_MENU, 0}};
    for (const auto &[code, device] : devices) EXPECT_EQ(keyMapping(code), device) << code;
}

namespace {

// Starts every case without the shared object and removes it after.
class KeyMap : public ::testing::Test {
protected:
    void SetUp() override { shm_unlink(KEY_STATE_MAP_NAME); }
    void TearDown() override { shm_unlink(KEY_STATE_MAP_NAME); }

    // The bits set, as a driver sees them through its own mapping of the object.
    static std::string bits() {
        int fd = shm_open(KEY_STATE_MAP_NAME, O_RDONLY, 0);
        void *p = fd < 0 ? MAP_FAILED : mmap(nullptr, 32, PROT_READ, MAP_SHARED, fd, 0);
        if (fd >= 0) close(fd);
        if (p == MAP_FAILED) return "no map";
        std::string text;
        for (int n = 0; n < 256; ++n)
            if (static_cast<uint8_t *>(p)[n / 8] & (1 << (n % 8))) text += std::to_string(n) + " ";
        munmap(p, 32);
        return text;
    }
};

}  // namespace

TEST_F(KeyMap, ANewObjectIsClearedAndAnOldOneKept) {
    ASSERT_EQ(keyStateMapOpen(), 1);
    struct stat st;
    int fd = shm_open(KEY_STATE_MAP_NAME, O_RDWR, 0);
    ASSERT_EQ(fstat(fd, &st), 0);
    EXPECT_EQ(st.st_size, 32);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(bits(), "");

    uint8_t byte = 0x81;  // a driver's bits survive the viewer's start
    ASSERT_EQ(pwrite(fd, &byte, 1, 3), 1);
    close(fd);
    ASSERT_EQ(keyStateMapOpen(), 1);
    EXPECT_EQ(keyStateMap()[3], 0x81);

    // An object someone created without a size counts as new.
    shm_unlink(KEY_STATE_MAP_NAME);
    close(shm_open(KEY_STATE_MAP_NAME, O_CREAT | O_RDWR, 0600));
    ASSERT_EQ(keyStateMapOpen(), 1);
    EXPECT_EQ(bits(), "");
}

TEST_F(KeyMap, KeysSetTheirDeviceBitAndGenericModifiersFollowTheSides) {
    ASSERT_EQ(keyStateMapOpen(), 1);
    keyStateUpdate('A', 1, 0, 0);
    EXPECT_EQ(keyStateMap()[8], 0x02);  // bit 65: byte 8, mask 1 << 1
    keyStateUpdate(VKEY_NUMPAD0, 1, 0, 0);
    keyStateUpdate(VKEY_RCONTROL, 1, 0, 0);
    keyStateUpdate(200, 1, 0, 0);  // no device number
    EXPECT_EQ(bits(), "46 65 145 ");
    keyStateUpdate('A', 0, 0, 0);
    keyStateUpdate(VKEY_NUMPAD0, 0, 0, 0);
    keyStateUpdate(VKEY_RCONTROL, 0, 0, 0);

    keyStateUpdate(VKEY_SHIFT, 1, 1, 0);
    EXPECT_EQ(bits(), "5 ");
    keyStateUpdate(VKEY_SHIFT, 1, 1, 1);
    EXPECT_EQ(bits(), "5 6 ");
    keyStateUpdate(VKEY_SHIFT, 0, 0, 1);
    EXPECT_EQ(bits(), "6 ");
    keyStateUpdate(VKEY_SHIFT, 1, 0, 0);  // neither side known down: the map names the key
    EXPECT_EQ(bits(), "6 ");
    keyStateUpdate(VKEY_SHIFT, 0, 0, 0);
    keyStateUpdate(VKEY_CONTROL, 1, 0, 0);
    keyStateUpdate(VKEY_MENU, 1, 0, 1);
    EXPECT_EQ(bits(), "3 144 ");
}

TEST_F(KeyMap, DeliveredKeysReachTheMapThenTheViewer) {
    ASSERT_EQ(keyStateMapOpen(), 1);
    bwtest::inputLog.clear();
    viewerDeliverKey(VKEY_RSHIFT, 1, 0, 0);
    EXPECT_EQ(viewerKeyHeld(VKEY_RSHIFT) + viewerKeyHeld(VKEY_SHIFT) - viewerKeyHeld(VKEY_LSHIFT), 2);
    viewerDeliverKey('O', 1, 0, 1);
    viewerDeliverKey('O', 1, 1, 1);
    viewerDeliverKey(VKEY_LCONTROL, 1, 0, 1);
    EXPECT_EQ(bits(), "3 6 79 ");
    viewerDeliverKey(VKEY_RSHIFT, 0, 0, 1);
    viewerDeliverKey(VKEY_LMENU, 1, 0, 0);
    EXPECT_EQ(bits(), "3 79 143 ");
    EXPECT_EQ(viewerKeyHeld(VKEY_SHIFT), 0);
    EXPECT_EQ(bwtest::inputLog,
              "key 161 down repeat=0 shift=1\n"
              "key 79 down repeat=0 shift=1\n"
              "key 79 down repeat=1 shift=1\n"
              "key 162 down repeat=0 shift=1\n"
              "key 161 up repeat=0 shift=0\n"
              "key 164 down repeat=0 shift=0\n");
    for (int code : {int('O'), int(VKEY_LCONTROL), int(VKEY_LMENU)}) viewerDeliverKey(code, 0, 0, 0);
}
