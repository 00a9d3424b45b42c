// The preprocess of a model that did not change, as the update side runs it at
// every step: the strips and the display list stay as they are, a material
// changed since brings new strips, and a list the preprocess gives up on the
// update thread is deleted by the draw, which alone holds the GL context.
#include <gtest/gtest.h>

#include <thread>

#include "graphic.h"
#include "material.h"
#include "model.h"
#include "testdata.h"

#include "gl_context.h"

namespace {

constexpr int W = 32, H = 32;

// A grid of 8 x 8 quads under a material of its own.
Model *gridWithMaterial(Material *material) {
    Model *m = modelNew("grid", MODEL_MESH, tdMakeGridMesh(8, 8));
    m->materials = static_cast<Material **>(calloc(1, sizeof(Material *)));
    m->materials[0] = material;
    m->materialCount = 1;
    return m;
}

// Tessellation, then strips: the first two steps.
void build(Model *m, BW_GraphicProps *gp) {
    ASSERT_EQ(modelPreprocess(m, gp), 0);
    ASSERT_EQ(modelPreprocess(m, gp), 0);
    ASSERT_NE(m->tmesh, nullptr);
}

// The preprocess on a thread of its own, as the update thread runs it: no GL
// context is current there.
int preprocessElsewhere(Model *m, BW_GraphicProps *gp) {
    int status = -1;
    std::thread([&] { status = modelPreprocess(m, gp); }).join();
    return status;
}

class PreprocessGl : public ::testing::Test {
protected:
    void SetUp() override {
        if (!bwtest::glReady(W, H)) GTEST_SKIP() << "no display with GLX";
        gpropsInit(&gp);
        glbVar.listEnable = 0;
        glbVar.curMatId = glbVar.curTxtId = -1;
        grListsReap();
    }
    void TearDown() override { glbVar.listEnable = 0; }
    BW_GraphicProps gp;
};

}  // namespace

TEST(Preprocess, AnUnchangedModelKeepsItsStripsAndAChangedMaterialRebuildsThem) {
    BW_GraphicProps gp;
    gpropsInit(&gp);
    Material *material = new Material;
    Model *m = gridWithMaterial(material);
    build(m, &gp);
    const TmeshHeader *header = m->tmesh;
    const float *stream = header->stream;
    const int32_t length = header->streamLength;
    for (int step = 0; step < 3; ++step) {
        ASSERT_EQ(modelPreprocess(m, &gp), 0);
        EXPECT_EQ(m->tmesh, header);
        EXPECT_EQ(m->tmesh->stream, stream);
        EXPECT_EQ(m->tmesh->streamLength, length);
        EXPECT_EQ(m->tmesh->compileRequest, 1);  // still waiting for the draw's list
    }
    // A material whose values changed since the build (its colours are in the
    // stream): a header of the new revision.
    ++material->revision;
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    ASSERT_NE(m->tmesh, nullptr);
    EXPECT_EQ(m->tmesh->revisions, 1u);
    EXPECT_NE(m->tmesh->stream, nullptr);
    modelFree(m);
}

TEST_F(PreprocessGl, AListSurvivesTheUpdateSidesStepsAndIsDeletedByTheDrawWhenGivenUp) {
    Model *m = gridWithMaterial(new Material);
    build(m, &gp);
    glbVar.listEnable = 1;
    ASSERT_EQ(drawStripStream(nullptr, m, &gp), 0);
    const TmeshHeader *header = m->tmesh;
    const int32_t list = header->listId;
    ASSERT_GT(list, 0);
    ASSERT_TRUE(glIsList(static_cast<GLuint>(list)));

    // Steps of the update side with nothing changed: the draw keeps playing
    // the same list, nothing is compiled again.
    BW_GraphicProps copy = gp;  // the properties as taken at a hand-over
    for (int step = 0; step < 3; ++step) {
        ASSERT_EQ(preprocessElsewhere(m, &copy), 0);
        EXPECT_EQ(m->tmesh, header);
        EXPECT_EQ(m->tmesh->listId, list);
        EXPECT_EQ(m->tmesh->stream, nullptr);
        EXPECT_EQ(m->tmesh->compileRequest, 0);
    }
    EXPECT_EQ(grListsReap(), 0);

    // Lists switched off: the update side builds a stream again, and the list
    // it gave up is still there until the draw's next pass deletes it.
    glbVar.listEnable = 0;
    ASSERT_EQ(preprocessElsewhere(m, &copy), 0);
    ASSERT_NE(m->tmesh, nullptr);
    EXPECT_EQ(m->tmesh->listId, -1);
    EXPECT_NE(m->tmesh->stream, nullptr);
    EXPECT_TRUE(glIsList(static_cast<GLuint>(list)));
    EXPECT_EQ(grListsReap(), 1);
    EXPECT_FALSE(glIsList(static_cast<GLuint>(list)));
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    modelFree(m);
}
