// Dictionaries: chapters, slots, the per-thread current one and the dump.
#include <cstdlib>
#include <thread>

#include "dict_fixture.h"

TEST_F(DictTest, ChaptersAndTheDefaultScene) {
    Dictionary d;
    int32_t ids[CHAPTER_COUNT] = {};
    ASSERT_EQ(dictCreateChapters(&d, ids, 0), 1);
    ASSERT_EQ(d.chapterCount, 36);
    for (int i = 0; i < CHAPTER_COUNT; ++i) {
        EXPECT_EQ(ids[i], i);
        EXPECT_EQ(d.chapters[i].name, g_chapterTable[i].dir);
        int kind = i == CHP_NSELECTIONS || i == CHP_CHANNEL_DRIVERS ? 0 : i == CHP_OUTSIDE_DB_FILES ? 2 : 1;
        EXPECT_EQ(d.chapters[i].kind, kind) << i;
    }
    EXPECT_EQ(d.list2.sortKey, 9);  // a private dictionary lists by full name in its second view
    EXPECT_EQ(dict.list1.sortKey, 9);
    EXPECT_EQ(dictCreateChapters(&d, nullptr, 1), 0);  // only once
    dictFree(&d, 0);
    EXPECT_EQ(dictChapterFind(&dict, "render_PICTURES"), CHP_RENDER_PICTURES);  // any case
    EXPECT_EQ(chapterAddByName(&dict, "EXTRA") + chapterAddByName(&dict, "EXTRA"), 72);
    Element *scene = dictEnsureScene(&dict);
    ASSERT_NE(scene, nullptr);
    EXPECT_EQ(scene->name->fullName, "no_name.1-0");
    EXPECT_EQ(dictEnsureScene(&dict), scene);
    EXPECT_EQ(dict.chapters[CHP_SCENES].elementCount, 1);
}

TEST(DictionarySlots, AllocateFreeAndReuse) {
    ThreadStorage *ts = threadStorage();
    int saved = ts->curDict, b = dictAllocSlot();
    Dictionary *db = dictGet(b);
    dictCreateChapters(db, nullptr, 1);
    ts->curDict = b;
    EXPECT_EQ(dictCurrent(), db);
    EXPECT_FALSE(dictFreeSlot(b));  // the caller's own dictionary stays
    ts->curDict = -1;
    EXPECT_TRUE(dictFreeSlot(b));
    EXPECT_EQ(dictGet(b), nullptr);
    EXPECT_EQ(db->chapterCount, 0);  // its contents went with it
    EXPECT_EQ(dictAllocSlot(), b);  // a free slot is taken again
    EXPECT_TRUE(dictFreeSlot(b));
    ts->curDict = saved;
}

TEST(ThreadStorage, EachThreadHasItsOwnBlock) {
    int seen[2] = {-1, -1};
    auto run = [&](int k) {
        EXPECT_EQ(threadStorage()->curDict, 0);  // a new thread starts on dictionary 0
        threadStorage()->curDict = 10 + k;
        std::this_thread::yield();
        seen[k] = threadStorage()->curDict;
    };
    std::thread t0(run, 0), t1(run, 1);
    t0.join();
    t1.join();
    EXPECT_EQ(seen[0] * 100 + seen[1], 1011);
}

TEST(DictDump, TinyDictionary) {
    RelationDict table;
    Dictionary d;
    chapterAddByName(&d, "MODELS");
    d.chapters[0].iconIndex = 4;
    int payload = 0;
    elemAdd(&d, 0, elemNameParse("s-ball.3-0", nullptr, 0), &payload, nullptr, 0, 4);
    elemAdd(&d, 0, elemNameParse("cube", nullptr, 0), nullptr, nullptr, 0, 0);
    elemRemove(&d, 0, nullptr, 1, -1, 0, 1);
    ASSERT_EQ(relAddFull(&d, &table, 0, 0, 1, 1, 0, 0, 110, 7, 10, malloc(4)), 1);
    ASSERT_EQ(relAddFull(&d, &table, 0, 0, 2, 5, 0, 0, 220, -1, 5, nullptr), 1);
    Element *e = elemGet(&d, 0, 0);
    e->name->subdir = "SHARE/";
    e->selected = e->flag = e->isNew = 1;
    e->schemX = 12.7f;
    e->childGroups[1].items[0].actfcv = 3;
    e->childGroups[5].vis = 0;
    auto groups = [](int from, int to, std::string out = "") {
        for (int g = from; g <= to; ++g) out += "  |  |  |  |Group " + std::to_string(g) + " ------------------ vis[1] --\n";
        return out;
    };
    StreamCapture err(stderr);
    dictDump(&d);
    EXPECT_EQ(err.text(),
              "Dictionnary >>>>>>>>>>>>>>>>>>>>>>>\n"
              "  |Chapter 0 (MODELS) chpicn(4)\n"
              "  |  |Elements  ===============================\n"
              "  |  |  |Element 0 (selected 1)(dirty 1)(new 1)(wrkid 4)(lev 0)(root 0)(FLAG 1)\n"
              "  |  |  |  | name [s-ball.3-0]\n"
              "  |  |  |  | subdir [SHARE/]\n"
              "  |  |  |  |1 aux(0) icn(12)\n"
              "  |  |  |Relations >> for elem 0\n" +
                  groups(0, 1) +
                  "  |  |  |  |0 relid[110] activ[1] grp[1] chp[0] elem[0] data[1] serialid[7] actfcv[3]\n" +
                  groups(2, 2) + "  |  |  |  |0 relid[220] activ[1] grp[5] chp[0] elem[0] data[0]\n" +
                  groups(3, 4) + "  |  |  |  |Group 5 ------------------ vis[0] --\n"
                  "  |  |  |Element 1 (selected 0)(dirty 1)(new 0)(wrkid 0)(lev 0)(root 1)(FLAG 0)\n"
                  "  |  |  |Deleted = 2\n"
                  "  |  |  |  |0 aux(0) icn(0)\n"
                  "  |  |  |Relations >> for elem 1\n" +
                  groups(0, 5));
    dictFree(&d, 0);
}
