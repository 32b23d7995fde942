#include "test_names.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "log_parser.h"
#include "test_table.h"

namespace {

// The test corebench would run for this word: the driver's own table and matching.
const TestEntry* testNamed(const QString& name) {
    FixedString<100> word;
    word.assign(name.toLatin1().constData());
    // A name the word does not hold whole (too long, a NUL in it, not Latin-1) names no test.
    if (QString::fromLatin1(word.text) != name) {
        return nullptr;
    }
    return findTest(word);
}

// How many runs the log's test made, judged by its duration: one run takes its measured time, a
// third more for the warm-up, and about 0.7 s of sleeps and polling; Time_Exec covers every run.
double runsByDuration(const ParsedLog& log) {
    if (!log.timeExecS || log.threadMs.isEmpty() || log.threadMs.first() <= 0) {
        return 1.0;
    }
    const double oneRunMs = static_cast<double>(log.threadMs.first()) * 4.0 / 3.0 + 700.0;
    return static_cast<double>(*log.timeExecS) * 1000.0 / oneRunMs;
}

}  // namespace

QString canonicalTestName(const QString& name) {
    const TestEntry* test = testNamed(name);
    return test != nullptr ? QString::fromLatin1(test->name) : QString();
}

int runsOfTest(const QString& canonicalName) {
    const TestEntry* test = testNamed(canonicalName);
    return test != nullptr ? test->runs : 1;
}

double meanOfRunScores(const QVector<double>& ps) {
    const std::vector<float> scores(ps.begin(), ps.end());
    return static_cast<double>(meanOfRuns(scores.data(), static_cast<int>(scores.size())));
}

QString inferTestName(const ParsedLog& log) {
    // What the log shows of how the test ran: its passes, whether it is verbose, how many
    // workers it had and how many runs it made (verbose runs each print their score).
    const int passes = log.threadPasses.isEmpty() ? kDefaultPassCount : log.threadPasses.first();
    const double runs = log.verbose
                            ? static_cast<double>(std::max<qsizetype>(1, log.verboseRunPs.size()))
                            : runsByDuration(log);
    // On one logical CPU the single-core run prints what the all-cores run prints.
    const int cpus = log.logicalCpus.value_or(log.summaryThreads.value_or(1));
    const bool allCoresOnly = log.threadPs.size() > 1;
    const bool singleCoreOnly = !allCoresOnly && cpus > 1;
    // The first of the table's tests that ran like that, with the nearest number of runs: All
    // comes first, so it wins where nothing tells the tests apart, as corebench's default.
    const TestEntry* best = nullptr;
    for (const TestEntry& test : allTests()) {
        if (test.verbose != log.verbose || test.passes != passes ||
            (allCoresOnly && !test.allCores) || (singleCoreOnly && test.allCores)) {
            continue;
        }
        if (best == nullptr || std::abs(test.runs - runs) < std::abs(best->runs - runs)) {
            best = &test;
        }
    }
    return best != nullptr ? QString::fromLatin1(best->name) : QStringLiteral("All");
}
