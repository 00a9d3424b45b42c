// Wave files: a file written here keyword by keyword from the table of the
// formats notes, the values each kind takes, unknown groups passed over, the
// files refused with the message that names them, and the writer's output
// read back.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "animation.h"
#include "capture.h"
#include "model.h"

using namespace bwtest;

namespace {

constexpr float kDeg = 0.0174532925f;

struct WaveHolder {
    Wave *wave;
    explicit WaveHolder(Wave *w) : wave(w) {}
    ~WaveHolder() { waveFree(wave); }
};

}  // namespace

TEST(WaveFile, KeywordsFillTheRecordAndUnknownGroupsArePassedOver) {
    TempDir dir;
    // Every group on a line of its own but two on one line; the last value
    // ends the file without a line feed.
    const std::string path = dir.write("ripple.wav",
                                       "SWAV 1.0\n"
                                       "NAME ripple\n"
                                       "SRT 1 2 0.5  0 90 -45  3 0 -1\n"
                                       "AMPLITUDE 0.5 SPEED 3\n"
                                       "COLOUR 3 4 RED blue ;\n"
                                       "PLANAR 1\nMOVE_X 1\nMOVE_Y 0\n"
                                       "DURATION 12.5\nSTART -3\nDAMPING -2\nONE_SHOT 0.2\n"
                                       "PHASE -30");
    OutputCapture out;
    WaveHolder h(waveFileRead(path.c_str()));
    ASSERT_NE(h.wave, nullptr);
    const Wave &w = *h.wave;
    EXPECT_STREQ(w.name, "ripple");
    EXPECT_STREQ(w.transfo->name, "ripple");
    EXPECT_EQ(w.transfo->type, MODEL_TYPE_NULL);
    const float scale[3] = {1, 2, 0.5f}, rotation[3] = {0, 90 * kDeg, -45 * kDeg}, position[3] = {3, 0, -1};
    for (int k = 0; k < 3; ++k) {
        EXPECT_FLOAT_EQ(w.transfo->scaling[k], scale[k]);
        EXPECT_FLOAT_EQ(w.transfo->rotation[k], rotation[k]);
        EXPECT_FLOAT_EQ(w.transfo->translation[k], position[k]);
    }
    EXPECT_EQ(w.value[WAVE_AMPLITUDE], 0.5f);
    EXPECT_EQ(w.value[WAVE_SPEED], 3.0f);
    EXPECT_EQ(w.value[WAVE_PLANAR], 1.0f);
    EXPECT_EQ(w.value[WAVE_MOVE_X], 1.0f);
    EXPECT_EQ(w.value[WAVE_MOVE_Y], 0.0f);
    EXPECT_EQ(w.value[WAVE_DURATION], 13.0f);  // a count rounds half up
    EXPECT_EQ(w.value[WAVE_START], 0.0f);      // and is at least 0
    EXPECT_EQ(w.value[WAVE_DAMPING], 0.0f);    // sizes are at least 0
    EXPECT_EQ(w.value[WAVE_ONE_SHOT], 1.0f);   // a switch is on when positive
    EXPECT_EQ(w.value[WAVE_PHASE], -30.0f);    // free reals stand
    // Not given: the table's defaults.
    EXPECT_EQ(w.value[WAVE_ACTIVE], 1.0f);
    EXPECT_EQ(w.value[WAVE_WAVELENGTH], 4.0f);
    EXPECT_EQ(w.value[WAVE_DIRECTION], 0.0f);
    EXPECT_EQ(w.value[WAVE_MOVE_Z], 0.0f);
    for (int i = 0; i < WAVE_PARAM_COUNT; ++i) {
        EXPECT_EQ(w.current[i], w.value[i]) << i;
        EXPECT_EQ(w.curve[i], nullptr);
        EXPECT_EQ(g_waveParams[i].type, WAVE_CURVE_FIRST + i);
        EXPECT_EQ(waveParamIndex(WAVE_CURVE_FIRST + i), i);
    }
    EXPECT_EQ(waveParamIndex(619), -1);
    EXPECT_EQ(waveParamIndex(634), -1);
    EXPECT_EQ(out.out.text() + out.err.text(), "");
}

TEST(WaveFile, AHeaderAloneGivesTheDefaults) {
    TempDir dir;
    const std::string path = dir.write("bare.wav", "SWAV 2\n");
    WaveHolder h(waveFileRead(path.c_str()));
    ASSERT_NE(h.wave, nullptr);
    EXPECT_EQ(h.wave->name, nullptr);
    EXPECT_STREQ(h.wave->transfo->name, "wave");
    EXPECT_EQ(h.wave->transfo->scaling[1], 1.0f);
    EXPECT_EQ(h.wave->value[WAVE_MOVE_Y], 1.0f);
    EXPECT_EQ(h.wave->value[WAVE_SPEED], 2.0f);
}

TEST(WaveFile, MalformedFilesAreRefusedNamingTheFile) {
    TempDir dir;
    struct Case {
        const char *text;     // the file
        const char *message;  // after "WaveAsciiRead: Error file <path>"
    };
    const std::string zero("SWAV 1.0\nAMPLITUDE 1\0x\n", 23);
    const Case cases[] = {
        {"SLAT 1.0\nAMPLITUDE 1\n", " is not a wave file"},
        {"SWAV\n", " is not a wave file"},              // no version
        {"SWAV one\nAMPLITUDE 1\n", " is not a wave file"},
        {"AMPLITUDE 1\n", " is not a wave file"},
        {"SWAV 1.0\nAMPLITUDE high\n", ": invalid AMPLITUDE value 'high'"},
        {"SWAV 1.0\nSPEED 2x\n", ": invalid SPEED value '2x'"},
        {"SWAV 1.0\nPHASE nan\n", ": invalid PHASE value 'nan'"},
        {"SWAV 1.0\nSRT 1 1 1 0 0 0 0 0\n", ": SRT wants 9 values, 8 given"},
        {"SWAV 1.0\nSRT 1 1 1 0 ; 0 0 0 0\n", ": invalid SRT value ';'"},
        {"SWAV 1.0\nACTIVE\n", ": ACTIVE wants 1 values, 0 given"},
        {"SWAV 1.0\nNAME", ": NAME wants 1 values, 0 given"},
        {"SWAV 1.0\nAMPLITUDE 1\nSPEED 3\xff\n", ": unreadable character after '3'"},
    };
    for (const Case &c : cases) {
        const std::string path = dir.write("bad.wav", c.text);
        OutputCapture out;
        EXPECT_EQ(waveFileRead(path.c_str()), nullptr) << c.text;
        EXPECT_EQ(out.out.text() + out.err.text(),
                  "WaveAsciiRead: Error file " + path + c.message + "\n")
            << c.text;
    }
    // A character the token reader refuses, inside a value: "3" and a zero byte.
    const std::string path = dir.write("zero.wav", zero);
    OutputCapture out;
    EXPECT_EQ(waveFileRead(path.c_str()), nullptr);
    EXPECT_EQ(out.out.text() + out.err.text(),
              "WaveAsciiRead: Error file " + path + ": unreadable character after '1'\n");
}

TEST(WaveFile, AMissingFileIsToldOnTheErrorStream) {
    TempDir dir;
    OutputCapture out;
    EXPECT_EQ(waveFileRead((dir / "none.wav").c_str()), nullptr);
    EXPECT_EQ(out.err.text(), "ERROR: Cannot open file " + (dir / "none.wav") + "\n");
}

TEST(WaveFile, WrittenFileReadsBackTheSameWave) {
    TempDir dir;
    WaveHolder h(waveNew("swell"));
    ASSERT_NE(h.wave, nullptr);
    Wave &w = *h.wave;
    for (int i = 0; i < WAVE_PARAM_COUNT; ++i) w.value[i] = waveParamTake(i, 0.37 * (i + 1) - 1.3);
    const float s[3] = {1.5f, 2, 0.25f}, r[3] = {0.1f, -1.2f, 3.0f}, p[3] = {-4, 5.5f, 1e-3f};
    for (int k = 0; k < 3; ++k)
        w.transfo->scaling[k] = s[k], w.transfo->rotation[k] = r[k], w.transfo->translation[k] = p[k];
    ASSERT_EQ(waveFileWrite((dir / "swell.wav").c_str(), w), 1);
    WaveHolder back(waveFileRead((dir / "swell.wav").c_str()));
    ASSERT_NE(back.wave, nullptr);
    EXPECT_STREQ(back.wave->name, "swell");
    for (int i = 0; i < WAVE_PARAM_COUNT; ++i) EXPECT_EQ(back.wave->value[i], w.value[i]) << i;
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(back.wave->transfo->scaling[k], s[k]);
        EXPECT_NEAR(back.wave->transfo->rotation[k], r[k], 1e-6);
        EXPECT_EQ(back.wave->transfo->translation[k], p[k]);
    }
    // A name the reader would split is refused, and no file is left half made.
    free(w.name);
    w.name = strdup("two words");
    OutputCapture out;
    EXPECT_EQ(waveFileWrite((dir / "split.wav").c_str(), w), 0);
    EXPECT_FALSE(std::filesystem::exists(dir / "split.wav"));
    EXPECT_EQ(out.err.text(), "WaveAsciiWrite: Error file " + (dir / "split.wav") +
                                  ": the name 'two words' is not one word\n");
}
