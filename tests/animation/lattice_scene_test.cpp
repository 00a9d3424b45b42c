// A scene with lattice elements, loaded through the layer: the .lat file is
// written here field by field from the token table, the element reaches its
// model through relation 210, and the update list deforms the model with it.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "animation.h"
#include "camera.h"
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
    void f32(float v) {
        uint32_t bits;
        memcpy(&bits, &v, 4);
        u32(bits);
    }
    void vec(float x, float y, float z) { f32(x), f32(y), f32(z); }
};

// One key of a 2 x 2 x 2 cage over the box -2..2 (scaling 4), its far corner
// (the last point, x fastest) lifted by `lift` in z.
std::string latticeFile(float lift) {
    Bytes b;
    b.u32(0x5380F638);  // lattice
    b.f32(4.0f);
    b.data += std::string(80, '\0');  // comment
    b.u16(1), b.u16(0);               // kind
    b.u16(2), b.u16(2), b.u16(2), b.u16(2);  // divisions
    b.u16(3), b.u16(0), b.u16(0), b.u16(0);  // words
    b.u16(6), b.vec(4, 4, 4);         // scaling
    b.u16(7), b.vec(0, 0, 0);         // rotation
    b.u16(8), b.vec(0, 0, 0);         // translation
    b.u16(4);
    for (int i = 0; i < 8; ++i)
        b.vec(i & 1 ? 2.0f : -2.0f, i & 2 ? 2.0f : -2.0f, (i & 4 ? 2.0f : -2.0f) + (i == 7 ? lift : 0.0f));
    b.u16(0);
    return b.data;
}

class LatticeScene : public bwtest::LayerTest {};

TEST_F(LatticeScene, LatticeFileDeformsItsModelThroughTheUpdateList) {
    bwtest::TempDir dir;
    std::string orphanPath;
    {
        bwtest::OutputCapture quiet;
        ASSERT_EQ(tdLoadRelations(), 1);
        Database *db = tdDatabaseCreate(dir / "db", "db", dir / "DatabaseDir.rsrc");
        ASSERT_NE(db, nullptr);
        TdScene scene;
        Model *m = modelNew("ball", MODEL_SPLINE, splineMakeSquare(1.0f));
        std::string path = tdWriteModel(db, "ball", m);
        modelFree(m);
        const int model = scene.add(CHP_MODELS, tdFullName(path));
        tdWriteBytes(db, CHP_LATTICES, "cage.1-0", latticeFile(1.0f));
        tdWriteBytes(db, CHP_LATTICES, "orphan.1-0", latticeFile(0.0f));
        orphanPath = db->chapterPath + "orphan.1-0.lat";
        const int cage = scene.add(CHP_LATTICES, "cage.1-0");
        scene.add(CHP_LATTICES, "orphan.1-0");
        ASSERT_TRUE(scene.relate(CHP_MODELS, model, CHP_LATTICES, cage, 210));
        ASSERT_FALSE(tdWriteScene(db, "shot", scene, time(nullptr)).empty());
    }
    TOL_Database db = loadDatabase(dir / "db");
    bwtest::OutputCapture said;
    ASSERT_EQ(TOL_sceneLoad(&db, "shot", &scene), 0);
    const std::string out = said.out.text();
    said.err.text();
    EXPECT_TRUE(bwtest::contains(out, "BW_WARNING: sceneLoad(): " + orphanPath + ": No model exists for this lattice\n"))
        << out;

    const int index = elemFindByName(dict, CHP_MODELS, -1, nullptr, "ball", -1, -1, 0);
    ASSERT_GE(index, 0);
    Model *m = static_cast<Model *>(elemGet(dict, CHP_MODELS, index)->data);
    ASSERT_NE(m->deformers, nullptr);
    const Lattice *lattice = m->deformers->slot[DEFORM_SLOT_LOCAL].lattice;
    ASSERT_NE(lattice, nullptr);
    ASSERT_EQ(lattice->keyCount, 1);
    // The element shows the model's lattice, which the icons draw.
    const int cage = elemFindByName(dict, CHP_LATTICES, -1, nullptr, "cage", -1, -1, 0);
    ASSERT_GE(cage, 0);
    EXPECT_EQ(elemGet(dict, CHP_LATTICES, cage)->data, lattice);

    // The load's own scene update has run the list once already: the rest
    // copy holds the points as read, and another walk gives the same result.
    ASSERT_EQ(TOL_updatelistGet(&scene), 0);
    ASSERT_EQ(TOL_updatelistEvalScene(&scene, 10 / 30.0f), 0);
    ASSERT_TRUE(m->rest && m->rest->count == 4);
    float after[4][3];
    ASSERT_EQ(geometryPositionsRead(MODEL_SPLINE, m->geometry.any, &after[0][0]), 4);
    for (int p = 0; p < 4; ++p) {
        const double *rest = m->rest->values + p * m->rest->width;
        // Box coordinates are the point over 4; the far corner's weight lifts it.
        const double w = (rest[0] / 4.0 + 0.5) * (rest[1] / 4.0 + 0.5) * (rest[2] / 4.0 + 0.5);
        EXPECT_FLOAT_EQ(after[p][0], static_cast<float>(rest[0]));
        EXPECT_FLOAT_EQ(after[p][2], static_cast<float>(rest[2] + w)) << p;
    }

    // Read for a model by the file interface: the global slot, and an element named after the model.
    ASSERT_EQ(TOL_sceneSetCurrent(&scene), 0);
    ASSERT_EQ(dictCurrent(), dict);
    EXPECT_EQ(latticeFileRead((dir / "nothing.lat").c_str(), m, 1), 0);
    ASSERT_EQ(latticeFileRead(orphanPath.c_str(), m, 1), 1);
    const int made = elemFindByName(dict, CHP_LATTICES, -1, "ball", "Lat", -1, -1, 0);
    ASSERT_GE(made, 0);
    EXPECT_EQ(elemGet(dict, CHP_LATTICES, made)->data, m->deformers->slot[DEFORM_SLOT_GLOBAL].lattice);
}

}  // namespace
