// The scene optimisation through the whole viewer under Xvfb: the Texture
// Summary of a scene with three textures of one picture and two equal
// materials, and its snapshot against the one of the same scene built with
// one texture and one material from the start.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "capture.h"
#include "png_read.h"
#include "run_viewer.h"
#include "testdata.h"

using bwtest::RunResult;

namespace {

const std::string rsrc = BW_RSRC_DIR;

// A square from -2 to 2 in x and y, in the plane z = 0 facing +z, as two quads
// of two triangles; the right quad's polygons take the model's second material.
Mesh *square() {
    const float points[6][3] = {{-2, -2, 0}, {0, -2, 0}, {2, -2, 0}, {-2, 2, 0}, {0, 2, 0}, {2, 2, 0}};
    const float normals[6][3] = {{0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 1}};
    const int32_t triangles[4][3] = {{0, 1, 4}, {0, 4, 3}, {1, 2, 5}, {1, 5, 4}};
    Mesh *m = tdMakeMesh(points, normals, 6, triangles, 4);
    m->polygons[2].material = m->polygons[3].material = 1;
    return m;
}

class Optimize : public ::testing::Test {
protected:
    void SetUp() override {
        if (!getenv("DISPLAY")) GTEST_SKIP() << "needs an X display (run under xvfb-run)";
        ASSERT_EQ(tdLoadRelations(), 1);
        bwtest::OutputCapture quiet;
        db = tdDatabaseCreate(dir / "opt", "opt", dir / "DatabaseDir.rsrc");
        ASSERT_NE(db, nullptr);
        // A 300 x 200 picture: red on the left half, blue on the right.
        PictureInfo p = tdPictureNew(300, 200, false);
        for (int y = 0; y < 200; ++y)
            for (int x = 0; x < 300; ++x) (x < 150 ? p.planes[0] : p.planes[2])[y * 300 + x] = 255;
        picture = tdFullName(tdWritePicture(db, "opt-photo", p));
        picFree(&p);
        Model *m = modelNew("square", MODEL_MESH, square());
        model = tdFullName(tdWriteModel(db, "opt-square", m));
        modelFree(m);
        Material white;
        white.shadingModel = 1;  // constant: the picture in its own colours
        for (float &c : white.diffuse) c = 1.0f;
        materials[0] = tdFullName(tdWriteMaterial(db, "opt-white", white));
        materials[1] = tdFullName(tdWriteMaterial(db, "opt-white2", white));
        Texture2D map;
        map.pictureName = picture;
        map.method = 1;
        map.interpolate = 0;
        map.boxSize[0] = map.boxSize[1] = 4.0f;
        for (int i = 0; i < 3; ++i) textures[i] = tdFullName(tdWriteTexture2D(db, "opt-map" + std::to_string(i), map));
    }
    // Scene `name`: the square in `materialCount` materials with `textureCount` textures.
    void writeScene(const std::string &name, int materialCount, int textureCount) {
        bwtest::OutputCapture quiet;
        TdScene scene;
        const int top = scene.add(CHP_MODELS, model);
        // With one material the right quad's slot falls back to the first.
        for (int i = 0; i < materialCount; ++i) {
            const int mat = scene.add(CHP_MATERIALS, materials[i]);
            ASSERT_TRUE(scene.relate(CHP_MODELS, top, CHP_MATERIALS, mat, 300));
        }
        for (int i = 0; i < textureCount; ++i)
            ASSERT_TRUE(scene.relate(CHP_MODELS, top, CHP_TEXTURES2D, scene.add(CHP_TEXTURES2D, textures[i]), 500));
        ASSERT_FALSE(tdWriteScene(db, name, scene, time(nullptr)).empty());
    }
    RunResult shoot(const std::string &scene, const std::string &png) {
        dir.write("script.txt", "at 3\nsnapshot " + png + "\nat 4\nkey Escape\n");
        return bwtest::runViewer({"-R", rsrc, "-s", "400x300", "-D", "opt", "-S", scene, "-d", "3", "-p", "1"},
                                 dir.path(),
                                 {"BW_DBDIR", "BW_RSRC", "BW_LIVE_SHOWFORMATS", "BW_PIXELFORMAT",
                                  "BW_VIEWER_SCRIPT=script.txt", "LIBGL_ALWAYS_SOFTWARE=1"});
    }

    bwtest::TempDir dir;
    Database *db = nullptr;
    std::string picture, model, materials[2], textures[3];
};

}  // namespace

TEST_F(Optimize, MergedTexturesAndMaterialsDrawAsOneOfEach) {
    writeScene("merged", 2, 3);
    RunResult merged = shoot("merged", "merged.png");
    ASSERT_EQ(merged.status, 0) << merged.out << merged.err;
    EXPECT_TRUE(bwtest::contains(merged.out,
                                 "Texture Summary\n"
                                 "---------------\n"
                                 "# of pictures:          1\n"
                                 "# of pictures merged:   2\n"
                                 "# of materials merged:  1\n"
                                 "Used texture memory:    131072\n"
                                 "\n"))
        << merged.out;

    writeScene("single", 1, 1);
    RunResult single = shoot("single", "single.png");
    ASSERT_EQ(single.status, 0) << single.out << single.err;
    EXPECT_TRUE(bwtest::contains(single.out,
                                 "# of pictures:          1\n"
                                 "# of pictures merged:   0\n"
                                 "# of materials merged:  0\n"))
        << single.out;

    bwtest::Image a, b;
    ASSERT_TRUE(bwtest::readPng(dir / "merged.png", &a));
    ASSERT_TRUE(bwtest::readPng(dir / "single.png", &b));
    ASSERT_EQ(a.width, b.width);
    ASSERT_EQ(a.height, b.height);
    EXPECT_TRUE(a.rgb == b.rgb);
    // The picture shows: red on the left of the square, blue on its right.
    const float red[3] = {1, 0, 0}, blue[3] = {0, 0, 1};
    bwtest::expectPlaneColour(a, -1.0f, 0.0f, red);
    bwtest::expectPlaneColour(a, 1.0f, 0.0f, blue);
}
