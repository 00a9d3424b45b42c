// Evaluation of function curves against values worked out here: by hand, or
// by the textbook Hermite form, at keys, between them and on both sides.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "animation.h"
#include "capture.h"

namespace {

struct K {
    float time, value, left, right;
    int16_t interp;
};

// A curve holding exactly `keys`, slopes as given (user slopes, not broken
// unless left and right differ).
Fcurve *curveOf(const std::vector<K> &keys, int16_t pre = 0, int16_t post = 0, int32_t type = 0) {
    Fcurve *c = fcurveCreate(type, 0);
    fcurveKeysAlloc(c, static_cast<int>(keys.size()));
    for (size_t i = 0; i < keys.size(); ++i) {
        FcurveKey &k = c->keys[i];
        k.time = keys[i].time, k.value = keys[i].value;
        k.leftSlope = keys[i].left, k.rightSlope = keys[i].right;
        k.interpolation = keys[i].interp;
    }
    c->preMode = pre, c->postMode = post;
    return c;
}

// The Hermite segment from a to b, in the unit form.
double hermite(const K &a, const K &b, double t) {
    double h = b.time - a.time, s = (t - a.time) / h;
    double s2 = s * s, s3 = s2 * s;
    return a.value * (2 * s3 - 3 * s2 + 1) + b.value * (3 * s2 - 2 * s3) + a.right * h * (s3 - 2 * s2 + s) +
           b.left * h * (s3 - s2);
}

}  // namespace

TEST(FcurveEval, EmptyAndSingleKeyCurves) {
    EXPECT_EQ(fcurveStepValue(nullptr, 1.0f, 0, 1), 0);
    Fcurve *empty = fcurveCreate(113, 0), *one = curveOf({{1.0f, 7.5f, 3.0f, 3.0f, FCV_SPLINE}});
    for (int16_t mode : {0, 1, 2}) {
        empty->preMode = empty->postMode = one->preMode = one->postMode = mode;
        EXPECT_EQ(fcurveFloatValue(empty, -3.0f, 0), 0.0);
        EXPECT_EQ(fcurveValue(empty, 3.0f, 1), 0.0);
        for (float t : {-10.0f, 1.0f, 1.0f + 1e-6f, 50.0f}) {
            EXPECT_EQ(fcurveFloatValue(one, t, 0), 7.5) << "mode " << mode << " t " << t;
            EXPECT_EQ(fcurveStepValue(one, t, 0, 0), 8);
        }
    }
    fcurveFree(empty);
    fcurveFree(one);
}

TEST(FcurveEval, SegmentsByInterpolation) {
    const std::vector<K> keys = {{0.0f, 1.0f, 0.5f, 2.0f, 0}, {2.0f, 5.0f, -1.0f, 4.0f, 0}, {3.0f, -2.0f, 0, 0, 0}};
    Fcurve *c = curveOf(keys);
    // Constant holds A's value up to B; keys give their own values.
    EXPECT_EQ(fcurveFloatValue(c, 0.0f, 0), 1.0);
    EXPECT_EQ(fcurveFloatValue(c, 1.9f, 0), 1.0);
    EXPECT_EQ(fcurveFloatValue(c, 2.0f, 0), 5.0);
    EXPECT_EQ(c->lastValue, 5.0f);
    EXPECT_EQ(c->currentKey, 1);

    c->keys[0].interpolation = c->keys[1].interpolation = FCV_LINEAR;
    EXPECT_NEAR(fcurveFloatValue(c, 0.5f, 0), 2.0, 1e-12);
    EXPECT_NEAR(fcurveFloatValue(c, 2.25f, 0), 5.0 - 7.0 * 0.25, 1e-12);

    for (int16_t interp : {FCV_SPLINE, FCV_SLOPE0, FCV_PLATEAU}) {
        c->keys[0].interpolation = c->keys[1].interpolation = interp;
        for (float t : {0.3f, 1.0f, 1.77f, 2.5f, 2.99f})
            EXPECT_NEAR(fcurveFloatValue(c, t, 0), hermite(keys[t < 2 ? 0 : 1], keys[t < 2 ? 1 : 2], t), 5e-6)
                << "interp " << interp << " t " << t;
    }
    // Within 1e-5 of a key is the key.
    EXPECT_EQ(fcurveFloatValue(c, 2.0f - 5e-6f, 0), 5.0);

    // An interpolation outside the five gives 0 and leaves lastValue.
    c->keys[0].interpolation = 9;
    c->lastValue = 42.0f;
    EXPECT_EQ(fcurveFloatValue(c, 1.0f, 0), 0.0);
    EXPECT_EQ(c->lastValue, 42.0f);
    fcurveFree(c);
}

TEST(FcurveEval, ExtrapolationBeforeAndAfter) {
    const std::vector<K> keys = {{1.0f, 2.0f, 0.5f, 0.25f, FCV_SPLINE}, {3.0f, 6.0f, 1.5f, -0.75f, FCV_SPLINE}};
    Fcurve *c = curveOf(keys, FCV_EXTRA_CONSTANT, FCV_EXTRA_CONSTANT);
    EXPECT_EQ(fcurveFloatValue(c, -4.0f, 0), 2.0);
    EXPECT_EQ(fcurveFloatValue(c, 9.0f, 0), 6.0);
    EXPECT_EQ(c->lastValue, 6.0f);

    // Linear: the end key's own slope, or the chord when the curve is linear.
    c->preMode = c->postMode = FCV_EXTRA_LINEAR;
    EXPECT_NEAR(fcurveFloatValue(c, -1.0f, 0), 2.0 - 0.5 * 2.0, 1e-12);
    EXPECT_NEAR(fcurveFloatValue(c, 5.0f, 0), 6.0 - 0.75 * 2.0, 1e-12);
    c->interpolation = FCV_LINEAR;
    EXPECT_NEAR(fcurveFloatValue(c, -1.0f, 0), 2.0 - 2.0 * 2.0, 1e-12);
    EXPECT_NEAR(fcurveFloatValue(c, 5.0f, 0), 6.0 + 2.0 * 2.0, 1e-12);
    // The step function holds the end values.
    EXPECT_EQ(fcurveStepValue(c, -1.0f, 0, 0), 2);
    EXPECT_EQ(fcurveStepValue(c, 5.0f, 0, 0), 6);

    // Periodic: the same point of the period; the seam shows the last key.
    c->preMode = c->postMode = FCV_EXTRA_PERIODIC;
    for (float t : {1.5f, 2.25f, 2.9f}) {
        double inside = hermite(keys[0], keys[1], t);
        EXPECT_NEAR(fcurveFloatValue(c, t + 2.0f, 0), inside, 1e-5) << t;
        EXPECT_NEAR(fcurveFloatValue(c, t + 20.0f, 0), inside, 1e-4) << t;
        EXPECT_NEAR(fcurveFloatValue(c, t - 4.0f, 0), inside, 1e-5) << t;
        EXPECT_NEAR(fcurveFloatValue(c, t - 2000.0f, 0), inside, 2e-3) << t;
    }
    for (float seam : {-5.0f, -1.0f, 3.0f, 5.0f, 7.0f})
        EXPECT_EQ(fcurveFloatValue(c, seam, 0), 6.0) << seam;
    EXPECT_EQ(fcurveStepValue(c, 5.0f, 0, 0), 6);
    EXPECT_EQ(fcurveStepValue(c, 4.0f, 0, 0), 2);
    // Far times cost no walk over the periods.
    EXPECT_TRUE(std::isfinite(fcurveFloatValue(c, 3e38f, 0)));
    EXPECT_TRUE(std::isfinite(fcurveFloatValue(c, -INFINITY, 0)));

    // A span of 1e-5 or less is constant.
    c->keys[1].time = 1.000005f;
    EXPECT_EQ(fcurveFloatValue(c, 0.0f, 0), 2.0);
    EXPECT_EQ(fcurveFloatValue(c, 4.0f, 0), 6.0);

    bwtest::StreamCapture out(stderr);
    c->preMode = 3;
    c->postMode = -1;
    EXPECT_EQ(fcurveFloatValue(c, 0.0f, 0), 0.0);
    EXPECT_EQ(fcurveStepValue(c, 9.0f, 0, 0), 0);
    EXPECT_EQ(out.text(), "Error - fcurvePreValue: illegal extrapolation mode.\n"
                          "Error - fcurvePostValue: illegal extrapolation mode\n");
    fcurveFree(c);
}

TEST(FcurveEval, RangeAndStepRounding) {
    Fcurve *c = curveOf({{-1.0f, -0.5f, 0, 0, FCV_LINEAR}, {0.0f, 0.5f, 0, 0, FCV_LINEAR}, {4.0f, 4.5f, 0, 0, FCV_LINEAR}});
    // rangeOn 0 evaluates at time 0 whatever is asked.
    c->rangeOn = 0;
    EXPECT_EQ(fcurveFloatValue(c, 3.0f, 1), 0.5);
    EXPECT_EQ(c->lastTime, 0.0f);
    EXPECT_EQ(fcurveFloatValue(c, 3.0f, 0), 3.5);
    c->rangeOn = 1;
    c->rangeStart = 1.0f, c->rangeEnd = 2.0f;
    EXPECT_EQ(fcurveFloatValue(c, 3.0f, 1), 2.5);
    EXPECT_EQ(fcurveFloatValue(c, -1.0f, 1), 1.5);
    c->rangeEnd = 1.000001f;  // an empty range leaves the time
    EXPECT_EQ(fcurveFloatValue(c, 3.0f, 1), 3.5);

    // 0.5 and -0.5: boolean 1 and 0; integer 1 and 0. The step is the key at
    // or before the time, whatever the interpolation.
    const struct { float time; int asBoolean, step; } rows[] = {
        {0.0f, 1, 1}, {0.0f, 0, 1}, {-1.0f, 1, 0}, {-1.0f, 0, 0}, {-0.01f, 0, 0}, {3.99f, 0, 1}, {4.0f, 0, 5}};
    for (auto row : rows) EXPECT_EQ(fcurveStepValue(c, row.time, 0, row.asBoolean), row.step) << row.time;
    c->keys[2].value = 3e9f;
    EXPECT_EQ(fcurveStepValue(c, 5.0f, 0, 0), INT32_MAX);
    fcurveFree(c);
}

TEST(FcurveEval, ValueByCurveType) {
    Fcurve *c = curveOf({{0.0f, 0.6f, 0, 0, FCV_LINEAR}, {1.0f, -2.0f, 0, 0, FCV_LINEAR}, {2.0f, 2.6f, 0, 0, 0}});
    c->type = 177;  // boolean switch
    EXPECT_EQ(fcurveValue(c, 0.5f, 0), 1.0);
    EXPECT_EQ(fcurveValue(c, 1.5f, 0), 0.0);
    c->type = 175;
    EXPECT_EQ(fcurveValue(c, 2.0f, 0), 1.0);
    fcurveIntegerVisibility = 1;
    EXPECT_EQ(fcurveValue(c, 2.0f, 0), 3.0);
    fcurveIntegerVisibility = 0;
    c->type = 625;  // counter: integer, never below 0
    EXPECT_EQ(fcurveValue(c, 1.5f, 0), 0.0);
    EXPECT_EQ(fcurveValue(c, 2.0f, 0), 3.0);
    c->type = 622;  // wave parameter: float, never below 0
    EXPECT_EQ(fcurveValue(c, 0.5f, 0), 0.0);
    EXPECT_NEAR(fcurveValue(c, 0.1f, 0), 0.6 - 2.6 * 0.1, 1e-7);
    c->type = 113;
    EXPECT_NEAR(fcurveValue(c, 0.5f, 0), -0.7, 1e-7);
    fcurveFree(c);
}

TEST(FcurveEval, DuplicateTimesAndTheHint) {
    // Two keys at one time: the first is found, and no segment of zero length is entered.
    Fcurve *c = curveOf({{0.0f, 0.0f, 0, 0, FCV_SPLINE}, {1.0f, 3.0f, 0, 0, FCV_SPLINE},
                         {1.0f, 5.0f, 0, 0, FCV_SPLINE}, {2.0f, 9.0f, 0, 0, FCV_SPLINE}});
    EXPECT_EQ(fcurveFloatValue(c, 1.0f, 0), 3.0);
    EXPECT_EQ(fcurveStepValue(c, 1.0f, 0, 0), 3);
    EXPECT_NEAR(fcurveFloatValue(c, 1.5f, 0), hermite({1, 5, 0, 0, 2}, {2, 9, 0, 0, 2}, 1.5), 1e-6);
    fcurveFree(c);

    // Forward play, jumps back and random times give exactly what a curve
    // evaluated from a fresh hint gives.
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> step(0.0f, 0.3f), value(-5.0f, 5.0f);
    std::vector<K> keys;
    float t = 0.0f;
    for (int i = 0; i < 50; ++i, t += 0.05f + step(rng))
        keys.push_back({t, value(rng), value(rng), value(rng), static_cast<int16_t>(i % 5)});
    Fcurve *played = curveOf(keys, FCV_EXTRA_PERIODIC, FCV_EXTRA_LINEAR);
    std::uniform_real_distribution<float> any(-5.0f, t + 5.0f);
    for (int i = 0; i < 3000; ++i) {
        float at = i < 1000 ? -1.0f + i * 0.02f : any(rng);
        Fcurve *fresh = fcurveDuplicate(played);
        fresh->currentKey = 0;
        ASSERT_EQ(fcurveFloatValue(played, at, 0), fcurveFloatValue(fresh, at, 0)) << at;
        ASSERT_EQ(fcurveStepValue(played, at, 0, 0), fcurveStepValue(fresh, at, 0, 0)) << at;
        fcurveFree(fresh);
    }
    fcurveFree(played);
}

TEST(FcurveEval, FreezeTimeOfActivationCurves) {
    Fcurve *c = curveOf({{0, 0, 0, 0, 0}, {1, 1, 0, 0, 0}, {2, 0, 0, 0, 0}, {3, 0, 0, 0, 0}, {4, 1, 0, 0, 0}});
    // Before and after the keys the end keys; inside a run of zeros back over
    // the run to the key before it; before a key of 1 the key before stands.
    const struct { float time; int on; float at; } rows[] = {
        {-2.0f, 0, 0.0f}, {1.5f, 1, 1.0f}, {2.5f, 1, 1.0f}, {3.5f, 0, 3.0f}, {9.0f, 1, 4.0f}};
    for (auto row : rows) {
        float at = -1.0f;
        EXPECT_EQ(fcurveFreezeTime(c, row.time, &at), row.on) << row.time;
        EXPECT_EQ(at, row.at) << row.time;
    }
    // A run of zeros from the start stops at the first key.
    c->keys[1].value = 0.0f;
    float at = -1.0f;
    EXPECT_EQ(fcurveFreezeTime(c, 2.5f, &at), 0);
    EXPECT_EQ(at, 0.0f);
    fcurveFree(c);
}
