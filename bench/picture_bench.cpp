// Picture decoding in megapixels a second, for the run-length coded form the
// writers make and for the plane-per-packet form; and the frame rate of the
// demo scene textured against shaded, the viewer run for a fixed number of
// frames by a script. Run in a tree without sanitizers, the frame rates
// under an X server, e.g.
//   xvfb-run -a -s "-screen 0 1280x1024x24" build-rel/bin/picture_bench
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "demo_frames.h"
#include "fileio.h"

namespace {

constexpr int kSide = 2048;
constexpr long kFrames = 600;

// A picture of `kind`: 0 flat areas of a drawing (long runs), 1 a smooth
// photograph with grain (mostly literal pixels), 2 a mix of both by bands.
std::string writePicture(const bwtest::TempDir &dir, int kind, int mode) {
    std::vector<uint8_t> planes[3];
    PictureInfo p{};
    p.width = p.height = kSide;
    p.ratio = 1.0f;
    uint32_t seed = 12345;
    for (int k = 0; k < 3; ++k) {
        planes[k].resize(static_cast<size_t>(kSide) * kSide);
        p.planes[k] = planes[k].data();
    }
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x) {
            seed = seed * 1664525u + 1013904223u;
            const bool flat = kind == 0 || (kind == 2 && (y / 64) % 2 == 0);
            const int grain = flat ? 0 : static_cast<int>(seed >> 29);
            const size_t at = static_cast<size_t>(y) * kSide + x;
            planes[0][at] = static_cast<uint8_t>(flat ? (x / 256) * 30 : (x / 8 + grain) & 255);
            planes[1][at] = static_cast<uint8_t>(flat ? (y / 256) * 30 : (y / 8 + grain) & 255);
            planes[2][at] = static_cast<uint8_t>(flat ? 128 : ((x + y) / 16 + grain) & 255);
        }
    std::string path = dir / ("p" + std::to_string(kind) + "_" + std::to_string(mode) + ".pic");
    picWriteImage(path.c_str(), &p, mode);
    return path;
}

void decode(benchmark::State &state, int kind, int mode) {
    bwtest::TempDir dir;
    const std::string path = writePicture(dir, kind, mode);
    for (auto _ : state) {
        PictureInfo info{};
        if (!picRead(path.c_str(), &info)) {
            state.SkipWithError("the picture does not read");
            return;
        }
        benchmark::DoNotOptimize(info.planes[0]);
        picFree(&info);
    }
    state.counters["Mpixel_per_s"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kSide * kSide / 1e6,
                           benchmark::Counter::kIsRate);
}

// Frames per second of the demo in display mode `mode` (-d 2 shaded, 3 textured).
void demoFrames(benchmark::State &state, const char *mode) {
    demoFrameRate(state, kFrames, {"-d", mode});
}

}  // namespace

BENCHMARK_CAPTURE(decode, runs_drawing, 0, PIC_WRITE_RUNS)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, runs_photograph, 1, PIC_WRITE_RUNS)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, runs_mixed, 2, PIC_WRITE_RUNS)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decode, planes_photograph, 1, PIC_WRITE_PLANES)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(demoFrames, shaded, "2")->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(demoFrames, textured, "3")->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
