// The cost of accumulation antialiasing: the viewer on the demo database at
// level 0 (one pass, no accumulation) against level 4 (eight jittered passes
// summed in the accumulation buffer), 300 frames each, start-up included.
// Run under an X server, e.g.
//   xvfb-run -a -s "-screen 0 1280x1024x24" build-release/bin/accum_bench
#include <benchmark/benchmark.h>

#include "demo_frames.h"

namespace {

constexpr long kFrames = 300;

void antialiased(benchmark::State &state, const char *level) {
    demoFrameRate(state, kFrames, {"-s", "720x486", "-a", level});
}

}  // namespace

BENCHMARK_CAPTURE(antialiased, level_0, "0")->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(antialiased, level_4, "4")->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
