#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <cerrno>
#include <cstring>

#include "safe_file.h"

namespace {

// Readable by everyone: the node exporter and the report job run as other users.
constexpr mode_t kFileMode = 0644;
constexpr int kMaxNumbered = 1000;

QString reason(int error) {
    return QString::fromLocal8Bit(strerror(error));
}

QString failed(const char* what, const QString& path, int error) {
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

// A new name's entry is on disk only once its folder is.
void syncFolderOf(const QString& path) {
    const int fd = open(QFile::encodeName(QFileInfo(path).absolutePath()).constData(),
                        O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        fsync(fd);
        close(fd);
    }
}

// A temporary file beside path holding bytes, forced to disk; its name, or empty with error.
QByteArray temporaryWith(const QString& path, const QByteArray& bytes, QString* error) {
    // Starts with a dot and ends in .tmp: no reader takes it for a record or a textfile.
    QByteArray name =
        QFile::encodeName(QDir(QFileInfo(path).absolutePath()).filePath(".corebench-XXXXXX.tmp"));
    const int fd = mkostemps(name.data(), 4, O_CLOEXEC);  // O_EXCL: never through a link
    if (fd < 0) {
        *error = failed("write", path, errno);
        return QByteArray();
    }
    const bool ok = fchmod(fd, kFileMode) == 0 && writeAll(fd, bytes) && fsync(fd) == 0;
    const int writeError = errno;
    if (close(fd) != 0 || !ok) {
        *error = failed("write", path, ok ? errno : writeError);
        unlink(name.constData());
        return QByteArray();
    }
    return name;
}

}  // namespace

bool makeFolder(const QString& path, QString* error) {
    const QByteArray name = QFile::encodeName(path);
    if (mkdir(name.constData(), 0755) != 0 && errno != EEXIST) {
        *error = failed("create the folder", path, errno);
        return false;
    }
    struct stat status;
    if (lstat(name.constData(), &status) != 0) {
        *error = failed("create the folder", path, errno);
        return false;
    }
    if (!S_ISDIR(status.st_mode)) {
        *error = QStringLiteral("%1 is not a folder%2")
                     .arg(path, S_ISLNK(status.st_mode) ? QStringLiteral(" but a symbolic link")
                                                        : QString());
        return false;
    }
    return true;
}

QString publishNewFile(const QString& path, const QByteArray& bytes, QString* error) {
    const QByteArray temporary = temporaryWith(path, bytes, error);
    if (temporary.isEmpty()) {
        return QString();
    }
    // link() fails on an existing name, link or not: the file appears whole and replaces nothing.
    QString published;
    for (int n = 1; n <= kMaxNumbered && published.isEmpty(); ++n) {
        const QString candidate = numbered(path, n);
        if (link(temporary.constData(), QFile::encodeName(candidate).constData()) == 0) {
            published = candidate;
        } else if (errno != EEXIST) {
            *error = failed("write", candidate, errno);
            break;
        } else if (n == kMaxNumbered) {
            *error = failed("write", path, EEXIST);
        }
    }
    unlink(temporary.constData());
    if (!published.isEmpty()) {
        syncFolderOf(published);
    }
    return published;
}

QString createNewFile(const QString& path, QFile* file, QString* error) {
    for (int n = 1; n <= kMaxNumbered; ++n) {
        const QString candidate = numbered(path, n);
        const int fd = open(QFile::encodeName(candidate).constData(),
                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode);
        if (fd >= 0) {
            fchmod(fd, kFileMode);  // whatever the umask
            file->setFileName(candidate);
            if (!file->open(fd, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle)) {
                close(fd);
                *error = QStringLiteral("cannot write %1").arg(candidate);
                return QString();
            }
            return candidate;
        }
        if (errno != EEXIST) {
            *error = failed("write", candidate, errno);
            return QString();
        }
    }
    *error = failed("write", path, EEXIST);
    return QString();
}

bool syncFile(QFile* file) {
    return file->flush() && fsync(file->handle()) == 0;
}

bool replaceFile(const QString& path, const QByteArray& bytes, QString* error) {
    const QByteArray temporary = temporaryWith(path, bytes, error);
    if (temporary.isEmpty()) {
        return false;
    }
    if (rename(temporary.constData(), QFile::encodeName(path).constData()) != 0) {
        *error = failed("write", path, errno);
        unlink(temporary.constData());
        return false;
    }
    syncFolderOf(path);
    return true;
}

std::optional<QByteArray> readRegularFile(const QString& path, qint64 maxBytes,
                                          FileIdentity* identity, QString* error) {
    // Not blocking: opening a pipe or a device must not wait for a writer.
    const int fd =
        open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        *error = errno == ELOOP ? QStringLiteral("a symbolic link, not read")
                                : QStringLiteral("cannot read: %1").arg(reason(errno));
        return std::nullopt;
    }
    struct stat status;
    std::optional<QByteArray> bytes;
    if (fstat(fd, &status) != 0) {
        *error = QStringLiteral("cannot read: %1").arg(reason(errno));
    } else if (!S_ISREG(status.st_mode)) {
        *error = QStringLiteral("not a regular file");
    } else if (status.st_size > maxBytes) {
        *error = QStringLiteral("larger than %1 bytes").arg(maxBytes);
    } else {
        identity->device = static_cast<quint64>(status.st_dev);
        identity->inode = static_cast<quint64>(status.st_ino);
        // One byte more than the size shows a file that grew while it was read.
        QByteArray data(static_cast<int>(status.st_size) + 1, Qt::Uninitialized);
        qint64 size = 0;
        bool readFailed = false;
        while (size < data.size()) {
            const ssize_t got =
                read(fd, data.data() + size, static_cast<size_t>(data.size() - size));
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got <= 0) {
                readFailed = got < 0;
                break;
            }
            size += got;
        }
        if (readFailed) {
            *error = QStringLiteral("cannot read: %1").arg(reason(errno));
        } else if (size == data.size()) {
            *error = QStringLiteral("changed while it was read");
        } else {
            data.truncate(static_cast<int>(size));
            bytes = data;
        }
    }
    close(fd);
    return bytes;
}

bool listFolder(const QString& path, bool followLink, std::vector<FolderEntry>* entries,
                QString* error) {
    const int fd = open(QFile::encodeName(path).constData(),
                        O_RDONLY | O_DIRECTORY | O_CLOEXEC | (followLink ? 0 : O_NOFOLLOW));
    DIR* dir = fd < 0 ? nullptr : fdopendir(fd);
    if (dir == nullptr) {
        *error = errno == ELOOP || errno == ENOTDIR
                     ? QStringLiteral("not a folder (a symbolic link is not followed)")
                     : QStringLiteral("cannot read the folder: %1").arg(reason(errno));
        if (fd >= 0) {
            close(fd);
        }
        return false;
    }
    errno = 0;
    for (const dirent* entry; (entry = readdir(dir)) != nullptr; errno = 0) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) {
            continue;
        }
        unsigned char type = entry->d_type;
        if (type == DT_UNKNOWN) {
            struct stat status;
            type = fstatat(fd, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0 ? DT_UNKNOWN
                   : S_ISREG(status.st_mode)                                     ? DT_REG
                   : S_ISDIR(status.st_mode)                                     ? DT_DIR
                   : S_ISLNK(status.st_mode)                                     ? DT_LNK
                                                                                 : DT_UNKNOWN;
        }
        entries->push_back(
            {QFile::decodeName(entry->d_name), type == DT_REG   ? FolderEntry::kFile
                                               : type == DT_DIR ? FolderEntry::kFolder
                                               : type == DT_LNK ? FolderEntry::kLink
                                                                : FolderEntry::kOther});
    }
    const int readError = errno;
    closedir(dir);
    if (readError != 0) {
        *error = QStringLiteral("cannot read the folder: %1").arg(reason(readError));
        return false;
    }
    return true;
}

FileLock::~FileLock() {
    if (handle_ >= 0) {
        close(static_cast<int>(handle_));  // and with it the lock
    }
}

bool FileLock::lock(const QString& path, int timeoutMs, QString* error) {
    const int fd = open(QFile::encodeName(path).constData(),
                        O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kFileMode);
    handle_ = fd;
    if (fd < 0) {
        *error = failed("lock", path, errno);
        return false;
    }
    QElapsedTimer clock;
    clock.start();
    while (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || clock.elapsed() >= timeoutMs) {
            *error = errno == EWOULDBLOCK
                         ? QStringLiteral("cannot lock %1: held by another writer for %2 s")
                               .arg(path)
                               .arg(timeoutMs / 1000)
                         : failed("lock", path, errno);
            return false;
        }
        QThread::msleep(20);
    }
    return true;
}
