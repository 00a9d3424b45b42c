// The frame wrapper and the garbage mattes in an off-screen context: how many
// passes reach the accumulation buffer, the stereo eyes' viewports, and the
// depth-punch mattes of a frame buffer without stencil.
#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

#include "camera.h"
#include "capture.h"
#include "dictionary.h"
#include "model.h"
#include "testdata.h"
#include "tol.h"
#include "view.h"

#include "graphic/gl_context.h"
#include "layer_fixture.h"

namespace {

constexpr int W = 64, H = 64;

std::vector<std::pair<unsigned, float>> accumCalls;
void countAccum(unsigned op, float value) { accumCalls.emplace_back(op, value); }

using bwtest::glPixel;

class FrameFx : public bwtest::LayerTest {
protected:
    void SetUp() override {
        if (!bwtest::glReady(W, H)) GTEST_SKIP() << "no display with GLX";
        LayerTest::SetUp();
        ASSERT_TRUE(bwtest::glFreshState(W, H, gp));
        accumCalls.clear();
        accumHookSet(countAccum);
    }
    void TearDown() override {
        accumHookSet(nullptr);
        for (Model *m : models) {
            if (Element *e = elemGet(dict, CHP_MODELS, m->elementIndex)) e->data = nullptr;
            modelFree(m);
        }
    }
    // A square facing the view from (x0, y0), `size` wide in the -1 to 1 view.
    Model *addSquare(const char *name, float x0, float y0, float size) {
        Model *m = modelNew(name, MODEL_MESH, tdMakeGridMesh(1, 1));
        const float turn[4][4] = {{size, 0, 0, 0}, {0, 0, -size, 0}, {0, size, 0, 0}, {x0, y0, 0, 1}};
        memcpy(m->globalMatrix, turn, sizeof turn);
        m->elementIndex = elemAdd(dict, CHP_MODELS, elemNameParse(name, nullptr, 0), m, nullptr, 0, 0);
        models.push_back(m);
        return m;
    }
    BW_GraphicProps gp;
    std::vector<Model *> models;
};

}  // namespace

TEST_F(FrameFx, OnlyTwoPassesOrMoreReachTheAccumulationBuffer) {
    Camera camera;
    // One pass, by level or by the switch: no accumulation at all.
    for (auto [antialias, level] : {std::pair{0, 4}, {1, 0}, {1, -3}}) {
        gp.antialias = static_cast<uint16_t>(antialias);
        gp.anti_lev = level;
        EXPECT_EQ(drawAccumulated(&scene, &camera, nullptr, &gp), 0);
        EXPECT_TRUE(accumCalls.empty()) << antialias << " " << level;
    }
    gp.antialias = 1;
    gp.anti_lev = 2;
    EXPECT_EQ(drawAccumulated(&scene, &camera, nullptr, &gp), 0);
    const std::vector<std::pair<unsigned, float>> sum = {
        {GL_LOAD, 1.0f / 3}, {GL_ACCUM, 1.0f / 3}, {GL_ACCUM, 1.0f / 3}, {GL_RETURN, 1.0f}};
    EXPECT_EQ(accumCalls, sum);
    EXPECT_EQ(gp.curCamera, &camera);

    bwtest::OutputCapture cap;
    EXPECT_EQ(drawAccumulated(&scene, nullptr, nullptr, &gp), 99);
    EXPECT_EQ(cap.out.text(), "BW_ERROR: drawAccumulated(): no camera\n");
}

TEST_F(FrameFx, StereoDrawsBothEyesAndGivesTheViewportBack) {
    Camera camera;
    gp.stereoEye = 1;
    EXPECT_EQ(drawAccumulated(&scene, &camera, nullptr, &gp), 0);
    EXPECT_EQ(gp.stereoEye, 2);  // the second eye was drawn last
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(viewport[2], W);
    EXPECT_EQ(viewport[3], H);
    // The second eye's view is shifted by minus half the distance.
    GLfloat view[16];
    glGetFloatv(GL_MODELVIEW_MATRIX, view);
    float straight[16];
    cameraViewMatrix(&camera, straight);
    EXPECT_NEAR(view[12] - straight[12], -gp.interOcular * 0.5f, 1e-5f);
}

TEST_F(FrameFx, WithoutStencilMattesPunchTheDepthOnlyWhenSomeoneLooks) {
    GLint stencil = 0;
    glGetIntegerv(GL_STENCIL_BITS, &stencil);
    if (stencil > 0) GTEST_SKIP() << "the off-screen buffer has stencil bits";
    // The matte covers the lower-left quarter; the scene's square the whole view.
    Model *matte = addSquare("card", -1.0f, -1.0f, 1.0f);
    matte->garbageMatte = 1;
    addSquare("wall", -1.0f, -1.0f, 2.0f);
    ASSERT_EQ(TOL_preprocessALL(&scene, &gp), 0);
    boundsBuild(dict);
    gp.material.shade = 1;
    constexpr unsigned RED = 0xFF0000, BACK = 0x000000;
    auto frame = [&] {
        glClearColor(0, 0, 0, 0);
        glClearDepth(1.0);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        ASSERT_EQ(sceneDrawPass(&scene, nullptr, 0, &gp), 0);
    };

    // Nobody looks: the mattes are refused and the scene draws all over.
    frame();
    const unsigned wall = glPixel(48, 48);
    EXPECT_NE(wall, BACK);
    EXPECT_EQ(glPixel(16, 16), wall);

    // The operator looks: red outside the mattes, the scene only over them.
    gp.showGarbage = 1;
    frame();
    EXPECT_EQ(glPixel(48, 48), RED);
    EXPECT_EQ(glPixel(16, 16), wall);
    GLint func = 0;
    GLfloat range[2];
    glGetIntegerv(GL_DEPTH_FUNC, &func);
    glGetFloatv(GL_DEPTH_RANGE, range);
    EXPECT_EQ(func, GL_LESS);
    EXPECT_FLOAT_EQ(range[0], 0.0f);
    EXPECT_FLOAT_EQ(range[1], 1.0f);
}
