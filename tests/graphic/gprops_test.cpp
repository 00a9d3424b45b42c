// The display type is derived from the switches before every draw.
#include <gtest/gtest.h>

#include "capture.h"
#include "graphic.h"
#include "tol.h"

TEST(DisplayType, DerivedFromShadeTextureMatteAndIcons) {
    BW_GraphicProps p;
    gpropsInit(&p);
    EXPECT_EQ(p.glbVar, &glbVar);
    struct Case { uint16_t shade, active, matte, icons, expected; };
    const Case cases[] = {
        {0, 0, 0, 0, 4},   {0, 1, 1, 1, 4},   // wireframe whatever else is set
        {1, 0, 0, 0, 8},   {1, 0, 0, 1, 12},  // shaded, plus the wire bit with icons
        {1, 1, 0, 0, 24},  {1, 1, 0, 1, 28},  // textured
        {1, 1, 1, 0, 136}, {1, 0, 1, 1, 140}, // matte wins over textures
    };
    for (const Case &c : cases) {
        p.material.shade = c.shade;
        p.texture.active = c.active;
        p.material.matte = c.matte;
        p.icons = c.icons;
        gpropsResolveDispType(&p);
        EXPECT_EQ(p.dispType, c.expected) << c.shade << c.active << c.matte << c.icons;
    }

    // A type set through the API lasts until the next draw resolves it.
    EXPECT_EQ(gpropsSetDisplayType(&p, 16), 0);
    EXPECT_EQ(p.dispType, 16);
    p.icons = 0;
    gpropsResolveDispType(&p);
    EXPECT_EQ(p.dispType, 24);
    EXPECT_EQ(gpropsSetDisplayType(&p, 136), 0);
    EXPECT_EQ(p.material.matte, 1);
    EXPECT_EQ(gpropsSetDisplayType(&p, 5), 16);
    EXPECT_EQ(gpropsSetDisplayType(nullptr, 4), 16);
}

TEST(DisplayType, SurfacePrecisionGoesToTheSharedRecord) {
    BW_GraphicProps p;
    gpropsInit(&p);
    EXPECT_EQ(TOL_gpropsSetSurfacePrecision(&p, 3), 0);
    EXPECT_EQ(glbVar.patch_lod, 3);
    bwtest::OutputCapture cap;
    EXPECT_EQ(TOL_gpropsSetSurfacePrecision(nullptr, 1), 16);
    gpropsDump(nullptr);
    EXPECT_EQ(cap.out.text(),
              "BW_WARNING: TOL_gpropsSetSurfacePrecision(): gprops: Null or Invalid argument\n"
              "BW_GraphicProps Dump:\n   NULL\n");
    glbVar.patch_lod = 0;
}

TEST(SafeFrames, MarginsAreAHalfPercentOfEachSideOutsideThePercentage) {
    SafeFrameMargins m = safeFrameMargins(nullptr, nullptr, nullptr);
    EXPECT_EQ(m.shown, 0);
    EXPECT_FLOAT_EQ(m.outer, 0.015f);
    EXPECT_FLOAT_EQ(m.title, 0.1f);    // 80 percent
    EXPECT_FLOAT_EQ(m.action, 0.05f);  // 90 percent
    m = safeFrameMargins("", "70", "100");
    EXPECT_EQ(m.shown, 1);
    EXPECT_FLOAT_EQ(m.title, 0.15f);
    EXPECT_FLOAT_EQ(m.action, 0.0f);
    // Out of 1 to 100, or no number: the defaults.
    for (const char *bad : {"0", "101", "-5", "wide"}) {
        m = safeFrameMargins("", bad, bad);
        EXPECT_FLOAT_EQ(m.title, 0.1f) << bad;
        EXPECT_FLOAT_EQ(m.action, 0.05f) << bad;
    }
    EXPECT_FLOAT_EQ(safeFrameMargins("", "1", "1").title, 0.495f);
}
