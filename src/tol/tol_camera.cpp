// Camera navigation: the camera stands at its position and looks at its
// interest; each command moves these two points or changes the field of
// view. Arithmetic in float, as the record holds it.
#include <cmath>
#include <cstring>

#include "animation.h"
#include "camera.h"
#include "dictionary.h"
#include "tol.h"
#include "tol_internal.h"

namespace {

constexpr float kZero = 0.0001f;  // a length below it counts as none

float length(const float v[3]) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

void sub(const float a[3], const float b[3], float out[3]) {
    for (int k = 0; k < 3; ++k) out[k] = a[k] - b[k];
}

// The camera record a call works on: the given element, or the scene's first
// camera; null (the work skipped) when there is none or it is no camera.
Camera *resolve(TOL_Scene *scene, const TOL_Elem *camera) {
    TOL_Elem first;
    const TOL_Elem *elem = camera;
    if (!elem) {
        elem = TOL_elemGetFirstInChap(scene->dict, CHP_CAMERAS, 0, &first);
        if (!elem) return nullptr;
    }
    if (tol_cameraVerify(scene, elem) != 0) return nullptr;
    Element *e = elemGet(dictGet(static_cast<int>(elem->dict)), static_cast<int>(elem->chapter),
                         static_cast<int>(elem->index));
    Camera *c = e ? static_cast<Camera *>(e->data) : nullptr;
    return c && c->active ? c : nullptr;
}

// The frame shared by the navigation calls: null scene reported, the scene
// made current for the work, a camera resolved by the camera rule.
template <typename Work>
TOL_Status navigate(TOL_Scene *scene, const TOL_Elem *camera, const char *caller, Work work) {
    if (!scene) return tol_report(16, caller);
    TolSceneFrame frame(scene);
    TOL_Status status = frame.status();
    if (status == 0)
        if (Camera *c = resolve(scene, camera)) work(*c);
    return frame.finish(status);
}

// Turns `moving` about `centre`: the shared arithmetic of orbit and interest
// orbit. `phiSign` is +1 for orbit, -1 for the interest orbit.
void orbitAbout(const float centre[3], float moving[3], float dTheta, float dPhi, float phiSign) {
    float d[3];
    sub(moving, centre, d);
    float r = length(d);
    if (r < kZero) return;
    float theta = std::fabs(d[0]) < kZero && std::fabs(d[2]) < kZero ? 0.0f : std::atan2(d[0], d[2]);
    float c = d[1] / r;
    c = c > 1.0f ? 1.0f : c < -1.0f ? -1.0f : c;
    float phi = std::acos(c);
    if (dTheta != 0.0f) theta -= dTheta;
    if (dPhi != 0.0f) {
        phi += phiSign * dPhi;
        // The camera stops short of the poles so that the view never flips.
        if (phi > 3.1315926535897933) phi = 3.1315928f;
        if (phi < 0.01f) phi = 0.01f;
    }
    moving[0] = centre[0] + r * std::sin(phi) * std::sin(theta);
    moving[1] = centre[1] + r * std::cos(phi);
    moving[2] = centre[2] + r * std::sin(phi) * std::cos(theta);
}

}  // namespace

TOL_Status TOL_cameraOrbit(TOL_Scene *scene, const TOL_Elem *camera, float dTheta, float dPhi) {
    return navigate(scene, camera, "TOL_cameraOrbit(): scene:", [&](Camera &c) {
        if (dTheta == 0.0f && dPhi == 0.0f) return;
        orbitAbout(c.interest, c.position, dTheta, dPhi, 1.0f);
    });
}

TOL_Status TOL_cameraIntOrbit(TOL_Scene *scene, const TOL_Elem *camera, float dTheta, float dPhi) {
    return navigate(scene, camera, "TOL_cameraIntOrbit(): scene:", [&](Camera &c) {
        if (dTheta == 0.0f && dPhi == 0.0f) return;
        orbitAbout(c.position, c.interest, dTheta, dPhi, -1.0f);
    });
}

TOL_Status TOL_cameraWalk(TOL_Scene *scene, const TOL_Elem *camera, float distance) {
    return navigate(scene, camera, "TOL_cameraWalk(): scene:", [&](Camera &c) {
        float hx = c.interest[0] - c.position[0], hz = c.interest[2] - c.position[2];
        float k = distance / std::sqrt(hx * hx + hz * hz);  // straight down: no guard, as users know it
        c.position[0] += k * hx;
        c.position[2] += k * hz;
        c.interest[0] += k * hx;
        c.interest[2] += k * hz;
    });
}

TOL_Status TOL_cameraElevate(TOL_Scene *scene, const TOL_Elem *camera, float distance) {
    return navigate(scene, camera, "TOL_cameraElevate(): scene:", [&](Camera &c) {
        c.position[1] += distance;
        c.interest[1] += distance;
    });
}

TOL_Status TOL_cameraResetTilt(TOL_Scene *scene, const TOL_Elem *camera) {
    return navigate(scene, camera, "TOL_cameraResetTilt(): scene:", [&](Camera &c) {
        float d[3];
        sub(c.interest, c.position, d);
        float h = std::sqrt(d[0] * d[0] + d[2] * d[2]);
        float k = length(d) / h;
        c.interest[0] = c.position[0] + k * d[0];
        c.interest[2] = c.position[2] + k * d[2];
        c.interest[1] = c.position[1];
    });
}

TOL_Status TOL_cameraPan(TOL_Scene *scene, const TOL_Elem *camera, float dx, float dy) {
    return navigate(scene, camera, "TOL_cameraPan(): scene:", [&](Camera &c) {
        if (dx == 0.0f && dy == 0.0f) return;
        float u[3];
        sub(c.interest, c.position, u);
        float r = length(u);
        if (r >= kZero)
            for (float &x : u) x /= r;
        // The height of the view at the interest: a drag across the window
        // moves the scene by the window.
        float s = 2.0f * r * std::tan(c.fieldOfView / 2.0f);
        float right[3] = {-u[2], 0.0f, u[0]};
        float lr = length(right);
        if (lr >= kZero)
            for (float &x : right) x /= lr;
        float up[3] = {right[1] * u[2] - right[2] * u[1], right[2] * u[0] - right[0] * u[2],
                       right[0] * u[1] - right[1] * u[0]};
        float lu = length(up);
        if (lu >= kZero)
            for (float &x : up) x = x * s * dy / lu;
        lr = length(right);
        if (lr >= kZero)
            for (float &x : right) x = x * -(s * c.aspect * dx) / lr;
        for (int k = 0; k < 3; ++k) {
            c.position[k] += right[k] + up[k];
            c.interest[k] += right[k] + up[k];
        }
    });
}

TOL_Status TOL_cameraZoom(TOL_Scene *scene, const TOL_Elem *camera, float direction) {
    return navigate(scene, camera, "TOL_cameraZoom(): scene:", [&](Camera &c) {
        if (direction >= 0.0f) {
            c.fieldOfView *= 0.9523809523809523f;
            if (c.fieldOfView < 0.05f) c.fieldOfView = 0.05f;
        } else {
            c.fieldOfView *= 1.05f;
            if (c.fieldOfView > 3.1f) c.fieldOfView = 3.1f;
        }
        c.focalLength = 0.5f * c.filmWidth / std::tan(c.fieldOfView / 2.0f);
    });
}

TOL_Status TOL_cameraDolly(TOL_Scene *scene, const TOL_Elem *camera, float distance) {
    return navigate(scene, camera, "TOL_cameraDolly(): scene:", [&](Camera &c) {
        float u[3];
        sub(c.interest, c.position, u);
        float r = length(u);
        if (r >= kZero)
            for (float &x : u) x /= r;
        float m[3] = {u[0] * distance, u[1] * distance, u[2] * distance};
        // Never through the interest.
        if (distance < 0.0f && r <= length(m)) return;
        for (int k = 0; k < 3; ++k) c.position[k] -= m[k];
    });
}

// ---------------------------------------------------------------------------
// The attribute store: saved cameras by their element index, newest first.

namespace {

struct StoredCamera {
    Camera copy;         // the record as stored
    int32_t key;         // the camera element's index in its chapter
    StoredCamera *next;  // older entries
};

StoredCamera *s_store = nullptr;

StoredCamera *storedFor(int32_t key) {
    for (StoredCamera *n = s_store; n; n = n->next)
        if (n->key == key) return n;
    return nullptr;
}

// The element a camera argument names, by the camera rule.
bool cameraElement(TOL_Scene *scene, const TOL_Elem *camera, TOL_Elem *out) {
    if (camera) {
        *out = *camera;
        return true;
    }
    return TOL_elemGetFirstInChap(scene->dict, CHP_CAMERAS, 0, out) != nullptr;
}

}  // namespace

TOL_Status TOL_cameraStoreAttributes(TOL_Scene *scene, const TOL_Elem *camera) {
    TOL_Elem elem{};
    if (scene && !cameraElement(scene, camera, &elem)) return 0;
    if (!scene) return tol_report(16, "TOL_cameraStoreAttributes(): scene:");
    TolSceneFrame frame(scene);
    TOL_Status status = frame.status();
    if (status == 0 && tol_cameraVerify(scene, &elem) == 0) {
        Element *e = elemGet(dictGet(static_cast<int>(elem.dict)), CHP_CAMERAS, static_cast<int>(elem.index));
        if (Camera *c = e ? static_cast<Camera *>(e->data) : nullptr) {
            StoredCamera *node = storedFor(static_cast<int32_t>(elem.index));
            if (!node) {
                node = new StoredCamera{*c, static_cast<int32_t>(elem.index), s_store};
                s_store = node;
            } else {
                node->copy = *c;
            }
        }
    }
    return frame.finish(status);
}

TOL_Status TOL_cameraRestoreAttributes(TOL_Scene *scene, const TOL_Elem *camera) {
    TOL_Elem elem{};
    if (scene && !cameraElement(scene, camera, &elem)) return 0;
    if (!scene) return tol_report(16, "TOL_cameraRestoreAttributes(): scene:");
    TolSceneFrame frame(scene);
    TOL_Status status = frame.status();
    if (status == 0 && tol_cameraVerify(scene, &elem) == 0) {
        Element *e = elemGet(dictGet(static_cast<int>(elem.dict)), CHP_CAMERAS, static_cast<int>(elem.index));
        Camera *c = e ? static_cast<Camera *>(e->data) : nullptr;
        const StoredCamera *node = storedFor(static_cast<int32_t>(elem.index));
        if (c && node) {
            if (c->kind == CAMERA_KIND_WORKING) {
                // A reset keeps the shape of the window: the aspect and the
                // four words of view set-up before it.
                Camera restored = node->copy;
                restored.aspect = c->aspect;
                memcpy(restored.upVector, c->upVector, sizeof restored.upVector);
                *c = restored;
                cameraViewUpdate(c, nullptr);
            } else if (c->kind != 2004 && c->kind != 2007 && c->kind != 2008 && c->kind != 2010) {
                *c = node->copy;
            }
        }
    }
    return frame.finish(status);
}
