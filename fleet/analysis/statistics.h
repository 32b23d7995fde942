#pragma once

// The statistics every analysis of scores uses, each computed by one rule: the median, the median
// absolute deviation, and which scores count at all.

#include <vector>

// The middle value of values, the mean of the middle two for an even count; values must not be
// empty.
double median(std::vector<double> values);

// The median of the absolute deviations from the median (unscaled); values must not be empty.
double medianAbsoluteDeviation(std::vector<double> values);

// A score that statistics can use: a finite number above 0 (0 stands for "no score").
bool isUsableScore(double score);
