#include "node_weights.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>
#include <utility>

Weighing weighNodes(const std::vector<LoadedRecord>& records, const QString& test,
                    const std::optional<QSet<QString>>& nodes) {
    // A stale record of "all" must not stand for a host whose newest is of "All".
    std::map<QString, const LoadedRecord*> newest;
    for (const LoadedRecord& loaded : records) {
        if (loaded.record.test.compare(test, Qt::CaseInsensitive) != 0) {
            continue;
        }
        // An undisturbed record before any disturbed one.
        const LoadedRecord*& current = newest[loaded.record.host];
        if (current == nullptr ||
            std::make_tuple(!isDisturbed(loaded.record), loaded.record.startedAt, loaded.file) >
                std::make_tuple(!isDisturbed(current->record), current->record.startedAt,
                                current->file)) {
            current = &loaded;
        }
    }
    Weighing weighing;
    std::vector<std::pair<qint64, const Record*>> scored;  // thousandths of a PS, at most 1e15
    for (const auto& [host, loaded] : newest) {
        if (nodes && !nodes->contains(host)) {
            weighing.skipped << host + QStringLiteral(": not in the node list");
        } else if (isDisturbed(loaded->record)) {
            weighing.skipped << host + QStringLiteral(": every run of it was disturbed");
        } else if (!loaded->record.psResult) {
            weighing.skipped << host + QStringLiteral(": its record has no score");
        } else {
            scored.emplace_back(std::llround(*loaded->record.psResult * 1000), &loaded->record);
        }
    }
    // By host already; the fastest first.
    std::stable_sort(scored.begin(), scored.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    const char* const tiers[] = {"cb_fast", "cb_mid", "cb_slow"};
    for (size_t i = 0; i < scored.size(); ++i) {
        const qint64 fastest = scored.front().first;
        const qint64 milli = scored[i].first;
        // Rounded half up, and at least 100 as no node is faster than the fastest; 100 x 1e15
        // stays far below 2^63.
        const qint64 weight =
            milli > 0 ? (kFastestWeight * fastest + milli / 2) / milli : kMaxWeight;
        weighing.nodes.push_back({scored[i].second->host, *scored[i].second->psResult,
                                  std::min(weight, kMaxWeight),
                                  QLatin1String(tiers[3 * i / scored.size()])});
    }
    return weighing;
}
