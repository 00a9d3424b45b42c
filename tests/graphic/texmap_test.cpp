// Texture coordinates of projected methods: the texture's rotation turns the
// point before the method's formula, for planes and for the wrap of a
// cylinder with its seam side.
#include <gtest/gtest.h>

#include "graphic.h"
#include "material.h"

namespace {

void setMatrix(Texture2D &t, const float rows[3][3]) {
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) t.matrix[i][k] = rows[i][k];
}

}  // namespace

TEST(TextureProject, ThePlaneSeesThePointTurnedByTheTexture) {
    Texture2D t;
    t.method = 1;  // XY
    t.boxSize[0] = 2;
    t.boxSize[1] = 4;
    const float p[3] = {0.5f, 1.0f, 0.0f};
    float uv[2];
    EXPECT_EQ(textureProject(&t, p, uv), 0);
    // u = (x - x0) / sizeX, v = 1 - (y - y0) / sizeY, with the box's low corner (-1, -2).
    EXPECT_FLOAT_EQ(uv[0], 0.75f);
    EXPECT_FLOAT_EQ(uv[1], 0.25f);

    // A quarter turn about z: x goes to y, y to -x; the point is (-1, 0.5, 0).
    const float turn[3][3] = {{0, 1, 0}, {-1, 0, 0}, {0, 0, 1}};
    setMatrix(t, turn);
    EXPECT_EQ(textureProject(&t, p, uv), 0);
    EXPECT_FLOAT_EQ(uv[0], 0.0f);
    EXPECT_FLOAT_EQ(uv[1], 0.375f);

    // The whole vertex path takes it too: a projected UV, then the transform.
    TessVertex v{};
    for (int k = 0; k < 3; ++k) v.refPos[k] = p[k];
    int fromSurface = -1;
    EXPECT_EQ(stripVertexUv(&t, &v, uv, &fromSurface), 0);
    EXPECT_EQ(fromSurface, 0);
    EXPECT_FLOAT_EQ(uv[0], 0.0f);
    EXPECT_FLOAT_EQ(uv[1], 1.0f - 0.375f);  // v becomes (vScale - v + vOffset) / vScale
}

TEST(TextureProject, TheCylinderSeamFollowsTheTurn) {
    Texture2D t;
    t.method = 5;
    const float p[3] = {1.0f, 0.0f, 0.0f};
    float uv[2];
    // On +x with z exactly 0 the angle is pi: u = 1, past the three quarters.
    EXPECT_EQ(textureProject(&t, p, uv), 2);
    EXPECT_FLOAT_EQ(uv[0], 1.0f);
    // A quarter turn about y takes the point to -z: u = (-pi/2 + pi) / 2pi.
    const float turn[3][3] = {{0, 0, -1}, {0, 1, 0}, {1, 0, 0}};
    setMatrix(t, turn);
    EXPECT_EQ(textureProject(&t, p, uv), 1);
    EXPECT_FLOAT_EQ(uv[0], 0.25f);
}
