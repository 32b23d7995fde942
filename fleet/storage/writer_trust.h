#pragma once

// Who may write what the health check acts on, as sshd's StrictModes asks of a user's keys: root
// and at most one other user, the records' writer. A file or folder is trusted when one of them
// owns it and no one else may write it, neither by its mode nor by an entry of its POSIX access
// control list (an entry granting write is refused even while the ACL's mask holds it back: the
// owner's next chmod would let it through). A folder above the records is trusted too when others
// may write it but it is root's and sticky, as /tmp is: then no one else can rename or remove
// what is in it. Linux only (writer_trust_linux.cpp); elsewhere nothing is trusted
// (writer_trust_other.cpp) and check cannot decide, which changes nothing.

#include <QString>
#include <QtGlobal>
#include <optional>

struct WriterTrust {
    quint32 writer = 0;                      // the writer's user id; root's (0) when root alone
    QString names = QStringLiteral("root");  // "root" or "root and <writer>", for messages
};

// Root and the user named (root alone when empty). Nothing, with error, when there is no such
// user.
std::optional<WriterTrust> writerTrust(const QString& user, QString* error);

// The folder at path, links followed, as a path without links, when it and every folder above it
// up to / are trusted; otherwise an empty string, with error naming the first folder that is not
// and who else could write it.
QString trustedFolder(const QString& path, const WriterTrust& trust, QString* error);

// Who else could write the file or folder open as handle (a descriptor): "could be written by
// ..., not only by ...", or an empty string when no one else could.
QString otherWriters(qintptr handle, const WriterTrust& trust);
