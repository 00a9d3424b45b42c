// Frames per second of the empty frame loop: the viewer on the demo database,
// nothing to draw but the clear, run for a fixed number of frames by a script.
// Run under an X server, e.g.
//   xvfb-run -a -s "-screen 0 1280x1024x24" build/bin/frame_loop_bench
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "../tests/capture.h"
#include "../tests/integration/run_viewer.h"

namespace {

constexpr long kFrames = 3000;

void emptyLoop(benchmark::State &state, const char *processes) {
    if (!getenv("DISPLAY")) {
        state.SkipWithError("needs an X display");
        return;
    }
    bwtest::TempDir dir;
    bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
    dir.write("script.txt", "at " + std::to_string(kFrames) + "\nkey Escape\n");
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        bwtest::RunResult r = bwtest::runViewer({"-R", BW_RSRC_DIR, "-p", processes}, dir.path(),
                                                {"BW_VIEWER_SCRIPT=script.txt"});
        double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (r.status != 0) {
            state.SkipWithError("the viewer did not end cleanly");
            return;
        }
        state.SetIterationTime(seconds);
        state.counters["frames_per_second"] = static_cast<double>(kFrames) / seconds;
    }
}

}  // namespace

BENCHMARK_CAPTURE(emptyLoop, one_side, "1")->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(emptyLoop, two_sides, "2")->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
