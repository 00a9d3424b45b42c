// The font table and the graphic calls that refuse null arguments before any GL.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "capture.h"
#include "graphic.h"
#include "tol.h"

TEST(Font, EveryPrintableCharacterHasItsOwnPicture) {
    std::set<std::string> pictures;
    for (int i = 0; i < GR_FONT_GLYPHS; ++i) {
        const uint8_t *glyph = grFont8x13.glyph[i];
        EXPECT_EQ(glyph[0], 32 + i);
        std::string rows(reinterpret_cast<const char *>(glyph + 1), 13);
        if (i == 0) {
            EXPECT_EQ(rows, std::string(13, '\0')) << "space is blank";
            continue;
        }
        EXPECT_NE(rows, std::string(13, '\0')) << static_cast<char>(32 + i);
        EXPECT_TRUE(pictures.insert(rows).second) << static_cast<char>(32 + i) << " repeats a picture";
    }
}

TEST(Font, RowsRunFromTheBottomWithTheLeftPixelHigh) {
    const uint8_t *t = grFont8x13.glyph['T' - 32] + 1, *g = grFont8x13.glyph['g' - 32] + 1;
    EXPECT_EQ(t[10], 0xFE);  // the bar on top
    EXPECT_EQ(t[2], 0x10);   // the stem down to the baseline, in the fourth column
    EXPECT_EQ(t[1], 0x00);   // nothing under the baseline but descenders
    EXPECT_NE(g[0], 0x00);
}

TEST(GraphicArguments, NullPointersAreReportedAsCode16) {
    bwtest::OutputCapture cap;
    const float red[3] = {1, 0, 0};
    EXPECT_EQ(TOL_grClear(nullptr), 16);
    EXPECT_EQ(TOL_grStringDraw(nullptr, red, 0, 0), 16);
    EXPECT_EQ(TOL_grStringDraw("x", nullptr, 0, 0), 16);
    EXPECT_EQ(grStateInitGL(nullptr), 0);
    EXPECT_EQ(cap.out.text(),
              "BW_WARNING: TOL_grClear(): gprops: Null or Invalid argument\n"
              "BW_WARNING: TOL_grStringDraw(): str: Null or Invalid argument\n"
              "BW_WARNING: TOL_grStringDraw(): color: Null or Invalid argument\n");
}

TEST(GraphicArguments, VideoInputIsUnsupportedAndLeavesTheRecordAlone) {
    bwtest::OutputCapture cap;
    BW_GraphicProps gp;
    gp.texture.video = 1;
    EXPECT_EQ(TOL_siriusInit(&gp), 8);
    EXPECT_EQ(TOL_siriusProcessEvents(&gp), 8);
    EXPECT_EQ(TOL_siriusExit(&gp), 8);
    EXPECT_EQ(gp.texture.video, 1);
    EXPECT_EQ(TOL_siriusInit(nullptr), 16);
    EXPECT_EQ(TOL_siriusExit(nullptr), 16);
    EXPECT_EQ(TOL_siriusProcessEvents(nullptr), 16);
    EXPECT_EQ(cap.out.text(),
              "BW_WARNING: OpenGL sirius functions not supported\n"
              "BW_ERROR: TOL_siriusInit(): can't initialize SIRIUS properly\n"
              "BW_WARNING: OpenGL sirius functions not supported\n"
              "BW_ERROR: TOL_siriusProcessEvents(): can't process SIRIUS events properly\n"
              "BW_WARNING: OpenGL sirius functions not supported\n"
              "BW_ERROR: TOL_siriusExit(): can't exit SIRIUS mode properly\n"
              "BW_WARNING: TOL_siriusInit(): gprops: Null or Invalid argument\n"
              "BW_WARNING: TOL_siriusExit(): gprops: Null or Invalid argument\n"
              "BW_WARNING: TOL_siriusProcessEvents(): gprops: Null or Invalid argument\n");
}
