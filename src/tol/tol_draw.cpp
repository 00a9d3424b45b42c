// The layer's entry points of the scene draw: each makes its scene current,
// checks its camera and hands the work to the draw.
#include <cmath>

#include "camera.h"
#include "dictionary.h"
#include "model.h"
#include "tol.h"
#include "view.h"

TOL_Status TOL_scnGetBbox(TOL_Scene *scene, const TOL_Elem *elem, int selectedOnly, float *bbmin,
                          float *bbmax) {
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_scnGetBbox(): scene:");
    if (!bbmin) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_scnGetBbox(): bbmin:");
    if (!bbmax) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_scnGetBbox(): bbmax:");
    TolSceneFrame frame(scene);
    TOL_Status status = frame.status();
    int found = 0;
    for (int k = 0; k < 3; ++k) {
        bbmin[k] = 1e10f;
        bbmax[k] = -1e10f;
    }
    Dictionary *dict = dictGet(static_cast<int>(scene->dict));
    Chapter *list = status == 0 ? dictChapter(dict, CHP_MODELS) : nullptr;
    int32_t first = 0, last = list ? list->elementCount - 1 : -1;
    if (elem) {
        bool model = elem->dict == scene->dict && elem->chapter == CHP_MODELS;
        first = model ? static_cast<int32_t>(elem->index) : 0;
        last = model ? first : -1;
    }
    for (int32_t i = first; list && i <= last && i < list->elementCount; ++i) {
        const Element &e = list->elements[i];
        const Model *m = static_cast<const Model *>(e.data);
        if (e.deleted || !m || !m->visible || (selectedOnly && !e.selected)) continue;
        if (m->type != MODEL_PATCH && m->type != MODEL_FACE && m->type != MODEL_MESH &&
            m->type != MODEL_META && m->type != MODEL_NURBS_SURFACE)
            continue;
        float lo[3], hi[3], corners[8][3];
        modelLocalBox(m, lo, hi);
        boxCorners(lo, hi, m->globalMatrix, corners);
        for (int c = 0; c < 8; ++c)
            for (int k = 0; k < 3; ++k) {
                bbmin[k] = std::fmin(bbmin[k], corners[c][k]);
                bbmax[k] = std::fmax(bbmax[k], corners[c][k]);
            }
        found = 1;
    }
    for (int k = 0; found && k < 3; ++k)
        if (bbmax[k] - bbmin[k] < 0.0001f) {
            bbmin[k] -= 0.1f;
            bbmax[k] += 0.1f;
        }
    status = frame.finish(status);
    return status ? status : found;
}

TOL_Status TOL_sceneDraw(TOL_Scene *scene, TOL_Elem *camera, BW_GraphicProps *gprops) {
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_sceneDraw(): scene:");
    if (!gprops) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_sceneDraw(): gprops:");
    TolSceneFrame frame(scene);
    TOL_Status status = frame.status();
    if (status == 0) {
        Element *entry = nullptr;
        void **slot = tol_sidCamera(scene);
        Camera *current = slot ? static_cast<Camera *>(*slot) : nullptr;
        if (camera)
            status = tol_elemResolve(camera, -1, nullptr, nullptr, &entry, CHP_CAMERAS,
                                     "TOL_sceneDraw(): camera:", 1);
        if (status == 0) {
            if (camera) status = drawAccumulated(scene, static_cast<Camera *>(entry->data), current, gprops);
            else status = sceneDrawPass(scene, current, 1, gprops);
        }
    }
    return frame.finish(status);
}
