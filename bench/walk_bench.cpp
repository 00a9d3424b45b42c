// Walking on the demo scene: the camera work of one step of the walk loop in
// process (two copies of the scene, so the mirror counts), and the frame rate
// of the whole viewer with no mode held, with a zoom button held, and inside
// the walk loop. Frame rates come from two runs of different lengths, so that
// start-up drops out. Run under an X server, e.g.
//   xvfb-run -a -s "-screen 0 1280x1024x24" build-release/bin/walk_bench
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "../tests/capture.h"
#include "../tests/integration/run_viewer.h"
#include "tol.h"
#include "viewer.h"

namespace {

// The demo database, written once for the whole run.
const bwtest::TempDir &demo() {
    static bwtest::TempDir dir;
    static bool written = bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path()).status == 0;
    (void)written;
    return dir;
}

void walkStepCamera(benchmark::State &state) {
    static bool loaded = [] {
        viewerInitDefaults();
        viewer.parallel = 1;
        ViewerOptions options;
        std::string db = demo() / "demo";
        options.dbPath = db.c_str();
        options.resourcePath = BW_RSRC_DIR;
        bwtest::OutputCapture quiet;
        return viewerStartup(options) == 1;
    }();
    if (!loaded) {
        state.SkipWithError("the demo scene did not load");
        return;
    }
    // A step with the cursor a third of the window above and right of the
    // press point, at a frame time of 2 ms: turn, walk, and the other copy.
    const float qx = 1.0f / 9.0f, qy = 1.0f / 9.0f, dt = 0.002f;
    for (auto _ : state) {
        TOL_Scene *scene = &viewer.sceneCtx[viewer.drawIndex];
        TOL_cameraIntOrbit(scene, nullptr, qx * dt * 3.14159265f, 0.0f);
        TOL_cameraWalk(scene, nullptr, viewer.walkSpeed * qy * dt);
        cameraMirror();
    }
}

// Seconds for a run of the viewer on the demo with `script`.
double runSeconds(const std::string &script, bool *ok) {
    const bwtest::TempDir &dir = demo();
    dir.write("script.txt", script);
    auto start = std::chrono::steady_clock::now();
    bwtest::RunResult r = bwtest::runViewer({"-R", BW_RSRC_DIR, "-s", "720x486"}, dir.path(),
                                            {"BW_VIEWER_SCRIPT=script.txt", "LIBGL_ALWAYS_SOFTWARE=1"});
    *ok = r.status == 0;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

enum Held { NOTHING, ZOOM_BUTTON, WALKING };

// The script of `frames` frames with the mode held from frame 4 to the end.
std::string heldScript(Held held, long frames) {
    std::string start, end = "at " + std::to_string(frames) + "\n";
    if (held == ZOOM_BUTTON) {
        // Zooming out and in by turns keeps the view from running to a limit.
        start = "at 3\npress z\nbutton down middle 360 243\nbutton down right 360 243\n";
        end += "button up middle\nbutton up right\nrelease z\n";
    } else if (held == WALKING) {
        // One drag: the walk loop runs the frames until the release is due.
        start = "at 3\nkey W\nbutton down left 360 243\nat 4\ndrag 380 263\n";
        end += "button up left\n";
    }
    return start + end + "at " + std::to_string(frames + 1) + "\nkey Escape\n";
}

void frameRate(benchmark::State &state, Held held) {
    if (!getenv("DISPLAY")) {
        state.SkipWithError("needs an X display");
        return;
    }
    const long shortRun = 200, longRun = 2200;
    for (auto _ : state) {
        bool okShort = false, okLong = false;
        double a = runSeconds(heldScript(held, shortRun), &okShort);
        double b = runSeconds(heldScript(held, longRun), &okLong);
        if (!okShort || !okLong) {
            state.SkipWithError("the viewer did not end cleanly");
            return;
        }
        state.SetIterationTime(b - a);
        state.counters["frames_per_second"] = static_cast<double>(longRun - shortRun) / (b - a);
        state.counters["ms_per_frame"] = 1000.0 * (b - a) / static_cast<double>(longRun - shortRun);
    }
}

}  // namespace

BENCHMARK(walkStepCamera);
BENCHMARK_CAPTURE(frameRate, no_mode, NOTHING)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(frameRate, zoom_button_held, ZOOM_BUTTON)
    ->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(frameRate, walk_loop, WALKING)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
