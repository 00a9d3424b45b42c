// Paths: riders placed at a percentage of a curve's length, with the arc
// length measured here on a fine sampling of the curve.
#include <cmath>
#include <cstdlib>

#include "camera.h"
#include "scene_fixture.h"

namespace {

struct P3 {
    double x, y, z;
};

// The cubic of a spline segment as this system draws it: the vertices'
// tangents are handles off their vertex.
P3 bezier(const SplineVertex &a, const SplineVertex &b, double t) {
    double r = 1 - t, w[4] = {r * r * r, 3 * t * r * r, 3 * t * t * r, t * t * t};
    double c[4][3];
    for (int k = 0; k < 3; ++k) {
        c[0][k] = a.pos[k], c[1][k] = a.pos[k] + a.tanOut[k];
        c[2][k] = b.pos[k] + b.tanIn[k], c[3][k] = b.pos[k];
    }
    P3 p{0, 0, 0};
    for (int i = 0; i < 4; ++i) p.x += w[i] * c[i][0], p.y += w[i] * c[i][1], p.z += w[i] * c[i][2];
    return p;
}

double dist(P3 a, P3 b) { return std::sqrt((a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y) + (a.z - b.z) * (a.z - b.z)); }

// The point at `fraction` of the length of an open spline, by 20000 steps a segment.
P3 pointAtFraction(const Spline *s, double fraction, double *length) {
    std::vector<P3> pts;
    for (int i = 0; i + 1 < s->vertexCount; ++i)
        for (int j = (i == 0 ? 0 : 1); j <= 20000; ++j)
            pts.push_back(bezier(s->vertices[i], s->vertices[i + 1], j / 20000.0));
    std::vector<double> acc(pts.size(), 0.0);
    for (size_t i = 1; i < pts.size(); ++i) acc[i] = acc[i - 1] + dist(pts[i - 1], pts[i]);
    *length = acc.back();
    double want = fraction * acc.back();
    size_t i = 1;
    while (i + 1 < pts.size() && acc[i] < want) ++i;
    double f = (want - acc[i - 1]) / (acc[i] - acc[i - 1]);
    return {pts[i - 1].x + f * (pts[i].x - pts[i - 1].x), pts[i - 1].y + f * (pts[i].y - pts[i - 1].y),
            pts[i - 1].z + f * (pts[i].z - pts[i - 1].z)};
}

Spline *spline(std::vector<SplineVertex> vertices) {
    Spline *s = static_cast<Spline *>(calloc(1, sizeof(Spline)));
    s->vertices = static_cast<SplineVertex *>(calloc(vertices.size(), sizeof(SplineVertex)));
    s->vertexCount = static_cast<uint16_t>(vertices.size());
    for (size_t i = 0; i < vertices.size(); ++i) s->vertices[i] = vertices[i];
    return s;
}

class PathTest : public SceneTest {
protected:
    // A curve model of `type` with `geometry`, at `offset`.
    int curveModel(const char *name, int32_t type, void *geometry, const float offset[3]) {
        int c = model(name);
        Model *m = node(c);
        m->type = type;
        m->geometry.any = geometry;
        float s[3] = {1, 1, 1}, r[3] = {0, 0, 0};
        pose(c, s, r, offset);
        return c;
    }
    void ride(int rider, int32_t relid, int curve, int percentage) {
        ASSERT_EQ(relAdd(&dict, nullptr, rider, curve, relid, 1, 1, nullptr, 1), 1);
        ASSERT_EQ(relAdd(&dict, nullptr, rider, percentage, relid, 2, 2, nullptr, 1), 1);
    }
};

TEST_F(PathTest, ARiderStandsOnTheCurveAtThePercentageOfItsLength) {
    Spline *s = spline({{{0, 0, 0}, {0, 0, 0}, {3, 0, 0}, {}}, {{4, 4, 0}, {0, -3, 0}, {0, 2, 0}, {}},
                        {{8, 4, 2}, {-1, 0, 0}, {0, 0, 0}, {}}});
    const float offset[3] = {1, -2, 0.5f};
    int c = curveModel("path", MODEL_SPLINE, s, offset);
    int parent = model("parent");
    float ps[3] = {2, 2, 2}, pr[3] = {0, 45, 0}, pt[3] = {3, 0, 0};
    pose(parent, ps, pr, pt);
    int rider = model("rider", parent);
    int pct = curve(113, {{0.0f, 0.0f}, {10.0f, 100.0f}});
    ride(rider, 112, c, pct);
    ASSERT_EQ(build(), 1);
    for (float time : {0.0f, 1.0f, 3.3f, 5.0f, 7.5f, 10.0f}) {
        updatelistEval(&dict, &list, time);
        double length;
        P3 want = pointAtFraction(s, time / 10.0, &length);
        const Model *m = node(rider);
        EXPECT_NEAR(m->globalPosition[0], want.x + offset[0], 2e-3) << time;
        EXPECT_NEAR(m->globalPosition[1], want.y + offset[1], 2e-3) << time;
        EXPECT_NEAR(m->globalPosition[2], want.z + offset[2], 2e-3) << time;
        EXPECT_NEAR(curveLength(node(c)), length, 1e-3);
    }
}

TEST_F(PathTest, PercentageBeyondAHundredGoesOnAlongTheEnd) {
    Spline *s = spline({{{0, 0, 0}, {}, {}, {}}, {{4, 0, 0}, {}, {}, {}}, {{4, 3, 0}, {}, {}, {}}});
    const float offset[3] = {0, 0, 0};
    int c = curveModel("path", MODEL_SPLINE, s, offset);
    int rider = model("rider");
    ride(rider, 112, c, constant(113, 150));
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 0.0f);
    // Length 7: 10.5 along is 3.5 past the end on the last segment's line.
    EXPECT_NEAR(node(rider)->globalPosition[0], 4.0, 1e-4);
    EXPECT_NEAR(node(rider)->globalPosition[1], 6.5, 1e-4);
}

TEST_F(PathTest, NurbsCurvesCamerasAndLightsFollowPathsToo) {
    NurbsCurve *line = nurbsCurveMakeLine(10.0f);
    const float offset[3] = {0, 1, 0};
    int c = curveModel("line", MODEL_NURBS_CURVE, line, offset);
    int rider = model("rider");
    ride(rider, 112, c, constant(113, 25));
    Camera camera;
    Light light;
    int cam = elemAdd(&dict, CHP_CAMERAS, elemNameParse("cam", nullptr, 0), &camera, nullptr, 0, 0);
    int lig = elemAdd(&dict, CHP_LIGHTS, elemNameParse("lig", nullptr, 0), &light, nullptr, 0, 0);
    ASSERT_EQ(relAdd(&dict, nullptr, cam, c, 1112, 1, 1, nullptr, 1), 1);
    ASSERT_EQ(relAdd(&dict, nullptr, cam, constant(113, 50), 1112, 2, 2, nullptr, 1), 1);
    ASSERT_EQ(relAdd(&dict, nullptr, lig, c, 2114, 1, 1, nullptr, 1), 1);
    ASSERT_EQ(relAdd(&dict, nullptr, lig, constant(113, 100), 2114, 2, 2, nullptr, 1), 1);
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 0.0f);
    EXPECT_NEAR(node(rider)->globalPosition[0], 2.5, 1e-4);
    EXPECT_NEAR(node(rider)->globalPosition[1], 1.0, 1e-6);
    EXPECT_NEAR(camera.position[0], 5.0, 1e-4);
    EXPECT_NEAR(camera.position[1], 1.0, 1e-6);
    EXPECT_NEAR(light.interest[0], 10.0, 1e-4);
    elemGet(&dict, CHP_CAMERAS, cam)->data = nullptr;
    elemGet(&dict, CHP_LIGHTS, lig)->data = nullptr;
}

TEST_F(PathTest, ARiderBesideItsCurveUnderATurnedParentLandsOnTheCurve) {
    int parent = model("parent");
    float ps[3] = {2, 2, 2}, pr[3] = {20, 30, 40}, pt[3] = {1, 2, 3};
    pose(parent, ps, pr, pt);
    Spline *s = spline({{{0, 0, 0}, {}, {}, {}}, {{2, 0, 0}, {}, {}, {}}});
    int c = model("path", parent);
    node(c)->type = MODEL_SPLINE;
    node(c)->geometry.spline = s;
    float cs[3] = {1, 1, 1}, cr[3] = {0, 0, 90}, ct[3] = {1, 0, 0};
    pose(c, cs, cr, ct);
    int rider = model("rider", parent);
    ride(rider, 112, c, constant(113, 50));
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 0.0f);
    // Half way is (1, 0, 0) on the curve: carried by the curve's world matrix.
    const Model *cm = node(c);
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(node(rider)->globalPosition[k], cm->globalMatrix[0][k] + cm->globalMatrix[3][k], 1e-4);
}

}  // namespace
