// Camera and light records: positions and interests from curves, the camera
// frame, visibility and the parameters of both.
#include <cmath>
#include <cstring>

#include "camera.h"
#include "model.h"
#include "updatelist_internal.h"

namespace {

constexpr float QUARTER_TURN = 1.5707963267948966f;  // the 32-bit constant the frame is built with
constexpr float MIN_FIELD_OF_VIEW = 1e-4f;            // radians; keeps the plane distance finite

// Replaces the components of `v` whose curve types are first, first + 1, first + 2.
void pointFromCurves(const UpdateRecord *record, float time, int32_t first, float v[3]) {
    forEachSourceCurve(record, [&](Fcurve *c) {
        if (c->type >= first && c->type < first + 3)
            v[c->type - first] = static_cast<float>(fcurveValue(c, time, 1));
        return true;
    });
}

void normalise(double v[3]) {
    double len = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    if (len > 0.0)
        for (int i = 0; i < 3; ++i) v[i] /= len;
}

void cross(const double a[3], const double b[3], double out[3]) {
    double r[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
    memcpy(out, r, sizeof r);
}

double dot(const double a[3], const double b[3]) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

}  // namespace

int firstCurveValue(const UpdateRecord *record, float time, double *value) {
    int found = 0;
    forEachSourceCurve(record, [&](Fcurve *c) {
        *value = fcurveValue(c, time, 1);
        found = 1;
        return false;
    });
    return found;
}

int32_t roundedValue(double v) { return static_cast<int32_t>(v < 0 ? v - 0.5 : v + 0.5); }

void cameraViewUpdate(Camera *camera, const float *upPoint) {
    if (!camera) return;
    float (*m)[4] = camera->viewMatrix;
    double v[3];
    for (int i = 0; i < 3; ++i) v[i] = static_cast<double>(camera->interest[i]) - camera->position[i];
    if (dot(v, v) <= 0.0) {
        mat4Identity(m);
        for (int i = 0; i < 3; ++i) m[3][i] = camera->position[i];
        return;
    }
    normalise(v);
    double up[3];
    if (v[0] != 0.0 || v[2] != 0.0) {
        // Up is the view direction turned a quarter up about the horizontal side.
        const double y[3] = {0.0, 1.0, 0.0};
        double side[3];
        cross(v, y, side);
        normalise(side);
        vecRotate(v, side, QUARTER_TURN, up);
    } else {
        up[0] = 0.0, up[1] = 0.0, up[2] = v[1] > 0.0 ? -1.0 : 1.0;
    }
    if (upPoint) {
        // The up direction that points at the up-vector model, as a roll. The
        // cross goes in the order of the default up, so a model overhead gives none.
        double w[3], axis[3], wanted[3];
        for (int i = 0; i < 3; ++i) w[i] = static_cast<double>(upPoint[i]) - camera->position[i];
        cross(v, w, axis);
        if (dot(axis, axis) > 0.0) {
            normalise(axis);
            vecRotate(v, axis, QUARTER_TURN, wanted);
            double c = dot(up, wanted);
            if (c > 1.0) c = 1.0;
            if (c < -1.0) c = -1.0;
            double turn[3];
            cross(up, wanted, turn);
            double angle = std::acos(c);
            camera->roll = static_cast<float>(dot(turn, v) > 0.0 ? -angle : angle);
        }
    }
    // Rows side, up, back form a right-handed frame looking along -z: side is
    // v x up, so +x of the view is the right hand and the picture is not mirrored.
    double side[3];
    cross(v, up, side);
    normalise(side);
    double rows[3][3] = {{side[0], side[1], side[2]}, {up[0], up[1], up[2]}, {-v[0], -v[1], -v[2]}};
    double c = std::cos(static_cast<double>(camera->roll));
    double s = std::sin(static_cast<double>(camera->roll));
    for (int k = 0; k < 3; ++k) {
        // Rz(roll) times the frame: the roll turns side and up in the view plane.
        m[0][k] = static_cast<float>(c * rows[0][k] + s * rows[1][k]);
        m[1][k] = static_cast<float>(-s * rows[0][k] + c * rows[1][k]);
        m[2][k] = static_cast<float>(rows[2][k]);
        m[3][k] = camera->position[k];
    }
    m[0][3] = m[1][3] = m[2][3] = 0.0f;
    m[3][3] = 1.0f;
}

// ---------------------------------------------------------------------------
// Cameras

void evalCameraPosition(UpdateRecord *record, float time, int *) {
    Camera *camera = static_cast<Camera *>(record->data);
    if (!camera) return;
    if (record->relation == 1113)
        pointFromCurves(record, time, 142, camera->position);
    else
        pointFromCurves(record, time, 145, camera->interest);
}

void evalCameraView(UpdateRecord *record, float time, int *) {
    Camera *camera = static_cast<Camera *>(record->data);
    if (!camera) return;
    const float *upPoint = nullptr;
    for (int i = 0; i < record->sourceCount && !upPoint; ++i) {
        const UpdateSource &s = record->sources[i];
        if (s.chapter != CHP_MODELS || !s.active || !s.data) continue;
        if (s.fcurve && fcurveStepValue(s.fcurve, time, 0, 1) <= 0) continue;
        upPoint = static_cast<const Model *>(s.data)->globalPosition;
    }
    cameraViewUpdate(camera, upPoint);
}

void evalCameraVisibility(UpdateRecord *record, float time, int *) {
    Camera *camera = static_cast<Camera *>(record->data);
    double v;
    if (!camera || !firstCurveValue(record, time, &v)) return;
    camera->visibility = v >= 1.0 ? 2 : 0;
}

void evalCameraParam(UpdateRecord *record, float time, int *) {
    Camera *camera = static_cast<Camera *>(record->data);
    double v;
    if (!camera || !firstCurveValue(record, time, &v)) return;
    float f = static_cast<float>(v);
    switch (record->relation) {
        case 1130: camera->roll = static_cast<float>(v * DEG_TO_RAD); break;
        case 1131: {
            float fov = static_cast<float>(v * DEG_TO_RAD);
            if (std::fabs(fov) < MIN_FIELD_OF_VIEW) fov = fov < 0.0f ? -MIN_FIELD_OF_VIEW : MIN_FIELD_OF_VIEW;
            camera->fieldOfView = fov;
            camera->planeDistance =
                static_cast<float>(camera->planeWidth * 0.5 / std::tan(fov * 0.5));
            break;
        }
        case 1132: camera->nearClip = f; break;
        case 1133: camera->farClip = f; break;
        case 1134: camera->focalLength = f; break;
        case 1135: camera->fStop = f; break;
        case 1136: camera->focusDistance = f; break;
        case 1137: camera->nearFocus = f; break;
        case 1138: camera->farFocus = f; break;
        case 1139: camera->dofKept = f; break;
        case 1140: camera->circleOfConfusion = f; break;
        case 1141: case 1142: case 1143: {
            float *field = record->relation == 1141   ? &camera->planeDistance
                           : record->relation == 1142 ? &camera->planeWidth
                                                      : &camera->planeHeight;
            if (*field == f) break;
            *field = f;
            if (camera->planeDistance != 0.0f)
                camera->fieldOfView = static_cast<float>(
                    2.0 * std::atan(camera->planeWidth * 0.5 / camera->planeDistance));
            break;
        }
        case 1144: camera->dofMode = roundedValue(v); break;
        default: break;
    }
}

// ---------------------------------------------------------------------------
// Lights

void evalLightPosition(UpdateRecord *record, float time, int *) {
    Light *light = static_cast<Light *>(record->data);
    if (!light) return;
    if (record->relation == 2113)
        pointFromCurves(record, time, 148, light->position);
    else
        pointFromCurves(record, time, 151, light->interest);
}

void evalLightVisibility(UpdateRecord *record, float time, int *) {
    Light *light = static_cast<Light *>(record->data);
    double v;
    if (!light || !firstCurveValue(record, time, &v)) return;
    light->visibility = v >= 1.0 ? 2 : 0;
    light->on = v >= 1.0 ? 1 : 0;
}

void evalLightParam(UpdateRecord *record, float time, int *) {
    Light *light = static_cast<Light *>(record->data);
    if (!light) return;
    double v;
    switch (record->relation) {
        case 2130: pointFromCurves(record, time, 22, light->colour); return;
        case 2201: {
            // The direction is (0, 0, -1) turned by the Euler angles of curves 215 to 217.
            float degrees[3];
            for (int i = 0; i < 3; ++i)
                degrees[i] = static_cast<float>(light->directionAngles[i] / DEG_TO_RAD);
            pointFromCurves(record, time, 215, degrees);
            for (int i = 0; i < 3; ++i)
                light->directionAngles[i] = static_cast<float>(degrees[i] * DEG_TO_RAD);
            float r[4][4];
            eulerToMatrix(light->directionAngles, r);
            for (int i = 0; i < 3; ++i) light->direction[i] = -r[2][i];
            return;
        }
        case 2202: pointFromCurves(record, time, 218, light->position); return;
        case 2203:
            pointFromCurves(record, time, 621, light->extraColour);
            for (float &c : light->extraColour)
                if (c < 0.0f) c = 0.0f;
            return;
        default: break;
    }
    if (!firstCurveValue(record, time, &v)) return;
    float f = static_cast<float>(v);
    switch (record->relation) {
        case 2131: light->coneAngle = static_cast<float>(v * DEG_TO_RAD); break;
        case 2132: light->spreadAngle = static_cast<float>(v * DEG_TO_RAD); break;
        case 2133: light->factor = f; break;
        case 2134: case 2135: case 2136: light->attenuation[record->relation - 2134] = f; break;
        case 2204: light->extraIntensity = f < 0.0f ? 0.0f : f; break;
        case 2205: case 2206: {
            int32_t n = roundedValue(v);
            light->extraCount[record->relation - 2205] = n < 0 ? 0 : n;
            break;
        }
        case 2207: light->extraRatio = f > 1.0f ? 1.0f : f; break;
        case 2208: light->shadow = v >= 1.0 ? 1 : 0; break;
        default: break;
    }
}

void evalLightInteger(UpdateRecord *record, float time, int *) {
    Light *light = static_cast<Light *>(record->data);
    double v;
    if (!light || !firstCurveValue(record, time, &v)) return;
    // The kind of light moves in whole steps; there is no kind below 0.
    int32_t type = roundedValue(v);
    light->type = static_cast<uint16_t>(type < 0 ? 0 : type > UINT16_MAX ? UINT16_MAX : type);
}
