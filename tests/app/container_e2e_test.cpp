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

// The figures of a run, by name: threads, errors (the lines of the block), logical, physical, ht.
// The scaling of the one worker's score is checked by the CorebenchRun tests.
QRegularExpressionMatch figuresOf(const std::string& output) {
    static const QRegularExpression pattern(
        "NumberOfThreads: (?<threads>\\d+)\n(?:.*\n)*?ERRORS:\n(?<errors>(?:.*\n)*?)-{30}\n"
        "(?:.*\n)*?CPU Core Count:      (?<logical>\\d+)\nCPU Core Count \\(HW\\): "
        "(?<physical>\\d+)\nCPU Hyperthreading:  (?<ht>Enabled|Disabled)\n(?:.*\n)*?PS_Result: ");
    return pattern.match(QString::fromStdString(output));
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
    const int logical = counted.captured("logical").toInt();
    const int physical = counted.captured("physical").toInt();
    EXPECT_EQ(counted.captured("threads").toInt(), logical);
    EXPECT_TRUE(counted.captured("errors").contains(
        "No CPU topology in /sys; cores counted from /proc/cpuinfo\n"))
        << run.output;
    EXPECT_TRUE(physical >= 1 && physical <= logical) << physical << "/" << logical;
    EXPECT_EQ(counted.captured("ht") == "Enabled", physical < logical);
    // A host without SMT must not get hyperthreads from the fallback.
    if (fileText("/sys/devices/system/cpu/smt/active") == "0\n") {
        EXPECT_EQ(counted.captured("ht"), "Disabled");
    }
}

}  // namespace
