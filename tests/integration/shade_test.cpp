// Materials, lights and textures through the whole viewer under Xvfb: scenes
// of one square facing the default camera, written with the test-data
// writers, and the pixels of the script's snapshots against the lighting
// equation, the picture, and the frames of a picture sequence as it plays.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "capture.h"
#include "graphic.h"
#include "png_read.h"
#include "run_viewer.h"
#include "testdata.h"

using bwtest::RunResult;

namespace {

const std::string rsrc = BW_RSRC_DIR;
constexpr int W = 400, H = 300;
constexpr float HALF = 2.0f;  // the square runs from -2 to 2 in x and y

// A square in the plane z = 0 facing +z, `n` by `n` quads, so that light
// reckoned at the vertices can show a cone's edge.
Mesh *square(int n) {
    std::vector<float> points, normals;
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i) {
            points.insert(points.end(), {HALF * (2.0f * i / n - 1.0f), HALF * (2.0f * j / n - 1.0f), 0.0f});
            normals.insert(normals.end(), {0.0f, 0.0f, 1.0f});
        }
    std::vector<int32_t> triangles;
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const int32_t v = j * (n + 1) + i;
            triangles.insert(triangles.end(), {v, v + 1, v + n + 2, v, v + n + 2, v + n + 1});
        }
    return tdMakeMesh(reinterpret_cast<const float(*)[3]>(points.data()),
                      reinterpret_cast<const float(*)[3]>(normals.data()), (n + 1) * (n + 1),
                      reinterpret_cast<const int32_t(*)[3]>(triangles.data()), 2 * n * n);
}

class Shade : public ::testing::Test {
protected:
    void SetUp() override {
        if (!getenv("DISPLAY")) GTEST_SKIP() << "needs an X display (run under xvfb-run)";
        ASSERT_EQ(tdLoadRelations(), 1);
        database();
    }
    // A fresh database, which the next shot shows.
    void database() {
        bwtest::OutputCapture quiet;
        name = "shade" + std::to_string(++databases);
        db = tdDatabaseCreate(dir / name, name, dir / "DatabaseDir.rsrc");
        ASSERT_NE(db, nullptr);
    }
    // The scene "shot": the square of `quads` in `material`, with `lights`
    // and a texture when one is given.
    void writeScene(int quads, const Material &material, const std::vector<Light> &lights,
                    const Texture2D *texture = nullptr) {
        bwtest::OutputCapture quiet;
        Model *m = modelNew("square", MODEL_MESH, square(quads));
        std::string model = tdFullName(tdWriteModel(db, "shade-square", m));
        modelFree(m);
        TdScene scene;
        int top = scene.add(CHP_MODELS, model);
        int mat = scene.add(CHP_MATERIALS, tdFullName(tdWriteMaterial(db, "shade-paint", material)));
        ASSERT_TRUE(scene.relate(CHP_MODELS, top, CHP_MATERIALS, mat, 300));
        for (const Light &l : lights) scene.add(CHP_LIGHTS, tdFullName(tdWriteLight(db, "shade-light", l)));
        if (texture) {
            int t = scene.add(CHP_TEXTURES2D, tdFullName(tdWriteTexture2D(db, "shade-map", *texture)));
            ASSERT_TRUE(scene.relate(CHP_MODELS, top, CHP_TEXTURES2D, t, 500));
        }
        ASSERT_FALSE(tdWriteScene(db, "shot", scene, time(nullptr)).empty());
    }
    // Runs the viewer with `script` and gives the snapshot `picture`.
    bwtest::Image shoot(std::vector<std::string> args = {},
                        const std::string &script = "at 3\nsnapshot shot.png\nat 4\nkey Escape\n",
                        const std::string &picture = "shot.png") {
        dir.write("script.txt", script);
        args.insert(args.begin(), {"-R", rsrc, "-s", "400x300", "-D", name});
        RunResult r = bwtest::runViewer(args, dir.path(),
                                        {"BW_DBDIR", "BW_RSRC", "BW_LIVE_SHOWFORMATS", "BW_PIXELFORMAT",
                                         "BW_VIEWER_SCRIPT=script.txt", "LIBGL_ALWAYS_SOFTWARE=1"});
        EXPECT_EQ(r.status, 0) << r.out << r.err;
        return snapshot(picture);
    }
    bwtest::Image snapshot(const std::string &picture) {
        bwtest::Image image;
        EXPECT_TRUE(bwtest::readPng(dir / picture, &image));
        EXPECT_EQ(image.width, W);
        return image;
    }
    static Light light(uint16_t type, std::vector<float> at, std::vector<float> aim = {0, 0, 0}) {
        Light l;
        l.type = type;
        for (int k = 0; k < 3; ++k) l.position[k] = at[k], l.interest[k] = aim[k];
        return l;
    }

    bwtest::TempDir dir;
    Database *db = nullptr;  // the database of the next shot
    std::string name;        // its name
    int databases = 0;       // made so far
};

}  // namespace

TEST_F(Shade, AWhiteLightHeadOnShowsTheDiffuseColour) {
    Material paint;
    paint.shadingModel = 2;  // no highlight
    const float ambient[3] = {0.1f, 0.3f, 0.05f}, diffuse[3] = {0.8f, 0.4f, 0.2f};
    memcpy(paint.ambient, ambient, sizeof ambient);
    memcpy(paint.diffuse, diffuse, sizeof diffuse);
    writeScene(1, paint, {light(3, {0, 0, 1})});
    bwtest::Image image = shoot();
    // The light model's ambient on the material's, and the whole diffuse:
    // the light falls along the normal.
    const SceneGlobals scene;  // the block of a scene no curve moves
    float want[3];
    for (int k = 0; k < 3; ++k) want[k] = scene.ambient[k] * ambient[k] + diffuse[k];
    for (float at : {-1.5f, 0.0f, 1.5f}) bwtest::expectPlaneColour(image, at, at, want, 2);
    const float none[3] = {0, 0, 0};
    bwtest::expectPlaneColour(image, HALF + 0.5f, 0, none, 0);
}

TEST_F(Shade, ATexturedSquareShowsThePictureCornersAndTurnsThemBySwap) {
    // Four quarters: red and green below, blue and white above.
    PictureInfo p = tdPictureNew(16, 16, false);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x) {
            const size_t at = static_cast<size_t>(y) * 16 + x;
            p.planes[0][at] = (x >= 8) == (y >= 8) ? 255 : 0;
            p.planes[1][at] = x >= 8 ? 255 : 0;
            p.planes[2][at] = y >= 8 ? 255 : 0;
        }
    Material white;
    white.shadingModel = 1;  // constant: the picture in its own colours
    for (float &c : white.diffuse) c = 1.0f;
    Texture2D map;
    map.method = 1;  // the XY plane, over the square
    map.interpolate = 0;
    map.boxSize[0] = map.boxSize[1] = 2 * HALF;
    const float red[3] = {1, 0, 0}, green[3] = {0, 1, 0}, blue[3] = {0, 0, 1}, whiteRgb[3] = {1, 1, 1};
    // Corners bottom left, bottom right, top left, top right.
    const struct {
        uint16_t swap;
        const float *corner[4];
    } cases[] = {{0, {red, green, blue, whiteRgb}}, {1, {whiteRgb, green, blue, red}}};
    for (const auto &c : cases) {
        database();
        map.pictureName = tdFullName(tdWritePicture(db, "shade-quarters", p));
        map.swap = c.swap;
        writeScene(1, white, {}, &map);
        bwtest::Image image = shoot({"-d", "3"});
        const float in = HALF - 0.2f;
        for (int k = 0; k < 4; ++k)
            bwtest::expectPlaneColour(image, k % 2 ? in : -in, k / 2 ? in : -in, c.corner[k]);
        // Shaded, not textured: the material's white alone.
        bwtest::expectPlaneColour(shoot({"-d", "2"}), in, in, whiteRgb);
    }
    picFree(&p);
}

TEST_F(Shade, ASpotLightsInsideItsConeOnly) {
    Material paint;
    paint.shadingModel = 2;
    for (float &c : paint.ambient) c = 0.0f;
    for (float &c : paint.diffuse) c = 1.0f;
    Light spot = light(2, {0, 0, 5});
    spot.coneAngle = 0.2f;  // about 1 across on the square
    writeScene(40, paint, {spot});
    bwtest::Image image = shoot();
    auto red = [&](float x, float y) {
        int px, py;
        bwtest::planePixel(x, y, W, H, &px, &py);
        return image.at(px, py)[0];
    };
    EXPECT_GT(red(0, 0), 240) << "centre";
    EXPECT_GT(red(0.6f, 0), 200) << "inside";
    EXPECT_LT(red(1.5f, 0), 4) << "outside";
    EXPECT_LT(red(-1.0f, 1.0f), 4) << "outside";
}

TEST_F(Shade, ASequenceShowsThePictureOfThePlayedFrame) {
    // Frame 1 of the sequence red, frame 2 green, in the PICTURES chapter.
    for (int frame = 1; frame <= 2; ++frame) {
        PictureInfo p = tdPictureNew(8, 8, false);
        memset(p.planes[frame - 1], 255, 64);
        std::string path = dir / (name + "/PICTURES/shade-clip.1-0." + std::to_string(frame) + ".pic");
        ASSERT_EQ(picWriteImage(path.c_str(), &p, PIC_WRITE_RUNS), 1);
        picFree(&p);
    }
    Material white;
    white.shadingModel = 1;
    for (float &c : white.diffuse) c = 1.0f;
    Texture2D map;
    map.method = 1;
    map.sequenceName = "shade-clip.1-0";
    map.boxSize[0] = map.boxSize[1] = 2 * HALF;
    writeScene(1, white, {}, &map);
    const float red[3] = {1, 0, 0}, green[3] = {0, 1, 0};
    bwtest::expectPlaneColour(shoot({"-d", "3", "-p", "1"},
                                    "at 2\nkey Right\nsnapshot 1.png\nat 3\nsnapshot 2.png\nat 4\nkey Escape\n", "1.png"),
                              0, 0, red, 0);
    bwtest::expectPlaneColour(snapshot("2.png"), 0, 0, green, 0);
}
