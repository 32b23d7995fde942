#include "driver.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QString>
#include <QSysInfo>
#include <clocale>
#include <cstdio>

#include "command_line.h"
#include "exit_code.h"
#include "filler.h"
#include "os_query.h"
#include "ps_test_run.h"
#include "system_summary.h"
#include "test_table.h"
#include "time_helpers.h"
#include "usage.h"

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
// last run's text afterwards.
void runTest(const TestSpec& test, QString& resultText, float* ps) {
    for (int i = 0; i < test.runs; ++i) {
        // The runs take the flags by reference, so they are set afresh before every call.
        bool verbose = test.verbose;
        bool speed = test.speed;
        bool single = test.single;
        ps[i] = test.allCores
                    ? runAllCoresTest(resultText, verbose, nullptr, nullptr)
                    : runSingleCoreTest(resultText, verbose, speed, single, -1, nullptr, nullptr);
    }
}

}  // namespace

int32_t coreTimeProduct(int32_t elapsedMs, int32_t threadCount) {
    // Unsigned multiplication wraps by definition; the conversion back keeps the low 32 bits.
    return static_cast<int32_t>(static_cast<uint32_t>(elapsedMs) *
                                static_cast<uint32_t>(threadCount));
}

int runCorebench(int argc, char** argv) {
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

    printTimeStamp();
    printSystemSummary(operatingSystem.constData(), threadCount, os);

    const CommandWords words = readCommandWords(argc, argv);
    printFiller(scanFillerKeywords(argc, argv));

    // Started after the summary and filler, so it times the test runs only.
    Stopwatch stopwatch;

    const TestSpec* test = findTest(words.testName);
    if (test == nullptr) {
        printUsage();
        return 0;
    }

    float ps[kMaxRuns] = {};
    QString resultText;
    runTest(*test, resultText, ps);
    const int32_t elapsedMs = stopwatch.elapsedMs();
    puts(resultText.toLatin1().constData());

    int32_t value = 0;
    if (words.thresholdKeyword.equalsIgnoreCase("exitCodeThreshold")) {
        value = exitValue(exitCodePs(ps, test->runs), dividerFrom(words.divider.text));
        printf("Returning exit code %d\n", value);
    }

    putchar('\n');
    printf("Time_Exec: %d sec\n", elapsedMs / 1000);
    printf("Core*Time: %d\n", coreTimeProduct(elapsedMs, threadCount));
    printTimeStamp();

    const int exitCode = exitCodeFor(value);
    fflush(stdout);
    fflush(stderr);
    return exitCode;
}
