// Element names: split, parse, format, sanitize and their order.
#include "dict_fixture.h"

namespace {

struct Split {
    std::string prefix, name, version, revision, suffix;
};

Split split(const char *fileName) {
    Split s{"?", "?", "?", "?", "?"};
    elemNameSplit(fileName, s.prefix, s.name, s.version, s.revision, s.suffix);
    return s;
}

void expectSplit(const char *fileName, const Split &want) {
    Split got = split(fileName);
    EXPECT_EQ(got.prefix, want.prefix) << fileName;
    EXPECT_EQ(got.name, want.name) << fileName;
    EXPECT_EQ(got.version, want.version) << fileName;
    EXPECT_EQ(got.revision, want.revision) << fileName;
    EXPECT_EQ(got.suffix, want.suffix) << fileName;
}

struct LoadFlag {
    explicit LoadFlag(int on) { g_sceneLoading = on; }
    ~LoadFlag() { g_sceneLoading = 0; }
};

}  // namespace

TEST(ElemName, SplitFindsStampSuffixAndPrefix) {
    expectSplit("ball.3-0.hrc", {"", "ball", "3", "0", "hrc"});
    expectSplit("ball.hrc", {"", "ball", "1", "0", ""});
    expectSplit("scene1-ball.3-0", {"scene1", "ball", "3", "0", ""});
    expectSplit("scene1-ball.12-4.hrc", {"scene1", "ball", "12", "4", "hrc"});
    expectSplit("-ball", {"", "-ball", "1", "0", ""});
    expectSplit("a.-b", {"", "a", "1", "0", ""});  // dotted tail cut, no prefix
    expectSplit("a.b.c", {"", "a", "1", "0", ""});
    // A stamp must print back as it stands.
    expectSplit("ball.03-0", {"", "ball", "1", "0", ""});
    expectSplit("ball.3_0.hrc", {"", "ball", "1", "0", ""});
    expectSplit("ball.3-0x", {"", "ball", "1", "0", ""});
    expectSplit("scene1-ball", {"scene1", "ball", "1", "0", ""});
    Split untouched = split(nullptr);
    EXPECT_EQ(untouched.name, "?");
}

TEST(ElemName, StampRuleAndParse) {
    for (const char *no : {"03-0", "3_0", "3-0x", "3-", "-0", " 3-0", "99999999999-1"})
        EXPECT_FALSE(elemNameIsVersionStamp(no, nullptr, nullptr)) << no;
    // fullName: cut at the suffix, except where a '-' stands behind the last '.'.
    const char *cases[][3] = {{"scene1-ball.3-0.hrc", "1", "scene1-ball.3-0"},
                              {"scene1-ball.3-0.hrc", "0", "scene1-ball.3-0.hrc"},
                              {"ball.3-0", "1", "ball.3-0"},
                              {"ball.hrc", "1", "ball"}};
    for (auto &c : cases) {
        ElemName *n = elemNameParse(c[0], "al", c[1][0] == '1');
        EXPECT_EQ(n->fullName, c[2]);
        EXPECT_EQ(n->alias, "al");
        elemNameFree(n);
    }
    EXPECT_EQ(elemNameParse(nullptr, nullptr, 1), nullptr);
}

TEST(ElemName, FormatSanitizesBothParts) {
    ElemName *n = elemNameNew();
    EXPECT_EQ(n->version, "1");
    EXPECT_EQ(n->revision, "0");
    EXPECT_GT(n->time, 0);
    n->name = "ball";
    EXPECT_EQ(elemNameFormat(*n), "ball.1-0");
    n->prefix = "scene1";
    n->version = "3";
    EXPECT_EQ(elemNameFormat(*n), "scene1-ball.3-0");
    n->prefix = "my scene.";
    n->name = "-b-all";
    EXPECT_EQ(elemNameFormat(*n), "my_scene_-_b_all.3-0");
    elemNameFree(n);
}

TEST(ElemName, SanitizeOutsideAndDuringLoad) {
    EXPECT_EQ(elemNameSanitize(std::string(120, 'x'), 0), std::string(99, 'x'));
    EXPECT_EQ(elemNameSanitize("", 0), "");
    EXPECT_EQ(elemNameSanitize("a b/c", 0), "a_b_c");
    EXPECT_EQ(elemNameSanitize("x!\"#$%&'()*+,:;<=>?@[\\]^`{|}~y", 0), "x" + std::string(28, '_') + "y");
    EXPECT_EQ(elemNameSanitize("a.b.", 0), "a.b.");
    EXPECT_EQ(elemNameSanitize("a.b.", 1), "a.b_");
    EXPECT_EQ(elemNameSanitize("s-1", 1), "s_1");
    EXPECT_EQ(elemNameSanitize("a-b", 0), "a-b");
    EXPECT_EQ(elemNameSanitize("-a-b", 0), "_a_b");
    EXPECT_EQ(elemNameSanitize("\t\xe9~", 0), "\t\xe9_");  // outside 32..126 stays
    LoadFlag loading(1);
    EXPECT_EQ(elemNameSanitize("x!y@z", 0), "x!y@z");
    EXPECT_EQ(elemNameSanitize("a b/c", 0), "a_b_c");
    EXPECT_EQ(elemNameSanitize("s-1.", 1), "s-1.");
    EXPECT_EQ(elemNameSanitize("-a", 0), "-a");
}

TEST(ElemName, CompareFoldsCaseAndPutsUnderscoreFirst) {
    EXPECT_EQ(elemNameCompare("Ball", "bALL"), 0);
    EXPECT_EQ(elemNameCompare("a_", "a0"), -1);
    EXPECT_EQ(elemNameCompare("a9", "a_"), 1);
    EXPECT_EQ(elemNameCompare("a_", "aF"), -1);
    EXPECT_EQ(elemNameCompare("a_", "az"), -1);
    EXPECT_EQ(elemNameCompare("a-", "a_"), -1);  // other characters keep their order
    EXPECT_EQ(elemNameCompare("ab", "abc"), -1);
    EXPECT_EQ(elemNameCompare(nullptr, ""), -1);
    EXPECT_EQ(elemNameCompare(nullptr, nullptr), 0);
}
