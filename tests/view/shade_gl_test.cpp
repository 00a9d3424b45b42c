// Materials, lights and textures on the hardware, read back from the GL of
// an off-screen context: what each material's list holds, where the lights
// of each type stand, which lights a bind leaves on, the light links, the
// light model, the texture lists with their filters and wrap, and a textured
// square drawn from its strips.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "camera.h"
#include "capture.h"
#include "dictionary.h"
#include "material.h"
#include "model.h"
#include "testdata.h"
#include "view.h"
#include "tol.h"

#include "graphic/gl_context.h"
#include "layer_fixture.h"

namespace {

constexpr int W = 64, H = 64;

std::vector<float> material(GLenum what) {
    std::vector<float> v(4, -1.0f);
    glGetMaterialfv(GL_FRONT, what, v.data());
    return v;
}

std::vector<float> light(int index, GLenum what) {
    std::vector<float> v(4, -1.0f);
    glGetLightfv(static_cast<GLenum>(GL_LIGHT0 + index), what, v.data());
    return v;
}

void expectNear(const std::vector<float> &got, std::vector<float> want, const char *what) {
    for (size_t k = 0; k < want.size(); ++k) EXPECT_NEAR(got[k], want[k], 1e-5f) << what << " [" << k << "]";
}

GLint texParameter(GLenum what) {
    GLint v = -1;
    glGetTexParameteriv(GL_TEXTURE_2D, what, &v);
    return v;
}

GLint texWidth() {
    GLint v = -1;
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &v);
    return v;
}

using bwtest::glPixel;

class Shade : public bwtest::LayerTest {
protected:
    void SetUp() override {
        if (!bwtest::glReady(W, H)) GTEST_SKIP() << "no display with GLX";
        LayerTest::SetUp();
        ASSERT_TRUE(bwtest::glFreshState(W, H, gp));
    }
    int addMaterial(const Material &m) {
        materials.push_back(std::make_unique<Material>(m));
        return elemAdd(dict, CHP_MATERIALS, elemNameParse("m", nullptr, 0), materials.back().get(), nullptr, 0, 0);
    }
    int addLight(uint16_t type, std::vector<float> at, std::vector<float> colour = {1, 1, 1}) {
        auto l = std::make_unique<Light>();
        l->type = type;
        for (int k = 0; k < 3; ++k) l->position[k] = at[k], l->colour[k] = colour[k];
        lights.push_back(std::move(l));
        return elemAdd(dict, CHP_LIGHTS, elemNameParse("l", nullptr, 0), lights.back().get(), nullptr, 0, 0);
    }
    int addTexture(const Texture2D &t, const char *name = "t") {
        textures.push_back(std::make_unique<Texture2D>(t));
        return elemAdd(dict, CHP_TEXTURES2D, elemNameParse(name, nullptr, 0), textures.back().get(), nullptr, 0, 0);
    }
    // A 16 x 16 picture in four quarters: red, green below, blue, white above.
    std::string quarters(const std::string &name, int side = 16) {
        PictureInfo p = tdPictureNew(static_cast<uint16_t>(side), static_cast<uint16_t>(side), false);
        for (int y = 0; y < side; ++y)
            for (int x = 0; x < side; ++x) {
                const bool right = x >= side / 2, top = y >= side / 2;
                const size_t at = static_cast<size_t>(y) * side + x;
                p.planes[0][at] = right == top ? 255 : 0;
                p.planes[1][at] = right ? 255 : 0;
                p.planes[2][at] = top ? 255 : 0;
            }
        std::string path = dir / (name + ".pic");
        EXPECT_EQ(picWriteImage(path.c_str(), &p, PIC_WRITE_RUNS), 1);
        picFree(&p);
        return path;
    }

    BW_GraphicProps gp;
    bwtest::TempDir dir;
    std::vector<std::unique_ptr<Material>> materials;
    std::vector<std::unique_ptr<Light>> lights;
    std::vector<std::unique_ptr<Texture2D>> textures;
};

}  // namespace

TEST_F(Shade, MaterialListsHoldTheFormsOfTheirShadingModels) {
    Material m;
    const float ambient[3] = {0.1f, 0.2f, 0.3f}, diffuse[3] = {0.4f, 0.5f, 0.6f}, specular[3] = {0.7f, 0.8f, 0.9f};
    memcpy(m.ambient, ambient, sizeof ambient);
    memcpy(m.diffuse, diffuse, sizeof diffuse);
    memcpy(m.specular, specular, sizeof specular);
    m.specularDecay = 200.0f;
    const struct {
        uint16_t model;
        std::vector<float> ambient, diffuse, specular;
        float shininess;
    } rows[] = {
        {1, {0, 0, 0, 1}, {0.4f, 0.5f, 0.6f, 0.5f}, {0, 0, 0, 1}, 0.0f},
        {3, {0.1f, 0.2f, 0.3f, 0.5f}, {0.4f, 0.5f, 0.6f, 0.5f}, {0, 0, 0, 1}, 0.0f},
        {5, {0.1f, 0.2f, 0.3f, 0.5f}, {0.4f, 0.5f, 0.6f, 0.5f}, {0.7f, 0.8f, 0.9f, 0.5f}, 128.0f},
        {6, {0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 1}, 0.0f},
        {7, {0, 0, 0, 1}, {0.4f, 0.5f, 0.6f, 0.5f}, {0, 0, 0, 1}, 0.0f},
    };
    for (const auto &r : rows) {
        m.shadingModel = r.model;
        ASSERT_EQ(materialListCompile(&m, 5, 0.5f), 0);
        glCallList(1005);
        expectNear(material(GL_AMBIENT), r.ambient, "ambient");
        expectNear(material(GL_DIFFUSE), r.diffuse, "diffuse");
        expectNear(material(GL_SPECULAR), r.specular, "specular");
        EXPECT_FLOAT_EQ(material(GL_SHININESS)[0], r.shininess) << r.model;
    }
    // Another model compiles nothing: the list leaves the state alone.
    m.shadingModel = 9;
    ASSERT_EQ(materialListCompile(&m, 6, 0.5f), 0);
    glCallList(1006);
    EXPECT_FLOAT_EQ(material(GL_DIFFUSE)[0], 0.4f);
    EXPECT_EQ(materialListCompile(nullptr, 6, 1.0f), 98);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}

TEST_F(Shade, MaterialsAreCompiledWhenFlaggedAnimatedOrInAnotherAlpha) {
    Material plain, moving;
    plain.diffuse[0] = 0.25f;
    moving.diffuse[0] = 0.5f;
    const int a = addMaterial(plain), b = addMaterial(moving);
    const int curve = elemAdd(dict, CHP_ANIMATION, elemNameParse("c", nullptr, 0), nullptr, nullptr, 0, 0);
    ASSERT_NE(relAddVia(dict, nullptr, CHP_MATERIALS, b, CHP_ANIMATION, curve, 302, 1, 1, nullptr, 1), 0);
    ASSERT_EQ(materialsBind(&scene, &gp), 0);
    glCallList(1002 + a);
    EXPECT_FLOAT_EQ(material(GL_DIFFUSE)[0], 0.25f);
    glCallList(1001);  // the default material
    expectNear(material(GL_DIFFUSE), {0.7f, 0.7f, 0.7f, 1.0f}, "default");

    // Values change: the animated one follows at the next bind, the other
    // one only once flagged.
    materials[static_cast<size_t>(a)]->diffuse[0] = 0.75f;
    materials[static_cast<size_t>(b)]->diffuse[0] = 0.125f;
    ASSERT_EQ(materialsBind(&scene, &gp), 0);
    glCallList(1002 + a);
    EXPECT_FLOAT_EQ(material(GL_DIFFUSE)[0], 0.25f);
    glCallList(1002 + b);
    EXPECT_FLOAT_EQ(material(GL_DIFFUSE)[0], 0.125f);
    const int32_t named[1] = {a};
    ASSERT_EQ(materialsCompileList(&scene, 1, named, &gp), 0);
    glCallList(1002 + a);
    EXPECT_FLOAT_EQ(material(GL_DIFFUSE)[0], 0.75f);

    // Two models of alpha 0.5 and 1 on one material: each gets its own.
    Material *mine[1] = {materials[static_cast<size_t>(a)].get()};
    ASSERT_EQ(materialsUpdateAlpha(&scene, 1, mine, 0.5f, &gp), 0);
    EXPECT_FLOAT_EQ(materialAlpha(dict, mine[0]), 0.5f);
    glCallList(1002 + a);
    EXPECT_FLOAT_EQ(material(GL_DIFFUSE)[3], 0.5f);
    ASSERT_EQ(materialsUpdateAlpha(&scene, 1, mine, 1.0f, &gp), 0);
    glCallList(1002 + a);
    EXPECT_FLOAT_EQ(material(GL_DIFFUSE)[3], 1.0f);

    // An entry without a material says so by its name and the next goes on.
    const int broken = elemAdd(dict, CHP_MATERIALS, elemNameParse("broken", nullptr, 0), nullptr, nullptr, 0, 0);
    const int32_t both[2] = {broken, a};
    bwtest::StreamCapture err(stderr);
    EXPECT_EQ(materialsCompileList(&scene, 2, both, &gp), 0);
    EXPECT_EQ(err.text(), "ERROR: MATERIAL broken INVALID!\n");
}

TEST_F(Shade, LightsOfEachTypeStandWhereTheViewPutsThem) {
    const int point = addLight(1, {1, 2, 3}, {1.0f, 0.5f, 0.25f});
    addLight(3, {0, 0, 1});
    addLight(2, {0, 5, 0});
    const float interest[3] = {0.0f, 1.0f, 0.0f};
    memcpy(lights[2]->interest, interest, sizeof interest);
    lights[2]->coneAngle = 0.5f;
    // The view moves everything 10 down the z axis.
    glTranslatef(0.0f, 0.0f, -10.0f);
    ASSERT_EQ(lightsBind(&scene, &gp), 0);
    EXPECT_EQ(lightsCount(), 3);
    expectNear(light(0, GL_POSITION), {1, 2, -7, 1}, "point");
    expectNear(light(0, GL_DIFFUSE), {1.0f, 0.5f, 0.25f, 1}, "point colour");
    expectNear(light(0, GL_SPECULAR), {1, 1, 1, 1}, "specular");
    EXPECT_FLOAT_EQ(light(0, GL_SPOT_CUTOFF)[0], 180.0f);
    expectNear(light(1, GL_POSITION), {0, 0, 1, 0}, "infinite");
    expectNear(light(2, GL_POSITION), {0, 5, -10, 1}, "spot");
    expectNear(light(2, GL_SPOT_DIRECTION), {0, -4, 0}, "aim");
    EXPECT_NEAR(light(2, GL_SPOT_CUTOFF)[0], 28.6478897f, 1e-4f);
    EXPECT_FLOAT_EQ(light(2, GL_SPOT_EXPONENT)[0], 0.0f);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(glIsEnabled(static_cast<GLenum>(GL_LIGHT0 + i))) << i;
    EXPECT_FALSE(glIsEnabled(GL_LIGHT3));

    // Off, the point light leaves its GL light to the next one.
    lights[static_cast<size_t>(point)]->on = 0;
    ASSERT_EQ(lightsBind(&scene, &gp), 0);
    expectNear(light(0, GL_POSITION), {0, 0, 1, 0}, "infinite first");
    EXPECT_FALSE(glIsEnabled(GL_LIGHT2));

    // The head light stands at the eye and replaces them all.
    Camera eye;
    gp.curCamera = &eye;
    gp.headLight = 1;
    ASSERT_EQ(lightsBind(&scene, &gp), 0);
    expectNear(light(0, GL_POSITION), {0, 0, 10, 0}, "head");
    EXPECT_TRUE(glIsEnabled(GL_LIGHT0));
    EXPECT_FALSE(glIsEnabled(GL_LIGHT1));
}

TEST_F(Shade, EightLightsAtMostTheDefaultOneWhenNoneIsOnAndTheLightModel) {
    for (int i = 0; i < 9; ++i) addLight(1, {static_cast<float>(i), 0, 0});
    ASSERT_EQ(lightsBind(&scene, &gp), 0);
    EXPECT_EQ(lightsCount(), 9);
    for (int i = 0; i < 8; ++i) EXPECT_TRUE(glIsEnabled(static_cast<GLenum>(GL_LIGHT0 + i))) << i;
    expectNear(light(7, GL_POSITION), {7, 0, 0, 1}, "eighth");

    for (auto &l : lights) l->on = 0;
    ASSERT_EQ(lightsBind(&scene, &gp), 0);
    EXPECT_EQ(lightsCount(), 1);
    const BW_DefaultLight &d = g_sceneLighting.defaultLight;
    expectNear(light(0, GL_POSITION), {d.direction[0], d.direction[1], d.direction[2], 0}, "default");
    EXPECT_TRUE(glIsEnabled(GL_LIGHT0));
    for (int i = 1; i < 8; ++i) EXPECT_FALSE(glIsEnabled(static_cast<GLenum>(GL_LIGHT0 + i))) << i;

    lights[4]->on = 1;
    ASSERT_EQ(lightsBind(&scene, &gp), 0);
    expectNear(light(0, GL_POSITION), {4, 0, 0, 1}, "back on");

    // The light model is the scene's block.
    SceneGlobals block;
    block.ambient[0] = 0.1f;
    block.twoSided = 1;
    ASSERT_EQ(grStateInitGL(&gp), 1);
    grLightModelSet(block);
    GLfloat ambient[4];
    GLint twoSide = -1, local = -1;
    glGetFloatv(GL_LIGHT_MODEL_AMBIENT, ambient);
    glGetIntegerv(GL_LIGHT_MODEL_TWO_SIDE, &twoSide);
    glGetIntegerv(GL_LIGHT_MODEL_LOCAL_VIEWER, &local);
    expectNear({ambient[0], ambient[1], ambient[3]}, {0.1f, 0.2f, 1.0f}, "ambient");
    EXPECT_EQ(twoSide, 1);
    EXPECT_EQ(local, 1);
    EXPECT_FALSE(glIsEnabled(GL_LIGHT0));  // set, not on until a bind
    ASSERT_EQ(grStateInitGL(&gp), 1);
}

TEST_F(Shade, LinkedLightsLightTheirModelsAlone) {
    for (const char *name : {"a", "b", "c"})
        elemAdd(dict, CHP_MODELS, elemNameParse(name, nullptr, 0), nullptr, nullptr, 0, 0);
    const int linked = addLight(1, {0, 0, 0});
    addLight(1, {1, 0, 0});
    ASSERT_NE(relAddVia(dict, nullptr, CHP_LIGHTS, linked, CHP_MODELS, 1, 2200, 1, 1, nullptr, 1), 0);
    ASSERT_EQ(lightsBind(&scene, &gp), 0);
    selectiveLightsOff(1);
    EXPECT_TRUE(glIsEnabled(GL_LIGHT0));
    selectiveLightsOn();
    for (int32_t model : {0, 2, 7}) {  // before, after and beyond its table
        selectiveLightsOff(model);
        EXPECT_FALSE(glIsEnabled(GL_LIGHT0)) << model;
        EXPECT_TRUE(glIsEnabled(GL_LIGHT1)) << model;
        selectiveLightsOn();
        EXPECT_TRUE(glIsEnabled(GL_LIGHT0));
    }
}

TEST_F(Shade, TexturesAreDefinedOnceAndAgainWhenFlagged) {
    // One picture of the database's PICTURES chapter, one by its path, one
    // that is nowhere.
    Database *db = tdDatabaseCreate(dir / "db", "shade", dir / "DatabaseDir.rsrc");
    ASSERT_NE(db, nullptr);
    dict->database = db;
    PictureInfo small = tdPictureNew(32, 8, false);
    const std::string inChapter = tdFullName(tdWritePicture(db, "shade-small", small));
    picFree(&small);
    Texture2D t;
    t.pictureName = inChapter;
    t.interpolate = 0;
    const int byName = addTexture(t, "byname");
    t.pictureName = quarters("q");
    t.interpolate = 1;
    const int byPath = addTexture(t, "bypath");
    t.pictureName = dir / "nowhere";
    const int missing = addTexture(t, "missing");

    gp.texture.active = 1;
    {
        bwtest::OutputCapture out;
        ASSERT_EQ(texturesBind(&scene, &gp), 0);
        EXPECT_EQ(out.err.text(), "Defining: byname\nDefining: bypath\nDefining: missing\n"
                                  "ERROR: TEXTURE missing INVALID!\n");
    }
    EXPECT_EQ(textureFlags(dict, byName) & (TEXTURE_FLAG_LOAD | TEXTURE_FLAG_COMPILE), 0);
    EXPECT_EQ(glbVar.curTxtId, 0);
    EXPECT_FALSE(glIsEnabled(GL_TEXTURE_2D));
    glCallList(static_cast<GLuint>(1502 + byName));
    EXPECT_EQ(texWidth(), 32);
    EXPECT_EQ(texParameter(GL_TEXTURE_MIN_FILTER), GL_NEAREST);
    EXPECT_EQ(texParameter(GL_TEXTURE_WRAP_S), GL_CLAMP);
    glCallList(static_cast<GLuint>(1502 + byPath));
    EXPECT_EQ(texWidth(), 16);
    EXPECT_EQ(texParameter(GL_TEXTURE_MAG_FILTER), GL_LINEAR);
    {
        // Nothing flagged, nothing read or said.
        bwtest::OutputCapture out;
        ASSERT_EQ(texturesBind(&scene, &gp), 0);
        EXPECT_EQ(out.err.text(), "");
    }

    // The repeat switch counts from the next state initialisation.
    setenv("BW_SHADE_TEXTURE_REPEAT", "", 1);
    envReset();
    ASSERT_EQ(grStateInitGL(&gp), 1);
    {
        bwtest::OutputCapture quiet;
        ASSERT_EQ(texturesBind(&scene, &gp), 0);
    }
    unsetenv("BW_SHADE_TEXTURE_REPEAT");
    envReset();
    glCallList(static_cast<GLuint>(1502 + byName));
    EXPECT_EQ(texParameter(GL_TEXTURE_WRAP_T), GL_REPEAT);
    EXPECT_EQ(textureFlags(dict, missing) & TEXTURE_FLAG_LOAD, 0);  // said once, not tried again
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}

TEST_F(Shade, ATexturedSquareShowsItsCornersMirroredWhenTiled) {
    // A unit grid square turned from XZ into XY over the lower-left quarter
    // of the view; the picture by the XZ plane of the square.
    Model *m = modelNew("square", MODEL_MESH, tdMakeGridMesh(1, 1));
    const float turn[4][4] = {{1, 0, 0, 0}, {0, 0, -1, 0}, {0, 1, 0, 0}, {-1, -1, 0, 1}};
    memcpy(m->globalMatrix, turn, sizeof turn);
    m->elementIndex = elemAdd(dict, CHP_MODELS, elemNameParse("square", nullptr, 0), m, nullptr, 0, 0);
    m->visible = 1;
    Texture2D t;
    t.pictureName = quarters("q");
    t.method = 2;
    t.interpolate = 0;
    t.boxCentre[0] = t.boxCentre[2] = 0.5f;
    t.tiles[0] = 2;
    t.mirror[0] = 1;
    const int texture = addTexture(t);
    m->textures2D = static_cast<Texture2D **>(calloc(1, sizeof(Texture2D *)));
    m->textures2D[0] = textures.back().get();
    m->texture2DCount = 1;
    ASSERT_EQ(TOL_preprocessALL(&scene, &gp), 0);
    ASSERT_EQ(TOL_preprocessALL(&scene, &gp), 0);
    ASSERT_NE(m->tmesh, nullptr);
    glDisable(GL_LIGHTING);
    glDisable(GL_DEPTH_TEST);
    gp.texture.active = 1;
    const unsigned red = 0xFF0000, blue = 0x0000FF, green = 0x00FF00, white = 0xFFFFFF;
    // The default binding colours in 0.7 grey, which the picture modulates.
    auto shade = [](unsigned c) {
        unsigned out = 0;
        for (int k = 0; k < 3; ++k) out |= (((c >> (8 * k)) & 255) ? 0xB2u : 0u) << (8 * k);
        return out;
    };
    for (int tiling : {0, 1}) {
        glbVar.tiling = tiling;
        const int32_t named[1] = {texture};
        {
            bwtest::OutputCapture quiet;
            ASSERT_EQ(texturesDefineSome(&scene, 1, named, &gp), 0);
        }
        // From the strips, and triangle by triangle with UV made on the way.
        for (bool strips : {true, false}) {
            glClearColor(0, 0, 0, 0);
            glClear(GL_COLOR_BUFFER_BIT);
            glColor3f(0.7f, 0.7f, 0.7f);
            glbVar.curMatId = -1;
            if (strips) ASSERT_EQ(drawStripStream(&scene, m, &gp), 0);
            else drawTrianglesDirect(&scene, m, &gp);
            EXPECT_EQ(glPixel(2, 2), shade(red)) << tiling << strips;
            EXPECT_EQ(glPixel(2, 29), shade(blue)) << tiling << strips;
            EXPECT_EQ(glPixel(29, 2), shade(tiling ? red : green)) << tiling << strips;
            EXPECT_EQ(glPixel(29, 29), shade(tiling ? blue : white)) << tiling << strips;
            EXPECT_EQ(glPixel(48, 48), 0u);
        }
    }
    EXPECT_EQ(glbVar.curTxtId, 0);
    EXPECT_FALSE(glIsEnabled(GL_TEXTURE_2D));
    elemGet(dict, CHP_MODELS, m->elementIndex)->data = nullptr;
    m->texture2DCount = 0;
    modelFree(m);
}

TEST_F(Shade, InlineRecordsAreNumberedBehindTheChapterSlotsInTheOrderOfTheTrees) {
    Material plain, linked;
    const int e0 = addMaterial(plain), e1 = addMaterial(linked);
    ASSERT_EQ(e0, 0);
    ASSERT_EQ(e1, 1);
    Texture2D anywhere;
    ASSERT_EQ(addTexture(anywhere), 0);
    // A root with two inline materials round the linked element, a child
    // (not an element) with one more and a local texture; the root's first
    // inline material has a texture of its own.
    Model *root = modelNew("r", MODEL_MESH, nullptr), *child = modelNew("c", MODEL_MESH, nullptr);
    modelAddChild(root, child);
    auto inlineMaterial = [](float grey) {
        Material *m = new Material;
        for (float &c : m->diffuse) c = grey;
        return m;
    };
    root->materials = static_cast<Material **>(calloc(3, sizeof(Material *)));
    root->materials[0] = inlineMaterial(0.2f);
    root->materials[1] = materials[1].get();
    root->materials[2] = inlineMaterial(0.4f);
    root->materialCount = 3;
    root->materials[0]->textures.emplace_back();
    child->materials = static_cast<Material **>(calloc(1, sizeof(Material *)));
    child->materials[0] = inlineMaterial(0.6f);
    child->materialCount = 1;
    root->textures2D = static_cast<Texture2D **>(calloc(2, sizeof(Texture2D *)));
    root->textures2D[1] = new Texture2D;  // behind an empty reference
    root->texture2DCount = 2;
    child->textures2D = static_cast<Texture2D **>(calloc(1, sizeof(Texture2D *)));
    child->textures2D[0] = new Texture2D;
    child->texture2DCount = 1;
    root->elementIndex = elemAdd(dict, CHP_MODELS, elemNameParse("r", nullptr, 0), root, nullptr, 0, 0);

    const Material *byId[] = {materials[0].get(), materials[1].get(), root->materials[0], root->materials[2],
                              child->materials[0]};
    for (int k = 0; k < 5; ++k) {
        EXPECT_EQ(grMaterialId(dict, byId[k]), k + 2) << k;
        EXPECT_EQ(grMaterialOfId(dict, k + 2), byId[k]) << k;
    }
    EXPECT_EQ(grMaterialIdEnd(dict), 7);
    EXPECT_EQ(grMaterialOfId(dict, 1), &materialDefault());
    EXPECT_EQ(grMaterialOfId(dict, 7), nullptr);
    Material stranger;
    EXPECT_EQ(grMaterialId(dict, &stranger), 1);
    EXPECT_EQ(grMaterialId(dict, nullptr), 1);
    // Textures: the element, the materials' first ones by material id, then
    // the nodes' first local ones.
    const Texture2D *textureById[] = {textures[0].get(), &root->materials[0]->textures[0], root->textures2D[1],
                                      child->textures2D[0]};
    for (int k = 0; k < 4; ++k) EXPECT_EQ(grTextureOfId(dict, k + 2), textureById[k]) << k;
    EXPECT_EQ(grTextureIdEnd(dict), 6);
    EXPECT_EQ(grTextureId(dict, child->textures2D[0]), 5);
    EXPECT_EQ(grTextureId(dict, &anywhere), -1);

    // Each inline material is its own list.
    ASSERT_EQ(materialsBind(&scene, &gp), 0);
    for (int k = 0; k < 3; ++k) {
        glCallList(static_cast<GLuint>(1004 + k));
        EXPECT_FLOAT_EQ(material(GL_DIFFUSE)[1], 0.2f * static_cast<float>(k + 1)) << k;
    }
    // A material element added later keeps the numbers of the slots before
    // it and moves the inline ones behind it.
    Material late;
    ASSERT_EQ(addMaterial(late), 2);
    EXPECT_EQ(grMaterialId(dict, materials[2].get()), 4);
    EXPECT_EQ(grMaterialId(dict, child->materials[0]), 7);

    elemGet(dict, CHP_MODELS, root->elementIndex)->data = nullptr;
    root->materials[1] = nullptr;  // the element's, not the node's
    modelFree(root);
}

TEST_F(Shade, ListsFollowTheRevisionAndTheOtherCopyWithoutNeedlessCompiles) {
    Material paint;
    paint.diffuse[0] = 0.25f;
    const int a = addMaterial(paint);
    Material &mine = *materials[static_cast<size_t>(a)];
    ASSERT_EQ(materialsBind(&scene, &gp), 0);
    // A change the evaluation announces is on the list at the next bind.
    mine.diffuse[0] = 0.5f;
    ++mine.revision;
    ASSERT_EQ(materialsBind(&scene, &gp), 0);
    glCallList(1002);
    EXPECT_FLOAT_EQ(material(GL_DIFFUSE)[0], 0.5f);

    // The other copy of the scene holds its own record of the same values:
    // the list is kept as it is. (It is spoilt behind the binder's back to
    // show that nothing was compiled.)
    TOL_Scene copy{};
    ASSERT_EQ(TOL_sceneCreate(&copy), 0);
    Dictionary *other = dictGet(static_cast<int>(copy.dict));
    Material twin = mine;
    ASSERT_EQ(elemAdd(other, CHP_MATERIALS, elemNameParse("m", nullptr, 0), &twin, nullptr, 0, 0), 0);
    const float spoilt[4] = {0.9f, 0.9f, 0.9f, 1.0f};
    glNewList(1002, GL_COMPILE);
    glMaterialfv(GL_FRONT, GL_DIFFUSE, spoilt);
    glEndList();
    ASSERT_EQ(materialsBind(&copy, &gp), 0);
    glCallList(1002);
    EXPECT_FLOAT_EQ(material(GL_DIFFUSE)[0], 0.9f);
    // Copies a frame apart: each bind puts its own values on the list.
    twin.diffuse[0] = 0.75f;
    ++twin.revision;
    ASSERT_EQ(materialsBind(&copy, &gp), 0);
    glCallList(1002);
    EXPECT_FLOAT_EQ(material(GL_DIFFUSE)[0], 0.75f);
    ASSERT_EQ(materialsBind(&scene, &gp), 0);
    glCallList(1002);
    EXPECT_FLOAT_EQ(material(GL_DIFFUSE)[0], 0.5f);
    elemGet(other, CHP_MATERIALS, 0)->data = nullptr;
}

TEST_F(Shade, TextureListsFollowTheRevisionWhenWhatTheyHoldChanged) {
    Texture2D t;
    t.pictureName = quarters("q");
    const int index = addTexture(t, "moving");
    Texture2D &mine = *textures[static_cast<size_t>(index)];
    gp.texture.active = 1;
    auto bind = [&]() {
        bwtest::OutputCapture out;
        EXPECT_EQ(texturesBind(&scene, &gp), 0);
        return out.err.text();
    };
    EXPECT_EQ(bind(), "Defining: moving\n");
    // Unannounced, nothing happens; announced, the list is made again.
    mine.interpolate = 0;
    EXPECT_EQ(bind(), "");
    ++mine.revision;
    EXPECT_EQ(bind(), "Defining: moving\n");
    glCallList(static_cast<GLuint>(1502 + index));
    EXPECT_EQ(texParameter(GL_TEXTURE_MAG_FILTER), GL_NEAREST);
    // A change of the mapping alone leaves the picture where it is.
    mine.uOffset = 0.5f;
    ++mine.revision;
    EXPECT_EQ(bind(), "");

    // A model's own texture is defined into the list of its id, and named
    // by its picture.
    Model *m = modelNew("square", MODEL_MESH, nullptr);
    m->textures2D = static_cast<Texture2D **>(calloc(1, sizeof(Texture2D *)));
    m->textures2D[0] = new Texture2D;
    m->textures2D[0]->pictureName = quarters("own", 8);
    m->texture2DCount = 1;
    m->elementIndex = elemAdd(dict, CHP_MODELS, elemNameParse("square", nullptr, 0), m, nullptr, 0, 0);
    const int id = grTextureId(dict, m->textures2D[0]);
    ASSERT_EQ(id, 3);
    EXPECT_EQ(bind(), "Defining: " + m->textures2D[0]->pictureName + "\n");
    glCallList(static_cast<GLuint>(1500 + id));
    EXPECT_EQ(texWidth(), 8);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    elemGet(dict, CHP_MODELS, m->elementIndex)->data = nullptr;
    modelFree(m);
}
