// Numerical conventions of the evaluation: Euler angles and matrices, row
// vectors with the translation in the fourth row.
#include <cmath>
#include <cstring>

#include "updatelist_internal.h"

int g_scalingType = 0;
int g_eulerFoldToHint = 0;

void mat4Identity(float m[4][4]) {
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k) m[i][k] = i == k ? 1.0f : 0.0f;
}

void mat4Copy(float to[4][4], const float from[4][4]) { memcpy(to, from, sizeof(float[4][4])); }

void mat4Mul(const float a[4][4], const float b[4][4], float out[4][4]) {
    float r[4][4];
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k) {
            double sum = 0.0;
            for (int j = 0; j < 4; ++j) sum += static_cast<double>(a[i][j]) * b[j][k];
            r[i][k] = static_cast<float>(sum);
        }
    mat4Copy(out, r);
}

int mat4Inverse(const float m[4][4], float out[4][4]) {
    double a[3][3];
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) a[i][k] = m[i][k];
    double c00 = a[1][1] * a[2][2] - a[1][2] * a[2][1];
    double c01 = a[1][2] * a[2][0] - a[1][0] * a[2][2];
    double c02 = a[1][0] * a[2][1] - a[1][1] * a[2][0];
    double det = a[0][0] * c00 + a[0][1] * c01 + a[0][2] * c02;
    if (det == 0.0 || !std::isfinite(det)) return 0;
    double inv[3][3] = {
        {c00, a[0][2] * a[2][1] - a[0][1] * a[2][2], a[0][1] * a[1][2] - a[0][2] * a[1][1]},
        {c01, a[0][0] * a[2][2] - a[0][2] * a[2][0], a[0][2] * a[1][0] - a[0][0] * a[1][2]},
        {c02, a[0][1] * a[2][0] - a[0][0] * a[2][1], a[0][0] * a[1][1] - a[0][1] * a[1][0]},
    };
    float r[4][4];
    for (int i = 0; i < 3; ++i) {
        for (int k = 0; k < 3; ++k) r[i][k] = static_cast<float>(inv[i][k] / det);
        r[i][3] = 0.0f;
    }
    // The translation goes back through the inverted rotation part.
    for (int k = 0; k < 3; ++k) {
        double sum = 0.0;
        for (int j = 0; j < 3; ++j) sum -= static_cast<double>(m[3][j]) * inv[j][k] / det;
        r[3][k] = static_cast<float>(sum);
    }
    r[3][3] = 1.0f;
    mat4Copy(out, r);
    return 1;
}

void pointMul(const float p[3], const float m[4][4], float out[3]) {
    float r[3];
    for (int k = 0; k < 3; ++k)
        r[k] = static_cast<float>(static_cast<double>(p[0]) * m[0][k] +
                                  static_cast<double>(p[1]) * m[1][k] +
                                  static_cast<double>(p[2]) * m[2][k] + m[3][k]);
    memcpy(out, r, sizeof r);
}

void vecRotate(const double v[3], const double axis[3], double angle, double out[3]) {
    // Rodrigues: v cos + (axis x v) sin + axis (axis . v)(1 - cos).
    double c = std::cos(angle), s = std::sin(angle);
    double cross[3] = {axis[1] * v[2] - axis[2] * v[1], axis[2] * v[0] - axis[0] * v[2],
                       axis[0] * v[1] - axis[1] * v[0]};
    double dot = axis[0] * v[0] + axis[1] * v[1] + axis[2] * v[2];
    double r[3];
    for (int i = 0; i < 3; ++i) r[i] = v[i] * c + cross[i] * s + axis[i] * dot * (1.0 - c);
    memcpy(out, r, sizeof r);
}

namespace {

constexpr double PI = 3.14159265358979323846;
constexpr double POLE = 1.0 - 1e-6;  // |sin y| from which x and z are not apart

double foldTowards(double angle, double hint) {
    double turns = std::floor((hint - angle) / (2.0 * PI) + 0.5);
    return angle + turns * 2.0 * PI;
}

double distance(const double a[3], const float hint[3]) {
    return std::fabs(a[0] - hint[0]) + std::fabs(a[1] - hint[1]) + std::fabs(a[2] - hint[2]);
}

}  // namespace

void matrixToEuler(const float m[4][4], const float hint[3], float angles[3]) {
    double s = -static_cast<double>(m[0][2]);
    if (s > 1.0) s = 1.0;
    if (s < -1.0) s = -1.0;
    double best[3];
    if (std::fabs(s) >= POLE) {
        // Only x - z (y up) or x + z (y down) is known: the hint keeps its z.
        double y = s > 0 ? PI / 2 : -PI / 2;
        double z = hint[2];
        double x = s > 0 ? std::atan2(m[1][0], m[1][1]) + z : std::atan2(-m[1][0], m[1][1]) - z;
        best[0] = x, best[1] = y, best[2] = z;
    } else {
        double y1 = std::asin(s);
        double a[3] = {std::atan2(m[1][2], m[2][2]), y1, std::atan2(m[0][1], m[0][0])};
        double b[3] = {std::atan2(-m[1][2], -m[2][2]), (y1 >= 0 ? PI : -PI) - y1,
                       std::atan2(-m[0][1], -m[0][0])};
        const double *pick = distance(b, hint) < distance(a, hint) ? b : a;
        memcpy(best, pick, sizeof best);
    }
    for (int i = 0; i < 3; ++i) {
        double v = g_eulerFoldToHint ? foldTowards(best[i], hint[i]) : best[i];
        angles[i] = static_cast<float>(v);
    }
}
