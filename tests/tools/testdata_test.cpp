// Tests of the test-data writers: a database made on disk, element files named
// by the naming rules and versioned like saves, read back by their readers.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>

#include "capture.h"
#include "testdata.h"

namespace {

std::string stem(const std::string &path) { return path.substr(0, path.rfind('.')); }

}  // namespace

TEST(TestData, ElementsAreNamedVersionedAndReadBack) {
    bwtest::TempDir dir;
    Database *db = tdDatabaseCreate(dir / "db", "tddb", dir / "DatabaseDir.rsrc");
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(db->name, "tddb");

    Model *root = modelNew("root", MODEL_MESH, meshMakeCube(1.0f));
    root->translation[2] = 4.0f;
    modelAddChild(root, modelNew("leaf", MODEL_PATCH, patchMakeGrid(3, 2, 1.0f)));
    std::string first = tdWriteModel(db, "ball", root);
    EXPECT_EQ(first, dir.path() + "/db/MODELS/ball.1-0.hrc");
    // A second save takes the next version; a prefixed name keeps its prefix.
    EXPECT_EQ(tdWriteModel(db, "ball", root), dir.path() + "/db/MODELS/ball.2-0.hrc");
    EXPECT_EQ(tdWriteModel(db, "s1-ball", root), dir.path() + "/db/MODELS/s1-ball.1-0.hrc");
    Model *back = modelFileRead(stem(first).c_str(), nullptr, MODEL_READ_NEW);
    ASSERT_NE(back, nullptr);
    EXPECT_STREQ(back->name, "root");
    EXPECT_EQ(back->geometry.mesh->polygonCount, 6);
    EXPECT_FLOAT_EQ(back->translation[2], 4.0f);
    ASSERT_NE(back->firstChild, nullptr);
    EXPECT_EQ(back->firstChild->geometry.patch->uCount, 3);
    modelFree(back);
    modelFree(root);

    Material red;
    red.name = "red";
    red.diffuse[0] = 0.9f;
    std::string mtr = tdWriteMaterial(db, "red", red);
    EXPECT_EQ(mtr, dir.path() + "/db/MATERIALS/red.1-0.mtr");
    Material readBack;
    std::string error;
    ASSERT_EQ(materialFileRead(stem(mtr).c_str(), readBack, &error), 1) << error;
    EXPECT_EQ(readBack.name, "red");
    EXPECT_FLOAT_EQ(readBack.diffuse[0], 0.9f);

    Texture2D wood;
    wood.pictureName = "wood";
    std::string txt = tdWriteTexture2D(db, "wood", wood);
    EXPECT_EQ(txt, dir.path() + "/db/TEXTURES2D/wood.1-0.txt");
    Texture2D woodBack;
    ASSERT_EQ(texture2DFileRead(stem(txt).c_str(), woodBack, &error), 1) << error;
    EXPECT_EQ(woodBack.pictureName, "wood");
}

TEST(TestData, ScenesKeepTheirTimeAndOldVersionsArePruned) {
    bwtest::TempDir dir;
    Database *db = tdDatabaseCreate(dir / "db", "tddb2", dir / "DatabaseDir.rsrc");
    ASSERT_NE(db, nullptr);
    std::string older = tdWriteScene(db, "intro", "SDSC 3.6\n", 1000);
    std::string newer = tdWriteScene(db, "demo", "", 2000);
    EXPECT_EQ(newer, dir.path() + "/db/SCENES/demo.1-0.dsc");
    struct stat st;
    ASSERT_EQ(stat(older.c_str(), &st), 0);
    EXPECT_EQ(st.st_mtime, 1000);
    EXPECT_EQ(st.st_size, 9);
    EXPECT_EQ(dbLatestScene(*db), "demo.1-0");

    // The chapter keeps 4 versions: the fifth save deletes the first.
    Material m;
    for (int i = 0; i < 5; ++i) tdWriteMaterial(db, "m", m);
    EXPECT_NE(access((dir.path() + "/db/MATERIALS/m.1-0.mtr").c_str(), F_OK), 0);
    EXPECT_EQ(access((dir.path() + "/db/MATERIALS/m.2-0.mtr").c_str(), F_OK), 0);
    EXPECT_EQ(access((dir.path() + "/db/MATERIALS/m.5-0.mtr").c_str(), F_OK), 0);
    // A second database at the same place is refused.
    bwtest::OutputCapture quiet;
    EXPECT_EQ(tdDatabaseCreate(dir / "db", "tddb2", dir / "DatabaseDir.rsrc"), nullptr);
}
