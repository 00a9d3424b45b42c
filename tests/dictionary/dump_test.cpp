// The dictionary dump, byte for byte.
#include <cstdlib>

#include "dict_fixture.h"

namespace {

std::string groupLine(int g) {
    return "  |  |  |  |Group " + std::to_string(g) + " ------------------ vis[1] --\n";
}

std::string emptyGroups(int from, int to) {
    std::string out;
    for (int g = from; g <= to; ++g) out += groupLine(g);
    return out;
}

}  // namespace

TEST(DictDump, TinyDictionary) {
    RelationDict table;
    fillTestTable(table);
    Dictionary d;
    chapterAddByName(&d, "SCENES");
    chapterAddByName(&d, "MODELS");
    d.chapters[1].iconIndex = 4;
    dictEnsureScene(&d);
    int payload = 0;
    int ball = elemAdd(&d, 1, elemNameParse("s-ball.3-0", nullptr, 0), &payload, nullptr, 0, 4);
    Element *e = elemGet(&d, 1, ball);
    e->name->subdir = "SHARE/";
    e->selected = 1;
    e->flag = 1;
    e->isNew = 1;
    e->schemX = 12.7f;
    elemAdd(&d, 1, elemNameParse("cube", nullptr, 0), nullptr, nullptr, 0, 0);
    int cone = elemAdd(&d, 1, elemNameParse("cone", nullptr, 0), nullptr, nullptr, 0, 0);
    elemRemove(&d, 1, nullptr, 1, -1, 0, 1);
    ASSERT_EQ(relAddFull(&d, &table, 1, 1, 1, 1, ball, cone, 110, 7, 10, malloc(4)), 1);
    ASSERT_EQ(relAddFull(&d, &table, 1, 1, 2, 5, ball, cone, 220, -1, 5, nullptr), 1);
    elemGet(&d, 1, ball)->childGroups[1].items[0].actfcv = 3;

    StreamCapture err(stderr);
    dictDump(&d);
    EXPECT_EQ(err.text(),
              "Dictionnary >>>>>>>>>>>>>>>>>>>>>>>\n"
              "  |Chapter 0 (SCENES) chpicn(0)\n"
              "  |  |Elements  ===============================\n"
              "  |  |  |Element 0 (selected 0)(dirty 1)(new 2)(wrkid 0)(lev 0)(root 0)(FLAG 0)\n"
              "  |  |  |  | name [no_name.1-0]\n"
              "  |  |  |  | subdir []\n"
              "  |  |  |  |0 aux(0) icn(0)\n"
              "  |  |  |Relations >> for elem 0\n" +
                  emptyGroups(0, 5) +
                  "  |Chapter 1 (MODELS) chpicn(4)\n"
                  "  |  |Elements  ===============================\n"
                  "  |  |  |Element 0 (selected 1)(dirty 1)(new 1)(wrkid 4)(lev 0)(root 0)(FLAG 1)\n"
                  "  |  |  |  | name [s-ball.3-0]\n"
                  "  |  |  |  | subdir [SHARE/]\n"
                  "  |  |  |  |1 aux(0) icn(12)\n"
                  "  |  |  |Relations >> for elem 0\n" +
                  groupLine(0) + groupLine(1) +
                  "  |  |  |  |0 relid[110] activ[1] grp[1] chp[1] elem[2] data[1] serialid[7] actfcv[3]\n" +
                  groupLine(2) +
                  "  |  |  |  |0 relid[220] activ[1] grp[5] chp[1] elem[2] data[0]\n" +
                  emptyGroups(3, 5) +
                  "  |  |  |Element 1 (selected 0)(dirty 1)(new 0)(wrkid 0)(lev 0)(root 1)(FLAG 0)\n"
                  "  |  |  |Deleted = 2\n"
                  "  |  |  |  |0 aux(0) icn(0)\n"
                  "  |  |  |Relations >> for elem 1\n" +
                  emptyGroups(0, 5) +
                  "  |  |  |Element 2 (selected 0)(dirty 1)(new 2)(wrkid 0)(lev 0)(root 2)(FLAG 0)\n"
                  "  |  |  |  | name [cone]\n"
                  "  |  |  |  | subdir []\n"
                  "  |  |  |  |0 aux(0) icn(0)\n"
                  "  |  |  |Relations >> for elem 2\n" +
                  emptyGroups(0, 5));
    dictFree(&d, 0);
    relDictClear(&table);
}
