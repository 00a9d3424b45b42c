// Text forms of a curve: the keyword form and .fraw files, written and read
// back, and the messages of bad input.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "animation.h"
#include "capture.h"

namespace {

Fcurve *sample() {
    Fcurve *c = fcurveCreate(113, 0);
    c->preMode = FCV_EXTRA_LINEAR, c->postMode = FCV_EXTRA_PERIODIC, c->flags = 6, c->interpolation = FCV_LINEAR;
    fcurveKeysAlloc(c, 3);
    const float t[] = {0.0f, 0.5f, 2.0f}, v[] = {1.0f, -2.25f, 0.1f};
    for (int i = 0; i < 3; ++i) {
        FcurveKey &k = c->keys[i];
        k.time = t[i], k.value = v[i], k.leftSlope = 0.3f * i, k.rightSlope = -0.7f * i;
        k.interpolation = static_cast<int16_t>(i + 2), k.flag = static_cast<uint16_t>(i);
        k.keyType = static_cast<uint16_t>(i);
    }
    c->keys[2].splineIndex = 12;
    return c;
}

std::string textOf(FILE *f) {
    std::string out;
    rewind(f);
    for (int ch; (ch = getc(f)) != EOF;) out.push_back(static_cast<char>(ch));
    return out;
}

// The keyword form of `c`, and a line that follows it in the stream.
std::string writeText(const Fcurve *c) {
    FILE *f = tmpfile();
    EXPECT_EQ(fcurveAsciiWrite(f, c), 1);
    fputs("NEXT 1\n", f);
    std::string out = textOf(f);
    fclose(f);
    return out;
}

// A curve read from `text`; what the reader left of the stream goes to `rest`.
Fcurve *readText(const std::string &text, std::string *rest = nullptr) {
    FILE *f = tmpfile();
    fputs(text.c_str(), f);
    rewind(f);
    Fcurve *c = fcurveAsciiRead(f);
    if (rest) {
        long at = ftell(f);
        *rest = textOf(f).substr(static_cast<size_t>(at));
    }
    fclose(f);
    return c;
}

}  // namespace

TEST(FcurveText, KeywordForm) {
    Fcurve *c = sample();
    const std::string text = writeText(c);
    EXPECT_EQ(text.substr(0, text.find("  TIME 0.5")),
              "CURVE_TYPE 113\nPRE_EXTRAPOLATION 1\nPOST_EXTRAPOLATION 2\nFLAGS 6\nINTERPOLATION LINEAR\nKEYS 3\n"
              "  TIME 0 VALUE 1 LEFT_SLOPE 0 RIGHT_SLOPE -0 INTERPOLATION SPLINE FLAG 0 KEYTYPE FREEFORM\n");
    EXPECT_NE(text.find("INTERPOLATION PLATEAU FLAG 2 SPLINE_INDEX 12 KEYTYPE KEYPATH\n"), std::string::npos);
    // Read back and written again the text is the same, and the reader stops
    // right behind the curve's last key.
    std::string rest;
    Fcurve *back = readText(text, &rest);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(rest, "NEXT 1\n");
    EXPECT_EQ(writeText(back), text);
    EXPECT_EQ(back->keys[2].owner, back);
    EXPECT_EQ(back->minValue, -2.25f);
    fcurveFree(back);
    fcurveFree(c);

    // Words in any order; keys take the curve's interpolation unless they give one.
    c = readText("INTERPOLATION CONSTANT CURVE_TYPE 175\nKEYS 1\nVALUE 4 TIME 2 KEYTYPE KEYFRAME\n");
    ASSERT_NE(c, nullptr);
    ASSERT_EQ(c->keyCount, 1);
    EXPECT_EQ(c->keys[0].time, 2.0f);
    EXPECT_EQ(c->keys[0].interpolation, FCV_CONSTANT);
    EXPECT_EQ(c->keys[0].keyType, FCVKEY_KEYFRAME);
    fcurveFree(c);

    const struct {
        const char *text, *message;
    } cases[] = {
        {"INTERPOLATION CUBIC KEYS 0\n", "FcurveAsciiRead: error, unknown interp bw_chrToken 'CUBIC'.\n"},
        {"KEYS 1 TIME 0 KEYTYPE LOCKED\n", "FcvkeyAsciiRead: error, unknown keytype bw_chrToken 'LOCKED'.\n"},
        {"KEYS 2000000000 TIME 0 KEYTYPE FREEFORM\n", "FcvkeyAsciiRead: error, the key ends before its KEYTYPE.\n"},
        {"CURVE_TYPE 1\n", "FcurveAsciiRead: error, the curve ends before its KEYS.\n"},
        {"PRE_EXTRAPOLATION 3 KEYS 0", "FcurveAsciiRead: error, bad value '3' of PRE_EXTRAPOLATION.\n"},
    };
    for (const auto &row : cases) {
        bwtest::StreamCapture out(stderr);
        EXPECT_EQ(readText(row.text), nullptr) << row.text;
        EXPECT_EQ(out.text(), row.message) << row.text;
    }
}

TEST(FcurveText, RawFiles) {
    bwtest::TempDir dir;
    Fcurve *c = sample();
    const std::string path = dir / "curve.fraw";
    ASSERT_EQ(fcurveRawWrite(path.c_str(), c), 1);
    FILE *f = fopen(path.c_str(), "r");
    EXPECT_EQ(textOf(f), "3 1\n0.000000 1.000000 0.000000 -0.000000\n0.500000 -2.250000 0.300000 -0.700000\n"
                         "2.000000 0.100000 0.600000 -1.400000\n");
    fclose(f);
    Fcurve *back = fcurveRawRead(path.c_str());
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->keyCount, 3);
    EXPECT_FLOAT_EQ(back->keys[2].rightSlope, -1.4f);
    EXPECT_EQ(back->keys[2].interpolation, FCV_LINEAR);  // every key takes the file's
    FcurveKey *late = fcurveKeyNew();
    late->time = 9.0f;
    EXPECT_EQ(fcurveAddKey(back, late, 0, 0, 0), 3);  // room for it: keys come in blocks of 8
    fcurveFree(back);

    // Older writers put "2d" for the interpolation, which "%hud" reads.
    back = fcurveRawRead(dir.write("old.fraw", "1 2d\n0.5 2 0 0\n").c_str());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->keys[0].interpolation, FCV_SPLINE);
    fcurveFree(back);

    const std::string cut = dir.write("cut.fraw", "3 2\n0.0 0.0 0.0 0.0\n1 1 1 x\n");
    const std::string lying = dir.write("lying.fraw", "900000000 2\n0 0 0 0\n");
    bwtest::StreamCapture out(stderr);
    EXPECT_EQ(fcurveRawRead(cut.c_str()), nullptr);
    EXPECT_EQ(fcurveRawRead(lying.c_str()), nullptr);
    EXPECT_EQ(fcurveRawWrite((dir / "no/dir.fraw").c_str(), c), 0);
    EXPECT_EQ(out.text(), "Unable to read raw fcurve " + cut + "\nCannot allocate raw fcurve keys\n" +
                              "Unable to read raw fcurve " + lying + "\nUnable to write raw fcurve file " +
                              dir / "no/dir.fraw" + "\n");
    fcurveFree(c);
}
