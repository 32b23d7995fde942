#include "ps_test_single.h"

#include <cstdio>
#include <cstdlib>

#include "time_helpers.h"

namespace {

// Long enough for every worker of a run to be started before the first one measures.
constexpr int32_t kStartDelayMs = 250;

PassContext passContext(const psTestSingle& worker, bool verbose) {
    return PassContext{worker.index,      verbose,        worker.memoryRepeats,
                       worker.bufferSize, worker.bufferA, worker.bufferB};
}

}  // namespace

// The buffers are zeroed, so the first copy reads defined bytes; calloc maps them untouched, as
// malloc would, so creating hundreds of workers costs no memory until they run.
psTestSingle::psTestSingle(int32_t workerIndex, bool verboseOutput)
    : QThread(nullptr),
      done(false),
      passCount(kDefaultPassCount),
      memoryRepeats(kDefaultMemoryRepeats),
      bufferSize(kDefaultBufferSize),
      measuredMs(0),
      index(workerIndex),
      reservedIndex(-1),
      ps(0.0),
      progress(0.0f),
      verbose(verboseOutput),
      bufferA(static_cast<char*>(calloc(kDefaultBufferSize, 1))),
      bufferB(static_cast<char*>(calloc(kDefaultBufferSize, 1))),
      stopRequested(false) {}

psTestSingle::~psTestSingle() {
    wait();
    free(bufferA);
    free(bufferB);
}

void psTestSingle::run() {
    sleepMs(kStartDelayMs);
    runWorkerPasses(*this, kernelPass);
}

double psFromMeasurement(int64_t measuredMs, int32_t passCount) {
    if (passCount == 0) {
        return kPsCeiling;
    }
    const double mean = static_cast<double>(measuredMs) / passCount;
    return mean > 0.0 ? kPsScale / mean : kPsCeiling;
}

void runWorkerPasses(psTestSingle& worker, PassFunction pass) {
    worker.done.store(false, std::memory_order_release);
    worker.progress.store(0.0f, std::memory_order_release);
    worker.measuredMs = 0;
    worker.ps = 0.0;

    // The warm-up never prints.
    const PassContext warmUp = passContext(worker, false);
    const int32_t warmTotal = worker.passCount / 3;
    if (worker.passCount >= 3) {
        for (int32_t passNumber = 1; passNumber <= warmTotal; ++passNumber) {
            if (worker.stopRequested.load(std::memory_order_relaxed)) {
                return;
            }
            pass(warmUp, passNumber, warmTotal);
        }
    }
    const bool printing = worker.verbose && worker.index == 0;
    if (printing) {
        puts("\n      t0:**********preheat done**********");
    }

    const PassContext measured = passContext(worker, worker.verbose);
    const int32_t passCount = worker.passCount;
    const Stopwatch stopwatch;
    for (int32_t passNumber = 1; passNumber <= passCount; ++passNumber) {
        if (worker.stopRequested.load(std::memory_order_relaxed)) {
            return;
        }
        pass(measured, passNumber, passCount);
        worker.progress.store(static_cast<float>(passNumber) / static_cast<float>(passCount),
                              std::memory_order_release);
    }
    worker.measuredMs = stopwatch.elapsedMs();

    if (printing) {
        printf("      totalTime %5.3f\n",
               static_cast<double>(static_cast<float>(worker.measuredMs) / 1000.0f));
    }
    worker.ps = psFromMeasurement(worker.measuredMs, passCount);
    worker.done.store(true, std::memory_order_release);
}
