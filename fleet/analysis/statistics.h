#pragma once

// The statistics every analysis of scores uses, each computed by one rule: the median, the median
// absolute deviation, and which scores count at all.

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

// A score that statistics can use: a finite number, 0 or more. A run that scored 0 did no work in
// the time, the worst score of all, not a missing one; a record without a score has none at all.
bool isUsableScore(double score);
