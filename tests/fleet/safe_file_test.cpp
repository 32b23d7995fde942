// The safe-file layer by itself, on a real file system: no name is replaced or followed, and no
// fsync is dropped. fsync is the C library's, wrapped at link time (-Wl,--wrap=fsync, GNU ld's
// names for the wrapper and the real one): each call is noted with what it forced to disk, and a
// test can make it fail.

#include "safe_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace {

// "file <size>" or "folder", and whether the name being written was there yet.
std::vector<std::string> syncs;
QByteArray watchedName;
int failSyncWith = 0;

}  // namespace

// gtest shows a QString as its text.
inline void PrintTo(const QString& text, std::ostream* out) {
    *out << text.toStdString();
}

extern "C" int __real_fsync(int fd);
extern "C" int __wrap_fsync(int fd);
extern "C" int __wrap_fsync(int fd) {
    struct stat status {};
    fstat(fd, &status);
    syncs.push_back((S_ISDIR(status.st_mode) ? std::string("folder")
                                             : "file " + std::to_string(status.st_size)) +
                    (access(watchedName.constData(), F_OK) == 0 ? ", named" : ", unnamed"));
    if (failSyncWith != 0) {
        errno = failSyncWith;
        return -1;
    }
    return __real_fsync(fd);
}

namespace {

class SafeFile : public ::testing::Test {
  protected:
    QString path(const QString& name) const { return dir.filePath(name); }
    QByteArray read(const QString& name) const {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(unreadable)");
    }
    void write(const QString& name, const QByteArray& bytes) const {
        QFile file(path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    }
    void link(const QString& name, const QString& target) const {
        ASSERT_EQ(symlink(qPrintable(path(target)), qPrintable(path(name))), 0);
    }
    mode_t mode(const QString& name) const {
        struct stat status {};
        return lstat(qPrintable(path(name)), &status) == 0 ? status.st_mode & 07777 : 0;
    }
    QStringList temporaries() const {
        return QDir(dir.path()).entryList({".*.tmp"}, QDir::Files | QDir::Hidden);
    }
    void watch(const QString& name) {
        syncs.clear();
        watchedName = QFile::encodeName(path(name));
    }
    void TearDown() override { failSyncWith = 0; }

    QTemporaryDir dir;
};

TEST_F(SafeFile, PublishNewFileNeverReplacesAName) {
    write("r.json", "first");
    write("victim", "victim");
    link("r-2.json", "victim");
    ASSERT_TRUE(QDir().mkdir(path("r-3.json")));
    const mode_t umaskBefore = umask(077);
    QString error;
    const QString published = publishNewFile(path("r.json"), "new", &error);
    umask(umaskBefore);
    EXPECT_EQ(published, path("r-4.json")) << error.toStdString();
    EXPECT_EQ(read("r.json"), "first");
    EXPECT_EQ(read("victim"), "victim");
    EXPECT_EQ(read("r-4.json"), "new");
    EXPECT_EQ(mode("r-4.json"), 0644u) << "readable by the node exporter whatever the umask";
    EXPECT_EQ(temporaries(), QStringList());
}

// A link, to a file or a folder, is reported as a link and never read, listed, locked or written
// through; the only folders taken through links are those above the one a writer makes.
TEST_F(SafeFile, NothingGoesThroughALink) {
    write("victim", "victim");
    ASSERT_TRUE(QDir().mkdir(path("folder")));
    link("file-link", "victim");
    link("folder-link", "folder");
    QString error;
    FileIdentity identity;
    EXPECT_FALSE(readRegularFile(path("file-link"), 100, &identity, &error));
    EXPECT_EQ(error, "a symbolic link, not read");
    std::vector<FolderEntry> entries;
    EXPECT_FALSE(listFolder(path("folder-link"), false, &entries, &error));
    EXPECT_EQ(error, "a symbolic link, not followed");
    EXPECT_TRUE(listFolder(path("folder-link"), true, &entries, &error)) << "as the caller asked";
    ASSERT_TRUE(listFolder(dir.path(), false, &entries, &error));
    for (const FolderEntry& entry : entries) {
        EXPECT_EQ(entry.kind == FolderEntry::kLink, entry.name.endsWith("-link"))
            << entry.name.toStdString();
    }
    FileLock lock;
    EXPECT_FALSE(lock.lock(path("file-link"), 1000, &error));
    EXPECT_EQ(error, "cannot lock " + path("file-link") + ": a symbolic link is not followed");
    QFile created;
    EXPECT_EQ(createNewFile(path("file-link"), &created, &error), path("file-link-2"));
    EXPECT_TRUE(replaceFile(path("file-link"), "replaced", &error)) << error.toStdString();
    EXPECT_EQ(read("file-link"), "replaced");
    EXPECT_EQ(read("victim"), "victim");
    EXPECT_FALSE(makeFolders(path("folder-link"), &error));
    EXPECT_EQ(error, path("folder-link") + " is not a folder but a symbolic link, not followed");
    EXPECT_TRUE(makeFolders(path("folder-link/new/sub"), &error)) << error.toStdString();
    EXPECT_EQ(mode("folder/new/sub"), 0755u);
}

// A file is on disk before its name appears, and its folder after; a failed fsync fails the
// write and leaves the file as it was.
TEST_F(SafeFile, EveryWriteIsForcedToDiskBeforeItCounts) {
    QString error;
    watch("r.json");
    ASSERT_FALSE(publishNewFile(path("r.json"), "12345", &error).isEmpty());
    EXPECT_EQ(syncs, (std::vector<std::string>{"file 5, unnamed", "folder, named"}));
    watch("r.json");
    ASSERT_TRUE(replaceFile(path("r.json"), "123", &error));
    EXPECT_EQ(syncs, (std::vector<std::string>{"file 3, named", "folder, named"}));
    EXPECT_EQ(read("r.json"), "123");
    watch("log");
    QFile log;
    ASSERT_FALSE(createNewFile(path("log"), &log, &error).isEmpty());
    log.write("ab");
    EXPECT_TRUE(syncFile(&log));
    EXPECT_EQ(syncs, (std::vector<std::string>{"file 2, named"}));

    failSyncWith = EIO;
    const QString ioError = QString::fromLocal8Bit(strerror(EIO));
    EXPECT_EQ(publishNewFile(path("new.json"), "12345", &error), QString());
    EXPECT_TRUE(error.endsWith(ioError)) << error.toStdString();
    EXPECT_FALSE(QFile::exists(path("new.json")));
    EXPECT_FALSE(replaceFile(path("r.json"), "45678", &error));
    EXPECT_EQ(read("r.json"), "123");
    EXPECT_FALSE(syncFile(&log));
    EXPECT_EQ(temporaries(), QStringList());
}

// Whoever could open the lock file could hold the lock: a new one and one left readable by an
// older version are the owner's alone.
TEST_F(SafeFile, OnlyTheOwnerCanOpenTheLockFile) {
    write("old.lock", "");
    ASSERT_EQ(chmod(qPrintable(path("old.lock")), 0644), 0);
    for (const char* name : {"old.lock", "new.lock"}) {
        FileLock lock;
        QString error;
        EXPECT_TRUE(lock.lock(path(name), 1000, &error)) << error.toStdString();
        EXPECT_EQ(mode(name), 0600u) << name;
    }
}

}  // namespace
