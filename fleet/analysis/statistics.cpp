#include "statistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    if (values.size() % 2 == 1) {
        return *middle;
    }
    // nth_element leaves the lower half before the middle, in no order.
    return (*std::max_element(values.begin(), middle) + *middle) / 2;
}

double medianAbsoluteDeviation(std::vector<double> values) {
    const double center = median(values);
    for (double& value : values) {
        value = std::fabs(value - center);
    }
    return median(std::move(values));
}

double medianPairwiseDifference(const std::vector<double>& before,
                                const std::vector<double>& after) {
    std::vector<double> differences;
    differences.reserve(before.size() * after.size());
    for (const double a : before) {
        for (const double b : after) {
            differences.push_back(b - a);
        }
    }
    return median(std::move(differences));
}

bool isUsableScore(double score) {
    return std::isfinite(score) && score >= 0;
}
