#include "compare_reading.h"

#include "fleet_compare.h"

bool CompareReading::operator()(const std::vector<LoadedRecord>& newestFirst) {
    for (; seen_ < newestFirst.size(); ++seen_) {
        add(newestFirst[seen_].record);
    }
    return !(judged_ && (scored_ >= kCompareDriftRuns || (began_ && scored_ >= kCvRuns)));
}

void CompareReading::add(const Record& record) {
    if (isDisturbed(record)) {
        return;
    }
    judged_ = true;
    if (!record.psResult) {
        return;
    }
    ++scored_;
    if (!newest_) {
        newest_ = true;
        cpuModel_ = record.cpuModel;
        logicalCpus_ = record.logicalCpus;
        build_ = record.corebenchSha256;
    } else if (!began_) {
        // As configurationSegments cuts them: a run that names no build matches any.
        began_ = record.cpuModel != cpuModel_ || record.logicalCpus != logicalCpus_ ||
                 (record.corebenchSha256 && build_ && *record.corebenchSha256 != *build_);
        if (record.corebenchSha256) {
            build_ = record.corebenchSha256;
        }
    }
}
