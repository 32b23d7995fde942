#include "statistics.h"

#include <algorithm>
#include <boost/math/distributions/students_t.hpp>
#include <cmath>
#include <cstddef>

namespace {

namespace policies = boost::math::policies;
// No Boost.Math function may throw or set errno: out-of-range arguments give a value the callers
// check (a p-value that is not finite counts as 1).
using QuietPolicy = policies::policy<policies::domain_error<policies::ignore_error>,
                                     policies::pole_error<policies::ignore_error>,
                                     policies::overflow_error<policies::ignore_error>,
                                     policies::underflow_error<policies::ignore_error>,
                                     policies::denorm_error<policies::ignore_error>,
                                     policies::evaluation_error<policies::ignore_error>,
                                     policies::rounding_error<policies::ignore_error>,
                                     policies::indeterminate_result_error<policies::ignore_error>>;

double meanOf(const std::vector<double>& values) {
    double sum = 0;
    for (const double value : values) {
        sum += value;
    }
    return sum / static_cast<double>(values.size());
}

double squaredDeviations(const std::vector<double>& values, double mean) {
    double sum = 0;
    for (const double value : values) {
        sum += (value - mean) * (value - mean);
    }
    return sum;
}

}  // namespace

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

double tTestPValue(const std::vector<double>& a, const std::vector<double>& b) {
    const int m = static_cast<int>(a.size());
    const int n = static_cast<int>(b.size());
    if (m < 1 || n < 1 || m + n < 3) {
        return 1;
    }
    const double meanA = meanOf(a);
    const double meanB = meanOf(b);
    const double degrees = m + n - 2;
    const double pooled = (squaredDeviations(a, meanA) + squaredDeviations(b, meanB)) / degrees;
    if (!std::isfinite(pooled)) {
        return 1;
    }
    if (!(pooled > 0)) {
        // No spread at all: the sides differ for certain, or not at all.
        return meanA == meanB ? 1 : 0;
    }
    const double t = std::fabs(meanA - meanB) / std::sqrt(pooled * (1.0 / m + 1.0 / n));
    if (!std::isfinite(t)) {
        return std::isnan(t) ? 1 : 0;
    }
    const boost::math::students_t_distribution<double, QuietPolicy> student(degrees);
    const double p = 2 * boost::math::cdf(boost::math::complement(student, t));
    return std::isfinite(p) ? std::clamp(p, 0.0, 1.0) : 1;
}

SplitDistances splitDistances(const std::vector<double>& x, int lo, int split, int hi) {
    SplitDistances sums;
    for (int i = lo; i < hi; ++i) {
        for (int j = i + 1; j < hi; ++j) {
            const double d = std::fabs(x[i] - x[j]);
            if (j < split) {
                sums.withinBefore += d;
            } else if (i >= split) {
                sums.withinAfter += d;
            } else {
                sums.across += d;
            }
        }
    }
    return sums;
}

double eDivisiveQHat(const SplitDistances& sums, int m, int n) {
    const double before = m;
    const double after = n;
    return before * after / (before + after) *
           (2 * sums.across / (before * after) - sums.withinBefore / (before * (before - 1) / 2) -
            sums.withinAfter / (after * (after - 1) / 2));
}

bool isUsableScore(double score) {
    return std::isfinite(score) && score >= 0;
}
