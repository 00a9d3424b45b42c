// Camera navigation: the camera stands at its position and looks at its
// interest; each command moves these two points or changes the field of
// view. Arithmetic in float, as the record holds it.
#include <cmath>
#include <cstring>

#include "animation.h"
#include "camera.h"
#include "dictionary.h"
#include "geometry.h"
#include "graphic.h"
#include "model.h"
#include "tol.h"
#include "tol_internal.h"
#include "view.h"

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
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, caller);
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
// Framing: the camera keeps its direction and slides so that every point of
// the models falls inside the view, with a tenth of the distance to spare.

namespace {

// The camera frame of a fit: rows side, up, back and the eye, as
// cameraViewUpdate builds them. Its inverse takes a world point into camera
// coordinates, where the view looks along -z.
struct FitFrame {
    float axis[3][3];      // side, up, back
    float origin[3];       // where the camera stands
    float tx, ty;          // half-view tangents across and up
    float shear[2];        // window centre off the axis, per unit of depth (shifted lens)
    float best;            // how far back along the fit line the eye must go
    int points;            // points seen
};

void fitPoint(FitFrame &f, const float local[3], const float m[4][4]) {
    float w[3];
    for (int k = 0; k < 3; ++k)
        w[k] = local[0] * m[0][k] + local[1] * m[1][k] + local[2] * m[2][k] + m[3][k];
    float v[3];
    sub(w, f.origin, v);
    float p[3];
    for (int r = 0; r < 3; ++r) p[r] = v[0] * f.axis[r][0] + v[1] * f.axis[r][1] + v[2] * f.axis[r][2];
    // Measured from the window's centre line: on a plain lens that is the axis.
    float x = std::fabs(p[0] + f.shear[0] * p[2]) / f.tx;
    float y = std::fabs(p[1] + f.shear[1] * p[2]) / f.ty;
    float t = p[2] + (x > y ? x : y);
    if (t > f.best) f.best = t;
    ++f.points;
}

void fitPointD(FitFrame &f, const double *local, const float m[4][4]) {
    const float p[3] = {static_cast<float>(local[0]), static_cast<float>(local[1]),
                        static_cast<float>(local[2])};
    fitPoint(f, p, m);
}

void fitSpline(FitFrame &f, const Spline &s, const float m[4][4]) {
    for (int i = 0; s.vertices && i < s.vertexCount; ++i) fitPoint(f, s.vertices[i].pos, m);
}

// The points of a model: its tessellation where the display made one, which is
// what the window shows; otherwise the points of its geometry (control points
// for patches, surfaces and curves, which hold the surface within their hull).
// References and meta groups without a tessellation have no points.
void fitModel(FitFrame &f, const Model *model) {
    const float (*m)[4] = model->globalMatrix;
    if (model->vertices && model->vertexCount > 0) {
        for (int i = 0; i < model->vertexCount; ++i) fitPoint(f, model->vertices[i].pos, m);
        return;
    }
    if (!model->geometry.any) return;
    switch (model->type) {
    case MODEL_PATCH: {
        const Patch *p = model->geometry.patch;
        for (int i = 0; p->cvs && i < p->uCount * p->vCount; ++i) fitPoint(f, p->cvs[i], m);
        break;
    }
    case MODEL_FACE: {
        const Face *face = model->geometry.face;
        fitSpline(f, face->boundary, m);
        for (int h = 0; h < face->holeCount; ++h) {
            if (face->isSpline && face->holes) {
                fitSpline(f, face->holes[h], m);
            } else if (!face->isSpline && face->curveHoles) {
                const NurbsCurve &c = face->curveHoles[h];
                for (int i = 0; c.cvs && i < c.cvCount; ++i) fitPointD(f, c.cvs[i], m);
            }
        }
        break;
    }
    case MODEL_MESH: {
        const Mesh *mesh = model->geometry.mesh;
        for (int i = 0; mesh->vertices && i < mesh->vertexCount; ++i) fitPoint(f, mesh->vertices[i].pos, m);
        break;
    }
    case MODEL_SPLINE: fitSpline(f, *model->geometry.spline, m); break;
    case MODEL_NURBS_CURVE: {
        const NurbsCurve *c = model->geometry.curve;
        for (int i = 0; c->cvs && i < c->cvCount; ++i) fitPointD(f, c->cvs[i], m);
        break;
    }
    case MODEL_NURBS_SURFACE: {
        const NurbsSurface *s = model->geometry.surface;
        for (int i = 0; s->cvs && i < s->cvCount[0] * s->cvCount[1]; ++i) fitPointD(f, s->cvs[i], m);
        break;
    }
    default: break;
    }
}

// Widens an axis thinner than the zero length by 0.1 each way.
void widenFlat(float bbmin[3], float bbmax[3]) {
    for (int k = 0; k < 3; ++k)
        if (bbmax[k] - bbmin[k] < kZero) {
            bbmin[k] -= 0.1f;
            bbmax[k] += 0.1f;
        }
}

// Fits `c` to the models of `dict` (the selected ones with `selectedOnly`)
// around the box. Returns 0, with `c` untouched, when no model has a point.
int fitCamera(Camera &camera, Dictionary *dict, int selectedOnly, float bbmin[3], float bbmax[3]) {
    Camera c = camera;
    widenFlat(bbmin, bbmax);
    if (c.position[0] == c.interest[0] && c.position[1] == c.interest[1] && c.position[2] == c.interest[2])
        c.position[2] += 5.0f;
    float d[3];
    sub(c.position, c.interest, d);
    for (int k = 0; k < 3; ++k) {
        c.interest[k] = (bbmin[k] + bbmax[k]) / 2.0f;
        c.position[k] = c.interest[k] + d[k];
    }
    float r = length(d), n[3] = {d[0], d[1], d[2]};
    if (r >= kZero)
        for (float &x : n) x /= r;

    cameraViewUpdate(&c, nullptr);
    FitFrame f{};
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) f.axis[i][k] = c.viewMatrix[i][k];
    memcpy(f.origin, c.position, sizeof f.origin);
    f.best = -1e8f;
    // The window the draw sees through, at unit distance. A shifted film
    // back sees through a window off the axis: its centre line leans in the
    // camera's x and y (a plain lens: not at all). The eye first steps aside
    // by that lean at the interest's distance, so that the line passes
    // through the middle of the box. Measured across the leaning line (a
    // shear of camera space, which keeps the window's edges straight), the
    // edges lie at the window's half-sizes whatever the shift: those are the
    // tangents, and moving the eye back along the line scales the picture
    // about its centre as the plain lens does about the axis.
    float left, right, bottom, top;
    cameraPerspectiveWindow(&c, 1.0f, &left, &right, &bottom, &top);
    const float lean[2] = {(left + right) / 2.0f, (bottom + top) / 2.0f};
    for (int k = 0; k < 3; ++k) f.origin[k] -= r * (lean[0] * f.axis[0][k] + lean[1] * f.axis[1][k]);
    f.shear[0] = lean[0];
    f.shear[1] = lean[1];
    f.tx = (right - left) / 2.0f;
    f.ty = (top - bottom) / 2.0f;
    if (!(f.tx > 0.0f) || !(f.ty > 0.0f)) return 0;

    // Points come from the models alone: the scene's select list holds its
    // cameras and lights, which have none. Hidden models are left out, as the
    // box that placed the interest leaves them out: what is framed is what shows.
    Chapter *models = dictChapter(dict, CHP_MODELS);
    for (int32_t i = 0; models && i < models->elementCount; ++i) {
        const Element &e = models->elements[i];
        const Model *model = static_cast<const Model *>(e.data);
        if (e.deleted != ELEM_LIVE || !model || !model->visible || (selectedOnly && !e.selected)) continue;
        fitModel(f, model);
    }
    if (f.points == 0) return 0;

    c.upVector[0] = c.upVector[1] = c.upVector[2] = 0.0f;
    c.upVector[3] = 1.0f;
    // Back along the centre line of the window: the axis, leaning with a shift.
    for (int k = 0; k < 3; ++k) {
        float line = f.axis[2][k] - f.shear[0] * f.axis[0][k] - f.shear[1] * f.axis[1][k];
        c.position[k] = f.origin[k] + f.best * line;
    }
    for (int k = 0; k < 3; ++k) c.position[k] = c.interest[k] + 1.1f * (c.position[k] - c.interest[k]);
    // The interest goes back on the view line, at the depth of the box's middle.
    float e = 0.0f;
    for (int k = 0; k < 3; ++k) e += n[k] * (c.position[k] - c.interest[k]);
    for (int k = 0; k < 3; ++k) c.interest[k] = c.position[k] - e * n[k];
    cameraViewUpdate(&c, nullptr);
    camera = c;
    return 1;
}

}  // namespace

TOL_Status TOL_cameraFitScene(TOL_Scene *scene, const TOL_Elem *camera, int selectedOnly) {
    return navigate(scene, camera, "TOL_cameraFitScene(): scene:", [&](Camera &c) {
        float bbmin[3], bbmax[3];
        if (TOL_scnGetBbox(scene, nullptr, selectedOnly, bbmin, bbmax) != 1) return;
        fitCamera(c, dictGet(static_cast<int>(scene->dict)), selectedOnly, bbmin, bbmax);
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
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_cameraStoreAttributes(): scene:");
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
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_cameraRestoreAttributes(): scene:");
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
