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
    if (!configuration_) {
        configuration_ = driftRunOf(record);
    } else if (!began_) {
        began_ = !sameConfiguration(*configuration_, record);
        if (record.corebenchSha256) {
            configuration_->corebenchSha256 = record.corebenchSha256;
        }
    }
}
