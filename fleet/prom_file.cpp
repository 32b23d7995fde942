#include "prom_file.h"

#include <QDir>
#include <QFile>

#include "command_options.h"
#include "prom_export.h"
#include "record.h"
#include "record_files.h"

bool writePromFile(const Record& record, const QString& promDir) {
    QString error;
    if (!QDir().mkpath(promDir)) {
        printMessage(QStringLiteral("cannot create the folder %1").arg(promDir));
        return false;
    }
    const QString path = QDir(promDir).filePath(QStringLiteral("corebench.prom"));
    QFile existing(path);
    const QByteArray before =
        existing.open(QIODevice::ReadOnly) ? existing.readAll() : QByteArray();
    if (!writeFileAtomically(path, promText(record, before), &error)) {
        printMessage(error);
        return false;
    }
    return true;
}
