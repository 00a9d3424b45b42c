// Strip streams drawn by the GL of the display into an off-screen buffer:
// directly, and through the display list that takes the stream over.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "graphic.h"
#include "material.h"
#include "model.h"
#include "testdata.h"

#include "gl_context.h"

namespace {

constexpr int W = 64, H = 64;


using bwtest::glPixel;

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
    EXPECT_EQ(glPixel(16, 16), grey);
    EXPECT_EQ(glPixel(48, 48), 0u);
    EXPECT_EQ(glbVar.curMatId, 1);
    EXPECT_EQ(glbVar.curTxtId, 0);
    EXPECT_FALSE(glIsEnabled(GL_LIGHTING));
    EXPECT_NE(m->tmesh->stream, nullptr);

    // With lists on, the next draw compiles one and frees the stream.
    glbVar.listEnable = 1;
    clear();
    ASSERT_EQ(drawStripStream(nullptr, m, &gp), 0);
    EXPECT_EQ(glPixel(16, 16), grey);
    ASSERT_GE(m->tmesh->listId, 0);
    EXPECT_EQ(m->tmesh->stream, nullptr);
    EXPECT_EQ(m->tmesh->streamLength, 0);
    EXPECT_EQ(m->tmesh->compileRequest, 0);
    EXPECT_EQ(m->tmesh->lastMaterial, 1);

    // Played from the list alone.
    glbVar.curMatId = -1;
    clear();
    ASSERT_EQ(drawStripStream(nullptr, m, &gp), 0);
    EXPECT_EQ(glPixel(16, 16), grey);
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
    EXPECT_EQ(glPixel(16, 16), grey);
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
    EXPECT_EQ(glPixel(16, 16), grey);
    EXPECT_EQ(glPixel(48, 48), grey);

    // A mesh marked as carrying its scale is drawn by the global matrix alone.
    m->geometry.mesh->flags |= MESH_FLAG_SCALED;
    clear();
    ASSERT_EQ(drawStripStream(nullptr, m, &gp), 0);
    EXPECT_EQ(glPixel(16, 16), grey);
    EXPECT_EQ(glPixel(48, 48), 0u);

    // The modelview comes back as it was.
    GLfloat mv[16];
    glGetFloatv(GL_MODELVIEW_MATRIX, mv);
    EXPECT_EQ(mv[0], 1.0f);
    EXPECT_EQ(mv[12], 0.0f);
    modelFree(m);
}

namespace {

// One quad strip of every material token, with and without a texture cell,
// each over its own eighth of the view; each vertex has its own colour,
// normal and UV so that a vertex sent wrong shows.
std::vector<float> everyTokenStream() {
    // The plain constant material last: it ends the compiling of a list, so
    // with lists on the others go through one.
    const float tokens[4] = {STRIP_MAT_CONSTANT_COLOUR, STRIP_MAT_SHADED, STRIP_MAT_SHADED_COLOUR,
                             STRIP_MAT_CONSTANT};
    std::vector<float> s;
    int cell = 0;
    for (float token : tokens)
        for (int textured = 0; textured < 2; ++textured, ++cell) {
            const bool colour = token == STRIP_MAT_CONSTANT_COLOUR || token == STRIP_MAT_SHADED_COLOUR;
            const bool shaded = token == STRIP_MAT_SHADED || token == STRIP_MAT_SHADED_COLOUR;
            s.push_back(token);
            s.push_back(static_cast<float>(cell + 1));  // material id
            if (textured) {
                s.push_back(STRIP_TEXTURE);
                s.push_back(7.0f);
            }
            const int stride = 1 + (textured ? 3 : 0) + (colour ? 3 : 0) + (shaded ? 3 : 0) + 3;
            s.push_back(static_cast<float>(4 * stride));
            const float x0 = -1.0f + 0.5f * static_cast<float>(cell % 4), y0 = cell < 4 ? -1.0f : 0.0f;
            for (int v = 0; v < 4; ++v) {
                const float u = static_cast<float>(v & 1), w = static_cast<float>(v >> 1);
                int32_t index = v;
                float bits;
                memcpy(&bits, &index, sizeof bits);
                s.push_back(bits);
                if (textured) s.insert(s.end(), {0.0f, u * 3.0f, w * 3.0f});
                if (colour) s.insert(s.end(), {u, w, 0.25f + 0.5f * u * w});
                if (shaded) s.insert(s.end(), {0.6f * (u - 0.5f), 0.6f * (w - 0.5f), 0.7f});
                s.insert(s.end(), {x0 + 0.5f * u, y0 + w, 0.0f});
            }
        }
    s.push_back(STRIP_END);
    return s;
}

// The texture list of id 7: a 2 x 2 checker, nearest, repeated.
void checkerList() {
    static GLuint name = 0;
    if (!name) glGenTextures(1, &name);
    const unsigned char texels[16] = {255, 255, 255, 255, 40, 40, 200, 255, 40, 40, 200, 255, 255, 255, 255, 255};
    glNewList(TEXTURE_LIST_BASE + 7, GL_COMPILE);
    glBindTexture(GL_TEXTURE_2D, name);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 2, 2, 0, GL_RGBA, GL_UNSIGNED_BYTE, texels);
    glEndList();
}

std::vector<unsigned char> frame() {
    std::vector<unsigned char> rgb(W * H * 3);
    glReadPixels(0, 0, W, H, GL_RGB, GL_UNSIGNED_BYTE, rgb.data());
    return rgb;
}

}  // namespace

// Vertex arrays and one call a vertex must give the same picture for every
// material token and texture combination, drawn directly and while a list
// is compiled from them.
TEST_F(StripGl, ArraysDrawEveryTokenAndTextureAsOneCallAVertexDoes) {
    checkerList();
    const GLfloat light[4] = {0.2f, 0.3f, 1.0f, 0.0f};
    glLightfv(GL_LIGHT0, GL_POSITION, light);
    glEnable(GL_LIGHT0);
    gp.texture.active = 1;
    const std::vector<float> stream = everyTokenStream();
    auto draw = [&](int arrays, int lists) {
        Model *m = modelNew("strips", MODEL_MESH, nullptr);
        for (int i = 0; i < 4; ++i) m->globalMatrix[i][i] = 1.0f;
        m->tmesh = static_cast<TmeshHeader *>(calloc(1, sizeof(TmeshHeader)));
        m->tmesh->listId = -1;
        m->tmesh->compileRequest = 1;
        m->tmesh->streamLength = static_cast<int32_t>(stream.size());
        m->tmesh->stream = static_cast<float *>(malloc(stream.size() * sizeof(float)));
        memcpy(m->tmesh->stream, stream.data(), stream.size() * sizeof(float));
        g_stripArrays = arrays;
        glbVar.listEnable = lists;
        glbVar.curMatId = glbVar.curTxtId = -1;
        glEnable(GL_LIGHTING);
        clear();
        EXPECT_EQ(drawStripStream(nullptr, m, &gp), 0);
        std::vector<unsigned char> picture = frame();
        modelFree(m);
        g_stripArrays = 1;
        return picture;
    };
    const std::vector<unsigned char> reference = draw(0, 0);
    // Every eighth shows something, and the shaded ones more than one shade.
    for (int cell = 0; cell < 8; ++cell) {
        const int x = (cell % 4) * (W / 4) + W / 8, y = (cell < 4 ? H / 4 : 3 * H / 4);
        const unsigned char *p = &reference[(y * W + x) * 3];
        EXPECT_GT(p[0] + p[1] + p[2], 0) << "cell " << cell;
    }
    EXPECT_EQ(draw(1, 0), reference);
    EXPECT_EQ(draw(1, 1), reference);
    EXPECT_EQ(draw(0, 1), reference);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    GLboolean on = GL_TRUE;
    glGetBooleanv(GL_VERTEX_ARRAY, &on);
    EXPECT_FALSE(on);  // the play leaves no client array on
    glDisable(GL_LIGHT0);
    glDisable(GL_LIGHTING);
}
