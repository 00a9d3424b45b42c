// Scenes through the layer: creation, the current scene of each thread, the swap
// of the core's globals, loading by name, and element handles and parameters.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "camera.h"
#include "capture.h"
#include "database.h"
#include "dictionary.h"
#include "graphic.h"
#include "tol.h"

namespace {

// One layer per test program, started once in a scratch directory holding a
// database "db" with three versions of "kitchen" and a scene "other".
class Scenes : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        dir = new bwtest::TempDir;
        dir->write("rsrc/Relations.rsrc", "SREL 3.48\nRELATIONS\nEndOfRELATIONS\n");
        dir->write("db/SCENES/Chapter.rsrc", "SUFFIX dsc \nVERSIONS 4 \n");
        dir->write("db/MODELS/Chapter.rsrc", "SUFFIX hrc \nVERSIONS 4 \n");
        for (const char *f : {"kitchen.1-0.dsc", "kitchen.3-0.dsc", "kitchen.2-1.dsc", "other.1-0.dsc"})
            dir->write(std::string("db/SCENES/") + f, "SDSC 4.0\n");
        dir->write("db/SCENES/dressed.1-0.dsc",
                   "SDSC 4.0\nELEMENTS\nEndOfELEMENTS\nRELATIONS\nEndOfRELATIONS\n"
                   "ENVIRONMENT\nCHAPTER SETUP_BRAK SETUP dressed.1-0 EndOfCHAPTER\n"
                   "EndOfENVIRONMENT\n");
        dir->write("db/SETUP_BRAK/Chapter.rsrc", "SUFFIX sts \nVERSIONS 4 \n");
        dir->write("db/SETUP_BRAK/dressed.1-0.sts",
                   "SSET 3.0\nTEXTURE_PXL_INTERPOLATION_MODE ALWAYS_OFF BLENDING 1 TXT_DPY_GLOBAL 0\n"
                   "TXT_DPY_LOCAL 0 TXT_DPY_TILING 1 TXT_DPY_MIRROR 1\n");
        bwtest::OutputCapture quiet;
        ASSERT_EQ(TOL_Init((*dir / "rsrc").c_str(), 0, TOL_SDK_VERSION), 0);
        ASSERT_EQ(TOL_databaseLoad((*dir / "db").c_str(), &db), 0);
        ASSERT_EQ(TOL_sceneCreate(&a), 0);
        ASSERT_EQ(TOL_sceneCreate(&b), 0);
    }
    static void TearDownTestSuite() { delete dir; }

    static bwtest::TempDir *dir;
    static TOL_Database db;
    static TOL_Scene a, b;
};
bwtest::TempDir *Scenes::dir = nullptr;
TOL_Database Scenes::db = 0;
TOL_Scene Scenes::a, Scenes::b;

}  // namespace

TEST_F(Scenes, CreationGivesEachSceneItsDictionaryListsAndCamera) {
    EXPECT_EQ(a.dict, 1u);
    EXPECT_EQ(b.dict, 2u);
    // The select lists of dictionary d are 2d and 2d+1.
    EXPECT_EQ(a.selectList, 2u);
    EXPECT_EQ(a.tagList, 3u);
    EXPECT_EQ(b.selectList, 4u);
    EXPECT_EQ(tol_sidGet()->sceneCount, 3);

    TOL_Elem cam;
    ASSERT_NE(TOL_elemGetFirstInChap(a.dict, CHP_CAMERAS, 0, &cam), nullptr);
    Element *entry = elemGet(dictGet(1), CHP_CAMERAS, static_cast<int>(cam.index));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->name->name, "Camera1");
    EXPECT_EQ(static_cast<Camera *>(entry->data)->kind, CAMERA_KIND_WORKING);
    Element *def = elemGet(dictGet(0), CHP_CAMERAS, 0);
    ASSERT_NE(def, nullptr);
    EXPECT_EQ(def->name->name, "Perspective_def");

    bwtest::OutputCapture cap;
    EXPECT_EQ(TOL_sceneCreate(nullptr), 16);
    EXPECT_EQ(cap.out.text(), "BW_WARNING: TOL_sceneCreate(): scn: Null or Invalid argument\n");
}

TEST_F(Scenes, SwapKeepsEachScenesGlobals) {
    ASSERT_EQ(TOL_sceneSetCurrent(&a), 0);
    sceneStateCurrent().playCtrl.endFrame = 250;
    ASSERT_EQ(TOL_sceneSetCurrent(&b), 0);
    EXPECT_EQ(sceneStateCurrent().playCtrl.endFrame, 100);  // b's own defaults
    sceneStateCurrent().playCtrl.endFrame = 42;
    ASSERT_EQ(TOL_sceneSetCurrent(&a), 0);
    EXPECT_EQ(sceneStateCurrent().playCtrl.endFrame, 250);
    EXPECT_EQ(tol_sidPlayCtrl(&b)->endFrame, 42);

    // The thread works on the scene's own record: nothing to save, nothing stale.
    sceneStateCurrent().playCtrl.endFrame = 7;
    EXPECT_EQ(tol_sidPlayCtrl(&a)->endFrame, 7);
    ASSERT_EQ(TOL_sceneSetCurrent(&a), 0);
    EXPECT_EQ(tol_sidPlayCtrl(&a)->endFrame, 7);

    TOL_Scene bad = a;
    bad.dict = 99;
    bwtest::OutputCapture cap;
    EXPECT_EQ(TOL_sceneSetCurrent(&bad), 71);
    EXPECT_EQ(cap.out.text(), "BW_ERROR: TOL_sceneSetCurrent(): Invalid Scene referenced\n");
    sceneStateCurrent().playCtrl.endFrame = 250;
}

TEST_F(Scenes, EachThreadHasItsCurrentScene) {
    ASSERT_EQ(TOL_sceneSetCurrent(&a), 0);
    int seenInThread = -1;
    std::thread other([&] {
        TOL_threadStorageInit(&b);
        seenInThread = dictCurrent() == dictGet(2) ? 2 : -1;
    });
    other.join();
    EXPECT_EQ(seenInThread, 2);
    EXPECT_EQ(dictCurrent(), dictGet(1));
    TOL_Scene current;
    TOL_sceneGetCurrent(&current);
    EXPECT_EQ(current.dict, a.dict);
}

TEST_F(Scenes, LoadTakesTheNewestVersionOrTheOneNamed) {
    char *latest = nullptr;
    Database *record = nullptr;
    ASSERT_EQ(TOL_databaseTOL2BRAK(db, &record), 0);
    ASSERT_EQ(tol_elementGetLatestVersion("kitchen", record, "SCENES", &latest), 0);
    EXPECT_STREQ(latest, "kitchen.3-0");
    free(latest);
    ASSERT_EQ(tol_elementGetLatestVersion("nothing", record, "SCENES", &latest), 0);
    EXPECT_STREQ(latest, "nothing.0-0");  // names no file: the load fails as missing
    free(latest);

    bwtest::OutputCapture cap;
    EXPECT_EQ(TOL_sceneLoad(&db, "kitchen", &a), 0);
    EXPECT_EQ(TOL_sceneLoad(&db, "kitchen.2-1", &a), 0);
    EXPECT_EQ(TOL_sceneLoad(&db, "kitchen.dsc", &a), 0);
    EXPECT_EQ(TOL_sceneLoad(&db, "kitchen.4-0", &a), 45);
    EXPECT_EQ(TOL_sceneLoad(&db, "nothing", &b), 45);
    EXPECT_EQ(TOL_sceneLoad(&db, nullptr, &b), 16);
    EXPECT_EQ(cap.out.text(),
              "BW_ERROR: TOL_sceneLoad: Cannot read scene kitchen.4-0\n"
              "BW_ERROR: TOL_sceneLoad: Cannot read scene nothing.0-0\n"
              "BW_WARNING: TOL_sceneLoad():scn_name: Null or Invalid argument\n");
}

// The texture display of a scene's setup file becomes the viewer's own.
TEST_F(Scenes, TheSetupFilesTextureDisplayReachesTheViewersSettings) {
    const BW_GlbVar saved = glbVar;
    TOL_Status status;
    std::string said;
    {
        bwtest::OutputCapture quiet;
        status = TOL_sceneLoad(&db, "dressed", &b);
        said = quiet.out.text() + quiet.err.text();
    }
    ASSERT_EQ(status, 0) << said;
    EXPECT_EQ(glbVar.texFilter, 2);
    EXPECT_EQ(glbVar.blending, 1);
    EXPECT_EQ(glbVar.useMaterialTexture, 0);
    EXPECT_EQ(glbVar.useLocalTexture, 0);
    EXPECT_EQ(glbVar.tiling, 1);
    EXPECT_EQ(glbVar.mirror, 1);
    glbVar = saved;
}

TEST_F(Scenes, ElementParametersAndTheirCodes) {
    Dictionary *dict = dictGet(static_cast<int>(a.dict));
    ElemName *name = elemNameNew();
    name->name = "ball";
    int index = elemAdd(dict, CHP_MODELS, name, nullptr, nullptr, 0, 0);
    TOL_Elem model{a.dict, CHP_MODELS, static_cast<uint32_t>(index), -1, 0};

    // The kinds, counts and codes of every parameter are the parameter tests';
    // here a value set through the handle reads back, and a refusal leaves no list.
    const float on = 1.0f;
    float *values = nullptr;
    int count = 0;
    EXPECT_EQ(TOL_elemSetParams(&model, 5, 0, 1, &on), 0);
    ASSERT_EQ(TOL_elemGetParams(&model, 5, 0, &count, &values), 0);
    EXPECT_EQ(values[0], 1.0f);
    free(values);
    values = nullptr;
    bwtest::OutputCapture cap;
    EXPECT_EQ(TOL_elemGetParams(&model, 7, 0, &count, &values), 23);
    EXPECT_EQ(cap.out.text(), "BW_WARNING: TOL_elemGetParams(): Invalid parameter 7 for chapter 8\n");
    EXPECT_EQ(values, nullptr);

    // Selection state 2 clears, 0 inverts.
    EXPECT_EQ(TOL_elemDraw(a.dict, &model, CHP_MODELS, 0, 2, 1), 0);
    EXPECT_EQ(elemGet(dict, CHP_MODELS, index)->selected, 0);
    EXPECT_EQ(TOL_elemDraw(a.dict, &model, CHP_MODELS, 0, 0, 1), 0);
    EXPECT_EQ(elemGet(dict, CHP_MODELS, index)->selected, 1);

    // The display word keeps its two low bits.
    elemGet(dict, CHP_MODELS, index)->browserData = 7;
    EXPECT_EQ(TOL_elemSetDisplayMode(&model, 8), 0);
    EXPECT_EQ(elemGet(dict, CHP_MODELS, index)->browserData, 11u);

    // Walking skips free slots; the next of the last is null.
    TOL_Elem walk;
    ASSERT_NE(TOL_elemGetFirstInChap(a.dict, CHP_MODELS, 0, &walk), nullptr);
    EXPECT_EQ(walk.index, static_cast<uint32_t>(index));
    EXPECT_EQ(TOL_elemGetNextInChap(&walk, 0, &walk), nullptr);
}

TEST_F(Scenes, VerificationFollowsTheWord) {
    TOL_Elem foreign{b.dict, CHP_MODELS, 0, -1, 0};
    tol_verifyClear(0xffffffffu);
    EXPECT_EQ(tol_modelVerify(&a, &foreign), 0);  // unset: an element of another scene passes
    tol_verifySet(TOL_VERIFY_MODEL);
    bwtest::OutputCapture cap;
    EXPECT_EQ(tol_modelVerify(&a, &foreign), 72);
    TOL_Elem cam{a.dict, CHP_CAMERAS, 0, -1, 0};
    EXPECT_EQ(tol_modelVerify(&a, &cam), 73);
    EXPECT_FALSE(tol_verifyEnabled(TOL_VERIFY_ELEMENT));  // only on for the call
    EXPECT_EQ(cap.out.text(), "BW_ERROR: Element doesn't belong to Scene\nBW_ERROR: Element is not a Model\n");
    tol_verifyClear(0xffffffffu);
}

// ---------------------------------------------------------------------------
// Camera navigation on the working camera of scene a.

namespace {

Camera *workingCamera(const TOL_Scene &scene) {
    return static_cast<Camera *>(elemGet(dictGet(static_cast<int>(scene.dict)), CHP_CAMERAS, 0)->data);
}

void place(Camera *c, float px, float py, float pz, float ix, float iy, float iz) {
    *c = Camera{};
    c->kind = CAMERA_KIND_WORKING;
    const float p[3] = {px, py, pz}, i[3] = {ix, iy, iz};
    memcpy(c->position, p, sizeof p);
    memcpy(c->interest, i, sizeof i);
}

float distance(const Camera *c) {
    float d[3] = {c->position[0] - c->interest[0], c->position[1] - c->interest[1],
                  c->position[2] - c->interest[2]};
    return std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
}

}  // namespace

TEST_F(Scenes, OrbitKeepsTheDistanceAndStopsShortOfThePoles) {
    Camera *c = workingCamera(a);
    place(c, 1, 2, 3, 0.5f, 0, -1);
    Camera before = *c;
    ASSERT_EQ(TOL_cameraOrbit(&a, nullptr, 0, 0), 0);
    EXPECT_EQ(memcmp(&before, c, sizeof before), 0);  // bit for bit

    // theta is measured from +z towards +x and the delta is taken off it:
    // a delta of minus a quarter turn brings the camera from +z to +x.
    place(c, 0, 0, 10, 0, 0, 0);
    ASSERT_EQ(TOL_cameraOrbit(&a, nullptr, -1.5707963f, 0), 0);
    EXPECT_NEAR(c->position[0], 10.0f, 1e-4);
    EXPECT_NEAR(c->position[2], 0.0f, 1e-4);
    // Far past the pole: phi held at 0.01 from +y, the distance kept.
    ASSERT_EQ(TOL_cameraOrbit(&a, nullptr, 0, -10.0f), 0);
    EXPECT_NEAR(std::acos(c->position[1] / 10.0f), 0.01f, 1e-5);
    EXPECT_NEAR(distance(c), 10.0f, 1e-4);
    ASSERT_EQ(TOL_cameraOrbit(&a, nullptr, 0, 10.0f), 0);
    EXPECT_NEAR(std::acos(c->position[1] / 10.0f), 3.1315928f, 1e-5);

    // The interest orbit turns the view on the spot, with phi the other way.
    place(c, 0, 0, 0, 0, 0, -5);
    ASSERT_EQ(TOL_cameraIntOrbit(&a, nullptr, 0, 0.5f), 0);
    EXPECT_NEAR(c->interest[1], 5.0f * std::cos(1.5707963f - 0.5f), 1e-4);
    EXPECT_TRUE(c->position[0] == 0 && c->position[1] == 0 && c->position[2] == 0);

    // With position and interest together, nothing moves.
    place(c, 1, 1, 1, 1, 1, 1);
    ASSERT_EQ(TOL_cameraOrbit(&a, nullptr, 1, 1), 0);
    EXPECT_EQ(c->position[0], 1.0f);
    bwtest::OutputCapture cap;
    EXPECT_EQ(TOL_cameraOrbit(nullptr, nullptr, 1, 1), 16);
}

TEST_F(Scenes, DollyZoomPanWalkAndTilt) {
    Camera *c = workingCamera(a);
    // The camera cannot pass through its interest.
    place(c, 0, 0, 3, 0, 0, 0);
    ASSERT_EQ(TOL_cameraDolly(&a, nullptr, -10), 0);
    EXPECT_EQ(c->position[2], 3.0f);
    ASSERT_EQ(TOL_cameraDolly(&a, nullptr, -2), 0);
    EXPECT_NEAR(c->position[2], 1.0f, 1e-6);
    ASSERT_EQ(TOL_cameraDolly(&a, nullptr, 4), 0);  // backs away
    EXPECT_NEAR(c->position[2], 5.0f, 1e-6);

    // Zoom steps stop at 0.05 and 3.1 radians; the focal length follows.
    for (int i = 0; i < 200; ++i) TOL_cameraZoom(&a, nullptr, 1.0f);
    EXPECT_FLOAT_EQ(c->fieldOfView, 0.05f);
    EXPECT_NEAR(c->focalLength, 0.5f * c->filmWidth / std::tan(0.025f), 1e-2);
    for (int i = 0; i < 200; ++i) TOL_cameraZoom(&a, nullptr, -1.0f);
    EXPECT_FLOAT_EQ(c->fieldOfView, 3.1f);

    // A pan by the whole height moves both points by the view's height at the interest.
    place(c, 0, 0, 10, 0, 0, 0);
    c->fieldOfView = 0.5f;
    float height = 2.0f * 10.0f * std::tan(0.25f);
    ASSERT_EQ(TOL_cameraPan(&a, nullptr, 0, 1.0f), 0);
    EXPECT_NEAR(c->position[1], height, 1e-4);
    EXPECT_NEAR(c->interest[1], height, 1e-4);
    EXPECT_NEAR(c->position[2] - c->interest[2], 10.0f, 1e-4);

    // Walking keeps the height; reset tilt levels the view and keeps its length.
    place(c, 0, 5, 0, 3, 1, 4);
    ASSERT_EQ(TOL_cameraWalk(&a, nullptr, 5), 0);
    EXPECT_NEAR(c->position[0], 3.0f, 1e-5);
    EXPECT_NEAR(c->position[2], 4.0f, 1e-5);
    EXPECT_EQ(c->position[1], 5.0f);
    float before = distance(c);
    ASSERT_EQ(TOL_cameraResetTilt(&a, nullptr), 0);
    EXPECT_EQ(c->interest[1], c->position[1]);
    EXPECT_NEAR(distance(c), before, 1e-4);

    // A camera switched off is left alone.
    c->active = 0;
    ASSERT_EQ(TOL_cameraElevate(&a, nullptr, 2), 0);
    EXPECT_EQ(c->position[1], 5.0f);
    c->active = 1;
}

TEST_F(Scenes, RestoringACameraKeepsTheWindowsShape) {
    Camera *c = workingCamera(a);
    place(c, 1, 2, 3, 0, 0, 0);
    c->aspect = 1.5f;
    ASSERT_EQ(TOL_cameraStoreAttributes(&a, nullptr), 0);
    place(c, 9, 9, 9, 1, 1, 1);
    c->aspect = 2.0f;
    ASSERT_EQ(TOL_cameraRestoreAttributes(&a, nullptr), 0);
    EXPECT_EQ(c->position[0], 1.0f);
    EXPECT_EQ(c->interest[2], 0.0f);
    EXPECT_EQ(c->aspect, 2.0f);
    bwtest::OutputCapture cap;
    EXPECT_EQ(TOL_cameraStoreAttributes(nullptr, nullptr), 16);
    EXPECT_EQ(cap.out.text(), "BW_WARNING: TOL_cameraStoreAttributes(): scene: Null or Invalid argument\n");
}
