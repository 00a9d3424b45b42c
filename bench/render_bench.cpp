// Frames per second of bwrender against the windowed viewer at the same size,
// on the demo scene playing: the viewer plays the sequence from its first frame
// under an X server, bwrender writes the same number of frames as PNG files
// with no display. Each iteration's time is the whole run, start-up included.
// Run in the release tree under an X server, e.g.
//   xvfb-run -a -s "-screen 0 1920x1200x24" build-release/bin/render_bench
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "../tests/capture.h"
#include "../tests/integration/run_viewer.h"

namespace {

constexpr long kFrames = 100;  // the demo's play range holds at least these

struct Size {
    int width, height;
    std::string text() const { return std::to_string(width) + "x" + std::to_string(height); }
};

const Size sizes[] = {{720, 486}, {1280, 720}};

// Runs `run` once per iteration and reports frames per second.
template <typename Run> void timeRuns(benchmark::State &state, Run run) {
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        if (!run()) {
            state.SkipWithError("the program did not end cleanly");
            return;
        }
        double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);
        state.counters["frames_per_second"] = static_cast<double>(kFrames) / seconds;
    }
}

void viewer(benchmark::State &state) {
    if (!getenv("DISPLAY")) {
        state.SkipWithError("needs an X display");
        return;
    }
    const Size size = sizes[state.range(0)];
    bwtest::TempDir dir;
    bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
    // Right starts the sequence at frame 2 of the loop; one frame of the
    // sequence is drawn per loop frame.
    dir.write("script.txt", "at 2\nkey Right\nat " + std::to_string(kFrames + 2) + "\nkey Escape\n");
    timeRuns(state, [&] {
        return bwtest::runViewer({"-R", BW_RSRC_DIR, "-S", "demo", "-s", size.text()}, dir.path(),
                                 {"BW_VIEWER_SCRIPT=script.txt"})
                   .status == 0;
    });
}

void render(benchmark::State &state, const char *context) {
    const Size size = sizes[state.range(0)];
    bwtest::TempDir dir;
    bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
    timeRuns(state, [&] {
        return bwtest::runProgram(BW_BWRENDER_BIN,
                                  {"demo", "demo", "--frames", "1:" + std::to_string(kFrames), "--size",
                                   size.text(), "--out", "frames", "--context", context, "-R", BW_RSRC_DIR},
                                  dir.path(), {"DISPLAY"})
                   .status == 0;
    });
}

}  // namespace

BENCHMARK(viewer)->DenseRange(0, 1)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(render, osmesa, "osmesa")->DenseRange(0, 1)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(render, egl, "egl")->DenseRange(0, 1)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
