// The jitter of accumulation antialiasing: which samples each level takes.
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <utility>

#include "view.h"

TEST(Jitter, PassesByLevelWithNegativeAndHighLevelsClamped) {
    const struct {
        int antialias, level, passes;
    } cases[] = {{1, -1, 1}, {1, 0, 1}, {1, 1, 2}, {1, 2, 3}, {1, 3, 4}, {1, 4, 8}, {1, 5, 15},
                 {1, 6, 24}, {1, 7, 66}, {1, 9, 66}, {0, 4, 1}, {0, 9, 1}};
    for (const auto &c : cases) {
        int passes = -1;
        const JitterOffset *set = jitterSet(c.antialias, c.level, &passes);
        EXPECT_EQ(passes, c.passes) << "antialias " << c.antialias << " level " << c.level;
        if (c.passes == 1) {
            EXPECT_TRUE(set[0].x == 0.0f && set[0].y == 0.0f);
        }
    }
}

TEST(Jitter, FirstRowsAreThePublishedOnesAndAllStayWithinHalfAPixel) {
    const struct {
        int level;
        std::pair<float, float> rows[4];
        int given;
    } cases[] = {
        {1, {{0.24649f, 0.249999f}, {-0.24649f, -0.249999f}}, 2},
        {2, {{-0.373411f, -0.25055f}, {0.256263f, 0.368119f}, {0.117148f, -0.11757f}}, 3},
        {3, {{-0.208147f, 0.35373f}, {0.203849f, -0.35378f}, {-0.292626f, -0.149945f}, {0.296924f, 0.149994f}}, 4},
        {4, {{-0.334818f, 0.435331f}, {0.286438f, -0.393495f}, {0.459462f, 0.14154f}}, 3},
        {5, {{0.285561f, 0.188437f}, {0.360176f, -0.065688f}}, 2},
        {6, {{0.030245f, 0.136384f}, {0.018865f, -0.348867f}}, 2},
        {7, {{0.266377f, -0.218171f}, {-0.170919f, -0.429368f}}, 2},
    };
    for (const auto &c : cases) {
        int passes = 0;
        const JitterOffset *set = jitterSet(1, c.level, &passes);
        for (int i = 0; i < c.given; ++i) {
            EXPECT_FLOAT_EQ(set[i].x, c.rows[i].first) << "level " << c.level << " row " << i;
            EXPECT_FLOAT_EQ(set[i].y, c.rows[i].second) << "level " << c.level << " row " << i;
        }
        // Samples of one set are distinct and stay inside the pixel.
        std::set<std::pair<float, float>> seen;
        for (int i = 0; i < passes; ++i) {
            EXPECT_LE(std::fabs(set[i].x), 0.5f) << "level " << c.level << " row " << i;
            EXPECT_LE(std::fabs(set[i].y), 0.5f) << "level " << c.level << " row " << i;
            EXPECT_TRUE(seen.insert({set[i].x, set[i].y}).second) << "level " << c.level << " row " << i;
        }
    }
}
