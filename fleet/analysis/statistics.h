#pragma once

// The statistics every analysis of scores uses, each computed by one rule: the median, the median
// absolute deviation, Student's t-test, E-Divisive's q-hat, and which scores count at all.

#include <vector>

// The middle value of values, the mean of the middle two for an even count; values must not be
// empty.
double median(std::vector<double> values);

// The median of the absolute deviations from the median (unscaled); values must not be empty.
double medianAbsoluteDeviation(std::vector<double> values);

// The median of the differences b - a over every pair of a value a of before and b of after: the
// Hodges-Lehmann estimate of how far after lies from before. Nearly as steady as the difference of
// the means on normal noise, and like a median, a few wild values barely move it. Neither may be
// empty.
double medianPairwiseDifference(const std::vector<double>& before,
                                const std::vector<double>& after);

// The two-sided p-value of Student's t-test with pooled variance (m + n - 2 degrees of freedom)
// that a and b have the same mean. 1 when it cannot be computed (a side empty, fewer than 3
// values in all, or a spread that is not finite); with no spread at all, 0 when the means differ
// and 1 when they do not.
double tTestPValue(const std::vector<double>& a, const std::vector<double>& b);

// The sums of |x_i - x_j| over the pairs i < j of a stretch of a series cut in two by a split.
struct SplitDistances {
    double withinBefore = 0;  // both runs before the split
    double withinAfter = 0;   // both at or after it
    double across = 0;        // one on each side
};

// Those of x[lo, hi) split at split, pair by pair.
SplitDistances splitDistances(const std::vector<double>& x, int lo, int split, int hi);

// E-Divisive's q-hat (alpha = 1) of a split with the m runs X before it and the n runs Y after it,
// at least 2 each:
//   q = m n / (m + n) * (2 mean|X - Y| - mean|X - X'| - mean|Y - Y'|),
// the means over the distinct pairs across and within the sides. The weight m n / (m + n) lets a
// change seen in many runs outweigh a deeper one in the last two or three.
double eDivisiveQHat(const SplitDistances& sums, int m, int n);

// A score that statistics can use: a finite number, 0 or more. A run that scored 0 did no work in
// the time, the worst score of all, not a missing one; a record without a score has none at all.
bool isUsableScore(double score);
