// Materials through the whole viewer under Xvfb, judged on the pixels of the
// script's snapshots: a model file written here byte by byte whose two nodes
// carry inline materials of their own, and a material whose diffuse colour a
// curve moves from one frame to the next. Constant materials are drawn unlit
// in their diffuse colour, so a pixel is the colour itself.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "capture.h"
#include "fileio/bytes.h"
#include "png_read.h"
#include "run_viewer.h"
#include "testdata.h"

using bwtest::Buf;
using bwtest::RunResult;

namespace {

const std::string rsrc = BW_RSRC_DIR;
constexpr int W = 400;

// A model node without a table: a mesh square from x0 to x1 and -1 to 1 in
// z = 0 facing +z, unit scaling, and one inline constant material of diffuse
// `grey`.
void nodeFields(Buf &b, const char *name, float x0, float x1, float grey) {
    b.u16(1).raw(name, strlen(name) + 1);
    b.u16(2).i32(4);
    b.u16(3);
    const float corners[4][2] = {{x0, -1}, {x1, -1}, {x1, 1}, {x0, 1}};
    b.u16(7).i32(4);
    for (const auto &c : corners) b.u16(1).f32(c[0]).f32(c[1]).f32(0).u16(0);
    const int triangles[2][3] = {{0, 1, 2}, {0, 2, 3}};
    b.u16(8).i32(2);
    for (const auto &t : triangles) {
        b.u16(1).f32(0).f32(0).f32(1);
        b.u16(2).u16(3);
        for (int v : t) b.u16(3).i32(static_cast<uint32_t>(v)).u16(2).f32(0).f32(0).f32(1).u16(0);
        b.u16(3).u16(0).u16(0);
    }
    const int edges[5][2] = {{0, 1}, {1, 2}, {2, 0}, {2, 3}, {3, 0}};
    b.u16(9).i32(5);
    for (const auto &e : edges) b.u16(4).i32(static_cast<uint32_t>(e[0])).i32(static_cast<uint32_t>(e[1])).u16(0);
    b.u16(0);  // end of the mesh
    b.u16(4).f32(1).f32(1).f32(1);
    b.u16(5).f32(0).f32(0).f32(0);
    b.u16(6).f32(0).f32(0).f32(0);
    b.u16(7).u16(1).u16(0);
    b.u16(1).raw("grey", 5).u16(2).u16(1).u16(4).f32(grey).f32(grey).f32(grey).u16(0);
}

class Materials : public ::testing::Test {
protected:
    void SetUp() override {
        if (!getenv("DISPLAY")) GTEST_SKIP() << "needs an X display (run under xvfb-run)";
        ASSERT_EQ(tdLoadRelations(), 1);
        bwtest::OutputCapture quiet;
        db = tdDatabaseCreate(dir / "mats", "mats", dir / "DatabaseDir.rsrc");
        ASSERT_NE(db, nullptr);
    }
    // Runs the viewer on scene "shot" with `script`; snapshots land in the
    // test's directory.
    void run(const std::string &script) {
        dir.write("script.txt", script);
        RunResult r = bwtest::runViewer({"-R", rsrc, "-s", "400x300", "-D", "mats", "-p", "1"}, dir.path(),
                                        {"BW_DBDIR", "BW_RSRC", "BW_LIVE_SHOWFORMATS", "BW_PIXELFORMAT",
                                         "BW_VIEWER_SCRIPT=script.txt", "LIBGL_ALWAYS_SOFTWARE=1"});
        ASSERT_EQ(r.status, 0) << r.out << r.err;
    }
    bwtest::Image picture(const std::string &name) {
        bwtest::Image image;
        EXPECT_TRUE(bwtest::readPng(dir / name, &image));
        EXPECT_EQ(image.width, W);
        return image;
    }

    bwtest::TempDir dir;
    Database *db = nullptr;
};

}  // namespace

TEST_F(Materials, TwoNodesShowTheGreysOfTheirInlineMaterials) {
    // The root, left of the centre, in a dark grey; its child, right of it,
    // in a light one. The file takes the place a model of the database has.
    Buf b;
    b.header(4.0f).raw("HRCH", 4);
    nodeFields(b, "pair", -2.5f, -0.5f, 0.25f);
    b.u16(10).u16(1);
    nodeFields(b, "right", 0.5f, 2.5f, 0.75f);
    b.u16(0);  // end of the child
    b.u16(11).u16(0).u16(0);
    std::string path;
    {
        bwtest::OutputCapture quiet;
        Model *stand = modelNew("pair", MODEL_BARE, nullptr);
        path = tdWriteModel(db, "mat-pair", stand);
        modelFree(stand);
    }
    ASSERT_FALSE(path.empty());
    bwtest::writeBytes(path, b.b);
    TdScene scene;
    const int root = scene.add(CHP_MODELS, tdFullName(path));
    const int child = scene.add(CHP_MODELS, "mat-right.1-0", false);
    ASSERT_TRUE(scene.relate(CHP_MODELS, child, CHP_MODELS, root, 110));
    {
        bwtest::OutputCapture quiet;
        ASSERT_FALSE(tdWriteScene(db, "shot", scene, time(nullptr)).empty());
    }
    run("at 3\nsnapshot shot.png\nat 4\nkey Escape\n");
    const bwtest::Image image = picture("shot.png");
    const float dark[3] = {0.25f, 0.25f, 0.25f}, light[3] = {0.75f, 0.75f, 0.75f}, none[3] = {0, 0, 0};
    bwtest::expectPlaneColour(image, -1.5f, 0.0f, dark);
    bwtest::expectPlaneColour(image, 1.5f, 0.0f, light);
    bwtest::expectPlaneColour(image, 0.0f, 0.0f, none);
}

TEST_F(Materials, ACurveOnTheDiffuseColourShowsItsValueAtEachFrame) {
    // A square in a constant material whose red runs from 0.2 at frame 1 to
    // 0.6 at frame 2; green and blue stand still.
    std::string modelFile, materialFile, curveFile;
    {
        bwtest::OutputCapture quiet;
        const float points[4][3] = {{-2, -2, 0}, {2, -2, 0}, {2, 2, 0}, {-2, 2, 0}};
        const float normals[4][3] = {{0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 1}};
        const int32_t triangles[2][3] = {{0, 1, 2}, {0, 2, 3}};
        Model *m = modelNew("square", MODEL_MESH, tdMakeMesh(points, normals, 4, triangles, 2));
        modelFile = tdFullName(tdWriteModel(db, "mat-square", m));
        modelFree(m);
        Material paint;
        paint.shadingModel = 1;
        materialFile = tdFullName(tdWriteMaterial(db, "mat-paint", paint));
        auto curve = [](int32_t type, std::vector<std::pair<float, float>> keys) {
            Fcurve *c = fcurveCreate(type, 0);
            c->interpolation = FCV_LINEAR;
            for (const auto &[frame, value] : keys) {
                FcurveKey *key = fcurveKeyNew();
                key->time = frame / 30.0f;
                key->value = value;
                key->interpolation = FCV_LINEAR;
                fcurveAddKey(c, key, 0, 0, 0);
            }
            AnimItem *item = static_cast<AnimItem *>(calloc(1, sizeof(AnimItem)));
            *item = AnimItem{c, 302, CHP_MATERIALS, 0, 1, nullptr};
            return item;
        };
        AnimItem *red = curve(48, {{1, 0.2f}, {2, 0.6f}});
        red->next = curve(49, {{1, 0.1f}});
        red->next->next = curve(50, {{1, 0.3f}});
        curveFile = tdFullName(tdWriteAnimation(db, "mat-paint", red));
        animItemsFree(red);
    }
    ASSERT_FALSE(modelFile.empty() || materialFile.empty() || curveFile.empty());
    TdScene scene;
    const int square = scene.add(CHP_MODELS, modelFile);
    ASSERT_TRUE(scene.relate(CHP_MODELS, square, CHP_MATERIALS, scene.add(CHP_MATERIALS, materialFile), 300));
    scene.add(CHP_ANIMATION, curveFile);
    {
        bwtest::OutputCapture quiet;
        ASSERT_FALSE(tdWriteScene(db, "shot", scene, time(nullptr)).empty());
    }
    run("at 2\nkey Right\nsnapshot 1.png\nat 3\nsnapshot 2.png\nat 4\nkey Escape\n");
    const float first[3] = {0.2f, 0.1f, 0.3f}, second[3] = {0.6f, 0.1f, 0.3f};
    bwtest::expectPlaneColour(picture("1.png"), 0.0f, 0.0f, first);
    bwtest::expectPlaneColour(picture("2.png"), 0.0f, 0.0f, second);
}
