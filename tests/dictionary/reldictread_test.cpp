// The relation resource reader: old rows, sections, messages, and the lookups
// that depend on what it read.
#include "dict_fixture.h"

using bwtest::OutputCapture;
using bwtest::TempDir;

namespace {

class RelReadTest : public ::testing::Test {
protected:
    void TearDown() override {
        relDictClear(&read);
        customTableClear(&g_customTable);
    }
    // Reads `text` as a resource file; output of the read in out/err.
    int load(const std::string &text) {
        std::string path = dir.write("Relations.rsrc", text);
        OutputCapture cap;
        int ok = dbLoadRelationDictionary(&read, path.c_str(), 1);
        out = cap.out.text();
        err = cap.err.text();
        return ok;
    }
    const RelationRow &row(int i) { return read.rows[i]; }
    TempDir dir;
    RelationDict read;
    std::string out, err;
};

}  // namespace

TEST_F(RelReadTest, OldRowsOfNineAndTwelveFields) {
    // With the relation magic every row has three more numbers: act, actdep, one ignored.
    ASSERT_EQ(load("SREL 3.48\nRELATIONS\n110 parent MODELS MODELS TRANSFO RELGR_TRANSFO 10 1 2 0 1 9\n"
                   "400 mat MODELS * RENDER RENDER 20 2 0 1 0 9\nEndOfRELATIONS\n999 after * * PARAM PARAM 1 1 0 1 1 0\n"),
              1);
    ASSERT_EQ(read.count(), 2);
    EXPECT_TRUE(row(0).relid == 110 && row(0).name == "parent" && row(0).chpFrom == CHP_MODELS &&
                row(0).grpTo == RELGR_TRANSFO && row(0).rk == 10 && row(0).fo == 1 && row(0).dd == 2 &&
                row(0).act == 0 && row(0).actdep == 1 && row(0).kind == 3);
    EXPECT_TRUE(row(1).chpTo == REL_ANY_CHAPTER && row(1).act == 1 && row(1).actdep == 0);
    EXPECT_TRUE(relSameChapters(&read, 400) && !relSameChapters(&read, 110));
    EXPECT_EQ(out + err, "");
    // Another magic of the family, or none: nine fields, act and actdep stay 1.
    for (const char *head : {"SSET 3.48\n", ""}) {
        ASSERT_EQ(load(std::string(head) + "RELATIONS 111 anim MODELS ANIMATION PARAM PARAM 5 8 3\n"
                                           "112 b MODELS MODELS OTHER OTHER 1 1 0 EndOfRELATIONS"),
                  1) << head;
        ASSERT_EQ(read.count(), 2);
        EXPECT_TRUE(row(0).relid == 111 && row(0).chpTo == CHP_ANIMATION && row(0).dd == 3 &&
                    row(0).act == 1 && row(0).actdep == 1 && row(1).relid == 112);
    }
    // A row cut by the end of the file is dropped; a file with no relation part fails.
    EXPECT_EQ(load("SREL 3.0\nRELATIONS\n110 parent MODELS MODELS TRANSFO TRANSFO 10 1 2 0\n"), 1);
    EXPECT_EQ(read.count(), 0);
    EXPECT_EQ(load("SREL 3.0\nnothing here\n"), 0);
    EXPECT_EQ(out, "BW_ERROR: dbLoadRelationDictionary() Cannot open resource file " + dir.path() +
                       "/Relations.rsrc\n");
    OutputCapture quiet;
    EXPECT_EQ(dbLoadRelationDictionary(&read, (dir / "missing").c_str(), 0), 0);
    EXPECT_EQ(quiet.out.text() + quiet.err.text(), "");
}

TEST_F(RelReadTest, BadGroupsAndChaptersAreReported) {
    ASSERT_EQ(load("SREL 3.48\nRELATIONS\n"
                   "1 badgrp MODELS MODELS NOPE PARAM 1 1 0 1 1 0\n"
                   "2 baddst MODELS NOWHERE PARAM PARAM 1 1 0 1 1 0\n"
                   "3 badsrc NOWHERE MODELS PARAM PARAM 1 1 0 1 1 0\n"
                   "4 good MODELS MODELS PARAM PARAM 1 1 0 1 1 0\nEndOfRELATIONS\n"),
              1);
    EXPECT_EQ(out,
              "BW_ERROR: reldictReadRelations() Invalid group for relation badgrp\n"
              "BW_ERROR: reldictReadRelations() Invalid destination chapter for relation baddst\n"
              "BW_ERROR: reldictReadRelations() Invalid source chapter for relation badsrc\n");
    ASSERT_EQ(read.count(), 2);  // only the bad source stays
    EXPECT_TRUE(row(0).relid == 3 && row(0).chpFrom == -1 && row(1).relid == 4);
    EXPECT_STREQ(relName(&read, 2), "unknown");
}

TEST_F(RelReadTest, SectionsMakeAttributeAndOperatorRows) {
    const std::string head =
        "SREL 3.49\nENUM_VALUES ENUM mode 0 off 1 on EndOfENUM EndOfENUM_VALUES\n"
        "ELEMENTS_ATTRIBUTES\nELEMENT MODELS\n"
        "ATTRIBUTE 3000 size FLOAT SCAL 5 1 0:10\n"
        "SUBELEMENT mesh ATTRIBUTE 3001 look ENUM RENDER 6 2 mode CONDITION ALWAYS EndOfSUBELEMENT\n"
        "EndOfELEMENT\nEndOfELEMENTS_ATTRIBUTES\n";
    ASSERT_EQ(load(head + "OPERATORS\nOPERATOR bend OPTIONS SINGLE TREE CREATOR INCR_SEND_ALL _END\n"
                          "NEWRES out GEOM 3 ARGUMENTS size look _END EndOfOPERATOR\nEndOfOPERATORS\n"
                          "RELATIONS 5 never * * PARAM PARAM 1 1 0 EndOfRELATIONS\n"),
              1);
    EXPECT_EQ(out + err, "");
    ASSERT_EQ(read.count(), 4);
    EXPECT_TRUE(row(0).relid == 3000 && row(0).chpFrom == CHP_MODELS && row(0).grpFrom == RELGR_TRANSFO &&
                row(0).rk == 5 && row(0).kind == RELKIND_ATTRIBUTE);
    EXPECT_TRUE(row(1).name == "look" && row(1).grpTo == RELGR_RENDER && row(1).fo == 2);
    ASSERT_EQ(relRowFind(&read, REL_CUSTOM), 2);
    EXPECT_TRUE(row(3).name == "bend" && row(3).customSource == "look" && row(3).customDest == "out" &&
                row(3).grpTo == RELGR_GEOM && row(3).opFlag == 1 && row(3).fo == 3);
    const CustomTable &c = g_customTable;
    ASSERT_TRUE(c.enums.size() == 1 && c.attributes.size() == 2 && c.operators.size() == 1);
    EXPECT_EQ(c.enums[0].values[1], (std::pair<int32_t, std::string>{1, "on"}));
    EXPECT_TRUE(c.attributes[0].param == CUSPARAM_SCAL && c.attributes[0].hasRange && c.attributes[0].high == 10);
    EXPECT_TRUE(c.attributes[1].subelement == "mesh" && c.attributes[1].enumName == "mode" &&
                c.attributes[1].condition == "ALWAYS");
    const CustomOperator &op = c.operators[0];
    EXPECT_TRUE(op.flags == CUSOP_CREATOR && op.mode == 1 && op.scope == 2 && op.updateMode == 2);

    int16_t rk = 0, fo = 0;
    EXPECT_EQ(relRowByNames(&read, REL_CUSTOM, "look", "out", 1, &rk, &fo), 1);
    EXPECT_TRUE(rk == REL_CUSTOM_RANK && fo == 3);
    EXPECT_EQ(relRowByNames(&read, REL_CUSTOM, "look", "out", 2, &rk, &fo), 0);
    EXPECT_EQ(relRowByNames(&read, REL_CUSTOM, nullptr, "", 1, &rk, &fo), 1);
    EXPECT_TRUE(rk == 50 && fo == 32767);
    EXPECT_EQ(relRowByNames(&read, 3001, nullptr, nullptr, 1, &rk, &fo), 1);
    EXPECT_TRUE(rk == 6 && fo == 2);
}

TEST_F(RelReadTest, DamagedSectionsGiveTheirMessages) {
    struct Case {
        const char *body, *message;
    };
    const Case attrs[] = {
        {"ATTRIBUTE 1 a FLOAT PARAM 1 1 9..3", "Attribute \"a\" : invalid range specification\n"},
        {"ATTRIBUTE 1 a FLOAT PARAM 1 1 * CONDITION MAYBE", "Invalid Condition Token [MAYBE]\n"},
        {"ATTRIBUTE 1 a FLOAT NOPE 1 1 *", "Unrecognized group id read in .cus file\n"},
        {"ATTRIBUTE x", "Error reading attribute in .cus file\n"},
    };
    for (const Case &c : attrs) {
        ASSERT_EQ(load(std::string("SREL 4.0 ELEMENTS_ATTRIBUTES ELEMENT * ") + c.body +
                       " EndOfELEMENT EndOfELEMENTS_ATTRIBUTES"),
                  1);
        EXPECT_EQ(err, c.message) << c.body;
        EXPECT_EQ(read.count(), 0) << c.body;
    }
    const Case ops[] = {
        {"OPTIONS FAST _END", "Error parsing operator options in .cus file"},
        {"ARGUMENTS a a _END", "Argument name already used in operator definition in .cus file"},
        {"ARGUMENTS a _END NEWRES r GEOM 1", "Result declared after argument in operator definition in .cus file"},
        {"NEWRES EndOfOPERATOR", "Error reading operator result in .cus file"},
        {"NEWRES r GEOM 1 NEWRES r GEOM 1", "Result name already used in operator definition in .cus file"},
        {"NEWRES r GEOM many", "Error reading fanout in OPERATOR section in .cus file"},
        {"NEWRES r NOPE 1", "Unrecognized group id read in .cus file"},
        {"ARGUMENTS a EndOfOPERATOR", "Error reading operator argument in .cus file"},
    };
    // The damaged operator is dropped; the next one still reads.
    for (const Case &c : ops) {
        ASSERT_EQ(load(std::string("SREL 3.49 OPERATORS OPERATOR bad ") + c.body +
                       " EndOfOPERATOR OPERATOR ok NEWRES r GEOM 1 EndOfOPERATOR EndOfOPERATORS"),
                  1);
        EXPECT_EQ(err, std::string(c.message) + "\n") << c.body;
        ASSERT_EQ(read.count(), 1) << c.body;
        EXPECT_EQ(row(0).name, "ok");
    }
}

TEST_F(RelReadTest, DumpOfAReadTableAndSetActive) {
    ASSERT_EQ(load("SREL 3.48\nRELATIONS\n110 parent MODELS MODELS TRANSFO TRANSFO 10 1 2 1 1 0\n"
                   "400 mat MODELS * RENDER RENDER 20 2 0 1 1 0\nEndOfRELATIONS\n"),
              1);
    {
        OutputCapture cap;
        relDump(&read);
        EXPECT_EQ(cap.out.text(),
                  " Dictionary of Relations:\n--------------------------\n"
                  "0) parent(110) chp[8->8] grp[1->1] rk(10) fo(1) dd(2) act(1) actdep(1)\n"
                  "1) mat(400) chp[8->-10] grp[3->3] rk(20) fo(2) dd(0) act(1) actdep(1)\n");
    }
    std::swap(g_relationDict.rows, read.rows);
    int slot = dictAllocSlot();
    ASSERT_GE(slot, 0);
    dictGet(slot)->update.dirty = dictGet(slot)->update2.dirty = 0;
    EXPECT_EQ(relSetActive(400, 0, 0), 1);
    EXPECT_EQ(dictGet(slot)->update.dirty, 0u);
    EXPECT_EQ(relSetActive(-1, 0, 1), 2);
    EXPECT_TRUE(dictGet(slot)->update.dirty == 1 && dictGet(slot)->update2.dirty == 1);
    const std::vector<RelationRow> &rows = g_relationDict.rows;
    EXPECT_TRUE(rows[0].act == 1 && rows[1].act == 0 && rows[0].actdep == 0 && rows[1].actdep == 0);
    EXPECT_EQ(relSetActive(7, 1, 0), 0);
    dictFreeSlot(slot);
    std::swap(g_relationDict.rows, read.rows);
}

TEST_F(RelReadTest, GroupsAndDdSumsOfARelation) {
    // Three rows of one relation: two may run with sources off (dd set), one may not.
    ASSERT_EQ(load("SREL 3.48\nRELATIONS\n"
                   "113 move MODELS ANIMATION TRANSFO PARAM 22 3 1 1 1 0\n"
                   "113 moveMore MODELS ANIMATION GEOM PARAM 22 5 2 1 1 0\n"
                   "113 moveStrict MODELS ANIMATION PARAM PARAM 22 7 0 1 1 0\n"
                   "300 material MODELS MATERIALS RENDER RENDER 20 1 0 1 1 0\n"
                   "EndOfRELATIONS\n"),
              1);
    int16_t group = 99;
    int instances = 99;
    EXPECT_EQ(relGroups(&read, 113, &group, &instances), 1);
    EXPECT_EQ(group, RELGR_TRANSFO);  // the source side of the first row
    EXPECT_EQ(instances, 3);
    EXPECT_EQ(relGroups(&read, 300, &group, nullptr), 1);
    EXPECT_EQ(group, RELGR_RENDER);
    EXPECT_EQ(relGroups(&read, 555, &group, &instances), 0);
    EXPECT_EQ(group, -1);
    EXPECT_EQ(instances, 0);

    EXPECT_EQ(relDdSum(&read, 113), 3 + 5);
    EXPECT_EQ(relDdSum(&read, 300), 0);
    EXPECT_EQ(relDdSum(&read, 555), 0);
    // Switching a row off for the update leaves the sum alone: dd decides.
    read.rows[0].act = 0;
    EXPECT_EQ(relDdSum(&read, 113), 8);

    EXPECT_EQ(relRowFindByName(&read, "moveMore"), 1);
    EXPECT_EQ(relRowFindByName(&read, "nothing"), -1);
    EXPECT_EQ(relRowFindByName(&read, nullptr), -1);
}
