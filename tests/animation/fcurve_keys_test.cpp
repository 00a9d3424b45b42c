// Keys of a function curve: creation defaults, insertion and merging, the
// computed slopes, removal, sorting, scaling and copies.
#include <gtest/gtest.h>

#include <string>

#include "animation.h"
#include "capture.h"

namespace {

FcurveKey *keyAt(float time, float value, uint16_t type = 0) {
    FcurveKey *k = fcurveKeyNew();
    k->time = time, k->value = value, k->interpolation = FCV_SPLINE, k->keyType = type;
    return k;
}

// A curve with keys at `t` of values `v`, slopes left to compute.
Fcurve *curveAt(std::initializer_list<float> t, std::initializer_list<float> v) {
    Fcurve *c = fcurveCreate(1, 0);
    fcurveKeysAlloc(c, static_cast<int>(t.size()));
    for (size_t i = 0; i < t.size(); ++i) c->keys[i].time = t.begin()[i], c->keys[i].value = v.begin()[i];
    return c;
}

// Values of the keys, in array order.
std::string valuesOf(const Fcurve *c) {
    std::string out;
    for (int i = 0; i < c->keyCount; ++i) out += (i ? " " : "") + std::to_string(static_cast<int>(c->keys[i].value));
    return out;
}

int answer = 0;
int confirmWith(const char *) { return answer; }

}  // namespace

TEST(FcurveKeys, CreationAndInsertionInOrder) {
    // Switches step; other types without their own take the global default.
    fcurveDefaultInterpolation = FCV_LINEAR;
    for (auto [type, interp] : {std::pair{676, FCV_CONSTANT}, {184, FCV_SLOPE0}, {621, FCV_LINEAR}}) {
        Fcurve *c = fcurveCreate(type, 0);
        EXPECT_EQ(c->interpolation, interp) << type;
        fcurveFree(c);
    }
    fcurveDefaultInterpolation = FCV_SPLINE;
    EXPECT_EQ(fcurveAddKey(nullptr, fcurveKeyNew(), 0, 0, 0), -1);  // the key is freed

    // Keys in any order land in time order, past two blocks of 8; slopes are
    // kept up for each key and its neighbours, and the bounds from the first key on.
    Fcurve *c = fcurveCreate(1, 0);
    EXPECT_EQ(c->lastTime, -100000.0f);
    EXPECT_EQ(c->rangeOn, 1);
    for (float t : {5, 1, 3, 2, 4, 0, 9, 8, 7, 6, 10, 12, 11, 14, 13, 16, 15, 17}) {
        int at = fcurveAddKey(c, keyAt(t, t * 2 + 1), 0, 0, 0);
        ASSERT_GE(at, 0);
        EXPECT_EQ(c->keys[at].time, t);
        EXPECT_EQ(c->currentKey, at);
        EXPECT_EQ(c->keys[at].owner, c);
    }
    ASSERT_EQ(c->keyCount, 18);
    for (int i = 0; i < 18; ++i) {
        EXPECT_EQ(c->keys[i].time, static_cast<float>(i));
        EXPECT_EQ(c->keys[i].rightSlope, i == 0 || i == 17 ? 0.0f : 2.0f) << i;
    }
    EXPECT_EQ(c->minValue, 1.0f);
    EXPECT_EQ(c->maxValue, 35.0f);
    fcurveFree(c);
}

TEST(FcurveKeys, MergeWithinTheToleranceInFrames) {
    Fcurve *c = fcurveCreate(1, 0);
    fcurveAddKey(c, keyAt(1.0f, 1.0f), 0, 0, 0);
    fcurveAddKey(c, keyAt(2.0f, 2.0f), 0, 0, 0);
    // 0.1 frame at 30 frames a second: the same key, its time kept without `replace`.
    EXPECT_EQ(fcurveAddKey(c, keyAt(2.0f + 0.1f / 30, 7.0f), 0, 0, 0), 1);
    EXPECT_EQ(c->keys[1].time, 2.0f);
    EXPECT_EQ(c->keys[1].value, 7.0f);
    EXPECT_EQ(c->maxValue, 7.0f);
    EXPECT_EQ(fcurveAddKey(c, keyAt(2.0f + 0.1f / 30, 8.0f), 0, 0, 1), 1);
    EXPECT_FLOAT_EQ(c->keys[1].time, 2.0f + 0.1f / 30);
    // 0.2 frame is another key; at 10 frames a second 0.54 of a frame at 30 merges.
    EXPECT_EQ(fcurveAddKey(c, keyAt(1.0f + 0.2f / 30, 3.0f), 0, 0, 0), 1);
    fcurveFrameRate = 10.0f;
    EXPECT_EQ(fcurveAddKey(c, keyAt(1.018f, 4.0f), 0, 0, 0), 1);
    fcurveFrameRate = 30.0f;
    EXPECT_EQ(valuesOf(c), "1 4 8");

    // Asking: an ordinary key is replaced with a note; a locked one only on
    // yes, and stays locked; without asking it is replaced silently.
    c->keys[0].keyType = FCVKEY_KEYFRAME;
    {
        bwtest::StreamCapture out(stdout);
        EXPECT_EQ(fcurveAddKey(c, keyAt(2.0f, 9.0f), 0, 1, 0), 2);
        EXPECT_EQ(fcurveAddKey(c, keyAt(1.0f, 9.0f), 0, 1, 0), -1);
        EXPECT_EQ(out.text(), "Overlapping keys, new one replaces old.\nDo you want to replace the locked key?\n");
    }
    fcurveConfirm = confirmWith;
    answer = 0;
    EXPECT_EQ(fcurveAddKey(c, keyAt(1.0f, 5.0f), 0, 1, 0), -1);
    EXPECT_EQ(valuesOf(c), "1 4 9");
    answer = 1;
    EXPECT_EQ(fcurveAddKey(c, keyAt(1.0f, 5.0f, FCVKEY_RAWDATA), 0, 1, 0), 0);
    EXPECT_EQ(c->keys[0].keyType, FCVKEY_KEYFRAME);
    EXPECT_EQ(fcurveAddKey(c, keyAt(1.0f, 6.0f), 0, 0, 0), 0);
    EXPECT_EQ(valuesOf(c), "6 4 9");
    fcurveConfirm = nullptr;
    fcurveFree(c);
}

TEST(FcurveKeys, ComputedSlopes) {
    Fcurve *c = curveAt({0, 1, 3, 4, 6}, {0, 2, 10, 4, 4});
    for (int i = 0; i < 5; ++i) c->keys[i].interpolation = FCV_SPLINE;
    fcurveSlopes(c);
    EXPECT_EQ(c->keys[0].rightSlope, 0.0f);  // the ends are flat
    EXPECT_EQ(c->keys[4].leftSlope, 0.0f);
    EXPECT_FLOAT_EQ(c->keys[1].leftSlope, 10.0f / 3);  // chord of the neighbours
    EXPECT_FLOAT_EQ(c->keys[2].rightSlope, 2.0f / 3);

    FcurveKey &k = c->keys[1];
    k.flag = FCVKEY_BROKEN;  // each side its own chord
    fcurveKeySlopes(c, 1);
    EXPECT_FLOAT_EQ(k.leftSlope, 2.0f);
    EXPECT_FLOAT_EQ(k.rightSlope, 4.0f);
    k.flag = FCVKEY_USER_SLOPES | FCVKEY_BROKEN, k.leftSlope = -1, k.rightSlope = 7;  // user slopes stay
    fcurveKeySlopes(c, 1);
    EXPECT_EQ(k.leftSlope, -1.0f);
    k.flag = FCVKEY_USER_SLOPES;  // unbroken: the right slope on both sides
    fcurveKeySlopes(c, 1);
    EXPECT_EQ(k.leftSlope, 7.0f);
    k.flag = 0, k.interpolation = FCV_SLOPE0;
    fcurveKeySlopes(c, 1);
    EXPECT_EQ(k.rightSlope, 0.0f);

    // Plateau: flat at an extreme (key 2) and next to a value within 1% (key 3).
    for (int i = 1; i < 4; ++i) c->keys[i].interpolation = FCV_PLATEAU;
    fcurveSlopes(c);
    EXPECT_FLOAT_EQ(c->keys[1].rightSlope, 10.0f / 3);  // on the way up
    EXPECT_EQ(c->keys[2].leftSlope, 0.0f);
    c->keys[4].value = 4.039f;
    fcurveKeySlopes(c, 3);
    EXPECT_EQ(c->keys[3].rightSlope, 0.0f);
    c->keys[4].value = 3.9f;  // beyond 1%, and no extreme: a slope again
    fcurveKeySlopes(c, 3);
    EXPECT_FLOAT_EQ(c->keys[3].rightSlope, (3.9f - 10.0f) / 3);
    // A value of 0 has no tolerance: only an exact tie flattens it.
    c->keys[2].value = 0.0f, c->keys[1].value = -1e-7f, c->keys[3].value = 5.0f;
    fcurveKeySlopes(c, 2);
    EXPECT_FLOAT_EQ(c->keys[2].rightSlope, (5.0f + 1e-7f) / 3);
    c->keys[1].value = 0.0f;
    fcurveKeySlopes(c, 2);
    EXPECT_EQ(c->keys[2].rightSlope, 0.0f);
    fcurveFree(c);
}

TEST(FcurveKeys, KeyAccessRemovalSortAndCopy) {
    Fcurve *c = fcurveCreate(1, 0);
    for (int i = 0; i < 6; ++i) fcurveAddKey(c, keyAt(static_cast<float>(i), static_cast<float>(i)), 0, 0, 0);
    EXPECT_EQ(fcurveKey(c, 6), &c->keys[5]);
    {
        bwtest::StreamCapture out(stderr);
        EXPECT_EQ(fcurveKey(c, 0), nullptr);
        EXPECT_EQ(fcurveKey(c, 7), nullptr);
        EXPECT_EQ(out.text(), "Fatal Error: fcurveKey, index out of range 0 (1, 6)\n"
                              "Fatal Error: fcurveKey, index out of range 7 (1, 6)\n");
    }
    // Removing key 6 makes key 5 the last, flat at its end.
    EXPECT_EQ(fcurveDeleteKey(c, 6), 1);
    EXPECT_EQ(fcurveDeleteKey(c, 6), 0);
    EXPECT_EQ(c->keys[4].rightSlope, 0.0f);
    c->keys[1].selected = c->keys[3].selected = 1;
    EXPECT_EQ(fcurveDeleteKeys(c, 1, 3, 1), 1);  // of keys 1 to 3 only key 2 is selected
    EXPECT_EQ(fcurveDeleteKeys(c, 0, 2, 0), 2);
    EXPECT_EQ(valuesOf(c), "3 4");
    // A time scale divides user slopes and re-sorts; a zero scale makes them 100000.
    c->keys[1].flag = FCVKEY_USER_SLOPES | FCVKEY_BROKEN, c->keys[1].leftSlope = 2, c->keys[1].rightSlope = 4;
    EXPECT_EQ(fcurveScaleTime(c, 3.5f, 5.0f, 0.0f, 0.5f), 1);
    EXPECT_EQ(valuesOf(c), "4 3");
    EXPECT_EQ(c->keys[0].rightSlope, 8.0f);
    fcurveScaleTime(c, 2.0f, 2.0f, 2.0f, 0.0f);
    EXPECT_EQ(c->keys[0].leftSlope, 100000.0f);

    // Sorting leaves keys within 1e-5 of each other in their order.
    fcurveKeysAlloc(c, 4);
    const float t[] = {3.0f, 1.0f, 1.000004f, 0.999999f};
    for (int i = 0; i < 4; ++i) c->keys[i].time = t[i], c->keys[i].value = static_cast<float>(i);
    fcurveSortKeys(c);
    EXPECT_EQ(valuesOf(c), "1 2 3 0");

    // A copy owns its keys, with room to grow, and drops the child.
    c->child = fcurveCreate(2, 0);
    Fcurve *copy = fcurveDuplicate(c);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->child, nullptr);
    EXPECT_NE(copy->keys, c->keys);
    EXPECT_EQ(copy->keys[3].owner, copy);
    EXPECT_EQ(fcurveAddKey(copy, keyAt(9, 9), 0, 0, 0), 4);
    fcurveFree(copy);
    fcurveFree(c);  // the child too
}
