// Elements: adding, reading, finding, removing, renaming and new names.
#include <algorithm>
#include <random>

#include "dict_fixture.h"

TEST_F(DictTest, AddGivesGroupsOnlyWhenAsked) {
    dict.browserDirty = dict.updateDirty = dict.hierarchyDirty = 0;
    ASSERT_EQ(elemAdd(&dict, CHP_LIGHTS, elemNameParse("lamp", nullptr, 0), &dict, this, 3, 7), 0);
    Element *e = at(CHP_LIGHTS, 0);
    ASSERT_EQ(e->childGroupCount, 6);
    ASSERT_EQ(e->parentGroupCount, 6);
    EXPECT_EQ(e->childGroups[5].vis, 1u);
    EXPECT_EQ(dict.browserDirty + dict.updateDirty + dict.hierarchyDirty, 3u);
    int raw = elemAddRaw(&dict.chapters[CHP_LIGHTS], elemNameNew(), nullptr, nullptr, 0, 0, 0, 0);
    ASSERT_EQ(raw, 1);
    EXPECT_EQ(at(CHP_LIGHTS, 1)->childGroups, nullptr);
    EXPECT_EQ(at(CHP_LIGHTS, 1)->root, 1);
    EXPECT_EQ(relCount(at(CHP_LIGHTS, 1), 1, 0, 1, -1), 0);
    EXPECT_EQ(elemAddRaw(nullptr, nullptr, nullptr, nullptr, 0, 0, 0, 0), -1);
}

TEST_F(DictTest, GetRefusesBadIndicesAndFreeSlots) {
    add(CHP_MODELS, "a");
    add(CHP_MODELS, "b");
    EXPECT_EQ(elemGet(&dict, CHP_MODELS, -1), nullptr);
    EXPECT_EQ(elemGet(&dict, CHP_MODELS, 2), nullptr);
    EXPECT_EQ(elemGet(&dict, -1, 0), nullptr);
    EXPECT_EQ(elemGet(&dict, 99, 0), nullptr);
    EXPECT_EQ(elemGet(nullptr, CHP_MODELS, 0), nullptr);
    ASSERT_EQ(elemRemove(&dict, CHP_MODELS, nullptr, 0, -1, 0, 0), 1);
    ASSERT_NE(at(CHP_MODELS, 0), nullptr);  // hidden is still returned
    EXPECT_EQ(at(CHP_MODELS, 0)->deleted, 1);
    ASSERT_EQ(elemRemove(&dict, CHP_MODELS, at(CHP_MODELS, 1), -1, -1, 0, 1), 1);
    EXPECT_EQ(at(CHP_MODELS, 1), nullptr);
    EXPECT_EQ(elemRemove(&dict, CHP_MODELS, nullptr, 1, -1, 0, 1), 0);  // already free
    EXPECT_EQ(elemCountLive(&dict.chapters[CHP_MODELS]), 0);
    Element stranger{};
    EXPECT_EQ(elemIndexOf(&dict, CHP_MODELS, &stranger), -1);
    EXPECT_EQ(elemIndexOf(&dict, CHP_MODELS, &dict.chapters[CHP_MODELS].elements[1]), 1);
}

TEST_F(DictTest, RemovalFreesTheSlotAndAReuseTakesIt) {
    int payload = 5;
    add(CHP_MODELS, "a");
    int b = add(CHP_MODELS, "scene-b", &payload);
    Element *e = at(CHP_MODELS, b);
    e->lev = 2;
    e->root = 0;
    e->aux = &payload;
    RelationGroup *groups = e->childGroups;
    dict.updateDirty = dict.update2Dirty = 0;
    dict.browserDirty = dict.hierarchyDirty = 0;
    ASSERT_EQ(elemRemove(&dict, CHP_MODELS, e, -1, -1, 0, 1), 1);
    Element &slot = dict.chapters[CHP_MODELS].elements[b];
    EXPECT_EQ(slot.deleted, 2);
    EXPECT_EQ(slot.name, nullptr);
    EXPECT_EQ(slot.data, nullptr);
    EXPECT_EQ(slot.aux, nullptr);
    EXPECT_EQ(slot.lev, 0);
    EXPECT_EQ(slot.isNew, 0);
    EXPECT_EQ(slot.root, b);
    EXPECT_EQ(payload, 5);  // the object itself is its reader's
    EXPECT_EQ(dict.updateDirty, 1u);
    EXPECT_EQ(dict.update2Dirty, 1u);
    EXPECT_EQ(dict.browserDirty, 1);
    EXPECT_EQ(dict.hierarchyDirty, 1);
    EXPECT_EQ(add(CHP_MODELS, "c"), b);  // reused, groups kept
    EXPECT_EQ(at(CHP_MODELS, b)->childGroups, groups);
    EXPECT_EQ(at(CHP_MODELS, b)->name->name, "c");
    elemRemove(&dict, CHP_MODELS, nullptr, b, -1, 0, 1);
    int grown = elemAddRaw(&dict.chapters[CHP_MODELS], elemNameNew(), nullptr, nullptr, 0, 0, 1, 0);
    EXPECT_EQ(grown, 2);  // without the reuse flag the array grows
}

TEST_F(DictTest, FindByAuxAndByName) {
    int tag = 0;
    add(CHP_CAMERAS, "s1-cam");
    int b = add(CHP_CAMERAS, "s2-cam");
    add(CHP_CAMERAS, "CAM");
    at(CHP_CAMERAS, b)->aux = &tag;
    EXPECT_EQ(elemFindByAux(&dict.chapters[CHP_CAMERAS], &tag), b);
    EXPECT_EQ(elemFindDeletedAux(&dict.chapters[CHP_CAMERAS], &tag), -1);
    EXPECT_EQ(elemFindByName(&dict, CHP_CAMERAS, 0, nullptr, "Cam", -1, -1, 0), 1);
    EXPECT_EQ(elemFindByName(&dict, CHP_CAMERAS, -1, "", "cam", -1, -1, 0), 2);
    EXPECT_EQ(elemFindByName(&dict, CHP_CAMERAS, -1, "S2", "cam", -1, -1, 0), 1);
    EXPECT_EQ(elemFindByName(&dict, CHP_CAMERAS, -1, nullptr, "cam", -1, 2, 0), 2);
    at(CHP_CAMERAS, 0)->level = 3;
    at(CHP_CAMERAS, 1)->isNew = 0;
    EXPECT_EQ(elemFindByName(&dict, CHP_CAMERAS, -1, nullptr, "cam", 0, -1, 1), 2);
    EXPECT_EQ(elemFindByFullName(&dict, CHP_CAMERAS, -1, "S2-CAM", 0), 1);
    elemRemove(&dict, CHP_CAMERAS, nullptr, b, -1, 1, 0);
    EXPECT_EQ(elemFindByAux(&dict.chapters[CHP_CAMERAS], &tag), -1);
    EXPECT_EQ(elemFindDeletedAux(&dict.chapters[CHP_CAMERAS], &tag), b);
    EXPECT_EQ(elemFindByFullName(&dict, CHP_CAMERAS, -1, "s2-cam", 0), -1);
}

// The sorted index with its cache answers as the walk does, duplicates and
// removals included.
TEST_F(DictTest, FindByDataIndexAgreesWithTheWalk) {
    int objects[40] = {};
    std::vector<int> order(60);
    std::mt19937 random(7);
    for (int &k : order) k = static_cast<int>(random() % 40);
    int absent = 0;
    auto findAll = [&]() {
        std::vector<int> found;
        for (int k = 0; k <= 40; ++k) {
            const void *data = k < 40 ? &objects[k] : &absent;
            found.push_back(elemFindByData(&dict, CHP_MATERIALS, data));
            found.push_back(elemFindByData(&dict, CHP_MATERIALS, data));  // from the cache
        }
        return found;
    };
    for (int k : order) add(CHP_MATERIALS, "m", &objects[k]);
    for (int i : {3, 9, 10, 33}) elemRemove(&dict, CHP_MATERIALS, nullptr, i, -1, 0, i % 2);
    std::vector<int> walked = findAll();
    EXPECT_EQ(walked[2 * order[0]], 0);
    EXPECT_EQ(dict.chapters[CHP_MATERIALS].dataIndex, nullptr);

    dictFree(&dict, 0);
    dictCreateChapters(&dict, nullptr, 1);
    ScopedEnv optim("BW_LOAD_OPTIM", "");
    dictEnvReset();
    for (int k : order) add(CHP_MATERIALS, "m", &objects[k]);
    ASSERT_NE(dict.chapters[CHP_MATERIALS].dataIndex, nullptr);
    EXPECT_EQ(dict.chapters[CHP_MATERIALS].dataIndex->sortedIndex.size(), 60u);
    for (int i : {3, 9, 10, 33}) elemRemove(&dict, CHP_MATERIALS, nullptr, i, -1, 0, i % 2);
    EXPECT_EQ(findAll(), walked);
    EXPECT_EQ(dict.chapters[CHP_MATERIALS].dataIndex->count, 56);
    // The cache answers for its own chapter only.
    int lamp = add(CHP_LIGHTS, "l", &objects[order[0]]);
    EXPECT_EQ(elemFindByData(&dict, CHP_LIGHTS, &objects[order[0]]), lamp);
    // A removal after a cached answer is seen.
    int first = elemFindByData(&dict, CHP_MATERIALS, &objects[order[0]]);
    elemRemove(&dict, CHP_MATERIALS, nullptr, first, -1, 0, 1);
    EXPECT_NE(elemFindByData(&dict, CHP_MATERIALS, &objects[order[0]]), first);
}

TEST_F(DictTest, RenameRefusesClashesAndCarriesScenePrefix) {
    add(CHP_MODELS, "s1-ball");
    add(CHP_MODELS, "s1-cube");
    int scene = add(CHP_SCENES, "s1");
    int shared = add(CHP_MODELS, "s1-shared");
    at(CHP_MODELS, shared)->shared = 1;
    add(CHP_PICTURES, "s1-pic");
    Element *cube = at(CHP_MODELS, 1);
    EXPECT_EQ(elemRename(&dict, CHP_MODELS, cube, "s1", "BALL"), 1);   // clash
    EXPECT_EQ(elemRename(&dict, CHP_MODELS, cube, "s1", "cube"), 1);   // nothing changes
    cube->isNew = 1;
    EXPECT_EQ(elemRename(&dict, CHP_MODELS, cube, "s1", "big cube"), 0);
    EXPECT_EQ(cube->name->fullName, "s1-big_cube.1-0");
    EXPECT_EQ(cube->isNew, 2);
    EXPECT_EQ(elemRename(&dict, CHP_SCENES, at(CHP_SCENES, scene), nullptr, "s2"), 0);
    EXPECT_EQ(at(CHP_MODELS, 0)->name->fullName, "s2-ball.1-0");
    EXPECT_EQ(at(CHP_MODELS, 1)->name->prefix, "s2");
    EXPECT_EQ(at(CHP_MODELS, shared)->name->prefix, "s1");
    EXPECT_EQ(at(CHP_PICTURES, 0)->name->prefix, "s1");
    EXPECT_EQ(elemRename(&dict, CHP_MODELS, nullptr, "a", "b"), -1);
}

TEST_F(DictTest, RenameOfAnAnimationTakesItsCurves) {
    add(CHP_ANIMATION, "s-walk");
    add(CHP_ANIMATION, "s-walk");
    add(CHP_ANIMATION, "s-other");
    at(CHP_ANIMATION, 1)->lev = 1;
    at(CHP_ANIMATION, 1)->root = 0;
    ASSERT_EQ(elemRename(&dict, CHP_ANIMATION, at(CHP_ANIMATION, 0), "s", "run"), 0);
    EXPECT_EQ(at(CHP_ANIMATION, 1)->name->fullName, "s-run.1-0");
    EXPECT_EQ(at(CHP_ANIMATION, 2)->name->name, "other");
}

TEST_F(DictTest, UniqueNamesKeepAProcessWideMaximum) {
    elemUniqueNameReset();
    for (const char *n : {"cube3", "Cube7", "cubeX", "cube", "sphere12", "cube20-p"}) add(CHP_MODELS, n);
    int number = 0;
    EXPECT_EQ(elemUniqueName(&dict, CHP_MODELS, "cube12", &number, 0), "cube8");
    EXPECT_EQ(number, 8);
    EXPECT_EQ(elemUniqueName(&dict, CHP_MODELS, nullptr, &number, 0), "def8");
    EXPECT_EQ(elemUniqueName(&dict, CHP_LIGHTS, "", nullptr, 0), "def8");
    add(CHP_LIGHTS, "def30-x");
    EXPECT_EQ(elemUniqueName(&dict, CHP_LIGHTS, "def", nullptr, 1), "def31");
    EXPECT_EQ(elemUniqueName(&dict, CHP_MODELS, "cube", nullptr, 0), "cube31");
    {
        ScopedEnv legacy("BW_NEO_LEGACYLOADER", "0");
        dictEnvReset();
        EXPECT_EQ(elemUniqueName(&dict, CHP_MODELS, "cube", &number, 0), "cube_31");
        EXPECT_EQ(elemUniqueName(&dict, CHP_MODELS, "cube", &number, 0), "cube_32");
        EXPECT_EQ(number, 32);
    }
    elemUniqueNameReset();
}

TEST_F(DictTest, CleanupAfterLoadKeepsTheFirstOfEach) {
    int data = 0;
    for (int i = 0; i < 3; ++i) add(CHP_SCENES, "s");
    for (int i = 0; i < 2; ++i) add(CHP_SETUP_BRAK, "b");
    for (int i = 0; i < 3; ++i) add(CHP_EXPRESSIONS, "e");
    at(CHP_EXPRESSIONS, 0)->level = 1;
    int unread = add(CHP_MODELS, "m");
    int read = add(CHP_MODELS, "n", &data);
    int made = add(CHP_MODELS, "o");
    at(CHP_MODELS, unread)->isNew = at(CHP_MODELS, read)->isNew = 1;
    int lamp = add(CHP_LIGHTS, "l");
    at(CHP_LIGHTS, lamp)->isNew = 1;
    dict.chapters[CHP_LIGHTS].kind = 2;  // outside any database: kept
    dictCleanupAfterLoad(&dict);
    EXPECT_EQ(elemCountLive(&dict.chapters[CHP_SCENES]), 1);
    EXPECT_NE(at(CHP_SCENES, 0), nullptr);
    EXPECT_EQ(elemCountLive(&dict.chapters[CHP_SETUP_BRAK]), 1);
    EXPECT_NE(at(CHP_EXPRESSIONS, 1), nullptr);
    EXPECT_EQ(elemCountLive(&dict.chapters[CHP_EXPRESSIONS]), 1);
    EXPECT_EQ(at(CHP_MODELS, unread), nullptr);
    EXPECT_NE(at(CHP_MODELS, read), nullptr);
    EXPECT_NE(at(CHP_MODELS, made), nullptr);
    EXPECT_NE(at(CHP_LIGHTS, lamp), nullptr);
}
