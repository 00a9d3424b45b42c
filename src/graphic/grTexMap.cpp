// Texture coordinates, for the strip build and the direct draw alike: the
// projection of a point for a texture's mapping method, with the seam side
// of cylindrical and spherical maps, and the texture's scale, offset and swap.
#include <cmath>
#include <cstdlib>

#include "material.h"
#include "tess_internal.h"
#include "bw_env.h"

namespace {

constexpr double PI = 3.14159265358979323846;

enum : uint16_t {
    MAP_XY = 1, MAP_XZ = 2, MAP_YZ = 3, MAP_UV = 4, MAP_CYLINDER = 5, MAP_SPHERE = 6,
};

double ratio(double offset, float size) { return size != 0.0f ? offset / size : 0.0; }

// Angle around the centre, 0 to 1, with the near-zero cases of atan2 fixed.
double around(double x, double z, double tiny) {
    if (std::fabs(z) < tiny && std::fabs(x) < tiny) return 0.0;
    const double angle = z == 0.0 ? (x < 0.0 ? 0.0 : PI) : std::atan2(z, -x);
    return (angle + PI) / (2.0 * PI);
}

int seamSide(double u) { return u <= 0.25 ? 1 : (u >= 0.75 ? 2 : 0); }

}  // namespace

bool stripOldUvConversion() {
    static const bool old = envIsSet(ENV_BW_OLD_UV_CONVERSION);
    return old;
}

int textureProject(const Texture2D *t, const float point[3], float uv[2]) {
    // The low corner of the projection box.
    double base[3];
    for (int k = 0; k < 3; ++k) base[k] = static_cast<double>(t->boxCentre[k]) - 0.5 * t->boxSize[k];
    // The projection turns with the texture: the point goes through its
    // rotation (row vector times the three rows) before the method's formula.
    double q[3];
    for (int k = 0; k < 3; ++k)
        q[k] = point[0] * static_cast<double>(t->matrix[0][k]) + point[1] * static_cast<double>(t->matrix[1][k]) +
               point[2] * static_cast<double>(t->matrix[2][k]);
    const double x = q[0], y = q[1], z = q[2];
    double u = 0.0, v = 0.0;
    int side = 0;
    switch (t->method) {
    case MAP_XY:
        u = ratio(x - base[0], t->boxSize[0]);
        v = 1.0 - ratio(y - base[1], t->boxSize[1]);
        break;
    case MAP_XZ:
        u = ratio(x - base[0], t->boxSize[0]);
        v = 1.0 - ratio(z - base[2], t->boxSize[2]);
        break;
    case MAP_YZ:
        u = ratio(z - base[2], t->boxSize[2]);
        v = 1.0 - ratio(y - base[1], t->boxSize[1]);
        break;
    case MAP_CYLINDER:
    case MAP_SPHERE: {
        const double dx = x - t->sphereCentre[0], dy = y - t->sphereCentre[1], dz = z - t->sphereCentre[2];
        u = around(dx, dz, t->method == MAP_CYLINDER ? 1e-38 : 1e-20);
        if (t->method == MAP_CYLINDER) {
            v = 1.0 - ratio(y - base[1], t->boxSize[1]);
        } else {
            const double len = std::sqrt(dx * dx + dy * dy + dz * dz);
            v = len > 0.0 ? std::acos(std::fmax(-1.0, std::fmin(1.0, dy / len))) / PI : 0.0;
        }
        side = seamSide(u);
        break;
    }
    default:
        break;
    }
    uv[0] = static_cast<float>(u);
    uv[1] = static_cast<float>(v);
    return side;
}

void textureTransform(const Texture2D *t, float uv[2]) {
    const float uScale = t->uScale != 0.0f ? t->uScale : 1e-5f;
    const float vScale = t->vScale != 0.0f ? t->vScale : 1e-5f;
    float u = (uv[0] - t->uOffset) / uScale;
    float v = (vScale - uv[1] + t->vOffset) / vScale;
    if (t->method == MAP_CYLINDER || t->method == MAP_SPHERE) {
        // The picture of a partial wrap is widened to close it; u follows.
        const float coverage = t->uScale;
        if (!stripOldUvConversion() && coverage > 0.5f) u *= 1.0f / (1.0f - coverage + 2.0f);
    } else if (t->swap) {
        const float su = 1.0f - v, sv = 1.0f - u;
        u = su;
        v = sv;
    }
    uv[0] = u;
    uv[1] = v;
}

int stripVertexUv(const Texture2D *t, const TessVertex *v, float uv[2], int *fromSurface) {
    int side = 0;
    if (t->method == MAP_UV) {
        uv[0] = 1.0f - v->u;
        uv[1] = 1.0f - v->v;
    } else {
        side = textureProject(t, v->refPos, uv);
    }
    if (fromSurface) *fromSurface = t->method == MAP_UV ? 1 : 0;
    textureTransform(t, uv);
    return side;
}
