// Stand-in for the model's deformer records until their owning module is in
// the tree: made on first use, zeroed, freed whole. Dropped when the real
// definitions arrive (they make, free and recompute these records).
#include <cstdlib>

#include "animation.h"
#include "model.h"

ModelDeformers *modelDeformersOf(Model *model) {
    if (!model) return nullptr;
    if (!model->deformers) model->deformers = static_cast<ModelDeformers *>(calloc(1, sizeof(ModelDeformers)));
    return model->deformers;
}

void modelDeformersFree(ModelDeformers *deformers) { free(deformers); }
