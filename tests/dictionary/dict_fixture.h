// A dictionary with its chapters for one test, freed at the end, and a small
// relation table.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "capture.h"
#include "dict_internal.h"
#include "dictionary.h"

using bwtest::OutputCapture;
using bwtest::ScopedEnv;
using bwtest::StreamCapture;

// Relation ids of the test table.
enum TestRelation {
    REL_PARENT = 110,    // MODELS -> MODELS, TRANSFO, fan-out 1
    REL_MATERIAL = 400,  // MODELS -> MATERIALS, RENDER, fan-out 2, two rows
    REL_ANIM = 111,      // MODELS -> ANIMATION, PARAM, fan-out 8
    REL_ANY = 900,       // * -> *, OTHER
};

inline RelationRow testRow(int32_t relid, const char *name, int chpFrom, int chpTo, int grpFrom,
                           int grpTo, int rk, int fo) {
    RelationRow row;
    row.relid = relid;
    row.name = name;
    row.chpFrom = static_cast<int16_t>(chpFrom);
    row.chpTo = static_cast<int16_t>(chpTo);
    row.grpFrom = static_cast<int16_t>(grpFrom);
    row.grpTo = static_cast<int16_t>(grpTo);
    row.rk = static_cast<int16_t>(rk);
    row.fo = static_cast<int16_t>(fo);
    return row;
}

inline void fillTestTable(RelationDict &table) {
    relDictClear(&table);
    relDictAddRow(&table, testRow(REL_PARENT, "parent", CHP_MODELS, CHP_MODELS, 1, 1, 10, 1));
    relDictAddRow(&table, testRow(REL_MATERIAL, "material", CHP_MODELS, CHP_MATERIALS, 3, 3, 20, 2));
    relDictAddRow(&table, testRow(REL_MATERIAL, "material2", CHP_MODELS, CHP_MATERIALS, 3, 3, 21, 2));
    relDictAddRow(&table, testRow(REL_ANIM, "anim", CHP_MODELS, CHP_ANIMATION, 0, 0, 5, 8));
    relDictAddRow(&table, testRow(REL_CUSTOM, "custom", CHP_MODELS, CHP_MODELS, 4, 4, 50, 32767));
    relDictAddRow(&table, testRow(REL_ANY, "any", REL_ANY_CHAPTER, REL_ANY_CHAPTER, 5, 5, 1, 4));
}

class DictTest : public ::testing::Test {
protected:
    void SetUp() override {
        dictEnvReset();
        dictInit(&dict);
        dictCreateChapters(&dict, nullptr, 1);
        fillTestTable(table);
    }
    void TearDown() override {
        dictFree(&dict, 0);
        relDictClear(&table);
        dictEnvReset();
    }

    // Adds a live element named `name` (prefix before a '-') to a chapter.
    int add(int chapterId, const char *fileName, void *data = nullptr) {
        return elemAdd(&dict, chapterId, elemNameParse(fileName, nullptr, 0), data, nullptr, 0, 0);
    }
    Element *at(int chapterId, int index) { return elemGet(&dict, chapterId, index); }

    Dictionary dict;
    RelationDict table;
};
