// Picking through the layer: the scene made current, its camera found, the
// view's pick run, and the element that holds the picked model handed back.
#include <cstdlib>

#include "camera.h"
#include "dictionary.h"
#include "tol.h"
#include "view.h"

namespace {

// The element of the models chapter that holds `model`: the chapter walked
// from its first element, as a model may sit at another place in the list
// than the entry that drew it.
TOL_Elem *elementOfModel(const TOL_Scene *scene, const void *model) {
    Dictionary *dict = dictGet(static_cast<int>(scene->dict));
    TOL_Elem walk{};
    for (TOL_Elem *e = TOL_elemGetFirstInChap(scene->dict, CHP_MODELS, 0, &walk); e;
         e = TOL_elemGetNextInChap(e, 0, &walk)) {
        const Element *entry = elemGet(dict, CHP_MODELS, static_cast<int>(e->index));
        if (entry && entry->data == model) {
            TOL_Elem *out = static_cast<TOL_Elem *>(malloc(sizeof(TOL_Elem)));
            if (out) *out = walk;
            return out;
        }
    }
    return nullptr;
}

}  // namespace

TOL_Status TOL_modelPick(TOL_Scene *scene, const TOL_Elem *camera, BW_GraphicProps *gprops, TOL_Elem **elem,
                         int x1, int y1, int x2, int y2) {
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_modelPick(): scene:");
    if (!gprops) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_modelPick(): gprops:");
    if (!elem) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_modelPick(): elem:");
    *elem = nullptr;
    TolSceneFrame frame(scene);
    TOL_Status status = frame.status();
    if (status != 0) return frame.finish(status);
    // The given camera, else the one the scene draws with.
    const Camera *eye = nullptr;
    if (camera) {
        Element *entry = nullptr;
        if (tol_elemResolve(camera, -1, nullptr, nullptr, &entry, CHP_CAMERAS, "TOL_modelPick(): camera:", 1) ==
            0)
            eye = static_cast<const Camera *>(entry->data);
    } else if (void **slot = tol_sidCamera(scene)) {
        eye = static_cast<const Camera *>(*slot);
    }
    if (!eye) return frame.finish(0);
    const int32_t index = pickModelEntry(scene, eye, gprops, x1, y1, x2, y2);
    const Element *entry =
        index >= 0 ? elemGet(dictGet(static_cast<int>(scene->dict)), CHP_MODELS, index) : nullptr;
    if (entry && entry->data) *elem = elementOfModel(scene, entry->data);
    return frame.finish(0);
}
