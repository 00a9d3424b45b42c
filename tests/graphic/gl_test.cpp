// The screen text, the alignment cross and the frame clear, drawn by the GL of
// the display into an off-screen buffer and read back pixel by pixel.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "graphic.h"

// Xlib's macros come last: they clash with names in the test framework.
#include <GL/glx.h>

namespace {

constexpr int W = 400, H = 300;

// One pbuffer and context for the whole program.
struct GlTarget {
    Display *display = nullptr;
    GLXContext context = nullptr;
    GLXPbuffer pbuffer = 0;
    bool ready = false;

    void open() {
        if (display || !getenv("DISPLAY")) return;
        display = XOpenDisplay(nullptr);
        if (!display) return;
        const int attributes[] = {GLX_DRAWABLE_TYPE, GLX_PBUFFER_BIT, GLX_RENDER_TYPE, GLX_RGBA_BIT,
                                  GLX_RED_SIZE, 8, GLX_GREEN_SIZE, 8, GLX_BLUE_SIZE, 8,
                                  GLX_ALPHA_SIZE, 8, GLX_DEPTH_SIZE, 24, None};
        int count = 0;
        GLXFBConfig *configs = glXChooseFBConfig(display, DefaultScreen(display), attributes, &count);
        if (!configs || count == 0) return;
        const int size[] = {GLX_PBUFFER_WIDTH, W, GLX_PBUFFER_HEIGHT, H, None};
        pbuffer = glXCreatePbuffer(display, configs[0], size);
        context = glXCreateNewContext(display, configs[0], GLX_RGBA_TYPE, nullptr, True);
        XFree(configs);
        ready = pbuffer && context && glXMakeContextCurrent(display, pbuffer, pbuffer, context);
    }
};
GlTarget target;

class Gl : public ::testing::Test {
protected:
    void SetUp() override {
        target.open();
        if (!target.ready) GTEST_SKIP() << "no display with GLX";
        glViewport(0, 0, W, H);
        glClearColor(0, 0, 0, 0);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        glEnable(GL_LIGHTING);
        glEnable(GL_DEPTH_TEST);
        glDepthFunc(GL_LEQUAL);
    }
    // The picture as RGB bytes, bottom row first.
    static std::vector<unsigned char> pixels() {
        std::vector<unsigned char> rgb(W * H * 3);
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        glReadPixels(0, 0, W, H, GL_RGB, GL_UNSIGNED_BYTE, rgb.data());
        return rgb;
    }
    static const unsigned char *at(const std::vector<unsigned char> &rgb, int x, int y) {
        return &rgb[(static_cast<size_t>(y) * W + x) * 3];
    }
    static bool red(const std::vector<unsigned char> &rgb, int x, int y) {
        const unsigned char *p = at(rgb, x, y);
        return p[0] == 255 && p[1] == 0 && p[2] == 0;
    }
    static bool black(const std::vector<unsigned char> &rgb, int x, int y) {
        const unsigned char *p = at(rgb, x, y);
        return p[0] == 0 && p[1] == 0 && p[2] == 0;
    }
};

}  // namespace

TEST_F(Gl, TextIsTheFontAtItsPlaceOnTheThousandStepScreen) {
    const float color[3] = {1, 0, 0};
    glListBase(7);
    ASSERT_EQ(TOL_grStringDraw("HELLO", color, 100, 500), 0);
    std::vector<unsigned char> rgb = pixels();

    // (100, 500) of 1000 steps is pixel (40, 150); a glyph's baseline is its
    // third row and each character takes ten columns.
    const char *text = "HELLO";
    int wrong = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            bool ink = false;
            int cell = (x - 40) / 10, column = (x - 40) % 10, row = y - 148;
            if (x >= 40 && cell < 5 && column < 8 && row >= 0 && row < 13)
                ink = grFont8x13.glyph[text[cell] - 32][1 + row] & (0x80 >> column);
            if (ink ? !red(rgb, x, y) : !black(rgb, x, y)) ++wrong;
        }
    EXPECT_EQ(wrong, 0);

    // The state around the text is as it was, but for the two matrices.
    GLint listBase = 0, depthFunc = 0;
    glGetIntegerv(GL_LIST_BASE, &listBase);
    glGetIntegerv(GL_DEPTH_FUNC, &depthFunc);
    EXPECT_EQ(listBase, 7);
    EXPECT_EQ(depthFunc, GL_LEQUAL);
    EXPECT_TRUE(glIsEnabled(GL_LIGHTING));
    glListBase(0);

    // Characters outside the font draw nothing and still take their cell:
    // the dot of the third cell lands at 20 + 2 * 10 + 3.
    glClear(GL_COLOR_BUFFER_BIT);
    ASSERT_EQ(TOL_grStringDraw("\x01\xff.", color, 50, 100), 0);
    rgb = pixels();
    EXPECT_TRUE(red(rgb, 43, 30));
    for (int x = 20; x < 40; ++x)
        for (int y = 28; y < 41; ++y) EXPECT_TRUE(black(rgb, x, y)) << x << "," << y;
}

TEST_F(Gl, TheCrossJoinsTheCornersAndRestoresTheState) {
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glTranslatef(0.25f, 0, 0);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glScalef(0.5f, 0.5f, 0.5f);
    glMatrixMode(GL_PROJECTION);
    GLfloat projection[16], modelview[16], after[16];
    glGetFloatv(GL_PROJECTION_MATRIX, projection);
    glGetFloatv(GL_MODELVIEW_MATRIX, modelview);

    grDrawCross();
    std::vector<unsigned char> rgb = pixels();
    int reds = 0, offLine = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            if (!red(rgb, x, y)) {
                EXPECT_TRUE(black(rgb, x, y));
                continue;
            }
            ++reds;
            double rising = std::fabs((y + 0.5) - (x + 0.5) * H / W);
            double falling = std::fabs((y + 0.5) - (H - (x + 0.5) * H / W));
            if (rising > 1.5 && falling > 1.5) ++offLine;
        }
    EXPECT_EQ(offLine, 0);
    EXPECT_GE(reds, 2 * W - 4);  // one pixel a column for each line
    EXPECT_TRUE(red(rgb, W / 2, H / 2) || red(rgb, W / 2 - 1, H / 2 - 1));

    GLint mode = 0;
    glGetIntegerv(GL_MATRIX_MODE, &mode);
    EXPECT_EQ(mode, GL_PROJECTION);
    glGetFloatv(GL_PROJECTION_MATRIX, after);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(after[i], projection[i]) << i;
    glGetFloatv(GL_MODELVIEW_MATRIX, after);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(after[i], modelview[i]) << i;
    EXPECT_TRUE(glIsEnabled(GL_DEPTH_TEST));
    EXPECT_TRUE(glIsEnabled(GL_LIGHTING));
}

TEST_F(Gl, TheClearTakesFogBackOrEditingColourAndDepthOnlyWhenShading) {
    // Clears over a depth of 0.5; returns the colour, leaves the depth in `depth`.
    auto clearWith = [](BW_GraphicProps &props, float *depth) {
        glClearDepth(0.5);
        glClear(GL_DEPTH_BUFFER_BIT);
        EXPECT_EQ(TOL_grClear(&props), 0);
        unsigned char rgb[3];
        glReadPixels(5, 5, 1, 1, GL_RGB, GL_UNSIGNED_BYTE, rgb);
        glReadPixels(5, 5, 1, 1, GL_DEPTH_COMPONENT, GL_FLOAT, depth);
        return std::vector<int>(rgb, rgb + 3);
    };
    BW_GlbVar glb;
    BW_GraphicProps props;
    props.glbVar = &glb;
    props.backColor[2] = 1.0f;
    props.fogColor[1] = 1.0f;
    float depth = 0;
    using Rgb = std::vector<int>;

    EXPECT_EQ(clearWith(props, &depth), (Rgb{0, 0, 255}));
    EXPECT_EQ(depth, 1.0f);

    props.material.shade = 0;
    clearWith(props, &depth);
    EXPECT_EQ(depth, 0.5f);

    props.fogEnable = 1;
    EXPECT_EQ(clearWith(props, &depth), (Rgb{0, 255, 0}));

    // Editing with icons on clears with the editing background.
    props.fogEnable = 0;
    props.icons = 1;
    glb.useEditBack = 1;
    EXPECT_EQ(clearWith(props, &depth), (Rgb{128, 128, 112}));
    props.inViewer = 1;
    EXPECT_EQ(clearWith(props, &depth), (Rgb{0, 0, 255}));

    // The state start: depth test with LEQUAL and normalised normals.
    glDisable(GL_DEPTH_TEST);
    glDepthFunc(GL_ALWAYS);
    EXPECT_EQ(grStateInitGL(&props), 1);
    GLint depthFunc = 0;
    glGetIntegerv(GL_DEPTH_FUNC, &depthFunc);
    EXPECT_EQ(depthFunc, GL_LEQUAL);
    EXPECT_TRUE(glIsEnabled(GL_DEPTH_TEST));
    EXPECT_TRUE(glIsEnabled(GL_NORMALIZE));
}
