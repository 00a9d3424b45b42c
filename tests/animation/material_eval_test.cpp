// Material records of the update list: which field each relation drives, the
// floors of the scalars, and the revision that tells the draw of a change.
#include <cstring>

#include "material.h"
#include "scene_fixture.h"

namespace {

class MaterialEval : public SceneTest {
protected:
    int material(Material &m) {
        return elemAdd(&dict, CHP_MATERIALS, elemNameParse("paint", nullptr, 0), &m, nullptr, 0, 0);
    }
    void drive(int mat, int32_t relid, std::vector<int> curveIndices) {
        for (int c : curveIndices) ASSERT_EQ(relAdd(&dict, nullptr, mat, c, relid, 0, 0, nullptr, 1), 1);
    }
};

}  // namespace

TEST_F(MaterialEval, ColoursFollowTheirThreeCurvesUnclamped) {
    Material m;
    const int mat = material(m);
    drive(mat, 301, {constant(45, 0.1f), constant(46, 0.2f), constant(47, 0.3f)});
    // Green alone: red and blue keep what they had.
    drive(mat, 302, {curve(49, {{0, 0}, {1, 1}})});
    drive(mat, 303, {constant(51, -0.5f), constant(52, 2.0f), constant(53, 0.0f)});
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 0.25f);
    EXPECT_EQ(std::vector<float>(m.ambient, m.ambient + 3), std::vector<float>({0.1f, 0.2f, 0.3f}));
    EXPECT_EQ(std::vector<float>(m.diffuse, m.diffuse + 3), std::vector<float>({0.7f, 0.25f, 0.7f}));
    EXPECT_EQ(std::vector<float>(m.specular, m.specular + 3), std::vector<float>({-0.5f, 2.0f, 0.0f}));
}

TEST_F(MaterialEval, ScalarsBelowZeroStopAtZeroButTheLastTwo) {
    Material m;
    const int mat = material(m);
    const int32_t floored[] = {304, 305, 306, 307, 308, 310};
    for (int32_t relid : floored) drive(mat, relid, {constant(0, -3.0f)});
    drive(mat, 311, {constant(0, -2.0f)});
    drive(mat, 312, {constant(0, -1.5f)});
    m.specularDecay = m.kept7 = m.kept8 = m.kept10 = m.kept11 = m.transparency = 9.0f;
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 0.0f);
    EXPECT_EQ(std::vector<float>({m.specularDecay, m.kept7, m.kept8, m.transparency, m.kept10, m.kept11}),
              std::vector<float>(6, 0.0f));
    EXPECT_EQ(m.kept13, -2.0f);
    float kept15;
    memcpy(&kept15, &m.kept15, sizeof kept15);
    EXPECT_EQ(kept15, -1.5f);
}

TEST_F(MaterialEval, TransparencyMovesItsColourAndValuesInRangePassAsTheyAre) {
    Material m;
    const int mat = material(m);
    drive(mat, 304, {constant(0, 200.0f)});
    drive(mat, 307, {curve(0, {{0, 0}, {1, 0.8f}})});
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 0.5f);
    EXPECT_FLOAT_EQ(m.specularDecay, 200.0f);  // the draw caps it, not the evaluation
    EXPECT_FLOAT_EQ(m.transparency, 0.4f);
    EXPECT_EQ(std::vector<float>(m.transparencyColour, m.transparencyColour + 3), std::vector<float>(3, m.transparency));
}

TEST_F(MaterialEval, TheRevisionMovesOnlyWhenAValueChanges) {
    Material m;
    const int mat = material(m);
    drive(mat, 302, {constant(48, 0.7f), curve(49, {{0, 0}, {1, 1}})});
    drive(mat, 304, {constant(0, 50.0f)});  // the value it has already
    ASSERT_EQ(build(), 1);
    updatelistEval(&dict, &list, 0.5f);
    const uint32_t first = m.revision;
    EXPECT_EQ(first, 1u);  // one record changed a value
    updatelistEval(&dict, &list, 0.5f);
    EXPECT_EQ(m.revision, first);
    updatelistEval(&dict, &list, 0.75f);
    EXPECT_EQ(m.revision, first + 1);
    EXPECT_FLOAT_EQ(m.diffuse[1], 0.75f);
}
