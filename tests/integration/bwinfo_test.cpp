// The bwinfo tool on a material file, a cut copy of it and a foreign file,
// on a model file, on animation, shape and cluster files, and on a camera
// file of another writer.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "animation.h"
#include "capture.h"
#include "fileio/bytes.h"
#include "material.h"
#include "model.h"
#include "run_viewer.h"

using bwtest::RunResult;

using bwtest::contains;

namespace {

RunResult bwinfo(const std::vector<std::string> &args, const std::string &dir) {
    return bwtest::runProgram(BW_BWINFO_BIN, args, dir);
}

}  // namespace

TEST(Bwinfo, DumpsWholeCutAndForeignFiles) {
    bwtest::TempDir dir;
    Material m;
    m.name = "red";
    m.textures.resize(1);
    m.textures[0].pictureName = "wood.pic";
    ASSERT_EQ(materialFileWrite((dir / "red").c_str(), m, "a red one"), 1);

    RunResult whole = bwinfo({"red.mtr"}, dir.path());
    EXPECT_EQ(whole.status, 0) << whole.out << whole.err;
    EXPECT_EQ(whole.out.rfind("red.mtr: BRACKWOOD Binary Material\n  version: 4\n"
                              "  comment: \"a red one\"\n  prototypes:\n    record 13: 1 2 3 4 5 6 7",
                              0),
              0u)
        << whole.out;
    EXPECT_TRUE(contains(whole.out, "  chunk: \"MTRL\"\n  material \"red\"\n    shading model 4\n"
                                    "    ambient 0.5 0.5 0.5\n"))
        << whole.out;
    EXPECT_TRUE(contains(whole.out, "    2D texture \"wood.pic\"\n")) << whole.out;

    // Cut two bytes into a four-byte field near the end of the record: what
    // came before is dumped, then the offset of that field.
    size_t size = std::filesystem::file_size(dir / "red.mtr");
    std::filesystem::copy_file(dir / "red.mtr", dir / "cut.mtr");
    std::filesystem::resize_file(dir / "cut.mtr", size - 40);
    RunResult cut = bwinfo({"red.mtr", "cut.mtr"}, dir.path());
    EXPECT_EQ(cut.status, 1);
    EXPECT_TRUE(contains(cut.out, "  material \"red\"\n")) << cut.out;
    EXPECT_TRUE(contains(cut.out, "bwinfo: cut.mtr: reading stopped at offset " +
                                      std::to_string(size - 42) +
                                      ": Passed end of file cut.mtr while reading data\n"))
        << cut.out;

    dir.write("notes.txt", "hello\n");
    RunResult foreign = bwinfo({"notes.txt", "missing.mtr"}, dir.path());
    EXPECT_EQ(foreign.status, 1);
    EXPECT_EQ(foreign.out, "");
    EXPECT_EQ(foreign.err, "bwinfo: notes.txt: not an element or ascii file of the family\n"
                           "bwinfo: missing.mtr: File missing.mtr was not found\n");

    RunResult help = bwinfo({"-h"}, dir.path());
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out, "Usage: bwinfo FILE...\n");
}

TEST(Bwinfo, DumpsTheNodeTreeOfAModel) {
    bwtest::TempDir dir;
    Model *root = modelNew("root", MODEL_BARE, nullptr);
    Model *cube = modelNew("cube", MODEL_MESH, meshMakeCube(1.0f));
    Model *patch = modelNew("sheet", MODEL_PATCH, patchMakeGrid(4, 4, 1.0f));
    cube->translation[1] = 2.0f;
    modelAddChild(root, cube);
    modelAddChild(root, patch);
    for (Model *n : {cube, patch}) {
        n->materialCount = 1;
        n->materials = static_cast<Material **>(calloc(1, sizeof(Material *)));
        n->materials[0] = new Material;
        n->materials[0]->name = n == cube ? "red" : "green";
    }
    ASSERT_EQ(modelFileWritePath((dir / "tree.hrc").c_str(), root), 1);
    modelFree(root);

    RunResult run = bwinfo({"tree.hrc"}, dir.path());
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_TRUE(contains(run.out, "  chunk: \"HRCH\"\n  node \"root\" type 0\n")) << run.out;
    EXPECT_TRUE(contains(run.out, "    node \"cube\" type 4\n      scaling 1 1 1\n      rotation 0 0 0\n"
                                  "      translation 0 2 0\n      vertices 8, polygons 6, CVs 0\n"
                                  "      material \"red\"\n        shading model 4\n"))
        << run.out;
    EXPECT_TRUE(contains(run.out, "    node \"sheet\" type 1\n")) << run.out;
    EXPECT_TRUE(contains(run.out, "      vertices 0, polygons 0, CVs 16\n      material \"green\"\n")) << run.out;

    // A cut file dumps what was read and says where reading stopped.
    std::filesystem::copy_file(dir / "tree.hrc", dir / "cut.hrc");
    std::filesystem::resize_file(dir / "cut.hrc", std::filesystem::file_size(dir / "tree.hrc") - 30);
    RunResult cut = bwinfo({"cut.hrc"}, dir.path());
    EXPECT_EQ(cut.status, 1);
    EXPECT_TRUE(contains(cut.out, "    node \"cube\" type 4\n")) << cut.out;
    EXPECT_TRUE(contains(cut.out, "bwinfo: cut.hrc: reading stopped at offset ")) << cut.out;
}

TEST(Bwinfo, DumpsCurvesShapesAndClusters) {
    bwtest::TempDir dir;
    Fcurve *c = fcurveCreate(139, 0);
    for (float t : {0.0f, 1.0f}) {
        FcurveKey *k = fcurveKeyNew();
        k->time = t, k->value = 2.0f * t + 1.0f, k->interpolation = FCV_LINEAR;
        fcurveAddKey(c, k, 0, 0, 0);
    }
    AnimItem *item = static_cast<AnimItem *>(calloc(1, sizeof(AnimItem)));
    *item = AnimItem{c, 113, 8, 0, 1, nullptr};
    ASSERT_EQ(animFileWrite((dir / "ball.1-0.ani").c_str(), item), 1);
    animItemsFree(item);
    ShapeKeys keys{1, static_cast<ShapeKey *>(calloc(1, sizeof(ShapeKey)))};
    keys.keys[0] = {MODEL_MESH, meshMakeCube(1.0f)};
    ASSERT_EQ(shapeFileWrite((dir / "cube.shp").c_str(), &keys), 1);
    meshFree(static_cast<Mesh *>(keys.keys[0].geometry));
    free(keys.keys);
    Cluster lid{};
    lid.name = const_cast<char *>("lid");
    lid.type = MODEL_MESH;
    ASSERT_EQ(clusterFileWrite((dir / "lid.cls").c_str(), &lid), 1);

    RunResult run = bwinfo({"ball.1-0.ani", "cube.shp", "lid.cls"}, dir.path());
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_TRUE(contains(run.out, "ball.1-0.ani: BRACKWOOD Binary Animation\n  version: 4\n"
                                  "  comment: \"No comment...\"\n  prototypes: none\n"
                                  "  block 1: kind 113, target 8, param 0, active 1, form 0\n"
                                  "    curve type 139: pre 0, post 0, interpolation 2, 2 keys\n"
                                  "      key 1: time 0, value 1, slopes 0 0, interpolation 1, flag 0, type 0\n"
                                  "      key 2: time 1, value 3, slopes 0 0, interpolation 1, flag 0, type 0\n"
                                  "cube.shp: BRACKWOOD Binary Shape Keys\n"))
        << run.out;
    EXPECT_TRUE(contains(run.out, "    record 8: 6 2 0x0413 7 8 9")) << run.out;
    EXPECT_TRUE(contains(run.out, "  shape keys 1\n    key 1: \"MESH\" type 4, vertices 8, polygons 6, CVs 0\n"
                                  "lid.cls: BRACKWOOD Binary Cluster Keys\n"))
        << run.out;
    EXPECT_TRUE(contains(run.out, "  prototypes: none\n  cluster \"lid\" type 4, 0 points, 0 keys\n")) << run.out;

    // A cut in the keys: the curve keeps its fields, and the keys field, whose
    // size runs past the end, is refused whole where its size was read.
    std::filesystem::copy_file(dir / "ball.1-0.ani", dir / "cut.ani");
    std::filesystem::resize_file(dir / "cut.ani", std::filesystem::file_size(dir / "ball.1-0.ani") - 10);
    RunResult cut = bwinfo({"cut.ani"}, dir.path());
    EXPECT_EQ(cut.status, 1);
    EXPECT_TRUE(contains(cut.out, "  block 1: kind 113, target 8, param 0, active 1, form 0\n"
                                  "    curve type 139: pre 0, post 0, interpolation 2, 0 keys\n"
                                  "bwinfo: cut.ani: reading stopped at offset 158: "
                                  "Passed end of file cut.ani while reading data\n"))
        << cut.out;
}

TEST(Bwinfo, DumpsACameraWhosePositionBlocksEndByAWord) {
    // The position block ended by 0, the interest block holding a path and
    // ended by 7, then field of view, near and far behind them.
    using namespace bwtest;
    Bytes body = be16(3) + be16(1) + f32(1) + f32(2) + f32(3) + be16(0) + be16(4) + be16(3) + be16(5) +
                 text0("s-track") + be16(1) + f32(4) + f32(5) + f32(6) + be16(7) + be16(12) + be16(1) + f32(0.5f) +
                 be16(7) + be16(1) + f32(0.125f) + be16(8) + be16(1) + f32(800) + be16(0);
    TempDir dir;
    writeBytes(dir / "eye.cam", header(BIN_ID_CAMERA, 4.0f) + body);
    RunResult r = bwinfo({"eye.cam"}, dir.path());
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(contains(r.out, "eye.cam: BRACKWOOD Binary Camera\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "  position 1 2 3\n  interest 4 5 6\n"
                                "  roll 0, field of view 0.5, near 0.125, far 800\n"))
        << r.out;
    EXPECT_TRUE(contains(r.out, "  camera interest follows path \"s-track\", word 5\n")) << r.out;
    EXPECT_EQ(r.err, "");
}
