// Relation data read from hand-written blocks: every keyword of every family,
// the short and boolean forms, what the writer prints, the release message
// and the completion of the models' relations after a load.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "capture.h"
#include "dictionary.h"
#include "model.h"
#include "scene_internal.h"
#include "testdata.h"

using bwtest::OutputCapture;

namespace {

// Reads `block` (behind RELDATA) for `relid`; the token the reader stopped at.
RelData *readBlock(const std::string &block, int32_t relid, std::string *stop = nullptr, int *foreign = nullptr) {
    std::string text = block;
    FILE *in = fmemopen(text.data(), text.size(), "rb");
    int f = 0;
    RelData *d = relDataRead(in, relid, &f);
    fclose(in);
    if (stop) *stop = f ? g_token : "EndOfRELDATA";
    if (foreign) *foreign = f;
    return d;
}

std::string written(int32_t relid, const RelData *d) {
    char *buffer = nullptr;
    size_t size = 0;
    FILE *mem = open_memstream(&buffer, &size);
    relDataWrite(mem, relid, d);
    fclose(mem);
    std::string s = buffer ? buffer : "";
    free(buffer);
    return s;
}

struct Family {
    int32_t relid;                      // a relation of the family
    std::vector<const char *> tokens;   // in file order
};

TEST(RelDataRead, EveryKeywordOfEveryFamilyIsTakenInItsOrder) {
    const Family families[] = {
        {102, {"MIN_LIMIT", "MAX_LIMIT", "MIN_ACTIVE", "MAX_ACTIVE", "DAMPING", "IS_AREA_BOX", "IS_REF_WORLD",
               "LIMIT_RADIUS"}},
        {104, {"LIMIT_REACHED"}},
        {252, {"CLOSE", "NB_SPLINE", "SUBDIVISION", "IS_PATCH", "SPL_TYPE", "NRB_UNIFORMITY", "NRB_TYPE", "STEP"}},
        {250, {"CLOSE", "DEGREE", "STEP", "AXIS", "SUBDIVISION", "IS_PATCH", "SPL_TYPE", "REVOL_SUB"}},
        {251, {"SIMPLE", "CLOSE", "DEPTH", "STEP", "SUBDIVISION", "IS_PATCH", "SPL_TYPE", "BEVEL", "NB_BEVEL",
               "RADIUS", "BEVEL_TOP", "BEVEL_SIDE", "BEVEL_BOTTOM", "EXTRU_STEP"}},
        {239, {"MODE", "SENSITIVITY", "OPTION", "CONSTRAINT", "MAXDEFORM", "PARENT_OVER", "AUTO_SWING",
               "WIND_SENSITIVE"}},
        {11, {"FIRST_FRAME"}},
        {120, {"PLANE", "HCLEN", "FSTRT", "FDURN", "INIT_LROT", "INIT_GROT", "INIT_AROT"}},
        {245, {"PROJ_METHOD", "PARA_AXIS", "PERSP_AXIS", "COORDI", "TRIM_REGION", "NB_PROJ_CURVE", "PROJ_CURVE",
               "SURF_OPERATOR"}},
        {253, {"IN_U_DIR", "IS_ISOCURVE", "LOCATION", "HOLE_NO", "TRIM_NO"}},
        {255, {"INDICE_SUP", "INDICE_ZIP", "U_SUP", "U_ZIP", "PT_DW", "PT_UP", "RW_DW", "RW_UP"}},
        {256, {"PARAMETRIZATION"}},
        {117, {"OBST", "ROOTCPOS", "ROOTCORI", "COLL", "WIND", "GRAV"}},
        {231, {"SCLE", "ROLL", "ROTN", "TRNS"}},
    };
    for (const Family &f : families) {
        // Each keyword with one value: a vector field takes it as its first
        // number and the next keyword ends its list early.
        std::string block;
        for (size_t i = 0; i < f.tokens.size(); ++i) block += std::string(f.tokens[i]) + " " + std::to_string(i + 1) + " ";
        std::string stop;
        RelData *d = readBlock(block + "EndOfRELDATA ;", f.relid, &stop);
        ASSERT_TRUE(d) << f.relid;
        EXPECT_EQ(stop, "EndOfRELDATA") << f.relid;
        for (size_t i = 0; i < f.tokens.size(); ++i) {
            float *v = relDataValues(d, f.tokens[i]);
            ASSERT_TRUE(v) << f.tokens[i];
            EXPECT_EQ(v[0], float(i + 1)) << f.tokens[i];
        }
        EXPECT_EQ(d->present, (1u << f.tokens.size()) - 1) << f.relid;
        relDataFree(f.relid, d);
    }
}

TEST(RelDataRead, CustomEffectsAndBooleansTakeWords) {
    RelData *c = readBlock("ENAME 'ripple' MNAME 'cube' AOCC 2 ROCC 3 EndOfRELDATA", REL_CUSTOM);
    ASSERT_TRUE(c);
    EXPECT_STREQ(relDataWord(c, "ENAME"), "ripple");
    EXPECT_STREQ(relDataWord(c, "MNAME"), "cube");
    EXPECT_EQ(relDataValues(c, "ROCC")[0], 3.0f);
    relDataFree(REL_CUSTOM, c);
    RelData *b = readBlock("ACTIVE 0 OPERATION 'difference' MATERIAL 'respective' REMOVE_EDGES 1 "
                           "REMOVE_VERTICES 1 MATERIAL_ANIMATED 1 EndOfRELDATA",
                           260);
    ASSERT_TRUE(b);
    EXPECT_EQ(relDataValues(b, "ACTIVE")[0], 0.0f);
    EXPECT_STREQ(relDataWord(b, "OPERATION"), "difference");
    EXPECT_STREQ(relDataWord(b, "MATERIAL"), "respective");
    EXPECT_EQ(relDataValues(b, "MATERIAL_ANIMATED")[0], 1.0f);
    EXPECT_EQ(written(260, b), "RELDATA ACTIVE 0 OPERATION 'difference' MATERIAL 'respective' REMOVE_EDGES 1 "
                               "REMOVE_VERTICES 1 MATERIAL_ANIMATED 1 EndOfRELDATA ");
    relDataFree(260, b);
}

TEST(RelDataRead, AForeignKeywordStopsTheBlockAndTheRestKeepsItsDefaults) {
    std::string stop;
    int foreign = 0;
    RelData *d = readBlock("MIN_LIMIT -1 -2 -3 BEVEL 4 DAMPING 0.5 EndOfRELDATA", 111, &stop, &foreign);
    ASSERT_TRUE(d);
    EXPECT_EQ(foreign, 1);
    EXPECT_EQ(stop, "BEVEL");
    EXPECT_EQ(relDataValues(d, "MIN_LIMIT")[1], -2.0f);
    EXPECT_EQ(relDataValues(d, "DAMPING")[0], 0.0f);
    EXPECT_EQ(relDataValues(d, "MAX_LIMIT")[0], 1.0e6f);
    relDataFree(111, d);
}

TEST(RelDataWrite, LimitsUseTheShortFormWhileTheTailHoldsItsDefaults) {
    RelData *d = readBlock("MIN_LIMIT 1 2 3 MAX_LIMIT 4 5 6 MIN_ACTIVE 1 0 1 MAX_ACTIVE 0 1 0 DAMPING 0.1234567 "
                           "EndOfRELDATA",
                           102);
    ASSERT_TRUE(d);
    const std::string shortForm = "RELDATA MIN_LIMIT 1 2 3 MAX_LIMIT 4 5 6 MIN_ACTIVE 1 0 1 MAX_ACTIVE 0 1 0 "
                                  "DAMPING 0.1234567 EndOfRELDATA ";
    EXPECT_EQ(written(102, d), shortForm);
    relDataValues(d, "LIMIT_RADIUS")[0] = 12345.67f;
    EXPECT_EQ(written(102, d), shortForm.substr(0, shortForm.size() - strlen("EndOfRELDATA ")) +
                                   "IS_AREA_BOX 1 IS_REF_WORLD 0 LIMIT_RADIUS 12345.67 EndOfRELDATA ");
    // What was written reads back to the same numbers.
    std::string text = written(102, d).substr(strlen("RELDATA "));
    RelData *back = readBlock(text, 102);
    ASSERT_TRUE(back);
    EXPECT_EQ(relDataValues(back, "LIMIT_RADIUS")[0], 12345.67f);
    EXPECT_EQ(relDataValues(back, "DAMPING")[0], 0.1234567f);
    relDataFree(102, back);
    relDataFree(102, d);
}

TEST(RelDataFree, AnIdWithoutAKindIsReported) {
    OutputCapture cap;
    relDataFree(300, relDataNew(111));
    EXPECT_EQ(cap.err.text(), "Data of Relid 300 needs to be freed\n");
}

TEST(RelDataFixup, EveryRelationOfTheModelsGetsItsRecordButExpressionsAndTheGeometryMark) {
    ASSERT_EQ(tdLoadRelations(), 1);
    Dictionary dict;
    dictInit(&dict);
    dictCreateChapters(&dict, nullptr, 0);
    RelDataFreeFn saved = g_relDataFree;
    g_relDataFree = relDataFree;
    int a = elemAdd(&dict, CHP_MODELS, elemNameParse("a", nullptr, 0), nullptr, nullptr, 0, 0);
    int b = elemAdd(&dict, CHP_MODELS, elemNameParse("b", nullptr, 0), nullptr, nullptr, 0, 0);
    ASSERT_EQ(relAdd(&dict, nullptr, a, b, 111, 0, 0, nullptr, 1), 1);
    ASSERT_EQ(relAdd(&dict, nullptr, a, b, 116, 0, 0, nullptr, 1), 1);
    RelData *mine = relDataNew(114);
    relDataValues(mine, "DAMPING")[0] = 0.75f;
    ASSERT_EQ(relAdd(&dict, nullptr, a, b, 114, 0, 0, mine, 1), 1);
    ASSERT_EQ(relAdd(&dict, nullptr, b, a, REL_PARENT, 0, 0, nullptr, 1), 1);
    relDataFixupModels(&dict);
    Element *e = elemGet(&dict, CHP_MODELS, a);
    RelData *made = static_cast<RelData *>(relFind(e, 111, CHP_MODELS, b)->data);
    ASSERT_TRUE(made);
    EXPECT_EQ(made->relid, 111);
    EXPECT_EQ(relDataValues(made, "MAX_LIMIT")[2], 1.0e6f);
    EXPECT_TRUE(relFind(e, 116, CHP_MODELS, b)->data);
    EXPECT_EQ(relFind(e, 114, CHP_MODELS, b)->data, mine);  // the file's data stands
    EXPECT_EQ(relFind(elemGet(&dict, CHP_MODELS, b), REL_PARENT, CHP_MODELS, a)->data, nullptr);
    dictFree(&dict, 0);
    g_relDataFree = saved;
}

}  // namespace
