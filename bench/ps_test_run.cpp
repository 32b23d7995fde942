#include "ps_test_run.h"

#include <QByteArray>
#include <cstdio>
#include <cstring>

#include "cpu_report.h"
#include "time_helpers.h"

namespace {

// Workers are created, given their counts and then started together after this pause.
constexpr int32_t kStartPauseMs = 200;
constexpr int32_t kPollIntervalMs = 500;
// A total below this is reported as this.
constexpr float kMinimumTotalPs = 2.0f;

QString groupedMagnitude(uint64_t magnitude) {
    if (magnitude <= 1000) {
        return QString::number(magnitude);
    }
    return QStringLiteral("%1 %2")
        .arg(groupedMagnitude(magnitude / 1000))
        .arg(magnitude % 1000, 3, 10, QLatin1Char('0'));
}

// The steps both entry runs end with.
float finishEntry(const PsTestRun& run, float ps, QString& resultText, bool verbose,
                  FixedString<10>* cpuName, float* totalClock) {
    resultText = run.resultText;
    if (verbose) {
        printf("psTest: PS_Result: %5.3f\n", static_cast<double>(ps));
    }
    resultText += QStringLiteral("PS_Result: %1").arg(static_cast<double>(ps), 5, 'f', 3);
    if (cpuName != nullptr) {
        const QByteArray latin1 = run.cpuName.toLatin1();
        const int length =
            latin1.size() < FixedString<10>::capacity ? latin1.size() : FixedString<10>::capacity;
        memcpy(cpuName->text, latin1.constData(), length);
        cpuName->setLength(static_cast<int16_t>(length));
    }
    if (totalClock != nullptr) {
        *totalClock = run.totalClock;
    }
    return ps;
}

}  // namespace

int32_t cappedThreadCount(int32_t wanted) {
    if (wanted > kMaxWorkers) {
        return kMaxWorkers;
    }
    return wanted < 1 ? 1 : wanted;
}

float singleCoreFactor(int32_t logicalCpus, bool hyperthreading) {
    const float cpus = static_cast<float>(logicalCpus);
    return hyperthreading ? cpus * 0.5f * 1.2f : cpus;
}

float addWorkerResults(QString& text, const std::vector<WorkerResult>& results, bool verbose) {
    float total = 0.0f;
    for (size_t i = 0; i < results.size(); ++i) {
        const WorkerResult& result = results[i];
        if (verbose) {
            printf("psTest: adding thread %d: %5.3f\n", static_cast<int>(i), result.ps);
        }
        text += QStringLiteral("adding thread %1: %2PS (%3 ms, %4 loops)\n")
                    .arg(i)
                    .arg(result.ps, 5, 'f', 3)
                    .arg(formatGroupedNumber(result.measuredMs, false))
                    .arg(result.passCount);
        total = static_cast<float>(static_cast<double>(total) + result.ps);
    }
    if (total < kMinimumTotalPs) {
        total = kMinimumTotalPs;
    }
    const float average = total / static_cast<float>(results.size());
    if (verbose) {
        printf("psTest: totalSpeed %5.3f PS   (Average per core:  %5.3f PS)\n",
               static_cast<double>(total), static_cast<double>(average));
    }
    text += QStringLiteral("=totalSpeed %1 PS (Average per core: %2 PS)\n")
                .arg(static_cast<double>(total), 5, 'f', 3)
                .arg(static_cast<double>(average), 5, 'f', 3);
    return total;
}

float totalClockGhz(const CpuInfo& info) {
    for (const int64_t mhz : {info.mhzSummedMeasured, info.mhzSummedPerCore, info.mhzSummed}) {
        const float ghz = static_cast<float>(mhz) / 1000.0f;
        if (ghz > 0.0f) {
            return ghz;
        }
    }
    return 0.0f;
}

QString formatGroupedNumber(int64_t value, bool showPlus) {
    const uint64_t magnitude =
        value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    const QString sign = value < 0 ? QStringLiteral("-") : QString(showPlus ? " " : "");
    return sign + groupedMagnitude(magnitude);
}

PsTestRun::PsTestRun() : threadCount(1), totalClock(0.0f), speed(false) {}

float PsTestRun::runPsTest(int32_t& wanted, bool verbose) {
    createWorkers(wanted, verbose);
    startWorkers();
    waitForWorkers(verbose);
    return collectResults(verbose);
}

void PsTestRun::createWorkers(int32_t& wanted, bool verbose) {
    resultText.clear();
    threadCount = cappedThreadCount(wanted);
    wanted = threadCount;
    if (verbose) {
        printf("CPU PS Test...\nCreating %d threads\n", threadCount);
    }
    resultText += QStringLiteral("CPU PS Test...\nCreating %1 threads\n").arg(threadCount);
    totalClock = 0.0f;
    for (int32_t i = 0; i < threadCount; ++i) {
        workers[i] = std::make_unique<psTestSingle>(i, verbose);
        if (verbose) {
            putchar('t');
        }
    }
    if (verbose) {
        putchar('\n');
        puts("psTest: threads created");
        puts("psTest: starting threads - benchmark");
    }
    for (int32_t i = 0; i < threadCount; ++i) {
        workers[i]->passCount = speed ? kSpeedPassCount : kDefaultPassCount;
        workers[i]->memoryRepeats = kDefaultMemoryRepeats;
    }
}

void PsTestRun::startWorkers() {
    sleepMs(kStartPauseMs);
    for (int32_t i = 0; i < threadCount; ++i) {
        workers[i]->start(QThread::InheritPriority);
    }
}

void PsTestRun::waitForWorkers(bool verbose) {
    if (verbose) {
        putchar('\n');
        printf("psTest: waiting for results...");
    }
    bool cpuInfoTaken = false;
    for (;;) {
        sleepMs(kPollIntervalMs);
        if (verbose) {
            putchar('.');
        }
        // Halfway through worker 0's measured passes every core is still loaded, so the clocks
        // read now are the clocks under load.
        if (!cpuInfoTaken && workers[0]->progress.load(std::memory_order_acquire) > 0.5f) {
            takeCpuInfo(verbose);
            cpuInfoTaken = true;
        }
        bool allDone = true;
        for (int32_t i = 0; i < threadCount && allDone; ++i) {
            allDone = workers[i]->done.load(std::memory_order_acquire);
        }
        if (allDone) {
            break;
        }
    }
    if (verbose) {
        putchar('\n');
        puts("psTest: all Threads done");
    }
}

void PsTestRun::takeCpuInfo(bool verbose) {
    if (verbose) {
        puts("\npsTest: Calling cpuInfo");
    }
    gatherCpuInfo(cpuInfo);
    if (verbose) {
        printCpuInfoReport(cpuInfo, false, false, true);
        return;
    }
    ReportText report;
    buildCpuInfoReport(report, cpuInfo, false, false, true);
    resultText += QString::fromLatin1(report.text, report.length);
}

float PsTestRun::collectResults(bool verbose) {
    std::vector<WorkerResult> results;
    results.reserve(threadCount);
    for (int32_t i = 0; i < threadCount; ++i) {
        results.push_back({workers[i]->ps, workers[i]->measuredMs, workers[i]->passCount});
    }
    const float total = addWorkerResults(resultText, results, verbose);
    for (std::unique_ptr<psTestSingle>& worker : workers) {
        worker.reset();
    }
    totalClock = totalClockGhz(cpuInfo);
    cpuName = QString::fromLatin1(cpuInfo.shortName.text, cpuInfo.shortName.length);
    return total;
}

float runAllCoresTest(QString& resultText, bool& verbose, FixedString<10>* cpuName,
                      float* totalClock) {
    PsTestRun run;
    // The counts are read into a record of their own: the run's record stays unread until the
    // cores are loaded halfway through, so the clocks it reports are those under load and its
    // error log holds each failure once.
    CpuInfo counts;
    readCpuInfo(counts);
    int32_t threadCount = counts.logicalCpus;
    const float ps = run.runPsTest(threadCount, verbose);
    return finishEntry(run, ps, resultText, verbose, cpuName, totalClock);
}

float runSingleCoreTest(QString& resultText, bool& verbose, bool& speed, bool& single,
                        int32_t threadHint, FixedString<10>* cpuName, float* totalClock) {
    PsTestRun run;
    int32_t logicalCpus = threadHint;
    bool hyperthreading = true;
    if (threadHint <= 0) {
        CpuInfo counts;
        readCpuInfo(counts);
        logicalCpus = counts.logicalCpus;
        hyperthreading = counts.hyperthreading;
    }
    run.speed = speed;
    float ps = 0.0f;
    if (single) {
        int32_t one = 1;
        ps = run.runPsTest(one, verbose) * singleCoreFactor(logicalCpus, hyperthreading);
    } else {
        ps = run.runPsTest(logicalCpus, verbose);
    }
    return finishEntry(run, ps, resultText, verbose, cpuName, totalClock);
}
