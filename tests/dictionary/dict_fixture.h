// A dictionary with its chapters for one test, freed at the end, and a small
// relation table.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "capture.h"
#include "dict_internal.h"
#include "dictionary.h"

using bwtest::ScopedEnv;
using bwtest::StreamCapture;
using V = std::vector<int32_t>;

// Relation ids of the test table.
enum TestRelation {
    REL_MATERIAL = 400,  // MODELS -> MATERIALS, RENDER, fan-out 2, two rows
    REL_ANIM = 111,      // MODELS -> ANIMATION, PARAM, fan-out 8
    REL_ANY = 900,       // * -> *, OTHER
};

inline RelationRow testRow(int32_t relid, const std::string &name, int chpFrom, int chpTo,
                           int grp, int rk, int fo) {
    RelationRow r;
    r.relid = relid, r.name = name, r.rk = int16_t(rk), r.fo = int16_t(fo);
    r.chpFrom = int16_t(chpFrom), r.chpTo = int16_t(chpTo), r.grpFrom = r.grpTo = int16_t(grp);
    return r;
}

inline void fillTestTable(RelationDict &table) {
    relDictClear(&table);
    relDictAddRow(&table, testRow(REL_PARENT, "parent", CHP_MODELS, CHP_MODELS, 1, 10, 1));
    relDictAddRow(&table, testRow(REL_MATERIAL, "material", CHP_MODELS, CHP_MATERIALS, 3, 20, 2));
    relDictAddRow(&table, testRow(REL_MATERIAL, "material2", CHP_MODELS, CHP_MATERIALS, 3, 21, 2));
    relDictAddRow(&table, testRow(REL_ANIM, "anim", CHP_MODELS, CHP_ANIMATION, 0, 5, 8));
    relDictAddRow(&table, testRow(REL_CUSTOM, "custom", CHP_MODELS, CHP_MODELS, 4, 50, 32767));
    relDictAddRow(&table, testRow(REL_ANY, "any", REL_ANY_CHAPTER, REL_ANY_CHAPTER, 5, 1, 4));
}

class DictTest : public ::testing::Test {
protected:
    void SetUp() override {
        dictEnvReset();
        dictCreateChapters(&dict, nullptr, 1);
        fillTestTable(table);
    }
    void TearDown() override {
        dictFree(&dict, 0);
        relDictClear(&table);
        dictEnvReset();
    }
    // Adds a live element from a file name ("prefix-name.v-r") to a chapter.
    int add(int chapterId, const char *fileName, void *data = nullptr) {
        return elemAdd(&dict, chapterId, elemNameParse(fileName, nullptr, 0), data, nullptr, 0, 0);
    }
    Element *at(int chapterId, int index) { return elemGet(&dict, chapterId, index); }

    Dictionary dict;
    RelationDict table;
};
