// Parameter relations: curves on texture, scene, model and light ids change
// the fields the evaluation table names, within their limits.
#include <cmath>

#include "camera.h"
#include "material.h"
#include "scene_fixture.h"

namespace {

class ParamTest : public SceneTest {
protected:
    int element(int chapter, const char *name, void *data) {
        return elemAdd(&dict, chapter, elemNameParse(name, nullptr, 0), data, nullptr, 0, 0);
    }
    // Builds and walks the list at `time`.
    void evalAt(float time) {
        ASSERT_EQ(build(), 1);
        updatelistEval(&dict, &list, time);
    }
};

}  // namespace

TEST_F(ParamTest, TextureScalarsFollowTheirCurvesWithinTheirLimits) {
    Texture2D t;
    int tex = element(CHP_TEXTURES2D, "wood", &t);
    animate(tex, 511, {curve(0, {{0, 1}, {1, 3}})});  // u scale: no limit
    animate(tex, 521, {curve(0, {{0, -0.5f}, {1, 1.5f}})});  // [0, 1]
    animate(tex, 523, {curve(0, {{0, 0.25f}, {1, 0.75f}})});
    animate(tex, 527, {curve(0, {{0, -2}, {1, 2}})});  // box size x: at least 0
    animate(tex, 531, {curve(0, {{0, -3}, {1, 1}})});  // at least -1
    animate(tex, 532, {constant(0, -7)});               // no limit
    // u scale, factor 0 and 2, box x, factor 4 and 5 at each time.
    const float want[3][6] = {{1, 0, 0.25f, 0, -1, -7}, {3, 1, 0.75f, 2, 1, -7}, {2, 0.5f, 0.5f, 0, -1, -7}};
    const float at[3] = {0.0f, 1.0f, 0.5f};
    evalAt(0.0f);
    for (int i = 0; i < 3; ++i) {
        updatelistEval(&dict, &list, at[i]);
        const float got[6] = {t.uScale, t.factors[0], t.factors[2], t.boxSize[0], t.factors[4], t.factors[5]};
        for (int k = 0; k < 6; ++k) EXPECT_FLOAT_EQ(got[k], want[i][k]) << at[i] << " " << k;
    }
}

TEST_F(ParamTest, ATextureAngleTurnsTheProjectionAndTellsTheDraw) {
    Texture2D t;
    int tex = element(CHP_TEXTURES2D, "wood", &t);
    animate(tex, 517, {curve(0, {{0, 0}, {1, 90}})});  // about z, degrees
    animate(tex, 515, {constant(0, 0)});
    evalAt(1.0f);
    EXPECT_NEAR(t.rotation[2], M_PI / 2, 1e-6);
    // x goes to y under a quarter turn about z (rows are the images of the axes).
    const float want[3][3] = {{0, 1, 0}, {-1, 0, 0}, {0, 0, 1}};
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(t.matrix[i][k], want[i][k], 1e-6) << i << k;
    const uint32_t seen = t.revision;
    EXPECT_GT(seen, 0u);
    // The same time changes nothing, so the draw keeps what it made.
    updatelistEval(&dict, &list, 1.0f);
    EXPECT_EQ(t.revision, seen);
    updatelistEval(&dict, &list, 0.0f);
    EXPECT_GT(t.revision, seen);
    EXPECT_NEAR(t.matrix[0][0], 1.0, 1e-6);
}

TEST_F(ParamTest, SolidTextureVectorsTakeTheirComponentByCurveType) {
    Texture3D t;
    int tex = element(CHP_TEXTURES3D, "marble", &t);
    // Only y of the scaling, given as its type; the others keep their values.
    animate(tex, 411, {constant(92, 4)});
    animate(tex, 412, {constant(96, 30)});  // rotation z stays in degrees
    animate(tex, 415, {constant(0, 0.1f), constant(0, 0.2f), constant(0, 0.3f)});  // colour by order
    animate(tex, 419, {constant(0, 6)});
    evalAt(0.0f);
    EXPECT_FLOAT_EQ(t.scaling[0], 1.0f);
    EXPECT_FLOAT_EQ(t.scaling[1], 4.0f);
    EXPECT_FLOAT_EQ(t.rotation[2], 30.0f);
    EXPECT_FLOAT_EQ(t.colours[1][0], 0.1f);
    EXPECT_FLOAT_EQ(t.colours[1][2], 0.3f);
    EXPECT_FLOAT_EQ(t.params[10], 6.0f);
}

TEST_F(ParamTest, SceneCurvesDriveTheGlobalBlock) {
    dictEnsureScene(&dict);
    animate(0, 3001, {constant(0, 0.6f)});
    animate(0, 3003, {constant(0, 1)});
    animate(0, 3030, {curve(0, {{0, 0}, {1, 1}})});
    animate(0, 3032, {constant(0, 80)});
    animate(0, 3035, {constant(0, 0.9f)});
    evalAt(1.0f);
    EXPECT_FLOAT_EQ(dict.globals.ambient[1], 0.6f);
    EXPECT_FLOAT_EQ(dict.globals.ambient[0], 0.2f);
    EXPECT_EQ(dict.globals.twoSided, 1);
    EXPECT_EQ(dict.globals.fogEnable, 1);
    EXPECT_FLOAT_EQ(dict.globals.fogEnd, 80.0f);
    EXPECT_FLOAT_EQ(dict.globals.fogColor[2], 0.9f);
    EXPECT_GT(dict.globals.revision, 0u);
    // A switch is on at 1.0 only.
    updatelistEval(&dict, &list, 0.5f);
    EXPECT_EQ(dict.globals.fogEnable, 0);
}

TEST_F(ParamTest, RenderFlagsSetAndClearBitsOfTheModelsWord) {
    int m = model("ball");
    node(m)->renderFlags = 0x30;
    node(m)->flags = 0x0F;  // the scene's flags word is another
    animate(m, 4000, {constant(0, 1)});
    animate(m, 4002, {curve(0, {{0, 1}, {1, 0}})});
    evalAt(0.0f);
    EXPECT_EQ(node(m)->renderFlags, 0x35);
    updatelistEval(&dict, &list, 0.5f);  // 0.5 clears
    EXPECT_EQ(node(m)->renderFlags, 0x31);
    EXPECT_EQ(node(m)->flags, 0x0F);
}

TEST_F(ParamTest, DynamicsSwitchTurnsObjectsAndWholeChains) {
    int ball = model("ball"), root = model("root"), joint = model("joint", root), tip = model("tip", joint);
    node(ball)->type = 4;
    node(root)->kind = MODEL_KIND_CHAIN;
    node(joint)->type = MODEL_TYPE_JOINT;
    node(joint)->kind = MODEL_KIND_CHAIN;
    node(tip)->kind = MODEL_KIND_EFFECTOR;
    animate(ball, 11, {curve(0, {{0, 1}, {1, 0}})});
    animate(root, 11, {curve(0, {{0, 1}, {1, 0}})});
    evalAt(0.0f);
    EXPECT_EQ(node(ball)->kind, MODEL_KIND_DYNAMIC);
    EXPECT_EQ(node(root)->kind, MODEL_KIND_CHAIN_DYNAMIC);
    EXPECT_EQ(node(joint)->kind, MODEL_KIND_CHAIN_DYNAMIC);
    EXPECT_EQ(node(tip)->kind, MODEL_KIND_EFFECTOR);
    updatelistEval(&dict, &list, 1.0f);
    EXPECT_EQ(node(ball)->kind, MODEL_KIND_NONE);
    EXPECT_EQ(node(joint)->kind, MODEL_KIND_CHAIN);
}

TEST_F(ParamTest, AModelParameterCurveSetsTheFieldOfItsTypeAndTheWorldFollows) {
    int m = model("ball");
    animate(m, 15, {constant(140, 3), constant(6, 90), constant(500, 9)});
    evalAt(0.0f);
    EXPECT_FLOAT_EQ(node(m)->translation[1], 3.0f);
    EXPECT_NEAR(node(m)->rotation[2], M_PI / 2, 1e-6);
    EXPECT_FLOAT_EQ(node(m)->globalMatrix[3][1], 3.0f);
    EXPECT_NEAR(node(m)->globalMatrix[0][1], 1.0, 1e-6);
    EXPECT_TRUE(node(m)->transfoDirty & TRANSFO_DIRTY_POSITION);
}

TEST_F(ParamTest, LightKindStepsAndShadowSwitches) {
    Light light;
    int lamp = element(CHP_LIGHTS, "lamp", &light);
    animate(lamp, 2120, {curve(189, {{0, 0}, {1, 3}})});
    animate(lamp, 2208, {constant(0, 1)});
    evalAt(0.5f);
    EXPECT_EQ(light.type, 2);  // 1.5 rounds away from zero
    EXPECT_EQ(light.shadow, 1);
}
