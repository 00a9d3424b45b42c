// The osc driver on an arena of the viewer's side, fed and read over UDP on the
// loopback address by liblo in the test.
#include <gtest/gtest.h>

#ifdef DRIVER_BIN
#include <lo/lo.h>
#include <unistd.h>

#include <atomic>
#include <fstream>

#include "driver_run.h"

namespace {

// A UDP port free a moment ago.
std::string freePort() {
    lo_server s = lo_server_new(nullptr, nullptr);
    std::string port = std::to_string(lo_server_get_port(s));
    lo_server_free(s);
    return port;
}

// The last "/out1 f" received.
std::atomic<float> gOut1{-1.0f};
int onOut1(const char *, const char *, lo_arg **argv, int, lo_message, void *) {
    gOut1.store(argv[0]->f);
    return 0;
}

}  // namespace

TEST(OscDriver, NumbersSentToADofNameArriveInItsSlotAndOutputsGoToTheSendAddress) {
    lo_server_thread receiver = lo_server_thread_new(nullptr, nullptr);
    ASSERT_NE(receiver, nullptr);
    lo_server_thread_add_method(receiver, "/out1", "f", onOut1, nullptr);
    lo_server_thread_start(receiver);
    const std::string listen = freePort();

    // The driver is started as the viewer starts it, with only its own words:
    // its settings come from the custom file beside the executable.
    bwtest::TempDir bin;
    const std::string exe = bin.path() + "/osc";
    ASSERT_EQ(symlink(DRIVER_BIN, exe.c_str()), 0);
    std::ofstream(exe + ".cfg") << "# the test's ports\n-port " << listen << "\n-send 127.0.0.1:"
                                << lo_server_thread_get_port(receiver) << "\n";
    {
        bwtest::DriverRun run(exe, 12);
        ASSERT_TRUE(run.started());
        lo_address to = lo_address_new("127.0.0.1", listen.c_str());
        auto send = [&] {
            lo_send(to, "/in3", "f", 0.75f);
            lo_send(to, "/in5", "i", 4);
            lo_send(to, "/in6", "s", "not a number");
            lo_send(to, "/out0", "f", 9.0f);  // an output: not settable from outside
        };
        EXPECT_TRUE(run.turnUntil([&] { return run.slot(3).value == 0.75f && run.slot(5).value == 4.0f; },
                                  send));
        EXPECT_EQ(run.slot(3).active, 1u);
        EXPECT_EQ(run.slot(0).active, 0u) << "an input nothing was sent to stays unused";
        EXPECT_EQ(run.slot(6).active, 0u);
        EXPECT_EQ(run.slot(8).value, 0.0f);

        run.setOutput(9, 2.5f);
        EXPECT_TRUE(run.turnUntil([] { return gOut1.load() == 2.5f; }));
        lo_address_free(to);
    }
    lo_server_thread_free(receiver);
}

TEST(OscDriver, ABadSendAddressIsRefusedOnTheCommandLine) {
    const std::string cmd = std::string(DRIVER_BIN) + " -send nohostport 2>/dev/null";
    EXPECT_EQ(WEXITSTATUS(system(cmd.c_str())), 2);
    const std::string port = std::string(DRIVER_BIN) + " -port 70000 2>/dev/null";
    EXPECT_EQ(WEXITSTATUS(system(port.c_str())), 2);
}

#else
TEST(OscDriver, Skipped) { GTEST_SKIP() << "osc driver not built: pkg-config module liblo not found"; }
#endif
