// Strip streams drawn by the GL of the display into an off-screen buffer:
// directly, and through the display list that takes the stream over.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "graphic.h"
#include "material.h"
#include "model.h"
#include "testdata.h"

#include "gl_context.h"

namespace {

constexpr int W = 64, H = 64;


unsigned pixel(int x, int y) {
    unsigned char rgb[3];
    glReadPixels(x, y, 1, 1, GL_RGB, GL_UNSIGNED_BYTE, rgb);
    return unsigned{rgb[0]} << 16 | unsigned{rgb[1]} << 8 | rgb[2];
}

// A unit grid square turned from XZ into XY and moved over the lower-left
// quarter of the view.
Model *square() {
    Model *m = modelNew("square", MODEL_MESH, tdMakeGridMesh(1, 1));
    const float turn[4][4] = {{1, 0, 0, 0}, {0, 0, -1, 0}, {0, 1, 0, 0}, {-1, -1, 0, 1}};
    std::copy(&turn[0][0], &turn[0][0] + 16, &m->globalMatrix[0][0]);
    return m;
}

class StripGl : public ::testing::Test {
protected:
    void SetUp() override {
        if (!bwtest::glReady(W, H)) GTEST_SKIP() << "no display with GLX";
        glViewport(0, 0, W, H);
        glMatrixMode(GL_PROJECTION);
        glLoadIdentity();
        glMatrixMode(GL_MODELVIEW);
        glLoadIdentity();
        glDisable(GL_LIGHTING);
        glDisable(GL_DEPTH_TEST);
        gpropsInit(&gp);
        glbVar.listEnable = 0;
        glbVar.curMatId = glbVar.curTxtId = -1;
    }
    void TearDown() override { glbVar.listEnable = 0; }
    void clear() {
        glClearColor(0, 0, 0, 0);
        glClear(GL_COLOR_BUFFER_BIT);
    }
    BW_GraphicProps gp;
};

}  // namespace

TEST_F(StripGl, DrawnDirectlyThenFromTheListThatTakesTheStreamOver) {
    Model *m = square();
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    ASSERT_NE(m->tmesh, nullptr);

    clear();
    ASSERT_EQ(drawStripStream(nullptr, m, &gp), 0);
    const unsigned grey = 0xB2B2B2;  // the default binding: 0.7 grey
    EXPECT_EQ(pixel(16, 16), grey);
    EXPECT_EQ(pixel(48, 48), 0u);
    EXPECT_EQ(glbVar.curMatId, 1);
    EXPECT_EQ(glbVar.curTxtId, 0);
    EXPECT_FALSE(glIsEnabled(GL_LIGHTING));
    EXPECT_NE(m->tmesh->stream, nullptr);

    // With lists on, the next draw compiles one and frees the stream.
    glbVar.listEnable = 1;
    clear();
    ASSERT_EQ(drawStripStream(nullptr, m, &gp), 0);
    EXPECT_EQ(pixel(16, 16), grey);
    ASSERT_GE(m->tmesh->listId, 0);
    EXPECT_EQ(m->tmesh->stream, nullptr);
    EXPECT_EQ(m->tmesh->streamLength, 0);
    EXPECT_EQ(m->tmesh->compileRequest, 0);
    EXPECT_EQ(m->tmesh->lastMaterial, 1);

    // Played from the list alone.
    glbVar.curMatId = -1;
    clear();
    ASSERT_EQ(drawStripStream(nullptr, m, &gp), 0);
    EXPECT_EQ(pixel(16, 16), grey);
    EXPECT_EQ(glbVar.curMatId, 1);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));

    modelFree(m);

    // A constant material stays out of lists and draws unlit.
    m = square();
    m->materials = static_cast<Material **>(calloc(1, sizeof(Material *)));
    m->materials[0] = new Material;
    m->materials[0]->shadingModel = 1;
    m->materialCount = 1;
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    glEnable(GL_LIGHTING);
    clear();
    ASSERT_EQ(drawStripStream(nullptr, m, &gp), 0);
    EXPECT_EQ(pixel(16, 16), grey);
    EXPECT_TRUE(glIsEnabled(GL_LIGHTING));  // restored
    EXPECT_EQ(m->tmesh->listId, -1);
    EXPECT_EQ(m->tmesh->compileRequest, 0);
    EXPECT_NE(m->tmesh->stream, nullptr);
    glDisable(GL_LIGHTING);
    modelFree(m);
}

TEST_F(StripGl, AMeshIsDrawnWithItsSecondScaleUnlessItsMeshCarriesIt) {
    // Scaled by 2 across its plane, the square covers the whole view.
    Model *m = square();
    m->scaling[0] = m->scaling[2] = 2.0f;
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    const unsigned grey = 0xB2B2B2;
    clear();
    ASSERT_EQ(drawStripStream(nullptr, m, &gp), 0);
    EXPECT_EQ(pixel(16, 16), grey);
    EXPECT_EQ(pixel(48, 48), grey);

    // A mesh marked as carrying its scale is drawn by the global matrix alone.
    m->geometry.mesh->flags |= MESH_FLAG_SCALED;
    clear();
    ASSERT_EQ(drawStripStream(nullptr, m, &gp), 0);
    EXPECT_EQ(pixel(16, 16), grey);
    EXPECT_EQ(pixel(48, 48), 0u);

    // The modelview comes back as it was.
    GLfloat mv[16];
    glGetFloatv(GL_MODELVIEW_MATRIX, mv);
    EXPECT_EQ(mv[0], 1.0f);
    EXPECT_EQ(mv[12], 0.0f);
    modelFree(m);
}
