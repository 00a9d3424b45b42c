// Expressions in scenes: parameter references, the order of the update list,
// the cycle refusal, a scene loaded from files written here, and bwexpr.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "capture.h"
#include "expr.h"
#include "layer_fixture.h"
#include "model.h"
#include "scene_fixture.h"
#include "testdata.h"
#include "tol.h"

namespace {

constexpr double kRad = 0.0174532925;

class ExprScene : public SceneTest {
protected:
    void SetUp() override {
        SceneTest::SetUp();
        exprInstall();
        g_relDataFree = relDataFree;  // the expressions' relation data, as a loaded scene frees it
    }
    void TearDown() override {
        // The expressions are the test's: the dictionary must not keep them.
        for (auto &x : expressions) elemGet(&dict, CHP_EXPRESSIONS, x->exprIndex)->data = nullptr;
        SceneTest::TearDown();
        g_relDataFree = nullptr;
    }
    // An expression element holding `text`, compiled against the scene.
    Expression *expression(const char *text, bool expectParse = true) {
        expressions.push_back(std::make_unique<Expression>());
        Expression *x = expressions.back().get();
        x->name = "x" + std::to_string(expressions.size());
        ExprParseOptions options;
        options.dict = &dict;
        options.quiet = 1;
        EXPECT_EQ(expressionParse(text, x, options, nullptr), expectParse ? 1 : 0) << text;
        x->exprIndex = elemAdd(&dict, CHP_EXPRESSIONS, elemNameParse(x->name.c_str(), nullptr, 0), x, nullptr, 0, 0);
        elemGet(&dict, CHP_EXPRESSIONS, x->exprIndex)->lev = 1;
        return x;
    }
    void evalAt(float time) {
        list.dirty = 1;
        updatelistClear(&list);
        ASSERT_EQ(updatelistBuild(&dict, &list, 0, 0), 1);
        updatelistEval(&dict, &list, time);
    }
    int expressionRelations(int model) {
        return relCount(elemGet(&dict, CHP_MODELS, model), 1, -1, REL_EXPRESSION, -1);
    }
    std::vector<std::unique_ptr<Expression>> expressions;
};

}  // namespace

TEST_F(ExprScene, AWheelTurnsAsItsTranslationGoesAndAChildReadsTheGlobalValue) {
    const int wheel = model("wheel");
    const int hub = model("hub", wheel);
    animate(wheel, 113, {curve(139, {{0.0f, 0.0f}, {1.0f, 10.0f}}), constant(140, 0), constant(141, 0)});
    // The expressions stand before the curves in the chapter and the hub
    // before nothing: only the relations order them.
    Expression *hubX = expression("hub.transy = wheel.G.transx");
    Expression *spin = expression("wheel.rotz = wheel.transx * 36");
    ASSERT_EQ(expressionConnect(&dict, spin->exprIndex, spin), 1);
    ASSERT_EQ(expressionConnect(&dict, hubX->exprIndex, hubX), 1);
    // One run: the expression first, then the element it reads.
    EXPECT_EQ(expressionRelations(wheel), 2);
    evalAt(0.5f);
    EXPECT_NEAR(node(wheel)->rotation[2], 180 * kRad, 1e-5);
    EXPECT_NEAR(node(hub)->translation[1], 5.0f, 1e-5);
    evalAt(0.25f);
    EXPECT_NEAR(node(wheel)->rotation[2], 90 * kRad, 1e-5);
    EXPECT_NEAR(node(hub)->translation[1], 2.5f, 1e-5);

    // Functions that take an element: the curve at another time, distances.
    Expression *probe = expression("= at_time(1, wheel.transx) + at_frame(15, wheel.transx) * 100");
    int status = 0;
    EXPECT_NEAR(exprNumber(expressionRun(probe, exprEvalSceneOf(&dict), 0.0f, &status)), 10 + 500, 1e-4);
    // Read by name, the angle the model holds in radians is degrees again.
    Expression *angle = expression("= wheel.rotz");
    EXPECT_NEAR(exprNumber(expressionRun(angle, exprEvalSceneOf(&dict), 0.0f, &status)), 90, 1e-4);
    Expression *dist = expression("= ctr_dist(wheel.transx, hub.transx)");
    EXPECT_NEAR(exprNumber(expressionRun(dist, exprEvalSceneOf(&dict), 0.0f, &status)), 2.5, 1e-5);
    Expression *has = expression("= has_relation(wheel.transx, 20011, FORWARD) + has_relation(hub.transx, 110, FORWARD) * 10"
                                 " + has_relation(wheel.transx, 110, FORWARD) * 100");
    EXPECT_EQ(exprNumber(expressionRun(has, exprEvalSceneOf(&dict), 0.0f, &status)), 11.0);
    EXPECT_EQ(status, 0);
}

TEST_F(ExprScene, ACycleIsRefusedAndLeavesNothingConnected) {
    const int a = model("a");
    const int b = model("b");
    Expression *first = expression("a.transx = b.transx + 1");
    Expression *second = expression("b.transx = a.transx * 2");
    ASSERT_EQ(expressionConnect(&dict, first->exprIndex, first), 1);
    bwtest::StreamCapture err(stderr);
    EXPECT_EQ(expressionConnect(&dict, second->exprIndex, second), 0);
    EXPECT_EQ(err.text(), "This expression would generate a cycle in dependencies. Please modify it.\n");
    EXPECT_EQ(expressionRelations(b), 0);
    EXPECT_EQ(expressionRelations(a), 2);
    node(b)->translation[0] = 4;
    evalAt(0.0f);
    EXPECT_FLOAT_EQ(node(a)->translation[0], 5.0f);
    // Connecting again replaces the old run rather than adding one.
    ASSERT_EQ(expressionConnect(&dict, first->exprIndex, first), 1);
    EXPECT_EQ(expressionRelations(a), 2);
}

TEST_F(ExprScene, AStatusOfTheWalkIsReportedAndCompoundAssignmentsReadTheTarget) {
    const int m = model("m");
    node(m)->translation[1] = 3;
    Expression *div = expression("m.transx = 1/0");
    Expression *add = expression("m.transy += 2");
    Expression *dim = expression("m.transz /= 0");
    for (Expression *x : {div, add, dim}) ASSERT_EQ(expressionConnect(&dict, x->exprIndex, x), 1);
    bwtest::StreamCapture err(stderr);
    evalAt(0.0f);
    EXPECT_EQ(err.text(), "Expression divided by 0\nExpression divided by 0\n");
    EXPECT_FLOAT_EQ(node(m)->translation[0], 1.0f);
    EXPECT_FLOAT_EQ(node(m)->translation[1], 5.0f);
    EXPECT_FLOAT_EQ(node(m)->translation[2], 0.0f);
}

TEST_F(ExprScene, ReferencesResolveInTheSceneOrAreRefused) {
    model("cube");
    ExprParseOptions options;
    options.dict = &dict;
    options.quiet = 1;
    std::vector<ExprParseError> errors;
    Expression x;
    EXPECT_EQ(expressionParse("= ghost.transx", &x, options, &errors), 0);
    EXPECT_EQ(expressionParse("= CAM cube.posx", &x, options, &errors), 0);
    EXPECT_EQ(expressionParse("= this.transx", &x, options, &errors), 0);
    ASSERT_EQ(errors.size(), 3u);
    EXPECT_EQ(errors[0].message, "No such element");
    EXPECT_EQ(errors[1].message, "No such element");
    EXPECT_EQ(errors[2].message, "No such element: this");
    // "this" is the target's element.
    ASSERT_EQ(expressionParse("cube.transx = this.transy", &x, options, nullptr), 1);
    EXPECT_EQ(x.root->right->ref->chapter, CHP_MODELS);
    EXPECT_EQ(x.root->right->ref->curveType, 140);
    // Channels read 0 until the channels library is in the process.
    ASSERT_EQ(expressionParse("= CHN mouse.x + 1", &x, options, nullptr), 1);
    EXPECT_EQ(x.root->left->op, EXPR_LEAF_CHANNEL);
}

// ---------------------------------------------------------------------------
// A scene of files

namespace {

// The database "db" in `dir` with a wheel whose translation a curve moves
// over frames 1 to 11 (0 to 10), models a and b, and the expressions file
// "exprs" with the scene "shot" naming them.
void writeWheelDatabase(const bwtest::TempDir &dir, const std::vector<ExprFileEntry> &entries) {
    bwtest::OutputCapture quiet;
    ASSERT_EQ(tdLoadRelations(), 1);
    Database *db = tdDatabaseCreate(dir / "db", "db", dir / "DatabaseDir.rsrc");
    ASSERT_NE(db, nullptr);
    TdScene scene;
    for (const char *name : {"wheel", "a", "b"}) {
        Model *m = modelNew(name, 0, nullptr);
        std::string path = tdWriteModel(db, name, m);
        modelFree(m);
        ASSERT_FALSE(path.empty());
        scene.add(CHP_MODELS, tdFullName(path));
    }
    Fcurve *c = fcurveCreate(139, 0);
    for (auto [frame, value] : {std::pair{1.0f, 0.0f}, std::pair{11.0f, 10.0f}}) {
        FcurveKey *key = fcurveKeyNew();
        key->time = frame / 30.0f;
        key->value = value;
        key->interpolation = FCV_LINEAR;
        fcurveAddKey(c, key, 0, 0, 0);
    }
    AnimItem *item = static_cast<AnimItem *>(calloc(1, sizeof(AnimItem)));
    *item = AnimItem{c, 113, CHP_MODELS, 0, 1, nullptr};
    std::string curves = tdWriteAnimation(db, "wheel", item);
    animItemsFree(item);
    ASSERT_FALSE(curves.empty());
    scene.add(CHP_ANIMATION, tdFullName(curves));
    std::string exprs = tdWriteExpressions(db, "exprs", entries);
    ASSERT_FALSE(exprs.empty());
    scene.add(CHP_EXPRESSIONS, tdFullName(exprs));
    ASSERT_FALSE(tdWriteScene(db, "shot", scene, time(nullptr)).empty());
}

const std::vector<ExprFileEntry> kEntries = {
    {"spin", "wheel.rotz = wheel.transx * 36"},
    {"bad", "wheel.roty = = 1"},
    {"follow", "a.transy = wheel.transx + offset"},
    {"offset", "= 100"},
    {"loopA", "a.transx = b.transx"},
    {"loopB", "b.transx = a.transx"},
};

class ExprFiles : public bwtest::LayerTest {};

}  // namespace

TEST(ExprFile, TheFileIsReadLineByLine) {
    bwtest::TempDir dir;
    dir.write("one.exp", "EXPR 1\n# a comment\n\nspin   wheel.rotz = 2 # not a comment\nlonely\nspin = 3\n  next\t= Fc\r\n");
    std::vector<ExprFileEntry> entries;
    bwtest::StreamCapture err(stderr);
    ASSERT_EQ(exprFileRead((dir / "one.exp").c_str(), &entries), 1);
    std::string path = dir / "one.exp";
    EXPECT_EQ(err.text(), path + ":5: a name and an expression expected, line skipped\n" + path +
                              ":6: expression spin named twice, line skipped\n");
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].name, "spin");
    EXPECT_EQ(entries[0].text, "wheel.rotz = 2 # not a comment");
    EXPECT_EQ(entries[1].name, "next");
    EXPECT_EQ(entries[1].text, "= Fc");
    dir.write("two.exp", "EXPR 2\nspin = 1\n");
    bwtest::StreamCapture err2(stderr);
    EXPECT_EQ(exprFileRead((dir / "two.exp").c_str(), &entries), 0);
    EXPECT_EQ(err2.text(), dir / "two.exp" + ":1: not an expressions file (\"EXPR 1\" expected)\n");
}

TEST_F(ExprFiles, ALoadedSceneConnectsItsExpressionsAndRefusesTheBadOnes) {
    bwtest::TempDir dir;
    writeWheelDatabase(dir, kEntries);
    TOL_Database db = loadDatabase(dir / "db");
    bwtest::StreamCapture err(stderr);
    ASSERT_EQ(TOL_sceneLoad(&db, "shot", &scene), 0);
    const std::string said = err.text();
    EXPECT_TRUE(bwtest::contains(said, "syntax error\n  wheel.roty = = 1\n               ^\nExpression invalide(bad)!\n")) << said;
    EXPECT_TRUE(bwtest::contains(said, "This expression would generate a cycle in dependencies. Please modify it.\n")) << said;
    // The file and its six members.
    Chapter *chapter = dictChapter(dict, CHP_EXPRESSIONS);
    int members = 0;
    for (int i = 0; i < chapter->elementCount; ++i)
        if (chapter->elements[i].deleted == ELEM_LIVE && chapter->elements[i].lev == 1) ++members;
    EXPECT_EQ(members, 6);
    ASSERT_EQ(TOL_updatelistGet(&scene), 0);
    ASSERT_EQ(TOL_updatelistEvalScene(&scene, 6 / 30.0f), 0);
    const int wheel = elemFindByName(dict, CHP_MODELS, -1, nullptr, "wheel", -1, -1, 0);
    const int a = elemFindByName(dict, CHP_MODELS, -1, nullptr, "a", -1, -1, 0);
    const Model *w = static_cast<Model *>(elemGet(dict, CHP_MODELS, wheel)->data);
    const Model *ma = static_cast<Model *>(elemGet(dict, CHP_MODELS, a)->data);
    EXPECT_NEAR(w->translation[0], 5.0f, 1e-5);
    EXPECT_NEAR(w->rotation[2], 180 * kRad, 1e-5);
    EXPECT_NEAR(ma->translation[1], 105.0f, 1e-4);
    EXPECT_NEAR(ma->globalMatrix[3][1], 105.0f, 1e-4);

    // The writer keeps the file, not its members nor the relations the load made.
    std::string path = dir / "again.dsc";
    ASSERT_EQ(sceneWrite(dict, path.c_str(), 4.0f), 1);
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_TRUE(bwtest::contains(text.str(), "CHAPTER EXPRESSIONS NBELEM 1\n")) << text.str();
    EXPECT_FALSE(bwtest::contains(text.str(), " 20010")) << text.str();
}

TEST(Bwexpr, PrintsTheTreeAndTheValueAndExitsByTheOutcome) {
    bwtest::TempDir dir;
    writeWheelDatabase(dir, kEntries);
    auto run = [&](const std::string &args, std::string *out, std::string *err) {
        std::string cmd = "cd '" + dir.path() + "' && env -u BW_DBDIR ASAN_OPTIONS=detect_leaks=0 " BW_BWEXPR_BIN " " +
                          args + " >out.txt 2>err.txt";
        int status = system(cmd.c_str());
        std::ifstream o(dir / "out.txt"), e(dir / "err.txt");
        std::stringstream so, se;
        so << o.rdbuf();
        se << e.rdbuf();
        *out = so.str();
        *err = se.str();
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    std::string out, err;
    EXPECT_EQ(run("'= 2 * 3'", &out, &err), 0);
    EXPECT_EQ(out, "op 8 *\n  leaf 0 INT 2\n  leaf 0 INT 3\nvalue 6 (tag 1 float)\n");
    EXPECT_EQ(run("'= 1/0'", &out, &err), 1);
    EXPECT_EQ(out, "op 9 /\n  leaf 0 INT 1\n  leaf 0 INT 0\nvalue 1 (tag 4 integer)\n");
    EXPECT_EQ(err, "Expression divided by 0\n");
    EXPECT_EQ(run("'= 1 + foo(2)'", &out, &err), 1);
    EXPECT_EQ(err, "Unknown function\n  = 1 + foo(2)\n        ^\n");
    EXPECT_EQ(run("", &out, &err), 2);
    EXPECT_EQ(run("'= 1' db", &out, &err), 2);
    // Against the scene at frame 6: the wheel has gone 5 and turned half a turn.
    EXPECT_EQ(run("-R " + bwtest::sourcePath("rsrc") + " '= wheel.rotz + offset' db shot 6", &out, &err), 0) << err;
    double value = 0;
    ASSERT_NE(out.find("value "), std::string::npos) << out;
    value = atof(out.c_str() + out.rfind("value ") + 6);
    EXPECT_NEAR(value, 280.0, 1e-3);
}
