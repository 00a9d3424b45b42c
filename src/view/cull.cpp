// The frustum test: eight corners of a box against the view volume of the
// camera being drawn, by outcodes.
#include "camera.h"
#include "view.h"

namespace {

enum Outcode : unsigned {
    OUT_TOP = 1,
    OUT_RIGHT = 2,
    OUT_BOTTOM = 4,
    OUT_LEFT = 8,
    OUT_FAR = 16,
    OUT_NEAR = 32,
};

// A corner in view coordinates: p times the column-major modelview.
void toView(const float p[3], const float m[16], float out[3]) {
    for (int r = 0; r < 3; ++r) out[r] = m[r] * p[0] + m[4 + r] * p[1] + m[8 + r] * p[2] + m[12 + r];
}

unsigned depthCode(float z, const ViewFrustum &f) {
    if (z > -f.nearPlane) return OUT_NEAR;
    if (z < -f.farPlane) return OUT_FAR;
    return 0;
}

unsigned orthoCode(const float v[3], const Camera *camera, const ViewFrustum &f) {
    float right = camera->aspect * camera->fieldOfView * 0.5f, top = camera->fieldOfView * 0.5f;
    unsigned code = 0;
    if (v[0] < -right) code |= OUT_LEFT;
    else if (v[0] > right) code |= OUT_RIGHT;
    if (v[1] < -top) code |= OUT_BOTTOM;
    else if (v[1] > top) code |= OUT_TOP;
    return code | depthCode(v[2], f);
}

// The side planes through the eye and the frustum's extents at the near plane.
// The left and right tests are the mirror of the extents, which is the same
// for a centred frustum; a jittered one is off by the jitter alone.
unsigned perspectiveCode(const float v[3], const Camera *, const ViewFrustum &f) {
    const float x = v[0], y = v[1], z = v[2], n = f.nearPlane;
    unsigned code = 0;
    if (n * x - f.left * z > 0.0f) code |= OUT_LEFT;
    else if (f.right * z - n * x > 0.0f) code |= OUT_RIGHT;
    if (n * y - f.bottom * z > 0.0f) code |= OUT_BOTTOM;
    else if (f.top * z - n * y > 0.0f) code |= OUT_TOP;
    return code | depthCode(z, f);
}

using OutcodeFn = unsigned (*)(const float v[3], const Camera *camera, const ViewFrustum &f);

OutcodeFn outcodeFor(const Camera *camera) {
    if (!camera) return nullptr;
    if (camera->kind == CAMERA_KIND_ORTHO) return orthoCode;
    if (camera->kind == CAMERA_KIND_WORKING) return perspectiveCode;
    return nullptr;
}

}  // namespace

int frustumClassify(const float corners[8][3], const BW_GraphicProps *gprops,
                    const float viewMatrix[16]) {
    const Camera *camera = gprops ? static_cast<const Camera *>(gprops->curCamera) : nullptr;
    OutcodeFn outcode = outcodeFor(camera);
    if (!outcode || !corners || !viewMatrix) return FRUSTUM_UNKNOWN;
    unsigned all = ~0u, any = 0;
    bool seenIn = false, seenOut = false;
    for (int i = 0; i < 8; ++i) {
        float v[3];
        toView(corners[i], viewMatrix, v);
        unsigned code = outcode(v, camera, g_lastFrustum);
        // Corners on both sides of the volume's boundary: the box crosses it.
        if ((code == 0 && seenOut) || (code != 0 && seenIn)) return FRUSTUM_PARTIAL;
        (code == 0 ? seenIn : seenOut) = true;
        all &= code;
        any |= code;
    }
    if (any == 0) return FRUSTUM_INSIDE;
    if (all != 0) return FRUSTUM_OUT;
    // Outside only a pair of opposite planes: the box spans the volume.
    if (any == (OUT_LEFT | OUT_RIGHT) || any == (OUT_TOP | OUT_BOTTOM) || any == (OUT_NEAR | OUT_FAR))
        return FRUSTUM_PARTIAL;
    return FRUSTUM_UNKNOWN;
}
