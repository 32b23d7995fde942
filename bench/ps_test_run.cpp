#include "ps_test_run.h"

#include <QByteArray>
#include <cstdio>
#include <cstring>
#include <vector>

#include "cpu_report.h"
#include "result_text.h"
#include "time_helpers.h"

namespace {

// What one worker's PS is multiplied by to stand for a processor of logicalCpus: all of them,
// or with hyperthreading half of them, counted 1.2 times.
float singleCoreFactor(int32_t logicalCpus, bool hyperthreading) {
    const float cpus = static_cast<float>(logicalCpus);
    return hyperthreading ? cpus * 0.5f * 1.2f : cpus;
}

// Workers are created, given their counts and then started together after this pause.
constexpr int32_t kStartPauseMs = 200;
constexpr int32_t kPollIntervalMs = 500;

// At most kMaxWorkers, and at least one.
int32_t cappedThreadCount(int32_t threadCount) {
    if (threadCount > kMaxWorkers) {
        return kMaxWorkers;
    }
    return threadCount < 1 ? 1 : threadCount;
}

// The summed clock in GHz: measured, else per core, else estimated, else 0.
float totalClockGhz(const CpuInfo& info) {
    for (const int64_t mhz : {info.mhzSummedMeasured, info.mhzSummedPerCore, info.mhzSummed}) {
        const float ghz = static_cast<float>(mhz) / 1000.0f;
        if (ghz > 0.0f) {
            return ghz;
        }
    }
    return 0.0f;
}

// The steps both entry runs end with.
std::optional<float> finishEntry(const PsTestRun& run, std::optional<float> ps, QString& resultText,
                                 bool verbose, FixedString<10>* cpuName, float* totalClock) {
    if (!ps) {
        return ps;
    }
    resultText = run.resultText();
    RunOutput out(resultText, verbose);
    addPsResult(out, *ps);
    if (cpuName != nullptr) {
        const QByteArray latin1 = run.cpuName().toLatin1();
        const int length =
            latin1.size() < FixedString<10>::capacity ? latin1.size() : FixedString<10>::capacity;
        memcpy(cpuName->text, latin1.constData(), length);
        cpuName->setLength(static_cast<int16_t>(length));
    }
    if (totalClock != nullptr) {
        *totalClock = run.totalClock();
    }
    return ps;
}

}  // namespace

PsTestRun::PsTestRun(bool speed, WorkerStart startWorker)
    : threadCount_(1), totalClock_(0.0f), speed_(speed), startWorker_(std::move(startWorker)) {}

PsTestRun::~PsTestRun() = default;

std::optional<float> PsTestRun::runPsTest(int32_t& threadCount, bool verbose) {
    resultText_.clear();
    threadCount_ = cappedThreadCount(threadCount);
    threadCount = threadCount_;
    RunOutput out(resultText_, verbose);
    createWorkers(out, verbose);
    if (!startWorkers()) {
        stopWorkers();
        return std::nullopt;
    }
    waitForWorkers(out);
    return collectResults(out);
}

void PsTestRun::createWorkers(RunOutput& out, bool verbose) {
    out.record(QStringLiteral("CPU PS Test...\nCreating %1 threads\n").arg(threadCount_),
               "CPU PS Test...\nCreating %d threads\n", threadCount_);
    totalClock_ = 0.0f;
    for (int32_t i = 0; i < threadCount_; ++i) {
        workers_[i] = std::make_unique<psTestSingle>(i, verbose);
        out.show("t");
    }
    out.show("\npsTest: threads created\npsTest: starting threads - benchmark\n");
    for (int32_t i = 0; i < threadCount_; ++i) {
        workers_[i]->passCount = speed_ ? kSpeedPassCount : kDefaultPassCount;
        workers_[i]->memoryRepeats = kDefaultMemoryRepeats;
    }
}

// A worker that cannot be started would leave the run polling for ever, so the first failure
// ends the start: the workers already running are stopped instead.
bool PsTestRun::startWorkers() {
    sleepMs(kStartPauseMs);
    for (int32_t i = 0; i < threadCount_; ++i) {
        FixedString<250> error;
        if (!startWorker_(*workers_[i], error)) {
            fprintf(stderr, "corebench: worker thread %d of %d could not be started: %s\n", i,
                    threadCount_, error.text);
            return false;
        }
    }
    return true;
}

// Each started worker ends before its next pass; destroying it waits for that.
void PsTestRun::stopWorkers() {
    for (std::unique_ptr<psTestSingle>& worker : workers_) {
        if (worker != nullptr) {
            worker->stopRequested.store(true, std::memory_order_relaxed);
        }
    }
    for (std::unique_ptr<psTestSingle>& worker : workers_) {
        worker.reset();
    }
}

void PsTestRun::waitForWorkers(RunOutput& out) {
    out.show("\npsTest: waiting for results...");
    bool cpuInfoTaken = false;
    for (;;) {
        sleepMs(kPollIntervalMs);
        out.show(".");
        // Halfway through worker 0's measured passes every core is still loaded, so the clocks
        // read now are the clocks under load.
        if (!cpuInfoTaken && workers_[0]->progress.load(std::memory_order_acquire) > 0.5f) {
            takeCpuInfo(out);
            cpuInfoTaken = true;
        }
        out.flush();
        bool allDone = true;
        for (int32_t i = 0; i < threadCount_ && allDone; ++i) {
            allDone = workers_[i]->done.load(std::memory_order_acquire);
        }
        if (allDone) {
            break;
        }
    }
    out.show("\npsTest: all Threads done\n");
}

void PsTestRun::takeCpuInfo(RunOutput& out) {
    out.show("\npsTest: Calling cpuInfo\n");
    gatherCpuInfo(cpuInfo_);
    ReportText report;
    buildCpuInfoReport(report, cpuInfo_, false, false, true);
    out.report(report);
}

float PsTestRun::collectResults(RunOutput& out) {
    std::vector<WorkerResult> results;
    results.reserve(threadCount_);
    for (int32_t i = 0; i < threadCount_; ++i) {
        results.push_back({workers_[i]->ps, workers_[i]->measuredMs, workers_[i]->passCount});
    }
    const float total = addWorkerResults(out, results);
    for (std::unique_ptr<psTestSingle>& worker : workers_) {
        worker.reset();
    }
    totalClock_ = totalClockGhz(cpuInfo_);
    cpuName_ = QString::fromLatin1(cpuInfo_.shortName.text, cpuInfo_.shortName.length);
    return total;
}

std::optional<float> runAllCoresTest(QString& resultText, bool& verbose, FixedString<10>* cpuName,
                                     float* totalClock) {
    PsTestRun run(false);
    // The counts are read into a record of their own: the run's record stays unread until the
    // cores are loaded halfway through, so the clocks it reports are those under load and its
    // error log holds each failure once.
    CpuInfo counts;
    readCpuInfo(counts);
    int32_t threadCount = counts.logicalCpus;
    const std::optional<float> ps = run.runPsTest(threadCount, verbose);
    return finishEntry(run, ps, resultText, verbose, cpuName, totalClock);
}

std::optional<float> runSingleCoreTest(QString& resultText, bool& verbose, bool& speed,
                                       bool& scaleOneWorker, int32_t threadHint,
                                       FixedString<10>* cpuName, float* totalClock) {
    PsTestRun run(speed);
    int32_t logicalCpus = threadHint;
    bool hyperthreading = true;
    if (threadHint <= 0) {
        CpuInfo counts;
        readCpuInfo(counts);
        logicalCpus = counts.logicalCpus;
        hyperthreading = counts.hyperthreading;
    }
    std::optional<float> ps;
    if (scaleOneWorker) {
        int32_t one = 1;
        ps = run.runPsTest(one, verbose);
        if (ps) {
            *ps *= singleCoreFactor(logicalCpus, hyperthreading);
        }
    } else {
        ps = run.runPsTest(logicalCpus, verbose);
    }
    return finishEntry(run, ps, resultText, verbose, cpuName, totalClock);
}
