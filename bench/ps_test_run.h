#pragma once

// The two runs the driver can start. Both return the measured PS and write the run's result text
// into resultText; cpuName (up to 10 Latin-1 characters) and totalClock (GHz) are filled when
// given. They return nothing when a worker could not be started: the run has then said why on
// standard error and stopped the workers that did start.

#include <QString>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "cpu_info.h"
#include "fixed_string.h"
#include "ps_test_single.h"
#include "thread_start.h"

class RunOutput;

// One worker per logical CPU.
std::optional<float> runAllCoresTest(QString& resultText, bool& verbose, FixedString<10>* cpuName,
                                     float* totalClock);

// One worker scaled to the whole processor (scaleOneWorker set), or one worker per logical CPU.
// speed runs 10 measured passes instead of 130. A threadHint above 0 stands in for the logical
// CPU count and implies hyperthreading.
std::optional<float> runSingleCoreTest(QString& resultText, bool& verbose, bool& speed,
                                       bool& scaleOneWorker, int32_t threadHint,
                                       FixedString<10>* cpuName, float* totalClock);

constexpr int32_t kMaxWorkers = 550;

// Starts a created worker's thread; false, with the system's text in error, when it could not.
using WorkerStart = std::function<bool(psTestSingle& worker, FixedString<250>& error)>;

// One run of workers, used for a single runPsTest.
class PsTestRun {
  public:
    // Tests start workers their own way; the program starts their threads.
    explicit PsTestRun(bool speed, WorkerStart startWorker = startWorkerThread);
    ~PsTestRun();

    // Runs min(threadCount, kMaxWorkers) workers, at least one, and returns their summed PS;
    // threadCount is set to the number run. Nothing when a worker could not be started.
    std::optional<float> runPsTest(int32_t& threadCount, bool verbose);

    const QString& resultText() const { return resultText_; }
    float totalClock() const { return totalClock_; }
    const QString& cpuName() const { return cpuName_; }

  private:
    void createWorkers(RunOutput& out, bool verbose);
    bool startWorkers();
    void stopWorkers();
    void waitForWorkers(RunOutput& out);
    void takeCpuInfo(RunOutput& out);
    float collectResults(RunOutput& out);

    int32_t threadCount_;
    std::array<std::unique_ptr<psTestSingle>, kMaxWorkers> workers_;
    QString resultText_;
    float totalClock_;
    QString cpuName_;
    CpuInfo cpuInfo_;
    bool speed_;
    WorkerStart startWorker_;
};
