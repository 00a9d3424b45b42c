// The order the sort gives small scenes built against the real relation rows,
// its failures, the partial build and the printed forms of a list.
#include "scene_fixture.h"

using bwtest::OutputCapture;

namespace {

const float ONE[3] = {1, 1, 1}, ZERO[3] = {0, 0, 0};

// A chain of `n` models, each the child of the next, the deepest first in
// index order so that the sweep enters at the bottom.
void chain(Dictionary &dict, int n) {
    for (int i = 0; i < n; ++i)
        elemAdd(&dict, CHP_MODELS, elemNameParse(("m" + std::to_string(i)).c_str(), nullptr, 0),
                nullptr, nullptr, 0, 0);
    for (int i = 0; i + 1 < n; ++i) relAdd(&dict, nullptr, i, i + 1, REL_PARENT, 1, 1, nullptr, 1);
}

}  // namespace

TEST_F(SceneTest, RunsMakeOneRecordEachAndTheGroupEndsWithOneHierarchyStep) {
    int ball = model("ball");
    int sx = curve(1, {{0, 1}}), sy = curve(2, {{0, 1}}), sz = curve(3, {{0, 1}});
    animate(ball, 100, {sx, sy, sz});
    animate(ball, 113, {constant(139, 1)});
    animate(ball, 101, {constant(4, 1), constant(6, 1)});
    ASSERT_EQ(build(), 1);
    // Ranks, not the order of connection, order a model's relations.
    EXPECT_EQ(order(), "0:100 0:101 0:113 0:-100");
    const UpdateRecord &scaling = list.records[0];
    ASSERT_EQ(scaling.sourceCount, 3);
    EXPECT_EQ(scaling.sources[0].element, sx);
    EXPECT_EQ(scaling.sources[2].element, sz);
    EXPECT_EQ(scaling.sources[1].data, curves[1]);
    EXPECT_TRUE(scaling.chapter == CHP_MODELS && scaling.group == RELGR_TRANSFO && scaling.data == node(ball));
    EXPECT_NE(scaling.handler, nullptr);
    EXPECT_EQ(list.records[3].sourceCount, 0);
    EXPECT_EQ(list.records[4].chapter, UPDATE_SENTINEL_CHAPTER);  // behind the count
    EXPECT_EQ(list.dirty, 0);
    // A clean list is not built again.
    list.records[0].relation = 7;
    EXPECT_EQ(updatelistBuild(&dict, &list, 0, 0), 1);
    EXPECT_EQ(list.records[0].relation, 7);
}

TEST_F(SceneTest, DriversStandBeforeWhatTheyDrive) {
    // Child first in index order: it pulls its parent's records in front of its own.
    int child = model("child");
    int parent = model("parent");
    int grandchild = model("grandchild", child);
    node(child)->parent = nullptr;  // relinked below, as a loader would
    modelAddChild(node(parent), node(child));
    relAdd(&dict, nullptr, child, parent, REL_PARENT, 1, 1, nullptr, 1);
    pose(parent, ONE, ZERO, ZERO);
    animate(child, 113, {constant(139, 2)});
    ASSERT_EQ(build(), 1);
    EXPECT_EQ(order(), "1:100 1:101 1:113 1:-100 0:110 0:113 0:-100 2:110 2:-100");
    // Every child has a hierarchy step of its own later on: the parent's
    // step owns no other model.
    auto *own = static_cast<Model **>(list.records[3].extra);
    ASSERT_NE(own, nullptr);
    EXPECT_EQ(own[0], nullptr);
    // Without the optimisations the steps recurse, and need nothing prepared.
    animationOptimise = 0;
    ASSERT_EQ(build(), 1);
    EXPECT_EQ(list.records[3].extra, nullptr);
    (void)grandchild;
}

TEST_F(SceneTest, InactiveRelationsEmitNothingAndCloseNothing) {
    int quiet = model("quiet");
    int loud = model("loud");
    animate(quiet, 100, {constant(1, 2), constant(2, 2)}, 0);
    animate(loud, 100, {constant(1, 2)});
    animate(loud, 100, {constant(2, 2)}, 0);
    ASSERT_EQ(build(), 1);
    EXPECT_EQ(order(), "1:100 1:-100");
    ASSERT_EQ(list.records[0].sourceCount, 2);
    EXPECT_EQ(list.records[0].sources[1].active, 0);
    // The sort skips what the dependency switch turns off, and whole chapters.
    dict.chapters[CHP_MODELS].active = 0;
    ASSERT_EQ(build(), 1);
    EXPECT_EQ(list.count, 0);
}

TEST_F(SceneTest, OnlyTheEntryWithTheRelationDataSwitchesARecordOff) {
    // Without relation data a record stays on whichever of its sources is
    // off, the last included; the sources' own flags are weighed at the walk.
    int lastOff = model("lastOff"), firstOff = model("firstOff"), held = model("held");
    animate(lastOff, 100, {constant(1, 2)});
    animate(lastOff, 100, {constant(2, 3)}, 0);
    animate(firstOff, 100, {constant(1, 2)}, 0);
    animate(firstOff, 100, {constant(2, 3)});
    // The entry that carries the data speaks for the whole record.
    ASSERT_EQ(relAdd(&dict, nullptr, held, constant(1, 2), 100, 0, 0, calloc(1, 8), 0), 1);
    animate(held, 100, {constant(2, 3)});
    ASSERT_EQ(build(), 1);
    ASSERT_EQ(order(), "0:100 0:-100 1:100 1:-100 2:100 2:-100");
    EXPECT_EQ(list.records[0].active, 1);
    EXPECT_EQ(list.records[0].sources[1].active, 0);
    EXPECT_EQ(list.records[2].active, 1);
    EXPECT_EQ(list.records[4].active, 0);
    EXPECT_NE(list.records[4].relationData, nullptr);
    updatelistEval(&dict, &list, 0.0f);
    // Scaling runs with fewer sources off than its fan-out: each model takes its active curve.
    EXPECT_FLOAT_EQ(node(lastOff)->scaling[0], 2.0f);
    EXPECT_FLOAT_EQ(node(lastOff)->scaling[1], 1.0f);
    EXPECT_FLOAT_EQ(node(firstOff)->scaling[0], 1.0f);
    EXPECT_FLOAT_EQ(node(firstOff)->scaling[1], 3.0f);
    EXPECT_FLOAT_EQ(node(held)->scaling[1], 1.0f);
}

TEST_F(SceneTest, TheSortGoesAHundredLevelsDeepAndNoFurther) {
    chain(dict, 101);
    OutputCapture ok;
    EXPECT_EQ(build(), 1);
    EXPECT_EQ(ok.out.text(), "");
    dictFree(&dict, 0);
    dictCreateChapters(&dict, nullptr, 1);
    chain(dict, 102);
    OutputCapture deep;
    EXPECT_EQ(build(), 0);
    EXPECT_EQ(deep.out.text(), "TopoSort: help! level > 100... \n");
    EXPECT_EQ(updatelistLastFailure()->tooDeep, 1);
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.dirty, 1);
}

TEST_F(SceneTest, CyclesFailUnlessAnEndIsInactiveOrTheRelationOrdersBothWays) {
    int a = model("a"), b = model("b");
    ASSERT_EQ(relAdd(&dict, nullptr, a, b, 111, 1, 1, nullptr, 1), 1);
    ASSERT_EQ(relAdd(&dict, nullptr, b, a, 111, 1, 1, nullptr, 1), 1);
    EXPECT_EQ(build(), 0);
    EXPECT_EQ(updatelistLastFailure()->tooDeep, 0);
    EXPECT_EQ(updatelistLastFailure()->chapter, CHP_MODELS);
    UpdateList untouched;
    EXPECT_EQ(updatelistBuild(&dict, &untouched, 1, 0), 0);  // the cycle test alone
    relFind(elemGet(&dict, CHP_MODELS, b), 111, CHP_MODELS, a)->activ = 0;
    EXPECT_EQ(updatelistBuild(&dict, &untouched, 1, 0), 1);
    EXPECT_EQ(untouched.count, 0);
    EXPECT_EQ(untouched.dirty, 1);

    // A parentless model with a hierarchy constraint and its subtree wait for
    // each other through virtual relations; listed from the root they pass.
    int child = model("child");
    int root = model("root");
    int other = model("other");
    modelAddChild(node(root), node(child));
    elemGet(&dict, CHP_MODELS, child)->lev = 1;
    relAdd(&dict, nullptr, child, root, REL_PARENT, 1, 1, nullptr, 1);
    ASSERT_EQ(relAdd(&dict, nullptr, root, other, 117, 1, 1, nullptr, 1), 1);
    relFind(elemGet(&dict, CHP_MODELS, b), 111, CHP_MODELS, a)->activ = 1;
    relRemove(&dict, CHP_MODELS, a, 1, 111, CHP_MODELS, b, -1);
    dict.update.dirty = 0;
    ASSERT_EQ(build(), 1);
    // The virtual relations order without records of their own.
    EXPECT_EQ(order(), "1:111 1:-100 3:117 2:110 2:-100 3:-100");
    // The root's step is the one that leaves the child right.
    auto *own = static_cast<Model **>(list.records[5].extra);
    ASSERT_TRUE(own && own[0] == node(child) && !own[1]);
    // Virtual relations are gone again, and the scene is not marked changed.
    EXPECT_EQ(relCountRange(elemGet(&dict, CHP_MODELS, root), 1, RELGR_TRANSFO, -110, -100, -1), 0);
    EXPECT_EQ(relCountRange(elemGet(&dict, CHP_MODELS, child), 0, RELGR_TRANSFO, -110, -100, -1), 0);
    EXPECT_EQ(dict.update.dirty, 0);
}

TEST_F(SceneTest, AModelsVisibilityComesBeforeItsTransformsWhoeverAsksFirst) {
    // The child asks for its parent's transforms before the parent is swept;
    // the virtual self relation -106 brings the parent's visibility along.
    int child = model("child");
    int parent = model("parent");
    modelAddChild(node(parent), node(child));
    relAdd(&dict, nullptr, child, parent, REL_PARENT, 1, 1, nullptr, 1);
    animate(parent, 10, {constant(175, 1)});
    animate(parent, 100, {constant(1, 2)});
    ASSERT_EQ(build(), 1);
    EXPECT_EQ(order(), "1:10 1:100 1:-100 0:110 0:-100");
}

TEST_F(SceneTest, PartialBuildListsTheDependentsOfMarkedElements) {
    int driver = model("driver"), follower = model("follower"), bystander = model("bystander");
    animate(driver, 113, {constant(139, 1)});
    animate(bystander, 113, {constant(139, 1)});
    ASSERT_EQ(relAdd(&dict, nullptr, follower, driver, 111, 1, 1, nullptr, 1), 1);
    elemGet(&dict, CHP_MODELS, driver)->marked = 1;
    ASSERT_EQ(updatelistBuildFrom(&dict, -1, 1, 0), 1);
    EXPECT_TRUE(elemGet(&dict, CHP_MODELS, follower)->marked);
    EXPECT_FALSE(elemGet(&dict, CHP_MODELS, bystander)->marked);
    std::swap(list, dict.update2);
    EXPECT_EQ(order(), "0:113 0:-100 1:111 1:-100");
    updatelistUnmark(&dict);
    EXPECT_FALSE(elemGet(&dict, CHP_MODELS, follower)->marked);

    // A record of the main list also in the high-priority one runs there only.
    UpdateList main;
    ASSERT_EQ(updatelistBuild(&dict, &main, 0, 0), 1);
    updatelistDeactivateShared(&main, &list);
    int off = 0;
    for (int i = 0; i < main.count; ++i) off += main.records[i].active == 0;
    EXPECT_EQ(off, 4);
    EXPECT_EQ(main.count, 6);
    updatelistClear(&main);
}

TEST_F(SceneTest, PrintedFormsOfAList) {
    int ball = model("ball");
    int sx = curve(1, {{0, 1}}, "sx"), sy = curve(2, {{0, 1}}, "sy"), gate = curve(178, {{0, 1}}, "gate");
    animate(ball, 100, {sx, sy});
    relFind(elemGet(&dict, CHP_MODELS, ball), 100, CHP_ANIMATION, sy)->actfcv = gate;
    ASSERT_EQ(build(), 1);
    list.records[0].sources[0].active = 0;
    list.records[1].active = 0;
    int marker = 0;
    list.records[1].relationData = &marker;
    OutputCapture verbose;
    updatelistPrint(stdout, &dict, &list, 1, "MAIN UPDATE LIST");
    EXPECT_EQ(verbose.out.text(),
              "MAIN UPDATE LIST\n----------------\n \n\n UPDATE LIST: \n"
              "0) MODELS ball (grp 1) = scaling (ANIMATION sx (g 0)-> INACTIVE,ANIMATION sy~(g 0),)\n"
              "1) MODELS ball (grp 1) = hierarchyStep+() -> INACTIVE <-\n");
    OutputCapture brief;
    updatelistPrint(stdout, &dict, &list, 0, nullptr);
    EXPECT_EQ(brief.out.text(),
              " \n\n UPDATE LIST: \n"
              "0) chp,elm,grp[8,0,1] = rel[100] (chp,elm[1,0])\n"
              "1) chp,elm,grp[8,0,1] = rel[-100] (chp,elm[-1,-1])\n");
    list.records[1].relationData = nullptr;
}

TEST_F(SceneTest, BuildingTheScenesListReportsACycle) {
    int a = model("a"), b = model("b");
    relAdd(&dict, nullptr, a, b, 127, 1, 1, nullptr, 1);
    relAdd(&dict, nullptr, b, a, 127, 1, 1, nullptr, 1);
    OutputCapture cap;
    EXPECT_EQ(updatelistBuildScene(&dict), 0);
    EXPECT_EQ(cap.err.text(),
              "A cycle has been detected in scene dependencies.\n Please Cut or Relax the latest relation you set.\n");
}
