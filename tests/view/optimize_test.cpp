// Scene optimisation: which materials count as equal, what a merge does to
// the models and the dictionary, and the pictures of a loaded scene's
// textures with the figures of the Texture Summary.
#include <gtest/gtest.h>

#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "capture.h"
#include "dictionary.h"
#include "geometry.h"
#include "layer_fixture.h"
#include "model.h"
#include "testdata.h"
#include "tol.h"
#include "view.h"

using namespace bwtest;

namespace {

// ---------------------------------------------------------------------------
// Materials in a dictionary built in memory; the test owns the records.

class MaterialPairs : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(tdLoadRelations(), 1); }
    void TearDown() override {
        for (Fcurve *c : curves) fcurveFree(c);
    }
    int material(const Material &m) {
        records.push_back(std::make_unique<Material>(m));
        const int i = scene.add(CHP_MATERIALS, "m" + std::to_string(records.size()) + ".1-0");
        scene.element(CHP_MATERIALS, i)->data = records.back().get();
        return i;
    }
    int texture(const Texture2D &t) {
        textures.push_back(std::make_unique<Texture2D>(t));
        const int i = scene.add(CHP_TEXTURES2D, "t" + std::to_string(textures.size()) + ".1-0");
        scene.element(CHP_TEXTURES2D, i)->data = textures.back().get();
        return i;
    }
    // A curve of one key at (1, value) on relation `relid` of element (chapter, index).
    void curve(int chapter, int index, int32_t relid, float value) {
        Fcurve *c = fcurveCreate(relid, 0);
        FcurveKey *k = fcurveKeyNew();
        k->time = 1.0f;
        k->value = value;
        fcurveAddKey(c, k, 0, 0, 0);
        curves.push_back(c);
        const int a = scene.add(CHP_ANIMATION, "c" + std::to_string(curves.size()) + ".1-0");
        scene.element(CHP_ANIMATION, a)->data = c;
        ASSERT_TRUE(relAddVia(&scene.dict, nullptr, chapter, index, CHP_ANIMATION, a, relid, 1, 1, nullptr, 1));
    }
    void expression(int chapter, int index) {
        const int e = scene.add(CHP_EXPRESSIONS, "e" + std::to_string(index) + ".1-0");
        ASSERT_TRUE(relAddVia(&scene.dict, nullptr, chapter, index, CHP_EXPRESSIONS, e, REL_EXPRESSION, 1, 1,
                              nullptr, 1));
    }
    int equal(int a, int b) { return materialsEqual(&scene.dict, a, b); }

    TdScene scene;
    std::vector<std::unique_ptr<Material>> records;
    std::vector<std::unique_ptr<Texture2D>> textures;
    std::vector<Fcurve *> curves;
};

TEST_F(MaterialPairs, ColoursWithinTheToleranceAreOneAndNoRecordIsItsOwnTwin) {
    Material base;
    const int a = material(base), b = material(base);
    EXPECT_EQ(equal(a, b), 1);
    EXPECT_EQ(equal(a, a), 0);
    // Each tolerance: just under 1e-4 apart is in, 2e-4 out.
    auto nudged = [&](auto field, float by) {
        Material m = base;
        field(m) += by;
        return material(m);
    };
    const std::vector<std::pair<const char *, float &(*)(Material &)>> fields = {
        {"ambient", [](Material &m) -> float & { return m.ambient[1]; }},
        {"diffuse", [](Material &m) -> float & { return m.diffuse[2]; }},
        {"specular", [](Material &m) -> float & { return m.specular[0]; }},
        {"transparency", [](Material &m) -> float & { return m.transparencyColour[1]; }},
    };
    for (const auto &[name, field] : fields) {
        EXPECT_EQ(equal(a, nudged(field, 0.00009f)), 1) << name;
        EXPECT_EQ(equal(a, nudged(field, 0.0002f)), 0) << name;
    }
    // The specular decay and the shading model are compared exactly.
    Material decay = base;
    decay.specularDecay += 0.00001f;
    EXPECT_EQ(equal(a, material(decay)), 0);
    Material flat = base;
    flat.shadingModel = 1;
    EXPECT_EQ(equal(a, material(flat)), 0);
}

TEST_F(MaterialPairs, TexturesAndCurvesMustMatch) {
    Material plain, wood, wood2, stone;
    Texture2D t;
    t.pictureName = "wood";
    wood.textures = {t};
    wood2.textures = {t};
    t.pictureName = "stone";
    stone.textures = {t};
    const int p = material(plain), w = material(wood), w2 = material(wood2), s = material(stone);
    EXPECT_EQ(equal(w, w2), 1);
    EXPECT_EQ(equal(w, s), 0);
    EXPECT_EQ(equal(p, w), 0);

    // Curves: equal keys merge, a different key or a missing curve does not.
    const int c1 = material(plain), c2 = material(plain), c3 = material(plain);
    curve(CHP_MATERIALS, c1, 302, 0.5f);
    curve(CHP_MATERIALS, c2, 302, 0.5f);
    curve(CHP_MATERIALS, c3, 302, 0.6f);
    EXPECT_EQ(equal(c1, c2), 1);
    EXPECT_EQ(equal(c1, c3), 0);
    EXPECT_EQ(equal(c1, p), 0);

    // Linked 2D textures: two alike elements merge unless their curves differ.
    Texture2D linked;
    linked.pictureName = "sky";
    const int l1 = material(plain), l2 = material(plain), l3 = material(plain);
    const int t1 = texture(linked), t2 = texture(linked), t3 = texture(linked);
    for (auto [m, tx] : {std::pair{l1, t1}, {l2, t2}, {l3, t3}})
        ASSERT_TRUE(relAddVia(&scene.dict, nullptr, CHP_MATERIALS, m, CHP_TEXTURES2D, tx, 501, 1, 1, nullptr, 1));
    curve(CHP_TEXTURES2D, t3, 511, 2.0f);
    EXPECT_EQ(equal(l1, l2), 1);
    EXPECT_EQ(equal(l1, l3), 0);
    EXPECT_EQ(equal(l1, p), 0);
}

TEST_F(MaterialPairs, AnExpressionKeepsAMaterialOutOfTheMerge) {
    Material m;
    const int a = material(m), b = material(m), driven = material(m);
    expression(CHP_MATERIALS, driven);
    EXPECT_EQ(mergeMaterials(&scene.dict, 0), 1);  // b into a; the driven one stays
    EXPECT_EQ(scene.element(CHP_MATERIALS, b), nullptr);  // its slot is free
    EXPECT_EQ(scene.element(CHP_MATERIALS, a)->deleted, ELEM_LIVE);
    EXPECT_EQ(scene.element(CHP_MATERIALS, driven)->deleted, ELEM_LIVE);
}

TEST_F(MaterialPairs, ATexturesAnimatedTestAsksTheFirstOfThePairTwice) {
    // Only the first texture's expression keeps the pair apart.
    Texture2D linked;
    const int m1 = material(Material{}), m2 = material(Material{});
    const int t1 = texture(linked), t2 = texture(linked);
    ASSERT_TRUE(relAddVia(&scene.dict, nullptr, CHP_MATERIALS, m1, CHP_TEXTURES2D, t1, 501, 1, 1, nullptr, 1));
    ASSERT_TRUE(relAddVia(&scene.dict, nullptr, CHP_MATERIALS, m2, CHP_TEXTURES2D, t2, 501, 1, 1, nullptr, 1));
    expression(CHP_TEXTURES2D, t2);
    EXPECT_EQ(equal(m1, m2), 1);
    EXPECT_EQ(equal(m2, m1), 0);
}

// ---------------------------------------------------------------------------
// A scene loaded from a database: a two-quad mesh whose second quad takes the
// second of two equal materials, and textures of one 300 x 200 picture.

class LoadedScene : public LayerTest {
protected:
    void SetUp() override {
        LayerTest::SetUp();
        OutputCapture quiet;
        db = tdDatabaseCreate(dir / "opt", "opt", dir / "DatabaseDir.rsrc");
        ASSERT_NE(db, nullptr);
        PictureInfo p = tdPictureNew(300, 200, false);
        picture = tdFullName(tdWritePicture(db, "opt-photo", p));
        picFree(&p);
        Mesh *mesh = tdMakeGridMesh(2, 1);
        for (int k = 2; k < 4; ++k) mesh->polygons[k].material = 1;
        Model *quad = modelNew("quad", MODEL_MESH, mesh);
        model = tdFullName(tdWriteModel(db, "opt-quad", quad));
        modelFree(quad);
        Material red;
        red.diffuse[0] = 0.9f;
        materials[0] = tdFullName(tdWriteMaterial(db, "opt-red", red));
        materials[1] = tdFullName(tdWriteMaterial(db, "opt-red2", red));
    }
    // The scene: the quad in both materials, with a texture per entry of `crops`
    // (x max of the crop; 0 for none).
    void load(std::initializer_list<float> crops) {
        TdScene s;
        const int m = s.add(CHP_MODELS, model);
        for (const std::string &mat : materials) ASSERT_TRUE(s.relate(CHP_MODELS, m, CHP_MATERIALS, s.add(CHP_MATERIALS, mat), 300));
        int n = 0;
        for (float crop : crops) {
            Texture2D t;
            t.pictureName = picture;
            t.cropOn = crop > 0;
            t.crop[1] = crop;
            t.uScale = 1.0f + static_cast<float>(n);  // the mapping plays no part
            OutputCapture quiet;
            const std::string file = tdFullName(tdWriteTexture2D(db, "opt-t" + std::to_string(n++), t));
            ASSERT_TRUE(s.relate(CHP_MODELS, m, CHP_TEXTURES2D, s.add(CHP_TEXTURES2D, file), 500));
        }
        OutputCapture quiet;
        ASSERT_FALSE(tdWriteScene(db, "shot", s, time(nullptr)).empty());
        TOL_Database handle = loadDatabase(dir / "opt");
        ASSERT_EQ(TOL_sceneLoad(&handle, "shot", &scene), 0) << quiet.err.text();
    }
    Model *quadModel() { return static_cast<Model *>(elemGet(dict, CHP_MODELS, 0)->data); }

    TempDir dir;
    Database *db = nullptr;
    std::string picture, model, materials[2];
};

TEST_F(LoadedScene, TheSecondMaterialMergesIntoTheFirst) {
    load({});
    Model *quad = quadModel();
    ASSERT_EQ(quad->materialCount, 2);
    Material *first = quad->materials[0];
    int merged = -1;
    ASSERT_EQ(TOL_sceneOptimizeMaterials(&scene, &merged), 0);
    EXPECT_EQ(merged, 1);
    // One slot, every polygon on it, the geometry to be made again.
    ASSERT_EQ(quad->materialCount, 1);
    EXPECT_EQ(quad->materials[0], first);
    for (int p = 0; p < quad->geometry.mesh->polygonCount; ++p) EXPECT_EQ(quad->geometry.mesh->polygons[p].material, 0) << p;
    EXPECT_TRUE(quad->displayFlags & MODEL_GEOMETRY_STALE);
    // The dictionary: the model names the first material only, the second is gone.
    Element *e = elemGet(dict, CHP_MODELS, 0);
    EXPECT_EQ(relCount(e, 1, RELGR_RENDER, 300, CHP_MATERIALS), 1);
    ASSERT_NE(relFind(e, 300, CHP_MATERIALS, 0), nullptr);
    EXPECT_EQ(elemGet(dict, CHP_MATERIALS, 1), nullptr);
    EXPECT_EQ(relCount(elemGet(dict, CHP_MATERIALS, 0), 0, RELGR_RENDER, 300, CHP_MODELS), 1);
    // Nothing is left to merge.
    ASSERT_EQ(TOL_sceneOptimizeMaterials(&scene, &merged), 0);
    EXPECT_EQ(merged, 0);
}

TEST_F(LoadedScene, ThreeTexturesOfOnePictureShareOneList) {
    load({0, 0, 0});
    int pictures = -1, merged = -1, memory = -1;
    ASSERT_EQ(TOL_sceneOptimizeTexture2D(&scene, &pictures, &merged, &memory), 0);
    EXPECT_EQ(pictures, 1);
    EXPECT_EQ(merged, 2);
    EXPECT_EQ(memory, 256 * 128 * 4);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(grTextureId(dict, static_cast<const Texture2D *>(elemGet(dict, CHP_TEXTURES2D, i)->data)), 2) << i;
}

TEST_F(LoadedScene, TwoCropsAreTwoPicturesAndNoTexturesAreNone) {
    load({0, 100, 0});
    int pictures = -1, merged = -1, memory = -1;
    ASSERT_EQ(TOL_sceneOptimizeTexture2D(&scene, &pictures, &merged, &memory), 0);
    EXPECT_EQ(pictures, 2);
    EXPECT_EQ(merged, 1);
    EXPECT_EQ(memory, 2 * 131072);  // the crop does not enter the figure
    EXPECT_EQ(grTextureId(dict, static_cast<const Texture2D *>(elemGet(dict, CHP_TEXTURES2D, 1)->data)), 3);

    TOL_Scene empty{};
    ASSERT_EQ(TOL_sceneCreate(&empty), 0);
    ASSERT_EQ(TOL_sceneOptimizeTexture2D(&empty, &pictures, &merged, &memory), 0);
    EXPECT_EQ(pictures + merged + memory, 0);
}

TEST_F(LoadedScene, AMissingPictureEndsTheMergeWithItsStatus) {
    load({0});
    ASSERT_EQ(unlink((dir / ("opt/PICTURES/" + picture + ".pic")).c_str()), 0);
    int pictures = -1, merged = -1, memory = -1;
    auto said = std::make_unique<OutputCapture>();
    const TOL_Status status = TOL_sceneOptimizeTexture2D(&scene, &pictures, &merged, &memory);
    const std::string err = said->out.text();
    said.reset();
    EXPECT_EQ(status, 98);
    EXPECT_EQ(err, "BW_ERROR: Invalid Pic name\n");
}

TEST_F(LoadedScene, NullArgumentsAreNamed) {
    int n = 0;
    auto said = std::make_unique<OutputCapture>();
    const TOL_Status status[6] = {TOL_sceneOptimizeMaterials(nullptr, &n), TOL_sceneOptimizeMaterials(&scene, nullptr),
                                  TOL_sceneOptimizeTexture2D(nullptr, &n, &n, &n),
                                  TOL_sceneOptimizeTexture2D(&scene, nullptr, &n, &n),
                                  TOL_sceneOptimizeTexture2D(&scene, &n, nullptr, &n),
                                  TOL_sceneOptimizeTexture2D(&scene, &n, &n, nullptr)};
    const std::string err = said->out.text();
    said.reset();
    for (TOL_Status st : status) EXPECT_EQ(st, TOL_ST_NULL_ARGUMENT);
    std::string expected;
    for (const char *what : {"TOL_sceneOptimizeMaterials():scn:", "TOL_sceneOptimizeMaterials():merged_mats:",
                             "TOL_sceneOptimizeTexture2D():scn:", "TOL_sceneOptimizeTexture2D():tot_pics:",
                             "TOL_sceneOptimizeTexture2D():merged_pics:", "TOL_sceneOptimizeTexture2D():tot_mem:"})
        expected += std::string("BW_WARNING: ") + what + " Null or Invalid argument\n";
    EXPECT_EQ(err, expected);
}

}  // namespace
