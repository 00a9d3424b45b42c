// The screen text, the alignment cross and the frame clear, drawn by the GL of
// the display into an off-screen buffer and read back pixel by pixel.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "graphic.h"

#include "gl_context.h"
#include "tol.h"

namespace {

constexpr int W = 400, H = 300;
constexpr unsigned RED = 0xFF0000, BLACK = 0;


class Gl : public ::testing::Test {
protected:
    void SetUp() override {
        if (!bwtest::glReady(W, H)) GTEST_SKIP() << "no display with GLX";
        glViewport(0, 0, W, H);
        glClearColor(0, 0, 0, 0);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        glEnable(GL_LIGHTING);
        glEnable(GL_DEPTH_TEST);
        glDepthFunc(GL_LEQUAL);
    }
    // The picture as 0xRRGGBB values, bottom row first.
    static std::vector<unsigned> picture() {
        std::vector<unsigned char> rgba(W * H * 4);
        glReadPixels(0, 0, W, H, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
        std::vector<unsigned> colors(W * H);
        for (size_t i = 0; i < colors.size(); ++i)
            colors[i] = rgba[i * 4] << 16 | rgba[i * 4 + 1] << 8 | rgba[i * 4 + 2];
        return colors;
    }
};

}  // namespace

TEST_F(Gl, TextIsTheFontAtItsPlaceOnTheThousandStepScreen) {
    const float red[3] = {1, 0, 0};
    glListBase(7);
    ASSERT_EQ(TOL_grStringDraw("HELLO", red, 100, 500), 0);
    std::vector<unsigned> pixels = picture();

    // (100, 500) of 1000 steps is pixel (40, 150); a glyph's baseline is its
    // third row and each character takes ten columns.
    int wrong = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            int cell = (x - 40) / 10, column = (x - 40) % 10, row = y - 148;
            bool ink = x >= 40 && cell < 5 && column < 8 && row >= 0 && row < 13 &&
                       (grFont8x13.glyph["HELLO"[cell] - 32][1 + row] & (0x80 >> column));
            if (pixels[y * W + x] != (ink ? RED : BLACK)) ++wrong;
        }
    EXPECT_EQ(wrong, 0);

    // The state around the text is as it was, but for the two matrices.
    GLint listBase = 0, depthFunc = 0;
    glGetIntegerv(GL_LIST_BASE, &listBase);
    glGetIntegerv(GL_DEPTH_FUNC, &depthFunc);
    EXPECT_EQ(listBase, 7);
    EXPECT_EQ(depthFunc, GL_LEQUAL);
    EXPECT_TRUE(glIsEnabled(GL_LIGHTING));

    // Characters outside the font draw nothing and still take their cell:
    // the dot of the third cell lands at 20 + 2 * 10 + 3.
    glClear(GL_COLOR_BUFFER_BIT);
    ASSERT_EQ(TOL_grStringDraw("\x01\xff.", red, 50, 100), 0);
    pixels = picture();
    EXPECT_EQ(pixels[30 * W + 43], RED);
    for (int x = 20; x < 40; ++x)
        for (int y = 28; y < 41; ++y) EXPECT_EQ(pixels[y * W + x], BLACK) << x << "," << y;
}

TEST_F(Gl, TheCrossJoinsTheCornersAndRestoresTheState) {
    GLfloat projection[16], modelview[16], after[16];
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glScalef(0.5f, 0.5f, 0.5f);
    glGetFloatv(GL_MODELVIEW_MATRIX, modelview);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glTranslatef(0.25f, 0, 0);
    glGetFloatv(GL_PROJECTION_MATRIX, projection);

    viewportCross();
    std::vector<unsigned> pixels = picture();
    int reds = 0, stray = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            if (pixels[y * W + x] != RED) {
                EXPECT_EQ(pixels[y * W + x], BLACK);
                continue;
            }
            ++reds;
            double rising = (x + 0.5) * H / W;
            if (std::fabs(y + 0.5 - rising) > 1.5 && std::fabs(y + 0.5 - (H - rising)) > 1.5) ++stray;
        }
    EXPECT_EQ(stray, 0);
    EXPECT_GE(reds, 2 * W - 4);  // a pixel a column for each line

    GLint mode = 0;
    glGetIntegerv(GL_MATRIX_MODE, &mode);
    EXPECT_EQ(mode, GL_PROJECTION);
    glGetFloatv(GL_PROJECTION_MATRIX, after);
    EXPECT_TRUE(std::equal(after, after + 16, projection));
    glGetFloatv(GL_MODELVIEW_MATRIX, after);
    EXPECT_TRUE(std::equal(after, after + 16, modelview));
    EXPECT_TRUE(glIsEnabled(GL_DEPTH_TEST) && glIsEnabled(GL_LIGHTING));
}

TEST_F(Gl, TheClearTakesFogBackOrEditingColourAndDepthOnlyWhenShading) {
    // Clears over a depth of 0.5: the colour of a pixel, and its depth in `depth`.
    float depth = 0;
    auto clear = [&depth](BW_GraphicProps &props) {
        glClearDepth(0.5);
        glClear(GL_DEPTH_BUFFER_BIT);
        EXPECT_EQ(TOL_grClear(&props), 0);
        glReadPixels(5, 5, 1, 1, GL_DEPTH_COMPONENT, GL_FLOAT, &depth);
        return picture()[5 * W + 5];
    };
    BW_GlbVar glb;
    BW_GraphicProps props;
    props.glbVar = &glb;
    props.backColor[2] = 1.0f;
    props.fogColor[1] = 1.0f;

    EXPECT_EQ(clear(props), 0x0000FFu);
    EXPECT_EQ(depth, 1.0f);
    props.material.shade = 0;
    clear(props);
    EXPECT_EQ(depth, 0.5f);
    props.fogEnable = 1;
    EXPECT_EQ(clear(props), 0x00FF00u);
    props.fogEnable = 0;
    props.icons = glb.useEditBack = 1;  // editing: its own background
    EXPECT_EQ(clear(props), 0x808070u);
    props.inViewer = 1;
    EXPECT_EQ(clear(props), 0x0000FFu);

    glDisable(GL_DEPTH_TEST);
    glDepthFunc(GL_ALWAYS);
    EXPECT_EQ(grStateInitGL(&props), 1);
    GLint depthFunc = 0;
    glGetIntegerv(GL_DEPTH_FUNC, &depthFunc);
    EXPECT_EQ(depthFunc, GL_LEQUAL);
    EXPECT_TRUE(glIsEnabled(GL_DEPTH_TEST) && glIsEnabled(GL_NORMALIZE));
}
