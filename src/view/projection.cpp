// The camera on the hardware: the projection from its angle and clipping
// planes, the view from its frame. Matrices are made here and loaded whole, so
// that what the frustum test and the tests compute is what OpenGL draws with.
#include <GL/gl.h>

#include <cmath>
#include <cstring>

#include "animation.h"
#include "camera.h"
#include "view.h"

ViewFrustum g_lastFrustum = {-1.0f, 1.0f, -1.0f, 1.0f, 0.1f, 1000.0f};

namespace {

// The eye shift and viewport of a stereo eye: the two halves of an above-below
// 1280 x 1024 layout with a gap of 40 lines.
float stereoShift(const BW_GraphicProps *gprops) {
    if (!gprops || gprops->stereoEye == 0) return 0.0f;
    if (gprops->stereoEye == 1) {
        glViewport(0, 532, 1280, 492);
        return gprops->interOcular * 0.5f;
    }
    glViewport(0, 0, 1280, 492);
    return -gprops->interOcular * 0.5f;
}

void loadView(Camera *camera, float shift) {
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    if (shift != 0.0f) glTranslatef(shift, 0.0f, 0.0f);
    float view[16];
    cameraViewMatrix(camera, view);
    glMultMatrixf(view);
}

}  // namespace

void cameraPerspectiveWindow(const Camera *camera, float distance, float *left, float *right, float *bottom,
                             float *top) {
    const float *lens = camera->lens;  // focal length, film width, film height, two shifts
    if (camera->offsetLens && lens[0] > 0.0f && lens[1] > 0.0f && lens[2] > 0.0f) {
        // A shifted film back: the window the film cuts at the focal length,
        // brought to the distance, its centre moved by the shifts. The film's
        // own shape is the picture's; the window's aspect plays no part.
        const double k = distance / static_cast<double>(lens[0]);
        const double halfWidth = k * lens[1] * 0.5, halfHeight = k * lens[2] * 0.5;
        const double cx = k * lens[3], cy = k * lens[4];
        *left = static_cast<float>(cx - halfWidth);
        *right = static_cast<float>(cx + halfWidth);
        *bottom = static_cast<float>(cy - halfHeight);
        *top = static_cast<float>(cy + halfHeight);
        return;
    }
    double half = camera->fieldOfView * 0.5;
    double t = distance / (std::cos(half) / std::sin(half));
    *top = static_cast<float>(t);
    *bottom = -*top;
    *right = static_cast<float>(camera->aspect * t);
    *left = -*right;
}

void cameraPerspectiveExtents(const Camera *camera, float *left, float *right, float *bottom, float *top) {
    cameraPerspectiveWindow(camera, camera->nearClip, left, right, bottom, top);
}

void frustumMatrix(float l, float r, float b, float t, float n, float f, float m[16]) {
    memset(m, 0, sizeof(float) * 16);
    m[0] = 2.0f * n / (r - l);
    m[5] = 2.0f * n / (t - b);
    m[8] = (r + l) / (r - l);
    m[9] = (t + b) / (t - b);
    m[10] = -(f + n) / (f - n);
    m[11] = -1.0f;
    m[14] = -2.0f * f * n / (f - n);
}

void orthoMatrix(float l, float r, float b, float t, float n, float f, float m[16]) {
    memset(m, 0, sizeof(float) * 16);
    m[0] = 2.0f / (r - l);
    m[5] = 2.0f / (t - b);
    m[10] = -2.0f / (f - n);
    m[12] = -(r + l) / (r - l);
    m[13] = -(t + b) / (t - b);
    m[14] = -(f + n) / (f - n);
    m[15] = 1.0f;
}

void cameraViewMatrix(Camera *camera, float out[16]) {
    cameraViewUpdate(camera, nullptr);
    const float (*frame)[4] = camera->viewMatrix;
    // The frame's rows are orthonormal: its inverse is the transpose of the
    // rotation and the eye brought back to the origin. Row-vector storage with
    // the translation in the fourth row is OpenGL's column-major order.
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) out[i * 4 + j] = frame[j][i];
        out[i * 4 + 3] = 0.0f;
    }
    for (int j = 0; j < 3; ++j) {
        double t = 0.0;
        for (int i = 0; i < 3; ++i) t -= static_cast<double>(frame[3][i]) * frame[j][i];
        out[12 + j] = static_cast<float>(t);
    }
    out[15] = 1.0f;
}

void accFrustum(Camera *camera, float left, float right, float bottom, float top, float nearPlane,
                float farPlane, float pixdx, float pixdy, float eyedx, float eyedy, float focus) {
    (void)camera;
    GLint viewport[4] = {0, 0, 1, 1};
    glGetIntegerv(GL_VIEWPORT, viewport);
    float w = viewport[2] > 0 ? static_cast<float>(viewport[2]) : 1.0f;
    float h = viewport[3] > 0 ? static_cast<float>(viewport[3]) : 1.0f;
    if (focus == 0.0f) focus = 1.0f;
    float dx = -(pixdx * (right - left) / w + eyedx * nearPlane / focus);
    float dy = -(pixdy * (top - bottom) / h + eyedy * nearPlane / focus);
    g_lastFrustum = {left + dx, right + dx, bottom + dy, top + dy, nearPlane, farPlane};
    float m[16];
    frustumMatrix(left + dx, right + dx, bottom + dy, top + dy, nearPlane, farPlane, m);
    glMultMatrixf(m);
}

void cameraLoadPerspective(Camera *camera, BW_GraphicProps *gprops, float pixdx, float pixdy,
                           float eyedx, float eyedy, float focus) {
    if (!camera) return;
    GLint mode = GL_MODELVIEW;
    glGetIntegerv(GL_MATRIX_MODE, &mode);
    float shift = stereoShift(gprops);
    float l, r, b, t;
    cameraPerspectiveExtents(camera, &l, &r, &b, &t);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    accFrustum(camera, l, r, b, t, camera->nearClip, camera->farClip, pixdx, pixdy, eyedx, eyedy,
               focus);
    loadView(camera, shift);
    glTranslatef(-eyedx, -eyedy, 0.0f);
    glMatrixMode(static_cast<GLenum>(mode));
}

void cameraLoadOrtho(Camera *camera, BW_GraphicProps *gprops) {
    if (!camera) return;
    GLint mode = GL_MODELVIEW;
    glGetIntegerv(GL_MATRIX_MODE, &mode);
    float shift = stereoShift(gprops);
    // The angle field of an orthographic camera is the height of its view.
    float t = camera->fieldOfView * 0.5f, r = camera->aspect * t;
    g_lastFrustum = {-r, r, -t, t, camera->nearClip, camera->farClip};
    float m[16];
    orthoMatrix(-r, r, -t, t, camera->nearClip, camera->farClip, m);
    glMatrixMode(GL_PROJECTION);
    glLoadMatrixf(m);
    loadView(camera, shift);
    glMatrixMode(static_cast<GLenum>(mode));
}
