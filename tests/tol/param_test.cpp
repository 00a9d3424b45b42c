// Element parameters by number and by relation: which numbers each kind of
// element answers, with how many values, and the status of every refusal.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "camera.h"
#include "capture.h"
#include "dictionary.h"
#include "material.h"
#include "model.h"
#include "tol.h"
#include "layer_fixture.h"

namespace {

class Params : public bwtest::LayerTest {
protected:
    void SetUp() override {
        LayerTest::SetUp();
        ASSERT_NE(TOL_elemGetFirstInChap(scene.dict, CHP_CAMERAS, 0, &camera), nullptr);
        bare = add(CHP_MODELS, "bare", nullptr);
        node = modelNew("dressed", MODEL_NULL, nullptr);
        node->materialCount = 2;
        node->materials = new Material *[2]{nullptr, &nodeMaterial};  // the first is a reference
        node->texture2DCount = 1;
        node->textures2D = new Texture2D *[1]{&nodeTexture};
        dressed = add(CHP_MODELS, "dressed", node);
        material = add(CHP_MATERIALS, "paint", &ownMaterial);
    }
    void TearDown() override {
        delete[] node->materials;
        delete[] node->textures2D;
        node->materials = nullptr;
        node->textures2D = nullptr;
        node->materialCount = node->texture2DCount = 0;
        modelFree(node);
        free(values);
    }
    TOL_Elem add(uint32_t chapter, const char *name, void *data) {
        ElemName *n = elemNameNew();
        n->name = name;
        int index = elemAdd(dict, static_cast<int>(chapter), n, data, nullptr, 0, 0);
        return TOL_Elem{scene.dict, chapter, static_cast<uint32_t>(index), -1, 0};
    }
    // The values of a get, or the status of a refusal as a one-value list.
    std::vector<float> get(const TOL_Elem &elem, int param, int byRelation = 0) {
        TOL_Status status = TOL_elemGetParams(&elem, param, byRelation, &count, &values);
        if (status) return {-static_cast<float>(status)};
        return std::vector<float>(values, values + count);
    }
    TOL_Status set(const TOL_Elem &elem, int param, std::vector<float> v, int byRelation = 0) {
        return TOL_elemSetParams(&elem, param, byRelation, static_cast<int>(v.size()), v.data());
    }

    TOL_Elem camera{}, bare{}, dressed{}, material{};
    Model *node = nullptr;
    Material nodeMaterial, ownMaterial;
    Texture2D nodeTexture;
    float *values = nullptr;
    int count = 0;
};

}  // namespace

// Every number of the list has its count of values on a model that carries
// the record; a model without the record refuses with 23, other numbers too.
TEST_F(Params, EveryListedNumberHasItsCountOnADressedModel) {
    bwtest::OutputCapture quiet;
    const std::vector<std::pair<std::vector<int>, int>> counts = {
        {{1, 100, 101, 102, 103, 104, 105, 106}, 2},
        {{2, 3, 4, 5, 14, 15, 16}, 1},
        {{6, 10, 11, 12, 13, 17, 21}, 3},
        {{18}, 6},
        {{19}, 6},
    };
    for (const auto &[numbers, n] : counts)
        for (int p : numbers) {
            SCOPED_TRACE(p);
            EXPECT_EQ(get(dressed, p).size(), static_cast<size_t>(n));
            EXPECT_EQ(set(dressed, p, std::vector<float>(static_cast<size_t>(n), 1.0f)), 0);
            EXPECT_EQ(set(dressed, p, std::vector<float>(static_cast<size_t>(n) + 1, 1.0f)), 24);
        }
    // No 3D texture, and 22 is a camera's; 7 to 9 and 23 are no parameters.
    for (int p : {20, 22, 7, 9, 23, 99, 107}) {
        SCOPED_TRACE(p);
        EXPECT_EQ(get(dressed, p), std::vector<float>{-23});
    }
    // A model without a node keeps only its list entry: selection and colour slot.
    for (int p : {1, 2, 10, 13, 18, 19, 100}) EXPECT_EQ(get(bare, p), std::vector<float>{-23}) << p;
    EXPECT_EQ(get(bare, 5), std::vector<float>{0});
    EXPECT_EQ(get(bare, 6), (std::vector<float>{0.5f, 0.5f, 0.5f}));
}

TEST_F(Params, ValuesReachTheRecordsInTheirUnits) {
    EXPECT_EQ(set(dressed, 11, {90, 0, -45}), 0);
    EXPECT_NEAR(node->rotation[0], 1.5707963f, 1e-6);
    EXPECT_NEAR(node->rotation[2], -0.7853982f, 1e-6);
    std::vector<float> degrees = get(dressed, 11);
    EXPECT_NEAR(degrees[0], 90.0f, 1e-4);
    EXPECT_NEAR(degrees[2], -45.0f, 1e-4);

    // The local matrix follows a new translation at once.
    EXPECT_EQ(set(dressed, 12, {1, 2, 3}), 0);
    EXPECT_EQ(node->localMatrix[3][0], 1.0f);
    EXPECT_EQ(node->localMatrix[3][2], 3.0f);

    // Whole numbers are rounded into their words.
    EXPECT_EQ(set(dressed, 104, {2.6f, 3.2f}), 0);
    EXPECT_EQ(nodeTexture.tiles[0], 3);
    EXPECT_EQ(nodeTexture.tiles[1], 3);
    EXPECT_EQ(set(dressed, 2, {0}), 0);
    EXPECT_EQ(node->visible, 0);

    // The first material that is there, and a new revision for the draw.
    uint32_t revision = nodeMaterial.revision;
    EXPECT_EQ(set(dressed, 17, {0.1f, 0.2f, 0.3f}), 0);
    EXPECT_EQ(nodeMaterial.diffuse[2], 0.3f);
    EXPECT_EQ(nodeMaterial.revision, revision + 1);
    EXPECT_EQ(set(dressed, 15, {0.25f}), 0);
    EXPECT_EQ(get(dressed, 15), std::vector<float>{0.25f});
    EXPECT_EQ(nodeMaterial.transparencyColour[1], 0.25f);

    // The colour slot takes its values and keeps none.
    EXPECT_EQ(set(dressed, 6, {0.1f, 0.7f, 0.1f}), 0);
    EXPECT_EQ(get(dressed, 6), (std::vector<float>{0.5f, 0.5f, 0.5f}));
}

TEST_F(Params, OtherKindsByNumber) {
    bwtest::OutputCapture cap;
    // Get is for models only; set also takes a camera's aspect, and nothing else.
    EXPECT_EQ(get(camera, 22), std::vector<float>{-26});
    EXPECT_EQ(get(material, 13), std::vector<float>{-26});
    EXPECT_EQ(set(camera, 22, {1.5f}), 0);
    EXPECT_EQ(static_cast<Camera *>(elemGet(dict, CHP_CAMERAS, static_cast<int>(camera.index))->data)->aspect,
              1.5f);
    EXPECT_EQ(set(camera, 22, {1.5f, 1.0f}), 24);
    EXPECT_EQ(set(camera, 5, {1}), 23);
    EXPECT_EQ(set(material, 13, {1, 1, 1}), 23);
    EXPECT_EQ(set(dressed, 22, {1}), 23);
    EXPECT_EQ(set(dressed, 7, {1}), 23);
    EXPECT_EQ(cap.out.text(),
              "BW_WARNING: TOL_elemGetParams(): Invalid chapter 2 for parameter 22. Should be 8\n"
              "BW_WARNING: TOL_elemGetParams(): Invalid chapter 7 for parameter 13. Should be 8\n"
              "BW_WARNING: TOL_elemSetParams(): Invalid number of values (2) for parameter 22. Should be 1\n"
              "BW_WARNING: TOL_elemSetParams(): Invalid parameter 5 for chapter 2\n"
              "BW_WARNING: TOL_elemSetParams(): Invalid parameter 13 for chapter 7\n"
              "BW_WARNING: TOL_elemSetParams(): Invalid parameter 22 for chapter 8\n"
              "BW_WARNING: TOL_elemSetParams(): Invalid parameter 7 for chapter 8\n");
}

// A relation id stands for the parameter it drives, on the elements of its
// source chapter.
TEST_F(Params, ByRelation) {
    EXPECT_EQ(set(dressed, 100, {2, 3, 4}, 1), 0);  // scaling
    EXPECT_EQ(get(dressed, 10), (std::vector<float>{2, 3, 4}));
    EXPECT_EQ(get(dressed, 113, 1), get(dressed, 12));
    EXPECT_EQ(get(dressed, 101, 1), get(dressed, 11));
    EXPECT_EQ(set(dressed, 12, {1}, 1), 0);  // branch visibility drives the visibility
    EXPECT_EQ(get(dressed, 10, 1), std::vector<float>{1});
    EXPECT_EQ(node->visible, 1);
    // A material relation works on a material element itself.
    EXPECT_EQ(set(material, 302, {0.5f, 0.25f, 0}, 1), 0);
    EXPECT_EQ(ownMaterial.diffuse[1], 0.25f);
    EXPECT_EQ(get(material, 303, 1), (std::vector<float>{1, 1, 1}));

    bwtest::OutputCapture cap;
    EXPECT_EQ(get(dressed, 7777, 1), std::vector<float>{-15});
    EXPECT_EQ(get(dressed, 110, 1), std::vector<float>{-25});   // the hierarchy carries no value
    EXPECT_EQ(set(dressed, 20010, {1}, 1), 25);                 // nor does an expression
    EXPECT_EQ(get(dressed, 301, 1), std::vector<float>{-26});   // a material's, not a model's
    EXPECT_EQ(set(camera, 100, {1, 1, 1}, 1), 26);
    EXPECT_EQ(get(bare, 10, 1), std::vector<float>{-23});       // no node to be visible
    EXPECT_EQ(set(dressed, 101, {1, 1}, 1), 24);
    EXPECT_EQ(cap.out.text(),
              "BW_WARNING: TOL_elemGetParams(): Invalid relation id 7777\n"
              "BW_WARNING: TOL_elemGetParams(): Parameter 110 doesn't have any value to access/set.\n"
              "BW_WARNING: TOL_elemSetParams(): Parameter 20010 doesn't have any value to access/set.\n"
              "BW_WARNING: TOL_elemGetParams(): Invalid chapter 8 for parameter 301. Should be 7\n"
              "BW_WARNING: TOL_elemSetParams(): Invalid chapter 2 for parameter 100. Should be 8\n"
              "BW_WARNING: TOL_elemGetParams(): Invalid parameter 10 for chapter 8\n"
              "BW_WARNING: TOL_elemSetParams(): Invalid number of values (2) for parameter 101. Should be 3\n");
}
