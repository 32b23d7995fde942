// corebench in a container that hides the sysfs CPU folder: a private mount namespace with an
// empty tmpfs over /sys/devices/system/cpu, as many container runtimes set it up. Needs the right
// to mount (root); skipped otherwise.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QRegularExpression>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>

namespace {

struct ShellResult {
    std::string output;
    int status = -1;
};

// Runs sh -c script with the arguments as $0, $1, ...; every run ends within two minutes.
ShellResult runShell(const std::string& script, const std::string& arg0,
                     const std::string& arg1 = "") {
    const auto quoted = [](const std::string& s) {
        std::string q = "'";
        for (const char c : s) {
            q += c == '\'' ? std::string("'\\''") : std::string(1, c);
        }
        return q + "'";
    };
    const std::string command = "timeout 120 unshare -m sh -c " + quoted(script) + " " +
                                quoted(arg0) + " " + quoted(arg1) + " 2>&1";
    ShellResult result;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return result;
    }
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        result.output.append(buffer, n);
    }
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

const char* const kHideTopology = "mount -t tmpfs none /sys/devices/system/cpu";

struct Report {
    int threads = -1, logical = -1, physical = -1;
    bool hyperthreading = false;
    std::string errors;
    double total = -1, psResult = -1;
};

Report readReport(const std::string& output) {
    static const QRegularExpression pattern(
        "NumberOfThreads: (\\d+)\n(?:.*\n)*?ERRORS:\n((?:.*\n)*?)-{30}\n(?:.*\n)*?"
        "CPU Core Count:      (\\d+)\nCPU Core Count \\(HW\\): (\\d+)\n"
        "CPU Hyperthreading:  (Enabled|Disabled)\n(?:.*\n)*?=totalSpeed (\\d+\\.\\d{3}) PS .*\n"
        "PS_Result: (\\d+\\.\\d{3})\n");
    const QRegularExpressionMatch m = pattern.match(QString::fromStdString(output));
    Report report;
    if (m.hasMatch()) {
        report.threads = m.captured(1).toInt();
        report.errors = m.captured(2).toStdString();
        report.logical = m.captured(3).toInt();
        report.physical = m.captured(4).toInt();
        report.hyperthreading = m.captured(5) == "Enabled";
        report.total = m.captured(6).toDouble();
        report.psResult = m.captured(7).toDouble();
    }
    return report;
}

// The single worker's score stands for all CPUs: times N, or 0.6 x N with hyperthreading.
double scaleFactor(const Report& r) {
    return r.hyperthreading ? r.logical * 0.5 * 1.2 : r.logical;
}

// PS_Result was scaled from the unrounded score; both are printed to three decimals.
void expectScaledScore(const Report& r, double factor) {
    EXPECT_NEAR(r.psResult, r.total * factor, 0.0005 * (factor + 1)) << r.total << " x " << factor;
}

TEST(CorebenchContainer, SingleSpeedWithoutCpuTopology) {
    if (runShell(kHideTopology, "probe").status != 0) {
        GTEST_SKIP() << "no right to mount in a private mount namespace (needs root)";
    }

    // The command the farm's container runs: cores are counted from /proc/cpuinfo.
    const ShellResult run =
        runShell(std::string(kHideTopology) + " && exec \"$0\" SingleSpeed", COREBENCH_BINARY);
    ASSERT_EQ(run.status, 0) << run.output;
    const Report counted = readReport(run.output);
    ASSERT_GT(counted.logical, 0) << run.output;
    EXPECT_EQ(counted.logical, counted.threads);
    EXPECT_NE(counted.errors.find("No CPU topology in /sys; cores counted from /proc/cpuinfo\n"),
              std::string::npos)
        << counted.errors;
    EXPECT_GE(counted.physical, 1);
    EXPECT_LE(counted.physical, counted.logical);
    EXPECT_EQ(counted.hyperthreading, counted.physical < counted.logical);
    // A host without SMT must not get hyperthreads from the fallback.
    std::ifstream smt("/sys/devices/system/cpu/smt/active");
    std::string smtActive;
    if (std::getline(smt, smtActive) && smtActive == "0") {
        EXPECT_EQ(counted.physical, counted.logical);
        EXPECT_FALSE(counted.hyperthreading);
        expectScaledScore(counted, counted.logical);
    }
    expectScaledScore(counted, scaleFactor(counted));

    // An arm64 node's /proc/cpuinfo (recorded on a Cavium ThunderX) in place of this machine's:
    // no "physical id", "core id", "model name" or "cpu MHz". No hyperthreading is claimed, the
    // CPU is named from its part number, and the clocks are unknown without cpufreq.
    const ShellResult armRun =
        runShell("mount --bind \"$1\" /proc/cpuinfo && " + std::string(kHideTopology) +
                     " && exec \"$0\" SingleSpeed exitCodeThreshold 1",
                 COREBENCH_BINARY, MACHINES_DATA "/arm64-cavium-thunderx-scaleway/proc/cpuinfo");
    ASSERT_FALSE(armRun.output.empty());
    const Report assumed = readReport(armRun.output);
    ASSERT_GT(assumed.logical, 0) << armRun.output;
    EXPECT_NE(assumed.errors.find("No CPU topology in /sys or /proc/cpuinfo; physical cores taken "
                                  "as logical CPUs\n"),
              std::string::npos)
        << assumed.errors;
    EXPECT_EQ(assumed.physical, assumed.logical);
    EXPECT_NE(armRun.output.find("\nCPU Description:     Cavium ThunderX-88XX\n"
                                 "CPU:                 AppleCavium ThunderX-88XX\n"),
              std::string::npos);
    EXPECT_NE(armRun.output.find("\nCPU MHz Max:      -1\nCPU MHz Current:  -1\n"),
              std::string::npos);
    EXPECT_FALSE(assumed.hyperthreading);
    expectScaledScore(assumed, assumed.logical);
    EXPECT_EQ(armRun.status, std::min(static_cast<int>(assumed.psResult), 255));
}

}  // namespace
