// The Euler rotation of the evaluation's convention, in the curve library so
// that the element readers derive texture rotations the same way models get
// theirs.
#include <cmath>

#include "animation.h"

void eulerToMatrix(const float angles[3], float m[4][4]) {
    double sx = std::sin(static_cast<double>(angles[0])), cx = std::cos(static_cast<double>(angles[0]));
    double sy = std::sin(static_cast<double>(angles[1])), cy = std::cos(static_cast<double>(angles[1]));
    double sz = std::sin(static_cast<double>(angles[2])), cz = std::cos(static_cast<double>(angles[2]));
    // Rx Ry Rz for row vectors: X acts first.
    const double r[3][3] = {
        {cz * cy, sz * cy, -sy},
        {sy * sx * cz - sz * cx, sy * sx * sz + cz * cx, cy * sx},
        {sy * cx * cz + sz * sx, sy * cx * sz - cz * sx, cy * cx},
    };
    for (int i = 0; i < 3; ++i) {
        for (int k = 0; k < 3; ++k) m[i][k] = static_cast<float>(r[i][k]);
        m[i][3] = 0.0f;
        m[3][i] = 0.0f;
    }
    m[3][3] = 1.0f;
}
