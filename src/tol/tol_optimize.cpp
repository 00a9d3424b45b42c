// The layer's entry points of the scene optimisation: each makes its scene
// current and hands the work to the display's merge.
#include "dictionary.h"
#include "tol.h"
#include "view.h"

TOL_Status TOL_sceneOptimizeMaterials(TOL_Scene *scene, int *mergedMaterials) {
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_sceneOptimizeMaterials():scn:");
    if (!mergedMaterials) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_sceneOptimizeMaterials():merged_mats:");
    *mergedMaterials = 0;
    TolSceneFrame frame(scene);
    TOL_Status status = frame.status();
    if (status == 0) *mergedMaterials = mergeMaterials(dictGet(static_cast<int>(scene->dict)), 0);
    return frame.finish(status);
}

TOL_Status TOL_sceneOptimizeTexture2D(TOL_Scene *scene, int *pictures, int *mergedPictures, int *memory) {
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_sceneOptimizeTexture2D():scn:");
    if (!pictures) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_sceneOptimizeTexture2D():tot_pics:");
    if (!mergedPictures) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_sceneOptimizeTexture2D():merged_pics:");
    if (!memory) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_sceneOptimizeTexture2D():tot_mem:");
    TolSceneFrame frame(scene);
    TOL_Status status = frame.status();
    if (status == 0)
        status = texturesMerge(dictGet(static_cast<int>(scene->dict)), pictures, mergedPictures, memory);
    else
        *pictures = *mergedPictures = *memory = 0;
    return frame.finish(status);
}
