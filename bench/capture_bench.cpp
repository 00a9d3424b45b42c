// What a capture run adds to the update side: 8 drivers of 32 DOFs (the
// shipped wave driver behind a 32-DOF configuration) connected to 256 models,
// one channelRunList of the main list a frame. The aim is under 0.5 ms.
// Also the cost of recording a take meanwhile: the drivers keep their samples
// in memory and write at the end, so a recording frame should cost the same.
// Run in a tree without sanitizers.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "model.h"
#include "tol.h"

namespace {

constexpr int kDrivers = 8;
constexpr int kDofs = 32;
constexpr int kModels = kDrivers * kDofs;

struct CaptureRig {
    std::string dir;                // driver directory and take directory
    TOL_Scene scene{};
    Dictionary *dict = nullptr;
    ChannelSetup *setup = nullptr;
    std::vector<Model *> models;
    bool ok = false;

    explicit CaptureRig(bool takes) : dir(workDir()) {
        std::filesystem::remove_all(dir + "/bench.CHD");
        if (TOL_sceneCreate(&scene) != 0 || TOL_sceneSetCurrent(&scene) != 0) return;
        dict = dictGet(static_cast<int>(scene.dict));
        setup = channelSetupCreate(kDrivers);
        for (int i = 0; i < kDrivers; ++i) {
            ChannelDriver d;
            if (!driverFileRead(dir.c_str(), "wave32", &d)) return;
            channelSetupAddDriver(setup, d);
        }
        for (int k = 0; k < kModels; ++k) {
            char name[32], text[128];
            snprintf(name, sizeof name, "m%03d", k);
            Model *m = modelNew(name, MODEL_MESH, meshMakeCube(1.0f));
            modelGlobalUpdate(nullptr, m, 1);
            m->elementIndex = elemAdd(dict, CHP_MODELS, elemNameParse(name, nullptr, 0), m, nullptr, 0, 0);
            models.push_back(m);
            const int driver = k / kDofs, dof = k % kDofs;
            if (driver == 0) snprintf(text, sizeof text, "%s.transx = 1 * CHN wave32.DOF%d + 0", name, dof);
            else snprintf(text, sizeof text, "%s.transx = 1 * CHN wave32_%d.DOF%d + 0", name, driver, dof);
            channelSetupAddConnection(setup, CHANNEL_CONN_INPUT, text);
        }
        if (takes) {
            snprintf(setup->takeDir, sizeof setup->takeDir, "%s", dir.c_str());
            snprintf(setup->takeName, sizeof setup->takeName, "bench");
            setup->takeEnable = 1;
        }
        channelRunInit(setup, CHANNEL_MODE_CONTROL, 0);
        ok = channelRunStart(setup) == 1 && (!takes || takeRecordStart(setup, "bench", 0.0) == 1);
    }
    ~CaptureRig() {
        if (setup) {
            takeRecordStop(setup);
            channelRunClose(setup);
            channelRunStop(setup);
            channelSetupFree(setup);
        }
        for (Model *m : models) modelFree(m);
    }

    // One directory for the program: the arena's (read once from TMPDIR), the
    // driver's and the takes'. The layer starts once too.
    static const std::string &workDir() {
        static const std::string made = [] {
            char pattern[] = "/tmp/bwcapture.XXXXXX";
            std::string dir = mkdtemp(pattern);
            setenv("TMPDIR", dir.c_str(), 1);
            // A 32-DOF driver: the wave executable under another name.
            std::filesystem::create_symlink(WAVE_DRIVER, dir + "/wave32");
            std::ofstream drv(dir + "/wave32.drv");
            drv << "CHANNEL_DRIVER 1.0\nDOF_NUM " << kDofs << "\n";
            for (int d = 0; d < kDofs; ++d) drv << "DOF_TYPE " << d << " I ON\n";
            drv << "_END\n";
            TOL_Init(BW_RSRC_DIR, 0, TOL_SDK_VERSION);
            static std::string removed = dir;
            atexit([] { std::filesystem::remove_all(removed); });
            return dir;
        }();
        return made;
    }
};

void runCapture(benchmark::State &state, bool takes) {
    CaptureRig rig(takes);
    if (!rig.ok) {
        state.SkipWithError("the capture did not start");
        return;
    }
    for (auto _ : state)
        if (!channelRunList(rig.setup, rig.dict, &rig.setup->mainList)) {
            state.SkipWithError("the run stopped");
            return;
        }
    state.counters["records"] = double(rig.setup->mainList.count);
}

void BM_CaptureFrame(benchmark::State &state) { runCapture(state, false); }
BENCHMARK(BM_CaptureFrame)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_CaptureFrameRecordingATake(benchmark::State &state) { runCapture(state, true); }
BENCHMARK(BM_CaptureFrameRecordingATake)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
