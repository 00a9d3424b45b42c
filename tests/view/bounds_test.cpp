// Boxes of a model hierarchy for culling, and the scene box of the layer, on
// scenes built in memory with the relation rows the system ships.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "capture.h"
#include "dictionary.h"
#include "model.h"
#include "view.h"
#include "layer_fixture.h"

namespace {

class Bounds : public bwtest::LayerTest {
protected:
    void SetUp() override {
        LayerTest::SetUp();
    }
    void TearDown() override {
        for (Model *m : roots) modelFree(m);
    }
    // A model under `parent` (-1: a root) with its element and parent link: a
    // cube of side 2, or a bare node.
    int model(const char *name, int parent, bool cube, float x = 0, float rotY = 0) {
        Model *m = modelNew(name, cube ? MODEL_MESH : MODEL_BARE, cube ? meshMakeCube(2.0f) : nullptr);
        m->translation[0] = x;
        m->rotation[1] = rotY;
        if (parent >= 0) modelAddChild(node(parent), m);
        else roots.push_back(m);
        int index = elemAdd(dict, CHP_MODELS, elemNameParse(name, nullptr, 0), m, nullptr, 0, 0);
        m->elementIndex = index;
        if (parent >= 0) relAdd(dict, nullptr, index, parent, REL_PARENT, 1, 1, nullptr, 1);
        return index;
    }
    // Relation `relid` from the model to a new element of `chapter`.
    void drive(int index, int chapter, int32_t relid) {
        int other = elemAdd(dict, chapter, elemNameParse("driver", nullptr, 0), nullptr, nullptr, 0, 0);
        ASSERT_NE(relAddVia(dict, nullptr, CHP_MODELS, index, chapter, other, relid, 1, 1, nullptr, 1), 0);
    }
    Model *node(int index) { return static_cast<Model *>(elemGet(dict, CHP_MODELS, index)->data); }
    const BoundsRecord &bounds(int index) { return viewModelRecord(dict, index)->bounds; }
    void build() {
        for (Model *m : roots) modelGlobalUpdate(nullptr, m, 1);
        boundsBuild(dict);
    }
    static void expectBox(const float corners[8][3], std::vector<float> lo, std::vector<float> hi) {
        for (int k = 0; k < 3; ++k) {
            float a = corners[0][k], b = corners[0][k];
            for (int i = 1; i < 8; ++i) a = std::min(a, corners[i][k]), b = std::max(b, corners[i][k]);
            EXPECT_NEAR(a, lo[k], 1e-5f) << "axis " << k;
            EXPECT_NEAR(b, hi[k], 1e-5f) << "axis " << k;
        }
    }

    std::vector<Model *> roots;
};

}  // namespace

TEST_F(Bounds, HierarchyBoxesFollowWhatMoves) {
    // An empty group at x = 10 with two cubes either side of it.
    int group = model("group", -1, false, 10);
    int right = model("right", group, true, 1);
    model("left", group, true, -1);
    // An empty group with one turned cube keeps the cube's own corners.
    int holder = model("holder", -1, false);
    int turned = model("turned", holder, true, 0, 0.5f);
    // A cube driven by a rotation curve moves, and so does its child.
    int mover = model("mover", -1, true);
    int rider = model("rider", mover, true, 3);
    drive(mover, CHP_ANIMATION, 101);
    // Visibility driven: the model keeps its place but loses its box.
    int blinking = model("blinking", -1, true);
    int still = model("still", blinking, true, 3);
    drive(blinking, CHP_ANIMATION, 10);
    // A material changes no point.
    int painted = model("painted", -1, true);
    drive(painted, CHP_MATERIALS, 300);
    int lonely = model("lonely", -1, false);
    build();

    EXPECT_EQ(bounds(group).ownState, BOUNDS_EMPTY);
    EXPECT_EQ(bounds(right).ownState, BOUNDS_VALID);
    expectBox(bounds(right).own, {10, -1, -1}, {12, 1, 1});
    EXPECT_EQ(bounds(group).branchState, BOUNDS_VALID);
    expectBox(bounds(group).branch, {8, -1, -1}, {12, 1, 1});

    EXPECT_EQ(bounds(holder).branchState, BOUNDS_VALID);
    for (int i = 0; i < 8; ++i)
        for (int k = 0; k < 3; ++k) EXPECT_FLOAT_EQ(bounds(holder).branch[i][k], bounds(turned).own[i][k]);

    EXPECT_EQ(bounds(mover).animated, 1);
    EXPECT_EQ(bounds(mover).ownState, BOUNDS_NONE);
    EXPECT_EQ(bounds(rider).animated, 1);
    EXPECT_EQ(bounds(rider).ownState, BOUNDS_NONE);
    EXPECT_EQ(bounds(mover).branchState, BOUNDS_NONE);

    EXPECT_EQ(bounds(blinking).animated, 0);
    EXPECT_EQ(bounds(blinking).ownState, BOUNDS_NONE);
    EXPECT_EQ(bounds(still).ownState, BOUNDS_VALID);
    EXPECT_EQ(bounds(blinking).branchState, BOUNDS_NONE);

    EXPECT_EQ(bounds(painted).ownState, BOUNDS_VALID);
    EXPECT_EQ(bounds(lonely).ownState, BOUNDS_EMPTY);
    EXPECT_EQ(bounds(lonely).branchState, BOUNDS_EMPTY);
}

TEST_F(Bounds, SceneBoxCountsShownSurfacesOnly) {
    int a = model("a", -1, true, 5);
    int b = model("b", -1, true, -5);
    int hidden = model("hidden", -1, true, 50);
    model("bare", -1, false, -50);
    build();
    elemGet(dict, CHP_MODELS, hidden)->deleted = ELEM_HIDDEN;
    float lo[3], hi[3];
    EXPECT_EQ(TOL_scnGetBbox(&scene, nullptr, 0, lo, hi), 1);
    EXPECT_FLOAT_EQ(lo[0], -6.0f);
    EXPECT_FLOAT_EQ(hi[0], 6.0f);
    EXPECT_FLOAT_EQ(hi[1], 1.0f);

    // Selected only; one model by its handle.
    elemGet(dict, CHP_MODELS, b)->selected = 1;
    EXPECT_EQ(TOL_scnGetBbox(&scene, nullptr, 1, lo, hi), 1);
    EXPECT_FLOAT_EQ(lo[0], -6.0f);
    EXPECT_FLOAT_EQ(hi[0], -4.0f);
    TOL_Elem handle{scene.dict, CHP_MODELS, static_cast<uint32_t>(a), -1, 0};
    EXPECT_EQ(TOL_scnGetBbox(&scene, &handle, 0, lo, hi), 1);
    EXPECT_FLOAT_EQ(lo[0], 4.0f);

    // A flat model is widened by 0.1 each way; nothing shown is no box.
    node(a)->scaling[1] = 0.0f;
    node(b)->visible = 0;
    build();
    EXPECT_EQ(TOL_scnGetBbox(&scene, nullptr, 0, lo, hi), 1);
    EXPECT_NEAR(lo[1], -0.1f, 1e-4f);
    EXPECT_NEAR(hi[1], 0.1f, 1e-4f);
    node(a)->visible = 0;
    EXPECT_EQ(TOL_scnGetBbox(&scene, nullptr, 0, lo, hi), 0);

    bwtest::OutputCapture out;
    EXPECT_EQ(TOL_scnGetBbox(&scene, nullptr, 0, nullptr, hi), 16);
    EXPECT_NE(out.out.text().find("TOL_scnGetBbox(): bbmin:"), std::string::npos);
}

// An instance is never boxed (it would need its master's box); expanded with
// -e it is a model of its own, boxed like any other and remade for the draw.
TEST_F(Bounds, ExpandedInstancesAreBoxedAsTheirOwnModels) {
    int instance = model("instance", -1, true, 4);
    int plain = model("plain", -1, true);
    node(instance)->kind = MODEL_KIND_INSTANCE;
    build();
    EXPECT_EQ(bounds(instance).animated, 1);
    EXPECT_EQ(bounds(instance).ownState, BOUNDS_NONE);

    EXPECT_EQ(instancesExpand(dict), 1);
    EXPECT_EQ(node(instance)->kind, MODEL_KIND_NONE);
    EXPECT_TRUE(node(instance)->displayFlags & MODEL_GEOMETRY_STALE);
    EXPECT_FALSE(node(plain)->displayFlags & MODEL_GEOMETRY_STALE);
    build();
    EXPECT_EQ(bounds(instance).ownState, BOUNDS_VALID);
    expectBox(bounds(instance).own, {3, -1, -1}, {5, 1, 1});
    EXPECT_EQ(instancesExpand(dict), 0);
}
