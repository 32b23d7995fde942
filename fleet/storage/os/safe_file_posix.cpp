#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "safe_file_os.h"

namespace {

// Readable by everyone: the node exporter and the report job run as other users.
constexpr mode_t kFileMode = 0644;
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kLockMode = 0600;

QByteArray encoded(const QString& path) {
    return QFile::encodeName(path);
}

bool writeAll(int fd, const QByteArray& bytes) {
    const char* data = bytes.constData();
    size_t left = static_cast<size_t>(bytes.size());
    while (left > 0) {
        const ssize_t written = write(fd, data, left);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            if (written == 0) {
                errno = ENOSPC;
            }
            return false;
        }
        data += written;
        left -= static_cast<size_t>(written);
    }
    return true;
}

// Whether an open that does not follow links failed (with error) on a link at path: O_NOFOLLOW
// gives ELOOP, with O_DIRECTORY ENOTDIR, and either has other causes too.
bool linkAt(const QByteArray& path, int error) {
    struct stat status;
    return (error == ELOOP || error == ENOTDIR) && lstat(path.constData(), &status) == 0 &&
           S_ISLNK(status.st_mode);
}

void ignoreSignal(int) {}

FolderEntry::Kind kindOf(mode_t mode) {
    return S_ISREG(mode)   ? FolderEntry::kFile
           : S_ISDIR(mode) ? FolderEntry::kFolder
           : S_ISLNK(mode) ? FolderEntry::kLink
                           : FolderEntry::kOther;
}

// A name from the file system: ASCII as it is (every locale's codec reads it so, and a host's
// folder of years of records holds a hundred thousand of them), anything else by the locale.
QString decodedName(const char* name) {
    const size_t length = strlen(name);
    return std::all_of(name, name + length, [](char c) { return static_cast<uchar>(c) < 0x80; })
               ? QString::fromLatin1(name, static_cast<int>(length))
               : QFile::decodeName(name);
}

}  // namespace

namespace safe_file_os {

QString reason(OsError error) {
    return QString::fromLocal8Bit(strerror(static_cast<int>(error)));
}

OsError nameTakenError() {
    return EEXIST;
}

bool nameTaken(OsError error) {
    return error == EEXIST;
}

bool nameMissing(OsError error) {
    return error == ENOENT;
}

bool lockHeld(OsError error) {
    return error == EWOULDBLOCK;
}

OsError createFolder(const QString& path) {
    if (mkdir(encoded(path).constData(), kFolderMode) != 0) {
        return errno == EEXIST ? kNoError : errno;
    }
    // The mode is set through the folder made, never through a link put in its place.
    const int fd = open(encoded(path).constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    const bool ok = fd >= 0 && fchmod(fd, kFolderMode) == 0;
    const OsError modeError = ok ? kNoError : errno;
    if (fd >= 0) {
        close(fd);
    }
    return modeError;
}

OsError entryKind(const QString& path, FolderEntry::Kind* kind) {
    struct stat status;
    if (lstat(encoded(path).constData(), &status) != 0) {
        return errno;
    }
    *kind = kindOf(status.st_mode);
    return kNoError;
}

QString writeTemporaryBeside(const QString& path, const QByteArray& bytes, OsError* error) {
    // Starts with a dot and ends in .tmp: no reader takes it for a record or a textfile.
    QByteArray name =
        encoded(QDir(QFileInfo(path).absolutePath()).filePath(".corebench-XXXXXX.tmp"));
    const int fd = mkostemps(name.data(), 4, O_CLOEXEC);  // O_EXCL: never through a link
    if (fd < 0) {
        *error = errno;
        return QString();
    }
    const bool ok = fchmod(fd, kFileMode) == 0 && writeAll(fd, bytes) && fsync(fd) == 0;
    const int writeError = errno;
    if (close(fd) != 0 || !ok) {
        *error = ok ? errno : writeError;
        unlink(name.constData());
        return QString();
    }
    return QFile::decodeName(name);
}

// link() fails on an existing name, link or not.
OsError moveWithoutReplacing(const QString& from, const QString& to) {
    if (link(encoded(from).constData(), encoded(to).constData()) != 0) {
        return errno;
    }
    unlink(encoded(from).constData());
    return kNoError;
}

OsError moveReplacing(const QString& from, const QString& to) {
    return rename(encoded(from).constData(), encoded(to).constData()) != 0 ? errno : kNoError;
}

void removeFile(const QString& path) {
    unlink(encoded(path).constData());
}

// A new name's entry is on disk only once its folder is.
void syncFolderOf(const QString& path) {
    const int fd = open(encoded(QFileInfo(path).absolutePath()).constData(),
                        O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        fsync(fd);
        close(fd);
    }
}

int createNewDescriptor(const QString& path, OsError* error) {
    const int fd = open(encoded(path).constData(),
                        O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode);
    if (fd < 0) {
        *error = errno;
        return -1;
    }
    fchmod(fd, kFileMode);  // whatever the umask
    return fd;
}

void closeDescriptor(int fd) {
    close(fd);
}

bool syncDescriptor(int fd) {
    return fsync(fd) == 0;
}

OpenFault openForReading(const QString& path, qintptr* handle, qint64* size, FileIdentity* identity,
                         OsError* error) {
    // Not blocking: opening a pipe or a device must not wait for a writer.
    const int fd = open(encoded(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        *error = errno;
        return linkAt(encoded(path), static_cast<int>(*error)) ? OpenFault::kLink
                                                               : OpenFault::kOsError;
    }
    struct stat status;
    OpenFault fault = OpenFault::kNone;
    if (fstat(fd, &status) != 0) {
        *error = errno;
        fault = OpenFault::kOsError;
    } else if (!S_ISREG(status.st_mode)) {
        fault = OpenFault::kWrongKind;
    }
    if (fault != OpenFault::kNone) {
        close(fd);
        return fault;
    }
    *handle = fd;
    *size = status.st_size;
    identity->device = static_cast<quint64>(status.st_dev);
    identity->inode = static_cast<quint64>(status.st_ino);
    return OpenFault::kNone;
}

qint64 readSome(qintptr handle, char* data, qint64 capacity, OsError* error) {
    for (;;) {
        const ssize_t got = read(static_cast<int>(handle), data, static_cast<size_t>(capacity));
        if (got >= 0) {
            return got;
        }
        if (errno != EINTR) {
            *error = errno;
            return -1;
        }
    }
}

void closeHandle(qintptr handle) {
    close(static_cast<int>(handle));
}

OpenFault readFolder(const QString& path, bool followLink, std::vector<FolderEntry>* entries,
                     OsError* error) {
    const int fd = open(encoded(path).constData(),
                        O_RDONLY | O_DIRECTORY | O_CLOEXEC | (followLink ? 0 : O_NOFOLLOW));
    DIR* dir = fd < 0 ? nullptr : fdopendir(fd);
    if (dir == nullptr) {
        const int openError = errno;
        if (fd >= 0) {
            close(fd);
        }
        *error = openError;
        return !followLink && linkAt(encoded(path), openError) ? OpenFault::kLink
               : openError == ENOTDIR                          ? OpenFault::kWrongKind
                                                               : OpenFault::kOsError;
    }
    errno = 0;
    for (const dirent* entry; (entry = readdir(dir)) != nullptr; errno = 0) {
        FolderEntry::Kind kind = entry->d_type == DT_REG   ? FolderEntry::kFile
                                 : entry->d_type == DT_DIR ? FolderEntry::kFolder
                                 : entry->d_type == DT_LNK ? FolderEntry::kLink
                                                           : FolderEntry::kOther;
        struct stat status;
        if (entry->d_type == DT_UNKNOWN &&
            fstatat(fd, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0) {
            kind = kindOf(status.st_mode);
        }
        entries->push_back({decodedName(entry->d_name), kind});
    }
    const int readError = errno;
    closedir(dir);
    *error = readError;
    return readError != 0 ? OpenFault::kOsError : OpenFault::kNone;
}

// Whoever can open the lock file can hold its lock, and every writer would wait on them.
OpenFault openLockFile(const QString& path, qintptr* handle, OsError* error) {
    const int fd = open(encoded(path).constData(),
                        O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kLockMode);
    if (fd < 0) {
        *error = errno;
        return linkAt(encoded(path), static_cast<int>(*error)) ? OpenFault::kLink
                                                               : OpenFault::kOsError;
    }
    // Also a lock file that an older corebench-fleet left readable by everyone. One of another
    // user's stays as it is: who could make it there can replace the .prom file itself.
    fchmod(fd, kLockMode);
    *handle = fd;
    return OpenFault::kNone;
}

OsError tryLock(qintptr handle) {
    while (flock(static_cast<int>(handle), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EINTR) {
            return errno;
        }
    }
    return kNoError;
}

}  // namespace safe_file_os

// Caught, not ignored: a caught signal is the default again in a program started by exec, so
// corebench meets its file size limit as it would without corebench-fleet.
void failWritesPastSizeLimit() {
    struct sigaction action {};
    action.sa_handler = ignoreSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGXFSZ, &action, nullptr);
}
