// Relation instances: both ends, order, fan-out, iterators and removal.
#include <cstdlib>
#include <functional>

#include "dict_fixture.h"

namespace {

constexpr int32_t REL_FREE = 700;  // not in the table: no fan-out limit

class RelTest : public DictTest {
protected:
    void SetUp() override {
        DictTest::SetUp();
        for (const char *n : {"m0", "m1", "m2", "red", "green", "blue", "f0", "f1"})
            add(n[0] == 'm' ? CHP_MODELS : n[0] == 'f' ? CHP_ANIMATION : CHP_MATERIALS, n);
    }
    Element *model(int i) { return at(CHP_MODELS, i); }
    RelationGroup &group(int chapterId, int i, int child, int g) {
        Element &e = dict.chapters[chapterId].elements[i];
        return (child ? e.childGroups : e.parentGroups)[g];
    }
    // Model 0 towards a material in RENDER, the material's index as serial id.
    int toMaterial(int m, int32_t rank = 20) {
        return relAddFull(&dict, &table, CHP_MODELS, CHP_MATERIALS, 3, 3, 0, m, REL_FREE, m, rank, nullptr);
    }
    // Targets an iterator loop visits, as chapter*100 + index; `each` runs in the loop.
    V walk(Element *e, int child, int g, int32_t relid, std::function<void(int)> each = nullptr) {
        V seen;
        int32_t chapter = -1, index = -1;
        for (Element *o = relFirst(&dict, e, child, g, relid, -1, &chapter, &index); o;
             o = relNext(&dict, e, child, g, relid, -1, &chapter, &index)) {
            seen.push_back(chapter * 100 + index);
            if (each) each(index);
        }
        return seen;
    }
};

}  // namespace

TEST_F(RelTest, AddStoresBothEndsAndRespectsFanOut) {
    void *data = malloc(8);
    ASSERT_EQ(relAdd(&dict, &table, 0, 1, REL_PARENT, 1, 1, data, 1), 1);
    const RelationInst &down = group(CHP_MODELS, 0, 1, 1).items[0];
    EXPECT_TRUE(down.elem == 1 && down.chp == CHP_MODELS && down.data == data && down.actfcv == -1);
    const RelationInst &up = group(CHP_MODELS, 1, 0, 1).items[0];
    EXPECT_TRUE(up.elem == 0 && up.data == nullptr);  // the data is the source side's
    EXPECT_EQ(relFindTwin(&dict, CHP_MODELS, 0, 1, &down), &up);
    EXPECT_EQ(relAdd(&dict, &table, 0, 1, REL_PARENT, 1, 1, nullptr, 1), 0);  // same pair again
    EXPECT_EQ(relAdd(&dict, &table, 0, 2, REL_PARENT, 1, 1, nullptr, 1), 0);  // fan-out full
    EXPECT_EQ(relAdd(&dict, &table, 2, 1, REL_PARENT, 1, 1, nullptr, 1), 1);  // another source
    for (int twice = 0; twice < 2; ++twice)  // custom effects may repeat
        EXPECT_EQ(relAdd(&dict, &table, 1, 2, REL_CUSTOM, 1, 1, nullptr, 1), 1);
    EXPECT_EQ(relCount(model(1), 1, RELGR_CUSTOM, REL_CUSTOM, CHP_MODELS), 2);
    // "*" chapters come from the caller.
    EXPECT_EQ(relAdd(&dict, &table, 0, 0, REL_ANY, 1, 1, nullptr, 1), 0);
    ASSERT_EQ(relAddVia(&dict, &table, CHP_MATERIALS, 2, CHP_ANIMATION, 1, REL_ANY, 1, 1, nullptr, 0), 1);
    EXPECT_EQ(group(CHP_MATERIALS, 2, 1, RELGR_OTHER).items[0].chp, CHP_ANIMATION);
    EXPECT_EQ(group(CHP_ANIMATION, 1, 0, RELGR_OTHER).items[0].chp, CHP_MATERIALS);
}

TEST_F(RelTest, GroupsStayInRankOrder) {
    for (int m : {2, 0, 1, 0}) ASSERT_EQ(toMaterial(m, m == 2 ? 30 : m == 0 ? 10 : 20), 1);
    auto ranks = [](const RelationGroup &g) {
        V out;
        for (int i = 0; i < g.count; ++i) out.push_back(g.items[i].rank * 10 + g.items[i].elem);
        return out;
    };
    EXPECT_EQ(ranks(group(CHP_MODELS, 0, 1, 3)), (V{100, 100, 201, 302}));
    // Instances of a two-row relation take their rank from their row.
    ASSERT_EQ(relAdd(&dict, &table, 1, 0, REL_MATERIAL, 2, 1, nullptr, 1), 1);
    ASSERT_EQ(relAdd(&dict, &table, 1, 1, REL_MATERIAL, 1, 1, nullptr, 1), 1);
    EXPECT_EQ(ranks(group(CHP_MODELS, 1, 1, 3)), (V{201, 210}));
    // With a fan-out, a later first instance goes before the earlier ones.
    ASSERT_EQ(relAdd(&dict, &table, 2, 0, REL_ANIM, 1, 1, nullptr, 1), 1);
    ASSERT_EQ(relAdd(&dict, &table, 2, 1, REL_ANIM, 1, 1, nullptr, 1), 1);
    EXPECT_EQ(walk(model(2), 1, 0, REL_ANIM), (V{101, 100}));
}

TEST_F(RelTest, IteratorsKeepTheirPlaceInTheGroup) {
    for (int m : {2, 0, 1}) toMaterial(m);
    Element *m0 = model(0);
    RelationGroup &g = group(CHP_MODELS, 0, 1, 3);
    int32_t chapter = -1, index = -1;
    ASSERT_EQ(relFirst(&dict, m0, 1, 3, REL_FREE, CHP_MATERIALS, &chapter, &index), at(CHP_MATERIALS, 2));
    EXPECT_EQ(relLastReturned(m0, 1, 3), &g.items[0]);
    relNext(&dict, m0, 1, 3, REL_FREE, -1, &chapter, &index);
    EXPECT_EQ(g.items[0].visited * 10 + g.items[1].visited, 1);
    relNext(&dict, m0, 1, 3, REL_FREE, -1, &chapter, &index);
    // After the last one: null, and the walk starts again.
    EXPECT_EQ(relNext(&dict, m0, 1, 3, REL_FREE, -1, &chapter, &index), nullptr);
    EXPECT_EQ(relLastReturned(m0, 1, 3), nullptr);
    EXPECT_EQ(relNext(&dict, m0, 1, 3, REL_FREE, -1, &chapter, &index), at(CHP_MATERIALS, 2));
    EXPECT_EQ(relFirstInGroup(&dict, m0, 1, 3, 300, 700, -1, &chapter, &index), at(CHP_MATERIALS, 2));
    // A free slot at the other end is passed over.
    elemRemove(&dict, CHP_MATERIALS, nullptr, 0, -1, 1, 1);
    EXPECT_EQ(walk(m0, 1, 3, REL_FREE), (V{702, 701}));
    EXPECT_EQ(relNth(&dict, m0, REL_FREE, -1, 1)->elem, 1);
    EXPECT_EQ(relCount(m0, 1, 3, REL_FREE, CHP_MATERIALS), 3);
}

TEST_F(RelTest, ExpressionsAreFoundInEveryGroup) {
    relAddFull(&dict, &table, CHP_MODELS, CHP_ANIMATION, 2, 2, 0, 1, REL_EXPRESSION, 4, 1, nullptr);
    relAddFull(&dict, &table, CHP_MODELS, CHP_ANIMATION, 0, 5, 0, 0, REL_EXPRESSION, 5, 1, nullptr);
    relAdd(&dict, &table, 0, 1, REL_ANIM, 1, 1, nullptr, 1);
    EXPECT_EQ(walk(model(0), 1, 3, REL_EXPRESSION), (V{100, 101}));
    EXPECT_EQ(relCount(model(0), 1, 3, REL_EXPRESSION, -1), 2);
    EXPECT_EQ(relHas(model(0), 0, REL_EXPRESSION, -1), 0);
    EXPECT_EQ(relFind(model(0), REL_EXPRESSION, CHP_ANIMATION, 1)->serialid, 4);
}

TEST_F(RelTest, RemovalEmptiesGroupsOnBothEnds) {
    relAdd(&dict, &table, 0, 1, REL_MATERIAL, 1, 1, malloc(4), 1);
    relAdd(&dict, &table, 0, 2, REL_MATERIAL, 1, 1, malloc(4), 1);
    RelationGroup &g = group(CHP_MODELS, 0, 1, 3);
    g.vis = 0;
    ASSERT_EQ(relRemove(&dict, CHP_MODELS, 0, 1, REL_MATERIAL, CHP_MATERIALS, 1, -1), 1);
    EXPECT_TRUE(g.count == 1 && g.vis == 0);
    EXPECT_EQ(group(CHP_MATERIALS, 1, 0, 3).items, nullptr);
    // From the target's side: the source's instance and its data go too.
    ASSERT_EQ(relRemoveParents(&dict, CHP_MATERIALS, 2), 1);
    EXPECT_TRUE(g.count == 0 && g.capacity == 0 && g.items == nullptr && g.vis == 1);
    // A loop that removes what it was just given goes on with the next one.
    for (int m : {0, 1, 2}) toMaterial(m);
    auto dropFirst = [&](int i) { if (i == 0) relRemove(&dict, CHP_MODELS, 0, 1, REL_FREE, CHP_MATERIALS, 0, -1); };
    EXPECT_EQ(walk(model(0), 1, 3, REL_FREE, dropFirst), (V{700, 701, 702}));
}

TEST_F(RelTest, RemovingAnElementTakesItsRelationsAndAnimation) {
    relAdd(&dict, &table, 0, 0, REL_ANIM, 1, 1, nullptr, 1);
    group(CHP_MODELS, 0, 1, 0).items[0].actfcv = 1;  // f1 animates the relation
    relAdd(&dict, &table, 1, 0, REL_PARENT, 1, 1, nullptr, 1);
    ASSERT_EQ(elemRemove(&dict, CHP_MODELS, nullptr, 0, -1, 0, 1), 1);
    EXPECT_EQ(at(CHP_ANIMATION, 1), nullptr);
    EXPECT_EQ(group(CHP_ANIMATION, 0, 0, 0).count, 0);
    EXPECT_EQ(group(CHP_MODELS, 1, 1, 1).count, 0);
    // A relation filter narrows the removal while more than one parent is left.
    relAdd(&dict, &table, 1, 2, REL_PARENT, 1, 1, nullptr, 1);
    relAdd(&dict, &table, 1, 2, REL_CUSTOM, 1, 1, nullptr, 1);
    ASSERT_EQ(elemRemove(&dict, CHP_MODELS, nullptr, 2, REL_PARENT, 0, 0), 1);
    EXPECT_EQ(relCount(model(1), 1, 1, REL_PARENT, -1), 0);
    EXPECT_EQ(relCount(model(1), 1, 4, REL_CUSTOM, -1), 1);
    ASSERT_EQ(elemRemove(&dict, CHP_MODELS, nullptr, 2, REL_PARENT, 0, 0), 1);
    EXPECT_EQ(relCount(model(1), 1, 4, REL_CUSTOM, -1), 0);
}
