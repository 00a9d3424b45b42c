// Curve and surface deformations: models laid along a line and a circular
// arc, and over flat and bent patches, with the expected places worked out
// here from the geometry of each driver; and the records that name a driver.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "animation.h"
#include "scene_fixture.h"
#include "dictionary.h"
#include "geometry.h"
#include "model.h"

namespace {

constexpr double TOL = 2e-3;

// A linear patch with the given CVs, u fastest.
Patch *linearPatch(int uCount, int vCount, const std::vector<std::array<float, 3>> &cvs) {
    auto *p = static_cast<Patch *>(calloc(1, sizeof(Patch)));
    p->uType = p->vType = PATCH_LINEAR;
    p->uCount = static_cast<uint16_t>(uCount);
    p->vCount = static_cast<uint16_t>(vCount);
    p->cvs = static_cast<float (*)[4]>(calloc(cvs.size(), sizeof(float[4])));
    for (size_t i = 0; i < cvs.size(); ++i) {
        for (int k = 0; k < 3; ++k) p->cvs[i][k] = cvs[i][static_cast<size_t>(k)];
        p->cvs[i][3] = 1.0f;
    }
    return p;
}

// A NURBS curve of `degree` on CVs (x, y, z and weight) on a clamped knot vector.
NurbsCurve *nurbs(int degree, const std::vector<std::array<double, 4>> &cvs, const std::vector<double> &knots) {
    auto *c = static_cast<NurbsCurve *>(calloc(1, sizeof(NurbsCurve)));
    c->degree = degree;
    c->cvCount = static_cast<int32_t>(cvs.size());
    c->cvs = static_cast<double (*)[4]>(calloc(cvs.size(), sizeof(double[4])));
    for (size_t i = 0; i < cvs.size(); ++i)
        for (int k = 0; k < 4; ++k) c->cvs[i][k] = cvs[i][static_cast<size_t>(k)];
    c->knotCount = static_cast<int32_t>(knots.size());
    c->knots = static_cast<double *>(malloc(knots.size() * sizeof(double)));
    memcpy(c->knots, knots.data(), knots.size() * sizeof(double));
    return c;
}

void translate(Model *m, float x, float y, float z) {
    m->globalMatrix[3][0] = x, m->globalMatrix[3][1] = y, m->globalMatrix[3][2] = z;
}

class CurveDeform : public ::testing::Test {
protected:
    // The handler table also installs the release of the models' rest copies.
    void SetUp() override { updateHandlerFind(RELGR_GEOM, 245); }
    void TearDown() override {
        for (Model *m : owned) {
            modelDeformersFree(m->deformers);
            m->deformers = nullptr;
        }
        std::vector<Model *> roots;
        for (Model *m : owned)
            if (!m->parent) roots.push_back(m);
        for (Model *m : roots) modelFree(m);
    }
    Model *make(const char *name, int32_t type, void *geometry) {
        Model *m = modelNew(name, type, geometry);
        owned.push_back(m);
        return m;
    }
    // A model along x: CVs at x = -2, -1, 0, 1, 2, two rows at y = 0 and y = `width`, z = `height`.
    Model *strip(float width, float height = 0.0f) {
        std::vector<std::array<float, 3>> cvs;
        for (int v = 0; v < 2; ++v)
            for (int u = 0; u < 5; ++u) cvs.push_back({static_cast<float>(u - 2), v * width, height});
        return make("strip", MODEL_PATCH, linearPatch(5, 2, cvs));
    }
    // The model's points deformed by its slot, in the model's frame.
    std::vector<float> deformed(Model *m, int slot, int *applied = nullptr) {
        const int32_t count = geometryPointCount(m->type, m->geometry.any);
        std::vector<float> xyz(static_cast<size_t>(count) * 3);
        geometryPositionsRead(m->type, m->geometry.any, xyz.data());
        const int r = curveDeformApply(m, slot, reinterpret_cast<float (*)[3]>(xyz.data()), count);
        if (applied) *applied = r;
        return xyz;
    }
    DeformSlotData &slotOf(Model *m, int slot) { return modelDeformersOf(m)->slot[slot]; }

    std::vector<Model *> owned;
};

#define EXPECT_AT(xyz, i, X, Y, Z)                  \
    do {                                           \
        EXPECT_NEAR((xyz)[(i) * 3 + 0], (X), TOL); \
        EXPECT_NEAR((xyz)[(i) * 3 + 1], (Y), TOL); \
        EXPECT_NEAR((xyz)[(i) * 3 + 2], (Z), TOL); \
    } while (0)

// ---------------------------------------------------------------------------
// Along a curve

TEST_F(CurveDeform, PointsKeepTheirShareOfTheLengthAlongALineWithOffsetsOnItsNormal) {
    // A line of length 10 from (1, 2, 0) toward (0.6, 0.8, 0): the normal that
    // starts as +y for a line along x is +z x tangent = (-0.8, 0.6, 0).
    Model *line = make("line", MODEL_NURBS_CURVE, nurbs(1, {{1, 2, 0, 1}, {7, 10, 0, 1}}, {0, 0, 1, 1}));
    Model *m = strip(0.5f, 0.25f);
    slotOf(m, DEFORM_SLOT_LOCAL).curve = line;
    const std::vector<float> xyz = deformed(m, DEFORM_SLOT_LOCAL);
    for (int v = 0; v < 2; ++v)
        for (int u = 0; u < 5; ++u) {
            const double s = u / 4.0 * 10.0, y = v * 0.5;
            EXPECT_AT(xyz, v * 5 + u, 1 + 0.6 * s - 0.8 * y, 2 + 0.8 * s + 0.6 * y, 0.25);
        }
}

TEST_F(CurveDeform, OnAQuarterCircleTheOffsetPointsStayAtTheirDistanceFromTheCentre) {
    // An exact quarter circle of radius 4 about (0, 4, 0), from the origin
    // heading +x: angle a at arc length s = 4 a; the normal points inward.
    const double R = 4.0, h = std::sqrt(0.5);
    Model *arc = make("arc", MODEL_NURBS_CURVE,
                      nurbs(2, {{0, 0, 0, 1}, {R, 0, 0, h}, {R, R, 0, 1}}, {0, 0, 0, 1, 1, 1}));
    EXPECT_NEAR(curveLength(arc), R * M_PI / 2, 1e-3);
    Model *m = strip(1.0f);
    slotOf(m, DEFORM_SLOT_LOCAL).curve = arc;
    const std::vector<float> xyz = deformed(m, DEFORM_SLOT_LOCAL);
    for (int v = 0; v < 2; ++v)
        for (int u = 0; u < 5; ++u) {
            const double a = u / 4.0 * (M_PI / 2), d = v * 1.0;
            EXPECT_AT(xyz, v * 5 + u, (R - d) * std::sin(a), R - (R - d) * std::cos(a), 0.0);
        }
}

TEST_F(CurveDeform, TheBlockSetsStartLengthTwistScaleAndStrength) {
    Model *line = make("line", MODEL_NURBS_CURVE, nurbs(1, {{0, 0, 0, 1}, {8, 0, 0, 1}}, {0, 0, 1, 1}));
    Model *m = strip(1.0f);
    DeformSlotData &slot = slotOf(m, DEFORM_SLOT_LOCAL);
    slot.curve = line;
    DeformerBlock &b = slot.curveBlock;
    b.present = 1;
    b.scale[0] = b.scale[1] = b.scale[2] = 1.0f;
    // Start at a quarter of the length, cover half of it, y offsets doubled
    // and turned a quarter about the tangent (y onto z).
    b.extra[0] = b.falloff = 1.0f;
    b.extra[1] = 0.25f;
    b.extra[2] = 0.5f;
    b.scale[1] = 2.0f;
    b.rotation = static_cast<float>(M_PI / 2);
    std::vector<float> xyz = deformed(m, DEFORM_SLOT_LOCAL);
    for (int u = 0; u < 5; ++u) EXPECT_AT(xyz, 5 + u, 2 + u / 4.0 * 4, 0, 2);

    // Half strength: halfway between the rest point and the deformed one.
    b.falloff = 0.5f;
    xyz = deformed(m, DEFORM_SLOT_LOCAL);
    EXPECT_AT(xyz, 5, (-2 + 2) / 2.0, 0.5, 1);

    // No strength: the points stay, and the slot still counts as applied.
    b.falloff = 0.0f;
    int applied = 0;
    xyz = deformed(m, DEFORM_SLOT_LOCAL, &applied);
    EXPECT_EQ(applied, 1);
    EXPECT_AT(xyz, 9, 2, 1, 0);
}

TEST_F(CurveDeform, TheGlobalFormMeasuresOffsetsInWorldTheLocalFormInTheModel) {
    Model *line = make("line", MODEL_NURBS_CURVE, nurbs(1, {{0, 0, 0, 1}, {8, 0, 0, 1}}, {0, 0, 1, 1}));
    Model *m = strip(1.0f);
    translate(m, 0, 0, 5);
    slotOf(m, DEFORM_SLOT_LOCAL).curve = line;
    slotOf(m, DEFORM_SLOT_GLOBAL).curve = line;
    // Local: the model's own axis goes onto the curve, which sits 5 below it.
    std::vector<float> xyz = deformed(m, DEFORM_SLOT_LOCAL);
    EXPECT_AT(xyz, 6, 2, 1, -5);
    // Global: the world axis goes onto the curve; the model's height stays.
    xyz = deformed(m, DEFORM_SLOT_GLOBAL);
    EXPECT_AT(xyz, 6, 2, 1, 0);
}

TEST_F(CurveDeform, NothingHappensWithoutADriverOfAKnownKind) {
    Model *m = strip(1.0f);
    int applied = 1;
    deformed(m, DEFORM_SLOT_LOCAL, &applied);
    EXPECT_EQ(applied, 0);  // no record of deformers at all
    Model *bare = make("bare", MODEL_BARE, nullptr);
    slotOf(m, DEFORM_SLOT_LOCAL).curve = bare;
    const std::vector<float> xyz = deformed(m, DEFORM_SLOT_LOCAL, &applied);
    EXPECT_EQ(applied, 0);
    EXPECT_AT(xyz, 9, 2, 1, 0);
}

// ---------------------------------------------------------------------------
// Over a surface

TEST_F(CurveDeform, AFlatGridOverAFlatPatchOfItsSizeOnlyMovesWithThePatch) {
    Model *flat = make("flat", MODEL_PATCH, linearPatch(2, 2, {{-2, 0, 0}, {2, 0, 0}, {-2, 1, 0}, {2, 1, 0}}));
    translate(flat, 1, -1, 3);
    Model *m = strip(1.0f, 0.5f);
    slotOf(m, DEFORM_SLOT_LOCAL).curve = flat;
    const std::vector<float> xyz = deformed(m, DEFORM_SLOT_LOCAL);
    for (int v = 0; v < 2; ++v)
        for (int u = 0; u < 5; ++u) EXPECT_AT(xyz, v * 5 + u, u - 2 + 1, v - 1, 0.5 + 3);
}

TEST_F(CurveDeform, OverABentPatchPointsLieOnItAndHeightFollowsItsNormal) {
    // A roof: up from x = 0 to the ridge at x = 2 (height 2), down to x = 4.
    Model *roof = make("roof", MODEL_PATCH,
                       linearPatch(3, 2, {{0, 0, 0}, {2, 0, 2}, {4, 0, 0}, {0, 3, 0}, {2, 3, 2}, {4, 3, 0}}));
    Model *m = strip(1.0f, 0.0f);
    slotOf(m, DEFORM_SLOT_LOCAL).curve = roof;
    std::vector<float> xyz = deformed(m, DEFORM_SLOT_LOCAL);
    // u = (x + 2) / 4 over the roof's x 0..4; v = y over its y 0..3.
    for (int v = 0; v < 2; ++v)
        for (int u = 0; u < 5; ++u) EXPECT_AT(xyz, v * 5 + u, u, v * 3.0, u <= 2 ? u : 4 - u);

    // Raised by 1: off the left slope along its normal (-1, 0, 1) / sqrt 2.
    Model *raised = strip(1.0f, 1.0f);
    slotOf(raised, DEFORM_SLOT_LOCAL).curve = roof;
    xyz = deformed(raised, DEFORM_SLOT_LOCAL);
    const double h = std::sqrt(0.5);
    EXPECT_AT(xyz, 1, 1 - h, 0, 1 + h);
}

// ---------------------------------------------------------------------------
// Records

TEST_F(CurveDeform, TheRecordNamesTheDriverInTheSlotOfItsBlockAndMarksItPending) {
    Model *line = make("line", MODEL_NURBS_CURVE, nurbs(1, {{0, 0, 0, 1}, {8, 0, 0, 1}}, {0, 0, 1, 1}));
    Model *m = strip(1.0f);
    UpdateHandler handler = updateHandlerFind(RELGR_GEOM, 245);
    ASSERT_NE(handler, nullptr);
    UpdateSource source{CHP_MODELS, RELGR_GEOM, 0, line, 1, nullptr};
    UpdateRecord record = recordFor(CHP_MODELS, m, 245, &source, 1);

    // No block written: the local slot.
    int flags = 0;
    handler(&record, 0.0f, &flags);
    EXPECT_EQ(flags, DEFORM_FLAG_LOCAL);
    ASSERT_NE(m->deformers, nullptr);
    EXPECT_EQ(m->deformers->slot[DEFORM_SLOT_LOCAL].curve, line);
    EXPECT_EQ(m->deformers->slot[DEFORM_SLOT_LOCAL].pending, 1);
    EXPECT_EQ(m->deformers->slot[DEFORM_SLOT_GLOBAL].pending, 0);

    // A 231 block: the global slot.
    m->deformers->slot[DEFORM_SLOT_LOCAL] = DeformSlotData{};
    m->deformers->slot[DEFORM_SLOT_GLOBAL].curveBlock.present = 1;
    handler(&record, 0.0f, &flags);
    EXPECT_EQ(flags, DEFORM_FLAG_GLOBAL);
    EXPECT_EQ(m->deformers->slot[DEFORM_SLOT_GLOBAL].curve, line);
    EXPECT_EQ(m->deformers->slot[DEFORM_SLOT_GLOBAL].pending, 1);

    // A driver that is neither curve nor surface leaves all as it was.
    Model *bare = make("bare", MODEL_BARE, nullptr);
    source.data = bare;
    flags = 0;
    handler(&record, 0.0f, &flags);
    EXPECT_EQ(flags, 0);
    EXPECT_EQ(m->deformers->slot[DEFORM_SLOT_GLOBAL].curve, line);

    // The custom deformers are registered and change nothing.
    for (int32_t id : {250, 251, 252, 253, 255, 256, 257, 260}) {
        UpdateHandler custom = updateHandlerFind(RELGR_GEOM, id);
        ASSERT_NE(custom, nullptr) << id;
        record.relation = id;
        custom(&record, 0.0f, &flags);
        EXPECT_EQ(flags, 0) << id;
    }
}

TEST_F(CurveDeform, TheRecursiveFormDeformsEachDescendantAtOnceFromItsRestEveryFrame) {
    Model *line = make("line", MODEL_NURBS_CURVE, nurbs(1, {{0, 0, 0, 1}, {8, 0, 0, 1}}, {0, 0, 1, 1}));
    Model *m = strip(1.0f);
    Model *child = strip(1.0f);
    modelAddChild(m, child);
    UpdateHandler handler = updateHandlerFind(RELGR_GEOM, 246);
    ASSERT_NE(handler, nullptr);
    UpdateSource source{CHP_MODELS, RELGR_GEOM, 0, line, 1, nullptr};
    UpdateRecord record = recordFor(CHP_MODELS, m, 246, &source, 1);
    for (int frame = 0; frame < 2; ++frame) {
        int flags = 0;
        handler(&record, 0.0f, &flags);
        // The model waits for the end of its geometry group.
        EXPECT_EQ(flags, DEFORM_FLAG_LOCAL);
        EXPECT_EQ(m->deformers->slot[DEFORM_SLOT_LOCAL].pending, 1);
        EXPECT_EQ(m->geometry.patch->cvs[4][0], 2.0f);  // the model's own points wait
        // The child is on the curve already, and a second frame does not
        // deform it twice.
        const Patch *p = child->geometry.patch;
        EXPECT_NEAR(p->cvs[9][0], 8, TOL) << frame;
        EXPECT_NEAR(p->cvs[9][1], 1, TOL) << frame;
        EXPECT_NEAR(p->cvs[2][0], 4, TOL) << frame;
    }
}

}  // namespace
