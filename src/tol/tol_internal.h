// Steps of the layer's start that live beside the records they fill.
#pragma once

#include "tol.h"

TOL_Status tol_coreInit();             // the first dictionary, current on this thread
TOL_Status tol_defaultObjectsCreate(); // select lists and the default camera
TOL_Status tol_sidCreate();            // the per-scene record with the initial scene's rows

// The frame of a TOL_ call that names a scene: the scene is made the calling
// thread's current one for the call, and the previous one is put back by finish().
class TolSceneFrame {
public:
    explicit TolSceneFrame(TOL_Scene *scene) { status_ = tol_sceneSwapIn(scene, &saved_, &swapped_); }
    TolSceneFrame(const TolSceneFrame &) = delete;
    TolSceneFrame &operator=(const TolSceneFrame &) = delete;
    TOL_Status status() const { return status_; }  // the swap's own result
    bool swapped() const { return swapped_ != 0; }   // another scene was current before
    // The work's status if that is not 0, else the swap back's.
    TOL_Status finish(TOL_Status work) {
        if (swapped_) {
            TOL_Status back = tol_sceneSwapIn(&saved_, nullptr, &swapped_);
            if (work == 0) work = back;
        }
        return work;
    }

private:
    TOL_Scene saved_{};
    uint16_t swapped_ = 0;
    TOL_Status status_ = 0;
};
