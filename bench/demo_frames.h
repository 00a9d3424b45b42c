// Frames per second of the viewer on the demo database under an X server:
// bwdemo writes the database, a script runs `frames` frames and leaves, and
// each iteration's time is the whole run, start-up included.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "../tests/capture.h"
#include "../tests/integration/run_viewer.h"

inline void demoFrameRate(benchmark::State &state, long frames, const std::vector<std::string> &options) {
    if (!getenv("DISPLAY")) {
        state.SkipWithError("needs an X display");
        return;
    }
    bwtest::TempDir dir;
    bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
    dir.write("script.txt", "at " + std::to_string(frames) + "\nkey Escape\n");
    std::vector<std::string> args{"-R", BW_RSRC_DIR};
    args.insert(args.end(), options.begin(), options.end());
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        bwtest::RunResult r = bwtest::runViewer(args, dir.path(), {"BW_VIEWER_SCRIPT=script.txt"});
        double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (r.status != 0) {
            state.SkipWithError("the viewer did not end cleanly");
            return;
        }
        state.SetIterationTime(seconds);
        state.counters["frames_per_second"] = static_cast<double>(frames) / seconds;
    }
}
