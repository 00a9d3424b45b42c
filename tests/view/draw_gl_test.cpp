// Models and icons drawn into an off-screen context and read back: the wire
// colours of selection, palette and lock, ghosts in stippled lines, the
// drawing states of an overloaded visibility in the matte, and the icons of
// each icon chapter. The views are the identity: a point's x and y are its
// place in the 64 x 64 window, from -1 to 1.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "camera.h"
#include "capture.h"
#include "dictionary.h"
#include "model.h"
#include "testdata.h"
#include "view.h"
#include "tol.h"

#include "graphic/gl_context.h"
#include "layer_fixture.h"

namespace {

constexpr int W = 64, H = 64;
constexpr unsigned BACK = 0x000080;  // the clear colour: dark blue, so that black shows
constexpr unsigned GREY = 0x808080, WHITE = 0xFFFFFF, YELLOW = 0xCCCC00, BLACK = 0x000000;
constexpr int MPRFLG = 2, DISPLAY = 1, WIRECOL = 0;  // environment values of an entry
// Rows of the x axis of a null model put at y = -0.484, 0.016 and 0.516.
constexpr float ROW16 = -0.484f, ROW32 = 0.016f, ROW48 = 0.516f;

using bwtest::glPixel;

// Colours within one step of rounding.
bool near(unsigned a, unsigned b) {
    for (int k = 0; k < 3; ++k) {
        int d = static_cast<int>((a >> (8 * k)) & 255) - static_cast<int>((b >> (8 * k)) & 255);
        if (d < -2 || d > 2) return false;
    }
    return true;
}

// Pixels of `row` from x 6 to 30 that hold `colour`.
int litOnRow(int row, unsigned colour) {
    int n = 0;
    for (int x = 6; x <= 30; ++x) n += near(glPixel(x, row), colour) ? 1 : 0;
    return n;
}

void clear() {
    glClearColor(0.0f, 0.0f, 128.0f / 255.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

class Draw : public bwtest::LayerTest {
protected:
    void SetUp() override {
        if (!bwtest::glReady(W, H)) GTEST_SKIP() << "no display with GLX";
        LayerTest::SetUp();
        ASSERT_TRUE(bwtest::glFreshState(W, H, gp));
        glDisable(GL_DEPTH_TEST);
        glDisable(GL_LIGHTING);
    }
    void TearDown() override {
        for (Model *m : models) {
            Element *e = elemGet(dict, CHP_MODELS, m->elementIndex);
            if (e) e->data = nullptr;
            modelFree(m);
        }
        glbVar.palette = nullptr;
        g_linkIcons = 1;
    }
    // A models entry whose x axis runs along the given row from x = -0.9.
    Model *addNull(float row, const char *name = "n") {
        Model *m = modelNew(name, MODEL_BARE, nullptr);
        m->globalMatrix[3][0] = -0.9f;
        m->globalMatrix[3][1] = row;
        m->elementIndex = elemAdd(dict, CHP_MODELS, elemNameParse(name, nullptr, 0), m, nullptr, 0, 0);
        models.push_back(m);
        return m;
    }
    Element *entry(const Model *m) { return elemGet(dict, CHP_MODELS, m->elementIndex); }
    // What a scene's environment statement leaves on the model.
    void setEnv(Model *m, int which, int32_t value) {
        if (which == WIRECOL) m->wireColour = value;
        if (which == DISPLAY) m->displayMode = static_cast<uint16_t>(value);
        if (which == MPRFLG) m->flags = static_cast<uint16_t>(value);
    }
    void draw(Model *m, uint16_t dispType) {
        clear();
        gp.dispType = dispType;
        ASSERT_EQ(drawModel(&scene, m, 0, entry(m), &gp), 0);
    }

    BW_GraphicProps gp;
    std::vector<Model *> models;
};

}  // namespace

TEST_F(Draw, WireColourFollowsSelectionPaletteAndLock) {
    Model *m = addNull(ROW32);
    static int16_t palette[PALETTE_SIZE + 1][3] = {};
    palette[3][0] = 255;  // code 12
    palette[PALETTE_SPARE][1] = palette[PALETTE_SPARE][2] = 255;
    // A selection byte of 32 and up selects on its own, in yellow, and wins
    // over the flag. With icons: black without a palette, else the palette's
    // colour of the code masked by the palette size, codes below 8 on the
    // spare entry; a locked wire colour keeps black, selection still shows.
    struct Case {
        int icons, pal, selected, flags, code;
        unsigned colour;
        const char *what;
    } cases[] = {
        {0, 0, 0, 0, 0, GREY, "grey without icons"},
        {0, 0, 1, 0, 0, WHITE, "selected"},
        {0, 0, 0, 32, 0, YELLOW, "branch selection byte"},
        {0, 0, 1, 32, 0, YELLOW, "the byte wins over the flag"},
        {0, 0, 0, 31, 0, GREY, "byte below 32"},
        {1, 0, 0, 0, 12, BLACK, "no palette"},
        {1, 1, 0, 0, 12, 0xFF0000, "code 12"},
        {1, 1, 0, 0, 12 + PALETTE_SIZE, 0xFF0000, "code masked by the palette size"},
        {1, 1, 0, 0, 5, 0x00FFFF, "spare entry"},
        {1, 1, 0, 0, 3, BLACK, "code 3"},
        {1, 1, 0, MPRFLG_WIRE_LOCKED, 12, BLACK, "locked"},
        {1, 1, 1, MPRFLG_WIRE_LOCKED, 12, WHITE, "locked and selected"},
    };
    for (const Case &c : cases) {
        gp.icons = c.icons;
        glbVar.palette = c.pal ? palette : nullptr;
        entry(m)->selected = c.selected;
        setEnv(m, MPRFLG, c.flags);
        setEnv(m, WIRECOL, c.code);
        draw(m, DISP_WIRE);
        EXPECT_EQ(litOnRow(32, c.colour), 25) << c.what;
    }
}

TEST_F(Draw, GhostsDrawStippledWireEvenWhenShaded) {
    Model *m = addNull(ROW32);
    draw(m, DISP_WIRE);
    EXPECT_EQ(litOnRow(32, GREY), 25);
    // Shaded only, a null model shows nothing of its own.
    draw(m, DISP_SHADED);
    EXPECT_EQ(litOnRow(32, BACK), 25);

    setEnv(m, DISPLAY, DISPLAY_GHOST);
    EXPECT_EQ(modelDisplay(entry(m), m).state, VISIBILITY_GHOST);
    for (uint16_t type : {uint16_t{DISP_WIRE}, uint16_t{DISP_SHADED}}) {
        draw(m, type);
        const int lit = litOnRow(32, GREY);
        EXPECT_GE(lit, 10) << type;
        EXPECT_LE(lit, 15) << type << ": every other pixel";
        EXPECT_EQ(lit + litOnRow(32, BACK), 25) << type;
        EXPECT_FALSE(glIsEnabled(GL_LINE_STIPPLE));
        GLint pattern = 0;
        glGetIntegerv(GL_LINE_STIPPLE_PATTERN, &pattern);
        EXPECT_EQ(pattern, 170);
    }

    // Hidden in shade: a whole wire over the fill.
    setEnv(m, DISPLAY, 2);
    setEnv(m, MPRFLG, MPRFLG_HIDDEN_IN_SHADE);
    draw(m, DISP_SHADED);
    EXPECT_EQ(litOnRow(32, GREY), 25);

    // Only the model's visibility hides it; the scene's DISPLAY 0 does not.
    setEnv(m, MPRFLG, 0);
    setEnv(m, DISPLAY, 0);
    EXPECT_EQ(modelDisplay(entry(m), m).state, VISIBILITY_SHOWN);
    m->visible = 0;
    EXPECT_EQ(modelDisplay(entry(m), m).state, VISIBILITY_HIDDEN);
    clear();
    gp.dispType = DISP_WIRE;
    int stop = 0;
    ASSERT_EQ(drawModelTree(&scene, dictChapter(dict, CHP_MODELS), m->elementIndex, &gp, 2, 0, &stop,
                            nullptr, 0),
              0);
    EXPECT_EQ(litOnRow(32, BACK), 25);
}

TEST_F(Draw, DrawingStatesKeyModelsOutOfTheMatte) {
    // A unit square turned from XZ into XY over the lower-left quarter.
    Model *m = modelNew("square", MODEL_MESH, tdMakeGridMesh(1, 1));
    const float turn[4][4] = {{1, 0, 0, 0}, {0, 0, -1, 0}, {0, 1, 0, 0}, {-1, -1, 0, 1}};
    memcpy(m->globalMatrix, turn, sizeof turn);
    m->elementIndex = elemAdd(dict, CHP_MODELS, elemNameParse("square", nullptr, 0), m, nullptr, 0, 0);
    models.push_back(m);
    ASSERT_EQ(TOL_preprocessALL(&scene, &gp), 0);
    ASSERT_EQ(TOL_preprocessALL(&scene, &gp), 0);
    boundsBuild(dict);
    gp.material.shade = 1;
    gp.material.matte = 1;
    const uint16_t matte = DISP_MATTE | DISP_SHADED;
    auto inside = [] { return glPixel(16, 16) & 0xFFFFFF; };

    // Without the overload switch the states are nothing to the draw.
    gp.useHiddenForMatte = 0;
    m->drawState = MODEL_DRAW_STATE_A;
    draw(m, matte);
    EXPECT_EQ(inside(), WHITE);

    gp.useHiddenForMatte = 1;
    draw(m, matte);
    EXPECT_EQ(inside(), BLACK) << "keyed out";
    // No state leaves the alpha as the last one made it.
    m->drawState = 0;
    draw(m, matte);
    EXPECT_EQ(inside(), BLACK);
    m->drawState = MODEL_DRAW_STATE_B;
    draw(m, matte);
    EXPECT_EQ(inside(), WHITE) << "kept in";
    EXPECT_EQ(modelDisplay(entry(m), m).drawState, MODEL_DRAW_STATE_B);
}

TEST_F(Draw, IconsOfEveryIconChapter) {
    // The plain line shapes first: the icon models the start read go.
    iconModelsFree();

    // A point light's cross along row 32 from x = -1 to 0.
    auto light = std::make_unique<Light>();
    light->position[0] = -0.5f;
    light->position[1] = ROW32;
    const int lightIndex = elemAdd(dict, CHP_LIGHTS, elemNameParse("l", nullptr, 0), light.get(), nullptr, 0, 0);

    // A lattice of two points a side; its edge along x at row 48, x 0.1 to 0.9.
    Lattice *lattice = static_cast<Lattice *>(calloc(1, sizeof(Lattice)));
    lattice->keyCount = 1;
    lattice->keys = static_cast<LatticeKey *>(calloc(1, sizeof(LatticeKey)));
    LatticeKey &key = lattice->keys[0];
    key.divisions[0] = key.divisions[1] = key.divisions[2] = 2;
    key.pointCount = 8;
    key.points = static_cast<float (*)[3]>(calloc(8, sizeof(float[3])));
    key.pointFlags = static_cast<uint16_t *>(calloc(8, sizeof(uint16_t)));
    for (int i = 0; i < 8; ++i) {
        key.points[i][0] = (i & 1) ? 0.9f : 0.1f;
        key.points[i][1] = (i & 2) ? 0.8f : ROW48;
        key.points[i][2] = (i & 4) ? 0.5f : 0.0f;
    }
    const int latticeIndex = elemAdd(dict, CHP_LATTICES, elemNameParse("lat", nullptr, 0), lattice, nullptr, 0, 0);

    // A null model along row 16, the path of the scene's camera.
    Model *path = addNull(ROW16, "path");
    void **current = tol_sidCamera(&scene);
    ASSERT_NE(current, nullptr);
    Camera *camera = static_cast<Camera *>(*current);
    int32_t cameraIndex = -1;
    Chapter *cameras = dictChapter(dict, CHP_CAMERAS);
    for (int32_t i = 0; i < cameras->elementCount; ++i)
        if (cameras->elements[i].data == camera) cameraIndex = i;
    ASSERT_GE(cameraIndex, 0);
    ASSERT_EQ(relAdd(dict, nullptr, cameraIndex, path->elementIndex, 1111, 0, 0, nullptr, 1), 1);
    // The camera's own icon: its line to the interest along row 16, x 0.1 to 0.9.
    camera->position[0] = 0.1f;
    camera->interest[0] = 0.9f;
    camera->position[1] = camera->interest[1] = ROW16;
    camera->position[2] = camera->interest[2] = 0.0f;

    auto icons = [&](Camera *drawn) {
        clear();
        gp.curCamera = drawn;
        drawIcons(dict, camera, &gp);
    };
    icons(camera);
    EXPECT_TRUE(near(glPixel(16, 32), 0xB23300u)) << "light " << std::hex << glPixel(16, 32);
    EXPECT_TRUE(near(glPixel(48, 48), 0x004C00u)) << "lattice " << std::hex << glPixel(48, 48);
    EXPECT_EQ(glPixel(20, 16), 0xFFFF00u) << "linked model";
    EXPECT_EQ(glPixel(48, 16), BACK) << "no icon for the camera being drawn";

    elemGet(dict, CHP_LIGHTS, lightIndex)->selected = 1;
    elemGet(dict, CHP_LATTICES, latticeIndex)->selected = 1;
    icons(nullptr);
    EXPECT_EQ(glPixel(16, 32), WHITE) << "selected light";
    EXPECT_EQ(glPixel(48, 48), WHITE) << "selected lattice";
    EXPECT_EQ(glPixel(48, 16), BLACK) << "camera icon";
    cameras->elements[cameraIndex].selected = 1;
    icons(nullptr);
    EXPECT_EQ(glPixel(48, 16), WHITE) << "selected camera";
    cameras->elements[cameraIndex].selected = 0;

    // A hidden light has no icon; without the link switch no linked models.
    elemGet(dict, CHP_LIGHTS, lightIndex)->selected = 0;
    light->visibility = 0;
    g_linkIcons = 0;
    icons(camera);
    EXPECT_EQ(glPixel(16, 32), BACK);
    EXPECT_EQ(glPixel(20, 16), BACK);

    // Models linked as icons draw only the types without filled geometry.
    Model *square = modelNew("square", MODEL_MESH, tdMakeGridMesh(1, 1));
    const float turn[4][4] = {{1, 0, 0, 0}, {0, 0, -1, 0}, {0, 1, 0, 0}, {-0.5f, -0.5f, 0, 1}};
    memcpy(square->globalMatrix, turn, sizeof turn);
    int drawn[2] = {};
    for (int iconsOnly : {0, 1}) {
        clear();
        glColor3f(1, 1, 1);
        drawWireModel(square, iconsOnly);
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) drawn[iconsOnly] += glPixel(x, y) != BACK;
    }
    EXPECT_GT(drawn[0], 0);
    EXPECT_EQ(drawn[1], 0);
    modelFree(square);

    // An icon model read from the resource directory replaces the cross of
    // a point light: a null whose x axis runs from the light to the right.
    light->visibility = 2;
    icons(camera);
    EXPECT_TRUE(near(glPixel(8, 32), 0xB23300u)) << "the cross reaches left";
    EXPECT_EQ(glPixel(40, 32), BACK);
    bwtest::TempDir rsrc;
    Model *bulb = modelNew("BULB_ICON", MODEL_BARE, nullptr);
    ASSERT_EQ(modelFileWritePath((rsrc / "BULB_ICON.hrc").c_str(), bulb), 1);
    modelFree(bulb);
    EXPECT_EQ(iconModelsLoad(rsrc.path().c_str()), 1);
    ASSERT_NE(iconModel(ICON_MODEL_BULB), nullptr);
    icons(camera);
    EXPECT_EQ(glPixel(8, 32), BACK) << "no cross";
    EXPECT_TRUE(near(glPixel(40, 32), 0xB23300u)) << "the bulb's axis";
    iconModelsFree();

    elemGet(dict, CHP_LIGHTS, lightIndex)->data = nullptr;
    elemGet(dict, CHP_LATTICES, latticeIndex)->data = nullptr;
    latticeFree(lattice);
}

TEST_F(Draw, AnAnimatedSceneBlockSetsTheLightModelAndFog) {
    // No curve moved the block: the viewer's own fog and the default light
    // model stay.
    gp.fogEnable = 0;
    gp.fogStart = 5.0f;
    dict->globals.fogEnable = 1;
    dict->globals.ambient[0] = 0.9f;
    ASSERT_EQ(TOL_sceneDraw(&scene, nullptr, &gp), 0);
    GLfloat ambient[4];
    glGetFloatv(GL_LIGHT_MODEL_AMBIENT, ambient);
    EXPECT_FLOAT_EQ(ambient[0], 0.2f);
    EXPECT_EQ(gp.fogEnable, 0);

    // Once moved, every draw of the scene takes it over, the clear included.
    dict->globals.revision = 1;
    dict->globals.twoSided = 1;
    dict->globals.fogStart = 2.0f;
    dict->globals.fogEnd = 9.0f;
    dict->globals.fogColor[1] = 0.5f;
    ASSERT_EQ(TOL_sceneDraw(&scene, nullptr, &gp), 0);
    GLint twoSide = 0;
    glGetFloatv(GL_LIGHT_MODEL_AMBIENT, ambient);
    glGetIntegerv(GL_LIGHT_MODEL_TWO_SIDE, &twoSide);
    EXPECT_FLOAT_EQ(ambient[0], 0.9f);
    EXPECT_EQ(twoSide, 1);
    EXPECT_EQ(gp.fogEnable, 1);
    EXPECT_FLOAT_EQ(gp.fogStart, 2.0f);
    EXPECT_FLOAT_EQ(gp.fogEnd, 9.0f);
    ASSERT_EQ(TOL_grClear(&gp), 0);
    GLfloat clear[4];
    glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
    EXPECT_FLOAT_EQ(clear[1], 0.5f);
}
