// The scene draw through the whole viewer under Xvfb: scenes written with the
// test-data writers, pictures taken by the script's snapshots and compared with
// what the camera's own arithmetic says they must show.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <string>

#include "capture.h"
#include "png_read.h"
#include "run_viewer.h"
#include "testdata.h"

using bwtest::RunResult;

using bwtest::contains;

namespace {

const std::string rsrc = BW_RSRC_DIR;
constexpr int W = 400, H = 300;

struct Rect {
    int x0 = 1 << 30, y0 = 1 << 30, x1 = -1, y1 = -1;  // inclusive, rows from the top
    void add(int x, int y) {
        x0 = std::min(x0, x), y0 = std::min(y0, y), x1 = std::max(x1, x), y1 = std::max(y1, y);
    }
};

bool lit(const unsigned char *p) { return p[0] > 8 || p[1] > 8 || p[2] > 8; }

Rect litRect(const bwtest::Image &image, int *count = nullptr) {
    Rect r;
    int n = 0;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
            if (lit(image.at(x, y))) r.add(x, y), ++n;
    if (count) *count = n;
    return r;
}

// The unit cube of the scene below: turned 30 degrees about y, then moved to
// (1, 0.5, 0); seen by the default camera at (0, 0, 10) looking at the origin,
// 0.7854 radians high, in a 400 x 300 window.
constexpr float CUBE_TURN = 0.5235988f;
const float cubeAt[3] = {1.0f, 0.5f, 0.0f};

// Pixel (column, row from the top) of a world point.
void toPixel(const float p[3], float *px, float *py) {
    const float tanHalf = std::tan(0.7854f / 2), aspect = float(W) / H, depth = 10.0f - p[2];
    *px = (p[0] / (depth * tanHalf * aspect) + 1.0f) * W / 2;
    *py = H - (p[1] / (depth * tanHalf) + 1.0f) * H / 2;
}

// The pixels whose centres the projected cube covers: the box of its corners.
Rect projectedCube() {
    float x0 = 1e9f, y0 = 1e9f, x1 = -1e9f, y1 = -1e9f;
    const float c = std::cos(CUBE_TURN), s = std::sin(CUBE_TURN);
    for (int i = 0; i < 8; ++i) {
        float x = (i & 1) ? 0.5f : -0.5f, y = (i & 2) ? 0.5f : -0.5f, z = (i & 4) ? 0.5f : -0.5f;
        // Row vectors through the rotation about y: x' = x c + z s, z' = -x s + z c.
        const float p[3] = {x * c + z * s + cubeAt[0], y + cubeAt[1], -x * s + z * c + cubeAt[2]};
        float px, py;
        toPixel(p, &px, &py);
        x0 = std::min(x0, px), x1 = std::max(x1, px), y0 = std::min(y0, py), y1 = std::max(y1, py);
    }
    Rect r;
    r.x0 = int(std::ceil(x0 - 0.5f)), r.x1 = int(std::floor(x1 - 0.5f));
    r.y0 = int(std::ceil(y0 - 0.5f)), r.y1 = int(std::floor(y1 - 0.5f));
    return r;
}

void expectNear(const Rect &got, const Rect &want) {
    EXPECT_NEAR(got.x0, want.x0, 2);
    EXPECT_NEAR(got.x1, want.x1, 2);
    EXPECT_NEAR(got.y0, want.y0, 2);
    EXPECT_NEAR(got.y1, want.y1, 2);
}

class Draw : public ::testing::Test {
protected:
    void SetUp() override {
        if (!getenv("DISPLAY")) GTEST_SKIP() << "needs an X display (run under xvfb-run)";
        ASSERT_EQ(tdLoadRelations(), 1);
    }
    // The database "draw" at dir/db with one scene of the models under `root`,
    // each named node an element of the hierarchy.
    void writeScene(Model *root, const std::vector<std::string> &nodes) {
        bwtest::OutputCapture quiet;
        Database *db = tdDatabaseCreate(dir / "db", "draw", dir / "DatabaseDir.rsrc");
        ASSERT_NE(db, nullptr);
        std::string file = tdFullName(tdWriteModel(db, "draw-" + std::string(root->name), root));
        modelFree(root);
        ASSERT_FALSE(file.empty());
        TdScene scene;
        int top = scene.add(CHP_MODELS, file);
        for (const std::string &n : nodes)
            ASSERT_TRUE(scene.relate(CHP_MODELS, scene.add(CHP_MODELS, "draw-" + n + ".1-0", false),
                                     CHP_MODELS, top, 110));
        ASSERT_FALSE(tdWriteScene(db, "shot", scene, time(nullptr)).empty());
    }
    void writeCube() {
        Model *cube = modelNew("cube", MODEL_MESH, meshMakeCube(1.0f));
        cube->rotation[1] = CUBE_TURN;
        for (int k = 0; k < 3; ++k) cube->translation[k] = cubeAt[k];
        writeScene(cube, {});
    }
    RunResult run(const std::string &script, std::vector<std::string> args = {},
                  std::vector<std::string> env = {}) {
        dir.write("script.txt", script);
        args.insert(args.begin(), {"-R", rsrc, "-s", "400x300"});
        env.insert(env.begin(), {"BW_DBDIR", "BW_RSRC", "BW_LIVE_SHOWFORMATS", "BW_PIXELFORMAT",
                                 "DEBUG_CULLING", "BW_VIEWER_SCRIPT=script.txt",
                                 "LIBGL_ALWAYS_SOFTWARE=1"});
        return bwtest::runViewer(args, dir.path(), env);
    }
    bwtest::Image shot(const std::string &name) {
        bwtest::Image image;
        EXPECT_TRUE(bwtest::readPng(dir / name, &image)) << name;
        EXPECT_EQ(image.width, W);
        EXPECT_EQ(image.height, H);
        return image;
    }
    bwtest::TempDir dir;
};

}  // namespace

TEST_F(Draw, CubeCoversItsProjectionShadedWireAndMatte) {
    writeCube();
    RunResult r = run("at 3\nsnapshot shaded.png\nat 4\nkey w\nat 6\nsnapshot wire.png\n"
                      "at 7\nkey m\nat 9\nsnapshot matte.png\nat 10\nkey Escape\n");
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(contains(r.out, "Display mode: WIREFRAME\n"));
    EXPECT_TRUE(contains(r.out, "Display mode: MATTE\n"));
    const Rect want = projectedCube();

    // Shaded: the faces fill the projection, lit differently each.
    bwtest::Image image = shot("shaded.png");
    int filled = 0;
    expectNear(litRect(image, &filled), want);
    std::set<int> shades;
    for (int y = want.y0; y <= want.y1; ++y)
        for (int x = want.x0; x <= want.x1; ++x)
            if (lit(image.at(x, y))) shades.insert(image.at(x, y)[0] << 16 | image.at(x, y)[1] << 8 | image.at(x, y)[2]);
    EXPECT_GE(shades.size(), 2u);

    // Wireframe: grey edges over the same box, nothing between them.
    image = shot("wire.png");
    int lines = 0;
    expectNear(litRect(image, &lines), want);
    EXPECT_LT(lines * 4, filled);
    float cx, cy;
    toPixel(cubeAt, &cx, &cy);
    EXPECT_FALSE(lit(image.at(int(cx), int(cy))));
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const unsigned char *p = image.at(x, y);
            if (!lit(p)) continue;
            ASSERT_TRUE(p[0] == p[1] && p[1] == p[2] && p[0] >= 120 && p[0] <= 136) << x << "," << y;
        }

    // Matte: every pixel of the model is its alpha, 1, unlit.
    image = shot("matte.png");
    int matte = 0;
    expectNear(litRect(image, &matte), want);
    EXPECT_NEAR(matte, filled, filled / 50);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const unsigned char *p = image.at(x, y);
            if (!lit(p)) continue;
            ASSERT_TRUE(p[0] == 255 && p[1] == 255 && p[2] == 255) << x << "," << y;
        }
}

// An instance shows its lines in yellow and no faces (it has no strips of its
// own); with -e it is a model of its own: grey lines, and faces that fill the
// cube's projection.
TEST_F(Draw, ExpandedInstancesDrawAsModelsOfTheirOwn) {
    Model *cube = modelNew("cube", MODEL_MESH, meshMakeCube(1.0f));
    cube->rotation[1] = CUBE_TURN;
    for (int k = 0; k < 3; ++k) cube->translation[k] = cubeAt[k];
    cube->kind = MODEL_KIND_INSTANCE;
    writeScene(cube, {});
    const std::string script = "at 3\nsnapshot shaded.png\nat 4\nkey w\nat 6\nsnapshot wire.png\nat 7\nkey Escape\n";
    auto colours = [&](const char *name) {
        std::set<int> seen;
        bwtest::Image image = shot(name);
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x)
                if (lit(image.at(x, y))) seen.insert(image.at(x, y)[0] << 16 | image.at(x, y)[1] << 8 | image.at(x, y)[2]);
        return seen;
    };
    RunResult r = run(script);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(colours("wire.png"), std::set<int>{0xFFFF00});
    EXPECT_TRUE(colours("shaded.png").empty());

    r = run(script, {"-e"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    for (int c : colours("wire.png")) {
        const int red = c >> 16, green = c >> 8 & 255, blue = c & 255;
        ASSERT_TRUE(red == green && green == blue && red >= 120 && red <= 136) << std::hex << c;
    }
    expectNear(litRect(shot("shaded.png")), projectedCube());
}

TEST_F(Draw, CullingKeepsThePictureAndSaysWhatItPruned) {
    // A row of cubes in sight and two far to the sides, under one group.
    Model *row = modelNew("row", MODEL_BARE, nullptr);
    const float xs[5] = {-2.0f, 0.0f, 2.0f, -40.0f, 40.0f};
    const char *names[5] = {"a", "b", "c", "farleft", "farright"};
    std::vector<std::string> nodes;
    for (int i = 0; i < 5; ++i) {
        Model *m = modelNew(names[i], MODEL_MESH, meshMakeCube(1.0f));
        m->translation[0] = xs[i];
        m->rotation[0] = 0.3f * i;
        modelAddChild(row, m);
        nodes.push_back(names[i]);
    }
    writeScene(row, nodes);
    RunResult r = run("at 3\nsnapshot plain.png\nat 4\nkey k\nat 5\nsnapshot culled.png\nat 6\nkey Escape\n",
                      {}, {"DEBUG_CULLING=Y"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    bwtest::Image plain = shot("plain.png"), culled = shot("culled.png");
    EXPECT_EQ(plain.rgb, culled.rgb);
    int count = 0;
    litRect(plain, &count);
    EXPECT_GT(count, 1000);
    EXPECT_TRUE(contains(r.err, "branch from ROOT row, visibility = PARTIALLY IN SIGHT\n")) << r.err;
    EXPECT_TRUE(contains(r.err, "model farleft, visibility = NOT IN SIGHT\n"));
    EXPECT_TRUE(contains(r.err, "model farright, visibility = NOT IN SIGHT\n"));
    EXPECT_TRUE(contains(r.err, "model b, visibility = COMPLETLY IN SIGHT\n"));
    // Culling is off until the key: the frames before it print nothing.
    EXPECT_FALSE(contains(r.err, "Frame 3,"));
    EXPECT_TRUE(contains(r.err, "Frame 4,"));
}

TEST_F(Draw, DemoSceneMovesBetweenItsFirstAndThirtiethFrame) {
    RunResult made = bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
    ASSERT_EQ(made.status, 0) << made.err;
    // Key Right at the start of a frame evaluates animation frame 1 in it; each
    // frame after goes one further.
    RunResult r = run("at 2\nkey Right\nsnapshot first.png\nat 31\nsnapshot thirtieth.png\n"
                      "at 32\nkey Escape\n");
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    bwtest::Image first = shot("first.png"), later = shot("thirtieth.png");
    int shown = 0, changed = 0;
    litRect(first, &shown);
    for (size_t i = 0; i < first.rgb.size(); i += 3)
        if (first.rgb[i] != later.rgb[i] || first.rgb[i + 1] != later.rgb[i + 1] ||
            first.rgb[i + 2] != later.rgb[i + 2])
            ++changed;
    EXPECT_GT(shown, 2000);
    EXPECT_GT(changed, 500);
}

// The figure's gold sleeve bends with the arm: the pixels it covers at frame
// 1 and at frame 31 (the hand gone up a quarter turn of the ball's circle)
// differ. The other models are red and green, so gold tells the sleeve.
TEST_F(Draw, TheFiguresSleeveBendsWithTheArm) {
    RunResult made = bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
    ASSERT_EQ(made.status, 0) << made.err;
    RunResult r = run("at 2\nkey Right\nsnapshot first.png\nat 31\nsnapshot thirtieth.png\n"
                      "at 32\nkey Escape\n",
                      {"-D", "demo", "-S", "figure", "-d", "2"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    bwtest::Image first = shot("first.png"), later = shot("thirtieth.png");
    auto gold = [](const bwtest::Image &image, size_t i) {
        const int red = image.rgb[i], green = image.rgb[i + 1], blue = image.rgb[i + 2];
        return red > 60 && green > red / 2 && green < red && blue < green / 2;
    };
    int before = 0, after = 0, changed = 0;
    for (size_t i = 0; i < first.rgb.size(); i += 3) {
        before += gold(first, i);
        after += gold(later, i);
        changed += gold(first, i) != gold(later, i);
    }
    EXPECT_GT(before, 300);
    EXPECT_GT(after, 300);
    EXPECT_GT(changed, before / 4);
}

// A face lit by the light model alone (a material with a white ambient and a
// black diffuse, so the lights add nothing) shows the ambient colour that the
// scene's setup file gives: the colour times 255 in each channel.
TEST_F(Draw, TheSetupFilesAmbientColourLightsAFace) {
    {
        bwtest::OutputCapture quiet;
        Database *db = tdDatabaseCreate(dir / "db", "draw", dir / "DatabaseDir.rsrc");
        ASSERT_NE(db, nullptr);
        Model *wall = modelNew("wall", MODEL_MESH, meshMakeCube(4.0f));
        std::string file = tdFullName(tdWriteModel(db, "draw-wall", wall));
        modelFree(wall);
        Material dim;
        dim.name = "dim";
        dim.shadingModel = 2;
        for (int k = 0; k < 3; ++k) dim.ambient[k] = 1.0f, dim.diffuse[k] = 0.0f;
        std::string material = tdFullName(tdWriteMaterial(db, "draw-dim", dim));
        dir.write("db/SETUP_BRAK/draw-lit.1-0.sts", "SSET 3.0\nAMBIENT_COLOR 0.5 0.25 0.75\n");
        TdScene scene;
        int top = scene.add(CHP_MODELS, file);
        ASSERT_TRUE(scene.relate(CHP_MODELS, top, CHP_MATERIALS, scene.add(CHP_MATERIALS, material), 300));
        scene.add(CHP_SETUP_BRAK, "draw-lit.1-0");
        ASSERT_FALSE(tdWriteScene(db, "shot", scene, time(nullptr)).empty());
    }
    RunResult r = run("at 2\nsnapshot lit.png\nat 3\nkey Escape\n", {"-D", "draw", "-S", "shot", "-d", "2"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    bwtest::Image image = shot("lit.png");
    const unsigned char *centre = image.at(W / 2, H / 2);
    EXPECT_NEAR(centre[0], 128, 3);
    EXPECT_NEAR(centre[1], 64, 3);
    EXPECT_NEAR(centre[2], 191, 3);
}

// The deform scene's geometry changes between frames 1 and 31 in wireframe,
// shaded and textured display alike: the lattice swings the ball, the tube
// slides along its path and the wave crosses the pond.
TEST_F(Draw, TheDeformSceneChangesItsGeometryInEveryDisplayMode) {
    RunResult made = bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
    ASSERT_EQ(made.status, 0) << made.err;
    for (const char *mode : {"1", "2", "3"}) {
        RunResult r = run("at 2\nkey Right\nsnapshot first.png\nat 31\nsnapshot later.png\nat 32\nkey Escape\n",
                          {"-D", "demo", "-S", "deform", "-d", mode});
        ASSERT_EQ(r.status, 0) << r.out << r.err;
        bwtest::Image first = shot("first.png"), later = shot("later.png");
        int changed = 0, litCount = 0;
        for (size_t i = 0; i < first.rgb.size(); i += 3) {
            litCount += lit(&first.rgb[i]);
            changed += std::abs(first.rgb[i] - later.rgb[i]) + std::abs(first.rgb[i + 1] - later.rgb[i + 1]) +
                           std::abs(first.rgb[i + 2] - later.rgb[i + 2]) > 30;
        }
        EXPECT_GT(litCount, 2000) << "mode " << mode;
        EXPECT_GT(changed, 1000) << "mode " << mode;
    }
}
