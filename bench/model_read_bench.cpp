// Reading a large model: a mesh of 1,000,000 triangles written once, then
// (a) its bytes read from the page cache into memory and (b) modelFileRead of
// the same file. The counter read_ratio is (b)'s time over (a)'s; the reader
// should stay within 3 times the cost of fetching the bytes. A file this large
// is read by a helper thread while the mesh is decoded behind it.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "model.h"
#include "testdata.h"

namespace {

constexpr int32_t kQuadsU = 1000, kQuadsV = 500;  // two triangles per quad
constexpr int64_t kTriangles = int64_t{2} * kQuadsU * kQuadsV;

// The model file, written once per process.
class ModelFile {
public:
    ModelFile() {
        char pattern[] = "/tmp/model_read_bench.XXXXXX";
        if (mkdtemp(pattern)) dir_ = pattern;
        Model *root = modelNew("grid", MODEL_MESH, tdMakeGridMesh(kQuadsU, kQuadsV));
        if (!dir_.empty() && modelFileWritePath(path().c_str(), root)) {
            struct stat st;
            if (stat(path().c_str(), &st) == 0) size_ = st.st_size;
        }
        modelFree(root);
    }
    ~ModelFile() {
        unlink(path().c_str());
        rmdir(dir_.c_str());
    }
    std::string stem() const { return dir_ + "/grid"; }
    std::string path() const { return stem() + ".hrc"; }
    int64_t size() const { return size_; }

private:
    std::string dir_;
    int64_t size_ = 0;
};

const ModelFile &modelFile() {
    static ModelFile file;
    return file;
}

double g_rawSeconds = 0.0;  // mean time of (a), for the ratio reported by (b)

double since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Rates over the timed seconds, and the mean seconds of one read.
double report(benchmark::State &state, double seconds) {
    double reads = static_cast<double>(state.iterations());
    state.counters["MB_per_s"] = static_cast<double>(modelFile().size()) * reads / seconds / 1e6;
    state.counters["triangles_per_s"] = static_cast<double>(kTriangles) * reads / seconds;
    state.counters["file_MB"] = static_cast<double>(modelFile().size()) / 1e6;
    return seconds / reads;
}

void BM_ReadBytes(benchmark::State &state) {
    const ModelFile &file = modelFile();
    if (file.size() == 0) {
        state.SkipWithError("the model file could not be written");
        return;
    }
    std::vector<char> buffer(static_cast<size_t>(file.size()));
    double total = 0.0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        int fd = open(file.path().c_str(), O_RDONLY);
        size_t got = 0;
        for (ssize_t n; fd >= 0 && got < buffer.size() &&
                        (n = read(fd, buffer.data() + got, buffer.size() - got)) > 0;)
            got += static_cast<size_t>(n);
        if (fd >= 0) close(fd);
        benchmark::DoNotOptimize(buffer.data());
        benchmark::ClobberMemory();
        double seconds = since(start);
        state.SetIterationTime(seconds);
        total += seconds;
        if (got != buffer.size()) state.SkipWithError("short read");
    }
    g_rawSeconds = report(state, total);
}

void BM_ModelFileRead(benchmark::State &state) {
    const ModelFile &file = modelFile();
    if (file.size() == 0) {
        state.SkipWithError("the model file could not be written");
        return;
    }
    // Reads outside the time, as the bare copy's buffer is taken outside its
    // time: the first large allocations of a process wait for the kernel to
    // gather huge pages, for one read or a few, a cost of the process and not
    // of each read. Warm once two reads in a row take about as long.
    double previous = 0.0;
    for (int warm = 0; warm < 5; ++warm) {
        auto start = std::chrono::steady_clock::now();
        modelFree(modelFileRead(file.stem().c_str(), nullptr, MODEL_READ_NEW));
        double seconds = since(start);
        if (warm > 0 && seconds < previous * 1.2 && previous < seconds * 1.2) break;
        previous = seconds;
    }
    double total = 0.0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        Model *root = modelFileRead(file.stem().c_str(), nullptr, MODEL_READ_NEW);
        double seconds = since(start);
        state.SetIterationTime(seconds);
        total += seconds;
        if (!root || root->geometry.mesh->polygonCount != kTriangles)
            state.SkipWithError("the model did not read back whole");
        modelFree(root);  // the caller's business, outside the time
    }
    double mean = report(state, total);
    if (g_rawSeconds > 0.0) state.counters["read_ratio"] = mean / g_rawSeconds;
}

}  // namespace

BENCHMARK(BM_ReadBytes)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);
BENCHMARK(BM_ModelFileRead)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

BENCHMARK_MAIN();
