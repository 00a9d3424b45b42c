// Element names (split, parse, format, sanitize, order) and the relation table.
#include "dict_fixture.h"

TEST(ElemName, SplitAndParse) {
    // Expected as "prefix|name|version|revision|suffix".
    const char *cases[][2] = {
        {"ball.3-0.hrc", "|ball|3|0|hrc"},
        {"ball.hrc", "|ball|1|0|"},
        {"scene1-ball.12-4", "scene1|ball|12|4|"},
        {"-ball", "|-ball|1|0|"},
        {"a.-b.3-0", "|a.-b|3|0|"},  // a '-' right behind a '.' starts no prefix
        {"a.b.c", "|a|1|0|"},        // the second dot of a dotted name goes with the suffix
        {"ball.03-0", "|ball|1|0|"},  // a stamp must print back as it stands
        {"ball.3_0.hrc", "|ball|1|0|"},
    };
    for (auto &c : cases) {
        std::string p = "?", n = "?", v = "?", r = "?", s = "?";
        ASSERT_EQ(elemNameSplit(c[0], p, n, v, r, s), 1);
        EXPECT_EQ(p + "|" + n + "|" + v + "|" + r + "|" + s, c[1]) << c[0];
    }
    std::string untouched = "?";
    EXPECT_EQ(elemNameSplit(nullptr, untouched, untouched, untouched, untouched, untouched), 0);
    EXPECT_EQ(untouched, "?");
    for (const char *no : {"03-0", "3_0", "3-0x", "3-", " 3-0", "99999999999-1"})
        EXPECT_FALSE(elemNameIsVersionStamp(no, nullptr, nullptr)) << no;
    // fullName: cut at the suffix, except where a '-' stands behind the last '.'.
    const char *parsed[][3] = {{"s-ball.3-0.hrc", "1", "s-ball.3-0"},
                               {"s-ball.3-0.hrc", "0", "s-ball.3-0.hrc"},
                               {"ball.3-0", "1", "ball.3-0"},
                               {"ball.hrc", "1", "ball"}};
    for (auto &c : parsed) {
        ElemName *n = elemNameParse(c[0], "al", c[1][0] == '1');
        EXPECT_EQ(n->fullName, c[2]);
        EXPECT_EQ(n->alias + n->name, "alball");
        elemNameFree(n);
    }
    EXPECT_EQ(elemNameParse(nullptr, nullptr, 1), nullptr);
}

TEST(ElemName, FormatAndSanitize) {
    ElemName n;
    n.prefix = "my scene.", n.name = "-b-all", n.version = "3";
    EXPECT_EQ(elemNameFormat(n), "my_scene_-_b_all.3-0");
    const std::string special = "!\"#$%&'()*+,:;<=>?@[\\]^`{|}~";
    EXPECT_EQ(elemNameSanitize(std::string(120, 'x'), 0), std::string(99, 'x'));
    EXPECT_EQ(elemNameSanitize("x" + special + "y", 0), "x" + std::string(28, '_') + "y");
    EXPECT_EQ(elemNameSanitize("a b/c", 0), "a_b_c");
    EXPECT_EQ(elemNameSanitize("a.b.", 0), "a.b.");
    EXPECT_EQ(elemNameSanitize("a.b.", 1), "a.b_");
    EXPECT_EQ(elemNameSanitize("s-1", 1), "s_1");
    EXPECT_EQ(elemNameSanitize("a-b", 0), "a-b");
    EXPECT_EQ(elemNameSanitize("\t\xe9~", 0), "\t\xe9_");  // outside 32..126 stays
    // While a scene is read only blanks and slashes change.
    loadInProgress = 1;
    EXPECT_EQ(elemNameSanitize("x" + special + "y", 0), "x" + special + "y");
    EXPECT_EQ(elemNameSanitize("a b/c", 0), "a_b_c");
    EXPECT_EQ(elemNameSanitize("s-1.", 1), "s-1.");
    EXPECT_EQ(elemNameSanitize("-a", 0), "-a");
    loadInProgress = 0;
}

TEST(ElemName, CompareFoldsCaseAndPutsUnderscoreBeforeHexDigits) {
    EXPECT_EQ(elemNameCompare("Ball", "bALL"), 0);
    EXPECT_EQ(elemNameCompare(nullptr, nullptr), 0);
    // Each first one sorts first; '-' keeps its place below '_'.
    const char *pairs[][2] = {{"a_", "a0"}, {"a_", "aF"}, {"a-", "a_"}, {"ab", "abc"}, {nullptr, ""}};
    for (auto &p : pairs) EXPECT_EQ(elemNameCompare(p[0], p[1]) * 10 + elemNameCompare(p[1], p[0]), -9) << p[1];
}

TEST_F(DictTest, RelationTableLookups) {
    RelationDict linear, indexed, other;
    int32_t ids[] = {500, 100, 300, 300, 50};
    for (int i = 0; i < 5; ++i) {
        linear.rows.push_back(testRow(ids[i], "r" + std::to_string(i), 8, 8, 0, 0, 1));
        relDictAddRow(&indexed, testRow(ids[i], "r" + std::to_string(i), 8, 8, 0, 0, 1));
    }
    ASSERT_EQ(linear.index, nullptr);
    for (RelationDict *t : {&linear, &indexed}) {
        EXPECT_EQ(relRowFind(t, 300), 2);  // the first of the relation's rows
        EXPECT_EQ(relRowCount(t, 300), 2);
        EXPECT_EQ(relRowFind(t, 50), 4);
        EXPECT_STREQ(relName(t, 100), "r1");
        EXPECT_STREQ(relName(t, 777), "unknown");
    }
    EXPECT_EQ(indexed.index->sorted, (V{4, 1, 2, 3, 0}));
    // The one-entry cache belongs to one table, and an added row voids a cached miss.
    relDictAddRow(&other, testRow(50, "o", 8, 8, 0, 0, 1));
    EXPECT_EQ(relRowFind(&other, 50), 0);
    EXPECT_EQ(relRowFind(&indexed, 50), 4);
    EXPECT_EQ(relRowFind(&indexed, 777), -1);
    relDictAddRow(&indexed, testRow(777, "late", 8, 8, 0, 0, 1));
    EXPECT_EQ(relRowFind(&indexed, 777), 5);
    relDictClear(&indexed);
    EXPECT_EQ(relRowFind(&indexed, 500), -1);
    // Instance rows of a two-row relation.
    int16_t chpTo = 0, rk = 0;
    ASSERT_EQ(relRowInstance(&table, REL_MATERIAL, 2, nullptr, &chpTo, nullptr, nullptr, &rk, nullptr), 1);
    EXPECT_TRUE(rk == 21 && chpTo == CHP_MATERIALS);
    EXPECT_EQ(relRowInstance(&table, REL_MATERIAL, 0, nullptr, nullptr, nullptr, nullptr, &rk, nullptr), 1);
    EXPECT_EQ(rk, 20);  // below 1 means 1
    EXPECT_EQ(relRowInstance(&table, REL_MATERIAL, 3, nullptr, nullptr, nullptr, nullptr, &rk, nullptr), 0);
    EXPECT_EQ(relFanOutOf(&table, REL_MATERIAL), 2);
    EXPECT_TRUE(relSameChapters(&table, REL_ANY));
    EXPECT_FALSE(relSameChapters(&table, REL_PARENT));
}
