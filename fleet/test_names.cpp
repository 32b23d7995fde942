#include "test_names.h"

#include "log_parser.h"
#include "test_table.h"

namespace {

// Passes in the quiet tests: 10 with the speed flag (SingleSpeed only), else 130.
constexpr int kSpeedPasses = 10;

// The test corebench would run for this word: the driver's own table and matching.
const TestSpec* testNamed(const QString& name) {
    FixedString<100> word;
    word.assign(name.toLatin1().constData());
    return findTest(word);
}

}  // namespace

QString canonicalTestName(const QString& name) {
    const TestSpec* test = testNamed(name);
    return test != nullptr ? QString::fromLatin1(test->name) : QString();
}

int runsOfTest(const QString& canonicalName) {
    const TestSpec* test = testNamed(canonicalName);
    return test != nullptr ? test->runs : 1;
}

QString inferTestName(const ParsedLog& log) {
    if (!log.threadPasses.isEmpty() && log.threadPasses.first() == kSpeedPasses) {
        return QStringLiteral("SingleSpeed");
    }
    if (log.verbose) {
        // There is no one-run verbose single-core test.
        const int runs = log.verboseRunPs.size();
        return runs >= 10  ? QStringLiteral("Single10Verbose")
               : runs >= 5 ? QStringLiteral("Single5Verbose")
                           : QStringLiteral("AllVerbose");
    }
    const int cpus = log.logicalCpus.value_or(log.summaryThreads.value_or(1));
    if (log.threadPs.size() > 1 || cpus <= 1) {
        // On one logical CPU the quiet single-core run prints what All prints; All is the default.
        return QStringLiteral("All");
    }
    // One run takes its measured time, a third more for the warm-up, and about 0.7 s of sleeps
    // and polling; the driver's Time_Exec covers every run.
    if (log.timeExecS && !log.threadMs.isEmpty() && log.threadMs.first() > 0) {
        const double oneRunMs = static_cast<double>(log.threadMs.first()) * 4.0 / 3.0 + 700.0;
        const double runs = static_cast<double>(*log.timeExecS) * 1000.0 / oneRunMs;
        if (runs >= 7.5) {
            return QStringLiteral("Single10");
        }
        if (runs >= 2.5) {
            return QStringLiteral("Single5");
        }
    }
    return QStringLiteral("Single");
}
