// Display order of a chapter and the hierarchical order of ANIMATION.
#include "dict_fixture.h"

namespace {

class SortTest : public DictTest {
protected:
    std::vector<int32_t> sorted(int chapterId, int key, int direction, int hierarchical = 0) {
        Chapter &c = dict.chapters[chapterId];
        int n = elemlistSortChapterElements(&c, chapterId, key, direction, hierarchical);
        EXPECT_EQ(n, static_cast<int>(c.sorted.size()));
        return c.sorted;
    }
    using V = std::vector<int32_t>;
};

}  // namespace

TEST_F(SortTest, KeysOrderASmallChapter) {
    for (const char *n : {"b", "A", "c0", "x", "c_1"}) add(CHP_MODELS, n);
    elemRemove(&dict, CHP_MODELS, nullptr, 3, -1, 0, 1);
    Element *e[5];
    for (int i = 0; i < 5; ++i) e[i] = &dict.chapters[CHP_MODELS].elements[i];
    EXPECT_EQ(sorted(CHP_MODELS, 4, 1), (V{1, 0, 4, 2, 3}));
    EXPECT_EQ(sorted(CHP_MODELS, 4, 0), (V{2, 4, 0, 1, 3}));  // free slots stay last
    const char *versions[] = {"10", "9", "1", "", "2"};
    const int times[] = {5, 3, 4, 0, 1};
    for (int i : {0, 1, 2, 4}) {
        e[i]->name->version = versions[i];
        e[i]->name->time = times[i];
        e[i]->name->size = 10 - i;
    }
    EXPECT_EQ(sorted(CHP_MODELS, 5, 1), (V{2, 4, 1, 0, 3}));
    EXPECT_EQ(sorted(CHP_MODELS, 6, 1), (V{4, 1, 2, 0, 3}));
    EXPECT_EQ(sorted(CHP_MODELS, 13, 1), (V{4, 2, 1, 0, 3}));
    e[0]->name->mode = e[2]->name->mode = 0x41ed;
    EXPECT_EQ(sorted(CHP_MODELS, 11, 1), (V{0, 2, 1, 4, 3}));
    e[1]->browserValue[1] = -2.5f;
    EXPECT_EQ(sorted(CHP_MODELS, 17, 1), (V{1, 0, 2, 4, 3}));
    e[4]->name->prefix = "a";
    EXPECT_EQ(sorted(CHP_MODELS, 10, 1), (V{1, 4, 0, 2, 3}));  // "A" before "a-c_1"
    EXPECT_EQ(sorted(CHP_MODELS, 3, 1), (V{0, 1, 2, 4, 3}));  // no such key: slot order
}

TEST_F(SortTest, TextKeysBreakTiesByStateNewLevAndVersion) {
    for (int i = 0; i < 5; ++i) add(CHP_LIGHTS, "x");
    Element *e = dict.chapters[CHP_LIGHTS].elements;
    e[0].deleted = 1;
    e[1].lev = 1;
    e[3].isNew = e[4].isNew = 1;
    e[3].name->version = "3";
    e[4].name->version = "2";
    EXPECT_EQ(sorted(CHP_LIGHTS, 4, 1), (V{4, 3, 2, 1, 0}));
    for (int i = 0; i < 5; ++i) e[i].name->time = 9;
    EXPECT_EQ(sorted(CHP_LIGHTS, 6, 1), (V{0, 1, 2, 3, 4}));  // no tie rules beyond text keys
}

TEST_F(SortTest, PicturesSortAsSequences) {
    for (int chapterId : {CHP_PICTURES, CHP_RENDER_PICTURES}) {
        for (const char *n : {"walk10.pic", "walk1.tif", "run1.pic", "walk2.pic"}) add(chapterId, n);
        EXPECT_EQ(sorted(chapterId, 4, 1), (V{2, 3, 0, 1}));
        EXPECT_EQ(sorted(chapterId, 9, 1), (V{2, 3, 0, 1}));
    }
    EXPECT_EQ(sorted(CHP_PICTURES, 12, 0), (V{1, 0, 3, 2}));
}

TEST_F(SortTest, AnimationHierarchy) {
    for (const char *n : {"b", "b", "a", "a", "a", "zz"}) add(CHP_ANIMATION, n);
    Element *e = dict.chapters[CHP_ANIMATION].elements;
    e[1].lev = 1, e[1].root = 0;
    e[3].lev = 1, e[3].root = 2;
    e[4].lev = 1, e[4].root = 2;
    elemRemove(&dict, CHP_ANIMATION, nullptr, 5, -1, 0, 1);
    Chapter &c = dict.chapters[CHP_ANIMATION];
    elemHierSort(&c);
    EXPECT_EQ(c.hierOrder, (V{1, 0, 3, 4, 2, 5}));
    EXPECT_EQ(c.hierChildCount, (V{0, 1, 0, 0, 2, 0}));
    EXPECT_EQ(sorted(CHP_ANIMATION, 4, 1, 1), (V{3, 4, 2, 1, 0, 5}));
    EXPECT_EQ(sorted(CHP_ANIMATION, 4, 0, 1), (V{1, 0, 3, 4, 2, 5}));
    EXPECT_EQ(sorted(CHP_ANIMATION, 4, 1, 0), (V{2, 3, 4, 0, 1, 5}));

    ScopedEnv legacy("BW_NEO_LEGACYLOADER", "");
    dictEnvReset();
    c.hierOrder.clear();
    elemHierSort(&c);
    EXPECT_TRUE(c.hierOrder.empty());
}

TEST_F(SortTest, OverrunsAreReported) {
    add(CHP_ANIMATION, "a");
    add(CHP_ANIMATION, "b");
    Chapter &c = dict.chapters[CHP_ANIMATION];
    c.elements[1].root = 0;  // a root claimed by another root
    {
        StreamCapture err(stderr);
        elemHierSort(&c);
        EXPECT_EQ(err.text(), " ANIM HierSort: #1 ind > nbelems (2)\n");
    }
    EXPECT_EQ(c.hierOrder, (V{1, 0}));
    c.hierChildCount = {0, 1};
    c.hierOrder = {0, 1};
    StreamCapture err(stderr);
    EXPECT_EQ(sorted(CHP_ANIMATION, 4, 1, 1), (V{0}));
    EXPECT_EQ(err.text(), "ERROR in elemlistSortChapterElements. Please report\n");
}
