// Icons of lights and cameras: plain line shapes in world space.
#include <GL/gl.h>

#include <cmath>

#include "camera.h"
#include "dictionary.h"
#include "view.h"

namespace {

constexpr float ICON_SIZE = 0.5f;  // half length of an icon's cross
constexpr float TICK = 0.1f;       // tick marks at the cross's ends

// Three axes through p with a tick at each end.
void cross(const float p[3], float size) {
    glBegin(GL_LINES);
    for (int a = 0; a < 3; ++a)
        for (int end = -1; end <= 1; end += 2) {
            float q[3] = {p[0], p[1], p[2]};
            q[a] += static_cast<float>(end) * size;
            glVertex3fv(p);
            glVertex3fv(q);
            float t0[3] = {q[0], q[1], q[2]}, t1[3] = {q[0], q[1], q[2]};
            t0[(a + 1) % 3] -= TICK * 0.5f;
            t1[(a + 1) % 3] += TICK * 0.5f;
            glVertex3fv(t0);
            glVertex3fv(t1);
        }
    glEnd();
}

void line(const float a[3], const float b[3]) {
    glBegin(GL_LINES);
    glVertex3fv(a);
    glVertex3fv(b);
    glEnd();
}

void iconPoint(const Light &l) { cross(l.position, ICON_SIZE); }

void iconSpot(const Light &l) {
    cross(l.position, ICON_SIZE * 0.5f);
    line(l.position, l.interest);
    cross(l.interest, TICK);
}

// An arrow along the light's direction.
void iconInfinite(const Light &l) {
    float tip[3];
    for (int k = 0; k < 3; ++k) tip[k] = l.position[k] + l.direction[k];
    line(l.position, tip);
    cross(tip, TICK);
    cross(l.position, TICK);
}

// A unit square facing the light's direction's dominant axis.
void iconArea(const Light &l) {
    int axis = 0;
    for (int k = 1; k < 3; ++k)
        if (std::fabs(l.direction[k]) > std::fabs(l.direction[axis])) axis = k;
    int u = (axis + 1) % 3, v = (axis + 2) % 3;
    glBegin(GL_LINE_LOOP);
    for (int c = 0; c < 4; ++c) {
        float p[3] = {l.position[0], l.position[1], l.position[2]};
        p[u] += (c == 1 || c == 2) ? ICON_SIZE : -ICON_SIZE;
        p[v] += c >= 2 ? ICON_SIZE : -ICON_SIZE;
        glVertex3fv(p);
    }
    glEnd();
    iconInfinite(l);
}

using LightIconFn = void (*)(const Light &);
// By light type: 2 spot, 3 and 4 infinite, 5 area, the rest points.
constexpr int LIGHT_ICON_TYPES = 6;
const LightIconFn lightIcons[LIGHT_ICON_TYPES] = {iconPoint, iconPoint, iconSpot,
                                                  iconInfinite, iconInfinite, iconArea};

}  // namespace

void drawLightIcons(Dictionary *dict) {
    Chapter *lights = dictChapter(dict, CHP_LIGHTS);
    for (int32_t i = 0; lights && i < lights->elementCount; ++i) {
        const Element &e = lights->elements[i];
        const Light *l = static_cast<const Light *>(e.data);
        if (e.deleted || !l || l->visibility == 0) continue;
        if (e.selected) glColor4f(1.0f, 1.0f, 1.0f, 1.0f);
        else glColor4f(0.7f, 0.2f, 0.0f, 1.0f);
        lightIcons[l->type < LIGHT_ICON_TYPES ? l->type : 0](*l);
    }
}

void drawCameraIcon(const Camera *camera, int selected) {
    if (!camera) return;
    if (selected) glColor4f(1.0f, 1.0f, 1.0f, 1.0f);
    else glColor4f(0.0f, 0.0f, 0.0f, 1.0f);
    cross(camera->interest, TICK);
    line(camera->position, camera->interest);
    // The body: a pyramid from the eye along the view, in the camera's frame.
    const float (*f)[4] = camera->viewMatrix;
    float corner[4][3];
    for (int c = 0; c < 4; ++c) {
        float sx = (c == 1 || c == 2) ? 0.3f : -0.3f, sy = c >= 2 ? 0.2f : -0.2f;
        for (int k = 0; k < 3; ++k)
            corner[c][k] = camera->position[k] + sx * f[0][k] + sy * f[1][k] - 0.6f * f[2][k];
    }
    glBegin(GL_LINES);
    for (int c = 0; c < 4; ++c) {
        glVertex3fv(camera->position);
        glVertex3fv(corner[c]);
        glVertex3fv(corner[c]);
        glVertex3fv(corner[(c + 1) % 4]);
    }
    glEnd();
}
