// Windows has no O_NOFOLLOW, link() or flock(); their places are taken by
// FILE_FLAG_OPEN_REPARSE_POINT (the link itself is opened and then refused), MoveFileExW without
// MOVEFILE_REPLACE_EXISTING (fails on an existing name, link or not) and LockFileEx. Where the
// behaviour differs from safe_file_posix.cpp:
// - every reparse point is refused as a link: symbolic links, junctions and mount points, but
//   also cloud placeholders and deduplicated files;
// - a new file takes its permissions from its folder's inherited access list, not mode 0644;
// - MOVEFILE_WRITE_THROUGH puts the new name on disk, so no folder is flushed;
// - a reader that holds corebench.prom open without sharing deletion delays its replacement,
//   which is retried for up to a second.

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QThread>
#include <string>

#include "safe_file.h"

namespace {

constexpr int kMaxNumbered = 1000;
constexpr int kReplaceWaitMs = 1000;

std::wstring native(const QString& path) {
    return QDir::toNativeSeparators(path).toStdWString();
}

// Qt's text for a Windows error code (FormatMessageW's, in the system's language).
QString reason(DWORD error) {
    return qt_error_string(static_cast<int>(error));
}

QString failed(const char* what, const QString& path, DWORD error) {
    return QStringLiteral("cannot %1 %2: %3").arg(QLatin1String(what), path, reason(error));
}

bool nameTaken(DWORD error) {
    return error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS;
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

// A new file, never an existing one and never through a link; INVALID_HANDLE_VALUE with
// GetLastError() otherwise.
HANDLE createExclusive(const QString& path) {
    return CreateFileW(native(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                       FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
}

bool writeAll(HANDLE file, const QByteArray& bytes) {
    const char* data = bytes.constData();
    qint64 left = bytes.size();
    while (left > 0) {
        DWORD written = 0;
        const DWORD chunk = static_cast<DWORD>(std::min<qint64>(left, 1 << 30));
        if (!WriteFile(file, data, chunk, &written, nullptr)) {
            return false;
        }
        if (written == 0) {
            SetLastError(ERROR_DISK_FULL);
            return false;
        }
        data += written;
        left -= written;
    }
    return true;
}

// A temporary file beside path holding bytes, forced to disk; its name, or empty with error.
QString temporaryWith(const QString& path, const QByteArray& bytes, QString* error) {
    const QDir folder(QFileInfo(path).absolutePath());
    for (int attempt = 0; attempt < 100; ++attempt) {
        // Starts with a dot and ends in .tmp: no reader takes it for a record or a textfile.
        const QString name =
            folder.filePath(QStringLiteral(".corebench-%1.tmp")
                                .arg(QRandomGenerator::system()->generate64() & 0xFFFFFFFFFFFFull,
                                     12, 16, QLatin1Char('0')));
        const HANDLE file = createExclusive(name);
        if (file == INVALID_HANDLE_VALUE) {
            if (nameTaken(GetLastError())) {
                continue;
            }
            *error = failed("write", path, GetLastError());
            return QString();
        }
        const bool ok = writeAll(file, bytes) && FlushFileBuffers(file);
        const DWORD writeError = GetLastError();
        if (!CloseHandle(file) || !ok) {
            *error = failed("write", path, ok ? GetLastError() : writeError);
            DeleteFileW(native(name).c_str());
            return QString();
        }
        return name;
    }
    *error = failed("write", path, ERROR_FILE_EXISTS);
    return QString();
}

}  // namespace

bool makeFolder(const QString& path, QString* error) {
    if (!CreateDirectoryW(native(path).c_str(), nullptr) &&
        GetLastError() != ERROR_ALREADY_EXISTS) {
        *error = failed("create the folder", path, GetLastError());
        return false;
    }
    const DWORD attributes = GetFileAttributesW(native(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        *error = failed("create the folder", path, GetLastError());
        return false;
    }
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ||
        (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        *error = QStringLiteral("%1 is not a folder%2")
                     .arg(path, (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0
                                    ? QStringLiteral(" but a symbolic link")
                                    : QString());
        return false;
    }
    return true;
}

QString publishNewFile(const QString& path, const QByteArray& bytes, QString* error) {
    const QString temporary = temporaryWith(path, bytes, error);
    if (temporary.isEmpty()) {
        return QString();
    }
    // Without MOVEFILE_REPLACE_EXISTING the move fails on an existing name, link or not: the
    // file appears whole and replaces nothing.
    QString published;
    for (int n = 1; n <= kMaxNumbered && published.isEmpty(); ++n) {
        const QString candidate = numbered(path, n);
        if (MoveFileExW(native(temporary).c_str(), native(candidate).c_str(),
                        MOVEFILE_WRITE_THROUGH)) {
            published = candidate;
        } else if (!nameTaken(GetLastError())) {
            *error = failed("write", candidate, GetLastError());
            break;
        } else if (n == kMaxNumbered) {
            *error = failed("write", path, ERROR_FILE_EXISTS);
        }
    }
    if (published.isEmpty()) {
        DeleteFileW(native(temporary).c_str());
    }
    return published;
}

QString createNewFile(const QString& path, QFile* file, QString* error) {
    for (int n = 1; n <= kMaxNumbered; ++n) {
        const QString candidate = numbered(path, n);
        const HANDLE handle = createExclusive(candidate);
        if (handle == INVALID_HANDLE_VALUE) {
            if (nameTaken(GetLastError())) {
                continue;
            }
            *error = failed("write", candidate, GetLastError());
            return QString();
        }
        // QFile takes a C runtime descriptor, which owns the handle from here on.
        const int fd = _open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_WRONLY | _O_BINARY);
        if (fd < 0) {
            CloseHandle(handle);
        }
        file->setFileName(candidate);
        if (fd < 0 || !file->open(fd, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle)) {
            if (fd >= 0) {
                _close(fd);
            }
            *error = QStringLiteral("cannot write %1").arg(candidate);
            return QString();
        }
        return candidate;
    }
    *error = failed("write", path, ERROR_FILE_EXISTS);
    return QString();
}

bool syncFile(QFile* file) {
    return file->flush() &&
           FlushFileBuffers(reinterpret_cast<HANDLE>(_get_osfhandle(file->handle())));
}

bool replaceFile(const QString& path, const QByteArray& bytes, QString* error) {
    const QString temporary = temporaryWith(path, bytes, error);
    if (temporary.isEmpty()) {
        return false;
    }
    // A link at path is itself replaced: the move acts on the name, not on what it points to.
    QElapsedTimer clock;
    clock.start();
    while (!MoveFileExW(native(temporary).c_str(), native(path).c_str(),
                        MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        const DWORD moveError = GetLastError();
        const bool heldOpen =
            moveError == ERROR_ACCESS_DENIED || moveError == ERROR_SHARING_VIOLATION;
        if (!heldOpen || clock.elapsed() >= kReplaceWaitMs) {
            *error = failed("write", path, moveError);
            DeleteFileW(native(temporary).c_str());
            return false;
        }
        QThread::msleep(20);
    }
    return true;
}

std::optional<QByteArray> readRegularFile(const QString& path, qint64 maxBytes,
                                          FileIdentity* identity, QString* error) {
    // The link itself is opened, never what it points to; a folder does not open without
    // FILE_FLAG_BACKUP_SEMANTICS, which is not asked for.
    const HANDLE file = CreateFileW(
        native(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD openError = GetLastError();
        const DWORD attributes = GetFileAttributesW(native(path).c_str());
        *error =
            attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0
                ? QStringLiteral("not a regular file")
                : QStringLiteral("cannot read: %1").arg(reason(openError));
        return std::nullopt;
    }
    BY_HANDLE_FILE_INFORMATION information{};
    std::optional<QByteArray> bytes;
    if (GetFileType(file) != FILE_TYPE_DISK) {
        *error = QStringLiteral("not a regular file");
    } else if (!GetFileInformationByHandle(file, &information)) {
        *error = QStringLiteral("cannot read: %1").arg(reason(GetLastError()));
    } else if ((information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        *error = QStringLiteral("a symbolic link, not read");
    } else if ((information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        *error = QStringLiteral("not a regular file");
    } else if ((static_cast<qint64>(information.nFileSizeHigh) << 32 | information.nFileSizeLow) >
               maxBytes) {
        *error = QStringLiteral("larger than %1 bytes").arg(maxBytes);
    } else {
        identity->device = information.dwVolumeSerialNumber;
        identity->inode =
            static_cast<quint64>(information.nFileIndexHigh) << 32 | information.nFileIndexLow;
        // One byte more than the size shows a file that grew while it was read.
        QByteArray data(static_cast<int>(information.nFileSizeLow) + 1, Qt::Uninitialized);
        qint64 size = 0;
        bool readFailed = false;
        while (size < data.size()) {
            DWORD got = 0;
            if (!ReadFile(file, data.data() + size, static_cast<DWORD>(data.size() - size), &got,
                          nullptr)) {
                readFailed = true;
                break;
            }
            if (got == 0) {
                break;
            }
            size += got;
        }
        if (readFailed) {
            *error = QStringLiteral("cannot read: %1").arg(reason(GetLastError()));
        } else if (size == data.size()) {
            *error = QStringLiteral("changed while it was read");
        } else {
            data.truncate(static_cast<int>(size));
            bytes = data;
        }
    }
    CloseHandle(file);
    return bytes;
}

bool listFolder(const QString& path, bool followLink, std::vector<FolderEntry>* entries,
                QString* error) {
    // The folder is held open, without sharing deletion, while it is read: it cannot be renamed
    // and replaced by a junction between the check and the listing.
    const HANDLE folder = CreateFileW(
        native(path).c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | (followLink ? 0 : FILE_FLAG_OPEN_REPARSE_POINT),
        nullptr);
    BY_HANDLE_FILE_INFORMATION information{};
    if (folder == INVALID_HANDLE_VALUE || !GetFileInformationByHandle(folder, &information)) {
        *error = QStringLiteral("cannot read the folder: %1").arg(reason(GetLastError()));
        if (folder != INVALID_HANDLE_VALUE) {
            CloseHandle(folder);
        }
        return false;
    }
    if ((information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 ||
        (!followLink && (information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)) {
        *error = QStringLiteral("not a folder (a symbolic link is not followed)");
        CloseHandle(folder);
        return false;
    }
    WIN32_FIND_DATAW found{};
    const HANDLE search =
        FindFirstFileW(native(QDir(path).filePath(QStringLiteral("*"))).c_str(), &found);
    DWORD readError = search == INVALID_HANDLE_VALUE ? GetLastError() : ERROR_SUCCESS;
    if (search != INVALID_HANDLE_VALUE) {
        do {
            const QString name = QString::fromWCharArray(found.cFileName);
            if (name == QLatin1String(".") || name == QLatin1String("..")) {
                continue;
            }
            const DWORD attributes = found.dwFileAttributes;
            entries->push_back(
                {name, (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ? FolderEntry::kLink
                       : (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0   ? FolderEntry::kFolder
                       : (attributes & FILE_ATTRIBUTE_DEVICE) != 0      ? FolderEntry::kOther
                                                                        : FolderEntry::kFile});
        } while (FindNextFileW(search, &found));
        readError = GetLastError();
        FindClose(search);
    }
    CloseHandle(folder);
    // An empty drive's root has not even "." and "..".
    if (readError != ERROR_NO_MORE_FILES && readError != ERROR_FILE_NOT_FOUND) {
        *error = QStringLiteral("cannot read the folder: %1").arg(reason(readError));
        return false;
    }
    return true;
}

FileLock::~FileLock() {
    if (handle_ != -1) {
        CloseHandle(reinterpret_cast<HANDLE>(handle_));  // and with it the lock
    }
}

bool FileLock::lock(const QString& path, int timeoutMs, QString* error) {
    const HANDLE file =
        CreateFileW(native(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        *error = failed("lock", path, GetLastError());
        return false;
    }
    handle_ = reinterpret_cast<qintptr>(file);
    BY_HANDLE_FILE_INFORMATION information{};
    if (!GetFileInformationByHandle(file, &information)) {
        *error = failed("lock", path, GetLastError());
        return false;
    }
    if ((information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        *error = QStringLiteral("cannot lock %1: a symbolic link is not followed").arg(path);
        return false;
    }
    QElapsedTimer clock;
    clock.start();
    // One byte past the end of an empty file: Windows locks ranges whether or not they hold data.
    OVERLAPPED range{};
    while (
        !LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &range)) {
        const DWORD lockError = GetLastError();
        if (lockError != ERROR_LOCK_VIOLATION || clock.elapsed() >= timeoutMs) {
            *error = lockError == ERROR_LOCK_VIOLATION
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
