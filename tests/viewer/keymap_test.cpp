// Keys: X keysyms to platform codes, device numbers, and the shared key-state
// map as a driver sees it through its own mapping of the object.
#include <X11/keysym.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform_doubles.h"
#include "viewer_platform.h"

TEST(KeyCodes, KeysymsBecomeThePlatformCodes) {
    EXPECT_EQ(viewerKeyFromKeysym(XK_a), 'A');
    EXPECT_EQ(viewerKeyFromKeysym(XK_A), 'A');
    EXPECT_EQ(viewerKeyFromKeysym(XK_z), 'Z');
    EXPECT_EQ(viewerKeyFromKeysym(XK_0), '0');
    EXPECT_EQ(viewerKeyFromKeysym(XK_9), '9');
    EXPECT_EQ(viewerKeyFromKeysym(XK_KP_0), 0x60);
    EXPECT_EQ(viewerKeyFromKeysym(XK_KP_9), 0x69);
    EXPECT_EQ(viewerKeyFromKeysym(XK_KP_Add), VKEY_ADD);
    EXPECT_EQ(viewerKeyFromKeysym(XK_KP_Subtract), VKEY_SUBTRACT);
    EXPECT_EQ(viewerKeyFromKeysym(XK_Left), VKEY_LEFT);
    EXPECT_EQ(viewerKeyFromKeysym(XK_Up), VKEY_UP);
    EXPECT_EQ(viewerKeyFromKeysym(XK_Right), VKEY_RIGHT);
    EXPECT_EQ(viewerKeyFromKeysym(XK_Down), VKEY_DOWN);
    EXPECT_EQ(viewerKeyFromKeysym(XK_space), VKEY_SPACE);
    EXPECT_EQ(viewerKeyFromKeysym(XK_Escape), VKEY_ESCAPE);
    EXPECT_EQ(viewerKeyFromKeysym(XK_Return), VKEY_RETURN);
    EXPECT_EQ(viewerKeyFromKeysym(XK_BackSpace), VKEY_BACK);
    EXPECT_EQ(viewerKeyFromKeysym(XK_Tab), VKEY_TAB);
    EXPECT_EQ(viewerKeyFromKeysym(XK_Shift_L), VKEY_LSHIFT);
    EXPECT_EQ(viewerKeyFromKeysym(XK_Shift_R), VKEY_RSHIFT);
    EXPECT_EQ(viewerKeyFromKeysym(XK_Control_L), VKEY_LCONTROL);
    EXPECT_EQ(viewerKeyFromKeysym(XK_Control_R), VKEY_RCONTROL);
    EXPECT_EQ(viewerKeyFromKeysym(XK_Alt_L), VKEY_LMENU);
    EXPECT_EQ(viewerKeyFromKeysym(XK_Alt_R), VKEY_RMENU);
    EXPECT_EQ(viewerKeyFromKeysym(XK_slash), VKEY_OEM_2);
    EXPECT_EQ(viewerKeyFromKeysym(XK_question), VKEY_OEM_2);
    // The top row's + and - are not the pad's, and unknown keys give nothing.
    EXPECT_EQ(viewerKeyFromKeysym(XK_plus), 0);
    EXPECT_EQ(viewerKeyFromKeysym(XK_minus), 0);
    EXPECT_EQ(viewerKeyFromKeysym(XK_F1), 0);
}

TEST(KeyCodes, DeviceNumbers) {
    EXPECT_EQ(keyMapping(7), 0);
    EXPECT_EQ(keyMapping(8), 8);
    EXPECT_EQ(keyMapping('A'), 'A');
    EXPECT_EQ(keyMapping(145), 145);
    EXPECT_EQ(keyMapping(146), 0);
    EXPECT_EQ(keyMapping(VKEY_OEM_2), 0);
    const int pad[10] = {46, 8, 14, 15, 22, 23, 30, 31, 38, 39};
    for (int i = 0; i < 10; ++i) EXPECT_EQ(keyMapping(VKEY_NUMPAD0 + i), pad[i]) << i;
    EXPECT_EQ(keyMapping(VKEY_LSHIFT), 5);
    EXPECT_EQ(keyMapping(VKEY_RSHIFT), 6);
    EXPECT_EQ(keyMapping(VKEY_LCONTROL), 3);
    EXPECT_EQ(keyMapping(VKEY_RCONTROL), 145);
    EXPECT_EQ(keyMapping(VKEY_LMENU), 143);
    EXPECT_EQ(keyMapping(VKEY_RMENU), 144);
    EXPECT_EQ(keyMapping(VKEY_SHIFT), 0);
    EXPECT_EQ(keyMapping(VKEY_CONTROL), 0);
    EXPECT_EQ(keyMapping(VKEY_MENU), 0);
}

namespace {

// Starts every case without the shared object and removes it after.
class KeyMap : public ::testing::Test {
protected:
    void SetUp() override { shm_unlink(KEY_STATE_MAP_NAME); }
    void TearDown() override { shm_unlink(KEY_STATE_MAP_NAME); }

    // The object as a driver sees it: its own descriptor and mapping.
    static uint8_t driverByte(int index) {
        int fd = shm_open(KEY_STATE_MAP_NAME, O_RDONLY, 0);
        if (fd < 0) return 0xEE;
        void *p = mmap(nullptr, 32, PROT_READ, MAP_SHARED, fd, 0);
        close(fd);
        if (p == MAP_FAILED) return 0xEE;
        uint8_t value = static_cast<uint8_t *>(p)[index];
        munmap(p, 32);
        return value;
    }
    static std::string bits() {
        std::string text;
        const uint8_t *map = keyStateMap();
        for (int n = 0; n < 256; ++n)
            if (map[n / 8] & (1 << (n % 8))) text += std::to_string(n) + " ";
        return text;
    }
};

}  // namespace

TEST_F(KeyMap, ANewObjectIsClearedAndAnOldOneKept) {
    ASSERT_EQ(keyStateMapOpen(), 1);
    struct stat st;
    int fd = shm_open(KEY_STATE_MAP_NAME, O_RDWR, 0);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(fstat(fd, &st), 0);
    EXPECT_EQ(st.st_size, 32);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(bits(), "");

    // A driver's bits survive the viewer's start.
    uint8_t byte = 0x81;
    ASSERT_EQ(pwrite(fd, &byte, 1, 3), 1);
    close(fd);
    ASSERT_EQ(keyStateMapOpen(), 1);
    EXPECT_EQ(bits(), "24 31 ");

    // An object someone created without a size counts as new.
    shm_unlink(KEY_STATE_MAP_NAME);
    fd = shm_open(KEY_STATE_MAP_NAME, O_CREAT | O_RDWR, 0600);
    close(fd);
    ASSERT_EQ(keyStateMapOpen(), 1);
    EXPECT_EQ(bits(), "");
    EXPECT_EQ(driverByte(31), 0);
}

TEST_F(KeyMap, PressesSetTheDeviceBitAndReleasesClearIt) {
    ASSERT_EQ(keyStateMapOpen(), 1);
    keyStateUpdate('A', 1, 0, 0);
    EXPECT_EQ(driverByte(8), 0x02);  // bit 65: byte 8, mask 1 << 1
    keyStateUpdate(VKEY_NUMPAD0, 1, 0, 0);
    EXPECT_EQ(driverByte(5), 0x40);  // the pad's 0 is device 46
    keyStateUpdate(VKEY_RCONTROL, 1, 0, 0);
    EXPECT_EQ(bits(), "46 65 145 ");
    keyStateUpdate('A', 0, 0, 0);
    keyStateUpdate(200, 1, 0, 0);  // no device number: nothing changes
    EXPECT_EQ(bits(), "46 145 ");
}

TEST_F(KeyMap, GenericModifiersFollowTheSidesOrTheMap) {
    ASSERT_EQ(keyStateMapOpen(), 1);
    keyStateUpdate(VKEY_SHIFT, 1, 1, 0);
    EXPECT_EQ(bits(), "5 ");
    keyStateUpdate(VKEY_SHIFT, 1, 1, 1);
    EXPECT_EQ(bits(), "5 6 ");
    keyStateUpdate(VKEY_SHIFT, 0, 0, 1);
    EXPECT_EQ(bits(), "6 ");
    // Neither side known down: the bit already set names the key.
    keyStateUpdate(VKEY_SHIFT, 1, 0, 0);
    EXPECT_EQ(bits(), "6 ");
    keyStateUpdate(VKEY_SHIFT, 0, 0, 0);
    EXPECT_EQ(bits(), "");
    keyStateUpdate(VKEY_CONTROL, 1, 0, 0);
    EXPECT_EQ(bits(), "3 ");
    keyStateUpdate(VKEY_MENU, 1, 0, 1);
    EXPECT_EQ(bits(), "3 144 ");
}

TEST_F(KeyMap, DeliveredKeysReachTheMapThenTheViewerAsGenericModifiers) {
    ASSERT_EQ(keyStateMapOpen(), 1);
    bwtest::inputLog.clear();
    viewerDeliverKey(VKEY_RSHIFT, 1, 0, 0);
    EXPECT_EQ(viewerKeyHeld(VKEY_RSHIFT), 1);
    EXPECT_EQ(viewerKeyHeld(VKEY_LSHIFT), 0);
    EXPECT_EQ(viewerKeyHeld(VKEY_SHIFT), 1);
    viewerDeliverKey('O', 1, 0, 1);
    viewerDeliverKey('O', 1, 1, 1);
    viewerDeliverKey(VKEY_LCONTROL, 1, 0, 1);
    EXPECT_EQ(bits(), "3 6 79 ");
    viewerDeliverKey(VKEY_RSHIFT, 0, 0, 1);
    viewerDeliverKey('O', 0, 0, 0);
    viewerDeliverKey(VKEY_LMENU, 1, 0, 0);
    EXPECT_EQ(bits(), "3 143 ");
    EXPECT_EQ(viewerKeyHeld(VKEY_SHIFT), 0);
    EXPECT_EQ(viewerKeyHeld(VKEY_CONTROL), 1);
    EXPECT_EQ(bwtest::inputLog,
              "key 16 down repeat=0 shift=1\n"
              "key 79 down repeat=0 shift=1\n"
              "key 79 down repeat=1 shift=1\n"
              "key 17 down repeat=0 shift=1\n"
              "key 16 up repeat=0 shift=0\n"
              "key 79 up repeat=0 shift=0\n"
              "key 18 down repeat=0 shift=0\n");
    viewerDeliverKey(VKEY_LCONTROL, 0, 0, 0);
    viewerDeliverKey(VKEY_LMENU, 0, 0, 0);
}
