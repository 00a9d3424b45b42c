// Relation instances: both ends, order, fan-out, iterators and removal.
#include <cstdlib>

#include "dict_fixture.h"

namespace {

class RelTest : public DictTest {
protected:
    void SetUp() override {
        DictTest::SetUp();
        for (const char *n : {"m0", "m1", "m2"}) add(CHP_MODELS, n);
        for (const char *n : {"red", "green", "blue"}) add(CHP_MATERIALS, n);
        for (const char *n : {"f0", "f1"}) add(CHP_ANIMATION, n);
    }
    Element *model(int i) { return at(CHP_MODELS, i); }
    RelationGroup &childGroup(int chapterId, int i, int g) {
        return dict.chapters[chapterId].elements[i].childGroups[g];
    }
    RelationGroup &parentGroup(int chapterId, int i, int g) {
        return dict.chapters[chapterId].elements[i].parentGroups[g];
    }
    // Targets an iterator loop visits, as chapter*100 + index.
    std::vector<int> walk(Element *e, int child, int group, int32_t relid) {
        std::vector<int> seen;
        int32_t chapter = -1, index = -1;
        for (Element *o = relFirst(&dict, e, child, group, relid, -1, &chapter, &index); o;
             o = relNext(&dict, e, child, group, relid, -1, &chapter, &index))
            seen.push_back(chapter * 100 + index);
        return seen;
    }
};

}  // namespace

TEST_F(RelTest, AddStoresBothEndsAndRespectsFanOut) {
    void *data = malloc(8);
    dict.updateDirty = dict.browserDirty = dict.hierarchyDirty = 0;
    ASSERT_EQ(relAdd(&dict, &table, 0, 1, REL_PARENT, 1, 1, data, 1), 1);
    EXPECT_EQ(dict.updateDirty, 1u);
    EXPECT_EQ(dict.hierarchyDirty, 1);
    const RelationInst &down = childGroup(CHP_MODELS, 0, 1).items[0];
    EXPECT_EQ(down.elem, 1);
    EXPECT_EQ(down.chp, CHP_MODELS);
    EXPECT_EQ(down.grp, 1);
    EXPECT_EQ(down.data, data);
    EXPECT_EQ(down.actfcv, -1);
    EXPECT_EQ(down.serialid, -1);
    const RelationInst &up = parentGroup(CHP_MODELS, 1, 1).items[0];
    EXPECT_EQ(up.elem, 0);
    EXPECT_EQ(up.data, nullptr);  // the data is the source side's
    EXPECT_EQ(relFindTwin(&dict, CHP_MODELS, 0, 1, &down), &up);
    EXPECT_EQ(relFindTwin(&dict, CHP_MODELS, 1, 0, &up), &down);

    EXPECT_EQ(relAdd(&dict, &table, 0, 1, REL_PARENT, 1, 1, nullptr, 1), 0);  // same pair again
    EXPECT_EQ(relAdd(&dict, &table, 0, 2, REL_PARENT, 1, 1, nullptr, 1), 0);  // fan-out full
    EXPECT_EQ(relAdd(&dict, &table, 2, 1, REL_PARENT, 1, 1, nullptr, 1), 1);  // another source
    EXPECT_EQ(relCount(model(1), 0, 1, REL_PARENT, -1), 2);
    EXPECT_EQ(relAdd(&dict, &table, 1, 2, REL_CUSTOM, 1, 1, nullptr, 1), 1);
    EXPECT_EQ(relAdd(&dict, &table, 1, 2, REL_CUSTOM, 1, 1, nullptr, 1), 1);
    EXPECT_EQ(relCount(model(1), 1, RELGR_CUSTOM, REL_CUSTOM, CHP_MODELS), 2);
    EXPECT_EQ(relAdd(&dict, &table, 0, 9, REL_PARENT, 1, 1, nullptr, 1), 0);  // no such target
    EXPECT_EQ(relAdd(&dict, &table, 0, 1, 4242, 1, 1, nullptr, 1), 0);        // no such relation
}

TEST_F(RelTest, AnyChapterRelationsTakeTheCallersChapters) {
    EXPECT_EQ(relAdd(&dict, &table, 0, 0, REL_ANY, 1, 1, nullptr, 1), 0);
    ASSERT_EQ(relAddVia(&dict, &table, CHP_MATERIALS, 2, CHP_ANIMATION, 1, REL_ANY, 1, 1, nullptr, 0), 1);
    const RelationInst &inst = childGroup(CHP_MATERIALS, 2, RELGR_OTHER).items[0];
    EXPECT_EQ(inst.chp, CHP_ANIMATION);
    EXPECT_EQ(inst.activ, 0);
    EXPECT_EQ(parentGroup(CHP_ANIMATION, 1, RELGR_OTHER).items[0].chp, CHP_MATERIALS);
    // A null table is the process-wide one.
    fillTestTable(g_relationDict);
    EXPECT_EQ(relAdd(&dict, nullptr, 2, 0, REL_PARENT, 1, 1, nullptr, 1), 1);
    relDictClear(&g_relationDict);
}

TEST_F(RelTest, GroupsStayInRankOrder) {
    for (int rank : {30, 10, 20, 10})
        ASSERT_EQ(relAddFull(&dict, &table, CHP_MODELS, CHP_MATERIALS, 3, 3, 0, rank / 10 - 1, 700,
                             -1, rank, nullptr), 1);
    const RelationGroup &g = childGroup(CHP_MODELS, 0, 3);
    ASSERT_EQ(g.count, 4);
    EXPECT_EQ(g.capacity, 4);
    std::vector<int> order;
    for (int i = 0; i < g.count; ++i) order.push_back(g.items[i].rank * 10 + g.items[i].elem);
    EXPECT_EQ(order, (std::vector<int>{100, 100, 201, 302}));
    // Instances of a two-row relation take their rank from their row.
    ASSERT_EQ(relAdd(&dict, &table, 1, 0, REL_MATERIAL, 2, 1, nullptr, 1), 1);
    ASSERT_EQ(relAdd(&dict, &table, 1, 1, REL_MATERIAL, 1, 1, nullptr, 1), 1);
    const RelationGroup &m = childGroup(CHP_MODELS, 1, 3);
    EXPECT_EQ(m.items[0].rank, 20);
    EXPECT_EQ(m.items[0].elem, 1);
    EXPECT_EQ(m.items[1].rank, 21);
}

TEST_F(RelTest, FanOutInstancesGoToTheirPlace) {
    for (int f : {0, 1, 2}) relAdd(&dict, &table, 0, f, REL_ANIM, 0, 1, nullptr, 1);
    EXPECT_EQ(relCount(model(0), 1, 0, REL_ANIM, -1), 2);  // there is no third fcurve
    ASSERT_EQ(relAdd(&dict, &table, 1, 0, REL_ANIM, 1, 1, nullptr, 1), 1);
    ASSERT_EQ(relAdd(&dict, &table, 1, 1, REL_ANIM, 1, 1, nullptr, 1), 1);  // as the first instance
    EXPECT_EQ(walk(model(1), 1, 0, REL_ANIM), (std::vector<int>{101, 100}));
}

TEST_F(RelTest, IteratorsKeepTheirPlaceInTheGroup) {
    const int32_t rel = 700;  // not in the table: no fan-out limit
    for (int mat : {2, 0, 1})
        relAddFull(&dict, &table, CHP_MODELS, CHP_MATERIALS, 3, 3, 0, mat, rel, mat, 20, nullptr);
    Element *m0 = model(0);
    EXPECT_EQ(walk(m0, 1, 3, rel), (std::vector<int>{702, 700, 701}));
    RelationGroup &g = childGroup(CHP_MODELS, 0, 3);
    EXPECT_EQ(g.cursor, 0);
    int32_t chapter = -1, index = -1;
    ASSERT_EQ(relFirst(&dict, m0, 1, 3, rel, CHP_MATERIALS, &chapter, &index), at(CHP_MATERIALS, 2));
    EXPECT_EQ(g.items[0].visited, 1);
    EXPECT_EQ(relLastReturned(m0, 1, 3), &g.items[0]);
    relNext(&dict, m0, 1, 3, rel, -1, &chapter, &index);
    EXPECT_EQ(g.items[0].visited, 0);
    EXPECT_EQ(g.items[1].visited, 1);
    relNext(&dict, m0, 1, 3, rel, -1, &chapter, &index);
    EXPECT_EQ(relNext(&dict, m0, 1, 3, rel, -1, &chapter, &index), nullptr);
    EXPECT_EQ(g.cursor, 0);
    EXPECT_EQ(relLastReturned(m0, 1, 3), nullptr);
    EXPECT_EQ(relNext(&dict, m0, 1, 3, rel, -1, &chapter, &index), at(CHP_MATERIALS, 2));
    EXPECT_EQ(relNextBySerial(&dict, m0, 1, 3, rel, -1, 1, &chapter, &index), at(CHP_MATERIALS, 1));
    EXPECT_EQ(relFirstBySerial(&dict, m0, 1, 3, rel, -1, 0, &chapter, &index), at(CHP_MATERIALS, 0));
    EXPECT_EQ(relFirstInGroup(&dict, m0, 1, 3, 300, 399, -1, &chapter, &index), nullptr);
    EXPECT_EQ(relFirstInGroup(&dict, m0, 1, 3, 300, 700, -1, &chapter, &index), at(CHP_MATERIALS, 2));
    EXPECT_EQ(relNextInGroup(&dict, m0, 1, 3, 300, 700, CHP_MODELS, &chapter, &index), nullptr);
    EXPECT_EQ(relFirst(&dict, m0, 1, 9, rel, -1, &chapter, &index), nullptr);
    // A free slot at the other end is passed over.
    elemRemove(&dict, CHP_MATERIALS, nullptr, 0, -1, 1, 1);
    EXPECT_EQ(walk(m0, 1, 3, rel), (std::vector<int>{702, 701}));
    EXPECT_EQ(relNth(&dict, m0, rel, -1, 1)->elem, 1);
    EXPECT_EQ(relNth(&dict, m0, rel, -1, 2), nullptr);
    EXPECT_EQ(relCountRange(m0, 1, 3, 0, 1000, CHP_MATERIALS), 3);
}

TEST_F(RelTest, ExpressionsAreFoundInEveryGroup) {
    relAddFull(&dict, &table, CHP_MODELS, CHP_ANIMATION, 2, 2, 0, 1, REL_EXPRESSION, 4, 1, nullptr);
    relAddFull(&dict, &table, CHP_MODELS, CHP_ANIMATION, 0, 5, 0, 0, REL_EXPRESSION, 5, 1, nullptr);
    relAdd(&dict, &table, 0, 1, REL_ANIM, 1, 1, nullptr, 1);
    EXPECT_EQ(walk(model(0), 1, 3, REL_EXPRESSION), (std::vector<int>{100, 101}));
    EXPECT_EQ(relCount(model(0), 1, 3, REL_EXPRESSION, -1), 2);
    EXPECT_EQ(relCount(model(0), 1, 0, REL_ANIM, -1), 1);
    EXPECT_EQ(relHas(model(0), 1, REL_EXPRESSION, CHP_ANIMATION), 1);
    EXPECT_EQ(relHas(model(0), 0, REL_EXPRESSION, -1), 0);
    EXPECT_EQ(relFind(model(0), REL_EXPRESSION, CHP_ANIMATION, 1)->serialid, 4);
    EXPECT_EQ(relFind(model(0), REL_EXPRESSION, CHP_MODELS, -1), nullptr);
    EXPECT_EQ(walk(at(CHP_ANIMATION, 1), 0, 0, REL_EXPRESSION), (std::vector<int>{800}));
}

TEST_F(RelTest, RemovalEmptiesGroupsOnBothEnds) {
    relAdd(&dict, &table, 0, 1, REL_MATERIAL, 1, 1, malloc(4), 1);
    relAdd(&dict, &table, 0, 2, REL_MATERIAL, 1, 1, malloc(4), 1);
    childGroup(CHP_MODELS, 0, 3).vis = 0;
    ASSERT_EQ(relRemove(&dict, CHP_MODELS, 0, 1, REL_MATERIAL, CHP_MATERIALS, 1, -1), 1);
    EXPECT_EQ(childGroup(CHP_MODELS, 0, 3).count, 1);
    EXPECT_EQ(childGroup(CHP_MODELS, 0, 3).vis, 0u);
    EXPECT_EQ(parentGroup(CHP_MATERIALS, 1, 3).items, nullptr);
    // From the target's side: the source's instance and its data go too.
    ASSERT_EQ(relRemoveParents(&dict, CHP_MATERIALS, 2), 1);
    const RelationGroup &g = childGroup(CHP_MODELS, 0, 3);
    EXPECT_EQ(g.count, 0);
    EXPECT_EQ(g.capacity, 0);
    EXPECT_EQ(g.items, nullptr);
    EXPECT_EQ(g.vis, 1u);
    EXPECT_EQ(relRemove(&dict, CHP_MODELS, 99, 1, -1, -1, -1, -1), 0);
}

TEST_F(RelTest, RemovingWhatALoopReturnedGoesOnWithTheNext) {
    for (int mat : {0, 1, 2}) relAddFull(&dict, &table, CHP_MODELS, CHP_MATERIALS, 3, 3, 0, mat, 700, -1, 20, nullptr);
    std::vector<int> seen;
    int32_t chapter = -1, index = -1;
    for (Element *o = relFirst(&dict, model(0), 1, 3, 700, -1, &chapter, &index); o;
         o = relNext(&dict, model(0), 1, 3, 700, -1, &chapter, &index)) {
        seen.push_back(index);
        if (index == 0) relRemove(&dict, CHP_MODELS, 0, 1, 700, CHP_MATERIALS, 0, -1);
    }
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2}));
}

TEST_F(RelTest, RemovingAnElementTakesItsAnimationAlong) {
    relAdd(&dict, &table, 0, 0, REL_ANIM, 1, 1, nullptr, 1);
    childGroup(CHP_MODELS, 0, 0).items[0].actfcv = 1;  // f1 animates the relation
    relAdd(&dict, &table, 1, 0, REL_PARENT, 1, 1, nullptr, 1);
    ASSERT_EQ(elemRemove(&dict, CHP_MODELS, nullptr, 0, -1, 0, 1), 1);
    EXPECT_EQ(at(CHP_ANIMATION, 1), nullptr);
    ASSERT_NE(at(CHP_ANIMATION, 0), nullptr);
    EXPECT_EQ(parentGroup(CHP_ANIMATION, 0, 0).count, 0);
    EXPECT_EQ(childGroup(CHP_MODELS, 1, 1).count, 0);
}

TEST_F(RelTest, RemovalFilterKeepsOtherParents) {
    relAdd(&dict, &table, 0, 2, REL_PARENT, 1, 1, nullptr, 1);
    relAdd(&dict, &table, 1, 2, REL_CUSTOM, 1, 1, nullptr, 1);
    relAdd(&dict, &table, 2, 0, REL_CUSTOM, 1, 1, nullptr, 1);
    ASSERT_EQ(elemRemove(&dict, CHP_MODELS, nullptr, 2, REL_PARENT, 0, 0), 1);
    EXPECT_EQ(relCount(model(2), 0, 1, REL_PARENT, -1), 0);
    EXPECT_EQ(relCount(model(0), 1, 1, REL_PARENT, -1), 0);
    EXPECT_EQ(relCount(model(2), 0, 4, REL_CUSTOM, -1), 1);
    EXPECT_EQ(relCount(model(2), 1, 4, REL_CUSTOM, -1), 1);
    // With one parent left the filter no longer narrows the removal.
    ASSERT_EQ(elemRemove(&dict, CHP_MODELS, nullptr, 2, REL_PARENT, 0, 0), 1);
    EXPECT_EQ(relCount(model(2), 0, 4, REL_CUSTOM, -1), 0);
    EXPECT_EQ(relCount(model(0), 0, 4, REL_CUSTOM, -1), 0);
}
