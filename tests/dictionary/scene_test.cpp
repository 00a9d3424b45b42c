// Scene files: the grammar's corners, relation statements and their special
// ids, relation data, the environment, and whole loads from a database on
// disk (substitution, sub-scenes, merges, writing back).
#include <gtest/gtest.h>

#include <cmath>
#include <vector>
#include <string>
#include <tuple>

#include "capture.h"
#include "dictionary.h"
#include "fileio/bytes.h"
#include "scene_internal.h"
#include "testdata.h"

using bwtest::OutputCapture;
using bwtest::TempDir;
using bwtest::operator+;

namespace {

// Reads scene text straight through the grammar readers, without files.
class SceneGrammar : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(tdLoadRelations(), 1); }
    void SetUp() override {
        dictInit(&dict);
        dictCreateChapters(&dict, nullptr, 0);
        sceneRefReset();
        loadIsPrimary = 1;
    }
    void TearDown() override {
        dictFree(&dict, 0);
        sceneRefReset();
        loadIsPrimary = 0;
    }
    // Header, relations and environment of `text`; the error stream in err.
    void read(const std::string &text, float *version = nullptr) {
        FILE *f = fmemopen(const_cast<char *>(text.data()), text.size(), "rb");
        ASSERT_TRUE(f);
        OutputCapture cap;
        float v = 0;
        ASSERT_EQ(sceneReadHeader(f, &dict, 0, "", &v, 0), 1);
        sceneReadRelations(f, &dict, &g_relationDict, 0, v);
        sceneReadEnvironment(f, &dict, 0);
        fclose(f);
        if (version) *version = v;
        err = cap.err.text();
    }
    Element *at(int chapter, int index) { return elemGet(&dict, chapter, index); }
    int relations(int chapter, int index, int32_t relid) {
        int n = 0;
        for (int g = 0; g < REL_GROUP_COUNT; ++g) n += relCount(at(chapter, index), 1, g, relid, -1);
        return n;
    }
    Dictionary dict;
    std::string err;
};

const char kElements[] =
    "SDSC 4.0\n"
    "ELEMENTS\n"
    "CHAPTER MODELS NBELEM 3\n"
    "  a.1-0 ROOT;\n"
    "  b.1-2 ALIAS bee ;\n"
    "  c.1-0 ;\n"
    "EndOfCHAPTER\n"
    "CHAPTER LIGHTS NBELEM 0 stray tokens ; EndOfCHAPTER\n"
    "CHAPTER MATERIALS NBELEM 2 m.1-0 ; n.1-0 ; EndOfCHAPTER\n"
    "EndOfELEMENTS\n";

}  // namespace

TEST_F(SceneGrammar, ElementStatementsAndTheirCorners) {
    read(kElements);
    Chapter *models = dictChapter(&dict, CHP_MODELS);
    ASSERT_EQ(models->elementCount, 3);
    // ';' glued to the last word ends the statement and leaves the word whole.
    EXPECT_EQ(at(CHP_MODELS, 0)->name->fullName, "a.1-0");
    EXPECT_EQ(at(CHP_MODELS, 0)->lev, 0);
    EXPECT_EQ(at(CHP_MODELS, 1)->lev, 1);  // members unless ROOT
    EXPECT_EQ(at(CHP_MODELS, 1)->name->alias, "bee");
    EXPECT_EQ(at(CHP_MODELS, 1)->level, 2);  // the revision
    EXPECT_EQ(at(CHP_MODELS, 2)->wrkid, 2);
    EXPECT_EQ(at(CHP_MODELS, 2)->isNew, 1);
    // NBELEM 0 passes over everything to EndOfCHAPTER.
    EXPECT_EQ(elemCountLive(dictChapter(&dict, CHP_LIGHTS)), 0);
    EXPECT_EQ(at(CHP_MATERIALS, 1)->name->fullName, "n.1-0");
    EXPECT_EQ(at(CHP_MATERIALS, 1)->lev, 0);
    int32_t index = -1;
    EXPECT_TRUE(sceneElemRef(&dict, CHP_MODELS, 0, "2@c.1-0", &index));
    EXPECT_EQ(index, 2);
    EXPECT_FALSE(sceneElemRef(&dict, CHP_MODELS, 0, "3", &index));
    EXPECT_FALSE(sceneElemRef(&dict, CHP_MODELS, 1, "0", &index));  // another scene's
}

TEST_F(SceneGrammar, RelationStatementsResolveOrReport) {
    read(std::string(kElements) +
         "RELATIONS\n"
         "CHAPTER MODELS CHAPTER MODELS\n"
         "  1 0 110 ;\n"
         "  7@gone 0 110 ;\n"
         "  2 9 110 ;\n"
         "  2 0 120 ;\n"
         "EndOfCHAPTER\n"
         "CHAPTER NOSUCH CHAPTER MODELS 0 0 110 ; EndOfCHAPTER\n"
         "CHAPTER MODELS CHAPTER MATERIALS\n"
         "  0 0 300 NOTACT ;\n"
         "  0 1 300 extra words ;\n"
         "EndOfCHAPTER\n"
         "EndOfRELATIONS\n");
    EXPECT_EQ(err, "Element 1 not found ******\nElement 2 not found ******\n"
                   "Element 1 not found ******\n");
    RelationInst *parent = relFind(at(CHP_MODELS, 1), 110, CHP_MODELS, 0);
    ASSERT_TRUE(parent);
    EXPECT_EQ(relations(CHP_MODELS, 2, 120), 0);  // chains are made by the system, not read
    RelationInst *off = relFind(at(CHP_MODELS, 0), 300, CHP_MATERIALS, 0);
    RelationInst *on = relFind(at(CHP_MODELS, 0), 300, CHP_MATERIALS, 1);
    ASSERT_TRUE(off && on);
    EXPECT_EQ(off->activ, 0);
    EXPECT_EQ(on->activ, 1);
}

TEST_F(SceneGrammar, SpecialIdsAndSubRelations) {
    const std::string statements =
        "RELATIONS\n"
        "CHAPTER MODELS CHAPTER MODELS\n"
        "  1 0 551 77 ;\n"
        "  2 0 246 ;\n"
        "  0 1 111 SUBREL 1 ELEM 2 ; CHAP MODELS ELEM 9 ; EndOfSUBREL ;\n"
        "EndOfCHAPTER\nEndOfRELATIONS\n";
    std::string text = kElements;
    read(text + statements);
    RelationInst *serial = relFind(at(CHP_MODELS, 1), 551, CHP_MODELS, 0);
    ASSERT_TRUE(serial);
    EXPECT_EQ(serial->serialid, 77);
    // From 2.99913 on, 246 is keyed by a serial in the geometry group at rank 1.
    RelationInst *deform = relFind(at(CHP_MODELS, 2), 246, CHP_MODELS, 0);
    ASSERT_TRUE(deform);
    EXPECT_GT(deform->serialid, 0);
    EXPECT_EQ(deform->rank, 1);
    // The SUBREL entries are further sources of the same relation; 9 is unknown.
    EXPECT_EQ(relations(CHP_MODELS, 0, 111), 2);
    EXPECT_TRUE(relFind(at(CHP_MODELS, 0), 111, CHP_MODELS, 2));
    EXPECT_EQ(err, "Element 2 not found ******\n");

    // An older file adds 246 as any other relation: no serial.
    TearDown();
    SetUp();
    text.replace(text.find("4.0"), 3, "2.5");
    float version = 0;
    read(text + statements, &version);
    EXPECT_FLOAT_EQ(version, 2.5f);
    deform = relFind(at(CHP_MODELS, 2), 246, CHP_MODELS, 0);
    ASSERT_TRUE(deform);
    EXPECT_EQ(deform->serialid, -1);
}

TEST_F(SceneGrammar, RelationDataBlocks) {
    read(std::string(kElements) +
         "RELATIONS\nCHAPTER MODELS CHAPTER MODELS\n"
         "  1 0 111 RELDATA MIN_LIMIT 1 2 3 DAMPING 0.25 EndOfRELDATA ;\n"
         "  2 0 111 RELDATA EndOfRELDATA ;\n"
         "  0 1 102 RELDATA DAMPING 0.5 CLOSE 1 EndOfRELDATA ;\n"
         "EndOfCHAPTER\nEndOfRELATIONS\n");
    auto dataOf = [&](int src, int dst, int32_t relid) {
        RelationInst *inst = relFind(at(CHP_MODELS, src), relid, CHP_MODELS, dst);
        return inst ? static_cast<RelData *>(inst->data) : nullptr;
    };
    RelData *limits = dataOf(1, 0, 111);
    ASSERT_TRUE(limits);
    EXPECT_EQ(relDataValues(limits, "MIN_LIMIT")[2], 3.0f);
    EXPECT_EQ(relDataValues(limits, "DAMPING")[0], 0.25f);
    // A block with only its end keeps the defaults of a new record.
    RelData *empty = dataOf(2, 0, 111);
    RelData *fresh = relDataNew(111);
    ASSERT_TRUE(empty && fresh);
    EXPECT_EQ(relDataValues(empty, "MAX_LIMIT")[0], relDataValues(fresh, "MAX_LIMIT")[0]);
    EXPECT_EQ(empty->present, 0u);
    relDataFree(111, fresh);
    // A keyword of another family ends the block; the statement still ends at ';'.
    RelData *cut = dataOf(0, 1, 102);
    ASSERT_TRUE(cut);
    EXPECT_EQ(relDataValues(cut, "DAMPING")[0], 0.5f);
    EXPECT_EQ(err, "");
}

TEST(RelData, ReadWriteAndUnknownKinds) {
    // Numbers are written with seven significant digits and read back unchanged.
    RelData *d = relDataNew(REL_CUSTOM);
    ASSERT_TRUE(d);
    relDataValues(d, "AOCC")[0] = 0.1234567f;
    char *buffer = nullptr;
    size_t size = 0;
    FILE *mem = open_memstream(&buffer, &size);
    relDataWrite(mem, REL_CUSTOM, d);
    fclose(mem);
    EXPECT_STREQ(buffer, "RELDATA ENAME '_UNKNOWN_' MNAME '_UNKNOWN_' AOCC 0.1234567 ROCC 0 EndOfRELDATA ");
    std::string text = std::string(buffer + strlen("RELDATA ")) + " ;";
    free(buffer);
    FILE *in = fmemopen(text.data(), text.size(), "rb");
    int foreign = -1;
    RelData *back = relDataRead(in, REL_CUSTOM, &foreign);
    fclose(in);
    ASSERT_TRUE(back);
    EXPECT_EQ(foreign, 0);
    EXPECT_EQ(relDataValues(back, "AOCC")[0], 0.1234567f);
    EXPECT_EQ(relDataWord(back, "ENAME"), nullptr);
    relDataFree(REL_CUSTOM, back);
    relDataFree(REL_CUSTOM, d);

    // A relation without a data kind reports and leaves the token to the statement.
    std::string block = "MIN_LIMIT 1 2 3 EndOfRELDATA";
    in = fmemopen(block.data(), block.size(), "rb");
    OutputCapture cap;
    EXPECT_EQ(relDataRead(in, 300, &foreign), nullptr);
    fclose(in);
    EXPECT_EQ(foreign, 1);
    EXPECT_STREQ(g_token, "MIN_LIMIT");
    EXPECT_EQ(cap.err.text(), "ERROR: Invalid Relation Data encountered while reading scene\n");
}

TEST_F(SceneGrammar, EnvironmentAndPlayControl) {
    const std::string env =
        "ENVIRONMENT\n"
        "CHAPTER MODELS\n"
        "  0 SCHEM 1.5 -2 7 USR WIRECOL 3 ;\n"
        "  1 SRT 1 1 1 0 90 0 4 5 6 DISPLAY 2 MPRFLG 17 ;\n"
        "  8 SCHEM 1 1 1 ;\n"
        "EndOfCHAPTER\n"
        "PLAYCTRL FRAME 10 50 12 2 PAUSE 3 RATE 25 EndOfPLAYCTRL\n"
        "EndOfENVIRONMENT\n";
    TOL_PlayCtrl saved = sceneStateCurrent().playCtrl;
    read(std::string(kElements) + env);
    const Element *e0 = at(CHP_MODELS, 0), *e1 = at(CHP_MODELS, 1);
    EXPECT_EQ(std::tuple(e0->schemX, e0->schemY, e0->schemMark, e0->browserBits & 1, e0->envValues[0]),
              std::tuple(1.5f, -2.0f, 7, 1, 3));
    ASSERT_TRUE(e1->srt);
    EXPECT_EQ(std::tuple(e1->srt[4], e1->envSet, e1->envValues[2]), std::tuple(90.0f, 6, 17));
    const TOL_PlayCtrl &play = sceneStateCurrent().playCtrl;
    auto range = [&] { return std::tie(play.startFrame, play.endFrame, play.currentFrame, play.frameStep, play.framesPerSecond); };
    EXPECT_EQ(range(), std::tuple(10, 50, 12, 2, 25.0f));

    // A merge reads the values and may only widen the range.
    TearDown();
    SetUp();
    loadIsPrimary = 0;
    std::string merged = env;
    merged.replace(merged.find("10 50 12 2"), 10, "20 80 30 1");
    merged.replace(merged.find("RATE 25"), 7, "RATE 60");
    read(std::string(kElements) + merged);
    EXPECT_EQ(range(), std::tuple(10, 80, 12, 2, 25.0f));

    // Numbers past an int are held at its ends.
    TearDown();
    SetUp();
    read(std::string(kElements) + "ENVIRONMENT PLAYCTRL FRAME 1e40 -1e40 nan 2 EndOfPLAYCTRL EndOfENVIRONMENT\n");
    EXPECT_TRUE(play.startFrame == INT32_MAX && play.endFrame == INT32_MIN && play.currentFrame == 0);
    sceneStateCurrent().playCtrl = saved;
}

TEST_F(SceneGrammar, FilesThatEndInsideAStatement) {
    // Every prefix of a scene ends as if its section ended there: no crash, no leak.
    std::string full = std::string(kElements) +
                       "RELATIONS\nCHAPTER MODELS CHAPTER MODELS\n  1 0 111 RELDATA MIN_LIMIT 1 2 3 "
                       "EndOfRELDATA SUBREL 1 ELEM 2 RELDATA DAMPING 1 EndOfRELDATA ; EndOfSUBREL ;\n"
                       "EndOfCHAPTER\nEndOfRELATIONS\nENVIRONMENT\nCHAPTER MODELS 0 SRT 1 2 3 ;\n"
                       "EndOfCHAPTER PLAYCTRL FRAME 1 2 3 4 EndOfPLAYCTRL\nEndOfENVIRONMENT\n";
    TOL_PlayCtrl saved = sceneStateCurrent().playCtrl;
    for (size_t cut = 8; cut <= full.size(); cut += 3) {
        TearDown();
        SetUp();
        read(full.substr(0, cut));
    }
    sceneStateCurrent().playCtrl = saved;
}

namespace {

// Three models and one expression, written as the grammar's tables give them.
const char kExpressionScene[] =
    "SDSC 4.0\n"
    "ELEMENTS\n"
    "CHAPTER MODELS NBELEM 3 a.1-0 ROOT ; b.1-0 ROOT ; c.1-0 ROOT ; EndOfCHAPTER\n"
    "CHAPTER EXPRESSIONS NBELEM 1 e.1-0 ROOT ; EndOfCHAPTER\n"
    "EndOfELEMENTS\n";

}  // namespace

TEST_F(SceneGrammar, SubrelCountAndExpressionDataPickTheInstance) {
    read(std::string(kExpressionScene) +
         "RELATIONS\n"
         "CHAPTER MODELS CHAPTER EXPRESSIONS\n"
         "  0 0 20010 ;\n"
         "  1 0 20010 SUBREL 2 EndOfSUBREL ;\n"
         "  2 0 20010 SUBREL 3 ELEM 0 ; EndOfSUBREL ;\n"
         "EndOfCHAPTER\n"
         "CHAPTER MODELS CHAPTER MODELS\n"
         "  1 0 111 SUBREL 3 EndOfSUBREL ;\n"
         "EndOfCHAPTER\n"
         "EndOfRELATIONS\n");
    // Rows of 20010: PARAM (rank 60), TRANSFO (rank 23), GEOM (rank 15), each
    // towards the expression's OTHER group.
    // (Asked for 20010, the iterators look in every group: the items tell.)
    auto groupOf = [&](int model) {
        const Element *e = at(CHP_MODELS, model);
        for (int g = 0; g < REL_GROUP_COUNT; ++g)
            for (int k = 0; k < e->childGroups[g].count; ++k)
                if (e->childGroups[g].items[k].relid == REL_EXPRESSION &&
                    e->childGroups[g].items[k].chp == CHP_EXPRESSIONS)
                    return g;
        return -1;
    };
    EXPECT_EQ(groupOf(0), RELGR_PARAM);  // no count: the first row that fits
    EXPECT_EQ(groupOf(1), RELGR_TRANSFO);
    EXPECT_EQ(relFind(at(CHP_MODELS, 1), REL_EXPRESSION, CHP_EXPRESSIONS, 0)->rank, 23);
    EXPECT_EQ(groupOf(2), RELGR_GEOM);
    EXPECT_EQ(relCount(at(CHP_EXPRESSIONS, 0), 0, RELGR_OTHER, REL_EXPRESSION, CHP_MODELS), 3);
    // The entry of a SUBREL block stands in the same instance as its statement.
    RelationInst *entry = nullptr;
    RelationGroup &geom = at(CHP_MODELS, 2)->childGroups[RELGR_GEOM];
    for (int k = 0; k < geom.count; ++k)
        if (geom.items[k].chp == CHP_MODELS) entry = &geom.items[k];
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->relid, REL_EXPRESSION);
    // A count beyond the relation's rows is told, and its one row taken.
    EXPECT_EQ(err, "Relation 111 has no instance 3 (SUBREL): instance 1 taken\n");
    EXPECT_TRUE(relFind(at(CHP_MODELS, 1), 111, CHP_MODELS, 0));

    // Without a count, the first word of the data names the parameter set:
    // its row gives the group, or a row of the expression itself is taken.
    TearDown();
    SetUp();
    read(std::string(kExpressionScene) +
         "RELATIONS\n"
         "CHAPTER MODELS CHAPTER EXPRESSIONS\n"
         "  0 0 20010 RELDATA FCURVE 'translation' EndOfRELDATA ;\n"
         "  1 0 20010 RELDATA FCURVE 'visibility' EndOfRELDATA ;\n"
         "  2 0 20010 RELDATA FCURVE 'nothing_of_that_name' EndOfRELDATA ;\n"
         "EndOfCHAPTER\n"
         "EndOfRELATIONS\n");
    EXPECT_EQ(groupOf(0), RELGR_TRANSFO);
    EXPECT_EQ(groupOf(1), RELGR_PARAM);
    EXPECT_EQ(groupOf(2), RELGR_PARAM);
    RelationInst *moved = relFind(at(CHP_MODELS, 0), REL_EXPRESSION, CHP_EXPRESSIONS, 0);
    ASSERT_TRUE(moved && moved->data);
    EXPECT_STREQ(relDataWord(static_cast<RelData *>(moved->data), "FCURVE"), "translation");
    EXPECT_GT(moved->serialid, 0);
    EXPECT_EQ(err, "");
}

TEST_F(SceneGrammar, SetupOnlyInItsChapter) {
    read(std::string(kElements) +
         "ENVIRONMENT\n"
         "SETUP loose.1-0\n"
         "CHAPTER MODELS SETUP wrong.1-0 0 SCHEM 1 2 3 ; EndOfCHAPTER\n"
         "CHAPTER SETUP_BRAK SETUP right.1-0 EndOfCHAPTER\n"
         "CHAPTER SETUP_BRAK SETUP second.1-0 EndOfCHAPTER\n"
         "EndOfENVIRONMENT\n");
    Chapter *setup = dictChapter(&dict, CHP_SETUP_BRAK);
    ASSERT_EQ(elemCountLive(setup), 1);
    EXPECT_EQ(at(CHP_SETUP_BRAK, 0)->name->name, "right");
    EXPECT_EQ(at(CHP_SETUP_BRAK, 0)->isNew, 1);
    EXPECT_EQ(err, "SETUP loose.1-0 outside chapter SETUP_BRAK: not taken\n"
                   "SETUP wrong.1-0 outside chapter SETUP_BRAK: not taken\n");
    // The statement after the refused one is still read.
    EXPECT_EQ(at(CHP_MODELS, 0)->schemX, 1.0f);
}

// ---------------------------------------------------------------------------
// Whole loads from a database on disk.

namespace {

class SceneLoad : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(tdLoadRelations(), 1); }
    void SetUp() override {
        OutputCapture quiet;
        db = tdDatabaseCreate(dir / "db", "db", dir / "DatabaseDir.rsrc");
        ASSERT_TRUE(db);
        Model *root = modelNew("cube", MODEL_MESH, meshMakeCube(2.0f));
        modelAddChild(root, modelNew("arm", MODEL_MESH, meshMakeCube(1.0f)));
        cubeFile = tdFullName(tdWriteModel(db, "s-cube", root));
        modelFree(root);
        Material red;
        red.name = "red";
        red.diffuse[0] = 1;
        redFile = tdFullName(tdWriteMaterial(db, "s-red", red));
        dictInit(&dict);
        dictCreateChapters(&dict, nullptr, 1);
    }
    void TearDown() override { dictFree(&dict, 0); }

    // Loads a scene into `d`; output in out and err.
    int load(const char *name, Dictionary *d = nullptr) {
        OutputCapture cap;
        int ok = sceneRead(d ? d : &dict, db, name);
        out = cap.out.text();
        err = cap.err.text();
        return ok;
    }
    // Loads a scene into a dictionary of its own, freed after.
    int loadElsewhere(const char *name) {
        Dictionary other;
        dictInit(&other);
        dictCreateChapters(&other, nullptr, 1);
        int ok = load(name, &other);
        dictFree(&other, 0);
        return ok;
    }
    Element *at(int chapter, int index) { return elemGet(&dict, chapter, index); }
    TempDir dir;
    Database *db = nullptr;
    std::string cubeFile, redFile;
    Dictionary dict;
    std::string out, err;
};

}  // namespace

TEST_F(SceneLoad, ElementsLinkAndMissingOnesAreSubstituted) {
    TdScene s;
    int cube = s.add(CHP_MODELS, cubeFile);
    int arm = s.add(CHP_MODELS, "s-arm.1-0", false);
    int gone = s.add(CHP_MODELS, "s-gone.1-0");
    int red = s.add(CHP_MATERIALS, redFile);
    int lost = s.add(CHP_MATERIALS, "s-lost.1-0");
    int cam = s.add(CHP_CAMERAS, "s-eye.1-0");
    ASSERT_TRUE(s.relate(CHP_MODELS, arm, CHP_MODELS, cube, 110));
    ASSERT_TRUE(s.relate(CHP_MODELS, arm, CHP_MATERIALS, red, 300));
    ASSERT_TRUE(s.relate(CHP_MODELS, gone, CHP_MATERIALS, lost, 300));
    s.element(CHP_MODELS, gone)->schemX = 4;
    (void)cam;
    ASSERT_FALSE(tdWriteScene(db, "s", s, time(nullptr)).empty());

    ASSERT_EQ(load("s.1-0"), 1);
    EXPECT_TRUE(bwtest::contains(err, "Couldn't read file")) << err;
    EXPECT_TRUE(bwtest::contains(err, "Missing MODELS [s-gone.1-0] has been replaced by a default element\n")) << err;
    EXPECT_TRUE(bwtest::contains(err, "Missing MATERIALS [s-lost.1-0] has been replaced by a default element\n"));
    EXPECT_TRUE(bwtest::contains(err, "Missing CAMERAS [s-eye.1-0] could not be replaced: removed from scene\n"));
    EXPECT_EQ(out, "");

    // The tree of the root's file: the member took its node.
    Model *root = static_cast<Model *>(at(CHP_MODELS, 0)->data);
    Model *armNode = static_cast<Model *>(at(CHP_MODELS, 1)->data);
    ASSERT_TRUE(root && armNode);
    EXPECT_STREQ(armNode->name, "arm");
    EXPECT_EQ(armNode->parent, root);
    EXPECT_EQ(at(CHP_MODELS, 1)->lev, 1);
    EXPECT_EQ(at(CHP_MODELS, 1)->root, 0);
    ASSERT_EQ(armNode->materialCount, 1);
    EXPECT_EQ(armNode->materials[0]->diffuse[0], 1.0f);

    // The stand-in is a unit cube at the schematic place, with the default material.
    Model *cubeIn = static_cast<Model *>(at(CHP_MODELS, 2)->data);
    ASSERT_TRUE(cubeIn);
    ASSERT_EQ(cubeIn->type, MODEL_MESH);
    EXPECT_EQ(cubeIn->geometry.mesh->vertexCount, 8);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(std::fabs(cubeIn->geometry.mesh->vertices[6].pos[k]), 0.5f);
    EXPECT_EQ(cubeIn->translation[0], 4.0f);
    EXPECT_EQ(static_cast<Material *>(at(CHP_MATERIALS, 1)->data)->name, "lost");
    EXPECT_EQ(elemCountLive(dictChapter(&dict, CHP_CAMERAS)), 0);
    EXPECT_EQ(at(CHP_MODELS, 0)->isNew, 0);
    EXPECT_EQ(dict.database, db);
}

TEST_F(SceneLoad, WritingBackReadsTheSame) {
    TdScene s;
    int cube = s.add(CHP_MODELS, cubeFile);
    int arm = s.add(CHP_MODELS, "s-arm.1-0", false);
    int red = s.add(CHP_MATERIALS, redFile);
    ASSERT_TRUE(s.relate(CHP_MODELS, arm, CHP_MODELS, cube, 110));
    ASSERT_TRUE(s.relate(CHP_MODELS, cube, CHP_MATERIALS, red, 300));
    s.element(CHP_MODELS, arm)->schemY = 2.5f;
    ASSERT_FALSE(tdWriteScene(db, "s", s, time(nullptr)).empty());
    ASSERT_EQ(load("s.1-0"), 1);
    std::string first = dir / "first.dsc", second = dir / "second.dsc";
    ASSERT_EQ(sceneWrite(&dict, first.c_str(), 4.0f), 1);
    // Loaded again and written: the same text.
    Dictionary again;
    dictInit(&again);
    dictCreateChapters(&again, nullptr, 1);
    ASSERT_EQ(load("s.1-0", &again), 1);
    ASSERT_EQ(sceneWrite(&again, second.c_str(), 4.0f), 1);
    dictFree(&again, 0);
    std::string a = bwtest::fileText(first);
    EXPECT_EQ(a, bwtest::fileText(second));
    EXPECT_NE(a.find("1 0 110 ;"), std::string::npos) << a;
    EXPECT_NE(a.find("1 SCHEM 0 2.5 0 ;"), std::string::npos) << a;
}

TEST_F(SceneLoad, SubScenesOneLevelDeepAndMerges) {
    {
        TdScene inner;
        inner.add(CHP_MODELS, cubeFile);
        ASSERT_FALSE(tdWriteScene(db, "inner", inner, time(nullptr)).empty());
    }
    // A scene naming "inner" as its sub-scene reads the sub-scene's elements too.
    dir.write("db/SCENES/outer.1-0.dsc",
              "SDSC 4.0\nELEMENTS\nCHAPTER SCENES NBELEM 1 inner.1-0 ALIAS in_ ; EndOfCHAPTER\n"
              "CHAPTER MATERIALS NBELEM 1 " + redFile + " ; EndOfCHAPTER\nEndOfELEMENTS\n"
              "RELATIONS\nEndOfRELATIONS\nENVIRONMENT\nEndOfENVIRONMENT\n");
    ASSERT_EQ(load("outer.1-0"), 1) << err;
    EXPECT_EQ(elemCountLive(dictChapter(&dict, CHP_MODELS)), 1);
    EXPECT_EQ(elemCountLive(dictChapter(&dict, CHP_MATERIALS)), 1);
    EXPECT_EQ(elemCountLive(dictChapter(&dict, CHP_SCENES)), 1);  // the sub-scene's element goes

    // A sub-scene of a sub-scene is refused.
    dir.write("db/SCENES/top.1-0.dsc",
              "SDSC 4.0\nELEMENTS\nCHAPTER SCENES NBELEM 1 outer.1-0 ; EndOfCHAPTER\nEndOfELEMENTS\n");
    EXPECT_EQ(loadElsewhere("top.1-0"), 0);
    EXPECT_TRUE(bwtest::contains(err, "ERROR - ExpandDscFile: One sub-level of scene for now!!!\n")) << err;

    // A second scene merges into the same dictionary, its elements by its name.
    {
        TdScene second;
        second.add(CHP_MATERIALS, redFile);
        Material blue;
        blue.name = "blue";
        second.add(CHP_MATERIALS, tdFullName(tdWriteMaterial(db, "blue", blue)));
        ASSERT_FALSE(tdWriteScene(db, "second", second, time(nullptr)).empty());
    }
    ASSERT_EQ(load("second.1-0"), 1) << err;
    EXPECT_EQ(elemCountLive(dictChapter(&dict, CHP_MATERIALS)), 3);
    EXPECT_EQ(at(CHP_MATERIALS, 1)->name->prefix, "s");  // already apart by its prefix
    EXPECT_EQ(at(CHP_MATERIALS, 2)->name->prefix, "second");
    EXPECT_EQ(elemCountLive(dictChapter(&dict, CHP_SCENES)), 1);
}

TEST_F(SceneLoad, UnreadableFilesAreReportedAndReplaced) {
    std::string path = dir.write("db/MODELS/s-bad.1-0.hrc", "not a model");
    TdScene s;
    s.add(CHP_MODELS, "s-bad.1-0");
    ASSERT_FALSE(tdWriteScene(db, "s", s, time(nullptr)).empty());
    ASSERT_EQ(load("s.1-0"), 1);
    EXPECT_TRUE(bwtest::contains(err, "Invalid file header or content: " + path + "\n")) << err;
    EXPECT_TRUE(bwtest::contains(err, "Missing MODELS [s-bad.1-0] has been replaced by a default element\n"));
    // A scene file that is not one fails the load.
    dir.write("db/SCENES/junk.1-0.dsc", "SMAT 1.0\n");
    EXPECT_EQ(loadElsewhere("junk.1-0"), 0);
}

namespace {

// Three linear curves of one relation, x y z of its parameter types.
AnimItem *curves(int32_t relid, int32_t firstType, int chapter) {
    AnimItem *head = nullptr, **tail = &head;
    for (int k = 0; k < 3; ++k) {
        Fcurve *c = fcurveCreate(firstType + k, 0);
        for (int key = 0; key < 2; ++key) {
            FcurveKey *fk = fcurveKeyNew();
            fk->time = static_cast<float>(key);
            fk->value = static_cast<float>(key * (k + 1));
            fcurveAddKey(c, fk, 0, 0, 0);
        }
        *tail = static_cast<AnimItem *>(calloc(1, sizeof(AnimItem)));
        **tail = AnimItem{c, relid, chapter, 0, 1, nullptr};
        tail = &(*tail)->next;
    }
    return head;
}

}  // namespace

TEST_F(SceneLoad, CurvesBecomeElementsOfWhatTheyAnimate) {
    AnimItem *moves = curves(113, 139, CHP_MODELS);
    std::string movesFile = tdFullName(tdWriteAnimation(db, "s-cube", moves));
    animItemsFree(moves);
    AnimItem *lost = curves(113, 139, CHP_MODELS);
    std::string lostFile = tdFullName(tdWriteAnimation(db, "s-ghost", lost));
    animItemsFree(lost);
    TdScene s;
    s.add(CHP_MODELS, cubeFile);
    s.add(CHP_ANIMATION, movesFile);
    s.add(CHP_ANIMATION, lostFile);
    ASSERT_FALSE(tdWriteScene(db, "s", s, time(nullptr)).empty());
    ASSERT_EQ(load("s.1-0"), 1);
    EXPECT_TRUE(bwtest::contains(err, "No element [s-ghost] found to connect fcurve\n")) << err;

    // The file's element and, under it, one element per curve.
    Chapter *animation = dictChapter(&dict, CHP_ANIMATION);
    EXPECT_EQ(elemCountLive(animation), 4);
    int32_t chapter = -1, index = -1;
    std::vector<int32_t> types;
    Element *cube = at(CHP_MODELS, 0);
    for (Element *c = relFirst(&dict, cube, 1, RELGR_TRANSFO, 113, CHP_ANIMATION, &chapter, &index); c;
         c = relNext(&dict, cube, 1, RELGR_TRANSFO, 113, CHP_ANIMATION, &chapter, &index)) {
        EXPECT_EQ(c->lev, 1);
        EXPECT_EQ(c->root, 0);
        types.push_back(static_cast<Fcurve *>(c->data)->type);
    }
    EXPECT_EQ(types, (std::vector<int32_t>{139, 140, 141}));

    // Writing the scene names the file once, not its curves.
    std::string path = dir / "again.dsc";
    ASSERT_EQ(sceneWrite(&dict, path.c_str(), 4.0f), 1);
    std::string text = bwtest::fileText(path);
    EXPECT_NE(text.find("CHAPTER ANIMATION NBELEM 1\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("113"), std::string::npos);
}

TEST_F(SceneLoad, CamerasFillTheCurrentCameraAndLightsTheirOwn) {
    Camera eye;
    eye.position[1] = 42.0f;
    std::string eyeFile = tdFullName(tdWriteCamera(db, "s-eye", eye));
    Light lamp;
    lamp.type = 2;
    lamp.colour[0] = 0.25f;
    std::string lampFile = tdFullName(tdWriteLight(db, "s-lamp", lamp));
    TdScene s;
    s.add(CHP_CAMERAS, eyeFile);
    s.add(CHP_LIGHTS, lampFile);
    ASSERT_FALSE(tdWriteScene(db, "s", s, time(nullptr)).empty());

    Camera current;  // the camera the viewer looks through
    void *saved = threadStorage()->curCamera;
    threadStorage()->curCamera = &current;
    ASSERT_EQ(load("s.1-0"), 1) << err;
    threadStorage()->curCamera = saved;
    EXPECT_EQ(current.position[1], 42.0f);
    EXPECT_EQ(at(CHP_CAMERAS, 0)->data, &current);
    const Light *light = static_cast<const Light *>(at(CHP_LIGHTS, 0)->data);
    ASSERT_TRUE(light);
    EXPECT_EQ(light->type, 2);
    EXPECT_EQ(light->colour[0], 0.25f);

    // Without a current camera the file cannot be read: the camera goes.
    threadStorage()->curCamera = nullptr;
    ASSERT_EQ(loadElsewhere("s.1-0"), 1);
    threadStorage()->curCamera = saved;
    EXPECT_TRUE(bwtest::contains(err, "Missing CAMERAS [s-eye.1-0] could not be replaced: removed from scene"))
        << err;
}

TEST_F(SceneLoad, AMissingLightBecomesADefaultLightWithItsInterest) {
    dir.write("db/SCENES/lit.1-0.dsc",
              "SDSC 4.0\n"
              "ELEMENTS\n"
              "CHAPTER LIGHTS NBELEM 2\n"
              "  lit-lamp.1-0 ROOT ;\n"
              "  lit-lamp_int.1-0 ;\n"
              "EndOfCHAPTER\n"
              "EndOfELEMENTS\n"
              "RELATIONS\n"
              "CHAPTER LIGHTS CHAPTER LIGHTS\n"
              "  1 0 2110 ;\n"
              "EndOfCHAPTER\n"
              "EndOfRELATIONS\n"
              "ENVIRONMENT\n"
              "EndOfENVIRONMENT\n");
    ASSERT_EQ(load("lit.1-0"), 1) << err;
    EXPECT_TRUE(bwtest::contains(err, "Read lit-lamp.1-0\nCouldn't read file " + db->path + "/LIGHTS/lit-lamp.lig\n"
                       "Missing LIGHTS [lit-lamp.1-0] has been replaced by a default element\n"))
        << err;
    EXPECT_EQ(out, "");
    ASSERT_EQ(elemCountLive(dictChapter(&dict, CHP_LIGHTS)), 2);
    const Light *lamp = static_cast<const Light *>(at(CHP_LIGHTS, 0)->data);
    ASSERT_TRUE(lamp);
    EXPECT_STREQ(lamp->name, "lamp");
    EXPECT_EQ(lamp->on, 1);
    EXPECT_EQ(lamp->colour[0], 1.0f);
    // The interest has a light of its own that lights nothing.
    const Light *interest = static_cast<const Light *>(at(CHP_LIGHTS, 1)->data);
    ASSERT_TRUE(interest);
    EXPECT_NE(interest, lamp);
    EXPECT_EQ(interest->on, 0);
    EXPECT_EQ(at(CHP_LIGHTS, 1)->lev, 1);
    EXPECT_EQ(at(CHP_LIGHTS, 1)->root, 0);
}

TEST_F(SceneLoad, EnvironmentReachesTheModelAndChaptersWithoutReaderKeepTheirElements) {
    dir.write("db/SCENES/env.1-0.dsc",
              "SDSC 4.0\n"
              "ELEMENTS\n"
              "CHAPTER MODELS NBELEM 1 env-box.1-0 ROOT ; EndOfCHAPTER\n"
              "CHAPTER PICTURES NBELEM 1 /nowhere/wood.pic ; EndOfCHAPTER\n"
              "CHAPTER SETUP_CHANNELS NBELEM 2 env-a.1-0 ; env-b.1-0 ; EndOfCHAPTER\n"
              "CHAPTER EXPRESSIONS NBELEM 4 env-tied.1-0 ; env-loose.1-0 ; env-other.1-0 ;"
              " env-revised.1-3 ; EndOfCHAPTER\n"
              "EndOfELEMENTS\n"
              "RELATIONS\n"
              "CHAPTER MODELS CHAPTER EXPRESSIONS 0 0 20010 ; EndOfCHAPTER\n"
              "EndOfRELATIONS\n"
              "ENVIRONMENT\n"
              "CHAPTER MODELS\n"
              "  0 WIRECOL 14 DISPLAY 4 MPRFLG 65535 ;\n"
              "EndOfCHAPTER\n"
              "EndOfENVIRONMENT\n");
    ASSERT_EQ(load("env.1-0"), 1) << err;
    // The missing model's stand-in takes the scene's wire colour, display
    // type and flags: the low byte and the high nibble, not the nibble between.
    const Model *box = static_cast<const Model *>(at(CHP_MODELS, 0)->data);
    ASSERT_TRUE(box);
    EXPECT_EQ(box->wireColour, 14);
    EXPECT_EQ(box->displayMode, 4);
    EXPECT_EQ(box->flags, 0xF0FF);
    // A picture has no reader yet: it stays, named by its path.
    ASSERT_EQ(elemCountLive(dictChapter(&dict, CHP_PICTURES)), 1);
    EXPECT_EQ(at(CHP_PICTURES, 0)->name->subdir, "/nowhere/");
    // The setup chapters keep their first element; expressions keep those a
    // relation ties in, and the first loose one without a level.
    EXPECT_EQ(elemCountLive(dictChapter(&dict, CHP_SETUP_CHANNELS)), 1);
    EXPECT_EQ(at(CHP_SETUP_CHANNELS, 0)->deleted, 0);
    Chapter *expressions = dictChapter(&dict, CHP_EXPRESSIONS);
    EXPECT_EQ(elemCountLive(expressions), 2);
    EXPECT_EQ(at(CHP_EXPRESSIONS, 0)->deleted, 0);
    EXPECT_EQ(at(CHP_EXPRESSIONS, 1)->deleted, 0);
    EXPECT_EQ(at(CHP_EXPRESSIONS, 2), nullptr);
    EXPECT_EQ(at(CHP_EXPRESSIONS, 3), nullptr);
}

TEST_F(SceneLoad, ACutMaterialFileKeepsWhatWasRead) {
    // Header, no table, the tag, then name, diffuse, and a specular cut after
    // its first value; token by token as the material record lists them.
    const bwtest::Bytes bytes = bwtest::header(BIN_ID_MATERIAL, 4.0f) + bwtest::text("MTRL") +
                                bwtest::be16(1) + bwtest::text0("rust") + bwtest::be16(3) +
                                bwtest::f32(0.1f) + bwtest::f32(0.2f) + bwtest::f32(0.3f) +
                                bwtest::be16(4) + bwtest::f32(0.75f) + bwtest::f32(0.25f) +
                                bwtest::f32(0.125f) + bwtest::be16(5) + bwtest::f32(0.5f);
    const std::string path = db->path + "/MATERIALS/cut-rust.1-0.mtr";
    bwtest::writeBytes(path, bytes);
    // One cut before the record gave anything: that file is substituted.
    bwtest::writeBytes(db->path + "/MATERIALS/cut-bare.1-0.mtr",
                       bwtest::header(BIN_ID_MATERIAL, 4.0f) + bwtest::text("MTRL"));
    dir.write("db/SCENES/cut.1-0.dsc",
              "SDSC 4.0\n"
              "ELEMENTS\n"
              "CHAPTER MATERIALS NBELEM 2 cut-rust.1-0 ; cut-bare.1-0 ; EndOfCHAPTER\n"
              "EndOfELEMENTS\n");
    ASSERT_EQ(load("cut.1-0"), 1) << err;
    EXPECT_TRUE(bwtest::contains(err, "Read cut-rust.1-0\nPassed end of file " + path +
                       " while reading data; what was read is kept\n"))
        << err;
    EXPECT_EQ(err.find("Missing MATERIALS [cut-rust.1-0]"), std::string::npos) << err;
    EXPECT_TRUE(bwtest::contains(err, "Missing MATERIALS [cut-bare.1-0] has been replaced by a default element\n"))
        << err;
    const Material *m = static_cast<const Material *>(at(CHP_MATERIALS, 0)->data);
    ASSERT_TRUE(m);
    EXPECT_EQ(m->name, "rust");
    EXPECT_EQ(m->ambient[2], 0.3f);
    EXPECT_EQ(m->diffuse[0], 0.75f);
    EXPECT_EQ(m->diffuse[2], 0.125f);
    EXPECT_EQ(m->specular[0], 0.5f);
    EXPECT_EQ(at(CHP_MATERIALS, 0)->loaded, 1);
}

// The setup file a scene names is read last; element 0 of its chapter is the
// one that counts. Its light model goes to the scene's block, its play
// control replaces the scene file's, and a missing file leaves the defaults.
TEST_F(SceneLoad, TheSetupFileSetsTheLightModelAndThePlayRange) {
    auto scene = [&](const std::string &name, const std::string &setup) {
        dir.write("db/SCENES/" + name + ".1-0.dsc",
                  "SDSC 4.0\nELEMENTS\n"
                  "CHAPTER MODELS NBELEM 1 " + cubeFile + " ROOT ; EndOfCHAPTER\n"
                  "EndOfELEMENTS\nRELATIONS\nEndOfRELATIONS\nENVIRONMENT\n"
                  "CHAPTER SETUP_BRAK SETUP " + setup + " SETUP other.1-0 EndOfCHAPTER\n"
                  "PLAYCTRL FRAME 1 50 1 1 PAUSE 0 RATE 25 EndOfPLAYCTRL\n"
                  "EndOfENVIRONMENT\n");
    };
    dir.write("db/SETUP_BRAK/lit.1-0.sts",
              "SSET 3.0\n"
              "PLAYCTRL FRAME 10 40 12 2 PAUSE 0 RATE 24 EndOfPLAYCTRL\n"
              "SHOW_FLAG 1 SHW_POINTS 0 MYSTERY_WORD 3 4\n"
              "AMBIENT_COLOR 0.5 0.25 0.75 TWO_SIDED_LIGHTING 1 TWO_SIDED_OVERRIDE 0\n"
              "TEXTURE_PXL_INTERPOLATION_MODE ALWAYS_OFF BLENDING 1 TXT_DPY_TILING 1\n");
    dir.write("db/SETUP_BRAK/other.1-0.sts", "SSET 3.0\nAMBIENT_COLOR 1 1 1\n");
    scene("lit", "lit.1-0");
    ASSERT_EQ(load("lit.1-0"), 1) << err;
    const SceneGlobals &g = dict.globals;
    EXPECT_EQ(std::tuple(g.ambient[0], g.ambient[1], g.ambient[2], g.twoSided, g.lightingGiven),
              std::tuple(0.5f, 0.25f, 0.75f, 1, 1));
    const TOL_PlayCtrl &play = sceneStateCurrent().playCtrl;
    EXPECT_EQ(std::tie(play.startFrame, play.endFrame, play.frameStep, play.framesPerSecond), std::tuple(10, 40, 2, 24.0f));
    ASSERT_TRUE(dict.setup);
    EXPECT_EQ(std::tie(dict.setup->texInterpolation, dict.setup->texBlending, dict.setup->texTiling),
              std::tuple(SETUP_TXT_ALWAYS_OFF, 1, 1));
    // The unknown keyword is passed over and kept; the second setup is dropped.
    bool kept = false;
    for (const SetupLine &line : dict.setup->lines)
        kept = kept || (line.tokens.size() == 3 && line.tokens[0] == "MYSTERY_WORD");
    EXPECT_TRUE(kept);
    EXPECT_EQ(elemCountLive(dictChapter(&dict, CHP_SETUP_BRAK)), 1);
    EXPECT_EQ(err, "Read Elements\nRead s-cube.1-0\nRead lit.1-0\n");

    // No file: the defaults stand and the scene's own play control holds.
    Dictionary plain;
    dictInit(&plain);
    dictCreateChapters(&plain, nullptr, 1);
    scene("bare", "missing.1-0");
    ASSERT_EQ(load("bare.1-0", &plain), 1) << err;
    EXPECT_FLOAT_EQ(plain.globals.ambient[0], 0.2f);
    EXPECT_EQ(plain.globals.lightingGiven, 0);
    EXPECT_FALSE(plain.setup);
    EXPECT_EQ(sceneStateCurrent().playCtrl.endFrame, 50);
    dictFree(&plain, 0);
}
