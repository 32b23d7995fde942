// The statistics that compare, drift and the baseline share, against values worked out apart
// from the code: by hand, from the t table, and pair by pair.

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

// m values -1, 1, ... and n values c - 1, c + 1, ... (m and n even): each side's squared
// deviations sum to its count, so the pooled t is c / sqrt((m + n) / (m + n - 2) * (1/m + 1/n)),
// here made t.
std::pair<std::vector<double>, std::vector<double>> samplesWithT(int m, int n, double t) {
    const double c = t * std::sqrt((m + n) / (m + n - 2.0) * (1.0 / m + 1.0 / n));
    std::pair<std::vector<double>, std::vector<double>> sides;
    for (int i = 0; i < m; ++i) {
        sides.first.push_back(i % 2 ? 1 : -1);
    }
    for (int i = 0; i < n; ++i) {
        sides.second.push_back(c + (i % 2 ? 1 : -1));
    }
    return sides;
}

// Two-sided p-values at the t table's critical values (given to three decimals, so within 0.1 %)
// and, for 2 degrees of freedom, the closed form p = 1 - t / sqrt(2 + t^2). One degree of freedom
// more misses the table by 4 % or more; a one-sided p by half.
TEST(Statistics, TTestPValueOfTheTTable) {
    const struct {
        int m;
        int n;  // m + n - 2 degrees of freedom
        double t;
        double p;
    } table[] = {
        {2, 2, 4.303, 0.05}, {2, 2, 9.925, 0.01}, {2, 4, 2.776, 0.05},
        {6, 6, 2.228, 0.05}, {6, 6, 3.169, 0.01}, {6, 6, 4.587, 0.001},
    };
    for (const auto& row : table) {
        const auto [a, b] = samplesWithT(row.m, row.n, row.t);
        EXPECT_NEAR(tTestPValue(a, b), row.p, 0.002 * row.p)
            << row.m << " " << row.n << " " << row.t;
        EXPECT_NEAR(tTestPValue(b, a), row.p, 0.002 * row.p)
            << row.m << " " << row.n << " " << row.t;
    }
    for (const double t : {0.1, 1.0, 4.303, 30.0}) {
        const auto [a, b] = samplesWithT(2, 2, t);
        EXPECT_NEAR(tTestPValue(a, b), 1 - t / std::sqrt(2 + t * t), 1e-12) << t;
    }
}

// q-hat as its definition reads, pair by pair: the mean distance across the split and within each
// side over every ordered pair of distinct runs, weighted or not.
double qHatByDefinition(const std::vector<double>& x, size_t split, bool weighted) {
    double across = 0;
    double before = 0;
    double after = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        for (size_t j = 0; j < x.size(); ++j) {
            const double d = std::fabs(x[i] - x[j]);
            if (i < split && j >= split) {
                across += d;
            } else if (i < split && j < split) {
                before += d;
            } else if (i >= split && j >= split) {
                after += d;
            }
        }
    }
    const double m = split;
    const double n = x.size() - split;
    const double divergence = 2 * across / (m * n) - before / (m * (m - 1)) - after / (n * (n - 1));
    return weighted ? m * n / (m + n) * divergence : divergence;
}

// Every split of a long step and of a short, deeper one in the last two runs, and of the stretch
// from the step on. Weighted, the long step wins (at 7); unweighted, the last two runs would (14).
TEST(Statistics, EDivisiveQHatOfEverySplit) {
    const std::vector<double> x = {100, 101, 99, 100, 101, 99, 100, 96,
                                   97,  95,  96, 97,  95,  96, 88,  89};
    const int n = static_cast<int>(x.size());
    for (const int lo : {0, 7}) {
        const std::vector<double> stretch(x.begin() + lo, x.end());
        for (int split = lo + 2; split <= n - 2; ++split) {
            EXPECT_NEAR(eDivisiveQHat(splitDistances(x, lo, split, n), split - lo, n - split),
                        qHatByDefinition(stretch, split - lo, true), 1e-9)
                << lo << " " << split;
        }
    }
    const auto best = [&](auto q) {
        int found = 2;
        for (int split = 3; split <= n - 2; ++split) {
            found = q(split) > q(found) ? split : found;
        }
        return found;
    };
    EXPECT_EQ(best([&](int s) { return eDivisiveQHat(splitDistances(x, 0, s, n), s, n - s); }), 7);
    EXPECT_EQ(best([&](int s) { return qHatByDefinition(x, s, true); }), 7);
    EXPECT_EQ(best([&](int s) { return qHatByDefinition(x, s, false); }), 14);
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
