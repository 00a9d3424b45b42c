// Waves: the displacement of points computed here from the wave's formula
// (sine of distance less speed times time, damped, between tail and front),
// circular and planar, in the model's frame and in the world; the curves
// that override the file's values; and what the records 600, 601 and 614
// leave in the model's slots and the walk's flags.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "animation.h"
#include "scene_fixture.h"
#include "dictionary.h"
#include "model.h"

namespace {

constexpr double kPi = 3.141592653589793;
constexpr float kRate = 30.0f;  // the frame rate of a thread without a scene

// Height of a wave at distance d and time t by the formula, in double.
double expected(const Wave &w, double d, double t) {
    const float *v = w.value;
    const double tau = t - v[WAVE_START] / kRate;
    const double front = v[WAVE_SPEED] * tau;
    if (tau < 0 || d > front || d < 0) return 0.0;
    if (v[WAVE_ONE_SHOT] > 0 && d < front - v[WAVE_WAVELENGTH]) return 0.0;
    const double phase = 2 * kPi * (d - v[WAVE_SPEED] * tau) / v[WAVE_WAVELENGTH] + v[WAVE_PHASE] * kPi / 180;
    return v[WAVE_AMPLITUDE] * std::exp(-v[WAVE_DAMPING] * d) * std::sin(phase);
}

class WaveTest : public ::testing::Test {
protected:
    void SetUp() override {
        g_modelExtraFree = modelExtraFree;
        wave = waveNew("w");
        model = modelNew("grid", MODEL_TYPE_NULL, nullptr);
        ASSERT_TRUE(wave && model);
        wave->value[WAVE_AMPLITUDE] = 0.5f;
        wave->value[WAVE_WAVELENGTH] = 3.0f;
        wave->value[WAVE_SPEED] = 2.0f;
        wave->value[WAVE_PHASE] = 20.0f;
    }
    void TearDown() override {
        modelDeformersFree(model->deformers);
        model->deformers = nullptr;
        modelFree(model);
        waveFree(wave);
        for (Fcurve *c : curves) fcurveFree(c);
    }
    // Ties the wave to the model's slot as the record 600 / 601 does.
    void tie(int slot) { modelDeformersOf(model)->slot[slot].wave = wave; }
    void place(Model *m, float x, float y, float z, float rotY = 0.0f) {
        m->translation[0] = x, m->translation[1] = y, m->translation[2] = z;
        m->rotation[1] = rotY;
        modelGlobalUpdate(nullptr, m, 0);
    }
    // A two-key linear curve of `type`.
    Fcurve *curve(int32_t type, float t0, float v0, float t1, float v1) {
        Fcurve *c = fcurveCreate(type, 0);
        fcurveKeysAlloc(c, 2);
        c->keys[0].time = t0, c->keys[0].value = v0, c->keys[0].interpolation = FCV_LINEAR;
        c->keys[1].time = t1, c->keys[1].value = v1, c->keys[1].interpolation = FCV_LINEAR;
        curves.push_back(c);
        return c;
    }
    // One point moved by the wave of `slot` at `time`.
    void apply(float (&p)[3], float time, int slot = DEFORM_SLOT_LOCAL) {
        float points[1][3] = {{p[0], p[1], p[2]}};
        ASSERT_EQ(waveApply(model, slot, points, 1, time), 1);
        for (int k = 0; k < 3; ++k) p[k] = points[0][k];
    }
    Wave *wave = nullptr;
    Model *model = nullptr;
    std::vector<Fcurve *> curves;
};

}  // namespace

TEST_F(WaveTest, CircularWaveMovesAPointByTheFormulaAtTwoTimes) {
    tie(DEFORM_SLOT_LOCAL);
    place(wave->transfo, 1, 0, 2);
    const double d = std::sqrt(4.0 * 4.0 + 1.5 * 1.5);  // from (1, 0, 2) to (5, 0, 3.5)
    for (float t : {3.0f, 4.25f}) {
        float p[3] = {5, 0, 3.5f};
        apply(p, t);
        EXPECT_FLOAT_EQ(p[0], 5.0f);
        EXPECT_NEAR(p[1], expected(*wave, d, t), 1e-5) << t;
        EXPECT_FLOAT_EQ(p[2], 3.5f);
    }
    // The two times give different heights: the wave travels.
    float a[3] = {5, 0, 3.5f}, b[3] = {5, 0, 3.5f};
    apply(a, 3.0f);
    apply(b, 4.25f);
    EXPECT_GT(std::fabs(a[1] - b[1]), 0.05f);
}

TEST_F(WaveTest, NothingMovesAheadOfTheFrontOrBeforeTheStart) {
    tie(DEFORM_SLOT_LOCAL);
    wave->value[WAVE_START] = 30;  // one second at 30 frames per second
    // At 2.5 s the front is 2 * 1.5 = 3 units out.
    float inside[3] = {2.9f, 0, 0}, ahead[3] = {3.1f, 0, 0};
    apply(inside, 2.5f);
    apply(ahead, 2.5f);
    EXPECT_NEAR(inside[1], expected(*wave, 2.9, 2.5), 1e-5);
    EXPECT_NE(inside[1], 0.0f);
    EXPECT_EQ(ahead[1], 0.0f);
    float early[3] = {0.1f, 0, 0};
    apply(early, 0.9f);
    EXPECT_EQ(early[1], 0.0f);
    // One shot: only the last wavelength behind the front moves.
    wave->value[WAVE_ONE_SHOT] = 1;
    float behind[3] = {-0.5f, 0, 0}, crest[3] = {0, 0, 2.5f};  // d 0.5 and 2.5, the front at 5
    apply(behind, 3.5f);
    apply(crest, 3.5f);
    EXPECT_EQ(behind[1], 0.0f);
    EXPECT_NEAR(crest[1], expected(*wave, 2.5, 3.5), 1e-5);
    // A duration ends the emission: the train's tail follows the front.
    wave->value[WAVE_ONE_SHOT] = 0;
    wave->value[WAVE_DURATION] = 15;  // half a second: the tail 1 unit behind the front
    float trail[3] = {3.5f, 0, 0}, train[3] = {4.5f, 0, 0};
    apply(trail, 3.5f);
    apply(train, 3.5f);
    EXPECT_EQ(trail[1], 0.0f);
    EXPECT_NEAR(train[1], expected(*wave, 4.5, 3.5), 1e-5);
}

TEST_F(WaveTest, DampingShrinksTheHeightWithDistance) {
    tie(DEFORM_SLOT_LOCAL);
    float plain[3] = {0, 0, 2.2f};
    apply(plain, 5.0f);
    wave->value[WAVE_DAMPING] = 0.3f;
    float damped[3] = {0, 0, 2.2f};
    apply(damped, 5.0f);
    ASSERT_NE(plain[1], 0.0f);
    EXPECT_NEAR(damped[1] / plain[1], std::exp(-0.3 * 2.2), 1e-5);
    EXPECT_NEAR(damped[1], expected(*wave, 2.2, 5.0), 1e-5);
}

TEST_F(WaveTest, PlanarWaveMeasuresAlongItsDirectionOnly) {
    tie(DEFORM_SLOT_LOCAL);
    wave->value[WAVE_PLANAR] = 1;
    wave->value[WAVE_DIRECTION] = 90;  // x turned about y: towards -z
    // Two points at the same distance along -z but far apart across it.
    float a[3] = {0, 0, -1.7f}, b[3] = {6, 0, -1.7f}, back[3] = {0, 0, 1.0f};
    apply(a, 2.0f);
    apply(b, 2.0f);
    apply(back, 2.0f);
    EXPECT_NEAR(a[1], expected(*wave, 1.7, 2.0), 1e-5);
    EXPECT_FLOAT_EQ(a[1], b[1]);
    EXPECT_EQ(back[1], 0.0f);  // behind the wave's line
    // Circular, the far point is farther out and moves otherwise.
    wave->value[WAVE_PLANAR] = 0;
    float c[3] = {6, 0, -1.7f};
    apply(c, 2.0f);
    EXPECT_NEAR(c[1], expected(*wave, std::hypot(6.0, 1.7), 2.0), 1e-5);
}

TEST_F(WaveTest, AxesAndFramesFollowTheWaveAndTheSlot) {
    // The wave turned 90 degrees about y: its x axis is world -z.
    place(wave->transfo, 0, 0, 0, static_cast<float>(kPi / 2));
    wave->value[WAVE_MOVE_Y] = 0;
    wave->value[WAVE_MOVE_X] = 1;
    // The model sits 10 units along x: a local point (-9, 0, 0) is 1 unit from the wave.
    place(model, 10, 0, 0);
    tie(DEFORM_SLOT_LOCAL);
    float local[3] = {-9, 0, 0};
    apply(local, 2.0f);
    const double h = expected(*wave, 1.0, 2.0);
    EXPECT_NEAR(local[0], -9.0, 1e-5);
    EXPECT_NEAR(local[2], -h, 1e-5);
    // The global slot takes world points: the model's place does not count.
    modelDeformersOf(model)->slot[DEFORM_SLOT_GLOBAL].wave = wave;
    float world[3] = {1, 0, 0};
    apply(world, 2.0f, DEFORM_SLOT_GLOBAL);
    EXPECT_NEAR(world[2], -h, 1e-5);
    // A slot without a wave leaves points alone and says so.
    modelDeformersOf(model)->slot[DEFORM_SLOT_GLOBAL].wave = nullptr;
    float none[1][3] = {{1, 0, 0}};
    EXPECT_EQ(waveApply(model, DEFORM_SLOT_GLOBAL, none, 1, 2.0f), 0);
    EXPECT_EQ(none[0][2], 0.0f);
}

TEST_F(WaveTest, CurvesOverrideTheFileValuesAndFollowTheirTypeRules) {
    tie(DEFORM_SLOT_LOCAL);
    // 614 puts each curve of its sources in the cache by type.
    Fcurve *amplitude = curve(621, 0, -1, 10, 9);  // negative before 1 s: taken as 0
    Fcurve *active = curve(620, 0, 1, 4, 0);        // a switch: on while the key at or before is positive
    Fcurve *empty = fcurveCreate(622, 0);           // no keys: the file's wavelength stands
    curves.push_back(empty);
    UpdateSource sources[3] = {{CHP_ANIMATION, RELGR_PARAM, 0, amplitude, 1, nullptr},
                               {CHP_ANIMATION, RELGR_PARAM, 1, active, 1, nullptr},
                               {CHP_ANIMATION, RELGR_PARAM, 2, empty, 1, nullptr}};
    UpdateRecord record = recordFor(CHP_WAVES, wave, 614, sources, 3);
    updateHandlerFind(RELGR_PARAM, 614)(&record, 0.5f, nullptr);
    EXPECT_EQ(wave->curve[WAVE_AMPLITUDE], amplitude);
    EXPECT_EQ(wave->curve[WAVE_ACTIVE], active);
    EXPECT_EQ(amplitude->lastTime, 0.5f);  // its value was made current
    waveUpdate(wave, 0.5f);
    EXPECT_EQ(wave->current[WAVE_AMPLITUDE], 0.0f);
    EXPECT_EQ(wave->current[WAVE_WAVELENGTH], 3.0f);
    waveUpdate(wave, 3.5f);
    EXPECT_FLOAT_EQ(wave->current[WAVE_AMPLITUDE], 2.5f);
    float p[3] = {0, 0, 1.2f};
    apply(p, 3.5f);
    wave->value[WAVE_AMPLITUDE] = 2.5f;  // the formula with the curve's value
    EXPECT_NEAR(p[1], expected(*wave, 1.2, 3.5), 1e-5);
    float off[3] = {0, 0, 1.2f};
    apply(off, 4.0f);  // the switch is off from its second key
    EXPECT_EQ(off[1], 0.0f);
}

TEST_F(WaveTest, RecordsSetTheSlotTheFlagAndPending) {
    UpdateSource source{CHP_WAVES, RELGR_TRANSFO, 0, wave, 1, nullptr};
    UpdateRecord record = recordFor(CHP_MODELS, model, 600, &source, 1);
    int flags = 0;
    updateHandlerFind(RELGR_GEOM, 600)(&record, 0.5f, &flags);
    EXPECT_EQ(flags, DEFORM_FLAG_LOCAL);
    ASSERT_NE(model->deformers, nullptr);
    EXPECT_EQ(model->deformers->slot[DEFORM_SLOT_LOCAL].wave, wave);
    EXPECT_EQ(model->deformers->slot[DEFORM_SLOT_LOCAL].pending, 1);
    EXPECT_EQ(model->deformers->slot[DEFORM_SLOT_GLOBAL].pending, 0);
    EXPECT_EQ(wave->currentTime, 0.5f);

    record.relation = 601;
    updateHandlerFind(RELGR_GEOM, 601)(&record, 0.5f, &flags);
    EXPECT_EQ(flags, DEFORM_FLAG_GLOBAL);
    EXPECT_EQ(model->deformers->slot[DEFORM_SLOT_GLOBAL].wave, wave);
    EXPECT_EQ(model->deformers->slot[DEFORM_SLOT_GLOBAL].pending, 1);

    // An inactive wave, or a source without its record, leaves all as found.
    modelDeformersFree(model->deformers);
    model->deformers = nullptr;
    wave->value[WAVE_ACTIVE] = 0;
    flags = 3;
    updateHandlerFind(RELGR_GEOM, 600)(&record, 0.5f, &flags);
    EXPECT_EQ(flags, 3);
    EXPECT_EQ(model->deformers, nullptr);
    wave->value[WAVE_ACTIVE] = 1;
    source.data = nullptr;
    updateHandlerFind(RELGR_GEOM, 600)(&record, 0.5f, &flags);
    EXPECT_EQ(flags, 3);
    EXPECT_EQ(model->deformers, nullptr);
}

TEST_F(WaveTest, TransformRecordsMoveTheWavesTransformObject) {
    // The scene's install gives the transform relations the wave's node.
    waveSceneInstall();
    Fcurve *tx = curve(139, 0, 0, 1, 4);
    UpdateSource source{CHP_ANIMATION, RELGR_PARAM, 0, tx, 1, nullptr};
    UpdateRecord record = recordFor(CHP_WAVES, wave, 613, &source, 1);
    updateHandlerFind(RELGR_TRANSFO, 613)(&record, 0.5f, nullptr);
    record.relation = REL_WAVE_HIERARCHY_STEP;
    record.sourceCount = 0;
    updateHandlerFind(RELGR_TRANSFO, REL_WAVE_HIERARCHY_STEP)(&record, 0.5f, nullptr);
    EXPECT_FLOAT_EQ(wave->transfo->globalMatrix[3][0], 2.0f);
}
