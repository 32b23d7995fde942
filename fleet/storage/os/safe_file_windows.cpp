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
#include <QFileInfo>
#include <QRandomGenerator>
#include <QThread>
#include <string>

#include "safe_file_os.h"

namespace {

constexpr int kReplaceWaitMs = 1000;

std::wstring native(const QString& path) {
    return QDir::toNativeSeparators(path).toStdWString();
}

HANDLE toHandle(qintptr handle) {
    return reinterpret_cast<HANDLE>(handle);
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

bool isLink(DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

bool isFolder(DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

}  // namespace

namespace safe_file_os {

// Qt's text for a Windows error code (FormatMessageW's, in the system's language).
QString reason(OsError error) {
    return qt_error_string(static_cast<int>(error));
}

OsError nameTakenError() {
    return ERROR_FILE_EXISTS;
}

bool nameTaken(OsError error) {
    return error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS;
}

bool nameMissing(OsError error) {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

bool lockHeld(OsError error) {
    return error == ERROR_LOCK_VIOLATION;
}

OsError createFolder(const QString& path) {
    if (!CreateDirectoryW(native(path).c_str(), nullptr) &&
        GetLastError() != ERROR_ALREADY_EXISTS) {
        return GetLastError();
    }
    return kNoError;
}

OsError entryKind(const QString& path, FolderEntry::Kind* kind) {
    const DWORD attributes = GetFileAttributesW(native(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return GetLastError();
    }
    *kind = isLink(attributes)     ? FolderEntry::kLink
            : isFolder(attributes) ? FolderEntry::kFolder
                                   : FolderEntry::kOther;
    return kNoError;
}

QString writeTemporaryBeside(const QString& path, const QByteArray& bytes, OsError* error) {
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
            *error = GetLastError();
            return QString();
        }
        const bool ok = writeAll(file, bytes) && FlushFileBuffers(file);
        const DWORD writeError = GetLastError();
        if (!CloseHandle(file) || !ok) {
            *error = ok ? GetLastError() : writeError;
            DeleteFileW(native(name).c_str());
            return QString();
        }
        return name;
    }
    *error = ERROR_FILE_EXISTS;
    return QString();
}

OsError moveWithoutReplacing(const QString& from, const QString& to) {
    return MoveFileExW(native(from).c_str(), native(to).c_str(), MOVEFILE_WRITE_THROUGH)
               ? kNoError
               : GetLastError();
}

// A link at to is itself replaced: the move acts on the name, not on what it points to.
OsError moveReplacing(const QString& from, const QString& to) {
    QElapsedTimer clock;
    clock.start();
    while (!MoveFileExW(native(from).c_str(), native(to).c_str(),
                        MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        const DWORD moveError = GetLastError();
        const bool heldOpen =
            moveError == ERROR_ACCESS_DENIED || moveError == ERROR_SHARING_VIOLATION;
        if (!heldOpen || clock.elapsed() >= kReplaceWaitMs) {
            return moveError;
        }
        QThread::msleep(20);
    }
    return kNoError;
}

void removeFile(const QString& path) {
    DeleteFileW(native(path).c_str());
}

// MOVEFILE_WRITE_THROUGH already put the name on disk.
void syncFolderOf(const QString&) {}

int createNewDescriptor(const QString& path, OsError* error) {
    const HANDLE handle = createExclusive(path);
    if (handle == INVALID_HANDLE_VALUE) {
        *error = GetLastError();
        return -1;
    }
    // QFile takes a C runtime descriptor, which owns the handle from here on.
    const int fd = _open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_WRONLY | _O_BINARY);
    if (fd < 0) {
        CloseHandle(handle);
    }
    return fd;
}

void closeDescriptor(int fd) {
    _close(fd);
}

bool syncDescriptor(int fd) {
    return FlushFileBuffers(reinterpret_cast<HANDLE>(_get_osfhandle(fd)));
}

OpenFault openForReading(const QString& path, qintptr* handle, qint64* size, FileIdentity* identity,
                         OsError* error) {
    // The link itself is opened, never what it points to; a folder does not open without
    // FILE_FLAG_BACKUP_SEMANTICS, which is not asked for.
    const HANDLE file = CreateFileW(
        native(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        *error = GetLastError();
        const DWORD attributes = GetFileAttributesW(native(path).c_str());
        return attributes != INVALID_FILE_ATTRIBUTES && isFolder(attributes) ? OpenFault::kWrongKind
                                                                             : OpenFault::kOsError;
    }
    BY_HANDLE_FILE_INFORMATION information{};
    OpenFault fault = OpenFault::kNone;
    if (GetFileType(file) != FILE_TYPE_DISK) {
        fault = OpenFault::kWrongKind;
    } else if (!GetFileInformationByHandle(file, &information)) {
        *error = GetLastError();
        fault = OpenFault::kOsError;
    } else if (isLink(information.dwFileAttributes)) {
        fault = OpenFault::kLink;
    } else if (isFolder(information.dwFileAttributes)) {
        fault = OpenFault::kWrongKind;
    }
    if (fault != OpenFault::kNone) {
        CloseHandle(file);
        return fault;
    }
    *handle = reinterpret_cast<qintptr>(file);
    *size = static_cast<qint64>(information.nFileSizeHigh) << 32 | information.nFileSizeLow;
    identity->device = information.dwVolumeSerialNumber;
    identity->inode =
        static_cast<quint64>(information.nFileIndexHigh) << 32 | information.nFileIndexLow;
    return OpenFault::kNone;
}

qint64 readSome(qintptr handle, char* data, qint64 capacity, OsError* error) {
    DWORD got = 0;
    if (!ReadFile(toHandle(handle), data, static_cast<DWORD>(capacity), &got, nullptr)) {
        *error = GetLastError();
        return -1;
    }
    return got;
}

void closeHandle(qintptr handle) {
    CloseHandle(toHandle(handle));
}

OpenFault readFolder(const QString& path, bool followLink, std::vector<FolderEntry>* entries,
                     OsError* error) {
    // The folder is held open, without sharing deletion, while it is read: it cannot be renamed
    // and replaced by a junction between the check and the listing.
    const HANDLE folder = CreateFileW(
        native(path).c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | (followLink ? 0 : FILE_FLAG_OPEN_REPARSE_POINT),
        nullptr);
    BY_HANDLE_FILE_INFORMATION information{};
    if (folder == INVALID_HANDLE_VALUE || !GetFileInformationByHandle(folder, &information)) {
        *error = GetLastError();
        if (folder != INVALID_HANDLE_VALUE) {
            CloseHandle(folder);
        }
        return OpenFault::kOsError;
    }
    const bool link = !followLink && isLink(information.dwFileAttributes);
    if (link || !isFolder(information.dwFileAttributes)) {
        CloseHandle(folder);
        return link ? OpenFault::kLink : OpenFault::kWrongKind;
    }
    WIN32_FIND_DATAW found{};
    const HANDLE search =
        FindFirstFileW(native(QDir(path).filePath(QStringLiteral("*"))).c_str(), &found);
    DWORD readError = search == INVALID_HANDLE_VALUE ? GetLastError() : ERROR_SUCCESS;
    if (search != INVALID_HANDLE_VALUE) {
        do {
            const DWORD attributes = found.dwFileAttributes;
            entries->push_back({QString::fromWCharArray(found.cFileName),
                                isLink(attributes)                          ? FolderEntry::kLink
                                : isFolder(attributes)                      ? FolderEntry::kFolder
                                : (attributes & FILE_ATTRIBUTE_DEVICE) != 0 ? FolderEntry::kOther
                                                                            : FolderEntry::kFile});
        } while (FindNextFileW(search, &found));
        readError = GetLastError();
        FindClose(search);
    }
    CloseHandle(folder);
    // An empty drive's root has not even "." and "..".
    if (readError != ERROR_NO_MORE_FILES && readError != ERROR_FILE_NOT_FOUND) {
        *error = readError;
        return OpenFault::kOsError;
    }
    return OpenFault::kNone;
}

OpenFault openLockFile(const QString& path, qintptr* handle, OsError* error) {
    const HANDLE file =
        CreateFileW(native(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        *error = GetLastError();
        return OpenFault::kOsError;
    }
    BY_HANDLE_FILE_INFORMATION information{};
    OpenFault fault = OpenFault::kNone;
    if (!GetFileInformationByHandle(file, &information)) {
        *error = GetLastError();
        fault = OpenFault::kOsError;
    } else if (isLink(information.dwFileAttributes)) {
        fault = OpenFault::kLink;
    }
    if (fault != OpenFault::kNone) {
        CloseHandle(file);
        return fault;
    }
    *handle = reinterpret_cast<qintptr>(file);
    return OpenFault::kNone;
}

// One byte past the end of an empty file: Windows locks ranges whether or not they hold data.
OsError tryLock(qintptr handle) {
    OVERLAPPED range{};
    return LockFileEx(toHandle(handle), LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1,
                      0, &range)
               ? kNoError
               : GetLastError();
}

}  // namespace safe_file_os

// Windows has no file size limit that ends a process: a write past a quota just fails.
void failWritesPastSizeLimit() {}
