// Meta clay surfaces: a lone ball closes at its radius as a sphere facing
// out, near balls run together into one surface and far ones stay apart,
// and the balls come by name from the group's members.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <utility>

#include "graphic.h"
#include "model.h"
#include "tess_internal.h"

namespace {

char *dup(const char *s) { return strcpy(static_cast<char *>(malloc(strlen(s) + 1)), s); }

Model *group(const char *name) {
    return modelNew(name, MODEL_META, calloc(1, sizeof(MetaGroup)));
}

// A clay ball at world position `at`.
Model *ball(const char *name, double radius, double weight, const float at[3]) {
    ModelRef *r = static_cast<ModelRef *>(calloc(1, sizeof(ModelRef)));
    r->value4 = radius;
    r->value5 = weight;
    Model *m = modelNew(name, MODEL_REF, r);
    for (int k = 0; k < 3; ++k) m->globalMatrix[3][k] = at[k];
    return m;
}

struct Shape {
    int components = 0;        // by V - E + F: 2 per closed sphere-like surface
    bool closed = true;        // every edge between exactly two triangles, run once each way
    double volume = 0.0;       // enclosed, positive when the triangles face out
};

Shape shapeOf(const Model *m) {
    Shape s;
    std::map<std::pair<int32_t, int32_t>, int> directed;
    for (int32_t t = 0; t < m->triangleCount; ++t) {
        const TessTriangle &tri = m->triangles[t];
        int32_t c[3];
        for (int k = 0; k < 3; ++k) c[k] = static_cast<int32_t>(tri.v[k] - m->vertices);
        for (int k = 0; k < 3; ++k) ++directed[{c[k], c[(k + 1) % 3]}];
        const float *a = tri.v[0]->pos, *b = tri.v[1]->pos, *d = tri.v[2]->pos;
        s.volume += (a[0] * (b[1] * d[2] - b[2] * d[1]) - a[1] * (b[0] * d[2] - b[2] * d[0]) +
                     a[2] * (b[0] * d[1] - b[1] * d[0])) / 6.0;
    }
    std::set<std::pair<int32_t, int32_t>> undirected;
    for (const auto &[edge, count] : directed) {
        if (count != 1 || !directed.count({edge.second, edge.first})) s.closed = false;
        undirected.insert({std::min(edge.first, edge.second), std::max(edge.first, edge.second)});
    }
    s.components = m->vertexCount - static_cast<int>(undirected.size()) + m->triangleCount;
    return s;
}

}  // namespace

TEST(Meta, ALoneBallClosesAtItsRadiusFacingOut) {
    // The group sits away from the origin: the surface is in its coordinates.
    Model *g = group("clay");
    g->globalMatrix[3][0] = 5.0f;
    const float at[3] = {5.3f, -0.2f, 0.1f};
    const double radius = 1.5;
    modelAddChild(g, ball("ball", radius, 1.0, at));
    ASSERT_EQ(tessellateModel(g, 2, 0, 0), 0);
    ASSERT_GT(g->triangleCount, 100);
    const float centre[3] = {0.3f, -0.2f, 0.1f};
    double worst = 0.0;
    for (int32_t i = 0; i < g->vertexCount; ++i) {
        const TessVertex &v = g->vertices[i];
        double d[3], len = 0.0, along = 0.0;
        for (int k = 0; k < 3; ++k) {
            d[k] = v.pos[k] - centre[k];
            len += d[k] * d[k];
        }
        len = std::sqrt(len);
        for (int k = 0; k < 3; ++k) along += v.normal[k] * d[k] / len;
        worst = std::fmax(worst, std::fabs(len - radius) / radius);
        EXPECT_GT(along, 0.999);  // the normal points straight out
    }
    EXPECT_LT(worst, 0.02);
    const Shape s = shapeOf(g);
    EXPECT_TRUE(s.closed);
    EXPECT_EQ(s.components, 2);
    // Counter-clockwise seen from outside: the volume comes out positive.
    EXPECT_NEAR(s.volume, 4.0 / 3.0 * M_PI * radius * radius * radius, 0.03 * s.volume);
    modelFree(g);
}

TEST(Meta, NearBallsRunTogetherAndFarOnesStayApart) {
    for (const float gap : {2.5f, 4.5f}) {
        Model *g = group("clay");
        const float left[3] = {0, 0, 0}, right[3] = {gap, 0, 0};
        modelAddChild(g, ball("left", 1.0, 1.0, left));
        modelAddChild(g, ball("right", 1.0, 1.0, right));
        ASSERT_EQ(tessellateModel(g, 2, 0, 0), 0);
        const Shape s = shapeOf(g);
        EXPECT_TRUE(s.closed);
        // Near, the bumps add up past the threshold between the balls: one
        // body, bulging between the two. Further apart, two spheres.
        EXPECT_EQ(s.components, gap < 4.0f ? 2 : 4) << gap;
        bool between = false;
        for (int32_t i = 0; i < g->vertexCount; ++i)
            if (std::fabs(g->vertices[i].pos[0] - gap / 2) < 0.1f) between = true;
        EXPECT_EQ(between, gap < 4.0f) << gap;
        modelFree(g);
    }
}

TEST(Meta, MembersNameTheirBalls) {
    // The balls stand beside the group in the tree; the group names one.
    Model *root = modelNew("root", MODEL_BARE, nullptr);
    Model *g = group("clay");
    MetaGroup *meta = g->geometry.meta;
    meta->memberCount = 1;
    meta->members = static_cast<MetaMember *>(calloc(1, sizeof(MetaMember)));
    meta->members[0].name = dup("named");
    const float at[3] = {0, 0, 0}, away[3] = {10, 0, 0};
    modelAddChild(root, g);
    modelAddChild(root, ball("named", 1.0, 1.0, at));
    modelAddChild(root, ball("other", 1.0, 1.0, away));
    ASSERT_EQ(tessellateModel(g, 2, 0, 0), 0);
    ASSERT_GT(g->triangleCount, 0);
    for (int32_t i = 0; i < g->vertexCount; ++i) EXPECT_LT(g->vertices[i].pos[0], 2.0f);

    // A name that leads nowhere: nothing to draw.
    free(meta->members[0].name);
    meta->members[0].name = dup("missing");
    ASSERT_EQ(tessellateModel(g, 2, 0, 0), 0);
    EXPECT_EQ(g->triangleCount, 0);
    EXPECT_EQ(g->vertices, nullptr);
    modelFree(root);
}
