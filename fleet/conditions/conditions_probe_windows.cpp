// The Windows figures: GetSystemTimes for the machine (all CPUs summed; Windows keeps no per-CPU
// times for other processes to read, no steal and no load average), GetProcessTimes and
// GetProcessAffinityMask for the process, through a handle opened as it starts and kept, so that
// its times stay readable after it ended. Wine 8 answers GetProcessTimes of another process with
// about 0.01 s however long it ran, so under Wine the benchmark's CPU share reads as about 0.

#include <windows.h>

#include "conditions_probe.h"

namespace {

double secondsOf(const FILETIME& time) {
    const ULONGLONG hundredNs =
        (static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
    return static_cast<double>(hundredNs) / 1e7;
}

class WindowsConditionsProbe : public ConditionsProbe {
  public:
    explicit WindowsConditionsProbe(int64_t pid)
        : process_(pid > 0 && pid <= MAXDWORD ? OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION,
                                                            FALSE, static_cast<DWORD>(pid))
                                              : nullptr) {}
    ~WindowsConditionsProbe() override {
        if (process_ != nullptr) {
            CloseHandle(process_);
        }
    }
    WindowsConditionsProbe(const WindowsConditionsProbe&) = delete;
    WindowsConditionsProbe& operator=(const WindowsConditionsProbe&) = delete;

    // The kernel time GetSystemTimes gives includes the idle time.
    MachineSnapshot machine() const override {
        MachineSnapshot machine;
        FILETIME idle;
        FILETIME kernel;
        FILETIME user;
        if (GetSystemTimes(&idle, &kernel, &user)) {
            CpuTimes all;
            all.idleS = secondsOf(idle);
            all.busyS = secondsOf(kernel) + secondsOf(user) - all.idleS;
            machine.allCpus = all;
        }
        const DWORD cpus = GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
        if (cpus > 0) {
            machine.cpuCount = static_cast<int>(cpus);
        }
        return machine;
    }

    std::optional<ProcessSnapshot> process() override {
        FILETIME creation;
        FILETIME exit;
        FILETIME kernel;
        FILETIME user;
        if (process_ == nullptr || !GetProcessTimes(process_, &creation, &exit, &kernel, &user)) {
            return std::nullopt;
        }
        ProcessSnapshot process;
        process.cpuS = secondsOf(kernel) + secondsOf(user);
        DWORD_PTR mask = 0;
        DWORD_PTR system = 0;
        if (GetProcessAffinityMask(process_, &mask, &system)) {
            for (int cpu = 0; cpu < static_cast<int>(sizeof(mask) * 8); ++cpu) {
                if ((mask >> cpu & 1) != 0) {
                    process.allowedCpus.push_back(cpu);
                }
            }
        }
        return process;
    }

  private:
    HANDLE process_;
};

}  // namespace

std::unique_ptr<ConditionsProbe> systemConditionsProbe(int64_t pid) {
    return std::make_unique<WindowsConditionsProbe>(pid);
}
