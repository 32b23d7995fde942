// corebench in a container that hides the sysfs CPU folder (an empty tmpfs over it in a private
// mount namespace), as many container runtimes set it up. Needs the right to mount (root).

#include <gtest/gtest.h>

#include "corebench_process.h"

namespace {

const std::string kHideTopology = "mount -t tmpfs none /sys/devices/system/cpu";

// Runs corebench in a private mount namespace after the given mounts, within two minutes.
ProcessResult runMounted(const std::string& mounts, const std::vector<std::string>& arguments) {
    RunOptions options;
    options.prefix = {"/usr/bin/unshare", "-m", "/bin/sh", "-c", mounts + " && exec \"$0\" \"$@\""};
    options.timeoutMs = 120000;
    return runCorebench(arguments, options);
}

// The figures of a run, by name: threads, errors (the lines of the block), logical, physical,
// ht, total and ps.
QRegularExpressionMatch figuresOf(const std::string& output) {
    static const QRegularExpression pattern(
        "NumberOfThreads: (?<threads>\\d+)\n(?:.*\n)*?ERRORS:\n(?<errors>(?:.*\n)*?)-{30}\n"
        "(?:.*\n)*?CPU Core Count:      (?<logical>\\d+)\nCPU Core Count \\(HW\\): "
        "(?<physical>\\d+)\nCPU Hyperthreading:  (?<ht>Enabled|Disabled)\n(?:.*\n)*?"
        "=totalSpeed (?<total>\\d+\\.\\d{3}) PS .*\nPS_Result: (?<ps>\\d+\\.\\d{3})\n");
    return pattern.match(QString::fromStdString(output));
}

int number(const QRegularExpressionMatch& figures, const char* name) {
    return figures.captured(name).toInt();
}

// The single worker's score stands for all CPUs: times N, or 0.6 x N with hyperthreading.
// PS_Result was scaled from the unrounded score; both are printed to three decimals.
void expectScaledScore(const QRegularExpressionMatch& figures) {
    const double factor =
        number(figures, "logical") * (figures.captured("ht") == "Enabled" ? 0.6 : 1.0);
    const double total = figures.captured("total").toDouble();
    EXPECT_NEAR(figures.captured("ps").toDouble(), total * factor, 0.0005 * (factor + 1))
        << total << " x " << factor;
}

TEST(CorebenchContainer, SingleSpeedWithoutCpuTopology) {
    if (runMounted(kHideTopology, {"nosuch"}).status != 0) {
        GTEST_SKIP() << "no right to mount in a private mount namespace (needs root)";
    }

    // The command the farm's container runs: cores are counted from /proc/cpuinfo.
    const ProcessResult run = runMounted(kHideTopology, {"SingleSpeed"});
    ASSERT_EQ(run.status, 0) << run.output << run.errors;
    const QRegularExpressionMatch counted = figuresOf(run.output);
    ASSERT_TRUE(counted.hasMatch()) << run.output;
    EXPECT_EQ(number(counted, "threads"), number(counted, "logical"));
    EXPECT_TRUE(counted.captured("errors").contains(
        "No CPU topology in /sys; cores counted from /proc/cpuinfo\n"))
        << run.output;
    EXPECT_GE(number(counted, "physical"), 1);
    EXPECT_LE(number(counted, "physical"), number(counted, "logical"));
    EXPECT_EQ(counted.captured("ht") == "Enabled",
              number(counted, "physical") < number(counted, "logical"));
    // A host without SMT must not get hyperthreads from the fallback.
    if (fileText("/sys/devices/system/cpu/smt/active") == "0\n") {
        EXPECT_EQ(counted.captured("ht"), "Disabled");
    }
    expectScaledScore(counted);
}

}  // namespace
