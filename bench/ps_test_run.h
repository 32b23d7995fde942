#pragma once

// The two runs the driver can start. Both return the measured PS and write the run's result text
// into resultText; cpuName (up to 10 Latin-1 characters) and totalClock (GHz) are filled when
// given.

#include <QString>
#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "cpu_info.h"
#include "fixed_string.h"
#include "ps_test_single.h"

// One worker per logical CPU.
float runAllCoresTest(QString& resultText, bool& verbose, FixedString<10>* cpuName,
                      float* totalClock);

// One worker (single set) scaled to the whole processor, or one worker per CPU (single clear).
// A threadHint above 0 stands in for the logical CPU count and implies hyperthreading.
float runSingleCoreTest(QString& resultText, bool& verbose, bool& speed, bool& single,
                        int32_t threadHint, FixedString<10>* cpuName, float* totalClock);

constexpr int32_t kMaxWorkers = 550;
constexpr int32_t kSpeedPassCount = 10;

// One measured worker as the result text reports it.
struct WorkerResult {
    double ps;
    int64_t measuredMs;
    int32_t passCount;
};

// At most kMaxWorkers, and at least one.
int32_t cappedThreadCount(int32_t wanted);

// What one worker's PS is multiplied by to stand for a processor of logicalCpus: all of them,
// or with hyperthreading half of them, counted 1.2 times.
float singleCoreFactor(int32_t logicalCpus, bool hyperthreading);

// Prints (verbose) and appends one "adding thread" line per worker and the "=totalSpeed" line;
// returns the summed PS, at least 2.0. results holds at least one worker.
float addWorkerResults(QString& text, const std::vector<WorkerResult>& results, bool verbose);

// The summed clock in GHz: measured, else per core, else estimated, else 0.
float totalClockGhz(const CpuInfo& info);

// Groups of three digits separated by blanks, magnitudes up to 1000 written plain ("1000",
// "5 980", "1000 500"); negative values start with "-", others with " " when showPlus.
QString formatGroupedNumber(int64_t value, bool showPlus);

// One run of workers, used for a single runPsTest. runPsTest goes through the public steps below
// in order; they are separate so that the result text can be checked without running threads.
class PsTestRun {
  public:
    PsTestRun();

    // Runs min(threadCount, kMaxWorkers) workers and returns their summed PS; threadCount is set
    // to the number run. Leaves resultText, totalClock and cpuName.
    float runPsTest(int32_t& threadCount, bool verbose);

    // Starts the result text and creates the workers with their pass counts.
    void createWorkers(int32_t& threadCount, bool verbose);
    // Pauses, then starts every worker.
    void startWorkers();
    // Polls until every worker is done, taking the CPU information once worker 0 is halfway.
    void waitForWorkers(bool verbose);
    // Refreshes the CPU information and prints its report (verbose) or appends it to the text.
    void takeCpuInfo(bool verbose);
    // Adds up the finished workers, destroys them and fills totalClock and cpuName.
    float collectResults(bool verbose);

    int32_t threadCount;
    std::array<std::unique_ptr<psTestSingle>, kMaxWorkers> workers;
    QString resultText;
    float totalClock;
    QString cpuName;
    CpuInfo cpuInfo;
    bool speed;
};
