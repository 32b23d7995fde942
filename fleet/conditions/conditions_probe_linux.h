#pragma once

// The Linux probe, reading /proc below a root folder: "/" on the running system, a tree recorded
// from another machine in tests.

#include <string>

#include "conditions_probe.h"

class LinuxConditionsProbe : public ConditionsProbe {
  public:
    // ticksPerSecond is the unit of /proc's times (USER_HZ); 0 asks the system.
    LinuxConditionsProbe(int64_t pid, std::string root = "/", double ticksPerSecond = 0);

    MachineSnapshot machine() const override;
    std::optional<ProcessSnapshot> process() override;

  private:
    std::string path(const std::string& file) const;

    int64_t pid_;
    std::string root_;
    double ticksPerSecond_;
    // When the watched process started: a PID reused by another process after the watched one
    // was reaped reads as the end of the watched one.
    std::optional<uint64_t> startTicks_;
};
