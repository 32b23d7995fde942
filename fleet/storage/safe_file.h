#pragma once

// Files written and read without trusting the folder they are in, which other users may be able
// to write: nothing is read or written through a symbolic link, a new file is created
// exclusively and is complete on disk before its name appears, and a file is never replaced by
// a partial one. One implementation per OS (safe_file_posix.cpp, safe_file_windows.cpp).

#include <QByteArray>
#include <QString>
#include <optional>
#include <vector>

class QFile;
struct WriterTrust;

// Every folder corebench-fleet writes into (--out, --prom, a host's folder) is made by this: the
// folder and the missing ones above it, one level at a time, each with mode 0755 whatever the
// umask. False with error when it cannot, or when the folder, or one it had to create, is
// anything but a folder: a symbolic link there is refused, not followed. The folders above that
// were there already are taken as they are, links included (/var/run to /run).
bool makeFolders(const QString& path, QString* error);

// Makes a write past the process's file size limit (ulimit -f) fail as on a full disk, so that
// its writer cleans up and says so, instead of ending the process in the middle of it (SIGXFSZ).
// Programs the process starts get the system's default back. Called once, at the start.
void failWritesPastSizeLimit();

// Writes bytes to a new file named path, or, when that name is taken, path with "-2", "-3"...
// before its suffix: an existing file is never replaced. The file appears whole, on disk, and
// readable by everyone. Returns the name written, or an empty string with error.
QString publishNewFile(const QString& path, const QByteArray& bytes, QString* error);

// Opens a new file for writing as publishNewFile names it (created exclusively, never through a
// link) and returns its name, or an empty string with error.
QString createNewFile(const QString& path, QFile* file, QString* error);

// Flushes file and forces it to disk; false when any byte did not get there.
bool syncFile(QFile* file);

// Replaces path with bytes in one step: a temporary file beside it, forced to disk, renamed
// over it. A link at path is replaced, not followed; on failure the old file stays.
bool replaceFile(const QString& path, const QByteArray& bytes, QString* error);

// Which file was read: the same file named twice (a folder and a file in it) is read once.
struct FileIdentity {
    quint64 device = 0;
    quint64 inode = 0;
    bool operator<(const FileIdentity& other) const {
        return device != other.device ? device < other.device : inode < other.inode;
    }
};

// Reads a regular file of at most maxBytes, not through a link, without waiting on a pipe or a
// device, and with trust only one that no one but its writers could write (writer_trust.h).
// Nothing with error (the reason) otherwise.
std::optional<QByteArray> readRegularFile(const QString& path, qint64 maxBytes,
                                          FileIdentity* identity, QString* error,
                                          const WriterTrust* trust = nullptr);

struct FolderEntry {
    enum Kind { kFile, kFolder, kLink, kOther };
    QString name;
    Kind kind;
};

// The entries of a folder, without "." and "..", in the file system's order. The folder itself
// is not opened through a link unless followLink.
bool listFolder(const QString& path, bool followLink, std::vector<FolderEntry>* entries,
                QString* error);

// An exclusive lock on a lock file (created when missing, never through a link), held until the
// object goes. On POSIX the file is made (or made again) mode 0600: whoever could open it could
// hold the lock and keep every writer waiting.
class FileLock {
  public:
    FileLock() = default;
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    // Waits at most timeoutMs for the lock; false with error when it could not be had.
    bool lock(const QString& path, int timeoutMs, QString* error);

  private:
    qintptr handle_ = -1;  // a descriptor or a Windows HANDLE
};
