// A scene with shape and cluster elements, loaded through the layer: the
// .shp and .cls files are written here byte by byte from their layouts, the
// elements reach their model through relations 200 and 700, and the update
// list runs both.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "animation.h"
#include "capture.h"
#include "geometry.h"
#include "layer_fixture.h"
#include "model.h"
#include "testdata.h"

namespace {

// Big-endian bytes of a binary element file.
struct Bytes {
    std::string data;
    void u16(uint16_t v) { data += char(v >> 8), data += char(v & 0xFF); }
    void u32(uint32_t v) { u16(uint16_t(v >> 16)), u16(uint16_t(v & 0xFFFF)); }
    void i32(int32_t v) { u32(static_cast<uint32_t>(v)); }
    void f32(float v) {
        uint32_t bits;
        memcpy(&bits, &v, 4);
        u32(bits);
    }
    void text(const std::string &s) { data += s; }
    // id, version 4.0, a comment of 80 bytes
    void header(uint32_t id) {
        u32(id);
        f32(4.0f);
        std::string comment = "written by the test";
        comment.resize(80, '\0');
        data += comment;
    }
};

// A spline record in the tagged form: the old vertex list (token 2) then the end.
void splineRecord(Bytes &b, const float (*points)[3], int count) {
    b.u16(2);
    b.u16(static_cast<uint16_t>(count));
    for (int i = 0; i < count; ++i)
        for (int a = 0; a < 3; ++a) b.f32(points[i][a]);
    b.u16(0);
}

const float kKey1[4][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
const float kKey2[4][3] = {{0, 0, 0}, {3, 0, 0}, {3, 3, 0}, {0, 3, 0}};

std::string shapeFile() {
    Bytes b;
    b.header(0x5380F642);
    b.u16(65534);  // the count follows
    b.u16(2);
    b.text("SPLN");
    splineRecord(b, kKey1, 4);
    b.text("SPLN");
    splineRecord(b, kKey2, 4);
    return b.data;
}

// One cluster of spline point 0 with two keys lifting it by 5 and 7 in z.
std::string clusterFile() {
    Bytes b;
    b.header(0x5380F637);
    b.u16(1);  // geometry: type, then the cluster's own point of nine floats
    b.u16(6);
    for (int i = 0; i < 9; ++i) b.f32(0);
    b.u16(2);
    b.data += std::string("lift") + '\0';
    b.u16(3);
    b.i32(1);  // points
    b.i32(0);  // their indexes
    b.i32(2);  // keys
    for (float lift : {5.0f, 7.0f})
        for (int i = 0; i < 9; ++i) b.f32(i == 2 ? lift : 0);
    b.u16(0);
    return b.data;
}

Fcurve *line(int32_t type, std::vector<std::pair<float, float>> frames) {
    Fcurve *c = fcurveCreate(type, 0);
    for (auto [frame, value] : frames) {
        FcurveKey *key = fcurveKeyNew();
        key->time = frame / 30.0f;
        key->value = value;
        key->interpolation = FCV_LINEAR;
        fcurveAddKey(c, key, 0, 0, 0);
    }
    return c;
}

void writeMorphDatabase(const bwtest::TempDir &dir) {
    bwtest::OutputCapture quiet;
    ASSERT_EQ(tdLoadRelations(), 1);
    Database *db = tdDatabaseCreate(dir / "db", "db", dir / "DatabaseDir.rsrc");
    ASSERT_NE(db, nullptr);
    TdScene scene;
    Model *m = modelNew("morph", MODEL_SPLINE, splineMakeSquare(1.0f));
    std::string path = tdWriteModel(db, "morph", m);
    modelFree(m);
    const int model = scene.add(CHP_MODELS, tdFullName(path));
    tdWriteBytes(db, CHP_SHAPES, "morphkeys.1-0", shapeFile());
    tdWriteBytes(db, CHP_CLUSTERS, "lift.1-0", clusterFile());
    tdWriteBytes(db, CHP_CLUSTERS, "orphan.1-0", clusterFile());
    tdWriteBytes(db, CHP_SHAPES, "broken.1-0", "not a shape file");
    const int shapes = scene.add(CHP_SHAPES, "morphkeys.1-0");
    const int lift = scene.add(CHP_CLUSTERS, "lift.1-0");
    scene.add(CHP_CLUSTERS, "orphan.1-0");
    ASSERT_TRUE(scene.relate(CHP_MODELS, model, CHP_SHAPES, shapes, 200));
    ASSERT_TRUE(scene.relate(CHP_MODELS, model, CHP_SHAPES, scene.add(CHP_SHAPES, "broken.1-0"), 200));
    ASSERT_TRUE(scene.relate(CHP_MODELS, model, CHP_CLUSTERS, lift, 700));
    // The key index runs from 0 at frame 1 to 1 at frame 11; the cluster sits on its second key.
    auto *index = static_cast<AnimItem *>(calloc(1, sizeof(AnimItem)));
    auto *clusterKey = static_cast<AnimItem *>(calloc(1, sizeof(AnimItem)));
    *clusterKey = AnimItem{line(SHAPE_CURVE_KEY, {{1, 1}}), 700, CHP_MODELS, 0, 1, nullptr};
    *index = AnimItem{line(SHAPE_CURVE_KEY, {{1, 0}, {11, 1}}), 200, CHP_MODELS, 0, 1, clusterKey};
    std::string curves = tdWriteAnimation(db, "morph", index);
    animItemsFree(index);
    ASSERT_FALSE(curves.empty());
    scene.add(CHP_ANIMATION, tdFullName(curves));
    ASSERT_FALSE(tdWriteScene(db, "shot", scene, time(nullptr)).empty());
}

class ShapeScene : public bwtest::LayerTest {};

TEST_F(ShapeScene, ShapeAndClusterFilesReachTheirModelAndAnimateIt) {
    bwtest::TempDir dir;
    writeMorphDatabase(dir);
    TOL_Database db = loadDatabase(dir / "db");
    bwtest::StreamCapture err(stderr);
    ASSERT_EQ(TOL_sceneLoad(&db, "shot", &scene), 0);
    const std::string said = err.text();
    EXPECT_TRUE(bwtest::contains(said, " READ CLUSTER: model not found !!!\n")) << said;
    EXPECT_TRUE(bwtest::contains(said, "Missing CLUSTERS [orphan.1-0] could not be replaced: removed from scene\n")) << said;
    // A shape file that cannot be read goes to the substitution alone.
    EXPECT_TRUE(bwtest::contains(said, "Missing SHAPES [broken.1-0] could not be replaced: removed from scene\n")) << said;
    EXPECT_FALSE(bwtest::contains(said, "Invalid file header")) << said;

    const int index = elemFindByName(dict, CHP_MODELS, -1, nullptr, "morph", -1, -1, 0);
    ASSERT_GE(index, 0);
    Model *m = static_cast<Model *>(elemGet(dict, CHP_MODELS, index)->data);
    ASSERT_NE(m->shapeAnim, nullptr);
    EXPECT_EQ(m->shapeCount, 2);                // the file's count of keys
    EXPECT_EQ(m->shapeAnim->shapeCount, 3);     // and the current geometry
    ASSERT_NE(m->clusterList, nullptr);
    EXPECT_STREQ(m->clusterList->name, "lift");
    EXPECT_EQ(m->clusterList->next, nullptr);  // the orphan's clusters went nowhere

    ASSERT_EQ(TOL_updatelistGet(&scene), 0);
    bool shape = false, cluster = false;
    const UpdateList &list = tol_sidUpdateList(&scene)->list;
    for (int i = 0; i < list.count; ++i) {
        shape = shape || (list.records[i].relation == 200 && list.records[i].data == m);
        cluster = cluster || (list.records[i].relation == 700 && list.records[i].data == m);
    }
    EXPECT_TRUE(shape);
    EXPECT_TRUE(cluster);

    const float rest0[3] = {static_cast<float>(m->rest->values[0]), static_cast<float>(m->rest->values[1]),
                            static_cast<float>(m->rest->values[2])};
    ASSERT_EQ(TOL_updatelistEvalScene(&scene, 6 / 30.0f), 0);
    float xyz[4][3];
    ASSERT_EQ(geometryPositionsRead(MODEL_SPLINE, m->geometry.any, &xyz[0][0]), 4);
    for (int p = 1; p < 4; ++p)  // halfway between the keys
        for (int a = 0; a < 3; ++a) EXPECT_FLOAT_EQ(xyz[p][a], kKey1[p][a] + (kKey2[p][a] - kKey1[p][a]) * 0.5f);
    // The cluster's point: its rest place lifted by the second key.
    EXPECT_FLOAT_EQ(xyz[0][0], rest0[0]);
    EXPECT_FLOAT_EQ(xyz[0][1], rest0[1]);
    EXPECT_FLOAT_EQ(xyz[0][2], rest0[2] + 7);
}

}  // namespace
