#include "record_files.h"

#include <QDir>
#include <QFileInfo>
#include <algorithm>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "record_json.h"
#include "record_names.h"
#include "safe_file.h"
#include "writer_trust.h"

namespace {

// What orders records, before their files' names: the start, then the number a rerun of the
// same second took.
using OrderKey = std::pair<qint64, int>;

OrderKey orderKey(const LoadedRecord& loaded) {
    return {loaded.record.startedAt.toMSecsSinceEpoch(), copyNumberOf(loaded.file)};
}

// A record file known by its name alone, until it is read.
struct NamedFile {
    qint64 startedAt;  // seconds, as the name says
    int copy;
    QString folder;
    QString name;
    QString expectedHost;  // whose folder holds it; empty for a folder the caller named
};

// By host and test, as the files' names say.
using NamedFiles = std::map<std::pair<QString, QString>, std::vector<NamedFile>>;

bool inMonth(const QString& fileName, int month) {
    const std::optional<RecordNameView> name = viewRecordFileName(fileName);
    return name && monthOfTime(name->startedAt) == month;
}

const QString kMisfiled =
    QStringLiteral("named as a run of another month than its folder's, not read");

QString notNamedAs(const QString& path, const QString& host) {
    return QStringLiteral("%1: not named as a record of %2 (%2-<test>-<time>.json)")
        .arg(path, host);
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
    // one are host folders: each record in one is of the host it is named after. A folder named
    // as a month ("YYYY-MM") below a host's folder, or a named one, holds the records of that
    // month: one named as a run of another month is named in problems and not read.
    void folder(const QString& path, bool named, const QString& parentHost = QString(),
                std::optional<int> month = std::nullopt) {
        std::vector<FolderEntry> entries;
        QString error;
        if (!listFolder(path, named, &entries, &error)) {
            problem(path, error);
            return;
        }
        const QDir dir(path);
        const QString host = month ? parentHost : named ? QString() : QFileInfo(path).fileName();
        // The records set aside first, in any order (newest first orders them); the rest is
        // sorted, so that the output is the same on every file system.
        if (named_ != nullptr) {
            entries.erase(std::remove_if(entries.begin(), entries.end(),
                                         [&](FolderEntry& entry) {
                                             return setAside(path, dir, host, month, entry);
                                         }),
                          entries.end());
        }
        std::sort(entries.begin(), entries.end(),
                  [](const FolderEntry& a, const FolderEntry& b) { return a.name < b.name; });
        for (const FolderEntry& entry : entries) {
            const QString child = dir.filePath(entry.name);
            const std::optional<int> childMonth =
                entry.kind == FolderEntry::kFolder && !month && (named || !host.isEmpty())
                    ? monthOfFolderName(entry.name)
                    : std::nullopt;
            if (childMonth && named_ != nullptr && !host.isEmpty()) {
                months_[host].emplace_back(*childMonth, child);  // listed when needed
            } else if (childMonth) {
                folder(child, false, host, childMonth);
            } else if (entry.kind == FolderEntry::kFolder && month) {
                load_.notes
                    << QStringLiteral("%1: a folder in a month's folder, not read").arg(child);
            } else if (entry.kind == FolderEntry::kFolder) {
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
            } else if (month && !inMonth(entry.name, *month)) {
                problem(child, kMisfiled);
            } else if (named_ == nullptr) {
                file(child, host);  // which names anything but a regular file
            } else if (namedFiles_.count(absolute(child)) == 0) {
                // What setAside did not take: in a host's folder, named as another's.
                load_.problems << notNamedAs(child, host);
            }
        }
    }

    // From now on folder() sets the records it finds aside in named, unread, but for the files
    // the caller names (read as files).
    void setAsideInto(NamedFiles* named, const QStringList& files) {
        named_ = named;
        for (const QString& path : files) {
            namedFiles_.insert(absolute(path));
        }
    }

    // Reads one host and test's files newest first by their names, for as long as more asks; each
    // record must say what its name says. Reading ends at a file that gives no record.
    void newestFirst(const QString& host, const QString& test, std::vector<NamedFile>& files,
                     const NeedsOlder& more) {
        Reading reading;
        reading.more = more;
        reading.files = std::move(files);
        sortUnread(reading);
        while (reading.next < reading.files.size() &&
               (reading.newest.empty() || more(reading.newest))) {
            const auto problems = load_.problems.size();
            if (!readNext(host, test, reading) && load_.problems.size() > problems) {
                break;
            }
        }
        std::move(reading.newest.begin(), reading.newest.end(), std::back_inserter(load_.records));
    }

    // Reads each host's records of each test newest first, for as long as the test's own rule,
    // made by rule(), asks; a file that gives no record is named in problems and the next older
    // one read in its place. A host's month folders are listed newest first, and only as far
    // back as that takes: a file is read once every month that could hold a newer one is listed.
    // A test the host has run only in months older than that is not read.
    void readHosts(NamedFiles& named, const std::function<NeedsOlder()>& rule) {
        std::set<QString> hosts;
        for (const auto& group : named) {
            hosts.insert(group.first.first);
        }
        for (const auto& host : months_) {
            hosts.insert(host.first);
        }
        for (const QString& host : hosts) {
            readHost(host, named, rule);
        }
    }

    void problem(const QString& path, const QString& reason) {
        load_.problems << QStringLiteral("%1: %2").arg(path, reason);
    }

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
    // One host and test's record files known by their names, read newest first.
    struct Reading {
        NeedsOlder more;
        std::vector<NamedFile> files;  // those from next on are unread, newest first once sorted
        size_t next = 0;
        bool sorted = false;
        bool done = false;
        std::vector<LoadedRecord> newest;  // the records read, newest first
    };

    static void sortUnread(Reading& reading) {
        const auto key = [](const NamedFile& file) {
            return std::tie(file.startedAt, file.copy, file.folder, file.name);
        };
        const auto unread = reading.files.begin() + static_cast<std::ptrdiff_t>(reading.next);
        std::sort(unread, reading.files.end(),
                  [&](const NamedFile& a, const NamedFile& b) { return key(a) > key(b); });
        // A folder named twice lists its files twice.
        reading.files.erase(std::unique(unread, reading.files.end(),
                                        [](const NamedFile& a, const NamedFile& b) {
                                            return a.folder == b.folder && a.name == b.name;
                                        }),
                            reading.files.end());
        reading.sorted = true;
    }

    // Reads the newest unread file; the record must say what its name says. Whether it gave one.
    bool readNext(const QString& host, const QString& test, Reading& reading) {
        const NamedFile& file = reading.files[reading.next++];
        const QString path = QDir(file.folder).filePath(file.name);
        std::optional<Record> record = read(path, file.expectedHost);
        if (record && (record->host != host || record->test != test ||
                       record->startedAt.toSecsSinceEpoch() != file.startedAt)) {
            problem(path,
                    QStringLiteral("the record says %1 %2 at %3, its name otherwise")
                        .arg(record->host, record->test, record->startedAt.toString(Qt::ISODate)));
            record.reset();
        }
        if (record) {
            reading.newest.push_back({std::move(*record), path});
        }
        return record.has_value();
    }

    void readHost(const QString& host, NamedFiles& named, const std::function<NeedsOlder()>& rule) {
        std::map<QString, Reading> tests;
        // Moves the host's files out of found, each to its test's reading.
        const auto take = [&](NamedFiles& found) {
            auto group = found.lower_bound({host, QString()});
            for (; group != found.end() && group->first.first == host; group = found.erase(group)) {
                auto test = tests.find(group->first.second);
                if (test == tests.end()) {
                    test = tests.emplace(group->first.second, Reading()).first;
                    test->second.more = rule();
                }
                Reading& reading = test->second;
                std::move(group->second.begin(), group->second.end(),
                          std::back_inserter(reading.files));
                reading.sorted = false;
                reading.done = false;
            }
        };
        take(named);
        std::vector<std::pair<int, QString>> months = std::move(months_[host]);
        months_.erase(host);
        std::sort(months.begin(), months.end(), std::greater<>());
        size_t listed = 0;
        for (;;) {
            // Every file not listed yet started before this.
            const qint64 unlistedBefore = listed < months.size()
                                              ? startOfMonth(months[listed].first + 1)
                                              : std::numeric_limits<qint64>::min();
            bool listMore = false;
            for (auto& [test, reading] : tests) {
                if (!reading.sorted) {
                    sortUnread(reading);
                }
                while (!reading.done && !listMore) {
                    const bool unread = reading.next < reading.files.size();
                    if (!reading.newest.empty() && !reading.more(reading.newest)) {
                        reading.done = true;
                    } else if (unread && reading.files[reading.next].startedAt >= unlistedBefore) {
                        readNext(host, test, reading);
                    } else if (listed < months.size()) {
                        listMore = true;
                    } else if (unread) {
                        readNext(host, test, reading);
                    } else {
                        reading.done = true;
                    }
                }
            }
            // Until a month names a test of the host, there is nothing to ask.
            if (!listMore && !(tests.empty() && listed < months.size())) {
                break;
            }
            NamedFiles found;
            NamedFiles* const all = named_;
            named_ = &found;
            last_ = nullptr;
            folder(months[listed].second, false, host, months[listed].first);
            named_ = all;
            last_ = nullptr;
            ++listed;
            take(found);
        }
        for (auto& test : tests) {
            std::move(test.second.newest.begin(), test.second.newest.end(),
                      std::back_inserter(load_.records));
        }
    }

    static QString absolute(const QString& path) {
        return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    }

    // Sets the entry aside in named_, unread, when it is a record named as one of the host whose
    // folder it is in, and not named by the caller; a link is not. Whether it did.
    bool setAside(const QString& path, const QDir& dir, const QString& host,
                  std::optional<int> month, FolderEntry& entry) {
        if (entry.kind == FolderEntry::kFolder || entry.kind == FolderEntry::kLink) {
            return false;
        }
        const std::optional<RecordNameView> name = viewRecordFileName(entry.name);
        if (!name || (!host.isEmpty() && name->host != host) ||
            (month && monthOfTime(name->startedAt) != *month) ||
            (!namedFiles_.empty() && namedFiles_.count(absolute(dir.filePath(entry.name))) != 0)) {
            return false;
        }
        // The names of one folder are mostly of one host and test.
        if (last_ == nullptr || name->host != lastHost_ || name->test != lastTest_) {
            lastHost_ = name->host.toString();
            lastTest_ = name->test.toString();
            last_ = &(*named_)[{lastHost_, lastTest_}];
        }
        last_->push_back({name->startedAt, name->copy, path, std::move(entry.name), host});
        return true;
    }

    QDateTime now_;
    const WriterTrust* trust_;
    std::set<QString> ownFiles_;
    RecordLoad load_;
    std::set<FileIdentity> seen_;
    NamedFiles* named_ = nullptr;
    std::set<QString> namedFiles_;
    std::vector<NamedFile>* last_ = nullptr;
    // The month folders of each host's folder, not listed yet (compare's newest first).
    std::map<QString, std::vector<std::pair<int, QString>>> months_;
    QString lastHost_;
    QString lastTest_;
};

// The record files of one host as folder and name: those in its own folder and its month
// folders, and those of the old flat layout in the records folder. With trust, a month folder
// anyone else could write is named in problems.
std::vector<std::pair<QString, QString>> hostRecordFiles(const QString& records,
                                                         const QString& host,
                                                         const WriterTrust* trust,
                                                         QStringList* problems) {
    std::vector<std::pair<QString, QString>> files;
    std::vector<FolderEntry> entries;
    QString error;
    const QString own = hostFolder(records, host);
    const auto addMonth = [&](const QString& folder, int month) {
        std::vector<FolderEntry> names;
        if ((trust != nullptr && trustedFolder(folder, *trust, &error).isEmpty()) ||
            !listFolder(folder, false, &names, &error)) {
            *problems << QStringLiteral("%1: %2").arg(folder, error);
            return;
        }
        for (FolderEntry& entry : names) {
            if (entry.kind == FolderEntry::kFolder || !isRecordFileName(entry.name)) {
                continue;
            }
            if (inMonth(entry.name, month)) {
                files.emplace_back(folder, std::move(entry.name));
            } else {
                *problems << QStringLiteral("%1: %2").arg(QDir(folder).filePath(entry.name),
                                                          kMisfiled);
            }
        }
    };
    if (listFolder(own, false, &entries, &error)) {
        for (FolderEntry& entry : entries) {
            const std::optional<int> month =
                entry.kind == FolderEntry::kFolder ? monthOfFolderName(entry.name) : std::nullopt;
            if (month) {
                addMonth(QDir(own).filePath(entry.name), *month);
            } else if (entry.kind != FolderEntry::kFolder && isRecordFileName(entry.name)) {
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

// The files and folders the caller named: a folder may be reached through a link, nothing below it
// is.
void loadPaths(Loader& loader, const QStringList& paths) {
    for (const QString& path : paths) {
        const QFileInfo info(path);
        if (!info.exists() && !info.isSymLink()) {
            loader.problem(path, QStringLiteral("no such file or folder"));
        } else if (info.isDir()) {
            loader.folder(path, true);
        } else {
            loader.file(path);
        }
    }
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
    loadPaths(loader, paths);
    return loader.take();
}

QStringList hostRecordPaths(const QString& records, const QString& host, QStringList* problems) {
    QStringList paths;
    for (const auto& [folder, name] : hostRecordFiles(records, host, nullptr, problems)) {
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
                             const NeedsOlder& more) {
    Loader loader(now, trust);
    QStringList problems;
    std::vector<NamedFile> named;
    for (auto& [folder, fileName] : hostRecordFiles(records, host, trust, &problems)) {
        const std::optional<RecordNameView> name = viewRecordFileName(fileName);
        if (!name || name->host != host) {
            problems << notNamedAs(QDir(folder).filePath(fileName), host);
        } else if (name->test == test) {
            named.push_back(
                {name->startedAt, name->copy, std::move(folder), std::move(fileName), host});
        }
    }
    if (!problems.isEmpty()) {
        return {{}, problems, {}};
    }
    loader.newestFirst(host, test, named, more);
    return loader.take();
}

RecordLoad loadNewestRecords(const QStringList& paths, const QDateTime& now,
                             const QStringList& ownFiles, const std::function<NeedsOlder()>& rule) {
    Loader loader(now, nullptr, ownFiles);
    NamedFiles named;
    QStringList files;
    std::copy_if(paths.begin(), paths.end(), std::back_inserter(files),
                 [](const QString& path) { return QFileInfo(path).isFile(); });
    loader.setAsideInto(&named, files);
    loadPaths(loader, paths);
    loader.readHosts(named, rule);
    return loader.take();
}
