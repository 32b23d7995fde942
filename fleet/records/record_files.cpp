#include "record_files.h"

#include <QDir>
#include <QFileInfo>
#include <algorithm>
#include <set>
#include <tuple>
#include <utility>

#include "record_json.h"
#include "record_names.h"
#include "safe_file.h"

namespace {

// What orders records, before their files' names: the start, then the number a rerun of the
// same second took.
using OrderKey = std::pair<qint64, int>;

OrderKey orderKey(const LoadedRecord& loaded) {
    return {loaded.record.startedAt.toMSecsSinceEpoch(), copyNumberOf(loaded.file)};
}

class Loader {
  public:
    explicit Loader(const QDateTime& now, const WriterTrust* trust = nullptr,
                    const QStringList& ownFiles = QStringList())
        : now_(now), trust_(trust) {
        for (const QString& path : ownFiles) {
            ownFiles_.insert(absolute(path));
        }
    }

    // Reads one record file; a record of another host than expectedHost, when one is given, is
    // a problem. Nothing when the file gave no record or was read already.
    std::optional<Record> read(const QString& path, const QString& expectedHost) {
        FileIdentity identity;
        QString error;
        const std::optional<QByteArray> bytes =
            readRegularFile(path, kMaxRecordBytes, &identity, &error, trust_);
        if (!bytes) {
            problem(path, error);
            return std::nullopt;
        }
        // A record named twice (a folder and a file in it) still counts once.
        if (!seen_.insert(identity).second) {
            return std::nullopt;
        }
        std::optional<Record> record = recordFromFileBytes(*bytes, now_, &error);
        if (!record) {
            problem(path, QStringLiteral("invalid record: ") + error);
        } else if (!expectedHost.isEmpty() && record->host != expectedHost) {
            problem(path,
                    QStringLiteral("a record of host \"%1\" in the records of \"%2\", left out")
                        .arg(record->host, expectedHost));
            record.reset();
        }
        return record;
    }

    void file(const QString& path, const QString& expectedHost = QString()) {
        std::optional<Record> record = read(path, expectedHost);
        if (record) {
            load_.records.push_back({std::move(*record), path});
        }
    }

    // Every record below the folder, by its file name; links are named, not followed. Other
    // *.json files are named in notes, but for compare's own outputs. The folders below a named
    // one are host folders: each record in one is of the host it is named after.
    void folder(const QString& path, bool named) {
        std::vector<FolderEntry> entries;
        QString error;
        if (!listFolder(path, named, &entries, &error)) {
            problem(path, error);
            return;
        }
        // Directory order is the file system's; sorted, the output is the same everywhere.
        std::sort(entries.begin(), entries.end(),
                  [](const FolderEntry& a, const FolderEntry& b) { return a.name < b.name; });
        const QDir dir(path);
        const QString host = named ? QString() : QFileInfo(path).fileName();
        for (const FolderEntry& entry : entries) {
            const QString child = dir.filePath(entry.name);
            if (entry.kind == FolderEntry::kFolder) {
                folder(child, false);
            } else if (!entry.name.endsWith(QLatin1String(".json"))) {
                continue;
            } else if (!isRecordFileName(entry.name)) {
                if (entry.name != QLatin1String(kSummaryFileName) &&
                    ownFiles_.count(absolute(child)) == 0) {
                    load_.notes << QStringLiteral(
                                       "%1: not a record's file name "
                                       "(HOST-TEST-YYYYMMDDTHHMMSSZ.json), not read")
                                       .arg(child);
                }
            } else if (entry.kind == FolderEntry::kLink) {
                problem(child, QStringLiteral("a symbolic link, not read"));
            } else {
                file(child, host);  // which names anything but a regular file
            }
        }
    }

    void problem(const QString& path, const QString& reason) {
        load_.problems << QStringLiteral("%1: %2").arg(path, reason);
    }

    bool failed() const { return !load_.problems.isEmpty(); }
    std::vector<LoadedRecord>& records() { return load_.records; }

    // The records ordered by startedBefore, each one's key worked out once: the records of a
    // sweep share their second by the thousand. Records of one key stay in the order they were
    // found, which is the folders' sorted order.
    RecordLoad take() {
        std::vector<std::pair<OrderKey, size_t>> keys;
        keys.reserve(load_.records.size());
        for (size_t i = 0; i < load_.records.size(); ++i) {
            keys.emplace_back(orderKey(load_.records[i]), i);
        }
        std::stable_sort(keys.begin(), keys.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        RecordLoad load;
        load.problems = std::move(load_.problems);
        load.notes = std::move(load_.notes);
        load.records.reserve(keys.size());
        for (const auto& key : keys) {
            load.records.push_back(std::move(load_.records[key.second]));
        }
        return load;
    }

  private:
    static QString absolute(const QString& path) {
        return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    }

    QDateTime now_;
    const WriterTrust* trust_;
    std::set<QString> ownFiles_;
    RecordLoad load_;
    std::set<FileIdentity> seen_;
};

// The record files of one host as folder and name: those in its own folder, and those of the
// old flat layout in the records folder.
std::vector<std::pair<QString, QString>> hostRecordFiles(const QString& records,
                                                         const QString& host,
                                                         QStringList* problems) {
    std::vector<std::pair<QString, QString>> files;
    std::vector<FolderEntry> entries;
    QString error;
    const QString own = hostFolder(records, host);
    if (listFolder(own, false, &entries, &error)) {
        for (FolderEntry& entry : entries) {
            if (entry.kind != FolderEntry::kFolder && isRecordFileName(entry.name)) {
                files.emplace_back(own, std::move(entry.name));
            }
        }
    } else if (QFileInfo::exists(own) || QFileInfo(own).isSymLink()) {
        *problems << QStringLiteral("%1: %2").arg(own, error);
    }
    entries.clear();
    if (!listFolder(records, true, &entries, &error)) {
        *problems << QStringLiteral("%1: %2").arg(records, error);
    }
    for (FolderEntry& entry : entries) {
        if (entry.kind != FolderEntry::kFolder && isFlatRecordOf(entry.name, host)) {
            files.emplace_back(records, std::move(entry.name));
        }
    }
    return files;
}

}  // namespace

std::optional<Record> recordFromFileBytes(const QByteArray& bytes, const QDateTime& now,
                                          QString* error) {
    std::optional<Record> record = recordFromJson(bytes, error);
    if (record && record->startedAt.secsTo(now) < -kMaxFutureSecs) {
        *error = QStringLiteral("\"started_at\" %1 is in the future")
                     .arg(record->startedAt.toString(Qt::ISODate));
        return std::nullopt;
    }
    return record;
}

std::optional<QByteArray> recordFileBytes(const Record& record, const QDateTime& now,
                                          QString* error) {
    const QByteArray bytes = recordToBytes(record);
    if (bytes.size() > kMaxRecordBytes) {
        *error = QStringLiteral("the record would be %1 bytes, larger than the %2 a reader takes")
                     .arg(bytes.size())
                     .arg(kMaxRecordBytes);
        return std::nullopt;
    }
    if (!recordFromFileBytes(bytes, now, error)) {
        return std::nullopt;
    }
    return bytes;
}

bool startedBefore(const LoadedRecord& a, const LoadedRecord& b) {
    if (a.record.startedAt != b.record.startedAt) {
        return a.record.startedAt < b.record.startedAt;
    }
    const OrderKey keyA = orderKey(a);
    const OrderKey keyB = orderKey(b);
    return keyA != keyB ? keyA < keyB : a.file < b.file;
}

RecordLoad loadRecords(const QStringList& paths, const QDateTime& now, const WriterTrust* trust,
                       const QStringList& ownFiles) {
    Loader loader(now, trust, ownFiles);
    for (const QString& path : paths) {
        // A folder named by the caller may be reached through a link; nothing below it is.
        const QFileInfo info(path);
        if (!info.exists() && !info.isSymLink()) {
            loader.problem(path, QStringLiteral("no such file or folder"));
        } else if (info.isDir()) {
            loader.folder(path, true);
        } else {
            loader.file(path);
        }
    }
    return loader.take();
}

QStringList hostRecordPaths(const QString& records, const QString& host, QStringList* problems) {
    QStringList paths;
    for (const auto& [folder, name] : hostRecordFiles(records, host, problems)) {
        paths << QDir(folder).filePath(name);
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

RecordLoad loadHostRecords(const QString& records, const QString& host, const QDateTime& now) {
    Loader loader(now);
    QStringList problems;
    for (const QString& path : hostRecordPaths(records, host, &problems)) {
        loader.file(path, host);
    }
    RecordLoad load = loader.take();
    load.problems = problems + load.problems;
    return load;
}

RecordLoad loadNewestRecords(const QString& records, const QString& host, const QString& test,
                             const QDateTime& now, const WriterTrust* trust,
                             const std::function<bool(const std::vector<LoadedRecord>&)>& more) {
    Loader loader(now, trust);
    QStringList problems;
    // The names first: they order the files as startedBefore orders records, without opening
    // any. A host with years of records has a hundred thousand of them, so each is taken apart
    // once and sorted by plain numbers.
    struct Named {
        qint64 startedAt;  // seconds
        int copy;
        QString folder;
        QString name;
    };
    std::vector<Named> named;
    for (auto& [folder, fileName] : hostRecordFiles(records, host, &problems)) {
        const std::optional<RecordFileName> name = parseRecordFileName(fileName);
        if (!name || name->host != host) {
            problems << QStringLiteral("%1: not named as a record of %2 (%2-<test>-<time>.json)")
                            .arg(QDir(folder).filePath(fileName), host);
        } else if (name->test == test) {
            named.push_back({name->startedAt.toSecsSinceEpoch(), name->copy, std::move(folder),
                             std::move(fileName)});
        }
    }
    if (!problems.isEmpty()) {
        return {{}, problems, {}};
    }
    std::sort(named.begin(), named.end(), [](const Named& a, const Named& b) {
        return std::tie(a.startedAt, a.copy, a.folder, a.name) >
               std::tie(b.startedAt, b.copy, b.folder, b.name);
    });
    for (size_t i = 0; i < named.size() && !loader.failed() && (i == 0 || more(loader.records()));
         ++i) {
        const QString path = QDir(named[i].folder).filePath(named[i].name);
        std::optional<Record> record = loader.read(path, host);
        if (record &&
            (record->test != test || record->startedAt.toSecsSinceEpoch() != named[i].startedAt)) {
            loader.problem(path, QStringLiteral("the record says %1 at %2, its name otherwise")
                                     .arg(record->test, record->startedAt.toString(Qt::ISODate)));
        } else if (record) {
            loader.records().push_back({std::move(*record), path});
        }
    }
    return loader.take();
}
