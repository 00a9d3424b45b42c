// Fuzz target: the channel file readers. An input beginning with
// "CHANNEL_DRIVER" or the header "SDRV" is read as a driver configuration
// file beside a driver executable; any other input as a channel setup file,
// loading its drivers from a driver directory that holds that same driver.
// Both readers take paths: the input goes through a scratch file.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bw_env.h"
#include "channel.h"
#include "fuzz_scratch.h"

namespace {

std::string g_dir;    // the scratch directory, also the driver directory
std::string g_setup;  // the setup file
std::string g_drv;    // the driver's configuration
std::string g_exe;    // the driver's executable

bool startsWith(const uint8_t *data, size_t size, const char *word) {
    const size_t n = strlen(word);
    return size >= n && memcmp(data, word, n) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::scratchInit("fuzz_channel");
    g_dir = fuzz::scratchDir();
    g_setup = fuzz::scratch("setup.chn");
    g_exe = fuzz::scratch("wave");
    g_drv = g_exe + ".drv";
    const char drv[] = "CHANNEL_DRIVER 1.0\nDOF_NUM 2\nDOF_TYPE 0 I ON\nDOF_TYPE 1 O ON\n_END\n";
    if (!fuzz::writeFile(g_exe, reinterpret_cast<const uint8_t *>("#!/bin/sh\n"), 10) || chmod(g_exe.c_str(), 0755) != 0 ||
        !fuzz::writeFile(g_drv, reinterpret_cast<const uint8_t *>(drv), sizeof drv - 1)) {
        perror("fuzz_channel: scratch files");
        abort();
    }
    setenv("BW_CHNLDRIVER", g_dir.c_str(), 1);
    envReset();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (startsWith(data, size, "CHANNEL_DRIVER") || startsWith(data, size, "SDRV")) {
        if (!fuzz::writeFile(g_drv, data, size)) return 0;
        ChannelDriver driver;
        driverFileRead(g_dir.c_str(), "wave", &driver);
        return 0;
    }
    if (!fuzz::writeFile(g_setup, data, size)) return 0;
    ChannelSetup *setup = channelSetupCreate(4);
    channelFileRead(g_setup.c_str(), setup, 1);
    channelSetupFree(setup);
    return 0;
}
