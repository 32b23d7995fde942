// The conditions of a run and the verdicts on them, on crafted snapshots of a 2-CPU machine: the
// arithmetic, the watch that gathers the snapshots, the likely causes of a Windows node's
// slowness from the power plan answers Windows and Wine give, and whether a node is idle.

#include <gtest/gtest.h>

#include <deque>

#include "conditions_probe.h"
#include "disturbance.h"
#include "node_load.h"
#include "power_state.h"

namespace {

using Causes = std::optional<std::vector<std::string>>;

struct Scene {
    double wallS = 5;
    std::vector<double> busyS = {0.1, 4.65};  // per CPU during the run
    std::vector<int> allowed = {1};
    double processCpuS = 4.6;
    std::vector<std::pair<double, double>> tasks = {{0.05, 0}, {4.5, 0.05}};  // run, wait
    double stealS = 0;                                                        // on CPU 1
    bool perCpu = true;         // Linux; Windows has the machine's sum only, no steal
    bool childrenTimes = true;  // Linux's reaper figure; Windows reads the process instead
    bool sampled = true;        // the process was read while it ran
};

// The snapshots of such a run: counters from boot before it, grown by the run's figures.
RunSnapshots snapshotsOf(const Scene& run) {
    RunSnapshots snapshots;
    snapshots.before.atS = 100;
    snapshots.after.atS = 100 + run.wallS;
    CpuTimes allBefore{0, 0, 0.0};
    CpuTimes allAfter{0, 0, 0.0};
    for (size_t cpu = 0; cpu < run.busyS.size(); ++cpu) {
        const double stealS = cpu == 1 ? run.stealS : 0;
        const CpuTimes before{1000, 500, 10.0};
        const CpuTimes after{1000 + run.busyS[cpu], 500 + run.wallS - run.busyS[cpu] - stealS,
                             10 + stealS};
        if (run.perCpu) {
            snapshots.before.perCpu.emplace_back(static_cast<int>(cpu), before);
            snapshots.after.perCpu.emplace_back(static_cast<int>(cpu), after);
        }
        allBefore = {allBefore.busyS + before.busyS, allBefore.idleS + before.idleS,
                     *allBefore.stealS + *before.stealS};
        allAfter = {allAfter.busyS + after.busyS, allAfter.idleS + after.idleS,
                    *allAfter.stealS + *after.stealS};
    }
    if (!run.perCpu) {
        allBefore.stealS.reset();
        allAfter.stealS.reset();
    }
    snapshots.before.allCpus = allBefore;
    snapshots.after.allCpus = allAfter;
    snapshots.before.cpuCount = snapshots.after.cpuCount = static_cast<int>(run.busyS.size());
    snapshots.before.load1 = 0.5;
    if (run.childrenTimes) {
        snapshots.before.endedChildrenCpuS = 2;
        snapshots.after.endedChildrenCpuS = 2 + run.processCpuS;
    }
    ProcessSnapshot during;
    during.atS = 100 + run.wallS - 0.2;
    if (!run.childrenTimes) {
        during.cpuS = run.processCpuS;
    }
    for (size_t i = 0; i < run.tasks.size(); ++i) {
        during.tasks.push_back(TaskTimes{static_cast<int64_t>(500 + i), run.tasks[i].first,
                                         run.tasks[i].first, run.tasks[i].second});
    }
    during.allowedCpus = run.allowed;
    if (run.sampled) {
        snapshots.during = during;
    }
    return snapshots;
}

// SingleSpeed pinned to CPU 1 unless the row says otherwise; a busy loop is 5 s of a CPU.
TEST(RunConditions, FiguresAndVerdicts) {
    Scene windows;
    windows.perCpu = false;
    windows.childrenTimes = false;
    windows.tasks = {};
    windows.allowed = {0, 1};
    windows.busyS = {0.2, 4.6};
    const auto changed = [](Scene run, auto change) {
        change(run);
        return run;
    };
    const struct {
        const char* name;
        Scene run;
        int hint;
        std::optional<int> workers;
        std::optional<double> otherShare;
        Causes causes;
    } rows[] = {
        {"idle", Scene{}, 0, 1, 0.01, std::vector<std::string>{}},
        {"busy loop on the worker's CPU",
         changed(Scene{},
                 [](Scene& r) {
                     r.busyS = {0.1, 5}, r.processCpuS = 2.4, r.tasks = {{0.03, 0.02}, {2.35, 2.3}};
                 }),
         0, 1, 0.52, std::vector<std::string>{"other work used 0.52 of the worker's CPU"}},
        // CPUs 2 and 3 are possible but not online.
        {"busy loop on the worker's CPU, affinity beyond the online CPUs",
         changed(Scene{},
                 [](Scene& r) {
                     r.busyS = {0.1, 5}, r.processCpuS = 2.4, r.tasks = {{0.03, 0.02}, {2.35, 2.3}},
                     r.allowed = {1, 2, 3};
                 }),
         0, 1, 0.52, std::vector<std::string>{"other work used 0.52 of the worker's CPU"}},
        {"busy loop on the other CPU",
         changed(Scene{},
                 [](Scene& r) {
                     r.busyS = {5, 4.65};
                 }),
         0, 1, 0.01, std::vector<std::string>{}},
        // Unpinned, the worker has the CPU the busy loop leaves free.
        {"unpinned, busy loop on CPU 0",
         changed(Scene{},
                 [](Scene& r) {
                     r.busyS = {5, 4.7}, r.allowed = {0, 1};
                 }),
         0, 1, 0.02, std::vector<std::string>{}},
        {"unpinned, busy loops on both CPUs",
         changed(Scene{},
                 [](Scene& r) {
                     r.busyS = {5, 5}, r.allowed = {0, 1}, r.processCpuS = 3.3,
                     r.tasks = {{0.05, 0}, {3.25, 1.6}};
                 }),
         0, 1, 0.34, std::vector<std::string>{"other work used 0.34 of the worker's CPU"}},
        {"two workers, idle",
         changed(Scene{},
                 [](Scene& r) {
                     r.busyS = {4.7, 4.7}, r.allowed = {0, 1}, r.processCpuS = 9.2,
                     r.tasks = {{0.05, 0}, {4.55, 0.05}, {4.55, 0.05}};
                 }),
         0, 2, 0.02, std::vector<std::string>{}},
        {"two workers, a busy loop",
         changed(Scene{},
                 [](Scene& r) {
                     r.busyS = {5, 5}, r.allowed = {0, 1}, r.processCpuS = 6.6,
                     r.tasks = {{0.05, 0}, {3.3, 1.6}, {3.3, 1.6}};
                 }),
         0, 2, 0.34, std::vector<std::string>{"other work used 0.34 of the workers' 2 CPUs"}},
        // Single10 runs its workers one after another, each a tenth of the run.
        {"workers one after another",
         changed(Scene{},
                 [](Scene& r) {
                     r.tasks = std::vector<std::pair<double, double>>(10, {0.45, 0.01});
                     r.tasks.push_back({0.05, 0});
                 }),
         0, 1, 0.01, std::vector<std::string>{}},
        {"steal",
         changed(Scene{},
                 [](Scene& r) {
                     r.stealS = 0.3, r.busyS = {0.1, 4.4}, r.processCpuS = 4.35;
                 }),
         0, 1, 0.01, std::vector<std::string>{"steal 6.0% of the run"}},
        // Without the CPUs' figures the benchmark's own waiting tells.
        {"waiting, other work unknown",
         changed(Scene{},
                 [](Scene& r) {
                     r.perCpu = false, r.processCpuS = 2.4, r.tasks = {{0.05, 0}, {2.35, 2.3}};
                 }),
         0, 1, std::nullopt,
         std::vector<std::string>{
             "the benchmark waited for a CPU 48.9% of the time it was ready to run"}},
        // A CPU quota: the process gets half a CPU, and neither waits nor sees others take it.
        {"CPU time short, nothing else",
         changed(Scene{},
                 [](Scene& r) {
                     r.busyS = {0.1, 2.6}, r.processCpuS = 2.5, r.tasks = {{0.05, 0}, {2.45, 0.1}};
                 }),
         0, 1, 0.02, std::vector<std::string>{"the benchmark used 0.50 of its worker's CPU"}},
        {"CPU counter went back",
         changed(Scene{},
                 [](Scene& r) {
                     r.busyS = {0.1, -1};
                 }),
         0, 1, std::nullopt, std::vector<std::string>{}},
        {"Windows, idle", windows, 1, 1, 0.0, std::vector<std::string>{}},
        {"Windows, busy loops on both CPUs",
         changed(windows,
                 [](Scene& r) {
                     r.busyS = {5, 5}, r.processCpuS = 3.3;
                 }),
         1, 1, 0.34, std::vector<std::string>{"other work used 0.34 of the worker's CPU"}},
        {"Windows, workers unknown", windows, 0, std::nullopt, std::nullopt, std::nullopt},
        // Ended before it was read: no steal says nothing of its CPUs.
        {"never read", changed(Scene{}, [](Scene& r) { r.sampled = false; }), 0, std::nullopt,
         std::nullopt, std::nullopt},
        {"never read, steal",
         changed(Scene{},
                 [](Scene& r) {
                     r.sampled = false, r.stealS = 0.3, r.busyS = {0.1, 4.4};
                 }),
         0, std::nullopt, std::nullopt, std::vector<std::string>{"steal 3.0% of the run"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const RunConditions conditions = runConditions(snapshotsOf(row.run), row.hint);
        EXPECT_DOUBLE_EQ(conditions.wallS, row.run.wallS);
        EXPECT_EQ(conditions.loadBefore, 0.5);
        EXPECT_EQ(conditions.workerThreads, row.workers);
        ASSERT_EQ(conditions.otherShareOfWorkerCpus.has_value(), row.otherShare.has_value());
        if (row.otherShare) {
            EXPECT_NEAR(*conditions.otherShareOfWorkerCpus, *row.otherShare, 0.005);
        }
        EXPECT_EQ(disturbanceCauses(conditions), row.causes);
    }
}

// Answers scripted per call, and a clock that moves a second per snapshot.
class ScriptedProbe : public ConditionsProbe {
  public:
    mutable std::deque<MachineSnapshot> machines;
    std::deque<std::optional<ProcessSnapshot>> processes;
    mutable double clockS = 0;

    MachineSnapshot machine() const override {
        MachineSnapshot next = machines.front();
        machines.pop_front();
        return next;
    }
    std::optional<ProcessSnapshot> process() override {
        std::optional<ProcessSnapshot> next = processes.front();
        processes.pop_front();
        return next;
    }
    double nowS() const override { return clockS += 1; }
};

ProcessSnapshot processWith(std::vector<TaskTimes> tasks) {
    ProcessSnapshot process;
    process.cpuS = 0;
    for (const TaskTimes& task : tasks) {
        *process.cpuS += task.cpuS;
    }
    process.tasks = std::move(tasks);
    process.allowedCpus = {0, 1};
    return process;
}

// A worker that ended between samples keeps its figures; the process, gone after the run, adds
// nothing more, and its CPU time is what its reaper saw end.
TEST(ConditionsWatch, KeepsEndedThreadsAndTakesTheReapedTime) {
    auto probe = std::make_unique<ScriptedProbe>();
    MachineSnapshot before;
    before.endedChildrenCpuS = 1;
    MachineSnapshot after;
    after.endedChildrenCpuS = 4;
    probe->machines = {before, after};
    probe->processes = {
        processWith({{10, 0, 0.0, 0.0}}),
        processWith({{10, 0.01, 0.01, 0.0}, {11, 2, 2.0, 0.5}}),
        processWith({{10, 0.02, 0.02, 0.0}}),
        std::nullopt,
    };
    ConditionsWatch watch(std::move(probe));
    watch.sample();
    watch.sample();
    const RunConditions conditions = watch.finish(0);
    // before at 1 s, samples at 2, 3 and 4 s, the end at 5 s.
    EXPECT_DOUBLE_EQ(conditions.wallS, 4);
    EXPECT_EQ(conditions.processCpuS, 3);
    EXPECT_EQ(conditions.workerThreads, 1);
    EXPECT_EQ(conditions.allowedCpus, 2);
    ASSERT_TRUE(conditions.waitShare);
    EXPECT_NEAR(*conditions.waitShare, 0.5 / 2.52, 1e-9);
    EXPECT_EQ(watch.snapshots().during->tasks.size(), 2u);
}

// Windows' plans by their GUIDs, and Wine 8's answer to PowerGetActiveScheme,
// ERROR_CALL_NOT_IMPLEMENTED, which leaves the state empty.
TEST(PowerState, WindowsPlans) {
    const struct {
        std::optional<std::string> scheme;
        std::optional<int64_t> maxPercent;
        std::vector<std::string> causes;
    } rows[] = {
        {std::nullopt, std::nullopt, {}},
        {"8c5e7fda-e8bf-4a96-9a85-a6e23a8c635c", 100, {}},
        {"e9a42b02-d5df-448d-aa00-03f14749eb61", 100, {}},
        {"381b4222-f694-41f0-9685-ff5bb260df2e", 100, {"the power plan is Balanced"}},
        {"a1841308-3541-4fab-bc81-f71556f20b4a", 100, {"the power plan is Power saver"}},
        // An admin's own plan is named by nothing but its limit.
        {"0f4a6c3e-1b2d-4e5f-8a9b-0c1d2e3f4a5b",
         50,
         {"the power plan limits the processor to 50% of its clock"}},
    };
    for (const auto& row : rows) {
        PowerState state;
        state.powerScheme = row.scheme;
        state.maxProcessorStatePercent = row.maxPercent;
        EXPECT_EQ(likelyCauses(state, state), row.causes) << row.scheme.value_or("(none)");
    }
}

// Both averages at most the limit times the online CPUs, the limit itself included.
TEST(NodeLoad, IdleWhileBothAveragesStayWithinTheLimitPerCpu) {
    const struct {
        NodeLoad load;
        double maxPerCpu;
        std::optional<bool> idle;
        const char* text;
    } cases[] = {
        {{0.04, 0.10, 16},
         0.10,
         true,
         "idle: load 0.04 over 1 min and 0.10 over 5 min on 16 CPUs, at most 1.60 (0.10 per CPU)"},
        {{1.60, 1.60, 16}, 0.10, true, "idle: load 1.60 over 1 min"},
        {{29.0, 29.0, 100}, 0.29, true, "at most 29.00 (0.29 per CPU)"},
        {{1.61, 0.20, 16},
         0.10,
         false,
         "busy: load 1.61 over 1 min and 0.20 over 5 min on 16 CPUs, above 1.60 (0.10 per CPU)"},
        {{0.10, 1.61, 16}, 0.10, false, "busy: "},
        {{0.00, 0.00, 2}, 0.0, true, "idle: "},
        {{0.01, 0.00, 2}, 0.0, false, "busy: "},
        {{std::nullopt, 0.1, 2},
         0.10,
         std::nullopt,
         "cannot tell whether the node is idle: no load"},
        {{0.1, 0.1, std::nullopt}, 0.10, std::nullopt, "no count of its CPUs"},
        {{0.1, 0.1, 0}, 0.10, std::nullopt, "no count of its CPUs"},
    };
    for (const auto& c : cases) {
        const IdleVerdict verdict = idleVerdict(c.load, c.maxPerCpu);
        EXPECT_EQ(verdict.idle, c.idle) << c.text;
        EXPECT_NE(verdict.text.find(c.text), std::string::npos) << verdict.text;
    }
}

}  // namespace
