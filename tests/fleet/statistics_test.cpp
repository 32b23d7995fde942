// The one median and MAD that compare, drift and the baseline share, and which scores count.

#include "statistics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

TEST(Statistics, MedianAndMadOfOddEvenUnsortedAndSingleValues) {
    struct Row {
        std::vector<double> values;
        double median;
        double mad;
    };
    const Row table[] = {
        {{5}, 5, 0},
        {{10, 20}, 15, 5},
        {{3, 1, 2}, 2, 1},
        {{4, 1, 3, 2}, 2.5, 1},  // deviations 1.5 1.5 0.5 0.5
        {{9, -3, 7, 0, 2}, 2, 5},
        {{1, 1, 1, 100}, 1, 0},  // more than half on one value
        {{100, 1, 1, 100}, 50.5, 49.5},
        {{6, 2, 8, 4, 10, 12}, 7, 3},  // the middle two are 6 and 8, not their neighbours
    };
    for (const Row& row : table) {
        EXPECT_DOUBLE_EQ(median(row.values), row.median) << row.values.size();
        EXPECT_DOUBLE_EQ(medianAbsoluteDeviation(row.values), row.mad) << row.values.size();
    }
}

// Worked by hand over every pair; the last row is where it and the difference of the medians part.
TEST(Statistics, MedianPairwiseDifference) {
    struct Row {
        std::vector<double> before;
        std::vector<double> after;
        double difference;
    };
    const Row table[] = {
        {{5}, {3}, -2},
        {{1, 2}, {4}, 2.5},                                   // 3 2
        {{10, 20, 30}, {12, 14}, -7},                         // 2 4 -8 -6 -18 -16
        {{0, 0, 0}, {0, 1, 100}, 1},                          // 0 1 100, three times
        {{100, 100, 110, 110}, {95, 105}, -5},                // medians 105 and 100: -5 as well
        {{100, 100, 100, 110, 110}, {95, 95, 105, 105}, -5},  // medians 100 and 100: 0
    };
    for (const Row& row : table) {
        EXPECT_DOUBLE_EQ(medianPairwiseDifference(row.before, row.after), row.difference)
            << row.before.size() << " " << row.after.size();
    }
}

TEST(Statistics, OnlyFiniteScoresOfZeroOrMoreCount) {
    const double inf = std::numeric_limits<double>::infinity();
    const std::pair<double, bool> table[] = {{1e-300, true}, {1e12, true}, {0, true},
                                             {-1, false},    {inf, false}, {std::nan(""), false}};
    for (const auto& [score, usable] : table) {
        EXPECT_EQ(isUsableScore(score), usable) << score;
    }
}

}  // namespace
