#include "safe_file.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include "safe_file_os.h"
#include "writer_trust.h"

using namespace safe_file_os;

namespace {

constexpr int kMaxNumbered = 1000;

QString failed(const char* what, const QString& path, OsError error) {
    return QStringLiteral("cannot %1 %2: %3").arg(QLatin1String(what), path, reason(error));
}

// "name.json", then "name-2.json", "name-3.json"...
QString numbered(const QString& path, int n) {
    if (n == 1) {
        return path;
    }
    const QFileInfo info(path);
    const QString suffix = info.suffix().isEmpty() ? QString() : QLatin1Char('.') + info.suffix();
    return path.left(path.size() - suffix.size()) + QStringLiteral("-%1").arg(n) + suffix;
}

// A temporary file beside path holding bytes, forced to disk; its name, or empty with error.
QString temporaryWith(const QString& path, const QByteArray& bytes, QString* error) {
    OsError osError = kNoError;
    const QString temporary = writeTemporaryBeside(path, bytes, &osError);
    if (temporary.isEmpty()) {
        *error = failed("write", path, osError);
    }
    return temporary;
}

}  // namespace

bool makeFolders(const QString& path, QString* error) {
    // The folders to make, deepest first: each name up to the first one that is taken.
    std::vector<QString> missing;
    FolderEntry::Kind kind = FolderEntry::kOther;
    for (QString folder = QDir::cleanPath(path);;) {
        const OsError osError = entryKind(folder, &kind);
        const QString parent = QFileInfo(folder).path();
        if (osError == kNoError || !nameMissing(osError) || parent == folder) {
            break;
        }
        missing.push_back(folder);
        folder = parent;
    }
    const bool existed = missing.empty();
    if (existed) {
        missing.push_back(QDir::cleanPath(path));
    }
    for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
        OsError osError = existed ? kNoError : createFolder(*folder);
        if (osError == kNoError) {
            osError = entryKind(*folder, &kind);
        }
        if (osError != kNoError) {
            *error = failed("create the folder", *folder, osError);
            return false;
        }
        if (kind != FolderEntry::kFolder) {
            *error = QStringLiteral("%1 is not a folder%2")
                         .arg(*folder, kind == FolderEntry::kLink
                                           ? QStringLiteral(" but a symbolic link, not followed")
                                           : QString());
            return false;
        }
    }
    return true;
}

QString publishNewFile(const QString& path, const QByteArray& bytes, QString* error) {
    const QString temporary = temporaryWith(path, bytes, error);
    if (temporary.isEmpty()) {
        return QString();
    }
    // The move fails on an existing name, link or not: the file appears whole and replaces
    // nothing.
    QString published;
    for (int n = 1; n <= kMaxNumbered && published.isEmpty(); ++n) {
        const QString candidate = numbered(path, n);
        const OsError moveError = moveWithoutReplacing(temporary, candidate);
        if (moveError == kNoError) {
            published = candidate;
        } else if (!nameTaken(moveError)) {
            *error = failed("write", candidate, moveError);
            break;
        } else if (n == kMaxNumbered) {
            *error = failed("write", path, nameTakenError());
        }
    }
    if (published.isEmpty()) {
        removeFile(temporary);
    } else {
        syncFolderOf(published);
    }
    return published;
}

QString createNewFile(const QString& path, QFile* file, QString* error) {
    for (int n = 1; n <= kMaxNumbered; ++n) {
        const QString candidate = numbered(path, n);
        OsError createError = kNoError;
        const int fd = createNewDescriptor(candidate, &createError);
        if (fd < 0 && createError != kNoError) {
            if (nameTaken(createError)) {
                continue;
            }
            *error = failed("write", candidate, createError);
            return QString();
        }
        file->setFileName(candidate);
        if (fd < 0 || !file->open(fd, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle)) {
            if (fd >= 0) {
                closeDescriptor(fd);
            }
            *error = QStringLiteral("cannot write %1").arg(candidate);
            return QString();
        }
        return candidate;
    }
    *error = failed("write", path, nameTakenError());
    return QString();
}

bool syncFile(QFile* file) {
    return file->flush() && syncDescriptor(file->handle());
}

bool replaceFile(const QString& path, const QByteArray& bytes, QString* error) {
    const QString temporary = temporaryWith(path, bytes, error);
    if (temporary.isEmpty()) {
        return false;
    }
    const OsError moveError = moveReplacing(temporary, path);
    if (moveError != kNoError) {
        *error = failed("write", path, moveError);
        removeFile(temporary);
        return false;
    }
    syncFolderOf(path);
    return true;
}

std::optional<QByteArray> readRegularFile(const QString& path, qint64 maxBytes,
                                          FileIdentity* identity, QString* error,
                                          const WriterTrust* trust) {
    qintptr handle = -1;
    qint64 fileSize = 0;
    FileIdentity opened;
    OsError osError = kNoError;
    switch (openForReading(path, &handle, &fileSize, &opened, &osError)) {
        case OpenFault::kNone:
            break;
        case OpenFault::kLink:
            *error = QStringLiteral("a symbolic link, not read");
            return std::nullopt;
        case OpenFault::kWrongKind:
            *error = QStringLiteral("not a regular file");
            return std::nullopt;
        case OpenFault::kOsError:
            *error = QStringLiteral("cannot read: %1").arg(reason(osError));
            return std::nullopt;
    }
    std::optional<QByteArray> bytes;
    // Who may write it is read from the file that is read, not from the name.
    const QString others = trust != nullptr ? otherWriters(handle, *trust) : QString();
    if (!others.isEmpty()) {
        *error = others;
    } else if (fileSize > maxBytes) {
        *error = QStringLiteral("larger than %1 bytes").arg(maxBytes);
    } else {
        *identity = opened;
        // One byte more than the size shows a file that grew while it was read.
        QByteArray data(static_cast<int>(fileSize) + 1, Qt::Uninitialized);
        qint64 size = 0;
        bool readFailed = false;
        while (size < data.size()) {
            const qint64 got = readSome(handle, data.data() + size, data.size() - size, &osError);
            if (got <= 0) {
                readFailed = got < 0;
                break;
            }
            size += got;
        }
        if (readFailed) {
            *error = QStringLiteral("cannot read: %1").arg(reason(osError));
        } else if (size == data.size()) {
            *error = QStringLiteral("changed while it was read");
        } else {
            data.truncate(static_cast<int>(size));
            bytes = data;
        }
    }
    closeHandle(handle);
    return bytes;
}

bool listFolder(const QString& path, bool followLink, std::vector<FolderEntry>* entries,
                QString* error) {
    std::vector<FolderEntry> all;
    OsError osError = kNoError;
    const OpenFault fault = readFolder(path, followLink, &all, &osError);
    for (FolderEntry& entry : all) {
        if (entry.name != QLatin1String(".") && entry.name != QLatin1String("..")) {
            entries->push_back(std::move(entry));
        }
    }
    if (fault != OpenFault::kNone) {
        *error = fault == OpenFault::kOsError
                     ? QStringLiteral("cannot read the folder: %1").arg(reason(osError))
                 : fault == OpenFault::kLink ? QStringLiteral("a symbolic link, not followed")
                                             : QStringLiteral("not a folder");
    }
    return fault == OpenFault::kNone;
}

FileLock::~FileLock() {
    if (handle_ != -1) {
        closeHandle(handle_);  // and with it the lock
    }
}

bool FileLock::lock(const QString& path, int timeoutMs, QString* error) {
    OsError lockError = kNoError;
    const OpenFault fault = openLockFile(path, &handle_, &lockError);
    if (fault != OpenFault::kNone) {
        *error = fault == OpenFault::kOsError
                     ? failed("lock", path, lockError)
                     : QStringLiteral("cannot lock %1: a symbolic link is not followed").arg(path);
        return false;
    }
    QElapsedTimer clock;
    clock.start();
    while ((lockError = tryLock(handle_)) != kNoError) {
        if (!lockHeld(lockError) || clock.elapsed() >= timeoutMs) {
            *error = lockHeld(lockError)
                         ? QStringLiteral("cannot lock %1: held by another writer for %2 s")
                               .arg(path)
                               .arg(timeoutMs / 1000)
                         : failed("lock", path, lockError);
            return false;
        }
        QThread::msleep(20);
    }
    return true;
}
