#pragma once

// Output captured from the built corebench (see data/README.md).

#include <QByteArray>
#include <QFile>
#include <QString>

inline QByteArray capturedLog(const char* name) {
    QFile file(QStringLiteral(FLEET_TEST_DATA "/") + QLatin1String(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
