// Frames per second of the empty frame loop: the viewer on the demo database,
// nothing to draw but the clear, run for a fixed number of frames by a script.
// Run under an X server, e.g.
//   xvfb-run -a -s "-screen 0 1280x1024x24" build-release/bin/frame_loop_bench
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "demo_frames.h"

namespace {

constexpr long kFrames = 3000;

void emptyLoop(benchmark::State &state, const char *processes) {
    demoFrameRate(state, kFrames, {"-p", processes});
}

}  // namespace

BENCHMARK_CAPTURE(emptyLoop, one_side, "1")->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(emptyLoop, two_sides, "2")->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
