// The trust rule reads Linux's owners, modes and POSIX ACLs. Elsewhere (Windows, macOS) nothing
// is trusted, so check cannot decide and changes nothing: the health check it serves runs on
// Slurm's Linux nodes.

#include "writer_trust.h"

namespace {

const char kLinuxOnly[] = "who may write it is checked on Linux only";

}  // namespace

std::optional<WriterTrust> writerTrust(const QString& user, QString*) {
    WriterTrust trust;
    if (!user.isEmpty()) {
        trust.names += QStringLiteral(" and ") + user;
    }
    return trust;
}

QString trustedFolder(const QString& path, const WriterTrust&, QString* error) {
    *error = QStringLiteral("%1: %2").arg(path, QLatin1String(kLinuxOnly));
    return QString();
}

QString otherWriters(qintptr, const WriterTrust&) {
    return QLatin1String(kLinuxOnly);
}
