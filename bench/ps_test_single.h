#pragma once

// One benchmark worker: warms up with a third of its passes, times its measured passes and turns
// the mean time per pass into its score in PS.

#include <QString>
#include <QThread>
#include <atomic>
#include <cstdint>

#include "kernel_pass.h"
#include "pass_counts.h"

constexpr int32_t kDefaultMemoryRepeats = 2;
constexpr int32_t kDefaultBufferSize = 0xA00000;

// A pass scores 4600 / (milliseconds per pass) PS, so 46 ms per pass is 100 PS.
constexpr double kPsScale = 4600.0;
// The score when no time was measured (no passes, or all within one millisecond).
constexpr double kPsCeiling = 46000001.16205777;

// The thread that creates a worker sets passCount (and may change memoryRepeats) before starting
// it, and reads ps, measuredMs and passCount only after done has become true; while it runs,
// only done and progress are read. The worker writes nothing else that anyone reads.
class psTestSingle : public QThread {
    Q_OBJECT

  public:
    psTestSingle(int32_t workerIndex, bool verboseOutput);
    // Waits for the thread to leave run(), which it may still be doing just after setting done.
    ~psTestSingle() override;

    // Aligned to a cache line, so the object starts a line of its own and no other worker's
    // fields share a line with the ones this worker writes.
    alignas(64) std::atomic<bool> done;
    int32_t passCount;
    int32_t memoryRepeats;
    int32_t bufferSize;  // the size the buffers were allocated with; fixed
    int64_t measuredMs;
    int32_t index;
    int32_t reservedIndex;  // -1; nothing reads it
    double ps;
    std::atomic<float> progress;  // measured passes done / passCount
    bool verbose;
    QString name;  // nothing fills or reads it
    char* bufferA;
    char* bufferB;
    // Set by the thread that started the worker when its run is given up (another worker could
    // not be started); the worker then ends before its next pass, without a score.
    std::atomic<bool> stopRequested;

  protected:
    void run() override;
};

static_assert(std::atomic<float>::is_always_lock_free, "progress is polled while it is written");

// 4600 / mean ms per pass, or kPsCeiling when the mean is not above 0.
double psFromMeasurement(int64_t measuredMs, int32_t passCount);

using PassFunction = void (*)(const PassContext&, const int32_t&, const int32_t&);

// run() after its start delay: warm-up, measured passes and score, with pass standing in for
// kernelPass. Returns early, with done still false, once stopRequested is set.
void runWorkerPasses(psTestSingle& worker, PassFunction pass);
