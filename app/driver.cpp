#include "driver.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QString>
#include <QSysInfo>
#include <clocale>
#include <cstdio>
#include <optional>

#include "command_line.h"
#include "exit_code.h"
#include "filler.h"
#include "os_query.h"
#include "ps_test_run.h"
#include "standard_output.h"
#include "system_error.h"
#include "system_summary.h"
#include "test_table.h"
#include "time_helpers.h"
#include "usage.h"
#include "wrap_int32.h"

namespace {

constexpr int kMaxRuns = 10;

void printTimeStamp() {
    FixedString<50> text;
    formatTimeStamp(text, TimeStamp(true));
    puts(text.text);
}

void printFiller(const FillerRequest& filler) {
    if (filler.loremIpsum) {
        printLoremIpsum();
    }
    if (filler.blenderLog) {
        printBlenderLog();
    }
    if (filler.houdiniLog) {
        printHoudiniLog();
    }
}

// Runs the test as often as it asks, keeping each run's PS in run order; resultText holds the
// last run's text afterwards. False as soon as a run could not start its workers (it has said so)
// or the output of the run before could not be written.
bool runTest(const TestEntry& test, QString& resultText, float* ps) {
    for (int i = 0; i < test.runs; ++i) {
        // Each run's lines reach the output before the next one starts.
        if (i > 0 && !flushStandardOutput()) {
            return false;
        }
        // The runs take the flags by reference, so they are set afresh before every call.
        bool verbose = test.verbose;
        bool speed = test.passes == kSpeedPassCount;
        bool scaleOneWorker = test.scaleOneWorker;
        const std::optional<float> score =
            test.allCores ? runAllCoresTest(resultText, verbose, nullptr, nullptr)
                          : runSingleCoreTest(resultText, verbose, speed, scaleOneWorker, -1,
                                              nullptr, nullptr);
        if (!score) {
            return false;
        }
        ps[i] = *score;
    }
    return true;
}

// The status of a run whose output could not be written, after one line on stderr that says why.
int outputFailed() {
    fprintf(stderr, "corebench: cannot write standard output: %s\n",
            systemErrorText(static_cast<uint32_t>(standardOutputError())).text);
    return kOutputFailedStatus;
}

// Stops a run that cannot go on: its output failed, or a run could not start its workers.
int stopped() {
    return flushStandardOutput() ? kRunFailedStatus : outputFailed();
}

}  // namespace

int32_t coreTimeProduct(int32_t elapsedMs, int32_t threadCount) {
    // Unsigned multiplication wraps by definition, without signed overflow.
    return wrapToInt32(static_cast<uint32_t>(elapsedMs) * static_cast<uint32_t>(threadCount));
}

int runCorebench(int argc, char** argv) {
    if (!prepareStandardOutput()) {
        return outputFailed();
    }
    QCoreApplication application(argc, argv);
    // On Unix the application object installs the user's locale for every category, which would
    // make printf("%5.3f") write a decimal comma (de_DE, fr_FR, ...). Scores must always be
    // written with a full stop, so the numeric category goes back to "C".
    setlocale(LC_NUMERIC, "C");

    const OsQuery& os = systemOsQuery();
    // Only the logical count is used; the physical one is asked for all the same, so the OS is
    // queried the same way on every platform.
    int32_t physicalCpus = 0;
    int32_t logicalCpus = 0;
    const char* fallback = nullptr;
    os.physicalCpus(&physicalCpus, &fallback);
    os.logicalCpus(&logicalCpus);
    const int32_t threadCount = threadCountFrom(logicalCpus);

    // No separator between the two parts: "macos11.3".
    const QByteArray operatingSystem =
        (QSysInfo::productType() + QSysInfo::productVersion()).toUtf8();

    // Every phase's lines reach the output before the next phase starts, so that a run stopped
    // from outside keeps them, and a write that fails stops the run at once.
    printTimeStamp();
    printSystemSummary(operatingSystem.constData(), threadCount, os);
    if (!flushStandardOutput()) {
        return outputFailed();
    }

    const CommandWords words = readCommandWords(argc, argv);
    printFiller(scanFillerKeywords(argc, argv));
    if (!flushStandardOutput()) {
        return outputFailed();
    }

    // Started after the summary and filler, so it times the test runs only.
    Stopwatch stopwatch;

    const TestEntry* test = findTest(words.testName);
    if (test == nullptr) {
        printUsage();
        return flushStandardOutput() ? 0 : outputFailed();
    }

    float ps[kMaxRuns] = {};
    QString resultText;
    if (!runTest(*test, resultText, ps)) {
        return stopped();
    }
    const int32_t elapsedMs = stopwatch.elapsedMs();
    if (!flushStandardOutput()) {
        return outputFailed();
    }
    puts(resultText.toLatin1().constData());

    int32_t value = 0;
    if (words.thresholdKeyword.equalsIgnoreCase("exitCodeThreshold")) {
        value = exitValue(meanOfRuns(ps, test->runs), dividerFrom(words.divider.text));
        printf("Returning exit code %d\n", value);
    }

    putchar('\n');
    printf("Time_Exec: %d sec\n", elapsedMs / 1000);
    printf("Core*Time: %d\n", coreTimeProduct(elapsedMs, threadCount));
    printTimeStamp();

    const int exitCode = exitCodeFor(value);
    const bool written = flushStandardOutput();
    fflush(stderr);
    return written ? exitCode : outputFailed();
}
