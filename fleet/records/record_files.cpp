#include "record_files.h"

#include <QDir>
#include <QFileInfo>
#include <algorithm>
#include <set>

#include "record_json.h"
#include "record_names.h"
#include "safe_file.h"

namespace {

class Loader {
  public:
    Loader(const QDateTime& now, const WriterTrust* trust, const QStringList& ownFiles)
        : now_(now), trust_(trust) {
        for (const QString& path : ownFiles) {
            ownFiles_.insert(absolute(path));
        }
    }

    void file(const QString& path) {
        FileIdentity identity;
        QString error;
        const std::optional<QByteArray> bytes =
            readRegularFile(path, kMaxRecordBytes, &identity, &error, trust_);
        if (!bytes) {
            problem(path, error);
            return;
        }
        // A record named twice (a folder and a file in it) still counts once.
        if (!seen_.insert(identity).second) {
            return;
        }
        std::optional<Record> record = recordFromJson(*bytes, &error);
        if (!record) {
            problem(path, QStringLiteral("invalid record: ") + error);
        } else if (record->startedAt.secsTo(now_) < -kMaxFutureSecs) {
            problem(path, QStringLiteral("invalid record: \"started_at\" %1 is in the future")
                              .arg(record->startedAt.toString(Qt::ISODate)));
        } else {
            load_.records.push_back({std::move(*record), path});
        }
    }

    // Every record below the folder, by its file name; links are named, not followed. Other
    // *.json files are named in notes, but for compare's own outputs.
    void folder(const QString& path, bool followLink) {
        std::vector<FolderEntry> entries;
        QString error;
        if (!listFolder(path, followLink, &entries, &error)) {
            problem(path, error);
            return;
        }
        // Directory order is the file system's; sorted, the output is the same everywhere.
        std::sort(entries.begin(), entries.end(),
                  [](const FolderEntry& a, const FolderEntry& b) { return a.name < b.name; });
        const QDir dir(path);
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
                file(child);  // which names anything but a regular file
            }
        }
    }

    void problem(const QString& path, const QString& reason) {
        load_.problems << QStringLiteral("%1: %2").arg(path, reason);
    }

    RecordLoad take() { return std::move(load_); }

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

}  // namespace

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
    std::vector<FolderEntry> entries;
    QString error;
    const QString own = hostFolder(records, host);
    if (listFolder(own, false, &entries, &error)) {
        for (const FolderEntry& entry : entries) {
            if (entry.kind != FolderEntry::kFolder && isRecordFileName(entry.name)) {
                paths << QDir(own).filePath(entry.name);
            }
        }
    } else if (QFileInfo::exists(own) || QFileInfo(own).isSymLink()) {
        *problems << QStringLiteral("%1: %2").arg(own, error);
    }
    entries.clear();
    if (!listFolder(records, true, &entries, &error)) {
        *problems << QStringLiteral("%1: %2").arg(records, error);
    }
    for (const FolderEntry& entry : entries) {
        if (entry.kind != FolderEntry::kFolder && isFlatRecordOf(entry.name, host)) {
            paths << QDir(records).filePath(entry.name);
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}
