// The camera's matrices and the frustum test, without a GL context: what the
// draw loads and what culling decides from it.
#include <gtest/gtest.h>

#include <cmath>

#include "camera.h"
#include "view.h"

namespace {

// A point through view and projection to normalised device coordinates.
void project(const float view[16], const float proj[16], const float p[3], float ndc[3]) {
    float e[4], c[4];
    for (int r = 0; r < 4; ++r) e[r] = view[r] * p[0] + view[4 + r] * p[1] + view[8 + r] * p[2] + view[12 + r];
    for (int r = 0; r < 4; ++r) c[r] = proj[r] * e[0] + proj[4 + r] * e[1] + proj[8 + r] * e[2] + proj[12 + r] * e[3];
    for (int k = 0; k < 3; ++k) ndc[k] = c[k] / c[3];
}

class Frustum : public ::testing::Test {
protected:
    void SetUp() override {
        camera.kind = CAMERA_KIND_WORKING;
        camera.aspect = 2.0f;
        gprops.curCamera = &camera;
        float l, r, b, t;
        cameraPerspectiveExtents(&camera, &l, &r, &b, &t);
        g_lastFrustum = {l, r, b, t, camera.nearClip, camera.farClip};
        cameraViewMatrix(&camera, view);
    }
    // The box of centre c and half size h.
    int classify(float cx, float cy, float cz, float h) {
        const float lo[3] = {cx - h, cy - h, cz - h}, hi[3] = {cx + h, cy + h, cz + h};
        float corners[8][3];
        boxCorners(lo, hi, nullptr, corners);
        return frustumClassify(corners, &gprops, view);
    }
    Camera camera;  // at (0, 0, 10) looking at the origin, 45 degrees high
    BW_GraphicProps gprops;
    float view[16];
};

}  // namespace

TEST_F(Frustum, KnownPointsProjectWhereTheLensPutsThem) {
    float proj[16], ndc[3];
    float l, r, b, t;
    cameraPerspectiveExtents(&camera, &l, &r, &b, &t);
    frustumMatrix(l, r, b, t, camera.nearClip, camera.farClip, proj);
    const float interest[3] = {0, 0, 0};
    project(view, proj, interest, ndc);
    EXPECT_NEAR(ndc[0], 0.0f, 1e-6f);
    EXPECT_NEAR(ndc[1], 0.0f, 1e-6f);
    // The top edge of the field of view at the interest, and the right edge,
    // twice as far out for an aspect of 2.
    const float edge = 10.0f * std::tan(camera.fieldOfView * 0.5f);
    const float top[3] = {0, edge, 0}, right[3] = {2.0f * edge, 0, 0};
    project(view, proj, top, ndc);
    EXPECT_NEAR(ndc[1], 1.0f, 1e-5f);
    project(view, proj, right, ndc);
    EXPECT_NEAR(ndc[0], 1.0f, 1e-5f);
    // Near and far planes end the depth range.
    const float nearPoint[3] = {0, 0, 10.0f - camera.nearClip}, farPoint[3] = {0, 0, 10.0f - camera.farClip};
    project(view, proj, nearPoint, ndc);
    EXPECT_NEAR(ndc[2], -1.0f, 1e-4f);
    project(view, proj, farPoint, ndc);
    EXPECT_NEAR(ndc[2], 1.0f, 1e-4f);

    // A camera on the x axis with a quarter turn of roll: world +z lies to
    // its left, and the roll turns world up to the screen's right.
    camera.position[0] = 10.0f, camera.position[2] = 0.0f;
    cameraViewMatrix(&camera, view);
    const float side[3] = {0, 0, 1};
    project(view, proj, side, ndc);
    EXPECT_LT(ndc[0], -0.1f);
    EXPECT_NEAR(ndc[1], 0.0f, 1e-5f);
    camera.roll = 1.5707964f;
    cameraViewMatrix(&camera, view);
    const float up[3] = {0, 1, 0};
    project(view, proj, up, ndc);
    EXPECT_GT(ndc[0], 0.1f);
    EXPECT_NEAR(ndc[1], 0.0f, 1e-5f);
}

TEST_F(Frustum, BoxesInsideOutsideAndAcross) {
    EXPECT_EQ(classify(0, 0, 0, 1), FRUSTUM_INSIDE);
    EXPECT_EQ(classify(0, 0, 20, 1), FRUSTUM_OUT);        // behind the eye
    EXPECT_EQ(classify(0, 0, -2000, 1), FRUSTUM_OUT);     // past the far plane
    EXPECT_EQ(classify(40, 0, 0, 1), FRUSTUM_OUT);        // far to the right
    EXPECT_EQ(classify(0, -30, 0, 1), FRUSTUM_OUT);       // far below
    EXPECT_EQ(classify(8.3f, 0, 0, 1), FRUSTUM_PARTIAL);  // across the right plane
    EXPECT_EQ(classify(0, 0, 9.9f, 0.02f), FRUSTUM_PARTIAL);  // across the near plane

    // A thin box through near and far with every corner beyond one of them
    // crosses the whole depth: partly in sight, not out.
    float corners[8][3];
    const float lo[3] = {-0.01f, -0.01f, -1500.0f}, hi[3] = {0.01f, 0.01f, 9.95f};
    boxCorners(lo, hi, nullptr, corners);
    EXPECT_EQ(frustumClassify(corners, &gprops, view), FRUSTUM_PARTIAL);
    // Outside on planes that are no pair, and no corner inside: it cannot tell.
    const float lo2[3] = {1, 1, -2000.0f}, hi2[3] = {2, 2, 10.5f};
    boxCorners(lo2, hi2, nullptr, corners);
    EXPECT_EQ(frustumClassify(corners, &gprops, view), FRUSTUM_UNKNOWN);

    // An orthographic camera is tested against its view height; other kinds
    // and no camera cannot be told.
    camera.kind = CAMERA_KIND_ORTHO;
    camera.fieldOfView = 4.0f;  // 4 high, 8 wide
    EXPECT_EQ(classify(0, 0, 0, 1), FRUSTUM_INSIDE);
    EXPECT_EQ(classify(0, 3.5f, 0, 1), FRUSTUM_OUT);
    EXPECT_EQ(classify(4.0f, 0, 0, 1), FRUSTUM_PARTIAL);
    camera.kind = 2004;
    EXPECT_EQ(classify(0, 0, 0, 1), FRUSTUM_UNKNOWN);
    gprops.curCamera = nullptr;
    EXPECT_EQ(classify(0, 0, 0, 1), FRUSTUM_UNKNOWN);
}
