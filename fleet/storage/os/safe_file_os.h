#pragma once

// The few OS calls safe_file.cpp is built on, one implementation per OS (safe_file_posix.cpp,
// safe_file_windows.cpp). Only safe_file.cpp uses them.

#include <QByteArray>
#include <QString>
#include <QtGlobal>
#include <vector>

#include "safe_file.h"

namespace safe_file_os {

// errno on POSIX, GetLastError() on Windows; kNoError when a call succeeded.
using OsError = qint64;
constexpr OsError kNoError = 0;

// The system's text for an error.
QString reason(OsError error);
// The error of a name that is already taken, by a file, a folder or a link.
OsError nameTakenError();
bool nameTaken(OsError error);
// The error of a name that nothing has, in a folder that is there or not.
bool nameMissing(OsError error);
// The error of a lock another process holds.
bool lockHeld(OsError error);

// Why a file or folder was not opened.
enum class OpenFault { kNone, kLink, kWrongKind, kOsError };

// Creates a folder (mode 0755 whatever the umask); kNoError when it is made or the name is
// already taken.
OsError createFolder(const QString& path);
// What path names, a link not followed.
OsError entryKind(const QString& path, FolderEntry::Kind* kind);

// A new file beside path, never through a link, holding bytes, readable by everyone and forced
// to disk. Its name, or an empty string with error.
QString writeTemporaryBeside(const QString& path, const QByteArray& bytes, OsError* error);
// Gives the file at from the name to, only when that name is free (a link takes it too).
OsError moveWithoutReplacing(const QString& from, const QString& to);
// Gives the file at from the name to, replacing what had it (a link is replaced, not followed).
OsError moveReplacing(const QString& from, const QString& to);
void removeFile(const QString& path);
// Puts on disk a name just given in path's folder, where the OS needs it.
void syncFolderOf(const QString& path);

// A new file created exclusively, not through a link, readable by everyone, as a C runtime
// descriptor. -1 with error otherwise; error is kNoError when the file was created but had no
// descriptor.
int createNewDescriptor(const QString& path, OsError* error);
void closeDescriptor(int fd);
// Forces what was written through a descriptor to disk.
bool syncDescriptor(int fd);

// Opens a regular file for reading, not through a link and without waiting on a pipe or a
// device; with its size and identity.
OpenFault openForReading(const QString& path, qintptr* handle, qint64* size, FileIdentity* identity,
                         OsError* error);
// Reads at most capacity bytes: how many, 0 at the end, -1 with error.
qint64 readSome(qintptr handle, char* data, qint64 capacity, OsError* error);
void closeHandle(qintptr handle);

// Every entry of a folder, "." and ".." included where the OS lists them.
OpenFault readFolder(const QString& path, bool followLink, std::vector<FolderEntry>* entries,
                     OsError* error);

// Opens (creating when missing) a lock file, never through a link.
OpenFault openLockFile(const QString& path, qintptr* handle, OsError* error);
// One attempt at an exclusive lock, not waiting.
OsError tryLock(qintptr handle);

}  // namespace safe_file_os
