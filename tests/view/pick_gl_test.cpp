// Picking: the nearest of hand-written selection records, the layer's
// refusals of null arguments, and picks of cubes in an off-screen context
// seen by the scene's camera from (0, 0, 10) in a 64 x 64 viewport.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "camera.h"
#include "capture.h"
#include "dictionary.h"
#include "geometry.h"
#include "model.h"
#include "testdata.h"
#include "tol.h"
#include "view.h"

#include "graphic/gl_context.h"
#include "layer_fixture.h"

namespace {

constexpr int W = 64, H = 64;

// Selection records: name count 1, minimum and maximum depth, the name.
std::vector<uint32_t> records(std::initializer_list<std::pair<uint32_t, uint32_t>> depthAndName) {
    std::vector<uint32_t> buffer;
    for (auto [depth, name] : depthAndName) buffer.insert(buffer.end(), {1u, depth, depth, name});
    return buffer;
}

TEST(PickNearestHit, SmallestMinimumDepthUnsignedFirstOfEqualsAndNoneBeyond) {
    auto nearest = [](std::initializer_list<std::pair<uint32_t, uint32_t>> r) {
        std::vector<uint32_t> b = records(r);
        return pickNearestHit(static_cast<int>(r.size()), b.data());
    };
    EXPECT_EQ(nearest({{900, 4}, {300, 7}, {600, 2}}), 7);
    EXPECT_EQ(nearest({{300, 4}, {300, 7}}), 4) << "the first of equal depths stays";
    // Unsigned: a depth past 0x7FFFFFFF is far, not negative.
    EXPECT_EQ(nearest({{0x80000000u, 1}, {0x7FFFFFFFu, 2}}), 2);
    EXPECT_EQ(nearest({{0xFFFFFFFFu, 3}}), -1) << "the farthest depth is never kept";
    EXPECT_EQ(nearest({{0xFFFFFFFFu, 3}, {0xFFFFFFFEu, 5}}), 5);
    EXPECT_EQ(nearest({{10, 0xFFFFFFFFu}}), -1) << "a negative name";
    EXPECT_EQ(nearest({{10, 0x80000000u}, {20, 6}}), -1) << "the nearest has a negative name";
    EXPECT_EQ(pickNearestHit(0, records({{10, 1}}).data()), -1) << "no hits";

    // Records of more than one name take the first; a record with none gives -1.
    const std::vector<uint32_t> mixed = {2, 50, 60, 9, 8, 0, 40, 41, 1, 70, 70, 3};
    EXPECT_EQ(pickNearestHit(3, mixed.data()), -1);
    EXPECT_EQ(pickNearestHit(1, mixed.data()), 9);
}

class Pick : public bwtest::LayerTest {
protected:
    void SetUp() override {
        if (!bwtest::glReady(W, H)) GTEST_SKIP() << "no display with GLX";
        LayerTest::SetUp();
        ASSERT_TRUE(bwtest::glFreshState(W, H, gp));
        void **slot = tol_sidCamera(&scene);
        ASSERT_NE(slot, nullptr);
        camera = static_cast<Camera *>(*slot);
        camera->position[0] = camera->position[1] = 0.0f;
        camera->position[2] = 10.0f;
        camera->interest[0] = camera->interest[1] = camera->interest[2] = 0.0f;
        camera->fieldOfView = 0.7854f;
        camera->aspect = 1.0f;
        gp.material.shade = 1;  // filled faces: a click anywhere on a cube hits it
    }
    void TearDown() override {
        for (Model *m : models) {
            Element *e = elemGet(dict, CHP_MODELS, m->elementIndex);
            if (e) e->data = nullptr;
            modelFree(m);
        }
    }
    // A unit cube centred at (x, 0, z).
    Model *cube(const char *name, float x, float z) {
        Model *m = modelNew(name, MODEL_MESH, meshMakeCube(1.0f));
        m->globalMatrix[3][0] = x;
        m->globalMatrix[3][2] = z;
        m->elementIndex = elemAdd(dict, CHP_MODELS, elemNameParse(name, nullptr, 0), m, nullptr, 0, 0);
        models.push_back(m);
        return m;
    }
    void prepare() {
        ASSERT_EQ(TOL_preprocessALL(&scene, &gp), 0);
        ASSERT_EQ(TOL_preprocessALL(&scene, &gp), 0);
    }
    // The index of the element picked in the box, -1 for none.
    int pick(int x1, int y1, int x2, int y2) {
        TOL_Elem *elem = reinterpret_cast<TOL_Elem *>(1);
        EXPECT_EQ(TOL_modelPick(&scene, nullptr, &gp, &elem, x1, y1, x2, y2), 0);
        if (!elem) return -1;
        EXPECT_EQ(elem->chapter, static_cast<uint32_t>(CHP_MODELS));
        EXPECT_EQ(elem->dict, scene.dict);
        const int index = static_cast<int>(elem->index);
        free(elem);
        return index;
    }
    int at(int x, int y) { return pick(x - 1, y - 1, x + 1, y + 1); }

    BW_GraphicProps gp;
    Camera *camera = nullptr;
    std::vector<Model *> models;
};

}  // namespace

TEST_F(Pick, NullArgumentsAreReportedAndNothingIsPicked) {
    bwtest::OutputCapture cap;
    TOL_Elem *elem = nullptr;
    EXPECT_EQ(TOL_modelPick(nullptr, nullptr, &gp, &elem, 0, 0, 2, 2), 16);
    EXPECT_EQ(TOL_modelPick(&scene, nullptr, nullptr, &elem, 0, 0, 2, 2), 16);
    EXPECT_EQ(TOL_modelPick(&scene, nullptr, &gp, nullptr, 0, 0, 2, 2), 16);
    EXPECT_EQ(cap.out.text(),
              "BW_WARNING: TOL_modelPick(): scene: Null or Invalid argument\n"
              "BW_WARNING: TOL_modelPick(): gprops: Null or Invalid argument\n"
              "BW_WARNING: TOL_modelPick(): elem: Null or Invalid argument\n");
}

TEST_F(Pick, NearerCubeWinsEqualDepthTakesTheFirstBackgroundNothing) {
    Model *far = cube("far", 0.0f, 0.0f);
    Model *near = cube("near", 0.0f, 3.0f);
    prepare();
    const GLboolean depthBefore = glIsEnabled(GL_DEPTH_TEST);
    EXPECT_EQ(at(32, 32), near->elementIndex) << "later in the list but nearer";
    EXPECT_EQ(at(2, 2), -1) << "background";
    near->globalMatrix[3][2] = -3.0f;
    EXPECT_EQ(at(32, 32), far->elementIndex);
    near->globalMatrix[3][2] = 0.0f;
    EXPECT_EQ(at(32, 32), far->elementIndex) << "equal depth: the first in the list";

    // A hidden model is never drawn for the pick, nor is an entry hidden in the list.
    far->visible = 0;
    EXPECT_EQ(at(32, 32), near->elementIndex);
    elemGet(dict, CHP_MODELS, near->elementIndex)->deleted = ELEM_HIDDEN;
    EXPECT_EQ(at(32, 32), -1);
    elemGet(dict, CHP_MODELS, near->elementIndex)->deleted = ELEM_LIVE;

    // The pick leaves the GL as it found it.
    GLint mode = 0, depth = 0;
    glGetIntegerv(GL_MATRIX_MODE, &mode);
    glGetIntegerv(GL_RENDER_MODE, &depth);
    EXPECT_EQ(mode, GL_MODELVIEW);
    EXPECT_EQ(depth, GL_RENDER);
    EXPECT_EQ(glIsEnabled(GL_DEPTH_TEST), depthBefore);
    float m[16];
    glGetFloatv(GL_PROJECTION_MATRIX, m);
    EXPECT_EQ(m[0], 1.0f);
    EXPECT_EQ(m[14], 0.0f);
}

TEST_F(Pick, AnOrthographicCameraIsAnsweredWithAPerspectivePick) {
    // A cube at x = 3 spans columns 51 to 59 in perspective (x / (10 tan 22.5
    // degrees)); the orthographic view of the same angle field is 0.79 wide
    // and would leave it out of sight. The roll is not applied either.
    Model *side = cube("side", 3.0f, 0.0f);
    prepare();
    camera->kind = CAMERA_KIND_ORTHO;
    camera->roll = 1.0f;
    EXPECT_EQ(at(55, 32), side->elementIndex);
    EXPECT_EQ(at(41, 32), -1);

    // A box with no extent on an axis is 10 pixels on it: columns 42 to 52
    // reach the cube, the 3-pixel box at 47 does not.
    EXPECT_EQ(at(47, 32), -1);
    EXPECT_EQ(pick(47, 31, 47, 33), side->elementIndex);
    EXPECT_EQ(pick(47, 32, 47, 32), side->elementIndex);
}
