// Dictionaries: initial values, chapters, slots and the per-thread current one.
#include <thread>

#include "dict_fixture.h"

TEST(Dictionary, CreatesAllChaptersInTableOrder) {
    Dictionary d;
    int32_t ids[CHAPTER_COUNT] = {};
    for (int32_t &id : ids) id = -5;
    ASSERT_EQ(dictCreateChapters(&d, ids, 0), 1);
    ASSERT_EQ(d.chapterCount, 36);
    for (int i = 0; i < CHAPTER_COUNT; ++i) {
        EXPECT_EQ(ids[i], i);
        EXPECT_EQ(d.chapters[i].name, g_chapterTable[i].dir);
        int kind = i == CHP_NSELECTIONS || i == CHP_CHANNEL_DRIVERS ? 0 : i == CHP_OUTSIDE_DB_FILES ? 2 : 1;
        EXPECT_EQ(d.chapters[i].kind, kind) << i;
        EXPECT_EQ(d.chapters[i].elementCount, 0);
    }
    EXPECT_EQ(d.chapters[CHP_TEXTURES3D].suffix, "t3D");
    EXPECT_EQ(d.chapters[CHP_NSELECTIONS].suffix, "");
    // A private dictionary sorts its second view by full name.
    EXPECT_EQ(d.list1.sortKey, 6);
    EXPECT_EQ(d.list1.viewD[2], 0);
    EXPECT_EQ(d.list2.sortKey, 9);
    EXPECT_EQ(d.list2.viewD[2], 1);
    EXPECT_EQ(dictCreateChapters(&d, nullptr, 1), 0);  // only once
    dictFree(&d, 0);
    ASSERT_EQ(dictCreateChapters(&d, nullptr, 1), 1);
    EXPECT_EQ(d.list1.sortKey, 9);
    EXPECT_EQ(d.list2.sortKey, 6);
    dictFree(&d, 0);
    EXPECT_EQ(d.chapterCount, 0);
}

TEST_F(DictTest, ChapterLookups) {
    EXPECT_EQ(dictChapterFind(&dict, "MODELS"), CHP_MODELS);
    EXPECT_EQ(dictChapterFind(&dict, "models"), -1);
    EXPECT_EQ(dictChapterFind(&dict, "render_PICTURES"), CHP_RENDER_PICTURES);
    EXPECT_EQ(dictChapterFind(&dict, nullptr), -1);
    EXPECT_EQ(dictChapterFindBySuffix(&dict, "HRC"), CHP_MODELS);
    EXPECT_EQ(dictChapterFindBySuffix(&dict, "shd"), 21);
    EXPECT_EQ(dictChapterFindBySuffix(&dict, ""), -1);
    EXPECT_EQ(chapterAddByName(&dict, "LIGHTS"), CHP_LIGHTS);
    EXPECT_EQ(chapterAddByName(&dict, "EXTRA"), 36);
    EXPECT_EQ(chapterAddByName(&dict, "EXTRA"), 36);
    EXPECT_EQ(dict.chapterCount, 37);
    EXPECT_EQ(chapterDirOf(CHP_RENDER_PICTURES), CHP_PICTURES);
    EXPECT_EQ(chapterDirOf(36), -1);
}

TEST_F(DictTest, DefaultSceneIsMadeOnce) {
    Element *scene = dictEnsureScene(&dict);
    ASSERT_NE(scene, nullptr);
    EXPECT_EQ(scene->name->name, "no_name");
    EXPECT_EQ(scene->name->prefix, "");
    EXPECT_EQ(scene->name->fullName, "no_name.1-0");
    EXPECT_EQ(dictEnsureScene(&dict), scene);
    EXPECT_EQ(dict.chapters[CHP_SCENES].elementCount, 1);
}

TEST(DictionarySlots, AllocateFreeAndReuse) {
    int a = dictAllocSlot();
    int b = dictAllocSlot();
    ASSERT_GE(a, 0);
    ASSERT_GT(b, a);
    EXPECT_TRUE(dictInUse(b));
    Dictionary *db = dictGet(b);
    ASSERT_NE(db, nullptr);
    dictCreateChapters(db, nullptr, 1);
    elemAdd(db, CHP_MODELS, elemNameParse("m", nullptr, 0), nullptr, nullptr, 0, 0);

    ThreadStorage *ts = threadStorage();
    int saved = ts->curDict;
    ts->curDict = b;
    EXPECT_EQ(dictCurrent(), db);
    EXPECT_FALSE(dictFreeSlot(b));  // the caller's own dictionary stays
    ts->curDict = a;
    EXPECT_TRUE(dictFreeSlot(b));
    EXPECT_FALSE(dictInUse(b));
    EXPECT_EQ(dictGet(b), nullptr);
    EXPECT_EQ(db->chapterCount, 0);  // its contents went with it
    EXPECT_FALSE(dictFreeSlot(b));
    EXPECT_FALSE(dictFreeSlot(-1));
    EXPECT_FALSE(dictFreeSlot(dictCount()));
    EXPECT_EQ(dictAllocSlot(), b);  // a free slot is taken again
    ts->curDict = saved;
    EXPECT_TRUE(dictFreeSlot(b));
    if (a != saved) {
        EXPECT_TRUE(dictFreeSlot(a));
    }
}

TEST(ThreadStorage, EachThreadHasItsOwnBlock) {
    ThreadStorage *mine = threadStorage();
    int before = mine->curDict;
    int seen[2] = {-1, -1};
    ThreadStorage *blocks[2] = {};
    auto run = [&](int k) {
        ThreadStorage *ts = threadStorage();
        blocks[k] = ts;
        EXPECT_EQ(ts->curDict, 0);  // a new thread starts on dictionary 0
        EXPECT_EQ(ts->curSelectList, 0);
        EXPECT_EQ(ts->curCamera, nullptr);
        ts->curDict = 10 + k;
        std::this_thread::yield();
        seen[k] = threadStorage()->curDict;
    };
    std::thread t0(run, 0), t1(run, 1);
    t0.join();
    t1.join();
    EXPECT_EQ(seen[0], 10);
    EXPECT_EQ(seen[1], 11);
    EXPECT_NE(blocks[0], blocks[1]);
    EXPECT_EQ(threadStorage(), mine);
    EXPECT_EQ(mine->curDict, before);
}
