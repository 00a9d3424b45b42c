// A scene built in memory for the update list tests: the real relation rows,
// models linked both as nodes and by relation 110, and linear curves.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "capture.h"
#include "dictionary.h"
#include "model.h"
#include "animation.h"

// A record of `relation` for `data` with its sources, as a walk hands it to
// the relation's handler.
inline UpdateRecord recordFor(int chapter, void *data, int32_t relation, UpdateSource *sources, int16_t count) {
    UpdateRecord record{};
    record.chapter = static_cast<int16_t>(chapter);
    record.data = data;
    record.relation = relation;
    record.sourceCount = count;
    record.sources = sources;
    return record;
}

class SceneTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (relRowFind(&g_relationDict, REL_HIERARCHY_STEP) < 0) {
            std::string path = bwtest::sourcePath("rsrc/Relations.rsrc");
            ASSERT_EQ(dbLoadRelationDictionary(&g_relationDict, path.c_str(), 1), 1);
        }
        dictCreateChapters(&dict, nullptr, 1);
        animationOptimise = -1;
        g_scalingType = 0;
        evalFlagsReset();
    }
    void TearDown() override {
        updatelistClear(&list);
        dictFree(&dict, 0);
        std::vector<Model *> roots;
        for (Model *m : models)
            if (!m->parent) roots.push_back(m);
        for (Model *m : roots) modelFree(m);
        for (Fcurve *c : curves) fcurveFree(c);
        animationOptimise = -1;
        g_scalingType = 0;
    }

    // A model node under `parent` (-1: a root) with its element and relation 110.
    int model(const char *name, int parent = -1, bool withElement = true) {
        Model *m = modelNew(name, 0, nullptr);
        if (parent >= 0) modelAddChild(node(parent), m);
        models.push_back(m);
        if (!withElement) return -1;
        int index = elemAdd(&dict, CHP_MODELS, elemNameParse(name, nullptr, 0), m, nullptr, 0, 0);
        m->elementIndex = index;
        if (parent >= 0) {
            elemGet(&dict, CHP_MODELS, index)->lev = 1;
            relAdd(&dict, nullptr, index, parent, REL_PARENT, 1, 1, nullptr, 1);
        }
        return index;
    }
    Model *node(int index) { return static_cast<Model *>(elemGet(&dict, CHP_MODELS, index)->data); }

    // A linear curve through (time, value) pairs, as an element of ANIMATION.
    int curve(int32_t type, std::vector<std::pair<float, float>> keys, const char *name = nullptr) {
        Fcurve *c = fcurveCreate(type, 0);
        fcurveKeysAlloc(c, static_cast<int>(keys.size()));
        for (size_t i = 0; i < keys.size(); ++i) {
            c->keys[i].time = keys[i].first;
            c->keys[i].value = keys[i].second;
            c->keys[i].interpolation = FCV_LINEAR;
        }
        curves.push_back(c);
        std::string n = name ? name : "c" + std::to_string(curves.size());
        return elemAdd(&dict, CHP_ANIMATION, elemNameParse(n.c_str(), nullptr, 0), c, nullptr, 0, 0);
    }
    int constant(int32_t type, float value) { return curve(type, {{0.0f, value}}); }

    // Connects curves to a model by a relation; each goes behind the ones before.
    void animate(int modelIndex, int32_t relid, std::vector<int> curveIndices, int activ = 1) {
        for (int c : curveIndices) ASSERT_EQ(relAdd(&dict, nullptr, modelIndex, c, relid, 0, 0, nullptr, activ), 1);
    }
    // Scaling, rotation (degrees) and translation of a model, each as three constant curves.
    void pose(int m, const float s[3], const float r[3], const float t[3]) {
        animate(m, 100, {constant(1, s[0]), constant(2, s[1]), constant(3, s[2])});
        animate(m, 101, {constant(4, r[0]), constant(5, r[1]), constant(6, r[2])});
        animate(m, 113, {constant(139, t[0]), constant(140, t[1]), constant(141, t[2])});
    }

    int build() {
        updatelistClear(&list);
        return updatelistBuild(&dict, &list, 0, 0);
    }
    // The list as "element:relation" words, e.g. "0:100 0:-100".
    std::string order() const {
        std::string s;
        for (int i = 0; i < list.count; ++i)
            s += (i ? " " : "") + std::to_string(list.records[i].element) + ":" +
                 std::to_string(list.records[i].relation);
        return s;
    }

    Dictionary dict;
    UpdateList list;
    std::vector<Model *> models;
    std::vector<Fcurve *> curves;
};
