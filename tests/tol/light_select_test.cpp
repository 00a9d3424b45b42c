// Lights whose files mark them selected join the select list of the scene
// that loads them: a program of its own, as the layer starts once a process.
#include <gtest/gtest.h>

#include <string>

#include "camera.h"
#include "capture.h"
#include "dictionary.h"
#include "fileio/bytes.h"
#include "tol.h"

using namespace bwtest;

TEST(LightSelection, StatesOneAndThreeLandOnTheScenesSelectList) {
    TempDir dir;
    dir.write("db/SCENES/Chapter.rsrc", "SUFFIX dsc \nVERSIONS 4 \n");
    dir.write("db/LIGHTS/Chapter.rsrc", "SUFFIX lig \nVERSIONS 4 \n");
    std::string scene = "SDSC 4.0\nELEMENTS\nCHAPTER LIGHTS NBELEM 4\n";
    for (uint16_t state : {0, 1, 2, 3}) {
        // Name, type, a position block ended by 0, then the selection state.
        std::string name = "s-lamp" + std::to_string(state);
        Bytes body = be16(1) + text0(name) + be16(2) + be16(1) + be16(7) + be16(1) + f32(0) + f32(1) + f32(2) +
                     be16(0) + be16(14) + be16(state) + be16(0);
        Bytes file = header(BIN_ID_LIGHT, 4.0f) + body;
        dir.write("db/LIGHTS/" + name + ".1-0.lig", std::string(file.begin(), file.end()));
        scene += "  " + name + ".1-0 ROOT ;\n";
    }
    scene += "EndOfCHAPTER\nEndOfELEMENTS\n";
    dir.write("db/SCENES/s.1-0.dsc", scene);

    TOL_Database db = 0;
    TOL_Scene s;
    int before = 0;
    TOL_Status status[4] = {-1, -1, -1, -1};
    std::string said;
    {
        OutputCapture quiet;
        status[0] = TOL_Init(sourcePath("rsrc").c_str(), 0, TOL_SDK_VERSION);
        status[1] = TOL_databaseLoad((dir / "db").c_str(), &db);
        status[2] = TOL_sceneCreate(&s);
        before = selectListSize(int(s.selectList));  // the scene's camera
        status[3] = TOL_sceneLoad(&db, "s", &s);
        said = quiet.out.text() + quiet.err.text();
    }
    for (TOL_Status st : status) ASSERT_EQ(st, 0) << said;

    Chapter *lights = dictChapter(dictGet(int(s.dict)), CHP_LIGHTS);
    ASSERT_TRUE(lights && lights->elementCount == 4);
    for (int i = 0; i < 4; ++i) {
        const Light *l = static_cast<const Light *>(lights->elements[i].data);
        ASSERT_NE(l, nullptr) << i;
        const int state = lights->elements[i].name->fullName[6] - '0';  // "s-lamp<state>.1-0"
        EXPECT_EQ(l->display.selection, state);
        const bool on = state == 1 || state == 3;
        EXPECT_EQ(selectListHas(int(s.selectList), s.dict, CHP_LIGHTS, uint32_t(i)), on ? 1 : 0)
            << lights->elements[i].name->fullName;
    }
    EXPECT_EQ(selectListSize(int(s.selectList)), before + 2);
    EXPECT_EQ(selectListSize(int(s.tagList)), 0);
}
