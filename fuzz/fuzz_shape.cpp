// Fuzz target: the readers of shape (.shp) and cluster (.cls) files, and one
// frame of shape and cluster animation over what they give. An input that
// does not start with a binary header gets one in front, of the kind its
// first byte chooses, so that most inputs reach the records. The model is a
// mesh, a spline or a patch by the input's length, so every point form runs.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "animation.h"
#include "fileio.h"
#include "geometry.h"
#include "model.h"
#include "tol.h"
#include "fuzz_scratch.h"

namespace {

std::string g_path;  // the file each input is written to

Model *target(size_t size) {
    switch (size % 3) {
        case 0: return modelNew("m", MODEL_MESH, meshMakeCube(1.0f));
        case 1: return modelNew("s", MODEL_SPLINE, splineMakeSquare(1.0f));
        default: return modelNew("p", MODEL_PATCH, patchMakeGrid(3, 3, 1.0f));
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_modelExtraFree = modelExtraFree;
    fuzz::readerInit("fuzz_shape");
    g_path = fuzz::scratch("a.key");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    FILE *f = fopen(g_path.c_str(), "wb");
    if (!f) return 0;
    const uint32_t id = size < 4 ? 0 : uint32_t(data[0]) << 24 | uint32_t(data[1]) << 16 | uint32_t(data[2]) << 8 | data[3];
    const bool ascii = size >= 4 && std::string(reinterpret_cast<const char *>(data), 4) == "CLUS";
    bool shapes = id == BIN_ID_SHAPE_KEYS;
    bool written = true;
    if (!binIsFileId(id) && !ascii) {
        shapes = data[0] & 1;
        BinWriter w;
        binWriterAttach(w, f, g_path.c_str());
        binWriteHeader(w, shapes ? BIN_ID_SHAPE_KEYS : BIN_ID_CLUSTER_KEYS, BIN_VERSION, nullptr);
        written = !w.failed;
    }
    written = written && fwrite(data, 1, size, f) == size;
    if (fclose(f) != 0 || !written) return 0;

    Model *model = target(size);
    if (!model) return 0;
    Fcurve *curve = fcurveCreate(201, 0);
    UpdateSource source{CHP_ANIMATION, RELGR_PARAM, 0, curve, 1, nullptr};
    UpdateRecord record{};
    record.data = model;
    record.sourceCount = 1;
    record.sources = &source;
    static const float keyValues[] = {-2.0f, 0.0f, 0.5f, 1.75f, 1e9f};
    if (shapes) {
        ShapeKeys *keys = shapeFileRead(g_path.c_str(), model);
        if (keys && shapeAnimAttach(model, keys)) {
            record.relation = 200;
            for (float v : keyValues) {
                curve->lastValue = v;  // a curve without keys gives the value left in it
                animShapeUpdate(&record, 0.0f);
            }
        }
    } else {
        Cluster *chain = clusterFileRead(g_path.c_str(), model);
        if (chain && clusterAttach(model, chain)) {
            record.relation = 700;
            for (float v : keyValues) {
                curve->lastValue = v;
                clusterAnimUpdate(&record, 0.0f);
            }
        }
    }
    fcurveFree(curve);
    modelFree(model);
    return 0;
}
