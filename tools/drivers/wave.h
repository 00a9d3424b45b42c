// The waveforms of the wave driver, as functions of time, shared with its tests.
#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>

namespace wave {

// One DOF a waveform, in this order; DOF 5 is the gain the viewer may set.
enum Shape { Sine, Square, Triangle, Saw, Noise, ShapeCount };
constexpr int kGainDof = ShapeCount;
constexpr int kDofCount = ShapeCount + 1;

struct Params {
    double frequency = 1.0;  // cycles a second
    double amplitude = 1.0;  // peak value
    double phase = 0.0;      // degrees added to every waveform
    uint64_t seed = 1;       // of the noise
};

// A well-mixed 64-bit hash of a counter.
inline uint64_t mix(uint64_t x) {
    x += 0x9e3779b97f4a7c15ull;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ull;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebull;
    return x ^ (x >> 31);
}

// Value of `shape` at `time` seconds, before the gain. All shapes start at 0 in
// the first cycle's rising half, except the square (+amplitude) and the noise.
inline double value(Shape shape, const Params &p, double time) {
    double cycles = p.frequency * time + p.phase / 360.0;
    double x = cycles - std::floor(cycles);  // position in the cycle, [0, 1)
    double v = 0.0;
    switch (shape) {
    case Sine: v = std::sin(2.0 * std::numbers::pi * x); break;
    case Square: v = x < 0.5 ? 1.0 : -1.0; break;
    case Triangle: v = x < 0.25 ? 4.0 * x : x < 0.75 ? 2.0 - 4.0 * x : 4.0 * x - 4.0; break;
    case Saw: v = x < 0.5 ? 2.0 * x : 2.0 * x - 2.0; break;
    case Noise: {
        // Held for one cycle: a new value at each whole count of cycles.
        uint64_t step = uint64_t(int64_t(std::floor(cycles)));
        uint64_t bits = mix(p.seed ^ mix(step));
        v = double(bits >> 11) / double(1ull << 53) * 2.0 - 1.0;
        break;
    }
    default: break;
    }
    return p.amplitude * v;
}

}  // namespace wave
