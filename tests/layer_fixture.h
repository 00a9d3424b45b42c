// A test that starts the layer once per program on the real resources and
// makes a fresh scene for each case.
#pragma once

#include <gtest/gtest.h>

#include "capture.h"
#include "dictionary.h"
#include "tol.h"

namespace bwtest {

class LayerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        OutputCapture quiet;
        ASSERT_EQ(TOL_Init(sourcePath("rsrc").c_str(), 0, TOL_SDK_VERSION), 0);
    }
    void SetUp() override {
        ASSERT_EQ(TOL_sceneCreate(&scene), 0);
        dict = dictGet(static_cast<int>(scene.dict));
    }

    // The database at `path`, its load's chatter kept off the output.
    static TOL_Database loadDatabase(const std::string &path) {
        OutputCapture quiet;
        TOL_Database db = 0;
        EXPECT_EQ(TOL_databaseLoad(path.c_str(), &db), 0) << path;
        return db;
    }

    TOL_Scene scene{};          // the case's own scene
    Dictionary *dict = nullptr;  // its dictionary
};

}  // namespace bwtest
