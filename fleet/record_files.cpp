#include "record_files.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSet>
#include <algorithm>

#include "record_json.h"

namespace {

void loadFile(const QString& path, RecordLoad& load, QSet<QString>& seen) {
    // A record named twice (a folder and a file in it) still counts once.
    const QString canonical = QFileInfo(path).canonicalFilePath();
    if (seen.contains(canonical)) {
        return;
    }
    seen.insert(canonical);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        load.problems << QStringLiteral("%1: cannot read: %2").arg(path, file.errorString());
        return;
    }
    QString error;
    std::optional<Record> record = recordFromJson(file.readAll(), &error);
    if (!record) {
        load.problems << QStringLiteral("%1: invalid record: %2").arg(path, error);
        return;
    }
    load.records.push_back({std::move(*record), path});
}

}  // namespace

bool writeFileAtomically(const QString& path, const QByteArray& bytes, QString* error) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup |
                        QFileDevice::ReadOther);
    if (file.write(bytes) != bytes.size() || !file.commit()) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

RecordLoad loadRecords(const QStringList& paths) {
    RecordLoad load;
    QSet<QString> seen;
    for (const QString& path : paths) {
        const QFileInfo info(path);
        if (!info.exists()) {
            load.problems << QStringLiteral("%1: no such file or folder").arg(path);
        } else if (info.isDir()) {
            if (!info.isReadable() || !info.isExecutable()) {
                load.problems << QStringLiteral("%1: cannot read the folder").arg(path);
                continue;
            }
            QStringList files;
            QDirIterator it(path, {QStringLiteral("*.json")}, QDir::Files | QDir::Hidden,
                            QDirIterator::Subdirectories);
            while (it.hasNext()) {
                files << it.next();
            }
            // Directory order is the file system's; sorted, the output is the same everywhere.
            std::sort(files.begin(), files.end());
            for (const QString& file : files) {
                loadFile(file, load, seen);
            }
        } else if (!info.isFile()) {
            // A pipe or device could block the whole comparison.
            load.problems << QStringLiteral("%1: not a regular file").arg(path);
        } else {
            loadFile(path, load, seen);
        }
    }
    return load;
}
