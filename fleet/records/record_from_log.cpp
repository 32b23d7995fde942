#include "record_from_log.h"

#include <cmath>

#include "log_parser.h"
#include "test_names.h"

namespace {

// Scores are printed with three decimals.
double roundTo3(double value) {
    return std::round(value * 1000.0) / 1000.0;
}

}  // namespace

Record recordFromLog(const ParsedLog& log, const RecordOrigin& origin, QString* warning) {
    Record record;
    record.host = origin.host;
    record.test = origin.test;
    record.startedAt = origin.startedAt.toUTC();
    record.durationS = origin.durationS;
    record.status = origin.status;
    record.corebenchSha256 = origin.corebenchSha256;
    record.source = origin.source;
    record.threadPs = log.threadPs;
    record.exitValue = log.exitValue;
    record.cpuModel = log.cpuDescription;
    record.logicalCpus = log.logicalCpus;
    record.physicalCpus = log.physicalCpus;
    record.hyperthreading = log.hyperthreading;
    record.mhzCurrent = log.mhzCurrent;
    record.mhzMax = log.mhzMax;
    record.ramGib = log.ramGib;
    record.os = log.os;
    record.errors = log.errors;
    warning->clear();
    const int runs = runsOfTest(origin.test);
    if (runs == 1) {
        record.psResult = log.psResult;
    } else if (log.verboseRunPs.size() == runs) {
        record.psResult = roundTo3(meanOfRunScores(log.verboseRunPs));
    } else {
        *warning = QStringLiteral(
                       "%1 prints only its last run's score, not the mean of its %2 runs: the "
                       "record's ps_result is null (the verbose form prints every run)")
                       .arg(origin.test)
                       .arg(runs);
    }
    return record;
}
