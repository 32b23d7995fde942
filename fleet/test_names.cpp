#include "test_names.h"

#include "log_parser.h"

namespace {

struct TestName {
    const char* name;
    int runs;
};

constexpr TestName kTests[] = {
    {"All", 1},       {"AllVerbose", 1},       {"Single", 1},  {"SingleSpeed", 1},
    {"Single10", 10}, {"Single10Verbose", 10}, {"Single5", 5}, {"Single5Verbose", 5},
};

// Passes in the quiet tests: 10 with the speed flag (SingleSpeed only), else 130.
constexpr int kSpeedPasses = 10;

}  // namespace

QString canonicalTestName(const QString& name) {
    if (name.isEmpty()) {
        return QStringLiteral("All");
    }
    for (const TestName& test : kTests) {
        if (name.compare(QLatin1String(test.name), Qt::CaseInsensitive) == 0) {
            return QLatin1String(test.name);
        }
    }
    return QString();
}

int runsOfTest(const QString& canonicalName) {
    for (const TestName& test : kTests) {
        if (canonicalName == QLatin1String(test.name)) {
            return test.runs;
        }
    }
    return 1;
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
