// Envelopes: skins moved by their skeletons in a scene in memory, the
// weighted sum, the skipping of still skeletons, round joints, the place of
// the skin's record in the update list, and the envelope fields of a model node.
#include <array>
#include <cmath>
#include <cstdlib>

#include "../fileio/bytes.h"
#include "scene_fixture.h"

namespace {

using Point = std::array<double, 3>;
constexpr double PI = 3.14159265358979323846;

// A point turned about z by `degrees` (row vectors, as the models hold them)
// around `pivot`, then moved by `shift`.
Point turnZ(Point p, double degrees, Point pivot = {0, 0, 0}, Point shift = {0, 0, 0}) {
    const double a = degrees * PI / 180.0, c = std::cos(a), s = std::sin(a);
    const double x = p[0] - pivot[0], y = p[1] - pivot[1];
    return {x * c - y * s + pivot[0] + shift[0], x * s + y * c + pivot[1] + shift[1], p[2] + shift[2]};
}

class EnvelopeTest : public SceneTest {
protected:
    void SetUp() override {
        SceneTest::SetUp();
        unsetenv("BW_NO_ENVELOP_OPTIM");
        unsetenv("BW_ENV_RND_FST_JNT");
        evalFlagsReset();
    }
    void TearDown() override {
        unsetenv("BW_NO_ENVELOP_OPTIM");
        unsetenv("BW_ENV_RND_FST_JNT");
        evalFlagsReset();
        SceneTest::TearDown();
    }

    // A cube whose first points are put where asked, as the skin.
    int makeSkin(const std::vector<Point> &points, int parent = -1) {
        skin = model("skin", parent);
        Model *m = node(skin);
        m->type = MODEL_MESH;
        m->geometry.mesh = meshMakeCube(1.0f);
        m->envelopeRole = ENVELOPE_ROLE_SKIN;
        std::vector<float> xyz(3 * 8);
        geometryPositionsRead(MODEL_MESH, m->geometry.mesh, xyz.data());
        for (size_t i = 0; i < points.size(); ++i)
            for (int k = 0; k < 3; ++k) xyz[3 * i + k] = static_cast<float>(points[i][k]);
        geometryPositionsWrite(MODEL_MESH, m->geometry.mesh, xyz.data());
        return skin;
    }
    // A deformer bound where it stands: its reference is its local place.
    int deformer(const char *name, int parent, int32_t role, Point at, int32_t type = 0) {
        int i = model(name, parent);
        Model *m = node(i);
        m->type = type;
        m->envelopeRole = role;
        EnvelopeData *d = envelopeDataGet(m);
        for (int k = 0; k < 3; ++k) d->reference[6 + k] = m->translation[k] = static_cast<float>(at[k]);
        return i;
    }
    void assign(int bone, std::vector<std::pair<int32_t, float>> a) {
        EnvelopeSkin *s = envelopeSkinAdd(node(bone)->envelope, node(skin), nullptr, static_cast<int32_t>(a.size()));
        ASSERT_NE(s, nullptr);
        for (size_t i = 0; i < a.size(); ++i) s->assignments[i] = {a[i].first, a[i].second};
    }
    void connect(int top) { ASSERT_EQ(relAdd(&dict, nullptr, skin, top, 206, 1, 1, nullptr, 1), 1); }
    void run() { updatelistEval(&dict, &list, 0.0f); }

    Point point(int i) {
        std::vector<float> xyz(3 * 8);
        geometryPositionsRead(MODEL_MESH, node(skin)->geometry.mesh, xyz.data());
        return {xyz[3 * i], xyz[3 * i + 1], xyz[3 * i + 2]};
    }
    void expectAt(int i, Point want, double tolerance = 1e-5) {
        Point got = point(i);
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(got[k], want[k], tolerance) << "point " << i << " axis " << k;
    }

    int skin = -1;
};

// A skin of eight points on a root with one arm bound at (2, 0, 0).
class ArmTest : public EnvelopeTest {
protected:
    void SetUp() override {
        EnvelopeTest::SetUp();
        makeSkin({{3, 1, 0}, {3, 0, 0}, {3, 0, 0}, {1, 1, 1}, {3, 1, 0}, {3, 1, 0}, {0, 0, 0}, {0, 0, 0}});
        // The base under a plain model, so that it has a hierarchy step of its own.
        base = deformer("base", model("world"), ENVELOPE_ROLE_ROOT, {0, 0, 0});
        arm = deformer("arm", base, ENVELOPE_ROLE_DEFORMER, {2, 0, 0});
        assign(arm, {{0, 100.0f}, {1, 0.01f}, {2, 0.009f}, {8, 100.0f}, {-1, 100.0f}, {4, 50.0f}});
        assign(base, {{4, 50.0f}, {5, 100.0f}});
        connect(base);
        ASSERT_EQ(build(), 1);
        run();
    }
    // The arm turned about z, the base moved.
    void pose(double degrees, Point baseShift) {
        node(arm)->rotation[2] = static_cast<float>(degrees * PI / 180.0);
        for (int k = 0; k < 3; ++k) node(base)->translation[k] = static_cast<float>(baseShift[k]);
    }
    int base = -1, arm = -1;
};

}  // namespace

TEST_F(ArmTest, PointsFollowTheirBonesAsAWeightedSum) {
    expectAt(0, {3, 1, 0});  // bind pose: nothing moves
    const Point shift = {0, 0.5, 0};
    pose(30, shift);
    run();
    // Whole weight: rigid with the arm, which turns about its own origin and
    // moves with the base.
    const Point rigid = turnZ({3, 1, 0}, 30, {2, 0, 0}, shift);
    expectAt(0, rigid);
    // Half and half: the mean of the two rigid results.
    const Point withBase = {3 + shift[0], 1 + shift[1], 0};
    expectAt(4, {(rigid[0] + withBase[0]) / 2, (rigid[1] + withBase[1]) / 2, 0});
    expectAt(5, withBase);
    // 0.01 percent still counts, 0.009 percent does not.
    const Point small = turnZ({3, 0, 0}, 30, {2, 0, 0}, shift);
    expectAt(1, {3 + (small[0] - 3) * 1e-4, (small[1]) * 1e-4, 0}, 1e-6);
    EXPECT_NE(point(1)[1], 0.0);
    expectAt(2, {3, 0, 0}, 0.0);
    // Unassigned points stay at rest; indices past the points were passed over.
    expectAt(3, {1, 1, 1}, 0.0);
    EXPECT_EQ(node(skin)->displayFlags & 64, 64);
}

TEST_F(ArmTest, AStillSkeletonCostsNoSkinWork) {
    EXPECT_TRUE(node(arm)->envelope->bits == 0 && node(base)->envelope->bits == 0);
    // The end of the walk kept the pose the next walk compares with.
    node(arm)->rotation[2] = 0.25f;
    run();
    const EnvelopeData *d = node(arm)->envelope;
    EXPECT_FLOAT_EQ(d->lastPose[5], 0.25f);
    EXPECT_FLOAT_EQ(d->lastPose[6], 2.0f);
    EXPECT_FLOAT_EQ(d->lastPose[0], node(arm)->globalScale[0]);
    EXPECT_EQ(d->bits, 0);
    const Point moved = point(0);
    const int64_t before = envelopeDeformCount();
    run();
    EXPECT_EQ(envelopeDeformCount(), before);
    // Below the bound in every value the skin stands as it is.
    node(arm)->rotation[2] += 0.00009f;
    node(base)->translation[0] += 0.00009f;
    node(arm)->scaling[1] += 0.00009f;
    run();
    EXPECT_EQ(envelopeDeformCount(), before);
    EXPECT_EQ(point(0), moved);
    // Past it, the skin is made again.
    node(arm)->rotation[2] += 0.0002f;
    run();
    EXPECT_EQ(envelopeDeformCount(), before + 1);
    // Without the deferral every record makes its skin, moved or not.
    setenv("BW_NO_ENVELOP_OPTIM", "", 1);
    evalFlagsReset();
    run();
    run();
    EXPECT_EQ(envelopeDeformCount(), before + 3);
}

TEST_F(ArmTest, ASwitchedOffRecordPutsTheSkinBackAtRest) {
    pose(90, {0, 0, 0});
    run();
    EXPECT_NE(point(0), (Point{3, 1, 0}));
    UpdateRecord *r = nullptr;
    for (int i = 0; i < list.count; ++i)
        if (list.records[i].relation == 206) r = &list.records[i];
    ASSERT_NE(r, nullptr);
    r->active = 0;
    envelopeUpdateRecord(r, 0.0f, nullptr);
    expectAt(0, {3, 1, 0}, 0.0);
}

TEST_F(EnvelopeTest, TheSkinsRecordStandsBehindEveryDeformerAndChainSolve) {
    // The skin first in index order; the arm's own curves and the chain's
    // effector come after the skeleton's top.
    makeSkin({});
    int root = deformer("root", -1, ENVELOPE_ROLE_ROOT, {0, 0, 0});
    node(root)->kind = MODEL_KIND_CHAIN;
    int joint = deformer("joint", root, ENVELOPE_ROLE_CHAIN_DEFORMER, {0, 0, 0}, MODEL_TYPE_JOINT);
    node(joint)->kind = MODEL_KIND_CHAIN;
    int effector = model("effector", joint);
    node(effector)->kind = MODEL_KIND_EFFECTOR;
    animate(joint, 101, {constant(6, 45)});
    EnvelopeSkin *s = envelopeSkinAdd(node(joint)->envelope, nullptr, "skin", 1);
    ASSERT_NE(s, nullptr);
    s->assignments[0] = {0, 100.0f};
    connect(root);
    ASSERT_EQ(updatelistBuildScene(&dict), 1);
    // The load ties the stored name to the skin and gives the skin its role.
    EXPECT_EQ(s->skin, node(skin));
    EXPECT_EQ(node(skin)->envelopeRole, ENVELOPE_ROLE_SKIN);
    std::swap(list, dict.update);
    int at206 = -1, lastOther = -1;
    for (int i = 0; i < list.count; ++i) {
        const UpdateRecord &r = list.records[i];
        if (r.element == skin && r.relation == 206) at206 = i;
        if (r.element == joint || r.element == effector || r.element == root) lastOther = i;
    }
    ASSERT_GE(at206, 0) << order();
    EXPECT_GT(at206, lastOther) << order();
    EXPECT_NE(order().find(std::to_string(effector) + ":120"), std::string::npos) << order();
    // Virtual relations are gone after the build.
    hierarchyRelations(&dict, 0, 0);
    const Element *e = elemGet(&dict, CHP_MODELS, skin);
    for (int i = 0; i < e->childGroups[RELGR_TRANSFO].count; ++i)
        EXPECT_NE(e->childGroups[RELGR_TRANSFO].items[i].relid, -109);
}

TEST_F(EnvelopeTest, RoundJointsAreContinuousAcrossTheJoint) {
    // Two joints along x, the second turned 90 degrees at (2, 0, 0); the same
    // place beside the joint on either bone, and the far end of the second.
    makeSkin({{2, 0.5, 0}, {2, 0.5, 0}, {4, 0, 0}, {1, 0.5, 0}});
    int root = deformer("root", -1, ENVELOPE_ROLE_ROOT, {0, 0, 0});
    node(root)->kind = MODEL_KIND_CHAIN;
    int first = deformer("first", root, ENVELOPE_ROLE_CHAIN_DEFORMER, {0, 0, 0}, MODEL_TYPE_JOINT);
    int second = deformer("second", first, ENVELOPE_ROLE_CHAIN_DEFORMER, {2, 0, 0}, MODEL_TYPE_JOINT);
    int tip = model("tip", second);
    node(tip)->translation[0] = 2.0f;
    assign(first, {{0, 100.0f}, {3, 100.0f}});
    assign(second, {{1, 100.0f}, {2, 100.0f}});
    connect(root);
    ASSERT_EQ(build(), 1);
    node(second)->rotation[2] = static_cast<float>(PI / 2);
    // Plain joints break the skin at the joint.
    run();
    expectAt(0, {2, 0.5, 0});
    expectAt(1, {1.5, 0, 0});
    // Rounded, both bones meet in the frame turned half way.
    node(first)->envelope->rounding = 1.0f;
    node(first)->envelope->bits |= ENVELOPE_REBUILD;  // its points are to be made again
    run();
    const Point half = turnZ({2, 0.5, 0}, 45, {2, 0, 0});
    expectAt(0, half);
    expectAt(1, half);
    // The far end of the last bone is rigid with it; the middle of the first
    // bone is half way to the joint's frame.
    expectAt(2, turnZ({4, 0, 0}, 90, {2, 0, 0}));
    const Point mid = turnZ({1, 0.5, 0}, 45, {2, 0, 0});
    expectAt(3, {(1 + mid[0]) / 2, (0.5 + mid[1]) / 2, 0});
}

TEST_F(EnvelopeTest, ASkinThatMovesItselfDeformsWithThisWalksMatrix) {
    // Skin and skeleton under one moving model: in the skin's own space only
    // the arm's turn shows, at every frame.
    int world = model("world");
    animate(world, 113, {curve(139, {{0, 0}, {10, 10}})});
    makeSkin({{3, 1, 0}}, world);
    int base = deformer("base", world, ENVELOPE_ROLE_ROOT, {0, 0, 0});
    int arm = deformer("arm", base, ENVELOPE_ROLE_DEFORMER, {2, 0, 0});
    assign(arm, {{0, 100.0f}});
    connect(base);
    ASSERT_EQ(build(), 1);
    EXPECT_NE(order().find(std::to_string(skin) + ":-100 " + std::to_string(skin) + ":206"), std::string::npos) << order();
    for (int frame = 0; frame < 3; ++frame) {
        node(arm)->rotation[2] = static_cast<float>((10.0 + 10.0 * frame) * PI / 180.0);
        updatelistEval(&dict, &list, static_cast<float>(frame));
        expectAt(0, turnZ({3, 1, 0}, 10.0 + 10.0 * frame, {2, 0, 0}));
    }
}

TEST_F(EnvelopeTest, TheFirstJointRoundsOnlyWithTheSwitch) {
    // A first joint at (1, 0, 0) turned 90 degrees; a point beside its start.
    makeSkin({{1, 0.5, 0}});
    int root = deformer("root", model("world"), ENVELOPE_ROLE_ROOT, {0, 0, 0});
    int first = deformer("first", root, ENVELOPE_ROLE_CHAIN_DEFORMER, {1, 0, 0}, MODEL_TYPE_JOINT);
    node(model("tip", first))->translation[0] = 2.0f;
    node(first)->envelope->rounding = 1.0f;
    node(first)->rotation[2] = static_cast<float>(PI / 2);
    assign(first, {{0, 100.0f}});
    connect(root);
    ASSERT_EQ(build(), 1);
    auto again = [&] {
        node(first)->envelope->bits |= ENVELOPE_REBUILD;
        evalFlagsReset();
        run();
    };
    const Point plain = turnZ({1, 0.5, 0}, 90, {1, 0, 0}), half = turnZ({1, 0.5, 0}, 45, {1, 0, 0});
    again();
    expectAt(0, plain);
    setenv("BW_ENV_RND_FST_JNT", "", 1);
    again();
    expectAt(0, half);
    // Below a skeleton's model, or in classical scaling, the switch counts for nothing.
    node(root)->envelopeRole = ENVELOPE_ROLE_SKELETON;
    again();
    expectAt(0, plain);
    node(root)->envelopeRole = ENVELOPE_ROLE_ROOT;
    g_scalingType = 1;
    again();
    expectAt(0, plain);
}

TEST(EnvelopeFile, NodeTokensCarryTheRoleAndTheDeformerRecord) {
    using bwtest::Buf;
    // Version 3.4, no table: name, type 0, role 8 and the envelope block.
    Buf block;
    block.f32(1).f32(2).f32(1).f32(0).f32(0).f32(90).f32(4).f32(5).f32(6);  // reference
    for (int i = 0; i < 16; ++i) block.f32(i % 5 == 0 ? 1.0f : 0.0f);      // base pose
    block.f32(0.5f).i32(2);                                                 // rounding, skins
    block.raw("body", 5).i32(2).i32(3).f32(50.0f).i32(7).f32(0.01f);
    block.raw("arm", 4).i32(0);
    Buf b;
    b.header(3.4f).raw("HRCH", 4);
    b.u16(1).raw("bone", 5).u16(2).i32(0).u16(27).i32(ENVELOPE_ROLE_DEFORMER);
    b.u16(28).i32(static_cast<uint32_t>(block.b.size()));
    b.b.insert(b.b.end(), block.b.begin(), block.b.end());
    b.u16(10).u16(0).u16(11).u16(0).u16(0);
    bwtest::TempDir dir;
    std::string path = dir.path() + "/bone";
    bwtest::writeBytes(path + ".hrc", b.b);
    Model *m = modelFileRead(path.c_str(), nullptr, MODEL_READ_NEW);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->envelopeRole, ENVELOPE_ROLE_DEFORMER);
    ASSERT_NE(m->envelope, nullptr);
    const EnvelopeData &d = *m->envelope;
    EXPECT_FLOAT_EQ(d.reference[1], 2.0f);
    EXPECT_NEAR(d.reference[5], PI / 2, 1e-6);  // degrees on disk
    EXPECT_FLOAT_EQ(d.reference[8], 6.0f);
    EXPECT_FLOAT_EQ(d.basePose[3][3], 1.0f);
    EXPECT_FLOAT_EQ(d.basePose[0][1], 0.0f);
    EXPECT_FLOAT_EQ(d.rounding, 0.5f);
    ASSERT_TRUE(d.skins && d.skins->next && !d.skins->next->next);
    EXPECT_STREQ(d.skins->skinName, "body");
    EXPECT_EQ(d.skins->skin, nullptr);
    ASSERT_EQ(d.skins->count, 2);
    EXPECT_EQ(d.skins->assignments[1].vertex, 7);
    EXPECT_FLOAT_EQ(d.skins->assignments[1].weight, 0.01f);
    EXPECT_STREQ(d.skins->next->skinName, "arm");
    EXPECT_EQ(d.skins->next->count, 0);

    // The writer's table form gives the same fields back.
    std::string again = dir.path() + "/again";
    ASSERT_EQ(modelFileWritePath((again + ".hrc").c_str(), m), 1);
    Model *back = modelFileRead(again.c_str(), nullptr, MODEL_READ_NEW);
    ASSERT_TRUE(back && back->envelope);
    EXPECT_EQ(back->envelopeRole, ENVELOPE_ROLE_DEFORMER);
    EXPECT_NEAR(back->envelope->reference[5], PI / 2, 1e-6);
    EXPECT_EQ(back->envelope->skins->assignments[0].vertex, 3);
    modelFree(back);
    modelFree(m);

    // A skin count the block cannot hold stops the read, naming the file and the fault.
    Buf lying;
    lying.header(3.4f).raw("HRCH", 4).u16(1).raw("bone", 5).u16(28).i32(108);
    for (int i = 0; i < 26; ++i) lying.f32(0);
    lying.i32(1000);
    lying.u16(0);
    bwtest::writeBytes(path + ".hrc", lying.b);
    bwtest::OutputCapture cap;
    Model *damaged = modelFileRead(path.c_str(), nullptr, MODEL_READ_NEW);
    EXPECT_TRUE(!damaged || !damaged->envelope || !damaged->envelope->skins);
    modelFree(damaged);
    const std::string said = cap.out.text() + cap.err.text();
    EXPECT_NE(said.find(path + ".hrc at offset 213: envelope skin count 1000 does not fit its block"),
              std::string::npos) << said;
}
