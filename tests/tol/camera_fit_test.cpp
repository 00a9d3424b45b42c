// Framing: every point of the models inside the view, touching its edge but
// for the tenth of distance added, judged by a projection of the test's own.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "camera.h"
#include "capture.h"
#include "dictionary.h"
#include "graphic.h"
#include "model.h"
#include "tol.h"
#include "view.h"
#include "layer_fixture.h"

namespace {

struct Vec {
    double x, y, z;
};
Vec operator-(Vec a, Vec b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec along(Vec a, double k, Vec d) { return {a.x + k * d.x, a.y + k * d.y, a.z + k * d.z}; }
double dot(Vec a, Vec b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
Vec vec(const float *p) { return {p[0], p[1], p[2]}; }

class Fit : public bwtest::LayerTest {
protected:
    void SetUp() override {
        LayerTest::SetUp();
        TOL_Elem first;
        ASSERT_NE(TOL_elemGetFirstInChap(scene.dict, CHP_CAMERAS, 0, &first), nullptr);
        c = static_cast<Camera *>(elemGet(dict, CHP_CAMERAS, int(first.index))->data);
        const float eye[3] = {3, 2, 12}, at[3] = {-1, 0.5f, 0};
        for (int k = 0; k < 3; ++k) c->position[k] = eye[k], c->interest[k] = at[k];
        c->fieldOfView = 0.6f;
    }
    void TearDown() override {
        for (Model *m : models) modelFree(m);
    }
    // A cube of side 2, or a 4 by 4 grid of control points 8 wide in XZ.
    Model *add(float x, float y, float z, float turn, bool grid = false) {
        Model *m = grid ? modelNew("grid", MODEL_PATCH, patchMakeGrid(4, 4, 8.0f))
                        : modelNew("cube", MODEL_MESH, meshMakeCube(2.0f));
        m->translation[0] = x, m->translation[1] = y, m->translation[2] = z, m->rotation[1] = turn;
        modelGlobalUpdate(nullptr, m, 1);
        m->elementIndex = elemAdd(dict, CHP_MODELS, elemNameParse(m->name, nullptr, 0), m, nullptr, 0, 0);
        models.push_back(m);
        return m;
    }
    // Where `p` falls in the picture from `eye`, looking along the camera: 0
    // in the middle, 1 on the edge. A shifted film back moves the window by
    // shift / focal length per unit of depth.
    double reach(Vec eye, Vec p) {
        Vec f = vec(c->interest) - vec(c->position);
        f = along({0, 0, 0}, 1 / std::sqrt(dot(f, f)), f);
        Vec side = along({0, 0, 0}, 1 / std::hypot(f.x, f.z), {-f.z, 0, f.x});
        Vec up = {side.y * f.z - side.z * f.y, side.z * f.x - side.x * f.z, side.x * f.y - side.y * f.x};
        double ty = std::tan(c->fieldOfView / 2.0), tx = ty * c->aspect, sx = 0, sy = 0;
        if (c->offsetLens)
            tx = c->lens[1] / 2 / c->lens[0], ty = c->lens[2] / 2 / c->lens[0], sx = c->lens[3] / c->lens[0],
            sy = c->lens[4] / c->lens[0];
        Vec d = p - eye;
        double depth = dot(d, f);
        return std::fmax(std::fabs(dot(d, side) / depth - sx) / tx, std::fabs(dot(d, up) / depth - sy) / ty);
    }
    // The same measure taken through the matrices the draw loads: the
    // camera's view and the frustum of its extents.
    double drawnReach(Vec p) {
        float view[16], proj[16], l, r, b, t;
        cameraViewMatrix(c, view);
        cameraPerspectiveExtents(c, &l, &r, &b, &t);
        frustumMatrix(l, r, b, t, c->nearClip, c->farClip, proj);
        const double in[4] = {p.x, p.y, p.z, 1};
        double eye[4], clip[4];
        for (int i = 0; i < 4; ++i) eye[i] = view[i] * in[0] + view[4 + i] * in[1] + view[8 + i] * in[2] + view[12 + i];
        for (int i = 0; i < 4; ++i)
            clip[i] = proj[i] * eye[0] + proj[4 + i] * eye[1] + proj[8 + i] * eye[2] + proj[12 + i] * eye[3];
        return std::fmax(std::fabs(clip[0] / clip[3]), std::fabs(clip[1] / clip[3]));
    }
    // The outermost point of the models: their tessellation, else their mesh
    // or the grid's control points.
    double widest(Vec eye, const std::vector<Model *> &which) {
        double most = 0;
        for (const Model *m : which) {
            const float (*g)[4] = m->globalMatrix;
            int n = m->vertices ? m->vertexCount : m->type == MODEL_MESH ? m->geometry.mesh->vertexCount : 16;
            for (int i = 0; i < n; ++i) {
                const float *p = m->vertices ? m->vertices[i].pos
                                 : m->type == MODEL_MESH ? m->geometry.mesh->vertices[i].pos
                                                         : m->geometry.patch->cvs[i];
                Vec w = {p[0] * g[0][0] + p[1] * g[1][0] + p[2] * g[2][0] + g[3][0],
                         p[0] * g[0][1] + p[1] * g[1][1] + p[2] * g[2][1] + g[3][1],
                         p[0] * g[0][2] + p[1] * g[1][2] + p[2] * g[2][2] + g[3][2]};
                most = std::fmax(most, reach(eye, w));
            }
        }
        return most;
    }
    Vec middle(int selectedOnly) {
        float lo[3], hi[3];
        EXPECT_EQ(TOL_scnGetBbox(&scene, nullptr, selectedOnly, lo, hi), 1);
        return {(lo[0] + hi[0]) / 2.0, (lo[1] + hi[1]) / 2.0, (lo[2] + hi[2]) / 2.0};
    }
    // Fits; the direction stays, the points are inside from the eye, and on
    // the edge from where it stood before the tenth. Returns the distance.
    double fitAndCheck(int selectedOnly, const std::vector<Model *> &which) {
        const Vec before = vec(c->interest) - vec(c->position), mid = middle(selectedOnly);
        EXPECT_EQ(TOL_cameraFitScene(&scene, nullptr, selectedOnly), 0);
        const Vec after = vec(c->interest) - vec(c->position);
        EXPECT_NEAR(dot(after, before) / std::sqrt(dot(after, after) * dot(before, before)), 1.0, 1e-9);
        EXPECT_LT(widest(vec(c->position), which), 0.97);
        EXPECT_NEAR(widest(along(mid, 1 / 1.1, vec(c->position) - mid), which), 1.0, 1e-4);
        return std::sqrt(dot(vec(c->position) - mid, vec(c->position) - mid));
    }

    Camera *c = nullptr;
    std::vector<Model *> models;
};

}  // namespace

TEST_F(Fit, EveryPointInsideWithATenthToSpareOnAPlainAndAShiftedLens) {
    add(0, 0, 0, 0.4f), add(6, 1, -3, 0), add(-4, -2, 2, 1.0f);
    for (float aspect : {1.6f, 0.5f}) {  // wide, then tall: each pair of edges limits once
        c->aspect = aspect;
        fitAndCheck(0, models);
    }
    // A shifted film back: the middle of the box in the middle of its window.
    const float lens[5] = {50, 36, 24, 6, -4};  // focal length, film width and height, shifts
    for (int k = 0; k < 5; ++k) c->lens[k] = lens[k];
    c->offsetLens = 1;
    fitAndCheck(0, models);
    EXPECT_LT(reach(vec(c->position), middle(0)), 1e-4);
    // What is drawn is what the fit framed: the film's window, not the
    // angle's, so the middle shows in the middle and every point as far out.
    EXPECT_LT(drawnReach(middle(0)), 1e-4);
    for (Model *m : models)
        for (int i = 0; i < m->geometry.mesh->vertexCount; ++i) {
            const float *q = m->geometry.mesh->vertices[i].pos;
            const float (*g)[4] = m->globalMatrix;
            const Vec w = {q[0] * g[0][0] + q[1] * g[1][0] + q[2] * g[2][0] + g[3][0],
                           q[0] * g[0][1] + q[1] * g[1][1] + q[2] * g[2][1] + g[3][1],
                           q[0] * g[0][2] + q[1] * g[1][2] + q[2] * g[2][2] + g[3][2]};
            EXPECT_NEAR(drawnReach(w), reach(vec(c->position), w), 1e-4);
        }
}

TEST_F(Fit, SelectedOnlyAndTheTessellationBeforeTheControlPoints) {
    add(0, 0, 0, 0);
    Model *far = add(20, 0, -10, 0.7f, true);
    elemGet(dict, CHP_MODELS, far->elementIndex)->selected = 1;
    double withPoints = fitAndCheck(1, {far});
    // A tessellation within the control points brings the camera nearer.
    far->vertices = static_cast<TessVertex *>(calloc(4, sizeof(TessVertex) + 2 * sizeof(float)));
    far->vertexCount = 4;
    for (int i = 0; i < 4; ++i) far->vertices[i].pos[0] = i & 1 ? 1 : -1, far->vertices[i].pos[2] = i & 2 ? 1 : -1;
    EXPECT_LT(fitAndCheck(1, {far}), withPoints / 2);
}

TEST_F(Fit, EyeOnTheInterestStepsBackAlongZAndNoBoxMovesNothing) {
    const float eye[3] = {4, 4, 4};
    for (int k = 0; k < 3; ++k) c->position[k] = c->interest[k] = eye[k];
    ASSERT_EQ(TOL_cameraFitScene(&scene, nullptr, 0), 0);  // no models, no box
    EXPECT_EQ(c->position[2], 4.0f);
    add(1, 0, 1, 0, true);
    ASSERT_EQ(TOL_cameraFitScene(&scene, nullptr, 0), 0);
    EXPECT_NEAR(c->position[0] - c->interest[0], 0, 1e-5);
    EXPECT_NEAR(c->position[1] - c->interest[1], 0, 1e-5);
    EXPECT_GT(c->position[2], c->interest[2]);
}
