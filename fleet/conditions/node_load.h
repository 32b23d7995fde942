#pragma once

// Whether a node is idle enough to be benchmarked without taking CPUs from its work: the load
// averages over one and five minutes against a limit per online CPU. Plain data and one pure
// function; the readers are per OS (node_load_linux.cpp, node_load_windows.cpp).

#include <optional>
#include <string>

// The limit a node's load may reach, per online CPU, and still count as idle: the share of the
// workers' CPUs that other work may take before a run is marked disturbed
// (kMaxOtherShareOfWorkerCpus), so that a run started below it is likely to be clean.
constexpr double kDefaultMaxLoadPerCpu = 0.10;

struct NodeLoad {
    std::optional<double> load1;  // the load averages over the last minute and five minutes
    std::optional<double> load5;
    std::optional<int> cpus;  // online CPUs
};

struct IdleVerdict {
    std::optional<bool> idle;  // empty when a figure is missing
    std::string text;          // one line: the verdict and the figures it rests on
};

// Idle when both averages are at most maxLoadPerCpu times the online CPUs: the one-minute average
// sees a job that started a few seconds ago, the five-minute one the pauses of a job that goes on
// (a renderer loading its next frame) and one that ended minutes ago.
IdleVerdict idleVerdict(const NodeLoad& load, double maxLoadPerCpu);

// This system's load. Linux reads loadavg and stat in procRoot, the proc file system ("/proc" on
// the running system); Windows keeps no load average. problem says what could not be read.
NodeLoad systemNodeLoad(const std::string& procRoot, std::string* problem);
