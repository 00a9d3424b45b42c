// The relation table: lookups with and without the index, and its dump.
#include "dict_fixture.h"

TEST(RelationTable, LinearLookupWithoutIndex) {
    RelationDict t;
    t.rows.push_back(testRow(300, "b", 8, 8, 1, 1, 3, 1));
    t.rows.push_back(testRow(100, "a", 8, 7, 3, 3, 1, 2));
    t.rows.push_back(testRow(100, "a2", 8, 7, 3, 3, 2, 2));
    ASSERT_EQ(t.index, nullptr);
    EXPECT_EQ(relRowFind(&t, 100), 1);
    EXPECT_EQ(relRowFind(&t, 300), 0);
    EXPECT_EQ(relRowFind(&t, 200), -1);
    EXPECT_EQ(relRowCount(&t, 100), 2);
    EXPECT_STREQ(relName(&t, 300), "b");
    EXPECT_STREQ(relName(&t, 200), "unknown");
    EXPECT_STREQ(relName(nullptr, 300), "unknown");
}

TEST(RelationTable, IndexedLookupRebuildsAndCaches) {
    RelationDict t;
    for (int32_t id : {500, 100, 300, 300, 50}) relDictAddRow(&t, testRow(id, "r", 8, 8, 0, 0, 0, 1));
    ASSERT_NE(t.index, nullptr);
    EXPECT_EQ(t.index->valid, 0);
    EXPECT_EQ(relRowFind(&t, 300), 2);  // the first of the relation's rows
    EXPECT_EQ(t.index->valid, 1);
    EXPECT_EQ(t.index->sorted, (std::vector<int32_t>{4, 1, 2, 3, 0}));
    EXPECT_EQ(relRowFind(&t, 300), 2);  // from the cache
    EXPECT_EQ(relRowFind(&t, 777), -1);
    EXPECT_EQ(relRowFind(&t, 777), -1);
    // An added row invalidates both the index and a cached miss.
    relDictAddRow(&t, testRow(777, "late", 8, 8, 0, 0, 0, 1));
    EXPECT_EQ(relRowFind(&t, 777), 5);
    EXPECT_EQ(relRowFind(&t, 50), 4);
    EXPECT_EQ(relRowFind(&t, 500), 0);
    relDictClear(&t);
    EXPECT_EQ(relRowFind(&t, 500), -1);
}

TEST(RelationTable, InstancesFanOutAndAnyChapter) {
    RelationDict t;
    fillTestTable(t);
    int16_t chpFrom = 0, chpTo = 0, grpFrom = 0, grpTo = 0, rk = 0, fo = 0;
    ASSERT_EQ(relRowInstance(&t, REL_MATERIAL, 2, &chpFrom, &chpTo, &grpFrom, &grpTo, &rk, &fo), 1);
    EXPECT_EQ(rk, 21);
    EXPECT_EQ(chpTo, CHP_MATERIALS);
    EXPECT_EQ(relRowInstance(&t, REL_MATERIAL, 0, nullptr, nullptr, nullptr, nullptr, &rk, nullptr), 1);
    EXPECT_EQ(rk, 20);  // below 1 means 1
    EXPECT_EQ(relRowInstance(&t, REL_MATERIAL, 3, nullptr, nullptr, nullptr, nullptr, &rk, nullptr), 0);
    EXPECT_EQ(relRowInstance(&t, REL_CUSTOM, 99, nullptr, nullptr, nullptr, nullptr, &rk, nullptr), 0);
    EXPECT_EQ(relFanOutOf(&t, REL_MATERIAL), 2);
    EXPECT_EQ(relFanOutOf(&t, 4242), -1);
    EXPECT_TRUE(relSameChapters(&t, REL_ANY));
    EXPECT_FALSE(relSameChapters(&t, REL_PARENT));
    EXPECT_FALSE(relSameChapters(&t, 4242));
    relDictClear(&t);
}

TEST(RelationTable, DumpPrintsEveryRow) {
    RelationDict t;
    relDictAddRow(&t, testRow(110, "parent", 8, 8, 1, 1, 10, 1));
    RelationRow row = testRow(900, "any", REL_ANY_CHAPTER, 2, 5, 0, 1, 4);
    row.dd = 3;
    row.act = 0;
    relDictAddRow(&t, row);
    StreamCapture out(stdout);
    relDump(&t);
    EXPECT_EQ(out.text(),
              " Dictionary of Relations:\n"
              "--------------------------\n"
              "0) parent(110) chp[8->8] grp[1->1] rk(10) fo(1) dd(0) act(1) actdep(1)\n"
              "1) any(900) chp[-10->2] grp[5->0] rk(1) fo(4) dd(3) act(0) actdep(1)\n");
    relDictClear(&t);
}
