// What every deformation of points shares: the rest copy it starts from, the
// mark that the display form must be made again, and the release of the
// evaluation's records of a node.
#include <cstdlib>

#include "animation.h"
#include "geometry.h"
#include "model.h"

namespace {

void restFree(DeformRest *rest) {
    if (!rest) return;
    free(rest->values);
    free(rest);
}

}  // namespace

const DeformRest *modelRestPoints(Model *model) {
    if (!model) return nullptr;
    if (model->rest && model->rest->type == model->type) return model->rest;
    restFree(model->rest);
    model->rest = nullptr;
    const int width = geometryPointWidth(model->type);
    const int32_t count = geometryPointCount(model->type, model->geometry.any);
    if (width == 0 || count == 0) return nullptr;
    auto *rest = static_cast<DeformRest *>(calloc(1, sizeof(DeformRest)));
    double *values = static_cast<double *>(malloc(sizeof(double) * static_cast<size_t>(count) * static_cast<size_t>(width)));
    if (!rest || !values) {
        free(rest);
        free(values);
        return nullptr;
    }
    geometryPointsRead(model->type, model->geometry.any, values);
    *rest = DeformRest{model->type, count, width, values};
    model->rest = rest;
    return rest;
}

int modelRestore(Model *model) {
    if (!model || !model->rest || model->rest->type != model->type) return 0;
    if (geometryPointCount(model->type, model->geometry.any) != model->rest->count) return 0;
    geometryPointsWrite(model->type, model->geometry.any, model->rest->values);
    return 1;
}

// Normals are made again once, by the next tessellation, however many
// deformations moved the points this frame.
void modelGeometryChanged(Model *model) {
    if (!model) return;
    model->displayFlags |= MODEL_NORMALS_STALE | MODEL_GEOMETRY_STALE;
    ++model->geometryStamp;
}

void modelExtraFree(Model *model) {
    if (!model) return;
    restFree(model->rest);
    model->rest = nullptr;
    shapeAnimFree(model->shapeAnim);
    model->shapeAnim = nullptr;
    clusterFree(model->clusterList);
    model->clusterList = nullptr;
    free(model->chain);
    model->chain = nullptr;
    envelopeDataFree(model->envelope);
    model->envelope = nullptr;
    modelDeformersFree(model->deformers);
    model->deformers = nullptr;
}
