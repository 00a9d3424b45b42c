// Scene setup files: every section of a written file with keywords the
// reader does not know, the messages of bad values, and the round trip.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "capture.h"
#include "dictionary.h"

using bwtest::OutputCapture;
using bwtest::TempDir;

namespace {

// Reads `text` as a setup file; the messages go to `messages`.
int readText(const TempDir &dir, const std::string &text, SceneSetup *setup,
             std::string *messages = nullptr) {
    std::string path = dir.write("scene.1-0.sts", text);
    OutputCapture capture;
    int ok = sceneSetupRead(path.c_str(), setup);
    std::string err = capture.err.text();
    if (messages) *messages = err;
    return ok;
}

std::string joined(const SetupLine &line) {
    std::string out;
    for (const std::string &t : line.tokens) out += (out.empty() ? "" : " ") + t;
    return out;
}

// One group per section heading, each followed by a keyword of no section.
const char *const kEverySection =
    "SSET 3.9\n"
    "PLAYCTRL FRAME 5 80 12 2 PAUSE 1 RATE 25 EndOfPLAYCTRL\n"
    "PLAY_UNKNOWN 1 2\n"
    "SHOW_FLAG 1\nSHW_POINTS 0\nSHOW_UNKNOWN 7 'name'\n"
    "PREFERENCE 3\nPREF_UNKNOWN x\n"
    "DIAL_MOUSE_POS 1\nDIAL_UNKNOWN\n"
    "AUTO_SAVE_ACTIVE ACTIVE\nAUTO_SAVE_PERIOD 15\nAUTO_SAVE_UNKNOWN 3\n"
    "PREF_SCALING_INCREMENT 0.1\nINCR_UNKNOWN 0.5\n"
    "WINDOW_TYPE L0_PERSPECTIVE CAMERA_TYPE 2\nWINDOW_UNKNOWN 4\n"
    "CAMERA_POSITION 0 1 2\nCAMERA_FOV 45\nCAM_UNKNOWN 1\n"
    "WINDOW_SIZE 640 480\nVIEW_UNKNOWN 1\n"
    "RENDERING_TYPE WIRE_FRAME\nSHADING_UNKNOWN 2\n"
    "FORMAT_TYPE NTSC\nFORMAT_UNKNOWN 1\n"
    "DUP_MATERIAL_DUP 1\nDUP_MATERIAL_COPY 0\n"
    "SCHEM_SORT_TYPE 2\nSCHEM_UNKNOWN 1\n"
    "AMBIENT_COLOR 0.1 0.25 0.5\nTWO_SIDED_LIGHTING 1\nTWO_SIDED_OVERRIDE 1\nLIGHT_UNKNOWN 9\n"
    "TEXTURE_PXL_INTERPOLATION_MODE ALWAYS_OFF\nBLENDING 1\nTXT_DPY_GLOBAL 0\nTXT_DPY_LOCAL 0\n"
    "TXT_DPY_TILING 1\nTXT_DPY_MIRROR 1\nTXT_UNKNOWN 1\n"
    "PRW_GLOBALS 1 2\nPREVIEW_TYPE_MR 0\nPRW_UNKNOWN 3\n"
    "UDF_NAME 'shader'\nUDF_UNKNOWN 1\n"
    "AUDIOTRACK 'track' 0\nAUDIO_UNKNOWN 1\n";

}  // namespace

TEST(SetupFileTest, EverySectionTakesItsSettingsAndKeepsTheRest) {
    TempDir dir;
    SceneSetup s;
    std::string messages;
    ASSERT_EQ(readText(dir, kEverySection, &s, &messages), 1);
    // Only the unknown keyword among the render globals is reported.
    EXPECT_EQ(messages, "renderGlobalsAsciiRead: error, token 'PRW_UNKNOWN' unknown.\n");

    EXPECT_EQ(std::tie(s.version, s.firstFrame, s.lastFrame, s.currentFrame, s.frameStep, s.pause, s.frameRate,
                       s.autoSaveActive, s.autoSavePeriod),
              std::tuple(3.9f, 5, 80, 12, 2, 1, 25.0f, 1, 15));
    EXPECT_EQ(std::vector<float>(s.ambient, s.ambient + 3), (std::vector<float>{0.1f, 0.25f, 0.5f}));
    EXPECT_EQ(std::tie(s.twoSided, s.twoSidedOverride, s.texInterpolation, s.texBlending, s.texGlobal, s.texLocal,
                       s.texTiling, s.texMirror),
              std::tuple(1, 1, SETUP_TXT_ALWAYS_OFF, 1, 0, 0, 1, 1));

    // The other groups, as read, each in the section of the keyword before it.
    const std::pair<const char *, const char *> kept[] = {
        {"PLAY_UNKNOWN 1 2", "play control"},
        {"SHOW_FLAG 1", "show flags"},
        {"SHW_POINTS 0", "show flags"},
        {"SHOW_UNKNOWN 7 'name'", "show flags"},
        {"PREFERENCE 3", "preferences"},
        {"PREF_UNKNOWN x", "preferences"},
        {"DIAL_MOUSE_POS 1", "dialogs"},
        {"DIAL_UNKNOWN", "dialogs"},
        {"AUTO_SAVE_UNKNOWN 3", "auto save"},
        {"PREF_SCALING_INCREMENT 0.1", "increments"},
        {"INCR_UNKNOWN 0.5", "increments"},
        {"WINDOW_TYPE L0_PERSPECTIVE", "windows"},
        {"CAMERA_TYPE 2", "windows"},
        {"WINDOW_UNKNOWN 4", "windows"},
        {"CAMERA_POSITION 0 1 2", "view cameras"},
        {"CAMERA_FOV 45", "view cameras"},
        {"CAM_UNKNOWN 1", "view cameras"},
        {"WINDOW_SIZE 640 480", "view options"},
        {"VIEW_UNKNOWN 1", "view options"},
        {"RENDERING_TYPE WIRE_FRAME", "shading"},
        {"SHADING_UNKNOWN 2", "shading"},
        {"FORMAT_TYPE NTSC", "format"},
        {"FORMAT_UNKNOWN 1", "format"},
        {"DUP_MATERIAL_DUP 1", "duplication"},
        {"DUP_MATERIAL_COPY 0", "duplication"},
        {"SCHEM_SORT_TYPE 2", "schematic"},
        {"SCHEM_UNKNOWN 1", "schematic"},
        {"LIGHT_UNKNOWN 9", "scene lighting"},
        {"TXT_UNKNOWN 1", "texture display"},
        {"PRW_GLOBALS 1 2", "render globals"},
        {"PREVIEW_TYPE_MR 0", "render globals"},
        {"PRW_UNKNOWN 3", "render globals"},
        {"UDF_NAME 'shader'", "shaders"},
        {"UDF_UNKNOWN 1", "shaders"},
        {"AUDIOTRACK 'track' 0", "audio"},
        {"AUDIO_UNKNOWN 1", "audio"},
    };
    ASSERT_EQ(s.lines.size(), std::size(kept));
    for (size_t i = 0; i < s.lines.size(); i++) {
        EXPECT_EQ(joined(s.lines[i]), kept[i].first) << i;
        ASSERT_NE(sceneSetupSectionName(s.lines[i].section), nullptr) << i;
        EXPECT_STREQ(sceneSetupSectionName(s.lines[i].section), kept[i].second) << i;
    }
}

TEST(SetupFileTest, ValuesOfAGroupEndAtAWordInCapitals) {
    TempDir dir;
    SceneSetup s;
    // Lower-case words, quoted names, numbers and ';' are values; a word in
    // capitals that the keyword does not list starts a group of its own. A
    // keyed setting takes its first value whatever it is.
    ASSERT_EQ(readText(dir,
                       "SSET 1\nlead 1\nMYSTERY a 'b c' ; 2 X OTHER_WORD 3\n"
                       "WINDOW_TYPE NEW_LAYOUT 2\nFORMAT_TYPE 35MM_185\n",
                       &s),
              1);
    ASSERT_EQ(s.lines.size(), 5u);
    EXPECT_EQ(joined(s.lines[0]), "lead 1");
    EXPECT_EQ(s.lines[0].section, -1);
    EXPECT_EQ(joined(s.lines[1]), "MYSTERY a 'b c' ; 2 X");
    EXPECT_EQ(joined(s.lines[2]), "OTHER_WORD 3");
    EXPECT_EQ(joined(s.lines[3]), "WINDOW_TYPE NEW_LAYOUT 2");
    EXPECT_EQ(joined(s.lines[4]), "FORMAT_TYPE 35MM_185");

    // Line ends of another system group the same way: a carriage return is
    // no part of a word, so OTHER_WORD still starts its own group.
    SceneSetup crlf;
    ASSERT_EQ(readText(dir, "SSET 1\r\nMYSTERY a\r\r\nOTHER_WORD 3\r\nAMBIENT_COLOR 1 0 0\r\n", &crlf), 1);
    ASSERT_EQ(crlf.lines.size(), 2u);
    EXPECT_EQ(joined(crlf.lines[0]), "MYSTERY a");
    EXPECT_EQ(joined(crlf.lines[1]), "OTHER_WORD 3");
    EXPECT_FLOAT_EQ(crlf.ambient[1], 0.0f);
}

TEST(SetupFileTest, BadValuesReportAndKeepTheDefault) {
    TempDir dir;
    struct Case {
        const char *body;      // after the header
        const char *messages;  // exact error stream
    } cases[] = {
        {"TEXTURE_PXL_INTERPOLATION_MODE SOMETIMES\n",
         "SceneAsciiRead: error, unknown texture interpolation token 'SOMETIMES'.\n"},
        {"TEXTURE_PXL_INTERPOLATION_MODE BLENDING 1\n",
         "SceneAsciiRead: error, unknown texture interpolation token 'BLENDING'.\n"},
        {"AUTO_SAVE_ACTIVE maybe\n", "SceneAsciiRead: error, unknown auto save token 'maybe'.\n"},
        {"AUTO_SAVE_PERIOD 0\n",
         "AutoSave : invalid time period. Using default value of 1 minute.\n"},
        {"AUTO_SAVE_PERIOD soon\n",
         "AutoSave : invalid time period. Using default value of 1 minute.\n"},
        {"AUTO_SAVE_PERIOD\n",
         "AutoSave : invalid time period. Using default value of 1 minute.\n"},
        {"PRW_GLOBALS 1\nMR_SAMPLES 4\nMR_DEPTH 2\n",
         "renderGlobalsAsciiRead: error, token 'MR_SAMPLES' unknown.\n"
         "renderGlobalsAsciiRead: error, token 'MR_DEPTH' unknown.\n"},
        {"AMBIENT_COLOR 0.5 grey 0.5\n", "SceneAsciiRead: error, invalid AMBIENT_COLOR value 'grey'.\n"},
        {"AMBIENT_COLOR 0.5 0.5\n", "SceneAsciiRead: error, AMBIENT_COLOR wants 3 values, 2 given.\n"},
        {"TWO_SIDED_LIGHTING yes\n", "SceneAsciiRead: error, invalid TWO_SIDED_LIGHTING value 'yes'.\n"},
        {"PLAYCTRL FRAME 1 2 x 4\n", "SceneAsciiRead: error, invalid PLAYCTRL value 'x'.\n"},
    };
    for (const Case &c : cases) {
        SceneSetup s;
        s.autoSavePeriod = 7;  // a bad period falls back to 1, not to what stood
        std::string messages;
        ASSERT_EQ(readText(dir, std::string("SSET 1\n") + c.body, &s, &messages), 1) << c.body;
        EXPECT_EQ(messages, c.messages) << c.body;
        SceneSetup defaults;
        EXPECT_EQ(s.texInterpolation, defaults.texInterpolation) << c.body;
        EXPECT_EQ(s.autoSaveActive, defaults.autoSaveActive) << c.body;
        EXPECT_EQ(s.ambient[1], defaults.ambient[1]) << c.body;
        EXPECT_EQ(s.twoSided, defaults.twoSided) << c.body;
        EXPECT_EQ(s.lastFrame, defaults.lastFrame) << c.body;
        if (std::string(c.body).rfind("AUTO_SAVE_PERIOD", 0) == 0) {
            EXPECT_EQ(s.autoSavePeriod, 1);
        }
    }
}

TEST(SetupFileTest, MissingOrForeignFileLeavesTheRecord) {
    TempDir dir;
    SceneSetup s;
    s.frameRate = 24.0f;
    s.lines.push_back({3, {"KEEP"}});
    {
        OutputCapture capture;
        EXPECT_EQ(sceneSetupRead((dir / "none.sts").c_str(), &s), 0);
        EXPECT_EQ(capture.err.text(), "");
    }
    std::string messages;
    EXPECT_EQ(readText(dir, "SDSC 1\nAMBIENT_COLOR 1 1 1\n", &s, &messages), 0);
    EXPECT_EQ(messages, "SceneAsciiRead: error, " + (dir / "scene.1-0.sts") +
                            " is not a setup file.\n");
    EXPECT_FLOAT_EQ(s.frameRate, 24.0f);
    EXPECT_FLOAT_EQ(s.ambient[0], 0.2f);
    ASSERT_EQ(s.lines.size(), 1u);
}

TEST(SetupFileTest, WrittenFileReadsBackTheSameRecordAndLines) {
    TempDir dir;
    SceneSetup first;
    ASSERT_EQ(readText(dir, std::string(kEverySection) + "\n", &first), 1);
    // Something before the first keyword, and a group cut by a word in capitals.
    SceneSetup extra;
    ASSERT_EQ(readText(dir, "SSET 2\nlead 'x'\nSHOW_FLAG 1 ODD 2\nZOOM 3\n", &extra), 1);
    for (SceneSetup *original : {&first, &extra}) {
        std::string path = dir / "written.sts";
        ASSERT_EQ(sceneSetupWrite(path.c_str(), *original), 1);
        SceneSetup again;
        OutputCapture capture;
        ASSERT_EQ(sceneSetupRead(path.c_str(), &again), 1);
        capture.err.text();
        EXPECT_TRUE(again == *original);
        ASSERT_EQ(again.lines.size(), original->lines.size());
        for (size_t i = 0; i < again.lines.size(); i++) EXPECT_EQ(again.lines[i].tokens, original->lines[i].tokens) << i;
    }
}
