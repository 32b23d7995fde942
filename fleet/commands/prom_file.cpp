#include "prom_file.h"

#include <QDir>
#include <QFileInfo>

#include "baseline.h"
#include "command_options.h"
#include "prom_export.h"
#include "record.h"
#include "record_files.h"
#include "safe_file.h"

namespace {

// Tests that end together on a node each merge their series into the one file; the lock lets
// each read what the other wrote. A writer holding it longer than this is stuck.
constexpr int kLockWaitMs = 10000;
constexpr qint64 kMaxPromBytes = 16 << 20;

}  // namespace

std::vector<Record> baselineHistory(const QString& records, const QString& host) {
    RecordLoad load = loadHostRecords(records, host);
    // The record is written already: what stands in the way of its baseline is said, not fatal.
    for (const QString& problem : load.problems) {
        printMessage(QStringLiteral("left out of the baseline: %1").arg(problem));
    }
    std::vector<Record> history;
    for (LoadedRecord& loaded : load.records) {
        history.push_back(std::move(loaded.record));
    }
    return history;
}

bool writePromFile(const Record& record, const std::vector<Record>& history,
                   const QString& promDir) {
    QString error;
    if (!makeFolders(promDir, &error)) {
        printMessage(error);
        return false;
    }
    const QString path = QDir(promDir).filePath(QStringLiteral("corebench.prom"));
    FileLock lock;
    if (!lock.lock(path + QStringLiteral(".lock"), kLockWaitMs, &error)) {
        printMessage(error);
        return false;
    }
    FileIdentity identity;
    std::optional<QByteArray> before = readRegularFile(path, kMaxPromBytes, &identity, &error);
    // A file of ours that cannot be read would lose the other tests' series; anything else there
    // (a link, a pipe) is not ours and is replaced, not followed.
    const QFileInfo info(path);
    if (!before && info.isFile() && !info.isSymLink()) {
        printMessage(QStringLiteral("%1: %2").arg(path, error));
        return false;
    }
    const QByteArray text = promText(record, baselineScore(record, history),
                                     before.value_or(QByteArray()), driftRatio(record, history));
    if (!replaceFile(path, text, &error)) {
        printMessage(error);
        return false;
    }
    return true;
}
