#include "disturbance.h"

#include <algorithm>
#include <cmath>

namespace {

// value with the given number of decimals, a full stop whatever the locale: the words go into
// records that every node's tools read alike.
std::string fixed(double value, int decimals) {
    long long scale = 1;
    for (int i = 0; i < decimals; ++i) {
        scale *= 10;
    }
    const long long scaled = std::llround(std::fabs(value) * static_cast<double>(scale));
    std::string text = (value < 0 && scaled > 0 ? "-" : "") + std::to_string(scaled / scale);
    if (decimals > 0) {
        const std::string fraction = std::to_string(scaled % scale);
        text += "." + std::string(static_cast<size_t>(decimals) - fraction.size(), '0') + fraction;
    }
    return text;
}

std::string percent(double share) {
    return fixed(share * 100, 1) + "%";
}

// "the worker's CPU", or "the workers' 4 CPUs" when they could use more than one.
std::string workerCpus(const RunConditions& conditions) {
    int usable = conditions.workerThreads.value_or(1);
    if (conditions.allowedCpus) {
        usable = std::min(usable, *conditions.allowedCpus);
    }
    return usable > 1 ? "workers' " + std::to_string(usable) + " CPUs" : "worker's CPU";
}

}  // namespace

std::optional<std::vector<std::string>> disturbanceCauses(const RunConditions& conditions) {
    std::vector<std::string> causes;
    if (conditions.stealShare.value_or(0) > kMaxStealShare) {
        causes.push_back("steal " + percent(*conditions.stealShare) + " of the run");
    }
    // A run is clean only on a figure of the benchmark's own CPUs.
    if (!conditions.otherShareOfWorkerCpus && !conditions.waitShare && !conditions.cpuShare) {
        return causes.empty() ? std::nullopt : std::optional(causes);
    }
    // Other work named is the whole story; the benchmark's own figures then only repeat it, and
    // stand alone where other work is unknown or does not explain them.
    if (conditions.otherShareOfWorkerCpus.value_or(0) > kMaxOtherShareOfWorkerCpus) {
        causes.push_back("other work used " + fixed(*conditions.otherShareOfWorkerCpus, 2) +
                         " of the " + workerCpus(conditions));
    } else if (conditions.waitShare.value_or(0) > kMaxWaitShare) {
        causes.push_back("the benchmark waited for a CPU " + percent(*conditions.waitShare) +
                         " of the time it was ready to run");
    } else if (conditions.cpuShare.value_or(1) < kMinCpuShare) {
        causes.push_back("the benchmark used " + fixed(*conditions.cpuShare, 2) + " of its " +
                         workerCpus(conditions));
    }
    return causes;
}
