// Start of the layer: finding the relation resources, reading the database
// directory, the version checks, the icon models and the default camera.
#include <gtest/gtest.h>

#include <unistd.h>

#include "camera.h"
#include "capture.h"
#include "database.h"
#include "dictionary.h"
#include "model.h"
#include "tol.h"
#include "view.h"

TEST(VersionCompare, NumbersDecideNotTheLetters) {
    EXPECT_EQ(versionCompare("SDKv4.00.1", "SDKv4.0.1"), 0);
    EXPECT_EQ(versionCompare("a1", "b01"), 0);
    EXPECT_EQ(versionCompare("SDKv4.00.2", "SDKv4.00.1"), 1);
    EXPECT_EQ(versionCompare("4.1", "4.1.0"), -1);  // the text that ends first is lower
    EXPECT_EQ(versionCompare("v10", "v9"), 1);
    EXPECT_EQ(versionCompare(nullptr, "1"), -1);
    EXPECT_EQ(versionCompare("1", nullptr), 1);
    EXPECT_EQ(versionCompare(nullptr, nullptr), 0);
}

namespace {

// Runs TOL_Init in a scratch working directory.
class Init : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(getcwd(saved_, sizeof saved_), nullptr);
        ASSERT_EQ(chdir(dir.path().c_str()), 0);
    }
    void TearDown() override {
        ASSERT_EQ(chdir(saved_), 0);
        dbListInit(g_dbList);
    }
    bwtest::TempDir dir;
    bwtest::ScopedEnv noDbdir{"BW_DBDIR", nullptr};
    char saved_[4096];
};

}  // namespace

TEST_F(Init, RelationResourcesMustExist) {
    bwtest::OutputCapture cap;
    EXPECT_EQ(TOL_Init(nullptr, 0, TOL_SDK_VERSION), 16);
    EXPECT_EQ(TOL_Init((dir / "rsrc").c_str(), 0, TOL_SDK_VERSION), 30);
    EXPECT_EQ(cap.out.text(),
              "BW_WARNING: TOL_Init():path: Null or Invalid argument\n"
              "BW_ERROR: TOL_Init Cannot open resource file " + dir / "rsrc" +
                  "/Relations.rsrc\n");

    // The working directory's file is enough, and so is the resource path's.
    dir.write("Relations.rsrc", "SREL 3.48\nRELATIONS\nEndOfRELATIONS\n");
    EXPECT_EQ(TOL_Init((dir / "rsrc").c_str(), 0, TOL_SDK_VERSION), 0);
    unlink((dir / "Relations.rsrc").c_str());
    dir.write("rsrc/Relations.rsrc", "SREL 3.48\nRELATIONS\nEndOfRELATIONS\n");
    EXPECT_EQ(TOL_Init((dir / "rsrc").c_str(), 0, TOL_SDK_VERSION), 0);
    EXPECT_EQ(noInterface, 1);

    bwtest::OutputCapture newer;
    EXPECT_EQ(TOL_Init((dir / "rsrc").c_str(), 0, "SDKv4.01.0"), 116);
    EXPECT_EQ(newer.out.text(),
              "BW_ERROR: TOL_sceneInitInternal: TOLMIERE enabler version too old for the custom "
              "effect\n");
}

TEST_F(Init, DatabaseDirectoryMakesTheFirstValidCurrent) {
    dir.write("rsrc/Relations.rsrc", "SREL 3.48\nRELATIONS\nEndOfRELATIONS\n");
    dir.write("db/SCENES/Chapter.rsrc", "SUFFIX dsc \nVERSIONS 4 \n");
    dir.write("db/MODELS/Chapter.rsrc", "SUFFIX hrc \nVERSIONS 4 \n");
    dir.write("DatabaseDir.rsrc", "DATABASE gone\nPATH " + dir / "gone" + "\nDATABASE db\nPATH " +
                                      dir / "db" + "\n");
    bwtest::OutputCapture cap;
    EXPECT_EQ(TOL_Init((dir / "rsrc").c_str(), 1, TOL_SDK_VERSION), 0);
    ASSERT_EQ(g_dbList.count(), 2);
    EXPECT_EQ(g_dbRead, 1);
    EXPECT_EQ(g_dbWrite, 1);
    EXPECT_EQ(cap.err.text(), "ERROR: Database gone non-existent or invalid\n");

    // Without a usable entry the layer still starts, and says so.
    dir.write("DatabaseDir.rsrc", "DATABASE gone\nPATH " + dir / "gone" + "\n");
    bwtest::OutputCapture none;
    EXPECT_EQ(TOL_Init((dir / "rsrc").c_str(), 1, TOL_SDK_VERSION), 0);
    EXPECT_EQ(g_dbRead, -1);
    EXPECT_EQ(none.out.text(), "ERROR: No valid Database where the scene could be found\n");
}

TEST_F(Init, IconModelsAndTheDefaultCameraClipping) {
    dir.write("rsrc/Relations.rsrc", "SREL 3.48\nRELATIONS\nEndOfRELATIONS\n");
    // Each icon a small tree: a root and one child, named after its file.
    const char *names[ICON_MODEL_COUNT] = {"LIGHT_ICON", "BULB_ICON", "CAMERA_ICON"};
    for (const char *name : names) {
        Model *root = modelNew(name, MODEL_BARE, nullptr);
        Model *child = modelNew("part", MODEL_BARE, nullptr);
        child->translation[1] = 2.0f;
        modelAddChild(root, child);
        ASSERT_EQ(modelFileWritePath((dir / "rsrc/" + name + ".hrc").c_str(), root), 1) << name;
        modelFree(root);
    }
    bwtest::OutputCapture cap;
    ASSERT_EQ(TOL_Init((dir / "rsrc").c_str(), 0, TOL_SDK_VERSION), 0);
    EXPECT_EQ(cap.out.text() + cap.err.text(), "");
    for (int i = 0; i < ICON_MODEL_COUNT; ++i) {
        const Model *icon = iconModel(i);
        ASSERT_NE(icon, nullptr) << names[i];
        EXPECT_STREQ(icon->name, names[i]);
        // Its matrices are made: the child stands where its translation puts it.
        ASSERT_NE(icon->firstChild, nullptr);
        EXPECT_FLOAT_EQ(icon->firstChild->globalMatrix[3][1], 2.0f);
    }
    EXPECT_EQ(iconModel(ICON_MODEL_COUNT), nullptr);

    // The default camera sees from the default near distance to the two
    // default distances together.
    const Camera *camera = static_cast<const Camera *>(tol_sidGet()->cameras[0]);
    ASSERT_NE(camera, nullptr);
    const Camera defaults;
    EXPECT_FLOAT_EQ(camera->nearClip, 0.1f);
    EXPECT_FLOAT_EQ(camera->farClip, 1000.1f);
    EXPECT_FLOAT_EQ(camera->farClip, defaults.nearClip + defaults.farClip);
    EXPECT_EQ(camera, threadStorage()->curCamera);
}
