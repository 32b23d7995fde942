// Owners and modes from fstat, the ACL from the system.posix_acl_access attribute, both of the
// descriptor that is then read: what was checked is what is read. Folders are opened with O_PATH,
// which needs no permission to read them; their attribute is read through /proc/self/fd.

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <QFile>
#include <QStringList>
#include <QtEndian>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "writer_trust.h"

namespace {

// The attribute's layout (the kernel's posix_acl_xattr.h): a version, then entries of a tag,
// permission bits and a user or group id, little-endian.
const char kAclAttribute[] = "system.posix_acl_access";
constexpr quint32 kAclVersion = 2;
constexpr int kAclHeaderBytes = 4;
constexpr int kAclEntryBytes = 8;
enum AclTag : quint16 {
    kUserObj = 0x01,
    kUser = 0x02,
    kGroupObj = 0x04,
    kGroup = 0x08,
    kMask = 0x10,
    kOther = 0x20,
};
constexpr quint16 kAclWrite = 0x02;
// Room for 8,191 entries; a records folder's ACL has a handful. A larger one is not read, and then
// not trusted.
constexpr size_t kMaxAclBytes = 64 * 1024;
// getpwuid_r's and getgrgid_r's buffer; a name that does not fit is shown as its number.
constexpr size_t kNameBufferBytes = 16 * 1024;

QString systemError() {
    return QString::fromLocal8Bit(strerror(errno));
}

QString userName(uid_t uid) {
    struct passwd entry {};
    struct passwd* found = nullptr;
    std::vector<char> buffer(kNameBufferBytes);
    return getpwuid_r(uid, &entry, buffer.data(), kNameBufferBytes, &found) == 0 && found
               ? QStringLiteral("user %1").arg(QString::fromLocal8Bit(found->pw_name))
               : QStringLiteral("uid %1").arg(uid);
}

QString groupName(gid_t gid) {
    struct group entry {};
    struct group* found = nullptr;
    std::vector<char> buffer(kNameBufferBytes);
    return getgrgid_r(gid, &entry, buffer.data(), kNameBufferBytes, &found) == 0 && found
               ? QStringLiteral("group %1").arg(QString::fromLocal8Bit(found->gr_name))
               : QStringLiteral("gid %1").arg(gid);
}

// The ACL of fd, empty when it has none beyond its mode; false when it cannot be read.
bool readAcl(int fd, QByteArray* acl) {
    std::vector<char> bytes(kMaxAclBytes);
    ssize_t size = fgetxattr(fd, kAclAttribute, bytes.data(), bytes.size());
    if (size < 0 && errno == EBADF) {  // an O_PATH descriptor
        size = getxattr(QByteArray("/proc/self/fd/" + QByteArray::number(fd)).constData(),
                        kAclAttribute, bytes.data(), bytes.size());
    }
    if (size < 0) {
        // ENODATA: no ACL; EOPNOTSUPP: a file system without them.
        return errno == ENODATA || errno == EOPNOTSUPP;
    }
    *acl = QByteArray(bytes.data(), static_cast<int>(size));
    return true;
}

// Who besides root and the writer could write a file of this owner, mode and ACL.
QStringList otherWritersOf(const struct stat& status, const QByteArray& acl, uid_t writer) {
    const auto trusted = [writer](uid_t uid) { return uid == 0 || uid == writer; };
    QStringList others;
    if (!trusted(status.st_uid)) {
        others << QStringLiteral("its owner, %1").arg(userName(status.st_uid));
    }
    const QString mode = QString::number(status.st_mode & 07777, 8);
    if (acl.isEmpty()) {
        QStringList byMode;
        if ((status.st_mode & S_IWGRP) != 0) {
            byMode << groupName(status.st_gid);
        }
        if ((status.st_mode & S_IWOTH) != 0) {
            byMode << QStringLiteral("everyone");
        }
        if (!byMode.isEmpty()) {
            others << byMode.join(QStringLiteral(" and ")) + QStringLiteral(" (mode %1)").arg(mode);
        }
        return others;
    }
    const char* data = acl.constData();
    if ((acl.size() - kAclHeaderBytes) % kAclEntryBytes != 0 ||
        qFromLittleEndian<quint32>(data) != kAclVersion) {
        return others << QStringLiteral("whoever its ACL names (not one that can be read)");
    }
    for (int at = kAclHeaderBytes; at < acl.size(); at += kAclEntryBytes) {
        const quint16 tag = qFromLittleEndian<quint16>(data + at);
        const quint16 permissions = qFromLittleEndian<quint16>(data + at + 2);
        const quint32 id = qFromLittleEndian<quint32>(data + at + 4);
        if ((permissions & kAclWrite) == 0 || tag == kUserObj || tag == kMask ||
            (tag == kUser && trusted(id))) {
            continue;
        }
        others << (tag == kUser       ? userName(id)
                   : tag == kGroupObj ? groupName(status.st_gid)
                   : tag == kGroup    ? groupName(id)
                   : tag == kOther    ? QStringLiteral("everyone")
                                      : QStringLiteral("an entry of tag %1").arg(tag)) +
                      QStringLiteral(" (ACL)");
    }
    return others;
}

// Who else could write what fd is, or (a folder) rename or remove what is in it. A folder above
// the one checked may let others write when it is root's and sticky.
QString otherWritersOf(int fd, const WriterTrust& trust, bool above) {
    struct stat status {};
    QByteArray acl;
    if (fstat(fd, &status) != 0 || !readAcl(fd, &acl)) {
        return QStringLiteral("cannot tell who may write it: %1").arg(systemError());
    }
    const QStringList others = otherWritersOf(status, acl, trust.writer);
    const bool sticky = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
    if (others.isEmpty() || (above && sticky && status.st_uid == 0)) {
        return QString();
    }
    return QStringLiteral("could be written by %1, not only by %2")
        .arg(others.join(QStringLiteral(", ")), trust.names);
}

}  // namespace

std::optional<WriterTrust> writerTrust(const QString& user, QString* error) {
    WriterTrust trust;
    if (user.isEmpty()) {
        return trust;
    }
    struct passwd entry {};
    struct passwd* found = nullptr;
    std::vector<char> buffer(kNameBufferBytes);
    const int lookup = getpwnam_r(QFile::encodeName(user).constData(), &entry, buffer.data(),
                                  kNameBufferBytes, &found);
    if (lookup != 0 || found == nullptr) {
        *error = QStringLiteral("no user \"%1\" on this system").arg(user);
        return std::nullopt;
    }
    trust.writer = found->pw_uid;
    if (trust.writer != 0) {
        trust.names += QStringLiteral(" and ") + user;
    }
    return trust;
}

QString trustedFolder(const QString& path, const WriterTrust& trust, QString* error) {
    char* resolved = realpath(QFile::encodeName(path).constData(), nullptr);
    if (resolved == nullptr) {
        *error = QStringLiteral("%1: %2").arg(path, systemError());
        return QString();
    }
    const QByteArray real(resolved);
    free(resolved);
    QList<QByteArray> names = real.split('/');
    names.removeAll(QByteArray());
    // From / down, each folder opened through the one above it and never through a link (a link
    // is not a directory to O_DIRECTORY | O_NOFOLLOW): the folders checked are those on the way.
    QByteArray walked = "/";
    int fd = open(walked.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    QString problem = fd < 0 ? systemError() : otherWritersOf(fd, trust, !names.isEmpty());
    for (int i = 0; i < names.size() && problem.isEmpty(); ++i) {
        const int next =
            openat(fd, names[i].constData(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        problem = next < 0 ? systemError() : otherWritersOf(next, trust, i + 1 < names.size());
        close(fd);
        fd = next;
        walked += (i == 0 ? "" : "/") + names[i];
    }
    if (fd >= 0) {
        close(fd);
    }
    if (!problem.isEmpty()) {
        *error = QStringLiteral("%1: %2").arg(QFile::decodeName(walked), problem);
        return QString();
    }
    return QFile::decodeName(real);
}

QString otherWriters(qintptr handle, const WriterTrust& trust) {
    return otherWritersOf(static_cast<int>(handle), trust, false);
}
